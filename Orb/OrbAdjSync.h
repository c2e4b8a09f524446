// Adjacency synchronisation ids: requesters tag each FEC they publish with
// the id of its adjacency, and the forest records which ids hang under
// which, with counted child links. Once a reader has declared the forest
// ready it may rely on it staying as it was, so the forest is frozen from
// then on (only its own tear-down may change it).
#pragma once

#include "platform/types/Fib.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <cstdint>
#include <string>

namespace Orb {

// The synchronisation id of a FEC's adjacency; 0 is none.
class AdjSyncId {
 public:
  constexpr AdjSyncId() = default;
  constexpr explicit AdjSyncId(std::uint64_t value) : value_(value) {}
  constexpr std::uint64_t value() const { return value_; }
  auto operator<=>(const AdjSyncId&) const = default;

  std::uint64_t vexRep() const { return value_; }
  static AdjSyncId fromVexRep(std::uint64_t value) { return AdjSyncId(value); }

 private:
  std::uint64_t value_ = 0;
};
VEX_SCALAR_VALUE(AdjSyncId, "Orb::AdjSyncId", "value")
inline std::size_t hash_value(const AdjSyncId& id) { return boost::hash<std::uint64_t>()(id.value()); }

// A VRF's FECs to the synchronisation ids of their adjacencies.
using FecSyncMap = Vex::HashMap<Pond::Fib::GlobalFecId, AdjSyncId>;

class AdjSyncForest;

// One id of the forest and the counted links to its children. Made only by
// its forest, which it asks before every change.
class AdjSyncIdNode : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjSyncIdNode> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ChildNode, AdjSyncId)
  };

  AdjSyncIdNode(AdjSyncId id, const AdjSyncForest* forest);
  AdjSyncId id() const { return id_; }

  const Vex::HashMap<AdjSyncId, std::uint32_t>& childNode() const { return childNode_; }
  // 0 for a child that is not linked.
  std::uint32_t childNode(AdjSyncId child) const;
  bool childNodeHas(AdjSyncId child) const { return childNode_.contains(child); }
  std::size_t childNodeSize() const { return childNode_.size(); }
  void childNodeIs(AdjSyncId child, std::uint32_t count);
  // Starts a missing link at 1.
  void childNodeInc(AdjSyncId child);
  void childNodeDel(AdjSyncId child);

 private:
  friend class AdjSyncForest;
  AdjSyncId id_;
  const AdjSyncForest* forest_;  // the owner; cleared when it lets go of the node
  Vex::HashMap<AdjSyncId, std::uint32_t> childNode_;
};

class AdjSyncForest : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AdjSyncForest> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(AdjSyncIdNode, AdjSyncId)
    VEX_HANDLER(Ready)
    VEX_HANDLER(InstanceBeingDeleted)
  };

  explicit AdjSyncForest(const std::string& name) : Entity(name) {}
  ~AdjSyncForest() override;

  const Vex::HashMap<AdjSyncId, Vex::Ptr<AdjSyncIdNode>>& adjSyncIdNode() const { return adjSyncIdNode_; }
  // Null when the id has no node.
  Vex::Ptr<AdjSyncIdNode> adjSyncIdNode(AdjSyncId id) const;
  bool adjSyncIdNodeHas(AdjSyncId id) const { return adjSyncIdNode_.contains(id); }
  std::size_t adjSyncIdNodeSize() const { return adjSyncIdNode_.size(); }
  // The id's node, made when absent (asking for a node that exists is no
  // change, even after ready).
  Vex::Ptr<AdjSyncIdNode> adjSyncIdNodeIs(AdjSyncId id);
  void adjSyncIdNodeDel(AdjSyncId id);
  void adjSyncIdNodeDelAll();

  bool ready() const { return ready_; }
  // Ready is set once and stays set.
  void readyIs(bool ready);
  bool instanceBeingDeleted() const { return instanceBeingDeleted_; }
  void instanceBeingDeletedIs(bool beingDeleted);

  // Stops the process when the forest is frozen.
  void assertMayChange() const;

 private:
  Vex::HashMap<AdjSyncId, Vex::Ptr<AdjSyncIdNode>> adjSyncIdNode_;
  bool ready_ = false;
  bool instanceBeingDeleted_ = false;
};

Vex::Ptr<AdjSyncForest> adjSyncForestFactory(const std::string& name);

}  // namespace Orb
