// ACL bindings that follow LAG membership: one machine per physical port
// that is (or was) a LAG member. A member is bound as (member, LAG) and
// applies its LAG's list when the LAG has one; when it joins, leaves or
// changes LAG its bindings move to the new binding point, and the
// sub-interfaces of the LAGs involved are rebuilt for their new members.
#pragma once

#include "Orb/OrbCommon.h"
#include "platform/types/Nexo.h"

namespace Orb {

class AclSm;

class EthPhyIntfLagConfigAclSm : public OrbBaseSm {
 public:
  EthPhyIntfLagConfigAclSm(const Nexo::IntfId& intf, AclSm* root);
  ~EthPhyIntfLagConfigAclSm() override;
  const char* fwkType() const override { return "Orb::EthPhyIntfLagConfigAclSm"; }

  const Nexo::IntfId& intf() const { return intf_; }
  // The LAG the port was last seen in; empty when none.
  const Nexo::IntfId& lag() const { return lag_; }
  // The port's LAG changed in the common data.
  void handleLag();

 private:
  void doUpdateLagData(const Nexo::IntfId& lag);
  void doRemoveLagData();
  void doUpdateAclSms(const Nexo::IntfId& oldLag);

  Nexo::IntfId intf_;
  AclSm* root_;
  Nexo::IntfId lag_;
};

}  // namespace Orb
