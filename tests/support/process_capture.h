// Test support, internal to process_*.cpp: text a child writes to one of its
// streams, appended by a reader thread and read (or waited for) by tests.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

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

} // namespace ovtest
