// Link aggregation: membership maps, the LAG helper, MLAG peer-link sharing
// and verification.
#include "Orb/OrbLagSm.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Nexo::IntfId;

// Records what the machine asks of hardware.
class RecordingLagHelper : public OrbHelper::OrbHelperLagSm {
 public:
  std::vector<std::string> calls;
  std::map<IntfId, Orb::OrbLagPortList> lags;
  bool override = false;
  std::set<IntfId> managed;

  void maybeCreateLag(const IntfId& lag) override {
    if (!lags.count(lag)) calls.push_back("create " + lag.stringValue());
    lags[lag];
  }
  void maybeDestroyLag(const IntfId& lag) override {
    calls.push_back("destroy " + lag.stringValue());
    lags.erase(lag);
  }
  void updateLag(const IntfId& lag, const Orb::OrbLagPortList& list) override {
    std::string text = "update " + lag.stringValue();
    for (const auto& [port, state] : list.ports) text += " " + port.stringValue();
    calls.push_back(text);
    lags[lag] = list;
  }
  bool intfManagedCheckOverride() override { return override; }
  bool isIntfManaged(const IntfId& intf) override { return managed.count(intf) != 0; }
  void handleVerify() override { calls.push_back("verify"); }
  void handleRetryVerify() override { calls.push_back("retry verify"); }
  void maybeShareLagMembership(const IntfId& lag, const IntfId& peerLink, bool share) override {
    calls.push_back((share ? "share " : "unshare ") + lag.stringValue() + " " + peerLink.stringValue());
  }
};

class LagSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<RecordingLagHelper> helper = Vex::make<RecordingLagHelper>();
  Vex::Ptr<Interface::EthLagIntfStatusDir> dir = Vex::make<Interface::EthLagIntfStatusDir>("dir");
  Vex::Ptr<Lag::Input::IntfDeviceNameDir> names = Vex::make<Lag::Input::IntfDeviceNameDir>("names");
  Vex::Ptr<Mlag::Status> mlag = Vex::make<Mlag::Status>("mlag");
  Vex::Ptr<Orb::LagSm> sm;
  IntfId pc1{"Port-Channel1"}, pc2{"Port-Channel2"}, peer{"Port-Channel100"};
  IntfId e1{"Ethernet1"}, e2{"Ethernet2"}, e3{"Ethernet3"};

  void SetUp() override {
    for (int i = 1; i <= 8; ++i) ocsd->intfIs(IntfId("Ethernet" + std::to_string(i)), true);
  }
  Orb::LagSmInputs inputs() {
    return {ocsd, helper, dir, names, Vex::make<Hardware::Lag::Config>("c"), Vex::make<Hardware::Lag::Status>("s"),
            mlag};
  }
  void start() { sm = Orb::lagSmFactory(inputs()); }
};

TEST_F(LagSmTest, MembersFillTheSharedMapsAndHardware) {
  dir->intfStatusIs(pc1)->memberIs(e1);
  start();
  dir->intfStatus(pc1)->memberIs(e2);
  EXPECT_EQ(ocsd->portToLag(e1), pc1);
  EXPECT_EQ(ocsd->portToLag(e2), pc1);
  EXPECT_EQ(ocsd->lagToPort(pc1).ports.size(), 2u);
  EXPECT_EQ((ocsd->lagToPort(pc1).ports.at(e1)), (Orb::OrbLagPort{true, true}));
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"create Port-Channel1", "update Port-Channel1 Ethernet1",
                                                     "update Port-Channel1 Ethernet1 Ethernet2"}));
  EXPECT_EQ(names->deviceName(pc1), "Port-Channel1");
}

TEST_F(LagSmTest, LastMemberGoneDestroysTheLag) {
  start();
  auto status = dir->intfStatusIs(pc1);
  status->memberIs(e1);
  status->memberIs(e2);
  status->memberDel(e1);
  status->memberDel(e2);
  EXPECT_FALSE(ocsd->lagToPortHas(pc1));
  EXPECT_FALSE(ocsd->portToLagHas(e1));
  EXPECT_FALSE(ocsd->portToLagHas(e2));
  EXPECT_EQ(helper->calls.back(), "destroy Port-Channel1");
  EXPECT_TRUE(sm->localMember().empty());
}

TEST_F(LagSmTest, PortMovingToAnotherLagLeavesTheOldOneFirst) {
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  dir->intfStatus(pc1)->memberIs(e2);
  helper->calls.clear();
  dir->intfStatusIs(pc2)->memberIs(e2);
  EXPECT_EQ(ocsd->portToLag(e2), pc2);
  EXPECT_EQ(ocsd->lagToPort(pc1).ports.size(), 1u);
  ASSERT_GE(helper->calls.size(), 3u);
  EXPECT_EQ(helper->calls[0], "update Port-Channel1 Ethernet1");
  EXPECT_EQ(helper->calls[1], "create Port-Channel2");
  EXPECT_EQ(helper->calls[2], "update Port-Channel2 Ethernet2");
}

// Whether a port is in a LAG, as every feature asks the shared context,
// follows the LAG statuses: joining, moving, leaving, and a LAG kept across
// a restart keeping its ports.
TEST_F(LagSmTest, InLagFollowsTheLagStatuses) {
  start();
  EXPECT_FALSE(ocsd->inLag(e1));
  dir->intfStatusIs(pc1)->memberIs(e1);
  dir->intfStatus(pc1)->memberIs(e2);
  EXPECT_TRUE(ocsd->inLag(e1));
  EXPECT_FALSE(ocsd->inLag(e3));
  dir->intfStatusIs(pc2)->memberIs(e2);
  EXPECT_TRUE(ocsd->inLag(e2));
  EXPECT_EQ(ocsd->portToLag(e2), pc2);
  dir->intfStatus(pc2)->memberDel(e2);
  EXPECT_FALSE(ocsd->inLag(e2));
  sm->disableCleanupOnRestartIs(true);
  dir->intfStatusDel(pc1);
  EXPECT_TRUE(ocsd->inLag(e1));
  sm->disableCleanupOnRestartIs(false);
  dir->intfStatusIs(pc1);
  EXPECT_FALSE(ocsd->inLag(e1));
}

TEST_F(LagSmTest, UnmanagedInterfacesNeverJoinUnlessTheChipSaysSo) {
  start();
  dir->intfStatusIs(pc1)->memberIs(IntfId("Ethernet40"));
  EXPECT_FALSE(ocsd->lagToPortHas(pc1));
  helper->override = true;
  helper->managed.insert(IntfId("Ethernet41"));
  dir->intfStatus(pc1)->memberIs(IntfId("Ethernet41"));
  dir->intfStatus(pc1)->memberIs(e1);  // the chip's word rules: not managed now
  EXPECT_EQ(ocsd->lagToPort(pc1).ports.size(), 1u);
  EXPECT_EQ(ocsd->portToLag(IntfId("Ethernet41")), pc1);
}

TEST_F(LagSmTest, InterfaceBecomingKnownJoinsItsLag) {
  start();
  dir->intfStatusIs(pc1)->memberIs(IntfId("Ethernet40"));
  EXPECT_FALSE(ocsd->lagToPortHas(pc1));
  ocsd->intfIs(IntfId("Ethernet40"), true);
  EXPECT_EQ(ocsd->portToLag(IntfId("Ethernet40")), pc1);
}

TEST_F(LagSmTest, StatusGoneCleansUpUnlessRestarting) {
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  dir->intfStatusIs(pc2)->memberIs(e2);
  EXPECT_TRUE(ocsd->intfHas(pc1));
  EXPECT_TRUE(ocsd->intfHas(pc2));
  sm->disableCleanupOnRestartIs(true);
  dir->intfStatusDel(pc1);
  EXPECT_TRUE(ocsd->lagToPortHas(pc1));
  EXPECT_TRUE(helper->lags.count(pc1));
  EXPECT_TRUE(ocsd->intfHas(pc1));
  sm->disableCleanupOnRestartIs(false);
  dir->intfStatusDel(pc2);
  EXPECT_FALSE(ocsd->intfHas(pc2));
  EXPECT_FALSE(ocsd->lagToPortHas(pc2));
  EXPECT_FALSE(helper->lags.count(pc2));
  EXPECT_FALSE(names->deviceNameHas(pc2));
}

TEST_F(LagSmTest, MemberlessLagBorrowsThePeerLinkWhileThePeerCarriesIt) {
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(peer);
  mlag->fastMacRedirectionIs(true);
  start();
  auto status = dir->intfStatusIs(pc1);
  status->memberIs(e1);
  mlag->intfStatusIs(pc1, Mlag::IntfStatus{Mlag::linkDown, Mlag::linkDown, Mlag::linkUp});
  helper->calls.clear();
  status->memberDel(e1);  // kept alive: fast MAC redirection is on
  EXPECT_TRUE(ocsd->lagToPortHas(pc1));
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"share Port-Channel1 Port-Channel100", "update Port-Channel1"}));
  EXPECT_TRUE(sm->sharePeerLinkWithLag().count(pc1));
  helper->calls.clear();
  mlag->intfStatusIs(pc1, Mlag::IntfStatus{Mlag::linkDown, Mlag::linkDown, Mlag::linkDown});
  EXPECT_EQ(helper->calls, std::vector<std::string>{"unshare Port-Channel1 Port-Channel100"});
  EXPECT_FALSE(sm->sharePeerLinkWithLag().count(pc1));
}

TEST_F(LagSmTest, PeerLinkChangeOrInvalidMlagStopsSharing) {
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(peer);
  mlag->fastMacRedirectionIs(true);
  mlag->intfStatusIs(pc1, Mlag::IntfStatus{Mlag::linkDown, Mlag::linkDown, Mlag::linkUp});
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  dir->intfStatus(pc1)->memberDel(e1);
  ASSERT_TRUE(sm->sharePeerLinkWithLag().count(pc1));
  helper->calls.clear();
  mlag->peerLinkIntfIs(IntfId("Port-Channel200"));
  EXPECT_EQ(helper->calls.front(), "unshare Port-Channel1 Port-Channel100");
  EXPECT_EQ(helper->calls.back(), "share Port-Channel1 Port-Channel200");
  helper->calls.clear();
  mlag->mlagStateValidIs(false);
  EXPECT_EQ(helper->calls, std::vector<std::string>{"unshare Port-Channel1 Port-Channel200"});
}

TEST_F(LagSmTest, WithoutFastMacRedirectionAMemberlessLagGoes) {
  mlag->mlagStateValidIs(true);
  mlag->peerLinkIntfIs(peer);
  mlag->intfStatusIs(pc1, Mlag::IntfStatus{Mlag::linkDown, Mlag::linkDown, Mlag::linkUp});
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  dir->intfStatus(pc1)->memberDel(e1);
  EXPECT_FALSE(ocsd->lagToPortHas(pc1));
  EXPECT_TRUE(sm->sharePeerLinkWithLag().empty());
}

TEST_F(LagSmTest, VerifyReportsInconsistenciesAndClearsStaleDeviceNames) {
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  ocsd->verifyData()->requestIdInc();
  EXPECT_TRUE(ocsd->verifyData()->output("LagSm").empty());
  ocsd->portToLagIs(e1, pc2);
  names->deviceNameIs(IntfId("Port-Channel9"), "po9");
  ocsd->verifyData()->requestIdInc();
  const auto& lines = ocsd->verifyData()->output("LagSm");
  auto has = [&](const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l == text; });
  };
  EXPECT_TRUE(
      has("Lag Port-Channel1, member Ethernet1, Lag value for member Ethernet1 is wrong: Port-Channel2, in "
          "portToLag collection\n"));
  EXPECT_TRUE(has("Lag Port-Channel1, member Ethernet1 is in lagToPort but missing in portToLag collection\n"));
  EXPECT_TRUE(has("Lag Port-Channel2, member Ethernet1 is missing in lagToPort collection\n"));
  EXPECT_TRUE(has("Lag Port-Channel9 is in lagInputIntfDeviceNameDir but missing in ethLagIntfStatusDir collection\n"));
  EXPECT_FALSE(names->deviceNameHas(IntfId("Port-Channel9")));
}

// The MLAG peer's Ethernet ports appear in an MLAG LAG's status but are
// never members here, even when the chip layer says it manages them.
TEST_F(LagSmTest, PeerEthernetPortsNeverBecomeMembers) {
  IntfId peerPort("PeerEthernet1");
  helper->override = true;
  helper->managed = {e1, peerPort};
  start();
  auto status = dir->intfStatusIs(pc1);
  status->memberIs(peerPort);
  EXPECT_FALSE(ocsd->lagToPortHas(pc1));
  status->memberIs(e1);
  EXPECT_EQ(ocsd->lagToPort(pc1).ports.size(), 1u);
  EXPECT_FALSE(ocsd->portToLagHas(peerPort));
  EXPECT_EQ(helper->lags.at(pc1).ports.count(peerPort), 0u);
  status->memberDel(peerPort);
  EXPECT_EQ(ocsd->lagToPort(pc1).ports.size(), 1u);
}

// Differences found while LAGs are still changing are looked at again once
// the changes stop: each member change pushes the retry out, and the retry
// rewrites the report.
TEST_F(LagSmTest, VerifyDifferencesAreRetriedOnceMemberChangesStop) {
  start();
  dir->intfStatusIs(pc1)->memberIs(e1);
  ocsd->portToLagIs(e1, pc2);  // a difference, until the next change of Port-Channel1
  helper->calls.clear();
  ocsd->verifyData()->requestIdInc();
  EXPECT_EQ(ocsd->verifyData()->output("LagSm").size(), 3u);
  EXPECT_TRUE(sm->verifyRetryPending());
  loop.advance(0.6);
  dir->intfStatus(pc1)->memberIs(e2);  // heals portToLag, and renews the retry
  loop.advance(0.6);
  EXPECT_EQ(ocsd->verifyData()->output("LagSm").size(), 3u);
  EXPECT_EQ(std::count(helper->calls.begin(), helper->calls.end(), "retry verify"), 0);
  loop.advance(0.5);
  EXPECT_TRUE(ocsd->verifyData()->output("LagSm").empty());
  EXPECT_EQ(std::count(helper->calls.begin(), helper->calls.end(), "retry verify"), 1);
  EXPECT_FALSE(sm->verifyRetryPending());
  // A clean run leaves nothing to retry, and changes then renew nothing.
  ocsd->verifyData()->requestIdInc();
  dir->intfStatus(pc1)->memberIs(e3);
  loop.advance(5);
  EXPECT_EQ(std::count(helper->calls.begin(), helper->calls.end(), "retry verify"), 1);
}

TEST_F(LagSmTest, MissingHardwareInputsAreABrokenInvariant) {
  auto withoutConfig = inputs();
  withoutConfig.hwLagConfig = nullptr;
  EXPECT_DEATH(Orb::lagSmFactory(withoutConfig), "/src/Orb/OrbLagSm:[0-9]+: hwLagConfig\\(\\)");
}

TEST_F(LagSmTest, MounterMountsInputsFromTheStateDatabase) {
  auto hive = Hive::rootFactory();
  Orb::LagMounter mounter(hive, ocsd, helper);
  mounter.doMounts();
  auto lagSm = mounter.doMountsComplete();
  hive->lookup<Interface::EthLagIntfStatusDir>(Orb::LagMounter::ethLagIntfStatusPath)->intfStatusIs(pc1)->memberIs(e3);
  EXPECT_EQ(ocsd->portToLag(e3), pc1);
}

}  // namespace
