#include <gtest/gtest.h>
#include "platform/vex/Entity.h"
#include "platform/vex/EventLoop.h"
namespace {
class Thing : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Thing> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Count)
    VEX_KEY_HANDLER(Member, int)
  };
  using Entity::Entity;
  VEX_COUNTER(int, count, Count)
  VEX_COLLECTION(int, bool, member, Member)
};
TEST(Smoke, Compiles) {
  Vex::EventLoop loop;
  auto t = Vex::make<Thing>("t");
  t->countInc();
  t->memberIs(1, true);
  EXPECT_EQ(t->count(), 1);
  EXPECT_TRUE(t->member(1));
}
}
