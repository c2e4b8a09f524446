// Traces: levels, sinks, and no formatting work while a level is off.
#include "platform/blip/Blip.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

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

TEST_F(BlipTest, DisabledTraceFormatsNothing) {
  auto& handle = Blip::handle("BlipTestCost");
  int formatted = 0;
  handle.levelIs(0);
  BLIP(handle, 1, "{}", Costly{&formatted});
  EXPECT_EQ(formatted, 0);
  handle.levelIs(1);
  BLIP(handle, 1, "{}", Costly{&formatted});
  EXPECT_EQ(formatted, 1);
}

TEST_F(BlipTest, HandlesAreRegisteredOnceByModule) {
  auto& a = Blip::handle("BlipTestSame");
  auto& b = Blip::handle("BlipTestSame");
  EXPECT_EQ(&a, &b);
  EXPECT_TRUE(Blip::handles().count("BlipTestSame"));
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
}

TEST(BlipSinks, FileSinkAppendsFormattedLines) {
  std::string path = ::testing::TempDir() + "blip-test.trace";
  std::remove(path.c_str());
  {
    Blip::FileSink file(path);
    ASSERT_TRUE(file.ok());
    file.write(Blip::Line{1.0, "mod", 2, "hello"});
  }
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "1.000000 mod 2 hello");
}

}  // namespace
