// Tests of the access-name record decoder beyond the round trip: the bounds it
// keeps on received counts, and the entry counts it shows but cannot carry.
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
