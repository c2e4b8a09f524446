// Storm-control commands of orb-agent: levels parse as percentages with two
// decimals, bad input is refused with a reason and changes nothing, and the
// chip's knobs reach the meter table.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

namespace {

using AgentTest::error;
using AgentTest::run;

class StormControlCommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  std::string state() { return run(agent, "show storm-control json") + agent.chip().json(); }
};

TEST(StormControlLevelArg, TakesPercentagesWithAtMostTwoDecimals) {
  EXPECT_EQ(Agent::stormControlLevelArg("50"), 5000u);
  EXPECT_EQ(Agent::stormControlLevelArg("0.5"), 50u);
  EXPECT_EQ(Agent::stormControlLevelArg("99.99"), 9999u);
  EXPECT_EQ(Agent::stormControlLevelArg("100.00"), 10000u);
  EXPECT_EQ(Agent::stormControlLevelArg("0"), 0u);
  for (const char* bad : {"100.01", "101", "-1", "1.234", "1.", ".5", "abc", "", "1e2", "5%", "1000"})
    EXPECT_THROW(Agent::stormControlLevelArg(bad), Agent::CommandError) << bad;
  EXPECT_EQ(Agent::stormControlLevelText(5), "0.05");
  EXPECT_EQ(Agent::stormControlLevelText(10000), "100.00");
}

TEST_F(StormControlCommandsTest, LevelsShowWithTheirRates) {
  run(agent, "interface Ethernet1-2 storm-control broadcast level 50");
  run(agent, "interface Ethernet1 storm-control unknown-unicast level 0.25");
  const std::string shown = run(agent, "show storm-control");
  EXPECT_NE(shown.find("Ethernet1       broadcast          50.00        5000         0"), std::string::npos) << shown;
  EXPECT_NE(shown.find("Ethernet1       unknown-unicast     0.25          25         0"), std::string::npos) << shown;
  EXPECT_NE(shown.find("Ethernet2       broadcast"), std::string::npos);
  EXPECT_EQ(run(agent, "show storm-control Ethernet2").find("Ethernet1"), std::string::npos);
  EXPECT_NE(run(agent, "show storm-control hardware").find("Ethernet1       unknown-unicast         25000  -"),
            std::string::npos);
  const std::string json = run(agent, "show storm-control Ethernet1 json");
  EXPECT_NE(json.find("\"level\": \"0.25\""), std::string::npos) << json;
  EXPECT_NE(json.find("\"rateMbps\": 25"), std::string::npos);
  run(agent, "interface Ethernet1-2 no storm-control");
  EXPECT_EQ(run(agent, "show storm-control hardware json"), "[]\n");
}

TEST_F(StormControlCommandsTest, BadInputIsRefusedAndChangesNothing) {
  run(agent, "interface Ethernet1 storm-control broadcast level 10");
  const std::string before = state();
  EXPECT_NE(error(agent, "interface Ethernet1 storm-control broadcast level 100.5").find("at most two decimals"),
            std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet1 storm-control flood level 5").find("not 'flood'"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet1 storm-control broadcast 5").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "interface Vlan10 storm-control broadcast level 5").find("not Vlan10"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet1 no storm-control flood").find("not 'flood'"), std::string::npos);
  EXPECT_NE(error(agent, "interface Ethernet1 speed fast").find("not 'fast'"), std::string::npos);
  EXPECT_NE(error(agent, "interface Port-Channel1 speed 10g").find("Ethernet port"), std::string::npos);
  EXPECT_NE(error(agent, "chip storm-control capacity lots").find("bad number"), std::string::npos);
  EXPECT_NE(error(agent, "chip storm-control burst maybe").find("usage"), std::string::npos);
  EXPECT_NE(error(agent, "chip send-rate Ethernet1 0 1 src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff").find("range"),
            std::string::npos);
  EXPECT_NE(error(agent, "chip send-rate Ethernet1 10 1 src nowhere").find("nowhere"), std::string::npos);
  EXPECT_EQ(state(), before);
}

TEST_F(StormControlCommandsTest, ChipKnobsReachTheMeterTable) {
  run(agent, "chip storm-control capacity 1");
  run(agent, "interface Ethernet1 storm-control broadcast level 10");
  run(agent, "interface Ethernet1 storm-control multicast level 10");
  EXPECT_EQ(agent.stormControl().helper()->table().size(), 1u);
  EXPECT_EQ(agent.stormControl().helper()->refused(), 1u);
  // The periodic work tries again once there is room.
  run(agent, "chip storm-control capacity 10");
  run(agent, "advance 1");
  EXPECT_EQ(agent.stormControl().helper()->table().size(), 2u);
  run(agent, "chip storm-control fail next 1");
  run(agent, "interface Ethernet2 storm-control broadcast level 10");
  EXPECT_EQ(agent.stormControl().helper()->table().size(), 2u);
  run(agent, "chip storm-control all off");
  run(agent, "interface Ethernet3 storm-control all level 10");
  EXPECT_EQ(agent.stormControl().helper()->table().meter(Nexo::IntfId("Ethernet3"), Orb::LevelType::all), nullptr);
  run(agent, "chip storm-control burst-time 500");
  EXPECT_EQ(agent.stormControl().helper()->table().burstTimeUs(), 500u);
}

}  // namespace
