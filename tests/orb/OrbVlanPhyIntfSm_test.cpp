// Configured membership to the VLAN helper, and flood-set expansion.
#include "Orb/OrbVlanPhyIntfSm.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;
using Nexo::IntfId;
using VlanPhyIntfStatusLib::VlanPhyIntfEntry;

// A chip layer that programs at once and remembers hardware membership.
class InstantVlanHelper : public Orb::VlanHelper {
 public:
  std::map<std::pair<VlanId, Bridging::Fid>, int> fids;
  void doCreateHwVlan(VlanId) override {}
  void doUpdateVlan(VlanId vlanId) override {
    updateVlanDone(vlanId, Orb::VlanProgrammingStatus::programmingSucceeded);
  }
  void doUpdateVlanFid(VlanId vlanId, Bridging::Fid fid) override { ++fids[{vlanId, fid}]; }
  void verify() override {}
  bool member(const IntfId& intf, VlanId vlanId) {
    auto pvm = portVlanMembership(intf);
    return pvm && (pvm->taggedVlan(vlanId) || pvm->untaggedVlan(vlanId));
  }
};

class VlanPhyIntfSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<InstantVlanHelper> helper = Vex::make<InstantVlanHelper>();
  Vex::Ptr<Bridging::Config> config = Vex::make<Bridging::Config>("config");
  Vex::Ptr<Orb::VlanPhyIntfStatusDir> dir = Vex::make<Orb::VlanPhyIntfStatusDir>("dir");
  Vex::Ptr<Orb::DynamicExpVlanDir> dynamic = Vex::make<Orb::DynamicExpVlanDir>("dynamic");
  Vex::Ptr<Orb::VlanPhyIntfSm> sm;
  VlanId v10{10}, v20{20}, v30{30};
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, unknown{"Ethernet99"};

  void SetUp() override {
    for (const char* name : {"Ethernet1", "Ethernet2"}) ocsd->intfIs(IntfId(name), true);
    ocsd->cpuIntfIs(IntfId("Cpu"), true);
  }
  void start() { sm = Orb::vlanPhyIntfSmFactory(ocsd, helper, config, dir, dynamic); }
  void settle() { loop.runUntilIdle(); }
};

TEST_F(VlanPhyIntfSmTest, FirstPassProgramsWhatIsAlreadyConfigured) {
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{true, true, true});
  config->vidToFidMapIs(v10, Bridging::Fid(5));
  start();
  settle();
  EXPECT_TRUE(helper->portVlanMembership(e1)->taggedVlan(v10));
  EXPECT_EQ((helper->fids[{v10, Bridging::Fid(5)}]), 1);
}

TEST_F(VlanPhyIntfSmTest, MembersFollowTheStatusAndCpuCounts) {
  start();
  auto status = dir->vlanPhyIntfStatusIs(v10);
  status->intfIs(e1, VlanPhyIntfEntry{});
  status->intfIs(IntfId("Cpu"), VlanPhyIntfEntry{});
  settle();
  EXPECT_TRUE(helper->member(e1, v10));
  EXPECT_TRUE(helper->member(IntfId("Cpu"), v10));
  status->intfDel(e1);
  settle();
  EXPECT_FALSE(helper->member(e1, v10));
}

TEST_F(VlanPhyIntfSmTest, UnknownInterfacesAreSkipped) {
  start();
  dir->vlanPhyIntfStatusIs(v10)->intfIs(unknown, VlanPhyIntfEntry{});
  settle();
  EXPECT_FALSE(helper->vlanCache(v10));
  EXPECT_FALSE(helper->portVlanMembership(unknown));
}

TEST_F(VlanPhyIntfSmTest, SubInterfaceIsABrokenInvariant) {
  start();
  EXPECT_DEATH(dir->vlanPhyIntfStatusIs(v10)->intfIs(IntfId("Ethernet1.5"), VlanPhyIntfEntry{}),
               "VlanPhyIntfSm::VexStatus:: - not expecting subIntf: Ethernet1.5");
}

TEST_F(VlanPhyIntfSmTest, VlanGoingAwayTakesItsMembersOut) {
  start();
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{});
  settle();
  dir->vlanPhyIntfStatusDel(v10);
  settle();
  EXPECT_FALSE(helper->member(e1, v10));
}

TEST_F(VlanPhyIntfSmTest, StaticExpansionCopiesMembersIntoTheExpandedVlan) {
  start();
  auto status = dir->vlanPhyIntfStatusIs(v10);
  status->intfIs(e1, VlanPhyIntfEntry{});
  config->staticExpVlanIs({v10, v20});
  settle();
  EXPECT_TRUE(helper->member(e1, v20));
  EXPECT_TRUE(sm->expVlanDir().at(v10).expVlan.count(v20));
  EXPECT_TRUE(sm->reExpVlanDir().at(v20).reExpVlan.count(v10));
  status->intfIs(e2, VlanPhyIntfEntry{});
  settle();
  EXPECT_TRUE(helper->member(e2, v20));
  config->staticExpVlanDel({v10, v20});
  settle();
  EXPECT_FALSE(helper->member(e1, v20));
  EXPECT_FALSE(helper->member(e2, v20));
  EXPECT_TRUE(helper->member(e1, v10));
  EXPECT_TRUE(sm->expVlanDir().empty());
}

TEST_F(VlanPhyIntfSmTest, ExpandedVlansOwnEntryRules) {
  start();
  dir->vlanPhyIntfStatusIs(v20)->intfIs(e1, VlanPhyIntfEntry{true, true, true});
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{});
  config->staticExpVlanIs({v10, v20});
  settle();
  EXPECT_TRUE(helper->portVlanMembership(e1)->taggedVlan(v20));
  config->staticExpVlanDel({v10, v20});
  settle();
  EXPECT_TRUE(helper->portVlanMembership(e1)->taggedVlan(v20));
}

TEST_F(VlanPhyIntfSmTest, MappingStaysWhileTheOtherKindStillMapsIt) {
  start();
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{});
  config->staticExpVlanIs({v10, v30});
  dynamic->vlanToExpVlanListIs(v10)->expVlanIs(v30);
  settle();
  config->staticExpVlanDel({v10, v30});
  settle();
  EXPECT_TRUE(helper->member(e1, v30));
  dynamic->vlanToExpVlanList(v10)->expVlanDel(v30);
  settle();
  EXPECT_FALSE(helper->member(e1, v30));
}

TEST_F(VlanPhyIntfSmTest, BaseVlanGoingAwayRemovesItsExpansions) {
  start();
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{});
  dynamic->vlanToExpVlanListIs(v10)->expVlanIs(v20);
  settle();
  EXPECT_TRUE(helper->member(e1, v20));
  dir->vlanPhyIntfStatusDel(v10);
  settle();
  EXPECT_FALSE(helper->member(e1, v20));
  EXPECT_FALSE(sm->reExpVlanDir().count(v20) && sm->reExpVlanDir().at(v20).reExpVlan.count(v10));
}

TEST_F(VlanPhyIntfSmTest, VerifyReportsMembersHardwareDoesNotHold) {
  start();
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{true, true, true});
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e2, VlanPhyIntfEntry{});
  settle();
  ocsd->verifyData()->requestIdInc();
  EXPECT_TRUE(ocsd->verifyData()->output("VlanPhyIntfSm").empty());
  helper->portVlanMembership(e1)->taggedVlanDel(v10);
  helper->portVlanMembership(e2)->untaggedVlanDel(v10);
  ocsd->verifyData()->requestIdInc();
  EXPECT_EQ(ocsd->verifyData()->output("VlanPhyIntfSm"),
            (std::vector<std::string>{"Port Ethernet1, not in tagged VlanId:10 when expected",
                                      "Port Ethernet2, not in untagged VlanId:10 when expected"}));
}

TEST_F(VlanPhyIntfSmTest, ZombieMachineIgnoresChanges) {
  start();
  sm->vexDoZombieReactors(true);
  dir->vlanPhyIntfStatusIs(v10)->intfIs(e1, VlanPhyIntfEntry{});
  settle();
  EXPECT_FALSE(helper->vlanCache(v10));
}

}  // namespace
