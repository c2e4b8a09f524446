// `show ip route`, `show ipv6 route`, `show adjacency`, `show ip watched`
// and `show ip interface`: the status model as the routing agents and the
// chip layer see it.
#include "agent/ChipTableArgs.h"
#include "agent/JsonOutput.h"
#include "agent/L3Feature.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include <map>
#include <optional>

namespace Agent {

namespace {

using GlobalFecId = Pond::Fib::GlobalFecId;

std::string nextHopText(const Orb::NextHop& nh, std::uint32_t weight) {
  return fmt::format("{} {} {} weight {} {}", nh.mac.stringValue(), nh.l2Intf.stringValue(), nh.l3Intf.stringValue(),
                     weight, Vex::valueToStrep(nh.entryType));
}

void nextHopsJson(JsonWriter& w, const Orb::NextHopCollection& nextHops) {
  w.StartArray();
  for (const auto& [nh, weight] : nextHops.nextHop()) {
    w.StartObject();
    w.Key("type");
    w.String(Vex::valueToStrep(nh.entryType).c_str());
    w.Key("mac");
    w.String(nh.mac.stringValue().c_str());
    w.Key("l2Intf");
    w.String(nh.l2Intf.stringValue().c_str());
    w.Key("l3Intf");
    w.String(nh.l3Intf.stringValue().c_str());
    w.Key("weight");
    w.Uint(weight);
    w.EndObject();
  }
  w.EndArray();
}

// The routes of one family by VRF name, then prefix.
template <class VrfPrefix>
using RoutesByVrf = std::map<std::string, std::map<VrfPrefix, Orb::AdjInfo>>;

template <class VrfPrefix, class Map>
RoutesByVrf<VrfPrefix> routesByVrf(const Orb::L3Status& status, const Map& routes,
                                   const std::optional<Orb::VrfId>& vrf) {
  RoutesByVrf<VrfPrefix> byVrf;
  if (vrf) byVrf[status.vrfName(*vrf).value()];
  for (const auto& [vp, info] : routes) {
    if (vrf && vp.vrfId != *vrf) continue;
    byVrf[status.vrfName(vp.vrfId).value()].emplace(vp, info);
  }
  return byVrf;
}

}  // namespace

void L3Feature::registerShowCommands() {
  auto showRoutes = [this](const auto& routes, Args args, std::ostream& out, const std::string& usage) {
    using VrfPrefix = typename std::decay_t<decltype(routes)>::key_type;
    using Prefix = decltype(VrfPrefix{}.prefix);
    bool json = takeJsonFlag(args);
    std::optional<Orb::VrfId> vrf;
    if (args.size() >= 2 && args[0] == "vrf") {
      vrf = vrfNamed(args[1]);
      args.erase(args.begin(), args.begin() + 2);
    }
    if (args.size() > 1) throw CommandError("usage: " + usage);
    std::optional<Prefix> only;
    if (!args.empty()) {
      try {
        only = Prefix(args[0]);
      } catch (const std::exception&) {
        throw CommandError("bad prefix '" + args[0] + "'");
      }
    }
    auto byVrf = routesByVrf<VrfPrefix>(*l3Status_, routes, vrf);
    auto adjOf = [this](GlobalFecId fec) {
      auto entry = l3Status_->adjEntryList(fec);
      return entry ? entry->l2Adj() : nullptr;
    };
    if (json) {
      printJson(out, [&](JsonWriter& w) {
        w.StartObject();
        w.Key("vrfs");
        w.StartObject();
        for (const auto& [name, vrfRoutes] : byVrf) {
          w.Key(name.c_str());
          w.StartObject();
          for (const auto& [vp, info] : vrfRoutes) {
            if (only && vp.prefix != *only) continue;
            w.Key(vp.prefix.stringValue().c_str());
            w.StartObject();
            w.Key("fec");
            w.Uint64(info.fecId.value());
            auto adj = adjOf(info.fecId);
            w.Key("adjacency");
            w.String(adj ? adj->key().stringValue().c_str() : "");
            w.Key("state");
            w.String(adj ? Vex::valueToStrep(adj->state()).c_str() : "");
            w.Key("hardware");
            w.String(tableAddStatusText(routeRefusals_->answer(routeKey(vp))).c_str());
            w.Key("nextHops");
            nextHopsJson(w, adj ? adj->nextHops() : Orb::NextHopCollection());
            w.EndObject();
          }
          w.EndObject();
        }
        w.EndObject();
        w.EndObject();
      });
      return;
    }
    for (const auto& [name, vrfRoutes] : byVrf) {
      out << "VRF " << name << "\n";
      for (const auto& [vp, info] : vrfRoutes) {
        if (only && vp.prefix != *only) continue;
        auto adj = adjOf(info.fecId);
        std::uint32_t answer = routeRefusals_->answer(routeKey(vp));
        out << fmt::format(
            "  {} fec {} adjacency {} {}{}\n", vp.prefix.stringValue(), info.fecId.value(),
            adj ? adj->key().stringValue() : "none", adj ? Vex::valueToStrep(adj->state()) : "",
            answer == SoftChip::SoftRouteHelper::addSuccess ? "" : " not in hardware: " + tableAddStatusText(answer));
        if (!adj) continue;
        for (const auto& [nh, weight] : adj->nextHops().nextHop()) out << "    via " << nextHopText(nh, weight) << "\n";
      }
    }
  };
  shell_.commandIs("show ip route summary", "[json]",
                   "routes per VRF and family, and how many of them the chip does not hold",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show ip route summary [json]");
                     showRouteSummary(out, json);
                   });
  shell_.commandIs("show ip route", "[vrf NAME] [PREFIX] [json]", "IPv4 routes: FEC, shared adjacency, next hops",
                   [this, showRoutes](const Args& args, std::ostream& out) {
                     showRoutes(l3Status_->adjInfoColl()->adjInfoList(), args, out,
                                "show ip route [vrf NAME] [PREFIX] [json]");
                   });
  shell_.commandIs("show ipv6 route", "[vrf NAME] [PREFIX] [json]", "IPv6 routes: FEC, shared adjacency, next hops",
                   [this, showRoutes](const Args& args, std::ostream& out) {
                     showRoutes(l3Status_->adjInfoColl()->adjInfo6List(), args, out,
                                "show ipv6 route [vrf NAME] [PREFIX] [json]");
                   });

  shell_.commandIs(
      "show adjacency", "[json]", "shared adjacencies: next hops, state and users per table type",
      [this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 0, "show adjacency [json]");
        std::map<Orb::L2AdjKey, Vex::Ptr<Orb::L2Adjacency>> adjs(l3Status_->l2AdjList().begin(),
                                                                 l3Status_->l2AdjList().end());
        auto counts = l3Status_->adjPrefixCountStatus();
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("collections");
            w.Uint64(internal_->nextHopsToL2AdjSize());
            w.Key("reviewPasses");
            w.Uint64(l3Status_->adjEntryReviewCnt());
            w.Key("adjacencies");
            w.StartObject();
            for (const auto& [key, adj] : adjs) {
              w.Key(key.stringValue().c_str());
              w.StartObject();
              w.Key("state");
              w.String(Vex::valueToStrep(adj->state()).c_str());
              if (auto refused = l2AdjSm_->pending().find(key); refused != l2AdjSm_->pending().end()) {
                w.Key("hardware");
                w.String(tableAddStatusText(refused->second).c_str());
              }
              w.Key("nextHops");
              nextHopsJson(w, adj->nextHops());
              w.Key("users");
              w.StartObject();
              std::set<GlobalFecId> fecs(adj->adjEntry().begin(), adj->adjEntry().end());
              for (const auto& fec : fecs) {
                w.Key(std::to_string(fec.value()).c_str());
                w.StartObject();
                w.Key("tableTypes");
                w.Uint(adj->adjEntryAndTableType(fec).value());
                w.Key("routes");
                w.Uint64(counts->adjPrefixCount(fec) + counts->adjPrefix6Count(fec));
                w.EndObject();
              }
              w.EndObject();
              w.Key("usersPerTableType");
              w.StartObject();
              for (const auto& [type, users] : std::map(adj->adjTableType().begin(), adj->adjTableType().end())) {
                w.Key(Vex::valueToStrep(type).c_str());
                w.Uint(users);
              }
              w.EndObject();
              w.EndObject();
            }
            w.EndObject();
            w.Key("reviews");
            w.StartObject();
            for (const auto& [fec, mask] :
                 std::map(l3Status_->adjEntryReviewList().begin(), l3Status_->adjEntryReviewList().end())) {
              w.Key(std::to_string(fec.value()).c_str());
              w.Uint(static_cast<std::uint32_t>(mask));
            }
            w.EndObject();
            w.EndObject();
          });
          return;
        }
        for (const auto& [key, adj] : adjs) {
          std::set<GlobalFecId> fecs(adj->adjEntry().begin(), adj->adjEntry().end());
          std::string users;
          for (const auto& fec : fecs) users += fmt::format(" {}", fec.value());
          auto refused = l2AdjSm_->pending().find(key);
          std::string hardware =
              refused == l2AdjSm_->pending().end() ? "" : " not in hardware: " + tableAddStatusText(refused->second);
          out << fmt::format("Adjacency {} {}{} fecs{}\n", key.stringValue(), Vex::valueToStrep(adj->state()), hardware,
                             users);
          for (const auto& [nh, weight] : adj->nextHops().nextHop()) out << "  via " << nextHopText(nh, weight) << "\n";
          for (const auto& [type, count] : std::map(adj->adjTableType().begin(), adj->adjTableType().end()))
            out << fmt::format("  {} users {}\n", Vex::valueToStrep(type), count);
        }
        out << fmt::format("collections {} adjacencies {} review passes {}\n", internal_->nextHopsToL2AdjSize(),
                           adjs.size(), l3Status_->adjEntryReviewCnt());
      });

  shell_.commandIs(
      "show fec", "[ID] [json]", "FECs as the chip holds them: adjacency, and the slot layout of resilient ones",
      [this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 1, "show fec [ID] [json]");
        std::optional<GlobalFecId> only;
        if (!args.empty()) only = knownFec(args[0]);
        // Every FEC the layer knows, with what the chip holds for it.
        std::map<GlobalFecId, const SoftChip::HwFec*> fecs;
        for (const auto& [fec, entry] : l3Status_->adjEntryList()) {
          if (!only || fec == *only) fecs[fec] = routeHelper_->fecs().find(SoftChip::SoftFecKey{fec.value()});
        }
        auto slotsFor = [this](GlobalFecId fec) {
          auto it = resilientSlots_.find(fec);
          return it == resilientSlots_.end() ? 0u : it->second;
        };
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("fecs");
            w.StartObject();
            for (const auto& [fec, hw] : fecs) {
              w.Key(std::to_string(fec.value()).c_str());
              w.StartObject();
              w.Key("resilientSlots");
              w.Uint(slotsFor(fec));
              w.Key("adjacency");
              if (hw) {
                w.String(hw->adj.stringValue().c_str());
              } else {
                w.Null();
              }
              w.Key("slots");
              w.StartArray();
              if (hw) {
                for (const auto& member : hw->slots) {
                  w.StartObject();
                  w.Key("mac");
                  w.String(member.mac.stringValue().c_str());
                  w.Key("l2Intf");
                  w.String(member.l2Intf.stringValue().c_str());
                  w.Key("resolved");
                  w.Bool(member.resolved);
                  w.EndObject();
                }
              }
              w.EndArray();
              w.EndObject();
            }
            w.EndObject();
            w.EndObject();
          });
          return;
        }
        for (const auto& [fec, hw] : fecs) {
          std::uint32_t slots = slotsFor(fec);
          // A refused write leaves the chip with what it held before.
          std::string chipSlots = hw && hw->slotCount != slots ? fmt::format(" (chip: {} slots)", hw->slotCount) : "";
          out << fmt::format("fec {} adjacency {}{}{}\n", fec.value(), hw ? hw->adj.stringValue() : "(not in hardware)",
                             slots ? fmt::format(" resilient slots {}", slots) : "", chipSlots);
          if (!hw || !slots) continue;
          // Each next hop with its slots, in the order they first appear.
          std::vector<std::pair<SoftChip::SlotMember, std::vector<std::size_t>>> byMember;
          for (std::size_t slot = 0; slot < hw->slots.size(); ++slot) {
            const SoftChip::SlotMember& inSlot = hw->slots[slot];
            auto it =
                std::find_if(byMember.begin(), byMember.end(), [&](const auto& held) { return held.first == inSlot; });
            if (it == byMember.end()) it = byMember.insert(byMember.end(), {inSlot, {}});
            it->second.push_back(slot);
          }
          for (const auto& [member, held] : byMember) {
            out << fmt::format("  {} {}{} slots {} [{}]\n", member.mac.stringValue(), member.l2Intf.stringValue(),
                               member.resolved ? "" : " unresolved", held.size(), fmt::join(held, " "));
          }
        }
      });
  shell_.commandIs("show ip interface", "[json]", "routed interfaces: VRF and whether the chip holds them",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show ip interface [json]");
                     const auto& table = l3Status_->orbL3IntfTable()->l3Intf();
                     std::map<Nexo::IntfId, Orb::OrbL3IntfEntry> sorted(table.begin(), table.end());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& [intf, entry] : sorted) {
                           w.StartObject();
                           w.Key("intf");
                           w.String(intf.stringValue().c_str());
                           w.Key("vrf");
                           w.String(l3Status_->vrfName(entry.vrfId).value().c_str());
                           w.Key("state");
                           w.String(tableAddStatusText(entry.hwStatus).c_str());
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& [intf, entry] : sorted) {
                       out << fmt::format("{} vrf {} {}\n", intf.stringValue(), l3Status_->vrfName(entry.vrfId).value(),
                                          tableAddStatusText(entry.hwStatus));
                     }
                   });
  shell_.commandIs("show ip watched", "[json]", "watched prefixes with their reference counts and options",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show ip watched [json]");
                     struct Row {
                       std::string vrf, prefix;
                       std::uint32_t refCount;
                       bool monitorNhMac, proactiveArp;
                     };
                     std::vector<Row> rows;
                     auto collect = [&](const auto& watched) {
                       std::map<typename std::decay_t<decltype(watched)>::key_type, const void*> sorted;
                       for (const auto& [vp, config] : watched) sorted.emplace(vp, &config);
                       for (const auto& [vp, raw] : sorted) {
                         const auto& config = watched.at(vp);
                         rows.push_back({l3Status_->vrfName(vp.vrfId).value(), vp.prefix.stringValue(), config.refCount,
                                         config.monitorNhMac, config.proactiveArp});
                       }
                     };
                     collect(routeConfig_->watchedPrefix());
                     collect(route6Config_->watchedPrefix());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartArray();
                         for (const auto& row : rows) {
                           w.StartObject();
                           w.Key("vrf");
                           w.String(row.vrf.c_str());
                           w.Key("prefix");
                           w.String(row.prefix.c_str());
                           w.Key("refCount");
                           w.Uint(row.refCount);
                           w.Key("monitorNhMac");
                           w.Bool(row.monitorNhMac);
                           w.Key("proactiveArp");
                           w.Bool(row.proactiveArp);
                           w.EndObject();
                         }
                         w.EndArray();
                       });
                       return;
                     }
                     for (const auto& row : rows) {
                       out << fmt::format("{} {} refs {}{}{}\n", row.vrf, row.prefix, row.refCount,
                                          row.monitorNhMac ? " monitor-mac" : "",
                                          row.proactiveArp ? " proactive-arp" : "");
                     }
                   });
}

void L3Feature::showRouteSummary(std::ostream& out, bool json) const {
  struct Counts {
    std::uint64_t routes[2] = {0, 0};
    std::uint64_t unprogrammed[2] = {0, 0};
  };
  std::map<std::string, Counts> byVrf;
  for (const auto& [id, name] : l3Status_->vrfName()) {
    Counts& c = byVrf[name.value()];
    auto vrfStatus = l3Status_->vrfL3Status(name);
    c.unprogrammed[0] = vrfStatus->numUnprogrammedRoutes();
    c.unprogrammed[1] = vrfStatus->numUnprogrammedV6Routes();
  }
  const auto& routes = *l3Status_->adjInfoColl();
  for (const auto& [vp, info] : routes.adjInfoList()) ++byVrf[l3Status_->vrfName(vp.vrfId).value()].routes[0];
  for (const auto& [vp, info] : routes.adjInfo6List()) ++byVrf[l3Status_->vrfName(vp.vrfId).value()].routes[1];
  const Orb::OrbInternalL3Status& in = *internal_;
  std::map<std::string, Orb::HwResourceUtilization> usages(l3Status_->hwResourceUtilization().begin(),
                                                           l3Status_->hwResourceUtilization().end());
  if (json) {
    printJson(out, [&](JsonWriter& w) {
      w.StartObject();
      w.Key("vrfs");
      w.StartObject();
      for (const auto& [name, c] : byVrf) {
        w.Key(name.c_str());
        w.StartObject();
        for (int v6 = 0; v6 < 2; ++v6) {
          w.Key(v6 ? "ipv6Routes" : "ipv4Routes");
          w.Uint64(c.routes[v6]);
          w.Key(v6 ? "ipv6Unprogrammed" : "ipv4Unprogrammed");
          w.Uint64(c.unprogrammed[v6]);
        }
        w.EndObject();
      }
      w.EndObject();
      w.Key("ipv4FibRoutes");
      w.Uint64(in.ipv4FibRoutes());
      w.Key("ipv6FibRoutes");
      w.Uint64(in.ipv6FibRoutes());
      w.Key("ipv4Unprogrammed");
      w.Uint64(in.ipv4UnProgrammedRoutes());
      w.Key("ipv6Unprogrammed");
      w.Uint64(in.ipv6UnProgrammedRoutes());
      w.Key("routingResourceFull");
      w.Bool(in.routingResourceFull());
      w.Key("ip6RoutingResourceFull");
      w.Bool(in.ip6RoutingResourceFull());
      w.Key("hardwareTables");
      w.StartObject();
      for (const auto& [table, usage] : usages) {
        w.Key(table.c_str());
        w.StartObject();
        w.Key("used");
        w.Uint64(usage.used);
        w.Key("free");
        w.Uint64(usage.free);
        w.EndObject();
      }
      w.EndObject();
      w.EndObject();
    });
    return;
  }
  for (const auto& [name, c] : byVrf) {
    out << fmt::format("VRF {}: ipv4 {} routes, {} unprogrammed; ipv6 {} routes, {} unprogrammed\n", name, c.routes[0],
                       c.unprogrammed[0], c.routes[1], c.unprogrammed[1]);
  }
  out << fmt::format("in hardware: ipv4 {} ipv6 {}\n", in.ipv4FibRoutes(), in.ipv6FibRoutes());
  out << fmt::format("unprogrammed: ipv4 {}{} ipv6 {}{}\n", in.ipv4UnProgrammedRoutes(),
                     in.routingResourceFull() ? " (route table full)" : "", in.ipv6UnProgrammedRoutes(),
                     in.ip6RoutingResourceFull() ? " (route table full)" : "");
  for (const auto& [table, usage] : usages) {
    // An unlimited table has more room than any count says.
    bool unlimited = usage.used + usage.free == SoftChip::SoftTable::unlimited;
    out << fmt::format("table {}: {} used, {} free\n", table, usage.used,
                       unlimited ? std::string("unlimited") : std::to_string(usage.free));
  }
}

}  // namespace Agent
