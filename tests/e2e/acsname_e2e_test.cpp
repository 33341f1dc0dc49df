// Access names end to end: the record and its entry requests as agentsim
// receives, journals and keeps them, the largest access name one command
// line carries, and a refusal halfway through.
#include "agentconf/acsname_entries.h"
#include "tests/e2e/e2e_support.h"

#include <json-c/json.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace e2e {
namespace {

constexpr const char *kReadmeExample =
    R"(set_acsname/{"id": 5, "ascname": "corp", "version": 1, "persistentFlag": true, )"
    R"("iplist": ["10.1.0.0/16"], "domainlist": ["example.com"]})";

// The argument room of one command line: on Linux one argument holds at most
// 131072 bytes with its NUL; on Windows the whole command line, program path
// and quoting included, at most 32767 characters with its NUL, and each quote
// of the argument goes as \" (see tests/support/process_win32.cpp).
#ifdef _WIN32
constexpr size_t kQuoteCost = 2;
size_t ArgumentRoom(const std::string &program) {
    bool quoted = program.find(' ') != std::string::npos;
    return 32767 - 1 - program.size() - (quoted ? 2 : 0) - 1 - 2;
}
#else
constexpr size_t kQuoteCost = 1;
size_t ArgumentRoom(const std::string & /*program*/) {
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

// Distinct addresses in half the room (at most 4096), then distinct domains
// (at most 4096), the last ones lengthened until not a character is left.
Largest LargestAccessName(size_t room) {
    const std::string open = R"(set_acsname/{"id": 9, "ascname": "largest", "version": 1, )"
                             R"("persistentFlag": true, "iplist": [)";
    const std::string middle = R"(], "domainlist": [)";
    const std::string close = "]}";
    Largest out;
    size_t used = Cost(open + middle + close);
    auto fits = [&](const std::string &piece, size_t limit) { return used + Cost(piece) <= limit; };
    while (out.addrs.size() < ACSNAME_ADDR_MAX) {
        uint32_t i = static_cast<uint32_t>(out.addrs.size());
        std::string ip = "10." + std::to_string(i >> 16) + "." + std::to_string((i >> 8) & 255) +
                         "." + std::to_string(i & 255);
        std::string piece = std::string(i > 0 ? "," : "") + "\"" + ip + "\"";
        if (!fits(piece, room / 2)) {
            break;
        }
        used += Cost(piece);
        out.addrs.push_back(ip);
    }
    while (out.domains.size() < ACSNAME_DOMAIN_MAX) {
        std::string name = "d" + std::to_string(out.domains.size());
        std::string piece = std::string(out.domains.empty() ? "" : ",") + "\"" + name + "\"";
        if (!fits(piece, room)) {
            break;
        }
        used += Cost(piece);
        out.domains.push_back(name);
    }
    for (auto it = out.domains.rbegin(); it != out.domains.rend() && used < room; ++it) {
        size_t more = std::min(room - used, ACSNAME_DOMAIN_LEN - 1 - it->size());
        it->append(more, 'x');
        used += more;
    }
    out.arg = open;
    for (size_t i = 0; i < out.addrs.size(); ++i) {
        out.arg += (i > 0 ? ",\"" : "\"") + out.addrs[i] + "\"";
        out.addrs[i] += "/32";
    }
    out.arg += middle;
    for (size_t i = 0; i < out.domains.size(); ++i) {
        out.arg += (i > 0 ? ",\"" : "\"") + out.domains[i] + "\"";
    }
    out.arg += close;
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

    // The requests the state file keeps, in order.
    std::vector<Request> State() const {
        std::ifstream in(state_, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        std::vector<Request> out;
        json_object *root = json_tokener_parse(text.str().c_str());
        json_object *records = json_object_object_get(root, "records");
        for (size_t i = 0; i < json_object_array_length(records); ++i) {
            json_object *rec = json_object_array_get_idx(records, i);
            Request r;
            r.module = json_object_get_int(json_object_object_get(rec, "module"));
            r.function = json_object_get_int(json_object_object_get(rec, "function"));
            r.payloadHex = json_object_get_string(json_object_object_get(rec, "payload"));
            out.push_back(r);
        }
        json_object_put(root);
        return out;
    }

    std::string state_;
};

std::vector<std::string> Payloads(const std::vector<Request> &requests) {
    std::vector<std::string> out;
    out.reserve(requests.size());
    for (const Request &r : requests) {
        out.push_back(std::to_string(r.module) + ":" + std::to_string(r.function) + " " +
                      r.payloadHex);
    }
    return out;
}

TEST_F(AccessNames, ReadmeExampleArrivesWholeAndTheSameOnEveryRun) {
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(Pdtool(kReadmeExample).printed, "Operation success\n");
    }
    const Record record = Record(4480)
                              .U32(0, 5)
                              .Text(4, "corp")
                              .U8(68, 1)
                              .U64(72, 1)
                              .U32(80, 1)
                              .U32(84, 1)
                              .U64(88, 1)
                              .U64(96, 1);
    const Record addr =
        Record(104).U32(0, 5).Text(4, "corp").U32(72, 1).U8(85, 16).U32(88, 0x0A010000);
    const Record domain = Record(336).U32(0, 5).Text(4, "corp").U32(72, 1).Text(84, "example.com");
    const std::vector<std::string> once = {"6:0 " + record.Hex(), "6:2 " + addr.Hex(),
                                           "6:3 " + domain.Hex()};
    std::vector<Request> journal = Journal();
    ASSERT_EQ(journal.size(), 6u);
    EXPECT_EQ(Payloads({journal.begin(), journal.begin() + 3}), once);
    EXPECT_EQ(Payloads({journal.begin() + 3, journal.end()}), once);
    EXPECT_EQ(
        journal[1].record,
        R"({"id":5,"ascname":"corp","first":0,"count":1,"addresses":[{"id":0,"ip":"10.1.0.0/16"}]})");
    EXPECT_EQ(
        journal[2].record,
        R"({"id":5,"ascname":"corp","first":0,"count":1,"domains":[{"id":0,"domain":"example.com"}]})");
    EXPECT_EQ(Payloads(State()), once);

    EXPECT_EQ(Pdtool("del_acsname/name=corp").printed, "Operation success\n");
    EXPECT_TRUE(State().empty());
}

TEST_F(AccessNames, LargestThatOneCommandLineCarriesArrivesWholeAndSurvivesARestart) {
    const Largest big = LargestAccessName(ArgumentRoom(ovtest::NativePath(OV_PDTOOL_PATH)));
    ASSERT_EQ(Cost(big.arg), ArgumentRoom(ovtest::NativePath(OV_PDTOOL_PATH)));
    PdtoolRun r = Pdtool(big.arg.c_str());
    ASSERT_EQ(r.printed, "Operation success\n") << r.why;

    std::vector<std::string> addrs;
    std::vector<std::string> domains;
    std::vector<Request> journal = Journal();
    for (const Request &q : journal) {
        json_object *rec = json_tokener_parse(q.record.c_str());
        json_object *list = nullptr;
        bool isAddr = json_object_object_get_ex(rec, "addresses", &list);
        if (isAddr || json_object_object_get_ex(rec, "domains", &list)) {
            for (size_t i = 0; i < json_object_array_length(list); ++i) {
                json_object *entry = json_object_array_get_idx(list, i);
                (isAddr ? addrs : domains)
                    .push_back(json_object_get_string(
                        json_object_object_get(entry, isAddr ? "ip" : "domain")));
            }
        }
        json_object_put(rec);
    }
    EXPECT_EQ(addrs, big.addrs);
    EXPECT_EQ(domains, big.domains);
    const size_t requests =
        1 +
        OV_AcsNameRequestCount(static_cast<uint32_t>(big.addrs.size()), ACSNAME_ADDRS_PER_REQUEST) +
        OV_AcsNameRequestCount(static_cast<uint32_t>(big.domains.size()),
                               ACSNAME_DOMAINS_PER_REQUEST);
    EXPECT_EQ(journal.size(), requests);
    EXPECT_EQ(Payloads(State()), Payloads(journal));

    // Restarted on its state, the agent has the whole access name: a later
    // change rewrites the file with every entry request still in it.
    StopAgent();
    StartAgent({"--state", state_});
    EXPECT_EQ(Pdtool(R"(set_ratelimit/{"RateLimitId": 1, "PersistentFlag": true})").printed,
              "Operation success\n");
    std::vector<std::string> kept = Payloads(State());
    ASSERT_EQ(kept.size(), requests + 1);
    EXPECT_EQ(std::vector<std::string>(kept.begin() + 1, kept.end()), Payloads(journal));
}

TEST_F(AccessNames, AFailureHalfwayEndsTheCommandWithItsCodeAndSendsNoMore) {
    std::string arg =
        R"(set_acsname/{"id": 3, "version": 1, "iplist": ["1.1.1.1"], "domainlist": [)";
    for (int i = 0; i < 300; ++i) {
        arg += (i > 0 ? ",\"d" : "\"d") + std::to_string(i) + "\"";
    }
    arg += "]}";
    struct Case {
        const char *option;
        const char *fault;
        const char *printed;
    };
    // The second entry request (the first of two domain requests) fails.
    const Case cases[] = {
        {"--fault-status", "status", "Operation failed ret = -5 (Input/output error)"},
        {"--fault-close", "close", "Operation failed ret = -32 (Broken pipe)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.option);
        StopAgent();
        StartAgent({c.option, std::string("6:3") + (c.fault[0] == 's' ? "=-5" : "")});
        PdtoolRun r = Pdtool(arg.c_str());
        EXPECT_EQ(r.printed, c.printed) << r.out;
        std::vector<Request> journal = Journal();
        ASSERT_EQ(journal.size(), 3u);
        EXPECT_EQ(journal[1].function, 2);
        EXPECT_EQ(journal[2].function, 3);
        EXPECT_EQ(journal[2].fault, c.fault);
    }
}

} // namespace
} // namespace e2e
