#include "platform/vex/Memory.h"

#include <malloc.h>

namespace Vex {

void keepFreedMemory() {
  // 1 GiB: never trimmed in practice. 32 MiB is the largest block glibc
  // will serve from the heap; above it a table keeps a map of its own.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
}

}  // namespace Vex
