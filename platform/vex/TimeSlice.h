// Checks time-sliced work against its quantum.
//
// A walk that yields once its quantum is spent may still finish the item it
// was on, so a slice may end later than its quantum by at most its longest
// item. A slice that must handle a minimum number of items before it looks
// at the clock is also allowed the time those items took.
//
//   Vex::Seconds start = Vex::now();
//   Vex::TimeSlice slice("mac backlog", quantum);
//   while (more()) {
//     doOne();
//     slice.itemDone();
//     if (Vex::now() - start > quantum) break;
//   }
//
// Checking is off by default, and a slice then costs one test per item.
// When it is on (the soak turns it on), a slice reads the loop's time at
// each item without moving a stepping simulated clock, and a slice that
// overran is counted under its name.
#pragma once

#include "platform/vex/Time.h"

#include <cstdint>
#include <map>
#include <string>

namespace Vex {

class TimeSlice {
 public:
  struct Record {
    std::uint64_t slices = 0;
    std::uint64_t items = 0;
    std::uint64_t spent = 0;  // slices that used up their quantum
    std::uint64_t overruns = 0;
    Seconds quantum = 0;
    Seconds longest = 0;      // the longest slice
    Seconds worstExcess = 0;  // the most an overrun took beyond what it was allowed
  };

  // Turning checking on starts the counts afresh.
  static void checkingIs(bool on);
  static bool checking();
  // By slice name, since checking was last turned on.
  static const std::map<std::string, Record>& records();
  static std::uint64_t overruns();

  TimeSlice(const char* name, Seconds quantum, std::uint32_t minItems = 0);
  ~TimeSlice();
  TimeSlice(const TimeSlice&) = delete;
  TimeSlice& operator=(const TimeSlice&) = delete;

  void itemDone() {
    if (on_) mark();
  }

 private:
  void mark();

  bool on_;
  const char* name_;
  Seconds quantum_;
  std::uint32_t minItems_;
  std::uint32_t items_ = 0;
  Seconds start_ = 0;
  Seconds lastMark_ = 0;
  Seconds longestItem_ = 0;
  Seconds minItemsDone_ = 0;
};

}  // namespace Vex
