// Tests of the serving core over the real pipe (socket) in this process:
// conversations, refused headers, every fault on the wire, several clients.
#include "agentsim/sim_server.h"

#include "agentsim/sim_test_util.h"
#include "tests/support/process.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using simtest::Bytes;
using simtest::RawClient;
using simtest::Request;
using simtest::Shaper;

/// An agent served on its own pipe name by a thread, stopped on destruction.
class Served {
  public:
    explicit Served(SimFaults faults = {}, const char *tag = "sim")
        : journalDir_("simsrv"), name_(ovtest::UniquePipeName(tag)) {
        ovtest::UsePrivatePipeDir();
        journalPath_ = journalDir_.File("journal.jsonl");
        journal_ = std::fopen(journalPath_.c_str(), "wb");
        agent_ = std::make_unique<SimAgent>(AgentSaClusterInfo{}, std::move(faults), "", journal_);
        EXPECT_EQ(OV_PipeServerCreate(name_.c_str(), 3, &server_), 0);
        thread_ = std::thread([this] { SimServe(*agent_, server_, stop_); });
    }
    ~Served() {
        stop_.store(true);
        OV_PipeServerShutdown(server_);
        thread_.join();
        OV_PipeServerDestroy(server_);
        if (journal_ != nullptr) {
            std::fclose(journal_);
        }
    }
    const std::wstring &Name() const { return name_; }
    std::string Journal() const { return ovtest::ReadWholeFile(journalPath_); }

  private:
    ovtest::ScopedTempDir journalDir_;
    std::string journalPath_;
    FILE *journal_ = nullptr;
    std::wstring name_;
    std::unique_ptr<SimAgent> agent_;
    OV_PipeServer *server_ = nullptr;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class SimServer : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(OV_FlexMsgModuleStart(), 0); }
    void TearDown() override { OV_FlexMsgModuleStop(); }
};

SimFaults Faults(SimFaultKind kind, const std::string &text) {
    SimFaults faults;
    std::string error;
    EXPECT_EQ(faults.Add(kind, text, &error), 0) << error;
    return faults;
}

// The fields of answered commands are checked end to end (every pdtool test
// reads the journal); here, what only a stray request shows.
TEST_F(SimServer, StrayRequestIsAnsweredAndJournaledWithoutACommand) {
    Served served;
    RawClient client(served.Name());
    EXPECT_EQ(client.Exchange(9, 3, Bytes(5, 1)), -40);
    EXPECT_NE(served.Journal().find(R"("module":9,"function":3,"command":null,"status":-40,)"
                                    R"("length":5,"payload":"0101010101","record":null})"),
              std::string::npos)
        << served.Journal();
}

TEST_F(SimServer, RefusedHeaderIsJournaledAndTheConnectionClosedWithoutAReply) {
    Served served;
    RawClient client(served.Name());
    ASSERT_EQ(client.Send(ovtest::RequestHeader(25, 0xFFFF, 1ull << 63)), 0);
    EXPECT_TRUE(client.ReadUntilClosed().empty());
    std::string journal = served.Journal();
    EXPECT_NE(journal.find(R"("module":25,"function":65535,"command":null,"status":null,)"
                           R"("error":"header check failed","length":9223372036854775808})"),
              std::string::npos)
        << journal;
    EXPECT_EQ(journal.rfind(R"({"time":"20)", 0), 0u) << "stamped with the time of day";
    // The server goes on serving others.
    RawClient next(served.Name());
    EXPECT_EQ(next.Exchange(15, 4, {}), 0);
}

TEST_F(SimServer, StatusFaultAnswersWithoutApplying) {
    Served served(Faults(SimFaultKind::Status, "15:1=-5"));
    RawClient client(served.Name());
    EXPECT_EQ(client.Exchange(15, 1, Shaper(4)), -5);
    EXPECT_EQ(client.Exchange(15, 3, Shaper(4)), -2); // not stored
}

// What each ending fault does to pdtool is checked end to end; here, that a
// closed request was applied.
TEST_F(SimServer, CloseFaultAppliesTheRequestAndSendsNothing) {
    Served served(Faults(SimFaultKind::Close, "15:1"));
    RawClient client(served.Name());
    ASSERT_EQ(client.Send(Request(15, 1, Shaper(4))), 0);
    EXPECT_TRUE(client.ReadUntilClosed().empty());
    RawClient again(served.Name());
    EXPECT_EQ(again.Exchange(15, 3, Shaper(4)), 0);
}

} // namespace
