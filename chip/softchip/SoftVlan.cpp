#include "chip/softchip/SoftVlan.h"

#include <fmt/format.h>

namespace SoftChip {

void SoftVlanTable::dumpEntry(JsonWriter& writer, const HwVlan& vlan) const {
  writer.StartObject();
  dumpIntfs(writer, "tagged", vlan.tagged);
  dumpIntfs(writer, "untagged", vlan.untagged);
  dumpIntfs(writer, "ingress", vlan.ingress);
  dumpIntfs(writer, "egress", vlan.egress);
  if (!vlan.held.empty()) {
    writer.Key("held");
    writer.StartArray();
    for (const auto& [intf, tagged] : vlan.held) writer.String(intf.stringValue().c_str());
    writer.EndArray();
  }
  writer.Key("fid");
  writer.Uint(vlan.fid.value());
  writer.EndObject();
}

SoftVlanHelper::SoftVlanHelper(const Vex::Ptr<SoftChip>& chip)
    : VlanHelper("SoftVlanHelper"), chip_(chip), table_(*chip) {}

SoftVlanHelper::~SoftVlanHelper() = default;

void SoftVlanHelper::doCreateHwVlan(Bridging::VlanId vlanId) {
  // A VLAN beyond the table's capacity is refused when its first update
  // comes, so the refusal travels back as a failed programming.
  if (!table_.hasRoom()) return;
  auto& vlan = table_.entries[vlanId];
  auto fid = fids_.find(vlanId);
  vlan.fid = fid != fids_.end() ? fid->second : Bridging::Fid(vlanId.value());
}

void SoftVlanHelper::doUpdateVlan(Bridging::VlanId vlanId) {
  ++updatesRequested_;
  inFlight_.insert(vlanId);
  Fault fault = table_.nextFault();
  bool fits = table_.entries.count(vlanId) || table_.hasRoom();
  if (fits && !table_.entries.count(vlanId)) doCreateHwVlan(vlanId);
  auto status = (fault == Fault::none && fits) ? Orb::VlanProgrammingStatus::programmingSucceeded
                                               : Orb::VlanProgrammingStatus::programmingFailed;
  // The request is read when hardware gets to it: by then a redo may have
  // replaced it, and that is what gets programmed.
  table_.ackIs([this, vlanId, status] {
    inFlight_.erase(vlanId);
    if (!updateConfig()->vlanUpdate(vlanId)) return;
    if (status == Orb::VlanProgrammingStatus::programmingSucceeded) apply(vlanId);
    updateVlanDone(vlanId, status);
  });
}

void SoftVlanHelper::apply(Bridging::VlanId vlanId) {
  auto request = updateConfig()->vlanUpdate(vlanId);
  auto& vlan = table_.entries[vlanId];
  vlan.lastGenId = request->genId();
  for (const auto& [intf, tagged] : request->add()) {
    vlan.tagged.erase(intf);
    vlan.untagged.erase(intf);
    vlan.held.erase(intf);
    (tagged ? vlan.tagged : vlan.untagged).insert(intf);
    if (tagged) {
      releaseUntagged(intf, vlanId);
    } else {
      claimUntagged(intf, vlanId);
    }
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
  auto cache = vlanCache(vlanId);
  for (const auto& [intf, unused] : request->remove()) {
    vlan.tagged.erase(intf);
    vlan.untagged.erase(intf);
    vlan.egress.erase(intf);
    vlan.ingress.erase(intf);
    // Still configured: out only while spanning tree keeps it from forwarding.
    if (cache && cache->addHas(intf) && cache->ingress(intf)) {
      bool tagged = cache->add(intf);
      vlan.held[intf] = tagged;
      if (!tagged) continue;
    } else {
      vlan.held.erase(intf);
    }
    releaseUntagged(intf, vlanId);
  }
}

void SoftVlanHelper::claimUntagged(const Nexo::IntfId& intf, Bridging::VlanId vlanId) {
  table_.untaggedVlanOf.try_emplace(intf, vlanId);
}

void SoftVlanHelper::releaseUntagged(const Nexo::IntfId& intf, Bridging::VlanId vlanId) {
  auto it = table_.untaggedVlanOf.find(intf);
  if (it == table_.untaggedVlanOf.end() || it->second != vlanId) return;
  table_.untaggedVlanOf.erase(it);
  for (const auto& [otherId, other] : table_.entries) {
    auto held = other.held.find(intf);
    if (other.untagged.contains(intf) || (held != other.held.end() && !held->second)) {
      table_.untaggedVlanOf.emplace(intf, otherId);
      return;
    }
  }
}

void SoftVlanHelper::doUpdateVlanFid(Bridging::VlanId vlanId, Bridging::Fid fid) {
  // Kept for a VLAN the table does not hold yet: it gets its FID when made.
  fids_[vlanId] = fid;
  if (HwVlan* vlan = table_.find(vlanId)) vlan->fid = fid;
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
