// The MAC machine's remote entries: those of the L2 RIB and their objects,
// the entries a hitless restart kept in the hardware and their recovery,
// and the verification of what is programmed.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"

namespace Orb {

using namespace MacAddrSmParts;

void MacAddrSm::doClearRemoteMacsFromFdbStatus() {
  std::vector<MacVlanPair> stale;
  in_.bridgingStatus->forEachLearnedHost([&](const MacVlanPair& key, const Bridging::LearnedHost& host) {
    if (isRemoteEntryType(host.entryType)) stale.push_back(key);
  });
  for (const auto& key : stale) delFromFdbStatus(key);
}

// After any start but a hitless restart there is nothing to recover.
void MacAddrSm::startRemoteMacRecovery() {
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
    BLIP(trace(), 6, "{}: hardware id of its L2 RIB object changed", key.stringValue());
    addToUpdateList(entry, EntryEvaluationAction::addOrModify, false, false);
  }
}

bool MacAddrSm::hasVni(const RemoteMacAddressTableEntry& entry) const {
  if (!isRemoteEntryType(entry.entryType) || isLocalIntf(entry.intf) || !in_.vxlanConfigDir) return true;
  return in_.vxlanConfigDir->vlanToVniHas(entry.macVlanPair.vlanId);
}

void MacAddrSm::waitForVni(const MacVlanPair& key) { waitingForVni_[key.vlanId].insert(key); }

void MacAddrSm::handleVlanToVni(VlanId vlanId) {
  if (!in_.vxlanConfigDir->vlanToVniHas(vlanId)) return;
  auto waiting = waitingForVni_.find(vlanId);
  if (waiting == waitingForVni_.end()) return;
  BLIP(trace(), 5, "vlan {} has a vni: {} remote entries looked at again", vlanId.value(), waiting->second.size());
  for (const auto& key : waiting->second) queueReview(key);
  waitingForVni_.erase(waiting);
}

std::uint64_t MacAddrSm::nextHopId(const RemoteMacAddressTableEntry& entry) const {
  if (entry.hasL2RibObjTuple && in_.objTupleToHwId) return in_.objTupleToHwId->hwId(entry.l2RibObjTuple);
  return entry.swTunnelGroupId.value;
}

// --- reference counts ---

void MacAddrSm::decRemoteRefcounts(const MacVlanPair& key) {
  if (!in_.bridgingStatus->remoteStatusTableHas(key)) return;
  const auto& old = in_.bridgingStatus->remoteStatusTable(key);
  // The next hop it was programmed with: the object's hardware id may have
  // changed since.
  std::uint64_t nextHop = l2RibObjCache_.programmedHwId(key).value_or(nextHopId(old));
  l2RibObjCache_.programmedDel(key);
  // A count that reaches zero leaves the table.
  in_.rmacInfoDir->nextHopRefCountDec(nextHop);
  in_.rmacInfoDir->vlanRefCountDec(old.macVlanPair.vlanId);
}

}  // namespace Orb
