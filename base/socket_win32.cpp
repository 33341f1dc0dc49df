// Winsock start-up and release.
#include "base/socket.h"

#include "base/errors.h"
#include "base/log.h"
#include "base/win32.h"

int32_t OV_SocketAPIInit() {
    WSADATA data;
    int rc = WSAStartup(MAKEWORD(2, 2), &data);
    if (rc != 0) {
        return OV_Win32ErrToErrno(rc);
    }
    return 0;
}

void OV_SocketAPIExit() {
    if (WSACleanup() != 0) {
        int32_t mapped = OV_Win32ErrToErrno(WSAGetLastError());
        OV_Log("<Error>WSACleanup failed(ret = %d, error = %d)\n", mapped, WSAGetLastError());
    }
}
