// Storm control's periodic work at scale: 1,024 ports with broadcast,
// multicast and unknown-unicast levels set, metered by the soft chip; one
// iteration is one whole walk (every slice of it) on real time, each slice
// timed on its own. The reference does the same number of raw hash-map
// look-ups (one per level and port for what should be held, one for what
// the chip holds).
#include "Orb/OrbStormControlSm.h"
#include "bench/BenchFigure.h"
#include "bench/BenchSlices.h"
#include "chip/softchip/SoftStormControl.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

using Bridging::StormControl::LevelType;

constexpr unsigned ports = 1024;
constexpr unsigned levelsPerPort = 3;

std::vector<Nexo::IntfId> portIds() {
  std::vector<Nexo::IntfId> ids;
  for (unsigned p = 1; p <= ports; ++p) ids.emplace_back(fmt::format("Ethernet{}", p));
  return ids;
}

void BM_RawLevelLookups(benchmark::State& state) {
  auto ids = portIds();
  boost::unordered_flat_map<std::pair<std::uint64_t, int>, std::uint64_t> wanted, held;
  for (const auto& id : ids) {
    for (int level = 0; level < 4; ++level) {
      wanted[{id.bits(), level}] = id.bits() + level;
      held[{id.bits(), level}] = id.bits() + level;
    }
  }
  for (auto _ : state) {
    std::uint64_t same = 0;
    for (const auto& id : ids) {
      for (int level = 0; level < 4; ++level)
        same += wanted.find({id.bits(), level})->second == held.find({id.bits(), level})->second;
    }
    benchmark::DoNotOptimize(same);
  }
}
BENCHMARK(BM_RawLevelLookups)->Unit(benchmark::kMicrosecond);

Bench::SliceTimes walkSlices;
std::uint64_t slicesPerWalk = 0;

void BM_StormControlWalk(benchmark::State& state) {
  Vex::EventLoop loop(std::make_unique<Vex::MonotonicTimeSource>());
  loop.makeCurrent();
  auto ids = portIds();
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto phy = Vex::make<Interface::EthPhyIntfStatusDir>("phy");
  auto config = Vex::make<Bridging::StormControl::Config>("config");
  auto status = Vex::make<Bridging::StormControl::Status>("status");
  auto chip = SoftChip::softChipFactory();
  auto helper = Vex::make<SoftChip::SoftStormControlHelper>(chip);
  for (const auto& id : ids) {
    ocsd->intfIs(id, true);
    phy->linkUpIs(id, true);
    phy->speedIs(id, 10000);
    auto intfConfig = config->intfConfigIs(id);
    for (LevelType type : {LevelType::broadcast, LevelType::multicast, LevelType::uucast})
      intfConfig->thresholdIs(type, {Bridging::StormControl::ThresholdMode::level, 150, 0});
  }
  auto sm = Orb::stormControlSmFactory({ocsd, helper, config, status, phy});
  if (helper->table().size() != ports * levelsPerPort) state.SkipWithError("not every level was programmed");
  walkSlices.runStarts();
  for (auto _ : state) {
    std::uint64_t slices = 0;
    do {
      walkSlices.time([&] { sm->handleTime(); });
      ++slices;
    } while (sm->walkPending());
    slicesPerWalk = std::max(slicesPerWalk, slices);
  }
  if (helper->verifications() < ports) state.SkipWithError("the walk did not verify every port");
}
BENCHMARK(BM_StormControlWalk)->Unit(benchmark::kMicrosecond);

const bool registered = Bench::figure(
    {"storm_control_1024", "ports_per_s", "BM_StormControlWalk", "BM_RawLevelLookups", double(ports), double(ports),
     [] { return fmt::format("{} slices_per_walk={}", walkSlices.fields(), slicesPerWalk); }});

}  // namespace
