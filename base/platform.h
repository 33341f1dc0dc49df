// Operating-system primitives the runtime needs: mutexes, critical sections,
// clocks and the few file operations of log rotation. One declaration here,
// implemented by platform_posix.cpp or platform_win32.cpp.
#pragma once

#include <cstdint>

/// An unnamed process-local mutex, not initially owned.
struct OV_Mutex;

/// Returns a new mutex, or nullptr when the system refuses one.
OV_Mutex *OV_MutexCreate();
/// Waits without time-out. Returns false when the wait itself failed.
bool OV_MutexLock(OV_Mutex *mutex);
/// Returns false when the mutex is not held by the caller or the call failed.
bool OV_MutexUnlock(OV_Mutex *mutex);
/// Destroys the mutex. Returns false when the system refused.
bool OV_MutexClose(OV_Mutex *mutex);

/// A critical section embedded in a table entry. The storage is opaque so
/// that tables can hold it by value on both builds.
struct OV_CritSec {
    alignas(8) unsigned char opaque[64];
};
/// Initialises with the given spin count (ignored where spinning is not offered).
bool OV_CritSecInit(OV_CritSec *cs, uint32_t spinCount);
void OV_CritSecEnter(OV_CritSec *cs);
void OV_CritSecLeave(OV_CritSec *cs);

/// Holds a critical section for the guard's scope.
class OV_CritSecGuard {
  public:
    explicit OV_CritSecGuard(OV_CritSec *cs) : cs_(cs) { OV_CritSecEnter(cs_); }
    ~OV_CritSecGuard() { OV_CritSecLeave(cs_); }
    OV_CritSecGuard(const OV_CritSecGuard &) = delete;
    OV_CritSecGuard &operator=(const OV_CritSecGuard &) = delete;

  private:
    OV_CritSec *cs_;
};

/// A one-time initialisation flag for static storage. Zero-initialised
/// storage is the "not yet run" state, so it is ready before any constructor
/// runs. The product code links no C++ runtime, so this replaces
/// std::call_once.
struct OV_Once {
    alignas(8) unsigned char opaque[8];
};
/// Runs init exactly once per flag; concurrent callers wait until it is done.
void OV_RunOnce(OV_Once *once, void (*init)());

/// Wall-clock local time with milliseconds.
struct OV_LocalTime {
    uint16_t year;
    uint16_t month;
    uint16_t day;
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds;
};
void OV_GetLocalTime(OV_LocalTime *out);

/// Milliseconds since an arbitrary fixed point; never goes backwards.
uint64_t OV_GetTickCount64();

void OV_SleepMs(uint32_t ms);

/// File helpers for log rotation. Each returns true on success.
bool OV_FileExists(const char *path);
/// Clears a read-only attribute when the file has one.
bool OV_FileMakeWritable(const char *path);
bool OV_FileDelete(const char *path);
/// Renames; fails when the target exists.
bool OV_FileRename(const char *from, const char *to);

/// Makes standard output carry "\n" unchanged, so both builds print the same
/// bytes (the Windows runtime would otherwise turn it into "\r\n").
void OV_SetStdoutBinary();

/// Stops the process at once. Failed lock operations end here: the tables
/// they guard cannot be trusted afterwards, so there is no recovery path.
[[noreturn]] void OV_FatalCrash();

#define OV_FATAL_ASSERT(cond)                                                                      \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            OV_FatalCrash();                                                                       \
        }                                                                                          \
    } while (0)
