// The soft chip's storm-control meters behind the storm-control helper: one
// meter per port and level (broadcast, multicast, unknown unicast, or all
// three), each a token bucket on the event loop's time. The table holds at
// most capacity("storm-control") meters; a planned fault or a full table
// refuses a meter and leaves the table as it was. Discards are counted per
// port and level for as long as the chip runs.
//
// A metered frame is taken as 64 bytes. A bucket holds the burst time's
// worth of the rate (at least one frame) and starts full; integer
// arithmetic on nanoseconds keeps the verdicts exact.
#pragma once

#include "Orb/OrbStormControlHelper.h"
#include "chip/softchip/SoftChip.h"
#include "chip/softchip/SoftFrame.h"

#include <cstdint>
#include <map>

namespace SoftChip {

using StormLevel = Bridging::StormControl::LevelType;

struct StormMeterKey {
  Nexo::IntfId port;
  StormLevel level = StormLevel::broadcast;
  auto operator<=>(const StormMeterKey&) const = default;
};
std::string softKeyText(const StormMeterKey& key);

struct HwStormMeter {
  std::uint64_t rateKbps = 0;
  Nexo::IntfId lag;
  // Credit in bits x 10^6 (kb/s x ns), and when it was last topped up.
  std::uint64_t credit = 0;
  std::int64_t lastNs = 0;
  bool primed = false;
};

class SoftStormControlTable : public SoftTableOf<StormMeterKey, HwStormMeter> {
 public:
  static constexpr const char* tableName = "storm-control";
  static constexpr std::uint64_t frameBits = 64 * 8;
  explicit SoftStormControlTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}

  const HwStormMeter* meter(const Nexo::IntfId& port, StormLevel level) const { return find({port, level}); }
  bool metered(const Nexo::IntfId& port) const;
  // The level a frame is metered at: broadcast, multicast, or unknown
  // unicast when the destination is not known.
  static StormLevel frameLevel(const Frame& frame);
  // Whether the frame of `level` arriving on `port` now passes its meter
  // and the port's `all` meter; a frame that does not is counted as a
  // discard of the level that stopped it, which is returned.
  std::optional<StormLevel> discard(const Nexo::IntfId& port, StormLevel level);

  std::uint32_t burstTimeUs() const { return burstTimeUs_; }
  void burstTimeUsIs(std::uint32_t us) { burstTimeUs_ = us ? us : defaultBurstTimeUs; }
  const std::map<Nexo::IntfId, Orb::StormControlDropCounts>& drops() const { return drops_; }
  Orb::StormControlDropCounts dropsOf(const Nexo::IntfId& port) const;

  static constexpr std::uint32_t defaultBurstTimeUs = 10000;

 protected:
  void dumpEntry(JsonWriter& writer, const HwStormMeter& meter) const override;

 private:
  // True when the meter has a frame's credit, which it then spends.
  bool conforms(HwStormMeter& meter, std::int64_t nowNs) const;

  std::uint32_t burstTimeUs_ = defaultBurstTimeUs;
  std::map<Nexo::IntfId, Orb::StormControlDropCounts> drops_;
};

class SoftStormControlHelper : public OrbHelper::StormControlSmHelper {
 public:
  explicit SoftStormControlHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftStormControlHelper() override;

  SoftStormControlTable& table() { return table_; }
  const SoftStormControlTable& table() const { return table_; }
  std::uint64_t refused() const { return refused_; }
  // What the chip says it can do.
  void uucastLevelEnabledIs(bool enabled) { uucastLevel_ = enabled; }
  void allLevelEnabledIs(bool enabled) { allLevel_ = enabled; }
  void burstEnabledIs(bool enabled) { burst_ = enabled; }
  const std::map<std::uint8_t, Threshold>& tcAggregates() const { return tcAggregates_; }
  std::uint64_t verifications() const { return verifications_; }

  void hwInit() override {}
  void installRules() override {}
  bool setHwRate(LevelType levelType, const IntfId& intf, const IntfId& lagIntf, std::uint64_t rate,
                 const Threshold& threshold) override;
  bool programTcAggregateHwRate(std::uint8_t tc, const Threshold& threshold) override;
  void setBurstTime(std::uint32_t burstTime) override { table_.burstTimeUsIs(burstTime); }
  void updateBcastSkipRule(const IntfId&, bool) override {}
  void handleEthPhyIntfLagConfig(const IntfId&) override {}
  bool uucastLevelEnabled() override { return uucastLevel_; }
  bool allLevelEnabled() override { return allLevel_; }
  bool burstEnabled() override { return burst_; }
  Orb::StormControlDropCounts getAllDropCnt(const IntfId& intf) override { return table_.dropsOf(intf); }
  bool verifyEnabled(const IntfId& intf, bool enabled) override;
  bool verifyPort(const IntfId& intf, const IntfId& lagIntf, std::uint64_t rate,
                  const Bridging::StormControl::IntfConfig* intfConfig) override;
  bool verifyAggregateTc(std::uint8_t tc, const Bridging::StormControl::AggregateTcConfig* config) override;

 private:
  Vex::Ptr<SoftChip> chip_;
  SoftStormControlTable table_;
  std::map<std::uint8_t, Threshold> tcAggregates_;
  std::uint64_t refused_ = 0;
  std::uint64_t verifications_ = 0;
  bool uucastLevel_ = true;
  bool allLevel_ = true;
  bool burst_ = true;
};

}  // namespace SoftChip
