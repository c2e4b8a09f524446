#include "chip/softchip/SoftFecAllocator.h"

#include <fmt/format.h>

namespace SoftChip {

using Orb::AdjacencyState;
using Pond::Fib::FecId;

std::string softKeyText(const SoftFecGrantKey& key) {
  return fmt::format("{} {}", Vex::valueToStrep(key.source), key.fec);
}

void SoftFecGrantTable::dumpEntry(JsonWriter& writer, const HwFecGrant& grant) const {
  writer.StartObject();
  writer.Key("hwFecId");
  writer.Uint64(grant.hwFecId);
  writer.Key("adjState");
  writer.String(Vex::valueToStrep(grant.adjState).c_str());
  if (!grant.l2Intf.empty()) {
    writer.Key("l2Intf");
    writer.String(grant.l2Intf.stringValue().c_str());
  }
  writer.EndObject();
}

// One source's tables: its requests as read here, its answers as written here.
struct SoftFecAllocator::Source {
  Orb::FecRequestSource source;
  Vex::Ptr<Orb::FecIdToHwFecIdRequest> requests;
  Vex::Ptr<Orb::FecIdToHwFecIdResponse> responses;
  std::unique_ptr<Reactor> reactor;
  // While the restarted requester publishes its requests again: missing
  // ones keep their hardware FECs.
  bool syncing = false;
  Vex::Ptr<Vex::Clock> graceClock;
  bool ready() const { return requests->syncRequestsReadyHas(Orb::ReadyBool(true)); }
};

class SoftFecAllocator::Reactor : public Orb::FecIdToHwFecIdRequest::Notifiee {
 public:
  Reactor(SoftFecAllocator& allocator, Source& source)
      : Notifiee(source.requests), allocator_(allocator), source_(source) {}
  // A FEC's row changing changes what its answer says; the request row
  // decides whether there is one.
  void handleFec(const FecId& fec) override { allocator_.review(source_, fec); }
  void handleFec6(const FecId& fec) override { allocator_.review(source_, fec); }
  void handleHwFecIdRequest(const FecId& fec) override { allocator_.review(source_, fec); }
  // Once mounted, the reader hears of changes from then on, and after a lap
  // it hears only of the keys still there: either way every request there
  // and every hardware FEC held is reviewed, which withdraws the gone ones.
  void handleHwFecIdRequestMountStatus() override {
    if (source_.requests->hwFecIdRequestMountStatus() == Pond::MountStatus::mounted) allocator_.mounted(source_);
  }
  // A reader hears of rows written after it mounted, so a ready row
  // written before is seen when the table mounts.
  void handleSyncRequestsReady(const Orb::ReadyBool&) override { readyMaybe(); }
  void handleSyncRequestsReadyMountStatus() override { readyMaybe(); }
  void handleHwFecIdRequestRescanned() override { allocator_.reconcile(source_); }
  void handleFecRescanned() override { allocator_.reconcile(source_); }
  void handleFec6Rescanned() override { allocator_.reconcile(source_); }

 private:
  void readyMaybe() {
    if (source_.syncing && source_.ready()) allocator_.synced(source_);
  }

  SoftFecAllocator& allocator_;
  Source& source_;
};

namespace {

// What a FEC row says about its adjacency and its layer-2 interface.
template <class FecRow>
void describe(const FecRow& fec, HwFecGrant& grant) {
  grant.adjState = fec.viaCount == 0 ? AdjacencyState::adjStateDrop : AdjacencyState::adjStateForwardingPrimaryVias;
  grant.l2Intf = Nexo::IntfId();
  std::uint32_t port = fec.viaCount ? fec.via[0].intfNumber : 0;
  for (std::uint32_t i = 1; i < fec.viaCount && i < Pond::Fib::maxVias; ++i) {
    if (fec.via[i].intfNumber != port) port = 0;
  }
  if (!port) return;
  // The row comes from another process: a port number no interface has
  // names no layer-2 interface, and stops nothing.
  try {
    grant.l2Intf = Nexo::IntfId(fmt::format("Ethernet{}", port));
  } catch (const std::exception&) {
    grant.l2Intf = Nexo::IntfId();
  }
}

}  // namespace

SoftFecAllocator::SoftFecAllocator(const Vex::Ptr<SoftChip>& chip, std::string pondBase, std::size_t responseCapacity)
    : chip_(chip), pondBase_(std::move(pondBase)), responseCapacity_(responseCapacity), grants_(*chip) {
  retryClock_ = Vex::clockFactory([this] { retryWaiting(); });
}

SoftFecAllocator::~SoftFecAllocator() {
  // Reactors go before the entities they watch.
  for (auto& [_, source] : sources_) source->reactor.reset();
}

void SoftFecAllocator::serve(Orb::FecRequestSource which) {
  if (serves(which)) return;
  auto source = std::make_unique<Source>();
  source->source = which;
  std::string name = Vex::valueToStrep(which);
  source->responses = Orb::fecIdToHwFecIdResponseFactory(name);
  source->responses->controlIs(Orb::fecRequestPrefix(pondBase_, which, true), Pond::TableControl::Role::writer,
                               responseCapacity_);
  source->requests = Orb::fecIdToHwFecIdRequestFactory(name);
  Source& held = *source;
  sources_.emplace(which, std::move(source));
  held.graceClock = Vex::clockFactory([this, &held] { synced(held); });
  held.reactor = std::make_unique<Reactor>(*this, held);
  held.requests->controlIs(Orb::fecRequestPrefix(pondBase_, which, false), Pond::TableControl::Role::reader);
}

void SoftFecAllocator::mounted(Source& source) {
  bool holds = std::any_of(grants_.entries.begin(), grants_.entries.end(),
                           [&](const auto& grant) { return grant.first.source == source.source; });
  if (holds && !source.ready()) {
    source.syncing = true;
    source.graceClock->timeMinIs(Vex::now() + syncGrace);
  }
  reconcile(source);
}

void SoftFecAllocator::synced(Source& source) {
  if (!source.syncing) return;
  source.syncing = false;
  source.graceClock->timeMinIs(Vex::never);
  reconcile(source);
}

void SoftFecAllocator::review(Source& source, FecId fec, bool retry) {
  auto request = source.requests->hwFecIdRequestFind(fec);
  if (!request) {
    // Not published again yet: the hardware FEC waits for it.
    if (!source.syncing) withdraw(source, fec);
    return;
  }
  SoftFecGrantKey key{source.source, fec.value()};
  if (auto refused = refused_.find(key); refused != refused_.end()) {
    bool again = refused->second.request != *request || (retry && refused->second.fault != Fault::failed);
    if (!again) return;
    refused_.erase(refused);
  }
  if (request->isSwOnlyFec()) {
    withdraw(source, fec);
    answer(source, *request, HwFecGrant{});
    return;
  }
  Fault refusal = Fault::none;
  HwFecGrant* grant = grantFor(key, refusal);
  if (!grant) {
    refused_[key] = Refusal{*request, refusal};
    if (refusal == Fault::busy) {
      if (retryClock_->timeMin() == Vex::never) retryClock_->timeMinIs(Vex::now() + busyRetry);
      return;
    }
    answer(source, *request, HwFecGrant{0, AdjacencyState::adjStateUnprogrammed, {}});
    return;
  }
  if (auto row = source.requests->fecFind(fec))
    describe(*row, *grant);
  else if (auto row6 = source.requests->fec6Find(fec))
    describe(*row6, *grant);
  else
    *grant = HwFecGrant{grant->hwFecId, AdjacencyState::adjStateUnknown, {}};
  answer(source, *request, *grant);
}

void SoftFecAllocator::reconcile(Source& source) {
  std::set<FecId> fecs;
  source.requests->hwFecIdRequestTable().forEach([&](const Orb::HwFecIdRequest& request) { fecs.insert(request.key); });
  for (const auto& [key, _] : grants_.entries) {
    if (key.source == source.source) fecs.insert(FecId(key.fec));
  }
  for (const auto& [key, _] : refused_) {
    if (key.source == source.source) fecs.insert(FecId(key.fec));
  }
  for (const auto& fec : fecs) review(source, fec);
}

HwFecGrant* SoftFecAllocator::grantFor(const SoftFecGrantKey& key, Fault& refusal) {
  if (auto* held = grants_.find(key)) return held;
  refusal = grants_.admit(true);
  if (refusal != Fault::none) return nullptr;
  std::uint64_t id;
  if (freedIds_.empty()) {
    id = nextId_++;
  } else {
    id = *freedIds_.begin();
    freedIds_.erase(freedIds_.begin());
  }
  return &grants_.entries.emplace(key, HwFecGrant{id, AdjacencyState::adjStateUnknown, {}}).first->second;
}

void SoftFecAllocator::withdraw(Source& source, FecId fec) {
  SoftFecGrantKey key{source.source, fec.value()};
  refused_.erase(key);
  if (auto it = grants_.entries.find(key); it != grants_.entries.end()) {
    freedIds_.insert(it->second.hwFecId);
    grants_.entries.erase(it);
    // A freed hardware FEC is room for a request the table was full for.
    if (waiting()) retryClock_->timeMinIs(Vex::now());
  }
  source.responses->hwFecIdDel(fec);
  source.responses->l2IntfIdDel(fec);
}

void SoftFecAllocator::answer(Source& source, const Orb::HwFecIdRequest& request, const HwFecGrant& grant) {
  AdjacencyState adjState = request.requestAdjState || grant.adjState == AdjacencyState::adjStateUnprogrammed
                                ? grant.adjState
                                : AdjacencyState::adjStateUnknown;
  source.responses->hwFecIdIs(Orb::FecToHwFecId{request.key, Orb::HwFecId(grant.hwFecId), adjState, request.requestId});
  if (grant.l2Intf.empty())
    source.responses->l2IntfIdDel(request.key);
  else
    source.responses->l2IntfIdIs(Orb::FecToL2IntfId{request.key, grant.l2Intf});
  ++answers_;
}

void SoftFecAllocator::retryWaiting() {
  std::vector<SoftFecGrantKey> waiting;
  for (const auto& [key, refusal] : refused_) {
    if (refusal.fault != Fault::failed) waiting.push_back(key);
  }
  for (const auto& key : waiting) {
    auto source = sources_.find(key.source);
    if (source != sources_.end()) review(*source->second, FecId(key.fec), true);
  }
}

}  // namespace SoftChip
