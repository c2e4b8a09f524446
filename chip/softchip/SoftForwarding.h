// The soft chip's forwarding model: where a frame goes, given what the
// chip's tables hold and nothing else (no machine's state), so that what it
// says is what this chip, programmed as it is, would do.
//
//   SoftChip::SoftForwarding forwarding(chip);
//   auto result = forwarding.forward(Nexo::IntfId("Ethernet1"), frame);
//   for (const auto& out : result.egress) ...  // out.port, out.tagged, out.vlan
//   if (result.dropped()) ... result.drop ...
//
// The steps, in the order a chip's pipeline takes them:
//  - a port error-disabled, or blocked while its ACL is replaced, neither
//    receives nor sends;
//  - a frame arriving on a LAG member arrives on the LAG (the chip's LAG
//    table says which ports are members);
//  - its VLAN is its tag's, or for an untagged (or priority-tagged) frame
//    the untagged VLAN of the port;
//  - ingress filtering: the port must be an ingress member of the VLAN;
//  - the port's spanning-tree state in the VLAN's topology: blocking or
//    disabled drop the frame, learning learns its source and drops it;
//  - a multicast source is dropped, never learned;
//  - the ingress ACL of the port for the frame's kind (IPv4, IPv6, or any
//    other frame: MAC) matches it in priority order: a deny drops it;
//  - the source is learned or moved through the forwarding database's own
//    learn (hardware learning, or a report to the CPU in software learning
//    mode), when learning is on for the port and the VLAN;
//  - a known unicast destination goes to its entry's port (dropped if that
//    is the ingress port); unknown unicast, broadcast and multicast meet
//    the ingress port's storm-control meters, then flood
//    to the VLAN's egress members (its flood set, expansion included) that
//    forward, never back to the ingress port or LAG;
//  - a frame to a LAG leaves by exactly one member, chosen by
//    frameFlowHash and HwLag::memberFor, so that one flow always takes one
//    member and a member going moves only the flows it carried;
//  - each copy meets the egress ACL of its port, which may deny it.
//
// A frame arriving on a routed interface (one the chip's layer-3 interface
// table holds) is routed instead, in the interface's VRF: it must be IPv4
// or IPv6 and addressed to the router MAC, and its TTL above 1; the
// longest prefix holding its destination names a FEC, the FEC its
// adjacency, and the flow hash picks one next hop (by slot for a resilient
// FEC, by weight otherwise). The copy leaves untagged by the next hop's
// interface (one member of a LAG) with the router MAC as source, the next
// hop's as destination, and its TTL one lower. A frame to the router MAC
// bridged in a VLAN whose VLAN interface is routed is routed by that
// interface; a next hop on a VLAN interface is reached by the port its MAC
// was learned on, tagged as the VLAN says. The routed interface's ingress
// ACL (the port's, the sub-interface's or the VLAN interface's) meets the
// frame before routing; a VLAN interface's egress ACL meets what is routed
// out of it.
//
// A frame whose tags match a sub-interface of its port or LAG (the chip's
// VLAN-translation table) is that sub-interface's and never meets the VLAN
// of its tag: a routed sub-interface routes it (as a routed interface, by
// the sub-interface's VRF), a layer-2 one bridges it in the sub-interface's
// VLAN with the sub-interface as where it came from. A copy leaving by a
// sub-interface carries its tags on its parent.
//
// A chip without a table of some kind does without it: no LAG table, no
// LAGs; no topology table, every port forwards; no forwarding database,
// every destination is unknown and nothing is learned.
#pragma once

#include "chip/softchip/SoftChip.h"
#include "chip/softchip/SoftFrame.h"
#include "chip/softchip/SoftMirror.h"
#include "platform/model/Acl.h"

#include <optional>
#include <string>
#include <vector>

namespace SoftChip {

class SoftAclTable;
class SoftAdjTable;
class SoftFdbTable;
struct HwFdbEntry;
class SoftFecTable;
class SoftL3IntfTable;
class SoftRouteTable;
class SoftStormControlTable;
class SoftSubIntfTable;
struct AclVerdict;
class SoftLagTable;
class SoftTopologyTable;
class SoftVlanTable;
struct HwLag;
struct HwNextHop;
struct HwTopology;
struct HwVlan;

// One copy of the frame leaving the chip.
struct FrameEgress {
  Nexo::IntfId port;  // the physical port it leaves by
  Nexo::IntfId lag;   // the LAG `port` was chosen from; empty when none
  bool tagged = false;
  std::uint16_t vlan = 0;       // the tag it carries when `tagged`
  std::uint16_t innerVlan = 0;  // the inner tag of a double-tagged copy
  Nexo::IntfId subIntf;         // the sub-interface it leaves by; empty when none
  // A routed copy's rewritten header; zero for a bridged copy.
  Nexo::EthAddr srcMac;
  Nexo::EthAddr dstMac;
  std::uint8_t ttl = 0;
  bool operator==(const FrameEgress&) const = default;
};

struct ForwardResult {
  // The VLAN the frame was classified to; 0 when it was dropped before.
  std::uint16_t vlan = 0;
  // The sub-interface whose tags the frame carried; empty when none.
  Nexo::IntfId subIntf;
  // Ordered by port. Empty when dropped.
  std::vector<FrameEgress> egress;
  bool flooded = false;  // sent to the flood set, the destination unknown or not unicast
  // The source was learned (or reported, in software learning mode) as a
  // new address, or moved from another port.
  bool learned = false;
  bool moved = false;
  // Routed: the VRF, the FEC the route named and, for a resilient FEC, the
  // slot the flow took.
  bool routed = false;
  std::uint32_t vrf = 0;
  std::uint64_t fec = 0;
  std::optional<std::uint32_t> slot;
  // Why the frame went nowhere; empty when it left the chip.
  std::string drop;
  // The ACL decisions the frame met ("acl ip web in on Ethernet1: seq 10
  // permits"), ingress first.
  std::vector<std::string> acls;
  // The copies mirror sessions made: of the frame as received, and of
  // each copy as sent.
  std::vector<MirrorCopy> mirrors;

  bool dropped() const { return !drop.empty(); }
  void clear();
};

class SoftForwarding {
 public:
  explicit SoftForwarding(SoftChip& chip) : chip_(chip) {}

  // Off: sources are neither learned nor refreshed, so that asking where
  // frames go leaves the chip exactly as it was. On by default.
  bool learning() const { return learning_; }
  void learningIs(bool learning) { learning_ = learning; }

  // The frame `frame` arrives on `ingress` (a front-panel port, or a LAG
  // member). Learning changes the forwarding database as the chip would.
  ForwardResult forward(const Nexo::IntfId& ingress, const Frame& frame);
  // The same into `result`, whose memory is reused: for callers forwarding
  // many frames.
  void forward(const Nexo::IntfId& ingress, const Frame& frame, ForwardResult& result);

 private:
  struct Tables {
    const SoftVlanTable* vlans = nullptr;
    const SoftLagTable* lags = nullptr;
    const SoftTopologyTable* topologies = nullptr;
    SoftFdbTable* fdb = nullptr;
    const SoftL3IntfTable* l3Intfs = nullptr;
    const SoftRouteTable* routes = nullptr;
    const SoftFecTable* fecs = nullptr;
    const SoftAdjTable* adjacencies = nullptr;
    SoftAclTable* acl = nullptr;
    SoftStormControlTable* stormControl = nullptr;
    const SoftSubIntfTable* subIntfs = nullptr;
    const SoftMirrorTable* mirrors = nullptr;
  };
  // Why a port neither receives nor sends (error-disabled, or blocked
  // while its ACL is replaced); nothing when it is in service.
  std::optional<std::string> outOfService(const Nexo::IntfId& port) const;
  // Takes out the copies to ports out of service.
  void dropOutOfService(ForwardResult& result) const;
  // The L2 pipeline, with the ingress ACL after spanning tree.
  void bridge(const Nexo::IntfId& ingress, const Frame& frame, ForwardResult& result);
  // The ACL applied at `intf` in `direction` for the frame's kind, if one
  // matched: noted on the result and counted.
  std::optional<AclVerdict> aclVerdict(const Nexo::IntfId& intf, Acl::AclDirection direction, const Frame& frame,
                                       ForwardResult& result);
  // Takes out the copies an egress ACL denies.
  void filterEgress(const Frame& frame, ForwardResult& result);
  // The chip's tables, looked up again only when the chip's set changed.
  const Tables& tables();
  // The LAG a port is a member of, or the port itself.
  Nexo::IntfId logical(const Nexo::IntfId& port) const;
  // Whether `intf` may send in the VLAN as its topology says.
  bool forwards(const HwTopology* topology, const Nexo::IntfId& intf) const;
  // Learns the source arriving on `port`, as `intf` (its LAG, or itself);
  // `inTable` is the source's FDB entry, if any.
  void learnSource(const Frame& frame, const Nexo::IntfId& port, const Nexo::IntfId& intf, HwFdbEntry* inTable,
                   ForwardResult& result);
  // Adds a copy leaving by `intf` (a port or a LAG), tagged as `memberRole`
  // (what the VLAN names it or its member port) says.
  void addEgress(std::uint8_t memberRole, const Nexo::IntfId& intf, const Frame& frame, ForwardResult& result) const;
  // Whether the ACL applied at `intf` in `direction` denies the frame; the
  // drop is noted on the result.
  bool aclDenies(const Nexo::IntfId& intf, Acl::AclDirection direction, const Frame& frame, ForwardResult& result);
  // Routes a frame that arrived on the routed interface `l3Intf` (a port,
  // a sub-interface or a VLAN interface) of `vrf`, after its ingress ACL.
  void routeIn(const Nexo::IntfId& l3Intf, std::uint32_t vrf, const Frame& frame, ForwardResult& result);
  void route(std::uint32_t vrf, const Frame& frame, ForwardResult& result);
  // Fills `out` to reach a next hop on a VLAN interface: the port its MAC
  // was learned on, tagged as the VLAN says; false (and why) when it cannot.
  bool sviEgress(const HwNextHop& nextHop, FrameEgress& out, ForwardResult& result) const;
  // Fills `out` to leave by the sub-interface `subIntf` (its parent, one
  // member of a LAG parent, with its tags); false when it cannot.
  bool subIntfEgress(const Nexo::IntfId& subIntf, const Frame& frame, FrameEgress& out) const;
  // Adds copies for the layer-2 sub-interfaces bridged in `vlan`, but `from`.
  void floodSubIntfs(std::uint16_t vlan, const Nexo::IntfId& from, const Frame& frame, ForwardResult& result) const;
  void flood(const HwVlan& vlan, const HwTopology* topology, const Nexo::IntfId& from, const Frame& frame,
             ForwardResult& result) const;

  SoftChip& chip_;
  Tables tables_;
  // The frame's flow hash, once a LAG needed it.
  mutable std::optional<std::uint64_t> flowHash_;
  std::uint64_t tablesGeneration_ = 0;
  bool learning_ = true;
};

// The chip-level entry point: a frame arriving on `ingress`.
inline ForwardResult forwardFrame(SoftChip& chip, const Nexo::IntfId& ingress, const Frame& frame) {
  return SoftForwarding(chip).forward(ingress, frame);
}

}  // namespace SoftChip
