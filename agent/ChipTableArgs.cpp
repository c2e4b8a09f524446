#include "agent/ChipTableArgs.h"

#include "platform/model/MacTypes.h"

#include <fmt/format.h>

namespace Agent {

void applyChipTableArgs(SoftChip::SoftChip& chip, const char* table, const Args& args, const std::string& usage) {
  if (args.size() == 2 && args[0] == "capacity") {
    chip.capacityIs(table, static_cast<std::size_t>(parseInteger(args[1], 0, 100000000)));
    return;
  }
  SoftChip::Fault fault = SoftChip::faultFromName(args[0] == "fail" ? "failed" : args[0]);
  if (fault == SoftChip::Fault::none || args.size() != 3 || args[1] != "next") throw CommandError("usage: " + usage);
  chip.faultIs(table, fault, static_cast<std::uint32_t>(parseInteger(args[2], 1, 1000000)));
}

std::string tableAddStatusText(std::uint32_t status) {
  switch (status) {
    case OrbTypes::tableAddSuccess:
      return "programmed";
    case OrbTypes::tableAddBusy:
      return "busy";
    case OrbTypes::tableAddFull:
      return "table-full";
    default:
      return fmt::format("failed({})", status);
  }
}

}  // namespace Agent
