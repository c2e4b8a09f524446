// Which sub-interface owns which VLAN: a routed sub-interface owns its VLAN
// alone, layer-2 sub-interfaces may share one, and the two kinds never mix
// in one VLAN. Also the key of the tag map (a parent and an encapsulation).
#pragma once

#include "platform/model/SubIntf.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"

#include <map>
#include <optional>
#include <set>

namespace Orb {

using SubIntfEncap = Interface::SubIntfEncap;

// One parent interface and one encapsulation on it: at most one
// sub-interface holds it.
struct ParentIntfIdAndDot1qEncap {
  Nexo::IntfId parentIntfId;
  SubIntfEncap dot1qEncap;
  auto operator<=>(const ParentIntfIdAndDot1qEncap&) const = default;
};

class VlanIdToIntfIdMap {
 public:
  using PortList = std::set<Nexo::IntfId>;

  const std::map<Bridging::VlanIdOrNone, Nexo::IntfId>& routedVlanIdMap() const { return routedVlanIdMap_; }
  const std::map<Bridging::VlanIdOrNone, PortList>& bridgedVlanIdMap() const { return bridgedVlanIdMap_; }

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
  std::map<Bridging::VlanIdOrNone, Nexo::IntfId> routedVlanIdMap_;
  std::map<Bridging::VlanIdOrNone, PortList> bridgedVlanIdMap_;
};

}  // namespace Orb
