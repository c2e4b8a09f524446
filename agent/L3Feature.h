// Layer-3 forwarding state: the status model, the soft chip's adjacency
// table behind the adjacency helper, the machine that programs adjacencies,
// and the commands that publish what the routing and ARP agents would (VRFs,
// routed interfaces, FECs and their vias, neighbours, routes and watches).
#pragma once

#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL2AdjBinder.h"
#include "Orb/OrbL2AdjSm.h"
#include "Orb/OrbL3Types.h"
#include "Orb/OrbResilientEcmpTypes.h"
#include "agent/Feature.h"
#include "agent/RouteRefusals.h"
#include "chip/softchip/SoftAdj.h"
#include "chip/softchip/SoftRoute.h"

#include <map>
#include <memory>
#include <set>

namespace Agent {

class L3Feature : public Feature {
 public:
  explicit L3Feature(const AgentCore& core);
  ~L3Feature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::L3Status>& l3Status() const { return l3Status_; }
  const Vex::Ptr<Orb::OrbInternalL3Status>& internal() const { return internal_; }
  const Vex::Ptr<SoftChip::SoftAdjHelper>& helper() const { return adjHelper_; }
  const Vex::Ptr<SoftChip::SoftRouteHelper>& routeHelper() const { return routeHelper_; }

  // The router MAC the chip routes frames to until `ip router-mac` changes it.
  static constexpr std::uint64_t defaultRouterMac = 0x020000000001ULL;
  static constexpr long maxResilientSlots = 4096;
  // Rows each VRF's shared-memory resilient ECMP table holds, per family.
  static constexpr std::size_t resilientRoutesPerVrf = 16384;
  // How long a route or routed interface the chip was busy for waits
  // before it is offered again: as long as a busy adjacency.
  static constexpr Vex::Seconds busyRetryDelay = Orb::L2AdjSm::busyRetryDelay;
  const RouteRefusals& routeRefusals() const { return *routeRefusals_; }

 private:
  class WatchReactor;
  class Watch6Reactor;
  class ReviewReactor;
  class ChipL3Reactor;
  class ChipRouteReactor;
  class DedupReactor;

  void registerConfigCommands();
  void registerRouteCommands();
  void registerShowCommands();
  void showRouteSummary(std::ostream& out, bool json) const;
  void registerResilientCommands();

  // Writers of what the routing and ARP agents publish. Each checks its
  // input first and throws CommandError before changing anything.
  Orb::VrfId vrfIs(const L3::VrfName& name);
  Orb::VrfId vrfNamed(const std::string& name) const;
  void intfVrfIs(const Nexo::IntfId& intf, Orb::VrfId vrf);
  // Makes `intf` no longer routed; refused while FEC vias use it, as
  // `doing` says.
  void intfVrfDel(const Nexo::IntfId& intf, const std::string& doing);
  // A FEC's vias are all IPv4 (Orb::Via) or all IPv6 (Orb::Via6).
  template <class ViaT>
  void fecViaIs(Pond::Fib::GlobalFecId fec, const ViaT& via, std::uint32_t weight);
  void fecDel(Pond::Fib::GlobalFecId fec);
  template <class ViaT>
  void fecViaDel(Pond::Fib::GlobalFecId fec, const ViaT& via);
  // Takes the FEC off the users of the via's next hop and interface.
  template <class ViaT>
  void viaUsersDel(Pond::Fib::GlobalFecId fec, const ViaT& via, bool nextHop, bool intf);
  void neighborIs(const Orb::VrfAndIpAddr& addr, const Orb::NeighborInfo& neighbor);
  void neighborIs(const Orb::VrfAndIp6Addr& addr, const Orb::NeighborInfo& neighbor);
  void neighborDel(const Orb::VrfAndIpAddr& addr);
  void neighborDel(const Orb::VrfAndIp6Addr& addr);
  // Rebuilds the FEC's collection from its vias and the neighbours.
  void fecReview(Pond::Fib::GlobalFecId fec);
  Pond::Fib::GlobalFecId knownFec(const std::string& text) const;
  // Writes the FEC to the chip over its current adjacency (or takes it out
  // when it has none).
  void fecToChip(Pond::Fib::GlobalFecId fec);
  // Makes the FEC resilient over `slots` slots; 0 makes it ordinary again.
  void fecResilientIs(Pond::Fib::GlobalFecId fec, std::uint32_t slots);
  void routeToChip(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, const Orb::AdjInfo* info);
  void retryRefusedRoutes();
  // Publishes how much of a layer-3 chip table is used, as the chip layer
  // does: L3Status::hwResourceUtilization under the table's name.
  void publishUsage(const SoftChip::SoftTable& table);
  // Publishes, or takes back, the route's row in its VRF's shared-memory
  // resilient ECMP table: a route has a row while its FEC is resilient.
  void resilientRowIs(Orb::VrfId vrf, const SoftChip::SoftRouteKey& key, const Orb::AdjInfo* info);
  // The same for every route over `fec`.
  void resilientRowsIs(Pond::Fib::GlobalFecId fec);
  // The VRF's resilient ECMP table of one family, bound as its writer on
  // first use.
  template <class Status>
  Status& writerOf(std::map<Orb::VrfId, Vex::Ptr<Status>>& held, Orb::VrfId vrf, const char* name);

  Vex::Ptr<Orb::L3Status> l3Status_;
  Vex::Ptr<Orb::OrbInternalL3Status> internal_;
  Vex::Ptr<Orb::RouteReactorConfig> routeConfig_;
  Vex::Ptr<Orb::Route6ReactorConfig> route6Config_;
  Vex::Ptr<Orb::RouteReactorStatus> routeStatus_;
  Vex::Ptr<Orb::Route6ReactorStatus> route6Status_;
  Vex::Ptr<SoftChip::SoftAdjHelper> adjHelper_;
  Vex::Ptr<Orb::L2AdjSm> l2AdjSm_;
  std::unique_ptr<Orb::L2AdjBinder> binder_;
  std::unique_ptr<WatchReactor> watchReactor_;
  std::unique_ptr<Watch6Reactor> watch6Reactor_;
  std::unique_ptr<ReviewReactor> reviewReactor_;
  Vex::Ptr<SoftChip::SoftRouteHelper> routeHelper_;
  std::unique_ptr<ChipL3Reactor> chipL3Reactor_;
  std::unique_ptr<ChipRouteReactor> chipRouteReactor_;
  // Routes ask the chip which resilient FEC they may share.
  Vex::Ptr<Orb::ResilientEcmpDedupingRequestResponse> dedup_;
  std::unique_ptr<DedupReactor> dedupReactor_;
  // Resilient FECs and their slot counts.
  std::map<Pond::Fib::GlobalFecId, std::uint32_t> resilientSlots_;
  // Per VRF, the routes over resilient FECs as other agents read them.
  std::map<Orb::VrfId, Vex::Ptr<Orb::ResilientEcmpStatus>> resilientStatus_;
  std::map<Orb::VrfId, Vex::Ptr<Orb::ResilientEcmpStatus6>> resilientStatus6_;
  // Rows a full table refused (the route stays in the chip all the same).
  std::uint64_t resilientRowsRefused_ = 0;
  // Routes the chip refused, written again when a route leaves, when a FEC
  // is written, and shortly after a busy answer.
  std::unique_ptr<RouteRefusals> routeRefusals_;
  Vex::Ptr<Vex::Clock> routeRetryClock_;
};

}  // namespace Agent
