// The event loop: owns the timer wheel and the time source, and fires clocks.
//
// Two time sources: the monotonic clock (the agent) and a simulated one
// (tests, scenario replay) that only moves when told to, or, in stepping
// mode, by a set step at every reading, so time-sliced walks can be tested.
//
// The loop also waits on file descriptors (FdWatch). A turn polls the
// watched descriptors, calls the handlers of the ready ones, then fires the
// clocks due. On real time, runOnce() sleeps in poll(2) until the earliest
// clock falls due or a descriptor becomes ready; on simulated time the loop
// never sleeps: descriptors are polled with a zero timeout on each turn, so
// tests stay instant and deterministic.
//
// One loop per thread is "current": clocks and watches bind to it when made
// and `Vex::now()` reads it. A loop makes itself current when there is none.
#pragma once

#include "platform/vex/Clock.h"
#include "platform/vex/FdWatch.h"
#include "platform/vex/Time.h"
#include "platform/vex/TimerWheel.h"

#include <memory>
#include <utility>
#include <vector>

struct pollfd;

namespace Vex {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  virtual Seconds now() = 0;
  // The time, without the side effects of a reading.
  virtual Seconds peek() { return now(); }
};

class MonotonicTimeSource : public TimeSource {
 public:
  Seconds now() override;
};

class SimulatedTimeSource : public TimeSource {
 public:
  explicit SimulatedTimeSource(Seconds start = 0.0) : now_(start) {}
  Seconds now() override;
  Seconds peek() override { return now_; }
  // Sets the time without reading it (no step).
  void timeIs(Seconds t) { now_ = t; }
  Seconds time() const { return now_; }
  // Each reading returns the time and then moves it on by `step`; 0 stops.
  void stepIs(Seconds step) { step_ = step; }

 private:
  Seconds now_;
  Seconds step_ = 0.0;
};

class EventLoop {
 public:
  // A loop on simulated time starting at 0.
  EventLoop();
  explicit EventLoop(std::unique_ptr<TimeSource> source);
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  static EventLoop* current();
  void makeCurrent();

  Seconds now() { return source_->now(); }
  // The time without moving a stepping simulated clock.
  Seconds peekNow() { return source_->peek(); }
  // Simulated time only (nothing happens on real time): time passes inside
  // a reaction, as work that takes time would take it. Clocks that fall due
  // meanwhile fire in a later turn.
  void spend(Seconds seconds) {
    if (simulated_ && seconds > 0) simulated_->timeIs(simulated_->time() + seconds);
  }
  // Null when the loop runs on real time.
  SimulatedTimeSource* simulatedTime() const { return simulated_; }

  // Runs turns until no clock is due: each turn polls the watched
  // descriptors without waiting and calls the ready ones' handlers, then fires
  // every clock due at the current time (clocks re-armed for "now" run in a
  // later turn). A descriptor that stays ready does not keep it turning. Time
  // does not move, except by a stepping simulated source. Returns the
  // handlers run, clocks and descriptors together.
  //
  // A handler that throws ends the call with its exception, and nothing else
  // that was ready is lost: the clocks of its batch fire on the next turn, and
  // the descriptors reported ready with it are served first on the next turn
  // if they are still ready.
  std::size_t runUntilIdle();

  // One step of a real-time loop: waits until the earliest clock falls due or
  // a watched descriptor becomes ready, but at most `maxWait`, then runs
  // what is ready as runUntilIdle does. A signal ends the wait early. On
  // simulated time it never waits and time does not move. Returns the
  // handlers run.
  std::size_t runOnce(Seconds maxWait = never);

  // Simulated time only: moves time forward by `seconds`, firing clocks in
  // wake-time order with the time set to each one's wake time.
  void advance(Seconds seconds);

  // The earliest wake time of an armed clock, or `never`.
  Seconds nextWakeTime() const { return wheel_.nextWakeTime(); }
  std::size_t armedClocks() const { return wheel_.size(); }
  std::size_t watches() const { return watches_.size(); }

 private:
  friend class Clock;
  friend class FdWatch;
  void arm(Clock* clock);
  void disarm(Clock* clock);
  void detach(Clock* clock);
  void detach(FdWatch* watch);
  std::size_t fireDue(Seconds t);
  // Polls the watches, waiting up to `timeoutMs` (-1: no limit), and calls
  // the handlers of the ready ones.
  std::size_t pollDescriptors(int timeoutMs);
  std::size_t runTurns(int firstTimeoutMs);

  std::unique_ptr<TimeSource> source_;
  SimulatedTimeSource* simulated_ = nullptr;
  TimerWheel wheel_;
  std::vector<Clock*> clocks_;  // every clock bound to this loop
  std::vector<Ptr<Clock>> batch_;
  std::vector<FdWatch*> watches_;  // in registration order, the order they are served in
  std::vector<pollfd> pollSet_;
  std::vector<FdWatch*> polled_;
  std::vector<std::pair<FdWatch*, unsigned>> ready_;
  std::vector<std::vector<std::pair<FdWatch*, unsigned>>*> dispatching_;  // turns being served, innermost last
};

}  // namespace Vex
