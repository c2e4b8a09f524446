#include "Orb/OrbL2AdjBinder.h"

#include <map>

namespace Orb {

namespace {

template <class Vias, class VrfAndAddr, class Lookup>
NextHopCollection buildCollection(const Vias& vias, VrfId vrf, const Lookup& lookup) {
  // Ordered by next hop, so that equal vias give equal collections.
  std::map<NextHop, std::pair<std::uint32_t, ViaBitmap>> nextHops;
  std::uint32_t position = 0;
  for (const auto& [via, count] : vias.via()) {
    auto neighbor = lookup(VrfAndAddr(vrf, via.nextHop));
    NextHop nh = neighbor ? NextHop(NextHopEntryType::nextHopArpResolved, neighbor->mac, neighbor->l2Intf, via.l3Intf)
                          : NextHop(NextHopEntryType::nextHopArpRequired, Nexo::EthAddr(), via.l3Intf, via.l3Intf);
    auto& [weight, bitmap] = nextHops[nh];
    weight += count;
    if (position <= OrbTypes::ViaBitmapRange::max) bitmap.bitSet(OrbTypes::ViaBitmapRange(position));
    ++position;
  }
  NextHopCollection collection(L2AdjType::nexthopAdj);
  collection.nextHopReserve(nextHops.size());
  for (const auto& [nh, entry] : nextHops) {
    collection.nextHopIs(nh, entry.first);
    collection.nextHopBitmapIs(nh, entry.second);
  }
  collection.updateCaches();
  return collection;
}

}  // namespace

NextHopCollection buildNextHopCollection(const AdjVia& vias, VrfId vrf, const NeighborLookup& lookup) {
  return buildCollection<AdjVia, VrfAndIpAddr>(vias, vrf, lookup);
}

NextHopCollection buildNextHopCollection(const AdjVia6& vias, VrfId vrf, const Neighbor6Lookup& lookup) {
  return buildCollection<AdjVia6, VrfAndIp6Addr>(vias, vrf, lookup);
}

L2AdjBinder::L2AdjBinder(Vex::Ptr<L3Status> l3Status, Vex::Ptr<OrbInternalL3Status> internal)
    : l3Status_(std::move(l3Status)), internal_(std::move(internal)) {}

Vex::Ptr<L2Adjacency> L2AdjBinder::fecNextHopsIs(Pond::Fib::GlobalFecId fecId, const NextHopCollection& nextHops,
                                                 TableType tableType) {
  auto entry = l3Status_->adjEntryListIs(fecId);
  Vex::Ptr<L2Adjacency> old = entry->l2Adj();
  Vex::Ptr<L2Adjacency> adj(&internal_->nextHopsToL2AdjFindOrInsert(nextHops, [&] {
    L2AdjKey key{nextHops.l2AdjType(), internal_->nextL2AdjIndex()};
    internal_->nextL2AdjIndexIs(key.index + 1);
    auto made = Vex::make<L2Adjacency>(key);
    made->nextHopsIs(nextHops);
    return made;
  }));
  if (!l3Status_->l2AdjListHas(adj->key())) l3Status_->l2AdjListIs(adj->key(), adj);
  if (adj->adjEntryIs(fecId)) internal_->l2AdjRefCountInc(adj->key());
  adj->setTableTypeForAdj(fecId, tableType);
  entry->tableTypeIs(tableType);
  entry->l2AdjIs(adj);
  if (old && old != adj) release(old, fecId);
  return adj;
}

void L2AdjBinder::fecDel(Pond::Fib::GlobalFecId fecId) {
  auto entry = l3Status_->adjEntryList(fecId);
  if (!entry) return;
  if (auto adj = entry->l2Adj()) release(adj, fecId);
  l3Status_->adjEntryListDel(fecId);
}

void L2AdjBinder::release(const Vex::Ptr<L2Adjacency>& adj, Pond::Fib::GlobalFecId fecId) {
  TableTypeBoolSet tables = adj->adjEntryAndTableType(fecId);
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<TableType>>([&](auto e) {
    if (tables.has(e.value)) adj->unsetTableTypeForAdj(fecId, e.value);
  });
  adj->adjEntryAndTableTypeDel(fecId);
  adj->adjEntryDel(fecId);
  internal_->l2AdjRefCountDec(adj->key());
  if (adj->adjEntrySize() != 0) return;
  // The last user went: the collection no longer maps here and the
  // adjacency is withdrawn.
  internal_->nextHopsToL2AdjDel(adj->nextHops());
  l3Status_->l2AdjListDel(adj->key());
  adj->stateIs(L2AdjState::deleted);
}

}  // namespace Orb
