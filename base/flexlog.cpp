// Flexlog lines and the formatted append into a FlexMsg.
#include "base/flexlog.h"

#include "base/flexmsg.h"
#include "base/mem.h"

#include <cstdio>

uint32_t g_flexLogSwitch = 1;

namespace {

thread_local OV_FlexLogCtx *t_flexLog = nullptr;

// Doubling goes through the message's own growth, so the buffer keeps coming
// from the "FlexMsg" memory module.
bool Double(FlexMsg *msg) {
    uint64_t extra = msg->capacity;
    uint64_t saved = msg->length;
    // Growth counts from the length; ask for the whole free area plus the old
    // capacity so that the new capacity is exactly twice the old one.
    msg->length = msg->capacity;
    bool ok = OV_FlexMsgDataMaybePull(msg, extra);
    msg->length = saved;
    return ok;
}

} // namespace

int32_t OV_FlexMsgAppendFmtV(FlexMsg *msg, const char *fmt, va_list ap) {
    for (;;) {
        uint64_t room = msg->capacity - msg->length;
        va_list copy;
        va_copy(copy, ap);
        int n = std::vsnprintf(reinterpret_cast<char *>(msg->data + msg->length),
                               static_cast<size_t>(room), fmt, copy);
        va_end(copy);
        if (n < 0) {
            OV_Log("<Error>vsnprintf failed %d\n", n);
            return n;
        }
        if (static_cast<uint64_t>(n) < room) {
            msg->length += static_cast<uint64_t>(n);
            return 0;
        }
        if (!Double(msg)) {
            return -12;
        }
        OV_Log("<Debug>realloc maxSize: %zd, pos : %zd\n", static_cast<ptrdiff_t>(msg->capacity),
               static_cast<ptrdiff_t>(msg->length));
    }
}

int32_t OV_FlexMsgAppendFmt(FlexMsg *msg, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int32_t rc = OV_FlexMsgAppendFmtV(msg, fmt, ap);
    va_end(ap);
    return rc;
}

void OV_FlexLogAttach(OV_FlexLogCtx *ctx) {
    t_flexLog = ctx;
}

int32_t OV_FlexLogV(const char *fmt, va_list ap) {
    if (g_flexLogSwitch == 0) {
        return -200;
    }
    OV_FlexLogCtx *ctx = t_flexLog;
    if (ctx == nullptr || ctx->msg == nullptr) {
        return -104;
    }
    if (ctx->depth >= OV_FLEXLOG_MAX_DEPTH) {
        if (ctx->depth == OV_FLEXLOG_MAX_DEPTH) {
            ctx->depth = OV_FLEXLOG_MAX_DEPTH + 1;
            int32_t rc = OV_FlexMsgAppendFmt(
                ctx->msg, "[flexlog][depth:%d]: the depth more than max depth:%d\n",
                static_cast<int>(ctx->depth), static_cast<int>(OV_FLEXLOG_MAX_DEPTH));
            return rc < 0 ? rc : -120;
        }
        return -120;
    }
    int32_t rc =
        OV_FlexMsgAppendFmt(ctx->msg, "[flexlog][depth:%d]:", static_cast<int>(ctx->depth));
    if (rc == 0) {
        rc = OV_FlexMsgAppendFmtV(ctx->msg, fmt, ap);
    }
    if (rc != 0) {
        return rc;
    }
    ++ctx->depth;
    return 0;
}

int32_t OV_FlexLog(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int32_t rc = OV_FlexLogV(fmt, ap);
    va_end(ap);
    return rc;
}

const char *OV_FlexLogText() {
    OV_FlexLogCtx *ctx = t_flexLog;
    if (ctx == nullptr || ctx->msg == nullptr || ctx->msg->length == 0) {
        return "";
    }
    return reinterpret_cast<const char *>(ctx->msg->data);
}

void OV_FlexLogClear() {
    OV_FlexLogCtx *ctx = t_flexLog;
    if (ctx == nullptr || ctx->msg == nullptr) {
        return;
    }
    ctx->msg->length = 0;
    if (ctx->msg->capacity > 0) {
        ctx->msg->data[0] = '\0';
    }
    ctx->depth = 0;
}
