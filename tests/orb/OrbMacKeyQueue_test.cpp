#include "Orb/OrbMacKeyQueue.h"

#include <gtest/gtest.h>

#include <set>

namespace {

Bridging::MacVlanPair key(std::uint64_t addr, std::uint16_t vlan = 1) {
  return {Nexo::EthAddr(addr), Bridging::VlanId(vlan)};
}

TEST(MacKeyQueue, KeepsArrivalOrderAndRefusesAKeyStillQueued) {
  Orb::MacKeyQueue queue;
  EXPECT_TRUE(queue.push(key(1)));
  EXPECT_TRUE(queue.push(key(2)));
  EXPECT_FALSE(queue.push(key(1)));
  EXPECT_TRUE(queue.push(key(1, 2)));  // same address, another VLAN
  ASSERT_EQ(queue.size(), 3u);
  EXPECT_EQ(queue.pop(), key(1));
  // Popped, it may come again; the other key is still queued.
  EXPECT_TRUE(queue.push(key(1)));
  EXPECT_FALSE(queue.push(key(2)));
  EXPECT_EQ(queue.pop(), key(2));
  EXPECT_EQ(queue.pop(), key(1, 2));
  EXPECT_EQ(queue.pop(), key(1));
  EXPECT_TRUE(queue.empty());
}

TEST(MacKeyQueue, NeverRefusesAKeyThatIsNotQueued) {
  // Far more keys than the table of recent keys has slots, pushed, popped
  // in part and pushed again: every key absent from the queue is taken.
  Orb::MacKeyQueue queue;
  std::multiset<std::uint64_t> queued;
  for (std::uint64_t round = 0; round < 4; ++round) {
    for (std::uint64_t i = 0; i < 20000; ++i) {
      auto k = key(0x020000000000 + (i * 7919 + round) % 30000, 1 + i % 4094);
      bool absent = !queued.count(Orb::packedMacVlanPair(k));
      bool taken = queue.push(k);
      if (absent) {
        EXPECT_TRUE(taken);
      }
      if (taken) queued.insert(Orb::packedMacVlanPair(k));
    }
    for (int i = 0; i < 15000 && !queue.empty(); ++i) {
      auto popped = queue.pop();
      queued.erase(queued.find(Orb::packedMacVlanPair(popped)));
    }
  }
  EXPECT_EQ(queue.size(), queued.size());
}

TEST(MacKeyQueue, LooksAheadWithoutPopping) {
  Orb::MacKeyQueue queue;
  for (std::uint64_t i = 1; i <= 5; ++i) queue.push(key(i));
  std::vector<Bridging::MacVlanPair> seen;
  queue.lookAhead(3, [&](const Bridging::MacVlanPair& k) { seen.push_back(k); });
  EXPECT_EQ(seen, (std::vector<Bridging::MacVlanPair>{key(1), key(2), key(3)}));
  EXPECT_EQ(queue.size(), 5u);
  EXPECT_EQ(queue.front(), key(1));
}

}  // namespace
