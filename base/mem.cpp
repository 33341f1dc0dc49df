// Guarded allocation with per-module counters.
//
// Block layout (a request of n bytes takes n + 16 from the heap):
//   0      u32  prefix guard "KCAJ" in the low 31 bits (top bit kept as found)
//   4      u32  total size n + 16
//   8      n    the caller's bytes
//   8 + n  u32  suffix guard "GNIX"
//   12 + n u32  module index in the low 31 bits, freed flag in the top bit
#include "base/mem.h"

#include "base/log.h"
#include "base/platform.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr uint32_t kPrefixGuard = 0x4A41434B;
constexpr uint32_t kSuffixGuard = 0x58494E47;
constexpr uint32_t kLow31 = 0x7FFFFFFF;
constexpr uint32_t kTopBit = 0x80000000;
constexpr size_t kOverhead = 16;
constexpr size_t kBigSize = 8192;
constexpr uint32_t kSpinCount = 4096;

constexpr uint8_t kFlagRegistered = 0x1;
constexpr uint8_t kFlagBigWarned = 0x2;

struct ModuleEntry {
    OV_CritSec lock;
    uint8_t flags;
    char name[OV_MEM_NAME_LEN];
    int32_t MemCounter;
    int32_t MemUsage;
    int32_t VmemCounter;
    int32_t VmemUsage;
};

ModuleEntry g_modules[OV_MEM_MODULE_MAX];
// Entries at and past this index have never been registered. A search
// stops here, so a program with two modules reads two entries rather than
// the whole 30 KB table (every page of it would be faulted in).
int32_t g_tableEnd = 0;
OV_Mutex *g_tableMutex = nullptr;
OV_Once g_tableMutexOnce;

void CreateTableMutex() {
    g_tableMutex = OV_MutexCreate();
}

enum class Family { Plain, Vmem };

bool IndexValid(int32_t index) {
    return index >= 0 && index < OV_MEM_MODULE_MAX &&
           (g_modules[index].flags & kFlagRegistered) != 0;
}

uint32_t Load32(const unsigned char *p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void Store32(unsigned char *p, uint32_t v) {
    std::memcpy(p, &v, sizeof v);
}

void WriteGuards(unsigned char *block, size_t total, int32_t index) {
    uint32_t prefix = Load32(block);
    Store32(block, (prefix & kTopBit) | kPrefixGuard);
    Store32(block + 4, static_cast<uint32_t>(total));
    Store32(block + total - 8, kSuffixGuard);
    Store32(block + total - 4, static_cast<uint32_t>(index) & kLow31);
}

void Count(int32_t index, Family family, int32_t blocks, int64_t bytes) {
    ModuleEntry &m = g_modules[index];
    OV_CritSecEnter(&m.lock);
    if (family == Family::Plain) {
        m.MemCounter += blocks;
        m.MemUsage = static_cast<int32_t>(m.MemUsage + bytes);
    } else {
        m.VmemCounter += blocks;
        m.VmemUsage = static_cast<int32_t>(m.VmemUsage + bytes);
    }
    OV_CritSecLeave(&m.lock);
}

void MaybeWarnBig(int32_t index, size_t total) {
    ModuleEntry &m = g_modules[index];
    if (total >= kBigSize && (m.flags & kFlagBigWarned) == 0) {
        m.flags |= kFlagBigWarned;
        OV_Log("<Debug>MODULE[%s] attempt to malloc big size(%zd) memory.\n", m.name,
               static_cast<ptrdiff_t>(total));
    }
}

void *Allocate(int32_t index, size_t size, bool zero, Family family) {
    if ((family == Family::Plain && size == 0) || !IndexValid(index)) {
        return nullptr;
    }
    // The size field is 32 bits wide; refuse what it cannot describe.
    if (size > std::numeric_limits<uint32_t>::max() - kOverhead) {
        return nullptr;
    }
    size_t total = size + kOverhead;
    if (family == Family::Plain) {
        MaybeWarnBig(index, total);
    }
    auto *block = static_cast<unsigned char *>(zero ? std::calloc(1, total) : std::malloc(total));
    if (block == nullptr) {
        return nullptr;
    }
    Store32(block, 0);
    WriteGuards(block, total, index);
    Count(index, family, 1, static_cast<int64_t>(total));
    return block + 8;
}

enum class Op { Free, Realloc };

// Checks the guards of a block, logs what is wrong and marks it freed.
// Returns the block's size field. A fault is only reported: the caller
// still releases the block.
uint32_t CheckAndMarkFreed(int32_t index, void *ptr, Op op) {
    const bool freeing = op == Op::Free;
    unsigned char *block = static_cast<unsigned char *>(ptr) - 8;
    const char *name = g_modules[index].name;
    uint32_t prefix = Load32(block);
    uint32_t size = Load32(block + 4);
    if ((prefix & kLow31) != kPrefixGuard) {
        OV_Log(freeing
                   ? "<Error>MODULE[%s]free mem %p, prefix is corrupt(0x%X -> 0x%X), size=%u\n"
                   : "<Error>MODULE[%s]realloc mem %p, prefix is corrupt(0x%X -> 0x%X), size=%u\n",
               name, ptr, kPrefixGuard, prefix & kLow31, size);
        return size;
    }
    uint32_t suffix = Load32(block + size - 8);
    if (suffix != kSuffixGuard) {
        OV_Log(
            freeing
                ? "<Error>MODULE[%s]free mem %p, suffix is corrupt(0x%X -- > 0x%X), size=%u\n"
                : "<Error>MODULE[%s]realloc mem %p, suffix is corrupt(0x%X -- > 0x%X), size=%u\n",
            name, ptr, kSuffixGuard, suffix, size);
        return size;
    }
    uint32_t tail = Load32(block + size - 4);
    if ((tail & kTopBit) != 0) {
        OV_Log(freeing ? "<Error>MODULE[%s]free mem %p, is already freed, size=%u\n"
                       : "<Error>MODULE[%s]realloc mem %p, is already freed, size=%u\n",
               name, ptr, size);
        return size;
    }
    Store32(block + size - 4, tail | kTopBit);
    return size;
}

void Release(int32_t index, void *ptr, Family family) {
    if (!IndexValid(index)) {
        OV_Log("<Error>MODULE %d free mem %p, module is not registered\n", index, ptr);
        return;
    }
    if (ptr == nullptr) {
        return;
    }
    uint32_t size = CheckAndMarkFreed(index, ptr, Op::Free);
    Count(index, family, -1, -static_cast<int64_t>(size));
    std::free(static_cast<unsigned char *>(ptr) - 8);
}

} // namespace

int32_t MemModuleRegister(const char *name, uint32_t length) {
    if (name == nullptr || length == 0 || length >= OV_MEM_NAME_LEN) {
        return -22;
    }
    OV_RunOnce(&g_tableMutexOnce, CreateTableMutex);
    OV_FATAL_ASSERT(OV_MutexLock(g_tableMutex));
    int32_t result = -22;
    int32_t firstFree = -1;
    for (int32_t i = 0; i < g_tableEnd; ++i) {
        ModuleEntry &m = g_modules[i];
        if ((m.flags & kFlagRegistered) == 0) {
            if (firstFree < 0) {
                firstFree = i;
            }
            continue;
        }
        if (std::strlen(m.name) == length && std::memcmp(m.name, name, length) == 0) {
            result = i;
            break;
        }
    }
    if (result < 0 && firstFree < 0 && g_tableEnd < OV_MEM_MODULE_MAX) {
        firstFree = g_tableEnd++;
    }
    if (result < 0 && firstFree >= 0) {
        ModuleEntry &m = g_modules[firstFree];
        std::memset(m.name, 0, sizeof m.name);
        std::memcpy(m.name, name, length);
        OV_CritSecInit(&m.lock, kSpinCount);
        m.flags = kFlagRegistered;
        result = firstFree;
    }
    OV_FATAL_ASSERT(OV_MutexUnlock(g_tableMutex));
    // The name is printed as registered (it need not be NUL-terminated).
    OV_Log("<Info>register memory module %.*s success, index: %d\n", static_cast<int>(length), name,
           result);
    return result;
}

void MemModuleUnregister(int32_t index) {
    OV_RunOnce(&g_tableMutexOnce, CreateTableMutex);
    OV_FATAL_ASSERT(OV_MutexLock(g_tableMutex));
    if (IndexValid(index)) {
        ModuleEntry &m = g_modules[index];
        OV_Log("<Info>unregister memory module %s success, index: %d\n", m.name, index);
        if (m.MemCounter != 0 || m.VmemCounter != 0) {
            OV_Log("<Warn>MODULE[%s] unregister with memory leak(MemCounter %d, MemUsage %d, "
                   "VmemCounter %d, VmemUsage %d).\n",
                   m.name, m.MemCounter, m.MemUsage, m.VmemCounter, m.VmemUsage);
        }
        // The lock stays initialised: it is re-initialised on the next registration.
        m.flags = 0;
        std::memset(m.name, 0, sizeof m.name);
        m.MemCounter = m.MemUsage = m.VmemCounter = m.VmemUsage = 0;
    }
    OV_FATAL_ASSERT(OV_MutexUnlock(g_tableMutex));
}

void *MemModuleMalloc(int32_t index, size_t size, uint32_t flags) {
    return Allocate(index, size, (flags & OV_MEM_ZERO) != 0, Family::Plain);
}

void *MemModuleCalloc(int32_t index, size_t size) {
    return Allocate(index, size, true, Family::Plain);
}

void *MemModuleRealloc(int32_t index, void *ptr, size_t size) {
    if (size == 0) {
        MemModuleFree(index, ptr);
        return nullptr;
    }
    if (!IndexValid(index)) {
        OV_Log("<Error>MODULE %d realloc mem %p, module is not registered\n", index, ptr);
        return nullptr;
    }
    if (size > std::numeric_limits<uint32_t>::max() - kOverhead) {
        return nullptr;
    }
    uint32_t oldSize = 0;
    unsigned char *oldBlock = nullptr;
    if (ptr != nullptr) {
        oldSize = CheckAndMarkFreed(index, ptr, Op::Realloc);
        oldBlock = static_cast<unsigned char *>(ptr) - 8;
    }
    size_t total = size + kOverhead;
    MaybeWarnBig(index, total);
    auto *block = static_cast<unsigned char *>(std::realloc(oldBlock, total));
    if (block == nullptr) {
        return nullptr;
    }
    WriteGuards(block, total, index);
    if (oldBlock != nullptr) {
        Count(index, Family::Plain, -1, -static_cast<int64_t>(oldSize));
    }
    Count(index, Family::Plain, 1, static_cast<int64_t>(total));
    return block + 8;
}

void MemModuleFree(int32_t index, void *ptr) {
    Release(index, ptr, Family::Plain);
}

char *MemModuleStrdup(int32_t index, const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    size_t len = std::strlen(text);
    auto *copy = static_cast<char *>(MemModuleMalloc(index, len + 1, OV_MEM_ZERO));
    if (copy != nullptr) {
        std::memcpy(copy, text, len);
    }
    return copy;
}

void *VmemModuleMalloc(int32_t index, size_t size) {
    return Allocate(index, size, false, Family::Vmem);
}

void *VmemModuleCalloc(int32_t index, size_t size) {
    return Allocate(index, size, true, Family::Vmem);
}

void *VmemModuleRealloc(int32_t index, void *ptr, size_t size) {
    if (!IndexValid(index)) {
        return nullptr;
    }
    if (size == 0) {
        VmemModuleFree(index, ptr);
        return nullptr;
    }
    void *fresh = VmemModuleMalloc(index, size);
    if (fresh == nullptr) {
        return nullptr;
    }
    if (ptr != nullptr) {
        uint32_t oldTotal = Load32(static_cast<unsigned char *>(ptr) - 4);
        size_t keep = oldTotal < size + kOverhead ? oldTotal : size + kOverhead;
        keep = keep >= kOverhead ? keep - kOverhead : 0;
        std::memcpy(fresh, ptr, keep);
        VmemModuleFree(index, ptr);
    }
    return fresh;
}

void VmemModuleFree(int32_t index, void *ptr) {
    Release(index, ptr, Family::Vmem);
}

int32_t MemModuleGetStats(int32_t index, MemModuleStats *stats) {
    if (stats == nullptr || !IndexValid(index)) {
        return -22;
    }
    ModuleEntry &m = g_modules[index];
    OV_CritSecEnter(&m.lock);
    std::memcpy(stats->name, m.name, sizeof stats->name);
    stats->MemCounter = m.MemCounter;
    stats->MemUsage = m.MemUsage;
    stats->VmemCounter = m.VmemCounter;
    stats->VmemUsage = m.VmemUsage;
    OV_CritSecLeave(&m.lock);
    return 0;
}

int32_t g_agentMemModule = OV_MEM_MODULE_UNSET;

int32_t AgentMemModuleRegister() {
    g_agentMemModule = MemModuleRegister("AGENT", 5);
    return g_agentMemModule;
}

void AgentMemModuleUnregister() {
    if (g_agentMemModule != OV_MEM_MODULE_UNSET) {
        MemModuleUnregister(g_agentMemModule);
        g_agentMemModule = OV_MEM_MODULE_UNSET;
    }
}

void *AgentMemMalloc(size_t size) {
    return MemModuleMalloc(g_agentMemModule, size, 0);
}

void AgentMemFree(void *ptr) {
    MemModuleFree(g_agentMemModule, ptr);
}
