// The link-IP and link records back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/json_out.h"
#include "agentconf/link.h"

#include <cstring>

// The 32-bit keys go through the signed 32-bit getter, so they are shown
// signed: a stored 0xFFFFFFFF came from -1 and only -1 converts back to it.

json_object *OV_AgentLinkIpRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentLinkIpConf)) {
        return nullptr;
    }
    AgentLinkIpConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "Type", c.type);
    ovrec::AddInt(obj, "VpnId", static_cast<int32_t>(c.vpnId));
    ovrec::AddInt(obj, "SiteIpId", c.siteIpId);
    ovrec::AddBool(obj, "PersistentFlag", (c.flags & LINKIP_FLAG_PERSISTENT) != 0);
    ovrec::AddInt(obj, "CustomerId", static_cast<int32_t>(c.customerId));
    ovrec::AddInt(obj, "SiteId", static_cast<int32_t>(c.siteId));
    // The presence bits say which addresses the record carries.
    if ((c.flags & LINKIP_FLAG_HAS_IPV4) != 0) {
        ovrec::AddString(obj, "IpAddr", ovrec::Ipv4Text(c.ipAddr));
    }
    if ((c.flags & LINKIP_FLAG_HAS_IPV6) != 0) {
        ovrec::AddString(obj, "Ip6Addr", ovrec::Ipv6Text(c.ip6Addr));
    }
    return obj;
}

json_object *OV_AgentLinkRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentLinkConf)) {
        return nullptr;
    }
    AgentLinkConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "NetId", static_cast<int32_t>(c.netId));
    ovrec::AddInt(obj, "LinkId", c.linkIdWord & LINK_ID_MASK);
    ovrec::AddBool(obj, "Role", (c.flags & LINK_FLAG_ROLE) != 0);
    ovrec::AddBool(obj, "Simu", (c.flags & LINK_FLAG_SIMU) != 0);
    ovrec::AddInt(obj, "Type", (c.flags & LINK_TYPE_MASK) >> LINK_TYPE_SHIFT);
    ovrec::AddBool(obj, "PersistentFlag", (c.flags & LINK_FLAG_PERSISTENT) != 0);
    ovrec::AddBool(obj, "Ipv6Flag", (c.flags & LINK_FLAG_IPV6) != 0);
    ovrec::AddBool(obj, "Leased", (c.flags & LINK_FLAG_LEASED) != 0);
    ovrec::AddInt(obj, "Mode", static_cast<int32_t>(c.mode));
    ovrec::AddInt(obj, "Thresh", c.thresh);
    ovrec::AddInt(obj, "ProtoVersion", c.protoVersion);
    ovrec::AddInt(obj, "WanId", c.wanId);
    ovrec::AddInt(obj, "LocalVpnId", static_cast<int32_t>(c.localVpnId));
    ovrec::AddInt(obj, "PeerSiteIpId", c.peerSiteIpId);
    ovrec::AddInt(obj, "PeerVpnId", static_cast<int32_t>(c.peerVpnId));
    ovrec::AddInt(obj, "LocalSitePort", c.localSitePort);
    ovrec::AddInt(obj, "PeerSitePort", c.peerSitePort);
    ovrec::AddInt(obj, "PeerSiteId", static_cast<int32_t>(c.peerSiteId));
    ovrec::AddInt(obj, "PeerCustomerId", static_cast<int32_t>(c.peerCustomerId));
    ovrec::AddInt(obj, "KeepaliveInterval", c.keepaliveInterval);
    ovrec::AddInt(obj, "KeepaliveTimeout", c.keepaliveTimeout);
    return obj;
}
