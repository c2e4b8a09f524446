// Which sub-interface owns which VLAN: a routed sub-interface owns its VLAN
// alone, layer-2 sub-interfaces may share one, and the two kinds never mix
// in one VLAN. Also the key of the tag map (a parent and an encapsulation).
#pragma once

#include "platform/model/SubIntf.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"

#include <boost/container/flat_set.hpp>

#include <optional>

namespace Orb {

using SubIntfEncap = Interface::SubIntfEncap;

// One parent interface and one encapsulation on it: at most one
// sub-interface holds it.
struct ParentIntfIdAndDot1qEncap {
  Nexo::IntfId parentIntfId;
  SubIntfEncap dot1qEncap;
  auto operator<=>(const ParentIntfIdAndDot1qEncap&) const = default;
};
inline std::size_t hash_value(const ParentIntfIdAndDot1qEncap& key) {
  return boost::hash<std::uint64_t>()(key.parentIntfId.bits() ^ (std::uint64_t{key.dot1qEncap.outerTag} << 16) ^
                                      (std::uint64_t{key.dot1qEncap.innerTag} << 32));
}

class VlanIdToIntfIdMap {
 public:
  // A VLAN is shared by a handful of layer-2 sub-interfaces at most: one
  // small block each, and hashed maps, keep a claim to a look-up and no
  // allocation of its own once the maps have grown.
  using PortList = boost::container::flat_set<Nexo::IntfId>;
  using RoutedMap = Vex::HashMap<Bridging::VlanIdOrNone, Nexo::IntfId>;
  using BridgedMap = Vex::HashMap<Bridging::VlanIdOrNone, PortList>;

  const RoutedMap& routedVlanIdMap() const { return routedVlanIdMap_; }
  const BridgedMap& bridgedVlanIdMap() const { return bridgedVlanIdMap_; }

  // Adds or removes `intf`'s claim on `vlan`. An add must not conflict
  // (callers ask conflictingIntfId first); a conflicting add is a
  // programming error and stops the process.
  void updateConfig(const Nexo::IntfId& intf, Bridging::VlanIdOrNone vlan, bool isL2SubIntf, bool add);
  // The interface `intf` would collide with on `vlan`, or none.
  std::optional<Nexo::IntfId> conflictingIntfId(const Nexo::IntfId& intf, Bridging::VlanIdOrNone vlan,
                                                bool isL2SubIntf) const;
  // The routed owner of `vlan`, or none.
  std::optional<Nexo::IntfId> routedOwner(Bridging::VlanIdOrNone vlan) const;

 private:
  RoutedMap routedVlanIdMap_;
  BridgedMap bridgedVlanIdMap_;
};

}  // namespace Orb
