#include "chip/softchip/SoftForwarding.h"

#include "chip/softchip/SoftAcl.h"
#include "chip/softchip/SoftFdb.h"
#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftRoute.h"
#include "chip/softchip/SoftStormControl.h"
#include "chip/softchip/SoftStp.h"
#include "chip/softchip/SoftSubIntf.h"
#include "chip/softchip/SoftVlan.h"

#include <fmt/format.h>

#include <algorithm>

namespace SoftChip {

namespace {

std::string name(const Nexo::IntfId& intf) { return intf.stringValue(); }

// The state spanning tree gives `intf` in the topology; a port the
// topology does not name forwards.
Orb::PortState portState(const HwTopology* topology, const Nexo::IntfId& intf) {
  if (!topology) return Orb::PortState::portStateForwarding;
  auto it = topology->portState.find(intf);
  return it == topology->portState.end() ? Orb::PortState::portStateForwarding : it->second;
}

}  // namespace

void ForwardResult::clear() {
  vlan = 0;
  subIntf = Nexo::IntfId();
  egress.clear();
  flooded = learned = moved = routed = false;
  vrf = 0;
  fec = 0;
  slot.reset();
  drop.clear();
  acls.clear();
  mirrors.clear();
}

const SoftForwarding::Tables& SoftForwarding::tables() {
  if (tablesGeneration_ == chip_.tablesGeneration()) return tables_;
  // Each table registers under its kind's name, so the name says its type.
  tables_.vlans = static_cast<const SoftVlanTable*>(chip_.table(SoftVlanTable::tableName));
  tables_.lags = static_cast<const SoftLagTable*>(chip_.table(SoftLagTable::tableName));
  tables_.topologies = static_cast<const SoftTopologyTable*>(chip_.table(SoftTopologyTable::tableName));
  tables_.fdb = static_cast<SoftFdbTable*>(chip_.table(SoftFdbTable::tableName));
  tables_.l3Intfs = static_cast<const SoftL3IntfTable*>(chip_.table(SoftL3IntfTable::tableName));
  tables_.routes = static_cast<const SoftRouteTable*>(chip_.table(SoftRouteTable::tableName));
  tables_.fecs = static_cast<const SoftFecTable*>(chip_.table(SoftFecTable::tableName));
  tables_.adjacencies = static_cast<const SoftAdjTable*>(chip_.table(SoftAdjTable::tableName));
  tables_.acl = static_cast<SoftAclTable*>(chip_.table(SoftAclTable::tableName));
  tables_.stormControl = static_cast<SoftStormControlTable*>(chip_.table(SoftStormControlTable::tableName));
  tables_.subIntfs = static_cast<const SoftSubIntfTable*>(chip_.table(SoftSubIntfTable::tableName));
  tables_.mirrors = static_cast<const SoftMirrorTable*>(chip_.table(SoftMirrorTable::tableName));
  tablesGeneration_ = chip_.tablesGeneration();
  return tables_;
}

Nexo::IntfId SoftForwarding::logical(const Nexo::IntfId& port) const {
  const Nexo::IntfId* lag = tables_.lags ? tables_.lags->lagOf(port) : nullptr;
  return lag ? *lag : port;
}

bool SoftForwarding::forwards(const HwTopology* topology, const Nexo::IntfId& intf) const {
  return ::SoftChip::forwards(portState(topology, intf));
}

ForwardResult SoftForwarding::forward(const Nexo::IntfId& ingress, const Frame& frame) {
  ForwardResult result;
  forward(ingress, frame, result);
  return result;
}

void SoftForwarding::forward(const Nexo::IntfId& ingress, const Frame& frame, ForwardResult& result) {
  result.clear();
  flowHash_.reset();
  tables();
  if (auto why = outOfService(ingress)) {
    result.drop = *why;
    return;
  }
  bridge(ingress, frame, result);
  if (!result.dropped()) dropOutOfService(result);
  if (!result.dropped() && tables_.acl) filterEgress(frame, result);
  if (tables_.mirrors) mirrorFrame(*tables_.mirrors, tables_.lags, ingress, frame, result);
}

std::optional<std::string> SoftForwarding::outOfService(const Nexo::IntfId& port) const {
  if (const std::string* cause = chip_.portDisabledCause(port)) {
    return fmt::format("{} is errdisabled ({})", name(port), *cause);
  }
  if (tables_.acl && tables_.acl->blocked(port))
    return fmt::format("{} is blocked while its ACL is updated", name(port));
  return std::nullopt;
}

void SoftForwarding::dropOutOfService(ForwardResult& result) const {
  if (!chip_.hasDisabledPorts() && !(tables_.acl && tables_.acl->anyBlocked())) return;
  std::string why;
  std::erase_if(result.egress, [&](const FrameEgress& out) {
    auto reason = outOfService(out.port);
    if (reason && why.empty()) why = *reason;
    return reason.has_value();
  });
  if (result.egress.empty() && !why.empty()) result.drop = why;
}

std::optional<AclVerdict> SoftForwarding::aclVerdict(const Nexo::IntfId& intf, Acl::AclDirection direction,
                                                     const Frame& frame, ForwardResult& result) {
  const Acl::AclType type = !frame.ipSrc ? Acl::mac() : frame.ipSrc->isV6() ? Acl::ipv6() : Acl::ip();
  const Orb::AclKey* key = tables_.acl->boundAt(intf, direction, type);
  if (!key) return std::nullopt;
  auto verdict = tables_.acl->classify(*key, frame);
  if (!verdict) return std::nullopt;
  const std::string rule =
      verdict->uniqueId == Orb::finalRuleId ? "implicit deny" : fmt::format("seq {}", verdict->seq);
  result.acls.push_back(
      fmt::format("acl {} on {}: {} {}", key->stringValue(), name(intf), rule, verdict->permit ? "permits" : "denies"));
  return verdict;
}

void SoftForwarding::filterEgress(const Frame& frame, ForwardResult& result) {
  std::string denied;
  std::erase_if(result.egress, [&](const FrameEgress& out) {
    auto verdict = aclVerdict(out.port, Acl::AclDirection::aclOut, frame, result);
    if (!verdict || verdict->permit) return false;
    if (denied.empty()) denied = fmt::format("acl {} on {} denies", verdict->key.stringValue(), name(out.port));
    return true;
  });
  if (result.egress.empty() && !denied.empty()) result.drop = denied;
}

void SoftForwarding::bridge(const Nexo::IntfId& ingress, const Frame& frame, ForwardResult& result) {
  const Tables& t = tables();
  const Nexo::IntfId port = logical(ingress);
  // Sub-interface tags first: a match takes the frame out of its tag's VLAN.
  const HwSubIntf* sub = nullptr;
  if (t.subIntfs && frame.tag && frame.tag->vlan && !t.subIntfs->empty()) {
    sub = t.subIntfs->match(port, frame.tag->vlan, frame.innerTag ? frame.innerTag->vlan : 0);
  }
  if (sub) {
    result.subIntf = sub->subIntf;
    if (!sub->isL2) {
      const HwL3Intf* routed = t.l3Intfs ? t.l3Intfs->find(sub->subIntf) : nullptr;
      if (!routed) {
        result.drop = fmt::format("sub-interface {} is not routed", name(sub->subIntf));
        return;
      }
      routeIn(sub->subIntf, routed->vrf, frame, result);
      return;
    }
  }
  const Nexo::IntfId from = sub ? sub->subIntf : port;
  if (t.l3Intfs && !sub) {
    if (const HwL3Intf* routed = t.l3Intfs->find(from)) {
      // A routed port's ACL is bound at the physical port, a LAG's at each member.
      routeIn(ingress, routed->vrf, frame, result);
      return;
    }
  }
  if (!t.vlans) {
    result.drop = "no VLAN table";
    return;
  }

  // Classification: the tag's VLAN, or the port's untagged VLAN.
  std::uint16_t vlanNumber = sub ? sub->vlan : frame.tag ? frame.tag->vlan : 0;
  if (vlanNumber == 0) {
    const Bridging::VlanId* untagged = t.vlans->untaggedVlan(from);
    if (!untagged && from != ingress) untagged = t.vlans->untaggedVlan(ingress);
    if (!untagged) {
      result.drop = fmt::format("untagged frame: {} has no untagged VLAN", name(from));
      return;
    }
    vlanNumber = untagged->value();
  }
  Bridging::VlanId vlanId(vlanNumber);
  // The source and destination look-ups and the VLAN's are independent:
  // made together, their cache misses overlap instead of following one
  // another. Learning may change the table, after which the destination is
  // looked up again.
  HwFdbEntry* sourceEntry = t.fdb ? t.fdb->find(Bridging::MacVlanPair{frame.src, vlanId}) : nullptr;
  const HwFdbEntry* destinationEntry =
      (t.fdb && !frame.dst.isMulticast()) ? t.fdb->entry({frame.dst, vlanId}) : nullptr;
  const HwVlan* vlan = t.vlans->vlan(vlanId);
  if (!vlan) {
    result.drop = fmt::format("vlan {} not in hardware", vlanNumber);
    return;
  }
  result.vlan = vlanNumber;

  // Ingress filtering: the LAG or the port must be let in.
  const SoftVlanTable& vlans = *t.vlans;
  // A layer-2 sub-interface is let in by its mapping.
  if (!sub && !HwVlan::takesIn(vlans.role(*vlan, from)) &&
      (from == ingress || !HwVlan::takesIn(vlans.role(*vlan, ingress)))) {
    result.drop = fmt::format("ingress filtering: {} not a member of vlan {}", name(from), vlanNumber);
    return;
  }
  const HwTopology* topology = t.topologies ? t.topologies->topologyOf(vlanId) : nullptr;
  Orb::PortState state = portState(topology, from);
  if (!learns(state)) {
    result.drop = fmt::format("{} blocking in vlan {}", name(from), vlanNumber);
    return;
  }
  if (frame.src.isMulticast()) {
    result.drop = "source MAC multicast";
    return;
  }
  if (t.acl) {
    auto verdict = aclVerdict(ingress, Acl::AclDirection::aclIn, frame, result);
    if (verdict && !verdict->permit) {
      result.drop = fmt::format("acl {} on {} denies", verdict->key.stringValue(), name(ingress));
      return;
    }
  }
  learnSource(frame, ingress, from, sourceEntry, result);
  if (result.learned || result.moved) {
    destinationEntry = frame.dst.isMulticast() ? nullptr : t.fdb->entry({frame.dst, vlanId});
  }
  if (!::SoftChip::forwards(state)) {
    result.drop = fmt::format("{} learning in vlan {}: does not forward", name(from), vlanNumber);
    return;
  }
  // To the router MAC in a VLAN with a routed VLAN interface: routed there.
  if (t.l3Intfs && !t.l3Intfs->entries.empty() && frame.dst == t.l3Intfs->routerMac) {
    const Nexo::IntfId svi(fmt::format("Vlan{}", vlanNumber));
    if (const HwL3Intf* routed = t.l3Intfs->find(svi)) {
      routeIn(svi, routed->vrf, frame, result);
      return;
    }
  }

  // Known unicast: the entry's port, unless that is where it came from.
  if (const HwFdbEntry* entry = destinationEntry) {
    Nexo::IntfId to = logical(entry->intf);
    if (to == from) {
      result.drop = fmt::format("destination on the ingress port {}", name(from));
      return;
    }
    if (!forwards(topology, to)) {
      result.drop = fmt::format("{} not forwarding in vlan {}", name(to), vlanNumber);
      return;
    }
    if (to.isSubIntf()) {
      FrameEgress out;
      if (!subIntfEgress(to, frame, out)) {
        result.drop = fmt::format("sub-interface {} not in hardware", name(to));
        return;
      }
      result.egress.push_back(out);
      return;
    }
    // The LAG, or the member port the entry names, must be in the VLAN.
    std::uint8_t role = vlans.role(*vlan, to);
    if (!HwVlan::member(role) && to != entry->intf) role = vlans.role(*vlan, entry->intf);
    if (!HwVlan::member(role)) {
      result.drop = fmt::format("{} not a member of vlan {}", name(to), vlanNumber);
      return;
    }
    addEgress(role, to, frame, result);
    if (result.egress.empty()) result.drop = fmt::format("{} has no active member", name(to));
    return;
  }
  if (t.stormControl) {
    if (auto level = t.stormControl->discard(ingress, SoftStormControlTable::frameLevel(frame))) {
      result.drop = fmt::format("storm control: {} above its level on {}",
                                Bridging::StormControl::levelTypeName(*level), name(ingress));
      return;
    }
  }
  result.flooded = true;
  flood(*vlan, topology, from, frame, result);
  if (t.subIntfs && !t.subIntfs->empty()) floodSubIntfs(vlanNumber, from, frame, result);
  if (result.egress.empty()) result.drop = fmt::format("no egress: vlan {} floods to no other port", vlanNumber);
}

void SoftForwarding::learnSource(const Frame& frame, const Nexo::IntfId& port, const Nexo::IntfId& intf,
                                 HwFdbEntry* inTable, ForwardResult& result) {
  if (!tables_.fdb || !learning_) return;
  SoftFdbHelper& fdb = tables_.fdb->helper();
  Bridging::MacVlanPair key{frame.src, Bridging::VlanId(result.vlan)};
  const HwFdbEntry* known = inTable;
  if (!known && fdb.learning() == SoftFdbHelper::Learning::software) {
    auto reported = fdb.reportedLearns().find(key);
    if (reported != fdb.reportedLearns().end()) known = &reported->second;
  }
  // A known source on its port is a hit, which keeps it from aging; only a
  // new source or one that moved is learned.
  if (known && known->intf == intf) {
    fdb.touch(key, inTable);
    return;
  }
  bool wasKnown = known != nullptr;
  // Learning is switched per physical port (a LAG's on its members); the
  // entry names the LAG.
  if (!fdb.learningOn(port) || !fdb.learn(key, intf)) return;
  result.learned = !wasKnown;
  result.moved = wasKnown;
}

void SoftForwarding::addEgress(std::uint8_t memberRole, const Nexo::IntfId& intf, const Frame& frame,
                               ForwardResult& result) const {
  FrameEgress out;
  out.tagged = memberRole & HwVlan::roleTagged;
  out.vlan = out.tagged ? result.vlan : 0;
  const HwLag* lag = (intf.isLag() && tables_.lags) ? tables_.lags->lag(intf) : nullptr;
  if (intf.isLag()) {
    if (!lag || lag->members.empty()) return;
    out.lag = intf;
    if (!flowHash_) flowHash_ = frameFlowHash(frame);
    out.port = lag->memberFor(*flowHash_);
  } else {
    out.port = intf;
  }
  result.egress.push_back(out);
}

bool SoftForwarding::aclDenies(const Nexo::IntfId& intf, Acl::AclDirection direction, const Frame& frame,
                               ForwardResult& result) {
  if (!tables_.acl) return false;
  auto verdict = aclVerdict(intf, direction, frame, result);
  if (!verdict || verdict->permit) return false;
  result.drop = fmt::format("acl {} on {} denies", verdict->key.stringValue(), name(intf));
  return true;
}

void SoftForwarding::routeIn(const Nexo::IntfId& l3Intf, std::uint32_t vrf, const Frame& frame, ForwardResult& result) {
  if (aclDenies(l3Intf, Acl::AclDirection::aclIn, frame, result)) return;
  route(vrf, frame, result);
}

bool SoftForwarding::sviEgress(const HwNextHop& nextHop, FrameEgress& out, ForwardResult& result) const {
  const Tables& t = tables_;
  const std::uint16_t vlanNumber = static_cast<std::uint16_t>(nextHop.l2Intf.number());
  const Bridging::VlanId vlanId(vlanNumber);
  const HwVlan* vlan = t.vlans ? t.vlans->vlan(vlanId) : nullptr;
  const HwFdbEntry* entry = t.fdb ? t.fdb->entry({nextHop.mac, vlanId}) : nullptr;
  if (!vlan || !entry) {
    result.drop =
        fmt::format("{}: next hop {} not in the forwarding database", name(nextHop.l2Intf), nextHop.mac.stringValue());
    return false;
  }
  const Nexo::IntfId to = logical(entry->intf);
  const HwTopology* topology = t.topologies ? t.topologies->topologyOf(vlanId) : nullptr;
  if (!forwards(topology, to)) {
    result.drop = fmt::format("{} not forwarding in vlan {}", name(to), vlanNumber);
    return false;
  }
  const bool named = HwVlan::member(t.vlans->role(*vlan, to));
  out.tagged = t.vlans->role(*vlan, named ? to : entry->intf) & HwVlan::roleTagged;
  out.vlan = out.tagged ? vlanNumber : 0;
  out.port = to;
  return true;
}

void SoftForwarding::route(std::uint32_t vrf, const Frame& frame, ForwardResult& result) {
  const Tables& t = tables_;
  if (!frame.ipDst || (frame.etherType != Frame::etherTypeIpv4 && frame.etherType != Frame::etherTypeIpv6)) {
    result.drop = "routed interface: not an IP frame";
    return;
  }
  if (frame.dst != t.l3Intfs->routerMac) {
    result.drop = fmt::format("routed interface: {} is not the router MAC", frame.dst.stringValue());
    return;
  }
  result.vrf = vrf;
  if (frame.ttl <= 1) {
    result.drop = fmt::format("TTL {} expired", frame.ttl);
    return;
  }
  const HwRoute* hwRoute = t.routes ? t.routes->lookup(vrf, *frame.ipDst) : nullptr;
  if (!hwRoute) {
    result.drop = fmt::format("no route to {} in vrf {}", frame.ipDst->stringValue(), vrf);
    return;
  }
  result.fec = hwRoute->fec;
  const HwFec* fec = t.fecs ? t.fecs->find(SoftFecKey{hwRoute->fec}) : nullptr;
  if (!fec) {
    result.drop = fmt::format("fec {} not in hardware", hwRoute->fec);
    return;
  }
  const HwAdj* adj = t.adjacencies ? t.adjacencies->find(fec->adj) : nullptr;
  if (!adj || adj->nextHops.empty()) {
    result.drop =
        fmt::format("fec {}: adjacency {} has no next hops in hardware", hwRoute->fec, fec->adj.stringValue());
    return;
  }
  if (!flowHash_) flowHash_ = frameFlowHash(frame);
  HwNextHop nextHop;
  if (fec->slotCount) {
    if (fec->slots.empty()) {
      result.drop = fmt::format("fec {}: no slots laid", hwRoute->fec);
      return;
    }
    std::size_t slot = resilientSlotFor(*flowHash_, fec->slots.size());
    result.slot = static_cast<std::uint32_t>(slot);
    nextHop = fec->slots[slot];
  } else {
    // By weight: a next hop of weight w takes w shares of the hash space.
    std::uint64_t total = 0;
    for (const auto& nh : adj->nextHops) total += std::max<std::uint32_t>(nh.weight, 1);
    std::uint64_t pick = resilientSlotFor(*flowHash_, total);
    for (const auto& nh : adj->nextHops) {
      std::uint64_t share = std::max<std::uint32_t>(nh.weight, 1);
      if (pick < share) {
        nextHop = nh;
        break;
      }
      pick -= share;
    }
  }
  if (!nextHop.resolved) {
    result.drop = fmt::format("fec {}: next hop on {} unresolved", hwRoute->fec, nextHop.l3Intf.stringValue());
    return;
  }
  FrameEgress out;
  out.port = nextHop.l2Intf;
  if (nextHop.l2Intf.isVlan()) {
    if (!sviEgress(nextHop, out, result)) return;
  }
  if (out.port.isSubIntf()) {
    if (!t.subIntfs || !subIntfEgress(nextHop.l2Intf, frame, out)) {
      result.drop = fmt::format("sub-interface {} not in hardware", nextHop.l2Intf.stringValue());
      return;
    }
  } else if (out.port.isLag()) {
    const HwLag* lag = t.lags ? t.lags->lag(out.port) : nullptr;
    if (!lag || lag->members.empty()) {
      result.drop = fmt::format("{} has no active member", out.port.stringValue());
      return;
    }
    out.lag = out.port;
    out.port = lag->memberFor(*flowHash_);
  }
  if (nextHop.l3Intf.isVlan() && aclDenies(nextHop.l3Intf, Acl::AclDirection::aclOut, frame, result)) return;
  out.srcMac = t.l3Intfs->routerMac;
  out.dstMac = nextHop.mac;
  out.ttl = static_cast<std::uint8_t>(frame.ttl - 1);
  result.routed = true;
  result.egress.push_back(out);
}

void SoftForwarding::flood(const HwVlan& vlan, const HwTopology* topology, const Nexo::IntfId& from, const Frame& frame,
                           ForwardResult& result) const {
  // The flood set is the VLAN's egress members; a LAG named by its members
  // still gets one copy.
  Nexo::IntfId lastLag;
  auto floodTo = [&](const Nexo::IntfId& member, std::uint8_t role) {
    if (!(role & HwVlan::roleEgress) || !HwVlan::member(role)) return;
    Nexo::IntfId to = logical(member);
    if (to == from || !forwards(topology, to)) return;
    if (to.isLag()) {
      if (to == lastLag) return;
      for (const auto& out : result.egress) {
        if (out.lag == to) return;
      }
      lastLag = to;
    }
    addEgress(role, to, frame, result);
  };
  for (const auto& [member, role] : vlan.roles) floodTo(member, role);
  std::sort(result.egress.begin(), result.egress.end(),
            [](const FrameEgress& a, const FrameEgress& b) { return a.port < b.port; });
}

}  // namespace SoftChip

namespace SoftChip {

bool SoftForwarding::subIntfEgress(const Nexo::IntfId& subIntf, const Frame& frame, FrameEgress& out) const {
  const SoftSubIntfKey* key = tables_.subIntfs ? tables_.subIntfs->keyOf(subIntf) : nullptr;
  if (!key) return false;
  out.subIntf = subIntf;
  out.tagged = true;
  out.vlan = key->outerTag;
  out.innerVlan = key->innerTag;
  out.port = key->parent;
  if (key->parent.isLag()) {
    const HwLag* lag = tables_.lags ? tables_.lags->lag(key->parent) : nullptr;
    if (!lag || lag->members.empty()) return false;
    if (!flowHash_) flowHash_ = frameFlowHash(frame);
    out.lag = key->parent;
    out.port = lag->memberFor(*flowHash_);
  }
  return true;
}

void SoftForwarding::floodSubIntfs(std::uint16_t vlan, const Nexo::IntfId& from, const Frame& frame,
                                   ForwardResult& result) const {
  for (const auto& [key, entry] : tables_.subIntfs->entries) {
    if (!entry.isL2 || entry.vlan != vlan || entry.subIntf == from) continue;
    FrameEgress out;
    if (subIntfEgress(entry.subIntf, frame, out)) result.egress.push_back(out);
  }
  std::stable_sort(result.egress.begin(), result.egress.end(),
                   [](const FrameEgress& a, const FrameEgress& b) { return a.port < b.port; });
}

}  // namespace SoftChip
