#include "base/mem.h"

#include "tests/support/capture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

using ovtest::StdoutCapture;

// Registers a module for one test and always unregisters it.
class ScopedModule {
  public:
    explicit ScopedModule(const char *name)
        : index_(MemModuleRegister(name, static_cast<uint32_t>(std::strlen(name)))) {}
    ~ScopedModule() { MemModuleUnregister(index_); }
    ScopedModule(const ScopedModule &) = delete;
    ScopedModule &operator=(const ScopedModule &) = delete;
    int32_t index() const { return index_; }

  private:
    int32_t index_;
};

MemModuleStats Stats(int32_t index) {
    MemModuleStats s{};
    EXPECT_EQ(MemModuleGetStats(index, &s), 0);
    return s;
}

// The module's counters, as {MemCounter, MemUsage, VmemCounter, VmemUsage}.
std::vector<int64_t> Counters(int32_t index) {
    MemModuleStats s = Stats(index);
    return {s.MemCounter, s.MemUsage, s.VmemCounter, s.VmemUsage};
}

uint32_t Word(const void *p, ptrdiff_t offset) {
    uint32_t v;
    std::memcpy(&v, static_cast<const unsigned char *>(p) + offset, sizeof v);
    return v;
}

TEST(MemModule, BlockCarriesGuardsAndMovesCountersUpAndDown) {
    StdoutCapture quiet;
    ScopedModule m("mt_life");
    ASSERT_GE(m.index(), 0);

    auto *p = static_cast<unsigned char *>(MemModuleMalloc(m.index(), 10, OV_MEM_ZERO));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(Word(p, -8) & 0x7FFFFFFF, 0x4A41434Bu);
    EXPECT_EQ(std::memcmp(p - 8, "KCAJ", 4), 0);
    EXPECT_EQ(Word(p, -4), 26u);
    EXPECT_EQ(std::memcmp(p + 10, "GNIX", 4), 0);
    EXPECT_EQ(Word(p, 14), static_cast<uint32_t>(m.index()));
    EXPECT_EQ(std::vector<unsigned char>(p, p + 10), std::vector<unsigned char>(10, 0));

    void *q = VmemModuleCalloc(m.index(), 100);
    ASSERT_NE(q, nullptr);
    EXPECT_STREQ(Stats(m.index()).name, "mt_life");
    EXPECT_EQ(Counters(m.index()), (std::vector<int64_t>{1, 26, 1, 116}));

    p = static_cast<unsigned char *>(MemModuleRealloc(m.index(), p, 40));
    ASSERT_NE(p, nullptr);
    std::memset(q, 0x5A, 100);
    q = VmemModuleRealloc(m.index(), q, 8);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(Word(q, 4), 0x5A5A5A5Au); // the kept bytes moved with it
    EXPECT_EQ(Counters(m.index()), (std::vector<int64_t>{1, 56, 1, 24}));

    // A new size of 0 frees the block.
    EXPECT_EQ(MemModuleRealloc(m.index(), p, 0), nullptr);
    EXPECT_EQ(VmemModuleRealloc(m.index(), q, 0), nullptr);
    EXPECT_EQ(Counters(m.index()), (std::vector<int64_t>{0, 0, 0, 0}));
}

TEST(MemModule, RefusesSizesItCannotRecordAndUnregisteredModules) {
    StdoutCapture quiet;
    ScopedModule m("mt_refuse");
    EXPECT_EQ(MemModuleMalloc(m.index(), 0, 0), nullptr);
    // The block's 32-bit size field must hold the size and the guards.
    EXPECT_EQ(MemModuleMalloc(m.index(), std::numeric_limits<uint32_t>::max() - 8, 0), nullptr);
    EXPECT_EQ(MemModuleMalloc(255, 8, 0), nullptr);
    EXPECT_EQ(VmemModuleMalloc(-1, 8), nullptr);
    EXPECT_EQ(Stats(m.index()).MemCounter, 0);
}

// Freeing a block whose guards are broken, or that was freed before, logs the
// block and still takes it off the counters.
TEST(MemModule, BadFreesAreLoggedAndStillDecrement) {
    struct Case {
        ptrdiff_t offset; // relative to the caller's pointer
        unsigned char flip;
        const char *expected;
    };
    const Case cases[] = {
        {20, 0x5A, ", suffix is corrupt(0x58494E47 -- > 0x"}, // one byte past the end
        {-8, 0x5A, ", prefix is corrupt(0x4A41434B -> 0x"},
        // The freed flag a first free leaves behind: a real second free would
        // touch released heap memory.
        {27, 0x80, ", is already freed, size=36\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.expected);
        StdoutCapture cap;
        ScopedModule m("mt_bad");
        void *keep = MemModuleMalloc(m.index(), 8, 0);
        auto *p = static_cast<unsigned char *>(MemModuleMalloc(m.index(), 20, 0));
        ASSERT_NE(p, nullptr);
        p[c.offset] ^= c.flip;
        MemModuleFree(m.index(), p);
        std::string out = cap.Take();
        EXPECT_NE(out.find("<Error>MODULE[mt_bad]free mem "), std::string::npos) << out;
        EXPECT_NE(out.find(c.expected), std::string::npos) << out;
        EXPECT_NE(out.find("size=36\n"), std::string::npos) << out;
        EXPECT_EQ(Counters(m.index()), (std::vector<int64_t>{1, 24, 0, 0}));
        MemModuleFree(m.index(), keep);
    }
}

TEST(MemModule, NamesUpTo31BytesRegisterAndSameNameGivesSameIndex) {
    StdoutCapture cap;
    const std::string name31(31, 'n');
    const std::string name32(32, 'n');
    int32_t a = MemModuleRegister(name31.c_str(), 31);
    int32_t b = MemModuleRegister(name31.c_str(), 31);
    EXPECT_GE(a, 0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(MemModuleRegister(name32.c_str(), 32), -22);
    EXPECT_EQ(MemModuleRegister(nullptr, 3), -22);
    // A prefix of a registered name is a different module.
    int32_t c = MemModuleRegister(name31.c_str(), 30);
    EXPECT_GE(c, 0);
    EXPECT_NE(c, a);
    MemModuleUnregister(a);
    MemModuleUnregister(c);
    std::string out = cap.Take();
    EXPECT_NE(out.find("<Info>register memory module " + name31 +
                       " success, index: " + std::to_string(a) + "\n"),
              std::string::npos);
    EXPECT_NE(out.find("<Info>unregister memory module " + name31 + " success, index: "),
              std::string::npos);
}

TEST(MemModule, TableHolds256ModulesAndThe257thFailsWithSuccessLine) {
    StdoutCapture cap;
    std::vector<int32_t> taken;
    for (int i = 0; i < OV_MEM_MODULE_MAX + 1; ++i) {
        std::string name = "mt_fill_" + std::to_string(i);
        int32_t idx = MemModuleRegister(name.c_str(), static_cast<uint32_t>(name.size()));
        if (idx < 0) {
            std::string out = cap.Take();
            EXPECT_NE(out.find("<Info>register memory module " + name + " success, index: -22\n"),
                      std::string::npos);
            break;
        }
        taken.push_back(idx);
    }
    // Every slot was handed out exactly once before the refusal.
    EXPECT_LE(taken.size(), static_cast<size_t>(OV_MEM_MODULE_MAX));
    EXPECT_GE(taken.size(), static_cast<size_t>(OV_MEM_MODULE_MAX - 8));
    StdoutCapture quiet;
    for (int32_t idx : taken) {
        MemModuleUnregister(idx);
    }
}

TEST(MemModule, BigSizeWarningFromThresholdOncePerRegistration) {
    StdoutCapture cap;
    ScopedModule m("mt_big");
    void *small = MemModuleMalloc(m.index(), 8175, 0);
    EXPECT_EQ(cap.Take().find("attempt to malloc big size"), std::string::npos);

    StdoutCapture cap2;
    void *big = MemModuleMalloc(m.index(), 8176, 0);
    void *big2 = MemModuleMalloc(m.index(), 9000, 0);
    std::string out = cap2.Take();
    EXPECT_EQ(
        ovtest::CountOf(out, "<Debug>MODULE[mt_big] attempt to malloc big size(8192) memory.\n"),
        1u)
        << out;
    EXPECT_EQ(ovtest::CountOf(out, "attempt to malloc big size"), 1u);
    StdoutCapture quiet;
    MemModuleFree(m.index(), small);
    MemModuleFree(m.index(), big);
    MemModuleFree(m.index(), big2);
}

TEST(MemModule, UnregisterReportsLeakedBlocksOfEitherKind) {
    for (bool vmem : {false, true}) {
        StdoutCapture cap;
        int32_t idx = MemModuleRegister("mt_leak", 7);
        void *p = vmem ? VmemModuleMalloc(idx, 4) : MemModuleMalloc(idx, 4, 0);
        MemModuleUnregister(idx);
        std::string out = cap.Take();
        EXPECT_NE(out.find(std::string("<Warn>MODULE[mt_leak] unregister with memory leak(") +
                           (vmem ? "MemCounter 0, MemUsage 0, VmemCounter 1, VmemUsage 20).\n"
                                 : "MemCounter 1, MemUsage 20, VmemCounter 0, VmemUsage 0).\n")),
                  std::string::npos)
            << out;
        // The block outlives its module; hand it back to the heap directly.
        std::free(static_cast<unsigned char *>(p) - 8);
    }
}

TEST(MemModule, AgentWrappersKeepAndResetTheIndexAndStrdupCopiesIntoTheModule) {
    StdoutCapture quiet;
    EXPECT_EQ(g_agentMemModule, OV_MEM_MODULE_UNSET);
    AgentMemModuleUnregister(); // nothing registered: no-op
    int32_t idx = AgentMemModuleRegister();
    ASSERT_GE(idx, 0);
    EXPECT_EQ(AgentMemModuleRegister(), idx);
    char *copy = MemModuleStrdup(idx, "hello");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "hello");
    EXPECT_EQ(Stats(idx).MemUsage, 22);
    MemModuleFree(idx, copy);
    EXPECT_EQ(Stats(idx).MemCounter, 0);
    AgentMemModuleUnregister();
    EXPECT_EQ(g_agentMemModule, OV_MEM_MODULE_UNSET);
}

} // namespace
