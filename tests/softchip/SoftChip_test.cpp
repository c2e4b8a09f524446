// The soft chip's frame: capacities, planned faults, acknowledgements, dump.
#include "chip/softchip/SoftChip.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>
#include "platform/json/Json.h"

#include <set>

namespace {

class ToyTable : public SoftChip::SoftTable {
 public:
  ToyTable() : SoftTable("toy") {}
  std::set<int> entries;
  std::size_t size() const override { return entries.size(); }
  void dump(SoftChip::JsonWriter& writer) const override {
    writer.StartArray();
    for (int e : entries) writer.Int(e);
    writer.EndArray();
  }
};

class SoftChipTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  ToyTable toy;
  void SetUp() override { chip->tableIs(&toy); }
};

TEST_F(SoftChipTest, CapacityBoundsRoom) {
  EXPECT_EQ(chip->capacity("toy"), SoftChip::SoftChip::unlimited);
  chip->capacityIs("toy", 2);
  toy.entries = {1};
  EXPECT_TRUE(chip->hasRoom("toy"));
  toy.entries = {1, 2};
  EXPECT_FALSE(chip->hasRoom("toy"));
}

TEST_F(SoftChipTest, PlannedFaultsComeInOrderThenStop) {
  chip->faultIs("toy", SoftChip::Fault::busy, 2);
  chip->faultIs("toy", SoftChip::Fault::full, 1);
  EXPECT_EQ(chip->plannedFaults("toy"), 3u);
  EXPECT_EQ(chip->nextFault("other"), SoftChip::Fault::none);
  EXPECT_EQ(chip->nextFault("toy"), SoftChip::Fault::busy);
  EXPECT_EQ(chip->nextFault("toy"), SoftChip::Fault::busy);
  EXPECT_EQ(chip->nextFault("toy"), SoftChip::Fault::full);
  EXPECT_EQ(chip->nextFault("toy"), SoftChip::Fault::none);
  chip->faultIs("toy", SoftChip::Fault::failed, 5);
  chip->faultDelAll("toy");
  EXPECT_EQ(chip->nextFault("toy"), SoftChip::Fault::none);
}

TEST_F(SoftChipTest, FaultNamesParse) {
  EXPECT_EQ(SoftChip::faultFromName("busy"), SoftChip::Fault::busy);
  EXPECT_EQ(SoftChip::faultFromName("failed"), SoftChip::Fault::failed);
  EXPECT_EQ(SoftChip::faultFromName("bogus"), SoftChip::Fault::none);
}

TEST_F(SoftChipTest, ImmediateAcksRunOnTheNextTurnInOrder) {
  std::vector<int> acked;
  chip->ackIs("toy", [&] { acked.push_back(1); });
  chip->ackIs("toy", [&] { acked.push_back(2); });
  EXPECT_TRUE(acked.empty());
  loop.runUntilIdle();
  EXPECT_EQ(acked, (std::vector<int>{1, 2}));
}

TEST_F(SoftChipTest, DelayedAcksWaitTheirDelay) {
  std::vector<std::string> acked;
  chip->ackDelayIs("slow", 2.0);
  chip->ackIs("slow", [&] { acked.push_back("slow"); });
  chip->ackIs("toy", [&] { acked.push_back("fast"); });
  loop.advance(1.0);
  EXPECT_EQ(acked, std::vector<std::string>{"fast"});
  EXPECT_EQ(chip->pendingAcks(), 1u);
  loop.advance(1.0);
  EXPECT_EQ(acked, (std::vector<std::string>{"fast", "slow"}));
}

TEST_F(SoftChipTest, AckMayScheduleAnotherAck) {
  int acks = 0;
  chip->ackIs("toy", [&] {
    ++acks;
    chip->ackIs("toy", [&] { ++acks; });
  });
  loop.runUntilIdle();
  EXPECT_EQ(acks, 2);
}

TEST_F(SoftChipTest, JsonDumpHoldsEveryTable) {
  toy.entries = {3, 4};
  chip->capacityIs("toy", 10);
  chip->faultIs("toy", SoftChip::Fault::busy, 1);
  rapidjson::Document doc;
  doc.Parse(chip->json().c_str());
  ASSERT_FALSE(doc.HasParseError());
  const auto& t = doc["tables"]["toy"];
  EXPECT_EQ(t["size"].GetUint64(), 2u);
  EXPECT_EQ(t["capacity"].GetUint64(), 10u);
  EXPECT_STREQ(t["plannedFaults"][0].GetString(), "busy");
  EXPECT_EQ(t["entries"][1].GetInt(), 4);
  chip->tableDel(&toy);
  doc.Parse(chip->json().c_str());
  EXPECT_FALSE(doc["tables"].HasMember("toy"));
}

}  // namespace
