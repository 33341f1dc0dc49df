// Heap-held texts for the product code.
#include "base/heap.h"

#include <cstdio>
#include <cstring>

OV_CPtr<char> OV_JoinText(std::initializer_list<std::string_view> pieces, size_t *len) {
    size_t total = 0;
    for (std::string_view piece : pieces) {
        total += piece.size();
    }
    OV_CPtr<char> text(static_cast<char *>(std::malloc(total + 1)));
    if (text == nullptr) {
        *len = 0;
        return text;
    }
    char *at = text.get();
    for (std::string_view piece : pieces) {
        std::memcpy(at, piece.data(), piece.size());
        at += piece.size();
    }
    *at = '\0';
    *len = total;
    return text;
}

OV_FormattedText::OV_FormattedText(const char *fmt, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(inline_, sizeof inline_, fmt, copy);
    va_end(copy);
    if (n < 0) {
        inline_[0] = '\0';
        return;
    }
    size_ = static_cast<size_t>(n);
    if (size_ < sizeof inline_) {
        return;
    }
    heap_.reset(static_cast<char *>(std::malloc(size_ + 1)));
    if (heap_ == nullptr) {
        size_ = sizeof inline_ - 1;
        return;
    }
    std::vsnprintf(heap_.get(), size_ + 1, fmt, ap);
}
