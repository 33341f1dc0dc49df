// Standard error on Windows: a console is the only terminal. (_isatty
// also says yes for the NUL device, which is a character device too.)
#include "pdctl/terminal.h"

#include "base/win32.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace pdctl {

bool StderrIsTerminal() {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

void SetStderrBinary() {
    std::fflush(stderr);
    _setmode(_fileno(stderr), _O_BINARY);
}

} // namespace pdctl
