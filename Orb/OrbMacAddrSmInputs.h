// What the MAC machine reads and writes, as one value.
//
// MacAddrSmInputs holds every entity and helper the machine is built over,
// in the order the machine takes them, so that a new input is one field.
// Two ways fill it: MacAddrSmMounter mounts each entity at its state-database
// path (the agent), and macAddrSmInputsFactory makes each one fresh and
// unmounted (tests, benchmarks, a chip layer's bring-up).
#pragma once

#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/hive/Hive.h"
#include "platform/model/MacModels.h"

namespace Orb {

class MacAddrSm;

struct MacAddrSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbCommonMulticastData> ocmd;
  Vex::Ptr<OrbTypes::MacTable> macTable;        // written by the chip layer and the machine
  Vex::Ptr<OrbTypes::MacTable> routerMacTable;  // read-only
  Vex::Ptr<Bridging::Status> bridgingStatus;    // fdbStatus, written here
  Vex::Ptr<Bridging::HostTableFlushRequestDir> flushRequestDir;
  Vex::Ptr<Bridging::HostTableFlushReplyDir> flushReplyDir;
  Vex::Ptr<Bridging::Config> bridgingConfig;
  Vex::Ptr<Interface::EthPhyIntfConfigDir> ethPhyIntfConfigDir;
  Vex::Ptr<Interface::EthPhyIntfStatusDir> ethPhyIntfStatusDir;
  Vex::Ptr<VlanHelper> vlanHelper;  // may be null: no membership to go by
  Vex::Ptr<Mlag::HostTable> mlagHostTable;
  Vex::Ptr<Mlag::Status> mlagStatus;
  Vex::Ptr<OrbHelper::OrbHelperMacAddrSm> orbHelper;
  Vex::Ptr<FastServerFailover::Status> fsfStatus;
  Vex::Ptr<Vxlan::VxlanConfigDir> vxlanConfigDir;
  Vex::Ptr<VXLAN::RemoteMacInfoDir> rmacInfoDir;
  Vex::Ptr<Bridging::RemoteMacTable> remoteHostTable;
  Vex::Ptr<Dot1x::HostTable> dot1xHostTable;
  Vex::Ptr<Dot1x::Status> dot1xStatus;
  Vex::Ptr<OrbHelper::OrbHelperDot1x> dot1xHelper;
  Vex::Ptr<L2Rib::HostInput> l2RibInput;
  Vex::Ptr<L2Rib::HostOutput> l2RibOutput;
  Vex::Ptr<L2Rib::LoadBalanceOutput> lbOutput;
  Vex::Ptr<L2Rib::DestOutput> destOutput;
  Vex::Ptr<SwTunnelGroupIdMap> swTunnelIdMap;
  Vex::Ptr<ObjTupleToHwId> objTupleToHwId;
  // What the sub-interface machine programmed: a layer-2 sub-interface the
  // chip took learns in its VLAN like a port.
  Vex::Ptr<Hardware::SubIntf::Status> subIntfHwStatus;
};

// Every entity made anew and empty; the shared context and the helpers are
// the caller's.
MacAddrSmInputs macAddrSmInputsFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                       const Vex::Ptr<OrbHelper::OrbHelperMacAddrSm>& orbHelper,
                                       const Vex::Ptr<VlanHelper>& vlanHelper);

// Mounts the MAC machine's inputs from the state database and builds the
// machine over them. The paths are named here once; the shell's commands
// that write or show these entities use the same names.
class MacAddrSmMounter {
 public:
  MacAddrSmMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                   const Vex::Ptr<OrbHelper::OrbHelperMacAddrSm>& orbHelper, const Vex::Ptr<VlanHelper>& vlanHelper);
  void doMounts();
  // The mounted inputs, for a caller that wires one of them otherwise.
  MacAddrSmInputs& inputs() { return inputs_; }
  Vex::Ptr<MacAddrSm> doMountsComplete();

  static constexpr const char* macTablePath = "bridging/hardware/macTable";
  static constexpr const char* routerMacTablePath = "bridging/hardware/routerMacTable";
  static constexpr const char* bridgingStatusPath = "bridging/status";
  static constexpr const char* flushRequestPath = "bridging/flush/request";
  static constexpr const char* flushReplyPath = "bridging/flush/reply";
  static constexpr const char* bridgingConfigPath = "bridging/config";
  static constexpr const char* ethPhyIntfConfigPath = "interface/config/eth/phy";
  static constexpr const char* ethPhyIntfStatusPath = "interface/status/eth/phy";
  static constexpr const char* mlagHostTablePath = "mlag/hostTable";
  static constexpr const char* fsfStatusPath = "fsf/status";
  static constexpr const char* vxlanConfigPath = "vxlan/config";
  static constexpr const char* remoteMacInfoPath = "vxlan/remoteMacInfo";
  static constexpr const char* remoteMacTablePath = "bridging/remoteMacTable";
  static constexpr const char* dot1xHostTablePath = "dot1x/hostTable";
  static constexpr const char* dot1xStatusPath = "dot1x/status";
  static constexpr const char* l2RibHostInputPath = "l2rib/hostInput";
  static constexpr const char* l2RibHostOutputPath = "l2rib/hostOutput";
  static constexpr const char* l2RibLbOutputPath = "l2rib/lbOutput";
  static constexpr const char* l2RibDestOutputPath = "l2rib/destOutput";
  static constexpr const char* swTunnelGroupIdMapPath = "vxlan/swTunnelGroupIdMap";
  static constexpr const char* objTupleToHwIdPath = "l2rib/objTupleToHwId";

 private:
  Vex::Ptr<Hive::Root> hive_;
  MacAddrSmInputs inputs_;
};

}  // namespace Orb
