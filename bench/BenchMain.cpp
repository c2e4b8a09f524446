// The main() of every benchmark program: takes every figure in interleaved
// rounds (its benchmark alone, then its reference alone, again and again),
// runs the benchmarks that belong to no figure once, then prints the
// program's RESULT lines.
#include "bench/BenchFigure.h"
#include "platform/vex/Memory.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string_view>
#include <vector>

namespace Bench {

namespace {

std::vector<Figure>& figures() {
  static std::vector<Figure> all;
  return all;
}

// Keeps the CPU (and wall-clock) seconds per iteration of every benchmark of the last run.
// CPU time, as the library's own rate counters use: on a shared machine it
// drifts less than wall time when other work takes the cores.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  // Plain tables: colour codes would glue themselves to the start of the
  // RESULT lines that scripts look for.
  RecordingReporter() : ConsoleReporter(OO_Tabular) {}

  // By function name (the last variant to run) and by full run name.
  std::map<std::string, double> secondsPerIteration;
  std::map<std::string, double> wallSecondsPerIteration;
  // Rows are printed only while this is set; later rounds stay quiet and
  // are summed up per figure instead.
  bool printRows = true;
  std::size_t minimumNameWidth = 0;

  // The library reports its context for every call that runs benchmarks;
  // the machine description and the table header are worth printing once.
  // Each call sees only the benchmarks it runs, so the name column starts
  // wide enough for the names the figures give, which later runs keep.
  bool ReportContext(const Context& context) override {
    if (!printedContext_) {
      printedContext_ = true;
      bool run = ConsoleReporter::ReportContext(context);
      name_field_width_ = std::max(name_field_width_, minimumNameWidth);
      return run;
    }
    name_field_width_ = std::max(name_field_width_, context.name_field_width);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred) continue;
      double seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
      secondsPerIteration[run.run_name.function_name] = seconds;
      secondsPerIteration[run.run_name.str()] = seconds;
      double wall = run.real_accumulated_time / static_cast<double>(run.iterations);
      wallSecondsPerIteration[run.run_name.function_name] = wall;
      wallSecondsPerIteration[run.run_name.str()] = wall;
    }
    // Errors always show: a round that failed must not pass unnoticed.
    bool failed = std::any_of(runs.begin(), runs.end(), [](const Run& run) { return run.error_occurred; });
    if (printRows || failed) ConsoleReporter::ReportRuns(runs);
  }

  std::optional<double> measured(const std::string& name, bool wallTime) const {
    const auto& seconds = wallTime ? wallSecondsPerIteration : secondsPerIteration;
    auto found = seconds.find(name);
    if (found == seconds.end() || found->second <= 0) return std::nullopt;
    return found->second;
  }

 private:
  bool printedContext_ = false;
};

std::string escapeRegex(std::string_view text) {
  std::string escaped;
  for (char c : text) {
    if (std::strchr(".[]{}()\\*+?^$|", c)) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// A benchmark named by its function matches every variant of it; one named
// by its full run name matches that run alone.
std::string filterFor(const std::string& name) {
  if (name.find('/') == std::string::npos) return fmt::format("^{}(/|$)", escapeRegex(name));
  return fmt::format("^{}$", escapeRegex(name));
}

// Runs the benchmark `name` and nothing else; returns its CPU (or wall-clock) seconds per
// iteration, if it ran without error.
std::optional<double> runAlone(RecordingReporter& reporter, const std::string& name, bool wallTime) {
  reporter.secondsPerIteration.clear();
  reporter.wallSecondsPerIteration.clear();
  benchmark::RunSpecifiedBenchmarks(&reporter, filterFor(name));
  return reporter.measured(name, wallTime);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  std::size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct Rounds {
  std::vector<double> rates;           // subject items per second
  std::vector<double> referenceRates;  // reference items per second
  std::vector<double> ratios;          // subject time over reference time, per round
};

// Subject, then reference, `rounds` times over: whatever slows the machine
// for a while slows both sides of a round, and the median of the rounds
// drops the ones it hit hardest.
Rounds takeFigure(RecordingReporter& reporter, const Figure& f, int rounds) {
  Rounds taken;
  for (int round = 0; round < rounds; ++round) {
    reporter.printRows = round == 0;
    auto seconds = runAlone(reporter, f.benchmark, f.wallTime);
    std::optional<double> referenceSeconds;
    if (!f.reference.empty()) referenceSeconds = runAlone(reporter, f.reference, f.wallTime);
    if (!seconds) continue;
    double perItem = *seconds / f.items;
    taken.rates.push_back(1.0 / perItem);
    if (!referenceSeconds) continue;
    double referencePerItem = *referenceSeconds / f.referenceItems;
    taken.referenceRates.push_back(1.0 / referencePerItem);
    taken.ratios.push_back(perItem / referencePerItem);
  }
  reporter.printRows = true;
  return taken;
}

std::string resultLine(const Figure& f, const Rounds& taken) {
  std::string line = fmt::format("RESULT {} {}={:.0f}", f.name, f.metric, median(taken.rates));
  if (f.extra) {
    line += ' ';
    line += f.extra();
  }
  if (!taken.ratios.empty()) {
    auto [lowest, highest] = std::minmax_element(taken.ratios.begin(), taken.ratios.end());
    line += fmt::format(" reference_{}={:.0f} ratio={:.2f} ratio_min={:.2f} ratio_max={:.2f}", f.metric,
                        median(taken.referenceRates), median(taken.ratios), *lowest, *highest);
  }
  return line;
}

// One short line per figure so that the spread of its rounds shows.
void printRounds(const Figure& f, const Rounds& taken) {
  std::string line = fmt::format("# {}: {} round(s)", f.name, taken.rates.size());
  if (!taken.ratios.empty()) {
    line += ", ratios";
    for (double ratio : taken.ratios) line += fmt::format(" {:.2f}", ratio);
  } else if (!taken.rates.empty()) {
    line += fmt::format(", {}", f.metric);
    for (double rate : taken.rates) line += fmt::format(" {:.0f}", rate);
  }
  fmt::print("{}\n", line);
}

// Takes "--rounds=N" out of the arguments; nullopt on a malformed value.
std::optional<int> takeRounds(int& argc, char** argv) {
  constexpr std::string_view flag = "--rounds=";
  int rounds = 5;
  int kept = 1;
  bool valid = true;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg.substr(0, flag.size()) != flag) {
      argv[kept++] = argv[i];
      continue;
    }
    std::string_view value = arg.substr(flag.size());
    auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), rounds);
    if (error != std::errc() || end != value.data() + value.size() || rounds < 1) valid = false;
  }
  argc = kept;
  argv[argc] = nullptr;
  if (!valid) return std::nullopt;
  return rounds;
}

bool isDefaultFilter(const std::string& filter) { return filter.empty() || filter == "." || filter == "all"; }

}  // namespace

bool figure(const Figure& f) {
  figures().push_back(f);
  return true;
}

}  // namespace Bench

int main(int argc, char** argv) {
  // Whole lines even through a pipe, so that nothing the library writes to
  // stderr lands in the middle of a RESULT line.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  // As the agent runs: what one iteration frees, the next reuses, rather
  // than faulting it in again from the kernel.
  Vex::keepFreedMemory();
  benchmark::Initialize(&argc, argv);
  auto rounds = Bench::takeRounds(argc, argv);
  if (!rounds) {
    fmt::print(stderr, "{}: --rounds wants a whole number of at least 1\n", argv[0]);
    return 1;
  }
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  // --benchmark_filter picks the figures to take, by the name of their
  // benchmark ("-" in front leaves out the ones it matches, as the library
  // does); the benchmarks of no figure then run only if it picked no figure.
  std::string userFilter = benchmark::GetBenchmarkFilter();
  bool everything = Bench::isDefaultFilter(userFilter);
  bool negative = !everything && userFilter[0] == '-';
  std::vector<const Bench::Figure*> chosen;
  try {
    std::regex pattern(negative ? userFilter.substr(1) : userFilter, std::regex::extended);
    for (const auto& f : Bench::figures()) {
      if (everything || std::regex_search(f.benchmark, pattern) != negative) chosen.push_back(&f);
    }
  } catch (const std::regex_error&) {
    fmt::print(stderr, "{}: --benchmark_filter is not a regular expression: {}\n", argv[0], userFilter);
    return 1;
  }

  Bench::RecordingReporter reporter;
  for (const auto& f : Bench::figures()) {
    // Room for a variant suffix such as "/iterations:3".
    constexpr std::size_t suffix = 14;
    reporter.minimumNameWidth =
        std::max({reporter.minimumNameWidth, f.benchmark.size() + suffix, f.reference.size() + suffix});
  }
  std::vector<std::string> results;
  for (const auto* f : chosen) {
    if (f->skipped) {
      results.push_back(fmt::format("RESULT {} ratio=nan skipped=1", f->name));
      continue;
    }
    auto taken = Bench::takeFigure(reporter, *f, *rounds);
    Bench::printRounds(*f, taken);
    if (!taken.rates.empty()) results.push_back(Bench::resultLine(*f, taken));
  }

  if (everything) {
    std::string names;
    for (const auto& f : Bench::figures()) {
      for (const auto* name : {&f.benchmark, &f.reference}) {
        if (name->empty()) continue;
        if (!names.empty()) names += '|';
        names += '(' + Bench::filterFor(*name) + ')';
      }
    }
    // That every benchmark belongs to a figure is the usual case, not worth
    // the library's complaint; anything else it says is.
    std::ostringstream errors;
    reporter.SetErrorStream(&errors);
    benchmark::RunSpecifiedBenchmarks(&reporter, names.empty() ? "." : "-" + names);
    reporter.SetErrorStream(&std::cerr);
    if (errors.str().rfind("Failed to match any benchmarks", 0) != 0) std::cerr << errors.str();
  } else if (chosen.empty()) {
    benchmark::RunSpecifiedBenchmarks(&reporter, userFilter);
  }
  benchmark::Shutdown();

  for (const auto& line : results) fmt::print("{}\n", line);
  return 0;
}
