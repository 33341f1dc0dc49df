// Tests of the simulator's module handlers: slots, sizes, keys, replace and
// delete, the get replies, persistence and the names the journal shows.
#include "agentconf/records.h"
#include "agentsim/sim_handlers.h"
#include "agentsim/sim_test_util.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using simtest::Bytes;
using simtest::Cmd;
using simtest::Get;
using simtest::Put;

SimResult Send(SimContext &ctx, const char *word, const Bytes &payload) {
    return SimDispatch(ctx, Cmd(word).Module(), Cmd(word).function, payload);
}

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
        // The right size is taken (an absent key of a delete or get gives -2).
        int32_t status = SimDispatch(ctx, cmd.Module(), cmd.function, Bytes(size, 0)).status;
        EXPECT_TRUE(status == 0 || status == -2) << status;
    }
}

TEST(SimHandlers, ModulesWithoutAHandlerAndUnknownFunctionsAnswerMinus40) {
    SimContext ctx;
    for (int module = 0; module < 25; ++module) {
        bool served = false;
        for (const CommandSpec &c : kCommands) {
            served = served || c.Module() == module;
        }
        if (!served) {
            SimResult r = SimDispatch(ctx, static_cast<uint8_t>(module), 1, Bytes(72, 0));
            EXPECT_EQ(r.status, -40) << module;
            EXPECT_TRUE(r.reply.empty());
        }
    }
    struct Fn {
        uint8_t module;
        uint16_t function;
        size_t size;
    };
    const Fn unknown[] = {{3, 0, 36},         {3, 7, 36},   {4, 0x0001, 17528}, {4, 0x0500, 17528},
                          {4, 0x0003, 17528}, {6, 4, 4480}, {8, 1, 104},        {10, 0, 72},
                          {15, 0, 224},       {15, 5, 0},   {15, 8, 0},         {200, 1, 72}};
    for (const Fn &fn : unknown) {
        SimResult r = SimDispatch(ctx, fn.module, fn.function, Bytes(fn.size, 0));
        EXPECT_EQ(r.status, -40) << int(fn.module) << ":" << fn.function;
        EXPECT_TRUE(r.reply.empty());
    }
}

// One kind's set and delete: key(rec, del, 0) writes the key fields, with 1
// another key; the payload byte lies outside the key.
struct KindCase {
    const char *set;
    const char *del;
    void (*key)(Bytes &rec, bool del, uint32_t other);
    size_t payloadByte;
};

const KindCase kKinds[] = {
    {"set_cpe_ip", "del_cpe_ip",
     [](Bytes &r, bool, uint32_t other) {
         r[0] = 1;
         r[1] = 3;
         Put<uint32_t>(r, 8, 70000);
         Put<uint32_t>(r, 12, 9 + other);
     },
     16},
    {"set_link", "del_link",
     [](Bytes &r, bool, uint32_t other) {
         r[0] = static_cast<uint8_t>(44 + other);
         Put<uint32_t>(r, 4, 0x123456);
     },
     12},
    {"set_tunnel", "del_tunnel",
     [](Bytes &r, bool del, uint32_t other) {
         Put<uint32_t>(r, 4, (44u << 24) | (5u << 21) | (0x1FFFFF - other));
         if (del) {
             Put<uint64_t>(r, 548, ~0ull);
         }
     },
     0},
    {"set_ratelimit", "del_ratelimit",
     [](Bytes &r, bool, uint32_t other) { r[0] = static_cast<uint8_t>(7 + other); }, 12},
    {"set_acsname", "del_acsname",
     [](Bytes &r, bool del, uint32_t other) {
         std::memcpy(r.data() + 4, "offices", 6 + other);
         if (!del) {
             Put<uint32_t>(r, 0, 12);
         }
     },
     72},
    {"set_shaper_conf", "del_shaper_conf",
     [](Bytes &r, bool, uint32_t other) { r[0] = static_cast<uint8_t>(9 + other); }, 4},
    {"set_policy", "del_policy", // the zone is part of the key
     [](Bytes &r, bool, uint32_t other) {
         r[2] = static_cast<uint8_t>(1 + other);
         Put<uint32_t>(r, 16, 77);
     },
     8},
    {"set_dns_proxy", "del_dns_proxy",
     [](Bytes &r, bool, uint32_t other) {
         r[2] = 1;
         Put<uint32_t>(r, 16, 77 + other);
     },
     8},
};

TEST(SimHandlers, SetReplacesByKeyAndDeleteRemovesByKey) {
    for (const KindCase &c : kKinds) {
        SCOPED_TRACE(c.set);
        const CommandSpec &set = Cmd(c.set);
        SimContext ctx;
        Bytes first(OV_RequestSize(set), 0);
        c.key(first, false, 0);
        first[c.payloadByte] = 0x11;
        Bytes second = first;
        second[c.payloadByte] = 0x22;
        Bytes other(first.size(), 0);
        c.key(other, false, 1);

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
        Bytes del(first.size(), 0);
        c.key(del, true, 0);
        EXPECT_EQ(Send(ctx, c.del, del).status, 0);
        EXPECT_EQ(table.size(), 1u);
        EXPECT_EQ(table.begin()->second.bytes, other);
        EXPECT_EQ(Send(ctx, c.del, del).status, -2);
        EXPECT_EQ(table.size(), 1u);
    }
}

TEST(SimHandlers, RuleKeyTakesTheTableFromTheFunction) {
    SimContext ctx;
    Bytes rule(17528, 0);
    rule[2] = 1;
    Put<uint32_t>(rule, 16, 5);
    EXPECT_EQ(Send(ctx, "set_policy", rule).status, 0);
    EXPECT_EQ(Send(ctx, "set_snat", rule).status, 0); // same zone and id, another rule
    EXPECT_EQ(ctx.store.Table(RecordKind::Rule).size(), 2u);
    EXPECT_EQ(Send(ctx, "del_dnat", rule).status, -2);
    EXPECT_EQ(Send(ctx, "del_snat", rule).status, 0);
    EXPECT_EQ(Send(ctx, "del_snat", rule).status, -2);
    EXPECT_EQ(Send(ctx, "del_policy", rule).status, 0);
}

TEST(SimHandlers, PopAndCpeLinkIpsAreKeptApartByTheirType) {
    SimContext ctx;
    Bytes cpe(36, 0);
    cpe[0] = 1;
    cpe[1] = 2;
    Put<uint32_t>(cpe, 8, 3);
    Bytes pop = cpe;
    pop[0] = 2;
    EXPECT_EQ(Send(ctx, "set_cpe_ip", cpe).status, 0);
    EXPECT_EQ(Send(ctx, "set_pop_ip", pop).status, 0);
    EXPECT_EQ(ctx.store.Table(RecordKind::LinkIp).size(), 2u);
    // del_pop_ip puts type 2 in byte 0: it removes the POP address only.
    Bytes del(36, 0);
    del[0] = 2;
    del[1] = 2;
    Put<uint32_t>(del, 8, 3);
    EXPECT_EQ(Send(ctx, "del_pop_ip", del).status, 0);
    ASSERT_EQ(ctx.store.Table(RecordKind::LinkIp).size(), 1u);
    EXPECT_EQ(ctx.store.Table(RecordKind::LinkIp).begin()->second.bytes, cpe);
}

TEST(SimHandlers, EngineAndGlobalArgumentsKeepTheLastValuePerCode) {
    SimContext ctx;
    Bytes engine(104, 0);
    engine[4] = 21;
    Put<uint32_t>(engine, 8, 30);
    EXPECT_EQ(Send(ctx, "set_engine_srtt", engine).status, 0);
    Put<uint32_t>(engine, 8, 40);
    EXPECT_EQ(Send(ctx, "set_engine_srtt", engine).status, 0);
    engine[4] = 1;
    EXPECT_EQ(Send(ctx, "set_engine_wanKbps", engine).status, 0);
    const SimTable &params = ctx.store.Table(RecordKind::Engine);
    ASSERT_EQ(params.size(), 2u);
    EXPECT_EQ(Get<uint32_t>(params.rbegin()->second.bytes, 8), 40u); // code 21

    Bytes arg(24, 0);
    Put<uint16_t>(arg, 0, 25);
    Put<uint64_t>(arg, 8, 1);
    EXPECT_EQ(Send(ctx, "set_conn_cmd", arg).status, 0);
    Put<uint64_t>(arg, 8, 104448000);
    EXPECT_EQ(Send(ctx, "set_conn_cmd", arg).status, 0);
    const SimTable &args = ctx.store.Table(RecordKind::GlobalArg);
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(args.begin()->second.bytes, arg);
}

Bytes Shaper(uint8_t id, uint8_t flags = 0) {
    Bytes rec(224, 0);
    rec[0] = id;
    rec[1] = flags;
    Put<uint32_t>(rec, 4, 1000u + id);
    rec[200] = 0xA5; // far into the record, so a short copy would show
    return rec;
}

TEST(SimHandlers, ShaperGetsAnswerTheStoredRecordsInIdOrderBehindACount) {
    SimContext ctx;
    SimResult empty = Send(ctx, "get_shaper_tbl", {});
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.reply, Bytes(4, 0));
    SimResult absent = Send(ctx, "get_shaper_conf", Shaper(9));
    EXPECT_EQ(absent.status, -2);
    EXPECT_TRUE(absent.reply.empty());

    for (uint8_t id : {200, 2, 9}) {
        ASSERT_EQ(Send(ctx, "set_shaper_conf", Shaper(id)).status, 0);
    }
    Bytes request(224, 0);
    request[0] = 9;
    SimResult got = Send(ctx, "get_shaper_conf", request);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.reply, Shaper(9));
    Bytes expected = {3, 0, 0, 0};
    for (uint8_t id : {2, 9, 200}) {
        Bytes rec = Shaper(id);
        expected.insert(expected.end(), rec.begin(), rec.end());
    }
    SimResult table = Send(ctx, "get_shaper_tbl", {});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.reply, expected);
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
    EXPECT_FALSE(Send(ctx, "del_shaper_conf", Shaper(1)).persistentChanged); // absent: -2
}

TEST(SimHandlers, PersistentFlagsSitWhereEachKindKeepsThem) {
    struct Flag {
        const char *set;
        size_t offset;
        uint8_t bit;
    };
    const Flag flags[] = {{"set_cpe_ip", 2, 0x01},     {"set_link", 8, 0x10},
                          {"set_tunnel", 110, 0x08},   {"set_acsname", 68, 0x01},
                          {"set_ratelimit", 64, 0x80}, {"set_shaper_conf", 1, 0x01}};
    for (const Flag &f : flags) {
        SCOPED_TRACE(f.set);
        SimContext ctx;
        Bytes rec(OV_RequestSize(Cmd(f.set)), 0);
        rec[f.offset] = static_cast<uint8_t>(~f.bit); // every other bit set
        EXPECT_FALSE(Send(ctx, f.set, rec).persistentChanged);
        EXPECT_TRUE(SimPersistentRecords(ctx.store).empty());
        rec[f.offset] = f.bit;
        EXPECT_TRUE(Send(ctx, f.set, rec).persistentChanged);
        ASSERT_EQ(SimPersistentRecords(ctx.store).size(), 1u);
        EXPECT_EQ(SimPersistentRecords(ctx.store)[0]->bytes, rec);
    }
    // Rules, engine parameters and global arguments are never kept.
    SimContext ctx;
    EXPECT_FALSE(Send(ctx, "set_policy", Bytes(17528, 0xFF)).persistentChanged);
    EXPECT_FALSE(Send(ctx, "set_engine_srtt", Bytes(104, 0xFF)).persistentChanged);
    EXPECT_FALSE(Send(ctx, "set_conn_cmd", Bytes(24, 0xFF)).persistentChanged);
    EXPECT_TRUE(SimPersistentRecords(ctx.store).empty());
}

TEST(SimHandlers, RestoreTakesOnlyPersistentRecordsOfSetFunctions) {
    auto restore = [](SimContext &ctx, const char *word, const Bytes &rec) {
        return SimRestoreRecord(ctx, Cmd(word).Module(), Cmd(word).function, rec);
    };
    SimContext ctx;
    EXPECT_EQ(restore(ctx, "set_shaper_conf", Shaper(4, 1)), 0);
    EXPECT_EQ(restore(ctx, "set_shaper_conf", Shaper(5)), -22); // not persistent
    EXPECT_EQ(restore(ctx, "del_shaper_conf", Shaper(4, 1)), -22);
    EXPECT_EQ(restore(ctx, "get_shaper_conf", Shaper(4, 1)), -22);
    EXPECT_EQ(restore(ctx, "set_policy", Bytes(17528, 0xFF)), -22);
    EXPECT_EQ(restore(ctx, "set_shaper_conf", Bytes(223, 1)), -22);
    ASSERT_EQ(ctx.store.Table(RecordKind::Shaper).size(), 1u);
}

TEST(SimHandlers, CommandNamesArePdtoolsWords) {
    for (const CommandSpec &c : kCommands) {
        // The engine rows share one function; the parameter code names them.
        Bytes engine(104, 0);
        engine[4] = static_cast<uint8_t>(c.id);
        const Bytes payload = c.kind == RecordKind::Engine ? engine : Bytes{};
        const char *got = SimCommandName(c.Module(), c.function, payload);
        EXPECT_STREQ(got == nullptr ? "(null)" : got, c.word);
    }
    EXPECT_EQ(SimCommandName(3, 0, {}), nullptr);
    EXPECT_EQ(SimCommandName(4, 0x0001, {}), nullptr);
    EXPECT_EQ(SimCommandName(9, 0, {}), nullptr);
    EXPECT_EQ(SimCommandName(8, 0, Bytes(104, 4)), nullptr); // no parameter 4
    EXPECT_EQ(SimCommandName(8, 0, Bytes(103, 21)), nullptr);
}

} // namespace
