#include "Orb/OrbVlanPhyIntfSm.h"

#include "Orb/OrbTrace.h"

#include <fmt/format.h>

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbVlanPhyIntfSm");
  return handle;
}

}  // namespace

// --- flood-set expansion ---

FloodsetExpandedVlanPhyIntfSm::FloodsetExpandedVlanPhyIntfSm(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                                             const Vex::Ptr<VlanHelper>& vlanHelper, VlanId vlanId,
                                                             VlanId expVlanId,
                                                             const Vex::Ptr<VlanPhyIntfStatus>& vlanPhyIntfStatus,
                                                             const Vex::Ptr<VlanPhyIntfStatus>& expVlanPhyIntfStatus)
    : OrbBaseSm(ocsd),
      vlanHelper_(vlanHelper),
      vlanId_(vlanId),
      expVlanId_(expVlanId),
      expVlanPhyIntfStatus_(expVlanPhyIntfStatus) {
  reactor_.notifierIs(vlanPhyIntfStatus);
  initializedIs(true);
}

FloodsetExpandedVlanPhyIntfSm::~FloodsetExpandedVlanPhyIntfSm() {
  vexDoZombieReactors(true);
  reactor_.notifierIs(nullptr);
}

void FloodsetExpandedVlanPhyIntfSm::vlanPhyIntfStatusIs(const Vex::Ptr<VlanPhyIntfStatus>& status) {
  if (status == vlanPhyIntfStatus()) return;
  reactor_.notifierIs(status);
  handleInitialized();
}

void FloodsetExpandedVlanPhyIntfSm::handleInitialized() {
  if (!vlanPhyIntfStatus()) return;
  for (const auto& [intf, entry] : vlanPhyIntfStatus()->intf()) handleIntf(intf);
}

void FloodsetExpandedVlanPhyIntfSm::handleIntf(const IntfId& intf) {
  if (Nexo::SubIntfId::isSubIntfId(intf)) {
    orbAssert("FloodsetExpandedVlanPhyIntfSm::handleIntf - not expecting subIntf: " + intf.stringValue());
  }
  if (expVlanPhyIntfStatus_ && expVlanPhyIntfStatus_->intfHas(intf)) {
    BLIP(trace(), 7, "{} vlan {}: Vlan Phy status present. Ignoring...", intf.stringValue(), expVlanId_.value());
    return;
  }
  if (!ocsd()->intfHas(intf) && !ocsd()->cpuIntfHas(intf)) {
    BLIP(trace(), 5, "Unknown intf: {}", intf.stringValue());
    return;
  }
  const auto& base = vlanPhyIntfStatus();
  if (base && base->intfHas(intf)) {
    const auto& entry = base->intf(intf);
    vlanHelper_->doAddPortToVlan(intf, expVlanId_, entry.tagged, entry.ingress, entry.egress);
    added_.insert(intf);
  } else {
    vlanHelper_->doRemovePortFromVlan(intf, expVlanId_);
    added_.erase(intf);
  }
}

void FloodsetExpandedVlanPhyIntfSm::doCleanup() {
  ORB_ASSERT(vlanPhyIntfStatus());
  for (const auto& intf : added_) {
    // A port the expanded VLAN lists itself stays, under its own entry.
    if (expVlanPhyIntfStatus_ && expVlanPhyIntfStatus_->intfHas(intf)) continue;
    vlanHelper_->doRemovePortFromVlan(intf, expVlanId_);
  }
  added_.clear();
}

// --- reactors of VlanPhyIntfSm ---

// One per VLAN status.
class VlanPhyIntfSm::VexStatus : public Vex::Reactor<VlanPhyIntfStatus, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  void handleIntf(const IntfId& intf) override {
    react([&] { owner()->handleIntf(notifier()->vlanId(), intf); });
  }
};

// One per dynamically expanded VLAN.
class VlanPhyIntfSm::VexDynamicVlanToExpVlan : public Vex::Reactor<VlanToExpVlanList, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  void handleExpVlan(const VlanId& expVlanId) override {
    react([&] {
      VlanId vlanId = notifier()->vlanId();
      if (notifier()->expVlan(expVlanId)) {
        owner()->handleVlanToExpVlanMap(vlanId, expVlanId, true);
      } else {
        owner()->handleVlanToExpVlanUnMap(vlanId, expVlanId, true);
      }
    });
  }
};

class VlanPhyIntfSm::DirReactor : public Vex::Reactor<VlanPhyIntfStatusDir, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(VlanPhyIntfStatus, VlanId, handleVlanConfig)
};

class VlanPhyIntfSm::ConfigReactor : public Vex::Reactor<Bridging::Config, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(VidToFidMap, VlanId, handleVidToFidMap)
  void handleStaticExpVlan(const Bridging::VlanExpansion& expansion) override {
    react([&] {
      if (notifier()->staticExpVlan(expansion)) {
        owner()->handleVlanToExpVlanMap(expansion.vlanId, expansion.expVlanId, false);
      } else {
        owner()->handleVlanToExpVlanUnMap(expansion.vlanId, expansion.expVlanId, false);
      }
    });
  }
};

// The interfaces this agent manages, which may become known after a VLAN
// lists them.
class VlanPhyIntfSm::IntfReactor : public Vex::Reactor<OrbCommonSmData, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  void handleIntf(const IntfId& intf) override { handle(intf); }
  void handleCpuIntf(const IntfId& intf) override { handle(intf); }

 private:
  void handle(const IntfId& intf) {
    react([&] {
      if (owner()->knownIntf(intf)) owner()->handleKnownIntf(intf);
    });
  }
};

class VlanPhyIntfSm::DynamicDirReactor : public Vex::Reactor<DynamicExpVlanDir, VlanPhyIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(VlanToExpVlanList, VlanId, dynamicListIs)
};

// --- VlanPhyIntfSm ---

VlanPhyIntfSm::VlanPhyIntfSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VlanHelper>& vlanHelper,
                             const Vex::Ptr<Bridging::Config>& bridgingConfig,
                             const Vex::Ptr<VlanPhyIntfStatusDir>& vlanPhyIntfStatusDir,
                             const Vex::Ptr<DynamicExpVlanDir>& dynamicExpVlanDir)
    : OrbBaseSm(ocsd),
      vlanHelper_(vlanHelper),
      bridgingConfig_(bridgingConfig),
      vlanPhyIntfStatusDir_(vlanPhyIntfStatusDir),
      dynamicExpVlanDir_(dynamicExpVlanDir),
      verifyData_(ocsd->verifyData()) {
  dirReactor_ = std::make_unique<DirReactor>(this, vlanPhyIntfStatusDir_);
  if (bridgingConfig_) configReactor_ = std::make_unique<ConfigReactor>(this, bridgingConfig_);
  if (dynamicExpVlanDir_) dynamicDirReactor_ = std::make_unique<DynamicDirReactor>(this, dynamicExpVlanDir_);
  intfReactor_ = std::make_unique<IntfReactor>(this, ocsd);
  if (auto verify = ocsd->verifySm()) verify->verifiableIs(this);
  initializedIs(true);
}

VlanPhyIntfSm::~VlanPhyIntfSm() {
  vexDoZombieReactors(true);
  if (ocsd() && ocsd()->verifySm()) ocsd()->verifySm()->verifiableDel(this);
  expVlanDir_.clear();
  vexStatus_.clear();
  vexDynamic_.clear();
  dirReactor_.reset();
  configReactor_.reset();
  dynamicDirReactor_.reset();
  intfReactor_.reset();
}

void VlanPhyIntfSm::handleInitialized() {
  for (const auto& [vlanId, status] : vlanPhyIntfStatusDir_->vlanPhyIntfStatus()) handleVlanConfig(vlanId);
  if (bridgingConfig_) {
    handleVidToFidMapAll();
    for (const auto& expansion : bridgingConfig_->staticExpVlan()) {
      handleVlanToExpVlanMap(expansion.vlanId, expansion.expVlanId, false);
    }
  }
  if (dynamicExpVlanDir_) {
    for (const auto& [vlanId, list] : dynamicExpVlanDir_->vlanToExpVlanList()) dynamicListIs(vlanId);
  }
}

bool VlanPhyIntfSm::knownIntf(const IntfId& intf) const { return ocsd()->intfHas(intf) || ocsd()->cpuIntfHas(intf); }

void VlanPhyIntfSm::handleVlanConfig(VlanId vlanId) {
  auto status = vlanPhyIntfStatusDir_->vlanPhyIntfStatus(vlanId);
  if (status) {
    auto& reactor = vexStatus_[vlanId];
    if (!reactor || reactor->notifier() != status) reactor = std::make_unique<VexStatus>(this, status);
    // Flood-set machines of VLANs expanded into this one now defer to it.
    for (VlanId base : reExpVlanDir_[vlanId].reExpVlan) {
      auto& machine = expVlanDir_[base].floodsetExpVlanPhyIntfSmCol[vlanId];
      if (machine) machine->expVlanPhyIntfStatusIs(status);
    }
    handleIntf(vlanId);
    restoreExpansions(vlanId);
    return;
  }
  handleVlanStatusGone(vlanId);
}

void VlanPhyIntfSm::handleVlanStatusGone(VlanId vlanId) {
  BLIP(trace(), 5, "vlan {} going away.", vlanId.value());
  vexStatus_.erase(vlanId);
  removeExpansions(vlanId);
  // VLANs expanded into this one keep their ports in its flood set.
  std::vector<FloodsetExpandedVlanPhyIntfSm*> floodsets;
  auto reverse = reExpVlanDir_.find(vlanId);
  if (reverse != reExpVlanDir_.end()) {
    for (VlanId base : reverse->second.reExpVlan) {
      auto& machine = expVlanDir_[base].floodsetExpVlanPhyIntfSmCol[vlanId];
      if (!machine) continue;
      machine->expVlanPhyIntfStatusIs(nullptr);
      floodsets.push_back(machine.get());
    }
  }
  // Its own members leave the VLAN with it.
  if (auto cache = vlanHelper_->vlanCache(vlanId)) {
    std::vector<IntfId> ports;
    for (const auto& [intf, tagged] : cache->add()) {
      if (!floodsetProviding(vlanId, intf)) ports.push_back(intf);
    }
    for (const auto& intf : ports) vlanHelper_->doRemovePortFromVlan(intf, vlanId);
  }
  for (auto* machine : floodsets) machine->handleInitialized();
}

void VlanPhyIntfSm::restoreExpansions(VlanId vlanId) {
  if (bridgingConfig_) {
    for (const auto& expansion : bridgingConfig_->staticExpVlan()) {
      if (expansion.vlanId == vlanId) handleVlanToExpVlanMap(vlanId, expansion.expVlanId, false);
    }
  }
  if (dynamicExpVlanDir_ && dynamicExpVlanDir_->vlanToExpVlanList(vlanId)) dynamicListIs(vlanId);
}

FloodsetExpandedVlanPhyIntfSm* VlanPhyIntfSm::floodsetProviding(VlanId vlanId, const IntfId& intf) const {
  auto reverse = reExpVlanDir_.find(vlanId);
  if (reverse == reExpVlanDir_.end()) return nullptr;
  for (VlanId base : reverse->second.reExpVlan) {
    auto dir = expVlanDir_.find(base);
    if (dir == expVlanDir_.end()) continue;
    auto machine = dir->second.floodsetExpVlanPhyIntfSmCol.find(vlanId);
    if (machine == dir->second.floodsetExpVlanPhyIntfSmCol.end()) continue;
    const auto& status = machine->second->vlanPhyIntfStatus();
    if (status && status->intfHas(intf)) return machine->second.get();
  }
  return nullptr;
}

void VlanPhyIntfSm::handleKnownIntf(const IntfId& intf) {
  for (const auto& [vlanId, status] : vlanPhyIntfStatusDir_->vlanPhyIntfStatus()) {
    if (status->intfHas(intf)) handleIntf(vlanId, intf);
  }
  for (auto& [vlanId, dir] : expVlanDir_) {
    for (auto& [expVlanId, machine] : dir.floodsetExpVlanPhyIntfSmCol) {
      const auto& status = machine->vlanPhyIntfStatus();
      if (status && status->intfHas(intf)) machine->handleIntf(intf);
    }
  }
}

void VlanPhyIntfSm::removeExpansions(VlanId vlanId) {
  auto dir = expVlanDir_.find(vlanId);
  if (dir == expVlanDir_.end()) return;
  BLIP(trace(), 5, "Deleting all expanded vlan SMs...");
  for (VlanId expVlanId : dir->second.expVlan) {
    reExpVlanDir_[expVlanId].reExpVlan.erase(vlanId);
    staticMaps_.erase({vlanId, expVlanId});
    dynamicMaps_.erase({vlanId, expVlanId});
  }
  for (auto& [expVlanId, machine] : dir->second.floodsetExpVlanPhyIntfSmCol) {
    if (machine->vlanPhyIntfStatus()) machine->doCleanup();
  }
  expVlanDir_.erase(dir);
}

void VlanPhyIntfSm::handleIntf(VlanId vlanId, const IntfId& intf) {
  if (Nexo::SubIntfId::isSubIntfId(intf)) {
    orbAssert("VlanPhyIntfSm::VexStatus:: - not expecting subIntf: " + intf.stringValue());
  }
  auto status = vlanPhyIntfStatusDir_->vlanPhyIntfStatus(vlanId);
  bool listed = status && status->intfHas(intf);
  if (!knownIntf(intf)) {
    BLIP(trace(), 5, "Unknown intf: {} {} vlan {}", intf.stringValue(), listed ? "added to " : "removed from",
         vlanId.value());
    return;
  }
  if (listed) {
    const auto& entry = status->intf(intf);
    vlanHelper_->doAddPortToVlan(intf, vlanId, entry.tagged, entry.ingress, entry.egress);
  } else if (auto* floodset = floodsetProviding(vlanId, intf)) {
    // No longer a member of its own, but still in the flood set of a VLAN
    // expanded into this one.
    floodset->handleIntf(intf);
  } else {
    vlanHelper_->doRemovePortFromVlan(intf, vlanId);
  }
}

void VlanPhyIntfSm::handleIntf(VlanId vlanId) {
  std::set<IntfId> ports;
  if (auto status = vlanPhyIntfStatusDir_->vlanPhyIntfStatus(vlanId)) {
    for (const auto& [intf, entry] : status->intf()) ports.insert(intf);
  }
  if (auto cache = vlanHelper_->vlanCache(vlanId)) {
    for (const auto& [intf, tagged] : cache->add()) ports.insert(intf);
  }
  for (const auto& intf : ports) handleIntf(vlanId, intf);
}

void VlanPhyIntfSm::handleVidToFidMap(VlanId vlanId) {
  if (!bridgingConfig_->vidToFidMapHas(vlanId)) return;
  vlanHelper_->doUpdateVlanFid(vlanId, bridgingConfig_->vidToFidMap(vlanId));
}

void VlanPhyIntfSm::handleVidToFidMapAll() {
  for (const auto& [vlanId, fid] : bridgingConfig_->vidToFidMap()) handleVidToFidMap(vlanId);
}

void VlanPhyIntfSm::dynamicListIs(VlanId vlanId) {
  auto list = dynamicExpVlanDir_->vlanToExpVlanList(vlanId);
  std::set<VlanId> wanted;
  if (list) {
    auto& reactor = vexDynamic_[vlanId];
    if (!reactor || reactor->notifier() != list) reactor = std::make_unique<VexDynamicVlanToExpVlan>(this, list);
    wanted.insert(list->expVlan().begin(), list->expVlan().end());
  } else {
    vexDynamic_.erase(vlanId);
  }
  std::vector<VlanId> stale;
  for (const auto& [base, exp] : dynamicMaps_) {
    if (base == vlanId && !wanted.count(exp)) stale.push_back(exp);
  }
  for (VlanId exp : stale) handleVlanToExpVlanUnMap(vlanId, exp, true);
  for (VlanId exp : wanted) handleVlanToExpVlanMap(vlanId, exp, true);
}

void VlanPhyIntfSm::handleVlanToExpVlanMap(VlanId vlanId, VlanId expVlanId, bool dynamic) {
  (dynamic ? dynamicMaps_ : staticMaps_).insert({vlanId, expVlanId});
  auto& dir = expVlanDir_[vlanId];
  dir.expVlan.insert(expVlanId);
  reExpVlanDir_[expVlanId].reExpVlan.insert(vlanId);
  currentConfExpVlanId_[vlanId] = expVlanId;
  auto& machine = dir.floodsetExpVlanPhyIntfSmCol[expVlanId];
  if (machine) {
    machine->vlanPhyIntfStatusIs(vlanPhyIntfStatusDir_->vlanPhyIntfStatus(vlanId));
    return;
  }
  BLIP(trace(), 5, "VlanPhyIntfSm: creating floodsetExpIntfSm for vlan {} expVlan {}", vlanId.value(),
       expVlanId.value());
  machine = Vex::make<FloodsetExpandedVlanPhyIntfSm>(ocsd(), vlanHelper_, vlanId, expVlanId,
                                                     vlanPhyIntfStatusDir_->vlanPhyIntfStatus(vlanId),
                                                     vlanPhyIntfStatusDir_->vlanPhyIntfStatus(expVlanId));
}

void VlanPhyIntfSm::handleVlanToExpVlanUnMap(VlanId vlanId, VlanId expVlanId, bool dynamic) {
  std::pair<VlanId, VlanId> pair{vlanId, expVlanId};
  (dynamic ? dynamicMaps_ : staticMaps_).erase(pair);
  if ((dynamic ? staticMaps_ : dynamicMaps_).count(pair)) {
    BLIP(trace(), 5, "vlan {} expVlan {}{}", vlanId.value(), expVlanId.value(),
         dynamic ? ": Not removing mapping as static mapping exist."
                 : ": Not removing mapping as dynamic mapping exist.");
    return;
  }
  auto dir = expVlanDir_.find(vlanId);
  if (dir == expVlanDir_.end() || !dir->second.expVlan.count(expVlanId)) {
    BLIP(trace(), 5, "could not find vlanId in expVlanDir {}", vlanId.value());
  } else {
    dir->second.expVlan.erase(expVlanId);
    auto machine = dir->second.floodsetExpVlanPhyIntfSmCol.find(expVlanId);
    if (machine != dir->second.floodsetExpVlanPhyIntfSmCol.end()) {
      if (machine->second->vlanPhyIntfStatus()) machine->second->doCleanup();
      dir->second.floodsetExpVlanPhyIntfSmCol.erase(machine);
    }
    if (dir->second.expVlan.empty()) expVlanDir_.erase(dir);
  }
  auto reverse = reExpVlanDir_.find(expVlanId);
  if (reverse == reExpVlanDir_.end() || !reverse->second.reExpVlan.count(vlanId)) {
    BLIP(trace(), 5, "could not find vlanId in reExpVlanDir {}", expVlanId.value());
  } else {
    reverse->second.reExpVlan.erase(vlanId);
    if (reverse->second.reExpVlan.empty()) reExpVlanDir_.erase(reverse);
  }
}

void VlanPhyIntfSm::handleVerify(VerifyReport& report) {
  for (const auto& [vlanId, status] : vlanPhyIntfStatusDir_->vlanPhyIntfStatus()) {
    for (const auto& [intf, entry] : status->intf()) {
      if (!knownIntf(intf)) continue;
      auto pvm = vlanHelper_->portVlanMembership(intf);
      ORB_ASSERT_AT("/src/Orb/OrbVlanPhyIntfSm", !!pvm, "!!pvm");
      if (entry.tagged && !pvm->taggedVlan(vlanId)) {
        report.mismatch(
            fmt::format("Port {}, not in tagged VlanId:{} when expected", intf.stringValue(), vlanId.value()));
      } else if (!entry.tagged && !pvm->untaggedVlan(vlanId)) {
        report.mismatch(
            fmt::format("Port {}, not in untagged VlanId:{} when expected", intf.stringValue(), vlanId.value()));
      }
    }
  }
}

Vex::Ptr<VlanPhyIntfSm> vlanPhyIntfSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                             const Vex::Ptr<VlanHelper>& vlanHelper,
                                             const Vex::Ptr<Bridging::Config>& bridgingConfig,
                                             const Vex::Ptr<VlanPhyIntfStatusDir>& vlanPhyIntfStatusDir,
                                             const Vex::Ptr<DynamicExpVlanDir>& dynamicExpVlanDir) {
  return Vex::make<VlanPhyIntfSm>(ocsd, vlanHelper, bridgingConfig, vlanPhyIntfStatusDir, dynamicExpVlanDir);
}

}  // namespace Orb
