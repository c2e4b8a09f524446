// MAC table values shared by the bridging agent, the chip layer and the
// forwarding layer.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/types/Keel.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Value.h"

#include <cstdint>

namespace L2Rib {

// An object of the L2 RIB (a host, a destination, a load-balance group):
// its kind and its id. Ordered by kind, then id.
enum ObjType : std::uint8_t { objTypeDest = 2, objTypeLoadBalance = 3 };

struct ObjTuple {
  std::uint8_t type = 0;
  std::uint64_t id = 0;
  auto operator<=>(const ObjTuple&) const = default;
};
VEX_VALUE(ObjTuple, "L2Rib::ObjTuple", (type, id))

}  // namespace L2Rib

namespace Orb {

// A software tunnel group: a set of tunnel endpoints a remote entry points to.
struct SwTunnelGroupId {
  std::uint32_t value = 0;
  auto operator<=>(const SwTunnelGroupId&) const = default;
};
VEX_VALUE(SwTunnelGroupId, "Orb::SwTunnelGroupId", (value))

}  // namespace Orb

namespace OrbTypes {

// A row of a MAC table: where the address is and how it got there.
struct MacAddressTableEntry {
  Bridging::MacVlanPair macVlanPair;
  Nexo::IntfId intf;
  Bridging::EntryType entryType = Bridging::EntryType::entryDynamic;
  Keel::Seqno32 moves;
  double lastMoveTime = 0.0;
  auto operator<=>(const MacAddressTableEntry&) const = default;
};
VEX_VALUE(MacAddressTableEntry, "OrbTypes::MacAddressTableEntry", (macVlanPair, intf, entryType, moves, lastMoveTime))

// A candidate or current entry, local or remote: a MAC table row with the
// tunnel group of a remote entry, its preference, and its L2 RIB object.
struct RemoteMacAddressTableEntry {
  Bridging::MacVlanPair macVlanPair;
  Nexo::IntfId intf;
  Bridging::EntryType entryType = Bridging::EntryType::entryDynamic;
  Orb::SwTunnelGroupId swTunnelGroupId;
  Keel::Seqno32 moves;
  double lastMoveTime = 0.0;
  std::uint8_t preference = 0;
  bool isMplsNextHop = false;
  L2Rib::ObjTuple l2RibObjTuple;
  bool hasL2RibObjTuple = false;
  auto operator<=>(const RemoteMacAddressTableEntry&) const = default;
};
VEX_VALUE(RemoteMacAddressTableEntry, "OrbTypes::RemoteMacAddressTableEntry",
          (macVlanPair, intf, entryType, swTunnelGroupId, moves, lastMoveTime, preference, isMplsNextHop, l2RibObjTuple,
           hasL2RibObjTuple))

// A MAC table row as a candidate entry: no tunnel group, preference or L2
// RIB object.
inline RemoteMacAddressTableEntry remoteEntryOf(const MacAddressTableEntry& row) {
  RemoteMacAddressTableEntry entry;
  entry.macVlanPair = row.macVlanPair;
  entry.intf = row.intf;
  entry.entryType = row.entryType;
  entry.moves = row.moves;
  entry.lastMoveTime = row.lastMoveTime;
  return entry;
}

// What the hardware table answered to an add: 0 success, 1 the chip is busy
// (retry), 2 the table is full; anything else is a failure.
enum TableAddStatus : std::uint32_t { tableAddSuccess = 0, tableAddBusy = 1, tableAddFull = 2 };

}  // namespace OrbTypes
