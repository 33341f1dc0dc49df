// The connection (tunnel) record back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/conn.h"
#include "agentconf/json_out.h"

#include <algorithm>
#include <climits>
#include <string>

namespace {

using ovrec::AddBool;
using ovrec::AddInt;
using ovrec::AddString;
using ovrec::Load;

constexpr size_t kRecLen = sizeof(AgentConnConf);
/// Key bytes a key text can carry: its work buffer holds 128 characters.
constexpr size_t kKeyTextBytes = 64;

/// The converter reads 32-bit fields as signed integers: the signed view
/// converts back to the same bits.
int64_t Signed32(uint32_t v) {
    return static_cast<int32_t>(v);
}

/// The 32-bit getter refuses its two extremes; such a value can only have
/// come from an array's run-on and is left to it.
bool GetterTakes(uint32_t v) {
    auto s = static_cast<int32_t>(v);
    return s != INT32_MIN && s != INT32_MAX;
}

/// Which bytes the keys read after an array write again when the decoded
/// JSON is converted, and which bits a key read before the arrays already
/// explains. Any other byte past the six slots of "Path" can only have come
/// from an array running on past its slots (the converter's quirk), so the
/// arrays are lengthened to carry it.
struct Rewritten {
    bool byte[kRecLen] = {};
    uint8_t earlierBits[kRecLen] = {};
    void Mark(size_t offset, size_t n) {
        for (size_t i = offset; i < offset + n && i < kRecLen; ++i) {
            byte[i] = true;
        }
    }
};

/// The array item at an index: the record's word without the bytes that
/// later keys write anyway (so it stays a non-negative 32-bit value).
uint32_t ItemAt(const uint8_t *rec, const Rewritten &later, size_t offset, size_t i,
                bool withoutEarlierBits = false) {
    size_t at = offset + 4 * i;
    uint32_t word = 0;
    for (size_t b = 0; b < 4; ++b) {
        uint8_t v = later.byte[at + b] ? 0 : rec[at + b];
        if (withoutEarlierBits) {
            v &= static_cast<uint8_t>(~later.earlierBits[at + b]);
        }
        word |= static_cast<uint32_t>(v) << (8 * b);
    }
    return word;
}

/// An id array: its slots up to the last non-zero item, lengthened up to the
/// last word that only this array's run-on can have written. Marks the bytes
/// it will write. Returns a new array owned by the caller.
json_object *IdArray(const uint8_t *rec, Rewritten *later, size_t offset) {
    size_t capacity = (kRecLen - offset) / 4;
    size_t n = 0;
    for (size_t i = 0; i < capacity; ++i) {
        if (ItemAt(rec, *later, offset, i, true) != 0) {
            n = i + 1;
        }
    }
    json_object *arr = json_object_new_array();
    for (size_t i = 0; i < n; ++i) {
        json_object_array_add(arr, json_object_new_int64(ItemAt(rec, *later, offset, i)));
    }
    later->Mark(offset, 4 * n);
    return arr;
}

/// Length of the NUL-terminated text in a fixed field, or size without one.
size_t FieldTextLen(const uint8_t *field, size_t size) {
    size_t n = 0;
    while (n < size && field[n] != 0) {
        ++n;
    }
    return n;
}

} // namespace

json_object *OV_AgentConnRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != kRecLen) {
        return nullptr;
    }
    // What the keys after the arrays write, decided before the arrays.
    Rewritten later;
    later.Mark(offsetof(AgentConnConf, linkNum), 6);
    // ClearDFFlag is read before "Path": a run-on overwrites its whole byte,
    // so the flag explains bit 0 only while "Path" stops short of it.
    later.earlierBits[offsetof(AgentConnConf, dfFlags)] = OV_CONN_DF_CLEAR;
    later.Mark(offsetof(AgentConnConf, cryptoSuite), 4);
    later.Mark(offsetof(AgentConnConf, encryptAlgo), 4);
    later.Mark(offsetof(AgentConnConf, cipherKeyLen), 2); // and hmacKeyLen

    const uint8_t *peerUid = rec + offsetof(AgentConnConf, peerUid);
    size_t peerUidLen = FieldTextLen(peerUid, OV_CONN_PEER_UID_LEN);
    // A field without a NUL cannot come from the key: run-on bytes only.
    bool hasPeerUid = peerUidLen < OV_CONN_PEER_UID_LEN;
    if (hasPeerUid) {
        later.Mark(offsetof(AgentConnConf, peerUid), peerUidLen + 1);
    }
    uint8_t cipherKeyLen = rec[offsetof(AgentConnConf, cipherKeyLen)];
    uint8_t hmacKeyLen = rec[offsetof(AgentConnConf, hmacKeyLen)];
    size_t cipherBytes = std::min({size_t{cipherKeyLen}, kKeyTextBytes, OV_CONN_CIPHER_KEY_LEN});
    size_t hmacBytes = std::min({size_t{hmacKeyLen}, kKeyTextBytes, OV_CONN_HMAC_KEY_LEN});
    later.Mark(offsetof(AgentConnConf, cipherKey), cipherBytes);
    later.Mark(offsetof(AgentConnConf, hmacKey), hmacBytes);

    auto u32At = [rec](size_t offset) { return Load<uint32_t>(rec, offset); };
    const size_t sla = offsetof(AgentConnConf, slaCfg);
    const size_t outBwLowAt = sla + offsetof(AgentConnSlaCfg, connOutBWLow);
    const size_t outBwHighAt = sla + offsetof(AgentConnSlaCfg, connOutBWHigh);
    uint32_t keyTimestamp = u32At(offsetof(AgentConnConf, keyTimestamp));
    uint32_t outBwLow = u32At(outBwLowAt);
    uint32_t outBwHigh = u32At(outBwHighAt);
    uint32_t buddy = u32At(offsetof(AgentConnConf, buddyConnId));
    uint32_t minTx = u32At(offsetof(AgentConnConf, minTxKBps));
    if (GetterTakes(keyTimestamp)) {
        later.Mark(offsetof(AgentConnConf, keyTimestamp), 4);
    }
    later.Mark(offsetof(AgentConnConf, initRtt), 4); // and cfgMtu
    later.Mark(sla, 4);                              // the SRTT pair
    if (GetterTakes(outBwLow)) {
        later.Mark(outBwLowAt, 4);
    }
    if (GetterTakes(outBwHigh)) {
        later.Mark(outBwHighAt, 4);
    }
    later.Mark(sla + offsetof(AgentConnSlaCfg, connJitterLow), 8); // jitter and loss pairs
    later.Mark(offsetof(AgentConnConf, timeStamp), 8);
    if (GetterTakes(buddy)) {
        later.Mark(offsetof(AgentConnConf, buddyConnId), 4);
    }
    if (GetterTakes(minTx)) {
        later.Mark(offsetof(AgentConnConf, minTxKBps), 4);
    }

    // The arrays are converted Path, inbound, outbound: decide them in the
    // reverse order, so each knows what the later ones write.
    json_object *outbound = IdArray(rec, &later, offsetof(AgentConnConf, ratelimitOutbound));
    json_object *inbound = IdArray(rec, &later, offsetof(AgentConnConf, ratelimitInbound));
    json_object *path = IdArray(rec, &later, offsetof(AgentConnConf, path));

    json_object *out = json_object_new_object();
    uint32_t word = u32At(offsetof(AgentConnConf, labelVniNetId));
    AddInt(out, "VpnId", Signed32(u32At(offsetof(AgentConnConf, vpnId))));
    AddInt(out, "Label", (word >> OV_CONN_LABEL_SHIFT) & OV_CONN_LABEL_MASK);
    AddInt(out, "Vni", (word >> OV_CONN_VNI_SHIFT) & OV_CONN_VNI_MASK);
    AddInt(out, "NetId", (word >> OV_CONN_NETID_SHIFT) & OV_CONN_NETID_MASK);
    AddInt(out, "Mode", Signed32(u32At(offsetof(AgentConnConf, mode))));
    AddInt(out, "WanId", Signed32(u32At(offsetof(AgentConnConf, wanId))));
    AddInt(out, "LanId", Signed32(u32At(offsetof(AgentConnConf, lanId))));
    AddString(out, "LocalIp", ovrec::Ipv4Text(u32At(offsetof(AgentConnConf, localIp))));
    AddString(out, "PeerIp", ovrec::Ipv4Text(u32At(offsetof(AgentConnConf, peerIp))));
    AddString(out, "LocalIp6", ovrec::Ipv6Text(rec + offsetof(AgentConnConf, localIp6)));
    AddString(out, "PeerIp6", ovrec::Ipv6Text(rec + offsetof(AgentConnConf, peerIp6)));
    AddInt(out, "CustomerId", Signed32(u32At(offsetof(AgentConnConf, customerId))));
    AddInt(out, "PeerHostId", Signed32(u32At(offsetof(AgentConnConf, peerHostId))));
    AddInt(out, "PortSeed", rec[offsetof(AgentConnConf, portSeed)]);
    AddInt(out, "ProtoVersion", rec[offsetof(AgentConnConf, protoVersion)]);

    auto flags = Load<uint16_t>(rec, offsetof(AgentConnConf, flags));
    static constexpr struct {
        const char *key;
        uint16_t bit;
    } kFlags[] = {
        {"C2PFlag", OV_CONN_FLAG_C2P},
        {"PassiveFlag", OV_CONN_FLAG_PASSIVE},
        {"MasterFlag", OV_CONN_FLAG_MASTER},
        {"PersistentFlag", OV_CONN_FLAG_PERSISTENT},
        {"SimUserFlowFlag", OV_CONN_FLAG_SIM_USER_FLOW},
        {"IsIpv6LttFlag", OV_CONN_FLAG_IPV6_LTT},
        {"MaxTxModeFlag", OV_CONN_FLAG_MAX_TX_MODE},
        {"L2OnlyEncapIpHdrFlag", OV_CONN_FLAG_L2_ONLY_ENCAP_IP_HDR},
        {"MinUsage", OV_CONN_FLAG_MIN_USAGE},
        {"BackupFlag", OV_CONN_FLAG_BACKUP},
        {"LttDelEopResetFlag", OV_CONN_FLAG_LTT_DEL_EOP_RESET},
    };
    for (const auto &f : kFlags) {
        AddBool(out, f.key, (flags & f.bit) != 0);
    }
    AddBool(out, "ClearDFFlag", (rec[offsetof(AgentConnConf, dfFlags)] & OV_CONN_DF_CLEAR) != 0);
    AddInt(out, "SessionId", Signed32(u32At(offsetof(AgentConnConf, sessionId))));
    json_object_object_add(out, "Path", path);

    AddInt(out, "LinkNum", rec[offsetof(AgentConnConf, linkNum)]);
    AddInt(out, "KeepaliveInterval", rec[offsetof(AgentConnConf, keepaliveInterval)]);
    AddInt(out, "KeepaliveTimeout", rec[offsetof(AgentConnConf, keepaliveTimeout)]);
    AddInt(out, "TcpTunNum", rec[offsetof(AgentConnConf, tcpTunNum)]);
    AddInt(out, "UdpTunNum", rec[offsetof(AgentConnConf, udpTunNum)]);
    AddInt(out, "Tos", rec[offsetof(AgentConnConf, tos)]);
    // Both are given explicitly, so neither the NetId carry-over into
    // EncryptAlgo nor the CryptoSuite default comes into play.
    AddInt(out, "CryptoSuite", Signed32(u32At(offsetof(AgentConnConf, cryptoSuite))));
    AddInt(out, "EncryptAlgo", Signed32(u32At(offsetof(AgentConnConf, encryptAlgo))));
    AddInt(out, "CipherKeyLen", cipherKeyLen);
    AddInt(out, "HmacKeyLen", hmacKeyLen);
    if (hasPeerUid) {
        AddString(out, "PeerUid", std::string(reinterpret_cast<const char *>(peerUid), peerUidLen));
    }
    // Full-length key texts: no pair then picks up a previous text's tail.
    AddString(out, "CipherKey",
              ovrec::HexText(rec + offsetof(AgentConnConf, cipherKey), cipherBytes));
    AddString(out, "HmacKey", ovrec::HexText(rec + offsetof(AgentConnConf, hmacKey), hmacBytes));
    if (GetterTakes(keyTimestamp)) {
        AddInt(out, "KeyTimestamp", Signed32(keyTimestamp));
    }
    AddInt(out, "InitRtt", Load<uint16_t>(rec, offsetof(AgentConnConf, initRtt)));
    AddInt(out, "CfgMtu", Load<uint16_t>(rec, offsetof(AgentConnConf, cfgMtu)));

    json_object *slaObj = json_object_new_object();
    AddInt(slaObj, "ConnSRttLow",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connSRttLow)));
    AddInt(slaObj, "ConnSRttHigh",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connSRttHigh)));
    if (GetterTakes(outBwLow)) {
        AddInt(slaObj, "ConnOutBWLow", Signed32(outBwLow));
    }
    if (GetterTakes(outBwHigh)) {
        AddInt(slaObj, "ConnOutBWHigh", Signed32(outBwHigh));
    }
    AddInt(slaObj, "ConnJitterLow",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connJitterLow)));
    AddInt(slaObj, "ConnJitterHigh",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connJitterHigh)));
    AddInt(slaObj, "ConnLossRateLow",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connLossRateLow)));
    AddInt(slaObj, "ConnLossRateHigh",
           Load<uint16_t>(rec, sla + offsetof(AgentConnSlaCfg, connLossRateHigh)));
    json_object_object_add(out, "SlaCfg", slaObj);

    AddInt(out, "TimeStamp", Load<int64_t>(rec, offsetof(AgentConnConf, timeStamp)));
    json_object_object_add(out, "RatelimitInbound", inbound);
    json_object_object_add(out, "RatelimitOutbound", outbound);
    if (GetterTakes(buddy)) {
        AddInt(out, "BuddyConnId", Signed32(buddy));
    }
    if (GetterTakes(minTx)) {
        AddInt(out, "MinTxKBps", Signed32(minTx));
    }
    return out;
}
