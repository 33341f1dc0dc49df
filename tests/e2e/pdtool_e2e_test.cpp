// pdtool end to end: the real program against a private agentsim, checking
// what it printed, its exit status and every byte the agent received.
#include "agentconf/conn.h"
#include "agentconf/json_conv.h"
#include "agentconf/link.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "cli/cmd.h"
#include "cli/usage.h"
#include "tests/e2e/command_samples.h"
#include "tests/e2e/e2e_support.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace e2e {
namespace {

constexpr const char *kSuccess = "Operation success\n";
constexpr const char *kInvalidArg = "Operation failed ret = -22 (Invalid argument)";
constexpr const char *kAbsent = "Operation failed ret = -2 (No such file or directory)";

// The record pdtool's own converter makes of text, converted here in the
// test process; the converter's bytes are pinned by its unit tests.
template <typename Conf>
std::string Converted(int32_t (*convert)(Conf *, const char *), const std::string &text) {
    auto conf = std::make_unique<Conf>();
    std::memset(conf.get(), 0, sizeof(Conf));
    ovtest::StdoutCapture quiet;
    EXPECT_EQ(convert(conf.get(), text.c_str()), 0);
    return ovtest::HexOf({reinterpret_cast<const uint8_t *>(conf.get()), sizeof(Conf)});
}

std::string Cmd(const std::string &word, const std::string &arg) {
    return word + "/" + arg;
}

using StartUp = AgentTest;

TEST_F(StartUp, NoArgumentPrintsUsageAndExitsWithMinus22) {
    PdtoolRun r = Pdtool();
    EXPECT_EQ(r.exitStatus, ExitOf(-22));
    EXPECT_EQ(r.printed, std::string(CmdUsage));
}

TEST_F(StartUp, AbsentAgentEndsTheRunWithItsCode) {
    PdtoolRun r = Pdtool({"set_ratelimit/{}"});
    EXPECT_EQ(r.exitStatus, ExitOf(-2));
    EXPECT_EQ(r.printed, "Imc configure client init failed -2 No such file or directory\n");
    EXPECT_NE(r.out.find("Fail to connect pipe! error code=2\n"), std::string::npos) << r.out;
}

class Pdtool : public AgentTest {
  protected:
    void SetUp() override { StartAgent(); }

    // Runs one command that must reach the agent once and succeed.
    Request SendOk(const std::string &word) { return Send(word, kSuccess); }
    // Runs one command that reaches the agent; returns the last request.
    Request Send(const std::string &word, const std::string &printed) {
        PdtoolRun r = AgentTest::Pdtool({word});
        EXPECT_EQ(r.exitStatus, 0);
        EXPECT_EQ(r.printed, printed) << r.out;
        std::vector<Request> all = Journal();
        EXPECT_FALSE(all.empty());
        return all.empty() ? Request{} : all.back();
    }
    // Runs one command that must fail before anything is sent.
    void RefusedLocally(const std::string &word, const std::string &printed) {
        PdtoolRun r = AgentTest::Pdtool({word});
        EXPECT_EQ(r.exitStatus, 0);
        EXPECT_EQ(r.printed, printed) << r.out;
        EXPECT_TRUE(Journal().empty());
    }
};

// Commands whose records are written out here field by field (the link
// sample's is the converter's), run in this order against one agent (a delete finds what the set
// before it stored).
TEST_F(Pdtool, EachCommandSendsItsRecordToItsModuleAndFunction) {
    struct Case {
        std::string word;
        const char *printed;
        int module;
        int function;
        std::string want;
    };
    const Case cases[] = {
        {Cmd("set_ratelimit", kUsageRatelimitSample), kSuccess, 10, 1,
         Record(72).U32(0, 1).U32(24, 1).U16(64, 0x00A9).Hex()},
        {"del_ratelimit/id=4000000000", kAbsent, 10, 2, Record(72).U32(0, 4000000000u).Hex()},
        // "id=" is found inside "clientid=", so the key check passes; the scan
        // reads the zone and stops at "clientid".
        {"del_policy/zone=3 clientid=2", kAbsent, 4, 2, Record(17528).U8(2, 3).Hex()},
        // Type 2 is the POP side, whatever the word; type 1 the CPE side.
        {Cmd("set_cpe_ip", kUsageLinkIpSample), kSuccess, 3, 9,
         Record(36).U8(0, 2).U8(1, 1).U8(2, 0x03).U32(8, 82).U32(16, 0xCB00710A).Hex()},
        {R"(set_pop_ip/{"Type": 1, "SiteIpId": 2, "SiteId": 5, "CustomerId": 7})", kSuccess, 3, 5,
         Record(36).U8(0, 1).U8(1, 2).U32(4, 7).U32(8, 5).Hex()},
        {"del_cpe_ip/clientid=1 vpnid=2 wanid=259", kAbsent, 3, 6,
         Record(36).U8(0, 1).U8(1, 3).U32(8, 1).U32(12, 2).Hex()},
        {"del_pop_ip/clientid=4 vpnid=5 wanid=6", kAbsent, 3, 10,
         Record(36).U8(0, 2).U8(1, 6).U32(8, 4).U32(12, 5).Hex()},
        {"del_pop_ip/vpnid=5 clientid=4 wanid=6", kAbsent, 3, 10, Record(36).U8(0, 2).Hex()},
        {Cmd("set_link", kUsageLinkSample), kSuccess, 3, 13,
         Converted(OV_AgentLinkJsonStrToConf, kUsageLinkSample)},
        // The link id keeps 24 bits and the net id its low byte: link 1 of net 1.
        {"del_link/linkid=16777217 netid=257", kSuccess, 3, 14,
         Record(44).U8(0, 1).U32(4, 1).Hex()},
        // Keys in the other order pass the key check but the scan reads nothing.
        {"del_link/netid=1 linkid=2", kAbsent, 3, 14, Record(44).Hex()},
        {Cmd("set_conn_cmd", kUsageConnCmdSample), kSuccess, 3, 26,
         Record(24).U16(0, 25).U16(2, 8).U64(8, 104448000).Hex()},
        {R"(set_acsname/{"id": 5, "version": 3, "persistentFlag": true})", kSuccess, 6, 0,
         Record(4480).U32(0, 5).Text(4, "aces5").U8(68, 1).U64(72, 3).Hex()},
        {"del_acsname/name=aces5", kSuccess, 6, 1, Record(4480).Text(4, "aces5").Hex()},
        // A word longer than its row's name runs as that row.
        {Cmd("set_policyX", kUsageRuleSample), kSuccess, 4, 0,
         Converted(OV_AgentRuleJsonStrToConf, kUsageRuleSample)},
        // In the order the usage text shows, the value is never reached: 0 is sent.
        {"set_engine_srtt/wanid=1 value=1", kSuccess, 8, 0, Record(104).U8(4, 21).Hex()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.word);
        Request q = Send(c.word, c.printed);
        EXPECT_EQ(q.module, c.module);
        EXPECT_EQ(q.function, c.function);
        EXPECT_EQ(q.payloadHex, c.want);
    }
    // Type 3 converts and is reported as success, but nothing is sent.
    const size_t sent = Journal().size();
    PdtoolRun r = AgentTest::Pdtool({R"(set_cpe_ip/{"Type": 3, "SiteIpId": 1, "SiteId": 1})"});
    EXPECT_EQ(r.printed, kSuccess);
    EXPECT_EQ(Journal().size(), sent);
}

TEST_F(Pdtool, LocalFailuresPrintTheirLinesAndSendNothing) {
    struct Case {
        std::string word;
        const char *printed;
        const char *outcome = kInvalidArg;
    };
    const Case cases[] = {
        {"set_ratelimit/", "Convert ratelimit json str to conf failed\n"},
        {"set_ratelimit", "Invalid arg(null)\n"},
        {"set_acsname", "Invalid arg(null)\n"},
        {"del_ratelimit/rid", "Missing expected args id\n"},
        {"del_policy/zone=1", "Missing expected args zone/id\n"},
        {"del_cpe_ip/clientid=1 wanid=1", "Missing expected args clientid or vpnid or wanid\n"},
        {"del_link/linkid=1", "Missing expected args linkid or netid\n"},
        {"del_tunnel/netid=1 label=1", "Missing expected args label/netid/vni\n"},
        {"del_shaper_conf/id=1", "Missing expected args shaperId\n"},
        {"del_acsname/id=1", "Missing expected args name\n"},
        {"set_engine_srtt/value=1", "Missing expected args wanid/value\n"},
        {"set_policy/{\"Zone\": 1}", "Convert rule json str to conf failed\n"},
        {"set_cpe_ip/{\"SiteIpId\": 1}", "Convert LinkIp json str to conf failed\n"},
        {"set_link/{\"LinkId\": 1}", "Convert Link json str to conf failed\n"},
        {"set_conn_cmd/{\"Type\": 28, \"Lenth\": 4, \"Value\": 1}",
         "Convert dp global arg json str to conf failed\n"},
        {"set_shaper_conf/{}", "Convert shaper json str to conf failed\n"},
        {"set_acsname/{}", "Convert acsname json str to conf failed\n"},
        {Cmd("set_tunnel", kUsageTunnelSample), "Convert conn json str to conf failed\n"},
        {"del_shaper_conf/shaperId=256", "shaperId = 256 invalid.\n"},
        {"get_shaper_conf/shaperId=-1", "shaperId = -1 invalid.\n"},
        {"get_shaper_conf", "Invalid arg(null), require shaperId\n"},
        {"set_ratelimit/{\"RateLimitId\": 4294967295}",
         "Convert ratelimit json str to conf failed\n",
         "Operation failed ret = -132 (value too large)"},
        // Unknown words, a case or a letter off a row's name, and exit status 0.
        {"bogus", "invalid command bogus, please refer to help", ""},
        {"Set_policy/{}", "invalid command Set_policy/{}, please refer to help", ""},
        {"set_dn", "invalid command set_dn, please refer to help", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.word);
        RefusedLocally(c.word, std::string(c.printed) + c.outcome);
    }
}

TEST_F(Pdtool, TunnelSetWithVpnIdAndDelete) {
    std::string tunnel = TunnelSampleWithVpnId();
    Request q = SendOk(Cmd("set_tunnel", tunnel));
    EXPECT_EQ(q.module, 3);
    EXPECT_EQ(q.function, 18);
    EXPECT_EQ(q.payloadHex, Converted(OV_AgentConnJsonStrToConf, tunnel));

    AgentTest::Pdtool({"del_tunnel/netid=300 label=2097153 vni=9"});
    Request d = Journal().back();
    EXPECT_EQ(d.function, 19);
    EXPECT_EQ(d.payloadHex, Record(616).U32(4, 0x2C200001).U64(548, ~0ull).Hex());
    AgentTest::Pdtool({"del_tunnel/label=1 netid=2 vni=3"}); // out of order: nothing read
    EXPECT_EQ(Journal().back().payloadHex, Record(616).U64(548, ~0ull).Hex());
}

TEST_F(Pdtool, ExtraArgumentsAreIgnored) {
    PdtoolRun r = AgentTest::Pdtool({"del_ratelimit/id=1", "del_ratelimit/id=2"});
    EXPECT_EQ(r.exitStatus, 0);
    EXPECT_EQ(r.printed, kAbsent);
    EXPECT_EQ(Only().payloadHex, Record(72).U32(0, 1).Hex());
}

// More runs at once than the agent has instances: each waits its turn, is
// answered and journaled once.
// The JSON a get prints is the shaper printer's (its own tests check it);
// here what is asked for, in what order the table comes, and the line ends.
TEST_F(Pdtool, ShapersAreSetGotListedInIdOrderAndDeleted) {
    EXPECT_EQ(AgentTest::Pdtool({"get_shaper_tbl"}).printed, kSuccess); // an empty table
    std::string two = kUsageShaperSample;
    two.replace(two.find("\"shaperId\": 1"), 13, "\"shaperId\": 2");
    Request q = SendOk(Cmd("set_shaper_conf", two));
    EXPECT_EQ(q.module, 15);
    EXPECT_EQ(q.function, 1);
    EXPECT_EQ(q.payloadHex, Converted(OV_AgentShaperJsonStrToConf, two));
    SendOk(Cmd("set_shaper_conf", kUsageShaperSample));

    const std::string one = std::string(kSuccess) + "{\n  \"shaperId\":1,\n";
    PdtoolRun r = AgentTest::Pdtool({"get_shaper_conf/shaperId=1"});
    EXPECT_EQ(r.printed.rfind(one, 0), 0u) << r.printed;
    EXPECT_TRUE(r.printed.ends_with("}\n\n")) << r.printed;
    EXPECT_EQ(Journal().back().function, 3);
    EXPECT_EQ(Journal().back().payloadHex, Record(224).U8(0, 1).Hex());

    r = AgentTest::Pdtool({"get_shaper_tbl/ignored"});
    EXPECT_EQ(r.printed.rfind(one, 0), 0u) << r.printed;
    EXPECT_NE(r.printed.find("}\n{\n  \"shaperId\":2,\n"), std::string::npos) << r.printed;
    EXPECT_TRUE(r.printed.ends_with("}\n\n")) << r.printed;
    EXPECT_EQ(Journal().back().function, 4);
    EXPECT_EQ(Journal().back().payloadHex, "");

    r = AgentTest::Pdtool({"del_shaper_conf/shaperId=1"});
    EXPECT_EQ(r.printed, kSuccess);
    EXPECT_EQ(Journal().back().payloadHex, Record(224).U8(0, 1).Hex());
    EXPECT_EQ(AgentTest::Pdtool({"get_shaper_conf/shaperId=1"}).printed, kAbsent);
}

class SaCluster : public AgentTest {};

TEST_F(SaCluster, PrintsTheStateLineByLine) {
    StartAgent({"--sa-role", "1", "--sa-cal-queue-len", "4", "--sa-local-lan-id", "2",
                "--sa-local-port", "8001", "--sa-master-port", "8002", "--sa-master-ip", "10.0.0.1",
                "--sa-master-cpe-id", "77"});
    PdtoolRun r = Pdtool({"get_sa_cluster"});
    EXPECT_EQ(r.exitStatus, 0);
    EXPECT_EQ(r.printed, "Operation success\n"
                         "SA.Role: master\n"
                         "SA.CalQueueLen: 4\n"
                         "SA.LocalLanId: 2\n"
                         "SA.LocalPort: 8001\n"
                         "SA.MasterCpeId: 77\n"
                         "SA.MasterIp: 10.0.0.1\n"
                         "SA.MasterPort: 8002\n\n");
    Request q = Only();
    EXPECT_EQ(q.module, 15);
    EXPECT_EQ(q.function, 7);
}

} // namespace
} // namespace e2e
