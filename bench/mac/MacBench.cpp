// MAC learning at scale, on real time with the soft chip answering at once:
// 262,144 addresses across 4,094 VLANs and 48 ports learned in one burst,
// from the hardware-table writes to every entry programmed and in
// fdbStatus; then all of them moving to another port.
#include "Orb/OrbMacAddrSm.h"
#include "bench/BenchFigure.h"
#include "chip/softchip/SoftFdb.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <fstream>
#include <vector>

namespace {

constexpr std::uint32_t entries = 262144;
constexpr unsigned ports = 48;

Bridging::MacVlanPair keyOf(std::uint32_t i) {
  return {Nexo::EthAddr(0x020000000000ULL + i * 2654435761ULL % 0xffffffffULL), Bridging::VlanId(1 + i % 4094)};
}

long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * 4096;
}

// Everything the agent holds for MAC learning.
struct World {
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<OrbTypes::MacTable> macTable = Vex::make<OrbTypes::MacTable>("macTable");
  Vex::Ptr<Bridging::Status> status = Vex::make<Bridging::Status>("status");
  Vex::Ptr<L2Rib::HostInput> l2RibInput = Vex::make<L2Rib::HostInput>("l2RibInput");
  Vex::Ptr<SoftChip::SoftFdbHelper> fdb;
  Vex::Ptr<Orb::MacAddrSm> sm;
  std::vector<Nexo::IntfId> intfs;

  World() {
    loop.makeCurrent();
    for (unsigned p = 1; p <= ports; ++p) {
      intfs.emplace_back(fmt::format("Ethernet{}", p));
      ocsd->intfIs(intfs.back(), true);
    }
    fdb = Vex::make<SoftChip::SoftFdbHelper>(chip, macTable);
    // Sized for the chip's table, as an agent that knows its chip would be.
    macTable->macEntryReserve(entries);
    l2RibInput->hostReserve(entries);
    fdb->reserve(entries);
    auto config = Vex::make<Bridging::Config>("config");
    config->hostAgingTimeIs(0);
    sm = Orb::macAddrSmFactory(
        ocsd, Vex::make<Orb::OrbCommonMulticastData>("ocmd"), macTable, Vex::make<OrbTypes::MacTable>("routerMac"),
        status, Vex::make<Bridging::HostTableFlushRequestDir>("fq"), Vex::make<Bridging::HostTableFlushReplyDir>("fr"),
        config, Vex::make<Interface::EthPhyIntfConfigDir>("ic"), Vex::make<Interface::EthPhyIntfStatusDir>("is"),
        nullptr, Vex::make<Mlag::HostTable>("mh"), Vex::make<Mlag::Status>("ms"), fdb,
        Vex::make<FastServerFailover::Status>("fsf"), Vex::make<Vxlan::VxlanConfigDir>("vx"),
        Vex::make<Orb::VXLAN::RemoteMacInfoDir>("rmac"), Vex::make<Bridging::RemoteMacTable>("remote"),
        Vex::make<Dot1x::HostTable>("dh"), Vex::make<Dot1x::Status>("ds"), Vex::make<OrbHelper::OrbHelperDot1x>(),
        l2RibInput, Vex::make<L2Rib::HostOutput>("lo"), Vex::make<L2Rib::LoadBalanceOutput>("lb"),
        Vex::make<L2Rib::DestOutput>("ld"), Vex::make<Orb::SwTunnelGroupIdMap>("tg"),
        Vex::make<Orb::ObjTupleToHwId>("hw"));
  }

  // Learns every address on port `shift` onwards and waits for the machine.
  void learnAll(unsigned shift) {
    for (std::uint32_t i = 0; i < entries; ++i) fdb->learn(keyOf(i), intfs[(i + shift) % ports]);
    while (sm->updateListSize() || sm->macTableUpdateListSize()) loop.runUntilIdle();
  }
};

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

double maxSliceMs = 0;
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
      maxSliceMs = std::max(maxSliceMs, world.sm->longestSlice() * 1000);
      if (bytesPerEntry == 0) bytesPerEntry = double(residentBytes() - before) / entries;
    }
    state.ResumeTiming();
  }
}
// The first iteration in a fresh process measures memory too.
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
    Bench::figure(
        {"mac_learn_262144", "entries_per_s", "BM_MacLearn", "BM_FourFlatMapOps", entries, entries,
         [] { return fmt::format("max_slice_ms={:.2f} bytes_per_entry={:.0f}", maxSliceMs, bytesPerEntry); }}) &&
    Bench::figure({"mac_move_262144", "entries_per_s", "BM_MacMove", "BM_FourFlatMapOps", entries, entries, {}});

}  // namespace
