#include "Orb/OrbAdjTypes.h"

#include <algorithm>

namespace Orb {

// ---- AdjViaBase

const AdjViaNextHopGroupInfo& AdjViaBase::nhgRawOrDefault() const {
  return nhg_ ? nhg_->value : Vex::emptyValue<AdjViaNextHopGroupInfo>();
}

AdjViaNextHopGroupInfo& AdjViaBase::nhgMutate() {
  if (!nhg_) {
    nhg_ = Vex::make<SharedNhg>(AdjViaNextHopGroupInfo{});
  } else if (nhg_->references() > 1) {
    nhg_ = Vex::make<SharedNhg>(nhg_->value);
  }
  return nhg_->value;
}

bool AdjViaBase::operator==(const AdjViaBase& other) const {
  return dlbEcmpEnable_ == other.dlbEcmpEnable_ && numBackupVias_ == other.numBackupVias_ &&
         nhgRawOrDefault() == other.nhgRawOrDefault();
}

std::size_t hash_value(const AdjViaBase& base) {
  std::size_t seed = 0;
  boost::hash_combine(seed, base.dlbEcmpEnable());
  boost::hash_combine(seed, base.numBackupVias());
  boost::hash_combine(seed, base.nhgRawOrDefault());
  return seed;
}

// ---- TableTypeBoolSet

TableTypeBoolSet TableTypeBoolSet::fromVexRep(std::uint32_t bits) {
  if (bits > mask) throw Vex::RangeError("TableTypeBoolSet::value > TableTypeBoolSet::mask not allowed");
  return TableTypeBoolSet(static_cast<std::uint8_t>(bits));
}

// ---- L2Adjacency

void L2Adjacency::setTableTypeForAdj(const Pond::Fib::GlobalFecId& fec, TableType type) {
  auto it = adjEntryAndTableType().find(fec);
  bool recorded = it != adjEntryAndTableType().end();
  if (recorded && it->second.has(type)) return;
  TableTypeBoolSet set = recorded ? it->second.with(type) : TableTypeBoolSet().with(type);
  adjEntryAndTableTypeIs(fec, set);
  adjTableTypeInc(type);
}

void L2Adjacency::unsetTableTypeForAdj(const Pond::Fib::GlobalFecId& fec, TableType type) {
  auto it = adjEntryAndTableType().find(fec);
  if (it == adjEntryAndTableType().end() || !it->second.has(type)) return;
  adjEntryAndTableTypeIs(fec, it->second.without(type));
  adjTableTypeDec(type);
}

TableTypeBoolSet L2Adjacency::adjTableTypeBoolSet() const {
  TableTypeBoolSet set;
  for (const auto& entry : adjTableType()) set = set.with(entry.first);
  return set;
}

// ---- NextHopCollBuildResult

void NextHopCollBuildResult::updateNhCollBuildResult(const NextHopCollBuildResult& other) {
  if (!flattenedL2Adjs_ || flattenedL2Adjs_->l2AdjKeySize() == 0) {
    flattenedL2Adjs_ = other.flattenedL2Adjs_;
  } else if (flattenedL2Adjs_ != other.flattenedL2Adjs_ && other.flattenedL2Adjs_) {
    // Never changes a set that another result may hold.
    auto merged = Vex::make<L2AdjKeyCollection>(*flattenedL2Adjs_);
    for (const auto& key : other.flattenedL2Adjs_->l2AdjKey()) merged->l2AdjKeyIs(key);
    flattenedL2Adjs_ = merged;
  }
  maxPredictedHierarchyHeight_ = std::max(maxPredictedHierarchyHeight_, other.maxPredictedHierarchyHeight_);
  nhInfoMissingAndDrop_ = nhInfoMissingAndDrop_ || other.nhInfoMissingAndDrop_;
  trimmedL2Intf_.insert(other.trimmedL2Intf_.begin(), other.trimmedL2Intf_.end());
  trimmedL3Intf_.insert(other.trimmedL3Intf_.begin(), other.trimmedL3Intf_.end());
  trimmedTunnelKey_.insert(other.trimmedTunnelKey_.begin(), other.trimmedTunnelKey_.end());
}

// ---- TunnelL2Info

std::string TunnelL2Info::stringValue() const {
  std::string out = "tunnel: " + Vex::toStrep(tunnelKey) + ", key: " + std::to_string(key) +
                    " src:" + src.stringValue() + ", dst:" + dst.stringValue() +
                    ", vrf:" + std::to_string(vrf.value()) + ", genId:" + std::to_string(genId) +
                    ", intfId: " + intfId.stringValue();
  if (l2Adj) return out + ", l2Adj: " + l2Adj->key().stringValue();
  if (l2AdjKey) return out + ", l2Adj key: " + l2AdjKey->stringValue();
  return out + ", l2Adj: NULL ";
}

bool TunnelL2Info::operator==(const TunnelL2Info& other) const {
  return tunnelKey == other.tunnelKey && key == other.key && src == other.src && dst == other.dst && vrf == other.vrf &&
         genId == other.genId && intfId == other.intfId && l2Adj == other.l2Adj && l2AdjKey == other.l2AdjKey;
}

std::ostream& operator<<(std::ostream& os, const TunnelL2Info& info) { return os << info.stringValue(); }

}  // namespace Orb
