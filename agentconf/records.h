// Every record kind's facts that need code: its size, its converter (JSON ->
// record) and decoder (record -> JSON), the key the agent stores it under and
// its persistent flag. The simulator, pdctl and the tests read them here;
// pdtool does not link this table (it calls its converters directly).
#pragma once

#include "agentconf/protocol.h"

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <span>

/// A JSON -> record converter over a zeroed record of the kind's size.
/// Returns 0 or a negative code.
using OV_RecordConverter = int32_t (*)(void *rec, const char *json);
/// A record -> JSON decoder: a new object owned by the caller, or nullptr when
/// len is not the record's size.
using OV_RecordDecoder = json_object *(*)(const uint8_t *rec, size_t len);

/// One field of a store key, most significant first.
struct OV_KeyField {
    enum class Type : uint8_t {
        Uint,         ///< a little-endian unsigned number of size bytes, masked
        Text,         ///< a NUL-terminated text in a field of size bytes
        FunctionHigh, ///< the request's function >> 8 (the rule table)
    };
    Type type;
    uint16_t offset;
    uint16_t size;
    uint32_t mask;
};

struct OV_RecordSpec {
    RecordKind kind;
    const char *name; ///< as the journal and pdctl name the kind
    uint32_t size;
    OV_RecordConverter convert; ///< nullptr: the handler fills the record itself
    /// Frees what a successful or failed conversion left referenced; nullptr
    /// when nothing is (no kind now: an access name's entries come only from
    /// the converter form that hands them over, see acsname.h).
    void (*release)(void *rec);
    OV_RecordDecoder decode;
    OV_KeyField key[4];
    uint8_t keyFields;
    /// The persistent flag: bits of mask in the little-endian field of
    /// flagSize bytes at flagOffset; mask 0: the kind is never kept.
    uint16_t flagOffset;
    uint8_t flagSize;
    uint16_t flagMask;
};

/// The facts of a kind.
const OV_RecordSpec &OV_RecordSpecOf(RecordKind kind);

/// The command that sends a request, by module and function; the engine rows
/// share one function and are told apart by the record's parameter code
/// (nullptr when the payload does not hold one); entry requests give the set
/// command that sends them. nullptr for requests no command sends.
const CommandSpec *OV_CommandOfRequest(uint8_t module, uint16_t function,
                                       std::span<const uint8_t> payload);

/// The payload size a request of this command carries.
uint32_t OV_RequestSize(const CommandSpec &cmd);

/// Whether a record's persistent flag is set (rec must be the kind's size).
bool OV_RecordIsPersistent(RecordKind kind, std::span<const uint8_t> rec);

/// The request's record (or entries) decoded to JSON (a new object owned by
/// the caller), or nullptr when the request carries none or has the wrong size.
json_object *OV_AgentRequestToJson(uint8_t module, uint16_t function,
                                   std::span<const uint8_t> payload);
