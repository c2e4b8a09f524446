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
  if (answer == Helper::addFull) full_[key.v6] += static_cast<std::uint64_t>(delta);
  auto step = [delta](auto inc, auto dec) { delta > 0 ? inc() : dec(); };
  // A route's VRF can be gone by the time its refusal is taken back.
  Vex::Ptr<Orb::VrfL3Status> vrfStatus =
      status_.vrfNameHas(vrf) ? status_.vrfL3Status(status_.vrfName(vrf)) : Vex::Ptr<Orb::VrfL3Status>();
  if (key.v6) {
    step([&] { internal_.ipv6UnProgrammedRoutesInc(); }, [&] { internal_.ipv6UnProgrammedRoutesDec(); });
    if (vrfStatus)
      step([&] { vrfStatus->numUnprogrammedV6RoutesInc(); }, [&] { vrfStatus->numUnprogrammedV6RoutesDec(); });
  } else {
    step([&] { internal_.ipv4UnProgrammedRoutesInc(); }, [&] { internal_.ipv4UnProgrammedRoutesDec(); });
    if (vrfStatus) step([&] { vrfStatus->numUnprogrammedRoutesInc(); }, [&] { vrfStatus->numUnprogrammedRoutesDec(); });
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
