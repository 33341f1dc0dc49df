// Tests of the FlexMsg buffer: allocation, growth, header and payload.
#include "imc/flexmsg.h"

#include "imc/channel_test_util.h"

#include <cstring>

namespace {

using namespace ovtest;

using FlexMsgTest = ChannelTest;

TEST_F(FlexMsgTest, PayloadGrowsTheBufferByAPageOrToTheExactNeed) {
    struct Case {
        size_t payload;
        uint64_t capacity;
    };
    for (Case c : {Case{4080, 4096}, Case{4081, 8192}, Case{10000, 10016}}) {
        SCOPED_TRACE(c.payload);
        FlexMsg *msg = OV_FlexMsgAlloc();
        ASSERT_NE(msg, nullptr);
        OV_ImcMsgFillHeader(msg, 4, 7);
        Bytes payload = Pattern(c.payload, 3);
        ASSERT_EQ(OV_ImcSafeSetRequestPayload(msg, payload.data(), payload.size()), 0);
        EXPECT_EQ(msg->capacity, c.capacity);
        EXPECT_EQ(Bytes(msg->data, msg->data + msg->length),
                  Concat(RequestHeader(4, 7, c.payload), payload));
        OV_FlexMsgFree(msg);
    }
}

TEST_F(FlexMsgTest, HeaderFillZeroesReservedBytesAndPayloadsAddUpInIt) {
    std::memset(msg_->data, 0xAA, 64);
    OV_ImcMsgFillHeader(msg_, 10, 0x0102);
    EXPECT_EQ(Data(), RequestHeader(10, 0x0102, 0));
    EXPECT_EQ(OV_ImcSafeSetRequestPayload(msg_, nullptr, 4), -22);
    Bytes a = Pattern(3, 0);
    Bytes b = Pattern(5, 9);
    ASSERT_EQ(OV_ImcSafeSetRequestPayload(msg_, a.data(), a.size()), 0);
    ASSERT_EQ(OV_ImcSafeSetReplyPayload(msg_, b.data(), b.size()), 0);
    ASSERT_EQ(OV_ImcSafeSetRequestPayload(msg_, nullptr, 0), 0);
    EXPECT_EQ(OV_ImcMsgPayloadLen(msg_), 8u);
    EXPECT_EQ(Data(), Concat(RequestHeader(10, 0x0102, 8), Concat(a, b)));
}

TEST_F(FlexMsgTest, ImpossibleGrowthFailsAndLeavesTheMessageAlone) {
    OV_ImcMsgFillHeader(msg_, 1, 2);
    const Bytes before = Data();
    uint8_t *data = msg_->data;
    uint8_t byte = 0;
    const std::string line =
        std::string(kFixedStamp) + "<Error>_OV_ImcConfClientThread realloc memory failed\n";
    // A length that wraps 64 bits, and one larger than any block.
    for (uint64_t n : {UINT64_MAX, UINT64_MAX - 15, uint64_t{1} << 40}) {
        SCOPED_TRACE(n);
        StdoutCapture capture;
        EXPECT_FALSE(OV_FlexMsgDataMaybePull(msg_, n));
        EXPECT_EQ(OV_ImcSafeSetRequestPayload(msg_, &byte, n), -12);
        EXPECT_EQ(capture.Take(), line + line);
        EXPECT_EQ(msg_->capacity, 4096u);
        EXPECT_EQ(msg_->data, data);
        EXPECT_EQ(Data(), before);
    }
}

TEST(FlexMsgModule, LastStopUnregistersAndLeavesNoLeak) {
    StdoutCapture capture;
    ASSERT_EQ(OV_FlexMsgModuleStart(), 0);
    ASSERT_EQ(OV_FlexMsgModuleStart(), 0);
    OV_FlexMsgModuleStop();
    FlexMsg *msg = OV_FlexMsgAlloc();
    ASSERT_NE(msg, nullptr) << "one user is left";
    Bytes big = Pattern(20000, 1);
    ASSERT_EQ(OV_FlexMsgAppend(msg, big.data(), big.size()), 0);
    OV_FlexMsgFree(msg);
    OV_FlexMsgFree(nullptr);
    OV_FlexMsgModuleStop();
    OV_FlexMsgModuleStop(); // an extra stop is harmless
    EXPECT_EQ(OV_FlexMsgAlloc(), nullptr);
    std::string out = capture.Take();
    EXPECT_EQ(CountOf(out, "<Info>register memory module FlexMsg success"), 1u) << out;
    EXPECT_EQ(CountOf(out, "<Info>unregister memory module FlexMsg success"), 1u) << out;
    EXPECT_EQ(CountOf(out, "memory leak"), 0u) << out;
    EXPECT_EQ(CountOf(out, "<Error>_OV_ImcConfClientThread alloc memory failed"), 1u) << out;
}

} // namespace
