// The soft chip's layer-3 tables: routed interfaces with their VRF and the
// router MAC, routes per VRF (longest prefix match, IPv4 and IPv6), and
// FECs, each naming the adjacency (SoftAdj) that holds its next hops. A
// resilient FEC also holds its slots: which next hop each of a fixed number
// of slots forwards to (SoftResilient). A full table or a planned fault
// refuses an add with a status; nothing else changes.
#pragma once

#include "chip/softchip/SoftAdj.h"
#include "chip/softchip/SoftResilient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace SoftChip {

// A route's key: the VRF and a prefix of one family.
struct SoftRouteKey {
  std::uint32_t vrf = 0;
  bool v6 = false;
  Nexo::Prefix prefix;
  Nexo::Ip6Prefix prefix6;
  auto operator<=>(const SoftRouteKey&) const = default;
  std::string text() const;
};
inline std::string softKeyText(const SoftRouteKey& key) { return key.text(); }

struct HwRoute {
  std::uint64_t fec = 0;
};

class SoftRouteTable : public SoftTableOf<SoftRouteKey, HwRoute> {
 public:
  static constexpr const char* tableName = "route";
  explicit SoftRouteTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  // The longest prefix of the VRF holding `addr`, or null.
  const HwRoute* lookup(std::uint32_t vrf, const Nexo::IpGenAddr& addr) const;

 protected:
  void dumpEntry(JsonWriter& writer, const HwRoute& route) const override;
};

struct SoftFecKey {
  std::uint64_t id = 0;
  auto operator<=>(const SoftFecKey&) const = default;
};
inline std::string softKeyText(const SoftFecKey& key) { return std::to_string(key.id); }

// A next hop as a resilient slot names it (its weight plays no part).
using SlotMember = HwNextHop;

struct HwFec {
  Orb::L2AdjKey adj;
  // Resilient: the slot count, and the next hop of each slot (empty while
  // the adjacency has none). 0: the FEC hashes over its next hops by weight.
  std::uint32_t slotCount = 0;
  std::vector<SlotMember> slots;
};

class SoftFecTable : public SoftTableOf<SoftFecKey, HwFec> {
 public:
  static constexpr const char* tableName = "fec";
  explicit SoftFecTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}

 protected:
  void dumpEntry(JsonWriter& writer, const HwFec& fec) const override;
};

struct HwL3Intf {
  std::uint32_t vrf = 0;
};

// Routed interfaces; the router MAC is the destination a frame to be
// routed carries.
class SoftL3IntfTable : public SoftTableOf<Nexo::IntfId, HwL3Intf> {
 public:
  static constexpr const char* tableName = "l3-interface";
  explicit SoftL3IntfTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}
  Nexo::EthAddr routerMac;

 protected:
  void dumpEntry(JsonWriter& writer, const HwL3Intf& intf) const override;
};

// The layer-3 programming the agent asks of the chip, past the adjacencies.
class SoftRouteHelper : public Vex::PtrInterface {
 public:
  static constexpr std::uint32_t addSuccess = 0;
  static constexpr std::uint32_t addBusy = 1;
  static constexpr std::uint32_t addFull = 2;
  static constexpr std::uint32_t addFailed = 3;

  // Follows the adjacency helper's writes to keep resilient slots in step.
  SoftRouteHelper(const Vex::Ptr<SoftChip>& chip, SoftAdjHelper& adjacencies);
  ~SoftRouteHelper() override;

  const SoftRouteTable& routes() const { return routes_; }
  const SoftFecTable& fecs() const { return fecs_; }
  const SoftL3IntfTable& l3Intfs() const { return l3Intfs_; }
  std::uint64_t refused() const { return refused_; }

  void routerMacIs(const Nexo::EthAddr& mac) { l3Intfs_.routerMac = mac; }
  std::uint32_t doAddL3Intf(const Nexo::IntfId& intf, std::uint32_t vrf);
  void doRemoveL3Intf(const Nexo::IntfId& intf);
  std::uint32_t doAddRoute(const SoftRouteKey& key, std::uint64_t fec);
  void doRemoveRoute(const SoftRouteKey& key);
  // Writes the FEC over its adjacency; `slotCount` 0 for an ordinary FEC.
  // A FEC written again (its adjacency's next hops changed, say) keeps as
  // much of its slot layout as the change allows.
  std::uint32_t doAddFec(std::uint64_t fec, const Orb::L2AdjKey& adj, std::uint32_t slotCount);
  void doRemoveFec(std::uint64_t fec);
  // The resilient FEC a route over `fec` may share: the lowest-numbered
  // resilient FEC whose adjacency has the same next hops (in any order)
  // and the same slot count. `fec` itself when it is not a resilient FEC
  // the chip holds.
  std::uint64_t sharedResilientFec(std::uint64_t fec) const;

 private:
  // Admits a write to `table`, counting a refusal.
  std::uint32_t admit(SoftTable& table, bool addsEntry);
  void layOut(HwFec& fec, std::vector<SlotMember> previous);
  void adjacencyWritten(const Orb::L2AdjKey& adj);

  Vex::Ptr<SoftChip> chip_;
  SoftAdjHelper& adjHelper_;
  SoftRouteTable routes_;
  SoftFecTable fecs_;
  SoftL3IntfTable l3Intfs_;
  std::uint64_t refused_ = 0;
};

// A resilient FEC's members: the distinct next hops of its adjacency, in
// its order, each with its weight (summed over repeats).
struct SlotMembers {
  std::vector<SlotMember> members;
  std::vector<std::uint32_t> weights;
  // Members and weights in member order, for comparing two FECs' sets.
  std::vector<std::pair<SlotMember, std::uint32_t>> sorted() const;
};
SlotMembers slotMembers(const HwAdj& adj);

}  // namespace SoftChip
