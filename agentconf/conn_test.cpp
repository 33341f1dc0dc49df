// Tests of the connection record converter: whole records, byte for byte,
// its deliberate quirks, and the lines it logs.
#include "agentconf/conn.h"

#include "agentconf/json_conv.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>

namespace {

constexpr const char *kBase = "_OV_AgentConnBaseJsonToConf";

/// The smallest accepted JSON plus `extra` (keys with a leading comma).
std::string Minimal(const std::string &extra = "") {
    return R"({"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9, "TimeStamp": 2)" + extra + "}";
}

class ConnConv : public ovtest::RecordConverterTest<AgentConnConf, OV_AgentConnJsonStrToConf> {
  protected:
    /// The record of Minimal(): the IPv6 family bytes are always set, and
    /// NetId 0 carries into EncryptAlgo, so CryptoSuite defaults to 0.
    static Expected MinimalRec() {
        return Expected().U32(0, 9).U32(4, 1).U8(76, 1).U8(96, 1).U64(548, 2);
    }
};

TEST_F(ConnConv, EveryMissingExpectedKeyIsANoticeInReadingOrder) {
    ASSERT_EQ(Convert(Minimal()), 0);
    EXPECT_TRUE(Same(MinimalRec()));
    const std::string every = ovtest::NoticesInOrder(
        log, kBase, "Connection conf",
        "Mode WanId LanId CustomerId PeerHostId PortSeed ProtoVersion SessionId LinkNum "
        "KeepaliveInterval KeepaliveTimeout TcpTunNum UdpTunNum Tos EncryptAlgo CryptoSuite "
        "CipherKeyLen HmacKeyLen CipherKey HmacKey PeerUid BuddyConnId MinTxKBps");
    EXPECT_EQ(log.find("dump flexlog"), std::string::npos);
    // With every key present, no notice.
    ASSERT_EQ(Convert(Minimal(every + R"(, "SlaCfg": {"ConnOutBWLow": 1, "ConnOutBWHigh": 1})")),
              0);
    EXPECT_EQ(log.find("not set"), std::string::npos) << log;
}

TEST_F(ConnConv, RefusalsEndWithTheirCodeAndMessage) {
    const Message cases[] = {
        {R"({"Label": 2147483647, "Vni": 0, "NetId": 0})", -132, "Get Connection Label failed"},
        {R"({"Label": 1, "NetId": 0})", -22, "Get Connection Vni failed"},
        {R"({"Label": 1, "Vni": 0, "NetId": "x"})", -22, "Get Connection NetId failed"},
        {R"({"Label": 1, "Vni": 0, "NetId": 0, "TimeStamp": 2})", -22,
         "Get VpnId from string failed"},
        {R"({"Label": 1, "Vni": 0, "NetId": 0, "VpnId": 9})", -22, "Lack of TimeStamp"},
        {Minimal(R"(, "PeerIp": "10.0.0.256")"), -22, "Get ip addr from string failed"},
        {Minimal(R"(, "LocalIp6": "1::2::3")"), -22, "Get ipv6 addr from string failed"},
        {Minimal(R"(, "Path": 5)"), -22, "Invalid format, Path is not array!"},
        {Minimal(R"(, "Path": [1, null])"), -22, "empty [1] item for Path"},
        {Minimal(R"(, "Path": [1, -1])"), -22, "path item is invalid"},
        {Minimal(R"(, "RatelimitInbound": [null])"), -22, "empty [0] item for RatelimitInbound"},
        {Minimal(R"(, "RatelimitOutbound": [1, null])"), -22,
         "empty [1] item for ratelimitOutbound"},
    };
    ExpectMessages(kBase, "OV_AgentConnJsonStrToConf", cases);
    EXPECT_TRUE(Logged("Error", "_OV_AgentConnJsonToConf",
                       "Connection json to conf for base param failed"));
    EXPECT_EQ(Convert("{"), -22);
    EXPECT_TRUE(
        Logged("Error", "OV_AgentConnJsonStrToConf", "invalid connection string, not json"));

    // Fields read before the refusal stay written: here Path's item 0.
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, null])")), -22);
    EXPECT_TRUE(Same(MinimalRec().U32(116, 1).U64(548, 0)));
}

TEST_F(ConnConv, EachFormGivesItsBytes) {
    auto withNetId = [](uint32_t netId, const std::string &extra) {
        return R"({"Label": 1, "Vni": 0, "VpnId": 9, "TimeStamp": 2, "NetId": )" +
               std::to_string(netId) + extra + "}";
    };
    // Without EncryptAlgo the unmasked NetId is stored there, and CryptoSuite
    // defaults to 1 when that is not 0.
    auto algo = [](uint32_t word, uint32_t encrypt, uint32_t suite) {
        return MinimalRec().Put(4, word).Put(152, encrypt).Put(148, suite);
    };
    const Form cases[] = {
        // Label, Vni and NetId are cut to their widths.
        {R"({"Label": 0, "Vni": 9, "NetId": 0, "VpnId": 9, "TimeStamp": 2})", algo(1u << 21, 0, 0)},
        {R"({"Label": 2097151, "Vni": 7, "NetId": 255, "VpnId": 9, "TimeStamp": 2})",
         algo(0xFFFFFFFF, 255, 1)},
        {R"({"Label": -1, "Vni": 0, "NetId": 300, "VpnId": 9, "TimeStamp": 2})",
         algo(0x2C1FFFFF, 300, 1)},
        {withNetId(5, R"(, "EncryptAlgo": 0)"), algo(0x05000001, 0, 0)},
        {withNetId(0, R"(, "EncryptAlgo": 3)"), algo(1, 3, 1)},
        {withNetId(5, R"(, "CryptoSuite": 7)"), algo(0x05000001, 5, 7)},
        {withNetId(5, R"(, "EncryptAlgo": 2147483647)"), algo(0x05000001, 5, 1)}, // refused
        // Every flag key false sets nothing.
        {Minimal(R"(, "C2PFlag": false, "PassiveFlag": false, "MasterFlag": false,
            "PersistentFlag": false, "SimUserFlowFlag": false, "IsIpv6LttFlag": false,
            "MaxTxModeFlag": false, "L2OnlyEncapIpHdrFlag": false, "MinUsage": false,
            "BackupFlag": false, "LttDelEopResetFlag": false, "ClearDFFlag": false)"),
         MinimalRec()},
        // Optional fields and their widths.
        {Minimal(R"(, "LocalIp": "10.1.2.3", "PeerIp6": "::ffff:10.0.0.1")"),
         MinimalRec().U32(20, 0x0A010203).Bytes(90, {0xff, 0xff, 10, 0, 0, 1})},
        {Minimal(R"(, "SlaCfg": {"ConnSRttLow": 65537, "ConnLossRateHigh": -1})"),
         MinimalRec().U16(528, 1).U16(546, 0xFFFF)},
        {Minimal(R"(, "SessionId": -2)"), MinimalRec().U32(112, 0xFFFFFFFE)},
        // An overlong PeerUid is a notice and leaves its cut copy.
        {Minimal(R"(, "PeerUid": ")" + std::string(40, 'u') + "\""),
         MinimalRec().Text(162, std::string(31, 'u').c_str())},
    };
    ExpectForms(cases);
    EXPECT_TRUE(Logged("Debug", kBase, "Connection conf not set PeerUid!"));
    // Each flag key sets its own bit of the flags word; bit 7 is not one of them.
    std::istringstream flags("C2PFlag PassiveFlag MasterFlag PersistentFlag SimUserFlowFlag "
                             "IsIpv6LttFlag MaxTxModeFlag - L2OnlyEncapIpHdrFlag MinUsage "
                             "BackupFlag LttDelEopResetFlag");
    unsigned bit = 0;
    for (std::string flag; flags >> flag; ++bit) {
        if (flag != "-") {
            ASSERT_EQ(Convert(Minimal(", \"" + flag + "\": true")), 0);
            EXPECT_TRUE(Same(MinimalRec().U16(110, 1u << bit))) << flag;
        }
    }
    ASSERT_EQ(Convert(Minimal(R"(, "ClearDFFlag": true)")), 0);
    EXPECT_TRUE(Same(MinimalRec().U8(146, 0x01)));
    ASSERT_EQ(Convert(Minimal(R"(, "SlaCfg": {})")), 0);
    EXPECT_TRUE(
        Logged("Debug", "_OV_AgentConnSlaCfgJsonToConf", "Connection conf not set ConnOutBWLow!"));
    EXPECT_TRUE(
        Logged("Debug", "_OV_AgentConnSlaCfgJsonToConf", "Connection conf not set ConnOutBWHigh!"));
}

TEST_F(ConnConv, KeyTextsAreScannedPairwiseOverTwiceTheirLength) {
    auto key = [](uint8_t cipherLen, uint8_t hmacLen, std::initializer_list<uint8_t> cipher,
                  std::initializer_list<uint8_t> hmac = {}) {
        return MinimalRec().Bytes(156, {cipherLen, hmacLen}).Bytes(194, cipher).Bytes(258, hmac);
    };
    std::vector<uint8_t> bytes64;
    Expected longest = key(255, 255, {});
    for (uint8_t i = 0; i < 64; ++i) {
        bytes64.push_back(0x80 + i);
        longest.U8(194 + i, 0x80 + i).U8(258 + i, 0x80 + i);
    }
    const std::string hex128 = ovtest::HexOf(bytes64);
    const Form cases[] = {
        {Minimal(R"(, "KeyLength": 0, "InputKey": "aabb")"), key(0, 0, {})},
        {Minimal(R"(, "KeyLength": 3, "InputKey": "0a 1b")"), key(3, 0, {0x0a, 0x01, 0x0b})},
        {Minimal(R"(, "KeyLength": 3, "InputKey": "zz11")"), key(3, 0, {0x00, 0x11})},
        {Minimal(R"(, "CipherKeyLen": 1, "KeyLength": 2, "CipherKey": "01", "InputKey": "ffff")"),
         key(1, 0, {0x01})},
        {Minimal(R"(, "CipherKeyLen": 300, "KeyLength": 2, "InputKey": "0102")"),
         key(2, 0, {0x01, 0x02})},
        // The HMAC text is shorter than twice its length: the pair that
        // starts on its NUL does not scan, the next one is the cipher's tail.
        {Minimal(R"(, "KeyLength": 10, "CipherKey": "00112233445566778899", "HmacKeyLen": 3,)"
                 R"( "HmacKey": "ab")"),
         key(10, 3, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99},
             {0xab, 0x00, 0x22})},
        // An empty HMAC text is still scanned.
        {Minimal(R"(, "KeyLength": 3, "CipherKey": "a1b2c3", "HmacKeyLen": 2, "HmacKey": "")"),
         key(3, 2, {0xa1, 0xb2, 0xc3}, {0x00, 0xb2})},
        // Lengths beyond the texts stay inside the key areas.
        {Minimal(R"(, "KeyLength": 255, "CipherKey": ")" + hex128 +
                 R"(", "HmacKeyLen": 255, "HmacKey": ")" + hex128 + "\""),
         longest},
    };
    ExpectForms(cases);
}

TEST_F(ConnConv, ArraysRunOnPastTheirSlotsButNotPastTheRecord) {
    // Item 6 of Path lands on LinkNum..TcpTunNum; only keys that are present
    // overwrite it.
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, 2, 3, 4, 5, 6, 67305985])")), 0);
    Expected e = MinimalRec();
    for (uint32_t i = 0; i < 6; ++i) {
        e.U32(116 + 4 * i, i + 1);
    }
    EXPECT_TRUE(Same(e.Bytes(140, {0x01, 0x02, 0x03, 0x04})));
    ASSERT_EQ(Convert(Minimal(R"(, "Path": [1, 2, 3, 4, 5, 6, 67305985], "KeepaliveTimeout": 9)")),
              0);
    EXPECT_TRUE(Same(e.U8(142, 9)));

    auto ones = [](size_t n) { return ovtest::Repeat("1", n); };
    EXPECT_EQ(Convert(Minimal(R"(, "Path": [], "RatelimitOutbound": )" + ones(9))), 0);
    EXPECT_EQ(conf->reserved612[0], 1);
    EXPECT_EQ(Convert(Minimal(R"(, "RatelimitOutbound": )" + ones(10))), -22);
    EXPECT_TRUE(Logged("Error", kBase, "Invalid format, RatelimitOutbound is not array!"));
    EXPECT_EQ(Convert(Minimal(R"(, "Path": )" + ones(125))), 0);
    EXPECT_EQ(Convert(Minimal(R"(, "Path": )" + ones(126))), -22);
    EXPECT_TRUE(Logged("Error", kBase, "Invalid format, Path is not array!"));
}

} // namespace
