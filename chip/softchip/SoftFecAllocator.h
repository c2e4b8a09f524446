// The soft chip's hardware FEC allocator: it serves the hardware FEC id
// requests that requesters (pseudowires, MPLS, EVPN...) publish in shared
// memory, in this process or in another one (`orb-agent fecd`).
//
// For each source it serves, it reads the source's request tables (`fec`,
// `fec6`, `hwFecIdRequest`) as a Pond reader and writes the source's
// response tables (`hwFecId`, `l2IntfId`) as their writer. A request gets the
// lowest free hardware FEC id from the `fec-request` table, whose capacity
// and planned faults apply to each allocation:
// - busy: the request waits and is tried again shortly;
// - full: answered with no hardware FEC (id 0, unprogrammed) and tried again
//   when a hardware FEC is freed;
// - failed: answered with no hardware FEC until the request changes.
// A software-only FEC gets no hardware FEC: its answer carries id 0. The
// answer carries the request's id, the adjacency state when the request asks
// for it (no vias: drop; vias: forwarding over its primary vias) and, when
// every via leaves by one port, that port as the FEC's layer-2 interface
// (a via's `intfNumber` is a front-panel port number). A withdrawn request
// frees its hardware FEC and its answer goes.
//
// A requester that restarts keeps its hardware FECs: when a source's request
// tables come back while the allocator holds hardware FECs for it, those of
// requests not yet published again are held, not freed, and a request
// published again gets its old hardware FEC back. The requester says it has
// published everything by writing its `syncRequestsReady` row as ready;
// then, or `syncGrace` after the tables came back if it never says so, the
// hardware FECs of requests still missing are freed.
#pragma once

#include "Orb/OrbFecRequest.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/Clock.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace SoftChip {

struct SoftFecGrantKey {
  Orb::FecRequestSource source{};
  std::uint64_t fec = 0;
  auto operator<=>(const SoftFecGrantKey&) const = default;
};
std::string softKeyText(const SoftFecGrantKey& key);

struct HwFecGrant {
  std::uint64_t hwFecId = 0;
  Orb::AdjacencyState adjState = Orb::AdjacencyState::adjStateUnknown;
  Nexo::IntfId l2Intf;
};

class SoftFecGrantTable : public SoftTableOf<SoftFecGrantKey, HwFecGrant> {
 public:
  static constexpr const char* tableName = "fec-request";
  explicit SoftFecGrantTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}

 protected:
  void dumpEntry(JsonWriter& writer, const HwFecGrant& grant) const override;
};

class SoftFecAllocator : public Vex::PtrInterface {
 public:
  // How long a request the chip answered busy waits before its next try.
  static constexpr Vex::Seconds busyRetry = 0.01;
  // How long a restarted requester has to publish its requests again.
  static constexpr Vex::Seconds syncGrace = 5.0;

  // Sources' tables are found under `pondBase` (see Orb::fecRequestPrefix);
  // each response table holds up to `responseCapacity` rows.
  SoftFecAllocator(const Vex::Ptr<SoftChip>& chip, std::string pondBase, std::size_t responseCapacity = 65536);
  ~SoftFecAllocator() override;

  // Starts reading `source`'s requests and answering them; again is nothing.
  void serve(Orb::FecRequestSource source);
  bool serves(Orb::FecRequestSource source) const { return sources_.contains(source); }

  const SoftFecGrantTable& grants() const { return grants_; }
  // Requests waiting for a hardware FEC (the chip was busy or full).
  std::size_t waiting() const {
    return std::count_if(refused_.begin(), refused_.end(),
                         [](const auto& r) { return r.second.fault != Fault::failed; });
  }
  // Answers written, over every source.
  std::uint64_t answers() const { return answers_; }

 private:
  struct Source;
  class Reactor;

  // A request's FEC row and request row each report its key: a refused
  // request is tried again only when its request changed or on a retry.
  void review(Source& source, Pond::Fib::FecId fec, bool retry = false);
  void withdraw(Source& source, Pond::Fib::FecId fec);
  // Reviews every request of `source` and every FEC held or refused for it.
  void reconcile(Source& source);
  // The source's request tables mounted: a restarted requester's hardware
  // FECs are held until it is ready again.
  void mounted(Source& source);
  // The requester is ready (or its grace ran out): requests still missing
  // give their hardware FECs back.
  void synced(Source& source);
  // The hardware FEC of a request, allocated if it has none; nullptr with
  // the chip's refusal otherwise.
  HwFecGrant* grantFor(const SoftFecGrantKey& key, Fault& refusal);
  void answer(Source& source, const Orb::HwFecIdRequest& request, const HwFecGrant& grant);
  void retryWaiting();

  Vex::Ptr<SoftChip> chip_;
  std::string pondBase_;
  std::size_t responseCapacity_;
  SoftFecGrantTable grants_;
  std::map<Orb::FecRequestSource, std::unique_ptr<Source>> sources_;
  std::set<std::uint64_t> freedIds_;
  std::uint64_t nextId_ = 1;
  struct Refusal {
    Orb::HwFecIdRequest request;
    Fault fault;
  };
  std::map<SoftFecGrantKey, Refusal> refused_;
  Vex::Ptr<Vex::Clock> retryClock_;
  std::uint64_t answers_ = 0;
};

}  // namespace SoftChip
