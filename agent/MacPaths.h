// State-database paths of the MAC machine's inputs and outputs, named once
// for the machine's start and the commands that write or show them.
#pragma once

namespace Agent::MacPaths {
inline constexpr const char* flushRequest = "bridging/flush/request";
inline constexpr const char* flushReply = "bridging/flush/reply";
inline constexpr const char* ethPhyIntfConfig = "interface/config/eth/phy";
inline constexpr const char* ethPhyIntfStatus = "interface/status/eth/phy";
inline constexpr const char* mlagHostTable = "mlag/hostTable";
inline constexpr const char* fsfStatus = "fsf/status";
inline constexpr const char* vxlanConfig = "vxlan/config";
inline constexpr const char* remoteMacInfo = "vxlan/remoteMacInfo";
inline constexpr const char* remoteMacTable = "bridging/remoteMacTable";
inline constexpr const char* dot1xHostTable = "dot1x/hostTable";
inline constexpr const char* dot1xStatus = "dot1x/status";
inline constexpr const char* l2RibHostInput = "l2rib/hostInput";
inline constexpr const char* l2RibHostOutput = "l2rib/hostOutput";
inline constexpr const char* l2RibLbOutput = "l2rib/lbOutput";
inline constexpr const char* l2RibDestOutput = "l2rib/destOutput";
inline constexpr const char* swTunnelGroupIdMap = "vxlan/swTunnelGroupIdMap";
inline constexpr const char* objTupleToHwId = "l2rib/objTupleToHwId";
inline constexpr const char* nonAgingStatus = "bridging/nonAging/status";
inline constexpr const char* nonAgingConfig = "bridging/nonAging/config";
}  // namespace Agent::MacPaths
