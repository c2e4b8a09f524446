// VLAN commands of orb-agent, end to end through the soft chip.
#include "agent/Agent.h"
#include "agent/IntfRange.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using AgentTest::error;
using AgentTest::run;

TEST(IntfRange, ExpandsRangesAndLists) {
  auto ids = Agent::parseIntfRange("Ethernet1-3,Port-Channel10,Ethernet2/1-2");
  std::vector<std::string> names;
  for (const auto& id : ids) names.push_back(id.stringValue());
  EXPECT_EQ(names, (std::vector<std::string>{"Ethernet1", "Ethernet2", "Ethernet3", "Port-Channel10", "Ethernet2/1",
                                             "Ethernet2/2"}));
  EXPECT_THROW(Agent::parseIntfRange("Ethernet3-1"), Agent::CommandError);
  EXPECT_THROW(Agent::parseIntfRange("Bogus1"), Agent::CommandError);
  EXPECT_THROW(Agent::parseIntfRange("Ethernet1,"), Agent::CommandError);
}

TEST(IntfRange, EndsOfARangeAreSpelledAsNames) {
  // "Ethernet01" is no interface, so "Ethernet01-3" is no range of them.
  EXPECT_THROW(Agent::parseIntfRange("Ethernet01"), Agent::CommandError);
  EXPECT_THROW(Agent::parseIntfRange("Ethernet01-3"), Agent::CommandError);
  EXPECT_THROW(Agent::parseIntfRange("Ethernet1-03"), Agent::CommandError);
  EXPECT_THROW(Agent::parseIntfRange("Ethernet2/01-2"), Agent::CommandError);
  EXPECT_EQ(Agent::parseIntfRange("Ethernet0-1,Ethernet2/0-0").size(), 3u);
}

TEST(VlanCommands, MembershipReachesHardware) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "vlan 10 add Ethernet1-2");
  run(agent, "vlan 10 add Ethernet3 tagged");
  EXPECT_EQ(run(agent, "show vlan 10"),
            "VLAN 10  fid 10  generations: done 3\n"
            "  configured: Ethernet1 Ethernet2 Ethernet3(t)\n"
            "  confirmed:  Ethernet1 Ethernet2 Ethernet3(t)  ingress: Ethernet1 Ethernet2 Ethernet3  egress: Ethernet1 "
            "Ethernet2 Ethernet3\n"
            "  hardware:   Ethernet1 Ethernet2 Ethernet3(t)\n");
  run(agent, "vlan 10 remove Ethernet2");
  run(agent, "vlan 10 fid 5");
  EXPECT_NE(run(agent, "show vlan 10").find("fid 5"), std::string::npos);
  EXPECT_EQ(agent.vlanHelper().table().vlan(Bridging::VlanId(10))->untagged.size(), 1u);
}

TEST(VlanCommands, ExpansionAndVlanRemoval) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "vlan 10 add Ethernet1");
  run(agent, "vlan 10 expand 20");
  EXPECT_TRUE(agent.vlanHelper().table().vlan(Bridging::VlanId(20))->untagged.count(Nexo::IntfId("Ethernet1")));
  run(agent, "no vlan 10");
  EXPECT_TRUE(agent.vlanHelper().table().vlan(Bridging::VlanId(10))->untagged.empty());
  EXPECT_TRUE(agent.vlanHelper().table().vlan(Bridging::VlanId(20))->untagged.empty());
}

TEST(VlanCommands, ChipKnobsDelayAndFail) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "chip vlan ack-delay 5");
  run(agent, "vlan 10 add Ethernet1");
  EXPECT_NE(run(agent, "show vlan 10").find("in flight 1"), std::string::npos);
  run(agent, "advance 5");
  EXPECT_NE(run(agent, "show vlan 10").find("done 1"), std::string::npos);
  run(agent, "chip vlan ack-delay 0");
  run(agent, "chip vlan fail next 1");
  run(agent, "vlan 10 add Ethernet2");
  EXPECT_NE(run(agent, "show vlan 10").find("failed 2"), std::string::npos);
  run(agent, "chip vlan resources-available");
  EXPECT_NE(run(agent, "show vlan 10").find("done 3"), std::string::npos);
}

TEST(VlanCommands, BadInputIsRefusedWithAReason) {
  Agent::Agent agent(Agent::Options{});
  EXPECT_EQ(error(agent, "vlan 4095 add Ethernet1"), "'4095' is out of range 1 to 4094");
  EXPECT_EQ(error(agent, "vlan 10 add Bogus1"), "bad interface 'Bogus1'");
  EXPECT_EQ(error(agent, "vlan 10 add Ethernet1 sideways"), "unknown flag 'sideways' (tagged, no-ingress, no-egress)");
  EXPECT_NE(error(agent, "vlan 10 frob Ethernet1").find("usage: vlan ID add"), std::string::npos);
  EXPECT_EQ(error(agent, "vlan 11 remove Ethernet1"), "vlan 11 has no members");
  EXPECT_NE(error(agent, "chip vlan fail soon 1").find("usage: chip vlan"), std::string::npos);
  // Nothing of the refused lines reached the state database.
  EXPECT_EQ(run(agent, "show vlan"), "");
}

}  // namespace
