// Texts on the C heap. The product code links no C++ runtime (no operator
// new, no exceptions: a run starts faster without it), so what would be a
// std::string elsewhere lives in malloc'd storage here, and a failed
// allocation is a value to test, not an exception.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string_view>

struct OV_CFree {
    void operator()(void *p) const { std::free(p); }
};

template <typename T>
using OV_CPtr = std::unique_ptr<T, OV_CFree>;

/// The pieces one after another as a NUL-terminated text on the heap, its
/// length in *len; null when memory is short.
OV_CPtr<char> OV_JoinText(std::initializer_list<std::string_view> pieces, size_t *len);

/// A text formatted like vsnprintf: held inline when short, else on the heap.
/// When the heap refuses, the text is cut at the inline buffer's end: a log
/// line shortened rather than lost.
class OV_FormattedText {
  public:
    OV_FormattedText(const char *fmt, va_list ap);
    OV_FormattedText(const OV_FormattedText &) = delete;
    OV_FormattedText &operator=(const OV_FormattedText &) = delete;

    const char *c_str() const { return heap_ != nullptr ? heap_.get() : inline_; }
    size_t size() const { return size_; }

  private:
    char inline_[512];
    OV_CPtr<char> heap_;
    size_t size_ = 0;
};
