// Test support, internal to process*.cpp: text a child writes to one of its
// streams, appended by a reader thread and read (or waited for) by tests.
#pragma once

#include "tests/support/process.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace ovtest {

class CapturedText {
  public:
    void Append(const char *bytes, size_t n) {
        {
            std::lock_guard<std::mutex> guard(lock_);
            text_.append(bytes, n);
        }
        changed_.notify_all();
    }
    std::string Text() const {
        std::lock_guard<std::mutex> guard(lock_);
        return text_;
    }
    bool WaitFor(const std::string &needle, uint32_t timeoutMs) const {
        std::unique_lock<std::mutex> guard(lock_);
        return changed_.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                 [&] { return text_.find(needle) != std::string::npos; });
    }

  private:
    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    std::string text_;
};

/// What a child's two streams and its end leave behind; each platform's
/// Process::Impl adds its handle to it.
struct ChildOutput {
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

/// The shared part of a platform's Process::Impl.
const ChildOutput &OutputOf(const Process::Impl &impl);

} // namespace ovtest
