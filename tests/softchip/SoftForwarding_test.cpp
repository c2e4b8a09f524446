// The soft chip's forwarding model asked where frames go without learning:
// the chip's forwarding database stays exactly as it was.
#include "chip/softchip/SoftForwarding.h"
#include "chip/softchip/SoftFdb.h"
#include "chip/softchip/SoftVlan.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Nexo::EthAddr;
using Nexo::IntfId;

class SoftForwardingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vlans->doAddPortToVlan(IntfId("Ethernet1"), VlanId(10), false, true, true);
    vlans->doAddPortToVlan(IntfId("Ethernet2"), VlanId(10), false, true, true);
    loop.runUntilIdle();
  }
  SoftChip::Frame frame(const char* src, const char* dst) {
    return SoftChip::frameFromText(std::string("src ") + src + " dst " + dst);
  }

  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<OrbTypes::MacTable> macTable = Vex::make<OrbTypes::MacTable>("macTable");
  Vex::Ptr<SoftChip::SoftVlanHelper> vlans = Vex::make<SoftChip::SoftVlanHelper>(chip);
  Vex::Ptr<SoftChip::SoftFdbHelper> fdb = Vex::make<SoftChip::SoftFdbHelper>(chip, macTable);
  SoftChip::SoftForwarding forwarding{*chip};
  MacVlanPair a{EthAddr("00:00:00:00:00:0a"), VlanId(10)};
};

TEST_F(SoftForwardingTest, WithoutLearningANewSourceIsNotLearnedButTheFrameStillFloods) {
  forwarding.learningIs(false);
  auto result = forwarding.forward(IntfId("Ethernet1"), frame("00:00:00:00:00:0a", "ff:ff:ff:ff:ff:ff"));
  ASSERT_EQ(result.egress.size(), 1u);
  EXPECT_EQ(result.egress[0].port, IntfId("Ethernet2"));
  EXPECT_FALSE(result.learned);
  EXPECT_EQ(fdb->table().size(), 0u);
  EXPECT_FALSE(macTable->macEntryHas(a));
  forwarding.learningIs(true);
  EXPECT_TRUE(forwarding.forward(IntfId("Ethernet1"), frame("00:00:00:00:00:0a", "ff:ff:ff:ff:ff:ff")).learned);
  EXPECT_TRUE(fdb->table().entry(a));
}

TEST_F(SoftForwardingTest, WithoutLearningAKnownSourceNeitherMovesNorIsKeptFromAging) {
  ASSERT_TRUE(fdb->learn(a, IntfId("Ethernet1")));
  auto seen = fdb->table().entry(a)->lastSeen;
  loop.advance(10);
  forwarding.learningIs(false);
  auto result = forwarding.forward(IntfId("Ethernet2"), frame("00:00:00:00:00:0a", "00:00:00:00:00:0b"));
  EXPECT_FALSE(result.moved);
  EXPECT_EQ(fdb->table().entry(a)->intf, IntfId("Ethernet1"));
  forwarding.forward(IntfId("Ethernet1"), frame("00:00:00:00:00:0a", "00:00:00:00:00:0b"));
  EXPECT_EQ(fdb->table().entry(a)->lastSeen, seen);
}

}  // namespace
