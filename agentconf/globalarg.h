// The 24-byte data-plane global-argument record (one typed setting of the
// agent's forwarding plane) and its JSON converter pair.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

/// The value area at offset 8; Type chooses the form.
union AgentGlobalArgValue {
    uint32_t value; ///< "Value"
    struct {
        uint16_t low;
        uint16_t high;
    } range;          ///< "Range" [low, high]
    uint64_t value64; ///< "Value64"
    uint8_t ipv6[16]; ///< "Ipv6", network order
};
static_assert(sizeof(AgentGlobalArgValue) == 16);
static_assert(offsetof(AgentGlobalArgValue, range.low) == 0);
static_assert(offsetof(AgentGlobalArgValue, range.high) == 2);

/// The global-argument record, little-endian, sent whole to module 3.
struct AgentGlobalArgConf {
    uint16_t type;             ///< "Type" (cut to 16 bits); required
    uint16_t lenth;            ///< "Lenth" (spelled so), the value's length; required
    uint8_t reserved[4];       ///< zero
    AgentGlobalArgValue value; ///< the form chosen by type
};
static_assert(sizeof(AgentGlobalArgConf) == 24);
static_assert(offsetof(AgentGlobalArgConf, type) == 0);
static_assert(offsetof(AgentGlobalArgConf, lenth) == 2);
static_assert(offsetof(AgentGlobalArgConf, reserved) == 4);
static_assert(offsetof(AgentGlobalArgConf, value) == 8);

/// The value forms, and which one each type takes.
enum class AgentGlobalArgForm { Value, Range, Value64, Ipv6, Rejected };

constexpr AgentGlobalArgForm AgentGlobalArgFormOf(uint16_t type) {
    if (type == 13) {
        return AgentGlobalArgForm::Range;
    }
    if (type == 25) {
        return AgentGlobalArgForm::Value64;
    }
    if (type >= 37 && type <= 40) {
        return AgentGlobalArgForm::Ipv6;
    }
    if (type <= 27 || (type >= 32 && type <= 36) || (type >= 41 && type <= 61) || type == 64 ||
        type == 65 || (type >= 71 && type <= 75)) {
        return AgentGlobalArgForm::Value;
    }
    return AgentGlobalArgForm::Rejected; // 28-31, 62, 63, 66-70 and above 75
}

/// Fills the caller's zero-filled record from a JSON text; the text stays the
/// caller's, the parsed tree is released here. Returns 0, or a negative code
/// (-132 Type or Lenth out of the 32-bit range, -22 anything else refused);
/// the record must then not be sent.
int32_t OV_AgentDpGlobalArgJsonStrToConf(AgentGlobalArgConf *conf, const char *text);
/// Reads the keys of a parsed object (borrowed) into the record; results as above.
int32_t _OV_AgentGlobalArgJsonToConf(AgentGlobalArgConf *conf, json_object *obj);

/// The global-argument record as JSON under its own keys.
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentGlobalArgRecordToJson(const uint8_t *rec, size_t len);
