// Tests of the agent's side of an exchange: request check and reply forms.
#include "imc/imc_agent.h"

#include "imc/channel_test_util.h"

#include <cstring>

namespace {

using namespace ovtest;

class ImcAgentTest : public ChannelTest {
  protected:
    /// Runs script on the server end with a fresh message while the test, as
    /// a client, writes `sent` and goes.
    void Exchange(const Bytes &sent, std::function<void(OV_PipeConn *, FlexMsg *)> script) {
        std::wstring name = UniquePipeName("agent");
        TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
            FlexMsg *msg = OV_FlexMsgAlloc();
            script(conn, msg);
            OV_FlexMsgFree(msg);
        });
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
        EXPECT_EQ(Send(handle_, sent), 0);
        OV_ImcClose(handle_);
        handle_ = OV_INVALID_PIPE_HANDLE;
        WaitServed(server);
    } // the server's script has finished when this returns
};

TEST_F(ImcAgentTest, ReceivesBackToBackRequestsExactly) {
    const Bytes first = Concat(RequestHeader(10, 1, 5), Pattern(5, 1));
    const Bytes second = RequestHeader(24, 0x300, 0); // the highest module taken
    std::vector<Bytes> got;
    Exchange(Concat(first, second), [&](OV_PipeConn *conn, FlexMsg *msg) {
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(OV_ImcAgentRecvRequest(conn, msg, 1000), 0);
            got.emplace_back(msg->data, msg->data + msg->length);
        }
    });
    EXPECT_EQ(got, (std::vector<Bytes>{first, second}));
}

TEST_F(ImcAgentTest, RefusedOrCutRequestsLeaveTheMessageEmpty) {
    struct Case {
        Bytes sent;
        int32_t rc;
        const char *line;
    };
    const Case cases[] = {
        {Concat(RequestHeader(25, 1, 2), {1, 2}), -22,
         "Check request header failed, the configurations is invaild"},
        {RequestHeader(3, 1, UINT64_MAX), -12, "Failed to call OV_FlexMsgDataMaybePull"},
        {Bytes(5, 3), -32, nullptr}, // cut in the header
        {Concat(RequestHeader(3, 1, 5), {1, 2}), -32, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        int32_t rc = 0;
        StdoutCapture capture;
        Exchange(c.sent, [&](OV_PipeConn *conn, FlexMsg *msg) {
            rc = OV_ImcAgentRecvRequest(conn, msg, 1000);
            EXPECT_EQ(msg->length, 0u);
        });
        EXPECT_EQ(rc, c.rc);
        std::string out = capture.Take();
        EXPECT_TRUE(c.line == nullptr ||
                    ovtest::HasLogLine(out, "<Error>", "OV_ImcAgentRecvRequest", c.line))
            << out;
    }
}

TEST_F(ImcAgentTest, IdleWaitConsumesNothing) {
    const Bytes request = RequestHeader(8, 2, 0);
    Bytes got;
    std::wstring name = UniquePipeName("idle");
    TestServer server(name, [&](TestServer &, OV_PipeConn *conn, int) {
        FlexMsg *msg = OV_FlexMsgAlloc();
        EXPECT_EQ(OV_ImcAgentRecvRequest(conn, msg, 50), -138);
        EXPECT_EQ(OV_ImcAgentRecvRequest(conn, msg, 3000), 0);
        got.assign(msg->data, msg->data + msg->length);
        OV_FlexMsgFree(msg);
    });
    ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &handle_), 0);
    OV_SleepMs(300);
    ASSERT_EQ(Send(handle_, request), 0);
    OV_FlexMsgReset(msg_);
    EXPECT_EQ(OV_ImcRecvAll(handle_, msg_, 1, 1), -32) << "the server closed after one request";
    EXPECT_EQ(got, request);
}

TEST_F(ImcAgentTest, RepliesCarryStatusLengthAndZeroReservedBytes) {
    std::memset(msg_->data, 0xAA, 64);
    OV_ImcAgentSetStatusReply(msg_, -40);
    EXPECT_EQ(Data(), ReplyHeader(-40, 0));

    std::memset(msg_->data, 0xAA, 64);
    const Bytes data = Pattern(24, 5);
    ASSERT_EQ(OV_ImcAgentSetDataReply(msg_, 0, data.data(), data.size()), 0);
    EXPECT_EQ(Data(), Concat(ReplyHeader(0, 24), data));
}

} // namespace
