// Flood-set expansions that other agents request at run time.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/vex/Entity.h"

namespace Orb {

class VlanToExpVlanList : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanToExpVlanList> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ExpVlan, Bridging::VlanId)
  };
  explicit VlanToExpVlanList(Bridging::VlanId vlanId) : vlanId_(vlanId) {}
  Bridging::VlanId vlanId() const { return vlanId_; }
  VEX_SET(Bridging::VlanId, expVlan, ExpVlan)

 private:
  Bridging::VlanId vlanId_;
};

class DynamicExpVlanDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<DynamicExpVlanDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VlanToExpVlanList, Bridging::VlanId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Bridging::VlanId, Vex::Ptr<VlanToExpVlanList>, vlanToExpVlanList, VlanToExpVlanList)
  VEX_OWNED_MEMBERS(Bridging::VlanId, VlanToExpVlanList, vlanToExpVlanList)
};

}  // namespace Orb
