#include "tests/soak/SoakGenerator.h"

#include <fmt/format.h>

#include <algorithm>

namespace Soak {

std::string Generator::mac(unsigned n) { return fmt::format("0000.00{:02x}.00{:02x}", n / 4, n); }

std::vector<std::string> Generator::prologue() const {
  std::vector<std::string> lines = {
      "port-channel 1 members none", "port-channel 2 members none", "port-channel 3 members none",
      fmt::format("spanning-tree topology {} vlans 10-11", Model::topology), "chip mirror sources rx 64 tx 64",
      // Chip operations take time, so that long walks meet their quanta.
      "slices check on", "chip operation-time 0.001", "vrf red",
      fmt::format("ip router-mac {}", RouteModel::routerMac)};
  for (const auto& [port, vrf] : RouteModel::routedPorts())
    lines.push_back(fmt::format("interface {} vrf {}", port, vrf));
  if (seed_ % 2) lines.push_back("chip fdb learning software");
  return lines;
}

std::string Generator::next(const Model& model) {
  if (!pending_.empty()) {
    auto text = pending_.back();
    pending_.pop_back();
    return text;
  }
  if (left_ == 0) {
    left_ = 1 + pick(16);
    faulty_ = false;
    leftVlans_.clear();
    return {};
  }
  --left_;
  for (;;) {
    auto text = line(model, faulty_);
    if (!text.empty()) return text;
    if (!pending_.empty()) return next(model);
  }
}

std::string Generator::learn(const Model& model) {
  int v = vlan();
  std::string m = mac();
  if (model.uncertain(key(m, v))) return {};
  std::string at = intf();
  // Frames arrive on a LAG through its member ports; one without any
  // receives nothing. A chip reports what arrives on a member as learned on
  // the LAG, so the learn names the LAG: entries naming a member port, which
  // later moves between LAGs, are not what a chip holds (and the model does
  // not follow them through such moves).
  if (model.lagExists(at) && model.lagMembers().at(at).empty()) return {};
  for (const auto& [lag, members] : model.lagMembers())
    if (members.count(at)) at = lag;
  return fmt::format("chip learn {} vlan {} {}", m, v, at);
}

std::string Generator::lagChange(const Model& model, std::vector<std::string>& also) {
  // LAGs take their members from Ethernet5-8, so that ports move between
  // them; the member ports join VLANs only through their LAG.
  unsigned n = 1 + pick(3);
  std::string lagName = "Port-Channel" + std::to_string(n);
  std::set<Intf> members;
  for (unsigned i = 5; i <= 8; ++i)
    if (chance(0.3)) members.insert("Ethernet" + std::to_string(i));
  auto listText = [](const std::set<Intf>& set) {
    std::string out;
    for (const auto& m : set) out += (out.empty() ? "" : ",") + m;
    return out.empty() ? std::string("none") : out;
  };
  // A port that another LAG holds moves: that LAG's status drops it too, in
  // either order, as the LAG agent would publish the two.
  std::map<Intf, std::set<Intf>> losers;
  for (const auto& [other, otherMembers] : model.lagMembers()) {
    if (other == lagName) continue;
    for (const auto& m : members)
      if (otherMembers.count(m)) losers[other].insert(m);
  }
  for (const auto& [other, lost] : losers) {
    std::set<Intf> kept;
    for (const auto& m : model.lagMembers().at(other))
      if (!lost.count(m)) kept.insert(m);
    also.push_back(fmt::format("port-channel {} members {}", other.substr(12), listText(kept)));
  }
  return fmt::format("port-channel {} members {}", n, listText(members));
}

std::string Generator::mirrorChange(const Model& model) {
  // Sessions m1-m3 copy from the VLAN ports and LAGs to destinations that
  // may be usable, LAG members, LAGs, or one of their own sources.
  const std::string session = fmt::format("m{}", 1 + pick(3));
  const char* dests[] = {"Ethernet1", "Ethernet5", "Ethernet9", "Ethernet10", "Port-Channel1", "Port-Channel2"};
  const char* directions[] = {"rx", "tx", "both"};
  switch (pick(5)) {
    case 0:
    case 1:
      return fmt::format("monitor session {} source {} {}", session, vlanIntf(), directions[pick(3)]);
    case 2:
      return fmt::format("monitor session {} destination {}", session, dests[pick(6)]);
    case 3:
      if (!model.mirrorSessionHas(session)) return {};
      return chance(0.5) ? fmt::format("no monitor session {} source {}", session, vlanIntf())
                         : fmt::format("no monitor session {} destination {}", session, dests[pick(6)]);
    default:
      return chance(0.2) && model.mirrorSessionHas(session) ? fmt::format("no monitor session {}", session)
                                                            : std::string();
  }
}

std::string Generator::line(const Model& model, bool& faulty) {
  if (chance(0.04)) return mirrorChange(model);
  if (chance(0.06)) return featureChange(model);
  if (chance(0.05)) return routingChange(model);
  unsigned roll = pick(1000);
  if (roll < 300) return faulty || !learning_ ? std::string() : learn(model);
  if (roll < 350) return fmt::format("advance {}", 1 + pick(10));
  // The forwarding layer flushes a port that left a VLAN (or a VLAN that
  // lost its members) when the chip's update of the VLAN completes. While
  // the chip fails updates, a port that leaves and joins again, or a VLAN
  // deleted and made again, may never be seen gone, and keeps addresses the
  // model flushed: such a VLAN takes no members until the stretch ends.
  if (roll < 450) {
    int v = vlan();
    if (leftVlans_.count(v)) return {};
    std::string what = chance(0.7) ? vlanIntf() : fmt::format("Ethernet{}-{}", 1 + pick(2), 3 + pick(2));
    return fmt::format("vlan {} add {}{}", v, what, chance(0.3) ? " tagged" : "");
  }
  if (roll < 500) {
    int v = vlan();
    if (!model.vlanExists(v)) return {};
    if (faulty) leftVlans_.insert(v);
    return fmt::format("vlan {} remove {}", v, vlanIntf());
  }
  if (roll < 510) {
    int v = vlan();
    if (faulty) leftVlans_.insert(v);
    return fmt::format("no vlan {}", v);
  }
  if (roll < 570) {
    const char* states[] = {"forwarding", "blocking", "blocking", "disabled"};
    return fmt::format("spanning-tree {} {} {}", Model::topology, vlanIntf(), states[pick(4)]);
  }
  if (roll < 590) {
    std::string at = vlanIntf();
    if (!model.topologyHas(at)) return {};
    return fmt::format("no spanning-tree {} {}", Model::topology, at);
  }
  if (roll < 650) {
    std::vector<std::string> also;
    auto text = lagChange(model, also);
    if (!also.empty() && chance(0.5)) {
      // The losing LAG first: the port is free when the winner claims it.
      pending_.push_back(text);
      for (auto it = also.rbegin(); it != also.rend(); ++it) pending_.push_back(*it);
      return {};
    }
    for (auto it = also.rbegin(); it != also.rend(); ++it) pending_.push_back(*it);
    return text;
  }
  if (roll < 690) {
    int v = vlan();
    std::string m = mac();
    if (model.uncertain(key(m, v))) return {};
    return fmt::format("mac static {} vlan {} {}", m, v, port());
  }
  if (roll < 720) {
    int v = vlan();
    std::string m = mac();
    if (!model.staticHas(key(m, v))) return {};
    return fmt::format("mac remove static {} vlan {}", m, v);
  }
  if (roll < 780) {
    // An address is held never to age on one port, whoever holds it.
    unsigned n = pick(16);
    int v = vlan();
    std::string owner = chance(0.5) ? "o1" : "o2";
    if (model.uncertain(key(mac(n), v))) return {};
    if (model.nonAgingHas(owner, key(mac(n), v)))
      return fmt::format("no mac non-aging {} {} vlan {}", owner, mac(n), v);
    return fmt::format("mac non-aging {} {} vlan {} Ethernet{}", owner, mac(n), v, 1 + n % 8);
  }
  if (roll < 820) {
    if (!learning_) return {};
    switch (pick(4)) {
      case 0:
        return "clear mac address-table";
      case 1:
        return fmt::format("clear mac address-table vlan {}", vlan());
      case 2:
        return fmt::format("clear mac address-table interface {}", intf());
      default:
        return fmt::format("clear mac address-table vlan {} interface {}", vlan(), intf());
    }
  }
  if (roll < 830) {
    const unsigned times[] = {0, 30, 60, 300};
    return fmt::format("mac aging-time {}", times[pick(4)]);
  }
  if (roll < 840) return "restart mac";
  if (roll < 850) return fmt::format("mlag peer-link {}", chance(0.5) ? "Port-Channel3" : "Ethernet8");
  if (roll < 860) return fmt::format("mlag state {}", chance(0.5) ? "valid" : "invalid");
  if (roll < 900) {
    faulty = true;
    // A forwarding-database fault goes to the add that follows it: a remove
    // the chip fails is dropped, not retried, and leaves its entry behind
    // (see the soak's notes), which would hide everything after it.
    if (chance(0.5)) return fmt::format("chip vlan fail next {}", 1 + pick(2));
    unsigned n = pick(16);
    int v = vlan();
    if (model.uncertain(key(mac(n), v)) || model.staticHas(key(mac(n), v))) return {};
    pending_.push_back(fmt::format("mac static {} vlan {} {}", mac(n), v, port()));
    return fmt::format("chip fdb {} next 1", chance(0.5) ? "busy" : "full");
  }
  return faulty || !learning_ ? std::string() : learn(model);
}

}  // namespace Soak
