#include "cli/get_print.h"

#include "agentconf/json_conv.h"
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "cli/cmd.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

TEST(Formatters, CutAtTheBufferEndAndPrettyTextIsNullForNullTexts) {
    char buf[8];
    EXPECT_EQ(CmdSnprintf(buf, 0, "%s", "abc"), 0u);
    EXPECT_EQ(CmdSnprintf(buf, sizeof buf, "%s", "abc"), 3u);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(CmdSnprintf(buf, sizeof buf, "%s", "1234567"), 7u);
    EXPECT_EQ(CmdSnprintf(buf, sizeof buf, "%s", "12345678"), 8u);
    EXPECT_STREQ(buf, "1234567");
    EXPECT_EQ(CmdSnprintf(buf, 1, "%s", "abc"), 1u);
    EXPECT_STREQ(buf, "");

    char line[10];
    char *end = line + sizeof line;
    char *pos = CmdAppendf(line, end, "%s", "abcd");
    EXPECT_EQ(pos, line + 4);
    pos = CmdAppendf(pos, end, "%s", "efghijkl");
    EXPECT_EQ(pos, end - 1); // the appending one stops at the last byte
    EXPECT_STREQ(line, "abcdefghi");
    EXPECT_EQ(CmdAppendf(end, end, "%s", "x"), end);

    OV_JsonPtr obj(json_tokener_parse(R"({"a": 1})"));
    const char *text = CmdJsonPrettyText(obj.get());
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "{\n  \"a\":1\n}");
    EXPECT_EQ(CmdJsonPrettyText(nullptr), nullptr); // json-c prints a null object as "null"
}

class ShaperTablePrinter : public ovtest::ConverterTest {
  protected:
    static std::vector<uint8_t> Reply(unsigned count, size_t records) {
        std::vector<uint8_t> bytes(4 + records * sizeof(AgentShaperConf), 0);
        bytes[0] = static_cast<uint8_t>(count);
        for (size_t i = 0; i < records; ++i) {
            bytes[4 + i * sizeof(AgentShaperConf)] = static_cast<uint8_t>(i + 1); // shaper id
        }
        return bytes;
    }
};

// Whole tables, the empty one included, are printed end to end.
TEST_F(ShaperTablePrinter, ALengthThatDoesNotMatchTheCountPrintsNoTable) {
    for (size_t len : {451u, 453u}) {
        std::vector<uint8_t> reply = Reply(2, 2);
        reply.resize(len);
        char out[CMD_OUT_BUF_LEN] = {};
        ovtest::StdoutCapture cap;
        EXPECT_EQ(CmdShaperTblPrint(reply.data(), reply.size(), out), 0);
        EXPECT_STREQ(out, "");
        EXPECT_NE(cap.Take().find("Invalid reply msg, ReplyBytes " + std::to_string(len) +
                                  " shaperCount 2 should be 452\n"),
                  std::string::npos);
    }
    char out[CMD_OUT_BUF_LEN] = {};
    EXPECT_EQ(CmdShaperTblPrint(nullptr, 4, out), -22);
}

TEST_F(ShaperTablePrinter, ManyRecordsAreCutAtTheBufferEndWithoutError) {
    std::vector<uint8_t> reply = Reply(40, 40);
    std::vector<char> out(CMD_OUT_BUF_LEN + 16, '#'); // guard bytes after the buffer
    ovtest::StdoutCapture quiet;
    EXPECT_EQ(CmdShaperTblPrint(reply.data(), reply.size(), out.data()), 0);
    EXPECT_EQ(std::strlen(out.data()), CMD_OUT_BUF_LEN - 1u);
    for (size_t i = CMD_OUT_BUF_LEN; i < out.size(); ++i) {
        EXPECT_EQ(out[i], '#') << i;
    }
    MemModuleStats stats{};
    ASSERT_EQ(MemModuleGetStats(g_agentMemModule, &stats), 0);
    EXPECT_EQ(stats.MemCounter, 0); // every JSON text went back to the module
}

} // namespace
