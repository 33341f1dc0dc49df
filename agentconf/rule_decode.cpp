// The rule record back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/json_out.h"
#include "agentconf/rule.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace {

// The 32-bit keys go through the signed 32-bit getter, so they are shown
// signed: a stored 0xFFFFFFFF came from -1 and only -1 converts back to it.
void AddU32(json_object *obj, const char *key, uint32_t value) {
    ovrec::AddInt(obj, key, static_cast<int32_t>(value));
}

template <typename Word, size_t N>
void AddFlags(json_object *obj, const AgentRuleFlagKey<Word> (&keys)[N], Word word) {
    for (const AgentRuleFlagKey<Word> &f : keys) {
        ovrec::AddBool(obj, f.key, (word & f.mask) != 0);
    }
}

bool AnyNonZero(const uint8_t *bytes, size_t from, size_t to) {
    return std::any_of(bytes + from, bytes + to, [](uint8_t b) { return b != 0; });
}

void AddIpv4(json_object *obj, const char *key, const uint8_t *field) {
    ovrec::AddString(obj, key, ovrec::Ipv4Text(ovrec::Load<uint32_t>(field, 0)));
}

void AddIpv6(json_object *obj, const char *key, const uint8_t *field16) {
    ovrec::AddString(obj, key, ovrec::Ipv6Text(field16));
}

// An entry whose IpType byte was written over by a set name or an API type
// shows the family its remaining bytes need (IPv6 when a byte only IPv6 uses
// is set): converting it and then the name again gives the same bytes.
json_object *RangeEntry(const uint8_t *e, bool typeCovered) {
    uint8_t type = e[offsetof(AgentIpRange, ipType)];
    if (typeCovered) {
        type = AnyNonZero(e, 8, 20) || AnyNonZero(e, 24, 36) ? AGENT_IP_TYPE_V6 : AGENT_IP_TYPE_V4;
    }
    json_object *item = json_object_new_object();
    ovrec::AddInt(item, "IpType", type);
    const uint8_t *lower = e + offsetof(AgentIpRange, lower);
    const uint8_t *upper = e + offsetof(AgentIpRange, upper);
    if (type == AGENT_IP_TYPE_V4) {
        AddIpv4(item, "LowerIp", lower);
        AddIpv4(item, "UpperIp", upper);
    } else if (type == AGENT_IP_TYPE_V6) {
        AddIpv6(item, "LowerIpv6", lower);
        AddIpv6(item, "UpperIpv6", upper);
    }
    return item;
}

json_object *PrefixEntry(const uint8_t *e, bool typeCovered, const char *v6Key) {
    uint8_t type = e[offsetof(AgentIpPrefix, ipType)];
    if (typeCovered) {
        type = AnyNonZero(e, 4, 16) ? AGENT_IP_TYPE_V6 : AGENT_IP_TYPE_V4;
    }
    json_object *item = json_object_new_object();
    ovrec::AddInt(item, "IpType", type);
    if (type == AGENT_IP_TYPE_V4) {
        AddIpv4(item, "Ip", e);
    } else if (type == AGENT_IP_TYPE_V6) {
        AddIpv6(item, v6Key, e);
    }
    ovrec::AddInt(item, "Mask", e[offsetof(AgentIpPrefix, mask)]);
    return item;
}

// count entries of an address area; `covered` bytes at its start were
// written over after the list.
json_object *AddrList(const uint8_t *area, size_t count, bool ranges, size_t covered,
                      const char *v6Key) {
    json_object *arr = json_object_new_array();
    for (size_t i = 0; i < count; ++i) {
        if (ranges) {
            size_t at = i * sizeof(AgentIpRange);
            json_object_array_add(arr, RangeEntry(area + at, at < covered));
        } else {
            size_t at = i * sizeof(AgentIpPrefix);
            json_object_array_add(
                arr, PrefixEntry(area + at, at + offsetof(AgentIpPrefix, ipType) < covered, v6Key));
        }
    }
    return arr;
}

// The converter reads a list only when its count is not zero, and ends the
// match when the list is missing. A count larger than the list can hold can
// only have come that way (everything after it is zero), so the list is left
// out from there on and the converter stops at the same place.
bool ListShown(size_t count, size_t capacity, bool *ended) {
    if (*ended || count == 0) {
        return false;
    }
    if (count > capacity) {
        *ended = true;
        return false;
    }
    return true;
}

size_t TextEnd(const uint8_t *bytes, size_t from, size_t size) {
    size_t end = from;
    while (end < size && bytes[end] != 0) {
        ++end;
    }
    return end;
}

json_object *DecodeMatch(const AgentRuleMatch &m) {
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "SrcIpNum", m.srcIpNum);
    ovrec::AddInt(obj, "DstIpNum", m.dstIpNum);
    ovrec::AddInt(obj, "SrcPortNum", m.srcPortNum);
    ovrec::AddInt(obj, "DstPortNum", m.dstPortNum);
    ovrec::AddInt(obj, "EthTypeNum", m.ethTypeNum);
    ovrec::AddInt(obj, "ProtoNum", m.protoNum);
    ovrec::AddInt(obj, "DscpNum", m.dscpNum);
    ovrec::AddInt(obj, "TransIdNum", m.transIdNum);
    ovrec::AddInt(obj, "InPortNum", m.inPortNum);
    ovrec::AddInt(obj, "OutPortNum", m.outPortNum);
    AddFlags(obj, kAgentRuleMatchFlags, m.flags);
    AddFlags(obj, kAgentRuleMatchPolicyFlag, m.flags);
    AddU32(obj, "InVpnId", m.inVpnId);
    AddU32(obj, "InPolicyId", m.inPolicyId);
    AddU32(obj, "DstCustomerId", m.dstCustomerId);
    AddU32(obj, "DstClientId", m.dstClientId);

    bool ended = false;
    const uint8_t *src = m.src.raw;
    const bool srcSet = (m.flags & AGENT_MATCH_SRC_IP_SET_FLAG) != 0;
    const size_t srcNameEnd = TextEnd(src, 0, AGENT_RULE_NAME_LEN);
    const size_t srcCovered = srcSet ? srcNameEnd + 1 : 0;
    const bool srcRanges = (m.flags & AGENT_MATCH_SRC_IP_RANGE_FLAG) != 0;
    if (ListShown(m.srcIpNum, srcRanges ? AGENT_RULE_MAX_RANGES : AGENT_RULE_MAX_PREFIXES,
                  &ended)) {
        json_object_object_add(obj, srcRanges ? "SrcIpRange" : "SrcIp",
                               AddrList(src, m.srcIpNum, srcRanges, srcCovered, "Ip6"));
    }
    if (!ended && srcSet) {
        ovrec::AddString(obj, "SrcIpSetName",
                         std::string(reinterpret_cast<const char *>(src), srcNameEnd));
    }
    if (ended) {
        return obj;
    }

    // The destination set name is written first, then the API type over its
    // first four bytes: those four characters are lost and any four stand for
    // them, so the rest of the name still lands where it was.
    const uint8_t *dst = m.dst.raw;
    const bool dstSet = (m.flags & AGENT_MATCH_DST_IP_SET_FLAG) != 0;
    const bool dstApi = (m.flags & AGENT_MATCH_DST_IP_API_FLAG) != 0;
    size_t dstCovered = dstApi ? sizeof(uint32_t) : 0;
    std::string dstName;
    if (dstSet) {
        size_t from = dstApi ? sizeof(uint32_t) : 0;
        size_t end = TextEnd(dst, from, AGENT_RULE_NAME_LEN);
        dstName = std::string(from, '*') +
                  std::string(reinterpret_cast<const char *>(dst) + from, end - from);
        dstCovered = std::max(dstCovered, end + 1);
    }
    // Bit 1 chooses the list, as in the converter.
    if (ListShown(m.dstIpNum, dstSet ? AGENT_RULE_MAX_RANGES : AGENT_RULE_MAX_PREFIXES, &ended)) {
        json_object_object_add(obj, dstSet ? "DstIpRange" : "DstIp",
                               AddrList(dst, m.dstIpNum, dstSet, dstCovered, "Ip6"));
    }
    if (ended) {
        return obj;
    }
    if (dstSet) {
        ovrec::AddString(obj, "DstIpSetName", dstName);
    }
    if (dstApi) {
        AddU32(obj, "DstIpApiType", ovrec::Load<uint32_t>(dst, 0));
    }
    if ((m.flags & AGENT_MATCH_ACS_NAME_FLAG) != 0) {
        ovrec::AddFixedText(obj, "AcsName", reinterpret_cast<const uint8_t *>(m.acsName),
                            sizeof m.acsName);
    }

    const struct {
        const char *key;
        size_t count;
        const AgentPortRange *ports;
    } portLists[] = {{"SrcPort", m.srcPortNum, m.srcPort}, {"DstPort", m.dstPortNum, m.dstPort}};
    for (const auto &pl : portLists) {
        if (ListShown(pl.count, AGENT_RULE_MAX_PORT_RANGES, &ended)) {
            json_object *arr = json_object_new_array();
            for (size_t i = 0; i < pl.count; ++i) {
                json_object *item = json_object_new_object();
                ovrec::AddInt(item, "LowerPort", pl.ports[i].lowerPort);
                ovrec::AddInt(item, "UpperPort", pl.ports[i].upperPort);
                json_object_array_add(arr, item);
            }
            json_object_object_add(obj, pl.key, arr);
        }
    }

    auto addInts = [&](const char *key, size_t count, size_t capacity, auto valueAt) {
        if (ListShown(count, capacity, &ended)) {
            json_object *arr = json_object_new_array();
            for (size_t i = 0; i < count; ++i) {
                json_object_array_add(arr, json_object_new_int64(valueAt(i)));
            }
            json_object_object_add(obj, key, arr);
        }
    };
    addInts("EthType", m.ethTypeNum, AGENT_RULE_MAX_ETH_TYPES,
            [&](size_t i) { return m.ethType[i]; });
    addInts("Proto", m.protoNum, AGENT_RULE_MAX_PROTOS, [&](size_t i) { return m.proto[i]; });
    addInts("Dscp", m.dscpNum, AGENT_RULE_MAX_DSCPS, [&](size_t i) { return m.dscp[i]; });
    addInts("TransId", m.transIdNum, AGENT_RULE_MAX_TRANS_IDS,
            [&](size_t i) { return m.transId[i]; });

    const struct {
        const char *key;
        size_t count;
        const AgentIfPort *ports;
    } ifLists[] = {{"InPort", m.inPortNum, m.inPort}, {"OutPort", m.outPortNum, m.outPort}};
    for (const auto &il : ifLists) {
        if (ListShown(il.count, AGENT_RULE_MAX_IF_PORTS, &ended)) {
            json_object *arr = json_object_new_array();
            for (size_t i = 0; i < il.count; ++i) {
                json_object *item = json_object_new_object();
                ovrec::AddInt(item, "Type", il.ports[i].type);
                AddU32(item, "Id", il.ports[i].id);
                json_object_array_add(arr, item);
            }
            json_object_object_add(obj, il.key, arr);
        }
    }
    return obj;
}

json_object *DecodeNatInfo(const AgentRuleActions &a) {
    json_object *nat = json_object_new_object();
    ovrec::AddInt(nat, "NatMode", a.natMode);
    ovrec::AddInt(nat, "NatIpMode", a.natIpMode);
    ovrec::AddInt(nat, "IpType", a.natIpType);
    const uint8_t *area = a.natIps.raw;
    if (a.natIpMode == AGENT_NAT_IP_MODE_PREFIXES) {
        json_object_object_add(nat, "IpMasks",
                               AddrList(area, std::min<size_t>(a.natIpNum, AGENT_RULE_MAX_PREFIXES),
                                        false, 0, "Ipv6"));
    } else if (a.natIpMode == AGENT_NAT_IP_MODE_RANGES) {
        json_object_object_add(
            nat, "IpRanges",
            AddrList(area, std::min<size_t>(a.natIpNum, AGENT_RULE_MAX_RANGES), true, 0, nullptr));
    } else if (a.natIpType == AGENT_IP_TYPE_V4 || a.natIpType == AGENT_IP_TYPE_V6) {
        // A single address was stored as a list of one; the list form gives
        // the same bytes.
        const bool v6 = a.natIpType == AGENT_IP_TYPE_V6;
        size_t count =
            std::min<size_t>(a.natIpNum, v6 ? AGENT_RULE_MAX_NAT_IPV6 : AGENT_RULE_MAX_NAT_IPV4);
        json_object *arr = json_object_new_array();
        for (size_t i = 0; i < count; ++i) {
            std::string text = v6 ? ovrec::Ipv6Text(area + 16 * i)
                                  : ovrec::Ipv4Text(ovrec::Load<uint32_t>(area, 4 * i));
            json_object_array_add(arr, json_object_new_string(text.c_str()));
        }
        json_object_object_add(nat, v6 ? "Ipv6s" : "Ips", arr);
    }
    // The converter reads Port for DNAT and PortRange only for SNAT without DNAT.
    if ((a.flagsA & AGENT_ACT_DNAT_FLAG) != 0) {
        ovrec::AddInt(nat, "Port", a.natPortMin);
    } else {
        json_object *range = json_object_new_object();
        ovrec::AddInt(range, "Min", a.natPortMin);
        ovrec::AddInt(range, "Max", a.natPortMax);
        json_object_object_add(nat, "PortRange", range);
    }
    return nat;
}

json_object *DecodeActions(const AgentRuleActions &a) {
    json_object *obj = json_object_new_object();
    AddFlags(obj, kAgentRuleActionFlagsA, a.flagsA);
    AddFlags(obj, kAgentRuleActionFlagsB, a.flagsB);
    // OutputType is not in the record: every output entry carries its Type.
    ovrec::AddInt(obj, "OutputNum", a.outputNum);
    ovrec::AddInt(obj, "OutputStrategy", a.outputStrategy);
    AddU32(obj, "InboundRateLimitId", a.inboundRateLimitId);
    AddU32(obj, "OutboundRateLimitId", a.outboundRateLimitId);
    if ((a.flagsA & AGENT_ACT_SET_VPN_FLAG) != 0) {
        AddU32(obj, "SetVpnId", a.setVpnId);
    }
    if ((a.flagsA & AGENT_ACT_SET_POLICY_FLAG) != 0) {
        AddU32(obj, "SetPolicyId", a.setPolicyId);
    }
    if ((a.flagsA & AGENT_ACT_SET_DSCP_FLAG) != 0) {
        ovrec::AddInt(obj, "SetDscpValue", a.setDscpValue);
    }
    if (a.outputNum != 0) {
        json_object *arr = json_object_new_array();
        size_t count = std::min<size_t>(a.outputNum, AGENT_RULE_MAX_OUTPUTS);
        for (size_t i = 0; i < count; ++i) {
            const AgentRuleOutput &out = a.outputs[i];
            json_object *item = json_object_new_object();
            AddU32(item, "Id", out.id);
            ovrec::AddBool(item, "Priority", (out.flags & AGENT_OUTPUT_PRIORITY_FLAG) != 0);
            ovrec::AddInt(item, "Type", out.type);
            ovrec::AddBool(item, "Probe", (out.flags & AGENT_OUTPUT_PROBE_FLAG) != 0);
            json_object_array_add(arr, item);
        }
        json_object_object_add(obj, "OutputArray", arr);
    }
    if ((a.flagsA & (AGENT_ACT_SNAT_FLAG | AGENT_ACT_DNAT_FLAG)) != 0) {
        json_object_object_add(obj, "NatInfo", DecodeNatInfo(a));
    }
    return obj;
}

} // namespace

json_object *OV_AgentRuleRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentRuleConf)) {
        return nullptr;
    }
    // 17.5 KB: kept off the stack of whichever thread decodes.
    auto conf = std::make_unique<AgentRuleConf>();
    std::memcpy(conf.get(), rec, sizeof(AgentRuleConf));
    const AgentRuleBase &b = conf->base;

    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "Table", b.table);
    ovrec::AddInt(obj, "Zone", b.zone);
    AddFlags(obj, kAgentRuleBaseFlags, b.flags);
    AddU32(obj, "VpnId", b.vpnId);
    AddU32(obj, "CustomerId", b.customerId);
    AddU32(obj, "Id", b.id);
    AddU32(obj, "RuleVer", b.ruleVer);
    json_object_object_add(obj, "Match", DecodeMatch(conf->match));
    json_object_object_add(obj, "Actions", DecodeActions(conf->actions));
    return obj;
}
