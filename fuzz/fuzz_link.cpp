// Fuzz target: link JSON to its 44-byte record, and the round trip through its decoder.
#include "agentconf/link.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentLinkConf> target{OV_AgentLinkJsonStrToConf,
                                                               OV_AgentLinkRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
