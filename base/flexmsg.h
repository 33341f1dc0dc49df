// FlexMsg: the growable buffer in which IMC requests and replies are built
// and received (imc/flexmsg.h reads the message in it), and in which flexlog
// collects its lines.
#pragma once

#include <cstdint>

constexpr uint64_t FLEXMSG_GROW_STEP = 4096;

struct FlexMsgLink {
    FlexMsgLink *next;
    FlexMsgLink *prev;
};

struct FlexMsg {
    uint64_t capacity; ///< bytes allocated for data
    FlexMsgLink link;  ///< list links; both point at themselves (an empty list)
    uint64_t length;   ///< bytes of data in use (an IMC header plus payload so far)
    uint8_t *data;     ///< the data area; an IMC message's header is its first 16 bytes
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
