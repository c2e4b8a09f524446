// Spanning-tree port states per VLAN: the soft chip's topology table, the
// spanning-tree machine, the default topology the spanning-tree agent keeps,
// and the `spanning-tree` commands. Ports join VLANs in hardware only while
// spanning tree says they forward.
#pragma once

#include "Orb/OrbStpSm.h"
#include "agent/DefaultTopology.h"
#include "agent/Feature.h"
#include "agent/VlanFeature.h"
#include "chip/softchip/SoftStp.h"

#include <memory>

namespace Agent {

class StpFeature : public Feature {
 public:
  StpFeature(const AgentCore& core, VlanFeature& vlans);
  ~StpFeature() override;
  void registerCommands() override;

  const Vex::Ptr<SoftChip::SoftTopoHelper>& helper() const { return topoHelper_; }
  const Vex::Ptr<Orb::StpSm>& sm() const { return stpSm_; }

 private:
  Vex::Ptr<SoftChip::SoftTopoHelper> topoHelper_;
  Vex::Ptr<Orb::StpSm> stpSm_;
  std::unique_ptr<DefaultTopology> defaultTopology_;
};

}  // namespace Agent
