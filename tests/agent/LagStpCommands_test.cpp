// LAG, MLAG and spanning-tree commands of orb-agent, end to end through the
// soft chip.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using AgentTest::error;
using AgentTest::run;

TEST(LagCommands, MembersMoveBetweenLagsAndShowInHardware) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "port-channel 1 members Ethernet1-2");
  run(agent, "port-channel 2 members Ethernet2-3");
  EXPECT_EQ(run(agent, "show port-channel"),
            "Port-Channel1\n  members:  Ethernet1\n  hardware: Ethernet1\n"
            "Port-Channel2\n  members:  Ethernet2 Ethernet3\n  hardware: Ethernet2 Ethernet3\n");
  run(agent, "no port-channel 2");
  EXPECT_FALSE(agent.ocsd()->portToLagHas(Nexo::IntfId("Ethernet2")));
  EXPECT_EQ(error(agent, "port-channel 0 members Ethernet1"), "'0' is out of range 1 to 65534");
  EXPECT_EQ(error(agent, "mlag intf 1 up sideways up"), "link state is up or down, not 'sideways'");
}

TEST(LagCommands, MlagKeepsAMemberlessLagOnThePeerLink) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "mlag state valid");
  run(agent, "mlag peer-link Port-Channel100");
  run(agent, "mlag fast-mac-redirection on");
  run(agent, "port-channel 1 members Ethernet1");
  run(agent, "mlag intf 1 down down up");
  run(agent, "port-channel 1 members none");
  EXPECT_NE(run(agent, "show port-channel").find("Port-Channel1  shares Port-Channel100"), std::string::npos);
  run(agent, "port-channel 1 members Ethernet2");
  EXPECT_EQ(run(agent, "show port-channel").find("shares"), std::string::npos);
}

TEST(StpCommands, TopologyStateTakesEffectWithTheVlanAcks) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "vlan 10 add Ethernet1-2");
  run(agent, "chip vlan ack-delay 1");
  run(agent, "spanning-tree topology MST1 vlans 10-12");
  run(agent, "spanning-tree MST1 Ethernet1 blocking");
  EXPECT_NE(run(agent, "show spanning-tree MST1").find("pending (3 vlans)"), std::string::npos);
  run(agent, "advance 1");
  std::string shown = run(agent, "show spanning-tree MST1");
  EXPECT_NE(shown.find("Topology MST1  id 1  state set"), std::string::npos) << shown;
  EXPECT_NE(shown.find("Ethernet1        blocking"), std::string::npos) << shown;
  EXPECT_EQ(error(agent, "spanning-tree MST9 Ethernet1 blocking"), "no topology 'MST9'");
  EXPECT_NE(error(agent, "spanning-tree MST1 Ethernet1 sleeping").find("port state is"), std::string::npos);
  EXPECT_EQ(error(agent, "spanning-tree topology MST2 vlans 20-10"), "bad VLAN range '20-10'");
}

TEST(StpCommands, ShowSpanningTreeJsonIsOneDocument) {
  Agent::Agent agent(Agent::Options{});
  run(agent, "spanning-tree topology MST1 vlans 10");
  run(agent, "spanning-tree MST1 Ethernet2 learning");
  EXPECT_EQ(run(agent, "show spanning-tree MST1 json"),
            "{\n  \"topologies\": {\n    \"MST1\": {\n      \"id\": 1,\n      \"stateSet\": true,\n"
            "      \"pendingVlans\": [],\n      \"vlans\": [10],\n      \"ports\": {\n"
            "        \"Ethernet2\": \"learning\"\n      }\n    }\n  }\n}\n");
  EXPECT_NE(run(agent, "show spanning-tree json").find("\"Default\": {"), std::string::npos);
  EXPECT_EQ(error(agent, "show spanning-tree MST9 json"), "no topology 'MST9'");
  EXPECT_EQ(error(agent, "show spanning-tree MST1 extra json"), "usage: show spanning-tree [NAME] [json]");
}

// Every VLAN no other topology claims, and every port of the switch, are in
// the default topology, forwarding; it cannot be removed.
TEST(StpCommands, DefaultTopologyHoldsEveryOtherVlanAndEveryPort) {
  Agent::Agent agent(Agent::Options{});
  std::string shown = run(agent, "show spanning-tree Default");
  EXPECT_NE(shown.find("Topology Default  id 0  state set\n  vlans: 4094 (1-4094)"), std::string::npos) << shown;
  EXPECT_NE(shown.find("Ethernet48       forwarding"), std::string::npos) << shown;
  run(agent, "spanning-tree topology MST1 vlans 10-19");
  EXPECT_NE(run(agent, "show spanning-tree Default").find("vlans: 4084"), std::string::npos);
  run(agent, "no spanning-tree topology MST1");
  EXPECT_NE(run(agent, "show spanning-tree Default").find("vlans: 4094"), std::string::npos);
  run(agent, "port-channel 3 members Ethernet7");
  EXPECT_NE(run(agent, "show spanning-tree Default").find("Port-Channel3    forwarding"), std::string::npos);
  run(agent, "no port-channel 3");
  EXPECT_EQ(run(agent, "show spanning-tree Default").find("Port-Channel3"), std::string::npos);
  EXPECT_EQ(error(agent, "no spanning-tree topology Default"),
            "the default topology holds every VLAN no other topology has; it stays");
}

}  // namespace
