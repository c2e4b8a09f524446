// What every fuzz target shares: a failed check stops the run with the input
// and what was expected, so that libFuzzer records the input as a crash.
#pragma once

#include "platform/vex/Value.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace Fuzz {

[[noreturn]] inline void fail(std::string_view what, std::string_view input) {
  std::fprintf(stderr, "fuzz check failed: %.*s\ninput: '%.*s'\n", static_cast<int>(what.size()), what.data(),
               static_cast<int>(input.size()), input.data());
  std::fflush(stderr);
  std::abort();
}

inline void check(bool ok, std::string_view what, std::string_view input) {
  if (!ok) fail(what, input);
}

inline std::string text(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// A value that parsed prints, and its printed form parses back to an equal
// value that prints the same. Values that hold a NaN compare unequal to
// themselves, so equality is checked on the printed form as well as with ==.
template <class T>
void checkStrepRoundTrip(const T& value, std::string_view input) {
  std::string printed = Vex::toStrep(value);
  T again{};
  try {
    again = Vex::fromStrep<T>(printed);
  } catch (const std::exception& e) {
    fail(std::string("printed form does not parse back: ") + printed + ": " + e.what(), input);
  }
  check(Vex::toStrep(again) == printed, "printed form parses to a value that prints differently: " + printed, input);
  if (printed.find("nan") == std::string::npos) {
    check(again == value, "printed form parses to a different value: " + printed, input);
  }
}

// Parses `input` as the printed form of T; on success checks the round trip.
// A ParseError (or the range error of a bounded value) is the expected
// refusal of bad text; any other exception escapes and ends the run.
template <class T>
bool tryStrep(std::string_view input) {
  T value{};
  try {
    value = Vex::fromStrep<T>(input);
  } catch (const Vex::ParseError&) {
    return false;
  }
  checkStrepRoundTrip(value, input);
  return true;
}

}  // namespace Fuzz
