// Tests of the rule converter: whole records byte for byte, the deliberate
// quirks, the early end of the match, refusals and the lines they log.
#include "agentconf/rule.h"

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr size_t kMatch = offsetof(AgentRuleConf, match);
constexpr size_t kAct = offsetof(AgentRuleConf, actions);
constexpr size_t kSrc = kMatch + 32;
constexpr size_t kDst = kMatch + 2336;

/// The expected record, built from offsets in a zeroed buffer.
using Expected = ovtest::RecordBytes<sizeof(AgentRuleConf)>;

/// The base every minimal rule below gives: Zone 1, VpnId 2, Id 3, RuleVer 4.
Expected MinimalBase() {
    Expected e;
    e.Put<uint8_t>(2, 1).Put<uint32_t>(12, 2).Put<uint32_t>(16, 3).Put<uint32_t>(8, 4);
    return e;
}

std::string Rule(const std::string &match, const std::string &actions = "{}",
                 const std::string &extra = "") {
    std::string text = R"({"Zone": 1, "VpnId": 2, "Id": 3, "RuleVer": 4)" + extra;
    if (!match.empty()) {
        text += R"(, "Match": )" + match;
    }
    return text + R"(, "Actions": )" + actions + "}";
}

std::string Repeat(const std::string &item, size_t n) {
    std::string out = "[";
    for (size_t i = 0; i < n; ++i) {
        out += (i == 0 ? "" : ",") + item;
    }
    return out + "]";
}

class RuleConv : public ovtest::ConverterTest {
  protected:
    /// Converts text into a fresh zeroed record; keeps what was logged.
    int32_t Convert(const std::string &text) {
        conf = std::make_unique<AgentRuleConf>();
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentRuleJsonStrToConf(conf.get(), text.c_str());
        out = cap.Take();
        return rc;
    }

    testing::AssertionResult Same(const Expected &want) const {
        return ovtest::SameRecord(*conf, want);
    }

    /// The logged line of a message, with its level, function and text.
    bool Logged(const char *level, const char *func, const std::string &text) const {
        std::string head = std::string("<") + level + ":AGENTCONF>[" + func + ":";
        for (const std::string &line : ovtest::Lines(out)) {
            if (line.find(head) != std::string::npos && line.size() >= text.size() + 2 &&
                line.compare(line.size() - text.size(), text.size(), text) == 0 &&
                line.compare(line.size() - text.size() - 2, 2, "] ") == 0) {
                return true;
            }
        }
        return false;
    }

    std::unique_ptr<AgentRuleConf> conf;
    std::string out;
};

constexpr const char *kMatchFn = "_OV_AgentRuleMatchJsonToConf";
constexpr const char *kActFn = "_OV_AgentRuleActionJsonToConf";
constexpr const char *kRuleFn = "_OV_AgentRuleJsonToConf";

TEST_F(RuleConv, ConvertsAFullUsageStyleRuleByteForByte) {
    // Bit 1 (DstIpSetFlag) is what makes the destination a range list, so the
    // name (empty here) goes with it.
    ASSERT_EQ(Convert(R"({"Table": 2, "Zone": 1, "DualFlag": true, "InvalidFlag": false,
        "ExcluFlag": true, "RevalFlag": true, "L2Flag": false, "L3Flag": true, "Id": 7,
        "RuleVer": 9, "VpnId": 5, "CustomerId": -1,
        "Match": {"SrcIpNum": 1, "DstIpNum": 1, "SrcPortNum": 1, "DstPortNum": 1, "ProtoNum": 2,
            "DstIpSetFlag": true, "DstIpSetName": "", "InVpnFlag": true, "InVpnId": 3,
            "InPolicyFlag": true, "InPolicyId": 8, "DstCustomerId": 9, "DstClientId": 10,
            "SrcIp": [{"IpType": 0, "Ip": "192.168.1.0", "Mask": 24}],
            "DstIpRange": [{"IpType": 0, "LowerIp": "10.0.0.1", "UpperIp": "10.0.0.100"}],
            "SrcPort": [{"LowerPort": 1024, "UpperPort": 65535}],
            "DstPort": [{"LowerPort": 80, "UpperPort": 80}], "Proto": [6, 17]},
        "Actions": {"AcceFlag": true, "ResubmitFlag": true, "OutputType": 1, "OutputNum": 2,
            "OutputStrategy": 3, "InboundRateLimitId": 11, "OutboundRateLimitId": 12,
            "OutputArray": [{"Id": 1, "Priority": true, "Probe": false},
                            {"Id": 2, "Priority": false, "Type": 4, "Probe": true}]}})"),
              0)
        << out;
    Expected e;
    e.Put<uint8_t>(1, 2).Put<uint8_t>(2, 1).Put<uint16_t>(4, 0x0035);
    e.Put<uint32_t>(8, 9).Put<uint32_t>(12, 5).Put<uint32_t>(16, 7).Put<uint32_t>(24, 0xFFFFFFFF);
    e.Put<uint8_t>(kMatch + 0, 1).Put<uint8_t>(kMatch + 1, 1).Put<uint16_t>(kMatch + 2, 1);
    e.Put<uint16_t>(kMatch + 4, 1).Put<uint8_t>(kMatch + 7, 2).Put<uint8_t>(kMatch + 13, 0xC2);
    e.Put<uint32_t>(kMatch + 16, 3).Put<uint32_t>(kMatch + 20, 8).Put<uint32_t>(kMatch + 24, 9);
    e.Put<uint32_t>(kMatch + 28, 10);
    e.Put<uint32_t>(kSrc, 0xC0A80100).Put<uint8_t>(kSrc + 17, 24);
    e.Put<uint32_t>(kDst + 4, 0x0A000001).Put<uint32_t>(kDst + 20, 0x0A000064);
    e.Put<uint16_t>(kMatch + 4704, 1024).Put<uint16_t>(kMatch + 4706, 65535);
    e.Put<uint16_t>(kMatch + 8800, 80).Put<uint16_t>(kMatch + 8802, 80);
    e.Put<uint8_t>(kMatch + 12896, 6).Put<uint8_t>(kMatch + 12897, 17);
    e.Put<uint8_t>(kAct + 0, 0x04).Put<uint8_t>(kAct + 1, 0x02).Put<uint8_t>(kAct + 2, 2);
    e.Put<uint8_t>(kAct + 3, 3).Put<uint32_t>(kAct + 20, 11).Put<uint32_t>(kAct + 24, 12);
    e.Put<uint32_t>(kAct + 28, 1).Put<uint8_t>(kAct + 32, 1).Put<uint8_t>(kAct + 33, 0x01);
    e.Put<uint32_t>(kAct + 36, 2).Put<uint8_t>(kAct + 40, 4).Put<uint8_t>(kAct + 41, 0x02);
    EXPECT_TRUE(Same(e));
    EXPECT_TRUE(Logged("Debug", kActFn, "Lack of Type in output array item, use OutputType value"));
    EXPECT_EQ(out.find("<Error"), std::string::npos) << out;
}

TEST_F(RuleConv, DestinationRangeFlagAloneReadsDstIpAndEndsTheMatchWhenItIsMissing) {
    // DstIpRangeFlag does not choose the list (bit 1 does, on purpose).
    ASSERT_EQ(Convert(Rule(R"({"DstIpNum": 1, "ProtoNum": 1, "DstIpRangeFlag": true,
        "DstIpRange": [{"IpType": 0, "LowerIp": "10.0.0.1", "UpperIp": "10.0.0.2"}],
        "Proto": [6]})")),
              0);
    EXPECT_TRUE(Logged("Error", kMatchFn, "Lack of DstIp"));
    Expected e = MinimalBase();
    e.Put<uint8_t>(kMatch + 1, 1).Put<uint8_t>(kMatch + 7, 1).Put<uint8_t>(kMatch + 13, 0x08);
    EXPECT_TRUE(Same(e));
}

TEST_F(RuleConv, SharedBitFiveTakesTheLaterFlag) {
    struct Case {
        const char *flags;
        uint16_t word;
    };
    const Case cases[] = {
        {R"(, "L2Flag": true, "L3Flag": false)", 0x0000},
        {R"(, "L2Flag": false, "L3Flag": true)", 0x0020},
        {R"(, "L2Flag": true)", 0x0020},
        {R"(, "RelatedFlag": 1, "ProbeFlag": "x", "TransitFlag": true, "InvalidFlag": 0)", 0x0508},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.flags);
        ASSERT_EQ(Convert(Rule("", "{}", c.flags)), 0);
        EXPECT_TRUE(Same(MinimalBase().Put<uint16_t>(4, c.word)));
    }
}

TEST_F(RuleConv, BaseRefusalsStopWithTheGettersResult) {
    struct Case {
        const char *text;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"({"VpnId": 2, "Id": 3, "RuleVer": 4, "Actions": {}})", -22, "Rule conf lack of Zone!"},
        {R"({"Zone": 256, "VpnId": 2, "Id": 3, "RuleVer": 4, "Actions": {}})", -132,
         "Rule conf lack of Zone!"},
        {R"({"Zone": 1, "Id": 3, "RuleVer": 4, "Actions": {}})", -22, "Rule conf lack of VpnId!"},
        {R"({"Zone": 1, "VpnId": 2, "RuleVer": 4, "Actions": {}})", -22, "Rule conf lack of Id!"},
        {R"({"Zone": 1, "VpnId": 2, "Id": 2147483647, "Actions": {}})", -132,
         "Rule conf lack of Id!"},
        {R"({"Zone": 1, "VpnId": 2, "Id": 3, "Actions": {}})", -22, "Rule conf lack of Version!"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Convert(c.text), c.rc);
        EXPECT_TRUE(Logged("Error", "_OV_AgentRuleBaseJsonToConf", c.message)) << out;
        EXPECT_TRUE(Logged("Error", kRuleFn, "Rule json to conf for base param failed"));
    }
    ASSERT_EQ(Convert(Rule("")), 0);
    EXPECT_TRUE(Logged("Debug", "_OV_AgentRuleBaseJsonToConf", "Rule conf not set Table!"));
    EXPECT_TRUE(Logged("Debug", "_OV_AgentRuleBaseJsonToConf", "Rule conf lack of CustomerId!"));
}

TEST_F(RuleConv, MatchIsOptionalAndActionsAreRequired) {
    ASSERT_EQ(Convert(Rule("")), 0);
    EXPECT_TRUE(Same(MinimalBase()));
    EXPECT_EQ(out.find("Rule match conf not set"), std::string::npos);

    EXPECT_EQ(Convert(R"({"Zone": 1, "VpnId": 2, "Id": 3, "RuleVer": 4, "Match": {}})"), -22);
    EXPECT_TRUE(Logged("Error", kRuleFn, "Rule lack of actions"));
    EXPECT_TRUE(Logged("Error", "OV_AgentRuleJsonStrToConf",
                       "Json to data struct failed(22:Invalid argument)"));

    EXPECT_EQ(Convert("{"), -22);
    EXPECT_TRUE(Logged("Error", "OV_AgentRuleJsonStrToConf", "invalid rule string, not json"));
}

TEST_F(RuleConv, ZeroOrRefusedCountLeavesItsListUnread) {
    // A bad item would fail the rule if the list were read.
    const char *bad = R"("SrcIp": [{"IpType": 0, "Ip": "not an address", "Mask": 8}])";
    for (const char *count : {R"("SrcIpNum": 0)", R"("SrcIpNum": 300)", R"("SrcIpNum": -1)"}) {
        SCOPED_TRACE(count);
        ASSERT_EQ(Convert(Rule(std::string("{") + count + ", " + bad + "}")), 0) << out;
        EXPECT_TRUE(Same(MinimalBase()));
    }
    EXPECT_TRUE(Logged("Debug", kMatchFn, "Rule match conf not set SrcIpNum!"));
}

TEST_F(RuleConv, MissingListEndsTheMatchWithSuccessAndLeavesTheRestZero) {
    ASSERT_EQ(Convert(Rule(R"({"SrcPortNum": 2, "DstPortNum": 1, "ProtoNum": 1, "InPortNum": 1,
        "DstPort": [{"LowerPort": 1, "UpperPort": 2}], "Proto": [6],
        "InPort": [{"Type": 1, "Id": 1}]})",
                           R"({"OutputNum": 1, "OutputArray": [{"Id": 9, "Priority": false,
        "Type": 1, "Probe": false}]})")),
              0);
    EXPECT_TRUE(Logged("Error", kMatchFn, "Lack of SrcPort"));
    EXPECT_EQ(out.find("Rule json to conf for match failed"), std::string::npos);
    Expected e = MinimalBase();
    e.Put<uint16_t>(kMatch + 2, 2).Put<uint16_t>(kMatch + 4, 1).Put<uint8_t>(kMatch + 7, 1);
    e.Put<uint8_t>(kMatch + 11, 1);
    e.Put<uint8_t>(kAct + 2, 1).Put<uint32_t>(kAct + 28, 9).Put<uint8_t>(kAct + 32, 1);
    EXPECT_TRUE(Same(e)); // actions still converted

    // The match converter itself reports plain success.
    OV_JsonPtr obj(json_tokener_parse(R"({"ProtoNum": 1})"));
    AgentRuleMatch m{};
    ovtest::StdoutCapture quiet;
    EXPECT_EQ(_OV_AgentRuleMatchJsonToConf(&m, obj.get()), 0);
}

TEST_F(RuleConv, ArrayLengthReplacesADifferentCount) {
    ASSERT_EQ(Convert(Rule(R"({"ProtoNum": 5, "Proto": [1, 2, 3],
        "EthTypeNum": 1, "EthType": [67584, 34525]})")),
              0);
    EXPECT_TRUE(Logged("Warning", kMatchFn,
                       "Proto array size is not equal to ProtoNum, use array "
                       "size!"));
    Expected e = MinimalBase();
    e.Put<uint8_t>(kMatch + 7, 3).Put<uint8_t>(kMatch + 12896, 1);
    e.Put<uint8_t>(kMatch + 12897, 2).Put<uint8_t>(kMatch + 12898, 3);
    // EthType values are cut to 16 bits.
    e.Put<uint8_t>(kMatch + 6, 2).Put<uint16_t>(kMatch + 13024, 0x0800);
    e.Put<uint16_t>(kMatch + 13026, 0x86DD);
    EXPECT_TRUE(Same(e));
}

TEST_F(RuleConv, DeliberateTextsNameTheWrongCountOrArray) {
    struct Case {
        std::string text;
        int32_t rc;
        const char *level;
        const char *func;
        const char *message;
    };
    const std::string range = R"({"IpType": 0, "LowerIp": "1.1.1.1", "UpperIp": "1.1.1.2"})";
    const Case cases[] = {
        {Rule(R"({"DstIpNum": 2, "DstIpSetFlag": true, "DstIpSetName": "s", "DstIpRange": [)" +
              range + "]}"),
         0, "Warning", kMatchFn, "dstIpRange array size is not equal to SrcIpNum, use array size!"},
        {Rule(R"({"DstIpNum": 1, "DstIpSetFlag": true, "DstIpSetName": "s"})"), 0, "Error",
         kMatchFn, "Lack of SrcIp"},
        {Rule(R"({"TransIdNum": 2, "TransId": [1, null]})"), -22, "Error", kMatchFn,
         "empty [1] item for Dscp"},
        {Rule(R"({"TransIdNum": 1, "TransId": [-4]})"), -22, "Error", kMatchFn,
         "Invalid param Dscp"},
        {Rule(R"({"DscpNum": 1, "Dscp": 5})"), -22, "Error", kMatchFn,
         "Invalid format, Dscp is not array!"},
        {Rule("", R"({"OutputNum": 2, "OutputArray": [{"Id": 1, "Priority": 0, "Probe": 0}]})"), 0,
         "Warning", kActFn, "InPort array size is not equal to OutputNum, use array size!"},
        {Rule("", R"({"OutputNum": 1})"), -22, "Error", kActFn, "Rule lack of OutputArray"},
        {Rule("", R"({"OutputNum": 1, "OutputArray": [{"Id": 1, "Probe": 0}]})"), -22, "Error",
         kActFn, "Get Priority failed"},
        {Rule("", R"({"DnatFlag": true, "NatInfo": {"NatIpMode": 1, "IpMasks": {}}})"), -22,
         "Error", kActFn, "Invalid format, OutputArray is not array!"},
        {Rule("", R"({"DnatFlag": true, "NatInfo": {"NatIpMode": 2}})"), -22, "Error", kActFn,
         "Rule actions natInfo lack of IpRanges"},
        {Rule("", R"({"SnatFlag": true, "NatInfo": {"NatIpMode": 3, "Ips": "1.1.1.1"}})"), -22,
         "Error", kActFn, "Invalid format, DnsHost is not array!"},
        {Rule("", R"({"SnatFlag": true, "NatInfo": {"IpType": 1}})"), -22, "Error", kActFn,
         "Ipv6s array is empty"},
        {Rule("", R"({"SnatFlag": true, "NatInfo": {"Ips": ["1.1.1.1", null]}})"), -22, "Error",
         kActFn, "ips[1] is null"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Convert(c.text), c.rc);
        EXPECT_TRUE(Logged(c.level, c.func, c.message)) << out;
    }
}

TEST_F(RuleConv, AddressItemsAndTheirRefusals) {
    struct Case {
        const char *item;
        int32_t rc;
        const char *message; // nullptr: converts
    };
    const Case cases[] = {
        {R"({"IpType": 0, "Ip": " 10.1.2.3 ", "Mask": 8})", 0, nullptr},
        {R"({"IpType": 1, "Ip6": "2001:db8::1", "Mask": 64})", 0, nullptr},
        {R"({"IpType": 7, "Ip": "10.1.2.3", "Mask": 9})", 0, nullptr},
        {R"({"IpType": 0, "Ip": "10.0.0.256", "Mask": 8})", -22,
         "trans ip string to ip num failed"},
        {R"({"IpType": 1, "Ip6": "1:2", "Mask": 8})", -22, "trans ipv6 string to ipv6 conf failed"},
        {R"({"IpType": 0, "Ip": "010.001.002.003....", "Mask": 8})", -132, "Get Ip failed"},
        {R"({"IpType": 1, "Mask": 8})", -22, "Get Ipv6 failed"},
        {R"({"Ip": "10.1.2.3", "Mask": 8})", -22, "Get IpType failed"},
        {R"({"IpType": 0, "Ip": "10.1.2.3", "Mask": 256})", -132, "get Mask failed"},
    };
    const uint8_t v6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.item);
        int32_t rc = Convert(Rule(std::string(R"({"SrcIpNum": 1, "SrcIp": [)") + c.item + "]}"));
        EXPECT_EQ(rc, c.rc);
        if (c.message != nullptr) {
            EXPECT_TRUE(Logged("Error", kMatchFn, c.message)) << out;
            EXPECT_TRUE(Logged("Error", kRuleFn, "Rule json to conf for match failed"));
        }
    }
    const char *items = R"({"SrcIpNum": 1, "SrcIpRangeFlag": true, "SrcIpRange": [{"IpType": 1,
        "LowerIpv6": "2001:db8::1", "UpperIpv6": "::ffff:10.0.0.1"}]})";
    ASSERT_EQ(Convert(Rule(items)), 0);
    Expected e = MinimalBase();
    e.Put<uint8_t>(kMatch, 1).Put<uint8_t>(kMatch + 13, 0x04).Put<uint8_t>(kSrc, 1);
    std::memcpy(e.bytes.data() + kSrc + 4, v6, 16);
    const uint8_t mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1};
    std::memcpy(e.bytes.data() + kSrc + 20, mapped, 16);
    EXPECT_TRUE(Same(e));
    // An unknown family keeps its IpType and its Mask, and no address.
    ASSERT_EQ(Convert(Rule(R"({"SrcIpNum": 1, "SrcIp": [{"IpType": 7, "Ip": "1.2.3.4",
        "Mask": 9}]})")),
              0);
    EXPECT_TRUE(Same(MinimalBase()
                         .Put<uint8_t>(kMatch, 1)
                         .Put<uint8_t>(kSrc + 16, 7)
                         .Put<uint8_t>(kSrc + 17, 9)));
}

TEST_F(RuleConv, NamesAndApiTypeAreReadByTheirFlagsAndWriteOverTheArea) {
    ASSERT_EQ(Convert(Rule(R"({"SrcIpSetFlag": true, "SrcIpSetName": "office",
        "DstIpSetFlag": true, "DstIpSetName": "abcdefgh", "DstIpApiFlag": true,
        "DstIpApiType": 258, "AcsNameFlag": true, "AcsName": "acs-1"})")),
              0);
    Expected e = MinimalBase();
    e.Put<uint8_t>(kMatch + 13, 0x33).Text(kSrc, "office").Text(kDst, "abcdefgh");
    e.Put<uint32_t>(kDst, 258).Text(kMatch + 4640, "acs-1");
    EXPECT_TRUE(Same(e));

    const std::string longName(64, 'n');
    for (const char *key : {"SrcIpSetName", "DstIpSetName", "AcsName"}) {
        SCOPED_TRACE(key);
        std::string flags = R"("SrcIpSetFlag": true, "DstIpSetFlag": true, "AcsNameFlag": true)";
        std::string names = R"(, "SrcIpSetName": "a", "DstIpSetName": "b", "AcsName": "c", )";
        EXPECT_EQ(Convert(Rule("{" + flags + names + "\"" + key + "\": \"" + longName + "\"}")),
                  -132);
        EXPECT_TRUE(Logged("Error", kMatchFn, std::string("Get ") + key + " failed"));
    }
}

TEST_F(RuleConv, RefusesListsLongerThanTheirRoom) {
    const std::string prefix = R"({"IpType": 0, "Ip": "1.1.1.1", "Mask": 32})";
    const std::string range = R"({"IpType": 0, "LowerIp": "1.1.1.1", "UpperIp": "1.1.1.1"})";
    const std::string port = R"({"LowerPort": 1, "UpperPort": 2})";
    const std::string ifPort = R"({"Type": 1, "Id": 2})";
    const std::string output = R"({"Id": 1, "Priority": true, "Probe": true})";
    struct Case {
        std::string text;
        const char *message;
        bool actions;
    };
    auto match = [](const std::string &body) { return Rule("{" + body + "}"); };
    auto acts = [](const std::string &body) { return Rule("", "{" + body + "}"); };
    auto nat = [](const std::string &body) {
        return Rule("", R"({"SnatFlag": true, "NatInfo": {)" + body + "}}");
    };
    const Case cases[] = {
        {match(R"("SrcIpNum": 116, "SrcIp": )" + Repeat(prefix, 116)),
         "Invalid format, srcIp is not array!", false},
        {match(R"("SrcIpNum": 1, "SrcIpRangeFlag": 1, "SrcIpRange": )" + Repeat(range, 65)),
         "Invalid format, srcIpRange is not array!", false},
        {match(R"("DstIpNum": 1, "DstIp": )" + Repeat(prefix, 116)),
         "Invalid format, dstIp is not array!", false},
        {match(R"("DstPortNum": 1, "DstPort": )" + Repeat(port, 1025)),
         "Invalid format, dstPort is not array!", false},
        {match(R"("EthTypeNum": 1, "EthType": )" + Repeat("1", 65)),
         "Invalid format, EthType is not array!", false},
        {match(R"("TransIdNum": 1, "TransId": )" + Repeat("1", 193)),
         "Invalid format, TransId is not array!", false},
        {match(R"("OutPortNum": 1, "OutPort": )" + Repeat(ifPort, 65)),
         "Invalid format, OutPort is not array!", false},
        {acts(R"("OutputNum": 1, "OutputArray": )" + Repeat(output, 65)),
         "Invalid format, OutputArray is not array!", true},
        {nat(R"("NatIpMode": 1, "IpMasks": )" + Repeat(prefix, 116)),
         "Invalid format, OutputArray is not array!", true},
        {nat(R"("NatIpMode": 2, "IpRanges": )" + Repeat(range, 65)),
         "Invalid format, OutputArray is not array!", true},
        {nat(R"("Ips": )" + Repeat("\"1.1.1.1\"", 256)), "Invalid format, DnsHost is not array!",
         true},
        {nat(R"("IpType": 1, "Ipv6s": )" + Repeat("\"::1\"", 145)),
         "Invalid format, DnsHost is not array!", true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.message);
        EXPECT_EQ(Convert(c.text), -22);
        EXPECT_TRUE(Logged("Error", c.actions ? kActFn : kMatchFn, c.message)) << out;
    }
    // Exactly full lists fit and end where their area ends.
    ASSERT_EQ(Convert(match(R"("SrcIpNum": 115, "SrcIp": )" + Repeat(prefix, 115) +
                            R"(, "TransIdNum": 192, "TransId": )" + Repeat("65535", 192))),
              0);
    EXPECT_EQ(conf->match.src.prefixes[114].mask, 32);
    EXPECT_EQ(conf->match.transId[191], 65535);
    EXPECT_EQ(conf->match.inPort[0].type, 0);
    ASSERT_EQ(Convert(nat(R"("Ips": )" + Repeat("\"1.1.1.1\"", 255))), 0);
    EXPECT_EQ(conf->actions.natIpNum, 255);
    EXPECT_EQ(conf->actions.natIps.ipv4s[254], 0x01010101u);
}

TEST_F(RuleConv, NatInfoFormsAndPorts) {
    struct Case {
        const char *actions;
        uint8_t count;
        std::vector<uint8_t> area; // the first bytes of the translated address area
        uint16_t min;
        uint16_t max;
    };
    const Case cases[] = {
        // DNAT reads Port; SNAT reads PortRange and ignores Port.
        {R"({"DnatFlag": true, "NatInfo": {"NatMode": 1, "NatIpMode": 3, "Ip": "10.0.0.1",
            "Port": 8080, "PortRange": {"Min": 1, "Max": 2}}})",
         1,
         {1, 0, 0, 10},
         8080,
         0},
        {R"({"SnatFlag": true, "NatInfo": {"NatIpMode": 0, "Ips": ["1.2.3.4", "5.6.7.8"],
            "Port": 8080, "PortRange": {"Min": 1000, "Max": 2000}}})",
         2,
         {4, 3, 2, 1, 8, 7, 6, 5},
         1000,
         2000},
        // The single address wins over the list; out-of-range ports stay zero.
        {R"({"SnatFlag": true, "DnatFlag": true, "NatInfo": {"IpType": 1, "Ip6": "::2",
            "Ipv6s": ["::3"], "Port": 2147483647}})",
         1,
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2},
         0,
         0},
        {R"({"SnatFlag": true, "NatInfo": {"IpType": 2, "Ip": "1.2.3.4"}})", 0, {}, 0, 0},
        {R"({"SnatFlag": true, "NatInfo": {"NatIpMode": 1, "IpMasks": [{"IpType": 1,
            "Ipv6": "::5", "Mask": 128}]}})",
         1,
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 1, 128},
         0,
         0},
        {R"({"DnatFlag": true, "NatInfo": {"NatIpMode": 2, "IpRanges": [{"IpType": 0,
            "LowerIp": "0.0.0.1", "UpperIp": "0.0.0.2"}]}})",
         1,
         {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2},
         0,
         0},
        // Without a NAT flag NatInfo is not read at all.
        {R"({"NatInfo": {"NatMode": 1, "Ip": "bad"}})", 0, {}, 0, 0},
        {R"({"SnatFlag": true})", 0, {}, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.actions);
        ASSERT_EQ(Convert(Rule("", c.actions)), 0) << out;
        const AgentRuleActions &a = conf->actions;
        EXPECT_EQ(a.natIpNum, c.count);
        std::vector<uint8_t> want(c.area);
        want.resize(sizeof a.natIps.raw);
        EXPECT_EQ(std::vector<uint8_t>(a.natIps.raw, a.natIps.raw + sizeof a.natIps.raw), want);
        EXPECT_EQ(a.natPortMin, c.min);
        EXPECT_EQ(a.natPortMax, c.max);
    }
    EXPECT_EQ(
        Convert(Rule("", R"({"SnatFlag": true, "NatInfo": {"Ips": ["1.2.3.4.5.6.7.8.9.0"]}})")),
        -132);
    EXPECT_TRUE(Logged("Error", kActFn, "trans ip string to ip num failed"));
}

TEST_F(RuleConv, ConditionalActionValuesAreReadOnlyWithTheirFlags) {
    const char *values = R"("SetVpnId": 5, "SetPolicyId": 6, "SetDscpValue": 7)";
    ASSERT_EQ(Convert(Rule("", std::string("{") + values + "}")), 0);
    EXPECT_TRUE(Same(MinimalBase()));
    ASSERT_EQ(Convert(Rule("", std::string(R"({"SetVpnFlag": true, "SetPolicyFlag": true,
        "SetDscpFlag": true, "RevOutForceFlag": true, )") +
                                   values + "}")),
              0);
    Expected e = MinimalBase();
    e.Put<uint8_t>(kAct, 0xD0).Put<uint8_t>(kAct + 1, 0x01).Put<uint8_t>(kAct + 4, 7);
    e.Put<uint32_t>(kAct + 12, 5).Put<uint32_t>(kAct + 16, 6);
    EXPECT_TRUE(Same(e));
    ASSERT_EQ(Convert(Rule("", R"({"SetVpnFlag": true})")), 0);
    EXPECT_TRUE(Logged("Debug", kActFn, "Rule actions conf not set SetVpnId!"));
}

} // namespace
