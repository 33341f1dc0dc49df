// Tests of the state file: what it keeps, how it is read back, what it
// refuses, and that the agent writes it before answering.
#include "agentsim/sim_state.h"

#include "agentsim/sim_server.h"
#include "agentsim/sim_test_util.h"
#include "tests/support/capture.h"
#include "tests/support/process.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using simtest::Bytes;
using simtest::Shaper;

// Which byte of each kind holds the persistent flag is pinned by the
// protocol table's tests; here, that the first and the last kind that can be
// kept are, and that a rule never is.
TEST(SimState, KeepsExactlyThePersistentRecords) {
    const Bytes linkIp = ovtest::RecordBytes<36>().U8(2, 0x01).bytes;
    const std::pair<const char *, Bytes> sets[] = {
        {"set_cpe_ip", linkIp},
        {"set_cpe_ip", ovtest::RecordBytes<36>().U8(8, 1).bytes},
        {"set_shaper_conf", Shaper(1, 1)},
        {"set_shaper_conf", Shaper(2)},
        {"set_snat", Bytes(17528, 0xFF)}};
    SimContext ctx;
    for (const auto &[word, rec] : sets) {
        ASSERT_EQ(simtest::Send(ctx, word, rec).status, 0) << word;
    }
    const std::string text = SimStateText(ctx.store);
    SimContext restored;
    std::string error;
    ASSERT_EQ(SimStateRestore(restored, text, &error), 0) << error;
    std::vector<const SimRecord *> kept = SimPersistentRecords(restored.store);
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0]->bytes, linkIp);
    EXPECT_EQ(kept[1]->bytes, Shaper(1, 1));
    EXPECT_TRUE(restored.store.Table(RecordKind::Rule).empty());
    // Written again, the restored store gives the same text; records are named.
    EXPECT_EQ(SimStateText(restored.store), text);
    EXPECT_NE(text.find(R"("function": 1, "command": "set_shaper_conf", )"), std::string::npos);
}

TEST(SimState, RefusesTextsItDidNotWrite) {
    SimContext source;
    ASSERT_EQ(SimDispatch(source, 15, 1, Shaper(3, 1)).status, 0);
    const std::string good = SimStateText(source.store);
    const std::string hex = good.substr(good.find("\"payload\": \"") + 12, 448);
    auto withPayload = [&](const std::string &payload, int module = 15, int function = 1) {
        return "{\"agentsim_state\": 1, \"records\": [{\"module\": " + std::to_string(module) +
               ", \"function\": " + std::to_string(function) + ", \"payload\": \"" + payload +
               "\"}]}";
    };
    const std::string bad[] = {
        "not json",
        good + "x",
        "{\"agentsim_state\": 2, \"records\": []}",
        "{\"agentsim_state\": 1, \"records\": {}}",
        "{\"agentsim_state\": 1, \"records\": [1]}",
        withPayload(hex.substr(0, 446)),                      // a byte short
        withPayload(hex + "0"),                               // half a byte
        withPayload(hex.substr(0, 446) + "zz"),               // not hex
        withPayload(hex, 15, 2),                              // a delete
        withPayload(hex, 15, 70000),                          // no such function
        withPayload(hex, 300, 1),                             // no such module
        withPayload(hex.substr(0, 2) + "00" + hex.substr(4)), // flag cleared
    };
    for (const std::string &text : bad) {
        SCOPED_TRACE(text.substr(0, 120));
        SimContext ctx;
        ASSERT_EQ(SimDispatch(ctx, 15, 1, Shaper(7, 1)).status, 0);
        std::string error;
        EXPECT_EQ(SimStateRestore(ctx, text, &error), -22);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(ctx.store.Table(RecordKind::Shaper).size(), 1u); // left as it was
    }
    SimContext ctx;
    std::string error;
    EXPECT_EQ(SimStateRestore(ctx, withPayload(hex), &error), 0) << error;
}

TEST(SimState, AgentWritesTheFileBeforeItAnswers) {
    ovtest::ScopedTempDir dir("state");
    const std::string path = dir.File("state.json");
    SimAgent agent(AgentSaClusterInfo{}, SimFaults{}, path, nullptr);
    // Passing records leave the file alone: it is not even created.
    EXPECT_EQ(agent.Answer(15, 1, Shaper(1, 0)).status, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    // What it writes is read back end to end, after a restart or a kill.
    EXPECT_EQ(agent.Answer(15, 1, Shaper(2, 1)).status, 0);
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(SimState, AFailedWriteIsAnswered) {
    ovtest::ScopedTempDir dir("state");
    // The state file's directory does not exist: the write fails.
    SimAgent agent(AgentSaClusterInfo{}, SimFaults{}, dir.File("missing") + "/state.json", nullptr);
    ovtest::StdoutCapture log;
    EXPECT_LT(agent.Answer(15, 1, Shaper(2, 1)).status, 0);
    EXPECT_NE(log.Take().find("Failed to write the state file"), std::string::npos);
}

} // namespace
