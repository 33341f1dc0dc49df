// Socket layer start-up: Winsock on Windows; nothing to do on POSIX.
#pragma once

#include <cstdint>

/// Starts the socket layer. Returns 0, or a negative code (nothing is logged).
int32_t OV_SocketAPIInit();
/// Releases the socket layer; only a start that returned 0 is matched by it.
/// A failure is logged, never returned.
void OV_SocketAPIExit();
