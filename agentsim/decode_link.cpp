// Decoders of the link-IP and link records for the simulator's journal and tests.
#include "agentconf/link.h"
#include "agentsim/decode.h"
#include "agentsim/decode_util.h"

#include <cstring>

// The 32-bit keys go through the signed 32-bit getter, so they are shown
// signed: a stored 0xFFFFFFFF came from -1 and only -1 converts back to it.

json_object *SimDecodeLinkIp(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentLinkIpConf)) {
        return nullptr;
    }
    AgentLinkIpConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    sim::AddInt(obj, "Type", c.type);
    sim::AddInt(obj, "VpnId", static_cast<int32_t>(c.vpnId));
    sim::AddInt(obj, "SiteIpId", c.siteIpId);
    sim::AddBool(obj, "PersistentFlag", (c.flags & LINKIP_FLAG_PERSISTENT) != 0);
    sim::AddInt(obj, "CustomerId", static_cast<int32_t>(c.customerId));
    sim::AddInt(obj, "SiteId", static_cast<int32_t>(c.siteId));
    // The presence bits say which addresses the record carries.
    if ((c.flags & LINKIP_FLAG_HAS_IPV4) != 0) {
        sim::AddString(obj, "IpAddr", sim::Ipv4Text(c.ipAddr));
    }
    if ((c.flags & LINKIP_FLAG_HAS_IPV6) != 0) {
        sim::AddString(obj, "Ip6Addr", sim::Ipv6Text(c.ip6Addr));
    }
    return obj;
}

json_object *SimDecodeLink(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentLinkConf)) {
        return nullptr;
    }
    AgentLinkConf c;
    std::memcpy(&c, rec, sizeof c);
    json_object *obj = json_object_new_object();
    sim::AddInt(obj, "NetId", static_cast<int32_t>(c.netId));
    sim::AddInt(obj, "LinkId", c.linkIdWord & LINK_ID_MASK);
    sim::AddBool(obj, "Role", (c.flags & LINK_FLAG_ROLE) != 0);
    sim::AddBool(obj, "Simu", (c.flags & LINK_FLAG_SIMU) != 0);
    sim::AddInt(obj, "Type", (c.flags & LINK_TYPE_MASK) >> LINK_TYPE_SHIFT);
    sim::AddBool(obj, "PersistentFlag", (c.flags & LINK_FLAG_PERSISTENT) != 0);
    sim::AddBool(obj, "Ipv6Flag", (c.flags & LINK_FLAG_IPV6) != 0);
    sim::AddBool(obj, "Leased", (c.flags & LINK_FLAG_LEASED) != 0);
    sim::AddInt(obj, "Mode", static_cast<int32_t>(c.mode));
    sim::AddInt(obj, "Thresh", c.thresh);
    sim::AddInt(obj, "ProtoVersion", c.protoVersion);
    sim::AddInt(obj, "WanId", c.wanId);
    sim::AddInt(obj, "LocalVpnId", static_cast<int32_t>(c.localVpnId));
    sim::AddInt(obj, "PeerSiteIpId", c.peerSiteIpId);
    sim::AddInt(obj, "PeerVpnId", static_cast<int32_t>(c.peerVpnId));
    sim::AddInt(obj, "LocalSitePort", c.localSitePort);
    sim::AddInt(obj, "PeerSitePort", c.peerSitePort);
    sim::AddInt(obj, "PeerSiteId", static_cast<int32_t>(c.peerSiteId));
    sim::AddInt(obj, "PeerCustomerId", static_cast<int32_t>(c.peerCustomerId));
    sim::AddInt(obj, "KeepaliveInterval", c.keepaliveInterval);
    sim::AddInt(obj, "KeepaliveTimeout", c.keepaliveTimeout);
    return obj;
}
