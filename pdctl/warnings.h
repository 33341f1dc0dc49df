// Why a converted line will not do what it seems to: the table runs it as
// another command, nothing is sent, the key=value scan reads less than it
// has room for, the word is no command at all, or the converter warned
// (an array whose length differs from its count).
#pragma once

#include "pdctl/runner.h"

#include <string>
#include <string_view>
#include <vector>

namespace pdctl {

/// The warnings of a line run with its requests taken, in a fixed order;
/// none for a line that does what it seems to.
std::vector<std::string> LineWarnings(std::string_view word, const Outcome &outcome);

} // namespace pdctl
