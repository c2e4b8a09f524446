#include "Orb/OrbStormControlDropSm.h"

#include "Orb/OrbTrace.h"
#include "platform/log/LogEvent.h"

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbStormControlSm");
  return handle;
}

const Log::Definition& dropLog() {
  static const Log::Definition definition{
      {"StormControlDropLog",
       "Storm Control discarded packets on Interface %s: UUcast %L, Broadcast %L, Multicast %L, All %L",
       "The interface's traffic is exceeding the configured storm-control threshold causing packets to be discarded",
       "Find the source of the excess traffic, or raise the interface's storm-control level."}};
  return definition;
}

// Counts never fall, except when the chip restarts its counters: then
// everything counted since is new.
std::uint64_t since(std::uint64_t now, std::uint64_t before) { return now >= before ? now - before : now; }

}  // namespace

// --- StormControlDropIntfSm ---

StormControlDropIntfSm::StormControlDropIntfSm(const Nexo::IntfId& intf,
                                               const Vex::Ptr<OrbHelper::StormControlSmHelper>& helper)
    : intf_(intf), helper_(helper), last_(helper->getAllDropCnt(intf)) {}

void StormControlDropIntfSm::handleTime() {
  StormControlDropCounts counts = helper_->getAllDropCnt(intf_);
  if (counts == last_) return;
  const auto uucast = since(counts.uucast, last_.uucast);
  const auto broadcast = since(counts.broadcast, last_.broadcast);
  const auto multicast = since(counts.multicast, last_.multicast);
  const auto all = since(counts.all, last_.all);
  last_ = counts;
  if (!uucast && !broadcast && !multicast && !all) return;
  dropLog().emit(intf_.stringValue(), static_cast<unsigned long long>(uucast),
                 static_cast<unsigned long long>(broadcast), static_cast<unsigned long long>(multicast),
                 static_cast<unsigned long long>(all));
}

// --- StormControlDropSliceSm ---

class StormControlDropSliceSm::VexSliceStatus
    : public Vex::Reactor<Hardware::StormControl::SliceStatus, StormControlDropSliceSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(StormControlSupported, handleCapabilities)
  VEX_REACT(DropCountSupported, handleCapabilities)
  VEX_REACT(AllLevelSupported, handleCapabilities)
  VEX_REACT(UucastLevelSupported, handleCapabilities)
  VEX_REACT(PpsSupported, handleCapabilities)
  VEX_REACT(BpsSupported, handleCapabilities)
  VEX_REACT(ZeroRateSupported, handleCapabilities)
  VEX_REACT_KEY(Intf, Nexo::IntfId, handleIntf)
};

StormControlDropSliceSm::StormControlDropSliceSm(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                                 const Vex::Ptr<OrbHelper::StormControlSmHelper>& helper,
                                                 const Vex::Ptr<Hardware::StormControl::SliceStatus>& slice,
                                                 Vex::Seconds interval)
    : OrbBaseSm(ocsd), helper_(helper), slice_(slice), interval_(interval) {
  reactor_ = std::make_unique<VexSliceStatus>(this, slice_);
  clock_ = Vex::clockFactory([this] { handleTime(); });
  clockIs(clock_);
  initializedIs(true);
}

StormControlDropSliceSm::~StormControlDropSliceSm() {
  vexDoZombieReactors(true);
  clock_->timeMinIs(Vex::never);
  reactor_.reset();
}

bool StormControlDropSliceSm::counting() const {
  return slice_->stormControlSupported() && slice_->dropCountSupported();
}

void StormControlDropSliceSm::intervalIs(Vex::Seconds interval) {
  interval_ = interval > 0 ? interval : interval_;
  if (!intfSm_.empty()) clock_->timeMinIs(Vex::now() + interval_);
}

void StormControlDropSliceSm::handleInitialized() { handleCapabilities(); }

void StormControlDropSliceSm::handleCapabilities() {
  if (!counting()) {
    if (!intfSm_.empty()) BLIP(trace(), 3, "slice {} does not count storm-control discards", slice_->name());
    intfSm_.clear();
    clock_->timeMinIs(Vex::never);
    return;
  }
  for (const auto& intf : slice_->intf()) handleIntf(intf);
}

void StormControlDropSliceSm::handleIntf(const Nexo::IntfId& intf) {
  if (!counting() || !slice_->intf(intf)) {
    intfSm_.erase(intf);
  } else if (!intfSm_.count(intf)) {
    intfSm_.emplace(intf, std::make_unique<StormControlDropIntfSm>(intf, helper_));
  }
  if (intfSm_.empty()) {
    clock_->timeMinIs(Vex::never);
  } else if (clock_->timeMin() == Vex::never) {
    clock_->timeMinIs(Vex::now() + interval_);
  }
}

void StormControlDropSliceSm::handleTime() {
  for (auto& [intf, sm] : intfSm_) sm->handleTime();
  if (!intfSm_.empty()) clock_->timeMinIs(Vex::now() + interval_);
}

// --- StormControlDropSm ---

class StormControlDropSm::DirReactor : public Vex::Reactor<Hardware::StormControl::SliceStatusDir, StormControlDropSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(SliceStatus, std::string, handleSliceStatus)
};

StormControlDropSm::StormControlDropSm(const StormControlDropSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT(in_.orbHelper);
  ORB_ASSERT(in_.sliceStatusDir);
  dirReactor_ = std::make_unique<DirReactor>(this, in_.sliceStatusDir);
  initializedIs(true);
}

StormControlDropSm::~StormControlDropSm() {
  vexDoZombieReactors(true);
  sliceSm_.clear();
  dirReactor_.reset();
}

void StormControlDropSm::logIntervalIs(Vex::Seconds interval) {
  if (interval <= 0) return;
  logInterval_ = interval;
  for (auto& [name, sm] : sliceSm_) sm->intervalIs(interval);
}

void StormControlDropSm::handleInitialized() {
  for (const auto& [slice, status] : in_.sliceStatusDir->sliceStatus()) handleSliceStatus(slice);
}

void StormControlDropSm::handleSliceStatus(const std::string& slice) {
  auto status = in_.sliceStatusDir->sliceStatus(slice);
  if (!status) {
    sliceSm_.erase(slice);
    return;
  }
  auto& sm = sliceSm_[slice];
  if (!sm) sm = Vex::make<StormControlDropSliceSm>(ocsd(), in_.orbHelper, status, logInterval_);
}

Vex::Ptr<StormControlDropSm> stormControlDropSmFactory(const StormControlDropSmInputs& inputs) {
  return Vex::make<StormControlDropSm>(inputs);
}

}  // namespace Orb
