// FlexMsg: the growable buffer in which IMC requests and replies are built
// and received, and the 16-byte IMC header that starts every message.
#pragma once

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
constexpr uint64_t FLEXMSG_GROW_STEP = 4096;

struct FlexMsgLink {
    FlexMsgLink *next;
    FlexMsgLink *prev;
};

struct FlexMsg {
    uint64_t capacity; ///< bytes allocated for data
    FlexMsgLink link;  ///< list links; both point at themselves (an empty list)
    uint64_t length;   ///< bytes of data in use (header plus payload so far)
    uint8_t *data;     ///< the data area; the header is its first 16 bytes
};

/// Starts the "FlexMsg" memory module on first use and counts users.
/// Returns 0, or -12 when the module cannot be registered.
int32_t OV_FlexMsgModuleStart();
/// Drops one user; the module is unregistered when the last one stops.
void OV_FlexMsgModuleStop();

/// Returns a new message (capacity 4096, length 0) owned by the caller, who
/// frees it with OV_FlexMsgFree; nullptr when memory is short.
FlexMsg *OV_FlexMsgAlloc();
/// Frees the data area, then the object. nullptr is ignored.
void OV_FlexMsgFree(FlexMsg *msg);

/// Makes room for n more bytes behind the current length. Returns false when
/// the buffer could not grow (the message is then unchanged), including a
/// length plus n that does not fit in 64 bits.
bool OV_FlexMsgDataMaybePull(FlexMsg *msg, uint64_t n);
/// Appends n bytes. Returns 0, -12 when there was no room, or -22 for null
/// bytes with a non-zero n.
int32_t OV_FlexMsgAppend(FlexMsg *msg, const void *bytes, uint64_t n);
/// Sets the length to 0 without freeing anything.
void OV_FlexMsgReset(FlexMsg *msg);

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
