#include "Orb/OrbRemoteMacRecoveryHelperSm.h"

#include "Orb/OrbTrace.h"

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbMacAddrSm");
  return handle;
}

}  // namespace

RemoteMacRecoveryHelperSm::RemoteMacRecoveryHelperSm(const Vex::Ptr<Bridging::Status>& bridgingStatus,
                                                     const Vex::Ptr<VXLAN::RemoteMacInfoDir>& rmacInfoDir,
                                                     NextHopOf nextHopOf)
    : bridgingStatus_(bridgingStatus), rmacInfoDir_(rmacInfoDir), nextHopOf_(std::move(nextHopOf)) {}

std::size_t RemoteMacRecoveryHelperSm::recover() {
  // The counts are rebuilt from the rows, whatever they said before.
  rmacInfoDir_->nextHopRefCountDelAll();
  rmacInfoDir_->vlanRefCountDelAll();
  recovered_ = 0;
  for (const auto& [key, entry] : bridgingStatus_->remoteStatusTable()) {
    std::uint64_t nextHop = nextHopOf_(entry);
    rmacInfoDir_->nextHopRefCountInc(nextHop);
    rmacInfoDir_->vlanRefCountInc(key.vlanId);
    BLIP(trace(), 5, "Recovered remote MAC {} vlan {} next hop {} during hitless restart", key.addr.stringValue(),
         key.vlanId.value(), nextHop);
    ++recovered_;
  }
  return recovered_;
}

}  // namespace Orb
