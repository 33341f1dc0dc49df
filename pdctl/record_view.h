// What pdctl shows of a record besides its bytes: the JSON the simulator's
// journal shows it as, and its field layout. The one file of pdctl that
// knows where the record decoders live.
#pragma once

#include "agentconf/record_fields.h"

#include <json-c/json.h>

#include <cstdint>
#include <span>

namespace pdctl {

/// The request's record as JSON (a new object the caller owns), or nullptr
/// when the function carries no record or the size is not the record's.
json_object *DecodeRecord(uint8_t module, uint16_t function, std::span<const uint8_t> record);

/// The field layout of the request's record, or nullptr when it has none.
const OV_RecordLayout *RecordLayout(uint8_t module, uint16_t function, size_t size);

} // namespace pdctl
