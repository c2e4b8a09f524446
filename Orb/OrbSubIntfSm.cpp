#include "Orb/OrbSubIntfSm.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbTrace.h"
#include "platform/model/MacTypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

namespace Orb {

namespace {

constexpr const char* subIntfSource = "/src/Orb/OrbSubIntfSm.cpp";

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbSubIntfSm");
  return handle;
}

std::string encapText(const SubIntfEncap& encap) {
  return fmt::format("outerTag {} innerTag {}", encap.outerTag, encap.innerTag);
}

}  // namespace

// --- reactors ---

class OrbSubIntfSm::ConfigDirReactor : public Vex::Reactor<Interface::SubIntfConfigDir, OrbSubIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfConfig, Nexo::IntfId, handleConfigDirChange)
};

class OrbSubIntfSm::StatusDirReactor : public Vex::Reactor<Interface::SubIntfStatusDir, OrbSubIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfStatus, Nexo::IntfId, handleStatusDirChange)
};

class OrbSubIntfSm::ConnectorReactor : public Vex::Reactor<Pseudowire::LocalConnectorInfoTable, OrbSubIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Connector, Nexo::IntfId, handlePwEndPoint)
};

class OrbSubIntfSm::MacsecReactor : public Vex::Reactor<MacsecProxy::Status, OrbSubIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(ProxySubIntf, Nexo::IntfId, handleMacsecProxySubIntfStatus)
};

class OrbSubIntfSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, OrbSubIntfSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(PortToLag, Nexo::IntfId, handlePortToLag)
  VEX_REACT_KEY(MultiEncapIntf, Nexo::IntfId, handleMultiEncapIntf)
};

// --- construction ---

OrbSubIntfSm::OrbSubIntfSm(const SubIntfSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT_AT(subIntfSource, in_.orbHelper, "orbHelper()");
  ORB_ASSERT_AT(subIntfSource, in_.subIntfConfigDir && in_.subIntfStatusDir,
                "subIntfConfigDir() && subIntfStatusDir()");
  if (!in_.localConnectorInfoTable) in_.localConnectorInfoTable = Vex::make<Pseudowire::LocalConnectorInfoTable>("lc");
  if (!in_.macsecProxyStatus) in_.macsecProxyStatus = Vex::make<MacsecProxy::Status>("macsecProxy");
  if (!in_.hwConfig) in_.hwConfig = Vex::make<Hardware::SubIntf::Config>("hwConfig");
  if (!in_.hwStatus) in_.hwStatus = Vex::make<Hardware::SubIntf::Status>("hwStatus");
  // hwConfig is what this machine programmed: entries a previous run left
  // mean nothing to it, and every sub-interface is programmed again.
  in_.hwConfig->intfIdToDot1qEncapAndVlanIdDelAll();
  clock_ = Vex::clockFactory([this] { retryConflictedIntfs(); });
  clockIs(clock_);
  configDirReactor_ = std::make_unique<ConfigDirReactor>(this, in_.subIntfConfigDir);
  statusDirReactor_ = std::make_unique<StatusDirReactor>(this, in_.subIntfStatusDir);
  connectorReactor_ = std::make_unique<ConnectorReactor>(this, in_.localConnectorInfoTable);
  macsecReactor_ = std::make_unique<MacsecReactor>(this, in_.macsecProxyStatus);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, in_.ocsd);
  if (auto verify = in_.ocsd->verifySm()) verify->verifiableIs(this);
  initializedIs(true);
}

OrbSubIntfSm::~OrbSubIntfSm() {
  vexDoZombieReactors(true);
  clock_->timeMinIs(Vex::never);
  if (ocsd() && ocsd()->verifySm()) ocsd()->verifySm()->verifiableDel(this);
  watch_.clear();
  configDirReactor_.reset();
  statusDirReactor_.reset();
  connectorReactor_.reset();
  macsecReactor_.reset();
  ocsdReactor_.reset();
}

void OrbSubIntfSm::handleInitialized() {
  for (const auto& [intf, proxied] : in_.macsecProxyStatus->proxySubIntf()) macsecProxySubIntf_[intf] = proxied;
  std::set<Nexo::IntfId> all;
  for (const auto& [intf, config] : in_.subIntfConfigDir->intfConfig()) all.insert(intf);
  for (const auto& [intf, status] : in_.subIntfStatusDir->intfStatus()) all.insert(intf);
  for (const auto& intf : all) handleSubIntfConfigAndStatusChange(intf);
}

void OrbSubIntfSm::hasNotificationActiveIs(bool active) {
  const bool resumed = active && !hasNotificationActive();
  OrbBaseSm::hasNotificationActiveIs(active);
  if (!resumed || !initialized()) return;
  std::set<Nexo::IntfId> all;
  for (const auto& [intf, watch] : watch_) all.insert(intf);
  for (const auto& [intf, config] : in_.subIntfConfigDir->intfConfig()) all.insert(intf);
  for (const auto& [intf, status] : in_.subIntfStatusDir->intfStatus()) all.insert(intf);
  for (const auto& intf : all) {
    if (Nexo::SubIntfId::isSubIntfId(intf)) syncReactors(intf, published(intf));
  }
}

// --- look-ups ---

Bridging::VlanIdOrNone OrbSubIntfSm::mapIntfIdToVlanId(const Nexo::IntfId& intf) const {
  if (auto it = subIntfIdToInternalVlanId_.find(intf); it != subIntfIdToInternalVlanId_.end()) return it->second;
  if (auto it = pwIntfIdToVlanId_.find(intf); it != pwIntfIdToVlanId_.end()) return it->second;
  return {};
}

std::optional<Nexo::IntfId> OrbSubIntfSm::mapRoutedVlanIdToIntfId(std::uint32_t vlan) const {
  return vlanIdToIntfIdMap_.routedOwner(Bridging::VlanIdOrNone(vlan));
}

OrbSubIntfSm::Published OrbSubIntfSm::published(const Nexo::IntfId& intf) const {
  return {in_.subIntfConfigDir->intfConfig(intf).get(), in_.subIntfStatusDir->intfStatus(intf).get()};
}

SubIntfEncap OrbSubIntfSm::effectiveEncap(const Nexo::IntfId& intf) const {
  return effectiveEncap(intf, in_.subIntfConfigDir->intfConfig(intf).get());
}

SubIntfEncap OrbSubIntfSm::effectiveEncap(const Nexo::IntfId& intf, const Interface::SubIntfConfig* config) const {
  if (!dynamicEncap_.empty()) {
    if (auto it = dynamicEncap_.find(intf); it != dynamicEncap_.end()) return it->second;
  }
  return config ? config->dot1qEncap() : SubIntfEncap{};
}

bool OrbSubIntfSm::isConfigAndStatusReady(const Nexo::IntfId& intf) const {
  return isConfigAndStatusReady(intf, published(intf));
}

bool OrbSubIntfSm::isConfigAndStatusReady(const Nexo::IntfId& intf, const Published& now) const {
  if (!now.config || !now.status || !now.status->initialized()) return false;
  if (effectiveEncap(intf, now.config).isNone()) return false;
  return !now.status->forwardingVlanId().isNone() || in_.localConnectorInfoTable->connectorHas(intf);
}

bool OrbSubIntfSm::subIntfStatusIsOKToAddMap(const Interface::SubIntfStatus& status) const {
  BLIP(trace(), 8, "subIntfStatusIsOKToAddMap intf:{}, operStatus:{}, programInHw:{}", status.intfId().stringValue(),
       Vex::valueToStrep(status.operStatus()), status.programInHw());
  return status.programInHw();
}

std::optional<OrbSubIntfSm::Dot1qEncapAndVlanId> OrbSubIntfSm::wantedMapping(const Nexo::IntfId& intf) const {
  return wantedMapping(intf, published(intf));
}

std::optional<OrbSubIntfSm::Dot1qEncapAndVlanId> OrbSubIntfSm::wantedMapping(const Nexo::IntfId& intf,
                                                                             const Published& now) const {
  if (!isConfigAndStatusReady(intf, now)) return std::nullopt;
  const auto* config = now.config;
  const auto* status = now.status;
  if (!subIntfStatusIsOKToAddMap(*status)) return std::nullopt;
  if (config->macsecProxy() && !macsecProxySubIntf_.count(intf)) return std::nullopt;
  Dot1qEncapAndVlanId entry;
  entry.parentIntf = intf.parentIntfId();
  entry.dot1qEncap = effectiveEncap(intf, config);
  if (in_.localConnectorInfoTable->connectorHas(intf)) {
    entry.vlanId = in_.localConnectorInfoTable->connector(intf);
    entry.isL2SubIntf = true;
    if (entry.vlanId.isNone()) return std::nullopt;
  } else {
    entry.vlanId = status->forwardingVlanId();
    entry.isL2SubIntf = status->isL2SubIntf();
  }
  return entry;
}

// --- reactions ---

OrbSubIntfSm::Watch* OrbSubIntfSm::syncReactors(const Nexo::IntfId& intf, const Published& now) {
  if (!now.config && !now.status) {
    watch_.erase(intf);
    return nullptr;
  }
  Watch& watch = watch_.try_emplace(intf, this).first->second;
  if (watch.config.notifier().get() != now.config) {
    watch.config.notifierIs(Vex::Ptr<Interface::SubIntfConfig>(now.config));
  }
  if (watch.status.notifier().get() != now.status) {
    watch.status.notifierIs(Vex::Ptr<Interface::SubIntfStatus>(now.status));
  }
  return &watch;
}

void OrbSubIntfSm::handleSubIntfConfigAndStatusChange(const Nexo::IntfId& intf) {
  if (!Nexo::SubIntfId::isSubIntfId(intf)) {
    BLIP(trace(), 3, "{} is not a sub-interface, ignored", intf.stringValue());
    return;
  }
  const Published now = published(intf);
  syncReactors(intf, now);
  handleChange(intf, now);
}

void OrbSubIntfSm::handleConfigDirChange(const Nexo::IntfId& intf) { handleDirChange(intf, true); }

void OrbSubIntfSm::handleStatusDirChange(const Nexo::IntfId& intf) { handleDirChange(intf, false); }

void OrbSubIntfSm::handleDirChange(const Nexo::IntfId& intf, bool config) {
  auto watched = watch_.find(intf);
  if (watched == watch_.end() || !Nexo::SubIntfId::isSubIntfId(intf)) {
    handleSubIntfConfigAndStatusChange(intf);
    return;
  }
  // Only the directory that changed is looked into: the watch holds the other.
  Published now = watched->second.published();
  if (config) {
    now.config = in_.subIntfConfigDir->intfConfig(intf).get();
  } else {
    now.status = in_.subIntfStatusDir->intfStatus(intf).get();
  }
  syncReactors(intf, now);
  handleChange(intf, now);
}

void OrbSubIntfSm::handleWatchedChange(const Nexo::IntfId& intf, const Watch& watch) {
  // The directories' reactors keep the watch in step: both entities are
  // the published ones, with no look-up.
  handleChange(intf, watch.published());
}

void OrbSubIntfSm::handleChange(const Nexo::IntfId& intf, const Published& now) {
  if (in_.localConnectorInfoTable->connectorHas(intf)) {
    handlePwEndPoint(intf, now);
    return;
  }
  auto wanted = wantedMapping(intf, now);
  const auto* current = programmed(intf);
  // Both queues are empty but for conflicts and refusals: not looked into then.
  const bool refused = !hwRetryIntf_.empty() && hwRetryIntf_.count(intf) != 0;
  if (current && wanted && *current == *wanted && !programmedAsPwEndPoint(intf) && !refused) {
    if (!conflictedIntf_.empty()) conflictedIntf_.erase(intf);
    return;
  }
  if (current) doDeleteDot1qEncapToVsiMap(intf);
  if (refused) hwRetryIntf_.erase(intf);
  if (!wanted) {
    BLIP(trace(), 7, "{} not ready for hardware", intf.stringValue());
    if (!conflictedIntf_.empty()) conflictedIntf_.erase(intf);
    updateStatuses();
    return;
  }
  if (!checkConflictAndRetry(intf, now, true)) doAddDot1qEncapToVsiMap(intf, *wanted, false);
  updateStatuses();
}

void OrbSubIntfSm::handlePwEndPoint(const Nexo::IntfId& intf) {
  if (!Nexo::SubIntfId::isSubIntfId(intf)) return;
  if (!in_.localConnectorInfoTable->connectorHas(intf)) {
    // No longer a pseudowire end point: an ordinary sub-interface again.
    if (programmedAsPwEndPoint(intf)) doDeleteDot1qEncapToVsiMap(intf);
    pwIntfIdToVlanId_.erase(intf);
    pwIntfIdProgrammedInHw_.erase(intf);
    handleSubIntfConfigAndStatusChange(intf);
    return;
  }
  const Published now = published(intf);
  syncReactors(intf, now);
  handlePwEndPoint(intf, now);
}

void OrbSubIntfSm::handlePwEndPoint(const Nexo::IntfId& intf, const Published& now) {
  const auto* current = programmed(intf);
  auto wanted = wantedMapping(intf, now);
  const bool refused = hwRetryIntf_.count(intf) != 0;
  if (current && wanted && *current == *wanted && programmedAsPwEndPoint(intf) && !refused) return;
  if (current) doDeleteDot1qEncapToVsiMap(intf);
  hwRetryIntf_.erase(intf);
  pwIntfIdToVlanId_.erase(intf);
  pwIntfIdProgrammedInHw_.erase(intf);
  if (wanted) {
    // Checked all the same, for the trace: a port connector never conflicts.
    checkConflictAndRetry(intf, now, true);
    doAddDot1qEncapToVsiMap(intf, *wanted, true);
  }
  updateStatuses();
}

void OrbSubIntfSm::handleDynamicEncap(const Nexo::IntfId& intf) { handleSubIntfConfigAndStatusChange(intf); }

void OrbSubIntfSm::dynamicEncapIs(const Nexo::IntfId& intf, const SubIntfEncap& encap) {
  dynamicEncap_[intf] = encap;
  handleDynamicEncap(intf);
}

void OrbSubIntfSm::dynamicEncapDel(const Nexo::IntfId& intf) {
  if (!dynamicEncap_.erase(intf)) return;
  handleDynamicEncap(intf);
}

void OrbSubIntfSm::handleMacsecProxySubIntfStatus(const Nexo::IntfId& intf) {
  if (in_.macsecProxyStatus->proxySubIntfHas(intf)) {
    macsecProxySubIntf_[intf] = in_.macsecProxyStatus->proxySubIntf(intf);
  } else {
    macsecProxySubIntf_.erase(intf);
  }
  BLIP(trace(), 5, "macsec proxy {} for {}", macsecProxySubIntf_.count(intf) ? "up" : "down", intf.stringValue());
  handleSubIntfConfigAndStatusChange(intf);
}

void OrbSubIntfSm::handleMultiEncapIntf(const Nexo::IntfId& intf) {
  std::vector<Nexo::IntfId> children;
  for (const auto& [sub, config] : in_.subIntfConfigDir->intfConfig()) {
    if (sub.parentIntfId() == intf.parentIntfId()) children.push_back(sub);
  }
  // In name order, as conflicts between them are settled first come, first served.
  std::sort(children.begin(), children.end());
  for (const auto& sub : children) handleSubIntfConfigAndStatusChange(sub);
}

void OrbSubIntfSm::handlePortToLag(const Nexo::IntfId& port) {
  const Nexo::IntfId& lag = ocsd()->portToLag(port);
  auto told = lagMemberTold_.find(port);
  if (told != lagMemberTold_.end() && told->second != lag) {
    BLIP(trace(), 5, "doDeletePortFromLag {} (was in {})", port.stringValue(), told->second.stringValue());
    in_.orbHelper->doDeletePortFromLag(port);
    lagMemberTold_.erase(told);
  }
  if (!lag.empty()) syncLagMembers(lag);
}

void OrbSubIntfSm::syncLagMembers(const Nexo::IntfId& lag) {
  const bool carries = carriedByLag_.count(lag) != 0;
  for (const auto& [port, state] : ocsd()->lagToPort(lag).ports) {
    auto told = lagMemberTold_.find(port);
    if (carries && told == lagMemberTold_.end()) {
      BLIP(trace(), 5, "doAddPortToLag {} {}", port.stringValue(), lag.stringValue());
      in_.orbHelper->doAddPortToLag(port, lag);
      lagMemberTold_[port] = lag;
    } else if (!carries && told != lagMemberTold_.end()) {
      BLIP(trace(), 5, "doDeletePortFromLag {}", port.stringValue());
      in_.orbHelper->doDeletePortFromLag(port);
      lagMemberTold_.erase(told);
    }
  }
}

// --- conflicts and retries ---

bool OrbSubIntfSm::checkConflictAndRetry(const Nexo::IntfId& intf, bool retry) {
  return checkConflictAndRetry(intf, published(intf), retry);
}

bool OrbSubIntfSm::checkConflictAndRetry(const Nexo::IntfId& intf, const Published& now, bool retry) {
  if (!Nexo::SubIntfId::isSubIntfId(intf)) orbAssert("Nexo::SubIntfId::isSubIntfId( intfId )");
  if (in_.localConnectorInfoTable->connectorHas(intf)) {
    BLIP(trace(), 5, "{} is a port connector, skipping", intf.stringValue());
    conflictedIntf_.erase(intf);
    return false;
  }
  const auto* status = now.status;
  const SubIntfEncap encap = effectiveEncap(intf, now.config);
  const bool checkTagConflict = !encap.isNone();
  const bool checkVlanIdConflict = status && !status->forwardingVlanId().isNone();
  bool tagConflict = false;
  std::optional<Nexo::IntfId> conflictingIntf;
  if (checkTagConflict) {
    auto it = parentIntfIdAndDot1qEncapMap_.find({intf.parentIntfId(), encap});
    if (it != parentIntfIdAndDot1qEncapMap_.end() && it->second != intf) {
      tagConflict = true;
      conflictingIntf = it->second;
    }
  }
  bool vlanIdConflict = false;
  if (checkVlanIdConflict) {
    if (auto other = vlanIdToIntfIdMap_.conflictingIntfId(intf, status->forwardingVlanId(), status->isL2SubIntf())) {
      vlanIdConflict = true;
      if (!conflictingIntf) conflictingIntf = other;
    }
  }
  const bool returnValue = tagConflict || vlanIdConflict;
  BLIP(trace(), 5,
       "checkConflictAndRetry intf:{}, checkTagConflict:{}, checkVlanIdConflict:{}, tagConflict:{}, "
       "vlanIdConflict:{}, conflicting:{}, returnValue:{}",
       intf.stringValue(), checkTagConflict, checkVlanIdConflict, tagConflict, vlanIdConflict,
       conflictingIntf ? conflictingIntf->stringValue() : std::string("none"), returnValue);
  if (!returnValue) {
    if (!conflictedIntf_.empty()) conflictedIntf_.erase(intf);
    return false;
  }
  BLIP(trace(), 3, "Adding {} to conflict retry Q", intf.stringValue());
  conflictedIntf_[intf] = true;
  if (retry) armRetryTimer();
  return true;
}

void OrbSubIntfSm::armRetryTimer() {
  if (retryArmed_) {
    BLIP(trace(), 7, "Retry conflict Q timer already set");
    return;
  }
  const Vex::Seconds at = Vex::now() + retryInterval_;
  BLIP(trace(), 5, "Retry conflicted Q timer scheduled at {}, delay: {}", at, retryInterval_);
  retryArmed_ = true;
  clock_->timeMinIs(at);
}

void OrbSubIntfSm::retryConflictedIntfs() {
  retryArmed_ = false;
  std::vector<Nexo::IntfId> waiting;
  for (const auto& [intf, conflicted] : conflictedIntf_) waiting.push_back(intf);
  waiting.insert(waiting.end(), hwRetryIntf_.begin(), hwRetryIntf_.end());
  for (const auto& intf : waiting) {
    BLIP(trace(), 5, "Retrying programming {}", intf.stringValue());
    if (in_.localConnectorInfoTable->connectorHas(intf)) {
      handlePwEndPoint(intf);
    } else {
      handleSubIntfConfigAndStatusChange(intf);
    }
  }
}

// --- programming ---

void OrbSubIntfSm::doAddDot1qEncapToVsiMap(const Nexo::IntfId& intf, const Dot1qEncapAndVlanId& entry,
                                           bool pwEndPoint) {
  if (pwEndPoint) {
    pwIntfIdToVlanId_[intf] = entry.vlanId;
  } else {
    vlanIdToIntfIdMap_.updateConfig(intf, entry.vlanId, entry.isL2SubIntf, true);
    subIntfIdToInternalVlanId_[intf] = entry.vlanId;
  }
  parentIntfIdAndDot1qEncapMap_[{entry.parentIntf, entry.dot1qEncap}] = intf;
  if (entry.parentIntf.isLag()) ++carriedByLag_[entry.parentIntf];
  if (auto replaced = in_.hwConfig->intfIdToDot1qEncapAndVlanIdExchange(intf, entry)) {
    carriedByLagDec(replaced->parentIntf);
  }
  if (!dynamicEncap_.empty() && dynamicEncap_.count(intf)) {
    dynamicEncapStatus_[intf] = entry.dot1qEncap;
  } else if (!dynamicEncapStatus_.empty()) {
    dynamicEncapStatus_.erase(intf);
  }
  std::uint32_t status =
      in_.orbHelper->doAddDot1qEncapToVsiMap(intf, entry.parentIntf, entry.vlanId, entry.dot1qEncap, entry.isL2SubIntf);
  if (status == OrbTypes::tableAddSuccess) {
    BLIP(trace(), 5, "OrbSubIntfSm:doAddDot1qEncapToVsiMap added (dot1qEncap:{}), vlanId:{}) map on intf:{}",
         encapText(entry.dot1qEncap), entry.vlanId.value(), intf.stringValue());
  } else {
    BLIP(trace(), 1, "OrbSubIntfSm:doAddDot1qEncapToVsiMap {}: Helper failure: status {}", intf.stringValue(), status);
    // Busy clears by itself and a full table may gain room: both are tried
    // again with the queue. Any other failure waits for a change.
    if (status == OrbTypes::tableAddBusy || status == OrbTypes::tableAddFull) {
      hwRetryIntf_.insert(intf);
      armRetryTimer();
    }
  }
  if (pwEndPoint) pwIntfIdProgrammedInHw_[intf] = status == OrbTypes::tableAddSuccess;
  doUpdateSubIntfTableAddStatus(intf, entry, status);
  if (entry.parentIntf.isLag()) syncLagMembers(entry.parentIntf);
}

void OrbSubIntfSm::doDeleteDot1qEncapToVsiMap(const Nexo::IntfId& intf) {
  const auto* programmedEntry = programmed(intf);
  if (!programmedEntry) return;
  struct {
    Dot1qEncapAndVlanId entry;
    bool pwEndPoint;
  } const old{*programmedEntry, programmedAsPwEndPoint(intf)};
  carriedByLagDec(old.entry.parentIntf);
  const bool inHardware = in_.hwStatus->intfIdToDot1qEncapAndVlanId(intf).tableAddStatus == OrbTypes::tableAddSuccess &&
                          in_.hwStatus->intfIdToDot1qEncapAndVlanIdHas(intf);
  if (inHardware) {
    in_.orbHelper->doDeleteDot1qEncapToVsiMap(intf, old.entry.parentIntf, old.entry.vlanId, old.entry.dot1qEncap,
                                              old.entry.isL2SubIntf);
    BLIP(trace(), 5, "OrbSubIntfSm:doDeleteDot1qEncapToVsiMap deleted (dot1qEncap:{}), vlanId:{}) map on intf:{}",
         encapText(old.entry.dot1qEncap), old.entry.vlanId.value(), intf.stringValue());
  }
  if (old.pwEndPoint) {
    pwIntfIdToVlanId_.erase(intf);
    pwIntfIdProgrammedInHw_.erase(intf);
  } else {
    vlanIdToIntfIdMap_.updateConfig(intf, old.entry.vlanId, old.entry.isL2SubIntf, false);
    subIntfIdToInternalVlanId_.erase(intf);
  }
  auto key = ParentIntfIdAndDot1qEncap{old.entry.parentIntf, old.entry.dot1qEncap};
  if (auto owner = parentIntfIdAndDot1qEncapMap_.find(key);
      owner != parentIntfIdAndDot1qEncapMap_.end() && owner->second == intf) {
    parentIntfIdAndDot1qEncapMap_.erase(owner);
  }
  dynamicEncapStatus_.erase(intf);
  in_.hwConfig->intfIdToDot1qEncapAndVlanIdDel(intf);
  BLIP(trace(), 6, "{} Delete map in hwStatus->intfIdToDot1qEncapAndVlanId()", intf.stringValue());
  hwSucceededAdjust(intf, false);
  in_.hwStatus->intfIdToDot1qEncapAndVlanIdDel(intf);
  if (old.entry.parentIntf.isLag()) syncLagMembers(old.entry.parentIntf);
}

void OrbSubIntfSm::doUpdateSubIntfTableAddStatus(const Nexo::IntfId& intf, const Dot1qEncapAndVlanId& entry,
                                                 std::uint32_t status) {
  BLIP(trace(), 5,
       "doUpdateSubIntfTableAddStatus, update SubIntf VlanXlate         tbl add status for subIntfId:{} innerTag:{}, "
       "dot1qEncap outerTag:{}, vlanId:{}, isL2SubIntf:{}, status:{}",
       intf.stringValue(), entry.dot1qEncap.innerTag, entry.dot1qEncap.outerTag, entry.vlanId.value(),
       entry.isL2SubIntf, status);
  Dot1qEncapAndVlanId taken = entry;
  taken.tableAddStatus = status;
  BLIP(trace(), 6, "{} Add map to hwStatus->intfIdToDot1qEncapAndVlanId()", intf.stringValue());
  auto previous = in_.hwStatus->intfIdToDot1qEncapAndVlanIdExchange(intf, taken);
  if (hwSucceeded_) {
    const bool was = previous && previous->tableAddStatus == OrbTypes::tableAddSuccess;
    *hwSucceeded_ += static_cast<std::size_t>(status == OrbTypes::tableAddSuccess) - static_cast<std::size_t>(was);
  }
}

std::size_t OrbSubIntfSm::hwSucceeded() {
  if (!hwSucceeded_) {
    // Counted once (the status may hold entries from before a restart),
    // then kept by the two writers, so that an add costs no walk.
    std::size_t count = 0;
    for (const auto& [intf, entry] : in_.hwStatus->intfIdToDot1qEncapAndVlanId())
      count += entry.tableAddStatus == OrbTypes::tableAddSuccess;
    hwSucceeded_ = count;
  }
  return *hwSucceeded_;
}

void OrbSubIntfSm::hwSucceededAdjust(const Nexo::IntfId& intf, bool succeeded) {
  if (!hwSucceeded_) return;
  const bool was = in_.hwStatus->intfIdToDot1qEncapAndVlanIdHas(intf) &&
                   in_.hwStatus->intfIdToDot1qEncapAndVlanId(intf).tableAddStatus == OrbTypes::tableAddSuccess;
  *hwSucceeded_ += static_cast<std::size_t>(succeeded) - static_cast<std::size_t>(was);
}

const OrbSubIntfSm::Dot1qEncapAndVlanId* OrbSubIntfSm::programmed(const Nexo::IntfId& intf) const {
  const auto& programmed = in_.hwConfig->intfIdToDot1qEncapAndVlanId();
  auto it = programmed.find(intf);
  return it == programmed.end() ? nullptr : &it->second;
}

void OrbSubIntfSm::carriedByLagDec(const Nexo::IntfId& parentIntf) {
  if (!parentIntf.isLag()) return;
  auto it = carriedByLag_.find(parentIntf);
  if (it != carriedByLag_.end() && --it->second == 0) carriedByLag_.erase(it);
}

void OrbSubIntfSm::updateStatuses() {
  std::pair<bool, bool> now{hwSucceeded() != 0, !conflictedIntf_.empty()};
  if (lastStatuses_ == now) return;
  lastStatuses_ = now;
  in_.orbHelper->doUpdateStatuses(now.first, now.second);
}

// --- verification ---

void OrbSubIntfSm::mismatch(VerifyReport& report, std::string line, int sourceLine) {
  BLIP(trace(), 3, "verify: {}", line);
  if (std::getenv("SIMULATION_VMID")) {
    verificationFailures_.push_back(fmt::format("{}:{}: {}", subIntfSource, sourceLine, line));
  }
  report.mismatch(std::move(line));
}

void OrbSubIntfSm::handleVerify() {
  VerifyReport report;
  handleVerify(report);
  if (auto verifyData = ocsd()->verifyData()) verifyData->outputIs(verifyName(), report.lines());
}

void OrbSubIntfSm::handleVerify(VerifyReport& report) {
  if (disableVerify_) {
    BLIP(trace(), 5, "verification disabled");
    return;
  }
  std::set<Nexo::IntfId> all;
  for (const auto& [intf, config] : in_.subIntfConfigDir->intfConfig()) all.insert(intf);
  for (const auto& [intf, entry] : in_.hwConfig->intfIdToDot1qEncapAndVlanId()) all.insert(intf);
  for (const auto& intf : all) {
    verifyHwConfig(intf, report);
    verifyHwStatus(intf, intf.parentIntfId(), report);
    verifyParentIntfIdAndDot1qEncapMap(intf, intf.parentIntfId(), report);
  }
}

void OrbSubIntfSm::verifyHwConfig(const Nexo::IntfId& intf, VerifyReport& report) {
  const std::string name = intf.stringValue();
  const bool inHwConfig = in_.hwConfig->intfIdToDot1qEncapAndVlanIdHas(intf);
  auto config = in_.subIntfConfigDir->intfConfig(intf);
  if (!config) {
    if (inHwConfig) mismatch(report, name + " is member of hwConfig->intfIdToDot1qEncapAndVlanIdIterator", __LINE__);
    return;
  }
  auto wanted = wantedMapping(intf);
  const bool waiting = conflictedIntf_.count(intf) != 0;
  if (!wanted || waiting) {
    if (inHwConfig) mismatch(report, name + " is member of hwConfig->intfIdToDot1qEncapAndVlanIdIterator", __LINE__);
    return;
  }
  if (!inHwConfig) {
    mismatch(report, name + " hwConfig invalid", __LINE__);
    return;
  }
  const auto& hw = in_.hwConfig->intfIdToDot1qEncapAndVlanId(intf);
  if (!dynamicEncap_.count(intf) && config->dot1qEncap() != hw.dot1qEncap) {
    mismatch(report,
             fmt::format("{}: subIntfConfigDot1qEncap({}) != hwConfigDot1qEncap({})", name,
                         encapText(config->dot1qEncap()), encapText(hw.dot1qEncap)),
             __LINE__);
  }
  if (wanted->vlanId != hw.vlanId) {
    mismatch(report,
             fmt::format("{}: subIntfStatusVlanId({}) != hwConfigVlanId({})", name, wanted->vlanId.value(),
                         hw.vlanId.value()),
             __LINE__);
  }
  if (wanted->isL2SubIntf != hw.isL2SubIntf) {
    mismatch(report,
             fmt::format("{}: isL2SubIntf({}) != hwConfigIsL2SubIntf({})", name, wanted->isL2SubIntf, hw.isL2SubIntf),
             __LINE__);
  }
  auto dynamic = dynamicEncap_.find(intf);
  auto applied = dynamicEncapStatus_.find(intf);
  if (dynamic != dynamicEncap_.end() && (applied == dynamicEncapStatus_.end() || applied->second != dynamic->second)) {
    mismatch(report,
             fmt::format("{}: dynamicEncap({}) != dynamicEncapStatus({})", name, encapText(dynamic->second),
                         applied == dynamicEncapStatus_.end() ? std::string("none") : encapText(applied->second)),
             __LINE__);
  }
}

void OrbSubIntfSm::verifyHwStatus(const Nexo::IntfId& intf, const Nexo::IntfId& parentIntf, VerifyReport& report) {
  const bool inConfig = in_.hwConfig->intfIdToDot1qEncapAndVlanIdHas(intf);
  const bool inStatus = in_.hwStatus->intfIdToDot1qEncapAndVlanIdHas(intf);
  if (!inConfig && !inStatus) return;
  if (inConfig != inStatus) {
    mismatch(report,
             fmt::format("{} on {}: hwStatus {} hwConfig", intf.stringValue(), parentIntf.stringValue(),
                         inStatus ? "has no" : "missing from"),
             __LINE__);
    return;
  }
  Dot1qEncapAndVlanId asked = in_.hwConfig->intfIdToDot1qEncapAndVlanId(intf);
  Dot1qEncapAndVlanId taken = in_.hwStatus->intfIdToDot1qEncapAndVlanId(intf);
  asked.tableAddStatus = taken.tableAddStatus;
  if (asked != taken) {
    mismatch(report,
             fmt::format("{} on {}: hwStatus differs from hwConfig", intf.stringValue(), parentIntf.stringValue()),
             __LINE__);
  }
}

void OrbSubIntfSm::verifyParentIntfIdAndDot1qEncapMap(const Nexo::IntfId& intf, const Nexo::IntfId& parentIntf,
                                                      VerifyReport& report) {
  if (const auto* entry = programmed(intf)) {
    auto owner = parentIntfIdAndDot1qEncapMap_.find({parentIntf, entry->dot1qEncap});
    if (owner == parentIntfIdAndDot1qEncapMap_.end() || owner->second != intf) {
      mismatch(report,
               fmt::format("{}: ({}, {}) is NOT in parentIntfIdAndDot1qEncapMap", intf.stringValue(),
                           parentIntf.stringValue(), encapText(entry->dot1qEncap)),
               __LINE__);
    }
    return;
  }
  for (const auto& [key, owner] : parentIntfIdAndDot1qEncapMap_) {
    if (owner != intf) continue;
    mismatch(report,
             fmt::format("{}: ({}, {}) is in parentIntfIdAndDot1qEncapMap", intf.stringValue(),
                         key.parentIntfId.stringValue(), encapText(key.dot1qEncap)),
             __LINE__);
  }
}

Vex::Ptr<OrbSubIntfSm> orbSubIntfSmFactory(const SubIntfSmInputs& inputs) { return Vex::make<OrbSubIntfSm>(inputs); }

// --- mounting ---

SubIntfMounter::SubIntfMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                               const Vex::Ptr<OrbHelper::OrbHelperSubIntf>& orbHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
}

void SubIntfMounter::doMounts() {
  inputs_.subIntfConfigDir = hive_->mount<Interface::SubIntfConfigDir>(subIntfConfigPath, "subIntfConfigDir");
  inputs_.subIntfStatusDir = hive_->mount<Interface::SubIntfStatusDir>(subIntfStatusPath, "subIntfStatusDir");
  inputs_.localConnectorInfoTable =
      hive_->mount<Pseudowire::LocalConnectorInfoTable>(localConnectorPath, "localConnectorInfoTable");
  inputs_.macsecProxyStatus = hive_->mount<MacsecProxy::Status>(macsecProxyStatusPath, "macsecProxyStatus");
  inputs_.hwConfig = hive_->mount<Hardware::SubIntf::Config>(hwConfigPath, "hwConfig");
  inputs_.hwStatus = hive_->mount<Hardware::SubIntf::Status>(hwStatusPath, "hwStatus");
}

Vex::Ptr<OrbSubIntfSm> SubIntfMounter::doMountsComplete() { return orbSubIntfSmFactory(inputs_); }

}  // namespace Orb
