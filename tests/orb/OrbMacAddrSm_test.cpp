// The MAC address machine through its inputs, a recording MAC helper and
// simulated time.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "Orb/OrbTrace.h"

#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::EntryType;
using Bridging::MacVlanPair;
using Bridging::VlanId;
using Nexo::EthAddr;
using Nexo::IntfId;
using OrbTypes::MacAddressTableEntry;
using OrbTypes::RemoteMacAddressTableEntry;

// A chip that records every call and answers with planned statuses.
class RecordingMacHelper : public OrbHelper::OrbHelperMacAddrSm {
 public:
  std::vector<std::string> calls;
  std::deque<std::uint32_t> answers;  // next add statuses; success when empty
  std::map<MacVlanPair, IntfId> hw;

  std::uint32_t next() {
    if (answers.empty()) return 0;
    auto status = answers.front();
    answers.pop_front();
    return status;
  }
  std::uint32_t addHost(const MacVlanPair& key, const IntfId& intf, std::uint32_t, bool, EntryType) override {
    auto status = next();
    calls.push_back(fmt::format("add {} {} -> {}", key.addr.stringValue(), intf.stringValue(), status));
    if (status == 0) hw[key] = intf;
    return status;
  }
  std::uint32_t addLearntLocalAndRemoveRemoteHost(const MacVlanPair& key, const IntfId& intf, EntryType) override {
    calls.push_back("remote-to-local " + key.addr.stringValue() + " " + intf.stringValue());
    hw[key] = intf;
    return 0;
  }
  std::uint32_t removeHost(const MacVlanPair& key, EntryType) override {
    calls.push_back("remove " + key.addr.stringValue());
    hw.erase(key);
    return 0;
  }
  std::uint32_t addRemoteHost(const MacVlanPair& key, const IntfId& intf, std::uint64_t nextHop, std::uint32_t, bool,
                              EntryType, bool) override {
    auto status = next();
    calls.push_back(
        fmt::format("remote {} {} nh {} -> {}", key.addr.stringValue(), intf.stringValue(), nextHop, status));
    if (status == 0) hw[key] = intf;
    return status;
  }
  void configureAgingTime(std::uint32_t seconds) override { calls.push_back(fmt::format("aging {}", seconds)); }
  void flushAll() override { calls.push_back("flushAll"); }
  void flushVlan(VlanId vlanId) override { calls.push_back(fmt::format("flushVlan {}", vlanId.value())); }
  void flushVlanPort(int vlan, const IntfId& intf) override {
    calls.push_back(fmt::format("flushVlanPort {} {}", vlan, intf.stringValue()));
  }
  void flushVlanLag(int vlan, const IntfId& lag) override {
    calls.push_back(fmt::format("flushVlanLag {} {}", vlan, lag.stringValue()));
  }
  void removeLag(const IntfId& lag) override { calls.push_back("removeLag " + lag.stringValue()); }
  void enableLearning(const IntfId& intf, bool on) override {
    calls.push_back(fmt::format("learning {} {}", intf.stringValue(), on));
  }
  void enableLearningOnVlan(VlanId vlanId, bool on) override {
    calls.push_back(fmt::format("vlan-learning {} {}", vlanId.value(), on));
  }
};

MacVlanPair key(std::uint64_t addr, int vlan = 10) { return {EthAddr(addr), VlanId(vlan)}; }

MacAddressTableEntry row(const MacVlanPair& k, const char* intf, EntryType type = EntryType::entryDynamic) {
  return MacAddressTableEntry{k, IntfId(intf), type, {}, 0.0};
}

// A remote entry behind Vxlan1: through a tunnel group, or an L2 RIB object.
RemoteMacAddressTableEntry remoteEntry(const MacVlanPair& k, EntryType type, std::uint32_t tunnelGroup = 0) {
  RemoteMacAddressTableEntry r;
  r.macVlanPair = k;
  r.intf = IntfId("Vxlan1");
  r.entryType = type;
  r.swTunnelGroupId = Orb::SwTunnelGroupId{tunnelGroup};
  return r;
}
RemoteMacAddressTableEntry remoteEntry(const MacVlanPair& k, L2Rib::ObjTuple tuple) {
  auto r = remoteEntry(k, EntryType::entryEvpnDynamicRemote);
  r.hasL2RibObjTuple = true;
  r.l2RibObjTuple = tuple;
  return r;
}

class MacAddrSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingMacHelper> helper = Vex::make<RecordingMacHelper>();
  // Every input fresh; the names below are the ones the tests write.
  Orb::MacAddrSmInputs in = Orb::macAddrSmInputsFactory(ocsd, helper, nullptr);
  const Vex::Ptr<OrbTypes::MacTable>& macTable = in.macTable;
  const Vex::Ptr<OrbTypes::MacTable>& routerMac = in.routerMacTable;
  const Vex::Ptr<Bridging::Status>& status = in.bridgingStatus;
  const Vex::Ptr<Bridging::Config>& config = in.bridgingConfig;
  const Vex::Ptr<Interface::EthPhyIntfConfigDir>& intfConfig = in.ethPhyIntfConfigDir;
  const Vex::Ptr<Interface::EthPhyIntfStatusDir>& intfStatus = in.ethPhyIntfStatusDir;
  Vex::Ptr<Orb::VlanHelper>& vlans = in.vlanHelper;  // none unless a test sets one: no membership to go by
  const Vex::Ptr<Mlag::HostTable>& mlagHosts = in.mlagHostTable;
  const Vex::Ptr<Mlag::Status>& mlag = in.mlagStatus;
  const Vex::Ptr<FastServerFailover::Status>& fsf = in.fsfStatus;
  const Vex::Ptr<Vxlan::VxlanConfigDir>& vxlan = in.vxlanConfigDir;
  const Vex::Ptr<Orb::VXLAN::RemoteMacInfoDir>& rmac = in.rmacInfoDir;
  const Vex::Ptr<Bridging::RemoteMacTable>& remote = in.remoteHostTable;
  const Vex::Ptr<Dot1x::HostTable>& dot1xHosts = in.dot1xHostTable;
  const Vex::Ptr<Dot1x::Status>& dot1x = in.dot1xStatus;
  const Vex::Ptr<L2Rib::HostInput>& l2RibInput = in.l2RibInput;
  const Vex::Ptr<L2Rib::HostOutput>& l2Rib = in.l2RibOutput;
  const Vex::Ptr<L2Rib::LoadBalanceOutput>& lbs = in.lbOutput;
  const Vex::Ptr<Orb::SwTunnelGroupIdMap>& tunnels = in.swTunnelIdMap;
  const Vex::Ptr<Orb::ObjTupleToHwId>& hwIds = in.objTupleToHwId;
  const Vex::Ptr<Bridging::HostTableFlushRequestDir>& flushes = in.flushRequestDir;
  const Vex::Ptr<Bridging::HostTableFlushReplyDir>& replies = in.flushReplyDir;
  std::shared_ptr<Log::CaptureSink> logs = std::make_shared<Log::CaptureSink>();
  Vex::Ptr<Orb::MacAddrSm> sm;

  void SetUp() override {
    Log::sinkIs(logs);
    for (int i = 1; i <= 4; ++i) ocsd->intfIs(IntfId(fmt::format("Ethernet{}", i)), true);
  }
  void TearDown() override {
    sm.reset();
    Log::sinkIs(nullptr);
  }
  void start() {
    sm = Orb::macAddrSmFactory(in);
    helper->calls.clear();
  }
  void settle() { loop.runUntilIdle(); }
  void learn(const MacVlanPair& k, const char* intf) { macTable->macEntryIs(k, row(k, intf)); }
};

TEST_F(MacAddrSmTest, LearnedAddressIsProgrammedAndPublished) {
  start();
  learn(key(1), "Ethernet1");
  EXPECT_TRUE(helper->calls.empty());  // reviewed and programmed in slices
  settle();
  EXPECT_EQ(helper->calls, std::vector<std::string>{"add 00:00:00:00:00:01 Ethernet1 -> 0"});
  ASSERT_TRUE(status->learnedHost(key(1)));
  EXPECT_EQ(status->learnedHost(key(1))->intf, IntfId("Ethernet1"));
  EXPECT_EQ(status->learnedHost(key(1))->entryType, EntryType::entryDynamic);
  EXPECT_TRUE(l2RibInput->hostHas(key(1)));
  EXPECT_EQ(sm->updateListSize(), 0u);
}

TEST_F(MacAddrSmTest, MoveBetweenPortsRaisesMovesByExactlyOne) {
  start();
  learn(key(1), "Ethernet1");
  settle();
  loop.advance(3);
  learn(key(1), "Ethernet2");
  settle();
  EXPECT_EQ(status->learnedHost(key(1))->intf, IntfId("Ethernet2"));
  EXPECT_EQ(status->learnedHost(key(1))->moves, Keel::Seqno32(1));
  EXPECT_DOUBLE_EQ(status->learnedHost(key(1))->lastMoveTime, 3.0);
  learn(key(1), "Ethernet2");  // the same place again: no move
  macTable->macEntryIs(key(1), MacAddressTableEntry{key(1), IntfId("Ethernet2"), EntryType::entryDynamic, {}, 9});
  settle();
  EXPECT_EQ(status->learnedHost(key(1))->moves, Keel::Seqno32(1));
}

TEST_F(MacAddrSmTest, RemoteToLocalMoveRaisesMovesAndUsesTheSwap) {
  vxlan->vlanToVniIs(VlanId(10), 10010);
  start();
  remote->receivedHostIs(key(1), remoteEntry(key(1), EntryType::entryReceivedRemote, 7));
  settle();
  ASSERT_TRUE(status->remoteStatusTableHas(key(1)));
  EXPECT_EQ(rmac->nextHopRefCount(7), 1u);
  EXPECT_EQ(rmac->vlanRefCount(VlanId(10)), 1u);
  // The host moved here: the chip learns it while the remote entry is still
  // advertised, and the local learn wins by its move count.
  learn(key(1), "Ethernet3");
  settle();
  EXPECT_EQ(helper->calls.back(), "remote-to-local 00:00:00:00:00:01 Ethernet3");
  EXPECT_FALSE(status->remoteStatusTableHas(key(1)));
  EXPECT_EQ(status->learnedHost(key(1))->moves, Keel::Seqno32(1));
  EXPECT_FALSE(rmac->nextHopRefCountHas(7));
  EXPECT_FALSE(rmac->vlanRefCountHas(VlanId(10)));
}

TEST_F(MacAddrSmTest, RemoteEntryWithoutVniMappingIsIgnored) {
  start();
  remote->configuredHostIs(key(2), remoteEntry(key(2), EntryType::entryStaticRemote));
  settle();
  EXPECT_FALSE(status->remoteStatusTableHas(key(2)));
  EXPECT_TRUE(helper->calls.empty());
}

TEST_F(MacAddrSmTest, StaticEntryStandsOverLearnedAndAgedEntriesGo) {
  start();
  config->fdbConfigIs(key(5), row(key(5), "Ethernet4", EntryType::entryStatic));
  settle();
  learn(key(5), "Ethernet1");
  settle();
  EXPECT_EQ(status->learnedHost(key(5))->intf, IntfId("Ethernet4"));
  EXPECT_EQ(status->learnedHost(key(5))->entryType, EntryType::entryStatic);
  config->fdbConfigDel(key(5));
  settle();
  EXPECT_EQ(status->learnedHost(key(5))->intf, IntfId("Ethernet1"));
  macTable->macEntryDel(key(5));  // aged out of hardware
  settle();
  EXPECT_FALSE(status->learnedHost(key(5)));
  EXPECT_EQ(helper->calls.back(), "remove 00:00:00:00:00:05");
  EXPECT_FALSE(l2RibInput->hostHas(key(5)));
}

TEST_F(MacAddrSmTest, FullTableLogsOncePerChangeAndProgramsWhenRoomComes) {
  start();
  helper->answers = {2, 2, 2, 2};
  learn(key(1), "Ethernet1");
  settle();
  EXPECT_EQ(logs->count("ETH_MACADDRBANKFULL"), 1u);
  EXPECT_EQ(logs->events[0].message,
            "MAC address 00:00:00:00:00:01 on VLAN 10 (dynamic) could not be programmed: the hardware MAC table is "
            "full");
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_EQ(sm->updateListSize(), 1u);
  loop.advance(1);  // retried after the retry delay, until the table has room
  EXPECT_TRUE(status->learnedHost(key(1)));
  EXPECT_EQ(logs->count("ETH_MACADDRBANKFULL"), 1u);
  EXPECT_EQ(sm->updateListSize(), 0u);
}

TEST_F(MacAddrSmTest, BusyChipRetriesWithoutLoss) {
  start();
  helper->answers = {1, 0, 1, 1};
  for (int i = 1; i <= 3; ++i) learn(key(i), "Ethernet2");
  settle();
  loop.advance(1);
  for (int i = 1; i <= 3; ++i) EXPECT_TRUE(status->learnedHost(key(i))) << i;
  EXPECT_EQ(sm->updateListSize(), 0u);
  EXPECT_EQ(logs->count("ETH_MACADDRBANKFULL"), 0u);
}

TEST_F(MacAddrSmTest, OtherStatusMeansNotProgrammed) {
  start();
  learn(key(1), "Ethernet1");
  settle();
  helper->answers = {5};
  learn(key(1), "Ethernet2");
  settle();
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_EQ(sm->updateListSize(), 0u);
}

// A link going down or a port going away reviews the hosts on it without
// holding the thread: the walk over the learned hosts goes in slices.
TEST_F(MacAddrSmTest, WalksOverTheHostsOfAnInterfaceGoInSlices) {
  start();
  constexpr int perPort = 20000;
  for (int i = 0; i < 2 * perPort; ++i) {
    learn(key(0x10000 + i, 1 + i % 50), i % 2 ? "Ethernet2" : "Ethernet1");
  }
  settle();
  ASSERT_EQ(status->learnedHostCount(), static_cast<std::size_t>(2 * perPort));
  loop.simulatedTime()->stepIs(0.0001);  // every reading of the time costs 0.1 ms
  intfStatus->linkUpIs(IntfId("Ethernet2"), false);
  EXPECT_TRUE(sm->intfHostWalkPending());  // the reaction only started it
  ocsd->intfDel(IntfId("Ethernet1"));
  settle();
  loop.simulatedTime()->stepIs(0);
  EXPECT_FALSE(sm->intfHostWalkPending());
  EXPECT_GT(sm->intfHostWalkSlices(), 10u);
  EXPECT_LE(sm->longestSlice(), sm->macTableReviewQuanta + 0.01);
  // The gone port's hosts went; those on the port whose link is down stay
  // while the chip holds them.
  std::size_t onEthernet1 = 0, onEthernet2 = 0;
  status->forEachLearnedHost([&](const MacVlanPair&, const Bridging::LearnedHost& host) {
    ++(host.intf == IntfId("Ethernet1") ? onEthernet1 : onEthernet2);
  });
  EXPECT_EQ(onEthernet1, 0u);
  EXPECT_EQ(onEthernet2, static_cast<std::size_t>(perPort));
  EXPECT_EQ(sm->updateListSize(), 0u);
}

TEST_F(MacAddrSmTest, BacklogDrainsInSlicesBoundedByTheQuantum) {
  start();
  sm->deferMacTableUpdate = false;
  constexpr int entries = 100000;
  for (int i = 0; i < entries; ++i) learn(key(0x10000 + i, 1 + i % 4094), fmt::format("Ethernet{}", 1 + i % 4).c_str());
  EXPECT_EQ(sm->updateListSize(), static_cast<std::size_t>(entries));
  loop.simulatedTime()->stepIs(0.0001);  // every reading of the time costs 0.1 ms
  settle();
  loop.simulatedTime()->stepIs(0);
  EXPECT_EQ(sm->updateListSize(), 0u);
  EXPECT_EQ(status->learnedHostCount(), static_cast<std::size_t>(entries));
  EXPECT_GT(sm->slices(), 50u);
  EXPECT_LE(sm->longestSlice(), sm->macModifyBacklogQuantum + 0.0005);
}

// Reviews stop queueing changes far ahead of programming, but changes the
// chip keeps refusing must not stall them: every key is still reviewed.
TEST_F(MacAddrSmTest, ReviewsGiveWayToProgrammingWithoutStallingOnRefusals) {
  start();
  sm->macReviewAheadLimit = 8;
  helper->answers.assign(1000, 2);  // the table stays full
  for (int i = 0; i < 100; ++i) learn(key(0x10000 + i), "Ethernet1");
  settle();
  EXPECT_EQ(sm->macTableUpdateListSize(), 0u);
  EXPECT_EQ(sm->updateListSize(), 100u);
  helper->answers.clear();
  loop.advance(1);
  EXPECT_EQ(sm->updateListSize(), 0u);
  EXPECT_EQ(status->learnedHostCount(), 100u);
}

TEST_F(MacAddrSmTest, QueuedChangeForAnInvalidVlanFails) {
  start();
  RemoteMacAddressTableEntry bad;
  bad.macVlanPair = MacVlanPair{EthAddr(1), VlanId()};
  bad.intf = IntfId("Ethernet1");
  sm->addToUpdateList(bad, Orb::EntryEvaluationAction::addOrModify, false, false);
  try {
    sm->updateQueuedAddresses();
    ADD_FAILURE();
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
  }
}

// A row the chip layer writes with a VLAN outside 1..4094 is bad input: it
// is set aside with a trace, the clocks go on, and other learns with them.
TEST_F(MacAddrSmTest, HardwareRowWithAnInvalidVlanIsSetAside) {
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(6);
  start();
  MacVlanPair bad{EthAddr(1), VlanId()};
  macTable->macEntryIs(bad, MacAddressTableEntry{bad, IntfId("Ethernet1"), EntryType::entryDynamic, {}, 0});
  learn(key(2), "Ethernet1");
  EXPECT_NO_THROW(settle());
  EXPECT_EQ(helper->calls, std::vector<std::string>{"add 00:00:00:00:00:02 Ethernet1 -> 0"});
  EXPECT_EQ(sm->updateListSize(), 0u);
  EXPECT_EQ(sm->macTableUpdateListSize(), 0u);
  EXPECT_TRUE(traces->contains("vlan out of range"));
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(0);
  Blip::sinkIs(nullptr);
}

// Learns count only on ports that hardware lets the VLAN's frames in on; a
// LAG and its member ports share their VLANs. A row turned down is looked
// at again when a VLAN update completes.
TEST_F(MacAddrSmTest, LearnsCountOnlyOnVlanMembers) {
  vlans = Vex::make<Orb::VlanHelper>();
  auto member = [&](const char* intf, bool tagged, bool ingress) {
    auto pvm = vlans->getPortVlanMembership(IntfId(intf));
    if (tagged) {
      pvm->taggedVlanIs(VlanId(10));
    } else {
      pvm->untaggedVlanIs(VlanId(10));
    }
    if (ingress) pvm->ingressVlanIs(VlanId(10));
  };
  member("Ethernet1", false, true);
  member("Ethernet2", false, false);  // egress only
  member("Port-Channel1", true, true);
  ocsd->lagToPortIs(IntfId("Port-Channel1"), Orb::OrbLagPortList{{{IntfId("Ethernet3"), {true, true}}}});
  ocsd->portToLagIs(IntfId("Ethernet3"), IntfId("Port-Channel1"));
  start();
  learn(key(1), "Ethernet1");
  learn(key(2), "Ethernet2");
  learn(key(3), "Ethernet3");
  learn(key(4, 20), "Ethernet1");
  settle();
  EXPECT_TRUE(status->learnedHost(key(1)));
  EXPECT_FALSE(status->learnedHost(key(2)));
  EXPECT_TRUE(status->learnedHost(key(3)));
  EXPECT_FALSE(status->learnedHost(key(4, 20)));
  EXPECT_EQ(sm->updateListSize(), 0u);
  member("Ethernet2", false, true);
  vlans->lastCompletedUpdateStatus()->hwStatusIs(VlanId(10), Vex::make<Orb::VlanHwUpdateStatus::Status>(VlanId(10)));
  settle();
  EXPECT_TRUE(status->learnedHost(key(2)));
}

TEST_F(MacAddrSmTest, LearningControlPerPortAndVlan) {
  start();
  intfConfig->macLearningDisabledIs(IntfId("Ethernet2"));
  EXPECT_EQ(helper->calls.back(), "learning Ethernet2 false");
  learn(key(1), "Ethernet2");  // ignored: learning is off there
  settle();
  EXPECT_FALSE(status->learnedHost(key(1)));
  intfConfig->macLearningDisabledDel(IntfId("Ethernet2"));
  EXPECT_EQ(helper->calls.back(), "learning Ethernet2 true");
  config->macLearningDisabledVlanIs(VlanId(10));
  EXPECT_EQ(helper->calls.back(), "vlan-learning 10 false");
  learn(key(2), "Ethernet1");
  settle();
  EXPECT_FALSE(status->learnedHost(key(2)));
  // The MLAG peer link never learns.
  mlag->peerLinkIntfIs(IntfId("Ethernet4"));
  EXPECT_EQ(helper->calls.back(), "learning Ethernet4 false");
}

TEST_F(MacAddrSmTest, UnknownInterfacesAndFailedServersAreIgnored) {
  start();
  learn(key(1), "Ethernet40");
  fsf->failedServerIs(EthAddr(2));
  learn(key(2), "Ethernet1");
  dot1x->restrictedIntfIs(IntfId("Ethernet3"));
  learn(key(3), "Ethernet3");
  settle();
  EXPECT_EQ(status->learnedHostCount(), 0u);
  fsf->failedServerDel(EthAddr(2));
  settle();
  EXPECT_TRUE(status->learnedHost(key(2)));
}

TEST_F(MacAddrSmTest, PeerEntriesCountOnlyWhileMlagAllows) {
  ocsd->lagToPortIs(IntfId("Port-Channel5"), Orb::OrbLagPortList{});
  start();
  mlagHosts->hostEntryIs(key(9), row(key(9), "Port-Channel5", EntryType::entryPeerDynamic));
  settle();
  EXPECT_FALSE(status->learnedHost(key(9)));
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(IntfId("Port-Channel100"));
  settle();
  EXPECT_EQ(status->learnedHost(key(9))->intf, IntfId("Port-Channel5"));
  mlagHosts->hostEntryIs(key(8), row(key(8), "Port-Channel77", EntryType::entryPeerDynamic));
  settle();
  EXPECT_EQ(status->learnedHost(key(8))->intf, IntfId("Port-Channel100"));  // over the peer link
  mlag->mlagStateValidIs(false);
  settle();
  EXPECT_FALSE(status->learnedHost(key(9)));
}

TEST_F(MacAddrSmTest, PeerTableIsReviewedInSlicesAfterAPeerLinkChange) {
  start();
  for (int i = 1; i <= 500; ++i) mlagHosts->hostEntryIs(key(i), row(key(i), "Ethernet9", EntryType::entryPeerDynamic));
  settle();
  EXPECT_EQ(status->learnedHostCount(), 0u);  // no MLAG yet
  mlag->mlagStateValidIs(true);
  loop.simulatedTime()->stepIs(0.001);
  mlag->peerLinkIntfIs(IntfId("Ethernet4"));
  EXPECT_TRUE(sm->mlagHostTableBookmark());
  settle();
  loop.simulatedTime()->stepIs(0);
  EXPECT_FALSE(sm->mlagHostTableBookmark());
  EXPECT_EQ(status->learnedHostCount(), 500u);
  EXPECT_EQ(status->learnedHost(key(7))->intf, IntfId("Ethernet4"));
}

TEST_F(MacAddrSmTest, PeerHostsOfAnMlagInterfaceAreReviewedInSlicesWhenItComesAndGoes) {
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(IntfId("Port-Channel100"));
  start();
  for (int i = 1; i <= 300; ++i)
    mlagHosts->hostEntryIs(key(i), row(key(i), "Port-Channel5", EntryType::entryPeerDynamic));
  mlagHosts->hostEntryIs(key(999), row(key(999), "Port-Channel6", EntryType::entryPeerDynamic));
  settle();
  EXPECT_EQ(status->learnedHost(key(7))->intf, IntfId("Port-Channel100"));  // no Port-Channel5 here yet
  loop.simulatedTime()->stepIs(0.001);
  ocsd->lagToPortIs(IntfId("Port-Channel5"), Orb::OrbLagPortList{});
  EXPECT_TRUE(sm->lagToHostBookmark(IntfId("Port-Channel5")));
  EXPECT_FALSE(sm->lagToHostBookmark(IntfId("Port-Channel6")));
  loop.runUntilIdle();
  loop.simulatedTime()->stepIs(0);
  EXPECT_FALSE(sm->lagToHostBookmark(IntfId("Port-Channel5")));
  EXPECT_EQ(status->learnedHost(key(7))->intf, IntfId("Port-Channel5"));
  EXPECT_EQ(status->learnedHost(key(999))->intf, IntfId("Port-Channel100"));
  // A host that moved to another interface is no longer walked with this one.
  mlagHosts->hostEntryIs(key(1), row(key(1), "Port-Channel6", EntryType::entryPeerDynamic));
  settle();
  ocsd->lagToPortDel(IntfId("Port-Channel5"));
  settle();
  EXPECT_EQ(status->learnedHost(key(7))->intf, IntfId("Port-Channel100"));
  EXPECT_EQ(status->learnedHost(key(1))->intf, IntfId("Port-Channel100"));
}

TEST_F(MacAddrSmTest, StaticEntriesCollidingWithRouterMacsAreSetAsideAndCountedOnce) {
  routerMac->macEntryIs(key(4), row(key(4), "Cpu"));
  start();
  config->fdbConfigIs(key(4), row(key(4), "Ethernet1", EntryType::entryStatic));
  settle();
  EXPECT_FALSE(status->learnedHost(key(4)));
  EXPECT_EQ(sm->collidingStaticEntryWithRouterMacEntry(), 1u);
  // Looked at again and again, it is still one colliding entry.
  sm->reevaluateEntry(key(4));
  config->fdbConfigIs(key(4), row(key(4), "Ethernet2", EntryType::entryStatic));
  settle();
  EXPECT_EQ(sm->collidingStaticEntryWithRouterMacEntry(), 1u);
  routerMac->macEntryIs(key(5), row(key(5), "Cpu"));
  config->fdbConfigIs(key(5), row(key(5), "Ethernet1", EntryType::entryStatic));
  settle();
  EXPECT_EQ(sm->collidingStaticEntryWithRouterMacEntry(), 2u);
  // The static entry goes: one fewer.
  config->fdbConfigDel(key(5));
  settle();
  EXPECT_EQ(sm->collidingStaticEntryWithRouterMacEntry(), 1u);
  // The router MAC goes: the static entry is programmed, nothing collides.
  routerMac->macEntryDel(key(4));
  settle();
  EXPECT_EQ(sm->collidingStaticEntryWithRouterMacEntry(), 0u);
  ASSERT_TRUE(status->learnedHost(key(4)));
  EXPECT_EQ(status->learnedHost(key(4))->intf, IntfId("Ethernet2"));
}

TEST_F(MacAddrSmTest, CandidatesOfAllSourcesResolveInOrderOnAFullTie) {
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(IntfId("Ethernet4"));
  start();
  auto k = key(0x42);
  RemoteMacAddressTableEntry fromRib;
  fromRib.macVlanPair = k;
  fromRib.intf = IntfId("Ethernet1");
  fromRib.entryType = EntryType::entryConfiguredDynamic;
  l2Rib->hostIs(k, fromRib);
  EXPECT_EQ(sm->configuredEntry(k)->intf, IntfId("Ethernet1"));
  RemoteMacAddressTableEntry fromEvpn = fromRib;
  fromEvpn.intf = IntfId("Ethernet2");
  remote->receivedHostIs(k, fromEvpn);
  EXPECT_EQ(sm->configuredEntry(k)->intf, IntfId("Ethernet2"));
  config->fdbConfigIs(k, row(k, "Ethernet3", EntryType::entryConfiguredDynamic));
  EXPECT_EQ(sm->configuredEntry(k)->intf, IntfId("Ethernet3"));
  mlagHosts->hostEntryIs(k, row(k, "Ethernet9", EntryType::entryConfiguredDynamic));
  EXPECT_EQ(sm->configuredEntry(k)->intf, IntfId("Ethernet4"));  // the peer's, over the peer link
  // A static candidate wins by rank wherever it stands.
  fromRib.entryType = EntryType::entryStatic;
  l2Rib->hostIs(k, fromRib);
  EXPECT_EQ(sm->configuredEntry(k)->intf, IntfId("Ethernet1"));
}

TEST_F(MacAddrSmTest, EntriesGoWithTheirInterface) {
  start();
  learn(key(1), "Ethernet1");
  learn(key(2), "Ethernet2");
  settle();
  ocsd->intfDel(IntfId("Ethernet1"));
  settle();
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_TRUE(status->learnedHost(key(2)));
}

TEST_F(MacAddrSmTest, LearnAndAgeEventsFromTheChip) {
  start();
  sm->handleAddressLearnt(row(key(3), "Ethernet2"));
  settle();
  EXPECT_EQ(status->learnedHost(key(3))->intf, IntfId("Ethernet2"));
  sm->handleAddressAged(key(3));
  settle();
  EXPECT_FALSE(status->learnedHost(key(3)));
}

TEST_F(MacAddrSmTest, RemoteEntryFollowsItsL2RibObject) {
  vxlan->vlanToVniIs(VlanId(10), 10010);
  start();
  hwIds->hwIdIs({L2Rib::objTypeDest, 77}, 4000);
  l2Rib->hostIs(key(6), remoteEntry(key(6), {L2Rib::objTypeDest, 77}));
  settle();
  EXPECT_EQ(helper->calls.back(), "remote 00:00:00:00:00:06 Vxlan1 nh 4000 -> 0");
  EXPECT_EQ(rmac->nextHopRefCount(4000), 1u);
  l2Rib->hostDel(key(6));
  settle();
  EXPECT_EQ(helper->calls.back(), "remove 00:00:00:00:00:06");
  EXPECT_FALSE(rmac->nextHopRefCountHas(4000));
  EXPECT_FALSE(status->remoteStatusTableHas(key(6)));
}

TEST_F(MacAddrSmTest, NewHardwareIdOfAGroupReprogramsOnlyItsHosts) {
  vxlan->vlanToVniIs(VlanId(10), 10010);
  sm = Orb::macAddrSmFactory(in);
  auto remoteHost = [&](std::uint64_t addr, L2Rib::ObjTuple tuple) {
    l2Rib->hostIs(key(addr), remoteEntry(key(addr), tuple));
  };
  L2Rib::ObjTuple group{L2Rib::objTypeLoadBalance, 5}, other{L2Rib::objTypeDest, 9};
  lbs->lbIs(5, {7, 8});
  hwIds->hwIdIs(group, 4000);
  hwIds->hwIdIs(other, 5000);
  remoteHost(1, group);
  remoteHost(2, group);
  remoteHost(3, other);
  settle();
  EXPECT_EQ(rmac->nextHopRefCount(4000), 2u);
  EXPECT_EQ(sm->l2RibObjCache().dependantHosts({L2Rib::objTypeDest, 7}).size(), 2u);

  helper->calls.clear();
  hwIds->hwIdIs(group, 4100);
  settle();
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"remote 00:00:00:00:00:01 Vxlan1 nh 4100 -> 0",
                                                     "remote 00:00:00:00:00:02 Vxlan1 nh 4100 -> 0"}));
  EXPECT_FALSE(rmac->nextHopRefCountHas(4000));
  EXPECT_EQ(rmac->nextHopRefCount(4100), 2u);
  EXPECT_EQ(rmac->nextHopRefCount(5000), 1u);
  helper->calls.clear();
  hwIds->hwIdIs(group, 4100);  // the same id again: nothing to do
  settle();
  EXPECT_TRUE(helper->calls.empty());
}

TEST_F(MacAddrSmTest, HitlessRestartRecoversRemoteEntriesTheHardwareKept) {
  // Before the restart: two remote entries programmed, whose rows the state
  // database kept; the counts are stale.
  vxlan->vlanToVniIs(VlanId(10), 10010);
  auto remoteRow = [](std::uint64_t addr, std::uint32_t group) {
    return remoteEntry(key(addr), EntryType::entryReceivedRemote, group);
  };
  status->remoteStatusTableIs(key(1), remoteRow(1, 300));
  status->remoteStatusTableIs(key(2), remoteRow(2, 300));
  rmac->nextHopRefCountIs(300, 9);
  ocsd->operationalModeIs(Orb::HwOperationalMode::hwModeHitlessRestart);
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(6);
  start();
  settle();
  EXPECT_TRUE(sm->remoteMacRecoveryHelperSm() && !sm->remoteMacRecoveryHelperSm()->complete());
  EXPECT_EQ(sm->remoteMacRecoveryHelperSm()->recovered(), 2u);
  EXPECT_TRUE(traces->contains("Recovered remote MAC 00:00:00:00:00:01 vlan 10 next hop 300 during hitless restart"));
  EXPECT_EQ(rmac->nextHopRefCount(300), 2u);
  EXPECT_TRUE(helper->calls.empty());  // nothing reprogrammed, nothing removed yet

  // The control plane sends one again, unchanged: the hardware has it.
  remote->receivedHostIs(key(1), remoteRow(1, 300));
  settle();
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_TRUE(traces->contains("during hitless recovery"));
  // Everything is sent: what was not sent again goes.
  remote->remoteMacsReadyIs(true);
  settle();
  EXPECT_TRUE(sm->remoteMacRecoveryHelperSm()->complete());
  EXPECT_EQ(helper->calls, std::vector<std::string>{"remove 00:00:00:00:00:02"});
  EXPECT_TRUE(status->remoteStatusTableHas(key(1)));
  EXPECT_EQ(rmac->nextHopRefCount(300), 1u);
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(0);
  Blip::sinkIs(nullptr);
}

TEST_F(MacAddrSmTest, OrdinaryStartDropsRemoteRowsNoSourceWants) {
  vxlan->vlanToVniIs(VlanId(10), 10010);
  status->remoteStatusTableIs(key(1), remoteEntry(key(1), EntryType::entryReceivedRemote));
  start();
  settle();
  EXPECT_TRUE(sm->remoteMacRecoveryHelperSm()->complete());
  EXPECT_FALSE(status->remoteStatusTableHas(key(1)));
}

TEST_F(MacAddrSmTest, ZombieMachineIgnoresLearns) {
  start();
  sm->vexDoZombieReactors(true);
  learn(key(1), "Ethernet1");
  settle();
  EXPECT_TRUE(helper->calls.empty());
}

TEST_F(MacAddrSmTest, AgingTimeIsRoundedWhenProgrammed) {
  config->hostAgingTimeIs(299.6);
  start();
  config->hostAgingTimeIs(120.4);
  EXPECT_EQ(helper->calls, std::vector<std::string>{"aging 120"});
  sm.reset();
  helper->calls.clear();
  config->hostAgingTimeIs(299.6);
  sm = Orb::macAddrSmFactory(in);
  EXPECT_EQ(helper->calls.front(), "aging 300");
}

TEST_F(MacAddrSmTest, FlushRequestsAreCondensedCarriedOutAndAnswered) {
  ocsd->lagToPortIs(IntfId("Port-Channel1"), Orb::OrbLagPortList{{{IntfId("Ethernet3"), {true, true}}}});
  start();
  flushes->requestIs("a", Bridging::HostTableFlushRequest{0, IntfId("Ethernet1"), {}});
  flushes->requestIs("b", Bridging::HostTableFlushRequest{20, IntfId("Ethernet2"), {}});
  flushes->requestIs("c", Bridging::HostTableFlushRequest{30, {}, {}});
  flushes->requestIs("d", Bridging::HostTableFlushRequest{0, IntfId("Port-Channel1"), {}});
  flushes->requestIs("e", Bridging::HostTableFlushRequest{0, IntfId("Ethernet99"), {}});  // unknown: still answered
  EXPECT_TRUE(replies->reply().empty());
  settle();
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"flushVlan 30", "flushVlanPort 20 Ethernet2",
                                                     "flushVlanPort -1 Ethernet1", "flushVlanLag -1 Port-Channel1"}));
  for (const char* name : {"a", "b", "c", "d", "e"}) EXPECT_TRUE(replies->replyHas(name)) << name;
  helper->calls.clear();
  flushes->requestIs("f", Bridging::HostTableFlushRequest{0, {}, {}});  // VLAN 0, nothing else: everything
  settle();
  EXPECT_EQ(helper->calls, std::vector<std::string>{"flushAll"});
  flushes->requestDel("a");
  EXPECT_FALSE(replies->replyHas("a"));  // stale replies go
}

TEST_F(MacAddrSmTest, ManyFlushRequestsTogetherCostOnePassPerTarget) {
  start();
  for (int i = 0; i < 300; ++i) {
    // A third each: VLAN 7, Ethernet1 on every VLAN, VLAN 9 on Ethernet2.
    Bridging::HostTableFlushRequest request = i % 3 == 0 ? Bridging::HostTableFlushRequest{7, {}, {}}
                                              : i % 3 == 1
                                                  ? Bridging::HostTableFlushRequest{0, IntfId("Ethernet1"), {}}
                                                  : Bridging::HostTableFlushRequest{9, IntfId("Ethernet2"), {}};
    flushes->requestIs(fmt::format("r{}", i), request);
  }
  settle();
  EXPECT_EQ(helper->calls,
            (std::vector<std::string>{"flushVlan 7", "flushVlanPort 9 Ethernet2", "flushVlanPort -1 Ethernet1"}));
  EXPECT_EQ(replies->reply().size(), 300u);
}

TEST_F(MacAddrSmTest, FlushOfOneAddressRemovesItsEntry) {
  start();
  learn(key(1), "Ethernet1");
  learn(key(2), "Ethernet1");
  settle();
  flushes->requestIs("one", Bridging::HostTableFlushRequest{10, {}, EthAddr(1)});
  settle();
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_TRUE(status->learnedHost(key(2)));
}

TEST_F(MacAddrSmTest, NonAgingEntriesStayWhenHardwareAgesThem) {
  auto nonAging = Vex::make<Orb::NonAgingStatus>("nonAging");
  start();
  sm->nonAgingMacStatusIs(nonAging);
  nonAging->macEntriesIs(key(7), row(key(7), "Ethernet2", EntryType::entryConfiguredDynamic));
  settle();
  EXPECT_EQ(status->learnedHost(key(7))->entryType, EntryType::entryConfiguredDynamic);
  sm->handleAddressAged(key(7));
  settle();
  EXPECT_TRUE(status->learnedHost(key(7)));
  nonAging->macEntriesDel(key(7));
  settle();
  EXPECT_FALSE(status->learnedHost(key(7)));
}

TEST_F(MacAddrSmTest, RestoredTableIsReconciledWithTheHardwareAfterARestart) {
  // Before the restart: 100,000 learned hosts across 100 VLANs, saved.
  constexpr int entries = 100000, moved = 500, gone = 500;
  auto before = Vex::make<Bridging::Status>("before");
  auto keyAt = [](int i) { return key(0x001c73000000 + i, 1 + i % 100); };
  for (int i = 0; i < entries; ++i) {
    before->learnedHostIs(keyAt(i), Bridging::LearnedHost{IntfId("Ethernet1"), EntryType::entryDynamic, {}, 0.0});
  }
  std::string document = Orb::macAddrSmPStoreDocument(*before);

  // The chip kept forwarding meanwhile: a few addresses moved, a few aged.
  for (int i = 0; i < entries - gone; ++i) learn(keyAt(i), i < entries - gone - moved ? "Ethernet1" : "Ethernet2");
  loop.advance(5);
  Orb::macAddrSmPStoreHelperFactory(status)->restore(document);
  ASSERT_EQ(status->learnedHostCount(), static_cast<std::size_t>(entries));
  start();
  settle();

  EXPECT_EQ(status->learnedHostCount(), static_cast<std::size_t>(entries - gone));
  EXPECT_EQ(status->learnedHost(keyAt(0))->moves, Keel::Seqno32(0));
  const auto* movedRow = status->learnedHost(keyAt(entries - gone - 1));
  ASSERT_TRUE(movedRow);
  EXPECT_EQ(movedRow->intf, IntfId("Ethernet2"));
  EXPECT_EQ(movedRow->moves, Keel::Seqno32(1));
  EXPECT_FALSE(status->learnedHost(keyAt(entries - 1)));
  // Only what differs reaches the chip.
  auto count = [&](const char* prefix) {
    return std::count_if(helper->calls.begin(), helper->calls.end(),
                         [&](const std::string& call) { return call.rfind(prefix, 0) == 0; });
  };
  EXPECT_EQ(count("add "), moved);
  EXPECT_EQ(count("remove "), gone);
}

TEST_F(MacAddrSmTest, DynamicHostCountsFollowLearnsMovesAndRemovals) {
  status->learnedHostIs(
      key(9, 30),
      Bridging::LearnedHost{IntfId("Ethernet3"), EntryType::entryDynamic, {}, 0.0});  // restored before the start
  start();
  const auto& counts = sm->dynamicHostStatus();
  EXPECT_EQ(counts->hostCount(), 1u);
  learn(key(1), "Ethernet1");
  learn(key(2), "Ethernet1");
  learn(key(3, 20), "Ethernet2");
  config->fdbConfigIs(key(4), row(key(4), "Ethernet4", EntryType::entryStatic));
  settle();
  EXPECT_EQ(counts->hostCount(), 3u);  // the restored host is gone from the hardware; the static one is no host count
  EXPECT_EQ(counts->hostCountOnIntf(IntfId("Ethernet1")), 2u);
  EXPECT_EQ(counts->hostCountInVlan(VlanId(20)), 1u);
  EXPECT_FALSE(counts->hostCountInVlanHas(VlanId(30)));
  learn(key(2), "Ethernet2");  // a move
  settle();
  EXPECT_EQ(counts->hostCountOnIntf(IntfId("Ethernet1")), 1u);
  EXPECT_EQ(counts->hostCountOnIntf(IntfId("Ethernet2")), 2u);
  flushes->requestIs("all", Bridging::HostTableFlushRequest{});
  settle();
  EXPECT_EQ(counts->hostCount(), 0u);
  EXPECT_TRUE(counts->hostCountOnIntf().empty());
}

TEST(BetterEntry, RanksThenMovesThenTimeThenTuplesThenTunnels) {
  RemoteMacAddressTableEntry a, b;
  a.intf = IntfId("Ethernet1");
  b.intf = IntfId("Ethernet2");
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &b);  // full tie: the second
  EXPECT_EQ(Orb::betterEntry(&a, nullptr, nullptr), &a);
  a.entryType = EntryType::entryStatic;
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &a);  // +1 for static
  b.preference = 1;
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &b);  // preference dominates
  a = RemoteMacAddressTableEntry{};
  b = RemoteMacAddressTableEntry{};
  a.moves = Keel::Seqno32(0);
  b.moves = Keel::Seqno32(0xffffffffu);
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &a);  // 0 comes after 0xffffffff
  b.moves = a.moves;
  a.lastMoveTime = 5;
  b.lastMoveTime = 4;
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &a);
  b.lastMoveTime = NAN;
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &b);  // unordered times: b
  b.lastMoveTime = 5;
  b.hasL2RibObjTuple = true;
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &b);
  a.hasL2RibObjTuple = true;
  a.l2RibObjTuple = {1, 9};
  b.l2RibObjTuple = {1, 3};
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &a);  // b's tuple orders below a's
  b.l2RibObjTuple = {1, 9};
  EXPECT_EQ(Orb::betterEntry(&a, &b, nullptr), &b);
  Vex::EventLoop loop;
  auto tunnels = Vex::make<Orb::SwTunnelGroupIdMap>("t");
  tunnels->groupIs(Orb::SwTunnelGroupId{1}, {Nexo::IpGenAddr("10.0.0.2")});
  tunnels->groupIs(Orb::SwTunnelGroupId{2}, {Nexo::IpGenAddr("10.0.0.1")});
  a.hasL2RibObjTuple = b.hasL2RibObjTuple = false;
  a.swTunnelGroupId = Orb::SwTunnelGroupId{1};
  b.swTunnelGroupId = Orb::SwTunnelGroupId{2};
  EXPECT_EQ(Orb::betterEntry(&a, &b, tunnels.get()), &a);
  EXPECT_EQ(Orb::betterEntry(&b, &a, tunnels.get()), &a);
}

TEST(MacEntryTypes, WordsAndTheInvalidTypeAssertion) {
  EXPECT_STREQ(Orb::macEntryTypeWord(EntryType::entryEvpnStaticRemote), "evpn static remote");
  EXPECT_TRUE(Orb::isRemoteEntryType(EntryType::entryLearnedRemote));
  EXPECT_FALSE(Orb::isRemoteEntryType(EntryType::entryPeerStatic));
  EXPECT_DEATH(Orb::macEntryTypeWord(static_cast<EntryType>(3)), "0 && \"invalid entryType\"");
}

TEST(MacHelperDeathTest, DefaultsNameTheirOperations) {
  unsetenv("ORB_NOOP_AGENT");
  Vex::EventLoop loop;
  OrbHelper::OrbHelperMacAddrSm helper;
  EXPECT_DEATH(helper.addHost(key(1), IntfId("Ethernet1"), 0, false, EntryType::entryDynamic),
               "Call to unimplemented function OrbMacAddrSmHelper::doAddHost");
  EXPECT_DEATH(helper.removeHost(key(1), EntryType::entryDynamic),
               "Call to unimplemented function OrbMacAddrSmHelper::removeHost");
  EXPECT_DEATH(helper.enableLearning(IntfId("Ethernet1"), true),
               "Call to unimplemented function OrbMacAddrSmHelper::enableLearning");
  helper.enableLearningOnVlan(VlanId(1), true);  // optional: no-op
  helper.hwInit();
  setenv("ORB_NOOP_AGENT", "1", 1);
  EXPECT_EQ(helper.addHost(key(1), IntfId("Ethernet1"), 0, false, EntryType::entryDynamic), 0u);
  EXPECT_EQ(helper.getMaxRemoteMacs(), 0u);
  unsetenv("ORB_NOOP_AGENT");
}

}  // namespace
