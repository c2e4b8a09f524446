#include "Orb/OrbL3Watch.h"

namespace Orb {

Vex::Ptr<RouteReactorConfig> routeReactorConfigFactory(const std::string& name) {
  return Vex::make<RouteReactorConfig>(name);
}

Vex::Ptr<Route6ReactorConfig> route6ReactorConfigFactory(const std::string& name) {
  return Vex::make<Route6ReactorConfig>(name);
}

Vex::Ptr<RouteReactorStatus> routeReactorStatusFactory(const std::string& name) {
  return Vex::make<RouteReactorStatus>(name);
}

Vex::Ptr<Route6ReactorStatus> route6ReactorStatusFactory(const std::string& name) {
  return Vex::make<Route6ReactorStatus>(name);
}

}  // namespace Orb
