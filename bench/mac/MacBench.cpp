// MAC learning at scale, on real time with the soft chip answering at once:
// 262,144 addresses across 4,094 VLANs and 48 ports learned in one burst,
// from the hardware-table writes to every entry programmed and in
// fdbStatus; then all of them moving to another port.
#include "bench/BenchFigure.h"
#include "bench/BenchSlices.h"
#include "bench/mac/MacWorld.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

namespace {

using namespace MacBench;

void BM_FourFlatMapOps(benchmark::State& state) {
  for (auto _ : state) {
    boost::unordered_flat_map<Bridging::MacVlanPair, std::uint64_t> a, b;
    std::uint64_t found = 0;
    for (std::uint32_t i = 0; i < entries; ++i) {
      a.try_emplace(keyOf(i), i);
      b.try_emplace(keyOf(i), i);
    }
    for (std::uint32_t i = 0; i < entries; ++i) found += a.find(keyOf(i))->second + b.find(keyOf(i))->second;
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_FourFlatMapOps)->Unit(benchmark::kMillisecond);

// Each iteration of every round is a run: its machine's longest slice.
Bench::SliceTimes slices;
// Of the first iteration only: later ones reuse memory the earlier ones freed,
// and the resident size would not grow by what the table keeps.
double bytesPerEntry = 0;

void BM_MacLearn(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    long before = residentBytes();
    {
      World world;
      state.ResumeTiming();
      world.learnAll(0);
      state.PauseTiming();
      if (world.status->learnedHostCount() != entries) state.SkipWithError("not every entry was programmed");
      slices.record(world.sm->longestSliceCpu() * 1000, world.sm->longestSlice() * 1000);
      if (bytesPerEntry == 0) bytesPerEntry = double(residentBytes() - before) / entries;
    }
    state.ResumeTiming();
  }
}
BENCHMARK(BM_MacLearn)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MacMove(benchmark::State& state) {
  World world;
  world.learnAll(0);
  unsigned shift = 0;
  for (auto _ : state) world.learnAll(++shift);
  if (world.status->learnedHostCount() != entries) state.SkipWithError("entries were lost");
}
BENCHMARK(BM_MacMove)->Unit(benchmark::kMillisecond)->Iterations(3);

const bool registered =
    Bench::figure({"mac_learn_262144", "entries_per_s", "BM_MacLearn", "BM_FourFlatMapOps", entries, entries,
                   [] { return fmt::format("{} bytes_per_entry={:.0f}", slices.fields(), bytesPerEntry); }}) &&
    Bench::figure({"mac_move_262144", "entries_per_s", "BM_MacMove", "BM_FourFlatMapOps", entries, entries, {}});

}  // namespace
