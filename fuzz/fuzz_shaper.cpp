// Fuzz target: shaper JSON to its 224-byte record, and the round trip through
// its decoder.
#include "agentconf/shaper.h"
#include "fuzz/fuzz_support.h"

#include <algorithm>

namespace {

uint32_t Load32(const uint8_t *rec, size_t offset) {
    uint32_t v;
    std::memcpy(&v, rec + offset, sizeof v);
    return v;
}

// The decoder shows rates as unsigned numbers; from 2^31 up (which only
// negative input gives) the 32-bit getter refuses them again, as the decoder
// documents.
bool HasRateFromTwoTo31(const uint8_t *rec) {
    auto high = [](uint32_t v) { return v >= 0x80000000u; };
    if (high(Load32(rec, offsetof(AgentShaperConf, wanKbps))) ||
        high(Load32(rec, offsetof(AgentShaperConf, wanInKbps)))) {
        return true;
    }
    for (size_t block :
         {offsetof(AgentShaperConf, bandLimit), offsetof(AgentShaperConf, guaranteeBandLimit)}) {
        size_t num = rec[block + offsetof(AgentShaperBandLimit, num)];
        size_t count = std::min(num, OV_ShaperItemsInRecord(block));
        for (size_t i = 0; i < count; ++i) {
            size_t item = OV_ShaperItemOffset(block, i);
            if (high(Load32(rec, item + offsetof(AgentShaperBandItem, inkbps))) ||
                high(Load32(rec, item + offsetof(AgentShaperBandItem, outkbps)))) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ovfuzz::ConverterTarget<AgentShaperConf> target{
        OV_AgentShaperJsonStrToConf, OV_AgentShaperRecordToJson, nullptr, nullptr,
        HasRateFromTwoTo31};
    return ovfuzz::RunConverter(target, data, size);
}
