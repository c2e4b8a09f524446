// The MAC command pipeline: ordering per key, superseded commands, busy
// retry, suspension, polling, expiry, overflow retries and a big backlog.
#include "Orb/OrbChipProgrammer.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>

namespace {

using Orb::IndirectAccessMacCmdType;
using Orb::MacProgramStatus;

class TestProgrammer : public Orb::OrbMacProgrammer {
 public:
  std::deque<std::uint32_t> results;  // planned write results; 5 when empty
  std::vector<std::uint64_t> written;
  std::vector<std::uint64_t> done;
  std::uint32_t writeToHw(const CmdPtr& cmd) override {
    written.push_back(cmd->transactionId());
    if (results.empty()) return 5;
    auto result = results.front();
    results.pop_front();
    return result;
  }
  void handleCmdDone(const CmdPtr& cmd) override { done.push_back(cmd->transactionId()); }
  CmdPtr addr(std::uint64_t mac, std::int64_t value = 1) {
    auto cmd = Orb::indirectAccessMacCmdFactory(
        IndirectAccessMacCmdType::addrOp, Orb::MacEntryKey{{Nexo::EthAddr(mac), Bridging::VlanId(1)}},
        Nexo::IntfId("Ethernet1"), Bridging::EntryType::entryDynamic, value, nextTransactionId());
    handleAddrOp(cmd);
    return cmd;
  }
};

class ChipProgrammerTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<TestProgrammer> programmer = Vex::make<TestProgrammer>();
};

TEST_F(ChipProgrammerTest, DefaultsAndKeyPrint) {
  EXPECT_TRUE(programmer->initialized());
  EXPECT_EQ(programmer->updateQuantumofTimes(), 128u);
  EXPECT_DOUBLE_EQ(programmer->updateDelay(), 0.2);
  EXPECT_DOUBLE_EQ(programmer->maxExecTime(), 1.0);
  EXPECT_DOUBLE_EQ(programmer->updateOverflowAddressMaxDelay(), 30.0);
  Orb::MacEntryKey key{{Nexo::EthAddr(1), Bridging::VlanId(5)}};
  EXPECT_EQ(Vex::toStrep(key),
            "Value('Orb::MacEntryKey', ** {'key': Value('Bridging::MacVlanPair', ** {'addr': Value('Nexo::EthAddr', "
            "** {'addr': '00:00:00:00:00:01'}), 'vlanId': Value('Bridging::VlanId', ** {'value': 5})}), "
            "'macHwType': 'macHwKeyBridge'})");
}

TEST_F(ChipProgrammerTest, SecondCommandForAKeyWaitsForTheFirstToFinish) {
  auto first = programmer->addr(1);
  loop.runUntilIdle();
  ASSERT_EQ(programmer->written, std::vector<std::uint64_t>{first->transactionId()});
  EXPECT_TRUE(programmer->inProgAddrOpHas(first->key()));
  auto second = programmer->addr(1);
  auto other = programmer->addr(2);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->written.size(), 1u);  // nothing passes the waiting key
  EXPECT_EQ(programmer->pendingMacOp().size(), 2u);
  programmer->handleCmdResponse(first->transactionId(), 0, MacProgramStatus::macProgramSuccess);
  loop.advance(0.1);  // the poll finds it done and lets the queue go
  EXPECT_EQ(programmer->written,
            (std::vector<std::uint64_t>{first->transactionId(), second->transactionId(), other->transactionId()}));
  EXPECT_EQ(programmer->done, std::vector<std::uint64_t>{first->transactionId()});
}

TEST_F(ChipProgrammerTest, SupersededCommandIsSkippedNotWritten) {
  programmer->suspendPendingIs(true);
  auto old = programmer->addr(1);
  auto fresh = programmer->addr(1, 0);
  EXPECT_EQ(programmer->pendingAddrOp(fresh->key()), fresh);
  EXPECT_TRUE(old->invalid());
  programmer->results = {0};
  programmer->suspendPendingIs(false);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->written, std::vector<std::uint64_t>{fresh->transactionId()});
  EXPECT_TRUE(programmer->pendingMacOp().empty());
  EXPECT_FALSE(programmer->pendingAddrOpHas(fresh->key()));
}

TEST_F(ChipProgrammerTest, SupersedingReachesAcrossStretchesOfFiledCommands) {
  // Enough commands that they are filed in several stretches; every key
  // comes twice, far apart, and only the later command of each is written.
  programmer->suspendPendingIs(true);
  std::vector<Orb::OrbMacProgrammer::CmdPtr> first, second;
  for (int i = 0; i < 40; ++i) first.push_back(programmer->addr(100 + i));
  for (int i = 0; i < 40; ++i) second.push_back(programmer->addr(100 + i, 0));
  programmer->results.assign(40, 0);
  programmer->suspendPendingIs(false);
  loop.runUntilIdle();
  for (const auto& cmd : first) EXPECT_TRUE(cmd->invalid());
  std::vector<std::uint64_t> expected;
  for (const auto& cmd : second) expected.push_back(cmd->transactionId());
  EXPECT_EQ(programmer->written, expected);
  EXPECT_TRUE(programmer->pendingMacOp().empty());
  EXPECT_FALSE(programmer->pendingAddrOpHas(second.front()->key()));
}

TEST_F(ChipProgrammerTest, KeysDifferingOnlyInVlanOrKeyTypeStayApart) {
  programmer->suspendPendingIs(true);
  Orb::MacEntryKey base{{Nexo::EthAddr(0xffffffffffffULL), Bridging::VlanId(4094)}};
  Orb::MacEntryKey otherVlan = base, otherType = base;
  otherVlan.key.vlanId = Bridging::VlanId(4093);
  otherType.macHwType = Orb::MacHwKeyType::macHwKeyVfi;
  for (const auto& key : {base, otherVlan, otherType}) {
    programmer->handleAddrOp(
        Orb::indirectAccessMacCmdFactory(IndirectAccessMacCmdType::addrOp, key, Nexo::IntfId("Ethernet1"),
                                         Bridging::EntryType::entryDynamic, 1, programmer->nextTransactionId()));
  }
  for (const auto& key : {base, otherVlan, otherType}) {
    ASSERT_TRUE(programmer->pendingAddrOpHas(key));
    EXPECT_TRUE(programmer->pendingAddrOp(key)->valid());
    EXPECT_EQ(programmer->pendingAddrOp(key)->key(), key);
  }
}

TEST_F(ChipProgrammerTest, CommandsQueuedDirectlyKeepTheirPlaceBehindHandledOnes) {
  programmer->suspendPendingIs(true);
  auto handled = programmer->addr(1);
  auto direct = Orb::indirectAccessMacCmdFactory(
      IndirectAccessMacCmdType::addrOp, Orb::MacEntryKey{{Nexo::EthAddr(2), Bridging::VlanId(1)}},
      Nexo::IntfId("Ethernet2"), Bridging::EntryType::entryDynamic, 1, programmer->nextTransactionId());
  programmer->pendingMacOpEnq(direct);
  programmer->pendingAddrOpIs(direct);
  EXPECT_EQ(programmer->pendingAddrOp(handled->key()), handled);
  EXPECT_EQ(programmer->pendingAddrOp(direct->key()), direct);
  EXPECT_EQ(programmer->pendingMacOpDeq(), handled);
  EXPECT_EQ(programmer->pendingMacOpDeq(), direct);
}

TEST_F(ChipProgrammerTest, RepeatedBurstsDrainCompletely) {
  // Each burst fills the key table and drains it again.
  for (int burst = 0; burst < 3; ++burst) {
    std::vector<Orb::OrbMacProgrammer::CmdPtr> cmds;
    for (int i = 0; i < 500; ++i) cmds.push_back(programmer->addr(1000 + i));
    loop.runUntilIdle();
    for (const auto& cmd : cmds) {
      EXPECT_TRUE(programmer->inProgAddrOpHas(cmd->key()));
      programmer->handleCmdResponse(cmd->transactionId(), 0, MacProgramStatus::macProgramSuccess);
    }
    loop.advance(0.1);
    EXPECT_TRUE(programmer->inProgMacOp().empty());
    for (const auto& cmd : cmds) {
      EXPECT_FALSE(programmer->inProgAddrOpHas(cmd->key()));
      EXPECT_FALSE(programmer->pendingAddrOpHas(cmd->key()));
    }
  }
  EXPECT_EQ(programmer->done.size(), 1500u);
}

// A chip that takes commands in flight and answers them a millisecond
// later, busy now and then, checking as it goes that no key ever has two
// operations in flight.
class AnsweringProgrammer : public Orb::OrbMacProgrammer {
 public:
  std::uint64_t writes = 0, busyAnswers = 0, secondInFlight = 0;
  std::map<Orb::MacEntryKey, std::vector<std::uint64_t>> writtenPerKey;
  std::map<Orb::MacEntryKey, std::int64_t> table;  // what the chip holds

  std::uint32_t writeToHw(const CmdPtr& cmd) override {
    if (++writes % 97 == 0) {
      ++busyAnswers;
      return 2;
    }
    if (inProgAddrOpHas(cmd->key())) ++secondInFlight;
    writtenPerKey[cmd->key()].push_back(cmd->transactionId());
    table[cmd->key()] = cmd->value();
    answering_.push_back(cmd->transactionId());
    if (answerClock_->timeMin() == Vex::never) answerClock_->timeMinIs(Vex::now() + 0.001);
    return 5;
  }

 private:
  void answer() {
    for (auto id : answering_) handleCmdResponse(id, 0, MacProgramStatus::macProgramSuccess);
    answering_.clear();
  }
  std::vector<std::uint64_t> answering_;
  Vex::Ptr<Vex::Clock> answerClock_ = Vex::clockFactory([this] { answer(); });
};

TEST(ChipProgrammerBacklog, DrainsABigBacklogWithBusyAnswersOneOperationInFlightPerKey) {
  Vex::EventLoop loop;
  auto programmer = Vex::make<AnsweringProgrammer>();
  // 262,144 commands over 65,536 keys, alternately adding and removing;
  // every tenth repeats the key of the third before it, which then waits
  // for that one (in flight) or supersedes it (still pending).
  constexpr std::uint32_t commands = 262144, keys = 65536;
  std::map<Orb::MacEntryKey, std::int64_t> lastValue;
  for (std::uint32_t i = 0; i < commands; ++i) {
    std::uint32_t k = (i % 10 == 9 ? i - 3 : i) % keys;
    Orb::MacEntryKey key{{Nexo::EthAddr(0x020000000000ULL + k), Bridging::VlanId(1 + k % 4094)}};
    std::int64_t value = (i / keys) % 2 ? 0 : 1;
    lastValue[key] = value;
    programmer->handleAddrOp(
        Orb::indirectAccessMacCmdFactory(IndirectAccessMacCmdType::addrOp, key, Nexo::IntfId("Ethernet1"),
                                         Bridging::EntryType::entryDynamic, value, programmer->nextTransactionId()));
    // The writer works while commands keep coming.
    if (i % 8192 == 0) loop.advance(0.0005);
  }
  for (int step = 0; step < 100000 && !(programmer->pendingMacOp().empty() && programmer->inProgMacOp().empty());
       ++step) {
    loop.advance(0.1);
  }
  EXPECT_TRUE(programmer->pendingMacOp().empty());
  EXPECT_TRUE(programmer->inProgMacOp().empty());
  EXPECT_EQ(programmer->secondInFlight, 0u);
  EXPECT_GT(programmer->busyAnswers, 0u);
  // Every key ends as its last command says, its commands written in order.
  EXPECT_EQ(programmer->table, lastValue);
  for (const auto& [key, ids] : programmer->writtenPerKey) {
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end())) << Vex::toStrep(key);
  }
  for (const auto& [key, value] : lastValue) {
    EXPECT_FALSE(programmer->pendingAddrOpHas(key));
    EXPECT_FALSE(programmer->inProgAddrOpHas(key));
  }
}

TEST_F(ChipProgrammerTest, BusyChipLeavesTheQueueAndRetriesLater) {
  programmer->results = {2, 0};
  auto cmd = programmer->addr(1);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->pendingMacOp().size(), 1u);
  EXPECT_TRUE(programmer->inProgMacOp().empty());
  EXPECT_DOUBLE_EQ(programmer->updatePendingAddressClock()->timeMin(), 0.2);
  loop.advance(0.2);
  EXPECT_EQ(programmer->written.size(), 2u);
  EXPECT_TRUE(programmer->pendingMacOp().empty());
  EXPECT_EQ(programmer->done, std::vector<std::uint64_t>{cmd->transactionId()});
}

TEST_F(ChipProgrammerTest, SuspendedWriterWritesNothing) {
  programmer->suspendPendingIs(true);
  programmer->addr(1);
  programmer->addr(2);
  loop.advance(5);
  EXPECT_TRUE(programmer->written.empty());
  EXPECT_EQ(programmer->pendingMacOp().size(), 2u);
}

TEST_F(ChipProgrammerTest, EmptyQueueStopsTheWriterAndInFlightArmsThePoll) {
  programmer->addr(1);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->updatePendingAddressClock()->timeMin(), Vex::never);
  EXPECT_DOUBLE_EQ(programmer->pollReqClock()->timeMin(), 0.1);
}

TEST_F(ChipProgrammerTest, BatchWritesAtLeastTheMinimumBeforeLookingAtTheClock) {
  loop.simulatedTime()->stepIs(0.02);  // every reading is past a 10 ms quantum
  programmer->suspendPendingIs(true);
  for (int i = 0; i < 300; ++i) programmer->addr(100 + i);
  programmer->results.assign(300, 0);
  programmer->suspendPendingIs(false);
  programmer->updatePendingAddresses();
  EXPECT_EQ(programmer->written.size(), 128u);
  loop.simulatedTime()->stepIs(0);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->written.size(), 300u);
}

TEST_F(ChipProgrammerTest, CommandsInFlightTooLongExpire) {
  auto cmd = programmer->addr(1);
  loop.runUntilIdle();
  loop.advance(1.05);
  EXPECT_TRUE(programmer->inProgMacOp().count(cmd->transactionId()));
  loop.advance(0.2);
  EXPECT_FALSE(programmer->inProgMacOp().count(cmd->transactionId()));
  EXPECT_EQ(cmd->status(), MacProgramStatus::macProgramFailed);
  EXPECT_FALSE(programmer->inProgAddrOpHas(cmd->key()));
}

TEST_F(ChipProgrammerTest, OverflowedCommandsRetryWithAGrowingWait) {
  auto cmd = programmer->addr(1);
  loop.runUntilIdle();
  programmer->handleCmdResponse(cmd->transactionId(), 0, MacProgramStatus::macProgramFull);
  loop.advance(0.1);
  EXPECT_TRUE(programmer->overflowAddrOp().count(cmd->key()));
  EXPECT_TRUE(programmer->overflowLogged());
  loop.advance(5);  // retried after the minimum delay
  ASSERT_EQ(programmer->written.size(), 2u);
  auto retry = programmer->inProgMacOp().back();
  programmer->handleCmdResponse(retry->transactionId(), 0, MacProgramStatus::macProgramFull);
  loop.advance(0.1);
  EXPECT_DOUBLE_EQ(programmer->updateOverflowAddressDelay(), 10.0);  // it overflowed again
  loop.advance(5);
  EXPECT_EQ(programmer->written.size(), 2u);
  loop.advance(5);
  EXPECT_EQ(programmer->written.size(), 3u);
  auto last = programmer->inProgMacOp().back();
  programmer->handleCmdResponse(last->transactionId(), 0, MacProgramStatus::macProgramSuccess);
  loop.advance(0.1);
  EXPECT_TRUE(programmer->overflowAddrOp().empty());
  EXPECT_FALSE(programmer->overflowLogged());
}

// A key ends as its last command says: an add that overflows after a newer
// command for its key was queued is not retried over it.
TEST_F(ChipProgrammerTest, OverflowedCommandSupersededWhileInFlightIsNotRetried) {
  auto add = programmer->addr(1);
  loop.runUntilIdle();
  ASSERT_TRUE(programmer->inProgAddrOpHas(add->key()));
  auto remove = programmer->addr(1, 0);  // waits behind the add in flight
  loop.runUntilIdle();
  EXPECT_TRUE(add->invalid());
  programmer->handleCmdResponse(add->transactionId(), 0, MacProgramStatus::macProgramFull);
  loop.advance(0.1);
  EXPECT_TRUE(programmer->overflowAddrOp().empty());
  ASSERT_EQ(programmer->written.back(), remove->transactionId());
  programmer->handleCmdResponse(remove->transactionId(), 0, MacProgramStatus::macProgramSuccess);
  loop.advance(0.1);
  std::size_t writes = programmer->written.size();
  loop.advance(60);
  EXPECT_EQ(programmer->written.size(), writes);  // the add never comes back
  EXPECT_TRUE(programmer->inProgMacOp().empty());
  EXPECT_TRUE(programmer->pendingMacOp().empty());
}

// An overflowed add waits for room; a newer command for its key replaces it,
// and one for another key leaves it be.
TEST_F(ChipProgrammerTest, OverflowedCommandGivesWayToANewerCommandForItsKey) {
  auto add = programmer->addr(1);
  auto other = programmer->addr(2);
  loop.runUntilIdle();
  programmer->handleCmdResponse(add->transactionId(), 0, MacProgramStatus::macProgramFull);
  programmer->handleCmdResponse(other->transactionId(), 0, MacProgramStatus::macProgramFull);
  loop.advance(0.1);
  ASSERT_EQ(programmer->overflowAddrOp().size(), 2u);
  auto remove = programmer->addr(1, 0);
  EXPECT_EQ(programmer->overflowAddrOp().size(), 1u);
  EXPECT_TRUE(programmer->overflowAddrOp().count(other->key()));
  loop.runUntilIdle();
  programmer->handleCmdResponse(remove->transactionId(), 0, MacProgramStatus::macProgramSuccess);
  loop.advance(5);
  // Only the other key's add is written again.
  auto retry = programmer->inProgMacOp().back();
  ASSERT_TRUE(retry);
  EXPECT_EQ(retry->key(), other->key());
  EXPECT_EQ(retry->value(), 1);
  EXPECT_EQ(programmer->inProgMacOp().size(), 1u);
}

TEST_F(ChipProgrammerTest, UnexpectedWriteResultIsABrokenInvariant) {
  programmer->results = {7};
  programmer->addr(1);
  EXPECT_DEATH(programmer->updatePendingAddresses(), "unexpected write result 7");
}

TEST_F(ChipProgrammerTest, FlushCommandsQueueInOrder) {
  auto flush = Orb::indirectAccessMacCmdFactory(IndirectAccessMacCmdType::flushVlan, {}, {},
                                                Bridging::EntryType::entryDynamic, 10, programmer->nextTransactionId());
  EXPECT_FALSE(flush->addrOp());
  programmer->results = {0};
  programmer->handleFlushOp(flush);
  EXPECT_EQ(programmer->pendingFlushOpSize(), 1u);
  loop.runUntilIdle();
  EXPECT_EQ(programmer->pendingFlushOpSize(), 0u);
  EXPECT_EQ(programmer->done, std::vector<std::uint64_t>{flush->transactionId()});
}

}  // namespace
