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
  hive_ = Hive::rootFactory();
  Orb::registerOrbTraceModules();
  // The shared context first, then the chip layer's helpers, then the
  // feature state machines, each given its inputs, outputs, context and helper.
  ocsd_ = Orb::orbCommonSmDataFactory("ocsd");
  for (unsigned port = 1; port <= options.ports; ++port)
    ocsd_->intfIs(Nexo::IntfId(fmt::format("Ethernet{}", port)), true);
  ocsd_->cpuIntfIs(Nexo::IntfId("Cpu"), true);
  chip_ = SoftChip::softChipFactory();
  pktHelper_ = Vex::make<OrbHelper::OrbPktSmHelperNull>();
  vlanHelper_ = Vex::make<SoftChip::SoftVlanHelper>(chip_);
  ocsd_->vlanHelperIs(vlanHelper_);
  vlanPhyIntfSm_ =
      Orb::vlanPhyIntfSmFactory(ocsd_, vlanHelper_, hive_->mount<Bridging::Config>(Paths::bridgingConfig),
                                hive_->mount<VlanPhyIntfStatusLib::VlanPhyIntfStatusDir>(Paths::vlanPhyIntfStatus),
                                hive_->mount<Orb::DynamicExpVlanDir>(Paths::dynamicExpVlan));
  lagHelper_ = Vex::make<SoftChip::SoftLagHelper>(chip_);
  Orb::LagMounter lagMounter(hive_, ocsd_, lagHelper_);
  lagMounter.doMounts();
  lagSm_ = lagMounter.doMountsComplete();
  topoHelper_ = Vex::make<SoftChip::SoftTopoHelper>(chip_, vlanHelper_);
  stpSm_ = Orb::stpSmFactory(ocsd_, hive_->mount<Bridging::Topology::Config>(Paths::topologyConfig),
                             hive_->mount<Bridging::Topology::Status>(Paths::topologyStatus), topoHelper_);
  // A port joins a VLAN in hardware only while spanning tree says it
  // forwards, so that no membership change re-adds a blocked port; the
  // default topology gives every port of every VLAN its state.
  vlanHelper_->checkPortStateIs(true);
  defaultTopology_ =
      std::make_unique<DefaultTopology>(hive_->mount<Bridging::Topology::Config>(Paths::topologyConfig), ocsd_);
  macStorePath_ = options.macStorePath;
  fdbHelper_ = Vex::make<SoftChip::SoftFdbHelper>(chip_, hive_->mount<OrbTypes::MacTable>(Paths::macTable));
  if (!macStorePath_.empty()) {
    if (auto document = Hotup::readStoreFile(macStorePath_)) restoreMacTable(*document, true);
  }
  startMacAddrSm();
  registerCoreCommands();
  registerCheckCommands();
  registerVlanCommands();
  registerLagCommands();
  registerStpCommands();
  registerMacCommands();
  registerMacStoreCommands();
  registerMacInputCommands();
  registerMacInputShowCommands();
}

Agent::~Agent() {
  // Machines go before their helpers, helpers before the chip, and the
  // shared context outlives them all.
  macAddrSm_.reset();
  nonAgingSm_.reset();
  fdbHelper_.reset();
  stpSm_.reset();
  topoHelper_.reset();
  lagSm_.reset();
  lagHelper_.reset();
  vlanPhyIntfSm_.reset();
  if (ocsd_) ocsd_->vlanHelperIs(nullptr);
  vlanHelper_.reset();
  pktHelper_.reset();
  chip_.reset();
  ocsd_.reset();
  hive_.reset();
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

void Agent::registerCoreCommands() {
  shell_.commandIs("help", "", "list the commands", [this](const Args& args, std::ostream& out) {
    expectArgs(args, 0, 0, "help");
    shell_.help(out);
  });
  shell_.commandIs("quit", "", "leave the shell", [this](const Args& args, std::ostream&) {
    expectArgs(args, 0, 0, "quit");
    shell_.quitIs(true);
  });
  shell_.commandIs("show version", "[json]", "the agent's version", [](Args args, std::ostream& out) {
    bool json = takeJsonFlag(args);
    expectArgs(args, 0, 0, "show version [json]");
    if (!json) {
      out << "orb-agent " << ORB_VERSION << " (libOrb " << ORB_VERSION << ", soft chip)\n";
      return;
    }
    printJson(out, [](JsonWriter& w) {
      w.StartObject();
      w.Key("agent");
      w.String("orb-agent");
      w.Key("version");
      w.String(ORB_VERSION);
      w.Key("libOrb");
      w.String(ORB_VERSION);
      w.Key("chip");
      w.String("soft chip");
      w.EndObject();
    });
  });
  shell_.commandIs("show time", "[json]", "the event loop's current time", [this](Args args, std::ostream& out) {
    bool json = takeJsonFlag(args);
    expectArgs(args, 0, 0, "show time [json]");
    if (!json) {
      out << fmt::format("{:.3f}\n", loop_->now());
      return;
    }
    printJson(out, [this](JsonWriter& w) {
      w.StartObject();
      w.Key("time");
      w.Double(loop_->now());
      w.Key("simulated");
      w.Bool(loop_->simulatedTime());
      w.EndObject();
    });
  });
  shell_.commandIs("advance", "SECONDS", "move simulated time forward, firing what falls due",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "advance SECONDS");
                     double seconds = parseSeconds(args[0]);
                     if (!loop_->simulatedTime()) throw CommandError("advance needs simulated time (not --real-time)");
                     loop_->advance(seconds);
                   });
  shell_.commandIs("show chip", "[json]", "everything the soft chip holds, as JSON",
                   [this](Args args, std::ostream& out) {
                     // The dump is JSON already: `json` changes nothing.
                     takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show chip [json]");
                     out << chip_->json() << "\n";
                   });
  shell_.commandIs("trace", "MODULE LEVEL", "set a module's trace level (0 off to 9), or 'all'",
                   [](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "trace MODULE LEVEL");
                     auto level = static_cast<unsigned>(parseInteger(args[1], 0, 9));
                     auto handles = Blip::handles();
                     if (args[0] == "all") {
                       for (auto& [name, handle] : handles) handle->levelIs(level);
                       return;
                     }
                     auto it = handles.find(args[0]);
                     if (it == handles.end()) throw CommandError("unknown trace module '" + args[0] + "'");
                     it->second->levelIs(level);
                   });
  shell_.commandIs("show trace", "[LINES] [json]", "trace levels and the latest trace lines (default 20)",
                   [](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 1, "show trace [LINES] [json]");
                     std::size_t count = args.empty() ? 20 : static_cast<std::size_t>(parseInteger(args[0], 0, 100000));
                     const auto& lines = Blip::ring().lines();
                     std::size_t first = lines.size() > count ? lines.size() - count : 0;
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("levels");
                         w.StartObject();
                         for (const auto& [name, handle] : Blip::handles()) {
                           w.Key(name.c_str());
                           w.Uint(handle->level());
                         }
                         w.EndObject();
                         w.Key("lines");
                         w.StartArray();
                         for (std::size_t i = first; i < lines.size(); ++i) w.String(Blip::format(lines[i]).c_str());
                         w.EndArray();
                         w.EndObject();
                       });
                       return;
                     }
                     out << "Module                 Level\n";
                     for (const auto& [name, handle] : Blip::handles())
                       out << fmt::format("{:<22} {}\n", name, handle->level());
                     for (std::size_t i = first; i < lines.size(); ++i) out << Blip::format(lines[i]) << "\n";
                   });
  shell_.commandIs("echo", "TEXT...", "print a line (for scenario files)", [](const Args& args, std::ostream& out) {
    for (std::size_t i = 0; i < args.size(); ++i) out << (i ? " " : "") << args[i];
    out << "\n";
  });
}

}  // namespace Agent
