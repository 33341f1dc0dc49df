// Rule JSON to the rule record: base, match and actions sections.
#include "agentconf/rule.h"

#include "agentconf/json_conv.h"

#include <cstring>

// Helpers log under the name of the converter that called them (the name an
// operator looks for), with the line of the message itself.
#define RULE_FAIL(fn, ...) OV_ConfFail(OV_ConfSite{(fn), __LINE__}, __VA_ARGS__)
#define RULE_NOTICE(fn, ...) OV_ConfNotice(OV_ConfSite{(fn), __LINE__}, __VA_ARGS__)
#define RULE_SITE(fn) (OV_ConfSite{(fn), __LINE__})

namespace {

// A missing list named by a non-zero count ends the match early with success
// (deliberately); readers return this to say so.
constexpr int32_t kMatchEnds = 1;

// An optional flag: absent leaves the word alone; present clears the bit and
// sets it to the value.
template <typename Word, size_t N>
void ReadFlags(json_object *obj, const AgentRuleFlagKey<Word> (&keys)[N], Word *word) {
    for (const AgentRuleFlagKey<Word> &f : keys) {
        int32_t on = 0;
        if (_OV_JsonGetBool(obj, f.key, &on) == 0) {
            *word = static_cast<Word>((*word & ~f.mask) | (on != 0 ? f.mask : 0));
        }
    }
}

// IPv4 text into the first four bytes of an address field (host order).
// Plain NAT list items have no key to read them through the string getter; a
// text too long for the buffer is refused with -132 as the getter would.
int32_t PutIpv4(const char *fn, const char *text, uint8_t *field) {
    char buf[OV_IPV4_TEXT_BUF] = {};
    size_t n = std::strlen(text);
    if (n >= sizeof buf) {
        RULE_FAIL(fn, "trans ip string to ip num failed\n");
        return -132;
    }
    std::memcpy(buf, text, n);
    uint32_t num = 0;
    if (OV_IpStrToNum(buf, sizeof buf, &num) == nullptr) {
        RULE_FAIL(fn, "trans ip string to ip num failed\n");
        return -22;
    }
    std::memcpy(field, &num, sizeof num);
    return 0;
}

int32_t PutIpv6(const char *fn, const char *text, uint8_t *field16) {
    char buf[OV_IPV6_TEXT_BUF] = {};
    size_t n = std::strlen(text);
    if (n >= sizeof buf) {
        RULE_FAIL(fn, "trans ipv6 string to ipv6 conf failed\n");
        return -132;
    }
    std::memcpy(buf, text, n);
    if (OV_Ipv6StrToConf(buf, sizeof buf, field16) == nullptr) {
        RULE_FAIL(fn, "trans ipv6 string to ipv6 conf failed\n");
        return -22;
    }
    return 0;
}

// An address key of an item; failText when the getter refuses it.
int32_t ReadIpKey(const char *fn, json_object *item, const char *key, bool v6, const char *failText,
                  uint8_t *field16) {
    char buf[OV_IPV6_TEXT_BUF] = {};
    size_t size = v6 ? OV_IPV6_TEXT_BUF : OV_IPV4_TEXT_BUF;
    int32_t rc = _OV_JsonGetString(item, key, buf, size);
    if (rc != 0) {
        RULE_FAIL(fn, "%s", failText);
        return rc;
    }
    return v6 ? PutIpv6(fn, buf, field16) : PutIpv4(fn, buf, field16);
}

int32_t ReadRangeItem(const char *fn, json_object *item, AgentIpRange *e) {
    int32_t rc = _OV_JsonGetU8(item, "IpType", &e->ipType);
    if (rc != 0) {
        RULE_FAIL(fn, "Get IpType failed\n");
        return rc;
    }
    // Another IpType keeps the type and leaves both addresses zero (chosen:
    // the agent decides what an unknown family means).
    if (e->ipType == AGENT_IP_TYPE_V4) {
        rc = ReadIpKey(fn, item, "LowerIp", false, "Get LowerIp failed\n", e->lower);
        if (rc == 0) {
            rc = ReadIpKey(fn, item, "UpperIp", false, "Get UpperIp failed\n", e->upper);
        }
    } else if (e->ipType == AGENT_IP_TYPE_V6) {
        rc = ReadIpKey(fn, item, "LowerIpv6", true, "Get LowerIpv6 failed\n", e->lower);
        if (rc == 0) {
            rc = ReadIpKey(fn, item, "UpperIpv6", true, "Get UpperIpv6 failed\n", e->upper);
        }
    }
    return rc;
}

// v6Key is "Ip6" in the match and "Ipv6" in NatInfo.
int32_t ReadPrefixItem(const char *fn, json_object *item, const char *v6Key, AgentIpPrefix *e) {
    int32_t rc = _OV_JsonGetU8(item, "IpType", &e->ipType);
    if (rc != 0) {
        RULE_FAIL(fn, "Get IpType failed\n");
        return rc;
    }
    // As for ranges, another IpType leaves the address zero; Mask is read.
    if (e->ipType == AGENT_IP_TYPE_V4) {
        rc = ReadIpKey(fn, item, "Ip", false, "Get Ip failed\n", e->addr);
    } else if (e->ipType == AGENT_IP_TYPE_V6) {
        rc = ReadIpKey(fn, item, v6Key, true, "Get Ipv6 failed\n", e->addr);
    }
    if (rc != 0) {
        return rc;
    }
    rc = _OV_JsonGetU8(item, "Mask", &e->mask);
    if (rc != 0) {
        RULE_FAIL(fn, "get Mask failed\n");
    }
    return rc;
}

// The texts of one array with a count field. emptyName completes
// "empty [%d] item for %s\n".
struct ListTexts {
    const char *key;
    const char *notArray;
    const char *sizeDiffers;
    const char *emptyName;
    const char *lack;
};

// Reads the array named by a non-zero count: a missing key logs the lack text
// and returns lackResult; otherwise each item goes to readItem(item, index).
template <typename CountT, typename ItemFn>
int32_t ReadCountedList(const char *fn, json_object *obj, const ListTexts &t, CountT *count,
                        size_t capacity, int32_t lackResult, ItemFn &&readItem) {
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(obj, t.key, &arr)) {
        RULE_FAIL(fn, "%s", t.lack);
        return lackResult;
    }
    int32_t n = OV_ConfArrayLength(RULE_SITE(fn), arr, count, capacity, t.notArray, t.sizeDiffers);
    if (n < 0) {
        return n;
    }
    for (int32_t i = 0; i < n; ++i) {
        json_object *item = json_object_array_get_idx(arr, static_cast<size_t>(i));
        if (item == nullptr) {
            RULE_FAIL(fn, "empty [%d] item for %s\n", i, t.emptyName);
            return -22;
        }
        int32_t rc = readItem(item, static_cast<size_t>(i));
        if (rc != 0) {
            return rc;
        }
    }
    return 0;
}

int32_t ReadRangeList(const char *fn, json_object *obj, const ListTexts &t, uint8_t *count,
                      AgentRuleAddrArea *area) {
    return ReadCountedList(
        fn, obj, t, count, AGENT_RULE_MAX_RANGES, kMatchEnds,
        [&](json_object *item, size_t i) { return ReadRangeItem(fn, item, &area->ranges[i]); });
}

int32_t ReadPrefixList(const char *fn, json_object *obj, const ListTexts &t, uint8_t *count,
                       AgentRuleAddrArea *area) {
    return ReadCountedList(fn, obj, t, count, AGENT_RULE_MAX_PREFIXES, kMatchEnds,
                           [&](json_object *item, size_t i) {
                               return ReadPrefixItem(fn, item, "Ip6", &area->prefixes[i]);
                           });
}

int32_t ReadPortList(const char *fn, json_object *obj, const ListTexts &t, uint16_t *count,
                     AgentPortRange *ports) {
    return ReadCountedList(fn, obj, t, count, AGENT_RULE_MAX_PORT_RANGES, kMatchEnds,
                           [&](json_object *item, size_t i) {
                               int32_t lower = 0;
                               int32_t upper = 0;
                               int32_t rc = _OV_JsonGetInt(item, "LowerPort", &lower);
                               if (rc == 0) {
                                   rc = _OV_JsonGetInt(item, "UpperPort", &upper);
                               }
                               if (rc != 0) {
                                   RULE_FAIL(fn, "Get Port failed\n");
                                   return rc;
                               }
                               // Stored as the low 16 bits, as the agent reads them.
                               ports[i].lowerPort = static_cast<uint16_t>(lower);
                               ports[i].upperPort = static_cast<uint16_t>(upper);
                               return 0;
                           });
}

// Plain integers; a negative one is refused, others are cut to the element.
template <typename Elem, size_t N>
int32_t ReadIntList(const char *fn, json_object *obj, const ListTexts &t, uint8_t *count,
                    Elem (&dest)[N], const char *invalidText) {
    return ReadCountedList(fn, obj, t, count, N, kMatchEnds, [&](json_object *item, size_t i) {
        int32_t v = json_object_get_int(item);
        if (v < 0) {
            RULE_FAIL(fn, "%s", invalidText);
            return -22;
        }
        dest[i] = static_cast<Elem>(v);
        return 0;
    });
}

int32_t ReadIfPortList(const char *fn, json_object *obj, const ListTexts &t, uint8_t *count,
                       AgentIfPort (&ports)[AGENT_RULE_MAX_IF_PORTS]) {
    return ReadCountedList(fn, obj, t, count, AGENT_RULE_MAX_IF_PORTS, kMatchEnds,
                           [&](json_object *item, size_t i) {
                               int32_t rc = _OV_JsonGetU8(item, "Type", &ports[i].type);
                               if (rc != 0) {
                                   RULE_FAIL(fn, "Get Type failed\n");
                                   return rc;
                               }
                               rc = _OV_JsonGetInt(item, "Id", &ports[i].id);
                               if (rc != 0) {
                                   RULE_FAIL(fn, "Get Id failed\n");
                               }
                               return rc;
                           });
}

// A NatInfo list: no count key; the number read goes to natIpNum. Longer
// lists than the area (or the u8 count) holds are refused like a non-array.
template <typename ItemFn>
int32_t ReadNatList(const char *fn, json_object *arr, size_t capacity, const char *notArray,
                    uint8_t *count, ItemFn &&readItem) {
    if (arr == nullptr || json_object_get_type(arr) != json_type_array ||
        json_object_array_length(arr) > capacity || json_object_array_length(arr) > UINT8_MAX) {
        RULE_FAIL(fn, "%s", notArray);
        return -22;
    }
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n; ++i) {
        int32_t rc = readItem(json_object_array_get_idx(arr, i), i);
        if (rc != 0) {
            return rc;
        }
    }
    *count = static_cast<uint8_t>(n);
    return 0;
}

// Both NAT lists name OutputArray, and the plain lists DnsHost, deliberately.
constexpr const char *kNatListNotArray = "Invalid format, OutputArray is not array!\n";
constexpr const char *kNatPlainNotArray = "Invalid format, DnsHost is not array!\n";

// NatIpMode 1: "IpMasks" prefix list.
int32_t ReadNatPrefixes(const char *fn, json_object *nat, AgentRuleActions *act) {
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(nat, "IpMasks", &arr)) {
        RULE_FAIL(fn, "Rule actions natInfo lack of IpRanges\n");
        return -22;
    }
    return ReadNatList(fn, arr, AGENT_RULE_MAX_PREFIXES, kNatListNotArray, &act->natIpNum,
                       [&](json_object *item, size_t i) {
                           if (item == nullptr) {
                               RULE_FAIL(fn, "empty [%d] item for %s\n", static_cast<int>(i),
                                         "ipMasks");
                               return -22;
                           }
                           return ReadPrefixItem(fn, item, "Ipv6", &act->natIps.prefixes[i]);
                       });
}

// NatIpMode 2: "IpRanges" range list.
int32_t ReadNatRanges(const char *fn, json_object *nat, AgentRuleActions *act) {
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(nat, "IpRanges", &arr)) {
        RULE_FAIL(fn, "Rule actions natInfo lack of IpRanges\n");
        return -22;
    }
    return ReadNatList(fn, arr, AGENT_RULE_MAX_RANGES, kNatListNotArray, &act->natIpNum,
                       [&](json_object *item, size_t i) {
                           if (item == nullptr) {
                               RULE_FAIL(fn, "empty [%d] item for %s\n", static_cast<int>(i),
                                         "ipRanges");
                               return -22;
                           }
                           return ReadRangeItem(fn, item, &act->natIps.ranges[i]);
                       });
}

// Any other NatIpMode. Chosen: IpType 1 reads IPv6 ("Ip6", else "Ipv6s"),
// IpType 0 reads IPv4 ("Ip", else "Ips"); the single address wins when both
// forms are given and counts as one entry. Another IpType reads no address
// and leaves the count 0, as an address item of an unknown family does.
int32_t ReadNatPlain(const char *fn, json_object *nat, AgentRuleActions *act) {
    const bool v6 = act->natIpType == AGENT_IP_TYPE_V6;
    if (!v6 && act->natIpType != AGENT_IP_TYPE_V4) {
        return 0;
    }
    const char *singleKey = v6 ? "Ip6" : "Ip";
    if (json_object_object_get_ex(nat, singleKey, nullptr)) {
        int32_t rc =
            v6 ? ReadIpKey(fn, nat, singleKey, true, "Get Ipv6 failed\n", act->natIps.ipv6s[0])
               : ReadIpKey(fn, nat, singleKey, false, "Get Ip failed\n",
                           reinterpret_cast<uint8_t *>(&act->natIps.ipv4s[0]));
        if (rc == 0) {
            act->natIpNum = 1;
        }
        return rc;
    }
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(nat, v6 ? "Ipv6s" : "Ips", &arr)) {
        RULE_FAIL(fn, "%s", v6 ? "Ipv6s array is empty\n" : "Ips array is empty\n");
        return -22;
    }
    return ReadNatList(fn, arr, v6 ? AGENT_RULE_MAX_NAT_IPV6 : AGENT_RULE_MAX_NAT_IPV4,
                       kNatPlainNotArray, &act->natIpNum, [&](json_object *item, size_t i) {
                           if (item == nullptr) {
                               RULE_FAIL(fn, "ips[%d] is null\n", static_cast<int>(i));
                               return -22;
                           }
                           const char *text = json_object_get_string(item);
                           if (v6) {
                               return PutIpv6(fn, text, act->natIps.ipv6s[i]);
                           }
                           return PutIpv4(fn, text,
                                          reinterpret_cast<uint8_t *>(&act->natIps.ipv4s[i]));
                       });
}

int32_t ReadNatInfo(const char *fn, json_object *nat, AgentRuleActions *act) {
    if (_OV_JsonGetU8(nat, "NatMode", &act->natMode) != 0) {
        RULE_NOTICE(fn, "Rule actions natInfo conf not set NatMode!\n");
    }
    if (_OV_JsonGetU8(nat, "NatIpMode", &act->natIpMode) != 0) {
        RULE_NOTICE(fn, "Rule actions natInfo conf not set NatIpMode!\n");
    }
    // No text of its own: an absent or refused IpType stays 0 (IPv4), silently.
    (void)_OV_JsonGetU8(nat, "IpType", &act->natIpType);

    int32_t rc = 0;
    if (act->natIpMode == AGENT_NAT_IP_MODE_PREFIXES) {
        rc = ReadNatPrefixes(fn, nat, act);
    } else if (act->natIpMode == AGENT_NAT_IP_MODE_RANGES) {
        rc = ReadNatRanges(fn, nat, act);
    } else {
        rc = ReadNatPlain(fn, nat, act);
    }
    if (rc != 0) {
        return rc;
    }

    // Optional: absent or refused values leave the port fields zero, silently.
    // NAT Port only for DNAT and PortRange only for SNAT, on purpose.
    if ((act->flagsA & AGENT_ACT_DNAT_FLAG) != 0) {
        int32_t port = 0;
        if (_OV_JsonGetInt(nat, "Port", &port) == 0) {
            act->natPortMin = static_cast<uint16_t>(port);
        }
    } else if ((act->flagsA & AGENT_ACT_SNAT_FLAG) != 0) {
        json_object *range = nullptr;
        if (json_object_object_get_ex(nat, "PortRange", &range)) {
            (void)_OV_JsonGetU16(range, "Min", &act->natPortMin);
            (void)_OV_JsonGetU16(range, "Max", &act->natPortMax);
        }
    }
    return 0;
}

// The destination range list names the source count and reports its absence
// as "Lack of SrcIp"; both deliberate.
constexpr ListTexts kSrcRangeTexts = {
    "SrcIpRange", "Invalid format, srcIpRange is not array!\n",
    "srcIpRange array size is not equal to SrcIpNum, use array size!\n", "srcIpRange",
    "Lack of SrcIpRange\n"};
constexpr ListTexts kSrcPrefixTexts = {
    "SrcIp", "Invalid format, srcIp is not array!\n",
    "SrcIp array size is not equal to SrcIpNum, use array size!\n", "srcIp", "Lack of SrcIp\n"};
constexpr ListTexts kDstRangeTexts = {
    "DstIpRange", "Invalid format, dstIpRange is not array!\n",
    "dstIpRange array size is not equal to SrcIpNum, use array size!\n", "dstIpRange",
    "Lack of SrcIp\n"};
constexpr ListTexts kDstPrefixTexts = {
    "DstIp", "Invalid format, dstIp is not array!\n",
    "DstIp array size is not equal to DstIpNum, use array size!\n", "dstIp", "Lack of DstIp\n"};
constexpr ListTexts kSrcPortTexts = {
    "SrcPort", "Invalid format, srcPort is not array!\n",
    "SrcPort array size is not equal to SrcPortNum, use array size!\n", "srcPort",
    "Lack of SrcPort\n"};
constexpr ListTexts kDstPortTexts = {
    "DstPort", "Invalid format, dstPort is not array!\n",
    "DstPort array size is not equal to DstPortNum, use array size!\n", "DstPort",
    "Lack of DstPort\n"};
constexpr ListTexts kEthTypeTexts = {
    "EthType", "Invalid format, EthType is not array!\n",
    "EthType array size is not equal to EthTypeNum, use array size!\n", "EthType",
    "Lack of EthType\n"};
constexpr ListTexts kProtoTexts = {"Proto", "Invalid format, Proto is not array!\n",
                                   "Proto array size is not equal to ProtoNum, use array size!\n",
                                   "Proto", "Lack of Proto\n"};
constexpr ListTexts kDscpTexts = {"Dscp", "Invalid format, Dscp is not array!\n",
                                  "Dscp array size is not equal to DscpNum, use array size!\n",
                                  "Dscp", "Lack of Dscp\n"};
// TransId reports null items (and negative values) with the Dscp texts, on purpose.
constexpr ListTexts kTransIdTexts = {
    "TransId", "Invalid format, TransId is not array!\n",
    "TransId array size is not equal to TransIdNum, use array size!\n", "Dscp",
    "Lack of TransId\n"};
constexpr ListTexts kInPortTexts = {
    "InPort", "Invalid format, InPort is not array!\n",
    "InPort array size is not equal to InPortNum, use array size!\n", "InPort", "Lack of InPort\n"};
constexpr ListTexts kOutPortTexts = {
    "OutPort", "Invalid format, OutPort is not array!\n",
    "OutPort array size is not equal to OutPortNum, use array size!\n", "OutPort",
    "Lack of OutPort\n"};
// The size text names InPort, on purpose.
constexpr ListTexts kOutputTexts = {
    "OutputArray", "Invalid format, OutputArray is not array!\n",
    "InPort array size is not equal to OutputNum, use array size!\n", "OutputArray",
    "Rule lack of OutputArray\n"};

} // namespace

int32_t OV_AgentRuleJsonStrToConf(AgentRuleConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "rule", conf, text, _OV_AgentRuleJsonToConf);
}

int32_t _OV_AgentRuleJsonToConf(AgentRuleConf *conf, json_object *obj) {
    int32_t rc = _OV_AgentRuleBaseJsonToConf(&conf->base, obj);
    if (rc < 0) {
        OV_CONF_FAIL("Rule json to conf for base param failed\n");
        return rc;
    }
    json_object *match = nullptr;
    if (json_object_object_get_ex(obj, "Match", &match)) {
        rc = _OV_AgentRuleMatchJsonToConf(&conf->match, match);
        if (rc < 0) {
            OV_CONF_FAIL("Rule json to conf for match failed\n");
            return rc;
        }
    }
    json_object *actions = nullptr;
    if (!json_object_object_get_ex(obj, "Actions", &actions)) {
        OV_CONF_FAIL("Rule lack of actions\n");
        return -22;
    }
    rc = _OV_AgentRuleActionJsonToConf(&conf->actions, actions);
    if (rc < 0) {
        OV_CONF_FAIL("Rule json to conf for actions failed\n");
        return rc;
    }
    return 0;
}

int32_t _OV_AgentRuleBaseJsonToConf(AgentRuleBase *base, json_object *obj) {
    if (_OV_JsonGetU8(obj, "Table", &base->table) != 0) {
        OV_CONF_NOTICE("Rule conf not set Table!\n");
    }
    int32_t rc = _OV_JsonGetU8(obj, "Zone", &base->zone);
    if (rc != 0) {
        OV_CONF_FAIL("Rule conf lack of Zone!\n");
        return rc;
    }
    ReadFlags(obj, kAgentRuleBaseFlags, &base->flags);
    rc = _OV_JsonGetInt(obj, "VpnId", &base->vpnId);
    if (rc != 0) {
        OV_CONF_FAIL("Rule conf lack of VpnId!\n");
        return rc;
    }
    if (_OV_JsonGetInt(obj, "CustomerId", &base->customerId) != 0) {
        OV_CONF_NOTICE("Rule conf lack of CustomerId!\n");
    }
    rc = _OV_JsonGetInt(obj, "Id", &base->id);
    if (rc != 0) {
        OV_CONF_FAIL("Rule conf lack of Id!\n");
        return rc;
    }
    rc = _OV_JsonGetInt(obj, "RuleVer", &base->ruleVer);
    if (rc != 0) {
        OV_CONF_FAIL("Rule conf lack of Version!\n");
        return rc;
    }
    base->reserved32 = 0;
    return 0;
}

int32_t _OV_AgentRuleMatchJsonToConf(AgentRuleMatch *match, json_object *obj) {
    const char *fn = __func__;
    struct Count8 {
        const char *key;
        uint8_t *field;
    };
    const Count8 counts8a[] = {{"SrcIpNum", &match->srcIpNum}, {"DstIpNum", &match->dstIpNum}};
    const Count8 counts8b[] = {
        {"EthTypeNum", &match->ethTypeNum}, {"ProtoNum", &match->protoNum},
        {"DscpNum", &match->dscpNum},       {"TransIdNum", &match->transIdNum},
        {"InPortNum", &match->inPortNum},   {"OutPortNum", &match->outPortNum},
    };
    for (const Count8 &c : counts8a) {
        if (_OV_JsonGetU8(obj, c.key, c.field) != 0) {
            OV_CONF_NOTICE("Rule match conf not set %s!\n", c.key);
        }
    }
    if (_OV_JsonGetU16(obj, "SrcPortNum", &match->srcPortNum) != 0) {
        OV_CONF_NOTICE("Rule match conf not set SrcPortNum!\n");
    }
    if (_OV_JsonGetU16(obj, "DstPortNum", &match->dstPortNum) != 0) {
        OV_CONF_NOTICE("Rule match conf not set DstPortNum!\n");
    }
    for (const Count8 &c : counts8b) {
        if (_OV_JsonGetU8(obj, c.key, c.field) != 0) {
            OV_CONF_NOTICE("Rule match conf not set %s!\n", c.key);
        }
    }

    ReadFlags(obj, kAgentRuleMatchFlags, &match->flags);
    if (_OV_JsonGetInt(obj, "InVpnId", &match->inVpnId) != 0) {
        OV_CONF_NOTICE("Rule match conf not set InVpnId!\n");
    }
    ReadFlags(obj, kAgentRuleMatchPolicyFlag, &match->flags);
    if (_OV_JsonGetInt(obj, "InPolicyId", &match->inPolicyId) != 0) {
        OV_CONF_NOTICE("Rule match conf not set InPolicyId!\n");
    }
    if (_OV_JsonGetInt(obj, "DstCustomerId", &match->dstCustomerId) != 0) {
        OV_CONF_NOTICE("Rule match conf not set DstCustomerId!\n");
    }
    if (_OV_JsonGetInt(obj, "DstClientId", &match->dstClientId) != 0) {
        OV_CONF_NOTICE("Rule match conf not set DstClientId!\n");
    }

    // Every list below ends the match with success when it is missing; a
    // count that is zero (or was refused) means its list is not read.
    int32_t rc = 0;
    if (match->srcIpNum != 0) {
        rc = (match->flags & AGENT_MATCH_SRC_IP_RANGE_FLAG) != 0
                 ? ReadRangeList(fn, obj, kSrcRangeTexts, &match->srcIpNum, &match->src)
                 : ReadPrefixList(fn, obj, kSrcPrefixTexts, &match->srcIpNum, &match->src);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if ((match->flags & AGENT_MATCH_SRC_IP_SET_FLAG) != 0) {
        rc = _OV_JsonGetString(obj, "SrcIpSetName", match->src.setName, AGENT_RULE_NAME_LEN);
        if (rc != 0) {
            OV_CONF_FAIL("Get SrcIpSetName failed\n");
            return rc;
        }
    }

    if (match->dstIpNum != 0) {
        // Chosen by bit 1 (DstIpSetFlag), not by DstIpRangeFlag, on purpose.
        rc = (match->flags & AGENT_MATCH_DST_IP_SET_FLAG) != 0
                 ? ReadRangeList(fn, obj, kDstRangeTexts, &match->dstIpNum, &match->dst)
                 : ReadPrefixList(fn, obj, kDstPrefixTexts, &match->dstIpNum, &match->dst);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    // Read by their flags whatever DstIpNum is; each writes over the start of
    // the destination area.
    if ((match->flags & AGENT_MATCH_DST_IP_SET_FLAG) != 0) {
        rc = _OV_JsonGetString(obj, "DstIpSetName", match->dst.setName, AGENT_RULE_NAME_LEN);
        if (rc != 0) {
            OV_CONF_FAIL("Get DstIpSetName failed\n");
            return rc;
        }
    }
    if ((match->flags & AGENT_MATCH_DST_IP_API_FLAG) != 0) {
        rc = _OV_JsonGetInt(obj, "DstIpApiType", &match->dst.apiType);
        if (rc != 0) {
            OV_CONF_FAIL("Get DstIpApiType failed\n");
            return rc;
        }
    }
    if ((match->flags & AGENT_MATCH_ACS_NAME_FLAG) != 0) {
        rc = _OV_JsonGetString(obj, "AcsName", match->acsName, sizeof match->acsName);
        if (rc != 0) {
            OV_CONF_FAIL("Get AcsName failed\n");
            return rc;
        }
    }

    if (match->srcPortNum != 0) {
        rc = ReadPortList(fn, obj, kSrcPortTexts, &match->srcPortNum, match->srcPort);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->dstPortNum != 0) {
        rc = ReadPortList(fn, obj, kDstPortTexts, &match->dstPortNum, match->dstPort);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->ethTypeNum != 0) {
        rc = ReadIntList(fn, obj, kEthTypeTexts, &match->ethTypeNum, match->ethType,
                         "Invalid param EthType\n");
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->protoNum != 0) {
        rc = ReadIntList(fn, obj, kProtoTexts, &match->protoNum, match->proto,
                         "Invalid param Proto\n");
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->dscpNum != 0) {
        rc = ReadIntList(fn, obj, kDscpTexts, &match->dscpNum, match->dscp, "Invalid param Dscp\n");
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->transIdNum != 0) {
        rc = ReadIntList(fn, obj, kTransIdTexts, &match->transIdNum, match->transId,
                         "Invalid param Dscp\n");
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->inPortNum != 0) {
        rc = ReadIfPortList(fn, obj, kInPortTexts, &match->inPortNum, match->inPort);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    if (match->outPortNum != 0) {
        rc = ReadIfPortList(fn, obj, kOutPortTexts, &match->outPortNum, match->outPort);
        if (rc != 0) {
            return rc == kMatchEnds ? 0 : rc;
        }
    }
    return 0;
}

int32_t _OV_AgentRuleActionJsonToConf(AgentRuleActions *actions, json_object *obj) {
    const char *fn = __func__;
    ReadFlags(obj, kAgentRuleActionFlagsA, &actions->flagsA);
    ReadFlags(obj, kAgentRuleActionFlagsB, &actions->flagsB);

    // Not in the record: the type of output entries that carry none.
    uint8_t outputType = 0;
    if (_OV_JsonGetU8(obj, "OutputType", &outputType) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set OutputType!\n");
    }
    if (_OV_JsonGetU8(obj, "OutputNum", &actions->outputNum) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set OutputNum!\n");
    }
    if (_OV_JsonGetU8(obj, "OutputStrategy", &actions->outputStrategy) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set OutputStrategy!\n");
    }
    if (_OV_JsonGetInt(obj, "InboundRateLimitId", &actions->inboundRateLimitId) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set InboundRateLimitId!\n");
    }
    if (_OV_JsonGetInt(obj, "OutboundRateLimitId", &actions->outboundRateLimitId) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set OutboundRateLimitId!\n");
    }
    if ((actions->flagsA & AGENT_ACT_SET_VPN_FLAG) != 0 &&
        _OV_JsonGetInt(obj, "SetVpnId", &actions->setVpnId) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set SetVpnId!\n");
    }
    if ((actions->flagsA & AGENT_ACT_SET_POLICY_FLAG) != 0 &&
        _OV_JsonGetInt(obj, "SetPolicyId", &actions->setPolicyId) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set SetPolicyId!\n");
    }
    if ((actions->flagsA & AGENT_ACT_SET_DSCP_FLAG) != 0 &&
        _OV_JsonGetU8(obj, "SetDscpValue", &actions->setDscpValue) != 0) {
        OV_CONF_NOTICE("Rule actions conf not set SetDscpValue!\n");
    }

    if (actions->outputNum != 0) {
        int32_t rc = ReadCountedList(
            fn, obj, kOutputTexts, &actions->outputNum, AGENT_RULE_MAX_OUTPUTS, -22,
            [&](json_object *item, size_t i) {
                AgentRuleOutput &out = actions->outputs[i];
                int32_t r = _OV_JsonGetInt(item, "Id", &out.id);
                if (r != 0) {
                    RULE_FAIL(fn, "Get Id failed\n");
                    return r;
                }
                int32_t on = 0;
                r = _OV_JsonGetBool(item, "Priority", &on);
                if (r != 0) {
                    RULE_FAIL(fn, "Get Priority failed\n");
                    return r;
                }
                if (on != 0) {
                    out.flags |= AGENT_OUTPUT_PRIORITY_FLAG;
                }
                if (_OV_JsonGetU8(item, "Type", &out.type) != 0) {
                    RULE_NOTICE(fn, "Lack of Type in output array item, use OutputType value\n");
                    out.type = outputType;
                }
                r = _OV_JsonGetBool(item, "Probe", &on);
                if (r != 0) {
                    RULE_FAIL(fn, "Get Probe failed\n");
                    return r;
                }
                if (on != 0) {
                    out.flags |= AGENT_OUTPUT_PROBE_FLAG;
                }
                return 0;
            });
        if (rc != 0) {
            return rc;
        }
    }

    if ((actions->flagsA & (AGENT_ACT_SNAT_FLAG | AGENT_ACT_DNAT_FLAG)) != 0) {
        json_object *nat = nullptr;
        if (json_object_object_get_ex(obj, "NatInfo", &nat)) {
            return ReadNatInfo(fn, nat, actions);
        }
    }
    return 0;
}
