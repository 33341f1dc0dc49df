#include "agentconf/json_conv.h"

#include "tests/support/record_bytes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace {

OV_JsonPtr Parse(const char *text) {
    return OV_JsonPtr(json_tokener_parse(text));
}

/// {"k": value}, or {} without a value.
OV_JsonPtr WithK(const char *value) {
    return Parse(value == nullptr ? "{}" : ("{\"k\": " + std::string(value) + "}").c_str());
}

TEST(JsonGetters, IntRefusesExtremesAndTextsWithoutANumber) {
    struct Case {
        const char *value;
        int32_t rc;
        int32_t got;
    };
    const Case cases[] = {
        {"-7", 0, -7},      {"2147483647", -132}, {"-2147483648", -132},
        {"\" 42\"", 0, 42}, {"\"\"", -22},        {"\"0\"", 0, 0},
        {"1.9", 0, 1},      {"true", 0, 1},       {nullptr, -22},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.value == nullptr ? "none" : c.value);
        int32_t v = -999;
        EXPECT_EQ(_OV_JsonGetInt(WithK(c.value).get(), "k", &v), c.rc);
        EXPECT_EQ(v, c.rc == 0 ? c.got : -999); // untouched on failure
    }
}

/// The address's value, or -1 when refused.
int64_t ParseV4(const char *text) {
    char buf[OV_IPV4_TEXT_BUF] = {};
    std::strncpy(buf, text, sizeof buf - 1);
    uint32_t v = 0;
    return OV_IpStrToNum(buf, sizeof buf, &v) != nullptr ? int64_t{v} : -1;
}

// Every two-character text (and every one-character one), alone and before
// a third digit the width leaves unread, reads as the C library's sscanf with
// "%2hhx" reads it: same byte, same "nothing assigned".
TEST(HexByte, ReadsEveryPairAsTheCLibrarysScan) {
    int differences = 0;
    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256 * 2; ++b) {
            const char text[4] = {static_cast<char>(a), static_cast<char>(b % 256),
                                  b < 256 ? '\0' : '7', '\0'};
            unsigned char expected = 0xA5;
            bool expectedRead = std::sscanf(text, "%2hhx", &expected) == 1;
            uint8_t got = 0xA5;
            bool read = OV_ScanHexByte(text, &got);
            if (read != expectedRead || got != expected) {
                if (++differences <= 5) {
                    ADD_FAILURE() << "text " << a << "," << b % 256 << "," << int{text[2]}
                                  << ": scan " << expectedRead << "/" << int{expected} << ", ours "
                                  << read << "/" << int{got};
                }
            }
        }
    }
    EXPECT_EQ(differences, 0);
}

TEST(AddressText, Ipv4AcceptsBlanksLeadingZerosAndTrailingJunk) {
    const std::pair<const char *, int64_t> accepted[] = {
        {"10.0.0.1", 0x0A000001},     {"  10.0.0.1", 0x0A000001}, {"10.0.0.1  ", 0x0A000001},
        {"010.001.0.01", 0x0A010001}, {"10.0.0.1x", 0x0A000001},  {"255.255.255.255", 0xFFFFFFFF},
        {"1.2.3.4", 0x01020304}};
    for (const auto &[text, value] : accepted) {
        EXPECT_EQ(ParseV4(text), value) << text;
    }
    for (const char *t : {"10.0.0.256", "10.0.0", "10..0.1", "", "1.2.3", "a.b.c.d", "1.2.3.-4",
                          "10,0.0.1", "1000.0.0.1", "            1.1.1.1"}) {
        EXPECT_EQ(ParseV4(t), -1) << t;
    }
}

TEST(AddressText, Ipv4NeverReadsPastTheGivenLength) {
    const char text[7] = {'1', '.', '2', '.', '3', '.', '4'}; // no terminator
    uint32_t v = 0;
    EXPECT_NE(OV_IpStrToNum(text, sizeof text, &v), nullptr);
    EXPECT_EQ(v, 0x01020304u);
    EXPECT_EQ(OV_IpStrToNum(text, 6, &v), nullptr);
    const char blank[8] = {' ', '1', '.', '2', '.', '3', '.', '5'}; // blanks leave room enough
    EXPECT_NE(OV_IpStrToNum(blank, sizeof blank, &v), nullptr);
    EXPECT_EQ(v, 0x01020305u);
}

/// The address's 16 bytes in hex, or "refused".
std::string ParseV6(const char *text) {
    char buf[OV_IPV6_TEXT_BUF] = {};
    std::strncpy(buf, text, sizeof buf - 1);
    uint8_t out[16];
    std::memset(out, 0xEE, sizeof out);
    return OV_Ipv6StrToConf(buf, sizeof buf, out) != nullptr ? ovtest::HexOf(out) : "refused";
}

TEST(AddressText, Ipv6AcceptsOneZeroRunAndIpv4Tails) {
    const std::pair<const char *, const char *> cases[] = {
        {"::1", "00000000000000000000000000000001"},
        {" 2001:db8::8:800:200c:417a ", "20010db80000000000080800200c417a"},
        {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
        {"1:2:3:4:5:6:1.2.3.4", "00010002000300040005000601020304"},
        // No room for an IPv4 tail: the '.' just ends the address.
        {"1:2:3:4:5:6:7:1.2.3.4", "00010002000300040005000600070001"},
        {"ABCD::EF", "abcd00000000000000000000000000ef"},
    };
    for (const auto &[text, want] : cases) {
        EXPECT_EQ(ParseV6(text), want) << text;
    }
    for (const char *t : {"1::2::3", ":1::2", "1:2:3:4:5:6:7", "12345::1", "1:2:3:4:5:6:7:8:9",
                          "1:2:3:4:5:6:7:8::", ":::", "1.2.3.4", "::1:", "", "x::1"}) {
        EXPECT_EQ(ParseV6(t), "refused") << t;
    }
}

} // namespace
