// Fuzz target: rate-limit JSON to its 72-byte record, and the round trip through the simulator's
// decoder.
#include "agentconf/ratelimit.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentRatelimitConf> target{OV_AgentRatelimitJsonStrToConf,
                                                                    OV_AgentRatelimitRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
