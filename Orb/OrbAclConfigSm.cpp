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
  listStatus->instanceStatusIs({key.direction, key.intf},
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
    if (auto listStatus = aclStatus->aclStatus({key.type, key.name}))
      listStatus->instanceStatusDel({key.direction, key.intf});
  }
  if (!it->second.data) instances_.erase(it);
}

bool AclConfigSm::sharing() const {
  const auto& config = typeSm_->aclTypeConfig();
  return !config || config->sharing();
}

AclKey AclConfigSm::unsharedKey(const IntfPairKey& intfPair, Acl::AclDirection direction) const {
  // A LAG's members are one binding point: they share the LAG's instance.
  return {type(), aclName(), direction, intfPair.lagIntfId.empty() ? intfPair.intfId : intfPair.lagIntfId};
}

Vex::Ptr<AclData> AclConfigSm::instanceHolding(const IntfPairKey& intfPair, Acl::AclDirection direction) const {
  for (const auto& [key, data] : data_) {
    if (key.direction == direction && data->activeIntfs().count(intfPair)) return data;
  }
  return nullptr;
}

void AclConfigSm::portActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active, bool reapply) {
  checkIntfPairKey(intfPair);
  if (!active) {
    portActiveDel(intfPair, direction, false);
    return;
  }
  const Nexo::IntfId& intf = intfPair.intfId;
  if (intf.isVlan()) {
    vlanActiveIs(intfPair, direction, true);
  } else if (intf.isSubIntf()) {
    subIntfActiveIs(intfPair, direction, true);
  } else if (intf.isEthernet()) {
    if (sharing()) {
      sharedPortActiveIs(intfPair, direction, true);
    } else {
      unsharedPortActiveIs(intfPair, direction, true);
    }
  } else {
    intfActiveIs(intfPair, direction, true);
  }
  if (reapply) {
    if (auto data = instanceHolding(intfPair, direction)) data->dirtyIs(true);
  }
}

void AclConfigSm::sharedPortActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  activeIs(sharedKey(direction), intfPair, active, "port");
}

void AclConfigSm::unsharedPortActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  activeIs(unsharedKey(intfPair, direction), intfPair, active, "port");
}

void AclConfigSm::vlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  if (sharing()) {
    sharedVlanActiveIs(intfPair, direction, active);
  } else {
    unsharedVlanActiveIs(intfPair, direction, active);
  }
}

void AclConfigSm::sharedVlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  activeIs(sharedKey(direction), intfPair, active, "vlan");
}

void AclConfigSm::unsharedVlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  activeIs(unsharedKey(intfPair, direction), intfPair, active, "vlan");
}

void AclConfigSm::subIntfActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  if (!active) {
    portActiveDel(intfPair, direction, false);
    return;
  }
  // Some chips match a sub-interface's list on its own tag only, so they
  // cannot hold it once for several sub-interfaces.
  const AclKey shared = sharedKey(direction);
  const bool canShare = sharing() && root_->aclHelper()->subIntfAclSharingSupported(shared);
  bindAt(canShare ? shared : unsharedKey(intfPair, direction), intfPair, "port");
}

void AclConfigSm::intfActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active) {
  if (!active) {
    portActiveDel(intfPair, direction, false);
    return;
  }
  if (!root_->aclHelper()->intfSupportsAcl(intfPair.intfId)) {
    BLIP(aclTrace(), 2, "Nonexistent interface {} for {}", intfPair.intfId.stringValue(), aclName());
    return;
  }
  // A tunnel or loopback matches on its own interface id: its entries are
  // its own.
  bindAt(unsharedKey(intfPair, direction), intfPair, "intf");
}

void AclConfigSm::activeIs(const AclKey& key, const IntfPairKey& intfPair, bool active, const char* what) {
  if (active) {
    bindAt(key, intfPair, what);
  } else {
    portActiveDel(intfPair, key.direction, false);
  }
}

void AclConfigSm::bindAt(const AclKey& key, const IntfPairKey& intfPair, const char* what) {
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
  auto data = instanceHolding(intfPair, direction);
  if (!data) return;
  const AclKey& key = data->key();
  BLIP(aclTrace(), 5, "Deleting intfPair {} from {}{}", intfPair.stringValue(), key.stringValue(),
       belongsToAnother ? " (now another list's)" : "");
  data->activeIntfs().erase(intfPair);
  if (data->activeIntfs().empty()) {
    const char* what = intfPair.intfId.isVlan() ? "intf" : "port";
    BLIP(aclTrace(), 3, "Removed last {} from {}, deleting...", what, key.stringValue());
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
    // What the chip counted since the last poll stays in the list's
    // counters: they outlive the instance.
    if (const auto& aclStatus = root_->aclStatus()) {
      if (auto listStatus = aclStatus->aclStatus({type(), aclName()}))
        readAclCounters(helper, data, *listStatus, std::nullopt, ~0u);
    }
    for (const auto& pair : data.boundIntfs()) {
      const bool owner = helper.aclOwner(pair.intfId, data.key());
      if (!owner) BLIP(aclTrace(), 5, "No longer the owner of {} but allowing cleanup", pair.intfId.stringValue());
      helper.removeIntfFromAcl(pair, data, !owner);
    }
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
    // The chip forgets the binding either way, but leaves the slot to an
    // instance that took it meanwhile.
    const bool owner = helper.aclOwner(it->intfId, data.key());
    if (!owner) BLIP(aclTrace(), 5, "Not the owner of {}; will not deactivate", it->intfId.stringValue());
    helper.removeIntfFromAcl(*it, data, !owner);
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

void AclConfigSm::handleClearCounter() {
  BLIP(aclTrace(), 5, "{}: aclConfig()->clearCounter() {}", aclName(), aclConfig_->clearCounter());
  for (const auto& chip : root_->aclHelper()->counterChips()) dirtyChipIs(chip);
  clearDirtyChip();
}

void AclConfigSm::clearDirtyChip() {
  if (dirtyChips_.empty()) return;
  const auto& aclStatus = root_->aclStatus();
  auto listStatus = aclStatus ? aclStatus->aclStatus({type(), aclName()}) : nullptr;
  auto& helper = *root_->aclHelper();
  for (const auto& chip : dirtyChips_) {
    // What the chip counted since its last poll goes with the rest.
    for (const auto& [key, data] : data_) {
      if (!data->installed) continue;
      for (const auto& rule : data->rules) helper.aclRuleCountersSinceLastPoll(*data, chip, rule.uniqueId);
    }
    if (!listStatus) continue;
    // Each rule's sum over chips loses this chip's share.
    std::vector<std::pair<Acl::RuleChipKey, std::uint64_t>> shares;
    for (const auto& [ruleChip, packets] : listStatus->ruleStatusPerChip()) {
      if (ruleChip.chip == chip) shares.emplace_back(ruleChip, packets);
    }
    for (const auto& [ruleChip, packets] : shares) {
      const std::uint64_t sum = listStatus->ruleStatus(ruleChip.seq);
      if (sum > packets) {
        listStatus->ruleStatusIs(ruleChip.seq, sum - packets);
      } else {
        listStatus->ruleStatusDel(ruleChip.seq);
      }
      listStatus->ruleStatusPerChipDel(ruleChip);
    }
  }
  dirtyChips_.clear();
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
  clearDirtyChip();
  listStatus->counterUpdateTimeIs(Vex::now());
}

}  // namespace Orb
