// The soft chip's VLAN table and its VLAN helper.
//
// Each hardware VLAN holds its tagged, untagged, ingress and egress member
// sets and its FID. doUpdateVlan reads the VLAN's request from the helper's
// `updateConfig`, applies it to the table and acknowledges through
// updateVlanDone, after the chip's acknowledgement delay for "vlan". The
// fault plan can make an update fail; a VLAN that does not fit the table's
// capacity fails too.
#pragma once

#include "Orb/OrbVlanHelper.h"
#include "chip/softchip/SoftChip.h"

#include <map>
#include <set>

namespace SoftChip {

struct HwVlan {
  IntfSet tagged;
  IntfSet untagged;
  IntfSet ingress;
  IntfSet egress;
  Bridging::Fid fid;
  std::uint64_t lastGenId = 0;
};

class SoftVlanTable : public SoftTableOf<Bridging::VlanId, HwVlan> {
 public:
  static constexpr const char* tableName = "vlan";
  explicit SoftVlanTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  const HwVlan* vlan(Bridging::VlanId vlanId) const { return find(vlanId); }

 protected:
  void dumpEntry(JsonWriter& writer, const HwVlan& vlan) const override;
};

class SoftVlanHelper : public Orb::VlanHelper {
 public:
  explicit SoftVlanHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftVlanHelper() override;

  const SoftVlanTable& table() const { return table_; }
  // Requests answered so far, and those still waiting for their ack.
  std::uint64_t updatesRequested() const { return updatesRequested_; }
  std::size_t updatesInFlight() const { return inFlight_.size(); }

  void doCreateHwVlan(Bridging::VlanId vlanId) override;
  void doUpdateVlan(Bridging::VlanId vlanId) override;
  void doUpdateVlanFid(Bridging::VlanId vlanId, Bridging::Fid fid) override;
  void verify() override;
  // Lines describing where hardware differs from the confirmed membership.
  std::vector<std::string> verifyLines() const;

 private:
  void apply(Bridging::VlanId vlanId);

  Vex::Ptr<SoftChip> chip_;
  SoftVlanTable table_;
  std::uint64_t updatesRequested_ = 0;
  std::set<Bridging::VlanId> inFlight_;
  std::map<Bridging::VlanId, Bridging::Fid> fids_;  // as configured, VLAN or not
};

}  // namespace SoftChip
