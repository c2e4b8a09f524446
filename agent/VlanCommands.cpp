// VLAN commands: membership as the bridging agent publishes it, chip knobs
// of the VLAN table, and `show vlan`.
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "agent/VlanFeature.h"

#include <fmt/format.h>
#include <boost/describe/enum_to_string.hpp>

#include <map>
#include <optional>
#include <set>
#include <vector>

namespace Agent {

namespace {

const char* modeName(Bridging::SwitchportMode mode) { return boost::describe::enum_to_string(mode, "?"); }

Bridging::VlanId vlanArg(const std::string& text) {
  return Bridging::VlanId(static_cast<std::uint32_t>(parseInteger(text, 1, 4094)));
}

std::string portsText(const std::set<Nexo::IntfId>& untagged, const std::set<Nexo::IntfId>& tagged) {
  std::set<Nexo::IntfId> all(untagged);
  all.insert(tagged.begin(), tagged.end());
  std::string text;
  for (const auto& port : all) {
    if (!text.empty()) text += ' ';
    text += port.stringValue() + (tagged.count(port) ? "(t)" : "");
  }
  return text.empty() ? "-" : text;
}

using Ports = std::set<Nexo::IntfId>;

// Ports of a VLAN by role.
struct Membership {
  Ports tagged, untagged, ingress, egress;
  void add(const Nexo::IntfId& port, bool isTagged, bool isIngress, bool isEgress) {
    (isTagged ? tagged : untagged).insert(port);
    if (isIngress) ingress.insert(port);
    if (isEgress) egress.insert(port);
  }
};

// One VLAN as configured, as hardware confirmed it to the VLAN helper, and as
// the soft chip holds it, with the generations of its updates.
struct VlanView {
  explicit VlanView(Bridging::VlanId id) : vlanId(id) {}
  Bridging::VlanId vlanId;
  std::uint64_t done = 0;
  std::optional<std::uint64_t> pending, inFlight, failed;
  Membership configured, confirmed;
  std::optional<Membership> hardware;
  std::optional<std::uint16_t> fid;  // the hardware's
};

VlanView vlanView(Bridging::VlanId vlanId, const VlanPhyIntfStatusLib::VlanPhyIntfStatusDir& statusDir,
                  const SoftChip::SoftVlanHelper& helper) {
  VlanView view(vlanId);
  if (auto status = statusDir.vlanPhyIntfStatus(vlanId)) {
    for (const auto& [port, entry] : status->intf())
      view.configured.add(port, entry.tagged, entry.ingress, entry.egress);
  }
  for (const auto& [port, pvm] : helper.portVlanMembership()) {
    if (pvm->taggedVlan(vlanId)) view.confirmed.tagged.insert(port);
    if (pvm->untaggedVlan(vlanId)) view.confirmed.untagged.insert(port);
    if (pvm->ingressVlan(vlanId)) view.confirmed.ingress.insert(port);
    if (pvm->egressVlan(vlanId)) view.confirmed.egress.insert(port);
  }
  if (const SoftChip::HwVlan* hw = helper.table().vlan(vlanId)) {
    auto ports = [](const SoftChip::IntfSet& set) { return Ports(set.begin(), set.end()); };
    view.hardware = Membership{ports(hw->tagged), ports(hw->untagged), ports(hw->ingress), ports(hw->egress)};
    view.fid = hw->fid.value();
  }
  auto pending = helper.vlanUpdate(vlanId);
  auto request = helper.updateConfig()->vlanUpdate(vlanId);
  auto answer = helper.updateStatus()->hwStatus(vlanId);
  auto done = helper.lastCompletedUpdateStatus()->hwStatus(vlanId);
  if (done) view.done = done->genId();
  if (pending) view.pending = pending->genId();
  if (request && !answer) view.inFlight = request->genId();
  if (answer && answer->programmingStatus() == Orb::VlanProgrammingStatus::programmingFailed)
    view.failed = answer->genId();
  return view;
}

void printVlan(std::ostream& out, const VlanView& view) {
  std::string generations = fmt::format("done {}", view.done);
  if (view.pending) generations += fmt::format(", pending {}", *view.pending);
  if (view.inFlight) generations += fmt::format(", in flight {}", *view.inFlight);
  if (view.failed) generations += fmt::format(", failed {}", *view.failed);
  out << fmt::format("VLAN {}  fid {}  generations: {}\n", view.vlanId.value(),
                     view.fid ? std::to_string(*view.fid) : "-", generations);
  out << "  configured: " << portsText(view.configured.untagged, view.configured.tagged) << "\n";
  out << "  confirmed:  " << portsText(view.confirmed.untagged, view.confirmed.tagged)
      << "  ingress: " << intfsText(view.confirmed.ingress) << "  egress: " << intfsText(view.confirmed.egress) << "\n";
  out << "  hardware:   " << (view.hardware ? portsText(view.hardware->untagged, view.hardware->tagged) : "-") << "\n";
}

void membershipJson(JsonWriter& w, const char* key, const Membership& membership) {
  w.Key(key);
  w.StartObject();
  SoftChip::dumpIntfs(w, "tagged", membership.tagged);
  SoftChip::dumpIntfs(w, "untagged", membership.untagged);
  SoftChip::dumpIntfs(w, "ingress", membership.ingress);
  SoftChip::dumpIntfs(w, "egress", membership.egress);
  w.EndObject();
}

void vlansJson(JsonWriter& w, const std::vector<VlanView>& views) {
  w.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  auto optional = [&w](const char* key, const std::optional<std::uint64_t>& value) {
    w.Key(key);
    if (value) {
      w.Uint64(*value);
    } else {
      w.Null();
    }
  };
  w.StartObject();
  w.Key("vlans");
  w.StartObject();
  for (const auto& view : views) {
    w.Key(std::to_string(view.vlanId.value()).c_str());
    w.StartObject();
    optional("fid", view.fid);
    w.Key("generations");
    w.StartObject();
    optional("done", view.done);
    optional("pending", view.pending);
    optional("inFlight", view.inFlight);
    optional("failed", view.failed);
    w.EndObject();
    membershipJson(w, "configured", view.configured);
    membershipJson(w, "confirmed", view.confirmed);
    if (view.hardware) {
      membershipJson(w, "hardware", *view.hardware);
    } else {
      w.Key("hardware");
      w.Null();
    }
    w.EndObject();
  }
  w.EndObject();
  w.EndObject();
}

}  // namespace

VlanFeature::VlanFeature(const AgentCore& core) : Feature(core) {
  vlanHelper_ = Vex::make<SoftChip::SoftVlanHelper>(chip_);
  ocsd_->vlanHelperIs(vlanHelper_);
  vlanPhyIntfSm_ =
      Orb::vlanPhyIntfSmFactory(ocsd_, vlanHelper_, hive_->mount<Bridging::Config>(Paths::bridgingConfig),
                                hive_->mount<VlanPhyIntfStatusLib::VlanPhyIntfStatusDir>(Paths::vlanPhyIntfStatus),
                                hive_->mount<Orb::DynamicExpVlanDir>(Paths::dynamicExpVlan));
}

VlanFeature::~VlanFeature() {
  vlanPhyIntfSm_.reset();
  ocsd_->vlanHelperIs(nullptr);
  vlanHelper_.reset();
}

void VlanFeature::registerCommands() {
  auto statusDir = hive_->mount<VlanPhyIntfStatusLib::VlanPhyIntfStatusDir>(Paths::vlanPhyIntfStatus);
  auto bridgingConfig = hive_->mount<Bridging::Config>(Paths::bridgingConfig);
  auto dynamicDir = hive_->mount<Orb::DynamicExpVlanDir>(Paths::dynamicExpVlan);

  shell_.commandIs(
      "vlan", "ID add|remove|expand|no-expand|dynamic-expand|fid ...",
      "VLAN membership: add INTFS [tagged] [no-ingress] [no-egress], remove INTFS, expand VLAN, fid FID",
      [=](const Args& args, std::ostream&) {
        const std::string usage =
            "vlan ID add INTFS [tagged] [no-ingress] [no-egress] | vlan ID remove INTFS | vlan ID expand VLAN | "
            "vlan ID no-expand VLAN | vlan ID dynamic-expand VLAN | vlan ID no-dynamic-expand VLAN | vlan ID fid FID";
        expectArgs(args, 3, 6, usage);
        Bridging::VlanId vlanId = vlanArg(args[0]);
        const std::string& verb = args[1];
        if (verb == "add") {
          VlanPhyIntfStatusLib::VlanPhyIntfEntry entry;
          for (std::size_t i = 3; i < args.size(); ++i) {
            if (args[i] == "tagged") {
              entry.tagged = true;
            } else if (args[i] == "no-ingress") {
              entry.ingress = false;
            } else if (args[i] == "no-egress") {
              entry.egress = false;
            } else {
              throw CommandError("unknown flag '" + args[i] + "' (tagged, no-ingress, no-egress)");
            }
          }
          auto ports = parseIntfRange(args[2]);
          auto status = statusDir->vlanPhyIntfStatusIs(vlanId);
          for (const auto& port : ports) status->intfIs(port, entry);
          return;
        }
        expectArgs(args, 3, 3, usage);
        if (verb == "remove") {
          auto ports = parseIntfRange(args[2]);
          auto status = statusDir->vlanPhyIntfStatus(vlanId);
          if (!status) throw CommandError(fmt::format("vlan {} has no members", vlanId.value()));
          for (const auto& port : ports) status->intfDel(port);
        } else if (verb == "expand" || verb == "no-expand") {
          Bridging::VlanExpansion expansion{vlanId, vlanArg(args[2])};
          if (verb == "expand") {
            bridgingConfig->staticExpVlanIs(expansion);
          } else {
            bridgingConfig->staticExpVlanDel(expansion);
          }
        } else if (verb == "dynamic-expand") {
          dynamicDir->vlanToExpVlanListIs(vlanId)->expVlanIs(vlanArg(args[2]));
        } else if (verb == "no-dynamic-expand") {
          if (auto list = dynamicDir->vlanToExpVlanList(vlanId)) list->expVlanDel(vlanArg(args[2]));
        } else if (verb == "fid") {
          bridgingConfig->vidToFidMapIs(vlanId,
                                        Bridging::Fid(static_cast<std::uint16_t>(parseInteger(args[2], 1, 4094))));
        } else {
          throw CommandError("usage: " + usage);
        }
      });
  shell_.commandIs("no vlan", "ID", "remove a VLAN and its members", [=](const Args& args, std::ostream&) {
    expectArgs(args, 1, 1, "no vlan ID");
    statusDir->vlanPhyIntfStatusDel(vlanArg(args[0]));
  });
  shell_.commandIs("chip vlan", "ack-delay SECONDS | fail next N | capacity N | resources-available",
                   "soft chip VLAN table: acknowledgement delay, planned failures, size, retry",
                   [this](const Args& args, std::ostream&) {
                     const std::string usage =
                         "chip vlan ack-delay SECONDS | chip vlan fail next N | chip vlan capacity N | "
                         "chip vlan resources-available";
                     expectArgs(args, 1, 3, usage);
                     const char* table = SoftChip::SoftVlanTable::tableName;
                     if (args[0] == "ack-delay" && args.size() == 2) {
                       chip_->ackDelayIs(table, parseSeconds(args[1]));
                     } else if (args[0] == "fail" && args.size() == 3 && args[1] == "next") {
                       chip_->faultIs(table, SoftChip::Fault::failed,
                                      static_cast<std::uint32_t>(parseInteger(args[2], 1, 1000000)));
                     } else if (args[0] == "capacity" && args.size() == 2) {
                       chip_->capacityIs(table, static_cast<std::size_t>(parseInteger(args[1], 0, 4094)));
                     } else if (args[0] == "resources-available" && args.size() == 1) {
                       vlanHelper_->hwResourcesAvailable();
                     } else {
                       throw CommandError("usage: " + usage);
                     }
                   });
  registerSwitchportCommands(bridgingConfig);
  shell_.commandIs("show vlan", "[ID] [json]",
                   "configured, confirmed and hardware members, pending and in-flight generations",
                   [this, statusDir](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 1, "show vlan [ID] [json]");
                     std::set<Bridging::VlanId> vlans;
                     if (!args.empty()) {
                       vlans.insert(vlanArg(args[0]));
                     } else {
                       for (const auto& [id, status] : statusDir->vlanPhyIntfStatus()) vlans.insert(id);
                       for (const auto& [id, vlan] : vlanHelper_->table().entries) vlans.insert(id);
                       for (const auto& [id, update] : vlanHelper_->vlanUpdate()) vlans.insert(id);
                     }
                     std::vector<VlanView> views;
                     for (const auto& vlanId : vlans) views.push_back(vlanView(vlanId, *statusDir, *vlanHelper_));
                     if (json) {
                       printJson(out, [&](JsonWriter& w) { vlansJson(w, views); });
                       return;
                     }
                     for (const auto& view : views) printVlan(out, view);
                   });
}

// The switch-port configuration the bridging agent publishes: VLAN
// membership itself stays with the `vlan` commands; the forwarding layer
// reads mode and access VLAN where they change what a port's ACLs mean.
void VlanFeature::registerSwitchportCommands(const Vex::Ptr<Bridging::Config>& bridgingConfig) {
  shell_.commandFormIs(
      "interface", "INTFS switchport mode access|trunk|routed | INTFS switchport access vlan V",
      [](const Args& args) { return args.size() >= 2 && args[1] == "switchport"; },
      [bridgingConfig](const Args& args, std::ostream&) {
        const std::string usage =
            "interface INTFS switchport mode access|trunk|routed | "
            "interface INTFS switchport access vlan V";
        expectArgs(args, 4, 5, usage);
        std::optional<Bridging::SwitchportMode> mode;
        std::optional<Bridging::VlanId> vlanId;
        if (args[2] == "mode" && args.size() == 4) {
          for (auto m :
               {Bridging::SwitchportMode::access, Bridging::SwitchportMode::trunk, Bridging::SwitchportMode::routed}) {
            if (args[3] == modeName(m)) mode = m;
          }
          if (!mode) throw CommandError(fmt::format("bad mode '{}': expected access, trunk or routed", args[3]));
        } else if (args[2] == "access" && args[3] == "vlan" && args.size() == 5) {
          vlanId = vlanArg(args[4]);
        } else {
          throw CommandError("usage: " + usage);
        }
        for (const auto& intf : parseIntfRange(args[0])) {
          if (!intf.isEthernet() || intf.isSubIntf()) throw CommandError(intf.stringValue() + " is not a port");
        }
        for (const auto& intf : parseIntfRange(args[0])) {
          Bridging::SwitchIntfConfig config = bridgingConfig->switchIntfConfig(intf);
          if (mode) config.mode = *mode;
          if (vlanId) config.cfgVlanId = *vlanId;
          if (config == Bridging::SwitchIntfConfig{}) {
            bridgingConfig->switchIntfConfigDel(intf);
          } else {
            bridgingConfig->switchIntfConfigIs(intf, config);
          }
        }
      });
  shell_.commandIs("show interfaces switchport", "[json]", "ports' switch-port mode and access VLAN",
                   [bridgingConfig](Args args, std::ostream& out) {
                     const bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show interfaces switchport [json]");
                     std::map<Nexo::IntfId, Bridging::SwitchIntfConfig> ports(
                         bridgingConfig->switchIntfConfig().begin(), bridgingConfig->switchIntfConfig().end());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("switchports");
                         w.StartObject();
                         for (const auto& [intf, config] : ports) {
                           w.Key(intf.stringValue().c_str());
                           w.StartObject();
                           w.Key("mode");
                           w.String(modeName(config.mode));
                           w.Key("accessVlan");
                           w.Uint(config.cfgVlanId.valid() ? config.cfgVlanId.value() : 1);
                           w.EndObject();
                         }
                         w.EndObject();
                         w.EndObject();
                       });
                       return;
                     }
                     for (const auto& [intf, config] : ports) {
                       out << fmt::format("{:<16} {:<7} access vlan {}\n", intf.stringValue(), modeName(config.mode),
                                          config.cfgVlanId.valid() ? config.cfgVlanId.value() : 1);
                     }
                   });
}

}  // namespace Agent
