// Access-name JSON to record, with its address and domain entry arrays.
#include "agentconf/acsname.h"

#include "agentconf/acsname_entries.h"
#include "agentconf/json_conv.h"
#include "base/errors.h"
#include "base/mem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// The address and domain lists, in the order they are converted, with the
// name each one's failure is reported under ("ipwithidlist" reports as
// iplist, as it always has).
enum class ListKind { SetNames, AddrWithId, AddrPlain, DomainWithId, DomainPlain };

struct ListDef {
    const char *key;
    const char *reportName;
    ListKind kind;
    uint8_t ipType; // for address lists
    bool domain;    // set names: domain sets rather than address sets
};

constexpr ListDef kLists[] = {
    {"ipset", "ipset", ListKind::SetNames, 0, false},
    {"ipwithidlist", "iplist", ListKind::AddrWithId, 0, false},
    {"ipv6withidlist", "ipv6withidlist", ListKind::AddrWithId, 1, false},
    {"iplist", "iplist", ListKind::AddrPlain, 0, false},
    {"ipv6list", "ipv6list", ListKind::AddrPlain, 1, false},
    {"domainset", "domainset", ListKind::SetNames, 0, true},
    {"domainwithidlist", "domainwithidlist", ListKind::DomainWithId, 0, true},
    {"domainlist", "domainlist", ListKind::DomainPlain, 0, true},
};

struct Fill {
    AgentAcsAddrEntry *addrs;
    uint32_t addrUsed;
    AgentAcsDomainEntry *domains;
    uint32_t domainUsed;
};

// Adds the lengths of the named lists; an absent list counts 0. Returns -22
// when a list is not an array or the total passes max.
int32_t CountEntries(json_object *obj, bool domain, uint32_t max, uint32_t *total) {
    uint64_t sum = 0;
    for (const ListDef &list : kLists) {
        if (list.domain != domain || list.kind == ListKind::SetNames) {
            continue;
        }
        json_object *arr = nullptr;
        if (!json_object_object_get_ex(obj, list.key, &arr)) {
            continue;
        }
        if (json_object_get_type(arr) != json_type_array) {
            return -22;
        }
        sum += json_object_array_length(arr);
    }
    if (sum > max) {
        return -22;
    }
    *total = static_cast<uint32_t>(sum);
    return 0;
}

// "a.b.c.d[/len]" or "x::y[/len]" into an address entry.
int32_t ParsePrefix(const char *text, uint8_t ipType, AgentAcsAddrEntry *entry) {
    char buf[OV_IPV6_TEXT_BUF] = {};
    size_t n = std::strlen(text);
    if (n >= sizeof buf) {
        return -132;
    }
    std::memcpy(buf, text, n);
    unsigned maxMask = ipType == 0 ? 32 : 128;
    unsigned mask = maxMask;
    if (char *slash = std::strchr(buf, '/'); slash != nullptr) {
        *slash = '\0';
        char *end = nullptr;
        unsigned long v = std::strtoul(slash + 1, &end, 10);
        if (end == slash + 1 || *end != '\0' || v > maxMask) {
            return -22;
        }
        mask = static_cast<unsigned>(v);
    }
    entry->ipType = ipType;
    entry->mask = static_cast<uint8_t>(mask);
    if (ipType == 0) {
        char v4[OV_IPV4_TEXT_BUF] = {};
        if (std::strlen(buf) >= sizeof v4) {
            return -132;
        }
        std::memcpy(v4, buf, std::strlen(buf));
        uint32_t addr = 0;
        if (OV_IpStrToNum(v4, sizeof v4, &addr) == nullptr) {
            return -22;
        }
        std::memcpy(entry->addr, &addr, sizeof addr);
        return 0;
    }
    return OV_Ipv6StrToConf(buf, sizeof buf, entry->addr) != nullptr ? 0 : -22;
}

int32_t ConvertList(AgentAcsNameConf *conf, const ListDef &list, json_object *arr, Fill *fill) {
    if (json_object_get_type(arr) != json_type_array) {
        return -22;
    }
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n; ++i) {
        json_object *item = json_object_array_get_idx(arr, i);
        if (item == nullptr) {
            return -22;
        }
        switch (list.kind) {
        case ListKind::SetNames: {
            uint8_t &used = list.domain ? conf->domainSetNum : conf->ipSetNum;
            char(*sets)[ACSNAME_NAME_LEN] = list.domain ? conf->domainSets : conf->ipSets;
            const char *text = json_object_get_string(item);
            if (text == nullptr || used >= ACSNAME_SET_MAX) {
                return -22;
            }
            if (std::strlen(text) >= ACSNAME_NAME_LEN) {
                return -132;
            }
            std::memcpy(sets[used], text, std::strlen(text));
            ++used;
            break;
        }
        case ListKind::AddrWithId:
        case ListKind::AddrPlain: {
            if (fill->addrs == nullptr || fill->addrUsed >= conf->addrNum) {
                return -22;
            }
            AgentAcsAddrEntry *entry = &fill->addrs[fill->addrUsed];
            char text[OV_IPV6_TEXT_BUF + 8];
            int32_t rc = 0;
            if (list.kind == ListKind::AddrWithId) {
                rc = _OV_JsonGetInt(item, "id", &entry->id);
                if (rc == 0) {
                    rc = _OV_JsonGetString(item, "ip", text, sizeof text);
                }
            } else {
                const char *s = json_object_get_string(item);
                size_t len = s == nullptr ? 0 : std::strlen(s);
                rc = s == nullptr ? -22 : (len >= sizeof text ? -132 : 0);
                if (rc == 0) {
                    std::memcpy(text, s, len + 1);
                }
            }
            if (rc == 0) {
                rc = ParsePrefix(text, list.ipType, entry);
            }
            if (rc != 0) {
                return rc;
            }
            ++fill->addrUsed;
            break;
        }
        case ListKind::DomainWithId:
        case ListKind::DomainPlain: {
            if (fill->domains == nullptr || fill->domainUsed >= conf->domainNum) {
                return -22;
            }
            AgentAcsDomainEntry *entry = &fill->domains[fill->domainUsed];
            int32_t rc = 0;
            if (list.kind == ListKind::DomainWithId) {
                rc = _OV_JsonGetInt(item, "id", &entry->id);
                if (rc == 0) {
                    rc = _OV_JsonGetString(item, "domain", entry->domain, sizeof entry->domain);
                }
            } else {
                const char *s = json_object_get_string(item);
                rc = s == nullptr ? -22 : (std::strlen(s) >= sizeof entry->domain ? -132 : 0);
                if (rc == 0) {
                    std::memcpy(entry->domain, s, std::strlen(s) + 1);
                }
            }
            if (rc != 0) {
                return rc;
            }
            ++fill->domainUsed;
            break;
        }
        }
    }
    return 0;
}

int32_t ConvertProbe(AgentAcsProbe *probe, json_object *obj) {
    if (json_object_get_type(obj) != json_type_object) {
        return -22;
    }
    int32_t flag = 0;
    if (_OV_JsonGetBool(obj, "Enable", &flag) == 0) {
        probe->enable = static_cast<uint8_t>(flag);
    }
    int32_t rc = 0;
    json_object *val = nullptr;
    if (json_object_object_get_ex(obj, "Protocol", &val) &&
        (rc = _OV_JsonGetU8(obj, "Protocol", &probe->protocol)) != 0) {
        return rc;
    }
    if (json_object_object_get_ex(obj, "Port", &val) &&
        (rc = _OV_JsonGetU16(obj, "Port", &probe->port)) != 0) {
        return rc;
    }
    for (auto [key, field] :
         {std::pair{"Interval", &probe->interval}, std::pair{"Timeout", &probe->timeout},
          std::pair{"Retries", &probe->retries}}) {
        if (json_object_object_get_ex(obj, key, &val) &&
            (rc = _OV_JsonGetInt(obj, key, field)) != 0) {
            return rc;
        }
    }
    if (json_object_object_get_ex(obj, "Ip", &val)) {
        char text[OV_IPV4_TEXT_BUF] = {};
        uint32_t addr = 0;
        if ((rc = _OV_JsonGetString(obj, "Ip", text, sizeof text)) != 0) {
            return rc;
        }
        if (OV_IpStrToNum(text, sizeof text, &addr) == nullptr) {
            return -22;
        }
        probe->ipType = 0;
        std::memcpy(probe->addr, &addr, sizeof addr);
    } else if (json_object_object_get_ex(obj, "Ip6", &val)) {
        char text[OV_IPV6_TEXT_BUF] = {};
        if ((rc = _OV_JsonGetString(obj, "Ip6", text, sizeof text)) != 0) {
            return rc;
        }
        if (OV_Ipv6StrToConf(text, sizeof text, probe->addr) == nullptr) {
            return -22;
        }
        probe->ipType = 1;
    }
    if (json_object_object_get_ex(obj, "Host", &val)) {
        return _OV_JsonGetString(obj, "Host", probe->host, sizeof probe->host);
    }
    return 0;
}

// The converter entry hands one pointer through to the tree converter.
struct ConfAndEntries {
    AgentAcsNameConf *conf;
    AgentAcsNameEntries *entries;
};

int32_t ConvertBoth(ConfAndEntries *both, json_object *obj) {
    return _OV_AgentAcsNameJsonToConf(both->conf, both->entries, obj);
}

} // namespace

int32_t _OV_AgentAcsNameJsonToConf(AgentAcsNameConf *conf, AgentAcsNameEntries *entries,
                                   json_object *obj) {
    int32_t rc = _OV_JsonGetInt(obj, "id", &conf->id);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of AcsId\n");
        return rc;
    }
    json_object *val = nullptr;
    if (json_object_object_get_ex(obj, "ascname", &val)) {
        rc = _OV_JsonGetString(obj, "ascname", conf->name, sizeof conf->name);
        if (rc != 0) {
            OV_CONF_FAIL("Get acsname name failed\n");
            return rc;
        }
    } else {
        std::snprintf(conf->name, sizeof conf->name, "aces%u", conf->id);
    }
    if (!json_object_object_get_ex(obj, "version", &val) || json_object_get_int64(val) < 0) {
        OV_CONF_FAIL("Get acsname version failed\n");
        return -22;
    }
    conf->version = static_cast<uint64_t>(json_object_get_int64(val));
    int32_t flag = 0;
    if (_OV_JsonGetBool(obj, "persistentFlag", &flag) == 0) {
        conf->flags = static_cast<uint8_t>((conf->flags & ~ACSNAME_FLAG_PERSISTENT) |
                                           (flag != 0 ? ACSNAME_FLAG_PERSISTENT : 0));
    }
    if (_OV_JsonGetBool(obj, "hasdomainsetid", &flag) == 0) {
        conf->flags = static_cast<uint8_t>((conf->flags & ~ACSNAME_FLAG_HAS_DOMAINSET) |
                                           (flag != 0 ? ACSNAME_FLAG_HAS_DOMAINSET : 0));
    }

    uint32_t addrNum = 0;
    uint32_t domainNum = 0;
    if (CountEntries(obj, false, ACSNAME_ADDR_MAX, &addrNum) != 0) {
        OV_CONF_FAIL("Get ip entries num failed\n");
        return -22;
    }
    if (CountEntries(obj, true, ACSNAME_DOMAIN_MAX, &domainNum) != 0) {
        OV_CONF_FAIL("Get domain entries num failed\n");
        return -22;
    }
    OV_CONF_LOG(OV_LOG_INFO, "acsname %s: addrNum = %u, domainNum = %u\n", conf->name, addrNum,
                domainNum);

    Fill fill{};
    if (addrNum > 0) {
        fill.addrs = static_cast<AgentAcsAddrEntry *>(
            MemModuleCalloc(g_agentMemModule, sizeof(AgentAcsAddrEntry) * addrNum));
        if (fill.addrs == nullptr) {
            OV_CONF_FAIL("Get ip entries num failed\n");
            return -12;
        }
        entries->addrs = fill.addrs;
        conf->addrNum = addrNum;
        conf->addrRequests = OV_AcsNameRequestCount(addrNum, ACSNAME_ADDRS_PER_REQUEST);
    }
    if (domainNum > 0) {
        fill.domains = static_cast<AgentAcsDomainEntry *>(
            MemModuleCalloc(g_agentMemModule, sizeof(AgentAcsDomainEntry) * domainNum));
        if (fill.domains == nullptr) {
            OV_CONF_FAIL("Get domain entries num failed\n");
            return -12;
        }
        entries->domains = fill.domains;
        conf->domainNum = domainNum;
        conf->domainRequests = OV_AcsNameRequestCount(domainNum, ACSNAME_DOMAINS_PER_REQUEST);
    }

    for (const ListDef &list : kLists) {
        json_object *arr = nullptr;
        if (!json_object_object_get_ex(obj, list.key, &arr)) {
            continue;
        }
        rc = ConvertList(conf, list, arr, &fill);
        if (rc != 0) {
            OV_CONF_FAIL("Json to conf for %s failed(%d:%s)\n", list.reportName, -rc,
                         OV_StrError(-rc));
            return rc;
        }
    }
    if (json_object_object_get_ex(obj, "Probe", &val)) {
        rc = ConvertProbe(&conf->probe, val);
        if (rc != 0) {
            OV_CONF_FAIL("Json to conf for Probe failed(%d:%s)\n", -rc, OV_StrError(-rc));
            return rc;
        }
    }
    return 0;
}

int32_t _OV_AgentAcsNameJsonToConf(AgentAcsNameConf *conf, json_object *obj) {
    AgentAcsNameEntries entries{};
    int32_t rc = _OV_AgentAcsNameJsonToConf(conf, &entries, obj);
    OV_AgentAcsNameEntriesRelease(&entries);
    return rc;
}

int32_t OV_AgentAcsNameJsonStrToConf(AgentAcsNameConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "acsname", conf, text, _OV_AgentAcsNameJsonToConf);
}

int32_t OV_AgentAcsNameJsonStrToConf(AgentAcsNameConf *conf, AgentAcsNameEntries *entries,
                                     const char *text) {
    ConfAndEntries both{conf, entries};
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "acsname", &both, text, ConvertBoth);
}

void OV_AgentAcsNameEntriesRelease(AgentAcsNameEntries *entries) {
    if (entries->addrs != nullptr) {
        AgentMemFree(entries->addrs);
        entries->addrs = nullptr;
    }
    if (entries->domains != nullptr) {
        AgentMemFree(entries->domains);
        entries->domains = nullptr;
    }
}
