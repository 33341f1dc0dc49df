// The access-name record: a named set of addresses and domains, with the
// address and domain sets it refers to and a probe, sent whole (4480 bytes)
// to module 6.
//
// Record layout (little-endian; unnamed bytes zero):
//   0     u32       id                 "id" (required)
//   4     char[64]  name               "ascname", else "aces<id>"
//   68    u8        flags              bit 0 "persistentFlag", bit 1 "hasdomainsetid"
//   69    u8        ipSetNum           entries used in ipSets
//   70    u8        domainSetNum       entries used in domainSets
//   71    u8        reserved
//   72    u64       version            "version"
//   80    u32       addrNum            address entries in the address array
//   84    u32       domainNum          domain entries in the domain array
//   88    u64       addrRequests       address-entry requests that follow
//   96    u64       domainRequests     domain-entry requests that follow
//   104   char[32][64] ipSets          "ipset": address-set names
//   2152  char[32][64] domainSets      "domainset": domain-set names
//   4200  280 bytes probe block        "Probe" (AgentAcsProbe)
//
// The address and domain entries ("ipwithidlist", "ipv6withidlist",
// "iplist", "ipv6list", "domainwithidlist", "domainlist") are not part of the
// 4480 bytes: they follow the record in entry requests of their own
// (agentconf/acsname_entries.h), whose numbers the record gives at 88 and 96.
// Both numbers follow from addrNum and domainNum alone, so the same JSON
// always gives the same bytes.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

constexpr size_t ACSNAME_NAME_LEN = 64;
constexpr size_t ACSNAME_SET_MAX = 32;
constexpr uint32_t ACSNAME_ADDR_MAX = 4096;
constexpr uint32_t ACSNAME_DOMAIN_MAX = 4096;
constexpr size_t ACSNAME_DOMAIN_LEN = 252;
constexpr size_t ACSNAME_PROBE_HOST_LEN = 244;

constexpr uint8_t ACSNAME_FLAG_PERSISTENT = 0x01;    ///< "persistentFlag"
constexpr uint8_t ACSNAME_FLAG_HAS_DOMAINSET = 0x02; ///< "hasdomainsetid"

/// One address entry: an IPv4 or IPv6 prefix, with the id of the "withid" lists.
struct AgentAcsAddrEntry {
    uint32_t id;    ///< "id" of ipwithidlist/ipv6withidlist items; 0 otherwise
    uint8_t ipType; ///< 0 IPv4, 1 IPv6
    uint8_t mask;   ///< prefix length (32 or 128 when the text has none)
    uint8_t reserved[2];
    uint8_t addr[16]; ///< IPv4 as a host-order u32 in the first 4 bytes; IPv6 in network order
};
static_assert(sizeof(AgentAcsAddrEntry) == 24);
static_assert(offsetof(AgentAcsAddrEntry, ipType) == 4);
static_assert(offsetof(AgentAcsAddrEntry, mask) == 5);
static_assert(offsetof(AgentAcsAddrEntry, addr) == 8);

/// One domain entry.
struct AgentAcsDomainEntry {
    uint32_t id;                     ///< "id" of domainwithidlist items; 0 otherwise
    char domain[ACSNAME_DOMAIN_LEN]; ///< NUL-terminated
};
static_assert(sizeof(AgentAcsDomainEntry) == 256);

/// The probe block, from the "Probe" object.
struct AgentAcsProbe {
    uint8_t enable;    ///< "Enable"
    uint8_t protocol;  ///< "Protocol"
    uint16_t port;     ///< "Port"
    uint32_t interval; ///< "Interval"
    uint32_t timeout;  ///< "Timeout"
    uint32_t retries;  ///< "Retries"
    uint8_t ipType;    ///< 0 "Ip" (IPv4), 1 "Ip6"
    uint8_t reserved[3];
    uint8_t addr[16];                  ///< as in AgentAcsAddrEntry
    char host[ACSNAME_PROBE_HOST_LEN]; ///< "Host", NUL-terminated
};
static_assert(sizeof(AgentAcsProbe) == 280);
static_assert(offsetof(AgentAcsProbe, port) == 2);
static_assert(offsetof(AgentAcsProbe, interval) == 4);
static_assert(offsetof(AgentAcsProbe, timeout) == 8);
static_assert(offsetof(AgentAcsProbe, retries) == 12);
static_assert(offsetof(AgentAcsProbe, ipType) == 16);
static_assert(offsetof(AgentAcsProbe, addr) == 20);
static_assert(offsetof(AgentAcsProbe, host) == 36);

struct AgentAcsNameConf {
    uint32_t id;
    char name[ACSNAME_NAME_LEN];
    uint8_t flags;
    uint8_t ipSetNum;
    uint8_t domainSetNum;
    uint8_t reserved1;
    uint64_t version;
    uint32_t addrNum;
    uint32_t domainNum;
    uint64_t addrRequests;   ///< requests (function 2) that carry the addrNum address entries
    uint64_t domainRequests; ///< requests (function 3) that carry the domainNum domain entries
    char ipSets[ACSNAME_SET_MAX][ACSNAME_NAME_LEN];
    char domainSets[ACSNAME_SET_MAX][ACSNAME_NAME_LEN];
    AgentAcsProbe probe;
};
static_assert(sizeof(AgentAcsNameConf) == 4480);
static_assert(offsetof(AgentAcsNameConf, name) == 4);
static_assert(offsetof(AgentAcsNameConf, flags) == 68);
static_assert(offsetof(AgentAcsNameConf, ipSetNum) == 69);
static_assert(offsetof(AgentAcsNameConf, domainSetNum) == 70);
static_assert(offsetof(AgentAcsNameConf, version) == 72);
static_assert(offsetof(AgentAcsNameConf, addrNum) == 80);
static_assert(offsetof(AgentAcsNameConf, domainNum) == 84);
static_assert(offsetof(AgentAcsNameConf, addrRequests) == 88);
static_assert(offsetof(AgentAcsNameConf, domainRequests) == 96);
static_assert(offsetof(AgentAcsNameConf, ipSets) == 104);
static_assert(offsetof(AgentAcsNameConf, domainSets) == 2152);
static_assert(offsetof(AgentAcsNameConf, probe) == 4200);

/// The entry arrays of a converted access name, allocated from the AGENT
/// memory module (nullptr while the count is 0). Whoever passed the struct to
/// the converter owns them and releases them with OV_AgentAcsNameEntriesRelease.
struct AgentAcsNameEntries {
    AgentAcsAddrEntry *addrs;     ///< the record's addrNum entries
    AgentAcsDomainEntry *domains; ///< the record's domainNum entries
};

/// Fills the zeroed record from JSON text. Returns 0 or a negative code. The
/// entries are converted and counted, then released: the record alone.
int32_t OV_AgentAcsNameJsonStrToConf(AgentAcsNameConf *conf, const char *text);
int32_t _OV_AgentAcsNameJsonToConf(AgentAcsNameConf *conf, json_object *obj);

/// As OV_AgentAcsNameJsonStrToConf (same messages and codes), and hands the
/// entry arrays to *entries, which must start zeroed. Whatever the result,
/// the caller releases them with OV_AgentAcsNameEntriesRelease.
int32_t OV_AgentAcsNameJsonStrToConf(AgentAcsNameConf *conf, AgentAcsNameEntries *entries,
                                     const char *text);
int32_t _OV_AgentAcsNameJsonToConf(AgentAcsNameConf *conf, AgentAcsNameEntries *entries,
                                   json_object *obj);

/// Frees both arrays and clears the pointers; a second call does nothing.
void OV_AgentAcsNameEntriesRelease(AgentAcsNameEntries *entries);

/// The access-name record as JSON under its own keys.
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentAcsNameRecordToJson(const uint8_t *rec, size_t len);
