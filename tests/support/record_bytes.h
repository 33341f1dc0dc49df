// Expected records for the converter tests: built from offsets in a zeroed
// buffer and compared whole, so a stray byte anywhere fails the test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <vector>

namespace ovtest {

/// N zero bytes with values put at offsets (little-endian, as the host).
template <size_t N>
struct RecordBytes {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(N); // on the heap: a rule is 17 KB

    template <typename T>
    RecordBytes &Put(size_t offset, T value) {
        if (Fits(offset, sizeof value)) {
            std::memcpy(bytes.data() + offset, &value, sizeof value);
        }
        return *this;
    }
    RecordBytes &Bytes(size_t offset, std::initializer_list<uint8_t> values) {
        if (Fits(offset, values.size())) {
            std::copy(values.begin(), values.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
        }
        return *this;
    }
    /// A text with its terminating NUL.
    RecordBytes &Text(size_t offset, const char *text) {
        size_t len = std::strlen(text) + 1;
        if (Fits(offset, len)) {
            std::memcpy(bytes.data() + offset, text, len);
        }
        return *this;
    }

  private:
    static bool Fits(size_t offset, size_t len) {
        if (offset > N || len > N - offset) {
            ADD_FAILURE() << "expected bytes at " << offset << ".." << offset + len
                          << " lie outside the " << N << "-byte record";
            return false;
        }
        return true;
    }
};

/// Whether got holds exactly the expected bytes; names the first that differs.
inline testing::AssertionResult SameBytes(std::span<const uint8_t> got,
                                          std::span<const uint8_t> want) {
    if (got.size() != want.size()) {
        return testing::AssertionFailure() << got.size() << " bytes, expected " << want.size();
    }
    auto [g, w] = std::mismatch(got.begin(), got.end(), want.begin());
    if (g == got.end()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "byte " << (g - got.begin()) << " is " << int{*g} << ", expected " << int{*w};
}

template <typename Conf>
testing::AssertionResult SameRecord(const Conf &conf, const RecordBytes<sizeof(Conf)> &want) {
    return SameBytes({reinterpret_cast<const uint8_t *>(&conf), sizeof conf}, want.bytes);
}

} // namespace ovtest
