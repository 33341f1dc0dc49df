// Test support: the parts of the process layer both platforms share.
#include "tests/support/process.h"

#include "tests/support/process_capture.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace ovtest {

namespace {

// True once done() is, false when timeoutMs passed first.
template <typename Done>
bool PollUntil(Done done, uint32_t timeoutMs) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace

bool Process::Wait(uint32_t timeoutMs) {
    return PollUntil([this] { return !Running(); }, timeoutMs);
}

int Process::ExitStatus() const {
    return impl_->ended ? impl_->status : -1;
}

std::string Process::Stdout() const {
    return impl_->out.Text();
}

std::string Process::Stderr() const {
    return impl_->err.Text();
}

bool Process::WaitForStdout(const std::string &needle, uint32_t timeoutMs) const {
    return PollUntil([&] { return Stdout().find(needle) != std::string::npos; }, timeoutMs);
}

ProcessResult RunProcess(const std::vector<std::string> &argv, uint32_t timeoutMs,
                         const EnvOverrides &env) {
    ProcessResult result;
    Process child;
    result.startResult = child.Start(argv, env);
    if (result.startResult != 0) {
        return result;
    }
    if (!child.Wait(timeoutMs)) {
        result.timedOut = true;
        child.Kill();
    }
    result.exitStatus = child.ExitStatus();
    result.out = child.Stdout();
    result.err = child.Stderr();
    return result;
}

bool WaitForFile(const std::string &path, uint32_t timeoutMs) {
    std::error_code ec;
    return PollUntil([&] { return std::filesystem::exists(std::filesystem::path(path), ec); },
                     timeoutMs);
}

ScopedTempDir::ScopedTempDir(const std::string &tag) {
    static std::atomic<unsigned> counter{0};
    std::error_code ec;
    // Test processes run in parallel: a random part keeps their names apart.
    std::filesystem::path dir = std::filesystem::temp_directory_path(ec) /
                                ("ovtest-" + tag + "-" + std::to_string(std::random_device()()) +
                                 "-" + std::to_string(counter++));
    if (!ec && std::filesystem::create_directory(dir, ec) && !ec) {
        path_ = dir.string();
    }
}

ScopedTempDir::~ScopedTempDir() {
    if (!path_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
}

std::string ScopedTempDir::File(const std::string &name) const {
    return (std::filesystem::path(path_) / name).string();
}

std::string ReadWholeFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace ovtest
