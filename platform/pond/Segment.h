// A POSIX shared-memory segment mapped into this process. The owner makes it
// (mode 0600, replacing a stale segment of the same name left by a crashed
// owner) and removes its name when it closes; others open it by name. Each
// process maps it wherever the kernel puts it.
#pragma once

#include <cstddef>
#include <string>

namespace Pond {

class Segment {
 public:
  Segment() = default;
  ~Segment();
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;
  Segment(Segment&& other) noexcept;
  Segment& operator=(Segment&& other) noexcept;

  // Makes a zero-filled segment of `bytes` bytes and owns its name. Throws
  // std::system_error when the kernel refuses.
  static Segment create(const std::string& name, std::size_t bytes);
  // Maps an existing segment read-write; an empty Segment when there is none
  // by that name (the owner has not made it yet). Throws std::system_error
  // on other refusals.
  static Segment open(const std::string& name);

  bool isMapped() const { return base_ != nullptr; }
  bool isOwner() const { return owner_; }
  void* base() const { return base_; }
  std::size_t bytes() const { return bytes_; }
  const std::string& name() const { return name_; }
  // Whether the segment still has its name (the owner has not removed it).
  bool isLinked() const;

  // Unmaps; the owner also removes the name (not a forked child of the
  // owner, which only inherited the mapping).
  void close();

  // A segment name: "/" and letters, digits, '.', '_' or '-', at most 200
  // characters after the slash. Throws std::invalid_argument otherwise.
  static void checkName(const std::string& name);

 private:
  std::string name_;
  void* base_ = nullptr;
  std::size_t bytes_ = 0;
  int fd_ = -1;
  bool owner_ = false;
  int ownerPid_ = 0;
};

}  // namespace Pond
