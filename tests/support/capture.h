// Test support: capture what the code under test writes to standard output,
// with log time stamps pinned to a fixed clock.
#pragma once

#include "base/log.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ovtest {

inline void FixedClock(OV_LocalTime *t) {
    *t = OV_LocalTime{2026, 1, 2, 3, 4, 5, 6};
}

inline constexpr const char *kFixedStamp = "[2026/01/02_03:04:05.006]";

/// Captures standard output between construction and Take().
class StdoutCapture {
  public:
    StdoutCapture() {
        OV_LogSetTimeSource(FixedClock);
        testing::internal::CaptureStdout();
    }
    ~StdoutCapture() {
        if (!taken_) {
            (void)testing::internal::GetCapturedStdout();
        }
        OV_LogSetTimeSource(nullptr);
    }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    std::string Take() {
        fflush(stdout);
        taken_ = true;
        return testing::internal::GetCapturedStdout();
    }

  private:
    bool taken_ = false;
};

/// Splits text into lines (without their "\n").
inline std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        out.push_back(line);
    }
    return out;
}

/// Counts the occurrences of needle in haystack.
inline size_t CountOf(const std::string &haystack, const std::string &needle) {
    size_t n = 0;
    for (size_t pos = haystack.find(needle); pos != std::string::npos;
         pos = haystack.find(needle, pos + needle.size())) {
        ++n;
    }
    return n;
}

/// True when out has a log line "<stamp><level>[<func>:<line>]<text>" (text
/// without its "\n").
inline bool HasLogLine(const std::string &out, const std::string &level, const std::string &func,
                       const std::string &text) {
    const std::string head = std::string(kFixedStamp) + level + "[" + func + ":";
    for (const std::string &line : Lines(out)) {
        const size_t close = line.find_first_not_of("0123456789", head.size());
        if (line.starts_with(head) && close > head.size() && close != std::string::npos &&
            line.compare(close, std::string::npos, "]" + text) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace ovtest
