// The agent's own commands: help, quit, version, time, the chip dump and
// traces.
#include "agent/CoreFeature.h"
#include "agent/JsonOutput.h"
#include "platform/blip/Blip.h"

#include <fmt/format.h>

namespace Agent {

void CoreFeature::registerCommands() {
  registerCoreCommands();
  registerCheckCommands();
  registerPacketCommands();
  registerSliceCommands();
}

void CoreFeature::registerCoreCommands() {
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
  // Every periodic clock (aging sweeps, retries) fires on the way, so the
  // work of a step grows with its length: a typo's 1e9 would never end.
  static constexpr double maxAdvanceSeconds = 3600;
  shell_.commandIs("advance", "SECONDS", "move simulated time forward (at most 3600 s), firing what falls due",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "advance SECONDS");
                     double seconds = parseSeconds(args[0]);
                     if (seconds > maxAdvanceSeconds) {
                       throw CommandError(fmt::format("advance takes at most {} seconds at a time, not '{}'",
                                                      maxAdvanceSeconds, args[0]));
                     }
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
