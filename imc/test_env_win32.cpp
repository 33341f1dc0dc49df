// Test support for imc/ on Windows: named pipes need no directory.
#include "imc/test_server.h"

#include "base/win32.h"

#include <atomic>
#include <string>

namespace ovtest {

void UsePrivatePipeDir() {}

std::wstring UniquePipeName(const char *tag) {
    static std::atomic<int> counter{0};
    std::string name = "ovimc-" + std::to_string(GetCurrentProcessId()) + "-" +
                       std::to_string(counter++) + "-" + tag;
    return L"\\\\.\\pipe\\" + std::wstring(name.begin(), name.end());
}

} // namespace ovtest
