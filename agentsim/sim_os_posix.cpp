// agentsim's operating-system services on POSIX.
#include "agentsim/sim_os.h"

#include "base/errors.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

struct StopWatch {
    std::thread thread;
    std::atomic<bool> ending{false};
    void (*onStop)(void *) = nullptr;
    void *ctx = nullptr;
};

StopWatch g_watch;

int32_t WriteAll(int fd, const std::string &data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return OV_PosixErrToErrno(n < 0 ? errno : EIO);
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

// The rename is durable only once the directory itself is on the disk.
void SyncDirectoryOf(const std::string &path) {
    size_t slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

} // namespace

FILE *SimTakeStdout() {
    std::fflush(stdout);
    int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (fd < 0) {
        return nullptr;
    }
    dup2(STDERR_FILENO, STDOUT_FILENO);
    FILE *out = fdopen(fd, "w");
    if (out == nullptr) {
        close(fd);
    }
    return out;
}

FILE *SimOpenAppend(const std::string &path) {
    return std::fopen(path.c_str(), "abe");
}

int32_t SimWriteFileAtomic(const std::string &path, const std::string &data) {
    std::string tmp = path + ".tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        return OV_PosixErrToErrno(errno);
    }
    int32_t rc = WriteAll(fd, data);
    if (rc == 0 && fsync(fd) != 0) {
        rc = OV_PosixErrToErrno(errno);
    }
    if (close(fd) != 0 && rc == 0) {
        rc = OV_PosixErrToErrno(errno);
    }
    if (rc == 0 && rename(tmp.c_str(), path.c_str()) != 0) {
        rc = OV_PosixErrToErrno(errno);
    }
    if (rc != 0) {
        unlink(tmp.c_str());
        return rc;
    }
    SyncDirectoryOf(path);
    return 0;
}

int32_t SimReadFile(const std::string &path, std::string *out) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? -OV_ENOENT : OV_PosixErrToErrno(errno);
    }
    out->clear();
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            int err = errno;
            close(fd);
            return OV_PosixErrToErrno(err);
        }
        if (n == 0) {
            break;
        }
        out->append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return 0;
}

void SimRemoveFile(const std::string &path) {
    unlink(path.c_str());
}

void SimSetPipeDir(const std::string &dir) {
    setenv("OV_PIPE_DIR", dir.c_str(), 1);
}

int32_t SimStopWatchStart(void (*onStop)(void *ctx), void *ctx) {
    // A journal reader that goes away must not kill the simulator.
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    // Blocked here, before any other thread exists, so every later thread
    // inherits the mask and only the watcher's sigwait takes the signals.
    int err = pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (err != 0) {
        return OV_PosixErrToErrno(err);
    }
    g_watch.onStop = onStop;
    g_watch.ctx = ctx;
    g_watch.thread = std::thread([set] {
        for (;;) {
            int sig = 0;
            if (sigwait(&set, &sig) != 0 || g_watch.ending.load()) {
                return;
            }
            g_watch.onStop(g_watch.ctx);
        }
    });
    return 0;
}

void SimStopWatchEnd() {
    if (!g_watch.thread.joinable()) {
        return;
    }
    g_watch.ending.store(true);
    // Wakes the watcher out of sigwait; the signal is blocked in every thread.
    // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
    pthread_kill(g_watch.thread.native_handle(), SIGTERM);
    g_watch.thread.join();
}

uint32_t SimProcessId() {
    return static_cast<uint32_t>(getpid());
}
