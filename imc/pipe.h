// Client end of the IMC configuration channel: connect to the agent's pipe
// and move whole messages across it. A named pipe on Windows; a Unix-domain
// stream socket on POSIX that reports the same Win32 numbers and codes.
#pragma once

#include "imc/flexmsg.h"

#include <cstddef>
#include <cstdint>

/// A HANDLE value on Windows, a file descriptor on POSIX.
using OV_PipeHandle = intptr_t;
/// INVALID_HANDLE_VALUE on Windows; never a valid descriptor on POSIX.
constexpr OV_PipeHandle OV_INVALID_PIPE_HANDLE = -1;

constexpr const wchar_t *OV_IMC_CONF_PIPE_NAME = L"\\\\.\\pipe\\imc_config_pipe";

/// How long one pending step (a wait for a busy pipe, a read, a write) may take.
constexpr uint32_t OV_IMC_WAIT_MS = 3000;

/// Opens the client end of the pipe. The 16-bit argument is ignored. Waits
/// for a busy pipe (3000 ms per wait, retried while waits succeed). Returns 0
/// and the handle through out, or a negative code (-2 when nobody serves the
/// name, -13 when the server is not run by an account the client trusts; see
/// imc/peer_identity.h). The caller owns the handle and releases it with
/// OV_ImcClose.
int32_t OV_ImcConnect(const wchar_t *pipeName, uint16_t unused, OV_PipeHandle *out);

/// Writes msg->data[0, msg->length). Returns 0 or a negative code (-254 when a
/// pending step times out, -32 or -2 when the peer has gone).
int32_t OV_ImcSendAll(OV_PipeHandle h, FlexMsg *msg);

/// Reads exactly n bytes behind msg->length, then adds n to the length. After
/// a failure the length is unchanged. The flag is accepted and ignored.
/// Returns 0, -12 when the message cannot grow by n, or a transfer failure.
int32_t OV_ImcRecvAll(OV_PipeHandle h, FlexMsg *msg, uint64_t n, int32_t flag);

/// Closes a handle; OV_INVALID_PIPE_HANDLE is ignored.
void OV_ImcClose(OV_PipeHandle h);

/// The socket path of a pipe name: "\\.\pipe\NAME" -> "$OV_PIPE_DIR/NAME"
/// (default directory /run/orvane) on POSIX; the name unchanged, as UTF-8, on
/// Windows. Writes a NUL-terminated text into out. Returns 0, or -22 when the
/// name is malformed or the result does not fit in outSize bytes.
int32_t OV_ImcPipePath(const wchar_t *pipeName, char *out, size_t outSize);
