// Tests of the rule converter: whole records byte for byte, the deliberate
// quirks, the early end of the match, refusals and the lines they log.
#include "agentconf/rule.h"

#include "agentconf/json_conv.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ovtest::Repeat;

constexpr size_t kMatch = offsetof(AgentRuleConf, match);
constexpr size_t kAct = offsetof(AgentRuleConf, actions);
constexpr size_t kSrc = kMatch + 32;
constexpr size_t kDst = kMatch + 2336;
constexpr size_t kNat = kAct + offsetof(AgentRuleActions, natMode);
constexpr size_t kNatNum = kAct + offsetof(AgentRuleActions, natIpNum);

constexpr const char *kBaseFn = "_OV_AgentRuleBaseJsonToConf";
constexpr const char *kMatchFn = "_OV_AgentRuleMatchJsonToConf";
constexpr const char *kActFn = "_OV_AgentRuleActionJsonToConf";
constexpr const char *kRuleFn = "_OV_AgentRuleJsonToConf";

/// A rule with Zone 1, VpnId 2, Id 3 and RuleVer 4, the match (left out
/// when empty) and the actions.
std::string Rule(const std::string &match, const std::string &actions = "{}",
                 const std::string &extra = "") {
    std::string text = R"({"Zone": 1, "VpnId": 2, "Id": 3, "RuleVer": 4)" + extra;
    if (!match.empty()) {
        text += R"(, "Match": )" + match;
    }
    return text + R"(, "Actions": )" + actions + "}";
}

using RuleConv = ovtest::RecordConverterTest<AgentRuleConf, OV_AgentRuleJsonStrToConf>;

/// The record of Rule() with an empty match and actions.
RuleConv::Expected Base() {
    return RuleConv::Expected().U8(2, 1).U32(12, 2).U32(16, 3).U32(8, 4);
}

/// Base() with NAT flags and the fields after the translated addresses.
RuleConv::Expected Nat(uint8_t flags, uint8_t num, uint8_t type, uint16_t min, uint16_t max) {
    return Base()
        .U8(kAct, flags)
        .Bytes(kNatNum, {num, type})
        .U16(kNatNum + 2, min)
        .U16(kNatNum + 4, max);
}

TEST_F(RuleConv, EachFormGivesItsBytes) {
    const Form cases[] = {
        // Bit 5 is shared by L2Flag and L3Flag; the later key wins.
        {Rule("", "{}", R"(, "L2Flag": true, "L3Flag": false)"), Base()},
        {Rule("", "{}", R"(, "L2Flag": true)"), Base().U16(4, 0x0020)},
        {Rule("", "{}", R"(, "RelatedFlag": 1, "ProbeFlag": "x", "TransitFlag": true)"),
         Base().U16(4, 0x0508)},
        // A zero or refused count leaves its list unread (the bad item would fail).
        {Rule(R"({"SrcIpNum": 0, "SrcIp": [{"IpType": 0, "Ip": "bad", "Mask": 8}]})"), Base()},
        {Rule(R"({"SrcIpNum": 300, "SrcIp": [{"IpType": 0, "Ip": "bad", "Mask": 8}]})"), Base()},
        // DstIpRangeFlag does not choose the list (bit 1 does, on purpose):
        // DstIp is missing, which ends the match with success; the actions
        // are still read.
        {Rule(R"({"DstIpNum": 1, "ProtoNum": 1, "DstIpRangeFlag": true, "Proto": [6],
            "DstIpRange": [{"IpType": 0, "LowerIp": "10.0.0.1", "UpperIp": "10.0.0.2"}]})",
              R"({"AcceFlag": true})"),
         Base().U8(kMatch + 1, 1).U8(kMatch + 7, 1).U8(kMatch + 13, 0x08).U8(kAct, 0x04)},
        // The array's length replaces a different count; EthType is cut to 16 bits.
        {Rule(R"({"ProtoNum": 5, "Proto": [1, 2, 3], "EthTypeNum": 1,
            "EthType": [67584, 34525]})"),
         Base()
             .Bytes(kMatch + 6, {2, 3})
             .Bytes(kMatch + 12896, {1, 2, 3})
             .U16(kMatch + 13024, 0x0800)
             .U16(kMatch + 13026, 0x86DD)},
        // Names and the API type are read by their flags and write over the areas.
        {Rule(R"({"SrcIpSetFlag": true, "SrcIpSetName": "office", "DstIpSetFlag": true,
            "DstIpSetName": "abcdefgh", "DstIpApiFlag": true, "DstIpApiType": 258,
            "AcsNameFlag": true, "AcsName": "acs-1"})"),
         Base()
             .U8(kMatch + 13, 0x33)
             .Text(kSrc, "office")
             .Text(kDst, "abcdefgh")
             .U32(kDst, 258)
             .Text(kMatch + 4640, "acs-1")},
        // Blanks around an address; an unknown family keeps IpType and Mask only.
        {Rule(R"({"SrcIpNum": 1, "SrcIp": [{"IpType": 0, "Ip": " 10.1.2.3 ", "Mask": 8}]})"),
         Base().Bytes(kMatch, {1}).U32(kSrc, 0x0A010203).Bytes(kSrc + 16, {0, 8})},
        {Rule(R"({"SrcIpNum": 1, "SrcIp": [{"IpType": 7, "Ip": "1.2.3.4", "Mask": 9}]})"),
         Base().Bytes(kMatch, {1}).Bytes(kSrc + 16, {7, 9})},
        // Ports keep their low 16 bits.
        {Rule(R"({"SrcPortNum": 1, "SrcPort": [{"LowerPort": 65616, "UpperPort": 443}]})"),
         Base().U16(kMatch + 2, 1).U16(kMatch + 4704, 80).U16(kMatch + 4706, 443)},
        // DNAT reads Port; SNAT reads PortRange and ignores Port.
        {Rule("", R"({"DnatFlag": true, "NatInfo": {"NatMode": 1, "NatIpMode": 3,
            "Ip": "10.0.0.1", "Port": 8080, "PortRange": {"Min": 1, "Max": 2}}})"),
         Nat(0x02, 1, 0, 8080, 0).Bytes(kNat, {1, 3, 0, 0, 1, 0, 0, 10})},
        {Rule("", R"({"SnatFlag": true, "NatInfo": {"NatIpMode": 0, "Ips": ["1.2.3.4", "5.6.7.8"],
            "Port": 8080, "PortRange": {"Min": 1000, "Max": 2000}}})"),
         Nat(0x01, 2, 0, 1000, 2000).Bytes(kNat + 4, {4, 3, 2, 1, 8, 7, 6, 5})},
        // The single address wins over the list; out-of-range ports stay zero.
        {Rule("", R"({"SnatFlag": true, "DnatFlag": true, "NatInfo": {"IpType": 1, "Ip6": "::2",
            "Ipv6s": ["::3"], "Port": 2147483647}})"),
         Nat(0x03, 1, 1, 0, 0).U8(kNat + 19, 2)},
        {Rule("", R"({"SnatFlag": true, "NatInfo": {"IpType": 2, "Ip": "1.2.3.4"}})"),
         Nat(0x01, 0, 2, 0, 0)},
        // Without a NAT flag NatInfo is not read at all.
        {Rule("", R"({"NatInfo": {"NatMode": 1, "Ip": "bad"}})"), Base()},
        // Conditional action values are read only with their flags.
        {Rule("", R"({"SetVpnId": 5, "SetPolicyId": 6, "SetDscpValue": 7})"), Base()},
        {Rule("", R"({"SetVpnFlag": true, "SetPolicyFlag": true, "SetDscpFlag": true,
            "RevOutForceFlag": true, "SetVpnId": 5, "SetPolicyId": 6, "SetDscpValue": 7})"),
         Base().Bytes(kAct, {0xD0, 0x01, 0, 0, 7}).U32(kAct + 12, 5).U32(kAct + 16, 6)},
    };
    ExpectForms(cases);
    EXPECT_EQ(log.find("not set Set"), std::string::npos) << log; // the last row has them all
}

TEST_F(RuleConv, MessagesNameWhatWasMissingOrRefused) {
    const std::string prefix = R"({"IpType": 0, "Ip": "1.1.1.1", "Mask": 32})";
    const std::string range = R"({"IpType": 0, "LowerIp": "1.1.1.1", "UpperIp": "1.1.1.2"})";
    const std::string port = R"({"LowerPort": 1, "UpperPort": 2})";
    const std::string output = R"({"Id": 1, "Priority": true, "Probe": true})";
    auto m = [](const std::string &body) { return Rule("{" + body + "}"); };
    auto srcIp = [](const char *item) {
        return Rule(std::string(R"({"SrcIpNum": 1, "SrcIp": [)") + item + "]}");
    };
    auto act = [](const std::string &body) { return Rule("", "{" + body + "}"); };
    auto nat = [](const std::string &body) {
        return Rule("", R"({"SnatFlag": true, "NatInfo": {)" + body + "}}");
    };
    const Message cases[] = {
        {R"({"VpnId": 2, "Id": 3, "RuleVer": 4, "Actions": {}})", -22, "Rule conf lack of Zone!",
         kBaseFn},
        {R"({"Zone": 1, "Id": 3, "RuleVer": 4, "Actions": {}})", -22, "Rule conf lack of VpnId!",
         kBaseFn},
        {R"({"Zone": 1, "VpnId": 2, "Id": 2147483647, "Actions": {}})", -132,
         "Rule conf lack of Id!", kBaseFn},
        {R"({"Zone": 1, "VpnId": 2, "Id": 3, "Actions": {}})", -22, "Rule conf lack of Version!",
         kBaseFn},
        {Rule(""), 0, "Rule conf not set Table!", kBaseFn, "Debug"},
        {Rule(""), 0, "Rule conf lack of CustomerId!", kBaseFn, "Debug"},
        {R"({"Zone": 1, "VpnId": 2, "Id": 3, "RuleVer": 4, "Match": {}})", -22,
         "Rule lack of actions", kRuleFn},
        {m(R"("SrcIpNum": 300)"), 0, "Rule match conf not set SrcIpNum!", kMatchFn, "Debug"},
        {act(R"("SetVpnFlag": true)"), 0, "Rule actions conf not set SetVpnId!", kActFn, "Debug"},
        {act(R"("SetDscpFlag": true)"), 0, "Rule actions conf not set SetDscpValue!", kActFn,
         "Debug"},
        // Deliberate texts naming the wrong count or array.
        {m(R"("DstIpNum": 2, "DstIpSetFlag": true, "DstIpSetName": "s", "DstIpRange": [)" + range +
           "]"),
         0, "dstIpRange array size is not equal to SrcIpNum, use array size!", kMatchFn, "Warning"},
        {m(R"("DstIpNum": 1, "DstIpSetFlag": true, "DstIpSetName": "s")"), 0, "Lack of SrcIp"},
        {m(R"("ProtoNum": 5, "Proto": [1, 2, 3])"), 0,
         "Proto array size is not equal to ProtoNum, use array size!", kMatchFn, "Warning"},
        {m(R"("TransIdNum": 2, "TransId": [1, null])"), -22, "empty [1] item for Dscp"},
        {m(R"("TransIdNum": 1, "TransId": [-4])"), -22, "Invalid param Dscp"},
        {m(R"("DscpNum": 1, "Dscp": 5)"), -22, "Invalid format, Dscp is not array!"},
        {act(R"("OutputNum": 2, "OutputArray": [{"Id": 1, "Priority": 0, "Probe": 0}])"), 0,
         "InPort array size is not equal to OutputNum, use array size!", kActFn, "Warning"},
        {act(R"("OutputNum": 1)"), -22, "Rule lack of OutputArray", kActFn},
        {act(R"("OutputNum": 1, "OutputArray": [)" + output + "]"), 0,
         "Lack of Type in output array item, use OutputType value", kActFn, "Debug"},
        {act(R"("OutputNum": 1, "OutputArray": [{"Id": 1, "Probe": 0}])"), -22,
         "Get Priority failed", kActFn},
        {nat(R"("NatIpMode": 1, "IpMasks": [null])"), -22, "empty [0] item for ipMasks", kActFn},
        {act(R"("DnatFlag": true, "NatInfo": {"NatIpMode": 2})"), -22,
         "Rule actions natInfo lack of IpRanges", kActFn},
        {nat(R"("IpType": 1)"), -22, "Ipv6s array is empty", kActFn},
        {nat(R"("IpType": 0)"), -22, "Ips array is empty", kActFn},
        {nat(R"("Ips": ["1.1.1.1"])"), 0, "Rule actions natInfo conf not set NatMode!", kActFn,
         "Debug"},
        {nat(R"("Ips": ["1.1.1.1"])"), 0, "Rule actions natInfo conf not set NatIpMode!", kActFn,
         "Debug"},
        {act(R"("OutputNum": 1, "OutputArray": [{"Priority": 0, "Probe": 0}])"), -22,
         "Get Id failed", kActFn},
        {act(R"("OutputNum": 1, "OutputArray": [{"Id": 1, "Priority": 0}])"), -22,
         "Get Probe failed", kActFn},
        {m(R"("SrcPortNum": 1, "SrcPort": [{"LowerPort": 1}])"), -22, "Get Port failed"},
        {m(R"("InPortNum": 1, "InPort": [{"Id": 1}])"), -22, "Get Type failed"},
        {m(R"("OutPortNum": 1, "OutPort": [{"Type": 1}])"), -22, "Get Id failed"},
        {nat(R"("Ips": ["1.1.1.1", null])"), -22, "ips[1] is null", kActFn},
        {nat(R"("Ips": ["1.2.3.4.5.6.7.8.9.0"])"), -132, "trans ip string to ip num failed",
         kActFn},
        // Address items.
        {srcIp(R"({"IpType": 0, "Ip": "10.0.0.256", "Mask": 8})"), -22,
         "trans ip string to ip num failed"},
        {srcIp(R"({"IpType": 1, "Ip6": "1:2", "Mask": 8})"), -22,
         "trans ipv6 string to ipv6 conf failed"},
        {srcIp(R"({"IpType": 0, "Ip": "010.001.002.003....", "Mask": 8})"), -132, "Get Ip failed"},
        {srcIp(R"({"IpType": 1, "Mask": 8})"), -22, "Get Ipv6 failed"},
        {srcIp(R"({"Ip": "10.1.2.3", "Mask": 8})"), -22, "Get IpType failed"},
        {srcIp(R"({"IpType": 0, "Ip": "10.1.2.3", "Mask": 256})"), -132, "get Mask failed"},
        // Names as long as their field.
        {m(R"("SrcIpSetFlag": true, "SrcIpSetName": ")" + std::string(64, 'n') + "\""), -132,
         "Get SrcIpSetName failed"},
        {m(R"("DstIpSetFlag": true, "DstIpSetName": ")" + std::string(64, 'n') + "\""), -132,
         "Get DstIpSetName failed"},
        {m(R"("AcsNameFlag": true, "AcsName": ")" + std::string(64, 'n') + "\""), -132,
         "Get AcsName failed"},
        // Lists longer than their room.
        {m(R"("SrcIpNum": 116, "SrcIp": )" + Repeat(prefix, 116)), -22,
         "Invalid format, srcIp is not array!"},
        {m(R"("SrcIpNum": 1, "SrcIpRangeFlag": 1, "SrcIpRange": )" + Repeat(range, 65)), -22,
         "Invalid format, srcIpRange is not array!"},
        {m(R"("DstPortNum": 1, "DstPort": )" + Repeat(port, 1025)), -22,
         "Invalid format, dstPort is not array!"},
        {m(R"("EthTypeNum": 1, "EthType": )" + Repeat("1", 65)), -22,
         "Invalid format, EthType is not array!"},
        {m(R"("TransIdNum": 1, "TransId": )" + Repeat("1", 193)), -22,
         "Invalid format, TransId is not array!"},
        {m(R"("OutPortNum": 1, "OutPort": )" + Repeat(R"({"Type": 1, "Id": 2})", 65)), -22,
         "Invalid format, OutPort is not array!"},
        {act(R"("OutputNum": 1, "OutputArray": )" + Repeat(output, 65)), -22,
         "Invalid format, OutputArray is not array!", kActFn},
        {nat(R"("Ips": )" + Repeat("\"1.1.1.1\"", 256)), -22,
         "Invalid format, DnsHost is not array!", kActFn},
        {nat(R"("IpType": 1, "Ipv6s": )" + Repeat("\"::1\"", 145)), -22,
         "Invalid format, DnsHost is not array!", kActFn},
    };
    ExpectMessages(kMatchFn, "OV_AgentRuleJsonStrToConf", cases, [this](const Message &c) {
        if (c.rc != 0 && (c.func == nullptr || c.func == kBaseFn)) {
            EXPECT_TRUE(Logged("Error", kRuleFn,
                               c.func == nullptr ? "Rule json to conf for match failed"
                                                 : "Rule json to conf for base param failed"));
        }
    });
    EXPECT_EQ(Convert("{"), -22);
    EXPECT_TRUE(Logged("Error", "OV_AgentRuleJsonStrToConf", "invalid rule string, not json"));
}

} // namespace
