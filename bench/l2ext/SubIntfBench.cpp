// Sub-interfaces at scale: 4,096 sub-interfaces, 256 on each of 8 ports
// and 8 LAGs (half routed in their own VLAN, half bridged, two per shared
// VLAN), written as the interface agent publishes them.
//  - subintf_4096: the sub-interface machine checks each for tag and VLAN
//    conflicts and programs it into the soft chip's VLAN-translation table,
//    with its hardware status written back.
// The reference inserts the same 4,096 mappings into a plain ordered map.
#include "Orb/OrbSubIntfSm.h"
#include "bench/BenchFigure.h"
#include "chip/softchip/SoftSubIntf.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>

#include <map>
#include <vector>

namespace {

constexpr int parents = 16;
constexpr int perParent = 256;
constexpr int subIntfs = parents * perParent;

struct Planned {
  Nexo::IntfId intf;
  Interface::SubIntfEncap encap;
  Bridging::VlanIdOrNone vlan;
  bool bridged = false;
};

const std::vector<Planned>& planned() {
  static const std::vector<Planned> all = [] {
    std::vector<Planned> result;
    for (int p = 0; p < parents; ++p) {
      std::string parent = p < parents / 2 ? fmt::format("Ethernet{}", p + 1) : fmt::format("Port-Channel{}", p + 1);
      for (int n = 1; n <= perParent; ++n) {
        Planned one;
        one.intf = Nexo::IntfId(fmt::format("{}.{}", parent, n));
        one.encap = {static_cast<std::uint16_t>(n), static_cast<std::uint16_t>(p % 2 ? 7 : 0)};
        const int index = p * perParent + (n - 1);
        one.bridged = index % 2;
        // Routed ones own VLANs 1-2048; bridged ones share 2049-3072 in pairs.
        one.vlan = Bridging::VlanIdOrNone(one.bridged ? 2049 + index / 4 : 1 + index / 2);
        result.push_back(one);
      }
    }
    return result;
  }();
  return all;
}

void BM_SubIntfProgram(benchmark::State& state) {
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  std::size_t programmed = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto chip = SoftChip::softChipFactory();
    auto helper = Vex::make<SoftChip::SoftSubIntfHelper>(chip);
    auto configs = Vex::make<Interface::SubIntfConfigDir>("configs");
    auto statuses = Vex::make<Interface::SubIntfStatusDir>("statuses");
    auto sm = Orb::orbSubIntfSmFactory({ocsd, helper, configs, statuses, nullptr, nullptr, nullptr, nullptr});
    state.ResumeTiming();
    for (const auto& one : planned()) {
      auto status = statuses->intfStatusIs(one.intf);
      status->forwardingModelIs(one.bridged ? Interface::ForwardingModel::intfForwardingModelBridged
                                            : Interface::ForwardingModel::intfForwardingModelRouted);
      status->forwardingVlanIdIs(one.vlan);
      status->programInHwIs(true);
      status->initializedIs(true);
      configs->intfConfigIs(one.intf)->dot1qEncapIs(one.encap);
    }
    state.PauseTiming();
    programmed = helper->table().size();
    if (!sm->conflictedIntf().empty()) state.SkipWithError("a sub-interface conflicted");
    // Tearing down is not part of the figure: the machine, the helper, the
    // chip and the published directories all go while the clock is stopped.
    sm.reset();
    helper.reset();
    configs.reset();
    statuses.reset();
    chip.reset();
    state.ResumeTiming();
  }
  if (programmed != subIntfs) state.SkipWithError("not every sub-interface reached the chip");
  state.counters["programmed"] = static_cast<double>(programmed);
  state.SetItemsProcessed(state.iterations() * subIntfs);
}

void BM_RawMapInsert(benchmark::State& state) {
  struct Mapping {
    Nexo::IntfId parent;
    Interface::SubIntfEncap encap;
    Bridging::VlanIdOrNone vlan;
    bool bridged;
  };
  std::map<Nexo::IntfId, Mapping> map;
  for (auto _ : state) {
    state.PauseTiming();
    map.clear();
    state.ResumeTiming();
    for (const auto& one : planned()) {
      map.emplace(one.intf, Mapping{one.intf.parentIntfId(), one.encap, one.vlan, one.bridged});
    }
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(state.iterations() * subIntfs);
}

BENCHMARK(BM_SubIntfProgram)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawMapInsert)->Unit(benchmark::kMicrosecond);

const bool registered =
    Bench::figure("subintf_4096", "subintfs_per_s", "BM_SubIntfProgram", "BM_RawMapInsert", subIntfs);

}  // namespace
