// FIB FEC rows as the routing agents publish them in shared-memory tables:
// a FEC and its vias. A via with `viaFlagNextLevelFec` in its flags resolves
// through another FEC (a hierarchical FEC) and names it in its address
// (nextLevelFecIdOf). The agents' rows are variable-length; here every row
// has room for the largest FEC (600 vias), which gives the fixed row sizes
// the tables are configured with (14,424 bytes for IPv4, 21,624 for IPv6).
// Vias past `viaCount` are zero.
#pragma once

#include "platform/types/Fib.h"
#include "platform/types/Nexo.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Pond::Fib {

inline constexpr std::size_t maxVias = 600;

struct Via {
  std::uint32_t hop = 0;  // IPv4 address, host order
  std::uint32_t intfNumber = 0;
  std::uint32_t weight = 0;
  std::uint32_t mplsLabel = 0;
  std::uint32_t tunnelId = 0;
  std::uint32_t flags = 0;
  bool operator==(const Via&) const = default;
};
static_assert(sizeof(Via) == 24);

inline constexpr std::uint32_t viaFlagNextLevelFec = 0x1;

struct Fec {
  FecId key;
  std::uint32_t viaCount = 0;
  std::uint32_t flags = 0;
  std::uint64_t adjIndex = 0;
  Via via[maxVias] = {};
  bool operator==(const Fec&) const = default;
};
static_assert(sizeof(Fec) == 14424);

// The FEC an IPv4 via resolves through: its address the low 32 bits, its
// tunnel id the high ones.
inline FecId nextLevelFecIdOf(const Via& via) { return FecId((std::uint64_t(via.tunnelId) << 32) | via.hop); }
inline void nextLevelFecIdIs(Via& via, FecId fec) {
  via.flags |= viaFlagNextLevelFec;
  via.hop = static_cast<std::uint32_t>(fec.value());
  via.tunnelId = static_cast<std::uint32_t>(fec.value() >> 32);
}

}  // namespace Pond::Fib

namespace Pond::Fib6 {

using Pond::Fib::FecId;
using Pond::Fib::maxVias;

struct Via {
  std::uint8_t hop[16] = {};  // IPv6 address, network order
  std::uint32_t intfNumber = 0;
  std::uint32_t weight = 0;
  std::uint32_t mplsLabel = 0;
  std::uint32_t tunnelId = 0;
  std::uint32_t flags = 0;
  bool operator==(const Via&) const = default;
};
static_assert(sizeof(Via) == 36);

struct Fec {
  FecId key;
  std::uint32_t viaCount = 0;
  std::uint32_t flags = 0;
  std::uint64_t adjIndex = 0;
  Via via[maxVias] = {};
  bool operator==(const Fec&) const = default;
};
static_assert(sizeof(Fec) == 21624);

// The FEC an IPv6 via resolves through: the first 8 bytes of its address.
inline FecId nextLevelFecIdOf(const Via& via) {
  std::uint64_t id = 0;
  std::memcpy(&id, via.hop, sizeof id);
  return FecId(id);
}
inline void nextLevelFecIdIs(Via& via, FecId fec) {
  via.flags |= Pond::Fib::viaFlagNextLevelFec;
  std::uint64_t id = fec.value();
  std::memcpy(via.hop, &id, sizeof id);
}

}  // namespace Pond::Fib6
