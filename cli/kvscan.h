// The bounded scan of key=value arguments: one pass of the whole argument
// against a fixed format, from its first character, as the bounds-taking
// scanf would do it, but with the same results on both builds (overflowing
// numbers and negative ones are converted the same way everywhere).
#pragma once

#include <cstddef>
#include <cstdint>

/// One value the format's conversions store into, in order: "%u" takes a
/// uint32_t, "%s" a character buffer and its size.
struct KvScanTarget {
    uint32_t *u32;
    char *text;
    size_t textSize;
};

/// Scans text against fmt, which holds literal characters, white space
/// (matching any amount of white space, none included), "%u" (white space,
/// an optional sign, decimal digits; the 64-bit value's low 32 bits, a
/// negative number as its two's complement, too many digits as all ones) and
/// "%s" (white space, then a word; a word that does not fit its buffer leaves
/// the buffer empty and ends the scan). The scan stops at the first mismatch;
/// values not reached are left as they are. Returns the number of values stored.
int KvScan(const char *text, const char *fmt, const KvScanTarget *targets, size_t targetCount);

/// Told of every finished scan: its format, the values stored and the values
/// it had room for. A front end that checks arguments (pdctl) learns so which
/// values a command sends as 0; nullptr (the default) tells no one.
using KvScanObserver = void (*)(const char *fmt, int stored, size_t targetCount);
void KvScanSetObserver(KvScanObserver observer);

/// The decimal number after the first occurrence of key in text, read the
/// way atoi reads (leading white space, an optional sign, digits up to the
/// first other character; none give 0), limited to the 32-bit range.
/// Returns false when key does not occur.
bool KvNumberAfter(const char *text, const char *key, int32_t *out);
