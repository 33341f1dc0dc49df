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
    return impl_->out.WaitFor(needle, timeoutMs);
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
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        std::error_code ec;
        if (std::filesystem::exists(std::filesystem::path(path), ec)) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
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
