// Port mirroring: turns the configured sessions into hardware mirror
// sessions through the chip layer's mirroring helper.
//
// Each session takes a hardware mirror group from the free queue (groups
// 0 to maxSupportedSessions - 1, handed out oldest first and given back at
// the tail) and a software id from the shared context's pool. A session is
// created in hardware once it has a destination it can use: a port that is
// not a LAG member, a LAG (whose members follow the LAG), or a GRE tunnel
// once the tunnel has resolved. Sources are programmed port by port (a LAG
// source by its members) while the chip has source slots left; a source
// that does not fit is marked overflowed and retried whenever slots may have
// come free, and the operator hears of the overflow once, and once more when
// every source fits again. Ports the chip refuses are retried on a clock.
//
// A source with an ACL copies only what the ACL permits; the ACL is looked
// up by name among the IP, IPv6 and MAC lists, and a source whose ACL does
// not exist copies nothing until it does.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "Orb/OrbMirAclConfigSm.h"
#include "Orb/OrbMirroringHelper.h"
#include "Orb/OrbVerify.h"
#include "platform/hive/Hive.h"
#include "platform/model/Acl.h"
#include "platform/model/Mirroring.h"
#include "platform/vex/Clock.h"

#include <cstdint>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Orb {

struct MirroringSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::MirroringSmHelper> orbHelper;
  Vex::Ptr<Mirroring::Config> mirroringConfig;
  Vex::Ptr<Mirroring::HwCapability> hwCapability;
  Vex::Ptr<Mirroring::HwStatus> mirroringStatus;
  Vex::Ptr<Mirroring::GreTunnelStatusDir> greTunnelStatusDir;
  Vex::Ptr<Acl::Config> aclConfig;
};

class MirroringSm;
class VexMirroringSession;

// One configured source of a session.
class VexSrcIntf {
 public:
  VexSrcIntf(VexMirroringSession& session, const Nexo::IntfId& intf, const Mirroring::SourceConfig& config);

  VexMirroringSession& session() const { return session_; }
  const Mirroring::SourceConfig& config() const { return config_; }
  // Takes ports the chip already holds (after a restart) as programmed.
  void adopt(const std::set<Nexo::IntfId>& ports) { programmed_.insert(ports.begin(), ports.end()); }

  const Nexo::IntfId& intf() const { return intf_; }
  Mirroring::Direction direction() const { return config_.direction; }
  const std::string& aclName() const { return config_.aclName; }
  std::uint32_t aclPriority() const { return config_.aclPriority; }
  bool overflowed() const { return overflowed_; }
  const std::set<Nexo::IntfId>& failedPorts() const { return failedPorts_; }
  const std::set<Nexo::IntfId>& programmedPorts() const { return programmed_; }
  // The ports it stands for: a LAG's members, or the port itself.
  std::vector<Nexo::IntfId> ports() const;
  // "active", "overflowed", "failed", "no acl", "cut-through", "inactive".
  std::string state() const;

  // A new configuration: a direction change takes the ports out and puts
  // them back in the new direction.
  void configIs(const Mirroring::SourceConfig& config);
  // Brings the hardware in line: every port in while the session is created
  // in hardware (and there is room), none otherwise.
  void sync();
  void addOrRemoveSource(bool add);
  // The ports it should hold in hardware now.
  std::vector<Nexo::IntfId> wantedPorts();
  void retryFailedPorts();
  // The ACL it filters by changed (or came or went).
  void handleAcl();
  void prepareToDie();

  void addFailedPort(const Nexo::IntfId& port);
  void delFailedPort(const Nexo::IntfId& port);
  // Programs a port it holds again, as this source wants it (another
  // source that shared the port has let it go).
  void reprogramPort(const Nexo::IntfId& port);

 private:
  bool checkOverflow(std::size_t needed);
  bool addPort(const Nexo::IntfId& port);
  void removePort(const Nexo::IntfId& port, bool lagMemberDeleted);
  bool applyAcl(const Nexo::IntfId& port, const std::string& aclName);
  void overflowedIs(bool overflowed);
  bool cutThroughConflict() const;

  VexMirroringSession& session_;
  Nexo::IntfId intf_;
  Mirroring::SourceConfig config_;
  std::set<Nexo::IntfId> programmed_;
  std::set<Nexo::IntfId> failedPorts_;
  bool overflowed_ = false;
  bool aclMissing_ = false;
  bool cutThrough_ = false;
};

// One configured destination of a session.
class VexTargetIntf {
 public:
  VexTargetIntf(VexMirroringSession& session, const Nexo::IntfId& intf);
  void adopt(const std::set<Nexo::IntfId>& ports) { programmed_.insert(ports.begin(), ports.end()); }

  const Nexo::IntfId& intf() const { return intf_; }
  const std::set<Nexo::IntfId>& programmedPorts() const { return programmed_; }
  const std::set<Nexo::IntfId>& failedPorts() const { return failedPorts_; }
  const std::set<Nexo::IntfId>& lagsInGreNextHop() const { return lagsInGreNextHop_; }
  const std::set<Nexo::IntfId>& lagsInGreNextHopVerify() const { return lagsInGreNextHopVerify_; }
  bool isGre() const { return intf_.kind() == Nexo::IntfId::Kind::tunnel; }
  // Whether the session may copy to it: not a LAG member, no overlap with
  // the session's sources.
  bool usable() const;
  bool overlapping() const;
  std::string state() const;

  // Brings its ports in hardware in line with what it stands for.
  void sync();
  void addOrRemoveTarget(bool add);
  void retryFailedPorts();
  // The GRE tunnel's next hops: the members of their LAGs are added.
  void greNextHopsIs(const std::vector<Mirroring::GreNextHop>& nextHops);
  void prepareToDie();

 private:
  std::vector<Nexo::IntfId> ports() const;

  VexMirroringSession& session_;
  Nexo::IntfId intf_;
  std::set<Nexo::IntfId> programmed_;
  std::set<Nexo::IntfId> failedPorts_;
  std::set<Nexo::IntfId> lagsInGreNextHop_;
  std::set<Nexo::IntfId> lagsInGreNextHopVerify_;
  // GRE next-hop LAG members programmed, by LAG.
  std::map<Nexo::IntfId, std::set<Nexo::IntfId>> greLagMembers_;
  std::vector<Mirroring::GreNextHop> nextHops_;
};

// A GRE destination's tunnel, as last programmed.
struct VexGreTunnel {
  Nexo::IntfId intf;
  Mirroring::GreTunnelStatus programmed;
};

class VexMirroringSession {
 public:
  static constexpr std::int32_t mirrorGroupInvalid() { return -1; }

  VexMirroringSession(MirroringSm& sm, const Vex::Ptr<Mirroring::Session>& config, std::uint32_t id);
  ~VexMirroringSession();

  MirroringSm& sm() const { return sm_; }
  const std::string& name() const { return name_; }
  const Vex::Ptr<Mirroring::Session>& config() const { return config_; }
  std::uint32_t id() const { return id_; }
  std::int32_t mirrorGroup() const { return mirrorGroup_; }
  void mirrorGroupIs(std::int32_t group) { mirrorGroup_ = group; }
  bool createdInHw() const { return createdInHw_; }
  bool valid() const { return mirrorGroup_ != mirrorGroupInvalid(); }
  bool isInternal() const { return config_->isInternal(); }
  const std::string& owner() const { return config_->owner(); }
  const Nexo::IntfId& destIntf() const { return destIntf_; }
  const std::map<Nexo::IntfId, std::unique_ptr<VexSrcIntf>>& srcIntf() const { return srcIntf_; }
  const std::map<Nexo::IntfId, std::unique_ptr<VexTargetIntf>>& targetIntf() const { return targetIntf_; }
  const std::unique_ptr<VexGreTunnel>& greTunnel() const { return greTunnel_; }
  const std::set<Nexo::IntfId>& aclAppliedInHw() const { return aclAppliedInHw_; }
  std::set<Nexo::IntfId>& aclAppliedInHw() { return aclAppliedInHw_; }

  // Brings the session in hardware in line with its configuration.
  void sync();
  // Takes everything out of hardware and gives the group back.
  void prepareToDie();
  // Adopts what the chip held from before a restart.
  void reconcile(const HwMirrorSession& held);
  // The sources and destinations touching a LAG whose members changed.
  void handleLag(const Nexo::IntfId& lag);
  void handleTunnel(const Nexo::IntfId& tunnel);
  void retryFailedPorts();
  void handleAcl(const std::string& aclName);
  // Gives the chip the session's attributes (truncation, header removal,
  // receive sampling, rate limit) that differ from what it holds; the ones
  // it refuses are noted and tried again with the failed ports.
  void syncAttributes();
  const std::vector<std::string>& attributesRefused() const { return attributesRefused_; }
  void verify(VerifyReport& report);
  Mirroring::SessionStatus status() const;

  // The session's sources' ports, for overlap checks.
  std::set<Nexo::IntfId> sourcePorts() const;
  // Whether a destination other than `except` holds the port in hardware:
  // a port named both alone and through its LAG is one destination port.
  bool targetPortHeld(const Nexo::IntfId& port, const VexTargetIntf* except) const;
  // The source other than `except` that holds the port in hardware, if any:
  // a port named alone and through its LAG is one source port.
  VexSrcIntf* sourceHolding(const Nexo::IntfId& port, const VexSrcIntf* except) const;

 private:
  class ConfigReactor;
  // The destination the session is created with: the first usable one.
  Nexo::IntfId wantedDest() const;
  bool ensureGroup();
  bool create(const Nexo::IntfId& dest);
  void removeFromHw();
  // Takes the session out of the chip; `failure` starts the trace when the
  // chip refuses (the two callers say it differently).
  void removeSessionInHw(const char* failure);
  void syncTargets();
  void syncSources();

  MirroringSm& sm_;
  Vex::Ptr<Mirroring::Session> config_;
  std::string name_;
  std::uint32_t id_;
  std::int32_t mirrorGroup_ = mirrorGroupInvalid();
  bool createdInHw_ = false;
  bool groupShortLogged_ = false;
  Nexo::IntfId destIntf_;
  std::map<Nexo::IntfId, std::unique_ptr<VexSrcIntf>> srcIntf_;
  std::map<Nexo::IntfId, std::unique_ptr<VexTargetIntf>> targetIntf_;
  std::unique_ptr<VexGreTunnel> greTunnel_;
  std::set<Nexo::IntfId> aclAppliedInHw_;
  // What the chip holds of each attribute, by SessionAttribute; none when
  // not known (after a restart) or refused.
  std::array<std::optional<std::uint64_t>, 5> attributesInHw_;
  std::vector<std::string> attributesRefused_;
  std::unique_ptr<ConfigReactor> reactor_;
};

class MirroringSm : public OrbBaseSm, public Verifiable {
 public:
  explicit MirroringSm(const MirroringSmInputs& inputs);
  ~MirroringSm() override;
  const char* fwkType() const override { return "Orb::MirroringSm"; }

  const MirroringSmInputs& inputs() const { return in_; }
  const Vex::Ptr<OrbHelper::MirroringSmHelper>& orbHelper() const { return in_.orbHelper; }
  // The helper, which must be there once mirroring runs.
  OrbHelper::MirroringSmHelper& platformHelper() const;
  const std::map<std::string, std::unique_ptr<VexMirroringSession>>& session() const { return sessions_; }
  VexMirroringSession* session(const std::string& name) const;

  // When set, sessions the chip holds that the configuration no longer
  // names stay: the agent restarts and the chip must keep mirroring.
  bool disableCleanupOnRestart() const { return disableCleanupOnRestart_; }
  void disableCleanupOnRestartIs(bool disable) { disableCleanupOnRestart_ = disable; }
  Vex::Seconds retryInterval() const { return retryInterval_; }
  void retryIntervalIs(Vex::Seconds seconds) { retryInterval_ = seconds; }

  // The free hardware mirror groups, by insertion index, oldest first.
  const std::map<std::uint32_t, std::uint8_t>& freeHwMirrorSession() const { return freeHwMirrorSession_; }
  void freeHwMirrorSessionEnq(std::uint8_t group);
  // The oldest free group; mirrorGroupInvalid() when none is left.
  std::int32_t freeHwMirrorSessionDeq();
  void freeHwMirrorSessionDel(std::uint32_t index);

  std::uint32_t sourcesOverflowed() const { return sourcesOverflowed_; }
  bool overflowLogged() const { return overflowLogged_; }

  void handleInitialized() override;
  void handleMaxSupportedSessions();
  void handleSession(const std::string& name);
  void handleLagToPort(const Nexo::IntfId& lag);
  void handlePortToLag(const Nexo::IntfId& port);
  void handleTunnelIdOrNextHop(const Nexo::IntfId& tunnel);
  void handleAcl(const std::string& aclName);
  void handleCutThroughMode();
  // The ACL of that name among the IP, IPv6 and MAC lists; null when none.
  Vex::Ptr<const Acl::AclConfig> aclConfig(const std::string& aclName) const;

  // Bookkeeping the sessions report to.
  void sourceOverflowIs(VexSrcIntf& src, bool overflowed);
  // Re-examines every overflowed source: slots may have come free.
  void reviewInvalidSources();
  void groupFreed(std::int32_t group);
  void failedPortsPending();
  void publishStatus(const VexMirroringSession& session);
  void aclResourceFull();

  std::string verifyName() const override { return "MirroringSm"; }
  void handleVerify(VerifyReport& report) override;

 private:
  class ConfigReactor;
  class CapabilityReactor;
  class OcsdReactor;
  class TunnelReactor;

  void fillFreeQueue(std::uint32_t sessions);
  void reconcileSessions();
  void destroySession(const std::string& name);
  void handleRetry();

  MirroringSmInputs in_;
  bool started_ = false;
  bool disableCleanupOnRestart_ = false;
  Vex::Seconds retryInterval_ = 1.0;
  std::map<std::uint32_t, std::uint8_t> freeHwMirrorSession_;
  std::uint32_t nextFreeIndex_ = 0;
  std::map<std::string, std::unique_ptr<VexMirroringSession>> sessions_;
  std::uint32_t sourcesOverflowed_ = 0;
  bool overflowLogged_ = false;
  bool aclFullLogged_ = false;
  bool reviewing_ = false;
  std::unique_ptr<ConfigReactor> configReactor_;
  std::unique_ptr<CapabilityReactor> capabilityReactor_;
  std::unique_ptr<OcsdReactor> ocsdReactor_;
  std::unique_ptr<TunnelReactor> tunnelReactor_;
  std::unique_ptr<MirAclTypeConfigs> aclConfigs_;
  Vex::Ptr<Vex::Clock> retryClock_;
};

Vex::Ptr<MirroringSm> mirroringSmFactory(const MirroringSmInputs& inputs);

// Mounts the mirroring machine's inputs and starts it.
class MirroringMounter {
 public:
  MirroringMounter(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<OrbCommonSmData>& ocsd,
                   const Vex::Ptr<OrbHelper::MirroringSmHelper>& orbHelper);
  void doMounts();
  MirroringSmInputs& inputs() { return inputs_; }
  Vex::Ptr<MirroringSm> doMountsComplete();

  static constexpr const char* configPath = "mirroring/config";
  static constexpr const char* hwCapabilityPath = "mirroring/hwCapability";
  static constexpr const char* hwStatusPath = "mirroring/hwStatus";
  static constexpr const char* greTunnelStatusPath = "mirroring/greTunnelStatus";
  static constexpr const char* aclConfigPath = "acl/config";

 private:
  Vex::Ptr<Hive::Root> hive_;
  MirroringSmInputs inputs_;
};

}  // namespace Orb
