// The MAC machine's update queue: changes drained in bounded slices and
// programmed through the helper, with their retries and outcomes.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"
#include "platform/vex/TimeSlice.h"

#include <fmt/format.h>

#include <algorithm>

namespace Orb {

using namespace MacAddrSmParts;

// --- the update queue ---

Vex::Ptr<ModifyMacEntry> MacAddrSm::queuedChange(const MacVlanPair& key) const {
  auto it = updateList_.find(key);
  return it == updateList_.end() ? nullptr : it->second;
}

std::optional<MacVlanPair> MacAddrSm::updateBookmark() const {
  auto place = updateOrder_.firstLive([this](const MacUpdateOrder::Place& place) {
    auto it = updateList_.find(place.key);
    return it != updateList_.end() && it->second->orderTicket == place.ticket;
  });
  return place ? std::optional<MacVlanPair>(place->key) : std::nullopt;
}

void MacAddrSm::addToUpdateList(const RemoteMacAddressTableEntry& entry, EntryEvaluationAction action,
                                bool movedToLocal, bool movedToRemote, Vex::Seconds now) {
  const MacVlanPair& key = entry.macVlanPair;
  auto change = newChange(entry);
  change->action = action;
  change->movedToLocal = movedToLocal;
  change->movedToRemote = movedToRemote;
  change->queuedTime = now;
  // A newer change for a key supersedes the queued one, keeping its place;
  // one the chip is working on already stands if it programs the same.
  auto& slot = updateList_[key];
  if (slot && slot->awaitingOutcome && slot->action == action && sameProgramming(slot->entry(), entry)) return;
  if (slot) {
    change->queuedTime = slot->queuedTime;
    change->fullLogged = slot->fullLogged && slot->intf() == change->intf();
    change->orderTicket = slot->orderTicket;
  }
  slot = change;
  updateOrder_.push(key, slot->orderTicket);
  armUpdateClock(now);
}

Vex::Ptr<ModifyMacEntry> MacAddrSm::newChange(const RemoteMacAddressTableEntry& entry) {
  if (spareChanges_.empty()) return modifyMacEntryFactory(entry);
  auto change = std::move(spareChanges_.back());
  spareChanges_.pop_back();
  *change = ModifyMacEntry(entry);
  return change;
}

void MacAddrSm::changeDone(Vex::Ptr<ModifyMacEntry>&& change) {
  if (change->references() != 1 || spareChanges_.size() >= macReviewAheadLimit) return;
  spareChanges_.push_back(std::move(change));
}

void MacAddrSm::armUpdateClock(Vex::Seconds at) {
  if (updateMacEntryClock_->timeMin() > at) updateMacEntryClock_->timeMinIs(at);
}

void MacAddrSm::sliceEnds(Vex::Seconds start, Vex::Seconds cpuStart, Vex::Seconds end) {
  longestSlice_ = std::max(longestSlice_, end - start);
  longestSliceCpu_ = std::max(longestSliceCpu_, threadCpuTime() - cpuStart);
}

void MacAddrSm::updateQueuedAddresses() {
  Vex::Seconds start = Vex::now(), cpuStart = threadCpuTime();
  Vex::TimeSlice slice("mac backlog", macModifyBacklogQuantum);
  ++slices_;
  BLIP(trace(), 7, " updateListLen {}", updateList_.size());
  std::size_t budget = updateOrder_.size();
  std::size_t done = 0, iterCount = 0;
  bool timeUp = false;
  while (iterCount < budget && !updateOrder_.empty()) {
    if (iterCount % Vex::lookAheadDistance == 0) {
      updateOrder_.forEachNext(Vex::lookAheadDistance, [this](const MacUpdateOrder::Place& place) {
        lookAheadAtKey(place.key, Ahead::programming);
      });
    }
    auto [key, ticket] = updateOrder_.pop();
    ++iterCount;
    auto it = updateList_.find(key);
    // Gone (superseded by no change at all), or holding a later place.
    if (it == updateList_.end() || it->second->orderTicket != ticket) continue;
    Vex::Ptr<ModifyMacEntry> change = it->second;
    change->orderTicket = 0;
    bool finished = false;
    try {
      finished = programChange(*change);
    } catch (...) {
      // A change that cannot be programmed (a key outside the VLAN range)
      // fails once: it leaves the queue, and the rest goes on next slice.
      auto again = updateList_.find(key);
      if (again != updateList_.end() && again->second == change) updateList_.erase(again);
      armUpdateClock(Vex::now());
      throw;
    }
    if (finished) {
      // A newer change may have replaced this one while it was programmed;
      // one the chip accepted waits for its outcome, out of the order.
      auto again = updateList_.find(key);
      if (again != updateList_.end() && again->second == change && !change->awaitingOutcome) {
        updateList_.erase(again);
      }
      ++done;
      changeDone(std::move(change));
    } else if (auto again = updateList_.find(key); again != updateList_.end()) {
      updateOrder_.push(key, again->second->orderTicket);
    }
    slice.itemDone();
    // Each change may be a chip write, which takes long enough to read the
    // clock after every one.
    if (Vex::now() - start > macModifyBacklogQuantum) {
      timeUp = true;
      break;
    }
  }
  sliceEnds(start, cpuStart, Vex::now());
  // Changes waiting for the chip's outcome need no slice: the outcome comes.
  if (updateOrder_.empty()) {
    BLIP(trace(), 7, "all entries processed");
    BLIP(trace(), 8, "Returned successfully");
    return;
  }
  BLIP(trace(), 7, " updateListLen {} iterCount {}", updateList_.size(), iterCount);
  BLIP(trace(), 8, "Returned not complete");
  // Slices that only met refusals wait before asking the chip again.
  armUpdateClock(timeUp || done > 0 ? Vex::now() : Vex::now() + retryDelay);
}

bool MacAddrSm::programChange(ModifyMacEntry& change) {
  // Rebuilding the VLAN refuses a key outside 1..4094.
  Bridging::VlanId vlanId(change.macVlanPair().vlanId.value());
  (void)vlanId;
  switch (change.action) {
    case EntryEvaluationAction::addOrModify:
      // A remote entry on a port of this switch (an EVPN host received on
      // a local port) is a local entry to the chip: no tunnel, no VNI.
      return isRemoteEntryType(change.entryType()) && !isLocalIntf(change.intf()) ? programRemote(change)
                                                                                  : programLocal(change);
    case EntryEvaluationAction::remoteToLocal:
      return programRemoteToLocal(change);
    case EntryEvaluationAction::remove:
      return programRemove(change);
    default:
      BLIP(trace(), 1, "ERROR: Unknown action {}", static_cast<int>(change.action));
      return true;
  }
}

bool MacAddrSm::isLocalIntf(const IntfId& intf) const {
  return ocsd()->intfHas(intf) || ocsd()->lagToPortHas(intf) || ocsd()->cpuIntfHas(intf);
}

bool MacAddrSm::skipHwProgInHitlessRestartMode(const ModifyMacEntry& change) const {
  if (!remoteMacRecoveryInProgress()) return false;
  auto current = currentEntry(change.macVlanPair());
  if (!current || !sameProgramming(*current, change.entry())) return false;
  BLIP(trace(), 6, "{} already in hardware: not programmed in hitless restart mode during hitless recovery",
       change.macVlanPair().stringValue());
  return true;
}

bool MacAddrSm::handleAddStatus(ModifyMacEntry& change, std::uint32_t status) {
  const MacVlanPair& key = change.macVlanPair();
  if (status == OrbTypes::tableAddBusy) {
    BLIP(trace(), 5, "Update failed as ASIC busy, retrying {}", key.stringValue());
    return false;
  }
  if (status == OrbTypes::tableAddFull) {
    if (!change.fullLogged) {
      BLIP(trace(), 3, "Logging table full message {}", key.stringValue());
      Log::emit("ETH_MACADDRBANKFULL", key.addr.stringValue().c_str(), static_cast<int>(key.vlanId.value()),
                macEntryTypeWord(change.entryType()));
      change.fullLogged = true;
    }
    double agingTime = in_.bridgingConfig->hostAgingTime();
    if (agingTime > 0 && Vex::now() - change.queuedTime > agingTime) {
      BLIP(trace(), 3, "{} has been in updateList for longer than aging time of {}", key.stringValue(), agingTime);
    }
    return false;
  }
  BLIP(trace(), 3, "{} not programmed, status {}", key.stringValue(), status);
  delFromFdbStatus(key);
  return true;
}

bool MacAddrSm::programLocal(ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  if (skipHwProgInHitlessRestartMode(change)) return true;
  BLIP(trace(), 6, "{}{} {} {}",
       isRemoteEntryType(change.entryType()) ? " Programming evpn received mac as local mac: "
                                             : " Programming MAC entry: ",
       key.stringValue(), change.intf().stringValue(), macEntryTypeWord(change.entryType()));
  std::uint32_t status = in_.orbHelper->addHost(key, change.intf(), 0, false, change.entryType());
  if (status == OrbHelper::OrbHelperMacAddrSm::addAccepted) return addAccepted(change);
  if (status != OrbTypes::tableAddSuccess) return handleAddStatus(change, status);
  localAddDone(change);
  return true;
}

void MacAddrSm::localAddDone(ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  BLIP(trace(), 7, "Add successful");
  // Most switches hold no remote entries: the empty table is not searched.
  if (!in_.bridgingStatus->remoteStatusTable().empty() && in_.bridgingStatus->remoteStatusTableHas(key)) {
    decRemoteRefcounts(key);
    in_.bridgingStatus->remoteStatusTableDel(key);
  }
  addToFdbStatus(change);
}

bool MacAddrSm::addAccepted(ModifyMacEntry& change) {
  // Not programmed yet: nothing is published until the outcome says so.
  BLIP(trace(), 7, "{}: add accepted, outcome to come", change.macVlanPair().stringValue());
  change.awaitingOutcome = true;
  return true;
}

void MacAddrSm::handleHostOutcome(const MacVlanPair& key, const IntfId& intf, EntryType entryType,
                                  std::uint32_t status) {
  BLIP(trace(), 7, "{}: outcome of add on {}: {}", key.stringValue(), intf.stringValue(), status);
  auto it = updateList_.find(key);
  if (it == updateList_.end()) {
    // Nothing waits for it: the key was flushed or changed back while the
    // chip worked. An add it took leaves the hardware holding what the
    // status does not say: put back what it says.
    if (status != OrbTypes::tableAddSuccess) return;
    auto current = currentEntry(key);
    if (current && current->intf == intf && current->entryType == entryType) return;
    if (current) {
      addToUpdateList(*current, EntryEvaluationAction::addOrModify, false, false);
    } else {
      RemoteMacAddressTableEntry taken;
      taken.macVlanPair = key;
      taken.intf = intf;
      taken.entryType = entryType;
      addToUpdateList(taken, EntryEvaluationAction::remove, false, false);
    }
    return;
  }
  Vex::Ptr<ModifyMacEntry> change = it->second;
  // A newer change is on its way and decides.
  if (!change->awaitingOutcome || change->intf() != intf || change->entryType() != entryType) return;
  if (status == OrbTypes::tableAddSuccess) {
    updateList_.erase(it);
    localAddDone(*change);
  } else if (status == OrbTypes::tableAddFull) {
    handleAddStatus(*change, status);  // logged once; the chip retries it
  } else if (status == OrbTypes::tableAddBusy) {
    change->awaitingOutcome = false;
    updateOrder_.push(key, change->orderTicket);
    armUpdateClock(Vex::now() + retryDelay);
  } else {
    updateList_.erase(it);
    handleAddStatus(*change, status);
  }
}

bool MacAddrSm::programRemote(ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  if (!hasVni(change.entry())) {
    BLIP(trace(), 3, "No vlan-vni mapping for vlan {}", key.vlanId.value());
    waitForVni(key);
    return true;
  }
  if (skipHwProgInHitlessRestartMode(change)) return true;
  const auto& entry = change.entry();
  std::uint64_t nextHop = nextHopId(entry);
  BLIP(trace(), 6, " Programming remote MAC entry: {} next hop id: {} tunnel id: {}", key.stringValue(), nextHop,
       entry.swTunnelGroupId.value);
  std::uint32_t status = in_.orbHelper->addRemoteHost(key, entry.intf, nextHop, entry.swTunnelGroupId.value, false,
                                                      entry.entryType, entry.isMplsNextHop);
  if (status != OrbTypes::tableAddSuccess) return handleAddStatus(change, status);
  BLIP(trace(), 7, "Remote add successful");
  decRemoteRefcounts(key);  // what the key held before
  in_.rmacInfoDir->nextHopRefCountInc(nextHop);
  in_.rmacInfoDir->vlanRefCountInc(key.vlanId);
  if (entry.hasL2RibObjTuple) l2RibObjCache_.programmedIs(key, entry.l2RibObjTuple, nextHop);
  in_.bridgingStatus->remoteStatusTableIs(key, entry);
  delFromFdbStatus(key);
  return true;
}

bool MacAddrSm::programRemoteToLocal(ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  BLIP(trace(), 6, " Programming local in place of remote entry: {}", key.stringValue());
  std::uint32_t status = in_.orbHelper->addLearntLocalAndRemoveRemoteHost(key, change.intf(), change.entryType());
  decRemoteRefcounts(key);
  in_.bridgingStatus->remoteStatusTableDel(key);
  if (status == OrbHelper::OrbHelperMacAddrSm::addAccepted) return addAccepted(change);
  if (status != 0) {
    BLIP(trace(), 3, "Remote to local unsuccessful, code is {}", status);
    delFromFdbStatus(key);
    return true;
  }
  addToFdbStatus(change);
  return true;
}

bool MacAddrSm::programRemove(ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  BLIP(trace(), 6, " Removing MAC entry: {}", key.stringValue());
  std::uint32_t status = in_.orbHelper->removeHost(key, change.entryType());
  // The row this machine wrote for the entry goes with it; a row the chip
  // wrote since (a learn to review) stays.
  auto row = in_.macTable->macEntry().find(key);
  if (row != in_.macTable->macEntry().end() && isProgrammedRow(row->second)) {
    writingMacTable_ = true;
    in_.macTable->macEntryDel(key);
    writingMacTable_ = false;
  }
  if (status == 0) {
    BLIP(trace(), 7, "Remove successful");
  } else {
    BLIP(trace(), 3, "Remove unsuccessful, code is {}", status);
  }
  delFromFdbStatus(key);
  decRemoteRefcounts(key);
  in_.bridgingStatus->remoteStatusTableDel(key);
  return true;
}

void MacAddrSm::countDynamicHost(const MacVlanPair& key, const Bridging::LearnedHost& host, int delta) {
  if (host.entryType == EntryType::entryDynamic) dynamicHostStatus_->hostCountAdd(host.intf, key.vlanId, delta);
}

void MacAddrSm::countDynamicHostChange(const MacVlanPair& key, const Bridging::LearnedHost* old,
                                       const Bridging::LearnedHost* now) {
  bool wasDynamic = old && old->entryType == EntryType::entryDynamic;
  bool isDynamic = now && now->entryType == EntryType::entryDynamic;
  if (wasDynamic && isDynamic) {
    // A dynamic host that stays one changes only the counts of the ports
    // it moved between: the total and its VLAN's stay.
    if (old->intf == now->intf) return;
    dynamicHostStatus_->hostCountOnIntfAdd(old->intf, -1);
    dynamicHostStatus_->hostCountOnIntfAdd(now->intf, +1);
    return;
  }
  if (wasDynamic) countDynamicHost(key, *old, -1);
  if (isDynamic) countDynamicHost(key, *now, +1);
}

void MacAddrSm::addToFdbStatus(const ModifyMacEntry& change) {
  const MacVlanPair& key = change.macVlanPair();
  MacAddressTableEntry row{key, change.intf(), change.entryType(), change.moves(), change.entry().lastMoveTime};
  Bridging::LearnedHost host{row.intf, row.entryType, row.moves, row.lastMoveTime};
  auto old = in_.bridgingStatus->learnedHostExchange(key, host);
  countDynamicHostChange(key, old ? &*old : nullptr, &host);
  if (in_.l2RibInput && learnedHere(change.entryType())) in_.l2RibInput->hostIs(key, row);
  writeProgrammedRow(row);
}

void MacAddrSm::writeProgrammedRow(const MacAddressTableEntry& row) {
  // The MAC table says what the hardware holds: the entry just programmed,
  // with its type, moves and time. The write is this machine's own, not a
  // learn to review (and none when the row is there already).
  writingMacTable_ = true;
  in_.macTable->macEntryIs(row.macVlanPair, row);
  writingMacTable_ = false;
}

bool MacAddrSm::isProgrammedRow(const MacAddressTableEntry& row) const {
  const auto* host = in_.bridgingStatus->learnedHost(row.macVlanPair);
  return host && isProgrammedRow(row, *host);
}

bool MacAddrSm::isProgrammedRow(const MacAddressTableEntry& row, const Bridging::LearnedHost& host) {
  return host.intf == row.intf && host.entryType == row.entryType && host.moves == row.moves &&
         host.lastMoveTime == row.lastMoveTime;
}

void MacAddrSm::delFromFdbStatus(const MacVlanPair& key) {
  if (const auto* old = in_.bridgingStatus->learnedHost(key)) {
    countDynamicHost(key, *old, -1);
    in_.bridgingStatus->learnedHostDel(key);
  }
  if (in_.l2RibInput) in_.l2RibInput->hostDel(key);
}

void MacAddrSm::dynamicHostStatusIs(const Vex::Ptr<Bridging::DynamicHostStatus>& status) {
  dynamicHostStatus_ = status ? status : Vex::make<Bridging::DynamicHostStatus>("dynamicHostStatus");
  dynamicHostStatus_->hostCountIs(0);
  dynamicHostStatus_->hostCountOnIntfDelAll();
  dynamicHostStatus_->hostCountInVlanDelAll();
  in_.bridgingStatus->forEachLearnedHost(
      [&](const MacVlanPair& key, const Bridging::LearnedHost& host) { countDynamicHost(key, host, +1); });
}

}  // namespace Orb
