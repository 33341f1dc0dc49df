// agentsim's operating-system services on Windows.
#include "agentsim/sim_os.h"

#include "base/errors.h"
#include "base/win32.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <io.h>
#include <mutex>

namespace {

struct StopWatch {
    std::mutex lock; ///< held while onStop runs, so End waits for it
    void (*onStop)(void *) = nullptr;
    void *ctx = nullptr;
    std::atomic<bool> ending{false};
    HANDLE ended = nullptr; ///< set by End; a console close waits for it
};

StopWatch g_watch;

int32_t LastError() {
    return OV_Win32ErrToErrno(static_cast<int32_t>(GetLastError()));
}

std::wstring Wide(const std::string &text) {
    if (text.empty()) {
        return {};
    }
    int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0) {
        return {};
    }
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

// Runs on a thread the system creates for the console event.
BOOL WINAPI OnConsoleEvent(DWORD type) {
    if (g_watch.ending.load()) {
        return FALSE;
    }
    {
        std::lock_guard<std::mutex> guard(g_watch.lock);
        if (!g_watch.ending.load() && g_watch.onStop != nullptr) {
            g_watch.onStop(g_watch.ctx);
        }
    }
    // For a console close the process ends when this returns: give the
    // clean shutdown (socket of the pipe, ready file) a few seconds first.
    if (type == CTRL_CLOSE_EVENT || type == CTRL_LOGOFF_EVENT || type == CTRL_SHUTDOWN_EVENT) {
        WaitForSingleObject(g_watch.ended, 5000);
    }
    return TRUE;
}

} // namespace

FILE *SimTakeStdout() {
    std::fflush(stdout);
    int fd = _dup(1);
    if (fd < 0) {
        return nullptr;
    }
    _dup2(2, 1);
    _setmode(fd, _O_BINARY);
    FILE *out = _fdopen(fd, "wb");
    if (out == nullptr) {
        _close(fd);
    }
    return out;
}

FILE *SimOpenAppend(const std::string &path) {
    std::wstring wide = Wide(path);
    return wide.empty() ? nullptr : _wfopen(wide.c_str(), L"ab");
}

int32_t SimWriteFileAtomic(const std::string &path, const std::string &data) {
    std::wstring target = Wide(path);
    if (target.empty()) {
        return -OV_EINVAL;
    }
    std::wstring tmp = target + L".tmp";
    HANDLE h = CreateFileW(tmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        return LastError();
    }
    int32_t rc = 0;
    size_t done = 0;
    while (rc == 0 && done < data.size()) {
        DWORD chunk = static_cast<DWORD>(std::min<size_t>(data.size() - done, 1u << 30));
        DWORD written = 0;
        if (!WriteFile(h, data.data() + done, chunk, &written, nullptr) || written == 0) {
            rc = LastError();
            break;
        }
        done += written;
    }
    if (rc == 0 && !FlushFileBuffers(h)) {
        rc = LastError();
    }
    CloseHandle(h);
    if (rc == 0 && !MoveFileExW(tmp.c_str(), target.c_str(),
                                MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        rc = LastError();
    }
    if (rc != 0) {
        DeleteFileW(tmp.c_str());
    }
    return rc;
}

int32_t SimReadFile(const std::string &path, std::string *out) {
    std::wstring wide = Wide(path);
    if (wide.empty()) {
        return -OV_EINVAL;
    }
    HANDLE h = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND
                   ? -OV_ENOENT
                   : OV_Win32ErrToErrno(static_cast<int32_t>(error));
    }
    out->clear();
    char buf[65536];
    int32_t rc = 0;
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(h, buf, sizeof buf, &got, nullptr)) {
            rc = LastError();
            break;
        }
        if (got == 0) {
            break;
        }
        out->append(buf, got);
    }
    CloseHandle(h);
    return rc;
}

void SimRemoveFile(const std::string &path) {
    std::wstring wide = Wide(path);
    if (!wide.empty()) {
        DeleteFileW(wide.c_str());
    }
}

void SimSetPipeDir(const std::string & /*dir*/) {}

int32_t SimStopWatchStart(void (*onStop)(void *ctx), void *ctx) {
    g_watch.onStop = onStop;
    g_watch.ctx = ctx;
    g_watch.ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (g_watch.ended == nullptr) {
        return -OV_ENOMEM;
    }
    if (!SetConsoleCtrlHandler(OnConsoleEvent, TRUE)) {
        return LastError();
    }
    return 0;
}

void SimStopWatchEnd() {
    {
        std::lock_guard<std::mutex> guard(g_watch.lock);
        g_watch.ending.store(true);
    }
    if (g_watch.ended != nullptr) {
        SetEvent(g_watch.ended);
    }
}

uint32_t SimProcessId() {
    return static_cast<uint32_t>(GetCurrentProcessId());
}
