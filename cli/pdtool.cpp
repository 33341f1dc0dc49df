// pdtool's run: start-up, the command table and its dispatcher, clean-up.
#include "agentconf/json_conv.h"
#include "base/errors.h"
#include "base/mem.h"
#include "base/platform.h"
#include "base/socket.h"
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "imc/conf_client.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

// Rows 7 and 8 (set_dns, del_dns) are prefixes of rows 9 and 10 and stand
// before them, so "set_dns_proxy" runs with id 0x0300: kept on purpose.
const CmdEntry g_cmdTable[CMD_TABLE_ROWS] = {
    {"set_policy", CmdRuleSet, 0x0000},
    {"del_policy", CmdRuleDel, 0x0002},
    {"set_snat", CmdRuleSet, 0x0100},
    {"del_snat", CmdRuleDel, 0x0102},
    {"set_dnat", CmdRuleSet, 0x0200},
    {"del_dnat", CmdRuleDel, 0x0202},
    {"set_dns", CmdRuleSet, 0x0300},
    {"del_dns", CmdRuleDel, 0x0302},
    {"set_dns_proxy", CmdRuleSet, 0x0400},
    {"del_dns_proxy", CmdRuleDel, 0x0402},
    {"set_cpe_ip", CmdLinkIpSet, 0x0005},
    {"del_cpe_ip", CmdLinkIpDel, 0x0006},
    {"set_pop_ip", CmdLinkIpSet, 0x0009},
    {"del_pop_ip", CmdLinkIpDel, 0x000a},
    {"set_link", CmdLinkSet, 0x000d},
    {"del_link", CmdLinkDel, 0x000e},
    {"set_tunnel", CmdConnSet, 0x0012},
    {"del_tunnel", CmdConnDel, 0x0013},
    {"set_conn_cmd", CmdConnCmdSet, 0x001a},
    {"set_shaper_conf", CmdShaperSet, 0x0001},
    {"del_shaper_conf", CmdShaperDel, 0x0002},
    {"get_shaper_conf", CmdShaperGet, 0x0003},
    {"get_shaper_tbl", CmdShaperTblGet, 0x0004},
    {"get_sa_cluster", CmdSaClusterGet, 0x0007},
    {"set_ratelimit", CmdRatelimitSet, 0x0001},
    {"del_ratelimit", CmdRatelimitDel, 0x0002},
    {"set_acsname", CmdAcsNameSet, 0x0000},
    {"del_acsname", CmdAcsNameDel, 0x0001},
    {"set_engine_pcapEnable", CmdEngineParamSet, 0x000a},
    {"set_engine_wanKbps", CmdEngineParamSet, 0x0001},
    {"set_engine_wanBurstBytes", CmdEngineParamSet, 0x0002},
    {"set_engine_tcpAccEnable", CmdEngineParamSet, 0x0003},
    {"set_engine_subnetAccEnable", CmdEngineParamSet, 0x0005},
    {"set_engine_shaperEnable", CmdEngineParamSet, 0x0006},
    {"set_engine_hostFairTcpAccSessNum", CmdEngineParamSet, 0x0009},
    {"set_engine_hostFairEnable", CmdEngineParamSet, 0x000b},
    {"set_engine_wanInKbps", CmdEngineParamSet, 0x000c},
    {"set_engine_wanInBurstBytes", CmdEngineParamSet, 0x000d},
    {"set_engine_hostFairUdpSessNum", CmdEngineParamSet, 0x000e},
    {"set_engine_cmd", CmdEngineParamSet, 0x000f},
    {"set_engine_hostFairTcpActSessNum", CmdEngineParamSet, 0x0010},
    {"set_engine_trackRandomLoss", CmdEngineParamSet, 0x0011},
    {"set_engine_maxTxEnable", CmdEngineParamSet, 0x0012},
    {"set_engine_conservMode", CmdEngineParamSet, 0x0013},
    {"set_engine_engSysEnable", CmdEngineParamSet, 0x0014},
    {"set_engine_srtt", CmdEngineParamSet, 0x0015},
};

int PrintOut(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = std::vprintf(fmt, ap);
    va_end(ap);
    return n;
}

int32_t CmdDispatch(const char *word) {
    char out[CMD_OUT_BUF_LEN];
    std::memset(out, 0, sizeof out);

    const CmdEntry *row = nullptr;
    for (const CmdEntry &entry : g_cmdTable) {
        // A prefix match, case-sensitive: the word only has to begin with the name.
        if (std::strncmp(word, entry.name, std::strlen(entry.name)) == 0) {
            row = &entry;
            break;
        }
    }
    if (row == nullptr) {
        PrintOut("invalid command %s, please refer to help", word);
        return 0;
    }

    const char *slash = std::strchr(word, '/');
    const char *arg = slash != nullptr ? slash + 1 : nullptr;
    int32_t ret = row->handler(arg, out, CMD_OUT_BUF_LEN, row->id);
    out[CMD_OUT_BUF_LEN - 1] = '\0'; // whatever a handler left, print a bounded text

    if (ret < 0) {
        // An agent's status arrives here unchanged, and INT32_MIN has no
        // positive counterpart: it is looked up as an unknown number.
        PrintOut("Operation failed ret = %d (%s)", ret,
                 OV_StrError(ret == INT32_MIN ? INT32_MAX : -ret));
    } else {
        PrintOut("Operation success\n");
        if (out[0] != '\0') {
            PrintOut("%s\n", out);
        }
    }
    return ret;
}

namespace {

// OV_PIPE_NAME picks another pipe than "imc_config_pipe" (an agent started
// under another name, or a test's private agent). Only plain names are taken.
void ApplyPipeNameOverride() {
    const char *name = std::getenv("OV_PIPE_NAME");
    if (name == nullptr || *name == '\0') {
        return;
    }
    constexpr size_t kMaxName = 200;
    size_t len = std::strlen(name);
    bool plain = len <= kMaxName;
    for (size_t i = 0; plain && i < len; ++i) {
        char c = name[i];
        plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                c == '_' || c == '-' || c == '.';
    }
    if (!plain) {
        std::fprintf(stderr, "pdtool: OV_PIPE_NAME is not a plain pipe name; using the default\n");
        return;
    }
    wchar_t full[kMaxName + 16] = L"\\\\.\\pipe\\";
    size_t prefix = std::wcslen(full);
    for (size_t i = 0; i < len; ++i) {
        full[prefix + i] = static_cast<wchar_t>(name[i]);
    }
    full[prefix + len] = L'\0';
    OV_ImcConfClientSetPipeName(full);
}

} // namespace

int PdtoolMain(int argc, char **argv) {
    OV_SetStdoutBinary();
    // One run prints a dozen lines and flushes them at the end: one write
    // instead of one per line (a terminal still gets each line at once).
    OV_LogSetFlushEachLine(false);
    int32_t status = 0;
    bool socketsUp = false;
    bool clientUp = false;
    bool confLogUp = false;

    if (argc <= 1) {
        PrintOut("%s", CmdUsage);
        status = -22;
    } else if (int32_t rc = OV_SocketAPIInit(); rc != 0) {
        PrintOut("OV_SocketAPIInit failed %d %s\n", rc, OV_StrError(-rc));
        status = rc;
    } else {
        socketsUp = true;
        ApplyPipeNameOverride();
        if (rc = OV_ImcConfClientInit(); rc < 0) {
            PrintOut("Imc configure client init failed %d %s\n", rc, OV_StrError(-rc));
            status = rc;
        } else {
            clientUp = true;
            if (AgentMemModuleRegister() < 0) {
                PrintOut("Agent mem module register failed");
                status = -22;
            } else {
                // The converters log through their own module, at every level.
                confLogUp = OV_AgentConfLogRegister() == 0;
                // Only the first argument is looked at. A command's outcome is
                // reported by its printed line, never by the exit status (kept).
                CmdDispatch(argv[1]);
            }
        }
    }

    if (clientUp) {
        OV_ImcConfClientExit();
    }
    if (socketsUp) {
        OV_SocketAPIExit();
    }
    if (confLogUp) {
        OV_AgentConfLogUnregister();
    }
    AgentMemModuleUnregister();
    std::fflush(stdout);
    return status;
}
