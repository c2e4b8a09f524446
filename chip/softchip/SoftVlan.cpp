#include "chip/softchip/SoftVlan.h"

#include <fmt/format.h>

namespace SoftChip {

namespace {

void writeSet(JsonWriter& writer, const char* key, const std::set<Nexo::IntfId>& ports) {
  writer.Key(key);
  writer.StartArray();
  for (const auto& port : ports) writer.String(port.stringValue().c_str());
  writer.EndArray();
}

}  // namespace

void SoftVlanTable::dump(JsonWriter& writer) const {
  writer.StartObject();
  for (const auto& [vlanId, vlan] : vlans) {
    writer.Key(std::to_string(vlanId.value()).c_str());
    writer.StartObject();
    writeSet(writer, "tagged", vlan.tagged);
    writeSet(writer, "untagged", vlan.untagged);
    writeSet(writer, "ingress", vlan.ingress);
    writeSet(writer, "egress", vlan.egress);
    writer.Key("fid");
    writer.Uint(vlan.fid.value());
    writer.EndObject();
  }
  writer.EndObject();
}

const HwVlan* SoftVlanTable::vlan(Bridging::VlanId vlanId) const {
  auto it = vlans.find(vlanId);
  return it == vlans.end() ? nullptr : &it->second;
}

SoftVlanHelper::SoftVlanHelper(const Vex::Ptr<SoftChip>& chip) : VlanHelper("SoftVlanHelper"), chip_(chip) {
  chip_->tableIs(&table_);
}

SoftVlanHelper::~SoftVlanHelper() { chip_->tableDel(&table_); }

void SoftVlanHelper::doCreateHwVlan(Bridging::VlanId vlanId) {
  // A VLAN beyond the table's capacity is refused when its first update
  // comes, so the refusal travels back as a failed programming.
  if (!chip_->hasRoom(SoftVlanTable::tableName)) return;
  auto& vlan = table_.vlans[vlanId];
  auto fid = fids_.find(vlanId);
  vlan.fid = fid != fids_.end() ? fid->second : Bridging::Fid(vlanId.value());
}

void SoftVlanHelper::doUpdateVlan(Bridging::VlanId vlanId) {
  ++updatesRequested_;
  inFlight_.insert(vlanId);
  Fault fault = chip_->nextFault(SoftVlanTable::tableName);
  bool fits = table_.vlans.count(vlanId) || chip_->hasRoom(SoftVlanTable::tableName);
  if (fits && !table_.vlans.count(vlanId)) doCreateHwVlan(vlanId);
  auto status = (fault == Fault::none && fits) ? Orb::VlanProgrammingStatus::programmingSucceeded
                                               : Orb::VlanProgrammingStatus::programmingFailed;
  // The request is read when hardware gets to it: by then a redo may have
  // replaced it, and that is what gets programmed.
  chip_->ackIs(SoftVlanTable::tableName, [this, vlanId, status] {
    inFlight_.erase(vlanId);
    if (!updateConfig()->vlanUpdate(vlanId)) return;
    if (status == Orb::VlanProgrammingStatus::programmingSucceeded) apply(vlanId);
    updateVlanDone(vlanId, status);
  });
}

void SoftVlanHelper::apply(Bridging::VlanId vlanId) {
  auto request = updateConfig()->vlanUpdate(vlanId);
  auto& vlan = table_.vlans[vlanId];
  vlan.lastGenId = request->genId();
  for (const auto& [intf, tagged] : request->add()) {
    vlan.tagged.erase(intf);
    vlan.untagged.erase(intf);
    (tagged ? vlan.tagged : vlan.untagged).insert(intf);
    if (request->ingress(intf)) {
      vlan.ingress.insert(intf);
    } else {
      vlan.ingress.erase(intf);
    }
    if (request->egress(intf)) {
      vlan.egress.insert(intf);
    } else {
      vlan.egress.erase(intf);
    }
  }
  for (const auto& [intf, unused] : request->remove()) {
    vlan.tagged.erase(intf);
    vlan.untagged.erase(intf);
    vlan.egress.erase(intf);
    vlan.ingress.erase(intf);
  }
}

void SoftVlanHelper::doUpdateVlanFid(Bridging::VlanId vlanId, Bridging::Fid fid) {
  // Kept for a VLAN the table does not hold yet: it gets its FID when made.
  fids_[vlanId] = fid;
  auto it = table_.vlans.find(vlanId);
  if (it != table_.vlans.end()) it->second.fid = fid;
}

std::vector<std::string> SoftVlanHelper::verifyLines() const {
  std::vector<std::string> lines;
  for (const auto& [intf, pvm] : portVlanMembership()) {
    for (const auto& vlanId : pvm->taggedVlan()) {
      const HwVlan* vlan = table_.vlan(vlanId);
      if (!vlan || !vlan->tagged.count(intf)) {
        lines.push_back(fmt::format("{} tagged in vlan {} but not in hardware", intf.stringValue(), vlanId.value()));
      }
    }
    for (const auto& vlanId : pvm->untaggedVlan()) {
      const HwVlan* vlan = table_.vlan(vlanId);
      if (!vlan || !vlan->untagged.count(intf)) {
        lines.push_back(fmt::format("{} untagged in vlan {} but not in hardware", intf.stringValue(), vlanId.value()));
      }
    }
  }
  return lines;
}

void SoftVlanHelper::verify() {}

}  // namespace SoftChip
