#include "base/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace {

TEST(ErrorMapping, Win32CodesMapToNegatedNumbers) {
    struct Case {
        int32_t code;
        int32_t expected;
    };
    const Case cases[] = {
        {0, 0},        {-5, -5},      {2, -2},       {122, -132},   {10035, -11}, {99999, -254},
        {109, -32},    {233, -32},    {232, -2},     {231, -16},    {258, -254},  {121, -138},
        {5, -1},       {8, -12},      {87, -22},     {997, -5},     {995, -105},  {10061, -107},
        {10093, -200}, {10092, -201}, {10110, -202}, {10107, -253}, {11004, -2},  {2250, -126},
        {205, -5},     {10053, -106}, {996, -5},     {4, -24},      {10024, -24}, {80, -17},
        {183, -17},    {15, -2},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(OV_Win32ErrToErrno(c.code), c.expected) << "code " << c.code;
    }
}

TEST(ErrorMapping, PosixErrnoGivesTheSameNumbersAsWindows) {
    struct Case {
        int err;
        int32_t expected;
    };
    // EMFILE and ENFILE: Windows has one code for both tables being full.
    const Case cases[] = {{0, 0},        {ENOENT, -2},      {ECONNREFUSED, -2},
                          {EPIPE, -32},  {ECONNRESET, -32}, {ETIMEDOUT, -254},
                          {EACCES, -1},  {EPERM, -1},       {ENOMEM, -12},
                          {EAGAIN, -11}, {EINVAL, -22},     {-7, -7},
                          {EMFILE, -24}, {ENFILE, -24}};
    for (const Case &c : cases) {
        EXPECT_EQ(OV_PosixErrToErrno(c.err), c.expected) << "errno " << c.err;
    }
}

TEST(ErrorText, UsesTheWindowsRuntimeTextsOnEveryBuild) {
    struct Case {
        int32_t number;
        const char *text;
    };
    const Case cases[] = {{0, "No error"},
                          {2, "No such file or directory"},
                          {12, "Not enough space"},
                          {16, "Resource device"},
                          {22, "Invalid argument"},
                          {32, "Broken pipe"},
                          {42, "Illegal byte sequence"},
                          {15, "Unknown error"},
                          {43, "Unknown error"},
                          {100, "address in use"},
                          {119, "no buffer space"},
                          {120, "no message available"},
                          {132, "value too large"},
                          {138, "timed out"},
                          {140, "operation would block"},
                          {141, "Unknown error"},
                          {-22, "Unknown error"}};
    for (const Case &c : cases) {
        EXPECT_STREQ(OV_StrError(c.number), c.text) << "number " << c.number;
    }
}

TEST(ErrorText, EveryTextFitsTheBufferAndEachThreadHasItsOwn) {
    for (int32_t n = -1; n < 300; ++n) {
        EXPECT_LT(std::strlen(OV_StrError(n)), 128u);
    }
    const char *mine = OV_StrError(22);
    std::thread other([] { EXPECT_STREQ(OV_StrError(32), "Broken pipe"); });
    other.join();
    EXPECT_STREQ(mine, "Invalid argument");
}

} // namespace
