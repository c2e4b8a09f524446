// Layer-3 forwarding state: the status model, the soft chip's adjacency
// table behind the adjacency helper, the machine that programs adjacencies,
// and the commands that publish what the routing and ARP agents would (VRFs,
// routed interfaces, FECs and their vias, neighbours, routes and watches).
#pragma once

#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL2AdjBinder.h"
#include "Orb/OrbL2AdjSm.h"
#include "Orb/OrbL3Types.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftAdj.h"

#include <map>
#include <memory>

namespace Agent {

class L3Feature : public Feature {
 public:
  explicit L3Feature(const AgentCore& core);
  ~L3Feature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::L3Status>& l3Status() const { return l3Status_; }
  const Vex::Ptr<Orb::OrbInternalL3Status>& internal() const { return internal_; }
  const Vex::Ptr<SoftChip::SoftAdjHelper>& helper() const { return adjHelper_; }

 private:
  class WatchReactor;
  class Watch6Reactor;
  class ReviewReactor;

  void registerConfigCommands();
  void registerRouteCommands();
  void registerShowCommands();

  // Writers of what the routing and ARP agents publish. Each checks its
  // input first and throws CommandError before changing anything.
  Orb::VrfId vrfIs(const L3::VrfName& name);
  Orb::VrfId vrfNamed(const std::string& name) const;
  void intfVrfIs(const Nexo::IntfId& intf, Orb::VrfId vrf);
  void fecViaIs(Pond::Fib::GlobalFecId fec, const Orb::Via& via, std::uint32_t weight);
  void fecDel(Pond::Fib::GlobalFecId fec);
  void neighborIs(const Orb::VrfAndIpAddr& addr, const Orb::NeighborInfo& neighbor);
  void neighborDel(const Orb::VrfAndIpAddr& addr);
  // Rebuilds the FEC's collection from its vias and the neighbours.
  void fecReview(Pond::Fib::GlobalFecId fec);
  Pond::Fib::GlobalFecId knownFec(const std::string& text) const;

  Vex::Ptr<Orb::L3Status> l3Status_;
  Vex::Ptr<Orb::OrbInternalL3Status> internal_;
  Vex::Ptr<Orb::RouteReactorConfig> routeConfig_;
  Vex::Ptr<Orb::Route6ReactorConfig> route6Config_;
  Vex::Ptr<Orb::RouteReactorStatus> routeStatus_;
  Vex::Ptr<Orb::Route6ReactorStatus> route6Status_;
  Vex::Ptr<SoftChip::SoftAdjHelper> adjHelper_;
  Vex::Ptr<Orb::L2AdjSm> l2AdjSm_;
  std::unique_ptr<Orb::L2AdjBinder> binder_;
  // The neighbours the ARP agent resolved.
  std::map<Orb::VrfAndIpAddr, Orb::NeighborInfo> neighbors_;
  std::unique_ptr<WatchReactor> watchReactor_;
  std::unique_ptr<Watch6Reactor> watch6Reactor_;
  std::unique_ptr<ReviewReactor> reviewReactor_;
};

}  // namespace Agent
