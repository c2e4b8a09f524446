#include "Orb/OrbFecRequest.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbTrace.h"
#include "platform/blip/Blip.h"

#include <boost/describe/enumerators.hpp>
#include <boost/mp11/algorithm.hpp>

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbFecRequest");
  return handle;
}

}  // namespace

std::vector<FecRequestSource> allFecRequestSources() {
  std::vector<FecRequestSource> sources;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<FecRequestSource>>(
      [&](auto e) { sources.push_back(e.value); });
  return sources;
}

void FecIdToHwFecIdRequest::controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity,
                                      std::size_t fecCapacity) {
  if (fecCapacity == 0) fecCapacity = capacity;
  fecControlIs(Pond::TableControl::of(prefix, "fec", role, fecCapacity));
  fec6ControlIs(Pond::TableControl::of(prefix, "fec6", role, fecCapacity));
  hwFecIdRequestControlIs(Pond::TableControl::of(prefix, "hwFecIdRequest", role, capacity));
  objTupleToFecIdControlIs(Pond::TableControl::of(prefix, "objTupleToFecId", role, capacity));
  adjSyncIdMapControlIs(Pond::TableControl::of(prefix, "adjSyncIdMap", role, capacity));
  syncRequestsReadyControlIs(Pond::TableControl::of(prefix, "syncRequestsReady", role, 1));
}

void FecIdToHwFecIdResponse::controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity) {
  hwFecIdControlIs(Pond::TableControl::of(prefix, "hwFecId", role, capacity));
  l2IntfIdControlIs(Pond::TableControl::of(prefix, "l2IntfId", role, capacity));
}

Vex::Ptr<FecIdToHwFecIdRequest> fecIdToHwFecIdRequestFactory(const std::string& name) {
  return Vex::make<FecIdToHwFecIdRequest>(name);
}

Vex::Ptr<FecIdToHwFecIdResponse> fecIdToHwFecIdResponseFactory(const std::string& name) {
  return Vex::make<FecIdToHwFecIdResponse>(name);
}

std::string fecRequestPrefix(const std::string& base, FecRequestSource source, bool response) {
  return base + Vex::valueToStrep(source) + (response ? "-response-" : "-request-");
}

template <class FecRow>
bool addFecRequest(FecIdToHwFecIdRequest& requests, const FecRow& fec, const HwFecIdRequest& request) {
  ORB_ASSERT(fec.key == request.key);
  bool stored;
  if constexpr (std::is_same_v<FecRow, Pond::Fib6::Fec>)
    stored = requests.fec6Is(fec);
  else
    stored = requests.fecIs(fec);
  // A request whose FEC did not fit would name a FEC no reader can find.
  return stored && requests.hwFecIdRequestIs(request);
}
template bool addFecRequest(FecIdToHwFecIdRequest&, const Pond::Fib::Fec&, const HwFecIdRequest&);
template bool addFecRequest(FecIdToHwFecIdRequest&, const Pond::Fib6::Fec&, const HwFecIdRequest&);

void withdrawFecRequest(FecIdToHwFecIdRequest& requests, Pond::Fib::FecId fecId) {
  requests.hwFecIdRequestDel(fecId);
  requests.fecDel(fecId);
}

void withdrawFecRequest6(FecIdToHwFecIdRequest& requests, Pond::Fib::FecId fecId) {
  requests.hwFecIdRequestDel(fecId);
  requests.fec6Del(fecId);
}

PwEncapFecRequester::PwEncapFecRequester(Vex::Ptr<FecIdToHwFecIdRequest> requests,
                                         Vex::Ptr<FecIdToHwFecIdResponse> responses)
    : requests_(std::move(requests)), responses_(std::move(responses)) {}

bool PwEncapFecRequester::addRequest(PwAdjGroupId pwAdjGroupId, EncapFecId encapFecId, Pond::Fib::Fec fec,
                                     double requestId) {
  BLIP(trace(), 5, " add FecId request pwAdjGroupId: {} encapFecId: {}", pwAdjGroupId.value(),
       encapFecId.fecId().value());
  if (encapFecId.adjIndex() != pwAdjGroupId.value()) orbAssert("encapFecId.adjIndex() == pwAdjGroupId.value()");
  Pond::Fib::FecId fecId = encapFecId.fecId();
  if (localPortToHwFecIdRequest()->hwFecIdRequest(fecId) != Orb::HwFecIdRequest())
    orbAssert("localPortToHwFecIdRequest()->hwFecIdRequest( fecId ) == Orb::HwFecIdRequest()");
  fec.key = fecId;
  HwFecIdRequest request;
  request.key = fecId;
  request.requestAdjState = true;
  request.requestId = requestId;
  return addFecRequest(*requests_, fec, request);
}

void PwEncapFecRequester::deleteRequest(PwAdjGroupId pwAdjGroupId, EncapFecId encapFecId) {
  BLIP(trace(), 5, " delete FecId request pwAdjGroupId: {} encapFecId: {}", pwAdjGroupId.value(),
       encapFecId.fecId().value());
  if (encapFecId.adjIndex() != pwAdjGroupId.value()) orbAssert("encapFecId.adjIndex() == pwAdjGroupId.value()");
  hwFecId(encapFecId);  // asserts that there is a request to withdraw
  withdrawFecRequest(*requests_, encapFecId.fecId());
}

HwFecId PwEncapFecRequester::hwFecId(EncapFecId requestedFecId) const {
  if (localPortToHwFecIdRequest()->hwFecIdRequest(requestedFecId.fecId()) == Orb::HwFecIdRequest())
    orbAssert("localPortToHwFecIdRequest()->hwFecIdRequest( requestedFecId ) != Orb::HwFecIdRequest()");
  return responses_ ? responses_->hwFecId(requestedFecId.fecId()).hwId.get() : HwFecId();
}

template <class Family>
void loadHwFecIdRequestFec(Pond::Fib::FecId fecId, FecRequestSource source, const AllFecIdToHwFecIdRequestResponse& all,
                           FecReadData& out) {
  const auto& requests = all.requestCollection(source);
  if (!requests) {
    out.status = FecReadData::noRequester;
    return;
  }
  // A corrupt row has been reported through the table's corruption handler
  // by the read itself, and reads as not found.
  bool found;
  if constexpr (std::is_same_v<Family, IPv6>) {
    auto row = requests->fec6Find(fecId);
    found = row.has_value();
    if (found) out.fec6 = *row;
  } else {
    auto row = requests->fecFind(fecId);
    found = row.has_value();
    if (found) out.fec = *row;
  }
  out.status = found ? FecReadData::fecFound : FecReadData::fecNotFound;
  out.fecType = fecTypeForDomain<Family>();
}
template void loadHwFecIdRequestFec<IPv4>(Pond::Fib::FecId, FecRequestSource, const AllFecIdToHwFecIdRequestResponse&,
                                          FecReadData&);
template void loadHwFecIdRequestFec<IPv6>(Pond::Fib::FecId, FecRequestSource, const AllFecIdToHwFecIdRequestResponse&,
                                          FecReadData&);

}  // namespace Orb
