// What every record converter shares: the field getters with their refusal
// rules, the IPv4/IPv6 text parsers, the array-with-count check, the logging
// of the converters' log module and the flexlog report, and the entry that
// parses a JSON text and hands the tree to a record converter.
#pragma once

#include "base/log.h"

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <memory>

// ---- Parsed trees ------------------------------------------------------------

struct OV_JsonPut {
    void operator()(json_object *obj) const { json_object_put(obj); }
};
/// Owns one reference to a parsed tree; json_object_put runs on every path.
using OV_JsonPtr = std::unique_ptr<json_object, OV_JsonPut>;

// ---- Logging -----------------------------------------------------------------

/// The converters' log module. The program registers it at level 0, so every
/// level reaches standard output.
constexpr uint32_t OV_LOG_MODULE_AGENTCONF = 62;

/// Registers the converters' log module with its output and level prefix.
/// Returns 0 or the registration's negative code.
int32_t OV_AgentConfLogRegister();
/// The same at another level and with another output (pdctl collects the
/// converters' errors and warnings itself); the level prefix stays.
int32_t OV_AgentConfLogRegisterWith(uint32_t level, OV_LogOutputFunc output);
void OV_AgentConfLogUnregister();

/// Where a message comes from: the converter's function name and line.
struct OV_ConfSite {
    const char *func;
    int line;
};
#define OV_CONF_SITE (OV_ConfSite{__func__, __LINE__})

/// A failure: logged at ERROR, then the flexlog report (append; dump only when
/// the append worked; clear in any case).
void OV_ConfFail(OV_ConfSite site, const char *fmt, ...) OV_PRINTF_FMT(2, 3);
/// A "not set" notice: appended to the flexlog and logged at DEBUG, no dump.
void OV_ConfNotice(OV_ConfSite site, const char *fmt, ...) OV_PRINTF_FMT(2, 3);
/// A warning (an array size that differs from its count): logged at WARN and
/// appended to the flexlog, no dump.
void OV_ConfWarn(OV_ConfSite site, const char *fmt, ...) OV_PRINTF_FMT(2, 3);
/// A plain message at the given level; nothing goes to the flexlog.
void OV_ConfLog(OV_ConfSite site, uint32_t level, const char *fmt, ...) OV_PRINTF_FMT(3, 4);

#define OV_CONF_FAIL(...) OV_ConfFail(OV_CONF_SITE, __VA_ARGS__)
#define OV_CONF_NOTICE(...) OV_ConfNotice(OV_CONF_SITE, __VA_ARGS__)
#define OV_CONF_WARN(...) OV_ConfWarn(OV_CONF_SITE, __VA_ARGS__)
#define OV_CONF_LOG(level, ...) OV_ConfLog(OV_CONF_SITE, (level), __VA_ARGS__)

// ---- Field getters -----------------------------------------------------------
// Each takes the parent object, the key and a destination, returns 0 or a
// negative code, and writes the destination only on success (the string
// getter also leaves its cut copy on -132). An absent key gives -22.

/// json_object_get_int. The two saturated 32-bit extremes give -132 (json-c
/// saturates on overflow, so the extremes themselves are refused on purpose);
/// 0 with errno EINVAL (a text that holds no number) gives -22.
int32_t _OV_JsonGetInt(json_object *obj, const char *key, int32_t *out);
/// The same, storing the 32-bit pattern into an unsigned field.
int32_t _OV_JsonGetInt(json_object *obj, const char *key, uint32_t *out);
/// Through _OV_JsonGetInt; a value outside 0..255 gives -132.
int32_t _OV_JsonGetU8(json_object *obj, const char *key, uint8_t *out);
/// Through _OV_JsonGetInt; a value outside 0..65535 gives -132.
int32_t _OV_JsonGetU16(json_object *obj, const char *key, uint16_t *out);
/// json_object_get_boolean into 0 or 1.
int32_t _OV_JsonGetBool(json_object *obj, const char *key, int32_t *out);
/// json_object_get_string into buf. A text of size bytes or more gives -132
/// and leaves the text cut to size - 1 characters; a null value gives -22.
int32_t _OV_JsonGetString(json_object *obj, const char *key, char *buf, size_t size);

// ---- Address texts -------------------------------------------------------------

/// Buffer sizes of address texts: at most 18 and 49 characters.
constexpr size_t OV_IPV4_TEXT_BUF = 19;
constexpr size_t OV_IPV6_TEXT_BUF = 50;

/// Dotted IPv4 text (within len bytes) to a host-order number whose most
/// significant byte is the first field. Leading white space is skipped (the
/// scan gives up when fewer than 7 characters would remain), leading zeros are
/// allowed, trailing white space is skipped and anything after it is not
/// examined. Returns the position reached, or nullptr.
const char *OV_IpStrToNum(const char *text, size_t len, uint32_t *out);
/// IPv6 text (within len bytes) to 16 bytes in network order; "::" once, an
/// IPv4 tail allowed. Returns the position reached, or nullptr.
const char *OV_Ipv6StrToConf(const char *text, size_t len, uint8_t *out16);

/// The value of a hexadecimal digit, or -1.
int OV_HexDigitValue(char c);
/// Reads one byte from text as sscanf(text, "%2hhx", out) does, without the C
/// library's scanf machinery (the largest thing pdtool would otherwise link,
/// for this one use): leading white space is skipped and does not count
/// towards the width of 2, a sign does count, "0x" reads as 0, and a negative
/// number is stored in two's complement. Returns false, leaving *out
/// unchanged, where sscanf would assign nothing.
bool OV_ScanHexByte(const char *text, uint8_t *out);

// ---- Arrays with a count field ---------------------------------------------------

/// Checks the value of an array key against its count field and its room in
/// the record. Not an array, or more items than `capacity` or than the count
/// field can hold: ERROR with notArrayText, -22 (a longer array would run past
/// the record). A length different from *count: WARN with sizeText and *count
/// becomes the length. Returns the number of items to read.
int32_t OV_ConfArrayLength(OV_ConfSite site, json_object *arr, uint8_t *count, size_t capacity,
                           const char *notArrayText, const char *sizeText);
int32_t OV_ConfArrayLength(OV_ConfSite site, json_object *arr, uint16_t *count, size_t capacity,
                           const char *notArrayText, const char *sizeText);

// ---- Entry -------------------------------------------------------------------------

/// The shared entry of every JSON-text converter: logs "agent <kind> conf json
/// = %s \n" (flexlog and INFO), parses the text ("invalid <kind> string, not
/// json\n" and -22 when it is not JSON), runs the record converter, logs
/// "Json to data struct failed(%d:%s)\n" on its failure, and releases the tree.
/// Messages carry the site of the calling entry function.
template <typename Conf>
int32_t OV_AgentConfJsonEntry(OV_ConfSite site, const char *kind, Conf *conf, const char *text,
                              int32_t (*convert)(Conf *, json_object *));

namespace ov_detail {
int32_t ConfJsonEntry(OV_ConfSite site, const char *kind, const char *text,
                      int32_t (*convert)(void *ctx, json_object *obj), void *ctx);
} // namespace ov_detail

template <typename Conf>
int32_t OV_AgentConfJsonEntry(OV_ConfSite site, const char *kind, Conf *conf, const char *text,
                              int32_t (*convert)(Conf *, json_object *)) {
    struct Call {
        Conf *conf;
        int32_t (*convert)(Conf *, json_object *);
    } call{conf, convert};
    return ov_detail::ConfJsonEntry(
        site, kind, text,
        [](void *ctx, json_object *obj) {
            auto *c = static_cast<Call *>(ctx);
            return c->convert(c->conf, obj);
        },
        &call);
}
