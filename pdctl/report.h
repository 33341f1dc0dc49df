// What apply and check share in reporting lines: the input file, the result
// line "FILE:LINE: WORD: ..." with the messages indented beneath it, the JSON
// object of a line, and the progress shown on a terminal.
#pragma once

#include "pdctl/line_reader.h"
#include "pdctl/runner.h"

#include <json-c/json.h>

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>

namespace pdctl {

/// The configuration file, or standard input for "-".
class InputFile {
  public:
    /// When the file cannot be opened, says why on standard error.
    explicit InputFile(const char *path);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    FILE *Stream() const { return stream_; } ///< nullptr when not open
    const char *Name() const { return name_; }

  private:
    FILE *stream_ = nullptr;
    const char *name_;
    bool owned_ = false;
};

/// Fills out as the run of a line the reader refused (too long, a NUL byte):
/// a failure with its code and one message, nothing run. Returns false when
/// the line has no such problem.
bool RefuseUnreadable(const Line &line, Outcome *out);

/// The word as shown in results: the text before the first "/", cut short
/// when it is long.
std::string ShownWord(std::string_view line);

/// Writes "FILE:LINE: WORD: " and what follows, then a line break.
void PrintResult(const char *file, uint64_t line, std::string_view word, const char *fmt, ...)
    OV_PRINTF_FMT(4, 5);
/// Each line of text on standard output, indented by four spaces.
void PrintIndented(std::string_view text);

/// A new object {"file", "line", "word"} and, when a request went out,
/// "module" and "function" (null otherwise). The caller owns it.
json_object *NewLineObject(const char *file, uint64_t line, std::string_view word,
                           const Outcome &outcome);
/// Adds "code" and "error" (null for a result of 0 or more).
void AddResult(json_object *obj, int32_t result);
/// Adds "messages": the text's lines as an array of strings.
void AddMessages(json_object *obj, std::string_view text);
/// Writes obj as one line on standard output and releases it.
void PrintJsonLine(json_object *obj);

/// One count of the summary line: its JSON key, its text and its number.
struct SummaryCount {
    const char *key;
    const char *text;
    uint64_t n;
};
/// The run's last line: {"key":N,...} with --json, else "N text, N text, ...".
void PrintSummary(bool json, std::initializer_list<SummaryCount> counts);
/// Says on standard error that reading the input failed at rc; returns the
/// exit status for it.
int ReadFailed(const InputFile &input, int32_t rc);

/// "done of read" lines and the rate on standard error, redrawn a few times
/// a second, when standard error is a terminal and the input has more than a
/// few hundred lines; nothing otherwise.
class Progress {
  public:
    Progress();
    ~Progress() { Hide(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void Update(uint64_t done, uint64_t read);
    /// Clears the progress line (before other output, and at the end).
    void Hide();

  private:
    bool enabled_;
    bool shown_ = false;
    uint64_t start_;
    uint64_t lastDraw_ = 0;
};

} // namespace pdctl
