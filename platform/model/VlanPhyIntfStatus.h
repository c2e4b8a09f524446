// VLAN membership of physical interfaces as the bridging agent publishes it:
// one status per VLAN, each listing its member interfaces.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

namespace VlanPhyIntfStatusLib {

// How an interface is a member of the VLAN.
struct VlanPhyIntfEntry {
  bool tagged = false;
  bool ingress = true;
  bool egress = true;
  auto operator<=>(const VlanPhyIntfEntry&) const = default;
};
VEX_VALUE(VlanPhyIntfEntry, "VlanPhyIntfStatusLib::VlanPhyIntfEntry", (tagged, ingress, egress))

class VlanPhyIntfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanPhyIntfStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Intf, Nexo::IntfId)
  };
  explicit VlanPhyIntfStatus(Bridging::VlanId vlanId) : vlanId_(vlanId) {}
  Bridging::VlanId vlanId() const { return vlanId_; }
  VEX_COLLECTION(Nexo::IntfId, VlanPhyIntfEntry, intf, Intf)

 private:
  Bridging::VlanId vlanId_;
};

class VlanPhyIntfStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanPhyIntfStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VlanPhyIntfStatus, Bridging::VlanId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Bridging::VlanId, Vex::Ptr<VlanPhyIntfStatus>, vlanPhyIntfStatus, VlanPhyIntfStatus)
  VEX_OWNED_MEMBERS(Bridging::VlanId, VlanPhyIntfStatus, vlanPhyIntfStatus)
};

}  // namespace VlanPhyIntfStatusLib
