// Spanning-tree topologies as the bridging agent configures them: one
// configuration per topology (its ports with their states, and flush
// requests), the VLAN-to-topology map, and the instance status the
// forwarding layer writes back.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <string>

namespace Bridging::Topology {

// Only forwarding lets a port carry traffic.
enum class PortState : std::uint8_t {
  portStateDisabled = 0,
  portStateDiscarding = 1,
  portStateLearning = 2,
  portStateForwarding = 3,
};
BOOST_DESCRIBE_ENUM(PortState, portStateDisabled, portStateDiscarding, portStateLearning, portStateForwarding)

class TopoConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<TopoConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(IntfState, Nexo::IntfId)
    VEX_KEY_HANDLER(FdbFlush, Nexo::IntfId)
  };
  using Entity::Entity;
  // The topology's ports and their states.
  VEX_ORDERED_COLLECTION(Nexo::IntfId, PortState, intfState, IntfState)
  // Bumped to flush the MAC addresses a port learned in this topology.
  VEX_KEYED_COUNTER(Nexo::IntfId, std::uint32_t, fdbFlush, FdbFlush)
};

class Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Config> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(TopoConfig, std::string)
    VEX_KEY_HANDLER(VidToTopoMap, VlanId)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<TopoConfig>, topoConfig, TopoConfig)
  VEX_ORDERED_COLLECTION(VlanId, std::string, vidToTopoMap, VidToTopoMap)
  VEX_OWNED_MEMBERS(std::string, TopoConfig, topoConfig)
};

// What the forwarding layer reports per topology: its hardware id and
// whether the latest port states have taken effect in hardware.
struct TopoInstStatus {
  std::int32_t topoId = -1;
  bool stateSet = false;
  auto operator<=>(const TopoInstStatus&) const = default;
};
VEX_VALUE(TopoInstStatus, "Bridging::Topology::TopoInstStatus", (topoId, stateSet))

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(TopoInstStatus, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, TopoInstStatus, topoInstStatus, TopoInstStatus)
};

}  // namespace Bridging::Topology
