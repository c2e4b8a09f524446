// The hardware helper interfaces: one per feature state machine. A chip
// layer derives from each and overrides its operations; an operation it does
// not provide runs the default body (ORB_UNIMPLEMENTED), which stops the
// process unless ORB_NOOP_AGENT is set. Interfaces of features that the
// library does not drive yet are declared empty, so chip layers can already
// name them.
#pragma once

#include "Orb/OrbAclHelper.h"
#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommonTypes.h"
#include "Orb/OrbNexthopTypes.h"
#include "platform/model/SubIntf.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"

#include <functional>
#include <string>

namespace OrbHelper {

// The MAC table in hardware. Adds answer an OrbTypes::TableAddStatus (0
// success, 1 busy, 2 full); removes answer 0 on success. The operations a
// chip layer may leave out have empty defaults; the others stop the
// process unless ORB_NOOP_AGENT is set. A chip programmed by commands that
// finish later answers an add `addAccepted` (a value apart from every add
// status, whose other values all mean "not programmed") and reports its
// outcome (0 success, 2 full, anything else failed) through hostOutcome.
class OrbHelperMacAddrSm : public Orb::OrbBaseHelper {
 public:
  using MacVlanPair = Bridging::MacVlanPair;
  using EntryType = Bridging::EntryType;
  static constexpr std::uint32_t addAccepted = 0x100;
  using HostOutcomeHandler = std::function<void(const MacVlanPair&, const Nexo::IntfId&, EntryType, std::uint32_t)>;

  explicit OrbHelperMacAddrSm(const std::string& name = "OrbHelperMacAddrSm") : OrbBaseHelper(name) {}

  // Who hears the outcomes of accepted adds: the MAC machine.
  void hostOutcomeHandlerIs(HostOutcomeHandler handler) { hostOutcomeHandler_ = std::move(handler); }
  void hostOutcome(const MacVlanPair& key, const Nexo::IntfId& intf, EntryType entryType, std::uint32_t status) {
    if (hostOutcomeHandler_) hostOutcomeHandler_(key, intf, entryType, status);
  }

  virtual void hwInit() {}
  virtual std::uint32_t addHost(const MacVlanPair&, const Nexo::IntfId&, std::uint32_t /*tunnelId*/, bool /*flag*/,
                                EntryType) {
    return ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, doAddHost);
  }
  virtual std::uint32_t addLearntLocalAndRemoveRemoteHost(const MacVlanPair&, const Nexo::IntfId&, EntryType) {
    return 0;
  }
  virtual std::uint32_t removeHost(const MacVlanPair&, EntryType) {
    return ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, removeHost);
  }
  virtual std::uint32_t addRemoteHost(const MacVlanPair&, const Nexo::IntfId&, std::uint64_t /*nextHopId*/,
                                      std::uint32_t /*tunnelId*/, bool /*flag*/, EntryType, bool /*flag*/) {
    return ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, addRemoteHost);
  }
  virtual void handleLinkStateAtInit() {}
  // Flushes take a signed VLAN: -1 stands for every VLAN.
  virtual void flushVlanPort(int /*vlan*/, const Nexo::IntfId&) {
    ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, flushVlanPort);
  }
  virtual void flushVlan(Bridging::VlanId) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, flushVlan); }
  virtual void flushVlanLag(int /*vlan*/, const Nexo::IntfId&) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, flushVlanLag); }
  virtual void flushAll() { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, flushAll); }
  virtual void removeLag(const Nexo::IntfId&) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, removeLag); }
  virtual void configureAgingTime(std::uint32_t) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, configureAgingTime); }
  virtual void configureSourceCheckCPUMac(bool) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, configureSourceCheckCPUMac); }
  virtual void configureSourceMacInvalid(bool) {}
  virtual void enableLearning(const Nexo::IntfId&, bool) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, enableLearning); }
  virtual void enableLearningOnVlan(Bridging::VlanId, bool) {}
  virtual void handleVlanDelete(Bridging::VlanId) {}
  virtual void showL2TableAll(unsigned) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, showL2TableAll); }
  virtual void handleVerify() { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, handleVerify); }
  virtual void verifyLearning(const Nexo::IntfId&, bool) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, verifyLearning); }
  virtual void verifyLearningOnVlan(Bridging::VlanId, bool) {
    ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, verifyLearningOnVlan);
  }
  virtual void verifyRemoteHost(const MacVlanPair&, std::uint64_t) {
    ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, verifyRemoteHost);
  }
  virtual void verifyNumRemoteHost(std::uint32_t) { ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, verifyNumRemoteHost); }
  virtual void handleParityEvent(const Orb::ParityEvent::Key&) {}
  virtual std::uint32_t getMaxRemoteMacs() { return ORB_UNIMPLEMENTED(OrbMacAddrSmHelper, getMaxRemoteMacs); }
  // A hint that the key's host is about to be programmed: a helper whose
  // table is much larger than the cache may start fetching its entry, so
  // that the waits of several keys overlap. Nothing by default.
  virtual void lookAheadAtHost(const MacVlanPair&) const {}

 private:
  HostOutcomeHandler hostOutcomeHandler_;
};

// LAGs in hardware. Every operation is optional: the defaults do nothing.
class OrbHelperLagSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperLagSm(const std::string& name = "OrbHelperLagSm") : OrbBaseHelper(name) {}

  virtual void hwInit() {}
  virtual void lacpEnabledIs(bool) {}
  virtual void maybeCreateLag(const Nexo::IntfId&) {}
  virtual void maybeDestroyLag(const Nexo::IntfId&) {}
  virtual void updateLagMember(const Nexo::IntfId&, const Nexo::IntfId&, bool, const Orb::OrbLagPortList&) {}
  virtual void updateLag(const Nexo::IntfId&, const Orb::OrbLagPortList&) {}
  // True when the chip layer, not the shared context, decides which
  // interfaces it manages.
  virtual bool intfManagedCheckOverride() { return false; }
  virtual bool isIntfManaged(const Nexo::IntfId&) { return false; }
  // Makes the LAG use (true) or stop using (false) the peer link's members.
  virtual void maybeShareLagMembership(const Nexo::IntfId&, const Nexo::IntfId&, bool) {}
  virtual void handleVerify() {}
  virtual void handleRetryVerify() {}
};

// Layer-2 adjacencies in hardware, one per distinct next-hop collection.
// An add answers addSuccess, or addBusy / addFull when the chip refused it;
// a refused adjacency is offered again later.
class OrbHelperL2Adj : public Orb::OrbBaseHelper {
 public:
  static constexpr std::uint32_t addSuccess = 0;
  static constexpr std::uint32_t addBusy = 1;
  static constexpr std::uint32_t addFull = 2;

  explicit OrbHelperL2Adj(const std::string& name = "OrbHelperL2Adj") : OrbBaseHelper(name) {}

  virtual std::uint32_t doAddAdjacency(const Orb::L2AdjKey&, const Orb::NextHopCollection&) {
    return ORB_UNIMPLEMENTED(OrbHelperL2Adj, doAddAdjacency);
  }
  virtual void doRemoveAdjacency(const Orb::L2AdjKey&) { ORB_UNIMPLEMENTED(OrbHelperL2Adj, doRemoveAdjacency); }
};

class OrbHelperRecircSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperRecircSm(const std::string& name = "OrbHelperRecircSm") : OrbBaseHelper(name) {}
};

class OrbHelperL3SourcePortDrop : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperL3SourcePortDrop(const std::string& name = "OrbHelperL3SourcePortDrop") : OrbBaseHelper(name) {}
};

class OrbHelperSourcePortFiltering : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperSourcePortFiltering(const std::string& name = "OrbHelperSourcePortFiltering")
      : OrbBaseHelper(name) {}
};

class OrbHelperCountersSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperCountersSm(const std::string& name = "OrbHelperCountersSm") : OrbBaseHelper(name) {}
};

class OrbVlanCountersHelper : public Orb::OrbBaseHelper {
 public:
  explicit OrbVlanCountersHelper(const std::string& name = "OrbVlanCountersHelper") : OrbBaseHelper(name) {}
};

class OrbSubIntfCountersHelper : public Orb::OrbBaseHelper {
 public:
  explicit OrbSubIntfCountersHelper(const std::string& name = "OrbSubIntfCountersHelper") : OrbBaseHelper(name) {}
};

// Sub-interfaces in hardware: the VLAN-translation entries that map a
// parent port's (or LAG's) 802.1Q encapsulation to the VLAN a sub-interface
// forwards in, and back for egress. An add answers an
// OrbTypes::TableAddStatus (0 success, 1 busy, 2 full; anything else
// failed).
class OrbHelperSubIntf : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperSubIntf(const std::string& name = "OrbHelperSubIntf") : OrbBaseHelper(name) {}

  virtual std::uint32_t doAddDot1qEncapToVsiMap(const Nexo::IntfId& /*subIntf*/, const Nexo::IntfId& /*parentIntf*/,
                                                Bridging::VlanIdOrNone, const Interface::SubIntfEncap&,
                                                bool /*isL2SubIntf*/) {
    return ORB_UNIMPLEMENTED(OrbHelperSubIntf, doAddDot1qEncapToVsiMap);
  }
  virtual void doDeleteDot1qEncapToVsiMap(const Nexo::IntfId& /*subIntf*/, const Nexo::IntfId& /*parentIntf*/,
                                          Bridging::VlanIdOrNone, const Interface::SubIntfEncap&,
                                          bool /*isL2SubIntf*/) {
    ORB_UNIMPLEMENTED(OrbHelperSubIntf, doDeleteDot1qEncapToVsiMap);
  }
  // A port joined (left) a LAG that carries sub-interfaces: its frames are
  // matched against the LAG's encapsulations.
  virtual void doAddPortToLag(const Nexo::IntfId& /*port*/, const Nexo::IntfId& /*lag*/) {}
  virtual void doDeletePortFromLag(const Nexo::IntfId& /*port*/) {}
  // After each change: whether any mapping is programmed, and whether any
  // sub-interface waits on a conflict.
  virtual void doUpdateStatuses(bool /*anyProgrammed*/, bool /*anyConflicted*/) {}
};

class OrbHelperPortStatusSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperPortStatusSm(const std::string& name = "OrbHelperPortStatusSm") : OrbBaseHelper(name) {}
};

class OrbHelperIgmpSnoopingSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIgmpSnoopingSm(const std::string& name = "OrbHelperIgmpSnoopingSm") : OrbBaseHelper(name) {}
};

class OrbHelperArpInspectionSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperArpInspectionSm(const std::string& name = "OrbHelperArpInspectionSm") : OrbBaseHelper(name) {}
};

class OrbHelperArpSuppressionSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperArpSuppressionSm(const std::string& name = "OrbHelperArpSuppressionSm") : OrbBaseHelper(name) {}
};

class OrbHelperDhcpSnoopingSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperDhcpSnoopingSm(const std::string& name = "OrbHelperDhcpSnoopingSm") : OrbBaseHelper(name) {}
};

class OrbHelperLoopProtectSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperLoopProtectSm(const std::string& name = "OrbHelperLoopProtectSm") : OrbBaseHelper(name) {}
};

class OrbHelperIpSourceGuardSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIpSourceGuardSm(const std::string& name = "OrbHelperIpSourceGuardSm") : OrbBaseHelper(name) {}
};

class OrbHelperIpSourceGuardVlan : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIpSourceGuardVlan(const std::string& name = "OrbHelperIpSourceGuardVlan") : OrbBaseHelper(name) {}
};

class OrbHelperDot1x : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperDot1x(const std::string& name = "OrbHelperDot1x") : OrbBaseHelper(name) {}
};

class OrbHelperIeeeReserved : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIeeeReserved(const std::string& name = "OrbHelperIeeeReserved") : OrbBaseHelper(name) {}
};

class OrbHelperL2Pt : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperL2Pt(const std::string& name = "OrbHelperL2Pt") : OrbBaseHelper(name) {}
};

class OrbHelperPw : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperPw(const std::string& name = "OrbHelperPw") : OrbBaseHelper(name) {}
};

class OrbHelperIntfVlanTagFormatDrop : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIntfVlanTagFormatDrop(const std::string& name = "OrbHelperIntfVlanTagFormatDrop")
      : OrbBaseHelper(name) {}
};

class OrbHelperIntfVlanMappingRequired : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperIntfVlanMappingRequired(const std::string& name = "OrbHelperIntfVlanMappingRequired")
      : OrbBaseHelper(name) {}
};

class OrbHelperL2CascadeEndPointSm : public Orb::OrbBaseHelper {
 public:
  explicit OrbHelperL2CascadeEndPointSm(const std::string& name = "OrbHelperL2CascadeEndPointSm")
      : OrbBaseHelper(name) {}
};

class L3CascadeEndPointSmHelper : public Orb::OrbBaseHelper {
 public:
  explicit L3CascadeEndPointSmHelper(const std::string& name = "L3CascadeEndPointSmHelper") : OrbBaseHelper(name) {}
};

class MirroringGreTunnelSmHelper : public Orb::OrbBaseHelper {
 public:
  explicit MirroringGreTunnelSmHelper(const std::string& name = "MirroringGreTunnelSmHelper") : OrbBaseHelper(name) {}
};

class PrivateVlanDriverMappingHelper : public Orb::OrbBaseHelper {
 public:
  explicit PrivateVlanDriverMappingHelper(const std::string& name = "PrivateVlanDriverMappingHelper")
      : OrbBaseHelper(name) {}
};

class MlagHelper : public Orb::OrbBaseHelper {
 public:
  explicit MlagHelper(const std::string& name = "MlagHelper") : OrbBaseHelper(name) {}
};

class OrbPktSmHelper : public Orb::OrbBaseHelper {
 public:
  explicit OrbPktSmHelper(const std::string& name = "OrbPktSmHelper") : OrbBaseHelper(name) {}
};

// A packet helper whose operations all do nothing, for agents without a
// packet driver.
class OrbPktSmHelperNull : public OrbPktSmHelper {
 public:
  explicit OrbPktSmHelperNull(const std::string& name = "OrbPktSmHelperNull") : OrbPktSmHelper(name) {}
};

}  // namespace OrbHelper
