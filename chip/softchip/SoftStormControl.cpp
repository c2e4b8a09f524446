#include "chip/softchip/SoftStormControl.h"

#include "platform/vex/Time.h"

#include <algorithm>
#include <cmath>

namespace SoftChip {

using Bridging::StormControl::levelTypeName;
using Bridging::StormControl::ThresholdMode;

std::string softKeyText(const StormMeterKey& key) { return key.port.stringValue() + " " + levelTypeName(key.level); }

bool SoftStormControlTable::metered(const Nexo::IntfId& port) const {
  auto it = entries.lower_bound({port, StormLevel::uucast});
  return it != entries.end() && it->first.port == port;
}

StormLevel SoftStormControlTable::frameLevel(const Frame& frame) {
  if (frame.dst.isBroadcast()) return StormLevel::broadcast;
  if (frame.dst.isMulticast()) return StormLevel::multicast;
  return StormLevel::uucast;
}

bool SoftStormControlTable::conforms(HwStormMeter& meter, std::int64_t nowNs) const {
  if (meter.rateKbps == 0) return false;  // a zero level lets nothing through
  const std::uint64_t burstNs = std::uint64_t{burstTimeUs_} * 1000;
  const std::uint64_t cost = frameBits * 1000000;
  const std::uint64_t depth = std::max(meter.rateKbps * burstNs, cost);
  if (!meter.primed) {
    meter.credit = depth;
    meter.primed = true;
  } else if (nowNs > meter.lastNs) {
    // Past one burst time the bucket is full anyway; the bound keeps the
    // product within 64 bits.
    const auto elapsed = std::min<std::uint64_t>(static_cast<std::uint64_t>(nowNs - meter.lastNs), burstNs + 1);
    meter.credit = std::min(depth, meter.credit + elapsed * meter.rateKbps);
  }
  meter.lastNs = std::max(meter.lastNs, nowNs);
  if (meter.credit < cost) return false;
  meter.credit -= cost;
  return true;
}

std::optional<StormLevel> SoftStormControlTable::discard(const Nexo::IntfId& port, StormLevel level) {
  if (entries.empty()) return std::nullopt;
  const auto nowNs = static_cast<std::int64_t>(std::llround(Vex::now() * 1e9));
  std::optional<StormLevel> stopped;
  if (HwStormMeter* own = find({port, level}); own && !conforms(*own, nowNs)) stopped = level;
  if (!stopped) {
    if (HwStormMeter* all = find({port, StormLevel::all}); all && !conforms(*all, nowNs)) stopped = StormLevel::all;
  }
  if (!stopped) return std::nullopt;
  auto& counts = drops_[port];
  switch (*stopped) {
    case StormLevel::uucast:
      ++counts.uucast;
      break;
    case StormLevel::broadcast:
      ++counts.broadcast;
      break;
    case StormLevel::multicast:
      ++counts.multicast;
      break;
    case StormLevel::all:
      ++counts.all;
      break;
  }
  return stopped;
}

Orb::StormControlDropCounts SoftStormControlTable::dropsOf(const Nexo::IntfId& port) const {
  auto it = drops_.find(port);
  return it == drops_.end() ? Orb::StormControlDropCounts{} : it->second;
}

void SoftStormControlTable::dumpEntry(JsonWriter& writer, const HwStormMeter& meter) const {
  writer.StartObject();
  writer.Key("rateKbps");
  writer.Uint64(meter.rateKbps);
  writer.Key("lag");
  writer.String(meter.lag.stringValue().c_str());
  writer.EndObject();
}

SoftStormControlHelper::SoftStormControlHelper(const Vex::Ptr<SoftChip>& chip)
    : StormControlSmHelper("SoftStormControlHelper"), chip_(chip), table_(*chip) {}

SoftStormControlHelper::~SoftStormControlHelper() = default;

bool SoftStormControlHelper::setHwRate(LevelType levelType, const IntfId& intf, const IntfId& lagIntf,
                                       std::uint64_t rate, const Threshold& threshold) {
  const StormMeterKey key{intf, levelType};
  if (!threshold.enabled()) {
    table_.entries.erase(key);
    return true;
  }
  HwStormMeter* meter = table_.find(key);
  if (table_.admit(meter == nullptr) != Fault::none) {
    ++refused_;
    return false;
  }
  if (!meter) meter = &table_.entries[key];
  if (meter->rateKbps != rate) meter->primed = false;  // a new rate starts with a full bucket
  meter->rateKbps = rate;
  meter->lag = lagIntf;
  return true;
}

bool SoftStormControlHelper::programTcAggregateHwRate(std::uint8_t tc, const Threshold& threshold) {
  if (!threshold.enabled()) {
    tcAggregates_.erase(tc);
    return true;
  }
  if (table_.nextFault() != Fault::none) {
    ++refused_;
    return false;
  }
  tcAggregates_[tc] = threshold;
  return true;
}

bool SoftStormControlHelper::verifyEnabled(const IntfId& intf, bool enabled) {
  ++verifications_;
  return table_.metered(intf) == enabled;
}

bool SoftStormControlHelper::verifyPort(const IntfId& intf, const IntfId& lagIntf, std::uint64_t rate,
                                        const Bridging::StormControl::IntfConfig* intfConfig) {
  ++verifications_;
  for (LevelType levelType : Bridging::StormControl::levelTypes) {
    const HwStormMeter* meter = table_.meter(intf, levelType);
    std::optional<std::uint64_t> expected;
    const Threshold threshold = intfConfig ? intfConfig->threshold(levelType) : Threshold{};
    const bool supported =
        (levelType != LevelType::uucast || uucastLevel_) && (levelType != LevelType::all || allLevel_);
    if (threshold.mode == ThresholdMode::rate && supported) expected = threshold.rate;
    if (threshold.mode == ThresholdMode::level && supported && rate)
      expected = rate * std::uint64_t{threshold.level} / 10000;
    if (!expected) {
      if (meter) return false;
      continue;
    }
    if (!meter || meter->rateKbps != *expected || meter->lag != lagIntf) return false;
  }
  return true;
}

bool SoftStormControlHelper::verifyAggregateTc(std::uint8_t tc,
                                               const Bridging::StormControl::AggregateTcConfig* config) {
  auto it = tcAggregates_.find(tc);
  if (!config || !config->threshold().enabled()) return it == tcAggregates_.end();
  return it != tcAggregates_.end() && it->second == config->threshold();
}

}  // namespace SoftChip
