// IPv4 and IPv6 addresses and prefixes: what parses prints in its canonical
// form, which parses back to the same value and prints the same.
#include "platform/types/Nexo.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

template <class T>
void roundTrip(const std::string& input) {
  T value;
  try {
    value = T(input);
  } catch (const Vex::ParseError&) {
    return;
  }
  std::string printed = value.stringValue();
  T again;
  try {
    again = T(printed);
  } catch (const Vex::ParseError& e) {
    Fuzz::fail("printed form does not parse back: " + printed + ": " + e.what(), input);
  }
  Fuzz::check(again == value, "printed form parses to another value: " + printed, input);
  Fuzz::check(again.stringValue() == printed, "printed form is not canonical: " + printed, input);
  Fuzz::checkStrepRoundTrip(value, input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  roundTrip<Nexo::IpAddr>(input);
  roundTrip<Nexo::Ip6Addr>(input);
  roundTrip<Nexo::IpGenAddr>(input);
  roundTrip<Nexo::Prefix>(input);
  roundTrip<Nexo::Ip6Prefix>(input);
  return 0;
}
