// The configuration client: the one way the command handlers talk to the
// agent. One connection to the configuration pipe, guarded by a mutex; each
// operation builds a request, performs one exchange and interprets the reply.
//
// Results: a negative code when the exchange failed or the reply was not
// acceptable, otherwise the agent's status (0, or its negative code) or the
// handler's result. Request and reply memory stays with the caller: the
// client copies request bytes into its own message and never keeps pointers.
#pragma once

#include "imc/pipe.h"

#include <cstdint>

/// Reply handler of OV_ImcConfGetByFunc. reply points at the reply payload:
/// replyLen bytes (possibly 0, the pointer is never null), valid only during
/// the call. Its return value is the operation's result.
using ImcReplyFunc = int (*)(const void *reply, uint64_t replyLen, void *ctx);

/// Handler of OV_ImcConfGetMultiByFunc. req/reqLen are the caller's request
/// buffer, which the handler may change in place to page through a table
/// (the next pass sends the changed bytes). Setting *more to non-zero asks
/// for another pass; the client never clears it, so the handler must. A
/// negative result ends the series as an error.
using ReplyHandlerFunc = int (*)(void *req, uint32_t reqLen, const void *reply, uint64_t replyLen,
                                 uint32_t *more, void *ctx);

/// Starts the client: mutex, "FlexMsg" message module, connection. Runs the
/// exit first, so a second start begins clean. Returns 0 or a negative code
/// (the client is then stopped again).
int32_t OV_ImcConfClientInit();

/// Stops the client: closes the connection, stops the message module, closes
/// the mutex, in that order. Safe to call more than once.
void OV_ImcConfClientExit();

/// Whether the client holds a connection. A failed exchange closes it (the
/// next one connects again), an error status from the agent does not: after
/// a failure this tells the channel's failures from the agent's answers.
bool OV_ImcConfClientConnected();

/// Replaces the pipe name used by the next connect (tests, operators);
/// nullptr restores "\\.\pipe\imc_config_pipe". Call before OV_ImcConfClientInit.
/// A name of 256 characters or more is refused (logged) and the current one kept.
void OV_ImcConfClientSetPipeName(const wchar_t *name);

/// Performs one exchange with msg (request in, reply out, same buffer).
/// Returns the exchange's negative code, or the reply status.
int32_t OV_ImcConfigure(FlexMsg *msg);

/// Sends len bytes of data (may be 0) to module/func. Returns a negative code
/// or the agent's status.
int32_t OV_ImcConfSet(uint8_t module, uint16_t func, const void *data, uint32_t len);

/// Sends req (when req and reqLen are both non-zero) and copies the reply
/// data into reply (when reply and replySize are both non-zero). Returns a
/// negative code, or the agent's status; -120 when the reply carried no
/// data, -119 when it carried more than replySize (the first replySize
/// bytes are delivered).
int32_t OV_ImcConfGet(uint8_t module, uint16_t func, const void *req, uint32_t reqLen, void *reply,
                      uint32_t replySize);

/// As a get, then hands the reply payload to handler. Returns a negative
/// code, or the handler's result, or the agent's status without a handler.
/// The function id travels in 8 bits.
int32_t OV_ImcConfGetByFunc(uint8_t module, uint8_t func, const void *req, uint32_t reqLen,
                            ImcReplyFunc handler, void *ctx);

/// Repeats get-and-handle while the handler sets *more; see ReplyHandlerFunc.
/// Returns the result of the last pass.
int32_t OV_ImcConfGetMultiByFunc(uint8_t module, uint8_t func, void *req, uint32_t reqLen,
                                 ReplyHandlerFunc handler, void *ctx);
