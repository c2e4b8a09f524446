// The soft chip's mirror sessions behind the mirroring helper. A session
// sits in a hardware mirror group; it holds its destination (a port, a LAG
// or a GRE tunnel), the destination ports it copies to, and its source
// ports with their directions and optional ACL filter. The table holds at
// most capacity("mirror") sessions; source slots are counted over the whole
// chip per direction (a source of both directions takes one of each), and
// the source ACLs share a number of filter entries.
//
// Planned faults make the next operations fail, whatever they are (full
// for a create).
//
// mirrorFrame() is the packet model's part: a frame received on a source
// port (rx) is copied as received, a copy sent by a source port (tx) as
// sent. A session copies once to each destination port, and once to a
// LAG whatever the number of its ports there, on the member the frame's
// flow hash picks, as LAG forwarding does; a LAG without ports gets none.
#pragma once

#include "Orb/OrbAclTypes.h"
#include "Orb/OrbMirroringHelper.h"
#include "chip/softchip/SoftAcl.h"
#include "chip/softchip/SoftChip.h"
#include "chip/softchip/SoftFrame.h"
#include "chip/softchip/SoftTable.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace SoftChip {

class SoftLagTable;
struct ForwardResult;

struct SoftMirrorGroup {
  std::int32_t value = -1;
  auto operator<=>(const SoftMirrorGroup&) const = default;
};
inline std::string softKeyText(const SoftMirrorGroup& group) { return std::to_string(group.value); }

// A source ACL as the chip holds it: rules in order, each with its entries.
struct HwMirrorAclRule {
  Orb::AclRule rule;
  std::vector<HwAclEntry> entries;
};
struct HwMirrorAcl {
  std::string name;
  Acl::AclType type = Acl::AclType::aclTypeIp;
  std::vector<HwMirrorAclRule> rules;
  std::size_t entries() const;
  // Whether the ACL lets the frame be copied: its first matching rule
  // permits (a frame of another kind, or no match, is not copied).
  bool permits(const Frame& frame) const;
};
// Compiles a configured list into what the chip holds.
HwMirrorAcl compileMirrorAcl(const Acl::AclConfig& config);

struct HwMirrorSource {
  Mirroring::Direction direction = Mirroring::Direction::directionBoth;
  std::optional<HwMirrorAcl> acl;
};

struct HwMirrorSession {
  std::string name;
  std::uint32_t id = 0;
  Nexo::IntfId destIntf;
  bool gre = false;
  std::uint32_t tunnelId = 0;
  std::vector<Mirroring::GreNextHop> nextHops;
  std::map<Nexo::IntfId, HwMirrorSource> sources;
  std::set<Nexo::IntfId> targets;
  // The ports of LAGs behind GRE next hops, by LAG.
  std::map<Nexo::IntfId, std::set<Nexo::IntfId>> greLagMembers;
  // Session attributes, 0 meaning off.
  std::uint32_t truncationSize = 0;
  std::uint32_t headerRemovalSize = 0;
  std::uint32_t rxSampleRate = 0;
  std::uint64_t rateLimit = 0;
  Mirroring::GrePayloadType grePayloadType = Mirroring::GrePayloadType::grePayloadFullPacket;
};

class SoftMirrorTable : public SoftTableOf<SoftMirrorGroup, HwMirrorSession> {
 public:
  static constexpr const char* tableName = "mirror";
  static constexpr std::size_t defaultSessions = 4;
  static constexpr std::uint32_t defaultSourceSlots = 8;
  static constexpr std::size_t defaultAclEntries = 256;

  explicit SoftMirrorTable(SoftChip& chip) : SoftTableOf(chip, tableName) { capacityIs(defaultSessions); }

  std::uint32_t rxSlots() const { return rxSlots_; }
  std::uint32_t txSlots() const { return txSlots_; }
  void sourceSlotsIs(std::uint32_t rx, std::uint32_t tx) {
    rxSlots_ = rx;
    txSlots_ = tx;
  }
  std::uint32_t usedSlots(bool rx) const;
  std::size_t aclEntries() const { return aclEntries_; }
  void aclEntriesIs(std::size_t entries) { aclEntries_ = entries; }
  std::size_t aclEntriesInUse() const;

 protected:
  void dumpEntry(JsonWriter& writer, const HwMirrorSession& session) const override;

 private:
  std::uint32_t rxSlots_ = defaultSourceSlots;
  std::uint32_t txSlots_ = defaultSourceSlots;
  std::size_t aclEntries_ = defaultAclEntries;
};

// One mirrored copy leaving the chip.
struct MirrorCopy {
  std::string session;
  Nexo::IntfId source;  // the source port it was taken at
  bool ingress = true;  // rx: as received; tx: as sent
  Nexo::IntfId port;    // the port it leaves by
  Nexo::IntfId lag;     // the LAG `port` was chosen from; empty when none
  std::uint32_t tunnelId = 0;
  // A GRE copy without its Ethernet header.
  bool innerPacket = false;
  bool tagged = false;
  std::uint16_t vlan = 0;
  bool operator==(const MirrorCopy&) const = default;
};

// Appends the copies the mirror sessions make of a frame that arrived on
// `ingress` and left as `result` says.
void mirrorFrame(const SoftMirrorTable& mirrors, const SoftLagTable* lags, const Nexo::IntfId& ingress,
                 const Frame& frame, ForwardResult& result);

class SoftMirrorHelper : public OrbHelper::MirroringSmHelper {
 public:
  explicit SoftMirrorHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftMirrorHelper() override;

  SoftMirrorTable& table() { return table_; }
  const SoftMirrorTable& table() const { return table_; }
  const HwMirrorSession* session(const std::string& name) const;

  void hwInit() override {}
  std::vector<Orb::HwMirrorSession> hwSessions() override;
  bool createMirror(const std::string& name, std::uint32_t id, Group group, const IntfId& destIntf,
                    bool isDstIntf) override;
  bool removeMirror(const std::string& name, std::uint32_t id, Group group, const std::vector<IntfId>&) override;
  bool createGreTunnelMirror(const std::string& name, std::uint32_t id, Group group, const IntfId& destIntf,
                             std::uint32_t tunnelId, const std::vector<Mirroring::GreNextHop>& nextHops) override;
  bool updateGreTunnelMirror(const std::string& name, std::uint32_t id, Group group, const IntfId& destIntf,
                             std::uint32_t tunnelId, const std::vector<Mirroring::GreNextHop>& nextHops) override;
  bool removeGreTunnelMirror(const std::string& name, std::uint32_t id, Group group, const IntfId&) override;
  bool addSourceToHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                           Direction direction) override;
  bool removeSourceFromHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf, Direction,
                                bool) override;
  bool addTargetToHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf, bool add) override;
  bool addHwSrcAcl(const std::string&, std::uint32_t, Group group, const IntfId& intf, const std::string& aclName,
                   const Vex::Ptr<const Acl::AclConfig>& aclConfig, std::uint32_t priority) override;
  bool addIntfToLagGreNextHop(const std::string&, std::uint32_t, Group group, const IntfId& intf, const IntfId&,
                              const IntfId& l2Intf) override;
  bool handleLagMemberDeletion(const IntfId& intf, const IntfId& lag, const std::string&, std::uint32_t, Group group,
                               Direction) override;
  // Attributes are held on the session, and refused like any operation
  // when a fault is planned.
  bool setMirrorTruncation(const std::string&, std::uint32_t, Group group, bool enabled, std::uint32_t size) override;
  bool setMirrorHeaderRemoval(const std::string&, std::uint32_t, Group group, std::uint32_t size) override;
  bool setRxSampleRate(const std::string& name, std::uint32_t, std::uint32_t rate) override;
  bool setGrePayloadType(const Mirroring::Session& config, Group group) override;
  bool setRateLimit(const std::string&, Group group, const std::string&, std::uint64_t rate) override;
  void doMirrorRateLimitConfig(bool) override {}
  std::uint32_t freeMirrorSources(const Mirroring::Config&, const std::string&, Direction direction) override;
  std::uint32_t maxBiDirSources() override;
  std::uint32_t maxUniDirSources() override;
  std::string verifySinglePort(const std::string& name, Group group, const IntfId& port, Direction direction) override;
  std::string verifyGreTunnelMirror(const std::string& name, Group group, std::uint32_t tunnelId) override;
  std::string verifyDestPort(const std::string& name, Group group, const IntfId& port) override;
  std::string verifySrcAcl(const std::string& name, Group group, const IntfId& port,
                           const std::string& aclName) override;
  std::string verifySessionAcl(const std::string&, Group) override { return ""; }
  std::string verifyAclConfig(const std::string&) override { return ""; }
  std::string verifyMirrorDeviceForSession(const std::string& name, Group group) override;
  std::string showHwSrcAcls() override;

 private:
  // The session in `group`, if a planned fault does not answer first.
  HwMirrorSession* admitted(Group group);
  // The session in `group` made (or remade) with its name, id and
  // destination; null when the table refuses.
  HwMirrorSession* created(Group group, const std::string& name, std::uint32_t id, const IntfId& destIntf);
  // Takes the session in `group` out, unless a planned fault answers.
  bool removed(Group group);

  Vex::Ptr<SoftChip> chip_;
  SoftMirrorTable table_;
};

}  // namespace SoftChip
