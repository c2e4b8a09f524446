// The reference model's ACLs, storm control and sub-interfaces: what it
// states for a few command lists, and that the soft chip, driven by the
// same lines through the agent, agrees (replay finds no difference).
#include "agent/Agent.h"
#include "tests/soak/SoakForwarder.h"
#include "tests/soak/SoakModel.h"
#include "tests/soak/SoakRunner.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Soak {
namespace {

ChipView modelAfter(const std::vector<std::string>& lines) {
  Model model;
  for (const auto& line : lines) model.apply(line);
  return model.chip();
}

// The chip agrees with the model once the switch has settled. replay()
// finds nothing when the agent refuses a line, so each is tried first.
void expectChipAgrees(const std::vector<std::string>& lines) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream sink;
  for (const auto& line : lines) EXPECT_NO_THROW(agent.execute(line, sink)) << line;
  auto difference = replay(lines);
  if (!difference) return;
  std::string text;
  for (const auto& line : difference->lines) text += line + "\n";
  ADD_FAILURE() << text;
}

const std::vector<std::string> lagsWithLists = {
    "port-channel 1 members Ethernet5,Ethernet6", "ip access-list a1 10 deny tcp any any eq 80",
    "ip access-list a1 20 permit ip any any",     "ip access-list a2 10 permit tcp 10.0.0.0/16 range 1024 1500 any",
    "interface Ethernet5 ip access-group a2 in",  "interface Port-Channel1 ip access-group a1 in",
};

TEST(SoakModelAcl, LagListTakesPrecedenceAndLeavingMemberGetsItsOwnBack) {
  auto view = modelAfter(lagsWithLists);
  EXPECT_EQ(view.acls["Ethernet5"], view.acls["Ethernet6"]);
  EXPECT_EQ(view.acls["Ethernet5"].rfind("a1:", 0), 0u);
  expectChipAgrees(lagsWithLists);

  auto left = lagsWithLists;
  left.push_back("port-channel 1 members Ethernet6");
  view = modelAfter(left);
  EXPECT_EQ(view.acls["Ethernet5"], "a2: 10 permit 6 10.0.0.0/16 range 1024 1500 0.0.0.0/0 any;");
  EXPECT_EQ(view.acls["Ethernet6"].rfind("a1:", 0), 0u);
  expectChipAgrees(left);
}

TEST(SoakModelAcl, DeletedListLeavesItsPortsAndComesBackWhenMadeAgain) {
  auto lines = lagsWithLists;
  lines.push_back("no ip access-list a1");
  auto view = modelAfter(lines);
  EXPECT_FALSE(view.acls.count("Ethernet5"));
  EXPECT_FALSE(view.acls.count("Ethernet6"));
  expectChipAgrees(lines);
  lines.push_back("ip access-list a1");
  view = modelAfter(lines);
  EXPECT_EQ(view.acls["Ethernet6"], "a1:");
  expectChipAgrees(lines);
}

TEST(SoakModelAcl, ForwarderAppliesFirstMatchingRuleThenImplicitDeny) {
  std::vector<std::string> lines = {"vlan 10 add Ethernet1-3", "ip access-list a1 10 deny tcp any any eq 80",
                                    "ip access-list a1 20 permit tcp any range 1024 1100 any",
                                    "interface Ethernet1 ip access-group a1 in"};
  auto view = modelAfter(lines);
  Forwarder forwarder(view, {});
  auto frame = [](int seed) { return RefFrame{"00:00:00:00:00:01", "ff:ff:ff:ff:ff:ff", 10, true, seed}; };
  // Seed 0 goes to port 80, seed 1 to 81 from 1025, seed 200 from 1224.
  EXPECT_TRUE(forwarder.forward("Ethernet1", frame(0), 10)->empty());
  EXPECT_EQ(forwarder.forward("Ethernet1", frame(1), 10)->size(), 2u);
  EXPECT_TRUE(forwarder.forward("Ethernet1", frame(200), 10)->empty());
  EXPECT_EQ(forwarder.forward("Ethernet2", frame(0), 10)->size(), 2u);
  RefFrame plain{"00:00:00:00:00:01", "ff:ff:ff:ff:ff:ff", 10};
  EXPECT_EQ(forwarder.forward("Ethernet1", plain, 10)->size(), 2u);
}

TEST(SoakModelStorm, RateIsPercentOfSpeedAndMembersTakeTheirLagsLevelsAlone) {
  std::vector<std::string> lines = {"port-channel 1 members Ethernet5", "interface Ethernet1 speed 25g",
                                    "interface Ethernet1 storm-control broadcast level 12.5",
                                    "interface Ethernet5 storm-control multicast level 5",
                                    "interface Port-Channel1 storm-control all level 1"};
  auto view = modelAfter(lines);
  std::map<std::pair<Intf, std::string>, std::string> want = {
      {{"Ethernet1", "broadcast"}, "3125000 kbps"},
      {{"Ethernet5", "all"}, "100000 kbps Port-Channel1"},
  };
  EXPECT_EQ(view.stormMeters, want);
  expectChipAgrees(lines);
  lines.push_back("port-channel 1 members none");
  lines.push_back("interface Ethernet1 no storm-control");
  view = modelAfter(lines);
  want = {{{"Ethernet5", "multicast"}, "500000 kbps"}};
  EXPECT_EQ(view.stormMeters, want);
  expectChipAgrees(lines);
}

TEST(SoakModelSubIntf, WaitingSubInterfaceTakesTheTagUnlessAnotherAsksBeforeTheRetry) {
  std::vector<std::string> lines = {"interface Ethernet1.1 encapsulation dot1q vlan 100",
                                    "interface Ethernet1.2 encapsulation dot1q vlan 100",
                                    "interface Port-Channel1.1 encapsulation dot1q vlan 101"};
  auto view = modelAfter(lines);
  EXPECT_EQ(view.subIntfs["Ethernet1 100"], "Ethernet1.1 vlan 100");
  EXPECT_EQ(view.subIntfs["Port-Channel1 101"], "Port-Channel1.1 vlan 101");
  expectChipAgrees(lines);

  auto retried = lines;
  retried.push_back("no interface Ethernet1.1 encapsulation");
  retried.push_back("advance 1");
  retried.push_back("interface Ethernet2.1 encapsulation dot1q vlan 100");
  view = modelAfter(retried);
  EXPECT_EQ(view.subIntfs["Ethernet1 100"], "Ethernet1.2 vlan 100");
  EXPECT_FALSE(view.subIntfs.count("Ethernet2 100"));
  expectChipAgrees(retried);

  auto overtaken = lines;
  overtaken.push_back("no interface Ethernet1.1 encapsulation");
  overtaken.push_back("interface Ethernet2.1 encapsulation dot1q vlan 100");
  view = modelAfter(overtaken);
  EXPECT_EQ(view.subIntfs["Ethernet2 100"], "Ethernet2.1 vlan 100");
  EXPECT_FALSE(view.subIntfs.count("Ethernet1 100"));
  expectChipAgrees(overtaken);
}

TEST(SoakCompare, NamesEachFeatureTableEntryThatDiffers) {
  ChipView want, have;
  want.acls["Ethernet1"] = "a1:";
  want.stormMeters[{"Ethernet2", "uucast"}] = "100 kbps";
  have.stormMeters[{"Ethernet2", "uucast"}] = "200 kbps";
  have.subIntfs["Ethernet3 100"] = "Ethernet3.1 vlan 100";
  auto difference = compare(want, have, {});
  ASSERT_TRUE(difference);
  ASSERT_EQ(difference->lines.size(), 3u);
  EXPECT_EQ(difference->lines[0], "acl in Ethernet1: model [a1:] chip [-]");
  EXPECT_EQ(difference->lines[1], "storm-control Ethernet2 uucast: model [100 kbps] chip [200 kbps]");
  EXPECT_EQ(difference->lines[2], "vlan-translation Ethernet3 100: model [-] chip [Ethernet3.1 vlan 100]");
  // The scenario checks read the show commands.
  ASSERT_EQ(difference->expects.size(), 2u);
  EXPECT_EQ(difference->expects[0], "expect show storm-control hardware ~ Ethernet2 unknown-unicast 100 -");
  EXPECT_EQ(difference->expects[1],
            "expect-not show interfaces sub-interfaces ~ Ethernet3.1 dot1q 100 routed 100 programmed");
}

}  // namespace
}  // namespace Soak
