#include "Orb/OrbFecReader.h"

namespace Orb {

using Pond::Fib::FecId;
using Pond::Fib::GlobalFecId;

namespace {

FecId localId(GlobalFecId fecId) { return FecId(fecId.value()); }

void found(FecReadData* out, const Pond::Fib::Fec& fec) {
  out->status = FecReadData::fecFound;
  out->fecType = FecType::fecTypeIpv4;
  out->fec = fec;
}

void found(FecReadData* out, const Pond::Fib6::Fec& fec) {
  out->status = FecReadData::fecFound;
  out->fecType = FecType::fecTypeIpv6;
  out->fec6 = fec;
}

// Copies the row of `fecId` from a table of FEC rows, if it has one.
template <class Lookup>
bool readInto(FecReadData* out, Lookup lookup) {
  auto row = lookup();
  if (!row) {
    out->status = FecReadData::fecNotFound;
    return false;
  }
  found(out, *row);
  return true;
}

template <class FecRow>
void addNextLevel(const FecRow& fec, std::set<GlobalFecId>& out) {
  for (std::uint32_t i = 0; i < fec.viaCount && i < Pond::Fib::maxVias; ++i) {
    if (fec.via[i].flags & Pond::Fib::viaFlagNextLevelFec)
      out.insert(GlobalFecId(nextLevelFecIdOf(fec.via[i]).value()));
  }
}

}  // namespace

void FibForwardingStatus::controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity) {
  fecControlIs(Pond::TableControl::of(prefix, "fec", role, capacity));
  fec6ControlIs(Pond::TableControl::of(prefix, "fec6", role, capacity));
}

void AggregatedForwardingStatus::controlIs(const std::string& prefix, Pond::TableControl::Role role,
                                           std::size_t capacity) {
  nexthopGroupFecControlIs(Pond::TableControl::of(prefix, "nexthopGroupFec", role, capacity));
  routeCacheFecControlIs(Pond::TableControl::of(prefix, "routeCacheFec", role, capacity));
}

FecReader::FecReader(Vex::Ptr<AggregatedForwardingStatus> aggregated, Vex::Ptr<FibForwardingStatus> fib,
                     Vex::Ptr<AllFecIdToHwFecIdRequestResponse> requests)
    : aggregated_(std::move(aggregated)), fib_(std::move(fib)), requests_(std::move(requests)) {}

std::optional<FecReadData> FecReader::readFec(GlobalFecId fecId) const {
  FecReadData data;
  if (!readFecIntoData(fecId, &data)) return std::nullopt;
  return data;
}

bool FecReader::readFecIntoData(GlobalFecId fecId, FecReadData* out) const {
  FecId id = localId(fecId);
  if (fib_) {
    if (readInto(out, [&] { return fib_->fecFind(id); })) return true;
    if (readInto(out, [&] { return fib_->fec6Find(id); })) return true;
  }
  if (requests_) {
    for (const auto& [source, _] : requests_->requestCollection()) {
      loadHwFecIdRequestFec<IPv4>(id, source, *requests_, *out);
      if (out->status == FecReadData::fecFound) return true;
      loadHwFecIdRequestFec<IPv6>(id, source, *requests_, *out);
      if (out->status == FecReadData::fecFound) return true;
    }
  }
  out->status = FecReadData::fecNotFound;
  out->fecType = FecType::fecTypeNone;
  return false;
}

bool FecReader::readNexthopGroupIntoData(GlobalFecId fecId, FecReadData* out) const {
  return aggregated_ && readInto(out, [&] { return aggregated_->nexthopGroupFecFind(localId(fecId)); });
}

bool FecReader::readRouteCacheFecIntoData(GlobalFecId fecId, FecReadData* out) const {
  return aggregated_ && readInto(out, [&] { return aggregated_->routeCacheFecFind(localId(fecId)); });
}

NextLevelFecIdsResult FecReader::nextLevelFecIds(GlobalFecId fecId) const {
  NextLevelFecIdsResult result;
  auto mounted = [](Pond::MountStatus status) { return status == Pond::MountStatus::mounted; };
  result.requiredCollectionsMounted =
      fib_ && aggregated_ && mounted(fib_->fecMountStatus()) && mounted(fib_->fec6MountStatus()) &&
      mounted(aggregated_->nexthopGroupFecMountStatus()) && mounted(aggregated_->routeCacheFecMountStatus());
  if (!result) return result;
  FecReadData data;
  if (readFecIntoData(fecId, &data) || readNexthopGroupIntoData(fecId, &data) ||
      readRouteCacheFecIntoData(fecId, &data)) {
    if (data.fecType == FecType::fecTypeIpv6)
      addNextLevel(data.fec6, result.fecIdColl);
    else
      addNextLevel(data.fec, result.fecIdColl);
  }
  return result;
}

}  // namespace Orb
