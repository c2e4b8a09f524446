// The event loop: owns the timer wheel and the time source, and fires clocks.
//
// Two time sources: the monotonic clock (the agent) and a simulated one
// (tests, scenario replay) that only moves when told to, or, in stepping
// mode, by a set step at every reading, so time-sliced walks can be tested.
//
// One loop per thread is "current": clocks bind to it when made and
// `Vex::now()` reads it. A loop makes itself current when there is none.
#pragma once

#include "platform/vex/Clock.h"
#include "platform/vex/Time.h"
#include "platform/vex/TimerWheel.h"

#include <memory>
#include <vector>

namespace Vex {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  virtual Seconds now() = 0;
};

class MonotonicTimeSource : public TimeSource {
 public:
  Seconds now() override;
};

class SimulatedTimeSource : public TimeSource {
 public:
  explicit SimulatedTimeSource(Seconds start = 0.0) : now_(start) {}
  Seconds now() override;
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
  // Null when the loop runs on real time.
  SimulatedTimeSource* simulatedTime() const { return simulated_; }

  // Fires every clock due at the current time, turn after turn, until none is
  // due (clocks re-armed for "now" run in a later turn). Time does not move,
  // except by a stepping simulated source. Returns the clocks fired.
  std::size_t runUntilIdle();

  // Simulated time only: moves time forward by `seconds`, firing clocks in
  // wake-time order with the time set to each one's wake time.
  void advance(Seconds seconds);

  // The earliest wake time of an armed clock, or `never`.
  Seconds nextWakeTime() const { return wheel_.nextWakeTime(); }
  std::size_t armedClocks() const { return wheel_.size(); }

 private:
  friend class Clock;
  void arm(Clock* clock);
  void disarm(Clock* clock);
  void detach(Clock* clock);
  std::size_t fireDue(Seconds t);

  std::unique_ptr<TimeSource> source_;
  SimulatedTimeSource* simulated_ = nullptr;
  TimerWheel wheel_;
  std::vector<Clock*> clocks_;  // every clock bound to this loop
  std::vector<Ptr<Clock>> batch_;
};

}  // namespace Vex
