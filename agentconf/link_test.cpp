// Tests of the link-IP and link converters: whole records byte for byte,
// refusals and the log lines they leave.
#include "agentconf/link.h"

#include "agentconf/json_conv.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using LinkIpConv = ovtest::RecordConverterTest<AgentLinkIpConf, OV_AgentLinkIpJsonStrToConf>;
using LinkConv = ovtest::RecordConverterTest<AgentLinkConf, OV_AgentLinkJsonStrToConf>;

TEST_F(LinkIpConv, EachFormGivesItsBytes) {
    const Form cases[] = {
        // Texts too long for their buffers are skipped like missing keys: 49
        // characters fit the 50-byte IPv6 buffer, 50 do not.
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "IpAddr": "100.100.100.100    "})",
         Expected().Bytes(0, {1, 1}).U32(8, 1)},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "Ip6Addr": "::1)" + std::string(46, ' ') +
             "\"}",
         Expected().Bytes(0, {1, 1, 0x04}).U32(8, 1).U8(35, 1)},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "Ip6Addr": "::1)" + std::string(47, ' ') +
             "\"}",
         Expected().Bytes(0, {1, 1}).U32(8, 1)},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "IpAddr": null, "Ip6Addr": "::"})",
         Expected().Bytes(0, {1, 1, 0x04}).U32(8, 1)},
    };
    ExpectForms(cases);
}

TEST_F(LinkIpConv, MessagesNameWhatWasMissingOrRefused) {
    const Message cases[] = {
        {R"({"SiteIpId": 1, "SiteId": 2})", -22, "Lack of Type"},
        {R"({"Type": -1, "SiteIpId": 1, "SiteId": 2})", -132, "Lack of Type"},
        {R"({"Type": 1, "SiteId": 2})", -22, "Lack of SiteIpId"},
        {R"({"Type": 1, "SiteIpId": 1, "CustomerId": 4})", -22, "Lack of SiteId"},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "IpAddr": "10.0.0.256"})", -22,
         "Get ip addr from string failed"},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "Ip6Addr": "1::2::3"})", -22,
         "Get ipv6 addr from string failed"},
        // Only an error line: the record still converts.
        {R"({"Type": 1, "SiteIpId": 3, "SiteId": 9})", 0, "Lack of CustomerId"},
    };
    ExpectMessages("_OV_AgentLinkIpJsonToConf", "OV_AgentLinkIpJsonStrToConf", cases);
    EXPECT_EQ(Convert("["), -22);
    EXPECT_TRUE(Logged("Info", "OV_AgentLinkIpJsonStrToConf", "agent link ip conf json = [ "));
    EXPECT_TRUE(Logged("Error", "OV_AgentLinkIpJsonStrToConf", "invalid link ip string, not json"));
}

TEST_F(LinkConv, EachFormGivesItsBytes) {
    const Form cases[] = {
        {R"({"NetId": 3, "LinkId": 16777217, "Role": true, "Simu": false, "Type": 2,
            "PersistentFlag": true})",
         Expected().U32(0, 3).U32(4, 1).U8(8, 0x19)},
        {R"({"NetId": 3, "LinkId": -1, "Type": 6, "Ipv6Flag": 1, "Leased": "y"})",
         Expected().U32(0, 3).U32(4, 0x00FFFFFF).U8(8, 0x68)},
        // A Type the 8-bit getter refuses is left out, not a failure.
        {R"({"NetId": 3, "LinkId": 4, "Type": 256})", Expected().U32(0, 3).U32(4, 4)},
        // Ports are cut to 16 bits.
        {R"({"NetId": 3, "LinkId": 4, "LocalSitePort": 70000, "PeerSitePort": -1})",
         Expected().U32(0, 3).U32(4, 4).U32(28, 0xFFFF1170)},
    };
    ExpectForms(cases);
}

TEST_F(LinkConv, MinimalLinkConvertsAfterANoticePerMissingKeyInReadingOrder) {
    ASSERT_EQ(Convert(R"({"NetId": 1, "LinkId": 2})"), 0);
    EXPECT_TRUE(Same(Expected().U32(0, 1).U32(4, 2)));
    const std::string every = ovtest::NoticesInOrder(
        log, "_OV_AgentLinkJsonToConf", "Link conf",
        "Mode Thresh ProtoVersion WanId PeerSiteIpId PeerSiteId PeerCustomerId KeepaliveInterval "
        "KeepaliveTimeout");
    EXPECT_EQ(log.find("<Error"), std::string::npos) << log;
    ASSERT_EQ(Convert(R"({"NetId": 1, "LinkId": 2)" + every + "}"), 0);
    EXPECT_EQ(log.find("not set"), std::string::npos) << log;
}

TEST_F(LinkConv, MessagesNameWhatWasMissingOrRefused) {
    const Message cases[] = {
        {R"({"LinkId": 2})", -22, "Lack of NetId"},
        {R"({"NetId": 2147483647, "LinkId": 2})", -132, "Lack of NetId"},
        {R"({"NetId": 1})", -22, "Lack of LinkId"},
    };
    ExpectMessages("_OV_AgentLinkJsonToConf", "OV_AgentLinkJsonStrToConf", cases,
                   [this](const Message &) { EXPECT_EQ(log.find("not set"), std::string::npos); });
    EXPECT_EQ(Convert("not json"), -22);
    EXPECT_TRUE(Logged("Error", "OV_AgentLinkJsonStrToConf", "invalid link string, not json"));
    EXPECT_TRUE(Logged("Info", "OV_AgentLinkJsonStrToConf", "agent link conf json = not json "));
}

} // namespace
