// Queues of MAC table keys, as the MAC machine's reviews and walks keep
// them, in arrival order.
//
// A burst of learns puts every learned key in the review queue at once, so
// its keys are kept packed into one word each (the address's 48 bits above
// the VLAN's 16).
//
// A key may be queued more than once: whoever pops it looks at what is
// current, so a second look finds nothing left to do. A set of every queued
// key, to refuse repeats, cost a lookup in a table as large as the burst
// for each key: a cache miss each. Repeats are refused through a small
// table of recently queued keys instead, one slot per hash, which stays in
// cache: a key written over and over before its pop is queued once, unless
// another key of the same slot came in between.
#pragma once

#include "platform/types/Bridging.h"

#include <array>
#include <cstdint>
#include <deque>

namespace Orb {

inline std::uint64_t packedMacVlanPair(const Bridging::MacVlanPair& key) {
  return key.addr.value() << 16 | key.vlanId.value();
}

inline Bridging::MacVlanPair unpackedMacVlanPair(std::uint64_t packed) {
  return {Nexo::EthAddr(packed >> 16), Bridging::VlanId::fromVexRep(packed & 0xffff)};
}

class MacKeyQueue {
 public:
  // False when the key is known to be queued already.
  bool push(const Bridging::MacVlanPair& key) {
    std::uint64_t packed = packedMacVlanPair(key);
    std::uint64_t& recent = recent_[slotOf(packed)];
    // A slot holds a key from its push to its pop: a match is queued.
    if (recent == packed + 1) return false;
    recent = packed + 1;
    order_.push_back(packed);
    return true;
  }
  bool empty() const { return order_.empty(); }
  std::size_t size() const { return order_.size(); }
  Bridging::MacVlanPair front() const { return unpackedMacVlanPair(order_.front()); }
  Bridging::MacVlanPair pop() {
    std::uint64_t packed = order_.front();
    order_.pop_front();
    std::uint64_t& recent = recent_[slotOf(packed)];
    if (recent == packed + 1) recent = 0;
    return unpackedMacVlanPair(packed);
  }
  // Calls fn(key) for each of the next `count` keys, so that the caller
  // looks them up in its tables ahead of their pops.
  template <class Fn>
  void lookAhead(std::size_t count, Fn fn) const {
    for (std::size_t i = 0; i < count && i < order_.size(); ++i) fn(unpackedMacVlanPair(order_[i]));
  }

 private:
  static constexpr unsigned slotBits = 10;
  static std::size_t slotOf(std::uint64_t packed) { return (packed * 0x9e3779b97f4a7c15ULL) >> (64 - slotBits); }

  std::deque<std::uint64_t> order_;
  // Each slot holds its key plus one, so that zero is an empty slot.
  std::array<std::uint64_t, std::size_t{1} << slotBits> recent_{};
};

}  // namespace Orb
