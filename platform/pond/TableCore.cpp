#include "platform/pond/TableCore.h"

#include "platform/pond/Layout.h"
#include "platform/vex/EventLoop.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <set>
#include <string>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace Pond {

using namespace Layout;

const char* toString(MountStatus status) {
  switch (status) {
    case MountStatus::unmounted:
      return "unmounted";
    case MountStatus::mounted:
      return "mounted";
    case MountStatus::mountFailed:
      return "mountFailed";
  }
  return "?";
}

namespace {

Header* headerOf(const Segment& segment) { return static_cast<Header*>(segment.base()); }

std::uint64_t powerOfTwoAtLeast(std::uint64_t n) { return std::bit_ceil(n < 2 ? std::uint64_t{2} : n); }

// A reader gives up on a row that stays mid-write this long (the writer died
// inside a write, or scribbled on the counter).
constexpr std::uint64_t maxSpins = std::uint64_t{1} << 22;

// memcmp() == 0 without the call, for rows of a few words.
inline bool bytesEqual(const unsigned char* a, const void* bv, std::size_t bytes) {
  auto* b = static_cast<const unsigned char*>(bv);
  std::size_t at = 0;
  for (; at + 8 <= bytes; at += 8) {
    std::uint64_t x, y;
    std::memcpy(&x, a + at, 8);
    std::memcpy(&y, b + at, 8);
    if (x != y) return false;
  }
  return std::memcmp(a + at, b + at, bytes - at) == 0;
}

void relax(std::uint64_t spin) {
  if (spin % 64 == 63) ::sched_yield();
}

}  // namespace

TableCore::TableCore(std::size_t rowSize, std::size_t keyOffset, std::size_t keySize)
    : rowSize_(rowSize), keyOffset_(keyOffset), keySize_(keySize) {
  if (rowSize == 0 || keySize == 0 || keyOffset + keySize > rowSize)
    throw std::invalid_argument("Pond table: the key must lie inside the row");
  scratch_.resize(roundUp8(rowSize) / 8 + 1);
}

TableCore::~TableCore() { close(); }

void TableCore::report(const std::string& message) const {
  std::string text = fmt::format("table {}: {}", control_.segmentName(), message);
  if (corruptionHandler_)
    corruptionHandler_(text);
  else
    std::fprintf(stderr, "pond corruption: %s\n", text.c_str());
}

inline unsigned char* TableCore::slot(std::uint64_t index) const {
  return static_cast<unsigned char*>(segment_.base()) + slotsOffset_ + index * slotStride_;
}

inline std::uint64_t TableCore::home(const void* key) const {
  // Fold the key's words; shifts rather than a multiply so dense small keys
  // keep their order (they map to themselves below 2^17).
  std::uint64_t h = 0;
  auto* bytes = static_cast<const unsigned char*>(key);
  if (keySize_ == 8) {
    std::memcpy(&h, bytes, 8);
  } else {
    for (std::size_t at = 0, word = 0; at < keySize_; at += 8, ++word) {
      std::uint64_t w = 0;
      std::memcpy(&w, bytes + at, std::min<std::size_t>(8, keySize_ - at));
      h ^= std::rotl(w, static_cast<int>(word * 23 % 64));
    }
  }
  h ^= (h >> 17) ^ (h >> 31) ^ (h >> 47);
  return h & (slotCount_ - 1);
}

// ---- binding

void TableCore::controlIs(const TableControl& control) {
  close();
  control_ = control;
  Segment::checkName(control_.segmentName());
  if (control_.role == TableControl::Role::reader) {
    mount();
    return;
  }
  if (control_.capacity == 0) throw std::invalid_argument("Pond table: capacity must be at least 1");
  std::uint64_t slotCount = powerOfTwoAtLeast(2 * std::uint64_t{control_.capacity});
  std::uint64_t logCapacity = powerOfTwoAtLeast(control_.logCapacity);
  std::uint64_t slotStride = sizeof(SlotHead) + roundUp8(rowSize_);
  std::uint64_t logStride = 8 + roundUp8(keySize_);
  std::uint64_t readersOffset = roundUp64(sizeof(Header));
  std::uint64_t slotsOffset = roundUp64(readersOffset + maxReaders * sizeof(std::uint64_t));
  std::uint64_t logOffset = roundUp64(slotsOffset + slotCount * slotStride);
  std::uint64_t bytes = logOffset + logCapacity * logStride;

  segment_ = Segment::create(control_.segmentName(), bytes);
  Header* h = headerOf(segment_);
  h->version = version;
  h->rowSize = static_cast<std::uint32_t>(rowSize_);
  h->keyOffset = static_cast<std::uint32_t>(keyOffset_);
  h->keySize = static_cast<std::uint32_t>(keySize_);
  h->slotStride = static_cast<std::uint32_t>(slotStride);
  h->readerCount = maxReaders;
  h->slotCount = slotCount;
  h->capacity = control_.capacity;
  h->slotsOffset = slotsOffset;
  h->logCapacity = logCapacity;
  h->logStride = logStride;
  h->logOffset = logOffset;
  h->readersOffset = readersOffset;
  h->segmentBytes = bytes;
  // Readers take a zero magic for "not made yet": it goes in last.
  store<std::uint64_t>(&h->magic, magic);

  slotStride_ = slotStride;
  slotCount_ = slotCount;
  capacity_ = control_.capacity;
  slotsOffset_ = slotsOffset;
  logCapacity_ = logCapacity;
  logStride_ = logStride;
  logOffset_ = logOffset;
  readersOffset_ = readersOffset;
  readerCount_ = maxReaders;
  rowCount_ = 0;
  logHead_ = 0;
  wakeFds_.assign(maxReaders, -1);
  wakePids_.assign(maxReaders, 0);
  writerPid_ = ::getpid();
  status_ = MountStatus::mounted;
}

bool TableCore::checkHeader(std::string& problem) const {
  const Header* h = headerOf(segment_);
  const std::uint64_t bytes = segment_.bytes();
  auto fits = [bytes](std::uint64_t offset, std::uint64_t count, std::uint64_t stride) {
    return offset % 8 == 0 && offset <= bytes && stride != 0 && count <= (bytes - offset) / stride;
  };
  if (h->magic != magic)
    problem = fmt::format("bad magic {:#x}", h->magic);
  else if (h->version != version)
    problem = fmt::format("version {}, expected {}", h->version, version);
  else if (h->rowSize != rowSize_)
    problem = fmt::format("row size {}, expected {}", h->rowSize, rowSize_);
  else if (h->keyOffset != keyOffset_ || h->keySize != keySize_)
    problem = fmt::format("key at {} size {}, expected at {} size {}", h->keyOffset, h->keySize, keyOffset_, keySize_);
  else if (h->slotStride != sizeof(SlotHead) + roundUp8(rowSize_) || h->logStride != 8 + roundUp8(keySize_))
    problem = fmt::format("slot stride {} or log stride {} does not match the row", h->slotStride, h->logStride);
  else if (h->segmentBytes != bytes)
    problem = fmt::format("header says {} bytes, segment has {}", h->segmentBytes, bytes);
  else if (!std::has_single_bit(h->slotCount) || h->capacity == 0 || h->capacity >= h->slotCount)
    problem = fmt::format("slot count {} or capacity {} out of range", h->slotCount, h->capacity);
  else if (!std::has_single_bit(h->logCapacity))
    problem = fmt::format("change log capacity {} out of range", h->logCapacity);
  else if (h->readerCount > maxReaders || h->readersOffset < sizeof(Header) ||
           !fits(h->readersOffset, h->readerCount, sizeof(std::uint64_t)))
    problem = fmt::format("reader slots at offset {} out of range", h->readersOffset);
  else if (h->slotsOffset < h->readersOffset + h->readerCount * sizeof(std::uint64_t) ||
           !fits(h->slotsOffset, h->slotCount, h->slotStride))
    problem = fmt::format("row slots at offset {} out of range", h->slotsOffset);
  else if (h->logOffset < h->slotsOffset + h->slotCount * h->slotStride ||
           !fits(h->logOffset, h->logCapacity, h->logStride))
    problem = fmt::format("change log at offset {} out of range", h->logOffset);
  else
    return true;
  return false;
}

MountStatus TableCore::mount() {
  if (control_.role != TableControl::Role::reader || status_ == MountStatus::mounted) return status_;
  if (control_.name.empty()) return status_;  // not bound yet
  try {
    segment_ = Segment::open(control_.segmentName());
  } catch (const std::system_error& e) {
    report(e.what());
    return status_ = MountStatus::mountFailed;
  }
  if (!segment_.isMapped()) return status_ = MountStatus::unmounted;
  if (segment_.bytes() < sizeof(Header)) {
    report(fmt::format("segment of {} bytes is smaller than its header", segment_.bytes()));
    segment_.close();
    return status_ = MountStatus::mountFailed;
  }
  Header* h = headerOf(segment_);
  if (load<std::uint64_t>(&h->magic) == 0) {  // the writer is still making it
    segment_.close();
    return status_ = MountStatus::unmounted;
  }
  std::string problem;
  if (!checkHeader(problem)) {
    report(problem);
    segment_.close();
    return status_ = MountStatus::mountFailed;
  }
  slotStride_ = h->slotStride;
  slotCount_ = h->slotCount;
  capacity_ = h->capacity;
  slotsOffset_ = h->slotsOffset;
  logCapacity_ = h->logCapacity;
  logStride_ = h->logStride;
  logOffset_ = h->logOffset;
  readersOffset_ = h->readersOffset;
  readerCount_ = h->readerCount;
  logPosition_ = load<std::uint64_t>(&h->logHead);
  seenQuiesced_ = load<std::uint32_t>(&h->quiesced) != 0;
  status_ = MountStatus::mounted;
  registerReader();
  return status_;
}

void TableCore::close() {
  if (segment_.isMapped() && isWriter() && writerPid_ == ::getpid()) {
    store<std::uint32_t>(&headerOf(segment_)->closed, 1);
    flush();
  }
  flushClock_ = nullptr;
  for (int& fd : wakeFds_) {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
  unregisterReader();
  segment_.close();
  status_ = MountStatus::unmounted;
}

// ---- reader wake-up FIFOs

namespace {

std::string fifoPath(const TableControl& control, int index) {
  return fmt::format("{}/{}{}.r{}", control.fifoDir, control.prefix, control.name, index);
}

bool processGone(std::uint32_t pid) { return pid != 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH; }

}  // namespace

void TableCore::registerReader() {
  auto* slots = reinterpret_cast<std::uint64_t*>(static_cast<unsigned char*>(segment_.base()) + readersOffset_);
  auto self = static_cast<std::uint32_t>(::getpid());
  for (std::uint32_t i = 0; i < readerCount_; ++i) {
    std::uint64_t word = load<std::uint64_t>(&slots[i]);
    std::uint32_t pid = readerPid(word);
    if (pid != 0 && !processGone(pid)) continue;
    std::uint64_t mine = readerWord(self, readerGeneration(word) + 1);
    if (!std::atomic_ref<std::uint64_t>(slots[i]).compare_exchange_strong(word, mine)) continue;
    std::string path = fifoPath(control_, static_cast<int>(i));
    ::unlink(path.c_str());  // a FIFO left by a reader that died
    if (::mkfifo(path.c_str(), 0600) != 0) break;
    fifoRead_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    // Our own write end keeps the FIFO from reporting hang-up between writers.
    fifoKeepAlive_ = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    readerIndex_ = static_cast<int>(i);
    fifoPath_ = path;
    if (fifoRead_ < 0 || fifoKeepAlive_ < 0) unregisterReader();
    return;
  }
  // Every slot is taken (or the FIFO could not be made): this reader can
  // still read, but cannot sleep on changes.
}

void TableCore::unregisterReader() {
  if (fifoRead_ >= 0) ::close(fifoRead_);
  if (fifoKeepAlive_ >= 0) ::close(fifoKeepAlive_);
  fifoRead_ = fifoKeepAlive_ = -1;
  if (readerIndex_ < 0) return;
  // A forked child of the reader leaves the parent's registration alone.
  auto* slots = reinterpret_cast<std::uint64_t*>(static_cast<unsigned char*>(segment_.base()) + readersOffset_);
  std::uint64_t word = load<std::uint64_t>(&slots[readerIndex_]);
  if (readerPid(word) == static_cast<std::uint32_t>(::getpid())) {
    if (!fifoPath_.empty()) ::unlink(fifoPath_.c_str());
    store<std::uint64_t>(&slots[readerIndex_], readerWord(0, readerGeneration(word)));
  }
  readerIndex_ = -1;
  fifoPath_.clear();
}

void TableCore::flush() {
  unflushed_ = 0;
  if (!segment_.isMapped() || !isWriter()) return;
  Header* h = headerOf(segment_);
  // Pairs with the reader's fence between marking itself waiting and
  // re-reading the log head: one of the two sees the other.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (load<std::uint64_t>(&h->waitingReaders, std::memory_order_relaxed) == 0) return;
  std::uint64_t waiting = std::atomic_ref<std::uint64_t>(h->waitingReaders).exchange(0);
  auto* slots = reinterpret_cast<std::uint64_t*>(static_cast<unsigned char*>(segment_.base()) + readersOffset_);
  for (std::uint32_t i = 0; i < readerCount_; ++i) {
    if (!(waiting & (std::uint64_t{1} << i))) continue;
    std::uint64_t word = load<std::uint64_t>(&slots[i]);
    if (readerPid(word) == 0) continue;
    auto generation = static_cast<std::uint32_t>(word);
    if (wakeFds_[i] >= 0 && wakePids_[i] != generation) {
      ::close(wakeFds_[i]);
      wakeFds_[i] = -1;
    }
    if (wakeFds_[i] < 0) {
      // Read-write so that a reader that died never makes us take SIGPIPE.
      wakeFds_[i] = ::open(fifoPath(control_, static_cast<int>(i)).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
      wakePids_[i] = generation;
      if (wakeFds_[i] < 0) continue;
    }
    const char poke = 1;
    [[maybe_unused]] auto written = ::write(wakeFds_[i], &poke, 1);  // full pipe: a wake-up is pending anyway
  }
}

inline void TableCore::noteWrite() {
  if (++unflushed_ >= flushEvery) {
    flush();
    return;
  }
  if (unflushed_ > 1) return;  // the end-of-turn flush is already asked for
  if (!Vex::EventLoop::current()) return;
  if (!flushClock_) flushClock_ = Vex::clockFactory([this] { flush(); });
  flushClock_->timeMinIs(0.0);
}

// ---- slots

bool TableCore::readSlot(std::uint64_t index, std::uint32_t& state, bool keyOnly) const {
  unsigned char* s = slot(index);
  // The bytes copied, in whole words: the row, or the words holding its key.
  const std::size_t from = keyOnly ? keyOffset_ & ~std::size_t(7) : 0;
  const std::size_t to = keyOnly ? roundUp8(keyOffset_ + keySize_) : roundUp8(rowSize_);
  for (std::uint64_t spin = 0; spin < maxSpins; ++spin) {
    std::uint32_t before = load<std::uint32_t>(s);
    if (before & 1) {
      relax(spin);
      continue;
    }
    state = load<std::uint32_t>(s + 4, std::memory_order_relaxed);
    // An empty or deleted slot's bytes mean nothing: only its state is read.
    if (state == slotUsed) {
      auto* scratch = reinterpret_cast<unsigned char*>(scratch_.data());
      copyOut(scratch + from, s + sizeof(SlotHead) + from, to - from);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (load<std::uint32_t>(s, std::memory_order_relaxed) != before) {
      relax(spin);
      continue;
    }
    if (state > slotDeleted) {
      report(fmt::format("row slot {} has state {}", index, state));
      return false;
    }
    return true;
  }
  report(fmt::format("row slot {} stays mid-write", index));
  return false;
}

inline void TableCore::writeSlot(std::uint64_t index, std::uint32_t state, const void* row) {
  unsigned char* s = slot(index);
  std::uint32_t seq = load<std::uint32_t>(s, std::memory_order_relaxed);
  store<std::uint32_t>(s, seq + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  store<std::uint32_t>(s + 4, state, std::memory_order_relaxed);
  if (row) copyInBytes(s + sizeof(SlotHead), row, rowSize_);
  store<std::uint32_t>(s, seq + 2);
}

inline std::uint32_t TableCore::writerState(std::uint64_t index) const {
  return load<std::uint32_t>(slot(index) + 4, std::memory_order_relaxed);
}

inline const unsigned char* TableCore::writerKey(std::uint64_t index) const {
  return slot(index) + sizeof(SlotHead) + keyOffset_;
}

inline void TableCore::append(const void* key) {
  auto* entry =
      static_cast<unsigned char*>(segment_.base()) + logOffset_ + (logHead_ & (logCapacity_ - 1)) * logStride_;
  store<std::uint64_t>(entry, 2 * logHead_ + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  copyInBytes(entry + 8, key, keySize_);
  store<std::uint64_t>(entry, 2 * logHead_ + 2);
  ++logHead_;
  store<std::uint64_t>(&headerOf(segment_)->logHead, logHead_);
}

inline bool TableCore::keyEquals(const unsigned char* held, const void* key) const {
  if (keySize_ == 8) {  // the common case (FEC ids, indexes), without a call
    std::uint64_t a, b;
    std::memcpy(&a, held, 8);
    std::memcpy(&b, key, 8);
    return a == b;
  }
  return std::memcmp(held, key, keySize_) == 0;
}

// ---- writer

bool TableCore::write(const void* row, bool force) {
  if (!isWriter()) throw std::logic_error("Pond table " + control_.segmentName() + ": written by a reader");
  const auto* key = static_cast<const unsigned char*>(row) + keyOffset_;
  const std::uint64_t mask = slotCount_ - 1;
  std::uint64_t index = home(key);
  std::uint64_t free = slotCount_;  // none yet
  for (std::uint64_t probe = 0; probe < slotCount_; ++probe, index = (index + 1) & mask) {
    std::uint32_t state = writerState(index);
    if (state == slotUsed && keyEquals(writerKey(index), key)) {
      if (!force && bytesEqual(slot(index) + sizeof(SlotHead), row, rowSize_)) return true;
      writeSlot(index, slotUsed, row);
      append(key);
      noteWrite();
      return true;
    }
    if (state == slotDeleted && free == slotCount_) free = index;
    if (state == slotEmpty) {
      if (free == slotCount_) free = index;
      break;
    }
  }
  if (rowCount_ >= capacity_ || free == slotCount_) return false;
  if (writerState(free) == slotDeleted) --tombstones_;
  writeSlot(free, slotUsed, row);
  store<std::uint64_t>(&headerOf(segment_)->rowCount, ++rowCount_);
  append(key);
  noteWrite();
  return true;
}

bool TableCore::erase(const void* key) {
  if (!isWriter()) throw std::logic_error("Pond table " + control_.segmentName() + ": written by a reader");
  const std::uint64_t mask = slotCount_ - 1;
  std::uint64_t index = home(key);
  for (std::uint64_t probe = 0; probe < slotCount_; ++probe, index = (index + 1) & mask) {
    std::uint32_t state = writerState(index);
    if (state == slotEmpty) return false;
    if (state != slotUsed || !keyEquals(writerKey(index), key)) continue;
    if (writerState((index + 1) & mask) == slotEmpty) {
      // The end of a probe chain: it and the tombstones before it go empty.
      writeSlot(index, slotEmpty, nullptr);
      for (std::uint64_t back = (index - 1) & mask; writerState(back) == slotDeleted; back = (back - 1) & mask) {
        writeSlot(back, slotEmpty, nullptr);
        --tombstones_;
      }
    } else {
      writeSlot(index, slotDeleted, nullptr);
      ++tombstones_;
    }
    store<std::uint64_t>(&headerOf(segment_)->rowCount, --rowCount_);
    append(key);
    if (tombstones_ > slotCount_ / 4) compact();
    noteWrite();
    return true;
  }
  return false;
}

void TableCore::eraseAll() {
  if (!isWriter()) throw std::logic_error("Pond table " + control_.segmentName() + ": written by a reader");
  std::vector<unsigned char> key(keySize_);
  for (std::uint64_t index = 0; index < slotCount_; ++index) {
    std::uint32_t state = writerState(index);
    if (state == slotEmpty) continue;
    std::memcpy(key.data(), writerKey(index), keySize_);
    writeSlot(index, slotEmpty, nullptr);
    if (state != slotUsed) continue;
    append(key.data());
    noteWrite();
  }
  rowCount_ = 0;
  store<std::uint64_t>(&headerOf(segment_)->rowCount, 0);
}

void TableCore::quiescedIs(bool quiesced) {
  if (!isWriter()) throw std::logic_error("Pond table " + control_.segmentName() + ": written by a reader");
  store<std::uint32_t>(&headerOf(segment_)->quiesced, quiesced ? 1 : 0);
  flush();
}

// ---- reads

std::uint64_t TableCore::stableGeneration() const {
  const auto* generation = &headerOf(segment_)->layoutGeneration;
  for (std::uint64_t spin = 0;; ++spin) {
    std::uint64_t g = load<std::uint64_t>(generation);
    if (!(g & 1)) return g;
    relax(spin);
  }
}

bool TableCore::generationIs(std::uint64_t generation) const {
  std::atomic_thread_fence(std::memory_order_acquire);
  return load<std::uint64_t>(&headerOf(segment_)->layoutGeneration, std::memory_order_relaxed) == generation;
}

bool TableCore::read(const void* key, void* rowOut) const {
  if (status_ != MountStatus::mounted) return false;
  // A probe that crossed a compaction may have missed a moved row.
  for (;;) {
    std::uint64_t generation = stableGeneration();
    bool found = readOnce(key, rowOut);
    if (generationIs(generation)) return found;
  }
}

bool TableCore::readOnce(const void* key, void* rowOut) const {
  const std::uint64_t mask = slotCount_ - 1;
  std::uint64_t index = home(key);
  auto* row = reinterpret_cast<const unsigned char*>(scratch_.data());
  for (std::uint64_t probe = 0; probe < slotCount_; ++probe, index = (index + 1) & mask) {
    // Probing compares keys only; the row is copied once its key matched,
    // and its key checked again (the slot may have changed hands between).
    std::uint32_t state = 0;
    if (!readSlot(index, state, true)) return false;
    if (state == slotEmpty) return false;
    if (state != slotUsed || std::memcmp(row + keyOffset_, key, keySize_) != 0) continue;
    if (!readSlot(index, state)) return false;
    if (state == slotUsed && std::memcmp(row + keyOffset_, key, keySize_) == 0) {
      std::memcpy(rowOut, row, rowSize_);
      return true;
    }
    if (state == slotEmpty) return false;
  }
  return false;
}

std::size_t TableCore::size() const {
  if (status_ != MountStatus::mounted) return 0;
  std::uint64_t count = load<std::uint64_t>(&headerOf(segment_)->rowCount);
  if (count > capacity_) {
    report(fmt::format("row count {} exceeds capacity {}", count, capacity_));
    return 0;
  }
  return count;
}

bool TableCore::quiesced() const {
  return status_ == MountStatus::mounted && load<std::uint32_t>(&headerOf(segment_)->quiesced) != 0;
}

void TableCore::forEachRow(const std::function<void(const void* row)>& each) const {
  if (status_ != MountStatus::mounted) return;
  std::vector<std::uint64_t> row(scratch_.size());
  // A scan that crossed a compaction starts again, skipping the keys it
  // already gave: rows moved meanwhile may have been passed over. The first
  // pass only notes its keys, back to back; a set of them is made only for
  // a pass that starts again, which is rare.
  std::vector<char> firstPass;
  std::set<std::string> given;
  for (bool again = false;; again = true) {
    std::uint64_t generation = stableGeneration();
    for (std::uint64_t index = 0; index < slotCount_; ++index) {
      std::uint32_t state = 0;
      if (!readSlot(index, state) || state != slotUsed) continue;
      // The callback may read the table, which reuses the scratch row.
      std::memcpy(row.data(), scratch_.data(), rowSize_);
      const char* key = reinterpret_cast<const char*>(row.data()) + keyOffset_;
      if (again && !given.emplace(key, keySize_).second) continue;
      if (!again && !isWriter()) firstPass.insert(firstPass.end(), key, key + keySize_);
      each(row.data());
    }
    if (isWriter() || generationIs(generation)) return;
    for (std::size_t at = 0; at < firstPass.size(); at += keySize_) given.emplace(&firstPass[at], keySize_);
    firstPass.clear();
  }
}

void TableCore::compact() {
  Header* h = headerOf(segment_);
  const std::uint64_t generation = load<std::uint64_t>(&h->layoutGeneration, std::memory_order_relaxed);
  store<std::uint64_t>(&h->layoutGeneration, generation + 1);
  std::atomic_thread_fence(std::memory_order_seq_cst);
  // Tombstones go empty and every row is marked unplaced (as deleted);
  // then each unplaced row goes to the first empty or unplaced slot from
  // its home, trading places with an unplaced row found there.
  for (std::uint64_t index = 0; index < slotCount_; ++index) {
    std::uint32_t state = writerState(index);
    if (state == slotDeleted) writeSlot(index, slotEmpty, nullptr);
    if (state == slotUsed) writeSlot(index, slotDeleted, nullptr);  // the row's bytes stay
  }
  const std::uint64_t mask = slotCount_ - 1;
  const std::size_t words = roundUp8(rowSize_) / 8;
  std::vector<std::uint64_t> moving(words), other(words);
  for (std::uint64_t index = 0; index < slotCount_; ++index) {
    if (writerState(index) != slotDeleted) continue;
    copyOut(moving.data(), slot(index) + sizeof(SlotHead), words * 8);
    for (;;) {
      const auto* key = reinterpret_cast<const unsigned char*>(moving.data()) + keyOffset_;
      std::uint64_t to = home(key);
      while (to != index && writerState(to) == slotUsed) to = (to + 1) & mask;
      if (to == index) {
        writeSlot(index, slotUsed, moving.data());
        break;
      }
      if (writerState(to) == slotEmpty) {
        writeSlot(to, slotUsed, moving.data());
        writeSlot(index, slotEmpty, nullptr);
        break;
      }
      copyOut(other.data(), slot(to) + sizeof(SlotHead), words * 8);
      writeSlot(to, slotUsed, moving.data());
      moving.swap(other);
    }
  }
  tombstones_ = 0;
  ++compactions_;
  store<std::uint64_t>(&h->layoutGeneration, generation + 2);
}

// ---- following changes

void TableCore::rescan(const ChangeHandlers& handlers, std::size_t& reported) {
  std::vector<unsigned char> key(keySize_);
  forEachRow([&](const void* row) {
    std::memcpy(key.data(), static_cast<const unsigned char*>(row) + keyOffset_, keySize_);
    ++reported;
    if (handlers.onKey) handlers.onKey(key.data());
  });
  if (handlers.onRescan) handlers.onRescan();
}

std::size_t TableCore::processChanges(const ChangeHandlers& handlers) {
  if (status_ != MountStatus::mounted || isWriter()) return 0;
  if (fifoRead_ >= 0) {
    char drain[64];
    while (::read(fifoRead_, drain, sizeof(drain)) > 0) {
    }
  }
  Header* h = headerOf(segment_);
  std::size_t reported = 0;
  std::vector<std::uint64_t> key(roundUp8(keySize_) / 8);
  for (;;) {
    std::uint64_t head = load<std::uint64_t>(&h->logHead);
    if (head < logPosition_) {
      report(fmt::format("change log head {} is behind reader position {}", head, logPosition_));
      rescan(handlers, reported);
    } else if (head - logPosition_ > logCapacity_) {
      rescan(handlers, reported);  // lapped: the entries we missed are gone
    } else {
      for (std::uint64_t at = logPosition_; at < head; ++at) {
        auto* entry =
            static_cast<unsigned char*>(segment_.base()) + logOffset_ + (at & (logCapacity_ - 1)) * logStride_;
        std::uint64_t stamp = load<std::uint64_t>(entry);
        std::uint64_t lap = 2 * logCapacity_;
        bool lapped = stamp > 2 * at + 2 && ((stamp - 2 * at - 2) % lap == 0 || (stamp - 2 * at - 1) % lap == 0);
        if (stamp != 2 * at + 2 && !lapped) {
          report(fmt::format("change log entry {} has stamp {}, out of range", at, stamp));
          rescan(handlers, reported);
          break;
        }
        if (!lapped) {
          copyOut(key.data(), entry + 8, roundUp8(keySize_));
          std::atomic_thread_fence(std::memory_order_acquire);
          lapped = load<std::uint64_t>(entry, std::memory_order_relaxed) != stamp;
        }
        if (lapped) {
          rescan(handlers, reported);
          break;
        }
        ++reported;
        if (handlers.onKey) handlers.onKey(key.data());
      }
    }
    logPosition_ = head;

    bool quiesced = load<std::uint32_t>(&h->quiesced) != 0;
    if (quiesced != seenQuiesced_) {
      seenQuiesced_ = quiesced;
      if (handlers.onQuiesced) handlers.onQuiesced(quiesced);
    }
    if (load<std::uint32_t>(&h->closed) != 0) {
      close();
      if (handlers.onMountStatus) handlers.onMountStatus(status_);
      return reported;
    }
    if (readerIndex_ < 0) return reported;
    // Sleep only if nothing came in after we said we would.
    std::atomic_ref<std::uint64_t>(h->waitingReaders).fetch_or(std::uint64_t{1} << readerIndex_);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (load<std::uint64_t>(&h->logHead) == logPosition_ && (load<std::uint32_t>(&h->quiesced) != 0) == seenQuiesced_ &&
        load<std::uint32_t>(&h->closed) == 0)
      return reported;
  }
}

}  // namespace Pond
