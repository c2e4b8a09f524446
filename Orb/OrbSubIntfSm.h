// Sub-interfaces: maps each sub-interface's 802.1Q encapsulation on its
// parent port or LAG to the VLAN it forwards in, through the chip layer's
// VLAN-translation entries, and writes back what hardware took.
//
// A sub-interface is programmed when its configuration and status are both
// there and usable (isConfigAndStatusReady) and its status asks for it
// (subIntfStatusIsOKToAddMap). Before that it must clear two checks: no
// other sub-interface of the same parent holds the same encapsulation (tag
// conflict), and its VLAN does not collide with another sub-interface's
// (a routed one owns its VLAN alone; layer-2 ones share theirs). A
// sub-interface that fails either waits in `conflictedIntf`, and the whole
// queue is tried again `retryInterval` seconds later, for as long as it is
// not empty; a mapping hardware refused as busy or full waits the same way.
//
// Special cases:
// - a pseudowire port connector (listed in the local connector table) is
//   programmed as a layer-2 mapping into the pseudowire's VLAN; it claims
//   no VLAN and never conflicts, since the pseudowire agent owns that VLAN;
// - a MACsec proxy sub-interface carries another interface's traffic
//   through the MACsec engine, so its mapping goes into hardware only while
//   the proxy status names it, and comes out when the proxy is withdrawn;
// - an encapsulation learned at run time (dynamicEncapIs) takes the place
//   of the configured one until it is withdrawn.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbSubIntfTypes.h"
#include "Orb/OrbVerify.h"
#include "platform/hive/Hive.h"
#include "platform/model/SubIntf.h"
#include "platform/vex/Clock.h"

#include <boost/unordered_map.hpp>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Orb {

// What the sub-interface machine reads and writes, filled by
// SubIntfMounter from the state database or by the caller.
struct SubIntfSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::OrbHelperSubIntf> orbHelper;
  Vex::Ptr<Interface::SubIntfConfigDir> subIntfConfigDir;
  Vex::Ptr<Interface::SubIntfStatusDir> subIntfStatusDir;
  Vex::Ptr<Pseudowire::LocalConnectorInfoTable> localConnectorInfoTable;
  Vex::Ptr<MacsecProxy::Status> macsecProxyStatus;
  Vex::Ptr<Hardware::SubIntf::Config> hwConfig;
  Vex::Ptr<Hardware::SubIntf::Status> hwStatus;
};

class OrbSubIntfSm : public OrbBaseSm, public Verifiable {
 public:
  using Dot1qEncapAndVlanId = Hardware::SubIntf::Dot1qEncapAndVlanId;
  // One second: a conflict clears when an operator or another agent moves
  // the other sub-interface away, which a person sees complete within a
  // second or two, while one pass over the queue per second costs nothing
  // even with thousands of sub-interfaces waiting.
  static constexpr double defaultRetryInterval = 1.0;

  explicit OrbSubIntfSm(const SubIntfSmInputs& inputs);
  ~OrbSubIntfSm() override;
  const char* fwkType() const override { return "Orb::OrbSubIntfSm"; }

  const SubIntfSmInputs& inputs() const { return in_; }
  const VlanIdToIntfIdMap& vlanIdToIntfIdMap() const { return vlanIdToIntfIdMap_; }
  // Maps a sub-interface's every change looks into are hashed: thousands of
  // sub-interfaces come up at once, and none of these is walked in order.
  const Vex::HashMap<ParentIntfIdAndDot1qEncap, Nexo::IntfId>& parentIntfIdAndDot1qEncapMap() const {
    return parentIntfIdAndDot1qEncapMap_;
  }
  const Vex::HashMap<Nexo::IntfId, Dot1qEncapAndVlanId>& hwIntfToDot1qEncapAndVlanIdConfig() const {
    return in_.hwConfig->intfIdToDot1qEncapAndVlanId();
  }
  const Vex::HashMap<Nexo::IntfId, Bridging::VlanIdOrNone>& subIntfIdToInternalVlanId() const {
    return subIntfIdToInternalVlanId_;
  }
  const std::map<Nexo::IntfId, Bridging::VlanIdOrNone>& pwIntfIdToVlanId() const { return pwIntfIdToVlanId_; }
  const std::map<Nexo::IntfId, bool>& pwIntfIdProgrammedInHw() const { return pwIntfIdProgrammedInHw_; }
  const std::map<Nexo::IntfId, SubIntfEncap>& dynamicEncap() const { return dynamicEncap_; }
  const std::map<Nexo::IntfId, SubIntfEncap>& dynamicEncapStatus() const { return dynamicEncapStatus_; }
  const std::map<Nexo::IntfId, Nexo::IntfId>& macsecProxySubIntf() const { return macsecProxySubIntf_; }
  const std::map<Nexo::IntfId, bool>& conflictedIntf() const { return conflictedIntf_; }
  // Mappings hardware refused as busy or full, tried again with the queue.
  const std::set<Nexo::IntfId>& hwRetryIntf() const { return hwRetryIntf_; }

  double retryInterval() const { return retryInterval_; }
  void retryIntervalIs(double seconds) { retryInterval_ = seconds > 0 ? seconds : defaultRetryInterval; }
  bool retryTimerArmed() const { return retryArmed_; }
  bool disableVerify() const { return disableVerify_; }
  void disableVerifyIs(bool disable) { disableVerify_ = disable; }
  // Verification failures recorded with where they were found, when the
  // switch runs as a simulation (SIMULATION_VMID set).
  const std::vector<std::string>& verificationFailures() const { return verificationFailures_; }

  // The VLAN a sub-interface (or pseudowire end point) forwards in; none
  // when it is not programmed.
  Bridging::VlanIdOrNone mapIntfIdToVlanId(const Nexo::IntfId& intf) const;
  // The routed sub-interface that owns `vlan`, or none. Throws
  // Vex::RangeError above 4094.
  std::optional<Nexo::IntfId> mapRoutedVlanIdToIntfId(std::uint32_t vlan) const;

  // The configuration and the status are both there, the status is
  // initialized, and there is an encapsulation and a VLAN to map.
  bool isConfigAndStatusReady(const Nexo::IntfId& intf) const;
  // The interface agent asks for hardware (programInHw). The operational
  // state is traced but not required: a link that flaps must not churn the
  // translation table, and a down port forwards nothing anyway.
  bool subIntfStatusIsOKToAddMap(const Interface::SubIntfStatus& status) const;

  void handleInitialized() override;
  // Switched back on: entities that came or went while muted get their
  // reactors (nothing is programmed until they change).
  void hasNotificationActiveIs(bool active) override;
  void handleSubIntfConfigAndStatusChange(const Nexo::IntfId& intf);
  void handleDynamicEncap(const Nexo::IntfId& intf);
  void handleMacsecProxySubIntfStatus(const Nexo::IntfId& intf);
  // Every sub-interface of the parent `intf` is looked at again.
  void handleMultiEncapIntf(const Nexo::IntfId& intf);
  // `port` joined or left a LAG: the chip matches a LAG's encapsulations on
  // its members, so it hears of members of LAGs that carry sub-interfaces.
  void handlePortToLag(const Nexo::IntfId& port);
  void handlePwEndPoint(const Nexo::IntfId& intf);
  // True when `intf` conflicts and was queued for a retry (armed when
  // `retry`).
  bool checkConflictAndRetry(const Nexo::IntfId& intf, bool retry);
  void retryConflictedIntfs();

  void dynamicEncapIs(const Nexo::IntfId& intf, const SubIntfEncap& encap);
  void dynamicEncapDel(const Nexo::IntfId& intf);

  std::string verifyName() const override { return "OrbSubIntfSm"; }
  void handleVerify(VerifyReport& report) override;
  void handleVerify();
  void verifyHwConfig(const Nexo::IntfId& intf, VerifyReport& report);
  void verifyHwStatus(const Nexo::IntfId& intf, const Nexo::IntfId& parentIntf, VerifyReport& report);
  void verifyParentIntfIdAndDot1qEncapMap(const Nexo::IntfId& intf, const Nexo::IntfId& parentIntf,
                                          VerifyReport& report);

 private:
  class ConfigDirReactor;
  class StatusDirReactor;
  class ConnectorReactor;
  class MacsecReactor;
  class OcsdReactor;

  // One sub-interface's configuration and status as published (null when
  // absent), looked up once per reaction and handed down.
  struct Published {
    Interface::SubIntfConfig* config = nullptr;
    Interface::SubIntfStatus* status = nullptr;
  };
  struct Watch;
  // An attribute change of a watched configuration or status. These are
  // the machine's most numerous reactors, one pair per sub-interface, so
  // they do not join the machine's reactor list (a registration each, and a
  // walk of the list for each one going): they ask the machine whether it
  // is reacting when they fire, which is what its mute and zombie flags
  // would have told them.
  template <class E>
  class WatchReactor : public E::Notifiee {
   public:
    WatchReactor(OrbSubIntfSm* owner, const Watch& watch) : owner_(owner), watch_(watch) {}

   protected:
    void changed() {
      if (owner_->reacting()) owner_->handleWatchedChange(this->notifier()->intfId(), watch_);
    }

   private:
    OrbSubIntfSm* owner_;
    const Watch& watch_;
  };
  class ConfigReactor : public WatchReactor<Interface::SubIntfConfig> {
   public:
    using WatchReactor::WatchReactor;
    void handleDot1qEncap() override { changed(); }
    void handleMacsecProxy() override { changed(); }
  };
  class StatusReactor : public WatchReactor<Interface::SubIntfStatus> {
   public:
    using WatchReactor::WatchReactor;
    void handleForwardingModel() override { changed(); }
    void handleForwardingVlanId() override { changed(); }
    void handleProgramInHw() override { changed(); }
    void handleInitialized() override { changed(); }
  };
  // The reactors on one sub-interface's configuration and status, made once
  // and pointed at the entities the directories hold. The directories'
  // reactors keep them in step, so that an attribute change finds both
  // entities here without a look-up.
  struct Watch {
    explicit Watch(OrbSubIntfSm* sm) : config(sm, *this), status(sm, *this) {}
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    Published published() const { return {config.notifier().get(), status.notifier().get()}; }
    ConfigReactor config;
    StatusReactor status;
  };

  Published published(const Nexo::IntfId& intf) const;
  // A directory added or removed one entity: the other one is the watch's
  // when `intf` is watched, with no look-up.
  void handleConfigDirChange(const Nexo::IntfId& intf);
  void handleStatusDirChange(const Nexo::IntfId& intf);
  void handleDirChange(const Nexo::IntfId& intf, bool config);
  // The encapsulation in force: a learned one, else the configured one.
  SubIntfEncap effectiveEncap(const Nexo::IntfId& intf) const;
  SubIntfEncap effectiveEncap(const Nexo::IntfId& intf, const Interface::SubIntfConfig* config) const;
  bool isConfigAndStatusReady(const Nexo::IntfId& intf, const Published& now) const;
  // The mapping `intf` should have in hardware now, without the checks.
  std::optional<Dot1qEncapAndVlanId> wantedMapping(const Nexo::IntfId& intf) const;
  std::optional<Dot1qEncapAndVlanId> wantedMapping(const Nexo::IntfId& intf, const Published& now) const;
  bool checkConflictAndRetry(const Nexo::IntfId& intf, const Published& now, bool retry);
  // An attribute of a watched configuration or status changed.
  void handleWatchedChange(const Nexo::IntfId& intf, const Watch& watch);
  void handleChange(const Nexo::IntfId& intf, const Published& now);
  void handlePwEndPoint(const Nexo::IntfId& intf, const Published& now);
  void doAddDot1qEncapToVsiMap(const Nexo::IntfId& intf, const Dot1qEncapAndVlanId& entry, bool pwEndPoint);
  void doDeleteDot1qEncapToVsiMap(const Nexo::IntfId& intf);
  void doUpdateSubIntfTableAddStatus(const Nexo::IntfId& intf, const Dot1qEncapAndVlanId& entry, std::uint32_t status);
  void armRetryTimer();
  Watch* syncReactors(const Nexo::IntfId& intf, const Published& now);
  void syncLagMembers(const Nexo::IntfId& lag);
  void updateStatuses();
  void mismatch(VerifyReport& report, std::string line, int sourceLine);

  SubIntfSmInputs in_;
  VlanIdToIntfIdMap vlanIdToIntfIdMap_;
  Vex::HashMap<ParentIntfIdAndDot1qEncap, Nexo::IntfId> parentIntfIdAndDot1qEncapMap_;
  // Programmed entries per LAG parent, and status entries the chip took.
  std::map<Nexo::IntfId, std::size_t> carriedByLag_;
  std::optional<std::size_t> hwSucceeded_;
  std::size_t hwSucceeded();
  void hwSucceededAdjust(const Nexo::IntfId& intf, bool succeeded);
  void carriedByLagDec(const Nexo::IntfId& parentIntf);
  // What the machine programmed for `intf` (its entry in hwConfig), or null.
  const Dot1qEncapAndVlanId* programmed(const Nexo::IntfId& intf) const;
  bool programmedAsPwEndPoint(const Nexo::IntfId& intf) const { return pwIntfIdToVlanId_.count(intf) != 0; }
  Vex::HashMap<Nexo::IntfId, Bridging::VlanIdOrNone> subIntfIdToInternalVlanId_;
  std::map<Nexo::IntfId, Bridging::VlanIdOrNone> pwIntfIdToVlanId_;
  std::map<Nexo::IntfId, bool> pwIntfIdProgrammedInHw_;
  std::map<Nexo::IntfId, SubIntfEncap> dynamicEncap_;
  std::map<Nexo::IntfId, SubIntfEncap> dynamicEncapStatus_;
  std::map<Nexo::IntfId, Nexo::IntfId> macsecProxySubIntf_;
  std::map<Nexo::IntfId, bool> conflictedIntf_;
  std::set<Nexo::IntfId> hwRetryIntf_;
  // LAG members the chip was told of, by member.
  std::map<Nexo::IntfId, Nexo::IntfId> lagMemberTold_;
  double retryInterval_ = defaultRetryInterval;
  bool retryArmed_ = false;
  bool disableVerify_ = false;
  std::optional<std::pair<bool, bool>> lastStatuses_;
  std::vector<std::string> verificationFailures_;
  Vex::Ptr<Vex::Clock> clock_;
  std::unique_ptr<ConfigDirReactor> configDirReactor_;
  std::unique_ptr<StatusDirReactor> statusDirReactor_;
  // Hashed, with nodes that stay put: the reactors hold their watch.
  boost::unordered_map<Nexo::IntfId, Watch> watch_;
  std::unique_ptr<ConnectorReactor> connectorReactor_;
  std::unique_ptr<MacsecReactor> macsecReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
};

Vex::Ptr<OrbSubIntfSm> orbSubIntfSmFactory(const SubIntfSmInputs& inputs);

// Mounts the sub-interface machine's inputs from the state database and
// starts the machine once they are all there.
class SubIntfMounter {
 public:
  SubIntfMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                 const Vex::Ptr<OrbHelper::OrbHelperSubIntf>& orbHelper);
  void doMounts();
  SubIntfSmInputs& inputs() { return inputs_; }
  Vex::Ptr<OrbSubIntfSm> doMountsComplete();

  static constexpr const char* subIntfConfigPath = "interface/config/subintf";
  static constexpr const char* subIntfStatusPath = "interface/status/subintf";
  static constexpr const char* localConnectorPath = "pseudowire/localConnectorInfo";
  static constexpr const char* macsecProxyStatusPath = "macsec/proxy/status";
  static constexpr const char* hwConfigPath = "hardware/subintf/config";
  static constexpr const char* hwStatusPath = "hardware/subintf/status";

 private:
  Vex::Ptr<Hive::Root> hive_;
  SubIntfSmInputs inputs_;
};

}  // namespace Orb
