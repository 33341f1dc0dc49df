// Helpers shared by the record decoders.
#include "agentconf/json_out.h"

#include <cstdio>

namespace ovrec {

void AddInt(json_object *obj, const char *key, int64_t value) {
    json_object_object_add(obj, key, json_object_new_int64(value));
}

void AddBool(json_object *obj, const char *key, bool value) {
    json_object_object_add(obj, key, json_object_new_boolean(value ? 1 : 0));
}

void AddString(json_object *obj, const char *key, const std::string &value) {
    json_object_object_add(
        obj, key, json_object_new_string_len(value.data(), static_cast<int>(value.size())));
}

void AddFixedText(json_object *obj, const char *key, const uint8_t *field, size_t size) {
    size_t n = 0;
    while (n < size && field[n] != 0) {
        ++n;
    }
    AddString(obj, key, std::string(reinterpret_cast<const char *>(field), n));
}

std::string Ipv4Text(uint32_t addr) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", (addr >> 24) & 0xFF, (addr >> 16) & 0xFF,
                  (addr >> 8) & 0xFF, addr & 0xFF);
    return buf;
}

std::string Ipv6Text(const uint8_t *bytes16) {
    uint16_t groups[8];
    for (int i = 0; i < 8; ++i) {
        groups[i] = static_cast<uint16_t>((bytes16[2 * i] << 8) | bytes16[2 * i + 1]);
    }
    // The longest run of two or more zero groups becomes "::".
    int bestStart = -1;
    int bestLen = 0;
    for (int i = 0; i < 8;) {
        if (groups[i] != 0) {
            ++i;
            continue;
        }
        int j = i;
        while (j < 8 && groups[j] == 0) {
            ++j;
        }
        if (j - i > bestLen && j - i >= 2) {
            bestStart = i;
            bestLen = j - i;
        }
        i = j;
    }
    std::string out;
    char buf[8];
    for (int i = 0; i < 8; ++i) {
        if (i == bestStart) {
            out += "::";
            i += bestLen - 1;
            continue;
        }
        if (!out.empty() && out.back() != ':') {
            out += ':';
        }
        std::snprintf(buf, sizeof buf, "%x", groups[i]);
        out += buf;
    }
    return out;
}

std::string HexText(const uint8_t *bytes, size_t n) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(n * 2);
    for (size_t i = 0; i < n; ++i) {
        out += kDigits[bytes[i] >> 4];
        out += kDigits[bytes[i] & 0xF];
    }
    return out;
}

} // namespace ovrec
