// The MLAG agent's status, with what the forwarding layer reads.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <cstdint>

namespace Mlag {

// Link state words of an MLAG interface: 0 unknown, 1 up, 2 down.
inline constexpr std::uint8_t linkUnknown = 0;
inline constexpr std::uint8_t linkUp = 1;
inline constexpr std::uint8_t linkDown = 2;

// The state of one MLAG interface (a LAG) on both peers:
// - localLinkStatus: the local LAG's link;
// - localProtocolStatus: the local LAG's LACP protocol state;
// - peerLinkStatus: the same LAG's link on the MLAG peer.
// A LAG with no local members borrows the peer link's members exactly while
// it is down locally (link and protocol) and up on the peer: 2, 2 and 1.
struct IntfStatus {
  std::uint8_t localLinkStatus = linkUnknown;
  std::uint8_t localProtocolStatus = linkUnknown;
  std::uint8_t peerLinkStatus = linkUnknown;
  auto operator<=>(const IntfStatus&) const = default;
};
VEX_VALUE(IntfStatus, "Mlag::IntfStatus", (localLinkStatus, localProtocolStatus, peerLinkStatus))

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(MlagStateValid)
    VEX_HANDLER(PeerLinkIntf)
    VEX_HANDLER(FastMacRedirection)
    VEX_KEY_HANDLER(IntfStatus, Nexo::IntfId)
  };
  using Entity::Entity;

  VEX_ATTR(bool, mlagStateValid, MlagStateValid, false)
  VEX_ATTR(Nexo::IntfId, peerLinkIntf, PeerLinkIntf)
  VEX_ATTR(bool, fastMacRedirection, FastMacRedirection, false)
  VEX_COLLECTION(Nexo::IntfId, IntfStatus, intfStatus, IntfStatus)
};

}  // namespace Mlag
