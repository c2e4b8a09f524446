// VLAN membership and flood sets: the soft chip's VLAN table behind the VLAN
// helper, the VLAN machine over the membership the bridging agent publishes,
// and the `vlan` commands.
#pragma once

#include "Orb/OrbVlanPhyIntfSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftVlan.h"

namespace Agent {

class VlanFeature : public Feature {
 public:
  explicit VlanFeature(const AgentCore& core);
  ~VlanFeature() override;
  void registerCommands() override;

  const Vex::Ptr<SoftChip::SoftVlanHelper>& helper() const { return vlanHelper_; }
  const Vex::Ptr<Orb::VlanPhyIntfSm>& sm() const { return vlanPhyIntfSm_; }

 private:
  void registerSwitchportCommands(const Vex::Ptr<Bridging::Config>& bridgingConfig);
  Vex::Ptr<SoftChip::SoftVlanHelper> vlanHelper_;
  Vex::Ptr<Orb::VlanPhyIntfSm> vlanPhyIntfSm_;
};

}  // namespace Agent
