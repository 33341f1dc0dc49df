// Fuzz target: the configuration file reader against a plain whole-buffer
// reading of the same rules. The first byte picks the read size (so lines
// cross chunk and read boundaries), the second the line limit; the rest is
// the stream.
#include "pdctl/line_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

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

struct Expected {
    uint64_t number;
    std::string text;
    pdctl::LineProblem problem;
};

bool IsBlank(std::string_view s) {
    return s.find_first_not_of(" \t") == std::string_view::npos;
}

// The rules read off the whole buffer at once, one physical line at a time.
std::vector<Expected> Reference(std::string_view in, size_t maxLine) {
    if (in.substr(0, 3) == "\xEF\xBB\xBF") {
        in.remove_prefix(3);
    }
    std::vector<std::string_view> phys;
    while (!in.empty()) {
        size_t nl = in.find('\n');
        phys.push_back(in.substr(0, nl));
        in.remove_prefix(nl == std::string_view::npos ? in.size() : nl + 1);
    }
    std::vector<Expected> out;
    size_t i = 0;
    while (i < phys.size()) {
        uint64_t number = i + 1;
        size_t lead = phys[i].find_first_not_of(" \t");
        if (lead != std::string_view::npos && phys[i][lead] == '#') {
            ++i;
            continue;
        }
        std::string logical;
        for (;;) {
            std::string_view l = phys[i++];
            if (!l.empty() && l.back() == '\r') {
                l.remove_suffix(1);
            }
            bool continues = !l.empty() && l.back() == '\\';
            if (continues) {
                l.remove_suffix(1);
            }
            logical += l;
            if (!continues || i == phys.size()) {
                break;
            }
        }
        if (logical.size() <= maxLine && IsBlank(logical)) {
            continue;
        }
        pdctl::LineProblem problem = pdctl::LineProblem::None;
        if (logical.size() > maxLine) {
            problem = pdctl::LineProblem::TooLong;
            logical.resize(maxLine);
        } else if (logical.find('\0') != std::string::npos) {
            problem = pdctl::LineProblem::HasNul;
        }
        out.push_back({number, logical, problem});
    }
    return out;
}

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    size_t step = data[0] == 0 ? size : data[0];
    size_t maxLine = 1 + data[1];
    Stream stream{data + 2, size - 2, step};
    std::vector<Expected> want =
        Reference(std::string_view(reinterpret_cast<const char *>(data + 2), size - 2), maxLine);

    pdctl::LineReader reader(ReadStream, &stream, maxLine);
    pdctl::Line line;
    size_t k = 0;
    int32_t rc = 0;
    while ((rc = reader.Next(&line)) == 1) {
        Check(k < want.size());
        Check(line.number == want[k].number);
        Check(line.text == want[k].text);
        Check(line.problem == want[k].problem);
        ++k;
    }
    Check(rc == 0 && k == want.size());
    return 0;
}
