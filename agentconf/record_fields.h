// The field layout of every record kind: each byte of a record named once,
// in offset order, reserved bytes included. Offsets and sizes come from the
// record structs themselves (offsetof, sizeof), so a layout cannot drift from
// the record it describes. Used to show a record field by field.
#pragma once

#include "agentconf/protocol.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// How a field's bytes read.
enum class OV_FieldType : uint8_t {
    Unsigned, ///< a little-endian unsigned number
    Signed,   ///< a little-endian two's complement number
    Flags,    ///< a little-endian bit field, best read in hex
    Text,     ///< a NUL-terminated text in a fixed field
    TextList, ///< fixed fields of elemSize bytes, each a NUL-terminated text
    Array,    ///< little-endian unsigned numbers of elemSize bytes
    Bytes,    ///< anything else: addresses, keys, unions, entry lists, reserved
};

struct OV_RecordField {
    const char *name; ///< the member's path in the record struct
    uint32_t offset;
    uint32_t size;
    OV_FieldType type;
    uint32_t elemSize; ///< Array and TextList: one element's size; else size
};

struct OV_RecordLayout {
    RecordKind kind;
    size_t size; ///< the struct's size, which OV_RecordSpecOf(kind).size names too
    std::span<const OV_RecordField> fields;
};

/// The layout of every record kind, in RecordKind order.
std::span<const OV_RecordLayout> OV_RecordLayouts();

/// The layout of a kind.
const OV_RecordLayout &OV_RecordLayoutOf(RecordKind kind);
