// Storm control: the configuration the interface configuration agent would
// publish (levels per interface), the port speeds the platform would
// publish, the soft chip's meters behind the storm-control
// helper, the storm-control and discard-logging machines, and the commands
// that set levels, show them with their rates and discards, change a port's
// speed, and size or fault the chip's meter table.
#pragma once

#include "Orb/OrbStormControlDropSm.h"
#include "Orb/OrbStormControlSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftStormControl.h"

namespace Agent {

class StormControlFeature : public Feature {
 public:
  // Ports start active at this speed (megabits per second).
  static constexpr std::uint64_t defaultSpeedMbps = 10000;
  static constexpr const char* slicePath = "hardware/stormcontrol/slice";
  static constexpr const char* sliceName = "FixedSystem";

  explicit StormControlFeature(const AgentCore& core);
  ~StormControlFeature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::StormControlSm>& sm() const { return sm_; }
  const Vex::Ptr<Orb::StormControlDropSm>& dropSm() const { return dropSm_; }
  const Vex::Ptr<SoftChip::SoftStormControlHelper>& helper() const { return helper_; }

 private:
  void registerConfigCommands();
  void registerShowCommands();
  void registerChipCommands();
  void levelIs(const Args& args);
  void levelDel(const Args& args);
  void speedIs(const Args& args);

  Vex::Ptr<Bridging::StormControl::Config> config_;
  Vex::Ptr<Bridging::StormControl::Status> status_;
  Vex::Ptr<Interface::EthPhyIntfStatusDir> phyStatus_;
  Vex::Ptr<Hardware::StormControl::SliceStatusDir> slices_;
  Vex::Ptr<SoftChip::SoftStormControlHelper> helper_;
  Vex::Ptr<Orb::StormControlSm> sm_;
  Vex::Ptr<Orb::StormControlDropSm> dropSm_;
};

// "50.00" (hundredths of a percent) as commands take and shows print it.
std::uint32_t stormControlLevelArg(const std::string& text);
std::string stormControlLevelText(std::uint32_t level);

}  // namespace Agent
