// A value stored at 4-byte alignment, for shared-memory rows whose layout
// puts an 8-byte field on a 4-byte boundary. Reads and writes copy the bytes,
// so no misaligned object is ever formed; it compares, hashes, prints and
// parses as the value it holds.
#pragma once

#include <boost/container_hash/hash.hpp>

#include <compare>
#include <cstring>
#include <type_traits>

namespace Pond {

template <class T>
class Packed {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Packed() : Packed(T{}) {}
  Packed(const T& value) { std::memcpy(bytes_, &value, sizeof(T)); }  // NOLINT: stands for a T

  T get() const {
    T value;
    std::memcpy(&value, bytes_, sizeof(T));
    return value;
  }
  operator T() const { return get(); }  // NOLINT

  T vexPlain() const { return get(); }
  static Packed fromVexPlain(const T& value) { return Packed(value); }

  friend bool operator==(const Packed& a, const Packed& b) { return a.get() == b.get(); }
  friend auto operator<=>(const Packed& a, const Packed& b) { return a.get() <=> b.get(); }
  friend std::size_t hash_value(const Packed& p) { return boost::hash<T>()(p.get()); }

 private:
  alignas(4) unsigned char bytes_[sizeof(T)];
};

}  // namespace Pond
