// Shared pieces of the fuzz targets: set-up, exact blocks, failure reports.
#include "fuzz/fuzz_support.h"

#include "agentconf/json_conv.h"
#include "base/mem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace ovfuzz {

void Init() {
    static const bool done = [] {
        const char *verbose = std::getenv("OV_FUZZ_VERBOSE");
        if (verbose == nullptr || *verbose == '\0') {
            int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
            if (null >= 0) {
                std::fflush(stdout);
                dup2(null, STDOUT_FILENO);
                close(null);
            }
        }
        AgentMemModuleRegister();
        OV_AgentConfLogRegister();
        return true;
    }();
    (void)done;
}

void FailUnlessTerminated(const ExactBlock &out, const char *what) {
    if (std::memchr(out.Data(), '\0', out.Size()) == nullptr) {
        Fail(what, "the output buffer holds no terminating NUL");
    }
}

void Fail(const char *what, const char *detail) {
    std::fprintf(stderr, "\n== fuzz check failed: %s\n", what);
    if (detail != nullptr) {
        std::fprintf(stderr, "detail: %s\n", detail);
    }
    std::fflush(stderr);
    std::abort();
}

} // namespace ovfuzz
