// pdtool's front end: the command table, the dispatcher, the handlers' shape
// and the output helpers every printed line goes through.
#pragma once

#include "base/log.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// A command handler: (argument text after the first "/", or nullptr; the
/// dispatcher's output buffer and its length; the row id). Returns 0 or
/// positive for success, a negative error code for failure. It may leave
/// NUL-terminated reply text in the output buffer.
using CmdHandler = int32_t (*)(const char *arg, char *out, uint32_t outLen, uint16_t id);

struct CmdEntry {
    const char *name;
    CmdHandler handler;
    uint16_t id;
};

/// The output buffer CmdDispatch owns and lends to the handler.
constexpr uint32_t CMD_OUT_BUF_LEN = 10240;
constexpr size_t CMD_TABLE_ROWS = 46;

/// The 46 commands, in an order that matters: the first row whose name
/// starts the command word wins.
extern const std::array<CmdEntry, CMD_TABLE_ROWS> g_cmdTable;

/// The usage text, printed whole when pdtool runs without an argument.
extern const char CmdUsage[];

/// Runs the command word: finds its row by prefix, hands the text after the
/// first "/" to the handler and prints the outcome. Returns the handler's
/// result, or 0 when no row matched.
int32_t CmdDispatch(const char *word);

/// printf to standard output; returns what the formatted write returns.
int PrintOut(const char *fmt, ...) OV_PRINTF_FMT(1, 2);

/// The whole run of pdtool (start-up, one dispatch, clean-up); returns the
/// exit status.
int PdtoolMain(int argc, char **argv);
