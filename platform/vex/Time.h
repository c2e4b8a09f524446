// Time in the reactor world: seconds as a double, "never" is infinity.
#pragma once

#include <limits>

namespace Vex {

using Seconds = double;

inline constexpr Seconds never = std::numeric_limits<double>::infinity();

// The current time of the current event loop's time source. Every reading of
// the time in libOrb goes through here, so tests can drive it.
Seconds now();

}  // namespace Vex
