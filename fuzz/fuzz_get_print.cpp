// Fuzz target: the printing of get replies. A shaper record of any bytes to
// JSON text and its pretty form in an output buffer of any size, and the
// shaper-table printer on replies of any bytes and length (and on replies of
// the right length, so the record walk is reached every time).
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "cli/cmd.h"
#include "cli/get_print.h"
#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kRecordLen = sizeof(AgentShaperConf);
constexpr size_t kTableHeaderLen = 4;

// The record at the end of its own block, from the input (zero-padded).
void PrintRecord(const uint8_t *data, size_t size) {
    size_t outLen = size > 0 ? size_t{data[0]} * 48 : 0; // 0 .. 12240, past the pretty text
    data += size > 0 ? 1 : 0;
    size -= size > 0 ? 1 : 0;
    ovfuzz::ExactBlock rec(kRecordLen, data, size);

    char *text = OV_AgentShaperConfToJsonStr(reinterpret_cast<const AgentShaperConf *>(rec.Data()));
    if (text == nullptr) {
        ovfuzz::Fail("a received record gives no JSON text", nullptr, rec.Data(), nullptr,
                     kRecordLen);
    }
    json_object *obj = json_tokener_parse(text);
    const char *pretty = obj != nullptr ? CmdJsonPrettyText(obj) : nullptr;
    if (pretty == nullptr) {
        ovfuzz::Fail("the record's JSON text does not read back", text);
    }
    ovfuzz::ExactBlock out(outLen);
    size_t n = CmdSnprintf(reinterpret_cast<char *>(out.Data()), outLen, "%s\n", pretty);
    size_t want = std::strlen(pretty) + 1;
    if (n != (outLen == 0 ? 0 : (want < outLen ? want : outLen))) {
        ovfuzz::Fail("the bounded formatter counted wrong", pretty);
    }
    if (outLen != 0) {
        ovfuzz::FailUnlessTerminated(out, "the bounded formatter left no NUL");
    }
    json_object_put(obj);
    AgentMemFree(text);
}

void PrintTable(const uint8_t *reply, size_t len) {
    // Exactly the reply's bytes, as the client hands them over.
    ovfuzz::ExactBlock bytes(len, reply, len);
    ovfuzz::ExactBlock out(CMD_OUT_BUF_LEN);
    int32_t rc = CmdShaperTblPrint(bytes.Data(), len, out.Data());
    // Wrong lengths are reported and pass; every record converts; text that
    // does not fit is cut. Nothing else can happen.
    if (rc != 0) {
        ovfuzz::Fail("the table printer failed on a reply", nullptr, bytes.Data(), nullptr, len);
    }
    ovfuzz::FailUnlessTerminated(out, "the table printer left no NUL");
}

// A reply of the right length for its count: records repeat the input. Up to
// 31 records: with their items, more text than the output buffer holds.
void PrintWholeTable(const uint8_t *data, size_t size) {
    uint8_t count = size > 0 ? data[0] % 32 : 0;
    size_t len = kTableHeaderLen + size_t{count} * kRecordLen;
    std::vector<uint8_t> reply(len, 0);
    reply[0] = count;
    for (size_t i = kTableHeaderLen; i < len && size > 1; ++i) {
        reply[i] = data[1 + (i - kTableHeaderLen) % (size - 1)];
    }
    PrintTable(reply.data(), reply.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    if (size == 0) {
        return 0;
    }
    switch (data[0] % 3) {
    case 0:
        PrintRecord(data + 1, size - 1);
        break;
    case 1:
        PrintTable(data + 1, size - 1);
        break;
    default:
        PrintWholeTable(data + 1, size - 1);
        break;
    }
    return 0;
}
