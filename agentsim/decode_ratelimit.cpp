// Decoder of the rate-limit record for the simulator's journal and tests.
#include "agentconf/ratelimit.h"
#include "agentsim/decode.h"
#include "agentsim/decode_util.h"

#include <cstring>

json_object *SimDecodeRatelimit(const uint8_t *rec, size_t len) {
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
    sim::AddInt(obj, "RateLimitId", static_cast<int32_t>(c.rateLimitId));
    sim::AddInt(obj, "RateLimitObjId", static_cast<int32_t>(c.rateLimitObjId));
    sim::AddInt(obj, "CustomerId", static_cast<int32_t>(c.customerId));
    sim::AddInt(obj, "BucketRate", static_cast<int32_t>(c.bucketRate));
    sim::AddInt(obj, "CBS", c.cbs);
    sim::AddInt(obj, "Type", static_cast<int32_t>(c.type));
    sim::AddInt(obj, "PerSrcIpBucketRate", static_cast<int32_t>(src.bucketRate));
    sim::AddInt(obj, "PerSrcIpCBS", src.cbs);
    sim::AddInt(obj, "PerDstIpBucketRate", static_cast<int32_t>(dst.bucketRate));
    sim::AddInt(obj, "PerDstIpCBS", dst.cbs);
    for (const AgentRatelimitFlagKey &flag : kAgentRatelimitFlagKeys) {
        sim::AddBool(obj, flag.key, (c.flags & flag.mask) != 0);
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
        sim::AddInt(obj, "PerIpBucketRate", 0);
        sim::AddInt(obj, "PerIpCBS", single->cbs);
    }
    return obj;
}
