// Fuzz target of one record kind's converter, built once per kind (OV_FUZZ_KIND
// names it): the input as JSON to the kind's record at the end of an exact heap
// block, the record decoded, and the decoded JSON converted again to the same
// bytes. Size, converter, decoder and release come from the records table.
#include "agentconf/acsname.h"
#include "agentconf/records.h"
#include "agentconf/shaper.h"
#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr RecordKind kKind = RecordKind::OV_FUZZ_KIND;
const OV_RecordSpec &kSpec = OV_RecordSpecOf(kKind);

// Shaper rates from 2^31 up (which only negative input gives) are shown as
// unsigned numbers the 32-bit getter refuses again, as the decoder documents.
bool HasShaperRateFromTwoTo31(const uint8_t *rec) {
    auto high = [&](size_t offset) { return ovfuzz::Load<uint32_t>(rec + offset) >= 0x80000000u; };
    if (high(offsetof(AgentShaperConf, wanKbps)) || high(offsetof(AgentShaperConf, wanInKbps))) {
        return true;
    }
    for (size_t block :
         {offsetof(AgentShaperConf, bandLimit), offsetof(AgentShaperConf, guaranteeBandLimit)}) {
        size_t num = rec[block + offsetof(AgentShaperBandLimit, num)];
        for (size_t i = 0; i < std::min(num, OV_ShaperItemsInRecord(block)); ++i) {
            size_t item = OV_ShaperItemOffset(block, i);
            if (high(item + offsetof(AgentShaperBandItem, inkbps)) ||
                high(item + offsetof(AgentShaperBandItem, outkbps))) {
                return true;
            }
        }
    }
    return false;
}

// Converts into a zeroed record; clears what the decoded form cannot carry:
// an access name's entry lists travel in requests of their own, so its record
// keeps only their counts, which the decoded form does not give back.
int32_t ConvertInto(const char *text, ovfuzz::ExactBlock *rec) {
    int32_t rc = kSpec.convert(rec->Data(), text);
    if (kSpec.release != nullptr) {
        kSpec.release(rec->Data());
    }
    if constexpr (kKind == RecordKind::AcsName) {
        constexpr size_t from = offsetof(AgentAcsNameConf, addrNum);
        std::memset(rec->Data() + from, 0, offsetof(AgentAcsNameConf, ipSets) - from);
    }
    return rc;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    ovfuzz::ExactBlock text = ovfuzz::ExactText(data, size);
    ovfuzz::ExactBlock first(kSpec.size);
    if (ConvertInto(reinterpret_cast<const char *>(text.Data()), &first) < 0) {
        return 0;
    }
    json_object *decoded = kSpec.decode(first.Data(), first.Size());
    if (decoded == nullptr) {
        ovfuzz::Fail("the decoder refused a converted record", nullptr);
    }
    // The decoded text is owned by the tree; both live until the end.
    const char *again = json_object_to_json_string_ext(decoded, JSON_C_TO_STRING_PLAIN);
    ovfuzz::ExactBlock second(kSpec.size);
    int32_t rc = ConvertInto(again, &second);
    if (kKind == RecordKind::Shaper && HasShaperRateFromTwoTo31(first.Data())) {
        json_object_put(decoded);
        return 0;
    }
    if (rc < 0) {
        ovfuzz::Fail("the decoded record does not convert back", again);
    }
    if (std::memcmp(first.Data(), second.Data(), kSpec.size) != 0) {
        ovfuzz::Fail("the decoded record converts to other bytes", again);
    }
    json_object_put(decoded);
    return 0;
}
