#include "Orb/OrbVerifyRetry.h"

namespace Orb {

void VerifyRetry::pendingIs(bool pending) {
  pending_ = pending;
  if (pending_) {
    renew();
  } else if (clock_) {
    clock_->timeMinIs(Vex::never);
  }
}

void VerifyRetry::renew() {
  if (!pending_) return;
  if (!clock_) clock_ = Vex::clockFactory([this] { fire(); });
  clock_->timeMinIs(Vex::now() + interval_);
}

void VerifyRetry::fire() {
  pending_ = false;
  retry_();
}

}  // namespace Orb
