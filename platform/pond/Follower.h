// Follows a reader table from a Vex event loop: mounts it (retrying on a
// clock while the writer has not made it yet, or after the writer closed it),
// then waits on its wake-up FIFO and reports each change as it comes.
#pragma once

#include "platform/pond/TableCore.h"
#include "platform/vex/Clock.h"
#include "platform/vex/FdWatch.h"
#include "platform/vex/Time.h"

namespace Pond {

class Follower {
 public:
  // Binds to the current event loop. `handlers.onMountStatus` also hears the
  // table becoming mounted. Changes are reported from the loop's turns.
  Follower(TableCore& table, TableCore::ChangeHandlers handlers, Vex::Seconds mountRetry = 0.1);
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  // Reports what is waiting now, without waiting for the loop.
  void poll();

 private:
  void tryMount();
  void onUnmounted(MountStatus status);

  TableCore& table_;
  TableCore::ChangeHandlers handlers_;
  TableCore::ChangeHandlers inner_;
  Vex::Seconds mountRetry_;
  MountStatus reported_ = MountStatus::unmounted;
  Vex::Ptr<Vex::Clock> retry_;
  Vex::Ptr<Vex::FdWatch> watch_;
};

}  // namespace Pond
