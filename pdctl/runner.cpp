// Running a line through pdtool's own table and handlers, with every seam of
// cli pointed here for the runner's lifetime.
#include "pdctl/runner.h"

#include "base/errors.h"
#include "cli/kvscan.h"

#include <cstdio>
#include <cstring>

namespace pdctl {

namespace {

RequestMode g_mode = RequestMode::Send;
Outcome *g_outcome = nullptr; // the line being run
bool g_verbose = false;

void AppendFormatted(std::string *to, const char *fmt, va_list ap) {
    char small[512];
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(small, sizeof small, fmt, copy);
    va_end(copy);
    if (n < 0) {
        return;
    }
    if (static_cast<size_t>(n) < sizeof small) {
        to->append(small, static_cast<size_t>(n));
        return;
    }
    size_t at = to->size();
    to->resize(at + static_cast<size_t>(n) + 1);
    std::vsnprintf(to->data() + at, static_cast<size_t>(n) + 1, fmt, ap);
    to->resize(at + static_cast<size_t>(n));
}

// Messages are kept one per line, whatever their own line breaks.
void EndMessage(std::string *to) {
    if (!to->empty() && to->back() != '\n') {
        to->push_back('\n');
    }
}

int CapturePrint(const char *fmt, va_list ap) {
    if (g_outcome == nullptr) {
        return 0;
    }
    size_t before = g_outcome->messages.size();
    AppendFormatted(&g_outcome->messages, fmt, ap);
    size_t n = g_outcome->messages.size() - before;
    EndMessage(&g_outcome->messages);
    return static_cast<int>(n);
}

void ObserveScan(const char *fmt, int stored, size_t targetCount) {
    if (g_outcome != nullptr) {
        g_outcome->scanFormat = fmt;
        g_outcome->scanStored = stored;
        g_outcome->scanSlots = targetCount;
    }
}

void Note(uint8_t module, uint16_t func, const void *data, uint32_t len) {
    if (g_outcome == nullptr) {
        return;
    }
    const auto *bytes = static_cast<const uint8_t *>(data);
    size_t n = bytes != nullptr ? len : 0;
    if (g_outcome->sent) {
        if (g_mode == RequestMode::Capture) {
            g_outcome->followers.push_back({module, func, {bytes, bytes + n}});
        }
        return;
    }
    g_outcome->sent = true;
    g_outcome->module = module;
    g_outcome->function = func;
    if (g_mode == RequestMode::Capture) {
        g_outcome->record.assign(bytes, bytes + n);
    }
}

// A taken get has no reply: this ends the handler before it reads one.
constexpr int32_t kNoReply = -OV_ENODATA;

int32_t SinkSet(uint8_t module, uint16_t func, const void *data, uint32_t len) {
    Note(module, func, data, len);
    if (g_mode == RequestMode::Capture) {
        return 0;
    }
    return kCmdClientSink.set(module, func, data, len);
}

int32_t SinkGet(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                uint32_t replySize) {
    Note(module, func, req, reqLen);
    if (g_mode == RequestMode::Capture) {
        return kNoReply;
    }
    return kCmdClientSink.get(module, func, req, reqLen, reply, replySize);
}

int32_t SinkGetByFunc(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                      ImcReplyFunc handler, void *ctx) {
    Note(module, func, req, reqLen);
    if (g_mode == RequestMode::Capture) {
        return kNoReply;
    }
    return kCmdClientSink.getByFunc(module, func, req, reqLen, handler, ctx);
}

const CmdRequestSink kSink = {SinkSet, SinkGet, SinkGetByFunc};

} // namespace

Runner::Runner(RequestMode mode) {
    g_mode = mode;
    CmdSetPrintSink(CapturePrint);
    CmdSetRequestSink(&kSink);
    KvScanSetObserver(ObserveScan);
}

Runner::~Runner() {
    CmdSetPrintSink(nullptr);
    CmdSetRequestSink(nullptr);
    KvScanSetObserver(nullptr);
    g_outcome = nullptr;
}

void Runner::Run(std::string_view word, Outcome *out) {
    out->row = nullptr;
    out->result = 0;
    out->sent = false;
    out->module = 0;
    out->function = 0;
    out->record.clear();
    out->followers.clear();
    out->messages.clear();
    out->converterWarnings.clear();
    out->reply.clear();
    out->scanFormat = nullptr;
    out->scanStored = 0;
    out->scanSlots = 0;

    word_.assign(word);
    g_outcome = out;
    out->row = CmdFindRow(word_.c_str());
    if (out->row == nullptr) {
        // pdtool's own line for it, printed by its own dispatcher.
        CmdDispatch(word_.c_str());
        out->result = -OV_EINVAL;
    } else {
        out->result = CmdRunRow(out->row, word_.c_str(), reply_);
        if (g_mode == RequestMode::Capture && out->sent) {
            out->result = 0;
        } else if (out->result >= 0) {
            out->reply = reply_;
        }
    }
    g_outcome = nullptr;
}

void SetConverterLogVerbose(bool verbose) {
    g_verbose = verbose;
}

void ConverterLogOutput(uint32_t level, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    if (level >= OV_LOG_WARNING && g_outcome != nullptr) {
        va_list copy;
        va_copy(copy, ap);
        std::string *to = &g_outcome->messages;
        size_t at = to->size();
        AppendFormatted(to, fmt, copy);
        va_end(copy);
        EndMessage(to);
        if (level == OV_LOG_WARNING) {
            g_outcome->converterWarnings.append(*to, at, std::string::npos);
        }
    }
    if (g_verbose) {
        OV_LogV(fmt, ap);
    }
    va_end(ap);
}

const CommandSpec &SpecOfRow(const CmdEntry *row) {
    return kCommands[static_cast<size_t>(row - g_cmdTable.data())];
}

std::string_view WordName(std::string_view word) {
    return word.substr(0, word.find('/'));
}

} // namespace pdctl
