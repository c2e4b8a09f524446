// The soft chip's ACL TCAM behind the ACL helper. Each committed ACL
// instance holds its subrules as entries in priority order (rule order, the
// final rule last) with a hit counter each; the TCAM has a set number of
// entries and of L4 port-range checkers (one per distinct multi-block port
// range in use) on its one unit, "Unit0". A commit that does not fit, or a
// planned fault, answers a status word and leaves the TCAM as it was.
//
// Planned faults answer busy as "insufficient resources" (15), full as
// "out of entries" (2) and failed as "unsupported feature" (18); a status
// word of any value can be planned too. MPLS label matches are not
// supported: a rule asking for one is refused when offered.
//
// In deferred mode every commit and removal is acknowledged later, after
// the table's acknowledgement delay, through opsCompleted().
#pragma once

#include "Orb/OrbAclHelper.h"
#include "chip/softchip/SoftChip.h"
#include "chip/softchip/SoftFrame.h"

#include <deque>
#include <map>
#include <optional>
#include <set>

#include <boost/unordered/unordered_flat_map.hpp>
#include <vector>

namespace Orb {
inline std::string softKeyText(const AclKey& key) { return key.stringValue(); }
}  // namespace Orb

namespace SoftChip {

// One TCAM entry: a rule of its ACL (by index) with one block of each port.
struct HwAclEntry {
  std::uint32_t rule = 0;
  Orb::AclPortMask sourcePort;
  Orb::AclPortMask destinationPort;
  std::uint64_t hits = 0;
};

// The rules and entries of one instance, as committed or being built.
struct HwAclRules {
  std::vector<Orb::AclRule> rules;
  std::vector<HwAclEntry> entries;  // in priority order
  void clear() {
    rules.clear();
    entries.clear();
  }
};

struct HwAcl : HwAclRules {
  std::uint32_t aclNumber = 0;
  std::set<Orb::IntfPairKey> bound;
  // Hits per rule id already reported to a poll.
  boost::unordered_flat_map<std::uint32_t, std::uint64_t> polled;
  // The entries of each rule id, worked out when a version is committed
  // (the chip's own work), so that a counter poll reads one rule's entries.
  boost::unordered_flat_map<std::uint32_t, std::vector<std::uint32_t>> entriesByRuleId;
  void indexRules();
  std::uint64_t hits(std::uint32_t uniqueId) const;
};

// What an ACL decided for a frame: the instance, the rule that matched and
// its action.
struct AclVerdict {
  Orb::AclKey key;
  std::uint32_t seq = 0;
  std::uint32_t uniqueId = 0;
  bool permit = true;
};

class SoftAclTable : public SoftTableOf<Orb::AclKey, HwAcl> {
 public:
  static constexpr const char* tableName = "acl";
  static constexpr const char* unitName = "Unit0";
  static constexpr std::size_t defaultEntries = 4096;
  static constexpr std::size_t defaultRangeCheckers = 32;

  explicit SoftAclTable(SoftChip& chip);

  // Entries in use over every instance.
  std::size_t size() const override;
  std::size_t rangeCheckers() const { return rangeCheckers_; }
  void rangeCheckersIs(std::size_t count) { rangeCheckers_ = count; }
  // Distinct multi-block port ranges over every instance, with `extra`'s
  // instead of those of `replacing`.
  std::size_t rangesInUse(const Orb::AclKey* replacing, const std::vector<Orb::AclRule>* extra) const;

  // The instance applied at a port (or its LAG) in a direction for a
  // frame of this kind, if any.
  const Orb::AclKey* boundAt(const Nexo::IntfId& intf, Acl::AclDirection direction, Acl::AclType type) const;
  void bindingIs(const Nexo::IntfId& intf, Acl::AclDirection direction, Acl::AclType type, const Orb::AclKey* key);

  // Interfaces blocked while their ACL is replaced: they drop everything.
  bool blocked(const Nexo::IntfId& intf) const { return blocked_.count(intf) != 0; }
  bool anyBlocked() const { return !blocked_.empty(); }
  void blockedIs(const Nexo::IntfId& intf, bool block) {
    if (block) {
      blocked_.insert(intf);
    } else {
      blocked_.erase(intf);
    }
  }

  // Matches the frame against the instance's entries in priority order,
  // counting a hit on the first that matches.
  std::optional<AclVerdict> classify(const Orb::AclKey& key, const Frame& frame);

 protected:
  void dumpEntry(JsonWriter& writer, const HwAcl& acl) const override;

 private:
  std::size_t rangeCheckers_ = defaultRangeCheckers;
  std::map<std::tuple<Nexo::IntfId, Acl::AclDirection, Acl::AclType>, Orb::AclKey> bindings_;
  std::set<Nexo::IntfId> blocked_;
};

// Whether an entry of `rule` matches a frame (exposed for tests).
bool aclEntryMatches(const Orb::AclRule& rule, const HwAclEntry& entry, const Frame& frame);

class SoftAclHelper : public OrbHelper::AclHelper {
 public:
  explicit SoftAclHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftAclHelper() override;

  SoftAclTable& table() { return table_; }
  const SoftAclTable& table() const { return table_; }
  bool deferred() const { return deferred_; }
  void deferredIs(bool deferred) { deferred_ = deferred; }
  // The next commits answer these status words, in order.
  void plannedStatusIs(std::uint32_t status, std::uint32_t count) {
    plannedStatus_.insert(plannedStatus_.end(), count, status);
  }
  // Packets a rule has matched since it was installed.
  std::uint64_t ruleHits(const Orb::AclKey& key, std::uint32_t uniqueId) const;

  void precreateAcl(AclData& data, AclDataStatus& status) override;
  bool createIpAclSubrule(Acl::AclType, const AclRule& rule, const AclSubrule& subrule, std::uint32_t,
                          AclData& data) override;
  bool createIpFragRule(AclData& data, const AclRule& rule, const AclSubrule& subrule, std::uint32_t) override;
  bool createMacAclRule(const AclRule& rule, const AclSubrule& subrule, std::uint32_t, AclData& data) override;
  bool createFinalAclRule(Acl::AclType, AclData& data, const AclRule& rule, const AclSubrule& subrule) override;
  Orb::AclHwResult commitAcl(AclData& data) override;
  void removeAcl(AclData& data) override;
  bool addIntfToAcl(const IntfPairKey& pair, AclData& data, AclDataStatus& status) override;
  void removeIntfFromAcl(const IntfPairKey& pair, AclData& data, bool belongsToAnother) override;
  bool aclOwner(const Nexo::IntfId& intf, const Orb::AclKey& key) override;
  std::uint64_t aclRuleCountersSinceLastPoll(const AclData& data, const std::string& chip,
                                             std::uint32_t uniqueId) override;
  std::vector<std::string> counterChips() override { return {SoftAclTable::unitName}; }
  void blockIntf(const Nexo::IntfId& intf, bool block, const std::string&) override { table_.blockedIs(intf, block); }
  bool establishedSupported() override { return true; }
  bool deferredOperationsSupported() override { return deferred_; }
  // Whether one instance may serve several sub-interfaces (a chip that
  // keys sub-interface lists by tag cannot).
  bool subIntfAclSharingSupported(const Orb::AclKey&) override { return subIntfSharing_; }
  void subIntfSharingIs(bool sharing) { subIntfSharing_ = sharing; }

 private:
  void acknowledge();
  // The instance being built: entries are staged there until the commit.
  HwAclRules& staged(const AclData& data);
  void stage(const AclData& data, const AclRule& rule, const AclSubrule& subrule);

  Vex::Ptr<SoftChip> chip_;
  SoftAclTable table_;
  // Per instance the version being built; after a commit, the storage of
  // the version it replaced, kept for the next build.
  std::map<Orb::AclKey, HwAclRules> staged_;
  const AclData* stagedFor_ = nullptr;
  HwAclRules* staging_ = nullptr;
  std::uint32_t lastRule_ = 0;  // the data's index of the rule staged last
  std::deque<std::uint32_t> plannedStatus_;
  bool deferred_ = false;
  bool subIntfSharing_ = true;
};

}  // namespace SoftChip
