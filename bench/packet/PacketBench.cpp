// The soft chip's forwarding model over a populated chip: 262,144 learned
// addresses across 4,094 VLANs, 32 ports and 8 LAGs (of the 48 ports' last
// 16) tagged in every VLAN, every port forwarding in one topology. A
// million frames, known unicast mostly and one in 32 to an unknown address
// (flooded), each from a source the chip knows on its port, against one raw
// hash lookup of each frame's destination.
#include "Orb/OrbVlanPhyIntfSm.h"
#include "bench/BenchFigure.h"
#include "bench/PortVlanReference.h"
#include "chip/softchip/SoftFdb.h"
#include "chip/softchip/SoftForwarding.h"
#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftStp.h"
#include "chip/softchip/SoftVlan.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <memory>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t entries = 262144;
constexpr unsigned vlans = 4094;
constexpr unsigned ports = 48;
constexpr unsigned lags = 8;
constexpr unsigned lagPorts = 2 * lags;  // the last ports, two to a LAG
constexpr std::uint32_t frames = 1u << 20;
constexpr std::uint32_t pool = 1u << 16;  // distinct frames, sent 16 times over
constexpr unsigned floodOneIn = 32;

Bridging::MacVlanPair keyOf(std::uint32_t i) {
  return {Nexo::EthAddr(0x020000000000ULL + i * 2654435761ULL % 0xffffffffULL), Bridging::VlanId(1 + i % vlans)};
}

struct Arrival {
  Nexo::IntfId ingress;
  SoftChip::Frame frame;
};

// The chip, programmed through its helpers as the machines would program
// it, and the frames sent into it.
struct World {
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<SoftChip::SoftVlanHelper> vlanHelper = Vex::make<SoftChip::SoftVlanHelper>(chip);
  Vex::Ptr<SoftChip::SoftLagHelper> lagHelper = Vex::make<SoftChip::SoftLagHelper>(chip);
  SoftChip::SoftTopologyTable topologies{*chip};
  Vex::Ptr<SoftChip::SoftFdbHelper> fdb;
  std::vector<Nexo::IntfId> logical;  // standalone ports, then LAGs
  std::vector<std::vector<Nexo::IntfId>> lagMembers;
  std::vector<Arrival> arrivals;
  // The reference's table: the same entries in a raw hash map, built once
  // as the chip's tables are, so that both sides are measured warm.
  boost::unordered_flat_map<Bridging::MacVlanPair, Nexo::IntfId> rawFdb;

  World() {
    loop.makeCurrent();
    auto ids = Bench::ethernetPorts(ports);
    auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
    for (unsigned p = 0; p < ports - lagPorts; ++p) logical.push_back(ids[p]);
    for (unsigned l = 0; l < lags; ++l) {
      Nexo::IntfId lag(fmt::format("Port-Channel{}", l + 1));
      logical.push_back(lag);
      lagMembers.push_back({ids[ports - lagPorts + 2 * l], ids[ports - lagPorts + 2 * l + 1]});
      lagHelper->maybeCreateLag(lag);
      Orb::OrbLagPortList list;
      for (const auto& member : lagMembers.back()) list.portIs(member, {true, true});
      lagHelper->updateLag(lag, list);
    }
    for (const auto& id : logical) ocsd->intfIs(id, true);
    programVlans(ocsd);
    auto& topo = topologies.entries["Default"];
    for (unsigned v = 1; v <= vlans; ++v) topo.vlans.insert(Bridging::VlanId(v));
    for (const auto& vlanId : topo.vlans) topologies.topologyOfVlan[vlanId] = &topo;
    for (const auto& id : logical) topo.portState[id] = Orb::PortState::portStateForwarding;
    fdb = Vex::make<SoftChip::SoftFdbHelper>(chip, Vex::make<OrbTypes::MacTable>("macTable"));
    fdb->reserve(entries);
    for (std::uint32_t i = 0; i < entries; ++i) fdb->learn(keyOf(i), logical[i % logical.size()]);
    rawFdb.reserve(entries);
    for (std::uint32_t i = 0; i < entries; ++i) rawFdb.try_emplace(keyOf(i), logical[i % logical.size()]);
    makeFrames();
  }

  void programVlans(const Vex::Ptr<Orb::OrbCommonSmData>& ocsd) {
    auto dir = Vex::make<Orb::VlanPhyIntfStatusDir>("dir");
    auto sm = Orb::vlanPhyIntfSmFactory(ocsd, vlanHelper, Vex::make<Bridging::Config>("config"), dir,
                                        Vex::make<Orb::DynamicExpVlanDir>("dynamic"));
    VlanPhyIntfStatusLib::VlanPhyIntfEntry entry;
    entry.tagged = true;
    for (unsigned v = 1; v <= vlans; ++v) {
      auto status = dir->vlanPhyIntfStatusIs(Bridging::VlanId(v));
      for (const auto& id : logical) status->intfIs(id, entry);
    }
    loop.runUntilIdle();
  }

  void makeFrames() {
    std::mt19937_64 random(42);
    arrivals.reserve(pool);
    for (std::uint32_t n = 0; n < pool; ++n) {
      std::uint32_t from = random() % entries;
      auto source = keyOf(from);
      // Another address of the source's VLAN: keys 4,094 apart share it.
      constexpr std::uint32_t perVlan = entries / vlans;
      std::uint32_t to = from % vlans + vlans * ((from / vlans + 1 + random() % (perVlan - 1)) % perVlan);
      Arrival arrival;
      const auto& intf = logical[from % logical.size()];
      arrival.ingress = intf.isLag() ? lagMembers[intf.number() - 1][random() % 2] : intf;
      arrival.frame.src = source.addr;
      arrival.frame.dst = n % floodOneIn ? keyOf(to).addr : Nexo::EthAddr(0x040000000000ULL + n);
      arrival.frame.tag = SoftChip::FrameTag{source.vlanId.value(), 0};
      arrival.frame.etherType = SoftChip::Frame::etherTypeIpv4;
      arrival.frame.ipSrc = Nexo::IpAddr(0x0a000000u + static_cast<std::uint32_t>(random() % 65536));
      arrival.frame.ipDst = Nexo::IpAddr(0x0a010000u + static_cast<std::uint32_t>(random() % 65536));
      arrival.frame.l4 = SoftChip::L4Protocol::udp;
      arrival.frame.srcPort = static_cast<std::uint16_t>(random());
      arrival.frame.dstPort = 4789;
      arrivals.push_back(arrival);
    }
  }

  static World& instance() {
    static World world;
    world.loop.makeCurrent();
    return world;
  }
};

// The reference: one raw hash lookup of each frame's destination.
void BM_RawFdbLookup(benchmark::State& state) {
  World& world = World::instance();
  const auto& fdb = world.rawFdb;
  for (auto _ : state) {
    std::uint64_t found = 0;
    for (std::uint32_t n = 0; n < frames; ++n) {
      const auto& frame = world.arrivals[n % pool].frame;
      auto it = fdb.find({frame.dst, Bridging::VlanId(frame.tag->vlan)});
      if (it != fdb.end()) found += it->second.bits();
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_RawFdbLookup)->Unit(benchmark::kMillisecond);

void BM_PacketForward(benchmark::State& state) {
  World& world = World::instance();
  SoftChip::SoftForwarding forwarding(*world.chip);
  SoftChip::ForwardResult result;
  std::uint64_t copies = 0;
  std::uint64_t dropped = 0;
  std::uint64_t learned = 0;
  for (auto _ : state) {
    for (std::uint32_t n = 0; n < frames; ++n) {
      const auto& arrival = world.arrivals[n % pool];
      forwarding.forward(arrival.ingress, arrival.frame, result);
      copies += result.egress.size();
      dropped += result.dropped();
      learned += result.learned || result.moved;
    }
  }
  if (learned) state.SkipWithError("a known source was learned again");
  state.counters["copies_per_frame"] = double(copies) / double(frames) / double(state.iterations());
  state.counters["dropped_per_frame"] = double(dropped) / double(frames) / double(state.iterations());
}
BENCHMARK(BM_PacketForward)->Unit(benchmark::kMillisecond);

const bool registered =
    Bench::figure("packet_forward_1m", "frames_per_s", "BM_PacketForward", "BM_RawFdbLookup", frames);

}  // namespace
