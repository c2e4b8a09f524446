// Next hops, encapsulations, via bitmaps and next-hop collections.
#include "Orb/OrbNexthopTypes.h"

#include "tests/orb/NextHopRandom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

namespace {

using Orb::NextHop;
using Orb::NextHopCollection;
using Orb::NextHopEntryType;
using Orb::NextHopTypeCacheType;
using OrbTypes::ViaBitmap;
using OrbTypes::ViaBitmapIter;
using OrbTypes::ViaBitmapRange;

NextHop nextHop(NextHopEntryType type, std::uint64_t mac, const char* l2 = "Ethernet1", const char* l3 = "Vlan10") {
  return NextHop(type, Nexo::EthAddr(mac), Nexo::IntfId(l2), Nexo::IntfId(l3));
}

ViaBitmap bitmapOf(std::initializer_list<std::uint32_t> positions) {
  ViaBitmap bitmap;
  for (auto p : positions) bitmap.bitSet(ViaBitmapRange(p));
  return bitmap;
}

std::vector<std::uint32_t> walk(ViaBitmapIter it) {
  std::vector<std::uint32_t> out;
  for (; it; ++it) out.push_back(it.position());
  return out;
}

constexpr const char* rangeText = "ViaBitmapRange::value < ViaBitmapRange::min or > ViaBitmapRange::null not allowed";

// ---- ViaBitmap

TEST(ViaBitmapTest, EmptyBitmapIteratesToTheNullPositionAtOnce) {
  ViaBitmapIter it{ViaBitmap()};
  EXPECT_FALSE(it);
  EXPECT_TRUE(it.done());
  EXPECT_EQ(it.position(), ViaBitmapRange::null);
  ++it;
  EXPECT_TRUE(it.done());
}

TEST(ViaBitmapTest, OnlyTheLastPositionYieldsItThenEnds) {
  ViaBitmapIter it(bitmapOf({2047}));
  ASSERT_TRUE(it);
  EXPECT_EQ(it.position(), 2047u);
  ++it;
  EXPECT_FALSE(it);
  EXPECT_EQ(it.position(), 2048u);
}

TEST(ViaBitmapTest, IteratesSetBitsInOrderAcrossWordBoundaries) {
  ViaBitmap bitmap = bitmapOf({1000, 0, 32, 31, 63, 64, 2046});
  EXPECT_EQ(walk(ViaBitmapIter(bitmap)), (std::vector<std::uint32_t>{0, 31, 32, 63, 64, 1000, 2046}));
  EXPECT_EQ(bitmap.positions(), walk(ViaBitmapIter(bitmap)));
  EXPECT_EQ(bitmap.count(), 7u);
  // From the null position the walk starts at the first bit.
  ViaBitmapIter start(bitmap, ViaBitmapRange::null);
  EXPECT_FALSE(start);
  ++start;
  EXPECT_EQ(start.position(), 0u);
  // From a given position the walk continues strictly after it.
  ViaBitmapIter from(bitmap, 31);
  EXPECT_EQ(from.position(), 31u);
  ++from;
  EXPECT_EQ(from.position(), 32u);
  // The iterator works on its own copy.
  ViaBitmapIter copy(bitmap);
  bitmap.bitClear(ViaBitmapRange(31));
  ++copy;
  EXPECT_EQ(copy.position(), 31u);
}

TEST(ViaBitmapTest, OutOfRangePositionsAreRangeErrors) {
  ViaBitmap bitmap;
  EXPECT_NO_THROW(ViaBitmapRange(2048));
  try {
    bitmap.bitSet(ViaBitmapRange(2049));
    FAIL() << "no range error";
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), rangeText);
  }
  EXPECT_THROW(bitmap.bitTest(ViaBitmapRange(5000)), Vex::RangeError);
  EXPECT_THROW(ViaBitmapIter(bitmap, 2049), Vex::RangeError);
  // A stray bit past the null position (only a raw word write makes one)
  // is found by the walk and refused.
  bitmap.wordIs(OrbTypes::ViaBitmapIndex(64), 0x4);
  EXPECT_THROW(ViaBitmapIter{bitmap}, Vex::RangeError);
}

TEST(ViaBitmapDeathTest, WordIndexPastTheEndFailsTheAssertion) {
  ViaBitmap bitmap;
  EXPECT_DEATH(bitmap.word(OrbTypes::ViaBitmapIndex(65)), "index < ViaBitmapIndex::max\\(\\)");
  EXPECT_DEATH(bitmap.wordIs(OrbTypes::ViaBitmapIndex(70), 1), "index < ViaBitmapIndex::max\\(\\)");
}

TEST(ViaBitmapTest, PrintsTheSetPositionsAndParsesBack) {
  ViaBitmap bitmap = bitmapOf({5, 1, 2047});
  EXPECT_EQ(bitmap.stringValue(), "ViaBitmap( bits set: 1 5 2047 )");
  EXPECT_EQ(ViaBitmap().stringValue(), "ViaBitmap( bits set: )");
  EXPECT_EQ(Vex::fromStrep<ViaBitmap>(Vex::toStrep(bitmap)), bitmap);
  EXPECT_THROW(Vex::fromStrep<ViaBitmap>("Value('OrbTypes::ViaBitmap', ** {'bitsSet': [2049]})"), Vex::ParseError);
  EXPECT_NE(hash_value(bitmapOf({1})), hash_value(bitmapOf({33})));
}

TEST(ViaBitmapTest, PackingKeepsEveryBitAndAgreesWithEquality) {
  std::vector<ViaBitmap> bitmaps = {ViaBitmap(),           bitmapOf({0}),          bitmapOf({2047}),
                                    bitmapOf({0, 33}),     bitmapOf({1, 33}),      bitmapOf({0, 33, 70}),
                                    bitmapOf({0, 33, 71}), bitmapOf({5, 6, 7, 8}), bitmapOf({2000, 2047})};
  for (const auto& a : bitmaps) {
    OrbTypes::PackedViaBitmap packed(a);
    EXPECT_EQ(packed.unpack(), a) << a.stringValue();
    for (const auto& b : bitmaps) {
      OrbTypes::PackedViaBitmap other(b);
      EXPECT_EQ(packed == other, a == b);
      EXPECT_EQ((packed <=> other) == 0, a == b);
      EXPECT_EQ(packed<other, other> packed);
      if (a == b) {
        EXPECT_EQ(hash_value(packed), hash_value(other));
      }
    }
  }
}

// ---- Next hops and their encapsulation

TEST(NextHopTest, EntryTypesPrintByName) {
  EXPECT_EQ(Vex::valueToStrep(NextHopEntryType::nextHopArpDrop), "nextHopArpDrop");
  EXPECT_EQ(Vex::valueToStrep(NextHopEntryType::nextHopRouteOverflowDrop), "nextHopRouteOverflowDrop");
  EXPECT_EQ(Vex::valueToStrep(NextHopEntryType::nextHopVlanPort), "nextHopVlanPort");
  EXPECT_EQ(Vex::fromStrep<NextHopEntryType>("'nextHopCpuRouteCache'"), NextHopEntryType::nextHopCpuRouteCache);
}

TEST(NextHopTest, AnOrdinaryNextHopHasNoEncapsulationUntilOneIsWritten) {
  NextHop nh = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  EXPECT_FALSE(nh.encap);
  EXPECT_TRUE(nh.labels().labelStack.empty());
  nh.labelsIs({Nexo::MplsOperation::mplsPush, {100, 200}});
  ASSERT_TRUE(nh.encap);
  EXPECT_EQ(nh.encap.kind(), Tunnel::TunnelTable::EncapType::encapMpls);
  EXPECT_EQ(nh.labels().labelStack, (std::vector<std::uint32_t>{100, 200}));
  // One encapsulation at a time: another kind replaces the labels.
  nh.greEncapIs({Nexo::IpGenAddr("10.0.0.1"), Nexo::IpGenAddr("10.0.0.2"), 0, 64, 0});
  EXPECT_EQ(nh.encap.kind(), Tunnel::TunnelTable::EncapType::encapGre);
  EXPECT_TRUE(nh.labels().labelStack.empty());
}

TEST(NextHopTest, EncapsulationWritesNeverChangeSharedContent) {
  NextHop a = nextHop(NextHopEntryType::nextHopTunnel, 1);
  a.greEncapIs({Nexo::IpGenAddr("10.0.0.1"), Nexo::IpGenAddr("10.0.0.2"), 7, 64, 0});
  NextHop b = a;
  EXPECT_TRUE(a.encap.sharesContentWith(b.encap));
  b.greEncapIs({Nexo::IpGenAddr("10.0.0.1"), Nexo::IpGenAddr("10.0.0.3"), 7, 64, 0});
  EXPECT_FALSE(a.encap.sharesContentWith(b.encap));
  EXPECT_EQ(a.greEncap().dst, Nexo::IpGenAddr("10.0.0.2"));
  EXPECT_EQ(b.greEncap().dst, Nexo::IpGenAddr("10.0.0.3"));
  EXPECT_NE(a, b);
  b.greEncapIs(a.greEncap());
  EXPECT_EQ(a, b);
}

TEST(NextHopTest, IpsecVirtualTunnelEncapsulation) {
  Tunnel::IpsecVtiTunnelInfo vti{Nexo::IpGenAddr("1.1.1.1"), Nexo::IpGenAddr("2.2.2.2"), 0x100};
  Orb::EncapInfo encap = Orb::getEncapInfo(vti, Nexo::IntfId("Tunnel5"));
  ASSERT_TRUE(encap);
  EXPECT_EQ(encap.kind(), Tunnel::TunnelTable::EncapType::encapIpsec);
  EXPECT_EQ(encap.ipsecEncap().spi, 0x100u);
  EXPECT_EQ(encap.ipsecEncap().tunnelIntf, Nexo::IntfId("Tunnel5"));
  EXPECT_EQ(encap.ipsecEncap().dst, Nexo::IpGenAddr("2.2.2.2"));
}

TEST(NextHopTest, HierarchicalNextLevelComparesAndPrintsByAdjacencyKey) {
  NextHop a = nextHop(NextHopEntryType::nextHopHierarchical, 0);
  NextHop b = a;
  a.hierarchicalNextLevelL2AdjIs(Vex::make<Orb::L2Adjacency>(Orb::L2AdjKey{Orb::L2AdjType::routingAdj, 4}));
  b.hierarchicalNextLevelL2AdjIs(Vex::make<Orb::L2Adjacency>(Orb::L2AdjKey{Orb::L2AdjType::routingAdj, 4}));
  EXPECT_EQ(a, b);
  EXPECT_EQ(hash_value(a), hash_value(b));
  NextHop parsed = Vex::fromStrep<NextHop>(Vex::toStrep(a));
  EXPECT_EQ(parsed, a);
  EXPECT_EQ(parsed.hierarchicalNextLevelL2Adj->key(), (Orb::L2AdjKey{Orb::L2AdjType::routingAdj, 4}));
}

TEST(NextHopTest, CounterDerivations) {
  using Routing::NexthopGroup::EntryCounterType;
  NextHop nh = nextHop(NextHopEntryType::nextHopTunnel, 1);
  nh.tunnelId = 9;
  nh.nhgEntryKey = {3, 4};
  EXPECT_EQ(nh.countedTunnelId(), 0u);
  EXPECT_FALSE(nh.unsharedCountedNhgEntryKey());
  nh.nhgCounterType = EntryCounterType::entryCounterShared;
  EXPECT_TRUE(nh.isUsingSharedNhgCounter());
  EXPECT_EQ(nh.countedTunnelId(), 9u);
  EXPECT_FALSE(nh.unsharedCountedNhgEntryKey());
  nh.nhgCounterType = EntryCounterType::entryCounterUnshared;
  EXPECT_FALSE(nh.isUsingSharedNhgCounter());
  EXPECT_EQ(nh.unsharedCountedNhgEntryKey(), (Orb::NextHopGroupEntryKey{3, 4}));
}

TEST(NextHopEntryTest, PrintedForm) {
  Orb::NextHopEntry entry{NextHopEntryType::nextHopArpResolved,
                          Nexo::IpGenAddr("10.1.1.2"),
                          Nexo::EthAddr("00:11:22:33:44:55"),
                          Nexo::IntfId("Ethernet3"),
                          Nexo::IntfId("Vlan7"),
                          0};
  EXPECT_EQ(entry.stringValue(),
            "type:nextHopArpResolved, ip: 10.1.1.2, mac: 00:11:22:33:44:55, l2Intf: Ethernet3, l3Intf: Vlan7");
}

TEST(NextHopEntryTest, ListsCompareByContentNotIdentity) {
  Orb::VrfAndIpAddr va(Orb::VrfId(1), Nexo::IpAddr("10.0.0.0"));
  auto a = Vex::make<Orb::NextHopEntryList>(va, Orb::VrfAndIpGenAddr(va));
  auto b = Vex::make<Orb::NextHopEntryList>(va, Orb::VrfAndIpGenAddr(va));
  Orb::NextHopEntry entry{NextHopEntryType::nextHopArpResolved, Nexo::IpGenAddr("10.0.0.1"), {}, {}, {}, 0};
  a->nextHopEntryIs(entry, true);
  EXPECT_FALSE(a->isEqual(*b));
  b->nextHopEntryIs(entry, true);
  EXPECT_TRUE(a->isEqual(*b));
  b->nextHopEntryInfoIs(nextHop(NextHopEntryType::nextHopTunnel, 2), {});
  EXPECT_FALSE(a->isEqual(*b));
  auto other = Vex::make<Orb::NextHopEntryList>(Orb::VrfAndIpAddr(Orb::VrfId(2), va.addr), Orb::VrfAndIpGenAddr(va));
  other->nextHopEntryIs(entry, true);
  EXPECT_FALSE(a->isEqual(*other));
}

// ---- Collections: caches and queries

TEST(NextHopCollectionTest, EmptyCollectionWeighsNothingAndDrops) {
  NextHopCollection c;
  EXPECT_EQ(c.totalWeight(), 0u);
  EXPECT_TRUE(c.allDrop());
  EXPECT_EQ(c.nextHopType(), NextHopTypeCacheType::allDrop);
  EXPECT_FALSE(c.allArpRequired());
  EXPECT_FALSE(c.hasResolvedNextHops());
  c.updateCaches();
  EXPECT_EQ(c.totalWeightCache(), 0u);
  EXPECT_EQ(c.nextHopTypeCache(), NextHopTypeCacheType::allDrop);
}

TEST(NextHopCollectionTest, CachesReadNotComputedAfterAChangeUntilUpdated) {
  NextHopCollection c;
  c.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 3);
  c.nextHopIs(nextHop(NextHopEntryType::nextHopDrop, 2), 2);
  EXPECT_EQ(c.totalWeightCache(), NextHopCollection::totalWeightNotComputed);
  EXPECT_EQ(c.nextHopTypeCache(), NextHopTypeCacheType::invalidCache);
  c.updateCaches();
  EXPECT_EQ(c.totalWeightCache(), 5u);
  EXPECT_EQ(c.nextHopTypeCache(), NextHopTypeCacheType::someDrop);

  c.handleNextHopChanged();
  EXPECT_EQ(c.totalWeightCache(), ~std::uint64_t{0});
  EXPECT_EQ(c.nextHopTypeCache(), NextHopTypeCacheType::invalidCache);
  // Queries still answer, from the next hops.
  EXPECT_EQ(c.totalWeight(), 5u);
  EXPECT_FALSE(c.allDrop());
  EXPECT_EQ(c.totalWeightCache(), NextHopCollection::totalWeightNotComputed);

  // A write after updateCaches must not leave a stale total behind.
  c.updateCaches();
  c.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 10);
  EXPECT_EQ(c.totalWeight(), 12u);
  c.updateCaches();
  EXPECT_EQ(c.totalWeightCache(), 12u);
  EXPECT_TRUE(c.verify());
}

TEST(NextHopCollectionTest, DropClassification) {
  NextHopCollection c;
  c.nextHopIs(nextHop(NextHopEntryType::nextHopDrop, 1), 1);
  EXPECT_EQ(c.nextHopType(), NextHopTypeCacheType::allDrop);
  EXPECT_TRUE(c.allDrop());
  c.nextHopIs(nextHop(NextHopEntryType::nextHopArpRequired, 2), 1);
  EXPECT_EQ(c.nextHopType(), NextHopTypeCacheType::someDrop);
  EXPECT_FALSE(c.allDrop());
  c.nextHopDel(nextHop(NextHopEntryType::nextHopDrop, 1));
  EXPECT_EQ(c.nextHopType(), NextHopTypeCacheType::noneDrop);
  EXPECT_TRUE(c.allArpRequired());
  // Only the drop type counts as dropping.
  NextHopCollection arpDrop;
  arpDrop.nextHopIs(nextHop(NextHopEntryType::nextHopArpDrop, 1), 1);
  EXPECT_EQ(arpDrop.nextHopType(), NextHopTypeCacheType::noneDrop);
}

TEST(NextHopCollectionTest, TotalWeightIsA64BitSum) {
  NextHopCollection c;
  c.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 0xffffffffu);
  c.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 2), 0xffffffffu);
  EXPECT_EQ(c.totalWeight(), 0x1fffffffeULL);
  EXPECT_FALSE(c.allNextHopWeightsAreOne());
  c.updateCaches();
  EXPECT_EQ(c.totalWeightCache(), 0x1fffffffeULL);
}

TEST(NextHopCollectionTest, Queries) {
  NextHop resolved = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  NextHop other = nextHop(NextHopEntryType::nextHopArpResolved, 2);
  NextHopCollection c;
  c.nextHopIs(resolved, 1);
  c.nextHopIs(other, 1);
  EXPECT_TRUE(c.allNextHopWeightsAreOne());
  EXPECT_TRUE(c.hasResolvedNextHops());
  EXPECT_FALSE(c.allArpRequired());
  c.nextHopGroupSizeIs(4);
  c.nextHopGroupEntryL2InfoIs(0, other);
  c.nextHopGroupEntryL2InfoIs(1, resolved);
  c.nextHopGroupEntryL2InfoIs(3, other);
  EXPECT_EQ(c.getLogicalPositionIndexes(other), (std::vector<std::uint32_t>{0, 3}));
  EXPECT_EQ(c.getLogicalPositionIndexes(nextHop(NextHopEntryType::nextHopDrop, 9)), std::vector<std::uint32_t>{});
  using Routing::NexthopGroup::NexthopGroupType;
  EXPECT_EQ(NextHopCollection::nextHopGroupTypeToTunnelType(NexthopGroupType::nexthopGroupTypeMplsOverGre),
            Orb::NextHopTunnelType::mplsOverGre);
  EXPECT_EQ(NextHopCollection::nextHopGroupTypeToTunnelType(NexthopGroupType::nexthopGroupTypeIp),
            Orb::NextHopTunnelType::none);
}

TEST(NextHopCollectionTest, VerifyFindsInconsistencies) {
  NextHop a = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  NextHopCollection c;
  c.nextHopIs(a, 1);
  c.nextHopBitmapIs(a, bitmapOf({0}));
  EXPECT_TRUE(c.verify());
  NextHopCollection orphanBitmap = c;
  orphanBitmap.nextHopBitmapIs(nextHop(NextHopEntryType::nextHopArpResolved, 2), bitmapOf({1}));
  EXPECT_FALSE(orphanBitmap.verify());
  NextHopCollection zeroWeight = c;
  zeroWeight.nextHopIs(a, 0);
  EXPECT_FALSE(zeroWeight.verify());
  NextHopCollection entryPastSize = c;
  entryPastSize.nextHopGroupSizeIs(2);
  entryPastSize.nextHopGroupEntryL2InfoIs(2, a);
  EXPECT_FALSE(entryPastSize.verify());
}

// ---- Collections: sharing, group part, equality

TEST(NextHopCollectionTest, GroupFieldsReadDefaultsUntilFirstWrite) {
  NextHopCollection c;
  EXPECT_FALSE(c.hasNhgc());
  EXPECT_EQ(c.nextHopGroupSize(), 0u);
  EXPECT_EQ(&c.nhgcRawOrDefault(), &NextHopCollection().nhgcRawOrDefault());
  c.ttlIs(3);
  EXPECT_TRUE(c.hasNhgc());
  EXPECT_EQ(c.ttl(), 3u);
  // An absent group part equals a default one.
  NextHopCollection reset = c;
  reset.ttlIs(0);
  EXPECT_EQ(reset, NextHopCollection());
  EXPECT_EQ(reset.hash(), NextHopCollection().hash());
}

TEST(NextHopCollectionTest, CopiesShareContentUntilWritten) {
  NextHopCollection a;
  a.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 1);
  a.nextHopGroupSizeIs(2);
  NextHopCollection b = a;
  EXPECT_TRUE(a.sharesContentWith(b));
  b.nextHopGroupSizeIs(3);
  b.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 2), 1);
  EXPECT_FALSE(a.sharesContentWith(b));
  EXPECT_EQ(a.nextHopGroupSize(), 2u);
  EXPECT_EQ(a.nextHopSize(), 1u);
  EXPECT_EQ(b.nextHopGroupSize(), 3u);
}

TEST(NextHopCollectionTest, TheLastWriteOfANextHopWinsWhateverTheOrder) {
  NextHop a = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  NextHop b = nextHop(NextHopEntryType::nextHopArpResolved, 2);
  NextHopCollection c;
  c.nextHopIs(b, 1);
  c.nextHopIs(a, 1);
  c.nextHopIs(b, 5);
  c.nextHopBitmapIs(b, bitmapOf({1}));
  c.nextHopBitmapIs(a, bitmapOf({2}));
  c.nextHopBitmapIs(b, bitmapOf({3}));
  NextHopCollection copy = c;
  EXPECT_EQ(copy.nextHop(b), 5u);
  EXPECT_EQ(c.nextHopSize(), 2u);
  EXPECT_EQ(c.nextHop().front().first, a);
  EXPECT_EQ(c.nextHopBitmap(b), bitmapOf({3}));
  // Writes after reads, and deletes of next hops written out of order.
  c.nextHopIs(a, 4);
  c.nextHopDel(b);
  EXPECT_EQ(c.nextHopSize(), 1u);
  EXPECT_EQ(c.nextHop(a), 4u);
  EXPECT_EQ(copy.nextHop(a), 1u);
  EXPECT_EQ(copy.nextHop(b), 5u);
  EXPECT_TRUE(copy.verify());
}

TEST(NextHopCollectionTest, EqualityIgnoresCaches) {
  NextHopCollection a;
  a.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 2);
  NextHopCollection b = a;
  b.updateCaches();
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_NE(a, NextHopCollection(Orb::L2AdjType::flowAdj));
  NextHopCollection heavier = a;
  heavier.nextHopIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), 3);
  EXPECT_NE(a, heavier);
  NextHopCollection bitmap = a;
  bitmap.nextHopBitmapIs(nextHop(NextHopEntryType::nextHopArpResolved, 1), bitmapOf({4}));
  EXPECT_NE(a, bitmap);
}

// ---- Collections: printed form

TEST(NextHopCollectionTest, PrintedForm) {
  NextHop a = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  NextHopCollection c;
  c.nextHopIs(a, 2);
  c.nextHopBitmapIs(a, bitmapOf({3, 40}));
  c.attachedIs(true);
  c.potentialHierarchicalNextHopIs(true);
  c.tunnelTypeIs(Orb::NextHopTunnelType::mpls);
  c.hierarchyHeightIs(2);
  c.nextHopGroupSizeIs(2);
  c.nextHopGroupEntryL2InfoIs(1, a);
  std::string nh = Vex::toStrep(a);
  EXPECT_EQ(c.stringValue(),
            "Attached: Y TunnelType: mpls PotentialHierarchicalNextHop: Y Flags: 3 HierarchyHeight: 2 \n" + nh +
                ", count: 2\nnextHopBitmap:\n" + nh +
                ", bitmap: ViaBitmap( bits set: 3 40 )\nnextHopGroupEntryL2Infos:\n0: None\n1: " + nh + "\n");
  EXPECT_EQ(NextHopCollection().stringValue(),
            "Flags: 0 HierarchyHeight: 0 \nnextHopBitmap:\nnextHopGroupEntryL2Infos:\n");
  EXPECT_EQ(NextHopCollection::fromString(c.stringValue()), c);
}

TEST(NextHopCollectionTest, MalformedTextIsAParseError) {
  EXPECT_THROW(NextHopCollection::fromString(""), Vex::ParseError);
  EXPECT_THROW(NextHopCollection::fromString("Flags: 0 HierarchyHeight: 0 \n"), Vex::ParseError);
  EXPECT_THROW(NextHopCollection::fromString("Flags: 0 HierarchyHeight: 0 \nnextHopBitmap:\n"
                                             "nextHopGroupEntryL2Infos:\n1: None\n"),
               Vex::ParseError);
  EXPECT_THROW(NextHopCollection::fromString("Flags: 0 HierarchyHeight: 0 TunnelType: bogus \nnextHopBitmap:\n"
                                             "nextHopGroupEntryL2Infos:\n"),
               Vex::ParseError);
  // A via position past the null position is text that is not a
  // collection, not a range error escaping the parse.
  NextHop a = nextHop(NextHopEntryType::nextHopArpResolved, 1);
  NextHopCollection c;
  c.nextHopIs(a, 1);
  c.nextHopBitmapIs(a, bitmapOf({2048}));
  EXPECT_EQ(NextHopCollection::fromString(c.stringValue()), c);
  std::string text = c.stringValue();
  text.replace(text.find("2048"), 4, "2049");
  EXPECT_THROW(NextHopCollection::fromString(text), Vex::ParseError);
}

// ---- Properties over random collections

TEST(NextHopCollectionPropertyTest, PrintParseRoundTrip) {
  NextHopRandom::Generator gen(1);
  for (int i = 0; i < 300; ++i) {
    NextHopCollection c = gen.collection();
    NextHopCollection parsed = NextHopCollection::fromString(c.stringValue());
    ASSERT_EQ(parsed, c) << c.stringValue();
    ASSERT_EQ(parsed.hash(), c.hash());
    ASSERT_EQ(Vex::fromStrep<NextHopCollection>(Vex::toStrep(c)), c);
    ASSERT_TRUE(c.verify()) << c.stringValue();
  }
}

TEST(NextHopCollectionPropertyTest, HashAndOrderAgreeWithEquality) {
  NextHopRandom::Generator gen(2);
  std::vector<NextHopCollection> all;
  for (int i = 0; i < 200; ++i) all.push_back(gen.collection());
  for (const auto& a : all) {
    for (const auto& b : all) {
      bool equal = a == b;
      ASSERT_EQ(equal, (a <=> b) == 0);
      ASSERT_EQ(a<b, b> a);
      if (equal) {
        ASSERT_EQ(a.hash(), b.hash());
        // Equal content built separately is equal too.
        ASSERT_EQ(NextHopCollection::fromString(b.stringValue()), a);
      }
    }
  }
  std::vector<NextHopCollection> sorted = all;
  std::sort(sorted.begin(), sorted.end());
  ASSERT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
  for (std::size_t i = 1; i < sorted.size(); ++i) ASSERT_TRUE(sorted[i - 1] <= sorted[i]);
}

TEST(NextHopCollectionPropertyTest, AgreesWithAMapOfTheWrites) {
  NextHopRandom::Generator gen(4);
  for (int i = 0; i < 200; ++i) {
    std::map<NextHop, std::uint32_t> weights;
    std::map<NextHop, OrbTypes::ViaBitmap> bitmaps;
    NextHopCollection c;
    // Half the collections are written as builders write them, each next
    // hop's weight and bitmap together; the others apart.
    const bool lockstep = i % 2 == 0;
    for (std::uint32_t n = gen.below(200); n > 0; --n) {
      NextHop nh = gen.nextHop();
      std::uint32_t weight = 1 + gen.below(9);
      weights[nh] = weight;
      c.nextHopIs(nh, weight);
      if (lockstep || gen.below(2) == 0) {
        NextHop bitmapNh = lockstep ? nh : gen.nextHop();
        auto bitmap = gen.bitmap();
        bitmaps[bitmapNh] = bitmap;
        c.nextHopBitmapIs(bitmapNh, bitmap);
      }
      // Now and then a delete of either map's part of a next hop, which
      // keeps the other part.
      if (gen.below(10) == 0) {
        if (gen.below(2) == 0) {
          weights.erase(nh);
          c.nextHopDel(nh);
        } else {
          bitmaps.erase(nh);
          c.nextHopBitmapDel(nh);
        }
      }
      // Reads now and then, so that writes land on sorted and unsorted content.
      if (gen.below(20) == 0) {
        ASSERT_EQ(c.nextHopSize(), weights.size());
        ASSERT_EQ(c.nextHopBitmap().size(), bitmaps.size());
      }
    }
    // The hash kept up by the writes, before any read orders the content.
    const std::size_t written = c.hash();
    auto hops = c.nextHop();
    ASSERT_EQ((std::vector<std::pair<NextHop, std::uint32_t>>(hops.begin(), hops.end())),
              (std::vector<std::pair<NextHop, std::uint32_t>>(weights.begin(), weights.end())));
    ASSERT_EQ(c.nextHopBitmap().size(), bitmaps.size());
    for (const auto& [nh, bitmap] : bitmaps) ASSERT_EQ(c.nextHopBitmap(nh), bitmap);
    // Content written in another order, without the deletes, is equal.
    NextHopCollection again;
    for (auto it = bitmaps.rbegin(); it != bitmaps.rend(); ++it) again.nextHopBitmapIs(it->first, it->second);
    for (auto it = weights.rbegin(); it != weights.rend(); ++it) again.nextHopIs(it->first, it->second);
    ASSERT_EQ(again, c);
    ASSERT_EQ(again.hash(), written);
    ASSERT_EQ(NextHopCollection::fromString(c.stringValue()).hash(), written);
  }
}

TEST(NextHopCollectionTest, AKnownHashIsDroppedByTheNextWrite) {
  NextHopRandom::Generator gen(5);
  NextHopCollection a = gen.collection();
  NextHopCollection copy = a;
  const std::size_t hash = a.hash();
  ASSERT_EQ(copy.hash(), hash);
  NextHop added = gen.nextHop();
  while (a.nextHopHas(added)) added = gen.nextHop();
  copy.nextHopIs(added, 1);
  EXPECT_NE(copy, a);
  EXPECT_EQ(copy.hash(), NextHopCollection::fromString(copy.stringValue()).hash());
  EXPECT_EQ(a.hash(), hash);
}

TEST(NextHopCollectionPropertyTest, InsertionOrderDoesNotMatter) {
  NextHopRandom::Generator gen(3);
  for (int i = 0; i < 100; ++i) {
    std::vector<std::pair<NextHop, std::uint32_t>> hops;
    for (int n = 0; n < 6; ++n) hops.emplace_back(gen.nextHop(), 1 + gen.below(3));
    NextHopCollection forward;
    for (const auto& [nh, w] : hops) forward.nextHopIs(nh, w);
    NextHopCollection backward;
    for (auto it = hops.rbegin(); it != hops.rend(); ++it) {
      // A repeated next hop keeps the weight the forward build ended with.
      if (!backward.nextHopHas(it->first)) backward.nextHopIs(it->first, forward.nextHop(it->first));
    }
    ASSERT_EQ(forward, backward);
    ASSERT_EQ(forward.hash(), backward.hash());
  }
}

}  // namespace
