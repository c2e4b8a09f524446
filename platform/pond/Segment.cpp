#include "platform/pond/Segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Pond {

namespace {

[[noreturn]] void fail(const std::string& what, const std::string& name) {
  throw std::system_error(errno, std::generic_category(), what + " " + name);
}

}  // namespace

void Segment::checkName(const std::string& name) {
  bool ok = name.size() >= 2 && name.size() <= 201 && name[0] == '/';
  for (std::size_t i = 1; ok && i < name.size(); ++i) {
    char c = name[i];
    ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
  }
  if (!ok) throw std::invalid_argument("bad shared-memory segment name '" + name + "'");
}

Segment Segment::create(const std::string& name, std::size_t bytes) {
  checkName(name);
  // A segment of this name can only be a crashed owner's: one writer per table.
  ::shm_unlink(name.c_str());
  Segment segment;
  segment.name_ = name;
  segment.fd_ = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  if (segment.fd_ < 0) fail("shm_open", name);
  segment.owner_ = true;
  segment.ownerPid_ = ::getpid();
  if (::ftruncate(segment.fd_, static_cast<off_t>(bytes)) != 0) fail("ftruncate", name);
  void* base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, segment.fd_, 0);
  if (base == MAP_FAILED) fail("mmap", name);
  segment.base_ = base;
  segment.bytes_ = bytes;
  return segment;
}

Segment Segment::open(const std::string& name) {
  checkName(name);
  Segment segment;
  segment.name_ = name;
  segment.fd_ = ::shm_open(name.c_str(), O_RDWR, 0);
  if (segment.fd_ < 0) {
    if (errno == ENOENT) return Segment();
    fail("shm_open", name);
  }
  struct stat st {};
  if (::fstat(segment.fd_, &st) != 0) fail("fstat", name);
  if (st.st_size <= 0) return Segment();  // made but not sized yet
  auto bytes = static_cast<std::size_t>(st.st_size);
  void* base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, segment.fd_, 0);
  if (base == MAP_FAILED) fail("mmap", name);
  segment.base_ = base;
  segment.bytes_ = bytes;
  return segment;
}

bool Segment::isLinked() const {
  struct stat st {};
  return fd_ >= 0 && ::fstat(fd_, &st) == 0 && st.st_nlink > 0;
}

void Segment::close() {
  if (base_) ::munmap(base_, bytes_);
  if (fd_ >= 0) ::close(fd_);
  if (owner_ && ownerPid_ == ::getpid()) ::shm_unlink(name_.c_str());
  base_ = nullptr;
  bytes_ = 0;
  fd_ = -1;
  owner_ = false;
}

Segment::~Segment() { close(); }

Segment::Segment(Segment&& other) noexcept
    : name_(std::move(other.name_)),
      base_(std::exchange(other.base_, nullptr)),
      bytes_(std::exchange(other.bytes_, 0)),
      fd_(std::exchange(other.fd_, -1)),
      owner_(std::exchange(other.owner_, false)),
      ownerPid_(other.ownerPid_) {}

Segment& Segment::operator=(Segment&& other) noexcept {
  if (this != &other) {
    close();
    name_ = std::move(other.name_);
    base_ = std::exchange(other.base_, nullptr);
    bytes_ = std::exchange(other.bytes_, 0);
    fd_ = std::exchange(other.fd_, -1);
    owner_ = std::exchange(other.owner_, false);
    ownerPid_ = other.ownerPid_;
  }
  return *this;
}

}  // namespace Pond
