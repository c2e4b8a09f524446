#include "agent/DefaultTopology.h"

namespace Agent {

class DefaultTopology::ConfigReactor : public Bridging::Topology::Config::Notifiee {
 public:
  ConfigReactor(DefaultTopology* owner, const Vex::Ptr<Bridging::Topology::Config>& config)
      : Notifiee(config), owner_(owner) {}
  void handleVidToTopoMap(const Bridging::VlanId& vlanId) override { owner_->handleVidToTopoMap(vlanId); }

 private:
  DefaultTopology* owner_;
};

class DefaultTopology::OcsdReactor : public Orb::OrbCommonSmData::Notifiee {
 public:
  OcsdReactor(DefaultTopology* owner, const Vex::Ptr<Orb::OrbCommonSmData>& ocsd) : Notifiee(ocsd), owner_(owner) {}
  void handleIntf(const Nexo::IntfId& intf) override { owner_->handleIntf(intf); }
  void handleCpuIntf(const Nexo::IntfId& intf) override { owner_->handleIntf(intf); }

 private:
  DefaultTopology* owner_;
};

DefaultTopology::DefaultTopology(const Vex::Ptr<Bridging::Topology::Config>& config,
                                 const Vex::Ptr<Orb::OrbCommonSmData>& ocsd)
    : config_(config), ocsd_(ocsd) {
  // VLANs first, while the topology has no port states, so that each port
  // then goes to every VLAN in one request.
  topo_ = config_->topoConfigIs(name);
  for (std::uint32_t v = 1; v <= 4094; ++v) handleVidToTopoMap(Bridging::VlanId(v));
  for (const auto& [intf, known] : ocsd_->intf()) handleIntf(intf);
  for (const auto& [intf, known] : ocsd_->cpuIntf()) handleIntf(intf);
  configReactor_ = std::make_unique<ConfigReactor>(this, config_);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, ocsd_);
}

DefaultTopology::~DefaultTopology() = default;

void DefaultTopology::handleVidToTopoMap(Bridging::VlanId vlanId) {
  if (!config_->vidToTopoMapHas(vlanId)) config_->vidToTopoMapIs(vlanId, name);
}

void DefaultTopology::handleIntf(const Nexo::IntfId& intf) {
  // Sub-interfaces and VLAN interfaces are not VLAN members; the CPU port
  // is, and, running no spanning tree, always forwards.
  if (intf.isSubIntf() || intf.isVlan()) return;
  // Spanning tree gives a port a state in every topology: a port that
  // comes after a topology took its VLANs forwards there too until told
  // otherwise, as the ports it found there do.
  bool present = ocsd_->intfHas(intf) || ocsd_->cpuIntfHas(intf);
  for (const auto& [topoName, topo] : config_->topoConfig()) {
    if (!present) {
      topo->intfStateDel(intf);
    } else if (!topo->intfStateHas(intf)) {
      topo->intfStateIs(intf, Bridging::Topology::PortState::portStateForwarding);
    }
  }
}

}  // namespace Agent
