// Sub-interfaces: VLAN ownership, tag and VLAN conflicts with their retry
// queue, hardware refusals, pseudowire and MACsec proxy cases, LAG parents
// and verification.
#include "Orb/OrbSubIntfSm.h"

#include "Orb/OrbTrace.h"
#include "platform/blip/Blip.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using Bridging::VlanIdOrNone;
using Interface::ForwardingModel;
using Interface::SubIntfEncap;
using Nexo::IntfId;

class RecordingSubIntfHelper : public OrbHelper::OrbHelperSubIntf {
 public:
  std::vector<std::string> calls;
  std::vector<std::uint32_t> answers;  // answers to the next adds, then success
  std::pair<bool, bool> statuses{false, false};

  std::uint32_t doAddDot1qEncapToVsiMap(const IntfId& sub, const IntfId& parent, VlanIdOrNone vlan,
                                        const SubIntfEncap& encap, bool isL2) override {
    calls.push_back(fmt::format("add {} {} {}/{} vlan {}{}", sub.stringValue(), parent.stringValue(), encap.outerTag,
                                encap.innerTag, vlan.value(), isL2 ? " l2" : ""));
    if (answers.empty()) return 0;
    std::uint32_t answer = answers.front();
    answers.erase(answers.begin());
    return answer;
  }
  void doDeleteDot1qEncapToVsiMap(const IntfId& sub, const IntfId&, VlanIdOrNone vlan, const SubIntfEncap&,
                                  bool) override {
    calls.push_back(fmt::format("delete {} vlan {}", sub.stringValue(), vlan.value()));
  }
  void doAddPortToLag(const IntfId& port, const IntfId& lag) override {
    calls.push_back("lag add " + port.stringValue() + " " + lag.stringValue());
  }
  void doDeletePortFromLag(const IntfId& port) override { calls.push_back("lag del " + port.stringValue()); }
  void doUpdateStatuses(bool programmed, bool conflicted) override { statuses = {programmed, conflicted}; }
};

TEST(VlanIdToIntfIdMap, BridgedShareRoutedOwnAlone) {
  Orb::VlanIdToIntfIdMap map;
  IntfId a("Ethernet1.1"), b("Ethernet2.1"), r("Ethernet3.1");
  VlanIdOrNone v100(100);
  map.updateConfig(a, v100, true, true);
  EXPECT_FALSE(map.conflictingIntfId(b, v100, true));
  map.updateConfig(b, v100, true, true);
  EXPECT_EQ(map.bridgedVlanIdMap().at(v100).size(), 2u);
  // A routed one asking for a VLAN layer-2 ones use collides with them.
  EXPECT_EQ(map.conflictingIntfId(r, v100, false), a);
  // Removing the last layer-2 user takes the VLAN out.
  map.updateConfig(a, v100, true, false);
  map.updateConfig(b, v100, true, false);
  EXPECT_TRUE(map.bridgedVlanIdMap().empty());
  map.updateConfig(r, v100, false, true);
  EXPECT_FALSE(map.conflictingIntfId(r, v100, false));
  EXPECT_EQ(map.conflictingIntfId(IntfId("Ethernet4.1"), v100, false), r);
  // A layer-2 claim collides with a routed owner, even its own routed claim.
  EXPECT_EQ(map.conflictingIntfId(r, v100, true), r);
  EXPECT_EQ(map.conflictingIntfId(a, v100, true), r);
  map.updateConfig(r, v100, false, false);
  EXPECT_TRUE(map.routedVlanIdMap().empty());
  EXPECT_THROW(VlanIdOrNone(4095), Vex::RangeError);
}

TEST(VlanIdToIntfIdMapDeathTest, ConflictingAddStops) {
  Orb::VlanIdToIntfIdMap map;
  map.updateConfig(IntfId("Ethernet1.1"), VlanIdOrNone(10), false, true);
  EXPECT_DEATH(map.updateConfig(IntfId("Ethernet2.1"), VlanIdOrNone(10), true, true),
               "!conflictingIntfId\\( intfId, vlanId, isL2SubIntf \\) && \"vlanId is conflicting\"");
}

class SubIntfSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingSubIntfHelper> helper = Vex::make<RecordingSubIntfHelper>();
  Vex::Ptr<Interface::SubIntfConfigDir> configs = Vex::make<Interface::SubIntfConfigDir>("configs");
  Vex::Ptr<Interface::SubIntfStatusDir> statuses = Vex::make<Interface::SubIntfStatusDir>("statuses");
  Vex::Ptr<Pseudowire::LocalConnectorInfoTable> connectors = Vex::make<Pseudowire::LocalConnectorInfoTable>("lc");
  Vex::Ptr<MacsecProxy::Status> macsec = Vex::make<MacsecProxy::Status>("macsec");
  Vex::Ptr<Hardware::SubIntf::Config> hwConfig = Vex::make<Hardware::SubIntf::Config>("hwc");
  Vex::Ptr<Hardware::SubIntf::Status> hwStatus = Vex::make<Hardware::SubIntf::Status>("hws");
  Vex::Ptr<Orb::OrbSubIntfSm> sm;

  void start() {
    sm = Orb::orbSubIntfSmFactory({ocsd, helper, configs, statuses, connectors, macsec, hwConfig, hwStatus});
  }
  // A sub-interface as the interface agent would publish it.
  void subIntf(const IntfId& intf, std::uint16_t outer, std::uint16_t vlan, bool l2 = false, std::uint16_t inner = 0) {
    configs->intfConfigIs(intf)->dot1qEncapIs({outer, inner});
    auto status = statuses->intfStatusIs(intf);
    status->forwardingModelIs(l2 ? ForwardingModel::intfForwardingModelBridged
                                 : ForwardingModel::intfForwardingModelRouted);
    status->forwardingVlanIdIs(VlanIdOrNone(vlan));
    status->programInHwIs(true);
    status->initializedIs(true);
  }
  void remove(const IntfId& intf) {
    statuses->intfStatusDel(intf);
    configs->intfConfigDel(intf);
  }
  bool inHw(const IntfId& intf) {
    return hwStatus->intfIdToDot1qEncapAndVlanIdHas(intf) &&
           hwStatus->intfIdToDot1qEncapAndVlanId(intf).tableAddStatus == 0;
  }
};

TEST_F(SubIntfSmTest, ReadyRoutedSubIntfIsProgrammedAndWrittenBack) {
  IntfId sub("Ethernet1.10");
  configs->intfConfigIs(sub)->dot1qEncapIs({10, 0});
  start();
  EXPECT_FALSE(sm->isConfigAndStatusReady(sub));
  auto status = statuses->intfStatusIs(sub);
  status->forwardingVlanIdIs(VlanIdOrNone(10));
  status->initializedIs(true);
  EXPECT_TRUE(sm->isConfigAndStatusReady(sub));
  EXPECT_TRUE(helper->calls.empty()) << "programInHw not yet set";
  status->programInHwIs(true);
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"add Ethernet1.10 Ethernet1 10/0 vlan 10"}));
  EXPECT_TRUE(inHw(sub));
  EXPECT_EQ(sm->mapIntfIdToVlanId(sub), VlanIdOrNone(10));
  EXPECT_EQ(sm->mapRoutedVlanIdToIntfId(10), sub);
  EXPECT_FALSE(sm->mapRoutedVlanIdToIntfId(11));
  EXPECT_THROW(sm->mapRoutedVlanIdToIntfId(4095), Vex::RangeError);
  EXPECT_EQ(helper->statuses, (std::pair<bool, bool>{true, false}));
  // A change of VLAN takes the old mapping out first.
  status->forwardingVlanIdIs(VlanIdOrNone(20));
  EXPECT_EQ(helper->calls.at(1), "delete Ethernet1.10 vlan 10");
  EXPECT_EQ(helper->calls.at(2), "add Ethernet1.10 Ethernet1 10/0 vlan 20");
  remove(sub);
  EXPECT_EQ(helper->calls.back(), "delete Ethernet1.10 vlan 20");
  EXPECT_TRUE(hwConfig->intfIdToDot1qEncapAndVlanId().empty());
  EXPECT_TRUE(hwStatus->intfIdToDot1qEncapAndVlanId().empty());
  EXPECT_TRUE(sm->vlanIdToIntfIdMap().routedVlanIdMap().empty());
}

TEST_F(SubIntfSmTest, BridgedShareAVlanAndRoutedOneWaits) {
  start();
  subIntf("Ethernet1.100", 100, 100, true);
  subIntf("Ethernet2.100", 100, 100, true);
  EXPECT_TRUE(inHw("Ethernet1.100"));
  EXPECT_TRUE(inHw("Ethernet2.100"));
  subIntf("Ethernet3.7", 7, 100);
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(IntfId("Ethernet3.7")));
  EXPECT_TRUE(sm->conflictedIntf().count(IntfId("Ethernet3.7")));
  EXPECT_EQ(helper->statuses, (std::pair<bool, bool>{true, true}));
  // Still conflicting at the retry: it waits on.
  loop.advance(sm->retryInterval());
  EXPECT_TRUE(sm->conflictedIntf().count(IntfId("Ethernet3.7")));
  remove("Ethernet1.100");
  remove("Ethernet2.100");
  EXPECT_TRUE(sm->vlanIdToIntfIdMap().bridgedVlanIdMap().empty());
  EXPECT_FALSE(inHw("Ethernet3.7")) << "waits for the timer";
  loop.advance(sm->retryInterval());
  EXPECT_TRUE(inHw("Ethernet3.7"));
  EXPECT_TRUE(sm->conflictedIntf().empty());
  EXPECT_FALSE(sm->retryTimerArmed());
}

TEST_F(SubIntfSmTest, LayerTwoWaitsForRoutedOwnerWithTraces) {
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Orb::orbTraceHandle("OrbSubIntfSm").levelIs(9);
  start();
  subIntf("Ethernet1.5", 5, 200);
  subIntf("Ethernet2.6", 6, 200, true);
  subIntf("Ethernet3.6", 6, 200, true);
  EXPECT_EQ(sm->conflictedIntf().size(), 2u);
  remove("Ethernet1.5");
  loop.advance(sm->retryInterval());
  EXPECT_TRUE(inHw("Ethernet2.6"));
  EXPECT_TRUE(inHw("Ethernet3.6"));
  EXPECT_TRUE(traces->contains("Adding Ethernet2.6 to conflict retry Q"));
  EXPECT_TRUE(traces->contains("Retry conflicted Q timer scheduled at "));
  EXPECT_TRUE(traces->contains("Retry conflict Q timer already set"));
  EXPECT_TRUE(traces->contains("Retrying programming Ethernet2.6"));
  EXPECT_TRUE(
      traces->contains(", checkTagConflict:true, checkVlanIdConflict:true, tagConflict:false, "
                       "vlanIdConflict:true, conflicting:Ethernet1.5, returnValue:true"));
  EXPECT_TRUE(traces->contains(" added (dot1qEncap:outerTag 6 innerTag 0), vlanId:200) map on intf:Ethernet2.6"));
  EXPECT_TRUE(
      traces->contains(", update SubIntf VlanXlate         tbl add status for subIntfId:Ethernet2.6 "
                       "innerTag:0, dot1qEncap outerTag:6, vlanId:200, isL2SubIntf:true, status:0"));
  EXPECT_TRUE(traces->contains("Ethernet2.6 Add map to hwStatus->intfIdToDot1qEncapAndVlanId()"));
  EXPECT_TRUE(traces->contains("Ethernet1.5 Delete map in hwStatus->intfIdToDot1qEncapAndVlanId()"));
  Orb::orbTraceHandle("OrbSubIntfSm").levelIs(0);
  Blip::sinkIs(nullptr);
}

TEST_F(SubIntfSmTest, SameTagOnOneParentConflictsDoubleTagsApart) {
  start();
  subIntf("Ethernet1.1", 10, 301, true, 1);
  subIntf("Ethernet1.2", 10, 302, true, 2);
  subIntf("Ethernet1.3", 10, 303, true, 1);
  EXPECT_TRUE(inHw("Ethernet1.1"));
  EXPECT_TRUE(inHw("Ethernet1.2"));
  EXPECT_TRUE(sm->conflictedIntf().count(IntfId("Ethernet1.3")));
  // The same tag on another parent is no conflict.
  subIntf("Ethernet2.3", 10, 304, true, 1);
  EXPECT_TRUE(inHw("Ethernet2.3"));
  remove("Ethernet1.1");
  loop.advance(sm->retryInterval());
  EXPECT_TRUE(inHw("Ethernet1.3"));
  EXPECT_EQ(sm->parentIntfIdAndDot1qEncapMap().at({IntfId("Ethernet1"), SubIntfEncap{10, 1}}), IntfId("Ethernet1.3"));
}

TEST_F(SubIntfSmTest, RefusedMappingIsRecordedAndRetried) {
  helper->answers = {2, 7};
  start();
  subIntf("Ethernet1.10", 10, 10);
  EXPECT_EQ(hwStatus->intfIdToDot1qEncapAndVlanId(IntfId("Ethernet1.10")).tableAddStatus, 2u);
  EXPECT_TRUE(sm->hwRetryIntf().count(IntfId("Ethernet1.10")));
  loop.advance(sm->retryInterval());
  // A failure other than busy or full waits for a change.
  EXPECT_EQ(hwStatus->intfIdToDot1qEncapAndVlanId(IntfId("Ethernet1.10")).tableAddStatus, 7u);
  EXPECT_TRUE(sm->hwRetryIntf().empty());
  statuses->intfStatus(IntfId("Ethernet1.10"))->forwardingVlanIdIs(VlanIdOrNone(11));
  EXPECT_TRUE(inHw("Ethernet1.10"));
  // A refused mapping is never deleted from hardware.
  for (const auto& call : helper->calls) EXPECT_EQ(call.rfind("delete", 0), std::string::npos) << call;
}

TEST_F(SubIntfSmTest, PortConnectorSkipsConflictsAndUsesThePseudowireVlan) {
  start();
  subIntf("Ethernet1.5", 5, 500);
  subIntf("Ethernet2.5", 5, 0, true);
  connectors->connectorIs("Ethernet2.5", VlanIdOrNone(500));
  EXPECT_TRUE(inHw("Ethernet2.5"));
  EXPECT_EQ(sm->pwIntfIdToVlanId().at(IntfId("Ethernet2.5")), VlanIdOrNone(500));
  EXPECT_TRUE(sm->pwIntfIdProgrammedInHw().at(IntfId("Ethernet2.5")));
  EXPECT_FALSE(sm->checkConflictAndRetry("Ethernet2.5", true));
  EXPECT_EQ(sm->vlanIdToIntfIdMap().routedVlanIdMap().at(VlanIdOrNone(500)), IntfId("Ethernet1.5"));
  connectors->connectorDel("Ethernet2.5");
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(IntfId("Ethernet2.5")));
  EXPECT_TRUE(sm->pwIntfIdToVlanId().empty());
}

TEST_F(SubIntfSmTest, MacsecProxyWaitsForTheProxy) {
  start();
  configs->intfConfigIs("Ethernet4.9")->macsecProxyIs(true);
  subIntf("Ethernet4.9", 9, 900);
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(IntfId("Ethernet4.9")));
  macsec->proxySubIntfIs("Ethernet4.9", IntfId("Ethernet5"));
  EXPECT_TRUE(inHw("Ethernet4.9"));
  EXPECT_EQ(sm->macsecProxySubIntf().at(IntfId("Ethernet4.9")), IntfId("Ethernet5"));
  macsec->proxySubIntfDel("Ethernet4.9");
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(IntfId("Ethernet4.9")));
}

TEST_F(SubIntfSmTest, DynamicEncapReplacesTheConfiguredOne) {
  start();
  subIntf("Ethernet1.10", 10, 10);
  sm->dynamicEncapIs("Ethernet1.10", {44, 4});
  EXPECT_EQ(hwConfig->intfIdToDot1qEncapAndVlanId(IntfId("Ethernet1.10")).dot1qEncap, (SubIntfEncap{44, 4}));
  EXPECT_EQ(sm->dynamicEncapStatus().at(IntfId("Ethernet1.10")), (SubIntfEncap{44, 4}));
  Orb::VerifyReport clean;
  sm->handleVerify(clean);
  EXPECT_TRUE(clean.lines().empty());
  sm->dynamicEncapDel("Ethernet1.10");
  EXPECT_EQ(hwConfig->intfIdToDot1qEncapAndVlanId(IntfId("Ethernet1.10")).dot1qEncap, (SubIntfEncap{10, 0}));
  EXPECT_TRUE(sm->dynamicEncapStatus().empty());
}

TEST_F(SubIntfSmTest, LagParentTellsTheChipOfItsMembers) {
  ocsd->lagToPortIs("Port-Channel1", Orb::OrbLagPortList{{{IntfId("Ethernet1"), {true, true}}}});
  ocsd->portToLagIs("Ethernet1", "Port-Channel1");
  start();
  subIntf("Port-Channel1.5", 5, 5);
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"add Port-Channel1.5 Port-Channel1 5/0 vlan 5",
                                                     "lag add Ethernet1 Port-Channel1"}));
  ocsd->lagToPortIs("Port-Channel1",
                    Orb::OrbLagPortList{{{IntfId("Ethernet1"), {true, true}}, {IntfId("Ethernet2"), {true, true}}}});
  ocsd->portToLagIs("Ethernet2", "Port-Channel1");
  EXPECT_EQ(helper->calls.back(), "lag add Ethernet2 Port-Channel1");
  ocsd->portToLagDel("Ethernet2");
  EXPECT_EQ(helper->calls.back(), "lag del Ethernet2");
  remove("Port-Channel1.5");
  EXPECT_EQ(helper->calls.back(), "lag del Ethernet1");
}

TEST_F(SubIntfSmTest, VerificationNamesEachDifference) {
  start();
  subIntf("Ethernet1.10", 10, 10);
  subIntf("Ethernet1.11", 10, 11);  // tag conflict: waits
  Orb::VerifyReport clean;
  sm->handleVerify(clean);
  EXPECT_TRUE(clean.lines().empty());
  // Hardware config tampered with behind the machine's back.
  auto entry = hwConfig->intfIdToDot1qEncapAndVlanId(IntfId("Ethernet1.10"));
  entry.vlanId = VlanIdOrNone(99);
  entry.isL2SubIntf = true;
  entry.dot1qEncap = {12, 0};
  hwConfig->intfIdToDot1qEncapAndVlanIdIs(IntfId("Ethernet1.10"), entry);
  hwConfig->intfIdToDot1qEncapAndVlanIdIs(IntfId("Ethernet9.1"), entry);
  setenv("SIMULATION_VMID", "1", 1);
  Orb::VerifyReport report;
  sm->handleVerify(report);
  unsetenv("SIMULATION_VMID");
  auto has = [&](const std::string& text) {
    for (const auto& line : report.lines())
      if (line.find(text) != std::string::npos) return true;
    return false;
  };
  EXPECT_TRUE(has("subIntfConfigDot1qEncap(outerTag 10 innerTag 0) != hwConfigDot1qEncap(outerTag 12 innerTag 0)"));
  EXPECT_TRUE(has("subIntfStatusVlanId(10) != hwConfigVlanId(99)"));
  EXPECT_TRUE(has("isL2SubIntf(false) != hwConfigIsL2SubIntf(true)"));
  EXPECT_TRUE(has("Ethernet9.1 is member of hwConfig->intfIdToDot1qEncapAndVlanIdIterator"));
  EXPECT_EQ(sm->verificationFailures().size(), report.lines().size());
  EXPECT_NE(sm->verificationFailures().front().find("OrbSubIntfSm.cpp:"), std::string::npos);
  sm->disableVerifyIs(true);
  Orb::VerifyReport skipped;
  sm->handleVerify(skipped);
  EXPECT_TRUE(skipped.lines().empty());
}

TEST_F(SubIntfSmTest, ReplacedAndMutedEntitiesAreFollowed) {
  IntfId sub("Ethernet1.10");
  start();
  subIntf(sub, 10, 10);
  ASSERT_TRUE(inHw(sub));
  // A new status entity in place of the old one: the machine follows the
  // new one and no longer hears the old.
  auto old = statuses->intfStatus(sub);
  statuses->intfStatusDel(sub);
  EXPECT_EQ(helper->calls.back(), "delete Ethernet1.10 vlan 10");
  auto fresh = statuses->intfStatusIs(sub);
  fresh->forwardingVlanIdIs(VlanIdOrNone(30));
  fresh->programInHwIs(true);
  fresh->initializedIs(true);
  EXPECT_EQ(helper->calls.back(), "add Ethernet1.10 Ethernet1 10/0 vlan 30");
  const auto callsBefore = helper->calls.size();
  old->forwardingVlanIdIs(VlanIdOrNone(40));
  EXPECT_EQ(helper->calls.size(), callsBefore);
  // While muted the machine hears nothing; a status that came meanwhile is
  // watched once it is switched back on, and its next change is acted on.
  IntfId other("Ethernet2.20");
  configs->intfConfigIs(other)->dot1qEncapIs({20, 0});
  sm->hasNotificationActiveIs(false);
  auto late = statuses->intfStatusIs(other);
  late->forwardingVlanIdIs(VlanIdOrNone(20));
  late->initializedIs(true);
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(other));
  sm->hasNotificationActiveIs(true);
  EXPECT_FALSE(hwConfig->intfIdToDot1qEncapAndVlanIdHas(other));
  late->programInHwIs(true);
  EXPECT_TRUE(inHw(other));
  EXPECT_EQ(sm->mapIntfIdToVlanId(other), VlanIdOrNone(20));
  // The configuration's reactor sees the status too: a new tag moves it.
  configs->intfConfig(other)->dot1qEncapIs({21, 0});
  EXPECT_EQ(helper->calls.back(), "add Ethernet2.20 Ethernet2 21/0 vlan 20");
  remove(other);
  remove(sub);
  EXPECT_TRUE(hwStatus->intfIdToDot1qEncapAndVlanId().empty());
}

TEST_F(SubIntfSmTest, BadInputIsRefusedOrStops) {
  start();
  EXPECT_DEATH(sm->checkConflictAndRetry("Ethernet1", true), "Nexo::SubIntfId::isSubIntfId\\( intfId \\)");
  // A status for a non sub-interface is ignored.
  statuses->intfStatusIs("Ethernet3")->programInHwIs(true);
  EXPECT_TRUE(helper->calls.empty());
}

}  // namespace
