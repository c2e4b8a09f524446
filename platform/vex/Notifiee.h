// Notifiees: the reactors that an entity notifies, synchronously and on the
// one reactor thread, when one of its attributes changes.
//
// Every entity `E` declares a nested `E::Notifiee` deriving from
// `BaseNotifiee<E>` with one virtual `handleX()` (scalars) or `handleX(key)`
// (collections) per attribute, each with an empty default. A state machine
// reacts by deriving from it and overriding the handlers it cares about.
#pragma once

#include "platform/vex/Ptr.h"

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <vector>

namespace Vex {

class NotifieeBase {
 public:
  NotifieeBase() = default;
  NotifieeBase(const NotifieeBase&) = delete;
  NotifieeBase& operator=(const NotifieeBase&) = delete;
  virtual ~NotifieeBase() = default;

  // A muted notifiee is skipped until it is switched back on.
  bool hasNotificationActive() const { return active_; }
  virtual void hasNotificationActiveIs(bool active) { active_ = active; }

  // A zombie reacts to nothing, ever again (its owner is going away).
  bool isZombie() const { return zombie_; }
  virtual void vexDoZombieReactors(bool zombie) { zombie_ = zombie; }

  bool reacts() const { return active_ && !zombie_; }

 private:
  bool active_ = true;
  bool zombie_ = false;
};

// The notifiee list of one entity. Notifiees may come and go while a
// notification is being delivered: removal during delivery leaves a hole that
// is swept once delivery ends.
class NotifieeList {
 public:
  void add(NotifieeBase* n) { list_.push_back(n); }
  void remove(NotifieeBase* n);
  std::size_t size() const;
  bool empty() const { return size() == 0; }

  template <class N, class... P, class... A>
  void notify(void (N::*handler)(P...), A&&... args) {
    if (list_.empty()) return;
    ++depth_;
    for (std::size_t i = 0; i < list_.size(); ++i) {
      NotifieeBase* n = list_[i];
      if (n && n->reacts()) (static_cast<N*>(n)->*handler)(args...);
    }
    if (--depth_ == 0 && holes_) sweep();
  }

 private:
  void sweep();

  // Most entities have one or two notifiees: those take no allocation.
  boost::container::small_vector<NotifieeBase*, 2> list_;
  int depth_ = 0;
  bool holes_ = false;
};

// The typed base of `E::Notifiee`: holds its notifier (keeping it alive) and
// registers itself in the notifier's list.
template <class E>
class BaseNotifiee : public NotifieeBase {
 public:
  explicit BaseNotifiee(const Ptr<E>& notifier = nullptr) { notifierIs(notifier); }
  ~BaseNotifiee() override { notifierIs(nullptr); }

  const Ptr<E>& notifier() const { return notifier_; }
  void notifierIs(const Ptr<E>& notifier) {
    if (notifier == notifier_) return;
    if (notifier_) notifier_->notifieeList().remove(this);
    notifier_ = notifier;
    if (notifier_) notifier_->notifieeList().add(this);
  }

 private:
  Ptr<E> notifier_;
};

}  // namespace Vex
