#include "platform/types/IntfFlagMap.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <vector>

namespace Nexo {

namespace {

// Numbers only grow: an interface keeps its number for the process's life,
// and a process meets a bounded set of interfaces.
struct Numbers {
  boost::unordered_flat_map<std::uint64_t, std::uint32_t> indexOf;
  std::vector<IntfId> intfs;
};

Numbers& numbers() {
  static Numbers all;
  return all;
}

}  // namespace

std::uint32_t IntfNumbering::number(const IntfId& intf) {
  auto& all = numbers();
  auto [it, added] = all.indexOf.try_emplace(intf.bits(), static_cast<std::uint32_t>(all.intfs.size()));
  if (added) all.intfs.push_back(intf);
  last = {intf.bits(), it->second};
  return it->second;
}

std::uint32_t IntfNumbering::find(const IntfId& intf) {
  const auto& all = numbers();
  auto it = all.indexOf.find(intf.bits());
  if (it == all.indexOf.end()) return noIntfIndex;
  last = {intf.bits(), it->second};
  return it->second;
}

const IntfId& intfAtIndex(std::uint32_t index) { return numbers().intfs.at(index); }

}  // namespace Nexo
