// Expected records for the converter tests: built from offsets in a zeroed
// buffer and compared whole, so a stray byte anywhere fails the test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
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

/// Whether the record holds exactly the expected bytes; names the first that differs.
template <typename Conf>
testing::AssertionResult SameRecord(const Conf &conf, const RecordBytes<sizeof(Conf)> &want) {
    const auto *got = reinterpret_cast<const uint8_t *>(&conf);
    for (size_t i = 0; i < sizeof(Conf); ++i) {
        if (got[i] != want.bytes[i]) {
            return testing::AssertionFailure()
                   << "byte " << i << " is " << int(got[i]) << ", expected " << int(want.bytes[i]);
        }
    }
    return testing::AssertionSuccess();
}

} // namespace ovtest
