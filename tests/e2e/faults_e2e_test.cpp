// pdtool against an agent that answers badly on purpose (agentsim's fault
// options), and against one whose every instance is taken: each situation
// gives its code and printed line, the run ends on its own, and the exit
// status stays 0.
#include "base/platform.h"
#include "imc/pipe.h"
#include "imc/pipe_server.h"
#include "tests/e2e/e2e_support.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace e2e {
namespace {

constexpr const char *kSuccess = "Operation success\n";
constexpr const char *kBrokenPipe = "Operation failed ret = -32 (Broken pipe)";
constexpr const char *kNoMemory = "Operation failed ret = -12 (Not enough space)";

struct FaultCase {
    const char *word;
    const char *fault;               ///< what the journal shows agentsim did
    const char *printed;             ///< the outcome line (log lines taken out)
    const char *logged;              ///< a line the client logs on the way, or nullptr
    const char *orPrinted = nullptr; ///< the other possible outcome, if any
};

using Faults = AgentTest;

TEST_F(Faults, EachFaultGivesItsCodeAndLineAndTheRunEnds) {
    // One agent, one fault per module:function, so the runs do not mix.
    StartAgent({"--fault-close",    "10:1",
                "--fault-truncate", "10:2",
                "--fault-truncate", "15:7",
                "--fault-overlong", "15:4",
                "--fault-overlong", "15:2",
                "--fault-garbage",  "3:13",
                "--fault-delay",    "3:26=5000",
                "--fault-status",   "4:2=-2",
                "--fault-status",   "6:1=-12",
                "--fault-status",   "15:3=-22",
                "--fault-status",   "3:19=-40",
                "--fault-status",   "8:0=-1000",
                "--fault-status",   "3:14=-2147483648"});
    const FaultCase cases[] = {
        // Closed after the request was applied, before any reply byte.
        {R"(set_ratelimit/{"RateLimitId": 1})", "close", kBrokenPipe,
         "Failed to receive header ret=-32"},
        // Half a header, then the end of the stream.
        {"del_ratelimit/id=1", "truncate", kBrokenPipe, "Failed to receive header ret=-32"},
        // The header and half of the 540 bytes: only the failure line is shown.
        {"get_sa_cluster", "truncate", kBrokenPipe, "Failed to receive payload ret=-32"},
        // 2^63 payload bytes announced: refused at once, nothing allocated.
        {"get_shaper_tbl", "overlong", kNoMemory, "Failed to receive payload ret=-12"},
        {"del_shaper_conf/shaperId=1", "overlong", kNoMemory, "Failed to receive payload ret=-12"},
        // 64 random bytes: a random length (refused, or the stream ends first).
        {R"(set_link/{"NetId": 1, "LinkId": 1})", "garbage", kNoMemory, nullptr, kBrokenPipe},
        // No reply within the 3 s a read may wait.
        {R"(set_conn_cmd/{"Type": 25, "Lenth": 8, "Value64": 1})", "delay",
         "Operation failed ret = -254 (Unknown error)",
         "Failed to get overlapped result error code=258"},
        // Error statuses come back unchanged.
        {"del_policy/zone=1 id=1", "status",
         "Operation failed ret = -2 (No such file or directory)", nullptr},
        {"del_acsname/name=a", "status", kNoMemory, nullptr},
        {"get_shaper_conf/shaperId=1", "status", "Operation failed ret = -22 (Invalid argument)",
         nullptr},
        {"del_tunnel/netid=1 label=1 vni=1", "status",
         "Operation failed ret = -40 (Function not implemented)", nullptr},
        {"set_engine_srtt/value=1 wanid=1", "status",
         "Operation failed ret = -1000 (Unknown error)", nullptr},
        {"del_link/linkid=1 netid=1", "status",
         "Operation failed ret = -2147483648 (Unknown error)", nullptr},
    };
    size_t journaled = 0;
    for (const FaultCase &c : cases) {
        SCOPED_TRACE(c.word);
        PdtoolRun r = Pdtool({c.word});
        EXPECT_EQ(r.exitStatus, 0);
        if (c.orPrinted == nullptr || r.printed != c.orPrinted) {
            EXPECT_EQ(r.printed, c.printed) << r.out;
        }
        if (c.logged != nullptr) {
            EXPECT_NE(r.out.find(std::string(c.logged) + "\n"), std::string::npos) << r.out;
        }
        std::vector<Request> all = Journal();
        ASSERT_EQ(all.size(), ++journaled);
        EXPECT_EQ(all.back().fault, c.fault);
    }
    // The agent lived through all of it, and a sound request still works.
    PdtoolRun r = Pdtool({R"(set_shaper_conf/{"shaperId": 1, "persistentFlag": false, )"
                          R"("wanKbps": 1, "wanInKbps": 1, "inBurstMs": 1, "outBurstMs": 1})"});
    EXPECT_EQ(r.printed, kSuccess) << r.out;
    EXPECT_TRUE(agent_->Running());
}

TEST_F(Faults, AllInstancesBusyThenFreedIsWaitedFor) {
    // This process connects to the agent itself: on POSIX the agent serves
    // in this process's pipe directory.
    pipeDirOverride_ = ovtest::UsePrivatePipeDir();
    StartAgent({"--instances", "1"});
    const std::wstring name = L"\\\\.\\pipe\\" + std::wstring(pipeName_.begin(), pipeName_.end());

    // Idle clients take the one instance (and, on POSIX, the listen queue).
    std::vector<OV_PipeHandle> held;
    for (uint32_t i = 0; i < 1 + OV_PipeServerQueuedClients(); ++i) {
        OV_PipeHandle h = OV_INVALID_PIPE_HANDLE;
        ASSERT_EQ(OV_ImcConnect(name.c_str(), 0, &h), 0);
        held.push_back(h);
    }
    auto run = std::make_unique<ovtest::Process>();
    ASSERT_EQ(run->Start({ovtest::NativePath(OV_PDTOOL_PATH), "del_ratelimit/id=9"}, PdtoolEnv()),
              0);
    // Well inside the 3 s one wait for an instance may take: still waiting.
    OV_SleepMs(1000);
    EXPECT_TRUE(run->Running()) << run->Stdout();
    for (OV_PipeHandle h : held) {
        OV_ImcClose(h);
    }
    ASSERT_TRUE(run->Wait(30000));
    EXPECT_EQ(run->ExitStatus(), 0);
    EXPECT_EQ(WithoutLogLines(run->Stdout()),
              "Operation failed ret = -2 (No such file or directory)")
        << run->Stdout() << "\nagentsim:\n"
        << agent_->Stderr();
    ASSERT_EQ(Journal().size(), 1u);
    EXPECT_EQ(Journal()[0].command, "del_ratelimit");

    StopAgent();
    // Killed, the agent leaves its socket file in this process's directory.
    std::remove((pipeDirOverride_ + "/" + pipeName_).c_str());
}

} // namespace
} // namespace e2e
