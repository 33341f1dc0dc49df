// The record kinds and decoders are the records library's.
#include "pdctl/record_view.h"

namespace pdctl {

const OV_RecordSpec *RecordSpecOf(uint8_t module, uint16_t function,
                                  std::span<const uint8_t> payload) {
    const CommandSpec *cmd = OV_CommandOfRequest(module, function, payload);
    if (cmd == nullptr || !cmd->SendsRecord()) {
        return nullptr;
    }
    return &OV_RecordSpecOf(cmd->kind);
}

json_object *DecodeRecord(uint8_t module, uint16_t function, std::span<const uint8_t> payload) {
    return OV_AgentRequestToJson(module, function, payload);
}

} // namespace pdctl
