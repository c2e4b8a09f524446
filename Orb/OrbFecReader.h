// Reading a FEC wherever it is published: the routing agents' FIB FECs, the
// FECs of next-hop groups and of the route cache, and the FECs requesters
// asked hardware FECs for. All of them are shared-memory tables this
// process reads; a FEC id here is global (one FEC id space across VRFs).
#pragma once

#include "Orb/OrbFecRequest.h"
#include "platform/pond/EntityTable.h"
#include "platform/types/Fib.h"
#include "platform/types/FibFec.h"

#include <optional>
#include <set>
#include <string>

namespace Orb {

// The routing agents' FIB FECs, both families.
class FibForwardingStatus : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<FibForwardingStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(Fec, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(Fec6, Pond::Fib::FecId)
  };
  using Pond::TableEntity::TableEntity;

  POND_TABLE(Pond::Fib::Fec, key, fec, Fec)
  POND_TABLE(Pond::Fib6::Fec, key, fec6, Fec6)

  // Binds both tables under `prefix` ("<prefix>fec", "<prefix>fec6").
  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024);
};

// FECs that stand for more than a route's next hops: next-hop groups and the
// route cache's FECs.
class AggregatedForwardingStatus : public Pond::TableEntity {
 public:
  class Notifiee : public Vex::BaseNotifiee<AggregatedForwardingStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    POND_TABLE_HANDLERS(NexthopGroupFec, Pond::Fib::FecId)
    POND_TABLE_HANDLERS(RouteCacheFec, Pond::Fib::FecId)
  };
  using Pond::TableEntity::TableEntity;

  POND_TABLE(Pond::Fib::Fec, key, nexthopGroupFec, NexthopGroupFec)
  POND_TABLE(Pond::Fib::Fec, key, routeCacheFec, RouteCacheFec)

  void controlIs(const std::string& prefix, Pond::TableControl::Role role, std::size_t capacity = 1024);
};

// The FECs a hierarchical FEC resolves through. Not usable (false) when a
// table it needs is not mounted yet: the FEC may be there, unseen.
struct NextLevelFecIdsResult {
  std::set<Pond::Fib::GlobalFecId> fecIdColl;
  bool requiredCollectionsMounted = false;
  explicit operator bool() const { return requiredCollectionsMounted; }
};

class FecReader {
 public:
  FecReader(Vex::Ptr<AggregatedForwardingStatus> aggregated, Vex::Ptr<FibForwardingStatus> fib,
            Vex::Ptr<AllFecIdToHwFecIdRequestResponse> requests);

  // The FEC of `fecId`: a FIB FEC (IPv4, then IPv6), else one a requester
  // published (sources in order). Status fecFound or fecNotFound.
  std::optional<FecReadData> readFec(Pond::Fib::GlobalFecId fecId) const;
  bool readFecIntoData(Pond::Fib::GlobalFecId fecId, FecReadData* out) const;
  bool readNexthopGroupIntoData(Pond::Fib::GlobalFecId fecId, FecReadData* out) const;
  bool readRouteCacheFecIntoData(Pond::Fib::GlobalFecId fecId, FecReadData* out) const;
  // The FECs the vias of `fecId` (a FEC, next-hop group or route-cache FEC)
  // resolve through.
  NextLevelFecIdsResult nextLevelFecIds(Pond::Fib::GlobalFecId fecId) const;

 private:
  Vex::Ptr<AggregatedForwardingStatus> aggregated_;
  Vex::Ptr<FibForwardingStatus> fib_;
  Vex::Ptr<AllFecIdToHwFecIdRequestResponse> requests_;
};

}  // namespace Orb
