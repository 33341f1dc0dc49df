// Standard error: whether it is a terminal (a person watching), which is when
// pdctl shows its progress, and its line ends. One declaration, a source per
// platform.
#pragma once

namespace pdctl {

/// True when standard error is an interactive terminal or console; false for
/// a file, a pipe or the null device.
bool StderrIsTerminal();

/// Makes standard error carry "\n" unchanged, as OV_SetStdoutBinary does for
/// standard output: both builds write the same bytes.
void SetStderrBinary();

} // namespace pdctl
