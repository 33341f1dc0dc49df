// Standard error on POSIX systems, where text and binary streams are one.
#include "pdctl/terminal.h"

#include <unistd.h>

namespace pdctl {

bool StderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

void SetStderrBinary() {}

} // namespace pdctl
