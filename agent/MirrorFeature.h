// Port mirroring: the soft chip's mirror sessions behind the mirroring
// helper, the mirroring machine over the sessions the configuration agent
// would publish, and the `monitor session` commands, the GRE tunnel status
// stand-in and the mirror table's chip settings.
#pragma once

#include "Orb/OrbMirroringSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftMirror.h"

namespace Agent {

class MirrorFeature : public Feature {
 public:
  explicit MirrorFeature(const AgentCore& core);
  ~MirrorFeature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::MirroringSm>& sm() const { return sm_; }
  const Vex::Ptr<SoftChip::SoftMirrorHelper>& helper() const { return helper_; }
  const Orb::MirroringSmInputs& inputs() const { return inputs_; }
  // The machine goes and comes back, as in an agent restart; the chip
  // keeps its sessions. With `keepLeftovers`, sessions the configuration
  // no longer names stay in the chip.
  void restart(bool keepLeftovers) {
    stop();
    start(keepLeftovers);
  }
  void stop();
  void start(bool keepLeftovers);

 private:
  void registerConfigCommands();
  void registerShowCommands();
  void sourceIs(const std::string& session, const Args& args, bool remove);
  void destinationIs(const std::string& session, const Args& args, bool remove);
  void attributeIs(const std::string& session, const Args& args, bool remove);
  void tunnelIs(const Args& args);

  Vex::Ptr<SoftChip::SoftMirrorHelper> helper_;
  Orb::MirroringSmInputs inputs_;
  Vex::Ptr<Orb::MirroringSm> sm_;
};

}  // namespace Agent
