// The compact per-VLAN and per-interface tables: VlanMap, VlanSet and
// IntfFlagMap, and the entity collections built on them.
#include "platform/types/IntfFlagMap.h"
#include "platform/types/VlanMap.h"
#include "platform/vex/Entity.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using Bridging::VlanId;
using Nexo::IntfId;

std::vector<unsigned> idsOf(const Bridging::VlanMap<int>& map) {
  std::vector<unsigned> ids;
  for (auto [id, value] : map) ids.push_back(id.value());
  return ids;
}

TEST(VlanMap, WalksInVlanOrderAndResumesFromAnyBookmark) {
  Bridging::VlanMap<int> map;
  EXPECT_TRUE(map.empty());
  EXPECT_TRUE(map.begin() == map.end());
  for (unsigned id : {4094u, 1u, 64u, 63u, 65u, 2000u}) map[VlanId(id)] = int(id) * 10;
  EXPECT_EQ(map.size(), 6u);
  EXPECT_EQ(idsOf(map), (std::vector<unsigned>{1, 63, 64, 65, 2000, 4094}));
  EXPECT_EQ((*map.lower_bound(VlanId(64))).first, VlanId(64));
  EXPECT_EQ(map.upper_bound(VlanId(64))->first, VlanId(65));
  EXPECT_EQ(map.lower_bound(VlanId(66))->first, VlanId(2000));
  EXPECT_TRUE(map.upper_bound(VlanId(4094)) == std::as_const(map).end());
  // Erasing the bookmark's VLAN leaves the walk from it intact.
  EXPECT_TRUE(map.erase(VlanId(64)));
  EXPECT_FALSE(map.erase(VlanId(64)));
  EXPECT_EQ(map.lower_bound(VlanId(64))->first, VlanId(65));
  EXPECT_EQ(map.size(), 5u);
}

TEST(VlanMap, FindsReadsAndMakesValues) {
  Bridging::VlanMap<int> map;
  EXPECT_EQ(map.find(VlanId(10)), nullptr);
  EXPECT_THROW(map.at(VlanId(10)), std::out_of_range);
  map[VlanId(10)] += 5;
  map[VlanId(10)] += 5;
  ASSERT_NE(map.find(VlanId(10)), nullptr);
  EXPECT_EQ(*map.find(VlanId(10)), 10);
  EXPECT_EQ(map.at(VlanId(10)), 10);
  // A value erased and made again starts from scratch.
  map.erase(VlanId(10));
  EXPECT_EQ(map[VlanId(10)], 0);
  for (auto [id, value] : map) value = 7;
  EXPECT_EQ(map.at(VlanId(10)), 7);
  map.clear();
  EXPECT_TRUE(map.empty());
  EXPECT_FALSE(map.contains(VlanId(10)));
}

TEST(VlanSet, HoldsEachVlanOnceInOrder) {
  Bridging::VlanSet set;
  EXPECT_TRUE(set.insert(VlanId(4094)));
  EXPECT_TRUE(set.insert(VlanId(1)));
  EXPECT_FALSE(set.insert(VlanId(1)));
  EXPECT_EQ(set.size(), 2u);
  std::vector<VlanId> ids(set.begin(), set.end());
  EXPECT_EQ(ids, (std::vector<VlanId>{VlanId(1), VlanId(4094)}));
  EXPECT_TRUE(set.erase(VlanId(1)));
  EXPECT_FALSE(set.erase(VlanId(1)));
  EXPECT_FALSE(set.contains(VlanId(1)));
  Bridging::VlanSet other;
  other.insert(VlanId(4094));
  EXPECT_EQ(set, other);
}

TEST(IntfFlagMap, KeepsPresenceAndValueApart) {
  Nexo::IntfFlagMap flags;
  IntfId e1("Ethernet1"), e2("Ethernet2"), po("Port-Channel7");
  EXPECT_TRUE(flags.set(e1, false));
  EXPECT_FALSE(flags.set(e1, false)) << "the same value again is no change";
  EXPECT_TRUE(flags.set(e1, true));
  EXPECT_TRUE(flags.set(po, false));
  EXPECT_TRUE(flags.contains(po));
  EXPECT_FALSE(flags.value(po));
  EXPECT_FALSE(flags.contains(e2));
  EXPECT_EQ(flags.size(), 2u);
  EXPECT_TRUE(flags.erase(e1));
  EXPECT_FALSE(flags.erase(e1));
  EXPECT_FALSE(flags.value(e1)) << "an erased interface reads false";
  std::vector<std::pair<IntfId, bool>> held(flags.begin(), flags.end());
  EXPECT_EQ(held, (std::vector<std::pair<IntfId, bool>>{{po, false}}));
}

TEST(IntfFlagMap, ReadingAnUnknownInterfaceNumbersNothing) {
  Nexo::IntfFlagMap flags;
  IntfId never("Ethernet99/4");
  EXPECT_FALSE(flags.contains(never));
  EXPECT_FALSE(flags.erase(never));
  EXPECT_EQ(Nexo::knownIntfIndex(never), Nexo::noIntfIndex);
  flags.set(never, true);
  EXPECT_NE(Nexo::knownIntfIndex(never), Nexo::noIntfIndex);
  EXPECT_EQ(Nexo::intfAtIndex(Nexo::knownIntfIndex(never)), never);
}

TEST(IntfFlagMap, ComparesByContentNotByHistory) {
  Nexo::IntfFlagMap a, b;
  IntfId e1("Ethernet1"), e3("Ethernet3");
  a.set(e1, true);
  a.set(e3, false);
  b.set(e3, false);
  b.set(e1, false);
  EXPECT_FALSE(a == b);
  b.set(e1, true);
  EXPECT_TRUE(a == b);
  a.erase(e3);
  a.erase(e1);
  EXPECT_TRUE(a == Nexo::IntfFlagMap());
}

// An entity with both kinds of collection notifies exactly on changes.
class Member : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Member> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Port, IntfId)
    VEX_KEY_HANDLER(Vlan, VlanId)
  };
  VEX_INTF_FLAGS(port, Port)
  VEX_VLAN_SET(vlan, Vlan)
};

class Recorder : public Member::Notifiee {
 public:
  using Notifiee::Notifiee;
  void handlePort(const IntfId& intf) override { heard.push_back(intf.stringValue()); }
  void handleVlan(const VlanId& id) override { heard.push_back(std::to_string(id.value())); }
  std::vector<std::string> heard;
};

TEST(CompactCollections, NotifyOnlyWhatChanged) {
  auto member = Vex::make<Member>();
  Recorder recorder(member);
  member->portIs(IntfId("Ethernet1"), true);
  member->portIs(IntfId("Ethernet1"), true);
  member->portIs(IntfId("Ethernet1"), false);
  member->portDel(IntfId("Ethernet2"));
  member->vlanIs(VlanId(10));
  member->vlanIs(VlanId(10));
  member->vlanDel(VlanId(20));
  member->vlanIs(VlanId(20));
  member->portIs(IntfId("Ethernet2"), true);
  member->vlanDelAll();
  member->portDelAll();
  EXPECT_EQ(recorder.heard, (std::vector<std::string>{"Ethernet1", "Ethernet1", "10", "20", "Ethernet2", "10", "20",
                                                      "Ethernet1", "Ethernet2"}));
  EXPECT_EQ(member->portSize(), 0u);
  EXPECT_EQ(member->vlanSize(), 0u);
}

}  // namespace
