// The order in which the MAC machine's queued changes are programmed: each
// change's key at most once, in arrival order, a refused one going to the
// back.
//
// A change holds the ticket of its place (0 when it has none), so that
// being in the order costs no look-up of its own: the machine finds the
// change by key anyway. A place whose change went, or took a newer place,
// is stale and skipped when it comes up.
#pragma once

#include "Orb/OrbMacKeyQueue.h"

#include <cstdint>
#include <deque>
#include <optional>

namespace Orb {

class MacUpdateOrder {
 public:
  struct Place {
    Bridging::MacVlanPair key;
    std::uint64_t ticket = 0;
  };

  // Gives the change of `key` a place at the back, unless it has one
  // (`ticket` not 0); `ticket` becomes that of its place.
  void push(const Bridging::MacVlanPair& key, std::uint64_t& ticket) {
    if (ticket) return;
    ticket = nextTicket_++;
    places_.push_back({packedMacVlanPair(key), ticket});
  }
  // The front place, taken out. Its change is due when it still holds the
  // place's ticket; it then has no place until pushed again.
  Place pop() {
    Place place = unpacked(places_.front());
    places_.pop_front();
    return place;
  }
  // Places, stale ones too.
  bool empty() const { return places_.empty(); }
  std::size_t size() const { return places_.size(); }
  void clear() { places_.clear(); }
  // The first place, from the front, for which live(place) holds.
  template <class Live>
  std::optional<Place> firstLive(Live live) const {
    for (const auto& packed : places_) {
      if (Place place = unpacked(packed); live(place)) return place;
    }
    return std::nullopt;
  }
  // Calls fn(place) for the next `count` places, front first.
  template <class Fn>
  void forEachNext(std::size_t count, Fn fn) const {
    for (std::size_t i = 0; i < count && i < places_.size(); ++i) fn(unpacked(places_[i]));
  }

 private:
  // A place as kept: its key packed into one word.
  struct PackedPlace {
    std::uint64_t key;
    std::uint64_t ticket;
  };
  static Place unpacked(const PackedPlace& place) { return {unpackedMacVlanPair(place.key), place.ticket}; }

  std::deque<PackedPlace> places_;
  std::uint64_t nextTicket_ = 1;
};

}  // namespace Orb
