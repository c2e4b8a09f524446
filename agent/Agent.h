// orb-agent's wiring: the event loop, the state database, the shared
// context, the soft chip and its helpers, and the feature state machines,
// made in that order through their factories and torn down in reverse.
#pragma once

#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbLagSm.h"
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbStpSm.h"
#include "Orb/OrbVlanPhyIntfSm.h"
#include "agent/CommandShell.h"
#include "agent/DefaultTopology.h"
#include "chip/softchip/SoftChip.h"
#include "chip/softchip/SoftFdb.h"
#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftStp.h"
#include "chip/softchip/SoftVlan.h"
#include "platform/hive/Hive.h"
#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <deque>
#include <iosfwd>
#include <memory>
#include <string>

namespace Agent {

struct Options {
  // Run on the monotonic clock instead of simulated time.
  bool realTime = false;
  // Front-panel ports of the soft chip: Ethernet1 to EthernetN.
  unsigned ports = 48;
  // Where the learned MAC table is kept across restarts; empty for nowhere.
  std::string macStorePath;
};

// State-database paths the agent mounts.
namespace Paths {
inline constexpr const char* bridgingConfig = Orb::MacAddrSmMounter::bridgingConfigPath;
inline constexpr const char* vlanPhyIntfStatus = "bridging/vlan/phyIntfStatus";
inline constexpr const char* dynamicExpVlan = "bridging/vlan/dynamicExpVlan";
inline constexpr const char* topologyConfig = "bridging/topology/config";
inline constexpr const char* topologyStatus = "bridging/topology/status";
inline constexpr const char* macTable = Orb::MacAddrSmMounter::macTablePath;
inline constexpr const char* routerMacTable = Orb::MacAddrSmMounter::routerMacTablePath;
inline constexpr const char* bridgingStatus = Orb::MacAddrSmMounter::bridgingStatusPath;
inline constexpr const char* dynamicHostStatus = "bridging/dynamicHostStatus";
}  // namespace Paths

// Log events go to standard error as everywhere, and the latest are kept
// for `show logging`.
class RecentLogSink : public Log::Sink {
 public:
  static constexpr std::size_t capacity = 1000;
  void write(const Log::EventDef& def, const Log::Event& event) override;
  struct Line {
    double time;
    Log::Event event;
  };
  const std::deque<Line>& lines() const { return lines_; }
  void clear() { lines_.clear(); }

 private:
  std::deque<Line> lines_;
};

class Agent {
 public:
  explicit Agent(const Options& options);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  Vex::EventLoop& loop() { return *loop_; }
  Hive::Root& hive() { return *hive_; }
  const Vex::Ptr<Orb::OrbCommonSmData>& ocsd() const { return ocsd_; }
  SoftChip::SoftChip& chip() { return *chip_; }
  CommandShell& shell() { return shell_; }
  SoftChip::SoftVlanHelper& vlanHelper() { return *vlanHelper_; }
  const Vex::Ptr<Orb::VlanPhyIntfSm>& vlanPhyIntfSm() const { return vlanPhyIntfSm_; }
  SoftChip::SoftLagHelper& lagHelper() { return *lagHelper_; }
  const Vex::Ptr<Orb::LagSm>& lagSm() const { return lagSm_; }
  SoftChip::SoftTopoHelper& topoHelper() { return *topoHelper_; }
  const Vex::Ptr<Orb::StpSm>& stpSm() const { return stpSm_; }
  SoftChip::SoftFdbHelper& fdbHelper() { return *fdbHelper_; }
  const Vex::Ptr<Orb::MacAddrSm>& macAddrSm() const { return macAddrSm_; }

  // Runs one command line, then lets the loop do what became due.
  void execute(const std::string& line, std::ostream& out);

  // Runs a scenario file, one command a line. On the first error prints
  // "FILE:LINE: message" to `err` and returns 1; 0 when every line ran.
  int runScenario(const std::string& path, std::ostream& out, std::ostream& err);

  // A clean shutdown: saves the learned MAC table to the store, if there is
  // one. Throws Hotup::StoreError when the file cannot be written.
  void shutdown();

  // Reads commands until end of input or `quit`. Errors are reported and the
  // shell goes on. With `interactive`, prompts and keeps line history.
  int runShell(std::istream& in, std::ostream& out, std::ostream& err, bool interactive);

 private:
  void registerCoreCommands();
  void registerCheckCommands();
  void registerVlanCommands();
  void registerLagCommands();
  void registerStpCommands();
  void registerMacCommands();
  void registerMacStoreCommands();
  void registerMacInputCommands();
  void registerMacSourceCommands();
  void registerMacRemoteCommands();
  void registerMacLearningCommands();
  void registerMacInputShowCommands();
  void startMacAddrSm();
  // Fills `fdbStatus` from a saved document. The soft chip lives in this
  // process, so it stands for a chip that kept forwarding across the
  // restart: with `chipKeptTable` it is given the restored entries as the
  // hardware would still hold them. Returns the hosts restored.
  std::size_t restoreMacTable(const std::string& document, bool chipKeptTable);
  // The MAC agent's restart: save, drop the machines and what they own,
  // restore, start again; hitless, in the hitless-restart mode with the
  // remote entries kept for recovery.
  std::size_t restartMac(bool hitless);

  std::unique_ptr<Vex::EventLoop> loop_;
  std::shared_ptr<RecentLogSink> logSink_ = std::make_shared<RecentLogSink>();
  Vex::Ptr<Hive::Root> hive_;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd_;
  Vex::Ptr<SoftChip::SoftChip> chip_;
  Vex::Ptr<OrbHelper::OrbPktSmHelperNull> pktHelper_;
  Vex::Ptr<SoftChip::SoftVlanHelper> vlanHelper_;
  Vex::Ptr<Orb::VlanPhyIntfSm> vlanPhyIntfSm_;
  Vex::Ptr<SoftChip::SoftLagHelper> lagHelper_;
  Vex::Ptr<Orb::LagSm> lagSm_;
  Vex::Ptr<SoftChip::SoftTopoHelper> topoHelper_;
  Vex::Ptr<Orb::StpSm> stpSm_;
  std::unique_ptr<DefaultTopology> defaultTopology_;
  Vex::Ptr<SoftChip::SoftFdbHelper> fdbHelper_;
  Vex::Ptr<Orb::MacAddrSm> macAddrSm_;
  Vex::Ptr<Orb::NonAgingConfigDirSm> nonAgingSm_;
  unsigned flushRequestCount_ = 0;
  std::string macStorePath_;
  CommandShell shell_;
};

}  // namespace Agent
