// Bitmaps kept as words of 64 bits, as the compact per-VLAN and
// per-interface tables keep their slots: the next set bit, and the parts of
// a forward iterator over set positions that do not depend on the table.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace BitWords {

// The first set bit of `words` at or after `from`, or `end` when there is
// none before it; `end` is at most 64 times the number of words.
template <class Words>
std::size_t nextSet(const Words& words, std::size_t from, std::size_t end) {
  while (from < end) {
    std::uint64_t rest = words[from / 64] >> (from % 64);
    if (rest) return from + static_cast<std::size_t>(std::countr_zero(rest));
    from = (from / 64 + 1) * 64;
  }
  return end;
}

// `Derived` dereferences its position and finds the next one with
// `std::size_t nextAfter(std::size_t position) const`.
template <class Derived, class Value>
class PositionIterator {
 public:
  using value_type = Value;
  using iterator_category = std::forward_iterator_tag;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = value_type;

  PositionIterator() = default;
  explicit PositionIterator(std::size_t position) : position_(position) {}
  Derived& operator++() {
    position_ = self().nextAfter(position_);
    return self();
  }
  Derived operator++(int) {
    Derived before = self();
    ++*this;
    return before;
  }
  bool operator==(const PositionIterator& other) const { return position_ == other.position_; }

 protected:
  std::size_t position_ = 0;

 private:
  Derived& self() { return static_cast<Derived&>(*this); }
};

}  // namespace BitWords
