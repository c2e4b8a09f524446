// Sub-interface commands: encapsulations and forwarding as the interface
// agent publishes them, and `show interfaces sub-interfaces`.
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "agent/SubIntfFeature.h"

#include <fmt/format.h>

namespace Agent {

namespace {

Nexo::IntfId subIntfArg(const std::string& text) {
  auto ids = parseIntfRange(text);
  if (ids.size() != 1) throw CommandError("one sub-interface expected, not '" + text + "'");
  return ids[0];
}

std::string encapText(const Interface::SubIntfEncap& encap) {
  if (encap.isNone()) return "-";
  return encap.innerTag ? fmt::format("dot1q {} inner {}", encap.outerTag, encap.innerTag)
                        : fmt::format("dot1q {}", encap.outerTag);
}

}  // namespace

void SubIntfFeature::registerShowCommands() {
  const std::string encapUsage = "interface INTF.N encapsulation dot1q vlan V [inner W]";
  shell_.commandFormIs(
      "interface", "INTF.N encapsulation dot1q vlan V [inner W]",
      [](const Args& args) { return args.size() >= 2 && args[1] == "encapsulation"; },
      [this, encapUsage](const Args& args, std::ostream&) {
        expectArgs(args, 5, 7, encapUsage);
        if (args[2] != "dot1q" || args[3] != "vlan" || (args.size() != 5 && args.size() != 7) ||
            (args.size() == 7 && args[5] != "inner")) {
          throw CommandError("usage: " + encapUsage);
        }
        auto intf = subIntfArg(args[0]);
        auto outer = static_cast<std::uint16_t>(parseInteger(args[4], 1, 4094));
        auto inner = args.size() == 7 ? static_cast<std::uint16_t>(parseInteger(args[6], 1, 4094)) : 0;
        encapsulationIs(intf, outer, static_cast<std::uint16_t>(inner));
      });
  const std::string forwardingUsage = "interface INTF.N forwarding routed [vlan V] | bridged vlan V";
  shell_.commandFormIs(
      "interface", "INTF.N forwarding routed [vlan V] | bridged vlan V",
      [](const Args& args) { return args.size() >= 2 && args[1] == "forwarding"; },
      [this, forwardingUsage](const Args& args, std::ostream&) {
        expectArgs(args, 3, 5, forwardingUsage);
        const bool bridged = args[2] == "bridged";
        if ((!bridged && args[2] != "routed") || args.size() == 4 || (args.size() == 5 && args[3] != "vlan")) {
          throw CommandError("usage: " + forwardingUsage);
        }
        auto intf = subIntfArg(args[0]);
        Bridging::VlanIdOrNone vlan;
        if (args.size() == 5) vlan = Bridging::VlanIdOrNone(static_cast<std::uint32_t>(parseInteger(args[4], 1, 4094)));
        forwardingIs(intf, bridged, vlan);
      });
  shell_.commandFormIs(
      "no interface", "INTF.N encapsulation",
      [](const Args& args) { return args.size() == 2 && args[1] == "encapsulation"; },
      [this](const Args& args, std::ostream&) {
        expectArgs(args, 2, 2, "no interface INTF.N encapsulation");
        encapsulationDel(subIntfArg(args[0]));
      });
  shell_.commandIs("pseudowire connector", "INTF.N vlan V",
                   "a sub-interface becomes a pseudowire's port connector, carried in the pseudowire's VLAN",
                   [this](const Args& args, std::ostream&) {
                     const std::string usage = "pseudowire connector INTF.N vlan V";
                     expectArgs(args, 3, 3, usage);
                     if (args[1] != "vlan") throw CommandError("usage: " + usage);
                     auto intf = subIntfArg(args[0]);
                     if (!intf.isSubIntf()) throw CommandError("a port connector is a sub-interface, not " + args[0]);
                     auto vlan = static_cast<std::uint32_t>(parseInteger(args[2], 1, 4094));
                     connectors_->connectorIs(intf, Bridging::VlanIdOrNone(vlan));
                   });
  shell_.commandIs("no pseudowire connector", "INTF.N", "the sub-interface is no longer a port connector",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no pseudowire connector INTF.N");
                     connectors_->connectorDel(subIntfArg(args[0]));
                   });
  shell_.commandIs("sub-interface retry-interval", "SECONDS",
                   "how long a sub-interface refused for a conflict waits before it is tried again",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "sub-interface retry-interval SECONDS");
                     double seconds = parseSeconds(args[0]);
                     if (seconds <= 0) throw CommandError("the retry interval must be above 0");
                     sm_->retryIntervalIs(seconds);
                   });
  shell_.commandIs("chip vlan-translation", "capacity N | busy|full|fail next N",
                   "the soft chip's VLAN-translation table: its size, or faults for the next operations",
                   [this](const Args& args, std::ostream&) {
                     applyChipTableArgs(*chip_, SoftChip::SoftSubIntfTable::tableName, args,
                                        "chip vlan-translation capacity N | busy|full|fail next N");
                   });
  shell_.commandIs("show interfaces sub-interfaces", "[json]",
                   "each sub-interface: its encapsulation, forwarding, VLAN and whether hardware holds it",
                   [this](const Args& input, std::ostream& out) {
                     Args args = input;
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show interfaces sub-interfaces [json]");
                     std::set<Nexo::IntfId> all;
                     for (const auto& [intf, config] : configs_->intfConfig()) all.insert(intf);
                     for (const auto& [intf, status] : statuses_->intfStatus()) all.insert(intf);
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("subInterfaces");
                         w.StartObject();
                         for (const auto& intf : all) {
                           auto config = configs_->intfConfig(intf);
                           auto status = statuses_->intfStatus(intf);
                           Interface::SubIntfEncap encap = config ? config->dot1qEncap() : Interface::SubIntfEncap{};
                           w.Key(intf.stringValue().c_str());
                           w.StartObject();
                           w.Key("parent");
                           w.String(intf.parentIntfId().stringValue().c_str());
                           w.Key("outerTag");
                           w.Uint(encap.outerTag);
                           w.Key("innerTag");
                           w.Uint(encap.innerTag);
                           w.Key("forwarding");
                           w.String(status && status->isL2SubIntf() ? "bridged" : "routed");
                           w.Key("vlan");
                           w.Uint(status ? status->forwardingVlanId().value() : 0);
                           w.Key("state");
                           w.String(stateText(intf).c_str());
                           w.EndObject();
                         }
                         w.EndObject();
                         w.Key("conflicted");
                         w.Uint(static_cast<unsigned>(sm_->conflictedIntf().size()));
                         w.EndObject();
                       });
                       return;
                     }
                     out << fmt::format("{:<20} {:<22} {:<8} {:>5}  {}\n", "Interface", "Encapsulation", "Mode", "VLAN",
                                        "State");
                     for (const auto& intf : all) {
                       auto config = configs_->intfConfig(intf);
                       auto status = statuses_->intfStatus(intf);
                       out << fmt::format("{:<20} {:<22} {:<8} {:>5}  {}\n", intf.stringValue(),
                                          encapText(config ? config->dot1qEncap() : Interface::SubIntfEncap{}),
                                          status && status->isL2SubIntf() ? "bridged" : "routed",
                                          status ? status->forwardingVlanId().value() : 0, stateText(intf));
                     }
                     out << fmt::format("{} sub-interface{}, {} waiting on a conflict\n", all.size(),
                                        all.size() == 1 ? "" : "s", sm_->conflictedIntf().size());
                   });
}

}  // namespace Agent
