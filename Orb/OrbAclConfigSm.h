// One configured ACL: its compiled instances (one per direction it is
// applied in), each with the machines that follow its data and its status,
// and the compile-and-commit sequence of each instance.
#pragma once

#include "Orb/OrbAclHelper.h"
#include "Orb/OrbAclTypes.h"
#include "Orb/OrbBaseHelper.h"
#include "platform/model/Acl.h"
#include "platform/vex/Clock.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Orb {

class AclSm;
class AclTypeConfigSm;
class AclDirectionTypeConfigSm;

// Follows an instance's data: a dirty instance goes on the root's dirty
// list, for the deferred updater.
class AclDataSm : public OrbBaseSm {
 public:
  AclDataSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<AclData>& data, AclSm* root);
  ~AclDataSm() override;
  const char* fwkType() const override { return "Orb::AclDataSm"; }
  void handleDirty();

 private:
  class DataReactor;
  Vex::Ptr<AclData> data_;
  AclSm* root_;
  std::unique_ptr<DataReactor> reactor_;
};

// Follows an instance's status: writes it into the list's status in the
// state database.
class AclDataStatusSm : public OrbBaseSm {
 public:
  AclDataStatusSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<AclDataStatus>& status,
                  const Vex::Ptr<Acl::Status>& aclStatus);
  ~AclDataStatusSm() override;
  const char* fwkType() const override { return "Orb::AclDataStatusSm"; }
  void handleInitialized() override { handleStatusText(); }
  void handleStatusText();

 private:
  class StatusReactor;
  Vex::Ptr<AclDataStatus> status_;
  Vex::Ptr<Acl::Status> aclStatus_;
  std::unique_ptr<StatusReactor> reactor_;
};

class AclConfigSm : public OrbBaseSm {
 public:
  AclConfigSm(const Vex::Ptr<Acl::AclConfig>& aclConfig, AclTypeConfigSm* typeSm, AclSm* root);
  ~AclConfigSm() override;
  const char* fwkType() const override { return "Orb::AclConfigSm"; }

  const std::string& aclName() const { return aclConfig_->aclName(); }
  Acl::AclType type() const { return aclConfig_->type(); }
  bool standard() const { return aclConfig_->standard(); }
  const Vex::Ptr<Acl::AclConfig>& aclConfig() const { return aclConfig_; }
  bool destroying() const { return destroying_; }
  void destroyingIs(bool destroying) { destroying_ = destroying; }

  // Instances by key, with their status.
  const std::map<AclKey, Vex::Ptr<AclData>>& aclData() const { return data_; }
  Vex::Ptr<AclData> aclData(const AclKey& key) const;
  Vex::Ptr<AclData> aclDataIs(const AclKey& key);
  void aclDataDel(const AclKey& key);
  Vex::Ptr<AclDataStatus> aclDataStatus(const AclKey& key) const;
  Vex::Ptr<AclDataStatus> aclDataStatusIs(const AclKey& key);
  void aclDataStatusDel(const AclKey& key);

  // Binding: the list applied (or no longer) at a point in a direction.
  // portActiveIs picks the instance by the kind of binding point: ports
  // share one instance per direction unless the type's sharing is off, in
  // which case each port (each LAG, for members) has its own; VLAN
  // interfaces likewise; sub-interfaces share only where the chip can;
  // other routed interfaces (tunnels, loopbacks) always have their own.
  void portActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active, bool reapply);
  void portActiveDel(const IntfPairKey& intfPair, Acl::AclDirection direction, bool belongsToAnother);
  void sharedPortActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void unsharedPortActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void vlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void sharedVlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void unsharedVlanActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void subIntfActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  void intfActiveIs(const IntfPairKey& intfPair, Acl::AclDirection direction, bool active);
  // Whether the type's lists share one instance per direction.
  bool sharing() const;
  // The instance the binding point is applied through now, if any.
  Vex::Ptr<AclData> instanceHolding(const IntfPairKey& intfPair, Acl::AclDirection direction) const;
  // Marks the instances applied at `intf` for building again.
  void reapplyAt(const Nexo::IntfId& intf, const char* why);

  // The compile-and-commit steps, each over every instance it applies to.
  // uninstallAcl takes out the instances applied nowhere (all of them with
  // `all`); prepareAcl builds the dirty ones; commitAcl hands the prepared
  // ones to the chip and binds them.
  void uninstallAcl(bool all);
  void prepareAcl();
  void commitAcl();
  void createAclForData(AclData& data);
  bool hasInstancesToRemove() const;
  bool hasDirtyInstances() const;
  bool hasPreparedInstances() const;

  std::uint32_t uniqueIdToSeq(std::uint32_t uniqueId) const;
  void handleCurrCfg();
  void handleClearCounter();
  void handleInitialized() override;
  // Chips whose counters of this list are to be zeroed: a clear request
  // marks every chip; the marks are served at once and at the end of each
  // counter update.
  void dirtyChipIs(const std::string& chip) { dirtyChips_.insert(chip); }
  const std::set<std::string>& dirtyChips() const { return dirtyChips_; }
  void clearDirtyChip();
  // A counter update asked for through the configuration: the list's
  // ingress instances are read in bursts, continued from the clock.
  void handleCounterUpdateRequest();
  void handleCounterUpdateRequestTime();
  std::uint32_t counterBurstSize() const { return burstSize_; }
  void counterBurstSizeIs(std::uint32_t rules) { burstSize_ = rules ? rules : 1; }

 private:
  class ConfigReactor;
  struct Instance {
    Vex::Ptr<AclData> data;
    Vex::Ptr<AclDataStatus> status;
    Vex::Ptr<AclDataSm> dataSm;
    Vex::Ptr<AclDataStatusSm> statusSm;
  };
  AclDirectionTypeConfigSm& directionSm(Acl::AclDirection direction) const;
  // The direction's one shared instance, and the binding point's own.
  AclKey sharedKey(Acl::AclDirection direction) const { return {type(), aclName(), direction, {}}; }
  AclKey unsharedKey(const IntfPairKey& intfPair, Acl::AclDirection direction) const;
  // Adds a binding to an instance, creating it for the first ("Added first
  // <what> to").
  void bindAt(const AclKey& key, const IntfPairKey& intfPair, const char* what);
  // bindAt when `active`, else the binding goes from wherever it is.
  void activeIs(const AclKey& key, const IntfPairKey& intfPair, bool active, const char* what);
  void commitOne(AclData& data);
  void uninstallOne(AclData& data);
  // Rule building, in rule-sequence order.
  void createIpAclRule(AclData& data, std::uint32_t seq, const Acl::IpRuleConfig& rule);
  void createIp6AclRule(AclData& data, std::uint32_t seq, const Acl::Ip6RuleConfig& rule);
  void createMacAclRule(AclData& data, std::uint32_t seq, const Acl::MacRuleConfig& rule);
  // The subrules of one IP rule of either family: port blocks crossed,
  // TCP flags for established connections, the fragment-permit rule.
  void createIpAclRuleData(AclData& data, AclRule base, const Acl::PortMatch& sourcePort,
                           const Acl::PortMatch& destinationPort, bool established, bool fragments);
  void createFragPermitRule(AclData& data, const AclRule& base);
  // Adds a rule to the instance; its index.
  std::uint32_t ruleIs(AclData& data, const AclRule& rule);
  void offer(AclData& data, const AclSubrule& subrule);
  void checkFinalRuleStatus(AclData& data);

  Vex::Ptr<Acl::AclConfig> aclConfig_;
  AclTypeConfigSm* typeSm_;
  AclSm* root_;
  std::map<AclKey, Instance> instances_;
  std::map<AclKey, Vex::Ptr<AclData>> data_;
  std::unique_ptr<ConfigReactor> reactor_;
  bool destroying_ = false;
  // Where the on-request update stopped: after rule `seq` of `key`.
  struct CounterBookmark {
    AclKey key;
    std::uint32_t seq = 0;
  };
  std::optional<CounterBookmark> counterBookmark_;
  std::uint32_t burstSize_ = 100;
  Vex::Ptr<Vex::Clock> counterClock_;
  std::set<std::string> dirtyChips_;
};

Vex::Ptr<AclConfigSm> aclConfigSmFactory(const Vex::Ptr<Acl::AclConfig>& aclConfig, AclTypeConfigSm* typeSm,
                                         AclSm* root);

}  // namespace Orb
