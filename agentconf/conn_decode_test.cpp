// Tests of the connection record decoder: readable JSON that converts back to
// the same record bytes.
#include "agentconf/conn.h"
#include "agentconf/json_conv.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

const char *const kSampleWithVpnId =
    R"({"VpnId": 7, "Label": 100, "Vni": 1, "NetId": 1, "Mode": 1, "WanId": 1, "LanId": 2,)"
    R"( "LocalIp": "192.168.10.1", "PeerIp": "192.168.20.1", "LocalIp6": "2001:db8::1",)"
    R"( "PeerIp6": "2001:db8::2", "CustomerId": 1001, "PeerHostId": 2002, "PortSeed": 7,)"
    R"( "ProtoVersion": 2, "C2PFlag": true, "MasterFlag": true, "PersistentFlag": true,)"
    R"( "ClearDFFlag": true, "SessionId": 12345, "Path": [1, 2], "LinkNum": 2,)"
    R"( "KeepaliveInterval": 5, "KeepaliveTimeout": 15, "TcpTunNum": 1, "UdpTunNum": 2,)"
    R"( "Tos": 0, "EncryptAlgo": 1, "CryptoSuite": 1, "KeyLength": 32,)"
    R"( "InputKey": "3c0f7a21d94e5b86a1f2c7d03e98b4a5 6d1e8c2f0b7a94d35e6c1f8a2b0d947",)"
    R"( "HmacKeyLen": 20, "HmacKey": "00112233445566778899aabbccddeeff00112233",)"
    R"( "PeerUid": "peer-0001", "SlaCfg": {"ConnSRttLow": 15, "ConnSRttHigh": 21,)"
    R"( "ConnOutBWLow": 1000, "ConnOutBWHigh": 5000, "ConnLossRateLow": 10,)"
    R"( "ConnLossRateHigh": 30}, "TimeStamp": 1735689600000, "RatelimitInbound": [1],)"
    R"( "RatelimitOutbound": [2], "MinTxKBps": 100})";

std::string Differences(const AgentConnConf &want, const AgentConnConf &got) {
    const auto *w = reinterpret_cast<const uint8_t *>(&want);
    const auto *g = reinterpret_cast<const uint8_t *>(&got);
    std::string out;
    for (size_t i = 0; i < sizeof want; ++i) {
        if (w[i] != g[i]) {
            char line[48];
            std::snprintf(line, sizeof line, "@%zu want %02x got %02x\n", i, w[i], g[i]);
            out += line;
        }
    }
    return out;
}

OV_JsonPtr Decode(const AgentConnConf &conf) {
    return OV_JsonPtr(
        OV_AgentConnRecordToJson(reinterpret_cast<const uint8_t *>(&conf), sizeof conf));
}

/// Converts text into a zeroed record, keeping the converter's log quiet.
int32_t Convert(const std::string &text, AgentConnConf *conf) {
    ovtest::StdoutCapture quiet;
    *conf = {};
    return OV_AgentConnJsonStrToConf(conf, text.c_str());
}

/// Converts text, decodes the record, converts the decoded JSON again and
/// compares the two records. Returns the decoded JSON text.
std::string ExpectRoundTrip(const std::string &text) {
    AgentConnConf first{};
    EXPECT_EQ(Convert(text, &first), 0) << text;
    OV_JsonPtr decoded = Decode(first);
    if (decoded == nullptr) {
        ADD_FAILURE() << "not decoded";
        return {};
    }
    std::string json = json_object_to_json_string_ext(decoded.get(), JSON_C_TO_STRING_PLAIN);
    AgentConnConf second{};
    EXPECT_EQ(Convert(json, &second), 0) << json;
    EXPECT_EQ(Differences(first, second), "") << text << "\n" << json;
    return json;
}

std::string Get(json_object *obj, const char *key) {
    json_object *val = nullptr;
    if (!json_object_object_get_ex(obj, key, &val)) {
        return "<absent>";
    }
    return json_object_to_json_string_ext(val, JSON_C_TO_STRING_PLAIN);
}

TEST(DecodeConn, UsageSampleDecodesReadablyAndRoundTrips) {
    std::string json = ExpectRoundTrip(kSampleWithVpnId);
    OV_JsonPtr obj(json_tokener_parse(json.c_str()));
    EXPECT_EQ(Get(obj.get(), "LocalIp"), R"("192.168.10.1")");
    EXPECT_EQ(Get(obj.get(), "PeerIp6"), R"("2001:db8::2")");
    EXPECT_EQ(Get(obj.get(), "CipherKey"),
              R"("3c0f7a21d94e5b86a1f2c7d03e98b4a506d1e8c2f0b7a94d35e6c1f8a2b0d947")");
    EXPECT_EQ(Get(obj.get(), "PersistentFlag"), "true");
    EXPECT_EQ(Get(obj.get(), "PassiveFlag"), "false");
    EXPECT_EQ(Get(obj.get(), "Path"), "[1,2]");
    EXPECT_EQ(Get(obj.get(), "TimeStamp"), "1735689600000");
    EXPECT_EQ(Get(obj.get(), "PeerUid"), R"("peer-0001")");
}

TEST(DecodeConn, MaximalRecordRoundTrips) {
    std::string hex128(128, 'f');
    ExpectRoundTrip(
        R"({"VpnId": -2, "Label": 2097151, "Vni": 7, "NetId": 255, "Mode": 2147483646,)"
        R"( "WanId": -2147483647, "LanId": -1, "LocalIp": "255.255.255.255",)"
        R"( "PeerIp": "255.255.255.254", "LocalIp6": "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",)"
        R"( "PeerIp6": "ffff::fffe", "CustomerId": -3, "PeerHostId": -4, "PortSeed": 255,)"
        R"( "ProtoVersion": 255, "C2PFlag": 1, "PassiveFlag": 1, "MasterFlag": 1,)"
        R"( "PersistentFlag": 1, "SimUserFlowFlag": 1, "IsIpv6LttFlag": 1, "MaxTxModeFlag": 1,)"
        R"( "L2OnlyEncapIpHdrFlag": 1, "MinUsage": 1, "BackupFlag": 1, "LttDelEopResetFlag": 1,)"
        R"( "ClearDFFlag": 1, "SessionId": -5, "Path": [2147483647, 2147483647, 2147483647,)"
        R"( 2147483647, 2147483647, 2147483647], "LinkNum": 255, "KeepaliveInterval": 255,)"
        R"( "KeepaliveTimeout": 255, "TcpTunNum": 255, "UdpTunNum": 255, "Tos": 255,)"
        R"( "EncryptAlgo": -6, "CryptoSuite": -7, "CipherKeyLen": 255, "HmacKeyLen": 255,)"
        R"( "CipherKey": ")" +
        hex128 + R"(", "HmacKey": ")" + hex128 +
        R"(", "PeerUid": "0123456789012345678901234567890", "InitRtt": 65535,)"
        R"( "CfgMtu": 65535, "KeyTimestamp": -8, "SlaCfg": {"ConnSRttLow": 65535,)"
        R"( "ConnSRttHigh": 65535, "ConnOutBWLow": -9, "ConnOutBWHigh": -10,)"
        R"( "ConnJitterLow": 65535, "ConnJitterHigh": 65535, "ConnLossRateLow": 65535,)"
        R"( "ConnLossRateHigh": 65535}, "TimeStamp": 9223372036854775807,)"
        R"( "RatelimitInbound": [2147483647, 1, 2, 3, 4, 5],)"
        R"( "RatelimitOutbound": [6, 7, 8, 9, 10, 2147483647], "BuddyConnId": -11,)"
        R"( "MinTxKBps": -12})");
}

TEST(DecodeConn, ConverterQuirksRoundTrip) {
    std::string longPath = "[";
    for (int i = 0; i < 125; ++i) {
        longPath += (i == 0 ? "" : ", ") + std::to_string(i % 3 == 0 ? 2147483647 : 16843009 * i);
    }
    longPath += "]";
    const std::string base = R"({"Label": 1, "Vni": 0, "NetId": 300, "VpnId": 9, "TimeStamp": 2)";
    const std::string cases[] = {
        base + "}", // EncryptAlgo carries NetId, CryptoSuite defaults to 1
        base + R"(, "KeyLength": 10, "CipherKey": "00112233445566778899", "HmacKeyLen": 3,)"
               R"( "HmacKey": "ab"})",
        base + R"(, "KeyLength": 3, "CipherKey": "a1 2c3", "HmacKeyLen": 2, "HmacKey": ""})",
        base + R"(, "KeyLength": 3, "InputKey": "zz11"})",
        base + R"(, "Path": [1, 2, 3, 4, 5, 6, 67305985]})",
        base + R"(, "Path": )" + longPath + "}",
        base + R"(, "Path": )" + longPath +
            R"(, "LinkNum": 1, "KeepaliveInterval": 2, "KeepaliveTimeout": 3,)"
            R"( "TcpTunNum": 4, "UdpTunNum": 5, "Tos": 6, "ClearDFFlag": false,)"
            R"( "CipherKeyLen": 3, "HmacKeyLen": 70, "CipherKey": "010203", "HmacKey": "09",)"
            R"( "PeerUid": "ab", "KeyTimestamp": 4, "InitRtt": 5, "CfgMtu": 6,)"
            R"( "SlaCfg": {"ConnOutBWLow": 7}, "RatelimitInbound": [8, 9],)"
            R"( "BuddyConnId": 10})",
        base + R"(, "PeerUid": ")" + std::string(40, 'u') + R"("})",
        base + R"(, "RatelimitInbound": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]})",
        base + R"(, "RatelimitOutbound": [1,2,3,4,5,6,2147483647,8,9], "MinTxKBps": 3})",
    };
    for (const std::string &text : cases) {
        SCOPED_TRACE(text);
        ExpectRoundTrip(text);
    }
}

/// Random JSON texts that convert; the decoder must give each record back.
class RandomConnJson {
  public:
    explicit RandomConnJson(uint32_t seed) : rng_(seed) {}

    std::string Next() {
        text_ = "{";
        Int("Label");
        Int("Vni");
        Int("NetId");
        Int("VpnId");
        Field("TimeStamp", std::to_string(static_cast<int64_t>(rng_())));
        const char *ints[] = {"Mode",         "WanId",     "LanId",       "CustomerId",
                              "PeerHostId",   "SessionId", "EncryptAlgo", "CryptoSuite",
                              "KeyTimestamp", "InitRtt",   "CfgMtu",      "BuddyConnId",
                              "MinTxKBps"};
        for (const char *key : ints) {
            Maybe([&] { Int(key); });
        }
        const char *bytes[] = {"PortSeed",         "ProtoVersion", "LinkNum",   "KeepaliveInterval",
                               "KeepaliveTimeout", "TcpTunNum",    "UdpTunNum", "Tos",
                               "CipherKeyLen",     "KeyLength",    "HmacKeyLen"};
        for (const char *key : bytes) {
            Maybe([&] { Field(key, std::to_string(Below(300))); });
        }
        const char *flags[] = {"C2PFlag",        "PassiveFlag",          "MasterFlag",
                               "PersistentFlag", "SimUserFlowFlag",      "IsIpv6LttFlag",
                               "MaxTxModeFlag",  "L2OnlyEncapIpHdrFlag", "MinUsage",
                               "BackupFlag",     "LttDelEopResetFlag",   "ClearDFFlag"};
        for (const char *key : flags) {
            Maybe([&] { Field(key, Below(2) ? "true" : "false"); });
        }
        Maybe([&] { Ipv4("LocalIp"); });
        Maybe([&] { Ipv4("PeerIp"); });
        Maybe([&] { Ipv6("LocalIp6"); });
        Maybe([&] { Ipv6("PeerIp6"); });
        for (const char *key : {"CipherKey", "InputKey", "HmacKey"}) {
            Maybe([&] { Field(key, Quoted(Text(Below(140), "0123456789abcdefABCDEF zx-+"))); });
        }
        Maybe([&] { Field("PeerUid", Quoted(Text(Below(40), "abcXYZ-09"))); });
        Maybe([&] { Ids("Path", Below(4) == 0 ? 125 : 8); });
        Maybe([&] { Ids("RatelimitInbound", 15); });
        Maybe([&] { Ids("RatelimitOutbound", 9); });
        Maybe([&] {
            std::string sla = "{";
            for (const char *key :
                 {"ConnSRttLow", "ConnSRttHigh", "ConnOutBWLow", "ConnOutBWHigh", "ConnJitterLow",
                  "ConnJitterHigh", "ConnLossRateLow", "ConnLossRateHigh"}) {
                if (Below(2) != 0) {
                    sla += std::string(sla.size() > 1 ? ", " : "") + "\"" + key +
                           "\": " + std::to_string(Int32());
                }
            }
            Field("SlaCfg", sla + "}");
        });
        return text_ + "}";
    }

  private:
    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(rng_() % n); }
    // Any 32-bit value the integer getter takes (not its two extremes).
    int64_t Int32() { return static_cast<int64_t>(rng_() % 0xFFFFFFFEu) - 0x7FFFFFFF; }
    template <typename F>
    void Maybe(F add) {
        if (Below(2) != 0) {
            add();
        }
    }
    void Field(const char *key, const std::string &value) {
        text_ += std::string(text_.size() > 1 ? ", " : "") + "\"" + key + "\": " + value;
    }
    void Int(const char *key) { Field(key, std::to_string(Int32())); }
    static std::string Quoted(const std::string &s) { return "\"" + s + "\""; }
    std::string Text(uint32_t n, const char *alphabet) {
        std::string s;
        size_t k = std::strlen(alphabet);
        for (uint32_t i = 0; i < n; ++i) {
            s += alphabet[Below(static_cast<uint32_t>(k))];
        }
        return s;
    }
    void Ipv4(const char *key) {
        Field(key, Quoted(std::to_string(Below(256)) + "." + std::to_string(Below(256)) + "." +
                          std::to_string(Below(256)) + "." + std::to_string(Below(256))));
    }
    void Ipv6(const char *key) {
        std::string s;
        for (int i = 0; i < 8; ++i) {
            char group[8];
            std::snprintf(group, sizeof group, "%s%x", i == 0 ? "" : ":", Below(65536));
            s += group;
        }
        Field(key, Quoted(s));
    }
    void Ids(const char *key, uint32_t maxItems) {
        std::string s = "[";
        uint32_t n = Below(maxItems + 1);
        for (uint32_t i = 0; i < n; ++i) {
            s += (i == 0 ? "" : ", ") + std::to_string(rng_() & 0x7FFFFFFF);
        }
        Field(key, s + "]");
    }

    std::mt19937 rng_;
    std::string text_;
};

TEST(DecodeConn, RandomRecordsRoundTrip) {
    RandomConnJson gen(20260102);
    for (int i = 0; i < 400; ++i) {
        std::string text = gen.Next();
        SCOPED_TRACE(text);
        ExpectRoundTrip(text);
        if (HasFailure()) {
            break;
        }
    }
}

TEST(DecodeConn, DecodesTheTunnelDeleteRecord) {
    uint8_t rec[616] = {};
    const uint32_t word = 44u << 24 | 1u << 21 | 5; // netid 300, vni 1, label 5
    std::memcpy(rec + 4, &word, 4);
    std::memset(rec + 548, 0xFF, 8);
    OV_JsonPtr obj(OV_AgentConnRecordToJson(rec, sizeof rec));
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(Get(obj.get(), "NetId"), "44");
    EXPECT_EQ(Get(obj.get(), "Vni"), "1");
    EXPECT_EQ(Get(obj.get(), "Label"), "5");
    EXPECT_EQ(Get(obj.get(), "VpnId"), "0");
    EXPECT_EQ(Get(obj.get(), "TimeStamp"), "-1");
    EXPECT_EQ(Get(obj.get(), "Path"), "[]");
}

TEST(DecodeConn, RefusesAnyOtherLength) {
    uint8_t rec[617] = {};
    EXPECT_EQ(OV_AgentConnRecordToJson(rec, 615), nullptr);
    EXPECT_EQ(OV_AgentConnRecordToJson(rec, 617), nullptr);
    EXPECT_EQ(OV_AgentConnRecordToJson(nullptr, 616), nullptr);
}

} // namespace
