// A set for members that are usually few: up to N of them live inline, in
// the owner's own memory, and are found by a linear scan; past N a hash
// index (member to position) is added. Reading and adding a member of a
// small set touches only the owner's cache lines, where a hash set would
// first load its bucket array from elsewhere.
//
// Members are kept contiguous (iteration is over a plain array) in no
// particular order: erasing moves the last member into the gap.
#pragma once

#include <boost/container/small_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace Vex {

template <class K, std::size_t N>
class SmallSet {
 public:
  using value_type = K;
  using const_iterator = const K*;
  using iterator = const K*;

  SmallSet() = default;
  SmallSet(const SmallSet& other) : items_(other.items_) {
    if (other.index_) index_ = std::make_unique<Index>(*other.index_);
  }
  SmallSet& operator=(const SmallSet& other) {
    if (this != &other) *this = SmallSet(other);
    return *this;
  }
  SmallSet(SmallSet&&) noexcept = default;
  SmallSet& operator=(SmallSet&&) noexcept = default;

  const K* begin() const { return items_.data(); }
  const K* end() const { return items_.data() + items_.size(); }
  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  bool contains(const K& key) const { return position(key) != absent; }
  std::size_t count(const K& key) const { return contains(key) ? 1 : 0; }

  // Adds `key`; `second` tells whether it was new, as for standard sets.
  std::pair<const K*, bool> insert(const K& key) {
    if (std::size_t at = position(key); at != absent) return {begin() + at, false};
    items_.push_back(key);
    if (index_) {
      index_->emplace(key, static_cast<std::uint32_t>(items_.size() - 1));
    } else if (items_.size() > N) {
      buildIndex();
    }
    return {end() - 1, true};
  }

  std::size_t erase(const K& key) {
    std::size_t at = position(key);
    if (at == absent) return 0;
    if (index_) index_->erase(key);
    if (at + 1 != items_.size()) {
      items_[at] = std::move(items_.back());
      if (index_) (*index_)[items_[at]] = static_cast<std::uint32_t>(at);
    }
    items_.pop_back();
    // Well below N again: the scan is cheaper than keeping the index.
    if (index_ && items_.size() <= N / 2) index_.reset();
    return 1;
  }

  void clear() {
    items_.clear();
    index_.reset();
  }

  friend bool operator==(const SmallSet& a, const SmallSet& b) {
    return a.size() == b.size() && std::all_of(a.begin(), a.end(), [&](const K& key) { return b.contains(key); });
  }

 private:
  using Index = boost::unordered_flat_map<K, std::uint32_t>;
  static constexpr std::size_t absent = ~std::size_t{0};

  std::size_t position(const K& key) const {
    if (index_) {
      auto it = index_->find(key);
      return it == index_->end() ? absent : it->second;
    }
    auto it = std::find(items_.begin(), items_.end(), key);
    return it == items_.end() ? absent : static_cast<std::size_t>(it - items_.begin());
  }

  void buildIndex() {
    index_ = std::make_unique<Index>();
    index_->reserve(items_.size() * 2);
    for (std::size_t i = 0; i < items_.size(); ++i) index_->emplace(items_[i], static_cast<std::uint32_t>(i));
  }

  boost::container::small_vector<K, N> items_;
  std::unique_ptr<Index> index_;
};

}  // namespace Vex
