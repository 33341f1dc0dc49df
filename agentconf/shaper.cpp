// Shaper records: JSON to the 224-byte record for set_shaper_conf, and the
// record back to JSON text for the get commands.
#include "agentconf/shaper.h"

#include "agentconf/json_conv.h"
#include "base/errors.h"
#include "base/mem.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace {

using RecordBytes = std::span<uint8_t, sizeof(AgentShaperConf)>;
using ConstRecordBytes = std::span<const uint8_t, sizeof(AgentShaperConf)>;

constexpr size_t kBandLimitOffset = offsetof(AgentShaperConf, bandLimit);
constexpr size_t kGuaranteeOffset = offsetof(AgentShaperConf, guaranteeBandLimit);

// Items are placed by record offset, not through the block's item array:
// items past the eighth belong in the bytes after the block.
constexpr size_t kItemPriority = offsetof(AgentShaperBandItem, priority);
constexpr size_t kItemInkbps = offsetof(AgentShaperBandItem, inkbps);
constexpr size_t kItemOutkbps = offsetof(AgentShaperBandItem, outkbps);

RecordBytes Bytes(AgentShaperConf *conf) {
    return RecordBytes(reinterpret_cast<uint8_t *>(conf), sizeof *conf);
}

ConstRecordBytes Bytes(const AgentShaperConf *conf) {
    return ConstRecordBytes(reinterpret_cast<const uint8_t *>(conf), sizeof *conf);
}

AgentShaperBandLimit &Block(AgentShaperConf *conf, size_t blockOffset) {
    return blockOffset == kBandLimitOffset ? conf->bandLimit : conf->guaranteeBandLimit;
}

template <typename T>
void Store(RecordBytes rec, size_t offset, T value) {
    std::memcpy(rec.subspan(offset, sizeof value).data(), &value, sizeof value);
}

template <typename T>
T Load(ConstRecordBytes rec, size_t offset) {
    T value;
    std::memcpy(&value, rec.subspan(offset, sizeof value).data(), sizeof value);
    return value;
}

// One band-limit block ("bandLimit" or "guaranteeBandLimit"). Its messages
// carry the name of the converter that owns them (`caller`), as every
// converter message does. Returns 0 or -22.
int32_t BandLimitJsonToConf(const char *caller, AgentShaperConf *conf, size_t blockOffset,
                            json_object *block, json_object *lastDistItem) {
    auto site = [caller](int line) { return OV_ConfSite{caller, line}; };
    AgentShaperBandLimit &b = Block(conf, blockOffset);

    if (_OV_JsonGetU8(block, "sharePriority", &b.sharePriority) != 0) {
        OV_ConfNotice(site(__LINE__), "Bandlimit sharePriority is not set\n");
    }
    if (_OV_JsonGetU8(block, "num", &b.num) != 0) {
        OV_ConfNotice(site(__LINE__), "Bandlimit num is not set\n");
    }
    if (b.num == 0) {
        return 0;
    }
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(block, "bandLimit", &arr)) {
        OV_ConfFail(site(__LINE__), "Lack of bandLimit\n");
        return -22;
    }
    if (json_object_get_type(arr) != json_type_array) {
        OV_ConfFail(site(__LINE__), "Invalid format, bandLimit is not array!\n");
        return -22;
    }
    size_t size = json_object_array_length(arr);
    if (size != b.num) {
        OV_ConfWarn(site(__LINE__),
                    "array size is not equal to WanEngineConf->BandLimit.Num, use array size\n");
        b.num = static_cast<uint8_t>(size);
    }

    RecordBytes rec = Bytes(conf);
    const size_t num = b.num;
    for (size_t i = 0; i < num; ++i) {
        // More than eight items run on past the block; one that would leave
        // the record is refused.
        size_t off = OV_ShaperItemOffset(blockOffset, i);
        if (off + sizeof(AgentShaperBandItem) > rec.size()) {
            OV_ConfFail(site(__LINE__), "Invalid format, bandLimit is not array!\n");
            return -22;
        }
        json_object *item = json_object_array_get_idx(arr, i);
        // Tests the last "bandDist" item, not this one, on purpose: without
        // "bandDist" a block with items fails here, and with it a null item
        // only gives the three notices below.
        if (lastDistItem == nullptr) {
            OV_ConfFail(site(__LINE__), "empty [%d] item for bandLimit\n", static_cast<int>(i));
            return -22;
        }
        uint8_t priority = 0;
        if (_OV_JsonGetU8(item, "priority", &priority) == 0) {
            Store(rec, off + kItemPriority, priority);
        } else {
            OV_ConfNotice(site(__LINE__), "Bandlimit priority is not set\n");
        }
        uint32_t kbps = 0;
        if (_OV_JsonGetInt(item, "inkbps", &kbps) == 0) {
            Store(rec, off + kItemInkbps, kbps);
        } else {
            OV_ConfNotice(site(__LINE__), "Bandlimit inkbps is not set\n");
        }
        if (_OV_JsonGetInt(item, "outkbps", &kbps) == 0) {
            Store(rec, off + kItemOutkbps, kbps);
        } else {
            OV_ConfNotice(site(__LINE__), "Bandlimit outkbps is not set\n");
        }
    }
    return 0;
}

// ---- Record to JSON ------------------------------------------------------------
// The builders return nullptr, or the message naming the value that could not
// be created; the public function logs it under its own name.

// Adds `value` (owned) under `key`, or releases it.
bool Attach(json_object *parent, const char *key, json_object *value) {
    if (value == nullptr) {
        return false;
    }
    if (json_object_object_add(parent, key, value) != 0) {
        json_object_put(value);
        return false;
    }
    return true;
}

bool Append(json_object *arr, json_object *value) {
    if (value == nullptr) {
        return false;
    }
    if (json_object_array_add(arr, value) != 0) {
        json_object_put(value);
        return false;
    }
    return true;
}

// The 32-bit constructor on purpose: a u32 above 2147483647 prints negative.
json_object *NewInt(uint32_t value) {
    return json_object_new_int(static_cast<int32_t>(value));
}

const char *AddBandLimit(json_object *parent, const char *key, ConstRecordBytes rec,
                         size_t blockOffset) {
    json_object *block = json_object_new_object();
    if (!Attach(parent, key, block)) {
        return "Can't new bandLimit json object\n";
    }
    uint8_t sharePriority = Load<uint8_t>(rec, blockOffset + 1);
    uint8_t num = Load<uint8_t>(rec, blockOffset + 2);
    if (!Attach(block, "sharePriority", NewInt(sharePriority))) {
        return "Can't new sharePriority json object\n";
    }
    if (!Attach(block, "num", NewInt(num))) {
        return "Can't new num json object\n";
    }
    json_object *arr = json_object_new_array();
    if (!Attach(block, "bandLimit", arr)) {
        return "Can't new bandLimitArr json object\n";
    }
    // num comes from the agent; only items inside the record are read (the
    // first block's items 8-15 are where the JSON converter puts them).
    size_t count = std::min<size_t>(num, OV_ShaperItemsInRecord(blockOffset));
    for (size_t i = 0; i < count; ++i) {
        size_t off = OV_ShaperItemOffset(blockOffset, i);
        json_object *item = json_object_new_object();
        if (!Append(arr, item)) {
            return "Can't new bandLimitItem json object\n";
        }
        if (!Attach(item, "priority", NewInt(Load<uint8_t>(rec, off + kItemPriority)))) {
            return "Can't new priority json object\n";
        }
        if (!Attach(item, "inkbps", NewInt(Load<uint32_t>(rec, off + kItemInkbps)))) {
            return "Can't new inkbps json object\n";
        }
        if (!Attach(item, "outkbps", NewInt(Load<uint32_t>(rec, off + kItemOutkbps)))) {
            return "Can't new outkbps json object\n";
        }
    }
    return nullptr;
}

const char *AddShaper(const AgentShaperConf *conf, json_object *obj) {
    if (!Attach(obj, "shaperId", NewInt(conf->shaperId))) {
        return "Can't new shaper shaperId\n";
    }
    if (!Attach(obj, "sharedNum", NewInt(conf->sharedNum))) {
        return "Can't new shaper sharedNum\n";
    }
    if (!Attach(obj, "inBurstMs", NewInt(conf->inBurstMs))) {
        return "Can't new shaper inBurstMs\n";
    }
    if (!Attach(obj, "outBurstMs", NewInt(conf->outBurstMs))) {
        return "Can't new shaper outBurstMs\n";
    }
    if (!Attach(obj, "wanInKbps", NewInt(conf->wanInKbps))) {
        return "Can't new shaper wanInKbps\n";
    }
    if (!Attach(obj, "wanKbps", NewInt(conf->wanKbps))) {
        return "Can't new shaper wanKbps\n";
    }
    bool persistent = (conf->flags & OV_SHAPER_PERSISTENT_MASK) != 0;
    if (!Attach(obj, "persistentFlag", json_object_new_boolean(persistent ? 1 : 0))) {
        return "Can't new shaper persistentFlag\n";
    }
    json_object *dist = json_object_new_array();
    if (!Attach(obj, "bandDist", dist)) {
        return "Can't new bandDist json object\n";
    }
    for (uint8_t weight : conf->bandDist) {
        if (!Append(dist, NewInt(weight))) {
            return "Can't new bandDistItem json object\n";
        }
    }
    if (const char *fail = AddBandLimit(obj, "bandLimit", Bytes(conf), kBandLimitOffset)) {
        return fail;
    }
    return AddBandLimit(obj, "guaranteeBandLimit", Bytes(conf), kGuaranteeOffset);
}

} // namespace

int32_t OV_AgentShaperJsonStrToConf(AgentShaperConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "shaper", conf, text, _OV_AgentShaperJsonToConf);
}

int32_t _OV_AgentShaperJsonToConf(AgentShaperConf *conf, json_object *obj) {
    if (conf == nullptr || obj == nullptr) {
        return -22;
    }
    int32_t rc = _OV_JsonGetU8(obj, "shaperId", &conf->shaperId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of shaperId\n");
        return rc;
    }
    if (_OV_JsonGetU8(obj, "sharedNum", &conf->sharedNum) != 0) {
        conf->sharedNum = 1;
        OV_CONF_NOTICE("Lack of sharedNum, set to default value %u\n", 1u);
    }
    rc = _OV_JsonGetInt(obj, "wanInKbps", &conf->wanInKbps);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of wanInKbps\n");
        return rc;
    }
    rc = _OV_JsonGetInt(obj, "wanKbps", &conf->wanKbps);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of wanKbps\n");
        return rc;
    }
    rc = _OV_JsonGetU16(obj, "inBurstMs", &conf->inBurstMs);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of inBurstMs\n");
        return rc;
    }
    rc = _OV_JsonGetU16(obj, "outBurstMs", &conf->outBurstMs);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of outBurstMs\n");
        return rc;
    }
    int32_t persistent = 0;
    rc = _OV_JsonGetBool(obj, "persistentFlag", &persistent);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of persistentFlag\n");
        return rc;
    }
    conf->flags = static_cast<uint8_t>((conf->flags & ~OV_SHAPER_PERSISTENT_MASK) |
                                       (persistent != 0 ? OV_SHAPER_PERSISTENT_MASK : 0));
    // Only the first block carries the shaper id; the agent expects it so.
    conf->bandLimit.shaperId = conf->shaperId;

    json_object *lastDistItem = nullptr; // also read by the band-limit item loops
    json_object *dist = nullptr;
    if (json_object_object_get_ex(obj, "bandDist", &dist)) {
        if (json_object_get_type(dist) != json_type_array) {
            OV_CONF_FAIL("Invalid format, bandDist is not array!\n");
            return -22;
        }
        if (json_object_array_length(dist) != OV_SHAPER_BAND_NUM) {
            OV_CONF_FAIL("Band Dist num is invalid\n");
            return -22;
        }
        for (size_t i = 0; i < OV_SHAPER_BAND_NUM; ++i) {
            lastDistItem = json_object_array_get_idx(dist, i);
            if (lastDistItem == nullptr) {
                OV_CONF_FAIL("empty [%d] item for bandDist\n", static_cast<int>(i));
                return -22;
            }
            conf->bandDist[i] = static_cast<uint8_t>(json_object_get_int(lastDistItem));
        }
    }

    json_object *block = nullptr;
    if (json_object_object_get_ex(obj, "bandLimit", &block)) {
        rc = BandLimitJsonToConf(__func__, conf, kBandLimitOffset, block, lastDistItem);
        if (rc != 0) {
            return rc;
        }
    }
    if (!json_object_object_get_ex(obj, "guaranteeBandLimit", &block)) {
        return 0;
    }
    return BandLimitJsonToConf(__func__, conf, kGuaranteeOffset, block, lastDistItem);
}

int32_t _OV_AgentShaperConfToJson(const AgentShaperConf *conf, json_object *obj) {
    if (conf == nullptr || obj == nullptr) {
        return -22;
    }
    if (const char *fail = AddShaper(conf, obj)) {
        OV_CONF_FAIL("%s", fail);
        return -12;
    }
    return 0;
}

char *OV_AgentShaperConfToJsonStr(const AgentShaperConf *conf) {
    OV_JsonPtr obj(json_object_new_object());
    if (obj == nullptr) {
        OV_CONF_FAIL("Can't new shaper json object\n");
        return nullptr;
    }
    int32_t rc = _OV_AgentShaperConfToJson(conf, obj.get());
    if (rc != 0) {
        OV_CONF_FAIL("Agent shaper conf to json failed(%d:%s)\n", -rc, OV_StrError(-rc));
        return nullptr;
    }
    // The text belongs to obj and lives until obj is released.
    const char *text = json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_SPACED);
    if (text == nullptr) {
        OV_CONF_FAIL("Trans json object to json string failed\n");
        return nullptr;
    }
    OV_CONF_LOG(OV_LOG_INFO, "shaper conf json str: %s\n", text);
    size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(AgentMemMalloc(size));
    if (copy == nullptr) {
        OV_CONF_FAIL("Failed to alloc memory for jsonStr\n");
        return nullptr;
    }
    std::memcpy(copy, text, size);
    return copy;
}
