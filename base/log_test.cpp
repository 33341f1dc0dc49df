#include "base/log.h"

#include "tests/support/capture.h"
#include "tests/support/process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using ovtest::kFixedStamp;
using ovtest::StdoutCapture;

using ovtest::ReadWholeFile;

// The stamp is written by hand: each field as "%0Nd" prints it, including
// values wider than the field and the largest a field can hold.
TEST(Log, TimeStampFieldsArePaddedAndNeverCut) {
    struct Case {
        OV_LocalTime t;
        const char *stamp;
    };
    const Case cases[] = {
        {{2026, 1, 2, 3, 4, 5, 6}, "[2026/01/02_03:04:05.006]"},
        {{65535, 65535, 100, 65535, 65535, 65535, 65535},
         "[65535/65535/100_65535:65535:65535.65535]"},
    };
    static OV_LocalTime current;
    for (const Case &c : cases) {
        current = c.t;
        testing::internal::CaptureStdout();
        OV_LogSetTimeSource([](OV_LocalTime *t) { *t = current; });
        OV_Log("x\n");
        OV_LogSetTimeSource(nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(c.stamp) + "x\n");
    }
}

TEST(LogFile, RefusesBadArgumentsClosedSlotsAndASixtyFifthFile) {
    ovtest::ScopedTempDir dir{"log"}; // files of an earlier run must not decide the outcome
    std::string path = dir.File("ov_log_setters.log");
    std::string longPath(OV_LOG_PATH_LEN, 'p');
    EXPECT_EQ(OV_LogFileOpen(longPath.c_str(), OV_LOG_PATH_LEN), -22);
    std::vector<int32_t> slots;
    for (int i = 0; i < OV_LOG_FILE_MAX; ++i) {
        slots.push_back(OV_LogFileOpen(path.c_str(), static_cast<uint32_t>(path.size())));
        ASSERT_GE(slots.back(), 0) << i;
    }
    EXPECT_EQ(OV_LogFileOpen(path.c_str(), static_cast<uint32_t>(path.size())), -2);
    int32_t idx = slots[0];
    EXPECT_EQ(OV_LogFileSetMaxSize(OV_LOG_FILE_MAX, 1), -22);
    EXPECT_EQ(OV_LogFileSetArchive(idx, nullptr, "0123456789abcdef"), -22);
    EXPECT_EQ(OV_LogFileSetArchive(idx, nullptr, "0123456789abcde"), 0);
    for (int32_t slot : slots) {
        OV_LogFileClose(slot);
    }
    EXPECT_EQ(OV_LogFileSetBackups(idx, 2), -22);
    EXPECT_EQ(OV_LogFileSetRotate(idx, 1), -22);
    EXPECT_NE(ReadWholeFile(path).find("log start...\n\n"), std::string::npos);
}

TEST(LogFile, RotationShiftsBackupsUpAndDropsTheOldest) {
    ovtest::ScopedTempDir dir{"log"};
    std::string path = dir.File("ov_log_rotate.log");
    for (int k = 0; k < 4; ++k) {
        std::ofstream(path + "." + std::to_string(k), std::ios::binary) << "backup" << k;
    }
    OV_LogSetTimeSource(ovtest::FixedClock);
    int32_t idx = OV_LogDefaultFileOpenEx(path.c_str(), static_cast<uint32_t>(path.size()), 200, 4);
    ASSERT_GE(idx, 0);
    std::string filler(150, 'x');
    OV_Log("%s\n", filler.c_str()); // file passes 200 bytes: rotate
    OV_Log("after\n");
    OV_LogFileClose(idx);
    OV_LogSetTimeSource(nullptr);

    std::string b0 = ReadWholeFile(path + ".0");
    EXPECT_NE(b0.find("log start..."), std::string::npos);
    EXPECT_NE(b0.find(filler), std::string::npos);
    for (int k = 1; k < 4; ++k) {
        EXPECT_EQ(ReadWholeFile(path + "." + std::to_string(k)), "backup" + std::to_string(k - 1));
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".4"));
    EXPECT_EQ(ReadWholeFile(path), std::string(kFixedStamp) + "after\n");
}

TEST(LogFile, ReopenGoesOnAppendingToTheFile) {
    ovtest::ScopedTempDir dir{"log"};
    std::string path = dir.File("ov_log_reopen.log");
    OV_LogSetTimeSource(ovtest::FixedClock);
    int32_t idx = OV_LogDefaultFileOpenEx(path.c_str(), static_cast<uint32_t>(path.size()), 0, 0);
    ASSERT_GE(idx, 0);
    OV_Log("before\n");
    EXPECT_EQ(OV_LogFileReopen(idx), 0);
    OV_Log("after\n");
    OV_LogFileClose(idx);
    OV_LogSetTimeSource(nullptr);
    EXPECT_TRUE(ReadWholeFile(path).ends_with(std::string(kFixedStamp) + "before\n" + kFixedStamp +
                                              "after\n"))
        << ReadWholeFile(path);
}

std::vector<std::pair<std::string, std::string>> g_archived;

void Archive(const char *src, const char *dst) {
    g_archived.emplace_back(src, dst);
    std::rename(src, dst);
}

TEST(LogFile, ArchiveCallbackNamesBackupsWithSuffix) {
    ovtest::ScopedTempDir dir{"log"};
    std::string path = dir.File("ov_log_archive.log");
    std::ofstream(path + ".0.gz") << "old";
    // One backup: the old one is replaced, not shifted to ".1.gz".
    int32_t idx = OV_LogDefaultFileOpenEx(path.c_str(), static_cast<uint32_t>(path.size()), 64, 1);
    ASSERT_GE(idx, 0);
    ASSERT_EQ(OV_LogFileSetArchive(idx, Archive, "gz"), 0);
    g_archived.clear();
    OV_Log("%s\n", std::string(80, 'y').c_str());
    OV_LogFileClose(idx);
    ASSERT_EQ(g_archived.size(), 1u);
    EXPECT_EQ(g_archived[0].first, path);
    EXPECT_EQ(g_archived[0].second, path + ".0.gz");
    EXPECT_TRUE(std::filesystem::exists(path + ".0.gz"));
    EXPECT_FALSE(std::filesystem::exists(path + ".1.gz"));
}

const char *TestPrefix(uint32_t level) {
    return level == OV_LOG_ERROR ? "Error:" : "Other:";
}

class LogModuleTest : public testing::Test {
  protected:
    static constexpr uint32_t kId = 40;
    void TearDown() override {
        StdoutCapture quiet;
        OV_LogModuleUnregister(kId);
    }
};

TEST_F(LogModuleTest, RegistrationAndMessageShape) {
    StdoutCapture cap;
    ASSERT_EQ(OV_LogModuleRegister(kId, "modt", OV_LOG_DEBUG, 0, 0), 0);
    EXPECT_EQ(OV_LogModuleRegister(kId, "modt", OV_LOG_DEBUG, 0, 0), -17);
    EXPECT_EQ(OV_LogModuleRegister(64, "bad", 0, 0, 0), -22);
    // Without an output function messages are dropped.
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "fn", 7, "dropped\n");
    ASSERT_EQ(OV_LogModuleSetOutput(kId, OV_LogModuleStdOutput, TestPrefix), 0);
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 12, "Lack of %s\n", "X");
    OV_LogModuleMsg(kId, OV_LOG_TRACE, false, "_OV_Fn", 13, "below level\n");
    OV_LogModuleUnregister(kId);
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 14, "after unregister\n");
    auto lines = ovtest::Lines(cap.Take());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], std::string(kFixedStamp) +
                            "<Info>register modt[40](Debug ratalimit=0,0) log module success.");
    EXPECT_EQ(lines[1], std::string(kFixedStamp) + "<Error:modt>[_OV_Fn:12] Lack of X");
    EXPECT_EQ(lines[2], std::string(kFixedStamp) + "<Info>unregister modt[40] log module success.");
}

TEST_F(LogModuleTest, RateLimitSuppressesBeyondBurstAndReportsAtTheNextMessage) {
    StdoutCapture cap;
    // Burst 0: every rate-limited message is suppressed, and since each
    // period ends at the next message, each call reports the previous one.
    ASSERT_EQ(OV_LogModuleRegister(kId, "rl", OV_LOG_TRACE, 1000, 0), 0);
    EXPECT_FALSE(OV_LogModuleShouldLog(kId, OV_LOG_ERROR, true));
    EXPECT_FALSE(OV_LogModuleShouldLog(kId, OV_LOG_ERROR, true));
    EXPECT_TRUE(OV_LogModuleShouldLog(kId, OV_LOG_ERROR, false));
    std::string out = cap.Take();
    EXPECT_EQ(ovtest::CountOf(out, "<Warn>rl: 1 callbacks suppressed\n"), 1u) << out;
}

TEST_F(LogModuleTest, FinishedAndLongMessagesKeepTheirShape) {
    std::string big(5000, 'b');
    StdoutCapture cap;
    ASSERT_EQ(OV_LogModuleRegister(kId, "modt", OV_LOG_DEBUG, 0, 0), 0);
    ASSERT_EQ(OV_LogModuleSetOutput(kId, OV_LogModuleStdOutput, TestPrefix), 0);
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 1, "%s", "finished\n");
    const char *none = std::getenv("OV_LOG_TEST_NEVER_SET"); // a null the compiler cannot see
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 2, "%s", none);
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 3, "\n");
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, "_OV_Fn", 4, "json = %s \n", big.c_str());
    std::string fn(1000, 'f'); // a head longer than the line buffer
    OV_LogModuleMsg(kId, OV_LOG_ERROR, false, fn.c_str(), 5, "%s\n", big.c_str());
    auto lines = ovtest::Lines(cap.Take());
    ASSERT_EQ(lines.size(), 5u);
    const std::string head = std::string(kFixedStamp) + "<Error:modt>[_OV_Fn:";
    EXPECT_EQ(lines[1], head + "1] finished");
    EXPECT_EQ(lines[2], head + "2] (null)" + head + "3] "); // printf's text for a null %s
    EXPECT_EQ(lines[3], head + "4] json = " + big + " ");
    EXPECT_EQ(lines[4], std::string(kFixedStamp) + "<Error:modt>[" + fn + ":5] " + big);
}

TEST(Log, LinesAreStampedAndWholeWithOrWithoutTheFlushAfterEachLine) {
    std::string big(5000, 'x');
    std::string flushed;
    std::string buffered;
    for (bool flush : {true, false}) {
        OV_LogSetFlushEachLine(flush);
        StdoutCapture cap;
        EXPECT_EQ(OV_Log("<Info>short %d\n", 1), static_cast<int>(std::strlen(kFixedStamp)) + 14);
        std::printf("between\n");
        OV_Log("<Info>long %s\n", big.c_str());
        (flush ? flushed : buffered) = cap.Take();
    }
    OV_LogSetFlushEachLine(true);
    EXPECT_EQ(buffered, flushed);
    EXPECT_EQ(flushed, std::string(kFixedStamp) + "<Info>short 1\nbetween\n" + kFixedStamp +
                           "<Info>long " + big + "\n");
}

} // namespace
