// Test support for the channel on POSIX: a private pipe directory per test process.
#include "tests/support/test_server.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace ovtest {

namespace {

char g_pipeDir[] = "/tmp/ovimc-XXXXXX";

void RemovePipeDir() {
    rmdir(g_pipeDir);
}

} // namespace

const std::string &UsePrivatePipeDir() {
    static const std::string dir = []() -> std::string {
        if (mkdtemp(g_pipeDir) == nullptr) {
            return "";
        }
        setenv("OV_PIPE_DIR", g_pipeDir, 1);
        std::atexit(RemovePipeDir);
        return g_pipeDir;
    }();
    return dir;
}

std::wstring UniquePipeName(const char *tag) {
    static std::atomic<int> counter{0};
    std::string name =
        "ovimc-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + "-" + tag;
    return L"\\\\.\\pipe\\" + std::wstring(name.begin(), name.end());
}

} // namespace ovtest
