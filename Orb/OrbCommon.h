// The shared state-machine context: the one object every state machine holds
// (as `ocsd`). It keeps facts about the switch that one machine learns and
// many need (interfaces, LAG membership, internal VLANs, VLAN routing state),
// small resource pools several features draw from (free mirror sessions),
// and agent-wide switches (restart support, trace levels, verification).
// Each fact has one writer; every change notifies the context's notifiees.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommonTypes.h"
#include "Orb/OrbVerify.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"

#include <cstdint>
#include <map>
#include <string>

namespace Orb {

// Routing state of one VLAN.
class VlanStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VlanStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(RoutingEnable)
    VEX_HANDLER(IsUnnumberedIntf)
    VEX_HANDLER(IsUnnumbered6Intf)
  };
  explicit VlanStatus(Bridging::VlanId vlanId);
  Bridging::VlanId vlanId() const { return vlanId_; }

  VEX_ATTR(bool, routingEnable, RoutingEnable, false)
  VEX_ATTR(bool, isUnnumberedIntf, IsUnnumberedIntf, false)
  VEX_ATTR(bool, isUnnumbered6Intf, IsUnnumbered6Intf, false)

 private:
  Bridging::VlanId vlanId_;
};

Vex::Ptr<VlanStatus> vlanStatusFactory(Bridging::VlanId vlanId);

// Command-line tunables of the hardware layer; read-only to the library.
class HwCliConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HwCliConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Tunable, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, std::string, tunable, Tunable)
};

class OrbCommonSmData : public Vex::Entity {
 public:
  using IntfId = Nexo::IntfId;

  class Notifiee : public Vex::BaseNotifiee<OrbCommonSmData> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(OperationalMode)
    VEX_HANDLER(VlanHelper)
    VEX_KEY_HANDLER(Intf, Nexo::IntfId)
    VEX_HANDLER(MinIntfs)
    VEX_KEY_HANDLER(UnusedIntf, Nexo::IntfId)
    VEX_KEY_HANDLER(CpuIntf, Nexo::IntfId)
    VEX_KEY_HANDLER(MultiEncapIntf, Nexo::IntfId)
    // Also the reaction point of machines that follow the MLAG peer link.
    VEX_KEY_HANDLER(MlagPeerLinkPort, Nexo::IntfId)
    VEX_KEY_HANDLER(MlagIntfPort, Nexo::IntfId)
    VEX_KEY_HANDLER(LagToPortConfig, Nexo::IntfId)
    VEX_KEY_HANDLER(LagToFeatureSet, Nexo::IntfId)
    VEX_KEY_HANDLER(PortToLag, Nexo::IntfId)
    VEX_KEY_HANDLER(LagToPort, Nexo::IntfId)
    VEX_KEY_HANDLER(LagToLagType, Nexo::IntfId)
    VEX_HANDLER(VirtualMacWithMask)
    VEX_HANDLER(PeerRouterMac)
    VEX_KEY_HANDLER(InternalVlan, Nexo::IntfId)
    VEX_KEY_HANDLER(VlanStatus, Bridging::VlanId)
    VEX_KEY_HANDLER(EncapVlan, Nexo::IntfId)
    VEX_KEY_HANDLER(PortVlanTpidData, Nexo::IntfId)
    VEX_HANDLER(CliConfig)
    VEX_KEY_HANDLER(MirrorSessionNameToId, std::string)
    VEX_KEY_HANDLER(FreeMirrorSession, std::uint32_t)
    VEX_HANDLER(FreeMirrorSessionMetadata)
    VEX_HANDLER(IsFabricSlice)
    VEX_KEY_HANDLER(ParityEvent, ParityEvent::Key)
    VEX_HANDLER(VerifyData)
    VEX_HANDLER(VerifySm)
    VEX_KEY_HANDLER(VlanIntf, Nexo::IntfId)
    VEX_HANDLER(BlipLevels)
    VEX_HANDLER(HotupFastBoot)
    VEX_HANDLER(HotupRenice)
    VEX_HANDLER(HotupReniceValue)
    VEX_HANDLER(HitlessAgentRestartSupported)
    VEX_HANDLER(PfcWatchdogDropActionSupported)
    VEX_HANDLER(DlpEnabled)
    VEX_HANDLER(Initialized)
  };

  // Builds the context with its defaults, then runs handleInitialized().
  explicit OrbCommonSmData(const std::string& name);
  ~OrbCommonSmData() override;

  VEX_ATTR(HwOperationalMode, operationalMode, OperationalMode, HwOperationalMode::hwModeUnknown)
  VEX_ATTR(Vex::Ptr<VlanHelperBase>, vlanHelper, VlanHelper)
  VEX_COLLECTION(IntfId, bool, intf, Intf)
  VEX_ATTR(std::uint16_t, minIntfs, MinIntfs, 16)
  VEX_COLLECTION(IntfId, bool, unusedIntf, UnusedIntf)
  VEX_COLLECTION(IntfId, bool, cpuIntf, CpuIntf)
  VEX_COLLECTION(IntfId, bool, multiEncapIntf, MultiEncapIntf)
  VEX_COLLECTION(IntfId, bool, mlagPeerLinkPort, MlagPeerLinkPort)
  VEX_COLLECTION(IntfId, bool, mlagIntfPort, MlagIntfPort)
  VEX_COLLECTION(IntfId, OrbPortList, lagToPortConfig, LagToPortConfig)
  VEX_COLLECTION(IntfId, RecircFeatureSet, lagToFeatureSet, LagToFeatureSet)
  VEX_COLLECTION(IntfId, IntfId, portToLag, PortToLag)
  VEX_COLLECTION(IntfId, OrbLagPortList, lagToPort, LagToPort)
  VEX_COLLECTION(IntfId, OrbTypes::OrbLagType, lagToLagType, LagToLagType)
  VEX_ATTR(Nexo::EthAddrWithMask, virtualMacWithMask, VirtualMacWithMask)
  VEX_ATTR(Nexo::EthAddr, peerRouterMac, PeerRouterMac)
  VEX_COLLECTION(IntfId, std::uint32_t, internalVlan, InternalVlan)
  VEX_COLLECTION(Bridging::VlanId, Vex::Ptr<VlanStatus>, vlanStatus, VlanStatus)
  VEX_COLLECTION(IntfId, Bridging::VlanIdOrNone, encapVlan, EncapVlan)
  VEX_COLLECTION(IntfId, OrbPortVlanTpidData, portVlanTpidData, PortVlanTpidData)
  VEX_ATTR(Vex::Ptr<const HwCliConfig>, cliConfig, CliConfig)
  VEX_COLLECTION(std::string, std::uint32_t, mirrorSessionNameToId, MirrorSessionNameToId)

  // The free mirror-session queue, first in first out. Positions are queue
  // indexes; the metadata (head, next index, count) follows every change.
  const std::map<std::uint32_t, std::uint8_t>& freeMirrorSession() const { return freeMirrorSession_; }
  std::uint8_t freeMirrorSession(std::uint32_t index) const;
  void freeMirrorSessionIs(std::uint32_t index, std::uint8_t id);
  void freeMirrorSessionDel(std::uint32_t index);
  void freeMirrorSessionDelAll();
  void freeMirrorSessionEnq(std::uint8_t id);
  // The head's id, or 0 when the queue is empty.
  std::uint8_t freeMirrorSessionDeq();
  const FreeMirrorSessionMetadata& freeMirrorSessionMetadata() const { return freeMirrorSessionMetadata_; }

  VEX_ATTR(bool, isFabricSlice, IsFabricSlice, false)
  VEX_COLLECTION(ParityEvent::Key, ParityEvent, parityEvent, ParityEvent)
  VEX_ATTR(Vex::Ptr<VerifyData>, verifyData, VerifyData)
  VEX_ATTR(Vex::Ptr<VerifySm>, verifySm, VerifySm)
  VEX_COLLECTION(IntfId, bool, vlanIntf, VlanIntf)
  VEX_ATTR(BlipLevels, blipLevels, BlipLevels)
  VEX_ATTR(bool, hotupFastBoot, HotupFastBoot, false)
  VEX_ATTR(bool, hotupRenice, HotupRenice, false)
  VEX_ATTR(std::int32_t, hotupReniceValue, HotupReniceValue, 5)
  VEX_ATTR(bool, hitlessAgentRestartSupported, HitlessAgentRestartSupported, true)
  VEX_ATTR(bool, pfcWatchdogDropActionSupported, PfcWatchdogDropActionSupported, false)
  VEX_ATTR(bool, dlpEnabled, DlpEnabled, false)
  VEX_ATTR(bool, initialized, Initialized, false)

  bool inLag(const IntfId& port) const { return portToLagHas(port); }

  // The routing state of a VLAN, created when absent.
  Vex::Ptr<VlanStatus> vlanStatusIs(Bridging::VlanId vlanId);

  void handleInitialized();

 private:
  void freeMirrorSessionMetadataIs(const FreeMirrorSessionMetadata& metadata);
  void freeMirrorSessionRecount();

  std::map<std::uint32_t, std::uint8_t> freeMirrorSession_;
  FreeMirrorSessionMetadata freeMirrorSessionMetadata_;
};

Vex::Ptr<OrbCommonSmData> orbCommonSmDataFactory(const std::string& name);

}  // namespace Orb
