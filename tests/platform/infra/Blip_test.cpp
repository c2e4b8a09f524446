// Traces: levels, sinks, and no formatting work while a level is off.
#include "platform/blip/Blip.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// Counts how often it is formatted.
struct Costly {
  int* formatted;
};

}  // namespace

template <>
struct fmt::formatter<Costly> : fmt::formatter<int> {
  auto format(const Costly& c, format_context& ctx) const {
    ++*c.formatted;
    return fmt::formatter<int>::format(*c.formatted, ctx);
  }
};

namespace {

class BlipTest : public ::testing::Test {
 protected:
  std::shared_ptr<Blip::CaptureSink> capture = std::make_shared<Blip::CaptureSink>();
  void SetUp() override { Blip::sinkIs(capture); }
  void TearDown() override { Blip::sinkIs(nullptr); }
};

TEST_F(BlipTest, OnlyLevelsUpToTheHandlesLevelAreWritten) {
  auto& handle = Blip::handle("BlipTestLevels");
  handle.levelIs(3);
  BLIP(handle, 3, "kept {}", 1);
  BLIP(handle, 4, "dropped {}", 2);
  BLIP(handle, 0, "level 0 is never written");
  ASSERT_EQ(capture->lines.size(), 1u);
  EXPECT_EQ(capture->lines[0].text, "kept 1");
  EXPECT_EQ(capture->lines[0].module, "BlipTestLevels");
  EXPECT_EQ(capture->lines[0].level, 3u);
  handle.levelIs(42);
  EXPECT_EQ(handle.level(), 9u);
}

TEST_F(BlipTest, DisabledTraceEvaluatesAndFormatsNothing) {
  auto& handle = Blip::handle("BlipTestCost");
  int formatted = 0;
  int evaluated = 0;
  handle.levelIs(0);
  BLIP(handle, 1, "{} {}", Costly{&formatted}, ++evaluated);
  EXPECT_EQ(formatted, 0);
  EXPECT_EQ(evaluated, 0);
  EXPECT_TRUE(capture->lines.empty());
  handle.levelIs(1);
  BLIP(handle, 1, "{} {}", Costly{&formatted}, ++evaluated);
  EXPECT_EQ(formatted, 1);
  EXPECT_EQ(evaluated, 1);
}

TEST_F(BlipTest, LevelSetBeforeTheModuleWritesIsKept) {
  // A shell names the module first, the module finds its handle later.
  Blip::handle("BlipTestEarly").levelIs(5);
  EXPECT_EQ(Blip::handles().at("BlipTestEarly"), &Blip::handle("BlipTestEarly"));
  BLIP(Blip::handle("BlipTestEarly"), 5, "seen");
  EXPECT_TRUE(capture->contains("seen"));
}

TEST_F(BlipTest, HandleWithItsOwnSinkBypassesTheSharedOne) {
  auto& handle = Blip::handle("BlipTestOwnSink");
  auto own = std::make_shared<Blip::CaptureSink>();
  handle.ownSinkIs(own);
  handle.levelIs(1);
  BLIP(handle, 1, "private");
  handle.ownSinkIs(nullptr);
  BLIP(handle, 1, "shared");
  EXPECT_EQ(own->texts(), std::vector<std::string>{"private"});
  EXPECT_EQ(capture->texts(), std::vector<std::string>{"shared"});
}

TEST_F(BlipTest, LinesOutsideAnEventLoopHaveTimeZero) {
  ASSERT_EQ(Vex::EventLoop::current(), nullptr);
  auto& handle = Blip::handle("BlipTestNoLoop");
  handle.levelIs(9);
  BLIP(handle, 9, "x");
  EXPECT_EQ(capture->lines.at(0).time, 0.0);
}

TEST_F(BlipTest, ResettingTheSinkReturnsToTheRing) {
  Blip::sinkIs(nullptr);
  auto& handle = Blip::handle("BlipTestRing");
  handle.levelIs(1);
  BLIP(handle, 1, "into the ring");
  ASSERT_FALSE(Blip::ring().lines().empty());
  EXPECT_EQ(Blip::ring().lines().back().text, "into the ring");
  EXPECT_TRUE(capture->lines.empty());
}

TEST_F(BlipTest, LinesCarryTheLoopsTimeWithoutMovingIt) {
  Vex::EventLoop loop;
  loop.advance(12.5);
  loop.simulatedTime()->stepIs(1.0);
  auto& handle = Blip::handle("BlipTestTime");
  handle.levelIs(1);
  BLIP(handle, 1, "tick");
  EXPECT_DOUBLE_EQ(capture->lines.at(0).time, 12.5);
  EXPECT_DOUBLE_EQ(loop.simulatedTime()->time(), 12.5);
  EXPECT_EQ(Blip::format(capture->lines[0]), "12.500000 BlipTestTime 1 tick");
}

TEST(BlipSinks, RingKeepsTheLatestLines) {
  Blip::RingSink ring(2);
  for (int i = 0; i < 3; ++i) ring.write(Blip::Line{0, "m", 1, std::to_string(i)});
  ASSERT_EQ(ring.lines().size(), 2u);
  EXPECT_EQ(ring.lines().front().text, "1");
  EXPECT_EQ(ring.lines().back().text, "2");
  Blip::RingSink none(0);
  none.write(Blip::Line{0, "m", 1, "dropped"});
  EXPECT_TRUE(none.lines().empty());
}

TEST(BlipSinks, FileSinkAppendsFormattedLines) {
  std::string path = ::testing::TempDir() + "blip-test.trace";
  std::remove(path.c_str());
  for (const char* text : {"hello", "again"}) {
    Blip::FileSink file(path);
    ASSERT_TRUE(file.ok());
    file.write(Blip::Line{1.0, "mod", 2, text});
  }
  std::ifstream in(path);
  std::string first, second;
  std::getline(in, first);
  std::getline(in, second);
  EXPECT_EQ(first, "1.000000 mod 2 hello");
  EXPECT_EQ(second, "1.000000 mod 2 again");
  std::remove(path.c_str());
}

TEST(BlipSinks, FileSinkOnAnUnwritablePathReportsIt) {
  Blip::FileSink file("/nonexistent-dir/blip.trace");
  EXPECT_FALSE(file.ok());
  file.write(Blip::Line{0, "m", 1, "lost"});  // must not crash
}

}  // namespace
