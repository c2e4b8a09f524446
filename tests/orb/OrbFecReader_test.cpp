// FecReader over shared-memory tables as another process would publish
// them: FIB FECs of both families, next-hop groups, route-cache FECs and
// requesters' FECs; hierarchical FECs and tables not mounted yet.
#include "Orb/OrbFecReader.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace Orb;
using Pond::Fib::FecId;
using Pond::Fib::GlobalFecId;
using Role = Pond::TableControl::Role;

std::string uniqueBase() {
  static int count = 0;
  return "orbfecreader-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + "-";
}

Pond::Fib::Fec fec4(std::uint64_t id, std::initializer_list<std::uint64_t> nextLevel = {}) {
  Pond::Fib::Fec fec;
  fec.key = FecId(id);
  fec.via[fec.viaCount++] = Pond::Fib::Via{0x0a000001u, 1, 1, 0, 0, 0};
  for (auto next : nextLevel) Pond::Fib::nextLevelFecIdIs(fec.via[fec.viaCount++], FecId(next));
  return fec;
}

Pond::Fib6::Fec fec6(std::uint64_t id, std::uint64_t nextLevel) {
  Pond::Fib6::Fec fec;
  fec.key = FecId(id);
  Pond::Fib6::nextLevelFecIdIs(fec.via[fec.viaCount++], FecId(nextLevel));
  return fec;
}

struct FecReaderTest : ::testing::Test {
  Vex::EventLoop loop{std::make_unique<Vex::SimulatedTimeSource>()};
  std::string base = uniqueBase();
  Vex::Ptr<FibForwardingStatus> fibOut = Vex::make<FibForwardingStatus>("fib");
  Vex::Ptr<AggregatedForwardingStatus> aggregatedOut = Vex::make<AggregatedForwardingStatus>("aggregated");
  Vex::Ptr<FecIdToHwFecIdRequest> requestsOut = fecIdToHwFecIdRequestFactory("mpls");
  Vex::Ptr<FibForwardingStatus> fib = Vex::make<FibForwardingStatus>("fib");
  Vex::Ptr<AggregatedForwardingStatus> aggregated = Vex::make<AggregatedForwardingStatus>("aggregated");
  Vex::Ptr<AllFecIdToHwFecIdRequestResponse> all = Vex::make<AllFecIdToHwFecIdRequestResponse>("all");
  FecReader reader{aggregated, fib, all};

  FecReaderTest() {
    loop.makeCurrent();
    fibOut->controlIs(base + "fib-", Role::writer, 16);
    aggregatedOut->controlIs(base + "agg-", Role::writer, 16);
    std::string requestPrefix = fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false);
    requestsOut->controlIs(requestPrefix, Role::writer, 16);
    fib->controlIs(base + "fib-", Role::reader);
    aggregated->controlIs(base + "agg-", Role::reader);
    auto requests = fecIdToHwFecIdRequestFactory("mpls");
    requests->controlIs(requestPrefix, Role::reader);
    all->requestCollectionIs(FecRequestSource::fecRequestMpls, requests);
  }
};

TEST_F(FecReaderTest, AFecIsFoundInTheFibFirstThenAmongTheRequestersFecs) {
  fibOut->fecIs(fec4(10));
  fibOut->fec6Is(fec6(11, 10));
  HwFecIdRequest request;
  request.key = FecId(12);
  addFecRequest(*requestsOut, fec4(12), request);
  auto ten = reader.readFec(GlobalFecId(10));
  ASSERT_TRUE(ten);
  EXPECT_EQ(ten->status, FecReadData::fecFound);
  EXPECT_EQ(ten->fecType, FecType::fecTypeIpv4);
  EXPECT_EQ(ten->fec, fec4(10));
  EXPECT_EQ(reader.readFec(GlobalFecId(11))->fecType, FecType::fecTypeIpv6);
  EXPECT_EQ(reader.readFec(GlobalFecId(12))->fec, fec4(12));

  FecReadData data;
  EXPECT_FALSE(reader.readFecIntoData(GlobalFecId(13), &data));
  EXPECT_EQ(data.status, FecReadData::fecNotFound);
  EXPECT_EQ(data.fecType, FecType::fecTypeNone);
  EXPECT_FALSE(reader.readFec(GlobalFecId(13)));
}

TEST_F(FecReaderTest, NextHopGroupAndRouteCacheFecsAreReadFromTheirOwnTables) {
  aggregatedOut->nexthopGroupFecIs(fec4(20));
  aggregatedOut->routeCacheFecIs(fec4(21));
  FecReadData data;
  EXPECT_TRUE(reader.readNexthopGroupIntoData(GlobalFecId(20), &data));
  EXPECT_EQ(data.fec, fec4(20));
  EXPECT_FALSE(reader.readNexthopGroupIntoData(GlobalFecId(21), &data));
  EXPECT_EQ(data.status, FecReadData::fecNotFound);
  EXPECT_TRUE(reader.readRouteCacheFecIntoData(GlobalFecId(21), &data));
  EXPECT_FALSE(reader.readFecIntoData(GlobalFecId(20), &data));  // not a FIB FEC
}

TEST_F(FecReaderTest, AHierarchicalFecsNextLevelIsWhatItsViasResolveThrough) {
  std::uint64_t wide = (std::uint64_t(7) << 32) | 5;  // an id past 32 bits
  fibOut->fecIs(fec4(30, {31, wide, 31}));
  fibOut->fec6Is(fec6(32, 30));
  aggregatedOut->nexthopGroupFecIs(fec4(33, {30, 32}));
  auto thirty = reader.nextLevelFecIds(GlobalFecId(30));
  ASSERT_TRUE(thirty);
  EXPECT_EQ(thirty.fecIdColl, (std::set<GlobalFecId>{GlobalFecId(31), GlobalFecId(wide)}));
  EXPECT_EQ(reader.nextLevelFecIds(GlobalFecId(32)).fecIdColl, std::set<GlobalFecId>{GlobalFecId(30)});
  EXPECT_EQ(reader.nextLevelFecIds(GlobalFecId(33)).fecIdColl,
            (std::set<GlobalFecId>{GlobalFecId(30), GlobalFecId(32)}));
  auto flat = reader.nextLevelFecIds(GlobalFecId(31));  // absent: nothing under it, but usable
  EXPECT_TRUE(flat);
  EXPECT_TRUE(flat.fecIdColl.empty());
}

TEST(FecReaderMount, TheNextLevelIsNotUsableUntilEveryTableItReadsIsMounted) {
  Vex::EventLoop loop{std::make_unique<Vex::SimulatedTimeSource>()};
  loop.makeCurrent();
  std::string base = uniqueBase();
  auto fib = Vex::make<FibForwardingStatus>("fib");
  auto aggregated = Vex::make<AggregatedForwardingStatus>("aggregated");
  fib->controlIs(base + "fib-", Role::reader);
  aggregated->controlIs(base + "agg-", Role::reader);
  FecReader reader(aggregated, fib, nullptr);
  EXPECT_FALSE(reader.nextLevelFecIds(GlobalFecId(1)));
  EXPECT_FALSE(FecReader(nullptr, fib, nullptr).nextLevelFecIds(GlobalFecId(1)));

  auto fibOut = Vex::make<FibForwardingStatus>("fib");
  fibOut->controlIs(base + "fib-", Role::writer, 4);
  fibOut->fecIs(fec4(1, {2}));
  loop.advance(1);                                       // the readers mount on their next try
  EXPECT_FALSE(reader.nextLevelFecIds(GlobalFecId(1)));  // the aggregated tables are still missing
  EXPECT_TRUE(reader.readFec(GlobalFecId(1)));           // what is mounted reads all the same
  auto aggregatedOut = Vex::make<AggregatedForwardingStatus>("aggregated");
  aggregatedOut->controlIs(base + "agg-", Role::writer, 4);
  loop.advance(1);
  auto next = reader.nextLevelFecIds(GlobalFecId(1));
  ASSERT_TRUE(next);
  EXPECT_EQ(next.fecIdColl, std::set<GlobalFecId>{GlobalFecId(2)});
}

}  // namespace
