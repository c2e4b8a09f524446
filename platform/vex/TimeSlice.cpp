#include "platform/vex/TimeSlice.h"

#include "platform/vex/EventLoop.h"

#include <algorithm>

namespace Vex {

namespace {

bool checkingOn = false;
std::map<std::string, TimeSlice::Record> sliceRecords;
std::uint64_t overrunCount = 0;

// The time without moving a stepping simulated clock, so that checking does
// not change what the walks being checked see.
Seconds peek() { return EventLoop::current()->peekNow(); }

}  // namespace

void TimeSlice::checkingIs(bool on) {
  if (on) {
    sliceRecords.clear();
    overrunCount = 0;
  }
  checkingOn = on;
}

bool TimeSlice::checking() { return checkingOn; }

const std::map<std::string, TimeSlice::Record>& TimeSlice::records() { return sliceRecords; }

std::uint64_t TimeSlice::overruns() { return overrunCount; }

TimeSlice::TimeSlice(const char* name, Seconds quantum, std::uint32_t minItems)
    : on_(checkingOn), name_(name), quantum_(quantum), minItems_(minItems) {
  if (on_) start_ = lastMark_ = peek();
}

void TimeSlice::mark() {
  Seconds t = peek();
  longestItem_ = std::max(longestItem_, t - lastMark_);
  lastMark_ = t;
  if (++items_ == minItems_) minItemsDone_ = t - start_;
}

TimeSlice::~TimeSlice() {
  if (!on_ || !checkingOn) return;
  Seconds elapsed = peek() - start_;
  // Work after the last item (re-arming, bookkeeping) counts with it.
  Seconds longestItem = std::max(longestItem_, elapsed - (lastMark_ - start_));
  Seconds allowed = std::max(quantum_, items_ < minItems_ ? elapsed : minItemsDone_) + longestItem;
  Record& record = sliceRecords[name_];
  ++record.slices;
  record.items += items_;
  record.quantum = quantum_;
  record.longest = std::max(record.longest, elapsed);
  if (elapsed >= quantum_) ++record.spent;
  // A nanosecond's leeway for the rounding of times held as doubles.
  if (elapsed > allowed + 1e-9) {
    ++record.overruns;
    ++overrunCount;
    record.worstExcess = std::max(record.worstExcess, elapsed - allowed);
  }
}

}  // namespace Vex
