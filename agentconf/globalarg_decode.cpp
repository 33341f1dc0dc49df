// The data-plane global-argument record back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/globalarg.h"
#include "agentconf/json_out.h"

#include <cinttypes>
#include <cstdio>
#include <limits>

json_object *OV_AgentGlobalArgRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentGlobalArgConf)) {
        return nullptr;
    }
    const auto type = ovrec::Load<uint16_t>(rec, offsetof(AgentGlobalArgConf, type));
    const auto lenth = ovrec::Load<uint16_t>(rec, offsetof(AgentGlobalArgConf, lenth));
    // The value area is read by offset: which union member it holds is Type's say.
    constexpr size_t kValue = offsetof(AgentGlobalArgConf, value);
    const uint8_t *area = rec + kValue;
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "Type", type);
    ovrec::AddInt(obj, "Lenth", lenth);
    switch (AgentGlobalArgFormOf(type)) {
    case AgentGlobalArgForm::Value:
        ovrec::AddInt(obj, "Value", ovrec::Load<uint32_t>(rec, kValue));
        break;
    case AgentGlobalArgForm::Value64: {
        const auto v = ovrec::Load<uint64_t>(rec, kValue);
        if (v <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            ovrec::AddInt(obj, "Value64", static_cast<int64_t>(v));
        } else {
            // Beyond a JSON integer of json-c; the converter reads the text form.
            char text[24];
            std::snprintf(text, sizeof text, "%" PRIu64, v);
            ovrec::AddString(obj, "Value64", text);
        }
        break;
    }
    case AgentGlobalArgForm::Range: {
        json_object *pair = json_object_new_array();
        json_object_array_add(pair, json_object_new_int(ovrec::Load<uint16_t>(
                                        rec, kValue + offsetof(AgentGlobalArgValue, range.low))));
        json_object_array_add(pair, json_object_new_int(ovrec::Load<uint16_t>(
                                        rec, kValue + offsetof(AgentGlobalArgValue, range.high))));
        json_object_object_add(obj, "Range", pair);
        break;
    }
    case AgentGlobalArgForm::Ipv6:
        ovrec::AddString(obj, "Ipv6", ovrec::Ipv6Text(area));
        break;
    case AgentGlobalArgForm::Rejected:
        // pdtool never sends these types; show the raw value area.
        ovrec::AddString(obj, "ValueHex", ovrec::HexText(area, sizeof(AgentGlobalArgValue)));
        break;
    }
    return obj;
}
