// Resilient slot layouts: even spreads, and no slot moving that the change
// of members does not force; shared resilient FECs; and, through the
// forwarding model over a few thousand flows, that routed flows change
// next hop only as much as a member leaving or joining forces.
#include "chip/softchip/SoftResilient.h"
#include "chip/softchip/SoftForwarding.h"
#include "chip/softchip/SoftRoute.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

namespace {

using Nexo::EthAddr;
using Nexo::IntfId;
using SoftChip::resilientSlotLayout;

std::map<int, std::size_t> shares(const std::vector<int>& slots) {
  std::map<int, std::size_t> count;
  for (int member : slots) ++count[member];
  return count;
}

void expectEven(const std::vector<int>& slots, const std::vector<int>& members) {
  auto count = shares(slots);
  ASSERT_EQ(count.size(), members.size());
  std::size_t low = slots.size() / members.size();
  for (int member : members) {
    EXPECT_GE(count[member], low) << member;
    EXPECT_LE(count[member], low + 1) << member;
  }
}

TEST(ResilientSlotLayoutTest, FirstLayoutDealsRoundRobinAndNoMembersNoSlots) {
  EXPECT_EQ(resilientSlotLayout<int>({}, {1, 2, 3}, 7), (std::vector<int>{1, 2, 3, 1, 2, 3, 1}));
  EXPECT_TRUE(resilientSlotLayout<int>({1, 2}, {}, 2).empty());
  EXPECT_TRUE(resilientSlotLayout<int>({}, {1}, 0).empty());
  // Another slot count starts over.
  EXPECT_EQ(resilientSlotLayout<int>({1, 2, 1, 2}, {1, 2}, 3), (std::vector<int>{1, 2, 1}));
}

TEST(ResilientSlotLayoutTest, RemovalMovesOnlyTheLeaversSlotsAndAdditionOnlyToTheJoiner) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::size_t slotCount = 1 + random() % 64;
    std::vector<int> members;
    int next = 0;
    for (std::size_t n = 1 + random() % 8; n; --n) members.push_back(next++);
    auto slots = resilientSlotLayout<int>({}, members, slotCount);
    for (int change = 0; change < 10; ++change) {
      auto before = slots;
      bool remove = members.size() > 1 && random() % 2;
      int changed;
      if (remove) {
        auto at = members.begin() + random() % members.size();
        changed = *at;
        members.erase(at);
      } else {
        changed = next++;
        members.insert(members.begin() + random() % (members.size() + 1), changed);
      }
      slots = resilientSlotLayout(before, members, slotCount);
      ASSERT_EQ(slots.size(), slotCount);
      for (std::size_t i = 0; i < slotCount; ++i) {
        if (before[i] == slots[i]) continue;
        // A slot moves only from the member that left, or to the one that joined.
        EXPECT_EQ(remove ? before[i] : slots[i], changed) << "slot " << i << " round " << round;
      }
      if (slotCount >= members.size()) expectEven(slots, members);
    }
  }
}

// Every member holds its share of the slots, by weight, to within a slot.
void expectShares(const std::vector<int>& slots, const std::vector<int>& members,
                  const std::vector<std::uint32_t>& weights) {
  auto count = shares(slots);
  double total = 0;
  for (auto w : weights) total += w;
  for (std::size_t i = 0; i < members.size(); ++i) {
    double share = double(slots.size()) * weights[i] / total;
    EXPECT_LE(std::abs(double(count[members[i]]) - share), 1.0) << "member " << members[i];
  }
}

TEST(ResilientSlotLayoutTest, WeightsSetTheSharesAndAWeightChangeMovesOnlyTheDifference) {
  auto slots = resilientSlotLayout<int>({}, {1, 2}, {1, 3}, 8);
  EXPECT_EQ(shares(slots), (std::map<int, std::size_t>{{1, 2}, {2, 6}}));
  // Weight 3 to 1: two of member 2's slots go to member 1, nothing else moves.
  auto after = resilientSlotLayout(slots, {1, 2}, {1, 1}, 8);
  EXPECT_EQ(shares(after), (std::map<int, std::size_t>{{1, 4}, {2, 4}}));
  int moved = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    if (after[i] == slots[i]) continue;
    ++moved;
    EXPECT_EQ(slots[i], 2);
  }
  EXPECT_EQ(moved, 2);
  // A weight of 0 counts as 1; equal weights deal round robin.
  EXPECT_EQ(resilientSlotLayout<int>({}, {1, 2, 3}, {0, 1, 1}, 4), (std::vector<int>{1, 2, 3, 1}));
}

TEST(ResilientSlotLayoutTest, WeightedChangesMoveOnlyTheChangedMembersSlots) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    std::size_t slotCount = 1 + random() % 128;
    std::vector<int> members;
    std::vector<std::uint32_t> weights;
    int next = 0;
    for (std::size_t n = 1 + random() % 8; n; --n) {
      members.push_back(next++);
      weights.push_back(1 + random() % 4);
    }
    auto slots = resilientSlotLayout<int>({}, members, weights, slotCount);
    for (int change = 0; change < 10; ++change) {
      auto before = slots;
      bool remove = members.size() > 1 && random() % 2;
      bool reweigh = !remove && random() % 2;
      int changed;
      if (reweigh) {
        std::size_t at = random() % members.size();
        changed = members[at];
        weights[at] = 1 + random() % 4;
      } else if (remove) {
        std::size_t at = random() % members.size();
        changed = members[at];
        members.erase(members.begin() + std::ptrdiff_t(at));
        weights.erase(weights.begin() + std::ptrdiff_t(at));
      } else {
        changed = next++;
        std::size_t at = random() % (members.size() + 1);
        members.insert(members.begin() + std::ptrdiff_t(at), changed);
        weights.insert(weights.begin() + std::ptrdiff_t(at), 1 + random() % 4);
      }
      slots = resilientSlotLayout(before, members, weights, slotCount);
      ASSERT_EQ(slots.size(), slotCount);
      // Slots move from the member that left, to the one that joined, or
      // from or to the reweighed one; with unequal weights, keeping every
      // member within a slot of its share may take one more.
      std::size_t others = 0;
      for (std::size_t i = 0; i < slotCount; ++i) {
        if (before[i] == slots[i]) continue;
        bool forced =
            reweigh ? before[i] == changed || slots[i] == changed : (remove ? before[i] : slots[i]) == changed;
        others += !forced;
      }
      EXPECT_LE(others, 1u) << "round " << round << " change " << change;
      expectShares(slots, members, weights);
    }
  }
}

// A chip with routes to one FEC over an adjacency of N next hops, each on
// its own port, driven as the agent drives it.
class ResilientForwardingTest : public ::testing::Test {
 protected:
  static constexpr Orb::L2AdjKey adjKey{Orb::L2AdjType::nexthopAdj, 1};
  static constexpr std::uint64_t fecId = 10;

  void SetUp() override {
    routes->routerMacIs(routerMac);
    ASSERT_EQ(routes->doAddL3Intf(IntfId("Ethernet1"), 0), 0u);
    SoftChip::SoftRouteKey key;
    key.prefix = Nexo::Prefix("10.1.0.0/16");
    ASSERT_EQ(routes->doAddRoute(key, fecId), 0u);
  }

  Orb::NextHop member(int n) const {
    return Orb::NextHop(Orb::NextHopEntryType::nextHopArpResolved, EthAddr(0x0a0000000000ULL + n),
                        IntfId("Ethernet" + std::to_string(n + 2)), IntfId("Ethernet" + std::to_string(n + 2)));
  }
  void membersAre(const std::vector<int>& members, const std::map<int, std::uint32_t>& weights = {}) {
    Orb::NextHopCollection nextHops(Orb::L2AdjType::nexthopAdj);
    for (int n : members) nextHops.nextHopIs(member(n), weights.contains(n) ? weights.at(n) : 1);
    ASSERT_EQ(adjacencies->doAddAdjacency(adjKey, nextHops), 0u);
  }
  SoftChip::Frame flow(std::uint32_t n) const {
    SoftChip::Frame frame;
    frame.src = EthAddr("00:00:00:00:00:01");
    frame.dst = routerMac;
    frame.etherType = SoftChip::Frame::etherTypeIpv4;
    frame.ipSrc = Nexo::IpAddr(0xc0a80000u + (n >> 16));
    frame.ipDst = Nexo::IpAddr(0x0a010000u + (n & 0xffff));
    frame.l4 = SoftChip::L4Protocol::udp;
    frame.srcPort = static_cast<std::uint16_t>(n * 7919);
    frame.dstPort = 4789;
    return frame;
  }
  // The port each flow leaves by.
  std::vector<IntfId> paths() {
    std::vector<IntfId> out;
    out.reserve(flowCount);
    SoftChip::ForwardResult result;
    for (std::uint32_t n = 0; n < flowCount; ++n) {
      forwarding.forward(IntfId("Ethernet1"), flow(n), result);
      EXPECT_TRUE(result.routed) << result.drop;
      out.push_back(result.egress.empty() ? IntfId() : result.egress[0].port);
    }
    return out;
  }

  static constexpr std::uint32_t flowCount = 4000;
  EthAddr routerMac{"02:00:00:00:00:01"};
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<SoftChip::SoftAdjHelper> adjacencies = Vex::make<SoftChip::SoftAdjHelper>(chip);
  Vex::Ptr<SoftChip::SoftRouteHelper> routes = Vex::make<SoftChip::SoftRouteHelper>(chip, *adjacencies);
  SoftChip::SoftForwarding forwarding{*chip};
};

TEST_F(ResilientForwardingTest, FlowsChangePathOnlyAsMuchAsTheChangeForces) {
  std::mt19937 random(11);
  const std::uint32_t slotCount = 64;
  std::vector<int> members{0, 1, 2, 3, 4, 5, 6, 7};
  int next = 8;
  membersAre(members);
  ASSERT_EQ(routes->doAddFec(fecId, adjKey, slotCount), 0u);
  auto before = paths();
  for (int change = 0; change < 30; ++change) {
    bool remove = members.size() > 2 && (members.size() > 12 || random() % 2);
    int changed;
    if (remove) {
      auto at = members.begin() + random() % members.size();
      changed = *at;
      members.erase(at);
    } else {
      changed = next++;
      members.push_back(changed);
    }
    membersAre(members);
    auto after = paths();
    std::size_t moved = 0, wasOnChanged = 0;
    IntfId changedPort = member(changed).l2Intf;
    for (std::uint32_t n = 0; n < flowCount; ++n) {
      if (before[n] == changedPort) ++wasOnChanged;
      if (before[n] == after[n]) continue;
      ++moved;
      // Removal: only the leaver's flows move. Addition: only flows now on the joiner.
      ASSERT_EQ(remove ? before[n] : after[n], changedPort) << "flow " << n << " change " << change;
    }
    if (remove) {
      EXPECT_EQ(moved, wasOnChanged);
      // Its share of slots, at most one more than an even share.
      EXPECT_LE(moved, flowCount * ((slotCount + members.size()) / (members.size() + 1) + 1) / slotCount);
    } else {
      EXPECT_LE(moved, flowCount * (slotCount / members.size() + 1) / slotCount);
    }
    before = after;
  }
}

// With weights, flows move from a member that left, to one that joined, or
// from or to the member whose weight changed, and at most one slot's more.
TEST_F(ResilientForwardingTest, WeightedMembersMoveOnlyTheFlowsTheirChangeForces) {
  std::mt19937 random(23);
  const std::uint32_t slotCount = 128;
  std::vector<int> members{0, 1, 2, 3, 4};
  std::map<int, std::uint32_t> weights{{0, 1}, {1, 2}, {2, 3}, {3, 1}, {4, 4}};
  int next = 5;
  membersAre(members, weights);
  ASSERT_EQ(routes->doAddFec(fecId, adjKey, slotCount), 0u);
  auto before = paths();
  for (int change = 0; change < 30; ++change) {
    enum {
      removal,
      addition,
      reweighing
    } kind = members.size() > 2 && random() % 3 == 0 ? removal
             : random() % 2                          ? addition
                                                     : reweighing;
    int changed;
    if (kind == removal) {
      auto at = members.begin() + random() % members.size();
      changed = *at;
      members.erase(at);
    } else if (kind == addition) {
      changed = next++;
      members.push_back(changed);
    } else {
      changed = members[random() % members.size()];
    }
    weights[changed] = 1 + random() % 4;
    membersAre(members, weights);
    auto after = paths();
    IntfId changedPort = member(changed).l2Intf;
    std::size_t unforced = 0;
    for (std::uint32_t n = 0; n < flowCount; ++n) {
      if (before[n] == after[n]) continue;
      // A flow moves from the member that left, or to the one that joined,
      // or from or to the reweighed one...
      const bool fromChanged = before[n] == changedPort, toChanged = after[n] == changedPort;
      unforced += !(kind == removal ? fromChanged : kind == addition ? toChanged : fromChanged || toChanged);
    }
    // ...or, rarely, with the one slot that keeping the shares even moves.
    EXPECT_LE(unforced, 2 * flowCount / slotCount) << "change " << change;
    before = after;
  }
}

TEST_F(ResilientForwardingTest, AnOrdinaryFecRehashesAndARoutedFrameIsRewritten) {
  membersAre({0, 1, 2, 3});
  ASSERT_EQ(routes->doAddFec(fecId, adjKey, 0), 0u);
  auto four = paths();
  membersAre({0, 1, 2});
  auto three = paths();
  std::size_t moved = 0;
  for (std::uint32_t n = 0; n < flowCount; ++n) moved += four[n] != three[n] && four[n] != member(3).l2Intf;
  // Without slots, flows of surviving members move too: why resilience exists.
  EXPECT_GT(moved, 0u);

  SoftChip::Frame frame = flow(1);
  frame.ttl = 9;
  auto result = forwarding.forward(IntfId("Ethernet1"), frame);
  ASSERT_TRUE(result.routed);
  EXPECT_EQ(result.egress[0].srcMac, routerMac);
  EXPECT_EQ(result.egress[0].ttl, 8);
  EXPECT_NE(result.egress[0].dstMac, routerMac);
  EXPECT_EQ(result.egress[0].dstMac.value() >> 8, 0x0a00000000ULL);
  EXPECT_FALSE(result.slot);
  frame.ttl = 1;
  EXPECT_EQ(forwarding.forward(IntfId("Ethernet1"), frame).drop, "TTL 1 expired");
  frame = flow(1);
  frame.ipDst = Nexo::IpAddr("10.2.0.1");
  EXPECT_EQ(forwarding.forward(IntfId("Ethernet1"), frame).drop, "no route to 10.2.0.1 in vrf 0");
  frame.dst = EthAddr("02:00:00:00:00:99");
  EXPECT_EQ(forwarding.forward(IntfId("Ethernet1"), frame).drop,
            "routed interface: 02:00:00:00:00:99 is not the router MAC");
}

TEST_F(ResilientForwardingTest, RefusedWritesChangeNothing) {
  membersAre({0, 1});
  chip->faultIs(SoftChip::SoftFecTable::tableName, SoftChip::Fault::full, 1);
  EXPECT_EQ(routes->doAddFec(fecId, adjKey, 8), SoftChip::SoftRouteHelper::addFull);
  EXPECT_EQ(routes->fecs().size(), 0u);
  EXPECT_EQ(forwarding.forward(IntfId("Ethernet1"), flow(0)).drop, "fec 10 not in hardware");
  chip->capacityIs(SoftChip::SoftRouteTable::tableName, 1);
  SoftChip::SoftRouteKey another;
  another.prefix = Nexo::Prefix("10.2.0.0/16");
  EXPECT_EQ(routes->doAddRoute(another, fecId), SoftChip::SoftRouteHelper::addFull);
  EXPECT_EQ(routes->refused(), 2u);
  EXPECT_EQ(routes->doAddFec(fecId, adjKey, 8), 0u);
  EXPECT_TRUE(forwarding.forward(IntfId("Ethernet1"), flow(0)).slot);
}

TEST_F(ResilientForwardingTest, EqualMemberSetsShareTheLowestResilientFec) {
  membersAre({0, 1, 2});
  ASSERT_EQ(routes->doAddFec(30, adjKey, 16), 0u);
  ASSERT_EQ(routes->doAddFec(20, adjKey, 16), 0u);
  ASSERT_EQ(routes->doAddFec(15, adjKey, 8), 0u);  // another slot count
  EXPECT_EQ(routes->sharedResilientFec(30), 20u);
  EXPECT_EQ(routes->sharedResilientFec(20), 20u);
  EXPECT_EQ(routes->sharedResilientFec(15), 15u);
  // Over another adjacency with the same next hops: the same members.
  Orb::L2AdjKey other{Orb::L2AdjType::nexthopAdj, 2};
  Orb::NextHopCollection nextHops(Orb::L2AdjType::nexthopAdj);
  for (int n : {2, 1, 0}) nextHops.nextHopIs(member(n), 1);
  ASSERT_EQ(adjacencies->doAddAdjacency(other, nextHops), 0u);
  ASSERT_EQ(routes->doAddFec(12, other, 16), 0u);
  EXPECT_EQ(routes->sharedResilientFec(30), 12u);
  membersAre({0, 1});
  EXPECT_EQ(routes->sharedResilientFec(30), 20u);
  // Not resilient, or not in the chip: the FEC stands for itself.
  ASSERT_EQ(routes->doAddFec(11, adjKey, 0), 0u);
  EXPECT_EQ(routes->sharedResilientFec(11), 11u);
  EXPECT_EQ(routes->sharedResilientFec(99), 99u);
}

TEST_F(ResilientForwardingTest, LongestPrefixPerVrfAndFamily) {
  SoftChip::SoftRouteKey key;
  key.prefix = Nexo::Prefix("10.1.2.0/24");
  ASSERT_EQ(routes->doAddRoute(key, 20), 0u);
  key.vrf = 1;
  key.prefix = Nexo::Prefix("0.0.0.0/0");
  ASSERT_EQ(routes->doAddRoute(key, 30), 0u);
  SoftChip::SoftRouteKey key6;
  key6.v6 = true;
  key6.prefix6 = Nexo::Ip6Prefix("2001:db8::/32");
  ASSERT_EQ(routes->doAddRoute(key6, 40), 0u);
  auto fecOf = [&](std::uint32_t vrf, const char* addr) {
    auto* route = routes->routes().lookup(vrf, Nexo::IpGenAddr(addr));
    return route ? route->fec : 0;
  };
  EXPECT_EQ(fecOf(0, "10.1.2.3"), 20u);
  EXPECT_EQ(fecOf(0, "10.1.3.3"), fecId);
  EXPECT_EQ(fecOf(0, "10.9.0.1"), 0u);
  EXPECT_EQ(fecOf(1, "10.1.2.3"), 30u);
  EXPECT_EQ(fecOf(0, "2001:db8::1"), 40u);
  EXPECT_EQ(fecOf(1, "2001:db8::1"), 0u);
}

}  // namespace
