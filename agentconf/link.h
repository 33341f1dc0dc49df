// The underlay records: the 36-byte link-IP record (one public address of a
// site) and the 44-byte link record (a path from a local WAN to a peer's link
// IP), with their JSON converter pairs.
#pragma once

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>

/// The link-IP record, little-endian, sent whole to module 3.
struct AgentLinkIpConf {
    uint8_t type;        ///< "Type": 1 CPE side, 2 POP side; required
    uint8_t siteIpId;    ///< "SiteIpId"; required
    uint8_t flags;       ///< LINKIP_FLAG_* bits
    uint8_t reserved;    ///< zero
    uint32_t customerId; ///< "CustomerId"
    uint32_t siteId;     ///< "SiteId"; required
    uint32_t vpnId;      ///< "VpnId"
    uint32_t ipAddr;     ///< "IpAddr", host order, first dotted field most significant
    uint8_t ip6Addr[16]; ///< "Ip6Addr", network order
};
static_assert(sizeof(AgentLinkIpConf) == 36);
static_assert(offsetof(AgentLinkIpConf, type) == 0);
static_assert(offsetof(AgentLinkIpConf, siteIpId) == 1);
static_assert(offsetof(AgentLinkIpConf, flags) == 2);
static_assert(offsetof(AgentLinkIpConf, reserved) == 3);
static_assert(offsetof(AgentLinkIpConf, customerId) == 4);
static_assert(offsetof(AgentLinkIpConf, siteId) == 8);
static_assert(offsetof(AgentLinkIpConf, vpnId) == 12);
static_assert(offsetof(AgentLinkIpConf, ipAddr) == 16);
static_assert(offsetof(AgentLinkIpConf, ip6Addr) == 20);

// Bits of AgentLinkIpConf::flags; bits 3-7 are reserved.
constexpr uint8_t LINKIP_FLAG_PERSISTENT = 0x01; ///< "PersistentFlag"
constexpr uint8_t LINKIP_FLAG_HAS_IPV4 = 0x02;   ///< ipAddr was given
constexpr uint8_t LINKIP_FLAG_HAS_IPV6 = 0x04;   ///< ip6Addr was given

/// The link record, little-endian, sent whole to module 3.
struct AgentLinkConf {
    uint32_t netId;            ///< "NetId"; required
    uint32_t linkIdWord;       ///< "LinkId" in LINK_ID_MASK; the top byte is reserved
    uint8_t flags;             ///< LINK_FLAG_* bits and the 2-bit type
    uint8_t reserved1[3];      ///< zero
    uint32_t mode;             ///< "Mode"
    uint8_t thresh;            ///< "Thresh"
    uint8_t protoVersion;      ///< "ProtoVersion"
    uint8_t wanId;             ///< "WanId": the local WAN interface
    uint8_t peerSiteIpId;      ///< "PeerSiteIpId": the peer's link-IP id
    uint32_t localVpnId;       ///< "LocalVpnId"
    uint32_t peerVpnId;        ///< "PeerVpnId"
    uint16_t localSitePort;    ///< "LocalSitePort"
    uint16_t peerSitePort;     ///< "PeerSitePort"
    uint32_t peerSiteId;       ///< "PeerSiteId"
    uint32_t peerCustomerId;   ///< "PeerCustomerId"
    uint8_t keepaliveInterval; ///< "KeepaliveInterval"
    uint8_t keepaliveTimeout;  ///< "KeepaliveTimeout"
    uint8_t reserved2[2];      ///< zero
};
static_assert(sizeof(AgentLinkConf) == 44);
static_assert(offsetof(AgentLinkConf, netId) == 0);
static_assert(offsetof(AgentLinkConf, linkIdWord) == 4);
static_assert(offsetof(AgentLinkConf, flags) == 8);
static_assert(offsetof(AgentLinkConf, reserved1) == 9);
static_assert(offsetof(AgentLinkConf, mode) == 12);
static_assert(offsetof(AgentLinkConf, thresh) == 16);
static_assert(offsetof(AgentLinkConf, protoVersion) == 17);
static_assert(offsetof(AgentLinkConf, wanId) == 18);
static_assert(offsetof(AgentLinkConf, peerSiteIpId) == 19);
static_assert(offsetof(AgentLinkConf, localVpnId) == 20);
static_assert(offsetof(AgentLinkConf, peerVpnId) == 24);
static_assert(offsetof(AgentLinkConf, localSitePort) == 28);
static_assert(offsetof(AgentLinkConf, peerSitePort) == 30);
static_assert(offsetof(AgentLinkConf, peerSiteId) == 32);
static_assert(offsetof(AgentLinkConf, peerCustomerId) == 36);
static_assert(offsetof(AgentLinkConf, keepaliveInterval) == 40);
static_assert(offsetof(AgentLinkConf, keepaliveTimeout) == 41);
static_assert(offsetof(AgentLinkConf, reserved2) == 42);

constexpr uint32_t LINK_ID_MASK = 0x00FFFFFF;

// Bits of AgentLinkConf::flags; bit 7 is reserved.
constexpr uint8_t LINK_FLAG_ROLE = 0x01;
constexpr uint8_t LINK_FLAG_SIMU = 0x02;
constexpr uint8_t LINK_TYPE_SHIFT = 2;
constexpr uint8_t LINK_TYPE_MASK = 0x0C; ///< the 2-bit "Type"
constexpr uint8_t LINK_FLAG_PERSISTENT = 0x10;
constexpr uint8_t LINK_FLAG_IPV6 = 0x20;
constexpr uint8_t LINK_FLAG_LEASED = 0x40;

/// Fills the caller's zero-filled record from a JSON text; the text stays the
/// caller's, the parsed tree is released here. Returns 0, or a negative code
/// (-22 not JSON, a required key missing or an address text that does not
/// parse; -132 a required key out of range); the record must then not be sent.
int32_t OV_AgentLinkIpJsonStrToConf(AgentLinkIpConf *conf, const char *text);
/// Reads the keys of a parsed object (borrowed) into the record; results as above.
int32_t _OV_AgentLinkIpJsonToConf(AgentLinkIpConf *conf, json_object *obj);

/// As OV_AgentLinkIpJsonStrToConf, for the link record; only "NetId" and
/// "LinkId" can make it fail.
int32_t OV_AgentLinkJsonStrToConf(AgentLinkConf *conf, const char *text);
/// Reads the keys of a parsed object (borrowed) into the record; results as above.
int32_t _OV_AgentLinkJsonToConf(AgentLinkConf *conf, json_object *obj);

/// The link-IP record as JSON under its own keys.
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentLinkIpRecordToJson(const uint8_t *rec, size_t len);

/// The link record as JSON under its own keys.
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentLinkRecordToJson(const uint8_t *rec, size_t len);
