// The VLAN-translation table: exact tags before the outer tag alone,
// refusals as statuses, and the inner tag of the frame syntax.
#include "chip/softchip/SoftSubIntf.h"
#include "chip/softchip/SoftFrame.h"
#include "platform/model/MacTypes.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Nexo::IntfId;

TEST(SoftSubIntf, ExactTagsFirstThenOuterAlone) {
  Vex::EventLoop loop;
  auto chip = SoftChip::softChipFactory();
  SoftChip::SoftSubIntfHelper helper(chip);
  const IntfId e1("Ethernet1");
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.1", e1, Bridging::VlanIdOrNone(100), {10, 0}, false), 0u);
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.2", e1, Bridging::VlanIdOrNone(200), {10, 5}, true), 0u);
  const auto& table = helper.table();
  EXPECT_EQ(table.match(e1, 10, 5)->subIntf, IntfId("Ethernet1.2"));
  EXPECT_EQ(table.match(e1, 10, 6)->subIntf, IntfId("Ethernet1.1"));
  EXPECT_EQ(table.match(e1, 10, 0)->subIntf, IntfId("Ethernet1.1"));
  EXPECT_EQ(table.match(e1, 11, 0), nullptr);
  EXPECT_EQ(table.match(IntfId("Ethernet2"), 10, 0), nullptr);
  EXPECT_EQ(table.keyOf("Ethernet1.2")->innerTag, 5u);
  // A delete that names another sub-interface leaves the entry alone.
  helper.doDeleteDot1qEncapToVsiMap("Ethernet1.9", e1, Bridging::VlanIdOrNone(100), {10, 0}, false);
  EXPECT_NE(table.match(e1, 10, 0), nullptr);
  helper.doDeleteDot1qEncapToVsiMap("Ethernet1.1", e1, Bridging::VlanIdOrNone(100), {10, 0}, false);
  EXPECT_EQ(table.match(e1, 10, 6), nullptr);
  EXPECT_EQ(table.keyOf("Ethernet1.1"), nullptr);
  EXPECT_NE(chip->json().find("\"Ethernet1 10/5\""), std::string::npos);
}

TEST(SoftSubIntf, RefusalsAreStatuses) {
  Vex::EventLoop loop;
  auto chip = SoftChip::softChipFactory();
  SoftChip::SoftSubIntfHelper helper(chip);
  chip->capacityIs(SoftChip::SoftSubIntfTable::tableName, 1);
  chip->faultIs(SoftChip::SoftSubIntfTable::tableName, SoftChip::Fault::busy, 1);
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.1", "Ethernet1", Bridging::VlanIdOrNone(1), {1, 0}, false),
            OrbTypes::tableAddBusy);
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.1", "Ethernet1", Bridging::VlanIdOrNone(1), {1, 0}, false),
            OrbTypes::tableAddSuccess);
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.2", "Ethernet1", Bridging::VlanIdOrNone(2), {2, 0}, false),
            OrbTypes::tableAddFull);
  chip->faultIs(SoftChip::SoftSubIntfTable::tableName, SoftChip::Fault::failed, 1);
  EXPECT_EQ(helper.doAddDot1qEncapToVsiMap("Ethernet1.1", "Ethernet1", Bridging::VlanIdOrNone(3), {1, 0}, false),
            SoftChip::SoftSubIntfHelper::addFailed);
  EXPECT_EQ(helper.table().size(), 1u);
  EXPECT_EQ(helper.refused(), 3u);
}

TEST(SoftSubIntf, FrameInnerTagRoundTrips) {
  auto frame = SoftChip::frameFromText("src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff vlan 10 pri 3 inner 20");
  ASSERT_TRUE(frame.innerTag);
  EXPECT_EQ(frame.innerTag->vlan, 20u);
  EXPECT_EQ(SoftChip::frameFromText(SoftChip::frameText(frame)), frame);
  EXPECT_THROW(SoftChip::frameFromText("src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff vlan 10 inner 0"),
               SoftChip::FrameSyntaxError);
  EXPECT_THROW(SoftChip::frameFromText("src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff vlan 10 inner 4095"),
               SoftChip::FrameSyntaxError);
  // Without an outer tag there is no inner one.
  EXPECT_THROW(SoftChip::frameFromText("src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff inner 5"),
               SoftChip::FrameSyntaxError);
}

}  // namespace
