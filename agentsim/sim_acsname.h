// The agent's side of an access name's entry requests: a set record whose
// addrNum or domainNum is not zero is held back until its entry requests
// (module 6, functions 2 and 3) have all arrived, each checked against it;
// then record and entries are stored together. Until then, and after any
// refusal, the access name stored under that name stays as it was.
#pragma once

#include "agentsim/sim_store.h"

#include <cstdint>
#include <span>
#include <vector>

/// The access name whose entries are on the way (one at a time: the last
/// accepted set).
struct SimAcsNamePending {
    SimRecord whole;           ///< the set record, its parts the entry requests so far
    uint32_t addrsDone = 0;    ///< address entries received
    uint32_t domainsDone = 0;  ///< domain entries received
    uint32_t addrRequests = 0; ///< address requests received
    uint32_t domainRequests = 0;

    bool Waiting() const { return !whole.bytes.empty(); }
};

/// Looks at an access-name set record (4480 bytes) before it is stored; any
/// access name still waiting is dropped. Returns -22 when its counts at 80..104
/// describe no series of entry requests, 0 when no entries follow (store it
/// now), 1 when they do (it is held in p).
int32_t SimAcsNameBegin(SimAcsNamePending &p, const SimRecord &rec);

/// Takes an entry request. Returns -22 when it is not the next request of the
/// access name held in p (p is then dropped), 0 when more are to come, 1 when
/// it was the last: *whole then receives the record with every entry
/// request as its parts, and p is empty again.
int32_t SimAcsNameEntries(SimAcsNamePending &p, uint16_t function, std::span<const uint8_t> payload,
                          SimRecord *whole);

/// Drops the access name held in p when it has this 64-byte name field (a
/// delete of it).
void SimAcsNameDrop(SimAcsNamePending &p, std::span<const uint8_t> name);
