#include "chip/softchip/SoftTable.h"

#include "chip/softchip/SoftChip.h"
#include "platform/vex/EventLoop.h"

#include <algorithm>
#include <vector>

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

SoftTable::SoftTable(SoftChip& chip, std::string name)
    : chip_(chip), name_(std::move(name)), ackClock_(Vex::clockFactory([this] { runDueAcks(); })) {
  chip_.tableIs(this);
}

SoftTable::~SoftTable() {
  ackClock_->timeMinIs(Vex::never);
  if (usageClock_) usageClock_->timeMinIs(Vex::never);
  chip_.tableDel(this);
}

void SoftTable::usageHandlerIs(std::function<void()> handler) {
  if (usageClock_) usageClock_->timeMinIs(Vex::never);
  usageClock_ = handler ? Vex::clockFactory(std::move(handler)) : nullptr;
}

Fault SoftTable::nextFault() {
  usageMayHaveChanged();
  if (chip_.operationTime() > 0) Vex::EventLoop::current()->spend(chip_.operationTime());
  if (faults_.empty()) return Fault::none;
  Fault fault = faults_.front();
  faults_.pop_front();
  return fault;
}

Fault SoftTable::admit(bool addsEntry) {
  Fault fault = nextFault();
  if (fault == Fault::none && addsEntry && !hasRoom()) return Fault::full;
  return fault;
}

void SoftTable::ackIs(std::function<void()> ack) {
  Vex::Seconds due = Vex::now() + ackDelay_;
  // A shorter delay set meanwhile must not let this answer overtake those
  // already on their way.
  if (!acks_.empty()) due = std::max(due, acks_.back().due);
  acks_.push_back({due, std::move(ack)});
  if (acks_.size() == 1) ackClock_->timeMinIs(due);
}

void SoftTable::runDueAcks() {
  Vex::Seconds now = Vex::now();
  // Acknowledgements may ask for more; those run on a later turn.
  std::vector<PendingAck> batch;
  while (!acks_.empty() && acks_.front().due <= now) {
    batch.push_back(std::move(acks_.front()));
    acks_.pop_front();
  }
  ackClock_->timeMinIs(acks_.empty() ? Vex::never : acks_.front().due);
  for (auto& pending : batch) pending.ack();
}

void SoftTable::dump(JsonWriter& writer) const {
  writer.StartObject();
  writer.Key("size");
  writer.Uint64(size());
  writer.Key("capacity");
  if (capacity_ == unlimited) {
    writer.Null();
  } else {
    writer.Uint64(capacity_);
  }
  writer.Key("ackDelay");
  writer.Double(ackDelay_);
  writer.Key("plannedFaults");
  writer.StartArray();
  for (Fault fault : faults_) writer.String(faultName(fault));
  writer.EndArray();
  writer.Key("pendingAcks");
  writer.Uint64(acks_.size());
  writer.Key("entries");
  dumpEntries(writer);
  writer.EndObject();
}

}  // namespace SoftChip
