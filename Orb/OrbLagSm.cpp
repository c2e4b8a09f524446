#include "Orb/OrbLagSm.h"

#include "Orb/OrbTrace.h"

#include <fmt/format.h>

namespace Orb {

namespace {

constexpr const char* lagSource = "/src/Orb/OrbLagSm";

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbLagSm");
  return handle;
}

std::string portsText(const OrbLagPortList& list) {
  std::string text;
  for (const auto& [port, state] : list.ports) {
    text += ' ';
    text += port.stringValue();
  }
  return text.empty() ? " none" : text;
}

}  // namespace

// --- reactors ---

class LagSm::VexStatus : public Vex::Reactor<Interface::EthLagIntfStatus, LagSm> {
 public:
  using Reactor::Reactor;
  void handleMember(const IntfId& member) override {
    react([&] { owner()->handleIntf(notifier()->intf(), member); });
  }
  void handleDeviceName() override {
    react([this] { owner()->handleDeviceName(notifier()->intf()); });
  }
};

class LagSm::DirReactor : public Vex::Reactor<Interface::EthLagIntfStatusDir, LagSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(IntfStatus, IntfId, handleLagStatus)
};

class LagSm::MlagReactor : public Vex::Reactor<Mlag::Status, LagSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT(MlagStateValid, handleMlagStateOrPeerLinkIntf)
  VEX_REACT(PeerLinkIntf, handleMlagStateOrPeerLinkIntf)
  VEX_REACT(FastMacRedirection, handleMlagFastMacRedirection)
  VEX_REACT_KEY(IntfStatus, IntfId, handleMlagIntfStatus)
};

// An interface that becomes known (or goes) may change what a LAG holds.
class LagSm::OcsdReactor : public Vex::Reactor<OrbCommonSmData, LagSm> {
 public:
  using Reactor::Reactor;
  void handleIntf(const IntfId& intf) override {
    react([&] {
      for (const auto& [lag, status] : owner()->in_.ethLagIntfStatusDir->intfStatus()) {
        if (status->member(intf)) owner()->handleIntf(lag, intf);
      }
    });
  }
  void handleOperationalMode() override {
    react([this] { BLIP(trace(), 5, "operational mode {}", Vex::valueToStrep(notifier()->operationalMode())); });
  }
};

// --- LagSm ---

LagSm::LagSm(const LagSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT_AT(lagSource, in_.hwLagConfig, "hwLagConfig()");
  ORB_ASSERT_AT(lagSource, in_.hwLagStatus, "hwLagStatus()");
  dirReactor_ = std::make_unique<DirReactor>(this, in_.ethLagIntfStatusDir);
  mlagReactor_ = std::make_unique<MlagReactor>(this, in_.mlagStatus);
  ocsdReactor_ = std::make_unique<OcsdReactor>(this, inputs.ocsd);
  if (auto verify = inputs.ocsd->verifySm()) verify->verifiableIs(this);
  initializedIs(true);
}

LagSm::~LagSm() {
  vexDoZombieReactors(true);
  if (ocsd() && ocsd()->verifySm()) ocsd()->verifySm()->verifiableDel(this);
  vexStatus_.clear();
  dirReactor_.reset();
  mlagReactor_.reset();
  ocsdReactor_.reset();
}

void LagSm::handleInitialized() {
  in_.orbHelper->hwInit();
  currentPeerLink_ = in_.mlagStatus->peerLinkIntf();
  for (const auto& [lag, status] : in_.ethLagIntfStatusDir->intfStatus()) handleLagStatus(lag);
}

bool LagSm::isIntfManaged(const IntfId& intf) {
  if (in_.orbHelper->intfManagedCheckOverride()) return in_.orbHelper->isIntfManaged(intf);
  return ocsd()->intfHas(intf);
}

void LagSm::handleLagStatus(const IntfId& lag) {
  auto status = in_.ethLagIntfStatusDir->intfStatus(lag);
  if (status) {
    auto& reactor = vexStatus_[lag];
    if (!reactor || reactor->notifier() != status) reactor = std::make_unique<VexStatus>(this, status);
    // The LAG is an interface of the switch like any port: VLANs and other
    // features take it once the shared context knows it.
    ocsd()->intfIs(lag, true);
    handleIntf(lag);
    handleDeviceName(lag);
    return;
  }
  // The LAG's status went away.
  vexStatus_.erase(lag);
  if (disableCleanupOnRestart_) {
    BLIP(trace(), 3, "Disabling Orb cleanup in case of restart {}", lag.stringValue());
    return;
  }
  doCleanupLag(lag);
  ocsd()->intfDel(lag);
  BLIP(trace(), 5, "Removing deviceName input for {}", lag.stringValue());
  in_.lagInputIntfDeviceNameDir->deviceNameDel(lag);
}

void LagSm::handleIntf(const IntfId& lag, const IntfId& member) {
  // The MLAG peer's ports carry the LAG on the peer switch, not here.
  if (member.isPeerEthernet() || !isIntfManaged(member)) return;
  auto status = in_.ethLagIntfStatusDir->intfStatus(lag);
  doUpdateMember(lag, member, status && status->member(member));
  if (verifyRetry_.pending()) doRequestVerify();
}

void LagSm::handleIntf(const IntfId& lag) {
  std::set<IntfId> members;
  if (auto status = in_.ethLagIntfStatusDir->intfStatus(lag))
    members.insert(status->member().begin(), status->member().end());
  for (const auto& [port, state] : ocsd()->lagToPort(lag).ports) members.insert(port);
  for (const auto& member : members) handleIntf(lag, member);
}

void LagSm::doUpdateMember(const IntfId& lag, const IntfId& member, bool add) {
  OrbLagPortList list = ocsd()->lagToPort(lag);
  if (add) {
    list.portIs(member, OrbLagPort{true, true});
  } else {
    list.portDel(member);
  }
  BLIP(trace(), 5, "doUpdateMember {} infName {} add {}", lag.stringValue(), member.stringValue(), add);
  if (list == ocsd()->lagToPort(lag)) return;
  // A memberless LAG stays while MLAG may keep it alive through the peer link.
  if (!list && !in_.mlagStatus->fastMacRedirection()) {
    doCleanupLag(lag);
  } else {
    doUpdatePortList(lag, list);
  }
}

void LagSm::doUpdatePortList(const IntfId& lag, const OrbLagPortList& list) {
  for (const auto& [member, state] : list.ports) doScrubMember(lag, member);
  maybeSharePeerLinkWithLag(lag, list);
  localMember_[lag] = list;
  in_.orbHelper->maybeCreateLag(lag);
  in_.orbHelper->updateLag(lag, list);
  OrbLagPortList old = ocsd()->lagToPort(lag);
  ocsd()->lagToPortIs(lag, list);
  for (const auto& [port, state] : old.ports) {
    if (!list.ports.count(port)) {
      BLIP(trace(), 5, "{} deleting {}", lag.stringValue(), port.stringValue());
      ocsd()->portToLagDel(port);
    }
  }
  for (const auto& [port, state] : list.ports) {
    BLIP(trace(), 5, "{} adding {}", lag.stringValue(), port.stringValue());
    ocsd()->portToLagIs(port, lag);
  }
  handleDeviceName(lag);
}

void LagSm::doScrubMember(const IntfId& lag, const IntfId& member) {
  const IntfId& other = ocsd()->portToLag(member);
  if (other.empty() || other == lag) return;
  IntfId previous = other;  // doUpdateMember rewrites portToLag
  if (vexStatus_.count(previous)) {
    BLIP(trace(), 3, "{} duplicate lag found {} for {}", lag.stringValue(), previous.stringValue(),
         member.stringValue());
  } else {
    // A LAG kept across a restart has no status to say the port left it, so
    // it must give the port up here: a port is in one LAG only, in the
    // shared maps as in hardware.
    if (!ocsd()->lagToPort(previous).ports.count(member)) return;
    BLIP(trace(), 3, "{} takes {} from kept lag {}", lag.stringValue(), member.stringValue(), previous.stringValue());
  }
  doUpdateMember(previous, member, false);
}

void LagSm::doCleanupLag(const IntfId& lag) {
  BLIP(trace(), 5, "doCleanupLag {}", lag.stringValue());
  OrbLagPortList list = ocsd()->lagToPort(lag);
  for (const auto& [port, state] : list.ports) {
    ORB_ASSERT_AT(lagSource, ocsd()->portToLag(port) == lag, "ocsd()->portToLag( i.key() ) == intf()");
    ocsd()->portToLagDel(port);
  }
  ocsd()->lagToPortDel(lag);
  localMember_.erase(lag);
  sharePeerLinkWithLag_.erase(lag);
  in_.orbHelper->maybeDestroyLag(lag);
}

void LagSm::handleDeviceName(const IntfId& lag) {
  auto status = in_.ethLagIntfStatusDir->intfStatus(lag);
  if (!status) return;
  std::string name = status->deviceName().empty() ? lag.stringValue() : status->deviceName();
  if (in_.lagInputIntfDeviceNameDir->deviceName(lag) == name) return;
  BLIP(trace(), 5, "Added deviceName {} input for {}", name, lag.stringValue());
  in_.lagInputIntfDeviceNameDir->deviceNameIs(lag, name);
}

// --- MLAG peer-link sharing ---

void LagSm::maybeSharePeerLinkWithLag(const IntfId& lag, const OrbLagPortList& list) {
  BLIP(trace(), 7, "LagSm::maybeSharePeerLinkWithLag {}", lag.stringValue());
  if (!in_.mlagStatus->mlagStateValid()) {
    BLIP(trace(), 7, "{} ignore since MLAG state is invalid.", lag.stringValue());
    return;
  }
  if (in_.mlagStatus->peerLinkIntf().empty()) {
    BLIP(trace(), 7, "{} ignore since peer-link is invalid.", lag.stringValue());
    return;
  }
  addOrRemovePeerLink(lag, in_.mlagStatus->peerLinkIntf(), list, false);
}

void LagSm::addOrRemovePeerLink(const IntfId& lag, const IntfId& peerLink, const OrbLagPortList& list,
                                bool forceUpdate) {
  bool hasIntfStatus = in_.mlagStatus->intfStatusHas(lag);
  const Mlag::IntfStatus& intfStatus = in_.mlagStatus->intfStatus(lag);
  BLIP(trace(), 6, " lag: {} MLAG intfStatus: {} portList:{} peer-link: {} peer-link portList:{} forceUpdate: {}",
       lag.stringValue(), Vex::toStrep(intfStatus), portsText(list), peerLink.stringValue(),
       portsText(ocsd()->lagToPort(peerLink)), forceUpdate);
  bool share = in_.mlagStatus->fastMacRedirection() && hasIntfStatus && !list &&
               intfStatus.localLinkStatus == Mlag::linkDown && intfStatus.localProtocolStatus == Mlag::linkDown &&
               intfStatus.peerLinkStatus == Mlag::linkUp;
  if (share) {
    if (!forceUpdate && sharePeerLinkWithLag_.count(lag)) {
      BLIP(trace(), 7, "{} already shares {} members.", lag.stringValue(), peerLink.stringValue());
      return;
    }
    BLIP(trace(), 5, " updating LAG membership {} to add {}", lag.stringValue(), peerLink.stringValue());
    in_.orbHelper->maybeShareLagMembership(lag, peerLink, true);
    sharePeerLinkWithLag_.insert(lag);
    return;
  }
  if (!forceUpdate && !sharePeerLinkWithLag_.count(lag)) {
    BLIP(trace(), 7, "{} doesn't share {} anymore.", lag.stringValue(), peerLink.stringValue());
    return;
  }
  BLIP(trace(), 5, " updating LAG membership to remove {} from {} since MLAG status is {}", peerLink.stringValue(),
       lag.stringValue(), Vex::toStrep(intfStatus));
  in_.orbHelper->maybeShareLagMembership(lag, peerLink, false);
  sharePeerLinkWithLag_.erase(lag);
}

void LagSm::handleMlagStateOrPeerLinkIntf() {
  IntfId peerLink = in_.mlagStatus->peerLinkIntf();
  if (peerLink != currentPeerLink_) {
    for (const auto& lag : sharePeerLinkWithLag_) {
      BLIP(trace(), 5, "Stop sharing members of peer-link {} from lag {}", currentPeerLink_.stringValue(),
           lag.stringValue());
      in_.orbHelper->maybeShareLagMembership(lag, currentPeerLink_, false);
    }
    sharePeerLinkWithLag_.clear();
  }
  currentPeerLink_ = peerLink;
  for (const auto& [lag, status] : in_.ethLagIntfStatusDir->intfStatus()) {
    if (!in_.mlagStatus->mlagStateValid() || peerLink.empty()) {
      BLIP(trace(), 5, "MLAG {} will not share members of peer-link {}", lag.stringValue(), peerLink.stringValue());
      if (sharePeerLinkWithLag_.count(lag)) {
        in_.orbHelper->maybeShareLagMembership(lag, peerLink, false);
        sharePeerLinkWithLag_.erase(lag);
      }
      continue;
    }
    BLIP(trace(), 6, "Check if we need to update the peer-link members for lag {}", lag.stringValue());
    addOrRemovePeerLink(lag, peerLink, ocsd()->lagToPort(lag), true);
  }
}

void LagSm::handleMlagIntfStatus(const IntfId& lag) {
  if (!in_.mlagStatus->mlagStateValid() || currentPeerLink_.empty()) return;
  addOrRemovePeerLink(lag, currentPeerLink_, ocsd()->lagToPort(lag), false);
}

void LagSm::handleMlagFastMacRedirection() {
  BLIP(trace(), 5, " fastMacRedirection {}", in_.mlagStatus->fastMacRedirection());
  handleMlagStateOrPeerLinkIntf();
}

// --- verification ---

void LagSm::handleVerify(VerifyReport& report) {
  in_.orbHelper->handleVerify();
  compareLagTables(report);
  verifyRetry_.pendingIs(!report.lines().empty());
}

void LagSm::doRequestVerify() {
  BLIP(trace(), 7, "LagSm::doRequestVerify renews the pending retry");
  verifyRetry_.renew();
}

void LagSm::handleRetryVerify() {
  BLIP(trace(), 5, "LagSm::handleRetryVerify");
  in_.orbHelper->handleRetryVerify();
  VerifyReport report;
  compareLagTables(report);
  if (auto verifyData = ocsd()->verifyData()) verifyData->outputIs(verifyName(), report.lines());
}

void LagSm::compareLagTables(VerifyReport& report) {
  for (const auto& [lag, status] : in_.ethLagIntfStatusDir->intfStatus()) {
    std::string name = lag.stringValue();
    bool anyManaged = false;
    for (const auto& member : status->member()) {
      if (!isIntfManaged(member)) continue;
      anyManaged = true;
      const IntfId& inContext = ocsd()->portToLag(member);
      if (inContext != lag) {
        report.mismatch(
            fmt::format("Lag {}, member {}, Lag value for member {} is wrong: {}, in portToLag collection\n", name,
                        member.stringValue(), member.stringValue(), inContext.stringValue()));
      }
    }
    if (anyManaged && !ocsd()->lagToPortHas(lag)) {
      report.mismatch(fmt::format("Lag {} is in ethLagIntfStatusDir but missing in lagToPort collection\n", name));
    }
    if (!in_.lagInputIntfDeviceNameDir->deviceNameHas(lag)) {
      report.mismatch(
          fmt::format("Lag {} is in ethLagIntfStatusDir but missing in lagInputIntfDeviceNameDir collection\n", name));
    } else {
      std::string expected = status->deviceName().empty() ? name : status->deviceName();
      const auto& actual = in_.lagInputIntfDeviceNameDir->deviceName(lag);
      if (actual != expected) {
        report.mismatch(fmt::format(
            "Lag {}, device name {} in lagInputIntfDeviceNameDir differs to the one in ethLagIntfStatusDir: {}", name,
            actual, expected));
      }
    }
  }
  for (const auto& [lag, list] : ocsd()->lagToPort()) {
    if (!in_.ethLagIntfStatusDir->intfStatusHas(lag) && !disableCleanupOnRestart_) {
      report.mismatch(
          fmt::format("Lag {} is in lagToPort but missing in ethLagIntfStatusDir collection\n", lag.stringValue()));
    }
    for (const auto& [port, state] : list.ports) {
      if (ocsd()->portToLag(port) != lag) {
        report.mismatch(fmt::format("Lag {}, member {} is in lagToPort but missing in portToLag collection\n",
                                    lag.stringValue(), port.stringValue()));
      }
    }
  }
  for (const auto& [port, lag] : ocsd()->portToLag()) {
    if (!ocsd()->lagToPortHas(lag)) {
      report.mismatch(
          fmt::format("Lag {}, member {} is missing in lagToPort collection\n", lag.stringValue(), port.stringValue()));
    }
  }
  std::vector<IntfId> stale;
  for (const auto& [lag, name] : in_.lagInputIntfDeviceNameDir->deviceName()) {
    if (!in_.ethLagIntfStatusDir->intfStatusHas(lag)) {
      report.mismatch(fmt::format(
          "Lag {} is in lagInputIntfDeviceNameDir but missing in ethLagIntfStatusDir collection\n", lag.stringValue()));
      stale.push_back(lag);
    }
  }
  for (const auto& lag : stale) {
    BLIP(trace(), 3, "clearing stale lagInputIntfDeviceNameDir entry for {}", lag.stringValue());
    in_.lagInputIntfDeviceNameDir->deviceNameDel(lag);
  }
}

Vex::Ptr<LagSm> lagSmFactory(const LagSmInputs& inputs) { return Vex::make<LagSm>(inputs); }

// --- mounting ---

LagMounter::LagMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                       const Vex::Ptr<OrbHelper::OrbHelperLagSm>& orbHelper)
    : hive_(hive) {
  inputs_.ocsd = ocsd;
  inputs_.orbHelper = orbHelper;
}

void LagMounter::doMounts() {
  inputs_.ethLagIntfStatusDir =
      hive_->mount<Interface::EthLagIntfStatusDir>(ethLagIntfStatusPath, "ethLagIntfStatusDir");
  inputs_.lagInputIntfDeviceNameDir =
      hive_->mount<Lag::Input::IntfDeviceNameDir>(deviceNamePath, "lagInputIntfDeviceNameDir");
  inputs_.hwLagConfig = hive_->mount<Hardware::Lag::Config>(hwLagConfigPath, "hwLagConfig");
  inputs_.hwLagStatus = hive_->mount<Hardware::Lag::Status>(hwLagStatusPath, "hwLagStatus");
  inputs_.mlagStatus = hive_->mount<Mlag::Status>(mlagStatusPath, "mlagStatus");
}

Vex::Ptr<LagSm> LagMounter::doMountsComplete() { return lagSmFactory(inputs_); }

}  // namespace Orb
