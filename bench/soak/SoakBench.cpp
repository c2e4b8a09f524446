// The soak's own speed: commands per second of a soak run (the agent on the
// soft chip and the reference model side by side, with their quiescent
// checks), against the generator and the model alone. The ratio says how
// many times a soak command costs what generating and modelling it costs:
// the share of the switch itself, so a slow soak shows up here first. Both
// run the tables profile (no learns), which the switch passes.
#include "bench/BenchFigure.h"
#include "tests/soak/SoakGenerator.h"
#include "tests/soak/SoakRunner.h"

#include <benchmark/benchmark.h>

namespace {

constexpr std::uint64_t ops = 2000;

void BM_SoakOps(benchmark::State& state) {
  for (auto _ : state) {
    auto result = Soak::run(
        Soak::RunOptions{.seed = 2, .ops = ops, .shrinkSeconds = 0, .scenarioDir = "/tmp", .learning = false});
    if (result.difference) state.SkipWithError("the soak found a difference");
    benchmark::DoNotOptimize(result.ops);
  }
}
BENCHMARK(BM_SoakOps)->Unit(benchmark::kMillisecond);

void BM_SoakGeneratorAndModel(benchmark::State& state) {
  for (auto _ : state) {
    Soak::Generator generator(2, false);
    Soak::Model model;
    for (const auto& line : generator.prologue()) model.apply(line);
    for (std::uint64_t done = 0; done < ops;) {
      auto line = generator.next(model);
      if (line.empty()) {
        benchmark::DoNotOptimize(model.chip());
        continue;
      }
      model.apply(line);
      ++done;
    }
  }
}
BENCHMARK(BM_SoakGeneratorAndModel)->Unit(benchmark::kMillisecond);

const bool registered = Bench::figure("soak_ops", "ops_per_s", "BM_SoakOps", "BM_SoakGeneratorAndModel", ops);

}  // namespace
