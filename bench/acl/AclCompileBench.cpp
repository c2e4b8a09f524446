// ACL compilation: one IPv4 list of 10,000 TCP rules, each with a random
// source-port range and a random destination port or range, applied to a
// port of the soft chip.
//  - acl_compile_10000: an edit of the list (its version bumped) rebuilds
//    it through the ACL machines, port blocks crossed per rule and offered
//    to the soft chip's TCAM one by one, and commits it in place of the
//    version the chip held.
// The reference expands the same ranges into value/mask blocks with a plain
// loop and crosses them into a vector of entries.
#include "Orb/OrbAclSm.h"
#include "bench/BenchFigure.h"
#include "chip/softchip/SoftAcl.h"
#include "platform/vex/EventLoop.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

constexpr std::uint32_t rules = 10000;

struct PlannedRule {
  Acl::PortMatch source;
  Acl::PortMatch destination;
};

const std::vector<PlannedRule>& plannedRules() {
  static const std::vector<PlannedRule> planned = [] {
    std::mt19937 rng(20261125);
    std::vector<PlannedRule> result;
    auto range = [&] {
      auto a = static_cast<std::uint16_t>(rng() % 65536);
      auto b = static_cast<std::uint16_t>(a + rng() % 4096);
      if (b < a) b = 65535;
      return Acl::PortMatch{Acl::PortOp::range, a, b};
    };
    for (std::uint32_t i = 0; i < rules; ++i) {
      Acl::PortMatch destination =
          rng() % 2 ? range() : Acl::PortMatch{Acl::PortOp::eq, static_cast<std::uint16_t>(rng() % 65536), 0};
      result.push_back({range(), destination});
    }
    return result;
  }();
  return planned;
}

void BM_AclCompile(benchmark::State& state) {
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto chip = SoftChip::softChipFactory();
  auto helper = Vex::make<SoftChip::SoftAclHelper>(chip);
  helper->table().capacityIs(SoftChip::SoftTable::unlimited);
  helper->table().rangeCheckersIs(SoftChip::SoftTable::unlimited);
  auto config = Vex::make<Acl::Config>("aclConfig");
  auto status = Vex::make<Acl::Status>("aclStatus");
  auto acl = config->aclTypeConfigIs(Acl::ip())->aclIs("big");
  std::uint32_t id = 0;
  for (const auto& rule : plannedRules()) {
    Acl::IpFilter filter;
    filter.protocol = 6;
    filter.sourcePort = rule.source;
    filter.destinationPort = rule.destination;
    acl->ipRuleBySequenceIs(10 * (id + 1), {Acl::AclAction::permit, filter, id + 1});
    ++id;
  }
  auto sm = Orb::aclSmFactory({ocsd, helper, config, status, {}, {}});
  config->aclIntfTypeConfigIs(Acl::ip())->intfIs(Nexo::IntfId("Ethernet1"), {"big", ""});
  const Orb::AclKey key{Acl::ip(), "big", Acl::AclDirection::aclIn, {}};
  std::size_t entries = 0;
  for (auto _ : state) {
    acl->versionInc();
    entries = helper->table().find(key)->entries.size();
  }
  if (status->aclStatus({Acl::ip(), "big"})->instanceStatus({Acl::AclDirection::aclIn, {}}).statusText !=
      "Succeeded install on Unit0") {
    state.SkipWithError("the list did not install");
  }
  state.counters["entries"] = static_cast<double>(entries);
  state.SetItemsProcessed(state.iterations() * rules);
}

// Plain expansion: the largest aligned block at each start, one at a time.
void expand(std::uint32_t low, std::uint32_t high, std::vector<Orb::AclPortMask>& out) {
  while (low <= high) {
    std::uint32_t size = 1;
    while (size < 65536 && low % (size * 2) == 0 && low + size * 2 - 1 <= high) size *= 2;
    out.push_back({static_cast<std::uint16_t>(low), static_cast<std::uint16_t>(low + size - 1),
                   static_cast<std::uint16_t>(size == 65536 ? 0 : ~(size - 1))});
    low += size;
  }
}

void BM_RawExpand(benchmark::State& state) {
  struct Entry {
    Orb::AclPortMask source;
    Orb::AclPortMask destination;
  };
  std::vector<Entry> entries;
  std::vector<Orb::AclPortMask> sources, destinations;
  for (auto _ : state) {
    entries.clear();
    for (const auto& rule : plannedRules()) {
      sources.clear();
      destinations.clear();
      expand(rule.source.low, rule.source.high, sources);
      const std::uint16_t high = rule.destination.op == Acl::PortOp::eq ? rule.destination.low : rule.destination.high;
      expand(rule.destination.low, high, destinations);
      for (const auto& s : sources) {
        for (const auto& d : destinations) entries.push_back({s, d});
      }
    }
    benchmark::DoNotOptimize(entries.data());
  }
  state.SetItemsProcessed(state.iterations() * rules);
}

BENCHMARK(BM_AclCompile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawExpand)->Unit(benchmark::kMillisecond);

const bool registered = Bench::figure("acl_compile_10000", "rules_per_s", "BM_AclCompile", "BM_RawExpand", rules);

}  // namespace
