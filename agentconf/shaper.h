// Shaper records: the 224-byte record that shares a WAN link's bandwidth among
// eight priority bands, its JSON to record converter and the record to JSON
// conversion used to show records the agent returns.
#pragma once

#include <json-c/json.h>

#include <bit>
#include <cstddef>
#include <cstdint>

static_assert(std::endian::native == std::endian::little, "records are little-endian");

constexpr size_t OV_SHAPER_BAND_NUM = 8;
constexpr size_t OV_SHAPER_BLOCK_ITEMS = 8;

/// One per-priority limit (12 bytes).
struct AgentShaperBandItem {
    uint8_t priority;
    uint8_t reserved[3];
    uint32_t inkbps;
    uint32_t outkbps;
};
static_assert(offsetof(AgentShaperBandItem, priority) == 0);
static_assert(offsetof(AgentShaperBandItem, inkbps) == 4);
static_assert(offsetof(AgentShaperBandItem, outkbps) == 8);
static_assert(sizeof(AgentShaperBandItem) == 12);

/// A band-limit block (100 bytes): "bandLimit" or "guaranteeBandLimit".
struct AgentShaperBandLimit {
    uint8_t shaperId; // a copy of the record's shaper id in the first block, 0 in the second
    uint8_t sharePriority;
    uint8_t num;
    uint8_t reserved;
    AgentShaperBandItem items[OV_SHAPER_BLOCK_ITEMS];
};
static_assert(offsetof(AgentShaperBandLimit, shaperId) == 0);
static_assert(offsetof(AgentShaperBandLimit, sharePriority) == 1);
static_assert(offsetof(AgentShaperBandLimit, num) == 2);
static_assert(offsetof(AgentShaperBandLimit, items) == 4);
static_assert(sizeof(AgentShaperBandLimit) == 100);

/// Bit 0 of AgentShaperConf::flags; bits 1-7 are reserved.
constexpr uint8_t OV_SHAPER_PERSISTENT_MASK = 0x01;

struct AgentShaperConf {
    uint8_t shaperId;
    uint8_t flags;
    uint8_t sharedNum;
    uint8_t reserved;
    uint32_t wanKbps;
    uint32_t wanInKbps;
    uint16_t inBurstMs;
    uint16_t outBurstMs;
    uint8_t bandDist[OV_SHAPER_BAND_NUM];
    AgentShaperBandLimit bandLimit;
    AgentShaperBandLimit guaranteeBandLimit;
};
static_assert(offsetof(AgentShaperConf, shaperId) == 0);
static_assert(offsetof(AgentShaperConf, flags) == 1);
static_assert(offsetof(AgentShaperConf, sharedNum) == 2);
static_assert(offsetof(AgentShaperConf, wanKbps) == 4);
static_assert(offsetof(AgentShaperConf, wanInKbps) == 8);
static_assert(offsetof(AgentShaperConf, inBurstMs) == 12);
static_assert(offsetof(AgentShaperConf, outBurstMs) == 14);
static_assert(offsetof(AgentShaperConf, bandDist) == 16);
static_assert(offsetof(AgentShaperConf, bandLimit) == 24);
static_assert(offsetof(AgentShaperConf, guaranteeBandLimit) == 124);
static_assert(sizeof(AgentShaperConf) == 224);

/// Record offset of item `index` of the block at `blockOffset`. Items past the
/// eighth run on into what follows the block: the JSON converter writes them
/// there as long as they lie inside the record.
constexpr size_t OV_ShaperItemOffset(size_t blockOffset, size_t index) {
    return blockOffset + offsetof(AgentShaperBandLimit, items) +
           index * sizeof(AgentShaperBandItem);
}

/// How many items of the block at `blockOffset` lie inside the record: 16 for
/// the first block (its items 8-15 overlay the second block), 8 for the second.
constexpr size_t OV_ShaperItemsInRecord(size_t blockOffset) {
    size_t first = OV_ShaperItemOffset(blockOffset, 0);
    return first > sizeof(AgentShaperConf)
               ? 0
               : (sizeof(AgentShaperConf) - first) / sizeof(AgentShaperBandItem);
}
static_assert(OV_ShaperItemsInRecord(offsetof(AgentShaperConf, bandLimit)) == 16);
static_assert(OV_ShaperItemsInRecord(offsetof(AgentShaperConf, guaranteeBandLimit)) == 8);

/// Fills the caller's zero-filled record from a JSON text. Logs the text,
/// parses it (released before returning) and runs _OV_AgentShaperJsonToConf.
/// Returns 0, or -22 / -132; on failure the record is partly filled and must
/// not be sent.
int32_t OV_AgentShaperJsonStrToConf(AgentShaperConf *conf, const char *text);
/// Reads the keys of a parsed shaper object into the record. The object stays
/// the caller's. Returns 0, -22 (missing or malformed key, an item that would
/// not fit inside the record) or the getter's -132.
int32_t _OV_AgentShaperJsonToConf(AgentShaperConf *conf, json_object *obj);

/// The record as JSON text (json-c's spaced form). The conf may be bytes
/// received from the agent: items are read only while they lie inside the
/// record, whatever its num says. Returns a text of strlen + 1 bytes from the
/// AGENT memory module that the caller frees with AgentMemFree, or nullptr
/// (logged) when the JSON cannot be built or printed or the copy not allocated.
char *OV_AgentShaperConfToJsonStr(const AgentShaperConf *conf);
/// Adds the record's keys to `obj`, which stays the caller's. Returns 0, -22
/// for a null argument, or -12 when a JSON value cannot be created; whatever
/// was added before a failure stays in `obj`.
int32_t _OV_AgentShaperConfToJson(const AgentShaperConf *conf, json_object *obj);

/// The whole shaper record as JSON (every stored field, unlike the get reply's text).
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentShaperRecordToJson(const uint8_t *rec, size_t len);

/// The shaper table reply: a header whose first byte counts the records that
/// follow it (so at most 255).
constexpr size_t OV_SHAPER_TABLE_HEADER_LEN = 4;

/// The SA cluster state the shaper module returns to get_sa_cluster
/// (540 bytes, little-endian; the rest of the record is not read).
struct AgentSaClusterInfo {
    int32_t role;        ///< 0 disable, 1 master, 2 slave
    uint8_t calQueueLen; ///< "SA.CalQueueLen"
    uint8_t localLanId;  ///< "SA.LocalLanId"
    uint16_t localPort;  ///< "SA.LocalPort"
    uint16_t masterPort; ///< "SA.MasterPort"
    uint8_t reserved1[2];
    uint32_t masterIp;    ///< host order: 10.0.0.1 is 0x0A000001
    uint32_t masterCpeId; ///< "SA.MasterCpeId"
    uint8_t reserved2[520];
};
static_assert(sizeof(AgentSaClusterInfo) == 540);
static_assert(offsetof(AgentSaClusterInfo, calQueueLen) == 4);
static_assert(offsetof(AgentSaClusterInfo, localLanId) == 5);
static_assert(offsetof(AgentSaClusterInfo, localPort) == 6);
static_assert(offsetof(AgentSaClusterInfo, masterPort) == 8);
static_assert(offsetof(AgentSaClusterInfo, masterIp) == 12);
static_assert(offsetof(AgentSaClusterInfo, masterCpeId) == 16);
