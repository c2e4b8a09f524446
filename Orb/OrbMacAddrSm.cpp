#include "Orb/OrbMacAddrSm.h"

#include "Orb/OrbMacAddrSmParts.h"
#include "Orb/OrbTrace.h"
#include "platform/log/LogEvent.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <utility>

namespace Orb {

namespace MacAddrSmParts {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbMacAddrSm");
  return handle;
}

const Log::EventDef& bankFullEvent() {
  static const Log::EventDef& def = Log::define(
      {"ETH_MACADDRBANKFULL", "MAC address %s on VLAN %d (%s) could not be programmed: the hardware MAC table is full",
       "The forwarding chip's MAC address table has no room for this entry; traffic to the address is flooded.",
       "Reduce the number of MAC addresses (shorter aging time, fewer hosts or VLANs), or move hosts to other "
       "switches."});
  return def;
}

std::string keyText(const MacVlanPair& key) {
  return fmt::format("{} vlan {}", key.addr.stringValue(), key.vlanId.value());
}

RemoteMacAddressTableEntry fromRow(const MacAddressTableEntry& row) {
  RemoteMacAddressTableEntry entry;
  entry.macVlanPair = row.macVlanPair;
  entry.intf = row.intf;
  entry.entryType = row.entryType;
  entry.moves = row.moves;
  entry.lastMoveTime = row.lastMoveTime;
  return entry;
}

RemoteMacAddressTableEntry fromHost(const MacVlanPair& key, const Bridging::LearnedHost& host) {
  return fromRow(MacAddressTableEntry{key, host.intf, host.entryType, host.moves, host.lastMoveTime});
}

MacAddressTableEntry toRow(const RemoteMacAddressTableEntry& entry) {
  return MacAddressTableEntry{entry.macVlanPair, entry.intf, entry.entryType, entry.moves, entry.lastMoveTime};
}

// What hardware holds for an entry: equal when nothing needs programming.
bool sameProgramming(const RemoteMacAddressTableEntry& a, const RemoteMacAddressTableEntry& b) {
  return a.intf == b.intf && a.entryType == b.entryType && a.swTunnelGroupId == b.swTunnelGroupId &&
         a.hasL2RibObjTuple == b.hasL2RibObjTuple && (!a.hasL2RibObjTuple || a.l2RibObjTuple == b.l2RibObjTuple);
}

bool learnedHere(EntryType type) {
  return type == EntryType::entryDynamic || type == EntryType::entryConfiguredDynamic ||
         type == EntryType::entryStatic || type == EntryType::entryAuthenticated;
}

Vex::Seconds threadCpuTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

}  // namespace MacAddrSmParts

using namespace MacAddrSmParts;

const char* macEntryTypeWord(EntryType type) {
  const char* word = Bridging::entryTypeWord(type);
  if (!word) orbAssert("0 && \"invalid entryType\"");
  return word;
}

bool isRemoteEntryType(EntryType type) {
  auto value = static_cast<int>(type);
  return value >= 8 && value <= 16;
}

bool isStaticRemoteEntryType(EntryType type) {
  return type == EntryType::entryStaticRemote || type == EntryType::entryPeerStaticRemote ||
         type == EntryType::entryEvpnStaticRemote;
}

bool isStaticEntryType(EntryType type) {
  return type == EntryType::entryStatic || type == EntryType::entryStaticRemote ||
         type == EntryType::entryAuthenticated;
}

RemoteMacAddressTableEntry ModifyMacEntry::entry() const {
  RemoteMacAddressTableEntry e;
  e.macVlanPair = macVlanPair_;
  e.intf = intf_;
  e.entryType = entryType_;
  e.swTunnelGroupId = swTunnelGroupId;
  e.moves = moves_;
  e.lastMoveTime = lastMoveTime;
  e.isMplsNextHop = isMplsNextHop;
  e.l2RibObjTuple = l2RibObjTuple;
  e.hasL2RibObjTuple = hasL2RibObjTuple;
  return e;
}

Vex::Ptr<ModifyMacEntry> modifyMacEntryFactory(const MacVlanPair& macVlanPair, const IntfId& intf, EntryType entryType,
                                               Keel::Seqno32 moves) {
  return Vex::make<ModifyMacEntry>(macVlanPair, intf, entryType, moves);
}

const RemoteMacAddressTableEntry* betterEntry(const RemoteMacAddressTableEntry* a, const RemoteMacAddressTableEntry* b,
                                              const SwTunnelGroupIdMap* tunnels) {
  if (!b) return a;
  if (!a) return b;
  auto rank = [](const RemoteMacAddressTableEntry& e) {
    return static_cast<unsigned>(e.preference) * 256u + (isStaticEntryType(e.entryType) ? 1u : 0u);
  };
  if (rank(*a) != rank(*b)) return rank(*a) > rank(*b) ? a : b;
  if (a->moves != b->moves) return a->moves > b->moves ? a : b;
  if (a->lastMoveTime != b->lastMoveTime) {
    // Unordered times (NaN) fall through to b.
    if (a->lastMoveTime > b->lastMoveTime) return a;
    if (a->lastMoveTime < b->lastMoveTime) return b;
    return b;
  }
  if (a->hasL2RibObjTuple != b->hasL2RibObjTuple) return a->hasL2RibObjTuple ? a : b;
  if (a->hasL2RibObjTuple) return b->l2RibObjTuple < a->l2RibObjTuple ? a : b;
  if (tunnels) {
    const auto& ta = tunnels->group(a->swTunnelGroupId);
    const auto& tb = tunnels->group(b->swTunnelGroupId);
    if (!ta.empty() && !tb.empty() && ta != tb) return tb < ta ? a : b;
  }
  return b;
}

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
  // hitless restart; after any other start there is nothing to recover.
  remoteMacRecoveryHelperSm_ = Vex::make<RemoteMacRecoveryHelperSm>(
      in_.bridgingStatus, in_.rmacInfoDir,
      [this](const RemoteMacAddressTableEntry& entry) { return nextHopId(entry); });
  if (ocsd()->operationalMode() != HwOperationalMode::hwModeHitlessRestart) {
    remoteMacRecoveryHelperSm_->completeIs(true);
    return;
  }
  remoteMacRecoveryHelperSm_->recover();
  for (const auto& [key, row] : in_.bridgingStatus->remoteStatusTable()) {
    if (row.hasL2RibObjTuple) l2RibObjCache_.programmedIs(key, row.l2RibObjTuple, nextHopId(row));
  }
  if (in_.remoteHostTable && in_.remoteHostTable->remoteMacsReady()) handleStageRemoteMacsReady();
}

void MacAddrSm::doClearRemoteMacsFromFdbStatus() {
  std::vector<MacVlanPair> stale;
  in_.bridgingStatus->forEachLearnedHost([&](const MacVlanPair& key, const Bridging::LearnedHost& host) {
    if (isRemoteEntryType(host.entryType)) stale.push_back(key);
  });
  for (const auto& key : stale) delFromFdbStatus(key);
}

// --- choosing ---

bool MacAddrSm::peerEntriesAllowed() const {
  return in_.mlagStatus && in_.mlagStatus->mlagStateValid() && !in_.mlagStatus->peerLinkIntf().empty();
}

const char* MacAddrSm::sourceName(Source source) {
  switch (source) {
    case Source::l2Rib:
      return "l2Rib";
    case Source::evpnReceived:
    case Source::evpnConfigured:
      return "evpnMacTable";
    case Source::fdbConfig:
    case Source::nonAging:
    case Source::dot1x:
      return "fdbConfig";
    case Source::mlagPeer:
      return "mlagHostTable";
  }
  return "";
}

bool MacAddrSm::sourceHas(Source source, const MacVlanPair& key) const {
  switch (source) {
    case Source::l2Rib:
      return in_.l2RibOutput && in_.l2RibOutput->hostHas(key);
    case Source::evpnReceived:
      return in_.remoteHostTable && in_.remoteHostTable->receivedHostHas(key);
    case Source::evpnConfigured:
      return in_.remoteHostTable && in_.remoteHostTable->configuredHostHas(key);
    case Source::fdbConfig:
      return in_.bridgingConfig->fdbConfigHas(key);
    case Source::nonAging:
      return nonAgingReactor_ && nonAgingReactor_->notifier()->macEntriesHas(key);
    case Source::dot1x:
      // The local 802.1X table is keyed by address; its row names the VLAN.
      return dot1xLocalHostTable_ && dot1xLocalHostTable_->hostHas(key.addr);
    case Source::mlagPeer:
      return in_.mlagHostTable && in_.mlagHostTable->hostEntryHas(key);
  }
  return false;
}

bool MacAddrSm::sourceEmpty(Source source) const {
  switch (source) {
    case Source::l2Rib:
      return !in_.l2RibOutput || in_.l2RibOutput->host().empty();
    case Source::evpnReceived:
      return !in_.remoteHostTable || in_.remoteHostTable->receivedHost().empty();
    case Source::evpnConfigured:
      return !in_.remoteHostTable || in_.remoteHostTable->configuredHost().empty();
    case Source::fdbConfig:
      return in_.bridgingConfig->fdbConfig().empty();
    case Source::nonAging:
      return !nonAgingReactor_ || nonAgingReactor_->notifier()->macEntries().empty();
    case Source::dot1x:
      return !dot1xLocalHostTable_ || dot1xLocalHostTable_->host().empty();
    case Source::mlagPeer:
      return !in_.mlagHostTable || in_.mlagHostTable->hostEntry().empty();
  }
  return true;
}

RemoteMacAddressTableEntry MacAddrSm::sourceEntry(Source source, const MacVlanPair& key) const {
  switch (source) {
    case Source::l2Rib:
      return in_.l2RibOutput->host(key);
    case Source::evpnReceived:
      return in_.remoteHostTable->receivedHost(key);
    case Source::evpnConfigured:
      return in_.remoteHostTable->configuredHost(key);
    case Source::fdbConfig:
      return fromRow(in_.bridgingConfig->fdbConfig(key));
    case Source::nonAging:
      return fromRow(nonAgingReactor_->notifier()->macEntries(key));
    case Source::dot1x:
      return fromRow(dot1xLocalHostTable_->host(key.addr));
    case Source::mlagPeer:
      return fromRow(in_.mlagHostTable->hostEntry(key));
  }
  return {};
}

std::optional<RemoteMacAddressTableEntry> MacAddrSm::configuredEntry(const MacVlanPair& key) {
  std::optional<RemoteMacAddressTableEntry> best;
  // Colliding keys are kept, not counted per look, so that the count says
  // how many static entries are set aside now.
  bool colliding = false;
  for (Source source : sources) {
    if (sourceEmpty(source) || !sourceHas(source, key)) continue;
    auto candidate = sourceEntry(source, key);
    if (source == Source::fdbConfig && in_.routerMacTable && in_.routerMacTable->macEntryHas(key)) {
      colliding = true;
      if (collidingStaticEntryWithRouterMacEntry_.insert(key).second) {
        BLIP(trace(), 3, "collision of static entry {} with router mac entry", keyText(key));
      }
      continue;
    }
    if (source == Source::dot1x && candidate.macVlanPair != key) continue;
    if (source == Source::mlagPeer) {
      if (!peerEntriesAllowed()) continue;
      // The peer's address is reached over the MLAG interface if this switch
      // has it, else over the peer link.
      if (!ocsd()->lagToPortHas(candidate.intf)) candidate.intf = in_.mlagStatus->peerLinkIntf();
    }
    BLIP(trace(), 8, "candidate from {} {}", sourceName(source), keyText(key));
    const auto* winner = betterEntry(best ? &*best : nullptr, &candidate, in_.swTunnelIdMap.get());
    if (winner == &candidate) best = candidate;
  }
  if (!colliding && !collidingStaticEntryWithRouterMacEntry_.empty())
    collidingStaticEntryWithRouterMacEntry_.erase(key);
  return best;
}

std::optional<RemoteMacAddressTableEntry> MacAddrSm::currentEntry(const MacVlanPair& key) const {
  const auto& rows = in_.macTable->macEntry();
  auto row = rows.find(key);
  return currentEntry(key, row == rows.end() ? nullptr : &row->second);
}

std::optional<RemoteMacAddressTableEntry> MacAddrSm::currentEntry(const MacVlanPair& key,
                                                                  const MacAddressTableEntry* row) const {
  const auto& remote = in_.bridgingStatus->remoteStatusTable();
  if (!remote.empty()) {
    auto it = remote.find(key);
    if (it != remote.end()) return it->second;
  }
  const auto* host = in_.bridgingStatus->learnedHost(key);
  if (!host) return std::nullopt;
  // What the hardware holds is the row this machine wrote into the MAC
  // table. Once the chip's report of a move or an age has taken that row's
  // place, what is programmed until the change is made is what `fdbStatus`
  // published with it.
  if (row && isProgrammedRow(*row, *host)) return fromRow(*row);
  return fromHost(key, *host);
}

bool MacAddrSm::checkIgnoreEvent(const MacAddressTableEntry& learned) {
  const IntfId& intf = learned.intf;
  const char* why = nullptr;
  auto vlan = learned.macVlanPair.vlanId.value();
  if (vlan < 1 || vlan > 4094) {
    why = ": vlan out of range";
  } else if (!ocsd()->intfHas(intf) && !ocsd()->lagToPortHas(intf) && !ocsd()->cpuIntfHas(intf)) {
    why = intf.isLag() ? ": unknown LAG" : ": unknown intf";
  } else if (!macLearningStatusOnPort(intf)) {
    why = ": learning off on port";
  } else if (in_.bridgingConfig->macLearningDisabledVlan(learned.macVlanPair.vlanId)) {
    why = ": learning off on vlan";
  } else if (!vlanMember(intf, learned.macVlanPair.vlanId)) {
    why = ": not a member of the vlan";
  } else if (in_.fsfStatus && in_.fsfStatus->failedServer(learned.macVlanPair.addr)) {
    why = ": failed fast-failover server";
  }
  if (!why) return false;
  BLIP(trace(), 6, "Ignoring event for mac entry {} on {}{}", keyText(learned.macVlanPair), intf.stringValue(), why);
  return true;
}

bool MacAddrSm::vlanMember(const IntfId& intf, VlanId vlanId) const {
  // Without a VLAN helper there is no membership to go by.
  if (!in_.vlanHelper || ocsd()->cpuIntfHas(intf)) return true;
  auto member = [&](const IntfId& port) {
    const auto& pvm = in_.vlanHelper->portVlanMembership(port);
    return pvm && pvm->ingressVlan(vlanId) && (pvm->untaggedVlan(vlanId) || pvm->taggedVlan(vlanId));
  };
  if (member(intf)) return true;
  // A LAG and its member ports share their VLANs, whichever of them the
  // VLAN helper names.
  auto portsOf = [&](const IntfId& lag) {
    const auto& ports = ocsd()->lagToPort(lag).ports;
    return std::any_of(ports.begin(), ports.end(), [&](const auto& port) { return member(port.first); });
  };
  if (ocsd()->lagToPortHas(intf)) return portsOf(intf);
  const IntfId& lag = ocsd()->portToLag(intf);
  return !lag.empty() && (member(lag) || portsOf(lag));
}

bool MacAddrSm::vlanHasMembers(VlanId vlanId) const {
  auto cache = in_.vlanHelper->vlanCache(vlanId);
  return cache && !cache->add().empty();
}

std::set<IntfId> MacAddrSm::vlanMembers(VlanId vlanId) const {
  std::set<IntfId> members;
  if (auto cache = in_.vlanHelper->vlanCache(vlanId)) {
    for (const auto& [intf, tagged] : cache->add()) members.insert(intf);
  }
  return members;
}

void MacAddrSm::handleVlanUpdateDone(VlanId vlanId) {
  // A port that left the VLAN (not one spanning tree holds out: that one
  // is still configured) takes the addresses it learned there along, now
  // that the chip no longer lets the VLAN's frames in on it: left behind,
  // they would send the VLAN's frames to a port outside it.
  auto members = vlanMembers(vlanId);
  auto& before = vlanMembers_[vlanId];
  bool flushes = false;
  for (const auto& intf : before) {
    if (members.count(intf)) continue;
    BLIP(trace(), 5, "{} left vlan {}: flushing its addresses there", intf.stringValue(), vlanId.value());
    if (intf.isLag() && !intf.isSubIntf()) {
      flushLag(intf, vlanId.value());
    } else {
      flushPort(intf, vlanId.value());
    }
    flushes = true;
  }
  if (members.empty()) {
    vlanMembers_.erase(vlanId);
  } else {
    before = std::move(members);
  }
  if (flushes && flushReqTimer_->timeMin() == Vex::never) flushReqTimer_->timeMinIs(Vex::now());
  if (vlanHasMembers(vlanId)) {
    vlansWithMembers_.insert(vlanId);
  } else if (vlansWithMembers_.erase(vlanId)) {
    BLIP(trace(), 5, "vlan {} deleted", vlanId.value());
    in_.orbHelper->handleVlanDelete(vlanId);
  }
  // A port may have joined the VLAN of a row turned down before.
  for (const auto& key : ignoredRows_) {
    if (key.vlanId == vlanId) queueReview(key);
  }
}

void MacAddrSm::walkVlanConfiguration() {
  if (!in_.vlanHelper) return;
  std::vector<VlanId> gone;
  for (const auto& [vlanId, cache] : in_.vlanHelper->vlanCache()) {
    if (vlanHasMembers(vlanId)) {
      vlansWithMembers_.insert(vlanId);
      // Ports the chip still has in the VLAN count as members too: one that
      // left while this machine was not there (its update failed or is on
      // its way) is flushed once the chip takes it out. A port spanning tree
      // holds out of the VLAN's egress still takes its frames in, and may
      // have left too.
      auto& members = vlanMembers_[vlanId];
      members = vlanMembers(vlanId);
      for (const auto& [intf, pvm] : in_.vlanHelper->portVlanMembership()) {
        if (pvm && (pvm->taggedVlan(vlanId) || pvm->untaggedVlan(vlanId) || pvm->ingressVlan(vlanId))) {
          members.insert(intf);
        }
      }
    } else {
      gone.push_back(vlanId);
    }
  }
  // Deleted while this machine was not there to hear it.
  std::sort(gone.begin(), gone.end());
  for (auto vlanId : gone) {
    BLIP(trace(), 5, "vlan {} deleted", vlanId.value());
    in_.orbHelper->handleVlanDelete(vlanId);
  }
}

void MacAddrSm::maybeUpdateMoveCount(RemoteMacAddressTableEntry& wanted, const RemoteMacAddressTableEntry* current,
                                     double time) {
  if (!current) return;
  bool moved = current->intf != wanted.intf ||
               isRemoteEntryType(current->entryType) != isRemoteEntryType(wanted.entryType) ||
               current->swTunnelGroupId != wanted.swTunnelGroupId;
  if (moved) {
    wanted.moves = current->moves + 1;
    wanted.lastMoveTime = time;
    BLIP(trace(), 7, "Settting moves to current+1: {}", wanted.moves.value());
  } else {
    wanted.moves = current->moves;
    wanted.lastMoveTime = current->lastMoveTime;
    BLIP(trace(), 8, "Not incremented moves: {}", wanted.moves.value());
  }
}

void MacAddrSm::reevaluateEntry(const MacVlanPair& key) { reevaluateEntry(key, Vex::now()); }

void MacAddrSm::reevaluateEntry(const MacVlanPair& key, double time) {
  const auto& rows = in_.macTable->macEntry();
  auto row = rows.find(key);
  const MacAddressTableEntry* hardware = row == rows.end() ? nullptr : &row->second;
  auto current = currentEntry(key, hardware);
  // The row this machine wrote for a static, peer or other configured entry
  // is not a learn: what it holds stands only while its source wants it.
  // After a restart the status that said so is gone, but a row that is
  // exactly what a source configures is still this machine's, not the chip's.
  if (hardware && hardware->entryType != EntryType::entryDynamic &&
      (isProgrammedRow(*hardware) || isConfiguredRow(*hardware))) {
    hardware = nullptr;
  }
  // A learned entry whose row the hardware dropped was aged out by it.
  if (!hardware && current && learnedHere(current->entryType) && !isStaticEntryType(current->entryType)) {
    handleAddressAged(key);
    return;
  }
  evaluateEntry(key, hardware, false, time, std::move(current));
}

bool MacAddrSm::isConfiguredRow(const MacAddressTableEntry& row) {
  auto configured = configuredEntry(row.macVlanPair);
  return configured && configured->intf == row.intf && configured->entryType == row.entryType;
}

void MacAddrSm::evaluateEntry(const MacVlanPair& key, const MacAddressTableEntry* hardware, bool agedInHardware,
                              double time) {
  evaluateEntry(key, hardware, agedInHardware, time, currentEntry(key));
}

void MacAddrSm::evaluateEntry(const MacVlanPair& key, const MacAddressTableEntry* hardware, bool agedInHardware,
                              double time, std::optional<RemoteMacAddressTableEntry> current) {
  BLIP(trace(), 7, "Evaluating MAC entry: {}, learned in hardware: {}, aged in hardware: {}", keyText(key),
       hardware != nullptr, agedInHardware);
  auto configured = configuredEntry(key);
  // An ignored row did not happen: what the machine programmed from the
  // hardware before stands, and the row is looked at again once whatever
  // made it ignored changes.
  std::optional<MacAddressTableEntry> stood;
  if (hardware && checkIgnoreEvent(*hardware)) {
    ignoredRows_.insert(key);
    hardware = nullptr;
    // An entry on an interface that is gone goes with it.
    if (current && current->entryType == EntryType::entryDynamic && isLocalIntf(current->intf)) {
      stood = toRow(*current);
      hardware = &*stood;
    }
  } else if (hardware && !ignoredRows_.empty()) {
    ignoredRows_.erase(key);
  }
  if (configured) BLIP(trace(), 8, "Configured entry is {}", configured->intf.stringValue());
  if (current) BLIP(trace(), 8, "Current entry is {}", current->intf.stringValue());

  std::optional<RemoteMacAddressTableEntry> wanted;
  if (configured && isStaticEntryType(configured->entryType)) {
    BLIP(trace(), 7, "{}", isRemoteEntryType(configured->entryType) ? "Entry is static remote" : "Entry is static");
    wanted = configured;
  } else if (hardware) {
    auto learned = fromRow(*hardware);
    learned.entryType = EntryType::entryDynamic;
    if (current) {
      // What the hardware reports is where the address is now: it takes the
      // move count of what was programmed, plus one if it moved.
      learned.moves = current->moves;
      learned.lastMoveTime = current->lastMoveTime;
      if (current->intf != learned.intf || isRemoteEntryType(current->entryType)) {
        learned.moves = current->moves + 1;
        learned.lastMoveTime = time;
      }
    } else {
      learned.lastMoveTime = time;
    }
    if (configured) {
      BLIP(trace(), 8, "{}, peer move time is {}", keyText(key), configured->lastMoveTime);
      const auto* winner = betterEntry(&*configured, &learned, in_.swTunnelIdMap.get());
      if (winner == &*configured) BLIP(trace(), 7, "Using peer dynamic entry {}", keyText(key));
      wanted = *winner;
    } else {
      wanted = learned;
    }
  } else {
    wanted = configured;
  }

  EntryEvaluationAction action = EntryEvaluationAction::none;
  bool movedToLocal = false, movedToRemote = false;
  if (!wanted && current && isRemoteEntryType(current->entryType) && remoteMacRecoveryInProgress()) {
    // The control plane may not have sent it again yet.
    BLIP(trace(), 6, "{}: recovered remote entry kept during hitless recovery", keyText(key));
    return;
  }
  if (!wanted) {
    if (current) {
      if (agedInHardware) BLIP(trace(), 6, "Deleting this entry. {}", keyText(key));
      action = EntryEvaluationAction::remove;
    }
  } else {
    if (!hardware || wanted->intf != hardware->intf) maybeUpdateMoveCount(*wanted, current ? &*current : nullptr, time);
    if (current && sameProgramming(*current, *wanted)) {
      action = EntryEvaluationAction::none;
    } else if (current && isRemoteEntryType(current->entryType) && !isRemoteEntryType(wanted->entryType)) {
      action = EntryEvaluationAction::remoteToLocal;
      movedToLocal = true;
    } else {
      action = EntryEvaluationAction::addOrModify;
      movedToRemote = current && !isRemoteEntryType(current->entryType) && isRemoteEntryType(wanted->entryType);
    }
  }
  if (action == EntryEvaluationAction::none) {
    // Nothing to program, but a change still queued for the key is stale.
    if (!updateList_.empty()) updateList_.erase(key);
    return;
  }
  if (action == EntryEvaluationAction::addOrModify && !hasVni(*wanted)) {
    // Set aside, not queued: it is looked at again when the VLAN gets one.
    BLIP(trace(), 3, "ERROR: no mapping for vni of vlan {}: {} waits for one", key.vlanId.value(), keyText(key));
    waitForVni(key);
    if (!updateList_.empty()) updateList_.erase(key);
    return;
  }
  addToUpdateList(wanted ? *wanted : *current, action, movedToLocal, movedToRemote, time);
}

// --- reactions ---

void MacAddrSm::handleMacEntry(const MacVlanPair& key) {
  if (writingMacTable_) return;
  // The hardware dropped an entry this machine holds nothing for (a
  // flushed one, say): nothing to review.
  if (!in_.macTable->macEntryHas(key)) {
    if (!ignoredRows_.empty()) ignoredRows_.erase(key);
    if (flushingInChip_ ? !flushKept_.contains(key) && !(!updateList_.empty() && updateList_.contains(key))
                        : !wantedElsewhere(key) && !currentEntry(key)) {
      return;
    }
  }
  if (!deferMacTableUpdate) {
    reevaluateEntry(key);
    return;
  }
  // The queue of changes is not sized for a whole burst ahead: reviews and
  // programming take turns, and it holds only what the reviews are ahead by.
  if (!macTableUpdateList_.push(key)) return;
  if (macTableTimer_->timeMin() == Vex::never) macTableTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::queueReview(const MacVlanPair& key) {
  if (macTableUpdateList_.push(key) && macTableTimer_->timeMin() == Vex::never) macTableTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::reviewIgnoredRows() {
  // Few rows are ever ignored (a chip does not learn where learning is
  // off): all of them are looked at again, in the review's slices.
  for (const auto& key : ignoredRows_) queueReview(key);
}

void MacAddrSm::withdrawLearn(const MacVlanPair& key) {
  // The hardware's row no longer counts; it waits as an ignored one.
  if (in_.macTable->macEntryHas(key)) ignoredRows_.insert(key);
  evaluateEntry(key, nullptr, true, Vex::now());
}

void MacAddrSm::lookAheadAtKey(const MacVlanPair& key, Ahead ahead) const {
  Vex::lookAhead(in_.macTable->macEntry(), key);
  if (const auto& fdb = in_.bridgingStatus->fdbStatus(Bridging::Status::fidOf(key))) {
    Vex::lookAhead(fdb->learnedHost(), key.addr);
  }
  if (ahead == Ahead::programming) {
    in_.orbHelper->lookAheadAtHost(key);
    if (in_.l2RibInput) Vex::lookAhead(in_.l2RibInput->host(), key);
  }
  if (updateList_.empty()) return;
  auto change = updateList_.find(key);
  if (change != updateList_.end()) Vex::prefetchMemory(change->second.get());
}

void MacAddrSm::handleMacTableUpdate() {
  // The keys of one slice are reviewed at the slice's time; the clock is
  // read again only every few keys, to end the slice on time. Each stretch
  // of keys is looked up ahead, so that waits for memory overlap.
  Vex::Seconds start = Vex::now(), now = start, cpuStart = threadCpuTime();
  for (unsigned reviewed = 1; !macTableUpdateList_.empty(); ++reviewed) {
    if (reviewed % Vex::lookAheadDistance == 1) {
      macTableUpdateList_.lookAhead(Vex::lookAheadDistance,
                                    [this](const MacVlanPair& key) { lookAheadAtKey(key, Ahead::review); });
    }
    reevaluateEntry(macTableUpdateList_.pop(), now);
    if (reviewed % clockReadInterval != 0) continue;
    // Over the limit a slice still reviews a few keys, so that changes the
    // chip keeps refusing never stall the reviews.
    if (updateList_.size() >= macReviewAheadLimit && reviewed >= Vex::lookAheadDistance) break;
    if ((now = Vex::now()) - start > macTableReviewQuanta) break;
  }
  now = Vex::now();
  sliceEnds(start, cpuStart, now);
  if (!macTableUpdateList_.empty()) macTableTimer_->timeMinIs(now);
}

void MacAddrSm::handleMlagHostTableEntry(const MacVlanPair& key) {
  trackPeerHost(key);
  reevaluateEntry(key);
}

// A chip layer that reports learns as events rather than table writes.
void MacAddrSm::handleAddressLearnt(const MacAddressTableEntry& entry) {
  evaluateEntry(entry.macVlanPair, &entry, false, Vex::now());
}

void MacAddrSm::handleAddressAged(const MacVlanPair& key) {
  BLIP(trace(), 6, " address aged - {}", keyText(key));
  auto current = currentEntry(key);
  evaluateEntry(key, nullptr, current && !isStaticEntryType(current->entryType), Vex::now());
}

void MacAddrSm::reevaluateRemoteEntries() {
  std::vector<MacVlanPair> keys;
  for (const auto& [key, entry] : in_.bridgingStatus->remoteStatusTable()) keys.push_back(key);
  if (in_.l2RibOutput) {
    for (const auto& [key, entry] : in_.l2RibOutput->host()) keys.push_back(key);
  }
  for (const auto& key : keys) reevaluateEntry(key);
}

// Destinations and load-balance groups are L2 RIB objects that hosts point
// to: the hosts whose object is `id` are reviewed.
void MacAddrSm::handleL2RibHost(const MacVlanPair& key) {
  std::optional<L2Rib::ObjTuple> tuple;
  if (in_.l2RibOutput && in_.l2RibOutput->hostHas(key) && in_.l2RibOutput->host(key).hasL2RibObjTuple) {
    tuple = in_.l2RibOutput->host(key).l2RibObjTuple;
  }
  l2RibObjCache_.hostIs(key, tuple);
  reevaluateEntry(key);
}

void MacAddrSm::handleL2RibDest(std::uint64_t id) {
  const auto& hosts = l2RibObjCache_.dependantHosts({L2Rib::objTypeDest, id});
  BLIP(trace(), 7, "L2 RIB dest {}: {} hosts", id, hosts.size());
  for (const auto& key : hosts) reevaluateEntry(key);
}

void MacAddrSm::handleL2RibLb(std::uint64_t id) {
  L2Rib::ObjTuple lb{L2Rib::objTypeLoadBalance, id};
  std::vector<L2Rib::ObjTuple> members;
  if (in_.lbOutput) {
    for (auto member : in_.lbOutput->lb(id)) members.push_back({L2Rib::objTypeDest, member});
  }
  l2RibObjCache_.lbIs(lb, members);
  for (const auto& key : l2RibObjCache_.dependantHosts(lb)) reevaluateEntry(key);
}

void MacAddrSm::reevaluateKeysOnIntf(const IntfId& intf) {
  // Hosts are kept by VLAN, not by interface: every VLAN's hosts are looked
  // through, in slices, and those on the interface go to the review.
  IntfHostWalk walk;
  walk.intf = intf;
  for (const auto& [fid, fdb] : in_.bridgingStatus->fdbStatus()) walk.fids.push_back(fid);
  if (walk.fids.empty()) return;
  intfHostWalks_.push_back(std::move(walk));
  if (intfHostWalkTimer_->timeMin() == Vex::never) intfHostWalkTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::handleIntfHostWalk() {
  Vex::Seconds start = Vex::now(), cpuStart = threadCpuTime();
  ++intfHostWalkSlices_;
  std::size_t visited = 0;
  auto timeUp = [&] { return ++visited % 64 == 0 && Vex::now() - start > macTableReviewQuanta; };
  while (!intfHostWalks_.empty()) {
    auto& walk = intfHostWalks_.front();
    while (!walk.fids.empty()) {
      const auto& fdb = in_.bridgingStatus->fdbStatus(walk.fids.back());
      auto vlanId = Bridging::Status::vlanOf(walk.fids.back());
      if (fdb && vlanId) {
        const auto& hosts = fdb->learnedHost();
        auto it = hosts.begin();
        // Resume where the last slice stopped unless the table was rebuilt
        // meanwhile; then from its start again (a host reviewed twice is
        // harmless).
        if (walk.next && hosts.bucket_count() == walk.buckets) {
          if (auto at = hosts.find(*walk.next); at != hosts.end()) it = at;
        }
        for (; it != hosts.end(); ++it) {
          if (it->second.intf == walk.intf) queueReview(MacVlanPair{it->first, *vlanId});
          if (!timeUp()) continue;
          if (auto next = std::next(it); next != hosts.end()) {
            walk.next = next->first;
            walk.buckets = hosts.bucket_count();
            sliceEnds(start, cpuStart, Vex::now());
            intfHostWalkTimer_->timeMinIs(Vex::now());
            return;
          }
        }
      }
      walk.fids.pop_back();
      walk.next.reset();
    }
    intfHostWalks_.pop_front();
  }
  sliceEnds(start, cpuStart, Vex::now());
}

void MacAddrSm::handleIntf(const IntfId& intf) {
  configureMacLearningOnPort(intf);
  // Entries on an interface that is gone go with it; rows reported on it
  // meanwhile count once it is back.
  if (!ocsd()->intfHas(intf)) {
    reevaluateKeysOnIntf(intf);
  } else {
    reviewIgnoredRows();
  }
}

void MacAddrSm::handleEthIntfStatus(const IntfId& intf) {
  if (in_.ethPhyIntfStatusDir && !in_.ethPhyIntfStatusDir->linkUp(intf)) reevaluateKeysOnIntf(intf);
}

void MacAddrSm::handleTunnelLearnEvent() { reevaluateRemoteEntries(); }

void MacAddrSm::handleStageRemoteMacsReady() {
  if (remoteMacRecoveryHelperSm_ && !remoteMacRecoveryHelperSm_->complete()) {
    BLIP(trace(), 5, "Remote MACs ready: hitless recovery of {} remote MACs complete",
         remoteMacRecoveryHelperSm_->recovered());
    remoteMacRecoveryHelperSm_->completeIs(true);
  }
  // Recovered entries that no source sent again go now.
  reevaluateRemoteEntries();
}

bool MacAddrSm::remoteMacRecoveryInProgress() const {
  if (ocsd()->operationalMode() != HwOperationalMode::hwModeHitlessRestart) return false;
  return !remoteMacRecoveryHelperSm_ || !remoteMacRecoveryHelperSm_->complete();
}

void MacAddrSm::handleVerify() {
  in_.orbHelper->handleVerify();
  for (const auto& [intf, enabled] : learningOnPort_) in_.orbHelper->verifyLearning(intf, enabled);
  for (const auto& vlanId : in_.bridgingConfig->macLearningDisabledVlan())
    in_.orbHelper->verifyLearningOnVlan(vlanId, false);
  if (!verifyRemoteMac) return;
  for (const auto& [key, entry] : in_.bridgingStatus->remoteStatusTable()) {
    in_.orbHelper->verifyRemoteHost(key, nextHopId(entry));
  }
  in_.orbHelper->verifyNumRemoteHost(static_cast<std::uint32_t>(in_.bridgingStatus->remoteStatusTableSize()));
}

void MacAddrSm::handleObjTupleToHwIdMap(const L2Rib::ObjTuple& tuple) {
  // Hosts programmed with another hardware id for the object go again.
  for (const auto& key : l2RibObjCache_.dependantHosts(tuple)) {
    auto programmed = l2RibObjCache_.programmedHwId(key);
    if (!programmed || !in_.bridgingStatus->remoteStatusTableHas(key)) {
      reevaluateEntry(key);
      continue;
    }
    const auto& entry = in_.bridgingStatus->remoteStatusTable(key);
    if (!in_.objTupleToHwId->hwIdHas(entry.l2RibObjTuple) || nextHopId(entry) == *programmed) continue;
    BLIP(trace(), 6, "{}: hardware id of its L2 RIB object changed", keyText(key));
    addToUpdateList(entry, EntryEvaluationAction::addOrModify, false, false);
  }
}

void MacAddrSm::reevaluateKeysOfAddress(const Nexo::EthAddr& addr) {
  // An address has at most one key per VLAN: those are looked up, never
  // the whole hardware table walked.
  std::vector<MacVlanPair> keys;
  for (std::uint16_t vlan = 1; vlan <= 4094; ++vlan) {
    MacVlanPair key{addr, VlanId(vlan)};
    if (in_.macTable->macEntryHas(key) || in_.bridgingStatus->learnedHost(key)) keys.push_back(key);
  }
  // A failed server's learns stop counting; once it is back its rows do.
  bool failed = in_.fsfStatus && in_.fsfStatus->failedServer(addr);
  for (const auto& key : keys) {
    if (failed) {
      withdrawLearn(key);
    } else {
      reevaluateEntry(key);
    }
  }
}

void MacAddrSm::handleDot1xHostTableEntry(const Nexo::EthAddr& addr) {
  std::optional<MacVlanPair> oldKey;
  if (dot1xLocalHostTable_->hostHas(addr)) oldKey = dot1xLocalHostTable_->host(addr).macVlanPair;
  if (in_.dot1xHostTable->hostHas(addr)) {
    auto row = in_.dot1xHostTable->host(addr);
    row.entryType = EntryType::entryAuthenticated;
    dot1xLocalHostTable_->hostIs(addr, row);
    reevaluateEntry(row.macVlanPair);
  } else {
    dot1xLocalHostTable_->hostDel(addr);
  }
  if (oldKey) reevaluateEntry(*oldKey);
}

void MacAddrSm::handleDot1xIntfStatus(const IntfId& intf) { configureMacLearningOnPort(intf); }

void MacAddrSm::handleEthIntfConfig(const IntfId& intf) {
  configureMacLearningOnPort(intf);
  // Members of a LAG follow its learning setting.
  for (const auto& [port, state] : ocsd()->lagToPort(intf).ports) configureMacLearningOnPort(port);
}

void MacAddrSm::handleVlanLearning(VlanId vlanId) {
  bool enabled = !in_.bridgingConfig->macLearningDisabledVlan(vlanId);
  in_.orbHelper->enableLearningOnVlan(vlanId, enabled);
  if (enabled) reviewIgnoredRows();
}

void MacAddrSm::handleLagToPort(const IntfId& lag) {
  if (!ocsd()->lagToPortHas(lag)) {
    BLIP(trace(), 5, "removeLag {}", lag.stringValue());
    in_.orbHelper->removeLag(lag);
  }
  for (const auto& [port, state] : ocsd()->lagToPort(lag).ports) configureMacLearningOnPort(port);
  // The peer's hosts on this interface are reached over it or over the peer
  // link depending on whether the switch has it: review them, in slices.
  auto hosts = peerHostsOnIntf_.find(lag);
  if (hosts == peerHostsOnIntf_.end()) return;
  auto& walk = lagToHostWalk_[lag];
  for (const auto& key : hosts->second) walk.push(key);
  if (mlagIntfHostTableTimer_->timeMin() == Vex::never) mlagIntfHostTableTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::handleMlagIntfHostTableWalk() {
  Vex::Seconds start = Vex::now();
  for (auto it = lagToHostWalk_.begin(); it != lagToHostWalk_.end();) {
    auto& walk = it->second;
    while (!walk.empty() && Vex::now() - start <= mlagIntfHostTableQuantum) reevaluateEntry(walk.pop());
    if (!walk.empty()) break;
    it = lagToHostWalk_.erase(it);
  }
  if (!lagToHostWalk_.empty()) mlagIntfHostTableTimer_->timeMinIs(Vex::now());
}

std::optional<MacVlanPair> MacAddrSm::lagToHostBookmark(const IntfId& lag) const {
  auto it = lagToHostWalk_.find(lag);
  if (it == lagToHostWalk_.end() || it->second.empty()) return std::nullopt;
  return it->second.front();
}

void MacAddrSm::trackPeerHost(const MacVlanPair& key) {
  auto known = peerHostIntf_.find(key);
  const IntfId* now = in_.mlagHostTable->hostEntryHas(key) ? &in_.mlagHostTable->hostEntry(key).intf : nullptr;
  if (known != peerHostIntf_.end()) {
    if (now && known->second == *now) return;
    auto& hosts = peerHostsOnIntf_[known->second];
    hosts.erase(key);
    if (hosts.empty()) peerHostsOnIntf_.erase(known->second);
    peerHostIntf_.erase(known);
  }
  if (!now) return;
  peerHostIntf_.emplace(key, *now);
  peerHostsOnIntf_[*now].insert(key);
}

void MacAddrSm::handleMlagStateOrPeerLinkIntf() {
  IntfId peerLink = in_.mlagStatus->peerLinkIntf();
  IntfId old = currentPeerLink_;
  currentPeerLink_ = peerLink;
  if (!old.empty()) configureMacLearningOnPort(old);
  if (!peerLink.empty()) configureMacLearningOnPort(peerLink);
  if (!in_.mlagHostTable) return;
  // The peer's whole table is reviewed, in slices of mlagHostTableQuantum
  // from a bookmark, so a large table never holds the thread.
  for (const auto& [key, row] : in_.mlagHostTable->hostEntry()) mlagHostTableWalk_.push(key);
  if (mlagHostTableTimer_->timeMin() == Vex::never) mlagHostTableTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::handleMlagHostTableWalk() {
  Vex::Seconds start = Vex::now();
  while (!mlagHostTableWalk_.empty()) {
    reevaluateEntry(mlagHostTableWalk_.pop());
    if (Vex::now() - start > mlagHostTableQuantum) break;
  }
  if (!mlagHostTableWalk_.empty()) mlagHostTableTimer_->timeMinIs(Vex::now());
}

void MacAddrSm::handleFsfFailedServer(const Nexo::EthAddr& addr) { reevaluateKeysOfAddress(addr); }

void MacAddrSm::handleHostAgingTime() {
  auto seconds = static_cast<std::uint32_t>(std::lround(std::max(0.0, in_.bridgingConfig->hostAgingTime())));
  BLIP(trace(), 5, "Set host aging time to {} sec", seconds);
  in_.orbHelper->configureAgingTime(seconds);
}

// --- non-aging entries, learning control ---

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

void MacAddrSm::handleSourceChecks() {
  in_.orbHelper->configureSourceCheckCPUMac(in_.bridgingConfig->sourceCheckCpuMac());
  in_.orbHelper->configureSourceMacInvalid(in_.bridgingConfig->sourceMacInvalid());
}

void MacAddrSm::handleParityEvent(const ParityEvent::Key& key) {
  if (key.table == "mac") in_.orbHelper->handleParityEvent(key);
}

bool MacAddrSm::macLearningStatusOnPort(const IntfId& intf) const {
  if (in_.ethPhyIntfConfigDir && in_.ethPhyIntfConfigDir->macLearningDisabled(intf)) return false;
  const IntfId& lag = ocsd()->portToLag(intf);
  if (!lag.empty() && in_.ethPhyIntfConfigDir && in_.ethPhyIntfConfigDir->macLearningDisabled(lag)) return false;
  if (in_.dot1xStatus && in_.dot1xStatus->restrictedIntf(intf)) return false;
  if (!currentPeerLink_.empty() && (intf == currentPeerLink_ || lag == currentPeerLink_)) return false;
  return true;
}

void MacAddrSm::configureMacLearningOnPort(const IntfId& intf) {
  bool enabled = macLearningStatusOnPort(intf);
  auto [it, inserted] = learningOnPort_.try_emplace(intf, enabled);
  if (!inserted && it->second == enabled) return;
  it->second = enabled;
  if (enabled) reviewIgnoredRows();
  // Learning is on by default: a port that starts with it on needs no call.
  if (inserted && enabled) return;
  BLIP(trace(), 5, "{} Mac learning on {}", enabled ? "Enabling" : "Disabling", intf.stringValue());
  in_.orbHelper->enableLearning(intf, enabled);
}

Vex::Ptr<MacAddrSm> macAddrSmFactory(const MacAddrSmInputs& inputs) { return Vex::make<MacAddrSm>(inputs); }

}  // namespace Orb
