// MAC entries as JSON objects, the same fields wherever they are shown.
#pragma once

#include "agent/JsonOutput.h"
#include "agent/MacArgs.h"

namespace Agent {

inline void writeMacKeyJson(JsonWriter& w, const Bridging::MacVlanPair& key) {
  w.Key("vlan");
  w.Uint(key.vlanId.value());
  w.Key("mac");
  w.String(key.addr.stringValue().c_str());
}

// Key, interface, type, moves and last move time of a table row.
inline void writeMacRowJson(JsonWriter& w, const OrbTypes::MacAddressTableEntry& row) {
  writeMacKeyJson(w, row.macVlanPair);
  w.Key("interface");
  w.String(row.intf.stringValue().c_str());
  w.Key("type");
  w.String(entryTypeText(row.entryType));
  w.Key("moves");
  w.Uint(row.moves.value());
  w.Key("lastMove");
  w.Double(row.lastMoveTime);
}

// A row plus what a remote entry carries: tunnel group, preference and L2
// RIB object.
inline void writeMacEntryJson(JsonWriter& w, const OrbTypes::RemoteMacAddressTableEntry& entry) {
  writeMacRowJson(w, OrbTypes::MacAddressTableEntry{entry.macVlanPair, entry.intf, entry.entryType, entry.moves,
                                                    entry.lastMoveTime});
  w.Key("tunnelGroup");
  w.Uint(entry.swTunnelGroupId.value);
  w.Key("preference");
  w.Uint(entry.preference);
  if (entry.hasL2RibObjTuple) {
    w.Key("l2RibObject");
    w.StartObject();
    w.Key("kind");
    w.String(entry.l2RibObjTuple.type == L2Rib::objTypeLoadBalance ? "load-balance" : "dest");
    w.Key("id");
    w.Uint64(entry.l2RibObjTuple.id);
    w.EndObject();
  }
}

}  // namespace Agent
