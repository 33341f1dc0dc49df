// POSIX client transport: the agent's pipe is a Unix-domain stream socket in
// $OV_PIPE_DIR. Every situation is reported with the Win32 number that the
// Windows build sees for it, so both builds log the same lines and return
// the same codes. A send or recv that would block is the "pending" case of
// overlapped I/O; poll() with 3000 ms stands in for GetOverlappedResultEx.
#include "imc/pipe.h"

#include "base/errors.h"
#include "base/log.h"
#include "base/platform.h"
#include "imc/peer_identity.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char *kDefaultPipeDir = "/run/orvane";
constexpr wchar_t kPipePrefix[] = L"\\\\.\\pipe\\";
constexpr size_t kPipePrefixLen = sizeof kPipePrefix / sizeof kPipePrefix[0] - 1;

// Win32 numbers used only here.
constexpr int32_t kWinInvalidHandle = 6;
constexpr int32_t kWinGenFailure = 31;
constexpr int32_t kWinTooManyOpenFiles = 4;
constexpr int32_t kWinInvalidName = 123;
constexpr int32_t kWinFilenameTooLong = 206;

// One send/recv moves at most this much; longer transfers loop.
constexpr uint64_t kMaxChunk = 1u << 30;

bool IsWouldBlock(int err) {
    return err == EAGAIN || err == EWOULDBLOCK;
}

int32_t CommonErrToWin32(int err) {
    switch (err) {
    case EBADF:
    case ENOTSOCK:
        return kWinInvalidHandle;
    case ENOMEM:
    case ENOBUFS:
        return OV_WINERR_NOT_ENOUGH_MEMORY;
    case EMFILE:
    case ENFILE:
        return kWinTooManyOpenFiles;
    case EACCES:
    case EPERM:
        return OV_WINERR_ACCESS_DENIED;
    default:
        return kWinGenFailure;
    }
}

// What CreateFileW reports for the same situation.
int32_t ConnectErrToWin32(int err) {
    if (IsWouldBlock(err)) {
        return OV_WINERR_PIPE_BUSY; // the listen queue is full: every instance is busy
    }
    switch (err) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED: // a socket file that nobody listens on: no pipe by that name
        return OV_WINERR_FILE_NOT_FOUND;
    case ENAMETOOLONG:
        return kWinFilenameTooLong;
    default:
        return CommonErrToWin32(err);
    }
}

// What ReadFile / WriteFile report when the peer has gone.
int32_t IoErrToWin32(int err, bool writing) {
    switch (err) {
    case EPIPE:
    case ECONNRESET:
        return writing ? OV_WINERR_NO_DATA : OV_WINERR_BROKEN_PIPE;
    case ENOTCONN:
        return OV_WINERR_PIPE_NOT_CONNECTED;
    default:
        return CommonErrToWin32(err);
    }
}

/// One direction of one transfer, so the wait can repeat the step itself.
struct Transfer {
    int fd;
    bool writing;
    uint8_t *buf;
    uint64_t want;
};

ssize_t Step(const Transfer &t) {
    size_t len = static_cast<size_t>(std::min(t.want, kMaxChunk));
    return t.writing ? send(t.fd, t.buf, len, MSG_NOSIGNAL) : recv(t.fd, t.buf, len, 0);
}

// Completes one transfer whose step did not finish at once (error 997,
// IO_PENDING), or reports one that failed at once (any other error).
int32_t _OV_ImcWait(const Transfer &t, int32_t error, uint64_t *counter) {
    // The number logged for an immediate failure is this function's own
    // last-error field, which is still 0 there; kept on purpose (the Windows
    // build prints the same).
    int32_t lastError = 0;
    if (error != OV_WINERR_IO_PENDING) {
        OV_Log("<Error>[%s:%d]Failed to read named pipe error code=%d\n", __func__, __LINE__,
               lastError);
        return OV_Win32ErrToErrno(error);
    }
    const uint64_t deadline = OV_GetTickCount64() + OV_IMC_WAIT_MS;
    for (;;) {
        uint64_t now = OV_GetTickCount64();
        if (now >= deadline) {
            lastError = OV_WINERR_WAIT_TIMEOUT;
            break;
        }
        pollfd pfd{t.fd, static_cast<short>(t.writing ? POLLOUT : POLLIN), 0};
        int ready = poll(&pfd, 1, static_cast<int>(deadline - now));
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            lastError = CommonErrToWin32(errno);
            break;
        }
        if (ready == 0) {
            continue;
        }
        ssize_t n = Step(t);
        if (n > 0) {
            *counter += static_cast<uint64_t>(n);
            return 0;
        }
        if (n == 0 && t.writing) {
            OV_Log("<Error>[%s:%d]Operation completed successfully but transferred 0 bytes\n",
                   __func__, __LINE__);
            return -OV_EPIPE;
        }
        if (n == 0) {
            lastError = OV_WINERR_BROKEN_PIPE; // end of stream after a wait: the peer closed
            break;
        }
        if (errno == EINTR || IsWouldBlock(errno)) {
            continue;
        }
        lastError = IoErrToWin32(errno, t.writing);
        break;
    }
    OV_Log("<Error>[%s:%d]Failed to get overlapped result error code=%d\n", __func__, __LINE__,
           lastError);
    return OV_Win32ErrToErrno(lastError);
}

// One connect attempt. waitMs 0: non-blocking, a full queue is reported at
// once. Otherwise the kernel waits up to waitMs for room in the queue (the
// counterpart of WaitNamedPipeW). Returns 0 and the descriptor, or the Win32
// number of the failure.
int32_t TryConnect(const sockaddr_un &addr, uint32_t waitMs, int *out) {
    int type = SOCK_STREAM | SOCK_CLOEXEC | (waitMs == 0 ? SOCK_NONBLOCK : 0);
    int fd = socket(AF_UNIX, type, 0);
    if (fd < 0) {
        return ConnectErrToWin32(errno);
    }
    if (waitMs != 0) {
        timeval tv{static_cast<time_t>(waitMs / 1000),
                   static_cast<suseconds_t>((waitMs % 1000) * 1000)};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    }
    if (connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) {
        int err = errno;
        close(fd);
        return err == EINTR ? OV_WINERR_PIPE_BUSY : ConnectErrToWin32(err);
    }
    if (waitMs != 0) {
        int flags = fcntl(fd, F_GETFL);
        if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
            int err = errno;
            close(fd);
            return CommonErrToWin32(err);
        }
    }
    *out = fd;
    return 0;
}

// Appends the UTF-8 form of c; false for a value that is no character.
bool AppendUtf8(uint32_t c, char *out, size_t outSize, size_t *len) {
    char buf[4];
    size_t n;
    if (c < 0x80) {
        buf[0] = static_cast<char>(c);
        n = 1;
    } else if (c < 0x800) {
        buf[0] = static_cast<char>(0xC0 | (c >> 6));
        buf[1] = static_cast<char>(0x80 | (c & 0x3F));
        n = 2;
    } else if (c < 0x10000) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            return false;
        }
        buf[0] = static_cast<char>(0xE0 | (c >> 12));
        buf[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        buf[2] = static_cast<char>(0x80 | (c & 0x3F));
        n = 3;
    } else if (c <= 0x10FFFF) {
        buf[0] = static_cast<char>(0xF0 | (c >> 18));
        buf[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        buf[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        buf[3] = static_cast<char>(0x80 | (c & 0x3F));
        n = 4;
    } else {
        return false;
    }
    if (outSize - *len < n + 1) {
        return false;
    }
    std::memcpy(out + *len, buf, n);
    *len += n;
    return true;
}

bool PrefixMatches(const wchar_t *name) {
    for (size_t i = 0; i < kPipePrefixLen; ++i) {
        wchar_t a = name[i];
        wchar_t b = kPipePrefix[i];
        // Windows compares "pipe" without regard to case.
        if (a >= L'A' && a <= L'Z') {
            a = static_cast<wchar_t>(a - L'A' + L'a');
        }
        if (a != b) {
            return false;
        }
    }
    return true;
}

} // namespace

int32_t OV_ImcPipePath(const wchar_t *pipeName, char *out, size_t outSize) {
    if (pipeName == nullptr || out == nullptr || outSize == 0) {
        return -OV_EINVAL;
    }
    out[0] = '\0';
    if (!PrefixMatches(pipeName)) {
        return -OV_EINVAL;
    }
    const wchar_t *name = pipeName + kPipePrefixLen;
    // The name becomes one file in the pipe directory, never a path.
    if (name[0] == L'\0' || std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0 ||
        std::wcschr(name, L'/') != nullptr) {
        return -OV_EINVAL;
    }
    const char *dir = std::getenv("OV_PIPE_DIR");
    if (dir == nullptr || dir[0] == '\0') {
        dir = kDefaultPipeDir;
    }
    size_t len = std::strlen(dir);
    if (len + 2 > outSize) {
        return -OV_EINVAL;
    }
    std::memcpy(out, dir, len);
    out[len++] = '/';
    for (const wchar_t *p = name; *p != L'\0'; ++p) {
        if (!AppendUtf8(static_cast<uint32_t>(*p), out, outSize, &len)) {
            out[0] = '\0';
            return -OV_EINVAL;
        }
    }
    out[len] = '\0';
    return 0;
}

int32_t OV_ImcConnect(const wchar_t *pipeName, uint16_t /*unused*/, OV_PipeHandle *out) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (OV_ImcPipePath(pipeName, addr.sun_path, sizeof addr.sun_path) != 0) {
        OV_Log("<Error>[%s:%d]Fail to connect pipe! error code=%d\n", __func__, __LINE__,
               kWinInvalidName);
        return OV_Win32ErrToErrno(kWinInvalidName);
    }
    int fd = -1;
    int32_t error = TryConnect(addr, 0, &fd);
    if (error == OV_WINERR_PIPE_BUSY) {
        // The kernel wakes the waiting connect as soon as the server takes a
        // queued client, so the wait ends early exactly as WaitNamedPipeW does.
        error = TryConnect(addr, OV_IMC_WAIT_MS, &fd);
        if (error == OV_WINERR_PIPE_BUSY) {
            error = OV_WINERR_SEM_TIMEOUT;
        }
        if (error != 0) {
            OV_Log("<Error>[%s:%d]Fail to wait for pipe! error code=%d\n", __func__, __LINE__,
                   error);
            return OV_Win32ErrToErrno(error);
        }
    } else if (error != 0) {
        OV_Log("<Error>[%s:%d]Fail to connect pipe! error code=%d\n", __func__, __LINE__, error);
        return OV_Win32ErrToErrno(error);
    }
    // Checked before a byte goes out: whoever holds the name gets nothing.
    if (int32_t rc = OV_ImcCheckPeer(fd); rc != 0) {
        close(fd);
        return rc;
    }
    *out = fd;
    return 0;
}

int32_t OV_ImcSendAll(OV_PipeHandle h, FlexMsg *msg) {
    int32_t rc = 0;
    uint64_t sent = 0;
    while (sent < msg->length) {
        Transfer t{static_cast<int>(h), true, msg->data + sent, msg->length - sent};
        ssize_t n = Step(t);
        if (n > 0) {
            sent += static_cast<uint64_t>(n);
            continue;
        }
        if (n == 0) {
            OV_Log("<Error>[%s:%d]WriteFile succeeded but wrote 0 bytes, requested %d bytes\n",
                   __func__, __LINE__, static_cast<int>(msg->length - sent));
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        int32_t error = IsWouldBlock(errno) ? OV_WINERR_IO_PENDING : IoErrToWin32(errno, true);
        rc = _OV_ImcWait(t, error, &sent);
        if (rc != 0) {
            break;
        }
    }
    return rc;
}

int32_t OV_ImcRecvAll(OV_PipeHandle h, FlexMsg *msg, uint64_t n, int32_t /*flag*/) {
    if (!OV_FlexMsgDataMaybePull(msg, n)) {
        return -OV_ENOMEM;
    }
    int32_t rc = 0;
    uint64_t got = 0;
    while (got < n) {
        Transfer t{static_cast<int>(h), false, msg->data + msg->length + got, n - got};
        ssize_t r = Step(t);
        if (r > 0) {
            got += static_cast<uint64_t>(r);
            continue;
        }
        int32_t error;
        if (r == 0) {
            error = OV_WINERR_BROKEN_PIPE; // ReadFile on a closed pipe fails at once
        } else if (errno == EINTR) {
            continue;
        } else {
            error = IsWouldBlock(errno) ? OV_WINERR_IO_PENDING : IoErrToWin32(errno, false);
        }
        rc = _OV_ImcWait(t, error, &got);
        if (rc != 0) {
            break;
        }
    }
    if (rc == 0) {
        msg->length += n;
    }
    return rc;
}

void OV_ImcClose(OV_PipeHandle h) {
    if (h != OV_INVALID_PIPE_HANDLE) {
        close(static_cast<int>(h));
    }
}
