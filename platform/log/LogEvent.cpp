#include "platform/log/LogEvent.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>

namespace Log {

namespace {

struct Registry {
  std::map<std::string, EventDef> defs;
  std::shared_ptr<Sink> sink = std::make_shared<StderrSink>();
};

Registry& registry() {
  static Registry* instance = new Registry;  // never destroyed: events may be emitted at exit
  return *instance;
}

// The number of arguments a printf format takes (a '*' width or precision
// takes one too), or -1 when a conversion is malformed. %n is refused: an
// event message has no business writing to memory.
int argumentCount(const std::string& format) {
  int count = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    if (++i < format.size() && format[i] == '%') continue;
    while (i < format.size() && std::strchr("-+ #0'", format[i])) ++i;
    for (int part = 0; part < 2; ++part) {  // width, then precision
      if (part == 1) {
        if (i >= format.size() || format[i] != '.') break;
        ++i;
      }
      if (i < format.size() && format[i] == '*') {
        ++count;
        ++i;
      }
      while (i < format.size() && format[i] >= '0' && format[i] <= '9') ++i;
    }
    while (i < format.size() && std::strchr("hljztL", format[i])) ++i;
    ++count;
    if (format[i - 1] == 'L' && (i >= format.size() || !std::strchr("eEfFgGaA", format[i]))) continue;
    if (i >= format.size() || !std::strchr("diouxXeEfFgGaAcsp", format[i])) return -1;
  }
  return count;
}

// The format as printf takes it: a bare "%L" (a 64-bit count, as older
// event definitions write it) becomes "%llu".
std::string printfFormat(const std::string& format) {
  std::string out;
  out.reserve(format.size());
  for (std::size_t i = 0; i < format.size(); ++i) {
    out += format[i];
    if (format[i] != '%') continue;
    if (i + 1 < format.size() && format[i + 1] == '%') {
      out += format[++i];
      continue;
    }
    std::size_t j = i + 1;
    while (j < format.size() && std::strchr("-+ #0'*.0123456789hljzt", format[j])) ++j;
    if (j < format.size() && format[j] == 'L' && (j + 1 >= format.size() || !std::strchr("eEfFgGaA", format[j + 1]))) {
      out.append(format, i + 1, j - i - 1);
      out += "llu";
      i = j;
    }
  }
  return out;
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
  if (argumentCount(def.format) < 0) {
    throw std::invalid_argument("log event " + def.id + " has a malformed format: " + def.format);
  }
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

void sinkIs(std::shared_ptr<Sink> sink) { registry().sink = sink ? std::move(sink) : std::make_shared<StderrSink>(); }

Sink& sink() { return *registry().sink; }

namespace detail {

const EventDef& defined(const std::string& id) {
  const EventDef* def = lookup(id);
  if (!def) throw std::logic_error("log event " + id + " is not defined");
  return *def;
}

void emitFormatted(const EventDef* def, int count, ...) {
  int expected = argumentCount(def->format);
  if (expected != count) {
    throw std::logic_error("log event " + def->id + " takes " + std::to_string(expected) + " arguments, not " +
                           std::to_string(count));
  }
  const std::string format = printfFormat(def->format);
  va_list args;
  va_start(args, count);
  va_list copy;
  va_copy(copy, args);
  int size = std::vsnprintf(nullptr, 0, format.c_str(), copy);
  va_end(copy);
  std::string message(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
  if (size > 0) std::vsnprintf(message.data(), message.size() + 1, format.c_str(), args);
  va_end(args);
  registry().sink->write(*def, Event{def->id, std::move(message)});
}

}  // namespace detail

}  // namespace Log
