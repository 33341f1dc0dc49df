// Field getters, address parsers, converter logging and the JSON entry.
#include "agentconf/json_conv.h"

#include "base/errors.h"
#include "base/flexlog.h"
#include "base/heap.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

// One formatted message: inline unless it is long (the entry logs the whole
// JSON text), so the common short notice costs no allocation.
using ConfMsg = OV_FormattedText;

const char *LevelPrefix(uint32_t level) {
    static constexpr const char *kPrefixes[] = {
        "Trace:", "Debug:", "Info:", "Warning:", "Error:", "Crit:"};
    return level < sizeof kPrefixes / sizeof kPrefixes[0] ? kPrefixes[level] : "";
}

void Emit(OV_ConfSite site, uint32_t level, const ConfMsg &msg) {
    OV_LogModuleMsg(OV_LOG_MODULE_AGENTCONF, level, false, site.func, site.line, "%s", msg.c_str());
}

// The flexlog report made at every error site. No context is attached in
// pdtool, so the append fails and nothing is dumped; the calls are still made.
void FlexReport(OV_ConfSite site, const ConfMsg &msg) {
    if (OV_FlexLog("%s", msg.c_str()) == 0) {
        OV_LogModuleMsg(OV_LOG_MODULE_AGENTCONF, OV_LOG_ERROR, false, site.func, site.line,
                        "dump flexlog:\n%s", OV_FlexLogText());
    }
    OV_FlexLogClear();
}

// json-c reads a string without digits as 0 without setting errno; such a
// text is still "an integer that is not a number" and is refused.
bool TextHoldsNoNumber(json_object *val) {
    if (json_object_get_type(val) != json_type_string) {
        return false;
    }
    const char *text = json_object_get_string(val);
    char *end = nullptr;
    int saved = errno;
    (void)std::strtoll(text, &end, 10);
    errno = saved;
    return end == text;
}

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

template <typename CountT>
int32_t ArrayLength(OV_ConfSite site, json_object *arr, CountT *count, size_t capacity,
                    const char *notArrayText, const char *sizeText) {
    if (arr == nullptr || json_object_get_type(arr) != json_type_array) {
        OV_ConfFail(site, "%s", notArrayText);
        return -22;
    }
    size_t n = json_object_array_length(arr);
    // Refused rather than written past the room in the record.
    if (n > capacity || n > std::numeric_limits<CountT>::max()) {
        OV_ConfFail(site, "%s", notArrayText);
        return -22;
    }
    if (n != *count) {
        *count = static_cast<CountT>(n);
        OV_ConfWarn(site, "%s", sizeText);
    }
    return static_cast<int32_t>(n);
}

} // namespace

int32_t OV_AgentConfLogRegister() {
    return OV_AgentConfLogRegisterWith(OV_LOG_TRACE, OV_LogModuleStdOutput);
}

int32_t OV_AgentConfLogRegisterWith(uint32_t level, OV_LogOutputFunc output) {
    int32_t rc = OV_LogModuleRegister(OV_LOG_MODULE_AGENTCONF, "AGENTCONF", level, 0, 0);
    if (rc == 0) {
        OV_LogModuleSetOutput(OV_LOG_MODULE_AGENTCONF, output, LevelPrefix);
    }
    return rc;
}

void OV_AgentConfLogUnregister() {
    OV_LogModuleUnregister(OV_LOG_MODULE_AGENTCONF);
}

void OV_ConfFail(OV_ConfSite site, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    ConfMsg msg(fmt, ap);
    va_end(ap);
    Emit(site, OV_LOG_ERROR, msg);
    FlexReport(site, msg);
}

namespace {

// A notice or warning goes to the flexlog and to the log module; each
// formats it only if it takes it (most runs attach no flexlog context, and a
// quiet log module takes nothing), so an unread message costs no formatting.
void FlexLogCopy(const char *fmt, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    OV_FlexLogV(fmt, copy);
    va_end(copy);
}

void EmitIfTaken(OV_ConfSite site, uint32_t level, const char *fmt, va_list ap) {
    if (OV_LogModuleShouldLog(OV_LOG_MODULE_AGENTCONF, level, false)) {
        va_list copy;
        va_copy(copy, ap);
        ConfMsg msg(fmt, copy);
        va_end(copy);
        Emit(site, level, msg);
    }
}

} // namespace

void OV_ConfNotice(OV_ConfSite site, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    FlexLogCopy(fmt, ap);
    EmitIfTaken(site, OV_LOG_DEBUG, fmt, ap);
    va_end(ap);
}

void OV_ConfWarn(OV_ConfSite site, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    EmitIfTaken(site, OV_LOG_WARNING, fmt, ap);
    FlexLogCopy(fmt, ap);
    va_end(ap);
}

void OV_ConfLog(OV_ConfSite site, uint32_t level, const char *fmt, ...) {
    // Nothing but the log takes this message: not formatted when it would be dropped.
    if (!OV_LogModuleShouldLog(OV_LOG_MODULE_AGENTCONF, level, false)) {
        return;
    }
    va_list ap;
    va_start(ap, fmt);
    ConfMsg msg(fmt, ap);
    va_end(ap);
    Emit(site, level, msg);
}

int32_t _OV_JsonGetInt(json_object *obj, const char *key, int32_t *out) {
    json_object *val = nullptr;
    if (obj == nullptr || !json_object_object_get_ex(obj, key, &val)) {
        return -22;
    }
    errno = 0;
    int32_t v = json_object_get_int(val);
    if (v == INT32_MIN || v == INT32_MAX) {
        return -132;
    }
    if (v == 0 && (errno == EINVAL || TextHoldsNoNumber(val))) {
        return -22;
    }
    *out = v;
    return 0;
}

int32_t _OV_JsonGetInt(json_object *obj, const char *key, uint32_t *out) {
    int32_t v = 0;
    int32_t rc = _OV_JsonGetInt(obj, key, &v);
    if (rc == 0) {
        *out = static_cast<uint32_t>(v);
    }
    return rc;
}

int32_t _OV_JsonGetU8(json_object *obj, const char *key, uint8_t *out) {
    int32_t v = 0;
    int32_t rc = _OV_JsonGetInt(obj, key, &v);
    if (rc != 0) {
        return rc;
    }
    if (v < 0 || v > 255) {
        return -132;
    }
    *out = static_cast<uint8_t>(v);
    return 0;
}

int32_t _OV_JsonGetU16(json_object *obj, const char *key, uint16_t *out) {
    int32_t v = 0;
    int32_t rc = _OV_JsonGetInt(obj, key, &v);
    if (rc != 0) {
        return rc;
    }
    if (v < 0 || v > 65535) {
        return -132;
    }
    *out = static_cast<uint16_t>(v);
    return 0;
}

int32_t _OV_JsonGetBool(json_object *obj, const char *key, int32_t *out) {
    json_object *val = nullptr;
    if (obj == nullptr || !json_object_object_get_ex(obj, key, &val)) {
        return -22;
    }
    *out = json_object_get_boolean(val) ? 1 : 0;
    return 0;
}

int32_t _OV_JsonGetString(json_object *obj, const char *key, char *buf, size_t size) {
    json_object *val = nullptr;
    if (obj == nullptr || !json_object_object_get_ex(obj, key, &val)) {
        return -22;
    }
    const char *text = json_object_get_string(val);
    if (text == nullptr) {
        return -22;
    }
    if (size == 0) {
        return -132;
    }
    size_t n = std::strlen(text);
    if (n >= size) {
        std::memcpy(buf, text, size - 1);
        buf[size - 1] = '\0';
        return -132;
    }
    std::memcpy(buf, text, n + 1);
    return 0;
}

const char *OV_IpStrToNum(const char *text, size_t len, uint32_t *out) {
    if (text == nullptr || len < 7) {
        return nullptr;
    }
    size_t i = 0;
    while (i < len && IsSpace(text[i])) {
        ++i;
        if (len - i < 7) {
            return nullptr;
        }
    }
    uint32_t result = 0;
    for (int field = 0; field < 4; ++field) {
        if (field > 0) {
            if (i >= len || text[i] != '.') {
                return nullptr;
            }
            ++i;
        }
        uint32_t value = 0;
        size_t digits = 0;
        while (i < len && IsDigit(text[i])) {
            value = value * 10 + static_cast<uint32_t>(text[i] - '0');
            if (value > 255) {
                return nullptr;
            }
            ++digits;
            ++i;
        }
        if (digits == 0) {
            return nullptr;
        }
        result = (result << 8) | value;
    }
    while (i < len && IsSpace(text[i])) {
        ++i;
    }
    *out = result;
    return text + i;
}

const char *OV_Ipv6StrToConf(const char *text, size_t len, uint8_t *out16) {
    if (text == nullptr) {
        return nullptr;
    }
    uint8_t tmp[16] = {};
    size_t tp = 0;     // next byte to fill
    long colonAt = -1; // where "::" stood (byte index)
    size_t i = 0;
    while (i < len && IsSpace(text[i])) {
        ++i;
    }
    if (i < len && text[i] == ':') {
        if (i + 1 >= len || text[i + 1] != ':') {
            return nullptr;
        }
        ++i; // the first ':' of a leading "::"; the loop takes the second
    }
    size_t groupStart = i;
    uint32_t value = 0;
    int digits = 0;
    bool v4Tail = false;
    while (i < len) {
        char c = text[i];
        int h = OV_HexDigitValue(c);
        if (h >= 0) {
            if (++digits > 4) {
                return nullptr;
            }
            value = (value << 4) | static_cast<uint32_t>(h);
            ++i;
            continue;
        }
        if (c == ':') {
            if (digits == 0) {
                if (colonAt >= 0) {
                    return nullptr; // a second "::"
                }
                colonAt = static_cast<long>(tp);
                ++i;
                groupStart = i;
                continue;
            }
            // A group ends; a ':' must lead to another group or to "::".
            if (i + 1 >= len || (OV_HexDigitValue(text[i + 1]) < 0 && text[i + 1] != ':')) {
                return nullptr;
            }
            if (tp + 2 > sizeof tmp) {
                return nullptr;
            }
            tmp[tp++] = static_cast<uint8_t>(value >> 8);
            tmp[tp++] = static_cast<uint8_t>(value);
            value = 0;
            digits = 0;
            ++i;
            groupStart = i;
            continue;
        }
        if (c == '.' && digits > 0 && tp + 4 <= sizeof tmp) {
            uint32_t v4 = 0;
            const char *end = OV_IpStrToNum(text + groupStart, len - groupStart, &v4);
            if (end == nullptr) {
                return nullptr;
            }
            tmp[tp++] = static_cast<uint8_t>(v4 >> 24);
            tmp[tp++] = static_cast<uint8_t>(v4 >> 16);
            tmp[tp++] = static_cast<uint8_t>(v4 >> 8);
            tmp[tp++] = static_cast<uint8_t>(v4);
            i = static_cast<size_t>(end - text);
            digits = 0;
            v4Tail = true;
            break;
        }
        break; // any other character ends the address
    }
    if (!v4Tail && digits > 0) {
        if (tp + 2 > sizeof tmp) {
            return nullptr;
        }
        tmp[tp++] = static_cast<uint8_t>(value >> 8);
        tmp[tp++] = static_cast<uint8_t>(value);
    }
    if (colonAt >= 0) {
        // Groups after "::" move to the end; the gap is zero.
        size_t tailLen = tp - static_cast<size_t>(colonAt);
        if (tp == sizeof tmp) {
            return nullptr; // "::" must stand for at least one zero group
        }
        std::memmove(tmp + sizeof tmp - tailLen, tmp + colonAt, tailLen);
        std::memset(tmp + colonAt, 0, sizeof tmp - tailLen - static_cast<size_t>(colonAt));
        tp = sizeof tmp;
    }
    if (tp != sizeof tmp) {
        return nullptr;
    }
    while (i < len && IsSpace(text[i])) {
        ++i;
    }
    std::memcpy(out16, tmp, sizeof tmp);
    return text + i;
}

int32_t OV_ConfArrayLength(OV_ConfSite site, json_object *arr, uint8_t *count, size_t capacity,
                           const char *notArrayText, const char *sizeText) {
    return ArrayLength(site, arr, count, capacity, notArrayText, sizeText);
}

int OV_HexDigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool OV_ScanHexByte(const char *text, uint8_t *out) {
    const char *p = text;
    while (IsSpace(*p)) {
        ++p;
    }
    int width = 2;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
        --width;
    }
    unsigned value = 0;
    int digits = 0;
    for (; width > 0 && OV_HexDigitValue(*p) >= 0; ++p, --width, ++digits) {
        value = value * 16 + static_cast<unsigned>(OV_HexDigitValue(*p));
    }
    if (digits == 0) {
        return false;
    }
    *out = static_cast<uint8_t>(negative ? 0u - value : value);
    return true;
}

int32_t OV_ConfArrayLength(OV_ConfSite site, json_object *arr, uint16_t *count, size_t capacity,
                           const char *notArrayText, const char *sizeText) {
    return ArrayLength(site, arr, count, capacity, notArrayText, sizeText);
}

namespace ov_detail {

int32_t ConfJsonEntry(OV_ConfSite site, const char *kind, const char *text,
                      int32_t (*convert)(void *ctx, json_object *obj), void *ctx) {
    const char *shown = text != nullptr ? text : "";
    OV_FlexLog("agent %s conf json = %s \n", kind, shown);
    if (OV_LogModuleShouldLog(OV_LOG_MODULE_AGENTCONF, OV_LOG_INFO, false)) {
        // Put together rather than formatted: the text can be long, and
        // printf is slow to measure long output.
        size_t len = 0;
        OV_CPtr<char> line = OV_JoinText({"agent ", kind, " conf json = ", shown, " \n"}, &len);
        if (line != nullptr) {
            OV_LogModuleMsg(OV_LOG_MODULE_AGENTCONF, OV_LOG_INFO, false, site.func, site.line, "%s",
                            line.get());
        } else {
            OV_LogModuleMsg(OV_LOG_MODULE_AGENTCONF, OV_LOG_INFO, false, site.func, site.line,
                            "agent %s conf json = %s \n", kind, shown);
        }
    }
    OV_JsonPtr root(text != nullptr ? json_tokener_parse(text) : nullptr);
    if (root == nullptr) {
        OV_ConfFail(site, "invalid %s string, not json\n", kind);
        return -22;
    }
    int32_t rc = convert(ctx, root.get());
    if (rc < 0) {
        OV_ConfFail(site, "Json to data struct failed(%d:%s)\n", -rc, OV_StrError(-rc));
    }
    return rc;
}

} // namespace ov_detail
