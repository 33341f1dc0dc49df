// Fuzz target: the configuration file reader. The first byte picks the read
// size (so lines cross chunk and read boundaries), the second the line limit;
// the rest is the stream. The unit tests check the lines read; here a line
// must only stay within its limit and the reader must reach the end.
#include "pdctl/line_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Stream {
    const uint8_t *data;
    size_t size;
    size_t step;
    size_t at = 0;
};

int64_t ReadStream(void *ctx, char *buf, size_t size) {
    auto *s = static_cast<Stream *>(ctx);
    size_t n = std::min({size, s->step, s->size - s->at});
    std::memcpy(buf, s->data + s->at, n);
    s->at += n;
    return static_cast<int64_t>(n);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    size_t step = data[0] == 0 ? size : data[0];
    size_t maxLine = 1 + data[1];
    Stream stream{data + 2, size - 2, step};
    pdctl::LineReader reader(ReadStream, &stream, maxLine);
    pdctl::Line line;
    int32_t rc = 0;
    while ((rc = reader.Next(&line)) == 1) {
        if (line.text.size() > maxLine) {
            std::abort();
        }
    }
    if (rc != 0 || stream.at != stream.size) {
        std::abort();
    }
    return 0;
}
