// Sub-interfaces: the configuration and status the interface agent would
// publish for each sub-interface, the soft chip's VLAN-translation table
// behind the sub-interface helper, the sub-interface machine, and the
// commands that configure encapsulations and forwarding and show the result.
#pragma once

#include "Orb/OrbSubIntfSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftSubIntf.h"

#include <set>

namespace Agent {

class SubIntfFeature : public Feature {
 public:
  explicit SubIntfFeature(const AgentCore& core);
  ~SubIntfFeature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::OrbSubIntfSm>& sm() const { return sm_; }
  const Vex::Ptr<SoftChip::SoftSubIntfHelper>& helper() const { return helper_; }

  // What the interface agent publishes; each throws CommandError on bad
  // input before changing anything.
  void encapsulationIs(const Nexo::IntfId& intf, std::uint16_t outer, std::uint16_t inner);
  void encapsulationDel(const Nexo::IntfId& intf);
  // Routed (in `vlan`, or the outer tag's VLAN when none) or bridged in `vlan`.
  void forwardingIs(const Nexo::IntfId& intf, bool bridged, Bridging::VlanIdOrNone vlan);

 private:
  void registerShowCommands();
  // Where a sub-interface stands: programmed, waiting, refused, pending.
  std::string stateText(const Nexo::IntfId& intf) const;

  Vex::Ptr<Interface::SubIntfConfigDir> configs_;
  Vex::Ptr<Interface::SubIntfStatusDir> statuses_;
  // What the pseudowire agent would publish: sub-interfaces that are port
  // connectors of a pseudowire, with the pseudowire's VLAN.
  Vex::Ptr<Pseudowire::LocalConnectorInfoTable> connectors_;
  Vex::Ptr<SoftChip::SoftSubIntfHelper> helper_;
  Vex::Ptr<Orb::OrbSubIntfSm> sm_;
  // Sub-interfaces whose forwarding VLAN was given, not taken from the tag.
  std::set<Nexo::IntfId> forwardingGiven_;
};

}  // namespace Agent
