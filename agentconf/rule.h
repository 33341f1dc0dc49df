// The rule record (policy, SNAT, DNAT, DNS and DNS-proxy rules share it) and
// its JSON converters.
#pragma once

#include <json-c/json.h>

#include <bit>
#include <cstddef>
#include <cstdint>

static_assert(std::endian::native == std::endian::little, "records are little-endian");

// ---- Address areas ------------------------------------------------------------------

constexpr size_t AGENT_RULE_ADDR_AREA_LEN = 2304;
constexpr size_t AGENT_RULE_NAME_LEN = 64; ///< set names and the access name, NUL included

/// Address family codes of IpType.
constexpr uint8_t AGENT_IP_TYPE_V4 = 0;
constexpr uint8_t AGENT_IP_TYPE_V6 = 1;

/// An address range. An IPv4 address fills the first 4 bytes of its field as
/// a host-order number (10.1.2.3 is 0x0A010203); IPv6 fills all 16 bytes in
/// network order.
struct AgentIpRange {
    uint8_t ipType;
    uint8_t reserved[3];
    uint8_t lower[16];
    uint8_t upper[16];
};
static_assert(sizeof(AgentIpRange) == 36);
static_assert(offsetof(AgentIpRange, ipType) == 0);
static_assert(offsetof(AgentIpRange, lower) == 4);
static_assert(offsetof(AgentIpRange, upper) == 20);

/// An address with its prefix length.
struct AgentIpPrefix {
    uint8_t addr[16];
    uint8_t ipType;
    uint8_t mask;
    uint8_t reserved[2];
};
static_assert(sizeof(AgentIpPrefix) == 20);
static_assert(offsetof(AgentIpPrefix, addr) == 0);
static_assert(offsetof(AgentIpPrefix, ipType) == 16);
static_assert(offsetof(AgentIpPrefix, mask) == 17);

constexpr size_t AGENT_RULE_MAX_RANGES = 64;
constexpr size_t AGENT_RULE_MAX_PREFIXES = AGENT_RULE_ADDR_AREA_LEN / sizeof(AgentIpPrefix); // 115
constexpr size_t AGENT_RULE_MAX_NAT_IPV4 = AGENT_RULE_ADDR_AREA_LEN / 4;
constexpr size_t AGENT_RULE_MAX_NAT_IPV6 = AGENT_RULE_ADDR_AREA_LEN / 16;

/// One address area holds one of these, chosen by flags (match) or by
/// NatIpMode and IpType (actions). A set name or API type is written over the
/// start of whatever list was read before it.
union AgentRuleAddrArea {
    AgentIpRange ranges[AGENT_RULE_MAX_RANGES];
    AgentIpPrefix prefixes[AGENT_RULE_MAX_PREFIXES];
    char setName[AGENT_RULE_NAME_LEN];
    uint32_t apiType;
    uint32_t ipv4s[AGENT_RULE_MAX_NAT_IPV4];    ///< NAT plain IPv4 list, host order
    uint8_t ipv6s[AGENT_RULE_MAX_NAT_IPV6][16]; ///< NAT plain IPv6 list
    uint8_t raw[AGENT_RULE_ADDR_AREA_LEN];
};
static_assert(sizeof(AgentRuleAddrArea) == AGENT_RULE_ADDR_AREA_LEN);
static_assert(alignof(AgentRuleAddrArea) == 4);

// ---- Base section (40 bytes) ------------------------------------------------------------

constexpr uint16_t AGENT_RULE_DUAL_FLAG = 1u << 0;
constexpr uint16_t AGENT_RULE_INVALID_FLAG = 1u << 1;
constexpr uint16_t AGENT_RULE_EXCLU_FLAG = 1u << 2;
constexpr uint16_t AGENT_RULE_RELATED_FLAG = 1u << 3;
constexpr uint16_t AGENT_RULE_REVAL_FLAG = 1u << 4;
/// L2Flag and L3Flag share this bit on purpose; the later key (L3Flag) wins.
constexpr uint16_t AGENT_RULE_L2L3_FLAG = 1u << 5;
constexpr uint16_t AGENT_RULE_PROBE_FLAG = 1u << 8;
constexpr uint16_t AGENT_RULE_TRANSIT_FLAG = 1u << 10;

struct AgentRuleBase {
    uint8_t reserved0; ///< not set by the converter
    uint8_t table;
    uint8_t zone;
    uint8_t reserved3;
    uint16_t flags; ///< AGENT_RULE_*_FLAG
    uint16_t reserved6;
    uint32_t ruleVer;
    uint32_t vpnId;
    uint32_t id;
    uint32_t reserved20;
    uint32_t customerId;
    uint32_t reserved28;
    uint64_t reserved32; ///< written as zero after a successful base conversion
};
static_assert(sizeof(AgentRuleBase) == 40);
static_assert(offsetof(AgentRuleBase, table) == 1);
static_assert(offsetof(AgentRuleBase, zone) == 2);
static_assert(offsetof(AgentRuleBase, flags) == 4);
static_assert(offsetof(AgentRuleBase, ruleVer) == 8);
static_assert(offsetof(AgentRuleBase, vpnId) == 12);
static_assert(offsetof(AgentRuleBase, id) == 16);
static_assert(offsetof(AgentRuleBase, customerId) == 24);
static_assert(offsetof(AgentRuleBase, reserved32) == 32);

// ---- Match section (14,560 bytes) -------------------------------------------------------

constexpr uint8_t AGENT_MATCH_SRC_IP_SET_FLAG = 1u << 0;
/// Bit 1 also chooses the destination list (range list when set), on purpose.
constexpr uint8_t AGENT_MATCH_DST_IP_SET_FLAG = 1u << 1;
constexpr uint8_t AGENT_MATCH_SRC_IP_RANGE_FLAG = 1u << 2;
constexpr uint8_t AGENT_MATCH_DST_IP_RANGE_FLAG = 1u << 3;
constexpr uint8_t AGENT_MATCH_DST_IP_API_FLAG = 1u << 4;
constexpr uint8_t AGENT_MATCH_ACS_NAME_FLAG = 1u << 5;
constexpr uint8_t AGENT_MATCH_IN_VPN_FLAG = 1u << 6;
constexpr uint8_t AGENT_MATCH_IN_POLICY_FLAG = 1u << 7;

constexpr size_t AGENT_RULE_MAX_PORT_RANGES = 1024;
constexpr size_t AGENT_RULE_MAX_PROTOS = 64;
constexpr size_t AGENT_RULE_MAX_DSCPS = 64;
constexpr size_t AGENT_RULE_MAX_ETH_TYPES = 64;
constexpr size_t AGENT_RULE_MAX_TRANS_IDS = 192;
constexpr size_t AGENT_RULE_MAX_IF_PORTS = 64;

struct AgentPortRange {
    uint16_t lowerPort;
    uint16_t upperPort;
};
static_assert(sizeof(AgentPortRange) == 4);
static_assert(offsetof(AgentPortRange, upperPort) == 2);

/// An input or output interface.
struct AgentIfPort {
    uint8_t type;
    uint8_t reserved[3];
    uint32_t id;
};
static_assert(sizeof(AgentIfPort) == 8);
static_assert(offsetof(AgentIfPort, id) == 4);

struct AgentRuleMatch {
    uint8_t srcIpNum;
    uint8_t dstIpNum;
    uint16_t srcPortNum;
    uint16_t dstPortNum;
    uint8_t ethTypeNum;
    uint8_t protoNum;
    uint8_t dscpNum;
    uint8_t transIdNum;
    uint8_t reserved10;
    uint8_t inPortNum;
    uint8_t outPortNum;
    uint8_t flags; ///< AGENT_MATCH_*_FLAG
    uint16_t reserved14;
    uint32_t inVpnId;
    uint32_t inPolicyId;
    uint32_t dstCustomerId;
    uint32_t dstClientId;
    AgentRuleAddrArea src;
    AgentRuleAddrArea dst;
    char acsName[AGENT_RULE_NAME_LEN];
    AgentPortRange srcPort[AGENT_RULE_MAX_PORT_RANGES];
    AgentPortRange dstPort[AGENT_RULE_MAX_PORT_RANGES];
    uint8_t proto[AGENT_RULE_MAX_PROTOS];
    uint8_t dscp[AGENT_RULE_MAX_DSCPS];
    uint16_t ethType[AGENT_RULE_MAX_ETH_TYPES];
    uint16_t transId[AGENT_RULE_MAX_TRANS_IDS];
    AgentIfPort inPort[AGENT_RULE_MAX_IF_PORTS];
    AgentIfPort outPort[AGENT_RULE_MAX_IF_PORTS];
};
static_assert(sizeof(AgentRuleMatch) == 14560);
static_assert(offsetof(AgentRuleMatch, srcIpNum) == 0);
static_assert(offsetof(AgentRuleMatch, dstIpNum) == 1);
static_assert(offsetof(AgentRuleMatch, srcPortNum) == 2);
static_assert(offsetof(AgentRuleMatch, dstPortNum) == 4);
static_assert(offsetof(AgentRuleMatch, ethTypeNum) == 6);
static_assert(offsetof(AgentRuleMatch, protoNum) == 7);
static_assert(offsetof(AgentRuleMatch, dscpNum) == 8);
static_assert(offsetof(AgentRuleMatch, transIdNum) == 9);
static_assert(offsetof(AgentRuleMatch, inPortNum) == 11);
static_assert(offsetof(AgentRuleMatch, outPortNum) == 12);
static_assert(offsetof(AgentRuleMatch, flags) == 13);
static_assert(offsetof(AgentRuleMatch, inVpnId) == 16);
static_assert(offsetof(AgentRuleMatch, inPolicyId) == 20);
static_assert(offsetof(AgentRuleMatch, dstCustomerId) == 24);
static_assert(offsetof(AgentRuleMatch, dstClientId) == 28);
static_assert(offsetof(AgentRuleMatch, src) == 32);
static_assert(offsetof(AgentRuleMatch, dst) == 2336);
static_assert(offsetof(AgentRuleMatch, acsName) == 4640);
static_assert(offsetof(AgentRuleMatch, srcPort) == 4704);
static_assert(offsetof(AgentRuleMatch, dstPort) == 8800);
static_assert(offsetof(AgentRuleMatch, proto) == 12896);
static_assert(offsetof(AgentRuleMatch, dscp) == 12960);
static_assert(offsetof(AgentRuleMatch, ethType) == 13024);
static_assert(offsetof(AgentRuleMatch, transId) == 13152);
static_assert(offsetof(AgentRuleMatch, inPort) == 13536);
static_assert(offsetof(AgentRuleMatch, outPort) == 14048);

// ---- Actions section (2,928 bytes) ------------------------------------------------------

constexpr uint8_t AGENT_ACT_SNAT_FLAG = 1u << 0; ///< in flagsA
constexpr uint8_t AGENT_ACT_DNAT_FLAG = 1u << 1;
constexpr uint8_t AGENT_ACT_ACCE_FLAG = 1u << 2;
constexpr uint8_t AGENT_ACT_SET_DSCP_FLAG = 1u << 4;
constexpr uint8_t AGENT_ACT_SET_VPN_FLAG = 1u << 6;
constexpr uint8_t AGENT_ACT_SET_POLICY_FLAG = 1u << 7;
constexpr uint8_t AGENT_ACT_REV_OUT_FORCE_FLAG = 1u << 0; ///< in flagsB
constexpr uint8_t AGENT_ACT_RESUBMIT_FLAG = 1u << 1;

constexpr uint8_t AGENT_OUTPUT_PRIORITY_FLAG = 1u << 0; ///< in AgentRuleOutput::flags
constexpr uint8_t AGENT_OUTPUT_PROBE_FLAG = 1u << 1;

constexpr size_t AGENT_RULE_MAX_OUTPUTS = 64;

struct AgentRuleOutput {
    uint32_t id;
    uint8_t type;
    uint8_t flags; ///< AGENT_OUTPUT_*_FLAG
    uint8_t reserved[2];
};
static_assert(sizeof(AgentRuleOutput) == 8);
static_assert(offsetof(AgentRuleOutput, type) == 4);
static_assert(offsetof(AgentRuleOutput, flags) == 5);

/// NatIpMode values; any other value means single addresses or plain lists.
constexpr uint8_t AGENT_NAT_IP_MODE_PREFIXES = 1;
constexpr uint8_t AGENT_NAT_IP_MODE_RANGES = 2;

struct AgentRuleActions {
    uint8_t flagsA; ///< AGENT_ACT_{SNAT,DNAT,ACCE,SET_DSCP,SET_VPN,SET_POLICY}_FLAG
    uint8_t flagsB; ///< AGENT_ACT_{REV_OUT_FORCE,RESUBMIT}_FLAG
    uint8_t outputNum;
    uint8_t outputStrategy;
    uint8_t setDscpValue;
    uint8_t reserved5[7];
    uint32_t setVpnId;
    uint32_t setPolicyId;
    uint32_t inboundRateLimitId;
    uint32_t outboundRateLimitId;
    AgentRuleOutput outputs[AGENT_RULE_MAX_OUTPUTS];
    uint8_t natMode;
    uint8_t natIpMode;
    uint8_t reserved542[2];
    AgentRuleAddrArea natIps;
    uint8_t natIpNum; ///< entries written to natIps
    uint8_t natIpType;
    uint16_t natPortMin; ///< Port (DNAT) or PortRange.Min (SNAT)
    uint16_t natPortMax; ///< PortRange.Max (SNAT)
    uint8_t reserved2854[74];
};
static_assert(sizeof(AgentRuleActions) == 2928);
static_assert(offsetof(AgentRuleActions, flagsA) == 0);
static_assert(offsetof(AgentRuleActions, flagsB) == 1);
static_assert(offsetof(AgentRuleActions, outputNum) == 2);
static_assert(offsetof(AgentRuleActions, outputStrategy) == 3);
static_assert(offsetof(AgentRuleActions, setDscpValue) == 4);
static_assert(offsetof(AgentRuleActions, setVpnId) == 12);
static_assert(offsetof(AgentRuleActions, setPolicyId) == 16);
static_assert(offsetof(AgentRuleActions, inboundRateLimitId) == 20);
static_assert(offsetof(AgentRuleActions, outboundRateLimitId) == 24);
static_assert(offsetof(AgentRuleActions, outputs) == 28);
static_assert(offsetof(AgentRuleActions, natMode) == 540);
static_assert(offsetof(AgentRuleActions, natIpMode) == 541);
static_assert(offsetof(AgentRuleActions, natIps) == 544);
static_assert(offsetof(AgentRuleActions, natIpNum) == 2848);
static_assert(offsetof(AgentRuleActions, natIpType) == 2849);
static_assert(offsetof(AgentRuleActions, natPortMin) == 2850);
static_assert(offsetof(AgentRuleActions, natPortMax) == 2852);
static_assert(offsetof(AgentRuleActions, reserved2854) == 2854);

// ---- The whole record (17,528 bytes) ----------------------------------------------------

struct AgentRuleConf {
    AgentRuleBase base;
    AgentRuleMatch match;
    AgentRuleActions actions;
};
static_assert(sizeof(AgentRuleConf) == 17528);
static_assert(offsetof(AgentRuleConf, base) == 0);
static_assert(offsetof(AgentRuleConf, match) == 40);
static_assert(offsetof(AgentRuleConf, actions) == 14600);

// ---- Flag keys, in the order the converter reads them -------------------------------------

template <typename Word>
struct AgentRuleFlagKey {
    const char *key;
    Word mask;
};

inline constexpr AgentRuleFlagKey<uint16_t> kAgentRuleBaseFlags[] = {
    {"DualFlag", AGENT_RULE_DUAL_FLAG},   {"InvalidFlag", AGENT_RULE_INVALID_FLAG},
    {"ExcluFlag", AGENT_RULE_EXCLU_FLAG}, {"RelatedFlag", AGENT_RULE_RELATED_FLAG},
    {"RevalFlag", AGENT_RULE_REVAL_FLAG}, {"L2Flag", AGENT_RULE_L2L3_FLAG},
    {"L3Flag", AGENT_RULE_L2L3_FLAG}, // the same bit, on purpose: L3Flag, read later, wins
    {"ProbeFlag", AGENT_RULE_PROBE_FLAG}, {"TransitFlag", AGENT_RULE_TRANSIT_FLAG},
};

/// Read before InVpnId; kAgentRuleMatchPolicyFlag follows InVpnId.
inline constexpr AgentRuleFlagKey<uint8_t> kAgentRuleMatchFlags[] = {
    {"SrcIpSetFlag", AGENT_MATCH_SRC_IP_SET_FLAG},
    {"DstIpSetFlag", AGENT_MATCH_DST_IP_SET_FLAG},
    {"SrcIpRangeFlag", AGENT_MATCH_SRC_IP_RANGE_FLAG},
    {"DstIpRangeFlag", AGENT_MATCH_DST_IP_RANGE_FLAG},
    {"DstIpApiFlag", AGENT_MATCH_DST_IP_API_FLAG},
    {"AcsNameFlag", AGENT_MATCH_ACS_NAME_FLAG},
    {"InVpnFlag", AGENT_MATCH_IN_VPN_FLAG},
};
inline constexpr AgentRuleFlagKey<uint8_t> kAgentRuleMatchPolicyFlag[] = {
    {"InPolicyFlag", AGENT_MATCH_IN_POLICY_FLAG}};

inline constexpr AgentRuleFlagKey<uint8_t> kAgentRuleActionFlagsA[] = {
    {"SnatFlag", AGENT_ACT_SNAT_FLAG},        {"DnatFlag", AGENT_ACT_DNAT_FLAG},
    {"AcceFlag", AGENT_ACT_ACCE_FLAG},        {"SetVpnFlag", AGENT_ACT_SET_VPN_FLAG},
    {"SetDscpFlag", AGENT_ACT_SET_DSCP_FLAG}, {"SetPolicyFlag", AGENT_ACT_SET_POLICY_FLAG},
};
inline constexpr AgentRuleFlagKey<uint8_t> kAgentRuleActionFlagsB[] = {
    {"RevOutForceFlag", AGENT_ACT_REV_OUT_FORCE_FLAG},
    {"ResubmitFlag", AGENT_ACT_RESUBMIT_FLAG},
};

// ---- Converters -------------------------------------------------------------------------
// The caller owns the record, zero-fills it before the call and sends it only
// on success; a failure leaves it partly filled. No reference counts of the
// json-c objects passed in are changed.

/// Parses text (owned by the caller, may be null) and fills conf. Returns 0,
/// -22 (not JSON, a required key absent, a bad value) or -132 (a value or text
/// too large).
int32_t OV_AgentRuleJsonStrToConf(AgentRuleConf *conf, const char *text);
/// Fills the three sections from a parsed rule object. Returns 0 or a
/// negative code as above; "Actions" is required, "Match" is not.
int32_t _OV_AgentRuleJsonToConf(AgentRuleConf *conf, json_object *obj);
/// The top-level keys into the base section. Returns 0 or a negative code.
int32_t _OV_AgentRuleBaseJsonToConf(AgentRuleBase *base, json_object *obj);
/// The "Match" object into the match section. Returns 0 (also when a list
/// named by a count is missing: the rest of the section then stays zero) or a
/// negative code.
int32_t _OV_AgentRuleMatchJsonToConf(AgentRuleMatch *match, json_object *obj);
/// The "Actions" object into the actions section. Returns 0 or a negative
/// code.
int32_t _OV_AgentRuleActionJsonToConf(AgentRuleActions *actions, json_object *obj);

/// The rule record as JSON under its own keys (flags as booleans, addresses as text).
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentRuleRecordToJson(const uint8_t *rec, size_t len);
