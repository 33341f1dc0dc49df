// Tests of the rate-limit converter: whole records byte for byte, the
// single-bucket form, refusals and the log lines they leave.
#include "agentconf/ratelimit.h"

#include "agentconf/json_conv.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using RatelimitConv =
    ovtest::RecordConverterTest<AgentRatelimitConf, OV_AgentRatelimitJsonStrToConf>;

constexpr const char *kFn = "_OV_AgentRatelimitJsonToConf";

TEST_F(RatelimitConv, EachFormGivesItsBytes) {
    // Id 5 and the bucket type.
    auto Id5 = [](uint32_t type) { return Expected().U32(0, 5).Put(24, type); };
    const Form cases[] = {
        // The single-bucket keys fill the bucket Type selects and force its
        // update bits, over Update keys that say false.
        {R"({"RateLimitId": 5, "Type": 1, "PerIpBucketRate": 100, "PerIpCBS": 200,
            "UpdatePerSrcIpBucketRate": false, "UpdatePerSrcIpCBS": false})",
         Id5(1).U32(32, 100).Put<int64_t>(40, 200).U16(64, 0x0028)},
        {R"({"RateLimitId": 5, "Type": 2, "PerIpBucketRate": 100, "PerIpCBS": 200})",
         Id5(2).U32(48, 100).Put<int64_t>(56, 200).U16(64, 0x0050)},
        // A bucket rate of its own: the single-bucket keys are not read.
        {R"({"RateLimitId": 5, "Type": 1, "PerSrcIpBucketRate": 500, "PerIpBucketRate": 100,
            "PerIpCBS": -1})",
         Id5(1).U32(32, 500)},
        {R"({"RateLimitId": 5, "Type": 2, "PerDstIpBucketRate": 500, "PerIpBucketRate": 100})",
         Id5(2).U32(48, 500)},
        {R"({"RateLimitId": 5, "Type": 0, "PerIpBucketRate": 100, "PerIpCBS": 200})", Id5(0)},
        // Update flags follow their keys only when present; a burst of 0 is none.
        {R"({"RateLimitId": 1, "UpdateCBS": false, "UpdateType": "yes", "PersistentFlag": 0,
            "UpdatePerDstIpCBS": 2, "CBS": 0})",
         Expected().U32(0, 1).U16(64, 0x0041)},
        {R"({"RateLimitId": 2147483646})", Expected().U32(0, 2147483646)},
    };
    ExpectForms(cases);
}

TEST_F(RatelimitConv, RefusalsStopBeforeTheRestIsRead) {
    const Message cases[] = {
        {R"({"BucketRate": 1})", -22, "Lack of RateLimitId"},
        {R"({"RateLimitId": 2147483647, "BucketRate": 1})", -132, "Lack of RateLimitId"},
        {R"({"RateLimitId": "one", "BucketRate": 1})", -22, "Lack of RateLimitId"},
        {R"({"RateLimitId": 1, "CBS": -1})", -22, "Get ratelimit CBS failed"},
        {R"({"RateLimitId": 1, "PerSrcIpCBS": -1})", -22, "Get ratelimit PerIpCBS failed"},
        {R"({"RateLimitId": 1, "PerDstIpCBS": -5})", -22, "Get ratelimit PerIpCBS failed"},
        {R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 3, "PerIpCBS": -1})", -22,
         "Get ratelimit PerIpCBS failed"},
        // A single bucket without a usable PerIpBucketRate.
        {R"({"RateLimitId": 1, "Type": 1})", -22, nullptr},
        {R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 2147483647})", -22, nullptr},
    };
    // Refusals without a message of their own log only the entry's line.
    ExpectMessages(kFn, "OV_AgentRatelimitJsonStrToConf", cases, [this](const Message &c) {
        EXPECT_EQ(ovtest::CountOf(log, "<Error:AGENTCONF>"), c.message != nullptr ? 2u : 1u);
        EXPECT_EQ(conf->flags, 0);
    });
    // Nothing after the id is read when the id is refused.
    EXPECT_EQ(Convert(R"({"RateLimitId": "one", "BucketRate": 1})"), -22);
    EXPECT_TRUE(Same(Expected()));
    EXPECT_EQ(log.find("not set"), std::string::npos) << log;
}

TEST_F(RatelimitConv, LogsTheTextNoticesInReadingOrderAndNonJson) {
    ASSERT_EQ(Convert(R"({"RateLimitId": 1})"), 0);
    EXPECT_TRUE(Logged("Info", "OV_AgentRatelimitJsonStrToConf",
                       "agent ratelimit conf json = {\"RateLimitId\": 1} "));
    const std::string every = ovtest::NoticesInOrder(
        log, kFn, "Ratelimit",
        "BucketRate CustomerId RateLimitObjId Type PerSrcIpBucketRate PerDstIpBucketRate", "");
    ASSERT_EQ(Convert(R"({"RateLimitId": 1)" + every + "}"), 0);
    EXPECT_EQ(log.find("not set"), std::string::npos) << log;

    EXPECT_EQ(Convert("{"), -22);
    EXPECT_TRUE(
        Logged("Error", "OV_AgentRatelimitJsonStrToConf", "invalid ratelimit string, not json"));
}

} // namespace
