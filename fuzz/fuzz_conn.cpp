// Fuzz target: connection (tunnel) JSON to its 616-byte record, and the round trip through the
// simulator's decoder.
#include "agentconf/conn.h"
#include "agentsim/decode.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentConnConf> target{OV_AgentConnJsonStrToConf,
                                                               SimDecodeConn};
    return ovfuzz::RunConverter(target, data, size);
}
