// The compiled, hardware-independent form of an ACL: its identity
// (AclKey), the binding point it is applied at (IntfPairKey), the subrules
// a chip programs (one per source-port block times destination-port block
// of each rule), and the status of each compiled instance.
#pragma once

#include "Orb/OrbL4.h"
#include "platform/blip/Blip.h"
#include "platform/model/Acl.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Orb {

// The trace handle every ACL machine writes to ("OrbAclSm").
Blip::Handle& aclTrace();

// One compiled instance of an ACL. A list shared between interfaces has
// one instance per direction (`intf` empty); an unshared one has one per
// interface as well.
struct AclKey {
  Acl::AclType type = Acl::AclType::aclTypeIp;
  std::string name;
  Acl::AclDirection direction = Acl::AclDirection::aclIn;
  Nexo::IntfId intf;
  auto operator<=>(const AclKey&) const = default;
  // "ip acl1 in", "ip acl1 in Ethernet3".
  std::string stringValue() const;
};
VEX_VALUE(AclKey, "Orb::AclKey", (type, name, direction, intf))

// Where an ACL is applied: a LAG member is (member, LAG), a stand-alone
// port (port, none), a VLAN interface, sub-interface or tunnel
// (interface, none).
struct IntfPairKey {
  Nexo::IntfId intfId;
  Nexo::IntfId lagIntfId;
  auto operator<=>(const IntfPairKey&) const = default;
  std::string stringValue() const;
};
VEX_VALUE(IntfPairKey, "Orb::IntfPairKey", (intfId, lagIntfId))
// Checks the binding point's invariants (fatal when broken).
void checkIntfPairKey(const IntfPairKey& intfPair);

enum class AclSubruleKind : std::uint8_t { ip = 0, ip6 = 1, mac = 2, fragPermit = 3, final = 4 };
BOOST_DESCRIBE_ENUM(AclSubruleKind, ip, ip6, mac, fragPermit, final)

// TCP flags a subrule may ask for: it matches when any of them is set.
inline constexpr std::uint8_t tcpFlagRst = 0x04;
inline constexpr std::uint8_t tcpFlagAck = 0x10;

// One rule as compiled: what it matches apart from its L4 ports, and the
// configured port ranges its subrules' blocks come from.
struct AclRule {
  AclSubruleKind kind = AclSubruleKind::ip;
  std::uint32_t seq = 0;       // the rule's sequence number (0 for the final rule)
  std::uint32_t uniqueId = 0;  // the rule's id; the final rule's is finalRuleId
  Acl::AclAction action = Acl::AclAction::permit;
  Nexo::Prefix source;
  Nexo::Prefix destination;
  Nexo::Ip6Prefix source6;
  Nexo::Ip6Prefix destination6;
  std::uint8_t protocol = 0;
  // The configured ranges (op any when the rule has no port match), for
  // chips with range checkers.
  Acl::PortMatch sourceRange;
  Acl::PortMatch destinationRange;
  std::uint8_t tcpFlagsAny = 0;
  bool fragment = false;  // matches non-first fragments only
  Acl::MacFilter mac;
  auto operator<=>(const AclRule&) const = default;
};
VEX_VALUE(AclRule, "Orb::AclRule",
          (kind, seq, uniqueId, action, source, destination, source6, destination6, protocol, sourceRange,
           destinationRange, tcpFlagsAny, fragment, mac))

// One entry's worth of matching: a rule (by its index in the instance's
// rules) with one source-port block and one destination-port block. Small,
// since a rule of two wide ranges makes hundreds.
struct AclSubrule {
  std::uint32_t rule = 0;
  AclPortMask sourcePort;
  AclPortMask destinationPort;
  auto operator<=>(const AclSubrule&) const = default;
};
VEX_VALUE(AclSubrule, "Orb::AclSubrule", (rule, sourcePort, destinationPort))

inline constexpr std::uint32_t finalRuleId = 0xffffffff;

// Which fragment-permit rules an instance already holds, by what they
// match, so that rules sharing addresses and protocol make one.
class AclFragMap {
 public:
  bool contains(const std::string& match) const { return matches_.count(match) != 0; }
  // Traces "fragMap(<instance>): insert" at the caller's handle.
  void insert(const std::string& match) { matches_.insert(match); }
  void clear() { matches_.clear(); }
  std::size_t size() const { return matches_.size(); }

 private:
  std::set<std::string> matches_;
};

// What a chip answers to an instance's commit, and the chip or unit that
// answered.
struct AclHwResult {
  std::uint32_t status = 0;
  std::string chip;
  auto operator<=>(const AclHwResult&) const = default;
};
VEX_VALUE(AclHwResult, "Orb::AclHwResult", (status, chip))

// The status words a chip answers.
namespace AclHwStatus {
inline constexpr std::uint32_t succeeded = 0;
inline constexpr std::uint32_t outOfTcam = 2;
inline constexpr std::uint32_t tooManyL4PortRanges = 3;
inline constexpr std::uint32_t tooManyAcls = 10;
inline constexpr std::uint32_t unsupportedAction = 11;
inline constexpr std::uint32_t udfResources = 12;
inline constexpr std::uint32_t unsupportedRule = 13;
inline constexpr std::uint32_t insufficientResources = 15;
inline constexpr std::uint32_t unsupportedFeature = 18;
}  // namespace AclHwStatus

enum class AclDataState : std::uint8_t { created = 0, prepared = 1, installed = 2, failed = 3, skipped = 4 };
BOOST_DESCRIBE_ENUM(AclDataState, created, prepared, installed, failed, skipped)

// One compiled instance. `dirty` is the one watched attribute: set when the
// instance needs building again.
class AclData : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclData> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Dirty)
  };
  explicit AclData(const AclKey& key) : Entity(key.stringValue()), key_(key) {}
  const AclKey& key() const { return key_; }
  VEX_ATTR(bool, dirty, Dirty, false)

  // Interfaces the instance is applied to, and those the chip binds now.
  std::set<IntfPairKey>& activeIntfs() { return activeIntfs_; }
  const std::set<IntfPairKey>& activeIntfs() const { return activeIntfs_; }
  std::set<IntfPairKey>& boundIntfs() { return boundIntfs_; }
  const std::set<IntfPairKey>& boundIntfs() const { return boundIntfs_; }

  std::vector<AclRule> rules;
  std::vector<AclSubrule> subrules;
  // The rule ids of the version the chip holds.
  std::vector<std::uint32_t> committedRuleIds;
  // Rule ids the chip said it cannot hold.
  std::set<std::uint32_t> unsupportedRules;
  AclFragMap fragMap;
  std::uint32_t numRules = 0;  // configured rules compiled
  std::uint32_t count = 0;     // counters: one per rule plus the final rule
  std::uint32_t version = 0;
  std::uint32_t aclNumber = 0;  // hardware ACL number from the direction's pool
  AclDataState state = AclDataState::created;
  bool readyToBeInstalled = false;
  bool installed = false;  // the chip holds a version of it
  bool unstable = false;   // the latest attempt failed
  AclHwResult hwResult;

 private:
  AclKey key_;
  std::set<IntfPairKey> activeIntfs_;
  std::set<IntfPairKey> boundIntfs_;
};

// The status of one instance: the text of its latest programming attempt,
// and per rule and chip whether the chip holds it.
class AclDataStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AclDataStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(StatusText)
  };
  explicit AclDataStatus(const AclKey& key) : Entity(key.stringValue()), key_(key) {}
  const AclKey& key() const { return key_; }
  VEX_ATTR(std::string, statusText, StatusText, "")
  std::uint32_t hwStatus = 0;
  bool installed = false;
  std::uint32_t numRules = 0;
  // Per rule id, per chip: programmed or not.
  std::map<std::uint32_t, std::map<std::string, bool>> ruleStatusPerChip;

 private:
  AclKey key_;
};

// Counter deltas of one instance's rules per chip since the last poll.
using AclRuleCounterDeltaPerChip = std::map<std::string, std::map<std::uint32_t, std::uint64_t>>;

// The head, next index and count of a direction's pool of free ACL numbers.
struct FreeAclMetadata {
  std::uint32_t head = 0;
  std::uint32_t next = 0;
  std::uint32_t count = 0;
  auto operator<=>(const FreeAclMetadata&) const = default;
};
VEX_VALUE(FreeAclMetadata, "Orb::FreeAclMetadata", (head, next, count))

}  // namespace Orb
