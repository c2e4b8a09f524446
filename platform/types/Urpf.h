// Unicast reverse-path forwarding as the configuration publishes it per
// interface.
#pragma once

#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>

namespace Urpf {

// strict: the source must be reachable through the arriving interface;
// loose: through any interface.
enum class UrpfMode : std::uint8_t { disable, strict, loose };
BOOST_DESCRIBE_ENUM(UrpfMode, disable, strict, loose)

struct UrpfStatus {
  UrpfMode mode = UrpfMode::disable;
  // A default route counts as a route to the source.
  bool allowDefaultRoute = false;
  auto operator<=>(const UrpfStatus&) const = default;
};
VEX_VALUE(UrpfStatus, "Urpf::UrpfStatus", (mode, allowDefaultRoute))

}  // namespace Urpf
