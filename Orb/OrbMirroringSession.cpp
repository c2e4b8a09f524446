// One mirroring session: its mirror group, its creation in hardware with
// the destination it can use, and its sources and destinations kept in step
// with the configuration.
#include "Orb/OrbAssert.h"
#include "Orb/OrbMirroringLog.h"
#include "Orb/OrbMirroringSm.h"
#include "Orb/OrbMirroringTrace.h"
#include "platform/vex/Reactor.h"

#include <fmt/format.h>

namespace Orb {

// The session's configuration: any change of its sources or destinations
// brings the session in line again.
class VexMirroringSession::ConfigReactor : public Vex::Reactor<Mirroring::Session, MirroringSm> {
 public:
  ConfigReactor(VexMirroringSession* session) : Reactor(&session->sm(), session->config()), session_(session) {}
  void handleSrcIntf(const Nexo::IntfId&) override {
    react([this] { changed(); });
  }
  void handleTargetIntf(const Nexo::IntfId&) override {
    react([this] { changed(); });
  }
  void handleTruncationSize() override { attributeChanged(); }
  void handleHeaderRemovalSize() override { attributeChanged(); }
  void handleRxSampleRate() override { attributeChanged(); }
  void handleRateLimit() override { attributeChanged(); }
  void handleGrePayloadType() override { attributeChanged(); }

 private:
  void changed() {
    MirroringSm& sm = session_->sm();
    session_->sync();
    sm.reviewInvalidSources();
  }
  void attributeChanged() {
    react([this] {
      session_->syncAttributes();
      session_->sm().publishStatus(*session_);
    });
  }
  VexMirroringSession* session_;
};

VexMirroringSession::VexMirroringSession(MirroringSm& sm, const Vex::Ptr<Mirroring::Session>& config, std::uint32_t id)
    : sm_(sm), config_(config), name_(config->sessionName()), id_(id) {
  reactor_ = std::make_unique<ConfigReactor>(this);
}

VexMirroringSession::~VexMirroringSession() {
  reactor_.reset();
  // Sources leave the overflow count with their session.
  for (auto& [intf, src] : srcIntf_) {
    if (src->overflowed()) sm_.sourceOverflowIs(*src, false);
  }
}

std::set<Nexo::IntfId> VexMirroringSession::sourcePorts() const {
  std::set<Nexo::IntfId> ports;
  for (const auto& [intf, src] : srcIntf_) {
    ports.insert(intf);
    for (const auto& port : src->ports()) ports.insert(port);
  }
  return ports;
}

bool VexMirroringSession::targetPortHeld(const Nexo::IntfId& port, const VexTargetIntf* except) const {
  for (const auto& [intf, target] : targetIntf_) {
    if (target.get() != except && target->programmedPorts().count(port)) return true;
  }
  return false;
}

VexSrcIntf* VexMirroringSession::sourceHolding(const Nexo::IntfId& port, const VexSrcIntf* except) const {
  for (const auto& [intf, src] : srcIntf_) {
    if (src.get() != except && src->programmedPorts().count(port)) return src.get();
  }
  return nullptr;
}

Nexo::IntfId VexMirroringSession::wantedDest() const {
  for (const auto& [intf, target] : targetIntf_) {
    if (target->usable()) return intf;
  }
  return {};
}

bool VexMirroringSession::ensureGroup() {
  if (valid()) {
    BLIP(mirroringTrace(), 7, "{}: Mirror group is valid", name_);
    return true;
  }
  mirrorGroup_ = sm_.freeHwMirrorSessionDeq();
  if (valid()) {
    BLIP(mirroringTrace(), 5, "{}: Mirror group is valid: {}", name_, mirrorGroup_);
    groupShortLogged_ = false;
    return true;
  }
  BLIP(mirroringTrace(), 5, "{}: Mirror group is invalid", name_);
  BLIP(mirroringTrace(), 2, "HW mirroring session not available to program session {}", name_);
  if (!groupShortLogged_) {
    groupShortLogged_ = true;
    if (isInternal()) {
      MirroringLog::internalSessionResourcesUnavailable().emit(name_, wantedDest().stringValue());
    } else {
      MirroringLog::sessionResourcesFull().emit(name_);
    }
  }
  return false;
}

bool VexMirroringSession::create(const Nexo::IntfId& dest) {
  auto& helper = sm_.platformHelper();
  bool ok = false;
  if (dest.kind() == Nexo::IntfId::Kind::tunnel) {
    const Mirroring::GreTunnelStatus& status = sm_.inputs().greTunnelStatusDir->tunnel(dest);
    BLIP(mirroringTrace(), 5, "{} is a GRE Tunnel. add: {} tunnel id {} next hops {}", name_, dest.stringValue(),
         status.tunnelId, status.nextHops.size());
    if (!status.resolved()) return false;
    ok = helper.createGreTunnelMirror(name_, id_, mirrorGroup_, dest, status.tunnelId, status.nextHops);
    if (ok) {
      greTunnel_ = std::make_unique<VexGreTunnel>(VexGreTunnel{dest, status});
      targetIntf_.at(dest)->greNextHopsIs(status.nextHops);
    }
  } else {
    BLIP(mirroringTrace(), 5, "{} is not GRE. Program now.", name_);
    ok = helper.createMirror(name_, id_, mirrorGroup_, dest, true);
  }
  if (!ok) {
    BLIP(mirroringTrace(), 1, "Failed to create mirror session in hw for {}", name_);
    return false;
  }
  BLIP(mirroringTrace(), 5, "{} create: success", name_);
  createdInHw_ = true;
  // A new session starts with every attribute off.
  attributesInHw_.fill(0);
  destIntf_ = dest;
  BLIP(mirroringTrace(), 5, "Created in hw: {} group {} destination {}", name_, mirrorGroup_, dest.stringValue());
  return true;
}

void VexMirroringSession::removeSessionInHw(const char* failure) {
  auto& helper = sm_.platformHelper();
  std::vector<Nexo::IntfId> ports;
  for (const auto& [intf, src] : srcIntf_) ports.push_back(intf);
  const bool ok = greTunnel_ ? helper.removeGreTunnelMirror(name_, id_, mirrorGroup_, destIntf_)
                             : helper.removeMirror(name_, id_, mirrorGroup_, ports);
  if (ok) {
    BLIP(mirroringTrace(), 5, "{} remove: success", name_);
  } else {
    BLIP(mirroringTrace(), 1, "{}{}", failure, name_);
  }
}

void VexMirroringSession::removeFromHw() {
  for (auto& [intf, src] : srcIntf_) src->addOrRemoveSource(false);
  for (auto& [intf, target] : targetIntf_) target->addOrRemoveTarget(false);
  if (!createdInHw_) return;
  removeSessionInHw("Failed to remove mirror session in hw for ");
  createdInHw_ = false;
  destIntf_ = {};
  greTunnel_.reset();
  attributesInHw_.fill(std::nullopt);
  attributesRefused_.clear();
}

void VexMirroringSession::sync() {
  // Destinations and sources the configuration no longer names go first.
  for (auto it = targetIntf_.begin(); it != targetIntf_.end();) {
    if (config_->targetIntfHas(it->first)) {
      ++it;
      continue;
    }
    it->second->prepareToDie();
    it = targetIntf_.erase(it);
  }
  for (auto it = srcIntf_.begin(); it != srcIntf_.end();) {
    if (config_->srcIntfHas(it->first)) {
      ++it;
      continue;
    }
    it->second->prepareToDie();
    it = srcIntf_.erase(it);
  }
  for (const auto& [intf, present] : config_->targetIntf()) {
    if (!targetIntf_.count(intf)) targetIntf_[intf] = std::make_unique<VexTargetIntf>(*this, intf);
  }
  for (const auto& [intf, srcConfig] : config_->srcIntf()) {
    auto& src = srcIntf_[intf];
    if (!src) {
      src = std::make_unique<VexSrcIntf>(*this, intf, srcConfig);
    } else {
      src->configIs(srcConfig);
    }
  }

  const Nexo::IntfId dest = wantedDest();
  if (createdInHw_ && dest != destIntf_) {
    // Another destination leads now: the session is made again around it.
    removeFromHw();
  }
  if (!dest.empty() && !createdInHw_ && ensureGroup()) create(dest);
  if (dest.empty() && valid() && !createdInHw_) {
    // Nothing to copy to: the group goes back for sessions that can use it.
    std::int32_t group = mirrorGroup_;
    mirrorGroup_ = mirrorGroupInvalid();
    sm_.groupFreed(group);
  }
  for (auto& [intf, target] : targetIntf_) target->sync();
  for (auto& [intf, src] : srcIntf_) src->sync();
  syncAttributes();
  sm_.publishStatus(*this);
}

void VexMirroringSession::prepareToDie() {
  BLIP(mirroringTrace(), 5, "Disable port mirroring for all sources in {}", name_);
  reactor_.reset();
  for (auto& [intf, src] : srcIntf_) src->prepareToDie();
  for (auto& [intf, target] : targetIntf_) target->prepareToDie();
  if (createdInHw_) removeSessionInHw("Failed to remove mirror session from hw for ");
  createdInHw_ = false;
  mirrorGroup_ = mirrorGroupInvalid();
}

void VexMirroringSession::reconcile(const HwMirrorSession& held) {
  mirrorGroup_ = held.group;
  if (held.isGre) {
    // The tunnel's next hops may have moved while the agent was away: the
    // session is programmed again once it is known.
    BLIP(mirroringTrace(), 5, "{} {}", name_,
         held.dummyFwdDrop ? "is dummy fwd drop GRE. Program after reconcile." : "is GRE. Program after reconcile.");
    return;
  }
  BLIP(mirroringTrace(), 5, "{} is not GRE session. Already programmed, skip.", name_);
  createdInHw_ = true;
  destIntf_ = held.destIntf;
  auto& helper = sm_.platformHelper();
  std::set<Nexo::IntfId> claimed;
  for (const auto& [intf, srcConfig] : config_->srcIntf()) {
    auto src = std::make_unique<VexSrcIntf>(*this, intf, srcConfig);
    std::set<Nexo::IntfId> ports;
    for (const auto& port : src->ports()) {
      auto it = held.sources.find(port);
      if (it != held.sources.end() && it->second == srcConfig.direction) ports.insert(port);
    }
    // A source filtered by an ACL is filtered again, so that a list edited
    // while the agent was away takes effect.
    if (srcConfig.aclName.empty()) {
      src->adopt(ports);
      claimed.insert(ports.begin(), ports.end());
    }
    srcIntf_[intf] = std::move(src);
  }
  for (const auto& [port, direction] : held.sources) {
    if (!claimed.count(port)) helper.removeSourceFromHardware(name_, id_, mirrorGroup_, port, direction, false);
  }
  std::set<Nexo::IntfId> heldTargets(held.targets.begin(), held.targets.end());
  for (const auto& [intf, present] : config_->targetIntf()) {
    auto target = std::make_unique<VexTargetIntf>(*this, intf);
    targetIntf_[intf] = std::move(target);
  }
  for (auto& [intf, target] : targetIntf_) {
    std::set<Nexo::IntfId> ports;
    for (const auto& port : heldTargets) {
      if (port == intf || sm_.ocsd()->portToLag(port) == intf) ports.insert(port);
    }
    target->adopt(ports);
    for (const auto& port : ports) heldTargets.erase(port);
  }
  for (const auto& port : heldTargets) helper.addTargetToHardware(name_, id_, mirrorGroup_, port, false);
}

void VexMirroringSession::handleLag(const Nexo::IntfId& lag) {
  bool touched = false;
  if (auto it = srcIntf_.find(lag); it != srcIntf_.end()) {
    it->second->sync();
    touched = true;
  }
  for (auto& [intf, target] : targetIntf_) {
    if (intf == lag) {
      target->sync();
      touched = true;
    } else if (target->isGre() && target->lagsInGreNextHop().count(lag) && greTunnel_) {
      target->greNextHopsIs(greTunnel_->programmed.nextHops);
      touched = true;
    }
  }
  // A destination overlapping a source may no longer do so, or start to.
  if (touched) sync();
}

void VexMirroringSession::handleTunnel(const Nexo::IntfId& tunnel) {
  if (!targetIntf_.count(tunnel)) return;
  const Mirroring::GreTunnelStatus& status = sm_.inputs().greTunnelStatusDir->tunnel(tunnel);
  if (!createdInHw_ || destIntf_ != tunnel) {
    sync();
    return;
  }
  if (!status.resolved()) {
    BLIP(mirroringTrace(), 3, "{}: tunnel {} no longer resolves", name_, tunnel.stringValue());
    removeFromHw();
    sync();
    return;
  }
  if (greTunnel_ && greTunnel_->programmed == status) return;
  auto& helper = sm_.platformHelper();
  if (!helper.updateGreTunnelMirror(name_, id_, mirrorGroup_, tunnel, status.tunnelId, status.nextHops)) {
    BLIP(mirroringTrace(), 1, "Failed to update mirror session in hw for {}", name_);
    BLIP(mirroringTrace(), 1, "Failed to create/update mirror session in hw for {}", name_);
    return;
  }
  greTunnel_->programmed = status;
  targetIntf_.at(tunnel)->greNextHopsIs(status.nextHops);
  sm_.publishStatus(*this);
}

void VexMirroringSession::retryFailedPorts() {
  bool any = false;
  for (auto& [intf, src] : srcIntf_) {
    if (src->failedPorts().empty()) continue;
    src->retryFailedPorts();
    any = true;
  }
  for (auto& [intf, target] : targetIntf_) {
    if (target->failedPorts().empty()) continue;
    target->retryFailedPorts();
    any = true;
  }
  if (!createdInHw_ && !wantedDest().empty()) {
    sync();
    return;
  }
  if (!attributesRefused_.empty()) {
    syncAttributes();
    any = true;
  }
  if (any) sm_.publishStatus(*this);
}

void VexMirroringSession::handleAcl(const std::string& aclName) {
  bool touched = false;
  for (auto& [intf, src] : srcIntf_) {
    if (src->aclName() != aclName) continue;
    src->handleAcl();
    touched = true;
  }
  if (touched) sm_.publishStatus(*this);
}

void VexMirroringSession::verify(VerifyReport& report) {
  const Nexo::IntfId dest = wantedDest();
  if (createdInHw_ && dest.empty()) {
    report.mismatch(fmt::format("{}: session is createdInHw without a destination port.", name_));
  }
  const bool waitsForTunnel =
      dest.kind() == Nexo::IntfId::Kind::tunnel && !sm_.inputs().greTunnelStatusDir->tunnel(dest).resolved();
  if (!createdInHw_ && !dest.empty() && valid() && !waitsForTunnel) {
    report.mismatch(fmt::format(
        "{}: session is not createdInHw,                         but there is a valid destination port.", name_));
  }
  if (!createdInHw_) return;
  auto& helper = sm_.platformHelper();
  for (const auto& [intf, src] : srcIntf_) {
    for (const auto& port : src->programmedPorts()) {
      std::string diff = helper.verifySinglePort(name_, mirrorGroup_, port, src->direction());
      if (!diff.empty()) report.mismatch(fmt::format("{}: {}", name_, diff));
    }
  }
  for (const auto& [intf, target] : targetIntf_) {
    for (const auto& port : target->programmedPorts()) {
      std::string diff = helper.verifyDestPort(name_, mirrorGroup_, port);
      if (!diff.empty()) report.mismatch(fmt::format("{}: {}", name_, diff));
    }
  }
}

Mirroring::SessionStatus VexMirroringSession::status() const {
  Mirroring::SessionStatus status;
  status.mirrorGroup = mirrorGroup_;
  status.createdInHw = createdInHw_;
  status.valid = valid();
  if (!createdInHw_) {
    const Nexo::IntfId dest = wantedDest();
    if (dest.empty()) {
      status.reason = "no usable destination";
    } else if (!valid()) {
      status.reason = "no free mirror group";
    } else if (dest.kind() == Nexo::IntfId::Kind::tunnel) {
      status.reason = "tunnel " + dest.stringValue() + " unresolved";
    } else {
      status.reason = "hardware refused the session";
    }
  }
  for (const auto& [intf, src] : srcIntf_) status.sources[intf] = src->state();
  for (const auto& [intf, target] : targetIntf_) status.targets[intf] = target->state();
  status.attributesRefused = attributesRefused_;
  return status;
}

}  // namespace Orb
