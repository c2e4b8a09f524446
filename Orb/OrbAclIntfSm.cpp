#include "Orb/OrbAclIntfSm.h"

#include "Orb/OrbAclSm.h"

#include <algorithm>

namespace Orb {

bool AclIntf::wantToBlock(const AclKey& key) const {
  auto it = flags_.find(key);
  return it != flags_.end() && it->second.wantToBlock;
}

void AclIntf::wantToBlockIs(const AclKey& key, bool want) {
  auto it = flags_.try_emplace(key).first;
  it->second.wantToBlock = want;
  tidy(it);
}

bool AclIntf::blocked(const AclKey& key) const {
  auto it = flags_.find(key);
  return it != flags_.end() && it->second.blocked;
}

void AclIntf::blockedIs(const AclKey& key, bool blocked) {
  auto it = flags_.try_emplace(key).first;
  it->second.blocked = blocked;
  tidy(it);
}

std::uint32_t AclIntf::wantToBlocks() const {
  return static_cast<std::uint32_t>(
      std::count_if(flags_.begin(), flags_.end(), [](const auto& entry) { return entry.second.wantToBlock; }));
}

std::optional<AclKey> AclIntf::blockedFor() const {
  for (const auto& [key, flags] : flags_) {
    if (flags.blocked) return key;
  }
  return std::nullopt;
}

void AclIntf::tidy(std::map<AclKey, Flags>::iterator it) {
  if (!it->second.wantToBlock && !it->second.blocked) flags_.erase(it);
}

AclIntfSm::AclIntfSm(const Nexo::IntfId& intf, AclSm* root) : OrbBaseSm(root->ocsd()), intf_(intf), root_(root) {
  initializedIs(true);
}

AclIntfSm::~AclIntfSm() { vexDoZombieReactors(true); }

void AclIntfSm::wantToBlockIs(const AclKey& key, bool want) {
  aclIntf_.wantToBlockIs(key, want);
  handleAclWantToBlock(key);
}

void AclIntfSm::handleAclWantToBlock(const AclKey& key) {
  if (!aclIntf_.wantToBlock(key)) {
    aclIntf_.blockedIs(key, false);
    root_->blockedIntfIs(intf_, false);
    return;
  }
  const bool permit = root_->permitDuringAclUpdate();
  BLIP(aclTrace(), 5, "vlanIdToblock = none for {} and permitDuringAclUpdate = {}", intf_.stringValue(), permit);
  if (!(aclIntf_.wantToBlocks() > 0)) orbAssert("aclIntf()->wantToBlocks() > 0");
  aclIntf_.blockedIs(key, !permit);
  root_->blockedIntfIs(intf_, true);
}

}  // namespace Orb
