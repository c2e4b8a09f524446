// Entity and notifiee semantics: what a state machine may rely on.
#include "platform/vex/Entity.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class Port : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Port> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Speed)
    VEX_HANDLER(Errors)
    VEX_KEY_HANDLER(Vlan, int)
    VEX_KEY_HANDLER(Bookmark, int)
    VEX_KEY_HANDLER(Users, int)
  };
  using Entity::Entity;

  VEX_ATTR(int, speed, Speed, 10)
  VEX_COUNTER(unsigned, errors, Errors)
  VEX_COLLECTION(int, std::string, vlan, Vlan)
  VEX_ORDERED_COLLECTION(int, int, bookmark, Bookmark)
  VEX_KEYED_COUNTER(int, unsigned, users, Users)
};

// Records every notification it gets, in order.
class Recorder : public Port::Notifiee {
 public:
  using Port::Notifiee::Notifiee;
  std::vector<std::string> events;
  void handleSpeed() override { events.push_back("speed"); }
  void handleErrors() override { events.push_back("errors"); }
  void handleVlan(const int& key) override { events.push_back("vlan " + std::to_string(key)); }
  void handleUsers(const int& key) override { events.push_back("users " + std::to_string(key)); }
};

TEST(Entity, ScalarWriterNotifiesOnlyOnChange) {
  auto port = Vex::make<Port>("Ethernet1");
  Recorder recorder(port);
  EXPECT_EQ(port->speed(), 10);
  port->speedIs(10);
  EXPECT_TRUE(recorder.events.empty());
  port->speedIs(25);
  port->speedIs(25);
  EXPECT_EQ(recorder.events, std::vector<std::string>{"speed"});
  EXPECT_EQ(port->name(), "Ethernet1");
}

TEST(Entity, CounterIncrementsAndDecrements) {
  auto port = Vex::make<Port>();
  Recorder recorder(port);
  port->errorsInc();
  port->errorsInc();
  port->errorsDec();
  EXPECT_EQ(port->errors(), 1u);
  EXPECT_EQ(recorder.events.size(), 3u);
}

TEST(Entity, KeyedCounterCountsPerKeyAndErasesAtZero) {
  auto port = Vex::make<Port>();
  Recorder recorder(port);
  port->usersInc(4);
  port->usersInc(4);
  port->usersInc(9);
  EXPECT_EQ(port->users(4), 2u);
  EXPECT_EQ(port->users(9), 1u);
  EXPECT_EQ(port->users(5), 0u);
  EXPECT_FALSE(port->usersHas(5));

  port->usersDec(4);
  EXPECT_EQ(port->users(4), 1u);
  EXPECT_TRUE(port->usersHas(4));
  port->usersDec(4);
  EXPECT_FALSE(port->usersHas(4));  // zero is not kept
  EXPECT_EQ(port->users(4), 0u);
  EXPECT_EQ(port->usersSize(), 1u);
  EXPECT_EQ(recorder.events, (std::vector<std::string>{"users 4", "users 4", "users 9", "users 4", "users 4"}));
}

TEST(Entity, KeyedCounterDecrementOfAMissingOrZeroKeyNeverWraps) {
  auto port = Vex::make<Port>();
  Recorder recorder(port);
  port->usersDec(3);
  EXPECT_FALSE(port->usersHas(3));
  EXPECT_TRUE(recorder.events.empty());  // nothing changed, nobody told

  port->usersIs(3, 0u);  // written by hand: a stored zero
  port->usersDec(3);
  EXPECT_FALSE(port->usersHas(3));
  EXPECT_EQ(port->users(3), 0u);

  port->usersInc(3);  // counting starts again from nothing
  EXPECT_EQ(port->users(3), 1u);
}

TEST(Entity, CollectionReadersNeverCreate) {
  auto port = Vex::make<Port>();
  EXPECT_EQ(port->vlan(7), "");
  EXPECT_FALSE(port->vlanHas(7));
  EXPECT_EQ(port->vlanSize(), 0u);
}

TEST(Entity, CollectionWritersNotifyPerKeyAndOnlyOnChange) {
  auto port = Vex::make<Port>();
  Recorder recorder(port);
  port->vlanIs(10, "blue");
  port->vlanIs(10, "blue");
  port->vlanIs(10, "red");
  port->vlanIs(20, "green");
  port->vlanDel(30);  // absent: nothing to say
  port->vlanDel(20);
  EXPECT_EQ(recorder.events, (std::vector<std::string>{"vlan 10", "vlan 10", "vlan 20", "vlan 20"}));
  EXPECT_EQ(port->vlan(10), "red");
  EXPECT_EQ(port->vlanSize(), 1u);
}

TEST(Entity, DelAllNotifiesEveryKeyAndEmpties) {
  auto port = Vex::make<Port>();
  for (int v = 1; v <= 5; ++v) port->vlanIs(v, "x");
  Recorder recorder(port);
  port->vlanDelAll();
  EXPECT_EQ(recorder.events.size(), 5u);
  EXPECT_EQ(port->vlanSize(), 0u);
}

TEST(Entity, DelIfErasesTheMatchingEntriesInOneWalkAndNotifiesThemAfter) {
  auto port = Vex::make<Port>();
  for (int v = 1; v <= 200; ++v) port->vlanIs(v, v % 3 ? "keep" : "drop");
  Recorder recorder(port);
  std::size_t asked = 0, seenDuringWalk = 0;
  recorder.events.clear();
  auto gone = port->vlanDelIf([&](const auto& entry) {
    ++asked;
    seenDuringWalk += recorder.events.size();
    return entry.second == "drop";
  });
  EXPECT_EQ(asked, 200u);         // each entry once, erasures notwithstanding
  EXPECT_EQ(seenDuringWalk, 0u);  // nobody hears of it mid-walk
  EXPECT_EQ(gone, 66u);
  EXPECT_EQ(recorder.events.size(), 66u);
  EXPECT_EQ(port->vlanSize(), 134u);
  for (int v = 1; v <= 200; ++v) EXPECT_EQ(port->vlanHas(v), v % 3 != 0) << v;
  EXPECT_EQ(port->vlanDelIf([](const auto&) { return false; }), 0u);
  EXPECT_EQ(recorder.events.size(), 66u);
}

TEST(Entity, OrderedCollectionIteratesInKeyOrderAndResumesFromBookmark) {
  auto port = Vex::make<Port>();
  for (int k : {5, 1, 9, 3}) port->bookmarkIs(k, k * 10);
  std::vector<int> keys;
  for (const auto& [k, v] : port->bookmark()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<int>{1, 3, 5, 9}));
  // A walk stopped at 3 resumes after it even when 3 itself is gone.
  port->bookmarkDel(3);
  auto next = port->bookmark().upper_bound(3);
  ASSERT_NE(next, port->bookmark().end());
  EXPECT_EQ(next->first, 5);
}

TEST(Notifiee, MutedAndZombieNotifieesHearNothing) {
  auto port = Vex::make<Port>();
  Recorder muted(port), zombie(port), live(port);
  muted.hasNotificationActiveIs(false);
  zombie.vexDoZombieReactors(true);
  port->speedIs(1);
  EXPECT_TRUE(muted.events.empty());
  EXPECT_TRUE(zombie.events.empty());
  EXPECT_EQ(live.events.size(), 1u);
  muted.hasNotificationActiveIs(true);
  port->speedIs(2);
  EXPECT_EQ(muted.events.size(), 1u);
}

TEST(Notifiee, KeepsItsNotifierAliveAndLeavesItsListWhenGone) {
  Vex::Ptr<Port> port = Vex::make<Port>();
  Port* raw = port.get();
  {
    Recorder recorder(port);
    port.reset();
    EXPECT_EQ(raw->references(), 1);
    EXPECT_EQ(raw->notifieeList().size(), 1u);
    port = raw;
  }
  EXPECT_EQ(port->notifieeList().size(), 0u);
}

TEST(Notifiee, MayDetachItselfAndOthersDuringDelivery) {
  auto port = Vex::make<Port>();
  struct SelfRemover : Port::Notifiee {
    using Port::Notifiee::Notifiee;
    Recorder* victim = nullptr;
    int calls = 0;
    void handleSpeed() override {
      ++calls;
      if (victim) victim->notifierIs(nullptr);
      notifierIs(nullptr);
    }
  };
  SelfRemover remover(port);
  Recorder victim(port);
  remover.victim = &victim;
  port->speedIs(3);
  port->speedIs(4);
  EXPECT_EQ(remover.calls, 1);
  EXPECT_TRUE(victim.events.empty());
  EXPECT_EQ(port->notifieeList().size(), 0u);
}

TEST(Notifiee, NestedPerElementReactorsEachWatchTheirOwnEntity) {
  // A machine keeps one reactor per element it watches.
  std::vector<Vex::Ptr<Port>> ports{Vex::make<Port>("a"), Vex::make<Port>("b")};
  std::vector<std::unique_ptr<Recorder>> reactors;
  for (auto& p : ports) reactors.push_back(std::make_unique<Recorder>(p));
  ports[1]->speedIs(40);
  EXPECT_TRUE(reactors[0]->events.empty());
  EXPECT_EQ(reactors[1]->events.size(), 1u);
  reactors[1]->notifierIs(ports[0]);
  ports[0]->speedIs(40);
  EXPECT_EQ(reactors[0]->events.size(), 1u);
  EXPECT_EQ(reactors[1]->events.size(), 2u);
}

TEST(Ptr, LastReferenceDeletes) {
  static int destroyed = 0;
  struct Counted : Vex::PtrInterface {
    ~Counted() override { ++destroyed; }
  };
  {
    auto a = Vex::make<Counted>();
    auto b = a;
    EXPECT_EQ(a->references(), 2);
  }
  EXPECT_EQ(destroyed, 1);
}

}  // namespace

namespace {

class Members : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Members> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Member, int)
  };
  VEX_SET(int, member, Member)
};

TEST(Entity, SetAddsAndRemovesNotifyingOnlyChanges) {
  auto members = Vex::make<Members>();
  struct Counter : Members::Notifiee {
    using Members::Notifiee::Notifiee;
    int calls = 0;
    void handleMember(const int&) override { ++calls; }
  } counter(members);
  members->memberIs(3);
  members->memberIs(3);
  EXPECT_TRUE(members->member(3));
  EXPECT_FALSE(members->member(4));
  members->memberIs(4);
  members->memberDel(9);
  members->memberDelAll();
  EXPECT_EQ(members->memberSize(), 0u);
  EXPECT_EQ(counter.calls, 4);
}

}  // namespace
