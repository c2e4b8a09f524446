// Interface lists as typed ("Ethernet1-4,Port-Channel10"): bad text is a
// CommandError; a list that parses holds ids whose names, joined by commas,
// parse back to the same list.
#include "agent/CommandShell.h"
#include "agent/IntfRange.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  std::vector<Nexo::IntfId> ids;
  try {
    ids = Agent::parseIntfRange(input);
  } catch (const Agent::CommandError&) {
    return 0;
  }
  Fuzz::check(!ids.empty(), "a list that parses names no interface", input);
  std::string names;
  for (const auto& id : ids) {
    Fuzz::check(!id.empty(), "a list holds the empty id", input);
    names += (names.empty() ? "" : ",") + id.stringValue();
  }
  std::vector<Nexo::IntfId> again;
  try {
    again = Agent::parseIntfRange(names);
  } catch (const Agent::CommandError& e) {
    Fuzz::fail("printed names do not parse back: " + names + ": " + e.what(), input);
  }
  Fuzz::check(again == ids, "printed names parse to another list: " + names, input);
  return 0;
}
