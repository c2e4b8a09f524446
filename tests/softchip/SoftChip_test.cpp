// The soft chip's table kind: capacities, planned faults, acknowledgements
// in order, the dump, and the chip's registry of tables by name.
#include "chip/softchip/SoftChip.h"

#include "platform/json/Json.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using SoftChip::Fault;

class ToyTable : public SoftChip::SoftTableOf<std::string, int> {
 public:
  ToyTable(SoftChip::SoftChip& chip, const std::string& name) : SoftTableOf(chip, name) {}

 protected:
  void dumpEntry(SoftChip::JsonWriter& writer, const int& entry) const override { writer.Int(entry); }
};

class SoftTableTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  ToyTable toy{*chip, "toy"};
  ToyTable slow{*chip, "slow"};
};

TEST_F(SoftTableTest, CapacityBoundsRoomAndAdmission) {
  EXPECT_EQ(toy.capacity(), SoftChip::SoftTable::unlimited);
  chip->capacityIs("toy", 1);
  EXPECT_TRUE(toy.hasRoom());
  toy.entries["a"] = 1;
  EXPECT_FALSE(toy.hasRoom());
  EXPECT_EQ(toy.admit(true), Fault::full);
  EXPECT_EQ(toy.admit(false), Fault::none);  // a rewrite of a held entry fits
  chip->capacityIs("toy", 0);
  EXPECT_EQ(toy.admit(false), Fault::none);
}

TEST_F(SoftTableTest, PlannedFaultsComeInOrderBeforeFullThenStop) {
  chip->faultIs("toy", Fault::busy, 2);
  chip->faultIs("toy", Fault::failed, 1);
  chip->capacityIs("toy", 0);
  EXPECT_EQ(toy.plannedFaults(), 3u);
  EXPECT_EQ(slow.nextFault(), Fault::none);
  EXPECT_EQ(toy.admit(true), Fault::busy);
  EXPECT_EQ(toy.admit(true), Fault::busy);
  EXPECT_EQ(toy.admit(true), Fault::failed);
  EXPECT_EQ(toy.admit(true), Fault::full);
  chip->faultIs("toy", Fault::failed, 5);
  chip->faultDelAll("toy");
  EXPECT_EQ(toy.nextFault(), Fault::none);
}

TEST_F(SoftTableTest, UseIsReportedOnceATurnAfterOperationsRemovalsAndNewCapacities) {
  std::vector<std::size_t> reported;
  toy.usageHandlerIs([&] { reported.push_back(toy.size()); });
  // Reported after the operation has changed the table, once for a batch.
  EXPECT_EQ(toy.admit(true), Fault::none);
  toy.entries["a"] = 1;
  EXPECT_EQ(toy.admit(true), Fault::none);
  toy.entries["b"] = 2;
  EXPECT_TRUE(reported.empty());
  loop.runUntilIdle();
  EXPECT_EQ(reported, (std::vector<std::size_t>{2}));
  EXPECT_TRUE(toy.erase("a"));
  EXPECT_FALSE(toy.erase("missing"));
  loop.runUntilIdle();
  EXPECT_EQ(reported, (std::vector<std::size_t>{2, 1}));
  toy.capacityIs(8);
  loop.runUntilIdle();
  EXPECT_EQ(reported.size(), 3u);
  // A refused operation is reported too: its caller may wait on the room.
  toy.faultIs(Fault::busy, 1);
  EXPECT_EQ(toy.admit(true), Fault::busy);
  loop.runUntilIdle();
  EXPECT_EQ(reported.size(), 4u);
}

TEST_F(SoftTableTest, FaultNamesParse) {
  EXPECT_EQ(SoftChip::faultFromName("busy"), Fault::busy);
  EXPECT_EQ(SoftChip::faultFromName("failed"), Fault::failed);
  EXPECT_EQ(SoftChip::faultFromName("bogus"), Fault::none);
}

TEST_F(SoftTableTest, ImmediateAcksRunOnTheNextTurnInOrder) {
  std::vector<int> acked;
  toy.ackIs([&] { acked.push_back(1); });
  toy.ackIs([&] { acked.push_back(2); });
  EXPECT_TRUE(acked.empty());
  loop.runUntilIdle();
  EXPECT_EQ(acked, (std::vector<int>{1, 2}));
}

TEST_F(SoftTableTest, DelayedAcksWaitTheirDelayPerTable) {
  std::vector<std::string> acked;
  chip->ackDelayIs("slow", 2.0);
  slow.ackIs([&] { acked.push_back("slow"); });
  toy.ackIs([&] { acked.push_back("fast"); });
  loop.advance(1.0);
  EXPECT_EQ(acked, std::vector<std::string>{"fast"});
  EXPECT_EQ(chip->pendingAcks(), 1u);
  loop.advance(1.0);
  EXPECT_EQ(acked, (std::vector<std::string>{"fast", "slow"}));
}

TEST_F(SoftTableTest, AShorterDelayNeverLetsAnAnswerOvertakeAnEarlierOne) {
  std::vector<int> acked;
  slow.ackDelayIs(5.0);
  slow.ackIs([&] { acked.push_back(1); });
  slow.ackDelayIs(0);
  slow.ackIs([&] { acked.push_back(2); });
  loop.advance(1.0);
  EXPECT_TRUE(acked.empty());
  loop.advance(4.0);
  EXPECT_EQ(acked, (std::vector<int>{1, 2}));
}

TEST_F(SoftTableTest, AckMayScheduleAnotherAck) {
  int acks = 0;
  toy.ackIs([&] {
    ++acks;
    toy.ackIs([&] { ++acks; });
  });
  loop.runUntilIdle();
  EXPECT_EQ(acks, 2);
}

TEST_F(SoftTableTest, AcksOfATableThatGoesNeverRun) {
  int acks = 0;
  {
    ToyTable shortLived(*chip, "short");
    shortLived.ackIs([&] { ++acks; });
  }
  loop.runUntilIdle();
  EXPECT_EQ(acks, 0);
}

TEST_F(SoftTableTest, JsonDumpHoldsEveryLiveTable) {
  toy.entries = {{"a", 3}, {"b", 4}};
  chip->capacityIs("toy", 10);
  chip->faultIs("toy", Fault::busy, 1);
  rapidjson::Document doc;
  doc.Parse(chip->json().c_str());
  ASSERT_FALSE(doc.HasParseError());
  const auto& t = doc["tables"]["toy"];
  EXPECT_EQ(t["size"].GetUint64(), 2u);
  EXPECT_EQ(t["capacity"].GetUint64(), 10u);
  EXPECT_TRUE(doc["tables"]["slow"]["capacity"].IsNull());
  EXPECT_STREQ(t["plannedFaults"][0].GetString(), "busy");
  EXPECT_EQ(t["entries"]["b"].GetInt(), 4);
  {
    ToyTable gone(*chip, "gone");
    doc.Parse(chip->json().c_str());
    EXPECT_TRUE(doc["tables"].HasMember("gone"));
  }
  doc.Parse(chip->json().c_str());
  EXPECT_FALSE(doc["tables"].HasMember("gone"));
}

TEST_F(SoftTableTest, UnknownTableNamesAreRefusedWithTheKnownOnes) {
  try {
    chip->capacityIs("tcam", 4);
    FAIL() << "no error";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "the chip has no table 'tcam' (tables: slow, toy)");
  }
}

}  // namespace
