// Base of state machines that program hardware through operations that
// complete later, and the helper object they share with the chip layer.
//
// The chip layer reports an operation's outcome by writing
// `asyncOperationResult` on the OrbAsyncBaseHelper; the owning machine hears
// it as handleAsyncOperationResult(). If no result comes, the machine's
// pending-operation clock fires `pendingOperationTimeout` seconds after it was
// armed (armPendingOperationTimeout()). Which operations arm it, and when the
// TCAM request queue runs, is each derived machine's business.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "platform/vex/Time.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <string>

namespace Orb {

enum class AsyncOperationState : std::uint8_t { asyncNone, asyncInCall, asyncWaiting, asyncCompleted };
BOOST_DESCRIBE_ENUM(AsyncOperationState, asyncNone, asyncInCall, asyncWaiting, asyncCompleted)

struct AsyncOperationResult {
  std::string error;
  double timestamp = 0.0;
  auto operator<=>(const AsyncOperationResult&) const = default;
};
VEX_VALUE(AsyncOperationResult, "Orb::AsyncOperationResult", (error, timestamp))

class OrbAsyncBaseHelper : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<OrbAsyncBaseHelper> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(AsyncOperationResult)
    VEX_HANDLER(AsyncTcamOperationsSupported)
  };

  // The result's timestamp starts at the current time.
  OrbAsyncBaseHelper();

  VEX_ATTR(AsyncOperationResult, asyncOperationResult, AsyncOperationResult)
  VEX_ATTR(bool, asyncTcamOperationsSupported, AsyncTcamOperationsSupported, false)

  std::uint32_t priority() const { return priority_; }
  void priorityIs(std::uint32_t priority) { priority_ = priority; }
  // Hands out strictly decreasing priorities, the first 4294967294.
  std::uint32_t nextPriority();

 private:
  std::uint32_t priority_ = 0xffffffffu;
};

Vex::Ptr<OrbAsyncBaseHelper> orbAsyncBaseHelperFactory();

class OrbAsyncBaseSm : public OrbBaseSm {
 public:
  explicit OrbAsyncBaseSm(const Vex::Ptr<OrbCommonSmData>& ocsd);
  ~OrbAsyncBaseSm() override;

  const char* fwkType() const override { return "Orb::OrbAsyncBaseSm"; }

  AsyncOperationState asyncState() const { return asyncState_; }
  void asyncStateIs(AsyncOperationState state) { asyncState_ = state; }
  const std::string& error() const { return error_; }
  void errorIs(const std::string& error) { error_ = error; }
  Vex::Seconds pendingOperationTimeout() const { return pendingOperationTimeout_; }
  void pendingOperationTimeoutIs(Vex::Seconds seconds) { pendingOperationTimeout_ = seconds; }

  // The helper whose results this machine waits for.
  const Vex::Ptr<OrbAsyncBaseHelper>& asyncHelper() const { return resultReactor_.notifier(); }
  void asyncHelperIs(const Vex::Ptr<OrbAsyncBaseHelper>& helper) { resultReactor_.notifierIs(helper); }

  // Every derived machine must handle results.
  virtual void handleAsyncOperationResult();
  virtual void processTcamRequestQueue() {}
  virtual void handlePendingOperationTimeout() {}

  const Vex::Ptr<Vex::Clock>& tcamRequestClock() const { return tcamRequestClock_; }
  virtual void tcamRequestClockDel();
  virtual void tcamRequestClockIs(const Vex::Ptr<Vex::Clock>& clock);
  const Vex::Ptr<Vex::Clock>& pendingOperationTimeoutClock() const { return pendingOperationTimeoutClock_; }
  virtual void pendingOperationTimeoutClockDel();
  virtual void pendingOperationTimeoutClockIs(const Vex::Ptr<Vex::Clock>& clock);

  // Arms the pending-operation clock for now + pendingOperationTimeout, and
  // disarms it.
  void armPendingOperationTimeout();
  void disarmPendingOperationTimeout();
  // Runs processTcamRequestQueue() on the loop's next turn.
  void scheduleTcamRequestQueue();

 private:
  class ResultReactor : public Vex::Reactor<OrbAsyncBaseHelper, OrbAsyncBaseSm> {
   public:
    using Reactor::Reactor;
    VEX_REACT(AsyncOperationResult, handleAsyncOperationResult)
  };

  AsyncOperationState asyncState_ = AsyncOperationState::asyncNone;
  std::string error_;
  Vex::Seconds pendingOperationTimeout_ = 60.0;
  Vex::Ptr<Vex::Clock> tcamRequestClock_;
  Vex::Ptr<Vex::Clock> pendingOperationTimeoutClock_;
  ResultReactor resultReactor_{this};
};

}  // namespace Orb
