// The layer-3 status model: VRF maps and their index, FEC-to-prefix
// accounting for both families, review requests, and the queries.
#include "Orb/OrbL3Types.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Orb;
using Pond::Fib::GlobalFecId;

class ReviewWatcher : public L3Status::Notifiee {
 public:
  using Notifiee::Notifiee;
  int reviews = 0, vrfNames = 0;
  void handleAdjEntryReviewList(const GlobalFecId&) override { ++reviews; }
  void handleVrfName(const VrfId&) override { ++vrfNames; }
};

class L3StatusTest : public ::testing::Test {
 protected:
  Vex::Ptr<L3Status> status = l3StatusFactory("l3Status");
  ReviewWatcher watcher{status};
  L3::VrfName red{"red"};

  // A VRF as the VRF machine would publish it.
  Vex::Ptr<VrfL3Status> vrf(const L3::VrfName& name, std::uint32_t id, std::uint32_t arpId, std::uint16_t table) {
    status->vrfIdIs(name, VrfId(id));
    status->vrfNameIs(VrfId(id), name);
    auto vrfStatus = status->vrfL3StatusIs(name, arpId);
    vrfStatus->tableIdIs(Pond::Fib::TableId(table));
    return vrfStatus;
  }
};

TEST_F(L3StatusTest, VrfNamesAndTheArpIndexStayInStep) {
  auto redStatus = vrf(red, 2, 1002, 7);
  EXPECT_EQ(redStatus->vrfId(), VrfId(2));
  EXPECT_EQ(redStatus->arpVrfId(), 1002u);
  EXPECT_EQ(status->vrfL3StatusByArpVrfId(1002), redStatus);
  EXPECT_EQ(status->orbVrfIdToArpVrfId(VrfId(2)), 1002u);
  EXPECT_EQ(status->arpVrfIdToOrbVrfId(1002), VrfId(2));
  EXPECT_EQ(status->vrfNameToFibTableId(red), Pond::Fib::TableId(7));
  // Asking again with the same ARP id keeps the object; another id remakes it.
  EXPECT_EQ(status->vrfL3StatusIs(red, 1002), redStatus);
  auto remade = status->vrfL3StatusIs(red, 1003);
  EXPECT_NE(remade, redStatus);
  EXPECT_FALSE(status->vrfL3StatusByArpVrfId(1002));
  EXPECT_EQ(status->arpVrfIdToOrbVrfId(1003), VrfId(2));
  status->vrfL3StatusDel(red);
  EXPECT_FALSE(status->vrfL3StatusHas(red));
  EXPECT_FALSE(status->vrfL3StatusByArpVrfId(1003));
  EXPECT_EQ(status->orbVrfIdToArpVrfId(VrfId(2)), Vrf::VrfIdMap::invalidVrfId);
  EXPECT_EQ(status->arpVrfIdToOrbVrfId(1003), invalidVrfId);
}

TEST_F(L3StatusTest, UnknownVrfHasTableZeroAndAnUnchangedNameIsNotWritten) {
  EXPECT_EQ(status->vrfNameToFibTableId(L3::VrfName("nowhere")), Pond::Fib::TableId(0));
  EXPECT_EQ(status->getDefaultVrfTableId(), Pond::Fib::TableId(0));
  vrf(L3::VrfName("default"), 0, 1000, 254);
  EXPECT_EQ(status->getDefaultVrfTableId(), Pond::Fib::TableId(254));
  int before = watcher.vrfNames;
  status->vrfNameIs(VrfId(0), L3::VrfName("default"));
  EXPECT_EQ(watcher.vrfNames, before);
  status->vrfNameIs(VrfId(0), L3::VrfName("main"));
  EXPECT_EQ(watcher.vrfNames, before + 1);
}

TEST_F(L3StatusTest, VrfNameLongerThanItsLimitIsARangeError) {
  EXPECT_NO_THROW(L3::VrfName(std::string(100, 'v')));
  try {
    L3::VrfName(std::string(101, 'v'));
    FAIL() << "no range error";
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "VrfName::value::bytes > VrfName::maxLength not allowed");
  }
}

TEST_F(L3StatusTest, RoutedInterfacesLeaveTheirVrf) {
  auto redStatus = vrf(red, 2, 1002, 7);
  Nexo::IntfId eth("Ethernet4");
  status->l3IntfVrfIdIs(eth, VrfId(2));
  redStatus->l3IntfIs(eth, true);
  status->l3IntfVrfIdDel(eth, VrfId(2));
  EXPECT_FALSE(redStatus->l3IntfHas(eth));
  EXPECT_FALSE(status->l3IntfVrfIdHas(eth));
}

using L3StatusDeathTest = L3StatusTest;

TEST_F(L3StatusDeathTest, TheLayer3InterfaceTableIsGivenOnce) {
  EXPECT_EQ(status->orbL3IntfTable(), nullptr);
  auto table = Vex::make<OrbL3IntfTable>("l3IntfTable");
  status->orbL3IntfTableIs(table);
  status->orbL3IntfTableIs(table);
  EXPECT_EQ(status->orbL3IntfTable(), table);
  EXPECT_DEATH(status->orbL3IntfTableIs(Vex::make<OrbL3IntfTable>("another")),
               "!orbL3IntfTable_ \\|\\| orbL3IntfTable_ == table");
  table->l3IntfIs(Nexo::IntfId("Ethernet1"), {VrfId(2), 0});
  table->l3IntfIs(Nexo::IntfId("Ethernet2"), {VrfId(2), 2});
  EXPECT_TRUE(table->l3Intf(Nexo::IntfId("Ethernet1")).held());
  EXPECT_FALSE(table->l3Intf(Nexo::IntfId("Ethernet2")).held());
}

TEST_F(L3StatusDeathTest, RemovingAnInterfaceFromAMissingVrfOrOneItIsNotInStops) {
  EXPECT_DEATH(status->l3IntfVrfIdDel(Nexo::IntfId("Ethernet1"), VrfId(9)), "vrfStatus");
  vrf(red, 2, 1002, 7);
  EXPECT_DEATH(status->l3IntfVrfIdDel(Nexo::IntfId("Ethernet1"), VrfId(2)), "vrfStatus->l3IntfHas\\( intfId \\)");
}

TEST_F(L3StatusTest, ReviewPostedTwiceNotifiesTwiceAndKeepsTheMask) {
  GlobalFecId fec(42);
  status->notifyAdjEntryForReview(fec, tableTypeChangeAdjUpdate);
  EXPECT_EQ(watcher.reviews, 1);
  watcher.reviews = 0;
  status->notifyAdjEntryForReview(fec, tableTypeChangeAdjUpdate);
  // Taken out and put back: two notifications, the mask as it was.
  EXPECT_EQ(watcher.reviews, 2);
  EXPECT_EQ(status->adjEntryReviewList(fec), tableTypeChangeAdjUpdate);
  watcher.reviews = 0;
  status->notifyAdjEntryForReview(fec, viaChangeAdjUpdate);
  EXPECT_EQ(watcher.reviews, 1);
  EXPECT_EQ(status->adjEntryReviewList(fec), tableTypeChangeAdjUpdate | viaChangeAdjUpdate);
}

TEST_F(L3StatusTest, QueriesLookAcrossVrfs) {
  EXPECT_FALSE(status->routingEnabledInDefaultVrf());
  auto def = vrf(L3::VrfName("default"), 0, 1000, 0);
  auto redStatus = vrf(red, 2, 1002, 7);
  redStatus->routingEnabledIs(true);
  EXPECT_FALSE(status->routingEnabledInDefaultVrf());
  EXPECT_TRUE(status->routingEnabledInAnyVrf());
  EXPECT_FALSE(status->routing6EnabledInAnyVrf());
  EXPECT_TRUE(status->v4SyncPendingInAnyVrf());
  redStatus->endOfV4SyncDoneIs(true);
  EXPECT_FALSE(status->v4SyncPendingInAnyVrf());
  def->numUnprogrammedRoutesIs(3);
  redStatus->numUnprogrammedRoutesIs(4);
  redStatus->routes6ForReviewIs(5);
  EXPECT_EQ(status->numUnprogrammedRoutes(), 7u);
  EXPECT_TRUE(status->unprogrammedV4RoutesInAnyVrf());
  EXPECT_FALSE(status->unprogrammedV6RoutesInAnyVrf());
  EXPECT_EQ(status->routes6ForReview(), 5u);
  redStatus->waitForRouting6DisabledIs(true);
  EXPECT_EQ(status->waitForRouting6DisabledInVrfs(), std::set<L3::VrfName>{red});
  EXPECT_TRUE(status->waitForRoutingDisabledInVrfs().empty());
  Bridging::VlanId primary(10), secondary(11), other(12);
  status->privateVlanPrimaryIs(secondary, primary);
  EXPECT_EQ(status->getPrimaryVlan(secondary), primary);
  EXPECT_EQ(status->getPrimaryVlan(other), other);
  EXPECT_TRUE(status->isPrimaryVlan(primary));
  EXPECT_TRUE(status->isSecondaryVlan(secondary));
  EXPECT_FALSE(status->isPrimaryVlan(other));
}

// FEC-to-prefix accounting, the same for both families.
struct V4 {
  using Prefix = Nexo::Prefix;
  static Prefix prefix(int i) { return Prefix(Nexo::IpAddr(0x0a000000u + (i << 8)), 24); }
  static void add(L3Status& s, GlobalFecId f, VrfId v, const Prefix& p) { s.adjVrfPrefixIs(f, v, p); }
  static void del(L3Status& s, GlobalFecId f, VrfId v, const Prefix& p) { s.adjVrfPrefixDel(f, v, p); }
  static std::uint64_t count(L3Status& s, GlobalFecId f) { return s.adjPrefixCountStatus()->adjPrefixCount(f); }
  static std::size_t listed(L3Status& s, GlobalFecId f, VrfId v) {
    auto list = s.adjGlobalPrefixList(f);
    return list ? list->vrfPrefixList(v).size() : 0;
  }
};

struct V6 {
  using Prefix = Nexo::Ip6Prefix;
  static Prefix prefix(int i) { return Prefix(fmt::format("2001:db8:{:x}::/48", i)); }
  static void add(L3Status& s, GlobalFecId f, VrfId v, const Prefix& p) { s.adjVrfPrefix6Is(f, v, p); }
  static void del(L3Status& s, GlobalFecId f, VrfId v, const Prefix& p) { s.adjVrfPrefix6Del(f, v, p); }
  static std::uint64_t count(L3Status& s, GlobalFecId f) { return s.adjPrefixCountStatus()->adjPrefix6Count(f); }
  static std::size_t listed(L3Status& s, GlobalFecId f, VrfId v) {
    auto list = s.adjGlobalPrefixList(f);
    return list ? list->vrfPrefix6List(v).size() : 0;
  }
};

template <class F>
class PrefixAccountingTest : public L3StatusTest {};
using Families = ::testing::Types<V4, V6>;
TYPED_TEST_SUITE(PrefixAccountingTest, Families);

TYPED_TEST(PrefixAccountingTest, CountsEachPrefixOnceAndRemembersTheFecsVrf) {
  auto& s = *this->status;
  this->vrf(this->red, 2, 1002, 7);
  GlobalFecId fec(7);
  TypeParam::add(s, fec, VrfId(2), TypeParam::prefix(1));
  TypeParam::add(s, fec, VrfId(2), TypeParam::prefix(1));
  EXPECT_EQ(TypeParam::count(s, fec), 1u);
  TypeParam::add(s, fec, VrfId(2), TypeParam::prefix(2));
  TypeParam::add(s, fec, VrfId(0), TypeParam::prefix(2));
  EXPECT_EQ(TypeParam::count(s, fec), 3u);
  EXPECT_EQ(TypeParam::listed(s, fec, VrfId(2)), 2u);
  // The first VRF a prefix came from answers for the FEC's ARP VRF.
  EXPECT_EQ(s.fecIdToArpVrfId(fec), 1002u);
  EXPECT_EQ(s.fecIdToArpVrfId(GlobalFecId(8)), Vrf::VrfIdMap::invalidVrfId);

  TypeParam::del(s, fec, VrfId(2), TypeParam::prefix(9));  // not listed: nothing
  TypeParam::del(s, GlobalFecId(8), VrfId(2), TypeParam::prefix(1));
  EXPECT_EQ(TypeParam::count(s, fec), 3u);
  TypeParam::del(s, fec, VrfId(2), TypeParam::prefix(1));
  TypeParam::del(s, fec, VrfId(2), TypeParam::prefix(2));
  EXPECT_EQ(TypeParam::count(s, fec), 1u);
  EXPECT_FALSE(s.adjGlobalPrefixList(fec)->vrfPrefixListHas(VrfId(2)));
  TypeParam::del(s, fec, VrfId(0), TypeParam::prefix(2));
  EXPECT_FALSE(s.adjGlobalPrefixListHas(fec));
  EXPECT_FALSE(s.adjPrefixCountStatus()->adjPrefixCountHas(fec));
  EXPECT_FALSE(s.fecArpVrfHas(fec));
}

TYPED_TEST(PrefixAccountingTest, DelAllForgetsBothFamilies) {
  auto& s = *this->status;
  TypeParam::add(s, GlobalFecId(1), VrfId(0), TypeParam::prefix(1));
  s.adjVrfPrefixIs(GlobalFecId(2), VrfId(0), Nexo::Prefix("192.168.0.0/16"));
  s.adjVrfPrefix6Is(GlobalFecId(3), VrfId(0), Nexo::Ip6Prefix("2001:db8::/32"));
  s.adjGenPrefixListDelAll();
  EXPECT_EQ(s.adjGlobalPrefixListSize(), 0u);
  EXPECT_EQ(s.adjPrefixCountStatus()->adjPrefixCountSize(), 0u);
  EXPECT_EQ(s.adjPrefixCountStatus()->adjPrefix6CountSize(), 0u);
  EXPECT_EQ(s.fecArpVrfSize(), 0u);
}

// Per-VRF handshakes and markers: each family on its own, a write that
// changes nothing heard by nobody.
class EndOfSyncWatcher : public EndOfSync::Notifiee {
 public:
  using Notifiee::Notifiee;
  std::vector<std::string> heard;
  void handleEndOfV4Sync(const VrfId& vrf) override { heard.push_back("v4 " + std::to_string(vrf.value())); }
  void handleEndOfV6Sync(const VrfId& vrf) override { heard.push_back("v6 " + std::to_string(vrf.value())); }
};

TEST_F(L3StatusTest, EndOfSyncAndTheUrpfHandshakeArePerVrfAndFamily) {
  ASSERT_TRUE(status->endOfSync() && status->urpfRouting() && status->urpfRoutingDisableDone() &&
              status->reviewPending());
  EndOfSyncWatcher sync(status->endOfSync());
  status->endOfSync()->endOfV4SyncIs(VrfId(1), true);
  status->endOfSync()->endOfV4SyncIs(VrfId(1), true);
  status->endOfSync()->endOfV6SyncIs(VrfId(2), true);
  EXPECT_EQ(sync.heard, (std::vector<std::string>{"v4 1", "v6 2"}));
  EXPECT_TRUE(status->endOfSync()->endOfV4Sync(VrfId(1)));
  EXPECT_FALSE(status->endOfSync()->endOfV6Sync(VrfId(1)));
  // uRPF holds routing in a VRF until routing says the hold is released.
  status->urpfRouting()->urpf4EnabledIs(VrfId(1), true);
  EXPECT_FALSE(status->urpfRoutingDisableDone()->urpf4DisableDoneHas(VrfId(1)));
  status->urpfRouting()->urpf4EnabledDel(VrfId(1));
  status->urpfRoutingDisableDone()->urpf4DisableDoneIs(VrfId(1), true);
  EXPECT_FALSE(status->urpfRouting()->urpf4EnabledHas(VrfId(1)));
  EXPECT_TRUE(status->urpfRoutingDisableDone()->urpf4DisableDone(VrfId(1)));
}

TEST(L3StatusValues, UrpfNextHopAndMulticastValuesPrintAndParseBack) {
  Urpf::UrpfStatus urpf{Urpf::UrpfMode::loose, true};
  EXPECT_EQ(Vex::fromStrep<Urpf::UrpfStatus>(Vex::toStrep(urpf)), urpf);
  NextHopInfo info{Nexo::EthAddr(0x020000000001ULL), Nexo::IntfId("Ethernet3"), true};
  EXPECT_EQ(Vex::fromStrep<NextHopInfo>(Vex::toStrep(info)), info);
  L3MulticastRequest request{VrfId(4), true, true};
  EXPECT_EQ(Vex::fromStrep<L3MulticastRequest>(Vex::toStrep(request)), request);
  EXPECT_THROW(Vex::fromStrep<Urpf::UrpfStatus>("not a status"), Vex::ParseError);
}

TEST_F(L3StatusTest, UrpfStatusIsKeptPerInterfaceAndFamily) {
  Nexo::IntfId port("Ethernet1");
  status->urpf4StatusIs(port, {Urpf::UrpfMode::strict, false});
  status->urpf6StatusUnresolvedIs(port, {Urpf::UrpfMode::loose, true});
  EXPECT_EQ(status->urpf4Status(port).mode, Urpf::UrpfMode::strict);
  EXPECT_FALSE(status->urpf6StatusHas(port));
  EXPECT_EQ(status->urpf6Status(port).mode, Urpf::UrpfMode::disable);
  EXPECT_TRUE(status->urpf6StatusUnresolved(port).allowDefaultRoute);
}

}  // namespace
