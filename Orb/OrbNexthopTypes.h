// Next hops and next-hop collections: what a FEC resolves to, as values that
// FECs with the same forwarding can share (one hardware adjacency per
// distinct collection).
#pragma once

#include "Orb/OrbCommonTypes.h"
#include "platform/types/Fib.h"
#include "platform/types/Nexo.h"
#include "platform/types/Routing.h"
#include "platform/types/Tunnel.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace OrbTypes {

// A via position, 0 to 2047, or the null position 2048.
class ViaBitmapRange {
 public:
  static constexpr std::uint32_t min = 0;
  static constexpr std::uint32_t max = 2047;
  static constexpr std::uint32_t null = 2048;

  constexpr ViaBitmapRange() = default;
  // Throws Vex::RangeError past the null position.
  explicit ViaBitmapRange(std::uint32_t value);
  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isNull() const { return value_ == null; }
  auto operator<=>(const ViaBitmapRange&) const = default;

 private:
  std::uint32_t value_ = null;
};

// A word of a ViaBitmap; checked when a word is accessed.
class ViaBitmapIndex {
 public:
  static constexpr std::uint32_t max() { return 65; }
  constexpr explicit ViaBitmapIndex(std::uint32_t value) : value_(value) {}
  constexpr std::uint32_t value() const { return value_; }

 private:
  std::uint32_t value_;
};

// Which via positions (0 to 2047) produced a next hop. Word 64 exists so
// that the null position has a bit; it is never set by bitSet of a via.
class PackedViaBitmap;

class ViaBitmap {
 public:
  static constexpr std::uint32_t words = ViaBitmapIndex::max();

  void bitSet(ViaBitmapRange position);
  void bitClear(ViaBitmapRange position);
  bool bitTest(ViaBitmapRange position) const;
  // Asserts "index < ViaBitmapIndex::max()".
  std::uint32_t word(ViaBitmapIndex index) const;
  void wordIs(ViaBitmapIndex index, std::uint32_t value);

  bool empty() const;
  std::uint32_t count() const;
  std::vector<std::uint32_t> positions() const;
  // "ViaBitmap( bits set: 1 5 )".
  std::string stringValue() const;
  explicit operator bool() const { return !empty(); }

  auto operator<=>(const ViaBitmap&) const = default;
  bool operator==(const ViaBitmap&) const = default;

  std::vector<std::uint32_t> vexRep() const { return positions(); }
  static ViaBitmap fromVexRep(const std::vector<std::uint32_t>& positions);

  friend std::size_t hash_value(const ViaBitmap& bitmap);
  friend class PackedViaBitmap;

 private:
  std::array<std::uint32_t, words> word_{};
};
VEX_SCALAR_VALUE(ViaBitmap, "OrbTypes::ViaBitmap", "bitsSet")
std::size_t hash_value(const ViaBitmap& bitmap);

// A via bitmap as a collection keeps it. A next hop's positions index the
// vias of its FEC, and FECs rarely have more than 32 of them, so the one
// non-zero word of most bitmaps is held inline and a bitmap with more is
// kept whole and shared; this keeps a collection of 64 next hops from
// carrying 16 KB of mostly zero words through every copy, hash and
// comparison. Equal bitmaps always pack the same way.
class PackedViaBitmap {
 public:
  PackedViaBitmap() = default;
  explicit PackedViaBitmap(const ViaBitmap& bitmap);
  ViaBitmap unpack() const;

  bool operator==(const PackedViaBitmap& other) const;
  std::strong_ordering operator<=>(const PackedViaBitmap& other) const;
  friend std::size_t hash_value(const PackedViaBitmap& packed);

 private:
  static constexpr std::uint16_t noWord = 0xffff;
  struct Whole : Vex::PtrInterface {
    explicit Whole(const ViaBitmap& b) : bitmap(b) {}
    ViaBitmap bitmap;
  };
  std::uint16_t index_ = noWord;
  std::uint32_t word_ = 0;
  Vex::Ptr<Whole> whole_;
};

// Walks the set bits of a bitmap in increasing order, on its own copy:
//   for (ViaBitmapIter it(bitmap); it; ++it) use(it.position());
class ViaBitmapIter {
 public:
  // At the first set bit, or done at the null position when none is set.
  explicit ViaBitmapIter(const ViaBitmap& bitmap);
  // At `position` (null: before the first bit); throws Vex::RangeError past
  // the null position.
  ViaBitmapIter(const ViaBitmap& bitmap, std::uint32_t position);

  std::uint32_t position() const { return position_; }
  bool done() const { return done_; }
  // True while at a via position: not done, and not before the first bit.
  explicit operator bool() const { return !done_ && position_ <= ViaBitmapRange::max; }
  ViaBitmapIter& operator++();

 private:
  ViaBitmap bitmap_;
  std::uint32_t position_ = ViaBitmapRange::null;
  bool done_ = false;
};

}  // namespace OrbTypes

namespace Orb {

using OrbTypes::ViaBitmap;

class L2Adjacency;
// Counted pointers to an adjacency that is not yet complete here.
void intrusive_ptr_add_ref(const L2Adjacency* adj);
void intrusive_ptr_release(const L2Adjacency* adj);

enum class NextHopEntryType : std::uint8_t {
  nextHopArpDrop,
  nextHopArpRequired,
  nextHopArpResolved,
  nextHopCpu,
  nextHopCpuBcast,
  nextHopCpuRouteCache,
  nextHopCpuSlow,
  nextHopDrop,
  nextHopFlow,
  nextHopGroup,
  nextHopHierarchical,
  nextHopMcastTunnel,
  nextHopRouteOverflowDrop,
  nextHopTunnel,
  nextHopVlanPort,
};
BOOST_DESCRIBE_ENUM(NextHopEntryType, nextHopArpDrop, nextHopArpRequired, nextHopArpResolved, nextHopCpu,
                    nextHopCpuBcast, nextHopCpuRouteCache, nextHopCpuSlow, nextHopDrop, nextHopFlow, nextHopGroup,
                    nextHopHierarchical, nextHopMcastTunnel, nextHopRouteOverflowDrop, nextHopTunnel, nextHopVlanPort)

// The kind of hardware adjacency a collection programs.
enum class L2AdjType : std::uint8_t { unknownAdj, nexthopAdj, routingAdj, flowAdj, tunnelAdj, ecmpAdj };
BOOST_DESCRIBE_ENUM(L2AdjType, unknownAdj, nexthopAdj, routingAdj, flowAdj, tunnelAdj, ecmpAdj)

// An adjacency's identity: its type and an index among adjacencies.
struct L2AdjKey {
  L2AdjType type = L2AdjType::unknownAdj;
  std::uint32_t index = 0;
  // "<type> index: <index>".
  std::string stringValue() const;
  auto operator<=>(const L2AdjKey&) const = default;
};
VEX_VALUE(L2AdjKey, "Orb::L2AdjKey", (type, index))

enum class NextHopTunnelType : std::uint8_t { none, ipInIp, mpls, mplsOverGre, mplsOverUdp, vxlan };
BOOST_DESCRIBE_ENUM(NextHopTunnelType, none, ipInIp, mpls, mplsOverGre, mplsOverUdp, vxlan)

// A tunnel whose next hops the layer tracks.
struct TunnelKey {
  NextHopTunnelType type = NextHopTunnelType::none;
  std::uint32_t index = 0;
  auto operator<=>(const TunnelKey&) const = default;
};
VEX_VALUE(TunnelKey, "Orb::TunnelKey", (type, index))

// How a tunnel next hop's endpoint resolved.
struct TunnelResolutionInfo {
  Nexo::IpGenAddr endpoint;
  Pond::Fib::GlobalFecId fecId;
  bool resolved = false;
  auto operator<=>(const TunnelResolutionInfo&) const = default;
};
VEX_VALUE(TunnelResolutionInfo, "Orb::TunnelResolutionInfo", (endpoint, fecId, resolved))

// One entry of a configured next-hop group.
struct NextHopGroupEntryKey {
  std::uint32_t nhgId = 0;
  std::uint32_t entryIndex = 0;
  explicit operator bool() const { return nhgId != 0; }
  auto operator<=>(const NextHopGroupEntryKey&) const = default;
};
VEX_VALUE(NextHopGroupEntryKey, "Orb::NextHopGroupEntryKey", (nhgId, entryIndex))

// Where an entry of a next-hop group sits in the programmed group.
struct NexthopPosition {
  std::uint32_t position = 0;
  auto operator<=>(const NexthopPosition&) const = default;
};
VEX_VALUE(NexthopPosition, "Orb::NexthopPosition", (position))

// An IPsec encapsulation as a next hop carries it.
struct IpsecTunnelInfo {
  Nexo::IpGenAddr src;
  Nexo::IpGenAddr dst;
  std::uint32_t spi = 0;
  Nexo::IntfId tunnelIntf;
  auto operator<=>(const IpsecTunnelInfo&) const = default;
};
VEX_VALUE(IpsecTunnelInfo, "Orb::IpsecTunnelInfo", (src, dst, spi, tunnelIntf))

// The encapsulation of a next hop. Most next hops have none, so the content
// exists only once written and is shared between copies; a writer copies
// shared content before changing it, so no other holder ever sees the change.
class EncapInfo {
 public:
  using EncapType = Tunnel::TunnelTable::EncapType;

  struct Value {
    EncapType kind = EncapType::encapNone;
    Tunnel::GreTunnelInfo gre;
    IpsecTunnelInfo ipsec;
    Nexo::MplsLabelOperation labels;
    auto operator<=>(const Value&) const = default;
  };

  EncapInfo() = default;
  explicit EncapInfo(EncapType kind);

  explicit operator bool() const { return content_ != nullptr; }
  EncapType kind() const { return content().kind; }
  const Tunnel::GreTunnelInfo& greEncap() const { return content().gre; }
  const IpsecTunnelInfo& ipsecEncap() const { return content().ipsec; }
  const Nexo::MplsLabelOperation& labels() const { return content().labels; }
  void greEncapIs(const Tunnel::GreTunnelInfo& gre);
  void ipsecEncapIs(const IpsecTunnelInfo& ipsec);
  void labelsIs(const Nexo::MplsLabelOperation& labels);
  // Whether another EncapInfo holds the same content (for tests and stats).
  bool sharesContentWith(const EncapInfo& other) const { return content_ && content_ == other.content_; }

  // Most next hops have no encapsulation: that case stays inline.
  bool operator==(const EncapInfo& other) const { return content_ == other.content_ || contentEqual(other); }
  std::strong_ordering operator<=>(const EncapInfo& other) const {
    return content_ == other.content_ ? std::strong_ordering::equal : contentOrder(other);
  }

  std::optional<Value> vexRep() const;
  static EncapInfo fromVexRep(const std::optional<Value>& rep);

 private:
  struct Content : Vex::PtrInterface {
    explicit Content(const Value& v) : value(v) {}
    Value value;
  };
  static Vex::Ptr<Content> wrapperFactory(const Value& value);
  // Makes the content this EncapInfo's own, creating it when absent.
  Value& maybeCopyWrapper(EncapType kind);
  const Value& content() const;
  bool contentEqual(const EncapInfo& other) const;
  std::strong_ordering contentOrder(const EncapInfo& other) const;

  Vex::Ptr<Content> content_;
};
VEX_VALUE(EncapInfo::Value, "Orb::EncapInfo::Value", (kind, gre, ipsec, labels))
VEX_SCALAR_VALUE(EncapInfo, "Orb::EncapInfo", "content")
std::size_t hash_value(const EncapInfo& encap);

// The encapsulation for an IPsec virtual tunnel interface.
EncapInfo getEncapInfo(const Tunnel::IpsecVtiTunnelInfo& vti, const Nexo::IntfId& intf);

// The next level of a hierarchical next hop: the adjacency itself, compared,
// hashed and printed by its key. Parsing yields a detached adjacency with
// that key.
class L2AdjRef {
 public:
  L2AdjRef() = default;
  L2AdjRef(Vex::Ptr<L2Adjacency> adj);
  const Vex::Ptr<L2Adjacency>& get() const { return adj_; }
  L2Adjacency* operator->() const { return adj_.get(); }
  explicit operator bool() const { return adj_ != nullptr; }
  std::optional<L2AdjKey> key() const;

  bool operator==(const L2AdjRef& other) const { return adj_ == other.adj_ || key() == other.key(); }
  std::strong_ordering operator<=>(const L2AdjRef& other) const;

  std::optional<L2AdjKey> vexRep() const { return key(); }
  static L2AdjRef fromVexRep(const std::optional<L2AdjKey>& key);

 private:
  Vex::Ptr<L2Adjacency> adj_;
};
VEX_SCALAR_VALUE(L2AdjRef, "Orb::L2AdjRef", "key")
std::size_t hash_value(const L2AdjRef& ref);

// One concrete next hop.
//
// Fields are laid out to pack into 56 bytes: a collection holds up to 64
// of them and copies, compares and hashes them on every build.
struct NextHop {
  NextHopEntryType entryType = NextHopEntryType::nextHopDrop;
  Routing::NexthopGroup::EntryCounterType nhgCounterType = Routing::NexthopGroup::EntryCounterType::entryCounterNone;
  Tunnel::TunnelTable::TunnelId tunnelId = 0;
  Nexo::EthAddr mac;
  Nexo::IntfId l2Intf;
  Nexo::IntfId l3Intf;
  NextHopGroupEntryKey nhgEntryKey;
  EncapInfo encap;
  L2AdjRef hierarchicalNextLevelL2Adj;

  NextHop() = default;
  NextHop(NextHopEntryType type, Nexo::EthAddr mac, Nexo::IntfId l2Intf, Nexo::IntfId l3Intf)
      : entryType(type), mac(mac), l2Intf(l2Intf), l3Intf(l3Intf) {}

  const Tunnel::GreTunnelInfo& greEncap() const { return encap.greEncap(); }
  const IpsecTunnelInfo& ipsecEncap() const { return encap.ipsecEncap(); }
  const Nexo::MplsLabelOperation& labels() const { return encap.labels(); }
  void greEncapIs(const Tunnel::GreTunnelInfo& gre) { encap.greEncapIs(gre); }
  void ipsecEncapIs(const IpsecTunnelInfo& ipsec) { encap.ipsecEncapIs(ipsec); }
  void labelsIs(const Nexo::MplsLabelOperation& labels) { encap.labelsIs(labels); }
  void hierarchicalNextLevelL2AdjIs(Vex::Ptr<L2Adjacency> adj) { hierarchicalNextLevelL2Adj = std::move(adj); }

  bool isDrop() const { return entryType == NextHopEntryType::nextHopDrop; }
  // The tunnel whose counter counts this next hop; 0 when uncounted.
  Tunnel::TunnelTable::TunnelId countedTunnelId() const;
  bool isUsingSharedNhgCounter() const;
  // The group entry key when the entry has a counter of its own; empty
  // otherwise.
  NextHopGroupEntryKey unsharedCountedNhgEntryKey() const;

  bool operator==(const NextHop&) const = default;
  auto operator<=>(const NextHop&) const = default;
};
BOOST_DESCRIBE_STRUCT(NextHop, (),
                      (entryType, nhgCounterType, tunnelId, mac, l2Intf, l3Intf, nhgEntryKey, encap,
                       hierarchicalNextLevelL2Adj))
[[maybe_unused]] inline const char* vexTypeName(const NextHop*) { return "Orb::NextHop"; }
std::size_t hash_value(const NextHop& nh);
std::ostream& operator<<(std::ostream& os, const NextHop& nh);

// The resolver's view of one next hop of a watched prefix.
struct NextHopEntry {
  NextHopEntryType type = NextHopEntryType::nextHopDrop;
  Nexo::IpGenAddr ip;
  Nexo::EthAddr mac;
  Nexo::IntfId l2Intf;
  Nexo::IntfId l3Intf;
  Tunnel::TunnelTable::TunnelId tunnelId = 0;
  // "type:<type>, ip: <ip>, mac: <mac>, l2Intf: <l2>, l3Intf: <l3>".
  std::string stringValue() const;
  auto operator<=>(const NextHopEntry&) const = default;
};
BOOST_DESCRIBE_STRUCT(NextHopEntry, (), (type, ip, mac, l2Intf, l3Intf, tunnelId))
[[maybe_unused]] inline const char* vexTypeName(const NextHopEntry*) { return "Orb::NextHopEntry"; }
[[maybe_unused]] inline std::size_t hash_value(const NextHopEntry& e) { return Vex::hashFields(e); }
std::ostream& operator<<(std::ostream& os, const NextHopEntry& entry);

// The next hops a watched prefix currently resolves to.
class NextHopEntryList : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<NextHopEntryList> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(NextHopEntry, NextHopEntry)
    VEX_KEY_HANDLER(NextHopEntryInfo, NextHop)
  };

  NextHopEntryList(const VrfAndIpAddr& vrfAndAddr, const VrfAndIpGenAddr& vrfAndGenAddr)
      : vrfAndAddr_(vrfAndAddr), vrfAndGenAddr_(vrfAndGenAddr) {}
  const VrfAndIpAddr& vrfAndAddr() const { return vrfAndAddr_; }
  const VrfAndIpGenAddr& vrfAndGenAddr() const { return vrfAndGenAddr_; }

  VEX_COLLECTION(NextHopEntry, bool, nextHopEntry, NextHopEntry)
  VEX_COLLECTION(NextHop, TunnelResolutionInfo, nextHopEntryInfo, NextHopEntryInfo)

  // Same addresses and same entries; which object holds them does not matter.
  bool isEqual(const NextHopEntryList& other) const;

 private:
  VrfAndIpAddr vrfAndAddr_;
  VrfAndIpGenAddr vrfAndGenAddr_;
};

// Next-hop-group fields of a collection; most collections have none.
struct NextHopGroupInfo {
  std::uint32_t nextHopGroupSize = 0;
  bool nextHopGroupUnordered = false;
  Routing::NexthopGroup::EntryCounterType nexthopGroupEntryCounterType =
      Routing::NexthopGroup::EntryCounterType::entryCounterNone;
  Nexo::GreKeyType greKeyType = Nexo::GreKeyType::greKeyNone;
  std::uint32_t ttl = 0;
  std::map<std::uint32_t, NextHop> nextHopGroupEntryL2Info;
  std::map<std::uint32_t, TunnelResolutionInfo> nextHopGroupEntryResolution;
  std::map<NextHopGroupEntryKey, NexthopPosition> nhgEntryKeyToPosition;
  auto operator<=>(const NextHopGroupInfo&) const = default;
  bool operator==(const NextHopGroupInfo&) const = default;
};
VEX_VALUE(NextHopGroupInfo, "Orb::NextHopGroupInfo",
          (nextHopGroupSize, nextHopGroupUnordered, nexthopGroupEntryCounterType, greKeyType, ttl,
           nextHopGroupEntryL2Info, nextHopGroupEntryResolution, nhgEntryKeyToPosition))

enum class NextHopTypeCacheType : std::uint8_t { invalidCache = 0, noneDrop = 1, someDrop = 2, allDrop = 3 };
BOOST_DESCRIBE_ENUM(NextHopTypeCacheType, invalidCache, noneDrop, someDrop, allDrop)

// The next hops of a FEC as one value: which next hops with which weight,
// which via positions produced each, and the collection's attributes.
//
// The content is shared between copies and copied on the first write to a
// shared one, so a collection is cheap to keep in a map key and in the
// adjacency that programs it. Each next hop's weight and bitmap are kept
// together in one small sorted vector and the hash is computed once per
// content, because deduplicating collections over every FEC is the hot path
// and its cost is reading cold content. The caches are per copy and are not
// part of the value.
class NextHopCollection {
  struct Entry;

 public:
  static constexpr std::uint64_t totalWeightNotComputed = ~std::uint64_t{0};
  static constexpr std::uint8_t attachedFlag = 1;
  static constexpr std::uint8_t potentialHierarchicalNextHopFlag = 2;

  // One of the two maps of a collection, read in next-hop order as
  // (next hop, value) pairs: `for (const auto& [nh, weight] : c.nextHop())`.
  template <class Field>
  class MapView;
  struct WeightField;
  struct BitmapField;
  using NextHopWeights = MapView<WeightField>;
  using NextHopBitmaps = MapView<BitmapField>;

  NextHopCollection();
  explicit NextHopCollection(L2AdjType l2AdjType);

  L2AdjType l2AdjType() const { return body_->l2AdjType; }

  // nextHop: next hop -> weight (0 when absent).
  NextHopWeights nextHop() const;
  std::uint32_t nextHop(const NextHop& nh) const;
  bool nextHopHas(const NextHop& nh) const;
  std::size_t nextHopSize() const { return body().weighted; }
  void nextHopIs(const NextHop& nh, std::uint32_t weight);
  void nextHopDel(const NextHop& nh);
  void nextHopReserve(std::size_t count);

  // nextHopBitmap: next hop -> via positions (empty when absent); the
  // whole map holds them packed (PackedViaBitmap::unpack).
  NextHopBitmaps nextHopBitmap() const;
  ViaBitmap nextHopBitmap(const NextHop& nh) const;
  void nextHopBitmapIs(const NextHop& nh, const ViaBitmap& bitmap);
  void nextHopBitmapDel(const NextHop& nh);

  std::uint8_t flags() const { return body_->flags; }
  void flagsIs(std::uint8_t flags);
  bool attached() const { return body_->flags & attachedFlag; }
  void attachedIs(bool attached);
  bool potentialHierarchicalNextHop() const { return body_->flags & potentialHierarchicalNextHopFlag; }
  void potentialHierarchicalNextHopIs(bool potential);
  NextHopTunnelType tunnelType() const { return body_->tunnelType; }
  void tunnelTypeIs(NextHopTunnelType type);
  std::uint8_t hierarchyHeight() const { return body_->hierarchyHeight; }
  void hierarchyHeightIs(std::uint8_t height);

  // Next-hop-group fields: read through a shared default while none was
  // written; the first write creates the group part of this collection.
  const NextHopGroupInfo& nhgcRawOrDefault() const;
  // The reference is good until this collection is next written or hashed.
  NextHopGroupInfo& nhgcMutate();
  bool hasNhgc() const { return body_->nhgc != nullptr; }
  std::uint32_t nextHopGroupSize() const { return nhgcRawOrDefault().nextHopGroupSize; }
  void nextHopGroupSizeIs(std::uint32_t size) { nhgcMutate().nextHopGroupSize = size; }
  bool nextHopGroupUnordered() const { return nhgcRawOrDefault().nextHopGroupUnordered; }
  void nextHopGroupUnorderedIs(bool unordered) { nhgcMutate().nextHopGroupUnordered = unordered; }
  Routing::NexthopGroup::EntryCounterType nexthopGroupEntryCounterType() const {
    return nhgcRawOrDefault().nexthopGroupEntryCounterType;
  }
  void nexthopGroupEntryCounterTypeIs(Routing::NexthopGroup::EntryCounterType type) {
    nhgcMutate().nexthopGroupEntryCounterType = type;
  }
  Nexo::GreKeyType greKeyType() const { return nhgcRawOrDefault().greKeyType; }
  void greKeyTypeIs(Nexo::GreKeyType type) { nhgcMutate().greKeyType = type; }
  std::uint32_t ttl() const { return nhgcRawOrDefault().ttl; }
  void ttlIs(std::uint32_t ttl) { nhgcMutate().ttl = ttl; }
  const NextHop& nextHopGroupEntryL2Info(std::uint32_t index) const;
  void nextHopGroupEntryL2InfoIs(std::uint32_t index, const NextHop& nh) {
    nhgcMutate().nextHopGroupEntryL2Info[index] = nh;
  }
  const TunnelResolutionInfo& nextHopGroupEntryResolution(std::uint32_t index) const;
  void nextHopGroupEntryResolutionIs(std::uint32_t index, const TunnelResolutionInfo& info) {
    nhgcMutate().nextHopGroupEntryResolution[index] = info;
  }
  const NexthopPosition& nhgEntryKeyToPosition(const NextHopGroupEntryKey& key) const;
  void nhgEntryKeyToPositionIs(const NextHopGroupEntryKey& key, const NexthopPosition& position) {
    nhgcMutate().nhgEntryKeyToPosition[key] = position;
  }

  // Caches: all ones / invalidCache mean "not computed". Every write
  // invalidates them, as does handleNextHopChanged; updateCaches fills them.
  std::uint64_t totalWeightCache() const { return totalWeightCache_; }
  NextHopTypeCacheType nextHopTypeCache() const { return nextHopTypeCache_; }
  void handleNextHopChanged();
  void updateCaches();

  std::uint64_t totalWeight() const;
  NextHopTypeCacheType nextHopType() const;
  bool allDrop() const;
  bool allArpRequired() const;
  bool allNextHopWeightsAreOne() const;
  bool hasResolvedNextHops() const;
  // The group entry indexes that hold `nh`, in increasing order.
  std::vector<std::uint32_t> getLogicalPositionIndexes(const NextHop& nh) const;
  static NextHopTunnelType nextHopGroupTypeToTunnelType(Routing::NexthopGroup::NexthopGroupType type);
  // Internal consistency: every bitmap belongs to a weighted next hop,
  // weights are positive, group entries lie below the group size, and valid
  // caches hold what they would compute.
  bool verify() const;

  // The printed form (see stringValue in the source) and its parse; throws
  // Vex::ParseError on text that is not one.
  std::string stringValue() const;
  static NextHopCollection fromString(std::string_view text);
  std::string vexRep() const { return stringValue(); }
  static NextHopCollection fromVexRep(const std::string& text) { return fromString(text); }

  std::size_t hash() const;
  bool operator==(const NextHopCollection& other) const;
  std::strong_ordering operator<=>(const NextHopCollection& other) const;
  // Whether another collection shares this one's content.
  bool sharesContentWith(const NextHopCollection& other) const { return body_ == other.body_; }
  // Lets `equal`, a collection equal to this one, hold this one's content
  // instead of its own copy: later comparisons between the two are then a
  // pointer check, and the copy is freed once nothing else holds it. The
  // value does not change, so this is allowed on a const collection.
  void shareContentWith(const NextHopCollection& equal) const;

 private:
  struct SharedGroupInfo : Vex::PtrInterface {
    explicit SharedGroupInfo(const NextHopGroupInfo& v) : value(v) {}
    NextHopGroupInfo value;
  };
  // A next hop with its weight and its bitmap, each present or not. While
  // a collection is written out of next-hop order, a next hop can have
  // several entries; reading folds them, later writes winning.
  struct Entry {
    static constexpr std::uint8_t hasWeight = 1;
    static constexpr std::uint8_t hasBitmap = 2;
    NextHop nextHop;
    std::uint32_t weight = 0;
    std::uint8_t has = 0;
    OrbTypes::PackedViaBitmap bitmap;
    bool operator==(const Entry&) const = default;
    auto operator<=>(const Entry&) const = default;
    // This entry's share of the collection's hash, and that of one field.
    std::uint64_t share() const;
    std::uint64_t fieldShare(std::uint64_t nextHopHash, std::uint8_t field) const;
  };
  struct Body : Vex::PtrInterface {
    L2AdjType l2AdjType = L2AdjType::nexthopAdj;
    std::uint8_t flags = 0;
    NextHopTunnelType tunnelType = NextHopTunnelType::none;
    std::uint8_t hierarchyHeight = 0;
    // In next-hop order, one entry a next hop, except right after writes
    // (see write); the counts hold for the ordered entries.
    mutable std::vector<Entry> entries;
    mutable bool sorted = true;
    mutable std::uint32_t weighted = 0;
    mutable std::uint32_t bitmapped = 0;
    Vex::Ptr<SharedGroupInfo> nhgc;
    mutable std::size_t hash = 0;
    mutable bool hashValid = false;
    // The sum of the hashes of every entry's fields, kept up by each write
    // while the entry is in cache, so that a collection knows its hash
    // when it is built and never reads its next hops again to hash them.
    // Addition does not care for order, so the sum holds for unordered
    // entries as long as no next hop has two of them; a write that may add
    // a second one drops it (`sumValid`) until the entries are folded.
    mutable std::uint64_t entrySum = 0;
    mutable bool sumValid = true;
  };

  // The content, made this collection's own for a write (in next-hop
  // order when `sorted`); drops the hash and the caches.
  Body& mutate(bool sorted = false);
  // The content in next-hop order, for reading.
  const Body& body() const;
  const Entry* find(const NextHop& nh) const;
  void write(const NextHop& nh, std::uint8_t field, std::uint32_t weight, const OrbTypes::PackedViaBitmap& bitmap);
  // The hash of content whose entry sum is valid.
  static std::size_t hashOf(const Body& b);
  void erase(const NextHop& nh, std::uint8_t field);

  // Mutable only for shareContentWith: which copy of equal content a
  // collection holds is not part of its value.
  mutable Vex::Ptr<Body> body_;
  std::uint64_t totalWeightCache_ = totalWeightNotComputed;
  // The content's hash, kept here as well so that looking up a collection
  // whose hash is known does not read its content.
  mutable std::size_t hash_ = 0;
  NextHopTypeCacheType nextHopTypeCache_ = NextHopTypeCacheType::invalidCache;
  mutable bool hashKnown_ = false;
};
struct NextHopCollection::WeightField {
  static constexpr std::uint8_t flag = Entry::hasWeight;
  using Value = std::uint32_t;
  static Value get(const Entry& e) { return e.weight; }
};

struct NextHopCollection::BitmapField {
  static constexpr std::uint8_t flag = Entry::hasBitmap;
  using Value = const OrbTypes::PackedViaBitmap&;
  static Value get(const Entry& e) { return e.bitmap; }
};

template <class Field>
class NextHopCollection::MapView {
 public:
  using value_type = std::pair<const NextHop&, typename Field::Value>;

  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = MapView::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = value_type;

    iterator() = default;
    iterator(const Entry* at, const Entry* end) : at_(at), end_(end) { skip(); }
    value_type operator*() const { return {at_->nextHop, Field::get(*at_)}; }
    iterator& operator++() {
      ++at_;
      skip();
      return *this;
    }
    iterator operator++(int) {
      iterator was = *this;
      ++*this;
      return was;
    }
    bool operator==(const iterator& other) const { return at_ == other.at_; }

   private:
    void skip() {
      while (at_ != end_ && !(at_->has & Field::flag)) ++at_;
    }
    const Entry* at_ = nullptr;
    const Entry* end_ = nullptr;
  };

  // Holds the content, so a view of a temporary collection stays good.
  MapView(Vex::Ptr<Body> body, std::size_t size) : body_(std::move(body)), size_(size) {}
  iterator begin() const { return {data(), data() + body_->entries.size()}; }
  iterator end() const { return {data() + body_->entries.size(), data() + body_->entries.size()}; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  value_type front() const { return *begin(); }

 private:
  const Entry* data() const { return body_->entries.data(); }
  Vex::Ptr<Body> body_;
  std::size_t size_;
};

inline NextHopCollection::NextHopWeights NextHopCollection::nextHop() const { return {body_, body().weighted}; }

inline NextHopCollection::NextHopBitmaps NextHopCollection::nextHopBitmap() const { return {body_, body().bitmapped}; }

VEX_SCALAR_VALUE(NextHopCollection, "Orb::NextHopCollection", "nextHops")
inline std::size_t hash_value(const NextHopCollection& c) { return c.hash(); }

}  // namespace Orb
