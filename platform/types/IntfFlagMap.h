// Per-interface flags held as bits: IntfFlagMap maps an interface to a bool
// (present or not, and its value), with one bit of each kind per interface.
//
// Interfaces are numbered in the order the process first meets them
// (intfIndex), so the per-VLAN membership records that spanning tree and
// the VLAN updater touch for every port of every VLAN take a few words
// each instead of a hash table: 4,094 VLANs of 48 ports stay in cache.
// Iteration goes in that numbering order.
#pragma once

#include "platform/types/BitWords.h"
#include "platform/types/Nexo.h"

#include <boost/container/small_vector.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Nexo {

constexpr std::uint32_t noIntfIndex = UINT32_MAX;

namespace IntfNumbering {
// The lookups out of line. intfIndex and knownIntfIndex first try a small
// direct-mapped memo of recent answers: a switch has a few dozen ports, and
// the callers ask about the same ones over and over.
std::uint32_t number(const IntfId& intf);
std::uint32_t find(const IntfId& intf);
struct Memo {
  std::uint64_t bits = 0;
  std::uint32_t index = noIntfIndex;
};
inline std::array<Memo, 128> memo;
inline std::vector<IntfId> intfs;  // by number
inline Memo& memoFor(std::uint64_t bits) { return memo[(bits * 0x9E3779B97F4A7C15ULL) >> 57]; }
}  // namespace IntfNumbering

// The interface's number in this process, given on first sight.
inline std::uint32_t intfIndex(const IntfId& intf) {
  const auto& memo = IntfNumbering::memoFor(intf.bits());
  if (memo.bits == intf.bits() && memo.index != noIntfIndex) return memo.index;
  return IntfNumbering::number(intf);
}

// Its number if it has one, else `noIntfIndex`: for readers, which must not
// number every name they are asked about.
inline std::uint32_t knownIntfIndex(const IntfId& intf) {
  const auto& memo = IntfNumbering::memoFor(intf.bits());
  if (memo.bits == intf.bits() && memo.index != noIntfIndex) return memo.index;
  return IntfNumbering::find(intf);
}

// The interface a number was given to.
inline const IntfId& intfAtIndex(std::uint32_t index) { return IntfNumbering::intfs[index]; }

class IntfFlagMap {
  using Words = boost::container::small_vector<std::uint64_t, 1>;

 public:
  class Iterator : public BitWords::PositionIterator<Iterator, std::pair<IntfId, bool>> {
   public:
    Iterator() = default;
    Iterator(const IntfFlagMap* map, std::uint32_t index) : PositionIterator(index), map_(map) {}
    value_type operator*() const {
      auto index = static_cast<std::uint32_t>(position_);
      return {intfAtIndex(index), map_->bitAt(map_->values_, index)};
    }
    std::size_t nextAfter(std::size_t index) const { return map_->nextPresent(static_cast<std::uint32_t>(index) + 1); }

   private:
    const IntfFlagMap* map_ = nullptr;
  };

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const IntfId& intf) const { return bitAt(present_, knownIntfIndex(intf)); }
  // The interface's flag; false when absent.
  bool value(const IntfId& intf) const {
    std::uint32_t index = knownIntfIndex(intf);
    return bitAt(present_, index) && bitAt(values_, index);
  }

  // Returns whether anything changed: a new interface, or a new value.
  bool set(const IntfId& intf, bool value) {
    std::uint32_t index = intfIndex(intf);
    bool present = bitAt(present_, index);
    if (present && bitAt(values_, index) == value) return false;
    if (!present) {
      setBit(present_, index, true);
      ++size_;
    }
    setBit(values_, index, value);
    return true;
  }

  // Returns whether the interface was there.
  bool erase(const IntfId& intf) {
    std::uint32_t index = knownIntfIndex(intf);
    if (!bitAt(present_, index)) return false;
    setBit(present_, index, false);
    setBit(values_, index, false);
    --size_;
    return true;
  }

  void clear() {
    present_.clear();
    values_.clear();
    size_ = 0;
  }

  Iterator begin() const { return {this, nextPresent(0)}; }
  Iterator end() const { return {this, endIndex()}; }

  bool operator==(const IntfFlagMap& other) const {
    if (size_ != other.size_) return false;
    for (auto [intf, flag] : *this) {
      if (!other.contains(intf) || other.value(intf) != flag) return false;
    }
    return true;
  }

 private:
  static bool bitAt(const Words& words, std::uint32_t index) {
    return index / 64 < words.size() && (words[index / 64] >> (index % 64)) & 1;
  }
  static void setBit(Words& words, std::uint32_t index, bool on) {
    if (index / 64 >= words.size()) {
      if (!on) return;
      words.resize(index / 64 + 1, 0);
    }
    std::uint64_t bit = std::uint64_t{1} << (index % 64);
    words[index / 64] = on ? words[index / 64] | bit : words[index / 64] & ~bit;
  }
  std::uint32_t endIndex() const { return static_cast<std::uint32_t>(present_.size() * 64); }
  std::uint32_t nextPresent(std::uint32_t index) const {
    return static_cast<std::uint32_t>(BitWords::nextSet(present_, index, endIndex()));
  }

  Words present_;
  Words values_;
  std::size_t size_ = 0;
};

}  // namespace Nexo

// An entity collection of interface flags, with the accessors of
// VEX_COLLECTION(Nexo::IntfId, bool, name, Name) (see platform/vex/Entity.h):
// name(), name(intf), nameHas, nameSize, nameIs, nameDel, nameDelAll, and a
// nameReserve that has nothing to do.
#define VEX_INTF_FLAGS(name, Name)                                                    \
 private:                                                                             \
  ::Nexo::IntfFlagMap name##_;                                                        \
                                                                                      \
 public:                                                                              \
  const ::Nexo::IntfFlagMap& name() const { return name##_; }                         \
  bool name(const ::Nexo::IntfId& intf) const { return name##_.value(intf); }         \
  bool name##Has(const ::Nexo::IntfId& intf) const { return name##_.contains(intf); } \
  std::size_t name##Size() const { return name##_.size(); }                           \
  void name##Is(const ::Nexo::IntfId& intf, bool value) {                             \
    if (name##_.set(intf, value)) this->notify(&Notifiee::handle##Name, intf);        \
  }                                                                                   \
  void name##Del(const ::Nexo::IntfId& intf) {                                        \
    if (name##_.erase(intf)) this->notify(&Notifiee::handle##Name, intf);             \
  }                                                                                   \
  void name##DelAll() {                                                               \
    std::vector<::Nexo::IntfId> intfs;                                                \
    for (auto [intf, flag] : name##_) intfs.push_back(intf);                          \
    for (const auto& intf : intfs) name##Del(intf);                                   \
  }                                                                                   \
  void name##Reserve(std::size_t) {}
