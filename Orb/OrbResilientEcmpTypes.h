// Resilient ECMP: a route whose next hops keep their positions when members
// come and go. Per route prefix, which resilient adjacency serves it and
// how its last review ended (rows other agents read); per VRF, the via
// layout of each resilient adjacency; and the request/response pair
// through which routes share (dedupe) resilient FECs.
#pragma once

#include "Orb/OrbAdjTypes.h"
#include "Orb/OrbCommonTypes.h"
#include "platform/pond/EntityTable.h"
#include "platform/types/Fib.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"

#include <boost/describe/enum.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace Orb {

// How the last review of a route's resilient adjacency ended. Anything but
// success leaves the route on its ordinary (non-resilient) adjacency.
enum class ReviewResilientAdjResult : std::uint32_t {
  resEcmpSuccess = 0,
  emptyViasFecFailure = 1,
  invalidViasFailure = 2,
  kernelRouteFailure = 3,
  noFecIdFailure = 4,
  noLongerResilientFailure = 5,
  nonForwardRouteFailure = 6,
  reviewAdjFailure = 7,
  unprogrammedRouteFailure = 8,
  invalid = 9,
};
BOOST_DESCRIBE_ENUM(ReviewResilientAdjResult, resEcmpSuccess, emptyViasFecFailure, invalidViasFailure,
                    kernelRouteFailure, noFecIdFailure, noLongerResilientFailure, nonForwardRouteFailure,
                    reviewAdjFailure, unprogrammedRouteFailure, invalid)

struct ReviewResilientAdjStatus {
  std::uint64_t adjIndex = 0;
  ReviewResilientAdjResult result = ReviewResilientAdjResult::invalid;
  auto operator<=>(const ReviewResilientAdjStatus&) const = default;
};
VEX_VALUE(ReviewResilientAdjStatus, "Orb::ReviewResilientAdjStatus", (adjIndex, result))

// A Nexo::Prefix as the key of a shared-memory row: the same eight bytes,
// with the three after the length zeroed, because shared-memory keys
// compare by their bytes and Nexo::Prefix leaves those three as padding.
// Prints and parses as the prefix.
class PrefixKey {
 public:
  PrefixKey() = default;
  PrefixKey(const Nexo::Prefix& prefix)  // NOLINT: stands for the prefix
      : addr_(prefix.addr()), len_(static_cast<std::uint8_t>(prefix.len())) {}
  Nexo::Prefix prefix() const { return Nexo::Prefix(addr_, len_); }
  operator Nexo::Prefix() const { return prefix(); }  // NOLINT

  Nexo::Prefix vexPlain() const { return prefix(); }
  static PrefixKey fromVexPlain(const Nexo::Prefix& prefix) { return PrefixKey(prefix); }
  bool operator==(const PrefixKey& other) const { return prefix() == other.prefix(); }
  auto operator<=>(const PrefixKey& other) const { return prefix() <=> other.prefix(); }
  friend std::size_t hash_value(const PrefixKey& key) { return hash_value(key.prefix()); }

 private:
  Nexo::IpAddr addr_;
  std::uint8_t len_ = 0;
  std::uint8_t zero_[3] = {};
};

// One route's resilient ECMP state, as other agents read it: a fixed-layout
// row (see the layout checks in the source) whose padding is spelt out and
// zero, so that an unchanged row compares equal byte for byte.
struct RoutePrefixToResilientEcmpInfo {
  PrefixKey key;
  std::uint64_t adjIndex = 0;
  PrefixKey coveringResEcmpPrefix;
  std::uint64_t resilientAdjIndex = 0;
  ReviewResilientAdjResult reviewResilientAdjResult = ReviewResilientAdjResult::invalid;
  std::uint32_t padding = 0;
  auto operator<=>(const RoutePrefixToResilientEcmpInfo&) const = default;
};
VEX_VALUE(RoutePrefixToResilientEcmpInfo, "Orb::RoutePrefixToResilientEcmpInfo",
          (key, adjIndex, coveringResEcmpPrefix, resilientAdjIndex, reviewResilientAdjResult))

struct Route6PrefixToResilientEcmpInfo {
  Nexo::Ip6Prefix key;
  std::uint8_t padding0[7] = {};
  std::uint64_t adjIndex = 0;
  Nexo::Ip6Prefix coveringResEcmpPrefix;
  std::uint8_t padding1[7] = {};
  std::uint64_t resilientAdjIndex = 0;
  ReviewResilientAdjResult reviewResilientAdjResult = ReviewResilientAdjResult::invalid;
  std::uint32_t padding2 = 0;
  auto operator<=>(const Route6PrefixToResilientEcmpInfo&) const = default;
};
VEX_VALUE(Route6PrefixToResilientEcmpInfo, "Orb::Route6PrefixToResilientEcmpInfo",
          (key, adjIndex, coveringResEcmpPrefix, resilientAdjIndex, reviewResilientAdjResult))

// The published per-route table of one address family, in shared memory:
// the routing side writes it, other agents read it.
class ResilientEcmpStatus : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientEcmpStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(RoutePrefixToResilientEcmpInfo, PrefixKey)
  };
  using Pond::TableEntity::TableEntity;
  POND_TABLE(RoutePrefixToResilientEcmpInfo, key, routePrefixToResilientEcmpInfo, RoutePrefixToResilientEcmpInfo)

  // Binds the table to segment "<prefix>routePrefixToResilientEcmpInfo".
  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024);
};
Vex::Ptr<ResilientEcmpStatus> resilientEcmpStatusFactory(const std::string& name);

class ResilientEcmpStatus6 : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientEcmpStatus6> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(Route6PrefixToResilientEcmpInfo, Nexo::Ip6Prefix)
  };
  using Pond::TableEntity::TableEntity;
  POND_TABLE(Route6PrefixToResilientEcmpInfo, key, route6PrefixToResilientEcmpInfo, Route6PrefixToResilientEcmpInfo)

  // Binds the table to segment "<prefix>route6PrefixToResilientEcmpInfo".
  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024);
};
Vex::Ptr<ResilientEcmpStatus6> resilientEcmpStatus6Factory(const std::string& name);

// The vias of one resilient adjacency: how many slots each fills and which.
template <class ViaT>
struct ResilientAdjViaT {
  std::map<ViaT, std::uint32_t> via;
  std::map<ViaT, ViaBitmap> viaBitmap;

  void viaIs(const ViaT& v, std::uint32_t count) { via[v] = count; }
  void viaBitmapIs(const ViaT& v, const ViaBitmap& bitmap) { viaBitmap[v] = bitmap; }
  void viaDel(const ViaT& v) { via.erase(v); }
  void viaBitmapDel(const ViaT& v) { viaBitmap.erase(v); }
  void viaDelAll() { via.clear(); }
  void viaBitmapDelAll() { viaBitmap.clear(); }
  auto operator<=>(const ResilientAdjViaT&) const = default;
};
using ResilientAdjVia = ResilientAdjViaT<Via>;
using ResilientAdjVia6 = ResilientAdjViaT<Via6>;
VEX_VALUE(ResilientAdjVia, "Orb::ResilientAdjVia", (via, viaBitmap))
VEX_VALUE(ResilientAdjVia6, "Orb::ResilientAdjVia6", (via, viaBitmap))

struct ResilientAdjInfo {
  ResilientAdjVia resilientAdjVia;
  auto operator<=>(const ResilientAdjInfo&) const = default;
};
VEX_VALUE(ResilientAdjInfo, "Orb::ResilientAdjInfo", (resilientAdjVia))

struct ResilientAdjInfo6 {
  ResilientAdjVia6 resilientAdjVia;
  auto operator<=>(const ResilientAdjInfo6&) const = default;
};
VEX_VALUE(ResilientAdjInfo6, "Orb::ResilientAdjInfo6", (resilientAdjVia))

// One VRF's resilient adjacencies by their 64-bit index.
class ResilientAdjIndexToAdjInfo : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientAdjIndexToAdjInfo> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ResilientAdjIndexToAdjInfo, std::uint64_t)
  };
  explicit ResilientAdjIndexToAdjInfo(VrfId vrfId) : vrfId_(vrfId) {}
  VrfId vrfId() const { return vrfId_; }
  VEX_COLLECTION(std::uint64_t, ResilientAdjInfo, resilientAdjIndexToAdjInfo, ResilientAdjIndexToAdjInfo)

 private:
  VrfId vrfId_;
};

class ResilientAdjIndexToAdjInfo6 : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientAdjIndexToAdjInfo6> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ResilientAdjIndexToAdjInfo, std::uint64_t)
  };
  explicit ResilientAdjIndexToAdjInfo6(VrfId vrfId) : vrfId_(vrfId) {}
  VrfId vrfId() const { return vrfId_; }
  VEX_COLLECTION(std::uint64_t, ResilientAdjInfo6, resilientAdjIndexToAdjInfo, ResilientAdjIndexToAdjInfo)

 private:
  VrfId vrfId_;
};

// The resilient adjacencies one FIB FEC uses.
class ResilientAdjIndexSet : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientAdjIndexSet> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ResilientAdjIndex, std::uint64_t)
  };
  explicit ResilientAdjIndexSet(Pond::Fib::GlobalFecId fecId) : fecId_(fecId) {}
  Pond::Fib::GlobalFecId fecId() const { return fecId_; }
  VEX_SET(std::uint64_t, resilientAdjIndex, ResilientAdjIndex)

 private:
  Pond::Fib::GlobalFecId fecId_;
};

// One VRF's FIB FECs to the resilient adjacencies they use.
class FibFecIdToResilientAdjIndex : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<FibFecIdToResilientAdjIndex> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(FibFecIdToResilientAdjIndex, Pond::Fib::GlobalFecId)
  };
  explicit FibFecIdToResilientAdjIndex(VrfId vrfId) : vrfId_(vrfId) {}
  VrfId vrfId() const { return vrfId_; }
  VEX_COLLECTION(Pond::Fib::GlobalFecId, Vex::Ptr<ResilientAdjIndexSet>, fibFecIdToResilientAdjIndex,
                 FibFecIdToResilientAdjIndex)
  // The FEC's set, made when absent.
  VEX_OWNED_MEMBERS(Pond::Fib::GlobalFecId, ResilientAdjIndexSet, fibFecIdToResilientAdjIndex)

 private:
  VrfId vrfId_;
};

using ResilientEcmpDedupingId = std::uint16_t;

// A route asks for a resilient FEC it may share with others; it names the
// one it used before so that the answer can keep it when nothing changed.
struct ResilientEcmpDedupingRequest {
  ResilientEcmpDedupingId requestId = 0;
  Pond::Fib::FecId oldResilientFecId;
  auto operator<=>(const ResilientEcmpDedupingRequest&) const = default;
};
VEX_VALUE(ResilientEcmpDedupingRequest, "Orb::ResilientEcmpDedupingRequest", (requestId, oldResilientFecId))

struct ResilientEcmpDedupingResponse {
  ResilientEcmpDedupingId responseId = 0;
  Pond::Fib::FecId selectedResilientFecId;
  auto operator<=>(const ResilientEcmpDedupingResponse&) const = default;
};
VEX_VALUE(ResilientEcmpDedupingResponse, "Orb::ResilientEcmpDedupingResponse", (responseId, selectedResilientFecId))

// All 65,536 deduping ids are held by outstanding requests or responses.
class ResilientEcmpDedupingIdsExhausted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Requests and responses, each keyed by its 16-bit id (one row per id: a
// second request under an id replaces the first).
//
// The id counter wraps after 65,535. An id counts as in use while a
// request or a response row holds it, and recmpDedupingIdInc skips those,
// so a new request can never be taken for the answer to an old one; when
// every id is in use it throws ResilientEcmpDedupingIdsExhausted and leaves
// the counter where it was.
class ResilientEcmpDedupingRequestResponse : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ResilientEcmpDedupingRequestResponse> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Request, ResilientEcmpDedupingId)
    VEX_KEY_HANDLER(Response, ResilientEcmpDedupingId)
    VEX_HANDLER(RecmpDedupingId)
  };
  static constexpr std::size_t idCount = 65536;

  using Entity::Entity;

  const Vex::HashMap<ResilientEcmpDedupingId, ResilientEcmpDedupingRequest>& request() const { return request_; }
  const ResilientEcmpDedupingRequest& request(ResilientEcmpDedupingId id) const;
  bool requestHas(ResilientEcmpDedupingId id) const { return request_.contains(id); }
  void requestIs(const ResilientEcmpDedupingRequest& request);
  void requestDel(ResilientEcmpDedupingId id);

  const Vex::HashMap<ResilientEcmpDedupingId, ResilientEcmpDedupingResponse>& response() const { return response_; }
  const ResilientEcmpDedupingResponse& response(ResilientEcmpDedupingId id) const;
  bool responseHas(ResilientEcmpDedupingId id) const { return response_.contains(id); }
  void responseIs(const ResilientEcmpDedupingResponse& response);
  void responseDel(ResilientEcmpDedupingId id);

  bool idInUse(ResilientEcmpDedupingId id) const { return requestHas(id) || responseHas(id); }
  // The id the next request takes.
  ResilientEcmpDedupingId recmpDedupingId() const { return recmpDedupingId_; }
  // Moves to the next id that no request or response holds (see above);
  // returns it.
  ResilientEcmpDedupingId recmpDedupingIdInc();

 private:
  Vex::HashMap<ResilientEcmpDedupingId, ResilientEcmpDedupingRequest> request_;
  Vex::HashMap<ResilientEcmpDedupingId, ResilientEcmpDedupingResponse> response_;
  ResilientEcmpDedupingId recmpDedupingId_ = 0;
};
Vex::Ptr<ResilientEcmpDedupingRequestResponse> resilientEcmpDedupingRequestResponseFactory(const std::string& name);

}  // namespace Orb
