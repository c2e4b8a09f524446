// Storm control: turns the configured thresholds of each interface into
// per-port meter rates, programs them through the storm-control helper and
// publishes the levels and rates as status.
//
// A level is hundredths of a percent of the port's operational speed; the
// rate is speed (kb/s) x level / 10000 in 64-bit integers, uncomputed while
// the speed is unknown. A LAG's configuration takes precedence over its
// members' own: each member is metered at its share of the LAG's level and
// the LAG's status rate is the sum over the members that are active. A port
// that leaves its LAG gets its own configuration back. An inactive port
// holds no meters. A level the chip refused is retried by the periodic
// work, which also verifies each interface against the chip.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbMacAddrSmInputs.h"
#include "Orb/OrbStormControlHelper.h"
#include "platform/hive/Hive.h"
#include "platform/model/MacModels.h"
#include "platform/model/StormControl.h"

#include <array>
#include <map>
#include <memory>

namespace Orb {

// What the storm-control machine reads and writes, filled by
// StormControlMounter from the state database or by the caller.
struct StormControlSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::StormControlSmHelper> orbHelper;
  Vex::Ptr<Bridging::StormControl::Config> config;
  Vex::Ptr<Bridging::StormControl::Status> status;
  Vex::Ptr<Interface::EthPhyIntfStatusDir> ethPhyIntfStatusDir;
};

// The kilobits per second `level` (hundredths of a percent) allows on a
// port of `speedKbps`; none while the speed is unknown.
std::optional<std::uint64_t> stormControlRate(std::uint64_t speedKbps, std::uint32_t level);

class StormControlSm : public OrbBaseSm {
 public:
  using IntfId = Nexo::IntfId;
  using Threshold = Bridging::StormControl::Threshold;

  // What one level of one port holds in hardware, as last programmed.
  struct HwLevel {
    Threshold threshold;
    std::uint64_t rate = 0;
    IntfId lag;
    bool refused = false;
    bool operator==(const HwLevel&) const = default;
  };
  using HwLevels = std::array<HwLevel, 4>;

  explicit StormControlSm(const StormControlSmInputs& inputs);
  ~StormControlSm() override;
  const char* fwkType() const override { return "Orb::StormControlSm"; }

  const Vex::Ptr<OrbHelper::StormControlSmHelper>& orbHelper() const { return in_.orbHelper; }

  // The periodic work: every `period` seconds a walk over the configured
  // interfaces, cut into slices of at most `quantum` seconds and
  // `sliceIntfs` interfaces.
  Vex::Seconds period() const { return period_; }
  void periodIs(Vex::Seconds period);
  Vex::Seconds quantum() const { return quantum_; }
  void quantumIs(Vex::Seconds quantum) { quantum_ = quantum; }
  std::size_t sliceIntfs() const { return sliceIntfs_; }
  void sliceIntfsIs(std::size_t intfs) { sliceIntfs_ = intfs ? intfs : 1; }
  // True while a walk is between slices.
  bool walkPending() const { return walkPending_; }
  std::uint64_t slices() const { return slices_; }

  // What each port holds in hardware, as last programmed.
  const std::map<IntfId, HwLevels>& hwLevels() const { return hw_; }

  void handleInitialized() override;
  void handleIntfConfig(const IntfId& intf);
  void handleThreshold(const IntfId& intf, LevelType levelType);
  // The platform gained or lost the port.
  void handleIntf(const IntfId& port);
  void handleActive(const IntfId& port);
  void handleSpeed(const IntfId& port);
  void handlePortToLag(const IntfId& port);
  void handleLagToPort(const IntfId& lag);
  void handleAggregateTcConfig(std::uint8_t tc);
  void handleBurstTime();
  // One slice of the periodic walk; re-arms the clock to go on.
  void handleTime();

  // Programs `intf` (a port, or each member of a LAG) from the configuration
  // that applies to it, and refreshes the status.
  void applyConfig(const IntfId& intf);
  void resetStormControlStatusForIntf(const IntfId& intf);

 private:
  class VexIntfConfig;
  class VexEthPhyIntfStatus;
  class VexAggregateTcConfig;
  class VexBurstConfig;
  class ConfigReactor;
  class OcsdReactor;

  bool knownPort(const IntfId& port) const;
  bool activePort(const IntfId& port) const;
  std::uint64_t speedKbps(const IntfId& port) const;
  bool levelSupported(LevelType levelType);
  // What `port` should hold at `levelType`, from the configuration that
  // applies to it.
  HwLevel wantedLevel(const IntfId& port, LevelType levelType);
  // Brings the port's meters to what they should be; `force` rewrites
  // levels that look right.
  void reprogramPort(const IntfId& port, bool force = false);
  void clearPort(const IntfId& port);
  void setLevel(const IntfId& port, LevelType levelType, const HwLevel& wanted);
  void updateStatus(const IntfId& intf);
  // The status rate in kb/s of a configured interface at a level.
  std::uint64_t rateKbps(const IntfId& intf, const Threshold& threshold);
  // Verifies what the chip holds for `port`; a difference rewrites it.
  void verifyPort(const IntfId& port);
  void removeOrphanedStatus();
  void armClock(Vex::Seconds when);

  StormControlSmInputs in_;
  std::map<IntfId, HwLevels> hw_;
  // The LAG each port was last seen in, to know which LAG it left.
  std::map<IntfId, IntfId> lagOf_;
  std::map<IntfId, std::unique_ptr<VexIntfConfig>> vexIntfConfig_;
  std::unique_ptr<VexEthPhyIntfStatus> vexPhyStatus_;
  std::map<std::uint8_t, std::unique_ptr<VexAggregateTcConfig>> vexTc_;
  std::unique_ptr<VexBurstConfig> vexBurst_;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
  Vex::Ptr<Vex::Clock> clock_;
  Vex::Seconds period_ = 1.0;
  Vex::Seconds quantum_ = 0.002;
  std::size_t sliceIntfs_ = 128;
  // The walk resumes at the first configured interface not below this; the
  // map is ordered, so the bookmark survives configuration changes.
  IntfId bookmark_;
  bool walkPending_ = false;
  std::uint64_t slices_ = 0;
};

Vex::Ptr<StormControlSm> stormControlSmFactory(const StormControlSmInputs& inputs);

// Mounts the storm-control machine's inputs from the state database.
class StormControlMounter {
 public:
  StormControlMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                      const Vex::Ptr<OrbHelper::StormControlSmHelper>& orbHelper);
  void doMounts();
  StormControlSmInputs& inputs() { return inputs_; }
  Vex::Ptr<StormControlSm> doMountsComplete();

  static constexpr const char* configPath = "bridging/stormcontrol/config";
  static constexpr const char* statusPath = "bridging/stormcontrol/status";
  static constexpr const char* ethPhyIntfStatusPath = MacAddrSmMounter::ethPhyIntfStatusPath;

 private:
  Vex::Ptr<Hive::Root> hive_;
  StormControlSmInputs inputs_;
};

}  // namespace Orb
