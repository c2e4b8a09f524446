// Figures a benchmark program reports: each names the benchmark it measures
// and, where there is one, the reference benchmark of the same run that it
// is compared with. After every benchmark ran, the program prints one line
// per figure:
//   RESULT <name> <metric>=<items per second> [extra fields]
//          [reference_<metric>=<items per second> ratio=<time / reference time>]
// where the times are CPU times per item, so a ratio of 2 means twice as slow
// as the reference. A benchmark is named by its function ("BM_Insert", the
// last of its variants to run) or by its full run name ("BM_Insert/1000").
// A figure whose benchmark did not run (filtered out, or skipped with an
// error) prints nothing.
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
  // More "name=value" fields for the line, read after the run.
  std::function<std::string()> extra;
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
