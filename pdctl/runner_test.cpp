// Tests of running lines through pdtool's table with the requests taken
// (the record, module and function pdtool sends, and the lines it prints),
// and of the warnings check gives for them.
#include "pdctl/runner.h"

#include "cli/usage.h"
#include "pdctl/warnings.h"

#include "agentconf/json_conv.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <string>

namespace pdctl {
namespace {

// The converters' log module as pdctl registers it; nothing reaches standard output.
class RunnerTest : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::StdoutCapture quiet;
        AgentMemModuleRegister();
        OV_AgentConfLogRegisterWith(OV_LOG_WARNING, ConverterLogOutput);
    }
    void TearDown() override {
        ovtest::StdoutCapture quiet;
        OV_AgentConfLogUnregister();
        AgentMemModuleUnregister();
    }

    Outcome Run(const std::string &word) {
        Runner runner(RequestMode::Capture);
        Outcome out;
        ovtest::StdoutCapture stdoutMustStayEmpty;
        runner.Run(word, &out);
        EXPECT_EQ(stdoutMustStayEmpty.Take(), "");
        return out;
    }
};

// The handlers' refusals reach the user in pdctl's end-to-end tests; here,
// the order of a converter's lines and a converter's own code.
TEST_F(RunnerTest, KeepsWhatPdtoolPrintsBesidesItsOutcome) {
    Outcome o = Run("set_ratelimit/{");
    EXPECT_EQ(o.result, -22);
    EXPECT_FALSE(o.sent);
    EXPECT_EQ(o.messages.rfind("<Error:AGENTCONF>[OV_AgentRatelimitJsonStrToConf:", 0), 0u)
        << o.messages;
    EXPECT_NE(o.messages.find("invalid ratelimit string, not json\n"), std::string::npos);
    EXPECT_TRUE(o.messages.ends_with("\nConvert ratelimit json str to conf failed\n"))
        << o.messages;
    o = Run("set_ratelimit/{\"RateLimitId\": 4294967295}");
    EXPECT_EQ(o.result, -132);
    EXPECT_FALSE(o.sent);
}

// A get taken without an agent shows in pdctl check end to end.
TEST_F(RunnerTest, ATakenAccessNameKeepsItsEntryRequests) {
    Outcome o = Run(
        R"(set_acsname/{"id": 5, "version": 1, "iplist": ["10.0.0.0/8"], "domainlist": ["a.example"]})");
    EXPECT_TRUE(o.Ok());
    EXPECT_EQ(o.function, 0); // the record, then its entry requests
    EXPECT_EQ(o.record.size(), 4480u);
    ASSERT_EQ(o.followers.size(), 2u);
    EXPECT_EQ(o.followers[0].function, 2);
    EXPECT_EQ(o.followers[1].function, 3);
}

using LineWarningsTest = RunnerTest;

TEST_F(LineWarningsTest, NameWhatALineWillNotDo) {
    std::string shaper = kUsageShaperSample;
    shaper.replace(shaper.find("\"num\": 1"), 8, "\"num\": 3");
    struct Case {
        std::string word;
        std::vector<std::string> warnings;
    };
    // Each kind of warning once; the others are shown by pdctl check end to end.
    const Case cases[] = {
        {std::string("set_dns/") + kUsageRuleSample, {}},
        {"del_link/linkid=1 netid=2", {}},
        // Refused, and still run as set_dns.
        {"set_dns_proxy/{}",
         {"runs as set_dns, which comes before set_dns_proxy in the command table"}},
        {"del_policy/zone=3 clientid=2",
         {"only 1 of 2 values read as \"zone=%u id=%u\": the rest are sent as 0"}},
        {"get_shaper", {"unknown command word: pdtool says \"invalid command\" and sends nothing"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.word);
        EXPECT_EQ(LineWarnings(c.word, Run(c.word)), c.warnings);
    }
    // A converter's warning: the record is made, but not quite as written.
    std::vector<std::string> w =
        LineWarnings("set_shaper_conf/" + shaper, Run("set_shaper_conf/" + shaper));
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].rfind("<Warning:AGENTCONF>[_OV_AgentShaperJsonToConf:", 0), 0u) << w[0];
}

} // namespace
} // namespace pdctl
