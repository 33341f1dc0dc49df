// The shared command words and arguments of the end-to-end tests.
#include "tests/e2e/command_samples.h"

#include "cli/usage.h"

namespace e2e {

const EngineRow kEngineRows[18] = {{"set_engine_pcapEnable", 10},
                                   {"set_engine_wanKbps", 1},
                                   {"set_engine_wanBurstBytes", 2},
                                   {"set_engine_tcpAccEnable", 3},
                                   {"set_engine_subnetAccEnable", 5},
                                   {"set_engine_shaperEnable", 6},
                                   {"set_engine_hostFairTcpAccSessNum", 9},
                                   {"set_engine_hostFairEnable", 11},
                                   {"set_engine_wanInKbps", 12},
                                   {"set_engine_wanInBurstBytes", 13},
                                   {"set_engine_hostFairUdpSessNum", 14},
                                   {"set_engine_cmd", 15},
                                   {"set_engine_hostFairTcpActSessNum", 16},
                                   {"set_engine_trackRandomLoss", 17},
                                   {"set_engine_maxTxEnable", 18},
                                   {"set_engine_conservMode", 19},
                                   {"set_engine_engSysEnable", 20},
                                   {"set_engine_srtt", 21}};

const RuleRow kRuleSetRows[5] = {{"set_policy", 0x000},
                                 {"set_snat", 0x100},
                                 {"set_dnat", 0x200},
                                 {"set_dns", 0x300},
                                 {"set_dns_proxy", 0x300}};
const RuleRow kRuleDelRows[5] = {{"del_policy", 0x002},
                                 {"del_snat", 0x102},
                                 {"del_dnat", 0x202},
                                 {"del_dns", 0x302},
                                 {"del_dns_proxy", 0x302}};

std::string TunnelSampleWithVpnId() {
    std::string tunnel = kUsageTunnelSample;
    tunnel.insert(1, "\"VpnId\": 9, ");
    return tunnel;
}

std::vector<std::string> EveryCommandLine() {
    std::vector<std::string> lines;
    for (size_t i = 0; i < 5; ++i) {
        lines.push_back(std::string(kRuleSetRows[i].word) + "/" + kUsageRuleSample);
        lines.push_back(std::string(kRuleDelRows[i].word) + "/" + kRuleDelArg);
    }
    const std::string linkIpDel = "/clientid=1 vpnid=2 wanid=259";
    lines.insert(
        lines.end(),
        {std::string("set_cpe_ip/") + kUsageLinkIpSample, "del_cpe_ip" + linkIpDel,
         std::string("set_pop_ip/") + kUsageLinkIpSample, "del_pop_ip" + linkIpDel,
         std::string("set_link/") + kUsageLinkSample, "del_link/linkid=16777217 netid=257",
         "set_tunnel/" + TunnelSampleWithVpnId(), "del_tunnel/netid=300 label=2097153 vni=9",
         std::string("set_conn_cmd/") + kUsageConnCmdSample,
         std::string("set_shaper_conf/") + kUsageShaperSample, "del_shaper_conf/shaperId=1",
         "get_shaper_conf/shaperId=1", "get_shaper_tbl", "get_sa_cluster",
         std::string("set_ratelimit/") + kUsageRatelimitSample, "del_ratelimit/id=4000000000",
         R"(set_acsname/{"id": 5, "version": 3, "persistentFlag": true})",
         "del_acsname/name=aces5"});
    for (const EngineRow &row : kEngineRows) {
        lines.push_back(std::string(row.word) + "/" + kEngineArg);
    }
    return lines;
}

} // namespace e2e
