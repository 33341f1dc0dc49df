// The set, delete and engine command handlers: each fills one zeroed record
// (through a converter, or from key=value pairs) and sends it to the agent.
#include "cli/handlers.h"

#include "agentconf/acsname.h"
#include "agentconf/acsname_entries.h"
#include "agentconf/conn.h"
#include "agentconf/engine.h"
#include "agentconf/globalarg.h"
#include "agentconf/link.h"
#include "agentconf/protocol.h"
#include "agentconf/ratelimit.h"
#include "agentconf/rule.h"
#include "agentconf/shaper.h"
#include "cli/cmd.h"
#include "cli/kvscan.h"
#include "imc/conf_client.h"

#include <cstring>
#include <initializer_list>

namespace {

// Module and function numbers come from the protocol description. Link-IP
// records name their command: the record's type picks the CPE or POP side.
constexpr uint8_t kModuleConn = OV_ModuleOf(RecordKind::Conn);
constexpr uint8_t kModuleRule = OV_ModuleOf(RecordKind::Rule);
constexpr uint8_t kModuleAcsName = OV_ModuleOf(RecordKind::AcsName);
constexpr uint8_t kModuleEngine = OV_ModuleOf(RecordKind::Engine);
constexpr uint8_t kModuleRatelimit = OV_ModuleOf(RecordKind::Ratelimit);
constexpr uint8_t kModuleShaper = OV_ModuleOf(RecordKind::Shaper);
static_assert(OV_ModuleOf(RecordKind::LinkIp) == kModuleConn &&
              OV_ModuleOf(RecordKind::Link) == kModuleConn &&
              OV_ModuleOf(RecordKind::GlobalArg) == kModuleConn);

constexpr uint16_t kFuncCpeIpSet = OV_Command("set_cpe_ip").function;
constexpr uint16_t kFuncPopIpSet = OV_Command("set_pop_ip").function;
constexpr uint16_t kFuncCpeIpDel = OV_Command("del_cpe_ip").function;
constexpr uint16_t kFuncLinkSet = OV_FunctionOf(RecordKind::Link, CmdOp::Set);
constexpr uint16_t kFuncLinkDel = OV_FunctionOf(RecordKind::Link, CmdOp::Delete);
constexpr uint16_t kFuncTunnelSet = OV_FunctionOf(RecordKind::Conn, CmdOp::Set);
constexpr uint16_t kFuncTunnelDel = OV_FunctionOf(RecordKind::Conn, CmdOp::Delete);
constexpr uint16_t kFuncConnCmd = OV_FunctionOf(RecordKind::GlobalArg, CmdOp::Set);
constexpr uint16_t kFuncShaperSet = OV_FunctionOf(RecordKind::Shaper, CmdOp::Set);
constexpr uint16_t kFuncShaperDel = OV_FunctionOf(RecordKind::Shaper, CmdOp::Delete);
constexpr uint16_t kFuncRatelimitSet = OV_FunctionOf(RecordKind::Ratelimit, CmdOp::Set);
constexpr uint16_t kFuncRatelimitDel = OV_FunctionOf(RecordKind::Ratelimit, CmdOp::Delete);
constexpr uint16_t kFuncAcsNameSet = OV_FunctionOf(RecordKind::AcsName, CmdOp::Set);
constexpr uint16_t kFuncAcsNameDel = OV_FunctionOf(RecordKind::AcsName, CmdOp::Delete);
constexpr uint16_t kFuncEngine = OV_FunctionOf(RecordKind::Engine, CmdOp::Set);

bool NullArg(const char *arg) {
    if (arg == nullptr) {
        PrintOut("Invalid arg(null)\n");
        return true;
    }
    return false;
}

bool HasKeys(const char *arg, std::initializer_list<const char *> keys) {
    for (const char *key : keys) {
        if (std::strstr(arg, key) == nullptr) {
            return false;
        }
    }
    return true;
}

// Converts the JSON argument into a zeroed record and sends it.
template <typename Conf>
int32_t ConvertAndSend(const char *arg, int32_t (*convert)(Conf *, const char *),
                       const char *failLine, uint8_t module, uint16_t func) {
    if (NullArg(arg)) {
        return -22;
    }
    // The record lives here, zeroed in full; the largest (a rule) is 17.5 KB.
    Conf conf;
    std::memset(&conf, 0, sizeof conf);
    int32_t ret = convert(&conf, arg);
    if (ret < 0) {
        PrintOut("%s", failLine);
        return ret;
    }
    return CmdConfSet(module, func, &conf, sizeof conf);
}

int32_t SendAcsNameEntries(uint16_t function, const void *payload, uint32_t len, void * /*ctx*/) {
    return CmdConfSet(kModuleAcsName, function, payload, len);
}

} // namespace

int32_t CmdRuleSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t id) {
    return ConvertAndSend(arg, OV_AgentRuleJsonStrToConf, "Convert rule json str to conf failed\n",
                          kModuleRule, id);
}

int32_t CmdLinkIpSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    AgentLinkIpConf conf;
    std::memset(&conf, 0, sizeof conf);
    int32_t ret = OV_AgentLinkIpJsonStrToConf(&conf, arg);
    if (ret < 0) {
        PrintOut("Convert LinkIp json str to conf failed\n");
        return ret;
    }
    // The record's own type picks the side, whatever the command word said:
    // set_pop_ip with type 1 configures the CPE side (intended).
    switch (conf.type) {
    case 1:
        return CmdConfSet(kModuleConn, kFuncCpeIpSet, &conf, sizeof conf);
    case 2:
        return CmdConfSet(kModuleConn, kFuncPopIpSet, &conf, sizeof conf);
    default:
        return ret; // nothing to send for other types
    }
}

int32_t CmdLinkSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    return ConvertAndSend(arg, OV_AgentLinkJsonStrToConf, "Convert Link json str to conf failed\n",
                          kModuleConn, kFuncLinkSet);
}

int32_t CmdConnSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    return ConvertAndSend(arg, OV_AgentConnJsonStrToConf, "Convert conn json str to conf failed\n",
                          kModuleConn, kFuncTunnelSet);
}

int32_t CmdConnCmdSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    return ConvertAndSend(arg, OV_AgentDpGlobalArgJsonStrToConf,
                          "Convert dp global arg json str to conf failed\n", kModuleConn,
                          kFuncConnCmd);
}

int32_t CmdShaperSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    return ConvertAndSend(arg, OV_AgentShaperJsonStrToConf,
                          "Convert shaper json str to conf failed\n", kModuleShaper,
                          kFuncShaperSet);
}

int32_t CmdRatelimitSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    return ConvertAndSend(arg, OV_AgentRatelimitJsonStrToConf,
                          "Convert ratelimit json str to conf failed\n", kModuleRatelimit,
                          kFuncRatelimitSet);
}

int32_t CmdAcsNameSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    AgentAcsNameConf conf;
    std::memset(&conf, 0, sizeof conf);
    AgentAcsNameEntries entries{};
    int32_t ret = OV_AgentAcsNameJsonStrToConf(&conf, &entries, arg);
    if (ret >= 0) {
        // The entries follow a record the agent has accepted; the first
        // refusal or transport failure ends the command with its code.
        ret = CmdConfSet(kModuleAcsName, kFuncAcsNameSet, &conf, sizeof conf);
        if (ret >= 0) {
            ret = OV_AgentAcsNameSendEntries(&conf, &entries, SendAcsNameEntries, nullptr);
        }
    } else {
        PrintOut("Convert acsname json str to conf failed\n");
    }
    OV_AgentAcsNameEntriesRelease(&entries);
    return ret;
}

int32_t CmdRuleDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t id) {
    if (NullArg(arg)) {
        return -22;
    }
    // "id=" is also satisfied by the "id=" inside any longer key.
    if (!HasKeys(arg, {"zone=", "id="})) {
        PrintOut("Missing expected args zone/id\n");
        return -22;
    }
    uint32_t zone = 0;
    uint32_t ruleId = 0;
    const KvScanTarget targets[] = {{&zone, nullptr, 0}, {&ruleId, nullptr, 0}};
    KvScan(arg, "zone=%u id=%u", targets, 2);
    AgentRuleConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.base.zone = static_cast<uint8_t>(zone);
    conf.base.id = ruleId;
    return CmdConfSet(kModuleRule, id, &conf, sizeof conf);
}

int32_t CmdLinkIpDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t id) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"clientid=", "vpnid=", "wanid="})) {
        PrintOut("Missing expected args clientid or vpnid or wanid\n");
        return -22;
    }
    uint32_t clientId = 0;
    uint32_t vpnId = 0;
    uint32_t wanId = 0;
    const KvScanTarget targets[] = {
        {&clientId, nullptr, 0}, {&vpnId, nullptr, 0}, {&wanId, nullptr, 0}};
    KvScan(arg, "clientid=%u vpnid=%u wanid=%u", targets, 3);
    AgentLinkIpConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.type = id == kFuncCpeIpDel ? 1 : 2;
    conf.siteIpId = static_cast<uint8_t>(wanId); // byte 1
    conf.siteId = clientId;                      // u32 at 8
    conf.vpnId = vpnId;                          // u32 at 12
    return CmdConfSet(kModuleConn, id, &conf, sizeof conf);
}

int32_t CmdLinkDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"linkid=", "netid="})) {
        PrintOut("Missing expected args linkid or netid\n");
        return -22;
    }
    // One scan from the first character: "netid=1 linkid=2" sends zeros (kept).
    uint32_t linkId = 0;
    uint32_t netId = 0;
    const KvScanTarget targets[] = {{&linkId, nullptr, 0}, {&netId, nullptr, 0}};
    KvScan(arg, "linkid=%u netid=%u", targets, 2);
    AgentLinkConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.netId = netId & 0xFF;
    conf.linkIdWord = linkId & LINK_ID_MASK;
    return CmdConfSet(kModuleConn, kFuncLinkDel, &conf, sizeof conf);
}

int32_t CmdConnDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"label=", "netid=", "vni="})) {
        PrintOut("Missing expected args label/netid/vni\n");
        return -22;
    }
    uint32_t netId = 0;
    uint32_t label = 0;
    uint32_t vni = 0;
    const KvScanTarget targets[] = {{&netId, nullptr, 0}, {&label, nullptr, 0}, {&vni, nullptr, 0}};
    KvScan(arg, "netid=%u label=%u vni=%u", targets, 3);
    AgentConnConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.labelVniNetId = ((netId & OV_CONN_NETID_MASK) << OV_CONN_NETID_SHIFT) |
                         ((vni & OV_CONN_VNI_MASK) << OV_CONN_VNI_SHIFT) |
                         ((label & OV_CONN_LABEL_MASK) << OV_CONN_LABEL_SHIFT);
    conf.timeStamp = -1; // all ones marks a delete
    return CmdConfSet(kModuleConn, kFuncTunnelDel, &conf, sizeof conf);
}

int32_t CmdShaperDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    uint8_t shaperId = 0;
    if (!ShaperIdArg(arg, &shaperId)) {
        return -22;
    }
    AgentShaperConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.shaperId = shaperId;
    return CmdConfSet(kModuleShaper, kFuncShaperDel, &conf, sizeof conf);
}

bool ShaperIdArg(const char *arg, uint8_t *id) {
    int32_t shaperId = 0;
    if (!KvNumberAfter(arg, "shaperId=", &shaperId)) {
        PrintOut("Missing expected args shaperId\n");
        return false;
    }
    if (shaperId < 0 || shaperId > 255) {
        PrintOut("shaperId = %d invalid.\n", shaperId);
        return false;
    }
    *id = static_cast<uint8_t>(shaperId);
    return true;
}

int32_t CmdRatelimitDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"id="})) {
        PrintOut("Missing expected args id\n");
        return -22;
    }
    AgentRatelimitConf conf;
    std::memset(&conf, 0, sizeof conf);
    const KvScanTarget targets[] = {{&conf.rateLimitId, nullptr, 0}};
    KvScan(arg, "id=%u", targets, 1);
    return CmdConfSet(kModuleRatelimit, kFuncRatelimitDel, &conf, sizeof conf);
}

int32_t CmdAcsNameDel(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t /*id*/) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"name="})) {
        PrintOut("Missing expected args name\n");
        return -22;
    }
    AgentAcsNameConf conf;
    std::memset(&conf, 0, sizeof conf);
    const KvScanTarget targets[] = {{nullptr, conf.name, sizeof conf.name}};
    KvScan(arg, "name=%s", targets, 1);
    return CmdConfSet(kModuleAcsName, kFuncAcsNameDel, &conf, sizeof conf);
}

int32_t CmdEngineParamSet(const char *arg, char * /*out*/, uint32_t /*outLen*/, uint16_t id) {
    if (NullArg(arg)) {
        return -22;
    }
    if (!HasKeys(arg, {"wanid=", "value="})) {
        PrintOut("Missing expected args wanid/value\n");
        return -22;
    }
    AgentEngineParamConf conf;
    std::memset(&conf, 0, sizeof conf);
    // The wanid is only required, never read: every parameter goes to WAN
    // index 0. The value is read only when the argument begins with "value=",
    // so "wanid=1 value=1" sends 0. Both kept as the tool has always done.
    conf.wanIndex = 0;
    conf.paramCode = static_cast<uint8_t>(id & 0xFF);
    const KvScanTarget targets[] = {{&conf.value, nullptr, 0}};
    KvScan(arg, "value=%u", targets, 1);
    return CmdConfSet(kModuleEngine, kFuncEngine, &conf, sizeof conf);
}
