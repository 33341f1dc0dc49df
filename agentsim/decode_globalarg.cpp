// Decoder of the data-plane global-argument record for the simulator's
// journal and tests.
#include "agentconf/globalarg.h"
#include "agentsim/decode.h"
#include "agentsim/decode_util.h"

#include <cinttypes>
#include <cstdio>
#include <limits>

json_object *SimDecodeGlobalArg(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentGlobalArgConf)) {
        return nullptr;
    }
    const auto type = sim::Load<uint16_t>(rec, offsetof(AgentGlobalArgConf, type));
    const auto lenth = sim::Load<uint16_t>(rec, offsetof(AgentGlobalArgConf, lenth));
    // The value area is read by offset: which union member it holds is Type's say.
    constexpr size_t kValue = offsetof(AgentGlobalArgConf, value);
    const uint8_t *area = rec + kValue;
    json_object *obj = json_object_new_object();
    sim::AddInt(obj, "Type", type);
    sim::AddInt(obj, "Lenth", lenth);
    switch (AgentGlobalArgFormOf(type)) {
    case AgentGlobalArgForm::Value:
        sim::AddInt(obj, "Value", sim::Load<uint32_t>(rec, kValue));
        break;
    case AgentGlobalArgForm::Value64: {
        const auto v = sim::Load<uint64_t>(rec, kValue);
        if (v <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            sim::AddInt(obj, "Value64", static_cast<int64_t>(v));
        } else {
            // Beyond a JSON integer of json-c; the converter reads the text form.
            char text[24];
            std::snprintf(text, sizeof text, "%" PRIu64, v);
            sim::AddString(obj, "Value64", text);
        }
        break;
    }
    case AgentGlobalArgForm::Range: {
        json_object *pair = json_object_new_array();
        json_object_array_add(pair, json_object_new_int(sim::Load<uint16_t>(
                                        rec, kValue + offsetof(AgentGlobalArgValue, range.low))));
        json_object_array_add(pair, json_object_new_int(sim::Load<uint16_t>(
                                        rec, kValue + offsetof(AgentGlobalArgValue, range.high))));
        json_object_object_add(obj, "Range", pair);
        break;
    }
    case AgentGlobalArgForm::Ipv6:
        sim::AddString(obj, "Ipv6", sim::Ipv6Text(area));
        break;
    case AgentGlobalArgForm::Rejected:
        // pdtool never sends these types; show the raw value area.
        sim::AddString(obj, "ValueHex", sim::HexText(area, sizeof(AgentGlobalArgValue)));
        break;
    }
    return obj;
}
