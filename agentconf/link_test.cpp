// Tests of the link-IP and link converters: whole records byte for byte,
// refusals and the log lines they leave.
#include "agentconf/link.h"

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using ExpectedLinkIp = ovtest::RecordBytes<sizeof(AgentLinkIpConf)>;
using ExpectedLink = ovtest::RecordBytes<sizeof(AgentLinkConf)>;
using ovtest::SameRecord;

class LinkConv : public ovtest::ConverterTest {
  protected:
    int32_t ConvertLinkIp(const char *text) {
        std::memset(&linkIp, 0, sizeof linkIp);
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentLinkIpJsonStrToConf(&linkIp, text);
        out = cap.Take();
        return rc;
    }
    int32_t ConvertLink(const char *text) {
        std::memset(&link, 0, sizeof link);
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentLinkJsonStrToConf(&link, text);
        out = cap.Take();
        return rc;
    }

    AgentLinkIpConf linkIp{};
    AgentLinkConf link{};
    std::string out;
};

TEST_F(LinkConv, LinkIpUsageSampleSetsPersistentAndIpv4Bits) {
    ASSERT_EQ(ConvertLinkIp(R"({"Type": 2, "SiteIpId": 1, "PersistentFlag": true,
        "CustomerId": 0, "SiteId": 82, "IpAddr": "10.1.2.3"})"),
              0)
        << out;
    EXPECT_TRUE(SameRecord(linkIp, ExpectedLinkIp()
                                       .Bytes(0, {2, 1, 0x03})
                                       .Put<uint32_t>(8, 82)
                                       .Put<uint32_t>(16, 0x0A010203)));
    EXPECT_EQ(out.find("Lack"), std::string::npos) << out;
}

TEST_F(LinkConv, LinkIpFillsEveryFieldAtItsOffset) {
    ASSERT_EQ(ConvertLinkIp(R"({"Type": 255, "SiteIpId": 254, "PersistentFlag": false,
        "CustomerId": -1, "SiteId": 2147483646, "VpnId": 7, "IpAddr": "255.254.253.252",
        "Ip6Addr": "2001:db8::1"})"),
              0)
        << out;
    EXPECT_TRUE(SameRecord(
        linkIp, ExpectedLinkIp()
                    .Bytes(0, {255, 254, 0x06})
                    .Put<uint32_t>(4, 0xFFFFFFFF)
                    .Put<uint32_t>(8, 2147483646)
                    .Put<uint32_t>(12, 7)
                    .Put<uint32_t>(16, 0xFFFEFDFC)
                    .Bytes(20, {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})));
}

TEST_F(LinkConv, LinkIpWithoutCustomerIdStillConverts) {
    ASSERT_EQ(ConvertLinkIp(R"({"Type": 1, "SiteIpId": 3, "SiteId": 9})"), 0);
    EXPECT_TRUE(SameRecord(linkIp, ExpectedLinkIp().Bytes(0, {1, 3}).Put<uint32_t>(8, 9)));
    EXPECT_NE(out.find("<Error:AGENTCONF>[_OV_AgentLinkIpJsonToConf:"), std::string::npos);
    EXPECT_EQ(ovtest::CountOf(out, "] Lack of CustomerId\n"), 1u) << out;
    EXPECT_EQ(out.find("Json to data struct failed"), std::string::npos) << out;
}

TEST_F(LinkConv, LinkIpRequiredKeysEndTheConversionWithTheGettersCode) {
    struct Case {
        const char *json;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"({"SiteIpId": 1, "SiteId": 2})", -22, "] Lack of Type\n"},
        {R"({"Type": 256, "SiteIpId": 1, "SiteId": 2})", -132, "] Lack of Type\n"},
        {R"({"Type": -1, "SiteIpId": 1, "SiteId": 2})", -132, "] Lack of Type\n"},
        {R"({"Type": 1, "SiteId": 2})", -22, "] Lack of SiteIpId\n"},
        {R"({"Type": 1, "SiteIpId": 300, "SiteId": 2})", -132, "] Lack of SiteIpId\n"},
        {R"({"Type": 1, "SiteIpId": 1, "CustomerId": 4})", -22, "] Lack of SiteId\n"},
        {R"({"Type": 1, "SiteIpId": 1, "SiteId": 2147483647})", -132, "] Lack of SiteId\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(ConvertLinkIp(c.json), c.rc);
        EXPECT_EQ(ovtest::CountOf(out, c.message), 1u) << out;
        EXPECT_NE(out.find("<Error:AGENTCONF>[_OV_AgentLinkIpJsonToConf:"), std::string::npos);
    }
}

TEST_F(LinkConv, LinkIpAddressTexts) {
    struct Case {
        const char *addrs;
        int32_t rc;
        const char *message;
        uint8_t flags;
    };
    const Case cases[] = {
        {R"("IpAddr": "10.0.0.256")", -22, "] Get ip addr from string failed\n", 0},
        {R"("IpAddr": "10.0.0.1", "Ip6Addr": "1::2::3")", -22,
         "] Get ipv6 addr from string failed\n", 0x02},
        // Too long for its buffer: skipped like a missing key.
        {R"("IpAddr": "100.100.100.100    ")", 0, nullptr, 0},
        {R"("IpAddr": null, "Ip6Addr": "::")", 0, nullptr, 0x04},
    };
    for (const Case &c : cases) {
        std::string json =
            std::string(R"({"Type": 1, "SiteIpId": 1, "CustomerId": 1, "SiteId": 1, )") + c.addrs +
            "}";
        SCOPED_TRACE(json);
        EXPECT_EQ(ConvertLinkIp(json.c_str()), c.rc);
        EXPECT_EQ(linkIp.flags, c.flags);
        if (c.message != nullptr) {
            EXPECT_EQ(ovtest::CountOf(out, c.message), 1u) << out;
        } else {
            EXPECT_EQ(out.find("<Error"), std::string::npos) << out;
        }
    }
    // 50 characters do not fit the 50-byte buffer: skipped as well.
    std::string longV6 =
        R"({"Type": 1, "SiteIpId": 1, "SiteId": 1, "Ip6Addr": "::1)" + std::string(47, ' ') + "\"}";
    EXPECT_EQ(ConvertLinkIp(longV6.c_str()), 0);
    EXPECT_EQ(linkIp.flags, 0);
    longV6.erase(longV6.size() - 3, 1); // 49 characters fit
    EXPECT_EQ(ConvertLinkIp(longV6.c_str()), 0);
    EXPECT_EQ(linkIp.flags, LINKIP_FLAG_HAS_IPV6);
    EXPECT_EQ(linkIp.ip6Addr[15], 1);
}

TEST_F(LinkConv, LinkPacksFlagsAndMasksLinkIdAndType) {
    ASSERT_EQ(ConvertLink(R"({"NetId": 3, "LinkId": 16777217, "Role": true, "Simu": false,
        "Type": 2, "PersistentFlag": true})"),
              0);
    EXPECT_TRUE(SameRecord(
        link, ExpectedLink().Put<uint32_t>(0, 3).Put<uint32_t>(4, 1).Put<uint8_t>(8, 0x19)));

    ASSERT_EQ(ConvertLink(R"({"NetId": 3, "LinkId": -1, "Type": 6, "Ipv6Flag": 1,
        "Leased": "y"})"),
              0);
    EXPECT_TRUE(SameRecord(
        link,
        ExpectedLink().Put<uint32_t>(0, 3).Put<uint32_t>(4, 0x00FFFFFF).Put<uint8_t>(8, 0x68)));

    // A Type the 8-bit getter refuses is left out, not a failure.
    ASSERT_EQ(ConvertLink(R"({"NetId": 3, "LinkId": 4, "Type": 256})"), 0);
    EXPECT_TRUE(SameRecord(link, ExpectedLink().Put<uint32_t>(0, 3).Put<uint32_t>(4, 4)));
}

TEST_F(LinkConv, LinkFillsEveryFieldAtItsOffsetAndTruncatesPorts) {
    ASSERT_EQ(ConvertLink(R"({"NetId": -2, "LinkId": 5, "Role": true, "Simu": true, "Type": 3,
        "PersistentFlag": true, "Ipv6Flag": true, "Leased": true, "Mode": 6, "Thresh": 7,
        "ProtoVersion": 8, "WanId": 9, "LocalVpnId": 10, "PeerSiteIpId": 11, "PeerVpnId": 12,
        "LocalSitePort": 70000, "PeerSitePort": -1, "PeerSiteId": 13, "PeerCustomerId": 14,
        "KeepaliveInterval": 255, "KeepaliveTimeout": 16})"),
              0)
        << out;
    EXPECT_TRUE(SameRecord(link, ExpectedLink()
                                     .Put<uint32_t>(0, 0xFFFFFFFE)
                                     .Put<uint32_t>(4, 5)
                                     .Put<uint8_t>(8, 0x7F)
                                     .Put<uint32_t>(12, 6)
                                     .Bytes(16, {7, 8, 9, 11})
                                     .Put<uint32_t>(20, 10)
                                     .Put<uint32_t>(24, 12)
                                     .Put<uint16_t>(28, 4464)
                                     .Put<uint16_t>(30, 0xFFFF)
                                     .Put<uint32_t>(32, 13)
                                     .Put<uint32_t>(36, 14)
                                     .Bytes(40, {255, 16})));
    EXPECT_EQ(out.find("not set"), std::string::npos) << out;
}

TEST_F(LinkConv, MinimalLinkConvertsAfterNineNotices) {
    ASSERT_EQ(ConvertLink(R"({"NetId": 1, "LinkId": 2})"), 0);
    EXPECT_TRUE(SameRecord(link, ExpectedLink().Put<uint32_t>(0, 1).Put<uint32_t>(4, 2)));
    const char *keys[] = {
        "Mode",       "Thresh",         "ProtoVersion",      "WanId",           "PeerSiteIpId",
        "PeerSiteId", "PeerCustomerId", "KeepaliveInterval", "KeepaliveTimeout"};
    size_t last = 0;
    for (const char *key : keys) {
        std::string line = std::string("] Link conf not set ") + key + "!\n";
        size_t at = out.find(line);
        ASSERT_NE(at, std::string::npos) << key << "\n" << out;
        EXPECT_GT(at, last) << key; // in reading order
        last = at;
    }
    EXPECT_EQ(ovtest::CountOf(out, "<Debug:AGENTCONF>[_OV_AgentLinkJsonToConf:"), 9u) << out;
    EXPECT_EQ(out.find("<Error"), std::string::npos) << out;
}

TEST_F(LinkConv, LinkRequiresNetIdAndLinkId) {
    struct Case {
        const char *json;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"({"LinkId": 2})", -22, "] Lack of NetId\n"},
        {R"({"NetId": 2147483647, "LinkId": 2})", -132, "] Lack of NetId\n"},
        {R"({"NetId": 1})", -22, "] Lack of LinkId\n"},
        {R"({"NetId": 1, "LinkId": -2147483648})", -132, "] Lack of LinkId\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(ConvertLink(c.json), c.rc);
        EXPECT_NE(out.find(std::string("<Error:AGENTCONF>[_OV_AgentLinkJsonToConf:")),
                  std::string::npos);
        EXPECT_EQ(ovtest::CountOf(out, c.message), 1u) << out;
        EXPECT_EQ(out.find("not set"), std::string::npos) << out;
    }
}

TEST_F(LinkConv, EntriesLogTheirKindWithTheirOwnNames) {
    ConvertLinkIp("[");
    EXPECT_NE(out.find("<Info:AGENTCONF>[OV_AgentLinkIpJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] agent link ip conf json = [ \n"), std::string::npos) << out;
    EXPECT_NE(out.find("<Error:AGENTCONF>[OV_AgentLinkIpJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] invalid link ip string, not json\n"), std::string::npos) << out;

    EXPECT_EQ(ConvertLink("not json"), -22);
    EXPECT_NE(out.find("<Info:AGENTCONF>[OV_AgentLinkJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] agent link conf json = not json \n"), std::string::npos) << out;
    EXPECT_NE(out.find("] invalid link string, not json\n"), std::string::npos) << out;

    EXPECT_EQ(ConvertLink(R"({"NetId": 1})"), -22);
    EXPECT_NE(out.find("<Error:AGENTCONF>[OV_AgentLinkJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] Json to data struct failed(22:"), std::string::npos) << out;
}

} // namespace
