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
#include <string>
#include <vector>

namespace ovtest {

/// Lower-case hex, as the agent's journal writes payloads.
inline std::string HexOf(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (uint8_t b : bytes) {
        out += kDigits[b >> 4];
        out += kDigits[b & 0xF];
    }
    return out;
}

/// Zero bytes with values put at offsets (little-endian, as the host).
/// N fixes the size at compile time; RecordBytes<> takes it at run time.
template <size_t N = 0>
struct RecordBytes {
    RecordBytes() : bytes(N) {}
    explicit RecordBytes(size_t size) : bytes(size) {}
    std::vector<uint8_t> bytes; // on the heap: a rule is 17 KB

    template <typename T>
    RecordBytes &Put(size_t offset, T value) {
        if (Fits(offset, sizeof value)) {
            std::memcpy(bytes.data() + offset, &value, sizeof value);
        }
        return *this;
    }
    RecordBytes &U8(size_t offset, uint8_t v) { return Put(offset, v); }
    RecordBytes &U16(size_t offset, uint16_t v) { return Put(offset, v); }
    RecordBytes &U32(size_t offset, uint32_t v) { return Put(offset, v); }
    RecordBytes &U64(size_t offset, uint64_t v) { return Put(offset, v); }
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
    std::string Hex() const { return HexOf(bytes); }

  private:
    bool Fits(size_t offset, size_t len) const {
        if (offset > bytes.size() || len > bytes.size() - offset) {
            ADD_FAILURE() << "expected bytes at " << offset << ".." << offset + len
                          << " lie outside the " << bytes.size() << "-byte record";
            return false;
        }
        return true;
    }
};

/// A field put into, or read from, a buffer already sized (raw requests and replies).
template <typename T>
void Put(std::vector<uint8_t> &rec, size_t offset, T value) {
    ASSERT_LE(offset + sizeof value, rec.size());
    std::memcpy(rec.data() + offset, &value, sizeof value);
}

template <typename T>
T Get(std::span<const uint8_t> rec, size_t offset) {
    T value{};
    EXPECT_LE(offset + sizeof value, rec.size());
    if (offset + sizeof value <= rec.size()) {
        std::memcpy(&value, rec.data() + offset, sizeof value);
    }
    return value;
}

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
