// One hardware table of the soft chip, the one kind every object kind
// (forwarding database, VLANs, LAGs, topologies, and whatever comes next)
// is built on.
//
// A table has a capacity, a fault plan (the next N operations answer busy,
// full or failed), an acknowledgement delay with its queue of pending
// acknowledgements on the event loop's timer wheel, and a JSON dump of its
// settings and entries. SoftTableOf adds the entries themselves, keyed, so
// that a new object kind is its entry struct, its key and how an entry
// prints. Tables register with their chip by name for as long as they live,
// which is how the shell and the chip's dump find them.
#pragma once

#include "platform/json/Json.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Time.h"

#include <boost/container/flat_set.hpp>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace SoftChip {

class SoftChip;
using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

// What the chip answers to one table operation.
enum class Fault : std::uint8_t { none, busy, full, failed };
const char* faultName(Fault fault);
// Parses "busy", "full" or "failed"; none for anything else.
Fault faultFromName(const std::string& name);

class SoftTable {
 public:
  static constexpr std::size_t unlimited = SIZE_MAX;

  SoftTable(SoftChip& chip, std::string name);
  virtual ~SoftTable();
  SoftTable(const SoftTable&) = delete;
  SoftTable& operator=(const SoftTable&) = delete;

  const std::string& name() const { return name_; }
  virtual std::size_t size() const = 0;

  std::size_t capacity() const { return capacity_; }
  void capacityIs(std::size_t entries) {
    capacity_ = entries;
    usageMayHaveChanged();
  }
  bool hasRoom() const { return size() < capacity_; }

  // Called on the loop's next turn after operations on the table or a new
  // capacity (once for all of them), for whoever publishes the table's use.
  void usageHandlerIs(std::function<void()> handler);

  // The next `count` operations answer `fault`, after those already planned.
  void faultIs(Fault fault, std::uint32_t count) { faults_.insert(faults_.end(), count, fault); }
  void faultDelAll() { faults_.clear(); }
  std::uint32_t plannedFaults() const { return static_cast<std::uint32_t>(faults_.size()); }
  // Consumes and returns the fault planned for the next operation; every
  // operation asks, so this is also where an operation takes its time.
  Fault nextFault();
  // The answer to a write: a planned fault first, then full when it would
  // add an entry to a table with no room.
  Fault admit(bool addsEntry);

  Vex::Seconds ackDelay() const { return ackDelay_; }
  void ackDelayIs(Vex::Seconds delay) { ackDelay_ = delay > 0 ? delay : 0; }
  // Runs `ack` after the acknowledgement delay, never before one scheduled
  // earlier: a table answers in the order it was asked.
  void ackIs(std::function<void()> ack);
  std::size_t pendingAcks() const { return acks_.size(); }

  // Settings, planned faults and entries as one JSON object.
  void dump(JsonWriter& writer) const;

 protected:
  // The entries as one JSON value.
  virtual void dumpEntries(JsonWriter& writer) const = 0;
  void usageMayHaveChanged() {
    if (usageClock_) usageClock_->timeMinIs(Vex::now());
  }

 private:
  void runDueAcks();

  SoftChip& chip_;
  std::string name_;
  std::size_t capacity_ = unlimited;
  std::deque<Fault> faults_;
  Vex::Seconds ackDelay_ = 0;
  struct PendingAck {
    Vex::Seconds due;
    std::function<void()> ack;
  };
  std::deque<PendingAck> acks_;  // in the order asked; due times never fall
  Vex::Ptr<Vex::Clock> ackClock_;
  Vex::Ptr<Vex::Clock> usageClock_;  // runs the usage handler; none without one
};

// How table keys name their entries in a dump.
inline std::string softKeyText(Bridging::VlanId vlanId) { return std::to_string(vlanId.value()); }
inline std::string softKeyText(const Nexo::IntfId& intf) { return intf.stringValue(); }
inline std::string softKeyText(const std::string& text) { return text; }
inline std::string softKeyText(const Bridging::MacVlanPair& key) {
  return key.addr.stringValue() + " " + std::to_string(key.vlanId.value());
}

// A table of entries by key. `entries` is the table's content; a dump is an
// object of dumpEntry() values by key text.
template <class Key, class Entry, class Map = std::map<Key, Entry>>
class SoftTableOf : public SoftTable {
 public:
  using SoftTable::SoftTable;
  std::size_t size() const override { return entries.size(); }

  const Entry* find(const Key& key) const {
    auto it = entries.find(key);
    return it == entries.end() ? nullptr : &it->second;
  }
  Entry* find(const Key& key) {
    auto it = entries.find(key);
    return it == entries.end() ? nullptr : &it->second;
  }
  // Removes an entry (removals are never refused); whether it was there.
  bool erase(const Key& key) {
    usageMayHaveChanged();
    return entries.erase(key) != 0;
  }

  Map entries;

 protected:
  // One entry as a JSON value; a table that dumps its entries otherwise
  // (as an array, say) overrides dumpEntries instead.
  virtual void dumpEntry(JsonWriter& writer, const Entry&) const { writer.Null(); }
  void dumpEntries(JsonWriter& writer) const override {
    writer.StartObject();
    auto dumpOne = [&](const Key& key, const Entry& entry) {
      writer.Key(softKeyText(key).c_str());
      dumpEntry(writer, entry);
    };
    if constexpr (requires { typename Map::key_compare; }) {
      for (const auto& [key, entry] : entries) dumpOne(key, entry);
    } else {
      // A hashed table dumps in key order too, so that dumps compare.
      std::vector<const typename Map::value_type*> sorted;
      sorted.reserve(entries.size());
      for (const auto& row : entries) sorted.push_back(&row);
      std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->first < b->first; });
      for (const auto* row : sorted) dumpOne(row->first, row->second);
    }
    writer.EndObject();
  }
};

// A small ordered set of interfaces in one block: a VLAN's or a LAG's
// members, looked up and changed far more often than they grow.
using IntfSet = boost::container::flat_set<Nexo::IntfId>;

// Writes a set of interfaces as a JSON array under `key`.
template <class Intfs>
void dumpIntfs(JsonWriter& writer, const char* key, const Intfs& intfs) {
  writer.Key(key);
  writer.StartArray();
  for (const auto& intf : intfs) writer.String(intf.stringValue().c_str());
  writer.EndArray();
}

}  // namespace SoftChip
