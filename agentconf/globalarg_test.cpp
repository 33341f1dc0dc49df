// Tests of the global-argument converter: the value form per type, whole
// records byte for byte, refusals and the log lines they leave.
#include "agentconf/globalarg.h"

#include "agentconf/json_conv.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"
#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using Expected = ovtest::RecordBytes<sizeof(AgentGlobalArgConf)>;
using ovtest::SameRecord;

Expected Head(uint16_t type, uint16_t lenth) {
    return Expected().Put<uint16_t>(0, type).Put<uint16_t>(2, lenth);
}

class GlobalArgConv : public ovtest::ConverterTest {
  protected:
    int32_t Convert(const std::string &text) {
        std::memset(&conf, 0, sizeof conf);
        ovtest::StdoutCapture cap;
        int32_t rc = OV_AgentDpGlobalArgJsonStrToConf(&conf, text.c_str());
        out = cap.Take();
        return rc;
    }

    AgentGlobalArgConf conf{};
    std::string out;
};

TEST_F(GlobalArgConv, UsageSampleStoresA64BitValue) {
    ASSERT_EQ(Convert(R"({ "Type": 25, "Lenth": 8, "Value64": 104448000})"), 0) << out;
    EXPECT_TRUE(SameRecord(conf, Head(25, 8).Put<uint64_t>(8, 104448000)));
    EXPECT_NE(out.find("<Info:AGENTCONF>[OV_AgentDpGlobalArgJsonStrToConf:"), std::string::npos);
    EXPECT_NE(out.find("] agent global arg conf json = { \"Type\": 25"), std::string::npos) << out;
}

TEST_F(GlobalArgConv, EachTypeTakesItsValueForm) {
    struct Case {
        const char *json;
        Expected want;
    };
    const Case cases[] = {
        {R"({"Type": 0, "Lenth": 4, "Value": 7})", Head(0, 4).Put<uint32_t>(8, 7)},
        {R"({"Type": 75, "Lenth": 4, "Value": "4294967295"})",
         Head(75, 4).Put<uint32_t>(8, 0xFFFFFFFF)},
        {R"({"Type": 1, "Lenth": 4, "Value": " 42 "})", Head(1, 4).Put<uint32_t>(8, 42)},
        {R"({"Type": 1, "Lenth": 4, "Value": "\t0042x"})", Head(1, 4).Put<uint32_t>(8, 42)},
        {R"({"Type": 1, "Lenth": 4, "Value": 1.9})", Head(1, 4).Put<uint32_t>(8, 1)},
        {R"({"Type": 25, "Lenth": 8, "Value64": "18446744073709551615"})",
         Head(25, 8).Put<uint64_t>(8, UINT64_MAX)},
        {R"({"Type": 13, "Lenth": 4, "Range": [1000, 2000]})",
         Head(13, 4).Put<uint16_t>(8, 1000).Put<uint16_t>(10, 2000)},
        {R"({"Type": 13, "Lenth": 4, "Range": [65535, 0]})", Head(13, 4).Put<uint16_t>(8, 65535)},
        {R"({"Type": 65549, "Lenth": -1, "Range": [1, 2]})",
         Head(13, 0xFFFF).Put<uint16_t>(8, 1).Put<uint16_t>(10, 2)},
        {R"({"Type": 37, "Lenth": 16, "Ipv6": "ff02::1:2"})",
         Head(37, 16).Put<uint16_t>(8, 0x02ff).Put<uint16_t>(20, 0x0100).Put<uint16_t>(22, 0x0200)},
        {R"({"Type": 40, "Lenth": 16, "Ipv6": "::"})", Head(40, 16)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        ASSERT_EQ(Convert(c.json), 0) << out;
        EXPECT_TRUE(SameRecord(conf, c.want));
        EXPECT_EQ(out.find("<Error"), std::string::npos) << out;
    }
}

TEST_F(GlobalArgConv, RejectedTypesFailEvenWithAValue) {
    const unsigned types[] = {28, 31, 62, 63, 66, 70, 76, 65535};
    for (unsigned type : types) {
        SCOPED_TRACE(type);
        std::string json = "{\"Type\": " + std::to_string(type) + R"(, "Lenth": 4, "Value": 1})";
        EXPECT_EQ(Convert(json), -22);
        EXPECT_NE(out.find("<Error:AGENTCONF>[_OV_AgentGlobalArgJsonToConf:"), std::string::npos);
        EXPECT_EQ(ovtest::CountOf(out, "] Unkown global type " + std::to_string(type) + "\n"), 1u)
            << out;
        EXPECT_TRUE(SameRecord(conf, Head(static_cast<uint16_t>(type), 4)));
    }
}

TEST_F(GlobalArgConv, RefusesBadValuesWithTheirMessages) {
    struct Case {
        const char *json;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"({"Lenth": 4, "Value": 1})", -22, "] Lack of Type\n"},
        {R"({"Type": 2147483647, "Lenth": 4})", -132, "] Lack of Type\n"},
        {R"({"Type": 1, "Value": 1})", -22, "] Lack of Lenth\n"},
        {R"({"Type": 1, "Lenth": -2147483648})", -132, "] Lack of Lenth\n"},
        {R"({"Type": 1, "Lenth": 4})", -22, "] Lack of Value\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": null})", -22, "] Lack of Value\n"},
        {R"({"Type": 25, "Lenth": 8, "Value": 5})", -22, "] Lack of Value\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": "x1"})", -22, "] Get Value from x1 failed\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": -5})", -22, "] Get Value from -5 failed\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": ""})", -22, "] Get Value from  failed\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": "+5"})", -22, "] Get Value from +5 failed\n"},
        {R"({"Type": 1, "Lenth": 4, "Value": 4294967296})", -22,
         "] Get Value from 4294967296 failed\n"},
        {R"({"Type": 25, "Lenth": 8, "Value64": "18446744073709551616"})", -22,
         "] Get Value from 18446744073709551616 failed\n"},
        {R"({"Type": 13, "Lenth": 4})", -22, "] Lack of Range\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": [1]})", -22, "] Inval range json\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": [1, 2, 3]})", -22, "] Inval range json\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": {"a": 1}})", -22, "] Inval range json\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": [null, 2]})", -22, "] Inval range low\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": [-1, 2]})", -22, "] Inval range low\n"},
        {R"({"Type": 13, "Lenth": 4, "Range": [1, 70000]})", -22, "] Inval range high\n"},
        {R"({"Type": 38, "Lenth": 16})", -22, "] Lack of Value\n"},
        {R"({"Type": 38, "Lenth": 16, "Ipv6": "1::2::3"})", -22,
         "] Get Ipv6 from string:1::2::3 failed\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(Convert(c.json), c.rc);
        EXPECT_NE(out.find("<Error:AGENTCONF>[_OV_AgentGlobalArgJsonToConf:"), std::string::npos)
            << out;
        EXPECT_EQ(ovtest::CountOf(out, c.message), 1u) << out;
        // Nothing lands in the value area, except a low bound read before the high one.
        const uint8_t zero[16] = {};
        size_t from = std::string(c.message) == "] Inval range high\n" ? 10 : 8;
        EXPECT_EQ(std::memcmp(reinterpret_cast<const uint8_t *>(&conf) + from, zero, 24 - from), 0);
    }
}

TEST_F(GlobalArgConv, ValueTextsLongerThan49CharactersAreRefused) {
    std::string digits49 = std::string(48, '0') + "7";
    ASSERT_EQ(Convert(R"({"Type": 1, "Lenth": 4, "Value": ")" + digits49 + "\"}"), 0) << out;
    EXPECT_TRUE(SameRecord(conf, Head(1, 4).Put<uint32_t>(8, 7)));

    EXPECT_EQ(Convert(R"({"Type": 1, "Lenth": 4, "Value": ")" + digits49 + "1\"}"), -22);
    EXPECT_EQ(ovtest::CountOf(out, "] Get Value from " + digits49 + " failed\n"), 1u) << out;
}

} // namespace
