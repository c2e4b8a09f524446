// Whole-table MAC operations at 262,144 entries: flushing everything (from
// the request to its reply, with the chip's table and fdbStatus empty),
// restoring a saved table after a restart, and driving address commands
// through the indirect-access pipeline to completion.
#include "Orb/OrbChipProgrammer.h"
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "bench/BenchFigure.h"
#include "bench/mac/MacWorld.h"

#include <benchmark/benchmark.h>
#include <boost/unordered/unordered_flat_map.hpp>

namespace {

using namespace MacBench;

// The reference: erasing the same keys from a raw hash map.
void BM_FlatMapErase(benchmark::State& state) {
  // Filled again for each pass; made once, so that no pass times giving
  // its memory back.
  boost::unordered_flat_map<Bridging::MacVlanPair, std::uint64_t> map;
  map.reserve(entries);
  for (auto _ : state) {
    state.PauseTiming();
    for (std::uint32_t i = 0; i < entries; ++i) map.try_emplace(keyOf(i), i);
    state.ResumeTiming();
    for (std::uint32_t i = 0; i < entries; ++i) map.erase(keyOf(i));
    benchmark::DoNotOptimize(map.size());
  }
}
BENCHMARK(BM_FlatMapErase)->Unit(benchmark::kMillisecond);

void BM_MacFlushAll(benchmark::State& state) {
  World world;
  unsigned requests = 0;
  for (auto _ : state) {
    state.PauseTiming();
    world.learnAll(requests);
    std::string name = fmt::format("flush-{}", ++requests);
    state.ResumeTiming();
    world.flushRequests->requestIs(name, Bridging::HostTableFlushRequest{});
    while (!world.flushReplies->replyHas(name) || world.fdb->table().size() || world.sm->updateListSize() ||
           world.sm->macTableUpdateListSize()) {
      world.loop.runUntilIdle();
    }
    if (world.status->learnedHostCount() != 0) state.SkipWithError("fdbStatus was not emptied");
  }
}
BENCHMARK(BM_MacFlushAll)->Unit(benchmark::kMillisecond)->Iterations(5);

std::string savedDocument() {
  auto status = Vex::make<Bridging::Status>("saved");
  for (std::uint32_t i = 0; i < entries; ++i) {
    auto key = keyOf(i);
    status->learnedHostIs(
        key, Bridging::LearnedHost{
                 Nexo::IntfId(fmt::format("Ethernet{}", 1 + i % ports)), Bridging::EntryType::entryDynamic, {}, 0.0});
  }
  return Orb::macAddrSmPStoreDocument(*status);
}

// The reference for a restore: parsing the document, no more.
void BM_ParseSavedDocument(benchmark::State& state) {
  std::string document = savedDocument();
  for (auto _ : state) {
    rapidjson::Document parsed;
    parsed.Parse(document.data(), document.size());
    benchmark::DoNotOptimize(parsed.IsObject());
  }
}
BENCHMARK(BM_ParseSavedDocument)->Unit(benchmark::kMillisecond);

void BM_MacRestore(benchmark::State& state) {
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  loop.makeCurrent();
  std::string document = savedDocument();
  for (auto _ : state) {
    state.PauseTiming();
    auto status = Vex::make<Bridging::Status>("status");
    state.ResumeTiming();
    Orb::macAddrSmPStoreHelperFactory(status)->restore(document);
    state.PauseTiming();
    if (status->learnedHostCount() != entries) state.SkipWithError("hosts were lost");
    status.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_MacRestore)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MacProgrammer(benchmark::State& state) {
  World world;
  world.fdb->modeIs(SoftChip::SoftFdbHelper::Mode::indirect);
  // The commands bypass the MAC machine, which would take the adds it never
  // asked for back out of the chip: measure the pipeline alone.
  world.fdb->hostOutcomeHandlerIs(nullptr);
  auto& programmer = world.fdb->programmer();
  auto burst = [&] {
    for (std::uint32_t i = 0; i < entries; ++i) {
      programmer.handleAddrOp(Orb::indirectAccessMacCmdFactory(
          Orb::IndirectAccessMacCmdType::addrOp, Orb::MacEntryKey{keyOf(i)}, world.intfs[i % ports],
          Bridging::EntryType::entryDynamic, 1, programmer.nextTransactionId()));
    }
    while (!programmer.pendingMacOp().empty() || !programmer.inProgMacOp().empty()) world.loop.runUntilIdle();
  };
  // A first burst, untimed, grows the command pool and the tables to size,
  // as in an agent that has been running a while.
  burst();
  for (auto _ : state) burst();
  if (world.fdb->table().size() != entries) state.SkipWithError("commands were lost");
}
BENCHMARK(BM_MacProgrammer)->Unit(benchmark::kMillisecond)->Iterations(5);

const bool registered =
    Bench::figure("mac_flush_all_262144", "entries_per_s", "BM_MacFlushAll", "BM_FlatMapErase", entries) &&
    Bench::figure("mac_restore_262144", "entries_per_s", "BM_MacRestore", "BM_ParseSavedDocument", entries) &&
    Bench::figure("mac_programmer_262144", "cmds_per_s", "BM_MacProgrammer", "BM_FlatMapErase", entries);

}  // namespace
