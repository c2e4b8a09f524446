// Shrinking a long command list down to what parts the chip from the
// model, without wandering off to another kind of difference.
#include "tests/soak/SoakRunner.h"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>

namespace Soak {
namespace {

// A learned address whose row the chip layer deletes behind the model's
// back (the model has no rule for that command): the forwarding database
// differs. Around it, a few hundred commands of several families that the
// difference does not need.
std::vector<std::string> longListLosingALearn() {
  std::vector<std::string> lines = {"spanning-tree topology MST1 vlans 10-11"};
  for (int i = 0; i < 60; ++i) {
    lines.push_back(fmt::format("vlan {} add Ethernet{}", 10 + i % 4, 1 + i % 4));
    lines.push_back(fmt::format("spanning-tree MST1 Ethernet{} forwarding", 1 + i % 4));
    lines.push_back(fmt::format("interface Ethernet{} storm-control broadcast level {}", 1 + i % 8, 1 + i % 50));
    lines.push_back("advance 1");
    if (i == 30) lines.push_back("chip learn 0000.0000.0042 vlan 12 Ethernet3");
    if (i == 45) lines.push_back("chip mac-table remove 0000.0000.0042 vlan 12");
  }
  return lines;
}

TEST(SoakShrink, KeepsWhatTheDifferenceNeedsAndItsKind) {
  auto lines = longListLosingALearn();
  auto difference = replay(lines);
  ASSERT_TRUE(difference);
  EXPECT_EQ(kindOf(*difference), "fdb");
  auto shrunk = shrink(lines, 60, *difference, {}, 1);
  // The learn, its removal, and the VLAN membership the learn needs.
  EXPECT_LE(shrunk.size(), 4u);
  EXPECT_NE(std::find(shrunk.begin(), shrunk.end(), "chip learn 0000.0000.0042 vlan 12 Ethernet3"), shrunk.end());
  EXPECT_NE(std::find(shrunk.begin(), shrunk.end(), "chip mac-table remove 0000.0000.0042 vlan 12"), shrunk.end());
  auto left = replay(shrunk);
  ASSERT_TRUE(left);
  EXPECT_EQ(kindOf(*left), "fdb");
}

TEST(SoakShrink, NothingToShrinkWhenTheChipAgrees) {
  std::vector<std::string> lines = {"vlan 10 add Ethernet1", "mac static 0000.0000.0042 vlan 10 Ethernet1"};
  EXPECT_FALSE(replay(lines));
}

}  // namespace
}  // namespace Soak
