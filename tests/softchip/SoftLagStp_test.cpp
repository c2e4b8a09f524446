// The soft chip's LAG and topology tables.
#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftStp.h"
#include "chip/softchip/SoftVlan.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Nexo::IntfId;

Orb::OrbLagPortList members(std::initializer_list<const char*> names) {
  Orb::OrbLagPortList list;
  for (const char* name : names) list.portIs(IntfId(name), {true, true});
  return list;
}

TEST(SoftLag, CapacityAndMembersPerLagAreEnforced) {
  Vex::EventLoop loop;
  auto chip = SoftChip::softChipFactory();
  auto lags = Vex::make<SoftChip::SoftLagHelper>(chip);
  chip->capacityIs("lag", 1);
  lags->maxMembersIs(2);
  lags->maybeCreateLag(IntfId("Port-Channel1"));
  lags->maybeCreateLag(IntfId("Port-Channel2"));
  EXPECT_TRUE(lags->table().lag(IntfId("Port-Channel1")));
  EXPECT_FALSE(lags->table().lag(IntfId("Port-Channel2")));
  lags->updateLag(IntfId("Port-Channel1"), members({"Ethernet1", "Ethernet2", "Ethernet3"}));
  EXPECT_EQ(lags->table().lag(IntfId("Port-Channel1"))->members.size(), 2u);
  lags->updateLag(IntfId("Port-Channel2"), members({"Ethernet4"}));
  EXPECT_EQ(lags->refused(), 3u);
  lags->maybeShareLagMembership(IntfId("Port-Channel1"), IntfId("Port-Channel100"), true);
  EXPECT_EQ(lags->table().lag(IntfId("Port-Channel1"))->sharedPeerLink, IntfId("Port-Channel100"));
  lags->maybeDestroyLag(IntfId("Port-Channel1"));
  EXPECT_EQ(lags->table().size(), 0u);
}

TEST(SoftLag, PlannedFailureRefusesCreation) {
  Vex::EventLoop loop;
  auto chip = SoftChip::softChipFactory();
  auto lags = Vex::make<SoftChip::SoftLagHelper>(chip);
  chip->faultIs("lag", SoftChip::Fault::failed, 1);
  lags->maybeCreateLag(IntfId("Port-Channel1"));
  EXPECT_FALSE(lags->table().lag(IntfId("Port-Channel1")));
  lags->maybeCreateLag(IntfId("Port-Channel1"));
  EXPECT_TRUE(lags->table().lag(IntfId("Port-Channel1")));
}

TEST(SoftStp, PortStatesBecomeVlanMembershipAndAreRecorded) {
  Vex::EventLoop loop;
  auto chip = SoftChip::softChipFactory();
  auto vlans = Vex::make<SoftChip::SoftVlanHelper>(chip);
  auto topo = Vex::make<SoftChip::SoftTopoHelper>(chip, vlans);
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto config = Vex::make<Bridging::Topology::Config>("c");
  auto status = Vex::make<Bridging::Topology::Status>("s");
  auto stp = Orb::stpSmFactory(ocsd, config, status, topo);
  vlans->doAddPortToVlan(IntfId("Ethernet1"), Bridging::VlanId(10), false, true, true);
  loop.runUntilIdle();
  config->topoConfigIs("MST1");
  config->vidToTopoMapIs(Bridging::VlanId(10), "MST1");
  config->topoConfig("MST1")->intfStateIs(IntfId("Ethernet1"), Orb::PortState::portStateDiscarding);
  EXPECT_FALSE(status->topoInstStatus("MST1").stateSet);
  loop.runUntilIdle();
  EXPECT_TRUE(status->topoInstStatus("MST1").stateSet);
  EXPECT_TRUE(vlans->table().vlan(Bridging::VlanId(10))->untagged.empty());
  const auto* hw = topo->table().topology("MST1");
  ASSERT_TRUE(hw);
  EXPECT_EQ(hw->portState.at(IntfId("Ethernet1")), Orb::PortState::portStateDiscarding);
  EXPECT_TRUE(hw->vlans.count(Bridging::VlanId(10)));
  config->topoConfig("MST1")->intfStateIs(IntfId("Ethernet1"), Orb::PortState::portStateForwarding);
  loop.runUntilIdle();
  EXPECT_TRUE(vlans->table().vlan(Bridging::VlanId(10))->untagged.count(IntfId("Ethernet1")));
  config->topoConfig("MST1")->fdbFlushIs(IntfId("Ethernet1"), 1);
  EXPECT_EQ(topo->table().topology("MST1")->flushes, 1u);
  EXPECT_EQ(topo->table().topology("MST1")->vlanFlushes.at(Bridging::VlanId(10)), 1u);
  EXPECT_EQ(topo->maxTopo(), 64u);
}

}  // namespace
