#include "cli/usage.h"

#include "cli/cmd.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(UsageText, StartsWithTheVersionAndShowsEachListedCommandAndSample) {
    const std::string usage = CmdUsage;
    EXPECT_EQ(usage.rfind("pdtool Version: version v1.0\n"
                          "get: GET set: INSERT/SET del: DELETE upd: UPDATE:\n",
                          0),
              0u);
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
    EXPECT_NE(usage.find("    set_conn_cmd                            ./pdtool set_conn_cmd/"
                         "'{ \"Type\": 25, \"Lenth\": 8, \"Value64\": 104448000}'\n"),
              std::string::npos);
}

} // namespace
