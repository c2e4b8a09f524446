// Applying pending ACL changes: the three passes (take out, build,
// commit), the phases that run them on a chip whose operations finish
// later, and the status texts and log events of the outcome.
#include "Orb/OrbAclSm.h"
#include "Orb/OrbAssert.h"
#include "platform/log/LogEvent.h"
#include "platform/vex/Time.h"

#include <fmt/format.h>

namespace Orb {

namespace {

const Log::Definition aclUnsupportedHardware{
    {"ACL_UNSUPPORTED_HARDWARE", "ACL %s could not be programmed: %s",
     "The hardware cannot hold a rule or action of the ACL; the interfaces it is applied to are disabled.",
     "Remove the unsupported rules from the ACL."}};
const Log::Definition aclHwResourceFull{{"ACL_HW_RESOURCE_FULL", "ACL %s could not be programmed: %s",
                                         "The hardware has no room left for the ACL's entries.",
                                         "Shorten the ACL, apply it to fewer interfaces or remove other ACLs."}};
const Log::Definition aclHwResourceNormal{{"ACL_HW_RESOURCE_NORMAL", "Hardware resources for ACLs are available again",
                                           "Every ACL that had no room in the hardware has since been programmed.",
                                           "None."}};
const Log::Definition aclComputationFailed{
    {"ACL_COMPUTATION_FAILED", "ACL %s could not be computed: %s",
     "The ACL needs more of a hardware resource than the chip offers (port ranges, ACL numbers).",
     "Simplify the ACL's port ranges or apply fewer ACLs."}};
const Log::Definition aclComputationSuccess{
    {"ACL_COMPUTATION_SUCCESS", "ACL %s is programmed", "An ACL that had failed is now in the hardware.", "None."}};

bool isResourceStatus(std::uint32_t status) {
  return status == AclHwStatus::outOfTcam || status == AclHwStatus::insufficientResources ||
         status == AclHwStatus::udfResources;
}

bool isUnsupportedStatus(std::uint32_t status) {
  return status == AclHwStatus::unsupportedAction || status == AclHwStatus::unsupportedRule ||
         status == AclHwStatus::unsupportedFeature;
}

const char* phaseName(AclSm::AclApplyPhase phase) {
  switch (phase) {
    case AclSm::AclApplyPhase::Done:
      return "Done";
    case AclSm::AclApplyPhase::Uninstall:
      return "Uninstall";
    case AclSm::AclApplyPhase::Prepare:
      return "Prepare";
    case AclSm::AclApplyPhase::Commit:
      return "Commit";
    case AclSm::AclApplyPhase::Unblock:
      return "Unblock";
  }
  return "unknown";
}

}  // namespace

std::string aclHwStatusText(std::uint32_t status, const std::string& chip) {
  if (status == AclHwStatus::outOfTcam) return "Out of TCAM entries on " + chip;
  if (status == AclHwStatus::tooManyL4PortRanges) return "Too many L4 port ranges";
  if (status == AclHwStatus::tooManyAcls) return "Too many ACLs";
  if (status == AclHwStatus::insufficientResources) return "Insufficient HW resources on " + chip;
  if (status == AclHwStatus::udfResources) return "Insufficient Hw resources to program UDFs on " + chip;
  if (status == AclHwStatus::unsupportedAction) return "Unsupported Acl action";
  if (status == AclHwStatus::unsupportedRule) return "Unsupported Acl rule, " + chip;
  if (status == AclHwStatus::unsupportedFeature) return "Unsupported feature in TCAM on " + chip;
  if (status == AclHwStatus::succeeded) return "Succeeded install on " + chip;
  return "Unknown error";
}

std::string AclSm::doSetHwStatus(AclData& data, const std::string& chip) {
  std::string text = aclHwStatusText(data.hwResult.status, chip);
  for (auto& [type, typeSm] : typeSms_) {
    auto* configSm = typeSm->aclConfigSm(data.key().name);
    if (!configSm || type != data.key().type) continue;
    auto status = configSm->aclDataStatus(data.key());
    if (!status) {
      BLIP(aclTrace(), 2, "Status not found for acl: {}", data.key().stringValue());
      return text;
    }
    status->hwStatus = data.hwResult.status;
    status->installed = data.installed && data.state == AclDataState::installed;
    status->numRules = data.numRules;
    if (status->statusText() == text) {
      // Same text, other details: written through all the same.
      status->statusTextIs("");
    }
    status->statusTextIs(text);
  }
  return text;
}

void AclSm::doApplyAcls(bool forceRecreateAll) {
  BLIP(aclTrace(), 4, "AclSm::doApplyAcls( forceRecreateAll={} )", forceRecreateAll);
  if (forceRecreateAll) {
    forEachConfigSm([](AclConfigSm& sm) {
      for (const auto& [key, data] : sm.aclData()) data->dirtyIs(true);
    });
  }
  if (updatingAcls_) {
    applyAgain_ = true;
    return;
  }
  updatingAcls_ = true;
  startTime_ = Vex::now();
  ++applies_;
  if (in_.orbHelper->deferredOperationsSupported()) {
    aclApplyPhaseIs(AclApplyPhase::Uninstall);
    return;
  }
  do {
    applyAgain_ = false;
    bool removed = anyConfigSm(&AclConfigSm::hasInstancesToRemove);
    forEachConfigSm([](AclConfigSm& sm) { sm.uninstallAcl(false); });
    if (removed) {
      // Room was made: instances the chip refused try again.
      forEachConfigSm([](AclConfigSm& sm) {
        for (const auto& [key, data] : sm.aclData()) {
          if (data->state == AclDataState::failed) data->dirtyIs(true);
        }
      });
    }
    forEachConfigSm([](AclConfigSm& sm) { sm.prepareAcl(); });
    forEachConfigSm([](AclConfigSm& sm) { sm.commitAcl(); });
    recordOutcomes();
  } while (applyAgain_);
  updatingAcls_ = false;
}

void AclSm::recordOutcomes() {
  forEachConfigSm([&](AclConfigSm& sm) {
    for (const auto& [key, data] : sm.aclData()) {
      auto status = sm.aclDataStatus(key);
      const std::uint32_t previous = status ? status->hwStatus : 0;
      const bool wasInstalled = status && status->installed;
      const bool hadText = status && !status->statusText().empty();
      data->unstable = data->state == AclDataState::failed;
      doSetHwStatus(*data, data->hwResult.chip);
      if (hadText || data->state == AclDataState::failed) logOutcome(*data, previous, wasInstalled);
      if (data->state != AclDataState::failed) continue;
      if (data->hwResult.status == AclHwStatus::insufficientResources) {
        BLIP(aclTrace(), 2, "Insufficient resource error: Do not err disable");
        continue;
      }
      for (const auto& pair : data->activeIntfs()) doErrdisable(pair.intfId, true);
    }
  });
  BLIP(aclTrace(), 5, "checkStatus: {} instances to retry, verification requested", dirtyAcls_.size());
}

void AclSm::logOutcome(AclData& data, std::uint32_t previousStatus, bool wasInstalled) {
  const std::uint32_t status = data.hwResult.status;
  const std::string name = data.key().stringValue();
  const std::string text = aclHwStatusText(status, data.hwResult.chip);
  if (data.state == AclDataState::failed) {
    if (status == previousStatus && !wasInstalled && data.unstable && previousStatus != 0) return;
    if (isResourceStatus(status)) {
      if (resourceFull_.insert(data.key()).second) aclHwResourceFull.emit(name, text);
    } else if (isUnsupportedStatus(status)) {
      aclUnsupportedHardware.emit(name, text);
    } else {
      aclComputationFailed.emit(name, text);
    }
    return;
  }
  if (data.state != AclDataState::installed) return;
  if (previousStatus != AclHwStatus::succeeded) aclComputationSuccess.emit(name);
  if (resourceFull_.erase(data.key()) && resourceFull_.empty()) aclHwResourceNormal.emit();
}

// ---- phases ----------------------------------------------------------------

void AclSm::aclApplyPhaseIs(AclApplyPhase phase) {
  if (static_cast<std::uint8_t>(phase) > static_cast<std::uint8_t>(AclApplyPhase::Unblock)) return;
  aclApplyPhase_ = phase;
  opsRequested_ = 0;
  opsCompleted_ = 0;
  BLIP(aclTrace(), 5, "AclSm::aclApplyPhaseIs( {} )", phaseName(phase));
  switch (phase) {
    case AclApplyPhase::Done:
      doAclDonePhase();
      return;
    case AclApplyPhase::Uninstall:
      if (anyConfigSm(&AclConfigSm::hasInstancesToRemove)) doAclUninstallPhase();
      break;
    case AclApplyPhase::Prepare:
      if (anyConfigSm(&AclConfigSm::hasDirtyInstances)) doAclPreparePhase();
      break;
    case AclApplyPhase::Commit:
      doAclCommitPhase();
      break;
    case AclApplyPhase::Unblock:
      if (!unblockAcls_.empty()) doAclUnblockPhase();
      break;
  }
  if (opsCompleted_ >= opsRequested_) advancePhase();
}

void AclSm::advancePhase() {
  switch (aclApplyPhase_) {
    case AclApplyPhase::Done:
      return;
    case AclApplyPhase::Uninstall: {
      const bool more = anyConfigSm(&AclConfigSm::hasDirtyInstances) || anyConfigSm(&AclConfigSm::hasPreparedInstances);
      aclApplyPhaseIs(more ? AclApplyPhase::Prepare : AclApplyPhase::Unblock);
      return;
    }
    case AclApplyPhase::Prepare:
      aclApplyPhaseIs(AclApplyPhase::Commit);
      return;
    case AclApplyPhase::Commit:
      aclApplyPhaseIs(AclApplyPhase::Unblock);
      return;
    case AclApplyPhase::Unblock:
      aclApplyPhaseIs(AclApplyPhase::Done);
      return;
  }
}

void AclSm::handleAclDataOpsCompleted(std::uint32_t count) {
  opsCompleted_ += count;
  BLIP(aclTrace(), 5, "AclSm::handleAclDataOpsCompleted() phase={} opsRequested={} opsCompleted={}",
       phaseName(aclApplyPhase_), opsRequested_, opsCompleted_);
  if (aclApplyPhase_ == AclApplyPhase::Done) return;
  if (opsCompleted_ >= opsRequested_) advancePhase();
}

void AclSm::doAclUninstallPhase() {
  forEachConfigSm([](AclConfigSm& sm) { sm.uninstallAcl(false); });
  forEachConfigSm([](AclConfigSm& sm) {
    for (const auto& [key, data] : sm.aclData()) {
      if (data->state == AclDataState::failed) data->dirtyIs(true);
    }
  });
}

void AclSm::doAclPreparePhase() {
  blockReplacedInstances();
  forEachConfigSm([](AclConfigSm& sm) { sm.prepareAcl(); });
}

void AclSm::blockReplacedInstances() {
  forEachConfigSm([&](AclConfigSm& sm) {
    for (const auto& [key, data] : sm.aclData()) {
      if (!data->dirty() || !data->installed || data->activeIntfs().empty()) continue;
      unblockAclIs(key);
      for (const auto& pair : data->activeIntfs()) aclIntfSmIs(pair.intfId).wantToBlockIs(key, true);
    }
  });
}

void AclSm::doAclCommitPhase() {
  forEachConfigSm([](AclConfigSm& sm) { sm.commitAcl(); });
}

void AclSm::doAclUnblockPhase() {
  // By interface rather than by the instances' bindings: an instance may
  // have gone, or lost interfaces, while they were blocked for it.
  for (const auto& key : unblockAcls_) BLIP(aclTrace(), 5, "Unblocking {}", key.stringValue());
  for (auto it = aclIntfSms_.begin(); it != aclIntfSms_.end();) {
    AclIntfSm& sm = *it->second;
    for (const auto& key : unblockAcls_) {
      if (sm.aclIntf().wantToBlock(key)) sm.wantToBlockIs(key, false);
    }
    it = sm.aclIntf().empty() ? aclIntfSms_.erase(it) : std::next(it);
  }
  unblockAcls_.clear();
  std::vector<Nexo::IntfId> leftBlocked(blockedIntfInternal_.begin(), blockedIntfInternal_.end());
  for (const auto& intf : leftBlocked) blockedIntfIs(intf, false);
}

void AclSm::doAclDonePhase() {
  if (!unblockAcls_.empty()) orbAssert("!unblockAcls()");
  recordOutcomes();
  updatingAcls_ = false;
  if (applyAgain_) {
    applyAgain_ = false;
    doApplyAcls(false);
  }
}

}  // namespace Orb
