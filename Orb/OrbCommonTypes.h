// Value types held in the shared state-machine context.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace Orb {

// What the forwarding hardware is doing as a whole. The chip layer writes it:
// unknown until it reports, normal switching, the two start-up modes in
// which state machines keep what the hardware already holds, and tap
// aggregation (tap/tool ports, no spanning tree).
enum class HwOperationalMode : std::uint8_t {
  hwModeUnknown,
  hwModeNormal,
  hwModeHitlessRestart,
  hwModeFastBoot,
  hwModeTapAgg,
};
BOOST_DESCRIBE_ENUM(HwOperationalMode, hwModeUnknown, hwModeNormal, hwModeHitlessRestart, hwModeFastBoot, hwModeTapAgg)

// A set of interfaces.
struct OrbPortList {
  std::set<Nexo::IntfId> ports;

  void portIs(const Nexo::IntfId& id, bool member) {
    if (member) {
      ports.insert(id);
    } else {
      ports.erase(id);
    }
  }
  void portDel(const Nexo::IntfId& id) { ports.erase(id); }
  bool port(const Nexo::IntfId& id) const { return ports.count(id) != 0; }
  explicit operator bool() const { return !ports.empty(); }
  auto operator<=>(const OrbPortList&) const = default;
};
VEX_VALUE(OrbPortList, "Orb::OrbPortList", (ports))

// The LACP state of one LAG member.
struct OrbLagPort {
  bool collecting = false;
  bool distributing = false;
  auto operator<=>(const OrbLagPort&) const = default;
};
VEX_VALUE(OrbLagPort, "Orb::OrbLagPort", (collecting, distributing))

// The active members of a LAG with their LACP state.
struct OrbLagPortList {
  std::map<Nexo::IntfId, OrbLagPort> ports;

  void portIs(const Nexo::IntfId& id, const OrbLagPort& port) { ports[id] = port; }
  void portDel(const Nexo::IntfId& id) { ports.erase(id); }
  explicit operator bool() const { return !ports.empty(); }
  auto operator<=>(const OrbLagPortList&) const = default;
};
VEX_VALUE(OrbLagPortList, "Orb::OrbLagPortList", (ports))

struct OrbPortVlanTpidData {
  std::uint16_t hwVlanTpid = 0;
  std::uint16_t vlanTpid = 0;
  bool dot1QTunnel = false;
  auto operator<=>(const OrbPortVlanTpidData&) const = default;
};
VEX_VALUE(OrbPortVlanTpidData, "Orb::OrbPortVlanTpidData", (hwVlanTpid, vlanTpid, dot1QTunnel))

// The trace level each layer-3 state machine writes at.
struct BlipLevels {
  std::uint32_t orbVrfRootSm = 1;
  std::uint32_t orbRoutingStatusSm = 1;
  std::uint32_t orbL3FeatureConfigSm = 1;
  std::uint32_t orbArpSm = 2;
  std::uint32_t orbIp6NeighborSm = 2;
  std::uint32_t orbResilientEcmpSm = 3;
  std::uint32_t orbIp6ResilientEcmpSm = 4;
  std::uint32_t orbAdjDependencySm = 5;
  std::uint32_t orbSubIntfSm = 8;
  std::uint32_t orbIntfStatusSm = 6;
  std::uint32_t orbL2AdjHelper = 6;
  std::uint32_t orbPwSm = 6;
  std::uint32_t orbL3AdjStatusSm = 4;
  auto operator<=>(const BlipLevels&) const = default;
};
VEX_VALUE(BlipLevels, "Orb::BlipLevels",
          (orbVrfRootSm, orbRoutingStatusSm, orbL3FeatureConfigSm, orbArpSm, orbIp6NeighborSm, orbResilientEcmpSm,
           orbIp6ResilientEcmpSm, orbAdjDependencySm, orbSubIntfSm, orbIntfStatusSm, orbL2AdjHelper, orbPwSm,
           orbL3AdjStatusSm))

// Features that need a recirculation LAG, as a set of flags.
enum class RecircFeature : std::uint8_t { recircNone, recircVxlan, recircMirroring, recircMpls, recircTapAgg };
BOOST_DESCRIBE_ENUM(RecircFeature, recircNone, recircVxlan, recircMirroring, recircMpls, recircTapAgg)

struct RecircFeatureSet {
  std::set<RecircFeature> features;
  auto operator<=>(const RecircFeatureSet&) const = default;
};
VEX_VALUE(RecircFeatureSet, "Orb::RecircFeatureSet", (features))

// Head index, next free index and length of the free mirror-session queue.
struct FreeMirrorSessionMetadata {
  std::uint32_t head = 0;
  std::uint32_t next = 0;
  std::uint32_t count = 0;
  auto operator<=>(const FreeMirrorSessionMetadata&) const = default;
};
VEX_VALUE(FreeMirrorSessionMetadata, "Orb::FreeMirrorSessionMetadata", (head, next, count))

// A memory parity error a chip table reported, to be repaired by the state
// machine that owns the table.
struct ParityEvent {
  struct Key {
    std::string table;
    std::uint32_t index = 0;
    auto operator<=>(const Key&) const = default;
  };
  Key key;
  std::uint32_t count = 0;
  double timestamp = 0.0;
  bool corrected = false;
  auto operator<=>(const ParityEvent&) const = default;
};
VEX_VALUE(ParityEvent::Key, "Orb::ParityEvent::Key", (table, index))
VEX_VALUE(ParityEvent, "Orb::ParityEvent", (key, count, timestamp, corrected))

// The layer's own VRF number (the ARP/neighbour agents number VRFs
// differently); 0 is the default VRF.
class VrfId {
 public:
  constexpr VrfId() = default;
  constexpr explicit VrfId(std::uint32_t value) : value_(value) {}
  constexpr std::uint32_t value() const { return value_; }
  auto operator<=>(const VrfId&) const = default;

  std::uint32_t vexRep() const { return value_; }
  static VrfId fromVexRep(std::uint32_t value) { return VrfId(value); }

 private:
  std::uint32_t value_ = 0;
};
VEX_SCALAR_VALUE(VrfId, "Orb::VrfId", "value")
inline std::size_t hash_value(const VrfId& id) { return boost::hash<std::uint32_t>()(id.value()); }

// Layer-3 keys qualified by VRF. The address forms of a prefix key take its
// VRF and the prefix's address.
struct VrfAndPrefix {
  VrfId vrfId;
  Nexo::Prefix prefix;
  auto operator<=>(const VrfAndPrefix&) const = default;
};
VEX_VALUE(VrfAndPrefix, "Orb::VrfAndPrefix", (vrfId, prefix))

struct VrfAndIp6Prefix {
  VrfId vrfId;
  Nexo::Ip6Prefix prefix;
  auto operator<=>(const VrfAndIp6Prefix&) const = default;
};
VEX_VALUE(VrfAndIp6Prefix, "Orb::VrfAndIp6Prefix", (vrfId, prefix))

struct VrfAndIpAddr {
  VrfId vrfId;
  Nexo::IpAddr addr;
  VrfAndIpAddr() = default;
  VrfAndIpAddr(VrfId v, Nexo::IpAddr a) : vrfId(v), addr(a) {}
  explicit VrfAndIpAddr(const VrfAndPrefix& vp) : vrfId(vp.vrfId), addr(vp.prefix.addr()) {}
  auto operator<=>(const VrfAndIpAddr&) const = default;
};
VEX_VALUE(VrfAndIpAddr, "Orb::VrfAndIpAddr", (vrfId, addr))

struct VrfAndIp6Addr {
  VrfId vrfId;
  Nexo::Ip6Addr addr;
  VrfAndIp6Addr() = default;
  VrfAndIp6Addr(VrfId v, Nexo::Ip6Addr a) : vrfId(v), addr(a) {}
  explicit VrfAndIp6Addr(const VrfAndIp6Prefix& vp) : vrfId(vp.vrfId), addr(vp.prefix.addr()) {}
  auto operator<=>(const VrfAndIp6Addr&) const = default;
};
VEX_VALUE(VrfAndIp6Addr, "Orb::VrfAndIp6Addr", (vrfId, addr))

// Address-family-generic forms: exactly one of the two prefixes or
// addresses is meaningful, as `isV6` says.
struct VrfAndIpGenPrefix {
  VrfId vrfId;
  bool isV6 = false;
  Nexo::Prefix prefix;
  Nexo::Ip6Prefix prefix6;
  VrfAndIpGenPrefix() = default;
  VrfAndIpGenPrefix(const VrfAndPrefix& vp) : vrfId(vp.vrfId), prefix(vp.prefix) {}
  VrfAndIpGenPrefix(const VrfAndIp6Prefix& vp) : vrfId(vp.vrfId), isV6(true), prefix6(vp.prefix) {}
  auto operator<=>(const VrfAndIpGenPrefix&) const = default;
};
VEX_VALUE(VrfAndIpGenPrefix, "Orb::VrfAndIpGenPrefix", (vrfId, isV6, prefix, prefix6))

struct VrfAndIpGenAddr {
  VrfId vrfId;
  Nexo::IpGenAddr addr;
  VrfAndIpGenAddr() = default;
  VrfAndIpGenAddr(VrfId v, Nexo::IpGenAddr a) : vrfId(v), addr(a) {}
  VrfAndIpGenAddr(const VrfAndIpAddr& va) : vrfId(va.vrfId), addr(va.addr) {}
  VrfAndIpGenAddr(const VrfAndIp6Addr& va) : vrfId(va.vrfId), addr(va.addr) {}
  auto operator<=>(const VrfAndIpGenAddr&) const = default;
};
VEX_VALUE(VrfAndIpGenAddr, "Orb::VrfAndIpGenAddr", (vrfId, addr))

}  // namespace Orb

namespace OrbTypes {

// How a LAG is formed.
enum class OrbLagType : std::uint8_t { lagTypeUnknown, lagTypeStatic, lagTypeLacp, lagTypeRecirculation, lagTypeMlag };
BOOST_DESCRIBE_ENUM(OrbLagType, lagTypeUnknown, lagTypeStatic, lagTypeLacp, lagTypeRecirculation, lagTypeMlag)

}  // namespace OrbTypes
