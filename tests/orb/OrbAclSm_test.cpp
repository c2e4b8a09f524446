// The ACL machines through their configuration: compiling rules into
// subrules, the apply passes, status texts and log events, the number pool,
// what rebuilds an ACL, and the phases of a chip that answers later.
#include "Orb/OrbAclSm.h"
#include "Orb/OrbCommon.h"
#include "platform/blip/Blip.h"
#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace Orb;
using Acl::AclAction;
using Acl::AclDirection;
using Acl::PortOp;

// Holds every subrule it is offered, answers commits as told (success on
// "Unit0" when nothing is queued) and records what it was asked.
class RecordingAclHelper : public OrbHelper::AclHelper {
 public:
  std::deque<AclHwResult> answers;
  std::vector<std::string> calls;
  struct Offered {
    AclRule rule;
    AclSubrule subrule;
  };
  std::vector<Offered> offered;
  bool deferred = false;
  bool refuseMac = false;

  bool createIpAclSubrule(Acl::AclType, const AclRule& rule, const AclSubrule& subrule, std::uint32_t,
                          AclData&) override {
    offered.push_back({rule, subrule});
    return true;
  }
  bool createIpFragRule(AclData&, const AclRule& rule, const AclSubrule& subrule, std::uint32_t) override {
    offered.push_back({rule, subrule});
    return true;
  }
  bool createMacAclRule(const AclRule& rule, const AclSubrule& subrule, std::uint32_t, AclData&) override {
    offered.push_back({rule, subrule});
    return !refuseMac;
  }
  bool createFinalAclRule(Acl::AclType, AclData&, const AclRule&, const AclSubrule&) override { return true; }
  AclHwResult commitAcl(AclData& data) override {
    calls.push_back("commit " + data.key().stringValue() + " #" + std::to_string(data.aclNumber));
    if (answers.empty()) return {0, "Unit0"};
    auto answer = answers.front();
    answers.pop_front();
    return answer;
  }
  void removeAcl(AclData& data) override { calls.push_back("remove " + data.key().stringValue()); }
  bool addIntfToAcl(const IntfPairKey& pair, AclData& data, AclDataStatus&) override {
    calls.push_back("bind " + pair.stringValue() + " " + data.key().stringValue());
    return true;
  }
  void removeIntfFromAcl(const IntfPairKey& pair, AclData& data, bool belongsToAnother) override {
    calls.push_back("unbind " + pair.stringValue() + " " + data.key().stringValue() +
                    (belongsToAnother ? " (another's)" : ""));
  }
  bool deferredOperationsSupported() override { return deferred; }
  bool asyncAclConfig() override { return async; }
  bool subIntfAclSharingSupported(const AclKey&) override { return subIntfSharing; }
  bool intfSupportsAcl(const Nexo::IntfId& intf) override { return !unsupported.count(intf); }
  bool aclOwner(const Nexo::IntfId& intf, const AclKey& key) override {
    auto it = owner.find(intf);
    return it == owner.end() || it->second == key;
  }
  bool subIntfSharing = true;
  std::set<Nexo::IntfId> unsupported;
  std::map<Nexo::IntfId, AclKey> owner;
  void blockIntf(const Nexo::IntfId& intf, bool block, const std::string&) override {
    calls.push_back((block ? "block " : "unblock ") + intf.stringValue());
  }
  bool async = false;
};

class AclSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<OrbCommonSmData> ocsd = orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingAclHelper> helper = Vex::make<RecordingAclHelper>();
  Vex::Ptr<Acl::Config> config = Vex::make<Acl::Config>("aclConfig");
  Vex::Ptr<Acl::Status> status = Vex::make<Acl::Status>("aclStatus");
  std::shared_ptr<Log::CaptureSink> logs = std::make_shared<Log::CaptureSink>();
  std::uint32_t nextId = 1;

  AclSmTest() { Log::sinkIs(logs); }
  ~AclSmTest() override { Log::sinkIs(nullptr); }

  Vex::Ptr<Interface::EthPhyIntfStatusDir> phy = Vex::make<Interface::EthPhyIntfStatusDir>("phy");

  Vex::Ptr<Bridging::Config> bridging = Vex::make<Bridging::Config>("bridgingConfig");

  Vex::Ptr<AclSm> start() { return aclSmFactory({ocsd, helper, config, status, phy, bridging}); }

  Vex::Ptr<Acl::AclConfig> ipAcl(const std::string& name) { return config->aclTypeConfigIs(Acl::ip())->aclIs(name); }
  void ipRule(const Vex::Ptr<Acl::AclConfig>& acl, std::uint32_t seq, AclAction action, Acl::IpFilter filter) {
    acl->ipRuleBySequenceIs(seq, {action, filter, nextId++});
  }
  void apply(const std::string& intf, const std::string& name, Acl::AclType type = Acl::ip(),
             AclDirection direction = AclDirection::aclIn) {
    auto intfConfig = config->aclIntfTypeConfigIs(type);
    auto bindings = intfConfig->intf(Nexo::IntfId(intf));
    (direction == AclDirection::aclIn ? bindings.in : bindings.out) = name;
    intfConfig->intfIs(Nexo::IntfId(intf), bindings);
  }
  std::string statusText(const std::string& name, Acl::AclType type = Acl::ip()) {
    auto listStatus = status->aclStatus({type, name});
    if (!listStatus) return "(no status)";
    return listStatus->instanceStatus({AclDirection::aclIn, {}}).statusText;
  }
  static Acl::IpFilter tcp(Acl::PortMatch source, Acl::PortMatch destination) {
    Acl::IpFilter filter;
    filter.protocol = 6;
    filter.sourcePort = source;
    filter.destinationPort = destination;
    return filter;
  }
};

TEST_F(AclSmTest, PortBlocksAreCrossedSourceOuterInRuleOrderThenTheFinalRule) {
  auto acl = ipAcl("web");
  ipRule(acl, 20, AclAction::deny, tcp({PortOp::range, 1, 3}, {PortOp::range, 8, 9}));
  ipRule(acl, 10, AclAction::permit, tcp({PortOp::any, 0, 0}, {PortOp::eq, 80, 0}));
  acl->versionInc();
  auto sm = start();
  apply("Ethernet1", "web");
  ASSERT_EQ(helper->offered.size(), 3u);
  // Sequence 10 first, though it was written second.
  EXPECT_EQ(helper->offered[0].rule.seq, 10u);
  EXPECT_EQ(helper->offered[0].subrule.sourcePort, (AclPortMask{0, 0, 0}));
  EXPECT_EQ(helper->offered[0].subrule.destinationPort, (AclPortMask{80, 80, 65535}));
  // 1..3 is 1 and 2-3; 8..9 is one block: (1, 8-9), (2-3, 8-9).
  EXPECT_EQ(helper->offered[1].subrule.sourcePort, (AclPortMask{1, 1, 65535}));
  EXPECT_EQ(helper->offered[2].subrule.sourcePort, (AclPortMask{2, 3, 65534}));
  EXPECT_EQ(helper->offered[2].subrule.destinationPort, (AclPortMask{8, 9, 65534}));
  auto* configSm = sm->aclTypeConfigSm(Acl::ip())->aclConfigSm("web");
  auto data = configSm->aclData({Acl::ip(), "web", AclDirection::aclIn, {}});
  ASSERT_TRUE(data);
  EXPECT_EQ(data->rules[data->subrules.back().rule].kind, AclSubruleKind::final);
  EXPECT_EQ(data->rules.size(), 3u);
  EXPECT_EQ(data->subrules.size(), 4u);
  EXPECT_EQ(data->numRules, 2u);
  EXPECT_EQ(data->count, 3u);
  EXPECT_EQ(configSm->uniqueIdToSeq(2), 10u);
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"commit ip web in #1", "bind Ethernet1 ip web in"}));
  EXPECT_EQ(statusText("web"), "Succeeded install on Unit0");
}

TEST_F(AclSmTest, EstablishedAddsAckAndRstOnTcpOnly) {
  auto acl = ipAcl("est");
  auto filter = tcp({}, {});
  filter.established = true;
  ipRule(acl, 10, AclAction::permit, filter);
  filter.protocol = 17;
  ipRule(acl, 20, AclAction::permit, filter);
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Blip::handle("OrbAclSm").levelIs(9);
  auto sm = start();
  apply("Ethernet1", "est");
  Blip::handle("OrbAclSm").levelIs(0);
  Blip::sinkIs(nullptr);
  ASSERT_EQ(helper->offered.size(), 2u);
  EXPECT_EQ(helper->offered[0].rule.tcpFlagsAny, tcpFlagAck | tcpFlagRst);
  EXPECT_EQ(helper->offered[1].rule.tcpFlagsAny, 0);
  EXPECT_TRUE(traces->contains("\tEstablished: Yes"));
  EXPECT_TRUE(traces->contains("\tAdding ACK flag"));
  EXPECT_TRUE(traces->contains("\tAdding RST flag"));
}

TEST_F(AclSmTest, FragmentPermitRulesAreMadeOncePerMatch) {
  auto acl = ipAcl("frag");
  Acl::IpFilter filter;
  filter.protocol = 17;
  filter.source = Nexo::Prefix("10.0.0.0/8");
  filter.fragments = true;
  ipRule(acl, 10, AclAction::permit, filter);
  ipRule(acl, 20, AclAction::permit, filter);  // the same match again
  ipRule(acl, 30, AclAction::deny, filter);
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Blip::handle("OrbAclSm").levelIs(9);
  auto sm = start();
  apply("Ethernet1", "frag");
  Blip::handle("OrbAclSm").levelIs(0);
  Blip::sinkIs(nullptr);
  ASSERT_EQ(helper->offered.size(), 2u);
  EXPECT_EQ(helper->offered[0].rule.kind, AclSubruleKind::fragPermit);
  EXPECT_TRUE(helper->offered[0].rule.fragment);
  EXPECT_EQ(helper->offered[1].rule.kind, AclSubruleKind::ip);
  EXPECT_TRUE(helper->offered[1].rule.fragment);
  EXPECT_EQ(helper->offered[1].rule.action, AclAction::deny);
  EXPECT_TRUE(traces->contains("Creating fragment permit rule"));
  EXPECT_TRUE(traces->contains("Matching fragment permit rule already created"));
  EXPECT_TRUE(traces->contains("Not Creating fragment permit rule"));
  // A rebuild starts from an empty map: the permit rule is made again.
  helper->offered.clear();
  acl->versionInc();
  EXPECT_EQ(helper->offered.size(), 2u);
}

TEST_F(AclSmTest, MplsLabelsOutOfRangeAreRefused) {
  Acl::MacFilter filter;
  filter.mplsLabel = 0x100000;
  try {
    Acl::checkMacFilter(filter);
    FAIL() << "label accepted";
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed");
  }
  filter.mplsLabel = 0xFFFFF;
  filter.mplsInnerLabel = -1;
  try {
    Acl::checkMacFilter(filter);
    FAIL() << "inner label accepted";
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed");
  }
  filter.mplsInnerLabel = 0;
  EXPECT_NO_THROW(Acl::checkMacFilter(filter));

  // A row holding one anyway is left out of the compiled list; a list left
  // with no rule the chip takes is skipped, and says so.
  auto acl = config->aclTypeConfigIs(Acl::mac())->aclIs("labels");
  filter.mplsLabel = -5;
  acl->macRuleBySequenceIs(10, {AclAction::permit, filter, nextId++});
  auto sm = start();
  apply("Ethernet2", "labels", Acl::mac());
  EXPECT_TRUE(helper->offered.empty());
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(statusText("labels", Acl::mac()), "Unsupported Acl rule, ");
  EXPECT_EQ(logs->count("ACL_UNSUPPORTED_HARDWARE"), 1u);
}

TEST_F(AclSmTest, StatusTextsOfEveryStatusWord) {
  EXPECT_EQ(aclHwStatusText(0, "Unit0"), "Succeeded install on Unit0");
  EXPECT_EQ(aclHwStatusText(2, "Unit0"), "Out of TCAM entries on Unit0");
  EXPECT_EQ(aclHwStatusText(3, "Unit0"), "Too many L4 port ranges");
  EXPECT_EQ(aclHwStatusText(10, "Unit0"), "Too many ACLs");
  EXPECT_EQ(aclHwStatusText(11, "Unit0"), "Unsupported Acl action");
  EXPECT_EQ(aclHwStatusText(12, "Unit1"), "Insufficient Hw resources to program UDFs on Unit1");
  EXPECT_EQ(aclHwStatusText(13, "Unit0"), "Unsupported Acl rule, Unit0");
  EXPECT_EQ(aclHwStatusText(15, "Unit0"), "Insufficient HW resources on Unit0");
  EXPECT_EQ(aclHwStatusText(18, "Unit0"), "Unsupported feature in TCAM on Unit0");
  EXPECT_EQ(aclHwStatusText(1, "Unit0"), "Unknown error");
  EXPECT_EQ(aclHwStatusText(99, "Unit0"), "Unknown error");
}

TEST_F(AclSmTest, AFullChipErrdisablesUntilTheListFitsAgain) {
  auto acl = ipAcl("big");
  ipRule(acl, 10, AclAction::deny, tcp({}, {PortOp::eq, 22, 0}));
  helper->answers = {{2, "Unit0"}};
  auto sm = start();
  apply("Ethernet3", "big");
  EXPECT_EQ(statusText("big"), "Out of TCAM entries on Unit0");
  EXPECT_TRUE(status->errdisabledIntf(Nexo::IntfId("Ethernet3")));
  EXPECT_EQ(logs->count("ACL_HW_RESOURCE_FULL"), 1u);
  // The edit that makes it fit: installed, bound, back in service.
  acl->versionInc();
  EXPECT_EQ(statusText("big"), "Succeeded install on Unit0");
  EXPECT_FALSE(status->errdisabledIntf(Nexo::IntfId("Ethernet3")));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet3 ip big in");
  EXPECT_EQ(logs->count("ACL_HW_RESOURCE_NORMAL"), 1u);
  EXPECT_EQ(logs->count("ACL_COMPUTATION_SUCCESS"), 1u);
}

TEST_F(AclSmTest, InsufficientResourcesLeaveTheInterfaceUp) {
  auto acl = ipAcl("big");
  ipRule(acl, 10, AclAction::deny, {});
  helper->answers = {{15, "Unit0"}};
  auto sm = start();
  apply("Ethernet3", "big");
  EXPECT_EQ(statusText("big"), "Insufficient HW resources on Unit0");
  EXPECT_FALSE(status->errdisabledIntf(Nexo::IntfId("Ethernet3")));
  helper->answers = {{3, ""}};
  acl->versionInc();
  EXPECT_EQ(statusText("big"), "Too many L4 port ranges");
  EXPECT_TRUE(status->errdisabledIntf(Nexo::IntfId("Ethernet3")));
  EXPECT_EQ(logs->count("ACL_COMPUTATION_FAILED"), 1u);
}

TEST_F(AclSmTest, NumbersComeFromThePoolFirstInFirstOut) {
  auto sm = start();
  auto* typeSm = (config->aclTypeConfigIs(Acl::ip()), sm->aclTypeConfigSm(Acl::ip()));
  ASSERT_NE(typeSm, nullptr);
  auto& pool = typeSm->directionSm(AclDirection::aclIn);
  EXPECT_EQ(pool.allocateAclNumber(), 1u);
  EXPECT_EQ(pool.allocateAclNumber(), 2u);
  EXPECT_EQ(pool.allocateAclNumber(), 3u);
  pool.releaseAclNumber(2);
  pool.releaseAclNumber(1);
  EXPECT_EQ(pool.freeAclMetadata().count, 2u);
  EXPECT_EQ(pool.allocateAclNumber(), 2u);
  EXPECT_EQ(pool.allocateAclNumber(), 1u);
  EXPECT_EQ(pool.allocateAclNumber(), 4u);
  EXPECT_EQ(pool.freeAclPop(), 0u);  // empty: nothing
  // Directions have pools of their own.
  EXPECT_EQ(typeSm->directionSm(AclDirection::aclOut).allocateAclNumber(), 1u);
}

TEST_F(AclSmTest, ListsTakeNumbersAndGiveThemBackWhenUnapplied) {
  ipRule(ipAcl("a"), 10, AclAction::permit, {});
  ipRule(ipAcl("b"), 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet1", "a");
  apply("Ethernet2", "b");
  apply("Ethernet1", "");
  EXPECT_EQ(helper->calls[helper->calls.size() - 2], "unbind Ethernet1 ip a in");
  EXPECT_EQ(helper->calls.back(), "remove ip a in");
  EXPECT_EQ(status->aclStatus({Acl::ip(), "a"})->instanceStatusSize(), 0u);
  apply("Ethernet1", "b");  // b is shared: no new instance
  ipRule(ipAcl("c"), 10, AclAction::permit, {});
  apply("Ethernet3", "c");
  EXPECT_EQ(helper->calls.back(), "bind Ethernet3 ip c in");
  EXPECT_EQ(helper->calls[helper->calls.size() - 2], "commit ip c in #1");
}

TEST_F(AclSmTest, RebuildTriggers) {
  auto acl = ipAcl("r");
  ipRule(acl, 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet5", "r");
  const auto commits = [&] {
    return std::count_if(helper->calls.begin(), helper->calls.end(),
                         [](const std::string& c) { return c.rfind("commit", 0) == 0; });
  };
  EXPECT_EQ(commits(), 1);
  // A rule written without the edit being complete does not rebuild.
  ipRule(acl, 20, AclAction::deny, {});
  EXPECT_EQ(commits(), 1);
  acl->versionInc();
  EXPECT_EQ(commits(), 2);
  // An internal VLAN change goes through the deferred updater.
  ocsd->internalVlanIs(Nexo::IntfId("Ethernet5"), 1006);
  EXPECT_EQ(sm->dirtyAcls().size(), 1u);
  EXPECT_EQ(commits(), 2);
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 3);
  EXPECT_EQ(sm->deferredUpdates(), 1u);
  EXPECT_TRUE(sm->dirtyAcls().empty());
  // A change elsewhere rebuilds nothing.
  ocsd->internalVlanIs(Nexo::IntfId("Ethernet6"), 1007);
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 3);
  // So does a speed change, of the bound port only.
  phy->speedIs(Nexo::IntfId("Ethernet5"), 25000);
  phy->speedIs(Nexo::IntfId("Ethernet6"), 25000);
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 4);
  // And a change of switch-port mode or access VLAN; writing the same
  // configuration again rebuilds nothing.
  const Nexo::IntfId port("Ethernet5");
  bridging->switchIntfConfigIs(port, {Bridging::SwitchportMode::routed, {}});
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 5);
  bridging->switchIntfConfigIs(port, {Bridging::SwitchportMode::routed, {}});
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 5);
  bridging->switchIntfConfigIs(port, {Bridging::SwitchportMode::routed, Bridging::VlanId(30)});
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 6);
  bridging->switchIntfConfigDel(port);
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 7);
  bridging->switchIntfConfigIs(Nexo::IntfId("Ethernet6"), {Bridging::SwitchportMode::trunk, {}});
  loop.runUntilIdle();
  EXPECT_EQ(commits(), 7);
  // Joining a LAG moves the binding to (member, LAG).
  ocsd->portToLagIs(Nexo::IntfId("Ethernet5"), Nexo::IntfId("Port-Channel1"));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet5(Port-Channel1) ip r in");
  ocsd->portToLagDel(Nexo::IntfId("Ethernet5"));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet5 ip r in");
}

TEST_F(AclSmTest, AVlanInterfaceBindsTheListToItsVlanAndItsLastBindingRemovesIt) {
  auto acl = ipAcl("svi");
  ipRule(acl, 10, AclAction::deny, {});
  acl->versionInc();
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Blip::handle("OrbAclSm").levelIs(3);
  auto sm = start();
  apply("Vlan10", "svi");
  apply("Vlan20", "svi");
  EXPECT_EQ(helper->calls,
            (std::vector<std::string>{"commit ip svi in #1", "bind Vlan10 ip svi in", "bind Vlan20 ip svi in"}));
  apply("Vlan10", "");
  EXPECT_EQ(helper->calls.back(), "unbind Vlan10 ip svi in");
  apply("Vlan20", "");
  Blip::handle("OrbAclSm").levelIs(0);
  Blip::sinkIs(nullptr);
  EXPECT_TRUE(traces->contains("Added first vlan to ip svi in, instantiating..."));
  EXPECT_TRUE(traces->contains("Removed last intf from ip svi in, deleting..."));
  EXPECT_EQ(helper->calls.back(), "remove ip svi in");
}

TEST_F(AclSmTest, UnsharedListsHaveAnInstancePerPortLagAndVlanAndMoveWhenSharingChanges) {
  ipRule(ipAcl("u"), 10, AclAction::deny, {});
  auto sm = start();
  config->aclTypeConfigIs(Acl::ip())->sharingIs(false);
  ocsd->portToLagIs(Nexo::IntfId("Ethernet5"), Nexo::IntfId("Port-Channel1"));
  ocsd->portToLagIs(Nexo::IntfId("Ethernet6"), Nexo::IntfId("Port-Channel1"));
  apply("Ethernet1", "u");
  apply("Ethernet2", "u");
  apply("Port-Channel1", "u");
  apply("Vlan10", "u");
  auto* configSm = sm->aclTypeConfigSm(Acl::ip())->aclConfigSm("u");
  std::vector<std::string> keys;
  for (const auto& [key, data] : configSm->aclData()) keys.push_back(key.stringValue());
  // The LAG's members share the LAG's instance.
  EXPECT_EQ(keys, (std::vector<std::string>{"ip u in Ethernet1", "ip u in Ethernet2", "ip u in Port-Channel1",
                                            "ip u in Vlan10"}));
  EXPECT_EQ(
      configSm->aclData({Acl::ip(), "u", AclDirection::aclIn, Nexo::IntfId("Port-Channel1")})->activeIntfs().size(),
      2u);
  // Each instance has its status, by interface.
  auto listStatus = status->aclStatus({Acl::ip(), "u"});
  EXPECT_EQ(listStatus->instanceStatusSize(), 4u);
  EXPECT_EQ(listStatus->instanceStatus({AclDirection::aclIn, Nexo::IntfId("Ethernet2")}).statusText,
            "Succeeded install on Unit0");
  // Sharing on: one instance takes every binding; the copies go.
  helper->calls.clear();
  config->aclTypeConfig(Acl::ip())->sharingIs(true);
  keys.clear();
  for (const auto& [key, data] : configSm->aclData()) keys.push_back(key.stringValue());
  EXPECT_EQ(keys, (std::vector<std::string>{"ip u in"}));
  EXPECT_EQ(configSm->aclData({Acl::ip(), "u", AclDirection::aclIn, {}})->activeIntfs().size(), 5u);
  EXPECT_EQ(std::count_if(helper->calls.begin(), helper->calls.end(),
                          [](const std::string& call) { return call.rfind("remove ", 0) == 0; }),
            4);
  EXPECT_EQ(listStatus->instanceStatusSize(), 1u);
  EXPECT_EQ(statusText("u"), "Succeeded install on Unit0");
}

TEST_F(AclSmTest, SubInterfacesShareOnlyWhereTheChipCanAndOtherRoutedInterfacesNever) {
  ipRule(ipAcl("s"), 10, AclAction::deny, {});
  auto sm = start();
  auto* configSm = sm->aclTypeConfigSm(Acl::ip())->aclConfigSm("s");
  apply("Ethernet1.10", "s");
  apply("Ethernet1.20", "s");
  EXPECT_EQ(configSm->aclData().size(), 1u);
  apply("Ethernet1.10", "");
  apply("Ethernet1.20", "");
  helper->subIntfSharing = false;
  apply("Ethernet1.10", "s");
  apply("Ethernet1.20", "s");
  EXPECT_TRUE(configSm->aclData({Acl::ip(), "s", AclDirection::aclIn, Nexo::IntfId("Ethernet1.10")}));
  EXPECT_TRUE(configSm->aclData({Acl::ip(), "s", AclDirection::aclIn, Nexo::IntfId("Ethernet1.20")}));
  // A tunnel keeps its own instance even with sharing on; an interface
  // the chip cannot filter is not bound.
  apply("Tunnel1", "s");
  EXPECT_EQ(helper->calls.back(), "bind Tunnel1 ip s in Tunnel1");
  helper->unsupported.insert(Nexo::IntfId("Tunnel2"));
  const auto calls = helper->calls.size();
  apply("Tunnel2", "s");
  EXPECT_EQ(helper->calls.size(), calls);
  EXPECT_FALSE(configSm->instanceHolding({Nexo::IntfId("Tunnel2"), {}}, AclDirection::aclIn));
}

TEST_F(AclSmTest, AnInstanceThatNoLongerOwnsAPortLeavesItsNewOwnerAlone) {
  ipRule(ipAcl("a"), 10, AclAction::deny, {});
  ipRule(ipAcl("b"), 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet1", "a");
  apply("Ethernet2", "a");
  // The chip already gave Ethernet1's slot to b's instance.
  helper->owner[Nexo::IntfId("Ethernet1")] = {Acl::ip(), "b", AclDirection::aclIn, {}};
  apply("Ethernet1", "b");
  EXPECT_EQ(std::count(helper->calls.begin(), helper->calls.end(), "unbind Ethernet1 ip a in (another's)"), 1);
  EXPECT_EQ(helper->calls.back(), "bind Ethernet1 ip b in");
  // Going away altogether, an instance still cleans up what it bound.
  helper->owner[Nexo::IntfId("Ethernet2")] = {Acl::ip(), "b", AclDirection::aclIn, {}};
  apply("Ethernet2", "");
  EXPECT_EQ(helper->calls[helper->calls.size() - 2], "unbind Ethernet2 ip a in (another's)");
  EXPECT_EQ(helper->calls.back(), "remove ip a in");
}

TEST_F(AclSmTest, ListConfiguredAfterItsBindingAndRemovedWhileApplied) {
  auto sm = start();
  apply("Ethernet1", "late");
  EXPECT_TRUE(helper->calls.empty());
  ipRule(ipAcl("late"), 10, AclAction::permit, {});
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"commit ip late in #1", "bind Ethernet1 ip late in"}));
  config->aclTypeConfig(Acl::ip())->aclDel("late");
  EXPECT_EQ(helper->calls.back(), "remove ip late in");
  EXPECT_FALSE(status->aclStatusHas({Acl::ip(), "late"}));
}

TEST_F(AclSmTest, DeferredChipRunsPhasesAsItAnswers) {
  helper->deferred = true;
  ipRule(ipAcl("d"), 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet1", "d");
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Commit);
  EXPECT_EQ(sm->opsRequested(), 1u);
  EXPECT_TRUE(sm->updatingAcls());
  // Changes meanwhile wait for the apply under way.
  apply("Ethernet2", "d");
  EXPECT_EQ(helper->calls.size(), 2u);
  helper->opsCompleted();
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Done);
  EXPECT_EQ(helper->calls.back(), "bind Ethernet2 ip d in");
  EXPECT_FALSE(sm->updatingAcls());
  EXPECT_EQ(statusText("d"), "Succeeded install on Unit0");
  // Unapplied everywhere: the uninstall phase waits for the chip too.
  apply("Ethernet1", "");
  apply("Ethernet2", "");
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Uninstall);
  helper->opsCompleted();
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Done);
  // A phase past the last does nothing.
  sm->aclApplyPhaseIs(static_cast<AclSm::AclApplyPhase>(5));
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Done);
}

TEST_F(AclSmTest, ALagsListAppliesToItsMembersAndAMemberLeavingTakesItsOwnBack) {
  ipRule(ipAcl("lag"), 10, AclAction::permit, {});
  ipRule(ipAcl("own"), 10, AclAction::deny, {});
  auto sm = start();
  apply("Port-Channel1", "lag");
  apply("Ethernet3", "own");
  EXPECT_EQ(helper->calls.back(), "bind Ethernet3 ip own in");
  ocsd->portToLagIs(Nexo::IntfId("Ethernet1"), Nexo::IntfId("Port-Channel1"));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet1(Port-Channel1) ip lag in");
  ocsd->portToLagIs(Nexo::IntfId("Ethernet3"), Nexo::IntfId("Port-Channel1"));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet3(Port-Channel1) ip lag in");
  EXPECT_EQ(sm->aclTypeConfigSm(Acl::ip())->directionSm(AclDirection::aclIn).boundAt(Nexo::IntfId("Ethernet3")),
            (IntfPairKey{Nexo::IntfId("Ethernet3"), Nexo::IntfId("Port-Channel1")}));
  ocsd->portToLagDel(Nexo::IntfId("Ethernet3"));
  EXPECT_EQ(helper->calls.back(), "bind Ethernet3 ip own in");
  // The LAG's list taken off: its member is unbound.
  apply("Port-Channel1", "");
  EXPECT_EQ(helper->calls.back(), "remove ip lag in");
}

TEST_F(AclSmTest, LagSubInterfacesAreRebuiltWhenTheLagsMembersChange) {
  ipRule(ipAcl("sub"), 10, AclAction::permit, {});
  auto sm = start();
  const Nexo::IntfId subIntf("Port-Channel2.100");
  apply("Port-Channel2.100", "sub");
  ASSERT_TRUE(sm->lagToSubIntfMapHas(Nexo::IntfId("Port-Channel2")));
  EXPECT_EQ(helper->calls.back(), "bind Port-Channel2.100 ip sub in");
  const auto commits = helper->calls.size();
  ocsd->portToLagIs(Nexo::IntfId("Ethernet7"), Nexo::IntfId("Port-Channel2"));
  loop.runUntilIdle();
  EXPECT_EQ(helper->calls[commits], "commit ip sub in #1");
  apply("Port-Channel2.100", "");
  EXPECT_FALSE(sm->lagToSubIntfMapHas(Nexo::IntfId("Port-Channel2")));
}

TEST_F(AclSmTest, ReplacingOnADeferredChipBlocksTheInterfacesUntilTheUnblockPhase) {
  helper->deferred = true;
  auto acl = ipAcl("d");
  ipRule(acl, 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet1", "d");
  helper->opsCompleted();
  // A first install has nothing to protect.
  EXPECT_EQ(std::count(helper->calls.begin(), helper->calls.end(), "block Ethernet1"), 0);
  acl->versionInc();
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Commit);
  EXPECT_EQ(helper->calls[helper->calls.size() - 2], "block Ethernet1");
  EXPECT_EQ(sm->blockedIntfInternal().size(), 1u);
  const AclKey key{Acl::ip(), "d", AclDirection::aclIn, {}};
  ASSERT_TRUE(sm->aclIntfSm(Nexo::IntfId("Ethernet1")));
  EXPECT_TRUE(sm->aclIntfSm(Nexo::IntfId("Ethernet1"))->aclIntf().blocked(key));
  helper->opsCompleted();
  EXPECT_EQ(helper->calls.back(), "unblock Ethernet1");
  EXPECT_TRUE(sm->blockedIntfInternal().empty());
  EXPECT_FALSE(sm->aclIntfSm(Nexo::IntfId("Ethernet1")));
  EXPECT_EQ(sm->aclApplyPhase(), AclSm::AclApplyPhase::Done);
}

TEST(AclIntfTest, AnInterfaceStaysBlockedWhileAnyInstanceBlocksIt) {
  const AclKey ip{Acl::ip(), "a", AclDirection::aclIn, {}};
  const AclKey mac{Acl::mac(), "m", AclDirection::aclIn, {}};
  AclIntf intf;
  intf.wantToBlockIs(ip, true);
  intf.wantToBlockIs(ip, true);
  intf.wantToBlockIs(mac, true);
  EXPECT_EQ(intf.wantToBlocks(), 2u);
  intf.blockedIs(ip, true);
  intf.blockedIs(mac, true);
  intf.wantToBlockIs(ip, false);
  intf.blockedIs(ip, false);
  EXPECT_EQ(intf.wantToBlocks(), 1u);
  EXPECT_EQ(intf.blockedFor(), mac);
  intf.wantToBlockIs(mac, false);
  intf.blockedIs(mac, false);
  EXPECT_EQ(intf.wantToBlocks(), 0u);
  EXPECT_FALSE(intf.blockedFor());
  EXPECT_TRUE(intf.empty());
}

TEST_F(AclSmTest, PermitDuringUpdateNeverBlocks) {
  helper->deferred = true;
  config->permitDuringUpdateIs(true);
  auto acl = ipAcl("d");
  ipRule(acl, 10, AclAction::permit, {});
  auto sm = start();
  apply("Ethernet1", "d");
  helper->opsCompleted();
  acl->versionInc();
  helper->opsCompleted();
  for (const auto& call : helper->calls) EXPECT_EQ(call.find("block"), std::string::npos) << call;
  EXPECT_TRUE(sm->blockedIntfInternal().empty());
}

using AclSmDeathTest = AclSmTest;

TEST_F(AclSmDeathTest, BrokenInvariantsStop) {
  auto sm = start();
  EXPECT_DEATH(AclTypeConfigSm(static_cast<Acl::AclType>(7), sm.get()), "0 && \"acl type not supported\"");
  EXPECT_DEATH(checkIntfPairKey({}), "Both intf and lag shouldn't be null together");
  EXPECT_DEATH(checkIntfPairKey({Nexo::IntfId("Port-Channel1"), {}}), "intfPair.intfId shouldn't be a lag");
  EXPECT_DEATH(checkIntfPairKey({Nexo::IntfId("Ethernet1"), Nexo::IntfId("Ethernet2")}),
               "intfPair.lagIntf should be a LAG");
  EXPECT_DEATH(checkIntfPairKey({Nexo::IntfId("Vlan10"), Nexo::IntfId("Port-Channel1")}),
               "When intf is an SVI or SubIntf or Tunnel-Intf, lag should be null");
  helper->async = true;
  EXPECT_DEATH(sm->blockedIntfIs(Nexo::IntfId("Ethernet1"), true), "!aclHelper\\(\\)->asyncAclConfig\\(\\)");
  helper->async = false;
  EXPECT_DEATH(sm->lagToSubIntfIs(Nexo::IntfId("Port-Channel9.1"), false), "lagToSubIntfMapHas\\( parentLag \\)");
}

}  // namespace
