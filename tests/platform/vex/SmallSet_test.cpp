// The small set: the same members as a standard set through any mix of
// inserts and erases, on either side of the inline size.
#include "platform/vex/SmallSet.h"

#include "platform/vex/Entity.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

using Set = Vex::SmallSet<int, 4>;

std::set<int> members(const Set& s) { return std::set<int>(s.begin(), s.end()); }

TEST(SmallSetTest, InsertTellsWhetherTheMemberIsNew) {
  Set s;
  EXPECT_TRUE(s.insert(7).second);
  EXPECT_FALSE(s.insert(7).second);
  EXPECT_EQ(*s.insert(7).first, 7);
  EXPECT_EQ(s.size(), 1u);
  EXPECT_EQ(s.erase(8), 0u);
  EXPECT_EQ(s.erase(7), 1u);
  EXPECT_TRUE(s.empty());
}

TEST(SmallSetPropertyTest, AgreesWithAStandardSetAcrossTheInlineSize) {
  std::mt19937 rng(11);
  Set s;
  std::set<int> expected;
  for (int step = 0; step < 20000; ++step) {
    // Phases that grow well past the inline size and shrink back below it.
    const bool growing = (step / 500) % 2 == 0;
    const int key = static_cast<int>(rng() % 40);
    if (growing == (rng() % 4 != 0)) {
      ASSERT_EQ(s.insert(key).second, expected.insert(key).second);
    } else {
      ASSERT_EQ(s.erase(key), expected.erase(key));
    }
    ASSERT_EQ(s.size(), expected.size());
    ASSERT_EQ(s.contains(key), expected.count(key) == 1);
    if (step % 97 == 0) {
      ASSERT_EQ(members(s), expected);
      for (int k = 0; k < 40; ++k) ASSERT_EQ(s.count(k), expected.count(k)) << k;
    }
  }
}

TEST(SmallSetTest, CopiesAreIndependentAndEqualityIgnoresOrder) {
  Set large;
  for (int k = 0; k < 10; ++k) large.insert(k);
  Set copy = large;
  copy.erase(3);
  EXPECT_TRUE(large.contains(3));
  EXPECT_FALSE(copy.contains(3));
  EXPECT_NE(copy, large);
  copy.insert(3);
  EXPECT_EQ(copy, large);

  Set forward, backward;
  for (int k = 0; k < 3; ++k) forward.insert(k);
  for (int k = 2; k >= 0; --k) backward.insert(k);
  EXPECT_EQ(forward, backward);
  backward = large;
  EXPECT_EQ(members(backward), members(large));
  backward.clear();
  EXPECT_TRUE(backward.empty());
  EXPECT_FALSE(backward.contains(0));
}

class Holder : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Holder> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Member, int)
  };
  using Entity::Entity;
  VEX_SET_OF(VEX_PROTECT(Vex::SmallSet<int, 2>), int, member, Member)
};

class MemberLog : public Holder::Notifiee {
 public:
  using Notifiee::Notifiee;
  void handleMember(const int& key) override { seen.push_back(key); }
  std::vector<int> seen;
};

TEST(SmallSetTest, AnEntitySetOfItNotifiesEachChangeOnce) {
  auto holder = Vex::make<Holder>("holder");
  MemberLog log(holder);
  EXPECT_TRUE(holder->memberIs(1));
  EXPECT_FALSE(holder->memberIs(1));
  for (int k = 2; k <= 5; ++k) holder->memberIs(k);
  holder->memberDel(9);
  holder->memberDel(2);
  EXPECT_EQ(log.seen, (std::vector<int>{1, 2, 3, 4, 5, 2}));
  EXPECT_TRUE(holder->memberHas(5));
  EXPECT_FALSE(holder->member(2));
  holder->memberDelAll();
  EXPECT_EQ(holder->memberSize(), 0u);
  EXPECT_EQ(log.seen.size(), 10u);
}

}  // namespace
