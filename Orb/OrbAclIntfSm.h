// Traffic blocking per interface while its ACLs are replaced. Each
// installed instance about to be rebuilt wants the interfaces it is applied
// at blocked until the chip holds the new version; an interface is blocked
// while any instance wants it (unless traffic is permitted during updates)
// and let go when the last one is done. Bindings themselves are kept by the
// direction machines.
#pragma once

#include "Orb/OrbAclTypes.h"
#include "Orb/OrbCommon.h"

#include <map>
#include <optional>

namespace Orb {

class AclSm;

// What the ACL machines hold of one interface: per instance, whether it
// wants the interface blocked and whether it is blocked for it.
class AclIntf {
 public:
  bool wantToBlock(const AclKey& key) const;
  void wantToBlockIs(const AclKey& key, bool want);
  bool blocked(const AclKey& key) const;
  void blockedIs(const AclKey& key, bool blocked);
  // The instances that want the interface blocked.
  std::uint32_t wantToBlocks() const;
  // An instance the interface is still blocked for, if any.
  std::optional<AclKey> blockedFor() const;
  bool empty() const { return flags_.empty(); }

 private:
  struct Flags {
    bool wantToBlock = false;
    bool blocked = false;
  };
  void tidy(std::map<AclKey, Flags>::iterator it);
  std::map<AclKey, Flags> flags_;
};

class AclIntfSm : public OrbBaseSm {
 public:
  AclIntfSm(const Nexo::IntfId& intf, AclSm* root);
  ~AclIntfSm() override;
  const char* fwkType() const override { return "Orb::AclIntfSm"; }

  const Nexo::IntfId& intf() const { return intf_; }
  const AclIntf& aclIntf() const { return aclIntf_; }
  // The instance `key` wants the interface blocked for its update, or is
  // done with it.
  void wantToBlockIs(const AclKey& key, bool want);
  void handleAclWantToBlock(const AclKey& key);

 private:
  Nexo::IntfId intf_;
  AclSm* root_;
  AclIntf aclIntf_;
};

}  // namespace Orb
