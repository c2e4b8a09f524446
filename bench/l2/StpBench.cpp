// Spanning tree to VLAN state: one topology holding every VLAN on 48
// ports; all 48 ports go from blocking to forwarding. Measured from the
// state writes until the topology reports its state set, with immediate
// VLAN acknowledgements from the soft chip.
#include "Orb/OrbStpSm.h"
#include "Orb/OrbVlanPhyIntfSm.h"
#include "bench/BenchFigure.h"
#include "bench/PortVlanReference.h"
#include "chip/softchip/SoftStp.h"
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

void BM_StpForwarding(benchmark::State& state) {
  auto ids = Bench::ethernetPorts(ports);
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  for (const auto& id : ids) ocsd->intfIs(id, true);
  auto chip = SoftChip::softChipFactory();
  auto vlanHelper = Vex::make<SoftChip::SoftVlanHelper>(chip);
  auto dir = Vex::make<Orb::VlanPhyIntfStatusDir>("dir");
  auto vlanSm = Orb::vlanPhyIntfSmFactory(ocsd, vlanHelper, Vex::make<Bridging::Config>("config"), dir,
                                          Vex::make<Orb::DynamicExpVlanDir>("dynamic"));
  auto topoHelper = Vex::make<SoftChip::SoftTopoHelper>(chip, vlanHelper);
  auto config = Vex::make<Bridging::Topology::Config>("topoConfig");
  auto status = Vex::make<Bridging::Topology::Status>("topoStatus");
  auto stp = Orb::stpSmFactory(ocsd, config, status, topoHelper);
  for (unsigned v = 1; v <= vlans; ++v) {
    auto vlanStatus = dir->vlanPhyIntfStatusIs(Bridging::VlanId(v));
    for (const auto& id : ids) vlanStatus->intfIs(id, VlanPhyIntfStatusLib::VlanPhyIntfEntry{});
  }
  auto topo = config->topoConfigIs("MST1");
  for (unsigned v = 1; v <= vlans; ++v) config->vidToTopoMapIs(Bridging::VlanId(v), "MST1");
  loop.runUntilIdle();

  auto setAll = [&](Orb::PortState portState) {
    for (const auto& id : ids) topo->intfStateIs(id, portState);
    loop.runUntilIdle();
  };
  for (auto _ : state) {
    state.PauseTiming();
    setAll(Orb::PortState::portStateDiscarding);
    state.ResumeTiming();
    setAll(Orb::PortState::portStateForwarding);
    state.PauseTiming();
    if (!status->topoInstStatus("MST1").stateSet ||
        vlanHelper->table().vlan(Bridging::VlanId(vlans))->untagged.size() != ports) {
      state.SkipWithError("the topology's state did not take effect");
    }
    state.ResumeTiming();
  }
}
BENCHMARK(BM_StpForwarding)->Unit(benchmark::kMillisecond);

const bool registered = Bench::figure({"stp_forwarding_4094x48",
                                       "memberships_per_s",
                                       "BM_StpForwarding",
                                       "BM_RawPortVlanInsert",
                                       memberships,
                                       memberships,
                                       {}});

}  // namespace
