// The IMC message: the 16-byte header that starts every request and reply,
// and the payload behind it, both in a FlexMsg.
#pragma once

#include "base/flexmsg.h"

#include <cstddef>
#include <cstdint>

/// The header of every IMC message, in host byte order (little-endian).
/// In a reply, bytes 0-3 are one signed 32-bit status instead of the ids.
struct ImcMsgHeader {
    uint8_t moduleId;     ///< 0..24 in a request
    uint8_t reserved1;    ///< written as zero
    uint16_t functionId;  ///< the operation within the module
    uint8_t reserved2[4]; ///< written as zero
    uint64_t payloadLen;  ///< bytes of payload that follow the header
};
static_assert(sizeof(ImcMsgHeader) == 16);
static_assert(offsetof(ImcMsgHeader, moduleId) == 0);
static_assert(offsetof(ImcMsgHeader, reserved1) == 1);
static_assert(offsetof(ImcMsgHeader, functionId) == 2);
static_assert(offsetof(ImcMsgHeader, reserved2) == 4);
static_assert(offsetof(ImcMsgHeader, payloadLen) == 8);

constexpr uint64_t IMC_HEADER_LEN = 16;
constexpr uint8_t IMC_MODULE_MAX = 25;

/// Writes a request header (module id, function id, zero reserved bytes,
/// payload length 0) and sets the length to 16. The data area always has
/// room for a header, since a message starts with 4096 bytes.
void OV_ImcMsgFillHeader(FlexMsg *msg, uint8_t moduleId, uint16_t functionId);
/// Appends a payload and adds n to the header's payload length. Returns 0, or
/// the append's failure (the payload length is then unchanged).
int32_t OV_ImcSafeSetRequestPayload(FlexMsg *msg, const void *bytes, uint64_t n);
/// The same operation, used by the agent for reply data.
int32_t OV_ImcSafeSetReplyPayload(FlexMsg *msg, const void *bytes, uint64_t n);

ImcMsgHeader *OV_ImcMsgHeader(FlexMsg *msg);
uint8_t *OV_ImcMsgPayload(FlexMsg *msg);
uint64_t OV_ImcMsgPayloadLen(const FlexMsg *msg);
int32_t OV_ImcMsgStatus(const FlexMsg *msg);
