// Programs the layer-2 adjacencies of `l2AdjList` through the adjacency
// helper: an adjacency that appears is added, one that goes is removed. A
// refused add is not an error: the adjacency stays `pending`, the internal
// status says the adjacency table is full, and pending adjacencies are
// offered again whenever an adjacency leaves the hardware, and shortly
// (busyRetryDelay) after the chip answered busy.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbHelper.h"
#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL3Types.h"
#include "platform/vex/Clock.h"

#include <map>
#include <memory>
#include <set>

namespace Orb {

struct L2AdjSmInputs {
  Vex::Ptr<OrbCommonSmData> ocsd;
  Vex::Ptr<OrbHelper::OrbHelperL2Adj> orbHelper;
  Vex::Ptr<L3Status> l3Status;
  Vex::Ptr<OrbInternalL3Status> orbInternalL3Status;
};

class L2AdjSm : public OrbBaseSm {
 public:
  // How long the chip is left alone after answering busy.
  static constexpr Vex::Seconds busyRetryDelay = 0.1;

  explicit L2AdjSm(const L2AdjSmInputs& inputs);
  ~L2AdjSm() override;
  const char* fwkType() const override { return "Orb::L2AdjSm"; }

  const Vex::Ptr<OrbHelper::OrbHelperL2Adj>& orbHelper() const { return in_.orbHelper; }
  // Adjacencies the hardware holds, and those it refused with the chip's
  // last answer for each.
  const std::set<L2AdjKey>& programmed() const { return programmed_; }
  const std::map<L2AdjKey, std::uint32_t>& pending() const { return pending_; }
  std::uint64_t refusals() const { return refusals_; }

  void handleInitialized() override;
  void handleL2Adj(const L2AdjKey& key);

 private:
  class StatusReactor;
  void program(const Vex::Ptr<L2Adjacency>& adj);
  void retryPending();

  L2AdjSmInputs in_;
  std::unique_ptr<StatusReactor> statusReactor_;
  Vex::Ptr<Vex::Clock> busyRetryClock_;
  std::set<L2AdjKey> programmed_;
  std::map<L2AdjKey, std::uint32_t> pending_;
  std::uint64_t refusals_ = 0;
};

Vex::Ptr<L2AdjSm> l2AdjSmFactory(const L2AdjSmInputs& inputs);

}  // namespace Orb
