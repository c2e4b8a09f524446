// Network value types: interface ids, MAC and IP addresses, prefixes.
#pragma once

#include "platform/vex/Value.h"

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Nexo {

// An interface: physical port, LAG, VLAN interface, CPU, sub-interface...
// Held in 64 bits (kind and up to three numbers, plus a sub-interface number)
// so that it is a cheap map key hashed as one integer; parsed from and
// printed as its name: Ethernet1, Ethernet1/2, Ethernet1/2/3, Port-Channel10,
// Vlan100, Cpu, Loopback0, Management1, Recirc-Channel1, Vxlan1, Tunnel1,
// PeerEthernet1 (a port of the MLAG peer switch), and
// the sub-interfaces Ethernet1.100 and Port-Channel10.5. The default is the
// empty id (printed '').
//
// Names are exact: the kind is case-sensitive and unabbreviated, numbers are
// decimal without sign or leading zeros (the first 0 to 65534, the others 0
// to 4094), only Ethernet, PeerEthernet and Management take slashes, only Ethernet and
// Port-Channel take sub-interfaces, numbered 1 to 65534 ("Ethernet1.0" is
// refused), Vlan takes 1 to 4094 and Cpu no number. Anything else throws
// Vex::ParseError.
//
// Ids order by kind (Ethernet, Port-Channel, Vlan, Cpu, ...), then by their
// numbers as numbers (Ethernet2 < Ethernet10), a sub-interface right after
// its parent (Ethernet2 < Ethernet2.5 < Ethernet2/1).
class IntfId {
 public:
  enum class Kind : std::uint8_t {
    empty,
    ethernet,
    portChannel,
    vlan,
    cpu,
    loopback,
    management,
    recircChannel,
    vxlan,
    tunnel,
    peerEthernet,
  };

  IntfId() = default;
  // Throws Vex::ParseError on a name that is not an interface.
  explicit IntfId(std::string_view name);
  IntfId(const char* name) : IntfId(std::string_view(name)) {}
  IntfId(const std::string& name) : IntfId(std::string_view(name)) {}

  std::string stringValue() const;
  Kind kind() const { return static_cast<Kind>(bits_ >> 56); }
  bool empty() const { return bits_ == 0; }
  // Kind predicates; isEthernet and isLag hold for their sub-interfaces too.
  bool isEthernet() const { return kind() == Kind::ethernet; }
  bool isLag() const { return kind() == Kind::portChannel; }
  bool isVlan() const { return kind() == Kind::vlan; }
  bool isCpu() const { return kind() == Kind::cpu; }
  // A port of the MLAG peer switch, as an MLAG LAG's status may list it.
  bool isPeerEthernet() const { return kind() == Kind::peerEthernet; }
  bool isSubIntf() const { return subIntfNumber() != 0; }
  // An Ethernet or Port-Channel that may carry sub-interfaces.
  bool isSubIntfParent() const { return (isEthernet() || isLag()) && !isSubIntf(); }
  // The sub-interface number, 0 when this is not a sub-interface.
  std::uint32_t subIntfNumber() const { return static_cast<std::uint32_t>(bits_ & 0xffff); }
  // The parent of a sub-interface; the id itself otherwise.
  IntfId parentIntfId() const;
  // The first number of the name (port, LAG or VLAN number); 0 when none.
  std::uint32_t number() const;

  std::uint64_t bits() const { return bits_; }
  auto operator<=>(const IntfId&) const = default;

  std::string vexRep() const { return stringValue(); }
  static IntfId fromVexRep(const std::string& name) { return IntfId(name); }

 private:
  std::uint64_t bits_ = 0;
};
VEX_SCALAR_VALUE(IntfId, "Nexo::IntfId", "name")

inline std::size_t hash_value(const IntfId& id) { return boost::hash<std::uint64_t>()(id.bits()); }

// Sub-interface helpers, for callers that only hold an IntfId.
struct SubIntfId {
  static bool isSubIntfId(const IntfId& id) { return id.isSubIntf(); }
};

// A 48-bit MAC address. Parses "aa:bb:cc:dd:ee:ff" and "aabb.ccdd.eeff";
// prints the colon form in lower case.
class EthAddr {
 public:
  EthAddr() = default;
  explicit EthAddr(std::uint64_t value) : value_(value & 0xffffffffffffULL) {}
  explicit EthAddr(std::string_view text);

  std::uint64_t value() const { return value_; }
  std::string stringValue() const;
  bool isZero() const { return value_ == 0; }
  bool isMulticast() const { return (value_ >> 40) & 1; }
  bool isBroadcast() const { return value_ == 0xffffffffffffULL; }
  auto operator<=>(const EthAddr&) const = default;

  std::string vexRep() const { return stringValue(); }
  static EthAddr fromVexRep(const std::string& text) { return EthAddr(text); }

 private:
  std::uint64_t value_ = 0;
};
VEX_SCALAR_VALUE(EthAddr, "Nexo::EthAddr", "addr")
inline std::size_t hash_value(const EthAddr& a) { return boost::hash<std::uint64_t>()(a.value()); }

struct EthAddrWithMask {
  EthAddr addr;
  EthAddr mask;
  auto operator<=>(const EthAddrWithMask&) const = default;
};
VEX_VALUE(EthAddrWithMask, "Nexo::EthAddrWithMask", (addr, mask))

// An IPv4 address, dotted quad.
class IpAddr {
 public:
  IpAddr() = default;
  explicit IpAddr(std::uint32_t value) : value_(value) {}
  explicit IpAddr(std::string_view text);
  std::uint32_t value() const { return value_; }
  std::string stringValue() const;
  auto operator<=>(const IpAddr&) const = default;

  std::string vexRep() const { return stringValue(); }
  static IpAddr fromVexRep(const std::string& text) { return IpAddr(text); }

 private:
  std::uint32_t value_ = 0;
};
VEX_SCALAR_VALUE(IpAddr, "Nexo::IpAddr", "addr")
inline std::size_t hash_value(const IpAddr& a) { return boost::hash<std::uint32_t>()(a.value()); }

// An IPv6 address. Parses the full, "::" and dotted-tail forms; prints the
// RFC 5952 form ("2001:db8::1", "::ffff:10.0.0.1" for IPv4-mapped).
class Ip6Addr {
 public:
  Ip6Addr() = default;
  explicit Ip6Addr(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}
  explicit Ip6Addr(std::string_view text);
  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
  std::string stringValue() const;
  auto operator<=>(const Ip6Addr&) const = default;

  std::string vexRep() const { return stringValue(); }
  static Ip6Addr fromVexRep(const std::string& text) { return Ip6Addr(text); }

 private:
  std::array<std::uint8_t, 16> bytes_{};
};
VEX_SCALAR_VALUE(Ip6Addr, "Nexo::Ip6Addr", "addr")
inline std::size_t hash_value(const Ip6Addr& a) { return boost::hash_range(a.bytes().begin(), a.bytes().end()); }

// An address of either family. IPv4 orders before IPv6.
class IpGenAddr {
 public:
  IpGenAddr() = default;
  IpGenAddr(const IpAddr& v4) : v6_(false), v4addr_(v4) {}
  IpGenAddr(const Ip6Addr& v6) : v6_(true), v6addr_(v6) {}
  explicit IpGenAddr(std::string_view text);
  bool isV6() const { return v6_; }
  const IpAddr& v4Addr() const { return v4addr_; }
  const Ip6Addr& v6Addr() const { return v6addr_; }
  std::string stringValue() const { return v6_ ? v6addr_.stringValue() : v4addr_.stringValue(); }
  auto operator<=>(const IpGenAddr&) const = default;

  std::string vexRep() const { return stringValue(); }
  static IpGenAddr fromVexRep(const std::string& text) { return IpGenAddr(text); }

 private:
  bool v6_ = false;
  IpAddr v4addr_;
  Ip6Addr v6addr_;
};
VEX_SCALAR_VALUE(IpGenAddr, "Nexo::IpGenAddr", "addr")
inline std::size_t hash_value(const IpGenAddr& a) { return a.isV6() ? hash_value(a.v6Addr()) : hash_value(a.v4Addr()); }

// An IPv4 prefix "10.1.0.0/16". Host bits are cleared on construction, so
// "10.1.2.3/16" and "10.1.0.0/16" are the same prefix.
class Prefix {
 public:
  Prefix() = default;
  Prefix(const IpAddr& addr, unsigned len);
  explicit Prefix(std::string_view text);
  const IpAddr& addr() const { return addr_; }
  unsigned len() const { return len_; }
  bool contains(const IpAddr& a) const;
  std::string stringValue() const;
  auto operator<=>(const Prefix&) const = default;

  std::string vexRep() const { return stringValue(); }
  static Prefix fromVexRep(const std::string& text) { return Prefix(text); }

 private:
  IpAddr addr_;
  std::uint8_t len_ = 0;
};
VEX_SCALAR_VALUE(Prefix, "Nexo::Prefix", "prefix")
inline std::size_t hash_value(const Prefix& p) {
  std::size_t seed = hash_value(p.addr());
  boost::hash_combine(seed, p.len());
  return seed;
}

// An IPv6 prefix; host bits cleared as for Prefix.
class Ip6Prefix {
 public:
  Ip6Prefix() = default;
  Ip6Prefix(const Ip6Addr& addr, unsigned len);
  explicit Ip6Prefix(std::string_view text);
  const Ip6Addr& addr() const { return addr_; }
  unsigned len() const { return len_; }
  std::string stringValue() const;
  auto operator<=>(const Ip6Prefix&) const = default;

  std::string vexRep() const { return stringValue(); }
  static Ip6Prefix fromVexRep(const std::string& text) { return Ip6Prefix(text); }

 private:
  Ip6Addr addr_;
  std::uint8_t len_ = 0;
};
VEX_SCALAR_VALUE(Ip6Prefix, "Nexo::Ip6Prefix", "prefix")
inline std::size_t hash_value(const Ip6Prefix& p) {
  std::size_t seed = hash_value(p.addr());
  boost::hash_combine(seed, p.len());
  return seed;
}

}  // namespace Nexo
