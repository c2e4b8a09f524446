// Clocks under simulated time: ordering, re-arming, yielding and slicing.
#include "platform/vex/Clock.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

class ClockTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  std::vector<std::string> fired;

  Vex::Ptr<Vex::Clock> clock(const std::string& name) {
    return Vex::clockFactory([this, name] { fired.push_back(name + "@" + std::to_string(Vex::now())); });
  }
};

TEST_F(ClockTest, FiresInWakeTimeOrderAtItsWakeTime) {
  auto a = clock("a"), b = clock("b"), c = clock("c");
  c->timeMinIs(3.0);
  a->timeMinIs(1.0);
  b->timeMinIs(2.0);
  loop.advance(2.5);
  EXPECT_EQ(fired, (std::vector<std::string>{"a@1.000000", "b@2.000000"}));
  EXPECT_DOUBLE_EQ(Vex::now(), 2.5);
  loop.advance(1.0);
  EXPECT_EQ(fired.back(), "c@3.000000");
}

TEST_F(ClockTest, SameWakeTimeFiresInArmingOrder) {
  auto a = clock("a"), b = clock("b");
  b->timeMinIs(1.0);
  a->timeMinIs(1.0);
  loop.advance(1.0);
  EXPECT_EQ(fired, (std::vector<std::string>{"b@1.000000", "a@1.000000"}));
}

TEST_F(ClockTest, NeverDisarmsAndRearmingMoves) {
  auto a = clock("a");
  a->timeMinIs(1.0);
  a->timeMinIs(Vex::never);
  loop.advance(5.0);
  EXPECT_TRUE(fired.empty());
  a->timeMinIs(10.0);
  a->timeMinIs(7.0);
  loop.advance(2.5);
  EXPECT_EQ(fired, std::vector<std::string>{"a@7.000000"});
  EXPECT_EQ(a->timeMin(), Vex::never);
}

TEST_F(ClockTest, ClocksBeyondOneWheelTurnStillFireInOrder) {
  auto far = clock("far"), near = clock("near");
  far->timeMinIs(3600.0);
  near->timeMinIs(4.096 + 0.0005);  // same slot as a clock one turn earlier would use
  loop.advance(4000.0);
  ASSERT_EQ(fired.size(), 2u);
  EXPECT_EQ(fired[0].substr(0, 4), "near");
  EXPECT_EQ(fired[1], "far@3600.000000");
}

TEST_F(ClockTest, RearmingForNowYieldsToOtherDueWork) {
  std::vector<std::string> order;
  int slices = 0;
  Vex::Ptr<Vex::Clock> walker;
  walker = Vex::clockFactory([&] {
    order.push_back("slice");
    if (++slices < 3) walker->timeMinIs(Vex::now());
  });
  auto other = Vex::clockFactory([&] { order.push_back("other"); });
  walker->timeMinIs(1.0);
  other->timeMinIs(1.0);
  loop.advance(1.0);
  EXPECT_EQ(order, (std::vector<std::string>{"slice", "other", "slice", "slice"}));
}

TEST_F(ClockTest, RunUntilIdleFiresOnlyWhatIsDue) {
  auto a = clock("a"), b = clock("b");
  a->timeMinIs(0.0);
  b->timeMinIs(1.0);
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(fired, std::vector<std::string>{"a@0.000000"});
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 1.0);
}

TEST_F(ClockTest, MutedAndZombieClocksDoNotFire) {
  auto a = clock("a"), b = clock("b");
  a->hasNotificationActiveIs(false);
  b->vexDoZombieReactors(true);
  a->timeMinIs(1.0);
  b->timeMinIs(1.0);
  loop.advance(2.0);
  EXPECT_TRUE(fired.empty());
}

TEST_F(ClockTest, ClockDueWhileMutedFiresOnceUnmuted) {
  auto a = clock("a"), b = clock("b");
  a->timeMinIs(1.0);
  b->timeMinIs(1.0);
  a->hasNotificationActiveIs(false);
  b->hasNotificationActiveIs(false);
  loop.advance(3.0);
  EXPECT_TRUE(fired.empty());
  a->hasNotificationActiveIs(true);
  EXPECT_TRUE(fired.empty());  // not from inside the unmuting call
  loop.runUntilIdle();
  EXPECT_EQ(fired, std::vector<std::string>{"a@3.000000"});
  // Disarming a held clock cancels it; muting again holds it again.
  b->timeMinIs(Vex::never);
  b->hasNotificationActiveIs(true);
  loop.advance(1.0);
  EXPECT_EQ(fired.size(), 1u);
  a->timeMinIs(5.0);
  a->hasNotificationActiveIs(false);
  a->hasNotificationActiveIs(true);
  loop.advance(1.0);
  EXPECT_EQ(fired.back(), "a@5.000000");
  EXPECT_EQ(fired.size(), 2u);
}

TEST_F(ClockTest, HandlerMayDisarmAnotherClockOfTheSameTurn) {
  auto b = clock("b");
  auto a = Vex::clockFactory([&] { b->timeMinIs(Vex::never); });
  a->timeMinIs(1.0);
  b->timeMinIs(1.0);
  loop.advance(1.0);
  EXPECT_TRUE(fired.empty());
}

// A handler that throws loses nothing of its batch: the clocks collected
// with it still fire on a later turn, and the thrower is not fired again.
TEST_F(ClockTest, ThrowingHandlerKeepsTheRestOfItsBatch) {
  auto a = clock("a"), c = clock("c");
  int thrown = 0;
  auto b = Vex::clockFactory([&thrown] {
    ++thrown;
    throw std::runtime_error("handler failed");
  });
  a->timeMinIs(1.0);
  b->timeMinIs(1.0);
  c->timeMinIs(1.0);
  EXPECT_THROW(loop.advance(1.0), std::runtime_error);
  EXPECT_EQ(fired, (std::vector<std::string>{"a@1.000000"}));
  EXPECT_EQ(loop.armedClocks(), 1u);
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 1.0);
  loop.runUntilIdle();
  EXPECT_EQ(fired, (std::vector<std::string>{"a@1.000000", "c@1.000000"}));
  EXPECT_EQ(thrown, 1);
  // The clock left behind can be armed again as usual.
  c->timeMinIs(2.0);
  loop.advance(1.0);
  EXPECT_EQ(fired.back(), "c@2.000000");
}

TEST_F(ClockTest, DestroyedClockIsForgotten) {
  auto a = clock("a");
  a->timeMinIs(1.0);
  a.reset();
  EXPECT_EQ(loop.armedClocks(), 0u);
  loop.advance(2.0);
  EXPECT_TRUE(fired.empty());
}

TEST_F(ClockTest, SteppingTimeSourceMovesOnEveryReading) {
  loop.simulatedTime()->stepIs(0.004);
  // A walk with a 0.01 s quantum that checks the time after each item.
  int items = 0;
  Vex::Seconds start = Vex::now();
  while (Vex::now() - start < 0.01) ++items;
  EXPECT_EQ(items, 2);
}

TEST(EventLoop, ClocksOutlivingTheirLoopAreHarmless) {
  Vex::Ptr<Vex::Clock> orphan;
  {
    Vex::EventLoop loop;
    orphan = Vex::clockFactory([] {});
    orphan->timeMinIs(1.0);
  }
  orphan->timeMinIs(2.0);
  EXPECT_EQ(Vex::EventLoop::current(), nullptr);
}

}  // namespace

namespace {

TEST(TimerWheel, WakeTimesBeyondWhatTicksCountStillFire) {
  Vex::EventLoop loop;
  std::vector<Vex::Seconds> firedAt;
  auto record = [&] { firedAt.push_back(Vex::now()); };
  auto far = Vex::clockFactory(record), farther = Vex::clockFactory(record), now = Vex::clockFactory(record);
  farther->timeMinIs(2e300);
  far->timeMinIs(1e300);
  loop.advance(1e300);
  EXPECT_EQ(firedAt, std::vector<Vex::Seconds>{1e300});
  EXPECT_EQ(loop.nextWakeTime(), 2e300);
  now->timeMinIs(Vex::now());
  loop.runUntilIdle();
  EXPECT_EQ(firedAt, (std::vector<Vex::Seconds>{1e300, 1e300}));
  loop.advance(1e300);
  EXPECT_EQ(firedAt.back(), 2e300);
}

TEST(TimerWheel, EarliestWakeTimeFollowsDisarmsAndRearms) {
  Vex::EventLoop loop;
  auto a = Vex::clockFactory([] {});
  auto b = Vex::clockFactory([] {});
  a->timeMinIs(1.0);
  b->timeMinIs(3.0);
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 1.0);
  a->timeMinIs(Vex::never);
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 3.0);
  a->timeMinIs(10.0);
  b->timeMinIs(Vex::never);
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 10.0);
  a->timeMinIs(0.5);
  EXPECT_DOUBLE_EQ(loop.nextWakeTime(), 0.5);
}

}  // namespace
