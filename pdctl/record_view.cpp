// The record decoders are the simulator's journal decoders.
#include "pdctl/record_view.h"

#include "agentsim/sim_handlers.h"

namespace pdctl {

json_object *DecodeRecord(uint8_t module, uint16_t function, std::span<const uint8_t> record) {
    return SimDecodeRequest(module, function, record);
}

const OV_RecordLayout *RecordLayout(uint8_t /*module*/, uint16_t /*function*/, size_t size) {
    return size > 0 ? OV_RecordLayoutOfSize(size) : nullptr;
}

} // namespace pdctl
