// ACLs used as mirroring filters (source ACLs): machines that follow the
// ACL configuration per type and per list, and tell the mirroring machine
// by name when a list came, went or was edited, so that the sources
// filtering by it are programmed again.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "platform/model/Acl.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace Orb {

using MirAclChangeHandler = std::function<void(const std::string& aclName)>;

// Only these types filter mirrored traffic.
inline bool isMirroringAclType(Acl::AclType aclType) {
  return aclType == Acl::ip() || aclType == Acl::mac() || aclType == Acl::ipv6();
}

// One list: every completed edit (a version bump) is a change.
class MirAclConfigSm : public OrbBaseSm {
 public:
  MirAclConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Acl::AclConfig>& aclConfig,
                 MirAclChangeHandler handler);
  ~MirAclConfigSm() override;
  const char* fwkType() const override { return "Orb::MirAclConfigSm"; }
  const Vex::Ptr<Acl::AclConfig>& aclConfig() const { return aclConfig_; }
  void handleVersion();

 private:
  class AclReactor;
  Vex::Ptr<Acl::AclConfig> aclConfig_;
  MirAclChangeHandler handler_;
  std::unique_ptr<AclReactor> reactor_;
};

// The lists of one type: a list that comes or goes is a change.
class MirAclTypeConfigSm : public OrbBaseSm {
 public:
  MirAclTypeConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Acl::AclTypeConfig>& typeConfig,
                     MirAclChangeHandler handler);
  ~MirAclTypeConfigSm() override;
  const char* fwkType() const override { return "Orb::MirAclTypeConfigSm"; }
  void handleInitialized() override;
  void handleAcl(const std::string& aclName);
  const std::map<std::string, Vex::Ptr<MirAclConfigSm>>& aclConfigSm() const { return aclConfigSm_; }

 private:
  class AclReactor;
  Vex::Ptr<Acl::AclTypeConfig> typeConfig_;
  MirAclChangeHandler handler_;
  std::map<std::string, Vex::Ptr<MirAclConfigSm>> aclConfigSm_;
  std::unique_ptr<AclReactor> reactor_;
};

// The ACL configuration root: one MirAclTypeConfigSm per filtering type.
class MirAclTypeConfigs : public OrbBaseSm {
 public:
  MirAclTypeConfigs(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Acl::Config>& aclConfig,
                    MirAclChangeHandler handler);
  ~MirAclTypeConfigs() override;
  const char* fwkType() const override { return "Orb::MirAclTypeConfigs"; }
  void handleInitialized() override;
  void handleAclTypeConfig(Acl::AclType aclType);
  const std::map<Acl::AclType, Vex::Ptr<MirAclTypeConfigSm>>& typeSm() const { return typeSm_; }

 private:
  class AclReactor;
  Vex::Ptr<Acl::Config> aclConfig_;
  MirAclChangeHandler handler_;
  std::map<Acl::AclType, Vex::Ptr<MirAclTypeConfigSm>> typeSm_;
  std::unique_ptr<AclReactor> reactor_;
};

}  // namespace Orb
