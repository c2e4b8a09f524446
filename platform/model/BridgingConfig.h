// The bridging agent's configuration, with the parts the forwarding layer
// reads.
#pragma once

#include "platform/model/MacTypes.h"
#include "platform/types/Bridging.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

namespace Bridging {

// A VLAN whose ports also join the flood set of another ("expanded") VLAN.
struct VlanExpansion {
  VlanId vlanId;
  VlanId expVlanId;
  auto operator<=>(const VlanExpansion&) const = default;
};
VEX_VALUE(VlanExpansion, "Bridging::VlanExpansion", (vlanId, expVlanId))

// How a port takes part in bridging: an access port carries one VLAN
// untagged, a trunk several, a routed port none (it is an L3 interface).
enum class SwitchportMode : std::uint8_t { access = 0, trunk = 1, routed = 2 };
BOOST_DESCRIBE_ENUM(SwitchportMode, access, trunk, routed)

// A port's switch-port configuration: its mode and its access VLAN.
struct SwitchIntfConfig {
  SwitchportMode mode = SwitchportMode::access;
  VlanId cfgVlanId;
  auto operator<=>(const SwitchIntfConfig&) const = default;
};
VEX_VALUE(SwitchIntfConfig, "Bridging::SwitchIntfConfig", (mode, cfgVlanId))

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
    VEX_KEY_HANDLER(SwitchIntfConfig, Nexo::IntfId)
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
  // Ports with a switch-port configuration other than the default.
  VEX_COLLECTION(Nexo::IntfId, SwitchIntfConfig, switchIntfConfig, SwitchIntfConfig)
};

}  // namespace Bridging
