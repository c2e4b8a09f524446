// Counter polling: one IPv4 list of 100,000 rules installed on the soft
// chip, every rule having matched frames since the last poll.
//  - acl_poll_100000: one poll period reads every rule's counter into the
//    list's status through the poller's bursts; max_slice_ms is the longest
//    single burst, the time the poller holds the event loop (BenchSlices.h).
// The reference adds the same counts into a plain map by sequence number.
#include "Orb/OrbAclSm.h"
#include "bench/BenchFigure.h"
#include "bench/BenchSlices.h"
#include "chip/softchip/SoftAcl.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace {

constexpr std::uint32_t rules = 100000;
Bench::SliceTimes slices;

void BM_AclPoll(benchmark::State& state) {
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto chip = SoftChip::softChipFactory();
  auto helper = Vex::make<SoftChip::SoftAclHelper>(chip);
  helper->table().capacityIs(SoftChip::SoftTable::unlimited);
  auto config = Vex::make<Acl::Config>("aclConfig");
  auto status = Vex::make<Acl::Status>("aclStatus");
  auto acl = config->aclTypeConfigIs(Acl::ip())->aclIs("big");
  for (std::uint32_t id = 1; id <= rules; ++id) {
    Acl::IpFilter filter;
    filter.protocol = 17;
    filter.destinationPort = {Acl::PortOp::eq, static_cast<std::uint16_t>(id % 65536), 0};
    acl->ipRuleBySequenceIs(10 * id, {Acl::AclAction::permit, filter, id});
  }
  acl->versionInc();
  auto sm = Orb::aclSmFactory({ocsd, helper, config, status, {}, {}});
  config->aclIntfTypeConfigIs(Acl::ip())->intfIs(Nexo::IntfId("Ethernet1"), {"big", ""});
  auto* hwAcl = helper->table().find({Acl::ip(), "big", Acl::AclDirection::aclIn, {}});
  if (!hwAcl) {
    state.SkipWithError("the list did not install");
    return;
  }
  auto& poller = sm->countersPoller();
  slices.runStarts();
  for (auto _ : state) {
    state.PauseTiming();
    for (auto& entry : hwAcl->entries) ++entry.hits;
    state.ResumeTiming();
    do {
      slices.time([&] { poller.handleTime(); });
    } while (poller.bookmark().valid);
  }
  if (status->aclStatus({Acl::ip(), "big"})->ruleStatus(10 * rules) != static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("counters were lost");
  }
  state.SetItemsProcessed(state.iterations() * rules);
}

void BM_RawCounterAdd(benchmark::State& state) {
  std::map<std::uint32_t, std::uint64_t> counters;
  for (auto _ : state) {
    for (std::uint32_t id = 1; id <= rules; ++id) counters[10 * id] += 1;
    benchmark::DoNotOptimize(counters.size());
  }
  state.SetItemsProcessed(state.iterations() * rules);
}

BENCHMARK(BM_AclPoll)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawCounterAdd)->Unit(benchmark::kMillisecond);

const bool registered = Bench::figure(
    {"acl_poll_100000", "rules_per_s", "BM_AclPoll", "BM_RawCounterAdd", rules, rules, [] { return slices.fields(); }});

}  // namespace
