// Fuzz target: link-IP JSON to its 36-byte record, and the round trip through the simulator's
// decoder.
#include "agentconf/link.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentLinkIpConf> target{OV_AgentLinkIpJsonStrToConf,
                                                                 OV_AgentLinkIpRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
