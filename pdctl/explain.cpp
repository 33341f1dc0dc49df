// pdctl explain: the record one command word makes, without an agent:
// module, function, kind and size, the record as JSON, and on request its
// bytes and its fields.
#include "pdctl/pdctl.h"
#include "pdctl/record_view.h"
#include "pdctl/report.h"
#include "pdctl/warnings.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <string>

namespace pdctl {

namespace {

constexpr size_t kShownItems = 16;

uint64_t LoadUnsigned(const uint8_t *p, size_t size) {
    uint64_t v = 0;
    for (size_t i = size; i > 0; --i) {
        v = (v << 8) | p[i - 1];
    }
    return v;
}

std::string Quoted(const uint8_t *p, size_t size) {
    std::string out = "\"";
    for (size_t i = 0; i < size && p[i] != 0; ++i) {
        char c = static_cast<char>(p[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (p[i] < 0x20 || p[i] == 0x7f) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\x%02x", p[i]);
            out += esc;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

// The elements of elem bytes up to the last one that is not zero.
std::string Elements(const uint8_t *p, size_t size, size_t elem, bool texts) {
    size_t count = size / elem;
    size_t used = count;
    while (used > 0 && LoadUnsigned(p + (used - 1) * elem, texts ? 1 : elem) == 0) {
        --used;
    }
    if (used == 0) {
        return texts ? "[]" : "all 0";
    }
    std::string out = "[";
    for (size_t i = 0; i < used && i < kShownItems; ++i) {
        out += i > 0 ? ", " : "";
        out +=
            texts ? Quoted(p + i * elem, elem) : std::to_string(LoadUnsigned(p + i * elem, elem));
    }
    return out + (used > kShownItems ? ", ...]" : "]");
}

std::string Hex(const uint8_t *p, size_t size) {
    size_t used = size;
    while (used > 0 && p[used - 1] == 0) {
        --used;
    }
    if (used == 0) {
        return "all 0";
    }
    std::string out;
    for (size_t i = 0; i < used && i < kShownItems; ++i) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", p[i]);
        out += two;
    }
    return out + (used > kShownItems ? "..." : "");
}

std::string FieldValue(const OV_RecordField &f, const uint8_t *rec) {
    const uint8_t *p = rec + f.offset;
    switch (f.type) {
    case OV_FieldType::Unsigned:
        return std::to_string(LoadUnsigned(p, f.size));
    case OV_FieldType::Signed: {
        uint64_t v = LoadUnsigned(p, f.size);
        if (f.size > 0 && f.size < 8) { // sign-extend
            unsigned shift = 64 - 8 * f.size;
            v = static_cast<uint64_t>(static_cast<int64_t>(v << shift) >> shift);
        }
        return std::to_string(static_cast<int64_t>(v));
    }
    case OV_FieldType::Flags: {
        char buf[24];
        std::snprintf(buf, sizeof buf, "0x%0*llx", static_cast<int>(2 * f.size),
                      static_cast<unsigned long long>(LoadUnsigned(p, f.size)));
        return buf;
    }
    case OV_FieldType::Text:
        return Quoted(p, f.size);
    case OV_FieldType::TextList:
        return Elements(p, f.size, f.elemSize, true);
    case OV_FieldType::Array:
        return Elements(p, f.size, f.elemSize, false);
    case OV_FieldType::Bytes:
        break;
    }
    return Hex(p, f.size);
}

// Sixteen bytes a row; a row like the one before it is shown as "*", as
// hexdump does, but the last row is always shown.
void PrintHex(std::span<const uint8_t> bytes) {
    std::printf("bytes:\n");
    bool starred = false;
    for (size_t at = 0; at < bytes.size(); at += 16) {
        size_t n = std::min<size_t>(16, bytes.size() - at);
        bool last = at + n == bytes.size();
        if (at > 0 && !last && n == 16 && std::memcmp(&bytes[at], &bytes[at - 16], 16) == 0) {
            if (!starred) {
                std::printf("  *\n");
            }
            starred = true;
            continue;
        }
        starred = false;
        std::printf("  %04zx ", at);
        for (size_t i = 0; i < n; ++i) {
            std::printf("%s%02x", i == 8 ? "  " : " ", bytes[at + i]);
        }
        std::printf("\n");
    }
}

void PrintLayout(const OV_RecordLayout &layout, const uint8_t *rec) {
    int width = 5;
    for (const OV_RecordField &f : layout.fields) {
        width = std::max(width, static_cast<int>(std::strlen(f.name)));
    }
    std::printf("offset  size  %-*s  value\n", width, "field");
    for (const OV_RecordField &f : layout.fields) {
        std::printf("%6u %5u  %-*s  %s\n", f.offset, f.size, width, f.name,
                    FieldValue(f, rec).c_str());
    }
}

void ShowRequest(const Options &opt, uint8_t module, uint16_t function,
                 const std::vector<uint8_t> &record) {
    std::printf("module:   %u\n", module);
    std::printf("function: %u (0x%04x)\n", function, function);
    const OV_RecordSpec *kindInfo = RecordSpecOf(module, function, record);
    std::printf("record:   %s, %zu bytes\n", kindInfo != nullptr ? kindInfo->name : "none",
                record.size());
    if (json_object *decoded = DecodeRecord(module, function, record); decoded != nullptr) {
        std::printf("%s\n", json_object_to_json_string_ext(
                                decoded, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED |
                                             JSON_C_TO_STRING_NOSLASHESCAPE));
        json_object_put(decoded);
    }
    if (opt.hex && !record.empty()) {
        PrintHex(record);
    }
    if (opt.layout && kindInfo != nullptr && record.size() == kindInfo->size) {
        PrintLayout(OV_RecordLayoutOf(kindInfo->kind), record.data());
    }
}
} // namespace

int Explain(const Options &opt) {
    Runner runner(RequestMode::Capture);
    Outcome o;
    runner.Run(opt.target, &o);
    std::string word = ShownWord(opt.target);
    if (!o.Ok()) {
        if (o.row == nullptr) {
            std::printf("%s: unknown command word\n", word.c_str());
        } else {
            std::printf("%s: refused %d (%s)\n", word.c_str(), o.result, CmdErrorText(o.result));
        }
        PrintIndented(o.messages);
        return kExitFailed;
    }
    std::printf("command:  %s\n", o.row->name);
    for (const std::string &w : LineWarnings(opt.target, o)) {
        std::printf("warning:  %s\n", w.c_str());
    }
    if (!o.sent) {
        return kExitOk;
    }
    ShowRequest(opt, o.module, o.function, o.record);
    // An access name's entries follow its record in requests of their own.
    for (const Outcome::Request &r : o.followers) {
        std::printf("\nthen:\n");
        ShowRequest(opt, r.module, r.function, r.bytes);
    }
    return kExitOk;
}

} // namespace pdctl
