// Log events: named conditions an operator should hear about, each with a
// printf-style message, an explanation and a recommended action. Events go
// to the current sink: standard error in programs, a capture in tests.
//
//   const Log::Definition tableFull{{"ETH_TABLEFULL", "Table full: %s on VLAN %d", "Why.", "What to do."}};
//   tableFull.emit(name, 10);             // or Log::emit("ETH_TABLEFULL", name, 10)
//
// A bare "%L" in a format stands for a 64-bit count (pass unsigned long long).
#pragma once

#include <memory>
#include <string>
#include <type_traits>
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

// Registers an event definition (again: the later one wins, in place, so
// references to it stay valid) and returns it.
const EventDef& define(EventDef def);
// The definition of an event; nullptr when none is registered.
const EventDef* lookup(const std::string& id);
std::vector<std::string> definedIds();

void sinkIs(std::shared_ptr<Sink> sink);  // null: back to standard error
Sink& sink();

namespace detail {

// The definition of `id`; throws when there is none.
const EventDef& defined(const std::string& id);
// Formats and writes; throws when the format takes another number of
// arguments than `count`.
void emitFormatted(const EventDef* def, int count, ...);

inline const char* printfArg(const std::string& s) { return s.c_str(); }
template <class T>
std::decay_t<const T> printfArg(const T& value) {
  static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T> || std::is_pointer_v<std::decay_t<const T>>,
                "log event arguments are numbers, C strings or std::string");
  return value;
}

}  // namespace detail

// Emits a registered event with printf-style arguments for its format
// (std::string arguments may stand for %s). An unregistered id, or a count
// of arguments the format does not take, is a programming error: it throws.
template <class... Args>
void emit(const std::string& id, const Args&... args) {
  detail::emitFormatted(&detail::defined(id), static_cast<int>(sizeof...(Args)), detail::printfArg(args)...);
}

// A definition registered where it is declared (a static object next to
// the code that emits it), emitting with no lookup by id.
class Definition {
 public:
  explicit Definition(EventDef def) : def_(&define(std::move(def))) {}
  const EventDef& def() const { return *def_; }
  template <class... Args>
  void emit(const Args&... args) const {
    detail::emitFormatted(def_, static_cast<int>(sizeof...(Args)), detail::printfArg(args)...);
  }

 private:
  const EventDef* def_;
};

}  // namespace Log
