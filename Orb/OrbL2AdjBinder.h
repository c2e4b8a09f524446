// FECs onto shared hardware adjacencies. A FEC's vias resolve to a next-hop
// collection; every FEC whose collection is equal uses the one L2Adjacency
// the dedup map holds for it. An adjacency is published in `l2AdjList` when
// its first FEC comes and withdrawn when its last FEC goes, so that whoever
// programs hardware follows that list alone.
#pragma once

#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL3Types.h"

#include <functional>
#include <optional>

namespace Orb {

// What the neighbour table holds for a next-hop address: its MAC and the
// layer-2 interface it was resolved on.
struct NeighborInfo {
  Nexo::EthAddr mac;
  Nexo::IntfId l2Intf;
};
using NeighborLookup = std::function<std::optional<NeighborInfo>(const VrfAndIpAddr&)>;
using Neighbor6Lookup = std::function<std::optional<NeighborInfo>(const VrfAndIp6Addr&)>;

// The collection that a FEC's vias in `vrf` resolve to: a resolved via
// gives a next hop with the neighbour's MAC, an unresolved one a next hop
// that needs ARP (or neighbour discovery). A next hop's weight is the count
// of the vias that give it, and its bitmap holds their positions (vias in
// order, from 0).
NextHopCollection buildNextHopCollection(const AdjVia& vias, VrfId vrf, const NeighborLookup& lookup);
NextHopCollection buildNextHopCollection(const AdjVia6& vias, VrfId vrf, const Neighbor6Lookup& lookup);

class L2AdjBinder {
 public:
  L2AdjBinder(Vex::Ptr<L3Status> l3Status, Vex::Ptr<OrbInternalL3Status> internal);

  // Makes `nextHops` the FEC's adjacency, from table `tableType`: the
  // existing adjacency of an equal collection, or a new one. The FEC's
  // previous adjacency is left after the new one is published.
  Vex::Ptr<L2Adjacency> fecNextHopsIs(Pond::Fib::GlobalFecId fecId, const NextHopCollection& nextHops,
                                      TableType tableType);
  // The FEC no longer uses an adjacency.
  void fecDel(Pond::Fib::GlobalFecId fecId);

 private:
  void release(const Vex::Ptr<L2Adjacency>& adj, Pond::Fib::GlobalFecId fecId);

  Vex::Ptr<L3Status> l3Status_;
  Vex::Ptr<OrbInternalL3Status> internal_;
};

}  // namespace Orb
