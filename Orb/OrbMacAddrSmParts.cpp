// What the MAC machine's source files share, and the words and kinds of
// its entries and queued changes.
#include "Orb/OrbMacAddrSmParts.h"

#include "Orb/OrbTrace.h"
#include "platform/log/LogEvent.h"

#include <fmt/format.h>

#include <ctime>

namespace Orb {

namespace MacAddrSmParts {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbMacAddrSm");
  return handle;
}

const Log::EventDef& bankFullEvent() {
  static const Log::EventDef& def = Log::define(
      {"ETH_MACADDRBANKFULL", "MAC address %s on VLAN %d (%s) could not be programmed: the hardware MAC table is full",
       "The forwarding chip's MAC address table has no room for this entry; traffic to the address is flooded.",
       "Reduce the number of MAC addresses (shorter aging time, fewer hosts or VLANs), or move hosts to other "
       "switches."});
  return def;
}

RemoteMacAddressTableEntry fromHost(const MacVlanPair& key, const Bridging::LearnedHost& host) {
  RemoteMacAddressTableEntry entry;
  entry.macVlanPair = key;
  entry.intf = host.intf;
  entry.entryType = host.entryType;
  entry.moves = host.moves;
  entry.lastMoveTime = host.lastMoveTime;
  return entry;
}

MacAddressTableEntry toRow(const RemoteMacAddressTableEntry& entry) {
  return MacAddressTableEntry{entry.macVlanPair, entry.intf, entry.entryType, entry.moves, entry.lastMoveTime};
}

// What hardware holds for an entry: equal when nothing needs programming.
bool sameProgramming(const RemoteMacAddressTableEntry& a, const RemoteMacAddressTableEntry& b) {
  return a.intf == b.intf && a.entryType == b.entryType && a.swTunnelGroupId == b.swTunnelGroupId &&
         a.hasL2RibObjTuple == b.hasL2RibObjTuple && (!a.hasL2RibObjTuple || a.l2RibObjTuple == b.l2RibObjTuple);
}

bool learnedHere(EntryType type) {
  return type == EntryType::entryDynamic || type == EntryType::entryConfiguredDynamic ||
         type == EntryType::entryStatic || type == EntryType::entryAuthenticated;
}

Vex::Seconds threadCpuTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

}  // namespace MacAddrSmParts

using namespace MacAddrSmParts;

using namespace MacAddrSmParts;

const char* macEntryTypeWord(EntryType type) {
  const char* word = Bridging::entryTypeWord(type);
  if (!word) orbAssert("0 && \"invalid entryType\"");
  return word;
}

bool isRemoteEntryType(EntryType type) {
  auto value = static_cast<int>(type);
  return value >= 8 && value <= 16;
}

bool isStaticRemoteEntryType(EntryType type) {
  return type == EntryType::entryStaticRemote || type == EntryType::entryPeerStaticRemote ||
         type == EntryType::entryEvpnStaticRemote;
}

bool isStaticEntryType(EntryType type) {
  return type == EntryType::entryStatic || type == EntryType::entryStaticRemote ||
         type == EntryType::entryAuthenticated;
}

Vex::Ptr<ModifyMacEntry> modifyMacEntryFactory(const RemoteMacAddressTableEntry& entry) {
  return Vex::make<ModifyMacEntry>(entry);
}

}  // namespace Orb
