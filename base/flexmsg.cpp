// FlexMsg allocation and growth.
#include "base/flexmsg.h"

#include "base/log.h"
#include "base/mem.h"
#include "base/platform.h"

#include <cstring>

namespace {

OV_Once g_moduleLockOnce;
OV_CritSec g_moduleLock;

void InitModuleLock() {
    OV_CritSecInit(&g_moduleLock, 0);
}

OV_CritSec *ModuleLock() {
    OV_RunOnce(&g_moduleLockOnce, InitModuleLock);
    return &g_moduleLock;
}
int32_t g_flexMsgModule = OV_MEM_MODULE_UNSET;
uint32_t g_flexMsgUsers = 0;

constexpr uint64_t kInitialCapacity = 4096;

} // namespace

int32_t OV_FlexMsgModuleStart() {
    OV_CritSecGuard guard(ModuleLock());
    if (g_flexMsgUsers == 0) {
        int32_t index = MemModuleRegister("FlexMsg", 7);
        if (index < 0) {
            OV_Log("<Error>Failed to register %s memory!\n", "FlexMsg");
            return -12;
        }
        g_flexMsgModule = index;
    }
    ++g_flexMsgUsers;
    return 0;
}

void OV_FlexMsgModuleStop() {
    OV_CritSecGuard guard(ModuleLock());
    if (g_flexMsgUsers == 0) {
        return;
    }
    if (--g_flexMsgUsers == 0) {
        MemModuleUnregister(g_flexMsgModule);
        g_flexMsgModule = OV_MEM_MODULE_UNSET;
    }
}

FlexMsg *OV_FlexMsgAlloc() {
    auto *msg =
        static_cast<FlexMsg *>(MemModuleMalloc(g_flexMsgModule, sizeof(FlexMsg), OV_MEM_ZERO));
    if (msg == nullptr) {
        OV_Log("<Error>_OV_ImcConfClientThread alloc memory failed\n");
        return nullptr;
    }
    msg->data = static_cast<uint8_t *>(MemModuleMalloc(g_flexMsgModule, kInitialCapacity, 0));
    if (msg->data == nullptr) {
        OV_Log("<Error>_OV_ImcConfClientThread alloc memory failed\n");
        MemModuleFree(g_flexMsgModule, msg);
        return nullptr;
    }
    msg->capacity = kInitialCapacity;
    msg->link.next = &msg->link;
    msg->link.prev = &msg->link;
    msg->length = 0;
    return msg;
}

void OV_FlexMsgFree(FlexMsg *msg) {
    if (msg == nullptr) {
        return;
    }
    MemModuleFree(g_flexMsgModule, msg->data);
    MemModuleFree(g_flexMsgModule, msg);
}

bool OV_FlexMsgDataMaybePull(FlexMsg *msg, uint64_t n) {
    // A length that wraps is as impossible to hold as one that is too big.
    if (n > UINT64_MAX - msg->length) {
        OV_Log("<Error>_OV_ImcConfClientThread realloc memory failed\n");
        return false;
    }
    uint64_t need = msg->length + n;
    if (need <= msg->capacity) {
        return true;
    }
    uint64_t grown = msg->capacity <= UINT64_MAX - FLEXMSG_GROW_STEP
                         ? msg->capacity + FLEXMSG_GROW_STEP
                         : UINT64_MAX;
    uint64_t newCapacity = need <= grown ? grown : need;
    // A new block, then the copy: a failed growth must leave the old block
    // intact, and a failing MemModuleRealloc has already marked it freed.
    void *data = nullptr;
    if (newCapacity <= SIZE_MAX) {
        data = MemModuleMalloc(g_flexMsgModule, static_cast<size_t>(newCapacity), 0);
    }
    if (data == nullptr) {
        OV_Log("<Error>_OV_ImcConfClientThread realloc memory failed\n");
        return false;
    }
    std::memcpy(data, msg->data, static_cast<size_t>(msg->length));
    MemModuleFree(g_flexMsgModule, msg->data);
    msg->data = static_cast<uint8_t *>(data);
    msg->capacity = newCapacity;
    return true;
}

int32_t OV_FlexMsgAppend(FlexMsg *msg, const void *bytes, uint64_t n) {
    if (bytes == nullptr && n != 0) {
        return -22;
    }
    if (!OV_FlexMsgDataMaybePull(msg, n)) {
        return -12;
    }
    if (n != 0) {
        std::memcpy(msg->data + msg->length, bytes, static_cast<size_t>(n));
    }
    msg->length += n;
    return 0;
}

void OV_FlexMsgReset(FlexMsg *msg) {
    msg->length = 0;
}
