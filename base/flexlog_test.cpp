#include "base/flexlog.h"

#include "base/flexmsg.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class FlexLogTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::StdoutCapture quiet;
        ASSERT_EQ(OV_FlexMsgModuleStart(), 0);
        msg_ = OV_FlexMsgAlloc();
        ASSERT_NE(msg_, nullptr);
    }
    void TearDown() override {
        OV_FlexLogAttach(nullptr);
        ovtest::StdoutCapture quiet;
        OV_FlexMsgFree(msg_);
        OV_FlexMsgModuleStop();
    }
    FlexMsg *msg_ = nullptr;
};

TEST_F(FlexLogTest, WithoutContextNothingIsWritten) {
    EXPECT_EQ(OV_FlexLog("x %d\n", 1), -104);
    uint32_t saved = g_flexLogSwitch;
    g_flexLogSwitch = 0;
    EXPECT_EQ(OV_FlexLog("x\n"), -200);
    g_flexLogSwitch = saved;
    EXPECT_STREQ(OV_FlexLogText(), "");
}

TEST_F(FlexLogTest, LinesAreNumberedAndClearStartsAgain) {
    OV_FlexLogCtx ctx{0, msg_};
    OV_FlexLogAttach(&ctx);
    EXPECT_EQ(OV_FlexLog("first %s\n", "a"), 0);
    EXPECT_EQ(OV_FlexLog("second\n"), 0);
    EXPECT_STREQ(OV_FlexLogText(), "[flexlog][depth:0]:first a\n[flexlog][depth:1]:second\n");
    OV_FlexLogClear();
    EXPECT_STREQ(OV_FlexLogText(), "");
    EXPECT_EQ(OV_FlexLog("again\n"), 0);
    EXPECT_STREQ(OV_FlexLogText(), "[flexlog][depth:0]:again\n");
}

TEST_F(FlexLogTest, OverDepthNoticeIsWrittenOnce) {
    OV_FlexLogCtx ctx{0, msg_};
    OV_FlexLogAttach(&ctx);
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(OV_FlexLog("l\n"), 0);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(OV_FlexLog("past\n"), -120);
    }
    std::string text = OV_FlexLogText();
    EXPECT_EQ(ovtest::CountOf(text, "[flexlog][depth:65]: the depth more than max depth:64\n"), 1u);
    EXPECT_EQ(text.find("past"), std::string::npos);
}

TEST_F(FlexLogTest, AppendGrowsOnlyWhenTheTextNeedsTheWholeFreeArea) {
    ovtest::StdoutCapture cap;
    msg_->length = 4000; // 96 bytes free
    std::string fits(94, 'a');
    ASSERT_EQ(OV_FlexMsgAppendFmt(msg_, "%s", fits.c_str()), 0);
    EXPECT_EQ(msg_->capacity, 4096u);
    EXPECT_EQ(msg_->length, 4094u);

    std::string needsAll(2, 'b'); // exactly the 2 free bytes: no room for the NUL
    ASSERT_EQ(OV_FlexMsgAppendFmt(msg_, "%s", needsAll.c_str()), 0);
    EXPECT_EQ(msg_->capacity, 8192u);
    EXPECT_EQ(msg_->length, 4096u);
    EXPECT_EQ(msg_->data[4096], '\0');
    EXPECT_NE(cap.Take().find("<Debug>realloc maxSize: 8192, pos : 4094\n"), std::string::npos);
}

} // namespace
