#include "chip/softchip/SoftChip.h"

#include <algorithm>

namespace SoftChip {

const char* faultName(Fault fault) {
  switch (fault) {
    case Fault::none:
      return "none";
    case Fault::busy:
      return "busy";
    case Fault::full:
      return "full";
    case Fault::failed:
      return "failed";
  }
  return "none";
}

Fault faultFromName(const std::string& name) {
  for (Fault fault : {Fault::busy, Fault::full, Fault::failed}) {
    if (name == faultName(fault)) return fault;
  }
  return Fault::none;
}

SoftChip::SoftChip() : ackClock_(Vex::clockFactory([this] { runDueAcks(); })) {}

SoftChip::~SoftChip() { ackClock_->timeMinIs(Vex::never); }

void SoftChip::tableIs(SoftTable* table) { tables_[table->name()] = table; }

void SoftChip::tableDel(SoftTable* table) {
  auto it = tables_.find(table->name());
  if (it != tables_.end() && it->second == table) tables_.erase(it);
}

SoftTable* SoftChip::table(std::string_view name) const {
  auto it = tables_.find(name);
  return it == tables_.end() ? nullptr : it->second;
}

std::vector<std::string> SoftChip::tableNames() const {
  std::vector<std::string> names;
  for (const auto& [name, table] : tables_) names.push_back(name);
  return names;
}

std::size_t SoftChip::capacity(std::string_view table) const {
  auto it = capacities_.find(table);
  return it == capacities_.end() ? unlimited : it->second;
}

void SoftChip::capacityIs(const std::string& table, std::size_t entries) { capacities_[table] = entries; }

bool SoftChip::hasRoom(std::string_view name) const {
  SoftTable* t = table(name);
  return !t || t->size() < capacity(name);
}

void SoftChip::faultIs(const std::string& table, Fault fault, std::uint32_t count) {
  auto& planned = faults_[table];
  planned.insert(planned.end(), count, fault);
}

void SoftChip::faultDelAll(const std::string& table) { faults_.erase(table); }

Fault SoftChip::nextPlannedFault(std::string_view table) {
  auto it = faults_.find(table);
  if (it == faults_.end() || it->second.empty()) return Fault::none;
  Fault fault = it->second.front();
  it->second.pop_front();
  if (it->second.empty()) faults_.erase(it);
  return fault;
}

std::uint32_t SoftChip::plannedFaults(const std::string& table) const {
  auto it = faults_.find(table);
  return it == faults_.end() ? 0 : static_cast<std::uint32_t>(it->second.size());
}

Vex::Seconds SoftChip::ackDelay(const std::string& table) const {
  auto it = ackDelays_.find(table);
  return it == ackDelays_.end() ? 0.0 : it->second;
}

void SoftChip::ackDelayIs(const std::string& table, Vex::Seconds delay) { ackDelays_[table] = std::max(0.0, delay); }

void SoftChip::ackIs(const std::string& table, std::function<void()> ack) {
  PendingAck pending{Vex::now() + ackDelay(table), ++ackSequence_, std::move(ack)};
  auto at = std::upper_bound(acks_.begin(), acks_.end(), pending, [](const PendingAck& a, const PendingAck& b) {
    return a.due != b.due ? a.due < b.due : a.sequence < b.sequence;
  });
  acks_.insert(at, std::move(pending));
  armAckClock();
}

void SoftChip::armAckClock() { ackClock_->timeMinIs(acks_.empty() ? Vex::never : acks_.front().due); }

void SoftChip::runDueAcks() {
  Vex::Seconds now = Vex::now();
  // Acknowledgements may schedule more; those run on a later turn.
  std::size_t due = 0;
  while (due < acks_.size() && acks_[due].due <= now) ++due;
  std::vector<PendingAck> batch(std::make_move_iterator(acks_.begin()),
                                std::make_move_iterator(acks_.begin() + static_cast<std::ptrdiff_t>(due)));
  acks_.erase(acks_.begin(), acks_.begin() + static_cast<std::ptrdiff_t>(due));
  for (auto& pending : batch) pending.ack();
  armAckClock();
}

std::string SoftChip::json() const {
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartObject();
  writer.Key("tables");
  writer.StartObject();
  for (const auto& [name, table] : tables_) {
    writer.Key(name.c_str());
    writer.StartObject();
    writer.Key("size");
    writer.Uint64(table->size());
    writer.Key("capacity");
    if (capacity(name) == unlimited) {
      writer.Null();
    } else {
      writer.Uint64(capacity(name));
    }
    writer.Key("ackDelay");
    writer.Double(ackDelay(name));
    writer.Key("plannedFaults");
    writer.StartArray();
    if (auto it = faults_.find(name); it != faults_.end()) {
      for (Fault fault : it->second) writer.String(faultName(fault));
    }
    writer.EndArray();
    writer.Key("entries");
    table->dump(writer);
    writer.EndObject();
  }
  writer.EndObject();
  writer.Key("pendingAcks");
  writer.Uint64(acks_.size());
  writer.EndObject();
  return buffer.GetString();
}

Vex::Ptr<SoftChip> softChipFactory() { return Vex::make<SoftChip>(); }

}  // namespace SoftChip
