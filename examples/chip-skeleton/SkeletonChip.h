// A chip layer reduced to its shape: the VLAN, LAG and MAC helpers of a new
// chip, each writing one line for every request libOrb makes of it instead
// of touching hardware. Start a real port here: replace each print with the
// chip's SDK call and keep the answers (acknowledgements, status codes).
#pragma once

#include "Orb/OrbHelper.h"
#include "Orb/OrbVlanHelper.h"
#include "platform/vex/Clock.h"

#include <set>
#include <string>
#include <vector>

namespace Skeleton {

// What the chip layer was asked, one line a request: printed as it comes,
// and kept for the program's checks.
class Transcript {
 public:
  void line(const std::string& text);
  bool has(const std::string& text) const;

 private:
  std::vector<std::string> lines_;
};

// VLANs: every request carries a generation number that must be
// acknowledged through updateVlanDone. Hardware answers later, so the
// acknowledgement comes on the event loop's next turn, never from inside
// doUpdateVlan.
class VlanHelper : public Orb::VlanHelper {
 public:
  explicit VlanHelper(Transcript& out);
  ~VlanHelper() override;

  void doCreateHwVlan(Bridging::VlanId vlanId) override;
  void doUpdateVlan(Bridging::VlanId vlanId) override;
  void doUpdateVlanFid(Bridging::VlanId vlanId, Bridging::Fid fid) override;
  void verify() override;

 private:
  void acknowledge();

  Transcript& out_;
  Vex::Ptr<Vex::Clock> ackClock_;
  std::set<Bridging::VlanId> awaitingAck_;
};

// LAGs: membership as the LAG machine settles it.
class LagHelper : public OrbHelper::OrbHelperLagSm {
 public:
  explicit LagHelper(Transcript& out) : OrbHelperLagSm("SkeletonLagHelper"), out_(out) {}

  void maybeCreateLag(const Nexo::IntfId& lag) override;
  void maybeDestroyLag(const Nexo::IntfId& lag) override;
  void updateLag(const Nexo::IntfId& lag, const Orb::OrbLagPortList& list) override;
  void maybeShareLagMembership(const Nexo::IntfId& lag, const Nexo::IntfId& peerLink, bool share) override;

 private:
  Transcript& out_;
};

// The MAC table: adds and removes answer with a status code (0 done);
// everything the MAC machine may ask at start-up is implemented, because an
// operation left to the base class stops the process.
class MacHelper : public OrbHelper::OrbHelperMacAddrSm {
 public:
  explicit MacHelper(Transcript& out) : OrbHelperMacAddrSm("SkeletonMacHelper"), out_(out) {}

  std::uint32_t addHost(const MacVlanPair& key, const Nexo::IntfId& intf, std::uint32_t tunnelId, bool flag,
                        EntryType entryType) override;
  std::uint32_t removeHost(const MacVlanPair& key, EntryType entryType) override;
  std::uint32_t addRemoteHost(const MacVlanPair& key, const Nexo::IntfId& intf, std::uint64_t nextHopId,
                              std::uint32_t tunnelId, bool flag, EntryType entryType, bool mpls) override;
  void flushVlanPort(int vlan, const Nexo::IntfId& intf) override;
  void flushVlan(Bridging::VlanId vlanId) override;
  void flushVlanLag(int vlan, const Nexo::IntfId& lag) override;
  void flushAll() override;
  void removeLag(const Nexo::IntfId& lag) override;
  void configureAgingTime(std::uint32_t seconds) override;
  void configureSourceCheckCPUMac(bool enable) override;
  void enableLearning(const Nexo::IntfId& intf, bool enable) override;
  void showL2TableAll(unsigned) override {}
  void handleVerify() override {}
  void verifyLearning(const Nexo::IntfId&, bool) override {}
  void verifyLearningOnVlan(Bridging::VlanId, bool) override {}
  void verifyRemoteHost(const MacVlanPair&, std::uint64_t) override {}
  void verifyNumRemoteHost(std::uint32_t) override {}
  std::uint32_t getMaxRemoteMacs() override { return 1024; }

  std::size_t hostsAdded() const { return hostsAdded_; }

 private:
  Transcript& out_;
  std::size_t hostsAdded_ = 0;
};

}  // namespace Skeleton
