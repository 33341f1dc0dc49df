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
        std::string json;
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
        {R"({"id": 1, "version": 1, "ascname": ")" + std::string(64, 'n') + "\"}", -132,
         "] Get acsname name failed\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        OV_AgentAcsNameEntriesRelease(&entries_);
        std::memset(&conf_, 0, sizeof conf_);
        EXPECT_EQ(Convert(c.json), c.rc);
        EXPECT_NE(out_.find(c.text), std::string::npos) << out_;
    }
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

} // namespace
