#include "Orb/OrbMirAclConfigSm.h"

#include "Orb/OrbMirroringTrace.h"
#include "platform/vex/Reactor.h"

namespace Orb {

class MirAclConfigSm::AclReactor : public Vex::Reactor<Acl::AclConfig, MirAclConfigSm> {
 public:
  using Vex::Reactor<Acl::AclConfig, MirAclConfigSm>::Reactor;
  VEX_REACT(Version, handleVersion)
};

MirAclConfigSm::MirAclConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Acl::AclConfig>& aclConfig,
                               MirAclChangeHandler handler)
    : OrbBaseSm(ocsd), aclConfig_(aclConfig), handler_(std::move(handler)) {
  reactor_ = std::make_unique<AclReactor>(this, aclConfig_);
  initializedIs(true);
}

MirAclConfigSm::~MirAclConfigSm() {
  vexDoZombieReactors(true);
  reactor_.reset();
}

void MirAclConfigSm::handleVersion() {
  BLIP(mirroringTrace(), 6, "mirror acl {} version {}", aclConfig_->aclName(), aclConfig_->version());
  handler_(aclConfig_->aclName());
}

class MirAclTypeConfigSm::AclReactor : public Vex::Reactor<Acl::AclTypeConfig, MirAclTypeConfigSm> {
 public:
  using Vex::Reactor<Acl::AclTypeConfig, MirAclTypeConfigSm>::Reactor;
  VEX_REACT_KEY(Acl, std::string, handleAcl)
};

MirAclTypeConfigSm::MirAclTypeConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                       const Vex::Ptr<Acl::AclTypeConfig>& typeConfig, MirAclChangeHandler handler)
    : OrbBaseSm(ocsd), typeConfig_(typeConfig), handler_(std::move(handler)) {
  reactor_ = std::make_unique<AclReactor>(this, typeConfig_);
  initializedIs(true);
}

MirAclTypeConfigSm::~MirAclTypeConfigSm() {
  vexDoZombieReactors(true);
  reactor_.reset();
  aclConfigSm_.clear();
}

void MirAclTypeConfigSm::handleInitialized() {
  for (const auto& [name, acl] : typeConfig_->acl()) handleAcl(name);
}

void MirAclTypeConfigSm::handleAcl(const std::string& aclName) {
  auto acl = typeConfig_->acl(aclName);
  auto it = aclConfigSm_.find(aclName);
  if (!acl) {
    if (it == aclConfigSm_.end()) return;
    aclConfigSm_.erase(it);
  } else if (it == aclConfigSm_.end() || it->second->aclConfig() != acl) {
    aclConfigSm_[aclName] = Vex::make<MirAclConfigSm>(ocsd(), acl, handler_);
  }
  handler_(aclName);
}

class MirAclTypeConfigs::AclReactor : public Vex::Reactor<Acl::Config, MirAclTypeConfigs> {
 public:
  using Vex::Reactor<Acl::Config, MirAclTypeConfigs>::Reactor;
  VEX_REACT_KEY(AclTypeConfig, Acl::AclType, handleAclTypeConfig)
};

MirAclTypeConfigs::MirAclTypeConfigs(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Acl::Config>& aclConfig,
                                     MirAclChangeHandler handler)
    : OrbBaseSm(ocsd), aclConfig_(aclConfig), handler_(std::move(handler)) {
  if (aclConfig_) reactor_ = std::make_unique<AclReactor>(this, aclConfig_);
  initializedIs(true);
}

MirAclTypeConfigs::~MirAclTypeConfigs() {
  vexDoZombieReactors(true);
  reactor_.reset();
  typeSm_.clear();
}

void MirAclTypeConfigs::handleInitialized() {
  if (!aclConfig_) return;
  for (const auto& [type, typeConfig] : aclConfig_->aclTypeConfig()) handleAclTypeConfig(type);
}

void MirAclTypeConfigs::handleAclTypeConfig(Acl::AclType aclType) {
  if (!isMirroringAclType(aclType)) return;
  auto typeConfig = aclConfig_->aclTypeConfig(aclType);
  if (!typeConfig) {
    auto it = typeSm_.find(aclType);
    if (it == typeSm_.end()) return;
    std::vector<std::string> names;
    for (const auto& [name, sm] : it->second->aclConfigSm()) names.push_back(name);
    typeSm_.erase(it);
    for (const auto& name : names) handler_(name);
    return;
  }
  auto& sm = typeSm_[aclType];
  if (!sm) sm = Vex::make<MirAclTypeConfigSm>(ocsd(), typeConfig, handler_);
}

}  // namespace Orb
