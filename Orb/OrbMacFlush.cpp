// The MAC machine's flushes: requests condensed, carried out in the chip and
// in the machine's own tables, and answered.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"

#include <fmt/format.h>

#include <algorithm>

namespace Orb {

using namespace MacAddrSmParts;

// --- flushing ---

void MacAddrSm::handleFlushRequestInputDir(const std::string& name) {
  BLIP(trace(), 6, "handleFlushRequestInputDir input {}", name);
  removeStaleFlushReplies();
  if (in_.flushRequestDir->requestHas(name) && flushReqTimer_->timeMin() == Vex::never) {
    flushReqTimer_->timeMinIs(Vex::now());
  }
}

void MacAddrSm::handleRemoteMacFlushRequest(const std::string& name) {
  BLIP(trace(), 6, "handleRemoteMacFlushRequest input {}", name);
  removeStaleFlushReplies();
  if (in_.rmacInfoDir->remoteMacFlushRequestHas(name) && flushReqTimer_->timeMin() == Vex::never) {
    flushReqTimer_->timeMinIs(Vex::now());
  }
}

bool MacAddrSm::flushRequestHas(const std::string& name) const {
  return in_.flushRequestDir->requestHas(name) || (in_.rmacInfoDir && in_.rmacInfoDir->remoteMacFlushRequestHas(name));
}

void MacAddrSm::removeStaleFlushReplies() {
  std::vector<std::string> stale;
  for (const auto& [name, reply] : in_.flushReplyDir->reply()) {
    if (!flushRequestHas(name)) stale.push_back(name);
  }
  for (const auto& name : stale) in_.flushReplyDir->replyDel(name);
}

void MacAddrSm::handleFlushReqTimer() {
  using Requests = std::vector<std::pair<std::string, Bridging::HostTableFlushRequest>>;
  Requests pending, remotePending;
  auto collect = [&](const auto& requests, Requests& into) {
    for (const auto& [name, request] : requests) {
      // A request is pending until a reply answers this very request.
      if (!in_.flushReplyDir->replyHas(name) || in_.flushReplyDir->reply(name).request != request) {
        into.emplace_back(name, request);
      }
    }
  };
  collect(in_.flushRequestDir->request(), pending);
  if (in_.rmacInfoDir) collect(in_.rmacInfoDir->remoteMacFlushRequest(), remotePending);
  // A bad request is answered with its error traced, once; it stops
  // neither the requests beside it nor those after it.
  auto guarded = [&](const std::string& name, auto process) {
    try {
      process();
    } catch (const Vex::RangeError& e) {
      BLIP(trace(), 1, "ERROR: Host table flush request {} refused: {}", name, e.what());
    }
  };
  for (const auto& [name, request] : pending) {
    guarded(name, [&, &r = request] { processFlushReq(r.vlanId, r.intf, r.addr); });
  }
  for (const auto& [name, request] : remotePending) {
    guarded(name, [&, &r = request] { processRemoteFlushReq(r.vlanId, r.intf, r.addr); });
  }
  execFlush();
  for (const auto* requests : {&pending, &remotePending}) {
    for (const auto& [name, request] : *requests) {
      in_.flushReplyDir->replyIs(name, Bridging::HostTableFlushReply{request, Vex::now()});
      BLIP(trace(), 5, "Host table flush request {} has been processed", name);
    }
  }
}

void MacAddrSm::processFlushReq(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr) {
  BLIP(trace(), 6, "processFlushReq vlanId {} intf {} addr {}", vlanId, intf.stringValue(), addr.stringValue());
  if (vlanId) VlanId checked(vlanId);  // refuses a VLAN above 4094 before anything is gathered
  if (!addr.isZero()) {
    flushAddr(vlanId, intf, addr);
  } else if (!intf.empty()) {
    if (intf.isLag() && !intf.isSubIntf()) {
      if (!ocsd()->lagToPortHas(intf)) {
        BLIP(trace(), 3, "{}: unknown LAG ", intf.stringValue());
        return;
      }
      flushLag(intf, vlanId);
    } else {
      if (!ocsd()->intfHas(intf)) {
        BLIP(trace(), 3, "{}: unknown intf Invalid interface, maybe caused by a 10G<->40G switchover",
             intf.stringValue());
        return;
      }
      flushPort(intf, vlanId);
    }
  } else if (vlanId == 0) {
    fr_.all = true;
  } else {
    flushVlan(vlanId);
  }
}

void MacAddrSm::flushPort(const IntfId& intf, std::uint16_t vlanId) {
  if (vlanId) {
    fr_.vlanPort.insert({vlanId, intf});
  } else {
    fr_.port.insert(intf);
  }
}

void MacAddrSm::flushLag(const IntfId& lag, std::uint16_t vlanId) {
  if (vlanId) {
    fr_.vlanLag.insert({vlanId, lag});
  } else {
    fr_.lag.insert(lag);
  }
}

void MacAddrSm::flushVlan(std::uint16_t vlanId) { fr_.vlan.insert(vlanId); }

void MacAddrSm::processRemoteFlushReq(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr) {
  BLIP(trace(), 6, "processRemoteFlushReq vlanId {} intf {} addr {}", vlanId, intf.stringValue(), addr.stringValue());
  if (vlanId) VlanId checked(vlanId);
  std::vector<MacVlanPair> keys;
  for (const auto& [key, row] : in_.bridgingStatus->remoteStatusTable()) {
    if ((vlanId && key.vlanId.value() != vlanId) || (!intf.empty() && row.intf != intf) ||
        (!addr.isZero() && key.addr != addr) || isStaticRemoteEntryType(row.entryType)) {
      continue;
    }
    keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  for (const auto& key : keys) {
    const auto& row = in_.bridgingStatus->remoteStatusTable(key);
    BLIP(trace(), 6, " flushing remote mac {}", key.stringValue());
    std::uint32_t code = in_.orbHelper->removeHost(key, row.entryType);
    if (code != 0) BLIP(trace(), 3, "Remove unsuccessful, code is {}", code);
    decRemoteRefcounts(key);
    in_.bridgingStatus->remoteStatusTableDel(key);
    // A queued change for the key was made against what is gone now.
    if (!updateList_.empty()) updateList_.erase(key);
    // A source that still offers the entry has it programmed again.
    reevaluateEntry(key);
  }
}

void MacAddrSm::flushAddr(std::uint16_t vlanId, const IntfId& intf, const Nexo::EthAddr& addr) {
  std::vector<MacVlanPair> keys;
  for (const auto& [fid, fdb] : in_.bridgingStatus->fdbStatus()) {
    auto fidVlan = Bridging::Status::vlanOf(fid);
    if (!fidVlan || (vlanId && fid.value() != vlanId)) continue;
    auto it = fdb->learnedHost().find(addr);
    if (it != fdb->learnedHost().end() && (intf.empty() || it->second.intf == intf)) {
      keys.push_back(MacVlanPair{addr, *fidVlan});
    }
  }
  // Learns of the address queued but not programmed yet go too.
  std::vector<Vex::Ptr<ModifyMacEntry>> queuedLearns;
  for (const auto& [key, change] : updateList_) {
    if (key.addr == addr && (!vlanId || key.vlanId.value() == vlanId) && (intf.empty() || change->intf() == intf) &&
        change->action != EntryEvaluationAction::remove && change->entryType() == EntryType::entryDynamic) {
      queuedLearns.push_back(change);
      if (!in_.bridgingStatus->learnedHost(key)) keys.push_back(key);
    }
  }
  for (const auto& key : keys) {
    BLIP(trace(), 6, "Calling evaluateEntry to remove macVlan pair:  {}", key.stringValue());
    in_.macTable->macEntryDel(key);
    evaluateEntry(key, nullptr, true, Vex::now());
  }
  for (const auto& learn : queuedLearns) {
    // The chip holds its copy of a learn nothing was published for: it goes
    // at once, as a flush takes it, unless a change for the key stands.
    const MacVlanPair& key = learn->macVlanPair();
    if (updateList_.contains(key) || currentEntry(key)) continue;
    BLIP(trace(), 6, " Removing MAC entry: {}", key.stringValue());
    std::uint32_t code = in_.orbHelper->removeHost(key, learn->entryType());
    if (code != 0) BLIP(trace(), 3, "Remove unsuccessful, code is {}", code);
  }
}

bool MacAddrSm::wantedElsewhere(const MacVlanPair& key) const {
  // The queue keeps its room after a burst: look only when it holds something.
  return (!updateList_.empty() && updateList_.contains(key)) || wantedBySource(key);
}

void MacAddrSm::dropFlushedHosts(std::optional<std::uint16_t> vlanId, const IntfId* intf) {
  const bool everything = !vlanId && !intf;
  // Commonly nothing but the hardware offers hosts: no need to ask per host.
  const bool mayBeWanted = !noOtherSource();
  auto flushed = [&](const MacVlanPair& key, EntryType type, const IntfId& at) {
    return type == EntryType::entryDynamic && (!intf || at == *intf) && !(mayBeWanted && wantedElsewhere(key));
  };
  dropFlushedQueuedLearns(vlanId, intf, mayBeWanted);
  // Counts change once per VLAN and interface, not once per host.
  Vex::HashMap<IntfId, int> goneOnIntf;
  std::vector<Nexo::EthAddr> gone;
  auto dropFrom = [&](Bridging::FdbStatus& fdb, VlanId fidVlan) {
    gone.clear();
    fdb.learnedHostDelIf([&](const auto& row) {
      const auto& [addr, host] = row;
      if (!flushed(MacVlanPair{addr, fidVlan}, host.entryType, host.intf)) {
        flushKept_.insert(MacVlanPair{addr, fidVlan});
        return false;
      }
      gone.push_back(addr);
      --goneOnIntf[host.intf];
      return true;
    });
    if (gone.empty()) return;
    if (in_.l2RibInput && !everything) {
      for (const auto& addr : gone) in_.l2RibInput->hostDel(MacVlanPair{addr, fidVlan});
    }
    dynamicHostStatus_->hostCountInVlanAdd(fidVlan, -static_cast<int>(gone.size()));
    dynamicHostStatus_->hostCountIs(dynamicHostStatus_->hostCount() - static_cast<std::uint32_t>(gone.size()));
  };
  if (vlanId) {
    const auto& fdb = in_.bridgingStatus->fdbStatus(Bridging::Fid(*vlanId));
    if (fdb && *vlanId >= 1 && *vlanId <= 4094) dropFrom(*fdb, VlanId(*vlanId));
  } else {
    for (const auto& [fid, fdb] : in_.bridgingStatus->fdbStatus()) {
      if (auto fidVlan = Bridging::Status::vlanOf(fid)) dropFrom(*fdb, *fidVlan);
    }
  }
  for (const auto& [at, delta] : goneOnIntf) dynamicHostStatus_->hostCountOnIntfAdd(at, delta);
  if (everything && in_.l2RibInput) {
    // The whole table goes: walked in its own order, not key by key.
    in_.l2RibInput->hostDelIf([&](const auto& row) {
      const auto& [key, host] = row;
      return host.entryType == EntryType::entryDynamic && !flushKept_.contains(key) &&
             !(mayBeWanted && wantedElsewhere(key));
    });
  }
}

void MacAddrSm::dropFlushedQueuedLearns(std::optional<std::uint16_t> vlanId, const IntfId* intf, bool mayBeWanted) {
  // A learn queued but not yet programmed goes with the target: the chip
  // flushes its own copy, and programming it afterwards would bring back
  // what was flushed, for good once the chip had aged it out.
  if (updateList_.empty()) return;
  std::vector<MacVlanPair> gone;
  for (const auto& [key, change] : updateList_) {
    if (change->action == EntryEvaluationAction::remove || change->entryType() != EntryType::entryDynamic ||
        (vlanId && key.vlanId.value() != *vlanId) || (intf && change->intf() != *intf)) {
      continue;
    }
    if (mayBeWanted && wantedBySource(key)) {
      flushKept_.insert(key);  // reviewed as the chip's deletion comes
      continue;
    }
    gone.push_back(key);
  }
  for (const auto& key : gone) {
    BLIP(trace(), 7, "{}: queued learn flushed", key.stringValue());
    updateList_.erase(key);
  }
}

template <class Flush>
void MacAddrSm::flushInChip(Flush flush) {
  // Hardware deletions reported while the chip flushes are of hosts just
  // dropped, except for those kept: only those need a review.
  flushingInChip_ = true;
  flush();
  flushingInChip_ = false;
  flushKept_.clear();
}

void MacAddrSm::execFlush() {
  // Each target's dynamic hosts leave the status before the chip flushes
  // them: the chip takes them out itself, so there is nothing to remove,
  // and its table's deletions then find nothing left to review. Hosts that
  // another source wants stay and are reviewed as the deletions come.
  auto vlanOrAll = [](int vlanId) { return vlanId < 0 ? std::nullopt : std::optional<std::uint16_t>(vlanId); };
  // What was gathered is carried out once, even should a flush fail.
  const CondensedFlushRequest fr = std::exchange(fr_, CondensedFlushRequest{});
  if (fr.all) {
    BLIP(trace(), 5, " flushing all macs ");
    dropFlushedHosts(std::nullopt, nullptr);
    flushInChip([&] { in_.orbHelper->flushAll(); });
  }
  for (auto vlanId : fr.vlan) {
    BLIP(trace(), 5, " flushing vlan {}", vlanId);
    dropFlushedHosts(vlanId, nullptr);
    flushInChip([&] { in_.orbHelper->flushVlan(VlanId(vlanId)); });
  }
  auto flushOn = [&](int vlanId, const IntfId& intf, bool lag) {
    dropFlushedHosts(vlanOrAll(vlanId), &intf);
    flushInChip([&] {
      if (lag) {
        in_.orbHelper->flushVlanLag(vlanId, intf);
      } else {
        in_.orbHelper->flushVlanPort(vlanId, intf);
      }
    });
  };
  for (const auto& [vlanId, port] : fr.vlanPort) {
    BLIP(trace(), 5, " flushing vlan {} on port {}", vlanId, port.stringValue());
    flushOn(vlanId, port, false);
  }
  for (const auto& port : fr.port) {
    BLIP(trace(), 5, " flushing port {}", port.stringValue());
    flushOn(-1, port, false);
  }
  for (const auto& [vlanId, lag] : fr.vlanLag) {
    BLIP(trace(), 5, " flushing vlan {} on lag {}", vlanId, lag.stringValue());
    flushOn(vlanId, lag, true);
  }
  for (const auto& lag : fr.lag) {
    BLIP(trace(), 5, " flushing lag {}", lag.stringValue());
    flushOn(-1, lag, true);
  }
}

}  // namespace Orb
