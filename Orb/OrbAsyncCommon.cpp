#include "Orb/OrbAsyncCommon.h"

#include "Orb/OrbCommon.h"

namespace Orb {

OrbAsyncBaseHelper::OrbAsyncBaseHelper() : Entity("asyncBaseHelper") {
  asyncOperationResultIs(AsyncOperationResult{"", Vex::now()});
}

std::uint32_t OrbAsyncBaseHelper::nextPriority() {
  // The last priority handed out is 1: 0 would rank below everything.
  --priority_;
  ORB_ASSERT(priority() > 0);
  return priority_;
}

Vex::Ptr<OrbAsyncBaseHelper> orbAsyncBaseHelperFactory() { return Vex::make<OrbAsyncBaseHelper>(); }

OrbAsyncBaseSm::OrbAsyncBaseSm(const Vex::Ptr<OrbCommonSmData>& ocsd) : OrbBaseSm(ocsd) {
  tcamRequestClockIs(Vex::clockFactory([this] { processTcamRequestQueue(); }));
  pendingOperationTimeoutClockIs(Vex::clockFactory([this] { handlePendingOperationTimeout(); }));
}

OrbAsyncBaseSm::~OrbAsyncBaseSm() {
  vexDoZombieReactors(true);
  resultReactor_.notifierIs(nullptr);
}

void OrbAsyncBaseSm::handleAsyncOperationResult() {
  orbAssert("handleAsyncOperationResult() must be overridden by every asynchronous state machine");
}

void OrbAsyncBaseSm::tcamRequestClockDel() {
  if (!tcamRequestClock_) return;
  tcamRequestClock_->timeMinIs(Vex::never);
  clockDel(tcamRequestClock_);
  tcamRequestClock_.reset();
}

void OrbAsyncBaseSm::tcamRequestClockIs(const Vex::Ptr<Vex::Clock>& clock) {
  tcamRequestClockDel();
  tcamRequestClock_ = clock;
  if (clock) clockIs(clock);
}

void OrbAsyncBaseSm::pendingOperationTimeoutClockDel() {
  if (!pendingOperationTimeoutClock_) return;
  pendingOperationTimeoutClock_->timeMinIs(Vex::never);
  clockDel(pendingOperationTimeoutClock_);
  pendingOperationTimeoutClock_.reset();
}

void OrbAsyncBaseSm::pendingOperationTimeoutClockIs(const Vex::Ptr<Vex::Clock>& clock) {
  pendingOperationTimeoutClockDel();
  pendingOperationTimeoutClock_ = clock;
  if (clock) clockIs(clock);
}

void OrbAsyncBaseSm::armPendingOperationTimeout() {
  if (pendingOperationTimeoutClock_) pendingOperationTimeoutClock_->timeMinIs(Vex::now() + pendingOperationTimeout_);
}

void OrbAsyncBaseSm::disarmPendingOperationTimeout() {
  if (pendingOperationTimeoutClock_) pendingOperationTimeoutClock_->timeMinIs(Vex::never);
}

void OrbAsyncBaseSm::scheduleTcamRequestQueue() {
  if (tcamRequestClock_) tcamRequestClock_->timeMinIs(Vex::now());
}

}  // namespace Orb
