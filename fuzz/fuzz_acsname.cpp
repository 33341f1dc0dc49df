// Fuzz target: access-name JSON to its 4480-byte record (the converter's entry
// arrays are converted and released), and the round trip through its decoder.
#include "agentconf/acsname.h"
#include "fuzz/fuzz_support.h"

namespace {

// The entry lists travel in requests of their own: the record carries only
// their counts and request counts, which the decoded form cannot give back.
void ClearEntryCounts(uint8_t *rec) {
    constexpr size_t from = offsetof(AgentAcsNameConf, addrNum);
    constexpr size_t to = offsetof(AgentAcsNameConf, ipSets);
    std::memset(rec + from, 0, to - from);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentAcsNameConf> target{
        OV_AgentAcsNameJsonStrToConf, OV_AgentAcsNameRecordToJson, nullptr, ClearEntryCounts};
    return ovfuzz::RunConverter(target, data, size);
}
