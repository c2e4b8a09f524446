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
  bool enabled(unsigned level) const { return level <= level_ && level > 0; }

  void write(unsigned level, std::string text) const;

 private:
  std::string module_;
  unsigned level_ = 0;
};

// The handle of a module, made on first use; handles live as long as the
// process, so references to them stay valid.
Handle& handle(const std::string& module);
// Every handle by module name.
std::map<std::string, Handle*> handles();

// Where lines go. Tests install a CaptureSink and restore the ring after.
Sink& sink();
void sinkIs(std::shared_ptr<Sink> sink);
// The default ring buffer.
RingSink& ring();
std::shared_ptr<Sink> ringSink();

// "12.345 OrbVlanHelper 5 text" for printing.
std::string format(const Line& line);

}  // namespace Blip

// Traces at `level` on `handle` (a Blip::Handle&) when that level is on.
#define BLIP(handle, level, ...)                                                        \
  do {                                                                                  \
    const ::Blip::Handle& blipHandle_ = (handle);                                       \
    if (blipHandle_.enabled(level)) blipHandle_.write(level, fmt::format(__VA_ARGS__)); \
  } while (0)
