// Fuzz target: access-name JSON to its 4480-byte record (and the entry arrays
// the converter allocates), and the round trip through its decoder.
#include "agentconf/acsname.h"
#include "fuzz/fuzz_support.h"

namespace {

// The entry lists stay on this host: the record carries only their counts and
// host-local references, which the decoded form cannot give back.
void ClearEntryCountsAndReferences(uint8_t *rec) {
    constexpr size_t from = offsetof(AgentAcsNameConf, addrNum);
    constexpr size_t to = offsetof(AgentAcsNameConf, ipSets);
    std::memset(rec + from, 0, to - from);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentAcsNameConf> target{
        OV_AgentAcsNameJsonStrToConf, OV_AgentAcsNameRecordToJson, OV_AgentAcsNameConfRelease,
        ClearEntryCountsAndReferences};
    return ovfuzz::RunConverter(target, data, size);
}
