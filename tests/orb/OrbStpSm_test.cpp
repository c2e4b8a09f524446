// Spanning-tree port states through VLAN membership, and when a topology's
// state counts as set.
#include "Orb/OrbStpSm.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;
using Nexo::IntfId;
using Orb::PortState;

// VLAN hardware that answers when the test says so.
class ManualVlanHelper : public Orb::VlanHelper {
 public:
  void doCreateHwVlan(VlanId) override {}
  void doUpdateVlan(VlanId) override {}
  void doUpdateVlanFid(VlanId, Bridging::Fid) override {}
  void verify() override {}
  void ackAll() {
    std::vector<VlanId> inFlight;
    for (const auto& [vlanId, cfg] : updateConfig()->vlanUpdate()) {
      if (!updateStatus()->hwStatusHas(vlanId)) inFlight.push_back(vlanId);
    }
    for (VlanId vlanId : inFlight) updateVlanDone(vlanId, Orb::VlanProgrammingStatus::programmingSucceeded);
  }
  void ack(VlanId vlanId) { updateVlanDone(vlanId, Orb::VlanProgrammingStatus::programmingSucceeded); }
};

// The chip-specific part of a VLAN-based topology helper.
class TestTopoHelper : public Orb::VlanTopoHelper {
 public:
  using VlanTopoHelper::VlanTopoHelper;
  std::uint32_t max = 4;
  std::vector<std::string> calls;
  std::uint32_t maxTopo() override { return max; }
  void allocTopo(const std::string& name) override { calls.push_back("alloc " + name); }
  void freeTopo(const std::string& name) override { calls.push_back("free " + name); }
  void flushTopoPort(std::int32_t id, const IntfId& port) override {
    calls.push_back("flush " + std::to_string(id) + " " + port.stringValue());
  }
  void flushTopoPortVlan(const Orb::MappedVlan& vlans, const IntfId& port) override {
    calls.push_back("flushVlans " + std::to_string(vlans.vlan.size()) + " " + port.stringValue());
  }
  void verify() override {}
  void hwInit() override {}
  std::vector<std::pair<IntfId, PortState>> states;
  void setStpState(std::int32_t id, const std::string& name, const IntfId& intf, PortState state) override {
    states.emplace_back(intf, state);
    VlanTopoHelper::setStpState(id, name, intf, state);
  }
};

class StpSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<ManualVlanHelper> vlans = Vex::make<ManualVlanHelper>();
  Vex::Ptr<TestTopoHelper> helper = Vex::make<TestTopoHelper>(vlans);
  Vex::Ptr<Bridging::Topology::Config> config = Vex::make<Bridging::Topology::Config>("config");
  Vex::Ptr<Bridging::Topology::Status> status = Vex::make<Bridging::Topology::Status>("status");
  Vex::Ptr<Orb::StpSm> sm;
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e3{"Ethernet3"}, pc1{"Port-Channel1"};

  void start() { sm = Orb::stpSmFactory(ocsd, config, status, helper); }
  void topo(const std::string& name, std::initializer_list<int> vlanIds) {
    config->topoConfigIs(name);
    for (int v : vlanIds) config->vidToTopoMapIs(VlanId(v), name);
  }
  bool stateSet(const std::string& name) { return status->topoInstStatus(name).stateSet; }
  void settle() { loop.runUntilIdle(); }
};

TEST_F(StpSmTest, TopologyWithoutVlansIsSetAtOnce) {
  start();
  config->topoConfigIs("MST1")->intfStateIs(e1, PortState::portStateForwarding);
  EXPECT_TRUE(stateSet("MST1"));
  EXPECT_EQ(status->topoInstStatus("MST1").topoId, 0);
}

TEST_F(StpSmTest, StateIsSetOnlyWhenEveryVlanGenerationCompletes) {
  topo("MST1", {10, 11});
  start();
  config->topoConfig("MST1")->intfStateIs(e1, PortState::portStateDiscarding);
  EXPECT_FALSE(stateSet("MST1"));
  EXPECT_EQ(helper->topoPendingVlans("MST1").size(), 2u);
  settle();
  vlans->ack(VlanId(10));
  EXPECT_FALSE(stateSet("MST1"));
  vlans->ack(VlanId(11));
  EXPECT_TRUE(stateSet("MST1"));
  EXPECT_TRUE(vlans->portForwarding(VlanId(10)));
  EXPECT_FALSE(vlans->portForwarding(VlanId(10))->forwarding(e1));
}

TEST_F(StpSmTest, OnlyTheLaterGenerationsAreWaitedFor) {
  topo("MST1", {10});
  start();
  auto topoConfig = config->topoConfig("MST1");
  topoConfig->intfStateIs(e1, PortState::portStateDiscarding);
  settle();  // generation 1 in flight
  topoConfig->intfStateIs(e2, PortState::portStateDiscarding);
  std::uint64_t later = helper->topoPendingVlans("MST1").at(VlanId(10));
  EXPECT_GT(later, 1u);
  vlans->ack(VlanId(10));  // completes generation 1 and sends the later one
  EXPECT_FALSE(stateSet("MST1"));
  vlans->ack(VlanId(10));
  EXPECT_TRUE(stateSet("MST1"));
}

// The VLAN's update that was already in hardware when the state was asked
// for is answered first, through the VLAN helper; it is older than what the
// topology waits for and leaves it pending until the later one completes.
TEST_F(StpSmTest, CompletionOfAnEarlierVlanUpdateDoesNotCompleteTheTopology) {
  topo("MST1", {10});
  start();
  vlans->doAddPortToVlan(e3, VlanId(10), false, true, true);
  settle();  // the membership change is in flight
  config->topoConfig("MST1")->intfStateIs(e1, PortState::portStateDiscarding);
  std::uint64_t waited = helper->topoPendingVlans("MST1").at(VlanId(10));
  vlans->ack(VlanId(10));
  EXPECT_FALSE(stateSet("MST1"));
  EXPECT_EQ(helper->topoPendingVlans("MST1").at(VlanId(10)), waited);
  settle();
  vlans->ack(VlanId(10));
  EXPECT_TRUE(stateSet("MST1"));
  EXPECT_TRUE(helper->topoPendingVlans("MST1").empty());
}

TEST_F(StpSmTest, LagMembersFollowTheirLag) {
  topo("MST1", {});
  ocsd->portToLagIs(e1, pc1);
  ocsd->portToLagIs(e2, pc1);
  Orb::OrbLagPortList members;
  members.portIs(e1, {true, true});
  members.portIs(e2, {true, true});
  ocsd->lagToPortIs(pc1, members);
  start();
  auto topoConfig = config->topoConfig("MST1");
  topoConfig->intfStateIs(e1, PortState::portStateForwarding);  // ignored: a member
  EXPECT_TRUE(helper->states.empty());
  topoConfig->intfStateIs(pc1, PortState::portStateDiscarding);
  // The members take it, and so does the Port-Channel, which VLANs list.
  ASSERT_EQ(helper->states.size(), 3u);
  EXPECT_EQ(helper->states[0], std::make_pair(e1, PortState::portStateDiscarding));
  EXPECT_EQ(helper->states[1], std::make_pair(e2, PortState::portStateDiscarding));
  EXPECT_EQ(helper->states[2], std::make_pair(pc1, PortState::portStateDiscarding));
  // A port joining the LAG takes the LAG's state; leaving, its own.
  topoConfig->intfStateIs(e3, PortState::portStateForwarding);
  ocsd->portToLagIs(e3, pc1);
  EXPECT_EQ(helper->states.back(), std::make_pair(e3, PortState::portStateDiscarding));
  ocsd->portToLagDel(e3);
  EXPECT_EQ(helper->states.back(), std::make_pair(e3, PortState::portStateForwarding));
}

// A port that leaves a blocked LAG and has no state of its own in the
// topology is no longer held by it, nor is it when the VLAN joins later.
TEST_F(StpSmTest, PortLeavingABlockedLagForwardsAgain) {
  topo("MST1", {10});
  Orb::OrbLagPortList members;
  members.portIs(e3, {true, true});
  ocsd->lagToPortIs(pc1, members);
  ocsd->portToLagIs(e3, pc1);
  start();
  config->topoConfig("MST1")->intfStateIs(pc1, PortState::portStateDiscarding);
  EXPECT_FALSE(vlans->portForwarding(VlanId(10))->forwarding(e3));
  ocsd->lagToPortDel(pc1);
  ocsd->portToLagDel(e3);
  EXPECT_TRUE(vlans->portForwarding(VlanId(10))->forwarding(e3));
  config->vidToTopoMapIs(VlanId(20), "MST1");
  EXPECT_FALSE(vlans->portForwarding(VlanId(20)) && vlans->portForwarding(VlanId(20))->forwardingHas(e3));
}

TEST_F(StpSmTest, VlanJoiningATopologyTakesItsPortStates) {
  topo("MST1", {10});
  start();
  config->topoConfig("MST1")->intfStateIs(e1, PortState::portStateDiscarding);
  settle();
  vlans->ackAll();
  ASSERT_TRUE(stateSet("MST1"));
  config->vidToTopoMapIs(VlanId(20), "MST1");
  EXPECT_FALSE(stateSet("MST1"));
  EXPECT_TRUE(vlans->portForwarding(VlanId(20)));
  settle();
  vlans->ackAll();
  EXPECT_TRUE(stateSet("MST1"));
  // Moving the VLAN to another topology takes it out of the first.
  topo("MST2", {20});
  EXPECT_FALSE(helper->mappedVlan("MST1").vlan.count(VlanId(20)));
  EXPECT_TRUE(helper->mappedVlan("MST2").vlan.count(VlanId(20)));
}

TEST_F(StpSmTest, TopologiesAreAllocatedWithinMaxTopoAndFreed) {
  helper->max = 2;
  start();
  topo("A", {});
  topo("B", {});
  topo("C", {});
  EXPECT_EQ(status->topoInstStatus("A").topoId, 0);
  EXPECT_EQ(status->topoInstStatus("B").topoId, 1);
  EXPECT_FALSE(status->topoInstStatusHas("C"));
  config->topoConfigDel("A");
  EXPECT_FALSE(status->topoInstStatusHas("A"));
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"alloc A", "alloc B", "free A"}));
  config->topoConfigDel("C");
  config->topoConfigIs("C");
  EXPECT_EQ(status->topoInstStatus("C").topoId, 0);
}

TEST_F(StpSmTest, FlushRequestsReachTheHelper) {
  topo("MST1", {10, 11});
  start();
  config->topoConfig("MST1")->fdbFlushIs(e1, 1);
  EXPECT_EQ(helper->calls.back(), "flushVlans 2 Ethernet1");
  EXPECT_EQ(helper->calls[helper->calls.size() - 2], "flush 0 Ethernet1");
}

TEST_F(StpSmTest, TapAggregationModeForwardsTapPortsInOneTopology) {
  topo("MST1", {10});
  start();
  sm->tapAggIntfIs(e1, true);
  EXPECT_TRUE(helper->states.empty());
  ocsd->operationalModeIs(Orb::HwOperationalMode::hwModeTapAgg);
  EXPECT_TRUE(sm->topoSm().empty());
  EXPECT_TRUE(status->topoInstStatusHas(Orb::StpSm::tapAggTopoName));
  EXPECT_TRUE(helper->mappedVlan(Orb::StpSm::tapAggTopoName).vlan.count(VlanId(10)));
  EXPECT_EQ(helper->states.back(), std::make_pair(e1, PortState::portStateForwarding));
  ocsd->operationalModeIs(Orb::HwOperationalMode::hwModeNormal);
  EXPECT_FALSE(status->topoInstStatusHas(Orb::StpSm::tapAggTopoName));
  EXPECT_TRUE(sm->topoSm().count("MST1"));
  EXPECT_TRUE(helper->mappedVlan("MST1").vlan.count(VlanId(10)));
}

// A Port-Channel the shared context has no member list for is a port like
// any other: it takes its own state. Once it has members, they take it too.
TEST_F(StpSmTest, APortChannelWithoutAMemberListTakesItsOwnState) {
  topo("MST1", {});
  start();
  auto topoConfig = config->topoConfig("MST1");
  topoConfig->intfStateIs(pc1, PortState::portStateDiscarding);
  ASSERT_EQ(helper->states.size(), 1u);
  EXPECT_EQ(helper->states[0], std::make_pair(pc1, PortState::portStateDiscarding));
  Orb::OrbLagPortList members;
  members.portIs(e1, {true, true});
  ocsd->lagToPortIs(pc1, members);
  ocsd->portToLagIs(e1, pc1);
  topoConfig->intfStateIs(pc1, PortState::portStateForwarding);
  ASSERT_GE(helper->states.size(), 3u);
  EXPECT_EQ(helper->states[helper->states.size() - 2], std::make_pair(e1, PortState::portStateForwarding));
  EXPECT_EQ(helper->states.back(), std::make_pair(pc1, PortState::portStateForwarding));
}

// Verification compares the states with what hardware holds; differences
// found while states are still being applied are looked at again once the
// state changes stop, each change pushing the retry out.
TEST_F(StpSmTest, VerifyDifferencesAreRetriedOnceStateChangesStop) {
  topo("MST1", {10});
  start();
  vlans->doAddPortToVlan(e1, VlanId(10), false, true, true);
  vlans->doAddPortToVlan(e2, VlanId(10), false, true, true);
  settle();
  vlans->ackAll();
  auto topoConfig = config->topoConfig("MST1");
  topoConfig->intfStateIs(e1, PortState::portStateDiscarding);
  ocsd->verifyData()->requestIdInc();
  EXPECT_EQ(
      ocsd->verifyData()->output("StpSm"),
      (std::vector<std::string>{"Topo MST1, port Ethernet1 is portStateDiscarding but in hardware of vlan 10\n"}));
  EXPECT_TRUE(sm->verifyRetryPending());
  loop.advance(0.6);
  topoConfig->intfStateIs(e2, PortState::portStateDiscarding);  // renews the retry
  settle();
  vlans->ackAll();
  settle();
  vlans->ackAll();
  ASSERT_TRUE(stateSet("MST1"));
  loop.advance(0.6);
  EXPECT_EQ(ocsd->verifyData()->output("StpSm").size(), 1u);
  loop.advance(0.5);
  EXPECT_TRUE(ocsd->verifyData()->output("StpSm").empty());
  EXPECT_FALSE(sm->verifyRetryPending());
}

// In tap aggregation mode every VLAN the switch has goes into the tap
// topology, mapped to a topology or not, so tap ports forward in all.
TEST_F(StpSmTest, TapAggregationTakesEveryVlanNotOnlyMappedOnes) {
  topo("MST1", {10});
  vlans->doAddPortToVlan(e2, VlanId(20), false, true, true);
  start();
  sm->tapAggIntfIs(e1, true);
  ocsd->operationalModeIs(Orb::HwOperationalMode::hwModeTapAgg);
  const auto& tapVlans = helper->mappedVlan(Orb::StpSm::tapAggTopoName).vlan;
  EXPECT_TRUE(tapVlans.count(VlanId(10)));
  EXPECT_TRUE(tapVlans.count(VlanId(20)));
  EXPECT_TRUE(vlans->portForwarding(VlanId(20))->forwarding(e1));
  // A VLAN the switch gets while in tap mode joins too.
  vlans->doAddPortToVlan(e2, VlanId(30), false, true, true);
  settle();
  vlans->ackAll();
  EXPECT_TRUE(helper->mappedVlan(Orb::StpSm::tapAggTopoName).vlan.count(VlanId(30)));
  EXPECT_TRUE(vlans->portForwarding(VlanId(30))->forwarding(e1));
}

TEST(TopoHelperDeathTest, DefaultsNameTheirOperation) {
  unsetenv("ORB_NOOP_AGENT");
  Vex::EventLoop loop;
  auto helper = Vex::make<Orb::TopoHelper>();
  EXPECT_DEATH(helper->setStpState(0, "t", IntfId("Ethernet1"), PortState::portStateForwarding),
               "Call to unimplemented function TopoHelper::setStpState");
  EXPECT_DEATH(helper->maxTopo(), "Call to unimplemented function TopoHelper::maxTopo");
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto stp = Orb::stpSmFactory(ocsd, Vex::make<Bridging::Topology::Config>("c"),
                               Vex::make<Bridging::Topology::Status>("s"), Vex::make<TestTopoHelper>(nullptr));
  EXPECT_DEATH(stp->handleBpduTrapping(), "Call to unimplemented function StpSm::handleBpduTrapping");
  auto vlanBased = Vex::make<Orb::VlanTopoHelper>(nullptr);
  EXPECT_DEATH(vlanBased->setStpState(0, "t", IntfId("Ethernet1"), PortState::portStateForwarding), "stpSm\\(\\)");
}

}  // namespace
