// Tests of the connection record converter: whole records, byte for byte.
#include "agentconf/conn.h"

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>

namespace {

// The set_tunnel usage sample: it carries no "VpnId".
const char *const kUsageSample =
    R"({"Label": 100, "Vni": 1, "NetId": 1, "Mode": 1, "WanId": 1, "LanId": 2,)"
    R"( "LocalIp": "192.168.10.1", "PeerIp": "192.168.20.1", "LocalIp6": "2001:db8::1",)"
    R"( "PeerIp6": "2001:db8::2", "CustomerId": 1001, "PeerHostId": 2002, "PortSeed": 7,)"
    R"( "ProtoVersion": 2, "C2PFlag": true, "PassiveFlag": false, "MasterFlag": true,)"
    R"( "PersistentFlag": true, "ClearDFFlag": true, "SessionId": 12345, "Path": [1, 2],)"
    R"( "LinkNum": 2, "KeepaliveInterval": 5, "KeepaliveTimeout": 15, "TcpTunNum": 1,)"
    R"( "UdpTunNum": 2, "Tos": 0, "EncryptAlgo": 1, "CryptoSuite": 1, "KeyLength": 32,)"
    R"( "InputKey": "3c0f7a21d94e5b86a1f2c7d03e98b4a5 6d1e8c2f0b7a94d35e6c1f8a2b0d947",)"
    R"( "HmacKeyLen": 20, "HmacKey": "00112233445566778899aabbccddeeff00112233",)"
    R"( "PeerUid": "peer-0001", "SlaCfg": {"ConnSRttLow": 15, "ConnSRttHigh": 21,)"
    R"( "ConnOutBWLow": 1000, "ConnOutBWHigh": 5000, "ConnJitterLow": 5, "ConnJitterHigh": 10,)"
    R"( "ConnLossRateLow": 10, "ConnLossRateHigh": 30}, "TimeStamp": 1735689600000,)"
    R"( "RatelimitInbound": [1], "RatelimitOutbound": [2], "BuddyConnId": 0, "MinTxKBps": 100})";

/// An expected record, built from offsets in zeroed bytes.
struct Rec {
    std::array<uint8_t, 616> b{};
    Rec &Int(size_t off, uint64_t v, size_t width) {
        for (size_t i = 0; i < width; ++i) {
            b.at(off + i) = static_cast<uint8_t>(v >> (8 * i));
        }
        return *this;
    }
    Rec &Bytes(size_t off, std::initializer_list<uint8_t> bytes) {
        for (uint8_t v : bytes) {
            b.at(off++) = v;
        }
        return *this;
    }
    Rec &Text(size_t off, const char *text) {
        std::memcpy(&b.at(off), text, std::strlen(text));
        return *this;
    }
};

/// The differing bytes, "" when the whole record matches.
std::string Differences(const Rec &want, const AgentConnConf &got) {
    static_assert(sizeof got == 616);
    const auto *g = reinterpret_cast<const uint8_t *>(&got);
    std::string out;
    for (size_t i = 0; i < want.b.size(); ++i) {
        if (want.b[i] != g[i]) {
            char line[48];
            std::snprintf(line, sizeof line, "@%zu want %02x got %02x\n", i, want.b[i], g[i]);
            out += line;
        }
    }
    return out;
}

/// The smallest accepted JSON plus `extra` (keys with a leading comma).
std::string Minimal(const std::string &extra = "") {
    return R"({"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9, "TimeStamp": 2)" + extra + "}";
}

/// Its record: NetId 0 carries into EncryptAlgo, so CryptoSuite defaults to 0.
Rec MinimalRec() {
    Rec r;
    r.Int(0, 9, 4).Int(4, 1, 4).Int(76, 1, 1).Int(96, 1, 1).Int(548, 2, 8);
    return r;
}

class ConnConfTest : public ovtest::ConverterTest {
  protected:
    int32_t Convert(const std::string &text) {
        ovtest::StdoutCapture cap;
        conf = {};
        int32_t rc = OV_AgentConnJsonStrToConf(&conf, text.c_str());
        log = cap.Take();
        return rc;
    }
    bool Logged(const std::string &text) const { return log.find(text) != std::string::npos; }

    AgentConnConf conf{};
    std::string log;
};

TEST_F(ConnConfTest, UsageSampleWithVpnIdFillsTheWholeRecord) {
    std::string text = kUsageSample;
    text.insert(1, R"("VpnId": 7, )");
    ASSERT_EQ(Convert(text), 0) << log;
    Rec r;
    r.Int(0, 7, 4).Int(4, 0x01200064, 4).Int(8, 1, 4).Int(12, 1, 4).Int(16, 2, 4);
    r.Int(20, 0xC0A80A01, 4).Int(40, 0xC0A81401, 4);
    r.Bytes(60, {0x20, 0x01, 0x0d, 0xb8}).Int(75, 1, 1).Int(76, 1, 1);
    r.Bytes(80, {0x20, 0x01, 0x0d, 0xb8}).Int(95, 2, 1).Int(96, 1, 1);
    r.Int(100, 1001, 4).Int(104, 2002, 4).Int(108, 7, 1).Int(109, 2, 1).Int(110, 0x000D, 2);
    r.Int(112, 12345, 4).Int(116, 1, 4).Int(120, 2, 4);
    r.Bytes(140, {2, 5, 15, 1, 2, 0, 1});
    r.Int(148, 1, 4).Int(152, 1, 4).Int(156, 32, 1).Int(157, 20, 1).Text(162, "peer-0001");
    // The space in the key text is not skipped: " 6" scans as 06 and every
    // later pair is shifted by one character.
    r.Bytes(194, {0x3c, 0x0f, 0x7a, 0x21, 0xd9, 0x4e, 0x5b, 0x86, 0xa1, 0xf2, 0xc7,
                  0xd0, 0x3e, 0x98, 0xb4, 0xa5, 0x06, 0xd1, 0xe8, 0xc2, 0xf0, 0xb7,
                  0xa9, 0x4d, 0x35, 0xe6, 0xc1, 0xf8, 0xa2, 0xb0, 0xd9, 0x47});
    r.Bytes(258, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99,
                  0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff, 0x00, 0x11, 0x22, 0x33});
    r.Int(528, 15, 2).Int(530, 21, 2).Int(532, 1000, 4).Int(536, 5000, 4);
    r.Int(540, 5, 2).Int(542, 10, 2).Int(544, 10, 2).Int(546, 30, 2);
    r.Int(548, 1735689600000, 8).Int(556, 1, 4).Int(580, 2, 4).Int(608, 100, 4);
    EXPECT_EQ(Differences(r, conf), "");
}

TEST_F(ConnConfTest, UsageSampleAsItStandsFailsForLackOfVpnId) {
    EXPECT_EQ(Convert(kUsageSample), -22);
    EXPECT_TRUE(Logged("<Error:AGENTCONF>[_OV_AgentConnBaseJsonToConf:")) << log;
    EXPECT_TRUE(Logged("] Get VpnId from string failed\n"));
    EXPECT_TRUE(Logged("<Error:AGENTCONF>[_OV_AgentConnJsonToConf:"));
    EXPECT_TRUE(Logged("] Connection json to conf for base param failed\n"));
    EXPECT_TRUE(Logged("<Error:AGENTCONF>[OV_AgentConnJsonStrToConf:"));
    EXPECT_TRUE(Logged("] Json to data struct failed(22:"));
    // Fields read before VpnId stay written.
    Rec r;
    r.Int(4, 0x01200064, 4).Int(8, 1, 4);
    EXPECT_EQ(Differences(r, conf), "");
}

TEST_F(ConnConfTest, LabelVniAndNetIdAreCutToTheirWidths) {
    struct Case {
        const char *keys;
        uint32_t word;
        uint32_t netIdRaw;
    };
    const Case cases[] = {
        {R"("Label": 2097152, "Vni": 0, "NetId": 0)", 0, 0},
        {R"("Label": 0, "Vni": 9, "NetId": 0)", 1u << 21, 0},
        {R"("Label": 2097151, "Vni": 7, "NetId": 255)", 0xFFFFFFFF, 255},
        {R"("Label": -1, "Vni": 0, "NetId": 300)", 0x2C1FFFFF, 300},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.keys);
        ASSERT_EQ(Convert(std::string("{") + c.keys + R"(, "VpnId": 9, "TimeStamp": 2})"), 0);
        Rec r = MinimalRec();
        // Without EncryptAlgo the unmasked NetId is stored there.
        r.Int(4, c.word, 4).Int(152, c.netIdRaw, 4).Int(148, c.netIdRaw != 0, 4);
        EXPECT_EQ(Differences(r, conf), "");
    }
}

TEST_F(ConnConfTest, LabelVniOrNetIdFailureEndsWithTheGettersCode) {
    EXPECT_EQ(Convert(R"({"Label": 2147483647, "Vni": 0, "NetId": 0})"), -132);
    EXPECT_TRUE(Logged("] Get Connection Label failed\n")) << log;
    EXPECT_EQ(Convert(R"({"Label": 1, "NetId": 0})"), -22);
    EXPECT_TRUE(Logged("] Get Connection Vni failed\n")) << log;
    EXPECT_EQ(Convert(R"({"Label": 1, "Vni": 0, "NetId": "x"})"), -22);
    EXPECT_TRUE(Logged("] Get Connection NetId failed\n")) << log;
    EXPECT_EQ(Convert("{"), -22);
    EXPECT_TRUE(Logged("] invalid connection string, not json\n")) << log;
}

TEST_F(ConnConfTest, EncryptAlgoCarriesNetIdAndCryptoSuiteDefaultsFromIt) {
    struct Case {
        uint32_t netId;
        const char *extra;
        uint32_t algo;
        uint32_t suite;
    };
    const Case cases[] = {
        {300, "", 300, 1},
        {0, "", 0, 0},
        {5, R"(, "EncryptAlgo": 0)", 0, 0},
        {0, R"(, "EncryptAlgo": 3)", 3, 1},
        {5, R"(, "CryptoSuite": 7)", 5, 7},
        {5, R"(, "EncryptAlgo": 2147483647)", 5, 1}, // refused: NetId stays
    };
    for (const Case &c : cases) {
        std::string text = R"({"Label": 1, "Vni": 0, "VpnId": 9, "TimeStamp": 2, "NetId": )" +
                           std::to_string(c.netId) + c.extra + "}";
        SCOPED_TRACE(text);
        ASSERT_EQ(Convert(text), 0);
        Rec r = MinimalRec();
        r.Int(4, 1 | ((c.netId & 0xFF) << 24), 4).Int(152, c.algo, 4).Int(148, c.suite, 4);
        EXPECT_EQ(Differences(r, conf), "");
    }
    ASSERT_EQ(Convert(Minimal()), 0);
    EXPECT_TRUE(Logged("<Debug:AGENTCONF>[_OV_AgentConnBaseJsonToConf:")) << log;
    EXPECT_TRUE(Logged("] Connection conf not set EncryptAlgo!\n"));
    EXPECT_TRUE(Logged("] Connection conf not set CryptoSuite!\n"));
    EXPECT_FALSE(Logged("dump flexlog"));
}

TEST_F(ConnConfTest, KeyTextsAreScannedPairwiseOverTwiceTheirLength) {
    struct Case {
        const char *extra;
        uint8_t cipherLen;
        uint8_t hmacLen;
        std::initializer_list<uint8_t> cipher;
        std::initializer_list<uint8_t> hmac;
    };
    const Case cases[] = {
        {R"(, "KeyLength": 0, "InputKey": "aabb")", 0, 0, {}, {}},
        {R"(, "KeyLength": 3, "InputKey": "0a 1b")", 3, 0, {0x0a, 0x01, 0x0b}, {}},
        {R"(, "KeyLength": 3, "InputKey": "zz11")", 3, 0, {0x00, 0x11}, {}},
        {R"(, "CipherKeyLen": 1, "KeyLength": 2, "CipherKey": "01", "InputKey": "ffff")",
         1,
         0,
         {0x01},
         {}},
        {R"(, "CipherKeyLen": 300, "KeyLength": 2, "InputKey": "0102")", 2, 0, {0x01, 0x02}, {}},
        // The HMAC text is shorter than twice its length: the pair that
        // starts on its NUL does not scan, the next one is the cipher's tail.
        {R"(, "KeyLength": 10, "CipherKey": "00112233445566778899",)"
         R"( "HmacKeyLen": 3, "HmacKey": "ab")",
         10,
         3,
         {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99},
         {0xab, 0x00, 0x22}},
        // An empty HMAC text is still scanned.
        {R"(, "KeyLength": 3, "CipherKey": "a1b2c3", "HmacKeyLen": 2, "HmacKey": "")",
         3,
         2,
         {0xa1, 0xb2, 0xc3},
         {0x00, 0xb2}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.extra);
        ASSERT_EQ(Convert(Minimal(c.extra)), 0) << log;
        Rec r = MinimalRec();
        r.Int(156, c.cipherLen, 1).Int(157, c.hmacLen, 1);
        r.Bytes(194, c.cipher).Bytes(258, c.hmac);
        EXPECT_EQ(Differences(r, conf), "");
    }
}

TEST_F(ConnConfTest, KeyLengthsBeyondTheTextsStayInsideTheKeyAreas) {
    std::string hex128;
    for (int i = 0; i < 64; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", 0x80 + i);
        hex128 += pair;
    }
    ASSERT_EQ(Convert(Minimal(R"(, "KeyLength": 255, "CipherKey": ")" + hex128 +
                              R"(", "HmacKeyLen": 255, "HmacKey": ")" + hex128 + "\"")),
              0);
    Rec r = MinimalRec();
    r.Int(156, 255, 1).Int(157, 255, 1);
    for (int i = 0; i < 64; ++i) {
        r.Int(194 + i, 0x80 + i, 1).Int(258 + i, 0x80 + i, 1);
    }
    EXPECT_EQ(Differences(r, conf), "");
}

TEST_F(ConnConfTest, IdArraysAcceptEmptyAndRefuseNonArraysNullAndNegativeItems) {
    struct Case {
        const char *extra;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"(, "Path": [])", 0, nullptr},
        {R"(, "Path": 5)", -22, "] Invalid format, Path is not array!\n"},
        {R"(, "Path": [1, null])", -22, "] empty [1] item for Path\n"},
        {R"(, "Path": [1, -1])", -22, "] path item is invalid\n"},
        {R"(, "RatelimitInbound": {})", -22, "] Invalid format, RatelimitInbound is not array!\n"},
        {R"(, "RatelimitInbound": [null])", -22, "] empty [0] item for RatelimitInbound\n"},
        {R"(, "RatelimitInbound": [-3])", -22, "] path item is invalid\n"},
        {R"(, "RatelimitOutbound": "1")", -22,
         "] Invalid format, RatelimitOutbound is not array!\n"},
        {R"(, "RatelimitOutbound": [1, null])", -22, "] empty [1] item for ratelimitOutbound\n"},
        {R"(, "RatelimitOutbound": [-2])", -22, "] path item is invalid\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.extra);
        EXPECT_EQ(Convert(Minimal(c.extra)), c.rc);
        if (c.message != nullptr) {
            EXPECT_TRUE(Logged(c.message)) << log;
            EXPECT_TRUE(Logged("<Error:AGENTCONF>[_OV_AgentConnBaseJsonToConf:"));
        } else {
            EXPECT_EQ(Differences(MinimalRec(), conf), "");
        }
    }
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, null])")), -22);
    Rec r = MinimalRec();
    r.Int(116, 1, 4).Int(548, 0, 8); // item 0 stored; stopped before TimeStamp
    EXPECT_EQ(Differences(r, conf), "");
}

TEST_F(ConnConfTest, ArraysRunOnPastTheirSlotsButNotPastTheRecord) {
    // Item 6 of Path lands on LinkNum..TcpTunNum; only keys that are present
    // overwrite it.
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, 2, 3, 4, 5, 6, 67305985])")), 0);
    Rec r = MinimalRec();
    for (uint32_t i = 0; i < 6; ++i) {
        r.Int(116 + 4 * i, i + 1, 4);
    }
    r.Bytes(140, {0x01, 0x02, 0x03, 0x04});
    EXPECT_EQ(Differences(r, conf), "");
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, 2, 3, 4, 5, 6, 67305985], "KeepaliveTimeout": 9)")),
              0);
    r.Int(142, 9, 1);
    EXPECT_EQ(Differences(r, conf), "");

    auto items = [](int n) {
        std::string s = "[";
        for (int i = 0; i < n; ++i) {
            s += i == 0 ? "1" : ", 1";
        }
        return s + "]";
    };
    EXPECT_EQ(Convert(Minimal(R"(, "RatelimitOutbound": )" + items(9))), 0);
    EXPECT_EQ(conf.reserved612[0], 1);
    EXPECT_EQ(Convert(Minimal(R"(, "RatelimitOutbound": )" + items(10))), -22);
    EXPECT_TRUE(Logged("] Invalid format, RatelimitOutbound is not array!\n"));
    EXPECT_EQ(Convert(Minimal(R"(, "Path": )" + items(125))), 0);
    EXPECT_EQ(Convert(Minimal(R"(, "Path": )" + items(126))), -22);
    EXPECT_TRUE(Logged("] Invalid format, Path is not array!\n"));
}

TEST_F(ConnConfTest, EachFlagKeySetsItsOwnBit) {
    struct Case {
        const char *key;
        size_t offset;
        uint16_t bit;
    };
    const Case cases[] = {
        {"C2PFlag", 110, 0x0001},
        {"PassiveFlag", 110, 0x0002},
        {"MasterFlag", 110, 0x0004},
        {"PersistentFlag", 110, 0x0008},
        {"SimUserFlowFlag", 110, 0x0010},
        {"IsIpv6LttFlag", 110, 0x0020},
        {"MaxTxModeFlag", 110, 0x0040},
        {"L2OnlyEncapIpHdrFlag", 110, 0x0100},
        {"MinUsage", 110, 0x0200},
        {"BackupFlag", 110, 0x0400},
        {"LttDelEopResetFlag", 110, 0x0800},
        {"ClearDFFlag", 146, 0x01},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.key);
        ASSERT_EQ(Convert(Minimal(std::string(", \"") + c.key + "\": true")), 0);
        Rec r = MinimalRec();
        r.Int(c.offset, c.bit, c.offset == 146 ? 1 : 2);
        EXPECT_EQ(Differences(r, conf), "");
        ASSERT_EQ(Convert(Minimal(std::string(", \"") + c.key + "\": false")), 0);
        EXPECT_EQ(Differences(MinimalRec(), conf), "");
    }
}

TEST_F(ConnConfTest, AddressesAreOptionalButMustParse) {
    ASSERT_EQ(Convert(Minimal(R"(, "LocalIp": "10.1.2.3", "PeerIp6": "::ffff:10.0.0.1")")), 0);
    Rec r = MinimalRec();
    r.Int(20, 0x0A010203, 4).Bytes(90, {0xff, 0xff, 10, 0, 0, 1});
    EXPECT_EQ(Differences(r, conf), "");
    // Texts too long for their buffers are skipped like missing keys.
    ASSERT_EQ(Convert(Minimal(R"(, "PeerIp": "  10.1.2.3         ", "LocalIp6": ")" +
                              std::string(50, '1') + "\"")),
              0);
    EXPECT_EQ(Differences(MinimalRec(), conf), "");
    EXPECT_EQ(Convert(Minimal(R"(, "PeerIp": "10.0.0.256")")), -22);
    EXPECT_TRUE(Logged("] Get ip addr from string failed\n")) << log;
    EXPECT_EQ(Convert(Minimal(R"(, "LocalIp6": "1::2::3")")), -22);
    EXPECT_TRUE(Logged("] Get ipv6 addr from string failed\n")) << log;
}

TEST_F(ConnConfTest, SlaBlockIsOptionalAndCutsSixteenBitFields) {
    ASSERT_EQ(Convert(Minimal()), 0);
    EXPECT_EQ(Differences(MinimalRec(), conf), "");
    EXPECT_FALSE(Logged("ConnOutBW"));
    ASSERT_EQ(Convert(Minimal(R"(, "SlaCfg": {"ConnSRttLow": 65537, "ConnLossRateHigh": -1})")), 0);
    Rec r = MinimalRec();
    r.Int(528, 1, 2).Int(546, 0xFFFF, 2);
    EXPECT_EQ(Differences(r, conf), "");
    EXPECT_TRUE(Logged("<Debug:AGENTCONF>[_OV_AgentConnSlaCfgJsonToConf:")) << log;
    EXPECT_TRUE(Logged("] Connection conf not set ConnOutBWLow!\n"));
    EXPECT_TRUE(Logged("] Connection conf not set ConnOutBWHigh!\n"));
}

TEST_F(ConnConfTest, TimeStampIsRequiredAndKeptAsSixtyFourBits) {
    EXPECT_EQ(Convert(R"({"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9})"), -22);
    EXPECT_TRUE(Logged("] Lack of TimeStamp\n")) << log;
    ASSERT_EQ(Convert(R"({"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9, "TimeStamp": -1,)"
                      R"( "SessionId": -2})"),
              0);
    Rec r = MinimalRec();
    r.Int(548, ~0ull, 8).Int(112, 0xFFFFFFFE, 4);
    EXPECT_EQ(Differences(r, conf), "");
}

TEST_F(ConnConfTest, OverlongPeerUidIsANoticeAndLeavesItsCutCopy) {
    ASSERT_EQ(Convert(Minimal(R"(, "PeerUid": ")" + std::string(40, 'u') + "\"")), 0);
    EXPECT_TRUE(Logged("] Connection conf not set PeerUid!\n")) << log;
    Rec r = MinimalRec();
    r.Text(162, std::string(31, 'u').c_str());
    EXPECT_EQ(Differences(r, conf), "");
}

} // namespace
