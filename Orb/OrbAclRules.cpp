// Building an instance's subrules from its list's rules: the rules in
// sequence order, each rule's port blocks crossed (source outer,
// destination inner), TCP flags for established connections, fragment
// rules, and the implicit final rule.
#include "Orb/OrbAclConfigSm.h"
#include "Orb/OrbAclRuleOf.h"
#include "Orb/OrbAclSm.h"
#include "Orb/OrbAssert.h"

#include <fmt/format.h>

namespace Orb {

namespace {

constexpr std::uint8_t protocolTcp = 6;

}  // namespace

AclPortMaskVector portMasks(const Acl::PortMatch& match) {
  AclPortMaskVector masks;
  const bool isRange = match.op != Acl::PortOp::any;
  const std::uint16_t high = match.op == Acl::PortOp::eq ? match.low : match.high;
  createL4PortMasks(match.low, high, isRange, masks);
  return masks;
}

namespace {

// What every configured row gives its rule.
template <class RuleConfig>
AclRule ruleHead(AclSubruleKind kind, std::uint32_t seq, const RuleConfig& rule) {
  AclRule head;
  head.kind = kind;
  head.seq = seq;
  head.uniqueId = rule.uniqueId;
  head.action = rule.action;
  return head;
}

}  // namespace

AclRule aclRuleOf(std::uint32_t seq, const Acl::IpRuleConfig& rule) {
  AclRule base = ruleHead(AclSubruleKind::ip, seq, rule);
  base.source = rule.filter.source;
  base.destination = rule.filter.destination;
  base.protocol = rule.filter.protocol;
  return base;
}

AclRule aclRuleOf(std::uint32_t seq, const Acl::Ip6RuleConfig& rule) {
  AclRule base = ruleHead(AclSubruleKind::ip6, seq, rule);
  base.source6 = rule.filter.source;
  base.destination6 = rule.filter.destination;
  base.protocol = rule.filter.protocol;
  return base;
}

AclRule aclRuleOf(std::uint32_t seq, const Acl::MacRuleConfig& rule) {
  AclRule base = ruleHead(AclSubruleKind::mac, seq, rule);
  base.mac = rule.filter;
  return base;
}

void AclConfigSm::createAclForData(AclData& data) {
  BLIP(aclTrace(), 4, "{}::createAclForData({})", aclName(), data.key().stringValue());
  auto& helper = *root_->aclHelper();
  data.fragMap.clear();
  data.dirtyIs(true);
  if (!data.aclNumber) data.aclNumber = directionSm(data.key().direction).allocateAclNumber();
  if (!data.aclNumber) {
    BLIP(aclTrace(), 2, "{} marked as dirty. Removing from dirty acl list because the ACL limit was reached",
         data.key().stringValue());
    data.dirtyIs(false);
    data.hwResult = {AclHwStatus::tooManyAcls, ""};
    data.state = AclDataState::failed;
    data.unstable = true;
    return;
  }
  data.rules.clear();
  data.subrules.clear();
  data.unsupportedRules.clear();
  helper.precreateAcl(data, *aclDataStatusIs(data.key()));
  std::uint32_t rules = 0;
  switch (type()) {
    case Acl::AclType::aclTypeIp:
      for (const auto& [seq, rule] : aclConfig_->ipRuleBySequence()) {
        createIpAclRule(data, seq, rule);
        ++rules;
      }
      break;
    case Acl::AclType::aclTypeIpv6:
      for (const auto& [seq, rule] : aclConfig_->ip6RuleBySequence()) {
        createIp6AclRule(data, seq, rule);
        ++rules;
      }
      break;
    case Acl::AclType::aclTypeMac:
      for (const auto& [seq, rule] : aclConfig_->macRuleBySequence()) {
        createMacAclRule(data, seq, rule);
        ++rules;
      }
      break;
  }
  AclRule final;
  final.kind = AclSubruleKind::final;
  final.uniqueId = finalRuleId;
  final.action = Acl::AclAction::deny;
  data.rules.push_back(final);
  AclSubrule finalEntry;
  finalEntry.rule = static_cast<std::uint32_t>(data.rules.size() - 1);
  data.subrules.push_back(finalEntry);
  if (!helper.createFinalAclRule(type(), data, data.rules.back(), finalEntry))
    data.unsupportedRules.insert(finalRuleId);
  data.numRules = rules;
  data.count = rules + 1;
  checkFinalRuleStatus(data);
  std::size_t unsupported = data.unsupportedRules.size() - data.unsupportedRules.count(finalRuleId);
  if (rules > 0 && unsupported == rules) {
    BLIP(aclTrace(), 2, "Skipping {} for being fully unsupported", data.key().stringValue());
    data.dirtyIs(false);
    data.hwResult = {AclHwStatus::unsupportedRule, ""};
    data.state = AclDataState::failed;
    data.unstable = true;
    data.readyToBeInstalled = false;
    return;
  }
  data.version = aclConfig_->version();
  data.state = AclDataState::prepared;
  data.readyToBeInstalled = true;
}

void AclConfigSm::checkFinalRuleStatus(AclData& data) {
  if (data.unsupportedRules.count(finalRuleId)) {
    BLIP(aclTrace(), 2, "{}: the final rule is not supported", data.key().stringValue());
  }
}

std::uint32_t AclConfigSm::ruleIs(AclData& data, const AclRule& rule) {
  data.rules.push_back(rule);
  return static_cast<std::uint32_t>(data.rules.size() - 1);
}

void AclConfigSm::offer(AclData& data, const AclSubrule& subrule) {
  auto& helper = *root_->aclHelper();
  data.subrules.push_back(subrule);
  const AclRule& rule = data.rules[subrule.rule];
  bool supported = false;
  switch (rule.kind) {
    case AclSubruleKind::ip:
    case AclSubruleKind::ip6:
      supported = helper.createIpAclSubrule(type(), rule, subrule, rule.uniqueId, data);
      break;
    case AclSubruleKind::fragPermit:
      supported = helper.createIpFragRule(data, rule, subrule, rule.uniqueId);
      break;
    case AclSubruleKind::mac:
      supported = helper.createMacAclRule(rule, subrule, rule.uniqueId, data);
      break;
    case AclSubruleKind::final:
      orbAssert("the final rule is not offered as a rule");
  }
  if (!supported && data.unsupportedRules.insert(rule.uniqueId).second) {
    BLIP(aclTrace(), 3, "rule {} (seq {}) is not supported by the chip", rule.uniqueId, rule.seq);
  }
}

void AclConfigSm::createIpAclRule(AclData& data, std::uint32_t seq, const Acl::IpRuleConfig& rule) {
  createIpAclRuleData(data, aclRuleOf(seq, rule), rule.filter.sourcePort, rule.filter.destinationPort,
                      rule.filter.established, rule.filter.fragments);
}

void AclConfigSm::createIp6AclRule(AclData& data, std::uint32_t seq, const Acl::Ip6RuleConfig& rule) {
  createIpAclRuleData(data, aclRuleOf(seq, rule), rule.filter.sourcePort, rule.filter.destinationPort,
                      rule.filter.established, rule.filter.fragments);
}

void AclConfigSm::createIpAclRuleData(AclData& data, AclRule base, const Acl::PortMatch& sourcePort,
                                      const Acl::PortMatch& destinationPort, bool established, bool fragments) {
  if (base.protocol == protocolTcp && established) {
    BLIP(aclTrace(), 6, "\tEstablished: Yes");
    const bool supported = root_->aclHelper()->establishedSupported();
    BLIP(aclTrace(), 6, "\t establishedSupported {}", supported);
    BLIP(aclTrace(), 6, "\tAdding ACK flag");
    base.tcpFlagsAny |= tcpFlagAck;
    BLIP(aclTrace(), 6, "\tAdding RST flag");
    base.tcpFlagsAny |= tcpFlagRst;
  }
  if (fragments) {
    // Non-first fragments carry no L4 header: the rule matches on
    // addresses and protocol alone.
    base.fragment = true;
    if (base.action == Acl::AclAction::permit) {
      createFragPermitRule(data, base);
    } else {
      BLIP(aclTrace(), 5, "Not Creating fragment permit rule");
      offer(data, {ruleIs(data, base), {0, 0, 0}, {0, 0, 0}});
    }
    return;
  }
  const AclPortMaskVector sources = portMasks(sourcePort);
  const AclPortMaskVector destinations = portMasks(destinationPort);
  base.sourceRange = sourcePort;
  base.destinationRange = destinationPort;
  const std::uint32_t rule = ruleIs(data, base);
  for (const auto& source : sources) {
    for (const auto& destination : destinations) offer(data, {rule, source, destination});
  }
}

void AclConfigSm::createFragPermitRule(AclData& data, const AclRule& base) {
  AclRule fragRule = base;
  fragRule.kind = AclSubruleKind::fragPermit;
  const std::string match =
      base.kind == AclSubruleKind::ip6
          ? fmt::format("{} {} {}", base.source6.stringValue(), base.destination6.stringValue(), base.protocol)
          : fmt::format("{} {} {}", base.source.stringValue(), base.destination.stringValue(), base.protocol);
  if (data.fragMap.contains(match)) {
    BLIP(aclTrace(), 5, "Matching fragment permit rule already created");
    // The rule still counts as built, so that it is not taken as unsupported.
    return;
  }
  BLIP(aclTrace(), 5, "Creating fragment permit rule");
  data.fragMap.insert(match);
  BLIP(aclTrace(), 6, "fragMap({}): insert {}", data.key().stringValue(), match);
  offer(data, {ruleIs(data, fragRule), {0, 0, 0}, {0, 0, 0}});
}

void AclConfigSm::createMacAclRule(AclData& data, std::uint32_t seq, const Acl::MacRuleConfig& rule) {
  const AclRule macRule = aclRuleOf(seq, rule);
  try {
    Acl::checkMacFilter(rule.filter);
  } catch (const Vex::RangeError& e) {
    // A row the configuration should never hold: the rule is left out.
    BLIP(aclTrace(), 1, "{} seq {}: {}", aclName(), seq, e.what());
    data.unsupportedRules.insert(rule.uniqueId);
    return;
  }
  offer(data, {ruleIs(data, macRule), {0, 0, 0}, {0, 0, 0}});
}

}  // namespace Orb
