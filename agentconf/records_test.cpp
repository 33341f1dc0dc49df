// Tests over the protocol description: every command resolves back from its
// request; every record kind converts, decodes to the JSON an operator reads
// and converts again to the same bytes; every decoder refuses other lengths
// and stays inside the record whatever it holds.
#include "agentconf/acsname.h"
#include "agentconf/engine.h"
#include "agentconf/json_conv.h"
#include "agentconf/records.h"
#include "base/mem.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using ovtest::List;
using std::to_string;

TEST(Protocol, EveryRequestNamesTheCommandThatSendsIt) {
    for (const CommandSpec &cmd : kCommands) {
        SCOPED_TRACE(cmd.word);
        std::vector<uint8_t> payload(OV_RequestSize(cmd), 0);
        if (cmd.kind == RecordKind::Engine) {
            payload[offsetof(AgentEngineParamConf, paramCode)] = static_cast<uint8_t>(cmd.id);
        }
        const CommandSpec *found = OV_CommandOfRequest(cmd.Module(), cmd.function, payload);
        ASSERT_NE(found, nullptr);
        // Every word but the engine rows has a (module, function) of its own.
        EXPECT_STREQ(found->word, cmd.word);
        EXPECT_EQ(OV_RecordSpecOf(cmd.kind).kind, cmd.kind);
    }
    std::vector<uint8_t> engine(sizeof(AgentEngineParamConf), 0);
    engine[offsetof(AgentEngineParamConf, paramCode)] = 4; // no such parameter
    EXPECT_EQ(OV_CommandOfRequest(8, 0, engine), nullptr);
    EXPECT_EQ(OV_CommandOfRequest(8, 0, {}), nullptr);
    EXPECT_EQ(OV_CommandOfRequest(3, 0x0007, {}), nullptr);
}

TEST(Protocol, PersistentFlagIsReadWhereEachKindKeepsIt) {
    struct Case {
        RecordKind kind;
        size_t offset;
        uint8_t byte;
    };
    // (offset, byte) sets the flag; every other byte of the record leaves it clear.
    const Case cases[] = {{RecordKind::LinkIp, 2, 0x01},   {RecordKind::Link, 8, 0x10},
                          {RecordKind::Conn, 110, 0x08},   {RecordKind::Ratelimit, 64, 0x80},
                          {RecordKind::AcsName, 68, 0x01}, {RecordKind::Shaper, 1, 0x01}};
    for (const Case &c : cases) {
        SCOPED_TRACE(OV_RecordSpecOf(c.kind).name);
        std::vector<uint8_t> rec(OV_RecordSpecOf(c.kind).size, 0xFF);
        rec[c.offset] = static_cast<uint8_t>(~c.byte);
        EXPECT_FALSE(OV_RecordIsPersistent(c.kind, rec));
        rec.assign(rec.size(), 0);
        rec[c.offset] = c.byte;
        EXPECT_TRUE(OV_RecordIsPersistent(c.kind, rec));
        EXPECT_FALSE(OV_RecordIsPersistent(c.kind, std::span(rec).first(c.offset)));
    }
    std::vector<uint8_t> rule(OV_RecordSpecOf(RecordKind::Rule).size, 0xFF);
    EXPECT_FALSE(OV_RecordIsPersistent(RecordKind::Rule, rule));
}

/// A little-endian value put into a zeroed record: as many bytes as it needs.
struct Put {
    size_t offset;
    uint64_t value;
};

std::vector<uint8_t> RecordOf(size_t size, const std::vector<Put> &puts) {
    std::vector<uint8_t> rec(size, 0);
    for (const Put &p : puts) {
        for (uint64_t v = p.value, at = p.offset; v != 0; v >>= 8, ++at) {
            rec.at(at) = static_cast<uint8_t>(v);
        }
    }
    return rec;
}

std::string Decoded(const OV_RecordSpec &kindInfo, const std::vector<uint8_t> &rec) {
    OV_JsonPtr obj(kindInfo.decode(rec.data(), rec.size()));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

/// A record as JSON for its converter, or (json empty) as the bytes a
/// request carries that no JSON gives; with parts of its decoded text.
struct Sample {
    std::string json;
    std::vector<std::string> shown = {};
    std::vector<Put> raw = {};
};

struct KindSamples {
    RecordKind kind;
    std::vector<Sample> samples;
};

void PrintTo(const KindSamples &k, std::ostream *os) {
    *os << OV_RecordSpecOf(k.kind).name;
}

class RecordRoundTrip : public ovtest::ConverterTest,
                        public testing::WithParamInterface<KindSamples> {
  protected:
    // The record bytes as sent, or empty when the converter refuses the text.
    static std::vector<uint8_t> Convert(const OV_RecordSpec &kindInfo, const std::string &json) {
        ovtest::StdoutCapture quiet; // the converters log every step
        std::vector<uint8_t> rec(kindInfo.size, 0);
        int32_t rc = kindInfo.convert(rec.data(), json.c_str());
        if (kindInfo.release != nullptr) {
            kindInfo.release(rec.data());
        }
        return rc == 0 ? rec : std::vector<uint8_t>{};
    }
};

TEST_P(RecordRoundTrip, DecodedRecordConvertsBackToTheSameBytes) {
    const OV_RecordSpec &kindInfo = OV_RecordSpecOf(GetParam().kind);
    for (const Sample &s : GetParam().samples) {
        SCOPED_TRACE(s.json.substr(0, 300));
        std::vector<uint8_t> first =
            s.json.empty() ? RecordOf(kindInfo.size, s.raw) : Convert(kindInfo, s.json);
        ASSERT_EQ(first.size(), kindInfo.size) << "refused";
        std::string text = Decoded(kindInfo, first);
        ASSERT_NE(text, "");
        for (const std::string &part : s.shown) {
            EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
        }
        EXPECT_TRUE(ovtest::SameBytes(Convert(kindInfo, text), first)) << text;
    }
}

std::string V4Prefix(size_t i) {
    return R"({"IpType": 0, "Ip": "10.0.)" + to_string(i) + R"(.1", "Mask": )" + to_string(i % 33) +
           "}";
}
std::string V4Range(size_t i) {
    return R"({"IpType": 0, "LowerIp": "1.2.3.)" + to_string(i) + R"(", "UpperIp": "255.)" +
           to_string(i) + R"(.0.9"})";
}
// Odd entries use only the bytes an IPv4 range uses too: their family shows
// only in their IpType byte.
std::string V6Range(size_t i) {
    return i % 2 == 0 ? R"({"IpType": 1, "LowerIpv6": "fe80::)" + to_string(i + 1) +
                            R"(", "UpperIpv6": "ffff:)" + to_string(i) + R"(::ffff"})"
                      : R"({"IpType": 1, "LowerIpv6": ")" + to_string(i) +
                            R"(::", "UpperIpv6": "ffff::"})";
}
std::string Number(size_t i) {
    return to_string(i * 257 % 65536);
}

std::vector<Sample> RuleSamples() {
    const std::string base = R"({"Table": 4, "Zone": 255, "DualFlag": true, "InvalidFlag": true,
        "ExcluFlag": true, "RelatedFlag": true, "RevalFlag": true, "L2Flag": true,
        "L3Flag": true, "ProbeFlag": true, "TransitFlag": true, "VpnId": -1,
        "CustomerId": -2147483647, "Id": 65536, "RuleVer": 2147483646)";
    auto port = [](size_t i) {
        return R"({"LowerPort": )" + to_string(i) + R"(, "UpperPort": )" + to_string(65535 - i) +
               "}";
    };
    auto ifPort = [](size_t i) {
        return R"({"Type": )" + to_string(i) + R"(, "Id": -)" + to_string(i + 1) + "}";
    };
    auto output = [](size_t i) {
        return R"({"Id": )" + to_string(i * 1000) + R"(, "Priority": )" +
               (i % 2 == 0 ? "true" : "false") + R"(, "Type": 7, "Probe": )" +
               (i % 3 == 0 ? "true" : "false") + "}";
    };
    auto v6Prefix = [](size_t i) {
        return R"({"IpType": 1, "Ipv6": "2001:db8:)" + to_string(i) + R"(::", "Mask": 48})";
    };
    std::vector<Sample> out = {
        {R"({"Table": 0, "Zone": 1, "DualFlag": true, "InvalidFlag": false, "ExcluFlag": false,
            "RevalFlag": true, "L2Flag": true, "L3Flag": true, "Id": 1, "RuleVer": 1,
            "VpnId": 1, "Match": {"SrcIpNum": 1, "DstIpNum": 1, "SrcPortNum": 1,
            "DstPortNum": 1, "ProtoNum": 2, "DstIpSetFlag": true, "DstIpSetName": "",
            "SrcIp": [{"IpType": 0, "Ip": "192.168.1.0", "Mask": 24}],
            "DstIpRange": [{"IpType": 0, "LowerIp": "10.0.0.1", "UpperIp": "10.0.0.100"}],
            "SrcPort": [{"LowerPort": 1024, "UpperPort": 65535}],
            "DstPort": [{"LowerPort": 80, "UpperPort": 80}], "Proto": [6, 17]},
            "Actions": {"OutputType": 1, "OutputNum": 1, "OutputStrategy": 0,
            "OutputArray": [{"Id": 1, "Priority": true, "Probe": false}]}})",
         {R"("SrcIp":[{"IpType":0,"Ip":"192.168.1.0","Mask":24}])",
          R"("DstIpRange":[{"IpType":0,"LowerIp":"10.0.0.1","UpperIp":"10.0.0.100"}])"}},
        // Every list full.
        {base + R"(, "Match": {"SrcIpNum": 115, "SrcIp": )" + List(115, V4Prefix) +
         R"(, "DstIpNum": 64, "DstIpSetFlag": true, "DstIpRange": )" + List(64, V6Range) +
         R"(, "DstIpSetName": ")" + std::string(63, 'z') +
         R"(", "DstIpApiFlag": true, "DstIpApiType": -5, "AcsNameFlag": true, "AcsName": ")" +
         std::string(63, 'a') + R"(", "InVpnFlag": true, "InVpnId": -3, "InPolicyFlag": true,
         "InPolicyId": 4, "DstCustomerId": 5, "DstClientId": 6, "SrcPortNum": 1024, "SrcPort": )" +
         List(1024, port) + R"(, "DstPortNum": 1024, "DstPort": )" + List(1024, port) +
         R"(, "EthTypeNum": 64, "EthType": )" + List(64, Number) +
         R"(, "ProtoNum": 64, "Proto": )" + List(64, Number) + R"(, "DscpNum": 64, "Dscp": )" +
         List(64, Number) + R"(, "TransIdNum": 192, "TransId": )" + List(192, Number) +
         R"(, "InPortNum": 64, "InPort": )" + List(64, ifPort) +
         R"(, "OutPortNum": 64, "OutPort": )" + List(64, ifPort) +
         R"(}, "Actions": {"SnatFlag": true, "DnatFlag": true, "AcceFlag": true,
         "SetVpnFlag": true, "SetDscpFlag": true, "SetPolicyFlag": true, "RevOutForceFlag": true,
         "ResubmitFlag": true, "OutputNum": 64, "OutputStrategy": 255, "InboundRateLimitId": -1,
         "OutboundRateLimitId": 9, "SetVpnId": 10, "SetPolicyId": -11, "SetDscpValue": 63,
         "OutputArray": )" +
         List(64, output) + R"(, "NatInfo": {"NatMode": 9, "NatIpMode": 1, "IpType": 1,
         "IpMasks": )" +
         List(115, v6Prefix) + R"(, "Port": 65535}}})"},
        {base + R"(, "Match": {"SrcIpNum": 64, "SrcIpRangeFlag": true, "SrcIpRange": )" +
         List(64, V4Range) + R"(, "SrcIpSetFlag": true, "SrcIpSetName": "set-a",
         "DstIpNum": 115, "DstIp": )" +
         List(115, V4Prefix) + R"(, "DstIpApiFlag": true, "DstIpApiType": 77}, "Actions": {}})"},
        // An IPv6 prefix list under an API type, and a name with control
        // bytes; no SetVpnId, SetPolicyId or SetDscpValue without their flags.
        {R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {"DstIpNum": 2,
            "DstIp": [{"IpType": 1, "Ip6": "1::2", "Mask": 3}, {"IpType": 9, "Mask": 4}],
            "DstIpApiFlag": true, "DstIpApiType": 0, "SrcIpSetFlag": true,
            "SrcIpSetName": "a\u0001\"b\\c"}, "Actions": {}})",
         {R"("OutboundRateLimitId":0}})"}},
        // A range list with no name over it keeps its IpType; one under a name
        // shows IPv6 for its ninth byte alone.
        {R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {"SrcIpNum": 1,
            "SrcIpRangeFlag": true, "SrcIpRange": [{"IpType": 1, "LowerIpv6": "1::", "UpperIpv6": "2::"}],
            "DstIpNum": 1, "DstIpSetFlag": true, "DstIpSetName": "s", "DstIpRange": [{"IpType": 1,
            "LowerIpv6": "0:0:100::", "UpperIpv6": "ffff:ffff::"}]}, "Actions": {}})"},
        // A delete carries the table's zone and the id.
        {"", {R"("Zone":7,)", R"("Id":-294967296,)"}, {{2, 7}, {16, 4000000000u}}},
    };
    // Each form of NAT addresses, with DNAT's Port and SNAT's PortRange.
    const std::string nats[] = {
        R"("NatIpMode": 2, "IpRanges": )" + List(64, V4Range),
        R"("NatIpMode": 3, "Ips": )" +
            List(255, [](size_t i) { return "\"" + to_string(i) + ".1.2.3\""; }),
        R"("NatIpMode": 0, "IpType": 1, "Ipv6s": )" +
            List(144, [](size_t i) { return "\"1:2:3:4:5:6:7:" + to_string(i) + "\""; }),
        R"("NatIpMode": 5, "IpType": 9)",
    };
    for (size_t i = 0; i < std::size(nats); ++i) {
        out.push_back({base + R"(, "Actions": {")" + (i % 2 == 0 ? "SnatFlag" : "DnatFlag") +
                       R"(": true, "NatInfo": {)" + nats[i] +
                       R"(, "Port": 7, "PortRange": {"Min": 8, "Max": 9}}}})"});
    }
    // A count larger than its list can hold ends the match: nothing after it
    // is shown, neither later lists nor the source set's name.
    for (const char *m : {R"("SrcPortNum": 5000, "DstPortNum": 3, "ProtoNum": 2)",
                          R"("SrcIpNum": 65, "SrcIpRangeFlag": true, "SrcIpSetFlag": true,
                             "DstIpNum": 1)"}) {
        out.push_back({std::string(R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {)") +
                           m + R"(}, "Actions": {}})",
                       {R"("DstClientId":0},"Actions")"}});
    }
    // Set names and the API type write over the lists' first entries: names that end just
    // before, on and after an entry's IpType byte.
    for (size_t len : {0, 1, 15, 16, 35, 36, 63}) {
        const std::string name(len, static_cast<char>('A' + len % 26));
        const std::string lists[] = {
            R"("DstIpNum": 3, "DstIpSetFlag": true, "DstIpRange": )" + List(3, V4Range) +
                R"(, "DstIpSetName": ")" + name + "\"",
            R"("DstIpNum": 3, "DstIpSetFlag": true, "DstIpRange": )" + List(3, V6Range) +
                R"(, "DstIpSetName": ")" + name + R"(", "DstIpApiFlag": true,
                "DstIpApiType": 16909060)",
            R"("SrcIpNum": 4, "SrcIpSetFlag": true, "SrcIp": )" + List(4, V4Prefix) +
                R"(, "SrcIpSetName": ")" + name + "\"",
        };
        for (const std::string &m : lists) {
            out.push_back({R"({"Zone": 1, "VpnId": 1, "Id": 1, "RuleVer": 1, "Match": {)" + m +
                           R"(}, "Actions": {}})"});
        }
    }
    return out;
}

std::vector<Sample> ConnSamples() {
    const std::string hex128(128, 'f');
    // Item 104 runs on into ConnOutBWLow with a value its getter refuses.
    std::string longPath =
        List(125, [](size_t i) { return to_string(i % 4 == 0 ? 2147483647 : 16843009 * i); });
    const std::string base = R"({"Label": 1, "Vni": 0, "NetId": 300, "VpnId": 9, "TimeStamp": 2)";
    return {
        {R"({"VpnId": -2, "Label": 2097151, "Vni": 7, "NetId": 255, "Mode": 2147483646,
            "WanId": -2147483647, "LanId": -1, "LocalIp": "255.255.255.255",
            "PeerIp": "255.255.255.254", "LocalIp6": "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
            "PeerIp6": "ffff::fffe", "CustomerId": -3, "PeerHostId": -4, "PortSeed": 255,
            "ProtoVersion": 255, "C2PFlag": 1, "PassiveFlag": 1, "MasterFlag": 1,
            "PersistentFlag": 1, "SimUserFlowFlag": 1, "IsIpv6LttFlag": 1, "MaxTxModeFlag": 1,
            "L2OnlyEncapIpHdrFlag": 1, "MinUsage": 1, "BackupFlag": 1, "LttDelEopResetFlag": 1,
            "ClearDFFlag": 1, "SessionId": -5, "Path": [2147483647, 2147483647, 2147483647,
            2147483647, 2147483647, 2147483647], "LinkNum": 255, "KeepaliveInterval": 255,
            "KeepaliveTimeout": 255, "TcpTunNum": 255, "UdpTunNum": 255, "Tos": 255,
            "EncryptAlgo": -6, "CryptoSuite": -7, "CipherKeyLen": 255, "HmacKeyLen": 255,
            "CipherKey": ")" +
         hex128 + R"(", "HmacKey": ")" + hex128 +
         R"(", "PeerUid": "0123456789012345678901234567890", "InitRtt": 65535, "CfgMtu": 65535,
            "KeyTimestamp": -8, "SlaCfg": {"ConnSRttLow": 65535, "ConnSRttHigh": 65535,
            "ConnOutBWLow": -9, "ConnOutBWHigh": -10, "ConnJitterLow": 65535,
            "ConnJitterHigh": 65535, "ConnLossRateLow": 65535, "ConnLossRateHigh": 65535},
            "TimeStamp": 9223372036854775807, "RatelimitInbound": [2147483647, 1, 2, 3, 4, 5],
            "RatelimitOutbound": [6, 7, 8, 9, 10, 2147483647], "BuddyConnId": -11,
            "MinTxKBps": -12})"},
        // Path running on into the fields after it.
        {base + R"(, "Path": )" + longPath + "}"},
        {base + R"(, "Path": )" + longPath +
         R"(, "LinkNum": 1, "KeepaliveInterval": 2, "KeepaliveTimeout": 3, "TcpTunNum": 4,
            "UdpTunNum": 5, "Tos": 6, "ClearDFFlag": false, "CipherKeyLen": 3, "HmacKeyLen": 70,
            "CipherKey": "010203", "HmacKey": "09", "PeerUid": "ab", "KeyTimestamp": 4,
            "InitRtt": 5, "CfgMtu": 6, "SlaCfg": {"ConnOutBWLow": 7}, "RatelimitInbound": [8, 9],
            "BuddyConnId": 10})"},
    };
}

std::vector<KindSamples> AllSamples() {
    return {
        {RecordKind::LinkIp,
         {{R"({"Type": 255, "SiteIpId": 255, "CustomerId": -1, "SiteId": -2, "VpnId": -3,
              "IpAddr": "0.0.0.0", "Ip6Addr": "2001:db8:0:0:1:0:3:4", "PersistentFlag": true})",
           // The longest run of two or more zero groups is the one compressed.
           {R"("Ip6Addr":"2001:db8::1:0:3:4")"}},
          {R"({"Type": 1, "SiteIpId": 0, "SiteId": 1, "Ip6Addr": "::ffff:1.2.3.4"})",
           {R"("Ip6Addr":"::ffff:102:304")"}},
          // A delete: type, wan id, client id at 8 and VPN id at 12.
          {"",
           {R"({"Type":1,"VpnId":9,"SiteIpId":3,"PersistentFlag":false,"CustomerId":0,)"
            R"("SiteId":7})"},
           {{0, 1}, {1, 3}, {8, 7}, {12, 9}}}}},
        {RecordKind::Link,
         {{R"({"NetId": -1, "LinkId": -1, "Role": true, "Simu": true, "Type": 7,
              "PersistentFlag": true, "Ipv6Flag": true, "Leased": true, "Mode": -2,
              "Thresh": 255, "ProtoVersion": 255, "WanId": 255, "LocalVpnId": -3,
              "PeerSiteIpId": 255, "PeerVpnId": 2147483646, "PeerSitePort": 65535,
              "PeerSiteId": -4, "PeerCustomerId": -5, "KeepaliveInterval": 255,
              "KeepaliveTimeout": 255})"},
          // A delete: net id in byte 0, link id in the low 24 bits at 4.
          {"", {R"({"NetId":44,"LinkId":2,"Role":false,)"}, {{0, 44}, {4, 2}}}}},
        {RecordKind::Conn, ConnSamples()},
        {RecordKind::GlobalArg,
         {{R"({ "Type": 25, "Lenth": 8, "Value64": 104448000})",
           {R"({"Type":25,"Lenth":8,"Value64":104448000})"}},
          {R"({"Type": 25, "Lenth": 8, "Value64": "18446744073709551615"})",
           {R"({"Type":25,"Lenth":8,"Value64":"18446744073709551615"})"}},
          {R"({"Type": 3, "Lenth": 4, "Value": 4294967295})",
           {R"({"Type":3,"Lenth":4,"Value":4294967295})"}},
          {R"({"Type": 65549, "Lenth": 4, "Range": [1000, 2000]})",
           {R"({"Type":13,"Lenth":4,"Range":[1000,2000]})"}},
          {R"({"Type": 39, "Lenth": 16, "Ipv6": "fe80::1"})",
           {R"({"Type":39,"Lenth":16,"Ipv6":"fe80::1"})"}}}},
        {RecordKind::Rule, RuleSamples()},
        {RecordKind::Ratelimit,
         {{R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 0, "PerIpCBS": 77})"},
          {R"({"RateLimitId": 1, "Type": 1, "PerSrcIpCBS": 5, "PerIpBucketRate": 0})"},
          {R"({"RateLimitId": -1, "RateLimitObjId": -2, "CustomerId": -3, "BucketRate": -4,
              "CBS": 9223372036854775807, "Type": -5, "PerSrcIpBucketRate": -6,
              "PerSrcIpCBS": 9223372036854775807, "PerDstIpBucketRate": 2147483646,
              "PerDstIpCBS": 1, "UpdateType": true, "UpdateBucketRate": true, "UpdateCBS": true,
              "UpdatePerSrcIpBucketRate": true, "UpdatePerDstIpBucketRate": true,
              "UpdatePerSrcIpCBS": true, "UpdatePerDstIpCBS": true, "PersistentFlag": true})"},
          {R"({"RateLimitId": 9, "Type": 2, "PerDstIpBucketRate": 500, "UpdateCBS": true})"},
          {"", {R"("RateLimitId":-294967296,)"}, {{0, 4000000000u}}}}},
        {RecordKind::AcsName,
         {{R"({"id": 7, "ascname": "office", "version": 5000000000, "persistentFlag": true,
              "ipset": ["lan", "dmz"], "Probe": {"Enable": true, "Protocol": 6, "Port": 443,
              "Interval": 5, "Timeout": 2, "Retries": 3, "Ip": "10.1.2.3",
              "Host": "probe.example.org"}})",
           {R"({"id":7,"ascname":"office","version":5000000000,"persistentFlag":true,)"
            R"("hasdomainsetid":false,"addrNum":0,"domainNum":0,"addrRequests":0,)"
            R"("domainRequests":0,"ipset":["lan","dmz"],)"
            R"("domainset":[],"Probe":{"Enable":true,"Protocol":6,"Port":443,"Interval":5,)"
            R"("Timeout":2,"Retries":3,"Ip":"10.1.2.3","Host":"probe.example.org"}})"}},
          {R"({"id": -2, "ascname": "x", "version": 9223372036854775807, "persistentFlag": true,
              "hasdomainsetid": true, "ipset": ["a", "b", "c"], "domainset": ["d"],
              "Probe": {"Enable": false, "Protocol": 255, "Port": 65535, "Interval": -3,
              "Timeout": 2147483646, "Retries": 0, "Ip6": "2001:db8::1", "Host": ""}})"},
          {R"({"id": 3, "ascname": ")" + std::string(63, 'n') +
           R"(", "version": 1, "Probe": {"Host": "h"}})"}}},
        {RecordKind::Shaper,
         {{R"({"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000,
              "inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0],
              "bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": [{"priority": 2,
              "inkbps": 1000000, "outkbps": 1000000}]}})",
           {R"({"shaperId":1,"sharedNum":1,"inBurstMs":100,"outBurstMs":100,)"
            R"("wanInKbps":100000,"wanKbps":100000,"persistentFlag":true,)"
            R"("bandDist":[2,2,8,8,8,8,8,0],)"
            R"("bandLimit":{"sharePriority":2,"num":1,"bandLimit":)"
            R"([{"priority":2,"inkbps":1000000,"outkbps":1000000}]},)"
            R"("guaranteeBandLimit":{"sharePriority":0,"num":0,"bandLimit":[]}})"}},
          // Every field at its widest, the first block running on over the second.
          {R"({"shaperId": 255, "sharedNum": 255, "persistentFlag": true,
              "wanKbps": 2147483646, "wanInKbps": 2147483646, "inBurstMs": 65535,
              "outBurstMs": 65535, "bandDist": [255, 254, 253, 252, 251, 250, 249, 248],
              "bandLimit": {"sharePriority": 255, "num": 16, "bandLimit": )" +
           ovtest::ShaperItems(16, 1000000000) +
           R"(}, "guaranteeBandLimit": {"sharePriority": 254, "num": 8, "bandLimit": )" +
           ovtest::ShaperItems(8, 1000000) + "}}"}}},
    };
}

INSTANTIATE_TEST_SUITE_P(EveryKind, RecordRoundTrip, testing::ValuesIn(AllSamples()),
                         [](const testing::TestParamInfo<KindSamples> &p) {
                             return std::string(OV_RecordSpecOf(p.param.kind).name);
                         });

class AcsNameRecord : public RecordRoundTrip {};

// The entries go in requests of their own: the decoded record shows how many
// there were.
TEST_F(AcsNameRecord, DecodedRecordCountsItsEntries) {
    const OV_RecordSpec &kindInfo = OV_RecordSpecOf(RecordKind::AcsName);
    std::vector<uint8_t> first = Convert(kindInfo, R"({"id": 4, "version": 2,
        "ipwithidlist": [{"id": 1, "ip": "1.2.3.4"}], "ipv6list": ["::1"],
        "domainwithidlist": [{"id": 2, "domain": "a.b"}]})");
    ASSERT_EQ(first.size(), kindInfo.size);
    std::string decoded = Decoded(kindInfo, first);
    EXPECT_NE(decoded.find(R"("addrNum":2,"domainNum":1,)"), std::string::npos) << decoded;
}

// Records only another sender gives (no JSON converts to them) are shown as
// they are.
TEST(RecordDecoder, ShowsRecordsNoConversionGives) {
    struct Case {
        RecordKind kind;
        std::vector<Put> raw;
        std::vector<std::string> shown;
    };
    const Case cases[] = {
        // Reserved bytes are not shown.
        {RecordKind::Engine,
         {{4, 21}, {8, 4000000000u}, {103, 0xFF}},
         {R"({"wanIndex":0,"paramCode":21,"value":4000000000})"}},
        // A tunnel delete: the key word, and the time stamp the agent compares.
        {RecordKind::Conn,
         {{4, 44u << 24 | 1u << 21 | 5}, {548, ~0ull}},
         {R"({"VpnId":0,"Label":5,"Vni":1,"NetId":44,)", R"("Path":[],)", R"("TimeStamp":-1,)"}},
        {RecordKind::GlobalArg,
         {{0, 28}, {8, 0xAB}, {23, 0x01}},
         {R"({"Type":28,"Lenth":0,"ValueHex":"ab000000000000000000000000000001"})"}},
        // Rates are unsigned on the agent's side.
        {RecordKind::Shaper,
         {{4, 0xFFFFFFFF},
          {8, 0x80000000},
          {126, 1},
          {128, 1},
          {132, 3000000000u},
          {136, 2147483648u}},
         {R"("wanInKbps":2147483648,"wanKbps":4294967295,)",
          R"({"priority":1,"inkbps":3000000000,"outkbps":2147483648})"}},
    };
    for (const Case &c : cases) {
        const OV_RecordSpec &kindInfo = OV_RecordSpecOf(c.kind);
        SCOPED_TRACE(kindInfo.name);
        std::string text = Decoded(kindInfo, RecordOf(kindInfo.size, c.raw));
        for (const std::string &part : c.shown) {
            EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
        }
    }
}

// Exactly the record's bytes on the heap, so a sanitizer sees any read past them.
TEST(RecordDecoder, RefusesOtherLengthsAndReadsOnlyTheRecord) {
    for (size_t k = 0; k < RECORD_KIND_COUNT; ++k) {
        const OV_RecordSpec &kindInfo = OV_RecordSpecOf(static_cast<RecordKind>(k));
        if (kindInfo.decode == nullptr) {
            continue;
        }
        SCOPED_TRACE(kindInfo.name);
        auto longer = std::make_unique<uint8_t[]>(kindInfo.size + 1);
        EXPECT_EQ(kindInfo.decode(longer.get(), kindInfo.size + 1), nullptr);
        EXPECT_EQ(kindInfo.decode(longer.get(), kindInfo.size - 1), nullptr);
        EXPECT_EQ(kindInfo.decode(nullptr, kindInfo.size), nullptr);
        for (uint8_t fill : {0x00, 0x5A, 0xFF}) {
            auto rec = std::make_unique<uint8_t[]>(kindInfo.size);
            std::memset(rec.get(), fill, kindInfo.size);
            OV_JsonPtr obj(kindInfo.decode(rec.get(), kindInfo.size));
            EXPECT_NE(obj, nullptr) << int{fill};
        }
    }
}

TEST(RecordDecoder, AccessNameCountsAndTextsStayInsideTheirFields) {
    std::vector<uint8_t> rec(sizeof(AgentAcsNameConf), 'a');
    rec[offsetof(AgentAcsNameConf, ipSetNum)] = 200;
    rec[offsetof(AgentAcsNameConf, domainSetNum)] = 33;
    rec[offsetof(AgentAcsNameConf, probe) + offsetof(AgentAcsProbe, ipType)] = 1;
    const std::string text = Decoded(OV_RecordSpecOf(RecordKind::AcsName), rec);
    const std::string name = '"' + std::string(64, 'a') + '"';
    for (const std::string &part :
         {R"("ascname":)" + name + ",", R"("ipset":)" + ovtest::Repeat(name, ACSNAME_SET_MAX) + ",",
          R"("domainset":)" + ovtest::Repeat(name, ACSNAME_SET_MAX) + ",",
          R"("Host":")" + std::string(ACSNAME_PROBE_HOST_LEN, 'a') + '"'}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
}

} // namespace
