// MAC table commands: hardware learning on the soft chip, static entries,
// chip knobs of the forwarding database, and the address table as shown to
// a person.
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/MacArgs.h"
#include "agent/MacFeature.h"
#include "agent/MacJson.h"
#include "agent/MacPaths.h"
#include "platform/hotup/HotupPStoreHelper.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace Agent {

MacFeature::MacFeature(const AgentCore& core, VlanFeature& vlans)
    : Feature(core), vlanHelper_(vlans.helper()), macStorePath_(core.options.macStorePath) {
  fdbHelper_ =
      Vex::make<SoftChip::SoftFdbHelper>(chip_, hive_->mount<OrbTypes::MacTable>(Orb::MacAddrSmMounter::macTablePath));
  if (!macStorePath_.empty()) {
    if (auto document = Hotup::readStoreFile(macStorePath_)) restoreMacTable(*document, true);
  }
  startMacAddrSm();
}

MacFeature::~MacFeature() {
  macAddrSm_.reset();
  nonAgingSm_.reset();
  fdbHelper_.reset();
}

void MacFeature::registerCommands() {
  registerMacCommands();
  registerMacStoreCommands();
  registerMacInputCommands();
  registerMacInputShowCommands();
}

void MacFeature::startMacAddrSm() {
  Orb::MacAddrSmMounter mounter(hive_, ocsd_, fdbHelper_, vlanHelper_);
  mounter.doMounts();
  macAddrSm_ = mounter.doMountsComplete();
  auto nonAgingStatus = hive_->mount<Orb::NonAgingStatus>(MacPaths::nonAgingStatus);
  nonAgingSm_ = Orb::nonAgingConfigDirSmFactory(ocsd_, hive_->mount<Orb::NonAgingConfigDir>(MacPaths::nonAgingConfig),
                                                nonAgingStatus);
  macAddrSm_->nonAgingMacStatusIs(nonAgingStatus);
  macAddrSm_->dynamicHostStatusIs(hive_->mount<Bridging::DynamicHostStatus>(Paths::dynamicHostStatus));
}

void MacFeature::registerMacCommands() {
  auto config = hive_->mount<Bridging::Config>(MacPaths::bridgingConfig);
  auto status = hive_->mount<Bridging::Status>(MacPaths::bridgingStatus);

  shell_.commandIs("chip learn", "MAC vlan V INTF", "the chip learns an address from a frame on a port",
                   [this](const Args& args, std::ostream& out) {
                     const std::string usage = "chip learn MAC vlan V INTF";
                     expectArgs(args, 4, 4, usage);
                     auto key = keyArgs(args, 0, usage);
                     if (!fdbHelper_->learn(key, oneIntf(args[3])))
                       out << "not learned (learning off, not a VLAN member, table full or a static entry)\n";
                   });
  shell_.commandIs("chip learn-range", "MAC COUNT vlan V INTF", "the chip learns COUNT consecutive addresses",
                   [this](const Args& args, std::ostream& out) {
                     const std::string usage = "chip learn-range MAC COUNT vlan V INTF";
                     expectArgs(args, 5, 5, usage);
                     auto first = macArg(args[0]);
                     auto count = static_cast<std::uint64_t>(parseInteger(args[1], 1, 1000000));
                     if (args[2] != "vlan") throw CommandError("usage: " + usage);
                     auto vlanId = vlanArg(args[3]);
                     auto intf = oneIntf(args[4]);
                     std::uint64_t learned = 0;
                     for (std::uint64_t i = 0; i < count; ++i) {
                       learned += fdbHelper_->learn({Nexo::EthAddr(first.value() + i), vlanId}, intf);
                     }
                     if (learned != count) out << fmt::format("learned {} of {}\n", learned, count);
                   });
  shell_.commandIs("chip age-sweep", "", "run the chip's aging sweep now", [this](const Args& args, std::ostream& out) {
    expectArgs(args, 0, 0, "chip age-sweep");
    out << fmt::format("{} entries aged\n", fdbHelper_->ageSweep());
  });
  shell_.commandIs(
      "chip fdb", "capacity N | busy|full|fail next N | mode direct|indirect | learning hardware|software",
      "soft chip forwarding database: size, planned answers, programming and who learns",
      [this](const Args& args, std::ostream&) {
        const std::string usage =
            "chip fdb capacity N | chip fdb busy|full|fail next N | chip fdb mode direct|indirect | "
            "chip fdb learning hardware|software";
        expectArgs(args, 2, 3, usage);
        const char* table = SoftChip::SoftFdbTable::tableName;
        if (args[0] == "learning" && args.size() == 2 && (args[1] == "hardware" || args[1] == "software")) {
          fdbHelper_->learningIs(args[1] == "hardware" ? SoftChip::SoftFdbHelper::Learning::hardware
                                                       : SoftChip::SoftFdbHelper::Learning::software);
          return;
        }
        if (args[0] == "mode" && args.size() == 2 && (args[1] == "direct" || args[1] == "indirect")) {
          fdbHelper_->modeIs(args[1] == "direct" ? SoftChip::SoftFdbHelper::Mode::direct
                                                 : SoftChip::SoftFdbHelper::Mode::indirect);
          return;
        }
        applyChipTableArgs(*chip_, table, args, usage);
      });
  shell_.commandIs(
      "mac static", "MAC vlan V INTF", "configure a static entry", [config](const Args& args, std::ostream&) {
        const std::string usage = "mac static MAC vlan V INTF";
        expectArgs(args, 4, 4, usage);
        auto key = keyArgs(args, 0, usage);
        config->fdbConfigIs(
            key, OrbTypes::MacAddressTableEntry{key, oneIntf(args[3]), Bridging::EntryType::entryStatic, {}, 0.0});
      });
  shell_.commandIs("mac remove static", "MAC vlan V", "remove a static entry",
                   [config](const Args& args, std::ostream&) {
                     const std::string usage = "mac remove static MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     if (!config->fdbConfigHas(key))
                       throw CommandError("no static entry for " + args[0] + " vlan " + args[2]);
                     config->fdbConfigDel(key);
                   });
  shell_.commandIs("mac aging-time", "SECONDS", "host aging time (0 turns aging off)",
                   [config](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "mac aging-time SECONDS");
                     double seconds = parseSeconds(args[0]);
                     if (seconds > 1000000) throw CommandError("aging time is at most 1000000 seconds");
                     config->hostAgingTimeIs(seconds);
                   });
  auto flushRequests = hive_->mount<Bridging::HostTableFlushRequestDir>(MacPaths::flushRequest);
  auto flushReplies = hive_->mount<Bridging::HostTableFlushReplyDir>(MacPaths::flushReply);
  shell_.commandIs(
      "clear mac address-table", "[vlan V] [interface I] [address MAC]",
      "flush learned addresses (a flush request, answered by the MAC machine)",
      [this, flushRequests, flushReplies](const Args& args, std::ostream&) {
        const std::string usage = "clear mac address-table [vlan V] [interface I] [address MAC]";
        Bridging::HostTableFlushRequest request;
        for (std::size_t i = 0; i < args.size(); i += 2) {
          if (i + 1 >= args.size()) throw CommandError("usage: " + usage);
          if (args[i] == "vlan") {
            request.vlanId = vlanArg(args[i + 1]).value();
          } else if (args[i] == "interface") {
            request.intf = oneIntf(args[i + 1]);
          } else if (args[i] == "address") {
            request.addr = macArg(args[i + 1]);
          } else {
            throw CommandError("usage: " + usage);
          }
        }
        auto answered = [&](const std::string& name) {
          return !flushRequests->requestHas(name) ||
                 (flushReplies->replyHas(name) && flushReplies->reply(name).request == flushRequests->request(name));
        };
        // Oldest first, while more than the last few stay answered; one still
        // pending stops the withdrawal, so every request is answered first.
        while (flushRequestNames_.size() > answeredFlushRequestsKept && answered(flushRequestNames_.front())) {
          flushRequests->requestDel(flushRequestNames_.front());
          flushRequestNames_.pop_front();
        }
        auto name = fmt::format("cli-{}", ++flushRequestCount_);
        flushRequests->requestIs(name, request);
        flushRequestNames_.push_back(name);
      });
  shell_.commandIs("show mac dynamic-hosts", "[json]", "how many learned hosts, per interface and per VLAN",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac dynamic-hosts [json]");
                     auto counts = hive_->mount<Bridging::DynamicHostStatus>(Paths::dynamicHostStatus);
                     std::map<Nexo::IntfId, std::uint32_t> byIntf(counts->hostCountOnIntf().begin(),
                                                                  counts->hostCountOnIntf().end());
                     std::map<Bridging::VlanId, std::uint32_t> byVlan(counts->hostCountInVlan().begin(),
                                                                      counts->hostCountInVlan().end());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("hosts");
                         w.Uint(counts->hostCount());
                         w.Key("interfaces");
                         w.StartObject();
                         for (const auto& [intf, count] : byIntf) {
                           w.Key(intf.stringValue().c_str());
                           w.Uint(count);
                         }
                         w.EndObject();
                         w.Key("vlans");
                         w.StartObject();
                         for (const auto& [vlanId, count] : byVlan) {
                           w.Key(std::to_string(vlanId.value()).c_str());
                           w.Uint(count);
                         }
                         w.EndObject();
                         w.EndObject();
                       });
                       return;
                     }
                     out << fmt::format("Dynamic hosts: {}\n", counts->hostCount());
                     for (const auto& [intf, count] : byIntf)
                       out << fmt::format("  interface {:<16} {}\n", intf.stringValue(), count);
                     for (const auto& [vlanId, count] : byVlan)
                       out << fmt::format("  vlan {:<21} {}\n", vlanId.value(), count);
                   });
  shell_.commandIs("show mac flush-requests", "[json]", "flush requests and whether they were answered",
                   [flushRequests, flushReplies](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac flush-requests [json]");
                     auto answered = [&](const std::string& name, const Bridging::HostTableFlushRequest& request) {
                       return flushReplies->replyHas(name) && flushReplies->reply(name).request == request;
                     };
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& [name, request] : flushRequests->request()) {
                           w.StartObject();
                           w.Key("name");
                           w.String(name.c_str());
                           w.Key("vlan");
                           w.Uint(request.vlanId);
                           w.Key("interface");
                           w.String(request.intf.empty() ? "" : request.intf.stringValue().c_str());
                           w.Key("mac");
                           w.String(request.addr.isZero() ? "" : request.addr.stringValue().c_str());
                           w.Key("answered");
                           w.Bool(answered(name, request));
                           if (answered(name, request)) {
                             w.Key("time");
                             w.Double(flushReplies->reply(name).time);
                           }
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& [name, request] : flushRequests->request()) {
                       bool done = answered(name, request);
                       out << fmt::format(
                           "{:<8} vlan {:<4} interface {:<14} address {:<17} {}\n", name,
                           request.vlanId ? std::to_string(request.vlanId) : "all",
                           request.intf.empty() ? "all" : request.intf.stringValue(),
                           request.addr.isZero() ? "all" : request.addr.stringValue(),
                           done ? fmt::format("done at {:.3f}", flushReplies->reply(name).time) : "pending");
                     }
                   });
  auto nonAging = hive_->mount<Orb::NonAgingConfigDir>(MacPaths::nonAgingConfig);
  shell_.commandIs("mac non-aging", "OWNER MAC vlan V INTF", "an address that never ages, held for OWNER",
                   [nonAging](const Args& args, std::ostream&) {
                     const std::string usage = "mac non-aging OWNER MAC vlan V INTF";
                     expectArgs(args, 5, 5, usage);
                     auto key = keyArgs(args, 1, usage);
                     nonAging->configIs(args[0])->macEntriesIs(
                         key, OrbTypes::MacAddressTableEntry{
                                  key, oneIntf(args[4]), Bridging::EntryType::entryConfiguredDynamic, {}, 0.0});
                   });
  shell_.commandIs("no mac non-aging", "OWNER MAC vlan V", "release an owner's non-aging address",
                   [nonAging](const Args& args, std::ostream&) {
                     const std::string usage = "no mac non-aging OWNER MAC vlan V";
                     expectArgs(args, 4, 4, usage);
                     auto key = keyArgs(args, 1, usage);
                     auto config = nonAging->config(args[0]);
                     if (!config || !config->macEntriesHas(key)) throw CommandError("no such non-aging entry");
                     config->macEntriesDel(key);
                   });
  shell_.commandIs(
      "show mac address-table", "[vlan V] [interface I] [count] [json]", "programmed entries with type and moves",
      [status](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        const std::string usage = "show mac address-table [vlan V] [interface I] [count] [json]";
        std::optional<Bridging::VlanId> vlan;
        std::optional<Nexo::IntfId> intf;
        bool countOnly = false;
        for (std::size_t i = 0; i < args.size(); ++i) {
          if (args[i] == "vlan" && i + 1 < args.size()) {
            vlan = vlanArg(args[++i]);
          } else if (args[i] == "interface" && i + 1 < args.size()) {
            intf = oneIntf(args[++i]);
          } else if (args[i] == "count") {
            countOnly = true;
          } else {
            throw CommandError("usage: " + usage);
          }
        }
        std::vector<OrbTypes::RemoteMacAddressTableEntry> rows;
        auto wanted = [&](const Bridging::MacVlanPair& key, const Nexo::IntfId& port) {
          return (!vlan || key.vlanId == *vlan) && (!intf || port == *intf);
        };
        status->forEachLearnedHost([&](const Bridging::MacVlanPair& key, const Bridging::LearnedHost& host) {
          if (!wanted(key, host.intf)) return;
          OrbTypes::RemoteMacAddressTableEntry entry;
          entry.macVlanPair = key;
          entry.intf = host.intf;
          entry.entryType = host.entryType;
          entry.moves = host.moves;
          entry.lastMoveTime = host.lastMoveTime;
          rows.push_back(entry);
        });
        for (const auto& [key, row] : status->remoteStatusTable()) {
          if (wanted(key, row.intf)) rows.push_back(row);
        }
        std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
          return std::tie(a.macVlanPair.vlanId, a.macVlanPair.addr) <
                 std::tie(b.macVlanPair.vlanId, b.macVlanPair.addr);
        });
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("total");
            w.Uint64(rows.size());
            if (!countOnly) {
              w.Key("entries");
              w.StartArray();
              for (const auto& row : rows) {
                w.StartObject();
                writeMacEntryJson(w, row);
                w.Key("remote");
                w.Bool(Orb::isRemoteEntryType(row.entryType));
                w.EndObject();
              }
              w.EndArray();
            }
            w.EndObject();
          });
          return;
        }
        if (countOnly) {
          out << fmt::format("Total Mac Addresses: {}\n", rows.size());
          return;
        }
        out << fmt::format("{:<5} {:<18} {:<20} {:<16} {:>5}  {}\n", "Vlan", "Mac Address", "Type", "Ports", "Moves",
                           "Last Move");
        for (const auto& row : rows) {
          const char* word = Bridging::entryTypeWord(row.entryType);
          out << fmt::format("{:<5} {:<18} {:<20} {:<16} {:>5}  {:.3f}\n", row.macVlanPair.vlanId.value(),
                             row.macVlanPair.addr.stringValue(), word ? word : "other", row.intf.stringValue(),
                             row.moves.value(), row.lastMoveTime);
        }
        out << fmt::format("Total Mac Addresses for this criterion: {}\n", rows.size());
      });
  shell_.commandIs(
      "show mac hardware", "[json]", "the soft chip's forwarding database", [this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 0, "show mac hardware [json]");
        std::vector<std::pair<Bridging::MacVlanPair, SoftChip::HwFdbEntry>> rows(fdbHelper_->table().entries.begin(),
                                                                                 fdbHelper_->table().entries.end());
        std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        std::size_t reported = fdbHelper_->reportedLearns().size();
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("agingTime");
            w.Uint(fdbHelper_->agingTime());
            w.Key("learning");
            w.String(fdbHelper_->learning() == SoftChip::SoftFdbHelper::Learning::software ? "software" : "hardware");
            w.Key("reportedLearns");
            w.Uint64(reported);
            w.Key("entries");
            w.StartArray();
            for (const auto& [key, entry] : rows) {
              w.StartObject();
              writeMacKeyJson(w, key);
              w.Key("interface");
              w.String(entry.intf.stringValue().c_str());
              w.Key("type");
              w.String(entryTypeText(entry.entryType));
              w.Key("learned");
              w.Bool(entry.learned);
              w.Key("remote");
              w.Bool(entry.remote);
              if (entry.remote) {
                w.Key("nextHop");
                w.Uint64(fdbHelper_->table().nextHopOf(key));
              }
              w.EndObject();
            }
            w.EndArray();
            w.EndObject();
          });
          return;
        }
        for (const auto& [key, entry] : rows) {
          const char* word = Bridging::entryTypeWord(entry.entryType);
          out << fmt::format("{:<5} {:<18} {:<20} {}{}{}\n", key.vlanId.value(), key.addr.stringValue(),
                             word ? word : "other", entry.intf.stringValue(), entry.learned ? "  (learned)" : "",
                             entry.remote ? fmt::format("  next hop {}", fdbHelper_->table().nextHopOf(key)) : "");
        }
        out << fmt::format("{} entries, aging time {} s\n", rows.size(), fdbHelper_->agingTime());
        if (reported) out << fmt::format("{} learns reported to software, not in the table yet\n", reported);
      });
}

}  // namespace Agent
