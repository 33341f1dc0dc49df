// Tests of the client transport against the in-process test server.
#include "imc/channel_test_util.h"

#include <thread>

namespace {

using namespace ovtest;
using ImcPipeTest = ChannelTest;

TEST_F(ImcPipeTest, ReadInPiecesDeliversExactlyNAndRaisesLengthOnce) {
    const Bytes reply = Pattern(40, 7);
    std::wstring name = UniquePipeName("pieces");
    TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
        // In pieces with pauses (the first a single byte), so the reader sees part
        // at once and waits for the rest.
        const size_t cuts[] = {0, 1, 17, reply.size()};
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(OV_PipeConnWrite(conn, &reply[cuts[i]], cuts[i + 1] - cuts[i], 1000), 0);
            OV_SleepMs(60);
        }
    });
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    ASSERT_EQ(OV_FlexMsgAppend(msg_, "\1\2\3", 3), 0);
    ASSERT_EQ(OV_ImcRecvAll(handle_, msg_, reply.size(), 1), 0);
    EXPECT_EQ(Data(), Concat({1, 2, 3}, reply));
}

TEST_F(ImcPipeTest, LargeSendArrivesWhole) {
    // Larger than any pipe or socket buffer, so writes go pending.
    const Bytes request = Pattern(3 * 1024 * 1024, 1);
    Bytes received(request.size());
    int32_t readRc = 1;
    {
        std::wstring name = UniquePipeName("large");
        TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
            OV_SleepMs(100);
            readRc = OV_PipeConnRead(conn, received.data(), received.size(), 3000, nullptr);
        });
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
        EXPECT_EQ(Send(handle_, request), 0);
    } // the server's threads have finished here
    EXPECT_EQ(readRc, 0);
    EXPECT_TRUE(received == request);
}

TEST_F(ImcPipeTest, PeerClosingMidReadBreaksThePipeAndKeepsTheLength) {
    std::wstring name = UniquePipeName("midread");
    TestServer server(name, [](TestServer &, OV_PipeConn *conn, int) {
        EXPECT_EQ(OV_PipeConnWrite(conn, "abcdef", 6, 1000), 0);
        OV_SleepMs(100); // the reader is waiting when the close comes
    });
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    {
        StdoutCapture capture;
        EXPECT_EQ(OV_ImcRecvAll(handle_, msg_, 16, 1), -32);
        EXPECT_EQ(msg_->length, 0u);
        ExpectOnlyLine(capture.Take(), "<Error>", "_OV_ImcWait",
                       "Failed to get overlapped result error code=109");
    }
    StdoutCapture capture;
    // Reading again fails at once; writing to the gone peer is "no data" (232).
    EXPECT_EQ(OV_ImcRecvAll(handle_, msg_, 16, 1), -32);
    EXPECT_EQ(Send(handle_, {'x'}), -2);
    std::string out = capture.Take();
    EXPECT_EQ(CountOf(out, "]Failed to read named pipe error code=0\n"), 2u) << out;
}

// Slow: once, the 3000 ms wait for a busy pipe runs out.
TEST_F(ImcPipeTest, BusyPipeFailsAfterTheWaitOrConnectsWhenAnInstanceFrees) {
    std::wstring name = UniquePipeName("busy");
    TestServer server(
        name,
        [](TestServer &s, OV_PipeConn *, int index) {
            if (index == 0) {
                s.WaitRelease(10000);
            }
        },
        1);
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    WaitServed(server); // the first client holds the only instance
    // Clients that a POSIX listen queue takes in before it reports busy.
    std::vector<OV_PipeHandle> queued(OV_PipeServerQueuedClients(), OV_INVALID_PIPE_HANDLE);
    for (OV_PipeHandle &h : queued) {
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &h), 0);
    }
    OV_PipeHandle waiting = OV_INVALID_PIPE_HANDLE;
    StdoutCapture capture;
    uint64_t start = OV_GetTickCount64();
    EXPECT_EQ(OV_ImcConnect(name.c_str(), 0, &waiting), -138);
    ExpectWaited(start, 2900, 4500);
    ExpectLine(capture.Take(), "<Error>", "OV_ImcConnect", "Fail to wait for pipe! error code=121");

    std::thread client([&] {
        start = OV_GetTickCount64();
        EXPECT_EQ(OV_ImcConnect(name.c_str(), 0, &waiting), 0);
        ExpectWaited(start, 300, 2500);
    });
    OV_SleepMs(400);
    server.Release();
    client.join();
    queued.push_back(waiting);
    for (OV_PipeHandle h : queued) {
        OV_ImcClose(h);
    }
}

TEST(ImcPipePath, RefusesWhatDoesNotFit) {
    char out[8];
    EXPECT_EQ(OV_ImcPipePath(OV_IMC_CONF_PIPE_NAME, out, sizeof out), -22);
    char big[256];
    EXPECT_EQ(OV_ImcPipePath(OV_IMC_CONF_PIPE_NAME, big, sizeof big), 0);
}

} // namespace
