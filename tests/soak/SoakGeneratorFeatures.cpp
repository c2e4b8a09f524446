// The generator's ACL, storm-control, sub-interface and routing commands.
// Of these, storm control and routing meet chip faults: refusals that the
// switch gets over by itself before it settles.
#include "tests/soak/SoakGenerator.h"

#include <fmt/format.h>

#include <cstdlib>
#include <iterator>

namespace Soak {

std::string Generator::featureChange(const Model& model) {
  unsigned roll = pick(4);
  if (roll < 2) return aclChange(model);
  if (roll < 3) return stormChange(model);
  return subIntfChange(model);
}

std::string Generator::aclRule() {
  // Addresses and ports around those of the frames the runner samples
  // (10.0.x.y to 10.1.x.y, TCP from 1024 up to port 80-82), so that rules
  // both match and miss them.
  const char* sources[] = {"any", "any", "10.0.0.0/16", "10.0.3.0/24", "host 10.0.1.2", "10.2.0.0/16"};
  const char* destinations[] = {"any", "any", "10.1.0.0/16", "10.1.2.0/24", "host 10.1.0.1"};
  const char* srcPorts[] = {"range 1024 1500", "range 1400 2023", "eq 1030", "range 1100 1101"};
  const char* dstPorts[] = {"eq 80", "range 81 82", "range 80 81", "eq 443"};
  const char* protocols[] = {"ip", "tcp", "tcp", "udp"};
  std::string protocol = protocols[pick(4)];
  const bool l4 = protocol != "ip";
  std::string text = fmt::format("{} {}", chance(0.5) ? "permit" : "deny", protocol);
  text += fmt::format(" {}", sources[pick(6)]);
  if (l4 && chance(0.4)) text += fmt::format(" {}", srcPorts[pick(4)]);
  text += fmt::format(" {}", destinations[pick(5)]);
  if (l4 && chance(0.5)) text += fmt::format(" {}", dstPorts[pick(4)]);
  return text;
}

std::string Generator::aclChange(const Model& model) {
  // Lists acl1-acl3 of up to four rules, bound inbound on the LAGs' member
  // ports, stand-alone ports and the LAGs themselves.
  const std::string name = "acl" + std::to_string(1 + pick(3));
  const unsigned seq = 10 * (1 + pick(4));
  const std::string at = chance(0.5) ? "Ethernet" + std::to_string(1 + pick(8)) : lag();
  switch (pick(10)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return fmt::format("ip access-list {} {} {}", name, seq, aclRule());
    case 4:
      return model.aclRuleHas(name, seq) ? fmt::format("no ip access-list {} {}", name, seq) : std::string();
    case 5:
      if (!model.aclHas(name)) return fmt::format("ip access-list {}", name);
      return chance(0.5) ? fmt::format("no ip access-list {}", name) : std::string();
    case 6:
    case 7:
    case 8:
      return fmt::format("interface {} ip access-group {} in", at, name);
    default:
      return model.aclBound(at) ? fmt::format("interface {} no ip access-group in", at) : std::string();
  }
}

std::string Generator::stormChange(const Model& model) {
  // Levels of at least one percent: a sampled frame never meets a meter
  // that is out of credit.
  const char* types[] = {"broadcast", "multicast", "unknown-unicast", "all"};
  const char* levels[] = {"1", "5", "12.5", "50", "100"};
  const char* speeds[] = {"1g", "10g", "25g", "100m"};
  const std::string at = chance(0.6) ? "Ethernet" + std::to_string(1 + pick(8)) : lag();
  switch (pick(6)) {
    case 0:
    case 1:
    case 2: {
      const char* type = types[pick(4)];
      const char* level = levels[pick(5)];
      auto text = fmt::format("interface {} storm-control {} level {}", at, type, level);
      // A meter the chip refuses is tried again by storm control's walk a
      // second later. The fault goes to a change of a stand-alone port's
      // level, which meets the chip at once.
      const bool standAlone = at.rfind("Ethernet", 0) == 0 && std::atoi(at.c_str() + 8) <= 4;
      if (standAlone && model.stormLevel(at, type) != Model::stormHundredths(level) && chance(0.2)) {
        const char* faults[] = {"busy", "full", "fail"};
        pending_.push_back(text);
        return fmt::format("chip storm-control {} next 1", faults[pick(3)]);
      }
      return text;
    }
    case 3:
      return model.stormConfigured(at) ? fmt::format("interface {} no storm-control {}", at, types[pick(4)])
                                       : std::string();
    case 4:
      return model.stormConfigured(at) ? fmt::format("interface {} no storm-control", at) : std::string();
    default:
      return fmt::format("interface Ethernet{} speed {}", 1 + pick(8), speeds[pick(4)]);
  }
}

std::string Generator::subIntfChange(const Model& model) {
  // Sub-interfaces of Ethernet1-4 and the LAGs over three tags. A routed
  // sub-interface owns its VLAN (its tag's), so a second one with the same
  // tag waits, on the same parent or another; at most two per tag keep the
  // one that takes over when the holder goes plain.
  const std::string parent = chance(0.6) ? "Ethernet" + std::to_string(1 + pick(4)) : lag();
  const std::string sub = fmt::format("{}.{}", parent, 1 + pick(3));
  if (model.subIntfExists(sub)) return fmt::format("no interface {} encapsulation", sub);
  const int tag = 100 + static_cast<int>(pick(3));
  if (model.subIntfsTagged(tag) >= 2) return {};
  // Chip operations take time, which may or may not reach the retry of the
  // waiting one; after a second it has certainly been retried.
  if (model.subIntfTagVacant(tag)) return "advance 1";
  auto text = fmt::format("interface {} encapsulation dot1q vlan {}", sub, tag);
  // The chip may refuse the add of a sub-interface that takes a free tag
  // as busy or full: it keeps the tag and is tried again a second later,
  // so that the model need not tell.
  if (model.subIntfsTagged(tag) == 0 && chance(0.3)) {
    pending_.push_back(text);
    return fmt::format("chip vlan-translation {} next 1", chance(0.5) ? "busy" : "full");
  }
  return text;
}

std::string Generator::routingChange(const Model& model) {
  const RouteModel& routing = model.routing();
  const auto& ports = RouteModel::routedPorts();
  auto at = std::next(ports.begin(), pick(static_cast<unsigned>(ports.size())));
  const std::string& port = at->first;
  const std::string& vrf = at->second;
  auto hosts = RouteModel::neighbours(port);
  const std::string& addr = hosts[pick(static_cast<unsigned>(hosts.size()))];
  // A FEC's vias are all in one VRF: FECs 1-3 in the default one, 4-6 in
  // red. Routes of either VRF may use any of them.
  unsigned fec = (vrf == "default" ? 1 : 4) + pick(3);
  // Now and then the chip is busy for the next route or adjacency it is
  // asked to hold: either is offered again a tenth of a second on, well
  // before the switch settles.
  if (chance(0.05)) return fmt::format("chip {} busy next 1", chance(0.5) ? "route" : "adjacency");
  switch (pick(8)) {
    case 0:
    case 1:
      // A neighbour may come back with another MAC.
      return fmt::format("arp {} {} 00:00:00:00:{:02x}:{:02x} {}", vrf, addr, std::atoi(port.c_str() + 8), 1 + pick(3),
                         port);
    case 2:
      return routing.neighbourKnown(vrf, addr) ? fmt::format("no arp {} {}", vrf, addr) : std::string();
    case 3:
    case 4:
      return fmt::format("fec {} via {} {}{}", fec, addr, port,
                         chance(0.3) ? fmt::format(" weight {}", 1 + pick(3)) : std::string());
    case 5:
      if (!routing.fecExists(fec)) return {};
      if (chance(0.2)) return routing.fecUsed(fec) ? std::string() : fmt::format("no fec {}", fec);
      if (chance(0.3)) {
        return chance(0.5) ? fmt::format("fec {} resilient slots {}", fec, 4u << pick(3))
                           : fmt::format("no fec {} resilient", fec);
      }
      return routing.fecHasVia(fec, addr, port) ? fmt::format("no fec {} via {} {}", fec, addr, port) : std::string();
    case 6: {
      const auto& prefixes = RouteModel::prefixes();
      const char* routeVrf = chance(0.5) ? "default" : "red";
      const std::string& prefix = prefixes[pick(static_cast<unsigned>(prefixes.size()))];
      if (!routing.fecExists(fec)) return {};
      return fmt::format("ip route vrf {} {} fec {}", routeVrf, prefix, fec);
    }
    default: {
      const auto& prefixes = RouteModel::prefixes();
      const char* routeVrf = chance(0.5) ? "default" : "red";
      const std::string& prefix = prefixes[pick(static_cast<unsigned>(prefixes.size()))];
      return routing.routeExists(routeVrf, prefix) ? fmt::format("no ip route vrf {} {}", routeVrf, prefix)
                                                   : std::string();
    }
  }
}

}  // namespace Soak
