// The access-name record (4480 bytes) back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/acsname.h"
#include "agentconf/json_out.h"

#include <algorithm>
#include <cstring>

namespace {

using ovrec::AddBool;
using ovrec::AddInt;

json_object *DecodeSetNames(const char (*sets)[ACSNAME_NAME_LEN], uint8_t used) {
    json_object *arr = json_object_new_array();
    // The count comes off the wire: never walk past the 32 slots.
    size_t n = std::min<size_t>(used, ACSNAME_SET_MAX);
    for (size_t i = 0; i < n; ++i) {
        size_t len = strnlen(sets[i], ACSNAME_NAME_LEN);
        json_object_array_add(arr, json_object_new_string_len(sets[i], static_cast<int>(len)));
    }
    return arr;
}

json_object *DecodeProbe(const AgentAcsProbe &p) {
    json_object *obj = json_object_new_object();
    AddBool(obj, "Enable", p.enable != 0);
    AddInt(obj, "Protocol", p.protocol);
    AddInt(obj, "Port", p.port);
    // Read through the signed 32-bit getter, so shown signed (see decode_link.cpp).
    AddInt(obj, "Interval", static_cast<int32_t>(p.interval));
    AddInt(obj, "Timeout", static_cast<int32_t>(p.timeout));
    AddInt(obj, "Retries", static_cast<int32_t>(p.retries));
    if (p.ipType == 0) {
        uint32_t addr = 0;
        std::memcpy(&addr, p.addr, sizeof addr);
        ovrec::AddString(obj, "Ip", ovrec::Ipv4Text(addr));
    } else if (p.ipType == 1) {
        ovrec::AddString(obj, "Ip6", ovrec::Ipv6Text(p.addr));
    }
    ovrec::AddFixedText(obj, "Host", reinterpret_cast<const uint8_t *>(p.host), sizeof p.host);
    return obj;
}

} // namespace

json_object *OV_AgentAcsNameRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentAcsNameConf)) {
        return nullptr;
    }
    AgentAcsNameConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    AddInt(obj, "id", static_cast<int32_t>(c.id));
    ovrec::AddFixedText(obj, "ascname", reinterpret_cast<const uint8_t *>(c.name), sizeof c.name);
    AddInt(obj, "version", static_cast<int64_t>(c.version));
    AddBool(obj, "persistentFlag", (c.flags & ACSNAME_FLAG_PERSISTENT) != 0);
    AddBool(obj, "hasdomainsetid", (c.flags & ACSNAME_FLAG_HAS_DOMAINSET) != 0);
    // The entries follow in requests of their own (decoded there).
    AddInt(obj, "addrNum", c.addrNum);
    AddInt(obj, "domainNum", c.domainNum);
    AddInt(obj, "addrRequests", static_cast<int64_t>(c.addrRequests));
    AddInt(obj, "domainRequests", static_cast<int64_t>(c.domainRequests));
    json_object_object_add(obj, "ipset", DecodeSetNames(c.ipSets, c.ipSetNum));
    json_object_object_add(obj, "domainset", DecodeSetNames(c.domainSets, c.domainSetNum));
    json_object_object_add(obj, "Probe", DecodeProbe(c.probe));
    return obj;
}
