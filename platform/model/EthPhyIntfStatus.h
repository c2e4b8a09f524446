// Physical port status as the platform agent publishes it: whether the
// link is active and its operational speed. A port the platform does not
// know has no status here.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"

#include <cstdint>

namespace Interface {

class EthPhyIntfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthPhyIntfStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Active)
    VEX_HANDLER(Speed)
  };
  explicit EthPhyIntfStatus(const Nexo::IntfId& intf) : Entity(intf.stringValue()), intf_(intf) {}
  const Nexo::IntfId& intf() const { return intf_; }
  VEX_ATTR(bool, active, Active, false)
  // Operational speed in megabits per second; 0 while unknown.
  VEX_ATTR(std::uint64_t, speed, Speed, 0)
  std::uint64_t speedKbps() const { return speed() * 1000; }

 private:
  Nexo::IntfId intf_;
};

class EthPhyIntfStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthPhyIntfStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfStatus, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, Vex::Ptr<EthPhyIntfStatus>, intfStatus, IntfStatus)
  VEX_OWNED_MEMBERS(Nexo::IntfId, EthPhyIntfStatus, intfStatus)
};

}  // namespace Interface
