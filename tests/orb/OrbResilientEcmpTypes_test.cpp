// Resilient ECMP values and tables: printed and parsed forms, field-by-field
// equality, the per-route rows with their table notices, the per-VRF via
// layouts, and the deduping ids, wrap and exhaustion included.
#include "Orb/OrbResilientEcmpTypes.h"
#include "Orb/OrbInternalL3Types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace {

using namespace Orb;
using OrbTypes::ViaBitmap;
using OrbTypes::ViaBitmapRange;
using Pond::Fib::FecId;
using Pond::Fib::GlobalFecId;
using ::testing::ElementsAre;

template <class T>
void expectRoundTrip(const T& value) {
  auto text = Vex::toStrep(value);
  EXPECT_EQ(Vex::fromStrep<T>(text), value) << text;
}

RoutePrefixToResilientEcmpInfo row(const char* prefix, std::uint64_t resilientAdjIndex) {
  RoutePrefixToResilientEcmpInfo info;
  info.key = Nexo::Prefix(prefix);
  info.adjIndex = 7;
  info.coveringResEcmpPrefix = Nexo::Prefix("10.0.0.0/8");
  info.resilientAdjIndex = resilientAdjIndex;
  info.reviewResilientAdjResult = ReviewResilientAdjResult::resEcmpSuccess;
  return info;
}

TEST(ResilientEcmpValuesTest, PrintedFormsParseBack) {
  auto info = row("10.1.0.0/16", 99);
  EXPECT_EQ(Vex::toStrep(info),
            "Value('Orb::RoutePrefixToResilientEcmpInfo', ** {'key': Value('Nexo::Prefix', ** {'prefix': "
            "'10.1.0.0/16'}), 'adjIndex': 7, 'coveringResEcmpPrefix': Value('Nexo::Prefix', ** {'prefix': "
            "'10.0.0.0/8'}), 'resilientAdjIndex': 99, 'reviewResilientAdjResult': 'resEcmpSuccess'})");
  expectRoundTrip(info);
  Route6PrefixToResilientEcmpInfo info6;
  info6.key = Nexo::Ip6Prefix("2001:db8::/64");
  info6.coveringResEcmpPrefix = Nexo::Ip6Prefix("2001:db8::/32");
  info6.resilientAdjIndex = 1;
  info6.reviewResilientAdjResult = ReviewResilientAdjResult::noLongerResilientFailure;
  expectRoundTrip(info6);
  EXPECT_NE(Vex::toStrep(info6).find("'noLongerResilientFailure'"), std::string::npos);

  ResilientEcmpDedupingRequest request{12, FecId(40)};
  EXPECT_EQ(Vex::toStrep(request),
            "Value('Orb::ResilientEcmpDedupingRequest', ** {'requestId': 12, 'oldResilientFecId': "
            "Value('Pond::Fib::FecId', ** {'value': 40})})");
  expectRoundTrip(request);
  ResilientEcmpDedupingResponse response{12, FecId(41)};
  EXPECT_EQ(Vex::toStrep(response).rfind("Value('Orb::ResilientEcmpDedupingResponse', ** {'responseId': 12, "
                                         "'selectedResilientFecId': ",
                                         0),
            0u);
  expectRoundTrip(response);
  expectRoundTrip(ReviewResilientAdjStatus{5, ReviewResilientAdjResult::reviewAdjFailure});

  ResilientAdjInfo adjInfo;
  Via via{Nexo::IpAddr("10.0.0.2"), Nexo::IntfId("Ethernet1"), GlobalFecId()};
  ViaBitmap bits;
  bits.bitSet(ViaBitmapRange(0));
  bits.bitSet(ViaBitmapRange(5));
  adjInfo.resilientAdjVia.viaIs(via, 2);
  adjInfo.resilientAdjVia.viaBitmapIs(via, bits);
  expectRoundTrip(adjInfo);
  ResilientAdjInfo6 adjInfo6;
  Via6 via6{Nexo::Ip6Addr("2001:db8::2"), Nexo::IntfId("Ethernet2"), GlobalFecId()};
  adjInfo6.resilientAdjVia.viaIs(via6, 1);
  expectRoundTrip(adjInfo6);

  // Every result has a name, and a bad one does not parse.
  for (auto result : {ReviewResilientAdjResult::emptyViasFecFailure, ReviewResilientAdjResult::invalidViasFailure,
                      ReviewResilientAdjResult::kernelRouteFailure, ReviewResilientAdjResult::noFecIdFailure,
                      ReviewResilientAdjResult::nonForwardRouteFailure,
                      ReviewResilientAdjResult::unprogrammedRouteFailure, ReviewResilientAdjResult::invalid}) {
    expectRoundTrip(ReviewResilientAdjStatus{1, result});
  }
  EXPECT_THROW(Vex::fromStrep<ReviewResilientAdjStatus>(
                   "Value('Orb::ReviewResilientAdjStatus', ** {'adjIndex': 1, 'result': 'nothing'})"),
               Vex::ParseError);
}

TEST(ResilientEcmpValuesTest, EqualityIsFieldByField) {
  EXPECT_EQ(row("10.1.0.0/16", 3), row("10.1.0.0/16", 3));
  auto other = row("10.1.0.0/16", 3);
  other.reviewResilientAdjResult = ReviewResilientAdjResult::reviewAdjFailure;
  EXPECT_NE(other, row("10.1.0.0/16", 3));
  other = row("10.1.0.0/16", 3);
  other.coveringResEcmpPrefix = Nexo::Prefix("10.1.0.0/16");
  EXPECT_NE(other, row("10.1.0.0/16", 3));

  ResilientAdjVia a, b;
  Via via{Nexo::IpAddr("10.0.0.2"), Nexo::IntfId("Ethernet1"), GlobalFecId()};
  a.viaIs(via, 1);
  b.viaIs(via, 1);
  EXPECT_EQ(a, b);
  ViaBitmap bits;
  bits.bitSet(ViaBitmapRange(3));
  b.viaBitmapIs(via, bits);
  EXPECT_NE(a, b);
  b.viaBitmapDel(via);
  EXPECT_EQ(a, b);
  b.viaDelAll();
  b.viaBitmapDelAll();
  EXPECT_EQ(b, ResilientAdjVia());
}

class RowWatcher : public ResilientEcmpStatus::Notifiee {
 public:
  using Notifiee::Notifiee;
  std::vector<std::string> seen;
  void handleRoutePrefixToResilientEcmpInfo(const PrefixKey& key) override {
    seen.push_back(key.prefix().stringValue());
  }
  void handleRoutePrefixToResilientEcmpInfoMountStatus() override { seen.push_back("mount"); }
  void handleRoutePrefixToResilientEcmpInfoQuiesced(bool quiesced) override {
    seen.push_back(quiesced ? "quiesced" : "busy");
  }
};

std::string uniquePrefix() {
  static int count = 0;
  return "orbrecmp-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + "-";
}

// The routing side writes the per-route rows into shared memory; another
// agent's reader sees each row and hears each changed prefix, in order.
TEST(ResilientEcmpStatusTest, PerRouteRowsTravelThroughSharedMemory) {
  using Role = Pond::TableControl::Role;
  std::string prefix = uniquePrefix();
  auto writer = resilientEcmpStatusFactory("resilientEcmpStatus");
  auto reader = resilientEcmpStatusFactory("resilientEcmpStatus");
  writer->controlIs(prefix, Role::writer, 8);
  reader->controlIs(prefix, Role::reader);
  RowWatcher onWriter(writer);
  RowWatcher onReader(reader);
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfoMountStatus(), Pond::MountStatus::mounted);

  auto first = row("10.1.0.0/16", 1);
  EXPECT_TRUE(writer->routePrefixToResilientEcmpInfoIs(first));
  EXPECT_TRUE(writer->routePrefixToResilientEcmpInfoIs(first));  // unchanged: nobody hears it
  EXPECT_TRUE(writer->routePrefixToResilientEcmpInfoCommit(row("10.2.0.0/16", 2)));
  EXPECT_THAT(onWriter.seen, ElementsAre("10.1.0.0/16", "10.2.0.0/16"));
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfo(first.key), first);
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfo(Nexo::Prefix("10.9.0.0/16")), RoutePrefixToResilientEcmpInfo());
  // The same prefix written with other host bits is the same key.
  EXPECT_TRUE(reader->routePrefixToResilientEcmpInfoHas(Nexo::Prefix("10.1.2.3/16")));

  writer->routePrefixToResilientEcmpInfoDel(first.key);
  writer->routePrefixToResilientEcmpInfoQuiescedIs(true);
  reader->routePrefixToResilientEcmpInfoProcessChanges();
  EXPECT_THAT(onReader.seen, ElementsAre("10.1.0.0/16", "10.2.0.0/16", "10.1.0.0/16", "quiesced"));
  EXPECT_FALSE(reader->routePrefixToResilientEcmpInfoHas(first.key));
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfoSize(), 1u);

  // A full table refuses the row and keeps what it had.
  for (int n = 0; n < 8; ++n)
    writer->routePrefixToResilientEcmpInfoIs(row(("10.3." + std::to_string(n) + ".0/24").c_str(), 3));
  EXPECT_FALSE(writer->routePrefixToResilientEcmpInfoIs(row("10.4.0.0/16", 4)));
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfo(Nexo::Prefix("10.2.0.0/16")).resilientAdjIndex, 2u);

  writer->routePrefixToResilientEcmpInfoDelAll();
  EXPECT_EQ(reader->routePrefixToResilientEcmpInfoSize(), 0u);
}

TEST(ResilientEcmpStatusTest, Ipv6RowsTravelTheSameWay) {
  using Role = Pond::TableControl::Role;
  std::string prefix = uniquePrefix();
  auto writer = resilientEcmpStatus6Factory("resilientEcmpStatus6");
  auto reader = resilientEcmpStatus6Factory("resilientEcmpStatus6");
  writer->controlIs(prefix, Role::writer);
  reader->controlIs(prefix, Role::reader);
  Route6PrefixToResilientEcmpInfo info6;
  info6.key = Nexo::Ip6Prefix("2001:db8::/64");
  info6.coveringResEcmpPrefix = Nexo::Ip6Prefix("2001:db8::/32");
  info6.resilientAdjIndex = 5;
  info6.reviewResilientAdjResult = ReviewResilientAdjResult::resEcmpSuccess;
  EXPECT_TRUE(writer->route6PrefixToResilientEcmpInfoIs(info6));
  EXPECT_EQ(reader->route6PrefixToResilientEcmpInfo(info6.key), info6);
  writer->route6PrefixToResilientEcmpInfoDel(info6.key);
  EXPECT_FALSE(reader->route6PrefixToResilientEcmpInfoHas(info6.key));
}

TEST(ResilientEcmpStatusTest, PerVrfLayoutsHangOffTheInternalStatus) {
  auto internal = orbInternalL3StatusFactory("orbInternalL3Status");
  auto red = internal->resilientAdjIndexToAdjInfoIs(VrfId(2));
  EXPECT_EQ(internal->resilientAdjIndexToAdjInfoIs(VrfId(2)), red);
  EXPECT_EQ(red->vrfId(), VrfId(2));
  ResilientAdjInfo info;
  info.resilientAdjVia.viaIs(Via{Nexo::IpAddr("10.0.0.2"), Nexo::IntfId("Ethernet1"), GlobalFecId()}, 4);
  red->resilientAdjIndexToAdjInfoIs(1ull << 40, info);
  EXPECT_EQ(internal->resilientAdjIndexToAdjInfo(VrfId(2))->resilientAdjIndexToAdjInfo(1ull << 40), info);
  EXPECT_FALSE(internal->resilientAdjIndexToAdjInfo6Has(VrfId(2)));
  internal->resilientAdjIndexToAdjInfo6Is(VrfId(2));
  EXPECT_TRUE(internal->resilientAdjIndexToAdjInfo6Has(VrfId(2)));

  auto fibFecs = Vex::make<FibFecIdToResilientAdjIndex>(VrfId(2));
  auto set = fibFecs->fibFecIdToResilientAdjIndexIs(GlobalFecId(10));
  set->resilientAdjIndexIs(1);
  set->resilientAdjIndexIs(2);
  set->resilientAdjIndexDel(1);
  EXPECT_EQ(fibFecs->fibFecIdToResilientAdjIndex(GlobalFecId(10))->resilientAdjIndexSize(), 1u);
  fibFecs->fibFecIdToResilientAdjIndexDel(GlobalFecId(10));
  EXPECT_FALSE(fibFecs->fibFecIdToResilientAdjIndexHas(GlobalFecId(10)));
}

TEST(ResilientEcmpDedupingTest, OneRowPerIdAndEachSideDeletesItsOwn) {
  auto dedup = resilientEcmpDedupingRequestResponseFactory("resilientEcmpDeduping");
  ResilientEcmpDedupingRequest first{7, FecId(100)}, second{7, FecId(200)};
  EXPECT_NE(first, second);  // same id, another FEC: another value
  dedup->requestIs(first);
  dedup->requestIs(second);
  EXPECT_EQ(dedup->request().size(), 1u);
  EXPECT_EQ(dedup->request(7), second);
  dedup->responseIs({7, FecId(300)});
  dedup->requestDel(7);
  EXPECT_FALSE(dedup->requestHas(7));
  EXPECT_EQ(dedup->response(7).selectedResilientFecId, FecId(300));
  dedup->responseDel(7);
  EXPECT_EQ(dedup->response(7), ResilientEcmpDedupingResponse());
}

TEST(ResilientEcmpDedupingTest, IdsWrapPastOutstandingRowsAndRunOutClearly) {
  auto dedup = resilientEcmpDedupingRequestResponseFactory("resilientEcmpDeduping");
  EXPECT_EQ(dedup->recmpDedupingIdInc(), 1);
  // Ids 2 and 3 are still held (a request and an unread response); 0 too.
  dedup->requestIs({2, FecId(1)});
  dedup->responseIs({3, FecId(1)});
  EXPECT_EQ(dedup->recmpDedupingIdInc(), 4);
  while (dedup->recmpDedupingId() != 65535) dedup->recmpDedupingIdInc();
  dedup->requestIs({0, FecId(1)});
  EXPECT_EQ(dedup->recmpDedupingIdInc(), 1);  // wrapped, past 0
  EXPECT_EQ(dedup->recmpDedupingIdInc(), 4);  // past 2 and 3

  // Every id held: the counter stays and the caller hears why.
  for (std::uint32_t id = 0; id < ResilientEcmpDedupingRequestResponse::idCount; ++id) {
    dedup->requestIs({static_cast<ResilientEcmpDedupingId>(id), FecId(1)});
  }
  EXPECT_THROW(dedup->recmpDedupingIdInc(), ResilientEcmpDedupingIdsExhausted);
  EXPECT_EQ(dedup->recmpDedupingId(), 4);
  dedup->requestDel(9);
  EXPECT_EQ(dedup->recmpDedupingIdInc(), 9);
}

}  // namespace
