// Vias and layer-2 adjacencies: the per-FEC via sets, the hardware adjacency
// that FECs with equal next-hop collections share, and the accounting of
// which hardware tables use an adjacency.
#pragma once

#include "Orb/OrbNexthopTypes.h"
#include "platform/vex/SmallSet.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace Orb {

// A via of a FEC: next-hop address and egress interface, or, when the via
// is recursive, the FEC of the next level. A via with nothing set is false.
#define ORB_DECLARE_VIA(Name, Addr, fullName)                                                    \
  struct Name {                                                                                  \
    Addr nextHop;                                                                                \
    Nexo::IntfId l3Intf;                                                                         \
    Pond::Fib::GlobalFecId fecId;                                                                \
    explicit operator bool() const { return !(*this == Name{}); }                                \
    /* " nextHop <address> l3Intf: <interface>" */                                               \
    std::string stringValue() const {                                                            \
      return " nextHop " + nextHop.stringValue() + " l3Intf: " + l3Intf.stringValue();           \
    }                                                                                            \
    auto operator<=>(const Name&) const = default;                                               \
  };                                                                                             \
  BOOST_DESCRIBE_STRUCT(Name, (), (nextHop, l3Intf, fecId))                                      \
  [[maybe_unused]] inline const char* vexTypeName(const Name*) { return fullName; }              \
  [[maybe_unused]] inline std::size_t hash_value(const Name& v) { return ::Vex::hashFields(v); } \
  [[maybe_unused]] inline std::ostream& operator<<(std::ostream& os, const Name& v) { return os << v.stringValue(); }

ORB_DECLARE_VIA(Via, Nexo::IpAddr, "Orb::Via")
ORB_DECLARE_VIA(Via6, Nexo::Ip6Addr, "Orb::Via6")
ORB_DECLARE_VIA(ViaGen, Nexo::IpGenAddr, "Orb::ViaGen")
#undef ORB_DECLARE_VIA

// The next-hop-group part of a FEC's vias; most FECs have none.
struct AdjViaNextHopGroupInfo {
  Nexo::GreKeyType greKeyType = Nexo::GreKeyType::greKeyNone;
  std::uint32_t nextHopGroupSize = 0;
  Nexo::IpGenAddr nextHopGroupSource;
  Routing::NexthopGroup::NexthopGroupType nextHopGroupType =
      Routing::NexthopGroup::NexthopGroupType::nexthopGroupTypeIp;
  Routing::NexthopGroup::EntryCounterType nexthopGroupEntryCounterType =
      Routing::NexthopGroup::EntryCounterType::entryCounterNone;
  std::uint32_t ttl = 0;
  auto operator<=>(const AdjViaNextHopGroupInfo&) const = default;
};
VEX_VALUE(AdjViaNextHopGroupInfo, "Orb::AdjViaNextHopGroupInfo",
          (greKeyType, nextHopGroupSize, nextHopGroupSource, nextHopGroupType, nexthopGroupEntryCounterType, ttl))

// What the vias of every address family share. The group part is shared
// between copies and made on its first write.
class AdjViaBase {
 public:
  bool dlbEcmpEnable() const { return dlbEcmpEnable_; }
  void dlbEcmpEnableIs(bool enable) { dlbEcmpEnable_ = enable; }
  std::uint8_t numBackupVias() const { return numBackupVias_; }
  void numBackupViasIs(std::uint8_t count) { numBackupVias_ = count; }
  void numBackupViasInc(std::uint8_t by = 1) { numBackupVias_ = static_cast<std::uint8_t>(numBackupVias_ + by); }

  const AdjViaNextHopGroupInfo& nhgRawOrDefault() const;
  AdjViaNextHopGroupInfo& nhgMutate();
  bool hasNhg() const { return nhg_ != nullptr; }
  Nexo::GreKeyType greKeyType() const { return nhgRawOrDefault().greKeyType; }
  void greKeyTypeIs(Nexo::GreKeyType type) { nhgMutate().greKeyType = type; }
  std::uint32_t nextHopGroupSize() const { return nhgRawOrDefault().nextHopGroupSize; }
  void nextHopGroupSizeIs(std::uint32_t size) { nhgMutate().nextHopGroupSize = size; }
  const Nexo::IpGenAddr& nextHopGroupSource() const { return nhgRawOrDefault().nextHopGroupSource; }
  void nextHopGroupSourceIs(const Nexo::IpGenAddr& source) { nhgMutate().nextHopGroupSource = source; }
  Routing::NexthopGroup::NexthopGroupType nextHopGroupType() const { return nhgRawOrDefault().nextHopGroupType; }
  void nextHopGroupTypeIs(Routing::NexthopGroup::NexthopGroupType type) { nhgMutate().nextHopGroupType = type; }
  Routing::NexthopGroup::EntryCounterType nexthopGroupEntryCounterType() const {
    return nhgRawOrDefault().nexthopGroupEntryCounterType;
  }
  void nexthopGroupEntryCounterTypeIs(Routing::NexthopGroup::EntryCounterType type) {
    nhgMutate().nexthopGroupEntryCounterType = type;
  }
  std::uint32_t ttl() const { return nhgRawOrDefault().ttl; }
  void ttlIs(std::uint32_t ttl) { nhgMutate().ttl = ttl; }

  bool operator==(const AdjViaBase& other) const;

 private:
  struct SharedNhg : Vex::PtrInterface {
    explicit SharedNhg(const AdjViaNextHopGroupInfo& v) : value(v) {}
    AdjViaNextHopGroupInfo value;
  };
  bool dlbEcmpEnable_ = false;
  std::uint8_t numBackupVias_ = 0;
  Vex::Ptr<SharedNhg> nhg_;
};
std::size_t hash_value(const AdjViaBase& base);

// The vias of one FEC in one address family: how many times each via
// occurs and which via positions it fills.
template <class ViaT>
class AdjViaT : public AdjViaBase {
 public:
  using ViaType = ViaT;

  const std::map<ViaT, std::uint32_t>& via() const { return via_; }
  std::uint32_t via(const ViaT& v) const {
    auto it = via_.find(v);
    return it == via_.end() ? 0 : it->second;
  }
  void viaIs(const ViaT& v, std::uint32_t count) { via_[v] = count; }
  void viaDel(const ViaT& v) {
    via_.erase(v);
    viaBitmap_.erase(v);
  }

  const std::map<ViaT, ViaBitmap>& viaBitmap() const { return viaBitmap_; }
  const ViaBitmap& viaBitmap(const ViaT& v) const {
    auto it = viaBitmap_.find(v);
    return it == viaBitmap_.end() ? Vex::emptyValue<ViaBitmap>() : it->second;
  }
  void viaBitmapIs(const ViaT& v, const ViaBitmap& bitmap) { viaBitmap_[v] = bitmap; }

  bool operator==(const AdjViaT& other) const {
    return AdjViaBase::operator==(other) && via_ == other.via_ && viaBitmap_ == other.viaBitmap_;
  }
  friend std::size_t hash_value(const AdjViaT& v) {
    std::size_t seed = hash_value(static_cast<const AdjViaBase&>(v));
    for (const auto& [via, count] : v.via_) {
      boost::hash_combine(seed, via);
      boost::hash_combine(seed, count);
    }
    return seed;
  }

 private:
  std::map<ViaT, std::uint32_t> via_;
  std::map<ViaT, ViaBitmap> viaBitmap_;
};
using AdjVia = AdjViaT<Via>;
using AdjVia6 = AdjViaT<Via6>;
using AdjViaGen = AdjViaT<ViaGen>;

// The hardware table a route or FEC lives in.
enum class TableType : std::uint8_t {
  tableTypeUnknown,
  tableTypeLongestPrefix,
  tableTypeExactMatch,
  tableTypeLabelledFec,
  tableTypeTunnel,
  tableTypeMulticast,
};
BOOST_DESCRIBE_ENUM(TableType, tableTypeUnknown, tableTypeLongestPrefix, tableTypeExactMatch, tableTypeLabelledFec,
                    tableTypeTunnel, tableTypeMulticast)

// A set of table types, one bit each.
class TableTypeBoolSet {
 public:
  static constexpr std::uint8_t mask = 0x3f;
  static constexpr std::uint8_t bit(TableType type) { return static_cast<std::uint8_t>(1u << unsigned(type)); }

  constexpr TableTypeBoolSet() = default;
  constexpr explicit TableTypeBoolSet(std::uint8_t bits) : bits_(bits & mask) {}
  constexpr std::uint8_t value() const { return bits_; }
  constexpr bool has(TableType type) const { return bits_ & bit(type); }
  constexpr TableTypeBoolSet with(TableType type) const { return TableTypeBoolSet(bits_ | bit(type)); }
  constexpr TableTypeBoolSet without(TableType type) const {
    return TableTypeBoolSet(static_cast<std::uint8_t>(bits_ & ~bit(type)));
  }
  constexpr bool empty() const { return bits_ == 0; }
  auto operator<=>(const TableTypeBoolSet&) const = default;

  std::uint32_t vexRep() const { return bits_; }
  static TableTypeBoolSet fromVexRep(std::uint32_t bits);

 private:
  std::uint8_t bits_ = 0;
};
VEX_SCALAR_VALUE(TableTypeBoolSet, "Orb::TableTypeBoolSet", "bits")
inline std::size_t hash_value(const TableTypeBoolSet& s) { return s.value(); }

enum class L2AdjState : std::uint8_t { newborn, pending, programmed, deleted, garbageCollected };
BOOST_DESCRIBE_ENUM(L2AdjState, newborn, pending, programmed, deleted, garbageCollected)

// A set of adjacency keys, shared by counted pointer (a build result may
// hand its own set on instead of copying it).
class L2AdjKeyCollection : public Vex::PtrInterface {
 public:
  L2AdjKeyCollection() = default;
  L2AdjKeyCollection(std::initializer_list<L2AdjKey> keys) : keys_(keys) {}
  const std::set<L2AdjKey>& l2AdjKey() const { return keys_; }
  bool l2AdjKeyHas(const L2AdjKey& key) const { return keys_.count(key) != 0; }
  void l2AdjKeyIs(const L2AdjKey& key) { keys_.insert(key); }
  void l2AdjKeyDel(const L2AdjKey& key) { keys_.erase(key); }
  std::size_t l2AdjKeySize() const { return keys_.size(); }
  bool operator==(const L2AdjKeyCollection& other) const { return keys_ == other.keys_; }

 private:
  std::set<L2AdjKey> keys_;
};

// Traffic counters of an adjacency and the hardware counters behind them.
struct L2AdjStats {
  std::set<std::uint32_t> counterIds;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  auto operator<=>(const L2AdjStats&) const = default;
};
VEX_VALUE(L2AdjStats, "Orb::L2AdjStats", (counterIds, packets, bytes))

// A hardware adjacency: the next hops it programs and the FECs that use it.
class L2Adjacency : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<L2Adjacency> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(State)
    VEX_HANDLER(NextHops)
    VEX_KEY_HANDLER(AdjEntry, Pond::Fib::GlobalFecId)
    VEX_KEY_HANDLER(AdjEntryAndTableType, Pond::Fib::GlobalFecId)
    VEX_KEY_HANDLER(AdjTableType, TableType)
    VEX_KEY_HANDLER(ReviewPendingAdj, Pond::Fib::GlobalFecId)
    VEX_HANDLER(IsDirectlyOwnedByAdjEntry)
    VEX_HANDLER(UseHwFastFailover)
    VEX_HANDLER(MaxPredictedHierarchyHeight)
    VEX_HANDLER(BackupVia)
    VEX_HANDLER(ProxiedAdj)
    VEX_HANDLER(L2AdjStats)
  };

  explicit L2Adjacency(const L2AdjKey& key) : Vex::Entity(key.stringValue()), key_(key) {}
  const L2AdjKey& key() const { return key_; }

  VEX_ATTR(L2AdjState, state, State, L2AdjState::newborn)
  VEX_ATTR(NextHopCollection, nextHops, NextHops)
  // Most adjacencies serve a few FECs; those are recorded in the
  // adjacency's own memory.
  VEX_SET_OF(VEX_PROTECT(Vex::SmallSet<Pond::Fib::GlobalFecId, 16>), Pond::Fib::GlobalFecId, adjEntry, AdjEntry)
  VEX_COLLECTION(Pond::Fib::GlobalFecId, TableTypeBoolSet, adjEntryAndTableType, AdjEntryAndTableType)
  VEX_KEYED_COUNTER(TableType, std::uint32_t, adjTableType, AdjTableType)
  VEX_SET(Pond::Fib::GlobalFecId, reviewPendingAdj, ReviewPendingAdj)
  VEX_ATTR(bool, isDirectlyOwnedByAdjEntry, IsDirectlyOwnedByAdjEntry, false)
  VEX_ATTR(bool, useHwFastFailover, UseHwFastFailover, false)
  VEX_ATTR(std::uint8_t, maxPredictedHierarchyHeight, MaxPredictedHierarchyHeight, 0)
  VEX_ATTR(ViaGen, backupVia, BackupVia)
  VEX_ATTR(L2AdjKey, proxiedAdj, ProxiedAdj)
  VEX_ATTR(L2AdjStats, l2AdjStats, L2AdjStats)

  // Records that FEC `fec` uses this adjacency from table `type`; a FEC
  // counts once per table however often it is recorded.
  void setTableTypeForAdj(const Pond::Fib::GlobalFecId& fec, TableType type);
  // Undoes setTableTypeForAdj; nothing happens when it was not recorded.
  void unsetTableTypeForAdj(const Pond::Fib::GlobalFecId& fec, TableType type);
  // The tables that have at least one user.
  TableTypeBoolSet adjTableTypeBoolSet() const;
  bool isTableTypeSetForAdj(TableType type) const { return adjTableTypeBoolSet().has(type); }

  bool hasCounterIds() const { return !l2AdjStats().counterIds.empty(); }
  bool potentialHasBackup() const { return static_cast<bool>(backupVia()); }
  bool potentialHierarchicalNextHop() const { return nextHops().potentialHierarchicalNextHop(); }

 private:
  L2AdjKey key_;
};

// The dedup map from a collection to the one adjacency that programs it,
// for embedding in a status entity (whose Notifiee declares
// VEX_KEY_HANDLER(Name, NextHopCollection)):
//   ORB_NEXTHOPS_TO_L2ADJ(nextHopsToL2Adj, NextHopsToL2Adj)
// gives the collection accessors plus nameFindOrInsert(collection, make),
// which returns the adjacency of an equal collection or, when there is
// none, stores and returns make(); the one the map holds, so callers that
// keep it take a Ptr. A collection knows its hash from being written, so a
// look-up costs one probe and one comparison; on a hit the caller's
// collection takes the stored content, so that offering it again compares
// by pointer.
#define ORB_NEXTHOPS_TO_L2ADJ(name, Name)                                                       \
  VEX_COLLECTION(::Orb::NextHopCollection, ::Vex::Ptr<::Orb::L2Adjacency>, name, Name)          \
  template <class Make>                                                                         \
  ::Orb::L2Adjacency& name##FindOrInsert(const ::Orb::NextHopCollection& nextHops, Make make) { \
    auto it = name##_.find(nextHops);                                                           \
    if (it != name##_.end()) {                                                                  \
      it->first.shareContentWith(nextHops);                                                     \
      return *it->second;                                                                       \
    }                                                                                           \
    ::Vex::Ptr<::Orb::L2Adjacency> adj = make();                                                \
    name##_.emplace(nextHops, adj);                                                             \
    this->notify(&Notifiee::handle##Name, nextHops);                                            \
    return *adj;                                                                                \
  }

// How building a collection went: the adjacency keys it flattens to and
// what was left out.
class NextHopCollBuildResult {
 public:
  NextHopCollBuildResult() = default;
  NextHopCollBuildResult(const NextHopCollection& nextHops, Vex::Ptr<L2AdjKeyCollection> flattened)
      : nextHops_(nextHops), flattenedL2Adjs_(std::move(flattened)) {}

  const NextHopCollection& nextHops() const { return nextHops_; }
  const Vex::Ptr<L2AdjKeyCollection>& flattenedL2Adjs() const { return flattenedL2Adjs_; }
  void flattenedL2AdjsIs(Vex::Ptr<L2AdjKeyCollection> flattened) { flattenedL2Adjs_ = std::move(flattened); }
  std::uint8_t maxPredictedHierarchyHeight() const { return maxPredictedHierarchyHeight_; }
  void maxPredictedHierarchyHeightIs(std::uint8_t height) { maxPredictedHierarchyHeight_ = height; }
  bool nhInfoMissingAndDrop() const { return nhInfoMissingAndDrop_; }
  void nhInfoMissingAndDropIs(bool missing) { nhInfoMissingAndDrop_ = missing; }

  const std::set<Nexo::IntfId>& trimmedL2Intf() const { return trimmedL2Intf_; }
  void trimmedL2IntfIs(const Nexo::IntfId& intf) { trimmedL2Intf_.insert(intf); }
  const std::set<Nexo::IntfId>& trimmedL3Intf() const { return trimmedL3Intf_; }
  void trimmedL3IntfIs(const Nexo::IntfId& intf) { trimmedL3Intf_.insert(intf); }
  const std::set<TunnelKey>& trimmedTunnelKey() const { return trimmedTunnelKey_; }
  void trimmedTunnelKeyIs(const TunnelKey& key) { trimmedTunnelKey_.insert(key); }
  bool trimmedTunnelKeyHas(const TunnelKey& key) const { return trimmedTunnelKey_.count(key) != 0; }

  // Merges another result of the same build into this one: the flattened
  // adjacencies become the union (shared, not copied, when only the other
  // has any or both hold the same set), the hierarchy height the larger,
  // the missing-information flag either, and the trimmed sets the union.
  void updateNhCollBuildResult(const NextHopCollBuildResult& other);

 private:
  NextHopCollection nextHops_;
  Vex::Ptr<L2AdjKeyCollection> flattenedL2Adjs_;
  std::uint8_t maxPredictedHierarchyHeight_ = 0;
  bool nhInfoMissingAndDrop_ = false;
  std::set<Nexo::IntfId> trimmedL2Intf_;
  std::set<Nexo::IntfId> trimmedL3Intf_;
  std::set<TunnelKey> trimmedTunnelKey_;
};

// A tunnel and the adjacency that reaches its destination: the adjacency
// itself once it exists, else only its key while it is being created.
struct TunnelL2Info {
  TunnelKey tunnelKey;
  std::uint32_t key = 0;
  Nexo::IpGenAddr src;
  Nexo::IpGenAddr dst;
  VrfId vrf;
  std::uint32_t genId = 0;
  Nexo::IntfId intfId;
  Vex::Ptr<L2Adjacency> l2Adj;
  std::optional<L2AdjKey> l2AdjKey;

  // "tunnel: <key>, key: <k> src:<src>, dst:<dst>, vrf:<vrf>, genId:<g>,
  // intfId: <intf>" then ", l2Adj: <adj key>", ", l2Adj key: <key>" or
  // ", l2Adj: NULL ".
  std::string stringValue() const;
  bool operator==(const TunnelL2Info& other) const;
};
std::ostream& operator<<(std::ostream& os, const TunnelL2Info& info);

}  // namespace Orb
