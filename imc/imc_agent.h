// The agent's side of an IMC exchange: receive and check one request on a
// server connection, form a reply (status only, or status and data), send it.
#pragma once

#include "imc/flexmsg.h"
#include "imc/pipe_server.h"

#include <cstdint>

/// True when the header at the start of msg may go to a module handler:
/// its module id is below 25.
bool OV_ImcAgentCheckHeader(const FlexMsg *msg);

/// Receives one request into msg (its length is reset first; msg stays owned
/// by the caller). idleMs bounds the wait for the first byte; the rest must
/// follow within 3000 ms per wait. Returns:
///   0    msg holds a checked request: the header and exactly its payload;
///   -138 nothing arrived within idleMs (nothing was consumed; call again);
///   -22  the header failed the check (logged; the bytes are discarded and the
///        rest of the stream cannot be trusted: close the connection);
///   -12  the message could not grow for the payload (logged);
///   -5   the request stopped arriving midway;
///   -32  the client has gone; or another code of the connection.
int32_t OV_ImcAgentRecvRequest(OV_PipeConn *conn, FlexMsg *msg, uint32_t idleMs);

/// Makes msg a reply without data: status at offset 0, zero reserved bytes,
/// payload length 0, length 16. The status must be 0 or negative (asserted).
void OV_ImcAgentSetStatusReply(FlexMsg *msg, int32_t status);

/// Makes msg a reply carrying n bytes of data behind the header. The status
/// must be 0 or negative (asserted). Returns 0, or -12 when msg cannot grow
/// (msg is then a status-only reply).
int32_t OV_ImcAgentSetDataReply(FlexMsg *msg, int32_t status, const void *data, uint64_t n);

/// Writes the whole reply. Returns 0, -32 when the client has gone, -138
/// when it stopped reading for timeoutMs, or another code of the connection.
int32_t OV_ImcAgentSendReply(OV_PipeConn *conn, FlexMsg *msg, uint32_t timeoutMs);
