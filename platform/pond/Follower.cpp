#include "platform/pond/Follower.h"

#include "platform/vex/EventLoop.h"

namespace Pond {

Follower::Follower(TableCore& table, TableCore::ChangeHandlers handlers, Vex::Seconds mountRetry)
    : table_(table), handlers_(std::move(handlers)), mountRetry_(mountRetry) {
  inner_ = handlers_;
  inner_.onMountStatus = [this](MountStatus status) { onUnmounted(status); };
  retry_ = Vex::clockFactory([this] { tryMount(); });
  tryMount();
}

Follower::~Follower() {
  watch_ = nullptr;
  retry_ = nullptr;
}

void Follower::tryMount() {
  MountStatus status = table_.mount();
  if (status != reported_) {
    reported_ = status;
    if (handlers_.onMountStatus) handlers_.onMountStatus(status);
  }
  if (status != MountStatus::mounted) {
    retry_->timeMinIs(Vex::now() + mountRetry_);
    return;
  }
  if (!watch_ && table_.wakeFd() >= 0)
    watch_ = Vex::fdWatchFactory(table_.wakeFd(), Vex::FdEvent::readable, [this](unsigned) { poll(); });
  poll();
}

void Follower::poll() {
  if (table_.mountStatus() == MountStatus::mounted) table_.processChanges(inner_);
}

void Follower::onUnmounted(MountStatus status) {
  watch_ = nullptr;  // before the table's descriptor number is reused
  reported_ = status;
  if (handlers_.onMountStatus) handlers_.onMountStatus(status);
  retry_->timeMinIs(Vex::now() + mountRetry_);
}

}  // namespace Pond
