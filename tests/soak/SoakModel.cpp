#include "tests/soak/SoakModel.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace Soak {

namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

// "Ethernet1-3,Port-Channel2" -> each interface. Ranges only of Ethernet ports.
std::vector<Intf> intfList(const std::string& text) {
  std::vector<Intf> out;
  if (text == "none") return out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');) {
    auto dash = item.find('-', item.find_first_of("0123456789"));
    if (dash == std::string::npos) {
      out.push_back(item);
      continue;
    }
    auto digits = item.find_first_of("0123456789");
    std::string prefix = item.substr(0, digits);
    int from = std::atoi(item.c_str() + digits), to = std::atoi(item.c_str() + dash + 1);
    for (int i = from; i <= to; ++i) out.push_back(prefix + std::to_string(i));
  }
  return out;
}

std::string lagName(const std::string& number) { return "Port-Channel" + number; }

// The chip sweeps aged entries four times per aging period; a learn that the
// forwarding layer programs (software learning, a busy chip) starts aging a
// little later than the learn.
double sweepPeriod(unsigned agingTime) { return std::max(1u, agingTime / 4); }
constexpr double programmingSlack = 5;

}  // namespace

Model::Model() {}

std::string Model::macText(const std::string& dotted) {
  std::string hex;
  for (char c : dotted)
    if (c != '.' && c != ':') hex += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  std::string out;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    if (!out.empty()) out += ':';
    out += hex.substr(i, 2);
  }
  return out;
}

bool Model::nonAgingHas(const std::string& owner, const MacKey& key) const {
  auto it = nonAging_.find(key);
  return it != nonAging_.end() && it->second.count(owner);
}

Intf Model::lagOf(const Intf& port) const {
  for (const auto& [lag, members] : lagMembers_)
    if (members.count(port)) return lag;
  return {};
}

bool Model::blocked(int vlan, const Intf& intf) const {
  if (!topologyVlans_.count(vlan)) return false;
  // A LAG member port carries its LAG's state, whatever it was given itself.
  Intf lag = lagOf(intf);
  auto state = topologyForwarding_.find(lag.empty() ? intf : lag);
  return state != topologyForwarding_.end() && !state->second;
}

bool Model::inHwVlan(int vlan, const Intf& intf) const {
  // A Port-Channel is an interface of the switch once its LAG status exists.
  if (intf.rfind("Port-Channel", 0) == 0 && !lagStatus_.count(intf)) return false;
  auto it = vlanMembers_.find(vlan);
  return it != vlanMembers_.end() && it->second.count(intf) && !blocked(vlan, intf);
}

bool Model::learningOn(const Intf& intf) const {
  // No address is learned on the peer link: the peer's entries arrive there.
  return peerLink_.empty() || (intf != peerLink_ && lagOf(intf) != peerLink_);
}

bool Model::learnTaken(const MacKey& key, const Intf& intf) const {
  if (!learningOn(intf)) return false;
  int vlan = key.second;
  // A frame comes in on a VLAN member, or on a port of a LAG whose LAG or
  // any member port is one.
  bool takes = inHwVlan(vlan, intf);
  auto lagTakes = [&](const Intf& lag) {
    const auto& members = lagMembers_.at(lag);
    return std::any_of(members.begin(), members.end(), [&](const Intf& m) { return inHwVlan(vlan, m); });
  };
  if (!takes && lagMembers_.count(intf) && !lagMembers_.at(intf).empty()) takes = lagTakes(intf);
  if (!takes && !lagMembers_.count(intf)) {
    Intf lag = lagOf(intf);
    if (!lag.empty()) takes = inHwVlan(vlan, lag) || lagTakes(lag);
  }
  if (!takes) return false;
  // Static and other configured entries do not move on a learn.
  auto current = fdbEntry(key);
  return !current || current->type == "dynamic";
}

void Model::setLagMembers(const Intf& lag, const std::set<Intf>& wanted) {
  // The command rewrites the LAG's status: members it drops leave the LAG,
  // members it adds are claimed for it (and leave any other LAG), members it
  // keeps change nothing.
  auto before = lagMembers_;
  auto& status = lagStatus_[lag];
  auto& members = lagMembers_[lag];
  for (const auto& m : status)
    if (!wanted.count(m)) members.erase(m);
  for (const auto& m : wanted) {
    if (status.count(m)) continue;
    for (auto& [other, otherMembers] : lagMembers_)
      if (other != lag) otherMembers.erase(m);
    members.insert(m);
  }
  status = wanted;
  // A LAG that loses its last member (here, or to the LAG that claimed it)
  // is gone from the chip, and so are the addresses learned on it.
  for (const auto& [id, had] : before)
    if (!had.empty() && lagMembers_[id].empty()) flush(std::nullopt, id);
}

std::optional<HwFdbView> Model::fdbEntry(const MacKey& key) const {
  if (auto it = statics_.find(key); it != statics_.end()) return HwFdbView{it->second, "static"};
  if (auto it = learned_.find(key); it != learned_.end()) return HwFdbView{it->second.intf, "dynamic"};
  if (auto it = nonAging_.find(key); it != nonAging_.end() && !it->second.empty())
    return HwFdbView{it->second.begin()->second, "configured dynamic"};
  return std::nullopt;
}

void Model::learn(const MacKey& key, const Intf& intf) {
  if (!learnTaken(key, intf)) return;
  learned_[key] = Learned{intf, now_};
}

void Model::flush(std::optional<int> vlan, std::optional<Intf> intf) {
  auto matches = [&](const MacKey& key, const Intf& at) {
    return (!vlan || key.second == *vlan) && (!intf || at == *intf);
  };
  std::erase_if(learned_, [&](const auto& item) { return matches(item.first, item.second.intf); });
  std::erase_if(tainted_, [&](const auto& item) { return matches(item.first, item.second); });
}

void Model::ageUntil(double time) {
  now_ = time;
  if (!agingTime_) return;
  // The chip's sweeps start over when the aging time changes: an entry
  // already due then goes at the first sweep after it.
  double after = sweepPeriod(agingTime_) + programmingSlack;
  std::erase_if(learned_, [&](const auto& item) {
    return std::max(item.second.lastSeen + agingTime_, agingSince_) + after <= now_;
  });
}

bool Model::uncertain(const MacKey& key) const {
  if (statics_.count(key)) return false;
  if (tainted_.count(key)) return true;
  auto it = learned_.find(key);
  return it != learned_.end() && agingTime_ && it->second.lastSeen + agingTime_ <= now_;
}

std::set<MacKey> Model::uncertainKeys() const {
  std::set<MacKey> out;
  for (const auto& [key, intf] : tainted_) out.insert(key);
  for (const auto& [key, entry] : learned_)
    if (uncertain(key)) out.insert(key);
  return out;
}

void Model::apply(const std::string& line) {
  auto w = words(line);
  if (w.empty() || w[0][0] == '#') return;
  if (routing_.apply(w) || applyFeature(w)) return;
  auto at = [&](std::size_t i) -> const std::string& {
    static const std::string none;
    return i < w.size() ? w[i] : none;
  };
  if (w[0] == "advance") {
    ageUntil(now_ + std::atof(at(1).c_str()));
  } else if (w[0] == "vlan" && at(2) == "add") {
    bool tagged = at(4) == "tagged";
    for (const auto& intf : intfList(at(3))) vlanMembers_[std::atoi(at(1).c_str())][intf] = tagged;
  } else if (w[0] == "vlan" && at(2) == "remove") {
    int vlan = std::atoi(at(1).c_str());
    auto it = vlanMembers_.find(vlan);
    if (it != vlanMembers_.end()) {
      // A port that leaves a VLAN takes the addresses it learned there along;
      // a VLAN left without members is deleted, and takes all of them.
      for (const auto& intf : intfList(at(3)))
        if (it->second.erase(intf)) flush(vlan, intf);
      if (it->second.empty()) flush(vlan, std::nullopt);
    }
  } else if (w[0] == "no" && at(1) == "vlan") {
    int vlan = std::atoi(at(2).c_str());
    vlanMembers_.erase(vlan);
    // A VLAN that goes takes its learned addresses with it.
    flush(vlan, std::nullopt);
  } else if (w[0] == "spanning-tree" && at(1) == "topology") {
    for (const auto& v : intfList("v" + at(4))) topologyVlans_.insert(std::atoi(v.c_str() + 1));
  } else if (w[0] == "spanning-tree" && at(1) == topology) {
    for (const auto& intf : intfList(at(2))) topologyForwarding_[intf] = at(3) == "forwarding";
  } else if (w[0] == "no" && at(1) == "spanning-tree" && at(2) == topology) {
    for (const auto& intf : intfList(at(3))) topologyForwarding_.erase(intf);
  } else if (w[0] == "port-channel" && at(2) == "members") {
    auto list = intfList(at(3));
    setLagMembers(lagName(at(1)), std::set<Intf>(list.begin(), list.end()));
  } else if (w[0] == "monitor" && at(1) == "session" && at(3) == "source") {
    mirrors_[at(2)].sources[at(4)] = at(5).empty() ? "both" : at(5);
  } else if (w[0] == "monitor" && at(1) == "session" && at(3) == "destination") {
    mirrors_[at(2)].dests.insert(at(4));
  } else if (w[0] == "no" && at(1) == "monitor" && at(2) == "session") {
    auto it = mirrors_.find(at(3));
    if (it != mirrors_.end() && at(4) == "source") {
      it->second.sources.erase(at(5));
    } else if (it != mirrors_.end() && at(4) == "destination") {
      it->second.dests.erase(at(5));
    } else if (it != mirrors_.end()) {
      mirrors_.erase(it);
    }
  } else if (w[0] == "mlag" && at(1) == "peer-link") {
    peerLink_ = at(2);
  } else if (w[0] == "chip" && at(1) == "learn") {
    learn({macText(at(2)), std::atoi(at(4).c_str())}, at(5));
  } else if (w[0] == "chip" && at(1) == "fdb" && (at(2) == "busy" || at(2) == "full")) {
    staticAddMayFail_ = true;
  } else if (w[0] == "chip" && at(1) == "fdb" && at(2) == "learning") {
    softwareLearning_ = at(3) == "software";
  } else if (w[0] == "mac" && at(1) == "static") {
    MacKey key{macText(at(2)), std::atoi(at(4).c_str())};
    statics_[key] = at(5);
    // The static entry takes the address's place in the chip; what was
    // learned there is forgotten. Unless the chip answers the add busy or
    // full: the learned entry stays in the chip until the add is retried,
    // and comes back if the static entry is removed before that.
    auto it = learned_.find(key);
    if (staticAddMayFail_ && it != learned_.end()) tainted_[key] = it->second.intf;
    if (!staticAddMayFail_) tainted_.erase(key);
    if (it != learned_.end()) learned_.erase(it);
    staticAddMayFail_ = false;
  } else if (w[0] == "mac" && at(1) == "remove" && at(2) == "static") {
    statics_.erase({macText(at(3)), std::atoi(at(5).c_str())});
  } else if (w[0] == "mac" && at(1) == "non-aging") {
    nonAging_[{macText(at(3)), std::atoi(at(5).c_str())}][at(2)] = at(6);
  } else if (w[0] == "no" && at(1) == "mac" && at(2) == "non-aging") {
    MacKey key{macText(at(4)), std::atoi(at(6).c_str())};
    if (auto it = nonAging_.find(key); it != nonAging_.end()) {
      it->second.erase(at(3));
      if (it->second.empty()) nonAging_.erase(it);
    }
  } else if (w[0] == "mac" && at(1) == "aging-time") {
    unsigned time = static_cast<unsigned>(std::atof(at(2).c_str()) + 0.5);
    if (time == agingTime_) return;
    // Entries in their window of doubt stay doubtful under any new time.
    for (const auto& key : uncertainKeys()) {
      if (auto it = learned_.find(key); it != learned_.end()) {
        tainted_[key] = it->second.intf;
        learned_.erase(it);
      }
    }
    agingTime_ = time;
    agingSince_ = now_;
  } else if (w[0] == "clear" && at(1) == "mac" && at(2) == "address-table") {
    std::optional<int> vlan;
    std::optional<Intf> intf;
    for (std::size_t i = 3; i + 1 < w.size(); i += 2) {
      if (w[i] == "vlan") vlan = std::atoi(w[i + 1].c_str());
      if (w[i] == "interface") intf = w[i + 1];
    }
    // A flush naming a LAG without members names nothing the switch knows.
    if (intf && lagMembers_.count(*intf) && lagMembers_.at(*intf).empty()) return;
    flush(vlan, intf);
  }
}

std::set<Intf> Model::mirrorPorts(const Intf& intf) const {
  if (intf.rfind("Port-Channel", 0) != 0) return {intf};
  auto it = lagMembers_.find(intf);
  return it == lagMembers_.end() ? std::set<Intf>{} : it->second;
}

std::optional<HwMirrorView> Model::mirrorSession(const std::string& name) const {
  const MirrorConfig& config = mirrors_.at(name);
  std::set<Intf> sourcePorts;
  for (const auto& [intf, direction] : config.sources) {
    sourcePorts.insert(intf);
    for (const auto& port : mirrorPorts(intf)) sourcePorts.insert(port);
  }
  // The session is made around its first usable destination, ports before
  // port-channels, by number: not a port-channel member, not one of the
  // session's own sources.
  auto number = [](const Intf& intf) { return std::atoi(intf.c_str() + intf.find_first_of("0123456789")); };
  std::vector<Intf> dests(config.dests.begin(), config.dests.end());
  std::sort(dests.begin(), dests.end(), [&](const Intf& a, const Intf& b) {
    bool lagA = a.rfind("Port-Channel", 0) == 0, lagB = b.rfind("Port-Channel", 0) == 0;
    return lagA != lagB ? lagB : number(a) < number(b);
  });
  // Every usable destination gets copies; the first is the one the session
  // is made with.
  std::optional<HwMirrorView> view;
  for (const auto& dest : dests) {
    const bool lag = dest.rfind("Port-Channel", 0) == 0;
    if (!lag && !lagOf(dest).empty()) continue;
    std::set<Intf> ports = mirrorPorts(dest);
    bool overlaps = sourcePorts.count(dest) != 0;
    for (const auto& port : ports) overlaps = overlaps || sourcePorts.count(port);
    if (overlaps) continue;
    if (!view) {
      view.emplace();
      view->dest = dest;
      for (const auto& [intf, direction] : config.sources) {
        for (const auto& port : mirrorPorts(intf)) view->sources[port] = direction;
      }
    }
    view->targets.insert(ports.begin(), ports.end());
  }
  return view;
}

ChipView Model::chip() const {
  ChipView view;
  featureChip(view);
  for (const auto& [name, config] : mirrors_) {
    if (auto session = mirrorSession(name)) view.mirrors[name] = *session;
  }
  for (const auto& [vlan, members] : vlanMembers_) {
    HwVlanView hw;
    for (const auto& [intf, tagged] : members) {
      bool known = intf.rfind("Port-Channel", 0) != 0 || lagStatus_.count(intf);
      if (known && !tagged) view.untaggedIn[intf].insert(vlan);
      if (known && blocked(vlan, intf)) view.held.insert(intf);
      if (!inHwVlan(vlan, intf)) continue;
      (tagged ? hw.tagged : hw.untagged).insert(intf);
    }
    if (!hw.tagged.empty() || !hw.untagged.empty()) view.vlans[vlan] = hw;
  }
  for (const auto& [lag, members] : lagMembers_)
    if (!members.empty()) view.lags[lag] = members;
  std::set<MacKey> keys;
  for (const auto& [key, intf] : statics_) keys.insert(key);
  for (const auto& [key, entry] : learned_) keys.insert(key);
  for (const auto& [key, owners] : nonAging_) keys.insert(key);
  for (const auto& key : keys)
    if (auto entry = fdbEntry(key)) view.fdb[key] = *entry;
  return view;
}

}  // namespace Soak
