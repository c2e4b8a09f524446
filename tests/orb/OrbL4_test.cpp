// Port ranges to TCAM blocks: the expansion, its boundaries and its count.
#include "Orb/OrbL4.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Orb::AclPortMask;
using Orb::AclPortMaskVector;

AclPortMaskVector masks(std::uint16_t low, std::uint16_t high, bool isRange = true) {
  AclPortMaskVector result;
  Orb::createL4PortMasks(low, high, isRange, result);
  return result;
}

TEST(OrbL4, BoundariesAndAlignedBlocks) {
  EXPECT_EQ(masks(0, 65535), (AclPortMaskVector{{0, 65535, 0}}));
  EXPECT_EQ(masks(5, 5), (AclPortMaskVector{{5, 5, 65535}}));
  EXPECT_EQ(masks(1024, 2047), (AclPortMaskVector{{1024, 2047, 64512}}));
  EXPECT_EQ(masks(0, 0), (AclPortMaskVector{{0, 0, 65535}}));
  EXPECT_EQ(masks(65535, 65535), (AclPortMaskVector{{65535, 65535, 65535}}));
  // 32768..65535 is one block: the top bit alone must match.
  EXPECT_EQ(masks(32768, 65535), (AclPortMaskVector{{32768, 65535, 32768}}));
}

TEST(OrbL4, OneToTheTopIsSixteenDoublingBlocks) {
  auto result = masks(1, 65535);
  ASSERT_EQ(result.size(), 16u);
  for (unsigned k = 0; k < 16; ++k) {
    const std::uint32_t first = 1u << k;
    EXPECT_EQ(result[k].value, first) << k;
    EXPECT_EQ(result[k].last, 2 * first - 1) << k;
    EXPECT_EQ(result[k].mask, static_cast<std::uint16_t>(~(first - 1))) << k;
  }
}

TEST(OrbL4, NotARangeMatchesAnyPortWhateverTheBounds) {
  EXPECT_EQ(masks(10, 20, false), (AclPortMaskVector{{0, 0, 0}}));
  EXPECT_EQ(masks(7, 3, false), (AclPortMaskVector{{0, 0, 0}}));
  // Appends: what was there stays.
  AclPortMaskVector result{{1, 1, 65535}};
  Orb::createL4PortMasks(2, 3, true, result);
  EXPECT_EQ(result, (AclPortMaskVector{{1, 1, 65535}, {2, 3, 65534}}));
}

TEST(OrbL4, BlocksCoverExactlyTheRangeAndCountMatches) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> port(0, 65535);
  for (int i = 0; i < 2000; ++i) {
    auto a = static_cast<std::uint16_t>(port(rng));
    auto b = static_cast<std::uint16_t>(port(rng));
    if (a > b) std::swap(a, b);
    auto result = masks(a, b);
    ASSERT_EQ(result.size(), Orb::numL4PortMasks(a, b)) << a << ".." << b;
    ASSERT_LE(result.size(), 30u);
    // Contiguous, in order, each block aligned and matched by its mask.
    std::uint32_t next = a;
    for (const auto& block : result) {
      ASSERT_EQ(block.value, next);
      ASSERT_TRUE(block.matches(block.value) && block.matches(block.last));
      if (block.value > 0) {
        ASSERT_FALSE(block.matches(static_cast<std::uint16_t>(block.value - 1)));
      }
      if (block.last < 65535) {
        ASSERT_FALSE(block.matches(static_cast<std::uint16_t>(block.last + 1)));
      }
      next = block.last + 1u;
    }
    ASSERT_EQ(next, b + 1u);
  }
  // The worst case: 1..65534 takes 30 blocks.
  EXPECT_EQ(Orb::numL4PortMasks(1, 65534), 30u);
}

}  // namespace
