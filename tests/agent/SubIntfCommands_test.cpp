// Sub-interface commands of orb-agent: bad input is refused with a reason
// and changes nothing; many sub-interfaces on one port and on one LAG all
// reach the chip; the JSON view matches the table.
#include "agent/Agent.h"
#include "chip/softchip/SoftSubIntf.h"
#include "tests/agent/AgentCommandRun.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

using AgentTest::error;
using AgentTest::run;

class SubIntfCommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  std::string state() { return run(agent, "show interfaces sub-interfaces json") + agent.chip().json(); }
  std::size_t chipEntries() { return agent.subIntf().helper()->table().size(); }
};

TEST_F(SubIntfCommandsTest, BadInputIsRefusedAndChangesNothing) {
  run(agent, "interface Ethernet1.1 encapsulation dot1q vlan 5");
  const std::string before = state();
  EXPECT_NE(error(agent, "interface Ethernet4 encapsulation dot1q vlan 5").find("not a sub-interface"),
            std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 encapsulation dot1q vlan 4095").find("4094"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 encapsulation dot1q vlan 0").find("1"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 encapsulation dot1q vlan 5 inner 0").find("4094"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 encapsulation dot1q vlan 5 outer 3").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 encapsulation dot1q 5").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 forwarding bridged").find("needs a VLAN"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet4.8 forwarding switched vlan 3").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "interface Vlan5.1 encapsulation dot1q vlan 5").find("Vlan5.1"), std::string::npos);
  EXPECT_NE(error(agent, "no interface Ethernet4.9 encapsulation").find("has no encapsulation"), std::string::npos);
  EXPECT_NE(error(agent, "sub-interface retry-interval 0").find("above 0"), std::string::npos);
  EXPECT_NE(error(agent, "chip vlan-translation capacity").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "pseudowire connector Ethernet4 vlan 5").find("a sub-interface"), std::string::npos);
  EXPECT_NE(error(agent, "pseudowire connector Ethernet4.8 vlan 4095").find("4094"), std::string::npos);
  EXPECT_NE(error(agent, "pseudowire connector Ethernet4.8 5").find("usage"), std::string::npos);
  EXPECT_EQ(state(), before);
  // The interface command's other forms still work.
  EXPECT_EQ(error(agent, "interface Ethernet2 link down"), "");
}

TEST_F(SubIntfCommandsTest, ManySubIntfsOnOnePortAndOneLag) {
  run(agent, "port-channel 1 members Ethernet9-10");
  for (int n = 1; n <= 256; ++n) {
    run(agent, fmt::format("interface Ethernet1.{} encapsulation dot1q vlan {}", n, n));
    run(agent, fmt::format("interface Port-Channel1.{} encapsulation dot1q vlan {} inner 7", n, n));
    run(agent, fmt::format("interface Port-Channel1.{} forwarding bridged vlan {}", n, 1000 + n));
  }
  EXPECT_EQ(chipEntries(), 512u);
  EXPECT_TRUE(agent.subIntf().sm()->conflictedIntf().empty());
  const std::string shown = run(agent, "show interfaces sub-interfaces");
  EXPECT_NE(shown.find("512 sub-interfaces, 0 waiting on a conflict"), std::string::npos);
  // Both LAG members were handed to the chip for the LAG's tags.
  EXPECT_EQ(agent.subIntf().helper()->table().lagOfPort.size(), 2u);
  // A frame on either member with one of the LAG's tags is its sub-interface's.
  EXPECT_NE(run(agent, "chip send Ethernet10 src 00:00:00:00:00:0a dst ff:ff:ff:ff:ff:ff vlan 200 inner 7")
                .find("in by sub-interface Port-Channel1.200"),
            std::string::npos);
  for (int n = 1; n <= 256; ++n) run(agent, fmt::format("no interface Port-Channel1.{} encapsulation", n));
  EXPECT_EQ(chipEntries(), 256u);
  EXPECT_TRUE(agent.subIntf().helper()->table().lagOfPort.empty());
}

TEST_F(SubIntfCommandsTest, JsonAndFaults) {
  run(agent, "chip vlan-translation fail next 1");
  run(agent, "interface Ethernet2.3 encapsulation dot1q vlan 3");
  EXPECT_NE(run(agent, "show interfaces sub-interfaces").find("failed(3)"), std::string::npos);
  run(agent, "interface Ethernet2.3 encapsulation dot1q vlan 4");
  const std::string json = run(agent, "show interfaces sub-interfaces json");
  EXPECT_NE(json.find("\"outerTag\": 4"), std::string::npos);
  EXPECT_NE(json.find("\"state\": \"programmed\""), std::string::npos);
  EXPECT_NE(json.find("\"parent\": \"Ethernet2\""), std::string::npos);
}

}  // namespace
