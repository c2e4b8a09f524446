// Port mirroring as the configuration agent publishes it (sessions with
// their sources and destinations), the hardware capability the chip layer
// publishes, the status the forwarding layer writes back per session, and
// the resolved GRE tunnels that GRE destinations wait for.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Mirroring {

enum class Direction : std::uint8_t { directionRx = 0, directionTx = 1, directionBoth = 2 };
BOOST_DESCRIBE_ENUM(Direction, directionRx, directionTx, directionBoth)
// "rx", "tx", "both".
const char* directionName(Direction direction);
inline bool mirrorsRx(Direction direction) { return direction != Direction::directionTx; }
inline bool mirrorsTx(Direction direction) { return direction != Direction::directionRx; }

// What a GRE destination carries of each copy: the whole frame, or the
// frame without its Ethernet header (for collectors that want IP alone).
enum class GrePayloadType : std::uint8_t { grePayloadFullPacket = 0, grePayloadInnerPacket = 1 };
BOOST_DESCRIBE_ENUM(GrePayloadType, grePayloadFullPacket, grePayloadInnerPacket)
// "full-packet", "inner-packet".
const char* grePayloadTypeName(GrePayloadType type);

// One source of a session: which traffic of the interface is copied, and
// the ACL (empty: none) that limits it.
struct SourceConfig {
  Direction direction = Direction::directionBoth;
  std::string aclName;
  std::uint32_t aclPriority = 0;
  auto operator<=>(const SourceConfig&) const = default;
};
VEX_VALUE(SourceConfig, "Mirroring::SourceConfig", (direction, aclName, aclPriority))

// One configured session: its sources and destinations. An internal
// session serves another feature (`owner`).
class Session : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Session> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(SrcIntf, Nexo::IntfId)
    VEX_KEY_HANDLER(TargetIntf, Nexo::IntfId)
    VEX_HANDLER(IsInternal)
    VEX_HANDLER(Owner)
    VEX_HANDLER(TruncationSize)
    VEX_HANDLER(HeaderRemovalSize)
    VEX_HANDLER(RxSampleRate)
    VEX_HANDLER(RateLimit)
    VEX_HANDLER(GrePayloadType)
  };
  using Entity::Entity;
  const std::string& sessionName() const { return name(); }
  VEX_ORDERED_COLLECTION(Nexo::IntfId, SourceConfig, srcIntf, SrcIntf)
  VEX_ORDERED_COLLECTION(Nexo::IntfId, bool, targetIntf, TargetIntf)
  VEX_ATTR(bool, isInternal, IsInternal, false)
  VEX_ATTR(std::string, owner, Owner)
  // Per-session attributes, 0 meaning off: copies cut to this many bytes;
  // this many bytes taken off the front of each copy; one received frame
  // in this many copied; copies limited to this many bits per second.
  VEX_ATTR(std::uint32_t, truncationSize, TruncationSize, 0)
  VEX_ATTR(std::uint32_t, headerRemovalSize, HeaderRemovalSize, 0)
  VEX_ATTR(std::uint32_t, rxSampleRate, RxSampleRate, 0)
  VEX_ATTR(std::uint64_t, rateLimit, RateLimit, 0)
  // Taken into account by GRE destinations only.
  VEX_ATTR(GrePayloadType, grePayloadType, GrePayloadType, GrePayloadType::grePayloadFullPacket)
};

class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Session, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<Session>, session, Session)
  VEX_OWNED_MEMBERS(std::string, Session, session)
};

// What the chip can do; 0 sessions means no mirroring at all.
class HwCapability : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HwCapability> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(MaxSupportedSessions)
    VEX_HANDLER(CutThroughMode)
  };
  using Entity::Entity;
  VEX_ATTR(std::uint32_t, maxSupportedSessions, MaxSupportedSessions, 0)
  // In cut-through mode a session may not copy ingress and egress traffic
  // to one destination.
  VEX_ATTR(bool, cutThroughMode, CutThroughMode, false)
};

// One session's outcome: its hardware mirror group (-1: none), whether the
// chip holds it, and the state of each source and destination ("active",
// "overflowed", "failed", "no acl", "lag member", "overlapping", ...).
struct SessionStatus {
  std::int32_t mirrorGroup = -1;
  bool createdInHw = false;
  bool valid = false;
  std::string reason;
  std::map<Nexo::IntfId, std::string> sources;
  std::map<Nexo::IntfId, std::string> targets;
  // The session attributes the chip refused ("truncation", ...).
  std::vector<std::string> attributesRefused;
  auto operator<=>(const SessionStatus&) const = default;
};
VEX_VALUE(SessionStatus, "Mirroring::SessionStatus",
          (mirrorGroup, createdInHw, valid, reason, sources, targets, attributesRefused))

class HwStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HwStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(SessionStatus, std::string)
    VEX_HANDLER(SourcesOverflowed)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, SessionStatus, sessionStatus, SessionStatus)
  // Sources that could not be programmed for want of source slots.
  VEX_ATTR(std::uint32_t, sourcesOverflowed, SourcesOverflowed, 0)
};

// One next hop of a GRE tunnel: the routed interface and the layer-2
// interface (a port or a LAG) it leaves by.
struct GreNextHop {
  Nexo::IntfId l3Intf;
  Nexo::IntfId l2Intf;
  auto operator<=>(const GreNextHop&) const = default;
};
VEX_VALUE(GreNextHop, "Mirroring::GreNextHop", (l3Intf, l2Intf))

// A resolved GRE tunnel: its hardware id (0: unresolved) and next hops.
struct GreTunnelStatus {
  std::uint32_t tunnelId = 0;
  std::vector<GreNextHop> nextHops;
  bool resolved() const { return tunnelId != 0 && !nextHops.empty(); }
  auto operator<=>(const GreTunnelStatus&) const = default;
};
VEX_VALUE(GreTunnelStatus, "Mirroring::GreTunnelStatus", (tunnelId, nextHops))

class GreTunnelStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<GreTunnelStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Tunnel, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(Nexo::IntfId, GreTunnelStatus, tunnel, Tunnel)
};

}  // namespace Mirroring
