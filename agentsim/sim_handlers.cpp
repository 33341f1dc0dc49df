// The simulator's module handlers: size checks, keys, replace and delete,
// the get replies, and the names and decoders the journal shows.
#include "agentsim/sim_handlers.h"

#include "agentconf/acsname_entries.h"
#include "agentconf/records.h"
#include "base/errors.h"
#include "imc/flexmsg.h"

#include <array>
#include <cstring>

namespace {

// The row of a request: its module and function; the engine rows share one,
// and their op, kind and size are the same.
const CommandSpec *FindRow(uint8_t module, uint16_t function) {
    for (const CommandSpec &row : kCommands) {
        if (row.Module() == module && row.function == function) {
            return &row;
        }
    }
    return nullptr;
}

// The key the agent stores a record under. Called only with a payload of
// the kind's size.
SimKey KeyOf(RecordKind kind, uint16_t function, std::span<const uint8_t> rec) {
    const OV_RecordSpec &kindInfo = OV_RecordSpecOf(kind);
    SimKeyBuilder key;
    for (size_t i = 0; i < kindInfo.keyFields; ++i) {
        const OV_KeyField &field = kindInfo.key[i];
        switch (field.type) {
        case OV_KeyField::Type::FunctionHigh:
            key.U8(static_cast<uint8_t>(function >> 8));
            break;
        case OV_KeyField::Type::Text:
            key.Text(rec.data() + field.offset, field.size);
            break;
        case OV_KeyField::Type::Uint: {
            uint32_t v = 0;
            std::memcpy(&v, rec.data() + field.offset, field.size); // little-endian host
            v &= field.mask;
            field.size == 1   ? key.U8(static_cast<uint8_t>(v))
            : field.size == 2 ? key.U16(static_cast<uint16_t>(v))
                              : key.U32(v);
            break;
        }
        }
    }
    return key.Take();
}

bool IsPersistent(RecordKind kind, std::span<const uint8_t> rec) {
    return OV_RecordIsPersistent(kind, rec);
}

int32_t Store(SimContext &ctx, RecordKind kind, SimRecord rec, SimResult *out) {
    SimKey key = KeyOf(kind, rec.function, rec.bytes);
    const SimRecord *old = ctx.store.Find(kind, key);
    // The table reply counts shapers in one byte: a 256th would not fit.
    if (old == nullptr && kind == RecordKind::Shaper &&
        ctx.store.Table(RecordKind::Shaper).size() >= SIM_SHAPER_TABLE_MAX) {
        return -OV_EINVAL;
    }
    out->persistentChanged =
        IsPersistent(kind, rec.bytes) || (old != nullptr && IsPersistent(kind, old->bytes));
    ctx.store.Put(kind, key, std::move(rec));
    return 0;
}

int32_t Set(SimContext &ctx, const CommandSpec &row, std::span<const uint8_t> rec, SimResult *out) {
    SimRecord record{row.Module(), row.function, {rec.begin(), rec.end()}, {}};
    if (row.kind == RecordKind::AcsName) {
        // An access name with entries is stored once they have all arrived.
        int32_t held = SimAcsNameBegin(ctx.acsName, record);
        if (held != 0) {
            return held < 0 ? held : 0;
        }
    }
    return Store(ctx, row.kind, std::move(record), out);
}

int32_t Entries(SimContext &ctx, const EntryRequestSpec &e, std::span<const uint8_t> payload,
                SimResult *out) {
    SimRecord whole;
    int32_t rc = SimAcsNameEntries(ctx.acsName, e.function, payload, &whole);
    return rc <= 0 ? rc : Store(ctx, e.kind, std::move(whole), out);
}

int32_t Delete(SimContext &ctx, const CommandSpec &row, std::span<const uint8_t> rec,
               SimResult *out) {
    if (row.kind == RecordKind::AcsName) {
        SimAcsNameDrop(ctx.acsName, rec.subspan(offsetof(AgentAcsNameConf, name)));
    }
    SimKey key = KeyOf(row.kind, row.function, rec);
    const SimRecord *old = ctx.store.Find(row.kind, key);
    if (old == nullptr) {
        return -OV_ENOENT;
    }
    out->persistentChanged = IsPersistent(row.kind, old->bytes);
    ctx.store.Erase(row.kind, key);
    return 0;
}

int32_t GetOne(SimContext &ctx, const CommandSpec &row, std::span<const uint8_t> rec,
               SimResult *out) {
    const SimRecord *found = ctx.store.Find(row.kind, KeyOf(row.kind, row.function, rec));
    if (found == nullptr) {
        return -OV_ENOENT;
    }
    out->reply = found->bytes;
    return 0;
}

int32_t GetTable(SimContext &ctx, const CommandSpec &row, SimResult *out) {
    const SimTable &table = ctx.store.Table(row.kind);
    // A 4-byte header, its first byte the count (never above 255, see Set).
    out->reply.assign(OV_SHAPER_TABLE_HEADER_LEN, 0);
    out->reply[0] = static_cast<uint8_t>(table.size());
    for (const auto &[key, rec] : table) {
        out->reply.insert(out->reply.end(), rec.bytes.begin(), rec.bytes.end());
    }
    return 0;
}

// Every registered module runs the same table-driven handler; the slots keep
// the agent's shape (a module without a handler answers -40).
int32_t HandleModule(SimContext &ctx, uint8_t module, uint16_t function,
                     std::span<const uint8_t> payload, SimResult *out) {
    if (const EntryRequestSpec *e = OV_EntryRequestOf(module, function); e != nullptr) {
        return Entries(ctx, *e, payload, out); // of varying size, checked there
    }
    const CommandSpec *row = FindRow(module, function);
    if (row == nullptr) {
        return -OV_ENOSYS;
    }
    if (payload.size() != OV_RequestSize(*row)) {
        return -OV_EINVAL;
    }
    switch (row->op) {
    case CmdOp::Set:
        return Set(ctx, *row, payload, out);
    case CmdOp::Delete:
        return Delete(ctx, *row, payload, out);
    case CmdOp::GetOne:
        return GetOne(ctx, *row, payload, out);
    case CmdOp::GetTable:
        return GetTable(ctx, *row, out);
    case CmdOp::GetSaCluster:
        out->reply = SimSaClusterReply(ctx.sa);
        return 0;
    }
    return -OV_ENOSYS;
}

using ModuleHandler = int32_t (*)(SimContext &, uint8_t, uint16_t, std::span<const uint8_t>,
                                  SimResult *);

constexpr std::array<ModuleHandler, IMC_MODULE_MAX> kModuleSlots = [] {
    std::array<ModuleHandler, IMC_MODULE_MAX> slots{};
    for (const CommandSpec &row : kCommands) {
        slots[row.Module()] = HandleModule;
    }
    return slots;
}();

} // namespace

SimResult SimDispatch(SimContext &ctx, uint8_t module, uint16_t function,
                      std::span<const uint8_t> payload) {
    SimResult out;
    ModuleHandler handler = module < kModuleSlots.size() ? kModuleSlots[module] : nullptr;
    out.status = handler == nullptr ? -OV_ENOSYS : handler(ctx, module, function, payload, &out);
    if (out.status != 0) {
        out.reply.clear();
        out.persistentChanged = false;
    }
    return out;
}

const char *SimCommandName(uint8_t module, uint16_t function, std::span<const uint8_t> payload) {
    const CommandSpec *cmd = OV_CommandOfRequest(module, function, payload);
    return cmd != nullptr ? cmd->word : nullptr;
}

json_object *SimDecodeRequest(uint8_t module, uint16_t function, std::span<const uint8_t> payload) {
    return OV_AgentRequestToJson(module, function, payload);
}

std::vector<const SimRecord *> SimPersistentRecords(const SimStore &store) {
    std::vector<const SimRecord *> out;
    for (size_t k = 0; k < RECORD_KIND_COUNT; ++k) {
        auto kind = static_cast<RecordKind>(k);
        for (const auto &[key, rec] : store.Table(kind)) {
            if (IsPersistent(kind, rec.bytes)) {
                out.push_back(&rec);
            }
        }
    }
    return out;
}

int32_t SimRestoreRecord(SimContext &ctx, uint8_t module, uint16_t function,
                         std::span<const uint8_t> payload) {
    SimResult ignored;
    // Entry requests find their record held (only a persistent one was taken).
    if (const EntryRequestSpec *e = OV_EntryRequestOf(module, function); e != nullptr) {
        return Entries(ctx, *e, payload, &ignored) < 0 ? -OV_EINVAL : 0;
    }
    const CommandSpec *row = FindRow(module, function);
    if (row == nullptr || row->op != CmdOp::Set || payload.size() != OV_RequestSize(*row) ||
        !IsPersistent(row->kind, payload)) {
        return -OV_EINVAL;
    }
    return Set(ctx, *row, payload, &ignored);
}

std::vector<uint8_t> SimSaClusterReply(const AgentSaClusterInfo &sa) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&sa);
    return {bytes, bytes + sizeof sa};
}
