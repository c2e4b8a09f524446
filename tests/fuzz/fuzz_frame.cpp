// The frame syntax of `chip send`: bad text is a FrameSyntaxError; a frame
// that parses prints in its canonical form, which parses back to the same
// frame and prints the same.
#include "chip/softchip/SoftFrame.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  SoftChip::Frame frame;
  try {
    frame = SoftChip::frameFromText(input);
  } catch (const SoftChip::FrameSyntaxError& e) {
    Fuzz::check(*e.what() != '\0', "a refusal without a message", input);
    return 0;
  }
  std::string printed = SoftChip::frameText(frame);
  SoftChip::Frame again;
  try {
    again = SoftChip::frameFromText(printed);
  } catch (const SoftChip::FrameSyntaxError& e) {
    Fuzz::fail("printed frame does not parse back: " + printed + ": " + e.what(), input);
  }
  Fuzz::check(again == frame, "printed frame parses to another frame: " + printed, input);
  Fuzz::check(SoftChip::frameText(again) == printed, "printed frame is not canonical: " + printed, input);
  Fuzz::check(SoftChip::frameFlowHash(again) == SoftChip::frameFlowHash(frame), "equal frames hash apart", input);
  return 0;
}
