// Result lines, JSON lines, the input file and the progress line.
#include "pdctl/report.h"

#include "base/errors.h"
#include "base/platform.h"
#include "pdctl/pdctl.h"
#include "pdctl/terminal.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

namespace pdctl {

namespace {

constexpr size_t kShownWordMax = 80;
constexpr uint64_t kProgressAfterLines = 300;
constexpr uint64_t kProgressEveryMs = 200;

} // namespace

InputFile::InputFile(const char *path) : name_(path) {
    if (std::strcmp(path, "-") == 0) {
        stream_ = stdin;
        name_ = "<stdin>";
        return;
    }
    stream_ = std::fopen(path, "rb");
    if (stream_ == nullptr) {
        std::fprintf(stderr, "pdctl: cannot read %s: %s\n", path, std::strerror(errno));
        return;
    }
    owned_ = true;
}

InputFile::~InputFile() {
    if (owned_) {
        std::fclose(stream_);
    }
}

bool RefuseUnreadable(const Line &line, Outcome *out) {
    if (line.problem == LineProblem::None) {
        return false;
    }
    *out = Outcome{};
    if (line.problem == LineProblem::TooLong) {
        out->result = -OV_EOVERFLOW;
        out->messages =
            "the line is longer than " + std::to_string(kMaxLineBytes) + " bytes; it is not run\n";
    } else {
        out->result = -OV_EINVAL;
        out->messages =
            "the line holds a NUL byte, which no command word can carry; it is not run\n";
    }
    return true;
}

std::string ShownWord(std::string_view line) {
    std::string_view word = WordName(line);
    if (word.size() <= kShownWordMax) {
        return std::string(word);
    }
    return std::string(word.substr(0, kShownWordMax)) + "...";
}

void PrintResult(const char *file, uint64_t line, std::string_view word, const char *fmt, ...) {
    std::printf("%s:%llu: %.*s: ", file, static_cast<unsigned long long>(line),
                static_cast<int>(word.size()), word.data());
    va_list ap;
    va_start(ap, fmt);
    std::vprintf(fmt, ap);
    va_end(ap);
    std::putchar('\n');
}

void PrintIndented(std::string_view text) {
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view one = text.substr(0, nl);
        std::printf("    %.*s\n", static_cast<int>(one.size()), one.data());
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
    }
}

json_object *NewLineObject(const char *file, uint64_t line, std::string_view word,
                           const Outcome &outcome) {
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, "file", json_object_new_string(file));
    json_object_object_add(obj, "line", json_object_new_int64(static_cast<int64_t>(line)));
    json_object_object_add(obj, "word",
                           json_object_new_string_len(word.data(), static_cast<int>(word.size())));
    json_object_object_add(obj, "module",
                           outcome.sent ? json_object_new_int(outcome.module) : nullptr);
    json_object_object_add(obj, "function",
                           outcome.sent ? json_object_new_int(outcome.function) : nullptr);
    return obj;
}

void AddResult(json_object *obj, int32_t result) {
    json_object_object_add(obj, "code", json_object_new_int(result));
    json_object_object_add(obj, "error",
                           result < 0 ? json_object_new_string(CmdErrorText(result)) : nullptr);
}

void AddMessages(json_object *obj, std::string_view text) {
    json_object *arr = json_object_new_array();
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view one = text.substr(0, nl);
        json_object_array_add(arr,
                              json_object_new_string_len(one.data(), static_cast<int>(one.size())));
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
    }
    json_object_object_add(obj, "messages", arr);
}

void PrintJsonLine(json_object *obj) {
    std::puts(json_object_to_json_string_ext(obj, JSON_C_TO_STRING_PLAIN |
                                                      JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(obj);
}

void PrintSummary(bool json, std::initializer_list<SummaryCount> counts) {
    if (json) {
        json_object *obj = json_object_new_object();
        for (const SummaryCount &c : counts) {
            json_object_object_add(obj, c.key, json_object_new_int64(static_cast<int64_t>(c.n)));
        }
        PrintJsonLine(obj);
        return;
    }
    std::string line;
    for (const SummaryCount &c : counts) {
        line += (line.empty() ? "" : ", ") + std::to_string(c.n) + " " + c.text;
    }
    std::puts(line.c_str());
}

int ReadFailed(const InputFile &input, int32_t rc) {
    std::fflush(stdout);
    std::fprintf(stderr, "pdctl: reading %s failed: %d (%s)\n", input.Name(), rc, CmdErrorText(rc));
    return kExitTrouble;
}

Progress::Progress() : enabled_(StderrIsTerminal()), start_(OV_GetTickCount64()) {}

void Progress::Update(uint64_t done, uint64_t read) {
    if (!enabled_ || read <= kProgressAfterLines) {
        return;
    }
    // A run over in a moment shows nothing.
    uint64_t now = OV_GetTickCount64();
    if (now - (shown_ ? lastDraw_ : start_) < kProgressEveryMs) {
        return;
    }
    lastDraw_ = now;
    uint64_t ms = now - start_;
    uint64_t rate = ms > 0 ? done * 1000 / ms : 0;
    std::fflush(stdout);
    std::fprintf(stderr, "\rpdctl: %llu done of %llu lines read, %llu lines/s ",
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(read),
                 static_cast<unsigned long long>(rate));
    std::fflush(stderr);
    shown_ = true;
}

void Progress::Hide() {
    if (shown_) {
        std::fprintf(stderr, "\r%72s\r", "");
        std::fflush(stderr);
        shown_ = false;
    }
}

} // namespace pdctl
