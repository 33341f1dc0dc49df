// Windows implementation of the platform primitives.
#include "base/platform.h"

#include "base/win32.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>

struct OV_Mutex {
    HANDLE handle;
};

OV_Mutex *OV_MutexCreate() {
    HANDLE h = CreateMutexW(nullptr, FALSE, nullptr);
    if (h == nullptr) {
        return nullptr;
    }
    auto *m = static_cast<OV_Mutex *>(std::malloc(sizeof(OV_Mutex)));
    if (m == nullptr) {
        CloseHandle(h);
        return nullptr;
    }
    m->handle = h;
    return m;
}

bool OV_MutexLock(OV_Mutex *mutex) {
    if (mutex == nullptr) {
        return false;
    }
    DWORD rc = WaitForSingleObject(mutex->handle, INFINITE);
    return rc == WAIT_OBJECT_0 || rc == WAIT_ABANDONED;
}

bool OV_MutexUnlock(OV_Mutex *mutex) {
    return mutex != nullptr && ReleaseMutex(mutex->handle) != FALSE;
}

bool OV_MutexClose(OV_Mutex *mutex) {
    if (mutex == nullptr) {
        return false;
    }
    bool ok = CloseHandle(mutex->handle) != FALSE;
    std::free(mutex);
    return ok;
}

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(OV_CritSec::opaque));
static_assert(alignof(CRITICAL_SECTION) <= 8);

static CRITICAL_SECTION *AsCs(OV_CritSec *cs) {
    return reinterpret_cast<CRITICAL_SECTION *>(cs->opaque);
}

bool OV_CritSecInit(OV_CritSec *cs, uint32_t spinCount) {
    return InitializeCriticalSectionAndSpinCount(AsCs(cs), spinCount) != FALSE;
}

void OV_CritSecEnter(OV_CritSec *cs) {
    EnterCriticalSection(AsCs(cs));
}

void OV_CritSecLeave(OV_CritSec *cs) {
    LeaveCriticalSection(AsCs(cs));
}

// INIT_ONCE_STATIC_INIT is all zeros: zeroed storage is a fresh flag.
static_assert(sizeof(INIT_ONCE) <= sizeof(OV_Once::opaque));
static_assert(alignof(INIT_ONCE) <= 8);

namespace {

struct OnceCall {
    void (*init)();
};

BOOL CALLBACK RunOnceThunk(PINIT_ONCE /*once*/, PVOID param, PVOID * /*context*/) {
    static_cast<OnceCall *>(param)->init();
    return TRUE;
}

} // namespace

void OV_RunOnce(OV_Once *once, void (*init)()) {
    OnceCall call{init};
    OV_FATAL_ASSERT(InitOnceExecuteOnce(reinterpret_cast<PINIT_ONCE>(once->opaque), RunOnceThunk,
                                        &call, nullptr) != FALSE);
}

void OV_GetLocalTime(OV_LocalTime *out) {
    SYSTEMTIME st;
    GetLocalTime(&st);
    out->year = st.wYear;
    out->month = st.wMonth;
    out->day = st.wDay;
    out->hour = st.wHour;
    out->minute = st.wMinute;
    out->second = st.wSecond;
    out->milliseconds = st.wMilliseconds;
}

uint64_t OV_GetTickCount64() {
    return GetTickCount64();
}

void OV_SleepMs(uint32_t ms) {
    Sleep(ms);
}

bool OV_FileExists(const char *path) {
    return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool OV_FileMakeWritable(const char *path) {
    DWORD attrs = GetFileAttributesA(path);
    if (attrs == INVALID_FILE_ATTRIBUTES) {
        return false;
    }
    if ((attrs & FILE_ATTRIBUTE_READONLY) == 0) {
        return true;
    }
    return SetFileAttributesA(path, attrs & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)) != FALSE;
}

bool OV_FileDelete(const char *path) {
    return DeleteFileA(path) != FALSE;
}

bool OV_FileRename(const char *from, const char *to) {
    return MoveFileA(from, to) != FALSE;
}

void OV_SetStdoutBinary() {
    std::fflush(stdout);
    _setmode(_fileno(stdout), _O_BINARY);
}

void OV_FatalCrash() {
    // A deliberate write through a null pointer the compiler cannot see.
    volatile int *volatile p = nullptr;
    *p = 0; // NOLINT(clang-analyzer-core.NullDereference): the deliberate stop
    __builtin_trap();
}
