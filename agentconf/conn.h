// The connection (tunnel) record sent with set_tunnel, and its JSON converters.
#pragma once

#include <json-c/json.h>

#include <bit>
#include <cstddef>
#include <cstdint>

static_assert(std::endian::native == std::endian::little,
              "records are sent in host order, which must be little-endian");

/// One endpoint address: IPv4 in bytes 0-3 as a host-order u32 (first dotted
/// field most significant), IPv6 as 16 bytes in network order.
struct AgentIpSlot {
    uint8_t addr[16];
    uint8_t family; ///< OV_CONN_FAMILY_IPV4 or OV_CONN_FAMILY_IPV6
    uint8_t reserved[3];
};
static_assert(sizeof(AgentIpSlot) == 20);
static_assert(offsetof(AgentIpSlot, addr) == 0);
static_assert(offsetof(AgentIpSlot, family) == 16);
static_assert(offsetof(AgentIpSlot, reserved) == 17);

constexpr uint8_t OV_CONN_FAMILY_IPV4 = 0;
constexpr uint8_t OV_CONN_FAMILY_IPV6 = 1;

/// Low and high SLA thresholds of a connection.
struct AgentConnSlaCfg {
    uint16_t connSRttLow;
    uint16_t connSRttHigh;
    uint32_t connOutBWLow;
    uint32_t connOutBWHigh;
    uint16_t connJitterLow;
    uint16_t connJitterHigh;
    uint16_t connLossRateLow;
    uint16_t connLossRateHigh;
};
static_assert(sizeof(AgentConnSlaCfg) == 20);
static_assert(offsetof(AgentConnSlaCfg, connSRttLow) == 0);
static_assert(offsetof(AgentConnSlaCfg, connSRttHigh) == 2);
static_assert(offsetof(AgentConnSlaCfg, connOutBWLow) == 4);
static_assert(offsetof(AgentConnSlaCfg, connOutBWHigh) == 8);
static_assert(offsetof(AgentConnSlaCfg, connJitterLow) == 12);
static_assert(offsetof(AgentConnSlaCfg, connJitterHigh) == 14);
static_assert(offsetof(AgentConnSlaCfg, connLossRateLow) == 16);
static_assert(offsetof(AgentConnSlaCfg, connLossRateHigh) == 18);

constexpr size_t OV_CONN_ID_SLOTS = 6;
constexpr size_t OV_CONN_PEER_UID_LEN = 32;
constexpr size_t OV_CONN_CIPHER_KEY_LEN = 64;
constexpr size_t OV_CONN_HMAC_KEY_LEN = 258;

// The agent's layout puts the 64-bit time stamp at 548, a 4-byte boundary.
#pragma pack(push, 4)
/// The 616-byte connection record. Reserved bytes stay zero.
struct AgentConnConf {
    uint32_t vpnId;
    uint32_t labelVniNetId; ///< OV_CONN_LABEL_* / _VNI_* / _NETID_* masks and shifts
    uint32_t mode;
    uint32_t wanId;
    uint32_t lanId;
    AgentIpSlot localIp;
    AgentIpSlot peerIp;
    AgentIpSlot localIp6;
    AgentIpSlot peerIp6;
    uint32_t customerId;
    uint32_t peerHostId;
    uint8_t portSeed;
    uint8_t protoVersion;
    uint16_t flags; ///< OV_CONN_FLAG_* bits
    uint32_t sessionId;
    uint32_t path[OV_CONN_ID_SLOTS];
    uint8_t linkNum;
    uint8_t keepaliveInterval;
    uint8_t keepaliveTimeout;
    uint8_t tcpTunNum;
    uint8_t udpTunNum;
    uint8_t tos;
    uint8_t dfFlags; ///< OV_CONN_DF_CLEAR; bits 1-7 reserved
    uint8_t reserved147;
    uint32_t cryptoSuite;
    uint32_t encryptAlgo;
    uint8_t cipherKeyLen;
    uint8_t hmacKeyLen;
    uint8_t reserved158[4];
    char peerUid[OV_CONN_PEER_UID_LEN];
    uint8_t cipherKey[OV_CONN_CIPHER_KEY_LEN];
    uint8_t hmacKey[OV_CONN_HMAC_KEY_LEN];
    uint32_t keyTimestamp;
    uint8_t reserved520[2];
    uint16_t initRtt;
    uint16_t cfgMtu;
    uint8_t reserved526[2];
    AgentConnSlaCfg slaCfg;
    int64_t timeStamp;
    uint32_t ratelimitInbound[OV_CONN_ID_SLOTS];
    uint32_t ratelimitOutbound[OV_CONN_ID_SLOTS];
    uint32_t buddyConnId;
    uint32_t minTxKBps;
    uint8_t reserved612[4];
};
#pragma pack(pop)
static_assert(sizeof(AgentConnConf) == 616);
static_assert(offsetof(AgentConnConf, vpnId) == 0);
static_assert(offsetof(AgentConnConf, labelVniNetId) == 4);
static_assert(offsetof(AgentConnConf, mode) == 8);
static_assert(offsetof(AgentConnConf, wanId) == 12);
static_assert(offsetof(AgentConnConf, lanId) == 16);
static_assert(offsetof(AgentConnConf, localIp) == 20);
static_assert(offsetof(AgentConnConf, peerIp) == 40);
static_assert(offsetof(AgentConnConf, localIp6) == 60);
static_assert(offsetof(AgentConnConf, peerIp6) == 80);
static_assert(offsetof(AgentConnConf, customerId) == 100);
static_assert(offsetof(AgentConnConf, peerHostId) == 104);
static_assert(offsetof(AgentConnConf, portSeed) == 108);
static_assert(offsetof(AgentConnConf, protoVersion) == 109);
static_assert(offsetof(AgentConnConf, flags) == 110);
static_assert(offsetof(AgentConnConf, sessionId) == 112);
static_assert(offsetof(AgentConnConf, path) == 116);
static_assert(offsetof(AgentConnConf, linkNum) == 140);
static_assert(offsetof(AgentConnConf, keepaliveInterval) == 141);
static_assert(offsetof(AgentConnConf, keepaliveTimeout) == 142);
static_assert(offsetof(AgentConnConf, tcpTunNum) == 143);
static_assert(offsetof(AgentConnConf, udpTunNum) == 144);
static_assert(offsetof(AgentConnConf, tos) == 145);
static_assert(offsetof(AgentConnConf, dfFlags) == 146);
static_assert(offsetof(AgentConnConf, reserved147) == 147);
static_assert(offsetof(AgentConnConf, cryptoSuite) == 148);
static_assert(offsetof(AgentConnConf, encryptAlgo) == 152);
static_assert(offsetof(AgentConnConf, cipherKeyLen) == 156);
static_assert(offsetof(AgentConnConf, hmacKeyLen) == 157);
static_assert(offsetof(AgentConnConf, reserved158) == 158);
static_assert(offsetof(AgentConnConf, peerUid) == 162);
static_assert(offsetof(AgentConnConf, cipherKey) == 194);
static_assert(offsetof(AgentConnConf, hmacKey) == 258);
static_assert(offsetof(AgentConnConf, keyTimestamp) == 516);
static_assert(offsetof(AgentConnConf, reserved520) == 520);
static_assert(offsetof(AgentConnConf, initRtt) == 522);
static_assert(offsetof(AgentConnConf, cfgMtu) == 524);
static_assert(offsetof(AgentConnConf, reserved526) == 526);
static_assert(offsetof(AgentConnConf, slaCfg) == 528);
static_assert(offsetof(AgentConnConf, timeStamp) == 548);
static_assert(offsetof(AgentConnConf, ratelimitInbound) == 556);
static_assert(offsetof(AgentConnConf, ratelimitOutbound) == 580);
static_assert(offsetof(AgentConnConf, buddyConnId) == 604);
static_assert(offsetof(AgentConnConf, minTxKBps) == 608);
static_assert(offsetof(AgentConnConf, reserved612) == 612);

// The word at offset 4: bits 0-20 Label, 21-23 Vni, 24-31 NetId.
constexpr uint32_t OV_CONN_LABEL_SHIFT = 0;
constexpr uint32_t OV_CONN_LABEL_MASK = 0x1FFFFF;
constexpr uint32_t OV_CONN_VNI_SHIFT = 21;
constexpr uint32_t OV_CONN_VNI_MASK = 0x7;
constexpr uint32_t OV_CONN_NETID_SHIFT = 24;
constexpr uint32_t OV_CONN_NETID_MASK = 0xFF;

// The flag word at offset 110; bits 7 and 12-15 are reserved.
constexpr uint16_t OV_CONN_FLAG_C2P = 1u << 0;
constexpr uint16_t OV_CONN_FLAG_PASSIVE = 1u << 1;
constexpr uint16_t OV_CONN_FLAG_MASTER = 1u << 2;
constexpr uint16_t OV_CONN_FLAG_PERSISTENT = 1u << 3;
constexpr uint16_t OV_CONN_FLAG_SIM_USER_FLOW = 1u << 4;
constexpr uint16_t OV_CONN_FLAG_IPV6_LTT = 1u << 5;
constexpr uint16_t OV_CONN_FLAG_MAX_TX_MODE = 1u << 6;
constexpr uint16_t OV_CONN_FLAG_L2_ONLY_ENCAP_IP_HDR = 1u << 8;
constexpr uint16_t OV_CONN_FLAG_MIN_USAGE = 1u << 9;
constexpr uint16_t OV_CONN_FLAG_BACKUP = 1u << 10;
constexpr uint16_t OV_CONN_FLAG_LTT_DEL_EOP_RESET = 1u << 11;

/// Bit 0 of the byte at offset 146.
constexpr uint8_t OV_CONN_DF_CLEAR = 0x01;

/// Fills the zero-filled record conf from a JSON text (borrowed; the caller
/// keeps it). Parses and releases the tree itself. Returns 0, or -22 (not
/// JSON, a required key absent, a bad address, array or item), or the
/// getter's -132 for Label, Vni or NetId. On failure conf is partly filled
/// and must not be sent.
int32_t OV_AgentConnJsonStrToConf(AgentConnConf *conf, const char *text);
/// The base fields, then the SLA block when the object has "SlaCfg". obj is
/// borrowed. Returns 0 or the first failure's code.
int32_t _OV_AgentConnJsonToConf(AgentConnConf *conf, json_object *obj);
/// Every field except the SLA block, in the fixed key order. obj is borrowed.
/// Returns 0 or the first fatal failure's code; fields already written stay.
int32_t _OV_AgentConnBaseJsonToConf(AgentConnConf *conf, json_object *obj);
/// The SLA thresholds from the "SlaCfg" object; absent keys stay zero. Never
/// fails (returns 0).
int32_t _OV_AgentConnSlaCfgJsonToConf(AgentConnSlaCfg *sla, json_object *obj);

/// The tunnel record as JSON under its own keys (keys as hex).
/// Returns a new JSON object owned by the caller, or nullptr when len is not
/// the record's size. Converting that JSON again gives the same bytes.
json_object *OV_AgentConnRecordToJson(const uint8_t *rec, size_t len);
