#include "chip/softchip/SoftAcl.h"

#include "Orb/OrbL4.h"

#include <algorithm>

namespace SoftChip {

namespace {

constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;

std::uint8_t frameProtocol(const Frame& frame) {
  switch (frame.l4) {
    case L4Protocol::tcp:
      return protocolTcp;
    case L4Protocol::udp:
      return protocolUdp;
    case L4Protocol::none:
      break;
  }
  return 0;
}

bool prefix6Contains(const Nexo::Ip6Prefix& prefix, const Nexo::Ip6Addr& addr) {
  unsigned bits = prefix.len();
  const auto& want = prefix.addr().bytes();
  const auto& have = addr.bytes();
  for (unsigned i = 0; i < 16 && bits > 0; ++i) {
    const unsigned take = bits >= 8 ? 8 : bits;
    const auto mask = static_cast<std::uint8_t>(0xff << (8 - take));
    if ((want[i] & mask) != (have[i] & mask)) return false;
    bits -= take;
  }
  return true;
}

bool macMatches(const Nexo::EthAddr& want, const Nexo::EthAddr& mask, const Nexo::EthAddr& have) {
  return (want.value() & mask.value()) == (have.value() & mask.value());
}

// A port range that takes a checker: one that is more than one block.
bool needsChecker(const Acl::PortMatch& match) {
  return match.op == Acl::PortOp::range && Orb::numL4PortMasks(match.low, match.high) > 1;
}

}  // namespace

bool aclEntryMatches(const Orb::AclRule& match, const HwAclEntry& entry, const Frame& frame) {
  using Kind = Orb::AclSubruleKind;
  if (match.kind == Kind::final) return true;
  if (match.kind == Kind::mac) {
    const auto& mac = match.mac;
    if (!macMatches(mac.source, mac.sourceMask, frame.src)) return false;
    if (!macMatches(mac.destination, mac.destinationMask, frame.dst)) return false;
    return mac.etherType == 0 || mac.etherType == frame.etherType;
  }
  if (!frame.ipSrc || !frame.ipDst) return false;
  // The caller picks the instance by the frame's family.
  if (frame.ipSrc->isV6()) {
    if (!prefix6Contains(match.source6, frame.ipSrc->v6Addr())) return false;
    if (!prefix6Contains(match.destination6, frame.ipDst->v6Addr())) return false;
  } else {
    if (!match.source.contains(frame.ipSrc->v4Addr())) return false;
    if (!match.destination.contains(frame.ipDst->v4Addr())) return false;
  }
  if (match.protocol != 0 && match.protocol != frameProtocol(frame)) return false;
  if (match.fragment) return frame.fragment;
  // A non-first fragment has no L4 header: only a rule that asks nothing
  // of it matches.
  const bool asksL4 = entry.sourcePort.mask != 0 || entry.destinationPort.mask != 0 || match.tcpFlagsAny != 0;
  if (frame.fragment) return !asksL4;
  if (!asksL4) return true;
  if (frame.l4 == L4Protocol::none) return false;
  if (!entry.sourcePort.matches(frame.srcPort) || !entry.destinationPort.matches(frame.dstPort)) return false;
  return match.tcpFlagsAny == 0 || (frame.l4 == L4Protocol::tcp && (frame.tcpFlags & match.tcpFlagsAny) != 0);
}

SoftAclTable::SoftAclTable(SoftChip& chip) : SoftTableOf(chip, tableName) { capacityIs(defaultEntries); }

std::size_t SoftAclTable::size() const {
  std::size_t used = 0;
  for (const auto& [key, acl] : entries) used += acl.entries.size();
  return used;
}

std::size_t SoftAclTable::rangesInUse(const Orb::AclKey* replacing, const std::vector<Orb::AclRule>* extra) const {
  std::vector<std::pair<std::uint16_t, std::uint16_t>> ranges;
  auto collect = [&](const Orb::AclRule& rule) {
    for (const auto* match : {&rule.sourceRange, &rule.destinationRange}) {
      if (needsChecker(*match)) ranges.push_back({match->low, match->high});
    }
  };
  for (const auto& [key, acl] : entries) {
    if (replacing && key == *replacing) continue;
    for (const auto& rule : acl.rules) collect(rule);
  }
  if (extra) {
    for (const auto& rule : *extra) collect(rule);
  }
  std::sort(ranges.begin(), ranges.end());
  return static_cast<std::size_t>(std::unique(ranges.begin(), ranges.end()) - ranges.begin());
}

const Orb::AclKey* SoftAclTable::boundAt(const Nexo::IntfId& intf, Acl::AclDirection direction,
                                         Acl::AclType type) const {
  auto it = bindings_.find({intf, direction, type});
  return it == bindings_.end() ? nullptr : &it->second;
}

void SoftAclTable::bindingIs(const Nexo::IntfId& intf, Acl::AclDirection direction, Acl::AclType type,
                             const Orb::AclKey* key) {
  if (key) {
    bindings_[{intf, direction, type}] = *key;
  } else {
    bindings_.erase({intf, direction, type});
  }
}

std::optional<AclVerdict> SoftAclTable::classify(const Orb::AclKey& key, const Frame& frame) {
  HwAcl* acl = find(key);
  if (!acl) return std::nullopt;
  for (auto& entry : acl->entries) {
    const Orb::AclRule& rule = acl->rules[entry.rule];
    if (!aclEntryMatches(rule, entry, frame)) continue;
    ++entry.hits;
    return AclVerdict{key, rule.seq, rule.uniqueId, rule.action == Acl::AclAction::permit};
  }
  return std::nullopt;
}

void SoftAclTable::dumpEntry(JsonWriter& writer, const HwAcl& acl) const {
  writer.StartObject();
  writer.Key("aclNumber");
  writer.Uint(acl.aclNumber);
  writer.Key("bound");
  writer.StartArray();
  for (const auto& pair : acl.bound) writer.String(pair.stringValue().c_str());
  writer.EndArray();
  writer.Key("entries");
  writer.StartArray();
  for (const auto& entry : acl.entries) {
    writer.StartObject();
    const Orb::AclRule& rule = acl.rules[entry.rule];
    writer.Key("seq");
    writer.Uint(rule.seq);
    writer.Key("action");
    writer.String(rule.action == Acl::AclAction::permit ? "permit" : "deny");
    writer.Key("hits");
    writer.Uint64(entry.hits);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
}

SoftAclHelper::SoftAclHelper(const Vex::Ptr<SoftChip>& chip) : AclHelper("SoftAclHelper"), chip_(chip), table_(*chip) {}

SoftAclHelper::~SoftAclHelper() = default;

void HwAcl::indexRules() {
  entriesByRuleId.clear();
  for (std::uint32_t i = 0; i < entries.size(); ++i) entriesByRuleId[rules[entries[i].rule].uniqueId].push_back(i);
}

std::uint64_t HwAcl::hits(std::uint32_t uniqueId) const {
  auto it = entriesByRuleId.find(uniqueId);
  if (it == entriesByRuleId.end()) return 0;
  std::uint64_t total = 0;
  for (auto index : it->second) total += entries[index].hits;
  return total;
}

std::uint64_t SoftAclHelper::ruleHits(const Orb::AclKey& key, std::uint32_t uniqueId) const {
  const HwAcl* acl = table_.find(key);
  return acl ? acl->hits(uniqueId) : 0;
}

HwAclRules& SoftAclHelper::staged(const AclData& data) {
  if (stagedFor_ != &data) {
    staging_ = &staged_[data.key()];
    stagedFor_ = &data;
  }
  return *staging_;
}

void SoftAclHelper::stage(const AclData& data, const AclRule& rule, const AclSubrule& subrule) {
  HwAclRules& build = staged(data);
  // Subrules of one rule come together: the rule is copied once.
  if (build.entries.empty() || lastRule_ != subrule.rule) {
    build.rules.push_back(rule);
    lastRule_ = subrule.rule;
  }
  build.entries.push_back(
      {static_cast<std::uint32_t>(build.rules.size() - 1), subrule.sourcePort, subrule.destinationPort, 0});
}

void SoftAclHelper::precreateAcl(AclData& data, AclDataStatus&) {
  stagedFor_ = nullptr;
  staged(data).clear();
}

bool SoftAclHelper::createIpAclSubrule(Acl::AclType, const AclRule& rule, const AclSubrule& subrule, std::uint32_t,
                                       AclData& data) {
  stage(data, rule, subrule);
  return true;
}

bool SoftAclHelper::createIpFragRule(AclData& data, const AclRule& rule, const AclSubrule& subrule, std::uint32_t) {
  stage(data, rule, subrule);
  return true;
}

bool SoftAclHelper::createMacAclRule(const AclRule& rule, const AclSubrule& subrule, std::uint32_t, AclData& data) {
  if (rule.mac.matchMplsLabel || rule.mac.matchMplsInnerLabel) return false;
  stage(data, rule, subrule);
  return true;
}

bool SoftAclHelper::createFinalAclRule(Acl::AclType, AclData& data, const AclRule& rule, const AclSubrule& subrule) {
  stage(data, rule, subrule);
  return true;
}

void SoftAclHelper::acknowledge() {
  if (deferred_) table_.ackIs([this] { opsCompleted(); });
}

Orb::AclHwResult SoftAclHelper::commitAcl(AclData& data) {
  const std::string unit = SoftAclTable::unitName;
  HwAclRules& build = staged(data);
  stagedFor_ = nullptr;
  acknowledge();
  if (!plannedStatus_.empty()) {
    const std::uint32_t status = plannedStatus_.front();
    plannedStatus_.pop_front();
    if (status != Orb::AclHwStatus::succeeded) return {status, unit};
  }
  switch (table_.nextFault()) {
    case Fault::none:
      break;
    case Fault::busy:
      return {Orb::AclHwStatus::insufficientResources, unit};
    case Fault::full:
      return {Orb::AclHwStatus::outOfTcam, unit};
    case Fault::failed:
      return {Orb::AclHwStatus::unsupportedFeature, unit};
  }
  const HwAcl* existing = table_.find(data.key());
  const std::size_t others = table_.size() - (existing ? existing->entries.size() : 0);
  if (others + build.entries.size() > table_.capacity()) return {Orb::AclHwStatus::outOfTcam, unit};
  if (table_.rangesInUse(&data.key(), &build.rules) > table_.rangeCheckers()) {
    return {Orb::AclHwStatus::tooManyL4PortRanges, ""};
  }
  HwAcl& acl = table_.entries[data.key()];
  // Counters stay with their rule across a rebuild.
  std::map<std::uint32_t, std::uint64_t> kept;
  for (const auto& entry : acl.entries) {
    if (entry.hits) kept[acl.rules[entry.rule].uniqueId] += entry.hits;
  }
  for (auto& entry : build.entries) {
    if (kept.empty()) break;
    auto it = kept.find(build.rules[entry.rule].uniqueId);
    if (it == kept.end()) continue;
    entry.hits = it->second;
    kept.erase(it);
  }
  // The new version goes in; the old one's storage serves the next build.
  acl.rules.swap(build.rules);
  acl.entries.swap(build.entries);
  acl.indexRules();
  build.clear();
  acl.aclNumber = data.aclNumber;
  return {Orb::AclHwStatus::succeeded, unit};
}

void SoftAclHelper::removeAcl(AclData& data) {
  acknowledge();
  if (HwAcl* acl = table_.find(data.key())) {
    for (const auto& pair : acl->bound) {
      if (aclOwner(pair.intfId, data.key()))
        table_.bindingIs(pair.intfId, data.key().direction, data.key().type, nullptr);
    }
  }
  table_.entries.erase(data.key());
  staged_.erase(data.key());
  stagedFor_ = nullptr;
}

bool SoftAclHelper::addIntfToAcl(const IntfPairKey& pair, AclData& data, AclDataStatus&) {
  HwAcl* acl = table_.find(data.key());
  if (!acl) return false;
  acl->bound.insert(pair);
  table_.bindingIs(pair.intfId, data.key().direction, data.key().type, &data.key());
  return true;
}

bool SoftAclHelper::aclOwner(const Nexo::IntfId& intf, const Orb::AclKey& key) {
  const Orb::AclKey* bound = table_.boundAt(intf, key.direction, key.type);
  return !bound || *bound == key;
}

void SoftAclHelper::removeIntfFromAcl(const IntfPairKey& pair, AclData& data, bool belongsToAnother) {
  if (HwAcl* acl = table_.find(data.key())) acl->bound.erase(pair);
  // The slot is only freed by the instance holding it.
  if (!belongsToAnother && aclOwner(pair.intfId, data.key()))
    table_.bindingIs(pair.intfId, data.key().direction, data.key().type, nullptr);
}

std::uint64_t SoftAclHelper::aclRuleCountersSinceLastPoll(const AclData& data, const std::string& chip,
                                                          std::uint32_t uniqueId) {
  if (chip != SoftAclTable::unitName) return 0;
  HwAcl* acl = table_.find(data.key());
  if (!acl) return 0;
  const std::uint64_t total = acl->hits(uniqueId);
  std::uint64_t& polled = acl->polled[uniqueId];
  const std::uint64_t delta = total >= polled ? total - polled : total;
  polled = total;
  return delta;
}

}  // namespace SoftChip
