// What a Pond table segment holds, byte for byte, and the word-wise atomic
// copies every access to shared bytes goes through.
//
// A segment is laid out as
//
//   Header | reader slots | row slots | change log
//
// with offsets and sizes recorded in the header, so a reader checks them
// against the segment's real size before touching anything. Nothing in a
// segment is a pointer: each process maps it where it likes.
//
// A row slot is  [u32 seq][u32 state][row bytes, padded to 8].  The writer
// makes `seq` odd, writes state and row, then makes it even again; a reader
// copies state and row between two reads of `seq` and retries when the first
// was odd or the two differ. The bytes are copied with relaxed atomic word
// accesses fenced by the counter's acquire/release, which is a data-race-free
// sequence lock under the C++ memory model.
//
// A change log entry is  [u64 stamp][key bytes, padded to 8],  in a ring of
// a power-of-two number of entries. Entry n (counting from 0 since the
// segment was made) has stamp 2n+2 once written and 2n+1 while being
// written, so a reader can tell an entry overwritten by a later lap.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Pond::Layout {

inline constexpr std::uint64_t magic = 0x314c4254444e4f50ull;  // "PONDTBL1"
inline constexpr std::uint32_t version = 2;
inline constexpr std::uint32_t maxReaders = 32;

enum SlotState : std::uint32_t { slotEmpty = 0, slotUsed = 1, slotDeleted = 2 };

constexpr std::size_t roundUp8(std::size_t n) { return (n + 7) & ~std::size_t{7}; }
constexpr std::size_t roundUp64(std::size_t n) { return (n + 63) & ~std::size_t{63}; }

struct Header {
  // Fixed when the writer makes the segment.
  std::uint64_t magic;
  std::uint32_t version;
  std::uint32_t rowSize;
  std::uint32_t keyOffset;
  std::uint32_t keySize;
  std::uint32_t slotStride;
  std::uint32_t readerCount;
  std::uint64_t slotCount;  // a power of two
  std::uint64_t capacity;   // rows the writer accepts, below slotCount
  std::uint64_t slotsOffset;
  std::uint64_t logCapacity;  // a power of two
  std::uint64_t logStride;
  std::uint64_t logOffset;
  std::uint64_t readersOffset;
  std::uint64_t segmentBytes;
  // Changed while the segment lives; accessed atomically only.
  alignas(64) std::uint64_t logHead;  // entries ever appended
  std::uint64_t rowCount;
  std::uint32_t quiesced;
  std::uint32_t closed;  // the writer closed the table cleanly
  // Odd while the writer moves rows to clear tombstones; a reader's probe
  // or scan that saw it change starts again.
  std::uint64_t layoutGeneration;
  alignas(64) std::uint64_t waitingReaders;  // bit i: reader slot i sleeps on its wake-up FIFO
};

// A reader slot is one u64: the reader's pid in the high half (0: free) and
// a registration count in the low half, bumped by each reader that takes the
// slot, so the writer can tell a new FIFO behind the same path from the old.
constexpr std::uint64_t readerWord(std::uint32_t pid, std::uint32_t generation) {
  return (std::uint64_t{pid} << 32) | generation;
}
constexpr std::uint32_t readerPid(std::uint64_t word) { return static_cast<std::uint32_t>(word >> 32); }
constexpr std::uint32_t readerGeneration(std::uint64_t word) { return static_cast<std::uint32_t>(word); }

struct SlotHead {
  std::uint32_t seq;
  std::uint32_t state;
};

template <class T>
T load(const void* p, std::memory_order order = std::memory_order_acquire) {
  return std::atomic_ref<T>(*static_cast<T*>(const_cast<void*>(p))).load(order);
}

template <class T>
void store(void* p, T value, std::memory_order order = std::memory_order_release) {
  std::atomic_ref<T>(*static_cast<T*>(p)).store(value, order);
}

// Word-wise relaxed copies between private and shared memory; `bytes` is a
// multiple of 8 and both sides are 8-byte aligned.
inline void copyIn(void* shared, const void* local, std::size_t bytes) {
  auto* to = static_cast<std::uint64_t*>(shared);
  auto* from = static_cast<const std::uint64_t*>(local);
  for (std::size_t i = 0; i < bytes / 8; ++i)
    std::atomic_ref<std::uint64_t>(to[i]).store(from[i], std::memory_order_relaxed);
}

// The same from unaligned private bytes of any length; the tail of the last
// word is written as zeros.
inline void copyInBytes(void* shared, const void* local, std::size_t bytes) {
  auto* to = static_cast<std::uint64_t*>(shared);
  auto* from = static_cast<const unsigned char*>(local);
  std::size_t full = bytes / 8;
  for (std::size_t i = 0; i < full; ++i) {
    std::uint64_t word;
    std::memcpy(&word, from + 8 * i, 8);
    std::atomic_ref<std::uint64_t>(to[i]).store(word, std::memory_order_relaxed);
  }
  if (bytes % 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, from + 8 * full, bytes % 8);
    std::atomic_ref<std::uint64_t>(to[full]).store(word, std::memory_order_relaxed);
  }
}

inline void copyOut(void* local, const void* shared, std::size_t bytes) {
  auto* to = static_cast<std::uint64_t*>(local);
  auto* from = static_cast<std::uint64_t*>(const_cast<void*>(shared));
  for (std::size_t i = 0; i < bytes / 8; ++i)
    to[i] = std::atomic_ref<std::uint64_t>(from[i]).load(std::memory_order_relaxed);
}

}  // namespace Pond::Layout
