// The agent's checks of an access name's entry requests.
#include "agentsim/sim_acsname.h"

#include "agentconf/acsname_entries.h"
#include "base/errors.h"

#include <cstring>

namespace {

// What the record announces of one list, and how its requests are cut.
struct ListShape {
    uint32_t num;
    uint64_t requests;
    uint32_t max;
    uint32_t perRequest;
    size_t itemSize;
};

ListShape AddrShape(const AgentAcsNameConf &c) {
    return {c.addrNum, c.addrRequests, ACSNAME_ADDR_MAX, ACSNAME_ADDRS_PER_REQUEST,
            sizeof(AgentAcsAddrEntry)};
}

ListShape DomainShape(const AgentAcsNameConf &c) {
    return {c.domainNum, c.domainRequests, ACSNAME_DOMAIN_MAX, ACSNAME_DOMAINS_PER_REQUEST,
            sizeof(AgentAcsDomainEntry)};
}

// Each request carries at least one entry and at most what fits in one.
bool Announceable(const ListShape &s) {
    if (s.num > s.max) {
        return false;
    }
    return s.num == 0
               ? s.requests == 0
               : s.requests >= OV_AcsNameRequestCount(s.num, s.perRequest) && s.requests <= s.num;
}

AgentAcsNameConf ConfOf(const std::vector<uint8_t> &bytes) {
    AgentAcsNameConf c;
    std::memcpy(&c, bytes.data(), sizeof c);
    return c;
}

bool EntryValid(const AgentAcsAddrEntry &e) {
    return (e.ipType == 0 && e.mask <= 32) || (e.ipType == 1 && e.mask <= 128);
}

bool EntryValid(const AgentAcsDomainEntry &e) {
    return std::memchr(e.domain, 0, sizeof e.domain) != nullptr;
}

template <typename Entry>
bool EntriesValid(const uint8_t *at, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        Entry e;
        std::memcpy(&e, at + i * sizeof e, sizeof e);
        if (!EntryValid(e)) {
            return false;
        }
    }
    return true;
}

size_t NameLen(const uint8_t *field) {
    return strnlen(reinterpret_cast<const char *>(field), ACSNAME_NAME_LEN);
}

// Checks one request against the held record and counts it in.
int32_t Take(SimAcsNamePending &p, uint16_t function, std::span<const uint8_t> payload) {
    const AgentAcsNameConf conf = ConfOf(p.whole.bytes);
    const bool addrs = function == ACSNAME_FUNC_ADDR_ENTRIES;
    AgentAcsEntryHead head;
    if ((!addrs && function != ACSNAME_FUNC_DOMAIN_ENTRIES) || payload.size() < sizeof head) {
        return -OV_EINVAL;
    }
    std::memcpy(&head, payload.data(), sizeof head);
    if (head.id != conf.id || std::memcmp(head.name, conf.name, sizeof head.name) != 0) {
        return -OV_EINVAL;
    }
    const ListShape shape = addrs ? AddrShape(conf) : DomainShape(conf);
    uint32_t &done = addrs ? p.addrsDone : p.domainsDone;
    uint32_t &requests = addrs ? p.addrRequests : p.domainRequests;
    // Addresses first, each list in index order without gaps or overlaps.
    if ((!addrs && p.addrsDone != conf.addrNum) || head.first != done || head.count == 0 ||
        head.count > shape.perRequest || head.count > shape.num - done ||
        payload.size() != sizeof head + head.count * shape.itemSize) {
        return -OV_EINVAL;
    }
    // The last entry comes with the last announced request, neither before
    // nor after it.
    const bool lastEntry = done + head.count == shape.num;
    if (lastEntry != (requests + 1 == shape.requests)) {
        return -OV_EINVAL;
    }
    const uint8_t *items = payload.data() + sizeof head;
    if (addrs ? !EntriesValid<AgentAcsAddrEntry>(items, head.count)
              : !EntriesValid<AgentAcsDomainEntry>(items, head.count)) {
        return -OV_EINVAL;
    }
    done += head.count;
    ++requests;
    p.whole.parts.push_back(SimRecord{p.whole.module, function, {payload.begin(), payload.end()}});
    return 0;
}

} // namespace

int32_t SimAcsNameBegin(SimAcsNamePending &p, const SimRecord &rec) {
    p = SimAcsNamePending{};
    if (rec.bytes.size() != sizeof(AgentAcsNameConf)) {
        return -OV_EINVAL;
    }
    const AgentAcsNameConf conf = ConfOf(rec.bytes);
    if (!Announceable(AddrShape(conf)) || !Announceable(DomainShape(conf))) {
        return -OV_EINVAL;
    }
    if (conf.addrNum == 0 && conf.domainNum == 0) {
        return 0;
    }
    p.whole = SimRecord{rec.module, rec.function, rec.bytes};
    return 1;
}

int32_t SimAcsNameEntries(SimAcsNamePending &p, uint16_t function, std::span<const uint8_t> payload,
                          SimRecord *whole) {
    if (!p.Waiting()) {
        return -OV_EINVAL;
    }
    int32_t rc = Take(p, function, payload);
    if (rc != 0) {
        p = SimAcsNamePending{};
        return rc;
    }
    const AgentAcsNameConf conf = ConfOf(p.whole.bytes);
    if (p.addrsDone != conf.addrNum || p.domainsDone != conf.domainNum) {
        return 0;
    }
    *whole = std::move(p.whole);
    p = SimAcsNamePending{};
    return 1;
}

void SimAcsNameDrop(SimAcsNamePending &p, std::span<const uint8_t> name) {
    if (!p.Waiting() || name.size() < ACSNAME_NAME_LEN) {
        return;
    }
    const uint8_t *held = p.whole.bytes.data() + offsetof(AgentAcsNameConf, name);
    size_t len = NameLen(held);
    if (NameLen(name.data()) == len && std::memcmp(held, name.data(), len) == 0) {
        p = SimAcsNamePending{};
    }
}
