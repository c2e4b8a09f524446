// Mirroring sessions: the mirror-group queue, sessions and their
// destinations, sources (LAGs, failed ports, directions, ACLs), overflow
// and its log events, GRE tunnels, reconciliation after a restart,
// verification, and the helper's failing defaults.
#include "Orb/OrbMirroringSm.h"

#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <fmt/format.h>

#include <gtest/gtest.h>

namespace {

using Mirroring::Direction;
using Nexo::IntfId;

// Records what the machine asks of the chip, which holds what it was asked
// to and answers as the test plans.
class RecordingMirrorHelper : public OrbHelper::MirroringSmHelper {
 public:
  std::vector<std::string> calls;
  std::set<IntfId> refuseSources;  // addSourceToHardware fails for these
  bool refuseAcl = false;
  std::uint32_t freeSlots = 100;
  std::map<IntfId, Direction> sources;
  std::set<IntfId> targets;
  std::vector<Orb::HwMirrorSession> held;
  std::string sourceDiff;

  void record(std::string call) { calls.push_back(std::move(call)); }
  void hwInit() override { record("hwInit"); }
  std::vector<Orb::HwMirrorSession> hwSessions() override { return held; }
  bool createMirror(const std::string& name, std::uint32_t, Group group, const IntfId& dest, bool) override {
    record(fmt("create {} {} {}", name, group, dest.stringValue()));
    return true;
  }
  bool removeMirror(const std::string& name, std::uint32_t, Group group, const std::vector<IntfId>&) override {
    record(fmt("remove {} {}", name, group));
    return true;
  }
  bool createGreTunnelMirror(const std::string& name, std::uint32_t, Group group, const IntfId& dest,
                             std::uint32_t tunnelId, const std::vector<Mirroring::GreNextHop>& nextHops) override {
    record(fmt("create gre {} {} {} {} {}", name, group, dest.stringValue(), tunnelId, nextHops.size()));
    return true;
  }
  bool updateGreTunnelMirror(const std::string& name, std::uint32_t, Group, const IntfId&, std::uint32_t tunnelId,
                             const std::vector<Mirroring::GreNextHop>&) override {
    record(fmt("update gre {} {}", name, tunnelId));
    return true;
  }
  bool removeGreTunnelMirror(const std::string& name, std::uint32_t, Group, const IntfId&) override {
    record("remove gre " + name);
    return true;
  }
  bool addSourceToHardware(const std::string& name, std::uint32_t, Group, const IntfId& intf,
                           Direction direction) override {
    record(fmt("add source {} {} {}", name, intf.stringValue(), Mirroring::directionName(direction)));
    if (refuseSources.count(intf)) return false;
    sources[intf] = direction;
    return true;
  }
  bool removeSourceFromHardware(const std::string& name, std::uint32_t, Group, const IntfId& intf, Direction direction,
                                bool) override {
    record(fmt("remove source {} {} {}", name, intf.stringValue(), Mirroring::directionName(direction)));
    sources.erase(intf);
    return true;
  }
  bool addTargetToHardware(const std::string& name, std::uint32_t, Group, const IntfId& intf, bool add) override {
    record(fmt("{} target {} {}", add ? "add" : "remove", name, intf.stringValue()));
    if (add) {
      targets.insert(intf);
    } else {
      targets.erase(intf);
    }
    return true;
  }
  bool addHwSrcAcl(const std::string& name, std::uint32_t, Group, const IntfId& intf, const std::string& aclName,
                   const Vex::Ptr<const Acl::AclConfig>& acl, std::uint32_t) override {
    record(fmt("acl {} {} {} {}", name, intf.stringValue(), aclName, acl ? acl->version() : 0));
    return !refuseAcl;
  }
  bool addIntfToLagGreNextHop(const std::string& name, std::uint32_t, Group, const IntfId& intf, const IntfId&,
                              const IntfId& lag) override {
    record(fmt("gre member {} {} {}", name, lag.stringValue(), intf.stringValue()));
    return true;
  }
  bool handleLagMemberDeletion(const IntfId& intf, const IntfId& lag, const std::string& name, std::uint32_t, Group,
                               Direction) override {
    record(fmt("lag member gone {} {} {}", name, lag.stringValue(), intf.stringValue()));
    sources.erase(intf);
    return true;
  }
  std::uint32_t freeMirrorSources(const Mirroring::Config&, const std::string&, Direction) override {
    return freeSlots > sources.size() ? freeSlots - static_cast<std::uint32_t>(sources.size()) : 0;
  }
  std::uint32_t maxBiDirSources() override { return freeSlots / 2; }
  std::uint32_t maxUniDirSources() override { return freeSlots; }
  std::string verifySinglePort(const std::string&, Group, const IntfId&, Direction) override { return sourceDiff; }
  std::string verifyDestPort(const std::string&, Group, const IntfId&) override { return ""; }

  template <class... Args>
  static std::string fmt(const char* format, const Args&... args) {
    return ::fmt::format(::fmt::runtime(format), args...);
  }
  // The calls so far, forgotten.
  std::vector<std::string> take() { return std::exchange(calls, {}); }
};

class MirroringSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  std::shared_ptr<Log::CaptureSink> logs = std::make_shared<Log::CaptureSink>();
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingMirrorHelper> helper = Vex::make<RecordingMirrorHelper>();
  Orb::MirroringSmInputs in{ocsd,
                            helper,
                            Vex::make<Mirroring::Config>("config"),
                            Vex::make<Mirroring::HwCapability>("capability"),
                            Vex::make<Mirroring::HwStatus>("status"),
                            Vex::make<Mirroring::GreTunnelStatusDir>("tunnels"),
                            Vex::make<Acl::Config>("acl")};
  Vex::Ptr<Orb::MirroringSm> sm;
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e3{"Ethernet3"}, e9{"Ethernet9"}, pc1{"Port-Channel1"};

  MirroringSmTest() { Log::sinkIs(logs); }
  ~MirroringSmTest() override {
    sm.reset();
    Log::sinkIs(nullptr);
  }
  void start(std::uint32_t sessions = 4) {
    in.hwCapability->maxSupportedSessionsIs(sessions);
    sm = Orb::mirroringSmFactory(in);
  }
  Vex::Ptr<Mirroring::Session> session(const std::string& name) { return in.mirroringConfig->sessionIs(name); }
  void source(const std::string& name, const IntfId& intf, Direction direction = Direction::directionBoth,
              const std::string& acl = "") {
    session(name)->srcIntfIs(intf, {direction, acl, 0});
  }
  void lagMembers(const IntfId& lag, std::vector<IntfId> members) {
    Orb::OrbLagPortList list;
    for (const auto& old : ocsd->lagToPort(lag).ports) ocsd->portToLagDel(old.first);
    for (const auto& port : members) list.portIs(port, {true, true});
    for (const auto& port : members) ocsd->portToLagIs(port, lag);
    if (members.empty()) {
      ocsd->lagToPortDel(lag);
    } else {
      ocsd->lagToPortIs(lag, list);
    }
  }
  std::vector<std::uint8_t> freeGroups() const {
    std::vector<std::uint8_t> groups;
    for (const auto& [index, group] : sm->freeHwMirrorSession()) groups.push_back(group);
    return groups;
  }
  const Mirroring::SessionStatus& status(const std::string& name) { return in.mirroringStatus->sessionStatus(name); }
};

using Calls = std::vector<std::string>;

TEST_F(MirroringSmTest, NoSessionsMeansNoMirroringUntilTheChipHasSome) {
  session("s1")->targetIntfIs(e9, true);
  start(0);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_TRUE(sm->freeHwMirrorSession().empty());
  in.hwCapability->maxSupportedSessionsIs(2);
  EXPECT_EQ(helper->take(), (Calls{"hwInit", "create s1 0 Ethernet9", "add target s1 Ethernet9"}));
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{1}));
}

TEST_F(MirroringSmTest, GroupsComeFromTheFrontAndGoBackToTheTail) {
  start(3);
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{0, 1, 2}));
  session("a")->targetIntfIs(e9, true);
  session("b")->targetIntfIs(e3, true);
  EXPECT_EQ(status("a").mirrorGroup, 0);
  EXPECT_EQ(status("b").mirrorGroup, 1);
  in.mirroringConfig->sessionDel("a");
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{2, 0}));
  session("c")->targetIntfIs(e2, true);
  EXPECT_EQ(status("c").mirrorGroup, 2);
  EXPECT_FALSE(in.mirroringStatus->sessionStatusHas("a"));
  // Software ids come from the shared pool and go back to it.
  EXPECT_TRUE(ocsd->mirrorSessionNameToIdHas("c"));
  EXPECT_FALSE(ocsd->mirrorSessionNameToIdHas("a"));
}

TEST_F(MirroringSmTest, ASessionIsCreatedOnceItHasADestination) {
  start();
  source("s1", e1, Direction::directionRx);
  EXPECT_EQ(helper->take(), Calls{"hwInit"});
  EXPECT_FALSE(status("s1").createdInHw);
  EXPECT_EQ(status("s1").reason, "no usable destination");
  EXPECT_EQ(status("s1").mirrorGroup, -1);
  session("s1")->targetIntfIs(e9, true);
  EXPECT_EQ(helper->take(), (Calls{"create s1 0 Ethernet9", "add target s1 Ethernet9", "add source s1 Ethernet1 rx"}));
  EXPECT_TRUE(status("s1").createdInHw);
  EXPECT_EQ(status("s1").sources.at(e1), "active");
  // The destination goes: everything comes out and the group goes back.
  session("s1")->targetIntfDel(e9);
  EXPECT_EQ(helper->take(), (Calls{"remove target s1 Ethernet9", "remove source s1 Ethernet1 rx", "remove s1 0"}));
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{1, 2, 3, 0}));
}

TEST_F(MirroringSmTest, SessionsBeyondTheGroupsWaitAndAreLoggedOnce) {
  start(1);
  session("a")->targetIntfIs(e9, true);
  session("b")->targetIntfIs(e3, true);
  source("b", e1);
  EXPECT_FALSE(status("b").createdInHw);
  EXPECT_EQ(status("b").reason, "no free mirror group");
  ASSERT_EQ(logs->count("DATAPLANE_MIRROR_SESSION_RESOURCES_FULL"), 1u);
  EXPECT_EQ(logs->events.back().message,
            "Mirroring hardware resources are insufficient to program the mirror session b.");
  helper->take();
  in.mirroringConfig->sessionDel("a");
  EXPECT_EQ(helper->take(), (Calls{"remove target a Ethernet9", "remove a 0", "create b 0 Ethernet3",
                                   "add target b Ethernet3", "add source b Ethernet1 both"}));
  EXPECT_EQ(logs->count("DATAPLANE_MIRROR_SESSION_RESOURCES_FULL"), 1u);
  // An internal session short of a group says so in its own words.
  auto internal = session("internal");
  internal->isInternalIs(true);
  internal->targetIntfIs(e2, true);
  ASSERT_EQ(logs->count("DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE"), 1u);
  EXPECT_EQ(logs->events.back().message,
            "Insufficient hardware resources are available to program the internal session internal with "
            "destination interface Ethernet2.");
}

TEST_F(MirroringSmTest, LagSourcesFollowTheirMembers) {
  lagMembers(pc1, {e1, e2});
  start();
  session("s1")->targetIntfIs(e9, true);
  helper->take();
  source("s1", pc1, Direction::directionRx);
  EXPECT_EQ(helper->take(), (Calls{"add source s1 Ethernet1 rx", "add source s1 Ethernet2 rx"}));
  lagMembers(pc1, {e2, e3});
  EXPECT_EQ(helper->take(), (Calls{"lag member gone s1 Port-Channel1 Ethernet1", "add source s1 Ethernet3 rx"}));
  lagMembers(pc1, {});
  EXPECT_EQ(status("s1").sources.at(pc1), "no members");
  EXPECT_TRUE(helper->sources.empty());
  // A direction change takes the ports out and puts them back.
  lagMembers(pc1, {e2});
  helper->take();
  source("s1", pc1, Direction::directionTx);
  EXPECT_EQ(helper->take(), (Calls{"remove source s1 Ethernet2 rx", "add source s1 Ethernet2 tx"}));
}

TEST_F(MirroringSmTest, RefusedPortsAreRetriedOnTheClock) {
  start();
  session("s1")->targetIntfIs(e9, true);
  helper->refuseSources = {e1};
  source("s1", e1);
  EXPECT_EQ(status("s1").sources.at(e1), "failed");
  helper->take();
  loop.advance(0.5);
  EXPECT_EQ(helper->take(), (Calls{}));
  loop.advance(0.6);
  EXPECT_EQ(helper->take(), (Calls{"add source s1 Ethernet1 both"}));
  helper->refuseSources.clear();
  loop.advance(1.1);
  EXPECT_EQ(helper->take(), (Calls{"add source s1 Ethernet1 both"}));
  EXPECT_EQ(status("s1").sources.at(e1), "active");
  loop.advance(5);
  EXPECT_EQ(helper->take(), (Calls{}));
}

TEST_F(MirroringSmTest, OverflowIsLoggedOnceAndClearedWhenEverySourceFits) {
  helper->freeSlots = 2;
  start();
  session("a")->targetIntfIs(e9, true);
  source("a", e1);
  source("a", e2);
  session("b")->targetIntfIs(IntfId("Ethernet10"), true);
  source("b", e3);
  source("b", IntfId("Ethernet4"));
  EXPECT_EQ(sm->sourcesOverflowed(), 2u);
  EXPECT_EQ(in.mirroringStatus->sourcesOverflowed(), 2u);
  EXPECT_EQ(status("b").sources.at(e3), "overflowed");
  ASSERT_EQ(logs->count("DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL"), 1u);
  EXPECT_EQ(logs->events[0].message,
            "Insufficient hardware resources are available to add interface Ethernet3 as a source to session b. "
            "There is a maximum of 1 bidirectional sources or 2 unidirectional sources available for a mirror "
            "session.");
  // One slot frees: one source fits, the other still waits.
  session("a")->srcIntfDel(e1);
  EXPECT_EQ(sm->sourcesOverflowed(), 1u);
  EXPECT_EQ(status("b").sources.at(e3), "active");
  EXPECT_EQ(logs->count("DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL"), 0u);
  in.mirroringConfig->sessionDel("a");
  EXPECT_EQ(sm->sourcesOverflowed(), 0u);
  EXPECT_EQ(logs->count("DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL"), 1u);
  EXPECT_EQ(logs->count("DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL"), 1u);
  // An overflowed source that goes takes its count with it.
  source("b", e1);
  EXPECT_EQ(sm->sourcesOverflowed(), 1u);
  in.mirroringConfig->sessionDel("b");
  EXPECT_EQ(sm->sourcesOverflowed(), 0u);
  EXPECT_EQ(logs->count("DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL"), 2u);
  Orb::VerifyReport report;
  sm->handleVerify(report);
  EXPECT_TRUE(report.lines().empty());
}

TEST_F(MirroringSmTest, SourceAclsFilterOnceTheListExists) {
  start();
  session("s1")->targetIntfIs(e9, true);
  helper->take();
  source("s1", e1, Direction::directionRx, "web");
  EXPECT_EQ(helper->take(), Calls{});
  EXPECT_EQ(status("s1").sources.at(e1), "no acl");
  auto acl = in.aclConfig->aclTypeConfigIs(Acl::ip())->aclIs("web");
  EXPECT_EQ(helper->take(), (Calls{"add source s1 Ethernet1 rx", "acl s1 Ethernet1 web 0"}));
  EXPECT_EQ(status("s1").sources.at(e1), "active");
  EXPECT_TRUE(sm->session("s1")->aclAppliedInHw().count(e1));
  acl->versionInc();
  EXPECT_EQ(helper->take(), (Calls{"acl s1 Ethernet1 web 1"}));
  // A list of another name changes nothing here.
  in.aclConfig->aclTypeConfigIs(Acl::mac())->aclIs("other")->versionInc();
  EXPECT_EQ(helper->take(), Calls{});
  in.aclConfig->aclTypeConfig(Acl::ip())->aclDel("web");
  EXPECT_EQ(helper->take(), (Calls{"remove source s1 Ethernet1 rx"}));
  EXPECT_EQ(status("s1").sources.at(e1), "no acl");
  // A chip that cannot hold the filter keeps the port out and says so once.
  helper->refuseAcl = true;
  in.aclConfig->aclTypeConfigIs(Acl::ipv6())->aclIs("web");
  source("s1", e2, Direction::directionRx, "web");
  EXPECT_EQ(logs->count("MIRRORING_ACL_HW_RESOURCE_FULL"), 1u);
  EXPECT_TRUE(helper->sources.empty());
  EXPECT_EQ(status("s1").sources.at(e1), "failed");
}

TEST_F(MirroringSmTest, DestinationsFollowLagsAndRefuseMembersAndOverlaps) {
  lagMembers(pc1, {e2, e3});
  start();
  source("s1", e1);
  session("s1")->targetIntfIs(pc1, true);
  EXPECT_EQ(helper->take(), (Calls{"hwInit", "create s1 0 Port-Channel1", "add target s1 Ethernet2",
                                   "add target s1 Ethernet3", "add source s1 Ethernet1 both"}));
  lagMembers(pc1, {e3});
  EXPECT_EQ(helper->take(), (Calls{"remove target s1 Ethernet2"}));
  lagMembers(pc1, {});
  EXPECT_EQ(helper->take(), (Calls{"remove target s1 Ethernet3"}));
  EXPECT_EQ(status("s1").targets.at(pc1), "no members");
  EXPECT_TRUE(status("s1").createdInHw);
  // A port that is a LAG member is no destination.
  source("s2", IntfId("Ethernet5"));
  ocsd->portToLagIs(IntfId("Ethernet6"), IntfId("Port-Channel2"));
  session("s2")->targetIntfIs(IntfId("Ethernet6"), true);
  EXPECT_EQ(status("s2").targets.at(IntfId("Ethernet6")), "lag member");
  EXPECT_FALSE(status("s2").createdInHw);
  ocsd->portToLagDel(IntfId("Ethernet6"));
  EXPECT_TRUE(status("s2").createdInHw);
  // Nor is one of the session's own sources.
  session("s3")->targetIntfIs(e1, true);
  source("s3", e1);
  EXPECT_EQ(status("s3").targets.at(e1), "overlapping");
  EXPECT_FALSE(status("s3").createdInHw);
}

TEST_F(MirroringSmTest, APortNamedAloneAndThroughItsLagStaysADestination) {
  lagMembers(pc1, {e2});
  start();
  source("s1", e1);
  session("s1")->targetIntfIs(e2, true);
  session("s1")->targetIntfIs(pc1, true);
  helper->take();
  // Ethernet2 leaves the LAG: the port destination takes it, and the LAG
  // letting it go must not take it out of the chip.
  EXPECT_EQ(helper->targets, (std::set<IntfId>{e2}));
  lagMembers(pc1, {});
  EXPECT_EQ(helper->targets, (std::set<IntfId>{e2}));
  EXPECT_EQ(status("s1").targets.at(e2), "active");
  EXPECT_TRUE(sm->session("s1")->targetIntf().at(e2)->programmedPorts().count(e2));
}

TEST_F(MirroringSmTest, APortNamedAloneAndThroughItsLagStaysASource) {
  const Direction rx = Direction::directionRx, tx = Direction::directionTx;
  lagMembers(pc1, {e1, e2});
  start();
  session("s1")->targetIntfIs(e9, true);
  source("s1", e1, rx);
  source("s1", pc1, rx);
  EXPECT_EQ(helper->sources, (std::map<IntfId, Direction>{{e1, rx}, {e2, rx}}));
  helper->take();
  // The LAG source goes: Ethernet1 stays in the chip for the port source.
  session("s1")->srcIntfDel(pc1);
  EXPECT_EQ(helper->take(), (Calls{"remove source s1 Ethernet2 rx"}));
  EXPECT_EQ(helper->sources, (std::map<IntfId, Direction>{{e1, rx}}));
  EXPECT_EQ(status("s1").sources.at(e1), "active");
  // Back again; then Ethernet1 leaves the LAG and the port source keeps it.
  source("s1", pc1, rx);
  helper->take();
  lagMembers(pc1, {e2});
  EXPECT_TRUE(helper->take().empty());
  EXPECT_EQ(helper->sources, (std::map<IntfId, Direction>{{e1, rx}, {e2, rx}}));
  // The port source goes: the LAG's Ethernet2 is all that is left.
  session("s1")->srcIntfDel(e1);
  EXPECT_EQ(helper->take(), (Calls{"remove source s1 Ethernet1 rx"}));
  // Shared in two directions: the one that stays is programmed as it wants.
  lagMembers(pc1, {e1, e2});
  source("s1", e1, tx);
  helper->take();
  session("s1")->srcIntfDel(e1);
  EXPECT_EQ(helper->take(), (Calls{"remove source s1 Ethernet1 rx", "add source s1 Ethernet1 rx"}));
  EXPECT_EQ(helper->sources, (std::map<IntfId, Direction>{{e1, rx}, {e2, rx}}));
  EXPECT_TRUE(sm->session("s1")->srcIntf().at(pc1)->programmedPorts().count(e1));
  // Another session's source on the same port is its own: removing it
  // touches only that session's group.
  session("s2")->targetIntfIs(e3, true);
  source("s2", e1, rx);
  helper->take();
  session("s2")->srcIntfDel(e1);
  EXPECT_EQ(helper->take(), (Calls{"remove source s2 Ethernet1 rx"}));
  EXPECT_TRUE(sm->session("s1")->srcIntf().at(pc1)->programmedPorts().count(e1));
  // A session going takes its shared port out once the last holder goes.
  in.mirroringConfig->sessionDel("s1");
  Calls calls = helper->take();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "remove source s1 Ethernet1 rx"), 1);
}

TEST_F(MirroringSmTest, GreDestinationsWaitForTheirTunnel) {
  lagMembers(pc1, {e2, e3});
  start();
  IntfId tunnel("Tunnel1");
  source("g", e1, Direction::directionRx);
  session("g")->targetIntfIs(tunnel, true);
  EXPECT_EQ(status("g").reason, "tunnel Tunnel1 unresolved");
  EXPECT_EQ(status("g").mirrorGroup, 0);
  helper->take();
  in.greTunnelStatusDir->tunnelIs(tunnel, {7, {{IntfId("Vlan10"), pc1}}});
  EXPECT_EQ(helper->take(), (Calls{"create gre g 0 Tunnel1 7 1", "gre member g Port-Channel1 Ethernet2",
                                   "gre member g Port-Channel1 Ethernet3", "add source g Ethernet1 rx"}));
  auto& target = *sm->session("g")->targetIntf().at(tunnel);
  EXPECT_EQ(target.lagsInGreNextHop(), (std::set<IntfId>{pc1}));
  lagMembers(pc1, {e3});
  EXPECT_EQ(helper->take(), (Calls{"lag member gone g Port-Channel1 Ethernet2"}));
  in.greTunnelStatusDir->tunnelIs(tunnel, {8, {{IntfId("Vlan10"), e9}}});
  EXPECT_EQ(helper->take(), (Calls{"update gre g 8", "lag member gone g Port-Channel1 Ethernet3"}));
  EXPECT_TRUE(target.lagsInGreNextHop().empty());
  in.greTunnelStatusDir->tunnelDel(tunnel);
  EXPECT_EQ(helper->take(), (Calls{"remove source g Ethernet1 rx", "remove gre g"}));
  EXPECT_FALSE(status("g").createdInHw);
}

TEST_F(MirroringSmTest, ARestartKeepsWhatTheChipHolds) {
  source("kept", e1, Direction::directionRx);
  session("kept")->targetIntfIs(e9, true);
  source("gre", e2);
  session("gre")->targetIntfIs(IntfId("Tunnel1"), true);
  in.greTunnelStatusDir->tunnelIs(IntfId("Tunnel1"), {5, {{IntfId("Vlan10"), e3}}});
  helper->held = {
      {"kept", 2, e9, false, false, {{e1, Direction::directionRx}, {e3, Direction::directionRx}}, {e9}},
      {"gre", 1, IntfId("Tunnel1"), true, false, {}, {}},
      {"gone", 0, e3, false, false, {}, {e3}},
  };
  start(3);
  // Only what differs is done: the stray source goes, the GRE session is
  // programmed again, the leftover session is removed.
  EXPECT_EQ(helper->take(), (Calls{"hwInit", "remove source kept Ethernet3 rx", "remove gone 0",
                                   "create gre gre 1 Tunnel1 5 1", "add source gre Ethernet2 both"}));
  EXPECT_EQ(status("kept").mirrorGroup, 2);
  EXPECT_TRUE(status("kept").createdInHw);
  EXPECT_EQ(status("kept").sources.at(e1), "active");
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{0}));
}

TEST_F(MirroringSmTest, CleanupDisabledLeavesLeftoverSessions) {
  helper->held = {{"gone", 0, e3, false, false, {}, {e3}}};
  start(0);
  sm->disableCleanupOnRestartIs(true);
  in.hwCapability->maxSupportedSessionsIs(2);
  EXPECT_EQ(helper->take(), (Calls{"hwInit"}));
  EXPECT_EQ(freeGroups(), (std::vector<std::uint8_t>{1}));
}

TEST_F(MirroringSmTest, CutThroughRefusesIngressAndEgressToOneDestination) {
  in.hwCapability->cutThroughModeIs(true);
  start();
  session("s1")->targetIntfIs(e9, true);
  source("s1", e1, Direction::directionRx);
  source("s1", e2, Direction::directionTx);
  EXPECT_EQ(status("s1").sources.at(e2), "cut-through");
  ASSERT_EQ(logs->count("DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH"), 1u);
  EXPECT_EQ(logs->events.back().message, "Attempt to add mirror source Ethernet2 in mirror session s1 has failed.");
  in.hwCapability->cutThroughModeIs(false);
  EXPECT_EQ(status("s1").sources.at(e2), "active");
}

TEST_F(MirroringSmTest, VerificationReportsWhatTheChipDisagreesWith) {
  start();
  session("s1")->targetIntfIs(e9, true);
  source("s1", e1);
  helper->sourceDiff = "source Ethernet1 not in hardware";
  Orb::VerifyReport report;
  sm->handleVerify(report);
  EXPECT_EQ(report.lines(), (std::vector<std::string>{"s1: source Ethernet1 not in hardware"}));
}

TEST(MirroringLogTest, EventsCarryTheirStoredTexts) {
  // Emitting registers them.
  auto sink = std::make_shared<Log::CaptureSink>();
  Log::sinkIs(sink);
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  auto helper = Vex::make<RecordingMirrorHelper>();
  Orb::MirroringSmInputs in{ocsd,
                            helper,
                            Vex::make<Mirroring::Config>("c"),
                            Vex::make<Mirroring::HwCapability>("h"),
                            Vex::make<Mirroring::HwStatus>("s"),
                            nullptr,
                            nullptr};
  in.hwCapability->maxSupportedSessionsIs(1);
  auto sm = Orb::mirroringSmFactory(in);
  auto internal = in.mirroringConfig->sessionIs("i");
  internal->isInternalIs(true);
  in.mirroringConfig->sessionIs("a")->targetIntfIs(IntfId("Ethernet1"), true);
  internal->targetIntfIs(IntfId("Ethernet2"), true);
  const auto* def = Log::lookup("DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE");
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->recommendedAction,
            "To solve this issue, unprogram a mirror sessoion from all the modules that have all the mirror resources "
            "being used.");
  sm.reset();
  Log::sinkIs(nullptr);
}

TEST(MirroringHelperDeathTest, OperationsNotProvidedStop) {
  OrbHelper::MirroringSmHelper helper;
  EXPECT_DEATH(helper.createMirror("s", 1, 0, IntfId("Ethernet1"), true),
               "false && \"Function createMirror\\(\\) must be implemented by derived class\"");
  EXPECT_DEATH(helper.freeMirrorSources(Mirroring::Config("c"), "s", Direction::directionRx),
               "Function freeMirrorSources\\(\\) must be implemented by derived class");
}

}  // namespace
