// Logging: the plain time-stamped log call, up to 64 log files with size
// rotation, and the table of named log modules with levels and rate limits.
//
// With no default log file open (always the case in pdtool) every line goes
// to standard output, where it mixes with the command's own output.
#pragma once

#include "base/platform.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#if defined(__MINGW32__)
// The Windows build formats with the C99 printf of the mingw runtime
// (__USE_MINGW_ANSI_STDIO), so %zd and %llu mean the same on both builds.
#define OV_PRINTF_FMT(fmtIndex, firstArg) __attribute__((format(gnu_printf, fmtIndex, firstArg)))
#elif defined(__GNUC__)
#define OV_PRINTF_FMT(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))
#else
#define OV_PRINTF_FMT(fmtIndex, firstArg)
#endif

/// Writes "[yyyy/mm/dd_hh:mm:ss.mmm]" and the formatted message to the default
/// destination. No newline is added. Returns the number of characters written.
int OV_Log(const char *fmt, ...) OV_PRINTF_FMT(1, 2);
int OV_LogV(const char *fmt, va_list ap);

/// Replaces the clock of the time stamp (tests); nullptr restores the real one.
void OV_LogSetTimeSource(void (*source)(OV_LocalTime *out));

/// Takes, in place of standard output, every finished line (time stamp
/// included, len bytes, no NUL counted) that would go there: another front
/// end routes the log elsewhere or drops it. nullptr restores standard output.
using OV_LogLineSink = void (*)(const char *line, size_t len);
void OV_LogSetLineSink(OV_LogLineSink sink);

/// Whether a line written to standard output is flushed at once (the default).
/// A one-shot program that flushes before it exits may turn this off and save
/// a write per line; the bytes written stay the same.
void OV_LogSetFlushEachLine(bool on);

// ---- Log files --------------------------------------------------------------

constexpr int32_t OV_LOG_FILE_MAX = 64;
constexpr uint32_t OV_LOG_PATH_LEN = 512;
constexpr uint32_t OV_LOG_SUFFIX_LEN = 16;
constexpr uint32_t OV_LOG_DEFAULT_MAX_SIZE = 52428800;
constexpr uint32_t OV_LOG_DEFAULT_BACKUPS = 4;

/// Turns the current file into a backup (for instance by compressing it).
/// Called with the file's path and the name of backup 0.
using OV_LogArchiveFunc = void (*)(const char *src, const char *dst);

/// Opens a log file for appending. Returns the slot index, -22 when the path
/// length is 512 or more, -2 when all 64 slots are taken, -5 when the file
/// cannot be opened.
int32_t OV_LogFileOpen(const char *path, uint32_t pathLen);
/// Opens a slot, makes it the default destination and turns rotation on.
int32_t OV_LogDefaultFileOpen(const char *path, uint32_t pathLen);
/// As above; also sets the maximum size and the backups when they are non-zero.
int32_t OV_LogDefaultFileOpenEx(const char *path, uint32_t pathLen, uint32_t maxSize,
                                uint32_t backups);
/// Releases the slot (and stops it being the default destination).
void OV_LogFileClose(int32_t index);

/// Slot setters and getters: 0, or -22 for an index of 64 or more, a free
/// slot or a null result pointer.
int32_t OV_LogFileSetMaxSize(int32_t index, uint32_t maxSize);
int32_t OV_LogFileGetMaxSize(int32_t index, uint32_t *maxSize);
int32_t OV_LogFileSetBackups(int32_t index, uint32_t backups);
int32_t OV_LogFileGetBackups(int32_t index, uint32_t *backups);
int32_t OV_LogFileSetRotate(int32_t index, uint32_t rotate);
int32_t OV_LogFileGetRotate(int32_t index, uint32_t *rotate);
/// The suffix must be shorter than 16 bytes.
int32_t OV_LogFileSetArchive(int32_t index, OV_LogArchiveFunc archive, const char *suffix);
/// Closes and opens the file again (after an outside rotation, say).
int32_t OV_LogFileReopen(int32_t index);

// ---- Log modules ------------------------------------------------------------

enum OV_LogLevel : uint32_t {
    OV_LOG_TRACE = 0,
    OV_LOG_DEBUG = 1,
    OV_LOG_INFO = 2,
    OV_LOG_WARNING = 3,
    OV_LOG_ERROR = 4,
    OV_LOG_CRIT = 5,
};

constexpr uint32_t OV_LOG_MODULE_MAX = 64;

/// "Trace" ... "Crit"; "" for any other number.
const char *OV_LogLevelName(uint32_t level);

/// Receives a finished module message; fmt ends with the message's own "\n".
using OV_LogOutputFunc = void (*)(uint32_t level, const char *fmt, ...);
/// Returns the level prefix written before the module name ("" for none).
using OV_LogPrefixFunc = const char *(*)(uint32_t level);

/// Returns 0, -22 for an id of 64 or more, -17 when the id is registered.
int32_t OV_LogModuleRegister(uint32_t id, const char *name, uint32_t level, uint32_t interval,
                             uint32_t burst);
void OV_LogModuleUnregister(uint32_t id);
/// Sets where the module's messages go. A module without an output function
/// drops its messages.
int32_t OV_LogModuleSetOutput(uint32_t id, OV_LogOutputFunc output, OV_LogPrefixFunc prefix);
/// An output function that writes through the plain log call.
void OV_LogModuleStdOutput(uint32_t level, const char *fmt, ...) OV_PRINTF_FMT(2, 3);

/// The should-log test: registered module, level at or above the module's,
/// and the rate limit when asked for.
bool OV_LogModuleShouldLog(uint32_t id, uint32_t level, bool rateLimit);

/// Writes "<%s%s>%s[%s:%d] " (level prefix, module name, context, function,
/// line) followed by the formatted message, through the module's output.
void OV_LogModuleMsg(uint32_t id, uint32_t level, bool rateLimit, const char *func, int line,
                     const char *fmt, ...) OV_PRINTF_FMT(6, 7);
