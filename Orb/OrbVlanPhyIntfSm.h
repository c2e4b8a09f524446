// Configured VLAN membership to the VLAN helper, and flood-set expansion.
//
// VlanPhyIntfSm watches one status per VLAN (the member interfaces the
// bridging agent publishes) and turns each member change into an add or a
// remove on the VLAN helper. A VLAN may be expanded into other VLANs,
// statically (bridging configuration) or dynamically (another agent's
// request); a FloodsetExpandedVlanPhyIntfSm per (VLAN, expanded VLAN) pair
// then copies the VLAN's members into the expanded VLAN's flood set, unless
// the expanded VLAN has its own status entry for the port.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbVerify.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/model/BridgingConfig.h"
#include "platform/model/DynamicExpVlan.h"
#include "platform/model/VlanPhyIntfStatus.h"

#include <map>
#include <memory>
#include <set>

namespace Orb {

using VlanPhyIntfStatusLib::VlanPhyIntfStatus;
using VlanPhyIntfStatusLib::VlanPhyIntfStatusDir;

class FloodsetExpandedVlanPhyIntfSm : public OrbBaseSm {
 public:
  FloodsetExpandedVlanPhyIntfSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VlanHelper>& vlanHelper,
                                VlanId vlanId, VlanId expVlanId, const Vex::Ptr<VlanPhyIntfStatus>& vlanPhyIntfStatus,
                                const Vex::Ptr<VlanPhyIntfStatus>& expVlanPhyIntfStatus);
  ~FloodsetExpandedVlanPhyIntfSm() override;
  const char* fwkType() const override { return "Orb::FloodsetExpandedVlanPhyIntfSm"; }

  VlanId vlanId() const { return vlanId_; }
  VlanId expVlanId() const { return expVlanId_; }
  const Vex::Ptr<VlanPhyIntfStatus>& vlanPhyIntfStatus() const { return reactor_.notifier(); }
  // The base VLAN's status may come after the mapping, or be made anew.
  void vlanPhyIntfStatusIs(const Vex::Ptr<VlanPhyIntfStatus>& status);
  const Vex::Ptr<VlanPhyIntfStatus>& expVlanPhyIntfStatus() const { return expVlanPhyIntfStatus_; }
  void expVlanPhyIntfStatusIs(const Vex::Ptr<VlanPhyIntfStatus>& status) { expVlanPhyIntfStatus_ = status; }
  // Ports this machine put into the expanded VLAN.
  const std::set<IntfId>& addedPorts() const { return added_; }

  void handleInitialized() override;
  void handleIntf(const IntfId& intf);
  // Takes every port it added back out of the expanded VLAN.
  void doCleanup();

 private:
  class StatusReactor : public Vex::Reactor<VlanPhyIntfStatus, FloodsetExpandedVlanPhyIntfSm> {
   public:
    using Reactor::Reactor;
    VEX_REACT_KEY(Intf, IntfId, handleIntf)
  };

  Vex::Ptr<VlanHelper> vlanHelper_;
  VlanId vlanId_;
  VlanId expVlanId_;
  Vex::Ptr<VlanPhyIntfStatus> expVlanPhyIntfStatus_;
  std::set<IntfId> added_;
  StatusReactor reactor_{this};
};

// The VLANs one VLAN is expanded into, with their flood-set machines.
struct ExpVlansDir {
  std::set<VlanId> expVlan;
  std::map<VlanId, Vex::Ptr<FloodsetExpandedVlanPhyIntfSm>> floodsetExpVlanPhyIntfSmCol;
};

// The reverse map: the VLANs expanded into this one.
struct ReExpVlansDir {
  std::set<VlanId> reExpVlan;
};

class VlanPhyIntfSm : public OrbBaseSm, public Verifiable {
 public:
  VlanPhyIntfSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VlanHelper>& vlanHelper,
                const Vex::Ptr<Bridging::Config>& bridgingConfig,
                const Vex::Ptr<VlanPhyIntfStatusDir>& vlanPhyIntfStatusDir,
                const Vex::Ptr<DynamicExpVlanDir>& dynamicExpVlanDir);
  ~VlanPhyIntfSm() override;
  const char* fwkType() const override { return "Orb::VlanPhyIntfSm"; }

  const Vex::Ptr<VlanHelper>& vlanHelper() const { return vlanHelper_; }
  const std::map<VlanId, ExpVlansDir>& expVlanDir() const { return expVlanDir_; }
  const std::map<VlanId, ReExpVlansDir>& reExpVlanDir() const { return reExpVlanDir_; }
  const Vex::Ptr<VerifyData>& verifyData() const { return verifyData_; }

  void handleInitialized() override;
  // A VLAN's status appeared or went away.
  void handleVlanConfig(VlanId vlanId);
  // One member of a VLAN changed; without an interface, all of them.
  void handleIntf(VlanId vlanId, const IntfId& intf);
  void handleIntf(VlanId vlanId);
  void handleVidToFidMap(VlanId vlanId);
  void handleVidToFidMapAll();
  void handleVlanToExpVlanMap(VlanId vlanId, VlanId expVlanId, bool dynamic);
  void handleVlanToExpVlanUnMap(VlanId vlanId, VlanId expVlanId, bool dynamic);

  std::string verifyName() const override { return "VlanPhyIntfSm"; }
  void handleVerify(VerifyReport& report) override;

 private:
  class VexStatus;
  class VexDynamicVlanToExpVlan;
  class DirReactor;
  class ConfigReactor;
  class DynamicDirReactor;
  class IntfReactor;

  bool knownIntf(const IntfId& intf) const;
  // An interface became known to this agent: the VLANs listing it take it.
  void handleKnownIntf(const IntfId& intf);
  // The flood-set machine of a VLAN expanded into `vlanId` whose base VLAN
  // lists the port, if any: it keeps the port in `vlanId`'s flood set.
  FloodsetExpandedVlanPhyIntfSm* floodsetProviding(VlanId vlanId, const IntfId& intf) const;
  void handleVlanStatusGone(VlanId vlanId);
  // Mappings of a VLAN whose status came (back): they live as long as the
  // configuration asks for them.
  void restoreExpansions(VlanId vlanId);
  void dynamicListIs(VlanId vlanId);
  void removeExpansions(VlanId vlanId);

  Vex::Ptr<VlanHelper> vlanHelper_;
  Vex::Ptr<Bridging::Config> bridgingConfig_;
  Vex::Ptr<VlanPhyIntfStatusDir> vlanPhyIntfStatusDir_;
  Vex::Ptr<DynamicExpVlanDir> dynamicExpVlanDir_;
  Vex::Ptr<VerifyData> verifyData_;
  std::map<VlanId, ExpVlansDir> expVlanDir_;
  std::map<VlanId, ReExpVlansDir> reExpVlanDir_;
  std::map<VlanId, VlanId> currentConfExpVlanId_;
  std::set<std::pair<VlanId, VlanId>> staticMaps_;
  std::set<std::pair<VlanId, VlanId>> dynamicMaps_;
  std::map<VlanId, std::unique_ptr<VexStatus>> vexStatus_;
  std::map<VlanId, std::unique_ptr<VexDynamicVlanToExpVlan>> vexDynamic_;
  std::unique_ptr<DirReactor> dirReactor_;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<DynamicDirReactor> dynamicDirReactor_;
  std::unique_ptr<IntfReactor> intfReactor_;
};

Vex::Ptr<VlanPhyIntfSm> vlanPhyIntfSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                             const Vex::Ptr<VlanHelper>& vlanHelper,
                                             const Vex::Ptr<Bridging::Config>& bridgingConfig,
                                             const Vex::Ptr<VlanPhyIntfStatusDir>& vlanPhyIntfStatusDir,
                                             const Vex::Ptr<DynamicExpVlanDir>& dynamicExpVlanDir);

}  // namespace Orb
