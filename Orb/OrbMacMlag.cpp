// The MAC machine and the MLAG peer: the peer's hosts tracked by interface,
// and the sliced walks that review them when the peer link, the MLAG state
// or a multi-chassis interface changes.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"
#include "platform/vex/TimeSlice.h"

namespace Orb {

using namespace MacAddrSmParts;

void MacAddrSm::handleMlagHostTableEntry(const MacVlanPair& key) {
  trackPeerHost(key);
  reevaluateEntry(key);
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
  Vex::TimeSlice slice("mlag interface host walk", mlagIntfHostTableQuantum);
  for (auto it = lagToHostWalk_.begin(); it != lagToHostWalk_.end();) {
    auto& walk = it->second;
    while (!walk.empty() && Vex::now() - start <= mlagIntfHostTableQuantum) {
      reevaluateEntry(walk.pop());
      slice.itemDone();
    }
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
  Vex::TimeSlice slice("mlag host table walk", mlagHostTableQuantum);
  while (!mlagHostTableWalk_.empty()) {
    reevaluateEntry(mlagHostTableWalk_.pop());
    slice.itemDone();
    if (Vex::now() - start > mlagHostTableQuantum) break;
  }
  if (!mlagHostTableWalk_.empty()) mlagHostTableTimer_->timeMinIs(Vex::now());
}

}  // namespace Orb
