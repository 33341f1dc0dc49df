// Tests of the access-name converter and its entry requests: refusals, the
// bytes of each request, where the lists are cut, the stop at a refusal, and
// the JSON they read back as.
#include "agentconf/acsname.h"
#include "agentconf/acsname_entries.h"

#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using ovtest::RecordBytes;

struct Sent {
    uint16_t function;
    std::vector<uint8_t> bytes;
};

int32_t Collect(uint16_t function, const void *payload, uint32_t len, void *ctx) {
    const auto *p = static_cast<const uint8_t *>(payload);
    static_cast<std::vector<Sent> *>(ctx)->push_back({function, {p, p + len}});
    return 0;
}

class AcsNameEntries : public ovtest::ConverterTest {
  protected:
    void TearDown() override {
        OV_AgentAcsNameEntriesRelease(&entries_);
        MemModuleStats stats{};
        MemModuleGetStats(g_agentMemModule, &stats);
        EXPECT_EQ(stats.MemCounter, 0);
        ConverterTest::TearDown();
    }
    int32_t Convert(const std::string &text) {
        OV_AgentAcsNameEntriesRelease(&entries_);
        std::memset(&conf_, 0, sizeof conf_);
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentAcsNameJsonStrToConf(&conf_, &entries_, text.c_str());
        out_ = cap.Take();
        return rc;
    }
    // Converts text and builds its entry requests.
    std::vector<Sent> Requests(const std::string &text) {
        EXPECT_EQ(Convert(text), 0);
        ovtest::StdoutCapture quiet;
        std::vector<Sent> sent;
        EXPECT_EQ(OV_AgentAcsNameSendEntries(&conf_, &entries_, Collect, &sent), 0);
        return sent;
    }
    AgentAcsNameConf conf_{};
    AgentAcsNameEntries entries_{};
    std::string out_;
};

std::string Json(json_object *obj) {
    OV_JsonPtr owned(obj);
    return obj == nullptr ? "(null)"
                          : json_object_to_json_string_ext(obj, JSON_C_TO_STRING_PLAIN |
                                                                    JSON_C_TO_STRING_NOSLASHESCAPE);
}

TEST_F(AcsNameEntries, MinimalRecordTakesTheDefaultName) {
    ASSERT_EQ(Convert(R"({"id": 12, "version": 7, "hasdomainsetid": true})"), 0);
    EXPECT_TRUE(ovtest::SameRecord(
        conf_, RecordBytes<4480>().U32(0, 12).Text(4, "aces12").U8(68, 0x02).U64(72, 7)));
    EXPECT_NE(out_.find("] acsname aces12: addrNum = 0, domainNum = 0\n"), std::string::npos)
        << out_;
}

TEST_F(AcsNameEntries, RequiredKeysFailWithTheirTexts) {
    struct Case {
        std::string json;
        int32_t rc;
        const char *text;
    };
    const Case cases[] = {
        {R"({"version": 1})", -22, "] Lack of AcsId\n"},
        {R"({"id": 1})", -22, "] Get acsname version failed\n"},
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
        EXPECT_EQ(Convert(c.json), c.rc);
        EXPECT_NE(out_.find(c.text), std::string::npos) << out_;
    }
}

TEST_F(AcsNameEntries, RefusesMoreEntriesOrSetsThanTheRecordHolds) {
    auto with = [](const char *key, size_t n, const std::string &item) {
        return std::string(R"({"id": 1, "version": 1, ")") + key +
               "\": " + ovtest::Repeat(item, n) + "}";
    };
    EXPECT_EQ(Convert(with("iplist", ACSNAME_ADDR_MAX + 1, "\"10.0.0.1\"")), -22);
    EXPECT_NE(out_.find("Get ip entries num failed"), std::string::npos);
    EXPECT_EQ(Convert(with("ipset", ACSNAME_SET_MAX + 1, "\"s\"")), -22);
    EXPECT_EQ(conf_.ipSetNum, ACSNAME_SET_MAX);
    EXPECT_NE(out_.find("Json to conf for ipset failed(22:Invalid argument)"), std::string::npos);
    AgentMemModuleUnregister(); // no memory for the entries
    for (const char *list : {"iplist", "domainlist"}) {
        EXPECT_EQ(Convert(with(list, 1, "\"10.0.0.1\"")), -12);
        EXPECT_NE(out_.find(list[0] == 'i' ? "] Get ip entries num failed\n"
                                           : "] Get domain entries num failed\n"),
                  std::string::npos);
    }
}

TEST_F(AcsNameEntries, EveryListFormLandsInTheEntriesListsWithIdsFirst) {
    std::vector<Sent> sent = Requests(R"({"id": 3, "ascname": "corp", "version": 1,
        "ipwithidlist": [{"id": 9, "ip": "10.1.0.0/16"}], "iplist": ["192.168.1.1"],
        "ipv6withidlist": [{"id": 4, "ip": "2001:db8::/32"}], "ipv6list": ["::1"],
        "domainlist": ["example.org"], "domainwithidlist": [{"id": 2, "domain": "example.com"}]})");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(Json(OV_AgentAcsAddrRequestToJson(sent[0].bytes.data(), sent[0].bytes.size())),
              R"({"id":3,"ascname":"corp","first":0,"count":4,"addresses":[)"
              R"({"id":9,"ip":"10.1.0.0/16"},{"id":4,"ip":"2001:db8::/32"},)"
              R"({"id":0,"ip":"192.168.1.1/32"},{"id":0,"ip":"::1/128"}]})");
    EXPECT_EQ(Json(OV_AgentAcsDomainRequestToJson(sent[1].bytes.data(), sent[1].bytes.size())),
              R"({"id":3,"ascname":"corp","first":0,"count":2,"domains":[)"
              R"({"id":2,"domain":"example.com"},{"id":0,"domain":"example.org"}]})");
}

TEST_F(AcsNameEntries, ListsAreCutIntoFullRequestsInIndexOrder) {
    struct Case {
        uint32_t addrs;
        uint32_t domains;
        std::vector<uint32_t> counts; ///< of each request, addresses first
    };
    const Case cases[] = {{0, 0, {}}, {2726, 255, {2726, 255}}, {2727, 256, {2726, 1, 255, 1}}};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.addrs) + " addresses, " + std::to_string(c.domains));
        std::string text = R"({"id": 8, "ascname": "cut", "version": 1, "iplist": [)";
        for (uint32_t i = 0; i < c.addrs; ++i) {
            text += (i ? ",\"10.0." : "\"10.0.") + std::to_string(i / 256) + "." +
                    std::to_string(i % 256) + "\"";
        }
        text += R"(], "domainlist": [)";
        for (uint32_t i = 0; i < c.domains; ++i) {
            text += (i ? ",\"d" : "\"d") + std::to_string(i) + "\"";
        }
        std::vector<Sent> sent = Requests(text + "]}");
        ASSERT_EQ(sent.size(), c.counts.size());
        uint32_t first[2] = {0, 0};
        uint64_t requests[2] = {0, 0};
        for (size_t i = 0; i < sent.size(); ++i) {
            const int list = sent[i].function - 2;
            const size_t size = list == 0 ? sizeof(AgentAcsAddrEntry) : sizeof(AgentAcsDomainEntry);
            const auto *items = list == 0 ? reinterpret_cast<const uint8_t *>(entries_.addrs)
                                          : reinterpret_cast<const uint8_t *>(entries_.domains);
            AgentAcsEntryHead head{8, "cut", first[list], c.counts[i], {}};
            std::vector<uint8_t> want(sizeof head + head.count * size);
            std::memcpy(want.data(), &head, sizeof head);
            std::memcpy(want.data() + sizeof head, items + head.first * size, head.count * size);
            EXPECT_EQ(sent[i].bytes, want) << i;
            EXPECT_LE(want.size() + IMC_HEADER_LEN, 65536u);
            EXPECT_TRUE(list == 1 || requests[1] == 0) << "addresses go first";
            first[list] += head.count;
            ++requests[list];
        }
        EXPECT_EQ(first[0], c.addrs);
        EXPECT_EQ(first[1], c.domains);
        EXPECT_EQ(conf_.addrRequests, requests[0]);
        EXPECT_EQ(conf_.domainRequests, requests[1]);
    }
}

int32_t RefuseSecond(uint16_t /*function*/, const void * /*payload*/, uint32_t /*len*/, void *ctx) {
    return ++*static_cast<int *>(ctx) == 2 ? -5 : 0;
}

// The agent would refuse such a series halfway: none of it goes.
TEST_F(AcsNameEntries, NothingIsBuiltForARecordThatDoesNotFit) {
    Requests(R"({"id": 1, "version": 1, "iplist": ["1.1.1.1"], "domainlist": ["a", "b"]})");
    int calls = 0;
    for (uint32_t domainNum : {2u, 4097u}) {
        AgentAcsNameConf conf = conf_;
        conf.domainNum = domainNum;
        conf.domainRequests = 2;
        calls = 0;
        EXPECT_EQ(OV_AgentAcsNameSendEntries(&conf, &entries_, RefuseSecond, &calls), -22);
        EXPECT_EQ(calls, 0);
    }
}

TEST(AcsNameEntryJson, ShowsEachEntryAndRefusesAnyOtherLength) {
    RecordBytes<80 + 6 * 24> addrs;
    addrs.Put<int32_t>(0, -3).Text(4, "lab").U32(68, 7).U32(72, 6);
    addrs.U32(80, 9).Bytes(84, {0, 16}).U32(88, 0x0A010000);
    addrs.Bytes(108, {1, 32}).Bytes(112, {0x20, 0x01, 0x0d, 0xb8});
    addrs.Bytes(132, {1, 128}).Bytes(151, {1});
    addrs.Bytes(156, {1, 64}).Bytes(160, {0, 1, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 3});
    addrs.Bytes(180, {1, 0});
    addrs.U32(200, 4).Bytes(204, {7, 1});
    EXPECT_EQ(Json(OV_AgentAcsAddrRequestToJson(addrs.bytes.data(), addrs.bytes.size())),
              R"({"id":-3,"ascname":"lab","first":7,"count":6,"addresses":[)"
              R"({"id":9,"ip":"10.1.0.0/16"},{"id":0,"ip":"2001:db8::/32"},)"
              R"({"id":0,"ip":"::1/128"},{"id":0,"ip":"1:0:0:2::3/64"},{"id":0,"ip":"::/0"},)"
              R"({"id":4,"ipType":7}]})");

    RecordBytes<80 + 2 * 256> domains;
    domains.U32(0, 1).Text(4, "lab").U32(72, 2);
    domains.U32(80, 2).Text(84, "example.com");
    std::memset(domains.bytes.data() + 340, 'x', ACSNAME_DOMAIN_LEN); // no NUL: cut at the field
    EXPECT_EQ(Json(OV_AgentAcsDomainRequestToJson(domains.bytes.data(), domains.bytes.size())),
              R"({"id":1,"ascname":"lab","first":0,"count":2,"domains":[)"
              R"({"id":2,"domain":"example.com"},{"id":0,"domain":")" +
                  std::string(ACSNAME_DOMAIN_LEN, 'x') + R"("}]})");

    // Shorter than the head, part of an entry, or another count than it holds.
    RecordBytes<80> head; // of no entries
    EXPECT_EQ(Json(OV_AgentAcsDomainRequestToJson(head.Text(4, "lab").bytes.data(), 80)),
              R"({"id":0,"ascname":"lab","first":0,"count":0,"domains":[]})");
    for (size_t len : {size_t{0}, size_t{79}, size_t{80}, size_t{80 + 255}, size_t{80 + 256}}) {
        SCOPED_TRACE(len);
        EXPECT_EQ(OV_AgentAcsDomainRequestToJson(domains.bytes.data(), len), nullptr);
        EXPECT_EQ(OV_AgentAcsAddrRequestToJson(addrs.bytes.data(), std::min<size_t>(len, 80 + 24)),
                  nullptr);
    }
    EXPECT_EQ(OV_AgentAcsAddrRequestToJson(nullptr, 104), nullptr);
}

} // namespace
