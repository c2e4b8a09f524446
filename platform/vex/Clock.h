// Clock reactors: a wake time and a handler. A clock fires once when the
// event loop's time reaches its wake time; the handler re-arms it to continue
// (the usual shape of a time-sliced walk). Arming for "now" or the past runs
// the clock on the loop's next turn, after the work already due.
#pragma once

#include "platform/vex/Ptr.h"
#include "platform/vex/Time.h"

#include <cstdint>
#include <functional>

namespace Vex {

class EventLoop;

class Clock : public PtrInterface {
 public:
  using Handler = std::function<void()>;

  // Binds to the current event loop; there must be one.
  explicit Clock(Handler handler);
  ~Clock() override;

  Seconds timeMin() const { return timeMin_; }
  // Arms the clock for `t`; `never` disarms it.
  void timeMinIs(Seconds t);

  bool hasNotificationActive() const { return active_; }
  // A muted clock that falls due is held, not dropped: it fires on the
  // loop's next turn after it is unmuted, so a muted machine still times out.
  void hasNotificationActiveIs(bool active);
  bool isZombie() const { return zombie_; }
  void vexDoZombieReactors(bool zombie) { zombie_ = zombie; }

 private:
  friend class EventLoop;
  friend class TimerWheel;

  Handler handler_;
  EventLoop* loop_;
  Seconds timeMin_ = never;
  bool active_ = true;
  bool zombie_ = false;
  // Wheel bookkeeping: slot and position in it (-1 when not on the wheel),
  // arm sequence for ordering clocks with the same wake time, and whether it
  // sits in a batch the loop is about to fire.
  std::int64_t slot_ = -1;
  std::int64_t tick_ = 0;     // the wheel tick it waits in, worked out once when armed
  Seconds armedFor_ = never;  // the wake time it was put on the wheel with
  std::size_t position_ = 0;
  std::uint64_t sequence_ = 0;
  bool collected_ = false;
  bool heldWhileMuted_ = false;  // fell due while muted; timeMin_ keeps the wake time
  std::size_t loopIndex_ = 0;    // position in the loop's list of clocks
};

Ptr<Clock> clockFactory(Clock::Handler handler);

}  // namespace Vex
