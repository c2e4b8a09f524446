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

// Calls fn(item) for each of `items` in order, each stretch of them looked
// up with lookAhead(item) before the first of the stretch is handled.
template <class Items, class LookAheadFn, class Fn>
void forEachLookingAhead(const Items& items, LookAheadFn lookAhead, Fn fn) {
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i % lookAheadDistance == 0) {
      for (std::size_t j = i; j < items.size() && j < i + lookAheadDistance; ++j) lookAhead(items[j]);
    }
    fn(items[i]);
  }
}

}  // namespace Vex
