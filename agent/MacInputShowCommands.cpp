// What the MAC machine reads and writes beyond the address table: its
// queue of changes, every source's entry for one key, the rows the chip
// reported, learning, the remote reference counts and the hosts offered to
// the L2 RIB. Each takes a trailing `json`.
#include "agent/MacFeature.h"
#include "agent/MacJson.h"
#include "agent/MacPaths.h"

#include <fmt/format.h>

#include <set>

namespace Agent {

namespace {

const char* actionName(Orb::EntryEvaluationAction action) {
  switch (action) {
    case Orb::EntryEvaluationAction::addOrModify:
      return "add";
    case Orb::EntryEvaluationAction::remove:
      return "remove";
    case Orb::EntryEvaluationAction::remoteToLocal:
      return "remote-to-local";
    case Orb::EntryEvaluationAction::none:
      break;
  }
  return "none";
}

std::string rowText(const OrbTypes::MacAddressTableEntry& row) {
  return fmt::format("{} {} moves {} last move {:.3f}", row.intf.stringValue(), entryTypeText(row.entryType),
                     row.moves.value(), row.lastMoveTime);
}

std::string entryText(const OrbTypes::RemoteMacAddressTableEntry& e) {
  std::string text = rowText({e.macVlanPair, e.intf, e.entryType, e.moves, e.lastMoveTime});
  if (e.preference) text += fmt::format(" preference {}", e.preference);
  if (e.swTunnelGroupId.value) text += fmt::format(" tunnel-group {}", e.swTunnelGroupId.value);
  if (e.hasL2RibObjTuple) {
    text += fmt::format(" {} {}", e.l2RibObjTuple.type == L2Rib::objTypeLoadBalance ? "load-balance" : "dest",
                        e.l2RibObjTuple.id);
  }
  return text;
}

}  // namespace

void MacFeature::registerMacInputShowCommands() {
  auto macTable = hive_->mount<OrbTypes::MacTable>(MacPaths::macTable);
  auto routerMacs = hive_->mount<OrbTypes::MacTable>(MacPaths::routerMacTable);
  auto config = hive_->mount<Bridging::Config>(MacPaths::bridgingConfig);
  auto status = hive_->mount<Bridging::Status>(MacPaths::bridgingStatus);
  auto mlagHosts = hive_->mount<Mlag::HostTable>(MacPaths::mlagHostTable);
  auto dot1xHosts = hive_->mount<Dot1x::HostTable>(MacPaths::dot1xHostTable);
  auto dot1xStatus = hive_->mount<Dot1x::Status>(MacPaths::dot1xStatus);
  auto l2RibHosts = hive_->mount<L2Rib::HostOutput>(MacPaths::l2RibHostOutput);
  auto l2RibInput = hive_->mount<L2Rib::HostInput>(MacPaths::l2RibHostInput);
  auto remoteHosts = hive_->mount<Bridging::RemoteMacTable>(MacPaths::remoteMacTable);
  auto nonAging = hive_->mount<Orb::NonAgingStatus>(MacPaths::nonAgingStatus);
  auto rmacInfo = hive_->mount<Orb::VXLAN::RemoteMacInfoDir>(MacPaths::remoteMacInfo);
  auto intfConfig = hive_->mount<Interface::EthPhyIntfConfigDir>(MacPaths::ethPhyIntfConfig);

  // Every key a change can be queued for is named by a source or by what
  // was programmed: the queue is read key by key through them.
  auto queuedKeys = [=, this]() {
    std::set<Bridging::MacVlanPair> keys;
    for (const auto& [key, row] : macTable->macEntry()) keys.insert(key);
    for (const auto& [key, row] : config->fdbConfig()) keys.insert(key);
    for (const auto& [key, row] : nonAging->macEntries()) keys.insert(key);
    for (const auto& [addr, row] : dot1xHosts->host()) keys.insert(row.macVlanPair);
    for (const auto& [key, row] : mlagHosts->hostEntry()) keys.insert(key);
    for (const auto& [key, row] : l2RibHosts->host()) keys.insert(key);
    for (const auto& [key, row] : remoteHosts->configuredHost()) keys.insert(key);
    for (const auto& [key, row] : remoteHosts->receivedHost()) keys.insert(key);
    for (const auto& [key, row] : status->remoteStatusTable()) keys.insert(key);
    status->forEachLearnedHost(
        [&](const Bridging::MacVlanPair& key, const Bridging::LearnedHost&) { keys.insert(key); });
    std::vector<Vex::Ptr<Orb::ModifyMacEntry>> changes;
    for (const auto& key : keys) {
      if (auto change = macAddrSm_->queuedChange(key)) changes.push_back(change);
    }
    return changes;
  };
  shell_.commandIs("show mac pending", "[json]", "the MAC machine's queued changes, waiting for the chip",
                   [this, queuedKeys](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac pending [json]");
                     auto changes = queuedKeys();
                     auto bookmark = macAddrSm_->updateBookmark();
                     double now = loop_->now();
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("queued");
                         w.Uint64(macAddrSm_->updateListSize());
                         w.Key("toReview");
                         w.Uint64(macAddrSm_->macTableUpdateListSize());
                         w.Key("staticCollidingWithRouterMac");
                         w.Uint(macAddrSm_->collidingStaticEntryWithRouterMacEntry());
                         w.Key("changes");
                         w.StartArray();
                         for (const auto& change : changes) {
                           w.StartObject();
                           writeMacEntryJson(w, change->entry());
                           w.Key("action");
                           w.String(actionName(change->action));
                           w.Key("queuedFor");
                           w.Double(now - change->queuedTime);
                           w.Key("fullLogged");
                           w.Bool(change->fullLogged);
                           w.Key("next");
                           w.Bool(bookmark && *bookmark == change->macVlanPair());
                           w.EndObject();
                         }
                         w.EndArray();
                         w.EndObject();
                       });
                       return;
                     }
                     out << fmt::format("Queued changes: {}  hardware changes to review: {}\n",
                                        macAddrSm_->updateListSize(), macAddrSm_->macTableUpdateListSize());
                     if (auto colliding = macAddrSm_->collidingStaticEntryWithRouterMacEntry()) {
                       out << fmt::format("Static entries set aside for colliding with a router MAC: {}\n", colliding);
                     }
                     if (changes.empty()) return;
                     out << fmt::format("{:<5} {:<18} {:<16} {:<20} {:<16} {:>5}  {:>8}  {}\n", "Vlan", "Mac Address",
                                        "Action", "Type", "Ports", "Moves", "Queued", "Flags");
                     for (const auto& change : changes) {
                       std::string flags;
                       if (change->fullLogged) flags = "table-full-logged";
                       if (bookmark && *bookmark == change->macVlanPair()) flags += flags.empty() ? "next" : " next";
                       out << fmt::format("{:<5} {:<18} {:<16} {:<20} {:<16} {:>5}  {:>7.3f}s  {}\n",
                                          change->macVlanPair().vlanId.value(),
                                          change->macVlanPair().addr.stringValue(), actionName(change->action),
                                          entryTypeText(change->entryType()), change->intf().stringValue(),
                                          change->moves().value(), now - change->queuedTime, flags);
                     }
                     if (changes.size() != macAddrSm_->updateListSize()) {
                       out << fmt::format("({} more queued for keys no source names)\n",
                                          macAddrSm_->updateListSize() - changes.size());
                     }
                   });

  shell_.commandIs(
      "show mac sources", "MAC vlan V [json]",
      "every source's entry for one address, what was programmed, what is queued and what the chip holds",
      [=, this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        const std::string usage = "show mac sources MAC vlan V [json]";
        expectArgs(args, 3, 3, usage);
        auto key = keyArgs(args, 0, usage);
        std::vector<std::pair<std::string, OrbTypes::RemoteMacAddressTableEntry>> rows;
        if (macTable->macEntryHas(key)) rows.emplace_back("hardware", remoteEntryOf(macTable->macEntry(key)));
        if (l2RibHosts->hostHas(key)) rows.emplace_back("l2rib", l2RibHosts->host(key));
        if (remoteHosts->receivedHostHas(key)) rows.emplace_back("evpn", remoteHosts->receivedHost(key));
        if (remoteHosts->configuredHostHas(key)) rows.emplace_back("static-remote", remoteHosts->configuredHost(key));
        if (config->fdbConfigHas(key)) rows.emplace_back("static", remoteEntryOf(config->fdbConfig(key)));
        if (nonAging->macEntriesHas(key)) rows.emplace_back("non-aging", remoteEntryOf(nonAging->macEntries(key)));
        if (dot1xHosts->hostHas(key.addr) && dot1xHosts->host(key.addr).macVlanPair == key) {
          rows.emplace_back("dot1x", remoteEntryOf(dot1xHosts->host(key.addr)));
        }
        if (mlagHosts->hostEntryHas(key)) rows.emplace_back("mlag-peer", remoteEntryOf(mlagHosts->hostEntry(key)));
        if (routerMacs->macEntryHas(key)) rows.emplace_back("router-mac", remoteEntryOf(routerMacs->macEntry(key)));
        if (status->remoteStatusTableHas(key)) rows.emplace_back("programmed", status->remoteStatusTable(key));
        if (const auto* host = status->learnedHost(key)) {
          rows.emplace_back("programmed", OrbTypes::remoteEntryOf(
                                              {key, host->intf, host->entryType, host->moves, host->lastMoveTime}));
        }
        auto change = macAddrSm_->queuedChange(key);
        if (change) rows.emplace_back(std::string("queued-") + actionName(change->action), change->entry());
        const auto* chipEntry = fdbHelper_->table().entry(key);
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            writeMacKeyJson(w, key);
            w.Key("sources");
            w.StartArray();
            for (const auto& [source, entry] : rows) {
              w.StartObject();
              w.Key("source");
              w.String(source.c_str());
              writeMacEntryJson(w, entry);
              w.EndObject();
            }
            w.EndArray();
            w.Key("chip");
            if (chipEntry) {
              w.StartObject();
              w.Key("interface");
              w.String(chipEntry->intf.stringValue().c_str());
              w.Key("type");
              w.String(entryTypeText(chipEntry->entryType));
              w.Key("remote");
              w.Bool(chipEntry->remote);
              w.Key("nextHop");
              w.Uint64(fdbHelper_->table().nextHopOf(key));
              w.EndObject();
            } else {
              w.Null();
            }
            w.EndObject();
          });
          return;
        }
        out << key.stringValue() << "\n";
        for (const auto& [source, entry] : rows) out << fmt::format("  {:<16} {}\n", source, entryText(entry));
        if (chipEntry) {
          out << fmt::format("  {:<16} {} {}{}\n", "chip", chipEntry->intf.stringValue(),
                             entryTypeText(chipEntry->entryType),
                             chipEntry->remote ? fmt::format(" next hop {}", fdbHelper_->table().nextHopOf(key)) : "");
        } else {
          out << fmt::format("  {:<16} none\n", "chip");
        }
      });

  shell_.commandIs("show chip mac-table", "[json]", "the hardware-learned MAC table rows the chip layer wrote",
                   [macTable](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show chip mac-table [json]");
                     std::vector<OrbTypes::MacAddressTableEntry> rows;
                     for (const auto& [key, row] : macTable->macEntry()) rows.push_back(row);
                     std::sort(rows.begin(), rows.end(),
                               [](const auto& a, const auto& b) { return a.macVlanPair < b.macVlanPair; });
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& row : rows) {
                           w.StartObject();
                           writeMacRowJson(w, row);
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& row : rows) {
                       out << fmt::format("{:<5} {:<18} {}\n", row.macVlanPair.vlanId.value(),
                                          row.macVlanPair.addr.stringValue(), rowText(row));
                     }
                     out << fmt::format("{} rows\n", rows.size());
                   });

  shell_.commandIs(
      "show mac learning", "[json]", "where learning is off: configured, for 802.1X, and in the chip",
      [this, config, intfConfig, dot1xStatus](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 0, "show mac learning [json]");
        std::set<Nexo::IntfId> offIntf(intfConfig->macLearningDisabled().begin(),
                                       intfConfig->macLearningDisabled().end());
        std::set<Bridging::VlanId> offVlan(config->macLearningDisabledVlan().begin(),
                                           config->macLearningDisabledVlan().end());
        std::set<Nexo::IntfId> restricted(dot1xStatus->restrictedIntf().begin(), dot1xStatus->restrictedIntf().end());
        std::set<Nexo::IntfId> chipOffIntf(fdbHelper_->learningOffPorts().begin(),
                                           fdbHelper_->learningOffPorts().end());
        std::set<Bridging::VlanId> chipOffVlan(fdbHelper_->learningOffVlans().begin(),
                                               fdbHelper_->learningOffVlans().end());
        const char* mode =
            fdbHelper_->learning() == SoftChip::SoftFdbHelper::Learning::software ? "software" : "hardware";
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            auto intfs = [&](const char* name, const std::set<Nexo::IntfId>& set) {
              w.Key(name);
              w.StartArray();
              for (const auto& intf : set) w.String(intf.stringValue().c_str());
              w.EndArray();
            };
            auto vlans = [&](const char* name, const std::set<Bridging::VlanId>& set) {
              w.Key(name);
              w.StartArray();
              for (auto vlanId : set) w.Uint(vlanId.value());
              w.EndArray();
            };
            w.StartObject();
            w.Key("chipLearning");
            w.String(mode);
            intfs("configuredOffInterfaces", offIntf);
            vlans("configuredOffVlans", offVlan);
            intfs("dot1xRestrictedPorts", restricted);
            intfs("chipOffInterfaces", chipOffIntf);
            vlans("chipOffVlans", chipOffVlan);
            w.EndObject();
          });
          return;
        }
        auto intfList = [](const std::set<Nexo::IntfId>& set) {
          std::string text;
          for (const auto& intf : set) text += " " + intf.stringValue();
          return set.empty() ? std::string(" none") : text;
        };
        auto vlanList = [](const std::set<Bridging::VlanId>& set) {
          std::string text;
          for (auto vlanId : set) text += fmt::format(" {}", vlanId.value());
          return set.empty() ? std::string(" none") : text;
        };
        out << fmt::format("Chip learning: {}\n", mode);
        out << "Configured off on interfaces:" << intfList(offIntf) << "\n";
        out << "Configured off in vlans:" << vlanList(offVlan) << "\n";
        out << "802.1X restricted ports:" << intfList(restricted) << "\n";
        out << "Chip learning off on interfaces:" << intfList(chipOffIntf) << "\n";
        out << "Chip learning off in vlans:" << vlanList(chipOffVlan) << "\n";
      });

  shell_.commandIs("show vxlan remote-mac-info", "[json]",
                   "how many programmed remote MACs use each next hop and each VLAN",
                   [rmacInfo](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show vxlan remote-mac-info [json]");
                     std::map<std::uint64_t, std::uint32_t> nextHops(rmacInfo->nextHopRefCount().begin(),
                                                                     rmacInfo->nextHopRefCount().end());
                     std::map<Bridging::VlanId, std::uint32_t> vlans(rmacInfo->vlanRefCount().begin(),
                                                                     rmacInfo->vlanRefCount().end());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("nextHops");
                         w.StartObject();
                         for (const auto& [id, count] : nextHops) {
                           w.Key(std::to_string(id).c_str());
                           w.Uint(count);
                         }
                         w.EndObject();
                         w.Key("vlans");
                         w.StartObject();
                         for (const auto& [vlanId, count] : vlans) {
                           w.Key(std::to_string(vlanId.value()).c_str());
                           w.Uint(count);
                         }
                         w.EndObject();
                         w.EndObject();
                       });
                       return;
                     }
                     for (const auto& [id, count] : nextHops)
                       out << fmt::format("next hop {:<12} {} remote MACs\n", id, count);
                     for (const auto& [vlanId, count] : vlans)
                       out << fmt::format("vlan {:<16} {} remote MACs\n", vlanId.value(), count);
                   });

  shell_.commandIs("show l2rib host-input", "[json]", "the hosts learned here, offered to the L2 RIB",
                   [l2RibInput](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show l2rib host-input [json]");
                     std::vector<OrbTypes::MacAddressTableEntry> rows;
                     for (const auto& [key, row] : l2RibInput->host()) rows.push_back(row);
                     std::sort(rows.begin(), rows.end(),
                               [](const auto& a, const auto& b) { return a.macVlanPair < b.macVlanPair; });
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& row : rows) {
                           w.StartObject();
                           writeMacRowJson(w, row);
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& row : rows) {
                       out << fmt::format("{:<5} {:<18} {}\n", row.macVlanPair.vlanId.value(),
                                          row.macVlanPair.addr.stringValue(), rowText(row));
                     }
                     out << fmt::format("{} hosts\n", rows.size());
                   });

  shell_.commandIs("show mac non-aging", "[json]", "the addresses that never age, with how many owners hold each",
                   [this, nonAging](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac non-aging [json]");
                     std::vector<OrbTypes::MacAddressTableEntry> rows;
                     for (const auto& [key, row] : nonAging->macEntries()) rows.push_back(row);
                     std::sort(rows.begin(), rows.end(),
                               [](const auto& a, const auto& b) { return a.macVlanPair < b.macVlanPair; });
                     auto owners = [this](const Bridging::MacVlanPair& key) {
                       return nonAgingSm_ ? nonAgingSm_->macEntriesRef(key) : 0u;
                     };
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& row : rows) {
                           w.StartObject();
                           writeMacRowJson(w, row);
                           w.Key("owners");
                           w.Uint(owners(row.macVlanPair));
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& row : rows) {
                       out << fmt::format("{:<5} {:<18} {} owners {}\n", row.macVlanPair.vlanId.value(),
                                          row.macVlanPair.addr.stringValue(), rowText(row), owners(row.macVlanPair));
                     }
                     out << fmt::format("{} non-aging addresses\n", rows.size());
                   });
}

}  // namespace Agent
