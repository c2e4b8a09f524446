// Resilient ECMP in the soft chip: a resilient FEC spreads its next hops
// over a fixed number of slots, each next hop taking a share of the slots
// in proportion to its weight, and a flow picks a slot by its hash, so a
// flow keeps its next hop for as long as its slot keeps its member.
//
// When the members or their weights change, the layout changes no more
// than it must:
//  - the slots of a member that left go, one at a time, to the members
//    furthest below their share, so they spread over the survivors and no
//    other slot moves;
//  - then, while a member is a whole slot or more short of its share, it
//    takes a slot from the member furthest above its share; and while one
//    is a whole slot or more over, it gives one to the member furthest
//    below. Every member ends within a slot of its share. With equal
//    weights that moves nothing more; with unequal ones it now and then
//    moves one slot between members the change did not touch.
// A first layout (or one with another slot count) deals the slots one by
// one to the member furthest below its share, ties to the earlier member:
// round robin when the weights are equal.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace SoftChip {

// The slot layout for `members` (distinct, in the order a first layout
// deals them) with their `weights` (0 counts as 1) over `slotCount` slots,
// moving as few slots of `previous` as the change forces. No members: no
// slots.
template <class Member>
std::vector<Member> resilientSlotLayout(const std::vector<Member>& previous, const std::vector<Member>& members,
                                        const std::vector<std::uint32_t>& weights, std::size_t slotCount) {
  std::vector<Member> slots;
  if (members.empty() || slotCount == 0) return slots;
  std::vector<std::int64_t> weight(members.size(), 1);
  std::int64_t totalWeight = 0;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (i < weights.size() && weights[i]) weight[i] = weights[i];
    totalWeight += weight[i];
  }
  std::vector<std::vector<std::size_t>> held(members.size());
  // How far a member is above its share, in slots times the total weight.
  auto surplus = [&](std::size_t i) {
    return std::int64_t(held[i].size()) * totalWeight - std::int64_t(slotCount) * weight[i];
  };
  auto extreme = [&](bool above) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < members.size(); ++i) {
      if (above ? surplus(i) > surplus(best) : surplus(i) < surplus(best)) best = i;
    }
    return best;
  };
  auto give = [&](std::size_t slot, std::size_t to) {
    slots[slot] = members[to];
    held[to].push_back(slot);
  };
  if (previous.size() != slotCount) {
    slots.resize(slotCount, members.front());
    for (std::size_t slot = 0; slot < slotCount; ++slot) give(slot, extreme(false));
    return slots;
  }
  slots = previous;
  std::map<Member, std::size_t> position;
  for (std::size_t i = 0; i < members.size(); ++i) position.emplace(members[i], i);
  std::vector<std::size_t> orphans;
  for (std::size_t slot = 0; slot < slots.size(); ++slot) {
    auto it = position.find(slots[slot]);
    if (it == position.end()) {
      orphans.push_back(slot);
    } else {
      held[it->second].push_back(slot);
    }
  }
  for (std::size_t slot : orphans) give(slot, extreme(false));
  // A member is a slot or more away from its share when its surplus
  // reaches the total weight. First those short of their share take slots
  // from the richest, then those over it give to the poorest.
  auto move = [&](std::size_t from, std::size_t to) {
    // The donor gives its highest slot; its others stay where they were.
    auto highest = std::max_element(held[from].begin(), held[from].end());
    std::size_t slot = *highest;
    held[from].erase(highest);
    give(slot, to);
  };
  for (std::size_t to = extreme(false); surplus(to) <= -totalWeight; to = extreme(false)) move(extreme(true), to);
  for (std::size_t from = extreme(true); surplus(from) >= totalWeight; from = extreme(true)) move(from, extreme(false));
  return slots;
}

// The same with every member of equal weight.
template <class Member>
std::vector<Member> resilientSlotLayout(const std::vector<Member>& previous, const std::vector<Member>& members,
                                        std::size_t slotCount) {
  return resilientSlotLayout(previous, members, std::vector<std::uint32_t>(members.size(), 1), slotCount);
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
