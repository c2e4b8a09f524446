#include "agent/MirrorFeature.h"

namespace Agent {

MirrorFeature::MirrorFeature(const AgentCore& core) : Feature(core) {
  helper_ = Vex::make<SoftChip::SoftMirrorHelper>(chip_);
  Orb::MirroringMounter mounter(hive_, ocsd_, helper_);
  mounter.doMounts();
  inputs_ = mounter.inputs();
  // The chip layer publishes what its mirror table holds.
  inputs_.hwCapability->maxSupportedSessionsIs(static_cast<std::uint32_t>(helper_->table().capacity()));
  sm_ = mounter.doMountsComplete();
}

MirrorFeature::~MirrorFeature() {
  sm_.reset();
  helper_.reset();
}

void MirrorFeature::registerCommands() {
  registerConfigCommands();
  registerShowCommands();
}

void MirrorFeature::stop() { sm_.reset(); }

void MirrorFeature::start(bool keepLeftovers) {
  if (sm_) return;
  // The shared pool of software ids starts again with the machine.
  ocsd_->freeMirrorSessionDelAll();
  ocsd_->mirrorSessionNameToIdDelAll();
  inputs_.mirroringStatus->sessionStatusDelAll();
  inputs_.mirroringStatus->sourcesOverflowedIs(0);
  // A machine that starts reconciles with the chip first, so the switch is
  // set on a machine not yet started: one made with no capability.
  const std::uint32_t sessions = inputs_.hwCapability->maxSupportedSessions();
  inputs_.hwCapability->maxSupportedSessionsIs(0);
  sm_ = Orb::mirroringSmFactory(inputs_);
  sm_->disableCleanupOnRestartIs(keepLeftovers);
  inputs_.hwCapability->maxSupportedSessionsIs(sessions);
}

}  // namespace Agent
