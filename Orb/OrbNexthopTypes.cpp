#include "Orb/OrbNexthopTypes.h"

#include "Orb/OrbAdjTypes.h"
#include "Orb/OrbAssert.h"

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <bit>

namespace OrbTypes {

ViaBitmapRange::ViaBitmapRange(std::uint32_t value) : value_(value) {
  if (value > null) {
    throw Vex::RangeError("ViaBitmapRange::value < ViaBitmapRange::min or > ViaBitmapRange::null not allowed");
  }
}

namespace {

std::uint32_t checkedIndex(ViaBitmapIndex index) {
  if (!(index.value() < ViaBitmapIndex::max())) Orb::orbAssert("index < ViaBitmapIndex::max()");
  return index.value();
}

}  // namespace

void ViaBitmap::bitSet(ViaBitmapRange position) {
  word_[checkedIndex(ViaBitmapIndex(position.value() / 32))] |= 1u << (position.value() % 32);
}

void ViaBitmap::bitClear(ViaBitmapRange position) {
  word_[checkedIndex(ViaBitmapIndex(position.value() / 32))] &= ~(1u << (position.value() % 32));
}

bool ViaBitmap::bitTest(ViaBitmapRange position) const {
  return (word_[checkedIndex(ViaBitmapIndex(position.value() / 32))] >> (position.value() % 32)) & 1u;
}

std::uint32_t ViaBitmap::word(ViaBitmapIndex index) const { return word_[checkedIndex(index)]; }

void ViaBitmap::wordIs(ViaBitmapIndex index, std::uint32_t value) { word_[checkedIndex(index)] = value; }

bool ViaBitmap::empty() const {
  return std::all_of(word_.begin(), word_.end(), [](std::uint32_t w) { return w == 0; });
}

std::uint32_t ViaBitmap::count() const {
  std::uint32_t total = 0;
  for (std::uint32_t w : word_) total += static_cast<std::uint32_t>(std::popcount(w));
  return total;
}

std::vector<std::uint32_t> ViaBitmap::positions() const {
  std::vector<std::uint32_t> out;
  for (std::uint32_t i = 0; i < words; ++i) {
    for (std::uint32_t w = word_[i]; w != 0; w &= w - 1) out.push_back(i * 32 + std::countr_zero(w));
  }
  return out;
}

std::string ViaBitmap::stringValue() const {
  std::string out = "ViaBitmap( bits set:";
  for (std::uint32_t p : positions()) {
    out += ' ';
    out += std::to_string(p);
  }
  out += " )";
  return out;
}

ViaBitmap ViaBitmap::fromVexRep(const std::vector<std::uint32_t>& positions) {
  ViaBitmap bitmap;
  for (std::uint32_t p : positions) bitmap.bitSet(ViaBitmapRange(p));
  return bitmap;
}

// Each word is offset by a constant of its own before folding, so that the
// same bits in different words hash differently; the plain loop over all
// words vectorises, which matters because every next hop of a collection
// carries one bitmap.
std::size_t hash_value(const ViaBitmap& bitmap) {
  std::uint64_t acc = 0;
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < ViaBitmap::words; ++i) {
    std::uint64_t w = bitmap.word_[i];
    acc ^= (w + 0x9e3779b9u * (i + 1)) << (i % 32);
    sum += w;
  }
  std::uint64_t h = acc * 0x9e3779b97f4a7c15ULL ^ sum;
  return static_cast<std::size_t>(h ^ (h >> 29));
}

PackedViaBitmap::PackedViaBitmap(const ViaBitmap& bitmap) {
  // Skips zero words eight at a time: a bitmap usually has one set bit.
  const auto& words = bitmap.word_;
  for (std::uint16_t block = 0; block < ViaBitmap::words; block += 8) {
    std::uint32_t any = 0;
    std::uint16_t end = std::min<std::uint16_t>(block + 8, ViaBitmap::words);
    for (std::uint16_t i = block; i < end; ++i) any |= words[i];
    if (any == 0) continue;
    for (std::uint16_t i = block; i < end; ++i) {
      if (words[i] == 0) continue;
      if (index_ != noWord) {
        *this = PackedViaBitmap();
        whole_ = Vex::make<Whole>(bitmap);
        return;
      }
      index_ = i;
      word_ = words[i];
    }
  }
}

ViaBitmap PackedViaBitmap::unpack() const {
  if (whole_) return whole_->bitmap;
  ViaBitmap bitmap;
  if (index_ != noWord) bitmap.wordIs(ViaBitmapIndex(index_), word_);
  return bitmap;
}

bool PackedViaBitmap::operator==(const PackedViaBitmap& other) const {
  if (whole_ || other.whole_) return whole_ && other.whole_ && whole_->bitmap == other.whole_->bitmap;
  return index_ == other.index_ && word_ == other.word_;
}

std::strong_ordering PackedViaBitmap::operator<=>(const PackedViaBitmap& other) const {
  // Packed bitmaps order before whole ones; any total order consistent
  // with equality serves the ordering of collections.
  if (whole_ || other.whole_) {
    if (!other.whole_) return std::strong_ordering::greater;
    if (!whole_) return std::strong_ordering::less;
    return whole_->bitmap <=> other.whole_->bitmap;
  }
  if (auto c = index_ <=> other.index_; c != 0) return c;
  return word_ <=> other.word_;
}

std::size_t hash_value(const PackedViaBitmap& packed) {
  if (packed.whole_) return hash_value(packed.whole_->bitmap);
  std::uint64_t h = ((std::uint64_t(packed.index_) << 32) | packed.word_) * 0x9e3779b97f4a7c15ULL;
  return static_cast<std::size_t>(h ^ (h >> 29));
}

ViaBitmapIter::ViaBitmapIter(const ViaBitmap& bitmap) : bitmap_(bitmap) { ++*this; }

ViaBitmapIter::ViaBitmapIter(const ViaBitmap& bitmap, std::uint32_t position)
    : bitmap_(bitmap), position_(ViaBitmapRange(position).value()) {}

ViaBitmapIter& ViaBitmapIter::operator++() {
  if (done_) return *this;
  std::uint32_t word = 0;
  std::uint32_t bits = 0;
  if (position_ == ViaBitmapRange::null) {
    bits = bitmap_.word(ViaBitmapIndex(0));
  } else {
    word = position_ / 32;
    // Clears the bits up to and including the current position; a shift by
    // 32 would be undefined, so the top bit is handled by unsigned wrap.
    std::uint32_t keep = ~((2u << (position_ % 32)) - 1u);
    if (position_ % 32 == 31) keep = 0;
    bits = bitmap_.word(ViaBitmapIndex(word)) & keep;
  }
  while (bits == 0 && word + 1 < ViaBitmap::words) bits = bitmap_.word(ViaBitmapIndex(++word));
  if (bits == 0) {
    position_ = ViaBitmapRange::null;
    done_ = true;
    return *this;
  }
  position_ = ViaBitmapRange(word * 32 + static_cast<std::uint32_t>(std::countr_zero(bits))).value();
  if (position_ == ViaBitmapRange::null) done_ = true;
  return *this;
}

}  // namespace OrbTypes

namespace Orb {

// ---- EncapInfo

EncapInfo::EncapInfo(EncapType kind) {
  Value value;
  value.kind = kind;
  content_ = wrapperFactory(value);
}

Vex::Ptr<EncapInfo::Content> EncapInfo::wrapperFactory(const Value& value) { return Vex::make<Content>(value); }

EncapInfo::Value& EncapInfo::maybeCopyWrapper(EncapType kind) {
  if (!content_) {
    Value value;
    value.kind = kind;
    content_ = wrapperFactory(value);
  } else if (content_->references() > 1) {
    content_ = wrapperFactory(content_->value);
  }
  // The content holds one encapsulation: a new kind starts from scratch.
  if (content_->value.kind != kind) {
    content_->value = Value();
    content_->value.kind = kind;
  }
  return content_->value;
}

const EncapInfo::Value& EncapInfo::content() const { return content_ ? content_->value : Vex::emptyValue<Value>(); }

void EncapInfo::greEncapIs(const Tunnel::GreTunnelInfo& gre) { maybeCopyWrapper(EncapType::encapGre).gre = gre; }

void EncapInfo::ipsecEncapIs(const IpsecTunnelInfo& ipsec) { maybeCopyWrapper(EncapType::encapIpsec).ipsec = ipsec; }

void EncapInfo::labelsIs(const Nexo::MplsLabelOperation& labels) {
  maybeCopyWrapper(EncapType::encapMpls).labels = labels;
}

bool EncapInfo::contentEqual(const EncapInfo& other) const {
  if (!content_ || !other.content_) return false;
  return content_->value == other.content_->value;
}

std::strong_ordering EncapInfo::contentOrder(const EncapInfo& other) const {
  if (!content_) return std::strong_ordering::less;
  if (!other.content_) return std::strong_ordering::greater;
  return content_->value <=> other.content_->value;
}

std::optional<EncapInfo::Value> EncapInfo::vexRep() const {
  if (!content_) return std::nullopt;
  return content_->value;
}

EncapInfo EncapInfo::fromVexRep(const std::optional<Value>& rep) {
  EncapInfo encap;
  if (rep) encap.content_ = wrapperFactory(*rep);
  return encap;
}

std::size_t hash_value(const EncapInfo& encap) {
  if (!encap) return 0;
  return hash_value(*encap.vexRep());
}

EncapInfo getEncapInfo(const Tunnel::IpsecVtiTunnelInfo& vti, const Nexo::IntfId& intf) {
  EncapInfo encap(Tunnel::TunnelTable::EncapType::encapIpsec);
  encap.ipsecEncapIs(IpsecTunnelInfo{vti.src, vti.dst, vti.spi, intf});
  return encap;
}

// ---- L2AdjRef

void intrusive_ptr_add_ref(const L2Adjacency* adj) {
  intrusive_ptr_add_ref(static_cast<const Vex::PtrInterface*>(adj));
}

void intrusive_ptr_release(const L2Adjacency* adj) {
  intrusive_ptr_release(static_cast<const Vex::PtrInterface*>(adj));
}

L2AdjRef::L2AdjRef(Vex::Ptr<L2Adjacency> adj) : adj_(std::move(adj)) {}

std::optional<L2AdjKey> L2AdjRef::key() const {
  if (!adj_) return std::nullopt;
  return adj_->key();
}

std::strong_ordering L2AdjRef::operator<=>(const L2AdjRef& other) const {
  if (adj_ == other.adj_) return std::strong_ordering::equal;
  return key() <=> other.key();
}

L2AdjRef L2AdjRef::fromVexRep(const std::optional<L2AdjKey>& key) {
  if (!key) return {};
  return L2AdjRef(Vex::make<L2Adjacency>(*key));
}

std::size_t hash_value(const L2AdjRef& ref) {
  if (!ref) return 0;
  return hash_value(*ref.key());
}

std::string L2AdjKey::stringValue() const { return Vex::valueToStrep(type) + " index: " + std::to_string(index); }

// ---- NextHop

static_assert(sizeof(NextHop) <= 56, "a next hop packs into 56 bytes");

namespace {

// A cheap, well-mixed combine for the fields of a next hop, which are
// hashed for every next hop of every collection.
inline std::uint64_t mix(std::uint64_t h, std::uint64_t v) {
  h ^= v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
  return h * 0xff51afd7ed558ccdULL;
}

}  // namespace

std::size_t hash_value(const NextHop& nh) {
  // The plain fields are multiplied apart and then folded, so that the
  // multiplications overlap instead of forming a chain.
  std::uint64_t lead = static_cast<std::uint64_t>(nh.entryType) | (std::uint64_t(nh.nhgCounterType) << 8) |
                       (std::uint64_t(nh.tunnelId) << 16);
  std::uint64_t h = (lead * 0x9e3779b97f4a7c15ULL) ^ (nh.mac.value() * 0xff51afd7ed558ccdULL) ^
                    (nh.l2Intf.bits() * 0xc4ceb9fe1a85ec53ULL) ^ (nh.l3Intf.bits() * 0xd6e8feb86659fd93ULL) ^
                    (((std::uint64_t(nh.nhgEntryKey.nhgId) << 32) | nh.nhgEntryKey.entryIndex) * 0xa0761d6478bd642fULL);
  if (nh.encap) h = mix(h, hash_value(nh.encap));
  if (nh.hierarchicalNextLevelL2Adj) h = mix(h, hash_value(nh.hierarchicalNextLevelL2Adj));
  return static_cast<std::size_t>(h ^ (h >> 32));
}

std::ostream& operator<<(std::ostream& os, const NextHop& nh) { return os << Vex::toStrep(nh); }

Tunnel::TunnelTable::TunnelId NextHop::countedTunnelId() const {
  return nhgCounterType == Routing::NexthopGroup::EntryCounterType::entryCounterNone ? 0 : tunnelId;
}

bool NextHop::isUsingSharedNhgCounter() const {
  return nhgCounterType == Routing::NexthopGroup::EntryCounterType::entryCounterShared;
}

NextHopGroupEntryKey NextHop::unsharedCountedNhgEntryKey() const {
  if (nhgCounterType != Routing::NexthopGroup::EntryCounterType::entryCounterUnshared) return {};
  return nhgEntryKey;
}

// ---- NextHopEntry, NextHopEntryList

std::string NextHopEntry::stringValue() const {
  return "type:" + Vex::valueToStrep(type) + ", ip: " + ip.stringValue() + ", mac: " + mac.stringValue() +
         ", l2Intf: " + l2Intf.stringValue() + ", l3Intf: " + l3Intf.stringValue();
}

std::ostream& operator<<(std::ostream& os, const NextHopEntry& entry) { return os << entry.stringValue(); }

bool NextHopEntryList::isEqual(const NextHopEntryList& other) const {
  return vrfAndAddr_ == other.vrfAndAddr_ && vrfAndGenAddr_ == other.vrfAndGenAddr_ &&
         nextHopEntry() == other.nextHopEntry() && nextHopEntryInfo() == other.nextHopEntryInfo();
}

}  // namespace Orb

// ---- NextHopCollection

namespace Orb {

namespace {

using Routing::NexthopGroup::NexthopGroupType;

const NextHopGroupInfo& defaultGroupInfo() {
  static const NextHopGroupInfo info;
  return info;
}

}  // namespace

NextHopCollection::NextHopCollection() {
  // Default collections share one empty content until they are written.
  static const Vex::Ptr<Body> empty = Vex::make<Body>();
  body_ = empty;
}

NextHopCollection::NextHopCollection(L2AdjType l2AdjType) : NextHopCollection() {
  if (l2AdjType != body_->l2AdjType) mutate().l2AdjType = l2AdjType;
}

NextHopCollection::Body& NextHopCollection::mutate(bool sorted) {
  if (sorted) body();
  if (body_->references() > 1) body_ = Vex::make<Body>(*body_);
  body_->hashValid = false;
  hashKnown_ = false;
  handleNextHopChanged();
  return *body_;
}

namespace {

// A next hop's leading fields as integers that order as the next hop does:
// they decide almost every comparison of a sort, so that the whole next hop
// is compared only on ties.
struct SortKey {
  std::uint64_t lead;  // entry type, counter type, tunnel
  std::uint64_t mac;
  std::uint32_t position;
};
static_assert(sizeof(NextHopEntryType) == 1 && sizeof(Routing::NexthopGroup::EntryCounterType) == 1 &&
                  sizeof(Tunnel::TunnelTable::TunnelId) == 4,
              "the leading fields of a next hop fit one sort key word");

// Scratch space for sorting, on the stack for collections of usual size.
template <class T>
using Scratch = boost::container::small_vector<T, 128>;

// Positions of `entries` in next-hop order, entries for the same next hop
// in the order they were written.
template <class Entries>
Scratch<std::uint32_t> nextHopOrder(const Entries& entries) {
  const auto n = static_cast<std::uint32_t>(entries.size());
  Scratch<SortKey> keys(n, boost::container::default_init);
  for (std::uint32_t i = 0; i < n; ++i) {
    const NextHop& nh = entries[i].nextHop;
    keys[i] = {(std::uint64_t(nh.entryType) << 40) | (std::uint64_t(nh.nhgCounterType) << 32) | nh.tunnelId,
               nh.mac.value(), i};
  }
  std::sort(keys.begin(), keys.end(), [&](const SortKey& a, const SortKey& b) {
    if (a.lead != b.lead) return a.lead < b.lead;
    if (a.mac != b.mac) return a.mac < b.mac;
    auto c = entries[a.position].nextHop <=> entries[b.position].nextHop;
    return c < 0 || (c == 0 && a.position < b.position);
  });
  Scratch<std::uint32_t> order(n, boost::container::default_init);
  for (std::uint32_t i = 0; i < n; ++i) order[i] = keys[i].position;
  return order;
}

// Puts the entries in `order` (order[i] is the entry that belongs at i),
// moving each once, in place, along the cycles of the permutation.
template <class Entries>
void applyOrder(Entries& entries, Scratch<std::uint32_t>& order) {
  const auto n = static_cast<std::uint32_t>(entries.size());
  // A done position points to itself.
  for (std::uint32_t i = 0; i < n; ++i) {
    if (order[i] == i) continue;
    auto held = std::move(entries[i]);
    std::uint32_t j = i;
    while (order[j] != i) {
      std::uint32_t from = order[j];
      entries[j] = std::move(entries[from]);
      order[j] = j;
      j = from;
    }
    entries[j] = std::move(held);
    order[j] = j;
  }
}

// Asks for all of `entries` at once. Collections are looked up by hash and
// compared far more often than they are written, usually straight from
// memory: fetching line after line as the loop reaches it would wait for
// each in turn.
template <class Entries>
void prefetch(const Entries& entries) {
  const char* at = reinterpret_cast<const char*>(entries.data());
  const char* end = reinterpret_cast<const char*>(entries.data() + entries.size());
  for (; at < end; at += 64) __builtin_prefetch(at);
}

// One field of one entry as a share of its collection's hash. Shares are
// summed, so each is fully mixed: shares of different fields or entries
// must not cancel out.
std::uint64_t fieldHash(std::uint64_t nextHopHash, std::uint8_t field, std::uint64_t value) {
  std::uint64_t h = (nextHopHash + field * 0x9e3779b97f4a7c15ULL) ^ (value * 0xc4ceb9fe1a85ec53ULL);
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ULL;
  return h ^ (h >> 33);
}

}  // namespace

std::uint64_t NextHopCollection::Entry::fieldShare(std::uint64_t nextHopHash, std::uint8_t field) const {
  return fieldHash(nextHopHash, field, field == hasWeight ? weight : hash_value(bitmap));
}

std::uint64_t NextHopCollection::Entry::share() const {
  const std::uint64_t nextHopHash = hash_value(nextHop);
  std::uint64_t sum = 0;
  if (has & hasWeight) sum += fieldShare(nextHopHash, hasWeight);
  if (has & hasBitmap) sum += fieldShare(nextHopHash, hasBitmap);
  return sum;
}

void NextHopCollection::write(const NextHop& nh, std::uint8_t field, std::uint32_t weight,
                              const OrbTypes::PackedViaBitmap& bitmap) {
  Body& b = mutate();
  std::uint64_t nextHopHash = 0;
  auto set = [&](Entry& e) {
    if (b.sumValid) {
      nextHopHash = hash_value(nh);
      if (e.has & field) b.entrySum -= e.fieldShare(nextHopHash, field);
    }
    if (field == Entry::hasWeight) {
      e.weight = weight;
    } else {
      e.bitmap = bitmap;
    }
    if (b.sorted && !(e.has & field)) ++(field == Entry::hasWeight ? b.weighted : b.bitmapped);
    e.has |= field;
    if (!b.sumValid) return;
    b.entrySum += e.fieldShare(nextHopHash, field);
    // The group part is rarely there and can be large: its hash waits
    // until asked for.
    if (b.nhgc) return;
    b.hash = hash_ = hashOf(b);
    b.hashValid = hashKnown_ = true;
  };
  // Builders write each next hop's weight and bitmap together: the second
  // write lands on the entry of the first.
  if (!b.entries.empty() && b.entries.back().nextHop == nh) return set(b.entries.back());
  // Builders also write next hops in via order, not next-hop order:
  // appending and sorting once when read costs n log n against n^2 for
  // keeping the vector sorted on every write.
  if (b.sorted && !b.entries.empty() && !(b.entries.back().nextHop < nh)) {
    if (const Entry* at = find(nh)) return set(const_cast<Entry&>(*at));
    b.sorted = false;
  } else if (!b.sorted) {
    // The next hop may have an entry already, which folding will merge.
    b.sumValid = false;
  }
  set(b.entries.emplace_back(Entry{nh, 0, 0, {}}));
}

void NextHopCollection::erase(const NextHop& nh, std::uint8_t field) {
  const Entry* found = find(nh);
  if (!found || !(found->has & field)) return;
  const auto index = found - body().entries.data();
  Body& b = mutate(true);
  Entry& e = b.entries[static_cast<std::size_t>(index)];
  b.entrySum -= e.fieldShare(hash_value(nh), field);
  e.has &= static_cast<std::uint8_t>(~field);
  if (field == Entry::hasWeight) {
    e.weight = 0;
    --b.weighted;
  } else {
    e.bitmap = {};
    --b.bitmapped;
  }
  if (!e.has) b.entries.erase(b.entries.begin() + index);
}

const NextHopCollection::Body& NextHopCollection::body() const {
  // Sorting changes how the content is held, not what it is, so it is done
  // in place even when the content is shared.
  Body& b = *body_;
  if (b.sorted) return b;
  auto order = nextHopOrder(b.entries);
  applyOrder(b.entries, order);
  // Fold the entries of each next hop, later writes winning.
  std::size_t kept = 0;
  b.weighted = b.bitmapped = 0;
  for (std::size_t i = 0; i < b.entries.size(); ++i) {
    Entry& e = b.entries[i];
    if (kept > 0 && b.entries[kept - 1].nextHop == e.nextHop) {
      Entry& into = b.entries[kept - 1];
      if (e.has & Entry::hasWeight) into.weight = e.weight;
      if (e.has & Entry::hasBitmap) into.bitmap = std::move(e.bitmap);
      into.has |= e.has;
      continue;
    }
    if (kept != i) b.entries[kept] = std::move(e);
    ++kept;
  }
  b.entries.erase(b.entries.begin() + static_cast<std::ptrdiff_t>(kept), b.entries.end());
  for (const Entry& e : b.entries) {
    b.weighted += (e.has & Entry::hasWeight) != 0;
    b.bitmapped += (e.has & Entry::hasBitmap) != 0;
  }
  b.sorted = true;
  if (!b.sumValid) {
    // Entries may have merged: sum them again while they are in cache.
    b.entrySum = 0;
    for (const Entry& e : b.entries) b.entrySum += e.share();
    b.sumValid = true;
  }
  return b;
}

const NextHopCollection::Entry* NextHopCollection::find(const NextHop& nh) const {
  const auto& entries = body().entries;
  auto it = std::lower_bound(entries.begin(), entries.end(), nh,
                             [](const Entry& e, const NextHop& key) { return e.nextHop < key; });
  return it != entries.end() && it->nextHop == nh ? &*it : nullptr;
}

std::uint32_t NextHopCollection::nextHop(const NextHop& nh) const {
  const Entry* e = find(nh);
  return e ? e->weight : 0;
}

bool NextHopCollection::nextHopHas(const NextHop& nh) const {
  const Entry* e = find(nh);
  return e && (e->has & Entry::hasWeight);
}

void NextHopCollection::nextHopIs(const NextHop& nh, std::uint32_t weight) { write(nh, Entry::hasWeight, weight, {}); }

void NextHopCollection::nextHopDel(const NextHop& nh) { erase(nh, Entry::hasWeight); }

void NextHopCollection::nextHopReserve(std::size_t count) { mutate().entries.reserve(count); }

ViaBitmap NextHopCollection::nextHopBitmap(const NextHop& nh) const {
  const Entry* e = find(nh);
  return e ? e->bitmap.unpack() : ViaBitmap();
}

void NextHopCollection::nextHopBitmapIs(const NextHop& nh, const ViaBitmap& bitmap) {
  write(nh, Entry::hasBitmap, 0, OrbTypes::PackedViaBitmap(bitmap));
}

void NextHopCollection::nextHopBitmapDel(const NextHop& nh) { erase(nh, Entry::hasBitmap); }

void NextHopCollection::flagsIs(std::uint8_t flags) {
  if (flags != body_->flags) mutate().flags = flags;
}

void NextHopCollection::attachedIs(bool attached) {
  flagsIs(attached ? (flags() | attachedFlag) : (flags() & ~attachedFlag));
}

void NextHopCollection::potentialHierarchicalNextHopIs(bool potential) {
  flagsIs(potential ? (flags() | potentialHierarchicalNextHopFlag) : (flags() & ~potentialHierarchicalNextHopFlag));
}

void NextHopCollection::tunnelTypeIs(NextHopTunnelType type) {
  if (type != body_->tunnelType) mutate().tunnelType = type;
}

void NextHopCollection::hierarchyHeightIs(std::uint8_t height) {
  if (height != body_->hierarchyHeight) mutate().hierarchyHeight = height;
}

const NextHopGroupInfo& NextHopCollection::nhgcRawOrDefault() const {
  return body_->nhgc ? body_->nhgc->value : defaultGroupInfo();
}

NextHopGroupInfo& NextHopCollection::nhgcMutate() {
  Body& b = mutate();
  if (!b.nhgc) {
    b.nhgc = Vex::make<SharedGroupInfo>(defaultGroupInfo());
  } else if (b.nhgc->references() > 1) {
    b.nhgc = Vex::make<SharedGroupInfo>(b.nhgc->value);
  }
  return b.nhgc->value;
}

const NextHop& NextHopCollection::nextHopGroupEntryL2Info(std::uint32_t index) const {
  const auto& entries = nhgcRawOrDefault().nextHopGroupEntryL2Info;
  auto it = entries.find(index);
  return it == entries.end() ? Vex::emptyValue<NextHop>() : it->second;
}

const TunnelResolutionInfo& NextHopCollection::nextHopGroupEntryResolution(std::uint32_t index) const {
  const auto& entries = nhgcRawOrDefault().nextHopGroupEntryResolution;
  auto it = entries.find(index);
  return it == entries.end() ? Vex::emptyValue<TunnelResolutionInfo>() : it->second;
}

const NexthopPosition& NextHopCollection::nhgEntryKeyToPosition(const NextHopGroupEntryKey& key) const {
  const auto& entries = nhgcRawOrDefault().nhgEntryKeyToPosition;
  auto it = entries.find(key);
  return it == entries.end() ? Vex::emptyValue<NexthopPosition>() : it->second;
}

void NextHopCollection::handleNextHopChanged() {
  totalWeightCache_ = totalWeightNotComputed;
  nextHopTypeCache_ = NextHopTypeCacheType::invalidCache;
}

void NextHopCollection::updateCaches() {
  handleNextHopChanged();
  std::uint64_t total = totalWeight();
  NextHopTypeCacheType type = nextHopType();
  totalWeightCache_ = total;
  nextHopTypeCache_ = type;
}

std::uint64_t NextHopCollection::totalWeight() const {
  if (totalWeightCache_ != totalWeightNotComputed) return totalWeightCache_;
  std::uint64_t total = 0;
  for (const Entry& e : body().entries) total += e.weight;
  return total;
}

NextHopTypeCacheType NextHopCollection::nextHopType() const {
  if (nextHopTypeCache_ != NextHopTypeCacheType::invalidCache) return nextHopTypeCache_;
  std::size_t drops = 0;
  for (const auto& [nh, weight] : nextHop()) drops += nh.isDrop();
  if (drops == nextHopSize()) return NextHopTypeCacheType::allDrop;
  return drops == 0 ? NextHopTypeCacheType::noneDrop : NextHopTypeCacheType::someDrop;
}

bool NextHopCollection::allDrop() const {
  if (nextHopTypeCache_ != NextHopTypeCacheType::invalidCache) {
    return nextHopTypeCache_ == NextHopTypeCacheType::allDrop;
  }
  auto hops = nextHop();
  return std::all_of(hops.begin(), hops.end(), [](const auto& entry) { return entry.first.isDrop(); });
}

bool NextHopCollection::allArpRequired() const {
  auto hops = nextHop();
  return !hops.empty() && std::all_of(hops.begin(), hops.end(), [](const auto& entry) {
    return entry.first.entryType == NextHopEntryType::nextHopArpRequired;
  });
}

bool NextHopCollection::allNextHopWeightsAreOne() const {
  auto hops = nextHop();
  return std::all_of(hops.begin(), hops.end(), [](const auto& entry) { return entry.second == 1; });
}

bool NextHopCollection::hasResolvedNextHops() const {
  auto hops = nextHop();
  return std::any_of(hops.begin(), hops.end(),
                     [](const auto& entry) { return entry.first.entryType == NextHopEntryType::nextHopArpResolved; });
}

std::vector<std::uint32_t> NextHopCollection::getLogicalPositionIndexes(const NextHop& nh) const {
  std::vector<std::uint32_t> out;
  for (const auto& [index, entry] : nhgcRawOrDefault().nextHopGroupEntryL2Info) {
    if (entry == nh) out.push_back(index);
  }
  return out;
}

NextHopTunnelType NextHopCollection::nextHopGroupTypeToTunnelType(NexthopGroupType type) {
  switch (type) {
    case NexthopGroupType::nexthopGroupTypeIpInIp:
      return NextHopTunnelType::ipInIp;
    case NexthopGroupType::nexthopGroupTypeMpls:
      return NextHopTunnelType::mpls;
    case NexthopGroupType::nexthopGroupTypeMplsOverGre:
      return NextHopTunnelType::mplsOverGre;
    case NexthopGroupType::nexthopGroupTypeMplsOverUdp:
      return NextHopTunnelType::mplsOverUdp;
    case NexthopGroupType::nexthopGroupTypeVxlan:
      return NextHopTunnelType::vxlan;
    case NexthopGroupType::nexthopGroupTypeIp:
    case NexthopGroupType::nexthopGroupTypeGre:
      break;
  }
  return NextHopTunnelType::none;
}

bool NextHopCollection::verify() const {
  const Body& b = body();
  for (std::size_t i = 0; i < b.entries.size(); ++i) {
    const Entry& e = b.entries[i];
    if (!(e.has & Entry::hasWeight) || e.weight == 0) return false;
    if (i > 0 && !(b.entries[i - 1].nextHop < e.nextHop)) return false;
  }
  const NextHopGroupInfo& group = nhgcRawOrDefault();
  for (const auto& [index, nh] : group.nextHopGroupEntryL2Info) {
    if (index >= group.nextHopGroupSize) return false;
  }
  for (const auto& [index, info] : group.nextHopGroupEntryResolution) {
    if (index >= group.nextHopGroupSize) return false;
  }
  NextHopCollection fresh = *this;
  fresh.handleNextHopChanged();
  if (totalWeightCache_ != totalWeightNotComputed && totalWeightCache_ != fresh.totalWeight()) return false;
  if (nextHopTypeCache_ != NextHopTypeCacheType::invalidCache && nextHopTypeCache_ != fresh.nextHopType()) {
    return false;
  }
  return true;
}

std::size_t NextHopCollection::hashOf(const Body& b) {
  std::uint64_t h = std::uint64_t(b.l2AdjType) | (std::uint64_t(b.flags) << 8) | (std::uint64_t(b.tunnelType) << 16) |
                    (std::uint64_t(b.hierarchyHeight) << 24) | (std::uint64_t(b.entries.size()) << 32);
  h = (h * 0x9e3779b97f4a7c15ULL + b.entrySum) * 0xff51afd7ed558ccdULL;
  // An absent group part and a default one are the same value.
  if (b.nhgc && !(b.nhgc->value == defaultGroupInfo())) h ^= hash_value(b.nhgc->value);
  return static_cast<std::size_t>(h ^ (h >> 31));
}

std::size_t NextHopCollection::hash() const {
  if (hashKnown_) return hash_;
  const Body& b = body_->sumValid ? *body_ : body();
  if (!b.hashValid) {
    b.hash = hashOf(b);
    b.hashValid = true;
  }
  hash_ = b.hash;
  hashKnown_ = true;
  return hash_;
}

bool NextHopCollection::operator==(const NextHopCollection& other) const {
  // Both checks before reading the content, which is likely not in cache.
  if (body_ == other.body_) return true;
  if (hashKnown_ && other.hashKnown_ && hash_ != other.hash_) return false;
  const Body& a = body();
  const Body& b = other.body();
  if (a.hashValid && b.hashValid && a.hash != b.hash) return false;
  if (a.entries.size() != b.entries.size()) return false;
  prefetch(a.entries);
  prefetch(b.entries);
  return a.l2AdjType == b.l2AdjType && a.flags == b.flags && a.tunnelType == b.tunnelType &&
         a.hierarchyHeight == b.hierarchyHeight && a.entries == b.entries &&
         nhgcRawOrDefault() == other.nhgcRawOrDefault();
}

void NextHopCollection::shareContentWith(const NextHopCollection& equal) const {
  if (equal.body_ == body_) return;
  // Callers have just found the two equal; the cached hashes are a cheap
  // guard against a misuse that would change `equal`'s value.
  ORB_ASSERT(equal.hash() == hash());
  equal.body_ = body_;
}

std::strong_ordering NextHopCollection::operator<=>(const NextHopCollection& other) const {
  const Body& a = body();
  const Body& b = other.body();
  if (&a == &b) return std::strong_ordering::equal;
  if (auto c = a.l2AdjType <=> b.l2AdjType; c != 0) return c;
  if (auto c = a.flags <=> b.flags; c != 0) return c;
  if (auto c = a.tunnelType <=> b.tunnelType; c != 0) return c;
  if (auto c = a.hierarchyHeight <=> b.hierarchyHeight; c != 0) return c;
  if (auto c = a.entries <=> b.entries; c != 0) return c;
  return nhgcRawOrDefault() <=> other.nhgcRawOrDefault();
}

}  // namespace Orb
