// Wrapping sequence numbers.
#pragma once

#include "platform/vex/Value.h"

#include <cstdint>

namespace Keel {

// A 32-bit sequence number that wraps: a is before b when b - a, taken as a
// signed 32-bit number, is positive, so 0xffffffff is before 0. The order
// holds between numbers less than 2^31 apart; equality and hashing are
// plain.
class Seqno32 {
 public:
  Seqno32() = default;
  explicit Seqno32(std::uint32_t value) : value_(value) {}
  std::uint32_t value() const { return value_; }

  Seqno32& operator++() {
    ++value_;
    return *this;
  }
  Seqno32 operator+(std::uint32_t n) const { return Seqno32(value_ + n); }
  // How far `other` is behind this one, in sequence order.
  std::int32_t operator-(const Seqno32& other) const { return static_cast<std::int32_t>(value_ - other.value_); }

  bool operator==(const Seqno32&) const = default;
  std::strong_ordering operator<=>(const Seqno32& other) const {
    std::int32_t delta = *this - other;
    return delta == 0 ? std::strong_ordering::equal
                      : (delta < 0 ? std::strong_ordering::less : std::strong_ordering::greater);
  }

  std::uint32_t vexRep() const { return value_; }
  static Seqno32 fromVexRep(std::uint32_t value) { return Seqno32(value); }

 private:
  std::uint32_t value_ = 0;
};
VEX_SCALAR_VALUE(Seqno32, "Keel::Seqno32", "value")
inline std::size_t hash_value(Seqno32 s) { return boost::hash<std::uint32_t>()(s.value()); }

}  // namespace Keel
