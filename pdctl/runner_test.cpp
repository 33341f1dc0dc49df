// Tests of running lines through pdtool's table with the requests taken
// (the record, module and function pdtool sends, and the lines it prints),
// and of the warnings check gives for them.
#include "pdctl/runner.h"

#include "cli/usage.h"
#include "pdctl/warnings.h"

#include "agentconf/json_conv.h"
#include "base/mem.h"
#include "tests/support/capture.h"
#include "tests/support/record_bytes.h"

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

TEST_F(RunnerTest, TakesTheRecordPdtoolSends) {
    Outcome o = Run("del_link/linkid=16777217 netid=257");
    ASSERT_TRUE(o.Ok());
    EXPECT_STREQ(o.row->name, "del_link");
    EXPECT_TRUE(o.sent);
    EXPECT_EQ(o.module, 3);
    EXPECT_EQ(o.function, 14);
    EXPECT_EQ(o.record, ovtest::RecordBytes<44>().Put<uint32_t>(0, 1).Put<uint32_t>(4, 1).bytes);
    EXPECT_EQ(o.messages, "");
}

TEST_F(RunnerTest, KeepsWhatPdtoolPrintsBesidesItsOutcome) {
    struct Case {
        const char *word;
        int32_t result;
        const char *messages; ///< a prefix of the messages
    };
    const Case cases[] = {
        {"del_link/linkid=1", -22, "Missing expected args linkid or netid\n"},
        {"set_ratelimit", -22, "Invalid arg(null)\n"},
        {"bogus/x", -22, "invalid command bogus/x, please refer to help\n"},
        {"set_ratelimit/{", -22, "<Error:AGENTCONF>[OV_AgentRatelimitJsonStrToConf:"},
        {"set_ratelimit/{\"RateLimitId\": 4294967295}", -132, "<Error:AGENTCONF>"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.word);
        Outcome o = Run(c.word);
        EXPECT_EQ(o.result, c.result);
        EXPECT_FALSE(o.sent);
        EXPECT_EQ(o.messages.rfind(c.messages, 0), 0u) << o.messages;
        EXPECT_EQ(o.messages.back(), '\n');
    }
    // The converter's lines come first, the handler's refusal last.
    Outcome o = Run("set_ratelimit/{");
    EXPECT_NE(o.messages.find("invalid ratelimit string, not json\n"), std::string::npos);
    EXPECT_TRUE(o.messages.ends_with("\nConvert ratelimit json str to conf failed\n"))
        << o.messages;
}

TEST_F(RunnerTest, ATakenGetSucceedsWithoutAReply) {
    Outcome o = Run("get_shaper_conf/shaperId=7");
    EXPECT_TRUE(o.Ok());
    EXPECT_EQ(o.module, 15);
    EXPECT_EQ(o.function, 3);
    EXPECT_EQ(o.record, ovtest::RecordBytes<224>().Put<uint8_t>(0, 7).bytes);
    o = Run(
        R"(set_acsname/{"id": 5, "version": 1, "iplist": ["10.0.0.0/8"], "domainlist": ["a.example"]})");
    EXPECT_TRUE(o.Ok());
    EXPECT_EQ(o.function, 0); // the record, then its entry requests
    EXPECT_EQ(o.record.size(), 4480u);
    ASSERT_EQ(o.followers.size(), 2u);
    EXPECT_EQ(o.followers[0].function, 2);
    EXPECT_EQ(o.followers[1].function, 3);
    o = Run("get_shaper_tbl");
    EXPECT_TRUE(o.Ok());
    EXPECT_EQ(o.function, 4);
    EXPECT_TRUE(o.record.empty());
    EXPECT_EQ(o.reply, "");
}

using LineWarningsTest = RunnerTest;

TEST_F(LineWarningsTest, NameWhatALineWillNotDo) {
    std::string shaper = kUsageShaperSample;
    shaper.replace(shaper.find("\"num\": 1"), 8, "\"num\": 3");
    const std::string runsAsDns = "runs as set_dns, which comes before set_dns_proxy in the "
                                  "command table";
    struct Case {
        std::string word;
        std::vector<std::string> warnings;
    };
    const Case cases[] = {
        {std::string("set_dns/") + kUsageRuleSample, {}},
        {"del_link/linkid=1 netid=2", {}},
        {std::string("set_dns_proxy/") + kUsageRuleSample, {runsAsDns}},
        {"set_dns_proxy/{}", {runsAsDns}}, // refused, and still run as set_dns
        {"del_dns_proxyX/zone=1 id=2",
         {"runs as del_dns, which comes before del_dns_proxy in the command table"}},
        {"del_ratelimit_all/id=1",
         {"runs as del_ratelimit, the command name the word starts with"}},
        {R"(set_cpe_ip/{"Type": 0, "SiteIpId": 1, "SiteId": 1})",
         {"nothing is sent: only a link-IP record of Type 1 or 2 is"}},
        {"del_link/netid=2 linkid=1",
         {"only 0 of 2 values read as \"linkid=%u netid=%u\": the rest are sent as 0"}},
        {"del_policy/zone=3 clientid=2",
         {"only 1 of 2 values read as \"zone=%u id=%u\": the rest are sent as 0"}},
        {"set_engine_cmd/wanid=1 value=1",
         {"only 0 of 1 values read as \"value=%u\": the rest are sent as 0"}},
        {"del_acsname/name=" + std::string(64, 'n'),
         {"only 0 of 1 values read as \"name=%s\": the rest are sent as 0"}},
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
