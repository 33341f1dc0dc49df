// Connection (tunnel) JSON to the 616-byte connection record.
#include "agentconf/conn.h"

#include "agentconf/json_conv.h"

#include <cstring>

namespace {

/// The work buffer of the key texts: at most 128 characters.
constexpr size_t kKeyTextBuf = 129;

void MergeBits(uint32_t *word, uint32_t value, uint32_t mask, uint32_t shift) {
    *word = (*word & ~(mask << shift)) | ((value & mask) << shift);
}

template <typename Word>
void ReadFlag(json_object *obj, const char *key, Word *word, Word bit) {
    int32_t on = 0;
    if (_OV_JsonGetBool(obj, key, &on) == 0) {
        *word = static_cast<Word>((*word & ~bit) | (on != 0 ? bit : 0));
    }
}

// Expected keys: a missing or refused value is a notice and leaves the field.
void ExpectInt(OV_ConfSite site, json_object *obj, const char *key, uint32_t *field) {
    if (_OV_JsonGetInt(obj, key, field) != 0) {
        OV_ConfNotice(site, "Connection conf not set %s!\n", key);
    }
}

void ExpectU8(OV_ConfSite site, json_object *obj, const char *key, uint8_t *field) {
    if (_OV_JsonGetU8(obj, key, field) != 0) {
        OV_ConfNotice(site, "Connection conf not set %s!\n", key);
    }
}

/// The 32-bit getter cut to 16 bits, stored only when the key reads.
void ReadIntLow16(json_object *obj, const char *key, uint16_t *field) {
    int32_t v = 0;
    if (_OV_JsonGetInt(obj, key, &v) == 0) {
        *field = static_cast<uint16_t>(v);
    }
}

// Address keys are optional: a text too long for its buffer is skipped like a
// missing key; only a text that does not parse fails.
int32_t ReadIpv6(OV_ConfSite site, json_object *obj, const char *key, AgentIpSlot *slot) {
    char text[OV_IPV6_TEXT_BUF] = {};
    if (_OV_JsonGetString(obj, key, text, sizeof text) != 0) {
        return 0;
    }
    if (OV_Ipv6StrToConf(text, sizeof text, slot->addr) == nullptr) {
        OV_ConfFail(site, "Get ipv6 addr from string failed\n");
        return -22;
    }
    return 0;
}

int32_t ReadIpv4(OV_ConfSite site, json_object *obj, const char *key, AgentIpSlot *slot) {
    char text[OV_IPV4_TEXT_BUF] = {};
    if (_OV_JsonGetString(obj, key, text, sizeof text) != 0) {
        return 0;
    }
    uint32_t addr = 0;
    if (OV_IpStrToNum(text, sizeof text, &addr) == nullptr) {
        OV_ConfFail(site, "Get ip addr from string failed\n");
        return -22;
    }
    std::memcpy(slot->addr, &addr, sizeof addr);
    return 0;
}

/// An optional array of non-negative ids stored as u32 from `offset` on.
/// Items past the six slots run on into the fields that follow (later keys
/// overwrite them); kept on purpose. Only the end of the record stops them.
int32_t ReadIdArray(OV_ConfSite site, AgentConnConf *conf, json_object *obj, const char *key,
                    size_t offset, const char *itemName) {
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(obj, key, &arr)) {
        return 0;
    }
    if (json_object_get_type(arr) != json_type_array) {
        OV_ConfFail(site, "Invalid format, %s is not array!\n", key);
        return -22;
    }
    size_t n = json_object_array_length(arr);
    auto *rec = reinterpret_cast<uint8_t *>(conf);
    for (size_t i = 0; i < n; ++i) {
        size_t at = offset + i * sizeof(uint32_t);
        if (at + sizeof(uint32_t) > sizeof(AgentConnConf)) {
            OV_ConfFail(site, "Invalid format, %s is not array!\n", key);
            return -22;
        }
        json_object *item = json_object_array_get_idx(arr, i);
        if (item == nullptr) {
            OV_ConfFail(site, "empty [%d] item for %s\n", static_cast<int>(i), itemName);
            return -22;
        }
        int32_t v = json_object_get_int(item);
        if (v < 0) {
            // The Path loop's text serves all three arrays; kept on purpose.
            OV_ConfFail(site, "path item is invalid\n");
            return -22;
        }
        uint32_t id = static_cast<uint32_t>(v);
        std::memcpy(rec + at, &id, sizeof id);
    }
    return 0;
}

/// Scans the key text pairwise with "%2hhx" into key bytes, for 2 x len
/// characters whatever the text's length: spaces and stale buffer contents
/// become part of pairs, and a pair that does not scan leaves its byte. Pairs
/// past the work buffer read as NUL (no scan); bytes past the key area are
/// never written.
void ScanKeyPairs(const char (&text)[kKeyTextBuf], uint32_t len, uint8_t *key, size_t keySize) {
    for (size_t i = 0; i < 2 * size_t{len} && i < kKeyTextBuf && i / 2 < keySize; i += 2) {
        char pair[3] = {text[i], i + 1 < kKeyTextBuf ? text[i + 1] : '\0', '\0'};
        (void)OV_ScanHexByte(pair, &key[i / 2]);
    }
}

} // namespace

int32_t OV_AgentConnJsonStrToConf(AgentConnConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "connection", conf, text, _OV_AgentConnJsonToConf);
}

int32_t _OV_AgentConnJsonToConf(AgentConnConf *conf, json_object *obj) {
    int32_t rc = _OV_AgentConnBaseJsonToConf(conf, obj);
    if (rc < 0) {
        OV_CONF_FAIL("Connection json to conf for base param failed\n");
        return rc;
    }
    json_object *sla = nullptr;
    if (json_object_object_get_ex(obj, "SlaCfg", &sla)) {
        rc = _OV_AgentConnSlaCfgJsonToConf(&conf->slaCfg, sla);
        if (rc < 0) {
            OV_CONF_FAIL("Connection json to conf for SlaCfg failed\n");
            return rc;
        }
    }
    return 0;
}

int32_t _OV_AgentConnBaseJsonToConf(AgentConnConf *conf, json_object *obj) {
    // Cleared once: the HMAC key text reuses what the cipher key text left
    // behind, on purpose.
    char keyText[kKeyTextBuf] = {};
    // Label, Vni and NetId pass through one temporary, which EncryptAlgo
    // reuses below.
    int32_t tmp = 0;

    int32_t rc = _OV_JsonGetInt(obj, "Label", &tmp);
    if (rc != 0) {
        OV_CONF_FAIL("Get Connection Label failed\n");
        return rc;
    }
    MergeBits(&conf->labelVniNetId, static_cast<uint32_t>(tmp), OV_CONN_LABEL_MASK,
              OV_CONN_LABEL_SHIFT);
    rc = _OV_JsonGetInt(obj, "Vni", &tmp);
    if (rc != 0) {
        OV_CONF_FAIL("Get Connection Vni failed\n");
        return rc;
    }
    MergeBits(&conf->labelVniNetId, static_cast<uint32_t>(tmp), OV_CONN_VNI_MASK,
              OV_CONN_VNI_SHIFT);
    rc = _OV_JsonGetInt(obj, "NetId", &tmp);
    if (rc != 0) {
        OV_CONF_FAIL("Get Connection NetId failed\n");
        return rc;
    }
    MergeBits(&conf->labelVniNetId, static_cast<uint32_t>(tmp), OV_CONN_NETID_MASK,
              OV_CONN_NETID_SHIFT);

    ExpectInt(OV_CONF_SITE, obj, "Mode", &conf->mode);

    // Required although the set_tunnel usage sample lacks it; kept on purpose.
    if (_OV_JsonGetInt(obj, "VpnId", &conf->vpnId) != 0) {
        OV_CONF_FAIL("Get VpnId from string failed\n");
        return -22;
    }

    ExpectInt(OV_CONF_SITE, obj, "WanId", &conf->wanId);
    ExpectInt(OV_CONF_SITE, obj, "LanId", &conf->lanId);

    ReadFlag(obj, "IsIpv6LttFlag", &conf->flags, OV_CONN_FLAG_IPV6_LTT);
    // The family bytes are set whether or not the address keys are present.
    conf->localIp6.family = OV_CONN_FAMILY_IPV6;
    conf->peerIp6.family = OV_CONN_FAMILY_IPV6;
    rc = ReadIpv6(OV_CONF_SITE, obj, "LocalIp6", &conf->localIp6);
    if (rc != 0) {
        return rc;
    }
    rc = ReadIpv6(OV_CONF_SITE, obj, "PeerIp6", &conf->peerIp6);
    if (rc != 0) {
        return rc;
    }
    conf->localIp.family = OV_CONN_FAMILY_IPV4;
    conf->peerIp.family = OV_CONN_FAMILY_IPV4;
    rc = ReadIpv4(OV_CONF_SITE, obj, "LocalIp", &conf->localIp);
    if (rc != 0) {
        return rc;
    }
    rc = ReadIpv4(OV_CONF_SITE, obj, "PeerIp", &conf->peerIp);
    if (rc != 0) {
        return rc;
    }

    ExpectInt(OV_CONF_SITE, obj, "CustomerId", &conf->customerId);
    ExpectInt(OV_CONF_SITE, obj, "PeerHostId", &conf->peerHostId);
    ExpectU8(OV_CONF_SITE, obj, "PortSeed", &conf->portSeed);
    ExpectU8(OV_CONF_SITE, obj, "ProtoVersion", &conf->protoVersion);

    ReadFlag(obj, "C2PFlag", &conf->flags, OV_CONN_FLAG_C2P);
    ReadFlag(obj, "PassiveFlag", &conf->flags, OV_CONN_FLAG_PASSIVE);
    ReadFlag(obj, "MasterFlag", &conf->flags, OV_CONN_FLAG_MASTER);
    ReadFlag(obj, "PersistentFlag", &conf->flags, OV_CONN_FLAG_PERSISTENT);
    ReadFlag(obj, "ClearDFFlag", &conf->dfFlags, OV_CONN_DF_CLEAR);
    ReadFlag(obj, "MaxTxModeFlag", &conf->flags, OV_CONN_FLAG_MAX_TX_MODE);
    ReadFlag(obj, "L2OnlyEncapIpHdrFlag", &conf->flags, OV_CONN_FLAG_L2_ONLY_ENCAP_IP_HDR);
    ReadFlag(obj, "MinUsage", &conf->flags, OV_CONN_FLAG_MIN_USAGE);
    ReadFlag(obj, "BackupFlag", &conf->flags, OV_CONN_FLAG_BACKUP);
    ReadFlag(obj, "SimUserFlowFlag", &conf->flags, OV_CONN_FLAG_SIM_USER_FLOW);
    ReadFlag(obj, "LttDelEopResetFlag", &conf->flags, OV_CONN_FLAG_LTT_DEL_EOP_RESET);

    ExpectInt(OV_CONF_SITE, obj, "SessionId", &conf->sessionId);

    rc = ReadIdArray(OV_CONF_SITE, conf, obj, "Path", offsetof(AgentConnConf, path), "Path");
    if (rc != 0) {
        return rc;
    }

    ExpectU8(OV_CONF_SITE, obj, "LinkNum", &conf->linkNum);
    ExpectU8(OV_CONF_SITE, obj, "KeepaliveInterval", &conf->keepaliveInterval);
    ExpectU8(OV_CONF_SITE, obj, "KeepaliveTimeout", &conf->keepaliveTimeout);
    ExpectU8(OV_CONF_SITE, obj, "TcpTunNum", &conf->tcpTunNum);
    ExpectU8(OV_CONF_SITE, obj, "UdpTunNum", &conf->udpTunNum);
    ExpectU8(OV_CONF_SITE, obj, "Tos", &conf->tos);

    // Without EncryptAlgo the temporary still holds NetId, unmasked, and that
    // is stored; deliberate.
    if (_OV_JsonGetInt(obj, "EncryptAlgo", &tmp) != 0) {
        OV_CONF_NOTICE("Connection conf not set EncryptAlgo!\n");
    }
    conf->encryptAlgo = static_cast<uint32_t>(tmp);

    if (_OV_JsonGetInt(obj, "CryptoSuite", &conf->cryptoSuite) != 0) {
        OV_CONF_NOTICE("Connection conf not set CryptoSuite!\n");
        conf->cryptoSuite = conf->encryptAlgo != 0 ? 1 : 0;
    }

    if (_OV_JsonGetU8(obj, "CipherKeyLen", &conf->cipherKeyLen) != 0 &&
        _OV_JsonGetU8(obj, "KeyLength", &conf->cipherKeyLen) != 0) {
        OV_CONF_NOTICE("Connection conf not set CipherKeyLen!\n");
    }
    ExpectU8(OV_CONF_SITE, obj, "HmacKeyLen", &conf->hmacKeyLen);

    if (_OV_JsonGetString(obj, "CipherKey", keyText, sizeof keyText) != 0 &&
        _OV_JsonGetString(obj, "InputKey", keyText, sizeof keyText) != 0) {
        OV_CONF_NOTICE("Connection conf not set CipherKey!\n");
    }
    if (keyText[0] != '\0') {
        ScanKeyPairs(keyText, conf->cipherKeyLen, conf->cipherKey, sizeof conf->cipherKey);
    }
    if (_OV_JsonGetString(obj, "HmacKey", keyText, sizeof keyText) != 0) {
        OV_CONF_NOTICE("Connection conf not set HmacKey!\n");
    } else {
        ScanKeyPairs(keyText, conf->hmacKeyLen, conf->hmacKey, sizeof conf->hmacKey);
    }

    if (_OV_JsonGetString(obj, "PeerUid", conf->peerUid, sizeof conf->peerUid) != 0) {
        OV_CONF_NOTICE("Connection conf not set PeerUid!\n");
    }

    ReadIntLow16(obj, "InitRtt", &conf->initRtt);
    ReadIntLow16(obj, "CfgMtu", &conf->cfgMtu);
    (void)_OV_JsonGetInt(obj, "KeyTimestamp", &conf->keyTimestamp);

    json_object *stamp = nullptr;
    if (!json_object_object_get_ex(obj, "TimeStamp", &stamp)) {
        OV_CONF_FAIL("Lack of TimeStamp\n");
        return -22;
    }
    conf->timeStamp = json_object_get_int64(stamp);

    rc = ReadIdArray(OV_CONF_SITE, conf, obj, "RatelimitInbound",
                     offsetof(AgentConnConf, ratelimitInbound), "RatelimitInbound");
    if (rc != 0) {
        return rc;
    }
    // The lower-case "ratelimitOutbound" of the empty-item text is kept on purpose.
    rc = ReadIdArray(OV_CONF_SITE, conf, obj, "RatelimitOutbound",
                     offsetof(AgentConnConf, ratelimitOutbound), "ratelimitOutbound");
    if (rc != 0) {
        return rc;
    }

    ExpectInt(OV_CONF_SITE, obj, "BuddyConnId", &conf->buddyConnId);
    ExpectInt(OV_CONF_SITE, obj, "MinTxKBps", &conf->minTxKBps);
    return 0;
}

int32_t _OV_AgentConnSlaCfgJsonToConf(AgentConnSlaCfg *sla, json_object *obj) {
    ReadIntLow16(obj, "ConnSRttLow", &sla->connSRttLow);
    ReadIntLow16(obj, "ConnSRttHigh", &sla->connSRttHigh);
    if (_OV_JsonGetInt(obj, "ConnOutBWLow", &sla->connOutBWLow) != 0) {
        OV_CONF_NOTICE("Connection conf not set ConnOutBWLow!\n");
    }
    if (_OV_JsonGetInt(obj, "ConnOutBWHigh", &sla->connOutBWHigh) != 0) {
        OV_CONF_NOTICE("Connection conf not set ConnOutBWHigh!\n");
    }
    ReadIntLow16(obj, "ConnJitterLow", &sla->connJitterLow);
    ReadIntLow16(obj, "ConnJitterHigh", &sla->connJitterHigh);
    ReadIntLow16(obj, "ConnLossRateLow", &sla->connLossRateLow);
    ReadIntLow16(obj, "ConnLossRateHigh", &sla->connLossRateHigh);
    return 0;
}
