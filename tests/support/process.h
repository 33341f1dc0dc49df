// Test support: start a program as a child process with its standard output
// and standard error captured in full, wait for it with a time-out, stop it
// gently or kill it, and read its exit status. Used by the process-level
// tests of agentsim and the end-to-end tests of pdtool.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ovtest {

/// Environment overrides for a child: (name, value) pairs added to (or
/// replacing in) the inherited environment.
using EnvOverrides = std::vector<std::pair<std::string, std::string>>;

/// A built program's path as the process layer takes it: unchanged on POSIX;
/// on Windows a Linux path such as /work/x/agentsim.exe (what CMake gives
/// under Wine) becomes Z:\work\x\agentsim.exe, and slashes become backslashes.
std::string NativePath(const std::string &path);

/// One child process. Its standard input is empty (the null device); its
/// standard output and standard error are drained by reader threads into
/// memory from the start, so a child that writes a lot never blocks. The
/// destructor kills a child that is still running and waits for it (a test
/// process that crashes runs no destructor: its children live on).
class Process {
  public:
    Process();
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Starts argv[0] (a path; see NativePath) with argv[1..] as arguments.
    /// Returns 0, or a negative code when the program could not be started.
    int32_t Start(const std::vector<std::string> &argv, const EnvOverrides &env = {});

    /// Waits up to timeoutMs for the child to end. Returns true once it has
    /// ended (its output is then complete).
    bool Wait(uint32_t timeoutMs);
    /// True while the child has not ended.
    bool Running();
    /// Asks the child to stop as the operator would: SIGTERM on POSIX,
    /// Ctrl-Break on Windows. Returns false when the request could not be made.
    bool Interrupt();
    /// Ends the child at once (SIGKILL, TerminateProcess) and waits for it.
    void Kill();

    /// The exit status once the child has ended, as the system reports it:
    /// 0..255 on POSIX (128 + the signal for a child ended by a signal), the
    /// full 32-bit exit code on Windows (a return of -22 reads -22). -1 while
    /// the child runs.
    int ExitStatus() const;

    /// Everything the child has written so far.
    std::string Stdout() const;
    std::string Stderr() const;
    /// Waits up to timeoutMs until the child's standard output contains
    /// needle. Returns true when it does.
    bool WaitForStdout(const std::string &needle, uint32_t timeoutMs) const;

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
};

/// The outcome of RunProcess.
struct ProcessResult {
    int32_t startResult = 0; ///< 0, or why the program could not be started
    bool timedOut = false;   ///< the child was killed at the time-out
    int exitStatus = -1;
    std::string out;
    std::string err;
};

/// Runs a program to its end, killing it after timeoutMs.
ProcessResult RunProcess(const std::vector<std::string> &argv, uint32_t timeoutMs,
                         const EnvOverrides &env = {});

/// Waits up to timeoutMs for a file to exist. Returns true when it does.
bool WaitForFile(const std::string &path, uint32_t timeoutMs);

/// A new empty directory under the system's temporary directory, removed
/// with everything in it on destruction. Path() is empty when it could not
/// be made.
class ScopedTempDir {
  public:
    explicit ScopedTempDir(const std::string &tag);
    ~ScopedTempDir();
    ScopedTempDir(const ScopedTempDir &) = delete;
    ScopedTempDir &operator=(const ScopedTempDir &) = delete;

    const std::string &Path() const { return path_; }
    /// Path() + the separator + name.
    std::string File(const std::string &name) const;

  private:
    std::string path_;
};

/// The whole content of a file ("" when it cannot be read).
std::string ReadWholeFile(const std::string &path);

} // namespace ovtest
