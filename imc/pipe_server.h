// The agent's end of the IMC channel: owns a pipe name, accepts clients and
// moves bytes on each connection with a time-out. Thread-safe: several
// threads may accept and serve at once (one connection per thread).
//
// Windows: a named pipe with up to maxInstances connected clients; while all
// are connected, further clients see the pipe busy and wait. POSIX: a
// Unix-domain stream socket in the pipe directory; connections beyond
// maxInstances wait in the listen queue and, once it is full, see it busy.
#pragma once

#include <cstddef>
#include <cstdint>

struct OV_PipeServer;
struct OV_PipeConn;

constexpr uint32_t OV_PIPE_SERVER_DEFAULT_INSTANCES = 3;
/// Upper bound for maxInstances (one more handle is kept for hand-overs).
constexpr uint32_t OV_PIPE_SERVER_MAX_INSTANCES = 64;

/// Creates the server end of pipeName, serving at most maxInstances (1..64)
/// clients at once. Returns 0 and the server through out (the caller owns it
/// and ends it with OV_PipeServerDestroy), -17 when another live server
/// already owns the name (logged), -22 for bad arguments, or another code.
int32_t OV_PipeServerCreate(const wchar_t *pipeName, uint32_t maxInstances, OV_PipeServer **out);

/// Waits up to timeoutMs for a client. Returns 0 and a connection owned by
/// the caller (end it with OV_PipeConnClose), -138 when the time ran out,
/// -4 once OV_PipeServerShutdown was called, or another negative code.
int32_t OV_PipeServerAccept(OV_PipeServer *server, uint32_t timeoutMs, OV_PipeConn **out);

/// Wakes every blocked accept and makes later ones return -4 at once.
/// Connections already handed out keep working.
void OV_PipeServerShutdown(OV_PipeServer *server);

/// Releases the name (on POSIX the socket file is removed). Every connection
/// of the server must have been closed before. nullptr is ignored.
void OV_PipeServerDestroy(OV_PipeServer *server);

/// Clients beyond the served ones whose connect completes at once and who
/// then wait to be accepted: 1 on POSIX (the kernel's smallest listen queue),
/// 0 on Windows (such a client sees the pipe busy).
uint32_t OV_PipeServerQueuedClients();

/// Reads exactly n bytes. timeoutMs bounds each wait for more data, not the
/// whole read. Returns 0, -32 when the client has gone (before or during the
/// read), -138 on a time-out, or another code. *got (when not null) receives
/// the bytes stored in buf, also on failure.
int32_t OV_PipeConnRead(OV_PipeConn *conn, void *buf, size_t n, uint32_t timeoutMs, size_t *got);

/// Writes n bytes; timeoutMs bounds each wait for the client to take more.
/// Returns 0, -32 when the client has gone, -138 on a time-out, or another code.
int32_t OV_PipeConnWrite(OV_PipeConn *conn, const void *buf, size_t n, uint32_t timeoutMs);

/// Closes the connection and frees its instance for the next client. Bytes
/// already written stay readable by the client. nullptr is ignored.
void OV_PipeConnClose(OV_PipeConn *conn);
