// Shared pieces of the fuzz targets: a quiet process set-up, inputs and
// records in exactly sized heap blocks (so ASan sees a one-byte overrun), and
// the convert -> decode -> convert round trip of the record converters.
#pragma once

#include <json-c/json.h>

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

/// Prints what went wrong (with the bytes of both records when given) on
/// standard error and aborts, so libFuzzer keeps the input.
[[noreturn]] void Fail(const char *what, const char *detail, const uint8_t *first = nullptr,
                       const uint8_t *second = nullptr, size_t len = 0);

/// One record kind: its converter, its decoder and what the
/// decoded form is known not to carry.
template <typename Conf>
struct ConverterTarget {
    int32_t (*convert)(Conf *, const char *);
    json_object *(*decode)(const uint8_t *, size_t);
    /// Releases what a conversion allocated besides the record (or nullptr).
    void (*release)(Conf *) = nullptr;
    /// Clears bytes the decoded form does not carry (or nullptr).
    void (*uncarried)(uint8_t *rec) = nullptr;
    /// True for a record whose decoded form is documented not to convert
    /// back (or nullptr: every converted record must).
    bool (*exempt)(const uint8_t *rec) = nullptr;
};

namespace detail {

template <typename Conf>
int32_t ConvertInto(const ConverterTarget<Conf> &t, const char *text, ExactBlock *rec) {
    auto *conf = reinterpret_cast<Conf *>(rec->Data());
    int32_t rc = t.convert(conf, text);
    if (t.release != nullptr) {
        t.release(conf);
    }
    if (t.uncarried != nullptr) {
        t.uncarried(rec->Data());
    }
    return rc;
}

} // namespace detail

/// Converts the input into a record at the end of an exact heap block; when
/// it converts, decodes the record, converts the decoded JSON again and
/// requires the same bytes.
template <typename Conf>
int RunConverter(const ConverterTarget<Conf> &t, const uint8_t *data, size_t size) {
    Init();
    ExactBlock text = ExactText(data, size);
    ExactBlock first(sizeof(Conf));
    if (detail::ConvertInto(t, reinterpret_cast<const char *>(text.Data()), &first) < 0) {
        return 0;
    }
    json_object *decoded = t.decode(first.Data(), first.Size());
    if (decoded == nullptr) {
        Fail("the decoder refused a converted record", nullptr, first.Data(), nullptr,
             first.Size());
    }
    // The decoded text is owned by the tree; both live until the end.
    const char *again = json_object_to_json_string_ext(decoded, JSON_C_TO_STRING_PLAIN);
    ExactBlock second(sizeof(Conf));
    int32_t rc = detail::ConvertInto(t, again, &second);
    bool exempt = t.exempt != nullptr && t.exempt(first.Data());
    if (!exempt && rc < 0) {
        Fail("the decoded record does not convert back", again, first.Data(), nullptr,
             first.Size());
    }
    if (!exempt && std::memcmp(first.Data(), second.Data(), sizeof(Conf)) != 0) {
        Fail("the decoded record converts to other bytes", again, first.Data(), second.Data(),
             sizeof(Conf));
    }
    json_object_put(decoded);
    return 0;
}

} // namespace ovfuzz
