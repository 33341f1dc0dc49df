// Logical lines of a configuration stream, read chunk by chunk.
#include "pdctl/line_reader.h"

#include "base/errors.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace pdctl {

int64_t ReadStdioStream(void *ctx, char *buf, size_t size) {
    auto *stream = static_cast<FILE *>(ctx);
    size_t n = std::fread(buf, 1, size, stream);
    if (n == 0 && std::ferror(stream) != 0) {
        return -OV_EIO;
    }
    return static_cast<int64_t>(n);
}

LineReader::LineReader(ReadFunc read, void *ctx, size_t maxLine)
    : read_(read), ctx_(ctx), maxLine_(maxLine) {}

bool LineReader::Fill() {
    if (atEnd_) {
        return false;
    }
    int64_t n = read_(ctx_, chunk_, sizeof chunk_);
    if (n <= 0) {
        readError_ = n < 0 ? static_cast<int32_t>(n) : 0;
        atEnd_ = true;
        return false;
    }
    pos_ = 0;
    end_ = std::min(static_cast<size_t>(n), sizeof chunk_);
    return true;
}

void LineReader::Append(const char *bytes, size_t n) {
    if (n == 0) {
        return;
    }
    if (std::memchr(bytes, '\0', n) != nullptr) {
        hasNul_ = true;
    }
    // Two bytes beyond the limit are kept: a "\r" and a "\" that end the
    // physical line are removed again and must not make it too long.
    size_t cap = maxLine_ + 2;
    if (text_.size() < cap) {
        text_.append(bytes, std::min(n, cap - text_.size()));
    }
    logicalLen_ += n;
    physLen_ += n;
    last_[0] = n >= 2 ? bytes[n - 2] : last_[1];
    last_[1] = bytes[n - 1];
}

void LineReader::DropLast() {
    // Only when every byte is kept is the last one in the buffer.
    if (text_.size() == logicalLen_) {
        text_.pop_back();
    }
    --logicalLen_;
    --physLen_;
    last_[1] = last_[0];
    last_[0] = 0;
}

bool LineReader::EndPhysicalLine() {
    ++physical_;
    if (physLen_ >= 1 && last_[1] == '\r') {
        DropLast();
    }
    bool continues = physLen_ >= 1 && last_[1] == '\\';
    if (continues) {
        DropLast();
    }
    physLen_ = 0;
    last_[0] = last_[1] = 0;
    return continues;
}

int32_t LineReader::Next(Line *line) {
    if (!started_) {
        started_ = true;
        // The stream may come a byte at a time: gather enough to see a mark.
        while (end_ < 3 && !atEnd_) {
            int64_t n = read_(ctx_, chunk_ + end_, sizeof chunk_ - end_);
            if (n <= 0) {
                readError_ = n < 0 ? static_cast<int32_t>(n) : 0;
                atEnd_ = true;
                break;
            }
            end_ += std::min(static_cast<size_t>(n), sizeof chunk_ - end_);
        }
        if (end_ >= 3 && std::memcmp(chunk_, "\xEF\xBB\xBF", 3) == 0) {
            pos_ = 3;
        }
    }
    for (;;) {
        text_.clear();
        logicalLen_ = 0;
        hasNul_ = false;
        physLen_ = 0;
        last_[0] = last_[1] = 0;
        uint64_t number = physical_ + 1;
        bool pending = false;     // a physical line of this logical line was begun
        bool physStarted = false; // the current physical line was begun
        bool firstLine = true;    // still in the first physical line
        bool leadBlank = true;    // only spaces and tabs so far in that line
        bool comment = false;
        bool done = false;
        while (!done) {
            if (pos_ == end_ && !Fill()) {
                if (readError_ != 0) {
                    return readError_;
                }
                if (physStarted) {
                    if (comment) {
                        ++physical_;
                    } else {
                        EndPhysicalLine(); // a "\" here has nothing to join
                    }
                }
                if (!pending) {
                    return 0;
                }
                break;
            }
            pending = physStarted = true;
            const char *start = chunk_ + pos_;
            size_t avail = end_ - pos_;
            const auto *nl = static_cast<const char *>(std::memchr(start, '\n', avail));
            size_t n = nl != nullptr ? static_cast<size_t>(nl - start) : avail;
            if (firstLine && leadBlank && !comment) {
                size_t i = 0;
                while (i < n && (start[i] == ' ' || start[i] == '\t')) {
                    ++i;
                }
                if (i < n) {
                    leadBlank = false;
                    comment = start[i] == '#';
                }
            }
            if (!comment) {
                Append(start, n);
            }
            pos_ += n;
            if (nl == nullptr) {
                continue;
            }
            ++pos_;
            if (comment) {
                ++physical_;
                break;
            }
            physStarted = false;
            if (EndPhysicalLine()) {
                firstLine = false;
            } else {
                done = true;
            }
        }
        if (comment) {
            continue;
        }
        bool tooLong = logicalLen_ > maxLine_;
        if (!tooLong && text_.find_first_not_of(" \t") == std::string::npos) {
            continue; // blank, or only line breaks
        }
        if (tooLong) {
            text_.resize(maxLine_);
        }
        line->text = text_;
        line->number = number;
        line->problem = tooLong   ? LineProblem::TooLong
                        : hasNul_ ? LineProblem::HasNul
                                  : LineProblem::None;
        return 1;
    }
}

} // namespace pdctl
