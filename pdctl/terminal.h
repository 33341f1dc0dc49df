// Whether standard error is a terminal (a person watching), which is when
// pdctl shows its progress. One declaration, a source per platform.
#pragma once

namespace pdctl {

/// True when standard error is an interactive terminal or console; false for
/// a file, a pipe or the null device.
bool StderrIsTerminal();

} // namespace pdctl
