// Printing of the get commands' replies into the dispatcher's output buffer.
#pragma once

#include "base/log.h"

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

/// Formats into buf[0, size): returns 0 when size is 0, the formatted length
/// when it fits, otherwise size, with the text cut and the last byte NUL.
size_t CmdSnprintf(char *buf, size_t size, const char *fmt, ...) OV_PRINTF_FMT(3, 4);

/// Appends at pos within a buffer ending at end: returns pos unchanged when it
/// is not before end, the position after the text when it fits, otherwise the
/// position of the NUL written into the buffer's last byte (the text is cut).
char *CmdAppendf(char *pos, char *end, const char *fmt, ...) OV_PRINTF_FMT(3, 4);

/// json-c's pretty form of obj (owned by obj), or nullptr when there is none
/// or the text is a prefix of "null" (the empty text included).
const char *CmdJsonPrettyText(json_object *obj);

/// The reply handler of get_shaper_tbl: a 4-byte header whose first byte is
/// the record count, then that many 224-byte shaper records, appended as
/// pretty JSON into ctx, a CMD_OUT_BUF_LEN-byte buffer. Returns 0 or a
/// negative code; a reply of the wrong size prints a line and returns 0.
int32_t CmdShaperTblPrint(const void *reply, uint64_t replyLen, void *ctx);
