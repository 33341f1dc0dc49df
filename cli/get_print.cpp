// The get commands: shaper record, shaper table and SA cluster state, shown
// as text in the output buffer.
#include "cli/get_print.h"

#include "agentconf/protocol.h"
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "imc/conf_client.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr uint8_t kModuleShaper = OV_ModuleOf(RecordKind::Shaper);
constexpr uint16_t kFuncShaperGet = OV_FunctionOf(RecordKind::Shaper, CmdOp::GetOne);
constexpr uint8_t kFuncShaperTbl = OV_FunctionOf(RecordKind::Shaper, CmdOp::GetTable);
constexpr uint16_t kFuncSaCluster = OV_FunctionOf(RecordKind::SaCluster, CmdOp::GetSaCluster);
static_assert(OV_ModuleOf(RecordKind::SaCluster) == kModuleShaper);

constexpr size_t kShaperTblHeader = OV_SHAPER_TABLE_HEADER_LEN;
constexpr size_t kShaperRecord = sizeof(AgentShaperConf);

struct JsonPut {
    void operator()(json_object *obj) const { json_object_put(obj); }
};
struct AgentFree {
    void operator()(char *text) const { AgentMemFree(text); }
};

} // namespace

size_t CmdSnprintf(char *buf, size_t size, const char *fmt, ...) {
    if (size == 0) {
        return 0;
    }
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(buf, size, fmt, ap);
    va_end(ap);
    if (n >= 0 && static_cast<size_t>(n) < size) {
        return static_cast<size_t>(n);
    }
    buf[size - 1] = '\0';
    return size;
}

char *CmdAppendf(char *pos, char *end, const char *fmt, ...) {
    if (pos >= end) {
        return pos;
    }
    size_t room = static_cast<size_t>(end - pos);
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(pos, room, fmt, ap);
    va_end(ap);
    if (n >= 0 && static_cast<size_t>(n) < room) {
        return pos + n;
    }
    end[-1] = '\0';
    return end - 1;
}

const char *CmdJsonPrettyText(json_object *obj) {
    const char *text = json_object_to_json_string_ext(obj, JSON_C_TO_STRING_PRETTY);
    if (text == nullptr || std::strncmp(text, "null", std::strlen(text)) == 0) {
        return nullptr;
    }
    return text;
}

int32_t CmdShaperGet(const char *arg, char *out, uint32_t outLen, uint16_t /*id*/) {
    if (arg == nullptr) {
        PrintOut("Invalid arg(null), require shaperId\n");
        return -22;
    }
    uint8_t shaperId = 0;
    if (!ShaperIdArg(arg, &shaperId)) {
        return -22;
    }
    // One buffer is both the request and the reply.
    AgentShaperConf conf;
    std::memset(&conf, 0, sizeof conf);
    conf.shaperId = shaperId;
    int32_t ret = CmdConfGet(kModuleShaper, kFuncShaperGet, &conf, sizeof conf, &conf, sizeof conf);
    if (ret < 0) {
        return ret;
    }
    // The converted text is not released here: the process ends right after,
    // and the AGENT module reports it at unregistration (kept as designed).
    char *jsonText = OV_AgentShaperConfToJsonStr(&conf);
    if (jsonText == nullptr) {
        return -12;
    }
    std::unique_ptr<json_object, JsonPut> obj(json_tokener_parse(jsonText));
    if (obj == nullptr) {
        return -22;
    }
    const char *pretty = CmdJsonPrettyText(obj.get());
    if (pretty == nullptr) {
        return -22;
    }
    if (CmdSnprintf(out, outLen, "%s\n", pretty) > outLen) {
        return -132;
    }
    return ret;
}

int32_t CmdShaperTblPrint(const void *reply, uint64_t replyLen, void *ctx) {
    if (reply == nullptr) {
        return -22;
    }
    const auto *bytes = static_cast<const uint8_t *>(reply);
    // An empty reply has no count byte to read; it counts as zero records.
    unsigned count = replyLen > 0 ? bytes[0] : 0;
    size_t expected = count * kShaperRecord + kShaperTblHeader;
    if (replyLen != expected) {
        PrintOut("Invalid reply msg, ReplyBytes %zu shaperCount %u should be %zu\n",
                 static_cast<size_t>(replyLen), count, expected);
        return 0;
    }
    // The printer always uses the full buffer size; the dispatcher passes the same.
    auto *out = static_cast<char *>(ctx);
    size_t fill = 0;
    const uint8_t *rec = bytes + kShaperTblHeader;
    uint64_t left = replyLen - kShaperTblHeader;
    while (left >= kShaperRecord) {
        AgentShaperConf conf;
        std::memcpy(&conf, rec, sizeof conf);
        std::unique_ptr<char, AgentFree> jsonText(OV_AgentShaperConfToJsonStr(&conf));
        if (jsonText == nullptr) {
            return -12;
        }
        std::unique_ptr<json_object, JsonPut> obj(json_tokener_parse(jsonText.get()));
        if (obj == nullptr) {
            return -22;
        }
        const char *pretty = CmdJsonPrettyText(obj.get());
        if (pretty == nullptr) {
            return -22;
        }
        size_t n = CmdSnprintf(out + fill, CMD_OUT_BUF_LEN - fill, "%s\n", pretty);
        if (n > CMD_OUT_BUF_LEN) {
            return -132;
        }
        fill += n;
        rec += kShaperRecord;
        left -= kShaperRecord;
    }
    return 0;
}

int32_t CmdShaperTblGet(const char * /*arg*/, char *out, uint32_t /*outLen*/, uint16_t /*id*/) {
    return CmdConfGetByFunc(kModuleShaper, kFuncShaperTbl, nullptr, 0, CmdShaperTblPrint, out);
}

int32_t CmdSaClusterGet(const char * /*arg*/, char *out, uint32_t outLen, uint16_t /*id*/) {
    AgentSaClusterInfo reply;
    std::memset(&reply, 0, sizeof reply);
    int32_t ret = CmdConfGet(kModuleShaper, kFuncSaCluster, nullptr, 0, &reply, sizeof reply);

    // The text is built whatever the result; a failure prints only its line.
    static constexpr const char *kRoles[] = {"disable", "master", "slave"};
    // The agent sends only 0, 1 or 2; anything else must not index past the words.
    const char *roleWord = reply.role >= 0 && reply.role < 3 ? kRoles[reply.role] : "unknown";
    char *end = out + outLen;
    char *pos = out;
    pos = CmdAppendf(pos, end, "SA.Role: %s\n", roleWord);
    pos = CmdAppendf(pos, end, "SA.CalQueueLen: %u\n", reply.calQueueLen);
    pos = CmdAppendf(pos, end, "SA.LocalLanId: %u\n", reply.localLanId);
    pos = CmdAppendf(pos, end, "SA.LocalPort: %u\n", reply.localPort);
    pos = CmdAppendf(pos, end, "SA.MasterCpeId: %u\n", reply.masterCpeId);
    // A host-order address: printed from its most significant byte down.
    pos = CmdAppendf(pos, end, "SA.MasterIp: %u.%u.%u.%u\n", (reply.masterIp >> 24) & 0xFF,
                     (reply.masterIp >> 16) & 0xFF, (reply.masterIp >> 8) & 0xFF,
                     reply.masterIp & 0xFF);
    pos = CmdAppendf(pos, end, "SA.MasterPort: %u\n", reply.masterPort);
    if (pos == end && pos[-1] != '\n') {
        ret = -132;
    }
    return ret;
}
