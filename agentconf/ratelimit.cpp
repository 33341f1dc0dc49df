// Rate-limit JSON to the 72-byte rate-limit record.
#include "agentconf/ratelimit.h"

#include "agentconf/json_conv.h"

namespace {

/// An optional 64-bit key: absent is fine (nothing written), a negative value
/// is refused with -22 (the caller logs its own text).
int32_t ReadOptionalNonNegative64(json_object *obj, const char *key, int64_t *out) {
    json_object *val = nullptr;
    if (!json_object_object_get_ex(obj, key, &val)) {
        return 0;
    }
    int64_t v = json_object_get_int64(val);
    if (v < 0) {
        return -22;
    }
    *out = v;
    return 0;
}

/// An optional flag: when present its bit is cleared, then set to the value.
void ApplyOptionalFlag(json_object *obj, const char *key, uint16_t mask, uint16_t *flags) {
    int32_t on = 0;
    if (_OV_JsonGetBool(obj, key, &on) == 0) {
        *flags = static_cast<uint16_t>((*flags & ~mask) | (on ? mask : 0));
    }
}

} // namespace

int32_t _OV_AgentRatelimitJsonToConf(AgentRatelimitConf *conf, json_object *obj) {
    int32_t rc = _OV_JsonGetInt(obj, "RateLimitId", &conf->rateLimitId);
    if (rc != 0) {
        OV_CONF_FAIL("Lack of RateLimitId\n");
        return rc;
    }
    if (_OV_JsonGetInt(obj, "BucketRate", &conf->bucketRate) != 0) {
        OV_CONF_NOTICE("Ratelimit not set BucketRate\n");
    }
    if (_OV_JsonGetInt(obj, "CustomerId", &conf->customerId) != 0) {
        OV_CONF_NOTICE("Ratelimit not set CustomerId\n");
    }
    if (_OV_JsonGetInt(obj, "RateLimitObjId", &conf->rateLimitObjId) != 0) {
        OV_CONF_NOTICE("Ratelimit not set RateLimitObjId\n");
    }
    if (ReadOptionalNonNegative64(obj, "CBS", &conf->cbs) != 0) {
        OV_CONF_FAIL("Get ratelimit CBS failed\n");
        return -22;
    }
    if (_OV_JsonGetInt(obj, "Type", &conf->type) != 0) {
        OV_CONF_NOTICE("Ratelimit not set Type\n");
    }

    AgentRatelimitBucket &src = conf->perIp[RATELIMIT_SLOT_SRC];
    AgentRatelimitBucket &dst = conf->perIp[RATELIMIT_SLOT_DST];
    if (_OV_JsonGetInt(obj, "PerSrcIpBucketRate", &src.bucketRate) != 0) {
        OV_CONF_NOTICE("Ratelimit not set PerSrcIpBucketRate\n");
    }
    if (ReadOptionalNonNegative64(obj, "PerSrcIpCBS", &src.cbs) != 0) {
        OV_CONF_FAIL("Get ratelimit PerIpCBS failed\n");
        return -22;
    }
    if (_OV_JsonGetInt(obj, "PerDstIpBucketRate", &dst.bucketRate) != 0) {
        OV_CONF_NOTICE("Ratelimit not set PerDstIpBucketRate\n");
    }
    // The destination bucket reports with the source bucket's text, on purpose.
    if (ReadOptionalNonNegative64(obj, "PerDstIpCBS", &dst.cbs) != 0) {
        OV_CONF_FAIL("Get ratelimit PerIpCBS failed\n");
        return -22;
    }

    for (const AgentRatelimitFlagKey &flag : kAgentRatelimitFlagKeys) {
        ApplyOptionalFlag(obj, flag.key, flag.mask, &conf->flags);
    }

    // Single-bucket form: PerIpBucketRate/PerIpCBS fill the bucket that Type
    // selects when its own rate is still 0, and force that bucket's Update bits.
    AgentRatelimitBucket *single = nullptr;
    uint16_t singleBits = 0;
    if (conf->type == 1 && src.bucketRate == 0) {
        single = &src;
        singleBits =
            RATELIMIT_FLAG_UPDATE_PER_SRC_IP_BUCKET_RATE | RATELIMIT_FLAG_UPDATE_PER_SRC_IP_CBS;
    } else if (conf->type == 2 && dst.bucketRate == 0) {
        single = &dst;
        singleBits =
            RATELIMIT_FLAG_UPDATE_PER_DST_IP_BUCKET_RATE | RATELIMIT_FLAG_UPDATE_PER_DST_IP_CBS;
    }
    if (single != nullptr) {
        // Deliberately silent: a missing PerIpBucketRate fails without a message.
        if (_OV_JsonGetInt(obj, "PerIpBucketRate", &single->bucketRate) != 0) {
            return -22;
        }
        if (ReadOptionalNonNegative64(obj, "PerIpCBS", &single->cbs) != 0) {
            OV_CONF_FAIL("Get ratelimit PerIpCBS failed\n");
            return -22;
        }
        conf->flags |= singleBits;
    }
    return 0;
}

int32_t OV_AgentRatelimitJsonStrToConf(AgentRatelimitConf *conf, const char *text) {
    return OV_AgentConfJsonEntry(OV_CONF_SITE, "ratelimit", conf, text,
                                 _OV_AgentRatelimitJsonToConf);
}
