// Test support: capture what the code under test writes to standard output,
// with log time stamps pinned to a fixed clock.
#pragma once

#include "base/log.h"

#include <gtest/gtest.h>

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
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) {
            out.push_back(text.substr(start));
            break;
        }
        out.push_back(text.substr(start, nl - start));
        start = nl + 1;
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
        if (line.rfind(head, 0) != 0) {
            continue;
        }
        size_t pos = head.size();
        size_t digits = 0;
        while (pos < line.size() && line[pos] >= '0' && line[pos] <= '9') {
            ++pos;
            ++digits;
        }
        if (digits > 0 && line.compare(pos, std::string::npos, "]" + text) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace ovtest
