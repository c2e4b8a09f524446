#include "Orb/OrbAclLagSm.h"

#include "Orb/OrbAclSm.h"

namespace Orb {

EthPhyIntfLagConfigAclSm::EthPhyIntfLagConfigAclSm(const Nexo::IntfId& intf, AclSm* root)
    : OrbBaseSm(root->ocsd()), intf_(intf), root_(root) {
  initializedIs(true);
}

EthPhyIntfLagConfigAclSm::~EthPhyIntfLagConfigAclSm() { vexDoZombieReactors(true); }

void EthPhyIntfLagConfigAclSm::handleLag() {
  const Nexo::IntfId oldLag = lag_;
  const Nexo::IntfId newLag = ocsd()->portToLag(intf_);
  if (newLag == oldLag) return;
  if (newLag.empty()) {
    doRemoveLagData();
  } else {
    doUpdateLagData(newLag);
  }
  doUpdateAclSms(oldLag);
}

void EthPhyIntfLagConfigAclSm::doUpdateLagData(const Nexo::IntfId& lag) {
  BLIP(aclTrace(), 5, "{} is now a member of {}", intf_.stringValue(), lag.stringValue());
  lag_ = lag;
}

void EthPhyIntfLagConfigAclSm::doRemoveLagData() {
  BLIP(aclTrace(), 5, "{} left {}", intf_.stringValue(), lag_.stringValue());
  lag_ = {};
}

void EthPhyIntfLagConfigAclSm::doUpdateAclSms(const Nexo::IntfId& oldLag) {
  BLIP(aclTrace(), 4, "Acl on {}", intf_.stringValue());
  for (const auto& [type, typeSm] : root_->aclTypeConfigSm()) {
    for (auto direction : {Acl::AclDirection::aclIn, Acl::AclDirection::aclOut}) {
      typeSm->directionSm(direction).handleAclIntfConfig(intf_);
    }
  }
  // A LAG's sub-interfaces are programmed on its members.
  for (const auto& lag : {oldLag, lag_}) {
    auto subIntfs = root_->lagToSubIntfMap().find(lag);
    if (subIntfs == root_->lagToSubIntfMap().end()) continue;
    for (const auto& subIntf : subIntfs->second) root_->reapplyAt(subIntf, "LAG membership changed for ");
  }
}

}  // namespace Orb
