#include "chip/softchip/SoftRoute.h"

#include <fmt/format.h>

#include <algorithm>

namespace SoftChip {

std::string SoftRouteKey::text() const {
  return fmt::format("{} {}", vrf, v6 ? prefix6.stringValue() : prefix.stringValue());
}

const HwRoute* SoftRouteTable::lookup(std::uint32_t vrf, const Nexo::IpGenAddr& addr) const {
  SoftRouteKey key;
  key.vrf = vrf;
  key.v6 = addr.isV6();
  for (int len = key.v6 ? 128 : 32; len >= 0; --len) {
    if (key.v6) {
      key.prefix6 = Nexo::Ip6Prefix(addr.v6Addr(), unsigned(len));
    } else {
      key.prefix = Nexo::Prefix(addr.v4Addr(), unsigned(len));
    }
    if (const HwRoute* route = find(key)) return route;
  }
  return nullptr;
}

void SoftRouteTable::dumpEntry(JsonWriter& writer, const HwRoute& route) const {
  writer.StartObject();
  writer.Key("fec");
  writer.Uint64(route.fec);
  writer.EndObject();
}

namespace {

void dumpNextHop(JsonWriter& writer, const HwNextHop& nh) {
  writer.StartObject();
  writer.Key("mac");
  writer.String(nh.mac.stringValue().c_str());
  writer.Key("l2Intf");
  writer.String(nh.l2Intf.stringValue().c_str());
  writer.EndObject();
}

}  // namespace

void SoftFecTable::dumpEntry(JsonWriter& writer, const HwFec& fec) const {
  writer.StartObject();
  writer.Key("adjacency");
  writer.String(fec.adj.stringValue().c_str());
  if (fec.slotCount) {
    writer.Key("slotCount");
    writer.Uint(fec.slotCount);
    writer.Key("slots");
    writer.StartArray();
    for (const auto& member : fec.slots) dumpNextHop(writer, member);
    writer.EndArray();
  }
  writer.EndObject();
}

void SoftL3IntfTable::dumpEntry(JsonWriter& writer, const HwL3Intf& intf) const {
  writer.StartObject();
  writer.Key("vrf");
  writer.Uint(intf.vrf);
  writer.EndObject();
}

SlotMembers slotMembers(const HwAdj& adj) {
  SlotMembers out;
  for (const auto& nh : adj.nextHops) {
    SlotMember member = nh;
    member.weight = 0;
    auto at = std::find(out.members.begin(), out.members.end(), member);
    if (at == out.members.end()) {
      out.members.push_back(member);
      out.weights.push_back(std::max<std::uint32_t>(nh.weight, 1));
    } else {
      out.weights[std::size_t(at - out.members.begin())] += std::max<std::uint32_t>(nh.weight, 1);
    }
  }
  return out;
}

std::vector<std::pair<SlotMember, std::uint32_t>> SlotMembers::sorted() const {
  std::vector<std::pair<SlotMember, std::uint32_t>> out;
  for (std::size_t i = 0; i < members.size(); ++i) out.emplace_back(members[i], weights[i]);
  std::sort(out.begin(), out.end());
  return out;
}

SoftRouteHelper::SoftRouteHelper(const Vex::Ptr<SoftChip>& chip, SoftAdjHelper& adjacencies)
    : chip_(chip), adjHelper_(adjacencies), routes_(*chip), fecs_(*chip), l3Intfs_(*chip) {
  adjHelper_.adjacencyWrittenIs([this](const Orb::L2AdjKey& adj) { adjacencyWritten(adj); });
}

SoftRouteHelper::~SoftRouteHelper() { adjHelper_.adjacencyWrittenIs(nullptr); }

void SoftRouteHelper::layOut(HwFec& fec, std::vector<SlotMember> previous) {
  const HwAdj* hwAdj = adjHelper_.table().find(fec.adj);
  const SlotMembers members = hwAdj ? slotMembers(*hwAdj) : SlotMembers{};
  fec.slots = resilientSlotLayout(previous, members.members, members.weights, fec.slotCount);
}

void SoftRouteHelper::adjacencyWritten(const Orb::L2AdjKey& adj) {
  // An adjacency taken out is one its FECs are leaving: they keep their
  // slots for the adjacency they are written over next.
  if (!adjHelper_.table().find(adj)) return;
  for (auto& [key, fec] : fecs_.entries) {
    if (fec.slotCount && fec.adj == adj) layOut(fec, fec.slots);
  }
}

std::uint32_t SoftRouteHelper::admit(SoftTable& table, bool addsEntry) {
  switch (table.admit(addsEntry)) {
    case Fault::none:
      return addSuccess;
    case Fault::busy:
      ++refused_;
      return addBusy;
    case Fault::full:
      ++refused_;
      return addFull;
    case Fault::failed:
      ++refused_;
      return addFailed;
  }
  return addFailed;
}

std::uint32_t SoftRouteHelper::doAddL3Intf(const Nexo::IntfId& intf, std::uint32_t vrf) {
  if (auto status = admit(l3Intfs_, !l3Intfs_.find(intf))) return status;
  l3Intfs_.entries[intf].vrf = vrf;
  return addSuccess;
}

void SoftRouteHelper::doRemoveL3Intf(const Nexo::IntfId& intf) { l3Intfs_.erase(intf); }

std::uint32_t SoftRouteHelper::doAddRoute(const SoftRouteKey& key, std::uint64_t fec) {
  if (auto status = admit(routes_, !routes_.find(key))) return status;
  routes_.entries[key].fec = fec;
  return addSuccess;
}

void SoftRouteHelper::doRemoveRoute(const SoftRouteKey& key) { routes_.erase(key); }

std::uint32_t SoftRouteHelper::doAddFec(std::uint64_t fecId, const Orb::L2AdjKey& adj, std::uint32_t slotCount) {
  SoftFecKey key{fecId};
  if (auto status = admit(fecs_, !fecs_.find(key))) return status;
  HwFec& fec = fecs_.entries[key];
  std::vector<SlotMember> previous = fec.slotCount == slotCount ? fec.slots : std::vector<SlotMember>{};
  fec.adj = adj;
  fec.slotCount = slotCount;
  fec.slots.clear();
  if (slotCount) layOut(fec, std::move(previous));
  return addSuccess;
}

void SoftRouteHelper::doRemoveFec(std::uint64_t fec) { fecs_.erase(SoftFecKey{fec}); }

std::uint64_t SoftRouteHelper::sharedResilientFec(std::uint64_t fecId) const {
  const HwFec* fec = fecs_.find(SoftFecKey{fecId});
  if (!fec || !fec->slotCount) return fecId;
  auto membersOf = [this](const HwFec& of) {
    const HwAdj* adj = adjHelper_.table().find(of.adj);
    return adj ? slotMembers(*adj).sorted() : std::vector<std::pair<SlotMember, std::uint32_t>>{};
  };
  const auto members = membersOf(*fec);
  // The table is ordered by FEC id: the first match is the lowest.
  for (const auto& [key, other] : fecs_.entries) {
    if (key.id == fecId) return fecId;
    if (other.slotCount == fec->slotCount && other.adj == fec->adj) return key.id;
    if (other.slotCount == fec->slotCount && membersOf(other) == members) return key.id;
  }
  return fecId;
}

}  // namespace SoftChip
