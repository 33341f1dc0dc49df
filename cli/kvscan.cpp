// Bounded key=value scanning.
#include "cli/kvscan.h"

#include <cstring>

namespace {

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

const char *SkipSpace(const char *p) {
    while (IsSpace(*p)) {
        ++p;
    }
    return p;
}

KvScanObserver g_observer = nullptr;

int Scan(const char *text, const char *fmt, const KvScanTarget *targets, size_t targetCount) {
    const char *p = text;
    size_t next = 0;
    int stored = 0;
    while (*fmt != '\0') {
        if (IsSpace(*fmt)) {
            p = SkipSpace(p);
            ++fmt;
            continue;
        }
        if (fmt[0] == '%' && (fmt[1] == 'u' || fmt[1] == 's')) {
            if (next >= targetCount) {
                return stored;
            }
            const KvScanTarget &t = targets[next++];
            p = SkipSpace(p);
            if (fmt[1] == 'u') {
                bool negative = false;
                if (*p == '+' || *p == '-') {
                    negative = *p == '-';
                    ++p;
                }
                if (!IsDigit(*p)) {
                    return stored;
                }
                uint64_t value = 0;
                bool overflow = false;
                for (; IsDigit(*p); ++p) {
                    uint64_t digit = static_cast<uint64_t>(*p - '0');
                    if (value > (UINT64_MAX - digit) / 10) {
                        overflow = true;
                    }
                    value = value * 10 + digit;
                }
                if (overflow) {
                    value = UINT64_MAX;
                }
                if (negative) {
                    value = ~value + 1;
                }
                *t.u32 = static_cast<uint32_t>(value);
            } else {
                size_t n = 0;
                while (p[n] != '\0' && !IsSpace(p[n])) {
                    ++n;
                }
                if (n == 0 || t.textSize == 0) {
                    return stored;
                }
                if (n >= t.textSize) {
                    t.text[0] = '\0'; // too long for its buffer: left empty
                    return stored;
                }
                std::memcpy(t.text, p, n);
                t.text[n] = '\0';
                p += n;
            }
            ++stored;
            fmt += 2;
            continue;
        }
        if (*p != *fmt) {
            return stored;
        }
        ++p;
        ++fmt;
    }
    return stored;
}

} // namespace

int KvScan(const char *text, const char *fmt, const KvScanTarget *targets, size_t targetCount) {
    int stored = Scan(text, fmt, targets, targetCount);
    if (g_observer != nullptr) {
        g_observer(fmt, stored, targetCount);
    }
    return stored;
}

void KvScanSetObserver(KvScanObserver observer) {
    g_observer = observer;
}

bool KvNumberAfter(const char *text, const char *key, int32_t *out) {
    const char *at = std::strstr(text, key);
    if (at == nullptr) {
        return false;
    }
    const char *p = SkipSpace(at + std::strlen(key));
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    int64_t value = 0;
    for (; IsDigit(*p); ++p) {
        value = value * 10 + (*p - '0');
        if (value > static_cast<int64_t>(INT32_MAX) + 1) {
            value = static_cast<int64_t>(INT32_MAX) + 1; // saturate; keep scanning digits
        }
    }
    if (negative) {
        value = -value;
    }
    if (value > INT32_MAX) {
        value = INT32_MAX;
    }
    *out = static_cast<int32_t>(value);
    return true;
}
