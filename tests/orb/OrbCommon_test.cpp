// The shared state-machine context.
#include "Orb/OrbCommon.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Nexo::IntfId;

class Watcher : public Orb::OrbCommonSmData::Notifiee {
 public:
  using Notifiee::Notifiee;
  int minIntfs = 0, portToLag = 0, metadata = 0, vlanStatus = 0;
  void handleMinIntfs() override { ++minIntfs; }
  void handlePortToLag(const IntfId&) override { ++portToLag; }
  void handleFreeMirrorSessionMetadata() override { ++metadata; }
  void handleVlanStatus(const Bridging::VlanId&) override { ++vlanStatus; }
};

class OrbCommonTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Watcher watcher{ocsd};
};

TEST_F(OrbCommonTest, ConstructionLeavesDefaultsAndVerificationInPlace) {
  EXPECT_TRUE(ocsd->initialized());
  ASSERT_TRUE(ocsd->verifyData());
  EXPECT_EQ(ocsd->verifyData()->name(), "verify");
  EXPECT_TRUE(ocsd->verifyData()->verifyRequiredHas("vr"));
  EXPECT_TRUE(ocsd->verifySm());
  EXPECT_EQ(ocsd->minIntfs(), 16);
  EXPECT_EQ(ocsd->hotupReniceValue(), 5);
  EXPECT_TRUE(ocsd->hitlessAgentRestartSupported());
  EXPECT_FALSE(ocsd->hotupFastBoot());
  EXPECT_FALSE(ocsd->dlpEnabled());
  EXPECT_EQ(ocsd->blipLevels().orbSubIntfSm, 8u);
  EXPECT_EQ(ocsd->blipLevels().orbL3AdjStatusSm, 4u);
  EXPECT_EQ(ocsd->operationalMode(), Orb::HwOperationalMode::hwModeUnknown);
}

TEST_F(OrbCommonTest, RewritingAValueNotifiesNobody) {
  ocsd->minIntfsIs(16);
  EXPECT_EQ(watcher.minIntfs, 0);
  ocsd->minIntfsIs(32);
  ocsd->minIntfsIs(32);
  EXPECT_EQ(watcher.minIntfs, 1);
  ocsd->portToLagIs(IntfId("Ethernet1"), IntfId("Port-Channel1"));
  ocsd->portToLagIs(IntfId("Ethernet1"), IntfId("Port-Channel1"));
  EXPECT_EQ(watcher.portToLag, 1);
}

TEST_F(OrbCommonTest, ReadersOfMissingKeysYieldEmptyValuesWithoutCreating) {
  IntfId lag("Port-Channel9");
  EXPECT_FALSE(ocsd->lagToPort(lag));
  EXPECT_FALSE(ocsd->lagToPortHas(lag));
  EXPECT_EQ(ocsd->internalVlan(IntfId("Ethernet1")), 0u);
  EXPECT_FALSE(ocsd->vlanStatus(Bridging::VlanId(10)));
  EXPECT_EQ(ocsd->vlanStatusSize(), 0u);
}

TEST_F(OrbCommonTest, VlanStatusIsCreatesOnce) {
  auto status = ocsd->vlanStatusIs(Bridging::VlanId(10));
  ASSERT_TRUE(status);
  EXPECT_EQ(ocsd->vlanStatusIs(Bridging::VlanId(10)), status);
  EXPECT_EQ(ocsd->vlanStatus(Bridging::VlanId(10)), status);
  EXPECT_EQ(watcher.vlanStatus, 1);
  EXPECT_EQ(status->vlanId(), Bridging::VlanId(10));
}

TEST_F(OrbCommonTest, FreeMirrorSessionsComeOutInEnqueueOrder) {
  for (std::uint8_t id : {4, 2, 9}) ocsd->freeMirrorSessionEnq(id);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().count, 3u);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 4);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 2);
  ocsd->freeMirrorSessionEnq(1);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 9);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 1);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().count, 0u);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().head, ocsd->freeMirrorSessionMetadata().next);
}

TEST_F(OrbCommonTest, DequeueOnEmptyQueueReturnsZeroAndChangesNothing) {
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 0);
  EXPECT_EQ(watcher.metadata, 0);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata(), Orb::FreeMirrorSessionMetadata{});
}

TEST_F(OrbCommonTest, SinglePositionWritesKeepTheMetadata) {
  ocsd->freeMirrorSessionEnq(5);
  ocsd->freeMirrorSessionEnq(6);
  ocsd->freeMirrorSessionEnq(7);
  ocsd->freeMirrorSessionDel(1);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().count, 2u);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 5);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 7);
  ocsd->freeMirrorSessionIs(10, 3);
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().next, 11u);
  ocsd->freeMirrorSessionDelAll();
  EXPECT_EQ(ocsd->freeMirrorSessionMetadata().count, 0u);
  EXPECT_EQ(ocsd->freeMirrorSessionDeq(), 0);
}

TEST_F(OrbCommonTest, ContextGoesWhenItsLastHolderGoes) {
  // The verification machine it keeps must not keep it in turn.
  Orb::OrbCommonSmData* raw = ocsd.get();
  watcher.notifierIs(nullptr);
  EXPECT_EQ(raw->references(), 1);
}

TEST(OrbCommonTypes, PrintedFormsAndTruth) {
  Orb::OrbLagPort port{true, false};
  EXPECT_EQ(Vex::toStrep(port), "Value('Orb::OrbLagPort', ** {'collecting': True, 'distributing': False})");
  Orb::OrbPortVlanTpidData tpid{0x8100, 0x88a8, true};
  EXPECT_EQ(Vex::toStrep(tpid),
            "Value('Orb::OrbPortVlanTpidData', ** {'hwVlanTpid': 33024, 'vlanTpid': 34984, 'dot1QTunnel': True})");
  Orb::OrbPortList list;
  EXPECT_FALSE(list);
  list.portIs(IntfId("Ethernet1"), true);
  EXPECT_TRUE(list);
  list.portIs(IntfId("Ethernet1"), false);
  EXPECT_FALSE(list);
  Orb::OrbLagPortList lagPorts;
  lagPorts.portIs(IntfId("Ethernet2"), port);
  EXPECT_TRUE(lagPorts);
  EXPECT_EQ(Vex::fromStrep<Orb::OrbLagPortList>(Vex::toStrep(lagPorts)), lagPorts);
  Orb::OrbLagPortList other = lagPorts;
  EXPECT_EQ(boost::hash<Orb::OrbLagPortList>()(other), boost::hash<Orb::OrbLagPortList>()(lagPorts));
}

}  // namespace
