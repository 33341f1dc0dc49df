// Tests of the dispatcher's outcome line for whatever status the agent sends,
// against the in-process test server.
#include "cli/cmd.h"
#include "imc/channel_test_util.h"

#include <cstdint>
#include <memory>
#include <string>

namespace {

class DispatchStatus : public ovtest::ConfClientTest {
  protected:
    // What del_ratelimit prints when the agent answers with status.
    std::string PrintedFor(int32_t status) {
        ovtest::TestServer server(name_, ovtest::ReplyToEach(status));
        EXPECT_EQ(server.CreateResult(), 0);
        ovtest::StdoutCapture capture;
        EXPECT_EQ(OV_ImcConfClientInit(), 0);
        EXPECT_EQ(CmdDispatch("del_ratelimit/id=1"), status);
        OV_ImcConfClientExit();
        return capture.Take();
    }
};

bool EndsWith(const std::string &text, const std::string &tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(DispatchStatus, AnyStatusOfTheAgentGivesItsLine) {
    struct Case {
        int32_t status;
        const char *line;
    };
    const Case cases[] = {
        {0, "Operation success\n"},
        {-2, "Operation failed ret = -2 (No such file or directory)"},
        {-1000, "Operation failed ret = -1000 (Unknown error)"},
        // No positive counterpart: must not be negated.
        {INT32_MIN, "Operation failed ret = -2147483648 (Unknown error)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.status);
        std::string out = PrintedFor(c.status);
        EXPECT_TRUE(EndsWith(out, c.line)) << out;
    }
}

} // namespace
