// Shared pieces of the fuzz targets: a quiet process set-up, inputs and
// records in exactly sized heap blocks (so ASan sees a one-byte overrun), and
// failure reports that keep the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ovfuzz {

/// Once per process: standard output goes to the null device (the converters
/// and the client log there; libFuzzer reports on standard error) unless
/// OV_FUZZ_VERBOSE is set, and the AGENT memory module and the converters'
/// log module are registered, as pdtool does before it dispatches.
void Init();

/// Exactly n heap bytes, zero-filled, released on destruction. Nothing else
/// shares the block, so a read or write one byte past the end is reported.
class ExactBlock {
  public:
    explicit ExactBlock(size_t n) : bytes_(new uint8_t[n]()), size_(n) {}
    uint8_t *Data() const { return bytes_.get(); }
    size_t Size() const { return size_; }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_;
};

/// The input as a NUL-terminated text in a block of exactly size + 1 bytes.
ExactBlock ExactText(const uint8_t *data, size_t size);

/// The bytes in a block of exactly their size.
ExactBlock ExactCopy(const uint8_t *data, size_t size);

/// Prints what went wrong (with the bytes of both records when given) on
/// standard error and aborts, so libFuzzer keeps the input.
[[noreturn]] void Fail(const char *what, const char *detail, const uint8_t *first = nullptr,
                       const uint8_t *second = nullptr, size_t len = 0);

/// The output text must end inside the buffer it was written to.
void FailUnlessTerminated(const ExactBlock &out, const char *what);

} // namespace ovfuzz
