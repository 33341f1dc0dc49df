// Decoder of the engine parameter record for the simulator's journal and tests.
#include "agentconf/engine.h"
#include "agentsim/decode.h"
#include "agentsim/decode_util.h"

#include <cstring>

json_object *SimDecodeEngineParam(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentEngineParamConf)) {
        return nullptr;
    }
    AgentEngineParamConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    sim::AddInt(obj, "wanIndex", c.wanIndex);
    sim::AddInt(obj, "paramCode", c.paramCode);
    sim::AddInt(obj, "value", c.value);
    return obj;
}
