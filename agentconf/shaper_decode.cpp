// The shaper record (224 bytes) back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/json_out.h"
#include "agentconf/shaper.h"

#include <algorithm>

namespace {

using ovrec::AddBool;
using ovrec::AddInt;
using ovrec::Load;

constexpr size_t kBandLimitOffset = offsetof(AgentShaperConf, bandLimit);
constexpr size_t kGuaranteeOffset = offsetof(AgentShaperConf, guaranteeBandLimit);

// Items follow the converter's placement: the first block's items 8-15 lie in
// the bytes of the second block, so a record with up to 16 items there decodes
// to JSON that gives the same bytes again. num is shown as stored; items that
// would lie outside the record are not read.
json_object *DecodeBandLimit(const uint8_t *rec, size_t blockOffset) {
    json_object *block = json_object_new_object();
    uint8_t num = Load<uint8_t>(rec, blockOffset + offsetof(AgentShaperBandLimit, num));
    AddInt(block, "sharePriority",
           Load<uint8_t>(rec, blockOffset + offsetof(AgentShaperBandLimit, sharePriority)));
    AddInt(block, "num", num);
    json_object *items = json_object_new_array();
    size_t count = std::min<size_t>(num, OV_ShaperItemsInRecord(blockOffset));
    for (size_t i = 0; i < count; ++i) {
        size_t off = OV_ShaperItemOffset(blockOffset, i);
        json_object *item = json_object_new_object();
        AddInt(item, "priority", Load<uint8_t>(rec, off + offsetof(AgentShaperBandItem, priority)));
        AddInt(item, "inkbps", Load<uint32_t>(rec, off + offsetof(AgentShaperBandItem, inkbps)));
        AddInt(item, "outkbps", Load<uint32_t>(rec, off + offsetof(AgentShaperBandItem, outkbps)));
        json_object_array_add(items, item);
    }
    json_object_object_add(block, "bandLimit", items);
    return block;
}

} // namespace

json_object *OV_AgentShaperRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentShaperConf)) {
        return nullptr;
    }
    json_object *obj = json_object_new_object();
    AddInt(obj, "shaperId", Load<uint8_t>(rec, offsetof(AgentShaperConf, shaperId)));
    // The converter would put 1 here when the key were missing; the stored
    // value (0 included) is always given.
    AddInt(obj, "sharedNum", Load<uint8_t>(rec, offsetof(AgentShaperConf, sharedNum)));
    AddInt(obj, "inBurstMs", Load<uint16_t>(rec, offsetof(AgentShaperConf, inBurstMs)));
    AddInt(obj, "outBurstMs", Load<uint16_t>(rec, offsetof(AgentShaperConf, outBurstMs)));
    // Rates are u32 and shown as such. The converter's 32-bit getter refuses
    // values above 2147483646, so rates from 2^31 up (which only negative
    // input produces) do not convert back.
    AddInt(obj, "wanInKbps", Load<uint32_t>(rec, offsetof(AgentShaperConf, wanInKbps)));
    AddInt(obj, "wanKbps", Load<uint32_t>(rec, offsetof(AgentShaperConf, wanKbps)));
    AddBool(obj, "persistentFlag",
            (Load<uint8_t>(rec, offsetof(AgentShaperConf, flags)) & OV_SHAPER_PERSISTENT_MASK) !=
                0);
    // Always given: besides the weights, the converter reads band-limit items
    // only when "bandDist" is present.
    json_object *dist = json_object_new_array();
    for (size_t i = 0; i < OV_SHAPER_BAND_NUM; ++i) {
        json_object_array_add(dist, json_object_new_int64(Load<uint8_t>(
                                        rec, offsetof(AgentShaperConf, bandDist) + i)));
    }
    json_object_object_add(obj, "bandDist", dist);
    json_object_object_add(obj, "bandLimit", DecodeBandLimit(rec, kBandLimitOffset));
    json_object_object_add(obj, "guaranteeBandLimit", DecodeBandLimit(rec, kGuaranteeOffset));
    return obj;
}
