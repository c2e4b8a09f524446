#include "agent/RouteRefusals.h"

namespace Agent {

using Helper = SoftChip::SoftRouteHelper;

void RouteRefusals::answerIs(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, std::optional<std::uint32_t> answer) {
  auto it = refused_.find(key);
  if (it != refused_.end()) {
    count(vrf, key, it->second, -1);
    refused_.erase(it);
  }
  if (answer && *answer != Helper::addSuccess) {
    refused_.emplace(key, *answer);
    count(vrf, key, *answer, +1);
  }
  publishTotals();
}

std::uint32_t RouteRefusals::answer(const SoftChip::SoftRouteKey& key) const {
  auto it = refused_.find(key);
  return it == refused_.end() ? Helper::addSuccess : it->second;
}

void RouteRefusals::count(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, std::uint32_t answer, int delta) {
  // Unsigned wrap-around makes adding -1 a decrement.
  const auto step = static_cast<std::uint64_t>(static_cast<std::int64_t>(delta));
  if (answer == Helper::addFull) full_[key.v6] += step;
  // A route's VRF can be gone by the time its refusal is taken back.
  Vex::Ptr<Orb::VrfL3Status> vrfStatus =
      status_.vrfNameHas(vrf) ? status_.vrfL3Status(status_.vrfName(vrf)) : Vex::Ptr<Orb::VrfL3Status>();
  if (key.v6) {
    internal_.ipv6UnProgrammedRoutesIs(internal_.ipv6UnProgrammedRoutes() + step);
    if (vrfStatus) vrfStatus->numUnprogrammedV6RoutesIs(vrfStatus->numUnprogrammedV6Routes() + std::uint32_t(step));
  } else {
    internal_.ipv4UnProgrammedRoutesIs(internal_.ipv4UnProgrammedRoutes() + step);
    if (vrfStatus) vrfStatus->numUnprogrammedRoutesIs(vrfStatus->numUnprogrammedRoutes() + std::uint32_t(step));
  }
}

void RouteRefusals::publishTotals() {
  const auto& routes = *status_.adjInfoColl();
  internal_.ipv4FibRoutesIs(routes.adjInfoListSize() - internal_.ipv4UnProgrammedRoutes());
  internal_.ipv6FibRoutesIs(routes.adjInfo6ListSize() - internal_.ipv6UnProgrammedRoutes());
  internal_.routingResourceFullIs(full_[0] != 0);
  internal_.ip6RoutingResourceFullIs(full_[1] != 0);
}

}  // namespace Agent
