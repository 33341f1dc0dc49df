#include "cli/kvscan.h"

#include "cli/handlers.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct Two {
    uint32_t a = 0;
    uint32_t b = 0;
    int stored = 0;
};

Two ScanTwo(const char *text, const char *fmt) {
    Two t;
    const KvScanTarget targets[] = {{&t.a, nullptr, 0}, {&t.b, nullptr, 0}};
    t.stored = KvScan(text, fmt, targets, 2);
    return t;
}

TEST(KvScan, ReadsFromTheFirstCharacterAndStopsAtTheFirstMismatch) {
    struct Case {
        const char *text;
        uint32_t a, b;
        int stored;
    };
    const Case cases[] = {
        {"zone=1   id=7 extra", 1, 7, 2},
        {"zone=1id=7", 1, 7, 2},             // format blanks match no blanks too
        {" zone=1 id=7", 0, 0, 0},           // the literal does not skip blanks
        {"zone= 3 id=+4", 3, 4, 2},          // %u skips blanks and takes a sign
        {"zone=-1 id=1", 4294967295u, 1, 2}, // negative: two's complement
        {"zone=4294967296 id=1", 0, 1, 2},   // low 32 bits
        {"zone=99999999999999999999999 id=1", 4294967295u, 1, 2}, // overflow: all ones
        {"zone=18446744073709551610 id=1", 4294967290u, 1, 2},    // the largest that fits
        {"zone=x id=1", 0, 0, 0},
        {"", 0, 0, 0},
    };
    for (const Case &c : cases) {
        Two t = ScanTwo(c.text, "zone=%u id=%u");
        EXPECT_EQ(t.a, c.a) << c.text;
        EXPECT_EQ(t.b, c.b) << c.text;
        EXPECT_EQ(t.stored, c.stored) << c.text;
    }
}

TEST(KvScan, WordConversionRespectsItsBuffer) {
    char name[8];
    const KvScanTarget target[] = {{nullptr, name, sizeof name}};
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(KvScan("name=corp01 rest", "name=%s", target, 1), 1);
    EXPECT_STREQ(name, "corp01");
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(KvScan("name=1234567", "name=%s", target, 1), 1);
    EXPECT_STREQ(name, "1234567");
    EXPECT_EQ(KvScan("name=12345678", "name=%s", target, 1), 0); // no room for the NUL
    EXPECT_STREQ(name, "");
    std::strcpy(name, "keep");
    EXPECT_EQ(KvScan("name=", "name=%s", target, 1), 0);
    EXPECT_STREQ(name, "keep");
}

TEST(KvNumberAfter, ReadsLikeAtoiAfterTheFirstKeyAndAShaperIdIs0To255) {
    struct Case {
        const char *text;
        bool found;
        int32_t value;
    };
    const Case cases[] = {
        {"shaperId=0", true, 0},
        {"x shaperId=  -1 shaperId=3", true, -1},
        {"shaperId=12abc", true, 12},
        {"shaperId=abc", true, 0},
        {"shaperId=99999999999", true, 2147483647},
        {"shaperId=-99999999999", true, -2147483647 - 1},
        {"shaperid=1", false, 0},
    };
    for (const Case &c : cases) {
        int32_t v = -12345;
        EXPECT_EQ(KvNumberAfter(c.text, "shaperId=", &v), c.found) << c.text;
        if (c.found) {
            EXPECT_EQ(v, c.value) << c.text;
        }
        // A shaper id is 0 to 255.
        uint8_t id = 99;
        bool valid = c.found && c.value >= 0 && c.value <= 255;
        EXPECT_EQ(ShaperIdArg(c.text, &id), valid) << c.text;
        EXPECT_EQ(id, valid ? c.value : 99) << c.text;
    }
}

} // namespace
