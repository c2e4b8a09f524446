// Hardware FEC id requests: the shared-memory rows and tables through which
// requesters (pseudowires, MPLS, EVPN, tunnels, link-local next hops...) ask
// the chip layer for hardware FECs, and the chip layer answers.
//
// A requester publishes a FecIdToHwFecIdRequest: the FECs it needs (`fec`,
// `fec6`) and a request row per FEC (`hwFecIdRequest`). The chip layer
// answers in the FecIdToHwFecIdResponse of the same source (`hwFecId`, and
// `l2IntfId` where it applies) under the same FEC id. A request exists while
// its request row exists. Rows are laid out byte for byte as stored; the
// static assertions below hold the offsets.
#pragma once

#include "Orb/OrbAdjSync.h"
#include "platform/model/MacTypes.h"
#include "platform/pond/EntityTable.h"
#include "platform/pond/Packed.h"
#include "platform/types/Fib.h"
#include "platform/types/FibFec.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Orb {

// Who asks: one request and one response entity each.
enum class FecRequestSource : std::uint8_t {
  fecRequestCbf,
  fecRequestEvpn,
  fecRequestLinkLocal,
  fecRequestMpls,
  fecRequestMplsFloodSet,
  fecRequestMplsMulticast,
  fecRequestNexthop,
  fecRequestOtherSource,
  fecRequestPwDecap,
  fecRequestPwLocal,
  fecRequestPwRemote,
  fecRequestResolutionOnly,
  fecRequestServerLoadBalance,
};
BOOST_DESCRIBE_ENUM(FecRequestSource, fecRequestCbf, fecRequestEvpn, fecRequestLinkLocal, fecRequestMpls,
                    fecRequestMplsFloodSet, fecRequestMplsMulticast, fecRequestNexthop, fecRequestOtherSource,
                    fecRequestPwDecap, fecRequestPwLocal, fecRequestPwRemote, fecRequestResolutionOnly,
                    fecRequestServerLoadBalance)

// Every source, in declaration order.
std::vector<FecRequestSource> allFecRequestSources();

// A software-only FEC is kept in software and gets no hardware FEC.
enum class FecRequestType : std::uint32_t { normalFec = 0, swOnlyFec = 1 };
BOOST_DESCRIBE_ENUM(FecRequestType, normalFec, swOnlyFec)

enum class AdjacencyState : std::uint32_t {
  adjStateUnknown,
  adjStateUnprogrammed,
  adjStateDrop,
  adjStateArpRequired,
  adjStateForwardingPrimaryVias,
  adjStateForwardingBackupVias,
};
BOOST_DESCRIBE_ENUM(AdjacencyState, adjStateUnknown, adjStateUnprogrammed, adjStateDrop, adjStateArpRequired,
                    adjStateForwardingPrimaryVias, adjStateForwardingBackupVias)

enum class MplsTtlMode : std::uint32_t { mplsTtlModeUnknown, mplsTtlModeUniform, mplsTtlModePipe };
BOOST_DESCRIBE_ENUM(MplsTtlMode, mplsTtlModeUnknown, mplsTtlModeUniform, mplsTtlModePipe)

enum class MplsPayloadType : std::uint32_t {
  mplsPayloadUnknown,
  mplsPayloadIpv4,
  mplsPayloadIpv6,
  mplsPayloadMpls,
  mplsPayloadEthernet,
};
BOOST_DESCRIBE_ENUM(MplsPayloadType, mplsPayloadUnknown, mplsPayloadIpv4, mplsPayloadIpv6, mplsPayloadMpls,
                    mplsPayloadEthernet)

// Per FEC id: the sources that request it and those that have answered it
// (held in OrbInternalL3Status::fecIdToRequestSourceMap).
struct FecIdToRequestSourceMapping {
  std::set<FecRequestSource> requestSource;
  std::set<FecRequestSource> responseSource;
  auto operator<=>(const FecIdToRequestSourceMapping&) const = default;
};
VEX_VALUE(FecIdToRequestSourceMapping, "Orb::FecIdToRequestSourceMapping", (requestSource, responseSource))

// The hardware tunnel a FEC encapsulates into: its kind and index (0, 0: none).
struct HwTunnelId {
  std::uint32_t tunnelType = 0;
  std::uint32_t index = 0;
  auto operator<=>(const HwTunnelId&) const = default;
};
VEX_VALUE(HwTunnelId, "Orb::HwTunnelId", (tunnelType, index))

// A hardware FEC id as the chip layer allocates it.
class HwFecId {
 public:
  constexpr HwFecId() = default;
  constexpr explicit HwFecId(std::uint64_t value) : value_(value) {}
  constexpr std::uint64_t value() const { return value_; }
  auto operator<=>(const HwFecId&) const = default;
  std::uint64_t vexRep() const { return value_; }
  static HwFecId fromVexRep(std::uint64_t value) { return HwFecId(value); }

 private:
  std::uint64_t value_ = 0;
};
VEX_SCALAR_VALUE(HwFecId, "Orb::HwFecId", "value")
inline std::size_t hash_value(const HwFecId& id) { return boost::hash<std::uint64_t>()(id.value()); }

// A requester's readiness flag, the key of its only SyncRequestsReady row.
class ReadyBool {
 public:
  constexpr ReadyBool() = default;
  constexpr explicit ReadyBool(bool value) : value_(value) {}
  constexpr bool value() const { return value_; }
  auto operator<=>(const ReadyBool&) const = default;
  bool vexRep() const { return value_; }
  static ReadyBool fromVexRep(bool value) { return ReadyBool(value); }

 private:
  bool value_ = false;
};
VEX_SCALAR_VALUE(ReadyBool, "Orb::ReadyBool", "value")
inline std::size_t hash_value(const ReadyBool& r) { return boost::hash<bool>()(r.value()); }

// A layer-2 RIB object tuple laid out for a shared-memory key: no hidden
// padding, so equal tuples are equal bytes. Prints as L2Rib::ObjTuple.
struct ObjTupleKey {
  std::uint8_t type = 0;
  std::uint8_t padding[7] = {};
  std::uint64_t id = 0;

  ObjTupleKey() = default;
  ObjTupleKey(const L2Rib::ObjTuple& tuple) : type(tuple.type), id(tuple.id) {}  // NOLINT: the same tuple
  L2Rib::ObjTuple tuple() const { return L2Rib::ObjTuple{type, id}; }
  L2Rib::ObjTuple vexPlain() const { return tuple(); }
  static ObjTupleKey fromVexPlain(const L2Rib::ObjTuple& tuple) { return ObjTupleKey(tuple); }
  auto operator<=>(const ObjTupleKey& other) const { return tuple() <=> other.tuple(); }
  bool operator==(const ObjTupleKey& other) const { return tuple() == other.tuple(); }
};
inline std::size_t hash_value(const ObjTupleKey& k) { return hash_value(k.tuple()); }

// ---- rows

// A request for the hardware FEC of `key` (40 bytes).
struct HwFecIdRequest {
  Pond::Fib::FecId key;
  FecRequestType requestType = FecRequestType::normalFec;
  HwTunnelId hwTunnelId;
  MplsTtlMode mplsTtlMode = MplsTtlMode::mplsTtlModeUnknown;
  MplsPayloadType mplsPayloadType = MplsPayloadType::mplsPayloadUnknown;
  bool requestAdjState = false;
  std::uint8_t padding[3] = {};
  double requestId = 0;

  bool isSwOnlyFec() const { return requestType == FecRequestType::swOnlyFec; }
  auto operator<=>(const HwFecIdRequest&) const = default;
};
VEX_VALUE(HwFecIdRequest, "Orb::HwFecIdRequest",
          (key, requestType, hwTunnelId, mplsTtlMode, mplsPayloadType, requestAdjState, requestId))
static_assert(sizeof(HwFecIdRequest) == 40);
static_assert(offsetof(HwFecIdRequest, requestType) == 8 && offsetof(HwFecIdRequest, hwTunnelId) == 12 &&
              offsetof(HwFecIdRequest, mplsTtlMode) == 20 && offsetof(HwFecIdRequest, mplsPayloadType) == 24 &&
              offsetof(HwFecIdRequest, requestAdjState) == 28 && offsetof(HwFecIdRequest, requestId) == 32);

// The answer: the hardware FEC of `key` and the state of its adjacency (28
// bytes; the request id sits on a 4-byte boundary).
struct FecToHwFecId {
  Pond::Packed<Pond::Fib::FecId> key;
  Pond::Packed<HwFecId> hwId;
  AdjacencyState adjState = AdjacencyState::adjStateUnknown;
  Pond::Packed<double> requestId;
  auto operator<=>(const FecToHwFecId&) const = default;
};
VEX_VALUE(FecToHwFecId, "Orb::FecToHwFecId", (key, hwId, adjState, requestId))
static_assert(sizeof(FecToHwFecId) == 28 && alignof(FecToHwFecId) == 4);
static_assert(offsetof(FecToHwFecId, hwId) == 8 && offsetof(FecToHwFecId, adjState) == 16 &&
              offsetof(FecToHwFecId, requestId) == 20);

// The layer-2 egress interface of a FEC (interface ids here are 64-bit).
struct FecToL2IntfId {
  Pond::Fib::FecId key;
  Nexo::IntfId l2IntfId;
  auto operator<=>(const FecToL2IntfId&) const = default;
};
VEX_VALUE(FecToL2IntfId, "Orb::FecToL2IntfId", (key, l2IntfId))
static_assert(sizeof(FecToL2IntfId) == 16 && offsetof(FecToL2IntfId, l2IntfId) == 8);

// Which FEC stands for a layer-2 RIB object.
struct ObjTupleAndFecId {
  ObjTupleKey key;
  Pond::Fib::FecId fecId;
  auto operator<=>(const ObjTupleAndFecId&) const = default;
};
VEX_VALUE(ObjTupleAndFecId, "Orb::ObjTupleAndFecId", (key, fecId))
static_assert(sizeof(ObjTupleAndFecId) == 24 && offsetof(ObjTupleAndFecId, fecId) == 16);

struct FecIdToAdjSyncId {
  Pond::Fib::FecId fecId;
  AdjSyncId adjSyncId;
  auto operator<=>(const FecIdToAdjSyncId&) const = default;
};
VEX_VALUE(FecIdToAdjSyncId, "Orb::FecIdToAdjSyncId", (fecId, adjSyncId))
static_assert(sizeof(FecIdToAdjSyncId) == 16 && offsetof(FecIdToAdjSyncId, adjSyncId) == 8);

struct SyncRequestsReady {
  ReadyBool ready;
  auto operator<=>(const SyncRequestsReady&) const = default;
};
VEX_VALUE(SyncRequestsReady, "Orb::SyncRequestsReady", (ready))
static_assert(sizeof(SyncRequestsReady) == 1);

// ---- the tables of one requester and of one responder

class FecIdToHwFecIdRequest : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<FecIdToHwFecIdRequest> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(Fec, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(Fec6, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(HwFecIdRequest, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(ObjTupleToFecId, ObjTupleKey)
    POND_TABLE_HANDLERS(AdjSyncIdMap, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(SyncRequestsReady, ReadyBool)
  };
  using Pond::TableEntity::TableEntity;

  POND_TABLE(Pond::Fib::Fec, key, fec, Fec)
  POND_TABLE(Pond::Fib6::Fec, key, fec6, Fec6)
  POND_TABLE(HwFecIdRequest, key, hwFecIdRequest, HwFecIdRequest)
  POND_TABLE(ObjTupleAndFecId, key, objTupleToFecId, ObjTupleToFecId)
  POND_TABLE(FecIdToAdjSyncId, fecId, adjSyncIdMap, AdjSyncIdMap)
  POND_TABLE(SyncRequestsReady, ready, syncRequestsReady, SyncRequestsReady)

  // Binds every table to a segment under `prefix` (segment "<prefix><table>").
  // A writer's FEC tables hold `fecCapacity` rows (their rows are large),
  // the others `capacity`; 0 is `capacity` for both.
  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024,
                 std::size_t fecCapacity = 0);
};

class FecIdToHwFecIdResponse : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<FecIdToHwFecIdResponse> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(HwFecId, Pond::Packed<Pond::Fib::FecId>)
    POND_TABLE_HANDLERS(L2IntfId, Pond::Fib::FecId)
  };
  using Pond::TableEntity::TableEntity;

  POND_TABLE(FecToHwFecId, key, hwFecId, HwFecId)
  POND_TABLE(FecToL2IntfId, key, l2IntfId, L2IntfId)

  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024);
};

Vex::Ptr<FecIdToHwFecIdRequest> fecIdToHwFecIdRequestFactory(const std::string& name);
Vex::Ptr<FecIdToHwFecIdResponse> fecIdToHwFecIdResponseFactory(const std::string& name);

// Every requester's and responder's tables, by source.
class AllFecIdToHwFecIdRequestResponse : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AllFecIdToHwFecIdRequestResponse> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(RequestCollection, FecRequestSource)
    VEX_KEY_HANDLER(ResponseCollection, FecRequestSource)
  };
  using Vex::Entity::Entity;
  VEX_COLLECTION(FecRequestSource, Vex::Ptr<FecIdToHwFecIdRequest>, requestCollection, RequestCollection)
  VEX_COLLECTION(FecRequestSource, Vex::Ptr<FecIdToHwFecIdResponse>, responseCollection, ResponseCollection)
};

// The segment-name prefix of one source's request or response tables:
// "<base>fecRequestMpls-request-" and so on.
std::string fecRequestPrefix(const std::string& base, FecRequestSource source, bool response);

// ---- a requester's writes

// Adds a request: the FEC's row first, then its request row, so that a
// reader that sees the request finds the FEC.
template <class FecRow>
bool addFecRequest(FecIdToHwFecIdRequest& requests, const FecRow& fec, const HwFecIdRequest& request);
// Withdraws one: the request row first, then the FEC's row.
void withdrawFecRequest(FecIdToHwFecIdRequest& requests, Pond::Fib::FecId fecId);
void withdrawFecRequest6(FecIdToHwFecIdRequest& requests, Pond::Fib::FecId fecId);

// ---- the pseudowire encapsulation requester

// A pseudowire adjacency group: the pseudowires that share one
// encapsulation.
class PwAdjGroupId {
 public:
  constexpr PwAdjGroupId() = default;
  constexpr explicit PwAdjGroupId(std::uint32_t value) : value_(value) {}
  constexpr std::uint32_t value() const { return value_; }
  auto operator<=>(const PwAdjGroupId&) const = default;

 private:
  std::uint32_t value_ = 0;
};

// The FEC a group's encapsulation is requested under: FEC ids with the
// pseudowire kind in their high bits, the group in their adjacency index.
class EncapFecId {
 public:
  static constexpr std::uint64_t kindBit = std::uint64_t(1) << 40;
  constexpr explicit EncapFecId(Pond::Fib::FecId fecId) : fecId_(fecId) {}
  static constexpr EncapFecId forGroup(PwAdjGroupId group) {
    return EncapFecId(Pond::Fib::FecId(kindBit | group.value()));
  }
  constexpr Pond::Fib::FecId fecId() const { return fecId_; }
  constexpr std::uint32_t adjIndex() const { return static_cast<std::uint32_t>(fecId_.value()); }

 private:
  Pond::Fib::FecId fecId_;
};

// Publishes the encapsulation FEC of each pseudowire adjacency group in the
// local pseudowires' request tables (source fecRequestPwLocal), and reads
// the hardware FEC the chip layer answered.
class PwEncapFecRequester {
 public:
  PwEncapFecRequester(Vex::Ptr<FecIdToHwFecIdRequest> requests, Vex::Ptr<FecIdToHwFecIdResponse> responses);

  const Vex::Ptr<FecIdToHwFecIdRequest>& localPortToHwFecIdRequest() const { return requests_; }
  // Adds the group's request: its FEC (whose key is the encapsulation FEC)
  // first. The group may not have one yet. False when the tables are full.
  bool addRequest(PwAdjGroupId pwAdjGroupId, EncapFecId encapFecId, Pond::Fib::Fec fec, double requestId);
  // Withdraws it; the group must have one.
  void deleteRequest(PwAdjGroupId pwAdjGroupId, EncapFecId encapFecId);
  // The hardware FEC answered for the group's request (0 while none); the
  // group must have a request.
  HwFecId hwFecId(EncapFecId requestedFecId) const;

 private:
  Vex::Ptr<FecIdToHwFecIdRequest> requests_;
  Vex::Ptr<FecIdToHwFecIdResponse> responses_;
};

// ---- reading a requested FEC back

enum class FecType : std::uint8_t { fecTypeNone, fecTypeIpv4, fecTypeIpv6 };
BOOST_DESCRIBE_ENUM(FecType, fecTypeNone, fecTypeIpv4, fecTypeIpv6)

struct IPv4 {};
struct IPv6 {};
template <class Family>
constexpr FecType fecTypeForDomain() {
  return std::is_same_v<Family, IPv6> ? FecType::fecTypeIpv6 : FecType::fecTypeIpv4;
}

// What loadHwFecIdRequestFec found: status 1 no such requester, 2 no such
// FEC (or its row is corrupt), 3 found.
struct FecReadData {
  enum Status : std::uint32_t { statusNone = 0, noRequester = 1, fecNotFound = 2, fecFound = 3 };
  std::uint32_t status = statusNone;
  FecType fecType = FecType::fecTypeNone;
  Pond::Fib::Fec fec;
  Pond::Fib6::Fec fec6;
};

template <class Family>
void loadHwFecIdRequestFec(Pond::Fib::FecId fecId, FecRequestSource source, const AllFecIdToHwFecIdRequestResponse& all,
                           FecReadData& out);

}  // namespace Orb
