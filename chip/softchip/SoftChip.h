// The soft chip: a software model of a switching chip that implements the
// library's hardware helpers, so features run end to end with no hardware.
//
// SoftChip is the owner of the per-feature tables (each a SoftTable that
// registers itself by name): the shell finds a table through it to set its
// capacity, plan faults or delay its acknowledgements, and everything the
// chip holds dumps as one JSON document.
#pragma once

#include "chip/softchip/SoftTable.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Ptr.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace SoftChip {

class SoftChip : public Vex::PtrInterface {
 public:
  static constexpr std::size_t unlimited = SoftTable::unlimited;

  SoftChip() = default;
  ~SoftChip() override = default;

  // Tables register themselves for as long as they live.
  void tableIs(SoftTable* table);
  void tableDel(SoftTable* table);
  SoftTable* table(std::string_view name) const;
  // The named table; std::invalid_argument naming the tables there are when
  // the chip has none of that name.
  SoftTable& tableNamed(std::string_view name) const;
  std::vector<std::string> tableNames() const;
  // Changes whenever a table comes or goes, so that a reader holding tables
  // knows when to look them up again.
  std::uint64_t tablesGeneration() const { return tablesGeneration_; }

  // Shorthands for the shell and tests: the named table's settings.
  void capacityIs(std::string_view table, std::size_t entries) { tableNamed(table).capacityIs(entries); }
  void faultIs(std::string_view table, Fault fault, std::uint32_t count) { tableNamed(table).faultIs(fault, count); }
  void faultDelAll(std::string_view table) { tableNamed(table).faultDelAll(); }
  void ackDelayIs(std::string_view table, Vex::Seconds delay) { tableNamed(table).ackDelayIs(delay); }
  // Acknowledgements still on their way, over every table.
  std::size_t pendingAcks() const;

  // How long one table operation takes. On simulated time each operation
  // moves the time on by it, so that time-sliced walks meet a chip whose
  // writes take time; 0 (the default) makes operations instant.
  Vex::Seconds operationTime() const { return operationTime_; }
  void operationTimeIs(Vex::Seconds seconds) { operationTime_ = seconds > 0 ? seconds : 0; }

  std::string json() const;

  // Ports taken out of service (error-disabled) with their cause: they
  // neither receive nor send.
  const std::string* portDisabledCause(const Nexo::IntfId& port) const {
    auto it = disabledPorts_.find(port);
    return it == disabledPorts_.end() ? nullptr : &it->second;
  }
  void portDisabledIs(const Nexo::IntfId& port, const std::string& cause) { disabledPorts_[port] = cause; }
  void portDisabledDel(const Nexo::IntfId& port) { disabledPorts_.erase(port); }
  bool hasDisabledPorts() const { return !disabledPorts_.empty(); }

 private:
  std::map<std::string, SoftTable*, std::less<>> tables_;
  std::map<Nexo::IntfId, std::string> disabledPorts_;
  std::uint64_t tablesGeneration_ = 1;
  Vex::Seconds operationTime_ = 0;
};

Vex::Ptr<SoftChip> softChipFactory();

}  // namespace SoftChip
