// The sources and destinations of a session, port by port: LAGs expand to
// their members, ports the chip refuses wait on a failed list for the next
// retry, sources that do not fit are marked overflowed, and a source's ACL
// filters what it copies.
#include "Orb/OrbAssert.h"
#include "Orb/OrbMirroringLog.h"
#include "Orb/OrbMirroringSm.h"
#include "Orb/OrbMirroringTrace.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Orb {

namespace {

std::string name(const Nexo::IntfId& intf) { return intf.stringValue(); }

std::vector<Nexo::IntfId> lagMembers(const OrbCommonSmData& ocsd, const Nexo::IntfId& lag) {
  std::vector<Nexo::IntfId> members;
  for (const auto& [port, state] : ocsd.lagToPort(lag).ports) members.push_back(port);
  std::sort(members.begin(), members.end());
  return members;
}

}  // namespace

// --- VexSrcIntf ---

VexSrcIntf::VexSrcIntf(VexMirroringSession& session, const Nexo::IntfId& intf, const Mirroring::SourceConfig& config)
    : session_(session), intf_(intf), config_(config) {}

std::vector<Nexo::IntfId> VexSrcIntf::ports() const {
  if (intf_.isLag()) return lagMembers(*session_.sm().ocsd(), intf_);
  return {intf_};
}

std::string VexSrcIntf::state() const {
  if (overflowed_) return "overflowed";
  if (aclMissing_) return "no acl";
  if (cutThrough_) return "cut-through";
  if (!session_.createdInHw()) return "inactive";
  if (!failedPorts_.empty()) return "failed";
  if (programmed_.empty()) return intf_.isLag() ? "no members" : "inactive";
  return "active";
}

bool VexSrcIntf::cutThroughConflict() const {
  if (!session_.sm().inputs().hwCapability->cutThroughMode()) return false;
  if (config_.direction == Mirroring::Direction::directionBoth) return true;
  for (const auto& [intf, other] : session_.srcIntf()) {
    if (other.get() == this || other->programmedPorts().empty()) continue;
    if (other->direction() != config_.direction) return true;
  }
  return false;
}

std::vector<Nexo::IntfId> VexSrcIntf::wantedPorts() {
  aclMissing_ = false;
  if (!session_.createdInHw()) {
    cutThrough_ = false;
    return {};
  }
  if (!config_.aclName.empty() && !session_.sm().aclConfig(config_.aclName)) {
    BLIP(mirroringTrace(), 3, "{} acl {} not found in acl config for session {}", name(intf_), config_.aclName,
         session_.name());
    aclMissing_ = true;
    return {};
  }
  if (cutThroughConflict()) {
    if (!cutThrough_) MirroringLog::invalidSessionInCutThrough().emit(name(intf_), session_.name());
    cutThrough_ = true;
    return {};
  }
  cutThrough_ = false;
  return ports();
}

void VexSrcIntf::sync() {
  std::vector<Nexo::IntfId> wanted = wantedPorts();
  const std::set<Nexo::IntfId> wantedSet(wanted.begin(), wanted.end());
  for (const auto& port : std::set<Nexo::IntfId>(programmed_)) {
    if (wantedSet.count(port)) continue;
    // A member that left the source LAG goes by the chip's LAG path.
    const bool leftLag = intf_.isLag() && session_.sm().ocsd()->portToLag(port) != intf_;
    removePort(port, leftLag);
  }
  for (const auto& port : std::set<Nexo::IntfId>(failedPorts_)) {
    if (!wantedSet.count(port)) delFailedPort(port);
  }
  std::vector<Nexo::IntfId> needed;
  for (const auto& port : wanted) {
    if (!programmed_.count(port) && !failedPorts_.count(port)) needed.push_back(port);
  }
  if (needed.empty()) {
    // Nothing more to fit: a source that had overflowed has all it wants.
    if (overflowed_ && wanted.size() == programmed_.size() + failedPorts_.size()) overflowedIs(false);
    if (wanted.empty()) overflowedIs(false);
    return;
  }
  if (!checkOverflow(needed.size())) return;
  for (const auto& port : needed) {
    if (!programmed_.empty() && intf_.isLag()) {
      BLIP(mirroringTrace(), 5, "{} has been added to us, adding as a mirror source in session {}", name(port),
           session_.name());
    }
    if (!addPort(port)) addFailedPort(port);
  }
}

void VexSrcIntf::addOrRemoveSource(bool add) {
  BLIP(mirroringTrace(), 6, "{}",
       intf_.isLag() ? "I'm a LAG, carrying out operation for all members"
                     : "Not a LAG, doing operation for a single port");
  if (add) {
    sync();
    return;
  }
  for (const auto& port : std::set<Nexo::IntfId>(programmed_)) removePort(port, false);
  failedPorts_.clear();
}

bool VexSrcIntf::checkOverflow(std::size_t needed) {
  auto& sm = session_.sm();
  const std::uint32_t free =
      sm.platformHelper().freeMirrorSources(*sm.inputs().mirroringConfig, session_.name(), config_.direction);
  if (free >= needed) {
    if (overflowed_) overflowedIs(false);
    return true;
  }
  BLIP(mirroringTrace(), 3, "Source overflow: {} in session {} needs {} slots, {} free", name(intf_), session_.name(),
       needed, free);
  overflowedIs(true);
  return false;
}

void VexSrcIntf::overflowedIs(bool overflowed) {
  if (overflowed == overflowed_) return;
  overflowed_ = overflowed;
  session_.sm().sourceOverflowIs(*this, overflowed);
}

bool VexSrcIntf::addPort(const Nexo::IntfId& port) {
  auto& helper = session_.sm().platformHelper();
  const std::int32_t group = session_.mirrorGroup();
  if (!helper.addSourceToHardware(session_.name(), session_.id(), group, port, config_.direction)) {
    BLIP(mirroringTrace(), 2, "{} could not be added as source in session {}", name(port), session_.name());
    return false;
  }
  if (!config_.aclName.empty() && !applyAcl(port, config_.aclName)) {
    // Unfiltered copies are not what was asked for: the port stays out.
    helper.removeSourceFromHardware(session_.name(), session_.id(), group, port, config_.direction, false);
    return false;
  }
  programmed_.insert(port);
  BLIP(mirroringTrace(), 5, "{} added as source successfully", name(port));
  return true;
}

void VexSrcIntf::removePort(const Nexo::IntfId& port, bool lagMemberDeleted) {
  // A port named alone and through its LAG is one hardware source of the
  // session: it stays while another source still holds it, programmed as
  // that source wants it.
  if (VexSrcIntf* other = session_.sourceHolding(port, this)) {
    programmed_.erase(port);
    BLIP(mirroringTrace(), 5, "{} is still a source of session {} through {}", name(port), session_.name(),
         name(other->intf()));
    if (other->direction() != direction() || other->aclName() != aclName()) other->reprogramPort(port);
    return;
  }
  auto& helper = session_.sm().platformHelper();
  if (lagMemberDeleted) {
    BLIP(mirroringTrace(), 5, "Removing {} from session {} as it is no longer part of a LAG.", name(port),
         session_.name());
    helper.handleLagMemberDeletion(port, intf_, session_.name(), session_.id(), session_.mirrorGroup(),
                                   config_.direction);
  } else {
    helper.removeSourceFromHardware(session_.name(), session_.id(), session_.mirrorGroup(), port, config_.direction,
                                    false);
  }
  session_.aclAppliedInHw().erase(port);
  programmed_.erase(port);
}

void VexSrcIntf::reprogramPort(const Nexo::IntfId& port) {
  session_.sm().platformHelper().removeSourceFromHardware(session_.name(), session_.id(), session_.mirrorGroup(), port,
                                                          config_.direction, false);
  session_.aclAppliedInHw().erase(port);
  programmed_.erase(port);
  if (!addPort(port)) addFailedPort(port);
}

bool VexSrcIntf::applyAcl(const Nexo::IntfId& port, const std::string& aclName) {
  if (aclName.empty()) {
    BLIP(mirroringTrace(), 2, "Empty acl name");
    return false;
  }
  auto& sm = session_.sm();
  auto acl = sm.aclConfig(aclName);
  if (!acl) {
    BLIP(mirroringTrace(), 3, "{} acl {} not found in acl config for session {}", name(port), aclName, session_.name());
    return false;
  }
  if (!sm.platformHelper().addHwSrcAcl(session_.name(), session_.id(), session_.mirrorGroup(), port, aclName, acl,
                                       config_.aclPriority)) {
    sm.aclResourceFull();
    return false;
  }
  session_.aclAppliedInHw().insert(port);
  return true;
}

void VexSrcIntf::configIs(const Mirroring::SourceConfig& config) {
  if (config == config_) return;
  if (!programmed_.empty() || !failedPorts_.empty()) {
    if (config.direction != config_.direction) {
      BLIP(mirroringTrace(), 5, "{} direction {} has changed, removing and readding", name(intf_),
           Mirroring::directionName(config_.direction));
    }
    addOrRemoveSource(false);
  }
  config_ = config;
  sync();
  // The slots the old direction held may fit another source.
  session_.sm().reviewInvalidSources();
}

void VexSrcIntf::handleAcl() {
  if (!session_.sm().aclConfig(config_.aclName)) {
    sync();
    return;
  }
  // An edited list is filtered again on every port that holds it.
  for (const auto& port : std::set<Nexo::IntfId>(programmed_)) {
    if (applyAcl(port, config_.aclName)) continue;
    removePort(port, false);
    addFailedPort(port);
  }
  sync();
}

void VexSrcIntf::retryFailedPorts() {
  std::vector<Nexo::IntfId> wanted = wantedPorts();
  const std::set<Nexo::IntfId> wantedSet(wanted.begin(), wanted.end());
  for (const auto& port : std::set<Nexo::IntfId>(failedPorts_)) {
    if (!wantedSet.count(port) || addPort(port)) delFailedPort(port);
  }
  if (!failedPorts_.empty()) {
    BLIP(mirroringTrace(), 5, "{} Still has ports pending in failed port list", name(intf_));
    session_.sm().failedPortsPending();
  }
}

void VexSrcIntf::addFailedPort(const Nexo::IntfId& port) {
  failedPorts_.insert(port);
  session_.sm().failedPortsPending();
}

void VexSrcIntf::delFailedPort(const Nexo::IntfId& port) {
  if (failedPorts_.erase(port)) BLIP(mirroringTrace(), 5, "{} deleted from failed port list", name(port));
}

void VexSrcIntf::prepareToDie() {
  addOrRemoveSource(false);
  overflowedIs(false);
  aclMissing_ = cutThrough_ = false;
}

// --- VexTargetIntf ---

VexTargetIntf::VexTargetIntf(VexMirroringSession& session, const Nexo::IntfId& intf) : session_(session), intf_(intf) {}

std::vector<Nexo::IntfId> VexTargetIntf::ports() const {
  if (isGre()) return {};
  if (intf_.isLag()) return lagMembers(*session_.sm().ocsd(), intf_);
  return {intf_};
}

bool VexTargetIntf::overlapping() const {
  const std::set<Nexo::IntfId> sources = session_.sourcePorts();
  if (sources.count(intf_)) return true;
  for (const auto& port : ports()) {
    if (sources.count(port)) return true;
  }
  return false;
}

bool VexTargetIntf::usable() const {
  if (intf_.isEthernet() && session_.sm().ocsd()->inLag(intf_)) return false;
  return !overlapping();
}

std::string VexTargetIntf::state() const {
  if (intf_.isEthernet() && session_.sm().ocsd()->inLag(intf_)) return "lag member";
  if (overlapping()) return "overlapping";
  if (isGre()) {
    const auto& status = session_.sm().inputs().greTunnelStatusDir->tunnel(intf_);
    if (!status.resolved()) return "unresolved";
    return session_.createdInHw() && session_.destIntf() == intf_ ? fmt::format("tunnel id {}", status.tunnelId)
                                                                  : "inactive";
  }
  if (!session_.createdInHw()) return "inactive";
  if (!failedPorts_.empty()) return "failed";
  if (programmed_.empty()) return intf_.isLag() ? "no members" : "inactive";
  return "active";
}

void VexTargetIntf::sync() {
  std::vector<Nexo::IntfId> wanted;
  if (intf_.isEthernet() && session_.sm().ocsd()->inLag(intf_)) {
    BLIP(mirroringTrace(), 5, "{} is not added into the hardware since it is a lag member.", name(intf_));
  } else if (overlapping()) {
    BLIP(mirroringTrace(), 2, "Invalid Overlapping mtp Detected: {} in session {}", name(intf_), session_.name());
  } else if (session_.createdInHw()) {
    if (intf_.isLag()) BLIP(mirroringTrace(), 6, "{} is a LAG, carrying out operation for all members", name(intf_));
    wanted = ports();
  }
  auto& helper = session_.sm().platformHelper();
  const std::set<Nexo::IntfId> wantedSet(wanted.begin(), wanted.end());
  for (const auto& port : std::set<Nexo::IntfId>(programmed_)) {
    if (wantedSet.count(port)) continue;
    if (intf_.isLag()) {
      BLIP(mirroringTrace(), 5, "Removing {} as target, it is no longer part of LAG {}", name(port), name(intf_));
    }
    programmed_.erase(port);
    if (!session_.targetPortHeld(port, this)) {
      helper.addTargetToHardware(session_.name(), session_.id(), session_.mirrorGroup(), port, false);
    }
  }
  for (const auto& port : std::set<Nexo::IntfId>(failedPorts_)) {
    if (!wantedSet.count(port)) failedPorts_.erase(port);
  }
  for (const auto& port : wanted) {
    if (programmed_.count(port) || failedPorts_.count(port)) continue;
    if (intf_.isLag()) {
      BLIP(mirroringTrace(), 5, "{} has been added, adding as a mirror destination in session {}", name(port),
           session_.name());
    }
    if (helper.addTargetToHardware(session_.name(), session_.id(), session_.mirrorGroup(), port, true)) {
      programmed_.insert(port);
    } else {
      failedPorts_.insert(port);
      session_.sm().failedPortsPending();
    }
  }
}

void VexTargetIntf::addOrRemoveTarget(bool add) {
  if (add) {
    sync();
    return;
  }
  auto& helper = session_.sm().platformHelper();
  const std::set<Nexo::IntfId> held = std::exchange(programmed_, {});
  for (const auto& port : held) {
    if (session_.targetPortHeld(port, this)) continue;
    helper.addTargetToHardware(session_.name(), session_.id(), session_.mirrorGroup(), port, false);
  }
  failedPorts_.clear();
  // The GRE next hops' members go with the session itself.
  greLagMembers_.clear();
  lagsInGreNextHop_.clear();
  lagsInGreNextHopVerify_.clear();
}

void VexTargetIntf::retryFailedPorts() {
  auto& helper = session_.sm().platformHelper();
  for (const auto& port : std::set<Nexo::IntfId>(failedPorts_)) {
    if (!helper.addTargetToHardware(session_.name(), session_.id(), session_.mirrorGroup(), port, true)) continue;
    failedPorts_.erase(port);
    programmed_.insert(port);
    BLIP(mirroringTrace(), 5, "{} deleted from failed port list", name(port));
  }
  if (!failedPorts_.empty()) {
    BLIP(mirroringTrace(), 5, "{} Still has ports pending in failed port list", name(intf_));
    session_.sm().failedPortsPending();
  }
}

void VexTargetIntf::greNextHopsIs(const std::vector<Mirroring::GreNextHop>& nextHops) {
  nextHops_ = nextHops;
  auto& helper = session_.sm().platformHelper();
  std::map<Nexo::IntfId, Nexo::IntfId> l3OfLag;
  for (const auto& nextHop : nextHops) {
    if (nextHop.l2Intf.isLag()) l3OfLag.emplace(nextHop.l2Intf, nextHop.l3Intf);
  }
  lagsInGreNextHop_.clear();
  for (const auto& [lag, l3Intf] : l3OfLag) lagsInGreNextHop_.insert(lag);
  // Members of LAGs no longer behind a next hop, or no longer in their LAG.
  for (auto it = greLagMembers_.begin(); it != greLagMembers_.end();) {
    const auto& lag = it->first;
    std::vector<Nexo::IntfId> members =
        l3OfLag.count(lag) ? lagMembers(*session_.sm().ocsd(), lag) : std::vector<Nexo::IntfId>{};
    const std::set<Nexo::IntfId> current(members.begin(), members.end());
    for (const auto& port : std::set<Nexo::IntfId>(it->second)) {
      if (current.count(port)) continue;
      helper.handleLagMemberDeletion(port, lag, session_.name(), session_.id(), session_.mirrorGroup(),
                                     Mirroring::Direction::directionBoth);
      it->second.erase(port);
    }
    it = it->second.empty() ? greLagMembers_.erase(it) : std::next(it);
  }
  for (const auto& [lag, l3Intf] : l3OfLag) {
    for (const auto& port : lagMembers(*session_.sm().ocsd(), lag)) {
      if (greLagMembers_[lag].count(port)) continue;
      if (helper.addIntfToLagGreNextHop(session_.name(), session_.id(), session_.mirrorGroup(), port, l3Intf, lag)) {
        greLagMembers_[lag].insert(port);
      }
    }
  }
  lagsInGreNextHopVerify_ = lagsInGreNextHop_;
}

void VexTargetIntf::prepareToDie() { addOrRemoveTarget(false); }

}  // namespace Orb
