// Tests of the rate-limit record decoder: its JSON form and the round trip
// through the converter.
#include "agentconf/json_conv.h"
#include "agentconf/ratelimit.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

using Record = std::array<uint8_t, sizeof(AgentRatelimitConf)>;

std::string Decoded(const Record &rec) {
    OV_JsonPtr obj(OV_AgentRatelimitRecordToJson(rec.data(), rec.size()));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

int32_t Convert(const std::string &text, Record *rec) {
    ovtest::StdoutCapture quiet;
    AgentRatelimitConf conf{};
    int32_t rc = OV_AgentRatelimitJsonStrToConf(&conf, text.c_str());
    std::memcpy(rec->data(), &conf, rec->size());
    return rc;
}

TEST(DecodeRatelimit, RefusesAnyOtherLength) {
    Record rec{};
    EXPECT_EQ(OV_AgentRatelimitRecordToJson(rec.data(), rec.size() - 1), nullptr);
    EXPECT_EQ(OV_AgentRatelimitRecordToJson(nullptr, rec.size()), nullptr);
}

TEST(DecodeRatelimit, ShowsTheUsageSampleWithItsSingleBucketKeys) {
    Record rec;
    ASSERT_EQ(Convert(R"({"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0,
        "Type": 1, "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1,
        "PersistentFlag": true})",
                      &rec),
              0);
    EXPECT_EQ(Decoded(rec),
              R"({"RateLimitId":1,"RateLimitObjId":0,"CustomerId":0,"BucketRate":0,"CBS":0,)"
              R"("Type":1,"PerSrcIpBucketRate":0,"PerSrcIpCBS":0,"PerDstIpBucketRate":0,)"
              R"("PerDstIpCBS":0,"UpdateType":true,"UpdateBucketRate":false,"UpdateCBS":false,)"
              R"("UpdatePerSrcIpBucketRate":true,"UpdatePerDstIpBucketRate":false,)"
              R"("UpdatePerSrcIpCBS":true,"UpdatePerDstIpCBS":false,"PersistentFlag":true,)"
              R"("PerIpBucketRate":0,"PerIpCBS":0})");
}

TEST(DecodeRatelimit, RoundTripsEveryRecordKind) {
    const char *texts[] = {
        R"({"RateLimitId": 1, "Type": 1, "PerIpBucketRate": 0, "UpdateType": 1,
            "PersistentFlag": true})",
        R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 0, "PerIpCBS": 77})",
        R"({"RateLimitId": 1, "Type": 1, "PerSrcIpCBS": 5, "PerIpBucketRate": 0})",
        R"({"RateLimitId": -1, "RateLimitObjId": -2, "CustomerId": -3, "BucketRate": -4,
            "CBS": 9223372036854775807, "Type": -5, "PerSrcIpBucketRate": -6,
            "PerSrcIpCBS": 9223372036854775807, "PerDstIpBucketRate": 2147483646,
            "PerDstIpCBS": 1, "UpdateType": true, "UpdateBucketRate": true, "UpdateCBS": true,
            "UpdatePerSrcIpBucketRate": true, "UpdatePerDstIpBucketRate": true,
            "UpdatePerSrcIpCBS": true, "UpdatePerDstIpCBS": true, "PersistentFlag": true})",
        R"({"RateLimitId": 9, "Type": 1, "PerSrcIpBucketRate": 500})",
        R"({"RateLimitId": 9, "Type": 2, "PerDstIpBucketRate": 500, "UpdateCBS": true})",
    };
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        Record first;
        ASSERT_EQ(Convert(text, &first), 0);
        std::string decoded = Decoded(first);
        Record second;
        ASSERT_EQ(Convert(decoded, &second), 0) << decoded;
        EXPECT_EQ(first, second) << decoded;
    }
}

TEST(DecodeRatelimit, DecodesADeleteRecord) {
    Record rec{};
    uint32_t id = 4000000000u;
    std::memcpy(rec.data(), &id, sizeof id);
    std::string decoded = Decoded(rec);
    EXPECT_NE(decoded.find(R"("RateLimitId":-294967296,)"), std::string::npos) << decoded;
    Record again;
    ASSERT_EQ(Convert(decoded, &again), 0);
    EXPECT_EQ(rec, again);
}

} // namespace
