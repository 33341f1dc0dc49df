// Fuzz target: the key=value arguments of the delete, engine and shaper-get
// commands, through their handlers and the real client. Every request that
// leaves is checked against its command: module, function, record size, and
// no byte set outside the fields the command fills.
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "fuzz/fuzz_support.h"
#include "imc/flexmsg.h"
#include "tests/support/fake_agent.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

using Span = std::pair<size_t, size_t>; // [from, to)

/// What one kind of key=value command may send.
struct Form {
    CmdHandler handler;
    int module;
    int function; ///< -1: the row id
    size_t recordLen;
    std::vector<Span> fields; ///< the only bytes that may be non-zero
};

const Form kForms[] = {
    {CmdRuleDel, 4, -1, 17528, {{2, 3}, {16, 20}}},
    {CmdLinkIpDel, 3, -1, 36, {{0, 2}, {8, 16}}},
    {CmdLinkDel, 3, 14, 44, {{0, 1}, {4, 7}}}, // the link id keeps 24 bits
    {CmdConnDel, 3, 19, 616, {{4, 8}, {548, 556}}},
    {CmdShaperDel, 15, 2, 224, {{0, 1}}},
    {CmdRatelimitDel, 10, 2, 72, {{0, 4}}},
    {CmdAcsNameDel, 6, 1, 4480, {{4, 67}}}, // 63 characters and the NUL
    {CmdEngineParamSet, 8, 0, 104, {{4, 5}, {8, 12}}},
    {CmdShaperGet, 15, 3, 224, {{0, 1}}},
};

struct Row {
    const CmdEntry *entry;
    const Form *form;
};

std::vector<Row> KeyValueRows() {
    std::vector<Row> rows;
    for (const CmdEntry &e : g_cmdTable) {
        for (const Form &f : kForms) {
            if (e.handler == f.handler) {
                rows.push_back(Row{&e, &f});
            }
        }
    }
    return rows;
}

void Check(bool ok, const Row &row, const char *what, const std::vector<uint8_t> &request) {
    if (ok) {
        return;
    }
    std::string detail = row.entry->name;
    ovfuzz::Fail(what, detail.c_str(), request.data(), nullptr, request.size());
}

void CheckRequest(const Row &row, int32_t result, const std::vector<uint8_t> &request) {
    const Form &f = *row.form;
    if (request.empty()) {
        // Refused before sending: only a bad argument does that.
        Check(result == -22, row, "nothing was sent, yet the result is not -22", request);
        return;
    }
    Check(request.size() == IMC_HEADER_LEN + f.recordLen, row, "the request has the wrong size",
          request);
    const uint8_t *h = request.data();
    int function = f.function >= 0 ? f.function : row.entry->id;
    Check(h[0] == f.module && ovfuzz::Load<uint16_t>(h + 2) == function, row,
          "the request goes to the wrong module or function", request);
    Check(h[1] == 0 && ovfuzz::Load<uint32_t>(h + 4) == 0, row, "a reserved header byte is set",
          request);
    Check(ovfuzz::Load<uint64_t>(h + 8) == f.recordLen, row,
          "the header announces the wrong length", request);
    const uint8_t *rec = h + IMC_HEADER_LEN;
    for (size_t i = 0; i < f.recordLen; ++i) {
        bool inField = false;
        for (const Span &s : f.fields) {
            inField = inField || (i >= s.first && i < s.second);
        }
        bool allowedOnes = f.handler == CmdConnDel && i >= 548 && i < 556;
        Check(inField || rec[i] == 0, row, "a byte outside the command's fields is set", request);
        Check(!allowedOnes || rec[i] == 0xFF, row, "a tunnel delete lacks its all-ones stamp",
              request);
    }
    if (f.handler == CmdLinkIpDel) {
        Check(rec[0] == (row.entry->id == 6 ? 1 : 2), row, "the link-IP side is wrong", request);
    }
    if (f.handler == CmdEngineParamSet) {
        Check(rec[4] == (row.entry->id & 0xFF), row, "the engine parameter code is wrong", request);
    }
    // The stand-in answers status 0 without data: a get lacks its reply data.
    int32_t expected = f.handler == CmdShaperGet ? -120 : 0;
    Check(result == expected, row, "the result does not follow the agent's answer", request);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    static const std::vector<Row> rows = KeyValueRows();
    if (size == 0) {
        return 0;
    }
    const Row &row = rows[data[0] % rows.size()];
    // One byte: the null argument of a word without "/"; more: the text after it.
    ovfuzz::ExactBlock arg = ovfuzz::ExactText(data + 1, size - 1);
    const char *argText = size == 1 ? nullptr : reinterpret_cast<const char *>(arg.Data());

    static const uint8_t kStatusZero[IMC_HEADER_LEN] = {};
    ovtest::FakeAgent &agent = ovtest::FakeAgent::Get();
    if (!agent.Begin(kStatusZero, sizeof kStatusZero)) {
        ovfuzz::Fail("the client did not start", row.entry->name);
    }
    ovfuzz::ExactBlock out(CMD_OUT_BUF_LEN);
    int32_t result = row.entry->handler(argText, reinterpret_cast<char *>(out.Data()),
                                        CMD_OUT_BUF_LEN, row.entry->id);
    std::vector<uint8_t> request = agent.End();
    CheckRequest(row, result, request);
    return 0;
}
