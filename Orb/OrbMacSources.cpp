// The MAC machine's sources of candidate entries and how it chooses among
// them: one table of sources that choosing, flushes and the any-source
// checks all walk, reduced with betterEntry in the table's order.
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbMacAddrSmParts.h"

#include <algorithm>
#include <iterator>

namespace Orb {

using namespace MacAddrSmParts;

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

bool MacAddrSm::peerEntriesAllowed() const {
  return in_.mlagStatus && in_.mlagStatus->mlagStateValid() && !in_.mlagStatus->peerLinkIntf().empty();
}

// The sources other than the hardware, in the order configuredEntry weighs
// them. A new source is one more row here.
const MacAddrSm::SourceKind MacAddrSm::sourceKinds[] = {
    // The L2 RIB's hosts.
    {"l2Rib", [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.l2RibOutput->hostHas(key); },
     [](const MacAddrSm& sm) { return !sm.in_.l2RibOutput || sm.in_.l2RibOutput->host().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.l2RibOutput->host(key); }, nullptr},
    // Remote hosts the control plane received (EVPN).
    {"evpnMacTable",
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.remoteHostTable->receivedHostHas(key); },
     [](const MacAddrSm& sm) { return !sm.in_.remoteHostTable || sm.in_.remoteHostTable->receivedHost().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.remoteHostTable->receivedHost(key); }, nullptr},
    // Remote hosts configured statically.
    {"evpnMacTable",
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.remoteHostTable->configuredHostHas(key); },
     [](const MacAddrSm& sm) { return !sm.in_.remoteHostTable || sm.in_.remoteHostTable->configuredHost().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.remoteHostTable->configuredHost(key); }, nullptr},
    // Static entries of the configuration.
    {"fdbConfig", [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.bridgingConfig->fdbConfigHas(key); },
     [](const MacAddrSm& sm) { return sm.in_.bridgingConfig->fdbConfig().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return remoteEntryOf(sm.in_.bridgingConfig->fdbConfig(key)); },
     // A static entry a router MAC of the same key takes the place of is
     // set aside, and counted as such.
     [](MacAddrSm& sm, const MacVlanPair& key, RemoteMacAddressTableEntry&, bool& colliding) {
       if (!sm.in_.routerMacTable || !sm.in_.routerMacTable->macEntryHas(key)) return true;
       colliding = true;
       if (sm.collidingStaticEntryWithRouterMacEntry_.insert(key).second) {
         BLIP(trace(), 3, "collision of static entry {} with router mac entry", key.stringValue());
       }
       return false;
     }},
    // Addresses that never age, from every owner.
    {"fdbConfig",
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.nonAgingReactor_->notifier()->macEntriesHas(key); },
     [](const MacAddrSm& sm) { return !sm.nonAgingReactor_ || sm.nonAgingReactor_->notifier()->macEntries().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) {
       return remoteEntryOf(sm.nonAgingReactor_->notifier()->macEntries(key));
     },
     nullptr},
    // Hosts 802.1X authenticated. The local 802.1X table is keyed by
    // address; its row names the VLAN.
    {"fdbConfig",
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.dot1xLocalHostTable_->hostHas(key.addr); },
     [](const MacAddrSm& sm) { return !sm.dot1xLocalHostTable_ || sm.dot1xLocalHostTable_->host().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return remoteEntryOf(sm.dot1xLocalHostTable_->host(key.addr)); },
     [](MacAddrSm&, const MacVlanPair& key, RemoteMacAddressTableEntry& candidate, bool&) {
       return candidate.macVlanPair == key;
     }},
    // The MLAG peer's hosts.
    {"mlagHostTable",
     [](const MacAddrSm& sm, const MacVlanPair& key) { return sm.in_.mlagHostTable->hostEntryHas(key); },
     [](const MacAddrSm& sm) { return !sm.in_.mlagHostTable || sm.in_.mlagHostTable->hostEntry().empty(); },
     [](const MacAddrSm& sm, const MacVlanPair& key) { return remoteEntryOf(sm.in_.mlagHostTable->hostEntry(key)); },
     [](MacAddrSm& sm, const MacVlanPair&, RemoteMacAddressTableEntry& candidate, bool&) {
       if (!sm.peerEntriesAllowed()) return false;
       // The peer's address is reached over the MLAG interface if this
       // switch has it, else over the peer link.
       if (!sm.ocsd()->lagToPortHas(candidate.intf)) candidate.intf = sm.in_.mlagStatus->peerLinkIntf();
       return true;
     }},
};

bool MacAddrSm::wantedBySource(const MacVlanPair& key) const {
  return std::any_of(std::begin(sourceKinds), std::end(sourceKinds),
                     [&](const SourceKind& source) { return !source.empty(*this) && source.has(*this, key); });
}

bool MacAddrSm::noOtherSource() const {
  return updateList_.empty() && std::all_of(std::begin(sourceKinds), std::end(sourceKinds),
                                            [&](const SourceKind& source) { return source.empty(*this); });
}

std::optional<RemoteMacAddressTableEntry> MacAddrSm::configuredEntry(const MacVlanPair& key) {
  std::optional<RemoteMacAddressTableEntry> best;
  // Colliding keys are kept, not counted per look, so that the count says
  // how many static entries are set aside now.
  bool colliding = false;
  for (const auto& source : sourceKinds) {
    if (source.empty(*this) || !source.has(*this, key)) continue;
    auto candidate = source.entry(*this, key);
    if (source.admit && !source.admit(*this, key, candidate, colliding)) continue;
    BLIP(trace(), 8, "candidate from {} {}", source.name, key.stringValue());
    const auto* winner = betterEntry(best ? &*best : nullptr, &candidate, in_.swTunnelIdMap.get());
    if (winner == &candidate) best = candidate;
  }
  if (!colliding && !collidingStaticEntryWithRouterMacEntry_.empty())
    collidingStaticEntryWithRouterMacEntry_.erase(key);
  return best;
}

}  // namespace Orb
