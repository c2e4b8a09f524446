// Vias, adjacencies, table-type accounting, the collection dedup map and
// build results.
#include "Orb/OrbAdjTypes.h"

#include "tests/orb/NextHopRandom.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Orb::L2Adjacency;
using Orb::L2AdjKey;
using Orb::L2AdjType;
using Orb::NextHopCollection;
using Orb::TableType;
using Orb::TableTypeBoolSet;
using Pond::Fib::GlobalFecId;

// The smallest status entity embedding the dedup map.
class DedupStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<DedupStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(NextHopsToL2Adj, NextHopCollection)
  };
  using Vex::Entity::Entity;
  ORB_NEXTHOPS_TO_L2ADJ(nextHopsToL2Adj, NextHopsToL2Adj)

  // What a FEC does with its freshly built collection.
  Vex::Ptr<L2Adjacency> fecUses(GlobalFecId fec, const NextHopCollection& nextHops) {
    L2Adjacency& adj = nextHopsToL2AdjFindOrInsert(nextHops, [&] {
      auto created = Vex::make<L2Adjacency>(L2AdjKey{L2AdjType::routingAdj, ++lastIndex});
      created->nextHopsIs(nextHops);
      return created;
    });
    adj.adjEntryIs(fec);
    return Vex::Ptr<L2Adjacency>(&adj);
  }
  std::uint32_t lastIndex = 0;
};

class DedupWatcher : public DedupStatus::Notifiee {
 public:
  using Notifiee::Notifiee;
  int changes = 0;
  void handleNextHopsToL2Adj(const NextHopCollection&) override { ++changes; }
};

class AdjWatcher : public L2Adjacency::Notifiee {
 public:
  using Notifiee::Notifiee;
  int tableTypes = 0, entries = 0;
  void handleAdjTableType(const TableType&) override { ++tableTypes; }
  void handleAdjEntryAndTableType(const GlobalFecId&) override { ++entries; }
};

Vex::Ptr<L2Adjacency> adjacency() { return Vex::make<L2Adjacency>(L2AdjKey{L2AdjType::nexthopAdj, 1}); }

// ---- Table-type accounting

TEST(L2AdjacencyTableTypeTest, EveryTableTypeHasItsOwnBit) {
  std::uint8_t seen = 0;
  for (auto type : {TableType::tableTypeUnknown, TableType::tableTypeLongestPrefix, TableType::tableTypeExactMatch,
                    TableType::tableTypeLabelledFec, TableType::tableTypeTunnel, TableType::tableTypeMulticast}) {
    std::uint8_t bit = TableTypeBoolSet::bit(type);
    EXPECT_EQ(seen & bit, 0);
    seen |= bit;
  }
  EXPECT_EQ(seen, TableTypeBoolSet::mask);
  EXPECT_THROW(Vex::fromStrep<TableTypeBoolSet>("Value('Orb::TableTypeBoolSet', ** {'bits': 64})"), Vex::ParseError);
}

TEST(L2AdjacencyTableTypeTest, SameTableTypeTwiceForOneFecCountsOnce) {
  auto adj = adjacency();
  AdjWatcher watcher(adj);
  GlobalFecId fec(7);
  adj->setTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  adj->setTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 1u);
  EXPECT_EQ(watcher.tableTypes, 1);
  EXPECT_EQ(watcher.entries, 1);
  // Another table for the same FEC, and another FEC in the same table.
  adj->setTableTypeForAdj(fec, TableType::tableTypeLongestPrefix);
  adj->setTableTypeForAdj(GlobalFecId(8), TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjEntryAndTableType(fec),
            TableTypeBoolSet().with(TableType::tableTypeExactMatch).with(TableType::tableTypeLongestPrefix));
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 2u);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeLongestPrefix), 1u);
  EXPECT_EQ(adj->adjTableTypeBoolSet(),
            TableTypeBoolSet().with(TableType::tableTypeExactMatch).with(TableType::tableTypeLongestPrefix));
  EXPECT_TRUE(adj->isTableTypeSetForAdj(TableType::tableTypeLongestPrefix));
  EXPECT_FALSE(adj->isTableTypeSetForAdj(TableType::tableTypeLabelledFec));
}

TEST(L2AdjacencyTableTypeTest, UnsettingWhatIsNotSetLeavesTheCounts) {
  auto adj = adjacency();
  GlobalFecId fec(7);
  adj->setTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  AdjWatcher watcher(adj);
  adj->unsetTableTypeForAdj(fec, TableType::tableTypeLongestPrefix);
  adj->unsetTableTypeForAdj(GlobalFecId(99), TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 1u);
  EXPECT_EQ(adj->adjEntryAndTableType(fec), TableTypeBoolSet().with(TableType::tableTypeExactMatch));
  EXPECT_EQ(watcher.tableTypes + watcher.entries, 0);

  adj->unsetTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 0u);
  EXPECT_TRUE(adj->adjTableTypeBoolSet().empty());
  EXPECT_FALSE(adj->isTableTypeSetForAdj(TableType::tableTypeExactMatch));
  // Unsetting again changes nothing; setting again counts again.
  adj->unsetTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 0u);
  adj->setTableTypeForAdj(fec, TableType::tableTypeExactMatch);
  EXPECT_EQ(adj->adjTableType(TableType::tableTypeExactMatch), 1u);
}

TEST(L2AdjacencyTest, KeyStateAndQueries) {
  L2AdjKey key{L2AdjType::routingAdj, 12};
  EXPECT_EQ(key.stringValue(), "routingAdj index: 12");
  EXPECT_EQ(Vex::fromStrep<L2AdjKey>(Vex::toStrep(key)), key);
  auto adj = Vex::make<L2Adjacency>(key);
  EXPECT_EQ(adj->state(), Orb::L2AdjState::newborn);
  adj->stateIs(Orb::L2AdjState::garbageCollected);
  EXPECT_EQ(adj->state(), Orb::L2AdjState::garbageCollected);
  EXPECT_FALSE(adj->hasCounterIds());
  EXPECT_FALSE(adj->potentialHasBackup());
  EXPECT_FALSE(adj->potentialHierarchicalNextHop());
  adj->l2AdjStatsIs({{4}, 0, 0});
  adj->backupViaIs({Nexo::IpGenAddr("10.0.0.1"), Nexo::IntfId("Vlan2"), {}});
  NextHopCollection nextHops;
  nextHops.potentialHierarchicalNextHopIs(true);
  adj->nextHopsIs(nextHops);
  EXPECT_TRUE(adj->hasCounterIds());
  EXPECT_TRUE(adj->potentialHasBackup());
  EXPECT_TRUE(adj->potentialHierarchicalNextHop());
  adj->adjEntryIs(GlobalFecId(3));
  adj->reviewPendingAdjIs(GlobalFecId(3));
  EXPECT_TRUE(adj->adjEntryHas(GlobalFecId(3)));
  EXPECT_TRUE(adj->reviewPendingAdj(GlobalFecId(3)));
}

// ---- The dedup map

NextHopCollection twoHops(std::uint32_t secondWeight) {
  NextHopCollection c(L2AdjType::routingAdj);
  Orb::NextHop a(Orb::NextHopEntryType::nextHopArpResolved, Nexo::EthAddr(1), Nexo::IntfId("Ethernet1"),
                 Nexo::IntfId("Vlan1"));
  Orb::NextHop b(Orb::NextHopEntryType::nextHopArpResolved, Nexo::EthAddr(2), Nexo::IntfId("Ethernet2"),
                 Nexo::IntfId("Vlan1"));
  c.nextHopIs(a, 1);
  c.nextHopIs(b, secondWeight);
  OrbTypes::ViaBitmap bitmap;
  bitmap.bitSet(OrbTypes::ViaBitmapRange(0));
  c.nextHopBitmapIs(a, bitmap);
  return c;
}

TEST(NextHopsToL2AdjTest, EqualCollectionsShareOneAdjacency) {
  auto status = Vex::make<DedupStatus>("status");
  DedupWatcher watcher(status);
  auto first = status->fecUses(GlobalFecId(1), twoHops(1));
  auto second = status->fecUses(GlobalFecId(2), twoHops(1));
  EXPECT_EQ(first, second);
  EXPECT_EQ(status->nextHopsToL2AdjSize(), 1u);
  EXPECT_EQ(watcher.changes, 1);
  EXPECT_EQ(first->adjEntrySize(), 2u);
  // A different weight is a different collection.
  auto third = status->fecUses(GlobalFecId(3), twoHops(2));
  EXPECT_NE(third, first);
  EXPECT_EQ(status->nextHopsToL2Adj(twoHops(2)), third);
}

TEST(NextHopsToL2AdjPropertyTest, FecsWithEqualCollectionsShareAndPartOnChange) {
  NextHopRandom::Generator gen(11);
  auto status = Vex::make<DedupStatus>("status");
  for (std::uint32_t i = 0; i < 200; ++i) {
    NextHopCollection c = gen.collection();
    // Two FECs build equal collections independently.
    NextHopCollection twin = NextHopCollection::fromString(c.stringValue());
    auto a = status->fecUses(GlobalFecId(2 * i + 1), c);
    auto b = status->fecUses(GlobalFecId(2 * i + 2), twin);
    ASSERT_EQ(a, b);
    ASSERT_EQ(a->nextHops(), c);
    // The second FEC's copy now holds the stored content, so offering it
    // again compares by pointer.
    ASSERT_TRUE(twin.sharesContentWith(c));
    // One of them changes: it moves to another adjacency, the other stays.
    NextHopCollection changed = twin;
    changed.nextHopIs(gen.nextHop(), 7);
    ASSERT_EQ(twin, c);
    auto moved = status->fecUses(GlobalFecId(2 * i + 2), changed);
    ASSERT_NE(moved, a);
    ASSERT_EQ(status->nextHopsToL2Adj(c), a);
    ASSERT_EQ(moved->nextHops(), changed);
  }
  // Every adjacency holds exactly the collection it is stored under.
  for (const auto& [nextHops, adj] : status->nextHopsToL2Adj()) ASSERT_EQ(adj->nextHops(), nextHops);
}

// ---- Vias, in both address families and the generic form

template <class V>
struct ViaFixture;
template <>
struct ViaFixture<Orb::Via> {
  static Orb::Via via(unsigned n) { return {Nexo::IpAddr(0x0a000000 + n), Nexo::IntfId("Vlan5"), {}}; }
  static constexpr const char* text = " nextHop 10.0.0.1 l3Intf: Vlan5";
};
template <>
struct ViaFixture<Orb::Via6> {
  static Orb::Via6 via(unsigned n) {
    return {Nexo::Ip6Addr("2001:db8::" + std::to_string(n)), Nexo::IntfId("Vlan5"), {}};
  }
  static constexpr const char* text = " nextHop 2001:db8::1 l3Intf: Vlan5";
};
template <>
struct ViaFixture<Orb::ViaGen> {
  static Orb::ViaGen via(unsigned n) {
    return {Nexo::IpGenAddr(Nexo::Ip6Addr("2001:db8::" + std::to_string(n))), Nexo::IntfId("Vlan5"), {}};
  }
  static constexpr const char* text = " nextHop 2001:db8::1 l3Intf: Vlan5";
};

template <class A>
class AdjViaTest : public ::testing::Test {};
using AdjViaTypes = ::testing::Types<Orb::AdjVia, Orb::AdjVia6, Orb::AdjViaGen>;
TYPED_TEST_SUITE(AdjViaTest, AdjViaTypes);

TYPED_TEST(AdjViaTest, ViasPrintCompareAndAreFalseWhenEmpty) {
  using ViaType = typename TypeParam::ViaType;
  using F = ViaFixture<ViaType>;
  EXPECT_EQ(F::via(1).stringValue(), F::text);
  EXPECT_FALSE(ViaType{});
  EXPECT_TRUE(F::via(1));
  ViaType recursive{};
  recursive.fecId = GlobalFecId(5);
  EXPECT_TRUE(recursive);
  EXPECT_LT(F::via(1), F::via(2));
  EXPECT_EQ(Vex::fromStrep<ViaType>(Vex::toStrep(recursive)), recursive);
  EXPECT_EQ(hash_value(F::via(3)), hash_value(F::via(3)));
}

TYPED_TEST(AdjViaTest, ViaCountsAndBitmaps) {
  using F = ViaFixture<typename TypeParam::ViaType>;
  TypeParam adjVia;
  adjVia.viaIs(F::via(1), 2);
  OrbTypes::ViaBitmap bitmap;
  bitmap.bitSet(OrbTypes::ViaBitmapRange(9));
  adjVia.viaBitmapIs(F::via(1), bitmap);
  EXPECT_EQ(adjVia.via(F::via(1)), 2u);
  EXPECT_EQ(adjVia.via(F::via(2)), 0u);
  EXPECT_EQ(adjVia.viaBitmap(F::via(1)), bitmap);
  EXPECT_TRUE(adjVia.viaBitmap(F::via(2)).empty());
  adjVia.numBackupViasInc(2);
  adjVia.numBackupViasInc();
  EXPECT_EQ(adjVia.numBackupVias(), 3u);
  TypeParam copy = adjVia;
  EXPECT_EQ(copy, adjVia);
  EXPECT_EQ(hash_value(copy), hash_value(adjVia));
  copy.viaDel(F::via(1));
  EXPECT_TRUE(copy.viaBitmap(F::via(1)).empty());
  EXPECT_FALSE(copy == adjVia);
}

TYPED_TEST(AdjViaTest, GroupPartIsMadeOnFirstWriteAndNotSharedByWrites) {
  TypeParam adjVia;
  EXPECT_FALSE(adjVia.hasNhg());
  EXPECT_EQ(adjVia.nextHopGroupSize(), 0u);
  adjVia.nextHopGroupSizeIs(8);
  adjVia.nextHopGroupTypeIs(Routing::NexthopGroup::NexthopGroupType::nexthopGroupTypeMpls);
  EXPECT_TRUE(adjVia.hasNhg());
  TypeParam copy = adjVia;
  copy.ttlIs(5);
  EXPECT_EQ(adjVia.ttl(), 0u);
  EXPECT_EQ(copy.ttl(), 5u);
  EXPECT_EQ(copy.nextHopGroupSize(), 8u);
  EXPECT_FALSE(copy == adjVia);
  copy.ttlIs(0);
  EXPECT_EQ(copy, adjVia);
  // An unwritten group part equals a default one.
  TypeParam plain;
  TypeParam written;
  written.ttlIs(0);
  EXPECT_EQ(plain, written);
}

// ---- Build results

TEST(NextHopCollBuildResultTest, MergeRules) {
  auto keysA = Vex::make<Orb::L2AdjKeyCollection>(std::initializer_list<L2AdjKey>{{L2AdjType::routingAdj, 1}});
  auto keysB = Vex::make<Orb::L2AdjKeyCollection>(std::initializer_list<L2AdjKey>{{L2AdjType::routingAdj, 2}});
  Orb::NextHopCollBuildResult withB(NextHopCollection(), keysB);
  withB.maxPredictedHierarchyHeightIs(3);
  withB.nhInfoMissingAndDropIs(true);
  withB.trimmedL2IntfIs(Nexo::IntfId("Ethernet2"));
  withB.trimmedTunnelKeyIs({Orb::NextHopTunnelType::mpls, 4});

  // None of its own: takes the other's set itself.
  Orb::NextHopCollBuildResult empty;
  empty.updateNhCollBuildResult(withB);
  EXPECT_EQ(empty.flattenedL2Adjs(), keysB);
  EXPECT_EQ(empty.maxPredictedHierarchyHeight(), 3);
  EXPECT_TRUE(empty.nhInfoMissingAndDrop());
  EXPECT_TRUE(empty.trimmedTunnelKeyHas({Orb::NextHopTunnelType::mpls, 4}));

  // The same set: kept as it is.
  Orb::NextHopCollBuildResult sameB(NextHopCollection(), keysB);
  sameB.updateNhCollBuildResult(withB);
  EXPECT_EQ(sameB.flattenedL2Adjs(), keysB);
  EXPECT_EQ(keysB->l2AdjKeySize(), 1u);

  // Different sets: the union, in a set of its own; neither input changes.
  Orb::NextHopCollBuildResult withA(NextHopCollection(), keysA);
  withA.maxPredictedHierarchyHeightIs(5);
  withA.trimmedL3IntfIs(Nexo::IntfId("Vlan3"));
  withA.updateNhCollBuildResult(withB);
  EXPECT_EQ(withA.flattenedL2Adjs()->l2AdjKeySize(), 2u);
  EXPECT_TRUE(withA.flattenedL2Adjs()->l2AdjKeyHas({L2AdjType::routingAdj, 2}));
  EXPECT_EQ(keysA->l2AdjKeySize(), 1u);
  EXPECT_EQ(keysB->l2AdjKeySize(), 1u);
  EXPECT_EQ(withA.maxPredictedHierarchyHeight(), 5);
  EXPECT_TRUE(withA.nhInfoMissingAndDrop());
  EXPECT_EQ(withA.trimmedL2Intf().size(), 1u);
  EXPECT_EQ(withA.trimmedL3Intf().size(), 1u);
  EXPECT_FALSE(withA.trimmedTunnelKeyHas({Orb::NextHopTunnelType::mpls, 5}));
}

// ---- Tunnels

TEST(TunnelL2InfoTest, PrintedFormsForEachAdjacencyState) {
  Orb::TunnelL2Info info;
  info.tunnelKey = {Orb::NextHopTunnelType::ipInIp, 3};
  info.key = 9;
  info.src = Nexo::IpGenAddr("1.1.1.1");
  info.dst = Nexo::IpGenAddr("2.2.2.2");
  info.vrf = Orb::VrfId(1);
  info.genId = 4;
  info.intfId = Nexo::IntfId("Tunnel3");
  std::string head =
      "tunnel: " + Vex::toStrep(info.tunnelKey) + ", key: 9 src:1.1.1.1, dst:2.2.2.2, vrf:1, genId:4, intfId: Tunnel3";
  EXPECT_EQ(info.stringValue(), head + ", l2Adj: NULL ");
  info.l2AdjKey = L2AdjKey{L2AdjType::tunnelAdj, 6};
  EXPECT_EQ(info.stringValue(), head + ", l2Adj key: tunnelAdj index: 6");
  info.l2Adj = Vex::make<L2Adjacency>(L2AdjKey{L2AdjType::tunnelAdj, 6});
  EXPECT_EQ(info.stringValue(), head + ", l2Adj: tunnelAdj index: 6");
}

}  // namespace
