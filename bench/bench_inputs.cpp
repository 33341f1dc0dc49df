// Benchmark inputs: the usage samples as pdtool prints them, and maximal texts
// built from the record capacities, so a change of capacity changes the input.
#include "bench/bench_inputs.h"

#include "agentconf/acsname.h"
#include "agentconf/conn.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "base/log.h"
#include "cli/usage.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

// Appends "[item(0), item(1), ...]" with n items.
template <typename ItemFn>
std::string List(size_t n, ItemFn &&item) {
    std::string out = "[";
    for (size_t i = 0; i < n; ++i) {
        if (i != 0) {
            out += ", ";
        }
        out += item(i);
    }
    return out + "]";
}

std::string Fmt(const char *fmt, ...) OV_PRINTF_FMT(1, 2);
std::string Fmt(const char *fmt, ...) {
    char buf[256];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return buf;
}

std::string Ipv4(size_t i) {
    return Fmt("10.%zu.%zu.0", (i >> 8) & 0xFF, i & 0xFF);
}

std::string Ipv6(size_t i) {
    return Fmt("2001:db8:%zx:%zx::", (i >> 16) & 0xFFFF, i & 0xFFFF);
}

std::string Ints(size_t n, size_t base) {
    return List(n, [base](size_t i) { return std::to_string(base + i); });
}

std::string IfPorts(size_t n) {
    return List(n, [](size_t i) { return Fmt(R"({"Type": 1, "Id": %zu})", i + 1); });
}

std::string PortRanges(size_t n) {
    return List(n, [](size_t i) {
        return Fmt(R"({"LowerPort": %zu, "UpperPort": %zu})", 1024 + i * 60, 1024 + i * 60 + 59);
    });
}

// Every match and action list at the capacity of its field in the record:
// IPv4 source prefixes, IPv6 destination prefixes, both port lists, every
// number list, both interface lists, the output array and a NAT prefix list.
std::string MaxRule() {
    const size_t prefixes = AGENT_RULE_MAX_PREFIXES;
    std::string match = "{";
    match += Fmt(R"("SrcIpNum": %zu, "DstIpNum": %zu, )", prefixes, prefixes);
    match += Fmt(R"("SrcPortNum": %zu, "DstPortNum": %zu, )", AGENT_RULE_MAX_PORT_RANGES,
                 AGENT_RULE_MAX_PORT_RANGES);
    match += Fmt(R"("EthTypeNum": %zu, "ProtoNum": %zu, "DscpNum": %zu, )",
                 AGENT_RULE_MAX_ETH_TYPES, AGENT_RULE_MAX_PROTOS, AGENT_RULE_MAX_DSCPS);
    match += Fmt(R"("TransIdNum": %zu, "InPortNum": %zu, "OutPortNum": %zu, )",
                 AGENT_RULE_MAX_TRANS_IDS, AGENT_RULE_MAX_IF_PORTS, AGENT_RULE_MAX_IF_PORTS);
    match += R"("InVpnFlag": true, "InVpnId": 7, "InPolicyFlag": true, "InPolicyId": 9, )"
             R"("DstCustomerId": 3, "DstClientId": 4, )";
    match += R"("SrcIp": )" + List(prefixes, [](size_t i) {
                 return R"({"IpType": 0, "Ip": ")" + Ipv4(i) + R"(", "Mask": 24})";
             });
    match += R"(, "DstIp": )" + List(prefixes, [](size_t i) {
                 return R"({"IpType": 1, "Ip6": ")" + Ipv6(i) + R"(", "Mask": 64})";
             });
    match += R"(, "SrcPort": )" + PortRanges(AGENT_RULE_MAX_PORT_RANGES);
    match += R"(, "DstPort": )" + PortRanges(AGENT_RULE_MAX_PORT_RANGES);
    match += R"(, "EthType": )" + Ints(AGENT_RULE_MAX_ETH_TYPES, 2048);
    match += R"(, "Proto": )" + Ints(AGENT_RULE_MAX_PROTOS, 1);
    match += R"(, "Dscp": )" + Ints(AGENT_RULE_MAX_DSCPS, 0);
    match += R"(, "TransId": )" + Ints(AGENT_RULE_MAX_TRANS_IDS, 100);
    match += R"(, "InPort": )" + IfPorts(AGENT_RULE_MAX_IF_PORTS);
    match += R"(, "OutPort": )" + IfPorts(AGENT_RULE_MAX_IF_PORTS);
    match += "}";

    std::string actions = R"({"SnatFlag": true, "DnatFlag": false, "AcceFlag": true, )"
                          R"("SetVpnFlag": true, "SetDscpFlag": true, "SetPolicyFlag": true, )"
                          R"("SetVpnId": 5, "SetPolicyId": 6, "SetDscpValue": 46, )"
                          R"("OutputType": 1, "OutputStrategy": 1, )"
                          R"("InboundRateLimitId": 1, "OutboundRateLimitId": 2, )";
    actions += Fmt(R"("OutputNum": %zu, "OutputArray": )", AGENT_RULE_MAX_OUTPUTS);
    actions += List(AGENT_RULE_MAX_OUTPUTS, [](size_t i) {
        return Fmt(R"({"Id": %zu, "Priority": true, "Type": 1, "Probe": false})", i + 1);
    });
    actions += R"(, "NatInfo": {"NatMode": 1, "NatIpMode": 1, "IpType": 0, )"
               R"("PortRange": {"Min": 1024, "Max": 65535}, "IpMasks": )";
    actions += List(prefixes, [](size_t i) {
        return R"({"IpType": 0, "Ip": ")" + Ipv4(i) + R"(", "Mask": 32})";
    });
    actions += "}}";

    return R"({"Table": 0, "Zone": 1, "DualFlag": false, "InvalidFlag": false, )"
           R"("ExcluFlag": false, "RevalFlag": false, "L2Flag": false, "L3Flag": true, )"
           R"("Id": 1, "RuleVer": 1, "VpnId": 1, "CustomerId": 9, "Match": )" +
           match + R"(, "Actions": )" + actions + "}";
}

// Both band-limit blocks with every item, and every distribution weight.
std::string MaxShaper() {
    auto block = [](size_t base) {
        return Fmt(R"({"sharePriority": 2, "num": %zu, "bandLimit": )", OV_SHAPER_BLOCK_ITEMS) +
               List(OV_SHAPER_BLOCK_ITEMS,
                    [base](size_t i) {
                        return Fmt(R"({"priority": %zu, "inkbps": %zu, "outkbps": %zu})", i,
                                   base + i * 1000, base + i * 2000);
                    }) +
               "}";
    };
    return R"({"shaperId": 255, "sharedNum": 4, "persistentFlag": true, "wanKbps": 1000000, )"
           R"("wanInKbps": 1000000, "inBurstMs": 100, "outBurstMs": 100, )"
           R"("bandDist": [2, 2, 8, 8, 8, 8, 8, 6], "bandLimit": )" +
           block(100000) + R"(, "guaranteeBandLimit": )" + block(50000) + "}";
}

// Every key of the tunnel, the three id arrays full and both keys at length.
std::string MaxConn() {
    std::string key(OV_CONN_CIPHER_KEY_LEN - 1, 'a');
    std::string hmac(OV_CONN_HMAC_KEY_LEN - 1, 'b');
    std::string ids = Ints(OV_CONN_ID_SLOTS, 1);
    return R"({"VpnId": 1, "Label": 100, "Vni": 1, "NetId": 1, "Mode": 0, "WanId": 1, )"
           R"("LanId": 1, "IsIpv6LttFlag": false, "LocalIp": "198.51.100.2", )"
           R"("PeerIp": "203.0.113.10", "LocalIp6": "2001:db8::2", "PeerIp6": "2001:db8::10", )"
           R"("CustomerId": 7, "PeerHostId": 82, "PortSeed": 1, "ProtoVersion": 1, )"
           R"("C2PFlag": true, "PassiveFlag": false, "MasterFlag": true, "PersistentFlag": true, )"
           R"("ClearDFFlag": true, "MaxTxModeFlag": false, "L2OnlyEncapIpHdrFlag": false, )"
           R"("MinUsage": false, "BackupFlag": false, "SimUserFlowFlag": false, )"
           R"("LttDelEopResetFlag": false, "SessionId": 1, "Path": )" +
           ids +
           R"(, "LinkNum": 6, "KeepaliveInterval": 5, "KeepaliveTimeout": 30, "TcpTunNum": 2, )"
           R"("UdpTunNum": 4, "Tos": 0, "EncryptAlgo": 1, "CryptoSuite": 1, "CipherKeyLen": 32, )"
           R"("HmacKeyLen": 32, "CipherKey": ")" +
           key + R"(", "HmacKey": ")" + hmac +
           R"(", "PeerUid": "pop-82", "InitRtt": 20, "CfgMtu": 1400, "KeyTimestamp": 1, )"
           R"("SlaCfg": {"ConnSRttLow": 15, "ConnSRttHigh": 21, "ConnOutBWLow": 1, )"
           R"("ConnOutBWHigh": 2, "ConnJitterLow": 3, "ConnJitterHigh": 4, )"
           R"("ConnLossRateLow": 10, "ConnLossRateHigh": 30}, "TimeStamp": 1767225600000, )"
           R"("RatelimitInbound": )" +
           ids + R"(, "RatelimitOutbound": )" + ids + R"(, "BuddyConnId": 2, "MinTxKBps": 100})";
}

// Every set name, and the address and domain arrays at their capacity.
std::string MaxAcsName() {
    auto names = [](const std::string &stem) {
        return List(ACSNAME_SET_MAX,
                    [&stem](size_t i) { return "\"" + stem + std::to_string(i) + "\""; });
    };
    const size_t half = ACSNAME_ADDR_MAX / 2;
    return R"({"id": 5, "ascname": "corp", "version": 1, "persistentFlag": true, )"
           R"("hasdomainsetid": true, "ipset": )" +
           names("ipset-") + R"(, "domainset": )" + names("domainset-") + R"(, "iplist": )" +
           List(half, [](size_t i) { return "\"" + Ipv4(i) + "/24\""; }) + R"(, "ipv6list": )" +
           List(ACSNAME_ADDR_MAX - half, [](size_t i) { return "\"" + Ipv6(i) + "/64\""; }) +
           R"(, "domainlist": )" +
           List(ACSNAME_DOMAIN_MAX, [](size_t i) { return Fmt(R"("host%zu.example.com")", i); }) +
           R"(, "Probe": {"Enable": true, "Protocol": 6, "Port": 443, "Interval": 5, )"
           R"("Timeout": 2, "Retries": 3, "Ip": "198.51.100.7", "Host": "probe.example.com"}})";
}

std::vector<BenchInput> BuildInputs() {
    // The usage text's tunnel sample has no VpnId and is refused at once;
    // with one it converts the way an operator's tunnel text does.
    std::string tunnel = kUsageTunnelSample;
    tunnel.insert(1, R"("VpnId": 1, )");
    return {
        {"ratelimit", "usage", kUsageRatelimitSample},
        {"ratelimit", "max",
         R"({"RateLimitId": 1, "RateLimitObjId": 2, "CustomerId": 3, "BucketRate": 125000, )"
         R"("CBS": 250000, "Type": 0, "PerSrcIpBucketRate": 1000, "PerSrcIpCBS": 2000, )"
         R"("PerDstIpBucketRate": 3000, "PerDstIpCBS": 4000, "UpdateType": true, )"
         R"("UpdateBucketRate": true, "UpdateCBS": true, "UpdatePerSrcIpBucketRate": true, )"
         R"("UpdatePerDstIpBucketRate": true, "UpdatePerSrcIpCBS": true, )"
         R"("UpdatePerDstIpCBS": true, "PersistentFlag": true})"},
        {"rule", "usage", kUsageRuleSample},
        {"rule", "max", MaxRule()},
        {"conn", "usage", tunnel},
        {"conn", "max", MaxConn()},
        {"linkip", "usage", kUsageLinkIpSample},
        {"linkip", "max",
         R"({"Type": 2, "VpnId": 3, "SiteIpId": 1, "PersistentFlag": true, "CustomerId": 7, )"
         R"("SiteId": 82, "IpAddr": "203.0.113.10", "Ip6Addr": "2001:db8:ffff::10"})"},
        {"link", "usage", kUsageLinkSample},
        {"link", "max",
         R"({"NetId": 1, "LinkId": 1, "Role": true, "Simu": false, "Type": 2, )"
         R"("PersistentFlag": true, "Ipv6Flag": true, "Leased": true, "Mode": 0, "Thresh": 3, )"
         R"("ProtoVersion": 1, "WanId": 1, "LocalVpnId": 2, "PeerSiteIpId": 1, "PeerVpnId": 3, )"
         R"("LocalSitePort": 49152, "PeerSitePort": 49152, "PeerSiteId": 82, )"
         R"("PeerCustomerId": 4, "KeepaliveInterval": 5, "KeepaliveTimeout": 30})"},
        {"globalarg", "usage", kUsageConnCmdSample},
        {"shaper", "usage", kUsageShaperSample},
        {"shaper", "max", MaxShaper()},
        {"acsname", "usage",
         R"({"id": 5, "ascname": "corp", "version": 1, "iplist": ["10.1.0.0/16"], )"
         R"("domainlist": ["example.com"]})"},
        {"acsname", "max", MaxAcsName()},
    };
}

} // namespace

const std::vector<BenchInput> &BenchConverterInputs() {
    static const std::vector<BenchInput> inputs = BuildInputs();
    return inputs;
}
