#include "platform/vex/EventLoop.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

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

std::size_t EventLoop::runUntilIdle() {
  std::size_t total = 0;
  for (;;) {
    Seconds t = now();
    if (nextWakeTime() > t) return total;
    total += fireDue(t);
  }
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

}  // namespace Vex
