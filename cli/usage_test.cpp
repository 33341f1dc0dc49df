#include "cli/usage.h"

#include "agentconf/conn.h"
#include "agentconf/globalarg.h"
#include "agentconf/json_conv.h"
#include "agentconf/link.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "cli/cmd.h"
#include "tests/support/capture.h"
#include "tests/support/converter_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

class UsageSamples : public ovtest::ConverterTest {};

template <typename Conf>
int32_t Convert(int32_t (*convert)(Conf *, const char *), const char *text) {
    auto conf = std::make_unique<Conf>();
    std::memset(conf.get(), 0, sizeof(Conf));
    ovtest::StdoutCapture quiet;
    return convert(conf.get(), text);
}

TEST_F(UsageSamples, EverySampleConvertsExceptTheTunnelWithoutVpnId) {
    EXPECT_EQ(Convert(OV_AgentRuleJsonStrToConf, kUsageRuleSample), 0);
    EXPECT_EQ(Convert(OV_AgentLinkIpJsonStrToConf, kUsageLinkIpSample), 0);
    EXPECT_EQ(Convert(OV_AgentLinkJsonStrToConf, kUsageLinkSample), 0);
    EXPECT_EQ(Convert(OV_AgentDpGlobalArgJsonStrToConf, kUsageConnCmdSample), 0);
    EXPECT_EQ(Convert(OV_AgentRatelimitJsonStrToConf, kUsageRatelimitSample), 0);
    EXPECT_EQ(Convert(OV_AgentShaperJsonStrToConf, kUsageShaperSample), 0);
    EXPECT_EQ(Convert(OV_AgentConnJsonStrToConf, kUsageTunnelSample), -22);
    std::string withVpn = std::string(kUsageTunnelSample);
    withVpn.insert(1, "\"VpnId\": 1, ");
    EXPECT_EQ(Convert(OV_AgentConnJsonStrToConf, withVpn.c_str()), 0);
}

TEST(UsageText, HasItsSectionsAndSamplesInPlace) {
    const std::string usage = CmdUsage;
    EXPECT_EQ(usage.rfind("pdtool Version: version v1.0\n"
                          "get: GET set: INSERT/SET del: DELETE upd: UPDATE:\n",
                          0),
              0u);
    for (const char *section :
         {"For Rule module:\n", "For Conn module:\n", "For Netio module:\n",
          "For RateLimit module:\n", "For Engine module:\n", "For Shaper module:\n"}) {
        EXPECT_EQ(ovtest::CountOf(usage, section), 1u) << section;
    }
    for (const char *sample :
         {kUsageRuleSample, kUsageLinkIpSample, kUsageLinkSample, kUsageTunnelSample,
          kUsageConnCmdSample, kUsageRatelimitSample, kUsageShaperSample}) {
        EXPECT_NE(usage.find(std::string("/'") + sample + "'\n"), std::string::npos) << sample;
    }
    // Every table command is shown, except the access-name pair and the two
    // engine parameters the text has never listed.
    for (const CmdEntry &row : g_cmdTable) {
        std::string name = row.name;
        bool hidden = name == "set_acsname" || name == "del_acsname" ||
                      name == "set_engine_wanInKbps" || name == "set_engine_maxTxEnable";
        EXPECT_EQ(usage.find("./pdtool " + name + "/") != std::string::npos ||
                      usage.find("./pdtool " + name + "\n") != std::string::npos,
                  !hidden)
            << name;
    }
    EXPECT_EQ(ovtest::CountOf(usage, "    set_engine_pcapEnable "), 2u);
    for (const char *netio :
         {"set_lan_if", "del_lan_if", "get_lan_if", "set_wan_if", "del_wan_if", "get_wan_if"}) {
        EXPECT_NE(usage.find(std::string("    ") + netio + " "), std::string::npos) << netio;
    }
    EXPECT_NE(usage.find("    set_conn_cmd                            ./pdtool set_conn_cmd/"
                         "'{ \"Type\": 25, \"Lenth\": 8, \"Value64\": 104448000}'\n"),
              std::string::npos);
    EXPECT_GT(usage.size(), 7000u);
    EXPECT_LT(usage.size(), 9000u);
}

} // namespace
