// The MAC machine's construction: its reactors on every input, its clocks,
// and the start that reviews what every source holds.
#include "Orb/OrbMacAddrSm.h"

#include "Orb/OrbMacAddrSmParts.h"

namespace Orb {

using namespace MacAddrSmParts;

// --- reactors ---

namespace {

using MacTableReactorBase = Vex::Reactor<OrbTypes::MacTable, MacAddrSm>;

class MacTableReactor : public MacTableReactorBase {
 public:
  using MacTableReactorBase::MacTableReactorBase;
  VEX_REACT_KEY(MacEntry, MacVlanPair, handleMacEntry)
};

class RouterMacReactor : public MacTableReactorBase {
 public:
  using MacTableReactorBase::MacTableReactorBase;
  VEX_REACT_KEY(MacEntry, MacVlanPair, handleRouterMacEntry)
};

class ConfigReactor : public Vex::Reactor<Bridging::Config, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(FdbConfig, MacVlanPair, handleConfiguredHost)
  VEX_REACT(HostAgingTime, handleHostAgingTime)
  VEX_REACT(SourceCheckCpuMac, handleSourceChecks)
  VEX_REACT(SourceMacInvalid, handleSourceChecks)
  VEX_REACT_KEY(MacLearningDisabledVlan, VlanId, handleVlanLearning)
};

class VlanDoneReactor : public Vex::Reactor<VlanHwUpdateStatus, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(HwStatus, VlanId, handleVlanUpdateDone)
};

class VxlanConfigReactor : public Vex::Reactor<Vxlan::VxlanConfigDir, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(VlanToVni, VlanId, handleVlanToVni)
};

class IntfConfigReactor : public Vex::Reactor<Interface::EthPhyIntfConfigDir, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(MacLearningDisabled, IntfId, handleEthIntfConfig)
};

class MlagHostReactor : public Vex::Reactor<Mlag::HostTable, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(HostEntry, MacVlanPair, handleMlagHostTableEntry)
};

class MlagStatusReactor : public Vex::Reactor<Mlag::Status, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(MlagStateValid, handleMlagStateOrPeerLinkIntf)
  VEX_REACT(PeerLinkIntf, handleMlagStateOrPeerLinkIntf)
};

class FsfReactor : public Vex::Reactor<FastServerFailover::Status, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(FailedServer, Nexo::EthAddr, handleFsfFailedServer)
};

class SubIntfHwStatusReactor : public Vex::Reactor<Hardware::SubIntf::Status, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfIdToDot1qEncapAndVlanId, Nexo::IntfId, handleSubIntfHwStatus)
};

class RemoteReactor : public Vex::Reactor<Bridging::RemoteMacTable, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(ConfiguredHost, MacVlanPair, handleRemoteHost)
  VEX_REACT_KEY(ReceivedHost, MacVlanPair, handleRemoteHost)
  void handleRemoteMacsReady() override {
    react([this] {
      if (notifier()->remoteMacsReady()) owner()->handleStageRemoteMacsReady();
    });
  }
  VEX_REACT(TunnelLearnEvent, handleTunnelLearnEvent)
};

class Dot1xHostReactor : public Vex::Reactor<Dot1x::HostTable, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Host, Nexo::EthAddr, handleDot1xHostTableEntry)
};

class Dot1xStatusReactor : public Vex::Reactor<Dot1x::Status, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(RestrictedIntf, IntfId, handleDot1xIntfStatus)
};

class L2RibReactor : public Vex::Reactor<L2Rib::HostOutput, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Host, MacVlanPair, handleL2RibHost)
};

class HwIdReactor : public Vex::Reactor<ObjTupleToHwId, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(HwId, L2Rib::ObjTuple, handleObjTupleToHwIdMap)
};

class FlushReactor : public Vex::Reactor<Bridging::HostTableFlushRequestDir, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Request, std::string, handleFlushRequestInputDir)
};

class RemoteFlushReactor : public Vex::Reactor<VXLAN::RemoteMacInfoDir, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(RemoteMacFlushRequest, std::string, handleRemoteMacFlushRequest)
};

class NonAgingReactor : public Vex::Reactor<NonAgingStatus, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(MacEntries, MacVlanPair, handleNonAgingMacEntries)
};

class LbReactor : public Vex::Reactor<L2Rib::LoadBalanceOutput, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Lb, std::uint64_t, handleL2RibLb)
};

class DestReactor : public Vex::Reactor<L2Rib::DestOutput, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Dest, std::uint64_t, handleL2RibDest)
};

class IntfStatusReactor : public Vex::Reactor<Interface::EthPhyIntfStatusDir, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(LinkUp, IntfId, handleEthIntfStatus)
};

class OcsdReactor : public Vex::Reactor<OrbCommonSmData, MacAddrSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(Intf, IntfId, handleIntf)
  VEX_REACT_KEY(LagToPort, IntfId, handleLagToPort)
  VEX_REACT_KEY(PortToLag, IntfId, configureMacLearningOnPort)
  VEX_REACT_KEY(ParityEvent, ParityEvent::Key, handleParityEvent)
};

}  // namespace

// --- construction ---

MacAddrSm::MacAddrSm(const MacAddrSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  bankFullEvent();
  dynamicHostStatusIs(nullptr);
  // Room for what reviews may queue ahead of programming, made now: growing
  // the queue in a slice moves every change into memory the slice touches
  // for the first time, which takes longer than the slice may.
  updateList_.reserve(macReviewAheadLimit);
  updateMacEntryClock_ = Vex::clockFactory([this] {
    try {
      updateQueuedAddresses();
    } catch (const Vex::RangeError& e) {
      // The change that could not be programmed left the queue, and the
      // clock is armed for the rest: the error stops here.
      BLIP(trace(), 1, "ERROR: queued change dropped: {}", e.what());
    }
  });
  macTableTimer_ = Vex::clockFactory([this] { handleMacTableUpdate(); });
  flushReqTimer_ = Vex::clockFactory([this] { handleFlushReqTimer(); });
  mlagHostTableTimer_ = Vex::clockFactory([this] { handleMlagHostTableWalk(); });
  mlagIntfHostTableTimer_ = Vex::clockFactory([this] { handleMlagIntfHostTableWalk(); });
  intfHostWalkTimer_ = Vex::clockFactory([this] { handleIntfHostWalk(); });
  clockIs(intfHostWalkTimer_);
  clockIs(mlagIntfHostTableTimer_);
  clockIs(mlagHostTableTimer_);
  clockIs(updateMacEntryClock_);
  clockIs(macTableTimer_);
  clockIs(flushReqTimer_);
  reactors_ = std::make_unique<Vex::Reactors<MacAddrSm>>(this);
  reactors_->add<MacTableReactor>(in_.macTable);
  reactors_->add<RouterMacReactor>(in_.routerMacTable);
  reactors_->add<ConfigReactor>(in_.bridgingConfig);
  reactors_->add<IntfConfigReactor>(in_.ethPhyIntfConfigDir);
  if (in_.vlanHelper) reactors_->add<VlanDoneReactor>(in_.vlanHelper->lastCompletedUpdateStatus());
  reactors_->add<VxlanConfigReactor>(in_.vxlanConfigDir);
  reactors_->add<MlagHostReactor>(in_.mlagHostTable);
  reactors_->add<MlagStatusReactor>(in_.mlagStatus);
  reactors_->add<FsfReactor>(in_.fsfStatus);
  if (in_.subIntfHwStatus) reactors_->add<SubIntfHwStatusReactor>(in_.subIntfHwStatus);
  reactors_->add<RemoteReactor>(in_.remoteHostTable);
  reactors_->add<Dot1xHostReactor>(in_.dot1xHostTable);
  reactors_->add<Dot1xStatusReactor>(in_.dot1xStatus);
  reactors_->add<L2RibReactor>(in_.l2RibOutput);
  reactors_->add<HwIdReactor>(in_.objTupleToHwId);
  reactors_->add<FlushReactor>(in_.flushRequestDir);
  reactors_->add<RemoteFlushReactor>(in_.rmacInfoDir);
  reactors_->add<LbReactor>(in_.lbOutput);
  reactors_->add<DestReactor>(in_.destOutput);
  reactors_->add<IntfStatusReactor>(in_.ethPhyIntfStatusDir);
  reactors_->add<OcsdReactor>(in_.ocsd);
  in_.orbHelper->hostOutcomeHandlerIs(
      [this](const MacVlanPair& key, const IntfId& intf, EntryType entryType, std::uint32_t status) {
        if (reacting()) handleHostOutcome(key, intf, entryType, status);
      });
  initializedIs(true);
}

MacAddrSm::~MacAddrSm() {
  vexDoZombieReactors(true);
  in_.orbHelper->hostOutcomeHandlerIs(nullptr);
  reactors_.reset();
  updateMacEntryClock_->timeMinIs(Vex::never);
  macTableTimer_->timeMinIs(Vex::never);
  flushReqTimer_->timeMinIs(Vex::never);
  mlagHostTableTimer_->timeMinIs(Vex::never);
  mlagIntfHostTableTimer_->timeMinIs(Vex::never);
  intfHostWalkTimer_->timeMinIs(Vex::never);
  nonAgingReactor_.reset();
  remoteMacRecoveryHelperSm_.reset();
  updateList_.clear();
}

void MacAddrSm::handleInitialized() {
  in_.orbHelper->hwInit();
  doClearRemoteMacsFromFdbStatus();
  if (in_.mlagHostTable) {
    for (const auto& [key, row] : in_.mlagHostTable->hostEntry()) handleMlagHostTableEntry(key);
  }
  handleHostAgingTime();
  for (const auto& [key, row] : in_.bridgingConfig->fdbConfig()) reevaluateEntry(key);
  currentPeerLink_ = in_.mlagStatus ? in_.mlagStatus->peerLinkIntf() : IntfId();
  for (const auto& vlanId : in_.bridgingConfig->macLearningDisabledVlan()) handleVlanLearning(vlanId);
  if ((in_.flushRequestDir && !in_.flushRequestDir->request().empty()) ||
      (in_.rmacInfoDir && !in_.rmacInfoDir->remoteMacFlushRequest().empty())) {
    flushReqTimer_->timeMinIs(Vex::now());
  }
  for (const auto& [key, event] : ocsd()->parityEvent()) handleParityEvent(key);
  // Authenticated hosts programmed by this switch.
  dot1xLocalHostTable_ = Vex::make<Dot1x::HostTable>("dot1xLocalHostTable");
  if (in_.dot1xHostTable) {
    for (const auto& [addr, row] : in_.dot1xHostTable->host()) handleDot1xHostTableEntry(addr);
  }
  if (in_.remoteHostTable) {
    for (const auto& [key, entry] : in_.remoteHostTable->configuredHost()) reevaluateEntry(key);
    for (const auto& [key, entry] : in_.remoteHostTable->receivedHost()) reevaluateEntry(key);
  }
  in_.orbHelper->handleLinkStateAtInit();
  for (const auto& [intf, known] : ocsd()->intf()) configureMacLearningOnPort(intf);
  if (in_.routerMacTable) {
    for (const auto& [key, row] : in_.routerMacTable->macEntry()) reevaluateEntry(key);
  }
  walkVlanConfiguration();
  if (in_.l2RibOutput) {
    for (const auto& [key, entry] : in_.l2RibOutput->host()) handleL2RibHost(key);
  }
  if (in_.lbOutput) {
    for (const auto& [id, members] : in_.lbOutput->lb()) handleL2RibLb(id);
  }
  if (in_.destOutput) {
    for (const auto& [id, dest] : in_.destOutput->dest()) handleL2RibDest(id);
  }
  for (const auto& [key, row] : in_.macTable->macEntry()) handleMacEntry(key);
  // Hosts restored from before a restart are reconciled with the hardware
  // too: those it no longer holds go.
  std::vector<MacVlanPair> restored;
  in_.bridgingStatus->forEachLearnedHost([&](const MacVlanPair& key, const Bridging::LearnedHost&) {
    if (!in_.macTable->macEntryHas(key)) restored.push_back(key);
  });
  for (const auto& key : restored) handleMacEntry(key);
  std::vector<MacVlanPair> remote;
  for (const auto& [key, row] : in_.bridgingStatus->remoteStatusTable()) remote.push_back(key);
  for (const auto& key : remote) reevaluateEntry(key);
  // Last, the recovery of the remote entries the hardware kept across a
  // hitless restart.
  startRemoteMacRecovery();
}

const Vex::Ptr<NonAgingStatus>& MacAddrSm::nonAgingMacStatus() const {
  static const Vex::Ptr<NonAgingStatus> none;
  return nonAgingReactor_ ? nonAgingReactor_->notifier() : none;
}

void MacAddrSm::nonAgingMacStatusIs(const Vex::Ptr<NonAgingStatus>& status) {
  std::vector<MacVlanPair> keys;
  auto collect = [&] {
    if (!nonAgingReactor_) return;
    for (const auto& [key, entry] : nonAgingReactor_->notifier()->macEntries()) keys.push_back(key);
  };
  collect();
  nonAgingReactor_.reset();
  if (status) nonAgingReactor_ = std::make_unique<NonAgingReactor>(this, status);
  collect();
  for (const auto& key : keys) reevaluateEntry(key);
}

Vex::Ptr<MacAddrSm> macAddrSmFactory(const MacAddrSmInputs& inputs) { return Vex::make<MacAddrSm>(inputs); }

}  // namespace Orb
