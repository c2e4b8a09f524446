// A verification run that finds differences while state is still changing
// may only have caught the change half done. Such a run leaves a retry
// pending: it comes `interval` seconds after the run, or after the last
// change that renewed it, so that it looks once things have settled.
#pragma once

#include "platform/vex/Clock.h"
#include "platform/vex/Time.h"

#include <functional>

namespace Orb {

class VerifyRetry {
 public:
  explicit VerifyRetry(std::function<void()> retry, Vex::Seconds interval = 1.0)
      : retry_(std::move(retry)), interval_(interval) {}

  bool pending() const { return pending_; }
  Vex::Seconds interval() const { return interval_; }
  void intervalIs(Vex::Seconds interval) { interval_ = interval; }

  // A run found differences (true: retry later) or none (false).
  void pendingIs(bool pending);
  // State changed: a pending retry waits its interval again.
  void renew();

 private:
  void fire();

  std::function<void()> retry_;
  Vex::Seconds interval_;
  bool pending_ = false;
  Vex::Ptr<Vex::Clock> clock_;  // made when first needed
};

}  // namespace Orb
