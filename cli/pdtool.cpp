// pdtool's run: start-up, the command table and its dispatcher, clean-up.
#include "agentconf/json_conv.h"
#include "agentconf/protocol.h"
#include "base/errors.h"
#include "base/mem.h"
#include "base/platform.h"
#include "base/socket.h"
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "imc/conf_client.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

namespace {

// A command's handler follows from what it does to which kind of record.
constexpr CmdHandler HandlerOf(const CommandSpec &c) {
    bool set = c.op == CmdOp::Set;
    switch (c.kind) {
    case RecordKind::Rule:
        return set ? CmdRuleSet : CmdRuleDel;
    case RecordKind::LinkIp:
        return set ? CmdLinkIpSet : CmdLinkIpDel;
    case RecordKind::Link:
        return set ? CmdLinkSet : CmdLinkDel;
    case RecordKind::Conn:
        return set ? CmdConnSet : CmdConnDel;
    case RecordKind::GlobalArg:
        return CmdConnCmdSet;
    case RecordKind::Ratelimit:
        return set ? CmdRatelimitSet : CmdRatelimitDel;
    case RecordKind::AcsName:
        return set ? CmdAcsNameSet : CmdAcsNameDel;
    case RecordKind::Engine:
        return CmdEngineParamSet;
    case RecordKind::Shaper:
        return set                     ? CmdShaperSet
               : c.op == CmdOp::Delete ? CmdShaperDel
               : c.op == CmdOp::GetOne ? CmdShaperGet
                                       : CmdShaperTblGet;
    case RecordKind::SaCluster:
        return CmdSaClusterGet;
    }
    return nullptr;
}

template <size_t... I>
constexpr std::array<CmdEntry, sizeof...(I)> BuildTable(std::index_sequence<I...>) {
    return {{CmdEntry{kCommands[I].word, HandlerOf(kCommands[I]), kCommands[I].id}...}};
}

} // namespace

// The protocol description's commands, in its order (which dispatch depends
// on: "set_dns_proxy" words run as "set_dns", kept on purpose).
constexpr std::array<CmdEntry, CMD_TABLE_ROWS> g_cmdTable =
    BuildTable(std::make_index_sequence<CMD_TABLE_ROWS>{});
static_assert(CMD_TABLE_ROWS == OV_COMMAND_COUNT);

namespace {

CmdPrintSink g_printSink = nullptr;
const CmdRequestSink *g_requestSink = &kCmdClientSink;

} // namespace

const CmdRequestSink kCmdClientSink = {OV_ImcConfSet, OV_ImcConfGet, OV_ImcConfGetByFunc};

int PrintOut(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = g_printSink != nullptr ? g_printSink(fmt, ap) : std::vprintf(fmt, ap);
    va_end(ap);
    return n;
}

void CmdSetPrintSink(CmdPrintSink sink) {
    g_printSink = sink;
}

void CmdSetRequestSink(const CmdRequestSink *sink) {
    g_requestSink = sink != nullptr ? sink : &kCmdClientSink;
}

int32_t CmdConfSet(uint8_t module, uint16_t func, const void *data, uint32_t len) {
    return g_requestSink->set(module, func, data, len);
}

int32_t CmdConfGet(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                   uint32_t replySize) {
    return g_requestSink->get(module, func, req, reqLen, reply, replySize);
}

int32_t CmdConfGetByFunc(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                         ImcReplyFunc handler, void *ctx) {
    return g_requestSink->getByFunc(module, func, req, reqLen, handler, ctx);
}

const CmdEntry *CmdFindRow(const char *word) {
    for (const CmdEntry &entry : g_cmdTable) {
        // A prefix match, case-sensitive: the word only has to begin with the name.
        if (std::strncmp(word, entry.name, std::strlen(entry.name)) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

int32_t CmdRunRow(const CmdEntry *row, const char *word, char *out) {
    std::memset(out, 0, CMD_OUT_BUF_LEN);
    const char *slash = std::strchr(word, '/');
    const char *arg = slash != nullptr ? slash + 1 : nullptr;
    int32_t ret = row->handler(arg, out, CMD_OUT_BUF_LEN, row->id);
    out[CMD_OUT_BUF_LEN - 1] = '\0'; // whatever a handler left, a bounded text
    return ret;
}

const char *CmdErrorText(int32_t ret) {
    // An agent's status arrives unchanged, and INT32_MIN has no positive counterpart.
    return OV_StrError(ret == INT32_MIN ? INT32_MAX : -ret);
}

int32_t CmdDispatch(const char *word) {
    const CmdEntry *row = CmdFindRow(word);
    if (row == nullptr) {
        PrintOut("invalid command %s, please refer to help", word);
        return 0;
    }
    char out[CMD_OUT_BUF_LEN];
    int32_t ret = CmdRunRow(row, word, out);
    if (ret < 0) {
        PrintOut("Operation failed ret = %d (%s)", ret, CmdErrorText(ret));
    } else {
        PrintOut("Operation success\n");
        if (out[0] != '\0') {
            PrintOut("%s\n", out);
        }
    }
    return ret;
}

// OV_PIPE_NAME picks another pipe than "imc_config_pipe" (an agent started
// under another name, or a test's private agent). Only plain names are taken.
void CmdApplyPipeNameOverride(const char *program) {
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
        std::fprintf(stderr, "%s: OV_PIPE_NAME is not a plain pipe name; using the default\n",
                     program);
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
        CmdApplyPipeNameOverride("pdtool");
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
