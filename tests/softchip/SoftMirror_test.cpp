// The soft chip's mirror sessions: capacity, faults, source slots per
// direction, source ACL entries and matching, and where copies go.
#include "chip/softchip/SoftMirror.h"

#include "chip/softchip/SoftForwarding.h"
#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftVlan.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Mirroring::Direction;
using Nexo::IntfId;

class SoftMirrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int port = 1; port <= 4; ++port)
      vlans->doAddPortToVlan(IntfId("Ethernet" + std::to_string(port)), Bridging::VlanId(10), false, true, true);
    loop.runUntilIdle();
  }
  SoftChip::Frame frame(const std::string& text) { return SoftChip::frameFromText(text); }
  std::vector<SoftChip::MirrorCopy> copies(const char* ingress, const std::string& text) {
    return SoftChip::forwardFrame(*chip, IntfId(ingress), frame(text)).mirrors;
  }

  Vex::EventLoop loop;
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<SoftChip::SoftVlanHelper> vlans = Vex::make<SoftChip::SoftVlanHelper>(chip);
  Vex::Ptr<SoftChip::SoftLagHelper> lags = Vex::make<SoftChip::SoftLagHelper>(chip);
  Vex::Ptr<SoftChip::SoftMirrorHelper> mirror = Vex::make<SoftChip::SoftMirrorHelper>(chip);
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e9{"Ethernet9"};
};

TEST_F(SoftMirrorTest, SessionsFillTheTableAndFaultsRefuse) {
  mirror->table().capacityIs(1);
  EXPECT_TRUE(mirror->createMirror("a", 1, 0, e9, true));
  EXPECT_FALSE(mirror->createMirror("b", 2, 1, e9, true));
  // Created again in its own group: no new entry needed.
  EXPECT_TRUE(mirror->createMirror("a", 1, 0, e2, true));
  chip->faultIs("mirror", SoftChip::Fault::failed, 1);
  EXPECT_FALSE(mirror->addSourceToHardware("a", 1, 0, e1, Direction::directionRx));
  EXPECT_TRUE(mirror->addSourceToHardware("a", 1, 0, e1, Direction::directionRx));
  // No session in that group.
  EXPECT_FALSE(mirror->addSourceToHardware("x", 3, 5, e1, Direction::directionRx));
  EXPECT_EQ(mirror->verifySinglePort("a", 0, e1, Direction::directionRx), "");
  EXPECT_EQ(mirror->verifySinglePort("a", 0, e1, Direction::directionTx),
            "source Ethernet1 is rx in hardware, tx in software");
  EXPECT_TRUE(mirror->removeMirror("a", 1, 0, {}));
  EXPECT_EQ(mirror->table().size(), 0u);
  EXPECT_FALSE(mirror->verifyDestPort("a", 0, e9).empty());
}

TEST_F(SoftMirrorTest, SourceSlotsAreCountedPerDirectionOverTheChip) {
  mirror->table().sourceSlotsIs(2, 1);
  ASSERT_TRUE(mirror->createMirror("a", 1, 0, e9, true));
  ASSERT_TRUE(mirror->createMirror("b", 2, 1, e9, true));
  Mirroring::Config config("c");
  EXPECT_EQ(mirror->freeMirrorSources(config, "a", Direction::directionBoth), 1u);
  EXPECT_TRUE(mirror->addSourceToHardware("a", 1, 0, e1, Direction::directionBoth));
  EXPECT_EQ(mirror->freeMirrorSources(config, "b", Direction::directionRx), 1u);
  EXPECT_EQ(mirror->freeMirrorSources(config, "b", Direction::directionTx), 0u);
  EXPECT_FALSE(mirror->addSourceToHardware("b", 2, 1, e2, Direction::directionTx));
  EXPECT_TRUE(mirror->addSourceToHardware("b", 2, 1, e2, Direction::directionRx));
  EXPECT_FALSE(mirror->addSourceToHardware("b", 2, 1, IntfId("Ethernet3"), Direction::directionRx));
  // A source already held keeps its slot when asked again.
  EXPECT_TRUE(mirror->addSourceToHardware("b", 2, 1, e2, Direction::directionRx));
  EXPECT_EQ(mirror->maxBiDirSources(), 1u);
  EXPECT_EQ(mirror->maxUniDirSources(), 2u);
  EXPECT_TRUE(mirror->removeSourceFromHardware("a", 1, 0, e1, Direction::directionBoth, false));
  EXPECT_EQ(mirror->freeMirrorSources(config, "b", Direction::directionTx), 1u);
}

TEST_F(SoftMirrorTest, SourceAclsPermitWhatTheyMatchAndFitTheirEntries) {
  auto acl = Vex::make<Acl::AclConfig>("web", Acl::ip());
  Acl::IpRuleConfig rule;
  rule.filter.protocol = 6;
  rule.filter.destinationPort = {Acl::PortOp::range, 80, 83};
  acl->ipRuleBySequenceIs(10, rule);
  const auto compiled = SoftChip::compileMirrorAcl(*acl);
  EXPECT_EQ(compiled.entries(), 1u);  // 80-83 is one block
  EXPECT_TRUE(compiled.permits(frame("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 1.1.1.1 2.2.2.2 tcp 9 82")));
  EXPECT_FALSE(compiled.permits(frame("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 1.1.1.1 2.2.2.2 tcp 9 84")));
  EXPECT_FALSE(compiled.permits(frame("src 00:00:00:00:00:01 dst 00:00:00:00:00:02")));
  auto mac = Vex::make<Acl::AclConfig>("m", Acl::mac());
  mac->macRuleBySequenceIs(10, {});
  EXPECT_TRUE(SoftChip::compileMirrorAcl(*mac).permits(frame("src 00:00:00:00:00:01 dst 00:00:00:00:00:02")));

  ASSERT_TRUE(mirror->createMirror("a", 1, 0, e9, true));
  ASSERT_TRUE(mirror->addSourceToHardware("a", 1, 0, e1, Direction::directionRx));
  mirror->table().aclEntriesIs(0);
  EXPECT_FALSE(mirror->addHwSrcAcl("a", 1, 0, e1, "web", acl, 0));
  mirror->table().aclEntriesIs(1);
  EXPECT_TRUE(mirror->addHwSrcAcl("a", 1, 0, e1, "web", acl, 0));
  EXPECT_EQ(mirror->verifySrcAcl("a", 0, e1, "web"), "");
  // Not a source: nothing to filter.
  EXPECT_FALSE(mirror->addHwSrcAcl("a", 1, 0, e2, "web", acl, 0));
  EXPECT_EQ(mirror->showHwSrcAcls(), "a Ethernet1 web 1 entries\n");
}

TEST_F(SoftMirrorTest, CopiesGoOncePerDestinationAndOncePerLag) {
  Orb::OrbLagPortList members;
  members.portIs(IntfId("Ethernet7"), {true, true});
  members.portIs(IntfId("Ethernet8"), {true, true});
  lags->maybeCreateLag(IntfId("Port-Channel1"));
  lags->updateLag(IntfId("Port-Channel1"), members);
  ASSERT_TRUE(mirror->createMirror("a", 1, 0, IntfId("Port-Channel1"), true));
  ASSERT_TRUE(mirror->addSourceToHardware("a", 1, 0, e1, Direction::directionRx));
  const std::string text = "src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff";
  EXPECT_TRUE(copies("Ethernet1", text).empty());  // no destination port yet
  mirror->addTargetToHardware("a", 1, 0, IntfId("Ethernet7"), true);
  mirror->addTargetToHardware("a", 1, 0, IntfId("Ethernet8"), true);
  auto made = copies("Ethernet1", text);
  ASSERT_EQ(made.size(), 1u);
  EXPECT_EQ(made[0].lag, IntfId("Port-Channel1"));
  EXPECT_TRUE(made[0].ingress);
  // A second, plain port destination gets its own copy.
  mirror->addTargetToHardware("a", 1, 0, e9, true);
  EXPECT_EQ(copies("Ethernet1", text).size(), 2u);
  // Egress copies only for what the source sends.
  ASSERT_TRUE(mirror->addSourceToHardware("a", 1, 0, e2, Direction::directionTx));
  auto both = copies("Ethernet1", text);
  EXPECT_EQ(both.size(), 4u);
  // From elsewhere: only the copy Ethernet2 sends (Ethernet1 mirrors what
  // it receives), to each destination.
  auto sent = copies("Ethernet3", text);
  ASSERT_EQ(sent.size(), 2u);
  for (const auto& copy : sent) {
    EXPECT_EQ(copy.source, e2);
    EXPECT_FALSE(copy.ingress);
  }
}

}  // namespace
