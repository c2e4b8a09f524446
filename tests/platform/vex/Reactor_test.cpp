// Reactors: what an owner may rely on when it watches entities through them.
#include "platform/vex/Reactor.h"

#include "platform/vex/Entity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

class Link : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Link> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Up)
    VEX_HANDLER(Speed)
    VEX_KEY_HANDLER(Peer, int)
  };
  using Entity::Entity;

  VEX_ATTR(bool, up, Up, false)
  VEX_ATTR(int, speed, Speed, 0)
  VEX_COLLECTION(int, std::string, peer, Peer)
};

// An owner with the three operations a reactor needs, and flags a test sets
// directly. Muting and zombifying reach registered reactors, as they do in a
// state machine.
class Owner {
 public:
  void reactorIs(Vex::NotifieeBase* reactor) {
    reactor->hasNotificationActiveIs(active);
    reactor->vexDoZombieReactors(zombie);
    registered.push_back(reactor);
  }
  void reactorDel(Vex::NotifieeBase* reactor) { std::erase(registered, reactor); }
  bool reacting() const { return initialized && active && !zombie; }

  void mute(bool muted) {
    active = !muted;
    for (auto* reactor : registered) reactor->hasNotificationActiveIs(active);
  }
  void zombify() {
    zombie = true;
    for (auto* reactor : registered) reactor->vexDoZombieReactors(true);
  }

  void handleUp() { events.push_back("up"); }
  void handlePeer(int key) { events.push_back("peer " + std::to_string(key)); }
  void handleFastLink(int speed) { events.push_back("fast " + std::to_string(speed)); }

  bool initialized = true;
  bool active = true;
  bool zombie = false;
  std::vector<Vex::NotifieeBase*> registered;
  std::vector<std::string> events;
};

class LinkReactor : public Vex::Reactor<Link, Owner> {
 public:
  using Reactor::Reactor;
  VEX_REACT(Up, handleUp)
  VEX_REACT_KEY(Peer, int, handlePeer)
  void handleSpeed() override {
    react([this] {
      if (notifier()->speed() >= 100) owner()->handleFastLink(notifier()->speed());
    });
  }
};

using Events = std::vector<std::string>;

TEST(Reactor, ForwardsHandlersToTheOwnersReactions) {
  Owner owner;
  auto link = Vex::make<Link>("link");
  LinkReactor reactor(&owner, link);
  link->upIs(true);
  link->peerIs(7, "east");
  link->peerDel(7);
  link->speedIs(10);
  link->speedIs(100);
  EXPECT_EQ(owner.events, (Events{"up", "peer 7", "peer 7", "fast 100"}));
  EXPECT_EQ(reactor.owner(), &owner);
}

TEST(Reactor, DropsEverythingWhileTheOwnerIsNotReacting) {
  Owner owner;
  owner.initialized = false;  // the reactor itself is active: only the owner says no
  auto link = Vex::make<Link>();
  LinkReactor reactor(&owner, link);
  ASSERT_TRUE(reactor.reacts());
  link->upIs(true);
  link->peerIs(1, "west");
  link->speedIs(400);
  EXPECT_TRUE(owner.events.empty());

  owner.initialized = true;
  link->upIs(false);
  EXPECT_EQ(owner.events, Events{"up"});
}

TEST(Reactor, MutedOwnerGetsNothingUntilItIsSwitchedBackOn) {
  Owner owner;
  auto link = Vex::make<Link>();
  LinkReactor reactor(&owner, link);
  owner.mute(true);
  EXPECT_FALSE(reactor.hasNotificationActive());
  link->upIs(true);
  link->peerIs(2, "north");
  EXPECT_TRUE(owner.events.empty());

  owner.mute(false);
  link->peerIs(2, "south");
  EXPECT_EQ(owner.events, Events{"peer 2"});
}

TEST(Reactor, ZombieOwnerGetsNothingEvenWhenTheReactorStillListens) {
  Owner owner;
  auto link = Vex::make<Link>();
  LinkReactor reactor(&owner, link);
  owner.zombie = true;  // not passed on: the reactor's own check must hold
  link->upIs(true);
  link->speedIs(1000);
  EXPECT_TRUE(owner.events.empty());
}

TEST(Reactor, ReactorMadeForAZombieOwnerIsAZombie) {
  Owner owner;
  owner.zombify();
  auto link = Vex::make<Link>();
  LinkReactor reactor(&owner, link);
  EXPECT_TRUE(reactor.isZombie());
  link->upIs(true);
  EXPECT_TRUE(owner.events.empty());
}

TEST(Reactor, RegistersInConstructionOrderAndUnregistersOnDestruction) {
  Owner owner;
  auto link = Vex::make<Link>();
  auto first = std::make_unique<LinkReactor>(&owner, link);
  auto second = std::make_unique<LinkReactor>(&owner, link);
  EXPECT_EQ(owner.registered, (std::vector<Vex::NotifieeBase*>{first.get(), second.get()}));
  EXPECT_EQ(link->notifieeList().size(), 2u);

  first.reset();
  EXPECT_EQ(owner.registered, std::vector<Vex::NotifieeBase*>{second.get()});
  EXPECT_EQ(link->notifieeList().size(), 1u);
  link->upIs(true);
  EXPECT_EQ(owner.events, Events{"up"});  // once: the destroyed one is gone

  second.reset();
  EXPECT_TRUE(owner.registered.empty());
  EXPECT_TRUE(link->notifieeList().empty());
}

TEST(Reactor, WithoutAnEntityItIsRegisteredAndFollowsALaterOne) {
  Owner owner;
  LinkReactor reactor(&owner);
  EXPECT_EQ(owner.registered.size(), 1u);
  auto link = Vex::make<Link>();
  reactor.notifierIs(link);
  link->upIs(true);
  reactor.notifierIs(nullptr);
  link->upIs(false);
  EXPECT_EQ(owner.events, Events{"up"});
}

TEST(Reactors, SkipsAbsentEntitiesAndReleasesEveryReactor) {
  Owner owner;
  auto a = Vex::make<Link>("a");
  auto b = Vex::make<Link>("b");
  {
    Vex::Reactors<Owner> reactors(&owner);
    EXPECT_NE(reactors.add<LinkReactor>(a), nullptr);
    EXPECT_EQ(reactors.add<LinkReactor>(Vex::Ptr<Link>()), nullptr);
    LinkReactor* onB = reactors.add<LinkReactor>(b);
    ASSERT_NE(onB, nullptr);
    EXPECT_EQ(onB->notifier(), b);
    EXPECT_EQ(reactors.size(), 2u);
    EXPECT_EQ(owner.registered.size(), 2u);
    b->peerIs(3, "up");
    a->upIs(true);
    EXPECT_EQ(owner.events, (Events{"peer 3", "up"}));
  }
  EXPECT_TRUE(owner.registered.empty());
  EXPECT_TRUE(a->notifieeList().empty());
  EXPECT_TRUE(b->notifieeList().empty());
}

}  // namespace
