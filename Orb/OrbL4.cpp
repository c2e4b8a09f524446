#include "Orb/OrbL4.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbTrace.h"

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbL4");
  return handle;
}

// The mask that leaves the low `bits` bits free in a T.
template <class T>
T maskAbove(unsigned bits) {
  if (bits > 8 * sizeof(T)) orbAssert("mask <= 8 * sizeof( T )");
  return static_cast<T>(~((1u << bits) - 1u));
}

// The largest block size exponent at `start` that stays within `high`:
// start must be a multiple of the block and the block must end by high.
// Returns 16 for the whole port space.
unsigned largestBlock(std::uint32_t start, std::uint32_t high) {
  unsigned k = 0;
  while (k <= 16) {
    const std::uint32_t size = 1u << k;
    if (start % size != 0 || start + size - 1 > high) break;
    ++k;
  }
  return k - 1;  // k = 0 always fits: start <= high
}

}  // namespace

void createL4PortMasks(std::uint16_t low, std::uint16_t high, bool isRange, AclPortMaskVector& maskVect) {
  const std::size_t before = maskVect.size();
  if (!isRange) {
    maskVect.push_back({0, 0, 0});
    return;
  }
  std::uint32_t start = low;
  while (start <= high) {
    const unsigned bits = largestBlock(start, high);
    if (bits == 16) {
      maskVect.push_back({static_cast<std::uint16_t>(start), 65535, 0});
      break;
    }
    const std::uint32_t last = start | ((1u << bits) - 1u);
    maskVect.push_back(
        {static_cast<std::uint16_t>(start), static_cast<std::uint16_t>(last), maskAbove<std::uint16_t>(bits)});
    start = last + 1;
  }
  if (maskVect.size() == before) orbAssert("!maskVect.empty()");
}

std::uint32_t numL4PortMasks(std::uint16_t low, std::uint16_t high) {
  BLIP(trace(), 7, "numL4PortMasks low={} high={}", low, high);
  std::uint32_t count = 0;
  std::uint32_t start = low;
  while (start <= high) {
    const unsigned bits = largestBlock(start, high);
    ++count;
    if (bits == 16) break;
    start = (start | ((1u << bits) - 1u)) + 1;
  }
  return count;
}

}  // namespace Orb
