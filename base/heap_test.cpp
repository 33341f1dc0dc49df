#include "base/heap.h"
#include "base/platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string Format(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    OV_FormattedText text(fmt, ap);
    va_end(ap);
    EXPECT_EQ(text.size(), std::char_traits<char>::length(text.c_str()));
    return text.c_str();
}

TEST(HeapText, FormattedTextIsWholeOnBothSidesOfTheInlineBuffer) {
    for (size_t len : {0u, 1u, 510u, 511u, 512u, 513u, 5000u}) {
        std::string body(len, 'q');
        EXPECT_EQ(Format("<%s>%d", body.c_str(), 7), "<" + body + ">7") << len;
    }
}

TEST(HeapText, JoinedPiecesKeepTheirOrderAndLength) {
    size_t len = 99;
    OV_CPtr<char> text = OV_JoinText({"agent ", "rule", "", " conf json = ", "{}"}, &len);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "agent rule conf json = {}");
    EXPECT_EQ(len, 25u);
}

OV_Once g_once;
std::atomic<int> g_runs{0};

TEST(RunOnce, RunsOnceWhateverTheNumberOfCallers) {
    constexpr int kCallers = 8;
    std::vector<std::thread> callers;
    callers.reserve(kCallers);
    for (int i = 0; i < kCallers; ++i) {
        callers.emplace_back([] {
            OV_RunOnce(&g_once, [] {
                std::this_thread::yield();
                ++g_runs;
            });
            // Nobody returns before the first run has finished.
            EXPECT_EQ(g_runs.load(), 1);
        });
    }
    for (std::thread &t : callers) {
        t.join();
    }
    OV_RunOnce(&g_once, [] { ++g_runs; });
    EXPECT_EQ(g_runs.load(), 1);
}

} // namespace
