// Tests of the link-IP and link record decoders: their JSON form and the
// round trip through the converters.
#include "agentconf/json_conv.h"
#include "agentconf/link.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

using LinkIpRecord = std::array<uint8_t, sizeof(AgentLinkIpConf)>;
using LinkRecord = std::array<uint8_t, sizeof(AgentLinkConf)>;

template <size_t N>
std::string Decoded(json_object *(*decode)(const uint8_t *, size_t),
                    const std::array<uint8_t, N> &rec) {
    OV_JsonPtr obj(decode(rec.data(), rec.size()));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

template <typename Conf>
int32_t Convert(int32_t (*convert)(Conf *, const char *), const std::string &text,
                std::array<uint8_t, sizeof(Conf)> *rec) {
    ovtest::StdoutCapture quiet;
    Conf conf{};
    int32_t rc = convert(&conf, text.c_str());
    std::memcpy(rec->data(), &conf, rec->size());
    return rc;
}

TEST(DecodeLink, RefusesAnyOtherLength) {
    LinkRecord rec{};
    EXPECT_EQ(OV_AgentLinkRecordToJson(rec.data(), rec.size() - 1), nullptr);
    EXPECT_EQ(OV_AgentLinkIpRecordToJson(rec.data(), rec.size()), nullptr);
    EXPECT_EQ(OV_AgentLinkIpRecordToJson(rec.data(), sizeof(AgentLinkIpConf) + 1), nullptr);
    EXPECT_EQ(OV_AgentLinkIpRecordToJson(nullptr, sizeof(AgentLinkIpConf)), nullptr);
}

TEST(DecodeLink, ShowsTheLinkIpSampleWithItsAddress) {
    LinkIpRecord rec;
    ASSERT_EQ(Convert(OV_AgentLinkIpJsonStrToConf,
                      R"({"Type": 2, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 0,
                          "SiteId": 82, "IpAddr": "10.1.2.3"})",
                      &rec),
              0);
    EXPECT_EQ(Decoded(OV_AgentLinkIpRecordToJson, rec),
              R"({"Type":2,"VpnId":0,"SiteIpId":1,"PersistentFlag":true,"CustomerId":0,)"
              R"("SiteId":82,"IpAddr":"10.1.2.3"})");
}

TEST(DecodeLink, LinkIpRoundTrips) {
    const char *texts[] = {
        R"({"Type": 2, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 0, "SiteId": 82,
            "IpAddr": "10.1.2.3"})",
        R"({"Type": 255, "SiteIpId": 255, "CustomerId": -1, "SiteId": -2, "VpnId": -3,
            "IpAddr": "0.0.0.0", "Ip6Addr": "2001:db8:0:1:2:3:4:5", "PersistentFlag": true})",
        R"({"Type": 1, "SiteIpId": 0, "SiteId": 1, "Ip6Addr": "::ffff:1.2.3.4"})",
        R"({"Type": 3, "SiteIpId": 0, "SiteId": 1})",
    };
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        LinkIpRecord first;
        ASSERT_EQ(Convert(OV_AgentLinkIpJsonStrToConf, text, &first), 0);
        std::string decoded = Decoded(OV_AgentLinkIpRecordToJson, first);
        LinkIpRecord second;
        ASSERT_EQ(Convert(OV_AgentLinkIpJsonStrToConf, decoded, &second), 0) << decoded;
        EXPECT_EQ(first, second) << decoded;
    }
}

TEST(DecodeLink, LinkRoundTrips) {
    const char *texts[] = {
        R"({"NetId": 1, "LinkId": 2})",
        R"({"NetId": 1, "LinkId": 16777217, "Role": true, "Simu": false, "Type": 2,
            "PersistentFlag": true, "LocalSitePort": 49152})",
        R"({"NetId": -1, "LinkId": -1, "Role": true, "Simu": true, "Type": 7,
            "PersistentFlag": true, "Ipv6Flag": true, "Leased": true, "Mode": -2, "Thresh": 255,
            "ProtoVersion": 255, "WanId": 255, "LocalVpnId": -3, "PeerSiteIpId": 255,
            "PeerVpnId": 2147483646, "LocalSitePort": 70000, "PeerSitePort": 65535,
            "PeerSiteId": -4, "PeerCustomerId": -5, "KeepaliveInterval": 255,
            "KeepaliveTimeout": 255})",
    };
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        LinkRecord first;
        ASSERT_EQ(Convert(OV_AgentLinkJsonStrToConf, text, &first), 0);
        std::string decoded = Decoded(OV_AgentLinkRecordToJson, first);
        LinkRecord second;
        ASSERT_EQ(Convert(OV_AgentLinkJsonStrToConf, decoded, &second), 0) << decoded;
        EXPECT_EQ(first, second) << decoded;
    }
}

TEST(DecodeLink, DecodesDeleteRecords) {
    // Link-IP delete: type, wan id, client id at 8 and VPN id at 12.
    LinkIpRecord ip{};
    ip[0] = 1;
    ip[1] = 3;
    ip[8] = 7;
    ip[12] = 9;
    EXPECT_EQ(Decoded(OV_AgentLinkIpRecordToJson, ip),
              R"({"Type":1,"VpnId":9,"SiteIpId":3,"PersistentFlag":false,"CustomerId":0,)"
              R"("SiteId":7})");
    // Link delete: net id in byte 0, link id in the low 24 bits at 4.
    LinkRecord link{};
    link[0] = 44;
    link[4] = 2;
    std::string decoded = Decoded(OV_AgentLinkRecordToJson, link);
    EXPECT_NE(decoded.find(R"({"NetId":44,"LinkId":2,"Role":false,)"), std::string::npos)
        << decoded;
}

} // namespace
