// Tests of the global-argument record decoder: its JSON form per value form
// and the round trip through the converter.
#include "agentconf/globalarg.h"
#include "agentconf/json_conv.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

using Record = std::array<uint8_t, sizeof(AgentGlobalArgConf)>;

std::string Decoded(const Record &rec) {
    OV_JsonPtr obj(OV_AgentGlobalArgRecordToJson(rec.data(), rec.size()));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

int32_t Convert(const std::string &text, Record *rec) {
    ovtest::StdoutCapture quiet;
    AgentGlobalArgConf conf{};
    int32_t rc = OV_AgentDpGlobalArgJsonStrToConf(&conf, text.c_str());
    std::memcpy(rec->data(), &conf, rec->size());
    return rc;
}

TEST(DecodeGlobalArg, RefusesAnyOtherLength) {
    Record rec{};
    EXPECT_EQ(OV_AgentGlobalArgRecordToJson(rec.data(), rec.size() - 1), nullptr);
    EXPECT_EQ(OV_AgentGlobalArgRecordToJson(nullptr, rec.size()), nullptr);
}

TEST(DecodeGlobalArg, ShowsEachValueForm) {
    struct Case {
        const char *json;
        const char *decoded;
    };
    const Case cases[] = {
        {R"({ "Type": 25, "Lenth": 8, "Value64": 104448000})",
         R"({"Type":25,"Lenth":8,"Value64":104448000})"},
        {R"({"Type": 25, "Lenth": 8, "Value64": "18446744073709551615"})",
         R"({"Type":25,"Lenth":8,"Value64":"18446744073709551615"})"},
        {R"({"Type": 3, "Lenth": 4, "Value": 4294967295})",
         R"({"Type":3,"Lenth":4,"Value":4294967295})"},
        {R"({"Type": 65549, "Lenth": 4, "Range": [1000, 2000]})",
         R"({"Type":13,"Lenth":4,"Range":[1000,2000]})"},
        {R"({"Type": 39, "Lenth": 16, "Ipv6": "fe80::1"})",
         R"({"Type":39,"Lenth":16,"Ipv6":"fe80::1"})"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        Record first;
        ASSERT_EQ(Convert(c.json, &first), 0);
        std::string decoded = Decoded(first);
        EXPECT_EQ(decoded, c.decoded);
        Record second;
        ASSERT_EQ(Convert(decoded, &second), 0) << decoded;
        EXPECT_EQ(first, second) << decoded;
    }
}

TEST(DecodeGlobalArg, ShowsTheRawAreaOfTypesPdtoolNeverSends) {
    Record rec{};
    rec[0] = 28;
    rec[8] = 0xAB;
    rec[23] = 0x01;
    EXPECT_EQ(Decoded(rec),
              R"({"Type":28,"Lenth":0,"ValueHex":"ab000000000000000000000000000001"})");
}

} // namespace
