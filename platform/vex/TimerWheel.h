// A hashed timer wheel: one slot per millisecond tick, 4096 slots a turn.
// Arming and disarming are O(1); collecting what is due visits only the
// ticks passed since the last collection (one full turn at most), so a loop
// with many clocks pays per clock, not per sorted insert.
#pragma once

#include "platform/vex/Clock.h"

#include <cstdint>
#include <vector>

namespace Vex {

class TimerWheel {
 public:
  static constexpr Seconds tick = 0.001;
  static constexpr std::int64_t slots = 4096;

  TimerWheel();

  void arm(Clock* clock);
  void disarm(Clock* clock);
  std::size_t size() const { return size_; }

  // Moves every clock whose wake time is at or before `t` out of the wheel
  // into `due`, ordered by wake time and then by arming order.
  void collectDue(Seconds t, std::vector<Ptr<Clock>>& due);

  // The earliest wake time on the wheel, or `never`.
  Seconds nextWakeTime() const;

 private:
  static std::int64_t tickOf(Seconds t);
  Seconds scanWakeTime() const;

  std::vector<std::vector<Clock*>> wheel_;
  std::int64_t cursor_ = 0;  // the tick of the last collection
  std::size_t size_ = 0;
  std::uint64_t sequence_ = 0;
  // The earliest wake time, kept while arming only lowers it; a disarm or
  // collection that may take the earliest clock away makes it be recomputed.
  mutable Seconds earliest_ = never;
  mutable bool earliestKnown_ = true;
};

}  // namespace Vex
