// Log events: named conditions an operator should hear about, each with a
// printf-style message, an explanation and a recommended action. Events go
// to the current sink: standard error in programs, a capture in tests.
#pragma once

#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

namespace Log {

struct EventDef {
  std::string id;  // "ETH_MACADDRBANKFULL"
  std::string format;
  std::string explanation;
  std::string recommendedAction;
};

struct Event {
  std::string id;
  std::string message;
};

class Sink {
 public:
  virtual ~Sink() = default;
  virtual void write(const EventDef& def, const Event& event) = 0;
};

// "%ETH_MACADDRBANKFULL: <message>" on standard error.
class StderrSink : public Sink {
 public:
  void write(const EventDef& def, const Event& event) override;
};

class CaptureSink : public Sink {
 public:
  void write(const EventDef&, const Event& event) override { events.push_back(event); }
  std::size_t count(const std::string& id) const;
  std::vector<Event> events;
};

// Registers an event definition (again: the later one wins) and returns it.
const EventDef& define(EventDef def);
// The definition of an event; nullptr when none is registered.
const EventDef* lookup(const std::string& id);
std::vector<std::string> definedIds();

// Emits a registered event with printf-style arguments for its format.
// Emitting an unregistered id is a programming error and throws.
void emit(const std::string& id, ...);

void sinkIs(std::shared_ptr<Sink> sink);
Sink& sink();

}  // namespace Log
