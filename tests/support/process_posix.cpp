// Test support: child processes on POSIX (posix_spawn, pipes, waitpid).
#include "tests/support/process.h"

#include "base/errors.h"
#include "tests/support/process_capture.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace ovtest {

namespace {

void Drain(int fd, CapturedText *sink) {
    char buf[16384];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        sink->Append(buf, static_cast<size_t>(n));
    }
    close(fd);
}

// The inherited environment without the overridden names, then the overrides.
std::vector<std::string> MergedEnvironment(const EnvOverrides &overrides) {
    std::vector<std::string> out;
    for (char **e = environ; e != nullptr && *e != nullptr; ++e) {
        std::string entry = *e;
        if (std::none_of(overrides.begin(), overrides.end(),
                         [&](const auto &o) { return entry.starts_with(o.first + "="); })) {
            out.push_back(entry);
        }
    }
    for (const auto &[name, value] : overrides) {
        out.push_back(name + "=" + value);
    }
    return out;
}

// Collects the status when the child has ended; true once it has.
bool Reap(Process::Impl *p, bool block) {
    if (p->ended || p->pid < 0) {
        return true;
    }
    int status = 0;
    pid_t r;
    do {
        r = waitpid(static_cast<pid_t>(p->pid), &status, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r != p->pid) {
        return false;
    }
    p->ended = true;
    p->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    p->JoinReaders();
    return true;
}

} // namespace

std::string NativePath(const std::string &path) {
    return path;
}

Process::Process() : impl_(std::make_unique<Impl>()) {}

Process::~Process() {
    if (impl_->pid >= 0 && !impl_->ended) {
        Kill();
    }
    impl_->JoinReaders();
}

int32_t Process::Start(const std::vector<std::string> &argv, const EnvOverrides &env) {
    if (argv.empty() || impl_->pid >= 0) {
        return -OV_EINVAL;
    }
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0) {
        return OV_PosixErrToErrno(errno);
    }
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        int e = errno;
        close(outPipe[0]);
        close(outPipe[1]);
        return OV_PosixErrToErrno(e);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    // The child starts with no blocked signals and default actions, whatever
    // the test process has set up for itself.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none;
    sigemptyset(&none);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&defaults, sig);
    }
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<char *> args;
    for (const std::string &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    std::vector<std::string> envText = MergedEnvironment(env);
    std::vector<char *> envp;
    for (std::string &e : envText) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);

    pid_t pid = -1;
    int rc = posix_spawn(&pid, argv[0].c_str(), &actions, &attr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    close(outPipe[1]);
    close(errPipe[1]);
    if (rc != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        return OV_PosixErrToErrno(rc);
    }
    impl_->pid = pid;
    impl_->outReader = std::thread(Drain, outPipe[0], &impl_->out);
    impl_->errReader = std::thread(Drain, errPipe[0], &impl_->err);
    return 0;
}

bool Process::Running() {
    return impl_->pid >= 0 && !Reap(impl_.get(), false);
}

bool Process::Interrupt() {
    return impl_->pid >= 0 && !impl_->ended && kill(static_cast<pid_t>(impl_->pid), SIGTERM) == 0;
}

void Process::Kill() {
    if (impl_->pid < 0 || impl_->ended) {
        return;
    }
    kill(static_cast<pid_t>(impl_->pid), SIGKILL);
    Reap(impl_.get(), true);
}

} // namespace ovtest
