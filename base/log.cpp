// Time-stamped logging, rotating log files and log modules.
#include "base/log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

// Formats into a std::string; the text of a line can be of any length (a
// converter logs the whole JSON argument).
std::string FormatV(const char *fmt, va_list ap) {
    char stackBuf[512];
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(stackBuf, sizeof stackBuf, fmt, copy);
    va_end(copy);
    if (n < 0) {
        return {};
    }
    if (static_cast<size_t>(n) < sizeof stackBuf) {
        return std::string(stackBuf, static_cast<size_t>(n));
    }
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), fmt, ap);
    out.resize(static_cast<size_t>(n));
    return out;
}

void (*g_timeSource)(OV_LocalTime *) = nullptr;

// "[yyyy/mm/dd_hh:mm:ss.mmm]" is 25 characters.
constexpr size_t kStampLen = 25;
constexpr size_t kLineBufLen = 1024;

// Writes the time stamp into buf (at least kStampLen + 1 bytes); returns its length.
size_t FormatStamp(char *buf, size_t size) {
    OV_LocalTime t{};
    if (g_timeSource != nullptr) {
        g_timeSource(&t);
    } else {
        OV_GetLocalTime(&t);
    }
    int n = std::snprintf(buf, size, "[%04d/%02d/%02d_%02d:%02d:%02d.%03d]", t.year, t.month, t.day,
                          t.hour, t.minute, t.second, t.milliseconds);
    return n < 0 ? 0 : std::min(static_cast<size_t>(n), size - 1);
}

std::string TimeStamp() {
    char buf[64];
    return std::string(buf, FormatStamp(buf, sizeof buf));
}

// Standard output is flushed after every line unless the program asked for
// its own buffering (pdtool, a one-shot program, flushes once at exit).
bool g_flushEachLine = true;

struct LogFileSlot {
    FILE *stream;
    uint32_t opened;
    uint32_t rotate;
    OV_LogArchiveFunc archive;
    char suffix[OV_LOG_SUFFIX_LEN];
    uint32_t curSize;
    uint32_t maxSize;
    uint32_t backups;
    OV_CritSec lock;
    bool lockReady;
    char path[OV_LOG_PATH_LEN];
};

LogFileSlot g_slots[OV_LOG_FILE_MAX];
std::mutex g_slotTableLock;
int32_t g_defaultIndex = -1;

bool SlotTaken(int32_t index) {
    return index >= 0 && index < OV_LOG_FILE_MAX && g_slots[index].stream != nullptr;
}

// Builds a backup name into a 512-byte buffer; false when it does not fit.
bool BackupName(const LogFileSlot &s, uint32_t k, char (&out)[OV_LOG_PATH_LEN]) {
    int n = s.archive != nullptr ? std::snprintf(out, sizeof out, "%s.%u.%s", s.path, k, s.suffix)
                                 : std::snprintf(out, sizeof out, "%s.%u", s.path, k);
    return n >= 0 && static_cast<size_t>(n) < sizeof out - 1;
}

void Rotate(LogFileSlot &s) {
    char from[OV_LOG_PATH_LEN];
    char to[OV_LOG_PATH_LEN];
    for (uint32_t k = s.backups > 0 ? s.backups - 1 : 0; k >= 1; --k) {
        if (!BackupName(s, k, to) || !BackupName(s, k - 1, from)) {
            return;
        }
        OV_FileDelete(to);
        OV_FileRename(from, to);
    }
    if (!BackupName(s, 0, to)) {
        return;
    }
    std::fclose(s.stream);
    s.stream = nullptr;
    OV_FileDelete(to);
    if (s.archive == nullptr) {
        OV_FileRename(s.path, to);
    } else {
        s.archive(s.path, to);
    }
    OV_FileDelete(s.path);
    s.stream = std::fopen(s.path, "ab");
    s.curSize = 0;
    if (s.stream == nullptr) {
        // The slot stays taken; lines go to standard output until a reopen works.
        s.stream = stdout;
        s.opened = 0;
    }
}

// Writes one finished line into a slot's stream; the caller holds its lock.
size_t WriteToSlot(LogFileSlot &s, const char *line, size_t len) {
    size_t n = std::fwrite(line, 1, len, s.stream);
    if (s.opened != 0) {
        long pos = std::ftell(s.stream);
        s.curSize = pos > 0 ? static_cast<uint32_t>(pos) : 0;
        if (s.curSize >= s.maxSize && s.rotate != 0) {
            Rotate(s);
            return n;
        }
    }
    std::fflush(s.stream);
    return n;
}

// Writes one line that already carries its time stamp.
int WriteLine(int32_t index, const char *line, size_t len) {
    if (SlotTaken(index)) {
        LogFileSlot &s = g_slots[index];
        OV_CritSecEnter(&s.lock);
        size_t n = WriteToSlot(s, line, len);
        OV_CritSecLeave(&s.lock);
        return static_cast<int>(n);
    }
    // One fwrite per line keeps lines of concurrent threads whole.
    size_t n = std::fwrite(line, 1, len, stdout);
    if (g_flushEachLine) {
        std::fflush(stdout);
    }
    return static_cast<int>(n);
}

// The line OV_LogModuleStdOutput would write for a module message, built
// with one small format for the head and a copy of the text: the text may be
// a whole JSON argument, and printf is slow to measure long output. Returns
// false (nothing written) when the head does not fit its buffer.
bool WriteModuleLine(const char *prefix, const char *name, const char *func, int line,
                     const char *text) {
    char buf[kLineBufLen];
    size_t len = FormatStamp(buf, sizeof buf);
    // The context between ">" and "[" is empty.
    int head =
        std::snprintf(buf + len, sizeof buf - len, "<%s%s>[%s:%d] ", prefix, name, func, line);
    if (head < 0 || static_cast<size_t>(head) >= sizeof buf - len) {
        return false;
    }
    len += static_cast<size_t>(head);
    size_t textLen = std::strlen(text);
    if (textLen < sizeof buf - len) {
        std::memcpy(buf + len, text, textLen);
        WriteLine(g_defaultIndex, buf, len + textLen);
        return true;
    }
    std::string whole;
    whole.reserve(len + textLen);
    whole.append(buf, len).append(text, textLen);
    WriteLine(g_defaultIndex, whole.data(), whole.size());
    return true;
}

LogFileSlot *SlotFor(int32_t index) {
    if (index < 0 || index >= OV_LOG_FILE_MAX) {
        return nullptr;
    }
    return g_slots[index].stream != nullptr ? &g_slots[index] : nullptr;
}

// ---- modules ----------------------------------------------------------------

struct LogModule {
    uint8_t id;
    uint8_t level;
    uint32_t interval;
    uint32_t burst;
    uint32_t printed;
    uint32_t suppressed;
    uint64_t periodStart;
    char name[32];
    bool registered;
    OV_LogOutputFunc output;
    OV_LogPrefixFunc prefix;
};

LogModule g_logModules[OV_LOG_MODULE_MAX];
std::mutex g_logModuleLock;

constexpr const char *kLevelNames[] = {"Trace", "Debug", "Info", "Warning", "Error", "Crit"};

// The period ends at the next message: the expiry test compares the tick
// count with the period start itself, not start plus interval (kept as is).
bool RateLimitPasses(LogModule &m) {
    if (m.interval == 0) {
        return true;
    }
    uint64_t now = OV_GetTickCount64();
    if (m.periodStart == 0) {
        m.periodStart = now;
    }
    if (now >= m.periodStart) {
        if (m.suppressed != 0) {
            OV_Log("<Warn>%s: %d callbacks suppressed\n", m.name, static_cast<int>(m.suppressed));
        }
        m.periodStart = 0;
        m.printed = 0;
        m.suppressed = 0;
    }
    if (m.printed < m.burst) {
        ++m.printed;
        return true;
    }
    ++m.suppressed;
    return false;
}

} // namespace

int OV_LogV(const char *fmt, va_list ap) {
    // The stamp and the text are formatted into one stack buffer; only a
    // longer line (a converter logs the whole JSON argument) takes the heap.
    char buf[kLineBufLen];
    size_t stampLen = FormatStamp(buf, sizeof buf);
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(buf + stampLen, sizeof buf - stampLen, fmt, copy);
    va_end(copy);
    if (n < 0) {
        return WriteLine(g_defaultIndex, buf, stampLen);
    }
    if (static_cast<size_t>(n) < sizeof buf - stampLen) {
        return WriteLine(g_defaultIndex, buf, stampLen + static_cast<size_t>(n));
    }
    std::string line(stampLen + static_cast<size_t>(n) + 1, '\0');
    std::memcpy(line.data(), buf, stampLen);
    std::vsnprintf(line.data() + stampLen, static_cast<size_t>(n) + 1, fmt, ap);
    return WriteLine(g_defaultIndex, line.data(), stampLen + static_cast<size_t>(n));
}

void OV_LogSetFlushEachLine(bool on) {
    g_flushEachLine = on;
}

int OV_Log(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = OV_LogV(fmt, ap);
    va_end(ap);
    return n;
}

void OV_LogSetTimeSource(void (*source)(OV_LocalTime *out)) {
    g_timeSource = source;
}

int32_t OV_LogFileOpen(const char *path, uint32_t pathLen) {
    if (path == nullptr || pathLen >= OV_LOG_PATH_LEN) {
        return -22;
    }
    std::lock_guard<std::mutex> guard(g_slotTableLock);
    int32_t index = -1;
    for (int32_t i = 0; i < OV_LOG_FILE_MAX; ++i) {
        if (g_slots[i].stream == nullptr) {
            index = i;
            break;
        }
    }
    if (index < 0) {
        return -2;
    }
    LogFileSlot &s = g_slots[index];
    if (!s.lockReady) {
        OV_CritSecInit(&s.lock, 4096);
        s.lockReady = true;
    }
    s.stream = stdout;
    s.opened = 0;
    s.rotate = 0;
    s.archive = nullptr;
    std::memset(s.suffix, 0, sizeof s.suffix);
    s.curSize = 0;
    s.maxSize = OV_LOG_DEFAULT_MAX_SIZE;
    s.backups = OV_LOG_DEFAULT_BACKUPS;
    std::memset(s.path, 0, sizeof s.path);
    std::memcpy(s.path, path, strnlen(path, pathLen));
    if (OV_FileExists(s.path)) {
        OV_FileMakeWritable(s.path);
    }
    FILE *f = std::fopen(s.path, "ab");
    if (f == nullptr) {
        std::fprintf(stderr, "_OV_LogFileOpen(%s) faled(ret = %d).\n", s.path, -5);
        s.stream = nullptr;
        return -5;
    }
    std::fseek(f, 0, SEEK_END);
    long size = std::ftell(f);
    s.curSize = size > 0 ? static_cast<uint32_t>(size) : 0;
    s.stream = f;
    s.opened = 1;
    OV_CritSecEnter(&s.lock);
    std::string start = TimeStamp() + "log start...\n\n";
    WriteToSlot(s, start.data(), start.size());
    OV_CritSecLeave(&s.lock);
    return index;
}

int32_t OV_LogDefaultFileOpenEx(const char *path, uint32_t pathLen, uint32_t maxSize,
                                uint32_t backups) {
    int32_t index = OV_LogFileOpen(path, pathLen);
    if (index < 0) {
        return index;
    }
    if (maxSize != 0) {
        g_slots[index].maxSize = maxSize;
    }
    if (backups != 0) {
        g_slots[index].backups = backups;
    }
    g_slots[index].rotate = 1;
    g_defaultIndex = index;
    return index;
}

int32_t OV_LogDefaultFileOpen(const char *path, uint32_t pathLen) {
    return OV_LogDefaultFileOpenEx(path, pathLen, 0, 0);
}

void OV_LogFileClose(int32_t index) {
    std::lock_guard<std::mutex> guard(g_slotTableLock);
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr) {
        return;
    }
    if (g_defaultIndex == index) {
        g_defaultIndex = -1;
    }
    OV_CritSecEnter(&s->lock);
    if (s->stream != stdout) {
        std::fclose(s->stream);
    }
    s->stream = nullptr;
    s->opened = 0;
    OV_CritSecLeave(&s->lock);
}

int32_t OV_LogFileSetMaxSize(int32_t index, uint32_t maxSize) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr) {
        return -22;
    }
    s->maxSize = maxSize;
    return 0;
}

int32_t OV_LogFileGetMaxSize(int32_t index, uint32_t *maxSize) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr || maxSize == nullptr) {
        return -22;
    }
    *maxSize = s->maxSize;
    return 0;
}

int32_t OV_LogFileSetBackups(int32_t index, uint32_t backups) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr) {
        return -22;
    }
    s->backups = backups;
    return 0;
}

int32_t OV_LogFileGetBackups(int32_t index, uint32_t *backups) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr || backups == nullptr) {
        return -22;
    }
    *backups = s->backups;
    return 0;
}

int32_t OV_LogFileSetRotate(int32_t index, uint32_t rotate) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr) {
        return -22;
    }
    s->rotate = rotate;
    return 0;
}

int32_t OV_LogFileGetRotate(int32_t index, uint32_t *rotate) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr || rotate == nullptr) {
        return -22;
    }
    *rotate = s->rotate;
    return 0;
}

int32_t OV_LogFileSetArchive(int32_t index, OV_LogArchiveFunc archive, const char *suffix) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr || suffix == nullptr || std::strlen(suffix) >= OV_LOG_SUFFIX_LEN) {
        return -22;
    }
    OV_CritSecEnter(&s->lock);
    s->archive = archive;
    std::memset(s->suffix, 0, sizeof s->suffix);
    std::memcpy(s->suffix, suffix, std::strlen(suffix));
    OV_CritSecLeave(&s->lock);
    return 0;
}

int32_t OV_LogFileReopen(int32_t index) {
    LogFileSlot *s = SlotFor(index);
    if (s == nullptr) {
        return -22;
    }
    OV_CritSecEnter(&s->lock);
    if (s->stream != stdout) {
        std::fclose(s->stream);
    }
    FILE *f = std::fopen(s->path, "ab");
    int32_t rc = 0;
    if (f == nullptr) {
        s->stream = stdout;
        s->opened = 0;
        rc = -5;
    } else {
        std::fseek(f, 0, SEEK_END);
        long size = std::ftell(f);
        s->curSize = size > 0 ? static_cast<uint32_t>(size) : 0;
        s->stream = f;
        s->opened = 1;
    }
    OV_CritSecLeave(&s->lock);
    return rc;
}

const char *OV_LogLevelName(uint32_t level) {
    return level < sizeof kLevelNames / sizeof kLevelNames[0] ? kLevelNames[level] : "";
}

int32_t OV_LogModuleRegister(uint32_t id, const char *name, uint32_t level, uint32_t interval,
                             uint32_t burst) {
    if (id >= OV_LOG_MODULE_MAX) {
        return -22;
    }
    {
        std::lock_guard<std::mutex> guard(g_logModuleLock);
        LogModule &m = g_logModules[id];
        if (m.registered) {
            return -17;
        }
        m = LogModule{};
        m.id = static_cast<uint8_t>(id);
        m.level = static_cast<uint8_t>(level);
        m.interval = interval;
        m.burst = burst;
        if (name != nullptr) {
            std::snprintf(m.name, sizeof m.name, "%s", name);
        }
        m.registered = true;
    }
    OV_Log("<Info>register %s[%u](%s ratalimit=%u,%u) log module success.\n", g_logModules[id].name,
           id, OV_LogLevelName(level), interval, burst);
    return 0;
}

void OV_LogModuleUnregister(uint32_t id) {
    if (id >= OV_LOG_MODULE_MAX) {
        return;
    }
    char name[32];
    {
        std::lock_guard<std::mutex> guard(g_logModuleLock);
        LogModule &m = g_logModules[id];
        if (!m.registered) {
            return;
        }
        std::memcpy(name, m.name, sizeof name);
        m = LogModule{};
    }
    OV_Log("<Info>unregister %s[%u] log module success.\n", name, id);
}

int32_t OV_LogModuleSetOutput(uint32_t id, OV_LogOutputFunc output, OV_LogPrefixFunc prefix) {
    if (id >= OV_LOG_MODULE_MAX) {
        return -22;
    }
    std::lock_guard<std::mutex> guard(g_logModuleLock);
    LogModule &m = g_logModules[id];
    if (!m.registered) {
        return -22;
    }
    m.output = output;
    m.prefix = prefix;
    return 0;
}

void OV_LogModuleStdOutput(uint32_t /*level*/, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    OV_LogV(fmt, ap);
    va_end(ap);
}

bool OV_LogModuleShouldLog(uint32_t id, uint32_t level, bool rateLimit) {
    if (id >= OV_LOG_MODULE_MAX) {
        return false;
    }
    std::lock_guard<std::mutex> guard(g_logModuleLock);
    LogModule &m = g_logModules[id];
    if (!m.registered || level < m.level) {
        return false;
    }
    return rateLimit ? RateLimitPasses(m) : true;
}

void OV_LogModuleMsg(uint32_t id, uint32_t level, bool rateLimit, const char *func, int line,
                     const char *fmt, ...) {
    if (!OV_LogModuleShouldLog(id, level, rateLimit)) {
        return;
    }
    OV_LogOutputFunc output;
    const char *prefix;
    char name[32];
    {
        std::lock_guard<std::mutex> guard(g_logModuleLock);
        const LogModule &m = g_logModules[id];
        output = m.output;
        prefix = m.prefix != nullptr ? m.prefix(level) : "";
        std::memcpy(name, m.name, sizeof name);
    }
    if (output == nullptr) {
        return;
    }
    va_list ap;
    va_start(ap, fmt);
    // Most callers hand over a finished message with "%s": it is used as it
    // is rather than copied through another formatting pass.
    const char *text = nullptr;
    std::string formatted;
    if (fmt[0] == '%' && fmt[1] == 's' && fmt[2] == '\0') {
        text = va_arg(ap, const char *);
    } else {
        formatted = FormatV(fmt, ap);
        text = formatted.c_str();
    }
    va_end(ap);
    if (text == nullptr) {
        text = "(null)"; // what printf shows for it
    }
    if (output == OV_LogModuleStdOutput && WriteModuleLine(prefix, name, func, line, text)) {
        return;
    }
    output(level, "<%s%s>%s[%s:%d] %s", prefix, name, "", func, line, text);
}
