// Base classes of state machines and hardware helpers.
//
// A feature state machine derives from OrbBaseSm, stores its inputs in its
// constructor and ends it with initializedIs(true), so that
// handleInitialized() does the first full pass with every input in place.
// It reacts through nested reactors (Vex::Reactor, one per watched entity or
// element), which register themselves with reactorIs() so that muting and
// zombifying the machine reaches them too. Hardware work goes through its helper
// (`orbHelper`), an OrbHelper:: interface that a chip layer implements.
#pragma once

#include "Orb/OrbAssert.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Reactor.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace Orb {

class OrbCommonSmData;

class OrbBaseSm : public Vex::PtrInterface {
 public:
  explicit OrbBaseSm(const Vex::Ptr<OrbCommonSmData>& ocsd);
  ~OrbBaseSm() override;

  const Vex::Ptr<OrbCommonSmData>& ocsd() const { return ocsd_; }

  bool initialized() const { return initialized_; }
  // Runs handleInitialized() when the value changes to true.
  void initializedIs(bool initialized);

  bool hasNotificationActive() const { return notificationActive_; }
  virtual void hasNotificationActiveIs(bool active);
  virtual const char* fwkType() const { return "Orb::OrbBaseSm"; }
  virtual void handleInitialized() {}
  // Marks the machine and every registered reactor and clock as a zombie:
  // nothing reacts any more.
  virtual void vexDoZombieReactors(bool zombie);
  bool isZombie() const { return zombie_; }

  // True when a reaction may act: initialized, not muted, not a zombie.
  bool reacting() const { return initialized_ && notificationActive_ && !zombie_; }

 protected:
  // Nested reactors and clocks the machine owns; they follow its flags. A
  // Vex::Reactor registers and unregisters itself.
  template <class E, class Owner>
  friend class Vex::Reactor;
  void reactorIs(Vex::NotifieeBase* reactor);
  void reactorDel(Vex::NotifieeBase* reactor);
  void clockIs(const Vex::Ptr<Vex::Clock>& clock);
  void clockDel(const Vex::Ptr<Vex::Clock>& clock);

 private:
  Vex::Ptr<OrbCommonSmData> ocsd_;
  bool initialized_ = false;
  bool notificationActive_ = true;
  bool zombie_ = false;
  std::vector<Vex::NotifieeBase*> reactors_;
  std::vector<Vex::Ptr<Vex::Clock>> clocks_;
};

// Base of every hardware helper interface: a named entity.
class OrbBaseHelper : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<OrbBaseHelper> {
   public:
    using BaseNotifiee::BaseNotifiee;
  };
  explicit OrbBaseHelper(const std::string& name) : Entity(name) {}
  virtual const char* fwkType() const { return "Orb::OrbBaseHelper"; }
};

// The empty result of an operation a chip layer did not provide: converts to
// 0, false, an empty string or whatever else the operation returns.
struct EmptyResult {
  template <class T>
  operator T() const {
    return T{};
  }
};

// The body of every helper operation a chip layer may not have provided:
// "Call to unimplemented function <Class>::<op>" stops the process, unless
// ORB_NOOP_AGENT is set, when the operation quietly returns its empty result.
EmptyResult unimplementedOperation(const char* helperClass, const char* operation);

}  // namespace Orb

#define ORB_UNIMPLEMENTED(HelperClass, operation) ::Orb::unimplementedOperation(#HelperClass, #operation)
