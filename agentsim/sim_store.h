// The simulator's configuration store: every record kind the agent keeps, as
// the bytes that arrived, keyed the way the agent keys that kind. Not
// thread-safe: the server guards it with one mutex.
#pragma once

#include "agentconf/protocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A stored record and the set request that stored it.
struct SimRecord {
    uint8_t module = 0;
    uint16_t function = 0;
    std::vector<uint8_t> bytes;
    /// Further requests that belong to the record (an access name's entry
    /// requests), in the order they arrived.
    std::vector<SimRecord> parts;
};

/// Keys are byte strings whose order is the order of the key fields (numbers
/// are written big-endian), so a table walks in id order.
using SimKey = std::string;
using SimTable = std::map<SimKey, SimRecord>;

class SimStore {
  public:
    /// Stores rec under key, replacing what was there.
    void Put(RecordKind kind, const SimKey &key, SimRecord rec) {
        Mutable(kind)[key] = std::move(rec);
    }
    /// The record under key, or nullptr. Valid until the next change.
    const SimRecord *Find(RecordKind kind, const SimKey &key) const;
    /// Removes the record under key; false when there was none.
    bool Erase(RecordKind kind, const SimKey &key) { return Mutable(kind).erase(key) != 0; }
    const SimTable &Table(RecordKind kind) const { return tables_[static_cast<size_t>(kind)]; }
    void Clear();

  private:
    SimTable &Mutable(RecordKind kind) { return tables_[static_cast<size_t>(kind)]; }

    std::array<SimTable, RECORD_KIND_COUNT> tables_;
};

/// Builds a key from fields, most significant first.
class SimKeyBuilder {
  public:
    SimKeyBuilder &U8(uint8_t v) { return Put(v, 1); }
    SimKeyBuilder &U16(uint16_t v) { return Put(v, 2); }
    SimKeyBuilder &U32(uint32_t v) { return Put(v, 4); }
    /// A text field up to its first NUL, never past size bytes.
    SimKeyBuilder &Text(const uint8_t *field, size_t size);
    SimKey Take() { return std::move(key_); }

  private:
    SimKeyBuilder &Put(uint64_t v, int bytes);

    SimKey key_;
};
