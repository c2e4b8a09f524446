// Sub-interface state other agents publish: each sub-interface's configured
// 802.1Q encapsulation, its status as the interface agent sees it (routed
// or bridged, the VLAN it forwards in, whether hardware should hold it),
// pseudowire port connectors, MACsec proxy sub-interfaces, and the
// hardware configuration and status of the encapsulation-to-VLAN mappings.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <string>

namespace Interface {

// An 802.1Q encapsulation: the outer tag and, for a double-tagged
// sub-interface, the inner one (0: none). An all-zero value is no
// encapsulation.
struct SubIntfEncap {
  std::uint16_t outerTag = 0;
  std::uint16_t innerTag = 0;
  bool isNone() const { return outerTag == 0; }
  auto operator<=>(const SubIntfEncap&) const = default;
};
VEX_VALUE(SubIntfEncap, "Interface::SubIntfEncap", (outerTag, innerTag))

enum class ForwardingModel : std::uint8_t { intfForwardingModelRouted = 0, intfForwardingModelBridged = 1 };
BOOST_DESCRIBE_ENUM(ForwardingModel, intfForwardingModelRouted, intfForwardingModelBridged)

enum class OperStatus : std::uint8_t { intfOperDown = 0, intfOperUp = 1 };
BOOST_DESCRIBE_ENUM(OperStatus, intfOperDown, intfOperUp)

// What is configured for one sub-interface. A MACsec proxy sub-interface
// carries another interface's traffic through the MACsec engine.
class SubIntfConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SubIntfConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Dot1qEncap)
    VEX_HANDLER(MacsecProxy)
  };
  explicit SubIntfConfig(const Nexo::IntfId& intf) : Entity(intf.stringValue()), intfId_(intf) {}
  const Nexo::IntfId& intfId() const { return intfId_; }
  VEX_ATTR(SubIntfEncap, dot1qEncap, Dot1qEncap)
  VEX_ATTR(bool, macsecProxy, MacsecProxy, false)

 private:
  Nexo::IntfId intfId_;
};

class SubIntfConfigDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SubIntfConfigDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfConfig, Nexo::IntfId)
  };
  using Entity::Entity;
  // Hashed: thousands of sub-interfaces come up at once, and readers that
  // list them sort what they list.
  VEX_COLLECTION(Nexo::IntfId, Vex::Ptr<SubIntfConfig>, intfConfig, IntfConfig)
  VEX_OWNED_MEMBERS(Nexo::IntfId, SubIntfConfig, intfConfig)
};

// One sub-interface as the interface agent reports it.
class SubIntfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SubIntfStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(ForwardingModel)
    VEX_HANDLER(ForwardingVlanId)
    VEX_HANDLER(ProgramInHw)
    VEX_HANDLER(Initialized)
    VEX_HANDLER(OperStatus)
  };
  explicit SubIntfStatus(const Nexo::IntfId& intf) : Entity(intf.stringValue()), intfId_(intf) {}
  const Nexo::IntfId& intfId() const { return intfId_; }
  VEX_ATTR(ForwardingModel, forwardingModel, ForwardingModel, ForwardingModel::intfForwardingModelRouted)
  VEX_ATTR(Bridging::VlanIdOrNone, forwardingVlanId, ForwardingVlanId)
  VEX_ATTR(bool, programInHw, ProgramInHw, false)
  VEX_ATTR(bool, initialized, Initialized, false)
  VEX_ATTR(OperStatus, operStatus, OperStatus, OperStatus::intfOperUp)
  bool isL2SubIntf() const { return forwardingModel_ == ForwardingModel::intfForwardingModelBridged; }

 private:
  Nexo::IntfId intfId_;
};

class SubIntfStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SubIntfStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfStatus, Nexo::IntfId)
  };
  using Entity::Entity;
  // Hashed, as the configuration directory.
  VEX_COLLECTION(Nexo::IntfId, Vex::Ptr<SubIntfStatus>, intfStatus, IntfStatus)
  VEX_OWNED_MEMBERS(Nexo::IntfId, SubIntfStatus, intfStatus)
};

}  // namespace Interface

namespace Pseudowire {

// The sub-interfaces that are local end points (port connectors) of a
// pseudowire, with the VLAN the pseudowire agent gave each.
class LocalConnectorInfoTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<LocalConnectorInfoTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Connector, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, Bridging::VlanIdOrNone, connector, Connector)
};

}  // namespace Pseudowire

namespace MacsecProxy {

// Each MACsec proxy sub-interface and the interface whose traffic it
// carries, once the MACsec agent has set the proxy up.
class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ProxySubIntf, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, Nexo::IntfId, proxySubIntf, ProxySubIntf)
};

}  // namespace MacsecProxy

namespace Hardware::SubIntf {

// One mapping as asked of hardware (config) or as hardware took it
// (status, with the table's answer).
struct Dot1qEncapAndVlanId {
  Nexo::IntfId parentIntf;
  Interface::SubIntfEncap dot1qEncap;
  Bridging::VlanIdOrNone vlanId;
  bool isL2SubIntf = false;
  std::uint32_t tableAddStatus = 0;
  auto operator<=>(const Dot1qEncapAndVlanId&) const = default;
};
VEX_VALUE(Dot1qEncapAndVlanId, "Hardware::SubIntf::Dot1qEncapAndVlanId",
          (parentIntf, dot1qEncap, vlanId, isL2SubIntf, tableAddStatus))

class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfIdToDot1qEncapAndVlanId, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_COLLECTION(Nexo::IntfId, Dot1qEncapAndVlanId, intfIdToDot1qEncapAndVlanId, IntfIdToDot1qEncapAndVlanId)
};

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfIdToDot1qEncapAndVlanId, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_COLLECTION(Nexo::IntfId, Dot1qEncapAndVlanId, intfIdToDot1qEncapAndVlanId, IntfIdToDot1qEncapAndVlanId)
};

}  // namespace Hardware::SubIntf
