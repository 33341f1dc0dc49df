// Tests of the simulator's module handlers: slots, sizes, keys, replace and
// delete, the get replies, persistence and the names the journal shows.
#include "agentconf/records.h"
#include "agentsim/sim_handlers.h"
#include "agentsim/sim_test_util.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using simtest::Bytes;
using simtest::Get;
using simtest::Put;

struct Fn {
    uint8_t module;
    uint16_t function;
    size_t size;
};

SimResult Call(SimContext &ctx, uint8_t module, uint16_t function, const Bytes &payload) {
    return SimDispatch(ctx, module, function, payload);
}

TEST(SimHandlers, EveryFunctionRefusesAPayloadOfAnotherSize) {
    for (const CommandSpec &cmd : kCommands) {
        SCOPED_TRACE(cmd.word);
        SimContext ctx;
        size_t size = OV_RequestSize(cmd);
        if (size > 0) {
            EXPECT_EQ(Call(ctx, cmd.Module(), cmd.function, Bytes(size - 1, 0)).status, -22);
        }
        SimResult longer = Call(ctx, cmd.Module(), cmd.function, Bytes(size + 1, 0));
        EXPECT_EQ(longer.status, -22);
        EXPECT_TRUE(longer.reply.empty());
        // The right size is taken (an absent key of a delete or get gives -2).
        int32_t status = Call(ctx, cmd.Module(), cmd.function, Bytes(size, 0)).status;
        EXPECT_TRUE(status == 0 || status == -2) << status;
    }
}

TEST(SimHandlers, ModulesWithoutAHandlerAndUnknownFunctionsAnswerMinus40) {
    SimContext ctx;
    for (int module = 0; module < 25; ++module) {
        if (module == 3 || module == 4 || module == 6 || module == 8 || module == 10 ||
            module == 15) {
            continue;
        }
        SimResult r = Call(ctx, static_cast<uint8_t>(module), 1, Bytes(72, 0));
        EXPECT_EQ(r.status, -40) << module;
        EXPECT_TRUE(r.reply.empty());
    }
    const Fn unknown[] = {{3, 0, 36},         {3, 7, 36},   {4, 0x0001, 17528}, {4, 0x0500, 17528},
                          {4, 0x0003, 17528}, {6, 4, 4480}, {8, 1, 104},        {10, 0, 72},
                          {15, 0, 224},       {15, 5, 0},   {15, 8, 0}};
    for (const Fn &fn : unknown) {
        SimResult r = Call(ctx, fn.module, fn.function, Bytes(fn.size, 0));
        EXPECT_EQ(r.status, -40) << int(fn.module) << ":" << fn.function;
        EXPECT_TRUE(r.reply.empty());
    }
    // Module 25 and above never reach a slot (the header check stops them).
    EXPECT_EQ(Call(ctx, 200, 1, Bytes(72, 0)).status, -40);
}

// One kind's set and delete records: the key fields of both, and a byte
// outside the key that tells two versions of the record apart.
struct KindCase {
    const char *name;
    RecordKind kind;
    uint8_t module;
    uint16_t setFn;
    uint16_t delFn;
    size_t size;
    void (*key)(Bytes &rec, bool del);
    void (*otherKey)(Bytes &rec, bool del);
    size_t payloadByte;
};

const KindCase kKinds[] = {
    {"link ip", RecordKind::LinkIp, 3, 5, 6, 36,
     [](Bytes &r, bool) {
         r[0] = 1;
         r[1] = 3;
         Put<uint32_t>(r, 8, 70000);
         Put<uint32_t>(r, 12, 9);
     },
     [](Bytes &r, bool) {
         r[0] = 1;
         r[1] = 3;
         Put<uint32_t>(r, 8, 70000);
         Put<uint32_t>(r, 12, 10);
     },
     16},
    {"link", RecordKind::Link, 3, 13, 14, 44,
     [](Bytes &r, bool) {
         r[0] = 44;
         Put<uint32_t>(r, 4, 0x123456);
     },
     [](Bytes &r, bool) {
         r[0] = 45;
         Put<uint32_t>(r, 4, 0x123456);
     },
     12},
    {"tunnel", RecordKind::Conn, 3, 18, 19, 616,
     [](Bytes &r, bool del) {
         Put<uint32_t>(r, 4, (44u << 24) | (5u << 21) | 0x1FFFFF);
         if (del) {
             Put<uint64_t>(r, 548, ~0ull);
         }
     },
     [](Bytes &r, bool) { Put<uint32_t>(r, 4, (44u << 24) | (5u << 21) | 0x1FFFFE); }, 0},
    {"rate limit", RecordKind::Ratelimit, 10, 1, 2, 72,
     [](Bytes &r, bool) { Put<uint32_t>(r, 0, 7); }, [](Bytes &r, bool) { Put<uint32_t>(r, 0, 8); },
     12},
    {"access name", RecordKind::AcsName, 6, 0, 1, 4480,
     [](Bytes &r, bool del) {
         std::memcpy(r.data() + 4, "office", 6);
         if (!del) {
             Put<uint32_t>(r, 0, 12);
         }
     },
     [](Bytes &r, bool) { std::memcpy(r.data() + 4, "offices", 7); }, 72},
    {"shaper", RecordKind::Shaper, 15, 1, 2, 224, [](Bytes &r, bool) { r[0] = 9; },
     [](Bytes &r, bool) { r[0] = 10; }, 4},
    {"policy rule", RecordKind::Rule, 4, 0x0000, 0x0002, 17528,
     [](Bytes &r, bool) {
         r[2] = 1;
         Put<uint32_t>(r, 16, 77);
     },
     [](Bytes &r, bool) {
         r[2] = 2;
         Put<uint32_t>(r, 16, 77);
     },
     8},
    {"dns proxy rule", RecordKind::Rule, 4, 0x0400, 0x0402, 17528,
     [](Bytes &r, bool) {
         r[2] = 1;
         Put<uint32_t>(r, 16, 77);
     },
     [](Bytes &r, bool) {
         r[2] = 1;
         Put<uint32_t>(r, 16, 78);
     },
     8},
};

TEST(SimHandlers, SetReplacesByKeyAndDeleteRemovesByKey) {
    for (const KindCase &c : kKinds) {
        SCOPED_TRACE(c.name);
        SimContext ctx;
        Bytes first(c.size, 0);
        c.key(first, false);
        first[c.payloadByte] = 0x11;
        Bytes second = first;
        second[c.payloadByte] = 0x22;
        Bytes other(c.size, 0);
        c.otherKey(other, false);

        ASSERT_EQ(Call(ctx, c.module, c.setFn, first).status, 0);
        ASSERT_EQ(Call(ctx, c.module, c.setFn, second).status, 0);
        ASSERT_EQ(Call(ctx, c.module, c.setFn, other).status, 0);
        const SimTable &table = ctx.store.Table(c.kind);
        ASSERT_EQ(table.size(), 2u);
        bool foundSecond = false;
        for (const auto &[key, rec] : table) {
            foundSecond |= rec.bytes == second;
            EXPECT_NE(rec.bytes, first);
            EXPECT_EQ(rec.module, c.module);
            EXPECT_EQ(rec.function, c.setFn);
        }
        EXPECT_TRUE(foundSecond);

        // The delete record carries the key fields alone.
        Bytes del(c.size, 0);
        c.key(del, true);
        EXPECT_EQ(Call(ctx, c.module, c.delFn, del).status, 0);
        EXPECT_EQ(table.size(), 1u);
        EXPECT_EQ(table.begin()->second.bytes, other);
        EXPECT_EQ(Call(ctx, c.module, c.delFn, del).status, -2);
        EXPECT_EQ(table.size(), 1u);
    }
}

TEST(SimHandlers, RuleKeyTakesTheTableFromTheFunction) {
    SimContext ctx;
    Bytes rule(17528, 0);
    rule[2] = 1;
    Put<uint32_t>(rule, 16, 5);
    EXPECT_EQ(Call(ctx, 4, 0x0000, rule).status, 0); // policy
    EXPECT_EQ(Call(ctx, 4, 0x0100, rule).status, 0); // snat: same zone and id, another rule
    EXPECT_EQ(ctx.store.Table(RecordKind::Rule).size(), 2u);
    EXPECT_EQ(Call(ctx, 4, 0x0202, rule).status, -2); // no such dnat rule
    EXPECT_EQ(Call(ctx, 4, 0x0102, rule).status, 0);
    EXPECT_EQ(Call(ctx, 4, 0x0102, rule).status, -2);
    EXPECT_EQ(Call(ctx, 4, 0x0002, rule).status, 0);
}

TEST(SimHandlers, PopAndCpeLinkIpsAreKeptApartByTheirType) {
    SimContext ctx;
    Bytes cpe(36, 0);
    cpe[0] = 1;
    cpe[1] = 2;
    Put<uint32_t>(cpe, 8, 3);
    Bytes pop = cpe;
    pop[0] = 2;
    EXPECT_EQ(Call(ctx, 3, 5, cpe).status, 0);
    EXPECT_EQ(Call(ctx, 3, 9, pop).status, 0);
    EXPECT_EQ(ctx.store.Table(RecordKind::LinkIp).size(), 2u);
    // del_pop_ip puts type 2 in byte 0: it removes the POP address only.
    Bytes del(36, 0);
    del[0] = 2;
    del[1] = 2;
    Put<uint32_t>(del, 8, 3);
    EXPECT_EQ(Call(ctx, 3, 10, del).status, 0);
    ASSERT_EQ(ctx.store.Table(RecordKind::LinkIp).size(), 1u);
    EXPECT_EQ(ctx.store.Table(RecordKind::LinkIp).begin()->second.bytes, cpe);
}

TEST(SimHandlers, EngineAndGlobalArgumentsKeepTheLastValuePerCode) {
    SimContext ctx;
    Bytes engine(104, 0);
    engine[4] = 21;
    Put<uint32_t>(engine, 8, 30);
    EXPECT_EQ(Call(ctx, 8, 0, engine).status, 0);
    Put<uint32_t>(engine, 8, 40);
    EXPECT_EQ(Call(ctx, 8, 0, engine).status, 0);
    engine[4] = 1;
    EXPECT_EQ(Call(ctx, 8, 0, engine).status, 0);
    const SimTable &params = ctx.store.Table(RecordKind::Engine);
    ASSERT_EQ(params.size(), 2u);
    EXPECT_EQ(Get<uint32_t>(params.rbegin()->second.bytes, 8), 40u); // code 21

    Bytes arg(24, 0);
    Put<uint16_t>(arg, 0, 25);
    Put<uint64_t>(arg, 8, 1);
    EXPECT_EQ(Call(ctx, 3, 26, arg).status, 0);
    Put<uint64_t>(arg, 8, 104448000);
    EXPECT_EQ(Call(ctx, 3, 26, arg).status, 0);
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

TEST(SimHandlers, ShaperGetAnswersTheStoredRecord) {
    SimContext ctx;
    Bytes request(224, 0);
    request[0] = 9;
    SimResult absent = Call(ctx, 15, 3, request);
    EXPECT_EQ(absent.status, -2);
    EXPECT_TRUE(absent.reply.empty());
    ASSERT_EQ(Call(ctx, 15, 1, Shaper(9)).status, 0);
    SimResult got = Call(ctx, 15, 3, request);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.reply, Shaper(9));
}

TEST(SimHandlers, ShaperTableListsRecordsInIdOrderBehindACountHeader) {
    SimContext ctx;
    SimResult empty = Call(ctx, 15, 4, {});
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.reply, Bytes(4, 0));

    for (uint8_t id : {200, 2, 9}) {
        ASSERT_EQ(Call(ctx, 15, 1, Shaper(id)).status, 0);
    }
    Bytes expected(4 + 3 * 224, 0);
    expected[0] = 3;
    size_t at = 4;
    for (uint8_t id : {2, 9, 200}) {
        Bytes rec = Shaper(id);
        std::memcpy(expected.data() + at, rec.data(), rec.size());
        at += rec.size();
    }
    SimResult table = Call(ctx, 15, 4, {});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.reply, expected);
}

TEST(SimHandlers, ShaperTableHoldsAtMost255Shapers) {
    SimContext ctx;
    for (int id = 0; id < 255; ++id) {
        ASSERT_EQ(Call(ctx, 15, 1, Shaper(static_cast<uint8_t>(id))).status, 0);
    }
    // The count byte of the table reply could not say 256.
    EXPECT_EQ(Call(ctx, 15, 1, Shaper(255)).status, -22);
    EXPECT_EQ(Call(ctx, 15, 1, Shaper(17, 1)).status, 0); // replacing is still fine
    SimResult table = Call(ctx, 15, 4, {});
    EXPECT_EQ(table.reply[0], 255);
    EXPECT_EQ(table.reply.size(), 4u + 255u * 224u);
}

TEST(SimHandlers, SaClusterReplyCarriesTheConfiguredState) {
    SimContext ctx;
    ctx.sa.role = 2;
    ctx.sa.calQueueLen = 7;
    ctx.sa.localLanId = 3;
    ctx.sa.localPort = 4500;
    ctx.sa.masterPort = 4501;
    ctx.sa.masterIp = 0x0A000001;
    ctx.sa.masterCpeId = 4000000000u;
    Bytes expected(540, 0);
    Put<int32_t>(expected, 0, 2);
    expected[4] = 7;
    expected[5] = 3;
    Put<uint16_t>(expected, 6, 4500);
    Put<uint16_t>(expected, 8, 4501);
    expected[12] = 1; // 10.0.0.1 in host order: bytes 1, 0, 0, 10
    expected[15] = 10;
    Put<uint32_t>(expected, 16, 4000000000u);
    SimResult r = Call(ctx, 15, 7, {});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.reply, expected);
}

TEST(SimHandlers, PersistentChangesAreReported) {
    SimContext ctx;
    EXPECT_FALSE(Call(ctx, 15, 1, Shaper(1)).persistentChanged);
    EXPECT_TRUE(Call(ctx, 15, 1, Shaper(1, 1)).persistentChanged);
    // Replacing a persistent record with a passing one changes the kept set.
    EXPECT_TRUE(Call(ctx, 15, 1, Shaper(1)).persistentChanged);
    EXPECT_TRUE(Call(ctx, 15, 1, Shaper(2, 1)).persistentChanged);
    EXPECT_TRUE(Call(ctx, 15, 2, Shaper(2)).persistentChanged);
    EXPECT_FALSE(Call(ctx, 15, 2, Shaper(1)).persistentChanged);
    EXPECT_FALSE(Call(ctx, 15, 2, Shaper(1)).persistentChanged); // absent: -2, nothing changed
}

TEST(SimHandlers, PersistentFlagsSitWhereEachKindKeepsThem) {
    struct Flag {
        uint8_t module;
        uint16_t function;
        size_t size;
        size_t offset;
        uint8_t bit;
    };
    const Flag flags[] = {
        {3, 5, 36, 2, 0x01},    {3, 13, 44, 8, 0x10},  {3, 18, 616, 110, 0x08},
        {6, 0, 4480, 68, 0x01}, {10, 1, 72, 64, 0x80}, {15, 1, 224, 1, 0x01},
    };
    for (const Flag &f : flags) {
        SCOPED_TRACE(std::to_string(f.module) + ":" + std::to_string(f.function));
        SimContext ctx;
        Bytes rec(f.size, 0);
        rec[f.offset] = static_cast<uint8_t>(~f.bit); // every other bit set
        EXPECT_FALSE(Call(ctx, f.module, f.function, rec).persistentChanged);
        EXPECT_TRUE(SimPersistentRecords(ctx.store).empty());
        rec[f.offset] = f.bit;
        EXPECT_TRUE(Call(ctx, f.module, f.function, rec).persistentChanged);
        ASSERT_EQ(SimPersistentRecords(ctx.store).size(), 1u);
        EXPECT_EQ(SimPersistentRecords(ctx.store)[0]->bytes, rec);
    }
    // Rules, engine parameters and global arguments are never kept.
    SimContext ctx;
    EXPECT_FALSE(Call(ctx, 4, 0, Bytes(17528, 0xFF)).persistentChanged);
    EXPECT_FALSE(Call(ctx, 8, 0, Bytes(104, 0xFF)).persistentChanged);
    EXPECT_FALSE(Call(ctx, 3, 26, Bytes(24, 0xFF)).persistentChanged);
    EXPECT_TRUE(SimPersistentRecords(ctx.store).empty());
}

TEST(SimHandlers, RestoreTakesOnlyPersistentRecordsOfSetFunctions) {
    SimContext ctx;
    EXPECT_EQ(SimRestoreRecord(ctx, 15, 1, Shaper(4, 1)), 0);
    EXPECT_EQ(SimRestoreRecord(ctx, 15, 1, Shaper(5)), -22);    // not persistent
    EXPECT_EQ(SimRestoreRecord(ctx, 15, 2, Shaper(4, 1)), -22); // a delete
    EXPECT_EQ(SimRestoreRecord(ctx, 15, 3, Shaper(4, 1)), -22); // a get
    EXPECT_EQ(SimRestoreRecord(ctx, 4, 0, Bytes(17528, 0xFF)), -22);
    EXPECT_EQ(SimRestoreRecord(ctx, 15, 1, Bytes(223, 1)), -22);
    ASSERT_EQ(ctx.store.Table(RecordKind::Shaper).size(), 1u);
}

TEST(SimHandlers, CommandNamesArePdtoolsWords) {
    struct Name {
        uint8_t module;
        uint16_t function;
        const char *command;
    };
    const Name names[] = {
        {3, 5, "set_cpe_ip"},       {3, 6, "del_cpe_ip"},
        {3, 9, "set_pop_ip"},       {3, 10, "del_pop_ip"},
        {3, 13, "set_link"},        {3, 14, "del_link"},
        {3, 18, "set_tunnel"},      {3, 19, "del_tunnel"},
        {3, 26, "set_conn_cmd"},    {4, 0x0000, "set_policy"},
        {4, 0x0102, "del_snat"},    {4, 0x0200, "set_dnat"},
        {4, 0x0302, "del_dns"},     {4, 0x0400, "set_dns_proxy"},
        {6, 0, "set_acsname"},      {6, 1, "del_acsname"},
        {10, 1, "set_ratelimit"},   {10, 2, "del_ratelimit"},
        {15, 1, "set_shaper_conf"}, {15, 2, "del_shaper_conf"},
        {15, 3, "get_shaper_conf"}, {15, 4, "get_shaper_tbl"},
        {15, 7, "get_sa_cluster"},  {3, 0, nullptr},
        {4, 0x0001, nullptr},       {9, 0, nullptr},
    };
    for (const Name &n : names) {
        const char *got = SimCommandName(n.module, n.function, {});
        EXPECT_EQ(got == nullptr ? "(null)" : std::string(got),
                  n.command == nullptr ? "(null)" : std::string(n.command))
            << int(n.module) << ":" << n.function;
    }
    // The engine rows share one function; the parameter code names them.
    Bytes engine(104, 0);
    engine[4] = 21;
    EXPECT_STREQ(SimCommandName(8, 0, engine), "set_engine_srtt");
    engine[4] = 10;
    EXPECT_STREQ(SimCommandName(8, 0, engine), "set_engine_pcapEnable");
    engine[4] = 4;
    EXPECT_EQ(SimCommandName(8, 0, engine), nullptr);
    EXPECT_EQ(SimCommandName(8, 0, Bytes(103, 21)), nullptr);
}

} // namespace
