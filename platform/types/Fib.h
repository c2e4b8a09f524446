// FIB identifiers shared with the routing agents through shared-memory
// tables: FEC ids and FIB table ids.
#pragma once

#include "platform/vex/Value.h"

#include <cstdint>

namespace Pond::Fib {

// A FEC id as the routing agent allocates it within one FIB table.
class FecId {
 public:
  constexpr FecId() = default;
  constexpr explicit FecId(std::uint64_t value) : value_(value) {}
  constexpr std::uint64_t value() const { return value_; }
  auto operator<=>(const FecId&) const = default;

  std::uint64_t vexRep() const { return value_; }
  static FecId fromVexRep(std::uint64_t value) { return FecId(value); }

 private:
  std::uint64_t value_ = 0;
};
VEX_SCALAR_VALUE(FecId, "Pond::Fib::FecId", "value")
inline std::size_t hash_value(const FecId& id) { return boost::hash<std::uint64_t>()(id.value()); }

// A FEC id unique across VRFs: the key of every per-FEC structure here.
class GlobalFecId {
 public:
  constexpr GlobalFecId() = default;
  constexpr explicit GlobalFecId(std::uint64_t value) : value_(value) {}
  constexpr std::uint64_t value() const { return value_; }
  constexpr bool isValid() const { return value_ != 0; }
  auto operator<=>(const GlobalFecId&) const = default;

  std::uint64_t vexRep() const { return value_; }
  static GlobalFecId fromVexRep(std::uint64_t value) { return GlobalFecId(value); }

 private:
  std::uint64_t value_ = 0;
};
VEX_SCALAR_VALUE(GlobalFecId, "Pond::Fib::GlobalFecId", "value")
inline std::size_t hash_value(const GlobalFecId& id) { return boost::hash<std::uint64_t>()(id.value()); }

// A FIB table id (one per VRF); 0 is the default VRF's table.
class TableId {
 public:
  constexpr TableId() = default;
  constexpr explicit TableId(std::uint16_t value) : value_(value) {}
  constexpr std::uint16_t value() const { return value_; }
  auto operator<=>(const TableId&) const = default;

  std::uint16_t vexRep() const { return value_; }
  static TableId fromVexRep(std::uint16_t value) { return TableId(value); }

 private:
  std::uint16_t value_ = 0;
};
VEX_SCALAR_VALUE(TableId, "Pond::Fib::TableId", "value")
inline std::size_t hash_value(const TableId& id) { return boost::hash<std::uint16_t>()(id.value()); }

}  // namespace Pond::Fib
