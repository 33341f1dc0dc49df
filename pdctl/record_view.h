// What pdctl shows of a request besides its bytes: the record's kind, the
// JSON the agent simulator's journal shows it as, and its field layout. The
// one file of pdctl that knows where the record decoders live.
#pragma once

#include "agentconf/record_fields.h"
#include "agentconf/records.h"

#include <json-c/json.h>

#include <cstdint>
#include <span>

namespace pdctl {

/// The facts of the request's record kind, or nullptr when the request
/// carries no record.
const OV_RecordSpec *RecordSpecOf(uint8_t module, uint16_t function,
                                  std::span<const uint8_t> payload);

/// The request's record as JSON (a new object the caller owns), or nullptr
/// when it carries no record or the size is not the record's.
json_object *DecodeRecord(uint8_t module, uint16_t function, std::span<const uint8_t> payload);

} // namespace pdctl
