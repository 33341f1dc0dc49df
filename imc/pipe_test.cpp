// Tests of the client transport against the in-process test server.
#include "imc/pipe.h"

#include "base/platform.h"
#include "tests/support/capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using ovtest::Bytes;
using ovtest::TestServer;

class ImcPipeTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::UsePrivatePipeDir();
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

    FlexMsg *msg_ = nullptr;
    OV_PipeHandle handle_ = OV_INVALID_PIPE_HANDLE;
};

// Writes bytes in pieces with pauses, so the reader sees part at once and
// waits for the rest.
void WriteInPieces(OV_PipeConn *conn, const Bytes &bytes, std::initializer_list<size_t> cuts) {
    size_t from = 0;
    for (size_t cut : cuts) {
        ASSERT_EQ(OV_PipeConnWrite(conn, bytes.data() + from, cut - from, 1000), 0);
        from = cut;
        OV_SleepMs(60);
    }
    ASSERT_EQ(OV_PipeConnWrite(conn, bytes.data() + from, bytes.size() - from, 1000), 0);
}

TEST_F(ImcPipeTest, NoServerFailsAtOnceWithNotFound) {
    ovtest::StdoutCapture capture;
    uint64_t start = OV_GetTickCount64();
    EXPECT_EQ(OV_ImcConnect(ovtest::UniquePipeName("nobody").c_str(), 0, &handle_), -2);
    EXPECT_LT(OV_GetTickCount64() - start, 1000u);
    EXPECT_EQ(handle_, OV_INVALID_PIPE_HANDLE);
    std::string out = capture.Take();
    EXPECT_TRUE(
        ovtest::HasLogLine(out, "<Error>", "OV_ImcConnect", "Fail to connect pipe! error code=2"))
        << out;
    EXPECT_EQ(ovtest::Lines(out).size(), 1u) << out;
}

TEST_F(ImcPipeTest, ReadInPiecesDeliversExactlyNAndRaisesLengthOnce) {
    const Bytes reply = ovtest::Pattern(40, 7);
    std::wstring name = ovtest::UniquePipeName("pieces");
    TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
        WriteInPieces(conn, reply, {5, 17});
    });
    ASSERT_EQ(server.CreateResult(), 0);
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    const Bytes prefix = {1, 2, 3};
    ASSERT_EQ(OV_FlexMsgAppend(msg_, prefix.data(), prefix.size()), 0);
    ASSERT_EQ(OV_ImcRecvAll(handle_, msg_, reply.size(), 1), 0);
    EXPECT_EQ(Data(), ovtest::Concat(prefix, reply));
}

TEST_F(ImcPipeTest, LargeSendArrivesWhole) {
    // Larger than any pipe or socket buffer, so writes go pending.
    const Bytes request = ovtest::Pattern(3 * 1024 * 1024, 1);
    Bytes received(request.size());
    int32_t readRc = 1;
    {
        std::wstring name = ovtest::UniquePipeName("large");
        TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
            OV_SleepMs(100);
            readRc = OV_PipeConnRead(conn, received.data(), received.size(), 3000, nullptr);
        });
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
        ASSERT_EQ(OV_FlexMsgAppend(msg_, request.data(), request.size()), 0);
        EXPECT_EQ(OV_ImcSendAll(handle_, msg_), 0);
    } // the server's threads have finished here
    EXPECT_EQ(readRc, 0);
    EXPECT_TRUE(received == request);
}

TEST_F(ImcPipeTest, PeerClosingMidReadBreaksThePipeAndKeepsTheLength) {
    std::wstring name = ovtest::UniquePipeName("midread");
    TestServer server(name, [](TestServer &, OV_PipeConn *conn, int) {
        const Bytes part = ovtest::Pattern(6, 0);
        EXPECT_EQ(OV_PipeConnWrite(conn, part.data(), part.size(), 1000), 0);
        OV_SleepMs(100); // the reader is waiting when the close comes
    });
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    {
        ovtest::StdoutCapture capture;
        EXPECT_EQ(OV_ImcRecvAll(handle_, msg_, 16, 1), -32);
        EXPECT_EQ(msg_->length, 0u);
        std::string out = capture.Take();
        EXPECT_TRUE(ovtest::HasLogLine(out, "<Error>", "_OV_ImcWait",
                                       "Failed to get overlapped result error code=109"))
            << out;
        EXPECT_EQ(ovtest::Lines(out).size(), 1u) << out;
    }
    // Reading again fails at once; writing to the gone peer is "no data" (232).
    ovtest::StdoutCapture capture;
    EXPECT_EQ(OV_ImcRecvAll(handle_, msg_, 16, 1), -32);
    ASSERT_EQ(OV_FlexMsgAppend(msg_, "x", 1), 0);
    EXPECT_EQ(OV_ImcSendAll(handle_, msg_), -2);
    std::string out = capture.Take();
    EXPECT_EQ(ovtest::CountOf(out, "]Failed to read named pipe error code=0\n"), 2u) << out;
}

// Slow: once, the 3000 ms wait for a busy pipe runs out.
TEST_F(ImcPipeTest, BusyPipeFailsAfterTheWaitOrConnectsWhenAnInstanceFrees) {
    std::wstring name = ovtest::UniquePipeName("busy");
    TestServer server(
        name,
        [](TestServer &s, OV_PipeConn *, int index) {
            if (index == 0) {
                s.WaitRelease(10000); // holds the only instance until the test lets go
            }
        },
        1);
    ASSERT_EQ(server.CreateResult(), 0);
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    while (server.Served() == 0) {
        OV_SleepMs(5);
    }
    // Clients that a POSIX listen queue takes in before it reports busy.
    std::vector<OV_PipeHandle> queued(OV_PipeServerQueuedClients(), OV_INVALID_PIPE_HANDLE);
    for (OV_PipeHandle &h : queued) {
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &h), 0);
    }
    OV_PipeHandle waiting = OV_INVALID_PIPE_HANDLE;
    ovtest::StdoutCapture capture;
    uint64_t start = OV_GetTickCount64();
    EXPECT_EQ(OV_ImcConnect(name.c_str(), 0, &waiting), -138);
    uint64_t waited = OV_GetTickCount64() - start;
    EXPECT_GE(waited, 2900u);
    EXPECT_LT(waited, 4500u);
    std::string out = capture.Take();
    EXPECT_TRUE(ovtest::HasLogLine(out, "<Error>", "OV_ImcConnect",
                                   "Fail to wait for pipe! error code=121"))
        << out;

    int32_t rc = 1;
    std::thread client([&] {
        start = OV_GetTickCount64();
        rc = OV_ImcConnect(name.c_str(), 0, &waiting);
        waited = OV_GetTickCount64() - start;
    });
    OV_SleepMs(400);
    server.Release();
    client.join();
    EXPECT_EQ(rc, 0);
    EXPECT_GE(waited, 300u);
    EXPECT_LT(waited, 2500u);
    OV_ImcClose(waiting);
    for (OV_PipeHandle h : queued) {
        OV_ImcClose(h);
    }
}

TEST(ImcPipePath, RefusesWhatDoesNotFit) {
    char out[8];
    EXPECT_EQ(OV_ImcPipePath(OV_IMC_CONF_PIPE_NAME, out, sizeof out), -22);
    EXPECT_EQ(OV_ImcPipePath(nullptr, out, sizeof out), -22);
    EXPECT_EQ(OV_ImcPipePath(OV_IMC_CONF_PIPE_NAME, nullptr, 64), -22);
    char big[256];
    EXPECT_EQ(OV_ImcPipePath(OV_IMC_CONF_PIPE_NAME, big, sizeof big), 0);
}

} // namespace
