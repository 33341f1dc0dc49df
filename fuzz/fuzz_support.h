// Shared pieces of the fuzz targets: a quiet process set-up, inputs and
// records in exactly sized heap blocks (so ASan sees a one-byte overrun), and
// failure reports.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace ovfuzz {

/// Once per process: standard output goes to the null device (the converters
/// and the client log there; libFuzzer reports on standard error) unless
/// OV_FUZZ_VERBOSE is set, and the AGENT memory module and the converters'
/// log module are registered, as pdtool does before it dispatches.
void Init();

/// Exactly n heap bytes (the first size copied from data, the rest zero),
/// released on destruction. Nothing else shares the block, so a read or
/// write one byte past the end is reported.
class ExactBlock {
  public:
    explicit ExactBlock(size_t n, const uint8_t *data = nullptr, size_t size = 0)
        : bytes_(new uint8_t[n]()), size_(n) {
        if (size != 0) {
            std::memcpy(bytes_.get(), data, std::min(size, n));
        }
    }
    uint8_t *Data() const { return bytes_.get(); }
    size_t Size() const { return size_; }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_;
};

/// The input as a NUL-terminated text in a block of exactly size + 1 bytes.
inline ExactBlock ExactText(const uint8_t *data, size_t size) {
    return ExactBlock(size + 1, data, size);
}

/// A little-endian value at p, which need not be aligned.
template <typename T>
T Load(const uint8_t *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

/// Prints what went wrong on standard error and aborts, so libFuzzer keeps
/// the input.
[[noreturn]] void Fail(const char *what, const char *detail);

/// The output text must end inside the buffer it was written to.
void FailUnlessTerminated(const ExactBlock &out, const char *what);

} // namespace ovfuzz
