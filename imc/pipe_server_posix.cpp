// POSIX agent end of the IMC channel: a listening Unix-domain stream socket
// in the pipe directory, accepting at most maxInstances clients at once.
#include "imc/pipe_server.h"

#include "base/errors.h"
#include "base/log.h"
#include "base/platform.h"
#include "imc/pipe.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

struct OV_PipeServer {
    sockaddr_un addr{};
    int listenFd = -1;
    int wakeRead = -1;
    int wakeWrite = -1;
    // Identity of the socket file we bound, so that destroy never removes a
    // file that someone else has put in its place since.
    dev_t fileDev = 0;
    ino_t fileIno = 0;
    uint32_t maxInstances = 0;

    std::mutex lock;
    std::condition_variable slotFreed;
    uint32_t active = 0; ///< connections handed out or being accepted
    bool stopping = false;
};

struct OV_PipeConn {
    OV_PipeServer *server;
    int fd;
};

namespace {

using Clock = std::chrono::steady_clock;

// The smallest listen queue the kernel offers (it holds one client).
constexpr int kListenBacklog = 0;

int32_t PeerGoneOr(int err) {
    if (err == EPIPE || err == ECONNRESET || err == ENOTCONN) {
        return -OV_EPIPE;
    }
    return OV_PosixErrToErrno(err);
}

void CloseFd(int *fd) {
    if (*fd >= 0) {
        close(*fd);
        *fd = -1;
    }
}

// Creates the last directory of the socket path when it is missing.
int32_t EnsureDirectory(const char *path) {
    char dir[sizeof(sockaddr_un::sun_path)];
    std::strncpy(dir, path, sizeof dir - 1);
    dir[sizeof dir - 1] = '\0';
    char *slash = std::strrchr(dir, '/');
    if (slash == nullptr || slash == dir) {
        return 0;
    }
    *slash = '\0';
    if (mkdir(dir, 0700) != 0 && errno != EEXIST) {
        int err = errno;
        OV_Log("<Error>[%s:%d]Failed to create pipe directory %s errno=%d\n", __func__, __LINE__,
               dir, err);
        return OV_PosixErrToErrno(err);
    }
    return 0;
}

// 0 when nobody answers at the path (a stale socket file is removed), -17
// when a live server does.
int32_t ClaimPath(const sockaddr_un &addr) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return OV_PosixErrToErrno(errno);
    }
    int rc = connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
    int err = errno;
    close(fd);
    if (rc == 0 || err == EAGAIN || err == EWOULDBLOCK) {
        return -OV_EEXIST; // a listener answered (or its queue is full)
    }
    if (err == ECONNREFUSED) {
        // A socket file that nobody listens on is left over from a crash;
        // anything else by that name is not ours to remove.
        struct stat st {};
        if (lstat(addr.sun_path, &st) == 0 && !S_ISSOCK(st.st_mode)) {
            return -OV_EEXIST;
        }
        unlink(addr.sun_path);
    }
    return 0;
}

// Milliseconds left until deadline, in the range poll() takes.
int Remaining(uint64_t deadline) {
    uint64_t now = OV_GetTickCount64();
    if (now >= deadline) {
        return 0;
    }
    uint64_t left = deadline - now;
    return left > INT32_MAX ? INT32_MAX : static_cast<int>(left);
}

void ReleaseSlot(OV_PipeServer *server) {
    {
        std::lock_guard<std::mutex> guard(server->lock);
        --server->active;
    }
    server->slotFreed.notify_one();
}

// Waits for fd to become ready for events; 1 ready, 0 timed out, <0 -errno.
int WaitReady(int fd, short events, uint32_t timeoutMs) {
    const uint64_t deadline = OV_GetTickCount64() + timeoutMs;
    for (;;) {
        pollfd pfd{fd, events, 0};
        int ready = poll(&pfd, 1, Remaining(deadline));
        if (ready > 0) {
            return 1;
        }
        if (ready == 0) {
            return 0;
        }
        if (errno != EINTR) {
            return -errno;
        }
    }
}

} // namespace

int32_t OV_PipeServerCreate(const wchar_t *pipeName, uint32_t maxInstances, OV_PipeServer **out) {
    if (out == nullptr || maxInstances == 0 || maxInstances > OV_PIPE_SERVER_MAX_INSTANCES) {
        return -OV_EINVAL;
    }
    auto *server = new (std::nothrow) OV_PipeServer;
    if (server == nullptr) {
        return -OV_ENOMEM;
    }
    server->maxInstances = maxInstances;
    server->addr.sun_family = AF_UNIX;
    int32_t rc = OV_ImcPipePath(pipeName, server->addr.sun_path, sizeof server->addr.sun_path);
    if (rc == 0) {
        rc = EnsureDirectory(server->addr.sun_path);
    }
    if (rc == 0) {
        rc = ClaimPath(server->addr);
    }
    if (rc == 0) {
        server->listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (server->listenFd < 0) {
            rc = OV_PosixErrToErrno(errno);
        }
    }
    if (rc == 0 && bind(server->listenFd, reinterpret_cast<const sockaddr *>(&server->addr),
                        sizeof server->addr) != 0) {
        // Someone bound the name between our check and our bind.
        rc = errno == EADDRINUSE ? -OV_EEXIST : OV_PosixErrToErrno(errno);
    }
    if (rc == -OV_EEXIST) {
        OV_Log("<Error>[%s:%d]Pipe %s is already owned by another server\n", __func__, __LINE__,
               server->addr.sun_path);
    }
    if (rc == 0) {
        struct stat st {};
        if (chmod(server->addr.sun_path, 0660) != 0 || stat(server->addr.sun_path, &st) != 0) {
            rc = OV_PosixErrToErrno(errno);
            unlink(server->addr.sun_path);
        } else {
            server->fileDev = st.st_dev;
            server->fileIno = st.st_ino;
        }
    }
    if (rc == 0 && listen(server->listenFd, kListenBacklog) != 0) {
        rc = OV_PosixErrToErrno(errno);
        unlink(server->addr.sun_path);
    }
    int wake[2] = {-1, -1};
    if (rc == 0 && pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        rc = OV_PosixErrToErrno(errno);
        unlink(server->addr.sun_path);
    }
    if (rc != 0) {
        CloseFd(&server->listenFd);
        delete server;
        return rc;
    }
    server->wakeRead = wake[0];
    server->wakeWrite = wake[1];
    *out = server;
    return 0;
}

int32_t OV_PipeServerAccept(OV_PipeServer *server, uint32_t timeoutMs, OV_PipeConn **out) {
    if (server == nullptr || out == nullptr) {
        return -OV_EINVAL;
    }
    const uint64_t deadline = OV_GetTickCount64() + timeoutMs;
    {
        std::unique_lock<std::mutex> guard(server->lock);
        auto until = Clock::now() + std::chrono::milliseconds(timeoutMs);
        if (!server->slotFreed.wait_until(guard, until, [server] {
                return server->stopping || server->active < server->maxInstances;
            })) {
            return -OV_ETIMEDOUT;
        }
        if (server->stopping) {
            return -OV_EINTR;
        }
        ++server->active; // reserved, so concurrent accepts never exceed the limit
    }
    for (;;) {
        pollfd pfds[2] = {{server->listenFd, POLLIN, 0}, {server->wakeRead, POLLIN, 0}};
        int ready = poll(pfds, 2, Remaining(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            int err = errno;
            ReleaseSlot(server);
            return OV_PosixErrToErrno(err);
        }
        if (ready == 0) {
            ReleaseSlot(server);
            return -OV_ETIMEDOUT;
        }
        if (pfds[1].revents != 0) {
            ReleaseSlot(server);
            return -OV_EINTR;
        }
        // Other accepting threads may have taken the client first.
        int fd = accept4(server->listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            int err = errno;
            if (err == EAGAIN || err == EWOULDBLOCK || err == EINTR || err == ECONNABORTED) {
                continue;
            }
            ReleaseSlot(server);
            return OV_PosixErrToErrno(err);
        }
        auto *conn = new (std::nothrow) OV_PipeConn{server, fd};
        if (conn == nullptr) {
            close(fd);
            ReleaseSlot(server);
            return -OV_ENOMEM;
        }
        *out = conn;
        return 0;
    }
}

void OV_PipeServerShutdown(OV_PipeServer *server) {
    if (server == nullptr) {
        return;
    }
    {
        std::lock_guard<std::mutex> guard(server->lock);
        server->stopping = true;
    }
    server->slotFreed.notify_all();
    // The byte is never read: the wake end stays readable for every later poll.
    const char byte = 1;
    (void)!write(server->wakeWrite, &byte, 1);
}

void OV_PipeServerDestroy(OV_PipeServer *server) {
    if (server == nullptr) {
        return;
    }
    struct stat st {};
    if (stat(server->addr.sun_path, &st) == 0 && st.st_dev == server->fileDev &&
        st.st_ino == server->fileIno) {
        unlink(server->addr.sun_path);
    }
    CloseFd(&server->listenFd);
    CloseFd(&server->wakeRead);
    CloseFd(&server->wakeWrite);
    delete server;
}

uint32_t OV_PipeServerQueuedClients() {
    return 1;
}

int32_t OV_PipeConnRead(OV_PipeConn *conn, void *buf, size_t n, uint32_t timeoutMs, size_t *got) {
    size_t done = 0;
    int32_t rc = 0;
    while (done < n) {
        ssize_t r = recv(conn->fd, static_cast<uint8_t *>(buf) + done, n - done, 0);
        if (r > 0) {
            done += static_cast<size_t>(r);
            continue;
        }
        if (r == 0) {
            rc = -OV_EPIPE;
            break;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            rc = PeerGoneOr(errno);
            break;
        }
        int ready = WaitReady(conn->fd, POLLIN, timeoutMs);
        if (ready <= 0) {
            rc = ready == 0 ? -OV_ETIMEDOUT : OV_PosixErrToErrno(-ready);
            break;
        }
    }
    if (got != nullptr) {
        *got = done;
    }
    return rc;
}

int32_t OV_PipeConnWrite(OV_PipeConn *conn, const void *buf, size_t n, uint32_t timeoutMs) {
    size_t done = 0;
    while (done < n) {
        ssize_t w =
            send(conn->fd, static_cast<const uint8_t *>(buf) + done, n - done, MSG_NOSIGNAL);
        if (w > 0) {
            done += static_cast<size_t>(w);
            continue;
        }
        if (w < 0 && errno == EINTR) {
            continue;
        }
        if (w < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            return PeerGoneOr(errno);
        }
        int ready = WaitReady(conn->fd, POLLOUT, timeoutMs);
        if (ready <= 0) {
            return ready == 0 ? -OV_ETIMEDOUT : OV_PosixErrToErrno(-ready);
        }
    }
    return 0;
}

void OV_PipeConnClose(OV_PipeConn *conn) {
    if (conn == nullptr) {
        return;
    }
    close(conn->fd);
    ReleaseSlot(conn->server);
    delete conn;
}
