// Layer-2 value types: VLAN ids, filtering database ids, MAC table keys and
// MAC entry kinds.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <string>

namespace Bridging {

// A VLAN id, 1 to 4094. The default-constructed id is 0, "no VLAN": the
// empty value of maps keyed or valued by VLAN; it is never a valid VLAN.
// Only default construction makes it (explicit 0 throws), and it prints as
// 0 and parses back so that values holding it round-trip.
class VlanId {
 public:
  VlanId() = default;
  // Throws Vex::RangeError for 0 or anything above 4094.
  explicit VlanId(std::uint32_t value);
  std::uint16_t value() const { return value_; }
  bool valid() const { return value_ != 0; }
  auto operator<=>(const VlanId&) const = default;

  std::uint32_t vexRep() const { return value_; }
  static VlanId fromVexRep(std::uint32_t value) { return value == 0 ? VlanId() : VlanId(value); }

 private:
  std::uint16_t value_ = 0;
};
VEX_SCALAR_VALUE(VlanId, "Bridging::VlanId", "value")
inline std::size_t hash_value(VlanId v) { return boost::hash<std::uint16_t>()(v.value()); }

// A VLAN id or none (0).
class VlanIdOrNone {
 public:
  VlanIdOrNone() = default;
  // Throws Vex::RangeError above 4094.
  explicit VlanIdOrNone(std::uint32_t value);
  VlanIdOrNone(VlanId vlanId) : value_(vlanId.value()) {}
  std::uint16_t value() const { return value_; }
  bool isNone() const { return value_ == 0; }
  auto operator<=>(const VlanIdOrNone&) const = default;

  std::uint32_t vexRep() const { return value_; }
  static VlanIdOrNone fromVexRep(std::uint32_t value) { return VlanIdOrNone(value); }

 private:
  std::uint16_t value_ = 0;
};
VEX_SCALAR_VALUE(VlanIdOrNone, "Bridging::VlanIdOrNone", "value")
inline std::size_t hash_value(VlanIdOrNone v) { return boost::hash<std::uint16_t>()(v.value()); }

// A filtering database id: the MAC table a VLAN learns into.
class Fid {
 public:
  Fid() = default;
  explicit Fid(std::uint16_t value) : value_(value) {}
  std::uint16_t value() const { return value_; }
  auto operator<=>(const Fid&) const = default;

  std::uint32_t vexRep() const { return value_; }
  static Fid fromVexRep(std::uint32_t value);

 private:
  std::uint16_t value_ = 0;
};
VEX_SCALAR_VALUE(Fid, "Bridging::Fid", "value")
inline std::size_t hash_value(Fid f) { return boost::hash<std::uint16_t>()(f.value()); }

// The key of every MAC table.
struct MacVlanPair {
  Nexo::EthAddr addr;
  VlanId vlanId;
  // "00:11:22:33:44:55 vlan 10", as traces and errors name a MAC entry.
  std::string stringValue() const;
  auto operator<=>(const MacVlanPair&) const = default;
};
VEX_VALUE(MacVlanPair, "Bridging::MacVlanPair", (addr, vlanId))

// Where a MAC entry comes from.
enum class EntryType : std::uint8_t {
  entryDynamic = 0,
  entryConfiguredDynamic = 2,
  entryStatic = 4,
  entryPeerDynamic = 5,
  entryPeerStatic = 6,
  entryLearnedRemote = 8,
  entryStaticRemote = 9,
  entryReceivedRemote = 10,
  entryPeerDynamicRemote = 11,
  entryPeerStaticRemote = 12,
  entryPeerReceivedRemote = 13,
  entryEvpnDynamicRemote = 14,
  entryEvpnStaticRemote = 15,
  entryPeerEvpnRemote = 16,
  entryAuthenticated = 21,
  entryPeerAuthenticated = 22,
};
BOOST_DESCRIBE_ENUM(EntryType, entryDynamic, entryConfiguredDynamic, entryStatic, entryPeerDynamic, entryPeerStatic,
                    entryLearnedRemote, entryStaticRemote, entryReceivedRemote, entryPeerDynamicRemote,
                    entryPeerStaticRemote, entryPeerReceivedRemote, entryEvpnDynamicRemote, entryEvpnStaticRemote,
                    entryPeerEvpnRemote, entryAuthenticated, entryPeerAuthenticated)

// The word an entry type prints as in log events ("dynamic", "static",
// "peer static remote"...); nullptr for a value outside the table.
const char* entryTypeWord(EntryType type);
// The entry type a word names; false when it names none.
bool entryTypeFromWord(std::string_view word, EntryType& type);

}  // namespace Bridging
