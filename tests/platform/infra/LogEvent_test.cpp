// Log events: definitions, formatting and capture.
#include "platform/log/LogEvent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

const Log::Definition staticEvent{
    {"TEST_STATIC_EVENT", "Port %s flapped %d times", "The link went down and up.", "Check the cable."}};

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
  Log::emit("TEST_TABLE_FULL", std::string("00:11:22:33:44:66"), 20);
  ASSERT_EQ(capture->events.size(), 2u);
  EXPECT_EQ(capture->events[0].id, "TEST_TABLE_FULL");
  EXPECT_EQ(capture->events[0].message, "Table full: 00:11:22:33:44:55 on vlan 10");
  EXPECT_EQ(capture->events[1].message, "Table full: 00:11:22:33:44:66 on vlan 20");
  EXPECT_EQ(capture->count("TEST_TABLE_FULL"), 2u);
  EXPECT_EQ(capture->count("TEST_OTHER"), 0u);
}

TEST_F(LogEventTest, StaticDefinitionIsRegisteredAndEmits) {
  ASSERT_NE(Log::lookup("TEST_STATIC_EVENT"), nullptr);
  EXPECT_EQ(&staticEvent.def(), Log::lookup("TEST_STATIC_EVENT"));
  staticEvent.emit("Ethernet1", 3);
  ASSERT_EQ(capture->events.size(), 1u);
  EXPECT_EQ(capture->events[0].message, "Port Ethernet1 flapped 3 times");
}

TEST_F(LogEventTest, DefinitionsCarryExplanationAndAction) {
  const auto* def = Log::lookup("TEST_TABLE_FULL");
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->explanation, "The table has no room.");
  EXPECT_EQ(def->recommendedAction, "Remove entries.");
  EXPECT_EQ(Log::lookup("TEST_NOT_DEFINED"), nullptr);
  auto ids = Log::definedIds();
  EXPECT_NE(std::find(ids.begin(), ids.end(), "TEST_TABLE_FULL"), ids.end());
}

TEST_F(LogEventTest, RedefiningKeepsEarlierReferencesValid) {
  const auto& first = Log::define({"TEST_REDEFINED", "old %d", "", ""});
  Log::define({"TEST_REDEFINED", "new %d", "", ""});
  EXPECT_EQ(first.format, "new %d");
  Log::emit("TEST_REDEFINED", 1);
  EXPECT_EQ(capture->events.at(0).message, "new 1");
}

TEST_F(LogEventTest, MisuseIsAProgrammingError) {
  EXPECT_THROW(Log::emit("TEST_NOT_DEFINED"), std::logic_error);
  // Too few or too many arguments for the format would read or skip
  // arguments that are not there.
  EXPECT_THROW(Log::emit("TEST_TABLE_FULL", "only one"), std::logic_error);
  EXPECT_THROW(Log::emit("TEST_TABLE_FULL", "a", 1, 2), std::logic_error);
  EXPECT_TRUE(capture->events.empty());
  EXPECT_THROW(Log::define({"TEST_BAD_FORMAT", "dangling %", "", ""}), std::invalid_argument);
  EXPECT_THROW(Log::define({"TEST_BAD_FORMAT", "writes %n", "", ""}), std::invalid_argument);
  EXPECT_EQ(Log::lookup("TEST_BAD_FORMAT"), nullptr);
}

TEST_F(LogEventTest, FormatArgumentsAreCountedLikePrintf) {
  Log::define({"TEST_PRINTF", "%% %-5s|%*d|%.*f|%lu|%5.2f%%", "", ""});
  Log::emit("TEST_PRINTF", "ab", 4, 7, 2, 1.5, 9ul, 3.14159);
  EXPECT_EQ(capture->events.at(0).message, "% ab   |   7|1.50|9| 3.14%");
}

}  // namespace
