// orb-agent's wiring: the event loop, the state database, the shared
// context and the soft chip, then one module per feature (its helpers,
// machines and commands), made in the documented start-up order and torn
// down in reverse.
#pragma once

#include "agent/AclFeature.h"
#include "agent/CommandShell.h"
#include "agent/CoreFeature.h"
#include "agent/FecRequestFeature.h"
#include "agent/Feature.h"
#include "agent/L3Feature.h"
#include "agent/LagFeature.h"
#include "agent/MacFeature.h"
#include "agent/StormControlFeature.h"
#include "agent/MirrorFeature.h"
#include "agent/StpFeature.h"
#include "agent/SubIntfFeature.h"
#include "agent/VlanFeature.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

class Agent {
 public:
  explicit Agent(const Options& options);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  Vex::EventLoop& loop() { return *loop_; }
  Hive::Root& hive() { return *core_.hive; }
  const Vex::Ptr<Orb::OrbCommonSmData>& ocsd() const { return core_.ocsd; }
  SoftChip::SoftChip& chip() { return *core_.chip; }
  CommandShell& shell() { return shell_; }
  SoftChip::SoftVlanHelper& vlanHelper() { return *vlan_->helper(); }
  const Vex::Ptr<Orb::VlanPhyIntfSm>& vlanPhyIntfSm() const { return vlan_->sm(); }
  SoftChip::SoftLagHelper& lagHelper() { return *lag_->helper(); }
  const Vex::Ptr<Orb::LagSm>& lagSm() const { return lag_->sm(); }
  SoftChip::SoftTopoHelper& topoHelper() { return *stp_->helper(); }
  const Vex::Ptr<Orb::StpSm>& stpSm() const { return stp_->sm(); }
  SoftChip::SoftFdbHelper& fdbHelper() { return *mac_->helper(); }
  const Vex::Ptr<Orb::MacAddrSm>& macAddrSm() const { return mac_->sm(); }
  L3Feature& l3() { return *l3_; }
  AclFeature& acl() { return *acl_; }
  StormControlFeature& stormControl() { return *stormControl_; }
  SubIntfFeature& subIntf() { return *subIntf_; }
  MirrorFeature& mirror() { return *mirror_; }
  FecRequestFeature& fecRequests() { return *fecRequests_; }

  // Runs one command line, then lets the loop do what became due.
  void execute(const std::string& line, std::ostream& out);

  // Runs a scenario file, one command a line. On the first error prints
  // "FILE:LINE: message" to `err` and returns 1; 0 when every line ran.
  int runScenario(const std::string& path, std::ostream& out, std::ostream& err);

  // A clean shutdown: saves the learned MAC table to the store, if there is
  // one. Throws Hotup::StoreError when the file cannot be written.
  void shutdown() { mac_->shutdown(); }

  // Reads commands until end of input or `quit`. Errors are reported and the
  // shell goes on. With `interactive`, prompts and keeps line history.
  int runShell(std::istream& in, std::ostream& out, std::ostream& err, bool interactive);

 private:
  // Makes a feature, which starts its machines, and keeps it.
  template <class F, class... Args>
  F* add(Args&... args) {
    auto feature = std::make_unique<F>(core_, args...);
    F* raw = feature.get();
    features_.push_back(std::move(feature));
    return raw;
  }

  std::unique_ptr<Vex::EventLoop> loop_;
  std::shared_ptr<RecentLogSink> logSink_ = std::make_shared<RecentLogSink>();
  CommandShell shell_;
  AgentCore core_;
  Vex::Ptr<OrbHelper::OrbPktSmHelperNull> pktHelper_;
  // In start-up order; they stop in the reverse one.
  std::vector<std::unique_ptr<Feature>> features_;
  VlanFeature* vlan_ = nullptr;
  LagFeature* lag_ = nullptr;
  StpFeature* stp_ = nullptr;
  MacFeature* mac_ = nullptr;
  L3Feature* l3_ = nullptr;
  AclFeature* acl_ = nullptr;
  StormControlFeature* stormControl_ = nullptr;
  SubIntfFeature* subIntf_ = nullptr;
  MirrorFeature* mirror_ = nullptr;
  FecRequestFeature* fecRequests_ = nullptr;
};

}  // namespace Agent
