#include "platform/vex/TimerWheel.h"

#include <algorithm>
#include <cmath>

namespace Vex {

TimerWheel::TimerWheel() : wheel_(slots) {}

std::int64_t TimerWheel::tickOf(Seconds t) {
  // Times further out than ticks count (a wake time set by typed-in seconds,
  // say) share the last tick; each clock still fires at its own time, since
  // a collection compares wake times, not ticks.
  constexpr double lastTick = 0x1p62;
  double ticks = std::floor(t / tick);
  if (ticks >= lastTick) return static_cast<std::int64_t>(lastTick);
  if (ticks <= -lastTick) return -static_cast<std::int64_t>(lastTick);
  return static_cast<std::int64_t>(ticks);
}

void TimerWheel::arm(Clock* clock) {
  // A wake time in the past waits in the cursor's slot, which every
  // collection visits first.
  std::int64_t at = std::max(tickOf(clock->timeMin_), cursor_);
  clock->tick_ = at;
  clock->armedFor_ = clock->timeMin_;
  auto& slot = wheel_[static_cast<std::size_t>(at & (slots - 1))];
  clock->slot_ = at & (slots - 1);
  clock->position_ = slot.size();
  clock->sequence_ = ++sequence_;
  slot.push_back(clock);
  ++size_;
  if (earliestKnown_) earliest_ = std::min(earliest_, clock->timeMin_);
}

void TimerWheel::disarm(Clock* clock) {
  if (clock->slot_ < 0) return;
  auto& slot = wheel_[static_cast<std::size_t>(clock->slot_)];
  Clock* last = slot.back();
  slot[clock->position_] = last;
  last->position_ = clock->position_;
  slot.pop_back();
  clock->slot_ = -1;
  --size_;
  if (clock->armedFor_ <= earliest_) earliestKnown_ = false;
}

void TimerWheel::collectDue(Seconds t, std::vector<Ptr<Clock>>& due) {
  std::size_t first = due.size();
  std::int64_t target = tickOf(t);
  if (size_ > 0) {
    std::int64_t last = std::min(target, cursor_ + slots - 1);
    for (std::int64_t at = cursor_; at <= last; ++at) {
      auto& slot = wheel_[static_cast<std::size_t>(at & (slots - 1))];
      for (std::size_t i = 0; i < slot.size();) {
        Clock* clock = slot[i];
        if (clock->timeMin_ <= t) {
          disarm(clock);  // moves the slot's last clock into position i
          due.emplace_back(clock);
        } else {
          ++i;
        }
      }
    }
  }
  cursor_ = std::max(cursor_, target);
  std::sort(due.begin() + static_cast<std::ptrdiff_t>(first), due.end(), [](const auto& a, const auto& b) {
    return a->timeMin_ != b->timeMin_ ? a->timeMin_ < b->timeMin_ : a->sequence_ < b->sequence_;
  });
}

Seconds TimerWheel::nextWakeTime() const {
  if (size_ == 0) return never;
  if (!earliestKnown_) {
    earliest_ = scanWakeTime();
    earliestKnown_ = true;
  }
  return earliest_;
}

Seconds TimerWheel::scanWakeTime() const {
  // The first tick within one turn that holds a clock of that very tick has
  // the earliest wake time; clocks further away share slots with later turns.
  for (std::int64_t at = cursor_; at < cursor_ + slots; ++at) {
    Seconds earliest = never;
    for (Clock* clock : wheel_[static_cast<std::size_t>(at & (slots - 1))]) {
      if (std::max(clock->tick_, cursor_) == at) earliest = std::min(earliest, clock->timeMin_);
    }
    if (earliest != never) return earliest;
  }
  Seconds earliest = never;
  for (const auto& slot : wheel_) {
    for (Clock* clock : slot) earliest = std::min(earliest, clock->timeMin_);
  }
  return earliest;
}

}  // namespace Vex
