// Storm-control commands: levels per interface, port link and speed as the
// platform reports them, `show storm-control`, the chip's meter table and
// frames sent at a rate in simulated time.
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "agent/StormControlFeature.h"
#include "chip/softchip/SoftForwarding.h"

#include <fmt/format.h>

#include <cmath>

namespace Agent {

namespace {

using Bridging::StormControl::LevelType;
using Bridging::StormControl::levelTypes;

const char* levelWord(LevelType type) { return type == LevelType::uucast ? "unknown-unicast" : levelTypeName(type); }

LevelType levelTypeArg(const std::string& text) {
  for (LevelType type : levelTypes)
    if (text == levelWord(type)) return type;
  throw CommandError("a storm-control level is broadcast, multicast, unknown-unicast or all, not '" + text + "'");
}

// Ports and LAGs; storm control has nothing to meter on other interfaces.
std::vector<Nexo::IntfId> stormIntfsArg(const std::string& text) {
  auto intfs = parseIntfRange(text);
  for (const auto& intf : intfs) {
    if (!intf.isEthernet() && !intf.isLag())
      throw CommandError("storm control is set on Ethernet ports and Port-Channels, not " + intf.stringValue());
    if (intf.isSubIntf()) throw CommandError("storm control is not set on sub-interfaces: " + intf.stringValue());
  }
  return intfs;
}

// "10g", "100m", "400000" (megabits per second), or "unknown" (0).
std::uint64_t speedArg(const std::string& text) {
  if (text == "unknown") return 0;
  std::uint64_t scale = 1;
  std::string digits = text;
  if (!digits.empty() && (digits.back() == 'g' || digits.back() == 'G')) {
    scale = 1000;
    digits.pop_back();
  } else if (!digits.empty() && (digits.back() == 'm' || digits.back() == 'M')) {
    digits.pop_back();
  }
  long value = 0;
  try {
    value = parseInteger(digits, 1, 10000000);
  } catch (const CommandError&) {
    throw CommandError("a speed is like 100m, 10g, a number of megabits per second, or unknown; not '" + text + "'");
  }
  return static_cast<std::uint64_t>(value) * scale;
}

std::uint64_t discardsAt(const Orb::StormControlDropCounts& counts, LevelType type) {
  switch (type) {
    case LevelType::uucast:
      return counts.uucast;
    case LevelType::broadcast:
      return counts.broadcast;
    case LevelType::multicast:
      return counts.multicast;
    case LevelType::all:
      break;
  }
  return counts.all;
}

}  // namespace

void StormControlFeature::levelIs(const Args& args) {
  const std::string usage = "interface INTFS storm-control broadcast|multicast|unknown-unicast|all level PERCENT";
  if (args.size() != 5 || args[3] != "level") throw CommandError("usage: " + usage);
  auto intfs = stormIntfsArg(args[0]);
  const LevelType type = levelTypeArg(args[2]);
  Bridging::StormControl::Threshold threshold;
  threshold.mode = Bridging::StormControl::ThresholdMode::level;
  threshold.level = stormControlLevelArg(args[4]);
  for (const auto& intf : intfs) config_->intfConfigIs(intf)->thresholdIs(type, threshold);
}

void StormControlFeature::levelDel(const Args& args) {
  const std::string usage = "interface INTFS no storm-control [broadcast|multicast|unknown-unicast|all]";
  if (args.size() < 3 || args.size() > 4) throw CommandError("usage: " + usage);
  auto intfs = stormIntfsArg(args[0]);
  if (args.size() == 3) {
    for (const auto& intf : intfs) config_->intfConfigDel(intf);
    return;
  }
  const LevelType type = levelTypeArg(args[3]);
  for (const auto& intf : intfs) {
    auto config = config_->intfConfig(intf);
    if (!config) continue;
    config->thresholdDel(type);
    if (config->thresholdSize() == 0) config_->intfConfigDel(intf);
  }
}

void StormControlFeature::speedIs(const Args& args) {
  const std::string usage = "interface INTFS speed SPEED|unknown";
  if (args.size() != 3) throw CommandError("usage: " + usage);
  auto ports = parseIntfRange(args[0]);
  for (const auto& port : ports)
    if (!port.isEthernet() || port.isSubIntf())
      throw CommandError("a speed belongs to an Ethernet port, not " + port.stringValue());
  const std::uint64_t speed = speedArg(args[2]);
  for (const auto& port : ports) phyStatus_->speedIs(port, speed);
}

void StormControlFeature::registerConfigCommands() {
  shell_.commandFormIs(
      "interface", "INTFS [no] storm-control broadcast|multicast|unknown-unicast|all [level PERCENT]",
      [](const Args& args) {
        return (args.size() >= 2 && args[1] == "storm-control") ||
               (args.size() >= 3 && args[1] == "no" && args[2] == "storm-control");
      },
      [this](const Args& args, std::ostream&) {
        if (args[1] == "no") {
          levelDel(args);
        } else {
          levelIs(args);
        }
      });
  shell_.commandFormIs(
      "interface", "INTFS speed SPEED|unknown (Mb/s, or like 100m, 10g: as the platform reports it)",
      [](const Args& args) { return args.size() >= 2 && args[1] == "speed"; },
      [this](const Args& args, std::ostream&) { speedIs(args); });
}

void StormControlFeature::registerShowCommands() {
  shell_.commandIs("show storm-control", "[INTF] [hardware] [json]",
                   "levels, rates (Mb/s) and discards per interface; `hardware`: the chip's meters (kb/s)",
                   [this](Args args, std::ostream& out) {
                     const bool json = takeJsonFlag(args);
                     const bool hardware = !args.empty() && args.back() == "hardware";
                     if (hardware) args.pop_back();
                     expectArgs(args, 0, 1, "show storm-control [INTF] [hardware] [json]");
                     std::optional<Nexo::IntfId> only;
                     if (!args.empty()) {
                       auto intfs = stormIntfsArg(args[0]);
                       if (intfs.size() != 1) throw CommandError("one interface, not a range: '" + args[0] + "'");
                       only = intfs.front();
                     }
                     if (hardware) {
                       const auto& meters = helper_->table().entries;
                       if (json) {
                         printJson(out, [&](JsonWriter& w) {
                           w.StartArray();
                           for (const auto& [key, meter] : meters) {
                             if (only && key.port != *only) continue;
                             w.StartObject();
                             w.Key("interface");
                             w.String(key.port.stringValue().c_str());
                             w.Key("type");
                             w.String(levelWord(key.level));
                             w.Key("rateKbps");
                             w.Uint64(meter.rateKbps);
                             w.Key("lag");
                             w.String(meter.lag.stringValue().c_str());
                             w.EndObject();
                           }
                           w.EndArray();
                         });
                         return;
                       }
                       out << fmt::format("{:<16}{:<17}{:>12}  {}\n", "Port", "Type", "Rate kbps", "LAG");
                       for (const auto& [key, meter] : meters) {
                         if (only && key.port != *only) continue;
                         out << fmt::format("{:<16}{:<17}{:>12}  {}\n", key.port.stringValue(), levelWord(key.level),
                                            meter.rateKbps, meter.lag.empty() ? "-" : meter.lag.stringValue());
                       }
                       return;
                     }
                     // Discards of an interface: its own, or its members' for a LAG.
                     auto discards = [&](const Nexo::IntfId& intf) {
                       if (!intf.isLag()) return helper_->table().dropsOf(intf);
                       Orb::StormControlDropCounts sum;
                       for (const auto& [member, state] : ocsd_->lagToPort(intf).ports) {
                         auto counts = helper_->table().dropsOf(member);
                         sum.uucast += counts.uucast;
                         sum.broadcast += counts.broadcast;
                         sum.multicast += counts.multicast;
                         sum.all += counts.all;
                       }
                       return sum;
                     };
                     struct Row {
                       Nexo::IntfId intf;
                       Nexo::IntfId lag;  // the LAG whose levels apply instead
                       std::vector<LevelType> types;
                       Bridging::StormControl::IntfStatus status;
                       Orb::StormControlDropCounts drops;
                     };
                     std::vector<Row> rows;
                     for (const auto& [intf, config] : config_->intfConfig()) {
                       if (only && intf != *only) continue;
                       Row row{intf,
                               intf.isLag() ? Nexo::IntfId() : ocsd_->portToLag(intf),
                               {},
                               status_->intfStatus(intf),
                               discards(intf)};
                       for (const auto& [type, threshold] : config->threshold())
                         if (threshold.enabled()) row.types.push_back(type);
                       rows.push_back(std::move(row));
                     }
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("interfaces");
                         w.StartArray();
                         for (const auto& row : rows) {
                           w.StartObject();
                           w.Key("interface");
                           w.String(row.intf.stringValue().c_str());
                           w.Key("lag");
                           if (row.lag.empty()) {
                             w.Null();
                           } else {
                             w.String(row.lag.stringValue().c_str());
                           }
                           w.Key("levels");
                           w.StartArray();
                           for (LevelType type : row.types) {
                             w.StartObject();
                             w.Key("type");
                             w.String(levelWord(type));
                             w.Key("level");
                             w.String(stormControlLevelText(row.status.level(type)).c_str());
                             w.Key("rateMbps");
                             w.Uint64(row.status.rate(type));
                             w.Key("discards");
                             w.Uint64(discardsAt(row.drops, type));
                             w.EndObject();
                           }
                           w.EndArray();
                           w.EndObject();
                         }
                         w.EndArray();
                         w.EndObject();
                       });
                       return;
                     }
                     out << fmt::format("{:<16}{:<17}{:>7}{:>12}{:>10}\n", "Interface", "Type", "Level", "Rate Mbps",
                                        "Discards");
                     for (const auto& row : rows) {
                       for (LevelType type : row.types) {
                         out << fmt::format("{:<16}{:<17}{:>7}{:>12}{:>10}", row.intf.stringValue(), levelWord(type),
                                            stormControlLevelText(row.status.level(type)), row.status.rate(type),
                                            discardsAt(row.drops, type));
                         if (!row.lag.empty()) out << "  (" << row.lag.stringValue() << "'s levels apply)";
                         out << "\n";
                       }
                     }
                   });
}

void StormControlFeature::registerChipCommands() {
  shell_.commandIs("chip storm-control",
                   "capacity N | busy|full|fail next N | burst-time US | unknown-unicast|all|burst on|off",
                   "the soft chip's storm-control meters: size, planned faults, burst time and what levels it offers",
                   [this](const Args& args, std::ostream&) {
                     const std::string usage =
                         "chip storm-control capacity N | busy|full|fail next N | burst-time US | "
                         "unknown-unicast|all|burst on|off";
                     if (args.empty()) throw CommandError("usage: " + usage);
                     if (args.size() == 2 && args[0] == "burst-time") {
                       helper_->table().burstTimeUsIs(static_cast<std::uint32_t>(parseInteger(args[1], 1, 10000000)));
                     } else if (args.size() == 2 && (args[1] == "on" || args[1] == "off") &&
                                (args[0] == "unknown-unicast" || args[0] == "all" || args[0] == "burst")) {
                       const bool on = args[1] == "on";
                       if (args[0] == "unknown-unicast") helper_->uucastLevelEnabledIs(on);
                       if (args[0] == "all") helper_->allLevelEnabledIs(on);
                       if (args[0] == "burst") helper_->burstEnabledIs(on);
                     } else {
                       applyChipTableArgs(*chip_, SoftChip::SoftStormControlTable::tableName, args, usage);
                     }
                   });
  shell_.commandIs(
      "chip send-rate", "INTF PPS SECONDS FRAME",
      "frames into the chip on a port at PPS frames a second for SECONDS of simulated time; counts where they went",
      [this](const Args& args, std::ostream& out) {
        const std::string usage = "chip send-rate INTF PPS SECONDS FRAME";
        if (args.size() < 4) throw CommandError("usage: " + usage);
        if (!loop_->simulatedTime()) throw CommandError("chip send-rate needs simulated time");
        auto ports = parseIntfRange(args[0]);
        if (ports.size() != 1) throw CommandError("one interface, not a range: '" + args[0] + "'");
        const auto pps = static_cast<std::uint64_t>(parseInteger(args[1], 1, 1000000));
        const double seconds = parseSeconds(args[2]);
        if (seconds > 60) throw CommandError("at most 60 seconds of frames at a time");
        std::string text;
        for (std::size_t i = 3; i < args.size(); ++i) text += (i > 3 ? " " : "") + args[i];
        SoftChip::Frame frame;
        try {
          frame = SoftChip::frameFromText(text);
        } catch (const SoftChip::FrameSyntaxError& e) {
          throw CommandError(e.what());
        }
        const auto count = static_cast<std::uint64_t>(std::llround(seconds * static_cast<double>(pps)));
        SoftChip::SoftForwarding forwarding(*chip_);
        SoftChip::ForwardResult result;
        std::uint64_t passed = 0, stormDrops = 0, otherDrops = 0;
        const Vex::Seconds start = loop_->now();
        for (std::uint64_t i = 0; i < count; ++i) {
          const Vex::Seconds due = start + static_cast<double>(i) / static_cast<double>(pps);
          if (due > loop_->now()) loop_->advance(due - loop_->now());
          forwarding.forward(ports.front(), frame, result);
          if (!result.dropped()) {
            ++passed;
          } else if (result.drop.rfind("storm control", 0) == 0) {
            ++stormDrops;
          } else {
            ++otherDrops;
          }
        }
        out << fmt::format("sent {}, passed {}, dropped by storm control {}, dropped otherwise {}\n", count, passed,
                           stormDrops, otherDrops);
      });
}

}  // namespace Agent
