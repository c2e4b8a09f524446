#include "agent/StormControlFeature.h"

#include <fmt/format.h>

#include <charconv>

namespace Agent {

StormControlFeature::StormControlFeature(const AgentCore& core) : Feature(core) {
  helper_ = Vex::make<SoftChip::SoftStormControlHelper>(chip_);
  Orb::StormControlMounter mounter(hive_, ocsd_, helper_);
  mounter.doMounts();
  config_ = mounter.inputs().config;
  status_ = mounter.inputs().status;
  phyStatus_ = mounter.inputs().ethPhyIntfStatusDir;
  // The platform's part: every front-panel port is up at the default speed
  // and sits on the chip's one slice.
  slices_ = hive_->mount<Hardware::StormControl::SliceStatusDir>(slicePath, "stormControlSlices");
  auto slice = slices_->sliceStatusIs(sliceName);
  for (const auto& [intf, managed] : ocsd_->intf()) {
    if (!intf.isEthernet()) continue;
    if (!phyStatus_->linkUpHas(intf)) phyStatus_->linkUpIs(intf, true);
    if (!phyStatus_->speedHas(intf)) phyStatus_->speedIs(intf, defaultSpeedMbps);
    slice->intfIs(intf);
  }
  slice->stormControlSupportedIs(true);
  slice->dropCountSupportedIs(true);
  slice->allLevelSupportedIs(true);
  slice->uucastLevelSupportedIs(true);
  slice->bpsSupportedIs(true);
  slice->zeroRateSupportedIs(true);
  sm_ = mounter.doMountsComplete();
  dropSm_ = Orb::stormControlDropSmFactory({ocsd_, helper_, slices_});
}

StormControlFeature::~StormControlFeature() {
  dropSm_.reset();
  sm_.reset();
  helper_.reset();
}

void StormControlFeature::registerCommands() {
  registerConfigCommands();
  registerShowCommands();
  registerChipCommands();
}

std::uint32_t stormControlLevelArg(const std::string& text) {
  const std::string error = "a level is a percentage from 0 to 100 with at most two decimals, not '" + text + "'";
  const auto dot = text.find('.');
  const std::string whole = text.substr(0, dot);
  std::string fraction = dot == std::string::npos ? "" : text.substr(dot + 1);
  if (whole.empty() || whole.size() > 3 || fraction.size() > 2 || (dot != std::string::npos && fraction.empty()))
    throw CommandError(error);
  fraction.resize(2, '0');
  std::uint32_t percent = 0;
  std::uint32_t hundredths = 0;
  auto digits = [](const std::string& part, std::uint32_t& value) {
    auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
    return ec == std::errc() && end == part.data() + part.size();
  };
  if (!digits(whole, percent) || !digits(fraction, hundredths)) throw CommandError(error);
  const std::uint32_t level = percent * 100 + hundredths;
  if (level > Bridging::StormControl::Threshold::maxLevel) throw CommandError(error);
  return level;
}

std::string stormControlLevelText(std::uint32_t level) { return fmt::format("{}.{:02}", level / 100, level % 100); }

}  // namespace Agent
