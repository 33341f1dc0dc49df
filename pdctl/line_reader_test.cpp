// Tests of the configuration file reader over in-memory streams.
#include "pdctl/line_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace pdctl {
namespace {

// A stream handing out at most `step` bytes per read, so lines cross chunks.
struct MemoryStream {
    std::string bytes;
    size_t step;
    size_t at = 0;
    int64_t failAt = -1; ///< the read from this offset on fails
};

int64_t ReadMemory(void *ctx, char *buf, size_t size) {
    auto *s = static_cast<MemoryStream *>(ctx);
    if (s->failAt >= 0 && s->at >= static_cast<size_t>(s->failAt)) {
        return -5;
    }
    size_t n = std::min({size, s->step, s->bytes.size() - s->at});
    std::memcpy(buf, s->bytes.data() + s->at, n);
    s->at += n;
    return static_cast<int64_t>(n);
}

struct Got {
    uint64_t number;
    std::string text;
    LineProblem problem;
    bool operator==(const Got &) const = default;
};

std::vector<Got> ReadAll(const std::string &bytes, size_t step, size_t maxLine = 16) {
    MemoryStream stream{bytes, step};
    LineReader reader(ReadMemory, &stream, maxLine);
    std::vector<Got> out;
    Line line;
    while (reader.Next(&line) == 1) {
        out.push_back({line.number, std::string(line.text), line.problem});
    }
    return out;
}

constexpr LineProblem kOk = LineProblem::None;

struct Case {
    const char *name;
    std::string input;
    std::vector<Got> lines;
};

const Case kCases[] = {
    {"empty stream", "", {}},
    {"last line without a line break", "a/1\nb/2", {{1, "a/1", kOk}, {2, "b/2", kOk}}},
    {"blank and comment lines are skipped but counted",
     "\n  \t\n# x\n  # y \\\nc/3\n",
     {{5, "c/3", kOk}}},
    {"carriage returns before line breaks are dropped",
     "a/1\r\nb\r/2\r\n",
     {{1, "a/1", kOk}, {2, "b\r/2", kOk}}},
    {"a continuation joins lines and keeps the first number",
     "x/{\\\n  1,\\\r\n2}\ny\n",
     {{1, "x/{  1,2}", kOk}, {4, "y", kOk}}},
    {"a comment-looking continuation belongs to the line", "a\\\n#b\n", {{1, "a#b", kOk}}},
    {"a continuation on the last line ends it", "a\\", {{1, "a", kOk}}},
    {"a line of only continued blanks is skipped", " \\\n\t\nz\n", {{3, "z", kOk}}},
    {"leading blanks stay part of the word", "  set_x\n", {{1, "  set_x", kOk}}},
    {"a byte order mark at the start is skipped",
     "\xEF\xBB\xBFw\n\xEF\xBB\xBFv\n",
     {{1, "w", kOk}, {2, "\xEF\xBB\xBFv", kOk}}},
    {"NUL bytes are reported with the line",
     std::string("a\0b\nc\n", 6),
     {{1, std::string("a\0b", 3), LineProblem::HasNul}, {2, "c", kOk}}},
    {"a line at the limit is taken", "0123456789abcdef\r\n", {{1, "0123456789abcdef", kOk}}},
    {"a continued line at the limit is taken",
     "0123456789abcde\\\nf\n",
     {{1, "0123456789abcdef", kOk}}},
    {"a longer line is cut and reported, and reading goes on",
     "0123456789abcdefg\\\n" + std::string(100000, 'z') + "\nok\n",
     {{1, "0123456789abcdef", LineProblem::TooLong}, {3, "ok", kOk}}},
    {"a long comment is no line", "#" + std::string(100000, 'c') + "\nk\n", {{2, "k", kOk}}},
};

TEST(LineReader, CutsStreamsIntoLogicalLines) {
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        // One byte per read, a few, and whole chunks: the same lines.
        for (size_t step : {size_t{1}, size_t{3}, size_t{1} << 20}) {
            SCOPED_TRACE(step);
            EXPECT_EQ(ReadAll(c.input, step), c.lines);
        }
    }
}

TEST(LineReader, ReportsAReadErrorAndDropsThePartialLine) {
    MemoryStream stream{"a/1\nb/2", 1, 0, 6};
    LineReader reader(ReadMemory, &stream, 16);
    Line line;
    ASSERT_EQ(reader.Next(&line), 1);
    EXPECT_EQ(line.text, "a/1");
    EXPECT_EQ(reader.Next(&line), -5);
}

} // namespace
} // namespace pdctl
