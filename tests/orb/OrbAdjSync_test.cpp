// The adjacency synchronisation forest: counted child links, and the
// freeze once it is declared ready.
#include "Orb/OrbAdjSync.h"
#include "Orb/OrbL3Types.h"

#include <gtest/gtest.h>

namespace {

using namespace Orb;

class ForestWatcher : public AdjSyncForest::Notifiee {
 public:
  using Notifiee::Notifiee;
  int nodes = 0, readies = 0;
  void handleAdjSyncIdNode(const AdjSyncId&) override { ++nodes; }
  void handleReady() override { ++readies; }
};

class NodeWatcher : public AdjSyncIdNode::Notifiee {
 public:
  using Notifiee::Notifiee;
  int children = 0;
  void handleChildNode(const AdjSyncId&) override { ++children; }
};

constexpr const char* kChangeAfterReady =
    "/src/Orb/OrbAdjSync -- assertion failed\\(!ready\\(\\) \\|\\| instanceBeingDeleted\\(\\)\\): We do not expect the "
    "AdjSyncForest to change after ready flag has been set to true\\.";

TEST(AdjSyncForestTest, NodesAndCountedChildLinksBeforeReady) {
  auto forest = adjSyncForestFactory("adjSyncForest");
  ForestWatcher watcher(forest);
  auto root = forest->adjSyncIdNodeIs(AdjSyncId(1));
  EXPECT_EQ(forest->adjSyncIdNodeIs(AdjSyncId(1)), root);  // the same node, no second notice
  EXPECT_EQ(watcher.nodes, 1);
  NodeWatcher nodeWatcher(root);
  root->childNodeInc(AdjSyncId(2));
  root->childNodeInc(AdjSyncId(2));
  root->childNodeIs(AdjSyncId(3), 5);
  root->childNodeIs(AdjSyncId(3), 5);  // unchanged: nobody hears it
  EXPECT_EQ(root->childNode(AdjSyncId(2)), 2u);
  EXPECT_EQ(root->childNode(AdjSyncId(3)), 5u);
  EXPECT_EQ(root->childNode(AdjSyncId(4)), 0u);
  EXPECT_EQ(nodeWatcher.children, 3);
  root->childNodeDel(AdjSyncId(2));
  root->childNodeDel(AdjSyncId(2));
  EXPECT_FALSE(root->childNodeHas(AdjSyncId(2)));
  EXPECT_EQ(nodeWatcher.children, 4);
  forest->adjSyncIdNodeDel(AdjSyncId(1));
  EXPECT_EQ(forest->adjSyncIdNode(AdjSyncId(1)), nullptr);
  EXPECT_EQ(watcher.nodes, 2);
}

TEST(AdjSyncForestTest, ReadyFreezesEveryChange) {
  auto forest = adjSyncForestFactory("adjSyncForest");
  auto node = forest->adjSyncIdNodeIs(AdjSyncId(1));
  node->childNodeInc(AdjSyncId(2));
  forest->readyIs(true);
  EXPECT_EQ(forest->adjSyncIdNodeIs(AdjSyncId(1)), node);  // reading an existing node is allowed
  node->childNodeIs(AdjSyncId(2), 1);                      // so is writing what it holds
  EXPECT_DEATH(forest->adjSyncIdNodeIs(AdjSyncId(9)), kChangeAfterReady);
  EXPECT_DEATH(forest->adjSyncIdNodeDel(AdjSyncId(1)), kChangeAfterReady);
  EXPECT_DEATH(forest->adjSyncIdNodeDelAll(), kChangeAfterReady);
  EXPECT_DEATH(node->childNodeInc(AdjSyncId(2)), kChangeAfterReady);
  EXPECT_DEATH(node->childNodeIs(AdjSyncId(3), 1), kChangeAfterReady);
  EXPECT_DEATH(node->childNodeDel(AdjSyncId(2)), kChangeAfterReady);
  EXPECT_EQ(node->childNode(AdjSyncId(2)), 1u);
}

TEST(AdjSyncForestTest, ReadyNeverGoesBackToFalse) {
  auto forest = adjSyncForestFactory("adjSyncForest");
  forest->readyIs(false);  // not ready yet: nothing changes
  forest->readyIs(true);
  forest->readyIs(true);
  EXPECT_DEATH(forest->readyIs(false),
               "/src/Orb/OrbAdjSync -- assertion failed\\(ready\\(\\)\\): We do not expect ready flag to revert to "
               "false\\.");
  forest->instanceBeingDeletedIs(true);
  EXPECT_DEATH(forest->readyIs(false), "ready flag to revert to false");
}

TEST(AdjSyncForestTest, TearDownMayChangeAReadyForest) {
  auto forest = adjSyncForestFactory("adjSyncForest");
  ForestWatcher watcher(forest);
  auto node = forest->adjSyncIdNodeIs(AdjSyncId(1));
  node->childNodeInc(AdjSyncId(2));
  forest->readyIs(true);
  forest->instanceBeingDeletedIs(true);
  node->childNodeDel(AdjSyncId(2));
  forest->adjSyncIdNodeIs(AdjSyncId(7));
  forest->adjSyncIdNodeDelAll();
  EXPECT_EQ(forest->adjSyncIdNodeSize(), 0u);
  EXPECT_EQ(watcher.readies, 1);
  // A node let go of by its forest is no longer the forest's to freeze.
  node->childNodeInc(AdjSyncId(3));
  EXPECT_EQ(node->childNode(AdjSyncId(3)), 1u);
}

TEST(AdjSyncForestTest, AdjSyncIdAndTheVrfFecSyncMap) {
  EXPECT_EQ(Vex::toStrep(AdjSyncId(42)), "Value('Orb::AdjSyncId', ** {'value': 42})");
  EXPECT_EQ(Vex::fromStrep<AdjSyncId>(Vex::toStrep(AdjSyncId(42))), AdjSyncId(42));
  auto vrf = vrfL3StatusFactory(L3::VrfName("red"), 1001);
  vrf->fecSyncMapIs(Pond::Fib::GlobalFecId(5), AdjSyncId(9));
  EXPECT_EQ(vrf->fecSyncMap(Pond::Fib::GlobalFecId(5)), AdjSyncId(9));
  EXPECT_EQ(vrf->fecSyncMap(Pond::Fib::GlobalFecId(6)), AdjSyncId());
}

}  // namespace
