// Tests of the shaper record converters, both directions: JSON to record,
// and record to the JSON text pdtool prints.
#include "agentconf/shaper.h"

#include "agentconf/json_conv.h"
#include "agentconf/records.h"
#include "base/errors.h"
#include "base/mem.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

// A shaper JSON text with the required keys, followed by `extra` members.
std::string Shaper(const std::string &extra) {
    return R"({"shaperId": 7, "persistentFlag": false, "wanKbps": 10, "wanInKbps": 20, )"
           R"("inBurstMs": 30, "outBurstMs": 40)" +
           (extra.empty() ? "" : ", " + extra) + "}";
}

constexpr const char *kDist = R"("bandDist": [1, 2, 3, 4, 5, 6, 7, 8], )";

std::string Block(const char *key, int num, const std::string &items) {
    return std::string("\"") + key + R"(": {"sharePriority": 3, "num": )" + std::to_string(num) +
           R"(, "bandLimit": )" + items + "}";
}

class ShaperTest
    : public ovtest::RecordConverterTest<AgentShaperConf, OV_AgentShaperJsonStrToConf> {
  protected:
    static Expected &PutItem(Expected &e, size_t offset, uint8_t priority, uint32_t in,
                             uint32_t out) {
        return e.Put(offset, priority).Put(offset + 4, in).Put(offset + 8, out);
    }

    // The record as JSON text, empty when the conversion gave null; what it
    // logged goes to `log`.
    std::string Print(const AgentShaperConf &c) {
        ovtest::StdoutCapture cap;
        char *text = OV_AgentShaperConfToJsonStr(&c);
        std::string out = text != nullptr ? text : "";
        AgentMemFree(text);
        log = cap.Take();
        return out;
    }
};

// ---- JSON to record ----------------------------------------------------------------

TEST_F(ShaperTest, PlacesEveryFieldAtItsOffset) {
    const std::string text = R"({"shaperId": 9, "sharedNum": 0, "persistentFlag": 1, )"
                             R"("wanKbps": 305419896, "wanInKbps": -2, "inBurstMs": 65535, )"
                             R"("outBurstMs": 258, "bandDist": [1, 255, 256, -1, 300, 0, 7, 8], )" +
                             Block("bandLimit", 2, ovtest::ShaperItems(2, 500)) + ", " +
                             Block("guaranteeBandLimit", 1, ovtest::ShaperItems(1, 70000)) + "}";
    ASSERT_EQ(Convert(text), 0) << log;
    Expected e;
    e.Bytes(0, {9, 1, 0}).U32(4, 305419896).U32(8, 0xFFFFFFFE);
    e.U16(12, 65535).U16(14, 258);
    e.Bytes(16, {1, 255, 0, 255, 44, 0, 7, 8}); // low 8 bits of each item
    e.Bytes(24, {9, 3, 2});
    PutItem(e, 28, 200, 500, 1000);
    PutItem(e, 40, 201, 501, 1001);
    e.Bytes(125, {3, 1}); // byte 124 keeps 0: only the first block has the id
    PutItem(e, 128, 200, 70000, 140000);
    EXPECT_TRUE(Same(e));
    EXPECT_EQ(ovtest::Lines(log).size(), 1u) << log; // only the text is logged
    EXPECT_TRUE(
        Logged("Info", "OV_AgentShaperJsonStrToConf", "agent shaper conf json = " + text + " "));
}

TEST_F(ShaperTest, BlocksTakeTheArraySizeAndNullItemsAreNotices) {
    Expected e; // Shaper() with kDist
    e.Bytes(0, {7, 0, 1}).U32(4, 10).U32(8, 20);
    e.U16(12, 30).U16(14, 40).Bytes(16, {1, 2, 3, 4, 5, 6, 7, 8});
    ASSERT_EQ(Convert(Shaper(kDist + Block("bandLimit", 2, ovtest::ShaperItems(1, 10)))), 0);
    Expected adopted = e;
    EXPECT_TRUE(Same(PutItem(adopted.Bytes(24, {7, 3, 1}), 28, 200, 10, 20)));
    EXPECT_TRUE(Logged("Warning", "_OV_AgentShaperJsonToConf",
                       "array size is not equal to WanEngineConf->BandLimit.Num, use array size"));

    ASSERT_EQ(Convert(Shaper(kDist + Block("bandLimit", 2, "[null, {}]"))), 0) << log;
    for (const char *what : {"priority", "inkbps", "outkbps"}) {
        EXPECT_EQ(ovtest::CountOf(log, std::string("] Bandlimit ") + what + " is not set\n"), 2u)
            << log;
    }
    EXPECT_TRUE(Logged("Debug", "_OV_AgentShaperJsonToConf", "Bandlimit priority is not set"));
    EXPECT_TRUE(Same(e.Bytes(24, {7, 3, 2})));
}

TEST_F(ShaperTest, MessagesNameWhatWasMissingOrRefused) {
    const Message cases[] = {
        // Required keys, in reading order.
        {R"({"persistentFlag": true})", -22, "Lack of shaperId"},
        {R"({"shaperId": 256})", -132, "Lack of shaperId"},
        {R"({"shaperId": 1})", -22, "Lack of wanInKbps"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": "fast"})", -22, "Lack of wanKbps"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 65536})", -132,
         "Lack of inBurstMs"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 1})", -22,
         "Lack of outBurstMs"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 1, "outBurstMs": 1})", -22,
         "Lack of persistentFlag"},
        {Shaper(R"("sharedNum": 256)"), 0, "Lack of sharedNum, set to default value 1", nullptr,
         "Debug"},
        // bandDist.
        {Shaper(R"("bandDist": [1, 2, 3, 4, 5, 6, 7, 8, 9])"), -22, "Band Dist num is invalid"},
        {Shaper(R"("bandDist": {"0": 1})"), -22, "Invalid format, bandDist is not array!"},
        {Shaper(R"("bandDist": [1, 2, 3, null, 5, 6, 7, 8])"), -22, "empty [3] item for bandDist"},
        // The null-item test of the band-limit loops looks at the last
        // "bandDist" item: without "bandDist" any item fails (kept on purpose).
        {Shaper(Block("bandLimit", 1, ovtest::ShaperItems(1, 10))), -22,
         "empty [0] item for bandLimit"},
        // Block headers and arrays.
        {Shaper(kDist + std::string(R"("bandLimit": {"num": 1})")), -22, "Lack of bandLimit"},
        {Shaper(kDist + std::string(R"("bandLimit": {"num": 1, "bandLimit": {}})")), -22,
         "Invalid format, bandLimit is not array!"},
        {Shaper(kDist + std::string(R"("bandLimit": {"num": 1, "bandLimit": [{}]})")), 0,
         "Bandlimit sharePriority is not set", nullptr, "Debug"},
        // Without a num the items are not read at all.
        {Shaper(kDist + std::string(R"("bandLimit": {"sharePriority": 1, "bandLimit": 5})")), 0,
         "Bandlimit num is not set", nullptr, "Debug"},
        // The 17th item of the first block and the 9th of the second would leave the record.
        {Shaper(kDist + Block("bandLimit", 17, ovtest::ShaperItems(17, 100))), -22,
         "Invalid format, bandLimit is not array!"},
        {Shaper(kDist + Block("guaranteeBandLimit", 9, ovtest::ShaperItems(9, 100))), -22,
         "Invalid format, bandLimit is not array!"},
    };
    ExpectMessages("_OV_AgentShaperJsonToConf", "OV_AgentShaperJsonStrToConf", cases);
    for (const char *text : {"", "{", "shaperId=1"}) {
        EXPECT_EQ(Convert(text), -22);
        EXPECT_TRUE(
            Logged("Error", "OV_AgentShaperJsonStrToConf", "invalid shaper string, not json"))
            << log;
        EXPECT_TRUE(Same(Expected()));
    }
}

// ---- Record to JSON ----------------------------------------------------------------

TEST_F(ShaperTest, PrintsFieldsFromTheirOwnOffsetsAndRatesAsSigned32Bit) {
    Expected e;
    e.Bytes(0, {200, 0xFE, 3}); // only bit 0 of byte 1 is the flag
    e.U32(4, 0x80000000).U32(8, 0xFFFFFFFF).U16(12, 65535);
    e.U16(14, 4).U8(23, 255);
    e.Bytes(124, {99, 5, 2}); // the block's id byte is not shown
    PutItem(e, 128, 6, 2147483647, 2147483648u);
    PutItem(e, 140, 7, 8, 9);
    const std::string want =
        R"({ "shaperId": 200, "sharedNum": 3, "inBurstMs": 65535, "outBurstMs": 4, )"
        R"("wanInKbps": -1, "wanKbps": -2147483648, "persistentFlag": false, )"
        R"("bandDist": [ 0, 0, 0, 0, 0, 0, 0, 255 ], )"
        R"("bandLimit": { "sharePriority": 0, "num": 0, "bandLimit": [ ] }, )"
        R"("guaranteeBandLimit": { "sharePriority": 5, "num": 2, "bandLimit": [ )"
        R"({ "priority": 6, "inkbps": 2147483647, "outkbps": -2147483648 }, )"
        R"({ "priority": 7, "inkbps": 8, "outkbps": 9 } ] } })";
    std::memcpy(conf.get(), e.bytes.data(), sizeof *conf);
    EXPECT_EQ(Print(*conf), want);
    EXPECT_TRUE(Logged("Info", "OV_AgentShaperConfToJsonStr", "shaper conf json str: " + want));
}

// Both the printer and the agent's decoder show a received num of items only
// as far as the record holds them. Exactly the record's bytes on the heap, so
// a sanitizer sees any read past them.
TEST_F(ShaperTest, ReceivedNumIsBoundedByTheRecord) {
    std::memset(conf.get(), 0xA5, sizeof *conf);
    conf->bandLimit.num = 200;
    conf->guaranteeBandLimit.num = 200;
    OV_JsonPtr decoded(OV_RecordSpecOf(RecordKind::Shaper)
                           .decode(reinterpret_cast<const uint8_t *>(conf.get()), sizeof *conf));
    ASSERT_NE(decoded, nullptr);
    for (const std::string &text :
         {Print(*conf), std::string(json_object_to_json_string(decoded.get()))}) {
        const size_t second = text.find("guaranteeBandLimit");
        ASSERT_NE(second, std::string::npos) << text;
        EXPECT_EQ(ovtest::CountOf(text.substr(0, second), "\"priority\""), 16u) << text;
        EXPECT_EQ(ovtest::CountOf(text.substr(second), "\"priority\""), 8u) << text;
    }
}

TEST_F(ShaperTest, PrintFailuresGiveNullWithTheirMessage) {
    {
        ovtest::StdoutCapture cap;
        EXPECT_EQ(OV_AgentShaperConfToJsonStr(nullptr), nullptr);
        log = cap.Take();
    }
    EXPECT_TRUE(Logged("Error", "OV_AgentShaperConfToJsonStr",
                       std::string("Agent shaper conf to json failed(22:") + OV_StrError(22) + ")"))
        << log;
    AgentMemModuleUnregister(); // no module to copy the text into
    EXPECT_EQ(Print(AgentShaperConf{}), "");
    EXPECT_TRUE(
        Logged("Error", "OV_AgentShaperConfToJsonStr", "Failed to alloc memory for jsonStr"))
        << log;
}

} // namespace
