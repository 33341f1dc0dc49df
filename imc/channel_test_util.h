// Shared pieces of the channel tests: a fixture for a client end, and short
// forms of what most tests do on a pipe.
#pragma once

#include "base/platform.h"
#include "imc/conf_client.h"
#include "imc/pipe.h"
#include "tests/support/capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <string>

namespace ovtest {

/// The message module started, a message to work on and a client handle
/// that is closed after the test.
class ChannelTest : public testing::Test {
  protected:
    void SetUp() override {
        UsePrivatePipeDir();
        ASSERT_EQ(OV_FlexMsgModuleStart(), 0);
        msg_ = OV_FlexMsgAlloc();
        ASSERT_NE(msg_, nullptr);
    }
    void TearDown() override {
        OV_ImcClose(handle_);
        OV_FlexMsgFree(msg_);
        OV_FlexMsgModuleStop();
    }

    Bytes Data() const { return Bytes(msg_->data, msg_->data + msg_->length); }
    /// Sends bytes as one message on h.
    int32_t Send(OV_PipeHandle h, const Bytes &bytes) {
        OV_FlexMsgReset(msg_);
        int32_t rc = OV_FlexMsgAppend(msg_, bytes.data(), bytes.size());
        return rc != 0 ? rc : OV_ImcSendAll(h, msg_);
    }

    FlexMsg *msg_ = nullptr;
    OV_PipeHandle handle_ = OV_INVALID_PIPE_HANDLE;
};

inline void WaitServed(const TestServer &server) {
    while (server.Served() == 0) {
        OV_SleepMs(5);
    }
}

inline void ExpectLine(const std::string &out, const char *level, const char *func,
                       const std::string &text) {
    EXPECT_TRUE(HasLogLine(out, level, func, text)) << out;
}

/// The output is exactly one log line, this one.
inline void ExpectOnlyLine(const std::string &out, const char *level, const char *func,
                           const std::string &text) {
    ExpectLine(out, level, func, text);
    EXPECT_EQ(Lines(out).size(), 1u) << out;
}

/// The time since start lies in [least, most) milliseconds.
inline void ExpectWaited(uint64_t start, uint64_t least, uint64_t most) {
    uint64_t waited = OV_GetTickCount64() - start;
    EXPECT_GE(waited, least);
    EXPECT_LT(waited, most);
}

} // namespace ovtest
