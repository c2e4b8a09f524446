#include "Orb/OrbResilientEcmpTypes.h"

#include <cstddef>
#include <type_traits>

namespace Orb {

// Other agents read these rows as laid out here.
static_assert(sizeof(PrefixKey) == 8 && std::has_unique_object_representations_v<PrefixKey>);
static_assert(offsetof(RoutePrefixToResilientEcmpInfo, key) == 0);
static_assert(offsetof(RoutePrefixToResilientEcmpInfo, adjIndex) == 8);
static_assert(offsetof(RoutePrefixToResilientEcmpInfo, coveringResEcmpPrefix) == 16);
static_assert(offsetof(RoutePrefixToResilientEcmpInfo, resilientAdjIndex) == 24);
static_assert(offsetof(RoutePrefixToResilientEcmpInfo, reviewResilientAdjResult) == 32);
static_assert(sizeof(RoutePrefixToResilientEcmpInfo) == 40);
static_assert(sizeof(Nexo::Ip6Prefix) == 17);
static_assert(offsetof(Route6PrefixToResilientEcmpInfo, key) == 0);
static_assert(offsetof(Route6PrefixToResilientEcmpInfo, adjIndex) == 24);
static_assert(offsetof(Route6PrefixToResilientEcmpInfo, coveringResEcmpPrefix) == 32);
static_assert(offsetof(Route6PrefixToResilientEcmpInfo, resilientAdjIndex) == 56);
static_assert(offsetof(Route6PrefixToResilientEcmpInfo, reviewResilientAdjResult) == 64);
static_assert(sizeof(Route6PrefixToResilientEcmpInfo) == 72);
static_assert(sizeof(ReviewResilientAdjResult) == 4);
static_assert(std::has_unique_object_representations_v<RoutePrefixToResilientEcmpInfo>);
static_assert(std::has_unique_object_representations_v<Route6PrefixToResilientEcmpInfo>);

void ResilientEcmpStatus::controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity) {
  routePrefixToResilientEcmpInfoControlIs(
      Pond::TableControl::of(prefix, "routePrefixToResilientEcmpInfo", role, capacity));
}

void ResilientEcmpStatus6::controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity) {
  route6PrefixToResilientEcmpInfoControlIs(
      Pond::TableControl::of(prefix, "route6PrefixToResilientEcmpInfo", role, capacity));
}

Vex::Ptr<ResilientEcmpStatus> resilientEcmpStatusFactory(const std::string& name) {
  return Vex::make<ResilientEcmpStatus>(name);
}

Vex::Ptr<ResilientEcmpStatus6> resilientEcmpStatus6Factory(const std::string& name) {
  return Vex::make<ResilientEcmpStatus6>(name);
}

const ResilientEcmpDedupingRequest& ResilientEcmpDedupingRequestResponse::request(ResilientEcmpDedupingId id) const {
  auto it = request_.find(id);
  return it == request_.end() ? Vex::emptyValue<ResilientEcmpDedupingRequest>() : it->second;
}

void ResilientEcmpDedupingRequestResponse::requestIs(const ResilientEcmpDedupingRequest& request) {
  auto [it, inserted] = request_.try_emplace(request.requestId, request);
  if (!inserted) {
    if (it->second == request) return;
    it->second = request;
  }
  notify(&Notifiee::handleRequest, request.requestId);
}

void ResilientEcmpDedupingRequestResponse::requestDel(ResilientEcmpDedupingId id) {
  if (request_.erase(id)) notify(&Notifiee::handleRequest, id);
}

const ResilientEcmpDedupingResponse& ResilientEcmpDedupingRequestResponse::response(ResilientEcmpDedupingId id) const {
  auto it = response_.find(id);
  return it == response_.end() ? Vex::emptyValue<ResilientEcmpDedupingResponse>() : it->second;
}

void ResilientEcmpDedupingRequestResponse::responseIs(const ResilientEcmpDedupingResponse& response) {
  auto [it, inserted] = response_.try_emplace(response.responseId, response);
  if (!inserted) {
    if (it->second == response) return;
    it->second = response;
  }
  notify(&Notifiee::handleResponse, response.responseId);
}

void ResilientEcmpDedupingRequestResponse::responseDel(ResilientEcmpDedupingId id) {
  if (response_.erase(id)) notify(&Notifiee::handleResponse, id);
}

ResilientEcmpDedupingId ResilientEcmpDedupingRequestResponse::recmpDedupingIdInc() {
  ResilientEcmpDedupingId candidate = recmpDedupingId_;
  for (std::size_t tried = 0; tried < idCount; ++tried) {
    candidate = static_cast<ResilientEcmpDedupingId>(candidate + 1);
    if (idInUse(candidate)) continue;
    recmpDedupingId_ = candidate;
    notify(&Notifiee::handleRecmpDedupingId);
    return candidate;
  }
  throw ResilientEcmpDedupingIdsExhausted("all 65536 resilient ECMP deduping ids are held by requests or responses");
}

Vex::Ptr<ResilientEcmpDedupingRequestResponse> resilientEcmpDedupingRequestResponseFactory(const std::string& name) {
  return Vex::make<ResilientEcmpDedupingRequestResponse>(name);
}

}  // namespace Orb
