// Prefixes resolved to FECs through the layer-3 status model: 1,000,000
// IPv4 routes (the same 500,000 prefixes in two VRFs) over 1,000 FECs, each
// FEC bound to its shared adjacency first. Every route writes its adjacency
// information and joins its FEC's prefix list and count. One iteration runs
// the whole load three times, with collections of 1, 16 and 64 next hops,
// and width_spread is the slowest width's median CPU time over the rounds
// divided by the fastest's: the per-prefix path must not depend on the
// width. The reference does the same three inserts per route into raw
// boost::unordered_flat_map tables.
//
// And watched prefixes: 1,000,000 watches added and removed through the
// route reactor configuration (a quarter of them monitoring the next hop's
// MAC, an eighth with proactive ARP), against one raw map insert and erase
// per watch.
#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL2AdjBinder.h"
#include "Orb/OrbL3Types.h"
#include "bench/BenchFigure.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <malloc.h>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <algorithm>
#include <ctime>
#include <vector>

namespace {

constexpr std::uint32_t routes = 1000000;
constexpr std::uint32_t fecCount = 1000;
constexpr std::uint32_t widths[] = {1, 16, 64};

Orb::VrfId vrfOf(std::uint32_t route) { return Orb::VrfId(1 + route % 2); }
Nexo::Prefix prefixOf(std::uint32_t route) { return Nexo::Prefix(Nexo::IpAddr(0x0a000000u + ((route / 2) << 8)), 24); }
Pond::Fib::GlobalFecId fecOf(std::uint32_t route) { return Pond::Fib::GlobalFecId(1 + route % fecCount); }

// FECs of `width` next hops each, bound to their adjacencies.
void bindFecs(Orb::L2AdjBinder& binder, std::uint32_t width) {
  static const std::vector<Nexo::IntfId> ports = [] {
    std::vector<Nexo::IntfId> all;
    for (unsigned p = 1; p <= 48; ++p) all.emplace_back(fmt::format("Ethernet{}", p));
    return all;
  }();
  for (std::uint32_t f = 1; f <= fecCount; ++f) {
    Orb::NextHopCollection nextHops(Orb::L2AdjType::nexthopAdj);
    nextHops.nextHopReserve(width);
    for (std::uint32_t n = 0; n < width; ++n) {
      const Nexo::IntfId& port = ports[n % ports.size()];
      nextHops.nextHopIs(Orb::NextHop(Orb::NextHopEntryType::nextHopArpResolved,
                                      Nexo::EthAddr((std::uint64_t(f) << 16) | n), port, port),
                         1);
    }
    binder.fecNextHopsIs(Pond::Fib::GlobalFecId(f), nextHops, Orb::TableType::tableTypeLongestPrefix);
  }
}

struct Model {
  Vex::Ptr<Orb::L3Status> status = Orb::l3StatusFactory("l3Status");
  Vex::Ptr<Orb::OrbInternalL3Status> internal = Orb::orbInternalL3StatusFactory("internal");
  Orb::L2AdjBinder binder{status, internal};

  void load(std::uint32_t width) {
    bindFecs(binder, width);
    auto& adjInfo = *status->adjInfoColl();
    adjInfo.adjInfoListReserve(routes);
    for (std::uint32_t r = 0; r < routes; ++r) {
      Orb::VrfAndPrefix vp{vrfOf(r), prefixOf(r)};
      auto fec = fecOf(r);
      adjInfo.adjInfoListIs(vp,
                            Orb::AdjInfo{fec, Orb::RouteType::forwardRoute, Orb::TableType::tableTypeLongestPrefix});
      status->adjVrfPrefixIs(fec, vp.vrfId, vp.prefix);
    }
  }
  bool complete() const {
    return status->adjInfoColl()->adjInfoListSize() == routes &&
           status->adjPrefixCountStatus()->adjPrefixCount(Pond::Fib::GlobalFecId(1)) == routes / fecCount;
  }
};

// CPU seconds of each width's load, one per round.
std::vector<double> widthSeconds[std::size(widths)];

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The slowest width's median time over the fastest's.
double widthSpread() {
  std::vector<double> medians;
  for (auto times : widthSeconds) {
    if (times.empty()) return 0;
    std::sort(times.begin(), times.end());
    medians.push_back(times[times.size() / 2]);
  }
  auto [fastest, slowest] = std::minmax_element(medians.begin(), medians.end());
  return *slowest / *fastest;
}

void BM_L3Prefix(benchmark::State& state) {
  for (auto _ : state) {
    for (std::size_t w = 0; w < std::size(widths); ++w) {
      auto model = std::make_unique<Model>();
      double start = cpuSeconds();
      model->load(widths[w]);
      widthSeconds[w].push_back(cpuSeconds() - start);
      if (!model->complete()) state.SkipWithError("routes were not all recorded");
      state.PauseTiming();
      model.reset();
      state.ResumeTiming();
    }
  }
}
BENCHMARK(BM_L3Prefix)->Unit(benchmark::kMillisecond)->Iterations(1);

struct RawFec {
  boost::unordered_flat_set<std::uint64_t> prefixes;
  std::uint64_t count = 0;
};

void BM_L3PrefixRaw(benchmark::State& state) {
  for (auto _ : state) {
    for (std::size_t w = 0; w < std::size(widths); ++w) {
      boost::unordered_flat_map<std::uint64_t, std::uint64_t> adjInfo;
      boost::unordered_flat_map<std::uint64_t, RawFec> perFec;
      adjInfo.reserve(routes);
      for (std::uint32_t r = 0; r < routes; ++r) {
        std::uint64_t key =
            (std::uint64_t(vrfOf(r).value()) << 40) | (std::uint64_t(prefixOf(r).addr().value()) << 8) | 24;
        std::uint64_t fec = fecOf(r).value();
        adjInfo.try_emplace(key, fec);
        RawFec& entry = perFec[fec];
        if (entry.prefixes.insert(key).second) ++entry.count;
      }
      benchmark::DoNotOptimize(adjInfo.size());
      state.PauseTiming();
      adjInfo = {};
      perFec = {};
      state.ResumeTiming();
    }
  }
}
BENCHMARK(BM_L3PrefixRaw)->Unit(benchmark::kMillisecond)->Iterations(1);

// Heap bytes per route of a loaded model (16 next hops a FEC), FECs and
// adjacencies included.
double bytesPerPrefix() {
  static double measured = [] {
    // Small blocks come from the arenas, big tables are mapped on their own.
    auto inUse = [] {
      auto info = mallinfo2();
      return info.uordblks + info.hblkhd;
    };
    std::size_t before = inUse();
    auto model = std::make_unique<Model>();
    model->load(16);
    std::size_t after = inUse();
    return double(after - before) / routes;
  }();
  return measured;
}

const bool prefixFigure = Bench::figure(Bench::Figure{
    "l3_prefix_1m", "prefixes_per_s", "BM_L3Prefix", "BM_L3PrefixRaw", 3.0 * routes, 3.0 * routes,
    [] { return fmt::format("width_spread={:.3f} bytes_per_prefix={:.1f}", widthSpread(), bytesPerPrefix()); }});

constexpr std::uint32_t watches = 1000000;

Orb::VrfAndPrefix watchOf(std::uint32_t w) {
  return Orb::VrfAndPrefix{Orb::VrfId(1 + w % 4), Nexo::Prefix(Nexo::IpAddr(0x0a000000u + (w << 6)), 26)};
}

void BM_L3Watch(benchmark::State& state) {
  std::vector<Orb::VrfAndPrefix> keys(watches);
  for (std::uint32_t w = 0; w < watches; ++w) keys[w] = watchOf(w);
  for (auto _ : state) {
    auto config = Orb::routeReactorConfigFactory("watch");
    config->watchedPrefixReserve(watches);
    for (std::uint32_t w = 0; w < watches; ++w) config->addWatchedPrefix(keys[w], w % 4 == 0, w % 8 == 0);
    for (std::uint32_t w = 0; w < watches; ++w) config->removeWatchedPrefix(keys[w], w % 4 == 0, w % 8 == 0);
    if (config->watchedPrefixSize() != 0 || config->monitorNhMacCountSize() != 0) {
      state.SkipWithError("watches were left behind");
    }
  }
}
BENCHMARK(BM_L3Watch)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_L3WatchRaw(benchmark::State& state) {
  std::vector<std::uint64_t> keys(watches);
  for (std::uint32_t w = 0; w < watches; ++w) {
    auto vp = watchOf(w);
    keys[w] = (std::uint64_t(vp.vrfId.value()) << 40) | (std::uint64_t(vp.prefix.addr().value()) << 8) | 26;
  }
  for (auto _ : state) {
    boost::unordered_flat_map<std::uint64_t, std::uint64_t> map;
    map.reserve(watches);
    for (std::uint32_t w = 0; w < watches; ++w) map.try_emplace(keys[w], w);
    for (std::uint32_t w = 0; w < watches; ++w) map.erase(keys[w]);
    benchmark::DoNotOptimize(map.size());
  }
}
BENCHMARK(BM_L3WatchRaw)->Unit(benchmark::kMillisecond)->Iterations(1);

const bool watchFigure = Bench::figure("l3_watch_1m", "ops_per_s", "BM_L3Watch", "BM_L3WatchRaw", 2.0 * watches);

}  // namespace
