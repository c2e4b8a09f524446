// The soft chip's forwarding database: statuses, learning, moves and aging.
#include "chip/softchip/SoftFdb.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using Bridging::EntryType;
using Bridging::MacVlanPair;
using Nexo::EthAddr;
using Nexo::IntfId;

class SoftFdbTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<OrbTypes::MacTable> macTable = Vex::make<OrbTypes::MacTable>("macTable");
  Vex::Ptr<SoftChip::SoftFdbHelper> fdb = Vex::make<SoftChip::SoftFdbHelper>(chip, macTable);
  MacVlanPair a{EthAddr(1), Bridging::VlanId(10)}, b{EthAddr(2), Bridging::VlanId(10)};
};

TEST_F(SoftFdbTest, AddsAnswerTheStatusesThePlanAndCapacityDictate) {
  chip->capacityIs("fdb", 1);
  chip->faultIs("fdb", SoftChip::Fault::busy, 1);
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryStatic), 1u);
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryStatic), 0u);
  EXPECT_EQ(fdb->addHost(b, IntfId("Ethernet1"), 0, false, EntryType::entryStatic), 2u);  // full
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet2"), 0, false, EntryType::entryStatic), 0u);  // a known key fits
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet2"));
  chip->faultIs("fdb", SoftChip::Fault::failed, 1);
  EXPECT_EQ(fdb->removeHost(a, EntryType::entryStatic), 3u);
  EXPECT_EQ(fdb->removeHost(a, EntryType::entryStatic), 0u);
  EXPECT_EQ(fdb->table().size(), 0u);
  EXPECT_EQ(fdb->addRemoteHost(b, IntfId("Vxlan1"), 7, 7, false, EntryType::entryReceivedRemote, false), 0u);
  EXPECT_TRUE(fdb->table().entry(b)->remote);
  EXPECT_EQ(fdb->getMaxRemoteMacs(), 1u);
}

TEST_F(SoftFdbTest, RemoteNextHopLastsAsLongAsTheEntryAndKeysRoundTrip) {
  // Keys are kept packed into one word: they come back whole, and in order.
  MacVlanPair high{EthAddr(0xffffffffffffULL), Bridging::VlanId(4094)};
  EXPECT_EQ(fdb->addRemoteHost(high, IntfId("Vxlan1"), 9, 9, false, EntryType::entryReceivedRemote, false), 0u);
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryStatic), 0u);
  ASSERT_EQ(fdb->table().size(), 2u);
  std::vector<MacVlanPair> keys;
  for (const auto& row : fdb->table().entries) keys.push_back(row.first);
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<MacVlanPair>{a, high}));
  EXPECT_EQ(fdb->table().nextHopOf(high), 9u);
  EXPECT_EQ(fdb->table().nextHopOf(a), 0u);
  // Another next hop replaces it; removing the entry takes it along.
  EXPECT_EQ(fdb->addRemoteHost(high, IntfId("Vxlan1"), 11, 11, false, EntryType::entryReceivedRemote, false), 0u);
  EXPECT_EQ(fdb->table().nextHopOf(high), 11u);
  EXPECT_EQ(fdb->removeHost(high, EntryType::entryReceivedRemote), 0u);
  EXPECT_EQ(fdb->table().nextHopOf(high), 0u);
  EXPECT_EQ(fdb->addHost(high, IntfId("Ethernet2"), 0, false, EntryType::entryStatic), 0u);
  EXPECT_FALSE(fdb->table().entry(high)->remote);
  EXPECT_EQ(fdb->table().nextHopOf(high), 0u);
}

TEST_F(SoftFdbTest, LearningWritesTheMacTableAndMoves) {
  EXPECT_TRUE(fdb->learn(a, IntfId("Ethernet1")));
  EXPECT_EQ(macTable->macEntry(a).intf, IntfId("Ethernet1"));
  EXPECT_TRUE(fdb->learn(a, IntfId("Ethernet2")));
  EXPECT_EQ(macTable->macEntry(a).intf, IntfId("Ethernet2"));
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet2"));
  // Static entries do not move on a learn.
  fdb->addHost(b, IntfId("Ethernet3"), 0, false, EntryType::entryStatic);
  EXPECT_FALSE(fdb->learn(b, IntfId("Ethernet1")));
}

TEST_F(SoftFdbTest, LearningOffPerPortOrVlanOrWhenFull) {
  fdb->enableLearning(IntfId("Ethernet1"), false);
  EXPECT_FALSE(fdb->learn(a, IntfId("Ethernet1")));
  fdb->enableLearning(IntfId("Ethernet1"), true);
  fdb->enableLearningOnVlan(Bridging::VlanId(10), false);
  EXPECT_FALSE(fdb->learn(a, IntfId("Ethernet1")));
  fdb->enableLearningOnVlan(Bridging::VlanId(10), true);
  chip->capacityIs("fdb", 0);
  EXPECT_FALSE(fdb->learn(a, IntfId("Ethernet1")));
  EXPECT_EQ(macTable->macEntrySize(), 0u);
}

TEST_F(SoftFdbTest, SameAgingTimeWrittenAgainKeepsTheSweepsOnSchedule) {
  fdb->configureAgingTime(20);
  fdb->learn(a, IntfId("Ethernet1"));
  // Written again every 4 s, less than the 5 s between sweeps.
  for (int i = 0; i < 8; ++i) {
    loop.advance(4);
    fdb->configureAgingTime(20);
  }
  EXPECT_FALSE(fdb->table().entry(a));
  EXPECT_FALSE(macTable->macEntryHas(a));
}

TEST_F(SoftFdbTest, AgingRemovesIdleDynamicEntriesOnly) {
  fdb->configureAgingTime(20);
  fdb->learn(a, IntfId("Ethernet1"));
  fdb->addHost(b, IntfId("Ethernet2"), 0, false, EntryType::entryStatic);
  loop.advance(15);
  fdb->touch(a);
  loop.advance(15);
  EXPECT_TRUE(fdb->table().entry(a));  // refreshed at 15 s
  loop.advance(25);
  EXPECT_FALSE(fdb->table().entry(a));
  EXPECT_FALSE(macTable->macEntryHas(a));
  EXPECT_TRUE(fdb->table().entry(b));
  fdb->configureAgingTime(0);
  fdb->learn(a, IntfId("Ethernet1"));
  loop.advance(1000);
  EXPECT_TRUE(fdb->table().entry(a));
}

TEST_F(SoftFdbTest, FlushesTakeOutDynamicEntries) {
  fdb->learn(a, IntfId("Ethernet1"));
  fdb->learn(b, IntfId("Ethernet2"));
  fdb->flushVlanPort(10, IntfId("Ethernet1"));
  EXPECT_FALSE(fdb->table().entry(a));
  EXPECT_TRUE(fdb->table().entry(b));
  fdb->learn(a, IntfId("Ethernet1"));
  fdb->flushVlanPort(-1, IntfId("Ethernet1"));  // every VLAN
  EXPECT_FALSE(fdb->table().entry(a));
  fdb->flushAll();
  EXPECT_EQ(fdb->table().size(), 0u);
  EXPECT_EQ(macTable->macEntrySize(), 0u);
}

// Software learning: the chip reports learns and the table takes an entry
// only when software programs it.
class SoftFdbSoftwareLearningTest : public SoftFdbTest {
 protected:
  void SetUp() override { fdb->learningIs(SoftChip::SoftFdbHelper::Learning::software); }
};

TEST_F(SoftFdbSoftwareLearningTest, ALearnIsReportedEvenWhenFullAndGoesInWhenProgrammed) {
  chip->capacityIs("fdb", 0);
  EXPECT_TRUE(fdb->learn(a, IntfId("Ethernet1")));
  EXPECT_EQ(macTable->macEntry(a).intf, IntfId("Ethernet1"));
  EXPECT_FALSE(fdb->table().entry(a));
  EXPECT_EQ(fdb->reportedLearns().size(), 1u);
  // Software's add meets the full table and the report stays.
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryDynamic), 2u);
  EXPECT_EQ(fdb->reportedLearns().size(), 1u);
  chip->capacityIs("fdb", 1);
  EXPECT_EQ(fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryDynamic), 0u);
  EXPECT_FALSE(fdb->table().entry(a)->learned);
  EXPECT_TRUE(fdb->reportedLearns().empty());
  EXPECT_EQ(macTable->macEntry(a).intf, IntfId("Ethernet1"));
}

TEST_F(SoftFdbSoftwareLearningTest, AKnownAddressRefreshesAndAMoveIsReportedNotDone) {
  fdb->learn(a, IntfId("Ethernet1"));
  fdb->addHost(a, IntfId("Ethernet1"), 0, false, EntryType::entryDynamic);
  EXPECT_TRUE(fdb->learn(a, IntfId("Ethernet1")));
  EXPECT_TRUE(fdb->reportedLearns().empty());
  EXPECT_TRUE(fdb->learn(a, IntfId("Ethernet2")));
  EXPECT_EQ(macTable->macEntry(a).intf, IntfId("Ethernet2"));
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet1"));  // until software moves it
  EXPECT_EQ(fdb->reportedLearns().at(a).intf, IntfId("Ethernet2"));
  fdb->addHost(a, IntfId("Ethernet2"), 0, false, EntryType::entryDynamic);
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet2"));
  EXPECT_TRUE(fdb->reportedLearns().empty());
}

TEST_F(SoftFdbSoftwareLearningTest, LearningOffAndStaticEntriesReportNothing) {
  fdb->enableLearning(IntfId("Ethernet1"), false);
  EXPECT_FALSE(fdb->learn(a, IntfId("Ethernet1")));
  fdb->enableLearningOnVlan(Bridging::VlanId(10), false);
  EXPECT_FALSE(fdb->learn(b, IntfId("Ethernet2")));
  fdb->enableLearningOnVlan(Bridging::VlanId(10), true);
  fdb->addHost(b, IntfId("Ethernet3"), 0, false, EntryType::entryStatic);
  EXPECT_FALSE(fdb->learn(b, IntfId("Ethernet2")));
  EXPECT_TRUE(fdb->reportedLearns().empty());
  EXPECT_EQ(macTable->macEntrySize(), 0u);
}

TEST_F(SoftFdbSoftwareLearningTest, UnprogrammedLearnsAgeAndFlushLikeEntries) {
  chip->capacityIs("fdb", 0);
  fdb->configureAgingTime(20);
  fdb->learn(a, IntfId("Ethernet1"));
  fdb->learn(b, IntfId("Ethernet2"));
  loop.advance(15);
  fdb->touch(a);
  loop.advance(15);
  EXPECT_TRUE(macTable->macEntryHas(a));  // refreshed at 15 s
  EXPECT_FALSE(macTable->macEntryHas(b));
  EXPECT_EQ(fdb->reportedLearns().size(), 1u);
  fdb->flushVlanPort(-1, IntfId("Ethernet1"));
  EXPECT_FALSE(macTable->macEntryHas(a));
  EXPECT_TRUE(fdb->reportedLearns().empty());
}

TEST_F(SoftFdbSoftwareLearningTest, TheCommandPipelineProgramsAReportedLearn) {
  chip->capacityIs("fdb", 0);
  fdb->learn(a, IntfId("Ethernet1"));
  auto add = Orb::indirectAccessMacCmdFactory(Orb::IndirectAccessMacCmdType::addrOp, {a}, IntfId("Ethernet1"),
                                              EntryType::entryDynamic, 1, 1);
  EXPECT_EQ(fdb->applyCommand(*add, 0), Orb::MacProgramStatus::macProgramFull);
  EXPECT_EQ(fdb->reportedLearns().size(), 1u);
  chip->capacityIs("fdb", 1);
  EXPECT_EQ(fdb->applyCommand(*add, 0), Orb::MacProgramStatus::macProgramSuccess);
  EXPECT_TRUE(fdb->reportedLearns().empty());
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet1"));
}

}  // namespace
