// Small helpers shared by the record decoders.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ovrec {

/// Reads a little-endian field of type T at a byte offset (records are read
/// through memcpy: received bytes carry no alignment promise).
template <typename T>
T Load(const uint8_t *rec, size_t offset) {
    T v;
    std::memcpy(&v, rec + offset, sizeof v);
    return v;
}

/// Adds an unsigned or signed integer faithfully (64-bit JSON integer).
void AddInt(json_object *obj, const char *key, int64_t value);
void AddBool(json_object *obj, const char *key, bool value);
void AddString(json_object *obj, const char *key, const std::string &value);
/// A NUL-terminated text inside a fixed field (never read past the field).
void AddFixedText(json_object *obj, const char *key, const uint8_t *field, size_t size);
/// A host-order IPv4 number as dotted text ("10.1.2.3" for 0x0A010203).
std::string Ipv4Text(uint32_t addr);
/// 16 bytes in network order as IPv6 text, compressed with "::" where it can.
std::string Ipv6Text(const uint8_t *bytes16);
/// Bytes as lower-case hex digits, two per byte.
std::string HexText(const uint8_t *bytes, size_t n);

} // namespace ovrec
