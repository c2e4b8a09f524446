// Layer-3 configuration as the routing and ARP agents publish it: VRFs,
// routed interfaces, FECs with their vias, neighbours, routes, watched
// prefixes and review requests; and the soft chip's adjacency table knobs.
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/L3Feature.h"

#include <fmt/format.h>

namespace Agent {

namespace {

using GlobalFecId = Pond::Fib::GlobalFecId;

// Parses a value of the platform's text form; CommandError when it is not.
template <class T>
T textArg(const std::string& text, const char* what) {
  try {
    return T(text);
  } catch (const std::exception&) {
    throw CommandError(fmt::format("bad {} '{}'", what, text));
  }
}

Nexo::IntfId intfArg(const std::string& text) {
  auto ids = parseIntfRange(text);
  if (ids.size() != 1) throw CommandError("one interface expected, not '" + text + "'");
  return ids[0];
}

GlobalFecId fecArg(const std::string& text) {
  return GlobalFecId(static_cast<std::uint64_t>(parseInteger(text, 1, 0xffffffffL)));
}

// "[vrf NAME] REST...": the VRF name (default when absent) and the rest.
std::pair<std::string, Args> splitVrf(const Args& args) {
  if (args.size() >= 2 && args[0] == "vrf") return {args[1], Args(args.begin() + 2, args.end())};
  return {"default", args};
}

// The route writers of one address family.
struct Ip4 {
  using Prefix = Nexo::Prefix;
  using Addr = Nexo::IpAddr;
  using VrfPrefix = Orb::VrfAndPrefix;
  using VrfAddr = Orb::VrfAndIpAddr;
  using Via = Orb::Via;
  static constexpr const char* prefixWhat = "IPv4 prefix";
  static constexpr const char* addrWhat = "IPv4 address";
  static bool has(Orb::L3Status& s, const VrfPrefix& vp) { return s.adjInfoColl()->adjInfoListHas(vp); }
  static const Orb::AdjInfo& get(Orb::L3Status& s, const VrfPrefix& vp) { return s.adjInfoColl()->adjInfoList(vp); }
  static void set(Orb::L3Status& s, const VrfPrefix& vp, const Orb::AdjInfo& info) {
    s.adjInfoColl()->adjInfoListIs(vp, info);
    s.adjVrfPrefixIs(info.fecId, vp.vrfId, vp.prefix);
  }
  static void del(Orb::L3Status& s, const VrfPrefix& vp, GlobalFecId fec) {
    s.adjInfoColl()->adjInfoListDel(vp);
    s.adjVrfPrefixDel(fec, vp.vrfId, vp.prefix);
  }
};

struct Ip6 {
  using Prefix = Nexo::Ip6Prefix;
  using Addr = Nexo::Ip6Addr;
  using VrfPrefix = Orb::VrfAndIp6Prefix;
  using VrfAddr = Orb::VrfAndIp6Addr;
  using Via = Orb::Via6;
  static constexpr const char* prefixWhat = "IPv6 prefix";
  static constexpr const char* addrWhat = "IPv6 address";
  static bool has(Orb::L3Status& s, const VrfPrefix& vp) { return s.adjInfoColl()->adjInfo6ListHas(vp); }
  static const Orb::AdjInfo& get(Orb::L3Status& s, const VrfPrefix& vp) { return s.adjInfoColl()->adjInfo6List(vp); }
  static void set(Orb::L3Status& s, const VrfPrefix& vp, const Orb::AdjInfo& info) {
    s.adjInfoColl()->adjInfo6ListIs(vp, info);
    s.adjVrfPrefix6Is(info.fecId, vp.vrfId, vp.prefix);
  }
  static void del(Orb::L3Status& s, const VrfPrefix& vp, GlobalFecId fec) {
    s.adjInfoColl()->adjInfo6ListDel(vp);
    s.adjVrfPrefix6Del(fec, vp.vrfId, vp.prefix);
  }
};

// "PREFIX" or a host "ADDR": the prefix and whether it was a host.
template <class F>
std::pair<typename F::Prefix, bool> prefixOrHostArg(const std::string& text) {
  if (text.find('/') == std::string::npos) {
    auto addr = textArg<typename F::Addr>(text, F::addrWhat);
    return {typename F::Prefix(addr, sizeof(typename F::Addr) == 4 ? 32 : 128), true};
  }
  return {textArg<typename F::Prefix>(text, F::prefixWhat), false};
}

// A via's next hop is IPv6 when its address has colons.
bool isIp6(const std::string& addr) { return addr.find(':') != std::string::npos; }

template <class F>
typename F::Via viaArg(const std::string& addr, const std::string& intf) {
  typename F::Via via;
  via.nextHop = textArg<typename F::Addr>(addr, F::addrWhat);
  via.l3Intf = intfArg(intf);
  return via;
}

}  // namespace

void L3Feature::registerCommands() {
  registerConfigCommands();
  registerRouteCommands();
  registerShowCommands();
  registerResilientCommands();
}

void L3Feature::registerConfigCommands() {
  shell_.commandIs("vrf", "NAME", "create a VRF (routing on for both families)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "vrf NAME");
                     try {
                       vrfIs(L3::VrfName(args[0]));
                     } catch (const Vex::RangeError& e) {
                       throw CommandError(e.what());
                     }
                   });
  // `interface INTF vrf NAME` joins the interface command of the MAC inputs.
  shell_.commandFormIs(
      "interface", "INTF vrf NAME", [](const Args& args) { return args.size() >= 2 && args[1] == "vrf"; },
      [this](const Args& args, std::ostream&) {
        expectArgs(args, 3, 3, "interface INTF vrf NAME");
        if (args[1] != "vrf") throw CommandError("usage: interface INTF vrf NAME");
        auto intf = intfArg(args[0]);
        intfVrfIs(intf, vrfNamed(args[2]));
      });
  shell_.commandIs("no interface", "INTF vrf", "make the interface no longer routed",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "no interface INTF vrf");
                     if (args[1] != "vrf") throw CommandError("usage: no interface INTF vrf");
                     intfVrfDel(intfArg(args[0]), "removing it from its VRF");
                   });
  shell_.commandIs("fec", "ID via ADDR INTF [weight W] | ID resilient slots N",
                   "add a via to a FEC (vias of one FEC accumulate), or spread its next hops over N stable slots",
                   [this](const Args& args, std::ostream&) {
                     const std::string usage = "fec ID via ADDR INTF [weight W] | fec ID resilient slots N";
                     if (args.size() == 4 && args[1] == "resilient") {
                       if (args[2] != "slots") throw CommandError("usage: " + usage);
                       auto fec = knownFec(args[0]);
                       fecResilientIs(fec, static_cast<std::uint32_t>(parseInteger(args[3], 1, maxResilientSlots)));
                       return;
                     }
                     if (args.size() != 4 && args.size() != 6) throw CommandError("usage: " + usage);
                     if (args[1] != "via" || (args.size() == 6 && args[4] != "weight")) {
                       throw CommandError("usage: " + usage);
                     }
                     auto fec = fecArg(args[0]);
                     auto weight = static_cast<std::uint32_t>(args.size() == 6 ? parseInteger(args[5], 1, 65535) : 1);
                     if (isIp6(args[2])) {
                       fecViaIs(fec, viaArg<Ip6>(args[2], args[3]), weight);
                     } else {
                       fecViaIs(fec, viaArg<Ip4>(args[2], args[3]), weight);
                     }
                   });
  shell_.commandIs("no fec", "ID | ID via ADDR INTF | ID resilient",
                   "remove a FEC that no route uses, one of its vias, or its resilience",
                   [this](const Args& args, std::ostream&) {
                     const std::string usage = "no fec ID | no fec ID via ADDR INTF | no fec ID resilient";
                     if (args.size() == 1) {
                       fecDel(fecArg(args[0]));
                     } else if (args.size() == 2 && args[1] == "resilient") {
                       fecResilientIs(knownFec(args[0]), 0);
                     } else if (args.size() == 4 && args[1] == "via") {
                       auto fec = knownFec(args[0]);
                       if (isIp6(args[2])) {
                         fecViaDel(fec, viaArg<Ip6>(args[2], args[3]));
                       } else {
                         fecViaDel(fec, viaArg<Ip4>(args[2], args[3]));
                       }
                     } else {
                       throw CommandError("usage: " + usage);
                     }
                   });
  shell_.commandIs("ip router-mac", "MAC", "the MAC that frames to be routed are addressed to",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "ip router-mac MAC");
                     auto mac = textArg<Nexo::EthAddr>(args[0], "MAC address");
                     if (mac.isZero() || mac.isMulticast())
                       throw CommandError("a router MAC is unicast, not " + args[0]);
                     l3Status_->routerMacIs(mac);
                   });
  for (const char* table :
       {SoftChip::SoftRouteTable::tableName, SoftChip::SoftFecTable::tableName, SoftChip::SoftL3IntfTable::tableName}) {
    shell_.commandIs(fmt::format("chip {}", table), "capacity N | busy|full|fail next N",
                     fmt::format("soft chip {} table: size and planned answers", table),
                     [this, table](const Args& args, std::ostream&) {
                       const std::string usage =
                           fmt::format("chip {0} capacity N | chip {0} busy|full|fail next N", table);
                       expectArgs(args, 2, 3, usage);
                       applyChipTableArgs(*chip_, table, args, usage);
                     });
  }
  // `arp` for IPv4 neighbours, `ipv6 neighbor` for the ones neighbour
  // discovery resolved.
  auto neighborAdd = [this](auto family, const Args& args, const std::string& usage) {
    using F = decltype(family);
    expectArgs(args, 4, 4, usage);
    auto vrf = vrfNamed(args[0]);
    auto addr = textArg<typename F::Addr>(args[1], F::addrWhat);
    auto mac = textArg<Nexo::EthAddr>(args[2], "MAC address");
    if (mac.isZero() || mac.isMulticast()) throw CommandError("a neighbour has a unicast MAC, not " + args[2]);
    auto intf = intfArg(args[3]);
    if (l3Status_->l3IntfVrfId(intf) != vrf || !l3Status_->l3IntfVrfIdHas(intf)) {
      throw CommandError(fmt::format("{} is not a routed interface of VRF {}", args[3], args[0]));
    }
    neighborIs(typename F::VrfAddr(vrf, addr), Orb::NeighborInfo{mac, intf});
  };
  auto neighborRemove = [this](auto family, const Args& args, const std::string& usage) {
    using F = decltype(family);
    expectArgs(args, 2, 2, usage);
    auto vrf = vrfNamed(args[0]);
    neighborDel(typename F::VrfAddr(vrf, textArg<typename F::Addr>(args[1], F::addrWhat)));
  };
  shell_.commandIs(
      "arp", "VRF ADDR MAC INTF", "the ARP agent resolved a neighbour",
      [neighborAdd](const Args& args, std::ostream&) { neighborAdd(Ip4{}, args, "arp VRF ADDR MAC INTF"); });
  shell_.commandIs(
      "no arp", "VRF ADDR", "the ARP agent forgot a neighbour",
      [neighborRemove](const Args& args, std::ostream&) { neighborRemove(Ip4{}, args, "no arp VRF ADDR"); });
  shell_.commandIs(
      "ipv6 neighbor", "VRF ADDR MAC INTF", "neighbour discovery resolved an IPv6 neighbour",
      [neighborAdd](const Args& args, std::ostream&) { neighborAdd(Ip6{}, args, "ipv6 neighbor VRF ADDR MAC INTF"); });
  shell_.commandIs(
      "no ipv6 neighbor", "VRF ADDR", "neighbour discovery forgot an IPv6 neighbour",
      [neighborRemove](const Args& args, std::ostream&) { neighborRemove(Ip6{}, args, "no ipv6 neighbor VRF ADDR"); });
  shell_.commandIs("adjacency review", "FEC", "ask for a FEC's adjacency to be reviewed again",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "adjacency review FEC");
                     l3Status_->notifyAdjEntryForReview(knownFec(args[0]), Orb::nextHopChangeAdjUpdate);
                   });
  shell_.commandIs("chip adjacency", "capacity N | busy|full|fail next N",
                   "soft chip adjacency table: size and planned answers", [this](const Args& args, std::ostream&) {
                     const std::string usage = "chip adjacency capacity N | chip adjacency busy|full|fail next N";
                     expectArgs(args, 2, 3, usage);
                     applyChipTableArgs(*chip_, SoftChip::SoftAdjTable::tableName, args, usage);
                   });
}

void L3Feature::registerRouteCommands() {
  auto routeAdd = [this](auto family, const Args& args, const std::string& usage) {
    using F = decltype(family);
    auto [vrfText, rest] = splitVrf(args);
    if (rest.size() != 3 || rest[1] != "fec") throw CommandError("usage: " + usage);
    auto vrf = vrfNamed(vrfText);
    typename F::VrfPrefix vp{vrf, textArg<typename F::Prefix>(rest[0], F::prefixWhat)};
    auto fec = knownFec(rest[2]);
    if (F::has(*l3Status_, vp)) {
      auto old = F::get(*l3Status_, vp).fecId;
      if (old == fec) return;
      F::del(*l3Status_, vp, old);
    }
    F::set(*l3Status_, vp, Orb::AdjInfo{fec, Orb::RouteType::forwardRoute, Orb::TableType::tableTypeLongestPrefix});
  };
  auto routeDel = [this](auto family, const Args& args, const std::string& usage) {
    using F = decltype(family);
    auto [vrfText, rest] = splitVrf(args);
    if (rest.size() != 1) throw CommandError("usage: " + usage);
    auto vrf = vrfNamed(vrfText);
    typename F::VrfPrefix vp{vrf, textArg<typename F::Prefix>(rest[0], F::prefixWhat)};
    if (!F::has(*l3Status_, vp)) throw CommandError("no route " + rest[0] + " in VRF " + vrfText);
    F::del(*l3Status_, vp, F::get(*l3Status_, vp).fecId);
  };
  shell_.commandIs(
      "ip route", "[vrf NAME] PREFIX fec ID", "route an IPv4 prefix to a FEC",
      [=](const Args& args, std::ostream&) { routeAdd(Ip4{}, args, "ip route [vrf NAME] PREFIX fec ID"); });
  shell_.commandIs(
      "ipv6 route", "[vrf NAME] PREFIX fec ID", "route an IPv6 prefix to a FEC",
      [=](const Args& args, std::ostream&) { routeAdd(Ip6{}, args, "ipv6 route [vrf NAME] PREFIX fec ID"); });
  shell_.commandIs("no ip route", "[vrf NAME] PREFIX", "remove an IPv4 route",
                   [=](const Args& args, std::ostream&) { routeDel(Ip4{}, args, "no ip route [vrf NAME] PREFIX"); });
  shell_.commandIs("no ipv6 route", "[vrf NAME] PREFIX", "remove an IPv6 route",
                   [=](const Args& args, std::ostream&) { routeDel(Ip6{}, args, "no ipv6 route [vrf NAME] PREFIX"); });

  // Watches: options after the prefix, in any order.
  auto watchArgs = [this](auto family, const Args& args, const std::string& usage) {
    using F = decltype(family);
    auto [vrfText, rest] = splitVrf(args);
    if (rest.empty()) throw CommandError("usage: " + usage);
    bool monitorMac = false, proactiveArp = false;
    for (std::size_t i = 1; i < rest.size(); ++i) {
      if (rest[i] == "monitor-mac") {
        monitorMac = true;
      } else if (rest[i] == "proactive-arp") {
        proactiveArp = true;
      } else {
        throw CommandError("usage: " + usage);
      }
    }
    auto vrf = vrfNamed(vrfText);
    auto [prefix, host] = prefixOrHostArg<F>(rest[0]);
    if (host && proactiveArp) throw CommandError("a watched host always has proactive ARP; leave proactive-arp out");
    return std::tuple(typename F::VrfPrefix{vrf, prefix}, host, monitorMac, proactiveArp);
  };
  const std::string watchUsage = "ip watch [vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]";
  shell_.commandIs("ip watch", "[vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]",
                   "watch what a prefix (or host) resolves to", [=, this](const Args& args, std::ostream&) {
                     auto [vp, host, mac, arp] = watchArgs(Ip4{}, args, watchUsage);
                     if (host) {
                       routeConfig_->addWatchedAddr(Orb::VrfAndIpAddr(vp), mac);
                     } else {
                       routeConfig_->addWatchedPrefix(vp, mac, arp);
                     }
                   });
  shell_.commandIs("no ip watch", "[vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]",
                   "stop one watch, with the options it was made with", [=, this](const Args& args, std::ostream&) {
                     auto [vp, host, mac, arp] = watchArgs(Ip4{}, args, "no " + watchUsage);
                     if (!routeConfig_->watchedPrefixHas(vp))
                       throw CommandError("not watched: " + vp.prefix.stringValue());
                     if (host) {
                       routeConfig_->removeWatchedAddr(Orb::VrfAndIpAddr(vp), mac);
                     } else {
                       routeConfig_->removeWatchedPrefix(vp, mac, arp);
                     }
                   });
  const std::string watch6Usage = "ipv6 watch [vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]";
  shell_.commandIs("ipv6 watch", "[vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]",
                   "watch what an IPv6 prefix (or host) resolves to", [=, this](const Args& args, std::ostream&) {
                     auto [vp, host, mac, arp] = watchArgs(Ip6{}, args, watch6Usage);
                     if (host) {
                       route6Config_->addWatchedIp6Addr(Orb::VrfAndIp6Addr(vp), mac);
                     } else {
                       route6Config_->addWatchedIp6Prefix(vp, mac, arp);
                     }
                   });
  shell_.commandIs("no ipv6 watch", "[vrf NAME] PREFIX|ADDR [monitor-mac] [proactive-arp]",
                   "stop one IPv6 watch, with the options it was made with",
                   [=, this](const Args& args, std::ostream&) {
                     auto [vp, host, mac, arp] = watchArgs(Ip6{}, args, "no " + watch6Usage);
                     if (!route6Config_->watchedPrefixHas(vp))
                       throw CommandError("not watched: " + vp.prefix.stringValue());
                     if (host) {
                       route6Config_->removeWatchedIp6Addr(Orb::VrfAndIp6Addr(vp), mac);
                     } else {
                       route6Config_->removeWatchedIp6Prefix(vp, mac, arp);
                     }
                   });
}

}  // namespace Agent
