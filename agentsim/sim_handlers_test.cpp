// Tests of the simulator's module handlers: slots, sizes, keys, replace and
// delete, the get replies, persistence and the names the journal shows.
#include "agentconf/records.h"
#include "agentsim/sim_handlers.h"
#include "agentsim/sim_test_util.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using simtest::Bytes;
using simtest::Cmd;
using simtest::Put;
using simtest::Send;
using simtest::Shaper;

TEST(SimHandlers, EveryFunctionRefusesAPayloadOfAnotherSize) {
    for (const CommandSpec &cmd : kCommands) {
        SCOPED_TRACE(cmd.word);
        SimContext ctx;
        size_t size = OV_RequestSize(cmd);
        if (size > 0) {
            EXPECT_EQ(SimDispatch(ctx, cmd.Module(), cmd.function, Bytes(size - 1, 0)).status, -22);
        }
        SimResult longer = SimDispatch(ctx, cmd.Module(), cmd.function, Bytes(size + 1, 0));
        EXPECT_EQ(longer.status, -22);
        EXPECT_TRUE(longer.reply.empty());
    }
}

TEST(SimHandlers, ModulesWithoutAHandlerAndUnknownFunctionsAnswerMinus40) {
    SimContext ctx;
    struct Fn {
        uint8_t module;
        uint16_t function;
        size_t size;
    };
    // Modules 9 and 200 have no handler; the others no such function (a rule
    // function names a table and an operation).
    const Fn unknown[] = {{9, 1, 72},         {200, 1, 72},       {3, 7, 36},
                          {4, 0x0500, 17528}, {4, 0x0003, 17528}, {15, 8, 0}};
    for (const Fn &fn : unknown) {
        SimResult r = SimDispatch(ctx, fn.module, fn.function, Bytes(fn.size, 0));
        EXPECT_EQ(r.status, -40) << int(fn.module) << ":" << fn.function;
        EXPECT_TRUE(r.reply.empty());
    }
}

// Little-endian 32-bit values at offsets of a zeroed record.
struct Field {
    size_t offset;
    uint32_t value;
};

// One kind's set and delete: the key fields of both (with other, the first
// field's value in another key), fields only the set or the delete carries,
// and a byte outside the key that tells two versions of the record apart.
struct KindCase {
    const char *set;
    const char *del;
    std::vector<Field> key;
    uint32_t other;
    size_t payloadByte;
    std::vector<Field> setOnly = {};
    std::vector<Field> delOnly = {};
};

const KindCase kKinds[] = {
    {"set_cpe_ip", "del_cpe_ip", {{12, 9}, {8, 70000}, {0, 0x0301}}, 10, 16},
    // The type (byte 0) keeps a POP address apart from a CPE one.
    {"set_pop_ip", "del_pop_ip", {{0, 0x0202}, {8, 3}}, 0x0201, 16},
    {"set_link", "del_link", {{0, 44}, {4, 0x123456}}, 45, 12},
    {"set_tunnel",
     "del_tunnel",
     {{4, (44u << 24) | (5u << 21) | 0x1FFFFF}},
     (44u << 24) | (5u << 21) | 0x1FFFFE,
     0,
     {},
     {{548, ~0u}, {552, ~0u}}}, // the all-ones stamp
    {"set_ratelimit", "del_ratelimit", {{0, 7}}, 8, 12},
    // The names "off" and "pff"; the id and bytes past the name's end are no part of the key.
    {"set_acsname", "del_acsname", {{4, 0x0066666F}}, 0x00666670, 72, {{0, 12}}, {{8, 0xEEEEEEEE}}},
    {"set_shaper_conf", "del_shaper_conf", {{0, 9}}, 10, 4},
    {"set_policy", "del_policy", {{0, 1u << 16}, {16, 77}}, 2u << 16, 8}, // zone 1, then 2
    {"set_dns_proxy", "del_dns_proxy", {{16, 77}, {0, 1u << 16}}, 78, 8},
};

Bytes KeyRecord(const KindCase &c, bool del, bool other) {
    Bytes rec(OV_RequestSize(Cmd(c.set)), 0);
    for (const Field &f : c.key) {
        Put<uint32_t>(rec, f.offset, other && &f == &c.key[0] ? c.other : f.value);
    }
    for (const Field &f : del ? c.delOnly : c.setOnly) {
        Put<uint32_t>(rec, f.offset, f.value);
    }
    return rec;
}

TEST(SimHandlers, SetReplacesByKeyAndDeleteRemovesByKey) {
    for (const KindCase &c : kKinds) {
        SCOPED_TRACE(c.set);
        const CommandSpec &set = Cmd(c.set);
        SimContext ctx;
        Bytes first = KeyRecord(c, false, false);
        first[c.payloadByte] = 0x11;
        Bytes second = first;
        second[c.payloadByte] = 0x22;
        const Bytes other = KeyRecord(c, false, true);

        ASSERT_EQ(Send(ctx, c.set, first).status, 0);
        ASSERT_EQ(Send(ctx, c.set, second).status, 0);
        ASSERT_EQ(Send(ctx, c.set, other).status, 0);
        const SimTable &table = ctx.store.Table(set.kind);
        ASSERT_EQ(table.size(), 2u);
        bool foundSecond = false;
        for (const auto &[key, rec] : table) {
            foundSecond |= rec.bytes == second;
            EXPECT_NE(rec.bytes, first);
            EXPECT_EQ(rec.module, set.Module());
            EXPECT_EQ(rec.function, set.function);
        }
        EXPECT_TRUE(foundSecond);

        // The delete record carries the key fields alone.
        const Bytes del = KeyRecord(c, true, false);
        EXPECT_EQ(Send(ctx, c.del, del).status, 0);
        EXPECT_EQ(table.size(), 1u);
        EXPECT_EQ(table.begin()->second.bytes, other);
        EXPECT_EQ(Send(ctx, c.del, del).status, -2);
        EXPECT_EQ(table.size(), 1u);
    }
}

TEST(SimHandlers, RuleKeyTakesTheTableFromTheFunction) {
    SimContext ctx;
    const Bytes rule = ovtest::RecordBytes<17528>().U8(2, 1).U32(16, 5).bytes;
    EXPECT_EQ(Send(ctx, "set_policy", rule).status, 0);
    EXPECT_EQ(Send(ctx, "set_snat", rule).status, 0); // same zone and id, another rule
    EXPECT_EQ(ctx.store.Table(RecordKind::Rule).size(), 2u);
    EXPECT_EQ(Send(ctx, "del_dnat", rule).status, -2);
    EXPECT_EQ(Send(ctx, "del_snat", rule).status, 0);
    EXPECT_EQ(Send(ctx, "del_snat", rule).status, -2);
    EXPECT_EQ(Send(ctx, "del_policy", rule).status, 0);
}

TEST(SimHandlers, EngineAndGlobalArgumentsKeepTheLastValuePerCode) {
    SimContext ctx;
    auto engine = [](uint8_t code, uint32_t value) {
        return ovtest::RecordBytes<104>().U8(4, code).U32(8, value).bytes;
    };
    EXPECT_EQ(Send(ctx, "set_engine_srtt", engine(21, 30)).status, 0);
    EXPECT_EQ(Send(ctx, "set_engine_srtt", engine(21, 40)).status, 0);
    EXPECT_EQ(Send(ctx, "set_engine_wanKbps", engine(1, 40)).status, 0);
    const SimTable &params = ctx.store.Table(RecordKind::Engine);
    ASSERT_EQ(params.size(), 2u);
    EXPECT_EQ(params.rbegin()->second.bytes, engine(21, 40));

    auto arg = [](uint64_t value) {
        return ovtest::RecordBytes<24>().U16(0, 25).U64(8, value).bytes;
    };
    EXPECT_EQ(Send(ctx, "set_conn_cmd", arg(1)).status, 0);
    EXPECT_EQ(Send(ctx, "set_conn_cmd", arg(104448000)).status, 0);
    const SimTable &args = ctx.store.Table(RecordKind::GlobalArg);
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(args.begin()->second.bytes, arg(104448000));
}

TEST(SimHandlers, ShaperTableHoldsAtMost255Shapers) {
    SimContext ctx;
    for (int id = 0; id < 255; ++id) {
        ASSERT_EQ(Send(ctx, "set_shaper_conf", Shaper(static_cast<uint8_t>(id))).status, 0);
    }
    // The count byte of the table reply could not say 256.
    EXPECT_EQ(Send(ctx, "set_shaper_conf", Shaper(255)).status, -22);
    EXPECT_EQ(Send(ctx, "set_shaper_conf", Shaper(17, 1)).status, 0); // replacing is still fine
    SimResult table = Send(ctx, "get_shaper_tbl", {});
    EXPECT_EQ(table.reply[0], 255);
    EXPECT_EQ(table.reply.size(), 4u + 255u * 224u);
}

TEST(SimHandlers, PersistentChangesAreReported) {
    SimContext ctx;
    EXPECT_FALSE(Send(ctx, "set_shaper_conf", Shaper(1)).persistentChanged);
    EXPECT_TRUE(Send(ctx, "set_shaper_conf", Shaper(1, 1)).persistentChanged);
    // Replacing a persistent record with a passing one changes the kept set.
    EXPECT_TRUE(Send(ctx, "set_shaper_conf", Shaper(1)).persistentChanged);
    EXPECT_TRUE(Send(ctx, "set_shaper_conf", Shaper(2, 1)).persistentChanged);
    EXPECT_TRUE(Send(ctx, "del_shaper_conf", Shaper(2)).persistentChanged);
    EXPECT_FALSE(Send(ctx, "del_shaper_conf", Shaper(1)).persistentChanged);
}

} // namespace
