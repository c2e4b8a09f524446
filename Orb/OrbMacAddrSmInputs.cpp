#include "Orb/OrbMacAddrSmInputs.h"

#include "Orb/OrbLagSm.h"
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbSubIntfSm.h"

namespace Orb {

MacAddrSmInputs macAddrSmInputsFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                       const Vex::Ptr<OrbHelper::OrbHelperMacAddrSm>& orbHelper,
                                       const Vex::Ptr<VlanHelper>& vlanHelper) {
  MacAddrSmInputs in;
  in.ocsd = ocsd;
  in.ocmd = Vex::make<OrbCommonMulticastData>("ocmd");
  in.macTable = Vex::make<OrbTypes::MacTable>("macTable");
  in.routerMacTable = Vex::make<OrbTypes::MacTable>("routerMacTable");
  in.bridgingStatus = Vex::make<Bridging::Status>("bridgingStatus");
  in.flushRequestDir = Vex::make<Bridging::HostTableFlushRequestDir>("flushRequestDir");
  in.flushReplyDir = Vex::make<Bridging::HostTableFlushReplyDir>("flushReplyDir");
  in.bridgingConfig = Vex::make<Bridging::Config>("bridgingConfig");
  in.ethPhyIntfConfigDir = Vex::make<Interface::EthPhyIntfConfigDir>("ethPhyIntfConfigDir");
  in.ethPhyIntfStatusDir = Vex::make<Interface::EthPhyIntfStatusDir>("ethPhyIntfStatusDir");
  in.vlanHelper = vlanHelper;
  in.mlagHostTable = Vex::make<Mlag::HostTable>("mlagHostTable");
  in.mlagStatus = Vex::make<Mlag::Status>("mlagStatus");
  in.orbHelper = orbHelper;
  in.fsfStatus = Vex::make<FastServerFailover::Status>("fsfStatus");
  in.vxlanConfigDir = Vex::make<Vxlan::VxlanConfigDir>("vxlanConfigDir");
  in.rmacInfoDir = Vex::make<VXLAN::RemoteMacInfoDir>("rmacInfoDir");
  in.remoteHostTable = Vex::make<Bridging::RemoteMacTable>("remoteHostTable");
  in.dot1xHostTable = Vex::make<Dot1x::HostTable>("dot1xHostTable");
  in.dot1xStatus = Vex::make<Dot1x::Status>("dot1xStatus");
  in.dot1xHelper = Vex::make<OrbHelper::OrbHelperDot1x>();
  in.l2RibInput = Vex::make<L2Rib::HostInput>("l2RibInput");
  in.l2RibOutput = Vex::make<L2Rib::HostOutput>("l2RibOutput");
  in.lbOutput = Vex::make<L2Rib::LoadBalanceOutput>("lbOutput");
  in.destOutput = Vex::make<L2Rib::DestOutput>("destOutput");
  in.swTunnelIdMap = Vex::make<SwTunnelGroupIdMap>("swTunnelIdMap");
  in.objTupleToHwId = Vex::make<ObjTupleToHwId>("objTupleToHwId");
  in.subIntfHwStatus = Vex::make<Hardware::SubIntf::Status>("subIntfHwStatus");
  return in;
}

MacAddrSmMounter::MacAddrSmMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                                   const Vex::Ptr<OrbHelper::OrbHelperMacAddrSm>& orbHelper,
                                   const Vex::Ptr<VlanHelper>& vlanHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
  inputs_.vlanHelper = vlanHelper;
}

void MacAddrSmMounter::doMounts() {
  auto& in = inputs_;
  in.ocmd = Vex::make<OrbCommonMulticastData>("ocmd");
  in.macTable = hive_->mount<OrbTypes::MacTable>(macTablePath, "macTable");
  in.routerMacTable = hive_->mount<OrbTypes::MacTable>(routerMacTablePath, "routerMacTable");
  in.bridgingStatus = hive_->mount<Bridging::Status>(bridgingStatusPath, "bridgingStatus");
  in.flushRequestDir = hive_->mount<Bridging::HostTableFlushRequestDir>(flushRequestPath, "flushRequestDir");
  in.flushReplyDir = hive_->mount<Bridging::HostTableFlushReplyDir>(flushReplyPath, "flushReplyDir");
  in.bridgingConfig = hive_->mount<Bridging::Config>(bridgingConfigPath, "bridgingConfig");
  in.ethPhyIntfConfigDir = hive_->mount<Interface::EthPhyIntfConfigDir>(ethPhyIntfConfigPath, "ethPhyIntfConfigDir");
  in.ethPhyIntfStatusDir = hive_->mount<Interface::EthPhyIntfStatusDir>(ethPhyIntfStatusPath, "ethPhyIntfStatusDir");
  in.mlagHostTable = hive_->mount<Mlag::HostTable>(mlagHostTablePath, "mlagHostTable");
  // The LAG machine reads the same MLAG status.
  in.mlagStatus = hive_->mount<Mlag::Status>(LagMounter::mlagStatusPath, "mlagStatus");
  in.fsfStatus = hive_->mount<FastServerFailover::Status>(fsfStatusPath, "fsfStatus");
  in.vxlanConfigDir = hive_->mount<Vxlan::VxlanConfigDir>(vxlanConfigPath, "vxlanConfigDir");
  in.rmacInfoDir = hive_->mount<VXLAN::RemoteMacInfoDir>(remoteMacInfoPath, "rmacInfoDir");
  in.remoteHostTable = hive_->mount<Bridging::RemoteMacTable>(remoteMacTablePath, "remoteHostTable");
  in.dot1xHostTable = hive_->mount<Dot1x::HostTable>(dot1xHostTablePath, "dot1xHostTable");
  in.dot1xStatus = hive_->mount<Dot1x::Status>(dot1xStatusPath, "dot1xStatus");
  in.dot1xHelper = Vex::make<OrbHelper::OrbHelperDot1x>();
  in.l2RibInput = hive_->mount<L2Rib::HostInput>(l2RibHostInputPath, "l2RibInput");
  in.l2RibOutput = hive_->mount<L2Rib::HostOutput>(l2RibHostOutputPath, "l2RibOutput");
  in.lbOutput = hive_->mount<L2Rib::LoadBalanceOutput>(l2RibLbOutputPath, "lbOutput");
  in.destOutput = hive_->mount<L2Rib::DestOutput>(l2RibDestOutputPath, "destOutput");
  in.swTunnelIdMap = hive_->mount<SwTunnelGroupIdMap>(swTunnelGroupIdMapPath, "swTunnelIdMap");
  in.objTupleToHwId = hive_->mount<ObjTupleToHwId>(objTupleToHwIdPath, "objTupleToHwId");
  // The sub-interface machine writes it.
  in.subIntfHwStatus = hive_->mount<Hardware::SubIntf::Status>(SubIntfMounter::hwStatusPath, "subIntfHwStatus");
}

Vex::Ptr<MacAddrSm> MacAddrSmMounter::doMountsComplete() { return macAddrSmFactory(inputs_); }

}  // namespace Orb
