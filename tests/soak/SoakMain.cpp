// soak: runs the randomized soak of the layer-2 switch against the
// reference model for one or more seeds.
//   soak [--seeds 1,2,3] [--ops N] [--frames N] [--no-learning] [--shrink-seconds S] [--dir DIR]
//   soak --shrink FILE [--shrink-seconds S]   shrinks a scenario further
// Exits 1 on the first seed whose chip parts from the model, after writing
// the shrunk scenario that replays it.
#include "tests/soak/SoakRunner.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <fstream>

int main(int argc, char** argv) {
  CLI::App app("Randomized soak of the layer-2 switch against a reference model");
  std::vector<std::uint64_t> seeds = {1};
  Soak::RunOptions options;
  app.add_option("--seeds", seeds, "seeds to run, one run each")->delimiter(',');
  app.add_option("--ops", options.ops, "generated commands per seed");
  app.add_option("--shrink-seconds", options.shrinkSeconds, "time the shrinking of a difference may take");
  app.add_option("--dir", options.scenarioDir, "where a difference's scenario is written");
  app.add_option("--frames", options.frames, "frames compared at each quiescent point (0: none)");
  bool noLearning = false;
  app.add_flag("--no-learning", noLearning, "leave learns and flushes out of the commands");
  std::string shrinkFile;
  app.add_option("--shrink", shrinkFile, "a scenario whose commands part the chip from the model: shrink it further");
  CLI11_PARSE(app, argc, argv);

  options.learning = !noLearning;
  if (!shrinkFile.empty()) {
    std::ifstream in(shrinkFile);
    if (!in) {
      fmt::print(stderr, "cannot open {}\n", shrinkFile);
      return 2;
    }
    std::vector<std::string> lines, expects;
    for (std::string line; std::getline(in, line);) {
      if (line.empty() || line[0] == '#') continue;
      (line.rfind("expect", 0) == 0 ? expects : lines).push_back(line);
    }
    // A difference in forwarding alone shows only in the frames the checks send.
    auto frames = Soak::probesOf(expects);
    auto difference = Soak::replay(lines, frames);
    if (!difference) {
      fmt::print("{}: the chip agrees with the model\n", shrinkFile);
      return 0;
    }
    auto shrunk = Soak::shrink(lines, options.shrinkSeconds, *difference, frames);
    for (const auto& line : shrunk) fmt::print("{}\n", line);
    if (auto left = Soak::replay(shrunk, frames)) {
      for (const auto& line : left->lines) fmt::print("#   {}\n", line);
      for (const auto& line : left->expects) fmt::print("{}\n", line);
    }
    return 1;
  }

  std::uint64_t totalOps = 0;
  double totalSeconds = 0;
  for (auto seed : seeds) {
    options.seed = seed;
    auto start = std::chrono::steady_clock::now();
    auto result = Soak::run(options);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    totalOps += result.ops;
    totalSeconds += seconds;
    fmt::print(
        "soak seed {}: {} ops, {} quiescent checks, {} frames ({} into routed ports, {} routed out), {:.1f} s, "
        "{:.0f} ops/s, longest command {:.2f} ms\n",
        seed, result.ops, result.settles, result.frames, result.routedFrames, result.routedOut, seconds,
        result.ops / std::max(seconds, 1e-9), result.maxCommandMs);
    for (const auto& [walk, r] : result.slices) {
      fmt::print("  {}: {} slices, {} used their {} s, longest {:.4f} s, {} overran\n", walk, r.slices, r.spent,
                 r.quantum, r.longest, r.overruns);
    }
    if (result.difference) {
      fmt::print("soak seed {}: the chip differs from the model after op {}:\n", seed, result.ops);
      for (const auto& line : result.difference->lines) fmt::print("  {}\n", line);
      if (!result.scenarioPath.empty()) {
        fmt::print("shrunk to {} commands: {} (orb-agent run replays it{})\n", result.shrunk.size(),
                   result.scenarioPath, result.replayFails ? ", and fails" : "; its checks do not catch it");
      }
      return 1;
    }
  }
  fmt::print("soak: {} seeds, {} ops, {:.1f} s, {:.0f} ops/s\n", seeds.size(), totalOps, totalSeconds,
             totalOps / std::max(totalSeconds, 1e-9));
  return 0;
}
