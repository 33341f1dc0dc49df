// Process-level tests: agentsim started as its own program and spoken to over
// the real pipe (socket), as operators and the end-to-end tests use it.
#include "agentsim/sim_test_util.h"
#include "tests/support/capture.h"
#include "tests/support/process.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

namespace {

using simtest::Bytes;
using simtest::RawClient;

constexpr uint32_t kStartMs = 20000;
constexpr uint32_t kStopMs = 20000;

/// One agentsim program on a pipe name of its own, killed if still running.
class AgentsimProcess : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(OV_FlexMsgModuleStart(), 0);
        ovtest::UsePrivatePipeDir();
        const char *pipeDir = std::getenv("OV_PIPE_DIR");
        pipeDir_ = pipeDir == nullptr ? "" : pipeDir;
    }
    void TearDown() override {
        proc_.reset();
        // A killed agentsim leaves its socket file; the pipe directory is
        // removed at exit only when empty.
        if (!pipeDir_.empty()) {
            std::error_code ec;
            std::filesystem::remove(pipeDir_ + "/" + ShortName(), ec);
        }
        OV_FlexMsgModuleStop();
    }

    /// The command line: the program, its pipe, the ready file, and extra. The
    /// pipe directory comes from $OV_PIPE_DIR, which the child inherits.
    std::vector<std::string> Args(const std::vector<std::string> &extra = {}) const {
        std::vector<std::string> args = {OV_AGENTSIM_PATH, "--pipe-name", ShortName(),
                                         "--ready-file", ReadyFile()};
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }

    /// Starts it and waits until it listens.
    void Start(const std::vector<std::string> &extra = {}) {
        proc_ = std::make_unique<ovtest::Process>();
        ASSERT_EQ(proc_->Start(Args(extra)), 0);
        ASSERT_TRUE(ovtest::WaitForFile(ReadyFile(), kStartMs)) << proc_->Stderr();
    }

    std::string ShortName() const { return std::string(name_.begin() + 9, name_.end()); }
    std::string ReadyFile() const { return dir_.File("ready"); }

    ovtest::ScopedTempDir dir_{"agentsim"};
    // The 9-character pipe prefix, then the short name.
    std::wstring name_ = ovtest::UniquePipeName("proc");
    std::string pipeDir_;
    std::unique_ptr<ovtest::Process> proc_;
};

TEST_F(AgentsimProcess, HelpExitsZeroAndBadOptionsExitWith2AndSayWhy) {
    ovtest::ProcessResult help = ovtest::RunProcess({OV_AGENTSIM_PATH, "--help"}, kStopMs);
    ASSERT_EQ(help.startResult, 0);
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.out.rfind("Usage: agentsim", 0), 0u) << help.out;
    EXPECT_EQ(help.err, "");
    // The parser's messages are checked by its unit tests.
    ovtest::ProcessResult r = ovtest::RunProcess({OV_AGENTSIM_PATH, "--instances", "0"}, kStopMs);
    EXPECT_EQ(r.exitStatus, 2);
    EXPECT_EQ(r.err.rfind("agentsim: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("Try 'agentsim --help'."), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

TEST_F(AgentsimProcess, ServesJournalsOnStdoutAndStopsCleanly) {
    ASSERT_NO_FATAL_FAILURE(Start({"--journal", "-"}));
    Bytes rate(72, 0);
    rate[0] = 5;
    rate[64] = 0x80;
    {
        RawClient client(name_);
        EXPECT_EQ(client.Exchange(10, 1, rate), 0);
        EXPECT_EQ(client.Exchange(10, 2, rate), 0);
        EXPECT_EQ(client.Exchange(10, 2, rate), -2);
    }
    ASSERT_TRUE(proc_->WaitForStdout(R"("status":-2,)", kStartMs)) << proc_->Stdout();
    std::vector<std::string> lines = ovtest::Lines(proc_->Stdout());
    ASSERT_EQ(lines.size(), 3u) << proc_->Stdout();
    // The lines' fields are checked end to end, from a journal file.
    EXPECT_NE(lines[0].find(R"("command":"set_ratelimit","status":0,)"), std::string::npos);
    EXPECT_NE(lines[1].find(R"("command":"del_ratelimit","status":0,)"), std::string::npos);
    // Log lines never reach the journal's stream; the banner is on stderr.
    const std::string socket = pipeDir_.empty() ? "" : pipeDir_ + "/" + ShortName();
    EXPECT_NE(proc_->Stderr().find("serving " + socket), std::string::npos) << proc_->Stderr();
    EXPECT_EQ(proc_->Stderr().find("ready file"), std::string::npos) << proc_->Stderr();

    if (!proc_->Interrupt()) {
        GTEST_SKIP() << "this system cannot send the child a stop request";
    }
    ASSERT_TRUE(proc_->Wait(kStopMs)) << proc_->Stderr();
    EXPECT_EQ(proc_->ExitStatus(), 0) << proc_->Stderr();
    EXPECT_FALSE(std::filesystem::exists(ReadyFile()));
    if (!socket.empty()) {
        EXPECT_FALSE(std::filesystem::exists(socket));
    }
    RawClient late(name_);
    EXPECT_EQ(late.ConnectResult(), -2);
}

TEST_F(AgentsimProcess, ASecondAgentOnTheSameNameExitsWith3) {
    ASSERT_NO_FATAL_FAILURE(Start());
    ovtest::ProcessResult second =
        ovtest::RunProcess(Args({"--ready-file", dir_.File("ready2")}), kStopMs);
    EXPECT_EQ(second.exitStatus, 3);
    EXPECT_NE(second.err.find("already served by another agent"), std::string::npos) << second.err;
    EXPECT_FALSE(std::filesystem::exists(dir_.File("ready2")));
    // The first one was not disturbed.
    RawClient client(name_);
    EXPECT_EQ(client.Exchange(15, 4, {}), 0);
}

TEST_F(AgentsimProcess, RefusesToStartOnPathsTheSystemRefuses) {
    const std::string broken = dir_.File("state.json");
    std::ofstream(broken) << "{\"agentsim_state\": 1, \"records\": [";
    // A broken state file; on POSIX also a state file name past the system's
    // limit, which is no absent (empty) state, and a socket path longer than
    // a socket address holds.
    std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--state", broken}, "not a JSON text"}};
    if (!pipeDir_.empty()) {
        cases.push_back({{"--state", dir_.File(std::string(300, 's'))}, "cannot read it"});
        cases.push_back(
            {{"--pipe-name", std::string(120, 'n')}, "is the name or socket path too long?"});
    }
    for (const auto &[args, says] : cases) {
        ovtest::ProcessResult r = ovtest::RunProcess(Args(args), kStopMs);
        EXPECT_EQ(r.exitStatus, 1);
        EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
        EXPECT_FALSE(std::filesystem::exists(ReadyFile()));
    }
}

} // namespace
