#include "platform/types/IntfFlagMap.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <vector>

namespace Nexo {

namespace {

// Numbers only grow: an interface keeps its number for the process's life,
// and a process meets a bounded set of interfaces.
boost::unordered_flat_map<std::uint64_t, std::uint32_t>& indexOf() {
  static boost::unordered_flat_map<std::uint64_t, std::uint32_t> all;
  return all;
}

}  // namespace

std::uint32_t IntfNumbering::number(const IntfId& intf) {
  auto [it, added] = indexOf().try_emplace(intf.bits(), static_cast<std::uint32_t>(intfs.size()));
  if (added) intfs.push_back(intf);
  memoFor(intf.bits()) = {intf.bits(), it->second};
  return it->second;
}

std::uint32_t IntfNumbering::find(const IntfId& intf) {
  auto it = indexOf().find(intf.bits());
  if (it == indexOf().end()) return noIntfIndex;
  memoFor(intf.bits()) = {intf.bits(), it->second};
  return it->second;
}

}  // namespace Nexo
