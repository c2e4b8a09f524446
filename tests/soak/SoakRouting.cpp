#include "tests/soak/SoakRouting.h"

#include "tests/soak/SoakModel.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace Soak {

std::uint32_t ipv4(const std::string& text) {
  unsigned a = 0, b = 0, c = 0, d = 0;
  std::sscanf(text.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d);
  return a << 24 | b << 16 | c << 8 | d;
}

namespace {

// Whether "A/LEN" holds `addr`, and its length.
std::optional<int> holds(const std::string& prefix, std::uint32_t addr) {
  auto slash = prefix.find('/');
  int len = std::atoi(prefix.c_str() + slash + 1);
  std::uint32_t mask = len == 0 ? 0 : ~std::uint32_t(0) << (32 - len);
  if ((ipv4(prefix.substr(0, slash)) & mask) != (addr & mask)) return std::nullopt;
  return len;
}

}  // namespace

const std::map<Port, std::string>& RouteModel::routedPorts() {
  static const std::map<Port, std::string> ports = {
      {"Ethernet11", "default"}, {"Ethernet12", "default"}, {"Ethernet13", "red"}, {"Ethernet14", "red"}};
  return ports;
}

std::vector<std::string> RouteModel::neighbours(const Port& port) {
  int number = std::atoi(port.c_str() + 8);
  std::vector<std::string> out;
  for (int host = 1; host <= 4; ++host) out.push_back(fmt::format("10.0.{}.{}", number, host));
  return out;
}

const std::vector<std::string>& RouteModel::prefixes() {
  static const std::vector<std::string> list = {"0.0.0.0/0",   "10.0.0.0/8",  "10.1.0.0/16", "10.1.2.0/24",
                                                "10.1.2.0/28", "10.1.3.4/30", "10.1.4.0/23", "10.1.1.7/32"};
  return list;
}

bool RouteModel::apply(const std::vector<std::string>& w) {
  auto at = [&](std::size_t i) -> const std::string& {
    static const std::string none;
    return i < w.size() ? w[i] : none;
  };
  if (w[0] == "interface" && at(2) == "vrf") {
    intfVrf_[at(1)] = at(3);
  } else if (w[0] == "arp") {
    neighbours_[{at(1), at(2)}] = Model::macText(at(3));
  } else if (w[0] == "no" && at(1) == "arp") {
    neighbours_.erase({at(2), at(3)});
  } else if (w[0] == "fec" && at(2) == "via") {
    fecs_[static_cast<unsigned>(std::atoi(at(1).c_str()))][{at(3), at(4)}] =
        at(5) == "weight" ? static_cast<unsigned>(std::atoi(at(6).c_str())) : 1;
  } else if (w[0] == "fec" && at(2) == "resilient") {
    // Resilience changes which flow takes which via, not where flows may go.
  } else if (w[0] == "no" && at(1) == "fec") {
    unsigned fec = static_cast<unsigned>(std::atoi(at(2).c_str()));
    if (at(3) == "via") {
      if (auto it = fecs_.find(fec); it != fecs_.end()) it->second.erase({at(4), at(5)});
    } else if (at(3).empty()) {
      fecs_.erase(fec);
    }
  } else if (w[0] == "ip" && at(1) == "route" && at(2) == "vrf") {
    routes_[{at(3), at(4)}] = static_cast<unsigned>(std::atoi(at(6).c_str()));
  } else if (w[0] == "no" && at(1) == "ip" && at(2) == "route" && at(3) == "vrf") {
    routes_.erase({at(4), at(5)});
  } else {
    return w[0] == "vrf" || (w[0] == "ip" && at(1) == "router-mac");
  }
  return true;
}

bool RouteModel::fecUsed(unsigned fec) const {
  for (const auto& [where, used] : routes_)
    if (used == fec) return true;
  return false;
}

bool RouteModel::fecHasVia(unsigned fec, const std::string& addr, const Port& intf) const {
  auto it = fecs_.find(fec);
  return it != fecs_.end() && it->second.count({addr, intf});
}

std::optional<RoutedOutcome> RouteModel::route(const Port& port, const std::string& dstMac, std::uint32_t ipDst) const {
  auto vrf = intfVrf_.find(port);
  if (vrf == intfVrf_.end()) return std::nullopt;
  RoutedOutcome out;
  out.vrf = vrf->second;
  if (dstMac != routerMac) return out;
  const unsigned* fec = nullptr;
  int longest = -1;
  for (const auto& [where, routeFec] : routes_) {
    if (where.first != out.vrf) continue;
    auto len = holds(where.second, ipDst);
    if (len && *len > longest) longest = *len, fec = &routeFec;
  }
  auto vias = fec ? fecs_.find(*fec) : fecs_.end();
  if (vias == fecs_.end()) return out;
  out.mayDrop = false;
  for (const auto& [via, weight] : vias->second) {
    const auto& [addr, intf] = via;
    auto viaVrf = intfVrf_.find(intf);
    auto mac = viaVrf == intfVrf_.end() ? neighbours_.end() : neighbours_.find({viaVrf->second, addr});
    if (mac == neighbours_.end()) {
      out.mayDrop = true;
    } else {
      out.nextHops.insert({intf, mac->second});
    }
  }
  if (out.nextHops.empty()) out.mayDrop = true;
  return out;
}

}  // namespace Soak
