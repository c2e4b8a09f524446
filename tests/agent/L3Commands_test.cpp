// Layer-3 commands of orb-agent: bad input is refused with a reason and
// changes nothing; good input reaches the status model and the chip.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

#include <sstream>

#include <unistd.h>

namespace {

using AgentTest::error;
using AgentTest::run;

class L3CommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  void SetUp() override {
    run(agent, "vrf red");
    run(agent, "interface Ethernet1 vrf red");
    run(agent, "interface Ethernet2 vrf default");
    run(agent, "fec 10 via 10.0.0.2 Ethernet1");
  }
  std::string state() {
    return run(agent, "show ip route json") + run(agent, "show adjacency json") + run(agent, "show ip watched json") +
           run(agent, "show fec json") + run(agent, "show resilient-ecmp dedup json") +
           run(agent, "show resilient-ecmp routes json") + agent.chip().json();
  }
};

TEST_F(L3CommandsTest, BadInputIsRefusedAndChangesNothing) {
  std::string before = state();
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"vrf " + std::string(101, 'x'), "VrfName::value::bytes > VrfName::maxLength not allowed"},
      {"interface Ethernet3 vrf blue", "no VRF 'blue'"},
      {"fec 11 via 10.0.0.2 Ethernet3", "Ethernet3 is not a routed interface"},
      {"fec 10 via 10.0.9.2 Ethernet2", "fec 10 has its vias in VRF red, not in VRF default"},
      {"fec 0 via 10.0.0.2 Ethernet1", "out of range"},
      {"fec 12 via 10.0.0.300 Ethernet1", "bad IPv4 address '10.0.0.300'"},
      {"fec 12 via 10.0.0.3 Ethernet1 weight 0", "out of range"},
      {"fec 12 via 10.0.0.3 Ethernet1 weigth 2", "usage: fec ID via ADDR INTF [weight W]"},
      {"ip route vrf red 10.9.0.0/16 fec 99", "no fec 99"},
      {"ip route vrf red 10.9.0.0/33 fec 10", "bad IPv4 prefix '10.9.0.0/33'"},
      {"ip route vrf green 10.9.0.0/16 fec 10", "no VRF 'green'"},
      {"no ip route vrf red 10.9.0.0/16", "no route 10.9.0.0/16 in VRF red"},
      {"ipv6 route 2001:db8::/129 fec 10", "bad IPv6 prefix"},
      {"arp red 10.0.0.2 00:00:00:00:00:02 Ethernet2", "Ethernet2 is not a routed interface of VRF red"},
      {"arp red 10.0.0.2 01:00:00:00:00:02 Ethernet1", "unicast MAC"},
      {"no arp red 10.0.0.2", "no neighbour 10.0.0.2 in VRF red"},
      {"ip watch vrf red 10.1.0.0/16 sometimes", "usage: ip watch"},
      {"ip watch vrf red 10.1.2.3 proactive-arp", "always has proactive ARP"},
      {"no ip watch vrf red 10.1.0.0/16", "not watched: 10.1.0.0/16"},
      {"no ipv6 watch 2001:db8::1", "not watched: 2001:db8::1/128"},
      {"adjacency review 77", "no fec 77"},
      {"no fec 77", "no fec 77"},
      {"chip adjacency full soon 3", "usage: chip adjacency"},
      {"interface Ethernet1 vrf", "usage:"},
      {"fec 10 resilient slots 0", "out of range"},
      {"fec 10 resilient slots 4097", "out of range"},
      {"fec 99 resilient slots 8", "no fec 99"},
      {"fec 10 resilient slot 8", "usage: fec ID via ADDR INTF [weight W] | fec ID resilient slots N"},
      {"no fec 10 via 10.0.0.9 Ethernet1", "fec 10 has no via 10.0.0.9 Ethernet1"},
      {"no fec 10 via 10.0.0.x Ethernet1", "bad IPv4 address"},
      {"no fec 10 resilience", "usage: no fec ID"},
      {"no fec 99 resilient", "no fec 99"},
      {"ip router-mac 01:00:00:00:00:01", "a router MAC is unicast"},
      {"ip router-mac nonsense", "bad MAC address"},
      {"chip route full soon 3", "usage: chip route"},
      {"chip fec capacity", "usage: chip fec"},
      {"show fec 99", "no fec 99"},
      {"resilient-ecmp dedup 99", "no fec 99"},
      {"no resilient-ecmp dedup 5", "no deduping request 5"},
      {"no resilient-ecmp dedup 65536", "out of range"},
      {"show resilient-ecmp routes all", "usage: show resilient-ecmp routes [json]"},
      // IPv6 vias and neighbours.
      {"fec 10 via 2001:db8::2 Ethernet1", "fec 10 has vias of the other address family: an IPv6 via cannot join"},
      {"fec 12 via 2001:db8::g Ethernet1", "bad IPv6 address '2001:db8::g'"},
      {"fec 12 via 2001:db8::2 Ethernet3", "Ethernet3 is not a routed interface"},
      {"no fec 10 via 2001:db8::2 Ethernet1", "fec 10 has no via 2001:db8::2 Ethernet1"},
      {"ipv6 neighbor red 2001:db8::2 00:00:00:00:00:02 Ethernet2", "Ethernet2 is not a routed interface of VRF red"},
      {"ipv6 neighbor red 2001:db8::2 01:00:00:00:00:02 Ethernet1", "unicast MAC"},
      {"ipv6 neighbor red 10.0.0.2 00:00:00:00:00:02 Ethernet1", "bad IPv6 address '10.0.0.2'"},
      {"ipv6 neighbor blue 2001:db8::2 00:00:00:00:00:02 Ethernet1", "no VRF 'blue'"},
      {"ipv6 neighbor red 2001:db8::2 00:00:00:00:00:02", "usage: ipv6 neighbor VRF ADDR MAC INTF"},
      {"no ipv6 neighbor red 2001:db8::2", "no neighbour 2001:db8::2 in VRF red"},
  };
  for (const auto& [line, reason] : cases) {
    EXPECT_NE(error(agent, line).find(reason), std::string::npos) << line << " -> " << error(agent, line);
    EXPECT_EQ(state(), before) << line;
  }
}

TEST_F(L3CommandsTest, AFecTakesTheOtherFamilyOnceItsViasAreGone) {
  run(agent, "fec 12 via 2001:db8::2 Ethernet1");
  EXPECT_NE(error(agent, "fec 12 via 10.0.0.3 Ethernet1").find("an IPv4 via cannot join"), std::string::npos);
  run(agent, "no fec 12 via 2001:db8::2 Ethernet1");
  EXPECT_EQ(error(agent, "fec 12 via 10.0.0.3 Ethernet1"), "");
  run(agent, "arp red 10.0.0.3 00:00:00:00:00:03 Ethernet1");
  EXPECT_NE(run(agent, "show adjacency").find("00:00:00:00:00:03 Ethernet1"), std::string::npos);
}

TEST_F(L3CommandsTest, AnIpv6NeighbourResolvesOnlyItsOwnFamilysNextHops) {
  // The same address bits in the other family are another neighbour.
  run(agent, "fec 12 via 2001:db8::2 Ethernet1");
  run(agent, "ipv6 neighbor red 2001:db8::2 00:00:00:00:00:62 Ethernet1");
  run(agent, "arp red 10.0.0.2 00:00:00:00:00:42 Ethernet1");
  std::string shown = run(agent, "show adjacency");
  EXPECT_NE(shown.find("00:00:00:00:00:62 Ethernet1"), std::string::npos) << shown;
  EXPECT_NE(shown.find("00:00:00:00:00:42 Ethernet1"), std::string::npos) << shown;
  run(agent, "no ipv6 neighbor red 2001:db8::2");
  shown = run(agent, "show adjacency");
  EXPECT_EQ(shown.find("00:00:00:00:00:62"), std::string::npos) << shown;
  EXPECT_NE(shown.find("00:00:00:00:00:42 Ethernet1"), std::string::npos) << shown;
}

TEST_F(L3CommandsTest, NeighboursArePublishedAsNextHopInformationInBothFamilies) {
  const auto& status = agent.l3().l3Status();
  const Orb::VrfId red = status->vrfId(L3::VrfName("red"));
  const Orb::VrfAndIpAddr v4{red, Nexo::IpAddr(0x0a000002)};
  const Orb::VrfAndIp6Addr v6{red, Nexo::Ip6Addr("2001:db8::2")};
  run(agent, "arp red 10.0.0.2 00:00:00:00:00:42 Ethernet1");
  run(agent, "ipv6 neighbor red 2001:db8::2 00:00:00:00:00:62 Ethernet1");
  ASSERT_TRUE(status->nextHopInfoHas(v4));
  EXPECT_EQ(status->nextHopInfo(v4), (Orb::NextHopInfo{Nexo::EthAddr(0x42), Nexo::IntfId("Ethernet1"), true}));
  ASSERT_TRUE(status->nextHop6InfoHas(v6));
  EXPECT_EQ(status->nextHop6Info(v6).mac, Nexo::EthAddr(0x62));
  run(agent, "no arp red 10.0.0.2");
  EXPECT_FALSE(status->nextHopInfoHas(v4));
  EXPECT_TRUE(status->nextHop6InfoHas(v6));
  EXPECT_NE(error(agent, "no arp red 10.0.0.2").find("no neighbour 10.0.0.2 in VRF red"), std::string::npos);
}

TEST_F(L3CommandsTest, AResilientFecFollowsItsViasInTheChip) {
  run(agent, "vrf blue");
  run(agent, "interface Ethernet3 vrf red");
  run(agent, "interface Ethernet4 vrf blue");
  run(agent, "arp red 10.0.0.2 00:00:00:00:aa:02 Ethernet1");
  run(agent, "arp red 10.0.0.3 00:00:00:00:aa:03 Ethernet3");
  run(agent, "fec 10 via 10.0.0.3 Ethernet3");
  run(agent, "fec 10 resilient slots 8");
  run(agent, "ip route vrf red 10.9.0.0/16 fec 10");
  const auto& chip = *agent.l3().routeHelper();
  const auto* fec = chip.fecs().find(SoftChip::SoftFecKey{10});
  ASSERT_TRUE(fec);
  EXPECT_EQ(fec->slots.size(), 8u);
  EXPECT_EQ(chip.routes().size(), 1u);
  EXPECT_EQ(chip.l3Intfs().size(), 4u);
  // The via goes: every slot is the survivor's.
  run(agent, "no fec 10 via 10.0.0.3 Ethernet3");
  fec = chip.fecs().find(SoftChip::SoftFecKey{10});
  ASSERT_TRUE(fec);
  for (const auto& member : fec->slots) EXPECT_EQ(member.mac, Nexo::EthAddr("00:00:00:00:aa:02"));
  EXPECT_NE(run(agent, "show fec 10").find("00:00:00:00:aa:02 Ethernet1 slots 8 [0 1 2 3 4 5 6 7]"), std::string::npos);
  run(agent, "no fec 10 resilient");
  EXPECT_EQ(chip.fecs().find(SoftChip::SoftFecKey{10})->slotCount, 0u);
  run(agent, "no ip route vrf red 10.9.0.0/16");
  run(agent, "no fec 10");
  EXPECT_EQ(chip.routes().size(), 0u);
  EXPECT_EQ(chip.fecs().size(), 0u);
  run(agent, "interface Ethernet4 vrf red");
  EXPECT_EQ(chip.l3Intfs().find(Nexo::IntfId("Ethernet4"))->vrf, 1u);
}

// Another agent reads the rows of routes over resilient FECs from the VRF's
// shared-memory tables, both families.
TEST(L3ResilientRowsTest, OtherAgentsReadThemFromSharedMemory) {
  Agent::Options options;
  options.pondPrefix = "orb-l3-test-" + std::to_string(::getpid()) + "-";
  Agent::Agent agent{options};
  run(agent, "vrf red");
  run(agent, "interface Ethernet1 vrf red");
  run(agent, "arp red 10.0.0.2 00:00:00:00:aa:02 Ethernet1");
  run(agent, "fec 10 via 10.0.0.2 Ethernet1");
  run(agent, "fec 10 resilient slots 8");
  run(agent, "ip route vrf red 10.9.0.0/16 fec 10");
  run(agent, "fec 20 via 2001:db8::2 Ethernet1");
  run(agent, "fec 20 resilient slots 4");
  run(agent, "ipv6 route vrf red 2001:db8:9::/48 fec 20");

  auto reader = Orb::resilientEcmpStatusFactory("reader");
  auto reader6 = Orb::resilientEcmpStatus6Factory("reader6");
  reader->controlIs(options.pondPrefix + "vrf1-", Pond::TableControl::Role::reader);
  reader6->controlIs(options.pondPrefix + "vrf1-", Pond::TableControl::Role::reader);
  auto row = reader->routePrefixToResilientEcmpInfo(Nexo::Prefix("10.9.0.0/16"));
  EXPECT_EQ(row.resilientAdjIndex, 10u);
  EXPECT_EQ(row.coveringResEcmpPrefix, Orb::PrefixKey(Nexo::Prefix("10.9.0.0/16")));
  EXPECT_EQ(row.reviewResilientAdjResult, Orb::ReviewResilientAdjResult::resEcmpSuccess);
  EXPECT_NE(row.adjIndex, 0u);
  auto row6 = reader6->route6PrefixToResilientEcmpInfo(Nexo::Ip6Prefix("2001:db8:9::/48"));
  EXPECT_EQ(row6.resilientAdjIndex, 20u);
  // No IPv6 neighbour resolves the via yet.
  EXPECT_EQ(row6.reviewResilientAdjResult, Orb::ReviewResilientAdjResult::emptyViasFecFailure);

  run(agent, "no ip route vrf red 10.9.0.0/16");
  EXPECT_FALSE(reader->routePrefixToResilientEcmpInfoHas(Nexo::Prefix("10.9.0.0/16")));
  run(agent, "no fec 20 resilient");
  EXPECT_EQ(reader6->route6PrefixToResilientEcmpInfoSize(), 0u);
}

TEST_F(L3CommandsTest, AFecInUseAndAnInterfaceWithViasStay) {
  run(agent, "ip route vrf red 10.9.0.0/16 fec 10");
  std::string before = state();
  EXPECT_EQ(error(agent, "no fec 10"), "fec 10 is used by 1 route");
  EXPECT_NE(error(agent, "interface Ethernet1 vrf default").find("carries vias"), std::string::npos);
  EXPECT_NE(error(agent, "no interface Ethernet1 vrf").find("carries vias of FECs; remove them before removing it"),
            std::string::npos);
  EXPECT_NE(error(agent, "no interface Ethernet1").find("usage"), std::string::npos);
  EXPECT_EQ(state(), before);
  run(agent, "no ip route vrf red 10.9.0.0/16");
  run(agent, "no fec 10");
  EXPECT_EQ(agent.l3().l3Status()->l2AdjListSize(), 0u);
  EXPECT_EQ(agent.l3().helper()->table().size(), 0u);
  // Without vias the interface leaves its VRF, the status and the chip.
  run(agent, "no interface Ethernet1 vrf");
  EXPECT_FALSE(agent.l3().l3Status()->l3IntfVrfIdHas(Nexo::IntfId("Ethernet1")));
  EXPECT_EQ(agent.l3().l3Status()->orbL3IntfTable()->l3IntfSize(), 1u);
}

TEST_F(L3CommandsTest, TheInterfaceCommandKeepsItsOtherForms) {
  EXPECT_EQ(error(agent, "interface Ethernet7 link up"), "");
  EXPECT_NE(error(agent, "interface Ethernet7 sideways").find("usage: interface INTFS link"), std::string::npos);
}

TEST_F(L3CommandsTest, ARefusedAdjacencyIsAStatusAndComesInWhenThereIsRoom) {
  run(agent, "chip adjacency capacity 1");
  run(agent, "fec 20 via 10.0.0.3 Ethernet1 weight 2");
  EXPECT_NE(run(agent, "show adjacency").find("pending not in hardware: table-full fecs 20"), std::string::npos);
  EXPECT_TRUE(agent.l3().internal()->adjResourceFull());
  run(agent, "no fec 10");
  EXPECT_NE(run(agent, "show adjacency").find("programmed fecs 20"), std::string::npos);
  EXPECT_FALSE(agent.l3().internal()->adjResourceFull());
}

}  // namespace
