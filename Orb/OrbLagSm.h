// Link aggregation: keeps the shared context's `lagToPort` and `portToLag`
// in step with the LAG interface status the state database publishes,
// drives the chip layer's LAG helper, and lets a memberless MLAG LAG borrow
// the MLAG peer link's members while its peer still carries it.
//
// A port belongs to one LAG only: the LAG that claims it last wins, and the
// port leaves its old LAG before the new LAG's list is applied. That holds
// for a LAG kept across an agent restart (`disableCleanupOnRestart`) too:
// though its status is gone, it gives up a port another LAG claims, and is
// destroyed once it has none left.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbVerify.h"
#include "Orb/OrbVerifyRetry.h"
#include "platform/hive/Hive.h"
#include "platform/model/LagStatus.h"
#include "platform/model/MlagStatus.h"

#include <map>
#include <memory>
#include <set>

namespace Orb {

// What the LAG machine reads and writes, filled by LagMounter from the state
// database or by the caller.
struct LagSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::OrbHelperLagSm> orbHelper;
  Vex::Ptr<Interface::EthLagIntfStatusDir> ethLagIntfStatusDir;
  Vex::Ptr<Lag::Input::IntfDeviceNameDir> lagInputIntfDeviceNameDir;
  Vex::Ptr<Hardware::Lag::Config> hwLagConfig;
  Vex::Ptr<Hardware::Lag::Status> hwLagStatus;
  Vex::Ptr<Mlag::Status> mlagStatus;
};

class LagSm : public OrbBaseSm, public Verifiable {
 public:
  explicit LagSm(const LagSmInputs& inputs);
  ~LagSm() override;
  const char* fwkType() const override { return "Orb::LagSm"; }

  const Vex::Ptr<OrbHelper::OrbHelperLagSm>& orbHelper() const { return in_.orbHelper; }
  const std::map<IntfId, OrbLagPortList>& localMember() const { return localMember_; }
  const std::set<IntfId>& sharePeerLinkWithLag() const { return sharePeerLinkWithLag_; }
  const IntfId& currentPeerLink() const { return currentPeerLink_; }
  // When set, a LAG whose status goes away keeps its hardware and shared
  // state: the agent is restarting and hardware must keep forwarding.
  bool disableCleanupOnRestart() const { return disableCleanupOnRestart_; }
  void disableCleanupOnRestartIs(bool disable) { disableCleanupOnRestart_ = disable; }

  void handleInitialized() override;

  bool isIntfManaged(const IntfId& intf);
  // A member of the LAG's status changed; without a member, all of them.
  void handleIntf(const IntfId& lag, const IntfId& member);
  void handleIntf(const IntfId& lag);
  void handleLagStatus(const IntfId& lag);
  void doUpdateMember(const IntfId& lag, const IntfId& member, bool add);
  void doUpdatePortList(const IntfId& lag, const OrbLagPortList& list);
  void doScrubMember(const IntfId& lag, const IntfId& member);
  void doCleanupLag(const IntfId& lag);
  void handleDeviceName(const IntfId& lag);

  void maybeSharePeerLinkWithLag(const IntfId& lag, const OrbLagPortList& list);
  void addOrRemovePeerLink(const IntfId& lag, const IntfId& peerLink, const OrbLagPortList& list, bool forceUpdate);
  void handleMlagStateOrPeerLinkIntf();
  void handleMlagIntfStatus(const IntfId& lag);
  void handleMlagFastMacRedirection();

  std::string verifyName() const override { return "LagSm"; }
  // A run that finds differences is repeated (handleRetryVerify) once the
  // LAGs stop changing; every member change renews it (doRequestVerify).
  void handleVerify(VerifyReport& report) override;
  void handleRetryVerify();
  void doRequestVerify();
  bool verifyRetryPending() const { return verifyRetry_.pending(); }
  Vex::Seconds verifyRetryInterval() const { return verifyRetry_.interval(); }
  void verifyRetryIntervalIs(Vex::Seconds seconds) { verifyRetry_.intervalIs(seconds); }

 private:
  class VexStatus;
  class DirReactor;
  class MlagReactor;
  class OcsdReactor;

  // The comparison of a verification run, without the chip layer's part.
  void compareLagTables(VerifyReport& report);

  LagSmInputs in_;
  std::map<IntfId, OrbLagPortList> localMember_;
  std::set<IntfId> sharePeerLinkWithLag_;
  IntfId currentPeerLink_;
  bool disableCleanupOnRestart_ = false;
  std::map<IntfId, std::unique_ptr<VexStatus>> vexStatus_;
  std::unique_ptr<DirReactor> dirReactor_;
  std::unique_ptr<MlagReactor> mlagReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
  VerifyRetry verifyRetry_{[this] { handleRetryVerify(); }};
};

Vex::Ptr<LagSm> lagSmFactory(const LagSmInputs& inputs);

// Mounts the LAG machine's inputs from the state database and starts the
// machine once they are all there.
class LagMounter {
 public:
  LagMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
             const Vex::Ptr<OrbHelper::OrbHelperLagSm>& orbHelper);
  void doMounts();
  LagSmInputs& inputs() { return inputs_; }
  // Builds the LagSm over the mounted inputs.
  Vex::Ptr<LagSm> doMountsComplete();

  static constexpr const char* ethLagIntfStatusPath = "interface/status/eth/lag";
  static constexpr const char* deviceNamePath = "lag/input/intfDeviceName";
  static constexpr const char* hwLagConfigPath = "hardware/lag/config";
  static constexpr const char* hwLagStatusPath = "hardware/lag/status";
  static constexpr const char* mlagStatusPath = "mlag/status";

 private:
  Vex::Ptr<Hive::Root> hive_;
  LagSmInputs inputs_;
};

}  // namespace Orb
