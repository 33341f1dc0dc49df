// Tests of the agent end of the pipe: ownership of the name, concurrent
// clients, time-outs and shutdown.
#include "imc/pipe_server.h"

#include "imc/channel_test_util.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>

namespace {

using namespace ovtest;

using PipeServerTest = ChannelTest;

TEST_F(PipeServerTest, BadArgumentsAndASecondServerForTheSameNameAreRefused) {
    std::wstring name = UniquePipeName("owned");
    OV_PipeServer *second = nullptr;
    EXPECT_EQ(OV_PipeServerCreate(name.c_str(), OV_PIPE_SERVER_MAX_INSTANCES + 1, &second), -22);
    EXPECT_EQ(second, nullptr);
    OV_PipeServer *first = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name.c_str(), 3, &first), 0);
    StdoutCapture capture;
    EXPECT_EQ(OV_PipeServerCreate(name.c_str(), 3, &second), -17);
    std::string out = capture.Take();
    EXPECT_EQ(CountOf(out, "is already owned by another server\n"), 1u) << out;
    OV_PipeServerDestroy(first);
    ASSERT_EQ(OV_PipeServerCreate(name.c_str(), 3, &second), 0) << "the name is free again";
    OV_PipeServerDestroy(second);
}

TEST_F(PipeServerTest, ServesThreeClientsAtOnce) {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::wstring name = UniquePipeName("three");
    TestServer server(
        name,
        [&](TestServer &s, OV_PipeConn *conn, int) {
            if (!s.ReadRequest(conn)) {
                return;
            }
            int now = ++inside;
            most = std::max(most.load(), now);
            // Every client is in here before any gets its reply.
            for (int i = 0; i < 400 && inside < 3; ++i) {
                OV_SleepMs(5);
            }
            s.Reply(conn, 0, {static_cast<uint8_t>(now)});
            OV_SleepMs(50);
            --inside;
        },
        3, 3);
    auto client = [&name](int32_t *rc) {
        OV_PipeHandle h = OV_INVALID_PIPE_HANDLE;
        FlexMsg *msg = OV_FlexMsgAlloc();
        OV_ImcMsgFillHeader(msg, 1, 1);
        *rc = OV_ImcConnect(name.c_str(), 0, &h);
        *rc = *rc != 0 ? *rc : OV_ImcSendAll(h, msg);
        OV_FlexMsgReset(msg);
        *rc = *rc != 0 ? *rc : OV_ImcRecvAll(h, msg, 17, 1);
        OV_FlexMsgFree(msg);
        OV_ImcClose(h);
    };
    std::array<int32_t, 3> rcs{1, 1, 1};
    std::thread a(client, &rcs[0]);
    std::thread b(client, &rcs[1]);
    client(&rcs[2]);
    a.join();
    b.join();
    EXPECT_EQ(rcs, (std::array<int32_t, 3>{}));
    EXPECT_EQ(most.load(), 3);
}

TEST_F(PipeServerTest, AcceptTimesOutAndShutdownWakesIt) {
    std::wstring name = UniquePipeName("wake");
    OV_PipeServer *server = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name.c_str(), 3, &server), 0);
    OV_PipeConn *conn = nullptr;
    EXPECT_EQ(OV_PipeServerAccept(server, 50, &conn), -138);
    int32_t rc = 0;
    uint64_t waited = 0;
    std::thread acceptor([&] {
        uint64_t start = OV_GetTickCount64();
        rc = OV_PipeServerAccept(server, 20000, &conn);
        waited = OV_GetTickCount64() - start;
    });
    OV_SleepMs(100);
    OV_PipeServerShutdown(server);
    acceptor.join();
    EXPECT_EQ(rc, -4);
    EXPECT_LT(waited, 2000u);
    OV_PipeServerDestroy(server);
}

TEST_F(PipeServerTest, ClientOfAnInstanceListenedOnAnEndedThreadIsServed) {
    // With every instance taken, closing a connection makes the next instance.
    // Closed on a thread that then ends (as agentsim's connection threads
    // do), whose pending I/O Windows cancels: the client that connects next
    // must still be accepted, not dropped.
    std::wstring name = UniquePipeName("handover");
    OV_PipeServer *server = nullptr;
    ASSERT_EQ(OV_PipeServerCreate(name.c_str(), 1, &server), 0);
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    OV_PipeConn *conn = nullptr;
    ASSERT_EQ(OV_PipeServerAccept(server, 5000, &conn), 0);
    std::thread([conn] { OV_PipeConnClose(conn); }).join();
    OV_ImcClose(handle_);

    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    ASSERT_EQ(OV_PipeServerAccept(server, 5000, &conn), 0);
    EXPECT_EQ(Send(handle_, {'a', 'b', 'c'}), 0);
    char buf[4] = {};
    EXPECT_EQ(OV_PipeConnRead(conn, buf, 3, 3000, nullptr), 0);
    EXPECT_STREQ(buf, "abc");
    OV_PipeConnClose(conn);
    OV_PipeServerDestroy(server);
}

TEST_F(PipeServerTest, ReadsResumeAfterAPauseAndReportTheClientLeavingAndTimeOuts) {
    std::wstring name = UniquePipeName("gone");
    std::array<int32_t, 4> rcs{};
    std::array<size_t, 2> got{99, 99};
    uint8_t buf[16] = {};
    {
        TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
            rcs[0] = OV_PipeConnRead(conn, buf, 8, 50, nullptr);
            rcs[1] = OV_PipeConnRead(conn, buf, 8, 3000, &got[0]);
            rcs[2] = OV_PipeConnRead(conn, buf + 8, 8, 3000, &got[1]);
            rcs[3] = OV_PipeConnWrite(conn, "x", 1, 1000);
        });
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
        OV_SleepMs(200);
        for (const char *part : {"abc", "defghijk"}) {
            EXPECT_EQ(Send(handle_, Bytes(part, part + std::strlen(part))), 0);
            OV_SleepMs(100);
        }
        OV_ImcClose(handle_);
        handle_ = OV_INVALID_PIPE_HANDLE;
        WaitServed(server);
    }
    EXPECT_EQ(rcs, (std::array<int32_t, 4>{-138, 0, -32, -32}));
    EXPECT_EQ(got, (std::array<size_t, 2>{8, 3}));
    EXPECT_EQ(std::string(buf, buf + 16), std::string("abcdefghijk") + std::string(5, '\0'));
}

} // namespace
