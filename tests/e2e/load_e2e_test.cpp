// pdtool under load against one agent: many runs from parallel workers, each
// answered and journaled exactly once; and a kill of the agent in the middle
// of persistent sets, after which every acknowledged set is still there.
#include "tests/e2e/e2e_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace e2e {
namespace {

constexpr const char *kSuccess = "Operation success\n";
constexpr int kWorkers = 8;
constexpr int kLoadRuns = 1000;

// The rate-limit id a journaled set_ratelimit payload carries (u32 at 0).
uint32_t RateLimitIdOf(const std::string &payloadHex) {
    uint32_t id = 0;
    for (int i = 3; i >= 0 && payloadHex.size() >= 8; --i) {
        id =
            (id << 8) | static_cast<uint32_t>(std::stoul(payloadHex.substr(2 * i, 2), nullptr, 16));
    }
    return id;
}

// Runs job(i) for i in [0, count) from kWorkers threads.
template <typename Job>
void RunParallel(int count, Job job) {
    std::atomic<int> next{0};
    std::vector<std::thread> workers;
    workers.reserve(kWorkers);
    for (int w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&] {
            for (int i = next++; i < count; i = next++) {
                job(i);
            }
        });
    }
    for (std::thread &t : workers) {
        t.join();
    }
}

using Load = AgentTest;

TEST_F(Load, ParallelRunsAreEachAnsweredAndJournaledOnce) {
    constexpr int kRuns = kLoadRuns;
    StartAgent();
    std::mutex lock;
    std::vector<std::string> failures;
    RunParallel(kRuns, [&](int i) {
        std::string word = "set_ratelimit/{\"RateLimitId\": " + std::to_string(i + 1) +
                           ", \"BucketRate\": 125000, \"CBS\": 250000}";
        PdtoolRun r = Pdtool({word});
        if (!r.finished || r.exitStatus != 0 || r.printed != kSuccess) {
            std::lock_guard<std::mutex> guard(lock);
            failures.push_back(word + " -> " + std::to_string(r.exitStatus) + ": " + r.out + r.why);
        }
    });
    EXPECT_TRUE(failures.empty()) << failures.size() << " runs failed, the first:\n"
                                  << (failures.empty() ? "" : failures.front());

    std::printf("load: %d runs from %d workers, %zu failed, %d starts made again\n", kRuns,
                kWorkers, failures.size(), startsRetried_.load());
    std::map<uint32_t, int> seen;
    for (const Request &q : Journal()) {
        EXPECT_EQ(q.command, "set_ratelimit");
        EXPECT_EQ(q.status, 0);
        ++seen[RateLimitIdOf(q.payloadHex)];
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kRuns));
    for (const auto &[id, times] : seen) {
        EXPECT_TRUE(id >= 1 && id <= kRuns && times == 1) << "id " << id << " journaled " << times;
    }
}

TEST_F(Load, AcknowledgedPersistentSetsSurviveAKillMidLoad) {
    constexpr int kSets = kLoadRuns / 4; // shaper ids from 1 (the table holds 255)
    constexpr int kKillAfter = kSets * 2 / 5;
    const std::string state = testing::TempDir() + Name() + ".state";
    std::remove(state.c_str());
    StartAgent({"--state", state});

    std::mutex lock;
    std::vector<int> acknowledged;
    std::atomic<int> started{0};
    std::thread killer([&] {
        // Killed without warning while sets are on their way.
        while (started.load() < kKillAfter) {
            std::this_thread::yield();
        }
        StopAgent();
    });
    RunParallel(kSets, [&](int i) {
        ++started;
        int id = i + 1;
        PdtoolRun r = Pdtool({"set_shaper_conf/{\"shaperId\": " + std::to_string(id) +
                              ", \"persistentFlag\": true, \"wanKbps\": 1000, \"wanInKbps\": "
                              "1000, \"inBurstMs\": 10, \"outBurstMs\": 10}"});
        if (r.finished && r.printed == kSuccess) {
            std::lock_guard<std::mutex> guard(lock);
            acknowledged.push_back(id);
        }
    });
    killer.join();
    ASSERT_FALSE(acknowledged.empty());
    EXPECT_LT(acknowledged.size(), static_cast<size_t>(kSets)) << "the kill came too late";

    StartAgent({"--state", state});
    // A delete succeeds only for a shaper the agent holds.
    std::vector<std::string> missing;
    RunParallel(static_cast<int>(acknowledged.size()), [&](int i) {
        std::string word = "del_shaper_conf/shaperId=" + std::to_string(acknowledged[i]);
        PdtoolRun r = Pdtool({word});
        if (r.printed != kSuccess) {
            std::lock_guard<std::mutex> guard(lock);
            missing.push_back(word + ": " + r.out);
        }
    });
    std::printf("durability: %zu of %d sets acknowledged around the kill, %zu of them gone\n",
                acknowledged.size(), kSets, missing.size());
    EXPECT_TRUE(missing.empty()) << missing.size() << " of " << acknowledged.size()
                                 << " acknowledged sets are gone, the first:\n"
                                 << (missing.empty() ? "" : missing.front());
    std::remove(state.c_str());
}

} // namespace
} // namespace e2e
