// Descriptor watches: a file descriptor, the readiness it waits for and a
// handler. The event loop polls every watch bound to it on each turn and
// calls the handlers of the ready ones on its one thread, before the clocks
// due in that turn.
//
// Readiness is level-triggered: a descriptor that is still readable after its
// handler ran is reported again on the next turn, so a handler may read one
// chunk at a time. A handler must consume what it is told about (read the
// data, or stop the watch at end of input): a readable descriptor that is
// never read is reported on every turn.
//
// Error and hang-up are reported whatever the interest. They end the watch:
// an error, a descriptor that is not open, or a hang-up with nothing left to
// read is passed to the handler once, with its flags, and the loop then stops
// polling the descriptor, so a handler that ignores them does not make the
// loop spin. A hang-up while data is still buffered comes with `readable`
// and does not end the watch yet, so the handler can drain the data first.
//
// Watches are made with fdWatchFactory and held by Ptr; a watch stops when
// its last Ptr goes, even from a handler of the turn it was ready in.
//
// The watch does not own its descriptor and never closes it. Destroy the
// watch (or set its interest to none) before closing the descriptor, since
// the number may be reused by the next one opened.
#pragma once

#include "platform/vex/Ptr.h"

#include <cstddef>
#include <functional>

namespace Vex {

class EventLoop;

namespace FdEvent {
inline constexpr unsigned none = 0;
inline constexpr unsigned readable = 1u << 0;
inline constexpr unsigned writable = 1u << 1;
// Reported only, never asked for: the peer closed its end.
inline constexpr unsigned hangUp = 1u << 2;
// Reported only: an error condition on the descriptor.
inline constexpr unsigned error = 1u << 3;
// Reported only: the descriptor is not open (closed under a live watch).
inline constexpr unsigned invalid = 1u << 4;
}  // namespace FdEvent

class FdWatch : public PtrInterface {
 public:
  // Called with the FdEvent flags that are set.
  using Handler = std::function<void(unsigned events)>;

  // Binds to the current event loop; there must be one. `interest` is
  // `readable`, `writable`, both, or `none` (registered but idle). A
  // negative descriptor or an interest in anything else is refused with
  // std::invalid_argument.
  FdWatch(int fd, unsigned interest, Handler handler);
  ~FdWatch() override;

  int fd() const { return fd_; }
  unsigned interest() const { return interest_; }
  // Changes what the watch waits for; also restarts a watch that ended.
  void interestIs(unsigned interest);

  // True once an error or hang-up ended the watch, until interestIs.
  bool ended() const { return ended_; }
  // Polled on the loop's turns: bound to a loop, interested, not ended.
  bool isWatching() const { return loop_ && interest_ != FdEvent::none && !ended_; }

 private:
  friend class EventLoop;

  Handler handler_;
  EventLoop* loop_;
  int fd_;
  unsigned interest_;
  bool ended_ = false;
  // Was ready when an earlier handler of its turn threw: served first on the
  // next turn if it is still ready.
  bool owed_ = false;
};

Ptr<FdWatch> fdWatchFactory(int fd, unsigned interest, FdWatch::Handler handler);

}  // namespace Vex
