#include "Orb/OrbL2AdjSm.h"

#include "Orb/OrbCommon.h"
#include "Orb/OrbTrace.h"
#include "platform/vex/Reactor.h"

#include <vector>

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbL2AdjSm");
  return handle;
}

}  // namespace

class L2AdjSm::StatusReactor : public Vex::Reactor<L3Status, L2AdjSm> {
 public:
  using Reactor::Reactor;
  VEX_REACT_KEY(L2AdjList, L2AdjKey, handleL2Adj)
};

L2AdjSm::L2AdjSm(const L2AdjSmInputs& inputs) : OrbBaseSm(inputs.ocsd), in_(inputs) {
  ORB_ASSERT(in_.orbHelper);
  ORB_ASSERT(in_.l3Status);
  ORB_ASSERT(in_.orbInternalL3Status);
  statusReactor_ = std::make_unique<StatusReactor>(this, in_.l3Status);
  busyRetryClock_ = Vex::clockFactory([this] { retryPending(); });
  clockIs(busyRetryClock_);
  initializedIs(true);
}

L2AdjSm::~L2AdjSm() {
  vexDoZombieReactors(true);
  busyRetryClock_->timeMinIs(Vex::never);
  clockDel(busyRetryClock_);
  statusReactor_.reset();
}

Vex::Ptr<L2AdjSm> l2AdjSmFactory(const L2AdjSmInputs& inputs) { return Vex::make<L2AdjSm>(inputs); }

void L2AdjSm::handleInitialized() {
  for (const auto& [key, adj] : in_.l3Status->l2AdjList()) handleL2Adj(key);
}

void L2AdjSm::handleL2Adj(const L2AdjKey& key) {
  auto adj = in_.l3Status->l2AdjList(key);
  if (adj) {
    if (!programmed_.count(key)) program(adj);
    return;
  }
  pending_.erase(key);
  if (pending_.empty()) in_.orbInternalL3Status->adjResourceFullIs(false);
  if (!programmed_.erase(key)) return;
  BLIP(trace(), 5, "remove adjacency {}", key.stringValue());
  in_.orbHelper->doRemoveAdjacency(key);
  retryPending();
}

void L2AdjSm::program(const Vex::Ptr<L2Adjacency>& adj) {
  const L2AdjKey& key = adj->key();
  std::uint32_t status = in_.orbHelper->doAddAdjacency(key, adj->nextHops());
  if (status == OrbHelper::OrbHelperL2Adj::addSuccess) {
    BLIP(trace(), 5, "added adjacency {}", key.stringValue());
    programmed_.insert(key);
    pending_.erase(key);
    adj->stateIs(L2AdjState::programmed);
    if (pending_.empty()) in_.orbInternalL3Status->adjResourceFullIs(false);
    return;
  }
  BLIP(trace(), 3, "adjacency {} refused with status {}", key.stringValue(), status);
  ++refusals_;
  pending_[key] = status;
  adj->stateIs(L2AdjState::pending);
  in_.orbInternalL3Status->adjResourceFullIs(true);
  if (status == OrbHelper::OrbHelperL2Adj::addBusy) busyRetryClock_->timeMinIs(Vex::now() + busyRetryDelay);
}

void L2AdjSm::retryPending() {
  std::vector<L2AdjKey> waiting;
  for (const auto& [key, status] : pending_) waiting.push_back(key);
  for (const auto& key : waiting) {
    auto adj = in_.l3Status->l2AdjList(key);
    if (!adj) {
      pending_.erase(key);
      continue;
    }
    program(adj);
    if (!programmed_.count(key)) break;  // still no room: the rest waits too
  }
}

}  // namespace Orb
