// The configuration protocol in one place: every command word, the module and
// function it addresses, what it does and to which kind of record. pdtool's
// command table, its handlers and get printers, the simulator and the tests
// read their numbers from here; nothing else writes them down.
//
// This header is constant data only (no code is linked in for it). The
// per-kind facts that need code (converter, decoder, store key, persistent
// flag) are in agentconf/records.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The kinds of record the agent takes, in the order the agent's store (and
/// the simulator's state file) lists them.
enum class RecordKind : uint8_t {
    LinkIp,
    Link,
    Conn, ///< a tunnel
    GlobalArg,
    Rule,
    Ratelimit,
    AcsName,
    Engine,
    Shaper,
    SaCluster, ///< the SA cluster state, a reply only
};
constexpr size_t RECORD_KIND_COUNT = 10;

/// What a command does with its record.
enum class CmdOp : uint8_t {
    Set,
    Delete,
    GetOne,       ///< sends a record holding the key, receives the stored one
    GetTable,     ///< sends nothing, receives every stored record of the kind
    GetSaCluster, ///< sends nothing, receives the SA cluster state
};

/// The agent's module of each record kind.
constexpr uint8_t OV_ModuleOf(RecordKind kind) {
    switch (kind) {
    case RecordKind::LinkIp:
    case RecordKind::Link:
    case RecordKind::Conn:
    case RecordKind::GlobalArg:
        return 3;
    case RecordKind::Rule:
        return 4;
    case RecordKind::AcsName:
        return 6;
    case RecordKind::Engine:
        return 8;
    case RecordKind::Ratelimit:
        return 10;
    case RecordKind::Shaper:
    case RecordKind::SaCluster:
        return 15;
    }
    return 0;
}

/// One command word.
struct CommandSpec {
    const char *word;
    RecordKind kind;
    CmdOp op;
    uint16_t function; ///< on the wire
    /// What pdtool's table hands the handler: the function, except for the
    /// engine rows, which all use function 0 and pass their parameter code.
    uint16_t id;

    constexpr uint8_t Module() const { return OV_ModuleOf(kind); }
    /// Whether the request carries the record (gets of a table or of the SA
    /// cluster send no payload).
    constexpr bool SendsRecord() const {
        return op != CmdOp::GetTable && op != CmdOp::GetSaCluster;
    }
};

/// Every command, in pdtool's table order. The order matters: a word runs the
/// first row whose name it begins with, so "set_dns" (row 7) also takes
/// "set_dns_proxy" words (kept on purpose).
inline constexpr CommandSpec kCommands[] = {
    // Rules: the function is the rule table << 8 | the operation (0 set, 2 delete).
    {"set_policy", RecordKind::Rule, CmdOp::Set, 0x0000, 0x0000},
    {"del_policy", RecordKind::Rule, CmdOp::Delete, 0x0002, 0x0002},
    {"set_snat", RecordKind::Rule, CmdOp::Set, 0x0100, 0x0100},
    {"del_snat", RecordKind::Rule, CmdOp::Delete, 0x0102, 0x0102},
    {"set_dnat", RecordKind::Rule, CmdOp::Set, 0x0200, 0x0200},
    {"del_dnat", RecordKind::Rule, CmdOp::Delete, 0x0202, 0x0202},
    {"set_dns", RecordKind::Rule, CmdOp::Set, 0x0300, 0x0300},
    {"del_dns", RecordKind::Rule, CmdOp::Delete, 0x0302, 0x0302},
    {"set_dns_proxy", RecordKind::Rule, CmdOp::Set, 0x0400, 0x0400},
    {"del_dns_proxy", RecordKind::Rule, CmdOp::Delete, 0x0402, 0x0402},
    {"set_cpe_ip", RecordKind::LinkIp, CmdOp::Set, 0x0005, 0x0005},
    {"del_cpe_ip", RecordKind::LinkIp, CmdOp::Delete, 0x0006, 0x0006},
    {"set_pop_ip", RecordKind::LinkIp, CmdOp::Set, 0x0009, 0x0009},
    {"del_pop_ip", RecordKind::LinkIp, CmdOp::Delete, 0x000a, 0x000a},
    {"set_link", RecordKind::Link, CmdOp::Set, 0x000d, 0x000d},
    {"del_link", RecordKind::Link, CmdOp::Delete, 0x000e, 0x000e},
    {"set_tunnel", RecordKind::Conn, CmdOp::Set, 0x0012, 0x0012},
    {"del_tunnel", RecordKind::Conn, CmdOp::Delete, 0x0013, 0x0013},
    {"set_conn_cmd", RecordKind::GlobalArg, CmdOp::Set, 0x001a, 0x001a},
    {"set_shaper_conf", RecordKind::Shaper, CmdOp::Set, 0x0001, 0x0001},
    {"del_shaper_conf", RecordKind::Shaper, CmdOp::Delete, 0x0002, 0x0002},
    {"get_shaper_conf", RecordKind::Shaper, CmdOp::GetOne, 0x0003, 0x0003},
    {"get_shaper_tbl", RecordKind::Shaper, CmdOp::GetTable, 0x0004, 0x0004},
    {"get_sa_cluster", RecordKind::SaCluster, CmdOp::GetSaCluster, 0x0007, 0x0007},
    {"set_ratelimit", RecordKind::Ratelimit, CmdOp::Set, 0x0001, 0x0001},
    {"del_ratelimit", RecordKind::Ratelimit, CmdOp::Delete, 0x0002, 0x0002},
    {"set_acsname", RecordKind::AcsName, CmdOp::Set, 0x0000, 0x0000},
    {"del_acsname", RecordKind::AcsName, CmdOp::Delete, 0x0001, 0x0001},
    // Engine parameters: one function, the id is the record's parameter code.
    {"set_engine_pcapEnable", RecordKind::Engine, CmdOp::Set, 0, 0x000a},
    {"set_engine_wanKbps", RecordKind::Engine, CmdOp::Set, 0, 0x0001},
    {"set_engine_wanBurstBytes", RecordKind::Engine, CmdOp::Set, 0, 0x0002},
    {"set_engine_tcpAccEnable", RecordKind::Engine, CmdOp::Set, 0, 0x0003},
    {"set_engine_subnetAccEnable", RecordKind::Engine, CmdOp::Set, 0, 0x0005},
    {"set_engine_shaperEnable", RecordKind::Engine, CmdOp::Set, 0, 0x0006},
    {"set_engine_hostFairTcpAccSessNum", RecordKind::Engine, CmdOp::Set, 0, 0x0009},
    {"set_engine_hostFairEnable", RecordKind::Engine, CmdOp::Set, 0, 0x000b},
    {"set_engine_wanInKbps", RecordKind::Engine, CmdOp::Set, 0, 0x000c},
    {"set_engine_wanInBurstBytes", RecordKind::Engine, CmdOp::Set, 0, 0x000d},
    {"set_engine_hostFairUdpSessNum", RecordKind::Engine, CmdOp::Set, 0, 0x000e},
    {"set_engine_cmd", RecordKind::Engine, CmdOp::Set, 0, 0x000f},
    {"set_engine_hostFairTcpActSessNum", RecordKind::Engine, CmdOp::Set, 0, 0x0010},
    {"set_engine_trackRandomLoss", RecordKind::Engine, CmdOp::Set, 0, 0x0011},
    {"set_engine_maxTxEnable", RecordKind::Engine, CmdOp::Set, 0, 0x0012},
    {"set_engine_conservMode", RecordKind::Engine, CmdOp::Set, 0, 0x0013},
    {"set_engine_engSysEnable", RecordKind::Engine, CmdOp::Set, 0, 0x0014},
    {"set_engine_srtt", RecordKind::Engine, CmdOp::Set, 0, 0x0015},
};
constexpr size_t OV_COMMAND_COUNT = sizeof kCommands / sizeof kCommands[0];
static_assert(OV_COMMAND_COUNT == 46);

/// Requests a set command sends after its record, with functions no command
/// of the module uses: set_acsname follows an accepted record with the access
/// name's address entries, then its domain entries (their layout is in
/// agentconf/acsname_entries.h).
struct EntryRequestSpec {
    RecordKind kind; ///< the kind whose set command sends them
    uint16_t function;
};
inline constexpr EntryRequestSpec kEntryRequests[] = {
    {RecordKind::AcsName, 0x0002}, // address entries
    {RecordKind::AcsName, 0x0003}, // domain entries
};

/// The entry request a module and function name, or nullptr.
constexpr const EntryRequestSpec *OV_EntryRequestOf(uint8_t module, uint16_t function) {
    for (const EntryRequestSpec &e : kEntryRequests) {
        if (OV_ModuleOf(e.kind) == module && e.function == function) {
            return &e;
        }
    }
    return nullptr;
}

// No command uses an entry request's module and function (compared by
// value: GCC's sanitizer build does not fold pointer tests).
static_assert([] {
    for (const CommandSpec &c : kCommands) {
        for (const EntryRequestSpec &e : kEntryRequests) {
            if (c.Module() == OV_ModuleOf(e.kind) && c.function == e.function) {
                return false;
            }
        }
    }
    return true;
}());

namespace ovproto {
// Called only when a compile-time lookup fails: not constexpr, so the
// failing lookup does not compile.
void NoSuchCommand();
} // namespace ovproto

/// The command named exactly word, resolved at compile time.
consteval const CommandSpec &OV_Command(std::string_view word) {
    for (const CommandSpec &c : kCommands) {
        if (word == c.word) {
            return c;
        }
    }
    ovproto::NoSuchCommand();
    return kCommands[0];
}

/// The function of the commands that do op to kind, resolved at compile time;
/// does not compile when there is no such command or they differ in function.
consteval uint16_t OV_FunctionOf(RecordKind kind, CmdOp op) {
    // Indexes, not pointers: GCC's sanitizer build does not fold pointer tests.
    size_t found = OV_COMMAND_COUNT;
    for (size_t i = 0; i < OV_COMMAND_COUNT; ++i) {
        if (kCommands[i].kind == kind && kCommands[i].op == op) {
            if (found != OV_COMMAND_COUNT && kCommands[found].function != kCommands[i].function) {
                ovproto::NoSuchCommand();
            }
            found = i;
        }
    }
    if (found == OV_COMMAND_COUNT) {
        ovproto::NoSuchCommand();
        return 0;
    }
    return kCommands[found].function;
}

/// The row a word runs: the first whose name begins the word (a
/// case-sensitive prefix match), or nullptr.
constexpr const CommandSpec *OV_CommandForWord(std::string_view word) {
    for (const CommandSpec &c : kCommands) {
        if (word.starts_with(c.word)) {
            return &c;
        }
    }
    return nullptr;
}

// The kept prefix quirk, stated where the order is written.
static_assert(std::string_view(OV_CommandForWord("set_dns_proxy/x")->word) == "set_dns");
static_assert(std::string_view(OV_CommandForWord("del_dns_proxy/x")->word) == "del_dns");
