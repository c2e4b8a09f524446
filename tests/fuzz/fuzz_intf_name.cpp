// Interface names (Nexo::IntfId): a name that parses prints as itself, and
// its printed name parses back to the same id with the same parent.
#include "platform/types/Nexo.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  Nexo::IntfId id;
  try {
    id = Nexo::IntfId(input);
  } catch (const Vex::ParseError&) {
    return 0;
  }
  // Names are exact, so the only spelling of an id is its name.
  Fuzz::check(id.stringValue() == input, "name prints differently: " + id.stringValue(), input);
  Fuzz::check(Nexo::IntfId(id.stringValue()) == id, "printed name parses to another id", input);
  Fuzz::check(id.empty() == input.empty(), "only the empty name is the empty id", input);
  Fuzz::check(Nexo::IntfId(id.parentIntfId().stringValue()) == id.parentIntfId(), "parent does not round-trip", input);
  Fuzz::check(id.isSubIntf() == (input.find('.') != std::string::npos), "sub-interface without a dot", input);
  return 0;
}
