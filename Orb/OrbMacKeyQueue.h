// Queues of MAC table keys, as the MAC machine's reviews and walks keep
// them: each key at most once, in arrival order.
//
// A burst of learns puts every learned key in the review queue at once, so
// its keys are kept packed into one word each (the address's 48 bits above
// the VLAN's 16): half the memory of the key itself, and a cheaper hash.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/vex/Entity.h"
#include "platform/vex/LookAhead.h"

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
  // False when the key is queued already.
  bool push(const Bridging::MacVlanPair& key) {
    std::uint64_t packed = packedMacVlanPair(key);
    if (!members_.insert(packed).second) return false;
    order_.push_back(packed);
    return true;
  }
  bool empty() const { return order_.empty(); }
  std::size_t size() const { return order_.size(); }
  Bridging::MacVlanPair front() const { return unpackedMacVlanPair(order_.front()); }
  Bridging::MacVlanPair pop() {
    std::uint64_t packed = order_.front();
    order_.pop_front();
    members_.erase(packed);
    return unpackedMacVlanPair(packed);
  }
  bool contains(const Bridging::MacVlanPair& key) const { return members_.contains(packedMacVlanPair(key)); }
  void reserve(std::size_t count) { members_.reserve(count); }
  // Looks the next `count` keys up ahead of their pops, and calls fn(key)
  // for each so that the caller looks them up in its own tables too.
  template <class Fn>
  void lookAhead(std::size_t count, Fn fn) const {
    for (std::size_t i = 0; i < count && i < order_.size(); ++i) {
      Vex::lookAhead(members_, order_[i]);
      fn(unpackedMacVlanPair(order_[i]));
    }
  }

 private:
  std::deque<std::uint64_t> order_;
  Vex::HashSet<std::uint64_t> members_;
};

}  // namespace Orb
