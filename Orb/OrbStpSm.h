// Spanning-tree port states to hardware, reported done only once they took
// effect.
//
// StpSm follows the topology configuration: one TopoSm per topology (with a
// hardware topology id allocated within the helper's maxTopo) and one
// TopoPortSm per port in it. Port states go through the topology helper;
// its VLAN-based form, VlanTopoHelper, turns a port state into membership
// changes of the topology's VLANs on the VLAN helper and waits for the
// generations those changes were given. When the last of them completes,
// the topology's instance status says its state is set.
//
// LAG members follow their LAG: a member's own state is ignored, and the
// LAG's state is applied to every member.
//
// Spanning tree holds a port out of a VLAN only while a topology gives it a
// blocking state: a port that leaves its topology, and the ports of a VLAN
// that leaves its topology or of a topology that goes, forward again. A
// topology created again starts from the states it is given now.
//
// In tap-aggregation mode there is no spanning tree: every VLAN goes into
// one tap topology ("TapAggTopo") and tap/tool ports forward permanently.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbVerify.h"
#include "Orb/OrbVerifyRetry.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/model/Topology.h"

#include <map>
#include <memory>
#include <set>
#include <string>

namespace Orb {

using Bridging::Topology::PortState;

// The VLANs of a topology.
struct MappedVlan {
  std::set<VlanId> vlan;
  void vlanIs(VlanId vlanId) { vlan.insert(vlanId); }
  void vlanDel(VlanId vlanId) { vlan.erase(vlanId); }
  auto operator<=>(const MappedVlan&) const = default;
};
VEX_VALUE(MappedVlan, "Orb::MappedVlan", (vlan))

class StpSm;

// Topologies in hardware. A chip layer must provide every operation.
class TopoHelper : public OrbBaseHelper {
 public:
  explicit TopoHelper(const std::string& name = "TopoHelper") : OrbBaseHelper(name) {}

  StpSm* stpSm() const { return stpSm_; }
  void stpSmIs(StpSm* stpSm) { stpSm_ = stpSm; }

  virtual std::uint32_t maxTopo();
  virtual void allocTopo(const std::string& topoName);
  virtual void freeTopo(const std::string& topoName);
  virtual void setStpState(std::int32_t topoId, const std::string& topoName, const IntfId& intf, PortState state);
  virtual void addVlanToTopo(const std::string& topoName, std::uint16_t vlan);
  virtual void delVlanFromTopo(const std::string& topoName, std::uint16_t vlan);
  virtual void flushTopoPort(std::int32_t topoId, const IntfId& port);
  virtual void flushTopoPortVlan(const MappedVlan& vlans, const IntfId& port);
  virtual void verify();
  virtual void hwInit();

  // The topology's latest state request has taken effect.
  void setStpStateDoneTopoName(const std::string& topoName);

 private:
  StpSm* stpSm_ = nullptr;
};

class VlanTopoHelper : public TopoHelper {
 public:
  explicit VlanTopoHelper(const Vex::Ptr<VlanHelper>& vlanHelper, const std::string& name = "VlanTopoHelper");
  ~VlanTopoHelper() override;

  const Vex::Ptr<VlanHelper>& vlanHelper() const { return vlanHelper_; }

  void setStpState(std::int32_t topoId, const std::string& topoName, const IntfId& intf, PortState state) override;
  void addVlanToTopo(const std::string& topoName, std::uint16_t vlan) override;
  void delVlanFromTopo(const std::string& topoName, std::uint16_t vlan) override;

  // The topology no longer gives the port a state: a port it blocked
  // forwards again in the topology's VLANs. Virtual, so that a chip layer
  // that also keeps port states in a table of its own drops the port's
  // there: left behind, that state would go on blocking the port.
  virtual void topoPortStateDel(const std::string& topoName, const IntfId& intf);
  // The topology is gone: forget its ports' states and what it waited for.
  void topoStateDelAll(const std::string& topoName);

  virtual void handleVlanUpdateCompletion(VlanId vlanId, std::uint64_t genId);
  virtual void completedVlanUpdateStatusDel(VlanId vlanId);
  virtual void completedVlanUpdateStatusIs(const Vex::Ptr<VlanHwUpdateStatus::Status>& status);

  const MappedVlan& mappedVlan(const std::string& topoName) const;
  // The state last applied to each port of the topology.
  const std::map<IntfId, PortState>& topoPortState(const std::string& topoName) const;
  // The VLANs the switch has members configured in.
  std::set<VlanId> knownVlans() const;
  // VLAN to the generation the topology waits for.
  const Bridging::VlanMap<std::uint64_t>& topoPendingVlans(const std::string& topoName) const;
  const std::map<VlanId, Vex::Ptr<VlanHwUpdateStatus::Status>>& completedVlanUpdateStatus() const {
    return completedVlanUpdateStatus_;
  }

 private:
  class CompletionReactor;

  Vex::Ptr<VlanHelper> vlanHelper_;
  std::map<std::string, MappedVlan> topoToVlanMap_;
  std::map<std::string, Bridging::VlanMap<std::uint64_t>> topoPendingVlans_;
  std::map<VlanId, Vex::Ptr<VlanHwUpdateStatus::Status>> completedVlanUpdateStatus_;
  // The state last applied to each port of each topology, for VLANs that
  // join the topology later.
  std::map<std::string, std::map<IntfId, PortState>> topoPortState_;
  std::unique_ptr<CompletionReactor> completionReactor_;
};

class TopoSm;

// One port of one topology: the state last applied.
class TopoPortSm : public OrbBaseSm {
 public:
  TopoPortSm(const Vex::Ptr<OrbCommonSmData>& ocsd, TopoSm* topoSm, const IntfId& intf);
  const char* fwkType() const override { return "Orb::TopoPortSm"; }
  const IntfId& intf() const { return intf_; }
  PortState state() const { return state_; }
  void handleState();
  void handleFdbFlush();

 private:
  TopoSm* topoSm_;
  IntfId intf_;
  PortState state_ = PortState::portStateDisabled;
};

class TopoSm : public OrbBaseSm {
 public:
  TopoSm(const Vex::Ptr<OrbCommonSmData>& ocsd, StpSm* stpSm, const std::string& name, std::int32_t topoId,
         const Vex::Ptr<Bridging::Topology::TopoConfig>& config);
  ~TopoSm() override;
  const char* fwkType() const override { return "Orb::TopoSm"; }

  const std::string& name() const { return name_; }
  std::int32_t topoId() const { return topoId_; }
  const Vex::Ptr<Bridging::Topology::TopoConfig>& config() const { return config_; }
  const std::map<IntfId, Vex::Ptr<TopoPortSm>>& topoPortSm() const { return topoPortSm_; }
  TopoHelper& topoHelper() const;
  StpSm* stpSm() const { return stpSm_; }

  void handleInitialized() override;
  void handleTopoPortChange(const IntfId& intf);
  void doSetStpState(const IntfId& port, PortState state);
  void handlePortToLag(const IntfId& port);
  void handleFdbFlush(const IntfId& port);

 private:
  class ConfigReactor;
  class OcsdReactor;

  // The port (a LAG: its members) has no state in this topology any more.
  void releasePort(const IntfId& port);

  StpSm* stpSm_;
  std::string name_;
  std::int32_t topoId_;
  Vex::Ptr<Bridging::Topology::TopoConfig> config_;
  std::map<IntfId, Vex::Ptr<TopoPortSm>> topoPortSm_;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
};

class StpSm : public OrbBaseSm, public Verifiable {
 public:
  static constexpr const char* tapAggTopoName = "TapAggTopo";

  StpSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<Bridging::Topology::Config>& topoConfig,
        const Vex::Ptr<Bridging::Topology::Status>& topoStatus, const Vex::Ptr<TopoHelper>& topoHelper);
  ~StpSm() override;
  const char* fwkType() const override { return "Orb::StpSm"; }

  TopoHelper& topoHelper() const { return *topoHelper_; }
  const Vex::Ptr<Bridging::Topology::Config>& topoConfig() const { return topoConfig_; }
  const Vex::Ptr<Bridging::Topology::Status>& topoStatus() const { return topoStatus_; }
  const std::map<std::string, Vex::Ptr<TopoSm>>& topoSm() const { return topoSm_; }
  const std::map<VlanId, std::string>& vlanToTopoSmMap() const { return vlanToTopoSmMap_; }
  const std::map<std::string, MappedVlan>& topoToVlanMap() const { return topoToVlanMap_; }
  HwOperationalMode currentHwOperationalMode() const { return currentHwOperationalMode_; }
  const std::set<IntfId>& tapAggIntf() const { return tapAggIntf_; }

  void handleInitialized() override;
  void handleTopoConfig(const std::string& name);
  void handleVidToTopoMap(VlanId vlanId);
  void handleOperationalMode();

  // Trapping of spanning-tree BPDUs to the CPU is the chip layer's to
  // provide, through a machine derived from this one.
  virtual void handleBpduTrapping();

  // A port in tap/tool mode: it forwards in the tap topology, always.
  void tapAggIntfIs(const IntfId& intf, bool tap);

  // A VLAN the switch has: in tap/tool mode it goes into the tap topology.
  void handleVlanKnown(VlanId vlanId);

  std::string verifyName() const override { return "StpSm"; }
  // Compares the topologies' states with what hardware holds. A run that
  // finds differences is repeated (handleRetryVerify) once the states stop
  // changing; every state applied renews it (doRequestVerify).
  void handleVerify(VerifyReport& report) override;
  void handleRetryVerify();
  void doRequestVerify();
  bool verifyRetryPending() const { return verifyRetry_.pending(); }

  // A topology's state request started, or took effect.
  void setStpStatePendingTopoName(const std::string& name);
  void setStpStateDoneTopoName(const std::string& name);
  void setStpStateDoneTopoId(std::int32_t topoId);

 private:
  class ConfigReactor;
  class OcsdReactor;

  bool tapMode() const { return currentHwOperationalMode_ == HwOperationalMode::hwModeTapAgg; }
  std::int32_t allocTopoId();
  void createTopo(const std::string& name);
  void deleteTopo(const std::string& name);
  void configureRegular();
  void cleanupRegular();
  void configureTapAgg();
  void cleanupTapAgg();
  void statusIs(const std::string& name, std::int32_t topoId, bool stateSet);
  void compareTopologies(VerifyReport& report);

  Vex::Ptr<Bridging::Topology::Config> topoConfig_;
  Vex::Ptr<Bridging::Topology::Status> topoStatus_;
  Vex::Ptr<TopoHelper> topoHelper_;
  std::map<std::string, Vex::Ptr<TopoSm>> topoSm_;
  std::map<VlanId, std::string> vlanToTopoSmMap_;
  std::map<std::string, MappedVlan> topoToVlanMap_;
  std::set<std::int32_t> usedTopoIds_;
  HwOperationalMode currentHwOperationalMode_ = HwOperationalMode::hwModeUnknown;
  std::set<IntfId> tapAggIntf_;
  std::int32_t tapAggTopoId_ = -1;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
  VerifyRetry verifyRetry_{[this] { handleRetryVerify(); }};
};

Vex::Ptr<StpSm> stpSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                             const Vex::Ptr<Bridging::Topology::Config>& topoConfig,
                             const Vex::Ptr<Bridging::Topology::Status>& topoStatus,
                             const Vex::Ptr<TopoHelper>& topoHelper);

}  // namespace Orb
