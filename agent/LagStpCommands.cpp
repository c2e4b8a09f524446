// LAG, MLAG and spanning-tree commands: configuration as the state database
// publishes it, chip knobs, `show port-channel` and `show spanning-tree`.
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "agent/LagFeature.h"
#include "agent/StpFeature.h"

#include <fmt/format.h>

namespace Agent {

namespace {

Nexo::IntfId lagArg(const std::string& text) {
  return Nexo::IntfId(fmt::format("Port-Channel{}", parseInteger(text, 1, 65534)));
}

Nexo::IntfId intfArg(const std::string& text) {
  auto ids = parseIntfRange(text);
  if (ids.size() != 1) throw CommandError("one interface expected, not '" + text + "'");
  return ids[0];
}

std::uint8_t linkArg(const std::string& text) {
  if (text == "up") return Mlag::linkUp;
  if (text == "down") return Mlag::linkDown;
  throw CommandError("link state is up or down, not '" + text + "'");
}

Orb::PortState portStateArg(const std::string& text) {
  if (text == "forwarding") return Orb::PortState::portStateForwarding;
  if (text == "blocking" || text == "discarding") return Orb::PortState::portStateDiscarding;
  if (text == "learning") return Orb::PortState::portStateLearning;
  if (text == "disabled") return Orb::PortState::portStateDisabled;
  throw CommandError("port state is forwarding, blocking, learning or disabled, not '" + text + "'");
}

std::string stateName(Orb::PortState state) {
  switch (state) {
    case Orb::PortState::portStateForwarding:
      return "forwarding";
    case Orb::PortState::portStateDiscarding:
      return "blocking";
    case Orb::PortState::portStateLearning:
      return "learning";
    case Orb::PortState::portStateDisabled:
      return "disabled";
  }
  return "unknown";
}

std::vector<Bridging::VlanId> vlanRange(const std::string& text) {
  std::vector<Bridging::VlanId> vlans;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t comma = text.find(',', start);
    std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    start = comma == std::string::npos ? text.size() + 1 : comma + 1;
    std::size_t dash = item.find('-');
    long first = parseInteger(item.substr(0, dash), 1, 4094);
    long last = dash == std::string::npos ? first : parseInteger(item.substr(dash + 1), 1, 4094);
    if (last < first) throw CommandError("bad VLAN range '" + item + "'");
    for (long v = first; v <= last; ++v) vlans.emplace_back(static_cast<std::uint32_t>(v));
  }
  return vlans;
}

// The LAGs of `show port-channel json`: shared-context members and what the
// chip holds.
void lagsJson(JsonWriter& w, const std::set<Nexo::IntfId>& lags, const Orb::OrbCommonSmData& ocsd,
              const SoftChip::SoftLagHelper& lagHelper, const Orb::LagSm& lagSm) {
  w.StartObject();
  w.Key("cleanupOnRestart");
  w.Bool(!lagSm.disableCleanupOnRestart());
  w.Key("lags");
  w.StartObject();
  for (const auto& lag : lags) {
    w.Key(lag.stringValue().c_str());
    w.StartObject();
    std::set<Nexo::IntfId> members;
    for (const auto& [port, state] : ocsd.lagToPort(lag).ports) members.insert(port);
    SoftChip::dumpIntfs(w, "members", members);
    const auto* hw = lagHelper.table().lag(lag);
    w.Key("inHardware");
    w.Bool(hw != nullptr);
    SoftChip::dumpIntfs(w, "hardwareMembers", hw ? hw->members : std::set<Nexo::IntfId>{});
    w.Key("sharesPeerLink");
    w.String(hw ? hw->sharedPeerLink.stringValue().c_str() : "");
    w.EndObject();
  }
  w.EndObject();
  w.EndObject();
}

// The topologies of `show spanning-tree json`: id, whether the state took
// effect, the VLANs still waited for, the topology's VLANs and port states.
void topologiesJson(JsonWriter& w, const std::vector<std::string>& names, const Bridging::Topology::Config& config,
                    const Bridging::Topology::Status& status, const Orb::VlanTopoHelper& topoHelper) {
  w.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  w.StartObject();
  w.Key("topologies");
  w.StartObject();
  for (const auto& name : names) {
    const auto& inst = status.topoInstStatus(name);
    w.Key(name.c_str());
    w.StartObject();
    w.Key("id");
    w.Int(inst.topoId);
    w.Key("stateSet");
    w.Bool(inst.stateSet);
    w.Key("pendingVlans");
    w.StartArray();
    for (const auto& [vlanId, genId] : topoHelper.topoPendingVlans(name)) w.Uint(vlanId.value());
    w.EndArray();
    w.Key("vlans");
    w.StartArray();
    for (const auto& vlanId : topoHelper.mappedVlan(name).vlan) w.Uint(vlanId.value());
    w.EndArray();
    w.Key("ports");
    w.StartObject();
    if (auto topo = config.topoConfig(name)) {
      for (const auto& [port, state] : topo->intfState()) {
        w.Key(port.stringValue().c_str());
        w.String(stateName(state).c_str());
      }
    }
    w.EndObject();
    w.EndObject();
  }
  w.EndObject();
  w.EndObject();
}

}  // namespace

LagFeature::LagFeature(const AgentCore& core) : Feature(core) {
  lagHelper_ = Vex::make<SoftChip::SoftLagHelper>(chip_);
  Orb::LagMounter lagMounter(hive_, ocsd_, lagHelper_);
  lagMounter.doMounts();
  lagSm_ = lagMounter.doMountsComplete();
}

LagFeature::~LagFeature() {
  lagSm_.reset();
  lagHelper_.reset();
}

void LagFeature::registerCommands() {
  auto lagDir = hive_->mount<Interface::EthLagIntfStatusDir>(Orb::LagMounter::ethLagIntfStatusPath);
  auto mlag = hive_->mount<Mlag::Status>(Orb::LagMounter::mlagStatusPath);

  shell_.commandIs("port-channel", "N members INTFS|none", "set a LAG's members (as the LAG status publishes them)",
                   [lagDir](const Args& args, std::ostream&) {
                     expectArgs(args, 3, 3, "port-channel N members INTFS");
                     if (args[1] != "members") throw CommandError("usage: port-channel N members INTFS");
                     Nexo::IntfId lag = lagArg(args[0]);
                     auto members = args[2] == "none" ? std::vector<Nexo::IntfId>{} : parseIntfRange(args[2]);
                     std::set<Nexo::IntfId> wanted(members.begin(), members.end());
                     auto status = lagDir->intfStatusIs(lag);
                     std::vector<Nexo::IntfId> stale;
                     for (const auto& member : status->member()) {
                       if (!wanted.count(member)) stale.push_back(member);
                     }
                     // The new members first: a LAG whose members are replaced
                     // never passes through having none, which would take it
                     // and the addresses learned on it out of the chip.
                     for (const auto& member : wanted) status->memberIs(member);
                     for (const auto& member : stale) status->memberDel(member);
                   });
  shell_.commandIs("port-channel cleanup-on-restart", "on|off",
                   "off: a LAG whose status goes keeps its hardware and shared state (the agent restarts)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "port-channel cleanup-on-restart on|off");
                     if (args[0] != "on" && args[0] != "off")
                       throw CommandError("usage: port-channel cleanup-on-restart on|off");
                     lagSm_->disableCleanupOnRestartIs(args[0] == "off");
                   });
  shell_.commandIs("port-channel device-name", "N NAME", "the kernel device name the LAG status publishes",
                   [lagDir](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "port-channel device-name N NAME");
                     lagDir->intfStatusIs(lagArg(args[0]))->deviceNameIs(args[1]);
                   });
  shell_.commandIs("no port-channel", "N", "remove a LAG", [lagDir](const Args& args, std::ostream&) {
    expectArgs(args, 1, 1, "no port-channel N");
    lagDir->intfStatusDel(lagArg(args[0]));
  });
  shell_.commandIs(
      "mlag", "peer-link INTF | state valid|invalid | fast-mac-redirection on|off | intf N LOCAL PROTO PEER",
      "MLAG status as the MLAG agent publishes it (link states up|down)", [mlag](const Args& args, std::ostream&) {
        const std::string usage =
            "mlag peer-link INTF | mlag state valid|invalid | mlag fast-mac-redirection on|off | "
            "mlag intf N up|down up|down up|down";
        expectArgs(args, 2, 5, usage);
        if (args[0] == "peer-link" && args.size() == 2) {
          mlag->peerLinkIntfIs(intfArg(args[1]));
        } else if (args[0] == "state" && args.size() == 2 && (args[1] == "valid" || args[1] == "invalid")) {
          mlag->mlagStateValidIs(args[1] == "valid");
        } else if (args[0] == "fast-mac-redirection" && args.size() == 2 && (args[1] == "on" || args[1] == "off")) {
          mlag->fastMacRedirectionIs(args[1] == "on");
        } else if (args[0] == "intf" && args.size() == 5) {
          mlag->intfStatusIs(lagArg(args[1]), Mlag::IntfStatus{linkArg(args[2]), linkArg(args[3]), linkArg(args[4])});
        } else {
          throw CommandError("usage: " + usage);
        }
      });
  shell_.commandIs("chip lag", "capacity N | max-members N", "soft chip LAG table size and members per LAG",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "chip lag capacity N | chip lag max-members N");
                     auto n = static_cast<std::size_t>(parseInteger(args[1], 0, 100000));
                     if (args[0] == "capacity") {
                       chip_->capacityIs(SoftChip::SoftLagTable::tableName, n);
                     } else if (args[0] == "max-members") {
                       lagHelper_->maxMembersIs(n);
                     } else {
                       throw CommandError("usage: chip lag capacity N | chip lag max-members N");
                     }
                   });
  shell_.commandIs("show port-channel", "[N] [json]", "LAG members in the shared context and in hardware",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 1, "show port-channel [N] [json]");
                     std::set<Nexo::IntfId> lags;
                     for (const auto& [lag, list] : ocsd_->lagToPort()) lags.insert(lag);
                     for (const auto& [lag, hw] : lagHelper_->table().entries) lags.insert(lag);
                     if (!args.empty()) {
                       Nexo::IntfId only = lagArg(args[0]);
                       lags = lags.count(only) ? std::set<Nexo::IntfId>{only} : std::set<Nexo::IntfId>{};
                     }
                     if (json) {
                       printJson(out, [&](JsonWriter& w) { lagsJson(w, lags, *ocsd_, *lagHelper_, *lagSm_); });
                       return;
                     }
                     for (const auto& lag : lags) {
                       std::string shared;
                       const auto* hw = lagHelper_->table().lag(lag);
                       if (hw && !hw->sharedPeerLink.empty()) shared = "  shares " + hw->sharedPeerLink.stringValue();
                       std::set<Nexo::IntfId> members;
                       for (const auto& [port, state] : ocsd_->lagToPort(lag).ports) members.insert(port);
                       out << lag.stringValue() << shared << "\n";
                       out << "  members:  " << intfsText(members) << "\n";
                       out << "  hardware: " << (hw ? intfsText(hw->members) : "-") << "\n";
                     }
                   });
}

StpFeature::StpFeature(const AgentCore& core, VlanFeature& vlans) : Feature(core) {
  topoHelper_ = Vex::make<SoftChip::SoftTopoHelper>(chip_, vlans.helper());
  auto config = hive_->mount<Bridging::Topology::Config>(Paths::topologyConfig);
  stpSm_ =
      Orb::stpSmFactory(ocsd_, config, hive_->mount<Bridging::Topology::Status>(Paths::topologyStatus), topoHelper_);
  // A port joins a VLAN in hardware only while spanning tree says it
  // forwards, so that no membership change re-adds a blocked port; the
  // default topology gives every port of every VLAN its state.
  vlans.helper()->checkPortStateIs(true);
  defaultTopology_ = std::make_unique<DefaultTopology>(config, ocsd_);
}

StpFeature::~StpFeature() {
  defaultTopology_.reset();
  stpSm_.reset();
  topoHelper_.reset();
}

void StpFeature::registerCommands() {
  auto config = hive_->mount<Bridging::Topology::Config>(Paths::topologyConfig);
  auto status = hive_->mount<Bridging::Topology::Status>(Paths::topologyStatus);

  shell_.commandIs("spanning-tree topology", "NAME vlans VLANS", "create a topology and map VLANs (10-20,30) to it",
                   [config](const Args& args, std::ostream&) {
                     expectArgs(args, 3, 3, "spanning-tree topology NAME vlans VLANS");
                     if (args[1] != "vlans") throw CommandError("usage: spanning-tree topology NAME vlans VLANS");
                     auto vlans = vlanRange(args[2]);
                     config->topoConfigIs(args[0]);
                     for (const auto& vlanId : vlans) config->vidToTopoMapIs(vlanId, args[0]);
                   });
  shell_.commandIs("no spanning-tree topology", "NAME", "remove a topology and its VLAN mappings",
                   [config](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no spanning-tree topology NAME");
                     if (!config->topoConfigHas(args[0])) throw CommandError("no topology '" + args[0] + "'");
                     if (args[0] == DefaultTopology::name)
                       throw CommandError("the default topology holds every VLAN no other topology has; it stays");
                     std::vector<Bridging::VlanId> mapped;
                     for (const auto& [vlanId, name] : config->vidToTopoMap()) {
                       if (name == args[0]) mapped.push_back(vlanId);
                     }
                     for (const auto& vlanId : mapped) config->vidToTopoMapDel(vlanId);
                     config->topoConfigDel(args[0]);
                   });
  shell_.commandIs("spanning-tree", "NAME INTFS forwarding|blocking|learning|disabled|flush",
                   "set the state of ports in a topology, or flush what they learned",
                   [config](const Args& args, std::ostream&) {
                     expectArgs(args, 3, 3, "spanning-tree NAME INTFS forwarding|blocking|learning|disabled|flush");
                     auto topo = config->topoConfig(args[0]);
                     if (!topo) throw CommandError("no topology '" + args[0] + "'");
                     auto ports = parseIntfRange(args[1]);
                     if (args[2] == "flush") {
                       for (const auto& port : ports) topo->fdbFlushInc(port);
                       return;
                     }
                     auto state = portStateArg(args[2]);
                     for (const auto& port : ports) topo->intfStateIs(port, state);
                   });
  shell_.commandIs("no spanning-tree", "NAME INTFS", "take ports out of a topology (it no longer gives them a state)",
                   [config](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "no spanning-tree NAME INTFS");
                     auto topo = config->topoConfig(args[0]);
                     if (!topo) throw CommandError("no topology '" + args[0] + "'");
                     auto ports = parseIntfRange(args[1]);
                     for (const auto& port : ports) {
                       if (!topo->intfStateHas(port))
                         throw CommandError(port.stringValue() + " has no state in topology '" + args[0] + "'");
                     }
                     for (const auto& port : ports) topo->intfStateDel(port);
                   });
  shell_.commandIs("tap-agg", "INTFS on|off", "ports in tap/tool mode forward permanently in tap aggregation mode",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 2, 2, "tap-agg INTFS on|off");
                     if (args[1] != "on" && args[1] != "off") throw CommandError("usage: tap-agg INTFS on|off");
                     for (const auto& port : parseIntfRange(args[0])) stpSm_->tapAggIntfIs(port, args[1] == "on");
                   });
  shell_.commandIs("hardware mode", "normal|tap-agg", "the chip's operational mode",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "hardware mode normal|tap-agg");
                     if (args[0] == "normal") {
                       ocsd_->operationalModeIs(Orb::HwOperationalMode::hwModeNormal);
                     } else if (args[0] == "tap-agg") {
                       ocsd_->operationalModeIs(Orb::HwOperationalMode::hwModeTapAgg);
                     } else {
                       throw CommandError("usage: hardware mode normal|tap-agg");
                     }
                   });
  shell_.commandIs("show spanning-tree", "[NAME] [json]",
                   "topologies (or one), their VLANs and port states, and whether they took effect",
                   [this, config, status](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 1, "show spanning-tree [NAME] [json]");
                     std::vector<std::string> names;
                     for (const auto& [name, inst] : status->topoInstStatus()) {
                       if (args.empty() || args[0] == name) names.push_back(name);
                     }
                     if (!args.empty() && names.empty()) throw CommandError("no topology '" + args[0] + "'");
                     if (json) {
                       printJson(out, [&](JsonWriter& w) { topologiesJson(w, names, *config, *status, *topoHelper_); });
                       return;
                     }
                     for (const auto& name : names) {
                       const auto& inst = status->topoInstStatus(name);
                       const auto& pending = topoHelper_->topoPendingVlans(name);
                       out << fmt::format(
                           "Topology {}  id {}  {}\n", name, inst.topoId,
                           inst.stateSet ? "state set" : fmt::format("pending ({} vlans)", pending.size()));
                       const auto& vlans = topoHelper_->mappedVlan(name).vlan;
                       out << "  vlans: " << vlans.size();
                       if (!vlans.empty())
                         out << " (" << vlans.begin()->value() << "-" << vlans.rbegin()->value() << ")";
                       out << "\n";
                       if (auto topo = config->topoConfig(name)) {
                         for (const auto& [port, state] : topo->intfState()) {
                           out << fmt::format("  {:<16} {}\n", port.stringValue(), stateName(state));
                         }
                       }
                     }
                   });
}

}  // namespace Agent
