// The bridging agent's configuration, with the parts the forwarding layer
// reads.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

namespace Bridging {

// A VLAN whose ports also join the flood set of another ("expanded") VLAN.
struct VlanExpansion {
  VlanId vlanId;
  VlanId expVlanId;
  auto operator<=>(const VlanExpansion&) const = default;
};
VEX_VALUE(VlanExpansion, "Bridging::VlanExpansion", (vlanId, expVlanId))

class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VidToFidMap, VlanId)
    VEX_KEY_HANDLER(StaticExpVlan, VlanExpansion)
  };
  using Entity::Entity;

  // The filtering database each VLAN learns into, where it is not its own.
  VEX_COLLECTION(VlanId, Fid, vidToFidMap, VidToFidMap)
  // Configured flood-set expansions.
  VEX_SET(VlanExpansion, staticExpVlan, StaticExpVlan)
};

}  // namespace Bridging
