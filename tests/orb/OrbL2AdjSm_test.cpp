// The adjacency machine: follows `l2AdjList`, and a refusal is a status.
#include "Orb/OrbL2AdjSm.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbL2AdjBinder.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace Orb;
using Pond::Fib::GlobalFecId;

// Answers adds as told (success when nothing is queued) and records calls.
class RecordingAdjHelper : public OrbHelper::OrbHelperL2Adj {
 public:
  std::deque<std::uint32_t> answers;
  std::vector<std::string> calls;
  std::uint32_t doAddAdjacency(const L2AdjKey& key, const NextHopCollection& nextHops) override {
    calls.push_back("add " + key.stringValue() + " " + std::to_string(nextHops.nextHopSize()));
    if (answers.empty()) return addSuccess;
    auto answer = answers.front();
    answers.pop_front();
    return answer;
  }
  void doRemoveAdjacency(const L2AdjKey& key) override { calls.push_back("remove " + key.stringValue()); }
};

class L2AdjSmTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<OrbCommonSmData> ocsd = orbCommonSmDataFactory("ocsd");
  Vex::Ptr<L3Status> status = l3StatusFactory("l3Status");
  Vex::Ptr<OrbInternalL3Status> internal = orbInternalL3StatusFactory("internal");
  Vex::Ptr<RecordingAdjHelper> helper = Vex::make<RecordingAdjHelper>();
  L2AdjBinder binder{status, internal};

  NextHopCollection oneHop(const char* intf) {
    NextHopCollection c(L2AdjType::nexthopAdj);
    c.nextHopIs(NextHop(NextHopEntryType::nextHopArpRequired, Nexo::EthAddr(), intf, intf), 1);
    return c;
  }
  Vex::Ptr<L2AdjSm> start() { return l2AdjSmFactory({ocsd, helper, status, internal}); }
};

TEST_F(L2AdjSmTest, ProgramsWhatIsThereAtStartAndFollowsTheList) {
  auto first = binder.fecNextHopsIs(GlobalFecId(1), oneHop("Ethernet1"), TableType::tableTypeLongestPrefix);
  auto sm = start();
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"add " + first->key().stringValue() + " 1"}));
  EXPECT_EQ(first->state(), L2AdjState::programmed);
  // A second FEC with the same next hops adds nothing to the hardware.
  binder.fecNextHopsIs(GlobalFecId(2), oneHop("Ethernet1"), TableType::tableTypeLongestPrefix);
  EXPECT_EQ(helper->calls.size(), 1u);
  binder.fecDel(GlobalFecId(1));
  binder.fecDel(GlobalFecId(2));
  EXPECT_EQ(helper->calls.back(), "remove " + first->key().stringValue());
  EXPECT_TRUE(sm->programmed().empty());
}

TEST_F(L2AdjSmTest, RefusedAdjacencyWaitsForRoomAndIsOfferedAgain) {
  auto sm = start();
  auto kept = binder.fecNextHopsIs(GlobalFecId(1), oneHop("Ethernet1"), TableType::tableTypeLongestPrefix);
  helper->answers = {OrbHelper::OrbHelperL2Adj::addFull};
  auto refused = binder.fecNextHopsIs(GlobalFecId(2), oneHop("Ethernet2"), TableType::tableTypeLongestPrefix);
  EXPECT_EQ(refused->state(), L2AdjState::pending);
  EXPECT_TRUE(internal->adjResourceFull());
  EXPECT_EQ(sm->refusals(), 1u);
  EXPECT_EQ(sm->pending(), (std::map<L2AdjKey, std::uint32_t>{{refused->key(), OrbHelper::OrbHelperL2Adj::addFull}}));
  // Room comes when an adjacency leaves; the refused one goes in.
  binder.fecDel(GlobalFecId(1));
  EXPECT_EQ(refused->state(), L2AdjState::programmed);
  EXPECT_FALSE(internal->adjResourceFull());
  EXPECT_TRUE(sm->pending().empty());
  EXPECT_EQ(sm->programmed(), std::set<L2AdjKey>{refused->key()});
  EXPECT_EQ(kept->state(), L2AdjState::deleted);
}

TEST_F(L2AdjSmTest, ABusyChipIsAskedAgainShortlyAndAFullOneIsNot) {
  auto sm = start();
  helper->answers = {OrbHelper::OrbHelperL2Adj::addBusy, OrbHelper::OrbHelperL2Adj::addBusy};
  auto adj = binder.fecNextHopsIs(GlobalFecId(1), oneHop("Ethernet1"), TableType::tableTypeLongestPrefix);
  EXPECT_EQ(adj->state(), L2AdjState::pending);
  loop.advance(L2AdjSm::busyRetryDelay / 2);
  EXPECT_EQ(helper->calls.size(), 1u);
  // Busy again: another wait, then in.
  loop.advance(L2AdjSm::busyRetryDelay);
  EXPECT_EQ(helper->calls.size(), 2u);
  EXPECT_EQ(adj->state(), L2AdjState::pending);
  loop.advance(L2AdjSm::busyRetryDelay * 2);
  EXPECT_EQ(helper->calls.size(), 3u);
  EXPECT_EQ(adj->state(), L2AdjState::programmed);
  EXPECT_FALSE(internal->adjResourceFull());
  // A full table is not polled: only room made by a removal brings it in.
  helper->answers = {OrbHelper::OrbHelperL2Adj::addFull};
  auto full = binder.fecNextHopsIs(GlobalFecId(2), oneHop("Ethernet2"), TableType::tableTypeLongestPrefix);
  loop.advance(1);
  EXPECT_EQ(helper->calls.size(), 4u);
  EXPECT_EQ(full->state(), L2AdjState::pending);
}

TEST_F(L2AdjSmTest, AnAdjacencyThatGoesWhilePendingIsNeverRemovedFromHardware) {
  auto sm = start();
  helper->answers = {OrbHelper::OrbHelperL2Adj::addBusy};
  auto adj = binder.fecNextHopsIs(GlobalFecId(1), oneHop("Ethernet1"), TableType::tableTypeLongestPrefix);
  binder.fecDel(GlobalFecId(1));
  EXPECT_EQ(helper->calls, (std::vector<std::string>{"add " + adj->key().stringValue() + " 1"}));
  EXPECT_TRUE(sm->pending().empty());
}

}  // namespace
