// Routes the chip refused, with its answer for each, and what the layer-3
// status says about them: per VRF and family how many routes are not in
// hardware, over all VRFs how many are in and out of it, and whether a
// family's route table was found full.
#pragma once

#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL3Types.h"
#include "chip/softchip/SoftRoute.h"

#include <cstdint>
#include <map>
#include <optional>

namespace Agent {

// A route's key in the soft chip's route table.
inline SoftChip::SoftRouteKey routeKey(const Orb::VrfAndPrefix& vp) { return {vp.vrfId.value(), false, vp.prefix, {}}; }
inline SoftChip::SoftRouteKey routeKey(const Orb::VrfAndIp6Prefix& vp) {
  return {vp.vrfId.value(), true, {}, vp.prefix};
}

class RouteRefusals {
 public:
  RouteRefusals(Orb::L3Status& status, Orb::OrbInternalL3Status& internal) : status_(status), internal_(internal) {}

  // The chip's answer to writing the route (SoftRouteHelper::addSuccess
  // when it holds it), or none when the route is gone.
  void answerIs(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, std::optional<std::uint32_t> answer);
  const std::map<SoftChip::SoftRouteKey, std::uint32_t>& refused() const { return refused_; }
  // The answer the route got; addSuccess when it was not refused.
  std::uint32_t answer(const SoftChip::SoftRouteKey& key) const;

 private:
  // Counts the refused route in (+1) or out (-1).
  void count(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, std::uint32_t answer, int delta);
  void publishTotals();

  Orb::L3Status& status_;
  Orb::OrbInternalL3Status& internal_;
  std::map<SoftChip::SoftRouteKey, std::uint32_t> refused_;
  std::uint64_t full_[2] = {0, 0};  // refused for room, by family (v6 second)
};

}  // namespace Agent
