#include "agent/AclFeature.h"

namespace Agent {

AclFeature::AclFeature(const AgentCore& core) : Feature(core) {
  helper_ = Vex::make<SoftChip::SoftAclHelper>(chip_);
  Orb::AclMounter mounter(hive_, ocsd_, helper_);
  mounter.doMounts();
  config_ = mounter.inputs().aclConfig;
  status_ = mounter.inputs().aclStatus;
  sm_ = mounter.doMountsComplete();
}

AclFeature::~AclFeature() {
  sm_.reset();
  helper_.reset();
}

void AclFeature::registerCommands() {
  registerListCommands();
  registerShowCommands();
}

std::uint32_t AclFeature::nextUniqueId(Acl::AclType type, const std::string& name) {
  return ++uniqueIds_[{type, name}];
}

}  // namespace Agent
