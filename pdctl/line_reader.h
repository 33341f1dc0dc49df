// The configuration file reader: a byte stream cut into logical lines. Blank
// lines and comment lines are skipped, a line ending in "\" continues on the
// next one, and the stream is read in fixed chunks, so memory stays flat
// however long the file is; only the longest logical line (bounded) is held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pdctl {

/// The longest logical line taken: room for the largest access name (4096
/// addresses and 4096 domains of up to 251 characters, about 1.2 MB of JSON).
/// A longer one is reported as too long (with its first bytes) and the reader
/// goes on after it.
constexpr size_t kMaxLineBytes = size_t{4} << 20;

/// Fills buf with up to size bytes of the stream. Returns the number of bytes
/// (0 at its end) or a negative code when the stream cannot be read.
using ReadFunc = int64_t (*)(void *ctx, char *buf, size_t size);

/// The ReadFunc of a stdio stream (ctx is the FILE *); a read error is -5.
int64_t ReadStdioStream(void *ctx, char *buf, size_t size);

enum class LineProblem {
    None,
    TooLong, ///< longer than the limit: text holds its first bytes
    HasNul,  ///< holds a NUL byte, which no command word can carry
};

struct Line {
    std::string_view text; ///< valid until the next call of Next
    uint64_t number = 0;   ///< the number of its first physical line, from 1
    LineProblem problem = LineProblem::None;
};

/// Logical lines, in file order:
/// - a physical line ends at "\n"; one "\r" before it is dropped (files
///   written on Windows), and the last line needs no "\n";
/// - a line whose first character other than spaces and tabs is "#" is a
///   comment, and never continues;
/// - a line ending in "\" continues on the next: the "\" and the line break
///   are removed, nothing is put in their place;
/// - a logical line of nothing but spaces and tabs is skipped;
/// - a UTF-8 byte order mark at the start of the stream is skipped.
/// Everything else is kept byte for byte: the line is the command word.
class LineReader {
  public:
    /// read and ctx stay the caller's; maxLine is the limit (tests use small ones).
    LineReader(ReadFunc read, void *ctx, size_t maxLine = kMaxLineBytes);

    /// The next logical line into *line. Returns 1, 0 at the end of the
    /// stream, or the read function's negative code.
    int32_t Next(Line *line);

    /// Physical lines read so far.
    uint64_t PhysicalLines() const { return physical_; }

  private:
    bool Fill();
    void Append(const char *bytes, size_t n);
    void DropLast();
    // Ends the physical line; returns true when the logical line goes on.
    bool EndPhysicalLine();

    ReadFunc read_;
    void *ctx_;
    size_t maxLine_;
    char chunk_[64 * 1024];
    size_t pos_ = 0;
    size_t end_ = 0;
    int32_t readError_ = 0;
    bool atEnd_ = false;
    bool started_ = false;

    uint64_t physical_ = 0;
    std::string text_;      ///< the logical line's first maxLine + 2 bytes
    size_t logicalLen_ = 0; ///< its length, kept or not
    bool hasNul_ = false;
    // The physical line being read: its length and last two bytes.
    size_t physLen_ = 0;
    char last_[2] = {0, 0};
};

} // namespace pdctl
