// The soft chip's topology table behind the VLAN-based topology helper:
// topologies with their VLANs and per-port states, and the flushes asked of
// them. Port states reach VLAN membership through the VLAN helper; this
// table records what the chip was told.
#pragma once

#include "Orb/OrbStpSm.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/Entity.h"

#include <map>
#include <set>

namespace SoftChip {

// Whether a port in `state` learns, and whether it forwards.
inline bool learns(Orb::PortState state) {
  return state == Orb::PortState::portStateLearning || state == Orb::PortState::portStateForwarding;
}
inline bool forwards(Orb::PortState state) { return state == Orb::PortState::portStateForwarding; }

struct HwTopology {
  std::set<Bridging::VlanId> vlans;
  // Hashed: a frame looks up its ports' states on every hop.
  Vex::HashMap<Nexo::IntfId, Orb::PortState> portState;
  std::uint32_t flushes = 0;
  std::map<Bridging::VlanId, std::uint32_t> vlanFlushes;
};

class SoftTopologyTable : public SoftTableOf<std::string, HwTopology> {
 public:
  static constexpr const char* tableName = "topology";
  explicit SoftTopologyTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  const HwTopology* topology(const std::string& name) const { return find(name); }
  // The topology a VLAN belongs to, as the chip's VLAN-to-topology table
  // says; nullptr when none.
  const HwTopology* topologyOf(Bridging::VlanId vlanId) const {
    auto it = topologyOfVlan.find(vlanId);
    return it == topologyOfVlan.end() ? nullptr : it->second;
  }
  // Kept with the topologies' VLANs by the topology helper.
  Vex::HashMap<Bridging::VlanId, const HwTopology*> topologyOfVlan;

 protected:
  void dumpEntry(JsonWriter& writer, const HwTopology& topo) const override;
};

class SoftTopoHelper : public Orb::VlanTopoHelper {
 public:
  SoftTopoHelper(const Vex::Ptr<SoftChip>& chip, const Vex::Ptr<Orb::VlanHelper>& vlanHelper);
  ~SoftTopoHelper() override;

  const SoftTopologyTable& table() const { return table_; }

  // The table's capacity, 64 unless the chip says otherwise.
  std::uint32_t maxTopo() override;
  void allocTopo(const std::string& topoName) override;
  void freeTopo(const std::string& topoName) override;
  void setStpState(std::int32_t topoId, const std::string& topoName, const Nexo::IntfId& intf,
                   Orb::PortState state) override;
  void addVlanToTopo(const std::string& topoName, std::uint16_t vlan) override;
  void delVlanFromTopo(const std::string& topoName, std::uint16_t vlan) override;
  void topoPortStateDel(const std::string& topoName, const Nexo::IntfId& intf) override;
  void flushTopoPort(std::int32_t topoId, const Nexo::IntfId& port) override;
  void flushTopoPortVlan(const Orb::MappedVlan& vlans, const Nexo::IntfId& port) override;
  void verify() override {}
  void hwInit() override {}

 private:
  void forgetVlan(const HwTopology& topo, Bridging::VlanId vlanId);

  Vex::Ptr<SoftChip> chip_;
  SoftTopologyTable table_;
  std::map<std::int32_t, std::string> idToName_;
};

}  // namespace SoftChip
