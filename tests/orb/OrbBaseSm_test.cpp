// Base state machines, the asynchronous base and the helper pattern.
#include "Orb/OrbAsyncCommon.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

class ProbeSm : public Orb::OrbBaseSm {
 public:
  class StatusReactor : public Vex::Reactor<Orb::VlanStatus, ProbeSm> {
   public:
    using Reactor::Reactor;
    VEX_REACT(RoutingEnable, countReaction)
  };

  ProbeSm(const Vex::Ptr<Orb::OrbCommonSmData>& ocsd, const Vex::Ptr<Orb::VlanStatus>& input) : OrbBaseSm(ocsd) {
    reactor.notifierIs(input);
    initializedIs(true);
  }
  void handleInitialized() override { ++passes; }
  void countReaction() { ++reactions; }

  int passes = 0;
  int reactions = 0;
  StatusReactor reactor{this};
  std::unique_ptr<StatusReactor> lateReactor;
};

class OrbBaseSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<Orb::VlanStatus> input = Orb::vlanStatusFactory(Bridging::VlanId(1));
};

TEST_F(OrbBaseSmTest, InitializedTwiceRunsTheFirstPassOnce) {
  auto sm = Vex::make<ProbeSm>(ocsd, input);
  EXPECT_EQ(sm->passes, 1);
  sm->initializedIs(true);
  EXPECT_EQ(sm->passes, 1);
}

TEST_F(OrbBaseSmTest, MutedAndZombieMachinesDoNotReact) {
  auto sm = Vex::make<ProbeSm>(ocsd, input);
  input->routingEnableIs(true);
  EXPECT_EQ(sm->reactions, 1);
  sm->hasNotificationActiveIs(false);
  input->routingEnableIs(false);
  EXPECT_EQ(sm->reactions, 1);
  sm->hasNotificationActiveIs(true);
  sm->vexDoZombieReactors(true);
  EXPECT_TRUE(sm->reactor.isZombie());
  input->routingEnableIs(true);
  EXPECT_EQ(sm->reactions, 1);
}

TEST_F(OrbBaseSmTest, ReactorAddedToAMutedMachineStaysSilentUntilItIsSwitchedOn) {
  auto sm = Vex::make<ProbeSm>(ocsd, input);
  sm->reactor.notifierIs(nullptr);
  sm->hasNotificationActiveIs(false);
  sm->lateReactor = std::make_unique<ProbeSm::StatusReactor>(sm.get(), input);
  EXPECT_FALSE(sm->lateReactor->hasNotificationActive());
  input->routingEnableIs(true);
  EXPECT_EQ(sm->reactions, 0);
  sm->hasNotificationActiveIs(true);
  input->routingEnableIs(false);
  EXPECT_EQ(sm->reactions, 1);
  sm->lateReactor.reset();
  EXPECT_EQ(input->notifieeList().size(), 0u);
}

TEST_F(OrbBaseSmTest, DestructionReleasesTheSharedContext) {
  long before = ocsd->references();
  {
    auto sm = Vex::make<ProbeSm>(ocsd, input);
    EXPECT_EQ(ocsd->references(), before + 1);
  }
  EXPECT_EQ(ocsd->references(), before);
  EXPECT_EQ(input->notifieeList().size(), 0u);
}

class ProbeAsyncSm : public Orb::OrbAsyncBaseSm {
 public:
  explicit ProbeAsyncSm(const Vex::Ptr<Orb::OrbCommonSmData>& ocsd) : OrbAsyncBaseSm(ocsd) { initializedIs(true); }
  void handleAsyncOperationResult() override {
    asyncStateIs(Orb::AsyncOperationState::asyncCompleted);
    disarmPendingOperationTimeout();
  }
  void handlePendingOperationTimeout() override {
    ++timeouts;
    timedOutAt = Vex::now();
    errorIs("timed out");
    asyncStateIs(Orb::AsyncOperationState::asyncNone);
  }
  void processTcamRequestQueue() override { ++queueRuns; }
  void start() {
    asyncStateIs(Orb::AsyncOperationState::asyncWaiting);
    armPendingOperationTimeout();
  }
  int timeouts = 0, queueRuns = 0;
  double timedOutAt = 0;
};

TEST_F(OrbBaseSmTest, AsyncDefaults) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  EXPECT_EQ(sm->asyncState(), Orb::AsyncOperationState::asyncNone);
  EXPECT_EQ(sm->pendingOperationTimeout(), 60.0);
  EXPECT_TRUE(sm->tcamRequestClock());
  EXPECT_TRUE(sm->pendingOperationTimeoutClock());
}

TEST_F(OrbBaseSmTest, PendingOperationTimesOutAfterSixtySeconds) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  loop.advance(5);
  sm->start();
  loop.advance(59.9);
  EXPECT_EQ(sm->asyncState(), Orb::AsyncOperationState::asyncWaiting);
  EXPECT_EQ(sm->timeouts, 0);
  loop.advance(0.1);
  EXPECT_EQ(sm->timeouts, 1);
  EXPECT_DOUBLE_EQ(sm->timedOutAt, 65.0);
  EXPECT_EQ(sm->error(), "timed out");
}

TEST_F(OrbBaseSmTest, ChangedTimeoutApplies) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  sm->pendingOperationTimeoutIs(2.5);
  sm->start();
  loop.advance(2.4);
  EXPECT_EQ(sm->timeouts, 0);
  loop.advance(0.1);
  EXPECT_EQ(sm->timeouts, 1);
}

TEST_F(OrbBaseSmTest, MutedMachineTimesOutOnceUnmuted) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  sm->start();
  sm->hasNotificationActiveIs(false);
  loop.advance(90);
  EXPECT_EQ(sm->timeouts, 0);
  sm->hasNotificationActiveIs(true);
  loop.runUntilIdle();
  EXPECT_EQ(sm->timeouts, 1);
  EXPECT_DOUBLE_EQ(sm->timedOutAt, 90.0);
  EXPECT_EQ(sm->asyncState(), Orb::AsyncOperationState::asyncNone);
}

TEST_F(OrbBaseSmTest, ResultBeforeTimeoutCompletesAndCancels) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  auto helper = Orb::orbAsyncBaseHelperFactory();
  sm->asyncHelperIs(helper);
  sm->start();
  loop.advance(10);
  helper->asyncOperationResultIs(Orb::AsyncOperationResult{"", Vex::now()});
  EXPECT_EQ(sm->asyncState(), Orb::AsyncOperationState::asyncCompleted);
  loop.advance(100);
  EXPECT_EQ(sm->timeouts, 0);
}

TEST_F(OrbBaseSmTest, ZombieAsyncMachineIgnoresClocksAndResults) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  auto helper = Orb::orbAsyncBaseHelperFactory();
  sm->asyncHelperIs(helper);
  sm->start();
  sm->scheduleTcamRequestQueue();
  sm->vexDoZombieReactors(true);
  helper->asyncOperationResultIs(Orb::AsyncOperationResult{"x", 1});
  loop.advance(120);
  EXPECT_EQ(sm->asyncState(), Orb::AsyncOperationState::asyncWaiting);
  EXPECT_EQ(sm->timeouts, 0);
  EXPECT_EQ(sm->queueRuns, 0);
}

TEST_F(OrbBaseSmTest, TcamRequestQueueRunsOnTheNextTurn) {
  auto sm = Vex::make<ProbeAsyncSm>(ocsd);
  sm->scheduleTcamRequestQueue();
  EXPECT_EQ(sm->queueRuns, 0);
  loop.runUntilIdle();
  EXPECT_EQ(sm->queueRuns, 1);
}

TEST_F(OrbBaseSmTest, AsyncHelperPrioritiesDecreaseFromAllOnesLessOne) {
  auto helper = Orb::orbAsyncBaseHelperFactory();
  EXPECT_EQ(helper->priority(), 4294967295u);
  EXPECT_EQ(helper->nextPriority(), 4294967294u);
  EXPECT_EQ(helper->nextPriority(), 4294967293u);
  EXPECT_FALSE(helper->asyncTcamOperationsSupported());
}

TEST_F(OrbBaseSmTest, AsyncResultPrintsAndTimestampsAtCreation) {
  loop.advance(7);
  auto helper = Orb::orbAsyncBaseHelperFactory();
  EXPECT_EQ(helper->asyncOperationResult().timestamp, 7.0);
  EXPECT_EQ(Vex::toStrep(Orb::AsyncOperationResult{"busy", 1.5}),
            "Value('Orb::AsyncOperationResult', ** {'error': 'busy', 'timestamp': 1.5})");
}

using OrbBaseSmDeathTest = OrbBaseSmTest;

TEST_F(OrbBaseSmDeathTest, PrioritiesRunOut) {
  auto helper = Orb::orbAsyncBaseHelperFactory();
  helper->priorityIs(2);
  EXPECT_EQ(helper->nextPriority(), 1u);
  EXPECT_DEATH(helper->nextPriority(), "priority\\(\\) > 0");
}

TEST_F(OrbBaseSmDeathTest, UnoverriddenResultHandlerStops) {
  struct Bare : Orb::OrbAsyncBaseSm {
    using OrbAsyncBaseSm::OrbAsyncBaseSm;
  };
  auto sm = Vex::make<Bare>(ocsd);
  EXPECT_DEATH(sm->handleAsyncOperationResult(), "handleAsyncOperationResult");
}

// A helper interface the way features declare theirs.
class ProbeHelper : public Orb::OrbBaseHelper {
 public:
  ProbeHelper() : OrbBaseHelper("probe") {}
  virtual std::uint32_t doProgram(int) { return ORB_UNIMPLEMENTED(ProbeHelper, doProgram); }
  virtual bool doCheck() { return ORB_UNIMPLEMENTED(ProbeHelper, doCheck); }
  virtual void doClear() { ORB_UNIMPLEMENTED(ProbeHelper, doClear); }
};

TEST(HelperPatternDeathTest, UnimplementedOperationStopsNamingItself) {
  unsetenv("ORB_NOOP_AGENT");
  ProbeHelper helper;
  EXPECT_DEATH(helper.doProgram(1), "Call to unimplemented function ProbeHelper::doProgram");
  EXPECT_DEATH(helper.doClear(), "Call to unimplemented function ProbeHelper::doClear");
}

TEST(HelperPattern, NoopAgentReturnsEmptyResults) {
  setenv("ORB_NOOP_AGENT", "1", 1);
  ProbeHelper helper;
  EXPECT_EQ(helper.doProgram(1), 0u);
  EXPECT_FALSE(helper.doCheck());
  helper.doClear();
  unsetenv("ORB_NOOP_AGENT");
}

// A chip layer may leave out only the MAC helper's optional operations;
// every other one must be provided or stops the process naming itself.
TEST(HelperPatternDeathTest, MacHelperOperationsAChipMustProvide) {
  unsetenv("ORB_NOOP_AGENT");
  OrbHelper::OrbHelperMacAddrSm helper;
  Bridging::MacVlanPair key{Nexo::EthAddr(1), Bridging::VlanId(10)};
  helper.hwInit();
  helper.addLearntLocalAndRemoveRemoteHost(key, Nexo::IntfId("Ethernet1"), Bridging::EntryType{});
  helper.handleLinkStateAtInit();
  helper.configureSourceMacInvalid(true);
  helper.enableLearningOnVlan(Bridging::VlanId(10), true);
  helper.handleVlanDelete(Bridging::VlanId(10));
  helper.handleParityEvent(Orb::ParityEvent::Key{});
  EXPECT_DEATH(helper.configureSourceCheckCPUMac(true),
               "Call to unimplemented function OrbMacAddrSmHelper::configureSourceCheckCPUMac");
  EXPECT_DEATH(helper.verifyLearningOnVlan(Bridging::VlanId(10), false),
               "Call to unimplemented function OrbMacAddrSmHelper::verifyLearningOnVlan");
  setenv("ORB_NOOP_AGENT", "1", 1);
  helper.configureSourceCheckCPUMac(true);
  helper.verifyLearningOnVlan(Bridging::VlanId(10), false);
  unsetenv("ORB_NOOP_AGENT");
}

TEST(HelperPattern, EveryDeclaredInterfaceIsANamedHelper) {
  OrbHelper::OrbHelperLagSm lag;
  OrbHelper::OrbPktSmHelperNull pkt;
  EXPECT_EQ(lag.name(), "OrbHelperLagSm");
  EXPECT_EQ(pkt.name(), "OrbPktSmHelperNull");
}

}  // namespace
