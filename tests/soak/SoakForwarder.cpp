#include "tests/soak/SoakForwarder.h"

#include <fmt/format.h>

#include <sstream>

namespace Soak {

std::string RefFrame::text() const {
  std::string out = fmt::format("src {} dst {}", src, dst);
  if (tag) out += fmt::format(" vlan {}", *tag);
  if (ip) {
    out += fmt::format(" ip 10.0.{}.{} 10.1.{}.{} tcp {} {}", ipSeed % 7, 1 + ipSeed % 13, ipSeed % 5, 1 + ipSeed % 11,
                       srcPort(), dstPort());
  }
  return out;
}

std::optional<RefFrame> RefFrame::parse(const std::string& text) {
  std::istringstream in(text);
  std::string word;
  RefFrame frame;
  if (!(in >> word) || word != "src" || !(in >> frame.src) || !(in >> word) || word != "dst" || !(in >> frame.dst))
    return std::nullopt;
  int tag = 0;
  if ((in >> word) && word == "vlan") {
    if (!(in >> tag)) return std::nullopt;
    frame.tag = tag;
    if (!(in >> word)) word.clear();
  }
  if (word == "ip") {
    // The addresses and ports all follow from the seed; the source port
    // gives it back.
    std::string addrs[2], tcp;
    unsigned srcPort = 0;
    if (!(in >> addrs[0] >> addrs[1] >> tcp >> srcPort) || tcp != "tcp" || srcPort < 1024) return std::nullopt;
    frame.ip = true;
    frame.ipSeed = static_cast<int>(srcPort - 1024);
  }
  if (frame.text() != text) return std::nullopt;
  return frame;
}

std::uint32_t RefFrame::ipSrc() const {
  return 10u << 24 | static_cast<std::uint32_t>(ipSeed % 7) << 8 | static_cast<std::uint32_t>(1 + ipSeed % 13);
}

std::uint32_t RefFrame::ipDst() const {
  return 10u << 24 | 1u << 16 | static_cast<std::uint32_t>(ipSeed % 5) << 8 |
         static_cast<std::uint32_t>(1 + ipSeed % 11);
}

bool RefFrame::multicast(const std::string& mac) {
  // The group bit: the low bit of the first octet.
  return std::stoi(mac.substr(0, 2), nullptr, 16) & 1;
}

Intf Forwarder::logical(const Intf& port) const {
  for (const auto& [lag, members] : view_.lags)
    if (members.count(port)) return lag;
  return port;
}

std::optional<bool> Forwarder::tagging(int vlan, const Intf& intf) const {
  auto it = view_.vlans.find(vlan);
  if (it == view_.vlans.end()) return std::nullopt;
  if (it->second.tagged.count(intf)) return true;
  if (it->second.untagged.count(intf)) return false;
  return std::nullopt;
}

std::optional<std::set<int>> Forwarder::classify(const Intf& ingress, const RefFrame& frame) const {
  if (frame.tag && *frame.tag != 0) return std::set<int>{*frame.tag};
  Intf from = logical(ingress);
  if (view_.held.count(from) || view_.held.count(ingress)) return std::nullopt;
  auto untaggedIn = [&](const Intf& intf) {
    auto it = view_.untaggedIn.find(intf);
    return it == view_.untaggedIn.end() ? std::set<int>{} : it->second;
  };
  auto vlans = untaggedIn(from);
  if (vlans.empty() && from != ingress) vlans = untaggedIn(ingress);
  return vlans;
}

void Forwarder::addEgress(int vlan, const Intf& member, const Intf& to, std::set<RefEgress>& out) const {
  // A LAG without members has no way out.
  if (to.rfind("Port-Channel", 0) == 0 && !view_.lags.count(to)) return;
  out.insert(RefEgress{to, *tagging(vlan, member)});
}

std::optional<std::set<RefEgress>> Forwarder::forward(const Intf& ingress, const RefFrame& frame, int vlan) const {
  std::set<RefEgress> out;
  Intf from = logical(ingress);
  if (!tagging(vlan, from) && (from == ingress || !tagging(vlan, ingress))) return out;
  if (RefFrame::multicast(frame.src)) return out;
  if (auto acl = view_.aclRules.find(ingress); acl != view_.aclRules.end() && frame.ip) {
    const RefAclRule* decides = nullptr;
    for (const auto& rule : acl->second) {
      if (rule.matches(6, frame.ipSrc(), frame.ipDst(), frame.srcPort(), frame.dstPort())) {
        decides = &rule;
        break;
      }
    }
    if (!decides || !decides->permit) return out;
  }
  if (!RefFrame::multicast(frame.dst)) {
    MacKey key{frame.dst, vlan};
    if (uncertain_.count(key)) return std::nullopt;
    if (auto entry = view_.fdb.find(key); entry != view_.fdb.end()) {
      Intf to = logical(entry->second.intf);
      if (to == from) return out;
      if (tagging(vlan, to)) {
        addEgress(vlan, to, to, out);
      } else if (tagging(vlan, entry->second.intf)) {
        addEgress(vlan, entry->second.intf, to, out);
      }
      return out;
    }
  }
  auto members = view_.vlans.find(vlan);
  for (const auto* set : {&members->second.tagged, &members->second.untagged}) {
    for (const auto& member : *set) {
      Intf to = logical(member);
      if (to != from) addEgress(vlan, member, to, out);
    }
  }
  return out;
}

}  // namespace Soak
