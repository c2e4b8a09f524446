// How long sliced work holds the event loop: the longest slice of each run
// of a benchmark, in this thread's CPU time (what the slice itself costs;
// time another process took the core meanwhile is not the slice's), and in
// wall time.
//
// A figure reports the median over runs of each run's longest slice, so a
// single slice stretched by the machine (a page fault, a migration) does not
// become the figure; the worst slice of all runs is reported beside it.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

namespace Bench {

class SliceTimes {
 public:
  // Starts a run: call once at the top of the benchmark function.
  void runStarts() { runs_.push_back({}); }

  template <class Work>
  void time(Work&& work) {
    if (runs_.empty()) runStarts();
    const auto wallStart = std::chrono::steady_clock::now();
    const double cpuStart = threadCpuMs();
    work();
    Run& run = runs_.back();
    run.cpuMs = std::max(run.cpuMs, threadCpuMs() - cpuStart);
    const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - wallStart;
    run.wallMs = std::max(run.wallMs, wall.count());
  }

  // A run whose longest slice was timed elsewhere (by the sliced work
  // itself, say): its longest slice in CPU and in wall time.
  void record(double cpuMs, double wallMs) { runs_.push_back({cpuMs, wallMs}); }

  // "max_slice_ms=<median of runs' longest> max_slice_worst_ms=<longest>
  //  max_slice_wall_ms=<median of runs' longest in wall time>"
  std::string fields() const {
    std::vector<double> cpu, wall;
    for (const Run& run : runs_) {
      cpu.push_back(run.cpuMs);
      wall.push_back(run.wallMs);
    }
    const double worst = cpu.empty() ? 0 : *std::max_element(cpu.begin(), cpu.end());
    return fmt::format("max_slice_ms={:.3f} max_slice_worst_ms={:.3f} max_slice_wall_ms={:.3f}", median(cpu), worst,
                       median(wall));
  }

 private:
  struct Run {
    double cpuMs = 0;
    double wallMs = 0;
  };

  static double threadCpuMs() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
  }
  static double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
  }

  std::vector<Run> runs_;
};

}  // namespace Bench
