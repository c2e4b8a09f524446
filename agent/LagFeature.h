// Link aggregation: the soft chip's LAG table, the LAG machine over the LAG
// statuses and MLAG state, and the `port-channel` and `mlag` commands.
#pragma once

#include "Orb/OrbLagSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftLag.h"

namespace Agent {

class LagFeature : public Feature {
 public:
  explicit LagFeature(const AgentCore& core);
  ~LagFeature() override;
  void registerCommands() override;

  const Vex::Ptr<SoftChip::SoftLagHelper>& helper() const { return lagHelper_; }
  const Vex::Ptr<Orb::LagSm>& sm() const { return lagSm_; }

 private:
  Vex::Ptr<SoftChip::SoftLagHelper> lagHelper_;
  Vex::Ptr<Orb::LagSm> lagSm_;
};

}  // namespace Agent
