// After a hitless restart of the agent the hardware still holds the remote
// (tunnel) entries programmed before it, and the state database still holds
// their rows in `remoteStatusTable`. This machine recovers them: it rebuilds
// the next-hop and VLAN reference counts of `rmacInfoDir` from those rows,
// and it stays in progress until the control plane says every remote host
// has been sent again. Meanwhile the MAC machine neither programs entries
// the hardware holds identically nor removes recovered ones that no source
// wants yet.
#pragma once

#include "platform/model/MacModels.h"

#include <functional>

namespace Orb {

class RemoteMacRecoveryHelperSm : public Vex::PtrInterface {
 public:
  using NextHopOf = std::function<std::uint64_t(const OrbTypes::RemoteMacAddressTableEntry&)>;

  RemoteMacRecoveryHelperSm(const Vex::Ptr<Bridging::Status>& bridgingStatus,
                            const Vex::Ptr<VXLAN::RemoteMacInfoDir>& rmacInfoDir, NextHopOf nextHopOf);

  // Recovers every remote row; returns how many.
  std::size_t recover();
  std::size_t recovered() const { return recovered_; }

  bool complete() const { return complete_; }
  void completeIs(bool complete) { complete_ = complete; }

 private:
  Vex::Ptr<Bridging::Status> bridgingStatus_;
  Vex::Ptr<VXLAN::RemoteMacInfoDir> rmacInfoDir_;
  NextHopOf nextHopOf_;
  std::size_t recovered_ = 0;
  bool complete_ = false;
};

}  // namespace Orb
