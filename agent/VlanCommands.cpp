// VLAN commands: membership as the bridging agent publishes it, chip knobs
// of the VLAN table, and `show vlan`.
#include "agent/Agent.h"
#include "agent/IntfRange.h"

#include <fmt/format.h>

#include <set>

namespace Agent {

namespace {

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

}  // namespace

void Agent::registerVlanCommands() {
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
  shell_.commandIs("show vlan", "[ID]", "configured and hardware members, pending and in-flight generations",
                   [this, statusDir](const Args& args, std::ostream& out) {
                     expectArgs(args, 0, 1, "show vlan [ID]");
                     std::set<Bridging::VlanId> vlans;
                     if (!args.empty()) {
                       vlans.insert(vlanArg(args[0]));
                     } else {
                       for (const auto& [id, status] : statusDir->vlanPhyIntfStatus()) vlans.insert(id);
                       for (const auto& [id, vlan] : vlanHelper_->table().vlans) vlans.insert(id);
                       for (const auto& [id, update] : vlanHelper_->vlanUpdate()) vlans.insert(id);
                     }
                     for (const auto& vlanId : vlans) {
                       std::set<Nexo::IntfId> untagged, tagged;
                       if (auto status = statusDir->vlanPhyIntfStatus(vlanId)) {
                         for (const auto& [port, entry] : status->intf())
                           (entry.tagged ? tagged : untagged).insert(port);
                       }
                       const SoftChip::HwVlan* hw = vlanHelper_->table().vlan(vlanId);
                       auto pending = vlanHelper_->vlanUpdate(vlanId);
                       auto request = vlanHelper_->updateConfig()->vlanUpdate(vlanId);
                       auto answer = vlanHelper_->updateStatus()->hwStatus(vlanId);
                       auto done = vlanHelper_->lastCompletedUpdateStatus()->hwStatus(vlanId);
                       std::string generations = fmt::format("done {}", done ? done->genId() : 0);
                       if (pending) generations += fmt::format(", pending {}", pending->genId());
                       if (request && !answer) generations += fmt::format(", in flight {}", request->genId());
                       if (answer && answer->programmingStatus() == Orb::VlanProgrammingStatus::programmingFailed) {
                         generations += fmt::format(", failed {}", answer->genId());
                       }
                       out << fmt::format("VLAN {}  fid {}  generations: {}\n", vlanId.value(),
                                          hw ? std::to_string(hw->fid.value()) : "-", generations);
                       out << "  configured: " << portsText(untagged, tagged) << "\n";
                       out << "  hardware:   " << (hw ? portsText(hw->untagged, hw->tagged) : "-") << "\n";
                     }
                   });
}

}  // namespace Agent
