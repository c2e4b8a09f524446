#include "Orb/OrbL2RibObjCache.h"

#include <algorithm>

namespace Orb {

namespace {

// Removes `value` from the set under `key`, and the set when it empties.
template <class Map, class Key, class Value>
void unlink(Map& map, const Key& key, const Value& value) {
  auto it = map.find(key);
  if (it == map.end()) return;
  it->second.erase(value);
  if (it->second.empty()) map.erase(it);
}

}  // namespace

void L2RibObjCache::hostIs(const Bridging::MacVlanPair& host, std::optional<L2Rib::ObjTuple> tuple) {
  auto it = hostToObjTuple_.find(host);
  if (it != hostToObjTuple_.end()) {
    if (tuple && it->second == *tuple) return;
    unlink(dependantHosts_, it->second, host);
    hostToObjTuple_.erase(it);
  }
  if (!tuple) return;
  hostToObjTuple_.emplace(host, *tuple);
  dependantHosts_[*tuple].insert(host);
}

void L2RibObjCache::lbIs(const L2Rib::ObjTuple& lb, const std::vector<L2Rib::ObjTuple>& members) {
  auto it = lbToObjTupleSet_.find(lb);
  if (it != lbToObjTupleSet_.end()) {
    for (const auto& member : it->second) unlink(dependantTuples_, member, lb);
    lbToObjTupleSet_.erase(it);
  }
  if (members.empty()) return;
  auto& set = lbToObjTupleSet_[lb];
  for (const auto& member : members) {
    set.insert(member);
    dependantTuples_[member].insert(lb);
  }
}

void L2RibObjCache::programmedIs(const Bridging::MacVlanPair& host, const L2Rib::ObjTuple& tuple, std::uint64_t hwId) {
  hostToObjTupleProgrammed_[host] = tuple;
  hostToHwIdProgrammed_[host] = hwId;
}

void L2RibObjCache::programmedDel(const Bridging::MacVlanPair& host) {
  if (hostToObjTupleProgrammed_.empty()) return;
  hostToObjTupleProgrammed_.erase(host);
  hostToHwIdProgrammed_.erase(host);
}

std::optional<std::uint64_t> L2RibObjCache::programmedHwId(const Bridging::MacVlanPair& host) const {
  auto it = hostToHwIdProgrammed_.find(host);
  if (it == hostToHwIdProgrammed_.end()) return std::nullopt;
  return it->second;
}

std::vector<Bridging::MacVlanPair> L2RibObjCache::dependantHosts(const L2Rib::ObjTuple& tuple) const {
  std::vector<Bridging::MacVlanPair> hosts;
  auto collect = [&](const L2Rib::ObjTuple& t) {
    auto it = dependantHosts_.find(t);
    if (it != dependantHosts_.end()) hosts.insert(hosts.end(), it->second.begin(), it->second.end());
  };
  collect(tuple);
  auto groups = dependantTuples_.find(tuple);
  if (groups != dependantTuples_.end()) {
    for (const auto& group : groups->second) collect(group);
  }
  std::sort(hosts.begin(), hosts.end());
  hosts.erase(std::unique(hosts.begin(), hosts.end()), hosts.end());
  return hosts;
}

}  // namespace Orb
