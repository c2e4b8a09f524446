// Traces: per-module handles with a level (0 off ... 9 most). A trace line
// costs one integer compare when its level is off; the text is formatted
// with fmt only when it is on. Lines go to the current sink: a bounded ring
// buffer by default (what `show trace` prints), a file, or a capturing sink
// in tests.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Blip {

struct Line {
  double time = 0.0;
  std::string module;
  unsigned level = 0;
  std::string text;
};

class Sink {
 public:
  virtual ~Sink() = default;
  virtual void write(const Line& line) = 0;
};

// Keeps the last `capacity` lines.
class RingSink : public Sink {
 public:
  explicit RingSink(std::size_t capacity = 4096) : capacity_(capacity) {}
  void write(const Line& line) override;
  const std::deque<Line>& lines() const { return lines_; }
  void clear() { lines_.clear(); }

 private:
  std::size_t capacity_;
  std::deque<Line> lines_;
};

// Appends formatted lines to a file.
class FileSink : public Sink {
 public:
  explicit FileSink(const std::string& path);
  bool ok() const { return static_cast<bool>(out_); }
  void write(const Line& line) override;

 private:
  std::ofstream out_;
};

// Collects lines for tests to assert on.
class CaptureSink : public Sink {
 public:
  void write(const Line& line) override { lines.push_back(line); }
  std::vector<std::string> texts() const;
  bool contains(const std::string& fragment) const;
  std::vector<Line> lines;
};

class Handle {
 public:
  explicit Handle(std::string module) : module_(std::move(module)) {}
  const std::string& module() const { return module_; }
  unsigned level() const { return level_; }
  void levelIs(unsigned level) { level_ = level > 9 ? 9 : level; }
  // Levels 1 ... level() are on; level 0 never is (it wraps to the largest
  // unsigned), all in one compare.
  bool enabled(unsigned level) const { return level - 1u < level_; }

  // A sink of this handle's own (a file per module), or null for the
  // process-wide one.
  const std::shared_ptr<Sink>& ownSink() const { return ownSink_; }
  void ownSinkIs(std::shared_ptr<Sink> sink) { ownSink_ = std::move(sink); }

  void write(unsigned level, std::string text) const;

 private:
  std::string module_;
  unsigned level_ = 0;
  std::shared_ptr<Sink> ownSink_;
};

// The handle of a module, made on first use (by the module or by a shell
// setting its level first); handles live as long as the process, so
// references to them stay valid.
Handle& handle(const std::string& module);
// Every handle by module name.
std::map<std::string, Handle*> handles();

// Where lines go (unless a handle has its own sink). Tests install a
// CaptureSink and restore the ring after; null restores the ring.
Sink& sink();
void sinkIs(std::shared_ptr<Sink> sink);
// The default ring buffer.
RingSink& ring();
std::shared_ptr<Sink> ringSink();

// "12.345 OrbVlanHelper 5 text" for printing.
std::string format(const Line& line);

}  // namespace Blip

// Traces at `level` on `handle` (a Blip::Handle&) when that level is on;
// the arguments are neither evaluated nor formatted when it is off.
//   BLIP(trace(), 5, "added {} on vlan {}", mac, vlan);
#define BLIP(handle, level, ...)                                                                  \
  do {                                                                                            \
    const ::Blip::Handle& blipHandle_ = (handle);                                                 \
    const unsigned blipLevel_ = (level);                                                          \
    if (blipHandle_.enabled(blipLevel_)) blipHandle_.write(blipLevel_, fmt::format(__VA_ARGS__)); \
  } while (0)
