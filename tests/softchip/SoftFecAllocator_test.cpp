// The soft chip's hardware FEC allocator against a requester's shared-memory
// tables: answers, ids, faults, withdrawals, and a requester in another
// process exchanging 100,000 requests with it.
#include "chip/softchip/SoftFecAllocator.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

namespace {

using namespace SoftChip;
using Orb::AdjacencyState;
using Orb::FecRequestSource;
using Pond::Fib::FecId;
using Role = Pond::TableControl::Role;

std::string uniqueBase() {
  static int count = 0;
  return "orbfecd-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + "-";
}

Pond::Fib::Fec fec4(std::uint64_t id, std::initializer_list<std::uint32_t> ports) {
  Pond::Fib::Fec fec;
  fec.key = FecId(id);
  for (std::uint32_t port : ports) fec.via[fec.viaCount++] = Pond::Fib::Via{0x0a000001u + port, port, 1, 0, 0, 0};
  return fec;
}

Orb::HwFecIdRequest request(std::uint64_t fec, double id, bool adjState = true,
                            Orb::FecRequestType type = Orb::FecRequestType::normalFec) {
  Orb::HwFecIdRequest r;
  r.key = FecId(fec);
  r.requestType = type;
  r.requestAdjState = adjState;
  r.requestId = id;
  return r;
}

// A requester of MPLS FECs and the allocator serving it, in one process.
struct Exchange : ::testing::Test {
  Vex::EventLoop loop{std::make_unique<Vex::SimulatedTimeSource>()};
  std::string base = uniqueBase();
  Vex::Ptr<SoftChip::SoftChip> chip = softChipFactory();
  Vex::Ptr<Orb::FecIdToHwFecIdRequest> requests = Orb::fecIdToHwFecIdRequestFactory("mpls");
  Vex::Ptr<Orb::FecIdToHwFecIdResponse> answers = Orb::fecIdToHwFecIdResponseFactory("mpls");
  Vex::Ptr<SoftFecAllocator> allocator;

  Exchange() {
    loop.makeCurrent();
    requests->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false), Role::writer, 16);
    allocator = Vex::make<SoftFecAllocator>(chip, base);
    allocator->serve(FecRequestSource::fecRequestMpls);
    answers->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestMpls, true), Role::reader);
    loop.runUntilIdle();
  }
  Orb::FecToHwFecId answer(std::uint64_t fec) {
    loop.runUntilIdle();
    return answers->hwFecId(FecId(fec));
  }
};

TEST_F(Exchange, EachRequestGetsTheLowestFreeHardwareFecWithItsRequestIdAndAdjacency) {
  ASSERT_TRUE(Orb::addFecRequest(*requests, fec4(10, {3, 3}), request(10, 1.5)));
  ASSERT_TRUE(Orb::addFecRequest(*requests, fec4(11, {3, 4}), request(11, 2.5, false)));
  ASSERT_TRUE(Orb::addFecRequest(*requests, fec4(12, {}), request(12, 3.5)));
  EXPECT_EQ(answer(10),
            (Orb::FecToHwFecId{FecId(10), Orb::HwFecId(1), AdjacencyState::adjStateForwardingPrimaryVias, 1.5}));
  // No adjacency state asked for, none told.
  EXPECT_EQ(answer(11), (Orb::FecToHwFecId{FecId(11), Orb::HwFecId(2), AdjacencyState::adjStateUnknown, 2.5}));
  EXPECT_EQ(answer(12), (Orb::FecToHwFecId{FecId(12), Orb::HwFecId(3), AdjacencyState::adjStateDrop, 3.5}));
  // A layer-2 interface only where every via leaves by one port.
  EXPECT_EQ(answers->l2IntfId(FecId(10)).l2IntfId, Nexo::IntfId("Ethernet3"));
  EXPECT_FALSE(answers->l2IntfIdHas(FecId(11)));
  EXPECT_FALSE(answers->l2IntfIdHas(FecId(12)));
  EXPECT_EQ(allocator->grants().size(), 3u);
}

TEST_F(Exchange, AWithdrawnRequestLosesItsAnswerAndItsIdGoesToTheNextRequest) {
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 1));
  Orb::addFecRequest(*requests, fec4(11, {1}), request(11, 2));
  answer(11);
  Orb::withdrawFecRequest(*requests, FecId(10));
  loop.runUntilIdle();
  EXPECT_FALSE(answers->hwFecIdHas(FecId(10)));
  EXPECT_FALSE(answers->l2IntfIdHas(FecId(10)));
  Orb::addFecRequest(*requests, fec4(12, {1}), request(12, 3));
  EXPECT_EQ(answer(12).hwId.get(), Orb::HwFecId(1));
  EXPECT_EQ(answer(11).hwId.get(), Orb::HwFecId(2));
}

TEST_F(Exchange, AChangedFecKeepsItsHardwareFecAndItsAnswerFollows) {
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 1));
  answer(10);
  EXPECT_EQ(answers->l2IntfId(FecId(10)).l2IntfId, Nexo::IntfId("Ethernet1"));
  requests->fecIs(fec4(10, {}));
  EXPECT_EQ(answer(10), (Orb::FecToHwFecId{FecId(10), Orb::HwFecId(1), AdjacencyState::adjStateDrop, 1}));
  EXPECT_FALSE(answers->l2IntfIdHas(FecId(10)));
  requests->hwFecIdRequestIs(request(10, 7));
  EXPECT_EQ(answer(10).requestId.get(), 7.0);
}

TEST_F(Exchange, AFecRowNamingNoPortIsStillAnswered) {
  Orb::addFecRequest(*requests, fec4(10, {0xfffffff0u}), request(10, 1));
  EXPECT_EQ(answer(10).hwId.get(), Orb::HwFecId(1));
  EXPECT_EQ(answer(10).adjState, AdjacencyState::adjStateForwardingPrimaryVias);
}

TEST_F(Exchange, ASoftwareOnlyFecIsAnsweredWithoutAHardwareFec) {
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 1, true, Orb::FecRequestType::swOnlyFec));
  EXPECT_EQ(answer(10).hwId.get(), Orb::HwFecId());
  EXPECT_EQ(allocator->grants().size(), 0u);
}

TEST_F(Exchange, BusyWaitsFullWaitsForRoomAndFailedWaitsForAChangedRequest) {
  chip->faultIs("fec-request", Fault::busy, 1);
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 1));
  loop.runUntilIdle();
  EXPECT_FALSE(answers->hwFecIdHas(FecId(10)));
  EXPECT_EQ(allocator->waiting(), 1u);
  loop.advance(SoftFecAllocator::busyRetry);
  EXPECT_EQ(answer(10).hwId.get(), Orb::HwFecId(1));

  chip->capacityIs("fec-request", 1);
  Orb::addFecRequest(*requests, fec4(11, {1}), request(11, 2));
  EXPECT_EQ(answer(11), (Orb::FecToHwFecId{FecId(11), Orb::HwFecId(), AdjacencyState::adjStateUnprogrammed, 2}));
  Orb::withdrawFecRequest(*requests, FecId(10));
  loop.advance(0);
  EXPECT_EQ(answer(11).hwId.get(), Orb::HwFecId(1));
  EXPECT_EQ(allocator->waiting(), 0u);

  chip->capacityIs("fec-request", SoftChip::SoftChip::unlimited);
  chip->faultIs("fec-request", Fault::failed, 1);
  Orb::addFecRequest(*requests, fec4(12, {1}), request(12, 3));
  EXPECT_EQ(answer(12).adjState, AdjacencyState::adjStateUnprogrammed);
  loop.advance(1);
  EXPECT_EQ(answer(12).hwId.get(), Orb::HwFecId());
  requests->hwFecIdRequestIs(request(12, 4));
  EXPECT_EQ(answer(12).hwId.get(), Orb::HwFecId(2));
}

// A requester that restarts publishes its requests again, in any order, and
// gets the same hardware FECs; those it no longer asks for are freed once it
// says it is ready.
TEST_F(Exchange, ARestartedRequesterGetsItsHardwareFecsBackAndFreesTheRestWhenReady) {
  const std::string prefix = Orb::fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false);
  for (std::uint64_t fec : {10, 11, 12}) Orb::addFecRequest(*requests, fec4(fec, {1}), request(fec, 1));
  ASSERT_EQ(answer(12).hwId.get(), Orb::HwFecId(3));
  requests = nullptr;  // the requester stops: its tables go
  loop.advance(1);
  requests = Orb::fecIdToHwFecIdRequestFactory("mpls");
  requests->controlIs(prefix, Role::writer, 16);
  loop.advance(1);
  Orb::addFecRequest(*requests, fec4(12, {1}), request(12, 2));
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 2));
  EXPECT_EQ(answer(12),
            (Orb::FecToHwFecId{FecId(12), Orb::HwFecId(3), AdjacencyState::adjStateForwardingPrimaryVias, 2}));
  EXPECT_EQ(answer(10).hwId.get(), Orb::HwFecId(1));
  // FEC 11 is not asked for again yet: its hardware FEC waits for it.
  EXPECT_EQ(answer(11).hwId.get(), Orb::HwFecId(2));
  Orb::addFecRequest(*requests, fec4(13, {1}), request(13, 2));
  EXPECT_EQ(answer(13).hwId.get(), Orb::HwFecId(4));

  requests->syncRequestsReadyIs(Orb::SyncRequestsReady{Orb::ReadyBool(true)});
  loop.advance(0.1);
  EXPECT_FALSE(answers->hwFecIdHas(FecId(11)));
  Orb::addFecRequest(*requests, fec4(14, {1}), request(14, 2));
  EXPECT_EQ(answer(14).hwId.get(), Orb::HwFecId(2));
  EXPECT_EQ(allocator->grants().size(), 4u);
}

TEST_F(Exchange, ARestartedRequesterThatNeverSaysReadyHasItsGraceAndNoMore) {
  const std::string prefix = Orb::fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false);
  for (std::uint64_t fec : {10, 11}) Orb::addFecRequest(*requests, fec4(fec, {1}), request(fec, 1));
  answer(11);
  requests = nullptr;
  loop.advance(1);
  requests = Orb::fecIdToHwFecIdRequestFactory("mpls");
  requests->controlIs(prefix, Role::writer, 16);
  loop.advance(1);
  Orb::addFecRequest(*requests, fec4(11, {1}), request(11, 2));
  EXPECT_EQ(answer(11).hwId.get(), Orb::HwFecId(2));
  loop.advance(SoftFecAllocator::syncGrace / 2);
  EXPECT_TRUE(answers->hwFecIdHas(FecId(10)));
  loop.advance(SoftFecAllocator::syncGrace);
  EXPECT_FALSE(answers->hwFecIdHas(FecId(10)));
  EXPECT_EQ(answer(11).hwId.get(), Orb::HwFecId(2));
  EXPECT_EQ(allocator->grants().size(), 1u);
}

// A requester that is ready from its start (it restores nothing) has
// everything it no longer asks for freed at once.
TEST_F(Exchange, ARequesterReadyFromItsStartHoldsNothing) {
  const std::string prefix = Orb::fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false);
  Orb::addFecRequest(*requests, fec4(10, {1}), request(10, 1));
  answer(10);
  requests = nullptr;
  loop.advance(1);
  requests = Orb::fecIdToHwFecIdRequestFactory("mpls");
  requests->controlIs(prefix, Role::writer, 16);
  requests->syncRequestsReadyIs(Orb::SyncRequestsReady{Orb::ReadyBool(true)});
  loop.advance(1);
  EXPECT_FALSE(answers->hwFecIdHas(FecId(10)));
  EXPECT_EQ(allocator->grants().size(), 0u);
}

TEST(SoftFecAllocatorLapped, RequestsWithdrawnWhileItFellALapBehindFreeTheirHardwareFecs) {
  Vex::EventLoop loop{std::make_unique<Vex::SimulatedTimeSource>()};
  loop.makeCurrent();
  std::string base = uniqueBase();
  std::string prefix = Orb::fecRequestPrefix(base, FecRequestSource::fecRequestCbf, false);
  auto requests = Orb::fecIdToHwFecIdRequestFactory("cbf");
  auto requestControl = Pond::TableControl::of(prefix, "hwFecIdRequest", Role::writer);
  requestControl.logCapacity = 8;
  requests->hwFecIdRequestControlIs(requestControl);
  requests->fecControlIs(Pond::TableControl::of(prefix, "fec", Role::writer));
  requests->fec6ControlIs(Pond::TableControl::of(prefix, "fec6", Role::writer));
  auto chip = softChipFactory();
  auto allocator = Vex::make<SoftFecAllocator>(chip, base);
  allocator->serve(FecRequestSource::fecRequestCbf);
  for (std::uint64_t fec = 1; fec <= 6; ++fec) requests->hwFecIdRequestIs(request(fec, 1));
  loop.runUntilIdle();
  EXPECT_EQ(allocator->grants().size(), 6u);
  // More changes than the log holds, the withdrawals among them.
  for (std::uint64_t fec = 1; fec <= 4; ++fec) requests->hwFecIdRequestDel(FecId(fec));
  for (int n = 2; n < 12; ++n) requests->hwFecIdRequestIs(request(5, n));
  loop.runUntilIdle();
  EXPECT_EQ(allocator->grants().size(), 2u);
  auto answers = Orb::fecIdToHwFecIdResponseFactory("cbf");
  answers->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestCbf, true), Role::reader);
  EXPECT_FALSE(answers->hwFecIdHas(FecId(1)));
  EXPECT_EQ(answers->hwFecId(FecId(5)).requestId.get(), 11.0);
}

TEST(SoftFecAllocatorStart, RequestsWrittenBeforeTheAllocatorCameAreAnsweredWhenItMounts) {
  Vex::EventLoop loop{std::make_unique<Vex::SimulatedTimeSource>()};
  loop.makeCurrent();
  std::string base = uniqueBase();
  auto chip = softChipFactory();
  auto allocator = Vex::make<SoftFecAllocator>(chip, base);
  allocator->serve(FecRequestSource::fecRequestEvpn);
  loop.advance(1);  // nothing to mount yet: it keeps trying
  auto requests = Orb::fecIdToHwFecIdRequestFactory("evpn");
  requests->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestEvpn, false), Role::writer, 16);
  Orb::addFecRequest(*requests, fec4(5, {2}), request(5, 9));
  loop.advance(1);
  auto answers = Orb::fecIdToHwFecIdResponseFactory("evpn");
  answers->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestEvpn, true), Role::reader);
  EXPECT_EQ(answers->hwFecId(FecId(5)).hwId.get(), Orb::HwFecId(1));
  EXPECT_EQ(answers->hwFecId(FecId(5)).requestId.get(), 9.0);
}

// The allocator in a child process, on real time, until the parent writes
// to `done`.
int serveInChild(const std::string& base, int readyFd, int doneFd, std::size_t capacity) {
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  loop.makeCurrent();
  auto chip = softChipFactory();
  auto allocator = Vex::make<SoftFecAllocator>(chip, base, capacity);
  allocator->serve(FecRequestSource::fecRequestPwLocal);
  char c = 1;
  if (::write(readyFd, &c, 1) != 1) return 1;
  for (;;) {
    pollfd done{doneFd, POLLIN, 0};
    if (::poll(&done, 1, 0) > 0) break;
    loop.runOnce(0.05);
  }
  return 0;
}

TEST(SoftFecAllocatorProcesses, ARequesterAndTheAllocatorInAnotherProcessExchange100000RequestsAndAnswers) {
  constexpr std::uint64_t count = 100000;
  std::string base = uniqueBase();
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  loop.makeCurrent();
  auto requests = Orb::fecIdToHwFecIdRequestFactory("pwLocal");
  // FEC rows are large: only some requests carry one.
  requests->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestPwLocal, false), Role::writer,
                      count + count / 4, 128);

  int ready[2], done[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(done), 0);
  pid_t child = ::fork();
  if (child == 0) ::_exit(serveInChild(base, ready[1], done[0], count + count / 4));
  ::close(ready[1]);
  char c = 0;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);

  auto answers = Orb::fecIdToHwFecIdResponseFactory("pwLocal");
  answers->controlIs(Orb::fecRequestPrefix(base, FecRequestSource::fecRequestPwLocal, true), Role::reader);
  for (std::uint64_t fec = 1; fec <= count; ++fec) {
    if (fec % 1000 == 0) {
      ASSERT_TRUE(requests->fecIs(fec4(fec, {7})));
    }
    ASSERT_TRUE(requests->hwFecIdRequestIs(request(fec, double(fec) + 0.5)));
  }
  requests->hwFecIdRequestTable().flush();
  auto deadline = Vex::now() + 120;
  while (answers->hwFecIdSize() < count && Vex::now() < deadline) loop.runOnce(0.05);

  ASSERT_EQ(answers->hwFecIdSize(), count);
  std::set<std::uint64_t> hwIds;
  for (std::uint64_t fec = 1; fec <= count; ++fec) {
    auto row = answers->hwFecId(FecId(fec));
    ASSERT_EQ(row.requestId.get(), double(fec) + 0.5) << fec;
    hwIds.insert(row.hwId.get().value());
    if (fec % 1000 == 0) {
      EXPECT_EQ(row.adjState, AdjacencyState::adjStateForwardingPrimaryVias);
      EXPECT_EQ(answers->l2IntfId(FecId(fec)).l2IntfId, Nexo::IntfId("Ethernet7"));
    }
  }
  EXPECT_EQ(hwIds.size(), count);  // every request its own hardware FEC
  EXPECT_EQ(*hwIds.begin(), 1u);
  EXPECT_EQ(*hwIds.rbegin(), count);

  // Withdrawals cross too.
  for (std::uint64_t fec = 1; fec <= 100; ++fec) requests->hwFecIdRequestDel(FecId(fec));
  requests->hwFecIdRequestTable().flush();
  deadline = Vex::now() + 30;
  while (answers->hwFecIdSize() > count - 100 && Vex::now() < deadline) loop.runOnce(0.05);
  EXPECT_EQ(answers->hwFecIdSize(), count - 100);

  ASSERT_EQ(::write(done[1], &c, 1), 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  for (int fd : {ready[0], done[0], done[1]}) ::close(fd);
}

}  // namespace
