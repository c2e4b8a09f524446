// Storm-control discard logging: one machine per chip slice follows the
// slice's capabilities and, where it counts discards, keeps one machine per
// port that reads the port's discard counts on a timer and logs the
// discards since its last look ("StormControlDropLog").
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbStormControlHelper.h"
#include "platform/hive/Hive.h"
#include "platform/model/StormControl.h"

#include <map>
#include <memory>

namespace Orb {

struct StormControlDropSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::StormControlSmHelper> orbHelper;
  Vex::Ptr<Hardware::StormControl::SliceStatusDir> sliceStatusDir;
};

// One port's discards: what was counted at the last look.
class StormControlDropIntfSm {
 public:
  StormControlDropIntfSm(const Nexo::IntfId& intf, const Vex::Ptr<OrbHelper::StormControlSmHelper>& helper);
  const Nexo::IntfId& intf() const { return intf_; }
  const StormControlDropCounts& lastCounts() const { return last_; }
  // Reads the counts and logs the discards since the last look, if any.
  void handleTime();

 private:
  Nexo::IntfId intf_;
  Vex::Ptr<OrbHelper::StormControlSmHelper> helper_;
  StormControlDropCounts last_;
};

class StormControlDropSliceSm : public OrbBaseSm {
 public:
  StormControlDropSliceSm(const Vex::Ptr<OrbCommonSmData>& ocsd,
                          const Vex::Ptr<OrbHelper::StormControlSmHelper>& helper,
                          const Vex::Ptr<Hardware::StormControl::SliceStatus>& slice, Vex::Seconds interval);
  ~StormControlDropSliceSm() override;
  const char* fwkType() const override { return "Orb::StormControlDropSliceSm"; }

  // True when the slice meters storm control and counts its discards.
  bool counting() const;
  const std::map<Nexo::IntfId, std::unique_ptr<StormControlDropIntfSm>>& intfSm() const { return intfSm_; }
  void intervalIs(Vex::Seconds interval);

  void handleInitialized() override;
  void handleCapabilities();
  void handleIntf(const Nexo::IntfId& intf);
  void handleTime();

 private:
  class VexSliceStatus;
  Vex::Ptr<OrbHelper::StormControlSmHelper> helper_;
  Vex::Ptr<Hardware::StormControl::SliceStatus> slice_;
  std::unique_ptr<VexSliceStatus> reactor_;
  std::map<Nexo::IntfId, std::unique_ptr<StormControlDropIntfSm>> intfSm_;
  Vex::Ptr<Vex::Clock> clock_;
  Vex::Seconds interval_;
};

class StormControlDropSm : public OrbBaseSm {
 public:
  explicit StormControlDropSm(const StormControlDropSmInputs& inputs);
  ~StormControlDropSm() override;
  const char* fwkType() const override { return "Orb::StormControlDropSm"; }

  // Seconds between two looks at the discard counts.
  Vex::Seconds logInterval() const { return logInterval_; }
  void logIntervalIs(Vex::Seconds interval);
  const std::map<std::string, Vex::Ptr<StormControlDropSliceSm>>& sliceSm() const { return sliceSm_; }

  void handleInitialized() override;
  void handleSliceStatus(const std::string& slice);

 private:
  class DirReactor;
  StormControlDropSmInputs in_;
  std::unique_ptr<DirReactor> dirReactor_;
  std::map<std::string, Vex::Ptr<StormControlDropSliceSm>> sliceSm_;
  Vex::Seconds logInterval_ = 10.0;
};

Vex::Ptr<StormControlDropSm> stormControlDropSmFactory(const StormControlDropSmInputs& inputs);

}  // namespace Orb
