// Tests of the global-argument converter: the value form per type, whole
// records byte for byte, refusals and the log lines they leave.
#include "agentconf/globalarg.h"

#include "agentconf/json_conv.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using GlobalArgConv =
    ovtest::RecordConverterTest<AgentGlobalArgConf, OV_AgentDpGlobalArgJsonStrToConf>;
using Expected = GlobalArgConv::Expected;

constexpr const char *kFn = "_OV_AgentGlobalArgJsonToConf";

Expected Head(uint16_t type, uint16_t lenth) {
    return Expected().U16(0, type).U16(2, lenth);
}

TEST_F(GlobalArgConv, EachTypeTakesItsValueForm) {
    const std::string digits49 = std::string(48, '0') + "7";
    const Form cases[] = {
        {R"({"Type": 0, "Lenth": 4, "Value": 7})", Head(0, 4).U32(8, 7)},
        {R"({"Type": 75, "Lenth": 4, "Value": "4294967295"})", Head(75, 4).U32(8, 0xFFFFFFFF)},
        {R"({"Type": 1, "Lenth": 4, "Value": " 42 "})", Head(1, 4).U32(8, 42)},
        {R"({"Type": 1, "Lenth": 4, "Value": "\t0042x"})", Head(1, 4).U32(8, 42)},
        {R"({"Type": 1, "Lenth": 4, "Value": 1.9})", Head(1, 4).U32(8, 1)},
        {R"({"Type": 13, "Lenth": 4, "Range": [65535, 0]})", Head(13, 4).U16(8, 65535)},
        {R"({"Type": 65549, "Lenth": -1, "Range": [1, 2]})", Head(13, 0xFFFF).U16(8, 1).U16(10, 2)},
        {R"({"Type": 37, "Lenth": 16, "Ipv6": "ff02::1:2"})",
         Head(37, 16).U16(8, 0x02ff).U16(20, 0x0100).U16(22, 0x0200)},
        // Value texts of up to 49 characters are read.
        {R"({"Type": 1, "Lenth": 4, "Value": ")" + digits49 + "\"}", Head(1, 4).U32(8, 7)},
    };
    ExpectForms(cases);
    EXPECT_EQ(log.find("<Error"), std::string::npos) << log;
    EXPECT_TRUE(Logged("Info", "OV_AgentDpGlobalArgJsonStrToConf",
                       R"(agent global arg conf json = {"Type": 1, "Lenth": 4, "Value": ")" +
                           digits49 + "\"} "));
}

TEST_F(GlobalArgConv, RejectedTypesFailEvenWithAValue) {
    for (unsigned type : {28, 31, 62, 63, 66, 70, 76, 65535}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(Convert("{\"Type\": " + std::to_string(type) + R"(, "Lenth": 4, "Value": 1})"),
                  -22);
        EXPECT_TRUE(Logged("Error", kFn, "Unkown global type " + std::to_string(type))) << log;
        EXPECT_TRUE(Same(Head(static_cast<uint16_t>(type), 4)));
    }
}

TEST_F(GlobalArgConv, RefusesBadValuesWithTheirMessages) {
    const std::string digits49 = std::string(48, '0') + "7";
    const std::string tooLong = "Get Value from " + digits49 + " failed";
    const Message cases[] = {
        {R"({"Lenth": 4, "Value": 1})", -22, "Lack of Type"},
        {R"({"Type": 2147483647, "Lenth": 4})", -132, "Lack of Type"},
        {R"({"Type": 1, "Value": 1})", -22, "Lack of Lenth"},
        {R"({"Type": 1, "Lenth": 4})", -22, "Lack of Value"},
        {R"({"Type": 25, "Lenth": 8, "Value": 5})", -22, "Lack of Value"},
        {R"({"Type": 1, "Lenth": 4, "Value": "x1"})", -22, "Get Value from x1 failed"},
        {R"({"Type": 1, "Lenth": 4, "Value": 4294967296})", -22,
         "Get Value from 4294967296 failed"},
        {R"({"Type": 25, "Lenth": 8, "Value64": "18446744073709551616"})", -22,
         "Get Value from 18446744073709551616 failed"},
        {R"({"Type": 13, "Lenth": 4})", -22, "Lack of Range"},
        {R"({"Type": 13, "Lenth": 4, "Range": [1]})", -22, "Inval range json"},
        {R"({"Type": 13, "Lenth": 4, "Range": {"a": 1}})", -22, "Inval range json"},
        {R"({"Type": 13, "Lenth": 4, "Range": [-1, 2]})", -22, "Inval range low"},
        {R"({"Type": 13, "Lenth": 4, "Range": [1, 70000]})", -22, "Inval range high"},
        {R"({"Type": 38, "Lenth": 16})", -22, "Lack of Value"},
        {R"({"Type": 1, "Lenth": 4, "Value": ")" + digits49 + "1\"}", -22, tooLong.c_str()},
        {R"({"Type": 38, "Lenth": 16, "Ipv6": "1::2::3"})", -22,
         "Get Ipv6 from string:1::2::3 failed"},
    };
    // Nothing lands in the value area, except a low bound read before the high one.
    ExpectMessages(kFn, "OV_AgentDpGlobalArgJsonStrToConf", cases, [this](const Message &c) {
        const uint8_t zero[16] = {};
        size_t from = std::string(c.message) == "Inval range high" ? 10 : 8;
        EXPECT_EQ(
            std::memcmp(reinterpret_cast<const uint8_t *>(conf.get()) + from, zero, 24 - from), 0);
    });
}

} // namespace
