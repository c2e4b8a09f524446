#include "Orb/OrbAdjSync.h"

#include "Orb/OrbAssert.h"

#include <vector>

namespace Orb {

namespace {
constexpr const char* kSource = "/src/Orb/OrbAdjSync";
}  // namespace

AdjSyncIdNode::AdjSyncIdNode(AdjSyncId id, const AdjSyncForest* forest)
    : Entity(std::to_string(id.value())), id_(id), forest_(forest) {}

std::uint32_t AdjSyncIdNode::childNode(AdjSyncId child) const {
  auto it = childNode_.find(child);
  return it == childNode_.end() ? 0 : it->second;
}

void AdjSyncIdNode::childNodeIs(AdjSyncId child, std::uint32_t count) {
  auto it = childNode_.find(child);
  if (it != childNode_.end() && it->second == count) return;
  if (forest_) forest_->assertMayChange();
  childNode_[child] = count;
  notify(&Notifiee::handleChildNode, child);
}

void AdjSyncIdNode::childNodeInc(AdjSyncId child) { childNodeIs(child, childNode(child) + 1); }

void AdjSyncIdNode::childNodeDel(AdjSyncId child) {
  if (!childNode_.contains(child)) return;
  if (forest_) forest_->assertMayChange();
  childNode_.erase(child);
  notify(&Notifiee::handleChildNode, child);
}

AdjSyncForest::~AdjSyncForest() {
  // A node someone still holds must not ask a forest that is gone.
  for (auto& [id, node] : adjSyncIdNode_) node->forest_ = nullptr;
}

Vex::Ptr<AdjSyncIdNode> AdjSyncForest::adjSyncIdNode(AdjSyncId id) const {
  auto it = adjSyncIdNode_.find(id);
  return it == adjSyncIdNode_.end() ? nullptr : it->second;
}

Vex::Ptr<AdjSyncIdNode> AdjSyncForest::adjSyncIdNodeIs(AdjSyncId id) {
  if (auto existing = adjSyncIdNode(id)) return existing;
  assertMayChange();
  auto node = Vex::make<AdjSyncIdNode>(id, this);
  adjSyncIdNode_.emplace(id, node);
  notify(&Notifiee::handleAdjSyncIdNode, id);
  return node;
}

void AdjSyncForest::adjSyncIdNodeDel(AdjSyncId id) {
  auto it = adjSyncIdNode_.find(id);
  if (it == adjSyncIdNode_.end()) return;
  assertMayChange();
  it->second->forest_ = nullptr;
  adjSyncIdNode_.erase(it);
  notify(&Notifiee::handleAdjSyncIdNode, id);
}

void AdjSyncForest::adjSyncIdNodeDelAll() {
  std::vector<AdjSyncId> ids;
  ids.reserve(adjSyncIdNode_.size());
  for (const auto& entry : adjSyncIdNode_) ids.push_back(entry.first);
  for (AdjSyncId id : ids) adjSyncIdNodeDel(id);
}

void AdjSyncForest::readyIs(bool ready) {
  if (ready == ready_) return;
  if (!ready) {
    orbAssertExplained(kSource, "ready()", "We do not expect ready flag to revert to false.");
  }
  ready_ = ready;
  notify(&Notifiee::handleReady);
}

void AdjSyncForest::instanceBeingDeletedIs(bool beingDeleted) {
  if (beingDeleted == instanceBeingDeleted_) return;
  instanceBeingDeleted_ = beingDeleted;
  notify(&Notifiee::handleInstanceBeingDeleted);
}

void AdjSyncForest::assertMayChange() const {
  ORB_ASSERT_EXPLAINED(kSource, !ready() || instanceBeingDeleted(),
                       "We do not expect the AdjSyncForest to change after ready flag has been set to true.");
}

Vex::Ptr<AdjSyncForest> adjSyncForestFactory(const std::string& name) { return Vex::make<AdjSyncForest>(name); }

}  // namespace Orb
