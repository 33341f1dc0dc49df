// Fuzz target: the client's reply path. Any byte stream from the agent, read
// by the real client through the in-process stand-in agent, for each kind of
// operation: set, get into a buffer (224 bytes, and small ones), get with the
// table and cluster printers, and the multi-pass get. The table printer's
// record walk is reached by replies of the right length in the corpus.
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "fuzz/fuzz_support.h"
#include "imc/conf_client.h"
#include "tests/support/fake_agent.h"

extern "C" const char *__asan_default_options() {
    // The client allocates whatever payload length a reply announces (it
    // trusts the agent by design): larger ones fail here, as on a host short
    // of memory, instead of costing their whole shadow under ASan.
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}

namespace {

// get_shaper_conf's exchange: one 224-byte block is request and reply; a
// record that arrived is shown as JSON.
void GetShaper() {
    ovfuzz::ExactBlock rec(sizeof(AgentShaperConf));
    rec.Data()[0] = 1;
    int32_t result = OV_ImcConfGet(15, 3, rec.Data(), sizeof(AgentShaperConf), rec.Data(),
                                   sizeof(AgentShaperConf));
    if (result >= 0) {
        AgentMemFree(OV_AgentShaperConfToJsonStr(reinterpret_cast<AgentShaperConf *>(rec.Data())));
    }
}

// A get whose handler prints the reply.
void Printed(CmdHandler handler, uint16_t id, const char *word) {
    ovfuzz::ExactBlock out(CMD_OUT_BUF_LEN);
    handler(nullptr, reinterpret_cast<char *>(out.Data()), CMD_OUT_BUF_LEN, id);
    ovfuzz::FailUnlessTerminated(out, word);
}

// Odd first bytes ask for another pass, at most four in all; a handler fails
// now and then.
int MultiHandler(void * /*req*/, uint32_t /*reqLen*/, const void *reply, uint64_t replyLen,
                 uint32_t *more, void *ctx) {
    int *passes = static_cast<int *>(ctx);
    const auto *bytes = static_cast<const uint8_t *>(reply);
    *more = ++*passes < 4 && replyLen != 0 && (bytes[0] & 1) != 0;
    return replyLen > 1 && bytes[1] == 0xEE ? -5 : 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    if (size == 0) {
        return 0;
    }
    const uint8_t op = data[0];
    ovtest::FakeAgent &agent = ovtest::FakeAgent::Get();
    if (!agent.Begin(data + 1, size - 1)) {
        ovfuzz::Fail("the client did not start", nullptr);
    }
    switch (op % 6) {
    case 0: {
        ovfuzz::ExactBlock rec(72);
        OV_ImcConfSet(10, 1, rec.Data(), static_cast<uint32_t>(rec.Size()));
        break;
    }
    case 1:
        GetShaper();
        break;
    case 2:
        Printed(CmdSaClusterGet, 7, "get_sa_cluster");
        break;
    case 3:
        Printed(CmdShaperTblGet, 4, "get_shaper_tbl");
        break;
    case 4: {
        int passes = 0;
        ovfuzz::ExactBlock req(8);
        OV_ImcConfGetMultiByFunc(15, 4, req.Data(), static_cast<uint32_t>(req.Size()), MultiHandler,
                                 &passes);
        break;
    }
    default: {
        const size_t n = 1 + op / 6;
        ovfuzz::ExactBlock buf(n);
        OV_ImcConfGet(15, 7, nullptr, 0, buf.Data(), static_cast<uint32_t>(n));
        break;
    }
    }
    agent.End();
    return 0;
}
