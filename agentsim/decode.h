// Record decoders of the agent simulator: every record kind the agent
// receives, back to readable JSON under the record's own key names (flags as
// booleans, addresses as text, keys as hex, counts and lists). Operators read
// them in the journal; tests use them as the round-trip oracle: converting
// the decoded JSON again gives the same record bytes.
//
// Each decoder takes the record bytes exactly as received and returns a new
// json-c object owned by the caller (release with json_object_put), or
// nullptr when the length is not the record's size.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

json_object *SimDecodeRule(const uint8_t *rec, size_t len);
json_object *SimDecodeRatelimit(const uint8_t *rec, size_t len);
json_object *SimDecodeConn(const uint8_t *rec, size_t len);
json_object *SimDecodeLinkIp(const uint8_t *rec, size_t len);
json_object *SimDecodeLink(const uint8_t *rec, size_t len);
json_object *SimDecodeGlobalArg(const uint8_t *rec, size_t len);
json_object *SimDecodeShaper(const uint8_t *rec, size_t len);
json_object *SimDecodeAcsName(const uint8_t *rec, size_t len);
json_object *SimDecodeEngineParam(const uint8_t *rec, size_t len);
