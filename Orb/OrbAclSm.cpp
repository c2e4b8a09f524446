#include "Orb/OrbAclSm.h"

#include "Orb/OrbAssert.h"
#include "platform/vex/Reactor.h"
#include "platform/vex/Time.h"

#include <fmt/format.h>

namespace Orb {

// ---- AclDirectionTypeConfigSm ------------------------------------------

AclDirectionTypeConfigSm::AclDirectionTypeConfigSm(Acl::AclDirection direction, AclTypeConfigSm* typeSm)
    : OrbBaseSm(typeSm->ocsd()), direction_(direction), typeSm_(typeSm) {
  if (direction != Acl::AclDirection::aclIn && direction != Acl::AclDirection::aclOut) {
    BLIP(aclTrace(), 1, "ACL Direction State machine doesn't recognize direction {}", static_cast<int>(direction));
  }
  initializedIs(true);
}

AclDirectionTypeConfigSm::~AclDirectionTypeConfigSm() { vexDoZombieReactors(true); }

IntfPairKey AclDirectionTypeConfigSm::intfPair(const Nexo::IntfId& intf) const {
  if (intf.isEthernet() && !intf.isSubIntf()) return {intf, ocsd()->portToLag(intf)};
  return {intf, {}};
}

std::string AclDirectionTypeConfigSm::wantedAcl(const Nexo::IntfId& intf) const {
  const auto& config = typeSm_->aclIntfTypeConfig();
  if (!config) return {};
  // A LAG's list applies to its members; a member's own list is what it
  // keeps when it leaves (or when its LAG has none).
  if (intf.isEthernet() && !intf.isSubIntf()) {
    const Nexo::IntfId lag = ocsd()->portToLag(intf);
    if (!lag.empty()) {
      const std::string lagAcl = config->intf(lag).aclName(direction_);
      if (!lagAcl.empty()) return lagAcl;
    }
  }
  return config->intf(intf).aclName(direction_);
}

void AclDirectionTypeConfigSm::handleAclIntfConfig(const Nexo::IntfId& intf) {
  if (intf.isLag() && !intf.isSubIntf()) {
    for (const auto& [port, lag] : ocsd()->portToLag()) {
      if (lag == intf) handleAclIntfConfig(port);
    }
    return;
  }
  const std::string wanted = wantedAcl(intf);
  auto bound = binding_.find(intf);
  const std::string current = bound == binding_.end() ? std::string() : bound->second;
  const IntfPairKey pair = intfPair(intf);
  if (wanted == current) {
    if (!current.empty() && boundAt_[intf] != pair)
      updateAclOnLagMember(intf, boundAt_[intf].lagIntfId, pair.lagIntfId);
    return;
  }
  if (!current.empty()) {
    if (auto* sm = typeSm_->aclConfigSm(current)) sm->portActiveDel(boundAt_[intf], direction_, false);
    binding_.erase(intf);
    boundAt_.erase(intf);
  }
  if (!wanted.empty()) {
    binding_[intf] = wanted;
    boundAt_[intf] = pair;
    if (auto* sm = typeSm_->aclConfigSm(wanted)) sm->portActiveIs(pair, direction_, true, false);
  }
}

void AclDirectionTypeConfigSm::updateAclOnLagMember(const Nexo::IntfId& member, const Nexo::IntfId& oldLag,
                                                    const Nexo::IntfId& newLag) {
  auto bound = binding_.find(member);
  if (bound == binding_.end()) return;
  BLIP(aclTrace(), 3, "updateAclOnLagMember( lagMember={}, oldLagId={}, newLagId={} )", member.stringValue(),
       oldLag.stringValue(), newLag.stringValue());
  auto* sm = typeSm_->aclConfigSm(bound->second);
  const IntfPairKey newPair{member, newLag};
  if (sm) sm->portActiveDel(boundAt_[member], direction_, false);
  boundAt_[member] = newPair;
  if (sm) sm->portActiveIs(newPair, direction_, true, false);
}

void AclDirectionTypeConfigSm::bindWaiting(const std::string& aclName) {
  auto* sm = typeSm_->aclConfigSm(aclName);
  if (!sm) return;
  for (const auto& [intf, name] : binding_) {
    if (name == aclName) sm->portActiveIs(boundAt_[intf], direction_, true, false);
  }
}

void AclDirectionTypeConfigSm::rebindAll() {
  for (const auto& [intf, name] : binding_) {
    auto* sm = typeSm_->aclConfigSm(name);
    if (!sm) continue;
    sm->portActiveDel(boundAt_[intf], direction_, false);
    sm->portActiveIs(boundAt_[intf], direction_, true, false);
  }
}

std::uint32_t AclDirectionTypeConfigSm::allocateAclNumber() {
  if (freeAclMetadata_.count) return freeAclPop();
  if (nextFreshNumber_ > maxAclNumber) return 0;
  return nextFreshNumber_++;
}

void AclDirectionTypeConfigSm::releaseAclNumber(std::uint32_t number) {
  ORB_ASSERT(number != 0 && number < nextFreshNumber_);
  freeAclPush(number);
}

void AclDirectionTypeConfigSm::freeAclIs(std::uint32_t index, std::uint32_t value) { freeAcl_[index] = value; }

void AclDirectionTypeConfigSm::freeAclDel(std::uint32_t index) { freeAcl_.erase(index); }

std::uint32_t AclDirectionTypeConfigSm::freeAcl(std::uint32_t index) const {
  auto it = freeAcl_.find(index);
  return it == freeAcl_.end() ? 0 : it->second;
}

void AclDirectionTypeConfigSm::freeAclPush(std::uint32_t value) {
  freeAclIs(freeAclMetadata_.next, value);
  ++freeAclMetadata_.next;
  ++freeAclMetadata_.count;
}

std::uint32_t AclDirectionTypeConfigSm::freeAclPop() {
  if (!freeAclMetadata_.count) return 0;
  const std::uint32_t value = freeAcl(freeAclMetadata_.head);
  freeAclDel(freeAclMetadata_.head);
  ++freeAclMetadata_.head;
  --freeAclMetadata_.count;
  return value;
}

// ---- AclTypeConfigSm -----------------------------------------------------

class AclTypeConfigSm::TypeConfigReactor : public Vex::Reactor<Acl::AclTypeConfig, AclTypeConfigSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Acl, std::string, handleAcl)
  VEX_REACT(Sharing, handleSharing)
};

class AclTypeConfigSm::IntfTypeConfigReactor : public Vex::Reactor<Acl::AclIntfTypeConfig, AclTypeConfigSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Intf, Nexo::IntfId, handleIntf)
};

AclTypeConfigSm::AclTypeConfigSm(Acl::AclType type, AclSm* root) : OrbBaseSm(root->ocsd()), type_(type), root_(root) {
  if (type != Acl::ip() && type != Acl::ipv6() && type != Acl::mac()) {
    BLIP(aclTrace(), 1, "ACL Type State machine doesn't recognize type {}", static_cast<int>(type));
    orbAssert("0 && \"acl type not supported\"");
  }
  directionSms_[0] = Vex::make<AclDirectionTypeConfigSm>(Acl::AclDirection::aclIn, this);
  directionSms_[1] = Vex::make<AclDirectionTypeConfigSm>(Acl::AclDirection::aclOut, this);
  initializedIs(true);
}

AclTypeConfigSm::~AclTypeConfigSm() {
  vexDoZombieReactors(true);
  typeConfigReactor_.reset();
  intfTypeConfigReactor_.reset();
  configSms_.clear();
}

AclConfigSm* AclTypeConfigSm::aclConfigSm(const std::string& name) const {
  auto it = configSms_.find(name);
  return it == configSms_.end() ? nullptr : it->second.get();
}

AclDirectionTypeConfigSm& AclTypeConfigSm::directionSm(Acl::AclDirection direction) const {
  return *directionSms_[direction == Acl::AclDirection::aclOut ? 1 : 0];
}

void AclTypeConfigSm::aclTypeConfigIs(const Vex::Ptr<Acl::AclTypeConfig>& config) {
  if (config == aclTypeConfig_) return;
  typeConfigReactor_.reset();
  aclTypeConfig_ = config;
  if (config) typeConfigReactor_ = std::make_unique<TypeConfigReactor>(this, config);
  std::set<std::string> names;
  for (const auto& [name, sm] : configSms_) names.insert(name);
  if (config) {
    for (const auto& [name, acl] : config->acl()) names.insert(name);
  }
  for (const auto& name : names) handleAcl(name);
  handleSharing();
}

void AclTypeConfigSm::aclIntfTypeConfigIs(const Vex::Ptr<Acl::AclIntfTypeConfig>& config) {
  if (config == aclIntfTypeConfig_) return;
  intfTypeConfigReactor_.reset();
  std::set<Nexo::IntfId> intfs;
  for (int d = 0; d < 2; ++d) {
    for (const auto& [intf, name] : directionSms_[d]->binding()) intfs.insert(intf);
  }
  aclIntfTypeConfig_ = config;
  if (config) {
    intfTypeConfigReactor_ = std::make_unique<IntfTypeConfigReactor>(this, config);
    for (const auto& [intf, bindings] : config->intf()) intfs.insert(intf);
  }
  for (const auto& intf : intfs) handleIntf(intf);
}

void AclTypeConfigSm::handleInitialized() {}

void AclTypeConfigSm::handleAcl(const std::string& name) {
  auto config = aclTypeConfig_ ? aclTypeConfig_->acl(name) : nullptr;
  auto it = configSms_.find(name);
  if (it != configSms_.end() && it->second->aclConfig() == config) return;
  if (it != configSms_.end()) {
    BLIP(aclTrace(), 3, "ACL {} {} removed", Acl::aclTypeName(type_), name);
    it->second->destroyingIs(true);
    it->second->uninstallAcl(true);
    configSms_.erase(it);
    if (const auto& status = root_->aclStatus()) status->aclStatusDel({type_, name});
  }
  if (config) {
    BLIP(aclTrace(), 3, "ACL {} {} configured", Acl::aclTypeName(type_), name);
    configSms_[name] = aclConfigSmFactory(config, this, root_);
    if (const auto& status = root_->aclStatus()) status->aclStatusIs({type_, name});
    directionSms_[0]->bindWaiting(name);
    directionSms_[1]->bindWaiting(name);
  }
  root_->doApplyAcls(false);
}

void AclTypeConfigSm::handleSharing() {
  const bool sharing = !aclTypeConfig_ || aclTypeConfig_->sharing();
  if (sharing == sharing_) return;
  sharing_ = sharing;
  BLIP(aclTrace(), 3, "{} acl sharing {}", Acl::aclTypeName(type_), sharing ? "enabled" : "disabled");
  directionSms_[0]->rebindAll();
  directionSms_[1]->rebindAll();
  root_->doApplyAcls(false);
}

void AclTypeConfigSm::handleIntf(const Nexo::IntfId& intf) {
  directionSms_[0]->handleAclIntfConfig(intf);
  directionSms_[1]->handleAclIntfConfig(intf);
  if (intf.isLag() && intf.isSubIntf()) root_->lagSubIntfBindingChanged(intf);
  root_->doApplyAcls(false);
}

// ---- AclSm ---------------------------------------------------------------

class AclSm::ConfigReactor : public Vex::Reactor<Acl::Config, AclSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(AclTypeConfig, Acl::AclType, handleAclTypeConfig)
  VEX_REACT_KEY(AclIntfTypeConfig, Acl::AclType, handleAclIntfTypeConfig)
};

class AclSm::CommonReactor : public Vex::Reactor<OrbCommonSmData, AclSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(PortToLag, Nexo::IntfId, handlePortToLag)
  VEX_REACT_KEY(InternalVlan, Nexo::IntfId, handleInternalVlan)
};

class AclSm::SpeedReactor : public Vex::Reactor<Interface::EthPhyIntfStatusDir, AclSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Speed, Nexo::IntfId, handleIntfConfigOnSpeedChange)
};

class AclSm::SwitchportReactor : public Vex::Reactor<Bridging::Config, AclSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(SwitchIntfConfig, Nexo::IntfId, handleSwitchIntfConfig)
};

AclSm::AclSm(const AclSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT(in_.orbHelper);
  ORB_ASSERT(in_.aclConfig);
  configReactor_ = std::make_unique<ConfigReactor>(this, in_.aclConfig);
  commonReactor_ = std::make_unique<CommonReactor>(this, in_.ocsd);
  if (in_.ethPhyIntfStatusDir) speedReactor_ = std::make_unique<SpeedReactor>(this, in_.ethPhyIntfStatusDir);
  if (in_.bridgingConfig) {
    switchportReactor_ = std::make_unique<SwitchportReactor>(this, in_.bridgingConfig);
    switchIntfConfig_.insert(in_.bridgingConfig->switchIntfConfig().begin(),
                             in_.bridgingConfig->switchIntfConfig().end());
  }
  updaterClock_ = Vex::clockFactory([this] { handleTime(); });
  clockIs(updaterClock_);
  in_.orbHelper->opsCompletedHandlerIs([this](std::uint32_t count) { handleAclDataOpsCompleted(count); });
  in_.orbHelper->hwInit();
  countersPoller_ = Vex::make<AclCountersPoller>(this);
  initializedIs(true);
}

AclSm::~AclSm() {
  vexDoZombieReactors(true);
  in_.orbHelper->opsCompletedHandlerIs(nullptr);
  updaterClock_->timeMinIs(Vex::never);
  clockDel(updaterClock_);
  countersPoller_.reset();
  configReactor_.reset();
  commonReactor_.reset();
  speedReactor_.reset();
  switchportReactor_.reset();
  lagSms_.clear();
  aclIntfSms_.clear();
  typeSms_.clear();
}

Vex::Ptr<AclSm> aclSmFactory(const AclSmInputs& inputs) { return Vex::make<AclSm>(inputs); }

AclTypeConfigSm* AclSm::aclTypeConfigSm(Acl::AclType type) const {
  auto it = typeSms_.find(type);
  return it == typeSms_.end() ? nullptr : it->second.get();
}

void AclSm::handleInitialized() {
  std::set<Acl::AclType> types;
  for (const auto& [type, config] : in_.aclConfig->aclTypeConfig()) types.insert(type);
  for (const auto& [type, config] : in_.aclConfig->aclIntfTypeConfig()) types.insert(type);
  for (auto type : types) {
    handleAclTypeConfig(type);
    handleAclIntfTypeConfig(type);
  }
}

void AclSm::handleAclTypeConfig(Acl::AclType type) {
  auto* sm = aclTypeConfigSm(type);
  if (!sm) {
    sm = (typeSms_[type] = Vex::make<AclTypeConfigSm>(type, this)).get();
    sm->aclIntfTypeConfigIs(in_.aclConfig->aclIntfTypeConfig(type));
  }
  sm->aclTypeConfigIs(in_.aclConfig->aclTypeConfig(type));
}

void AclSm::handleAclIntfTypeConfig(Acl::AclType type) {
  auto* sm = aclTypeConfigSm(type);
  if (!sm) {
    sm = (typeSms_[type] = Vex::make<AclTypeConfigSm>(type, this)).get();
    sm->aclTypeConfigIs(in_.aclConfig->aclTypeConfig(type));
  }
  sm->aclIntfTypeConfigIs(in_.aclConfig->aclIntfTypeConfig(type));
}

void AclSm::handlePortToLag(const Nexo::IntfId& intf) {
  if (!intf.isEthernet() || intf.isSubIntf()) return;
  auto& sm = lagSms_[intf];
  if (!sm) sm = Vex::make<EthPhyIntfLagConfigAclSm>(intf, this);
  sm->handleLag();
  if (sm->lag().empty()) lagSms_.erase(intf);
  doApplyAcls(false);
}

void AclSm::handleIntfConfigOnSpeedChange(const Nexo::IntfId& intf) {
  // A port's ACL resources on some chips depend on its speed.
  reapplyAt(intf, "speed changed for ");
}

void AclSm::handleSwitchIntfConfig(const Nexo::IntfId& intf) {
  // A port's lists are programmed differently as a switched port (on its
  // VLANs) and as a routed one (on its internal VLAN).
  const Bridging::SwitchIntfConfig now = in_.bridgingConfig->switchIntfConfig(intf);
  auto seen = switchIntfConfig_.find(intf);
  const Bridging::SwitchIntfConfig before =
      seen == switchIntfConfig_.end() ? Bridging::SwitchIntfConfig{} : seen->second;
  if (in_.bridgingConfig->switchIntfConfigHas(intf)) {
    switchIntfConfig_[intf] = now;
  } else if (seen != switchIntfConfig_.end()) {
    switchIntfConfig_.erase(seen);
  }
  if (now.mode != before.mode) {
    BLIP(aclTrace(), 4, "switchport mode changed for {}", intf.stringValue());
    reapplyAt(intf, "switchport mode changed for ");
  }
  if (now.cfgVlanId != before.cfgVlanId) {
    BLIP(aclTrace(), 4, "cfgVlanId changed for {}", intf.stringValue());
    reapplyAt(intf, "cfgVlanId changed for ");
  }
}

void AclSm::lagSubIntfBindingChanged(const Nexo::IntfId& subIntf) {
  bool bound = false;
  for (const auto& [type, typeSm] : typeSms_) {
    for (auto direction : {Acl::AclDirection::aclIn, Acl::AclDirection::aclOut}) {
      bound = bound || typeSm->directionSm(direction).binding().count(subIntf);
    }
  }
  auto known = lagToSubIntfMap_.find(subIntf.parentIntfId());
  if (bound || (known != lagToSubIntfMap_.end() && known->second.count(subIntf))) lagToSubIntfIs(subIntf, bound);
}

void AclSm::reapplyAt(const Nexo::IntfId& intf, const char* why) {
  forEachConfigSm([&](AclConfigSm& sm) { sm.reapplyAt(intf, why); });
}

void AclSm::handleInternalVlan(const Nexo::IntfId& intf) {
  BLIP(aclTrace(), 4, "internalVlanId changed for {}", intf.stringValue());
  reapplyAt(intf, "internalVlanId changed for ");
}

void AclSm::forEachConfigSm(const std::function<void(AclConfigSm&)>& f) {
  // Copies: an apply may add or remove lists' instances, never machines,
  // but a machine's own walk must not see its map change under it.
  for (auto& [type, typeSm] : typeSms_) {
    std::vector<Vex::Ptr<AclConfigSm>> sms;
    for (const auto& [name, sm] : typeSm->aclConfigSm()) sms.push_back(sm);
    for (auto& sm : sms) f(*sm);
  }
}

bool AclSm::anyConfigSm(bool (AclConfigSm::*pred)() const) {
  bool any = false;
  forEachConfigSm([&](AclConfigSm& sm) { any = any || (sm.*pred)(); });
  return any;
}

void AclSm::handleDirtyAcl(const AclKey& key, bool dirty) {
  if (dirty) {
    if (!dirtyAcls_.insert(key).second) return;
    BLIP(aclTrace(), 6, "AclSm::handleDirtyAcl({}) adding to dirty acl list", key.stringValue());
    if (!updatingAcls_) updaterClock_->timeMinIs(Vex::now());
    return;
  }
  if (dirtyAcls_.erase(key))
    BLIP(aclTrace(), 6, "AclSm::handleDirtyAcl({}) removing from dirty acl list", key.stringValue());
}

void AclSm::handleTime() {
  if (dirtyAcls_.empty() || !in_.orbHelper) return;
  const Vex::Seconds start = Vex::now();
  ++deferredUpdates_;
  BLIP(aclTrace(), 4, "Running deferred ACL updater");
  doApplyAcls(false);
  BLIP(aclTrace(), 4, "Deferred ACL updater Latency: {}", Vex::now() - start);
}

void AclSm::doErrdisable(const Nexo::IntfId& intf, bool on) {
  if (!in_.aclStatus) return;
  if (on) {
    if (in_.aclStatus->errdisabledIntf(intf)) return;
    BLIP(aclTrace(), 2, "Errdisabling for: acl Errdisabling {}", intf.stringValue());
    in_.aclStatus->errdisabledIntfIs(intf);
    return;
  }
  if (!in_.aclStatus->errdisabledIntf(intf)) return;
  BLIP(aclTrace(), 2, "Removing Errdisable on {} on all chips", intf.stringValue());
  in_.aclStatus->errdisabledIntfDel(intf);
}

bool AclSm::permitDuringAclUpdate() const {
  return in_.orbHelper->getPermitDuringAclUpdate(in_.aclConfig->permitDuringUpdate());
}

void AclSm::blockedIntfIs(const Nexo::IntfId& intf, bool block) {
  if (in_.orbHelper->asyncAclConfig()) orbAssert("!aclHelper()->asyncAclConfig()");
  if (block) {
    if (permitDuringAclUpdate()) {
      BLIP(aclTrace(), 5, "Not blocking intf because of cli configuration: {}", intf.stringValue());
      return;
    }
    if (!blockedIntfInternal_.insert(intf).second) return;
    BLIP(aclTrace(), 3, "Blocking intf {}", intf.stringValue());
    in_.orbHelper->blockIntf(intf, true, "");
    return;
  }
  if (!blockedIntfInternal_.count(intf)) return;
  if (auto* sm = aclIntfSm(intf)) {
    if (auto key = sm->aclIntf().blockedFor()) {
      BLIP(aclTrace(), 5, "{} still blocked for {}", intf.stringValue(), Acl::aclTypeName(key->type));
      return;
    }
  }
  blockedIntfInternal_.erase(intf);
  BLIP(aclTrace(), 3, "Unblocking intf {}", intf.stringValue());
  in_.orbHelper->blockIntf(intf, false, "");
}

AclIntfSm* AclSm::aclIntfSm(const Nexo::IntfId& intf) const {
  auto it = aclIntfSms_.find(intf);
  return it == aclIntfSms_.end() ? nullptr : it->second.get();
}

AclIntfSm& AclSm::aclIntfSmIs(const Nexo::IntfId& intf) {
  auto& sm = aclIntfSms_[intf];
  if (!sm) sm = Vex::make<AclIntfSm>(intf, this);
  return *sm;
}

void AclSm::lagToSubIntfIs(const Nexo::IntfId& subIntf, bool bound) {
  const Nexo::IntfId parentLag = subIntf.parentIntfId();
  if (bound) {
    if (!lagToSubIntfMap_[parentLag].insert(subIntf).second) return;
    BLIP(aclTrace(), 5, "Add{} to lagToSubIntfMap", subIntf.stringValue());
    return;
  }
  if (!lagToSubIntfMapHas(parentLag)) orbAssert("lagToSubIntfMapHas( parentLag )");
  auto& subIntfs = lagToSubIntfMap_[parentLag];
  if (!subIntfs.erase(subIntf)) return;
  BLIP(aclTrace(), 5, "Remove{} from lagToSubIntfMap", subIntf.stringValue());
  if (subIntfs.empty()) lagToSubIntfMap_.erase(parentLag);
}

AclMounter::AclMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                       const Vex::Ptr<OrbHelper::AclHelper>& orbHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
}

void AclMounter::doMounts() {
  inputs_.aclConfig = hive_->mount<Acl::Config>(aclConfigPath, "aclConfig");
  inputs_.aclStatus = hive_->mount<Acl::Status>(aclStatusPath, "aclStatus");
  inputs_.ethPhyIntfStatusDir = hive_->mount<Interface::EthPhyIntfStatusDir>(ethPhyIntfStatusPath, "ethPhyIntfStatus");
  inputs_.bridgingConfig = hive_->mount<Bridging::Config>(bridgingConfigPath, "bridgingConfig");
}

Vex::Ptr<AclSm> AclMounter::doMountsComplete() { return aclSmFactory(inputs_); }

}  // namespace Orb
