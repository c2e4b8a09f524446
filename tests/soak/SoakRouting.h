// The soak's reference for routing: where a router sends an IPv4 packet,
// stated plainly over the configuration the routing and ARP agents publish
// (routed ports by VRF, neighbours, FECs and their vias, routes), with
// nothing taken from the forwarding layer or the soft chip.
//
// The rules:
//  - a packet arriving on a routed port is routed in the port's VRF when it
//    is addressed to the router MAC, and dropped otherwise;
//  - its route is the longest prefix of that VRF holding its destination;
//    none: dropped;
//  - the route's FEC spreads flows over its vias; a via resolves when the
//    neighbour it names is known in the VRF of its interface, and a flow
//    that lands on one that does not is dropped (the packet waits for the
//    neighbour at the CPU);
//  - a routed copy leaves by its via's interface, from the router MAC to
//    the neighbour's MAC, one hop nearer its end.
// Which flow lands on which via is the chip's hash, which the reference
// does not restate: any resolved via is a right answer, and a drop is too
// while some via does not resolve.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Soak {

using Port = std::string;

// "10.1.2.3" as a number.
std::uint32_t ipv4(const std::string& text);

// Where a routed packet may go.
struct RoutedOutcome {
  std::string vrf;
  std::set<std::pair<Port, std::string>> nextHops;  // (port, neighbour MAC)
  bool mayDrop = true;
};

class RouteModel {
 public:
  static constexpr const char* routerMac = "00:00:00:00:ee:01";
  // The routed ports and their VRFs, as the generator's prologue makes them.
  static const std::map<Port, std::string>& routedPorts();
  // The neighbour addresses each routed port may have: 10.0.P.1 to 10.0.P.4
  // on EthernetP.
  static std::vector<std::string> neighbours(const Port& port);
  // The prefixes routes are made for; the frames' destinations fall in them.
  static const std::vector<std::string>& prefixes();

  // Applies a routing line; false for a line of another kind.
  bool apply(const std::vector<std::string>& w);

  // Where a frame to `dstMac` for `ipDst` arriving on `port` goes; nothing
  // when `port` is not a routed port.
  std::optional<RoutedOutcome> route(const Port& port, const std::string& dstMac, std::uint32_t ipDst) const;

  // For the generator.
  bool fecExists(unsigned fec) const { return fecs_.count(fec) != 0; }
  bool fecUsed(unsigned fec) const;
  bool fecHasVia(unsigned fec, const std::string& addr, const Port& intf) const;
  bool routeExists(const std::string& vrf, const std::string& prefix) const {
    return routes_.count({vrf, prefix}) != 0;
  }
  bool neighbourKnown(const std::string& vrf, const std::string& addr) const {
    return neighbours_.count({vrf, addr}) != 0;
  }

 private:
  std::map<Port, std::string> intfVrf_;
  std::map<std::pair<std::string, std::string>, std::string> neighbours_;      // (VRF, address) -> MAC
  std::map<unsigned, std::map<std::pair<std::string, Port>, unsigned>> fecs_;  // FEC -> via -> weight
  std::map<std::pair<std::string, std::string>, unsigned> routes_;             // (VRF, prefix) -> FEC
};

}  // namespace Soak
