// VLAN convergence: every VLAN with 48 member ports published through the
// status directory, from the first write until the soft chip acknowledged
// every VLAN (immediate acknowledgements).
#include "Orb/OrbVlanPhyIntfSm.h"
#include "bench/BenchFigure.h"
#include "bench/PortVlanReference.h"
#include "chip/softchip/SoftVlan.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <vector>

namespace {

constexpr unsigned vlans = 4094;
constexpr unsigned ports = 48;
constexpr double memberships = double(vlans) * ports;

void BM_RawPortVlanInsert(benchmark::State& state) { Bench::rawPortVlanInsert(state, vlans, ports); }
BENCHMARK(BM_RawPortVlanInsert)->Unit(benchmark::kMillisecond);

void BM_VlanConverge(benchmark::State& state) {
  auto ids = Bench::ethernetPorts(ports);
  for (auto _ : state) {
    state.PauseTiming();
    {
      Vex::EventLoop loop;
      auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
      for (const auto& id : ids) ocsd->intfIs(id, true);
      auto chip = SoftChip::softChipFactory();
      auto helper = Vex::make<SoftChip::SoftVlanHelper>(chip);
      auto dir = Vex::make<Orb::VlanPhyIntfStatusDir>("dir");
      auto sm = Orb::vlanPhyIntfSmFactory(ocsd, helper, Vex::make<Bridging::Config>("config"), dir,
                                          Vex::make<Orb::DynamicExpVlanDir>("dynamic"));
      state.ResumeTiming();
      VlanPhyIntfStatusLib::VlanPhyIntfEntry entry;
      for (unsigned v = 1; v <= vlans; ++v) {
        auto status = dir->vlanPhyIntfStatusIs(Bridging::VlanId(v));
        for (const auto& id : ids) status->intfIs(id, entry);
      }
      loop.runUntilIdle();
      state.PauseTiming();
      if (helper->vlansProgrammed() != vlans || helper->vlanUpdateSize() != 0) {
        state.SkipWithError("not every VLAN was acknowledged");
      }
      sm.reset();
    }
    state.ResumeTiming();
  }
}
BENCHMARK(BM_VlanConverge)->Unit(benchmark::kMillisecond);

const bool registered = Bench::figure({"vlan_converge_4094x48",
                                       "memberships_per_s",
                                       "BM_VlanConverge",
                                       "BM_RawPortVlanInsert",
                                       memberships,
                                       memberships,
                                       {}});

}  // namespace
