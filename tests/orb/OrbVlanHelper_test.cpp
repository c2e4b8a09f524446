// The VLAN helper's request/acknowledge protocol, driven through a chip
// layer that records requests and answers when told to.
#include "Orb/OrbVlanHelper.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using Bridging::VlanId;
using Nexo::IntfId;
using Orb::VlanProgrammingStatus;

// A chip layer that answers only when the test says so.
class ManualVlanHelper : public Orb::VlanHelper {
 public:
  std::vector<VlanId> created;
  std::vector<std::pair<VlanId, std::uint64_t>> requests;  // VLAN, generation
  void doCreateHwVlan(VlanId vlanId) override { created.push_back(vlanId); }
  void doUpdateVlan(VlanId vlanId) override {
    requests.emplace_back(vlanId, updateConfig()->vlanUpdate(vlanId)->genId());
  }
  void doUpdateVlanFid(VlanId, Bridging::Fid) override {}
  void verify() override {}
  void ack(VlanId vlanId, VlanProgrammingStatus status = VlanProgrammingStatus::programmingSucceeded) {
    updateVlanDone(vlanId, status);
  }
};

class VlanHelperTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<ManualVlanHelper> helper = Vex::make<ManualVlanHelper>();
  VlanId v10{10};
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e3{"Ethernet3"};
  void runYieldingFirstPass();
};

TEST_F(VlanHelperTest, AddIsProgrammedOnceAndConfirmed) {
  helper->doAddPortToVlan(e1, v10, true, true, true);
  helper->doAddPortToVlan(e2, v10, false, false, true);
  EXPECT_TRUE(helper->requests.empty());  // the updater runs on the next turn
  loop.runUntilIdle();
  ASSERT_EQ(helper->requests.size(), 1u);
  EXPECT_EQ(helper->requests[0], std::make_pair(v10, std::uint64_t{2}));
  EXPECT_EQ(helper->created, std::vector<VlanId>{v10});
  helper->ack(v10);
  auto pvm1 = helper->getPortVlanMembership(e1);
  auto pvm2 = helper->getPortVlanMembership(e2);
  EXPECT_TRUE(pvm1->taggedVlan(v10));
  EXPECT_TRUE(pvm1->ingressVlan(v10));
  EXPECT_TRUE(pvm2->untaggedVlan(v10));
  EXPECT_FALSE(pvm2->ingressVlan(v10));
  EXPECT_TRUE(pvm2->egressVlan(v10));
  EXPECT_EQ(helper->vlansProgrammed(), 1u);
  EXPECT_EQ(helper->vlanUpdateSize(), 0u);
  EXPECT_FALSE(helper->updateConfig()->vlanUpdate(v10));
  EXPECT_EQ(helper->lastCompletedUpdateStatus()->hwStatus(v10)->genId(), 2u);
  EXPECT_TRUE(helper->vlanUpdater()->state()->idle());
}

TEST_F(VlanHelperTest, ChangesWhileInFlightGiveExactlyOneFurtherRequest) {
  helper->doAddPortToVlan(e1, v10, false, true, true);
  loop.runUntilIdle();
  ASSERT_EQ(helper->requests.size(), 1u);
  helper->doAddPortToVlan(e2, v10, false, true, true);
  helper->doAddPortToVlan(e3, v10, false, true, true);
  loop.runUntilIdle();
  EXPECT_EQ(helper->requests.size(), 1u);  // one in flight per VLAN
  helper->ack(v10);
  ASSERT_EQ(helper->requests.size(), 2u);
  EXPECT_GT(helper->requests[1].second, helper->requests[0].second);
  // The first request's ports are not confirmed yet: it was superseded.
  loop.runUntilIdle();
  EXPECT_EQ(helper->requests.size(), 2u);
  helper->ack(v10);
  EXPECT_TRUE(helper->getPortVlanMembership(e3)->untaggedVlan(v10));
  EXPECT_TRUE(helper->getPortVlanMembership(e1)->untaggedVlan(v10));
  EXPECT_EQ(helper->requests.size(), 2u);
}

TEST_F(VlanHelperTest, FreshUpdateGenerationExceedsTheAcknowledgedOne) {
  helper->doAddPortToVlan(e1, v10, false, true, true);
  loop.runUntilIdle();
  helper->ack(v10, VlanProgrammingStatus::programmingFailed);
  // The failed update stays pending with the acknowledged generation.
  auto pending = helper->vlanUpdate(v10);
  ASSERT_TRUE(pending);
  EXPECT_EQ(helper->updateStatus()->hwStatus(v10)->genId(), pending->genId());
  EXPECT_FALSE(helper->getPortVlanMembership(e1)->untaggedVlan(v10));
  loop.runUntilIdle();
  EXPECT_EQ(helper->requests.size(), 1u);  // nothing to do until a retry
  helper->hwResourcesAvailable();
  loop.runUntilIdle();
  ASSERT_EQ(helper->requests.size(), 2u);
  EXPECT_EQ(helper->requests[1].second, pending->genId());
  EXPECT_GT(helper->requests[1].second, helper->requests[0].second);
  helper->ack(v10);
  EXPECT_TRUE(helper->getPortVlanMembership(e1)->untaggedVlan(v10));
}

TEST_F(VlanHelperTest, RemovalKeepsTheConfirmedIngressEntry) {
  helper->doAddPortToVlan(e1, v10, true, true, true);
  loop.runUntilIdle();
  helper->ack(v10);
  helper->doRemovePortFromVlan(e1, v10);
  loop.runUntilIdle();
  helper->ack(v10);
  auto pvm = helper->getPortVlanMembership(e1);
  EXPECT_FALSE(pvm->taggedVlan(v10));
  EXPECT_FALSE(pvm->untaggedVlan(v10));
  EXPECT_FALSE(pvm->egressVlan(v10));
  EXPECT_TRUE(pvm->ingressVlan(v10));
  // Only a later add without ingress clears it.
  helper->doAddPortToVlan(e1, v10, true, false, true);
  loop.runUntilIdle();
  helper->ack(v10);
  EXPECT_FALSE(pvm->ingressVlan(v10));
}

TEST_F(VlanHelperTest, RecirculationPortsAreNeverRemoved) {
  helper->doAddPortToVlan(e1, v10, false, true, true);
  helper->recircFeaturePortIs(e1, v10, true);
  loop.runUntilIdle();
  helper->ack(v10);
  helper->doRemovePortFromVlan(e1, v10);
  EXPECT_EQ(helper->vlanUpdateSize(), 0u);
  EXPECT_TRUE(helper->vlanCache(v10)->addHas(e1));
}

TEST_F(VlanHelperTest, PortStateGateHoldsAddsUntilForwarding) {
  helper->checkPortStateIs(true);
  helper->doAddPortToVlan(e1, v10, false, true, true);
  loop.runUntilIdle();
  EXPECT_TRUE(helper->requests.empty());
  EXPECT_EQ(helper->doHandlePortState(e2, v10, true), 0u);  // not in the cache
  std::uint64_t gen = helper->doHandlePortState(e1, v10, true);
  EXPECT_EQ(gen, 1u);
  loop.runUntilIdle();
  ASSERT_EQ(helper->requests.size(), 1u);
  EXPECT_EQ(helper->requests[0].second, gen);
  helper->ack(v10);
  EXPECT_TRUE(helper->getPortVlanMembership(e1)->untaggedVlan(v10));
  // Blocking takes it out of hardware; the cache keeps it.
  EXPECT_GT(helper->doHandlePortState(e1, v10, false), gen);
  loop.runUntilIdle();
  helper->ack(v10);
  EXPECT_FALSE(helper->getPortVlanMembership(e1)->untaggedVlan(v10));
  EXPECT_TRUE(helper->vlanCache(v10)->addHas(e1));
}

TEST_F(VlanHelperTest, SetPortsBlockedBlocksEveryCachedPort) {
  helper->doAddPortToVlan(e1, v10, false, true, true);
  helper->doAddPortToVlan(e2, v10, false, true, true);
  helper->setPortsBlocked(v10);
  EXPECT_FALSE(helper->portForwarding(v10)->forwarding(e1));
  EXPECT_FALSE(helper->portForwarding(v10)->forwarding(e2));
  EXPECT_TRUE(helper->vlanUpdate(v10)->removeHas(e1));
}

TEST_F(VlanHelperTest, VlanIsCreatedOnce) {
  helper->doMaybeCreateVlan(v10);
  helper->doMaybeCreateVlan(v10);
  EXPECT_EQ(helper->created.size(), 1u);
}

TEST_F(VlanHelperTest, UpdaterYieldsAfterItsProcessingTimeAndResumes) {
  helper->yieldVlanProcessingIs(true);
  helper->vlanProcessingTimeIs(0.01);
  for (int v = 1; v <= 10; ++v) helper->doAddPortToVlan(e1, VlanId(v), false, true, true);
  loop.simulatedTime()->stepIs(0.004);  // every reading of the time costs 4 ms
  loop.runUntilIdle();
  loop.simulatedTime()->stepIs(0);
  // Every VLAN got its request, over several passes that each yielded.
  EXPECT_EQ(helper->requests.size(), 10u);
  for (int v = 1; v <= 10; ++v) EXPECT_EQ(helper->requests[v - 1].first, VlanId(v));
}

// Ten VLANs to update, a pass that yields after 10 ms while every reading
// of the time costs 4 ms, and 5 s between passes: the first pass stops early.
void VlanHelperTest::runYieldingFirstPass() {
  helper->yieldVlanProcessingIs(true);
  helper->vlanProcessingTimeIs(0.01);
  helper->vlanUpdater()->deferredTimeIs(5);
  for (int v = 1; v <= 10; ++v) helper->doAddPortToVlan(e1, VlanId(v), false, true, true);
  loop.simulatedTime()->stepIs(0.004);
  loop.runUntilIdle();
  loop.simulatedTime()->stepIs(0);
}

TEST_F(VlanHelperTest, YieldingPassLeavesWorkForLater) {
  runYieldingFirstPass();
  EXPECT_LT(helper->requests.size(), 10u);
  EXPECT_FALSE(helper->vlanUpdater()->state()->idle());
  loop.advance(60);
  EXPECT_EQ(helper->requests.size(), 10u);
}

TEST_F(VlanHelperTest, ChangeBelowTheBookmarkIsNotLeftBehind) {
  runYieldingFirstPass();
  ASSERT_LT(helper->requests.size(), 10u);
  ASSERT_EQ(helper->requests[0].first, VlanId(1));
  helper->ack(VlanId(1));
  // VLAN 1 changes again while the yielded pass waits to resume above it.
  helper->doAddPortToVlan(e2, VlanId(1), false, true, true);
  loop.advance(60);
  auto requestsOf1 = std::count_if(helper->requests.begin(), helper->requests.end(),
                                   [](const auto& request) { return request.first == VlanId(1); });
  EXPECT_EQ(requestsOf1, 2);
  EXPECT_TRUE(helper->updateConfig()->vlanUpdate(VlanId(1))->addHas(e2));
}

TEST_F(VlanHelperTest, UpdaterStatePrintsIdleOrBusy) {
  EXPECT_EQ(helper->vlanUpdater()->state()->toString(), "idle");
  helper->doAddPortToVlan(e1, v10, false, true, true);
  EXPECT_EQ(helper->vlanUpdater()->state()->toString(), "busy");
}

TEST_F(VlanHelperTest, CopyAssertsSameVlan) {
  auto a = Orb::vlanUpdateFactory(VlanId(1));
  auto b = Orb::vlanUpdateFactory(VlanId(2));
  EXPECT_DEATH(a->copy(b.get()), "dst->vlanId\\(\\) == vlanId\\(\\)");
}

TEST_F(VlanHelperTest, AckWithNothingInFlightStops) {
  EXPECT_DEATH(helper->ack(v10), "/src/Orb/OrbVlanHelper:[0-9]+: vlanUpdate\\( vlanId \\)");
}

TEST(VlanHelperBaseDeathTest, DefaultsNameTheirOperationsAsTheyStand) {
  Vex::EventLoop loop;
  unsetenv("ORB_NOOP_AGENT");
  auto base = Vex::make<Orb::VlanHelperBase>("base");
  EXPECT_DEATH(base->getPortVlanMembership(IntfId("Ethernet1")),
               "Call to unimplemented function \n *VlanHelperBase::getPortVlanMemberShip");
  EXPECT_DEATH(base->vlanUpdateSize(), "VlanHelperBase::vlanUpdateLen");
  EXPECT_DEATH(base->doUpdateVlanFid(VlanId(1), Bridging::Fid(1)), "VlanHelper::doUpdateVlanFid");
  EXPECT_DEATH(base->doAddPortToVlan(IntfId("Ethernet1"), VlanId(1), false, false, false),
               "VlanHelper::doAddPortToVlan");
  EXPECT_DEATH(base->verify(), "VlanHelperBase::verify");
  auto helper = Vex::make<Orb::VlanHelper>();
  EXPECT_DEATH(helper->doCreateHwVlan(VlanId(1)), "Call to unimplemented function VlanHelper::doCreateHwVlan");
}

}  // namespace
