// The simulator's module handlers: size checks, keys, replace and delete,
// the get replies, and the names and decoders the journal shows.
#include "agentsim/sim_handlers.h"

#include "agentconf/acsname.h"
#include "agentconf/conn.h"
#include "agentconf/engine.h"
#include "agentconf/globalarg.h"
#include "agentconf/link.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "agentsim/decode.h"
#include "base/errors.h"
#include "imc/flexmsg.h"

#include <array>
#include <cstring>

namespace {

enum class Op : uint8_t { Set, Delete, GetOne, GetTable, GetSaCluster };

using Decoder = json_object *(*)(const uint8_t *rec, size_t len);

/// One function of one module, as pdtool sends it.
struct FunctionRow {
    uint8_t module;
    uint16_t function;
    const char *command; ///< nullptr: the engine row, named by the parameter code
    size_t size;         ///< the payload size the function takes
    Op op;
    SimKind kind;
    Decoder decode; ///< nullptr when the request carries no record
};

constexpr size_t kRuleLen = sizeof(AgentRuleConf);
constexpr size_t kLinkIpLen = sizeof(AgentLinkIpConf);
constexpr size_t kLinkLen = sizeof(AgentLinkConf);
constexpr size_t kConnLen = sizeof(AgentConnConf);
constexpr size_t kGlobalArgLen = sizeof(AgentGlobalArgConf);
constexpr size_t kShaperLen = sizeof(AgentShaperConf);

constexpr FunctionRow kFunctions[] = {
    {3, 0x05, "set_cpe_ip", kLinkIpLen, Op::Set, SimKind::LinkIp, SimDecodeLinkIp},
    {3, 0x06, "del_cpe_ip", kLinkIpLen, Op::Delete, SimKind::LinkIp, SimDecodeLinkIp},
    {3, 0x09, "set_pop_ip", kLinkIpLen, Op::Set, SimKind::LinkIp, SimDecodeLinkIp},
    {3, 0x0a, "del_pop_ip", kLinkIpLen, Op::Delete, SimKind::LinkIp, SimDecodeLinkIp},
    {3, 0x0d, "set_link", kLinkLen, Op::Set, SimKind::Link, SimDecodeLink},
    {3, 0x0e, "del_link", kLinkLen, Op::Delete, SimKind::Link, SimDecodeLink},
    {3, 0x12, "set_tunnel", kConnLen, Op::Set, SimKind::Tunnel, SimDecodeConn},
    {3, 0x13, "del_tunnel", kConnLen, Op::Delete, SimKind::Tunnel, SimDecodeConn},
    {3, 0x1a, "set_conn_cmd", kGlobalArgLen, Op::Set, SimKind::GlobalArg, SimDecodeGlobalArg},
    // Rules: the function is the rule table << 8 | the operation (0 set, 2 delete).
    {4, 0x0000, "set_policy", kRuleLen, Op::Set, SimKind::Rule, SimDecodeRule},
    {4, 0x0002, "del_policy", kRuleLen, Op::Delete, SimKind::Rule, SimDecodeRule},
    {4, 0x0100, "set_snat", kRuleLen, Op::Set, SimKind::Rule, SimDecodeRule},
    {4, 0x0102, "del_snat", kRuleLen, Op::Delete, SimKind::Rule, SimDecodeRule},
    {4, 0x0200, "set_dnat", kRuleLen, Op::Set, SimKind::Rule, SimDecodeRule},
    {4, 0x0202, "del_dnat", kRuleLen, Op::Delete, SimKind::Rule, SimDecodeRule},
    {4, 0x0300, "set_dns", kRuleLen, Op::Set, SimKind::Rule, SimDecodeRule},
    {4, 0x0302, "del_dns", kRuleLen, Op::Delete, SimKind::Rule, SimDecodeRule},
    {4, 0x0400, "set_dns_proxy", kRuleLen, Op::Set, SimKind::Rule, SimDecodeRule},
    {4, 0x0402, "del_dns_proxy", kRuleLen, Op::Delete, SimKind::Rule, SimDecodeRule},
    {6, 0, "set_acsname", sizeof(AgentAcsNameConf), Op::Set, SimKind::AcsName, SimDecodeAcsName},
    {6, 1, "del_acsname", sizeof(AgentAcsNameConf), Op::Delete, SimKind::AcsName, SimDecodeAcsName},
    {8, 0, nullptr, sizeof(AgentEngineParamConf), Op::Set, SimKind::Engine, SimDecodeEngineParam},
    {10, 1, "set_ratelimit", sizeof(AgentRatelimitConf), Op::Set, SimKind::Ratelimit,
     SimDecodeRatelimit},
    {10, 2, "del_ratelimit", sizeof(AgentRatelimitConf), Op::Delete, SimKind::Ratelimit,
     SimDecodeRatelimit},
    {15, 1, "set_shaper_conf", kShaperLen, Op::Set, SimKind::Shaper, SimDecodeShaper},
    {15, 2, "del_shaper_conf", kShaperLen, Op::Delete, SimKind::Shaper, SimDecodeShaper},
    {15, 3, "get_shaper_conf", kShaperLen, Op::GetOne, SimKind::Shaper, SimDecodeShaper},
    {15, 4, "get_shaper_tbl", 0, Op::GetTable, SimKind::Shaper, nullptr},
    {15, 7, "get_sa_cluster", 0, Op::GetSaCluster, SimKind::Shaper, nullptr},
};

struct EngineName {
    AgentEngineParam code;
    const char *command;
};

constexpr EngineName kEngineNames[] = {
    {AgentEngineParam::wanKbps, "set_engine_wanKbps"},
    {AgentEngineParam::wanBurstBytes, "set_engine_wanBurstBytes"},
    {AgentEngineParam::tcpAccEnable, "set_engine_tcpAccEnable"},
    {AgentEngineParam::subnetAccEnable, "set_engine_subnetAccEnable"},
    {AgentEngineParam::shaperEnable, "set_engine_shaperEnable"},
    {AgentEngineParam::hostFairTcpAccSessNum, "set_engine_hostFairTcpAccSessNum"},
    {AgentEngineParam::pcapEnable, "set_engine_pcapEnable"},
    {AgentEngineParam::hostFairEnable, "set_engine_hostFairEnable"},
    {AgentEngineParam::wanInKbps, "set_engine_wanInKbps"},
    {AgentEngineParam::wanInBurstBytes, "set_engine_wanInBurstBytes"},
    {AgentEngineParam::hostFairUdpSessNum, "set_engine_hostFairUdpSessNum"},
    {AgentEngineParam::cmd, "set_engine_cmd"},
    {AgentEngineParam::hostFairTcpActSessNum, "set_engine_hostFairTcpActSessNum"},
    {AgentEngineParam::trackRandomLoss, "set_engine_trackRandomLoss"},
    {AgentEngineParam::maxTxEnable, "set_engine_maxTxEnable"},
    {AgentEngineParam::conservMode, "set_engine_conservMode"},
    {AgentEngineParam::engSysEnable, "set_engine_engSysEnable"},
    {AgentEngineParam::srtt, "set_engine_srtt"},
};

const FunctionRow *FindRow(uint8_t module, uint16_t function) {
    for (const FunctionRow &row : kFunctions) {
        if (row.module == module && row.function == function) {
            return &row;
        }
    }
    return nullptr;
}

template <typename T>
T Load(std::span<const uint8_t> rec, size_t offset) {
    T v;
    std::memcpy(&v, rec.data() + offset, sizeof v);
    return v;
}

// The key of a record (set and delete records of a kind put their key fields
// at the same places). Called only with a payload of the function's size.
SimKey KeyOf(SimKind kind, uint16_t function, std::span<const uint8_t> rec) {
    SimKeyBuilder key;
    switch (kind) {
    case SimKind::LinkIp:
        // Set: type, SiteIpId, SiteId, VpnId; delete: type, wan id, client id,
        // VPN id; the same bytes.
        key.U8(rec[0]).U8(rec[1]).U32(Load<uint32_t>(rec, 8)).U32(Load<uint32_t>(rec, 12));
        break;
    case SimKind::Link:
        key.U32(Load<uint32_t>(rec, offsetof(AgentLinkConf, netId)))
            .U32(Load<uint32_t>(rec, offsetof(AgentLinkConf, linkIdWord)) & LINK_ID_MASK);
        break;
    case SimKind::Tunnel:
        key.U32(Load<uint32_t>(rec, offsetof(AgentConnConf, labelVniNetId)));
        break;
    case SimKind::GlobalArg:
        key.U16(Load<uint16_t>(rec, offsetof(AgentGlobalArgConf, type)));
        break;
    case SimKind::Rule:
        key.U8(static_cast<uint8_t>(function >> 8))
            .U8(rec[offsetof(AgentRuleBase, zone)])
            .U32(Load<uint32_t>(rec, offsetof(AgentRuleBase, id)));
        break;
    case SimKind::Ratelimit:
        key.U32(Load<uint32_t>(rec, offsetof(AgentRatelimitConf, rateLimitId)));
        break;
    case SimKind::AcsName:
        key.Text(rec.data() + offsetof(AgentAcsNameConf, name), ACSNAME_NAME_LEN);
        break;
    case SimKind::Engine:
        key.U8(rec[offsetof(AgentEngineParamConf, paramCode)]);
        break;
    case SimKind::Shaper:
        key.U8(rec[offsetof(AgentShaperConf, shaperId)]);
        break;
    }
    return key.Take();
}

// Rules, engine parameters and global arguments are never persistent.
bool IsPersistent(SimKind kind, std::span<const uint8_t> rec) {
    switch (kind) {
    case SimKind::LinkIp:
        return (rec[offsetof(AgentLinkIpConf, flags)] & LINKIP_FLAG_PERSISTENT) != 0;
    case SimKind::Link:
        return (rec[offsetof(AgentLinkConf, flags)] & LINK_FLAG_PERSISTENT) != 0;
    case SimKind::Tunnel:
        return (Load<uint16_t>(rec, offsetof(AgentConnConf, flags)) & OV_CONN_FLAG_PERSISTENT) != 0;
    case SimKind::Ratelimit:
        return (Load<uint16_t>(rec, offsetof(AgentRatelimitConf, flags)) &
                RATELIMIT_FLAG_PERSISTENT) != 0;
    case SimKind::AcsName:
        return (rec[offsetof(AgentAcsNameConf, flags)] & ACSNAME_FLAG_PERSISTENT) != 0;
    case SimKind::Shaper:
        return (rec[offsetof(AgentShaperConf, flags)] & OV_SHAPER_PERSISTENT_MASK) != 0;
    case SimKind::GlobalArg:
    case SimKind::Rule:
    case SimKind::Engine:
        return false;
    }
    return false;
}

int32_t Set(SimContext &ctx, const FunctionRow &row, std::span<const uint8_t> rec, SimResult *out) {
    SimKey key = KeyOf(row.kind, row.function, rec);
    const SimRecord *old = ctx.store.Find(row.kind, key);
    // The table reply counts shapers in one byte: a 256th would not fit.
    if (old == nullptr && row.kind == SimKind::Shaper &&
        ctx.store.Table(SimKind::Shaper).size() >= SIM_SHAPER_TABLE_MAX) {
        return -OV_EINVAL;
    }
    out->persistentChanged =
        IsPersistent(row.kind, rec) || (old != nullptr && IsPersistent(row.kind, old->bytes));
    ctx.store.Put(row.kind, key, SimRecord{row.module, row.function, {rec.begin(), rec.end()}});
    return 0;
}

int32_t Delete(SimContext &ctx, const FunctionRow &row, std::span<const uint8_t> rec,
               SimResult *out) {
    SimKey key = KeyOf(row.kind, row.function, rec);
    const SimRecord *old = ctx.store.Find(row.kind, key);
    if (old == nullptr) {
        return -OV_ENOENT;
    }
    out->persistentChanged = IsPersistent(row.kind, old->bytes);
    ctx.store.Erase(row.kind, key);
    return 0;
}

int32_t GetOne(SimContext &ctx, const FunctionRow &row, std::span<const uint8_t> rec,
               SimResult *out) {
    const SimRecord *found = ctx.store.Find(row.kind, KeyOf(row.kind, row.function, rec));
    if (found == nullptr) {
        return -OV_ENOENT;
    }
    out->reply = found->bytes;
    return 0;
}

int32_t GetTable(SimContext &ctx, const FunctionRow &row, SimResult *out) {
    const SimTable &table = ctx.store.Table(row.kind);
    // A 4-byte header, its first byte the count (never above 255, see Set).
    out->reply.assign(4, 0);
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
    const FunctionRow *row = FindRow(module, function);
    if (row == nullptr) {
        return -OV_ENOSYS;
    }
    if (payload.size() != row->size) {
        return -OV_EINVAL;
    }
    switch (row->op) {
    case Op::Set:
        return Set(ctx, *row, payload, out);
    case Op::Delete:
        return Delete(ctx, *row, payload, out);
    case Op::GetOne:
        return GetOne(ctx, *row, payload, out);
    case Op::GetTable:
        return GetTable(ctx, *row, out);
    case Op::GetSaCluster:
        out->reply = SimSaClusterReply(ctx.sa);
        return 0;
    }
    return -OV_ENOSYS;
}

using ModuleHandler = int32_t (*)(SimContext &, uint8_t, uint16_t, std::span<const uint8_t>,
                                  SimResult *);

constexpr std::array<ModuleHandler, IMC_MODULE_MAX> kModuleSlots = [] {
    std::array<ModuleHandler, IMC_MODULE_MAX> slots{};
    for (const FunctionRow &row : kFunctions) {
        slots[row.module] = HandleModule;
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
    const FunctionRow *row = FindRow(module, function);
    if (row == nullptr) {
        return nullptr;
    }
    if (row->command != nullptr) {
        return row->command;
    }
    if (payload.size() != row->size) {
        return nullptr;
    }
    uint8_t code = payload[offsetof(AgentEngineParamConf, paramCode)];
    for (const EngineName &name : kEngineNames) {
        if (static_cast<uint8_t>(name.code) == code) {
            return name.command;
        }
    }
    return nullptr;
}

json_object *SimDecodeRequest(uint8_t module, uint16_t function, std::span<const uint8_t> payload) {
    const FunctionRow *row = FindRow(module, function);
    if (row == nullptr || row->decode == nullptr || payload.size() != row->size) {
        return nullptr;
    }
    return row->decode(payload.data(), payload.size());
}

std::vector<const SimRecord *> SimPersistentRecords(const SimStore &store) {
    std::vector<const SimRecord *> out;
    for (size_t k = 0; k < SIM_KIND_COUNT; ++k) {
        auto kind = static_cast<SimKind>(k);
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
    const FunctionRow *row = FindRow(module, function);
    if (row == nullptr || row->op != Op::Set || payload.size() != row->size ||
        !IsPersistent(row->kind, payload)) {
        return -OV_EINVAL;
    }
    SimResult ignored;
    return Set(ctx, *row, payload, &ignored);
}

std::vector<uint8_t> SimSaClusterReply(const SimSaCluster &sa) {
    std::vector<uint8_t> out(SIM_SA_CLUSTER_LEN, 0);
    std::memcpy(out.data() + 0, &sa.role, sizeof sa.role);
    out[4] = sa.calQueueLen;
    out[5] = sa.localLanId;
    std::memcpy(out.data() + 6, &sa.localPort, sizeof sa.localPort);
    std::memcpy(out.data() + 8, &sa.masterPort, sizeof sa.masterPort);
    std::memcpy(out.data() + 12, &sa.masterIp, sizeof sa.masterIp);
    std::memcpy(out.data() + 16, &sa.masterCpeId, sizeof sa.masterCpeId);
    return out;
}
