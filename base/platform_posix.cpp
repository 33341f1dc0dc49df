// POSIX implementation of the platform primitives.
#include "base/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

struct OV_Mutex {
    pthread_mutex_t mutex;
};

OV_Mutex *OV_MutexCreate() {
    auto *m = static_cast<OV_Mutex *>(std::malloc(sizeof(OV_Mutex)));
    if (m == nullptr) {
        return nullptr;
    }
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    // Error checking, so an unlock by a non-owner fails as it does on Windows.
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    int rc = pthread_mutex_init(&m->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        std::free(m);
        return nullptr;
    }
    return m;
}

bool OV_MutexLock(OV_Mutex *mutex) {
    return mutex != nullptr && pthread_mutex_lock(&mutex->mutex) == 0;
}

bool OV_MutexUnlock(OV_Mutex *mutex) {
    return mutex != nullptr && pthread_mutex_unlock(&mutex->mutex) == 0;
}

bool OV_MutexClose(OV_Mutex *mutex) {
    if (mutex == nullptr) {
        return false;
    }
    bool ok = pthread_mutex_destroy(&mutex->mutex) == 0;
    std::free(mutex);
    return ok;
}

static_assert(sizeof(pthread_mutex_t) <= sizeof(OV_CritSec::opaque));
static_assert(alignof(pthread_mutex_t) <= 8);

static pthread_mutex_t *AsMutex(OV_CritSec *cs) {
    return reinterpret_cast<pthread_mutex_t *>(cs->opaque);
}

bool OV_CritSecInit(OV_CritSec *cs, uint32_t /*spinCount*/) {
    return pthread_mutex_init(AsMutex(cs), nullptr) == 0;
}

void OV_CritSecEnter(OV_CritSec *cs) {
    pthread_mutex_lock(AsMutex(cs));
}

void OV_CritSecLeave(OV_CritSec *cs) {
    pthread_mutex_unlock(AsMutex(cs));
}

// glibc's PTHREAD_ONCE_INIT is the integer 0: zeroed storage is a fresh flag.
static_assert(PTHREAD_ONCE_INIT == 0);
static_assert(sizeof(pthread_once_t) <= sizeof(OV_Once::opaque));
static_assert(alignof(pthread_once_t) <= 8);

void OV_RunOnce(OV_Once *once, void (*init)()) {
    OV_FATAL_ASSERT(pthread_once(reinterpret_cast<pthread_once_t *>(once->opaque), init) == 0);
}

void OV_GetLocalTime(OV_LocalTime *out) {
    // localtime_r was most of the cost of a log line, and lines come many to
    // a second: each thread keeps the broken-down time of its last second.
    thread_local time_t cachedSecs = -1;
    thread_local tm cachedLocal{};
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    if (ts.tv_sec != cachedSecs) {
        time_t secs = ts.tv_sec;
        localtime_r(&secs, &cachedLocal);
        cachedSecs = secs;
    }
    const tm &local = cachedLocal;
    out->year = static_cast<uint16_t>(local.tm_year + 1900);
    out->month = static_cast<uint16_t>(local.tm_mon + 1);
    out->day = static_cast<uint16_t>(local.tm_mday);
    out->hour = static_cast<uint16_t>(local.tm_hour);
    out->minute = static_cast<uint16_t>(local.tm_min);
    out->second = static_cast<uint16_t>(local.tm_sec);
    out->milliseconds = static_cast<uint16_t>(ts.tv_nsec / 1000000);
}

uint64_t OV_GetTickCount64() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

void OV_SleepMs(uint32_t ms) {
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

bool OV_FileExists(const char *path) {
    struct stat st {};
    return stat(path, &st) == 0;
}

bool OV_FileMakeWritable(const char *path) {
    struct stat st {};
    if (stat(path, &st) != 0) {
        return false;
    }
    if ((st.st_mode & S_IWUSR) != 0) {
        return true;
    }
    return chmod(path, st.st_mode | S_IWUSR) == 0;
}

bool OV_FileDelete(const char *path) {
    return unlink(path) == 0;
}

bool OV_FileRename(const char *from, const char *to) {
    // MoveFile semantics: never replace an existing target.
    if (OV_FileExists(to)) {
        return false;
    }
    return rename(from, to) == 0;
}

void OV_SetStdoutBinary() {}

void OV_FatalCrash() {
    // A deliberate write through a null pointer the compiler cannot see.
    volatile int *volatile p = nullptr;
    *p = 0; // NOLINT(clang-analyzer-core.NullDereference): the deliberate stop
    __builtin_trap();
}
