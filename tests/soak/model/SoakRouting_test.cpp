// The reference's routing rules for a few configurations, and the soft
// chip, driven by the same lines through the agent, routing every probe as
// the reference allows.
#include "tests/soak/SoakModel.h"
#include "tests/soak/SoakRunner.h"

#include <gtest/gtest.h>

namespace Soak {
namespace {

const std::string rmac = RouteModel::routerMac;

std::vector<std::string> twoVrfs() {
  return {
      "vrf red",
      "ip router-mac " + rmac,
      "interface Ethernet11 vrf default",
      "interface Ethernet12 vrf default",
      "interface Ethernet13 vrf red",
      "interface Ethernet14 vrf red",
      "arp default 10.0.11.1 00:00:00:00:0b:01 Ethernet11",
      "arp red 10.0.13.1 00:00:00:00:0d:01 Ethernet13",
      "fec 1 via 10.0.11.1 Ethernet11",
      "fec 1 via 10.0.11.2 Ethernet11 weight 2",
      "fec 4 via 10.0.13.1 Ethernet13",
      "ip route vrf default 10.1.0.0/16 fec 1",
      "ip route vrf default 10.1.2.0/24 fec 4",
      "ip route vrf red 0.0.0.0/0 fec 4",
  };
}

std::uint32_t ip(unsigned c, unsigned d) { return 10u << 24 | 1u << 16 | c << 8 | d; }

RoutedOutcome routed(const Model& model, const std::string& port, std::uint32_t dst, const std::string& mac = rmac) {
  auto out = model.routing().route(port, mac, dst);
  EXPECT_TRUE(out) << port << " is not routed";
  return out.value_or(RoutedOutcome{});
}

using NextHops = std::set<std::pair<Port, std::string>>;

TEST(SoakRouting, LongestPrefixOfTheIngressVrfAndResolvedViasOnly) {
  Model model;
  for (const auto& line : twoVrfs()) model.apply(line);
  // The /24 wins in default, and leads into red's neighbour.
  auto out = routed(model, "Ethernet12", ip(2, 5));
  EXPECT_EQ(out.vrf, "default");
  EXPECT_EQ(out.nextHops, (NextHops{{"Ethernet13", "00:00:00:00:0d:01"}}));
  EXPECT_FALSE(out.mayDrop);
  // The /16: one via resolves, the other waits for its neighbour.
  out = routed(model, "Ethernet12", ip(3, 1));
  EXPECT_EQ(out.nextHops, (NextHops{{"Ethernet11", "00:00:00:00:0b:01"}}));
  EXPECT_TRUE(out.mayDrop);
  // Red has only its default route.
  out = routed(model, "Ethernet14", ip(3, 1));
  EXPECT_EQ(out.vrf, "red");
  EXPECT_EQ(out.nextHops, (NextHops{{"Ethernet13", "00:00:00:00:0d:01"}}));
  // Not for the router, or no route: dropped.
  out = routed(model, "Ethernet12", ip(2, 5), "00:00:00:00:00:99");
  EXPECT_TRUE(out.nextHops.empty() && out.mayDrop);
  out = routed(model, "Ethernet12", 11u << 24 | 1);
  EXPECT_TRUE(out.nextHops.empty() && out.mayDrop);
  // A bridged port is not the reference's to route.
  EXPECT_FALSE(model.routing().route("Ethernet1", rmac, ip(2, 5)));
}

TEST(SoakRouting, NeighboursViasAndRoutesThatChange) {
  Model model;
  auto lines = twoVrfs();
  lines.insert(lines.end(),
               {"arp default 10.0.11.2 00:00:00:00:0b:02 Ethernet11", "arp red 10.0.13.1 00:00:00:00:0d:03 Ethernet13",
                "no ip route vrf default 10.1.2.0/24", "no fec 1 via 10.0.11.1 Ethernet11"});
  for (const auto& line : lines) model.apply(line);
  auto out = routed(model, "Ethernet12", ip(2, 5));
  EXPECT_EQ(out.nextHops, (NextHops{{"Ethernet11", "00:00:00:00:0b:02"}}));
  EXPECT_FALSE(out.mayDrop);
  EXPECT_EQ(routed(model, "Ethernet13", ip(0, 1)).nextHops, (NextHops{{"Ethernet13", "00:00:00:00:0d:03"}}));
  model.apply("no arp default 10.0.11.2");
  out = routed(model, "Ethernet12", ip(2, 5));
  EXPECT_TRUE(out.nextHops.empty() && out.mayDrop);
}

// Probes into every routed port, for and not for the router.
std::vector<Probe> routedProbes() {
  std::vector<Probe> probes;
  for (const auto& [port, vrf] : RouteModel::routedPorts()) {
    for (int seed = 0; seed < 40; ++seed) {
      Probe p{port, RefFrame{"00:00:00:00:00:05", seed % 10 ? rmac : "00:00:00:00:00:07", std::nullopt, true, seed}};
      probes.push_back(p);
    }
  }
  return probes;
}

TEST(SoakRouting, TheSoftChipRoutesAsTheReferenceAllows) {
  auto lines = twoVrfs();
  EXPECT_FALSE(replay(lines, routedProbes()));
  lines.insert(lines.end(),
               {"arp default 10.0.11.2 00:00:00:00:0b:02 Ethernet11", "fec 4 resilient slots 8",
                "fec 4 via 10.0.13.2 Ethernet13 weight 3", "arp red 10.0.13.2 00:00:00:00:0d:02 Ethernet13",
                "no fec 1 via 10.0.11.1 Ethernet11", "ip route vrf red 10.1.0.0/16 fec 1"});
  EXPECT_FALSE(replay(lines, routedProbes()));
}

}  // namespace
}  // namespace Soak
