#include "Orb/OrbSubIntfTypes.h"

#include "Orb/OrbAssert.h"

namespace Orb {

std::optional<Nexo::IntfId> VlanIdToIntfIdMap::conflictingIntfId(const Nexo::IntfId& intf, Bridging::VlanIdOrNone vlan,
                                                                 bool isL2SubIntf) const {
  auto bridged = bridgedVlanIdMap_.find(vlan);
  auto routed = routedVlanIdMap_.find(vlan);
  const bool inBridged = bridged != bridgedVlanIdMap_.end();
  const bool inRouted = routed != routedVlanIdMap_.end();
  const bool routedByOther = inRouted && routed->second != intf;
  // Bridged sub-interfaces share a VLAN, but never with a routed one; a
  // routed one owns its VLAN alone. A layer-2 sub-interface collides even
  // with a routed claim of its own: it must give that up first.
  const bool conflict = isL2SubIntf ? inRouted : (routedByOther || inBridged);
  if (!conflict) return std::nullopt;
  if (routedByOther) return routed->second;
  std::optional<Nexo::IntfId> intfIdLookup;
  if (inRouted) {
    intfIdLookup = routed->second;
  } else if (inBridged && !bridged->second.empty()) {
    intfIdLookup = *bridged->second.begin();
  }
  if (!intfIdLookup) orbAssert("!!intfIdLookup");
  return intfIdLookup;
}

std::optional<Nexo::IntfId> VlanIdToIntfIdMap::routedOwner(Bridging::VlanIdOrNone vlan) const {
  auto it = routedVlanIdMap_.find(vlan);
  if (it == routedVlanIdMap_.end()) return std::nullopt;
  return it->second;
}

void VlanIdToIntfIdMap::updateConfig(const Nexo::IntfId& intf, Bridging::VlanIdOrNone vlan, bool isL2SubIntf,
                                     bool add) {
  if (!add) {
    if (routedVlanIdMap_.erase(vlan)) return;
    auto bridged = bridgedVlanIdMap_.find(vlan);
    if (bridged == bridgedVlanIdMap_.end()) return;
    bridged->second.erase(intf);
    if (bridged->second.empty()) bridgedVlanIdMap_.erase(bridged);
    return;
  }
  if (conflictingIntfId(intf, vlan, isL2SubIntf)) {
    orbAssert("!conflictingIntfId( intfId, vlanId, isL2SubIntf ) && \"vlanId is conflicting\"");
  }
  if (isL2SubIntf) {
    bridgedVlanIdMap_[vlan].insert(intf);
  } else {
    routedVlanIdMap_[vlan] = intf;
  }
}

}  // namespace Orb
