// pdtool's front end: the command table, the dispatcher, the handlers' shape
// and the output helpers every printed line goes through.
#pragma once

#include "base/log.h"
#include "imc/conf_client.h"

#include <array>
#include <cstdarg>
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

/// The row CmdDispatch runs the word with: the first whose name starts the
/// word (case-sensitive), or nullptr.
const CmdEntry *CmdFindRow(const char *word);

/// Runs the row's handler on the word as CmdDispatch does, printing no
/// outcome: out (CMD_OUT_BUF_LEN bytes, the caller's) is zeroed, the handler
/// gets the text after the first "/" (nullptr without one), and out ends
/// NUL-terminated. Returns the handler's result.
int32_t CmdRunRow(const CmdEntry *row, const char *word, char *out);

/// The error text of a failure result. INT32_MIN has no positive
/// counterpart: it is looked up as an unknown number.
const char *CmdErrorText(int32_t ret);

/// printf to standard output (or to the print sink); returns what the
/// formatted write returns.
int PrintOut(const char *fmt, ...) OV_PRINTF_FMT(1, 2);

// ---- Seams for another front end on the same table (pdctl) -------------------
// pdtool never sets them: its lines go to standard output and its requests
// to the configuration client.

/// Takes what PrintOut would print (the refusal lines of the handlers and
/// converters' callers); nullptr restores standard output.
using CmdPrintSink = int (*)(const char *fmt, va_list ap);
void CmdSetPrintSink(CmdPrintSink sink);

/// Where the handlers' requests go. Each member keeps the contract of the
/// configuration client's function of the same shape (OV_ImcConfSet,
/// OV_ImcConfGet, OV_ImcConfGetByFunc).
struct CmdRequestSink {
    int32_t (*set)(uint8_t module, uint16_t func, const void *data, uint32_t len);
    int32_t (*get)(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                   uint32_t replySize);
    int32_t (*getByFunc)(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                         ImcReplyFunc handler, void *ctx);
};

/// The configuration client as a sink, for a sink that passes requests on.
extern const CmdRequestSink kCmdClientSink;

/// sink stays the caller's and must outlive its use; nullptr restores the
/// configuration client.
void CmdSetRequestSink(const CmdRequestSink *sink);

/// The handlers' way to the agent: through the current sink.
int32_t CmdConfSet(uint8_t module, uint16_t func, const void *data, uint32_t len);
int32_t CmdConfGet(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                   uint32_t replySize);
int32_t CmdConfGetByFunc(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                         ImcReplyFunc handler, void *ctx);

/// Takes OV_PIPE_NAME, when set to a plain name, as the pipe to connect to;
/// otherwise says so on standard error ("<program>: OV_PIPE_NAME is not a
/// plain pipe name; using the default") and keeps the default.
void CmdApplyPipeNameOverride(const char *program);

/// The whole run of pdtool (start-up, one dispatch, clean-up); returns the
/// exit status.
int PdtoolMain(int argc, char **argv);
