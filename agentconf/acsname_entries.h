// The entry requests of an access name: how its address and domain entries
// follow its record to the agent, and how such a request reads back as JSON.
//
// Once the agent has accepted the 4480-byte record (module 6, function 0),
// the address entries follow in requests of function 2, then the domain
// entries in requests of function 3. Each request names its access name and
// carries whole entries only:
//
// Request layout (little-endian; unnamed bytes zero):
//   0     u32       id        the access name's id, as in its record
//   4     char[64]  name      the record's 64 name bytes, unchanged
//   68    u32       first     index of the request's first entry in its list
//   72    u32       count     entries in this request, at least 1
//   76    4 bytes   reserved
//   80    count AgentAcsAddrEntry (24 bytes each; function 2) or
//         AgentAcsDomainEntry (256 bytes each; function 3)
//
// A request with its 16-byte IMC header never passes 64 KiB, so it holds at
// most 2726 addresses or 255 domains. A list goes in as few requests as that
// allows, in index order, every one full but the last: 4096 addresses take 2,
// 4096 domains 17. The record's u64 at 88 is the number of address requests
// and the u64 at 96 the number of domain requests (0 for an empty list); an
// access name without entries is the record alone.
#pragma once

#include "agentconf/acsname.h"
#include "agentconf/protocol.h"
#include "imc/flexmsg.h"

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

constexpr uint16_t ACSNAME_FUNC_ADDR_ENTRIES = kEntryRequests[0].function;
constexpr uint16_t ACSNAME_FUNC_DOMAIN_ENTRIES = kEntryRequests[1].function;
static_assert(kEntryRequests[0].kind == RecordKind::AcsName &&
              kEntryRequests[1].kind == RecordKind::AcsName);

struct AgentAcsEntryHead {
    uint32_t id;
    char name[ACSNAME_NAME_LEN];
    uint32_t first;
    uint32_t count;
    uint8_t reserved[4];
};
static_assert(sizeof(AgentAcsEntryHead) == 80);
static_assert(offsetof(AgentAcsEntryHead, name) == 4);
static_assert(offsetof(AgentAcsEntryHead, first) == 68);
static_assert(offsetof(AgentAcsEntryHead, count) == 72);

/// The largest entry request, IMC header included, and its payload.
constexpr size_t ACSNAME_REQUEST_MAX = 65536;
constexpr size_t ACSNAME_PAYLOAD_MAX = ACSNAME_REQUEST_MAX - IMC_HEADER_LEN;

constexpr uint32_t ACSNAME_ADDRS_PER_REQUEST =
    (ACSNAME_PAYLOAD_MAX - sizeof(AgentAcsEntryHead)) / sizeof(AgentAcsAddrEntry);
constexpr uint32_t ACSNAME_DOMAINS_PER_REQUEST =
    (ACSNAME_PAYLOAD_MAX - sizeof(AgentAcsEntryHead)) / sizeof(AgentAcsDomainEntry);
static_assert(ACSNAME_ADDRS_PER_REQUEST == 2726);
static_assert(ACSNAME_DOMAINS_PER_REQUEST == 255);

/// The number of requests that carry n entries, perRequest at a time.
constexpr uint32_t OV_AcsNameRequestCount(uint32_t n, uint32_t perRequest) {
    return n / perRequest + (n % perRequest != 0 ? 1 : 0);
}

/// Takes one entry request: its function and payload (valid during the call
/// only). A negative result stops the series and is passed on.
using OV_AcsEntrySendFunc = int32_t (*)(uint16_t function, const void *payload, uint32_t len,
                                        void *ctx);

/// Builds the entry requests of a converted access name (conf and the
/// entries the converter handed over) in the order they go, and hands each to
/// send. Returns 0 when send took them all (at once when there are none), the
/// first negative result of send (nothing more is built), -22 when a count
/// exceeds 4096, an array is missing or the numbers at 88 and 96 are not the
/// ones the counts take, or -12 when no buffer could be had.
int32_t OV_AgentAcsNameSendEntries(const AgentAcsNameConf *conf, const AgentAcsNameEntries *entries,
                                   OV_AcsEntrySendFunc send, void *ctx);

/// An entry request as JSON: {"id", "ascname", "first", "count"} and
/// "addresses" ([{"id": N, "ip": "prefix/len"}], an address of another family
/// than 0 or 1 as {"id": N, "ipType": T}) or "domains" ([{"id": N, "domain":
/// "text"}]). Returns a new object owned by the caller, or nullptr when len is
/// not the head and exactly its count of whole entries.
json_object *OV_AgentAcsAddrRequestToJson(const uint8_t *req, size_t len);
json_object *OV_AgentAcsDomainRequestToJson(const uint8_t *req, size_t len);
