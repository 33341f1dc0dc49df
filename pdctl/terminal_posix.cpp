// Standard error's kind on POSIX systems.
#include "pdctl/terminal.h"

#include <unistd.h>

namespace pdctl {

bool StderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

} // namespace pdctl
