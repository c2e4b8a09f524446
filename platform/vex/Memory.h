// Memory settings of a long-running reactor process.
#pragma once

namespace Vex {

// The forwarding agent's memory rises and falls in bursts: thousands of
// entries configured or learned at once, then flushed or unconfigured.
// Handing every freed stretch back to the kernel, only to fault it in page
// by page on the next burst, costs more than the memory is worth to a
// process that will need it again. Call once at start: the heap then keeps
// what it freed, and large tables come from the heap rather than from maps
// of their own that are unmapped when they shrink.
void keepFreedMemory();

}  // namespace Vex
