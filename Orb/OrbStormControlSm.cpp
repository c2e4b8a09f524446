#include "Orb/OrbStormControlSm.h"

#include "Orb/OrbTrace.h"
#include "platform/vex/TimeSlice.h"

#include <fmt/format.h>

#include <cstdio>

namespace Orb {

using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::IntfStatus;
using Bridging::StormControl::levelTypeName;
using Bridging::StormControl::levelTypes;
using Bridging::StormControl::ThresholdMode;

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbStormControlSm");
  return handle;
}

std::size_t levelIndex(LevelType levelType) { return static_cast<std::size_t>(levelType); }

}  // namespace

void stormControlHelperUnimplemented(const char* operation) {
  orbAssert(fmt::format("false && \"Function {}() must be implemented by derived class\"", operation));
}

std::optional<std::uint64_t> stormControlRate(std::uint64_t speedKbps, std::uint32_t level) {
  if (speedKbps == 0) return std::nullopt;
  return speedKbps * static_cast<std::uint64_t>(level) / 10000;
}

// --- reactors ---

class StormControlSm::VexIntfConfig : public Vex::Reactor<IntfConfig, StormControlSm> {
 public:
  using Reactor::Reactor;
  const IntfId& intf() const { return notifier()->intf(); }
  void handleThreshold(const LevelType& levelType) override {
    react([&] { owner()->handleThreshold(intf(), levelType); });
  }
  // The interface is configured for storm control at some level.
  bool active() const {
    for (const auto& [type, threshold] : notifier()->threshold())
      if (threshold.enabled()) return true;
    return false;
  }
  // The configuration that programs this interface's ports: its own, or
  // its LAG's for a LAG member.
  const IntfConfig* activeConfig() const {
    const IntfId& lag = owner()->ocsd()->portToLag(intf());
    if (lag.empty()) return notifier().get();
    auto config = owner()->in_.config->intfConfig(lag);
    return config.get();
  }
  void updateLevel(LevelType levelType) { owner()->handleThreshold(intf(), levelType); }
  void applyConfig() { owner()->applyConfig(intf()); }
  // The periodic part: levels the chip refused are tried again and the
  // chip is verified against what it should hold.
  void handleTime() {
    if (intf().isLag()) {
      for (const auto& [member, state] : owner()->ocsd()->lagToPort(intf()).ports) {
        owner()->reprogramPort(member);
        owner()->verifyPort(member);
      }
      return;
    }
    owner()->reprogramPort(intf());
    owner()->verifyPort(intf());
  }
};

// Link and speed of every port, as the platform publishes them.
class StormControlSm::VexEthPhyIntfStatus : public Vex::Reactor<Interface::EthPhyIntfStatusDir, StormControlSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(LinkUp, IntfId, handleActive)
  VEX_REACT_KEY(Speed, IntfId, handleSpeed)
};

class StormControlSm::VexAggregateTcConfig
    : public Vex::Reactor<Bridging::StormControl::AggregateTcConfig, StormControlSm> {
 public:
  using Reactor::Reactor;
  std::uint8_t tc() const { return notifier()->tc(); }
  void handleThreshold() override {
    react([this] { owner()->handleAggregateTcConfig(tc()); });
  }
};

class StormControlSm::VexBurstConfig : public Vex::Reactor<Bridging::StormControl::BurstConfig, StormControlSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(BurstTime, handleBurstTime)
};

class StormControlSm::ConfigReactor : public Vex::Reactor<Bridging::StormControl::Config, StormControlSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfConfig, IntfId, handleIntfConfig)
  VEX_REACT_KEY(AggregateTcConfig, std::uint8_t, handleAggregateTcConfig)
};

class StormControlSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, StormControlSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Intf, IntfId, handleIntf)
  VEX_REACT_KEY(PortToLag, IntfId, handlePortToLag)
  VEX_REACT_KEY(LagToPort, IntfId, handleLagToPort)
};

// --- StormControlSm ---

StormControlSm::StormControlSm(const StormControlSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT(in_.orbHelper);
  ORB_ASSERT(in_.config);
  ORB_ASSERT(in_.status);
  ORB_ASSERT(in_.ethPhyIntfStatusDir);
  configReactor_ = std::make_unique<ConfigReactor>(this, in_.config);
  vexPhyStatus_ = std::make_unique<VexEthPhyIntfStatus>(this, in_.ethPhyIntfStatusDir);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, inputs.ocsd);
  vexBurst_ = std::make_unique<VexBurstConfig>(this, in_.config->burstConfig());
  clock_ = Vex::clockFactory([this] { handleTime(); });
  clockIs(clock_);
  initializedIs(true);
}

StormControlSm::~StormControlSm() {
  vexDoZombieReactors(true);
  clock_->timeMinIs(Vex::never);
  vexIntfConfig_.clear();
  vexPhyStatus_.reset();
  vexTc_.clear();
  vexBurst_.reset();
  configReactor_.reset();
  ocsdReactor_.reset();
}

void StormControlSm::handleInitialized() {
  in_.orbHelper->hwInit();
  in_.orbHelper->installRules();
  for (const auto& [port, lag] : ocsd()->portToLag()) lagOf_[port] = lag;
  for (const auto& [intf, config] : in_.config->intfConfig()) handleIntfConfig(intf);
  for (const auto& [tc, config] : in_.config->aggregateTcConfig()) handleAggregateTcConfig(tc);
  handleBurstTime();
  removeOrphanedStatus();
  armClock(Vex::now() + period_);
}

void StormControlSm::periodIs(Vex::Seconds period) {
  period_ = period > 0 ? period : 1.0;
  if (!walkPending_) armClock(Vex::now() + period_);
}

void StormControlSm::armClock(Vex::Seconds when) { clock_->timeMinIs(when); }

bool StormControlSm::knownPort(const IntfId& port) const { return ocsd()->intfHas(port); }

bool StormControlSm::activePort(const IntfId& port) const { return in_.ethPhyIntfStatusDir->linkUp(port); }

std::uint64_t StormControlSm::speedKbps(const IntfId& port) const { return in_.ethPhyIntfStatusDir->speedKbps(port); }

bool StormControlSm::levelSupported(LevelType levelType) {
  if (levelType == LevelType::uucast) return in_.orbHelper->uucastLevelEnabled();
  if (levelType == LevelType::all) return in_.orbHelper->allLevelEnabled();
  return true;
}

void StormControlSm::handleIntfConfig(const IntfId& intf) {
  auto config = in_.config->intfConfig(intf);
  if (config) {
    auto& reactor = vexIntfConfig_[intf];
    if (!reactor || reactor->notifier() != config) reactor = std::make_unique<VexIntfConfig>(this, config);
    if (!intf.isLag() && !knownPort(intf)) {
      BLIP(trace(), 3, "Interface doesn't exists in platform, skip initializing the sm {}", intf.stringValue());
      return;
    }
    applyConfig(intf);
    return;
  }
  if (!vexIntfConfig_.erase(intf)) return;
  BLIP(trace(), 3, "Disabling storm control on {}", intf.stringValue());
  resetStormControlStatusForIntf(intf);
  if (intf.isLag()) {
    for (const auto& [member, state] : ocsd()->lagToPort(intf).ports) reprogramPort(member);
  } else {
    reprogramPort(intf);
  }
}

void StormControlSm::handleThreshold(const IntfId& intf, LevelType levelType) {
  auto config = in_.config->intfConfig(intf);
  if (!config) return;
  const Threshold& threshold = config->threshold(levelType);
  BLIP(trace(), 5, "{} levelType={} percent={}", intf.stringValue(), levelTypeName(levelType), threshold.level);
  if (!intf.isLag() && !knownPort(intf)) {
    BLIP(trace(), 3, "Interface doesn't exists in platform, skip initializing the sm {}", intf.stringValue());
    return;
  }
  applyConfig(intf);
}

void StormControlSm::applyConfig(const IntfId& intf) {
  if (intf.isLag()) {
    BLIP(trace(), 5, "Updating levels for lag {}", intf.stringValue());
    for (const auto& [member, state] : ocsd()->lagToPort(intf).ports) {
      BLIP(trace(), 5, "Programming {} from {} because it is part of a lag, and lag config takes precedence",
           member.stringValue(), intf.stringValue());
      reprogramPort(member);
    }
  } else if (ocsd()->inLag(intf)) {
    BLIP(trace(), 5, "{} is part of a LAG, not updating TCAM rules", intf.stringValue());
  } else {
    reprogramPort(intf);
  }
  updateStatus(intf);
}

StormControlSm::HwLevel StormControlSm::wantedLevel(const IntfId& port, LevelType levelType) {
  HwLevel wanted;
  if (!activePort(port)) return wanted;
  const IntfId& lag = ocsd()->portToLag(port);
  auto config = in_.config->intfConfig(lag.empty() ? port : lag);
  if (!config) return wanted;
  wanted.lag = lag;
  const Threshold& threshold = config->threshold(levelType);
  if (!threshold.enabled() || !levelSupported(levelType)) return HwLevel{};
  if (threshold.mode == ThresholdMode::rate) {
    wanted.threshold = threshold;
    wanted.rate = threshold.rate;
    return wanted;
  }
  // Unknown speed: no meter rather than one of a stale speed.
  auto rate = stormControlRate(speedKbps(port), threshold.level);
  if (!rate) return HwLevel{};
  wanted.threshold = threshold;
  wanted.rate = *rate;
  return wanted;
}

void StormControlSm::reprogramPort(const IntfId& port, bool force) {
  if (!knownPort(port)) return;
  for (LevelType levelType : levelTypes) {
    HwLevel wanted = wantedLevel(port, levelType);
    const HwLevel* held = nullptr;
    if (auto it = hw_.find(port); it != hw_.end()) held = &it->second[levelIndex(levelType)];
    const bool same = held ? (*held == wanted) : !wanted.threshold.enabled();
    if (same && !force) continue;
    setLevel(port, levelType, wanted);
  }
}

void StormControlSm::setLevel(const IntfId& port, LevelType levelType, const HwLevel& wanted) {
  const Threshold& threshold = wanted.threshold;
  if (threshold.mode == ThresholdMode::level) {
    BLIP(trace(), 5, "Setting {} level percent to {} on {} ({} kbps)", levelTypeName(levelType), threshold.level,
         port.stringValue(), wanted.rate);
  } else {
    BLIP(trace(), 5, "Setting {} level threshold to {} on {}", levelTypeName(levelType), wanted.rate,
         port.stringValue());
  }
  const bool ok = in_.orbHelper->setHwRate(levelType, port, wanted.lag, wanted.rate, threshold);
  HwLevel held = wanted;
  held.refused = !ok;
  if (!ok) BLIP(trace(), 2, "{} {} level refused by hardware", port.stringValue(), levelTypeName(levelType));
  auto& levels = hw_[port];
  levels[levelIndex(levelType)] = held;
  // A port with every meter gone is forgotten.
  bool any = false;
  for (const auto& level : levels) any = any || level.threshold.enabled() || level.refused;
  if (!any) hw_.erase(port);
}

void StormControlSm::clearPort(const IntfId& port) {
  auto it = hw_.find(port);
  if (it == hw_.end()) return;
  for (LevelType levelType : levelTypes) {
    if (it->second[levelIndex(levelType)] == HwLevel{}) continue;
    setLevel(port, levelType, HwLevel{});
    it = hw_.find(port);
    if (it == hw_.end()) return;
  }
}

std::uint64_t StormControlSm::rateKbps(const IntfId& intf, const Threshold& threshold) {
  if (threshold.mode == ThresholdMode::rate) return threshold.rate;
  if (!intf.isLag()) return stormControlRate(speedKbps(intf), threshold.level).value_or(0);
  std::uint64_t sum = 0;
  for (const auto& [member, state] : ocsd()->lagToPort(intf).ports) {
    if (!activePort(member)) continue;
    sum += stormControlRate(speedKbps(member), threshold.level).value_or(0);
  }
  return sum;
}

void StormControlSm::updateStatus(const IntfId& intf) {
  auto config = in_.config->intfConfig(intf);
  if (!config) return;
  IntfStatus status;
  // A member's own configuration is not what its ports hold.
  const bool overridden = !intf.isLag() && ocsd()->inLag(intf);
  if (!overridden && (intf.isLag() || knownPort(intf))) {
    for (LevelType levelType : levelTypes) {
      const Threshold& threshold = config->threshold(levelType);
      if (!threshold.enabled() || !levelSupported(levelType)) continue;
      status.level(levelType) = threshold.mode == ThresholdMode::level ? threshold.level : 0;
      status.rate(levelType) = rateKbps(intf, threshold) / 1000;
    }
  }
  in_.status->intfStatusIs(intf, status);
}

void StormControlSm::resetStormControlStatusForIntf(const IntfId& intf) { in_.status->intfStatusDel(intf); }

void StormControlSm::removeOrphanedStatus() {
  std::vector<IntfId> orphans;
  for (const auto& [intf, status] : in_.status->intfStatus())
    if (!in_.config->intfConfigHas(intf)) orphans.push_back(intf);
  for (const auto& intf : orphans) {
    BLIP(trace(), 3, "Removing orphaned status for {}", intf.stringValue());
    in_.status->intfStatusDel(intf);
  }
}

void StormControlSm::handleIntf(const IntfId& port) {
  if (port.isLag()) return;  // a LAG's ports come through portToLag
  if (knownPort(port)) {
    reprogramPort(port);
  } else {
    BLIP(trace(), 3, "Disabling storm control on {}", port.stringValue());
    clearPort(port);
  }
  if (in_.config->intfConfigHas(port)) updateStatus(port);
}

void StormControlSm::handleActive(const IntfId& port) {
  if (activePort(port)) {
    BLIP(trace(), 3, "Interface has become active, reprogram storm control {}", port.stringValue());
    reprogramPort(port, true);
  } else {
    BLIP(trace(), 3, "Interface has become inactive, clear storm control {}", port.stringValue());
    clearPort(port);
  }
  handleSpeed(port);
}

void StormControlSm::handleSpeed(const IntfId& port) {
  reprogramPort(port);
  if (in_.config->intfConfigHas(port)) updateStatus(port);
  const IntfId& lag = ocsd()->portToLag(port);
  if (!lag.empty()) updateStatus(lag);
}

void StormControlSm::handlePortToLag(const IntfId& port) {
  const IntfId lag = ocsd()->portToLag(port);
  IntfId& previous = lagOf_[port];
  const IntfId left = previous;
  previous = lag;
  if (lag.empty()) lagOf_.erase(port);
  if (left == lag) return;
  if (knownPort(port)) in_.orbHelper->handleEthPhyIntfLagConfig(port);
  if (!left.empty() && lag.empty() && in_.config->intfConfigHas(port))
    BLIP(trace(), 3, "Applying config to {} because it left a lag", port.stringValue());
  reprogramPort(port);
  if (in_.config->intfConfigHas(port)) updateStatus(port);
  if (!left.empty()) updateStatus(left);
  if (!lag.empty()) updateStatus(lag);
}

void StormControlSm::handleLagToPort(const IntfId& lag) {
  // Members come and go through portToLag; the LAG's sum follows here.
  updateStatus(lag);
}

void StormControlSm::handleAggregateTcConfig(std::uint8_t tc) {
  auto config = in_.config->aggregateTcConfig(tc);
  if (!config) {
    vexTc_.erase(tc);
    in_.orbHelper->programTcAggregateHwRate(tc, Threshold{});
    return;
  }
  auto& reactor = vexTc_[tc];
  if (!reactor || reactor->notifier() != config) reactor = std::make_unique<VexAggregateTcConfig>(this, config);
  if (!in_.orbHelper->programTcAggregateHwRate(tc, config->threshold()))
    BLIP(trace(), 2, "traffic class {} aggregate refused by hardware", tc);
}

void StormControlSm::handleBurstTime() {
  if (!in_.orbHelper->burstEnabled()) return;
  in_.orbHelper->setBurstTime(in_.config->burstConfig()->burstTime());
}

void StormControlSm::verifyPort(const IntfId& port) {
  if (!knownPort(port)) return;
  const IntfId& lag = ocsd()->portToLag(port);
  const IntfConfig* config = nullptr;
  if (!lag.empty()) {
    BLIP(trace(), 7, "Verify storm-control config matches the LAG's config and not the individual config {}",
         port.stringValue());
    config = in_.config->intfConfig(lag).get();
    if (!config) BLIP(trace(), 7, "There is no LAG storm-control config, make sure storm-control is disabled");
  } else {
    config = in_.config->intfConfig(port).get();
  }
  const bool enabled = hw_.count(port) != 0;
  bool ok = in_.orbHelper->verifyEnabled(port, enabled);
  if (ok && enabled) ok = in_.orbHelper->verifyPort(port, lag, speedKbps(port), config);
  if (ok) return;
  BLIP(trace(), 2, "{} differs from hardware, reprogramming", port.stringValue());
  reprogramPort(port, true);
}

void StormControlSm::handleTime() {
  if (!in_.orbHelper->burstEnabled()) {
    walkPending_ = false;
    armClock(Vex::now() + period_);
    return;
  }
  ++slices_;
  const Vex::Seconds start = Vex::now();
  Vex::TimeSlice slice("storm control walk", quantum_);
  auto it = walkPending_ ? vexIntfConfig_.lower_bound(bookmark_) : vexIntfConfig_.begin();
  std::size_t done = 0;
  for (; it != vexIntfConfig_.end(); ++it) {
    if (done == sliceIntfs_ || (done && Vex::now() - start >= quantum_)) break;
    it->second->handleTime();
    slice.itemDone();
    ++done;
  }
  if (it != vexIntfConfig_.end()) {
    bookmark_ = it->first;
    walkPending_ = true;
    armClock(Vex::now());
    return;
  }
  walkPending_ = false;
  armClock(Vex::now() + period_);
}

Vex::Ptr<StormControlSm> stormControlSmFactory(const StormControlSmInputs& inputs) {
  return Vex::make<StormControlSm>(inputs);
}

// --- mounting ---

StormControlMounter::StormControlMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                                         const Vex::Ptr<OrbHelper::StormControlSmHelper>& orbHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
}

void StormControlMounter::doMounts() {
  inputs_.config = hive_->mount<Bridging::StormControl::Config>(configPath, "stormControlConfig");
  inputs_.status = hive_->mount<Bridging::StormControl::Status>(statusPath, "stormControlStatus");
  inputs_.ethPhyIntfStatusDir = hive_->mount<Interface::EthPhyIntfStatusDir>(ethPhyIntfStatusPath, "ethPhyIntfStatus");
}

Vex::Ptr<StormControlSm> StormControlMounter::doMountsComplete() { return stormControlSmFactory(inputs_); }

}  // namespace Orb
