// The entity framework's hot paths against the raw containers under them.
#include "bench/BenchFigure.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Entity.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <vector>

namespace {

constexpr std::uint32_t keys = 100000;
constexpr std::uint32_t clocks = 1000000;

class Table : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Table> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Entry, std::uint32_t)
  };
  VEX_COLLECTION(std::uint32_t, std::uint32_t, entry, Entry)
};

class Counter : public Table::Notifiee {
 public:
  using Table::Notifiee::Notifiee;
  std::uint64_t seen = 0;
  void handleEntry(const std::uint32_t& key) override { seen += key; }
};

// Spread keys the way interface and address keys spread.
std::uint32_t key(std::uint32_t i) { return i * 2654435761u; }

void BM_RawFlatMapInsert(benchmark::State& state) {
  for (auto _ : state) {
    boost::unordered_flat_map<std::uint32_t, std::uint32_t> map;
    for (std::uint32_t i = 0; i < keys; ++i) map.try_emplace(key(i), i);
    benchmark::DoNotOptimize(map.size());
  }
}
BENCHMARK(BM_RawFlatMapInsert);

void BM_VexCollectionInsert(benchmark::State& state) {
  for (auto _ : state) {
    auto table = Vex::make<Table>();
    for (std::uint32_t i = 0; i < keys; ++i) table->entryIs(key(i), i);
    benchmark::DoNotOptimize(table->entrySize());
  }
}
BENCHMARK(BM_VexCollectionInsert);

void BM_VexCollectionInsertNotify(benchmark::State& state) {
  for (auto _ : state) {
    auto table = Vex::make<Table>();
    Counter counter(table);
    for (std::uint32_t i = 0; i < keys; ++i) table->entryIs(key(i), i);
    benchmark::DoNotOptimize(counter.seen);
  }
}
BENCHMARK(BM_VexCollectionInsertNotify);

void BM_TimerWheelArmAndFire(benchmark::State& state) {
  Vex::EventLoop loop;
  std::uint64_t fired = 0;
  std::vector<Vex::Ptr<Vex::Clock>> all;
  all.reserve(clocks);
  for (std::uint32_t i = 0; i < clocks; ++i) all.push_back(Vex::clockFactory([&fired] { ++fired; }));
  for (auto _ : state) {
    Vex::Seconds start = loop.now();
    // A million distinct wake times 100 us apart, over 100 seconds, armed in
    // a scattered order (7919 is coprime with a million, so i -> slot is a
    // permutation).
    for (std::uint32_t i = 0; i < clocks; ++i) {
      auto slot = static_cast<std::uint32_t>(std::uint64_t{i} * 7919 % clocks);
      all[i]->timeMinIs(start + 0.0001 * (slot + 1));
    }
    loop.advance(101);
  }
  if (fired != std::uint64_t{clocks} * static_cast<std::uint64_t>(state.iterations()))
    state.SkipWithError("not every clock fired");
}
BENCHMARK(BM_TimerWheelArmAndFire)->Unit(benchmark::kMillisecond);

const bool registered =
    Bench::figure("vex_collection_insert", "inserts_per_s", "BM_VexCollectionInsert", "BM_RawFlatMapInsert", keys) &&
    Bench::figure("vex_collection_insert_notify", "inserts_per_s", "BM_VexCollectionInsertNotify",
                  "BM_RawFlatMapInsert", keys) &&
    Bench::figure("vex_timer_wheel", "clocks_per_s", "BM_TimerWheelArmAndFire", "", clocks);

}  // namespace
