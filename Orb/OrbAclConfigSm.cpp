#include "Orb/OrbAclConfigSm.h"

#include "Orb/OrbAclSm.h"
#include "Orb/OrbAssert.h"
#include "platform/vex/Reactor.h"
#include "platform/vex/Time.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace Orb {

class AclDataSm::DataReactor : public Vex::Reactor<AclData, AclDataSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(Dirty, handleDirty)
};

AclDataSm::AclDataSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<AclData>& data, AclSm* root)
    : OrbBaseSm(ocsd), data_(data), root_(root) {
  reactor_ = std::make_unique<DataReactor>(this, data_);
  initializedIs(true);
}

AclDataSm::~AclDataSm() {
  vexDoZombieReactors(true);
  reactor_.reset();
}

void AclDataSm::handleDirty() { root_->handleDirtyAcl(data_->key(), data_->dirty()); }

class AclDataStatusSm::StatusReactor : public Vex::Reactor<AclDataStatus, AclDataStatusSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(StatusText, handleStatusText)
};

AclDataStatusSm::AclDataStatusSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<AclDataStatus>& status,
                                 const Vex::Ptr<Acl::Status>& aclStatus)
    : OrbBaseSm(ocsd), status_(status), aclStatus_(aclStatus) {
  reactor_ = std::make_unique<StatusReactor>(this, status_);
  initializedIs(true);
}

AclDataStatusSm::~AclDataStatusSm() {
  vexDoZombieReactors(true);
  reactor_.reset();
}

void AclDataStatusSm::handleStatusText() {
  if (!aclStatus_ || status_->statusText().empty()) return;
  const AclKey& key = status_->key();
  auto listStatus = aclStatus_->aclStatusIs({key.type, key.name});
  listStatus->instanceStatusIs(key.direction,
                               {status_->installed, status_->hwStatus, status_->statusText(), status_->numRules});
}

class AclConfigSm::ConfigReactor : public Vex::Reactor<Acl::AclConfig, AclConfigSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(Version, handleCurrCfg)
  VEX_REACT(ClearCounter, handleClearCounter)
  VEX_REACT(CounterUpdateRequest, handleCounterUpdateRequest)
};

AclConfigSm::AclConfigSm(const Vex::Ptr<Acl::AclConfig>& aclConfig, AclTypeConfigSm* typeSm, AclSm* root)
    : OrbBaseSm(root->ocsd()), aclConfig_(aclConfig), typeSm_(typeSm), root_(root) {
  ORB_ASSERT(aclConfig_);
  reactor_ = std::make_unique<ConfigReactor>(this, aclConfig_);
  counterClock_ = Vex::clockFactory([this] { handleCounterUpdateRequestTime(); });
  clockIs(counterClock_);
  initializedIs(true);
}

AclConfigSm::~AclConfigSm() {
  vexDoZombieReactors(true);
  counterClock_->timeMinIs(Vex::never);
  clockDel(counterClock_);
  reactor_.reset();
  instances_.clear();
}

Vex::Ptr<AclConfigSm> aclConfigSmFactory(const Vex::Ptr<Acl::AclConfig>& aclConfig, AclTypeConfigSm* typeSm,
                                         AclSm* root) {
  return Vex::make<AclConfigSm>(aclConfig, typeSm, root);
}

// Nothing to build until the list is applied somewhere.
void AclConfigSm::handleInitialized() {}

AclDirectionTypeConfigSm& AclConfigSm::directionSm(Acl::AclDirection direction) const {
  return typeSm_->directionSm(direction);
}

Vex::Ptr<AclData> AclConfigSm::aclData(const AclKey& key) const {
  auto it = instances_.find(key);
  return it == instances_.end() ? nullptr : it->second.data;
}

Vex::Ptr<AclData> AclConfigSm::aclDataIs(const AclKey& key) {
  Instance& instance = instances_[key];
  if (!instance.data) {
    instance.data = Vex::make<AclData>(key);
    data_[key] = instance.data;
    instance.dataSm = Vex::make<AclDataSm>(ocsd(), instance.data, root_);
  }
  return instance.data;
}

void AclConfigSm::aclDataDel(const AclKey& key) {
  auto it = instances_.find(key);
  if (it == instances_.end()) return;
  it->second.dataSm.reset();
  it->second.data.reset();
  data_.erase(key);
  if (!it->second.status) instances_.erase(it);
}

Vex::Ptr<AclDataStatus> AclConfigSm::aclDataStatus(const AclKey& key) const {
  auto it = instances_.find(key);
  return it == instances_.end() ? nullptr : it->second.status;
}

Vex::Ptr<AclDataStatus> AclConfigSm::aclDataStatusIs(const AclKey& key) {
  Instance& instance = instances_[key];
  if (!instance.status) {
    instance.status = Vex::make<AclDataStatus>(key);
    instance.statusSm = Vex::make<AclDataStatusSm>(ocsd(), instance.status, root_->aclStatus());
  }
  return instance.status;
}

void AclConfigSm::aclDataStatusDel(const AclKey& key) {
  auto it = instances_.find(key);
  if (it == instances_.end()) return;
  it->second.statusSm.reset();
  it->second.status.reset();
  if (const auto& aclStatus = root_->aclStatus()) {
    if (auto listStatus = aclStatus->aclStatus({key.type, key.name})) listStatus->instanceStatusDel(key.direction);
  }
  if (!it->second.data) instances_.erase(it);
}

void AclConfigSm::portActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active, bool reapply) {
  checkIntfPairKey(intfPair);
  if (!active) {
    portActiveDel(intfPair, direction, false);
    return;
  }
  if (intfPair.intfId.isVlan()) {
    vlanActiveIs(intfPair, direction, true);
  } else {
    sharedPortActiveIs(intfPair, direction, true);
  }
  if (reapply) {
    if (auto data = aclData({type(), aclName(), direction, {}})) data->dirtyIs(true);
  }
}

void AclConfigSm::sharedPortActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  if (active) {
    bindShared(intfPair, direction, "port");
  } else {
    portActiveDel(intfPair, direction, false);
  }
}

void AclConfigSm::vlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  sharedVlanActiveIs(intfPair, direction, active);
}

void AclConfigSm::sharedVlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  if (active) {
    bindShared(intfPair, direction, "vlan");
  } else {
    portActiveDel(intfPair, direction, false);
  }
}

void AclConfigSm::bindShared(const IntfPairKey& intfPair, Acl::AclDirection direction, const char* what) {
  const AclKey key{type(), aclName(), direction, {}};
  BLIP(aclTrace(), 5, "Adding intfPair {} to {}", intfPair.stringValue(), key.stringValue());
  auto data = aclData(key);
  if (!data) {
    BLIP(aclTrace(), 3, "Added first {} to {}, instantiating...", what, key.stringValue());
    data = aclDataIs(key);
    aclDataStatusIs(key);
    data->dirtyIs(true);
  }
  data->activeIntfs().insert(intfPair);
}

void AclConfigSm::portActiveDel(const IntfPairKey& intfPair, Acl::AclDirection direction, bool belongsToAnother) {
  const AclKey key{type(), aclName(), direction, {}};
  auto data = aclData(key);
  if (!data) return;
  BLIP(aclTrace(), 5, "Deleting intfPair {} from {}{}", intfPair.stringValue(), key.stringValue(),
       belongsToAnother ? " (now another list's)" : "");
  data->activeIntfs().erase(intfPair);
  if (data->activeIntfs().empty()) {
    BLIP(aclTrace(), 3, "Removed last {} from {}, deleting...", intfPair.intfId.isVlan() ? "intf" : "port",
         key.stringValue());
  }
}

void AclConfigSm::reapplyAt(const Nexo::IntfId& intf, const char* why) {
  for (auto& [key, instance] : instances_) {
    if (!instance.data) continue;
    for (const auto& pair : instance.data->activeIntfs()) {
      if (pair.intfId != intf && pair.lagIntfId != intf) continue;
      BLIP(aclTrace(), 3, "{}{}: Reapply acls ({})", why, intf.stringValue(), key.stringValue());
      instance.data->dirtyIs(true);
      break;
    }
  }
}

bool AclConfigSm::hasInstancesToRemove() const {
  for (const auto& [key, data] : data_) {
    if (data->activeIntfs().empty() || destroying_) return true;
  }
  return false;
}

bool AclConfigSm::hasDirtyInstances() const {
  for (const auto& [key, data] : data_) {
    if (data->dirty() && !data->activeIntfs().empty()) return true;
  }
  return false;
}

bool AclConfigSm::hasPreparedInstances() const {
  for (const auto& [key, data] : data_) {
    if (data->state == AclDataState::prepared) return true;
    if (data->state == AclDataState::installed && data->boundIntfs() != data->activeIntfs()) return true;
  }
  return false;
}

void AclConfigSm::uninstallAcl(bool all) {
  std::vector<AclKey> going;
  for (const auto& [key, data] : data_) {
    if (all || destroying_ || data->activeIntfs().empty()) going.push_back(key);
  }
  for (const auto& key : going) {
    auto data = aclData(key);
    uninstallOne(*data);
    aclDataDel(key);
    aclDataStatusDel(key);
  }
}

void AclConfigSm::uninstallOne(AclData& data) {
  auto& helper = *root_->aclHelper();
  if (data.installed) {
    BLIP(aclTrace(), 3, "{}::uninstallAcl({})", aclName(), data.key().stringValue());
    for (const auto& pair : data.boundIntfs()) helper.removeIntfFromAcl(pair, data, false);
    data.boundIntfs().clear();
    helper.removeAcl(data);
    if (helper.deferredOperationsSupported() && root_->updatingAcls()) root_->opRequested();
    helper.cleanupAcl(data);
    helper.destroyAcl(data);
    data.installed = false;
  }
  for (const auto& pair : data.activeIntfs()) root_->doErrdisable(pair.intfId, false);
  if (data.aclNumber) directionSm(data.key().direction).releaseAclNumber(data.aclNumber);
  data.aclNumber = 0;
  data.dirtyIs(false);
}

void AclConfigSm::prepareAcl() {
  for (const auto& [key, data] : data_) {
    if (data->dirty() && !data->activeIntfs().empty()) createAclForData(*data);
  }
}

void AclConfigSm::commitAcl() {
  for (const auto& [key, data] : data_) {
    const bool prepared = data->state == AclDataState::prepared;
    const bool rebind = data->state == AclDataState::installed && data->boundIntfs() != data->activeIntfs();
    if (prepared || rebind) commitOne(*data);
  }
}

namespace {

std::vector<std::uint32_t> ruleIds(const std::vector<AclRule>& rules) {
  std::vector<std::uint32_t> ids;
  ids.reserve(rules.size());
  for (const auto& rule : rules) ids.push_back(rule.uniqueId);
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

void AclConfigSm::commitOne(AclData& data) {
  auto& helper = *root_->aclHelper();
  BLIP(aclTrace(), 5, "{}::commitAcl() {}", aclName(), data.key().stringValue());
  auto status = aclDataStatusIs(data.key());
  if (data.state == AclDataState::prepared) {
    if (type() == Acl::mac()) ORB_ASSERT(type() == Acl::mac());
    const bool isNew = !data.installed;
    static const std::vector<std::uint32_t> none;
    const auto& before = isNew ? none : data.committedRuleIds;
    data.hwResult = helper.commitAcl(data);
    if (helper.deferredOperationsSupported() && root_->updatingAcls()) root_->opRequested();
    std::string changes;
    auto after = ruleIds(data.rules);
    if (aclTrace().enabled(3)) {
      std::vector<std::uint32_t> added, removed;
      std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(added));
      std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(removed));
      for (auto id : added) changes += fmt::format(", add rule id: {}", id);
      for (auto id : removed) changes += fmt::format(", remove rule id: {}", id);
    }
    BLIP(aclTrace(), 3, "{}{}{}", isNew ? "Create status: " : "Update status: ", data.hwResult.status, changes);
    data.dirtyIs(false);
    if (data.hwResult.status != AclHwStatus::succeeded) {
      data.state = AclDataState::failed;
      data.unstable = true;
      return;
    }
    data.committedRuleIds = std::move(after);
    data.installed = true;
    data.unstable = false;
    data.state = AclDataState::installed;
  }
  // Bind where applied, unbind where no longer.
  for (auto it = data.boundIntfs().begin(); it != data.boundIntfs().end();) {
    if (data.activeIntfs().count(*it)) {
      ++it;
      continue;
    }
    helper.removeIntfFromAcl(*it, data, false);
    it = data.boundIntfs().erase(it);
  }
  for (const auto& pair : data.activeIntfs()) {
    if (data.boundIntfs().count(pair)) continue;
    if (!helper.addIntfToAcl(pair, data, *status)) {
      BLIP(aclTrace(), 2, "ACL programming failure on {}", pair.stringValue());
      continue;
    }
    BLIP(aclTrace(), 5, "addIntfToAcl returned True for {}", pair.stringValue());
    data.boundIntfs().insert(pair);
  }
  // Ports taken out of service over an earlier attempt come back.
  for (const auto& pair : data.boundIntfs()) {
    if (!root_->aclStatus() || !root_->aclStatus()->errdisabledIntf(pair.intfId)) continue;
    root_->doErrdisable(pair.intfId, false);
    BLIP(aclTrace(), 3, "Moved {} out of errdisable state", pair.intfId.stringValue());
  }
}

std::uint32_t AclConfigSm::uniqueIdToSeq(std::uint32_t uniqueId) const {
  auto find = [uniqueId](const auto& rules) -> std::uint32_t {
    for (const auto& [seq, rule] : rules) {
      if (rule.uniqueId == uniqueId) return seq;
    }
    return 0;
  };
  switch (type()) {
    case Acl::AclType::aclTypeIp:
      return find(aclConfig_->ipRuleBySequence());
    case Acl::AclType::aclTypeIpv6:
      return find(aclConfig_->ip6RuleBySequence());
    case Acl::AclType::aclTypeMac:
      return find(aclConfig_->macRuleBySequence());
  }
  return 0;
}

void AclConfigSm::handleCurrCfg() {
  const Vex::Seconds start = Vex::now();
  BLIP(aclTrace(), 3, "{}::handleCurrCfg() version {}", aclName(), aclConfig_->version());
  for (const auto& [key, data] : data_) {
    data->version = aclConfig_->version();
    data->dirtyIs(true);
  }
  root_->doApplyAcls(false);
  BLIP(aclTrace(), 4, "{}: Latency: {}, total time {}", aclName(), Vex::now() - start, Vex::now() - start);
}

void AclConfigSm::handleClearCounter() { clearDirtyChip(); }

void AclConfigSm::clearDirtyChip() {
  const auto& aclStatus = root_->aclStatus();
  if (!aclStatus) return;
  auto listStatus = aclStatus->aclStatus({type(), aclName()});
  if (!listStatus) return;
  BLIP(aclTrace(), 5, "{}: aclConfig()->clearCounter() {}", aclName(), aclConfig_->clearCounter());
  // What the chip counted since its last poll goes with the rest.
  auto discarded = Vex::make<Acl::AclStatus>(listStatus->key());
  for (const auto& [key, data] : data_) {
    if (data->installed) readAclCounters(*root_->aclHelper(), *data, *discarded, std::nullopt, ~0u);
  }
  listStatus->ruleStatusDelAll();
  listStatus->ruleStatusPerChipDelAll();
}

void AclConfigSm::handleCounterUpdateRequest() { counterClock_->timeMinIs(Vex::now()); }

void AclConfigSm::handleCounterUpdateRequestTime() {
  const auto& aclStatus = root_->aclStatus();
  auto listStatus = aclStatus ? aclStatus->aclStatus({type(), aclName()}) : nullptr;
  if (!listStatus) return;
  auto& helper = *root_->aclHelper();
  if (helper.counterChips().empty()) {
    BLIP(aclTrace(), 3, "{}: Acl counters not supported", aclName());
    counterBookmark_.reset();
    return;
  }
  std::uint32_t budget = burstSize_;
  auto it = counterBookmark_ ? data_.lower_bound(counterBookmark_->key) : data_.begin();
  for (; it != data_.end(); ++it) {
    const auto& [key, data] = *it;
    if (!data->installed || key.direction == Acl::AclDirection::aclOut) {
      BLIP(aclTrace(), 7, "{} not installed or egress ACL, skip", key.stringValue());
      continue;
    }
    std::optional<std::uint32_t> after;
    if (counterBookmark_ && counterBookmark_->key == key) after = counterBookmark_->seq;
    const AclCounterRead read = readAclCounters(helper, *data, *listStatus, after, budget);
    budget -= std::min(budget, read.rules);
    if (read.finished && budget) continue;
    counterBookmark_ = CounterBookmark{key, read.lastSeq};
    counterClock_->timeMinIs(Vex::now());
    return;
  }
  counterBookmark_.reset();
  listStatus->counterUpdateTimeIs(Vex::now());
}

}  // namespace Orb
