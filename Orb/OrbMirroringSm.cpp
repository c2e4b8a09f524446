// The mirroring root machine: start-up, the free hardware mirror-group
// queue, reconciliation with what the chip holds after a restart, the
// sessions by name, overflow bookkeeping and verification.
#include "Orb/OrbMirroringSm.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbMirroringLog.h"
#include "Orb/OrbMirroringTrace.h"
#include "platform/vex/Reactor.h"

#include <fmt/format.h>

namespace Orb {

void mirroringUnimplemented(const char* operation) {
  orbAssert(fmt::format("false && \"Function {}() must be implemented by derived class\"", operation));
}

// --- reactors ---

class MirroringSm::ConfigReactor : public Vex::Reactor<Mirroring::Config, MirroringSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Session, std::string, handleSession)
};

class MirroringSm::CapabilityReactor : public Vex::Reactor<Mirroring::HwCapability, MirroringSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(MaxSupportedSessions, handleMaxSupportedSessions)
  VEX_REACT(CutThroughMode, handleCutThroughMode)
};

class MirroringSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, MirroringSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(LagToPort, Nexo::IntfId, handleLagToPort)
  VEX_REACT_KEY(PortToLag, Nexo::IntfId, handlePortToLag)
};

class MirroringSm::TunnelReactor : public Vex::Reactor<Mirroring::GreTunnelStatusDir, MirroringSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Tunnel, Nexo::IntfId, handleTunnelIdOrNextHop)
};

// --- MirroringSm ---

MirroringSm::MirroringSm(const MirroringSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT(in_.mirroringConfig);
  ORB_ASSERT(in_.hwCapability);
  ORB_ASSERT(in_.mirroringStatus);
  if (!in_.greTunnelStatusDir) in_.greTunnelStatusDir = Vex::make<Mirroring::GreTunnelStatusDir>("greTunnelStatus");
  mirroringTrace();  // registered before anyone sets its level
  capabilityReactor_ = std::make_unique<CapabilityReactor>(this, in_.hwCapability);
  retryClock_ = Vex::clockFactory([this] { handleRetry(); });
  clockIs(retryClock_);
  if (auto verify = ocsd()->verifySm()) verify->verifiableIs(this);
  initializedIs(true);
}

MirroringSm::~MirroringSm() {
  vexDoZombieReactors(true);
  if (ocsd() && ocsd()->verifySm()) ocsd()->verifySm()->verifiableDel(this);
  // The chip keeps what it holds: a machine going is an agent stopping or
  // restarting, and a restarted machine reconciles with it.
  sessions_.clear();
  aclConfigs_.reset();
  configReactor_.reset();
  capabilityReactor_.reset();
  ocsdReactor_.reset();
  tunnelReactor_.reset();
  retryClock_->timeMinIs(Vex::never);
  clockDel(retryClock_);
}

OrbHelper::MirroringSmHelper& MirroringSm::platformHelper() const {
  ORB_ASSERT_AT("/src/Orb/OrbMirroringSm", in_.orbHelper, "platformHelper()");
  return *in_.orbHelper;
}

VexMirroringSession* MirroringSm::session(const std::string& name) const {
  auto it = sessions_.find(name);
  return it == sessions_.end() ? nullptr : it->second.get();
}

void MirroringSm::handleInitialized() { handleMaxSupportedSessions(); }

void MirroringSm::handleMaxSupportedSessions() {
  if (started_) return;
  const std::uint32_t sessions = in_.hwCapability->maxSupportedSessions();
  if (sessions == 0) {
    BLIP(mirroringTrace(), 3, "Mirroring is not supported (maxSupportedSessions=0).");
    return;
  }
  started_ = true;
  platformHelper().hwInit();
  aclConfigs_ =
      std::make_unique<MirAclTypeConfigs>(ocsd(), in_.aclConfig, [this](const std::string& name) { handleAcl(name); });
  fillFreeQueue(sessions);
  reconcileSessions();
  configReactor_ = std::make_unique<ConfigReactor>(this, in_.mirroringConfig);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, ocsd());
  tunnelReactor_ = std::make_unique<TunnelReactor>(this, in_.greTunnelStatusDir);
  for (const auto& [name, config] : in_.mirroringConfig->session()) handleSession(name);
}

void MirroringSm::fillFreeQueue(std::uint32_t sessions) {
  freeHwMirrorSession_.clear();
  const std::uint32_t groups = std::min<std::uint32_t>(sessions, 256);
  for (std::uint32_t group = 0; group < groups; ++group) freeHwMirrorSessionEnq(static_cast<std::uint8_t>(group));
  BLIP(mirroringTrace(), 5, "Number of free Mirror groups is {}", freeHwMirrorSession_.size());
  // Software ids come from the shared pool; 0 means none, so ids start at 1.
  if (ocsd()->freeMirrorSession().empty()) {
    for (std::uint32_t id = 1; id <= groups && id < 256; ++id)
      ocsd()->freeMirrorSessionEnq(static_cast<std::uint8_t>(id));
  }
  BLIP(mirroringTrace(), 5, "The number of free hw and sw mirror sessions are {} {}", freeHwMirrorSession_.size(),
       ocsd()->freeMirrorSession().size());
}

void MirroringSm::freeHwMirrorSessionEnq(std::uint8_t group) { freeHwMirrorSession_[nextFreeIndex_++] = group; }

std::int32_t MirroringSm::freeHwMirrorSessionDeq() {
  if (freeHwMirrorSession_.empty()) return VexMirroringSession::mirrorGroupInvalid();
  auto it = freeHwMirrorSession_.begin();
  std::int32_t group = it->second;
  freeHwMirrorSession_.erase(it);
  return group;
}

void MirroringSm::freeHwMirrorSessionDel(std::uint32_t index) { freeHwMirrorSession_.erase(index); }

void MirroringSm::groupFreed(std::int32_t group) {
  if (group == VexMirroringSession::mirrorGroupInvalid()) return;
  BLIP(mirroringTrace(), 5, "Adding mirror group {} to free list", group);
  freeHwMirrorSessionEnq(static_cast<std::uint8_t>(group));
  // A session that waited for a group takes it, in name order.
  for (auto& [name, session] : sessions_) {
    if (!session->valid()) {
      session->sync();
      if (freeHwMirrorSession_.empty()) break;
    }
  }
}

void MirroringSm::reconcileSessions() {
  std::vector<HwMirrorSession> held = platformHelper().hwSessions();
  for (const auto& found : held) {
    BLIP(mirroringTrace(), 5, "Before reconcile attempt, found session: {} group {}", found.name, found.group);
    // The group is taken again, wherever it sits in the queue.
    for (const auto& [index, group] : freeHwMirrorSession_) {
      if (group == found.group) {
        freeHwMirrorSessionDel(index);
        break;
      }
    }
    auto config = in_.mirroringConfig->session(found.name);
    if (!config) {
      BLIP(mirroringTrace(), 5, "Found outstanding mirror session {}", found.name);
      if (disableCleanupOnRestart_) {
        BLIP(mirroringTrace(), 5, "Cleanup disabled during restart, returning");
        continue;
      }
      std::vector<Nexo::IntfId> ports;
      for (const auto& [port, direction] : found.sources) ports.push_back(port);
      bool removed = found.isGre ? platformHelper().removeGreTunnelMirror(found.name, 0, found.group, found.destIntf)
                                 : platformHelper().removeMirror(found.name, 0, found.group, ports);
      if (removed) {
        BLIP(mirroringTrace(), 5, "remove: success");
      } else {
        BLIP(mirroringTrace(), 2, "Failed to remove mirror session from hw for {}", found.name);
      }
      freeHwMirrorSessionEnq(static_cast<std::uint8_t>(found.group));
      continue;
    }
    std::uint32_t id = ocsd()->freeMirrorSessionDeq();
    ocsd()->mirrorSessionNameToIdIs(found.name, id);
    auto session = std::make_unique<VexMirroringSession>(*this, config, id);
    session->reconcile(found);
    BLIP(mirroringTrace(), 5, "After reconcile attempt, found session: {} group {} createdInHw {}", found.name,
         session->mirrorGroup(), session->createdInHw());
    sessions_[found.name] = std::move(session);
  }
}

void MirroringSm::handleSession(const std::string& name) {
  auto config = in_.mirroringConfig->session(name);
  auto* existing = session(name);
  if (!config) {
    if (existing) destroySession(name);
    return;
  }
  if (existing && existing->config() != config) {
    destroySession(name);
    existing = nullptr;
  }
  if (!existing) {
    std::uint32_t id = ocsd()->freeMirrorSessionDeq();
    ocsd()->mirrorSessionNameToIdIs(name, id);
    existing = (sessions_[name] = std::make_unique<VexMirroringSession>(*this, config, id)).get();
  }
  existing->sync();
}

void MirroringSm::destroySession(const std::string& name) {
  auto it = sessions_.find(name);
  if (it == sessions_.end()) return;
  std::unique_ptr<VexMirroringSession> gone = std::move(it->second);
  sessions_.erase(it);
  std::int32_t group = gone->mirrorGroup();
  std::uint32_t id = gone->id();
  gone->prepareToDie();
  gone.reset();
  if (id) ocsd()->freeMirrorSessionEnq(static_cast<std::uint8_t>(id));
  ocsd()->mirrorSessionNameToIdDel(name);
  in_.mirroringStatus->sessionStatusDel(name);
  groupFreed(group);
  reviewInvalidSources();
}

void MirroringSm::handleLagToPort(const Nexo::IntfId& lag) {
  for (auto& [name, session] : sessions_) session->handleLag(lag);
  reviewInvalidSources();
}

void MirroringSm::handlePortToLag(const Nexo::IntfId& port) {
  // A port destination joining or leaving a LAG becomes unusable or usable.
  for (auto& [name, session] : sessions_) {
    if (session->targetIntf().count(port)) session->sync();
  }
}

void MirroringSm::handleTunnelIdOrNextHop(const Nexo::IntfId& tunnel) {
  for (auto& [name, session] : sessions_) session->handleTunnel(tunnel);
}

void MirroringSm::handleAcl(const std::string& aclName) {
  if (!started_) return;
  for (auto& [name, session] : sessions_) session->handleAcl(aclName);
}

void MirroringSm::handleCutThroughMode() {
  for (auto& [name, session] : sessions_) session->sync();
  reviewInvalidSources();
}

Vex::Ptr<const Acl::AclConfig> MirroringSm::aclConfig(const std::string& aclName) const {
  if (!in_.aclConfig) return nullptr;
  for (Acl::AclType type : {Acl::ip(), Acl::ipv6(), Acl::mac()}) {
    auto typeConfig = in_.aclConfig->aclTypeConfig(type);
    if (!typeConfig) continue;
    if (auto acl = typeConfig->acl(aclName)) return acl;
  }
  return nullptr;
}

// --- overflow ---

void MirroringSm::sourceOverflowIs(VexSrcIntf& src, bool overflowed) {
  if (overflowed) {
    ++sourcesOverflowed_;
  } else {
    ORB_ASSERT(sourcesOverflowed_ > 0);
    --sourcesOverflowed_;
  }
  in_.mirroringStatus->sourcesOverflowedIs(sourcesOverflowed_);
  if (overflowed && !overflowLogged_) {
    // Once per overflow, however many sources are left out.
    overflowLogged_ = true;
    auto& helper = platformHelper();
    MirroringLog::sourceResourcesFull().emit(src.intf().stringValue(), src.session().name(),
                                             static_cast<int>(helper.maxBiDirSources()),
                                             static_cast<int>(helper.maxUniDirSources()));
  }
}

void MirroringSm::reviewInvalidSources() {
  // A review retries sources, which may end in another review: one at a time.
  if (reviewing_) return;
  reviewing_ = true;
  std::uint32_t counted = 0;
  for (auto& [name, session] : sessions_) {
    bool changed = false;
    for (auto& [intf, src] : session->srcIntf()) {
      if (!src->overflowed()) continue;
      src->sync();
      changed = true;
      if (src->overflowed()) ++counted;
    }
    if (changed) publishStatus(*session);
  }
  if (counted != sourcesOverflowed_) {
    BLIP(mirroringTrace(), 1, "We miscounted number of sources that have overflowed: {} counted, {} kept", counted,
         sourcesOverflowed_);
  }
  if (sourcesOverflowed_ == 0 && overflowLogged_) {
    BLIP(mirroringTrace(), 3, "Clearing overflow");
    MirroringLog::sourceResourcesNormal().emit();
    overflowLogged_ = false;
    BLIP(mirroringTrace(), 3, "Normal mirroring has resumed.");
  }
  reviewing_ = false;
}

void MirroringSm::aclResourceFull() {
  if (aclFullLogged_) return;
  aclFullLogged_ = true;
  MirroringLog::aclHwResourceFull().emit();
}

// --- failed ports ---

void MirroringSm::failedPortsPending() {
  if (retryClock_->timeMin() == Vex::never) retryClock_->timeMinIs(Vex::now() + retryInterval_);
}

void MirroringSm::handleRetry() {
  retryClock_->timeMinIs(Vex::never);
  for (auto& [name, session] : sessions_) session->retryFailedPorts();
}

void MirroringSm::publishStatus(const VexMirroringSession& session) {
  in_.mirroringStatus->sessionStatusIs(session.name(), session.status());
}

// --- verification ---

void MirroringSm::handleVerify(VerifyReport& report) {
  std::uint32_t overflowed = 0;
  for (auto& [name, session] : sessions_) {
    session->verify(report);
    for (const auto& [intf, src] : session->srcIntf()) overflowed += src->overflowed();
  }
  if (overflowed != sourcesOverflowed_) {
    BLIP(mirroringTrace(), 1, "We miscounted number of sources that have overflowed");
    report.mismatch(fmt::format("We miscounted number of sources that have overflowed: {} found, {} counted",
                                overflowed, sourcesOverflowed_));
  }
}

Vex::Ptr<MirroringSm> mirroringSmFactory(const MirroringSmInputs& inputs) { return Vex::make<MirroringSm>(inputs); }

// --- mounting ---

MirroringMounter::MirroringMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                                   const Vex::Ptr<OrbHelper::MirroringSmHelper>& orbHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
}

void MirroringMounter::doMounts() {
  inputs_.mirroringConfig = hive_->mount<Mirroring::Config>(configPath, "mirroringConfig");
  inputs_.hwCapability = hive_->mount<Mirroring::HwCapability>(hwCapabilityPath, "hwCapability");
  inputs_.mirroringStatus = hive_->mount<Mirroring::HwStatus>(hwStatusPath, "mirroringStatus");
  inputs_.greTunnelStatusDir = hive_->mount<Mirroring::GreTunnelStatusDir>(greTunnelStatusPath, "greTunnelStatus");
  inputs_.aclConfig = hive_->mount<Acl::Config>(aclConfigPath, "aclConfig");
}

Vex::Ptr<MirroringSm> MirroringMounter::doMountsComplete() { return mirroringSmFactory(inputs_); }

}  // namespace Orb
