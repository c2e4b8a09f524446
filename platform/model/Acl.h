// Access control lists as the configuration agent publishes them: per ACL
// type the configured lists (rules by sequence number) and the interfaces
// they are applied to per direction; and the status the forwarding layer
// writes back per list.
//
// A list's rules change one by one; the writer bumps the list's `version`
// once its edit is complete, and that bump is what the forwarding layer
// compiles on, so an edit of many rules is one rebuild.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <string>

namespace Acl {

enum class AclType : std::uint8_t { aclTypeIp = 0, aclTypeIpv6 = 1, aclTypeMac = 2 };
BOOST_DESCRIBE_ENUM(AclType, aclTypeIp, aclTypeIpv6, aclTypeMac)
inline constexpr AclType ip() { return AclType::aclTypeIp; }
inline constexpr AclType ipv6() { return AclType::aclTypeIpv6; }
inline constexpr AclType mac() { return AclType::aclTypeMac; }
// "ip", "ipv6", "mac"; "unknown" for any other value.
const char* aclTypeName(AclType type);

enum class AclDirection : std::uint8_t { aclIn = 0, aclOut = 1 };
BOOST_DESCRIBE_ENUM(AclDirection, aclIn, aclOut)
// "in", "out"; "unknown" for any other value.
const char* aclDirectionName(AclDirection direction);

enum class AclAction : std::uint8_t { permit = 0, deny = 1 };
BOOST_DESCRIBE_ENUM(AclAction, permit, deny)

enum class PortOp : std::uint8_t { any = 0, eq = 1, range = 2 };
BOOST_DESCRIBE_ENUM(PortOp, any, eq, range)

// A rule's match on one L4 port: any port, one port, or low..high.
struct PortMatch {
  PortOp op = PortOp::any;
  std::uint16_t low = 0;
  std::uint16_t high = 0;
  auto operator<=>(const PortMatch&) const = default;
};
VEX_VALUE(PortMatch, "Acl::PortMatch", (op, low, high))

// What an IPv4 rule matches. `protocol` 0 matches every protocol; ports
// match only for TCP (6) and UDP (17). `established` matches TCP segments
// of established connections; `fragments` matches non-first fragments,
// which carry no L4 header.
struct IpFilter {
  std::uint8_t protocol = 0;
  Nexo::Prefix source;
  Nexo::Prefix destination;
  PortMatch sourcePort;
  PortMatch destinationPort;
  bool established = false;
  bool fragments = false;
  auto operator<=>(const IpFilter&) const = default;
};
VEX_VALUE(IpFilter, "Acl::IpFilter",
          (protocol, source, destination, sourcePort, destinationPort, established, fragments))

struct Ip6Filter {
  std::uint8_t protocol = 0;
  Nexo::Ip6Prefix source;
  Nexo::Ip6Prefix destination;
  PortMatch sourcePort;
  PortMatch destinationPort;
  bool established = false;
  bool fragments = false;
  auto operator<=>(const Ip6Filter&) const = default;
};
VEX_VALUE(Ip6Filter, "Acl::Ip6Filter",
          (protocol, source, destination, sourcePort, destinationPort, established, fragments))

// What a MAC rule matches: addresses under masks (a zero mask matches
// any), the ethertype (0: any) and, for MPLS frames, the top and inner
// labels (20 bits each).
struct MacFilter {
  Nexo::EthAddr source;
  Nexo::EthAddr sourceMask;
  Nexo::EthAddr destination;
  Nexo::EthAddr destinationMask;
  std::uint16_t etherType = 0;
  bool matchMplsLabel = false;
  std::int64_t mplsLabel = 0;
  bool matchMplsInnerLabel = false;
  std::int64_t mplsInnerLabel = 0;
  auto operator<=>(const MacFilter&) const = default;
};
VEX_VALUE(MacFilter, "Acl::MacFilter",
          (source, sourceMask, destination, destinationMask, etherType, matchMplsLabel, mplsLabel, matchMplsInnerLabel,
           mplsInnerLabel))
// Throws Vex::RangeError when a label lies outside 0..0xFFFFF.
void checkMacFilter(const MacFilter& filter);

// A rule: its action and filter, and an id unique within the list that
// stays with the rule while its sequence number does.
struct IpRuleConfig {
  AclAction action = AclAction::permit;
  IpFilter filter;
  std::uint32_t uniqueId = 0;
  auto operator<=>(const IpRuleConfig&) const = default;
};
VEX_VALUE(IpRuleConfig, "Acl::IpRuleConfig", (action, filter, uniqueId))

struct Ip6RuleConfig {
  AclAction action = AclAction::permit;
  Ip6Filter filter;
  std::uint32_t uniqueId = 0;
  auto operator<=>(const Ip6RuleConfig&) const = default;
};
VEX_VALUE(Ip6RuleConfig, "Acl::Ip6RuleConfig", (action, filter, uniqueId))

struct MacRuleConfig {
  AclAction action = AclAction::permit;
  MacFilter filter;
  std::uint32_t uniqueId = 0;
  auto operator<=>(const MacRuleConfig&) const = default;
};
VEX_VALUE(MacRuleConfig, "Acl::MacRuleConfig", (action, filter, uniqueId))

// One configured list. Rules are kept by sequence number; the rules of the
// list's own type are the ones that count.
class AclConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IpRuleBySequence, std::uint32_t)
    VEX_KEY_HANDLER(Ip6RuleBySequence, std::uint32_t)
    VEX_KEY_HANDLER(MacRuleBySequence, std::uint32_t)
    VEX_HANDLER(Version)
    VEX_HANDLER(ClearCounter)
    VEX_HANDLER(CounterUpdateRequest)
  };
  AclConfig(const std::string& name, AclType type) : Entity(name), type_(type) {}
  AclType type() const { return type_; }
  const std::string& aclName() const { return name(); }
  bool standard() const { return false; }
  VEX_ORDERED_COLLECTION(std::uint32_t, IpRuleConfig, ipRuleBySequence, IpRuleBySequence)
  VEX_ORDERED_COLLECTION(std::uint32_t, Ip6RuleConfig, ip6RuleBySequence, Ip6RuleBySequence)
  VEX_ORDERED_COLLECTION(std::uint32_t, MacRuleConfig, macRuleBySequence, MacRuleBySequence)
  // Bumped once an edit of the rules is complete.
  VEX_COUNTER(std::uint32_t, version, Version)
  // Bumped to ask for the list's counters to be cleared.
  VEX_COUNTER(std::uint32_t, clearCounter, ClearCounter)
  // Bumped to ask for the list's counters to be read from the chip now
  // rather than at the next periodic poll.
  VEX_COUNTER(std::uint32_t, counterUpdateRequest, CounterUpdateRequest)

 private:
  AclType type_;
};

// The lists of one type, by name.
class AclTypeConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclTypeConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Acl, std::string)
    VEX_HANDLER(Sharing)
  };
  explicit AclTypeConfig(AclType type) : Entity(aclTypeName(type)), type_(type) {}
  AclType type() const { return type_; }
  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<AclConfig>, acl, Acl)
  // Whether a list of this type applied on several interfaces takes one
  // set of TCAM entries per direction (shared) or one per interface, LAG
  // or VLAN (unshared: each interface's counters are its own, at the cost
  // of entries).
  VEX_ATTR(bool, sharing, Sharing, true)
  // The list of that name, made when absent.
  Vex::Ptr<AclConfig> aclIs(const std::string& name) {
    if (auto existing = acl(name)) return existing;
    auto created = Vex::make<AclConfig>(name, type_);
    aclIs(name, created);
    return created;
  }

 private:
  AclType type_;
};

// The lists an interface applies in each direction; empty for none.
struct AclIntfConfig {
  std::string in;
  std::string out;
  auto operator<=>(const AclIntfConfig&) const = default;
  const std::string& aclName(AclDirection direction) const { return direction == AclDirection::aclIn ? in : out; }
};
VEX_VALUE(AclIntfConfig, "Acl::AclIntfConfig", (in, out))

// Per type, the lists each interface applies.
class AclIntfTypeConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclIntfTypeConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Intf, Nexo::IntfId)
  };
  explicit AclIntfTypeConfig(AclType type) : Entity(aclTypeName(type)), type_(type) {}
  AclType type() const { return type_; }
  VEX_ORDERED_COLLECTION(Nexo::IntfId, AclIntfConfig, intf, Intf)

 private:
  AclType type_;
};

// The configuration root: the types in use, each with its lists and its
// interface bindings.
class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(AclTypeConfig, AclType)
    VEX_KEY_HANDLER(AclIntfTypeConfig, AclType)
    VEX_HANDLER(PermitDuringUpdate)
  };
  using Entity::Entity;
  // While a list is replaced on a chip that cannot swap it in one step,
  // its interfaces drop everything unless this is set, in which case they
  // pass everything until the new version is in.
  VEX_ATTR(bool, permitDuringUpdate, PermitDuringUpdate, false)
  VEX_ORDERED_COLLECTION(AclType, Vex::Ptr<AclTypeConfig>, aclTypeConfig, AclTypeConfig)
  VEX_OWNED_MEMBERS(AclType, AclTypeConfig, aclTypeConfig)
  VEX_ORDERED_COLLECTION(AclType, Vex::Ptr<AclIntfTypeConfig>, aclIntfTypeConfig, AclIntfTypeConfig)
  VEX_OWNED_MEMBERS(AclType, AclIntfTypeConfig, aclIntfTypeConfig)
};

// Which instance of a list a status is of: the direction and, for a list
// applied unshared, the interface, LAG or VLAN interface (none when shared).
struct AclInstanceKey {
  AclDirection direction = AclDirection::aclIn;
  Nexo::IntfId intf;
  auto operator<=>(const AclInstanceKey&) const = default;
};
VEX_VALUE(AclInstanceKey, "Acl::AclInstanceKey", (direction, intf))

// An instance's outcome: the status text of its latest programming attempt
// and the status word behind it.
struct AclInstanceStatus {
  bool installed = false;
  std::uint32_t hwStatus = 0;
  std::string statusText;
  std::uint32_t numRules = 0;
  auto operator<=>(const AclInstanceStatus&) const = default;
};
VEX_VALUE(AclInstanceStatus, "Acl::AclInstanceStatus", (installed, hwStatus, statusText, numRules))

struct AclNameKey {
  AclType type = AclType::aclTypeIp;
  std::string name;
  auto operator<=>(const AclNameKey&) const = default;
};
VEX_VALUE(AclNameKey, "Acl::AclNameKey", (type, name))

// The key of a rule's counter on one chip.
struct RuleChipKey {
  std::uint32_t seq = 0;
  std::string chip;
  auto operator<=>(const RuleChipKey&) const = default;
};
VEX_VALUE(RuleChipKey, "Acl::RuleChipKey", (seq, chip))

// The sequence number the counter of a list's implicit final deny is kept
// under: after every configured rule.
inline constexpr std::uint32_t finalRuleSeq = 0xffffffff;

// The status of one list: per instance (direction, and interface when
// unshared), and the packets each rule (by sequence number) matched, summed
// over instances and chips and per chip. Counters are kept across rebuilds of the list.
class AclStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(InstanceStatus, AclInstanceKey)
    VEX_KEY_HANDLER(RuleStatus, std::uint32_t)
    VEX_KEY_HANDLER(RuleStatusPerChip, RuleChipKey)
    VEX_HANDLER(CounterUpdateTime)
  };
  explicit AclStatus(const AclNameKey& key) : Entity(key.name), key_(key) {}
  const AclNameKey& key() const { return key_; }
  VEX_ORDERED_COLLECTION(AclInstanceKey, AclInstanceStatus, instanceStatus, InstanceStatus)
  VEX_ORDERED_COLLECTION(std::uint32_t, std::uint64_t, ruleStatus, RuleStatus)
  VEX_ORDERED_COLLECTION(RuleChipKey, std::uint64_t, ruleStatusPerChip, RuleStatusPerChip)
  // Adds a rule's packets counted on `chip` since the last poll.
  void ruleCounterAdd(std::uint32_t seq, const std::string& chip, std::uint64_t packets) {
    ruleStatusIs(seq, ruleStatus(seq) + packets);
    const RuleChipKey key{seq, chip};
    ruleStatusPerChipIs(key, ruleStatusPerChip(key) + packets);
  }
  VEX_ATTR(double, counterUpdateTime, CounterUpdateTime, 0)

 private:
  AclNameKey key_;
};

// Every list's status, and the interfaces taken out of service because a
// list applied there could not be programmed (cause "acl").
class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(AclStatus, AclNameKey)
    VEX_KEY_HANDLER(ErrdisabledIntf, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(AclNameKey, Vex::Ptr<AclStatus>, aclStatus, AclStatus)
  VEX_OWNED_MEMBERS(AclNameKey, AclStatus, aclStatus)
  VEX_SET(Nexo::IntfId, errdisabledIntf, ErrdisabledIntf)
};

}  // namespace Acl
