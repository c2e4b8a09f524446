// The soft chip's VLAN table behind the VLAN helper: acknowledgements,
// planned failures and capacity.
#include "chip/softchip/SoftVlan.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;
using Nexo::IntfId;

class SoftVlanTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<SoftChip::SoftVlanHelper> helper = Vex::make<SoftChip::SoftVlanHelper>(chip);
  VlanId v10{10};

  bool inHardware(const char* port, VlanId vlanId) {
    const auto* vlan = helper->table().vlan(vlanId);
    return vlan && (vlan->untagged.count(IntfId(port)) || vlan->tagged.count(IntfId(port)));
  }
};

TEST_F(SoftVlanTest, ImmediateAcknowledgementProgramsOnTheNextTurns) {
  helper->doAddPortToVlan(IntfId("Ethernet1"), v10, true, true, true);
  loop.runUntilIdle();
  EXPECT_TRUE(helper->table().vlan(v10)->tagged.count(IntfId("Ethernet1")));
  EXPECT_TRUE(helper->getPortVlanMembership(IntfId("Ethernet1"))->taggedVlan(v10));
  EXPECT_EQ(helper->vlansProgrammed(), 1u);
}

TEST_F(SoftVlanTest, DelayedAcknowledgementAndAChangeInFlight) {
  chip->ackDelayIs("vlan", 3);
  helper->doAddPortToVlan(IntfId("Ethernet1"), v10, false, true, true);
  loop.runUntilIdle();
  helper->doAddPortToVlan(IntfId("Ethernet2"), v10, false, true, true);
  helper->doAddPortToVlan(IntfId("Ethernet3"), v10, false, true, true);
  loop.advance(2.9);
  EXPECT_EQ(helper->updatesRequested(), 1u);
  EXPECT_FALSE(inHardware("Ethernet1", v10));
  loop.advance(0.1);
  EXPECT_TRUE(inHardware("Ethernet1", v10));
  EXPECT_EQ(helper->updatesRequested(), 2u);  // exactly one more, with both changes
  loop.advance(3);
  EXPECT_TRUE(inHardware("Ethernet3", v10));
  EXPECT_EQ(helper->updatesRequested(), 2u);
  EXPECT_EQ(helper->updatesInFlight(), 0u);
}

TEST_F(SoftVlanTest, FailedUpdateKeepsConfirmedMembershipUntilRetried) {
  helper->doAddPortToVlan(IntfId("Ethernet1"), v10, false, true, true);
  loop.runUntilIdle();
  chip->faultIs("vlan", SoftChip::Fault::failed, 1);
  helper->doAddPortToVlan(IntfId("Ethernet2"), v10, false, true, true);
  loop.runUntilIdle();
  EXPECT_FALSE(inHardware("Ethernet2", v10));
  EXPECT_FALSE(helper->getPortVlanMembership(IntfId("Ethernet2"))->untaggedVlan(v10));
  EXPECT_TRUE(helper->getPortVlanMembership(IntfId("Ethernet1"))->untaggedVlan(v10));
  helper->hwResourcesAvailable();
  loop.runUntilIdle();
  EXPECT_TRUE(inHardware("Ethernet2", v10));
  EXPECT_TRUE(helper->getPortVlanMembership(IntfId("Ethernet2"))->untaggedVlan(v10));
}

TEST_F(SoftVlanTest, FullTableRefusesNewVlansOnly) {
  chip->capacityIs("vlan", 1);
  helper->doAddPortToVlan(IntfId("Ethernet1"), v10, false, true, true);
  helper->doAddPortToVlan(IntfId("Ethernet1"), VlanId(11), false, true, true);
  loop.runUntilIdle();
  EXPECT_TRUE(inHardware("Ethernet1", v10));
  EXPECT_FALSE(helper->table().vlan(VlanId(11)));
  EXPECT_TRUE(helper->vlanUpdate(VlanId(11)));  // still pending
  chip->capacityIs("vlan", 2);
  helper->hwResourcesAvailable();
  loop.runUntilIdle();
  EXPECT_TRUE(inHardware("Ethernet1", VlanId(11)));
}

TEST_F(SoftVlanTest, RemovalAndFidReachHardware) {
  helper->doAddPortToVlan(IntfId("Ethernet1"), v10, false, true, true);
  loop.runUntilIdle();
  helper->doUpdateVlanFid(v10, Bridging::Fid(77));
  helper->doRemovePortFromVlan(IntfId("Ethernet1"), v10);
  loop.runUntilIdle();
  EXPECT_FALSE(inHardware("Ethernet1", v10));
  EXPECT_EQ(helper->table().vlan(v10)->fid, Bridging::Fid(77));
  EXPECT_TRUE(helper->verifyLines().empty());
  EXPECT_NE(chip->json().find("\"vlan\""), std::string::npos);
}

}  // namespace
