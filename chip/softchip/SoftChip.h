// The soft chip: a software model of a switching chip that implements the
// library's hardware helpers, so features run end to end with no hardware.
//
// SoftChip owns the per-feature table models (each a SoftTable registered by
// name), their capacities, a fault plan that makes the next N operations of
// a table answer busy, full or failed, and an acknowledgement policy per
// table: immediate (on the event loop's next turn) or delayed by a set time.
// Everything it holds dumps as one JSON document.
#pragma once

#include "platform/json/Json.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Time.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace SoftChip {

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

// What the chip answers to one table operation.
enum class Fault : std::uint8_t { none, busy, full, failed };
const char* faultName(Fault fault);
// Parses "busy", "full" or "failed"; none for anything else.
Fault faultFromName(const std::string& name);

// One hardware table of the model.
class SoftTable {
 public:
  explicit SoftTable(std::string name) : name_(std::move(name)) {}
  virtual ~SoftTable() = default;
  const std::string& name() const { return name_; }
  virtual std::size_t size() const = 0;
  // Writes the table's entries as one JSON value.
  virtual void dump(JsonWriter& writer) const = 0;

 private:
  std::string name_;
};

class SoftChip : public Vex::PtrInterface {
 public:
  static constexpr std::size_t unlimited = SIZE_MAX;

  SoftChip();
  ~SoftChip() override;

  // Tables register themselves when a feature's model is created.
  void tableIs(SoftTable* table);
  void tableDel(SoftTable* table);
  SoftTable* table(std::string_view name) const;
  std::vector<std::string> tableNames() const;

  std::size_t capacity(std::string_view table) const;
  void capacityIs(const std::string& table, std::size_t entries);
  // True when the table holds fewer entries than its capacity.
  bool hasRoom(std::string_view table) const;

  // The next `count` operations of `table` answer `fault`, after the faults
  // already planned for it.
  void faultIs(const std::string& table, Fault fault, std::uint32_t count);
  void faultDelAll(const std::string& table);
  // Consumes and returns the fault planned for the table's next operation.
  Fault nextFault(std::string_view table) { return faults_.empty() ? Fault::none : nextPlannedFault(table); }
  std::uint32_t plannedFaults(const std::string& table) const;

  Vex::Seconds ackDelay(const std::string& table) const;
  void ackDelayIs(const std::string& table, Vex::Seconds delay);
  // Runs `ack` after the table's acknowledgement delay; acknowledgements of
  // one table run in the order they were scheduled.
  void ackIs(const std::string& table, std::function<void()> ack);
  std::size_t pendingAcks() const { return acks_.size(); }

  std::string json() const;

 private:
  Fault nextPlannedFault(std::string_view table);
  void armAckClock();
  void runDueAcks();

  std::map<std::string, SoftTable*, std::less<>> tables_;
  std::map<std::string, std::size_t, std::less<>> capacities_;
  std::map<std::string, std::deque<Fault>, std::less<>> faults_;
  std::map<std::string, Vex::Seconds, std::less<>> ackDelays_;
  struct PendingAck {
    Vex::Seconds due;
    std::uint64_t sequence;
    std::function<void()> ack;
  };
  std::deque<PendingAck> acks_;  // kept sorted by (due, sequence)
  std::uint64_t ackSequence_ = 0;
  Vex::Ptr<Vex::Clock> ackClock_;
};

Vex::Ptr<SoftChip> softChipFactory();

}  // namespace SoftChip
