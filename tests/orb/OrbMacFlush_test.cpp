// The MAC address machine's flushing (queued changes, bad requests,
// remote-MAC flush requests) and its handling of adds a chip finishes
// later. Through its inputs, a recording MAC helper and simulated time.
#include "Orb/OrbMacAddrSm.h"
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

// A chip that records every call; adds answer from a plan, success when
// the plan is empty.
class RecordingMacHelper : public OrbHelper::OrbHelperMacAddrSm {
 public:
  std::vector<std::string> calls;
  std::deque<std::uint32_t> answers;
  Vex::Ptr<OrbTypes::MacTable> macTable;

  std::uint32_t next() {
    if (answers.empty()) return 0;
    auto status = answers.front();
    answers.pop_front();
    return status;
  }
  std::uint32_t addHost(const MacVlanPair& key, const IntfId& intf, std::uint32_t, bool, EntryType) override {
    auto status = next();
    calls.push_back(fmt::format("add {} {} -> {}", key.addr.stringValue(), intf.stringValue(), status));
    return status;
  }
  std::uint32_t removeHost(const MacVlanPair& key, EntryType) override {
    calls.push_back("remove " + key.addr.stringValue());
    return 0;
  }
  std::uint32_t addRemoteHost(const MacVlanPair& key, const IntfId& intf, std::uint64_t nextHop, std::uint32_t, bool,
                              EntryType, bool) override {
    calls.push_back(fmt::format("remote {} {} nh {}", key.addr.stringValue(), intf.stringValue(), nextHop));
    return 0;
  }
  void configureAgingTime(std::uint32_t) override {}
  void flushAll() override { calls.push_back("flushAll"); }
  void flushVlan(VlanId vlanId) override { calls.push_back(fmt::format("flushVlan {}", vlanId.value())); }
  void flushVlanPort(int vlan, const IntfId& intf) override {
    calls.push_back(fmt::format("flushVlanPort {} {}", vlan, intf.stringValue()));
    // The chip's learned copies on the port go as it flushes.
    std::vector<MacVlanPair> gone;
    for (const auto& [k, row] : macTable->macEntry()) {
      if (row.intf == intf && (vlan < 0 || k.vlanId.value() == vlan)) gone.push_back(k);
    }
    for (const auto& k : gone) macTable->macEntryDel(k);
  }
  void flushVlanLag(int vlan, const IntfId& lag) override {
    calls.push_back(fmt::format("flushVlanLag {} {}", vlan, lag.stringValue()));
  }
  void enableLearning(const IntfId&, bool) override {}
};

MacVlanPair key(std::uint64_t addr, int vlan = 10) { return {EthAddr(addr), VlanId(vlan)}; }

RemoteMacAddressTableEntry remoteEntry(const MacVlanPair& k, EntryType type, std::uint32_t tunnelGroup = 300) {
  RemoteMacAddressTableEntry r;
  r.macVlanPair = k;
  r.intf = IntfId("Vxlan1");
  r.entryType = type;
  r.swTunnelGroupId = Orb::SwTunnelGroupId{tunnelGroup};
  return r;
}

class MacFlushTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingMacHelper> helper = Vex::make<RecordingMacHelper>();
  Orb::MacAddrSmInputs in = Orb::macAddrSmInputsFactory(ocsd, helper, nullptr);
  const Vex::Ptr<OrbTypes::MacTable>& macTable = in.macTable;
  const Vex::Ptr<Bridging::Status>& status = in.bridgingStatus;
  const Vex::Ptr<Bridging::Config>& config = in.bridgingConfig;
  const Vex::Ptr<Vxlan::VxlanConfigDir>& vxlan = in.vxlanConfigDir;
  const Vex::Ptr<Orb::VXLAN::RemoteMacInfoDir>& rmac = in.rmacInfoDir;
  const Vex::Ptr<Bridging::RemoteMacTable>& remote = in.remoteHostTable;
  const Vex::Ptr<Bridging::HostTableFlushRequestDir>& flushes = in.flushRequestDir;
  const Vex::Ptr<Bridging::HostTableFlushReplyDir>& replies = in.flushReplyDir;
  std::shared_ptr<Log::CaptureSink> logs = std::make_shared<Log::CaptureSink>();
  Vex::Ptr<Orb::MacAddrSm> sm;

  void SetUp() override {
    helper->macTable = macTable;  // the chip's copy of what it holds
    Log::sinkIs(logs);
    for (int i = 1; i <= 4; ++i) ocsd->intfIs(IntfId(fmt::format("Ethernet{}", i)), true);
    vxlan->vlanToVniIs(VlanId(10), 10010);
    vxlan->vlanToVniIs(VlanId(20), 10020);
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
  void learn(const MacVlanPair& k, const char* intf) {
    macTable->macEntryIs(k, MacAddressTableEntry{k, IntfId(intf), EntryType::entryDynamic, {}, 0.0});
  }
};

// A learn the chip could not take yet (busy) is queued; a flush of its port
// in the same turn takes it out of the queue too, so it is not programmed
// after the flush and cannot outlive the chip's own entry in the status.
TEST_F(MacFlushTest, FlushTakesOutQueuedLearnsOfItsTarget) {
  start();
  helper->answers = {OrbTypes::tableAddBusy, OrbTypes::tableAddBusy};
  learn(key(1), "Ethernet1");
  learn(key(2), "Ethernet2");
  settle();
  ASSERT_EQ(sm->updateListSize(), 2u);
  flushes->requestIs("port", Bridging::HostTableFlushRequest{0, IntfId("Ethernet1"), {}});
  settle();
  EXPECT_TRUE(replies->replyHas("port"));
  EXPECT_EQ(sm->updateListSize(), 1u);
  helper->calls.clear();
  loop.advance(1);
  EXPECT_EQ(helper->calls, std::vector<std::string>{"add 00:00:00:00:00:02 Ethernet2 -> 0"});
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_TRUE(status->learnedHost(key(2)));
}

// The flush of one address reaches its learn queued but not programmed:
// the chip's copy is removed and nothing is published.
TEST_F(MacFlushTest, AddressFlushTakesOutAQueuedLearn) {
  start();
  helper->answers = {OrbTypes::tableAddBusy};
  learn(key(1), "Ethernet1");
  settle();
  ASSERT_EQ(sm->updateListSize(), 1u);
  helper->calls.clear();
  flushes->requestIs("one", Bridging::HostTableFlushRequest{0, {}, EthAddr(1)});
  settle();
  loop.advance(1);
  EXPECT_TRUE(replies->replyHas("one"));
  EXPECT_EQ(helper->calls, std::vector<std::string>{"remove 00:00:00:00:00:01"});
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_FALSE(macTable->macEntryHas(key(1)));
  EXPECT_EQ(sm->updateListSize(), 0u);
}

// A hardware deletion during a flush of a key whose change waits in the
// queue is reviewed: the queued change of another port follows the chip.
TEST_F(MacFlushTest, FlushKeepsQueuedChangesOfOtherTargets) {
  start();
  learn(key(1), "Ethernet1");
  settle();
  helper->answers = {OrbTypes::tableAddBusy};
  config->fdbConfigIs(key(1), MacAddressTableEntry{key(1), IntfId("Ethernet2"), EntryType::entryStatic, {}, 0.0});
  settle();
  ASSERT_EQ(sm->updateListSize(), 1u);
  flushes->requestIs("port", Bridging::HostTableFlushRequest{0, IntfId("Ethernet1"), {}});
  settle();
  loop.advance(1);
  ASSERT_TRUE(status->learnedHost(key(1)));
  EXPECT_EQ(status->learnedHost(key(1))->intf, IntfId("Ethernet2"));
  EXPECT_EQ(status->learnedHost(key(1))->entryType, EntryType::entryStatic);
}

// A request naming a VLAN above 4094 is answered once with its error
// traced; the requests beside it and those after it are carried out.
TEST_F(MacFlushTest, FlushRequestWithABadVlanIsAnsweredAndHarmsNothing) {
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(3);
  start();
  flushes->requestIs("bad", Bridging::HostTableFlushRequest{5000, {}, {}});
  flushes->requestIs("badPort", Bridging::HostTableFlushRequest{4095, IntfId("Ethernet1"), {}});
  flushes->requestIs("good", Bridging::HostTableFlushRequest{30, {}, {}});
  EXPECT_NO_THROW(settle());
  EXPECT_EQ(helper->calls, std::vector<std::string>{"flushVlan 30"});
  for (const char* name : {"bad", "badPort", "good"}) EXPECT_TRUE(replies->replyHas(name)) << name;
  EXPECT_TRUE(traces->contains("VlanId::value < 1 or > 4094 not allowed"));
  helper->calls.clear();
  flushes->requestIs("later", Bridging::HostTableFlushRequest{0, IntfId("Ethernet2"), {}});
  EXPECT_NO_THROW(settle());
  EXPECT_EQ(helper->calls, std::vector<std::string>{"flushVlanPort -1 Ethernet2"});
  EXPECT_TRUE(replies->replyHas("later"));
  Orb::orbTraceHandle("OrbMacAddrSm").levelIs(0);
  Blip::sinkIs(nullptr);
}

// A queued change for a VLAN outside 1..4094 fails once with the range
// error; it leaves the queue and the changes behind it are programmed.
TEST_F(MacFlushTest, QueuedChangeForAnInvalidVlanFailsOnceAndTheRestProceeds) {
  start();
  RemoteMacAddressTableEntry bad;
  bad.macVlanPair = MacVlanPair{EthAddr(1), VlanId()};
  bad.intf = IntfId("Ethernet1");
  sm->addToUpdateList(bad, Orb::EntryEvaluationAction::addOrModify, false, false);
  learn(key(2), "Ethernet1");
  sm->handleMacTableUpdate();  // queued behind the bad change
  ASSERT_EQ(sm->updateListSize(), 2u);
  try {
    sm->updateQueuedAddresses();
    ADD_FAILURE() << "no range error";
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_FALSE(sm->queuedChange(bad.macVlanPair));
  EXPECT_NO_THROW(settle());
  EXPECT_NO_THROW(sm->updateQueuedAddresses());
  EXPECT_EQ(sm->updateListSize(), 0u);
  EXPECT_TRUE(status->learnedHost(key(2)));
}

// A remote-MAC flush request takes the matching remote entries out of the
// hardware and the status; static remote entries and other VLANs stay, and
// an entry a source still offers is programmed again from it.
TEST_F(MacFlushTest, RemoteMacFlushRemovesMatchingRemoteEntries) {
  // Recovered across a hitless restart, with no source yet.
  status->remoteStatusTableIs(key(1), remoteEntry(key(1), EntryType::entryReceivedRemote));
  rmac->nextHopRefCountIs(300, 1);
  rmac->vlanRefCountIs(VlanId(10), 1);
  ocsd->operationalModeIs(Orb::HwOperationalMode::hwModeHitlessRestart);
  start();
  remote->configuredHostIs(key(2), remoteEntry(key(2), EntryType::entryStaticRemote, 301));
  remote->receivedHostIs(key(3), remoteEntry(key(3), EntryType::entryReceivedRemote, 302));
  remote->receivedHostIs(key(4, 20), remoteEntry(key(4, 20), EntryType::entryReceivedRemote, 303));
  settle();
  ASSERT_EQ(status->remoteStatusTableSize(), 4u);
  helper->calls.clear();
  rmac->remoteMacFlushRequestIs("vtep", Bridging::HostTableFlushRequest{10, {}, {}});
  settle();
  EXPECT_TRUE(replies->replyHas("vtep"));
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"remove 00:00:00:00:00:01", "remove 00:00:00:00:00:03",
                                                     "remote 00:00:00:00:00:03 Vxlan1 nh 302"}));
  EXPECT_FALSE(status->remoteStatusTableHas(key(1)));
  EXPECT_FALSE(rmac->nextHopRefCountHas(300));
  EXPECT_TRUE(status->remoteStatusTableHas(key(2)));
  EXPECT_TRUE(status->remoteStatusTableHas(key(3)));
  EXPECT_TRUE(status->remoteStatusTableHas(key(4, 20)));
  // One address, on any VLAN; the local table is not touched.
  learn(key(5), "Ethernet1");
  settle();
  helper->calls.clear();
  rmac->remoteMacFlushRequestIs("one", Bridging::HostTableFlushRequest{0, {}, EthAddr(4)});
  rmac->remoteMacFlushRequestIs("local", Bridging::HostTableFlushRequest{0, {}, EthAddr(5)});
  settle();
  EXPECT_TRUE(replies->replyHas("one"));
  EXPECT_TRUE(replies->replyHas("local"));
  EXPECT_EQ(helper->calls,
            (std::vector<std::string>{"remove 00:00:00:00:00:04", "remote 00:00:00:00:00:04 Vxlan1 nh 303"}));
  EXPECT_TRUE(status->learnedHost(key(5)));
  // A bad VLAN is answered; the request going takes its reply with it.
  rmac->remoteMacFlushRequestIs("bad", Bridging::HostTableFlushRequest{4095, {}, {}});
  EXPECT_NO_THROW(settle());
  EXPECT_TRUE(replies->replyHas("bad"));
  rmac->remoteMacFlushRequestDel("bad");
  settle();
  EXPECT_FALSE(replies->replyHas("bad"));
}

// Adds the chip finishes later: published only once the chip says they
// are in, never written again while their outcome is awaited.
TEST_F(MacFlushTest, AcceptedAddIsPublishedOnItsSuccessOnly) {
  constexpr auto accepted = OrbHelper::OrbHelperMacAddrSm::addAccepted;
  start();
  helper->answers = {accepted};
  learn(key(1), "Ethernet1");
  settle();
  loop.advance(1);
  EXPECT_EQ(helper->calls, std::vector<std::string>{fmt::format("add 00:00:00:00:00:01 Ethernet1 -> {}", accepted)});
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_EQ(sm->updateListSize(), 1u);
  // The same learn again changes nothing while the chip works on it.
  learn(key(1), "Ethernet1");
  settle();
  EXPECT_EQ(helper->calls.size(), 1u);
  helper->hostOutcome(key(1), IntfId("Ethernet1"), EntryType::entryDynamic, OrbTypes::tableAddSuccess);
  ASSERT_TRUE(status->learnedHost(key(1)));
  EXPECT_EQ(status->learnedHost(key(1))->intf, IntfId("Ethernet1"));
  EXPECT_EQ(sm->updateListSize(), 0u);
}

TEST_F(MacFlushTest, FullOutcomeIsLoggedOnceAndWaitsForTheChipsRetry) {
  constexpr auto accepted = OrbHelper::OrbHelperMacAddrSm::addAccepted;
  start();
  helper->answers = {accepted};
  auto k = key(2);
  config->fdbConfigIs(k, MacAddressTableEntry{k, IntfId("Ethernet2"), EntryType::entryStatic, {}, 0.0});
  settle();
  helper->hostOutcome(k, IntfId("Ethernet2"), EntryType::entryStatic, OrbTypes::tableAddFull);
  helper->hostOutcome(k, IntfId("Ethernet2"), EntryType::entryStatic, OrbTypes::tableAddFull);
  loop.advance(1);
  EXPECT_EQ(logs->count("ETH_MACADDRBANKFULL"), 1u);
  EXPECT_EQ(helper->calls.size(), 1u);  // the chip retries, not the machine
  EXPECT_FALSE(status->learnedHost(k));
  helper->hostOutcome(k, IntfId("Ethernet2"), EntryType::entryStatic, OrbTypes::tableAddSuccess);
  ASSERT_TRUE(status->learnedHost(k));
  EXPECT_EQ(status->learnedHost(k)->entryType, EntryType::entryStatic);
}

TEST_F(MacFlushTest, FailedOutcomeMeansNotProgrammedAndBusyIsWrittenAgain) {
  constexpr auto accepted = OrbHelper::OrbHelperMacAddrSm::addAccepted;
  start();
  learn(key(1), "Ethernet1");
  settle();
  ASSERT_TRUE(status->learnedHost(key(1)));
  helper->answers = {accepted, accepted};
  learn(key(1), "Ethernet2");  // a move the chip then fails
  settle();
  helper->hostOutcome(key(1), IntfId("Ethernet2"), EntryType::entryDynamic, 3);
  EXPECT_FALSE(status->learnedHost(key(1)));
  EXPECT_EQ(sm->updateListSize(), 0u);
  learn(key(3), "Ethernet1");
  settle();
  helper->hostOutcome(key(3), IntfId("Ethernet1"), EntryType::entryDynamic, OrbTypes::tableAddBusy);
  loop.advance(1);
  EXPECT_EQ(helper->calls.back(), "add 00:00:00:00:00:03 Ethernet1 -> 0");
  EXPECT_TRUE(status->learnedHost(key(3)));
}

// An outcome nobody waits for any more: the hardware took an add the
// machine went back on, and is put back to what the status says.
TEST_F(MacFlushTest, OutcomeOfAnAddGoneBackOnPutsTheHardwareBack) {
  constexpr auto accepted = OrbHelper::OrbHelperMacAddrSm::addAccepted;
  start();
  auto k = key(4);
  helper->answers = {accepted};
  config->fdbConfigIs(k, MacAddressTableEntry{k, IntfId("Ethernet2"), EntryType::entryStatic, {}, 0.0});
  settle();
  config->fdbConfigDel(k);
  settle();
  EXPECT_EQ(sm->updateListSize(), 0u);
  helper->calls.clear();
  helper->hostOutcome(k, IntfId("Ethernet2"), EntryType::entryStatic, OrbTypes::tableAddSuccess);
  settle();
  EXPECT_EQ(helper->calls, std::vector<std::string>{"remove 00:00:00:00:00:04"});
  EXPECT_FALSE(status->learnedHost(k));
  // A failed one left nothing behind: nothing to do.
  helper->hostOutcome(k, IntfId("Ethernet2"), EntryType::entryStatic, OrbTypes::tableAddFull);
  settle();
  EXPECT_EQ(helper->calls.size(), 1u);
  // An outcome for an older change than the one queued is not the queued one's.
  learn(key(5), "Ethernet1");
  settle();
  helper->answers = {accepted};
  learn(key(5), "Ethernet2");
  settle();
  helper->hostOutcome(key(5), IntfId("Ethernet3"), EntryType::entryDynamic, OrbTypes::tableAddSuccess);
  EXPECT_EQ(status->learnedHost(key(5))->intf, IntfId("Ethernet1"));
  EXPECT_EQ(sm->updateListSize(), 1u);
}

}  // namespace
