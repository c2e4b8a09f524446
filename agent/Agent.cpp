#include "agent/Agent.h"

#include "Orb/OrbTrace.h"
#include "agent/JsonOutput.h"
#include "platform/blip/Blip.h"
#include "platform/hotup/HotupPStoreHelper.h"

#include <fmt/format.h>
#include <readline/history.h>
#include <readline/readline.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

namespace Agent {

Agent::Agent(const Options& options) {
  if (options.realTime) {
    loop_ = std::make_unique<Vex::EventLoop>(std::make_unique<Vex::MonotonicTimeSource>());
  } else {
    loop_ = std::make_unique<Vex::EventLoop>();
  }
  loop_->makeCurrent();
  Log::sinkIs(logSink_);
  Orb::registerOrbTraceModules();
  core_.options = options;
  // Every feature names its shared-memory tables under the same prefix.
  if (core_.options.pondPrefix.empty()) core_.options.pondPrefix = processPondPrefix();
  core_.loop = loop_.get();
  core_.hive = Hive::rootFactory();
  core_.shell = &shell_;
  core_.logSink = logSink_.get();
  // The shared context first, then the chip, then each feature: its chip
  // helpers, then its machines, each given its inputs, outputs, context and
  // helper.
  core_.ocsd = Orb::orbCommonSmDataFactory("ocsd");
  for (unsigned port = 1; port <= options.ports; ++port)
    core_.ocsd->intfIs(Nexo::IntfId(fmt::format("Ethernet{}", port)), true);
  core_.ocsd->cpuIntfIs(Nexo::IntfId("Cpu"), true);
  core_.chip = SoftChip::softChipFactory();
  pktHelper_ = Vex::make<OrbHelper::OrbPktSmHelperNull>();
  add<CoreFeature>();
  vlan_ = add<VlanFeature>();
  lag_ = add<LagFeature>();
  stp_ = add<StpFeature>(*vlan_);
  mac_ = add<MacFeature>(*vlan_);
  l3_ = add<L3Feature>();
  acl_ = add<AclFeature>();
  stormControl_ = add<StormControlFeature>();
  subIntf_ = add<SubIntfFeature>();
  mirror_ = add<MirrorFeature>();
  fecRequests_ = add<FecRequestFeature>();
  for (auto& feature : features_) feature->registerCommands();
}

Agent::~Agent() {
  // Features stop in reverse (each its machines before its helpers), then
  // the chip goes, and the shared context outlives them all.
  while (!features_.empty()) features_.pop_back();
  pktHelper_.reset();
  core_.chip.reset();
  core_.ocsd.reset();
  core_.hive.reset();
  loop_.reset();
  Log::sinkIs(nullptr);
}

void Agent::execute(const std::string& line, std::ostream& out) {
  shell_.execute(line, out);
  loop_->runUntilIdle();
}

int Agent::runScenario(const std::string& path, std::ostream& out, std::ostream& err) {
  std::ifstream file(path);
  if (!file) {
    err << path << ": cannot open scenario file\n";
    return 1;
  }
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    try {
      execute(line, out);
    } catch (const std::exception& e) {
      err << path << ":" << number << ": " << e.what() << "\n";
      return 1;
    }
    if (shell_.quitRequested()) break;
  }
  return 0;
}

namespace {

// One line of input; readline when a person is typing.
bool readLine(std::istream& in, bool interactive, std::string& line) {
  if (!interactive) return static_cast<bool>(std::getline(in, line));
  char* text = readline("orb> ");
  if (!text) return false;
  line = text;
  if (*text) add_history(text);
  std::free(text);
  return true;
}

}  // namespace

int Agent::runShell(std::istream& in, std::ostream& out, std::ostream& err, bool interactive) {
  std::string line;
  while (!shell_.quitRequested() && readLine(in, interactive, line)) {
    try {
      execute(line, out);
    } catch (const std::exception& e) {
      err << "% " << e.what() << "\n";
    }
    out.flush();
  }
  return 0;
}

}  // namespace Agent
