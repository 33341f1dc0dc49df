// pdtool talks only to an agent run by root or by its own user: an agent of
// another user is refused before a byte is sent. Starting processes as other
// users takes root, which CI has.
#include "tests/e2e/e2e_support.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace e2e {
namespace {

struct Identity {
    const char *uid;
    const char *gid;
};

constexpr Identity kRoot{"0", "0"};
constexpr Identity kNobody{"65534", "65534"};
// nobody in root's group: may open a socket that a root agent made 0660.
constexpr Identity kNobodyInRootGroup{"65534", "0"};

struct Case {
    const char *name;
    Identity agent;
    Identity client;
    const char *printed;
    const char *logged; ///< a log line pdtool must print, or nullptr
};

void PrintTo(const Case &c, std::ostream *os) {
    *os << c.name;
}

std::vector<std::string> RunAs(Identity who) {
    return {"/usr/bin/setpriv", std::string("--reuid=") + who.uid,
            std::string("--regid=") + who.gid, "--clear-groups", "--"};
}

class PeerIdentity : public AgentTest, public testing::WithParamInterface<Case> {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "starting the agent and pdtool as other users needs root";
        }
        ASSERT_FALSE(base_.Path().empty());
        // Every user of the cases may create the socket, journal and ready file.
        pipeDirOverride_ = base_.File("pipe");
        ASSERT_EQ(chmod(base_.Path().c_str(), 0777), 0);
        ASSERT_EQ(mkdir(pipeDirOverride_.c_str(), 0777), 0);
        ASSERT_EQ(chmod(pipeDirOverride_.c_str(), 0777), 0);
    }

    ovtest::ScopedTempDir base_{"peer"};
};

TEST_P(PeerIdentity, OnlyAnAgentOfRootOrTheSameUserReceivesTheRequest) {
    const Case &c = GetParam();
    agentLauncher_ = RunAs(c.agent);
    pdtoolLauncher_ = RunAs(c.client);
    StartAgent();
    PdtoolRun r = Pdtool("del_ratelimit/id=7");
    EXPECT_TRUE(r.finished) << r.why;
    EXPECT_EQ(r.printed, c.printed) << r.out;
    std::vector<Request> got = Journal();
    if (c.logged != nullptr) {
        EXPECT_EQ(r.exitStatus, ExitOf(-13));
        EXPECT_NE(r.out.find(c.logged), std::string::npos) << r.out;
        EXPECT_TRUE(got.empty());
    } else {
        EXPECT_EQ(r.exitStatus, 0) << r.why;
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0].command, "del_ratelimit");
    }
}

constexpr const char *kAbsent = "Operation failed ret = -2 (No such file or directory)";

INSTANTIATE_TEST_SUITE_P(
    Linux, PeerIdentity,
    testing::Values(Case{"AgentOfAnotherUserIsRefused", kNobody, kRoot,
                         "Imc configure client init failed -13 Permission denied\n",
                         "]Pipe server is not trusted! uid=65534\n"},
                    Case{"RootAgentServesAnotherUser", kRoot, kNobodyInRootGroup, kAbsent, nullptr},
                    Case{"AgentOfTheSameUserServesIt", kNobody, kNobody, kAbsent, nullptr}),
    [](const testing::TestParamInfo<Case> &p) { return std::string(p.param.name); });

} // namespace
} // namespace e2e
