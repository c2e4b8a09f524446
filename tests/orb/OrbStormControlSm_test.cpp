// Storm control: levels to rates, LAG precedence and sums, port state and
// speed, removal, refusals and the periodic walk, and discard logging.
#include "Orb/OrbStormControlSm.h"
#include "Orb/OrbStormControlDropSm.h"
#include "platform/blip/Blip.h"
#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::StormControl::LevelType;
using Bridging::StormControl::Threshold;
using Bridging::StormControl::ThresholdMode;
using Nexo::IntfId;

struct Meter {
  std::uint64_t rate = 0;
  IntfId lag;
  bool operator==(const Meter&) const = default;
};

// Holds meters as a chip would and records what it is asked.
class RecordingHelper : public OrbHelper::StormControlSmHelper {
 public:
  std::map<std::pair<IntfId, LevelType>, Meter> meters;
  std::vector<std::string> calls;
  std::uint32_t refuseNext = 0;
  bool uucast = true, all = true, burst = true;
  std::uint32_t burstTime = 0;
  std::map<IntfId, Orb::StormControlDropCounts> drops;
  std::size_t verifies = 0;
  bool verifyAnswer = true;

  void hwInit() override { calls.push_back("hwInit"); }
  void installRules() override { calls.push_back("installRules"); }
  bool setHwRate(LevelType type, const IntfId& intf, const IntfId& lag, std::uint64_t rate,
                 const Threshold& threshold) override {
    calls.push_back(fmt::format("set {} {} {}", intf.stringValue(), levelTypeName(type), rate));
    if (refuseNext) {
      --refuseNext;
      return false;
    }
    if (threshold.enabled()) {
      meters[{intf, type}] = Meter{rate, lag};
    } else {
      meters.erase({intf, type});
    }
    return true;
  }
  bool programTcAggregateHwRate(std::uint8_t tc, const Threshold& threshold) override {
    calls.push_back(fmt::format("tc {} {}", tc, threshold.level));
    return true;
  }
  void setBurstTime(std::uint32_t time) override { burstTime = time; }
  void handleEthPhyIntfLagConfig(const IntfId& intf) override { calls.push_back("lag config " + intf.stringValue()); }
  bool uucastLevelEnabled() override { return uucast; }
  bool allLevelEnabled() override { return all; }
  bool burstEnabled() override { return burst; }
  Orb::StormControlDropCounts getAllDropCnt(const IntfId& intf) override { return drops[intf]; }
  bool verifyEnabled(const IntfId&, bool) override {
    ++verifies;
    return verifyAnswer;
  }
  bool verifyPort(const IntfId&, const IntfId&, std::uint64_t, const Bridging::StormControl::IntfConfig*) override {
    return true;
  }

  std::optional<Meter> meter(const IntfId& intf, LevelType type) const {
    auto it = meters.find({intf, type});
    return it == meters.end() ? std::nullopt : std::optional<Meter>(it->second);
  }
};

Threshold level(std::uint32_t hundredths) { return Threshold{ThresholdMode::level, hundredths, 0}; }

class StormControlSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingHelper> helper = Vex::make<RecordingHelper>();
  Vex::Ptr<Bridging::StormControl::Config> config = Vex::make<Bridging::StormControl::Config>("config");
  Vex::Ptr<Bridging::StormControl::Status> status = Vex::make<Bridging::StormControl::Status>("status");
  Vex::Ptr<Interface::EthPhyIntfStatusDir> phy = Vex::make<Interface::EthPhyIntfStatusDir>("phy");
  Vex::Ptr<Orb::StormControlSm> sm;
  std::shared_ptr<Blip::CaptureSink> traces = std::make_shared<Blip::CaptureSink>();
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e3{"Ethernet3"}, pc1{"Port-Channel1"};

  StormControlSmTest() {
    Blip::sinkIs(traces);
    Blip::handle("OrbStormControlSm").levelIs(9);
    for (int i = 1; i <= 8; ++i) {
      IntfId port("Ethernet" + std::to_string(i));
      ocsd->intfIs(port, true);
      phy->linkUpIs(port, true);
      phy->speedIs(port, 10000);
    }
  }
  ~StormControlSmTest() override {
    sm.reset();
    Blip::handle("OrbStormControlSm").levelIs(0);
    Blip::sinkIs(nullptr);
  }
  void start() { sm = Orb::stormControlSmFactory({ocsd, helper, config, status, phy}); }
  // What the LAG machine writes when a port joins or leaves a LAG.
  void joinLag(const IntfId& port, const IntfId& lag) {
    auto list = ocsd->lagToPort(lag);
    list.ports[port] = Orb::OrbLagPort{true, true};
    ocsd->lagToPortIs(lag, list);
    ocsd->portToLagIs(port, lag);
  }
  void leaveLag(const IntfId& port, const IntfId& lag) {
    auto list = ocsd->lagToPort(lag);
    list.ports.erase(port);
    ocsd->portToLagDel(port);
    if (list.ports.empty()) {
      ocsd->lagToPortDel(lag);
    } else {
      ocsd->lagToPortIs(lag, list);
    }
  }
  void set(const IntfId& intf, LevelType type, std::uint32_t hundredths) {
    config->intfConfigIs(intf)->thresholdIs(type, level(hundredths));
  }
};

TEST(StormControlRate, IsSpeedTimesLevelInIntegersAndNoneForAnUnknownSpeed) {
  EXPECT_EQ(Orb::stormControlRate(10'000'000, 5000), 5'000'000u);
  EXPECT_EQ(Orb::stormControlRate(1'000'000, 1), 100u);
  EXPECT_EQ(Orb::stormControlRate(1'000, 1), 0u);  // rounds down
  // 800 Gb/s at 99.99 percent: exact, where a double would already round.
  EXPECT_EQ(Orb::stormControlRate(800'000'000, 9999), 799'920'000u);
  EXPECT_EQ(Orb::stormControlRate(std::uint64_t{1} << 40, 10000), std::uint64_t{1} << 40);
  EXPECT_EQ(Orb::stormControlRate(0, 5000), std::nullopt);
}

TEST_F(StormControlSmTest, TenGigPortAtFiftyPercent) {
  start();
  set(e1, LevelType::broadcast, 5000);
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast), (Meter{5'000'000, {}}));
  const auto& st = status->intfStatus(e1);
  EXPECT_EQ(st.broadcastLevel, 5000u);
  EXPECT_EQ(st.broadcastRate, 5000u);
  EXPECT_EQ(st.multicastRate, 0u);
  EXPECT_TRUE(traces->contains("levelType=broadcast percent=5000"));
  EXPECT_TRUE(traces->contains("Setting broadcast level percent to 5000"));
}

TEST_F(StormControlSmTest, ConfigPresentAtStartIsProgrammedAndOrphanedStatusGoes) {
  set(e1, LevelType::multicast, 100);
  status->intfStatusIs(e2, Bridging::StormControl::IntfStatus{.broadcastLevel = 1, .broadcastRate = 1});
  start();
  EXPECT_EQ(helper->calls.front(), "hwInit");
  EXPECT_EQ(helper->meter(e1, LevelType::multicast), (Meter{100'000, {}}));
  EXPECT_FALSE(status->intfStatusHas(e2));
  EXPECT_TRUE(traces->contains("Removing orphaned status for Ethernet2"));
}

TEST_F(StormControlSmTest, LagOfTwoGigMembersAtTenPercentSumsItsMembers) {
  phy->speedIs(e1, 1000);
  phy->speedIs(e2, 1000);
  start();
  joinLag(e1, pc1);
  joinLag(e2, pc1);
  set(pc1, LevelType::broadcast, 1000);
  EXPECT_EQ(status->intfStatus(pc1).broadcastRate, 200u);  // 200,000 kb/s
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast), (Meter{100'000, pc1}));
  EXPECT_EQ(helper->meter(e2, LevelType::broadcast), (Meter{100'000, pc1}));
  EXPECT_TRUE(traces->contains("Updating levels for lag Port-Channel1"));
  // A third member of 10 Gb/s raises the sum; its leaving lowers it again.
  joinLag(e3, pc1);
  EXPECT_EQ(status->intfStatus(pc1).broadcastRate, 1200u);
  EXPECT_EQ(helper->meter(e3, LevelType::broadcast), (Meter{1'000'000, pc1}));
  leaveLag(e3, pc1);
  EXPECT_EQ(status->intfStatus(pc1).broadcastRate, 200u);
  EXPECT_FALSE(helper->meter(e3, LevelType::broadcast));
  // A member's speed change moves the LAG's rate; an inactive member
  // counts for nothing.
  phy->speedIs(e2, 10000);
  EXPECT_EQ(status->intfStatus(pc1).broadcastRate, 1100u);
  phy->linkUpIs(e2, false);
  EXPECT_EQ(status->intfStatus(pc1).broadcastRate, 100u);
}

TEST_F(StormControlSmTest, UnknownSpeedGetsNoRateUntilTheSpeedIsKnown) {
  phy->speedIs(e1, 0);
  start();
  set(e1, LevelType::broadcast, 5000);
  EXPECT_FALSE(helper->meter(e1, LevelType::broadcast));
  EXPECT_EQ(status->intfStatus(e1).broadcastLevel, 5000u);
  EXPECT_EQ(status->intfStatus(e1).broadcastRate, 0u);
  phy->speedIs(e1, 25000);
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast), (Meter{12'500'000, {}}));
  EXPECT_EQ(status->intfStatus(e1).broadcastRate, 12500u);
  // Back to unknown: no meter of a stale speed stays.
  phy->speedIs(e1, 0);
  EXPECT_FALSE(helper->meter(e1, LevelType::broadcast));
}

TEST_F(StormControlSmTest, SpeedChangeRecomputesEveryLevel) {
  start();
  set(e1, LevelType::broadcast, 1000);
  set(e1, LevelType::multicast, 2000);
  phy->speedIs(e1, 100000);
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast)->rate, 10'000'000u);
  EXPECT_EQ(helper->meter(e1, LevelType::multicast)->rate, 20'000'000u);
  EXPECT_EQ(status->intfStatus(e1).multicastRate, 20000u);
}

TEST_F(StormControlSmTest, LagConfigTakesPrecedenceAndLeavingRestoresTheOwn) {
  start();
  set(e1, LevelType::broadcast, 5000);
  set(pc1, LevelType::broadcast, 1000);
  joinLag(e1, pc1);
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast), (Meter{1'000'000, pc1}));
  EXPECT_EQ(status->intfStatus(e1), Bridging::StormControl::IntfStatus{});
  // The member's own configuration waits.
  helper->calls.clear();
  set(e1, LevelType::broadcast, 3000);
  set(e1, LevelType::multicast, 3000);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_TRUE(traces->contains("Ethernet1 is part of a LAG, not updating TCAM rules"));
  leaveLag(e1, pc1);
  EXPECT_TRUE(traces->contains("Applying config to Ethernet1 because it left a lag"));
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast), (Meter{3'000'000, {}}));
  EXPECT_EQ(helper->meter(e1, LevelType::multicast), (Meter{3'000'000, {}}));
  EXPECT_EQ(status->intfStatus(e1).broadcastRate, 3000u);
  EXPECT_EQ(helper->calls.front(), "lag config Ethernet1");
}

TEST_F(StormControlSmTest, MemberOfALagWithoutConfigHasStormControlDisabled) {
  start();
  set(e1, LevelType::broadcast, 5000);
  joinLag(e1, pc1);
  EXPECT_FALSE(helper->meter(e1, LevelType::broadcast));
  // The LAG's configuration coming and going follows.
  set(pc1, LevelType::multicast, 100);
  EXPECT_EQ(helper->meter(e1, LevelType::multicast), (Meter{100'000, pc1}));
  config->intfConfigDel(pc1);
  EXPECT_TRUE(helper->meters.empty());
  EXPECT_FALSE(status->intfStatusHas(pc1));
}

TEST_F(StormControlSmTest, InactivePortHoldsNoMetersAndActiveReprograms) {
  start();
  set(e1, LevelType::broadcast, 5000);
  phy->linkUpIs(e1, false);
  EXPECT_TRUE(helper->meters.empty());
  EXPECT_TRUE(traces->contains("Interface has become inactive, clear storm control Ethernet1"));
  phy->linkUpIs(e1, true);
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast)->rate, 5'000'000u);
  EXPECT_TRUE(traces->contains("Interface has become active, reprogram storm control Ethernet1"));
}

TEST_F(StormControlSmTest, RemovingTheConfigDisablesAndResetsTheStatus) {
  start();
  set(e1, LevelType::broadcast, 5000);
  set(e1, LevelType::uucast, 100);
  config->intfConfig(e1)->thresholdDel(LevelType::uucast);
  EXPECT_FALSE(helper->meter(e1, LevelType::uucast));
  EXPECT_EQ(status->intfStatus(e1).uucastLevel, 0u);
  config->intfConfigDel(e1);
  EXPECT_TRUE(helper->meters.empty());
  EXPECT_FALSE(status->intfStatusHas(e1));
  EXPECT_TRUE(traces->contains("Disabling storm control on Ethernet1"));
}

TEST_F(StormControlSmTest, PortUnknownToThePlatformIsSetUpWhenItAppears) {
  IntfId e9("Ethernet9");
  start();
  set(e9, LevelType::broadcast, 5000);
  EXPECT_TRUE(helper->meters.empty());
  EXPECT_TRUE(traces->contains("Interface doesn't exists in platform, skip initializing the sm Ethernet9"));
  phy->speedIs(e9, 1000);
  phy->linkUpIs(e9, true);
  EXPECT_TRUE(helper->meters.empty());
  ocsd->intfIs(e9, true);
  EXPECT_EQ(helper->meter(e9, LevelType::broadcast)->rate, 500'000u);
  ocsd->intfDel(e9);
  EXPECT_TRUE(helper->meters.empty());
}

TEST_F(StormControlSmTest, LevelsTheChipLacksAreNeitherProgrammedNorReported) {
  helper->uucast = false;
  helper->all = false;
  start();
  set(e1, LevelType::uucast, 100);
  set(e1, LevelType::all, 100);
  set(e1, LevelType::broadcast, 100);
  EXPECT_EQ(helper->meters.size(), 1u);
  EXPECT_EQ(status->intfStatus(e1).uucastLevel, 0u);
  EXPECT_EQ(status->intfStatus(e1).allRate, 0u);
  EXPECT_EQ(status->intfStatus(e1).broadcastRate, 100u);
}

TEST_F(StormControlSmTest, AbsoluteRateIsPassedAsConfigured) {
  start();
  config->intfConfigIs(e1)->thresholdIs(LevelType::multicast, Threshold{ThresholdMode::rate, 0, 12345});
  EXPECT_EQ(helper->meter(e1, LevelType::multicast)->rate, 12345u);
  EXPECT_EQ(status->intfStatus(e1).multicastRate, 12u);
  EXPECT_EQ(status->intfStatus(e1).multicastLevel, 0u);
  EXPECT_TRUE(traces->contains("Setting multicast level threshold to 12345"));
}

TEST_F(StormControlSmTest, RefusedLevelIsRetriedByThePeriodicWork) {
  start();
  helper->refuseNext = 1;
  set(e1, LevelType::broadcast, 5000);
  EXPECT_FALSE(helper->meter(e1, LevelType::broadcast));
  EXPECT_TRUE(sm->hwLevels().at(e1)[static_cast<std::size_t>(LevelType::broadcast)].refused);
  loop.advance(sm->period());
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast)->rate, 5'000'000u);
  EXPECT_FALSE(sm->hwLevels().at(e1)[static_cast<std::size_t>(LevelType::broadcast)].refused);
}

TEST_F(StormControlSmTest, VerificationDifferenceRewritesThePort) {
  start();
  set(e1, LevelType::broadcast, 5000);
  helper->meters.clear();  // the chip lost it
  helper->verifyAnswer = false;
  loop.advance(sm->period());
  EXPECT_EQ(helper->meter(e1, LevelType::broadcast)->rate, 5'000'000u);
}

TEST_F(StormControlSmTest, PeriodicWalkIsCutIntoSlicesAndResumesAtItsBookmark) {
  for (int i = 1; i <= 300; ++i) ocsd->intfIs(IntfId("Ethernet" + std::to_string(i)), true);
  for (int i = 1; i <= 300; ++i) {
    IntfId port("Ethernet" + std::to_string(i));
    phy->linkUpIs(port, true);
    phy->speedIs(port, 1000);
    set(port, LevelType::broadcast, 100);
  }
  start();
  sm->sliceIntfsIs(128);
  const auto slicesBefore = sm->slices();
  loop.advance(sm->period());
  loop.runUntilIdle();
  EXPECT_EQ(sm->slices() - slicesBefore, 3u);
  EXPECT_FALSE(sm->walkPending());
  EXPECT_EQ(helper->verifies, 300u);
  // Configurations removed between slices, one at the bookmark and one
  // beyond it, leave the walk on course.
  helper->verifies = 0;
  sm->handleTime();
  EXPECT_TRUE(sm->walkPending());
  EXPECT_EQ(helper->verifies, 128u);
  config->intfConfigDel(IntfId("Ethernet129"));
  config->intfConfigDel(IntfId("Ethernet300"));
  loop.runUntilIdle();
  EXPECT_FALSE(sm->walkPending());
  EXPECT_EQ(helper->verifies, 298u);
  // Without burst support there is no periodic work.
  helper->burst = false;
  helper->verifies = 0;
  loop.advance(sm->period() * 3);
  loop.runUntilIdle();
  EXPECT_EQ(helper->verifies, 0u);
}

TEST_F(StormControlSmTest, AggregatesAndBurstTimeReachTheChip) {
  config->burstConfig()->burstTimeIs(500);
  start();
  EXPECT_EQ(helper->burstTime, 500u);
  config->aggregateTcConfigIs(3)->thresholdIs(level(700));
  EXPECT_EQ(helper->calls.back(), "tc 3 700");
  config->aggregateTcConfigDel(3);
  EXPECT_EQ(helper->calls.back(), "tc 3 0");
  helper->burst = false;
  config->burstConfig()->burstTimeIs(900);
  EXPECT_EQ(helper->burstTime, 500u);
}

TEST(StormControlHelperDeathTest, OperationNotProvidedStopsNamingIt) {
  OrbHelper::StormControlSmHelper helper;
  EXPECT_DEATH(helper.setHwRate(LevelType::broadcast, IntfId("Ethernet1"), {}, 1, level(1)),
               "false && \"Function setHwRate\\(\\) must be implemented by derived class\"");
  EXPECT_DEATH(helper.getAllDropCnt(IntfId("Ethernet1")), "Function getAllDropCnt\\(\\) must be implemented");
}

class StormControlDropSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingHelper> helper = Vex::make<RecordingHelper>();
  Vex::Ptr<Hardware::StormControl::SliceStatusDir> slices = Vex::make<Hardware::StormControl::SliceStatusDir>("slices");
  std::shared_ptr<Log::CaptureSink> logs = std::make_shared<Log::CaptureSink>();
  Vex::Ptr<Orb::StormControlDropSm> sm;
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"};

  StormControlDropSmTest() { Log::sinkIs(logs); }
  ~StormControlDropSmTest() override {
    sm.reset();
    Log::sinkIs(nullptr);
  }
  Vex::Ptr<Hardware::StormControl::SliceStatus> countingSlice() {
    auto slice = slices->sliceStatusIs("slice0");
    slice->stormControlSupportedIs(true);
    slice->dropCountSupportedIs(true);
    slice->intfIs(e1);
    slice->intfIs(e2);
    return slice;
  }
};

TEST_F(StormControlDropSmTest, NewDiscardsAreLoggedOncePerInterval) {
  countingSlice();
  sm = Orb::stormControlDropSmFactory({ocsd, helper, slices});
  helper->drops[e1] = {1, 20, 0, 0};
  loop.advance(sm->logInterval());
  ASSERT_EQ(logs->events.size(), 1u);
  EXPECT_EQ(logs->events[0].id, "StormControlDropLog");
  EXPECT_EQ(logs->events[0].message,
            "Storm Control discarded packets on Interface Ethernet1: UUcast 1, Broadcast 20, Multicast 0, All 0");
  // Nothing new: nothing logged. Then only what came since.
  loop.advance(sm->logInterval());
  EXPECT_EQ(logs->events.size(), 1u);
  helper->drops[e1] = {1, 25, 0, 5'000'000'000};
  loop.advance(sm->logInterval());
  ASSERT_EQ(logs->events.size(), 2u);
  EXPECT_EQ(
      logs->events[1].message,
      "Storm Control discarded packets on Interface Ethernet1: UUcast 0, Broadcast 5, Multicast 0, All 5000000000");
  const Log::EventDef* def = Log::lookup("StormControlDropLog");
  ASSERT_TRUE(def);
  EXPECT_EQ(def->explanation,
            "The interface's traffic is exceeding the configured storm-control threshold causing packets to be "
            "discarded");
}

TEST_F(StormControlDropSmTest, DiscardsCountedBeforeTheStartAreNotLogged) {
  helper->drops[e2] = {0, 7, 0, 0};
  countingSlice();
  sm = Orb::stormControlDropSmFactory({ocsd, helper, slices});
  loop.advance(sm->logInterval());
  EXPECT_TRUE(logs->events.empty());
}

TEST_F(StormControlDropSmTest, SliceThatDoesNotCountHasNoInterfaceMachines) {
  auto slice = countingSlice();
  slice->dropCountSupportedIs(false);
  sm = Orb::stormControlDropSmFactory({ocsd, helper, slices});
  ASSERT_EQ(sm->sliceSm().size(), 1u);
  EXPECT_TRUE(sm->sliceSm().begin()->second->intfSm().empty());
  helper->drops[e1] = {0, 1, 0, 0};
  loop.advance(sm->logInterval());
  EXPECT_TRUE(logs->events.empty());
  slice->dropCountSupportedIs(true);
  EXPECT_EQ(sm->sliceSm().begin()->second->intfSm().size(), 2u);
  slice->intfDel(e2);
  EXPECT_EQ(sm->sliceSm().begin()->second->intfSm().size(), 1u);
  slices->sliceStatusDel("slice0");
  EXPECT_TRUE(sm->sliceSm().empty());
}

}  // namespace
