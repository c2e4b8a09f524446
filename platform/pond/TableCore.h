// The untyped body of a Pond table: rows of a fixed size with a key at a
// fixed offset, in a shared-memory segment written by one process (the
// writer) and read by any number of others (readers). Pond::Table<Row, Key>
// (Table.h) is the typed face; this file does the work on bytes.
//
// Rows. Slots form an open-addressing hash table with linear probing. The
// hash folds the key's bytes so that small dense integer keys (FEC ids,
// indexes) land in neighbouring slots, which keeps bulk writes sequential in
// memory. A deleted row leaves a tombstone unless it ends its probe chain;
// tombstones are reused by later inserts. Churn still piles tombstones up
// until a missing key's probe crosses much of the table, so once a quarter
// of the slots are tombstones the writer clears them, moving rows back
// towards their home slots in place. It makes the segment's layout
// generation odd meanwhile; a reader whose probe or scan saw the generation
// change starts it again. Otherwise rows stay put, so a reader probing while
// the writer works at worst misses a key being inserted or deleted at that
// moment, and its change notification follows.
//
// Change log and wake-ups. Every write or delete appends the key to a ring in
// the segment. A reader follows the ring from where it left off; when the
// writer laps it, it re-scans the table and reports every key present (keys
// deleted meanwhile are not reported; consumers that keep per-key state
// reconcile when `onRescan` says the scan is over). A reader that has nothing left to read registers as
// waiting in the segment and sleeps on its own named FIFO (`fifoDir`), which
// works between unrelated processes and plugs into any poll loop. The writer
// pokes the FIFOs of waiting readers only when it flushes: on commit(), on
// flush(), every `flushEvery` writes, and at the end of the event-loop turn
// that wrote (when the writer has a Vex event loop). So a bulk writer pays
// one shared load per write, not a system call.
//
// Corruption. Everything read from a segment is checked before use: magic,
// version, row and key sizes, offsets and counts against the segment's size,
// slot states, the log head and entry stamps. What is wrong is reported
// through the corruption handler with a message; the read counts as not
// found, a broken header leaves the table unmounted (`mountFailed`).
#pragma once

#include "platform/pond/Segment.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Ptr.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Pond {

enum class MountStatus : std::uint8_t { unmounted, mounted, mountFailed };
const char* toString(MountStatus status);

// Binds a table to its segment: the segment is "/" + prefix + table name.
struct TableControl {
  enum class Role : std::uint8_t { writer, reader };
  std::string prefix;
  std::string name;
  Role role = Role::reader;
  // Writer only: rows the table holds at most, and change-log entries kept
  // for readers that fall behind (rounded up to a power of two).
  std::size_t capacity = 1024;
  std::size_t logCapacity = 4096;
  // Where readers make their wake-up FIFOs; must be shared by writer and readers.
  std::string fifoDir = "/dev/shm";

  std::string segmentName() const { return "/" + prefix + name; }
  // A table's binding with a change log at least as long as the table, so
  // that a reader a whole table behind still reads changes, not a rescan.
  static TableControl of(std::string prefix, std::string name, Role role, std::size_t capacity = 1024) {
    TableControl control;
    control.prefix = std::move(prefix);
    control.name = std::move(name);
    control.role = role;
    control.capacity = capacity;
    if (control.logCapacity < capacity) control.logCapacity = capacity;
    return control;
  }
};

using CorruptionHandler = std::function<void(const std::string& message)>;

class TableCore {
 public:
  TableCore(std::size_t rowSize, std::size_t keyOffset, std::size_t keySize);
  ~TableCore();
  TableCore(const TableCore&) = delete;
  TableCore& operator=(const TableCore&) = delete;

  // Binds the table. A writer makes its segment (throws std::system_error
  // when it cannot); a reader mounts it if it exists already and is sound,
  // else stays unmounted (mount() retries) or fails (mountFailed).
  void controlIs(const TableControl& control);
  const TableControl& control() const { return control_; }
  bool isWriter() const { return control_.role == TableControl::Role::writer && segment_.isOwner(); }
  // Reader: tries again to mount; returns the status.
  MountStatus mount();
  MountStatus mountStatus() const { return status_; }
  // Writer: removes the segment (readers see it closed). Reader: leaves it.
  void close();

  void corruptionHandlerIs(CorruptionHandler handler) { corruptionHandler_ = std::move(handler); }

  // Writer. `write` stores the row; unless `force`, a row equal to the one
  // held is not written and logs nothing. Returns false when the table is
  // full (the row is not stored). `erase` returns whether the key was held.
  bool write(const void* row, bool force);
  bool erase(const void* key);
  void eraseAll();
  void quiescedIs(bool quiesced);
  // Wakes readers waiting for changes now.
  void flush();
  std::size_t flushEvery = 256;

  // Readers and writer. `read` copies the row into `rowOut` (rowSize bytes).
  bool read(const void* key, void* rowOut) const;
  std::size_t size() const;
  bool quiesced() const;
  // Calls `each` with every row present (a consistent copy of each row).
  void forEachRow(const std::function<void(const void* row)>& each) const;

  // Reader: the descriptor that becomes readable when changes may be waiting
  // (-1 before mounting or when every reader slot is taken), and the call that
  // reports them. `onKey` gets each changed key in the order written (a lap
  // re-scan reports each present key); `onQuiesced` a change of quiescence;
  // `onMountStatus` the writer closing the table. Returns the keys reported.
  // Arms the wake-up before returning, so a caller sleeps on wakeFd() after.
  int wakeFd() const { return fifoRead_; }
  struct ChangeHandlers {
    std::function<void(const void* key)> onKey;
    std::function<void(bool quiesced)> onQuiesced;
    std::function<void(MountStatus status)> onMountStatus;
    // After a re-scan reported every present key: a consumer that keeps
    // per-key state drops what the scan did not report (deleted meanwhile).
    std::function<void()> onRescan;
  };
  std::size_t processChanges(const ChangeHandlers& handlers);

  // Writer: tombstones now, and how often they were cleared.
  std::uint64_t tombstones() const { return tombstones_; }
  std::uint64_t compactions() const { return compactions_; }

  std::size_t rowSize() const { return rowSize_; }
  std::size_t keySize() const { return keySize_; }
  std::size_t keyOffset() const { return keyOffset_; }

 private:
  struct Geometry;
  void report(const std::string& message) const;
  bool checkHeader(std::string& problem) const;
  unsigned char* slot(std::uint64_t index) const;
  std::uint64_t home(const void* key) const;
  // Consistent copy of a slot's state and row (into scratch_; with
  // `keyOnly`, only the words that hold the key); false (reported) when the
  // slot is corrupt or stays mid-write.
  bool readSlot(std::uint64_t index, std::uint32_t& state, bool keyOnly = false) const;
  void writeSlot(std::uint64_t index, std::uint32_t state, const void* row);
  std::uint32_t writerState(std::uint64_t index) const;
  const unsigned char* writerKey(std::uint64_t index) const;
  bool keyEquals(const unsigned char* held, const void* key) const;
  void append(const void* key);
  void noteWrite();
  void registerReader();
  void unregisterReader();
  void rescan(const ChangeHandlers& handlers, std::size_t& reported);
  // Writer: clears every tombstone, moving rows in place (see above).
  void compact();
  // Reader: the layout generation once it is even (no compaction under way).
  std::uint64_t stableGeneration() const;
  bool generationIs(std::uint64_t generation) const;
  bool readOnce(const void* key, void* rowOut) const;

  std::size_t rowSize_;
  std::size_t keyOffset_;
  std::size_t keySize_;
  TableControl control_;
  Segment segment_;
  MountStatus status_ = MountStatus::unmounted;
  CorruptionHandler corruptionHandler_;
  // Copied from the header once it was checked, so a later scribble on the
  // header cannot steer this process out of the segment.
  std::size_t slotStride_ = 0;
  std::uint64_t slotCount_ = 0;
  std::uint64_t capacity_ = 0;
  std::uint64_t slotsOffset_ = 0;
  std::uint64_t logCapacity_ = 0;
  std::uint64_t logStride_ = 0;
  std::uint64_t logOffset_ = 0;
  std::uint64_t readersOffset_ = 0;
  std::uint32_t readerCount_ = 0;
  // Writer.
  std::uint64_t rowCount_ = 0;
  std::uint64_t tombstones_ = 0;
  std::uint64_t compactions_ = 0;
  std::uint64_t logHead_ = 0;
  int writerPid_ = 0;  // a forked child inherits the object, not the role
  std::size_t unflushed_ = 0;
  Vex::Ptr<Vex::Clock> flushClock_;
  std::vector<int> wakeFds_;             // per reader slot, -1: not open
  std::vector<std::uint32_t> wakePids_;  // the reader registration each one was opened for
  // Reader.
  int readerIndex_ = -1;
  int fifoRead_ = -1;
  int fifoKeepAlive_ = -1;
  std::string fifoPath_;
  std::uint64_t logPosition_ = 0;
  bool seenQuiesced_ = false;
  mutable std::vector<std::uint64_t> scratch_;  // one slot's row, 8-byte aligned
};

}  // namespace Pond
