// Windows client transport: the agent's named pipe, overlapped I/O with one
// manual-reset event per transfer and a 3000 ms limit on each pending step.
#include "imc/pipe.h"

#include "base/errors.h"
#include "base/log.h"
#include "imc/peer_identity.h"
#include "imc/win32_handle.h"

#include <algorithm>

namespace {

// One ReadFile/WriteFile moves at most this much; longer transfers loop.
constexpr uint64_t kMaxChunk = 1u << 30;

DWORD Chunk(uint64_t remaining) {
    return static_cast<DWORD>(std::min(remaining, kMaxChunk));
}

HANDLE AsHandle(OV_PipeHandle h) {
    return reinterpret_cast<HANDLE>(h);
}

void PrepareOverlapped(OVERLAPPED *ov, HANDLE event) {
    ResetEvent(event);
    *ov = OVERLAPPED{};
    ov->hEvent = event;
}

// Completes one transfer whose ReadFile/WriteFile returned FALSE with error.
int32_t _OV_ImcWait(HANDLE h, OVERLAPPED *ov, DWORD error, uint64_t *counter) {
    // The number logged for an immediate failure is this function's own
    // last-error field, which is still 0 there; kept on purpose.
    DWORD lastError = 0;
    if (error != ERROR_IO_PENDING) {
        OV_Log("<Error>[%s:%d]Failed to read named pipe error code=%d\n", __func__, __LINE__,
               static_cast<int>(lastError));
        return OV_Win32ErrToErrno(static_cast<int32_t>(error));
    }
    DWORD transferred = 0;
    if (GetOverlappedResultEx(h, ov, &transferred, OV_IMC_WAIT_MS, FALSE)) {
        if (transferred == 0) {
            OV_Log("<Error>[%s:%d]Operation completed successfully but transferred 0 bytes\n",
                   __func__, __LINE__);
            return -OV_EPIPE;
        }
        *counter += transferred;
        return 0;
    }
    lastError = GetLastError();
    OV_Log("<Error>[%s:%d]Failed to get overlapped result error code=%d\n", __func__, __LINE__,
           static_cast<int>(lastError));
    // The caller's OVERLAPPED and buffer leave scope when we return, so a
    // transfer that is still pending must be withdrawn first.
    OV_CancelPendingIo(h, ov);
    return OV_Win32ErrToErrno(static_cast<int32_t>(lastError));
}

} // namespace

int32_t OV_ImcConnect(const wchar_t *pipeName, uint16_t /*unused*/, OV_PipeHandle *out) {
    for (;;) {
        // Identification only: a rogue server holding the name can learn
        // who we are but never act as us.
        HANDLE h = CreateFileW(
            pipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
            FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            // Checked before a byte goes out: whoever holds the name gets nothing.
            if (int32_t rc = OV_ImcCheckPeer(reinterpret_cast<OV_PipeHandle>(h)); rc != 0) {
                CloseHandle(h);
                return rc;
            }
            *out = reinterpret_cast<OV_PipeHandle>(h);
            return 0;
        }
        DWORD error = GetLastError();
        if (error != ERROR_PIPE_BUSY) {
            OV_Log("<Error>[%s:%d]Fail to connect pipe! error code=%d\n", __func__, __LINE__,
                   static_cast<int>(error));
            return OV_Win32ErrToErrno(static_cast<int32_t>(error));
        }
        if (!WaitNamedPipeW(pipeName, OV_IMC_WAIT_MS)) {
            error = GetLastError();
            OV_Log("<Error>[%s:%d]Fail to wait for pipe! error code=%d\n", __func__, __LINE__,
                   static_cast<int>(error));
            return OV_Win32ErrToErrno(static_cast<int32_t>(error));
        }
    }
}

int32_t OV_ImcSendAll(OV_PipeHandle handle, FlexMsg *msg) {
    HANDLE h = AsHandle(handle);
    OV_ScopedEvent event = OV_CreateManualEvent();
    if (!event) {
        OV_Log("<Error>[%s:%d]Failed to create event\n", __func__, __LINE__);
        return -OV_ENOMEM;
    }
    int32_t rc = 0;
    uint64_t sent = 0;
    OVERLAPPED ov;
    while (sent < msg->length) {
        PrepareOverlapped(&ov, event.Get());
        DWORD written = 0;
        DWORD want = Chunk(msg->length - sent);
        if (WriteFile(h, msg->data + sent, want, &written, &ov)) {
            if (written == 0) {
                OV_Log("<Error>[%s:%d]WriteFile succeeded but wrote 0 bytes, requested %d bytes\n",
                       __func__, __LINE__, static_cast<int>(msg->length - sent));
                continue;
            }
            sent += written;
        } else {
            rc = _OV_ImcWait(h, &ov, GetLastError(), &sent);
            if (rc != 0) {
                break;
            }
        }
    }
    return rc;
}

int32_t OV_ImcRecvAll(OV_PipeHandle handle, FlexMsg *msg, uint64_t n, int32_t /*flag*/) {
    HANDLE h = AsHandle(handle);
    OV_ScopedEvent event = OV_CreateManualEvent();
    if (!event) {
        OV_Log("<Error>[%s:%d]Failed to create event\n", __func__, __LINE__);
        return -OV_ENOMEM;
    }
    if (!OV_FlexMsgDataMaybePull(msg, n)) {
        return -OV_ENOMEM;
    }
    int32_t rc = 0;
    uint64_t got = 0;
    OVERLAPPED ov;
    while (got < n) {
        PrepareOverlapped(&ov, event.Get());
        DWORD read = 0;
        if (ReadFile(h, msg->data + msg->length + got, Chunk(n - got), &read, &ov)) {
            got += read;
        } else {
            rc = _OV_ImcWait(h, &ov, GetLastError(), &got);
            if (rc != 0) {
                break;
            }
        }
    }
    if (rc == 0) {
        msg->length += n;
    }
    return rc;
}

void OV_ImcClose(OV_PipeHandle h) {
    if (h != OV_INVALID_PIPE_HANDLE) {
        CloseHandle(AsHandle(h));
    }
}

int32_t OV_ImcPipePath(const wchar_t *pipeName, char *out, size_t outSize) {
    if (pipeName == nullptr || out == nullptr || outSize == 0 || outSize > INT32_MAX) {
        return -OV_EINVAL;
    }
    int written = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, pipeName, -1, out,
                                      static_cast<int>(outSize), nullptr, nullptr);
    if (written <= 0) {
        out[0] = '\0';
        return -OV_EINVAL;
    }
    return 0;
}
