// The soft chip's VLAN table and its VLAN helper.
//
// Each hardware VLAN holds its tagged, untagged, ingress and egress member
// sets and its FID, and the ports held out of it: members the forwarding
// layer takes out while spanning tree keeps them from forwarding. A chip
// with a port-state table keeps those members and lets the state speak (a
// learning port learns); so this one keeps them aside. Each port has one
// untagged VLAN, the one its untagged frames belong to: the first VLAN it
// became an untagged member of and still is, so that a flood set copied
// into another VLAN does not take it over. doUpdateVlan reads the VLAN's request from the helper's
// `updateConfig`, applies it to the table and acknowledges through
// updateVlanDone, after the chip's acknowledgement delay for "vlan". The
// fault plan can make an update fail; a VLAN that does not fit the table's
// capacity fails too.
#pragma once

#include "Orb/OrbVlanHelper.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/Entity.h"

#include <boost/container/flat_map.hpp>

#include <map>
#include <set>

namespace SoftChip {

struct HwVlan {
  IntfSet tagged;
  IntfSet untagged;
  IntfSet ingress;
  IntfSet egress;
  boost::container::flat_map<Nexo::IntfId, bool> held;  // value: tagged
  Bridging::Fid fid;
  std::uint64_t lastGenId = 0;

  bool member(const Nexo::IntfId& intf) const { return tagged.contains(intf) || untagged.contains(intf); }
  // A frame of the VLAN is let in on `intf`: an ingress member, or one held
  // out for spanning tree (whose state then decides).
  bool takesIn(const Nexo::IntfId& intf) const {
    return (ingress.contains(intf) && member(intf)) || held.contains(intf);
  }
};

class SoftVlanTable : public SoftTableOf<Bridging::VlanId, HwVlan> {
 public:
  static constexpr const char* tableName = "vlan";
  explicit SoftVlanTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  const HwVlan* vlan(Bridging::VlanId vlanId) const { return find(vlanId); }
  // The VLAN untagged frames arriving on `intf` belong to; nullptr when none.
  const Bridging::VlanId* untaggedVlan(const Nexo::IntfId& intf) const {
    auto it = untaggedVlanOf.find(intf);
    return it == untaggedVlanOf.end() ? nullptr : &it->second;
  }
  // Kept with the members by the VLAN helper.
  Vex::HashMap<Nexo::IntfId, Bridging::VlanId> untaggedVlanOf;

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
  // `intf` is untagged in the VLAN now: its untagged VLAN unless it has one.
  void claimUntagged(const Nexo::IntfId& intf, Bridging::VlanId vlanId);
  // `intf` is no longer untagged in the VLAN: if that was its untagged VLAN,
  // the lowest one it is still untagged in takes over.
  void releaseUntagged(const Nexo::IntfId& intf, Bridging::VlanId vlanId);

  Vex::Ptr<SoftChip> chip_;
  SoftVlanTable table_;
  std::uint64_t updatesRequested_ = 0;
  std::set<Bridging::VlanId> inFlight_;
  std::map<Bridging::VlanId, Bridging::Fid> fids_;  // as configured, VLAN or not
};

}  // namespace SoftChip
