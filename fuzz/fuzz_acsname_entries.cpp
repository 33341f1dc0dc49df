// Fuzz target: the agent's side of access-name entry requests. The input is
// a series of access-name requests to agentsim's handlers (sets and deletes
// described compactly, entry requests built from a few fields or taken raw),
// each in an exact heap block and also decoded as the journal does. Only the
// codes the handlers document may come back.
#include "agentconf/acsname_entries.h"
#include "agentconf/json_conv.h"
#include "agentsim/sim_handlers.h"
#include "fuzz/fuzz_support.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

class Input {
  public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    bool Empty() const { return at_ >= size_; }
    uint8_t U8() { return at_ < size_ ? data_[at_++] : 0; }
    uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
    size_t Take(size_t n, const uint8_t **out) {
        n = std::min(n, size_ - std::min(at_, size_));
        *out = data_ + at_;
        at_ += n;
        return n;
    }

  private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

// A count: one byte for the small ones (each request stays cheap), 0xFE for
// edge - 1, edge or edge + 1, 0xFF for any up to cap.
uint32_t Count(Input &in, uint32_t edge, uint32_t cap) {
    const uint8_t b = in.U8();
    if (b < 0xFE) {
        return b;
    }
    return b == 0xFE ? edge - 1 + in.U8() % 3 : in.U16() % (cap + 1);
}

std::vector<uint8_t> SetRecord(Input &in) {
    AgentAcsNameConf conf{};
    conf.id = 7;
    std::snprintf(conf.name, sizeof conf.name, "n%u", in.U8() % 4);
    conf.addrNum = Count(in, ACSNAME_ADDR_MAX, ACSNAME_ADDR_MAX + 1);
    conf.domainNum = Count(in, ACSNAME_DOMAIN_MAX, ACSNAME_DOMAIN_MAX + 1);
    conf.addrRequests = in.U8();
    conf.domainRequests = in.U8();
    conf.flags = in.U8();
    const auto *b = reinterpret_cast<const uint8_t *>(&conf);
    return {b, b + sizeof conf};
}

// An entry request from its head fields; fill chooses the entries' contents
// (some of them unsound on purpose).
std::vector<uint8_t> EntryRequest(Input &in, bool addrs) {
    AgentAcsEntryHead head{};
    head.id = 7;
    std::snprintf(head.name, sizeof head.name, "n%u", in.U8() % 4);
    const uint32_t per = addrs ? ACSNAME_ADDRS_PER_REQUEST : ACSNAME_DOMAINS_PER_REQUEST;
    head.first = in.U16();
    head.count = Count(in, per, per + 1);
    const uint8_t fill = in.U8();
    const size_t itemSize = addrs ? sizeof(AgentAcsAddrEntry) : sizeof(AgentAcsDomainEntry);
    std::vector<uint8_t> out(sizeof head + head.count * itemSize);
    std::memcpy(out.data(), &head, sizeof head);
    for (uint32_t k = 0; k < head.count; ++k) {
        uint8_t *at = out.data() + sizeof head + k * itemSize;
        std::memcpy(at, &k, sizeof k);
        if (addrs) {
            at[4] = fill & 1;
            at[5] = fill >> 1;
            std::memcpy(at + 8, &k, sizeof k);
        } else if (fill == 0xFF) {
            std::memset(at + 4, 'x', ACSNAME_DOMAIN_LEN);
        } else {
            std::snprintf(reinterpret_cast<char *>(at + 4), ACSNAME_DOMAIN_LEN, "d%u", k);
        }
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ovfuzz::Init();
    Input in(data, size);
    SimContext ctx;
    for (int steps = 0; steps < 64 && !in.Empty(); ++steps) {
        const uint8_t op = in.U8() % 6;
        uint16_t function = op < 2 ? op : static_cast<uint16_t>(2 + (op & 1));
        std::vector<uint8_t> payload;
        if (op == 0) {
            payload = SetRecord(in);
        } else if (op == 1) {
            payload.assign(sizeof(AgentAcsNameConf), 0);
            std::snprintf(reinterpret_cast<char *>(payload.data() + 4), 8, "n%u", in.U8() % 4);
        } else if (op < 4) {
            payload = EntryRequest(in, op == 2);
        } else {
            const uint8_t *raw = nullptr;
            size_t n = in.Take(in.U16(), &raw);
            payload.assign(raw, raw + n);
        }
        ovfuzz::ExactBlock exact(payload.size(), payload.data(), payload.size());
        const std::span<const uint8_t> bytes(exact.Data(), exact.Size());
        json_object_put(SimDecodeRequest(6, function, bytes));
        const int32_t status = SimDispatch(ctx, 6, function, bytes).status;
        if (status != 0 && status != -22 && !(function == 1 && status == -2)) {
            ovfuzz::Fail("an access-name request answered an undocumented code",
                         std::to_string(status).c_str());
        }
    }
    return 0;
}
