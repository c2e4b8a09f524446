// Every input of the MAC machine from the shell, written as the agent that
// owns it in the state database would write it: MLAG peer hosts, L2 RIB
// hosts and objects, EVPN and static remote hosts, VXLAN maps, 802.1X
// hosts and ports, learning per port and per VLAN, link states, router
// MACs, failed fast-failover servers, and raw rows of the hardware-learned
// MAC table as a chip layer writes them.
#include "agent/IntfRange.h"
#include "agent/MacArgs.h"
#include "agent/MacFeature.h"
#include "agent/MacPaths.h"

#include <fmt/format.h>

namespace Agent {

namespace {

const Nexo::IntfId vxlanIntf("Vxlan1");

std::uint64_t idArg(const std::string& text) {
  return static_cast<std::uint64_t>(parseInteger(text, 1, 0x7fffffffffffffffL));
}

Nexo::IpGenAddr ipArg(const std::string& text) {
  try {
    return Nexo::IpGenAddr(text);
  } catch (const std::exception&) {
    throw CommandError("bad IP address '" + text + "'");
  }
}

// "dest ID" or "load-balance ID".
L2Rib::ObjTuple objTupleArgs(const std::string& kind, const std::string& id) {
  if (kind == "dest") return L2Rib::ObjTuple{L2Rib::objTypeDest, idArg(id)};
  if (kind == "load-balance") return L2Rib::ObjTuple{L2Rib::objTypeLoadBalance, idArg(id)};
  throw CommandError("L2 RIB object is 'dest ID' or 'load-balance ID', not '" + kind + "'");
}

// A raw row's VLAN: anything a VLAN field of a MAC table key can carry,
// including 0, which names no VLAN.
Bridging::VlanId rawVlanArg(const std::string& text) {
  long value = parseInteger(text, 0, 65535);
  if (value == 0) return Bridging::VlanId();
  try {
    return Bridging::VlanId(static_cast<std::uint32_t>(value));
  } catch (const std::exception& e) {
    throw CommandError(fmt::format("a MAC table key cannot carry VLAN {}: {}", value, e.what()));
  }
}

Bridging::MacVlanPair rawKeyArgs(const Args& args, const std::string& usage) {
  if (args.size() < 3 || args[1] != "vlan") throw CommandError("usage: " + usage);
  return Bridging::MacVlanPair{macArg(args[0]), rawVlanArg(args[2])};
}

// Any entry type a chip may write, by word or by number.
Bridging::EntryType rawEntryTypeArg(const std::string& text) {
  if (!text.empty() && std::isdigit(static_cast<unsigned char>(text[0]))) {
    return static_cast<Bridging::EntryType>(parseInteger(text, 0, 255));
  }
  return entryTypeArg(text);
}

template <class Remove>
void removeOrComplain(bool present, const std::string& what, Remove remove) {
  if (!present) throw CommandError("no " + what);
  remove();
}

}  // namespace

void MacFeature::registerMacInputCommands() {
  registerMacSourceCommands();
  registerMacRemoteCommands();
  registerMacLearningCommands();
}

// Entries offered by the hardware, the MLAG peer, 802.1X and router MACs.
void MacFeature::registerMacSourceCommands() {
  auto macTable = hive_->mount<OrbTypes::MacTable>(MacPaths::macTable);
  shell_.commandIs(
      "chip mac-table", "MAC vlan V INTF [type T] [moves N] [time S]",
      "write a row of the hardware-learned MAC table as a chip layer does (VLAN 0 allowed)",
      [macTable](const Args& args, std::ostream&) {
        const std::string usage = "chip mac-table MAC vlan V INTF [type T] [moves N] [time S]";
        if (args.size() < 4) throw CommandError("usage: " + usage);
        auto key = rawKeyArgs(args, usage);
        OrbTypes::MacAddressTableEntry row{key, oneIntf(args[3]), Bridging::EntryType::entryDynamic, {}, 0.0};
        auto options = keywordArgs(args, 4, {"type", "moves", "time"}, usage);
        if (auto it = options.find("type"); it != options.end()) {
          row.entryType = rawEntryTypeArg(it->second);
          options.erase(it);
        }
        applyEntryOptions(options, row);
        macTable->macEntryIs(key, row);
      });
  shell_.commandIs("chip mac-table remove", "MAC vlan V", "delete a row of the hardware-learned MAC table",
                   [macTable](const Args& args, std::ostream&) {
                     const std::string usage = "chip mac-table remove MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = rawKeyArgs(args, usage);
                     removeOrComplain(macTable->macEntryHas(key), "MAC table row for " + key.stringValue(),
                                      [&] { macTable->macEntryDel(key); });
                   });

  auto mlagHosts = hive_->mount<Mlag::HostTable>(MacPaths::mlagHostTable);
  shell_.commandIs(
      "mlag host", "MAC vlan V INTF [type T] [moves N] [time S]",
      "an entry of the MLAG peer's host table (type peer-dynamic unless given)",
      [mlagHosts](const Args& args, std::ostream&) {
        const std::string usage = "mlag host MAC vlan V INTF [type T] [moves N] [time S]";
        if (args.size() < 4) throw CommandError("usage: " + usage);
        auto key = keyArgs(args, 0, usage);
        OrbTypes::MacAddressTableEntry row{key, oneIntf(args[3]), Bridging::EntryType::entryPeerDynamic, {}, 0.0};
        applyEntryOptions(keywordArgs(args, 4, {"type", "moves", "time"}, usage), row);
        mlagHosts->hostEntryIs(key, row);
      });
  shell_.commandIs("no mlag host", "MAC vlan V", "the MLAG peer forgets a host",
                   [mlagHosts](const Args& args, std::ostream&) {
                     const std::string usage = "no mlag host MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     removeOrComplain(mlagHosts->hostEntryHas(key), "MLAG peer host " + key.stringValue(),
                                      [&] { mlagHosts->hostEntryDel(key); });
                   });

  auto dot1xHosts = hive_->mount<Dot1x::HostTable>(MacPaths::dot1xHostTable);
  shell_.commandIs(
      "dot1x host", "MAC vlan V INTF", "an 802.1X-authenticated host", [dot1xHosts](const Args& args, std::ostream&) {
        const std::string usage = "dot1x host MAC vlan V INTF";
        expectArgs(args, 4, 4, usage);
        auto key = keyArgs(args, 0, usage);
        dot1xHosts->hostIs(key.addr, OrbTypes::MacAddressTableEntry{
                                         key, oneIntf(args[3]), Bridging::EntryType::entryAuthenticated, {}, 0.0});
      });
  shell_.commandIs("no dot1x host", "MAC", "an 802.1X host logs off", [dot1xHosts](const Args& args, std::ostream&) {
    expectArgs(args, 1, 1, "no dot1x host MAC");
    auto addr = macArg(args[0]);
    removeOrComplain(dot1xHosts->hostHas(addr), "802.1X host " + addr.stringValue(),
                     [&] { dot1xHosts->hostDel(addr); });
  });
  auto dot1xStatus = hive_->mount<Dot1x::Status>(MacPaths::dot1xStatus);
  shell_.commandIs("dot1x restricted-port", "INTFS", "ports only authenticated hosts may use: nothing is learned there",
                   [dot1xStatus](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "dot1x restricted-port INTFS");
                     for (const auto& intf : parseIntfRange(args[0])) dot1xStatus->restrictedIntfIs(intf);
                   });
  shell_.commandIs("no dot1x restricted-port", "INTFS", "ports open to every host again",
                   [dot1xStatus](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no dot1x restricted-port INTFS");
                     for (const auto& intf : parseIntfRange(args[0])) dot1xStatus->restrictedIntfDel(intf);
                   });

  auto routerMacs = hive_->mount<OrbTypes::MacTable>(MacPaths::routerMacTable);
  shell_.commandIs("router-mac", "MAC vlan V [INTF]", "a router MAC entry (on Cpu unless given)",
                   [routerMacs](const Args& args, std::ostream&) {
                     const std::string usage = "router-mac MAC vlan V [INTF]";
                     expectArgs(args, 3, 4, usage);
                     auto key = keyArgs(args, 0, usage);
                     routerMacs->macEntryIs(
                         key, OrbTypes::MacAddressTableEntry{key,
                                                             args.size() == 4 ? oneIntf(args[3]) : Nexo::IntfId("Cpu"),
                                                             Bridging::EntryType::entryStatic,
                                                             {},
                                                             0.0});
                   });
  shell_.commandIs("no router-mac", "MAC vlan V", "remove a router MAC entry",
                   [routerMacs](const Args& args, std::ostream&) {
                     const std::string usage = "no router-mac MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     removeOrComplain(routerMacs->macEntryHas(key), "router MAC " + key.stringValue(),
                                      [&] { routerMacs->macEntryDel(key); });
                   });

  auto fsf = hive_->mount<FastServerFailover::Status>(MacPaths::fsfStatus);
  shell_.commandIs("fast-failover failed-server", "MAC", "a failed-over server: its address is not learned",
                   [fsf](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "fast-failover failed-server MAC");
                     fsf->failedServerIs(macArg(args[0]));
                   });
  shell_.commandIs("no fast-failover failed-server", "MAC", "the server is back",
                   [fsf](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no fast-failover failed-server MAC");
                     auto addr = macArg(args[0]);
                     removeOrComplain(fsf->failedServer(addr), "failed server " + addr.stringValue(),
                                      [&] { fsf->failedServerDel(addr); });
                   });
}

// Remote (tunnel) entries: the L2 RIB, EVPN, static remote hosts and the
// VXLAN maps they need.
void MacFeature::registerMacRemoteCommands() {
  auto l2RibHosts = hive_->mount<L2Rib::HostOutput>(MacPaths::l2RibHostOutput);
  shell_.commandIs(
      "l2rib host",
      "MAC vlan V (interface INTF | dest ID | load-balance ID) [type T] [moves N] [time S] [preference P] "
      "[tunnel-group G]",
      "a host the L2 RIB chose: local on an interface, or remote through an L2 RIB object",
      [l2RibHosts](const Args& args, std::ostream&) {
        const std::string usage =
            "l2rib host MAC vlan V (interface INTF | dest ID | load-balance ID) [type T] [moves N] [time S] "
            "[preference P] [tunnel-group G]";
        if (args.size() < 5) throw CommandError("usage: " + usage);
        auto key = keyArgs(args, 0, usage);
        OrbTypes::RemoteMacAddressTableEntry host;
        host.macVlanPair = key;
        if (args[3] == "interface") {
          host.intf = oneIntf(args[4]);
          host.entryType = Bridging::EntryType::entryDynamic;
        } else {
          host.l2RibObjTuple = objTupleArgs(args[3], args[4]);
          host.hasL2RibObjTuple = true;
          host.intf = vxlanIntf;
          host.entryType = Bridging::EntryType::entryReceivedRemote;
        }
        auto options = keywordArgs(args, 5, {"type", "moves", "time", "preference", "tunnel-group"}, usage);
        applyEntryOptions(options, host);
        if (auto it = options.find("tunnel-group"); it != options.end()) {
          host.swTunnelGroupId.value = static_cast<std::uint32_t>(parseInteger(it->second, 1, 0xffffffffL));
        }
        l2RibHosts->hostIs(key, host);
      });
  shell_.commandIs("no l2rib host", "MAC vlan V", "the L2 RIB withdraws a host",
                   [l2RibHosts](const Args& args, std::ostream&) {
                     const std::string usage = "no l2rib host MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     removeOrComplain(l2RibHosts->hostHas(key), "L2 RIB host " + key.stringValue(),
                                      [&] { l2RibHosts->hostDel(key); });
                   });
  auto dests = hive_->mount<L2Rib::DestOutput>(MacPaths::l2RibDestOutput);
  shell_.commandIs("l2rib dest", "ID VTEP-IP", "an L2 RIB destination: a tunnel endpoint",
                   [dests](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "l2rib dest ID VTEP-IP");
                     dests->destIs(idArg(args[0]), ipArg(args[1]));
                   });
  shell_.commandIs("no l2rib dest", "ID", "remove an L2 RIB destination", [dests](const Args& args, std::ostream&) {
    expectArgs(args, 1, 1, "no l2rib dest ID");
    auto id = idArg(args[0]);
    removeOrComplain(dests->destHas(id), "L2 RIB dest " + args[0], [&] { dests->destDel(id); });
  });
  auto lbs = hive_->mount<L2Rib::LoadBalanceOutput>(MacPaths::l2RibLbOutput);
  shell_.commandIs("l2rib load-balance", "ID DEST-IDS", "an L2 RIB load-balance group over destinations (1,2,3)",
                   [lbs](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "l2rib load-balance ID DEST-IDS");
                     std::vector<std::uint64_t> members;
                     std::size_t start = 0;
                     while (start <= args[1].size()) {
                       std::size_t comma = args[1].find(',', start);
                       members.push_back(idArg(
                           args[1].substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
                       start = comma == std::string::npos ? args[1].size() + 1 : comma + 1;
                     }
                     lbs->lbIs(idArg(args[0]), members);
                   });
  shell_.commandIs("no l2rib load-balance", "ID", "remove an L2 RIB load-balance group",
                   [lbs](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no l2rib load-balance ID");
                     auto id = idArg(args[0]);
                     removeOrComplain(lbs->lbHas(id), "L2 RIB load-balance " + args[0], [&] { lbs->lbDel(id); });
                   });
  auto hwIds = hive_->mount<Orb::ObjTupleToHwId>(MacPaths::objTupleToHwId);
  shell_.commandIs("l2rib hw-id", "dest|load-balance ID HWID", "the hardware id (next hop) of an L2 RIB object",
                   [hwIds](const Args& args, std::ostream&) {
                     expectArgs(args, 3, 3, "l2rib hw-id dest|load-balance ID HWID");
                     hwIds->hwIdIs(objTupleArgs(args[0], args[1]), idArg(args[2]));
                   });
  shell_.commandIs("no l2rib hw-id", "dest|load-balance ID", "an L2 RIB object loses its hardware id",
                   [hwIds](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "no l2rib hw-id dest|load-balance ID");
                     auto tuple = objTupleArgs(args[0], args[1]);
                     removeOrComplain(hwIds->hwIdHas(tuple), "hardware id for " + args[0] + " " + args[1],
                                      [&] { hwIds->hwIdDel(tuple); });
                   });

  auto remoteHosts = hive_->mount<Bridging::RemoteMacTable>(MacPaths::remoteMacTable);
  auto remoteHost = [](const Args& args, std::size_t at, const Bridging::MacVlanPair& key, Bridging::EntryType type,
                       const std::string& usage, bool anyOption) {
    OrbTypes::RemoteMacAddressTableEntry host;
    host.macVlanPair = key;
    host.intf = vxlanIntf;
    host.entryType = type;
    host.swTunnelGroupId.value = static_cast<std::uint32_t>(parseInteger(args[at], 1, 0xffffffffL));
    auto options = anyOption ? keywordArgs(args, at + 1, {"type", "moves", "time", "preference", "interface"}, usage)
                             : keywordArgs(args, at + 1, {"interface"}, usage);
    applyEntryOptions(options, host);
    if (auto it = options.find("interface"); it != options.end()) host.intf = oneIntf(it->second);
    return host;
  };
  shell_.commandIs(
      "evpn mac", "MAC vlan V tunnel-group G [type T] [moves N] [time S] [preference P] [interface INTF]",
      "a remote host received from EVPN (type evpn-dynamic-remote unless given)",
      [remoteHosts, remoteHost](const Args& args, std::ostream&) {
        const std::string usage =
            "evpn mac MAC vlan V tunnel-group G [type T] [moves N] [time S] [preference P] [interface INTF]";
        if (args.size() < 5 || args[3] != "tunnel-group") throw CommandError("usage: " + usage);
        auto key = keyArgs(args, 0, usage);
        remoteHosts->receivedHostIs(key,
                                    remoteHost(args, 4, key, Bridging::EntryType::entryEvpnDynamicRemote, usage, true));
      });
  shell_.commandIs("no evpn mac", "MAC vlan V", "EVPN withdraws a remote host",
                   [remoteHosts](const Args& args, std::ostream&) {
                     const std::string usage = "no evpn mac MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     removeOrComplain(remoteHosts->receivedHostHas(key), "EVPN host " + key.stringValue(),
                                      [&] { remoteHosts->receivedHostDel(key); });
                   });
  shell_.commandIs("mac remote static", "MAC vlan V tunnel-group G [interface INTF]",
                   "configure a static remote host behind a tunnel group",
                   [remoteHosts, remoteHost](const Args& args, std::ostream&) {
                     const std::string usage = "mac remote static MAC vlan V tunnel-group G [interface INTF]";
                     if (args.size() < 5 || args[3] != "tunnel-group") throw CommandError("usage: " + usage);
                     auto key = keyArgs(args, 0, usage);
                     remoteHosts->configuredHostIs(
                         key, remoteHost(args, 4, key, Bridging::EntryType::entryStaticRemote, usage, false));
                   });
  shell_.commandIs("no mac remote static", "MAC vlan V", "remove a static remote host",
                   [remoteHosts](const Args& args, std::ostream&) {
                     const std::string usage = "no mac remote static MAC vlan V";
                     expectArgs(args, 3, 3, usage);
                     auto key = keyArgs(args, 0, usage);
                     removeOrComplain(remoteHosts->configuredHostHas(key), "static remote host " + key.stringValue(),
                                      [&] { remoteHosts->configuredHostDel(key); });
                   });
  shell_.commandIs("evpn remote-macs-ready", "[on|off]",
                   "the control plane has sent every remote host again after a restart",
                   [remoteHosts](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 1, "evpn remote-macs-ready [on|off]");
                     remoteHosts->remoteMacsReadyIs(args.empty() || onOffArg(args[0]));
                   });
  shell_.commandIs("vxlan tunnel-learn-event", "", "the tunnels learned or forgot addresses in bulk",
                   [remoteHosts](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 0, "vxlan tunnel-learn-event");
                     remoteHosts->tunnelLearnEventInc();
                   });
  auto vxlan = hive_->mount<Vxlan::VxlanConfigDir>(MacPaths::vxlanConfig);
  shell_.commandIs("vxlan vlan", "V vni N", "map a VLAN to a VNI: remote hosts of the VLAN need it",
                   [vxlan](const Args& args, std::ostream&) {
                     const std::string usage = "vxlan vlan V vni N";
                     expectArgs(args, 3, 3, usage);
                     if (args[1] != "vni") throw CommandError("usage: " + usage);
                     vxlan->vlanToVniIs(vlanArg(args[0]),
                                        static_cast<std::uint32_t>(parseInteger(args[2], 1, 16777215)));
                   });
  shell_.commandIs("no vxlan vlan", "V", "remove a VLAN's VNI", [vxlan](const Args& args, std::ostream&) {
    expectArgs(args, 1, 1, "no vxlan vlan V");
    auto vlanId = vlanArg(args[0]);
    removeOrComplain(vxlan->vlanToVniHas(vlanId), "VNI for vlan " + args[0], [&] { vxlan->vlanToVniDel(vlanId); });
  });
  auto tunnels = hive_->mount<Orb::SwTunnelGroupIdMap>(MacPaths::swTunnelGroupIdMap);
  shell_.commandIs(
      "vxlan tunnel-group", "G vteps IP[,IP...]", "the tunnel endpoints of a software tunnel group",
      [tunnels](const Args& args, std::ostream&) {
        const std::string usage = "vxlan tunnel-group G vteps IP[,IP...]";
        expectArgs(args, 3, 3, usage);
        if (args[1] != "vteps") throw CommandError("usage: " + usage);
        std::vector<Nexo::IpGenAddr> vteps;
        std::size_t start = 0;
        while (start <= args[2].size()) {
          std::size_t comma = args[2].find(',', start);
          vteps.push_back(ipArg(args[2].substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
          start = comma == std::string::npos ? args[2].size() + 1 : comma + 1;
        }
        tunnels->groupIs(Orb::SwTunnelGroupId{static_cast<std::uint32_t>(parseInteger(args[0], 1, 0xffffffffL))},
                         vteps);
      });
  shell_.commandIs(
      "no vxlan tunnel-group", "G", "remove a software tunnel group", [tunnels](const Args& args, std::ostream&) {
        expectArgs(args, 1, 1, "no vxlan tunnel-group G");
        Orb::SwTunnelGroupId group{static_cast<std::uint32_t>(parseInteger(args[0], 1, 0xffffffffL))};
        removeOrComplain(tunnels->groupHas(group), "tunnel group " + args[0], [&] { tunnels->groupDel(group); });
      });
}

// Where learning is on, and the link states and source checks that go with it.
void MacFeature::registerMacLearningCommands() {
  auto intfConfig = hive_->mount<Interface::EthPhyIntfConfigDir>(MacPaths::ethPhyIntfConfig);
  auto config = hive_->mount<Bridging::Config>(MacPaths::bridgingConfig);
  shell_.commandIs("mac learning", "interface INTFS on|off | vlan VLANS on|off",
                   "switch MAC learning per port (or LAG) or per VLAN, as configured",
                   [intfConfig, config](const Args& args, std::ostream&) {
                     const std::string usage = "mac learning interface INTFS on|off | mac learning vlan VLANS on|off";
                     expectArgs(args, 3, 3, usage);
                     bool on = onOffArg(args[2]);
                     if (args[0] == "interface") {
                       for (const auto& intf : parseIntfRange(args[1])) {
                         if (on) {
                           intfConfig->macLearningDisabledDel(intf);
                         } else {
                           intfConfig->macLearningDisabledIs(intf);
                         }
                       }
                     } else if (args[0] == "vlan") {
                       for (auto vlanId : vlanListArg(args[1])) {
                         if (on) {
                           config->macLearningDisabledVlanDel(vlanId);
                         } else {
                           config->macLearningDisabledVlanIs(vlanId);
                         }
                       }
                     } else {
                       throw CommandError("usage: " + usage);
                     }
                   });
  shell_.commandIs("mac source-check", "cpu-mac|invalid on|off",
                   "drop frames from the CPU's MAC or from invalid source MACs",
                   [config](const Args& args, std::ostream&) {
                     const std::string usage = "mac source-check cpu-mac|invalid on|off";
                     expectArgs(args, 2, 2, usage);
                     bool on = onOffArg(args[1]);
                     if (args[0] == "cpu-mac") {
                       config->sourceCheckCpuMacIs(on);
                     } else if (args[0] == "invalid") {
                       config->sourceMacInvalidIs(on);
                     } else {
                       throw CommandError("usage: " + usage);
                     }
                   });
  auto intfStatus = hive_->mount<Interface::EthPhyIntfStatusDir>(MacPaths::ethPhyIntfStatus);
  shell_.commandIs("interface", "INTFS link up|down | INTFS present|absent",
                   "a port's link state as the interface status publishes it; a port the switch gains or loses",
                   [this, intfStatus](const Args& args, std::ostream&) {
                     const std::string usage = "interface INTFS link up|down | interface INTFS present|absent";
                     expectArgs(args, 2, 3, usage);
                     auto intfs = parseIntfRange(args[0]);
                     if (args.size() == 3 && args[1] == "link" && (args[2] == "up" || args[2] == "down")) {
                       for (const auto& intf : intfs) intfStatus->linkUpIs(intf, args[2] == "up");
                     } else if (args.size() == 2 && (args[1] == "present" || args[1] == "absent")) {
                       // The ports this agent manages, as after a speed change splits or
                       // merges them.
                       for (const auto& intf : intfs) {
                         if (args[1] == "present") {
                           ocsd_->intfIs(intf, true);
                         } else {
                           ocsd_->intfDel(intf);
                         }
                       }
                     } else {
                       throw CommandError("usage: " + usage);
                     }
                   });
}

}  // namespace Agent
