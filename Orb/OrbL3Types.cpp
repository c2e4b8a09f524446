#include "Orb/OrbL3Types.h"

#include "Orb/OrbAssert.h"

namespace Orb {

Vex::Ptr<VrfL3Status> vrfL3StatusFactory(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId arpVrfId) {
  return Vex::make<VrfL3Status>(vrfName, arpVrfId);
}

Vex::Ptr<AdjEntry> adjEntryFactory(Pond::Fib::GlobalFecId fecId) { return Vex::make<AdjEntry>(fecId); }

// ---- AdjGlobalPrefixList

namespace {

template <class Map, class P>
bool insertPrefix(Map& lists, VrfId vrf, const P& prefix) {
  return lists[vrf].insert(prefix).second;
}

template <class Map, class P>
bool erasePrefix(Map& lists, VrfId vrf, const P& prefix) {
  auto it = lists.find(vrf);
  if (it == lists.end() || !it->second.erase(prefix)) return false;
  if (it->second.empty()) lists.erase(it);
  return true;
}

}  // namespace

const AdjGlobalPrefixList::PrefixSet& AdjGlobalPrefixList::vrfPrefixList(VrfId vrf) const {
  auto it = vrfPrefixList_.find(vrf);
  return it == vrfPrefixList_.end() ? Vex::emptyValue<PrefixSet>() : it->second;
}

bool AdjGlobalPrefixList::vrfPrefixListIs(VrfId vrf) {
  if (!vrfPrefixList_.try_emplace(vrf).second) return false;
  notify(&Notifiee::handleVrfPrefixList, vrf);
  return true;
}

bool AdjGlobalPrefixList::vrfPrefixIs(VrfId vrf, const Nexo::Prefix& prefix) {
  if (!insertPrefix(vrfPrefixList_, vrf, prefix)) return false;
  notify(&Notifiee::handleVrfPrefixList, vrf);
  return true;
}

bool AdjGlobalPrefixList::vrfPrefixDel(VrfId vrf, const Nexo::Prefix& prefix) {
  if (!erasePrefix(vrfPrefixList_, vrf, prefix)) return false;
  notify(&Notifiee::handleVrfPrefixList, vrf);
  return true;
}

const AdjGlobalPrefixList::Prefix6Set& AdjGlobalPrefixList::vrfPrefix6List(VrfId vrf) const {
  auto it = vrfPrefix6List_.find(vrf);
  return it == vrfPrefix6List_.end() ? Vex::emptyValue<Prefix6Set>() : it->second;
}

bool AdjGlobalPrefixList::vrfPrefix6ListIs(VrfId vrf) {
  if (!vrfPrefix6List_.try_emplace(vrf).second) return false;
  notify(&Notifiee::handleVrfPrefix6List, vrf);
  return true;
}

bool AdjGlobalPrefixList::vrfPrefix6Is(VrfId vrf, const Nexo::Ip6Prefix& prefix) {
  if (!insertPrefix(vrfPrefix6List_, vrf, prefix)) return false;
  notify(&Notifiee::handleVrfPrefix6List, vrf);
  return true;
}

bool AdjGlobalPrefixList::vrfPrefix6Del(VrfId vrf, const Nexo::Ip6Prefix& prefix) {
  if (!erasePrefix(vrfPrefix6List_, vrf, prefix)) return false;
  notify(&Notifiee::handleVrfPrefix6List, vrf);
  return true;
}

// ---- L3Status

L3Status::L3Status(const std::string& name)
    : Entity(name),
      adjPrefixCountStatus_(Vex::make<AdjPrefixCountStatus>("adjPrefixCountStatus")),
      adjInfoColl_(Vex::make<AdjInfoColl>("adjInfoColl")),
      urpfRouting_(Vex::make<UrpfRouting>("urpfRouting")),
      urpfRoutingDisableDone_(Vex::make<UrpfRoutingDisableDone>("urpfRoutingDisableDone")),
      endOfSync_(Vex::make<EndOfSync>("endOfSync")),
      reviewPending_(Vex::make<ReviewPending>("reviewPending")) {}

Vex::Ptr<L3Status> l3StatusFactory(const std::string& name) { return Vex::make<L3Status>(name); }

Vex::Ptr<VrfL3Status> L3Status::vrfL3Status(const L3::VrfName& name) const {
  auto it = vrfL3Status_.find(name);
  return it == vrfL3Status_.end() ? nullptr : it->second;
}

Vex::Ptr<VrfL3Status> L3Status::vrfL3StatusByArpVrfId(ArpVrfId arpVrfId) const {
  auto it = vrfL3StatusByArpVrfId_.find(arpVrfId);
  return it == vrfL3StatusByArpVrfId_.end() ? nullptr : it->second;
}

Vex::Ptr<VrfL3Status> L3Status::vrfL3StatusIs(const L3::VrfName& name, ArpVrfId arpVrfId) {
  Vex::Ptr<VrfL3Status> existing = vrfL3Status(name);
  if (existing && existing->arpVrfId() == arpVrfId) return existing;
  if (existing) vrfL3StatusDel(name);
  auto status = vrfL3StatusFactory(name, arpVrfId);
  if (vrfIdHas(name)) status->vrfIdIs(vrfId(name));
  vrfL3Status_[name] = status;
  vrfL3StatusByArpVrfId_[arpVrfId] = status;
  notify(&Notifiee::handleVrfL3Status, name);
  notify(&Notifiee::handleVrfL3StatusByArpVrfId, arpVrfId);
  return status;
}

void L3Status::vrfL3StatusDel(const L3::VrfName& name) {
  auto it = vrfL3Status_.find(name);
  if (it == vrfL3Status_.end()) return;
  ArpVrfId arpVrfId = it->second->arpVrfId();
  vrfL3Status_.erase(it);
  notify(&Notifiee::handleVrfL3Status, name);
  // Another VRF may have taken the ARP VRF id since; its index entry stays.
  auto indexed = vrfL3StatusByArpVrfId_.find(arpVrfId);
  if (indexed != vrfL3StatusByArpVrfId_.end() && indexed->second->vrfName() == name) {
    vrfL3StatusByArpVrfId_.erase(indexed);
    notify(&Notifiee::handleVrfL3StatusByArpVrfId, arpVrfId);
  }
}

void L3Status::l3IntfVrfIdDel(const Nexo::IntfId& intfId, VrfId vrfId) {
  const L3::VrfName* name = vrfNameHas(vrfId) ? &vrfName(vrfId) : nullptr;
  Vex::Ptr<VrfL3Status> vrfStatus = name ? vrfL3Status(*name) : nullptr;
  if (!vrfStatus) orbAssert("vrfStatus");
  if (!vrfStatus->l3IntfHas(intfId)) orbAssert("vrfStatus->l3IntfHas( intfId )");
  vrfStatus->l3IntfDel(intfId);
  l3IntfVrfIdDel(intfId);
}

void L3Status::orbL3IntfTableIs(const Vex::Ptr<OrbL3IntfTable>& table) {
  // Readers keep the table they found; a second table would leave them
  // reading a stale one.
  if (orbL3IntfTable_ && orbL3IntfTable_ != table) orbAssert("!orbL3IntfTable_ || orbL3IntfTable_ == table");
  orbL3IntfTable_ = table;
}

L3Status::ArpVrfId L3Status::orbVrfIdToArpVrfId(VrfId vrfId) const {
  if (!vrfNameHas(vrfId)) return Vrf::VrfIdMap::invalidVrfId;
  auto status = vrfL3Status(vrfName(vrfId));
  return status ? status->arpVrfId() : Vrf::VrfIdMap::invalidVrfId;
}

VrfId L3Status::arpVrfIdToOrbVrfId(ArpVrfId arpVrfId) const {
  auto status = vrfL3StatusByArpVrfId(arpVrfId);
  if (!status || !vrfIdHas(status->vrfName())) return invalidVrfId;
  return vrfId(status->vrfName());
}

L3Status::ArpVrfId L3Status::fecIdToArpVrfId(GlobalFecId fecId) const {
  auto it = fecArpVrf().find(fecId);
  return it == fecArpVrf().end() ? Vrf::VrfIdMap::invalidVrfId : orbVrfIdToArpVrfId(it->second);
}

Pond::Fib::TableId L3Status::vrfNameToFibTableId(const L3::VrfName& name) const {
  auto status = vrfL3Status(name);
  return status ? status->tableId() : Pond::Fib::TableId();
}

void L3Status::notifyAdjEntryForReview(GlobalFecId fecId, AdjUpdateType reasons) {
  auto it = adjEntryReviewList().find(fecId);
  AdjUpdateType old = it == adjEntryReviewList().end() ? noAdjUpdate : it->second;
  AdjUpdateType mask = old | reasons;
  if (mask == old) adjEntryReviewListDel(fecId);
  adjEntryReviewListIs(fecId, mask);
}

void L3Status::adjVrfPrefixIs(GlobalFecId fecId, VrfId vrfId, const Nexo::Prefix& prefix) {
  auto list = adjGlobalPrefixListIs(fecId);
  if (list->vrfPrefixListIs(vrfId)) addFecArpVrfId(fecId, vrfId);
  if (list->vrfPrefixIs(vrfId, prefix)) adjPrefixCountStatus_->adjPrefixCountInc(fecId);
}

void L3Status::adjVrfPrefixDel(GlobalFecId fecId, VrfId vrfId, const Nexo::Prefix& prefix) {
  auto list = adjGlobalPrefixList(fecId);
  if (!list || !list->vrfPrefixDel(vrfId, prefix)) return;
  adjPrefixCountStatus_->adjPrefixCountDec(fecId);
  if (!list->empty()) return;
  adjGlobalPrefixListDel(fecId);
  fecArpVrfDel(fecId);
}

void L3Status::adjVrfPrefix6Is(GlobalFecId fecId, VrfId vrfId, const Nexo::Ip6Prefix& prefix) {
  auto list = adjGlobalPrefixListIs(fecId);
  if (list->vrfPrefix6ListIs(vrfId)) addFecArpVrfId(fecId, vrfId);
  if (list->vrfPrefix6Is(vrfId, prefix)) adjPrefixCountStatus_->adjPrefix6CountInc(fecId);
}

void L3Status::adjVrfPrefix6Del(GlobalFecId fecId, VrfId vrfId, const Nexo::Ip6Prefix& prefix) {
  auto list = adjGlobalPrefixList(fecId);
  if (!list || !list->vrfPrefix6Del(vrfId, prefix)) return;
  adjPrefixCountStatus_->adjPrefix6CountDec(fecId);
  if (!list->empty()) return;
  adjGlobalPrefixListDel(fecId);
  fecArpVrfDel(fecId);
}

void L3Status::adjGenPrefixListDelAll() {
  adjGlobalPrefixListDelAll();
  adjPrefixCountStatus_->adjPrefixCountDelAll();
  adjPrefixCountStatus_->adjPrefix6CountDelAll();
  fecArpVrfDelAll();
}

namespace {

template <class Map, class Pred>
bool anyVrf(const Map& statuses, Pred pred) {
  for (const auto& [name, status] : statuses)
    if (pred(*status)) return true;
  return false;
}

template <class Map, class Count>
std::uint64_t sumVrfs(const Map& statuses, Count count) {
  std::uint64_t total = 0;
  for (const auto& [name, status] : statuses) total += count(*status);
  return total;
}

template <class Map, class Pred>
std::set<L3::VrfName> vrfsWhere(const Map& statuses, Pred pred) {
  std::set<L3::VrfName> names;
  for (const auto& [name, status] : statuses)
    if (pred(*status)) names.insert(name);
  return names;
}

}  // namespace

bool L3Status::routingEnabledInDefaultVrf() const {
  auto status = vrfL3Status(L3::VrfName("default"));
  return status && status->routingEnabled();
}

bool L3Status::routing6EnabledInDefaultVrf() const {
  auto status = vrfL3Status(L3::VrfName("default"));
  return status && status->routing6Enabled();
}

bool L3Status::routingEnabledInAnyVrf() const {
  return anyVrf(vrfL3Status_, [](const VrfL3Status& s) { return s.routingEnabled(); });
}

bool L3Status::routing6EnabledInAnyVrf() const {
  return anyVrf(vrfL3Status_, [](const VrfL3Status& s) { return s.routing6Enabled(); });
}

bool L3Status::v4SyncPendingInAnyVrf() const {
  return anyVrf(vrfL3Status_, [](const VrfL3Status& s) { return s.routingEnabled() && !s.endOfV4SyncDone(); });
}

bool L3Status::v6SyncPendingInAnyVrf() const {
  return anyVrf(vrfL3Status_, [](const VrfL3Status& s) { return s.routing6Enabled() && !s.endOfV6SyncDone(); });
}

std::uint64_t L3Status::numUnprogrammedRoutes() const {
  return sumVrfs(vrfL3Status_, [](const VrfL3Status& s) { return s.numUnprogrammedRoutes(); });
}

std::uint64_t L3Status::numUnprogrammedV6Routes() const {
  return sumVrfs(vrfL3Status_, [](const VrfL3Status& s) { return s.numUnprogrammedV6Routes(); });
}

std::uint64_t L3Status::routesForReview() const {
  return sumVrfs(vrfL3Status_, [](const VrfL3Status& s) { return s.routesForReview(); });
}

std::uint64_t L3Status::routes6ForReview() const {
  return sumVrfs(vrfL3Status_, [](const VrfL3Status& s) { return s.routes6ForReview(); });
}

std::set<L3::VrfName> L3Status::waitForRoutingDisabledInVrfs() const {
  return vrfsWhere(vrfL3Status_, [](const VrfL3Status& s) { return s.waitForRoutingDisabled(); });
}

std::set<L3::VrfName> L3Status::waitForRouting6DisabledInVrfs() const {
  return vrfsWhere(vrfL3Status_, [](const VrfL3Status& s) { return s.waitForRouting6Disabled(); });
}

Bridging::VlanId L3Status::getPrimaryVlan(Bridging::VlanId vlan) const {
  auto it = privateVlanPrimary().find(vlan);
  return it == privateVlanPrimary().end() ? vlan : it->second;
}

bool L3Status::isPrimaryVlan(Bridging::VlanId vlan) const {
  for (const auto& [secondary, primary] : privateVlanPrimary())
    if (primary == vlan) return true;
  return false;
}

}  // namespace Orb
