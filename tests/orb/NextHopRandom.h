// Seeded random next hops and collections for the property tests of the
// layer-3 value types.
#pragma once

#include "Orb/OrbAdjTypes.h"

#include <fmt/format.h>

#include <random>

namespace NextHopRandom {

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : rng_(seed) {}

  std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(rng_() % n); }

  // Next hops from a small space, so that collections often share some.
  Orb::NextHop nextHop() {
    static constexpr Orb::NextHopEntryType types[] = {
        Orb::NextHopEntryType::nextHopArpResolved, Orb::NextHopEntryType::nextHopArpRequired,
        Orb::NextHopEntryType::nextHopDrop, Orb::NextHopEntryType::nextHopTunnel};
    Orb::NextHop nh(types[below(4)], Nexo::EthAddr(0x020000000000ULL + below(6)),
                    Nexo::IntfId(fmt::format("Ethernet{}", 1 + below(4))),
                    Nexo::IntfId(fmt::format("Vlan{}", 1 + below(3))));
    if (below(5) == 0) nh.labelsIs({Nexo::MplsOperation::mplsPush, {16 + below(3)}});
    if (below(8) == 0) {
      nh.greEncapIs({Nexo::IpGenAddr(Nexo::IpAddr(0x0a000001)), Nexo::IpGenAddr(Nexo::IpAddr(0x0a000002 + below(2))),
                     below(3), 64, 0});
    }
    if (below(8) == 0) {
      nh.hierarchicalNextLevelL2AdjIs(
          Vex::make<Orb::L2Adjacency>(Orb::L2AdjKey{Orb::L2AdjType::routingAdj, 1 + below(3)}));
    }
    return nh;
  }

  OrbTypes::ViaBitmap bitmap() {
    OrbTypes::ViaBitmap bitmap;
    for (std::uint32_t n = below(3); n > 0; --n) bitmap.bitSet(OrbTypes::ViaBitmapRange(below(2048)));
    return bitmap;
  }

  Orb::NextHopCollection collection() {
    Orb::NextHopCollection c(below(4) == 0 ? Orb::L2AdjType::flowAdj : Orb::L2AdjType::nexthopAdj);
    for (std::uint32_t n = below(5); n > 0; --n) {
      Orb::NextHop nh = nextHop();
      c.nextHopIs(nh, 1 + below(3));
      if (below(2)) c.nextHopBitmapIs(nh, bitmap());
    }
    if (below(4) == 0) c.attachedIs(true);
    if (below(4) == 0) c.potentialHierarchicalNextHopIs(true);
    if (below(4) == 0) c.tunnelTypeIs(Orb::NextHopTunnelType::mpls);
    if (below(4) == 0) c.hierarchyHeightIs(static_cast<std::uint8_t>(below(3)));
    if (below(4) == 0) {
      std::uint32_t size = 1 + below(3);
      c.nextHopGroupSizeIs(size);
      c.nextHopGroupEntryL2InfoIs(below(size), nextHop());
      if (below(2)) c.nextHopGroupEntryResolutionIs(below(size), {Nexo::IpGenAddr(Nexo::IpAddr(7)), {}, true});
      if (below(2)) c.nhgEntryKeyToPositionIs({1, below(3)}, {below(size)});
      if (below(2)) c.ttlIs(1 + below(2));
      if (below(2)) c.greKeyTypeIs(Nexo::GreKeyType::greKeyIngressIntf);
      if (below(2)) c.nextHopGroupUnorderedIs(true);
      if (below(2)) c.nexthopGroupEntryCounterTypeIs(Routing::NexthopGroup::EntryCounterType::entryCounterShared);
    }
    return c;
  }

 private:
  std::mt19937 rng_;
};

}  // namespace NextHopRandom
