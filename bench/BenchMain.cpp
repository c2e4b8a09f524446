// The main() of every benchmark program: runs the benchmarks with the usual
// console output, then prints the program's RESULT lines.
#include "bench/BenchFigure.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <map>
#include <vector>

namespace Bench {

namespace {

std::vector<Figure>& figures() {
  static std::vector<Figure> all;
  return all;
}

// Keeps the CPU seconds per iteration of every benchmark that ran. CPU time,
// as the library's own rate counters use: on a shared machine it drifts less
// than wall time when other work takes the cores.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  // Plain tables: colour codes would glue themselves to the start of the
  // RESULT lines that scripts look for.
  RecordingReporter() : ConsoleReporter(OO_Tabular) {}

  // By function name (the last variant to run) and by full run name.
  std::map<std::string, double> secondsPerIteration;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred) continue;
      double seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
      secondsPerIteration[run.run_name.function_name] = seconds;
      secondsPerIteration[run.run_name.str()] = seconds;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

bool figure(const Figure& f) {
  figures().push_back(f);
  return true;
}

}  // namespace Bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Bench::RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  for (const auto& f : Bench::figures()) {
    auto measured = reporter.secondsPerIteration.find(f.benchmark);
    if (measured == reporter.secondsPerIteration.end() || measured->second <= 0) continue;
    double perItem = measured->second / f.items;
    std::string line = fmt::format("RESULT {} {}={:.0f}", f.name, f.metric, 1.0 / perItem);
    if (f.extra) {
      line += ' ';
      line += f.extra();
    }
    auto reference = reporter.secondsPerIteration.find(f.reference);
    if (!f.reference.empty() && reference != reporter.secondsPerIteration.end() && reference->second > 0) {
      double referencePerItem = reference->second / f.referenceItems;
      line += fmt::format(" reference_{}={:.0f} ratio={:.2f}", f.metric, 1.0 / referencePerItem,
                          perItem / referencePerItem);
    }
    fmt::print("{}\n", line);
  }
  return 0;
}
