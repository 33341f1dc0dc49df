// The 72-byte rate-limit record (a token bucket with optional per-source and
// per-destination buckets) and its JSON converter pair.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

/// One per-address bucket inside the rate-limit record.
struct AgentRatelimitBucket {
    uint32_t bucketRate; ///< bytes per second
    uint32_t reserved;   ///< zero
    int64_t cbs;         ///< committed burst size in bytes, never negative
};
static_assert(sizeof(AgentRatelimitBucket) == 16);
static_assert(offsetof(AgentRatelimitBucket, bucketRate) == 0);
static_assert(offsetof(AgentRatelimitBucket, reserved) == 4);
static_assert(offsetof(AgentRatelimitBucket, cbs) == 8);

/// Slots of AgentRatelimitConf::perIp.
constexpr size_t RATELIMIT_SLOT_SRC = 0;
constexpr size_t RATELIMIT_SLOT_DST = 1;

/// The rate-limit record, little-endian, sent whole to module 10.
struct AgentRatelimitConf {
    uint32_t rateLimitId;          ///< "RateLimitId", required
    uint32_t rateLimitObjId;       ///< "RateLimitObjId"
    uint32_t customerId;           ///< "CustomerId"
    uint32_t bucketRate;           ///< "BucketRate", bytes per second
    int64_t cbs;                   ///< "CBS", never negative
    uint32_t type;                 ///< "Type": 1 per-source, 2 per-destination single bucket
    uint32_t reserved1;            ///< zero
    AgentRatelimitBucket perIp[2]; ///< per-source (slot 0) and per-destination (slot 1)
    uint16_t flags;                ///< RATELIMIT_FLAG_* bits
    uint8_t reserved2[6];          ///< zero
};
static_assert(sizeof(AgentRatelimitConf) == 72);
static_assert(offsetof(AgentRatelimitConf, rateLimitId) == 0);
static_assert(offsetof(AgentRatelimitConf, rateLimitObjId) == 4);
static_assert(offsetof(AgentRatelimitConf, customerId) == 8);
static_assert(offsetof(AgentRatelimitConf, bucketRate) == 12);
static_assert(offsetof(AgentRatelimitConf, cbs) == 16);
static_assert(offsetof(AgentRatelimitConf, type) == 24);
static_assert(offsetof(AgentRatelimitConf, reserved1) == 28);
static_assert(offsetof(AgentRatelimitConf, perIp) == 32);
static_assert(offsetof(AgentRatelimitConf, perIp) + sizeof(AgentRatelimitBucket) == 48);
static_assert(offsetof(AgentRatelimitConf, flags) == 64);
static_assert(offsetof(AgentRatelimitConf, reserved2) == 66);

// Bits of AgentRatelimitConf::flags. Each Update bit tells the agent which
// values of an existing rate limit the record replaces.
constexpr uint16_t RATELIMIT_FLAG_UPDATE_TYPE = 0x0001;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_BUCKET_RATE = 0x0002;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_CBS = 0x0004;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_PER_SRC_IP_BUCKET_RATE = 0x0008;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_PER_DST_IP_BUCKET_RATE = 0x0010;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_PER_SRC_IP_CBS = 0x0020;
constexpr uint16_t RATELIMIT_FLAG_UPDATE_PER_DST_IP_CBS = 0x0040;
constexpr uint16_t RATELIMIT_FLAG_PERSISTENT = 0x0080;

/// The flag keys in the order the converter reads them, with their bits.
struct AgentRatelimitFlagKey {
    const char *key;
    uint16_t mask;
};
inline constexpr AgentRatelimitFlagKey kAgentRatelimitFlagKeys[] = {
    {"UpdateType", RATELIMIT_FLAG_UPDATE_TYPE},
    {"UpdateBucketRate", RATELIMIT_FLAG_UPDATE_BUCKET_RATE},
    {"UpdateCBS", RATELIMIT_FLAG_UPDATE_CBS},
    {"UpdatePerSrcIpBucketRate", RATELIMIT_FLAG_UPDATE_PER_SRC_IP_BUCKET_RATE},
    {"UpdatePerDstIpBucketRate", RATELIMIT_FLAG_UPDATE_PER_DST_IP_BUCKET_RATE},
    {"UpdatePerSrcIpCBS", RATELIMIT_FLAG_UPDATE_PER_SRC_IP_CBS},
    {"UpdatePerDstIpCBS", RATELIMIT_FLAG_UPDATE_PER_DST_IP_CBS},
    {"PersistentFlag", RATELIMIT_FLAG_PERSISTENT},
};

/// Fills the caller's zero-filled record from a JSON text; the text stays the
/// caller's, the parsed tree is released here. Returns 0, or a negative code
/// (-22 not JSON or a key refused, -132 RateLimitId out of range); the record
/// is then partly filled and must not be sent.
int32_t OV_AgentRatelimitJsonStrToConf(AgentRatelimitConf *conf, const char *text);
/// Reads the keys of a parsed object (borrowed, no reference taken) into the
/// record. Returns 0 or a negative code as above.
int32_t _OV_AgentRatelimitJsonToConf(AgentRatelimitConf *conf, json_object *obj);

/// The rate-limit record as JSON under its own keys.
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentRatelimitRecordToJson(const uint8_t *rec, size_t len);
