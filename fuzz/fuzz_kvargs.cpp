// Fuzz target: the key=value arguments of the delete, engine and shaper-get
// commands, through their handlers and the real client. The first byte picks
// the command among the table's rows that take such arguments (in table order,
// as the corpus was made), the rest is the text after its "/".
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "fuzz/fuzz_support.h"
#include "imc/flexmsg.h"
#include "tests/support/fake_agent.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

constexpr CmdHandler kKeyValueHandlers[] = {
    CmdRuleDel,      CmdLinkIpDel,  CmdLinkDel,        CmdConnDel,   CmdShaperDel,
    CmdRatelimitDel, CmdAcsNameDel, CmdEngineParamSet, CmdShaperGet,
};

std::vector<const CmdEntry *> KeyValueRows() {
    std::vector<const CmdEntry *> rows;
    for (const CmdEntry &e : g_cmdTable) {
        if (std::find(std::begin(kKeyValueHandlers), std::end(kKeyValueHandlers), e.handler) !=
            std::end(kKeyValueHandlers)) {
            rows.push_back(&e);
        }
    }
    return rows;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    static const std::vector<const CmdEntry *> rows = KeyValueRows();
    if (size == 0) {
        return 0;
    }
    const CmdEntry &row = *rows[data[0] % rows.size()];
    // One byte: the null argument of a word without "/"; more: the text after it.
    ovfuzz::ExactBlock arg = ovfuzz::ExactText(data + 1, size - 1);
    const char *argText = size == 1 ? nullptr : reinterpret_cast<const char *>(arg.Data());

    static const uint8_t kStatusZero[IMC_HEADER_LEN] = {};
    ovtest::FakeAgent &agent = ovtest::FakeAgent::Get();
    if (!agent.Begin(kStatusZero, sizeof kStatusZero)) {
        ovfuzz::Fail("the client did not start", row.name);
    }
    ovfuzz::ExactBlock out(CMD_OUT_BUF_LEN);
    row.handler(argText, reinterpret_cast<char *>(out.Data()), CMD_OUT_BUF_LEN, row.id);
    agent.End();
    return 0;
}
