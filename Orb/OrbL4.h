// Layer-4 port ranges as the value/mask pairs a TCAM matches: a range
// becomes the fewest aligned power-of-two blocks that cover it, each one
// entry.
#pragma once

#include "platform/vex/Value.h"

#include <cstdint>
#include <vector>

namespace Orb {

// One block of ports: the first, the last, and the bits that must match
// (0 matches every port).
struct AclPortMask {
  std::uint16_t value = 0;
  std::uint16_t last = 0;
  std::uint16_t mask = 0;
  auto operator<=>(const AclPortMask&) const = default;
  bool matches(std::uint16_t port) const { return (port & mask) == (value & mask); }
};
VEX_VALUE(AclPortMask, "Orb::AclPortMask", (value, last, mask))

using AclPortMaskVector = std::vector<AclPortMask>;

// Appends the blocks covering low..high (inclusive) to `maskVect`; without
// `isRange`, the one match-any entry (0, 0, 0) whatever the bounds. A range
// needs at most 30 blocks.
void createL4PortMasks(std::uint16_t low, std::uint16_t high, bool isRange, AclPortMaskVector& maskVect);

// How many entries createL4PortMasks yields for low..high as a range.
std::uint32_t numL4PortMasks(std::uint16_t low, std::uint16_t high);

}  // namespace Orb
