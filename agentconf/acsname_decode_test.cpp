// Tests of the access-name record decoder: its JSON form, the bounds it keeps
// on received counts, and the round trip through the converter.
#include "agentconf/acsname.h"
#include "agentconf/json_conv.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>

namespace {

using Record = std::array<uint8_t, sizeof(AgentAcsNameConf)>;

std::string Decoded(const uint8_t *rec, size_t len) {
    OV_JsonPtr obj(OV_AgentAcsNameRecordToJson(rec, len));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

// JSON text -> record bytes as sent (the entries go in requests of their own).
int32_t Convert(const std::string &text, Record *rec) {
    ovtest::StdoutCapture quiet;
    AgentMemModuleRegister();
    AgentAcsNameConf conf{};
    int32_t rc = OV_AgentAcsNameJsonStrToConf(&conf, text.c_str());
    std::memcpy(rec->data(), &conf, rec->size());
    AgentMemModuleUnregister();
    return rc;
}

TEST(DecodeAcsName, RefusesAnyOtherLength) {
    Record rec{};
    EXPECT_EQ(OV_AgentAcsNameRecordToJson(rec.data(), rec.size() - 1), nullptr);
    EXPECT_EQ(OV_AgentAcsNameRecordToJson(nullptr, rec.size()), nullptr);
    auto longer = std::make_unique<uint8_t[]>(rec.size() + 1);
    EXPECT_EQ(OV_AgentAcsNameRecordToJson(longer.get(), rec.size() + 1), nullptr);
}

TEST(DecodeAcsName, ShowsFieldsSetsProbeAndEntryCounts) {
    Record rec;
    ASSERT_EQ(Convert(R"({"id": 7, "ascname": "office", "version": 5000000000,
                          "persistentFlag": true, "ipset": ["lan", "dmz"],
                          "iplist": ["10.0.0.0/8", "192.168.1.1"],
                          "domainlist": ["example.org"],
                          "Probe": {"Enable": true, "Protocol": 6, "Port": 443,
                                    "Interval": 5, "Timeout": 2, "Retries": 3,
                                    "Ip": "10.1.2.3", "Host": "probe.example.org"}})",
                      &rec),
              0);
    EXPECT_EQ(Decoded(rec.data(), rec.size()),
              R"({"id":7,"ascname":"office","version":5000000000,"persistentFlag":true,)"
              R"("hasdomainsetid":false,"addrNum":2,"domainNum":1,"addrRequests":1,)"
              R"("domainRequests":1,"ipset":["lan","dmz"],)"
              R"("domainset":[],"Probe":{"Enable":true,"Protocol":6,"Port":443,"Interval":5,)"
              R"("Timeout":2,"Retries":3,"Ip":"10.1.2.3","Host":"probe.example.org"}})");
}

TEST(DecodeAcsName, ReceivedCountsAndTextsStayInsideTheirFields) {
    // Exactly the record's bytes on the heap, so a sanitizer sees any overread.
    auto rec = std::make_unique<uint8_t[]>(sizeof(AgentAcsNameConf));
    std::memset(rec.get(), 'a', sizeof(AgentAcsNameConf));
    rec[offsetof(AgentAcsNameConf, ipSetNum)] = 200;
    rec[offsetof(AgentAcsNameConf, domainSetNum)] = 33;
    rec[offsetof(AgentAcsNameConf, probe) + offsetof(AgentAcsProbe, ipType)] = 1;
    OV_JsonPtr obj(OV_AgentAcsNameRecordToJson(rec.get(), sizeof(AgentAcsNameConf)));
    ASSERT_NE(obj, nullptr);
    for (const char *key : {"ipset", "domainset"}) {
        json_object *arr = nullptr;
        ASSERT_TRUE(json_object_object_get_ex(obj.get(), key, &arr)) << key;
        ASSERT_EQ(json_object_array_length(arr), ACSNAME_SET_MAX) << key;
        EXPECT_EQ(json_object_get_string_len(json_object_array_get_idx(arr, 31)), 64);
    }
    json_object *name = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(obj.get(), "ascname", &name));
    EXPECT_EQ(json_object_get_string_len(name), 64);
    json_object *probe = nullptr;
    json_object *host = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(obj.get(), "Probe", &probe));
    ASSERT_TRUE(json_object_object_get_ex(probe, "Host", &host));
    EXPECT_EQ(json_object_get_string_len(host), static_cast<int>(ACSNAME_PROBE_HOST_LEN));
}

TEST(DecodeAcsName, DecodedJsonConvertsBackToTheSameBytes) {
    const std::string texts[] = {
        R"({"id": 1, "version": 0})",
        R"({"id": -2, "ascname": "x", "version": 9223372036854775807, "persistentFlag": true,
            "hasdomainsetid": true, "ipset": ["a", "b", "c"], "domainset": ["d"],
            "Probe": {"Enable": false, "Protocol": 255, "Port": 65535, "Interval": -3,
                      "Timeout": 2147483646, "Retries": 0,
                      "Ip6": "2001:db8::1", "Host": ""}})",
        R"({"id": 3, "ascname": ")" + std::string(63, 'n') +
            R"(", "version": 1, "Probe": {"Host": "h"}})",
    };
    for (const std::string &text : texts) {
        SCOPED_TRACE(text);
        Record first;
        ASSERT_EQ(Convert(text, &first), 0);
        std::string decoded = Decoded(first.data(), first.size());
        Record second;
        ASSERT_EQ(Convert(decoded, &second), 0) << decoded;
        EXPECT_EQ(second, first) << decoded;
    }
}

TEST(DecodeAcsName, EntryListsAreCountedButNotCarried) {
    Record first;
    ASSERT_EQ(Convert(R"({"id": 4, "version": 2, "ipwithidlist": [{"id": 1, "ip": "1.2.3.4"}],
                          "ipv6list": ["::1"], "domainwithidlist": [{"id": 2, "domain": "a.b"}]})",
                      &first),
              0);
    std::string decoded = Decoded(first.data(), first.size());
    EXPECT_NE(decoded.find(R"("addrNum":2,"domainNum":1,)"), std::string::npos) << decoded;
    // Everything but the entry and request counts converts back.
    Record second;
    ASSERT_EQ(Convert(decoded, &second), 0) << decoded;
    constexpr size_t from = offsetof(AgentAcsNameConf, addrNum);
    constexpr size_t to = offsetof(AgentAcsNameConf, ipSets);
    std::fill(first.begin() + from, first.begin() + to, 0);
    EXPECT_EQ(second, first) << decoded;
}

} // namespace
