// The layer-3 status model: which VRFs exist and what routing does in each,
// which FECs serve as adjacencies and which prefixes resolve to them, and
// the prefixes clients watch. Plain attribute holders with change
// notification; the feature machines and the chip layer write them and
// reactors follow them.
#pragma once

#include "Orb/OrbAdjSync.h"
#include "Orb/OrbAdjTypes.h"
#include "Orb/OrbCommonTypes.h"
#include "Orb/OrbL3Watch.h"
#include "Orb/OrbNexthopTypes.h"
#include "platform/types/Bridging.h"
#include "platform/types/Fib.h"
#include "platform/types/L3.h"
#include "platform/types/Urpf.h"
#include "platform/vex/Entity.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Vrf {
// The VRF numbers that ARP and neighbour state use.
struct VrfIdMap {
  using VrfId = std::uint32_t;
  static constexpr VrfId invalidVrfId = UINT32_MAX;
};
}  // namespace Vrf

namespace Orb {

// The answer for a VRF that is not known.
inline constexpr VrfId invalidVrfId{UINT32_MAX};

// Why an adjacency waits for review: a bit mask.
enum AdjUpdateType : std::uint32_t {
  noAdjUpdate = 0,
  tableTypeChangeAdjUpdate = 1u << 0,
  viaChangeAdjUpdate = 1u << 1,
  nextHopChangeAdjUpdate = 1u << 2,
  l2AdjChangeAdjUpdate = 1u << 3,
  prefixChangeAdjUpdate = 1u << 4,
  backupChangeAdjUpdate = 1u << 5,
  resourceChangeAdjUpdate = 1u << 6,
};
BOOST_DESCRIBE_ENUM(AdjUpdateType, noAdjUpdate, tableTypeChangeAdjUpdate, viaChangeAdjUpdate, nextHopChangeAdjUpdate,
                    l2AdjChangeAdjUpdate, prefixChangeAdjUpdate, backupChangeAdjUpdate, resourceChangeAdjUpdate)
inline AdjUpdateType operator|(AdjUpdateType a, AdjUpdateType b) {
  return static_cast<AdjUpdateType>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

enum class RoutingState : std::uint8_t {
  routingStateUnknown,
  routingDisabled,
  routingEnabled,
  routingDisableInProgress
};
BOOST_DESCRIBE_ENUM(RoutingState, routingStateUnknown, routingDisabled, routingEnabled, routingDisableInProgress)

enum class RouteType : std::uint8_t {
  routeTypeUnknown,
  attachedRoute,
  receiveRoute,
  forwardRoute,
  dropRoute,
  nexthopGroupRoute,
  mplsRoute,
  pwRoute,
  evpnRoute,
  policyRoute,
  routeCacheForwardRoute,
  routeCacheConnectedRoute,
};
BOOST_DESCRIBE_ENUM(RouteType, routeTypeUnknown, attachedRoute, receiveRoute, forwardRoute, dropRoute,
                    nexthopGroupRoute, mplsRoute, pwRoute, evpnRoute, policyRoute, routeCacheForwardRoute,
                    routeCacheConnectedRoute)

enum class OrbRouteUpdateStatus : std::uint8_t {
  installed,
  installFailed,
  installNotReady,
  installNotRequired,
  pendingSync
};
BOOST_DESCRIBE_ENUM(OrbRouteUpdateStatus, installed, installFailed, installNotReady, installNotRequired, pendingSync)

// What a prefix resolves to. Kept to 16 bytes: there is one per route.
struct AdjInfo {
  Pond::Fib::GlobalFecId fecId;
  RouteType routeType = RouteType::routeTypeUnknown;
  TableType tableType = TableType::tableTypeUnknown;
  auto operator<=>(const AdjInfo&) const = default;
};
VEX_VALUE(AdjInfo, "Orb::AdjInfo", (fecId, routeType, tableType))

// Hardware table usage of one resource.
struct HwResourceUtilization {
  std::uint64_t used = 0;
  std::uint64_t free = 0;
  auto operator<=>(const HwResourceUtilization&) const = default;
};
VEX_VALUE(HwResourceUtilization, "Orb::HwResourceUtilization", (used, free))

// Routing as a whole.
struct RoutingStatus {
  bool routingEnabled = false;
  bool routing6Enabled = false;
  bool mcastRoutingEnabled = false;
  auto operator<=>(const RoutingStatus&) const = default;
};
VEX_VALUE(RoutingStatus, "Orb::RoutingStatus", (routingEnabled, routing6Enabled, mcastRoutingEnabled))

class VrfL3Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VrfL3Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(VrfId)
    VEX_HANDLER(TableId)
    VEX_HANDLER(RoutingEnabled)
    VEX_HANDLER(Routing6Enabled)
    VEX_HANDLER(WaitForRoutingDisabled)
    VEX_HANDLER(WaitForRouting6Disabled)
    VEX_HANDLER(FibSuppressionEnabled)
    VEX_HANDLER(Fib6SuppressionEnabled)
    VEX_HANDLER(FwdDevicesCreated)
    VEX_HANDLER(EndOfV4SyncDone)
    VEX_HANDLER(EndOfV6SyncDone)
    VEX_HANDLER(SkipRouteReview)
    VEX_HANDLER(SkipRoute6Review)
    VEX_KEY_HANDLER(L3Intf, Nexo::IntfId)
    VEX_KEY_HANDLER(IntfVrfRoutingState, Nexo::IntfId)
    VEX_HANDLER(NumUnprogrammedRoutes)
    VEX_HANDLER(NumUnprogrammedV6Routes)
    VEX_HANDLER(RoutesForReview)
    VEX_HANDLER(Routes6ForReview)
    VEX_HANDLER(AddRouteToReview)
    VEX_HANDLER(SequenceProgrammed)
    VEX_HANDLER(Sequence6Programmed)
    VEX_KEY_HANDLER(AsyncFailedV4Route, Nexo::Prefix)
    VEX_KEY_HANDLER(AsyncFailedV6Route, Nexo::Ip6Prefix)
    VEX_KEY_HANDLER(AdjEntryPrefixWalkList, Pond::Fib::GlobalFecId)
    VEX_KEY_HANDLER(AdjEntryIp6PrefixWalkList, Pond::Fib::GlobalFecId)
    VEX_KEY_HANDLER(FecSyncMap, Pond::Fib::GlobalFecId)
  };

  VrfL3Status(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId arpVrfId)
      : Entity(vrfName.value()), vrfName_(vrfName), arpVrfId_(arpVrfId) {}
  const L3::VrfName& vrfName() const { return vrfName_; }
  Vrf::VrfIdMap::VrfId arpVrfId() const { return arpVrfId_; }

  VEX_ATTR(VrfId, vrfId, VrfId, invalidVrfId)
  VEX_ATTR(Pond::Fib::TableId, tableId, TableId, 0)
  VEX_ATTR(bool, routingEnabled, RoutingEnabled, false)
  VEX_ATTR(bool, routing6Enabled, Routing6Enabled, false)
  VEX_ATTR(bool, waitForRoutingDisabled, WaitForRoutingDisabled, false)
  VEX_ATTR(bool, waitForRouting6Disabled, WaitForRouting6Disabled, false)
  VEX_ATTR(bool, fibSuppressionEnabled, FibSuppressionEnabled, false)
  VEX_ATTR(bool, fib6SuppressionEnabled, Fib6SuppressionEnabled, false)
  VEX_ATTR(bool, fwdDevicesCreated, FwdDevicesCreated, false)
  VEX_ATTR(bool, endOfV4SyncDone, EndOfV4SyncDone, false)
  VEX_ATTR(bool, endOfV6SyncDone, EndOfV6SyncDone, false)
  VEX_ATTR(bool, skipRouteReview, SkipRouteReview, false)
  VEX_ATTR(bool, skipRoute6Review, SkipRoute6Review, false)
  VEX_COLLECTION(Nexo::IntfId, bool, l3Intf, L3Intf)
  VEX_COLLECTION(Nexo::IntfId, RoutingState, intfVrfRoutingState, IntfVrfRoutingState)
  VEX_COUNTER(std::uint32_t, numUnprogrammedRoutes, NumUnprogrammedRoutes)
  VEX_COUNTER(std::uint32_t, numUnprogrammedV6Routes, NumUnprogrammedV6Routes)
  VEX_COUNTER(std::uint32_t, routesForReview, RoutesForReview)
  VEX_COUNTER(std::uint32_t, routes6ForReview, Routes6ForReview)
  VEX_COUNTER(std::uint32_t, addRouteToReview, AddRouteToReview)
  VEX_ATTR(std::uint64_t, sequenceProgrammed, SequenceProgrammed, 0)
  VEX_ATTR(std::uint64_t, sequence6Programmed, Sequence6Programmed, 0)
  VEX_COLLECTION(Nexo::Prefix, std::uint64_t, asyncFailedV4Route, AsyncFailedV4Route)
  VEX_COLLECTION(Nexo::Ip6Prefix, std::uint64_t, asyncFailedV6Route, AsyncFailedV6Route)
  VEX_COLLECTION(Pond::Fib::GlobalFecId, bool, adjEntryPrefixWalkList, AdjEntryPrefixWalkList)
  VEX_COLLECTION(Pond::Fib::GlobalFecId, bool, adjEntryIp6PrefixWalkList, AdjEntryIp6PrefixWalkList)
  // The synchronisation id of each FEC's adjacency in this VRF.
  VEX_COLLECTION(Pond::Fib::GlobalFecId, AdjSyncId, fecSyncMap, FecSyncMap)

 private:
  L3::VrfName vrfName_;
  Vrf::VrfIdMap::VrfId arpVrfId_;
};

Vex::Ptr<VrfL3Status> vrfL3StatusFactory(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId arpVrfId);

// One FEC in use as an adjacency.
class AdjEntry : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjEntry> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(L2Adj)
    VEX_KEY_HANDLER(L2AdjWaitingOnReview, L2AdjKey)
    VEX_HANDLER(AdjVia)
    VEX_HANDLER(AdjVia6)
    VEX_HANDLER(AdjToL2Intf)
    VEX_HANDLER(AdjToL3Intf)
    VEX_HANDLER(BackupActivated)
    VEX_HANDLER(BurnPrimariesEnabled)
    VEX_HANDLER(Initialized)
    VEX_KEY_HANDLER(ReviewPendingPrefix, VrfAndPrefix)
    VEX_KEY_HANDLER(ReviewPendingPrefix6, VrfAndIp6Prefix)
    VEX_HANDLER(AdjIndex)
    VEX_HANDLER(AdjType)
    VEX_HANDLER(TableType)
  };

  explicit AdjEntry(Pond::Fib::GlobalFecId fecId) : Entity(std::to_string(fecId.value())), fecId_(fecId) {}
  Pond::Fib::GlobalFecId fecId() const { return fecId_; }

  VEX_ATTR(Vex::Ptr<L2Adjacency>, l2Adj, L2Adj)
  // Adjacencies that wait for this entry's review.
  VEX_SET(L2AdjKey, l2AdjWaitingOnReview, L2AdjWaitingOnReview)
  VEX_ATTR(AdjVia, adjVia, AdjVia)
  VEX_ATTR(AdjVia6, adjVia6, AdjVia6)

  VEX_ATTR(Nexo::IntfId, adjToL2Intf, AdjToL2Intf)
  VEX_ATTR(Nexo::IntfId, adjToL3Intf, AdjToL3Intf)
  VEX_ATTR(bool, backupActivated, BackupActivated, false)
  VEX_ATTR(bool, burnPrimariesEnabled, BurnPrimariesEnabled, false)
  VEX_ATTR(bool, initialized, Initialized, false)
  VEX_SET(VrfAndPrefix, reviewPendingPrefix, ReviewPendingPrefix)
  VEX_SET(VrfAndIp6Prefix, reviewPendingPrefix6, ReviewPendingPrefix6)
  VEX_ATTR(std::uint32_t, adjIndex, AdjIndex, 0)
  VEX_ATTR(L2AdjType, adjType, AdjType, L2AdjType::nexthopAdj)
  VEX_ATTR(TableType, tableType, TableType, TableType::tableTypeUnknown)

 private:
  Pond::Fib::GlobalFecId fecId_;
};

Vex::Ptr<AdjEntry> adjEntryFactory(Pond::Fib::GlobalFecId fecId);

// The prefixes that resolve to one FEC, per VRF and family. The sets are
// held in place (no copy per write): the writers are insert and erase of
// one prefix, and they notify the VRF whose list changed.
class AdjGlobalPrefixList : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjGlobalPrefixList> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VrfPrefixList, VrfId)
    VEX_KEY_HANDLER(VrfPrefix6List, VrfId)
  };
  using PrefixSet = Vex::HashSet<Nexo::Prefix>;
  using Prefix6Set = Vex::HashSet<Nexo::Ip6Prefix>;

  explicit AdjGlobalPrefixList(Pond::Fib::GlobalFecId fecId) : fecId_(fecId) {}
  Pond::Fib::GlobalFecId fecId() const { return fecId_; }

  const Vex::HashMap<VrfId, PrefixSet>& vrfPrefixList() const { return vrfPrefixList_; }
  const PrefixSet& vrfPrefixList(VrfId vrf) const;
  bool vrfPrefixListHas(VrfId vrf) const { return vrfPrefixList_.contains(vrf); }
  // Creates the VRF's list when absent; true when it did.
  bool vrfPrefixListIs(VrfId vrf);
  // True when the prefix is new to the VRF's list (made when absent).
  bool vrfPrefixIs(VrfId vrf, const Nexo::Prefix& prefix);
  // True when the prefix was listed; an emptied VRF list goes too.
  bool vrfPrefixDel(VrfId vrf, const Nexo::Prefix& prefix);

  const Vex::HashMap<VrfId, Prefix6Set>& vrfPrefix6List() const { return vrfPrefix6List_; }
  const Prefix6Set& vrfPrefix6List(VrfId vrf) const;
  bool vrfPrefix6ListHas(VrfId vrf) const { return vrfPrefix6List_.contains(vrf); }
  bool vrfPrefix6ListIs(VrfId vrf);
  bool vrfPrefix6Is(VrfId vrf, const Nexo::Ip6Prefix& prefix);
  bool vrfPrefix6Del(VrfId vrf, const Nexo::Ip6Prefix& prefix);

  bool empty() const { return vrfPrefixList_.empty() && vrfPrefix6List_.empty(); }

 private:
  Pond::Fib::GlobalFecId fecId_;
  Vex::HashMap<VrfId, PrefixSet> vrfPrefixList_;
  Vex::HashMap<VrfId, Prefix6Set> vrfPrefix6List_;
};

// How many prefixes use each FEC.
class AdjPrefixCountStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjPrefixCountStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(AdjPrefixCount, Pond::Fib::GlobalFecId)
    VEX_KEY_HANDLER(AdjPrefix6Count, Pond::Fib::GlobalFecId)
  };
  using Entity::Entity;
  VEX_KEYED_COUNTER(Pond::Fib::GlobalFecId, std::uint64_t, adjPrefixCount, AdjPrefixCount)
  VEX_KEYED_COUNTER(Pond::Fib::GlobalFecId, std::uint64_t, adjPrefix6Count, AdjPrefix6Count)
};

// Adjacency information per prefix.
class AdjInfoColl : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjInfoColl> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(AdjInfoList, VrfAndPrefix)
    VEX_KEY_HANDLER(AdjInfo6List, VrfAndIp6Prefix)
  };
  using Entity::Entity;
  VEX_COLLECTION(VrfAndPrefix, AdjInfo, adjInfoList, AdjInfoList)
  VEX_COLLECTION(VrfAndIp6Prefix, AdjInfo, adjInfo6List, AdjInfo6List)
};

// A routed interface as the chip layer holds it: its VRF and the chip's
// answer to programming it (0, success, while it is held).
struct OrbL3IntfEntry {
  VrfId vrfId;
  std::uint32_t hwStatus = 0;
  auto operator<=>(const OrbL3IntfEntry&) const = default;
  bool held() const { return hwStatus == 0; }
};
VEX_VALUE(OrbL3IntfEntry, "Orb::OrbL3IntfEntry", (vrfId, hwStatus))

// The layer-3 interface table: every routed interface the chip layer was
// asked to hold, and whether it holds it.
class OrbL3IntfTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<OrbL3IntfTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(L3Intf, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_COLLECTION(Nexo::IntfId, OrbL3IntfEntry, l3Intf, L3Intf)
};

// What routing knows of one next-hop address.
struct NextHopInfo {
  Nexo::EthAddr mac;
  Nexo::IntfId intf;
  bool resolved = false;
  auto operator<=>(const NextHopInfo&) const = default;
};
VEX_VALUE(NextHopInfo, "Orb::NextHopInfo", (mac, intf, resolved))

// A request for layer-3 multicast in a VRF and family, by name.
struct L3MulticastRequest {
  VrfId vrfId = invalidVrfId;
  bool ipv6 = false;
  bool enabled = false;
  auto operator<=>(const L3MulticastRequest&) const = default;
};
VEX_VALUE(L3MulticastRequest, "Orb::L3MulticastRequest", (vrfId, ipv6, enabled))

// A per-VRF flag of each family, for the handshakes and markers below.
#define ORB_VRF_FLAGS(name4, Name4, name6, Name6)   \
  class Notifiee : public Vex::BaseNotifiee<Self> { \
   public:                                          \
    using BaseNotifiee::BaseNotifiee;               \
    VEX_KEY_HANDLER(Name4, VrfId)                   \
    VEX_KEY_HANDLER(Name6, VrfId)                   \
  };                                                \
  using Vex::Entity::Entity;                        \
  VEX_COLLECTION(VrfId, bool, name4, Name4)         \
  VEX_COLLECTION(VrfId, bool, name6, Name6)

// uRPF asks routing to stay on in a VRF while it checks sources there.
class UrpfRouting : public Vex::Entity {
  using Self = UrpfRouting;

 public:
  ORB_VRF_FLAGS(urpf4Enabled, Urpf4Enabled, urpf6Enabled, Urpf6Enabled)
};

// Routing's answer: uRPF's hold on the VRF is released.
class UrpfRoutingDisableDone : public Vex::Entity {
  using Self = UrpfRoutingDisableDone;

 public:
  ORB_VRF_FLAGS(urpf4DisableDone, Urpf4DisableDone, urpf6DisableDone, Urpf6DisableDone)
};

// The routing agent has published every route of the VRF once.
class EndOfSync : public Vex::Entity {
  using Self = EndOfSync;

 public:
  ORB_VRF_FLAGS(endOfV4Sync, EndOfV4Sync, endOfV6Sync, EndOfV6Sync)
};

// A review of the VRF's routes is under way.
class ReviewPending : public Vex::Entity {
  using Self = ReviewPending;

 public:
  ORB_VRF_FLAGS(routeReviewPending, RouteReviewPending, route6ReviewPending, Route6ReviewPending)
};
#undef ORB_VRF_FLAGS

// The shared, published view of layer-3 state.
class L3Status : public Vex::Entity {
 public:
  using GlobalFecId = Pond::Fib::GlobalFecId;
  using ArpVrfId = Vrf::VrfIdMap::VrfId;

  class Notifiee : public Vex::BaseNotifiee<L3Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VrfId, L3::VrfName)
    VEX_KEY_HANDLER(VrfName, VrfId)
    VEX_KEY_HANDLER(VrfL3Status, L3::VrfName)
    VEX_KEY_HANDLER(VrfL3StatusByArpVrfId, ArpVrfId)
    VEX_KEY_HANDLER(L3IntfVrfId, Nexo::IntfId)
    VEX_KEY_HANDLER(UnnumberedIntfId, Nexo::IntfId)
    VEX_KEY_HANDLER(AdjEntryList, GlobalFecId)
    VEX_KEY_HANDLER(AdjEntryReviewList, GlobalFecId)
    VEX_HANDLER(AdjEntryReviewCnt)
    VEX_KEY_HANDLER(AdjGlobalPrefixList, GlobalFecId)
    VEX_KEY_HANDLER(FecArpVrf, GlobalFecId)
    VEX_KEY_HANDLER(AdjToResEcmpPrefix, GlobalFecId)
    VEX_KEY_HANDLER(AdjPbrCount, GlobalFecId)
    VEX_KEY_HANDLER(L2AdjList, L2AdjKey)
    VEX_KEY_HANDLER(EcmpTransientSingleNhToL2Adj, NextHopCollection)
    VEX_KEY_HANDLER(TunnelL2AdjUpdateCnt, std::uint32_t)
    VEX_KEY_HANDLER(ResolvedAddr, VrfAndIpAddr)
    VEX_KEY_HANDLER(ResolvedIp6Addr, VrfAndIp6Addr)
    VEX_HANDLER(RoutingStatus)
    VEX_KEY_HANDLER(IntfRoutingState, Nexo::IntfId)
    VEX_KEY_HANDLER(HwResourceUtilization, std::string)
    VEX_KEY_HANDLER(L2IntfHwIdChange, Nexo::IntfId)
    VEX_HANDLER(FecShuffleVersion)
    VEX_KEY_HANDLER(PrivateVlanPrimary, Bridging::VlanId)
    VEX_HANDLER(RouterMac)
    VEX_HANDLER(Initialized)
    VEX_HANDLER(L2NhgMode)
    VEX_HANDLER(MrouteZombieEnabled)
    VEX_HANDLER(LongestPrefixTableFull)
    VEX_HANDLER(PreventRouteInstallAfterResourceFull)
    VEX_HANDLER(NumTimesRoutingEnabled)
    VEX_HANDLER(NumTimesRouting6Enabled)
    VEX_HANDLER(NumTimesMcastRoutingEnabled)
    VEX_KEY_HANDLER(NextHopInfo, VrfAndIpAddr)
    VEX_KEY_HANDLER(NextHop6Info, VrfAndIp6Addr)
    VEX_KEY_HANDLER(Urpf4Status, Nexo::IntfId)
    VEX_KEY_HANDLER(Urpf6Status, Nexo::IntfId)
    VEX_KEY_HANDLER(Urpf6StatusUnresolved, Nexo::IntfId)
    VEX_KEY_HANDLER(L3MulticastRequest, std::string)
  };

  explicit L3Status(const std::string& name);

  // VRF names and numbers. vrfNameIs writes only a changed name.
  VEX_COLLECTION(L3::VrfName, VrfId, vrfId, VrfId)
  VEX_COLLECTION(VrfId, L3::VrfName, vrfName, VrfName)

  // The per-VRF statuses, also indexed by ARP VRF id; written only through
  // vrfL3StatusIs / vrfL3StatusDel, which keep the index.
  const Vex::HashMap<L3::VrfName, Vex::Ptr<VrfL3Status>>& vrfL3Status() const { return vrfL3Status_; }
  Vex::Ptr<VrfL3Status> vrfL3Status(const L3::VrfName& name) const;
  bool vrfL3StatusHas(const L3::VrfName& name) const { return vrfL3Status_.contains(name); }
  // The VRF's status, made with the ARP VRF id when absent (or when it had
  // another ARP VRF id). It takes the VRF's number when that is known.
  Vex::Ptr<VrfL3Status> vrfL3StatusIs(const L3::VrfName& name, ArpVrfId arpVrfId);
  void vrfL3StatusDel(const L3::VrfName& name);
  Vex::Ptr<VrfL3Status> vrfL3StatusByArpVrfId(ArpVrfId arpVrfId) const;

  VEX_COLLECTION(Nexo::IntfId, VrfId, l3IntfVrfId, L3IntfVrfId)
  // Takes a routed interface out of its VRF's status. The status must exist
  // and hold the interface.
  void l3IntfVrfIdDel(const Nexo::IntfId& intfId, VrfId vrfId);
  VEX_COLLECTION(Nexo::IntfId, Nexo::IntfId, unnumberedIntfId, UnnumberedIntfId)

  // Invalid ids when the VRF is not known.
  ArpVrfId orbVrfIdToArpVrfId(VrfId vrfId) const;
  VrfId arpVrfIdToOrbVrfId(ArpVrfId arpVrfId) const;
  ArpVrfId fecIdToArpVrfId(GlobalFecId fecId) const;
  // The FIB table of the named VRF; 0 when the VRF is unknown.
  Pond::Fib::TableId vrfNameToFibTableId(const L3::VrfName& name) const;
  Pond::Fib::TableId getDefaultVrfTableId() const { return vrfNameToFibTableId(L3::VrfName("default")); }

  // FECs in use as adjacencies.
  VEX_COLLECTION(GlobalFecId, Vex::Ptr<AdjEntry>, adjEntryList, AdjEntryList)
  VEX_OWNED_MEMBERS(GlobalFecId, AdjEntry, adjEntryList)
  VEX_COLLECTION(GlobalFecId, AdjUpdateType, adjEntryReviewList, AdjEntryReviewList)
  VEX_COUNTER(std::uint64_t, adjEntryReviewCnt, AdjEntryReviewCnt)
  // Adds `reasons` to the FEC's review mask. A request that adds no reason
  // takes the entry out and puts it back, so the reviewer always hears it.
  void notifyAdjEntryForReview(GlobalFecId fecId, AdjUpdateType reasons);

  // Which prefixes resolve to each FEC, and how many.
  VEX_COLLECTION(GlobalFecId, Vex::Ptr<AdjGlobalPrefixList>, adjGlobalPrefixList, AdjGlobalPrefixList)
  VEX_OWNED_MEMBERS(GlobalFecId, AdjGlobalPrefixList, adjGlobalPrefixList)
  const Vex::Ptr<AdjPrefixCountStatus>& adjPrefixCountStatus() const { return adjPrefixCountStatus_; }
  const Vex::Ptr<AdjInfoColl>& adjInfoColl() const { return adjInfoColl_; }
  void adjVrfPrefixIs(GlobalFecId fecId, VrfId vrfId, const Nexo::Prefix& prefix);
  void adjVrfPrefixDel(GlobalFecId fecId, VrfId vrfId, const Nexo::Prefix& prefix);
  void adjVrfPrefix6Is(GlobalFecId fecId, VrfId vrfId, const Nexo::Ip6Prefix& prefix);
  void adjVrfPrefix6Del(GlobalFecId fecId, VrfId vrfId, const Nexo::Ip6Prefix& prefix);
  // Forgets every FEC's prefixes of both families, and their counts.
  void adjGenPrefixListDelAll();
  // The VRF whose ARP VRF answers for a FEC: the first VRF a prefix of the
  // FEC came from.
  VEX_COLLECTION(GlobalFecId, VrfId, fecArpVrf, FecArpVrf)
  void addFecArpVrfId(GlobalFecId fecId, VrfId vrfId) {
    if (!fecArpVrfHas(fecId)) fecArpVrfIs(fecId, vrfId);
  }

  VEX_COLLECTION(GlobalFecId, std::set<VrfAndIpGenPrefix>, adjToResEcmpPrefix, AdjToResEcmpPrefix)
  VEX_KEYED_COUNTER(GlobalFecId, std::uint32_t, adjPbrCount, AdjPbrCount)
  // Every layer-2 adjacency; whoever programs hardware follows this list.
  VEX_COLLECTION(L2AdjKey, Vex::Ptr<L2Adjacency>, l2AdjList, L2AdjList)
  VEX_COLLECTION(NextHopCollection, Vex::Ptr<L2Adjacency>, ecmpTransientSingleNhToL2Adj, EcmpTransientSingleNhToL2Adj)
  VEX_KEYED_COUNTER(std::uint32_t, std::uint32_t, tunnelL2AdjUpdateCnt, TunnelL2AdjUpdateCnt)
  VEX_COLLECTION(VrfAndIpAddr, bool, resolvedAddr, ResolvedAddr)
  VEX_COLLECTION(VrfAndIp6Addr, bool, resolvedIp6Addr, ResolvedIp6Addr)
  VEX_ATTR(RoutingStatus, routingStatus, RoutingStatus)
  VEX_COLLECTION(Nexo::IntfId, RoutingState, intfRoutingState, IntfRoutingState)
  VEX_COLLECTION(std::string, HwResourceUtilization, hwResourceUtilization, HwResourceUtilization)
  VEX_COLLECTION(Nexo::IntfId, bool, l2IntfHwIdChange, L2IntfHwIdChange)
  VEX_ATTR(std::uint32_t, fecShuffleVersion, FecShuffleVersion, 0)
  // Private VLANs: a routed secondary VLAN to its primary.
  VEX_COLLECTION(Bridging::VlanId, Bridging::VlanId, privateVlanPrimary, PrivateVlanPrimary)
  VEX_ATTR(Nexo::EthAddr, routerMac, RouterMac)
  VEX_ATTR(bool, initialized, Initialized, false)
  VEX_ATTR(bool, l2NhgMode, L2NhgMode, false)
  VEX_ATTR(bool, mrouteZombieEnabled, MrouteZombieEnabled, false)
  VEX_ATTR(bool, longestPrefixTableFull, LongestPrefixTableFull, false)
  VEX_ATTR(bool, preventRouteInstallAfterResourceFull, PreventRouteInstallAfterResourceFull, false)
  VEX_COUNTER(std::uint32_t, numTimesRoutingEnabled, NumTimesRoutingEnabled)
  VEX_COUNTER(std::uint32_t, numTimesRouting6Enabled, NumTimesRouting6Enabled)
  VEX_COUNTER(std::uint32_t, numTimesMcastRoutingEnabled, NumTimesMcastRoutingEnabled)
  VEX_COLLECTION(VrfAndIpAddr, NextHopInfo, nextHopInfo, NextHopInfo)
  VEX_COLLECTION(VrfAndIp6Addr, NextHopInfo, nextHop6Info, NextHop6Info)
  // uRPF per interface; IPv6 interfaces whose check cannot resolve yet are
  // kept apart.
  VEX_COLLECTION(Nexo::IntfId, Urpf::UrpfStatus, urpf4Status, Urpf4Status)
  VEX_COLLECTION(Nexo::IntfId, Urpf::UrpfStatus, urpf6Status, Urpf6Status)
  VEX_COLLECTION(Nexo::IntfId, Urpf::UrpfStatus, urpf6StatusUnresolved, Urpf6StatusUnresolved)
  VEX_COLLECTION(std::string, L3MulticastRequest, l3MulticastRequest, L3MulticastRequest)
  // The layer-3 interface table, given once by the chip layer that keeps
  // it; giving another asserts.
  const Vex::Ptr<OrbL3IntfTable>& orbL3IntfTable() const { return orbL3IntfTable_; }
  void orbL3IntfTableIs(const Vex::Ptr<OrbL3IntfTable>& table);
  // Sub-entities, made with the status.
  const Vex::Ptr<UrpfRouting>& urpfRouting() const { return urpfRouting_; }
  const Vex::Ptr<UrpfRoutingDisableDone>& urpfRoutingDisableDone() const { return urpfRoutingDisableDone_; }
  const Vex::Ptr<EndOfSync>& endOfSync() const { return endOfSync_; }
  const Vex::Ptr<ReviewPending>& reviewPending() const { return reviewPending_; }

  // Over the VRF statuses.
  bool routingEnabledInDefaultVrf() const;
  bool routing6EnabledInDefaultVrf() const;
  bool routingEnabledInAnyVrf() const;
  bool routing6EnabledInAnyVrf() const;
  bool unprogrammedV4RoutesInAnyVrf() const { return numUnprogrammedRoutes() != 0; }
  bool unprogrammedV6RoutesInAnyVrf() const { return numUnprogrammedV6Routes() != 0; }
  // Some VRF routes but has not finished its end-of-sync.
  bool v4SyncPendingInAnyVrf() const;
  bool v6SyncPendingInAnyVrf() const;
  std::uint64_t numUnprogrammedRoutes() const;
  std::uint64_t numUnprogrammedV6Routes() const;
  std::uint64_t routesForReview() const;
  std::uint64_t routes6ForReview() const;
  std::set<L3::VrfName> waitForRoutingDisabledInVrfs() const;
  std::set<L3::VrfName> waitForRouting6DisabledInVrfs() const;
  // The primary of a secondary VLAN; any other VLAN is its own.
  Bridging::VlanId getPrimaryVlan(Bridging::VlanId vlan) const;
  bool isPrimaryVlan(Bridging::VlanId vlan) const;
  bool isSecondaryVlan(Bridging::VlanId vlan) const { return privateVlanPrimaryHas(vlan); }

 private:
  Vex::HashMap<L3::VrfName, Vex::Ptr<VrfL3Status>> vrfL3Status_;
  Vex::HashMap<ArpVrfId, Vex::Ptr<VrfL3Status>> vrfL3StatusByArpVrfId_;
  Vex::Ptr<AdjPrefixCountStatus> adjPrefixCountStatus_;
  Vex::Ptr<AdjInfoColl> adjInfoColl_;
  Vex::Ptr<OrbL3IntfTable> orbL3IntfTable_;
  Vex::Ptr<UrpfRouting> urpfRouting_;
  Vex::Ptr<UrpfRoutingDisableDone> urpfRoutingDisableDone_;
  Vex::Ptr<EndOfSync> endOfSync_;
  Vex::Ptr<ReviewPending> reviewPending_;
};

Vex::Ptr<L3Status> l3StatusFactory(const std::string& name);

}  // namespace Orb
