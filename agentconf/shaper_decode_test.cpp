// Tests of the shaper record decoder: its JSON form and the round trip
// through the converter.
#include "agentconf/json_conv.h"
#include "agentconf/shaper.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>

namespace {

using Record = std::array<uint8_t, sizeof(AgentShaperConf)>;

template <typename T>
void Put(Record &rec, size_t offset, T value) {
    std::memcpy(rec.data() + offset, &value, sizeof value);
}

void PutItem(Record &rec, size_t offset, uint8_t priority, uint32_t in, uint32_t out) {
    Put<uint8_t>(rec, offset, priority);
    Put<uint32_t>(rec, offset + 4, in);
    Put<uint32_t>(rec, offset + 8, out);
}

std::string Decoded(const uint8_t *rec, size_t len) {
    OV_JsonPtr obj(OV_AgentShaperRecordToJson(rec, len));
    return obj == nullptr ? "" : json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN);
}

// JSON text -> record, through the converter with its log kept quiet.
int32_t Convert(const std::string &text, Record *rec) {
    ovtest::StdoutCapture quiet;
    AgentShaperConf conf{};
    int32_t rc = OV_AgentShaperJsonStrToConf(&conf, text.c_str());
    std::memcpy(rec->data(), &conf, rec->size());
    return rc;
}

constexpr const char *kSample =
    R"({"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000, )"
    R"("inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0], )"
    R"("bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": )"
    R"([{"priority": 2, "inkbps": 1000000, "outkbps": 1000000}]}})";

TEST(DecodeShaper, RefusesAnyOtherLength) {
    Record rec{};
    EXPECT_EQ(OV_AgentShaperRecordToJson(rec.data(), rec.size() - 1), nullptr);
    auto longer = std::make_unique<uint8_t[]>(rec.size() + 1);
    EXPECT_EQ(OV_AgentShaperRecordToJson(longer.get(), rec.size() + 1), nullptr);
    EXPECT_EQ(OV_AgentShaperRecordToJson(nullptr, rec.size()), nullptr);
}

TEST(DecodeShaper, ShowsTheUsageSampleUnderItsOwnKeys) {
    Record rec;
    ASSERT_EQ(Convert(kSample, &rec), 0);
    EXPECT_EQ(Decoded(rec.data(), rec.size()),
              R"({"shaperId":1,"sharedNum":1,"inBurstMs":100,"outBurstMs":100,)"
              R"("wanInKbps":100000,"wanKbps":100000,"persistentFlag":true,)"
              R"("bandDist":[2,2,8,8,8,8,8,0],)"
              R"("bandLimit":{"sharePriority":2,"num":1,"bandLimit":)"
              R"([{"priority":2,"inkbps":1000000,"outkbps":1000000}]},)"
              R"("guaranteeBandLimit":{"sharePriority":0,"num":0,"bandLimit":[]}})");
}

TEST(DecodeShaper, ShowsRatesAsUnsigned) {
    Record rec{};
    Put<uint32_t>(rec, 4, 0xFFFFFFFF);
    Put<uint32_t>(rec, 8, 0x80000000);
    Put<uint8_t>(rec, 126, 1);
    PutItem(rec, 128, 1, 3000000000u, 2147483648u);
    std::string text = Decoded(rec.data(), rec.size());
    EXPECT_NE(text.find(R"("wanInKbps":2147483648,"wanKbps":4294967295,)"), std::string::npos)
        << text;
    EXPECT_NE(text.find(R"({"priority":1,"inkbps":3000000000,"outkbps":2147483648})"),
              std::string::npos)
        << text;
}

TEST(DecodeShaper, ReceivedNumIsBoundedByTheRecord) {
    // Exactly the record's bytes on the heap, so a sanitizer sees any overread.
    auto rec = std::make_unique<uint8_t[]>(sizeof(AgentShaperConf));
    std::memset(rec.get(), 0x5A, sizeof(AgentShaperConf));
    rec[26] = 200;
    rec[126] = 200;
    OV_JsonPtr obj(OV_AgentShaperRecordToJson(rec.get(), sizeof(AgentShaperConf)));
    ASSERT_NE(obj, nullptr);
    const struct {
        const char *key;
        size_t items;
    } blocks[] = {{"bandLimit", 16}, {"guaranteeBandLimit", 8}};
    for (const auto &b : blocks) {
        SCOPED_TRACE(b.key);
        json_object *block = nullptr;
        json_object *arr = nullptr;
        ASSERT_TRUE(json_object_object_get_ex(obj.get(), b.key, &block));
        ASSERT_TRUE(json_object_object_get_ex(block, "bandLimit", &arr));
        EXPECT_EQ(json_object_array_length(arr), b.items);
    }
}

std::string Items(int n, uint32_t base) {
    std::string out = "[";
    for (int i = 0; i < n; ++i) {
        out += (i ? ", " : "") + std::string(R"({"priority": )") + std::to_string(200 + i) +
               R"(, "inkbps": )" + std::to_string(base + i) + R"(, "outkbps": )" +
               std::to_string(base * 2 + i) + "}";
    }
    return out + "]";
}

TEST(DecodeShaper, DecodedJsonConvertsBackToTheSameBytes) {
    const std::string texts[] = {
        kSample,
        // No "bandDist", no blocks: the decoder still gives both.
        R"({"shaperId": 0, "sharedNum": 0, "persistentFlag": false, "wanKbps": 0, )"
        R"("wanInKbps": 0, "inBurstMs": 0, "outBurstMs": 0})",
        // Maximal: every field at its widest, the first block running on over the second.
        R"({"shaperId": 255, "sharedNum": 255, "persistentFlag": true, "wanKbps": 2147483646, )"
        R"("wanInKbps": 2147483646, "inBurstMs": 65535, "outBurstMs": 65535, )"
        R"("bandDist": [255, 254, 253, 252, 251, 250, 249, 248], )"
        R"("bandLimit": {"sharePriority": 255, "num": 16, "bandLimit": )" +
            Items(16, 1000000000) +
            R"(}, "guaranteeBandLimit": {"sharePriority": 254, "num": 8, "bandLimit": )" +
            Items(8, 1000000) + "}}",
        // The first block over the second with the second left out.
        R"({"shaperId": 3, "persistentFlag": true, "wanKbps": 1, "wanInKbps": 2, )"
        R"("inBurstMs": 3, "outBurstMs": 4, "bandDist": [1, 1, 1, 1, 1, 1, 1, 1], )"
        R"("bandLimit": {"sharePriority": 1, "num": 12, "bandLimit": )" +
            Items(12, 5) + "}}",
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

} // namespace
