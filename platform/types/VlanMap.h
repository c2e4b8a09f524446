// A table with one slot per VLAN id (1 to 4094): a lookup is an index, and
// a walk visits the VLANs in ascending order, so a bookmark survives any
// insert or erase. For per-VLAN state that a port change touches on every
// VLAN of a topology, where a tree or hash lookup per VLAN would dominate.
// Slots are allocated on the first insert (about 4,096 values). VlanSet is
// its set form: one bit per VLAN.
#pragma once

#include "platform/types/BitWords.h"
#include "platform/types/Bridging.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Bridging {

template <class T>
class VlanMap {
  static constexpr std::size_t slots = 4096;
  static constexpr std::size_t words = slots / 64;

 public:
  template <bool Const>
  class Iterator
      : public BitWords::PositionIterator<Iterator<Const>, std::pair<VlanId, std::conditional_t<Const, const T&, T&>>> {
    using Map = std::conditional_t<Const, const VlanMap, VlanMap>;
    using Base = BitWords::PositionIterator<Iterator, std::pair<VlanId, std::conditional_t<Const, const T&, T&>>>;

   public:
    using typename Base::value_type;
    Iterator() = default;
    Iterator(Map* map, std::size_t slot) : Base(slot), map_(map) {}
    value_type operator*() const {
      return {VlanId(static_cast<std::uint32_t>(this->position_)), map_->values_[this->position_]};
    }
    // For `it->second`: the pair lives in the proxy for the full expression.
    struct Arrow {
      value_type pair;
      const value_type* operator->() const { return &pair; }
    };
    Arrow operator->() const { return {**this}; }
    std::size_t nextAfter(std::size_t slot) const { return map_->nextUsed(slot + 1); }

   private:
    Map* map_ = nullptr;
  };
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(VlanId id) const { return used(id.value()); }

  T* find(VlanId id) { return used(id.value()) ? &values_[id.value()] : nullptr; }
  const T* find(VlanId id) const { return used(id.value()) ? &values_[id.value()] : nullptr; }
  // Throws std::out_of_range for a VLAN the table does not hold.
  const T& at(VlanId id) const {
    if (!used(id.value())) throw std::out_of_range("VlanMap::at: no such VLAN");
    return values_[id.value()];
  }

  // The VLAN's value, made (value-initialised) when absent.
  T& operator[](VlanId id) {
    std::size_t slot = id.value();
    if (!used(slot)) {
      if (values_.empty()) values_.resize(slots);
      used_[slot / 64] |= bit(slot);
      ++size_;
    }
    return values_[slot];
  }

  // Returns whether the VLAN was held; its slot goes back to the empty value.
  bool erase(VlanId id) {
    std::size_t slot = id.value();
    if (!used(slot)) return false;
    used_[slot / 64] &= ~bit(slot);
    values_[slot] = T{};
    --size_;
    return true;
  }

  void clear() {
    values_.clear();
    used_ = {};
    size_ = 0;
  }

  iterator begin() { return {this, nextUsed(0)}; }
  iterator end() { return {this, slots}; }
  const_iterator begin() const { return {this, nextUsed(0)}; }
  const_iterator end() const { return {this, slots}; }
  // The first VLAN at or after `id`, and the first after it.
  const_iterator lower_bound(VlanId id) const { return {this, nextUsed(id.value())}; }
  const_iterator upper_bound(VlanId id) const { return {this, nextUsed(id.value() + 1u)}; }

 private:
  static std::uint64_t bit(std::size_t slot) { return std::uint64_t{1} << (slot % 64); }
  bool used(std::size_t slot) const { return used_[slot / 64] & bit(slot); }

  std::size_t nextUsed(std::size_t slot) const { return BitWords::nextSet(used_, slot, slots); }

  std::vector<T> values_;
  std::array<std::uint64_t, words> used_{};
  std::size_t size_ = 0;
};

class VlanSet {
  static constexpr std::size_t slots = 4096;

 public:
  class Iterator : public BitWords::PositionIterator<Iterator, VlanId> {
   public:
    Iterator() = default;
    Iterator(const VlanSet* set, std::size_t slot) : PositionIterator(slot), set_(set) {}
    VlanId operator*() const { return VlanId(static_cast<std::uint32_t>(position_)); }
    std::size_t nextAfter(std::size_t slot) const { return set_->nextUsed(slot + 1); }

   private:
    const VlanSet* set_ = nullptr;
  };

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(VlanId id) const { return used_[id.value() / 64] >> (id.value() % 64) & 1; }
  // Each returns whether the set changed.
  bool insert(VlanId id) {
    if (contains(id)) return false;
    used_[id.value() / 64] |= std::uint64_t{1} << (id.value() % 64);
    ++size_;
    return true;
  }
  bool erase(VlanId id) {
    if (!contains(id)) return false;
    used_[id.value() / 64] &= ~(std::uint64_t{1} << (id.value() % 64));
    --size_;
    return true;
  }
  Iterator begin() const { return {this, nextUsed(0)}; }
  Iterator end() const { return {this, slots}; }
  bool operator==(const VlanSet& other) const { return used_ == other.used_; }

 private:
  std::size_t nextUsed(std::size_t slot) const { return BitWords::nextSet(used_, slot, slots); }

  std::array<std::uint64_t, slots / 64> used_{};
  std::size_t size_ = 0;
};

}  // namespace Bridging

// An entity's set of VLANs, with the accessors of VEX_SET(Bridging::VlanId,
// name, Name) (see platform/vex/Entity.h).
#define VEX_VLAN_SET(name, Name)                                               \
 private:                                                                      \
  ::Bridging::VlanSet name##_;                                                 \
                                                                               \
 public:                                                                       \
  const ::Bridging::VlanSet& name() const { return name##_; }                  \
  bool name(::Bridging::VlanId id) const { return name##_.contains(id); }      \
  bool name##Has(::Bridging::VlanId id) const { return name##_.contains(id); } \
  std::size_t name##Size() const { return name##_.size(); }                    \
  void name##Is(::Bridging::VlanId id) {                                       \
    if (name##_.insert(id)) this->notify(&Notifiee::handle##Name, id);         \
  }                                                                            \
  void name##Del(::Bridging::VlanId id) {                                      \
    if (name##_.erase(id)) this->notify(&Notifiee::handle##Name, id);          \
  }                                                                            \
  void name##DelAll() {                                                        \
    std::vector<::Bridging::VlanId> ids(name##_.begin(), name##_.end());       \
    for (auto id : ids) name##Del(id);                                         \
  }
