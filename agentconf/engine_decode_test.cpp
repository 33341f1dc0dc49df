// Tests of the engine parameter record decoder.
#include "agentconf/engine.h"
#include "agentconf/json_conv.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

TEST(DecodeEngine, ShowsWanIndexCodeAndValue) {
    std::array<uint8_t, sizeof(AgentEngineParamConf)> rec{};
    rec[4] = 21;
    uint32_t value = 4000000000u;
    std::memcpy(rec.data() + 8, &value, sizeof value);
    rec[103] = 0xFF; // reserved bytes are not shown
    OV_JsonPtr obj(OV_AgentEngineParamRecordToJson(rec.data(), rec.size()));
    ASSERT_NE(obj, nullptr);
    EXPECT_STREQ(json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN),
                 R"({"wanIndex":0,"paramCode":21,"value":4000000000})");

    EXPECT_EQ(OV_AgentEngineParamRecordToJson(rec.data(), rec.size() - 1), nullptr);
    EXPECT_EQ(OV_AgentEngineParamRecordToJson(nullptr, rec.size()), nullptr);
}

} // namespace
