// Time slices checked against their quanta on simulated time, where work
// takes the time it spends.
#include "platform/vex/TimeSlice.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

// Items take whole ticks, a power of two, so that times add up exactly.
constexpr Vex::Seconds tick = 1.0 / 128;

class TimeSliceTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  void SetUp() override {
    loop.makeCurrent();
    Vex::TimeSlice::checkingIs(true);
  }
  void TearDown() override { Vex::TimeSlice::checkingIs(false); }

  // A walk of `items` items of `itemTime` each that reads the clock every
  // `readEvery` items and stops once `quantum` is spent. Returns the items done.
  unsigned walk(unsigned items, Vex::Seconds itemTime, unsigned readEvery, Vex::Seconds quantum,
                unsigned minItems = 0) {
    Vex::TimeSlice slice("walk", quantum, minItems);
    Vex::Seconds start = Vex::now();
    unsigned done = 0;
    while (done < items) {
      loop.spend(itemTime);
      ++done;
      slice.itemDone();
      if (done >= minItems && done % readEvery == 0 && Vex::now() - start > quantum) break;
    }
    return done;
  }
};

TEST_F(TimeSliceTest, AWalkThatLooksAfterEachItemEndsWithinOneItem) {
  EXPECT_EQ(walk(1000, tick, 1, 8 * tick), 9u);
  {
    // Items of uneven length: the allowance is the longest, not the last.
    Vex::TimeSlice slice("uneven", 8 * tick);
    for (int ticks : {6, 1, 2}) {
      loop.spend(ticks * tick);
      slice.itemDone();
    }
    loop.spend(4 * tick);
  }
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
}

TEST_F(TimeSliceTest, AWalkThatLooksOnlyNowAndThenOverruns) {
  EXPECT_EQ(walk(1000, tick, 8, 8 * tick), 16u);
  ASSERT_EQ(Vex::TimeSlice::overruns(), 1u);
  const auto& record = Vex::TimeSlice::records().at("walk");
  EXPECT_EQ(record.slices, 1u);
  EXPECT_EQ(record.items, 16u);
  EXPECT_EQ(record.quantum, 8 * tick);
  EXPECT_EQ(record.longest, 16 * tick);
  // Allowed 8 ticks and one item.
  EXPECT_EQ(record.worstExcess, 7 * tick);
}

TEST_F(TimeSliceTest, TheItemsAPassMustHandleFirstMayTakeLongerThanTheQuantum) {
  EXPECT_EQ(walk(1000, tick, 1, 8 * tick, 128), 128u);
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
  // Past the minimum the quantum holds again.
  EXPECT_EQ(walk(1000, tick, 1, 168 * tick, 128), 169u);
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
  EXPECT_EQ(walk(1000, tick, 64, 168 * tick, 128), 192u);
  EXPECT_EQ(Vex::TimeSlice::overruns(), 1u);
}

TEST_F(TimeSliceTest, WorkAfterTheLastItemCountsAsAnItem) {
  {
    Vex::TimeSlice slice("tail", 8 * tick);
    loop.spend(6 * tick);
    slice.itemDone();
    loop.spend(3 * tick);
    slice.itemDone();
    loop.spend(4 * tick);
  }
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
  {
    Vex::TimeSlice slice("tail", 8 * tick);
    loop.spend(6 * tick);
    slice.itemDone();
    loop.spend(3 * tick);
    slice.itemDone();
    loop.spend(7 * tick);
  }
  EXPECT_EQ(Vex::TimeSlice::overruns(), 1u);
}

TEST_F(TimeSliceTest, CheckingReadsTheTimeWithoutSteppingTheClock) {
  // A stepping clock moves on at every reading the walk makes; the
  // checking's own readings must not change how far the walk gets.
  loop.simulatedTime()->stepIs(tick);
  unsigned checked = walk(1000, 0, 1, 8 * tick);
  Vex::TimeSlice::checkingIs(false);
  unsigned unchecked = walk(1000, 0, 1, 8 * tick);
  EXPECT_EQ(checked, 9u);
  EXPECT_EQ(checked, unchecked);
}

TEST_F(TimeSliceTest, OffRecordsNothingAndOnStartsAfresh) {
  walk(1000, tick, 8, 8 * tick);
  ASSERT_EQ(Vex::TimeSlice::overruns(), 1u);
  Vex::TimeSlice::checkingIs(true);
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
  EXPECT_TRUE(Vex::TimeSlice::records().empty());
  Vex::TimeSlice::checkingIs(false);
  walk(1000, tick, 8, 8 * tick);
  EXPECT_EQ(Vex::TimeSlice::overruns(), 0u);
  EXPECT_TRUE(Vex::TimeSlice::records().empty());
}

TEST_F(TimeSliceTest, SpendingMovesOnlySimulatedTimeAndFiresNothingInTheReaction) {
  int fired = 0;
  auto clock = Vex::clockFactory([&] { ++fired; });
  clock->timeMinIs(0.5);
  loop.spend(1.0);
  EXPECT_DOUBLE_EQ(loop.peekNow(), 1.0);
  EXPECT_EQ(fired, 0);
  loop.runUntilIdle();
  EXPECT_EQ(fired, 1);
  loop.spend(-1.0);
  EXPECT_DOUBLE_EQ(loop.peekNow(), 1.0);
}

}  // namespace
