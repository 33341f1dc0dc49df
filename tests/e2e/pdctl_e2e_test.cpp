// pdctl end to end: the real program against a private agentsim. The
// journal of a file applied by pdctl must be the journal of pdtool run once
// per line; results, summaries, exit statuses and the agent going away.
#include "base/platform.h"
#include "cli/usage.h"
#include "ov_version.h"
#include "tests/e2e/command_samples.h"
#include "tests/e2e/e2e_support.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace e2e {
namespace {

constexpr uint32_t kRunTimeoutMs = 60000;

class Pdctl : public AgentTest {
  protected:
    // A file in the test's own place; returns its path.
    std::string WriteFile(const std::string &name, const std::string &text) {
        std::string path = testing::TempDir() + Name() + "." + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    ovtest::ProcessResult Run(const std::vector<std::string> &args) {
        std::vector<std::string> argv = {ovtest::NativePath(OV_PDCTL_PATH)};
        argv.insert(argv.end(), args.begin(), args.end());
        ovtest::ProcessResult r = ovtest::RunProcess(argv, kRunTimeoutMs, PdtoolEnv());
        EXPECT_TRUE(r.startResult == 0 && !r.timedOut) << r.err;
        return r;
    }
    // The journal without its times, one line per request.
    std::vector<std::string> JournalLines() {
        std::vector<std::string> out;
        for (const Request &q : Journal()) {
            out.push_back(std::to_string(q.module) + "/" + std::to_string(q.function) + " " +
                          q.command + " " + std::to_string(q.status) + " " + q.payloadHex);
        }
        return out;
    }
};

std::string Joined(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &l : lines) {
        text += l + "\n";
    }
    return text;
}

TEST_F(Pdctl, EveryWordReachesTheAgentAsPdtoolSendsIt) {
    const std::vector<std::string> lines = EveryCommandLine();
    ASSERT_EQ(lines.size(), 46u);
    StartAgent();
    for (const std::string &line : lines) {
        Pdtool({line});
    }
    std::vector<std::string> byPdtool = JournalLines();
    StopAgent();

    StartAgent(); // a fresh agent: the same states, so the same statuses
    std::string file = WriteFile("all.conf", Joined(lines));
    ovtest::ProcessResult r = Run({"apply", "--keep-going", file});
    std::vector<std::string> byPdctl = JournalLines();
    ASSERT_EQ(byPdtool.size(), 46u);
    EXPECT_EQ(byPdctl, byPdtool);
    EXPECT_EQ(ovtest::Lines(r.out).back(), "36 applied, 10 failed, 0 not run") << r.out;
    EXPECT_EQ(r.exitStatus, 1);
    // The numbers only the command table holds: the rule rows (a set and a
    // delete each, first in the lines) carry table and operation in the
    // function id; the engine rows (last) go to wan 0 with their codes.
    auto sent = [&](size_t i, const std::string &to, const std::string &statusAndPayload) {
        EXPECT_TRUE(byPdtool[i].starts_with(to + " ") && byPdtool[i].ends_with(statusAndPayload))
            << lines[i];
    };
    const std::string rule = byPdtool[0].substr(byPdtool[0].rfind(' ')); // the converter's
    for (size_t i = 0; i < 5; ++i) {
        sent(2 * i, "4/" + std::to_string(kRuleSetRows[i].function), " 0" + rule);
        sent(2 * i + 1, "4/" + std::to_string(kRuleDelRows[i].function),
             " -2 " + Record(17528).U8(2, 1).U32(16, 7).Hex());
    }
    for (size_t i = 0; i < 18; ++i) {
        sent(28 + i, "8/0", " 0 " + Record(104).U8(4, kEngineRows[i].code).U32(8, 30).Hex());
    }
}

TEST_F(Pdctl, ApplyStopsAtTheFirstFailureUnlessToldToGoOn) {
    StartAgent({"--sa-role", "2"}); // the other SA fields at their defaults
    std::string file = WriteFile("site.conf", "# site\n"
                                              "set_engine_srtt/value=3 wanid=0\n"
                                              "\n"
                                              "del_link/linkid=1\n"
                                              "del_ratelimit/id=9\n"
                                              "get_sa_cluster\n"
                                              "bogus\n");
    const std::string head = file + ":2: set_engine_srtt: ok\n" + file +
                             ":4: del_link: failed -22 (Invalid argument)\n"
                             "    Missing expected args linkid or netid\n";
    ovtest::ProcessResult r = Run({"apply", file});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_EQ(r.out, head + file + ":5: del_ratelimit: not run\n" + file +
                         ":6: get_sa_cluster: not run\n" + file + ":7: bogus: not run\n" +
                         "1 applied, 1 failed, 3 not run\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(Journal().size(), 1u);

    r = Run({"apply", "--keep-going", file});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_EQ(r.out, head + file + ":5: del_ratelimit: failed -2 (No such file or directory)\n" +
                         file + ":6: get_sa_cluster: ok\n" +
                         "SA.Role: slave\nSA.CalQueueLen: 0\nSA.LocalLanId: 0\nSA.LocalPort: 0\n"
                         "SA.MasterCpeId: 0\nSA.MasterIp: 0.0.0.0\nSA.MasterPort: 0\n" +
                         file + ":7: bogus: failed -22 (Invalid argument)\n" +
                         "    invalid command bogus, please refer to help\n" +
                         "2 applied, 3 failed, 0 not run\n");

    r = Run({"apply", "-v", WriteFile("ok.conf", "set_engine_srtt/value=3 wanid=0\n")});
    EXPECT_EQ(r.exitStatus, 0);
    EXPECT_EQ(ovtest::Lines(r.out).back(), "1 applied, 0 failed, 0 not run");
    // The log goes to standard error, time-stamped, and only with -v.
    EXPECT_EQ(WithoutLogLines(r.err), "") << r.err;
    EXPECT_NE(r.err.find("IMC conf client connnects to server"), std::string::npos) << r.err;
}

TEST_F(Pdctl, ApplyWritesOneJsonObjectPerLineAndASummary) {
    StartAgent();
    std::string file = WriteFile("j.conf", std::string("set_shaper_conf/") + kUsageShaperSample +
                                               "\nget_shaper_tbl\nset_ratelimit/{\n");
    ovtest::ProcessResult r = Run({"apply", "--json", "--keep-going", file});
    EXPECT_EQ(r.exitStatus, 1);
    std::vector<std::string> lines = ovtest::Lines(r.out);
    ASSERT_EQ(lines.size(), 4u) << r.out;
    // Each line after its file name (which JSON escapes on Windows).
    auto from = [&](size_t i) { return lines[i].substr(lines[i].find(R"(,"line":)")); };
    EXPECT_EQ(from(0), R"(,"line":1,"word":"set_shaper_conf","module":15,"function":1,)"
                       R"("status":"ok","sent":true,"code":0,"error":null,"messages":[]})");
    EXPECT_EQ(from(1).rfind(R"(,"line":2,"word":"get_shaper_tbl","module":15,"function":4,)"
                            R"("status":"ok","sent":true,"code":0,"error":null,"messages":[],)"
                            R"("reply":[{"shaperId":1,)",
                            0),
              0u)
        << lines[1];
    EXPECT_EQ(from(2).rfind(R"(,"line":3,"word":"set_ratelimit","module":null,"function":null,)"
                            R"("status":"failed","sent":false,"code":-22,)"
                            R"("error":"Invalid argument","messages":["<Error:AGENTCONF>)",
                            0),
              0u)
        << lines[2];
    EXPECT_TRUE(lines[2].ends_with(R"(,"Convert ratelimit json str to conf failed"]})"));
    EXPECT_EQ(lines[3], R"({"applied":2,"failed":1,"not_run":0})");
}

TEST_F(Pdctl, TheAgentGoingAwayFailsTheLineInFlightAndRunsNoMore) {
    std::string state = testing::TempDir() + Name() + ".state";
    std::remove(state.c_str());
    // Each rate limit is held back, so the agent dies while pdctl waits on one.
    StartAgent({"--fault-delay", "10:1=20", "--state", state});
    const int kLines = 400;
    std::string text;
    std::string sample = kUsageRatelimitSample;
    size_t at = sample.find("\"RateLimitId\": 1") + 15;
    for (int id = 1; id <= kLines; ++id) {
        text += "set_ratelimit/" + sample.substr(0, at) + std::to_string(id) +
                sample.substr(at + 1) + "\n";
    }
    std::string file = WriteFile("long.conf", text);
    ovtest::Process p;
    ASSERT_EQ(p.Start({ovtest::NativePath(OV_PDCTL_PATH), "apply", file}, PdtoolEnv()), 0);
    for (int i = 0; i < 1000 && Journal().size() < 10; ++i) {
        OV_SleepMs(10);
    }
    StopAgent();
    ASSERT_TRUE(p.Wait(kRunTimeoutMs));
    EXPECT_EQ(p.ExitStatus(), 1);

    std::vector<std::string> out = ovtest::Lines(p.Stdout());
    ASSERT_EQ(out.size(), kLines + 1u);
    int ok = 0;
    while (out[ok] == file + ":" + std::to_string(ok + 1) + ": set_ratelimit: ok") {
        ++ok;
    }
    EXPECT_GE(ok, 9);
    EXPECT_EQ(out[ok].rfind(file + ":" + std::to_string(ok + 1) + ": set_ratelimit: failed -", 0),
              0u)
        << out[ok];
    EXPECT_EQ(out[kLines - 1], file + ":" + std::to_string(kLines) + ": set_ratelimit: not run");
    EXPECT_EQ(out.back(), std::to_string(ok) + " applied, 1 failed, " +
                              std::to_string(kLines - ok - 1) + " not run");
    // What the agent acknowledged was saved before it answered.
    std::string saved = ovtest::ReadWholeFile(state);
    for (int id = 1; id <= ok; ++id) {
        std::string rec = Record(72).U32(0, id).U32(24, 1).U16(64, 0x00A9).Hex();
        EXPECT_NE(saved.find(rec), std::string::npos) << "rate limit " << id;
    }
}

TEST_F(Pdctl, KeepGoingGoesOnOverANewConnectionWhenTheAgentClosedItsOwn) {
    StartAgent({"--fault-close", "10:2"});
    std::string file = WriteFile("c.conf", "del_ratelimit/id=1\nset_engine_srtt/value=1 wanid=0\n");
    ovtest::ProcessResult r = Run({"apply", "--keep-going", file});
    std::vector<std::string> out = ovtest::Lines(r.out);
    ASSERT_EQ(out.size(), 3u) << r.out;
    EXPECT_EQ(out[0].rfind(file + ":1: del_ratelimit: failed -", 0), 0u) << out[0];
    EXPECT_EQ(out[1], file + ":2: set_engine_srtt: ok");
    EXPECT_EQ(out[2], "1 applied, 1 failed, 0 not run");
    EXPECT_EQ(Journal().size(), 2u);
}

TEST_F(Pdctl, ApplyWithoutAnAgentSaysSoInOneLine) {
    ovtest::ProcessResult r = Run({"apply", WriteFile("a.conf", "get_shaper_tbl\n")});
    EXPECT_EQ(r.exitStatus, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "pdctl: cannot reach the agent on the configuration pipe: -2 (No such file "
                     "or directory)\n");
}

TEST_F(Pdctl, CheckReportsRefusalsAndWarningsByLine) {
    const std::string warnings = "set_dns_proxy/" + std::string(kUsageRuleSample) +
                                 "\n"
                                 "set_pop_ip/{\"Type\": 3, \"SiteIpId\": 1, \"SiteId\": 1}\n"
                                 "del_link/netid=1 linkid=2\n"
                                 "del_ratelimitX/id=1\n";
    // A get is taken without an agent too.
    std::string w = WriteFile("w.conf", "get_shaper_tbl\n" + warnings);
    std::string both = WriteFile("b.conf", warnings + "set_ratelimit\n");
    const std::string warned =
        w +
        ":2: set_dns_proxy: warning: runs as set_dns, which comes before set_dns_proxy in "
        "the command table\n" +
        w + ":3: set_pop_ip: warning: nothing is sent: only a link-IP record of Type 1 or 2 is\n" +
        w +
        ":4: del_link: warning: only 0 of 2 values read as \"linkid=%u netid=%u\": the rest "
        "are sent as 0\n" +
        w +
        ":5: del_ratelimitX: warning: runs as del_ratelimit, the command name the word "
        "starts with\n" +
        "5 checked, 0 refused, 4 with warnings\n";
    struct Case {
        std::vector<std::string> args;
        int exitStatus;
        std::string out;
    };
    const Case cases[] = {
        {{"check", w}, 0, warned},
        {{"check", "--strict", w}, 1, warned},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args.size());
        ovtest::ProcessResult r = Run(c.args);
        EXPECT_EQ(r.exitStatus, c.exitStatus);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
    }
    ovtest::ProcessResult r = Run({"check", both});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_NE(r.out.find(both + ":5: set_ratelimit: refused -22 (Invalid argument)\n"
                                "    Invalid arg(null)\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(ovtest::Lines(r.out).back(), "5 checked, 1 refused, 4 with warnings");
    EXPECT_TRUE(Journal().empty()); // no agent was asked
}

TEST_F(Pdctl, ExplainShowsTheRecordAWordMakes) {
    ovtest::ProcessResult r = Run({"explain", "--hex", "--layout", "del_ratelimit/id=258"});
    EXPECT_EQ(r.exitStatus, 0);
    std::string out = r.out;
    const std::string head = "command:  del_ratelimit\nmodule:   10\nfunction: 2 (0x0002)\n"
                             "record:   ratelimit, 72 bytes\n";
    ASSERT_EQ(out.rfind(head + "{\n  \"RateLimitId\": 258,\n", 0), 0u) << out;
    size_t bytes = out.find("bytes:\n");
    ASSERT_NE(bytes, std::string::npos);
    EXPECT_EQ(out.substr(bytes, out.find("offset  size  field ") - bytes),
              "bytes:\n"
              "  0000  02 01 00 00 00 00 00 00  00 00 00 00 00 00 00 00\n"
              "  0010  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00\n"
              "  *\n"
              "  0040  00 00 00 00 00 00 00 00\n");
    EXPECT_NE(out.find("\n     0     4  rateLimitId          258\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\n    64     2  flags                0x0000\n"), std::string::npos);

    r = Run({"explain", "del_ratelimit/rid"});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_EQ(r.out, "del_ratelimit: refused -22 (Invalid argument)\n"
                     "    Missing expected args id\n");
}

TEST_F(Pdctl, BadUsageAndUnreadableFilesExitWithTwo) {
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"push", "x"},
        {"apply"},
        {"apply", "--hex", "x"},
        {"check", "a", "b"},
        {"explain", "--keep-going", "get_shaper_tbl"},
    };
    for (const auto &args : cases) {
        SCOPED_TRACE(testing::PrintToString(args));
        ovtest::ProcessResult r = Run(args);
        EXPECT_EQ(r.exitStatus, 2);
        EXPECT_TRUE(r.err.ends_with("\nTry 'pdctl --help'.\n")) << r.err;
    }
    ovtest::ProcessResult r = Run({"check", testing::TempDir() + "no-such-dir/x.conf"});
    EXPECT_EQ(r.exitStatus, 2);
    EXPECT_EQ(r.err.rfind("pdctl: cannot read ", 0), 0u) << r.err;

    r = Run({"--version"});
    EXPECT_EQ(r.out, std::string("pdctl ") + OV_VERSION_STRING + "\n");
    r = Run({"--help"});
    EXPECT_EQ(r.exitStatus, 0);
    EXPECT_EQ(r.out.rfind("Usage: pdctl COMMAND", 0), 0u);
}

} // namespace
} // namespace e2e
