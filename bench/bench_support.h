// What the Google Benchmark programs share: product log lines go to /dev/null
// while the report keeps the real standard output, and a closing table of
// the median figures.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// Moves standard output to /dev/null (the product code logs there, as in
/// pdtool) and returns a stream on the original standard output for the
/// report. Returns nullptr when the descriptors cannot be set up.
std::unique_ptr<std::ostream> BenchTakeReportStream();

/// A console reporter that also keeps, for each benchmark, the median of the
/// repetitions (or the single run) with its counters, and at the end hands
/// them to `summary`, which prints the closing table.
class BenchMedianReporter : public benchmark::ConsoleReporter {
  public:
    struct Row {
        double realNs = 0; ///< per iteration
        std::map<std::string, double> counters;
    };
    using Summary = std::function<void(std::ostream &, const std::map<std::string, Row> &)>;

    explicit BenchMedianReporter(Summary summary);
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

  private:
    Summary summary_;
    std::map<std::string, Row> rows_;
};

/// The clock the paired measurements use, in nanoseconds.
int64_t BenchNowNs();

/// Runs the registered benchmarks with a BenchMedianReporter writing to
/// `report`; the main of every Google Benchmark program here.
int BenchMain(int argc, char **argv, std::ostream &report, BenchMedianReporter::Summary summary);
