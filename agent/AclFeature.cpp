#include "agent/AclFeature.h"

namespace Agent {

AclFeature::AclFeature(const AgentCore& core) : Feature(core) {
  helper_ = Vex::make<SoftChip::SoftAclHelper>(chip_);
  Orb::AclMounter mounter(hive_, ocsd_, helper_);
  mounter.doMounts();
  config_ = mounter.inputs().aclConfig;
  status_ = mounter.inputs().aclStatus;
  sm_ = mounter.doMountsComplete();
  errdisableWatch_ = std::make_unique<ErrdisableWatch>(status_, *chip_);
}

AclFeature::~AclFeature() {
  errdisableWatch_.reset();
  sm_.reset();
  helper_.reset();
}

void AclFeature::registerCommands() {
  registerListCommands();
  registerShowCommands();
}

void AclFeature::ErrdisableWatch::handleErrdisabledIntf(const Nexo::IntfId& intf) {
  if (notifier()->errdisabledIntf(intf)) {
    chip_.portDisabledIs(intf, "acl");
  } else {
    chip_.portDisabledDel(intf);
  }
}

std::uint32_t AclFeature::nextUniqueId(Acl::AclType type, const std::string& name) {
  return ++uniqueIds_[{type, name}];
}

}  // namespace Agent
