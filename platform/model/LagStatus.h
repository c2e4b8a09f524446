// LAG state other agents publish: the LAG interface status (members), the
// kernel device-name input of each LAG, and the hardware LAG config/status.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"

#include <string>

namespace Interface {

// One LAG interface: its current members and its kernel device name.
class EthLagIntfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthLagIntfStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Member, Nexo::IntfId)
    VEX_HANDLER(DeviceName)
  };
  explicit EthLagIntfStatus(const Nexo::IntfId& intf) : Entity(intf.stringValue()), intf_(intf) {}
  const Nexo::IntfId& intf() const { return intf_; }
  VEX_SET(Nexo::IntfId, member, Member)
  VEX_ATTR(std::string, deviceName, DeviceName)

 private:
  Nexo::IntfId intf_;
};

class EthLagIntfStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthLagIntfStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfStatus, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, Vex::Ptr<EthLagIntfStatus>, intfStatus, IntfStatus)
  VEX_OWNED_MEMBERS(Nexo::IntfId, EthLagIntfStatus, intfStatus)
};

}  // namespace Interface

namespace Lag::Input {

// The kernel device name of each LAG, as the forwarding layer requests it.
class IntfDeviceNameDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<IntfDeviceNameDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(DeviceName, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, std::string, deviceName, DeviceName)
};

}  // namespace Lag::Input

namespace Hardware::Lag {

// Hardware LAG configuration and status, owned by the chip layer's agent;
// the forwarding layer only needs them present.
class Config : public Vex::Entity {
 public:
  using Entity::Entity;
};

class Status : public Vex::Entity {
 public:
  using Entity::Entity;
};

}  // namespace Hardware::Lag
