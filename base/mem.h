// Memory modules: every heap block of the system's own code is taken on
// behalf of a named module, framed by guard words and counted, so that
// corruption, double frees and leaks are reported by module name.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int32_t OV_MEM_MODULE_MAX = 256;
constexpr uint32_t OV_MEM_NAME_LEN = 32;
/// Flag of MemModuleMalloc: zero the memory.
constexpr uint32_t OV_MEM_ZERO = 0x1;

/// Registers a module by name (length < 32 bytes, no NUL needed) and returns
/// its index 0..255, or -22. Registering the same name again returns the same
/// index and changes nothing.
int32_t MemModuleRegister(const char *name, uint32_t length);
/// Reports leaks of the module, then clears its entry. Unknown indexes are ignored.
void MemModuleUnregister(int32_t index);

/// Plain family. Each returns nullptr on failure (size 0, unregistered index,
/// no memory). The caller owns the block and returns it with MemModuleFree.
void *MemModuleMalloc(int32_t index, size_t size, uint32_t flags);
void *MemModuleCalloc(int32_t index, size_t size);
/// Size 0 frees the block and returns nullptr. On failure the old block is
/// already marked freed and must not be used again.
void *MemModuleRealloc(int32_t index, void *ptr, size_t size);
/// Frees a block. A corrupt or already freed block is logged and still released.
void MemModuleFree(int32_t index, void *ptr);
/// Copies a NUL-terminated text into a new block of the module.
char *MemModuleStrdup(int32_t index, const char *text);

/// Second family: separate counters, no big-size warning.
void *VmemModuleMalloc(int32_t index, size_t size);
void *VmemModuleCalloc(int32_t index, size_t size);
void *VmemModuleRealloc(int32_t index, void *ptr, size_t size);
void VmemModuleFree(int32_t index, void *ptr);

struct MemModuleStats {
    char name[OV_MEM_NAME_LEN];
    int32_t MemCounter;
    int32_t MemUsage;
    int32_t VmemCounter;
    int32_t VmemUsage;
};

/// Copies the module's name and counters. Returns 0, or -22 for an invalid index.
int32_t MemModuleGetStats(int32_t index, MemModuleStats *stats);

// The program's own module, "AGENT". Its index starts as all ones (unset).
constexpr int32_t OV_MEM_MODULE_UNSET = -1;
extern int32_t g_agentMemModule;

/// Registers "AGENT" and keeps its index. Returns the index or -22.
int32_t AgentMemModuleRegister();
/// Unregisters "AGENT" when it is registered, and resets the index to unset.
void AgentMemModuleUnregister();
void *AgentMemMalloc(size_t size);
void AgentMemFree(void *ptr);
