#include "chip/softchip/SoftStp.h"

#include <algorithm>
#include <vector>

namespace SoftChip {

void SoftTopologyTable::dumpEntry(JsonWriter& writer, const HwTopology& topo) const {
  writer.StartObject();
  writer.Key("vlans");
  writer.StartArray();
  for (const auto& vlanId : topo.vlans) writer.Uint(vlanId.value());
  writer.EndArray();
  writer.Key("portState");
  writer.StartObject();
  std::vector<std::pair<Nexo::IntfId, Orb::PortState>> states(topo.portState.begin(), topo.portState.end());
  std::sort(states.begin(), states.end());
  for (const auto& [port, state] : states) {
    writer.Key(port.stringValue().c_str());
    writer.String(Vex::valueToStrep(state).c_str());
  }
  writer.EndObject();
  writer.Key("flushes");
  writer.Uint(topo.flushes);
  writer.Key("vlanFlushes");
  writer.StartObject();
  for (const auto& [vlanId, count] : topo.vlanFlushes) {
    writer.Key(std::to_string(vlanId.value()).c_str());
    writer.Uint(count);
  }
  writer.EndObject();
  writer.EndObject();
}

SoftTopoHelper::SoftTopoHelper(const Vex::Ptr<SoftChip>& chip, const Vex::Ptr<Orb::VlanHelper>& vlanHelper)
    : VlanTopoHelper(vlanHelper, "SoftTopoHelper"), chip_(chip), table_(*chip) {}

SoftTopoHelper::~SoftTopoHelper() = default;

std::uint32_t SoftTopoHelper::maxTopo() {
  std::size_t capacity = table_.capacity();
  return capacity == SoftChip::unlimited ? 64 : static_cast<std::uint32_t>(capacity);
}

void SoftTopoHelper::allocTopo(const std::string& topoName) { table_.entries[topoName]; }

void SoftTopoHelper::freeTopo(const std::string& topoName) {
  auto it = table_.entries.find(topoName);
  if (it == table_.entries.end()) return;
  for (const auto& vlanId : it->second.vlans) forgetVlan(it->second, vlanId);
  table_.entries.erase(it);
}

void SoftTopoHelper::forgetVlan(const HwTopology& topo, Bridging::VlanId vlanId) {
  // A VLAN that moved on to another topology already points there.
  auto it = table_.topologyOfVlan.find(vlanId);
  if (it != table_.topologyOfVlan.end() && it->second == &topo) table_.topologyOfVlan.erase(it);
}

void SoftTopoHelper::setStpState(std::int32_t topoId, const std::string& topoName, const Nexo::IntfId& intf,
                                 Orb::PortState state) {
  idToName_[topoId] = topoName;
  table_.entries[topoName].portState[intf] = state;
  VlanTopoHelper::setStpState(topoId, topoName, intf, state);
}

void SoftTopoHelper::addVlanToTopo(const std::string& topoName, std::uint16_t vlan) {
  auto& topo = table_.entries[topoName];
  topo.vlans.insert(Bridging::VlanId(vlan));
  table_.topologyOfVlan[Bridging::VlanId(vlan)] = &topo;
  VlanTopoHelper::addVlanToTopo(topoName, vlan);
}

void SoftTopoHelper::delVlanFromTopo(const std::string& topoName, std::uint16_t vlan) {
  auto it = table_.entries.find(topoName);
  if (it != table_.entries.end()) {
    it->second.vlans.erase(Bridging::VlanId(vlan));
    forgetVlan(it->second, Bridging::VlanId(vlan));
  }
  VlanTopoHelper::delVlanFromTopo(topoName, vlan);
}

void SoftTopoHelper::topoPortStateDel(const std::string& topoName, const Nexo::IntfId& intf) {
  // A port the topology no longer names forwards, as any port it never named.
  if (auto it = table_.entries.find(topoName); it != table_.entries.end()) it->second.portState.erase(intf);
  VlanTopoHelper::topoPortStateDel(topoName, intf);
}

void SoftTopoHelper::flushTopoPort(std::int32_t topoId, const Nexo::IntfId&) {
  auto name = idToName_.find(topoId);
  if (name == idToName_.end()) return;
  auto it = table_.entries.find(name->second);
  if (it != table_.entries.end()) ++it->second.flushes;
}

void SoftTopoHelper::flushTopoPortVlan(const Orb::MappedVlan& vlans, const Nexo::IntfId&) {
  // Per-VLAN flushes land in the topology that holds the VLAN.
  for (auto& [name, topo] : table_.entries) {
    for (const auto& vlanId : vlans.vlan) {
      if (topo.vlans.count(vlanId)) ++topo.vlanFlushes[vlanId];
    }
  }
}

}  // namespace SoftChip
