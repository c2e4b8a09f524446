// Next-hop collection dedup: 100,000 FECs over 10,000 distinct collections
// (1 to 64 next hops each, with weights and one via position per next hop).
//  - l3_nhc_dedup_100000: each FEC's collection arrives as a value built
//    by whoever resolved it (every distinct collection was built twice,
//    apart, so that half the hits compare contents next hop by next hop);
//    the FEC finds or inserts it in the dedup map and records itself on
//    the shared adjacency. A collection keeps its hash up as it is
//    written, so the timed part reads next hops only to compare them.
//  - l3_nhc_build_dedup_100000: the same with each FEC building its
//    collection from its next hops first.
// The reference hashes and inserts the same number of 64-byte keys, with
// the same repeats, into a raw boost::unordered_flat_map.
#include "Orb/OrbAdjTypes.h"
#include "bench/BenchFigure.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t fecs = 100000;
constexpr std::uint32_t distinct = 10000;

struct PlannedNextHop {
  Orb::NextHop nextHop;
  std::uint32_t weight;
  std::uint32_t via;
};

// The next hops of every distinct collection, in the order its vias
// resolve (not sorted), and which collection each FEC resolves to.
struct Workload {
  std::vector<std::vector<PlannedNextHop>> collections;
  std::vector<std::uint32_t> fecToCollection;

  Workload() {
    std::mt19937 rng(20261125);
    std::vector<Nexo::IntfId> ports;
    for (unsigned p = 1; p <= 64; ++p) ports.emplace_back(fmt::format("Ethernet{}", p));
    std::vector<Nexo::IntfId> vlans;
    for (unsigned v = 1; v <= 256; ++v) vlans.emplace_back(fmt::format("Vlan{}", v));
    collections.resize(distinct);
    for (std::uint32_t c = 0; c < distinct; ++c) {
      auto size = static_cast<std::uint32_t>(1 + rng() % 64);
      for (std::uint32_t n = 0; n < size; ++n) {
        // The collection number in the MAC keeps the collections distinct.
        Orb::NextHop nh(Orb::NextHopEntryType::nextHopArpResolved,
                        Nexo::EthAddr((std::uint64_t(0x020000) << 24) | (c << 6) | n), ports[rng() % ports.size()],
                        vlans[rng() % vlans.size()]);
        collections[c].push_back({nh, static_cast<std::uint32_t>(1 + rng() % 4), n});
      }
    }
    fecToCollection.resize(fecs);
    for (std::uint32_t f = 0; f < fecs; ++f) fecToCollection[f] = f % distinct;
    std::shuffle(fecToCollection.begin(), fecToCollection.end(), rng);
  }
};

const Workload& workload() {
  static const Workload w;
  return w;
}

// The smallest status entity that embeds the dedup map.
class DedupStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<DedupStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(NextHopsToL2Adj, Orb::NextHopCollection)
  };
  using Vex::Entity::Entity;
  ORB_NEXTHOPS_TO_L2ADJ(nextHopsToL2Adj, NextHopsToL2Adj)
};

Orb::NextHopCollection build(const std::vector<PlannedNextHop>& plan) {
  Orb::NextHopCollection nextHops(Orb::L2AdjType::routingAdj);
  nextHops.nextHopReserve(plan.size());
  for (const auto& s : plan) {
    nextHops.nextHopIs(s.nextHop, s.weight);
    OrbTypes::ViaBitmap bitmap;
    bitmap.bitSet(OrbTypes::ViaBitmapRange(s.via));
    nextHops.nextHopBitmapIs(s.nextHop, bitmap);
  }
  return nextHops;
}

// Finds or inserts `nextHops` and records FEC `fec` on its adjacency.
void dedup(DedupStatus& status, const Orb::NextHopCollection& nextHops, std::uint32_t fec, std::uint32_t& nextIndex) {
  Orb::L2Adjacency& adj = status.nextHopsToL2AdjFindOrInsert(nextHops, [&] {
    auto created = Vex::make<Orb::L2Adjacency>(Orb::L2AdjKey{Orb::L2AdjType::routingAdj, ++nextIndex});
    created->nextHopsIs(nextHops);
    return created;
  });
  adj.adjEntryIs(Pond::Fib::GlobalFecId(fec));
}

void check(benchmark::State& state, const DedupStatus& status) {
  if (status.nextHopsToL2AdjSize() != distinct) state.SkipWithError("collections were not deduplicated");
  benchmark::DoNotOptimize(status.nextHopsToL2AdjSize());
}

void BM_NhcDedup(benchmark::State& state) {
  const Workload& w = workload();
  for (auto _ : state) {
    state.PauseTiming();
    // Built afresh each time, so that no hash is known yet.
    std::array<std::vector<Orb::NextHopCollection>, 2> built;
    for (auto& copy : built) {
      for (const auto& plan : w.collections) copy.push_back(build(plan));
    }
    auto status = Vex::make<DedupStatus>("status");
    state.ResumeTiming();
    std::uint32_t nextIndex = 0;
    for (std::uint32_t f = 0; f < fecs; ++f) dedup(*status, built[f % 2][w.fecToCollection[f]], f + 1, nextIndex);
    check(state, *status);
    state.PauseTiming();
    status.reset();
    built = {};
    state.ResumeTiming();
  }
}
BENCHMARK(BM_NhcDedup)->Unit(benchmark::kMillisecond);

void BM_NhcBuildAndDedup(benchmark::State& state) {
  const Workload& w = workload();
  for (auto _ : state) {
    auto status = Vex::make<DedupStatus>("status");
    std::uint32_t nextIndex = 0;
    for (std::uint32_t f = 0; f < fecs; ++f)
      dedup(*status, build(w.collections[w.fecToCollection[f]]), f + 1, nextIndex);
    check(state, *status);
    state.PauseTiming();
    status.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_NhcBuildAndDedup)->Unit(benchmark::kMillisecond);

using Key = std::array<std::uint64_t, 8>;

void BM_RawKeyInsert(benchmark::State& state) {
  const Workload& w = workload();
  std::vector<Key> keys(distinct);
  for (std::uint32_t c = 0; c < distinct; ++c) {
    for (std::uint32_t i = 0; i < 8; ++i) keys[c][i] = (std::uint64_t(c) << 8) | i;
  }
  for (auto _ : state) {
    boost::unordered_flat_map<Key, std::uint32_t> map;
    for (std::uint32_t f = 0; f < fecs; ++f) map.try_emplace(keys[w.fecToCollection[f]], f);
    benchmark::DoNotOptimize(map.size());
    state.PauseTiming();
    map = {};
    state.ResumeTiming();
  }
}
BENCHMARK(BM_RawKeyInsert)->Unit(benchmark::kMillisecond);

const bool registered =
    Bench::figure("l3_nhc_dedup_100000", "fecs_per_s", "BM_NhcDedup", "BM_RawKeyInsert", fecs) &&
    Bench::figure("l3_nhc_build_dedup_100000", "fecs_per_s", "BM_NhcBuildAndDedup", "BM_RawKeyInsert", fecs);

}  // namespace
