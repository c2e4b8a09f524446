// Reactors: the notifiees through which a state machine watches an entity.
//
// A reactor belongs to an owner (the state machine) and watches one entity
// of type `E`. It forwards the handlers the owner cares about to the owner's
// reactions, and only while the owner may act. The owner type offers
//
//   void reactorIs(Vex::NotifieeBase*)   takes a reactor in: from then on the
//                                        owner's mute and zombie flags reach it
//   void reactorDel(Vex::NotifieeBase*)  lets it go again
//   bool reacting() const                whether a reaction may act now
//
// (reactorIs/reactorDel may be non-public when the owner befriends
// Vex::Reactor). The vocabulary, inside a class deriving from
// `Vex::Reactor<E, Owner>`:
//
//   using Reactor::Reactor;                 constructor (owner, entity)
//   VEX_REACT(Name, reaction)               handleName() calls owner()->reaction()
//   VEX_REACT_KEY(Name, Key, reaction)      handleName(key) calls owner()->reaction(key)
//
// A handler that does more than call one reaction overrides `handleName`
// itself and wraps its body in `react([&] { ... })`, which runs it only while
// the owner is reacting. No handler tests `reacting()` by hand.
//
// A reactor registers itself with its owner when it is made (after joining
// its entity's notifiee list) and unregisters when it is destroyed, so it
// must not outlive its owner: it is a member of the owner or held by one.
// Registration order is construction order. While the owner is not reacting
// (not yet initialized, muted, or a zombie) forwarded handlers do nothing.
//
// `Vex::Reactors<Owner>` holds the reactors of an owner that watches many
// entities: `add<R>(entity)` makes an `R` on the entity (none when the entity
// is null), and destroying the collection destroys them, newest first.
#pragma once

#include "platform/vex/Notifiee.h"
#include "platform/vex/Ptr.h"

#include <memory>
#include <utility>
#include <vector>

namespace Vex {

template <class E, class Owner>
class Reactor : public E::Notifiee {
 public:
  explicit Reactor(Owner* owner, const Ptr<E>& notifier = nullptr) : E::Notifiee(notifier), owner_(owner) {
    owner_->reactorIs(this);
  }
  ~Reactor() override { owner_->reactorDel(this); }

  Owner* owner() const { return owner_; }

 protected:
  // Runs `body` only while the owner may act.
  template <class F>
  void react(F&& body) {
    if (owner_->reacting()) std::forward<F>(body)();
  }

 private:
  Owner* owner_;
};

template <class Owner>
class Reactors {
 public:
  explicit Reactors(Owner* owner) : owner_(owner) {}
  Reactors(const Reactors&) = delete;
  Reactors& operator=(const Reactors&) = delete;
  ~Reactors() {
    while (!all_.empty()) all_.pop_back();
  }

  // Makes an R (constructed from the owner and the entity) that watches
  // `entity`; an absent entity gets no reactor and yields null.
  template <class R, class E>
  R* add(const Ptr<E>& entity) {
    if (!entity) return nullptr;
    auto reactor = std::make_unique<R>(owner_, entity);
    R* added = reactor.get();
    all_.push_back(std::move(reactor));
    return added;
  }
  std::size_t size() const { return all_.size(); }

 private:
  Owner* owner_;
  std::vector<std::unique_ptr<NotifieeBase>> all_;
};

}  // namespace Vex

#define VEX_REACT(Name, reaction)                       \
  void handle##Name() override {                        \
    this->react([this] { this->owner()->reaction(); }); \
  }
#define VEX_REACT_KEY(Name, Key, reaction)                       \
  void handle##Name(const Key& key) override {                   \
    this->react([this, &key] { this->owner()->reaction(key); }); \
  }
