// VLAN membership to hardware: per-VLAN pending updates handed to the chip
// layer one request at a time, each with a generation number the chip layer
// acknowledges (updateVlanDone). Changes that arrive while a request is in
// flight accumulate in the VLAN's pending update under a higher generation
// and go to hardware when the acknowledgement comes.
//
// The chip layer derives from VlanHelper and implements doCreateHwVlan,
// doUpdateVlan (reading the VLAN's request from `updateConfig`),
// doUpdateVlanFid and verify.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "platform/types/Bridging.h"
#include "platform/types/IntfFlagMap.h"
#include "platform/types/Nexo.h"
#include "platform/types/VlanMap.h"
#include "platform/vex/Entity.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Orb {

using Bridging::VlanId;
using Nexo::IntfId;

// What hardware has confirmed for one port.
class PortVlanMembership : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<PortVlanMembership> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(TaggedVlan, VlanId)
    VEX_KEY_HANDLER(UntaggedVlan, VlanId)
    VEX_KEY_HANDLER(IngressVlan, VlanId)
    VEX_KEY_HANDLER(EgressVlan, VlanId)
  };
  explicit PortVlanMembership(const IntfId& intf);
  const IntfId& intf() const { return intf_; }

  VEX_VLAN_SET(taggedVlan, TaggedVlan)
  VEX_VLAN_SET(untaggedVlan, UntaggedVlan)
  VEX_VLAN_SET(ingressVlan, IngressVlan)
  VEX_VLAN_SET(egressVlan, EgressVlan)

 private:
  IntfId intf_;
};

Vex::Ptr<PortVlanMembership> portVlanMembershipFactory(const IntfId& intf);

class VlanHelperBase : public OrbBaseHelper {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanHelperBase> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(VlansProgrammed)
    VEX_KEY_HANDLER(PortVlanMembership, IntfId)
  };
  using OrbBaseHelper::OrbBaseHelper;

  VEX_COUNTER(std::uint32_t, vlansProgrammed, VlansProgrammed)
  VEX_COLLECTION(IntfId, Vex::Ptr<PortVlanMembership>, portVlanMembership, PortVlanMembership)

  virtual Vex::Ptr<PortVlanMembership> getPortVlanMembership(const IntfId& intf);
  virtual std::size_t vlanUpdateSize() const;
  virtual void doMaybeCreateVlan(VlanId vlanId);
  virtual void doUpdateVlanFid(VlanId vlanId, Bridging::Fid fid);
  virtual void doAddPortToVlan(const IntfId& intf, VlanId vlanId, bool tagged, bool ingress, bool egress);
  virtual void doRemovePortFromVlan(const IntfId& intf, VlanId vlanId);
  virtual void verify();
};

// A VLAN's change as one unit: ports to add (value: tagged), to take out,
// and the ingress and egress flags of added ports. `genId` orders changes of
// the same VLAN.
class VlanUpdate : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanUpdate> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(GenId)
    VEX_KEY_HANDLER(Add, IntfId)
    VEX_KEY_HANDLER(Ingress, IntfId)
    VEX_KEY_HANDLER(Egress, IntfId)
    VEX_KEY_HANDLER(Remove, IntfId)
  };
  explicit VlanUpdate(VlanId vlanId);
  VlanId vlanId() const { return vlanId_; }

  VEX_COUNTER(std::uint64_t, genId, GenId)
  VEX_INTF_FLAGS(add, Add)
  VEX_INTF_FLAGS(ingress, Ingress)
  VEX_INTF_FLAGS(egress, Egress)
  VEX_INTF_FLAGS(remove, Remove)

  // Makes `dst` (of the same VLAN) hold exactly what this update holds.
  void copy(VlanUpdate* dst) const;

 private:
  VlanId vlanId_;
};

Vex::Ptr<VlanUpdate> vlanUpdateFactory(VlanId vlanId);

// The membership configuration asks for, whatever the port states.
class VlanCache : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanCache> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Add, IntfId)
    VEX_KEY_HANDLER(Ingress, IntfId)
    VEX_KEY_HANDLER(Egress, IntfId)
    VEX_KEY_HANDLER(RecircFeature, IntfId)
  };
  explicit VlanCache(VlanId vlanId);
  VlanId vlanId() const { return vlanId_; }

  VEX_INTF_FLAGS(add, Add)
  VEX_INTF_FLAGS(ingress, Ingress)
  VEX_INTF_FLAGS(egress, Egress)
  // Ports a recirculation feature uses: never taken out of the VLAN here.
  VEX_INTF_FLAGS(recircFeature, RecircFeature)

 private:
  VlanId vlanId_;
};

Vex::Ptr<VlanCache> vlanCacheFactory(VlanId vlanId);

// Spanning tree's word on which ports of a VLAN forward.
class PortForwarding : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<PortForwarding> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Forwarding, IntfId)
  };
  explicit PortForwarding(VlanId vlanId);
  VlanId vlanId() const { return vlanId_; }
  VEX_INTF_FLAGS(forwarding, Forwarding)

 private:
  VlanId vlanId_;
};

Vex::Ptr<PortForwarding> portForwardingFactory(VlanId vlanId);

// The requests handed to the chip layer, one per VLAN in flight.
class VlanHwUpdateConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanHwUpdateConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VlanUpdate, VlanId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(VlanId, Vex::Ptr<VlanUpdate>, vlanUpdate, VlanUpdate)
};

// The chip layer's answers, one per VLAN.
class VlanHwUpdateStatus : public Vex::Entity {
 public:
  enum class VlanProgrammingStatus : std::uint8_t { programmingSucceeded, programmingFailed };
  BOOST_DESCRIBE_NESTED_ENUM(VlanProgrammingStatus, programmingSucceeded, programmingFailed)

  class Status : public Vex::Entity {
   public:
    class Notifiee : public Vex::BaseNotifiee<Status> {
     public:
      using BaseNotifiee::BaseNotifiee;
      VEX_HANDLER(GenId)
      VEX_HANDLER(ProgrammingStatus)
    };
    explicit Status(VlanId vlanId);
    VlanId vlanId() const { return vlanId_; }
    VEX_ATTR(std::uint64_t, genId, GenId, 0)
    VEX_ATTR(VlanProgrammingStatus, programmingStatus, ProgrammingStatus, VlanProgrammingStatus::programmingSucceeded)

   private:
    VlanId vlanId_;
  };

  class Notifiee : public Vex::BaseNotifiee<VlanHwUpdateStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(HwStatus, VlanId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(VlanId, Vex::Ptr<Status>, hwStatus, HwStatus)
  VEX_OWNED_MEMBERS(VlanId, Status, hwStatus)
};

using VlanProgrammingStatus = VlanHwUpdateStatus::VlanProgrammingStatus;

// Whether the updater has work: "idle" or "busy".
class VlanUpdaterState : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanUpdaterState> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Idle)
  };
  VlanUpdaterState() : Entity("VlanUpdaterState") {}
  VEX_ATTR(bool, idle, Idle, true)
  std::string toString() const { return idle() ? "idle" : "busy"; }
};

class VlanHelper;

// Paces hardware updates: a pass walks the pending updates in VLAN order,
// creating each VLAN once and handing its update to hardware. With
// `yieldVlanProcessing` on, a pass stops after `vlanProcessingTime` seconds
// and the next one (after `deferredTime` seconds) resumes at the VLAN where
// it stopped. A walk that reaches the end reschedules only when a VLAN
// changed after the walk began, so that a change below the bookmark is not
// left behind.
class VlanUpdater : public VlanUpdaterState::Notifiee {
 public:
  VlanUpdater(const Vex::Ptr<Vex::Clock>& clock, VlanHelper* helper);
  ~VlanUpdater() override;

  const Vex::Ptr<Vex::Clock>& clock() const { return clock_; }
  const Vex::Ptr<VlanUpdaterState>& state() const { return state_; }
  std::uint32_t deferredTime() const { return deferredTime_; }
  void deferredTimeIs(std::uint32_t seconds) { deferredTime_ = seconds; }
  bool initialized() const { return initialized_; }

  // Marks work pending and makes sure a pass is coming.
  void wake();
  void handleIdle() override;
  void handleTimeout();

 private:
  Vex::Ptr<Vex::Clock> clock_;
  VlanHelper* helper_;
  Vex::Ptr<VlanUpdaterState> state_;
  std::uint32_t deferredTime_ = 0;
  bool initialized_ = false;
  std::optional<VlanId> bookmark_;  // where a yielded pass resumes
  bool woken_ = false;              // a change came since the walk began
};

class VlanHelper : public VlanHelperBase {
 public:
  explicit VlanHelper(const std::string& name = "VlanHelper");
  ~VlanHelper() override;

  bool initialized() const { return initialized_; }

  // Pending changes, requests and answers, by VLAN.
  const Vex::HashSet<VlanId>& createdVlan() const { return createdVlan_; }
  bool createdVlan(VlanId vlanId) const { return createdVlan_.contains(vlanId); }
  const Bridging::VlanMap<Vex::Ptr<VlanUpdate>>& vlanUpdate() const { return vlanUpdate_; }
  Vex::Ptr<VlanUpdate> vlanUpdate(VlanId vlanId) const;
  Vex::Ptr<VlanCache> vlanCache(VlanId vlanId) const;
  const Bridging::VlanMap<Vex::Ptr<VlanCache>>& vlanCache() const { return vlanCache_; }
  Vex::Ptr<PortForwarding> portForwarding(VlanId vlanId) const;
  const Vex::Ptr<VlanHwUpdateConfig>& updateConfig() const { return updateConfig_; }
  const Vex::Ptr<VlanHwUpdateStatus>& updateStatus() const { return updateStatus_; }
  const Vex::Ptr<VlanHwUpdateStatus>& lastCompletedUpdateStatus() const { return lastCompletedUpdateStatus_; }
  VlanUpdater* vlanUpdater() const { return vlanUpdater_.get(); }

  bool checkPortState() const { return checkPortState_; }
  void checkPortStateIs(bool check) { checkPortState_ = check; }
  bool yieldVlanProcessing() const { return yieldVlanProcessing_; }
  void yieldVlanProcessingIs(bool yield) { yieldVlanProcessing_ = yield; }
  Vex::Seconds vlanProcessingTime() const { return vlanProcessingTime_; }
  void vlanProcessingTimeIs(Vex::Seconds seconds) { vlanProcessingTime_ = seconds; }

  Vex::Ptr<PortVlanMembership> getPortVlanMembership(const IntfId& intf) override;
  std::size_t vlanUpdateSize() const override { return vlanUpdate_.size(); }
  void doMaybeCreateVlan(VlanId vlanId) override;
  void doAddPortToVlan(const IntfId& intf, VlanId vlanId, bool tagged, bool ingress, bool egress) override;
  void doRemovePortFromVlan(const IntfId& intf, VlanId vlanId) override;
  virtual void maybeTriggerHwVlanUpdate(VlanId vlanId);
  virtual void hwInit() {}
  virtual void doCreateHwVlan(VlanId vlanId);
  virtual void doUpdateVlan(VlanId vlanId);
  // The chip layer's answer to the VLAN's request in flight.
  virtual void updateVlanDone(VlanId vlanId, VlanProgrammingStatus status);
  // Resources freed up: retry every pending update.
  virtual void hwResourcesAvailable();
  virtual void handleInitialized();

  // Spanning tree's port state for a VLAN. Returns the generation of the
  // update it scheduled, or 0 when it scheduled none.
  std::uint64_t doHandlePortState(const IntfId& intf, VlanId vlanId, bool forwarding);
  void setPortsBlocked(VlanId vlanId);
  // The pending update, request and answer of every VLAN, for show commands.
  std::string showVlanUpdateRequest(unsigned vlanId) const;

  // Marks a port of the VLAN as used by a recirculation feature.
  void recircFeaturePortIs(const IntfId& intf, VlanId vlanId, bool used);

 private:
  Vex::Ptr<VlanUpdate> bumpUpdate(VlanId vlanId);
  void handToHardware(const VlanUpdate& pending);
  Vex::Ptr<VlanCache> vlanCacheIs(VlanId vlanId);
  void foldIntoConfirmedMembership(const VlanUpdate& done);

  bool initialized_ = false;
  Vex::HashSet<VlanId> createdVlan_;
  // Indexed by VLAN: spanning tree touches every VLAN of a topology on each
  // port change, and a yielded pass resumes in VLAN order.
  Bridging::VlanMap<Vex::Ptr<VlanUpdate>> vlanUpdate_;
  Bridging::VlanMap<Vex::Ptr<VlanCache>> vlanCache_;
  Bridging::VlanMap<Vex::Ptr<PortForwarding>> portForwarding_;
  Vex::Ptr<VlanHwUpdateConfig> updateConfig_;
  Vex::Ptr<VlanHwUpdateStatus> updateStatus_;
  Vex::Ptr<VlanHwUpdateStatus> lastCompletedUpdateStatus_;
  std::unique_ptr<VlanUpdater> vlanUpdater_;
  bool checkPortState_ = false;
  bool yieldVlanProcessing_ = false;
  Vex::Seconds vlanProcessingTime_ = 1.0;
};

Vex::Ptr<VlanHelper> vlanHelperFactory(const std::string& name);

}  // namespace Orb
