// Time-stamped logging, rotating log files and log modules.
#include "base/log.h"

#include "base/heap.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// The two table locks, made ready on first use (see InitLocks).
OV_Once g_locksOnce;
OV_CritSec g_slotTableLock;
OV_CritSec g_logModuleLock;

void InitLocks() {
    OV_CritSecInit(&g_slotTableLock, 0);
    OV_CritSecInit(&g_logModuleLock, 0);
}

OV_CritSec *SlotTableLock() {
    OV_RunOnce(&g_locksOnce, InitLocks);
    return &g_slotTableLock;
}

OV_CritSec *LogModuleLock() {
    OV_RunOnce(&g_locksOnce, InitLocks);
    return &g_logModuleLock;
}

void (*g_timeSource)(OV_LocalTime *) = nullptr;

constexpr size_t kLineBufLen = 1024;
// "[yyyy/mm/dd_hh:mm:ss.mmm]" with every field within its width.
constexpr size_t kStampLen = 25;

// A line put together by hand in a bounded buffer. The time stamp and a
// module line's head are written for every line; formatting them with
// snprintf took a quarter of a whole pdtool run's instructions.
class LineBuilder {
  public:
    LineBuilder(char *buf, size_t size) : buf_(buf), size_(size) {}

    void Put(std::string_view text) {
        if (text.size() > size_ - len_) {
            full_ = true;
            return;
        }
        std::memcpy(buf_ + len_, text.data(), text.size());
        len_ += text.size();
    }
    void Put(char c) {
        if (len_ == size_) {
            full_ = true;
            return;
        }
        buf_[len_++] = c;
    }
    // Decimal, zero-padded to at least width digits, as "%0*u" prints it.
    void PutUnsigned(unsigned value, size_t width) {
        char digits[16];
        size_t n = 0;
        do {
            digits[n++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        while (n < width && n < sizeof digits) {
            digits[n++] = '0';
        }
        char text[16];
        for (size_t i = 0; i < n; ++i) {
            text[i] = digits[n - 1 - i];
        }
        Put(std::string_view(text, n));
    }
    void PutInt(int value) {
        if (value < 0) {
            Put('-');
        }
        PutUnsigned(value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value),
                    1);
    }

    size_t size() const { return len_; }
    bool full() const { return full_; }

  private:
    char *buf_;
    size_t size_;
    size_t len_ = 0;
    bool full_ = false;
};

// Writes "[yyyy/mm/dd_hh:mm:ss.mmm]" and a NUL into buf (cut to fit size,
// which is at least 1); returns its length.
size_t FormatStamp(char *buf, size_t size) {
    OV_LocalTime t{};
    if (g_timeSource != nullptr) {
        g_timeSource(&t);
    } else {
        OV_GetLocalTime(&t);
    }
    // "[yyyy/mm/dd_hh:mm:ss.mmm]": each field after its separator.
    const struct {
        char before;
        unsigned value;
        size_t width;
    } fields[] = {{'[', t.year, 4},   {'/', t.month, 2},  {'/', t.day, 2},         {'_', t.hour, 2},
                  {':', t.minute, 2}, {':', t.second, 2}, {'.', t.milliseconds, 3}};
    constexpr unsigned kPowersOfTen[] = {1, 10, 100, 1000, 10000};
    bool fit = size > kStampLen;
    for (const auto &f : fields) {
        fit = fit && f.value < kPowersOfTen[f.width];
    }
    if (fit) {
        // Every field within its width: the digits go straight to their places.
        size_t at = 0;
        for (const auto &f : fields) {
            buf[at++] = f.before;
            unsigned v = f.value;
            for (size_t i = at + f.width; i > at; v /= 10) {
                buf[--i] = static_cast<char>('0' + v % 10);
            }
            at += f.width;
        }
        buf[at++] = ']';
        buf[at] = '\0';
        return at;
    }
    char stamp[64]; // seven fields of at most 5 digits and 8 separators
    LineBuilder b(stamp, sizeof stamp);
    for (const auto &f : fields) {
        b.Put(f.before);
        b.PutUnsigned(f.value, f.width);
    }
    b.Put(']');
    size_t len = std::min(b.size(), size - 1);
    std::memcpy(buf, stamp, len);
    buf[len] = '\0';
    return len;
}

// Standard output is flushed after every line unless the program asked for
// its own buffering (pdtool, a one-shot program, flushes once at exit).
bool g_flushEachLine = true;
OV_LogLineSink g_lineSink = nullptr;

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
    if (g_lineSink != nullptr) {
        g_lineSink(line, len);
        return static_cast<int>(len);
    }
    // One fwrite per line keeps lines of concurrent threads whole.
    size_t n = std::fwrite(line, 1, len, stdout);
    if (g_flushEachLine) {
        std::fflush(stdout);
    }
    return static_cast<int>(n);
}

// The line OV_LogModuleStdOutput would write for a module message, put
// together by hand rather than formatted: the text may be a whole JSON
// argument, and printf is slow to measure long output. Returns false
// (nothing written) when the head does not fit its buffer.
bool WriteModuleLine(const char *prefix, const char *name, const char *func, int line,
                     const char *text) {
    char buf[kLineBufLen];
    size_t stampLen = FormatStamp(buf, sizeof buf);
    // "<%s%s>[%s:%d] ": the context between ">" and "[" is empty.
    LineBuilder head(buf + stampLen, sizeof buf - stampLen - 1);
    head.Put('<');
    head.Put(prefix);
    head.Put(name);
    head.Put(">[");
    head.Put(func);
    head.Put(':');
    head.PutInt(line);
    head.Put("] ");
    if (head.full()) {
        return false;
    }
    size_t len = stampLen + head.size();
    size_t textLen = std::strlen(text);
    if (textLen < sizeof buf - len) {
        std::memcpy(buf + len, text, textLen);
        WriteLine(g_defaultIndex, buf, len + textLen);
        return true;
    }
    size_t wholeLen = 0;
    OV_CPtr<char> whole = OV_JoinText({{buf, len}, {text, textLen}}, &wholeLen);
    if (whole == nullptr) {
        return false; // the caller's formatting path shortens it instead
    }
    WriteLine(g_defaultIndex, whole.get(), wholeLen);
    return true;
}

// One module message to its output: the standard one writes the line itself.
void EmitModuleLine(OV_LogOutputFunc output, uint32_t level, const char *prefix, const char *name,
                    const char *func, int line, const char *text) {
    if (text == nullptr) {
        text = "(null)"; // what printf shows for it
    }
    if (output == OV_LogModuleStdOutput && WriteModuleLine(prefix, name, func, line, text)) {
        return;
    }
    output(level, "<%s%s>%s[%s:%d] %s", prefix, name, "", func, line, text);
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
    size_t len = stampLen + static_cast<size_t>(n);
    OV_CPtr<char> line(static_cast<char *>(std::malloc(len + 1)));
    if (line == nullptr) {
        // Memory is short: the line as far as the stack buffer holds it.
        return WriteLine(g_defaultIndex, buf, sizeof buf - 1);
    }
    std::memcpy(line.get(), buf, stampLen);
    std::vsnprintf(line.get() + stampLen, static_cast<size_t>(n) + 1, fmt, ap);
    return WriteLine(g_defaultIndex, line.get(), len);
}

void OV_LogSetLineSink(OV_LogLineSink sink) {
    g_lineSink = sink;
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
    OV_CritSecGuard guard(SlotTableLock());
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
    constexpr std::string_view kStart = "log start...\n\n";
    char start[64];
    size_t len = FormatStamp(start, sizeof start - kStart.size());
    std::memcpy(start + len, kStart.data(), kStart.size());
    WriteToSlot(s, start, len + kStart.size());
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
    OV_CritSecGuard guard(SlotTableLock());
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
        OV_CritSecGuard guard(LogModuleLock());
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
        OV_CritSecGuard guard(LogModuleLock());
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
    OV_CritSecGuard guard(LogModuleLock());
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
    OV_CritSecGuard guard(LogModuleLock());
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
        OV_CritSecGuard guard(LogModuleLock());
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
    if (fmt[0] == '%' && fmt[1] == 's' && fmt[2] == '\0') {
        const char *text = va_arg(ap, const char *);
        va_end(ap);
        EmitModuleLine(output, level, prefix, name, func, line, text);
        return;
    }
    OV_FormattedText formatted(fmt, ap);
    va_end(ap);
    EmitModuleLine(output, level, prefix, name, func, line, formatted.c_str());
}
