#include "Orb/OrbVlanHelper.h"

#include "Orb/OrbTrace.h"
#include "platform/vex/TimeSlice.h"

#include <fmt/format.h>

#include <algorithm>

namespace Orb {

namespace {

constexpr const char* vlanSource = "/src/Orb/OrbVlanHelper";

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbVlanHelper");
  return handle;
}

// "Ethernet1:true Ethernet2:false" for traces.
template <class Map>
std::string portsText(const Map& ports) {
  std::string text;
  for (const auto& [intf, flag] : ports) text += fmt::format(" {}:{}", intf.stringValue(), flag);
  return text;
}

}  // namespace

PortVlanMembership::PortVlanMembership(const IntfId& intf) : Entity(intf.stringValue()), intf_(intf) {}

Vex::Ptr<PortVlanMembership> portVlanMembershipFactory(const IntfId& intf) {
  return Vex::make<PortVlanMembership>(intf);
}

// The base answers nothing: a chip layer must derive from VlanHelper.
Vex::Ptr<PortVlanMembership> VlanHelperBase::getPortVlanMembership(const IntfId&) {
  return unimplementedOperation("\n      VlanHelperBase", "getPortVlanMemberShip");
}
std::size_t VlanHelperBase::vlanUpdateSize() const { return unimplementedOperation("VlanHelperBase", "vlanUpdateLen"); }
void VlanHelperBase::doMaybeCreateVlan(VlanId) { unimplementedOperation("VlanHelperBase", "doMaybeCreateVlan"); }
void VlanHelperBase::doUpdateVlanFid(VlanId, Bridging::Fid) { unimplementedOperation("VlanHelper", "doUpdateVlanFid"); }
void VlanHelperBase::doAddPortToVlan(const IntfId&, VlanId, bool, bool, bool) {
  unimplementedOperation("VlanHelper", "doAddPortToVlan");
}
void VlanHelperBase::doRemovePortFromVlan(const IntfId&, VlanId) {
  unimplementedOperation("VlanHelper", "doRemovePortFromVlan");
}
void VlanHelperBase::verify() { unimplementedOperation("VlanHelperBase", "verify"); }

VlanUpdate::VlanUpdate(VlanId vlanId) : vlanId_(vlanId) {}

Vex::Ptr<VlanUpdate> vlanUpdateFactory(VlanId vlanId) { return Vex::make<VlanUpdate>(vlanId); }

void VlanUpdate::copy(VlanUpdate* dst) const {
  ORB_ASSERT(dst->vlanId() == vlanId());
  dst->genIdIs(genId());
  auto copyCollection = [](const auto& from, auto& to, auto set, auto del) {
    std::vector<IntfId> stale;
    for (const auto& [intf, flag] : to) {
      if (!from.contains(intf)) stale.push_back(intf);
    }
    for (const auto& intf : stale) del(intf);
    for (const auto& [intf, flag] : from) set(intf, flag);
  };
  copyCollection(
      add(), dst->add(), [dst](const IntfId& i, bool f) { dst->addIs(i, f); },
      [dst](const IntfId& i) { dst->addDel(i); });
  copyCollection(
      ingress(), dst->ingress(), [dst](const IntfId& i, bool f) { dst->ingressIs(i, f); },
      [dst](const IntfId& i) { dst->ingressDel(i); });
  copyCollection(
      egress(), dst->egress(), [dst](const IntfId& i, bool f) { dst->egressIs(i, f); },
      [dst](const IntfId& i) { dst->egressDel(i); });
  copyCollection(
      remove(), dst->remove(), [dst](const IntfId& i, bool f) { dst->removeIs(i, f); },
      [dst](const IntfId& i) { dst->removeDel(i); });
}

VlanCache::VlanCache(VlanId vlanId) : vlanId_(vlanId) {}
Vex::Ptr<VlanCache> vlanCacheFactory(VlanId vlanId) { return Vex::make<VlanCache>(vlanId); }

PortForwarding::PortForwarding(VlanId vlanId) : vlanId_(vlanId) {}
Vex::Ptr<PortForwarding> portForwardingFactory(VlanId vlanId) { return Vex::make<PortForwarding>(vlanId); }

VlanHwUpdateStatus::Status::Status(VlanId vlanId) : vlanId_(vlanId) {}

// --- the updater ---

VlanUpdater::VlanUpdater(const Vex::Ptr<Vex::Clock>& clock, VlanHelper* helper)
    : clock_(clock), helper_(helper), state_(Vex::make<VlanUpdaterState>()) {
  notifierIs(state_);
  initialized_ = true;
}

VlanUpdater::~VlanUpdater() { clock_->timeMinIs(Vex::never); }

void VlanUpdater::wake() {
  state_->idleIs(false);
  woken_ = true;
  if (clock_->timeMin() == Vex::never) clock_->timeMinIs(Vex::now());
}

void VlanUpdater::handleIdle() {
  if (!state_->idle() && clock_->timeMin() == Vex::never) clock_->timeMinIs(Vex::now());
}

void VlanUpdater::handleTimeout() {
  Vex::Seconds start = Vex::now();
  // Without yielding, a walk runs to its end.
  Vex::TimeSlice slice("vlan updates", helper_->yieldVlanProcessing() ? helper_->vlanProcessingTime() : Vex::never);
  auto& updates = helper_->vlanUpdate();
  // A walk from the first VLAN covers every change made before it began.
  if (!bookmark_) woken_ = false;
  auto it = bookmark_ ? updates.lower_bound(*bookmark_) : updates.begin();
  bookmark_.reset();
  while (it != updates.end()) {
    VlanId vlanId = it->first;
    helper_->doMaybeCreateVlan(vlanId);
    helper_->maybeTriggerHwVlanUpdate(vlanId);
    // The update may have completed and gone meanwhile.
    it = updates.upper_bound(vlanId);
    slice.itemDone();
    if (helper_->yieldVlanProcessing() && Vex::now() - start > helper_->vlanProcessingTime() && it != updates.end()) {
      bookmark_ = it->first;
      clock_->timeMinIs(Vex::now() + deferredTime_);
      state_->idleIs(false);
      return;
    }
  }
  // A VLAN that changed behind the walk (below its bookmark) gets a new walk.
  if (woken_) clock_->timeMinIs(Vex::now());
}

// --- the helper ---

VlanHelper::VlanHelper(const std::string& name) : VlanHelperBase(name) { handleInitialized(); }

VlanHelper::~VlanHelper() { vlanUpdater_.reset(); }

void VlanHelper::handleInitialized() {
  updateConfig_ = Vex::make<VlanHwUpdateConfig>("VlanHwUpdateConfig");
  updateStatus_ = Vex::make<VlanHwUpdateStatus>("VlanHwUpdateStatus");
  lastCompletedUpdateStatus_ = Vex::make<VlanHwUpdateStatus>("LastCompletedVlanHwUpdateStatus");
  vlanUpdater_ = std::make_unique<VlanUpdater>(Vex::clockFactory([this] { vlanUpdater_->handleTimeout(); }), this);
  initialized_ = true;
  BLIP(trace(), 1, "VlanHelper enabled");
}

Vex::Ptr<VlanUpdate> VlanHelper::vlanUpdate(VlanId vlanId) const {
  auto found = vlanUpdate_.find(vlanId);
  return found ? *found : nullptr;
}

Vex::Ptr<VlanCache> VlanHelper::vlanCache(VlanId vlanId) const {
  auto found = vlanCache_.find(vlanId);
  return found ? *found : nullptr;
}

Vex::Ptr<VlanCache> VlanHelper::vlanCacheIs(VlanId vlanId) {
  auto& cache = vlanCache_[vlanId];
  if (!cache) cache = vlanCacheFactory(vlanId);
  return cache;
}

Vex::Ptr<PortForwarding> VlanHelper::portForwarding(VlanId vlanId) const {
  auto found = portForwarding_.find(vlanId);
  return found ? *found : nullptr;
}

Vex::Ptr<PortVlanMembership> VlanHelper::getPortVlanMembership(const IntfId& intf) {
  if (auto existing = portVlanMembership(intf)) return existing;
  auto created = portVlanMembershipFactory(intf);
  portVlanMembershipIs(intf, created);
  return created;
}

// Every change of a VLAN's pending update goes through here, so that the
// pending generation always exceeds the one hardware last acknowledged.
Vex::Ptr<VlanUpdate> VlanHelper::bumpUpdate(VlanId vlanId) {
  auto& update = vlanUpdate_[vlanId];
  if (!update) update = vlanUpdateFactory(vlanId);
  if (update->genId() != 0) {
    update->genIdInc();
  } else {
    // A fresh update starts above the last acknowledgement, the completed
    // ones included: generations of a VLAN only ever grow, so whoever waits
    // for one (spanning tree) never mistakes an old completion for it.
    auto acked = updateStatus_->hwStatus(vlanId);
    auto completed = lastCompletedUpdateStatus_->hwStatus(vlanId);
    update->genIdIs(std::max(acked ? acked->genId() : 0, completed ? completed->genId() : 0) + 1);
  }
  vlanUpdater_->wake();
  return update;
}

void VlanHelper::doAddPortToVlan(const IntfId& intf, VlanId vlanId, bool tagged, bool ingress, bool egress) {
  BLIP(trace(), 5, "doAddPortToVlan {} vlan {} tagged:{} ingress:{} egress:{}", intf.stringValue(), vlanId.value(),
       tagged, ingress, egress);
  getPortVlanMembership(intf);
  auto cache = vlanCacheIs(vlanId);
  cache->addIs(intf, tagged);
  cache->ingressIs(intf, ingress);
  cache->egressIs(intf, egress);
  if (checkPortState_) {
    auto forwarding = portForwarding(vlanId);
    if (!forwarding || !forwarding->forwarding(intf)) {
      BLIP(trace(), 5, "Not Adding because of port state {} vlan {}", intf.stringValue(), vlanId.value());
      return;
    }
  }
  auto update = bumpUpdate(vlanId);
  update->removeDel(intf);
  update->addIs(intf, tagged);
  update->ingressIs(intf, ingress);
  update->egressIs(intf, egress);
  BLIP(trace(), 7, "vlan {} genId {} removes:{} ingress: {} egress:{}", vlanId.value(), update->genId(),
       portsText(update->remove()), portsText(update->ingress()), portsText(update->egress()));
}

void VlanHelper::doRemovePortFromVlan(const IntfId& intf, VlanId vlanId) {
  auto cache = vlanCacheIs(vlanId);
  if (cache->recircFeature(intf)) {
    BLIP(trace(), 5, "{} configured for recirc feature. Skipping remove.", intf.stringValue());
    return;
  }
  cache->addDel(intf);
  cache->ingressDel(intf);
  cache->egressDel(intf);
  auto update = bumpUpdate(vlanId);
  update->addDel(intf);
  update->ingressDel(intf);
  update->egressDel(intf);
  update->removeIs(intf, true);
}

void VlanHelper::recircFeaturePortIs(const IntfId& intf, VlanId vlanId, bool used) {
  auto cache = vlanCacheIs(vlanId);
  if (used) {
    cache->recircFeatureIs(intf, true);
  } else {
    cache->recircFeatureDel(intf);
  }
}

std::uint64_t VlanHelper::doHandlePortState(const IntfId& intf, VlanId vlanId, bool forwarding) {
  auto& record = portForwarding_[vlanId];
  if (!record) record = portForwardingFactory(vlanId);
  record->forwardingIs(intf, forwarding);
  BLIP(trace(), 5, "{} vlan {} forwarding:{}", intf.stringValue(), vlanId.value(), forwarding);
  auto cache = vlanCache(vlanId);
  if (forwarding) {
    if (!cache || !cache->addHas(intf)) return 0;
    BLIP(trace(), 5, "{} vlan {} SchedulingAdd", intf.stringValue(), vlanId.value());
    auto update = bumpUpdate(vlanId);
    update->removeDel(intf);
    update->addIs(intf, cache->add(intf));
    update->ingressIs(intf, cache->ingress(intf));
    update->egressIs(intf, cache->egress(intf));
    return update->genId();
  }
  auto update = bumpUpdate(vlanId);
  update->addDel(intf);
  update->ingressDel(intf);
  update->egressDel(intf);
  update->removeIs(intf, true);
  return update->genId();
}

void VlanHelper::setPortsBlocked(VlanId vlanId) {
  BLIP(trace(), 5, "setPortsBlocked vlanId: {}", vlanId.value());
  auto cache = vlanCache(vlanId);
  if (!cache) return;
  std::vector<IntfId> ports;
  for (const auto& [intf, tagged] : cache->add()) ports.push_back(intf);
  for (const auto& intf : ports) doHandlePortState(intf, vlanId, false);
}

void VlanHelper::doMaybeCreateVlan(VlanId vlanId) {
  if (createdVlan_.contains(vlanId)) {
    BLIP(trace(), 9, "vlan {} created already ?", vlanId.value());
    return;
  }
  BLIP(trace(), 5, "Creating vlanid: {}", vlanId.value());
  doCreateHwVlan(vlanId);
  createdVlan_.insert(vlanId);
}

void VlanHelper::doCreateHwVlan(VlanId) { unimplementedOperation("VlanHelper", "doCreateHwVlan"); }
void VlanHelper::doUpdateVlan(VlanId) { unimplementedOperation("VlanHelper", "doUpdateVlan"); }

void VlanHelper::maybeTriggerHwVlanUpdate(VlanId vlanId) {
  auto cfg = updateConfig_->vlanUpdate(vlanId);
  auto hwStatus = updateStatus_->hwStatus(vlanId);
  if (!cfg) {
    ORB_ASSERT_AT(vlanSource, !hwStatus, "!hwStatus");
  } else if (!hwStatus) {
    BLIP(trace(), 7, "hwStatus not present yet vlan {}", vlanId.value());
    return;
  }
  auto pending = vlanUpdate(vlanId);
  if (hwStatus) {
    BLIP(trace(), 7, "hwStatus genId: {} status: {}", hwStatus->genId(),
         Vex::valueToStrep(hwStatus->programmingStatus()));
    if (pending && pending->genId() == hwStatus->genId()) {
      BLIP(trace(), 7, "Nothing to do in the platform vlan {}", vlanId.value());
      return;
    }
    if (pending) {
      ORB_ASSERT_AT(vlanSource, pending->genId() > hwStatus->genId(),
                    "vlanUpdate( vlanId )->genId() > hwStatus->genId()");
    }
  }
  if (!pending) {
    BLIP(trace(), 7, "VlanHelper has no new updates to process in vlan {}", vlanId.value());
    return;
  }
  handToHardware(*pending);
}

// Copies the pending update into the VLAN's request and asks the chip layer
// to program it. The previous answer goes: from here on the request is in
// flight, and a later pass must not send it again.
void VlanHelper::handToHardware(const VlanUpdate& pending) {
  VlanId vlanId = pending.vlanId();
  auto cfg = updateConfig_->vlanUpdate(vlanId);
  if (!cfg) {
    cfg = vlanUpdateFactory(vlanId);
    updateConfig_->vlanUpdateIs(vlanId, cfg);
  }
  pending.copy(cfg.get());
  updateStatus_->hwStatusDel(vlanId);
  BLIP(trace(), 6, "Latest vlanUpdate has adds:{} ingress:{} egress:{} removes:{}", portsText(cfg->add()),
       portsText(cfg->ingress()), portsText(cfg->egress()), portsText(cfg->remove()));
  doUpdateVlan(vlanId);
}

void VlanHelper::updateVlanDone(VlanId vlanId, VlanProgrammingStatus status) {
  auto cfg = updateConfig_->vlanUpdate(vlanId);
  ORB_ASSERT_AT(vlanSource, cfg, "vlanUpdate( vlanId )");
  auto st = updateStatus_->hwStatusIs(vlanId);
  BLIP(trace(), 6, "vlan {} hwVlanConfig genId {}", vlanId.value(), cfg->genId());
  st->programmingStatusIs(status);
  st->genIdIs(cfg->genId());
  bool failed = status == VlanProgrammingStatus::programmingFailed;
  if (failed) BLIP(trace(), 3, "{} failed to program in hardware", vlanId.value());
  auto pending = vlanUpdate(vlanId);
  if (pending && pending->genId() != cfg->genId()) {
    BLIP(trace(), 5, "Redo vlan update for vlan {} . State changed while were were programming", vlanId.value());
    handToHardware(*pending);
    return;
  }
  if (failed) {
    // Confirmed membership and the pending update stay as they are, until
    // configuration changes again or hwResourcesAvailable() retries.
    return;
  }
  BLIP(trace(), 5, "Vlan update for vlan {} complete", vlanId.value());
  foldIntoConfirmedMembership(*cfg);
  // A fresh record per completion, so that whoever watches the collection
  // (spanning tree) hears every completion, not only the first per VLAN.
  auto last = Vex::make<VlanHwUpdateStatus::Status>(vlanId);
  last->programmingStatusIs(status);
  last->genIdIs(cfg->genId());
  lastCompletedUpdateStatus_->hwStatusIs(vlanId, last);
  vlanUpdate_.erase(vlanId);
  BLIP(trace(), 6, " Deleting updateConfig and updateStatus for VLAN {}", vlanId.value());
  updateConfig_->vlanUpdateDel(vlanId);
  updateStatus_->hwStatusDel(vlanId);
  vlanUpdater_->state()->idleIs(true);
  vlansProgrammedInc();
  maybeTriggerHwVlanUpdate(vlanId);
}

void VlanHelper::foldIntoConfirmedMembership(const VlanUpdate& done) {
  VlanId vlanId = done.vlanId();
  for (const auto& [intf, tagged] : done.add()) {
    auto pvm = getPortVlanMembership(intf);
    if (tagged) {
      BLIP(trace(), 8, "adding tagged port {}", intf.stringValue());
      pvm->untaggedVlanDel(vlanId);
      pvm->taggedVlanIs(vlanId);
    } else {
      BLIP(trace(), 8, "adding untagged port {}", intf.stringValue());
      pvm->taggedVlanDel(vlanId);
      pvm->untaggedVlanIs(vlanId);
    }
    if (done.egress(intf)) {
      BLIP(trace(), 8, "adding egress port {}", intf.stringValue());
      pvm->egressVlanIs(vlanId);
    } else {
      BLIP(trace(), 8, "removing egress port {}", intf.stringValue());
      pvm->egressVlanDel(vlanId);
    }
    if (done.ingress(intf)) {
      BLIP(trace(), 8, "adding ingress port {}", intf.stringValue());
      pvm->ingressVlanIs(vlanId);
    } else {
      BLIP(trace(), 8, "removing ingress port {}", intf.stringValue());
      pvm->ingressVlanDel(vlanId);
    }
  }
  for (const auto& [intf, unused] : done.remove()) {
    BLIP(trace(), 8, "removing port {}", intf.stringValue());
    auto pvm = getPortVlanMembership(intf);
    pvm->taggedVlanDel(vlanId);
    pvm->untaggedVlanDel(vlanId);
    pvm->egressVlanDel(vlanId);
    // The ingress entry stays: only a later add without ingress clears it.
  }
}

void VlanHelper::hwResourcesAvailable() {
  for (auto [vlanId, update] : vlanUpdate_) update->genIdInc();
  if (!vlanUpdate_.empty()) vlanUpdater_->wake();
}

std::string VlanHelper::showVlanUpdateRequest(unsigned vlanId) const {
  std::string out;
  for (const auto& [id, update] : vlanUpdate_) {
    if (vlanId && id.value() != vlanId) continue;
    auto cfg = updateConfig_->vlanUpdate(id);
    auto st = updateStatus_->hwStatus(id);
    out += fmt::format("vlan {} pending genId {} in-flight genId {} acked genId {} adds:{} removes:{}\n", id.value(),
                       update->genId(), cfg ? cfg->genId() : 0, st ? st->genId() : 0, portsText(update->add()),
                       portsText(update->remove()));
  }
  return out;
}

Vex::Ptr<VlanHelper> vlanHelperFactory(const std::string& name) { return Vex::make<VlanHelper>(name); }

}  // namespace Orb
