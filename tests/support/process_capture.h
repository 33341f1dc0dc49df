// Test support, internal to process*.cpp: a child process, and the text it
// writes to one of its streams, appended by a reader thread and read by tests.
#pragma once

#include "tests/support/process.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace ovtest {

class CapturedText {
  public:
    void Append(const char *bytes, size_t n) {
        std::lock_guard<std::mutex> guard(lock_);
        text_.append(bytes, n);
    }
    std::string Text() const {
        std::lock_guard<std::mutex> guard(lock_);
        return text_;
    }

  private:
    mutable std::mutex lock_;
    std::string text_;
};

/// A child: its identity on the platform, what its two streams and its end
/// leave behind.
struct Process::Impl {
    int64_t pid = -1;        ///< POSIX: the process id; Windows: set with process
    void *process = nullptr; ///< Windows: the process handle
    bool ended = false;
    int status = -1;
    CapturedText out;
    CapturedText err;
    std::thread outReader;
    std::thread errReader;

    void JoinReaders() {
        for (std::thread *t : {&outReader, &errReader}) {
            if (t->joinable()) {
                t->join();
            }
        }
    }
};

} // namespace ovtest
