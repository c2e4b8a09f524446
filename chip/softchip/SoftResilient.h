// Resilient ECMP in the soft chip: a resilient FEC spreads its next hops
// over a fixed number of slots, and a flow picks a slot by its hash, so a
// flow keeps its next hop for as long as its slot keeps its member.
//
// When the members change, the layout changes no more than it must:
//  - the slots of a member that left go, one at a time, to the members
//    holding fewest slots, so they spread evenly over the survivors and no
//    other slot moves;
//  - a member that joined takes slots, one at a time, from the members
//    holding most, until no two members differ by more than one slot; only
//    slots moving to it change.
// A first layout (or one with another slot count) deals the slots round
// robin over the members in order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace SoftChip {

// The slot layout for `members` (distinct, in the order a first layout
// deals them) over `slotCount` slots, moving as few slots of `previous`
// as the change forces. No members: no slots.
template <class Member>
std::vector<Member> resilientSlotLayout(const std::vector<Member>& previous, const std::vector<Member>& members,
                                        std::size_t slotCount) {
  std::vector<Member> slots;
  if (members.empty() || slotCount == 0) return slots;
  if (previous.size() != slotCount) {
    slots.reserve(slotCount);
    for (std::size_t i = 0; i < slotCount; ++i) slots.push_back(members[i % members.size()]);
    return slots;
  }
  slots = previous;
  // Slots held per member, in the members' order, so that ties go the
  // same way every time.
  std::map<Member, std::size_t> position;
  for (std::size_t i = 0; i < members.size(); ++i) position.emplace(members[i], i);
  std::vector<std::vector<std::size_t>> held(members.size());
  std::vector<std::size_t> orphans;
  for (std::size_t slot = 0; slot < slots.size(); ++slot) {
    auto it = position.find(slots[slot]);
    if (it == position.end()) {
      orphans.push_back(slot);
    } else {
      held[it->second].push_back(slot);
    }
  }
  auto fewest = [&] {
    return std::size_t(
        std::min_element(held.begin(), held.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); }) -
        held.begin());
  };
  auto most = [&] {
    return std::size_t(
        std::max_element(held.begin(), held.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); }) -
        held.begin());
  };
  for (std::size_t slot : orphans) {
    std::size_t to = fewest();
    slots[slot] = members[to];
    held[to].push_back(slot);
  }
  for (;;) {
    std::size_t from = most(), to = fewest();
    if (held[from].size() <= held[to].size() + 1) break;
    // The donor gives its highest slot; its others stay where they were.
    auto highest = std::max_element(held[from].begin(), held[from].end());
    std::size_t slot = *highest;
    held[from].erase(highest);
    slots[slot] = members[to];
    held[to].push_back(slot);
  }
  return slots;
}

// The slot a flow takes.
inline std::size_t resilientSlotFor(std::uint64_t flowHash, std::size_t slotCount) {
  // Mixed first, so that flows differing only in their low bits spread.
  std::uint64_t h = flowHash;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  return slotCount ? std::size_t(h % slotCount) : 0;
}

}  // namespace SoftChip
