// The record kinds' table: sizes, converters, decoders, store keys and
// persistent flags, each tied to the record's struct.
#include "agentconf/records.h"

#include "agentconf/acsname.h"
#include "agentconf/acsname_entries.h"
#include "agentconf/conn.h"
#include "agentconf/engine.h"
#include "agentconf/globalarg.h"
#include "agentconf/link.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"

#include <cstring>
#include <iterator>

namespace {

template <typename Conf, int32_t (*Convert)(Conf *, const char *)>
int32_t ConvertAs(void *rec, const char *json) {
    return Convert(static_cast<Conf *>(rec), json);
}

using T = OV_KeyField::Type;

constexpr OV_KeyField U(size_t offset, size_t size, uint32_t mask = 0xFFFFFFFFu) {
    return {T::Uint, static_cast<uint16_t>(offset), static_cast<uint16_t>(size), mask};
}

template <typename Conf>
constexpr uint32_t SizeOf = static_cast<uint32_t>(sizeof(Conf));

// Indexed by RecordKind. Set and delete records of a kind put their key
// fields at the same places, so one key serves both.
constexpr OV_RecordSpec kRecords[RECORD_KIND_COUNT] = {
    {RecordKind::LinkIp,
     "linkIp",
     SizeOf<AgentLinkIpConf>,
     ConvertAs<AgentLinkIpConf, OV_AgentLinkIpJsonStrToConf>,
     nullptr,
     OV_AgentLinkIpRecordToJson,
     // Set: type, SiteIpId, SiteId, VpnId; delete: type, wan id, client id, VPN id.
     {U(0, 1), U(1, 1), U(8, 4), U(12, 4)},
     4,
     offsetof(AgentLinkIpConf, flags),
     1,
     LINKIP_FLAG_PERSISTENT},
    {RecordKind::Link,
     "link",
     SizeOf<AgentLinkConf>,
     ConvertAs<AgentLinkConf, OV_AgentLinkJsonStrToConf>,
     nullptr,
     OV_AgentLinkRecordToJson,
     {U(offsetof(AgentLinkConf, netId), 4),
      U(offsetof(AgentLinkConf, linkIdWord), 4, LINK_ID_MASK)},
     2,
     offsetof(AgentLinkConf, flags),
     1,
     LINK_FLAG_PERSISTENT},
    {RecordKind::Conn,
     "tunnel",
     SizeOf<AgentConnConf>,
     ConvertAs<AgentConnConf, OV_AgentConnJsonStrToConf>,
     nullptr,
     OV_AgentConnRecordToJson,
     {U(offsetof(AgentConnConf, labelVniNetId), 4)},
     1,
     offsetof(AgentConnConf, flags),
     2,
     OV_CONN_FLAG_PERSISTENT},
    {RecordKind::GlobalArg,
     "globalArg",
     SizeOf<AgentGlobalArgConf>,
     ConvertAs<AgentGlobalArgConf, OV_AgentDpGlobalArgJsonStrToConf>,
     nullptr,
     OV_AgentGlobalArgRecordToJson,
     {U(offsetof(AgentGlobalArgConf, type), 2)},
     1,
     0,
     0,
     0},
    {RecordKind::Rule,
     "rule",
     SizeOf<AgentRuleConf>,
     ConvertAs<AgentRuleConf, OV_AgentRuleJsonStrToConf>,
     nullptr,
     OV_AgentRuleRecordToJson,
     {{T::FunctionHigh, 0, 1, 0xFF},
      U(offsetof(AgentRuleBase, zone), 1),
      U(offsetof(AgentRuleBase, id), 4)},
     3,
     0,
     0,
     0},
    {RecordKind::Ratelimit,
     "ratelimit",
     SizeOf<AgentRatelimitConf>,
     ConvertAs<AgentRatelimitConf, OV_AgentRatelimitJsonStrToConf>,
     nullptr,
     OV_AgentRatelimitRecordToJson,
     {U(offsetof(AgentRatelimitConf, rateLimitId), 4)},
     1,
     offsetof(AgentRatelimitConf, flags),
     2,
     RATELIMIT_FLAG_PERSISTENT},
    {RecordKind::AcsName,
     "acsname",
     SizeOf<AgentAcsNameConf>,
     ConvertAs<AgentAcsNameConf, OV_AgentAcsNameJsonStrToConf>,
     nullptr,
     OV_AgentAcsNameRecordToJson,
     {{T::Text, offsetof(AgentAcsNameConf, name), ACSNAME_NAME_LEN, 0}},
     1,
     offsetof(AgentAcsNameConf, flags),
     1,
     ACSNAME_FLAG_PERSISTENT},
    {RecordKind::Engine,
     "engine",
     SizeOf<AgentEngineParamConf>,
     nullptr,
     nullptr,
     OV_AgentEngineParamRecordToJson,
     {U(offsetof(AgentEngineParamConf, paramCode), 1)},
     1,
     0,
     0,
     0},
    {RecordKind::Shaper,
     "shaper",
     SizeOf<AgentShaperConf>,
     ConvertAs<AgentShaperConf, OV_AgentShaperJsonStrToConf>,
     nullptr,
     OV_AgentShaperRecordToJson,
     {U(offsetof(AgentShaperConf, shaperId), 1)},
     1,
     offsetof(AgentShaperConf, flags),
     1,
     OV_SHAPER_PERSISTENT_MASK},
    {RecordKind::SaCluster,
     "saCluster",
     SizeOf<AgentSaClusterInfo>,
     nullptr,
     nullptr,
     nullptr,
     {},
     0,
     0,
     0,
     0},
};

constexpr bool IndexedByKind() {
    for (size_t i = 0; i < RECORD_KIND_COUNT; ++i) {
        if (static_cast<size_t>(kRecords[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(IndexedByKind());

// Every key and flag field lies inside its record.
constexpr bool FieldsInside() {
    for (const OV_RecordSpec &r : kRecords) {
        for (size_t i = 0; i < r.keyFields; ++i) {
            if (r.key[i].type != T::FunctionHigh && r.key[i].offset + r.key[i].size > r.size) {
                return false;
            }
        }
        if (r.flagMask != 0 && r.flagOffset + r.flagSize > r.size) {
            return false;
        }
    }
    return true;
}
static_assert(FieldsInside());

// The decoders of the entry requests, in kEntryRequests order.
constexpr OV_RecordDecoder kEntryDecoders[] = {OV_AgentAcsAddrRequestToJson,
                                               OV_AgentAcsDomainRequestToJson};
static_assert(std::size(kEntryDecoders) == std::size(kEntryRequests));

uint64_t LoadLe(const uint8_t *p, size_t n) {
    uint64_t v = 0;
    for (size_t i = n; i > 0; --i) {
        v = (v << 8) | p[i - 1];
    }
    return v;
}

} // namespace

const OV_RecordSpec &OV_RecordSpecOf(RecordKind kind) {
    return kRecords[static_cast<size_t>(kind)];
}

const CommandSpec *OV_CommandOfRequest(uint8_t module, uint16_t function,
                                       std::span<const uint8_t> payload) {
    if (const EntryRequestSpec *e = OV_EntryRequestOf(module, function); e != nullptr) {
        for (const CommandSpec &c : kCommands) {
            if (c.kind == e->kind && c.op == CmdOp::Set) {
                return &c;
            }
        }
    }
    for (const CommandSpec &c : kCommands) {
        if (c.Module() != module || c.function != function) {
            continue;
        }
        if (c.kind != RecordKind::Engine) {
            return &c;
        }
        if (payload.size() != sizeof(AgentEngineParamConf)) {
            return nullptr;
        }
        uint8_t code = payload[offsetof(AgentEngineParamConf, paramCode)];
        for (const CommandSpec &e : kCommands) {
            if (e.kind == RecordKind::Engine && e.id == code) {
                return &e;
            }
        }
        return nullptr;
    }
    return nullptr;
}

uint32_t OV_RequestSize(const CommandSpec &cmd) {
    return cmd.SendsRecord() ? OV_RecordSpecOf(cmd.kind).size : 0;
}

bool OV_RecordIsPersistent(RecordKind kind, std::span<const uint8_t> rec) {
    const OV_RecordSpec &kindInfo = OV_RecordSpecOf(kind);
    if (kindInfo.flagMask == 0 || rec.size() < kindInfo.flagOffset + kindInfo.flagSize) {
        return false;
    }
    return (LoadLe(rec.data() + kindInfo.flagOffset, kindInfo.flagSize) & kindInfo.flagMask) != 0;
}

json_object *OV_AgentRequestToJson(uint8_t module, uint16_t function,
                                   std::span<const uint8_t> payload) {
    if (const EntryRequestSpec *e = OV_EntryRequestOf(module, function); e != nullptr) {
        return kEntryDecoders[e - kEntryRequests](payload.data(), payload.size());
    }
    for (const CommandSpec &c : kCommands) {
        if (c.Module() == module && c.function == function) {
            const OV_RecordSpec &kindInfo = OV_RecordSpecOf(c.kind);
            if (!c.SendsRecord() || kindInfo.decode == nullptr || payload.size() != kindInfo.size) {
                return nullptr;
            }
            return kindInfo.decode(payload.data(), payload.size());
        }
    }
    return nullptr;
}
