// Tests of the state file: what it keeps, how it is read back, what it
// refuses, and that the agent writes it before answering.
#include "agentsim/sim_state.h"

#include "agentconf/records.h"

#include "agentsim/sim_server.h"
#include "agentsim/sim_test_util.h"
#include "tests/support/capture.h"
#include "tests/support/process.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using simtest::Bytes;
using simtest::Shaper;

// The set command's record of a kind that has the persistent flag: zero but
// the flag (if kept) and a byte of its key.
Bytes Set(const CommandSpec &set, bool kept, uint8_t id) {
    const OV_RecordSpec &kindInfo = OV_RecordSpecOf(set.kind);
    Bytes rec(kindInfo.size, 0);
    for (size_t i = 0; kept && i < kindInfo.flagSize; ++i) {
        rec[kindInfo.flagOffset + i] = static_cast<uint8_t>(kindInfo.flagMask >> (8 * i));
    }
    rec[kindInfo.key[kindInfo.keyFields - 1].offset] = id;
    return rec;
}

// A store with a persistent and a passing record of each set command whose
// kind has the flag (an access name without entries is stored at once), and
// records of the kinds never kept.
SimContext Filled() {
    SimContext ctx;
    uint8_t id = 1;
    for (const CommandSpec &c : kCommands) {
        if (c.op == CmdOp::Set && OV_RecordSpecOf(c.kind).flagMask != 0) {
            for (bool persistent : {true, false}) {
                EXPECT_EQ(SimDispatch(ctx, c.Module(), c.function, Set(c, persistent, id++)).status,
                          0)
                    << c.word;
            }
        }
    }
    for (const char *never : {"set_snat", "set_engine_srtt", "set_conn_cmd"}) {
        EXPECT_EQ(
            simtest::Send(ctx, never, Bytes(OV_RequestSize(simtest::Cmd(never)), 0xFF)).status, 0);
    }
    return ctx;
}

TEST(SimState, KeepsExactlyThePersistentRecords) {
    SimContext ctx = Filled();
    std::string text = SimStateText(ctx.store);
    SimContext restored;
    std::string error;
    ASSERT_EQ(SimStateRestore(restored, text, &error), 0) << error;
    std::vector<const SimRecord *> want = SimPersistentRecords(ctx.store);
    std::vector<const SimRecord *> got = SimPersistentRecords(restored.store);
    ASSERT_EQ(want.size(), 7u);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i]->bytes, want[i]->bytes);
        EXPECT_EQ(got[i]->module, want[i]->module);
        EXPECT_EQ(got[i]->function, want[i]->function);
    }
    for (RecordKind never : {RecordKind::Rule, RecordKind::Engine, RecordKind::GlobalArg}) {
        EXPECT_FALSE(ctx.store.Table(never).empty());
        EXPECT_TRUE(restored.store.Table(never).empty());
    }
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
        "{\"records\": []}",
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
    EXPECT_EQ(agent.Answer(15, 1, Shaper(2, 1)).status, 0);
    SimContext onDisk;
    std::string error;
    ASSERT_EQ(SimStateLoad(onDisk, path, &error), 0) << error;
    ASSERT_EQ(SimPersistentRecords(onDisk.store).size(), 1u);
    EXPECT_EQ(SimPersistentRecords(onDisk.store)[0]->bytes, Shaper(2, 1));
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
