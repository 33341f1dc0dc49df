// The engine parameter record back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/engine.h"
#include "agentconf/json_out.h"

#include <cstring>

json_object *OV_AgentEngineParamRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentEngineParamConf)) {
        return nullptr;
    }
    AgentEngineParamConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "wanIndex", c.wanIndex);
    ovrec::AddInt(obj, "paramCode", c.paramCode);
    ovrec::AddInt(obj, "value", c.value);
    return obj;
}
