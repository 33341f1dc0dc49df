// Test support for the channel on Windows: named pipes need no directory.
#include "tests/support/test_server.h"

#include "base/win32.h"

#include <atomic>
#include <string>

namespace ovtest {

const std::string &UsePrivatePipeDir() {
    static const std::string none;
    return none;
}

std::wstring UniquePipeName(const char *tag) {
    static std::atomic<int> counter{0};
    std::string name = "ovimc-" + std::to_string(GetCurrentProcessId()) + "-" +
                       std::to_string(counter++) + "-" + tag;
    return L"\\\\.\\pipe\\" + std::wstring(name.begin(), name.end());
}

} // namespace ovtest
