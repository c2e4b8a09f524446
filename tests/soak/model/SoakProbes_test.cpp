// The frames a written scenario's checks send, read back for a replay:
// frame texts parse to the frames that printed them, and the `chip send`
// checks of a scenario give its frames once each.
#include "agent/Agent.h"
#include "tests/soak/SoakForwarder.h"
#include "tests/soak/SoakRunner.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Soak {
namespace {

RefFrame frame(std::string src, std::string dst, std::optional<int> tag = std::nullopt, int ipSeed = -1) {
  RefFrame f;
  f.src = std::move(src);
  f.dst = std::move(dst);
  f.tag = tag;
  f.ip = ipSeed >= 0;
  f.ipSeed = std::max(ipSeed, 0);
  return f;
}

TEST(SoakProbes, FrameTextsParseBackToTheirFrames) {
  for (const auto& f :
       {frame("00:00:00:00:00:01", "ff:ff:ff:ff:ff:ff"), frame("00:00:00:00:00:02", "00:00:00:00:00:03", 10),
        frame("00:00:00:00:00:02", "00:00:00:00:00:03", 0, 0),
        frame("00:00:00:00:00:04", "01:00:5e:00:00:01", std::nullopt, 37)}) {
    auto parsed = RefFrame::parse(f.text());
    ASSERT_TRUE(parsed) << f.text();
    EXPECT_EQ(parsed->text(), f.text());
    EXPECT_EQ(parsed->tag, f.tag);
    EXPECT_EQ(parsed->ip, f.ip);
    EXPECT_EQ(parsed->ipSeed, f.ipSeed);
  }
}

TEST(SoakProbes, OtherTextsAreNotFrames) {
  for (const char* text : {"", "src 00:00:00:00:00:01", "dst 00:00:00:00:00:01 src 00:00:00:00:00:02",
                           "src a dst b vlan", "src a dst b vlan x", "src a dst b ip 10.0.0.1 10.1.0.1 tcp 80 80",
                           // addresses that no seed makes with these ports
                           "src a dst b ip 10.9.9.9 10.1.0.1 tcp 1024 80"}) {
    EXPECT_FALSE(RefFrame::parse(text)) << text;
  }
}

TEST(SoakProbes, ScenarioChecksGiveTheirFramesOnceEach) {
  auto tagged = frame("00:00:00:00:00:02", "00:00:00:00:00:03", 10);
  auto flooded = frame("00:00:00:00:00:01", "ff:ff:ff:ff:ff:ff", std::nullopt, 5);
  std::vector<std::string> scenario = {
      "vlan 10",
      "expect show mac hardware ~ 10 00:00:00:00:00:02",
      "expect chip send Ethernet1 " + tagged.text() + " ~ Ethernet2 vlan 10 tagged",
      "expect-not chip send Ethernet1 " + tagged.text() + " ~ Ethernet3 vlan 10 tagged",
      "expect-not chip send Port-Channel1 " + flooded.text() + " ~ Ethernet4",
      "expect chip send Ethernet1 not a frame ~ dropped:",
  };
  auto probes = probesOf(scenario);
  ASSERT_EQ(probes.size(), 2u);
  EXPECT_EQ(probes[0].ingress, "Ethernet1");
  EXPECT_EQ(probes[0].frame.text(), tagged.text());
  EXPECT_EQ(probes[1].ingress, "Port-Channel1");
  EXPECT_EQ(probes[1].frame.text(), flooded.text());
}

TEST(SoakProbes, AReplayComparesTheScenarioFrames) {
  // A switch that forwards right: the frames of the checks are compared
  // and agree.
  auto known = frame("00:00:00:00:00:02", "00:00:00:00:00:01", 10);
  std::vector<std::string> lines = {"vlan 10 add Ethernet1-3 tagged", "mac static 0000.0000.0001 vlan 10 Ethernet1"};
  auto probes = probesOf({"expect chip send Ethernet2 " + known.text() + " ~ Ethernet1 vlan 10 tagged"});
  ASSERT_EQ(probes.size(), 1u);
  // replay() finds nothing when the agent refuses a line: each is tried first.
  Agent::Agent agent(Agent::Options{});
  std::ostringstream sink;
  for (const auto& line : lines) ASSERT_NO_THROW(agent.execute(line, sink)) << line;
  std::ostringstream sent;
  agent.execute("chip send Ethernet2 " + known.text(), sent);
  EXPECT_NE(sent.str().find("Ethernet1"), std::string::npos) << sent.str();
  auto difference = replay(lines, probes);
  EXPECT_FALSE(difference) << (difference ? difference->lines.front() : "");
}

}  // namespace
}  // namespace Soak
