// The MAC address machine: keeps the hardware MAC table equal to the one
// best entry per (address, VLAN) among every source, and publishes what it
// programmed.
//
// For a key it gathers the candidates (L2 RIB, EVPN/remote table, static
// configuration with authenticated 802.1X hosts, the MLAG peer), reduces
// them with betterEntry in that order, weighs the result against what the
// hardware learned, and compares the winner with what the hardware holds
// (the row it wrote into `macTable` for a local entry, published in
// `fdbStatus` too; `remoteStatusTable` for a remote one). A difference
// becomes an Orb::ModifyMacEntry on the update queue, drained in slices of
// `macModifyBacklogQuantum` through the MAC helper.
//
// Its code is in files named after what they hold, each read alone:
// - OrbMacAddrSm.cpp: construction, the reactors on every input, the start.
// - OrbMacSources.cpp: the one table of sources, betterEntry, and
//   configuredEntry, which reduces their candidates.
// - OrbMacReview.cpp: the review of a key (currentEntry, evaluateEntry) and
//   the sliced queue of keys to review.
// - OrbMacLearning.cpp: learning control: checkIgnoreEvent, learning per
//   port and VLAN, VLAN membership, and what reviews ignored rows again.
// - OrbMacMlag.cpp: the MLAG peer's hosts by interface and their walks.
// - OrbMacRemote.cpp: remote entries: L2 RIB objects, VNIs, reference
//   counts, and the recovery of a hitless restart.
// - OrbMacProgramming.cpp: the update queue, programming and outcomes.
// - OrbMacFlush.cpp: flush requests.
// - OrbMacAddrSmParts.cpp/.h: what they share (trace, conversions, words).
//
// Choices made here where the rules leave them open:
// - EntryEvaluationAction values: none 0, addOrModify 1, remove 2,
//   remoteToLocal 3.
// - A change stuck in the queue longer than the aging time is traced and
//   kept: a full table frees up as addresses age, and then it goes in.
// - When every change left in a slice was refused (busy or full), the next
//   slice waits `retryDelay` rather than spinning on the chip.
// - checkIgnoreEvent ignores rows with a VLAN outside 1..4094, learns on
//   interfaces the switch does not know, on ports or VLANs whose learning
//   is off, on 802.1X-restricted ports, on ports that are not members of
//   the VLAN (tagged or untagged, with ingress, as the VLAN helper has it
//   confirmed; a LAG and its ports share their VLANs), and of failed
//   fast-failover servers. An ignored row changes nothing programmed; it is
//   reviewed again when learning, the port, the server or a VLAN's
//   membership changes. A port that goes away or a server that fails over
//   takes its programmed learns with it.
// - A remote entry whose VLAN has no VNI is set aside, not queued, and goes
//   in once the VLAN gets one. A remote entry on a local port (an EVPN host
//   received on one) is programmed as a local entry.
// - A VLAN whose configured membership becomes empty is deleted for the
//   chip (handleVlanDelete).
// - Tunnel endpoint lists compare lexicographically, address by address.
// - Hardware-learned entries present at start are reviewed like new ones,
//   and so are hosts restored into `fdbStatus` from before a restart: those
//   the hardware no longer holds go.
// - The dynamic-host status counts hosts of type "dynamic" only.
// - A flush drops its target's dynamic hosts from the status itself, before
//   the chip flushes them; hosts another source wants stay and are reviewed.
//   Learns of the target queued but not yet programmed go from the queue.
// - A flush request naming a VLAN above 4094 is answered, its range error
//   traced, and flushes nothing.
// - A remote-MAC flush request has the fields of a host-table flush request
//   (VLAN, interface, address; zero or empty for any) and is answered in
//   the same reply directory, whose names both kinds share. It takes the
//   matching remote entries, but for the static remote kinds, out of the
//   hardware and `remoteStatusTable` at once; an entry a source still
//   offers is then programmed again from it.
// - A queued change that cannot be programmed (a key outside the VLAN
//   range) fails once with its range error and leaves the queue.
// - A chip that finishes adds later answers "accepted"; the change stays
//   queued, unwritten, until the outcome comes back. Only then is it
//   published (success), logged as table full and left to the chip's own
//   retry (full), or dropped (failed). An outcome no queued change waits
//   for (the key was flushed, or changed back, meanwhile) has the hardware
//   put back to what the status says.
// - The remote-MAC recovery of a hitless restart ends when the control
//   plane sets `remoteMacsReady` on the remote host table.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbL2RibObjCache.h"
#include "Orb/OrbMacAddrSmInputs.h"
#include "Orb/OrbMacKeyQueue.h"
#include "Orb/OrbMacUpdateOrder.h"
#include "Orb/OrbNonAgingMacSm.h"
#include "Orb/OrbRemoteMacRecoveryHelperSm.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/model/MacModels.h"
#include "platform/vex/LookAhead.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace Orb {

using Bridging::EntryType;
using Bridging::MacVlanPair;
using OrbTypes::MacAddressTableEntry;
using OrbTypes::RemoteMacAddressTableEntry;

enum class EntryEvaluationAction : std::uint8_t { none = 0, addOrModify = 1, remove = 2, remoteToLocal = 3 };

// The word an entry type prints as; any other type is a broken invariant.
const char* macEntryTypeWord(EntryType type);
bool isRemoteEntryType(EntryType type);
bool isStaticEntryType(EntryType type);
// Remote entries a remote-MAC flush leaves: static remote, peer static
// remote and EVPN static remote.
bool isStaticRemoteEntryType(EntryType type);

// A queued change of one key: the entry it programs, and how it stands in
// the queue.
class ModifyMacEntry : public Vex::PtrInterface {
 public:
  // A change programs no preference: that only ranks candidates.
  explicit ModifyMacEntry(const RemoteMacAddressTableEntry& entry) : entry_(entry) { entry_.preference = 0; }

  // The entry this change programs.
  const RemoteMacAddressTableEntry& entry() const { return entry_; }
  const MacVlanPair& macVlanPair() const { return entry_.macVlanPair; }
  const IntfId& intf() const { return entry_.intf; }
  EntryType entryType() const { return entry_.entryType; }
  Keel::Seqno32 moves() const { return entry_.moves; }

  // Small fields together: one of these is made for every change queued.
  EntryEvaluationAction action = EntryEvaluationAction::none;
  bool movedToLocal = false;
  bool movedToRemote = false;
  bool fullLogged = false;
  // The chip accepted it as a command and its outcome is still to come; it
  // stays in the queue, not written again, until then.
  bool awaitingOutcome = false;
  double queuedTime = 0.0;  // when the change first went into the queue
  // Its place in the order the queue is drained in; 0 when it has none.
  std::uint64_t orderTicket = 0;

 private:
  RemoteMacAddressTableEntry entry_;
};

Vex::Ptr<ModifyMacEntry> modifyMacEntryFactory(const RemoteMacAddressTableEntry& entry);

// The better of two entries; on every full tie, `b`.
const RemoteMacAddressTableEntry* betterEntry(const RemoteMacAddressTableEntry* a, const RemoteMacAddressTableEntry* b,
                                              const SwTunnelGroupIdMap* tunnels);

// What gathered flush requests will flush, so that many requests that
// arrive together cost one pass per target.
struct CondensedFlushRequest {
  bool all = false;
  std::set<std::uint16_t> vlan;
  std::set<std::pair<std::uint16_t, IntfId>> vlanPort;
  std::set<IntfId> port;
  std::set<std::pair<std::uint16_t, IntfId>> vlanLag;
  std::set<IntfId> lag;
  bool empty() const {
    return !all && vlan.empty() && vlanPort.empty() && port.empty() && vlanLag.empty() && lag.empty();
  }
};

class MacAddrSm : public OrbBaseSm {
 public:
  explicit MacAddrSm(const MacAddrSmInputs& inputs);
  ~MacAddrSm() override;
  const char* fwkType() const override { return "Orb::MacAddrSm"; }

  // Tunables.
  Vex::Seconds macModifyBacklogQuantum = 0.01;
  Vex::Seconds mlagHostTableQuantum = 0.1;
  Vex::Seconds mlagIntfHostTableQuantum = 0.01;
  Vex::Seconds macTableReviewQuanta = 0.01;
  // How many changes reviews may queue ahead of programming before a review
  // slice gives way to it. A burst of learns would otherwise pile the whole
  // burst into the update queue, whose growth (a rehash of every queued
  // change) then takes longer than any slice may. A few thousand keep a
  // programming slice busy, and the queue with its changes small.
  std::size_t macReviewAheadLimit = 4096;
  bool deferMacTableUpdate = true;
  bool verifyRemoteMac = true;
  bool lazyFdbStatusDeletion = false;
  bool deferL2RibForModelTest = false;
  Vex::Seconds retryDelay = 0.1;

  const Vex::Ptr<OrbHelper::OrbHelperMacAddrSm>& orbHelper() const { return in_.orbHelper; }
  std::size_t updateListSize() const { return updateList_.size(); }
  Vex::Ptr<ModifyMacEntry> queuedChange(const MacVlanPair& key) const;
  std::optional<MacVlanPair> updateBookmark() const;
  std::size_t macTableUpdateListSize() const { return macTableUpdateList_.size(); }
  // How many configured static entries a router MAC of the same key sets
  // aside now.
  std::uint32_t collidingStaticEntryWithRouterMacEntry() const {
    return static_cast<std::uint32_t>(collidingStaticEntryWithRouterMacEntry_.size());
  }
  // The longest single slice of sliced work so far, in seconds: on the
  // loop's clock, and in this thread's CPU time (what the slice's own work
  // cost; time another process had the core meanwhile is not the slice's).
  Vex::Seconds longestSlice() const { return longestSlice_; }
  Vex::Seconds longestSliceCpu() const { return longestSliceCpu_; }
  std::uint64_t slices() const { return slices_; }

  void handleInitialized() override;

  // The best entry the sources other than the hardware offer for the key.
  std::optional<RemoteMacAddressTableEntry> configuredEntry(const MacVlanPair& key);
  std::optional<RemoteMacAddressTableEntry> currentEntry(const MacVlanPair& key) const;
  void reevaluateEntry(const MacVlanPair& key);
  void evaluateEntry(const MacVlanPair& key, const MacAddressTableEntry* hardware, bool agedInHardware, double time);
  bool checkIgnoreEvent(const MacAddressTableEntry& learned);
  // Whether hardware lets frames of the VLAN in on the interface (or on
  // the LAG it belongs to), as the VLAN helper has it confirmed.
  bool vlanMember(const IntfId& intf, VlanId vlanId) const;
  // The VLAN a layer-2 sub-interface the chip took is bridged in; none for
  // any other interface.
  std::optional<VlanId> bridgedSubIntfVlan(const IntfId& intf) const;
  // Queues the change at `now` (the time of the reaction: the clock unread).
  void addToUpdateList(const RemoteMacAddressTableEntry& entry, EntryEvaluationAction action, bool movedToLocal,
                       bool movedToRemote, Vex::Seconds now);
  void addToUpdateList(const RemoteMacAddressTableEntry& entry, EntryEvaluationAction action, bool movedToLocal,
                       bool movedToRemote) {
    addToUpdateList(entry, action, movedToLocal, movedToRemote, Vex::now());
  }
  void updateQueuedAddresses();
  // The outcome of an add the chip accepted to finish later: publishes it,
  // keeps it waiting for room (the chip retries), or drops it as failed.
  void handleHostOutcome(const MacVlanPair& key, const IntfId& intf, EntryType entryType, std::uint32_t status);

  // Reactions. Each names the keys that changed and ends in
  // reevaluateEntry for each of them.
  void handleMacEntry(const MacVlanPair& key);
  void handleAddressLearnt(const MacAddressTableEntry& entry);
  void handleAddressAged(const MacVlanPair& key);
  void handleL2RibDest(std::uint64_t id);
  void handleL2RibLb(std::uint64_t id);
  void handleEvpnMacEntry(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleReceivedRemoteHost(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleConfiguredRemoteHost(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleRemoteHostStatus(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleNonAgingMacEntries(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleIntf(const IntfId& intf);
  void handleEthIntfStatus(const IntfId& intf);
  void handleTunnelLearnEvent();
  void handleStageRemoteMacsReady();
  void handleVerify();
  void handleMacTableUpdate();
  void handleConfiguredHost(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleMlagHostTableEntry(const MacVlanPair& key);
  void handleL2RibHost(const MacVlanPair& key);
  void handleObjTupleToHwIdMap(const L2Rib::ObjTuple& tuple);
  void handleRemoteHost(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleRouterMacEntry(const MacVlanPair& key) { reevaluateEntry(key); }
  void handleDot1xHostTableEntry(const Nexo::EthAddr& addr);
  void handleDot1xIntfStatus(const IntfId& intf);
  void handleEthIntfConfig(const IntfId& intf);
  // The VLAN helper completed an update of the VLAN: its membership may
  // have changed, and a VLAN that lost its last member is deleted. Ports
  // that left it are flushed of the addresses they learned there.
  void handleVlanUpdateDone(VlanId vlanId);
  // The VLAN's configured members, blocked or not.
  std::set<IntfId> vlanMembers(VlanId vlanId) const;
  // A VLAN got (or lost) its VNI: remote entries set aside for it go in.
  void handleVlanToVni(VlanId vlanId);
  void handleVlanLearning(VlanId vlanId);
  void handleLagToPort(const IntfId& lag);
  void handleMlagStateOrPeerLinkIntf();
  // One slice of the review of the peer's table; its bookmark is the front
  // of the walk.
  void handleMlagHostTableWalk();
  std::optional<MacVlanPair> mlagHostTableBookmark() const {
    return mlagHostTableWalk_.empty() ? std::nullopt : std::optional<MacVlanPair>(mlagHostTableWalk_.front());
  }
  // One slice of the reviews of the peer's hosts per multi-chassis
  // interface; each interface's bookmark is the front of its walk.
  void handleMlagIntfHostTableWalk();
  std::optional<MacVlanPair> lagToHostBookmark(const IntfId& lag) const;
  void handleFsfFailedServer(const Nexo::EthAddr& addr);
  void handleSubIntfHwStatus(const IntfId& intf);
  // One slice of the walks over the learned hosts for those of an
  // interface (a link went down, a port went away).
  void handleIntfHostWalk();
  bool intfHostWalkPending() const { return !intfHostWalks_.empty(); }
  std::uint64_t intfHostWalkSlices() const { return intfHostWalkSlices_; }
  void handleHostAgingTime();

  // Flushing: requests are gathered into `fr` and carried out on the flush
  // clock; every processed request gets its reply.
  const CondensedFlushRequest& fr() const { return fr_; }
  void handleFlushRequestInputDir(const std::string& name);
  void handleFlushReqTimer();
  // Remote-MAC flush requests, from the tunnel tables in `rmacInfoDir`.
  void handleRemoteMacFlushRequest(const std::string& name);
  // A VLAN above 4094 is refused with a range error.
  void processFlushReq(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr);
  // Takes the remote entries matching the request out of the hardware and
  // the status at once; a source that still offers one has it programmed
  // again.
  void processRemoteFlushReq(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr);
  void execFlush();
  void flushPort(const IntfId& intf, std::uint16_t vlanId);
  void flushLag(const IntfId& lag, std::uint16_t vlanId);
  void flushVlan(std::uint16_t vlanId);
  void flushAddr(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr);
  void removeStaleFlushReplies();

  // The counts of dynamic hosts, kept with `fdbStatus`; the machine makes
  // its own unless given one to write.
  const Vex::Ptr<Bridging::DynamicHostStatus>& dynamicHostStatus() const { return dynamicHostStatus_; }
  void dynamicHostStatusIs(const Vex::Ptr<Bridging::DynamicHostStatus>& status);

  // Addresses that never age, from every owner.
  const Vex::Ptr<NonAgingStatus>& nonAgingMacStatus() const;
  void nonAgingMacStatusIs(const Vex::Ptr<NonAgingStatus>& status);
  const L2RibObjCache& l2RibObjCache() const { return l2RibObjCache_; }
  // Made last at start; in progress from a hitless restart until the
  // control plane has sent every remote host again.
  const Vex::Ptr<RemoteMacRecoveryHelperSm>& remoteMacRecoveryHelperSm() const { return remoteMacRecoveryHelperSm_; }
  void handleSourceChecks();
  void handleParityEvent(const ParityEvent::Key& key);

  bool macLearningStatusOnPort(const IntfId& intf) const;
  void configureMacLearningOnPort(const IntfId& intf);

 private:
  // One source of candidate entries other than the hardware: whether it
  // offers an entry for a key, whether it offers none at all, its entry for
  // a key it has, as it stands in the source, and (when not null) whether
  // choosing takes that candidate, perhaps adjusted.
  struct SourceKind {
    const char* name;  // as traces name it
    bool (*has)(const MacAddrSm&, const MacVlanPair&);
    bool (*empty)(const MacAddrSm&);
    RemoteMacAddressTableEntry (*entry)(const MacAddrSm&, const MacVlanPair&);
    bool (*admit)(MacAddrSm&, const MacVlanPair&, RemoteMacAddressTableEntry& candidate, bool& colliding);
  };
  // The one list of sources, in the order configuredEntry weighs them: whoever
  // asks about sources walks it, and a new source is one more row.
  static const SourceKind sourceKinds[];

  // Reviews read the clock once per this many keys, not for every one: a
  // review only queues changes, and the reads add up over a burst of learns.
  static constexpr unsigned clockReadInterval = 8;

  // Looks the key up, ahead of its review or its programming, in the
  // tables that will read or write.
  enum class Ahead : std::uint8_t { review, programming };
  void lookAheadAtKey(const MacVlanPair& key, Ahead ahead) const;
  // The same, for a key whose MAC table row (null when none) is at hand,
  // and at the time given.
  std::optional<RemoteMacAddressTableEntry> currentEntry(const MacVlanPair& key, const MacAddressTableEntry* row) const;
  void reevaluateEntry(const MacVlanPair& key, double time);
  void evaluateEntry(const MacVlanPair& key, const MacAddressTableEntry* hardware, bool agedInHardware, double time,
                     std::optional<RemoteMacAddressTableEntry> current);
  void doClearRemoteMacsFromFdbStatus();
  void startRemoteMacRecovery();
  bool vlanHasMembers(VlanId vlanId) const;
  // At start: the VLANs there are, and those deleted meanwhile.
  void walkVlanConfiguration();
  // Whether a source other than the hardware wants the key, or a change for
  // it waits in the queue.
  bool wantedElsewhere(const MacVlanPair& key) const;
  bool wantedBySource(const MacVlanPair& key) const;
  bool flushRequestHas(const std::string& name) const;
  bool noOtherSource() const;
  // Drops the dynamic hosts a flush of the VLAN (every VLAN when none) on
  // the interface (every interface when null) takes out of the chip.
  void dropFlushedHosts(std::optional<std::uint16_t> vlanId, const IntfId* intf);
  void dropFlushedQueuedLearns(std::optional<std::uint16_t> vlanId, const IntfId* intf, bool mayBeWanted);
  template <class Flush>
  void flushInChip(Flush flush);
  // Starts a walk that sends the hosts on the interface to the review.
  void reevaluateKeysOnIntf(const IntfId& intf);
  void queueReview(const MacVlanPair& key);
  // Rows checkIgnoreEvent turned down are reviewed again when what turned
  // them down may have changed.
  void reviewIgnoredRows();
  // The hardware's learn of the key stops counting (its port is gone, its
  // server failed over): the entry goes unless another source wants it.
  void withdrawLearn(const MacVlanPair& key);
  void reevaluateRemoteEntries();
  void reevaluateKeysOfAddress(const Nexo::EthAddr& addr);
  void maybeUpdateMoveCount(RemoteMacAddressTableEntry& wanted, const RemoteMacAddressTableEntry* current, double time);
  bool peerEntriesAllowed() const;
  void trackPeerHost(const MacVlanPair& key);
  void armUpdateClock(Vex::Seconds at);
  Vex::Ptr<ModifyMacEntry> newChange(const RemoteMacAddressTableEntry& entry);
  // The change left the queue: kept as a spare when nothing else holds it.
  void changeDone(Vex::Ptr<ModifyMacEntry>&& change);
  // A slice that started at `start` on the loop's clock and `cpuStart` in
  // this thread's CPU time ends at `end`.
  void sliceEnds(Vex::Seconds start, Vex::Seconds cpuStart, Vex::Seconds end);
  // One change through the helper; true when it is done with (success or
  // dropped), false when it stays queued.
  bool programChange(ModifyMacEntry& change);
  bool programLocal(ModifyMacEntry& change);
  bool programRemote(ModifyMacEntry& change);
  bool programRemoteToLocal(ModifyMacEntry& change);
  bool programRemove(ModifyMacEntry& change);
  bool handleAddStatus(ModifyMacEntry& change, std::uint32_t status);
  bool addAccepted(ModifyMacEntry& change);
  void localAddDone(ModifyMacEntry& change);
  void addToFdbStatus(const ModifyMacEntry& change);
  void countDynamicHost(const MacVlanPair& key, const Bridging::LearnedHost& host, int delta);
  // The counts' change when the key's host `old` (null: none) becomes `now`.
  void countDynamicHostChange(const MacVlanPair& key, const Bridging::LearnedHost* old,
                              const Bridging::LearnedHost* now);
  void delFromFdbStatus(const MacVlanPair& key);
  void writeProgrammedRow(const MacAddressTableEntry& row);
  // Whether a MAC table row is the one this machine wrote for what it
  // programmed (and published in `fdbStatus`).
  bool isProgrammedRow(const MacAddressTableEntry& row) const;
  // A row with what a configured source wants for its key, type and all.
  bool isConfiguredRow(const MacAddressTableEntry& row);
  static bool isProgrammedRow(const MacAddressTableEntry& row, const Bridging::LearnedHost& host);
  void decRemoteRefcounts(const MacVlanPair& key);
  std::uint64_t nextHopId(const RemoteMacAddressTableEntry& entry) const;
  // A port, LAG or CPU interface of this switch, as opposed to a tunnel.
  bool isLocalIntf(const IntfId& intf) const;
  // Whether the entry can be programmed as far as VNIs go: a remote entry
  // behind a tunnel needs its VLAN mapped to one.
  bool hasVni(const RemoteMacAddressTableEntry& entry) const;
  void waitForVni(const MacVlanPair& key);
  bool skipHwProgInHitlessRestartMode(const ModifyMacEntry& change) const;
  bool remoteMacRecoveryInProgress() const;

  MacAddrSmInputs in_;

  // The update queue: changes by key, drained in arrival order; a key whose
  // change is refused goes to the back. Its front is the bookmark.
  Vex::HashMap<MacVlanPair, Vex::Ptr<ModifyMacEntry>> updateList_;
  MacUpdateOrder updateOrder_;
  // Changes programmed and no longer referenced, to be made again: a burst
  // of learns makes and drops one per address, and each reuse saves an
  // allocation and its release. No more than the reviews may queue ahead.
  std::vector<Vex::Ptr<ModifyMacEntry>> spareChanges_;
  MacKeyQueue macTableUpdateList_;
  Vex::Ptr<Vex::Clock> updateMacEntryClock_;
  Vex::Ptr<Vex::Clock> macTableTimer_;
  IntfId currentPeerLink_;
  Vex::HashMap<IntfId, bool> learningOnPort_;
  Vex::HashSet<MacVlanPair> ignoredRows_;
  // The layer-2 sub-interfaces last seen bridged, with their VLAN.
  Vex::HashMap<IntfId, VlanId> bridgedSubIntfs_;
  Vex::HashSet<VlanId> vlansWithMembers_;
  // Each VLAN's configured members when its last update completed: the
  // ports that are gone at the next one left it.
  Vex::HashMap<VlanId, std::set<IntfId>> vlanMembers_;
  bool writingMacTable_ = false;
  struct IntfHostWalk {
    IntfId intf;
    std::vector<Bridging::Fid> fids;    // left to walk, the last one first
    std::optional<Nexo::EthAddr> next;  // where the last one's walk resumes
    std::size_t buckets = 0;            // its table's size when it stopped
  };
  std::deque<IntfHostWalk> intfHostWalks_;
  Vex::Ptr<Vex::Clock> intfHostWalkTimer_;
  std::uint64_t intfHostWalkSlices_ = 0;
  // Remote entries set aside until their VLAN has a VNI.
  std::map<VlanId, Vex::HashSet<MacVlanPair>> waitingForVni_;
  Vex::HashSet<MacVlanPair> collidingStaticEntryWithRouterMacEntry_;
  Vex::Ptr<Dot1x::HostTable> dot1xLocalHostTable_;
  Vex::Ptr<Bridging::DynamicHostStatus> dynamicHostStatus_;
  L2RibObjCache l2RibObjCache_;
  Vex::Ptr<RemoteMacRecoveryHelperSm> remoteMacRecoveryHelperSm_;
  CondensedFlushRequest fr_;
  bool flushingInChip_ = false;
  Vex::HashSet<MacVlanPair> flushKept_;  // hosts of the target a flush leaves
  Vex::Ptr<Vex::Clock> flushReqTimer_;
  Vex::Ptr<Vex::Clock> mlagHostTableTimer_;
  MacKeyQueue mlagHostTableWalk_;
  Vex::Ptr<Vex::Clock> mlagIntfHostTableTimer_;
  std::map<IntfId, MacKeyQueue> lagToHostWalk_;
  // The peer's hosts by interface, so that an interface's change reviews
  // only its own.
  Vex::HashMap<MacVlanPair, IntfId> peerHostIntf_;
  Vex::HashMap<IntfId, Vex::HashSet<MacVlanPair>> peerHostsOnIntf_;
  std::unique_ptr<NonAgingStatus::Notifiee> nonAgingReactor_;
  Vex::Seconds longestSlice_ = 0;
  Vex::Seconds longestSliceCpu_ = 0;
  std::uint64_t slices_ = 0;
  std::unique_ptr<Vex::Reactors<MacAddrSm>> reactors_;
};

Vex::Ptr<MacAddrSm> macAddrSmFactory(const MacAddrSmInputs& inputs);

}  // namespace Orb
