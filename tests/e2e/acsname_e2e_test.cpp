// Access names end to end: the largest access name one command line carries
// and a full one through pdctl, as agentsim receives, journals and keeps them.
#include "agentconf/acsname_entries.h"
#include "agentconf/json_conv.h"
#include "tests/e2e/e2e_support.h"

#include <json-c/json.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace e2e {
namespace {

// The room for the argument on one command line: on Linux one argument holds
// at most 131072 bytes with its NUL; on Windows the whole command line holds
// at most 32767 characters with its NUL, the program's path and the quoting
// included, each quote of the argument going as \" (tests/support/process_win32.cpp).
#ifdef _WIN32
constexpr size_t kQuoteCost = 2;
size_t ArgumentRoom() {
    std::string program = ovtest::NativePath(OV_PDTOOL_PATH);
    return 32767 - 1 - program.size() - (program.find(' ') != std::string::npos ? 2 : 0) - 3;
}
#else
constexpr size_t kQuoteCost = 1;
size_t ArgumentRoom() {
    return 131072 - 1;
}
#endif

size_t Cost(const std::string &text) {
    return text.size() +
           (kQuoteCost - 1) * static_cast<size_t>(std::count(text.begin(), text.end(), '"'));
}

struct Largest {
    std::string arg;
    std::vector<std::string> addrs; ///< as the journal shows them
    std::vector<std::string> domains;
};

// Distinct addresses in up to half the room, then distinct domains, at most
// 4096 of each; the last domains are lengthened until the room is used up.
Largest LargestAccessName(size_t room) {
    const std::string head = R"(set_acsname/{"id": 9, "ascname": "largest", "version": 1, )"
                             R"("persistentFlag": true, "iplist": [)";
    Largest out;
    size_t used = Cost(head + R"(], "domainlist": []})");
    auto add = [&](std::vector<std::string> &list, const std::string &text, size_t limit) {
        size_t cost = Cost("\"" + text + "\"") + (list.empty() ? 0 : 1);
        if (list.size() == ACSNAME_ADDR_MAX || used + cost > limit) {
            return false;
        }
        used += cost;
        list.push_back(text);
        return true;
    };
    for (uint32_t i = 0;
         add(out.addrs, "10.0." + std::to_string(i >> 8) + "." + std::to_string(i & 255), room / 2);
         ++i) {
    }
    for (uint32_t i = 0; add(out.domains, "d" + std::to_string(i), room); ++i) {
    }
    for (auto it = out.domains.rbegin(); it != out.domains.rend() && used < room; ++it) {
        size_t more = std::min(room - used, ACSNAME_DOMAIN_LEN - 1 - it->size());
        it->append(more, 'x');
        used += more;
    }
    auto join = [](const std::vector<std::string> &list) {
        std::string text;
        for (const std::string &item : list) {
            text += (text.empty() ? "\"" : ",\"") + item + "\"";
        }
        return text;
    };
    out.arg = head + join(out.addrs) + R"(], "domainlist": [)" + join(out.domains) + "]}";
    for (std::string &addr : out.addrs) {
        addr += "/32";
    }
    return out;
}

std::vector<std::string> Payloads(const std::vector<Request> &requests) {
    std::vector<std::string> out;
    out.reserve(requests.size());
    for (const Request &r : requests) {
        out.push_back(std::to_string(r.module) + ":" + std::to_string(r.function) + " " +
                      r.payloadHex);
    }
    return out;
}

class AccessNames : public AgentTest {
  protected:
    void SetUp() override {
        state_ = testing::TempDir() + Name() + ".state";
        std::remove(state_.c_str());
        StartAgent({"--state", state_});
    }
    void TearDown() override {
        AgentTest::TearDown();
        std::remove(state_.c_str());
    }
    // The requests the state file keeps, as Payloads shows them.
    std::vector<std::string> State() const {
        std::vector<Request> out;
        json_object *root = json_tokener_parse(ovtest::ReadWholeFile(state_).c_str());
        json_object *records = json_object_object_get(root, "records");
        for (size_t i = 0; i < json_object_array_length(records); ++i) {
            json_object *rec = json_object_array_get_idx(records, i);
            out.push_back({json_object_get_int(json_object_object_get(rec, "module")),
                           json_object_get_int(json_object_object_get(rec, "function")), "", 0,
                           json_object_get_string(json_object_object_get(rec, "payload"))});
        }
        json_object_put(root);
        return Payloads(out);
    }
    // The journal's entry requests carried every address and domain in
    // order, in `requests` requests with the record's, and the state keeps them.
    void ExpectArrivedWhole(const Largest &sent, size_t requests) {
        std::vector<std::string> seen[2];
        const std::vector<Request> journal = Journal();
        for (const Request &q : journal) {
            OV_JsonPtr rec(json_tokener_parse(q.record.c_str()));
            json_object *list = nullptr;
            const bool isAddr = json_object_object_get_ex(rec.get(), "addresses", &list);
            if (isAddr || json_object_object_get_ex(rec.get(), "domains", &list)) {
                for (size_t i = 0; i < json_object_array_length(list); ++i) {
                    json_object *entry = json_object_array_get_idx(list, i);
                    seen[isAddr ? 0 : 1].push_back(json_object_get_string(
                        json_object_object_get(entry, isAddr ? "ip" : "domain")));
                }
            }
        }
        EXPECT_EQ(seen[0], sent.addrs);
        EXPECT_EQ(seen[1], sent.domains);
        EXPECT_EQ(journal.size(), requests);
        EXPECT_EQ(State(), Payloads(journal));
    }
    std::string state_;
};

TEST_F(AccessNames, LargestThatOneCommandLineCarriesArrivesWholeAndSurvivesARestart) {
    const Largest big = LargestAccessName(ArgumentRoom());
    ASSERT_EQ(Cost(big.arg), ArgumentRoom());
    PdtoolRun r = Pdtool({big.arg});
    ASSERT_EQ(r.printed, "Operation success\n") << r.why;
    ExpectArrivedWhole(big,
                       1 + (big.addrs.size() + 2725) / 2726 + (big.domains.size() + 254) / 255);

    // Restarted on its state, the agent has the whole access name: a later
    // change rewrites the file with every entry request still in it.
    const std::vector<std::string> before = State();
    StopAgent();
    StartAgent({"--state", state_});
    EXPECT_EQ(Pdtool({R"(set_ratelimit/{"RateLimitId": 1, "PersistentFlag": true})"}).printed,
              "Operation success\n");
    std::vector<std::string> kept = State();
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(std::vector<std::string>(kept.begin() + 1, kept.end()), before);
}

// pdctl reads files, so no command-line limit applies: a full access name.
TEST_F(AccessNames, AFullAccessNameThroughPdctlApplyArrivesWhole) {
    const Largest full = LargestAccessName(size_t{4} << 20);
    ASSERT_EQ(full.addrs.size(), ACSNAME_ADDR_MAX);
    ASSERT_EQ(full.domains.size(), ACSNAME_DOMAIN_MAX);
    const std::string file = testing::TempDir() + Name() + ".conf";
    std::ofstream(file, std::ios::binary) << full.arg << "\n";
    ovtest::ProcessResult r =
        ovtest::RunProcess({ovtest::NativePath(OV_PDCTL_PATH), "apply", file}, 120000, PdtoolEnv());
    std::remove(file.c_str());
    ASSERT_EQ(r.exitStatus, 0) << r.out << r.err;
    EXPECT_NE(r.out.find(": set_acsname: ok\n1 applied, 0 failed, 0 not run\n"), std::string::npos)
        << r.out;
    ExpectArrivedWhole(full, 1 + 2 + 17); // 2726 addresses and 255 domains a request
}

} // namespace
} // namespace e2e
