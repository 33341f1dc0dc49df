// Tests of the simulator's access-name entry requests: when entries are
// stored, what is refused (and that the stored access name then stays as it
// was), deletes, and the state file.
#include "agentconf/acsname_entries.h"
#include "agentconf/json_conv.h"
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
};

/// An access name's set record and its entry requests, as pdtool sends them.
struct AcsName {
    Bytes record;
    std::vector<Req> entries;
};

class SimAcsName : public testing::Test {
  protected:
    void SetUp() override {
        ovtest::StdoutCapture quiet;
        ASSERT_GE(AgentMemModuleRegister(), 0);
    }
    void TearDown() override {
        ovtest::StdoutCapture quiet;
        AgentMemModuleUnregister();
    }

    static AcsName Make(const char *name, uint32_t addrs, uint32_t domains, uint8_t flags = 0) {
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
        for (uint32_t i = 0; i < addrs; ++i) {
            std::memcpy(a[i].addr, &i, sizeof i);
        }
        for (uint32_t i = 0; i < domains; ++i) {
            std::snprintf(d[i].domain, sizeof d[i].domain, "d%u.%s", i, name);
        }
        AcsName out;
        const auto *bytes = reinterpret_cast<const uint8_t *>(&conf);
        out.record.assign(bytes, bytes + sizeof conf);
        AgentAcsNameEntries entries{a.data(), d.data()};
        EXPECT_EQ(OV_AgentAcsNameSendEntries(
                      &conf, &entries,
                      [](uint16_t f, const void *p, uint32_t len, void *ctx) {
                          const auto *b = static_cast<const uint8_t *>(p);
                          static_cast<std::vector<Req> *>(ctx)->push_back({f, {b, b + len}});
                          return 0;
                      },
                      &out.entries),
                  0);
        return out;
    }
    int32_t Send(uint16_t function, const Bytes &payload) {
        return SimDispatch(ctx_, 6, function, payload).status;
    }
    void SendAll(const AcsName &n) {
        ASSERT_EQ(Send(0, n.record), 0);
        for (const Req &r : n.entries) {
            ASSERT_EQ(Send(r.function, r.payload), 0);
        }
    }
    /// The stored access name: its record and entry requests, or nothing.
    std::vector<Bytes> Stored() const {
        std::vector<Bytes> out;
        for (const auto &[key, rec] : ctx_.store.Table(RecordKind::AcsName)) {
            out.push_back(rec.bytes);
            for (const SimRecord &part : rec.parts) {
                out.push_back(part.bytes);
            }
        }
        return out;
    }
    static std::vector<Bytes> Whole(const AcsName &n) {
        std::vector<Bytes> out{n.record};
        for (const Req &r : n.entries) {
            out.push_back(r.payload);
        }
        return out;
    }

    SimContext ctx_;
};

TEST_F(SimAcsName, EntriesAreStoredWithTheirRecordWhenTheLastArrives) {
    const AcsName old = Make("office", 1, 0);
    SendAll(old);
    ASSERT_EQ(Stored(), Whole(old));

    const AcsName next = Make("office", 2727, 1, ACSNAME_FLAG_PERSISTENT);
    ASSERT_EQ(next.entries.size(), 3u);
    EXPECT_EQ(Send(0, next.record), 0);
    for (const Req &r : next.entries) {
        EXPECT_EQ(Stored(), Whole(old)); // the previous one until the last request
        SimResult result = SimDispatch(ctx_, 6, r.function, r.payload);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.persistentChanged, &r == &next.entries.back());
    }
    EXPECT_EQ(Stored(), Whole(next));
    // Journaled under pdtool's word, each request decoded.
    EXPECT_STREQ(SimCommandName(6, 3, next.entries[2].payload), "set_acsname");
    OV_JsonPtr decoded(SimDecodeRequest(6, 2, next.entries[1].payload));
    EXPECT_EQ(json_object_array_length(json_object_object_get(decoded.get(), "addresses")), 1u);

    // Set again without entries, the access name has none.
    const AcsName bare = Make("office", 0, 0);
    EXPECT_EQ(Send(0, bare.record), 0);
    EXPECT_EQ(Stored(), Whole(bare));
}

TEST_F(SimAcsName, RequestsThatDoNotContinueTheLastSetAreRefused) {
    const AcsName old = Make("office", 1, 1);
    SendAll(old);
    auto put = [](Req &r, size_t off, uint32_t v) { Put<uint32_t>(r.payload, off, v); };
    struct Case {
        const char *what;
        std::function<void(AcsName &)> spoil;
        size_t refused; ///< the request that must be refused (the ones before pass)
    };
    // 2727 addresses take two requests, then one of domains.
    const Case cases[] = {
        {"another id", [&](AcsName &n) { put(n.entries[0], 0, 8); }, 0},
        {"another name", [](AcsName &n) { n.entries[0].payload[5] ^= 1; }, 0},
        {"a gap", [](AcsName &n) { n.entries.erase(n.entries.begin()); }, 0},
        {"the domains first", [](AcsName &n) { std::swap(n.entries[0], n.entries[2]); }, 0},
        {"a count the size does not hold", [&](AcsName &n) { put(n.entries[0], 72, 2725); }, 0},
        {"a byte more", [](AcsName &n) { n.entries[0].payload.push_back(0); }, 0},
        {"fewer requests than announced",
         [](AcsName &n) { Put<uint64_t>(n.record, offsetof(AgentAcsNameConf, addrRequests), 3); },
         1},
        {"an IPv4 mask of 33", [](AcsName &n) { n.entries[1].payload[80 + 5] = 33; }, 1},
        {"an unknown family", [](AcsName &n) { n.entries[0].payload[80 + 4] = 2; }, 0},
        {"a domain without its NUL",
         [](AcsName &n) { std::memset(n.entries[2].payload.data() + 84, 'x', 252); }, 2},
        {"no set before", [](AcsName &n) { n.record.clear(); }, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        AcsName next = Make("office", 2727, 1);
        c.spoil(next);
        if (!next.record.empty()) {
            ASSERT_EQ(Send(0, next.record), 0);
        }
        for (size_t i = 0; i < c.refused; ++i) {
            EXPECT_EQ(Send(next.entries[i].function, next.entries[i].payload), 0) << i;
        }
        const Req &bad = next.entries[c.refused];
        EXPECT_EQ(Send(bad.function, bad.payload), -22);
        EXPECT_EQ(Stored(), Whole(old));
        // What was held is gone: the rest of the series is refused too.
        if (c.refused + 1 < next.entries.size()) {
            const Req &rest = next.entries[c.refused + 1];
            EXPECT_EQ(Send(rest.function, rest.payload), -22);
        }
    }
}

TEST_F(SimAcsName, RecordsAnnouncingNoSeriesOfRequestsAreRefused) {
    struct Case {
        uint32_t addrs;
        uint64_t addrRequests;
        uint32_t domains;
        uint64_t domainRequests;
    };
    const Case cases[] = {
        {4097, 2, 0, 0}, {0, 0, 4097, 17}, {1, 0, 0, 0}, {0, 0, 1, 2},
        {2727, 1, 0, 0}, {2, 3, 0, 0},     {0, 1, 0, 0}, {0, 0, 0, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.addrs) + "/" + std::to_string(c.addrRequests) + " " +
                     std::to_string(c.domains) + "/" + std::to_string(c.domainRequests));
        AcsName n = Make("office", 0, 0);
        Put<uint32_t>(n.record, offsetof(AgentAcsNameConf, addrNum), c.addrs);
        Put<uint32_t>(n.record, offsetof(AgentAcsNameConf, domainNum), c.domains);
        Put<uint64_t>(n.record, offsetof(AgentAcsNameConf, addrRequests), c.addrRequests);
        Put<uint64_t>(n.record, offsetof(AgentAcsNameConf, domainRequests), c.domainRequests);
        EXPECT_EQ(Send(0, n.record), -22);
        EXPECT_TRUE(Stored().empty());
    }
}

TEST_F(SimAcsName, DeleteRemovesTheEntriesAndTheStateKeepsThem) {
    const AcsName kept = Make("kept", 300, 300, ACSNAME_FLAG_PERSISTENT);
    SendAll(kept);
    SendAll(Make("gone", 1, 1, ACSNAME_FLAG_PERSISTENT));
    Bytes del(sizeof(AgentAcsNameConf), 0);
    std::memcpy(del.data() + 4, "gone", 4);
    EXPECT_EQ(Send(1, del), 0);
    ASSERT_EQ(Stored(), Whole(kept));
    // A delete of an access name whose entries are on the way drops them.
    const AcsName held = Make("gone", 1, 1);
    EXPECT_EQ(Send(0, held.record), 0);
    EXPECT_EQ(Send(1, del), -2);
    EXPECT_EQ(Send(held.entries[0].function, held.entries[0].payload), -22);

    const std::string text = SimStateText(ctx_.store);
    SimContext restored;
    std::string error;
    ASSERT_EQ(SimStateRestore(restored, text, &error), 0) << error;
    EXPECT_EQ(SimStateText(restored.store), text);
    // A state that stops inside an access name's requests is refused whole.
    const std::string cut = text.substr(0, text.rfind(",\n")) + "]}\n";
    EXPECT_EQ(SimStateRestore(restored, cut, &error), -22);
    EXPECT_EQ(SimStateText(restored.store), text);
}

} // namespace
