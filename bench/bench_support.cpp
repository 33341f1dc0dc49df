// The benchmark programs' report plumbing: standard output to /dev/null for
// the product's log lines, the report on a copy of the original descriptor.
#include "bench/bench_support.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <streambuf>
#include <unistd.h>

namespace {

// An unbuffered stream buffer over a descriptor it owns.
class FdStreamBuf : public std::streambuf {
  public:
    explicit FdStreamBuf(int fd) : fd_(fd) {}
    ~FdStreamBuf() override { close(fd_); }

  protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) {
            return traits_type::not_eof(c);
        }
        char ch = traits_type::to_char_type(c);
        return xsputn(&ch, 1) == 1 ? c : traits_type::eof();
    }
    std::streamsize xsputn(const char *s, std::streamsize n) override {
        std::streamsize done = 0;
        while (done < n) {
            ssize_t w = write(fd_, s + done, static_cast<size_t>(n - done));
            if (w < 0 && errno == EINTR) {
                continue;
            }
            if (w <= 0) {
                break;
            }
            done += w;
        }
        return done;
    }

  private:
    int fd_;
};

class FdStream : public std::ostream {
  public:
    explicit FdStream(int fd) : std::ostream(nullptr), buf_(fd) { rdbuf(&buf_); }

  private:
    FdStreamBuf buf_;
};

} // namespace

std::unique_ptr<std::ostream> BenchTakeReportStream() {
    std::fflush(stdout);
    int report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (report < 0) {
        return nullptr;
    }
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
        close(report);
        return nullptr;
    }
    close(null);
    return std::make_unique<FdStream>(report);
}

// Plain columns: the report often goes to a file.
BenchMedianReporter::BenchMedianReporter(Summary summary)
    : ConsoleReporter(OO_Tabular), summary_(std::move(summary)) {}

void BenchMedianReporter::ReportRuns(const std::vector<Run> &runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
        // Without repetitions the single run stands for the median.
        bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (!median && run.run_type != Run::RT_Iteration) {
            continue;
        }
        if (run.error_occurred) {
            continue;
        }
        // Rows are keyed without the "/manual_time" that UseManualTime adds.
        std::string name = run.run_name.str();
        const std::string manual = "/manual_time";
        if (name.size() > manual.size() &&
            name.compare(name.size() - manual.size(), manual.size(), manual) == 0) {
            name.resize(name.size() - manual.size());
        }
        if (!median && rows_.count(name) != 0) {
            continue; // a repetition: the median row arrives later
        }
        Row row;
        row.realNs = run.GetAdjustedRealTime() * (run.time_unit == benchmark::kNanosecond    ? 1.0
                                                  : run.time_unit == benchmark::kMicrosecond ? 1e3
                                                  : run.time_unit == benchmark::kMillisecond ? 1e6
                                                                                             : 1e9);
        for (const auto &[key, counter] : run.counters) {
            row.counters[key] = counter.value;
        }
        rows_[name] = row;
    }
}

void BenchMedianReporter::Finalize() {
    ConsoleReporter::Finalize();
    if (summary_) {
        summary_(GetOutputStream(), rows_);
    }
}

int64_t BenchNowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int BenchMain(int argc, char **argv, std::ostream &report, BenchMedianReporter::Summary summary) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    BenchMedianReporter reporter(std::move(summary));
    reporter.SetOutputStream(&report);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
