// Storm control as the configuration agent publishes it (per-interface
// thresholds, traffic-class aggregates, the burst setting), the status the
// forwarding layer writes back (levels and rates per interface), and the
// chip's per-slice capabilities.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>

namespace Bridging::StormControl {

// The kinds of traffic a threshold limits. `all` limits the three together.
enum class LevelType : std::uint8_t { uucast, broadcast, multicast, all };
BOOST_DESCRIBE_ENUM(LevelType, uucast, broadcast, multicast, all)
inline constexpr LevelType levelTypes[] = {LevelType::uucast, LevelType::broadcast, LevelType::multicast,
                                           LevelType::all};
// "uucast", "broadcast", "multicast", "all".
inline const char* levelTypeName(LevelType type) {
  switch (type) {
    case LevelType::uucast:
      return "uucast";
    case LevelType::broadcast:
      return "broadcast";
    case LevelType::multicast:
      return "multicast";
    case LevelType::all:
      return "all";
  }
  return "?";
}

// How a threshold is given: not at all, as a level of the interface's
// speed, or as an absolute rate that is handed to the chip as configured.
enum class ThresholdMode : std::uint8_t { disabled, level, rate };
BOOST_DESCRIBE_ENUM(ThresholdMode, disabled, level, rate)

struct Threshold {
  static constexpr std::uint32_t maxLevel = 10000;  // 100.00 percent
  ThresholdMode mode = ThresholdMode::disabled;
  std::uint32_t level = 0;  // hundredths of a percent, for `level`
  std::uint64_t rate = 0;   // kilobits per second, for `rate`
  bool enabled() const { return mode != ThresholdMode::disabled; }
  auto operator<=>(const Threshold&) const = default;
};
VEX_VALUE(Threshold, "Bridging::StormControl::Threshold", (mode, level, rate))

class IntfConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<IntfConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Threshold, LevelType)
  };
  explicit IntfConfig(const Nexo::IntfId& intf) : Entity(intf.stringValue()), intf_(intf) {}
  const Nexo::IntfId& intf() const { return intf_; }
  // A level type without an entry is disabled.
  VEX_ORDERED_COLLECTION(LevelType, Threshold, threshold, Threshold)

 private:
  Nexo::IntfId intf_;
};

// A traffic-class aggregate: one threshold shared by the traffic class.
class AggregateTcConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AggregateTcConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Threshold)
  };
  explicit AggregateTcConfig(std::uint8_t tc) : Entity("tc" + std::to_string(tc)), tc_(tc) {}
  std::uint8_t tc() const { return tc_; }
  VEX_ATTR(Threshold, threshold, Threshold)

 private:
  std::uint8_t tc_;
};

class BurstConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<BurstConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(BurstTime)
  };
  using Entity::Entity;
  // Microseconds of traffic at the rate a meter lets through at once; 0
  // leaves the chip's default.
  VEX_ATTR(std::uint32_t, burstTime, BurstTime, 0)
};

class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfConfig, Nexo::IntfId)
    VEX_KEY_HANDLER(AggregateTcConfig, std::uint8_t)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, Vex::Ptr<IntfConfig>, intfConfig, IntfConfig)
  VEX_OWNED_MEMBERS(Nexo::IntfId, IntfConfig, intfConfig)
  VEX_ORDERED_COLLECTION(std::uint8_t, Vex::Ptr<AggregateTcConfig>, aggregateTcConfig, AggregateTcConfig)
  VEX_OWNED_MEMBERS(std::uint8_t, AggregateTcConfig, aggregateTcConfig)
  const Vex::Ptr<BurstConfig>& burstConfig() const { return burstConfig_; }

 private:
  Vex::Ptr<BurstConfig> burstConfig_ = Vex::make<BurstConfig>("burstConfig");
};

// Levels in hundredths of a percent, rates in megabits per second.
struct IntfStatus {
  std::uint32_t uucastLevel = 0;
  std::uint64_t uucastRate = 0;
  std::uint32_t broadcastLevel = 0;
  std::uint64_t broadcastRate = 0;
  std::uint32_t multicastLevel = 0;
  std::uint64_t multicastRate = 0;
  std::uint32_t allLevel = 0;
  std::uint64_t allRate = 0;

  std::uint32_t& level(LevelType type);
  std::uint64_t& rate(LevelType type);
  std::uint32_t level(LevelType type) const { return const_cast<IntfStatus*>(this)->level(type); }
  std::uint64_t rate(LevelType type) const { return const_cast<IntfStatus*>(this)->rate(type); }
  auto operator<=>(const IntfStatus&) const = default;
};
VEX_VALUE(IntfStatus, "Bridging::StormControl::IntfStatus",
          (uucastLevel, uucastRate, broadcastLevel, broadcastRate, multicastLevel, multicastRate, allLevel, allRate))

inline std::uint32_t& IntfStatus::level(LevelType type) {
  switch (type) {
    case LevelType::uucast:
      return uucastLevel;
    case LevelType::broadcast:
      return broadcastLevel;
    case LevelType::multicast:
      return multicastLevel;
    case LevelType::all:
      break;
  }
  return allLevel;
}

inline std::uint64_t& IntfStatus::rate(LevelType type) {
  switch (type) {
    case LevelType::uucast:
      return uucastRate;
    case LevelType::broadcast:
      return broadcastRate;
    case LevelType::multicast:
      return multicastRate;
    case LevelType::all:
      break;
  }
  return allRate;
}

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfStatus, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, IntfStatus, intfStatus, IntfStatus)
};

}  // namespace Bridging::StormControl

namespace Hardware::StormControl {

// What one slice of the chip can do for storm control, and its ports.
class SliceStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SliceStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(StormControlSupported)
    VEX_HANDLER(DropCountSupported)
    VEX_HANDLER(AllLevelSupported)
    VEX_HANDLER(UucastLevelSupported)
    VEX_HANDLER(PpsSupported)
    VEX_HANDLER(BpsSupported)
    VEX_HANDLER(ZeroRateSupported)
    VEX_KEY_HANDLER(Intf, Nexo::IntfId)
  };
  explicit SliceStatus(const std::string& slice) : Entity(slice) {}
  VEX_ATTR(bool, stormControlSupported, StormControlSupported, false)
  VEX_ATTR(bool, dropCountSupported, DropCountSupported, false)
  VEX_ATTR(bool, allLevelSupported, AllLevelSupported, false)
  VEX_ATTR(bool, uucastLevelSupported, UucastLevelSupported, false)
  VEX_ATTR(bool, ppsSupported, PpsSupported, false)
  VEX_ATTR(bool, bpsSupported, BpsSupported, false)
  VEX_ATTR(bool, zeroRateSupported, ZeroRateSupported, false)
  VEX_SET(Nexo::IntfId, intf, Intf)
};

class SliceStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SliceStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(SliceStatus, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<SliceStatus>, sliceStatus, SliceStatus)
  VEX_OWNED_MEMBERS(std::string, SliceStatus, sliceStatus)
};

}  // namespace Hardware::StormControl
