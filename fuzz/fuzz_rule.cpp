// Fuzz target: rule JSON to its 17,528-byte record, and the round trip through the simulator's
// decoder.
#include "agentconf/rule.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentRuleConf> target{OV_AgentRuleJsonStrToConf,
                                                               OV_AgentRuleRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
