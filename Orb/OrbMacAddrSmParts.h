// What the MAC machine's source files share: its trace handle, its log
// event and the conversions between its entry representations. Internal to
// the machine.
#pragma once

#include "Orb/OrbMacAddrSm.h"
#include "platform/blip/Blip.h"
#include "platform/log/LogEvent.h"

#include <string>

namespace Orb::MacAddrSmParts {

Blip::Handle& trace();
const Log::EventDef& bankFullEvent();
RemoteMacAddressTableEntry fromHost(const MacVlanPair& key, const Bridging::LearnedHost& host);
MacAddressTableEntry toRow(const RemoteMacAddressTableEntry& entry);
// What hardware holds for an entry: equal when nothing needs programming.
bool sameProgramming(const RemoteMacAddressTableEntry& a, const RemoteMacAddressTableEntry& b);
// Entries of this switch's own ports that the L2 RIB is offered.
bool learnedHere(EntryType type);
// The CPU time this thread has used, in seconds.
Vex::Seconds threadCpuTime();

}  // namespace Orb::MacAddrSmParts
