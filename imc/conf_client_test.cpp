// Tests of the configuration client against the in-process test server:
// bytes on the wire, reply interpretation, failures and reconnection.
#include "imc/conf_client.h"

#include "imc/channel_test_util.h"

#include <cstring>
#include <memory>

namespace {

using namespace ovtest;

// The client pointed at a private pipe name.
class ImcConfClientTest : public testing::Test {
  protected:
    void SetUp() override {
        UsePrivatePipeDir();
        name_ = UniquePipeName("client");
        OV_ImcConfClientSetPipeName(name_.c_str());
    }
    void TearDown() override {
        StdoutCapture capture;
        OV_ImcConfClientExit();
        OV_ImcConfClientSetPipeName(nullptr);
        server_.reset();
        // Every message went back and the module is stopped: nothing can be allocated.
        FlexMsg *left = OV_FlexMsgAlloc();
        EXPECT_EQ(left, nullptr);
        OV_FlexMsgFree(left);
        EXPECT_EQ(CountOf(capture.Take(), "with memory leak"), 0u);
    }

    /// (Re)starts the server with a script and connects the client to it.
    void Start(ovtest::ConnScript script) {
        OV_ImcConfClientExit();
        server_.reset();
        server_ = std::make_unique<TestServer>(name_, std::move(script));
        ASSERT_EQ(server_->CreateResult(), 0);
        ASSERT_EQ(OV_ImcConfClientInit(), 0);
    }

    std::wstring name_;
    std::unique_ptr<TestServer> server_;
};

TEST_F(ImcConfClientTest, SetSendsHeaderAndTheWholePayload) {
    Start(ovtest::ReplyToEach(0));
    EXPECT_EQ(OV_ImcConfSet(3, 0x100, nullptr, 0), 0);
    EXPECT_EQ(server_->Requests().back(), RequestHeader(3, 0x100, 0));
    // Larger than a message's first page.
    Bytes record = Pattern(17528, 9);
    EXPECT_EQ(OV_ImcConfSet(4, 2, record.data(), 17528), 0);
    EXPECT_EQ(server_->Requests().back(), Concat(RequestHeader(4, 2, 17528), record));
}

TEST_F(ImcConfClientTest, InitWithoutServerFailsAtOnce) {
    StdoutCapture capture;
    uint64_t start = OV_GetTickCount64();
    EXPECT_EQ(OV_ImcConfClientInit(), -2);
    ExpectWaited(start, 0, 1000);
    std::string out = capture.Take();
    ExpectLine(out, "<Debug>", "_OV_ImcConfConnect", "IMC conf client connnects to server");
    ExpectLine(out, "<Error>", "OV_ImcConfClientInit", "Failed to connect to imc server ret=-2");
    // The failed start has stopped the message module again.
    EXPECT_EQ(CountOf(out, "<Info>unregister memory module FlexMsg success"), 1u) << out;
}

TEST_F(ImcConfClientTest, GetCopiesReplyDataAndJudgesItsSize) {
    const Bytes data = Pattern(8, 0x10);
    struct Case {
        const char *what;
        Bytes reply;
        uint32_t bufferSize;
        int32_t rc;
        size_t copied;
        const char *line;
    };
    const Case cases[] = {
        {"exact size", data, 8, 0, 8, nullptr},
        {"one byte", data, 1, -119, 1, "The 10(513) reply data is truncated"},
        {"no data", {}, 8, -120, 0, "The 10(513) request can't get reply data"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Start(ovtest::ReplyToEach(0, c.reply));
        Bytes buffer(16, 0xEE);
        StdoutCapture capture;
        EXPECT_EQ(OV_ImcConfGet(10, 513, "k", 1, buffer.data(), c.bufferSize), c.rc);
        Bytes expected(16, 0xEE);
        std::memcpy(expected.data(), data.data(), c.copied);
        EXPECT_EQ(buffer, expected);
        std::string out = capture.Take();
        if (c.line != nullptr) {
            ExpectOnlyLine(out, "<Error>", "OV_ImcConfGet", c.line);
        } else {
            EXPECT_EQ(out, "");
        }
    }
}

struct Seen {
    Bytes reply;
    int calls = 0;
};

int Remember(const void *reply, uint64_t len, void *ctx) {
    auto *seen = static_cast<Seen *>(ctx);
    seen->reply.assign(static_cast<const uint8_t *>(reply),
                       static_cast<const uint8_t *>(reply) + len);
    ++seen->calls;
    return 42;
}

int Refuse(void *, uint32_t, const void *, uint64_t, uint32_t *more, void *) {
    *more = 1;
    return -22;
}

TEST_F(ImcConfClientTest, RequestGoesOnlyWithPointerAndLengthAndTheReplyToTheHandler) {
    Start(ovtest::ReplyToEach(0, {7, 8, 9}));
    uint8_t reply[3] = {};
    EXPECT_EQ(OV_ImcConfGet(15, 7, "abcd", 0, reply, 3), 0);
    EXPECT_EQ(OV_ImcConfGet(15, 7, nullptr, 4, reply, 3), 0);
    EXPECT_EQ(OV_ImcConfGet(15, 7, "abcd", 4, reply, 3), 0);
    EXPECT_EQ(OV_ImcConfSet(15, 7, nullptr, 4), -22) << "a set without its record sends nothing";
    Seen seen;
    EXPECT_EQ(OV_ImcConfGetByFunc(4, 0x21, "q", 1, Remember, &seen), 42);
    EXPECT_EQ(seen.reply, (Bytes{7, 8, 9}));
    EXPECT_EQ(OV_ImcConfGetByFunc(4, 0x21, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(
        server_->Requests(),
        (std::vector<Bytes>{RequestHeader(15, 7, 0), RequestHeader(15, 7, 0),
                            Concat(RequestHeader(15, 7, 4), {'a', 'b', 'c', 'd'}),
                            Concat(RequestHeader(4, 0x21, 1), {'q'}), RequestHeader(4, 0x21, 0)}));
}

TEST_F(ImcConfClientTest, AgentFailureIsReturnedUnchangedWithoutCallingAHandler) {
    Start(ovtest::ReplyToEach(-22));
    Seen seen;
    StdoutCapture capture;
    EXPECT_EQ(OV_ImcConfSet(10, 1, "abc", 3), -22);
    EXPECT_EQ(OV_ImcConfGet(10, 2, nullptr, 0, nullptr, 0), -22); // logs nothing for the status
    EXPECT_EQ(OV_ImcConfGetByFunc(4, 1, nullptr, 0, Remember, &seen), -22);
    EXPECT_EQ(OV_ImcConfGetMultiByFunc(4, 1, nullptr, 0, Refuse, nullptr), -22);
    EXPECT_EQ(seen.calls, 0);
    std::string out = capture.Take();
    for (const char *caller :
         {"OV_ImcConfSet", "OV_ImcConfGetByFunc", "OV_ImcConfGetMultiByFunc"}) {
        ExpectLine(out, "<Error>", caller, "Failed to call OV_ImcConfigure Invalid argument");
    }
    EXPECT_EQ(ovtest::Lines(out).size(), 3u) << out;
}

// Pages through a table: the request carries the page number, the reply
// the page's rows; an empty page ends the series.
int NextPage(void *req, uint32_t reqLen, const void *, uint64_t replyLen, uint32_t *more,
             void *ctx) {
    auto *pages = static_cast<int *>(ctx);
    ++*pages;
    EXPECT_EQ(reqLen, 1u);
    *more = replyLen != 0 ? 1 : 0;
    ++*static_cast<uint8_t *>(req);
    return replyLen != 0 ? 0 : 5;
}

TEST_F(ImcConfClientTest, MultiGetPagesWhileTheHandlerAsksForMore) {
    Start([](TestServer &s, OV_PipeConn *conn, int) {
        Bytes request;
        while (s.ReadRequest(conn, &request)) {
            uint8_t page = request[16];
            s.Reply(conn, 0, page < 3 ? Bytes(4, page) : Bytes{});
        }
    });
    uint8_t page = 0;
    int pages = 0;
    EXPECT_EQ(OV_ImcConfGetMultiByFunc(15, 3, &page, 1, NextPage, &pages), 5);
    EXPECT_EQ(pages, 4);
    std::vector<Bytes> requests = server_->Requests();
    ASSERT_EQ(requests.size(), 4u);
    for (uint8_t i = 0; i < 4; ++i) {
        EXPECT_EQ(requests[i], Concat(RequestHeader(15, 3, 1), {i}));
    }
}

TEST_F(ImcConfClientTest, MultiGetStopsAtAFailingHandler) {
    Start(ovtest::ReplyToEach(0, {1}));
    StdoutCapture capture;
    EXPECT_EQ(OV_ImcConfGetMultiByFunc(15, 3, nullptr, 0, Refuse, nullptr), -22);
    ExpectLine(capture.Take(), "<Error>", "OV_ImcConfGetMultiByFunc",
               "Failed to callback ReplyHandlerFunc Invalid argument");
    EXPECT_EQ(server_->Requests().size(), 1u);
}

TEST_F(ImcConfClientTest, CutReplyFailsTheCallAndTheNextCallReconnects) {
    Start([](TestServer &s, OV_PipeConn *conn, int index) {
        while (s.ReadRequest(conn)) {
            if (index == 0) {
                OV_PipeConnWrite(conn, Bytes(10, 0).data(), 10, 1000); // then the end
                return;
            }
            s.Reply(conn, 0);
        }
    });
    StdoutCapture capture;
    EXPECT_EQ(OV_ImcConfSet(10, 1, "a", 1), -32);
    EXPECT_EQ(OV_ImcConfSet(10, 1, "b", 1), 0);
    std::string out = capture.Take();
    ExpectLine(out, "<Error>", "_OV_ImcRecvAllReply", "Failed to receive header ret=-32");
    EXPECT_EQ(CountOf(out, "IMC conf client connnects to server"), 1u) << out;
    EXPECT_EQ(server_->Served(), 2);
}

TEST_F(ImcConfClientTest, ExitTwiceReleasesEverythingOnce) {
    Start(ovtest::ReplyToEach(0));
    StdoutCapture capture;
    OV_ImcConfClientExit();
    OV_ImcConfClientExit();
    // The test server is the module's other user: a second stop would have
    // taken the module away from it.
    FlexMsg *msg = OV_FlexMsgAlloc();
    EXPECT_NE(msg, nullptr);
    OV_FlexMsgFree(msg);
    EXPECT_EQ(CountOf(capture.Take(), "unregister memory module FlexMsg"), 0u);
    StdoutCapture refused;
    OV_ImcConfClientSetPipeName(std::wstring(256, L'x').c_str()); // the name stays
    ExpectOnlyLine(refused.Take(), "<Error>", "OV_ImcConfClientSetPipeName",
                   "Pipe name of 256 characters is too long");
    ASSERT_EQ(OV_ImcConfClientInit(), 0);
    ASSERT_EQ(OV_ImcConfClientInit(), 0) << "a second start first releases the first";
    EXPECT_EQ(OV_ImcConfSet(10, 1, nullptr, 0), 0);
}

} // namespace
