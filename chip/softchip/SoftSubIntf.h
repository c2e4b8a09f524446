// The soft chip's VLAN-translation table behind the sub-interface helper:
// one entry per sub-interface, keyed by its parent (a port or a LAG) and
// its 802.1Q encapsulation, naming the sub-interface and the VLAN its
// frames are forwarded in. A full table or a planned fault refuses an add
// with a status; nothing else changes.
//
// Ingress matches the exact pair of tags first, then the outer tag alone
// (a single-tagged sub-interface takes double-tagged frames whatever their
// inner tag); egress by a sub-interface carries its tags.
#pragma once

#include "Orb/OrbHelper.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/Entity.h"

#include <map>
#include <string>

namespace SoftChip {

struct SoftSubIntfKey {
  Nexo::IntfId parent;
  std::uint16_t outerTag = 0;
  std::uint16_t innerTag = 0;
  auto operator<=>(const SoftSubIntfKey&) const = default;
};
std::string softKeyText(const SoftSubIntfKey& key);
inline std::size_t hash_value(const SoftSubIntfKey& key) {
  std::size_t seed = hash_value(key.parent);
  boost::hash_combine(seed, key.outerTag);
  boost::hash_combine(seed, key.innerTag);
  return seed;
}

struct HwSubIntf {
  Nexo::IntfId subIntf;
  std::uint16_t vlan = 0;
  bool isL2 = false;
};

// Hashed: every frame on a port with sub-interfaces looks it up, and
// thousands of entries go in at once.
class SoftSubIntfTable : public SoftTableOf<SoftSubIntfKey, HwSubIntf, Vex::HashMap<SoftSubIntfKey, HwSubIntf>> {
 public:
  static constexpr const char* tableName = "vlan-translation";
  explicit SoftSubIntfTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}

  // The entry a frame tagged `outer` (and `inner`, 0 for none) arriving on
  // `parent` meets, or null.
  const HwSubIntf* match(const Nexo::IntfId& parent, std::uint16_t outer, std::uint16_t inner) const;
  // The key a sub-interface is held under, for egress; null when absent.
  const SoftSubIntfKey* keyOf(const Nexo::IntfId& subIntf) const;
  // Whether any entry exists: a chip with none skips the look-up.
  bool empty() const { return entries.empty(); }

  // Kept by the helper: sub-interface to key, and what doUpdateStatuses said.
  Vex::HashMap<Nexo::IntfId, SoftSubIntfKey> keyOfSubIntf;
  std::map<Nexo::IntfId, Nexo::IntfId> lagOfPort;
  bool anyProgrammed = false;
  bool anyConflicted = false;

 protected:
  void dumpEntry(JsonWriter& writer, const HwSubIntf& entry) const override;
};

// Whether `subIntf` is a layer-2 sub-interface the chip bridges in `vlan`:
// such a sub-interface is let into its VLAN by its mapping, not by the
// VLAN's membership, and learns there like a port.
bool subIntfBridgedIn(const SoftChip& chip, Bridging::VlanId vlan, const Nexo::IntfId& subIntf);

class SoftSubIntfHelper : public OrbHelper::OrbHelperSubIntf {
 public:
  static constexpr std::uint32_t addFailed = 3;

  explicit SoftSubIntfHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftSubIntfHelper() override;

  const SoftSubIntfTable& table() const { return table_; }
  std::uint64_t refused() const { return refused_; }

  std::uint32_t doAddDot1qEncapToVsiMap(const Nexo::IntfId& subIntf, const Nexo::IntfId& parentIntf,
                                        Bridging::VlanIdOrNone vlan, const Interface::SubIntfEncap& encap,
                                        bool isL2SubIntf) override;
  void doDeleteDot1qEncapToVsiMap(const Nexo::IntfId& subIntf, const Nexo::IntfId& parentIntf,
                                  Bridging::VlanIdOrNone vlan, const Interface::SubIntfEncap& encap,
                                  bool isL2SubIntf) override;
  void doAddPortToLag(const Nexo::IntfId& port, const Nexo::IntfId& lag) override;
  void doDeletePortFromLag(const Nexo::IntfId& port) override;
  void doUpdateStatuses(bool anyProgrammed, bool anyConflicted) override;

 private:
  Vex::Ptr<SoftChip> chip_;
  SoftSubIntfTable table_;
  std::uint64_t refused_ = 0;
};

}  // namespace SoftChip
