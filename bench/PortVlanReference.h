// What the VLAN and spanning-tree figures are measured against: inserting
// every (port, VLAN) pair once into a raw boost::unordered_flat_map.
#pragma once

#include "platform/types/Nexo.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <vector>

namespace Bench {

inline std::vector<Nexo::IntfId> ethernetPorts(unsigned count) {
  std::vector<Nexo::IntfId> ids;
  for (unsigned p = 1; p <= count; ++p) ids.emplace_back(fmt::format("Ethernet{}", p));
  return ids;
}

inline void rawPortVlanInsert(benchmark::State& state, unsigned vlans, unsigned ports) {
  auto ids = ethernetPorts(ports);
  for (auto _ : state) {
    boost::unordered_flat_map<std::pair<std::uint64_t, std::uint16_t>, bool> map;
    for (unsigned v = 1; v <= vlans; ++v) {
      for (const auto& id : ids) map.try_emplace({id.bits(), static_cast<std::uint16_t>(v)}, true);
    }
    benchmark::DoNotOptimize(map.size());
  }
}

}  // namespace Bench
