// The entry requests of an access name: building them from the converted
// entries, and reading one back as JSON (the agent's journal, pdctl explain).
#include "agentconf/acsname_entries.h"

#include "base/mem.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

struct EntryList {
    uint16_t function;
    const void *items;
    uint32_t num;
    size_t itemSize;
    uint32_t max;
    uint32_t perRequest;
    uint64_t requests; ///< what the record announces
};

int32_t SendList(const AgentAcsNameConf *conf, const EntryList &list, uint8_t *buf,
                 OV_AcsEntrySendFunc send, void *ctx) {
    const auto *items = static_cast<const uint8_t *>(list.items);
    for (uint32_t first = 0; first < list.num; first += list.perRequest) {
        AgentAcsEntryHead head{};
        head.id = conf->id;
        std::memcpy(head.name, conf->name, sizeof head.name);
        head.first = first;
        head.count = std::min(list.perRequest, list.num - first);
        size_t bytes = head.count * list.itemSize;
        std::memcpy(buf, &head, sizeof head);
        std::memcpy(buf + sizeof head, items + first * list.itemSize, bytes);
        int32_t rc = send(list.function, buf, static_cast<uint32_t>(sizeof head + bytes), ctx);
        if (rc < 0) {
            return rc;
        }
    }
    return 0;
}

bool ReadHead(const uint8_t *req, size_t len, size_t itemSize, AgentAcsEntryHead *head) {
    if (req == nullptr || len < sizeof *head) {
        return false;
    }
    std::memcpy(head, req, sizeof *head);
    size_t body = len - sizeof *head;
    return body % itemSize == 0 && body / itemSize == head->count;
}

json_object *HeadJson(const AgentAcsEntryHead &head) {
    json_object *obj = json_object_new_object();
    // Signed, as the converter reads ids: the decoded form converts back.
    json_object_object_add(obj, "id", json_object_new_int(static_cast<int32_t>(head.id)));
    json_object_object_add(obj, "ascname",
                           json_object_new_string_len(
                               head.name, static_cast<int>(strnlen(head.name, sizeof head.name))));
    json_object_object_add(obj, "first", json_object_new_int64(head.first));
    json_object_object_add(obj, "count", json_object_new_int64(head.count));
    return obj;
}

// RFC 5952 text: lower-case groups, the longest run of two or more zero
// groups (the first of equals) as "::".
void Ipv6Text(const uint8_t *bytes16, char *out, size_t size) {
    uint16_t groups[8];
    for (int i = 0; i < 8; ++i) {
        groups[i] = static_cast<uint16_t>((bytes16[2 * i] << 8) | bytes16[2 * i + 1]);
    }
    int bestStart = -1;
    int bestLen = 1;
    for (int i = 0; i < 8;) {
        int j = i;
        while (j < 8 && groups[j] == 0) {
            ++j;
        }
        if (j - i > bestLen) {
            bestStart = i;
            bestLen = j - i;
        }
        i = j == i ? i + 1 : j;
    }
    size_t at = 0;
    for (int i = 0; i < 8 && at < size; ++i) {
        if (i == bestStart) {
            at += static_cast<size_t>(std::snprintf(out + at, size - at, "::"));
            i += bestLen - 1;
            continue;
        }
        const char *sep = at == 0 || out[at - 1] == ':' ? "" : ":";
        at += static_cast<size_t>(std::snprintf(out + at, size - at, "%s%x", sep, groups[i]));
    }
}

json_object *AddrJson(const AgentAcsAddrEntry &e) {
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, "id", json_object_new_int(static_cast<int32_t>(e.id)));
    char text[64];
    if (e.ipType == 0) {
        uint32_t v4 = 0;
        std::memcpy(&v4, e.addr, sizeof v4);
        std::snprintf(text, sizeof text, "%u.%u.%u.%u/%u", (v4 >> 24) & 0xFF, (v4 >> 16) & 0xFF,
                      (v4 >> 8) & 0xFF, v4 & 0xFF, e.mask);
    } else if (e.ipType == 1) {
        Ipv6Text(e.addr, text, sizeof text);
        size_t at = std::strlen(text);
        std::snprintf(text + at, sizeof text - at, "/%u", e.mask);
    } else {
        json_object_object_add(obj, "ipType", json_object_new_int(e.ipType));
        return obj;
    }
    json_object_object_add(obj, "ip", json_object_new_string(text));
    return obj;
}

json_object *DomainJson(const AgentAcsDomainEntry &e) {
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, "id", json_object_new_int(static_cast<int32_t>(e.id)));
    json_object_object_add(
        obj, "domain",
        json_object_new_string_len(e.domain, static_cast<int>(strnlen(e.domain, sizeof e.domain))));
    return obj;
}

template <typename Entry>
json_object *RequestJson(const uint8_t *req, size_t len, const char *key,
                         json_object *(*entryJson)(const Entry &)) {
    AgentAcsEntryHead head;
    if (!ReadHead(req, len, sizeof(Entry), &head)) {
        return nullptr;
    }
    json_object *obj = HeadJson(head);
    json_object *arr = json_object_new_array();
    for (uint32_t i = 0; i < head.count; ++i) {
        Entry e;
        std::memcpy(&e, req + sizeof head + i * sizeof e, sizeof e);
        json_object_array_add(arr, entryJson(e));
    }
    json_object_object_add(obj, key, arr);
    return obj;
}

} // namespace

int32_t OV_AgentAcsNameSendEntries(const AgentAcsNameConf *conf, const AgentAcsNameEntries *entries,
                                   OV_AcsEntrySendFunc send, void *ctx) {
    const EntryList lists[] = {
        {ACSNAME_FUNC_ADDR_ENTRIES, entries->addrs, conf->addrNum, sizeof(AgentAcsAddrEntry),
         ACSNAME_ADDR_MAX, ACSNAME_ADDRS_PER_REQUEST, conf->addrRequests},
        {ACSNAME_FUNC_DOMAIN_ENTRIES, entries->domains, conf->domainNum,
         sizeof(AgentAcsDomainEntry), ACSNAME_DOMAIN_MAX, ACSNAME_DOMAINS_PER_REQUEST,
         conf->domainRequests},
    };
    size_t bufLen = 0;
    for (const EntryList &list : lists) {
        // The agent holds the record to its announced numbers: never send
        // a series it would refuse halfway.
        if (list.num > list.max || (list.num != 0 && list.items == nullptr) ||
            list.requests != OV_AcsNameRequestCount(list.num, list.perRequest)) {
            return -22;
        }
        bufLen = std::max(bufLen, std::min(list.num, list.perRequest) * list.itemSize);
    }
    if (bufLen == 0) {
        return 0;
    }
    auto *buf = static_cast<uint8_t *>(
        MemModuleMalloc(g_agentMemModule, sizeof(AgentAcsEntryHead) + bufLen, 0));
    if (buf == nullptr) {
        return -12;
    }
    int32_t rc = 0;
    for (const EntryList &list : lists) {
        if ((rc = SendList(conf, list, buf, send, ctx)) < 0) {
            break;
        }
    }
    AgentMemFree(buf);
    return rc < 0 ? rc : 0;
}

json_object *OV_AgentAcsAddrRequestToJson(const uint8_t *req, size_t len) {
    return RequestJson<AgentAcsAddrEntry>(req, len, "addresses", AddrJson);
}

json_object *OV_AgentAcsDomainRequestToJson(const uint8_t *req, size_t len) {
    return RequestJson<AgentAcsDomainEntry>(req, len, "domains", DomainJson);
}
