// The MAC machine's learning control: which learns count (checkIgnoreEvent),
// learning per port and VLAN in the chip, VLAN membership, and the reviews
// again of rows turned down or of hosts whose port or server changed.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"
#include "platform/vex/TimeSlice.h"

#include <algorithm>
#include <cmath>

namespace Orb {

using namespace MacAddrSmParts;

bool MacAddrSm::checkIgnoreEvent(const MacAddressTableEntry& learned) {
  const IntfId& intf = learned.intf;
  const char* why = nullptr;
  auto vlan = learned.macVlanPair.vlanId.value();
  if (vlan < 1 || vlan > 4094) {
    why = ": vlan out of range";
  } else if (intf.isSubIntf() ? !bridgedSubIntfVlan(intf)
                              : !ocsd()->intfHas(intf) && !ocsd()->lagToPortHas(intf) && !ocsd()->cpuIntfHas(intf)) {
    why = intf.isSubIntf() ? ": not a bridged sub-interface" : intf.isLag() ? ": unknown LAG" : ": unknown intf";
  } else if (!macLearningStatusOnPort(intf.parentIntfId())) {
    why = ": learning off on port";
  } else if (in_.bridgingConfig->macLearningDisabledVlanSize() != 0 &&
             in_.bridgingConfig->macLearningDisabledVlan(learned.macVlanPair.vlanId)) {
    why = ": learning off on vlan";
  } else if (!vlanMember(intf, learned.macVlanPair.vlanId)) {
    why = ": not a member of the vlan";
  } else if (in_.fsfStatus && in_.fsfStatus->failedServerSize() != 0 &&
             in_.fsfStatus->failedServer(learned.macVlanPair.addr)) {
    why = ": failed fast-failover server";
  }
  if (!why) return false;
  BLIP(trace(), 6, "Ignoring event for mac entry {} on {}{}", learned.macVlanPair.stringValue(), intf.stringValue(),
       why);
  return true;
}

std::optional<VlanId> MacAddrSm::bridgedSubIntfVlan(const IntfId& intf) const {
  if (!in_.subIntfHwStatus || !in_.subIntfHwStatus->intfIdToDot1qEncapAndVlanIdHas(intf)) return std::nullopt;
  const auto& taken = in_.subIntfHwStatus->intfIdToDot1qEncapAndVlanId(intf);
  if (!taken.isL2SubIntf || taken.tableAddStatus != OrbTypes::tableAddSuccess || taken.vlanId.isNone()) {
    return std::nullopt;
  }
  return VlanId(taken.vlanId.value());
}

void MacAddrSm::handleSubIntfHwStatus(const IntfId& intf) {
  // Rows learned on it count once the chip bridges it, and go when it
  // stops or moves to another VLAN. Only then are its hosts looked for: a
  // walk of every VLAN's hosts for each of thousands of sub-interfaces
  // coming up would find none.
  auto now = bridgedSubIntfVlan(intf);
  auto seen = bridgedSubIntfs_.find(intf);
  if (seen != bridgedSubIntfs_.end() && (!now || *now != seen->second)) reevaluateKeysOnIntf(intf);
  if (!now) {
    if (seen != bridgedSubIntfs_.end()) bridgedSubIntfs_.erase(seen);
    return;
  }
  bridgedSubIntfs_[intf] = *now;
  reviewIgnoredRows();
}

bool MacAddrSm::vlanMember(const IntfId& intf, VlanId vlanId) const {
  // A layer-2 sub-interface is a member of its own VLAN alone, whatever its
  // parent's membership.
  if (intf.isSubIntf()) return bridgedSubIntfVlan(intf) == vlanId;
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
  Vex::TimeSlice slice("mac interface host walk", macTableReviewQuanta);
  std::size_t visited = 0;
  auto timeUp = [&] {
    slice.itemDone();
    return ++visited % 64 == 0 && Vex::now() - start > macTableReviewQuanta;
  };
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

void MacAddrSm::handleFsfFailedServer(const Nexo::EthAddr& addr) { reevaluateKeysOfAddress(addr); }

void MacAddrSm::handleHostAgingTime() {
  auto seconds = static_cast<std::uint32_t>(std::lround(std::max(0.0, in_.bridgingConfig->hostAgingTime())));
  BLIP(trace(), 5, "Set host aging time to {} sec", seconds);
  in_.orbHelper->configureAgingTime(seconds);
}

void MacAddrSm::handleSourceChecks() {
  in_.orbHelper->configureSourceCheckCPUMac(in_.bridgingConfig->sourceCheckCpuMac());
  in_.orbHelper->configureSourceMacInvalid(in_.bridgingConfig->sourceMacInvalid());
}

void MacAddrSm::handleParityEvent(const ParityEvent::Key& key) {
  if (key.table == "mac") in_.orbHelper->handleParityEvent(key);
}

bool MacAddrSm::macLearningStatusOnPort(const IntfId& intf) const {
  // Every learn asks, and on most switches every port learns: a set is
  // searched only when it holds anything, and the port's LAG looked up only
  // when it may matter.
  const auto& config = in_.ethPhyIntfConfigDir;
  bool someOff = config && config->macLearningDisabledSize() != 0;
  if (someOff && config->macLearningDisabled(intf)) return false;
  if (in_.dot1xStatus && in_.dot1xStatus->restrictedIntfSize() != 0 && in_.dot1xStatus->restrictedIntf(intf)) {
    return false;
  }
  if (!someOff && currentPeerLink_.empty()) return true;
  const IntfId& lag = ocsd()->portToLag(intf);
  if (someOff && !lag.empty() && config->macLearningDisabled(lag)) return false;
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

}  // namespace Orb
