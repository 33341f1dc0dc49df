// Fuzz target: the client's reply path. Any byte stream from the agent, read
// by the real client (OV_ImcConfigure, _OV_ImcRecvAllReply, OV_ImcRecvAll)
// through the in-process stand-in agent, for each kind of operation: set,
// get into a buffer (224 and 540 bytes, and small ones), get with the table
// printer, and the multi-pass get. Results and delivered bytes are checked
// against the frames the stream holds.
#include "agentconf/shaper.h"
#include "base/mem.h"
#include "cli/cmd.h"
#include "cli/handlers.h"
#include "fuzz/fuzz_support.h"
#include "imc/conf_client.h"
#include "imc/flexmsg.h"
#include "tests/support/fake_agent.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

// Allocations above 64 MiB fail here, as on a host short of memory: the
// client allocates whatever payload length a reply announces (it trusts the
// agent by design), and under ASan every such block costs its whole shadow.
// Larger announcements then take the -12 path instead of the read.
constexpr uint64_t kAllocLimit = 64ull << 20;

extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}

namespace {

/// One reply as the stream carries it.
struct Frame {
    bool complete = false; ///< the header and all payload bytes are in the stream
    int32_t status = 0;
    uint64_t payloadLen = 0;
    const uint8_t *payload = nullptr;
};

/// The frame starting at `at`; `at` moves past it when it is complete.
Frame NextFrame(const uint8_t *stream, size_t len, size_t *at) {
    Frame f;
    if (len - *at < IMC_HEADER_LEN) {
        return f;
    }
    const uint8_t *h = stream + *at;
    f.status = ovfuzz::Load<int32_t>(h);
    f.payloadLen = ovfuzz::Load<uint64_t>(h + 8);
    f.payload = h + IMC_HEADER_LEN;
    if (f.payloadLen <= len - *at - IMC_HEADER_LEN) {
        f.complete = true;
        *at += IMC_HEADER_LEN + static_cast<size_t>(f.payloadLen);
    }
    return f;
}

std::string Describe(const char *op, int32_t result, const Frame &f) {
    return std::string(op) + ": result " + std::to_string(result) + ", frame " +
           (f.complete ? "complete" : "incomplete") + " status " + std::to_string(f.status) +
           " length " + std::to_string(f.payloadLen);
}

// An exchange that did not get its whole reply: the stream ended (-32), or a
// payload length no buffer can take was refused (-12).
bool IncompleteResult(int32_t result, const Frame &f) {
    return result == -32 || (result == -12 && f.payloadLen > kAllocLimit - 64);
}

void Expect(bool ok, const char *op, int32_t result, const Frame &f) {
    if (!ok) {
        ovfuzz::Fail("the client's result does not follow the reply",
                     Describe(op, result, f).c_str());
    }
}

// The result of a get into a buffer of `size` bytes, and the bytes delivered.
void CheckGet(const char *op, int32_t result, const Frame &f, const uint8_t *buf, size_t size) {
    if (!f.complete) {
        Expect(IncompleteResult(result, f), op, result, f);
        return;
    }
    if (f.status < 0) {
        Expect(result == f.status, op, result, f);
        return;
    }
    if (f.payloadLen == 0) {
        Expect(result == -120, op, result, f);
        return;
    }
    Expect(result == (f.payloadLen > size ? -119 : f.status), op, result, f);
    size_t n = static_cast<size_t>(std::min<uint64_t>(f.payloadLen, size));
    if (std::memcmp(buf, f.payload, n) != 0) {
        ovfuzz::Fail("the get delivered other bytes than the reply carried",
                     Describe(op, result, f).c_str());
    }
}

void Set(const uint8_t *stream, size_t len) {
    ovfuzz::ExactBlock rec(72);
    int32_t result = OV_ImcConfSet(10, 1, rec.Data(), static_cast<uint32_t>(rec.Size()));
    size_t at = 0;
    Frame f = NextFrame(stream, len, &at);
    Expect(f.complete ? result == f.status : IncompleteResult(result, f), "set", result, f);
}

// get_shaper_conf's exchange: one 224-byte block is request and reply; a
// record that arrived is shown as JSON.
void GetShaper(const uint8_t *stream, size_t len) {
    ovfuzz::ExactBlock rec(sizeof(AgentShaperConf));
    rec.Data()[0] = 1;
    int32_t result = OV_ImcConfGet(15, 3, rec.Data(), sizeof(AgentShaperConf), rec.Data(),
                                   sizeof(AgentShaperConf));
    size_t at = 0;
    CheckGet("get shaper", result, NextFrame(stream, len, &at), rec.Data(), rec.Size());
    if (result >= 0) {
        char *text = OV_AgentShaperConfToJsonStr(reinterpret_cast<AgentShaperConf *>(rec.Data()));
        AgentMemFree(text);
    }
}

void GetSmall(const uint8_t *stream, size_t len, size_t size) {
    ovfuzz::ExactBlock buf(size);
    int32_t result = OV_ImcConfGet(15, 7, nullptr, 0, buf.Data(), static_cast<uint32_t>(size));
    size_t at = 0;
    CheckGet("get small", result, NextFrame(stream, len, &at), buf.Data(), size);
}

// A get whose handler prints the reply.
void Printed(CmdHandler handler, uint16_t id, const char *word) {
    ovfuzz::ExactBlock out(CMD_OUT_BUF_LEN);
    handler(nullptr, reinterpret_cast<char *>(out.Data()), CMD_OUT_BUF_LEN, id);
    ovfuzz::FailUnlessTerminated(out, word);
}

struct MultiState {
    const uint8_t *stream;
    size_t len;
    size_t at = 0;
    int passes = 0;
};

// Each pass must see the next frame of the stream; odd first bytes ask for
// another pass, at most four in all.
int MultiHandler(void * /*req*/, uint32_t /*reqLen*/, const void *reply, uint64_t replyLen,
                 uint32_t *more, void *ctx) {
    auto *s = static_cast<MultiState *>(ctx);
    Frame f = NextFrame(s->stream, s->len, &s->at);
    if (!f.complete || f.payloadLen != replyLen ||
        (replyLen != 0 && std::memcmp(reply, f.payload, static_cast<size_t>(replyLen)) != 0)) {
        ovfuzz::Fail("a pass of the multi-get saw another reply than the stream's next",
                     Describe("multi", 0, f).c_str());
    }
    ++s->passes;
    const auto *bytes = static_cast<const uint8_t *>(reply);
    *more = s->passes < 4 && replyLen != 0 && (bytes[0] & 1) != 0;
    return replyLen > 1 && bytes[1] == 0xEE ? -5 : 0; // a handler that fails, now and then
}

void MultiGet(const uint8_t *stream, size_t len) {
    MultiState s{stream, len};
    ovfuzz::ExactBlock req(8);
    OV_ImcConfGetMultiByFunc(15, 4, req.Data(), static_cast<uint32_t>(req.Size()), MultiHandler,
                             &s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    if (size == 0) {
        return 0;
    }
    const uint8_t op = data[0];
    const uint8_t *stream = data + 1;
    size_t len = 0;
    ovtest::FakeAgent &agent = ovtest::FakeAgent::Get();
    if (!agent.Begin(stream, size - 1, &len)) {
        ovfuzz::Fail("the client did not start", nullptr);
    }
    switch (op % 6) {
    case 0:
        Set(stream, len);
        break;
    case 1:
        GetShaper(stream, len);
        break;
    case 2:
        Printed(CmdSaClusterGet, 7, "get_sa_cluster");
        break;
    case 3:
        Printed(CmdShaperTblGet, 4, "get_shaper_tbl");
        break;
    case 4:
        MultiGet(stream, len);
        break;
    default:
        GetSmall(stream, len, 1 + op / 6);
        break;
    }
    agent.End();
    return 0;
}
