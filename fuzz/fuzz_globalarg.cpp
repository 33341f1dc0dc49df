// Fuzz target: data-plane global-argument JSON to its 24-byte record, and the round trip through
// its decoder.
#include "agentconf/globalarg.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentGlobalArgConf> target{
        OV_AgentDpGlobalArgJsonStrToConf, OV_AgentGlobalArgRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
