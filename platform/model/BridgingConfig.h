// The bridging agent's configuration, with the parts the forwarding layer
// reads.
#pragma once

#include "platform/model/MacTypes.h"
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
    VEX_KEY_HANDLER(FdbConfig, MacVlanPair)
    VEX_HANDLER(HostAgingTime)
    VEX_HANDLER(SourceCheckCpuMac)
    VEX_HANDLER(SourceMacInvalid)
    VEX_KEY_HANDLER(MacLearningDisabledVlan, VlanId)
  };
  using Entity::Entity;

  // The filtering database each VLAN learns into, where it is not its own.
  VEX_COLLECTION(VlanId, Fid, vidToFidMap, VidToFidMap)
  // Configured flood-set expansions.
  VEX_SET(VlanExpansion, staticExpVlan, StaticExpVlan)
  // Configured (static) MAC entries.
  VEX_COLLECTION(MacVlanPair, OrbTypes::MacAddressTableEntry, fdbConfig, FdbConfig)
  // Seconds an idle learned address stays; 0 turns aging off.
  VEX_ATTR(double, hostAgingTime, HostAgingTime, 300.0)
  VEX_ATTR(bool, sourceCheckCpuMac, SourceCheckCpuMac, false)
  VEX_ATTR(bool, sourceMacInvalid, SourceMacInvalid, false)
  // VLANs whose learning is switched off (on everywhere else).
  VEX_SET(VlanId, macLearningDisabledVlan, MacLearningDisabledVlan)
};

}  // namespace Bridging
