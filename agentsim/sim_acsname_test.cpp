// Tests of the simulator's access-name entry requests: when entries are
// stored, what is refused (the stored access name then stays as it was),
// deletes, and the state file.
#include "agentconf/acsname_entries.h"
#include "agentsim/sim_handlers.h"
#include "agentsim/sim_state.h"
#include "agentsim/sim_test_util.h"
#include "base/mem.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

namespace {

using simtest::Bytes;
using simtest::Put;

struct Req {
    uint16_t function;
    Bytes payload;
    bool operator==(const Req &) const = default;
};
/// An access name as pdtool sends it: the set record, then its entry requests.
using Series = std::vector<Req>;

int32_t Collect(uint16_t f, const void *p, uint32_t len, void *ctx) {
    const auto *b = static_cast<const uint8_t *>(p);
    static_cast<Series *>(ctx)->push_back({f, {b, b + len}});
    return 0;
}

Series Make(const char *name, uint32_t addrs, uint32_t domains, uint8_t flags = 0) {
    AgentAcsNameConf conf{};
    conf.id = 7;
    std::snprintf(conf.name, sizeof conf.name, "%s", name);
    conf.flags = flags;
    conf.addrNum = addrs;
    conf.domainNum = domains;
    conf.addrRequests = OV_AcsNameRequestCount(addrs, ACSNAME_ADDRS_PER_REQUEST);
    conf.domainRequests = OV_AcsNameRequestCount(domains, ACSNAME_DOMAINS_PER_REQUEST);
    std::vector<AgentAcsAddrEntry> a(addrs, AgentAcsAddrEntry{0, 0, 32, {}, {}});
    std::vector<AgentAcsDomainEntry> d(domains);
    for (uint32_t i = 0; i < std::max(addrs, domains); ++i) {
        if (i < addrs) {
            std::memcpy(a[i].addr, &i, sizeof i);
        }
        if (i < domains) {
            std::snprintf(d[i].domain, sizeof d[i].domain, "d%u.%s", i, name);
        }
    }
    const auto *bytes = reinterpret_cast<const uint8_t *>(&conf);
    Series out = {{0, {bytes, bytes + sizeof conf}}};
    AgentAcsNameEntries entries{a.data(), d.data()};
    ovtest::StdoutCapture quiet;
    AgentMemModuleRegister();
    EXPECT_EQ(OV_AgentAcsNameSendEntries(&conf, &entries, Collect, &out), 0);
    AgentMemModuleUnregister();
    return out;
}

class SimAcsName : public testing::Test {
  protected:
    int32_t Send(const Req &r) { return SimDispatch(ctx_, 6, r.function, r.payload).status; }
    void SendAll(const Series &s) {
        for (const Req &r : s) {
            ASSERT_EQ(Send(r), 0);
        }
    }
    /// The stored access names: each record followed by its entry requests.
    Series Stored() const {
        Series out;
        for (const auto &[key, rec] : ctx_.store.Table(RecordKind::AcsName)) {
            out.push_back({rec.function, rec.bytes});
            for (const SimRecord &part : rec.parts) {
                out.push_back({part.function, part.bytes});
            }
        }
        return out;
    }
    SimContext ctx_;
};

TEST_F(SimAcsName, EntriesAreStoredWithTheirRecordWhenTheLastArrives) {
    const Series old = Make("office", 1, 0);
    SendAll(old);
    const Series next = Make("office", 2727, 1, ACSNAME_FLAG_PERSISTENT);
    ASSERT_EQ(next.size(), 4u);
    for (const Req &r : next) {
        EXPECT_EQ(Stored(), old); // the previous one until the last request
        SimResult result = SimDispatch(ctx_, 6, r.function, r.payload);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.persistentChanged, &r == &next.back());
    }
    EXPECT_EQ(Stored(), next);
    EXPECT_STREQ(SimCommandName(6, 3, next[3].payload), "set_acsname");

    const Series bare = Make("office", 0, 0); // set again without entries: none
    SendAll(bare);
    EXPECT_EQ(Stored(), bare);
}

TEST_F(SimAcsName, RequestsThatDoNotContinueTheLastSetAreRefused) {
    const Series old = Make("office", 1, 1);
    SendAll(old);
    struct Case {
        const char *what;
        std::function<void(Series &)> spoil;
        size_t refused; ///< the request that must be refused (the ones before pass)
    };
    // 2727 addresses take two requests, then one of domains.
    const Case cases[] = {
        {"another id", [](Series &s) { Put<uint32_t>(s[1].payload, 0, 8); }, 1},
        {"another name", [](Series &s) { s[1].payload[5] ^= 1; }, 1},
        {"a gap", [](Series &s) { s.erase(s.begin() + 1); }, 1},
        {"the domains first", [](Series &s) { std::swap(s[1], s[3]); }, 1},
        {"a count the size does not hold", [](Series &s) { Put<uint32_t>(s[1].payload, 72, 2725); },
         1},
        {"fewer requests than announced",
         [](Series &s) {
             Put<uint64_t>(s[0].payload, offsetof(AgentAcsNameConf, addrRequests), 3);
         },
         2},
        {"an IPv4 mask of 33", [](Series &s) { s[2].payload[80 + 5] = 33; }, 2},
        {"an unknown family", [](Series &s) { s[1].payload[80 + 4] = 2; }, 1},
        {"a domain without its NUL", [](Series &s) { std::memset(&s[3].payload[84], 'x', 252); },
         3},
        {"no set before", [](Series &s) { s.erase(s.begin()); }, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Series next = Make("office", 2727, 1);
        c.spoil(next);
        for (size_t i = 0; i < c.refused; ++i) {
            EXPECT_EQ(Send(next[i]), 0) << i;
        }
        EXPECT_EQ(Send(next[c.refused]), -22);
        EXPECT_EQ(Stored(), old);
        if (c.refused + 1 < next.size()) { // nothing is held any more
            EXPECT_EQ(Send(next[c.refused + 1]), -22);
        }
    }
    // Records whose counts announce no series at all.
    const std::pair<size_t, uint64_t> counts[] = {{offsetof(AgentAcsNameConf, addrNum), 4097},
                                                  {offsetof(AgentAcsNameConf, addrNum), 1},
                                                  {offsetof(AgentAcsNameConf, addrRequests), 1},
                                                  {offsetof(AgentAcsNameConf, domainRequests), 2}};
    for (const auto &[offset, value] : counts) {
        SCOPED_TRACE(offset);
        Series next = Make("office", 2727, 1);
        if (offset < offsetof(AgentAcsNameConf, addrRequests)) {
            Put<uint32_t>(next[0].payload, offset, static_cast<uint32_t>(value));
        } else {
            Put<uint64_t>(next[0].payload, offset, value);
        }
        EXPECT_EQ(Send(next[0]), -22);
        EXPECT_EQ(Stored(), old);
    }
}

TEST_F(SimAcsName, DeleteRemovesTheEntriesAndTheStateKeepsThem) {
    const Series kept = Make("kept", 300, 300, ACSNAME_FLAG_PERSISTENT);
    SendAll(kept);
    SendAll(Make("gone", 1, 1, ACSNAME_FLAG_PERSISTENT));
    Req del{1, Bytes(sizeof(AgentAcsNameConf), 0)};
    std::memcpy(del.payload.data() + 4, "gone", 4);
    EXPECT_EQ(Send(del), 0);
    ASSERT_EQ(Stored(), kept);
    // A delete of an access name whose entries are on the way drops them.
    const Series held = Make("gone", 1, 1);
    EXPECT_EQ(Send(held[0]), 0);
    EXPECT_EQ(Send(del), -2);
    EXPECT_EQ(Send(held[1]), -22);

    // Read back whole end to end; a state that stops inside an access name's
    // requests is refused and changes nothing.
    const std::string text = SimStateText(ctx_.store);
    std::string error;
    EXPECT_EQ(SimStateRestore(ctx_, text.substr(0, text.rfind(",\n")) + "]}\n", &error), -22);
    EXPECT_EQ(error, "the last access name lacks entry requests");
    EXPECT_EQ(Stored(), kept);
}

} // namespace
