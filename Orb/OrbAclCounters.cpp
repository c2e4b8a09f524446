#include "Orb/OrbAclCounters.h"

#include "Orb/OrbAclSm.h"
#include "platform/vex/Time.h"

#include <algorithm>

namespace Orb {

namespace {

// The final rule has no sequence number of its own: it comes after all.
std::uint32_t pollSeq(const AclRule& rule) { return rule.kind == AclSubruleKind::final ? Acl::finalRuleSeq : rule.seq; }

}  // namespace

AclCounterRead readAclCounters(OrbHelper::AclHelper& helper, const AclData& data, Acl::AclStatus& status,
                               std::optional<std::uint32_t> afterSeq, std::uint32_t budget) {
  AclCounterRead read;
  const auto chips = helper.counterChips();
  const auto& rules = data.rules;
  auto it = rules.begin();
  if (afterSeq) {
    it = std::partition_point(rules.begin(), rules.end(),
                              [&](const AclRule& rule) { return pollSeq(rule) <= *afterSeq; });
  }
  for (; it != rules.end(); ++it) {
    const AclRule& rule = *it;
    const std::uint32_t seq = pollSeq(rule);
    // The final rule rides along with the instance's last burst: it is
    // one read, and charging it would make every burst count one short.
    const bool isFinal = rule.kind == AclSubruleKind::final;
    if (!isFinal && read.rules >= budget && seq != read.lastSeq) {
      read.finished = false;
      return read;
    }
    std::uint64_t total = 0;
    for (const auto& chip : chips) {
      const std::uint64_t packets = helper.aclRuleCountersSinceLastPoll(data, chip, rule.uniqueId);
      if (!packets) continue;
      BLIP(aclTrace(), 8, "Updating counter for rule: {} [{}] on chip {}", seq, packets, chip);
      status.ruleCounterAdd(seq, chip, packets);
      total += packets;
    }
    if (total) BLIP(aclTrace(), 8, "Updating global counter for rule: {} [{}]", seq, total);
    if (!isFinal) ++read.rules;
    read.lastSeq = seq;
  }
  return read;
}

AclCountersPoller::AclCountersPoller(AclSm* root) : OrbBaseSm(root->ocsd()), root_(root) {
  clock_ = Vex::clockFactory([this] { handleTime(); });
  clockIs(clock_);
  initializedIs(true);
}

AclCountersPoller::~AclCountersPoller() {
  vexDoZombieReactors(true);
  clock_->timeMinIs(Vex::never);
  clockDel(clock_);
}

void AclCountersPoller::handleInitialized() { rearm(); }

void AclCountersPoller::periodIs(double seconds) {
  if (seconds == period_) return;
  period_ = seconds;
  rearm();
}

void AclCountersPoller::rearm() { clock_->timeMinIs(period_ > 0 ? Vex::now() + period_ : Vex::never); }

void AclCountersPoller::handleTime() {
  BLIP(aclTrace(), 7, "AclCountersPoller::handleTime()");
  lastRunRules_ = 0;
  const auto& status = root_->aclStatus();
  auto& helper = *root_->aclHelper();
  const AclCountersPollingBookmark start = bookmark_;
  const auto& typeSms = root_->aclTypeConfigSm();
  std::uint32_t budget = burstSize_;
  auto typeIt = start.valid ? typeSms.lower_bound(start.aclType) : typeSms.begin();
  for (; status && typeIt != typeSms.end(); ++typeIt) {
    const auto& [type, typeSm] = *typeIt;
    BLIP(aclTrace(), 7, "Polling acl type: {}", Acl::aclTypeName(type));
    const bool resumeType = start.valid && type == start.aclType;
    const auto& configSms = typeSm->aclConfigSm();
    auto configIt = resumeType ? configSms.lower_bound(start.aclName) : configSms.begin();
    for (; configIt != configSms.end(); ++configIt) {
      const auto& [name, configSm] = *configIt;
      BLIP(aclTrace(), 7, "Polling acl: {}", name);
      auto listStatus = status->aclStatus({type, name});
      if (!listStatus) continue;
      const bool resumeAcl = resumeType && name == start.aclName;
      const auto& instances = configSm->aclData();
      auto dataIt = resumeAcl ? instances.lower_bound(start.key) : instances.begin();
      for (; dataIt != instances.end(); ++dataIt) {
        const auto& [key, data] = *dataIt;
        if (!data->installed) {
          BLIP(aclTrace(), 7, "{} not installed, skip", key.stringValue());
          continue;
        }
        std::optional<std::uint32_t> after;
        if (resumeAcl && key == start.key) after = start.seqId;
        const AclCounterRead read = readAclCounters(helper, *data, *listStatus, after, budget);
        lastRunRules_ += read.rules;
        budget -= std::min(budget, read.rules);
        if (read.finished && budget) continue;
        bookmark_ = {true, type, name, key, read.lastSeq};
        BLIP(aclTrace(), 7, "Yielding at: {}", Vex::toStrep(bookmark_));
        clock_->timeMinIs(Vex::now());
        return;
      }
    }
  }
  bookmark_ = {};
  rearm();
}

}  // namespace Orb
