// Figures a benchmark program reports: each names the benchmark it measures
// and, where there is one, the reference benchmark of the same run that it
// is compared with. After every benchmark ran, the program prints one line
// per figure:
//   RESULT <name> <metric>=<items per second> [extra fields] ratio=<time / reference time>
// where the times are per item, so a ratio of 2 means twice as slow as the
// reference.
#pragma once

#include <cstdint>
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

}  // namespace Bench
