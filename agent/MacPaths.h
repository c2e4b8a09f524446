// State-database paths of the MAC machine's inputs and outputs, as its
// mounter names them, for the commands that write or show them.
#pragma once

#include "Orb/OrbMacAddrSmInputs.h"

namespace Agent::MacPaths {
inline constexpr const char* macTable = Orb::MacAddrSmMounter::macTablePath;
inline constexpr const char* routerMacTable = Orb::MacAddrSmMounter::routerMacTablePath;
inline constexpr const char* bridgingStatus = Orb::MacAddrSmMounter::bridgingStatusPath;
inline constexpr const char* bridgingConfig = Orb::MacAddrSmMounter::bridgingConfigPath;
inline constexpr const char* flushRequest = Orb::MacAddrSmMounter::flushRequestPath;
inline constexpr const char* flushReply = Orb::MacAddrSmMounter::flushReplyPath;
inline constexpr const char* ethPhyIntfConfig = Orb::MacAddrSmMounter::ethPhyIntfConfigPath;
inline constexpr const char* ethPhyIntfStatus = Orb::MacAddrSmMounter::ethPhyIntfStatusPath;
inline constexpr const char* mlagHostTable = Orb::MacAddrSmMounter::mlagHostTablePath;
inline constexpr const char* fsfStatus = Orb::MacAddrSmMounter::fsfStatusPath;
inline constexpr const char* vxlanConfig = Orb::MacAddrSmMounter::vxlanConfigPath;
inline constexpr const char* remoteMacInfo = Orb::MacAddrSmMounter::remoteMacInfoPath;
inline constexpr const char* remoteMacTable = Orb::MacAddrSmMounter::remoteMacTablePath;
inline constexpr const char* dot1xHostTable = Orb::MacAddrSmMounter::dot1xHostTablePath;
inline constexpr const char* dot1xStatus = Orb::MacAddrSmMounter::dot1xStatusPath;
inline constexpr const char* l2RibHostInput = Orb::MacAddrSmMounter::l2RibHostInputPath;
inline constexpr const char* l2RibHostOutput = Orb::MacAddrSmMounter::l2RibHostOutputPath;
inline constexpr const char* l2RibLbOutput = Orb::MacAddrSmMounter::l2RibLbOutputPath;
inline constexpr const char* l2RibDestOutput = Orb::MacAddrSmMounter::l2RibDestOutputPath;
inline constexpr const char* swTunnelGroupIdMap = Orb::MacAddrSmMounter::swTunnelGroupIdMapPath;
inline constexpr const char* objTupleToHwId = Orb::MacAddrSmMounter::objTupleToHwIdPath;
inline constexpr const char* nonAgingStatus = "bridging/nonAging/status";
inline constexpr const char* nonAgingConfig = "bridging/nonAging/config";
}  // namespace Agent::MacPaths
