#include "platform/log/LogEvent.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <stdexcept>

namespace Log {

namespace {

struct Registry {
  std::map<std::string, EventDef> defs;
  std::shared_ptr<Sink> sink = std::make_shared<StderrSink>();
};

Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

}  // namespace

void StderrSink::write(const EventDef&, const Event& event) {
  std::fprintf(stderr, "%%%s: %s\n", event.id.c_str(), event.message.c_str());
}

std::size_t CaptureSink::count(const std::string& id) const {
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&](const Event& e) { return e.id == id; }));
}

const EventDef& define(EventDef def) {
  auto& slot = registry().defs[def.id];
  slot = std::move(def);
  return slot;
}

const EventDef* lookup(const std::string& id) {
  auto it = registry().defs.find(id);
  return it == registry().defs.end() ? nullptr : &it->second;
}

std::vector<std::string> definedIds() {
  std::vector<std::string> ids;
  for (const auto& [id, def] : registry().defs) ids.push_back(id);
  return ids;
}

void emit(const std::string& id, ...) {
  const EventDef* def = lookup(id);
  if (!def) throw std::logic_error("log event " + id + " is not defined");
  va_list args;
  va_start(args, id);
  va_list copy;
  va_copy(copy, args);
  int size = std::vsnprintf(nullptr, 0, def->format.c_str(), copy);
  va_end(copy);
  std::string message(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
  if (size > 0) std::vsnprintf(message.data(), message.size() + 1, def->format.c_str(), args);
  va_end(args);
  registry().sink->write(*def, Event{id, message});
}

void sinkIs(std::shared_ptr<Sink> sink) { registry().sink = sink ? std::move(sink) : std::make_shared<StderrSink>(); }

Sink& sink() { return *registry().sink; }

}  // namespace Log
