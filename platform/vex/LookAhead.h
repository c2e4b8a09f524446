// Looking keys up ahead of their use. A lookup in a table much larger than
// the cache waits for memory; a loop that walks a known sequence of keys
// looks the next stretch of them up together, in a tight loop where the
// waits of several lookups overlap, and then finds each key at hand.
#pragma once

#include <cstddef>

namespace Vex {

constexpr std::size_t lookAheadDistance = 16;

// Asks for the memory at `address` without waiting for it.
inline void prefetchMemory(const void* address) { __builtin_prefetch(address); }

// Looks `key` up in `table` for the memory it brings in, the whole of the
// entry if there is one; nothing else.
template <class Table, class Key>
inline void lookAhead(const Table& table, const Key& key) {
  auto found = table.find(key);
  if (found == table.end()) return;
  // The lookup read the key; the rest of the entry may lie on the next line.
  prefetchMemory(reinterpret_cast<const char*>(&*found) + sizeof(*found) - 1);
}

}  // namespace Vex
