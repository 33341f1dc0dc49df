// POSIX sockets need no start-up.
#include "base/socket.h"

int32_t OV_SocketAPIInit() {
    return 0;
}

void OV_SocketAPIExit() {}
