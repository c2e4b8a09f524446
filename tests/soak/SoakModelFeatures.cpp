// The reference model's ACLs, storm control and sub-interfaces: what each
// port applies or holds on the chip, from the configuration and the LAG
// members in effect.
#include "tests/soak/SoakModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

namespace Soak {

namespace {

std::string ipv4Text(std::uint32_t addr) {
  return fmt::format("{}.{}.{}.{}", addr >> 24, addr >> 16 & 255, addr >> 8 & 255, addr & 255);
}

std::uint32_t mask(int len) { return len == 0 ? 0 : ~std::uint32_t(0) << (32 - len); }

// "any", "host A" or "A/LEN" at w[i]; moves i past it.
void readAddress(const std::vector<std::string>& w, std::size_t& i, std::uint32_t& addr, int& len) {
  if (w[i] == "any") {
    addr = 0, len = 0, ++i;
  } else if (w[i] == "host") {
    addr = ipv4(w[i + 1]), len = 32, i += 2;
  } else {
    auto slash = w[i].find('/');
    len = std::atoi(w[i].c_str() + slash + 1);
    addr = ipv4(w[i].substr(0, slash)) & mask(len);
    ++i;
  }
}

// "eq P" or "range A B" at w[i], if there; moves i past it.
void readPorts(const std::vector<std::string>& w, std::size_t& i, std::string& text, unsigned& low, unsigned& high) {
  text = "any";
  if (i >= w.size() || (w[i] != "eq" && w[i] != "range")) return;
  low = static_cast<unsigned>(std::atoi(w[i + 1].c_str()));
  if (w[i] == "eq") {
    high = low, text = "eq " + w[i + 1], i += 2;
  } else {
    high = static_cast<unsigned>(std::atoi(w[i + 2].c_str()));
    text = "range " + w[i + 1] + " " + w[i + 2], i += 3;
  }
}

int protocolNumber(const std::string& word) {
  if (word == "ip") return 0;
  if (word == "tcp") return 6;
  if (word == "udp") return 17;
  return std::atoi(word.c_str());
}

}  // namespace

std::string RefAclRule::text() const {
  return fmt::format("{} {} {} {}/{} {} {}/{} {}", seq, permit ? "permit" : "deny", protocol, ipv4Text(src), srcLen,
                     srcPorts, ipv4Text(dst), dstLen, dstPorts);
}

bool RefAclRule::matches(int proto, std::uint32_t srcAddr, std::uint32_t dstAddr, unsigned srcPort,
                         unsigned dstPort) const {
  if (protocol != 0 && protocol != proto) return false;
  if ((srcAddr & mask(srcLen)) != src || (dstAddr & mask(dstLen)) != dst) return false;
  return srcLow <= srcPort && srcPort <= srcHigh && dstLow <= dstPort && dstPort <= dstHigh;
}

unsigned Model::stormHundredths(const std::string& percent) {
  auto dot = percent.find('.');
  std::string fraction = dot == std::string::npos ? "" : percent.substr(dot + 1);
  fraction.resize(2, '0');
  return static_cast<unsigned>(std::atoi(percent.c_str()) * 100 + std::atoi(fraction.c_str()));
}

unsigned Model::stormLevel(const Intf& intf, const std::string& type) const {
  auto it = storm_.find(intf);
  if (it == storm_.end()) return 0;
  auto level = it->second.find(type);
  return level == it->second.end() ? 0 : level->second;
}

bool Model::aclRuleHas(const std::string& name, unsigned seq) const {
  auto it = acls_.find(name);
  return it != acls_.end() && it->second.count(seq);
}

bool Model::subIntfExists(const Intf& subIntf) const {
  for (const auto& [tag, intfs] : subIntfsByTag_)
    if (std::find(intfs.begin(), intfs.end(), subIntf) != intfs.end()) return true;
  return false;
}

std::size_t Model::subIntfsTagged(int tag) const {
  auto it = subIntfsByTag_.find(tag);
  return it == subIntfsByTag_.end() ? 0 : it->second.size();
}

bool Model::applyFeature(const std::vector<std::string>& w) {
  auto at = [&](std::size_t i) -> const std::string& {
    static const std::string none;
    return i < w.size() ? w[i] : none;
  };
  if (w[0] == "ip" && at(1) == "access-list") {
    auto& acl = acls_[at(2)];
    if (w.size() == 3) return true;
    RefAclRule rule;
    rule.seq = static_cast<unsigned>(std::atoi(at(3).c_str()));
    rule.permit = at(4) == "permit";
    rule.protocol = protocolNumber(at(5));
    std::size_t i = 6;
    readAddress(w, i, rule.src, rule.srcLen);
    readPorts(w, i, rule.srcPorts, rule.srcLow, rule.srcHigh);
    readAddress(w, i, rule.dst, rule.dstLen);
    readPorts(w, i, rule.dstPorts, rule.dstLow, rule.dstHigh);
    acl[rule.seq] = rule;
  } else if (w[0] == "no" && at(1) == "ip" && at(2) == "access-list") {
    if (w.size() == 4) {
      acls_.erase(at(3));
    } else if (auto it = acls_.find(at(3)); it != acls_.end()) {
      it->second.erase(static_cast<unsigned>(std::atoi(at(4).c_str())));
    }
  } else if (w[0] == "interface" && at(2) == "ip" && at(3) == "access-group") {
    aclBindings_[at(1)] = at(4);
  } else if (w[0] == "interface" && at(2) == "no" && at(3) == "ip" && at(4) == "access-group") {
    aclBindings_.erase(at(1));
  } else if (w[0] == "interface" && at(2) == "storm-control") {
    storm_[at(1)][at(3)] = stormHundredths(at(5));
  } else if (w[0] == "interface" && at(2) == "no" && at(3) == "storm-control") {
    if (w.size() == 4) {
      storm_.erase(at(1));
    } else if (auto it = storm_.find(at(1)); it != storm_.end()) {
      it->second.erase(at(4));
      if (it->second.empty()) storm_.erase(it);
    }
  } else if (w[0] == "interface" && at(2) == "speed") {
    speedMbps_[at(1)] = static_cast<unsigned>(std::atoi(at(3).c_str())) * (at(3).back() == 'g' ? 1000 : 1);
  } else if (w[0] == "interface" && at(2) == "encapsulation") {
    // A tag its holder left takes the first sub-interface that asks before
    // the waiting one is retried.
    const int tag = std::atoi(at(5).c_str());
    auto& intfs = subIntfsByTag_[tag];
    intfs.insert(vacantTags_.erase(tag) ? intfs.begin() : intfs.end(), at(1));
  } else if (w[0] == "no" && at(1) == "interface" && at(3) == "encapsulation") {
    for (auto& [tag, intfs] : subIntfsByTag_) {
      if (intfs.size() > 1 && intfs.front() == at(2)) vacantTags_.insert(tag);
      std::erase(intfs, at(2));
    }
  } else if (w[0] == "advance") {
    // Waiting sub-interfaces are retried every second.
    vacantTags_.clear();
    return false;
  } else {
    return false;
  }
  return true;
}

void Model::featureChip(ChipView& view) const {
  // Ports take their LAG's list when it has one, else their own; a LAG's
  // configuration reaches the chip only through its members.
  for (int n = 1; n <= 8; ++n) {
    const Intf port = "Ethernet" + std::to_string(n);
    const Intf lag = lagOf(port);
    auto bound = aclBindings_.find(lag);
    if (lag.empty() || bound == aclBindings_.end()) bound = aclBindings_.find(port);
    auto acl = bound == aclBindings_.end() ? acls_.end() : acls_.find(bound->second);
    if (acl != acls_.end()) {
      std::string text = acl->first + ":";
      view.aclRules[port];  // an empty list denies every IPv4 frame
      for (const auto& [seq, rule] : acl->second) {
        text += fmt::format(" {};", rule.text());
        view.aclRules[port].push_back(rule);
      }
      view.acls[port] = text;
    }
    // Storm control: a LAG member is metered by its LAG's levels alone.
    auto storm = storm_.find(lag.empty() ? port : lag);
    if (storm == storm_.end()) continue;
    auto speed = speedMbps_.find(port);
    const std::uint64_t kbps = (speed == speedMbps_.end() ? 10000 : speed->second) * 1000ull;
    for (const auto& [level, hundredths] : storm->second)
      view.stormMeters[{port, level == "unknown-unicast" ? "uucast" : level}] =
          fmt::format("{} kbps{}", kbps * hundredths / 10000, lag.empty() ? "" : " " + lag);
  }
  for (const auto& [tag, intfs] : subIntfsByTag_) {
    if (intfs.empty()) continue;
    const Intf& holder = intfs.front();
    view.subIntfs[fmt::format("{} {}", holder.substr(0, holder.find('.')), tag)] =
        fmt::format("{} vlan {}", holder, tag);
  }
}

}  // namespace Soak
