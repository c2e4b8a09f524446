#include "platform/vex/EventLoop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Vex {

namespace {
thread_local EventLoop* currentLoop = nullptr;
}

Seconds now() {
  EventLoop* loop = EventLoop::current();
  if (!loop) {
    std::fputs("Vex::now() called with no current event loop\n", stderr);
    std::abort();
  }
  return loop->now();
}

Seconds MonotonicTimeSource::now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

Seconds SimulatedTimeSource::now() {
  Seconds t = now_;
  now_ += step_;
  return t;
}

EventLoop::EventLoop() : EventLoop(std::make_unique<SimulatedTimeSource>()) {}

EventLoop::EventLoop(std::unique_ptr<TimeSource> source) : source_(std::move(source)) {
  simulated_ = dynamic_cast<SimulatedTimeSource*>(source_.get());
  if (!currentLoop) currentLoop = this;
}

EventLoop::~EventLoop() {
  batch_.clear();
  for (Clock* clock : clocks_) {
    wheel_.disarm(clock);
    clock->loop_ = nullptr;
  }
  for (FdWatch* watch : watches_) watch->loop_ = nullptr;
  if (currentLoop == this) currentLoop = nullptr;
}

EventLoop* EventLoop::current() { return currentLoop; }
void EventLoop::makeCurrent() { currentLoop = this; }

void EventLoop::arm(Clock* clock) {
  wheel_.disarm(clock);
  clock->collected_ = false;
  if (clock->timeMin_ != never) wheel_.arm(clock);
}

void EventLoop::disarm(Clock* clock) {
  wheel_.disarm(clock);
  clock->collected_ = false;
}

void EventLoop::detach(Clock* clock) {
  disarm(clock);
  Clock* last = clocks_.back();
  clocks_[clock->loopIndex_] = last;
  last->loopIndex_ = clock->loopIndex_;
  clocks_.pop_back();
}

std::size_t EventLoop::fireDue(Seconds t) {
  std::vector<Ptr<Clock>> batch;
  batch.swap(batch_);
  batch.clear();
  wheel_.collectDue(t, batch);
  for (auto& clock : batch) clock->collected_ = true;
  std::size_t fired = 0;
  std::size_t next = 0;
  try {
    while (next < batch.size()) {
      Clock* clock = batch[next++].get();
      // An earlier handler of this batch may have re-armed or disarmed it.
      if (!clock->collected_) continue;
      clock->collected_ = false;
      if (!clock->active_ && !clock->zombie_) {
        clock->heldWhileMuted_ = true;
        continue;
      }
      clock->timeMin_ = never;
      if (clock->zombie_ || !clock->handler_) continue;
      ++fired;
      clock->handler_();
    }
  } catch (...) {
    // The clocks collected after the failed one are off the wheel: put them
    // back (their wake time has passed, so they fire on the next turn)
    // rather than lose them.
    for (; next < batch.size(); ++next) {
      Clock* clock = batch[next].get();
      if (clock->collected_) arm(clock);
    }
    batch.clear();
    batch_.swap(batch);
    throw;
  }
  batch.clear();
  batch_.swap(batch);
  return fired;
}

void EventLoop::detach(FdWatch* watch) {
  // Erased in place rather than swapped with the last, so that watches keep
  // being served in registration order; a loop watches a handful.
  watches_.erase(std::find(watches_.begin(), watches_.end(), watch));
  // A handler of the turn being served dropped it: it is not called.
  for (auto* ready : dispatching_)
    for (auto& entry : *ready)
      if (entry.first == watch) entry.first = nullptr;
}

namespace {

unsigned eventsOf(short revents) {
  unsigned events = FdEvent::none;
  if (revents & POLLIN) events |= FdEvent::readable;
  if (revents & POLLOUT) events |= FdEvent::writable;
  if (revents & POLLHUP) events |= FdEvent::hangUp;
  if (revents & POLLERR) events |= FdEvent::error;
  if (revents & POLLNVAL) events |= FdEvent::invalid;
  return events;
}

constexpr unsigned reportedAlways = FdEvent::hangUp | FdEvent::error | FdEvent::invalid;

// Nothing more can come from the descriptor: polling it again would report
// the same condition on every turn.
bool isFinal(unsigned events) {
  if (events & (FdEvent::error | FdEvent::invalid)) return true;
  return (events & FdEvent::hangUp) && !(events & FdEvent::readable);
}

}  // namespace

std::size_t EventLoop::pollDescriptors(int timeoutMs) {
  pollSet_.clear();
  polled_.clear();
  for (FdWatch* watch : watches_) {
    if (!watch->isWatching()) continue;
    short events = 0;
    if (watch->interest_ & FdEvent::readable) events |= POLLIN;
    if (watch->interest_ & FdEvent::writable) events |= POLLOUT;
    pollSet_.push_back(pollfd{watch->fd_, events, 0});
    polled_.push_back(watch);
  }
  if (pollSet_.empty() && timeoutMs == 0) return 0;
  int count = ::poll(pollSet_.data(), pollSet_.size(), timeoutMs);
  if (count < 0) {
    polled_.clear();
    if (errno == EINTR) return 0;  // a signal: let the caller look at it
    throw std::system_error(errno, std::generic_category(), "Vex::EventLoop: poll");
  }

  // Those owed a call by a turn that threw go first, then the others in
  // registration order. Readiness is taken from this poll, not remembered, so
  // no handler is told about data that is gone.
  std::vector<std::pair<FdWatch*, unsigned>> ready;
  ready.swap(ready_);
  ready.clear();
  for (bool owed : {true, false}) {
    for (std::size_t i = 0; i < pollSet_.size(); ++i) {
      if (pollSet_[i].revents == 0 || polled_[i]->owed_ != owed) continue;
      ready.emplace_back(polled_[i], eventsOf(pollSet_[i].revents));
    }
  }
  for (FdWatch* watch : polled_) watch->owed_ = false;
  polled_.clear();

  // Held by plain pointers, so that a handler dropping another watch of the
  // turn destroys it; detach() clears it from this list.
  dispatching_.push_back(&ready);
  auto finish = [&] {
    dispatching_.pop_back();
    ready.clear();
    ready_.swap(ready);
  };
  std::size_t ran = 0;
  std::size_t next = 0;
  try {
    while (next < ready.size()) {
      auto [watch, reported] = ready[next++];
      // An earlier handler of this turn may have dropped, stopped or changed it.
      if (!watch || !watch->isWatching()) continue;
      unsigned events = reported & (watch->interest_ | reportedAlways);
      if (events == FdEvent::none) continue;
      if (isFinal(events)) watch->ended_ = true;
      if (!watch->handler_) continue;
      ++ran;
      Ptr<FdWatch> running(watch);  // its handler may drop the last reference to it
      running->handler_(events);
    }
  } catch (...) {
    for (; next < ready.size(); ++next)
      if (ready[next].first) ready[next].first->owed_ = true;
    finish();
    throw;
  }
  finish();
  return ran;
}

std::size_t EventLoop::runTurns(int firstTimeoutMs) {
  std::size_t total = 0;
  int timeoutMs = firstTimeoutMs;
  for (;;) {
    total += pollDescriptors(timeoutMs);
    timeoutMs = 0;
    Seconds t = now();
    if (nextWakeTime() > t) return total;
    total += fireDue(t);
  }
}

std::size_t EventLoop::runUntilIdle() { return runTurns(0); }

std::size_t EventLoop::runOnce(Seconds maxWait) {
  if (simulated_) return runTurns(0);
  Seconds wait = std::min(nextWakeTime() - now(), maxWait);
  int timeoutMs;
  if (wait <= 0.0) {
    timeoutMs = 0;
  } else if (wait * 1000.0 >= static_cast<double>(INT_MAX)) {
    timeoutMs = wait == never ? -1 : INT_MAX;
  } else {
    // Rounded up: waking before the clock is due would only poll again.
    timeoutMs = static_cast<int>(std::ceil(wait * 1000.0));
  }
  return runTurns(timeoutMs);
}

void EventLoop::advance(Seconds seconds) {
  if (!simulated_) {
    std::fputs("EventLoop::advance needs a simulated time source\n", stderr);
    std::abort();
  }
  Seconds target = simulated_->time() + seconds;
  runUntilIdle();
  for (;;) {
    Seconds next = nextWakeTime();
    if (next > target) break;
    if (next > simulated_->time()) simulated_->timeIs(next);
    runUntilIdle();
  }
  if (simulated_->time() < target) simulated_->timeIs(target);
  runUntilIdle();
}

Clock::Clock(Handler handler) : handler_(std::move(handler)), loop_(EventLoop::current()) {
  if (!loop_) {
    std::fputs("Vex::Clock made with no current event loop\n", stderr);
    std::abort();
  }
  loopIndex_ = loop_->clocks_.size();
  loop_->clocks_.push_back(this);
}

Clock::~Clock() {
  if (loop_) loop_->detach(this);
}

void Clock::timeMinIs(Seconds t) {
  if (t == timeMin_ && !collected_) return;
  heldWhileMuted_ = false;
  timeMin_ = t;
  if (loop_) loop_->arm(this);
}

void Clock::hasNotificationActiveIs(bool active) {
  active_ = active;
  if (!active_ || !heldWhileMuted_) return;
  heldWhileMuted_ = false;
  if (loop_) loop_->arm(this);  // its wake time has passed: the next turn
}

Ptr<Clock> clockFactory(Clock::Handler handler) { return make<Clock>(std::move(handler)); }

namespace {

unsigned checkedInterest(unsigned interest) {
  if (interest & ~(FdEvent::readable | FdEvent::writable))
    throw std::invalid_argument("Vex::FdWatch: interest may be readable and writable only, not " +
                                std::to_string(interest));
  return interest;
}

}  // namespace

FdWatch::FdWatch(int fd, unsigned interest, Handler handler)
    : handler_(std::move(handler)), loop_(EventLoop::current()), fd_(fd), interest_(checkedInterest(interest)) {
  if (fd < 0) throw std::invalid_argument("Vex::FdWatch: descriptor " + std::to_string(fd) + " is not valid");
  if (!loop_) {
    std::fputs("Vex::FdWatch made with no current event loop\n", stderr);
    std::abort();
  }
  loop_->watches_.push_back(this);
}

FdWatch::~FdWatch() {
  if (loop_) loop_->detach(this);
}

void FdWatch::interestIs(unsigned interest) {
  interest_ = checkedInterest(interest);
  ended_ = false;
}

Ptr<FdWatch> fdWatchFactory(int fd, unsigned interest, FdWatch::Handler handler) {
  return make<FdWatch>(fd, interest, std::move(handler));
}

}  // namespace Vex
