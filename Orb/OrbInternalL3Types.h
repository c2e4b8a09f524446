// Layer-3 bookkeeping private to the layer and the chip layer: route and
// resource counters, the FEC hierarchy, and the adjacency graph with its
// dedup map (one L2Adjacency per distinct next-hop collection).
#pragma once

#include "Orb/OrbAdjTypes.h"
#include "Orb/OrbFecRequest.h"
#include "Orb/OrbL3Types.h"
#include "Orb/OrbResilientEcmpTypes.h"
#include "platform/vex/Entity.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <set>
#include <string>

namespace Orb {

// Who holds a FEC as an adjacency: the FECs of the level above that
// resolve through it, and the FEC it stands in for when it is a proxy.
struct AdjRefCount {
  std::set<Pond::Fib::GlobalFecId> prevLevelFecId;
  Pond::Fib::GlobalFecId proxyFecId;
  auto operator<=>(const AdjRefCount&) const = default;
};
VEX_VALUE(AdjRefCount, "Orb::AdjRefCount", (prevLevelFecId, proxyFecId))

// The route cache of a VRF: routes the CPU learned to forward, cached in
// hardware.
struct RouteCacheStatus {
  bool enabled = false;
  std::uint64_t cachedRoutes = 0;
  auto operator<=>(const RouteCacheStatus&) const = default;
};
VEX_VALUE(RouteCacheStatus, "Orb::RouteCacheStatus", (enabled, cachedRoutes))

enum class BfdState : std::uint8_t { adminDown, down, init, up };
BOOST_DESCRIBE_ENUM(BfdState, adminDown, down, init, up)

// A BFD session to a next hop, as the BFD agent reports it.
struct BfdStatusInfo {
  BfdState state = BfdState::down;
  Nexo::IntfId intf;
  auto operator<=>(const BfdStatusInfo&) const = default;
};
VEX_VALUE(BfdStatusInfo, "Orb::BfdStatusInfo", (state, intf))

class OrbInternalL3Status : public Vex::Entity {
 public:
  using GlobalFecId = Pond::Fib::GlobalFecId;
  using FecIdSet = std::set<GlobalFecId>;

  class Notifiee : public Vex::BaseNotifiee<OrbInternalL3Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Ipv4FibRoutes)
    VEX_HANDLER(Ipv6FibRoutes)
    VEX_HANDLER(Ipv4UnProgrammedRoutes)
    VEX_HANDLER(Ipv6UnProgrammedRoutes)
    VEX_HANDLER(NexthopAdjEntryCount)
    VEX_HANDLER(ReEvalIfRoutingIsFullyDisabled)
    VEX_HANDLER(OrbAttachedAdjId)
    VEX_HANDLER(RoutingResourceFull)
    VEX_HANDLER(Ip6RoutingResourceFull)
    VEX_HANDLER(ExactMatchTableFull)
    VEX_HANDLER(AdjResourceFull)
    VEX_KEY_HANDLER(Ip6OverflowRoute, Nexo::Ip6Prefix)
    VEX_KEY_HANDLER(NextLevelFecIdColl, GlobalFecId)
    VEX_KEY_HANDLER(PrevLevelFecIdColl, GlobalFecId)
    VEX_KEY_HANDLER(AdjRefCount, GlobalFecId)
    VEX_KEY_HANDLER(AdjProxyFor, GlobalFecId)
    VEX_KEY_HANDLER(AdjSourceFor, GlobalFecId)
    VEX_KEY_HANDLER(FecIdToVrfId, GlobalFecId)
    VEX_KEY_HANDLER(NextHopsToL2Adj, NextHopCollection)
    VEX_KEY_HANDLER(L2AdjRefCount, L2AdjKey)
    VEX_KEY_HANDLER(L2AdjToContainedL2AdjSet, L2AdjKey)
    VEX_KEY_HANDLER(L2AdjToContainingL2AdjSet, L2AdjKey)
    VEX_KEY_HANDLER(L2AdjToPreviousLevel2Adj, L2AdjKey)
    VEX_KEY_HANDLER(L2AdjToUpdateTime, L2AdjKey)
    VEX_KEY_HANDLER(PendingL2AdjDown, L2AdjKey)
    VEX_KEY_HANDLER(EcmpExpansionSubL2AdjToFecId, L2AdjKey)
    VEX_KEY_HANDLER(EcmpExpansionUpperL2AdjToFecId, L2AdjKey)
    VEX_KEY_HANDLER(NexthopAdjUpdateList, GlobalFecId)
    VEX_KEY_HANDLER(NextHopToAdjEntry, VrfAndIpGenAddr)
    VEX_KEY_HANDLER(IntfToAdjEntry, Nexo::IntfId)
    VEX_KEY_HANDLER(TunnelIdToAdjEntry, std::uint32_t)
    VEX_KEY_HANDLER(AdjGenUpdateList, GlobalFecId)
    VEX_KEY_HANDLER(TunnelL2Info, TunnelKey)
    VEX_KEY_HANDLER(TunnelToL2AdjUserList, TunnelKey)
    VEX_KEY_HANDLER(L2AdjToTunnel, L2AdjKey)
    VEX_KEY_HANDLER(L2AdjToUsedTunnelList, L2AdjKey)
    VEX_KEY_HANDLER(L2NhgTunnelIdToKey, std::uint32_t)
    VEX_KEY_HANDLER(L2NhgTunnel6IdToKey, std::uint32_t)
    VEX_KEY_HANDLER(ResEcmpBlacklist, GlobalFecId)
    VEX_HANDLER(ResEcmpIndexCounter)
    VEX_KEY_HANDLER(ResEcmpIndexUsed, std::uint32_t)
    VEX_KEY_HANDLER(ResilientAdjIndexToAdjInfo, VrfId)
    VEX_KEY_HANDLER(ResilientAdjIndexToAdjInfo6, VrfId)
    VEX_KEY_HANDLER(AttachedRoutes, VrfAndIpGenPrefix)
    VEX_KEY_HANDLER(NhReqIdToVrfId, std::uint64_t)
    VEX_KEY_HANDLER(FecIdToRequestSourceMap, GlobalFecId)
    VEX_KEY_HANDLER(PvlanL3Intf, Nexo::IntfId)
    VEX_HANDLER(HardwareRoutingEnabled)
    VEX_HANDLER(NextL2AdjIndex)
    VEX_KEY_HANDLER(RouteCacheStatus, VrfId)
    VEX_KEY_HANDLER(L3ResolvedNhgAdjs, std::string)
    VEX_KEY_HANDLER(BfdTunnelOperState, TunnelKey)
    VEX_KEY_HANDLER(BfdV4StatusInfo, VrfAndIpAddr)
    VEX_KEY_HANDLER(BfdV6StatusInfo, VrfAndIp6Addr)
  };

  using Entity::Entity;

  VEX_COUNTER(std::uint64_t, ipv4FibRoutes, Ipv4FibRoutes)
  VEX_COUNTER(std::uint64_t, ipv6FibRoutes, Ipv6FibRoutes)
  VEX_COUNTER(std::uint64_t, ipv4UnProgrammedRoutes, Ipv4UnProgrammedRoutes)
  VEX_COUNTER(std::uint64_t, ipv6UnProgrammedRoutes, Ipv6UnProgrammedRoutes)
  VEX_COUNTER(std::uint64_t, nexthopAdjEntryCount, NexthopAdjEntryCount)
  VEX_COUNTER(std::uint64_t, reEvalIfRoutingIsFullyDisabled, ReEvalIfRoutingIsFullyDisabled)
  VEX_COUNTER(std::uint64_t, orbAttachedAdjId, OrbAttachedAdjId)
  VEX_ATTR(bool, routingResourceFull, RoutingResourceFull, false)
  VEX_ATTR(bool, ip6RoutingResourceFull, Ip6RoutingResourceFull, false)
  VEX_ATTR(bool, exactMatchTableFull, ExactMatchTableFull, false)
  VEX_ATTR(bool, adjResourceFull, AdjResourceFull, false)
  VEX_COLLECTION(Nexo::Ip6Prefix, bool, ip6OverflowRoute, Ip6OverflowRoute)

  // The FEC hierarchy: the FECs each FEC resolves through, and the reverse.
  // Written only through nextLevelFecIdIs / nextLevelFecIdDel, which keep
  // both directions in step.
  VEX_COLLECTION(GlobalFecId, FecIdSet, nextLevelFecIdColl, NextLevelFecIdColl)
  VEX_COLLECTION(GlobalFecId, FecIdSet, prevLevelFecIdColl, PrevLevelFecIdColl)
  void nextLevelFecIdIs(GlobalFecId fecId, GlobalFecId nextLevel);
  void nextLevelFecIdDel(GlobalFecId fecId, GlobalFecId nextLevel);
  // Takes a FEC out of the hierarchy in both directions.
  void fecIdHierarchyDel(GlobalFecId fecId);

  VEX_COLLECTION(GlobalFecId, AdjRefCount, adjRefCount, AdjRefCount)
  VEX_COLLECTION(GlobalFecId, GlobalFecId, adjProxyFor, AdjProxyFor)
  VEX_COLLECTION(GlobalFecId, GlobalFecId, adjSourceFor, AdjSourceFor)
  VEX_COLLECTION(GlobalFecId, VrfId, fecIdToVrfId, FecIdToVrfId)

  // The adjacency graph.
  ORB_NEXTHOPS_TO_L2ADJ(nextHopsToL2Adj, NextHopsToL2Adj)
  VEX_KEYED_COUNTER(L2AdjKey, std::uint32_t, l2AdjRefCount, L2AdjRefCount)
  VEX_COLLECTION(L2AdjKey, Vex::Ptr<L2AdjKeyCollection>, l2AdjToContainedL2AdjSet, L2AdjToContainedL2AdjSet)
  VEX_COLLECTION(L2AdjKey, Vex::Ptr<L2AdjKeyCollection>, l2AdjToContainingL2AdjSet, L2AdjToContainingL2AdjSet)
  VEX_COLLECTION(L2AdjKey, L2AdjKey, l2AdjToPreviousLevel2Adj, L2AdjToPreviousLevel2Adj)
  VEX_COLLECTION(L2AdjKey, double, l2AdjToUpdateTime, L2AdjToUpdateTime)
  VEX_COLLECTION(L2AdjKey, bool, pendingL2AdjDown, PendingL2AdjDown)
  VEX_COLLECTION(L2AdjKey, GlobalFecId, ecmpExpansionSubL2AdjToFecId, EcmpExpansionSubL2AdjToFecId)
  VEX_COLLECTION(L2AdjKey, GlobalFecId, ecmpExpansionUpperL2AdjToFecId, EcmpExpansionUpperL2AdjToFecId)
  VEX_COLLECTION(GlobalFecId, Vex::Ptr<AdjEntry>, nexthopAdjUpdateList, NexthopAdjUpdateList)
  VEX_COLLECTION(VrfAndIpGenAddr, FecIdSet, nextHopToAdjEntry, NextHopToAdjEntry)
  VEX_COLLECTION(Nexo::IntfId, FecIdSet, intfToAdjEntry, IntfToAdjEntry)
  VEX_COLLECTION(std::uint32_t, FecIdSet, tunnelIdToAdjEntry, TunnelIdToAdjEntry)
  VEX_COLLECTION(GlobalFecId, bool, adjGenUpdateList, AdjGenUpdateList)
  // The index the next new adjacency takes.
  VEX_ATTR(std::uint32_t, nextL2AdjIndex, NextL2AdjIndex, 1)

  // Tunnels.
  VEX_COLLECTION(TunnelKey, TunnelL2Info, tunnelL2Info, TunnelL2Info)
  VEX_COLLECTION(TunnelKey, std::set<L2AdjKey>, tunnelToL2AdjUserList, TunnelToL2AdjUserList)
  VEX_COLLECTION(L2AdjKey, TunnelKey, l2AdjToTunnel, L2AdjToTunnel)
  VEX_COLLECTION(L2AdjKey, std::set<TunnelKey>, l2AdjToUsedTunnelList, L2AdjToUsedTunnelList)
  VEX_COLLECTION(std::uint32_t, TunnelKey, l2NhgTunnelIdToKey, L2NhgTunnelIdToKey)
  VEX_COLLECTION(std::uint32_t, TunnelKey, l2NhgTunnel6IdToKey, L2NhgTunnel6IdToKey)

  // Resilient ECMP.
  VEX_SET(GlobalFecId, resEcmpBlacklist, ResEcmpBlacklist)
  VEX_COUNTER(std::uint32_t, resEcmpIndexCounter, ResEcmpIndexCounter)
  VEX_COLLECTION(std::uint32_t, bool, resEcmpIndexUsed, ResEcmpIndexUsed)
  // Per VRF, the via layout of each resilient adjacency; nameIs(vrf) makes
  // the VRF's table when absent.
  VEX_COLLECTION(VrfId, Vex::Ptr<ResilientAdjIndexToAdjInfo>, resilientAdjIndexToAdjInfo, ResilientAdjIndexToAdjInfo)
  VEX_OWNED_MEMBERS(VrfId, ResilientAdjIndexToAdjInfo, resilientAdjIndexToAdjInfo)
  VEX_COLLECTION(VrfId, Vex::Ptr<ResilientAdjIndexToAdjInfo6>, resilientAdjIndexToAdjInfo6, ResilientAdjIndexToAdjInfo6)
  VEX_OWNED_MEMBERS(VrfId, ResilientAdjIndexToAdjInfo6, resilientAdjIndexToAdjInfo6)

  VEX_COLLECTION(VrfAndIpGenPrefix, bool, attachedRoutes, AttachedRoutes)
  VEX_COLLECTION(std::uint64_t, VrfId, nhReqIdToVrfId, NhReqIdToVrfId)
  // Which FEC request sources ask for each FEC, and which have an answer.
  VEX_COLLECTION(GlobalFecId, FecIdToRequestSourceMapping, fecIdToRequestSourceMap, FecIdToRequestSourceMap)
  VEX_COLLECTION(Nexo::IntfId, bool, pvlanL3Intf, PvlanL3Intf)
  VEX_ATTR(bool, hardwareRoutingEnabled, HardwareRoutingEnabled, false)
  VEX_COLLECTION(VrfId, RouteCacheStatus, routeCacheStatus, RouteCacheStatus)
  // The adjacencies each configured next-hop group resolved to, by name.
  VEX_COLLECTION(std::string, std::set<L2AdjKey>, l3ResolvedNhgAdjs, L3ResolvedNhgAdjs)
  // BFD: tunnels whose session is up, and the sessions to next hops.
  VEX_COLLECTION(TunnelKey, bool, bfdTunnelOperState, BfdTunnelOperState)
  VEX_COLLECTION(VrfAndIpAddr, BfdStatusInfo, bfdV4StatusInfo, BfdV4StatusInfo)
  VEX_COLLECTION(VrfAndIp6Addr, BfdStatusInfo, bfdV6StatusInfo, BfdV6StatusInfo)
};

Vex::Ptr<OrbInternalL3Status> orbInternalL3StatusFactory(const std::string& name);

}  // namespace Orb
