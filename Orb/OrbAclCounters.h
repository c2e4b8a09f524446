// Reading rule counters from the chip into the lists' status: a periodic
// poller over every installed instance, and the walk it shares with a
// list's on-request update. A walk reads at most a burst of rules per turn
// of the event loop and keeps its place in a bookmark, so that a hundred
// thousand rules never hold the loop.
#pragma once

#include "Orb/OrbAclTypes.h"
#include "Orb/OrbCommon.h"
#include "platform/model/Acl.h"
#include "platform/vex/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace OrbHelper {
class AclHelper;
}

namespace Orb {

class AclSm;

// Where a counter walk stopped: after the rule `seqId` of instance `key`.
// An invalid bookmark starts the next walk at the first ACL type.
struct AclCountersPollingBookmark {
  bool valid = false;
  Acl::AclType aclType = Acl::AclType::aclTypeIp;
  std::string aclName;
  AclKey key;
  std::uint32_t seqId = 0;
  auto operator<=>(const AclCountersPollingBookmark&) const = default;
};
VEX_VALUE(AclCountersPollingBookmark, "Orb::AclCountersPollingBookmark", (valid, aclType, aclName, key, seqId))

// Reads the counters of `data`'s rules after `afterSeq` (all of them when
// unset) into `status`, at most `budget` rules, never stopping inside the
// rules of one sequence number. Returns the rules read; `lastSeq` is the
// sequence number read last and `finished` whether the instance is done.
struct AclCounterRead {
  std::uint32_t rules = 0;
  std::uint32_t lastSeq = 0;
  bool finished = true;
};
AclCounterRead readAclCounters(OrbHelper::AclHelper& helper, const AclData& data, Acl::AclStatus& status,
                               std::optional<std::uint32_t> afterSeq, std::uint32_t budget);

class AclCountersPoller : public OrbBaseSm {
 public:
  static constexpr double defaultPeriod = 8.0;
  static constexpr std::uint32_t defaultBurstSize = 100;

  explicit AclCountersPoller(AclSm* root);
  ~AclCountersPoller() override;
  const char* fwkType() const override { return "Orb::AclCountersPoller"; }

  double period() const { return period_; }
  void periodIs(double seconds);
  std::uint32_t burstSize() const { return burstSize_; }
  void burstSizeIs(std::uint32_t rules) { burstSize_ = rules ? rules : 1; }
  const AclCountersPollingBookmark& bookmark() const { return bookmark_; }
  const Vex::Ptr<Vex::Clock>& clock() const { return clock_; }
  // Rules read in the latest run.
  std::uint32_t lastRunRules() const { return lastRunRules_; }

  void handleInitialized() override;
  void handleTime();

 private:
  void rearm();
  AclSm* root_;
  Vex::Ptr<Vex::Clock> clock_;
  double period_ = defaultPeriod;
  std::uint32_t burstSize_ = defaultBurstSize;
  AclCountersPollingBookmark bookmark_;
  std::uint32_t lastRunRules_ = 0;
};

}  // namespace Orb
