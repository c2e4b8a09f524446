#include "platform/blip/Blip.h"

#include "platform/vex/EventLoop.h"

#include <algorithm>

namespace Blip {

namespace {

struct Registry {
  std::map<std::string, std::unique_ptr<Handle>> handles;
  std::shared_ptr<RingSink> ring = std::make_shared<RingSink>();
  std::shared_ptr<Sink> sink = ring;
};

Registry& registry() {
  static Registry* instance = new Registry;  // never destroyed: traces may run at exit
  return *instance;
}

}  // namespace

void RingSink::write(const Line& line) {
  if (capacity_ == 0) return;
  if (lines_.size() == capacity_) lines_.pop_front();
  lines_.push_back(line);
}

FileSink::FileSink(const std::string& path) : out_(path, std::ios::app) {}

void FileSink::write(const Line& line) { out_ << format(line) << '\n' << std::flush; }

std::vector<std::string> CaptureSink::texts() const {
  std::vector<std::string> out;
  for (const auto& line : lines) out.push_back(line.text);
  return out;
}

bool CaptureSink::contains(const std::string& fragment) const {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const Line& line) { return line.text.find(fragment) != std::string::npos; });
}

void Handle::write(unsigned level, std::string text) const {
  Vex::EventLoop* loop = Vex::EventLoop::current();
  // Reading a stepping simulated clock would move it: peek instead.
  double time = !loop ? 0.0 : loop->simulatedTime() ? loop->simulatedTime()->time() : loop->now();
  (ownSink_ ? *ownSink_ : sink()).write(Line{time, module_, level, std::move(text)});
}

Handle& handle(const std::string& module) {
  auto& slot = registry().handles[module];
  if (!slot) slot = std::make_unique<Handle>(module);
  return *slot;
}

std::map<std::string, Handle*> handles() {
  std::map<std::string, Handle*> out;
  for (auto& [name, h] : registry().handles) out[name] = h.get();
  return out;
}

Sink& sink() { return *registry().sink; }
void sinkIs(std::shared_ptr<Sink> sink) { registry().sink = sink ? std::move(sink) : registry().ring; }
RingSink& ring() { return *registry().ring; }
std::shared_ptr<Sink> ringSink() { return registry().ring; }

std::string format(const Line& line) {
  return fmt::format("{:.6f} {} {} {}", line.time, line.module, line.level, line.text);
}

}  // namespace Blip
