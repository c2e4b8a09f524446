#include "chip/softchip/SoftMirror.h"

#include "Orb/OrbAclRuleOf.h"
#include "chip/softchip/SoftForwarding.h"
#include "chip/softchip/SoftLag.h"

#include <fmt/format.h>

#include <algorithm>

namespace SoftChip {

// --- source ACLs ---

std::size_t HwMirrorAcl::entries() const {
  std::size_t total = 0;
  for (const auto& rule : rules) total += rule.entries.size();
  return total;
}

bool HwMirrorAcl::permits(const Frame& frame) const {
  const Acl::AclType kind = !frame.ipSrc ? Acl::mac() : frame.ipSrc->isV6() ? Acl::ipv6() : Acl::ip();
  if (type != Acl::mac() && kind != type) return false;
  for (const auto& compiled : rules) {
    for (const auto& entry : compiled.entries) {
      if (aclEntryMatches(compiled.rule, entry, frame)) return compiled.rule.action == Acl::AclAction::permit;
    }
  }
  return false;
}

namespace {

// A filter row as the chip holds it: the rule the ACL machine would build
// for it, with one entry per pair of port blocks (one for a fragment rule).
template <class RuleConfig>
HwMirrorAclRule filterRule(std::uint32_t seq, const RuleConfig& config) {
  HwMirrorAclRule compiled{Orb::aclRuleOf(seq, config), {}};
  const auto& filter = config.filter;
  if (filter.established) compiled.rule.tcpFlagsAny = Orb::tcpFlagAck | Orb::tcpFlagRst;
  compiled.rule.fragment = filter.fragments;
  if (filter.fragments) {
    compiled.entries.push_back({});
    return compiled;
  }
  for (const auto& source : Orb::portMasks(filter.sourcePort)) {
    for (const auto& destination : Orb::portMasks(filter.destinationPort)) {
      compiled.entries.push_back({0, source, destination, 0});
    }
  }
  return compiled;
}

}  // namespace

HwMirrorAcl compileMirrorAcl(const Acl::AclConfig& config) {
  HwMirrorAcl acl;
  acl.name = config.aclName();
  acl.type = config.type();
  switch (config.type()) {
    case Acl::AclType::aclTypeIp:
      for (const auto& [seq, rule] : config.ipRuleBySequence()) acl.rules.push_back(filterRule(seq, rule));
      break;
    case Acl::AclType::aclTypeIpv6:
      for (const auto& [seq, rule] : config.ip6RuleBySequence()) acl.rules.push_back(filterRule(seq, rule));
      break;
    case Acl::AclType::aclTypeMac:
      for (const auto& [seq, rule] : config.macRuleBySequence())
        acl.rules.push_back({Orb::aclRuleOf(seq, rule), {HwAclEntry{}}});
      break;
  }
  return acl;
}

// --- the table ---

std::uint32_t SoftMirrorTable::usedSlots(bool rx) const {
  std::uint32_t used = 0;
  for (const auto& [group, session] : entries) {
    for (const auto& [port, source] : session.sources) {
      used += rx ? Mirroring::mirrorsRx(source.direction) : Mirroring::mirrorsTx(source.direction);
    }
  }
  return used;
}

std::size_t SoftMirrorTable::aclEntriesInUse() const {
  std::size_t used = 0;
  for (const auto& [group, session] : entries) {
    for (const auto& [port, source] : session.sources) used += source.acl ? source.acl->entries() : 0;
  }
  return used;
}

void SoftMirrorTable::dumpEntry(JsonWriter& w, const HwMirrorSession& session) const {
  w.StartObject();
  w.Key("name");
  w.String(session.name.c_str());
  w.Key("destination");
  w.String(session.destIntf.stringValue().c_str());
  if (session.gre) {
    w.Key("tunnelId");
    w.Uint(session.tunnelId);
  }
  w.Key("sources");
  w.StartObject();
  for (const auto& [port, source] : session.sources) {
    w.Key(port.stringValue().c_str());
    std::string text = Mirroring::directionName(source.direction);
    if (source.acl) text += " acl " + source.acl->name;
    w.String(text.c_str());
  }
  w.EndObject();
  dumpIntfs(w, "targets", session.targets);
  w.Key("truncationSize");
  w.Uint(session.truncationSize);
  w.Key("headerRemovalSize");
  w.Uint(session.headerRemovalSize);
  w.Key("rxSampleRate");
  w.Uint(session.rxSampleRate);
  w.Key("rateLimit");
  w.Uint64(session.rateLimit);
  w.Key("grePayload");
  w.String(Mirroring::grePayloadTypeName(session.grePayloadType));
  w.EndObject();
}

// --- the packet model ---

namespace {

// Where one session's copy goes: per destination port, or per LAG one of
// its ports there.
void copyToDestinations(const HwMirrorSession& session, const SoftLagTable* lags, const Frame& frame, MirrorCopy copy,
                        ForwardResult& result) {
  const std::uint64_t hash = frameFlowHash(frame);
  auto pick = [&](const Nexo::IntfId& lag, const std::set<Nexo::IntfId>& ports) {
    if (ports.empty()) return;
    HwLag members;
    members.members = ports;
    copy.port = members.memberFor(hash);
    copy.lag = lag;
    result.mirrors.push_back(copy);
  };
  if (session.gre) {
    copy.tunnelId = session.tunnelId;
    copy.innerPacket = session.grePayloadType == Mirroring::GrePayloadType::grePayloadInnerPacket;
    if (session.nextHops.empty()) return;
    const Nexo::IntfId& l2 = session.nextHops.front().l2Intf;
    if (l2.isLag()) {
      auto it = session.greLagMembers.find(l2);
      if (it != session.greLagMembers.end()) pick(l2, it->second);
      return;
    }
    copy.port = l2;
    result.mirrors.push_back(copy);
    return;
  }
  std::map<Nexo::IntfId, std::set<Nexo::IntfId>> byLag;
  for (const auto& port : session.targets) {
    const Nexo::IntfId* lag = lags ? lags->lagOf(port) : nullptr;
    if (lag) {
      byLag[*lag].insert(port);
      continue;
    }
    copy.port = port;
    copy.lag = {};
    result.mirrors.push_back(copy);
  }
  for (const auto& [lag, ports] : byLag) pick(lag, ports);
}

}  // namespace

void mirrorFrame(const SoftMirrorTable& mirrors, const SoftLagTable* lags, const Nexo::IntfId& ingress,
                 const Frame& frame, ForwardResult& result) {
  for (const auto& [group, session] : mirrors.entries) {
    auto rx = session.sources.find(ingress);
    if (rx != session.sources.end() && Mirroring::mirrorsRx(rx->second.direction) &&
        (!rx->second.acl || rx->second.acl->permits(frame))) {
      MirrorCopy copy;
      copy.session = session.name;
      copy.source = ingress;
      copy.ingress = true;
      copy.tagged = frame.tag.has_value();
      copy.vlan = frame.tag ? frame.tag->vlan : 0;
      copyToDestinations(session, lags, frame, copy, result);
    }
    for (const auto& out : result.egress) {
      auto tx = session.sources.find(out.port);
      if (tx == session.sources.end() || !Mirroring::mirrorsTx(tx->second.direction)) continue;
      if (tx->second.acl && !tx->second.acl->permits(frame)) continue;
      MirrorCopy copy;
      copy.session = session.name;
      copy.source = out.port;
      copy.ingress = false;
      copy.tagged = out.tagged;
      copy.vlan = out.vlan;
      copyToDestinations(session, lags, frame, copy, result);
    }
  }
}

// --- the helper ---

SoftMirrorHelper::SoftMirrorHelper(const Vex::Ptr<SoftChip>& chip) : chip_(chip), table_(*chip) {}

SoftMirrorHelper::~SoftMirrorHelper() = default;

const HwMirrorSession* SoftMirrorHelper::session(const std::string& name) const {
  for (const auto& [group, session] : table_.entries) {
    if (session.name == name) return &session;
  }
  return nullptr;
}

HwMirrorSession* SoftMirrorHelper::admitted(Group group) {
  if (table_.nextFault() != Fault::none) return nullptr;
  return table_.find({group});
}

bool SoftMirrorHelper::setMirrorTruncation(const std::string&, std::uint32_t, Group group, bool enabled,
                                           std::uint32_t size) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->truncationSize = enabled ? size : 0;
  return true;
}

bool SoftMirrorHelper::setMirrorHeaderRemoval(const std::string&, std::uint32_t, Group group, std::uint32_t size) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->headerRemovalSize = size;
  return true;
}

bool SoftMirrorHelper::setRxSampleRate(const std::string& name, std::uint32_t, std::uint32_t rate) {
  // Sampling is set by session name: the group is found through it.
  if (table_.nextFault() != Fault::none) return false;
  auto* held = const_cast<HwMirrorSession*>(session(name));
  if (!held) return false;
  held->rxSampleRate = rate;
  return true;
}

bool SoftMirrorHelper::setRateLimit(const std::string&, Group group, const std::string&, std::uint64_t rate) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->rateLimit = rate;
  return true;
}

bool SoftMirrorHelper::setGrePayloadType(const Mirroring::Session& config, Group group) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->grePayloadType = config.grePayloadType();
  return true;
}

std::vector<Orb::HwMirrorSession> SoftMirrorHelper::hwSessions() {
  std::vector<Orb::HwMirrorSession> held;
  for (const auto& [group, session] : table_.entries) {
    Orb::HwMirrorSession one;
    one.name = session.name;
    one.group = group.value;
    one.destIntf = session.destIntf;
    one.isGre = session.gre;
    for (const auto& [port, source] : session.sources) one.sources[port] = source.direction;
    one.targets.assign(session.targets.begin(), session.targets.end());
    held.push_back(std::move(one));
  }
  return held;
}

HwMirrorSession* SoftMirrorHelper::created(Group group, const std::string& name, std::uint32_t id,
                                           const IntfId& destIntf) {
  const bool exists = table_.find({group}) != nullptr;
  if (table_.admit(!exists) != Fault::none) return nullptr;
  HwMirrorSession& session = table_.entries[{group}];
  session.name = name;
  session.id = id;
  session.destIntf = destIntf;
  // A session made anew has every attribute off.
  session.truncationSize = session.headerRemovalSize = session.rxSampleRate = 0;
  session.rateLimit = 0;
  session.grePayloadType = Mirroring::GrePayloadType::grePayloadFullPacket;
  return &session;
}

bool SoftMirrorHelper::removed(Group group) {
  if (table_.nextFault() != Fault::none) return false;
  return table_.entries.erase({group}) != 0;
}

bool SoftMirrorHelper::createMirror(const std::string& name, std::uint32_t id, Group group, const IntfId& destIntf,
                                    bool) {
  HwMirrorSession* session = created(group, name, id, destIntf);
  if (!session) return false;
  session->gre = false;
  session->tunnelId = 0;
  session->nextHops.clear();
  session->greLagMembers.clear();
  return true;
}

bool SoftMirrorHelper::removeMirror(const std::string&, std::uint32_t, Group group, const std::vector<IntfId>&) {
  return removed(group);
}

bool SoftMirrorHelper::createGreTunnelMirror(const std::string& name, std::uint32_t id, Group group,
                                             const IntfId& destIntf, std::uint32_t tunnelId,
                                             const std::vector<Mirroring::GreNextHop>& nextHops) {
  HwMirrorSession* session = created(group, name, id, destIntf);
  if (!session) return false;
  session->gre = true;
  session->tunnelId = tunnelId;
  session->nextHops = nextHops;
  session->targets.clear();
  return true;
}

bool SoftMirrorHelper::updateGreTunnelMirror(const std::string&, std::uint32_t, Group group, const IntfId& destIntf,
                                             std::uint32_t tunnelId,
                                             const std::vector<Mirroring::GreNextHop>& nextHops) {
  HwMirrorSession* session = admitted(group);
  if (!session || !session->gre) return false;
  session->destIntf = destIntf;
  session->tunnelId = tunnelId;
  session->nextHops = nextHops;
  return true;
}

bool SoftMirrorHelper::removeGreTunnelMirror(const std::string&, std::uint32_t, Group group, const IntfId&) {
  return removed(group);
}

bool SoftMirrorHelper::addSourceToHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                                           Direction direction) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  const auto held = session->sources.find(intf);
  const bool heldRx = held != session->sources.end() && Mirroring::mirrorsRx(held->second.direction);
  const bool heldTx = held != session->sources.end() && Mirroring::mirrorsTx(held->second.direction);
  if (Mirroring::mirrorsRx(direction) && !heldRx && table_.usedSlots(true) >= table_.rxSlots()) return false;
  if (Mirroring::mirrorsTx(direction) && !heldTx && table_.usedSlots(false) >= table_.txSlots()) return false;
  session->sources[intf].direction = direction;
  return true;
}

bool SoftMirrorHelper::removeSourceFromHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                                                Direction, bool) {
  HwMirrorSession* session = table_.find({group});
  return session && session->sources.erase(intf) != 0;
}

bool SoftMirrorHelper::addTargetToHardware(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                                           bool add) {
  if (!add) {
    HwMirrorSession* session = table_.find({group});
    return session && session->targets.erase(intf) != 0;
  }
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->targets.insert(intf);
  return true;
}

bool SoftMirrorHelper::addHwSrcAcl(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                                   const std::string&, const Vex::Ptr<const Acl::AclConfig>& aclConfig, std::uint32_t) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  auto source = session->sources.find(intf);
  if (source == session->sources.end()) return false;
  if (!aclConfig) {
    source->second.acl.reset();
    return true;
  }
  HwMirrorAcl acl = compileMirrorAcl(*aclConfig);
  const std::size_t held = source->second.acl ? source->second.acl->entries() : 0;
  if (table_.aclEntriesInUse() - held + acl.entries() > table_.aclEntries()) return false;
  source->second.acl = std::move(acl);
  return true;
}

bool SoftMirrorHelper::addIntfToLagGreNextHop(const std::string&, std::uint32_t, Group group, const IntfId& intf,
                                              const IntfId&, const IntfId& l2Intf) {
  HwMirrorSession* session = admitted(group);
  if (!session) return false;
  session->greLagMembers[l2Intf].insert(intf);
  return true;
}

bool SoftMirrorHelper::handleLagMemberDeletion(const IntfId& intf, const IntfId& lag, const std::string&, std::uint32_t,
                                               Group group, Direction) {
  HwMirrorSession* session = table_.find({group});
  if (!session) return false;
  session->sources.erase(intf);
  if (auto it = session->greLagMembers.find(lag); it != session->greLagMembers.end()) {
    it->second.erase(intf);
    if (it->second.empty()) session->greLagMembers.erase(it);
  }
  return true;
}

std::uint32_t SoftMirrorHelper::freeMirrorSources(const Mirroring::Config&, const std::string&, Direction direction) {
  const std::uint32_t usedRx = table_.usedSlots(true);
  const std::uint32_t usedTx = table_.usedSlots(false);
  const std::uint32_t freeRx = table_.rxSlots() > usedRx ? table_.rxSlots() - usedRx : 0;
  const std::uint32_t freeTx = table_.txSlots() > usedTx ? table_.txSlots() - usedTx : 0;
  switch (direction) {
    case Direction::directionRx:
      return freeRx;
    case Direction::directionTx:
      return freeTx;
    case Direction::directionBoth:
      return std::min(freeRx, freeTx);
  }
  return 0;
}

std::uint32_t SoftMirrorHelper::maxBiDirSources() { return std::min(table_.rxSlots(), table_.txSlots()); }

std::uint32_t SoftMirrorHelper::maxUniDirSources() { return std::max(table_.rxSlots(), table_.txSlots()); }

std::string SoftMirrorHelper::verifySinglePort(const std::string& name, Group group, const IntfId& port,
                                               Direction direction) {
  const HwMirrorSession* session = table_.find({group});
  if (!session || session->name != name) return fmt::format("session {} not in hardware group {}", name, group);
  auto source = session->sources.find(port);
  if (source == session->sources.end()) return fmt::format("source {} not in hardware", port.stringValue());
  if (source->second.direction != direction) {
    return fmt::format("source {} is {} in hardware, {} in software", port.stringValue(),
                       Mirroring::directionName(source->second.direction), Mirroring::directionName(direction));
  }
  return "";
}

std::string SoftMirrorHelper::verifyGreTunnelMirror(const std::string& name, Group group, std::uint32_t tunnelId) {
  const HwMirrorSession* session = table_.find({group});
  if (!session || session->name != name || !session->gre || session->tunnelId != tunnelId) {
    return fmt::format("GRE session {} with tunnel {} not in hardware group {}", name, tunnelId, group);
  }
  return "";
}

std::string SoftMirrorHelper::verifyDestPort(const std::string& name, Group group, const IntfId& port) {
  const HwMirrorSession* session = table_.find({group});
  if (!session || session->name != name) return fmt::format("session {} not in hardware group {}", name, group);
  if (!session->targets.count(port)) return fmt::format("destination {} not in hardware", port.stringValue());
  return "";
}

std::string SoftMirrorHelper::verifySrcAcl(const std::string& name, Group group, const IntfId& port,
                                           const std::string& aclName) {
  const HwMirrorSession* session = table_.find({group});
  if (!session || session->name != name) return fmt::format("session {} not in hardware group {}", name, group);
  auto source = session->sources.find(port);
  if (source == session->sources.end() || !source->second.acl || source->second.acl->name != aclName) {
    return fmt::format("source {} not filtered by {} in hardware", port.stringValue(), aclName);
  }
  return "";
}

std::string SoftMirrorHelper::verifyMirrorDeviceForSession(const std::string& name, Group group) {
  const HwMirrorSession* session = table_.find({group});
  if (!session || session->name != name) return fmt::format("session {} not in hardware group {}", name, group);
  return "";
}

std::string SoftMirrorHelper::showHwSrcAcls() {
  std::string text;
  for (const auto& [group, session] : table_.entries) {
    for (const auto& [port, source] : session.sources) {
      if (!source.acl) continue;
      text += fmt::format("{} {} {} {} entries\n", session.name, port.stringValue(), source.acl->name,
                          source.acl->entries());
    }
  }
  return text;
}

}  // namespace SoftChip
