#include "agentconf/acsname.h"

#include "agentconf/json_conv.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

class AcsNameTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::StdoutCapture quiet;
        ASSERT_GE(AgentMemModuleRegister(), 0);
        OV_AgentConfLogRegister();
        std::memset(&conf_, 0, sizeof conf_);
    }
    void TearDown() override {
        OV_AgentAcsNameEntriesRelease(&entries_);
        MemModuleStats stats{};
        MemModuleGetStats(g_agentMemModule, &stats);
        EXPECT_EQ(stats.MemCounter, 0); // the entry arrays went back
        ovtest::StdoutCapture quiet;
        OV_AgentConfLogUnregister();
        AgentMemModuleUnregister();
    }
    int32_t Convert(const std::string &json) {
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentAcsNameJsonStrToConf(&conf_, &entries_, json.c_str());
        out_ = cap.Take();
        return rc;
    }
    const AgentAcsAddrEntry *Addrs() const { return entries_.addrs; }
    const AgentAcsDomainEntry *Domains() const { return entries_.domains; }
    AgentAcsNameConf conf_;
    AgentAcsNameEntries entries_{};
    std::string out_;
};

TEST_F(AcsNameTest, MinimalRecordTakesTheDefaultName) {
    ASSERT_EQ(Convert(R"({"id": 12, "version": 7, "hasdomainsetid": true})"), 0);
    AgentAcsNameConf expected;
    std::memset(&expected, 0, sizeof expected);
    expected.id = 12;
    std::strcpy(expected.name, "aces12");
    expected.flags = ACSNAME_FLAG_HAS_DOMAINSET;
    expected.version = 7;
    EXPECT_EQ(std::memcmp(&conf_, &expected, sizeof conf_), 0);
    EXPECT_NE(out_.find("] acsname aces12: addrNum = 0, domainNum = 0\n"), std::string::npos)
        << out_;
}

TEST_F(AcsNameTest, RequiredKeysFailWithTheirTexts) {
    struct Case {
        const char *json;
        int32_t rc;
        const char *text;
    };
    const Case cases[] = {
        {R"({"version": 1})", -22, "] Lack of AcsId\n"},
        {R"({"id": 1})", -22, "] Get acsname version failed\n"},
        {R"({"id": 1, "version": -1})", -22, "] Get acsname version failed\n"},
        {R"({"id": 1, "version": 1, "iplist": 5})", -22, "] Get ip entries num failed\n"},
        {R"({"id": 1, "version": 1, "domainlist": {}})", -22, "] Get domain entries num failed\n"},
        {R"({"id": 1, "version": 1, "ipwithidlist": [{"id": 1, "ip": "10.0.0.256"}]})", -22,
         "] Json to conf for iplist failed(22:Invalid argument)\n"},
        {R"({"id": 1, "version": 1, "domainwithidlist": [{"domain": "a.example"}]})", -22,
         "] Json to conf for domainwithidlist failed(22:Invalid argument)\n"},
        {R"({"id": 1, "version": 1, "Probe": {"Ip": "x"}})", -22,
         "] Json to conf for Probe failed(22:Invalid argument)\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        OV_AgentAcsNameEntriesRelease(&entries_);
        std::memset(&conf_, 0, sizeof conf_);
        EXPECT_EQ(Convert(c.json), c.rc);
        EXPECT_NE(out_.find(c.text), std::string::npos) << out_;
    }
}

TEST_F(AcsNameTest, ListsFillTheEntryArraysAndTheSetNames) {
    ASSERT_EQ(Convert(R"({"id": 3, "ascname": "corp", "version": 1, "persistentFlag": true,
        "ipset": ["office"], "ipwithidlist": [{"id": 9, "ip": "10.1.0.0/16"}],
        "ipv6withidlist": [{"id": 4, "ip": "2001:db8::/32"}], "iplist": ["192.168.1.1"],
        "ipv6list": ["::1"], "domainset": ["blocked"],
        "domainwithidlist": [{"id": 2, "domain": "example.com"}], "domainlist": ["example.org"],
        "Probe": {"Enable": true, "Protocol": 1, "Port": 443, "Interval": 5, "Timeout": 2,
                  "Retries": 3, "Ip": "10.0.0.1", "Host": "probe.example"}})"),
              0);
    EXPECT_STREQ(conf_.name, "corp");
    EXPECT_EQ(conf_.flags, ACSNAME_FLAG_PERSISTENT);
    EXPECT_EQ(conf_.ipSetNum, 1);
    EXPECT_STREQ(conf_.ipSets[0], "office");
    EXPECT_EQ(conf_.domainSetNum, 1);
    EXPECT_STREQ(conf_.domainSets[0], "blocked");
    ASSERT_EQ(conf_.addrNum, 4u);
    ASSERT_EQ(conf_.domainNum, 2u);
    const AgentAcsAddrEntry *a = Addrs();
    uint32_t v4 = 0;
    std::memcpy(&v4, a[0].addr, 4);
    EXPECT_EQ(a[0].id, 9u);
    EXPECT_EQ(v4, 0x0A010000u);
    EXPECT_EQ(a[0].mask, 16);
    EXPECT_EQ(a[1].ipType, 1);
    EXPECT_EQ(a[1].mask, 32);
    EXPECT_EQ(a[1].addr[0], 0x20);
    EXPECT_EQ(a[2].mask, 32);
    EXPECT_EQ(a[3].mask, 128);
    EXPECT_EQ(a[3].addr[15], 1);
    EXPECT_EQ(Domains()[0].id, 2u);
    EXPECT_STREQ(Domains()[0].domain, "example.com");
    EXPECT_STREQ(Domains()[1].domain, "example.org");
    EXPECT_EQ(conf_.probe.enable, 1);
    EXPECT_EQ(conf_.probe.port, 443);
    EXPECT_EQ(conf_.probe.retries, 3u);
    EXPECT_STREQ(conf_.probe.host, "probe.example");
    EXPECT_NE(out_.find("acsname corp: addrNum = 4, domainNum = 2\n"), std::string::npos);
}

TEST_F(AcsNameTest, RefusesMoreEntriesOrSetsThanTheRecordHolds) {
    std::string many = R"({"id": 1, "version": 1, "iplist": [)";
    for (uint32_t i = 0; i <= ACSNAME_ADDR_MAX; ++i) {
        many += (i == 0 ? "" : ",");
        many += "\"10.0.0.1\"";
    }
    many += "]}";
    EXPECT_EQ(Convert(many), -22);
    EXPECT_NE(out_.find("Get ip entries num failed"), std::string::npos);

    std::string sets = R"({"id": 1, "version": 1, "ipset": [)";
    for (size_t i = 0; i <= ACSNAME_SET_MAX; ++i) {
        sets += (i == 0 ? "" : ",");
        sets += "\"s\"";
    }
    sets += "]}";
    OV_AgentAcsNameEntriesRelease(&entries_);
    std::memset(&conf_, 0, sizeof conf_);
    EXPECT_EQ(Convert(sets), -22);
    EXPECT_EQ(conf_.ipSetNum, ACSNAME_SET_MAX);
    EXPECT_NE(out_.find("Json to conf for ipset failed(22:Invalid argument)"), std::string::npos);
}

TEST_F(AcsNameTest, NamesLongerThanTheFieldAreRefused) {
    std::string name(64, 'n');
    EXPECT_EQ(Convert(R"({"id": 1, "version": 1, "ascname": ")" + name + "\"}"), -132);
    EXPECT_NE(out_.find("Get acsname name failed"), std::string::npos);
}

} // namespace
