// The forms every soft-chip table's `chip TABLE ...` command shares.
#pragma once

#include "agent/CommandShell.h"
#include "chip/softchip/SoftChip.h"

#include <string>

namespace Agent {

// Carries out `capacity N` or `busy|full|fail next N` on the chip's table
// named `table`; anything else is refused with `usage`.
void applyChipTableArgs(SoftChip::SoftChip& chip, const char* table, const Args& args, const std::string& usage);

// A chip's answer to adding an entry, as show commands print it:
// "programmed", "busy", "table-full" or "failed(N)".
std::string tableAddStatusText(std::uint32_t status);

}  // namespace Agent
