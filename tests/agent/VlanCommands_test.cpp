// VLAN commands of orb-agent, end to end through the soft chip.
#include "agent/Agent.h"
#include "agent/IntfRange.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string run(Agent::Agent& agent, const std::string& line) {
  std::ostringstream out;
  agent.execute(line, out);
  return out.str();
}

std::string error(Agent::Agent& agent, const std::string& line) {
  try {
    run(agent, line);
  } catch (const Agent::CommandError& e) {
    return e.what();
  }
  return "";
}

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

TEST(VlanCommands, MembershipReachesHardware) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "vlan 10 add Ethernet1-2");
  run(agent, "vlan 10 add Ethernet3 tagged");
  EXPECT_EQ(run(agent, "show vlan 10"),
            "VLAN 10  fid 10  generations: done 3\n"
            "  configured: Ethernet1 Ethernet2 Ethernet3(t)\n"
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

namespace {

TEST(MacCommands, LearnMoveStaticAndShow) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "advance 2");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet2");
  run(agent, "mac static 00:00:00:00:00:99 vlan 10 Ethernet4");
  std::string shown = run(agent, "show mac address-table vlan 10");
  EXPECT_NE(shown.find("10    00:00:00:00:00:01  dynamic              Ethernet2            1  2.000"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("00:00:00:00:00:99  static"), std::string::npos);
  EXPECT_EQ(run(agent, "show mac address-table interface Ethernet4 count"), "Total Mac Addresses: 1\n");
  EXPECT_NE(run(agent, "show mac hardware").find("2 entries"), std::string::npos);
  EXPECT_EQ(run(agent, "show mac dynamic-hosts"),
            "Dynamic hosts: 1\n  interface Ethernet2        1\n  vlan 10                    1\n");
  run(agent, "mac remove static 00:00:00:00:00:99 vlan 10");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
}

TEST(MacCommands, FullTableRecoversAndBadInputIsRefused) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "chip fdb capacity 0");
  run(agent, "mac static 00:00:00:00:00:05 vlan 20 Ethernet1");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 0\n");
  run(agent, "chip fdb capacity 10");
  run(agent, "advance 1");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
  run(agent, "chip learn-range 00:00:00:00:10:00 20 vlan 20 Ethernet2");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 10\n");
  EXPECT_EQ(error(agent, "chip learn 00:00:00:00:00 vlan 10 Ethernet1"), "bad MAC address '00:00:00:00:00'");
  EXPECT_EQ(error(agent, "mac remove static 00:00:00:00:00:77 vlan 20"),
            "no static entry for 00:00:00:00:00:77 vlan 20");
  EXPECT_NE(error(agent, "chip fdb sleepy next 1").find("usage: chip fdb"), std::string::npos);
  EXPECT_NE(error(agent, "show mac address-table port 1").find("usage: show mac address-table"), std::string::npos);
}

}  // namespace

namespace {

// The same MAC behaviour whether the chip is programmed directly or through
// the indirect-access command pipeline.
class MacModes : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override { run(agent, std::string("chip fdb mode ") + GetParam()); }
  Agent::Agent agent{Agent::Options{}};
};

TEST_P(MacModes, LearnMoveStaticAndRemove) {
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "advance 1");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet2");
  run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
  run(agent, "advance 1");
  const auto* moved = agent.fdbHelper().table().entry({Nexo::EthAddr(1), Bridging::VlanId(10)});
  ASSERT_TRUE(moved);
  EXPECT_EQ(moved->intf, Nexo::IntfId("Ethernet2"));
  EXPECT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  EXPECT_NE(run(agent, "show mac address-table").find("Ethernet2            1"), std::string::npos);
  run(agent, "mac remove static 00:00:00:00:00:09 vlan 10");
  run(agent, "advance 1");
  EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
}

TEST_P(MacModes, FullTableTakesTheEntryOnceThereIsRoom) {
  run(agent, "chip fdb capacity 0");
  run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
  run(agent, "advance 1");
  EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  run(agent, "chip fdb capacity 10");
  run(agent, "advance 30");
  EXPECT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
}

TEST_P(MacModes, FlushOfAVlanOnALagTakesExactlyThoseEntries) {
  run(agent, "port-channel 1 members Ethernet9-10");
  run(agent, "chip learn-range 00:00:00:00:01:00 5 vlan 10 Port-Channel1");
  run(agent, "chip learn-range 00:00:00:00:02:00 5 vlan 20 Port-Channel1");
  run(agent, "chip learn-range 00:00:00:00:03:00 5 vlan 10 Ethernet1");
  run(agent, "advance 1");
  run(agent, "clear mac address-table vlan 10 interface Port-Channel1");
  run(agent, "advance 1");
  const auto& table = agent.fdbHelper().table().entries;
  EXPECT_EQ(table.size(), 10u);
  for (const auto& [key, entry] : table) {
    EXPECT_FALSE(key.vlanId == Bridging::VlanId(10) && entry.intf == Nexo::IntfId("Port-Channel1"))
        << key.addr.stringValue();
  }
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 10\n");
  EXPECT_EQ(run(agent, "show mac dynamic-hosts"),
            "Dynamic hosts: 10\n  interface Ethernet1        5\n  interface Port-Channel1    5\n"
            "  vlan 10                    5\n  vlan 20                    5\n");
  EXPECT_NE(run(agent, "show mac flush-requests").find("done at"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Chip, MacModes, ::testing::Values("direct", "indirect"));

}  // namespace
