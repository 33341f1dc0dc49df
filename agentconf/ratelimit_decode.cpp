// The rate-limit record back to JSON under the keys its converter reads: what the
// agent's journal shows and pdctl explains, and what the round-trip tests
// convert again.
#include "agentconf/json_out.h"
#include "agentconf/ratelimit.h"

#include <cstring>

json_object *OV_AgentRatelimitRecordToJson(const uint8_t *rec, size_t len) {
    if (rec == nullptr || len != sizeof(AgentRatelimitConf)) {
        return nullptr;
    }
    AgentRatelimitConf c;
    std::memcpy(&c, rec, sizeof c);
    const AgentRatelimitBucket &src = c.perIp[RATELIMIT_SLOT_SRC];
    const AgentRatelimitBucket &dst = c.perIp[RATELIMIT_SLOT_DST];

    // The 32-bit keys go through the signed 32-bit getter, so they are shown
    // signed: a stored 0xFFFFFFFF came from -1 and only -1 converts back to it.
    json_object *obj = json_object_new_object();
    ovrec::AddInt(obj, "RateLimitId", static_cast<int32_t>(c.rateLimitId));
    ovrec::AddInt(obj, "RateLimitObjId", static_cast<int32_t>(c.rateLimitObjId));
    ovrec::AddInt(obj, "CustomerId", static_cast<int32_t>(c.customerId));
    ovrec::AddInt(obj, "BucketRate", static_cast<int32_t>(c.bucketRate));
    ovrec::AddInt(obj, "CBS", c.cbs);
    ovrec::AddInt(obj, "Type", static_cast<int32_t>(c.type));
    ovrec::AddInt(obj, "PerSrcIpBucketRate", static_cast<int32_t>(src.bucketRate));
    ovrec::AddInt(obj, "PerSrcIpCBS", src.cbs);
    ovrec::AddInt(obj, "PerDstIpBucketRate", static_cast<int32_t>(dst.bucketRate));
    ovrec::AddInt(obj, "PerDstIpCBS", dst.cbs);
    for (const AgentRatelimitFlagKey &flag : kAgentRatelimitFlagKeys) {
        ovrec::AddBool(obj, flag.key, (c.flags & flag.mask) != 0);
    }
    // The converter insists on PerIpBucketRate when Type picks a bucket whose
    // rate is 0; give it the bucket's own values so the record converts back.
    const AgentRatelimitBucket *single = nullptr;
    if (c.type == 1 && src.bucketRate == 0) {
        single = &src;
    } else if (c.type == 2 && dst.bucketRate == 0) {
        single = &dst;
    }
    if (single != nullptr) {
        ovrec::AddInt(obj, "PerIpBucketRate", 0);
        ovrec::AddInt(obj, "PerIpCBS", single->cbs);
    }
    return obj;
}
