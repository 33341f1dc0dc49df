// Flexible log buffer ("flexlog"): numbered diagnostic lines collected in a
// FlexMsg while a converter works, so that they can be dumped together.
//
// Nothing in pdtool attaches a flexlog context, so every flexlog call
// returns an error at once and writes nothing; callers still make the calls.
#pragma once

#include "base/log.h"

#include <cstdarg>
#include <cstdint>

struct FlexMsg;

constexpr uint32_t OV_FLEXLOG_MAX_DEPTH = 64;

/// Appends formatted text behind the message's length, doubling the capacity
/// until it fits. The text stays NUL-terminated inside the buffer; the
/// terminator is not counted. Returns 0 or a negative code.
int32_t OV_FlexMsgAppendFmt(FlexMsg *msg, const char *fmt, ...) OV_PRINTF_FMT(2, 3);
int32_t OV_FlexMsgAppendFmtV(FlexMsg *msg, const char *fmt, va_list ap);

/// A flexlog context: the lines written so far and the buffer receiving them.
/// The caller owns both; attaching lends them to the current thread.
struct OV_FlexLogCtx {
    uint32_t depth;
    FlexMsg *msg;
};

/// The process-wide switch; 0 turns flexlog off.
extern uint32_t g_flexLogSwitch;

/// Attaches a context to the calling thread (nullptr detaches).
void OV_FlexLogAttach(OV_FlexLogCtx *ctx);

/// Appends one numbered line. Returns 0; -200 when the switch is off; -104
/// when no context is attached; -120 past the maximum depth.
int32_t OV_FlexLog(const char *fmt, ...) OV_PRINTF_FMT(1, 2);
int32_t OV_FlexLogV(const char *fmt, va_list ap);

/// The text collected on this thread ("" when there is none).
const char *OV_FlexLogText();
/// Empties the thread's flexlog (depth back to 0).
void OV_FlexLogClear();
