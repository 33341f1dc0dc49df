// Tests of the rate-limit converter: whole records byte for byte, the
// single-bucket form, refusals and the log lines they leave.
#include "agentconf/ratelimit.h"

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using Expected = ovtest::RecordBytes<sizeof(AgentRatelimitConf)>;
using ovtest::SameRecord;

class RatelimitConv : public ovtest::ConverterTest {
  protected:
    /// Converts text into a zeroed record through the entry; keeps stdout.
    int32_t Convert(const char *text) {
        std::memset(&conf, 0, sizeof conf);
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentRatelimitJsonStrToConf(&conf, text);
        out = cap.Take();
        return rc;
    }

    AgentRatelimitConf conf{};
    std::string out;
};

constexpr const char *kUsageSample =
    R"({"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0, "Type": 1,)"
    R"( "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1, "UpdateBucketRate": 0,)"
    R"( "UpdateCBS": 0, "UpdateTokenBonus": 0, "UpdatePerIpBucketRate": 0,)"
    R"( "UpdatePerIpCBS": 0, "PersistentFlag": true})";

TEST_F(RatelimitConv, UsageSampleGivesFlagWord00A9) {
    ASSERT_EQ(Convert(kUsageSample), 0) << out;
    EXPECT_TRUE(SameRecord(
        conf, Expected().Put<uint32_t>(0, 1).Put<uint32_t>(24, 1).Put<uint16_t>(64, 0x00A9)));
}

TEST_F(RatelimitConv, FillsEveryFieldAtItsOffset) {
    ASSERT_EQ(Convert(R"({"RateLimitId": -1, "RateLimitObjId": 2, "CustomerId": 3,
        "BucketRate": 2147483646, "CBS": 9223372036854775807, "Type": 7,
        "PerSrcIpBucketRate": 11, "PerSrcIpCBS": 4294967296, "PerDstIpBucketRate": 13,
        "PerDstIpCBS": 14, "UpdateType": true, "UpdateBucketRate": true, "UpdateCBS": true,
        "UpdatePerSrcIpBucketRate": true, "UpdatePerDstIpBucketRate": true,
        "UpdatePerSrcIpCBS": true, "UpdatePerDstIpCBS": true, "PersistentFlag": true,
        "PerIpBucketRate": 99, "PerIpCBS": 99, "TokenBonus": 5})"),
              0)
        << out;
    EXPECT_TRUE(SameRecord(conf, Expected()
                                     .Put<uint32_t>(0, 0xFFFFFFFF)
                                     .Put<uint32_t>(4, 2)
                                     .Put<uint32_t>(8, 3)
                                     .Put<uint32_t>(12, 2147483646)
                                     .Put<int64_t>(16, INT64_MAX)
                                     .Put<uint32_t>(24, 7)
                                     .Put<uint32_t>(32, 11)
                                     .Put<int64_t>(40, 4294967296)
                                     .Put<uint32_t>(48, 13)
                                     .Put<int64_t>(56, 14)
                                     .Put<uint16_t>(64, 0x00FF)));
    EXPECT_EQ(out.find("not set"), std::string::npos) << out;
}

TEST_F(RatelimitConv, SingleBucketKeysFillTheBucketTypeSelects) {
    struct Case {
        const char *json;
        Expected want;
    };
    const Case cases[] = {
        {R"({"RateLimitId": 5, "Type": 1, "PerIpBucketRate": 100, "PerIpCBS": 200})",
         Expected()
             .Put<uint32_t>(0, 5)
             .Put<uint32_t>(24, 1)
             .Put<uint32_t>(32, 100)
             .Put<int64_t>(40, 200)
             .Put<uint16_t>(64, 0x0028)},
        {R"({"RateLimitId": 5, "Type": 2, "PerIpBucketRate": 100, "PerIpCBS": 200})",
         Expected()
             .Put<uint32_t>(0, 5)
             .Put<uint32_t>(24, 2)
             .Put<uint32_t>(48, 100)
             .Put<int64_t>(56, 200)
             .Put<uint16_t>(64, 0x0050)},
        // The forced bits win over Update keys that say false.
        {R"({"RateLimitId": 5, "Type": 1, "PerIpBucketRate": 100,
             "UpdatePerSrcIpBucketRate": false, "UpdatePerSrcIpCBS": false})",
         Expected().Put<uint32_t>(0, 5).Put<uint32_t>(24, 1).Put<uint32_t>(32, 100).Put<uint16_t>(
             64, 0x0028)},
        // A bucket rate of its own: the single-bucket keys are not read.
        {R"({"RateLimitId": 5, "Type": 1, "PerSrcIpBucketRate": 500, "PerIpBucketRate": 100,
             "PerIpCBS": -1})",
         Expected().Put<uint32_t>(0, 5).Put<uint32_t>(24, 1).Put<uint32_t>(32, 500)},
        {R"({"RateLimitId": 5, "Type": 2, "PerDstIpBucketRate": 500, "PerIpBucketRate": 100})",
         Expected().Put<uint32_t>(0, 5).Put<uint32_t>(24, 2).Put<uint32_t>(48, 500)},
        {R"({"RateLimitId": 5, "Type": 0, "PerIpBucketRate": 100, "PerIpCBS": 200})",
         Expected().Put<uint32_t>(0, 5)},
        {R"({"RateLimitId": 5, "Type": 3, "PerIpBucketRate": 100, "PerIpCBS": 200})",
         Expected().Put<uint32_t>(0, 5).Put<uint32_t>(24, 3)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        ASSERT_EQ(Convert(c.json), 0) << out;
        EXPECT_TRUE(SameRecord(conf, c.want));
    }
}

TEST_F(RatelimitConv, SingleBucketWithoutPerIpBucketRateFailsWithoutAMessageOfItsOwn) {
    const char *texts[] = {
        R"({"RateLimitId": 1, "Type": 1})",
        R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 2147483647})",
        R"({"RateLimitId": 1, "Type": 1, "PerIpBucketRate": "fast"})",
    };
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        OV_JsonPtr root(json_tokener_parse(text));
        AgentRatelimitConf rec{};
        ovtest::StdoutCapture cap;
        EXPECT_EQ(_OV_AgentRatelimitJsonToConf(&rec, root.get()), -22);
        std::string log = cap.Take();
        EXPECT_EQ(log.find("<Error"), std::string::npos) << log;
        EXPECT_EQ(rec.flags, 0);
    }
    // Through the entry only the entry's own failure line is an error.
    EXPECT_EQ(Convert(R"({"RateLimitId": 1, "Type": 1})"), -22);
    EXPECT_EQ(ovtest::CountOf(out, "<Error:AGENTCONF>"), 1u) << out;
    EXPECT_NE(out.find("<Debug:AGENTCONF>[_OV_AgentRatelimitJsonToConf:"), std::string::npos);
    EXPECT_NE(out.find("] Ratelimit not set PerSrcIpBucketRate\n"), std::string::npos);
    EXPECT_NE(out.find("] Json to data struct failed(22:"), std::string::npos) << out;
}

TEST_F(RatelimitConv, RefusesNegativeBurstSizes) {
    struct Case {
        const char *json;
        const char *message;
    };
    const Case cases[] = {
        {R"({"RateLimitId": 1, "CBS": -1})", "] Get ratelimit CBS failed\n"},
        {R"({"RateLimitId": 1, "PerSrcIpCBS": -1})", "] Get ratelimit PerIpCBS failed\n"},
        {R"({"RateLimitId": 1, "PerDstIpCBS": -5})", "] Get ratelimit PerIpCBS failed\n"},
        {R"({"RateLimitId": 1, "Type": 2, "PerIpBucketRate": 3, "PerIpCBS": -1})",
         "] Get ratelimit PerIpCBS failed\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(Convert(c.json), -22);
        EXPECT_NE(out.find(std::string("<Error:AGENTCONF>[_OV_AgentRatelimitJsonToConf:")),
                  std::string::npos)
            << out;
        EXPECT_EQ(ovtest::CountOf(out, c.message), 1u) << out;
    }
    // Zero and absent are both a burst of 0.
    ASSERT_EQ(Convert(R"({"RateLimitId": 1, "CBS": 0})"), 0);
    EXPECT_TRUE(SameRecord(conf, Expected().Put<uint32_t>(0, 1)));
}

TEST_F(RatelimitConv, RateLimitIdIsRequiredAndReadAsSigned32Bit) {
    struct Case {
        const char *json;
        int32_t rc;
    };
    const Case cases[] = {
        {R"({"BucketRate": 1})", -22},
        {R"({"RateLimitId": 4294967295, "BucketRate": 1})", -132},
        {R"({"RateLimitId": 2147483647, "BucketRate": 1})", -132},
        {R"({"RateLimitId": -2147483648, "BucketRate": 1})", -132},
        {R"({"RateLimitId": "one", "BucketRate": 1})", -22},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(Convert(c.json), c.rc);
        EXPECT_TRUE(SameRecord(conf, Expected())); // nothing after it is read
        EXPECT_NE(out.find("<Error:AGENTCONF>[_OV_AgentRatelimitJsonToConf:"), std::string::npos);
        EXPECT_NE(out.find("] Lack of RateLimitId\n"), std::string::npos) << out;
        EXPECT_EQ(out.find("not set"), std::string::npos) << out;
    }
    ASSERT_EQ(Convert(R"({"RateLimitId": 2147483646})"), 0);
    EXPECT_TRUE(SameRecord(conf, Expected().Put<uint32_t>(0, 2147483646)));
}

TEST_F(RatelimitConv, UpdateFlagsFollowTheirKeysOnlyWhenPresent) {
    ASSERT_EQ(Convert(R"({"RateLimitId": 1, "UpdateCBS": false, "UpdateType": "yes",
        "PersistentFlag": 0, "UpdatePerDstIpCBS": 2})"),
              0);
    EXPECT_TRUE(SameRecord(conf, Expected().Put<uint32_t>(0, 1).Put<uint16_t>(64, 0x0041)));
}

TEST_F(RatelimitConv, LogsTheInputNoticesAndNonJsonWithFunctionNames) {
    ASSERT_EQ(Convert(R"({"RateLimitId": 1})"), 0);
    EXPECT_NE(out.find(std::string(ovtest::kFixedStamp) +
                       "<Info:AGENTCONF>[OV_AgentRatelimitJsonStrToConf:"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("] agent ratelimit conf json = {\"RateLimitId\": 1} \n"), std::string::npos);
    const char *notices[] = {"BucketRate", "CustomerId",         "RateLimitObjId",
                             "Type",       "PerSrcIpBucketRate", "PerDstIpBucketRate"};
    for (const char *key : notices) {
        EXPECT_EQ(ovtest::CountOf(out, std::string("] Ratelimit not set ") + key + "\n"), 1u)
            << key;
    }
    EXPECT_EQ(ovtest::CountOf(out, "<Debug:AGENTCONF>[_OV_AgentRatelimitJsonToConf:"), 6u) << out;
    // Notices come in the order the keys are read.
    EXPECT_LT(out.find("not set BucketRate"), out.find("not set CustomerId"));
    EXPECT_LT(out.find("not set RateLimitObjId"), out.find("not set Type"));

    EXPECT_EQ(Convert("{"), -22);
    EXPECT_NE(out.find("<Error:AGENTCONF>[OV_AgentRatelimitJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] invalid ratelimit string, not json\n"), std::string::npos) << out;
}

} // namespace
