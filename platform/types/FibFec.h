// FIB FEC rows as the routing agents publish them in shared-memory tables:
// a FEC and its vias. The agents' rows are variable-length; here every row
// has room for the largest FEC (600 vias), which gives the fixed row sizes
// the tables are configured with (14,424 bytes for IPv4, 21,624 for IPv6).
// Vias past `viaCount` are zero.
#pragma once

#include "platform/types/Fib.h"
#include "platform/types/Nexo.h"

#include <cstddef>
#include <cstdint>

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

struct Fec {
  FecId key;
  std::uint32_t viaCount = 0;
  std::uint32_t flags = 0;
  std::uint64_t adjIndex = 0;
  Via via[maxVias] = {};
  bool operator==(const Fec&) const = default;
};
static_assert(sizeof(Fec) == 14424);

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

}  // namespace Pond::Fib6
