// pdtool talks only to an agent run by root or by its own user: an agent of
// another user is refused before a byte is sent. Starting processes as other
// users takes root, which CI has.
#include "tests/e2e/e2e_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace e2e {
namespace {

std::vector<std::string> RunAs(const std::string &ids) {
    size_t colon = ids.find(':');
    return {"/usr/bin/setpriv", "--reuid=" + ids.substr(0, colon),
            "--regid=" + ids.substr(colon + 1), "--clear-groups", "--"};
}

class PeerIdentity : public AgentTest {
  protected:
    ovtest::ScopedTempDir base_{"peer"}; ///< outlives the agent, stopped in TearDown
};

TEST_F(PeerIdentity, OnlyAnAgentOfRootOrTheSameUserReceivesTheRequest) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "starting the agent and pdtool as other users needs root";
    }
    // Every user of the cases may create the socket, the journal and the ready file.
    pipeDirOverride_ = base_.File("pipe");
    ASSERT_EQ(chmod(base_.Path().c_str(), 0777), 0);
    ASSERT_EQ(mkdir(pipeDirOverride_.c_str(), 0777), 0);
    ASSERT_EQ(chmod(pipeDirOverride_.c_str(), 0777), 0);
    struct Case {
        const char *agent; ///< "uid:gid"; 65534 is nobody
        const char *client;
        bool refused;
    };
    const Case cases[] = {
        {"65534:65534", "0:0", true},
        {"0:0", "65534:0", false}, // root's group may open a root agent's 0660 socket
        {"65534:65534", "65534:65534", false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string("agent ") + c.agent + ", pdtool " + c.client);
        agentLauncher_ = RunAs(c.agent);
        pdtoolLauncher_ = RunAs(c.client);
        StartAgent();
        PdtoolRun r = Pdtool({"del_ratelimit/id=7"});
        if (c.refused) {
            EXPECT_EQ(r.exitStatus, ExitOf(-13));
            EXPECT_EQ(r.printed, "Imc configure client init failed -13 Permission denied\n");
            EXPECT_NE(r.out.find("]Pipe server is not trusted! uid=65534\n"), std::string::npos)
                << r.out;
            EXPECT_TRUE(Journal().empty());
        } else {
            EXPECT_EQ(r.printed, "Operation failed ret = -2 (No such file or directory)") << r.out;
            EXPECT_EQ(Only().command, "del_ratelimit");
        }
        StopAgent();
        std::remove((pipeDirOverride_ + "/" + pipeName_).c_str()); // the killed agent's socket
    }
}

} // namespace
} // namespace e2e
