// The storm-control helper: what a chip layer implements so that the
// storm-control machines can program meters and read their discards. An
// operation a chip layer leaves out fails a fatal assertion that names it:
// storm control silently missing from hardware is worse than stopping.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "platform/model/StormControl.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Value.h"

#include <cstdint>
#include <string>

namespace Orb {

using LevelType = Bridging::StormControl::LevelType;

// Discards of one port since the chip started counting, per level type.
struct StormControlDropCounts {
  std::uint64_t uucast = 0;
  std::uint64_t broadcast = 0;
  std::uint64_t multicast = 0;
  std::uint64_t all = 0;
  auto operator<=>(const StormControlDropCounts&) const = default;
};
VEX_VALUE(StormControlDropCounts, "Orb::StormControlDropCounts", (uucast, broadcast, multicast, all))

// Stops with "false && \"Function NAME() must be implemented by derived class\"".
[[noreturn]] void stormControlHelperUnimplemented(const char* operation);

}  // namespace Orb

namespace OrbHelper {

class StormControlSmHelper : public Orb::OrbBaseHelper {
 public:
  using IntfId = Nexo::IntfId;
  using LevelType = Orb::LevelType;
  using Threshold = Bridging::StormControl::Threshold;

  explicit StormControlSmHelper(const std::string& name = "StormControlSmHelper") : OrbBaseHelper(name) {}

  virtual void hwInit() { Orb::stormControlHelperUnimplemented("hwInit"); }
  virtual void installRules() { Orb::stormControlHelperUnimplemented("installRules"); }
  // Programs one level of one port: `rate` is the kilobits per second the
  // port may pass at that level (for a LAG member, its share of the LAG's
  // rate, `lagIntf` naming the LAG; empty otherwise). A disabled threshold
  // takes the meter away. False when the chip refused.
  virtual bool setHwRate(LevelType, const IntfId& /*intf*/, const IntfId& /*lagIntf*/, std::uint64_t /*rate*/,
                         const Threshold&) {
    Orb::stormControlHelperUnimplemented("setHwRate");
  }
  virtual bool programTcAggregateHwRate(std::uint8_t /*tc*/, const Threshold&) {
    Orb::stormControlHelperUnimplemented("programTcAggregateHwRate");
  }
  // Burst time in microseconds; only called when burstEnabled().
  virtual void setBurstTime(std::uint32_t /*burstConfig*/) { Orb::stormControlHelperUnimplemented("setBurstTime"); }
  virtual void updateBcastSkipRule(const IntfId&, bool /*enable*/) {
    Orb::stormControlHelperUnimplemented("updateBcastSkipRule");
  }
  virtual void handleEthPhyIntfLagConfig(const IntfId&) {
    Orb::stormControlHelperUnimplemented("handleEthPhyIntfLagConfig");
  }
  virtual bool uucastLevelEnabled() { Orb::stormControlHelperUnimplemented("uucastLevelEnabled"); }
  virtual bool allLevelEnabled() { Orb::stormControlHelperUnimplemented("allLevelEnabled"); }
  virtual bool burstEnabled() { Orb::stormControlHelperUnimplemented("burstEnabled"); }
  virtual Orb::StormControlDropCounts getAllDropCnt(const IntfId&) {
    Orb::stormControlHelperUnimplemented("getAllDropCnt");
  }
  // Verification: true when the chip holds what it is given. For a port,
  // `rate` is the speed in kilobits per second that the levels of
  // `intfConfig` (the LAG's for a member) apply to.
  virtual bool verifyEnabled(const IntfId&, bool /*enabled*/) { Orb::stormControlHelperUnimplemented("verifyEnabled"); }
  virtual bool verifyPort(const IntfId&, const IntfId& /*lagIntf*/, std::uint64_t /*rate*/,
                          const Bridging::StormControl::IntfConfig*) {
    Orb::stormControlHelperUnimplemented("verifyPort");
  }
  virtual bool verifyAggregateTc(std::uint8_t /*tc*/, const Bridging::StormControl::AggregateTcConfig*) {
    Orb::stormControlHelperUnimplemented("verifyAggregateTc");
  }
};

}  // namespace OrbHelper
