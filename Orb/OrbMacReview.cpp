// The MAC machine's review of a key: what is programmed now, what the
// hardware learned and what the sources want, weighed into the change, if
// any, that goes to the update queue; and the queue of keys to review,
// drained in slices.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"
#include "platform/vex/TimeSlice.h"

namespace Orb {

using namespace MacAddrSmParts;

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
  if (row && isProgrammedRow(*row, *host)) return remoteEntryOf(*row);
  return fromHost(key, *host);
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
  BLIP(trace(), 7, "Evaluating MAC entry: {}, learned in hardware: {}, aged in hardware: {}", key.stringValue(),
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
    auto learned = remoteEntryOf(*hardware);
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
      BLIP(trace(), 8, "{}, peer move time is {}", key.stringValue(), configured->lastMoveTime);
      const auto* winner = betterEntry(&*configured, &learned, in_.swTunnelIdMap.get());
      if (winner == &*configured) BLIP(trace(), 7, "Using peer dynamic entry {}", key.stringValue());
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
    BLIP(trace(), 6, "{}: recovered remote entry kept during hitless recovery", key.stringValue());
    return;
  }
  if (!wanted) {
    if (current) {
      if (agedInHardware) BLIP(trace(), 6, "Deleting this entry. {}", key.stringValue());
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
    BLIP(trace(), 3, "ERROR: no mapping for vni of vlan {}: {} waits for one", key.vlanId.value(), key.stringValue());
    waitForVni(key);
    if (!updateList_.empty()) updateList_.erase(key);
    return;
  }
  addToUpdateList(wanted ? *wanted : *current, action, movedToLocal, movedToRemote, time);
}

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
  Vex::TimeSlice slice("mac table review", macTableReviewQuanta);
  for (unsigned reviewed = 1; !macTableUpdateList_.empty(); ++reviewed) {
    if (reviewed % Vex::lookAheadDistance == 1) {
      macTableUpdateList_.lookAhead(Vex::lookAheadDistance,
                                    [this](const MacVlanPair& key) { lookAheadAtKey(key, Ahead::review); });
    }
    reevaluateEntry(macTableUpdateList_.pop(), now);
    slice.itemDone();
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

// A chip layer that reports learns as events rather than table writes.
void MacAddrSm::handleAddressLearnt(const MacAddressTableEntry& entry) {
  evaluateEntry(entry.macVlanPair, &entry, false, Vex::now());
}

void MacAddrSm::handleAddressAged(const MacVlanPair& key) {
  BLIP(trace(), 6, " address aged - {}", key.stringValue());
  auto current = currentEntry(key);
  evaluateEntry(key, nullptr, current && !isStaticEntryType(current->entryType), Vex::now());
}

}  // namespace Orb
