#include "Orb/OrbStpSm.h"

#include "Orb/OrbTrace.h"

#include <fmt/format.h>

#include <vector>

namespace Orb {

namespace {

constexpr const char* stpSource = "/src/Orb/OrbStpSm";

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbStpSm");
  return handle;
}

bool isForwarding(PortState state) { return static_cast<int>(state) == 3; }

}  // namespace

// --- TopoHelper ---

std::uint32_t TopoHelper::maxTopo() { return unimplementedOperation("TopoHelper", "maxTopo"); }
void TopoHelper::allocTopo(const std::string&) { unimplementedOperation("TopoHelper", "allocTopo"); }
void TopoHelper::freeTopo(const std::string&) { unimplementedOperation("TopoHelper", "freeTopo"); }
void TopoHelper::setStpState(std::int32_t, const std::string&, const IntfId&, PortState) {
  unimplementedOperation("TopoHelper", "setStpState");
}
void TopoHelper::addVlanToTopo(const std::string&, std::uint16_t) {
  unimplementedOperation("TopoHelper", "addVlanToTopo");
}
void TopoHelper::delVlanFromTopo(const std::string&, std::uint16_t) {
  unimplementedOperation("TopoHelper", "delVlanFromTopo");
}
void TopoHelper::flushTopoPort(std::int32_t, const IntfId&) { unimplementedOperation("TopoHelper", "flushTopoPort"); }
void TopoHelper::flushTopoPortVlan(const MappedVlan&, const IntfId&) {
  unimplementedOperation("TopoHelper", "flushTopoPortVlan");
}
void TopoHelper::verify() { unimplementedOperation("TopoHelper", "verify"); }
void TopoHelper::hwInit() { unimplementedOperation("TopoHelper", "hwInit"); }

void TopoHelper::setStpStateDoneTopoName(const std::string& topoName) {
  ORB_ASSERT_AT(stpSource, stpSm(), "stpSm()");
  stpSm()->setStpStateDoneTopoName(topoName);
}

// --- VlanTopoHelper ---

// Hears every completed VLAN update.
class VlanTopoHelper::CompletionReactor : public VlanHwUpdateStatus::Notifiee {
 public:
  CompletionReactor(VlanTopoHelper* helper, const Vex::Ptr<VlanHwUpdateStatus>& completed)
      : Notifiee(completed), helper_(helper) {}
  void handleHwStatus(const VlanId& vlanId) override {
    if (auto status = notifier()->hwStatus(vlanId)) {
      helper_->completedVlanUpdateStatusIs(status);
    } else {
      helper_->completedVlanUpdateStatusDel(vlanId);
    }
  }

 private:
  VlanTopoHelper* helper_;
};

VlanTopoHelper::VlanTopoHelper(const Vex::Ptr<VlanHelper>& vlanHelper, const std::string& name)
    : TopoHelper(name), vlanHelper_(vlanHelper) {
  if (vlanHelper_) {
    completionReactor_ = std::make_unique<CompletionReactor>(this, vlanHelper_->lastCompletedUpdateStatus());
  }
}

VlanTopoHelper::~VlanTopoHelper() { completionReactor_.reset(); }

const MappedVlan& VlanTopoHelper::mappedVlan(const std::string& topoName) const {
  auto it = topoToVlanMap_.find(topoName);
  return it == topoToVlanMap_.end() ? Vex::emptyValue<MappedVlan>() : it->second;
}

const std::map<IntfId, PortState>& VlanTopoHelper::topoPortState(const std::string& topoName) const {
  auto it = topoPortState_.find(topoName);
  return it == topoPortState_.end() ? Vex::emptyValue<std::map<IntfId, PortState>>() : it->second;
}

std::set<VlanId> VlanTopoHelper::knownVlans() const {
  std::set<VlanId> vlans;
  if (!vlanHelper_) return vlans;
  for (const auto& [vlanId, cache] : vlanHelper_->vlanCache()) {
    if (!cache->add().empty()) vlans.insert(vlanId);
  }
  return vlans;
}

const Bridging::VlanMap<std::uint64_t>& VlanTopoHelper::topoPendingVlans(const std::string& topoName) const {
  auto it = topoPendingVlans_.find(topoName);
  return it == topoPendingVlans_.end() ? Vex::emptyValue<Bridging::VlanMap<std::uint64_t>>() : it->second;
}

void VlanTopoHelper::setStpState(std::int32_t topoId, const std::string& topoName, const IntfId& intf,
                                 PortState state) {
  BLIP(trace(), 5, "setStpState topo {} intf {} state {}", topoName, intf.stringValue(), Vex::valueToStrep(state));
  ORB_ASSERT_AT(stpSource, stpSm(), "stpSm()");
  auto mapped = topoToVlanMap_.find(topoName);
  if (mapped == topoToVlanMap_.end()) BLIP(trace(), 7, " Mapped vlan NULL for topo {}", topoName);
  auto& pending = topoPendingVlans_[topoName];
  topoPortState_[topoName][intf] = state;
  if (!vlanHelper_) {
    BLIP(trace(), 3, "No Vlan helper");
  } else if (mapped != topoToVlanMap_.end()) {
    bool forwarding = isForwarding(state);
    for (VlanId vlanId : mapped->second.vlan) {
      std::uint64_t genId = vlanHelper_->doHandlePortState(intf, vlanId, forwarding);
      if (!genId) continue;
      BLIP(trace(), 7, " topo {} needs to wait for vlan {} genId {}", topoName, vlanId.value(), genId);
      pending[vlanId] = genId;
    }
  }
  (void)topoId;
  if (pending.empty()) {
    setStpStateDoneTopoName(topoName);
  } else {
    stpSm()->setStpStatePendingTopoName(topoName);
  }
}

void VlanTopoHelper::addVlanToTopo(const std::string& topoName, std::uint16_t vlan) {
  VlanId vlanId(vlan);
  topoToVlanMap_[topoName].vlanIs(vlanId);
  if (!vlanHelper_) return;
  // The new VLAN starts with the states the topology's ports already have.
  auto& pending = topoPendingVlans_[topoName];
  bool scheduled = false;
  for (const auto& [intf, state] : topoPortState_[topoName]) {
    std::uint64_t genId = vlanHelper_->doHandlePortState(intf, vlanId, isForwarding(state));
    if (!genId) continue;
    pending[vlanId] = genId;
    scheduled = true;
  }
  if (scheduled && stpSm()) stpSm()->setStpStatePendingTopoName(topoName);
}

void VlanTopoHelper::delVlanFromTopo(const std::string& topoName, std::uint16_t vlan) {
  VlanId vlanId(vlan);
  topoToVlanMap_[topoName].vlanDel(vlanId);
  // Out of the topology, the VLAN's ports are no longer held by its states.
  if (vlanHelper_) {
    for (const auto& [intf, state] : topoPortState_[topoName]) {
      if (!isForwarding(state)) vlanHelper_->doHandlePortState(intf, vlanId, true);
    }
  }
  auto pending = topoPendingVlans_.find(topoName);
  if (pending == topoPendingVlans_.end() || !pending->second.erase(vlanId)) return;
  // The topology no longer waits for a VLAN it does not have.
  if (pending->second.empty() && stpSm()) setStpStateDoneTopoName(topoName);
}

void VlanTopoHelper::topoPortStateDel(const std::string& topoName, const IntfId& intf) {
  auto states = topoPortState_.find(topoName);
  if (states == topoPortState_.end()) return;
  auto it = states->second.find(intf);
  if (it == states->second.end()) return;
  bool blocked = !isForwarding(it->second);
  states->second.erase(it);
  BLIP(trace(), 5, "topo {} forgets state of {}", topoName, intf.stringValue());
  if (!blocked || !vlanHelper_) return;
  auto& pending = topoPendingVlans_[topoName];
  bool scheduled = false;
  for (VlanId vlanId : mappedVlan(topoName).vlan) {
    std::uint64_t genId = vlanHelper_->doHandlePortState(intf, vlanId, true);
    if (!genId) continue;
    pending[vlanId] = genId;
    scheduled = true;
  }
  if (scheduled && stpSm()) stpSm()->setStpStatePendingTopoName(topoName);
}

void VlanTopoHelper::topoStateDelAll(const std::string& topoName) {
  topoPortState_.erase(topoName);
  topoPendingVlans_.erase(topoName);
  topoToVlanMap_.erase(topoName);
}

void VlanTopoHelper::completedVlanUpdateStatusIs(const Vex::Ptr<VlanHwUpdateStatus::Status>& status) {
  completedVlanUpdateStatus_[status->vlanId()] = status;
  handleVlanUpdateCompletion(status->vlanId(), status->genId());
  // A VLAN programmed for the first time may be one the tap topology lacks.
  if (stpSm()) stpSm()->handleVlanKnown(status->vlanId());
}

void VlanTopoHelper::completedVlanUpdateStatusDel(VlanId vlanId) { completedVlanUpdateStatus_.erase(vlanId); }

void VlanTopoHelper::handleVlanUpdateCompletion(VlanId vlanId, std::uint64_t genId) {
  BLIP(trace(), 7, "handleVlanUpdateCompletion vlanId={} genId={}", vlanId.value(), genId);
  std::vector<std::string> done;
  for (auto& [topoName, pending] : topoPendingVlans_) {
    auto waited = pending.find(vlanId);
    // An older generation than the one waited for completes nothing.
    if (!waited || *waited > genId) continue;
    pending.erase(vlanId);
    BLIP(trace(), 7, " topo {} vlan {} completed", topoName, vlanId.value());
    if (pending.empty()) {
      done.push_back(topoName);
    } else {
      BLIP(trace(), 8, " topo {} still waiting for {} vlans", topoName, pending.size());
    }
  }
  for (const auto& topoName : done) {
    if (stpSm()) setStpStateDoneTopoName(topoName);
  }
}

// --- TopoPortSm ---

TopoPortSm::TopoPortSm(const Vex::Ptr<OrbCommonSmData>& ocsd, TopoSm* topoSm, const IntfId& intf)
    : OrbBaseSm(ocsd), topoSm_(topoSm), intf_(intf) {
  initializedIs(true);
}

void TopoPortSm::handleState() {
  state_ = topoSm_->config()->intfState(intf_);
  topoSm_->doSetStpState(intf_, state_);
}

void TopoPortSm::handleFdbFlush() { topoSm_->handleFdbFlush(intf_); }

// --- TopoSm ---

class TopoSm::ConfigReactor : public Vex::Reactor<Bridging::Topology::TopoConfig, TopoSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfState, IntfId, handleTopoPortChange)
  VEX_REACT_KEY(FdbFlush, IntfId, handleFdbFlush)
};

class TopoSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, TopoSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(PortToLag, IntfId, handlePortToLag)
};

TopoSm::TopoSm(const Vex::Ptr<OrbCommonSmData>& ocsd, StpSm* stpSm, const std::string& name, std::int32_t topoId,
               const Vex::Ptr<Bridging::Topology::TopoConfig>& config)
    : OrbBaseSm(ocsd), stpSm_(stpSm), name_(name), topoId_(topoId), config_(config) {
  configReactor_ = std::make_unique<ConfigReactor>(this, config_);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, ocsd);
  initializedIs(true);
}

TopoSm::~TopoSm() {
  vexDoZombieReactors(true);
  configReactor_.reset();
  ocsdReactor_.reset();
}

TopoHelper& TopoSm::topoHelper() const { return stpSm_->topoHelper(); }

void TopoSm::handleInitialized() {
  for (const auto& [intf, state] : config_->intfState()) handleTopoPortChange(intf);
}

void TopoSm::handleTopoPortChange(const IntfId& intf) {
  if (!config_->intfStateHas(intf)) {
    if (topoPortSm_.erase(intf)) {
      BLIP(trace(), 5, "Deleting topoPortSm for {} in {}", intf.stringValue(), name_);
      releasePort(intf);
    }
    return;
  }
  auto& port = topoPortSm_[intf];
  if (!port) {
    BLIP(trace(), 5, "Creating topoPortSm for {} in {}", intf.stringValue(), name_);
    port = Vex::make<TopoPortSm>(ocsd(), this, intf);
  }
  port->handleState();
}

void TopoSm::doSetStpState(const IntfId& port, PortState state) {
  if (ocsd()->portToLagHas(port)) {
    BLIP(trace(), 5, "TopoSm::doSetStpState port {} part of a LAG, not updating", port.stringValue());
    return;
  }
  // A LAG is what the shared context has a member list for; a Port-Channel
  // without one is a port like any other.
  if (ocsd()->lagToPortHas(port)) {
    const auto& members = ocsd()->lagToPort(port).ports;
    if (members.empty()) BLIP(trace(), 5, "TopoSm::doSetStpState lag {} none ", port.stringValue());
    for (const auto& [member, lagPort] : members) {
      BLIP(trace(), 6, "TopoSm::doSetStpState lag {} member {}", port.stringValue(), member.stringValue());
      topoHelper().setStpState(topoId_, name_, member, state);
    }
  }
  // VLANs list the Port-Channel, not its members: it takes the state too, or
  // a blocked LAG would stay in its VLANs in hardware.
  topoHelper().setStpState(topoId_, name_, port, state);
  if (stpSm_->verifyRetryPending()) stpSm_->doRequestVerify();
}

void TopoSm::releasePort(const IntfId& port) {
  auto* vlanBased = dynamic_cast<VlanTopoHelper*>(&topoHelper());
  if (!vlanBased || ocsd()->portToLagHas(port)) return;
  if (ocsd()->lagToPortHas(port)) {
    for (const auto& [member, lagPort] : ocsd()->lagToPort(port).ports) vlanBased->topoPortStateDel(name_, member);
  }
  vlanBased->topoPortStateDel(name_, port);
}

void TopoSm::handlePortToLag(const IntfId& port) {
  const IntfId& lag = ocsd()->portToLag(port);
  if (!lag.empty()) {
    if (config_->intfStateHas(lag)) {
      BLIP(trace(), 5, "{} joining lag {}, lag in this stg", port.stringValue(), lag.stringValue());
      topoHelper().setStpState(topoId_, name_, port, config_->intfState(lag));
    } else {
      BLIP(trace(), 7, "{} joining lag {}, but lag is not in this stg", port.stringValue(), lag.stringValue());
    }
    return;
  }
  if (config_->intfStateHas(port)) {
    BLIP(trace(), 5, "{} leaving lag", port.stringValue());
    topoHelper().setStpState(topoId_, name_, port, config_->intfState(port));
    return;
  }
  // Out of its LAG, the port has no state of its own in this topology.
  if (auto* vlanBased = dynamic_cast<VlanTopoHelper*>(&topoHelper())) vlanBased->topoPortStateDel(name_, port);
}

void TopoSm::handleFdbFlush(const IntfId& port) {
  topoHelper().flushTopoPort(topoId_, port);
  auto mapped = stpSm_->topoToVlanMap().find(name_);
  if (mapped != stpSm_->topoToVlanMap().end()) topoHelper().flushTopoPortVlan(mapped->second, port);
}

// --- StpSm ---

class StpSm::ConfigReactor : public Vex::Reactor<Bridging::Topology::Config, StpSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(TopoConfig, std::string, handleTopoConfig)
  VEX_REACT_KEY(VidToTopoMap, VlanId, handleVidToTopoMap)
};

class StpSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, StpSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(OperationalMode, handleOperationalMode)
};

StpSm::StpSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Bridging::Topology::Config>& topoConfig,
             const Vex::Ptr<Bridging::Topology::Status>& topoStatus, const Vex::Ptr<TopoHelper>& topoHelper)
    : OrbBaseSm(ocsd), topoConfig_(topoConfig), topoStatus_(topoStatus), topoHelper_(topoHelper) {
  topoHelper_->stpSmIs(this);
  configReactor_ = std::make_unique<ConfigReactor>(this, topoConfig_);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, ocsd);
  if (auto verify = ocsd->verifySm()) verify->verifiableIs(this);
  initializedIs(true);
}

StpSm::~StpSm() {
  vexDoZombieReactors(true);
  if (ocsd() && ocsd()->verifySm()) ocsd()->verifySm()->verifiableDel(this);
  configReactor_.reset();
  ocsdReactor_.reset();
  topoSm_.clear();
  if (topoHelper_->stpSm() == this) topoHelper_->stpSmIs(nullptr);
}

void StpSm::handleInitialized() {
  topoHelper_->hwInit();
  handleOperationalMode();
}

std::int32_t StpSm::allocTopoId() {
  std::uint32_t max = topoHelper_->maxTopo();
  for (std::int32_t id = 0; static_cast<std::uint32_t>(id) < max; ++id) {
    if (usedTopoIds_.insert(id).second) return id;
  }
  return -1;
}

void StpSm::statusIs(const std::string& name, std::int32_t topoId, bool stateSet) {
  topoStatus_->topoInstStatusIs(name, Bridging::Topology::TopoInstStatus{topoId, stateSet});
}

void StpSm::setStpStatePendingTopoName(const std::string& name) {
  const auto& status = topoStatus_->topoInstStatus(name);
  statusIs(name, status.topoId, false);
}

void StpSm::setStpStateDoneTopoName(const std::string& name) {
  BLIP(trace(), 5, "setStpStateDone topo {}", name);
  const auto& status = topoStatus_->topoInstStatus(name);
  statusIs(name, status.topoId, true);
}

void StpSm::setStpStateDoneTopoId(std::int32_t topoId) {
  for (const auto& [name, topo] : topoSm_) {
    if (topo->topoId() == topoId) setStpStateDoneTopoName(name);
  }
  if (topoId == tapAggTopoId_ && tapAggTopoId_ >= 0) setStpStateDoneTopoName(tapAggTopoName);
}

void StpSm::createTopo(const std::string& name) {
  if (topoSm_.count(name)) return;
  std::int32_t topoId = allocTopoId();
  if (topoId < 0) {
    BLIP(trace(), 1, "no hardware topology left for {}", name);
    return;
  }
  BLIP(trace(), 5, "creating topo {} id {}", name, topoId);
  topoHelper_->allocTopo(name);
  statusIs(name, topoId, true);
  for (const auto& [vlanId, topoName] : topoConfig_->vidToTopoMap()) {
    if (topoName != name) continue;
    topoHelper_->addVlanToTopo(name, vlanId.value());
    topoToVlanMap_[name].vlanIs(vlanId);
    vlanToTopoSmMap_[vlanId] = name;
  }
  topoSm_[name] = Vex::make<TopoSm>(ocsd(), this, name, topoId, topoConfig_->topoConfig(name));
}

void StpSm::deleteTopo(const std::string& name) {
  auto it = topoSm_.find(name);
  if (it == topoSm_.end()) return;
  std::int32_t topoId = it->second->topoId();
  auto mapped = topoToVlanMap_[name];
  BLIP(trace(), 5, "deleting topo {} with mapped vlan {}", name, mapped.vlan.size());
  for (VlanId vlanId : mapped.vlan) {
    topoHelper_->delVlanFromTopo(name, vlanId.value());
    vlanToTopoSmMap_.erase(vlanId);
  }
  topoToVlanMap_.erase(name);
  topoSm_.erase(it);
  if (auto* vlanBased = dynamic_cast<VlanTopoHelper*>(topoHelper_.get())) vlanBased->topoStateDelAll(name);
  topoHelper_->freeTopo(name);
  usedTopoIds_.erase(topoId);
  topoStatus_->topoInstStatusDel(name);
}

void StpSm::handleTopoConfig(const std::string& name) {
  if (tapMode()) {
    BLIP(trace(), 5, "topo {} ignored in tap/tool mode", name);
    return;
  }
  if (topoConfig_->topoConfigHas(name)) {
    createTopo(name);
  } else {
    deleteTopo(name);
  }
}

void StpSm::handleVidToTopoMap(VlanId vlanId) {
  BLIP(trace(), 6, "vidToTopoMap call for vlan {}", vlanId.value());
  if (tapMode()) {
    if (!topoToVlanMap_[tapAggTopoName].vlan.count(vlanId)) {
      BLIP(trace(), 5, "vlan {} is not in a topo. Add to TapAggTopo", vlanId.value());
      topoHelper_->addVlanToTopo(tapAggTopoName, vlanId.value());
      topoToVlanMap_[tapAggTopoName].vlanIs(vlanId);
    }
    return;
  }
  std::string wanted = topoConfig_->vidToTopoMap(vlanId);
  auto current = vlanToTopoSmMap_.find(vlanId);
  std::string old = current == vlanToTopoSmMap_.end() ? "" : current->second;
  if (old == wanted) return;
  if (!old.empty()) {
    if (old == tapAggTopoName) BLIP(trace(), 5, "vlan {} vlan was in TapAggTopo. take it out first", vlanId.value());
    topoHelper_->delVlanFromTopo(old, vlanId.value());
    topoToVlanMap_[old].vlanDel(vlanId);
    vlanToTopoSmMap_.erase(vlanId);
  }
  if (!wanted.empty() && topoSm_.count(wanted)) {
    topoHelper_->addVlanToTopo(wanted, vlanId.value());
    topoToVlanMap_[wanted].vlanIs(vlanId);
    vlanToTopoSmMap_[vlanId] = wanted;
  }
}

void StpSm::handleOperationalMode() {
  HwOperationalMode mode = ocsd()->operationalMode() == HwOperationalMode::hwModeTapAgg
                               ? HwOperationalMode::hwModeTapAgg
                               : HwOperationalMode::hwModeNormal;
  if (mode == currentHwOperationalMode_) return;
  ORB_ASSERT_AT(stpSource, currentHwOperationalMode() != mode, "currentHwOperationalMode() != mode");
  if (currentHwOperationalMode_ == HwOperationalMode::hwModeTapAgg) {
    cleanupTapAgg();
  } else if (currentHwOperationalMode_ == HwOperationalMode::hwModeNormal) {
    cleanupRegular();
  }
  currentHwOperationalMode_ = mode;
  if (mode == HwOperationalMode::hwModeTapAgg) {
    configureTapAgg();
  } else {
    configureRegular();
  }
  ORB_ASSERT_AT(stpSource, currentHwOperationalMode() == mode, "currentHwOperationalMode() == mode");
}

void StpSm::configureRegular() {
  BLIP(trace(), 5, "configure regular topo stuff");
  for (const auto& [name, config] : topoConfig_->topoConfig()) createTopo(name);
}

void StpSm::cleanupRegular() {
  BLIP(trace(), 5, "cleanup regular topo stuff");
  std::vector<std::string> names;
  for (const auto& [name, topo] : topoSm_) names.push_back(name);
  for (const auto& name : names) deleteTopo(name);
}

void StpSm::configureTapAgg() {
  BLIP(trace(), 5, "configure tapagg stuff");
  tapAggTopoId_ = allocTopoId();
  topoHelper_->allocTopo(tapAggTopoName);
  statusIs(tapAggTopoName, tapAggTopoId_, true);
  BLIP(trace(), 5, "configure all vlan into TapAggTopo");
  for (const auto& [vlanId, name] : topoConfig_->vidToTopoMap()) handleVidToTopoMap(vlanId);
  if (auto* vlanBased = dynamic_cast<VlanTopoHelper*>(topoHelper_.get())) {
    for (VlanId vlanId : vlanBased->knownVlans()) handleVlanKnown(vlanId);
  }
  for (const auto& intf : tapAggIntf_) {
    BLIP(trace(), 5, "{} is in tap/tool mode so it's perma-forwarding", intf.stringValue());
    topoHelper_->setStpState(tapAggTopoId_, tapAggTopoName, intf, PortState::portStateForwarding);
  }
}

void StpSm::cleanupTapAgg() {
  BLIP(trace(), 5, "cleanup tapagg stuff");
  for (VlanId vlanId : topoToVlanMap_[tapAggTopoName].vlan)
    topoHelper_->delVlanFromTopo(tapAggTopoName, vlanId.value());
  topoToVlanMap_.erase(tapAggTopoName);
  if (auto* vlanBased = dynamic_cast<VlanTopoHelper*>(topoHelper_.get())) vlanBased->topoStateDelAll(tapAggTopoName);
  topoHelper_->freeTopo(tapAggTopoName);
  usedTopoIds_.erase(tapAggTopoId_);
  tapAggTopoId_ = -1;
  topoStatus_->topoInstStatusDel(tapAggTopoName);
}

void StpSm::handleVlanKnown(VlanId vlanId) {
  if (!tapMode() || topoToVlanMap_[tapAggTopoName].vlan.count(vlanId)) return;
  BLIP(trace(), 5, "vlan {} is not in a topo. Add to TapAggTopo", vlanId.value());
  topoHelper_->addVlanToTopo(tapAggTopoName, vlanId.value());
  topoToVlanMap_[tapAggTopoName].vlanIs(vlanId);
}

// --- verification ---

void StpSm::handleVerify(VerifyReport& report) {
  topoHelper_->verify();
  compareTopologies(report);
  verifyRetry_.pendingIs(!report.lines().empty());
}

void StpSm::doRequestVerify() {
  BLIP(trace(), 7, "StpSm::doRequestVerify renews the pending retry");
  verifyRetry_.renew();
}

void StpSm::handleRetryVerify() {
  BLIP(trace(), 5, "StpSm::handleRetryVerify");
  VerifyReport report;
  compareTopologies(report);
  if (auto verifyData = ocsd()->verifyData()) verifyData->outputIs(verifyName(), report.lines());
}

void StpSm::compareTopologies(VerifyReport& report) {
  auto* vlanBased = dynamic_cast<VlanTopoHelper*>(topoHelper_.get());
  if (!vlanBased || !vlanBased->vlanHelper()) return;
  const auto& vlanHelper = *vlanBased->vlanHelper();
  for (const auto& [name, inst] : topoStatus_->topoInstStatus()) {
    std::size_t waiting = vlanBased->topoPendingVlans(name).size();
    if (inst.stateSet == (waiting != 0)) {
      report.mismatch(fmt::format("Topo {} state set: {} while waiting for {} vlans\n", name, inst.stateSet, waiting));
    }
    for (const auto& [port, state] : vlanBased->topoPortState(name)) {
      auto inHardware = vlanHelper.portVlanMembership(port);
      for (VlanId vlanId : vlanBased->mappedVlan(name).vlan) {
        bool member = inHardware && (inHardware->taggedVlan(vlanId) || inHardware->untaggedVlan(vlanId));
        auto cache = vlanHelper.vlanCache(vlanId);
        bool configured = cache && cache->addHas(port);
        if (!isForwarding(state) && member) {
          report.mismatch(fmt::format("Topo {}, port {} is {} but in hardware of vlan {}\n", name, port.stringValue(),
                                      Vex::valueToStrep(state), vlanId.value()));
        } else if (isForwarding(state) && configured && !member) {
          report.mismatch(fmt::format("Topo {}, port {} is {} but missing in hardware of vlan {}\n", name,
                                      port.stringValue(), Vex::valueToStrep(state), vlanId.value()));
        }
      }
    }
  }
}

void StpSm::handleBpduTrapping() { unimplementedOperation("StpSm", "handleBpduTrapping"); }

void StpSm::tapAggIntfIs(const IntfId& intf, bool tap) {
  if (tap ? !tapAggIntf_.insert(intf).second : !tapAggIntf_.erase(intf)) return;
  if (!tapMode()) return;
  topoHelper_->setStpState(tapAggTopoId_, tapAggTopoName, intf,
                           tap ? PortState::portStateForwarding : PortState::portStateDiscarding);
}

Vex::Ptr<StpSm> stpSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                             const Vex::Ptr<Bridging::Topology::Config>& topoConfig,
                             const Vex::Ptr<Bridging::Topology::Status>& topoStatus,
                             const Vex::Ptr<TopoHelper>& topoHelper) {
  return Vex::make<StpSm>(ocsd, topoConfig, topoStatus, topoHelper);
}

}  // namespace Orb
