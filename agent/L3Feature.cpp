#include "agent/L3Feature.h"

#include <fmt/format.h>

namespace Agent {

using Orb::VrfId;
using GlobalFecId = Pond::Fib::GlobalFecId;

// A watched prefix is looked up in its VRF's trie from then on.
class L3Feature::WatchReactor : public Orb::RouteReactorConfig::Notifiee {
 public:
  WatchReactor(const Vex::Ptr<Orb::RouteReactorConfig>& config, Orb::RouteReactorStatus& status)
      : Notifiee(config), status_(status) {}
  void handleWatchedPrefix(const Orb::VrfAndPrefix& vp) override {
    if (notifier()->watchedPrefixHas(vp)) {
      status_.triePrefixIs(vp);
    } else {
      status_.triePrefixDel(vp);
    }
  }

 private:
  Orb::RouteReactorStatus& status_;
};

class L3Feature::Watch6Reactor : public Orb::Route6ReactorConfig::Notifiee {
 public:
  Watch6Reactor(const Vex::Ptr<Orb::Route6ReactorConfig>& config, Orb::Route6ReactorStatus& status)
      : Notifiee(config), status_(status) {}
  void handleWatchedPrefix(const Orb::VrfAndIp6Prefix& vp) override {
    if (notifier()->watchedPrefixHas(vp)) {
      status_.triePrefixIs(vp);
    } else {
      status_.triePrefixDel(vp);
    }
  }

 private:
  Orb::Route6ReactorStatus& status_;
};

// The reviewer: every review request rebuilds the FEC's collection and
// counts a pass.
class L3Feature::ReviewReactor : public Orb::L3Status::Notifiee {
 public:
  ReviewReactor(const Vex::Ptr<Orb::L3Status>& status, L3Feature& owner) : Notifiee(status), owner_(owner) {}
  void handleAdjEntryReviewList(const GlobalFecId& fec) override {
    if (!notifier()->adjEntryReviewListHas(fec)) return;
    notifier()->adjEntryReviewCntInc();
    owner_.fecReview(fec);
  }

 private:
  L3Feature& owner_;
};

// Routed interfaces and the router MAC into the chip; the layer-3
// interface table records what the chip answered for each interface.
// An interface the chip was too busy for is offered again after a short
// wait (busyRetryDelay), and one it had no room for whenever an interface
// leaves; one it failed waits for its next write. Routes are retried alike.
class L3Feature::ChipL3Reactor : public Orb::L3Status::Notifiee {
 public:
  ChipL3Reactor(const Vex::Ptr<Orb::L3Status>& status, SoftChip::SoftRouteHelper& chip)
      : Notifiee(status), chip_(chip), retryClock_(Vex::clockFactory([this] { retryWaiting(); })) {}
  void handleRouterMac() override { chip_.routerMacIs(notifier()->routerMac()); }
  void handleL3IntfVrfId(const Nexo::IntfId& intf) override {
    if (notifier()->l3IntfVrfIdHas(intf)) {
      program(intf);
      return;
    }
    waiting_.erase(intf);
    chip_.doRemoveL3Intf(intf);
    notifier()->orbL3IntfTable()->l3IntfDel(intf);
    // On the loop's next turn: an interface moving between VRFs leaves and
    // comes back in one command, and keeps its place.
    if (!waiting_.empty()) retryClock_->timeMinIs(Vex::now());
  }

 private:
  using Helper = SoftChip::SoftRouteHelper;

  void program(const Nexo::IntfId& intf) {
    Orb::VrfId vrf = notifier()->l3IntfVrfId(intf);
    std::uint32_t status = chip_.doAddL3Intf(intf, vrf.value());
    notifier()->orbL3IntfTable()->l3IntfIs(intf, {vrf, status});
    if (status == Helper::addBusy || status == Helper::addFull) {
      waiting_.insert(intf);
    } else {
      waiting_.erase(intf);
    }
    if (status == Helper::addBusy) retryClock_->timeMinIs(Vex::now() + busyRetryDelay);
  }

  void retryWaiting() {
    std::set<Nexo::IntfId> waiting;
    waiting.swap(waiting_);
    for (const auto& intf : waiting) {
      if (notifier()->l3IntfVrfIdHas(intf)) program(intf);
    }
  }

  SoftChip::SoftRouteHelper& chip_;
  std::set<Nexo::IntfId> waiting_;
  Vex::Ptr<Vex::Clock> retryClock_;
};

// Routes, as the routing agent publishes them, into the chip.
class L3Feature::ChipRouteReactor : public Orb::AdjInfoColl::Notifiee {
 public:
  ChipRouteReactor(const Vex::Ptr<Orb::AdjInfoColl>& routes, L3Feature& owner) : Notifiee(routes), owner_(owner) {}
  void handleAdjInfoList(const Orb::VrfAndPrefix& vp) override {
    const auto& routes = notifier();
    owner_.routeToChip(vp.vrfId, routeKey(vp), routes->adjInfoListHas(vp) ? &routes->adjInfoList(vp) : nullptr);
  }
  void handleAdjInfo6List(const Orb::VrfAndIp6Prefix& vp) override {
    const auto& routes = notifier();
    owner_.routeToChip(vp.vrfId, routeKey(vp), routes->adjInfo6ListHas(vp) ? &routes->adjInfo6List(vp) : nullptr);
  }

 private:
  L3Feature& owner_;
};

// The chip's side of resilient FEC deduping: each request is answered with
// the FEC the chip shares for the old FEC's next hops; an answer goes when
// its request does.
class L3Feature::DedupReactor : public Orb::ResilientEcmpDedupingRequestResponse::Notifiee {
 public:
  DedupReactor(const Vex::Ptr<Orb::ResilientEcmpDedupingRequestResponse>& dedup, const SoftChip::SoftRouteHelper& chip)
      : Notifiee(dedup), chip_(chip) {}
  void handleRequest(const Orb::ResilientEcmpDedupingId& id) override {
    const auto& dedup = notifier();
    if (!dedup->requestHas(id)) {
      dedup->responseDel(id);
      return;
    }
    auto old = dedup->request(id).oldResilientFecId;
    dedup->responseIs({id, Pond::Fib::FecId(chip_.sharedResilientFec(old.value()))});
  }

 private:
  const SoftChip::SoftRouteHelper& chip_;
};

L3Feature::L3Feature(const AgentCore& core) : Feature(core) {
  l3Status_ = Orb::l3StatusFactory("l3Status");
  internal_ = Orb::orbInternalL3StatusFactory("orbInternalL3Status");
  routeConfig_ = Orb::routeReactorConfigFactory("routeReactorConfig");
  route6Config_ = Orb::route6ReactorConfigFactory("route6ReactorConfig");
  routeStatus_ = Orb::routeReactorStatusFactory("routeReactorStatus");
  route6Status_ = Orb::route6ReactorStatusFactory("route6ReactorStatus");
  binder_ = std::make_unique<Orb::L2AdjBinder>(l3Status_, internal_);
  watchReactor_ = std::make_unique<WatchReactor>(routeConfig_, *routeStatus_);
  watch6Reactor_ = std::make_unique<Watch6Reactor>(route6Config_, *route6Status_);
  reviewReactor_ = std::make_unique<ReviewReactor>(l3Status_, *this);
  adjHelper_ = Vex::make<SoftChip::SoftAdjHelper>(chip_);
  l2AdjSm_ = Orb::l2AdjSmFactory({ocsd_, adjHelper_, l3Status_, internal_});
  routeHelper_ = Vex::make<SoftChip::SoftRouteHelper>(chip_, *adjHelper_);
  l3Status_->orbL3IntfTableIs(Vex::make<Orb::OrbL3IntfTable>("orbL3IntfTable"));
  chipL3Reactor_ = std::make_unique<ChipL3Reactor>(l3Status_, *routeHelper_);
  routeRefusals_ = std::make_unique<RouteRefusals>(*l3Status_, *internal_);
  routeRetryClock_ = Vex::clockFactory([this] { retryRefusedRoutes(); });
  chipRouteReactor_ = std::make_unique<ChipRouteReactor>(l3Status_->adjInfoColl(), *this);
  l3Status_->routerMacIs(Nexo::EthAddr(defaultRouterMac));
  dedup_ = Orb::resilientEcmpDedupingRequestResponseFactory("resilientEcmpDedupingRequestResponse");
  dedupReactor_ = std::make_unique<DedupReactor>(dedup_, *routeHelper_);
  for (const char* name : {SoftChip::SoftAdjTable::tableName, SoftChip::SoftRouteTable::tableName,
                           SoftChip::SoftFecTable::tableName, SoftChip::SoftL3IntfTable::tableName}) {
    SoftChip::SoftTable& table = chip_->tableNamed(name);
    table.usageHandlerIs([this, &table] { publishUsage(table); });
    publishUsage(table);
  }
  // The default VRF is there from the start, as the routing agent makes it.
  vrfIs(L3::VrfName("default"));
  l3Status_->initializedIs(true);
}

L3Feature::~L3Feature() {
  dedupReactor_.reset();
  chipRouteReactor_.reset();
  chipL3Reactor_.reset();
  reviewReactor_.reset();
  watch6Reactor_.reset();
  watchReactor_.reset();
  l2AdjSm_.reset();
  routeHelper_.reset();
  adjHelper_.reset();
}

VrfId L3Feature::vrfIs(const L3::VrfName& name) {
  if (l3Status_->vrfIdHas(name)) return l3Status_->vrfId(name);
  // The default VRF is 0; the others are numbered in order of creation.
  VrfId id(0);
  if (!name.isDefault()) {
    for (const auto& [known, number] : l3Status_->vrfId()) id = std::max(id, VrfId(number.value() + 1));
  }
  l3Status_->vrfIdIs(name, id);
  l3Status_->vrfNameIs(id, name);
  // The ARP agent numbers VRFs its own way: here, from 1000 on.
  auto status = l3Status_->vrfL3StatusIs(name, 1000 + id.value());
  status->tableIdIs(Pond::Fib::TableId(static_cast<std::uint16_t>(id.value())));
  status->routingEnabledIs(true);
  status->routing6EnabledIs(true);
  return id;
}

VrfId L3Feature::vrfNamed(const std::string& name) const {
  L3::VrfName vrfName;
  try {
    vrfName = L3::VrfName(name);
  } catch (const Vex::RangeError& e) {
    throw CommandError(e.what());
  }
  if (!l3Status_->vrfIdHas(vrfName)) throw CommandError("no VRF '" + name + "' (vrf NAME first)");
  return l3Status_->vrfId(vrfName);
}

void L3Feature::intfVrfIs(const Nexo::IntfId& intf, VrfId vrf) {
  if (l3Status_->l3IntfVrfIdHas(intf)) {
    if (l3Status_->l3IntfVrfId(intf) == vrf) return;
    intfVrfDel(intf, "moving it to another VRF");
  }
  l3Status_->l3IntfVrfIdIs(intf, vrf);
  l3Status_->vrfL3Status(l3Status_->vrfName(vrf))->l3IntfIs(intf, true);
}

void L3Feature::intfVrfDel(const Nexo::IntfId& intf, const std::string& doing) {
  if (!l3Status_->l3IntfVrfIdHas(intf)) return;
  if (!internal_->intfToAdjEntry(intf).empty()) {
    throw CommandError(fmt::format("{} carries vias of FECs; remove them before {}", intf.stringValue(), doing));
  }
  l3Status_->l3IntfVrfIdDel(intf, l3Status_->l3IntfVrfId(intf));
}

namespace {

// A FEC's vias of one address family, in its adjacency entry.
template <class ViaT>
struct ViaFamily;

template <>
struct ViaFamily<Orb::Via> {
  static constexpr const char* name = "IPv4";
  static const Orb::AdjVia& vias(const Orb::AdjEntry& entry) { return entry.adjVia(); }
  static void viasIs(Orb::AdjEntry& entry, const Orb::AdjVia& vias) { entry.adjViaIs(vias); }
  static bool otherFamilyHeld(const Orb::AdjEntry& entry) { return !entry.adjVia6().via().empty(); }
};

template <>
struct ViaFamily<Orb::Via6> {
  static constexpr const char* name = "IPv6";
  static const Orb::AdjVia6& vias(const Orb::AdjEntry& entry) { return entry.adjVia6(); }
  static void viasIs(Orb::AdjEntry& entry, const Orb::AdjVia6& vias) { entry.adjVia6Is(vias); }
  static bool otherFamilyHeld(const Orb::AdjEntry& entry) { return !entry.adjVia().via().empty(); }
};

}  // namespace

template <class ViaT>
void L3Feature::fecViaIs(GlobalFecId fec, const ViaT& via, std::uint32_t weight) {
  using Family = ViaFamily<ViaT>;
  if (!l3Status_->l3IntfVrfIdHas(via.l3Intf)) {
    throw CommandError(via.l3Intf.stringValue() + " is not a routed interface (interface INTF vrf NAME first)");
  }
  VrfId vrf = l3Status_->l3IntfVrfId(via.l3Intf);
  if (internal_->fecIdToVrfIdHas(fec) && internal_->fecIdToVrfId(fec) != vrf) {
    throw CommandError(fmt::format("fec {} has its vias in VRF {}, not in VRF {} of {}", fec.value(),
                                   l3Status_->vrfName(internal_->fecIdToVrfId(fec)).value(),
                                   l3Status_->vrfName(vrf).value(), via.l3Intf.stringValue()));
  }
  if (auto held = l3Status_->adjEntryList(fec); held && Family::otherFamilyHeld(*held)) {
    throw CommandError(fmt::format("fec {} has vias of the other address family: an {} via cannot join them",
                                   fec.value(), Family::name));
  }
  auto entry = l3Status_->adjEntryListIs(fec);
  auto vias = Family::vias(*entry);
  vias.viaIs(via, weight);
  Family::viasIs(*entry, vias);
  internal_->fecIdToVrfIdIs(fec, vrf);
  Orb::VrfAndIpGenAddr nextHop(vrf, via.nextHop);
  auto users = internal_->nextHopToAdjEntry(nextHop);
  users.insert(fec);
  internal_->nextHopToAdjEntryIs(nextHop, users);
  users = internal_->intfToAdjEntry(via.l3Intf);
  users.insert(fec);
  internal_->intfToAdjEntryIs(via.l3Intf, users);
  fecReview(fec);
}

template void L3Feature::fecViaIs(GlobalFecId, const Orb::Via&, std::uint32_t);
template void L3Feature::fecViaIs(GlobalFecId, const Orb::Via6&, std::uint32_t);

template <class ViaT>
void L3Feature::viaUsersDel(GlobalFecId fec, const ViaT& via, bool nextHop, bool intf) {
  if (nextHop) {
    Orb::VrfAndIpGenAddr key(internal_->fecIdToVrfId(fec), via.nextHop);
    auto users = internal_->nextHopToAdjEntry(key);
    users.erase(fec);
    if (users.empty()) {
      internal_->nextHopToAdjEntryDel(key);
    } else {
      internal_->nextHopToAdjEntryIs(key, users);
    }
  }
  if (intf) {
    auto users = internal_->intfToAdjEntry(via.l3Intf);
    users.erase(fec);
    if (users.empty()) {
      internal_->intfToAdjEntryDel(via.l3Intf);
    } else {
      internal_->intfToAdjEntryIs(via.l3Intf, users);
    }
  }
}

void L3Feature::fecDel(GlobalFecId fec) {
  auto entry = l3Status_->adjEntryList(fec);
  if (!entry) throw CommandError(fmt::format("no fec {}", fec.value()));
  auto counts = l3Status_->adjPrefixCountStatus();
  std::uint64_t routes = counts->adjPrefixCount(fec) + counts->adjPrefix6Count(fec);
  if (routes)
    throw CommandError(fmt::format("fec {} is used by {} route{}", fec.value(), routes, routes == 1 ? "" : "s"));
  for (const auto& [via, count] : entry->adjVia().via()) viaUsersDel(fec, via, true, true);
  for (const auto& [via, count] : entry->adjVia6().via()) viaUsersDel(fec, via, true, true);
  binder_->fecDel(fec);
  routeHelper_->doRemoveFec(fec.value());
  resilientSlots_.erase(fec);
  internal_->fecIdToVrfIdDel(fec);
  l3Status_->adjEntryReviewListDel(fec);
}

template <class ViaT>
void L3Feature::fecViaDel(GlobalFecId fec, const ViaT& via) {
  using Family = ViaFamily<ViaT>;
  auto entry = l3Status_->adjEntryList(fec);
  auto vias = Family::vias(*entry);
  if (!vias.via().contains(via)) {
    throw CommandError(
        fmt::format("fec {} has no via {} {}", fec.value(), via.nextHop.stringValue(), via.l3Intf.stringValue()));
  }
  vias.viaDel(via);
  Family::viasIs(*entry, vias);
  bool nextHopStays = false, intfStays = false;
  for (const auto& [other, count] : vias.via()) {
    nextHopStays |= other.nextHop == via.nextHop;
    intfStays |= other.l3Intf == via.l3Intf;
  }
  viaUsersDel(fec, via, !nextHopStays, !intfStays);
  fecReview(fec);
}

template void L3Feature::fecViaDel(GlobalFecId, const Orb::Via&);
template void L3Feature::fecViaDel(GlobalFecId, const Orb::Via6&);

// Neighbours are published as next-hop information, where every reader of
// the status finds them.
void L3Feature::neighborIs(const Orb::VrfAndIpAddr& addr, const Orb::NeighborInfo& neighbor) {
  l3Status_->nextHopInfoIs(addr, {neighbor.mac, neighbor.l2Intf, true});
  l3Status_->resolvedAddrIs(addr, true);
  for (const auto& fec : internal_->nextHopToAdjEntry(Orb::VrfAndIpGenAddr(addr))) fecReview(fec);
}

void L3Feature::neighborIs(const Orb::VrfAndIp6Addr& addr, const Orb::NeighborInfo& neighbor) {
  l3Status_->nextHop6InfoIs(addr, {neighbor.mac, neighbor.l2Intf, true});
  l3Status_->resolvedIp6AddrIs(addr, true);
  for (const auto& fec : internal_->nextHopToAdjEntry(Orb::VrfAndIpGenAddr(addr))) fecReview(fec);
}

void L3Feature::neighborDel(const Orb::VrfAndIpAddr& addr) {
  if (!l3Status_->nextHopInfoHas(addr)) {
    throw CommandError(
        fmt::format("no neighbour {} in VRF {}", addr.addr.stringValue(), l3Status_->vrfName(addr.vrfId).value()));
  }
  l3Status_->nextHopInfoDel(addr);
  l3Status_->resolvedAddrDel(addr);
  for (const auto& fec : internal_->nextHopToAdjEntry(Orb::VrfAndIpGenAddr(addr))) fecReview(fec);
}

void L3Feature::neighborDel(const Orb::VrfAndIp6Addr& addr) {
  if (!l3Status_->nextHop6InfoHas(addr)) {
    throw CommandError(
        fmt::format("no neighbour {} in VRF {}", addr.addr.stringValue(), l3Status_->vrfName(addr.vrfId).value()));
  }
  l3Status_->nextHop6InfoDel(addr);
  l3Status_->resolvedIp6AddrDel(addr);
  for (const auto& fec : internal_->nextHopToAdjEntry(Orb::VrfAndIpGenAddr(addr))) fecReview(fec);
}

void L3Feature::fecReview(GlobalFecId fec) {
  auto entry = l3Status_->adjEntryList(fec);
  if (!entry) return;
  auto lookupIn = [](const auto& nextHopInfo) {
    return [&nextHopInfo](const auto& addr) -> std::optional<Orb::NeighborInfo> {
      auto it = nextHopInfo.find(addr);
      if (it == nextHopInfo.end() || !it->second.resolved) return std::nullopt;
      return Orb::NeighborInfo{it->second.mac, it->second.intf};
    };
  };
  VrfId vrf = internal_->fecIdToVrfId(fec);
  auto nextHops = entry->adjVia6().via().empty()
                      ? Orb::buildNextHopCollection(entry->adjVia(), vrf, lookupIn(l3Status_->nextHopInfo()))
                      : Orb::buildNextHopCollection(entry->adjVia6(), vrf, lookupIn(l3Status_->nextHop6Info()));
  binder_->fecNextHopsIs(fec, nextHops, Orb::TableType::tableTypeLongestPrefix);
  fecToChip(fec);
}

void L3Feature::fecToChip(GlobalFecId fec) {
  auto entry = l3Status_->adjEntryList(fec);
  if (!entry || !entry->l2Adj()) {
    routeHelper_->doRemoveFec(fec.value());
    return;
  }
  auto slots = resilientSlots_.find(fec);
  routeHelper_->doAddFec(fec.value(), entry->l2Adj()->key(), slots == resilientSlots_.end() ? 0 : slots->second);
  if (slots != resilientSlots_.end()) resilientRowsIs(fec);
  // A route the chip refused may fit now.
  retryRefusedRoutes();
}

void L3Feature::fecResilientIs(GlobalFecId fec, std::uint32_t slots) {
  if (slots) {
    resilientSlots_[fec] = slots;
  } else {
    resilientSlots_.erase(fec);
  }
  fecToChip(fec);
  resilientRowsIs(fec);
}

void L3Feature::resilientRowIs(VrfId vrf, const SoftChip::SoftRouteKey& key, const Orb::AdjInfo* info) {
  const bool resilient = info && resilientSlots_.contains(info->fecId);
  if (!resilient) {
    // Only a VRF that ever had a resilient route has tables to take a row from.
    if (key.v6 && resilientStatus6_.contains(vrf))
      resilientStatus6_[vrf]->route6PrefixToResilientEcmpInfoDel(key.prefix6);
    if (!key.v6 && resilientStatus_.contains(vrf)) resilientStatus_[vrf]->routePrefixToResilientEcmpInfoDel(key.prefix);
    return;
  }
  // The route's resilient adjacency is its FEC's; while none of its next
  // hops resolves, the review fails on empty vias.
  auto entry = l3Status_->adjEntryList(info->fecId);
  const auto& adj = entry ? entry->l2Adj() : nullptr;
  auto fill = [&](auto& row) {
    row.adjIndex = adj ? adj->key().index : 0;
    row.resilientAdjIndex = info->fecId.value();
    row.reviewResilientAdjResult = adj && adj->nextHops().hasResolvedNextHops()
                                       ? Orb::ReviewResilientAdjResult::resEcmpSuccess
                                       : Orb::ReviewResilientAdjResult::emptyViasFecFailure;
  };
  bool stored;
  if (key.v6) {
    Orb::Route6PrefixToResilientEcmpInfo row;
    row.key = row.coveringResEcmpPrefix = key.prefix6;
    fill(row);
    stored = writerOf(resilientStatus6_, vrf, "resilientEcmpStatus6").route6PrefixToResilientEcmpInfoIs(row);
  } else {
    Orb::RoutePrefixToResilientEcmpInfo row;
    row.key = row.coveringResEcmpPrefix = key.prefix;
    fill(row);
    stored = writerOf(resilientStatus_, vrf, "resilientEcmpStatus").routePrefixToResilientEcmpInfoIs(row);
  }
  if (!stored) ++resilientRowsRefused_;
}

template <class Status>
Status& L3Feature::writerOf(std::map<VrfId, Vex::Ptr<Status>>& held, VrfId vrf, const char* name) {
  auto& status = held[vrf];
  if (!status) {
    status = Vex::make<Status>(fmt::format("{}-vrf{}", name, vrf.value()));
    status->controlIs(fmt::format("{}vrf{}-", options_.pondPrefix, vrf.value()), Pond::TableControl::Role::writer,
                      resilientRoutesPerVrf);
  }
  return *status;
}

void L3Feature::resilientRowsIs(GlobalFecId fec) {
  // The FEC's own prefix lists name its routes: no walk over every route.
  auto prefixes = l3Status_->adjGlobalPrefixList(fec);
  if (!prefixes) return;
  const auto& routes = l3Status_->adjInfoColl();
  for (const auto& [vrf, list] : prefixes->vrfPrefixList()) {
    for (const auto& prefix : list) {
      resilientRowIs(vrf, SoftChip::SoftRouteKey{vrf.value(), false, prefix, {}}, &routes->adjInfoList({vrf, prefix}));
    }
  }
  for (const auto& [vrf, list] : prefixes->vrfPrefix6List()) {
    for (const auto& prefix : list) {
      resilientRowIs(vrf, SoftChip::SoftRouteKey{vrf.value(), true, {}, prefix}, &routes->adjInfo6List({vrf, prefix}));
    }
  }
}

void L3Feature::routeToChip(VrfId vrf, const SoftChip::SoftRouteKey& key, const Orb::AdjInfo* info) {
  if (!info) {
    // Called again for a refused route: look it up as published.
    auto routes = l3Status_->adjInfoColl();
    if (key.v6 && routes->adjInfo6ListHas({vrf, key.prefix6})) info = &routes->adjInfo6List({vrf, key.prefix6});
    if (!key.v6 && routes->adjInfoListHas({vrf, key.prefix})) info = &routes->adjInfoList({vrf, key.prefix});
  }
  resilientRowIs(vrf, key, info);
  if (!info) {
    routeRefusals_->answerIs(vrf, key, std::nullopt);
    routeHelper_->doRemoveRoute(key);
    // On the loop's next turn, so that a route leaving and coming back in
    // one change keeps its place.
    if (!routeRefusals_->refused().empty()) routeRetryClock_->timeMinIs(Vex::now());
    return;
  }
  std::uint32_t answer = routeHelper_->doAddRoute(key, info->fecId.value());
  routeRefusals_->answerIs(vrf, key, answer);
  if (answer == SoftChip::SoftRouteHelper::addBusy) routeRetryClock_->timeMinIs(Vex::now() + busyRetryDelay);
}

void L3Feature::publishUsage(const SoftChip::SoftTable& table) {
  std::uint64_t used = table.size();
  std::uint64_t capacity = table.capacity();
  l3Status_->hwResourceUtilizationIs(table.name(), {used, capacity > used ? capacity - used : 0});
}

void L3Feature::retryRefusedRoutes() {
  // A copy: writing a route changes the refusals.
  auto refused = routeRefusals_->refused();
  for (const auto& [key, answer] : refused) routeToChip(VrfId(key.vrf), key, nullptr);
}

GlobalFecId L3Feature::knownFec(const std::string& text) const {
  GlobalFecId fec(static_cast<std::uint64_t>(parseInteger(text, 1, 0xffffffffL)));
  if (!l3Status_->adjEntryListHas(fec)) throw CommandError("no fec " + text + " (fec ID via ADDR INTF first)");
  return fec;
}

}  // namespace Agent
