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

#include <array>
#include <map>
#include <set>

namespace SoftChip {

struct HwVlan {
  // What each interface is in the VLAN (Role bits) by the table's index of
  // it, for the first indexes: first in the entry, so that the lookup of a
  // frame's VLAN brings the first of them in with the key.
  static constexpr std::size_t indexedIntfs = 256;
  std::array<std::uint8_t, indexedIntfs> roleAt{};
  IntfSet tagged;
  IntfSet untagged;
  IntfSet ingress;
  IntfSet egress;
  boost::container::flat_map<Nexo::IntfId, bool> held;  // value: tagged
  Bridging::Fid fid;
  std::uint64_t lastGenId = 0;

  // Every interface the VLAN names with what it is there, in one block: the
  // view a frame's lookups read, kept by refreshRole with the sets above.
  enum Role : std::uint8_t { roleTagged = 1, roleUntagged = 2, roleIngress = 4, roleEgress = 8, roleHeld = 16 };
  boost::container::flat_map<Nexo::IntfId, std::uint8_t> roles;
  void refreshRole(const Nexo::IntfId& intf, std::size_t index);
  std::uint8_t role(const Nexo::IntfId& intf) const {
    auto it = roles.find(intf);
    return it == roles.end() ? 0 : it->second;
  }

  static bool member(std::uint8_t role) { return role & (roleTagged | roleUntagged); }
  bool member(const Nexo::IntfId& intf) const { return member(role(intf)); }
  // A frame of the VLAN is let in on `intf`: an ingress member, or one held
  // out for spanning tree (whose state then decides).
  static bool takesIn(std::uint8_t role) { return ((role & roleIngress) && member(role)) || (role & roleHeld); }
  bool takesIn(const Nexo::IntfId& intf) const { return takesIn(role(intf)); }
};

// Hashed: a frame looks its VLAN up on every hop through the chip.
class SoftVlanTable : public SoftTableOf<Bridging::VlanId, HwVlan, Vex::HashMap<Bridging::VlanId, HwVlan>> {
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

  // Each interface any VLAN ever named has an index, its place in the
  // entries' roleAt.
  std::size_t indexOf(const Nexo::IntfId& intf) {
    return intfIndex_.try_emplace(intf, intfIndex_.size()).first->second;
  }
  // What `intf` is in `vlan` (HwVlan::Role bits); 0 when nothing.
  std::uint8_t role(const HwVlan& vlan, const Nexo::IntfId& intf) const {
    auto it = intfIndex_.find(intf);
    if (it == intfIndex_.end()) return 0;
    return it->second < HwVlan::indexedIntfs ? vlan.roleAt[it->second] : vlan.role(intf);
  }

 private:
  Vex::HashMap<Nexo::IntfId, std::size_t> intfIndex_;

 public:
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
