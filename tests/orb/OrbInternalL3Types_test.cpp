// The internal layer-3 bookkeeping: the FEC hierarchy in both directions,
// and the adjacency graph behind the dedup map as FECs bind to collections.
#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL2AdjBinder.h"

#include <gtest/gtest.h>

namespace {

using namespace Orb;
using Pond::Fib::GlobalFecId;

TEST(FecHierarchy, BothDirectionsStayConsistent) {
  auto internal = orbInternalL3StatusFactory("internal");
  GlobalFecId top(1), mid(2), leafA(3), leafB(4);
  internal->nextLevelFecIdIs(top, mid);
  internal->nextLevelFecIdIs(mid, leafA);
  internal->nextLevelFecIdIs(mid, leafB);
  internal->nextLevelFecIdIs(mid, leafB);
  EXPECT_EQ(internal->nextLevelFecIdColl(mid), (std::set<GlobalFecId>{leafA, leafB}));
  EXPECT_EQ(internal->prevLevelFecIdColl(leafB), std::set<GlobalFecId>{mid});
  EXPECT_EQ(internal->prevLevelFecIdColl(mid), std::set<GlobalFecId>{top});

  internal->nextLevelFecIdDel(mid, leafA);
  EXPECT_FALSE(internal->prevLevelFecIdCollHas(leafA));
  internal->nextLevelFecIdDel(mid, leafA);  // not there: nothing
  EXPECT_EQ(internal->nextLevelFecIdColl(mid), std::set<GlobalFecId>{leafB});

  internal->fecIdHierarchyDel(mid);
  EXPECT_FALSE(internal->nextLevelFecIdCollHas(mid));
  EXPECT_FALSE(internal->prevLevelFecIdCollHas(mid));
  EXPECT_FALSE(internal->nextLevelFecIdCollHas(top));
  EXPECT_FALSE(internal->prevLevelFecIdCollHas(leafB));
}

class AdjGraphTest : public ::testing::Test {
 protected:
  Vex::Ptr<L3Status> status = l3StatusFactory("l3Status");
  Vex::Ptr<OrbInternalL3Status> internal = orbInternalL3StatusFactory("internal");
  L2AdjBinder binder{status, internal};
  std::map<VrfAndIpAddr, NeighborInfo> neighbors;

  NextHopCollection collection(const std::vector<std::pair<const char*, const char*>>& vias) {
    AdjVia adjVia;
    for (const auto& [addr, intf] : vias) adjVia.viaIs(Via{Nexo::IpAddr(addr), Nexo::IntfId(intf), {}}, 1);
    return buildNextHopCollection(adjVia, VrfId(0), [this](const VrfAndIpAddr& a) -> std::optional<NeighborInfo> {
      auto it = neighbors.find(a);
      if (it == neighbors.end()) return std::nullopt;
      return it->second;
    });
  }
};

TEST_F(AdjGraphTest, EqualCollectionsShareOneAdjacencyAndPartWhenOneChanges) {
  neighbors[VrfAndIpAddr(VrfId(0), Nexo::IpAddr("10.0.0.2"))] = {Nexo::EthAddr("00:00:00:00:00:02"), "Ethernet1"};
  auto both = collection({{"10.0.0.2", "Ethernet1"}, {"10.0.1.2", "Ethernet2"}});
  auto a = binder.fecNextHopsIs(GlobalFecId(10), both, TableType::tableTypeLongestPrefix);
  auto b = binder.fecNextHopsIs(GlobalFecId(20), collection({{"10.0.0.2", "Ethernet1"}, {"10.0.1.2", "Ethernet2"}}),
                                TableType::tableTypeLongestPrefix);
  EXPECT_EQ(a, b);
  EXPECT_EQ(internal->nextHopsToL2AdjSize(), 1u);
  EXPECT_EQ(status->l2AdjListSize(), 1u);
  EXPECT_EQ(internal->l2AdjRefCount(a->key()), 2u);
  EXPECT_EQ(a->adjTableType(TableType::tableTypeLongestPrefix), 2u);
  // Binding again from the same table counts nothing twice.
  binder.fecNextHopsIs(GlobalFecId(20), both, TableType::tableTypeLongestPrefix);
  EXPECT_EQ(a->adjTableType(TableType::tableTypeLongestPrefix), 2u);
  EXPECT_EQ(internal->l2AdjRefCount(a->key()), 2u);

  // FEC 20's second next hop resolves: it parts from FEC 10.
  neighbors[VrfAndIpAddr(VrfId(0), Nexo::IpAddr("10.0.1.2"))] = {Nexo::EthAddr("00:00:00:00:00:03"), "Ethernet2"};
  auto c = binder.fecNextHopsIs(GlobalFecId(20), collection({{"10.0.0.2", "Ethernet1"}, {"10.0.1.2", "Ethernet2"}}),
                                TableType::tableTypeLongestPrefix);
  EXPECT_NE(c, a);
  EXPECT_NE(c->key(), a->key());
  EXPECT_EQ(internal->nextHopsToL2AdjSize(), 2u);
  EXPECT_EQ(status->l2AdjListSize(), 2u);
  EXPECT_FALSE(a->adjEntryHas(GlobalFecId(20)));
  EXPECT_EQ(a->adjTableType(TableType::tableTypeLongestPrefix), 1u);
  EXPECT_EQ(status->adjEntryList(GlobalFecId(20))->l2Adj(), c);

  // The last user leaves: the adjacency is withdrawn and forgotten.
  binder.fecDel(GlobalFecId(10));
  EXPECT_FALSE(status->l2AdjListHas(a->key()));
  EXPECT_FALSE(internal->nextHopsToL2AdjHas(both));
  EXPECT_FALSE(internal->l2AdjRefCountHas(a->key()));
  EXPECT_EQ(a->state(), L2AdjState::deleted);
  EXPECT_FALSE(status->adjEntryListHas(GlobalFecId(10)));
  binder.fecDel(GlobalFecId(10));  // gone already: nothing
  EXPECT_EQ(status->l2AdjListSize(), 1u);
}

TEST_F(AdjGraphTest, ViasToOneNeighbourAddUpAndRememberTheirPositions) {
  neighbors[VrfAndIpAddr(VrfId(0), Nexo::IpAddr("10.0.0.2"))] = {Nexo::EthAddr("00:00:00:00:00:02"), "Ethernet1"};
  AdjVia vias;
  vias.viaIs(Via{Nexo::IpAddr("10.0.0.2"), Nexo::IntfId("Ethernet1"), {}}, 2);
  vias.viaIs(Via{Nexo::IpAddr("10.0.0.3"), Nexo::IntfId("Ethernet1"), {}}, 1);
  auto nextHops = buildNextHopCollection(vias, VrfId(0), [this](const VrfAndIpAddr& a) -> std::optional<NeighborInfo> {
    auto it = neighbors.find(a);
    if (it == neighbors.end()) return std::nullopt;
    return it->second;
  });
  ASSERT_EQ(nextHops.nextHopSize(), 2u);
  NextHop resolved(NextHopEntryType::nextHopArpResolved, Nexo::EthAddr("00:00:00:00:00:02"), Nexo::IntfId("Ethernet1"),
                   Nexo::IntfId("Ethernet1"));
  NextHop unresolved(NextHopEntryType::nextHopArpRequired, Nexo::EthAddr(), Nexo::IntfId("Ethernet1"),
                     Nexo::IntfId("Ethernet1"));
  EXPECT_EQ(nextHops.nextHop(resolved), 2u);
  EXPECT_EQ(nextHops.nextHop(unresolved), 1u);
  EXPECT_TRUE(nextHops.nextHopBitmap(resolved).bitTest(OrbTypes::ViaBitmapRange(0)));
  EXPECT_TRUE(nextHops.nextHopBitmap(unresolved).bitTest(OrbTypes::ViaBitmapRange(1)));
  EXPECT_EQ(nextHops.totalWeight(), 3u);
}

TEST_F(AdjGraphTest, Ipv6ViasToTheSameNeighboursShareTheIpv4FecsAdjacency) {
  // Next hops name MACs and interfaces, not addresses: an IPv6 FEC whose
  // neighbours are the IPv4 FEC's shares its adjacency, and parts from it
  // when one of its own neighbours goes.
  neighbors[VrfAndIpAddr(VrfId(0), Nexo::IpAddr("10.0.0.2"))] = {Nexo::EthAddr("00:00:00:00:00:02"), "Ethernet1"};
  std::map<VrfAndIp6Addr, NeighborInfo> neighbors6;
  neighbors6[VrfAndIp6Addr(VrfId(0), Nexo::Ip6Addr("2001:db8::2"))] = {Nexo::EthAddr("00:00:00:00:00:02"), "Ethernet1"};
  auto lookup6 = [&](const VrfAndIp6Addr& a) -> std::optional<NeighborInfo> {
    auto it = neighbors6.find(a);
    if (it == neighbors6.end()) return std::nullopt;
    return it->second;
  };
  AdjVia6 vias6;
  vias6.viaIs(Via6{Nexo::Ip6Addr("2001:db8::2"), Nexo::IntfId("Ethernet1"), {}}, 1);
  vias6.viaIs(Via6{Nexo::Ip6Addr("2001:db8::3"), Nexo::IntfId("Ethernet2"), {}}, 1);
  auto v4 = binder.fecNextHopsIs(GlobalFecId(10), collection({{"10.0.0.2", "Ethernet1"}, {"10.0.0.3", "Ethernet2"}}),
                                 TableType::tableTypeLongestPrefix);
  auto v6 = binder.fecNextHopsIs(GlobalFecId(20), buildNextHopCollection(vias6, VrfId(0), lookup6),
                                 TableType::tableTypeLongestPrefix);
  EXPECT_EQ(v4, v6);
  EXPECT_EQ(internal->l2AdjRefCount(v4->key()), 2u);
  neighbors6.clear();
  auto parted = binder.fecNextHopsIs(GlobalFecId(20), buildNextHopCollection(vias6, VrfId(0), lookup6),
                                     TableType::tableTypeLongestPrefix);
  EXPECT_NE(parted, v4);
  EXPECT_EQ(parted->nextHops().nextHopSize(), 2u);
  EXPECT_EQ(internal->l2AdjRefCount(v4->key()), 1u);
}

TEST(InternalL3Status, BfdSessionsAndRouteCachesByKey) {
  auto internal = orbInternalL3StatusFactory("internal");
  VrfAndIpAddr peer(VrfId(1), Nexo::IpAddr(0x0a000001));
  internal->bfdV4StatusInfoIs(peer, {BfdState::up, Nexo::IntfId("Ethernet2")});
  EXPECT_EQ(internal->bfdV4StatusInfo(peer).state, BfdState::up);
  EXPECT_EQ(internal->bfdV4StatusInfo(VrfAndIpAddr(VrfId(2), Nexo::IpAddr(0x0a000001))).state, BfdState::down);
  internal->routeCacheStatusIs(VrfId(1), {true, 12});
  EXPECT_EQ(internal->routeCacheStatus(VrfId(1)).cachedRoutes, 12u);
  EXPECT_EQ(Vex::fromStrep<BfdStatusInfo>(Vex::toStrep(internal->bfdV4StatusInfo(peer))),
            internal->bfdV4StatusInfo(peer));
  internal->l3ResolvedNhgAdjsIs("nhg1", {L2AdjKey{L2AdjType::nexthopAdj, 3}});
  EXPECT_EQ(internal->l3ResolvedNhgAdjs("nhg1").size(), 1u);
}

}  // namespace
