// Which hosts depend on which L2 RIB objects.
#include "Orb/OrbL2RibObjCache.h"

#include <gtest/gtest.h>

namespace {

using Bridging::MacVlanPair;
using L2Rib::ObjTuple;

MacVlanPair host(std::uint64_t addr) { return {Nexo::EthAddr(addr), Bridging::VlanId(10)}; }
constexpr ObjTuple dest(std::uint64_t id) { return {L2Rib::objTypeDest, id}; }
constexpr ObjTuple lb(std::uint64_t id) { return {L2Rib::objTypeLoadBalance, id}; }

TEST(L2RibObjCache, HostsDependOnTheirObjectAndOnTheMembersOfTheirGroup) {
  Orb::L2RibObjCache cache;
  cache.hostIs(host(1), dest(7));
  cache.hostIs(host(2), lb(3));
  cache.hostIs(host(3), dest(8));
  cache.lbIs(lb(3), {dest(7), dest(9)});
  EXPECT_EQ(cache.dependantHosts(dest(7)), (std::vector<MacVlanPair>{host(1), host(2)}));
  EXPECT_EQ(cache.dependantHosts(dest(9)), std::vector<MacVlanPair>{host(2)});
  EXPECT_EQ(cache.dependantHosts(lb(3)), std::vector<MacVlanPair>{host(2)});

  // A host that points elsewhere, or leaves, no longer depends on its old object.
  cache.hostIs(host(1), dest(8));
  cache.hostIs(host(3), std::nullopt);
  EXPECT_EQ(cache.dependantHosts(dest(7)), std::vector<MacVlanPair>{host(2)});
  EXPECT_EQ(cache.dependantHosts(dest(8)), std::vector<MacVlanPair>{host(1)});
  EXPECT_FALSE(cache.hostToObjTupleCache().contains(host(3)));

  // A group's members change; a group that goes leaves nothing behind.
  cache.lbIs(lb(3), {dest(9)});
  EXPECT_TRUE(cache.dependantHosts(dest(7)).empty());
  cache.lbIs(lb(3), {});
  EXPECT_TRUE(cache.dependantHosts(dest(9)).empty());
  EXPECT_TRUE(cache.lbToObjTupleSetCache().empty());
  EXPECT_TRUE(cache.l2RibObjTupleToDependantObjTuples().empty());
}

TEST(L2RibObjCache, RemembersWhatEachHostWasProgrammedWith) {
  Orb::L2RibObjCache cache;
  EXPECT_FALSE(cache.programmedHwId(host(1)));
  cache.programmedIs(host(1), dest(7), 4000);
  EXPECT_EQ(cache.programmedHwId(host(1)), 4000u);
  EXPECT_EQ(cache.hostToObjTupleProgrammedCache().at(host(1)), dest(7));
  cache.programmedDel(host(1));
  EXPECT_FALSE(cache.programmedHwId(host(1)));
  EXPECT_TRUE(cache.hostToHwIdProgrammedCache().empty());
}

}  // namespace
