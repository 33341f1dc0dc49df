// pdtool's usage text and its JSON samples.
#include "cli/usage.h"
#include "cli/cmd.h"

// clang-format off
const char *const kUsageRuleSample =
    R"({"Table": 0, "Zone": 1, "DualFlag": false, "InvalidFlag": false, "ExcluFlag": false, "RevalFlag": false, "L2Flag": false, "L3Flag": true, "Id": 1, "RuleVer": 1, "VpnId": 1, "CustomerId": 0, "Match": {"SrcIpNum": 1, "DstIpNum": 1, "SrcPortNum": 1, "DstPortNum": 1, "ProtoNum": 1, "InVpnFlag": false, "InVpnId": 0, "InPolicyFlag": false, "InPolicyId": 0, "DstCustomerId": 0, "DstClientId": 0, "SrcIp": [{"IpType": 0, "Ip": "192.168.10.0", "Mask": 24}], "DstIp": [{"IpType": 0, "Ip": "10.20.0.0", "Mask": 16}], "SrcPort": [{"LowerPort": 1024, "UpperPort": 65535}], "DstPort": [{"LowerPort": 443, "UpperPort": 443}], "Proto": [6]}, "Actions": {"SnatFlag": false, "DnatFlag": false, "AcceFlag": true, "SetVpnFlag": false, "SetDscpFlag": false, "SetPolicyFlag": false, "OutputType": 1, "OutputNum": 1, "OutputStrategy": 0, "InboundRateLimitId": 1, "OutboundRateLimitId": 1, "OutputArray": [{"Id": 1, "Priority": true, "Probe": false}]}})";
const char *const kUsageLinkIpSample =
    R"({"Type": 2, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 0, "SiteId": 82, "IpAddr": "203.0.113.10"})";
const char *const kUsageLinkSample =
    R"({"NetId": 1, "LinkId": 1, "Role": true, "Simu": false, "Type": 2, "PersistentFlag": true, "Mode": 0, "Thresh": 3, "ProtoVersion": 1, "WanId": 1, "LocalVpnId": 0, "PeerSiteIpId": 1, "PeerVpnId": 0, "LocalSitePort": 49152, "PeerSitePort": 49152, "PeerSiteId": 82, "PeerCustomerId": 0, "KeepaliveInterval": 5, "KeepaliveTimeout": 30})";
const char *const kUsageTunnelSample =
    R"({"Label": 1, "Vni": 1, "NetId": 1, "Mode": 0, "WanId": 1, "LanId": 1, "LocalIp": "198.51.100.2", "PeerIp": "203.0.113.10", "CustomerId": 0, "PeerHostId": 82, "PortSeed": 1, "ProtoVersion": 1, "C2PFlag": true, "PersistentFlag": true, "SessionId": 1, "Path": [1], "LinkNum": 1, "KeepaliveInterval": 5, "KeepaliveTimeout": 30, "TcpTunNum": 0, "UdpTunNum": 1, "Tos": 0, "EncryptAlgo": 1, "CryptoSuite": 1, "KeyLength": 32, "InputKey": "3c0f7a21d94e5b86a1f2c7d03e98b4a5 6d1e8c2f0b7a94d35e6c1f8a2b0d947", "HmacKeyLen": 0, "PeerUid": "pop-82", "SlaCfg": {"ConnSRttLow": 15, "ConnSRttHigh": 21, "ConnOutBWLow": 0, "ConnOutBWHigh": 0, "ConnJitterLow": 0, "ConnJitterHigh": 0, "ConnLossRateLow": 10, "ConnLossRateHigh": 30}, "TimeStamp": 1767225600000, "RatelimitInbound": [1], "RatelimitOutbound": [1], "BuddyConnId": 0, "MinTxKBps": 0})";
const char *const kUsageConnCmdSample =
    R"({ "Type": 25, "Lenth": 8, "Value64": 104448000})";
const char *const kUsageRatelimitSample =
    R"({"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0, "Type": 1, "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1, "UpdateBucketRate": 0, "UpdateCBS": 0, "UpdateTokenBonus": 0, "UpdatePerIpBucketRate": 0, "UpdatePerIpCBS": 0, "PersistentFlag": true})";
const char *const kUsageShaperSample =
    R"({"shaperId": 1, "persistentFlag": true, "wanKbps": 100000, "wanInKbps": 100000, "inBurstMs": 100, "outBurstMs": 100, "bandDist": [2, 2, 8, 8, 8, 8, 8, 0], "bandLimit": {"sharePriority": 2, "num": 1, "bandLimit": [{"priority": 2, "inkbps": 1000000, "outkbps": 1000000}]}})";

// The Netio lines are not commands (typing them gives the invalid-command
// line), set_engine_pcapEnable is listed twice, and set_acsname/del_acsname
// are not listed: all kept as the text has always been.
const char CmdUsage[] =
    "pdtool Version: version v1.0\n"
    "get: GET set: INSERT/SET del: DELETE upd: UPDATE:\n"
    "For Rule module:\n"
    "    Rule :{policy|snat|dnat|dns|dns_proxy}\n"
    "    rule set demo:                          ./pdtool set_policy/'{\"Table\": 0, \"Zone\": 1, \"DualFlag\": false, \"InvalidFlag\": false, \"ExcluFlag\": false, \"RevalFlag\": false, \"L2Flag\": false, \"L3Flag\": true, \"Id\": 1, \"RuleVer\": 1, \"VpnId\": 1, \"CustomerId\": 0, \"Match\": {\"SrcIpNum\": 1, \"DstIpNum\": 1, \"SrcPortNum\": 1, \"DstPortNum\": 1, \"ProtoNum\": 1, \"InVpnFlag\": false, \"InVpnId\": 0, \"InPolicyFlag\": false, \"InPolicyId\": 0, \"DstCustomerId\": 0, \"DstClientId\": 0, \"SrcIp\": [{\"IpType\": 0, \"Ip\": \"192.168.10.0\", \"Mask\": 24}], \"DstIp\": [{\"IpType\": 0, \"Ip\": \"10.20.0.0\", \"Mask\": 16}], \"SrcPort\": [{\"LowerPort\": 1024, \"UpperPort\": 65535}], \"DstPort\": [{\"LowerPort\": 443, \"UpperPort\": 443}], \"Proto\": [6]}, \"Actions\": {\"SnatFlag\": false, \"DnatFlag\": false, \"AcceFlag\": true, \"SetVpnFlag\": false, \"SetDscpFlag\": false, \"SetPolicyFlag\": false, \"OutputType\": 1, \"OutputNum\": 1, \"OutputStrategy\": 0, \"InboundRateLimitId\": 1, \"OutboundRateLimitId\": 1, \"OutputArray\": [{\"Id\": 1, \"Priority\": true, \"Probe\": false}]}}'\n"
    "    rule delete demo:                       ./pdtool del_policy/\"zone=1 id=1\"\n"
    "    set_policy                              ./pdtool set_policy/rule\n"
    "    del_policy                              ./pdtool del_policy/\"zone=1 id=1\"\n"
    "    set_snat                                ./pdtool set_snat/rule\n"
    "    del_snat                                ./pdtool del_snat/\"zone=1 id=1\"\n"
    "    set_dnat                                ./pdtool set_dnat/rule\n"
    "    del_dnat                                ./pdtool del_dnat/\"zone=1 id=1\"\n"
    "    set_dns                                 ./pdtool set_dns/rule\n"
    "    del_dns                                 ./pdtool del_dns/\"zone=1 id=1\"\n"
    "    set_dns_proxy                           ./pdtool set_dns_proxy/rule\n"
    "    del_dns_proxy                           ./pdtool del_dns_proxy/\"zone=1 id=1\"\n"
    "For Conn module:\n"
    "    linkIp set demo:                        ./pdtool set_cpe_ip/'{\"Type\": 2, \"SiteIpId\": 1, \"PersistentFlag\": true, \"CustomerId\": 0, \"SiteId\": 82, \"IpAddr\": \"203.0.113.10\"}'\n"
    "    linkIp del demo:                        ./pdtool del_cpe_ip/\"clientid=1 wanid=1\"\n"
    "    set_cpe_ip                              ./pdtool set_cpe_ip/linkip\n"
    "    del_cpe_ip                              ./pdtool del_cpe_ip/\"clientid=1 wanid=1\"\n"
    "    set_pop_ip                              ./pdtool set_pop_ip/linkip\n"
    "    del_pop_ip                              ./pdtool del_pop_ip/\"clientid=1 wanid=1\"\n"
    "    link set/del:\n"
    "    set_link                                ./pdtool set_link/'{\"NetId\": 1, \"LinkId\": 1, \"Role\": true, \"Simu\": false, \"Type\": 2, \"PersistentFlag\": true, \"Mode\": 0, \"Thresh\": 3, \"ProtoVersion\": 1, \"WanId\": 1, \"LocalVpnId\": 0, \"PeerSiteIpId\": 1, \"PeerVpnId\": 0, \"LocalSitePort\": 49152, \"PeerSitePort\": 49152, \"PeerSiteId\": 82, \"PeerCustomerId\": 0, \"KeepaliveInterval\": 5, \"KeepaliveTimeout\": 30}'\n"
    "    del_link                                ./pdtool del_link/\"linkid=1 netid=1\"\n"
    "    tunnel set/del:\n"
    "    set_tunnel                              ./pdtool set_tunnel/'{\"Label\": 1, \"Vni\": 1, \"NetId\": 1, \"Mode\": 0, \"WanId\": 1, \"LanId\": 1, \"LocalIp\": \"198.51.100.2\", \"PeerIp\": \"203.0.113.10\", \"CustomerId\": 0, \"PeerHostId\": 82, \"PortSeed\": 1, \"ProtoVersion\": 1, \"C2PFlag\": true, \"PersistentFlag\": true, \"SessionId\": 1, \"Path\": [1], \"LinkNum\": 1, \"KeepaliveInterval\": 5, \"KeepaliveTimeout\": 30, \"TcpTunNum\": 0, \"UdpTunNum\": 1, \"Tos\": 0, \"EncryptAlgo\": 1, \"CryptoSuite\": 1, \"KeyLength\": 32, \"InputKey\": \"3c0f7a21d94e5b86a1f2c7d03e98b4a5 6d1e8c2f0b7a94d35e6c1f8a2b0d947\", \"HmacKeyLen\": 0, \"PeerUid\": \"pop-82\", \"SlaCfg\": {\"ConnSRttLow\": 15, \"ConnSRttHigh\": 21, \"ConnOutBWLow\": 0, \"ConnOutBWHigh\": 0, \"ConnJitterLow\": 0, \"ConnJitterHigh\": 0, \"ConnLossRateLow\": 10, \"ConnLossRateHigh\": 30}, \"TimeStamp\": 1767225600000, \"RatelimitInbound\": [1], \"RatelimitOutbound\": [1], \"BuddyConnId\": 0, \"MinTxKBps\": 0}'\n"
    "    del_tunnel                              ./pdtool del_tunnel/\"netid=1 label=1 vni=1\"\n"
    "    set_conn_cmd                            ./pdtool set_conn_cmd/'{ \"Type\": 25, \"Lenth\": 8, \"Value64\": 104448000}'\n"
    "For Netio module:\n"
    "    set_lan_if                              ./pdtool set_lan_if/'{\"Id\": 1, \"Name\": \"lan1\", \"Ip\": \"192.168.10.1\", \"Mask\": 24, \"Mtu\": 1500, \"DhcpEnable\": true, \"DhcpStart\": \"192.168.10.100\", \"DhcpEnd\": \"192.168.10.199\"}'\n"
    "    del_lan_if                              ./pdtool del_lan_if/\"id=1\"\n"
    "    get_lan_if                              ./pdtool get_lan_if\n"
    "    set_wan_if                              ./pdtool set_wan_if/'{\"Id\": 1, \"Name\": \"wan1\", \"Mode\": \"static\", \"Ip\": \"198.51.100.2\", \"Mask\": 24, \"Gateway\": \"198.51.100.1\", \"Dns\": \"198.51.100.53\", \"Mtu\": 1500}'\n"
    "    del_wan_if                              ./pdtool del_wan_if/\"id=1\"\n"
    "    get_wan_if                              ./pdtool get_wan_if\n"
    "For RateLimit module:\n"
    "    set_ratelimit                           ./pdtool set_ratelimit/'{\"RateLimitId\": 1, \"BucketRate\": 0, \"CBS\": 0, \"TokenBonus\": 0, \"Type\": 1, \"PerIpBucketRate\": 0, \"PerIpCBS\": 0, \"UpdateType\": 1, \"UpdateBucketRate\": 0, \"UpdateCBS\": 0, \"UpdateTokenBonus\": 0, \"UpdatePerIpBucketRate\": 0, \"UpdatePerIpCBS\": 0, \"PersistentFlag\": true}'\n"
    "    del_ratelimit                           ./pdtool del_ratelimit/\"id=1\"\n"
    "For Engine module:\n"
    "    set_engine_pcapEnable                   ./pdtool set_engine_pcapEnable/\"wanid=1 value=1\"\n"
    "    set_engine_wanKbps                      ./pdtool set_engine_wanKbps/\"wanid=1 value=1\"\n"
    "    set_engine_wanBurstBytes                ./pdtool set_engine_wanBurstBytes/\"wanid=1 value=1\"\n"
    "    set_engine_tcpAccEnable                 ./pdtool set_engine_tcpAccEnable/\"wanid=1 value=1\"\n"
    "    set_engine_subnetAccEnable              ./pdtool set_engine_subnetAccEnable/\"wanid=1 value=1\"\n"
    "    set_engine_shaperEnable                 ./pdtool set_engine_shaperEnable/\"wanid=1 value=1\"\n"
    "    set_engine_hostFairTcpAccSessNum        ./pdtool set_engine_hostFairTcpAccSessNum/\"wanid=1 value=1\"\n"
    "    set_engine_hostFairEnable               ./pdtool set_engine_hostFairEnable/\"wanid=1 value=1\"\n"
    "    set_engine_wanInBurstBytes              ./pdtool set_engine_wanInBurstBytes/\"wanid=1 value=1\"\n"
    "    set_engine_hostFairUdpSessNum           ./pdtool set_engine_hostFairUdpSessNum/\"wanid=1 value=1\"\n"
    "    set_engine_cmd                          ./pdtool set_engine_cmd/\"wanid=1 value=1\"\n"
    "    set_engine_hostFairTcpActSessNum        ./pdtool set_engine_hostFairTcpActSessNum/\"wanid=1 value=1\"\n"
    "    set_engine_trackRandomLoss              ./pdtool set_engine_trackRandomLoss/\"wanid=1 value=1\"\n"
    "    set_engine_conservMode                  ./pdtool set_engine_conservMode/\"wanid=1 value=1\"\n"
    "    set_engine_engSysEnable                 ./pdtool set_engine_engSysEnable/\"wanid=1 value=1\"\n"
    "    set_engine_srtt                         ./pdtool set_engine_srtt/\"wanid=1 value=1\"\n"
    "    set_engine_pcapEnable                   ./pdtool set_engine_pcapEnable/\"wanid=1 value=1\"\n"
    "For Shaper module:\n"
    "    set_shaper_conf                         ./pdtool set_shaper_conf/'{\"shaperId\": 1, \"persistentFlag\": true, \"wanKbps\": 100000, \"wanInKbps\": 100000, \"inBurstMs\": 100, \"outBurstMs\": 100, \"bandDist\": [2, 2, 8, 8, 8, 8, 8, 0], \"bandLimit\": {\"sharePriority\": 2, \"num\": 1, \"bandLimit\": [{\"priority\": 2, \"inkbps\": 1000000, \"outkbps\": 1000000}]}}'\n"
    "    del_shaper_conf                         ./pdtool del_shaper_conf/\"shaperId=1\"\n"
    "    get_shaper_conf                         ./pdtool get_shaper_conf/\"shaperId=1\"\n"
    "    get_shaper_tbl                          ./pdtool get_shaper_tbl\n"
    "    get_sa_cluster                          ./pdtool get_sa_cluster\n";
// clang-format on
