// The ACL helper a chip layer implements: the library compiles each ACL
// instance rule by rule into subrules and offers each to the helper (which
// says whether the chip can hold it), then commits the instance and binds it
// to interfaces. A commit answers a status word (AclHwStatus) and the chip
// or unit that gave it.
//
// A chip whose operations finish later says so with
// deferredOperationsSupported(); it then reports each finished operation
// through opsCompleted(), and the library waits for all it asked for before
// its next step.
#pragma once

#include "Orb/OrbAclTypes.h"
#include "Orb/OrbBaseHelper.h"

#include <functional>
#include <string>

namespace OrbHelper {

class AclHelper : public Orb::OrbBaseHelper {
 public:
  using AclData = Orb::AclData;
  using AclDataStatus = Orb::AclDataStatus;
  using AclRule = Orb::AclRule;
  using AclSubrule = Orb::AclSubrule;
  using IntfPairKey = Orb::IntfPairKey;
  using OpsCompletedHandler = std::function<void(std::uint32_t)>;

  explicit AclHelper(const std::string& name = "AclHelper") : OrbBaseHelper(name) {}

  // Who hears finished deferred operations: the ACL root machine.
  void opsCompletedHandlerIs(OpsCompletedHandler handler) { opsCompletedHandler_ = std::move(handler); }
  void opsCompleted(std::uint32_t count = 1) {
    if (opsCompletedHandler_) opsCompletedHandler_(count);
  }

  virtual void hwInit() {}
  // Building an instance: precreateAcl first, then one call per subrule in
  // rule order (a subrule names its rule by index in data.rules), the final
  // rule last. Each create answers whether the chip
  // can hold the subrule.
  virtual void precreateAcl(AclData&, AclDataStatus&) {}
  virtual bool createIpAclSubrule(Acl::AclType, const AclRule&, const AclSubrule&, std::uint32_t /*uniqueId*/,
                                  AclData&) {
    return ORB_UNIMPLEMENTED(AclHelper, createIpAclSubrule);
  }
  virtual bool createIpFragRule(AclData&, const AclRule&, const AclSubrule&, std::uint32_t /*uniqueId*/) {
    return ORB_UNIMPLEMENTED(AclHelper, createIpFragRule);
  }
  virtual bool createMacAclRule(const AclRule&, const AclSubrule&, std::uint32_t /*uniqueId*/, AclData&) {
    return ORB_UNIMPLEMENTED(AclHelper, createMacAclRule);
  }
  virtual bool createFinalAclRule(Acl::AclType, AclData&, const AclRule&, const AclSubrule&) {
    return ORB_UNIMPLEMENTED(AclHelper, createFinalAclRule);
  }
  // Hands the built instance to the chip: new, or replacing the version
  // the chip holds.
  virtual Orb::AclHwResult commitAcl(AclData&) { return ORB_UNIMPLEMENTED(AclHelper, commitAcl); }
  // Takes an instance out of the chip (its bindings with it).
  virtual void removeAcl(AclData&) { ORB_UNIMPLEMENTED(AclHelper, removeAcl); }
  virtual void cleanupAcl(AclData&) {}
  virtual void destroyAcl(AclData&) {}

  // Binding an installed instance to an interface; true on success.
  virtual bool addIntfToAcl(const IntfPairKey&, AclData&, AclDataStatus&) {
    return ORB_UNIMPLEMENTED(AclHelper, addIntfToAcl);
  }
  // `belongsToAnother`: another instance holds the interface's slot now;
  // the chip forgets this instance's binding without freeing the slot.
  virtual void removeIntfFromAcl(const IntfPairKey&, AclData&, bool /*belongsToAnother*/) {
    ORB_UNIMPLEMENTED(AclHelper, removeIntfFromAcl);
  }
  virtual bool intfSupportsAcl(const Nexo::IntfId&) { return true; }
  // Whether the instance holds the interface's slot in its direction now:
  // a port moved to another list may be bound by the other's instance
  // before this one lets go of it.
  virtual bool aclOwner(const Nexo::IntfId&, const Orb::AclKey&) { return true; }

  // Drops (or lets through again) all traffic of an interface while its
  // ACL is replaced on a chip that cannot swap an ACL in one step.
  virtual void blockIntf(const Nexo::IntfId&, bool /*block*/, const std::string& /*unit*/) {}
  // Whether traffic passes rather than being blocked during an update;
  // `paramConfig` is what the configuration asks for.
  virtual bool getPermitDuringAclUpdate(bool paramConfig) { return paramConfig; }

  // Packets the rule matched on `chip` since the previous call.
  virtual std::uint64_t aclRuleCountersSinceLastPoll(const AclData&, const std::string& /*chip*/,
                                                     std::uint32_t /*uniqueId*/) {
    return 0;
  }
  // The chips (or units) that count; none when the chip has no counters.
  virtual std::vector<std::string> counterChips() { return {}; }

  // Queries that shape compilation.
  virtual bool establishedSupported() { return false; }
  virtual std::uint8_t supportedTcpFlagsDefault() { return 0; }
  virtual bool needToInstallIcmp6NeighborDiscoveryRules() { return false; }
  virtual bool subIntfAclSharingSupported(const Orb::AclKey&) { return true; }
  virtual bool ipPortRangeSubruleExists(const Orb::AclKey&, const Acl::PortMatch&) { return false; }
  virtual bool deferredOperationsSupported() { return false; }
  virtual bool asyncAclConfig() { return false; }

 private:
  OpsCompletedHandler opsCompletedHandler_;
};

class AclHelperCallbackData : public Orb::OrbBaseHelper {
 public:
  explicit AclHelperCallbackData(const std::string& name = "AclHelperCallbackData") : OrbBaseHelper(name) {}
};

}  // namespace OrbHelper
