// Fuzz target: connection (tunnel) JSON to its 616-byte record, and the round trip through the
// decoder.
#include "agentconf/conn.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentConnConf> target{OV_AgentConnJsonStrToConf,
                                                               OV_AgentConnRecordToJson};
    return ovfuzz::RunConverter(target, data, size);
}
