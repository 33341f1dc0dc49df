// Link-IP and link JSON to their 36- and 44-byte records.
#include "agentconf/link.h"

#include "agentconf/json_conv.h"

namespace {

/// An optional flag: when present its bit is cleared, then set to the value.
void ApplyOptionalFlag(json_object *obj, const char *key, uint8_t mask, uint8_t *flags) {
    int32_t on = 0;
    if (_OV_JsonGetBool(obj, key, &on) == 0) {
        *flags = static_cast<uint8_t>((*flags & ~mask) | (on ? mask : 0));
    }
}

/// A port: read through the 32-bit getter and cut to 16 bits (70000 gives
/// 4464); missing or refused leaves the field zero without a message.
void ReadTruncatedPort(json_object *obj, const char *key, uint16_t *out) {
    uint32_t v = 0;
    if (_OV_JsonGetInt(obj, key, &v) == 0) {
        *out = static_cast<uint16_t>(v);
    }
}

} // namespace

int32_t _OV_AgentLinkIpJsonToConf(AgentLinkIpConf *conf, json_object *obj) {
    int32_t rc = _OV_JsonGetU8(obj, "Type", &conf->type);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of Type\n");
        return rc;
    }
    (void)_OV_JsonGetInt(obj, "VpnId", &conf->vpnId); // optional, silent
    rc = _OV_JsonGetU8(obj, "SiteIpId", &conf->siteIpId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of SiteIpId\n");
        return rc;
    }
    ApplyOptionalFlag(obj, "PersistentFlag", LINKIP_FLAG_PERSISTENT, &conf->flags);
    // The one "Lack of" that is reported but does not end the conversion.
    if (_OV_JsonGetInt(obj, "CustomerId", &conf->customerId) != 0) {
        OV_CONF_FAIL("Lack of CustomerId\n");
    }
    rc = _OV_JsonGetInt(obj, "SiteId", &conf->siteId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of SiteId\n");
        return rc;
    }

    // Address texts too long for their buffers are skipped like missing keys.
    char ip[OV_IPV4_TEXT_BUF];
    if (_OV_JsonGetString(obj, "IpAddr", ip, sizeof ip) == 0) {
        if (OV_IpStrToNum(ip, sizeof ip, &conf->ipAddr) == nullptr) {
            OV_CONF_FAIL("Get ip addr from string failed\n");
            return -22;
        }
        conf->flags |= LINKIP_FLAG_HAS_IPV4;
    }
    char ip6[OV_IPV6_TEXT_BUF];
    if (_OV_JsonGetString(obj, "Ip6Addr", ip6, sizeof ip6) == 0) {
        if (OV_Ipv6StrToConf(ip6, sizeof ip6, conf->ip6Addr) == nullptr) {
            OV_CONF_FAIL("Get ipv6 addr from string failed\n");
            return -22;
        }
        conf->flags |= LINKIP_FLAG_HAS_IPV6;
    }
    return 0;
}

int32_t OV_AgentLinkIpJsonStrToConf(AgentLinkIpConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "link ip", conf, text, _OV_AgentLinkIpJsonToConf);
}

int32_t _OV_AgentLinkJsonToConf(AgentLinkConf *conf, json_object *obj) {
    int32_t rc = _OV_JsonGetInt(obj, "NetId", &conf->netId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of NetId\n");
        return rc;
    }
    uint32_t linkId = 0;
    rc = _OV_JsonGetInt(obj, "LinkId", &linkId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of LinkId\n");
        return rc;
    }
    conf->linkIdWord = (conf->linkIdWord & ~LINK_ID_MASK) | (linkId & LINK_ID_MASK);

    ApplyOptionalFlag(obj, "Role", LINK_FLAG_ROLE, &conf->flags);
    ApplyOptionalFlag(obj, "Simu", LINK_FLAG_SIMU, &conf->flags);
    // A Type the 8-bit getter refuses is treated as absent: only NetId and
    // LinkId may fail a link.
    uint8_t type = 0;
    if (_OV_JsonGetU8(obj, "Type", &type) == 0) {
        conf->flags = static_cast<uint8_t>((conf->flags & ~LINK_TYPE_MASK) |
                                           ((type << LINK_TYPE_SHIFT) & LINK_TYPE_MASK));
    }
    ApplyOptionalFlag(obj, "PersistentFlag", LINK_FLAG_PERSISTENT, &conf->flags);
    ApplyOptionalFlag(obj, "Ipv6Flag", LINK_FLAG_IPV6, &conf->flags);
    ApplyOptionalFlag(obj, "Leased", LINK_FLAG_LEASED, &conf->flags);

    if (_OV_JsonGetInt(obj, "Mode", &conf->mode) != 0) {
        OV_CONF_NOTICE("Link conf not set Mode!\n");
    }
    if (_OV_JsonGetU8(obj, "Thresh", &conf->thresh) != 0) {
        OV_CONF_NOTICE("Link conf not set Thresh!\n");
    }
    if (_OV_JsonGetU8(obj, "ProtoVersion", &conf->protoVersion) != 0) {
        OV_CONF_NOTICE("Link conf not set ProtoVersion!\n");
    }
    if (_OV_JsonGetU8(obj, "WanId", &conf->wanId) != 0) {
        OV_CONF_NOTICE("Link conf not set WanId!\n");
    }
    (void)_OV_JsonGetInt(obj, "LocalVpnId", &conf->localVpnId); // optional, silent
    if (_OV_JsonGetU8(obj, "PeerSiteIpId", &conf->peerSiteIpId) != 0) {
        OV_CONF_NOTICE("Link conf not set PeerSiteIpId!\n");
    }
    (void)_OV_JsonGetInt(obj, "PeerVpnId", &conf->peerVpnId); // optional, silent
    ReadTruncatedPort(obj, "LocalSitePort", &conf->localSitePort);
    ReadTruncatedPort(obj, "PeerSitePort", &conf->peerSitePort);
    if (_OV_JsonGetInt(obj, "PeerSiteId", &conf->peerSiteId) != 0) {
        OV_CONF_NOTICE("Link conf not set PeerSiteId!\n");
    }
    if (_OV_JsonGetInt(obj, "PeerCustomerId", &conf->peerCustomerId) != 0) {
        OV_CONF_NOTICE("Link conf not set PeerCustomerId!\n");
    }
    if (_OV_JsonGetU8(obj, "KeepaliveInterval", &conf->keepaliveInterval) != 0) {
        OV_CONF_NOTICE("Link conf not set KeepaliveInterval!\n");
    }
    if (_OV_JsonGetU8(obj, "KeepaliveTimeout", &conf->keepaliveTimeout) != 0) {
        OV_CONF_NOTICE("Link conf not set KeepaliveTimeout!\n");
    }
    return 0;
}

int32_t OV_AgentLinkJsonStrToConf(AgentLinkConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "link", conf, text, _OV_AgentLinkJsonToConf);
}
