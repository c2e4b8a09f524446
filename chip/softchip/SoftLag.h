// The soft chip's LAG table behind the LAG helper. Capacities: the table
// holds at most capacity("lag") LAGs and each LAG at most `maxMembers`
// members; what does not fit is refused and counted (the LAG helper has no
// way to say no, as with most chips that drop what they cannot hold).
#pragma once

#include "Orb/OrbHelper.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/Entity.h"

#include <map>
#include <set>

namespace SoftChip {

struct HwLag {
  std::set<Nexo::IntfId> members;
  Nexo::IntfId sharedPeerLink;  // empty unless it borrows the peer link's members
};

class SoftLagTable : public SoftTableOf<Nexo::IntfId, HwLag> {
 public:
  static constexpr const char* tableName = "lag";
  explicit SoftLagTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  const HwLag* lag(const Nexo::IntfId& id) const { return find(id); }
  // The LAG a port is a member of, as the chip's port-to-LAG table says;
  // nullptr when none.
  const Nexo::IntfId* lagOf(const Nexo::IntfId& port) const {
    auto it = lagOfMember.find(port);
    return it == lagOfMember.end() ? nullptr : &it->second;
  }
  // Kept with the members by the LAG helper.
  Vex::HashMap<Nexo::IntfId, Nexo::IntfId> lagOfMember;

 protected:
  void dumpEntry(JsonWriter& writer, const HwLag& lag) const override;
};

class SoftLagHelper : public OrbHelper::OrbHelperLagSm {
 public:
  explicit SoftLagHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftLagHelper() override;

  const SoftLagTable& table() const { return table_; }
  std::size_t maxMembers() const { return maxMembers_; }
  void maxMembersIs(std::size_t members) { maxMembers_ = members; }
  std::uint64_t refused() const { return refused_; }

  void maybeCreateLag(const Nexo::IntfId& lag) override;
  void maybeDestroyLag(const Nexo::IntfId& lag) override;
  void updateLag(const Nexo::IntfId& lag, const Orb::OrbLagPortList& list) override;
  void maybeShareLagMembership(const Nexo::IntfId& lag, const Nexo::IntfId& peerLink, bool share) override;

 private:
  void forgetMembers(const Nexo::IntfId& lag, HwLag& hw);

  Vex::Ptr<SoftChip> chip_;
  SoftLagTable table_;
  std::size_t maxMembers_ = 32;
  std::uint64_t refused_ = 0;
};

}  // namespace SoftChip
