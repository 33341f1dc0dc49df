// Tests of the shaper record converters, both directions.
#include "agentconf/shaper.h"

#include "agentconf/json_conv.h"
#include "base/errors.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>

namespace {

using Record = std::array<uint8_t, sizeof(AgentShaperConf)>;

constexpr const char *kSample =
    R"({"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000, )"
    R"("inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0], )"
    R"("bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": )"
    R"([{"priority": 2, "inkbps": 1000000, "outkbps": 1000000}]}})";

template <typename T>
void Put(Record &rec, size_t offset, T value) {
    std::memcpy(rec.data() + offset, &value, sizeof value);
}

Record BytesOf(const AgentShaperConf &conf) {
    Record rec;
    std::memcpy(rec.data(), &conf, rec.size());
    return rec;
}

AgentShaperConf ConfOf(const Record &rec) {
    AgentShaperConf conf;
    std::memcpy(&conf, rec.data(), sizeof conf);
    return conf;
}

void PutItem(Record &rec, size_t offset, uint8_t priority, uint32_t in, uint32_t out) {
    Put<uint8_t>(rec, offset, priority);
    Put<uint32_t>(rec, offset + 4, in);
    Put<uint32_t>(rec, offset + 8, out);
}

Record SampleRecord() {
    Record rec{};
    Put<uint8_t>(rec, 0, 1);
    Put<uint8_t>(rec, 1, 1);
    Put<uint8_t>(rec, 2, 1);
    Put<uint32_t>(rec, 4, 100000);
    Put<uint32_t>(rec, 8, 100000);
    Put<uint16_t>(rec, 12, 100);
    Put<uint16_t>(rec, 14, 100);
    const uint8_t dist[] = {2, 2, 8, 8, 8, 8, 8, 0};
    std::memcpy(rec.data() + 16, dist, sizeof dist);
    Put<uint8_t>(rec, 24, 1);
    Put<uint8_t>(rec, 25, 2);
    Put<uint8_t>(rec, 26, 1);
    PutItem(rec, 28, 2, 1000000, 1000000);
    return rec;
}

// A shaper JSON text with the required keys, followed by `extra` members.
std::string Shaper(const std::string &extra) {
    std::string text = R"({"shaperId": 7, "persistentFlag": false, "wanKbps": 10, )"
                       R"("wanInKbps": 20, "inBurstMs": 30, "outBurstMs": 40)";
    if (!extra.empty()) {
        text += ", " + extra;
    }
    return text + "}";
}

constexpr const char *kDist = R"("bandDist": [1, 2, 3, 4, 5, 6, 7, 8])";

std::string Items(int n, int base) {
    std::string out = "[";
    for (int i = 0; i < n; ++i) {
        out += (i ? ", " : "") + std::string(R"({"priority": )") + std::to_string(i) +
               R"(, "inkbps": )" + std::to_string(base + i) + R"(, "outkbps": )" +
               std::to_string(base + 1000 + i) + "}";
    }
    return out + "]";
}

std::string Block(const char *key, int num, const std::string &items) {
    return std::string("\"") + key + R"(": {"sharePriority": 3, "num": )" + std::to_string(num) +
           R"(, "bandLimit": )" + items + "}";
}

class ShaperTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::StdoutCapture quiet;
        OV_AgentConfLogRegister();
        AgentMemModuleRegister();
    }
    void TearDown() override {
        ovtest::StdoutCapture quiet;
        AgentMemModuleUnregister();
        OV_AgentConfLogUnregister();
    }

    // Converts text into a zeroed record; the log output goes to `log`.
    int32_t Convert(const std::string &text, Record *rec, std::string *log = nullptr) {
        ovtest::StdoutCapture cap;
        AgentShaperConf conf{};
        int32_t rc = OV_AgentShaperJsonStrToConf(&conf, text.c_str());
        *rec = BytesOf(conf);
        std::string out = cap.Take();
        if (log != nullptr) {
            *log = out;
        }
        return rc;
    }

    // The record as JSON text; empty when the conversion gave null.
    std::string Print(const AgentShaperConf &conf, std::string *log = nullptr) {
        ovtest::StdoutCapture cap;
        char *text = OV_AgentShaperConfToJsonStr(&conf);
        std::string out = text != nullptr ? text : "";
        AgentMemFree(text);
        std::string captured = cap.Take();
        if (log != nullptr) {
            *log = captured;
        }
        return out;
    }
};

// True when a line of `log` is a module-62 line of `level` from `func` that
// ends with `msg`.
bool Logged(const std::string &log, const char *level, const char *func, const std::string &msg) {
    const std::string head =
        std::string(ovtest::kFixedStamp) + "<" + level + ":AGENTCONF>[" + func + ":";
    for (const std::string &line : ovtest::Lines(log)) {
        if (line.rfind(head, 0) == 0 && line.size() > msg.size() &&
            line.compare(line.size() - msg.size(), msg.size(), msg) == 0) {
            return true;
        }
    }
    return false;
}

// ---- JSON to record ----------------------------------------------------------------

TEST_F(ShaperTest, ConvertsTheUsageSample) {
    Record rec;
    std::string log;
    ASSERT_EQ(Convert(kSample, &rec, &log), 0) << log;
    EXPECT_EQ(rec, SampleRecord());
    EXPECT_TRUE(Logged(log, "Info", "OV_AgentShaperJsonStrToConf",
                       std::string("] agent shaper conf json = ") + kSample + " "))
        << log;
    EXPECT_TRUE(Logged(log, "Debug", "_OV_AgentShaperJsonToConf",
                       "] Lack of sharedNum, set to default value 1"))
        << log;
    EXPECT_EQ(ovtest::CountOf(log, "<Error:"), 0u) << log;
}

TEST_F(ShaperTest, PlacesEveryFieldAtItsOffset) {
    std::string text = R"({"shaperId": 9, "sharedNum": 0, "persistentFlag": 1, )"
                       R"("wanKbps": 305419896, "wanInKbps": -2, "inBurstMs": 65535, )"
                       R"("outBurstMs": 258, "bandDist": [1, 255, 256, -1, 300, 0, 7, 8], )" +
                       Block("bandLimit", 2, Items(2, 500)) + ", " +
                       Block("guaranteeBandLimit", 1, Items(1, 70000)) + "}";
    Record expect{};
    Put<uint8_t>(expect, 0, 9);
    Put<uint8_t>(expect, 1, 1);
    Put<uint8_t>(expect, 2, 0);
    Put<uint32_t>(expect, 4, 305419896);
    Put<uint32_t>(expect, 8, 0xFFFFFFFE);
    Put<uint16_t>(expect, 12, 65535);
    Put<uint16_t>(expect, 14, 258);
    const uint8_t dist[] = {1, 255, 0, 255, 44, 0, 7, 8}; // low 8 bits of each item
    std::memcpy(expect.data() + 16, dist, sizeof dist);
    Put<uint8_t>(expect, 24, 9);
    Put<uint8_t>(expect, 25, 3);
    Put<uint8_t>(expect, 26, 2);
    PutItem(expect, 28, 0, 500, 1500);
    PutItem(expect, 40, 1, 501, 1501);
    Put<uint8_t>(expect, 125, 3); // byte 124 keeps 0: only the first block has the id
    Put<uint8_t>(expect, 126, 1);
    PutItem(expect, 128, 0, 70000, 71000);

    Record rec;
    std::string log;
    ASSERT_EQ(Convert(text, &rec, &log), 0) << log;
    EXPECT_EQ(rec, expect);
    EXPECT_EQ(ovtest::Lines(log).size(), 1u) << log; // only the text is logged
}

TEST_F(ShaperTest, SharedNumOutOfRangeBecomesOne) {
    Record rec;
    std::string log;
    ASSERT_EQ(Convert(Shaper(R"("sharedNum": 256)"), &rec, &log), 0);
    EXPECT_EQ(rec[2], 1);
    EXPECT_TRUE(Logged(log, "Debug", "_OV_AgentShaperJsonToConf",
                       "] Lack of sharedNum, set to default value 1"))
        << log;
}

TEST_F(ShaperTest, RequiredKeysFailWithTheirLackMessageInOrder) {
    struct Case {
        std::string text;
        int32_t rc;
        const char *message;
    };
    const Case cases[] = {
        {R"({"persistentFlag": true})", -22, "] Lack of shaperId"},
        {R"({"shaperId": 256})", -132, "] Lack of shaperId"},
        {R"({"shaperId": 1})", -22, "] Lack of wanInKbps"},
        {R"({"shaperId": 1, "wanInKbps": 2147483647})", -132, "] Lack of wanInKbps"},
        {R"({"shaperId": 1, "wanInKbps": 1})", -22, "] Lack of wanKbps"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": "fast"})", -22, "] Lack of wanKbps"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1})", -22, "] Lack of inBurstMs"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 65536})", -132,
         "] Lack of inBurstMs"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 1})", -22,
         "] Lack of outBurstMs"},
        {R"({"shaperId": 1, "wanInKbps": 1, "wanKbps": 1, "inBurstMs": 1, "outBurstMs": 1})", -22,
         "] Lack of persistentFlag"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        Record rec;
        std::string log;
        EXPECT_EQ(Convert(c.text, &rec, &log), c.rc);
        EXPECT_TRUE(Logged(log, "Error", "_OV_AgentShaperJsonToConf", c.message)) << log;
        EXPECT_EQ(ovtest::CountOf(log, "<Error:"), 2u) << log; // the lack and the entry's line
        EXPECT_TRUE(Logged(log, "Error", "OV_AgentShaperJsonStrToConf",
                           "] Json to data struct failed(" + std::to_string(-c.rc) + ":" +
                               OV_StrError(-c.rc) + ")"))
            << log;
    }
}

TEST_F(ShaperTest, RefusesMalformedBandDist) {
    struct Case {
        const char *member;
        const char *message;
    };
    const Case cases[] = {
        {R"("bandDist": [1, 2, 3, 4, 5, 6, 7])", "] Band Dist num is invalid"},
        {R"("bandDist": [1, 2, 3, 4, 5, 6, 7, 8, 9])", "] Band Dist num is invalid"},
        {R"("bandDist": {"0": 1})", "] Invalid format, bandDist is not array!"},
        {R"("bandDist": null)", "] Invalid format, bandDist is not array!"},
        {R"("bandDist": [1, 2, 3, null, 5, 6, 7, 8])", "] empty [3] item for bandDist"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.member);
        Record rec;
        std::string log;
        EXPECT_EQ(Convert(Shaper(c.member), &rec, &log), -22);
        EXPECT_TRUE(Logged(log, "Error", "_OV_AgentShaperJsonToConf", c.message)) << log;
    }
}

TEST_F(ShaperTest, AdoptsTheArraySizeWhenNumDiffers) {
    Record rec;
    std::string log;
    ASSERT_EQ(Convert(Shaper(std::string(kDist) + ", " + Block("bandLimit", 2, Items(1, 10))), &rec,
                      &log),
              0);
    Record expect{};
    std::memcpy(expect.data(), rec.data(), 24); // the head is checked elsewhere
    Put<uint8_t>(expect, 24, 7);
    Put<uint8_t>(expect, 25, 3);
    Put<uint8_t>(expect, 26, 1);
    PutItem(expect, 28, 0, 10, 1010);
    EXPECT_EQ(rec, expect);
    EXPECT_TRUE(Logged(log, "Warning", "_OV_AgentShaperJsonToConf",
                       "] array size is not equal to WanEngineConf->BandLimit.Num, use array size"))
        << log;
}

// Kept on purpose: the null-item test of the band-limit loops looks at the
// last "bandDist" item.
TEST_F(ShaperTest, BlockWithItemsFailsWithoutBandDist) {
    for (const char *key : {"bandLimit", "guaranteeBandLimit"}) {
        SCOPED_TRACE(key);
        Record rec;
        std::string log;
        EXPECT_EQ(Convert(Shaper(Block(key, 1, Items(1, 10))), &rec, &log), -22);
        EXPECT_TRUE(
            Logged(log, "Error", "_OV_AgentShaperJsonToConf", "] empty [0] item for bandLimit"))
            << log;
        EXPECT_EQ(Convert(Shaper(Block(key, 0, Items(1, 10))), &rec, &log), 0) << log;
    }
}

TEST_F(ShaperTest, NullItemWithBandDistOnlyGivesNotices) {
    Record rec;
    std::string log;
    ASSERT_EQ(Convert(Shaper(std::string(kDist) + ", " + Block("bandLimit", 2, "[null, {}]")), &rec,
                      &log),
              0)
        << log;
    EXPECT_EQ(ovtest::CountOf(log, "] Bandlimit priority is not set\n"), 2u) << log;
    EXPECT_EQ(ovtest::CountOf(log, "] Bandlimit inkbps is not set\n"), 2u);
    EXPECT_EQ(ovtest::CountOf(log, "] Bandlimit outkbps is not set\n"), 2u);
    EXPECT_TRUE(
        Logged(log, "Debug", "_OV_AgentShaperJsonToConf", "] Bandlimit priority is not set"));
    for (size_t i = 28; i < rec.size(); ++i) {
        if (i != 24 && i != 25 && i != 26) {
            EXPECT_EQ(rec[i], 0) << i;
        }
    }
}

TEST_F(ShaperTest, BlockHeaderAndArrayFailures) {
    struct Case {
        std::string block;
        int32_t rc;
        const char *message;
        const char *level;
    };
    const Case cases[] = {
        {R"("bandLimit": {"num": 1})", -22, "] Lack of bandLimit", "Error"},
        {R"("bandLimit": {"num": 1, "bandLimit": {}})", -22,
         "] Invalid format, bandLimit is not array!", "Error"},
        {R"("guaranteeBandLimit": {"num": 1, "bandLimit": 5})", -22,
         "] Invalid format, bandLimit is not array!", "Error"},
        {R"("bandLimit": {"num": 1, "bandLimit": [{}]})", 0, "] Bandlimit sharePriority is not set",
         "Debug"},
        // Without num the items are not read at all.
        {R"("bandLimit": {"sharePriority": 1, "bandLimit": 5})", 0, "] Bandlimit num is not set",
         "Debug"},
        {R"("bandLimit": {"num": 300, "bandLimit": 5})", 0, "] Bandlimit num is not set", "Debug"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.block);
        Record rec;
        std::string log;
        EXPECT_EQ(Convert(Shaper(std::string(kDist) + ", " + c.block), &rec, &log), c.rc);
        EXPECT_TRUE(Logged(log, c.level, "_OV_AgentShaperJsonToConf", c.message)) << log;
    }
}

TEST_F(ShaperTest, ItemsRunPastTheFirstBlockWhileInsideTheRecord) {
    Record rec;
    std::string log;
    ASSERT_EQ(Convert(Shaper(std::string(kDist) + ", " + Block("bandLimit", 16, Items(16, 100))),
                      &rec, &log),
              0)
        << log;
    Record expect{};
    std::memcpy(expect.data(), rec.data(), 24);
    Put<uint8_t>(expect, 24, 7);
    Put<uint8_t>(expect, 25, 3);
    Put<uint8_t>(expect, 26, 16);
    for (int i = 0; i < 16; ++i) {
        PutItem(expect, 28 + 12 * i, static_cast<uint8_t>(i), 100 + i, 1100 + i);
    }
    EXPECT_EQ(rec, expect);

    // The 17th item of the first block and the 9th of the second would leave it.
    EXPECT_EQ(Convert(Shaper(std::string(kDist) + ", " + Block("bandLimit", 17, Items(17, 100))),
                      &rec, &log),
              -22);
    EXPECT_TRUE(Logged(log, "Error", "_OV_AgentShaperJsonToConf",
                       "] Invalid format, bandLimit is not array!"))
        << log;
    EXPECT_EQ(
        Convert(Shaper(std::string(kDist) + ", " + Block("guaranteeBandLimit", 8, Items(8, 100))),
                &rec, &log),
        0);
    EXPECT_EQ(
        Convert(Shaper(std::string(kDist) + ", " + Block("guaranteeBandLimit", 9, Items(9, 100))),
                &rec, &log),
        -22);
}

TEST_F(ShaperTest, RefusesTextThatIsNotJson) {
    for (const char *text : {"", "{", "shaperId=1"}) {
        SCOPED_TRACE(text);
        Record rec;
        std::string log;
        EXPECT_EQ(Convert(text, &rec, &log), -22);
        EXPECT_TRUE(Logged(log, "Error", "OV_AgentShaperJsonStrToConf",
                           "] invalid shaper string, not json"))
            << log;
        EXPECT_EQ(rec, Record{});
    }
}

// ---- Record to JSON ----------------------------------------------------------------

constexpr const char *kSampleText =
    R"({ "shaperId": 1, "sharedNum": 1, "inBurstMs": 100, "outBurstMs": 100, )"
    R"("wanInKbps": 100000, "wanKbps": 100000, "persistentFlag": true, )"
    R"("bandDist": [ 2, 2, 8, 8, 8, 8, 8, 0 ], )"
    R"("bandLimit": { "sharePriority": 2, "num": 1, "bandLimit": )"
    R"([ { "priority": 2, "inkbps": 1000000, "outkbps": 1000000 } ] }, )"
    R"("guaranteeBandLimit": { "sharePriority": 0, "num": 0, "bandLimit": [ ] } })";

TEST_F(ShaperTest, PrintsTheSampleRecordInKeyOrder) {
    std::string log;
    EXPECT_EQ(Print(ConfOf(SampleRecord()), &log), kSampleText);
    EXPECT_TRUE(Logged(log, "Info", "OV_AgentShaperConfToJsonStr",
                       std::string("] shaper conf json str: ") + kSampleText))
        << log;
}

TEST_F(ShaperTest, ReturnsACopyOfExactlyTheTextFromTheAgentModule) {
    MemModuleStats before{};
    MemModuleStats after{};
    ASSERT_EQ(MemModuleGetStats(g_agentMemModule, &before), 0);
    ovtest::StdoutCapture quiet;
    AgentShaperConf conf = ConfOf(SampleRecord());
    char *text = OV_AgentShaperConfToJsonStr(&conf);
    ASSERT_NE(text, nullptr);
    ASSERT_EQ(MemModuleGetStats(g_agentMemModule, &after), 0);
    EXPECT_EQ(after.MemCounter, before.MemCounter + 1);
    EXPECT_EQ(after.MemUsage - before.MemUsage, static_cast<int32_t>(std::strlen(text) + 1 + 16));
    AgentMemFree(text);
}

TEST_F(ShaperTest, PrintsFieldsFromTheirOwnOffsetsAndRatesAsSigned32Bit) {
    Record rec{};
    Put<uint8_t>(rec, 0, 200);
    Put<uint8_t>(rec, 1, 0xFE); // only bit 0 is the flag
    Put<uint8_t>(rec, 2, 3);
    Put<uint32_t>(rec, 4, 0x80000000);
    Put<uint32_t>(rec, 8, 0xFFFFFFFF);
    Put<uint16_t>(rec, 12, 65535);
    Put<uint16_t>(rec, 14, 4);
    Put<uint8_t>(rec, 23, 255);
    Put<uint8_t>(rec, 124, 99); // the block's id byte is not shown
    Put<uint8_t>(rec, 125, 5);
    Put<uint8_t>(rec, 126, 2);
    PutItem(rec, 128, 6, 2147483647, 2147483648u);
    PutItem(rec, 140, 7, 8, 9);
    std::string text = Print(ConfOf(rec));
    EXPECT_EQ(text, R"({ "shaperId": 200, "sharedNum": 3, "inBurstMs": 65535, "outBurstMs": 4, )"
                    R"("wanInKbps": -1, "wanKbps": -2147483648, "persistentFlag": false, )"
                    R"("bandDist": [ 0, 0, 0, 0, 0, 0, 0, 255 ], )"
                    R"("bandLimit": { "sharePriority": 0, "num": 0, "bandLimit": [ ] }, )"
                    R"("guaranteeBandLimit": { "sharePriority": 5, "num": 2, "bandLimit": [ )"
                    R"({ "priority": 6, "inkbps": 2147483647, "outkbps": -2147483648 }, )"
                    R"({ "priority": 7, "inkbps": 8, "outkbps": 9 } ] } })");
}

TEST_F(ShaperTest, ReceivedNumIsBoundedByTheRecord) {
    // Exactly the record's bytes on the heap, so a sanitizer sees any overread.
    auto conf = std::make_unique<AgentShaperConf>();
    std::memset(conf.get(), 0xA5, sizeof *conf);
    conf->bandLimit.num = 200;
    conf->guaranteeBandLimit.num = 200;
    std::string text = Print(*conf);
    ASSERT_FALSE(text.empty());
    OV_JsonPtr root(json_tokener_parse(text.c_str()));
    ASSERT_NE(root, nullptr);
    const struct {
        const char *key;
        size_t items;
    } blocks[] = {{"bandLimit", 16}, {"guaranteeBandLimit", 8}};
    for (const auto &b : blocks) {
        SCOPED_TRACE(b.key);
        json_object *block = nullptr;
        json_object *num = nullptr;
        json_object *arr = nullptr;
        ASSERT_TRUE(json_object_object_get_ex(root.get(), b.key, &block));
        ASSERT_TRUE(json_object_object_get_ex(block, "num", &num));
        ASSERT_TRUE(json_object_object_get_ex(block, "bandLimit", &arr));
        EXPECT_EQ(json_object_get_int(num), 200);
        EXPECT_EQ(json_object_array_length(arr), b.items);
    }
}

TEST_F(ShaperTest, PrintFailuresGiveNullWithTheirMessage) {
    std::string log;
    {
        ovtest::StdoutCapture cap;
        EXPECT_EQ(OV_AgentShaperConfToJsonStr(nullptr), nullptr);
        log = cap.Take();
    }
    EXPECT_TRUE(
        Logged(log, "Error", "OV_AgentShaperConfToJsonStr",
               std::string("] Agent shaper conf to json failed(22:") + OV_StrError(22) + ")"))
        << log;

    AgentMemModuleUnregister(); // no module to copy the text into
    EXPECT_EQ(Print(ConfOf(SampleRecord()), &log), "");
    EXPECT_TRUE(
        Logged(log, "Error", "OV_AgentShaperConfToJsonStr", "] Failed to alloc memory for jsonStr"))
        << log;
}

// ---- Both directions ------------------------------------------------------------------

TEST_F(ShaperTest, JsonRecordJsonRecordGivesTheSameBytes) {
    const std::string texts[] = {
        kSample,
        Shaper(""),
        // Negative rates come back from the signed print as the same bits.
        Shaper(std::string(kDist) + ", " +
               Block("bandLimit", 1,
                     R"([{"priority": 1, )"
                     R"("inkbps": -5, "outkbps": -1}])")),
        // Both blocks full, the first one running on over the second.
        Shaper(std::string(kDist) + R"(, "sharedNum": 4, )" + Block("bandLimit", 16, Items(16, 7)) +
               ", " + Block("guaranteeBandLimit", 8, Items(8, 900000))),
    };
    for (const std::string &text : texts) {
        SCOPED_TRACE(text);
        Record first;
        ASSERT_EQ(Convert(text, &first), 0);
        std::string printed = Print(ConfOf(first));
        Record second;
        ASSERT_EQ(Convert(printed, &second), 0) << printed;
        EXPECT_EQ(second, first) << printed;
    }
}

} // namespace
