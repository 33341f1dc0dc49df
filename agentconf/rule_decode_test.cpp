// Tests of the rule record decoder: its JSON form and the round trip through
// the converter, on full, maximal, early-ended and delete records.
#include "agentconf/json_conv.h"
#include "agentconf/rule.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Record = std::vector<uint8_t>;

std::string Decoded(const Record &rec) {
    OV_JsonPtr obj(OV_AgentRuleRecordToJson(rec.data(), rec.size()));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

int32_t Convert(const std::string &text, Record *rec) {
    ovtest::StdoutCapture quiet;
    rec->assign(sizeof(AgentRuleConf), 0);
    return OV_AgentRuleJsonStrToConf(reinterpret_cast<AgentRuleConf *>(rec->data()), text.c_str());
}

/// Converts text, decodes the record and converts the decoded JSON again.
testing::AssertionResult RoundTrips(const std::string &text) {
    Record first;
    if (int32_t rc = Convert(text, &first); rc != 0) {
        return testing::AssertionFailure() << "first conversion gave " << rc;
    }
    std::string decoded = Decoded(first);
    Record second;
    if (int32_t rc = Convert(decoded, &second); rc != 0) {
        return testing::AssertionFailure() << "decoded JSON gave " << rc << ": " << decoded;
    }
    for (size_t i = 0; i < first.size(); ++i) {
        if (first[i] != second[i]) {
            return testing::AssertionFailure() << "byte " << i << " differs: " << int(first[i])
                                               << " vs " << int(second[i]) << " in " << decoded;
        }
    }
    return testing::AssertionSuccess();
}

std::string List(size_t n, const std::string &(*item)(size_t, std::string &)) {
    std::string out = "[";
    std::string buf;
    for (size_t i = 0; i < n; ++i) {
        out += (i == 0 ? "" : ",") + item(i, buf);
    }
    return out + "]";
}

const std::string &V4Prefix(size_t i, std::string &buf) {
    buf = R"({"IpType": 0, "Ip": "10.0.)" + std::to_string(i) + R"(.1", "Mask": )" +
          std::to_string(i % 33) + "}";
    return buf;
}
const std::string &V6Range(size_t i, std::string &buf) {
    buf = R"({"IpType": 1, "LowerIpv6": "fe80::)" + std::to_string(i + 1) +
          R"(", "UpperIpv6": "ffff:)" + std::to_string(i) + R"(::ffff"})";
    return buf;
}
const std::string &V4Range(size_t i, std::string &buf) {
    buf = R"({"IpType": 0, "LowerIp": "1.2.3.)" + std::to_string(i) + R"(", "UpperIp": "255.)" +
          std::to_string(i) + R"(.0.9"})";
    return buf;
}
const std::string &V6Prefix(size_t i, std::string &buf) {
    buf = R"({"IpType": 1, "Ipv6": "2001:db8:)" + std::to_string(i) + R"(::", "Mask": 48})";
    return buf;
}
const std::string &Port(size_t i, std::string &buf) {
    buf = R"({"LowerPort": )" + std::to_string(i) + R"(, "UpperPort": )" +
          std::to_string(65535 - i) + "}";
    return buf;
}
const std::string &Number(size_t i, std::string &buf) {
    buf = std::to_string(i * 257 % 65536);
    return buf;
}
const std::string &IfPort(size_t i, std::string &buf) {
    buf = R"({"Type": )" + std::to_string(i) + R"(, "Id": -)" + std::to_string(i + 1) + "}";
    return buf;
}
const std::string &Output(size_t i, std::string &buf) {
    buf = R"({"Id": )" + std::to_string(i * 1000) + R"(, "Priority": )" +
          (i % 2 == 0 ? "true" : "false") + R"(, "Type": 7, "Probe": )" +
          (i % 3 == 0 ? "true" : "false") + "}";
    return buf;
}

const char *kBase = R"("Table": 4, "Zone": 255, "DualFlag": true, "InvalidFlag": true,
    "ExcluFlag": true, "RelatedFlag": true, "RevalFlag": true, "L2Flag": true, "L3Flag": true,
    "ProbeFlag": true, "TransitFlag": true, "VpnId": -1, "CustomerId": -2147483647, "Id": 65536,
    "RuleVer": 2147483646)";

const char *kSample = R"({"Table": 0, "Zone": 1, "DualFlag": true, "InvalidFlag": false,
    "ExcluFlag": false, "RevalFlag": true, "L2Flag": true, "L3Flag": true, "Id": 1,
    "RuleVer": 1, "VpnId": 1,
    "Match": {"SrcIpNum": 1, "DstIpNum": 1, "SrcPortNum": 1, "DstPortNum": 1, "ProtoNum": 2,
        "DstIpSetFlag": true, "DstIpSetName": "",
        "SrcIp": [{"IpType": 0, "Ip": "192.168.1.0", "Mask": 24}],
        "DstIpRange": [{"IpType": 0, "LowerIp": "10.0.0.1", "UpperIp": "10.0.0.100"}],
        "SrcPort": [{"LowerPort": 1024, "UpperPort": 65535}],
        "DstPort": [{"LowerPort": 80, "UpperPort": 80}], "Proto": [6, 17]},
    "Actions": {"OutputType": 1, "OutputNum": 1, "OutputStrategy": 0,
        "OutputArray": [{"Id": 1, "Priority": true, "Probe": false}]}})";

TEST(DecodeRule, RefusesAnyOtherLength) {
    Record rec(sizeof(AgentRuleConf) + 1);
    EXPECT_EQ(OV_AgentRuleRecordToJson(rec.data(), rec.size()), nullptr);
    EXPECT_EQ(OV_AgentRuleRecordToJson(rec.data(), rec.size() - 2), nullptr);
    EXPECT_EQ(OV_AgentRuleRecordToJson(nullptr, sizeof(AgentRuleConf)), nullptr);
}

TEST(DecodeRule, ShowsTheSampleReadablyAndRoundTrips) {
    Record rec;
    ASSERT_EQ(Convert(kSample, &rec), 0);
    std::string text = Decoded(rec);
    for (const char *part : {
             R"("Zone":1,"DualFlag":true,)",
             R"("L2Flag":true,"L3Flag":true,)",
             R"("SrcIp":[{"IpType":0,"Ip":"192.168.1.0","Mask":24}])",
             R"("DstIpRange":[{"IpType":0,"LowerIp":"10.0.0.1","UpperIp":"10.0.0.100"}])",
             R"("DstIpSetName":"")",
             R"("Proto":[6,17])",
             R"("OutputArray":[{"Id":1,"Priority":true,"Type":1,"Probe":false}])",
         }) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
    EXPECT_TRUE(RoundTrips(kSample));
}

TEST(DecodeRule, RoundTripsMaximalRecords) {
    const std::string match1 =
        std::string(R"({"SrcIpNum": 115, "SrcIp": )") + List(115, V4Prefix) +
        R"(, "DstIpNum": 64, "DstIpSetFlag": true, "DstIpRange": )" + List(64, V6Range) +
        R"(, "DstIpSetName": ")" + std::string(63, 'z') +
        R"(", "DstIpApiFlag": true, "DstIpApiType": -5, "AcsNameFlag": true, "AcsName": ")" +
        std::string(63, 'a') + R"(", "InVpnFlag": true, "InVpnId": -3, "InPolicyFlag": true,
        "InPolicyId": 4, "DstCustomerId": 5, "DstClientId": 6,
        "SrcPortNum": 1024, "SrcPort": )" +
        List(1024, Port) + R"(, "DstPortNum": 1024, "DstPort": )" + List(1024, Port) +
        R"(, "EthTypeNum": 64, "EthType": )" + List(64, Number) + R"(, "ProtoNum": 64, "Proto": )" +
        List(64, Number) + R"(, "DscpNum": 64, "Dscp": )" + List(64, Number) +
        R"(, "TransIdNum": 192, "TransId": )" + List(192, Number) +
        R"(, "InPortNum": 64, "InPort": )" + List(64, IfPort) +
        R"(, "OutPortNum": 64, "OutPort": )" + List(64, IfPort) + "}";
    const std::string match2 = std::string(R"({"SrcIpNum": 64, "SrcIpRangeFlag": true,
        "SrcIpRange": )") + List(64, V4Range) +
                               R"(, "SrcIpSetFlag": true, "SrcIpSetName": "set-a",
        "DstIpNum": 115, "DstIp": )" +
                               List(115, V4Prefix) +
                               R"(, "DstIpApiFlag": true, "DstIpApiType": 77})";
    const std::string actions = std::string(R"({"SnatFlag": true, "DnatFlag": true,
        "AcceFlag": true, "SetVpnFlag": true, "SetDscpFlag": true, "SetPolicyFlag": true,
        "RevOutForceFlag": true, "ResubmitFlag": true, "OutputNum": 64, "OutputStrategy": 255,
        "InboundRateLimitId": -1, "OutboundRateLimitId": 9, "SetVpnId": 10, "SetPolicyId": -11,
        "SetDscpValue": 63, "OutputArray": )") +
                                List(64, Output) + R"(, "NatInfo": {"NatMode": 9, "NatIpMode": 1,
        "IpType": 1, "IpMasks": )" +
                                List(115, V6Prefix) + R"(, "Port": 65535}})";
    EXPECT_TRUE(RoundTrips("{" + std::string(kBase) + R"(, "Match": )" + match1 +
                           R"(, "Actions": )" + actions + "}"));
    EXPECT_TRUE(
        RoundTrips("{" + std::string(kBase) + R"(, "Match": )" + match2 + R"(, "Actions": {}})"));

    std::string ips = "[";
    std::string ipv6s = "[";
    for (int i = 0; i < 255; ++i) {
        ips += (i == 0 ? "\"" : ",\"") + std::to_string(i) + ".1.2.3\"";
        if (i < 144) {
            ipv6s +=
                (i == 0 ? "\"" : ",\"") + std::string("1:2:3:4:5:6:7:") + std::to_string(i) + "\"";
        }
    }
    const std::string nats[] = {
        R"({"NatIpMode": 2, "IpRanges": )" + List(64, V4Range) + "}",
        R"({"NatIpMode": 3, "Ips": )" + ips + "]}",
        R"({"NatIpMode": 0, "IpType": 1, "Ipv6s": )" + ipv6s + "]}",
        R"({"NatIpMode": 0, "IpType": 1, "Ip6": "::"})",
        R"({"NatIpMode": 5, "IpType": 9})",
        R"({"NatIpMode": 1, "IpMasks": []})",
    };
    for (const std::string &nat : nats) {
        for (const char *flag : {"SnatFlag", "DnatFlag"}) {
            SCOPED_TRACE(nat.substr(0, 40) + flag);
            EXPECT_TRUE(RoundTrips("{" + std::string(kBase) + R"(, "Actions": {")" + flag +
                                   R"(": true, "NatInfo": )" + nat.substr(0, nat.size() - 1) +
                                   R"(, "Port": 7, "PortRange": {"Min": 8, "Max": 9}}}})"));
        }
    }
}

TEST(DecodeRule, RoundTripsListsPartlyWrittenOverByNamesAndApiType) {
    // Every name length over every list kind and family: the entries whose
    // IpType byte a name covers must still convert back to the same bytes.
    for (size_t len = 0; len < 64; len += 1) {
        const std::string name(len, static_cast<char>('A' + len % 26));
        for (int variant = 0; variant < 6; ++variant) {
            SCOPED_TRACE(std::to_string(len) + "/" + std::to_string(variant));
            bool api = variant % 2 == 1;
            std::string m;
            if (variant < 4) {
                m = std::string(R"("DstIpNum": 3, "DstIpSetFlag": true, "DstIpRange": )") +
                    List(3, variant < 2 ? V4Range : V6Range) + R"(, "DstIpSetName": ")" + name +
                    "\"";
            } else {
                m = std::string(R"("SrcIpNum": 4, "SrcIpSetFlag": true, "SrcIp": )") +
                    List(4, V4Prefix) + R"(, "SrcIpSetName": ")" + name + "\"";
            }
            if (api) {
                m += R"(, "DstIpApiFlag": true, "DstIpApiType": 16909060)";
            }
            EXPECT_TRUE(RoundTrips(R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {)" +
                                   m + R"(}, "Actions": {}})"));
        }
    }
    // An IPv6 prefix list under an API type, and a name with control bytes.
    EXPECT_TRUE(RoundTrips(R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {
        "DstIpNum": 2, "DstIp": [{"IpType": 1, "Ip6": "1::2", "Mask": 3},
        {"IpType": 9, "Mask": 4}], "DstIpApiFlag": true, "DstIpApiType": 0,
        "SrcIpSetFlag": true, "SrcIpSetName": "a\u0001\"b\\c"}, "Actions": {}})"));
}

TEST(DecodeRule, RoundTripsMatchesEndedEarly) {
    const char *matches[] = {
        R"({"SrcPortNum": 5000, "DstPortNum": 3, "ProtoNum": 2})",
        R"({"SrcIpNum": 200, "DstIpNum": 1, "InPortNum": 255})",
        R"({"SrcIpNum": 65, "SrcIpRangeFlag": true, "SrcIpSetFlag": true})",
        R"({"DstIpNum": 70, "DstIpSetFlag": true, "DstIpApiFlag": true, "AcsNameFlag": true})",
        R"({"SrcIpNum": 2, "SrcIpSetFlag": true, "TransIdNum": 250, "OutPortNum": 65})",
        R"({"ProtoNum": 1, "Proto": [1], "TransIdNum": 200, "OutPortNum": 1})",
    };
    for (const char *m : matches) {
        SCOPED_TRACE(m);
        EXPECT_TRUE(RoundTrips(std::string(R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1,
            "Match": )") + m + R"(, "Actions": {}})"));
    }
}

TEST(DecodeRule, DecodesADeleteRecord) {
    Record rec(sizeof(AgentRuleConf), 0);
    rec[2] = 7;
    const uint32_t id = 4000000000u;
    std::memcpy(rec.data() + 16, &id, sizeof id);
    std::string text = Decoded(rec);
    EXPECT_NE(text.find(R"("Zone":7,)"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("Id":-294967296,)"), std::string::npos) << text;
    Record again;
    ASSERT_EQ(Convert(text, &again), 0);
    EXPECT_EQ(again, rec);
}

} // namespace
