// The field layouts of the records, from the record structs.
#include "agentconf/record_fields.h"

#include "agentconf/acsname.h"
#include "agentconf/conn.h"
#include "agentconf/engine.h"
#include "agentconf/globalarg.h"
#include "agentconf/link.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"

namespace {

template <typename S>
constexpr S *kNoRecord = nullptr; // for sizeof of a member path only

// A member path of record struct S: its name, offset and size from S itself.
#define OV_FIELD_OF(S, path, type, elem)                                                           \
    OV_RecordField {                                                                               \
#path, static_cast < uint32_t>(offsetof(S, path)),                                         \
            static_cast < uint32_t>(sizeof(kNoRecord <S>->path)), OV_FieldType::type, elem         \
    }
#define NUM(S, path) OV_FIELD_OF(S, path, Unsigned, sizeof(kNoRecord<S>->path))
#define SIGNED(S, path) OV_FIELD_OF(S, path, Signed, sizeof(kNoRecord<S>->path))
#define FLAGS(S, path) OV_FIELD_OF(S, path, Flags, sizeof(kNoRecord<S>->path))
#define TEXT(S, path) OV_FIELD_OF(S, path, Text, sizeof(kNoRecord<S>->path))
#define BYTES(S, path) OV_FIELD_OF(S, path, Bytes, sizeof(kNoRecord<S>->path))
#define TEXTS(S, path) OV_FIELD_OF(S, path, TextList, sizeof(kNoRecord<S>->path[0]))
#define ARRAY(S, path) OV_FIELD_OF(S, path, Array, sizeof(kNoRecord<S>->path[0]))
// An array of pairs of numbers (port ranges), shown as the numbers in order.
#define ARRAY_OF(S, path, elem) OV_FIELD_OF(S, path, Array, elem)

using Rule = AgentRuleConf;
constexpr OV_RecordField kRule[] = {
    NUM(Rule, base.reserved0),
    NUM(Rule, base.table),
    NUM(Rule, base.zone),
    NUM(Rule, base.reserved3),
    FLAGS(Rule, base.flags),
    NUM(Rule, base.reserved6),
    NUM(Rule, base.ruleVer),
    NUM(Rule, base.vpnId),
    NUM(Rule, base.id),
    NUM(Rule, base.reserved20),
    NUM(Rule, base.customerId),
    NUM(Rule, base.reserved28),
    NUM(Rule, base.reserved32),
    NUM(Rule, match.srcIpNum),
    NUM(Rule, match.dstIpNum),
    NUM(Rule, match.srcPortNum),
    NUM(Rule, match.dstPortNum),
    NUM(Rule, match.ethTypeNum),
    NUM(Rule, match.protoNum),
    NUM(Rule, match.dscpNum),
    NUM(Rule, match.transIdNum),
    NUM(Rule, match.reserved10),
    NUM(Rule, match.inPortNum),
    NUM(Rule, match.outPortNum),
    FLAGS(Rule, match.flags),
    NUM(Rule, match.reserved14),
    NUM(Rule, match.inVpnId),
    NUM(Rule, match.inPolicyId),
    NUM(Rule, match.dstCustomerId),
    NUM(Rule, match.dstClientId),
    BYTES(Rule, match.src),
    BYTES(Rule, match.dst),
    TEXT(Rule, match.acsName),
    ARRAY_OF(Rule, match.srcPort, sizeof(uint16_t)),
    ARRAY_OF(Rule, match.dstPort, sizeof(uint16_t)),
    ARRAY(Rule, match.proto),
    ARRAY(Rule, match.dscp),
    ARRAY(Rule, match.ethType),
    ARRAY(Rule, match.transId),
    BYTES(Rule, match.inPort),
    BYTES(Rule, match.outPort),
    FLAGS(Rule, actions.flagsA),
    FLAGS(Rule, actions.flagsB),
    NUM(Rule, actions.outputNum),
    NUM(Rule, actions.outputStrategy),
    NUM(Rule, actions.setDscpValue),
    BYTES(Rule, actions.reserved5),
    NUM(Rule, actions.setVpnId),
    NUM(Rule, actions.setPolicyId),
    NUM(Rule, actions.inboundRateLimitId),
    NUM(Rule, actions.outboundRateLimitId),
    BYTES(Rule, actions.outputs),
    NUM(Rule, actions.natMode),
    NUM(Rule, actions.natIpMode),
    BYTES(Rule, actions.reserved542),
    BYTES(Rule, actions.natIps),
    NUM(Rule, actions.natIpNum),
    NUM(Rule, actions.natIpType),
    NUM(Rule, actions.natPortMin),
    NUM(Rule, actions.natPortMax),
    BYTES(Rule, actions.reserved2854),
};

using Ratelimit = AgentRatelimitConf;
constexpr OV_RecordField kRatelimit[] = {
    NUM(Ratelimit, rateLimitId),
    NUM(Ratelimit, rateLimitObjId),
    NUM(Ratelimit, customerId),
    NUM(Ratelimit, bucketRate),
    SIGNED(Ratelimit, cbs),
    NUM(Ratelimit, type),
    NUM(Ratelimit, reserved1),
    NUM(Ratelimit, perIp[0].bucketRate),
    NUM(Ratelimit, perIp[0].reserved),
    SIGNED(Ratelimit, perIp[0].cbs),
    NUM(Ratelimit, perIp[1].bucketRate),
    NUM(Ratelimit, perIp[1].reserved),
    SIGNED(Ratelimit, perIp[1].cbs),
    FLAGS(Ratelimit, flags),
    BYTES(Ratelimit, reserved2),
};

using Conn = AgentConnConf;
// NOLINTNEXTLINE(bugprone-macro-parentheses): a member path, not an expression
#define IP_SLOT(slot) BYTES(Conn, slot.addr), NUM(Conn, slot.family), BYTES(Conn, slot.reserved)
constexpr OV_RecordField kConn[] = {
    NUM(Conn, vpnId),
    FLAGS(Conn, labelVniNetId),
    NUM(Conn, mode),
    NUM(Conn, wanId),
    NUM(Conn, lanId),
    IP_SLOT(localIp),
    IP_SLOT(peerIp),
    IP_SLOT(localIp6),
    IP_SLOT(peerIp6),
    NUM(Conn, customerId),
    NUM(Conn, peerHostId),
    NUM(Conn, portSeed),
    NUM(Conn, protoVersion),
    FLAGS(Conn, flags),
    NUM(Conn, sessionId),
    ARRAY(Conn, path),
    NUM(Conn, linkNum),
    NUM(Conn, keepaliveInterval),
    NUM(Conn, keepaliveTimeout),
    NUM(Conn, tcpTunNum),
    NUM(Conn, udpTunNum),
    NUM(Conn, tos),
    FLAGS(Conn, dfFlags),
    NUM(Conn, reserved147),
    NUM(Conn, cryptoSuite),
    NUM(Conn, encryptAlgo),
    NUM(Conn, cipherKeyLen),
    NUM(Conn, hmacKeyLen),
    BYTES(Conn, reserved158),
    TEXT(Conn, peerUid),
    BYTES(Conn, cipherKey),
    BYTES(Conn, hmacKey),
    NUM(Conn, keyTimestamp),
    BYTES(Conn, reserved520),
    NUM(Conn, initRtt),
    NUM(Conn, cfgMtu),
    BYTES(Conn, reserved526),
    NUM(Conn, slaCfg.connSRttLow),
    NUM(Conn, slaCfg.connSRttHigh),
    NUM(Conn, slaCfg.connOutBWLow),
    NUM(Conn, slaCfg.connOutBWHigh),
    NUM(Conn, slaCfg.connJitterLow),
    NUM(Conn, slaCfg.connJitterHigh),
    NUM(Conn, slaCfg.connLossRateLow),
    NUM(Conn, slaCfg.connLossRateHigh),
    SIGNED(Conn, timeStamp),
    ARRAY(Conn, ratelimitInbound),
    ARRAY(Conn, ratelimitOutbound),
    NUM(Conn, buddyConnId),
    NUM(Conn, minTxKBps),
    BYTES(Conn, reserved612),
};
#undef IP_SLOT

using LinkIp = AgentLinkIpConf;
constexpr OV_RecordField kLinkIp[] = {
    NUM(LinkIp, type),     NUM(LinkIp, siteIpId),   FLAGS(LinkIp, flags),
    NUM(LinkIp, reserved), NUM(LinkIp, customerId), NUM(LinkIp, siteId),
    NUM(LinkIp, vpnId),    FLAGS(LinkIp, ipAddr),   BYTES(LinkIp, ip6Addr),
};

using Link = AgentLinkConf;
constexpr OV_RecordField kLink[] = {
    NUM(Link, netId),
    NUM(Link, linkIdWord),
    FLAGS(Link, flags),
    BYTES(Link, reserved1),
    NUM(Link, mode),
    NUM(Link, thresh),
    NUM(Link, protoVersion),
    NUM(Link, wanId),
    NUM(Link, peerSiteIpId),
    NUM(Link, localVpnId),
    NUM(Link, peerVpnId),
    NUM(Link, localSitePort),
    NUM(Link, peerSitePort),
    NUM(Link, peerSiteId),
    NUM(Link, peerCustomerId),
    NUM(Link, keepaliveInterval),
    NUM(Link, keepaliveTimeout),
    BYTES(Link, reserved2),
};

using GlobalArg = AgentGlobalArgConf;
constexpr OV_RecordField kGlobalArg[] = {
    NUM(GlobalArg, type), NUM(GlobalArg, lenth), BYTES(GlobalArg, reserved),
    BYTES(GlobalArg, value), // its form depends on type
};

using Shaper = AgentShaperConf;
// NOLINTBEGIN(bugprone-macro-parentheses): a member path, not an expression
#define BAND_LIMIT(block)                                                                          \
    NUM(Shaper, block.shaperId), NUM(Shaper, block.sharePriority), NUM(Shaper, block.num),         \
        NUM(Shaper, block.reserved), BYTES(Shaper, block.items)
// NOLINTEND(bugprone-macro-parentheses)
constexpr OV_RecordField kShaper[] = {
    NUM(Shaper, shaperId),  FLAGS(Shaper, flags),           NUM(Shaper, sharedNum),
    NUM(Shaper, reserved),  NUM(Shaper, wanKbps),           NUM(Shaper, wanInKbps),
    NUM(Shaper, inBurstMs), NUM(Shaper, outBurstMs),        ARRAY(Shaper, bandDist),
    BAND_LIMIT(bandLimit),  BAND_LIMIT(guaranteeBandLimit),
};
#undef BAND_LIMIT

using AcsName = AgentAcsNameConf;
constexpr OV_RecordField kAcsName[] = {
    NUM(AcsName, id),
    TEXT(AcsName, name),
    FLAGS(AcsName, flags),
    NUM(AcsName, ipSetNum),
    NUM(AcsName, domainSetNum),
    NUM(AcsName, reserved1),
    NUM(AcsName, version),
    NUM(AcsName, addrNum),
    NUM(AcsName, domainNum),
    NUM(AcsName, addrRequests),
    NUM(AcsName, domainRequests),
    TEXTS(AcsName, ipSets),
    TEXTS(AcsName, domainSets),
    NUM(AcsName, probe.enable),
    NUM(AcsName, probe.protocol),
    NUM(AcsName, probe.port),
    NUM(AcsName, probe.interval),
    NUM(AcsName, probe.timeout),
    NUM(AcsName, probe.retries),
    NUM(AcsName, probe.ipType),
    BYTES(AcsName, probe.reserved),
    BYTES(AcsName, probe.addr),
    TEXT(AcsName, probe.host),
};

using Engine = AgentEngineParamConf;
constexpr OV_RecordField kEngine[] = {
    NUM(Engine, wanIndex),    BYTES(Engine, reserved1), NUM(Engine, paramCode),
    BYTES(Engine, reserved2), NUM(Engine, value),       BYTES(Engine, reserved3),
};

using SaCluster = AgentSaClusterInfo;
constexpr OV_RecordField kSaCluster[] = {
    SIGNED(SaCluster, role),    NUM(SaCluster, calQueueLen), NUM(SaCluster, localLanId),
    NUM(SaCluster, localPort),  NUM(SaCluster, masterPort),  BYTES(SaCluster, reserved1),
    FLAGS(SaCluster, masterIp), NUM(SaCluster, masterCpeId), BYTES(SaCluster, reserved2),
};

#undef NUM
#undef SIGNED
#undef FLAGS
#undef TEXT
#undef BYTES
#undef TEXTS
#undef ARRAY
#undef ARRAY_OF
#undef OV_FIELD_OF

// Indexed by RecordKind.
constexpr OV_RecordLayout kLayouts[RECORD_KIND_COUNT] = {
    {RecordKind::LinkIp, sizeof(AgentLinkIpConf), kLinkIp},
    {RecordKind::Link, sizeof(AgentLinkConf), kLink},
    {RecordKind::Conn, sizeof(AgentConnConf), kConn},
    {RecordKind::GlobalArg, sizeof(AgentGlobalArgConf), kGlobalArg},
    {RecordKind::Rule, sizeof(AgentRuleConf), kRule},
    {RecordKind::Ratelimit, sizeof(AgentRatelimitConf), kRatelimit},
    {RecordKind::AcsName, sizeof(AgentAcsNameConf), kAcsName},
    {RecordKind::Engine, sizeof(AgentEngineParamConf), kEngine},
    {RecordKind::Shaper, sizeof(AgentShaperConf), kShaper},
    {RecordKind::SaCluster, sizeof(AgentSaClusterInfo), kSaCluster},
};

constexpr bool InKindOrder() {
    for (size_t i = 0; i < RECORD_KIND_COUNT; ++i) {
        if (static_cast<size_t>(kLayouts[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(InKindOrder());

} // namespace

std::span<const OV_RecordLayout> OV_RecordLayouts() {
    return kLayouts;
}

const OV_RecordLayout &OV_RecordLayoutOf(RecordKind kind) {
    return kLayouts[static_cast<size_t>(kind)];
}
