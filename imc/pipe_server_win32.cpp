// Windows agent end of the IMC channel: overlapped named-pipe instances, one
// of them listening at a time, at most maxInstances connected clients.
#include "imc/pipe_server.h"

#include "base/errors.h"
#include "base/log.h"
#include "imc/pipe.h"
#include "imc/win32_handle.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace {

constexpr DWORD kBufferSize = 4096;
// Guests and anonymous users are denied; authenticated users may read, write
// and execute; administrators have full access.
constexpr const wchar_t *kPipeSddl =
    L"D:(D;OICI;GA;;;BG)(D;OICI;GA;;;AN)(A;OICI;GRGWGX;;;AU)(A;OICI;GA;;;BA)";
constexpr uint64_t kMaxChunk = 1u << 30;

using Clock = std::chrono::steady_clock;

/// A pipe instance waiting for (or just given) a client.
struct Instance {
    OV_ScopedFile pipe;
    OV_ScopedEvent event;
    OVERLAPPED ov{};
    bool connected = false;
};

} // namespace

struct OV_PipeServer {
    std::wstring name;
    char displayName[512] = {};
    uint32_t maxInstances = 0;
    PSECURITY_DESCRIPTOR sd = nullptr;
    OV_ScopedEvent wake;

    std::timed_mutex acceptLock; ///< one thread at a time waits on the listening instance
    std::mutex lock;             ///< guards everything below
    std::condition_variable slotFreed;
    std::unique_ptr<Instance> listening;
    uint32_t active = 0; ///< connections handed out and not yet closed
    bool stopping = false;
};

struct OV_PipeConn {
    OV_PipeServer *server;
    OV_ScopedFile pipe;
    OV_ScopedEvent event;
};

namespace {

int32_t MapWin32(DWORD error) {
    return OV_Win32ErrToErrno(static_cast<int32_t>(error));
}

bool PeerGone(DWORD error) {
    return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA ||
           error == ERROR_PIPE_NOT_CONNECTED;
}

DWORD MillisUntil(Clock::time_point until) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
    if (left.count() <= 0) {
        return 0;
    }
    return static_cast<DWORD>(std::min<int64_t>(left.count(), INFINITE - 1));
}

// Starts (or starts again) the overlapped ConnectNamedPipe of an instance; a
// client already there sets its event at once.
int32_t Listen(OV_PipeServer *server, Instance *inst) {
    ResetEvent(inst->event.Get());
    inst->ov = OVERLAPPED{};
    inst->ov.hEvent = inst->event.Get();
    if (ConnectNamedPipe(inst->pipe.Get(), &inst->ov)) {
        inst->connected = true;
    } else {
        DWORD error = GetLastError();
        if (error == ERROR_PIPE_CONNECTED) {
            // The client came between create and connect.
            inst->connected = true;
        } else if (error != ERROR_IO_PENDING) {
            OV_Log("<Error>[%s:%d]Failed to listen on pipe %s error code=%d\n", __func__, __LINE__,
                   server->displayName, static_cast<int>(error));
            return MapWin32(error);
        }
    }
    if (inst->connected) {
        SetEvent(inst->event.Get());
    }
    return 0;
}

// Creates one instance and starts its overlapped ConnectNamedPipe. The caller
// holds server->lock (or is the only user, during create).
int32_t StartInstance(OV_PipeServer *server, bool first, std::unique_ptr<Instance> *out) {
    std::unique_ptr<Instance> inst(new (std::nothrow) Instance);
    if (!inst) {
        return -OV_ENOMEM;
    }
    inst->event = OV_CreateManualEvent();
    if (!inst->event) {
        return -OV_ENOMEM;
    }
    SECURITY_ATTRIBUTES sa{sizeof sa, server->sd, FALSE};
    DWORD openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;
    if (first) {
        openMode |= FILE_FLAG_FIRST_PIPE_INSTANCE;
    }
    // One handle more than the served clients: the next instance is created
    // before a served one is closed, so the name is never unowned.
    inst->pipe.Reset(CreateNamedPipeW(server->name.c_str(), openMode,
                                      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT |
                                          PIPE_REJECT_REMOTE_CLIENTS,
                                      server->maxInstances + 1, kBufferSize, kBufferSize, 0, &sa));
    if (!inst->pipe) {
        DWORD error = GetLastError();
        if (first && error == ERROR_ACCESS_DENIED) {
            OV_Log("<Error>[%s:%d]Pipe %s is already owned by another server\n", __func__, __LINE__,
                   server->displayName);
            return -OV_EEXIST;
        }
        OV_Log("<Error>[%s:%d]Failed to create pipe %s error code=%d\n", __func__, __LINE__,
               server->displayName, static_cast<int>(error));
        return MapWin32(error);
    }
    int32_t rc = Listen(server, inst.get());
    if (rc != 0) {
        return rc;
    }
    *out = std::move(inst);
    return 0;
}

// Withdraws a listening instance's pending connect before it is closed.
void DropInstance(std::unique_ptr<Instance> inst) {
    if (inst && !inst->connected) {
        OV_CancelPendingIo(inst->pipe.Get(), &inst->ov);
    }
}

int32_t Transfer(OV_PipeConn *conn, uint8_t *buf, size_t n, uint32_t timeoutMs, bool writing,
                 size_t *got) {
    size_t total = 0;
    int32_t rc = 0;
    HANDLE h = conn->pipe.Get();
    while (total < n) {
        ResetEvent(conn->event.Get());
        OVERLAPPED ov{};
        ov.hEvent = conn->event.Get();
        DWORD chunk = static_cast<DWORD>(std::min<uint64_t>(n - total, kMaxChunk));
        DWORD done = 0;
        BOOL ok = writing ? WriteFile(h, buf + total, chunk, &done, &ov)
                          : ReadFile(h, buf + total, chunk, &done, &ov);
        if (ok) {
            total += done;
            continue;
        }
        DWORD error = GetLastError();
        if (error == ERROR_IO_PENDING) {
            if (GetOverlappedResultEx(h, &ov, &done, timeoutMs, FALSE)) {
                if (done == 0) {
                    rc = -OV_EPIPE; // a completion without bytes: the peer has gone
                    break;
                }
                total += done;
                continue;
            }
            error = GetLastError();
            DWORD late = OV_CancelPendingIo(h, &ov);
            if (late > 0) {
                total += late; // completed while we gave up on it
                continue;
            }
        }
        if (PeerGone(error)) {
            rc = -OV_EPIPE;
        } else if (error == WAIT_TIMEOUT) {
            rc = -OV_ETIMEDOUT;
        } else {
            rc = MapWin32(error);
        }
        break;
    }
    if (got != nullptr) {
        *got = total;
    }
    return rc;
}

} // namespace

int32_t OV_PipeServerCreate(const wchar_t *pipeName, uint32_t maxInstances, OV_PipeServer **out) {
    if (pipeName == nullptr || out == nullptr || maxInstances == 0 ||
        maxInstances > OV_PIPE_SERVER_MAX_INSTANCES) {
        return -OV_EINVAL;
    }
    std::unique_ptr<OV_PipeServer> server(new (std::nothrow) OV_PipeServer);
    if (!server) {
        return -OV_ENOMEM;
    }
    server->name = pipeName;
    server->maxInstances = maxInstances;
    if (OV_ImcPipePath(pipeName, server->displayName, sizeof server->displayName) != 0) {
        return -OV_EINVAL;
    }
    server->wake = OV_CreateManualEvent();
    if (!server->wake) {
        return -OV_ENOMEM;
    }
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kPipeSddl, SDDL_REVISION_1,
                                                              &server->sd, nullptr)) {
        DWORD error = GetLastError();
        OV_Log("<Error>[%s:%d]Failed to build the pipe security descriptor error code=%d\n",
               __func__, __LINE__, static_cast<int>(error));
        return MapWin32(error);
    }
    // Wine ignores FILE_FLAG_FIRST_PIPE_INSTANCE, so ask first whether the
    // name already has a server: it exists when a wait for it does not
    // fail with "not found". The flag still closes the race on Windows.
    bool owned = WaitNamedPipeW(server->name.c_str(), 1) != FALSE;
    if (!owned) {
        DWORD error = GetLastError();
        owned = error == ERROR_SEM_TIMEOUT || error == ERROR_PIPE_BUSY;
    }
    if (owned) {
        OV_Log("<Error>[%s:%d]Pipe %s is already owned by another server\n", __func__, __LINE__,
               server->displayName);
        LocalFree(server->sd);
        return -OV_EEXIST;
    }
    int32_t rc = StartInstance(server.get(), true, &server->listening);
    if (rc != 0) {
        LocalFree(server->sd);
        return rc;
    }
    *out = server.release();
    return 0;
}

int32_t OV_PipeServerAccept(OV_PipeServer *server, uint32_t timeoutMs, OV_PipeConn **out) {
    if (server == nullptr || out == nullptr) {
        return -OV_EINVAL;
    }
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::timed_mutex> acceptGuard(server->acceptLock, until);
    if (!acceptGuard.owns_lock()) {
        return -OV_ETIMEDOUT;
    }
    for (;;) {
        Instance *inst = nullptr;
        {
            std::unique_lock<std::mutex> guard(server->lock);
            if (!server->slotFreed.wait_until(guard, until, [server] {
                    return server->stopping || server->active < server->maxInstances;
                })) {
                return -OV_ETIMEDOUT;
            }
            if (server->stopping) {
                return -OV_EINTR;
            }
            if (!server->listening) {
                int32_t rc = StartInstance(server, false, &server->listening);
                if (rc != 0) {
                    return rc;
                }
            }
            // Only the holder of acceptLock takes the listening instance away.
            inst = server->listening.get();
        }
        HANDLE events[2] = {inst->event.Get(), server->wake.Get()};
        DWORD w = WaitForMultipleObjects(2, events, FALSE, MillisUntil(until));
        if (w == WAIT_OBJECT_0 + 1) {
            return -OV_EINTR;
        }
        if (w == WAIT_TIMEOUT) {
            return -OV_ETIMEDOUT;
        }
        if (w != WAIT_OBJECT_0) {
            return MapWin32(GetLastError());
        }
        DWORD ignored = 0;
        bool ok = inst->connected ||
                  GetOverlappedResult(inst->pipe.Get(), &inst->ov, &ignored, FALSE) != FALSE;
        if (!ok && GetLastError() == ERROR_OPERATION_ABORTED) {
            // The connect was started by OV_PipeConnClose on a connection's
            // thread, and Windows cancels a thread's pending I/O when the
            // thread ends. The instance still listens (a client may already
            // be on it): start the connect again from this thread.
            std::lock_guard<std::mutex> guard(server->lock);
            if (Listen(server, inst) != 0) {
                server->listening.reset();
            }
            continue;
        }
        inst->connected = true; // the connect is over either way
        std::unique_ptr<Instance> taken;
        {
            std::lock_guard<std::mutex> guard(server->lock);
            taken = std::move(server->listening);
            if (ok) {
                ++server->active;
            }
            // Listen again at once: the next client connects while this one
            // is served, and a failed instance is replaced before it closes.
            if (!server->stopping && server->active < server->maxInstances) {
                if (StartInstance(server, false, &server->listening) != 0) {
                    server->listening.reset();
                }
            }
        }
        if (!ok) {
            continue; // the client left before we took it
        }
        auto *conn = new (std::nothrow) OV_PipeConn{server, std::move(taken->pipe), {}};
        if (conn == nullptr) {
            std::lock_guard<std::mutex> guard(server->lock);
            --server->active;
            return -OV_ENOMEM;
        }
        conn->event = OV_CreateManualEvent();
        if (!conn->event) {
            OV_PipeConnClose(conn);
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
    SetEvent(server->wake.Get());
}

void OV_PipeServerDestroy(OV_PipeServer *server) {
    if (server == nullptr) {
        return;
    }
    OV_PipeServerShutdown(server);
    {
        // Waits for an accept that is still between its wake-up and its return.
        std::lock_guard<std::timed_mutex> acceptGuard(server->acceptLock);
        std::lock_guard<std::mutex> guard(server->lock);
        DropInstance(std::move(server->listening));
    }
    LocalFree(server->sd);
    delete server;
}

uint32_t OV_PipeServerQueuedClients() {
    return 0;
}

int32_t OV_PipeConnRead(OV_PipeConn *conn, void *buf, size_t n, uint32_t timeoutMs, size_t *got) {
    return Transfer(conn, static_cast<uint8_t *>(buf), n, timeoutMs, false, got);
}

int32_t OV_PipeConnWrite(OV_PipeConn *conn, const void *buf, size_t n, uint32_t timeoutMs) {
    // WriteFile never writes through its buffer pointer.
    return Transfer(conn, static_cast<uint8_t *>(const_cast<void *>(buf)), n, timeoutMs, true,
                    nullptr);
}

void OV_PipeConnClose(OV_PipeConn *conn) {
    if (conn == nullptr) {
        return;
    }
    OV_PipeServer *server = conn->server;
    {
        std::lock_guard<std::mutex> guard(server->lock);
        // The next instance exists before this one closes, so the name is
        // never unowned (a client waiting for the pipe would otherwise fail).
        if (!server->listening && !server->stopping) {
            if (StartInstance(server, false, &server->listening) != 0) {
                server->listening.reset();
            }
        }
        conn->pipe.Reset();
        --server->active;
    }
    server->slotFreed.notify_one();
    delete conn;
}
