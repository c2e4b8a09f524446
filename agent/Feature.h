// A feature of orb-agent as one module: it mounts its inputs, makes its chip
// helpers and starts its machines when it is made (in the order the agent
// makes features, which is the documented start-up order), registers its
// shell commands when asked, and stops its machines before its helpers when
// it goes. Adding a feature is its module and one line of wiring in Agent.
#pragma once

#include "Orb/OrbCommon.h"
#include "Orb/OrbMacAddrSmInputs.h"
#include "agent/CommandShell.h"
#include "chip/softchip/SoftChip.h"
#include "platform/hive/Hive.h"
#include "platform/log/LogEvent.h"
#include "platform/vex/EventLoop.h"

#include <deque>
#include <string>

namespace Agent {

struct Options {
  // Run on the monotonic clock instead of simulated time.
  bool realTime = false;
  // Front-panel ports of the soft chip: Ethernet1 to EthernetN.
  unsigned ports = 48;
  // Where the learned MAC table is kept across restarts; empty for nowhere.
  std::string macStorePath;
  // Names of this agent's shared-memory tables begin with this; empty for
  // one of this process's own ("orb-PID-").
  std::string pondPrefix;
  // Hardware FEC id requests are answered by `orb-agent fecd` in another
  // process rather than by this agent's soft chip.
  bool externalFecAllocator = false;
};

// State-database paths more than one feature names.
namespace Paths {
inline constexpr const char* bridgingConfig = Orb::MacAddrSmMounter::bridgingConfigPath;
inline constexpr const char* vlanPhyIntfStatus = "bridging/vlan/phyIntfStatus";
inline constexpr const char* dynamicExpVlan = "bridging/vlan/dynamicExpVlan";
inline constexpr const char* topologyConfig = "bridging/topology/config";
inline constexpr const char* topologyStatus = "bridging/topology/status";
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

// What every feature shares: the loop, the state database, the shared
// context, the chip, the shell and the log. The agent owns it and it
// outlives every feature.
struct AgentCore {
  Options options;
  Vex::EventLoop* loop = nullptr;
  Vex::Ptr<Hive::Root> hive;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd;
  Vex::Ptr<SoftChip::SoftChip> chip;
  CommandShell* shell = nullptr;
  RecentLogSink* logSink = nullptr;
};

class Feature {
 public:
  explicit Feature(const AgentCore& core)
      : loop_(core.loop),
        hive_(core.hive),
        ocsd_(core.ocsd),
        chip_(core.chip),
        shell_(*core.shell),
        logSink_(core.logSink),
        options_(core.options) {}
  virtual ~Feature() = default;
  Feature(const Feature&) = delete;
  Feature& operator=(const Feature&) = delete;

  virtual void registerCommands() = 0;

 protected:
  Vex::EventLoop* loop_;
  Vex::Ptr<Hive::Root> hive_;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd_;
  Vex::Ptr<SoftChip::SoftChip> chip_;
  CommandShell& shell_;
  RecentLogSink* logSink_;
  const Options& options_;
};

}  // namespace Agent
