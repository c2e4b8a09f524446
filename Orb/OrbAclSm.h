// The ACL machines. A tree that mirrors the configuration:
//
//   AclSm                       root: the helper, the dirty list, applying
//    └ AclTypeConfigSm          one per ACL type (ip, ipv6, mac)
//       ├ AclDirectionTypeConfigSm   one per direction: interface bindings,
//       │                            the pool of free hardware ACL numbers
//       └ AclConfigSm           one per configured list (OrbAclConfigSm.h)
//
// Any change of a list's configuration, of where it is applied, of an
// interface's internal VLAN, switch-port mode, access VLAN or speed, or of
// LAG membership makes instances dirty;
// AclSm::doApplyAcls then takes out the instances applied nowhere, builds
// the dirty ones and commits them, in three passes, and records each
// outcome as a status text. With a chip whose operations finish later the
// same passes run as phases, each waiting for the chip.
#pragma once

#include "Orb/OrbAclConfigSm.h"
#include "Orb/OrbAclCounters.h"
#include "Orb/OrbAclHelper.h"
#include "Orb/OrbAclIntfSm.h"
#include "Orb/OrbAclLagSm.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbMacAddrSmInputs.h"
#include "platform/hive/Hive.h"
#include "platform/model/Acl.h"
#include "platform/vex/Clock.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace Orb {

// What the ACL machines read and write, filled by AclMounter from the
// state database or by the caller.
struct AclSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::AclHelper> orbHelper;
  Vex::Ptr<Acl::Config> aclConfig;
  Vex::Ptr<Acl::Status> aclStatus;
  // Port speeds: a port's lists are rebuilt when its speed changes. None
  // when nobody publishes them.
  Vex::Ptr<Interface::EthPhyIntfStatusDir> ethPhyIntfStatusDir;
  // Switch-port modes and access VLANs: a port's lists are rebuilt when
  // either changes. None when nobody publishes them.
  Vex::Ptr<Bridging::Config> bridgingConfig;
};

class AclTypeConfigSm;

// One direction of one type: which list each interface applies, and the
// hardware ACL numbers handed to its instances.
class AclDirectionTypeConfigSm : public OrbBaseSm {
 public:
  // Numbers run from 1 to this; a released number is handed out again
  // first in, first out.
  static constexpr std::uint32_t maxAclNumber = 1024;

  AclDirectionTypeConfigSm(Acl::AclDirection direction, AclTypeConfigSm* typeSm);
  ~AclDirectionTypeConfigSm() override;
  const char* fwkType() const override { return "Orb::AclDirectionTypeConfigSm"; }
  Acl::AclDirection direction() const { return direction_; }

  // The list applied at each interface in this direction.
  const std::map<Nexo::IntfId, std::string>& binding() const { return binding_; }
  // The interface's list changed (or the interface's LAG did). For a LAG,
  // each of its members.
  void handleAclIntfConfig(const Nexo::IntfId& intf);
  // The list the interface applies in this direction: a LAG member's
  // LAG's when it has one, else its own.
  std::string wantedAcl(const Nexo::IntfId& intf) const;
  // A port moved between LAGs: its binding moves with it.
  void updateAclOnLagMember(const Nexo::IntfId& member, const Nexo::IntfId& oldLag, const Nexo::IntfId& newLag);
  // A list came: the interfaces already naming it bind now.
  void bindWaiting(const std::string& aclName);
  // The type's sharing changed: every binding moves to the instance it
  // belongs to now.
  void rebindAll();
  IntfPairKey intfPair(const Nexo::IntfId& intf) const;
  // Where the interface's list is bound now.
  IntfPairKey boundAt(const Nexo::IntfId& intf) const {
    auto it = boundAt_.find(intf);
    return it == boundAt_.end() ? IntfPairKey{} : it->second;
  }

  // The pool of free numbers: a queue by index.
  std::uint32_t allocateAclNumber();
  void releaseAclNumber(std::uint32_t number);
  void freeAclIs(std::uint32_t index, std::uint32_t value);
  void freeAclDel(std::uint32_t index);
  void freeAclPush(std::uint32_t value);
  std::uint32_t freeAclPop();
  std::uint32_t freeAcl(std::uint32_t index) const;
  const FreeAclMetadata& freeAclMetadata() const { return freeAclMetadata_; }

 private:
  Acl::AclDirection direction_;
  AclTypeConfigSm* typeSm_;
  std::map<Nexo::IntfId, std::string> binding_;
  std::map<Nexo::IntfId, IntfPairKey> boundAt_;
  std::map<std::uint32_t, std::uint32_t> freeAcl_;
  FreeAclMetadata freeAclMetadata_;
  std::uint32_t nextFreshNumber_ = 1;
};

class AclTypeConfigSm : public OrbBaseSm {
 public:
  AclTypeConfigSm(Acl::AclType type, AclSm* root);
  ~AclTypeConfigSm() override;
  const char* fwkType() const override { return "Orb::AclTypeConfigSm"; }
  Acl::AclType type() const { return type_; }
  AclSm* root() const { return root_; }

  const Vex::Ptr<Acl::AclTypeConfig>& aclTypeConfig() const { return aclTypeConfig_; }
  const Vex::Ptr<Acl::AclIntfTypeConfig>& aclIntfTypeConfig() const { return aclIntfTypeConfig_; }
  void aclTypeConfigIs(const Vex::Ptr<Acl::AclTypeConfig>& config);
  void aclIntfTypeConfigIs(const Vex::Ptr<Acl::AclIntfTypeConfig>& config);

  const std::map<std::string, Vex::Ptr<AclConfigSm>>& aclConfigSm() const { return configSms_; }
  AclConfigSm* aclConfigSm(const std::string& name) const;
  AclDirectionTypeConfigSm& directionSm(Acl::AclDirection direction) const;

  void handleAcl(const std::string& name);
  void handleIntf(const Nexo::IntfId& intf);
  void handleSharing();
  void handleInitialized() override;

 private:
  class TypeConfigReactor;
  class IntfTypeConfigReactor;
  Acl::AclType type_;
  AclSm* root_;
  Vex::Ptr<Acl::AclTypeConfig> aclTypeConfig_;
  Vex::Ptr<Acl::AclIntfTypeConfig> aclIntfTypeConfig_;
  std::unique_ptr<TypeConfigReactor> typeConfigReactor_;
  std::unique_ptr<IntfTypeConfigReactor> intfTypeConfigReactor_;
  std::map<std::string, Vex::Ptr<AclConfigSm>> configSms_;
  Vex::Ptr<AclDirectionTypeConfigSm> directionSms_[2];
  bool sharing_ = true;
};

class AclSm : public OrbBaseSm {
 public:
  // The steps of an apply on a chip whose operations finish later.
  enum class AclApplyPhase : std::uint8_t { Done = 0, Uninstall = 1, Prepare = 2, Commit = 3, Unblock = 4 };

  explicit AclSm(const AclSmInputs& inputs);
  ~AclSm() override;
  const char* fwkType() const override { return "Orb::AclSm"; }

  const Vex::Ptr<OrbHelper::AclHelper>& aclHelper() const { return in_.orbHelper; }
  const Vex::Ptr<Acl::Status>& aclStatus() const { return in_.aclStatus; }
  const std::map<Acl::AclType, Vex::Ptr<AclTypeConfigSm>>& aclTypeConfigSm() const { return typeSms_; }
  AclTypeConfigSm* aclTypeConfigSm(Acl::AclType type) const;

  void handleInitialized() override;
  void handleAclTypeConfig(Acl::AclType type);
  void handleAclIntfTypeConfig(Acl::AclType type);
  void handlePortToLag(const Nexo::IntfId& intf);
  void handleInternalVlan(const Nexo::IntfId& intf);
  void handleIntfConfigOnSpeedChange(const Nexo::IntfId& intf);
  void handleSwitchIntfConfig(const Nexo::IntfId& intf);

  // Applies every pending change; with `forceRecreateAll` every instance
  // is built again.
  void doApplyAcls(bool forceRecreateAll);
  bool updatingAcls() const { return updatingAcls_; }
  Vex::Seconds startTime() const { return startTime_; }
  std::uint64_t applies() const { return applies_; }
  // The status text of a status word answered by `chip`.
  std::string doSetHwStatus(AclData& data, const std::string& chip);

  // The deferred updater: dirty instances found outside an apply.
  const std::set<AclKey>& dirtyAcls() const { return dirtyAcls_; }
  void handleDirtyAcl(const AclKey& key, bool dirty);
  void handleTime();
  std::uint64_t deferredUpdates() const { return deferredUpdates_; }

  // Phases, when the chip defers its operations.
  AclApplyPhase aclApplyPhase() const { return aclApplyPhase_; }
  void aclApplyPhaseIs(AclApplyPhase phase);
  void handleAclDataOpsCompleted(std::uint32_t count);
  std::uint32_t opsRequested() const { return opsRequested_; }
  std::uint32_t opsCompleted() const { return opsCompleted_; }
  // The chip was asked for one more operation in the current phase.
  void opRequested() { ++opsRequested_; }
  const std::set<AclKey>& unblockAcls() const { return unblockAcls_; }
  void unblockAclIs(const AclKey& key) { unblockAcls_.insert(key); }

  // Interfaces taken out of service (cause "acl").
  void doErrdisable(const Nexo::IntfId& intf, bool on);

  // Blocking while instances are replaced on a chip that acknowledges
  // later: every interface of a replaced instance drops its traffic from
  // the build until the unblock phase, unless traffic is to be permitted
  // during updates.
  bool permitDuringAclUpdate() const;
  void blockedIntfIs(const Nexo::IntfId& intf, bool block);
  const std::set<Nexo::IntfId>& blockedIntfInternal() const { return blockedIntfInternal_; }
  // The blocking state of the interfaces instances want blocked.
  AclIntfSm* aclIntfSm(const Nexo::IntfId& intf) const;
  AclIntfSm& aclIntfSmIs(const Nexo::IntfId& intf);

  // Sub-interfaces with an ACL, by the LAG they belong to: their bindings
  // follow the LAG's members.
  const std::map<Nexo::IntfId, std::set<Nexo::IntfId>>& lagToSubIntfMap() const { return lagToSubIntfMap_; }
  bool lagToSubIntfMapHas(const Nexo::IntfId& lag) const { return lagToSubIntfMap_.count(lag) != 0; }
  void lagToSubIntfIs(const Nexo::IntfId& subIntf, bool bound);
  // A LAG sub-interface's lists changed: it joins or leaves the map.
  void lagSubIntfBindingChanged(const Nexo::IntfId& subIntf);
  // Marks the instances applied at `intf` for building again.
  void reapplyAt(const Nexo::IntfId& intf, const char* why);

  // Reads rule counters from the chip into the status, every period.
  AclCountersPoller& countersPoller() const { return *countersPoller_; }

 private:
  class ConfigReactor;
  class CommonReactor;
  class SpeedReactor;
  class SwitchportReactor;
  void forEachConfigSm(const std::function<void(AclConfigSm&)>& f);
  bool anyConfigSm(bool (AclConfigSm::*pred)() const);
  void recordOutcomes();
  void logOutcome(AclData& data, std::uint32_t previousStatus, bool wasInstalled);
  void doAclDonePhase();
  void doAclUninstallPhase();
  void doAclPreparePhase();
  void doAclCommitPhase();
  void doAclUnblockPhase();
  void advancePhase();
  // Blocks the interfaces of the installed instances about to be rebuilt.
  void blockReplacedInstances();

  AclSmInputs in_;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<CommonReactor> commonReactor_;
  std::unique_ptr<SpeedReactor> speedReactor_;
  std::unique_ptr<SwitchportReactor> switchportReactor_;
  // The switch-port configuration each port had when last seen.
  std::map<Nexo::IntfId, Bridging::SwitchIntfConfig> switchIntfConfig_;
  std::map<Acl::AclType, Vex::Ptr<AclTypeConfigSm>> typeSms_;
  std::set<AclKey> dirtyAcls_;
  Vex::Ptr<Vex::Clock> updaterClock_;
  std::uint64_t deferredUpdates_ = 0;
  std::uint64_t applies_ = 0;
  bool updatingAcls_ = false;
  Vex::Seconds startTime_ = 0;
  AclApplyPhase aclApplyPhase_ = AclApplyPhase::Done;
  std::uint32_t opsRequested_ = 0;
  std::uint32_t opsCompleted_ = 0;
  bool applyAgain_ = false;
  std::set<AclKey> unblockAcls_;
  std::set<AclKey> resourceFull_;
  Vex::Ptr<AclCountersPoller> countersPoller_;
  std::set<Nexo::IntfId> blockedIntfInternal_;
  std::map<Nexo::IntfId, Vex::Ptr<AclIntfSm>> aclIntfSms_;
  std::map<Nexo::IntfId, std::set<Nexo::IntfId>> lagToSubIntfMap_;
  std::map<Nexo::IntfId, Vex::Ptr<EthPhyIntfLagConfigAclSm>> lagSms_;
};

Vex::Ptr<AclSm> aclSmFactory(const AclSmInputs& inputs);

class AclMounter {
 public:
  AclMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
             const Vex::Ptr<OrbHelper::AclHelper>& orbHelper);
  void doMounts();
  AclSmInputs& inputs() { return inputs_; }
  Vex::Ptr<AclSm> doMountsComplete();

  static constexpr const char* aclConfigPath = "acl/config";
  static constexpr const char* aclStatusPath = "acl/status";
  static constexpr const char* ethPhyIntfStatusPath = MacAddrSmMounter::ethPhyIntfStatusPath;
  static constexpr const char* bridgingConfigPath = MacAddrSmMounter::bridgingConfigPath;

 private:
  Vex::Ptr<Hive::Root> hive_;
  AclSmInputs inputs_;
};

// The status text of a status word: "Succeeded install on " and the others
// that name the chip end with it.
std::string aclHwStatusText(std::uint32_t status, const std::string& chip);

}  // namespace Orb
