// The spanning-tree agent's default instance, as the state database holds
// it on a switch: every VLAN not mapped to another topology, and every port
// of the switch forwarding unless configured otherwise. VLAN membership
// reaches hardware only while spanning tree says a port forwards
// (checkPortState), so every port of every VLAN needs a state: a port that
// appears gets one in every topology.
#pragma once

#include "Orb/OrbCommon.h"
#include "platform/model/Topology.h"

#include <memory>

namespace Agent {

class DefaultTopology {
 public:
  static constexpr const char* name = "Default";

  DefaultTopology(const Vex::Ptr<Bridging::Topology::Config>& config, const Vex::Ptr<Orb::OrbCommonSmData>& ocsd);
  ~DefaultTopology();

 private:
  class ConfigReactor;
  class OcsdReactor;

  // A VLAN left its topology: it falls back to the default one.
  void handleVidToTopoMap(Bridging::VlanId vlanId);
  // A port of the switch came or went: it forwards by default, in every
  // topology.
  void handleIntf(const Nexo::IntfId& intf);

  Vex::Ptr<Bridging::Topology::Config> config_;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd_;
  Vex::Ptr<Bridging::Topology::TopoConfig> topo_;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
};

}  // namespace Agent
