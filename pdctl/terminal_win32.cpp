// Standard error's kind on Windows: a console is the only terminal. (_isatty
// also says yes for the NUL device, which is a character device too.)
#include "pdctl/terminal.h"

#include "base/win32.h"

namespace pdctl {

bool StderrIsTerminal() {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

} // namespace pdctl
