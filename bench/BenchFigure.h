// Figures a benchmark program reports: each names the benchmark it measures
// and, where there is one, the reference benchmark it is compared with.
// A figure is taken in rounds (--rounds=N, 5 by default): its benchmark
// alone, then its reference alone, again and again, so that both sides of a
// round see the same machine. Benchmarks of no figure run once. Then the
// program prints one line per figure:
//   RESULT <name> <metric>=<items per second> [extra fields]
//          [reference_<metric>=<items per second> ratio=<time / reference time>
//           ratio_min=<lowest round ratio> ratio_max=<highest round ratio>]
// where the rates are the medians of the rounds and the ratio is the median
// of the ratios of each round, of CPU times per item: a ratio of 2 means
// twice as slow as the reference. A benchmark is named by its function
// ("BM_Insert", the last of its variants to run) or by its full run name
// ("BM_Insert/1000"). A figure whose benchmark did not run in any round
// (filtered out, or skipped with an error) prints no RESULT line.
#pragma once

#include <functional>
#include <string>

namespace Bench {

struct Figure {
  std::string name;
  std::string metric;
  std::string benchmark;
  std::string reference;  // empty: no reference, no ratio
  double items = 1;       // items per iteration of `benchmark`
  double referenceItems = 1;
  // More "name=value" fields for the line, read once after every round ran:
  // whatever it reports must hold over all of them (a maximum over the
  // rounds, say, or what the first run measured).
  std::function<std::string()> extra;
  // Rates and ratio from wall-clock time rather than this process's CPU
  // time: for work that other processes do while this one waits.
  bool wallTime = false;
  // The figure cannot be taken on this machine (a tool it measures against
  // is missing): it prints "RESULT <name> ratio=nan skipped=1" and runs nothing.
  bool skipped = false;
};

// Registers a figure; returns true so it can initialise a static.
bool figure(const Figure& figure);

// The common case: both benchmarks handle `items` items per iteration.
//   const bool registered = Bench::figure("map_insert", "inserts_per_s", "BM_Insert", "BM_RawInsert", 100000);
inline bool figure(std::string name, std::string metric, std::string benchmark, std::string reference, double items) {
  return figure(
      Figure{std::move(name), std::move(metric), std::move(benchmark), std::move(reference), items, items, {}});
}

}  // namespace Bench
