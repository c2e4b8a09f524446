// Log events: definitions, formatting and capture.
#include "platform/log/LogEvent.h"

#include <gtest/gtest.h>

namespace {

class LogEventTest : public ::testing::Test {
 protected:
  std::shared_ptr<Log::CaptureSink> capture = std::make_shared<Log::CaptureSink>();
  void SetUp() override {
    Log::sinkIs(capture);
    Log::define({"TEST_TABLE_FULL", "Table full: %s on vlan %d", "The table has no room.", "Remove entries."});
  }
  void TearDown() override { Log::sinkIs(nullptr); }
};

TEST_F(LogEventTest, EmitsTheFormattedMessageUnderItsId) {
  Log::emit("TEST_TABLE_FULL", "00:11:22:33:44:55", 10);
  ASSERT_EQ(capture->events.size(), 1u);
  EXPECT_EQ(capture->events[0].id, "TEST_TABLE_FULL");
  EXPECT_EQ(capture->events[0].message, "Table full: 00:11:22:33:44:55 on vlan 10");
  EXPECT_EQ(capture->count("TEST_TABLE_FULL"), 1u);
}

TEST_F(LogEventTest, DefinitionsCarryExplanationAndAction) {
  const auto* def = Log::lookup("TEST_TABLE_FULL");
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->explanation, "The table has no room.");
  EXPECT_EQ(def->recommendedAction, "Remove entries.");
  EXPECT_EQ(Log::lookup("TEST_NOT_DEFINED"), nullptr);
}

TEST_F(LogEventTest, UndefinedEventIsAProgrammingError) {
  EXPECT_THROW(Log::emit("TEST_NOT_DEFINED"), std::logic_error);
  EXPECT_TRUE(capture->events.empty());
}

}  // namespace
