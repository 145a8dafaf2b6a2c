// SPDX-License-Identifier: Apache-2.0
#include "rectify/z_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace tqtortho {
namespace {

using ::testing::ElementsAre;

/// Enters cells first, first + 1, ... at these distances into one pixel; returns the mask.
std::vector<int> MaskOf(std::vector<double> distances, std::uint32_t first = 1) {
  std::vector<std::uint8_t> hidden(8);
  ZBuffer buffer(4, hidden.size(), hidden.data());
  for (std::size_t i = 0; i < distances.size(); ++i) {
    buffer.Enter(2, first + static_cast<std::uint32_t>(i), distances[i]);
  }
  return {hidden.begin() + first, hidden.begin() + first + static_cast<int>(distances.size())};
}

TEST(ZBufferTest, TheFartherOfTwoCellsIsHidden) {
  EXPECT_THAT(MaskOf({1000, 2000}), ElementsAre(0, 255));
  EXPECT_THAT(MaskOf({2000, 1000}), ElementsAre(255, 0));
  EXPECT_THAT(MaskOf({3000, 2000, 1000, 2500}), ElementsAre(255, 255, 0, 255));
  EXPECT_THAT(MaskOf({5000}), ElementsAre(0));
}

// The stored distance is a whole number and the new one is not, so the same true distance loses.
TEST(ZBufferTest, TheStoredWholeNumberIsComparedWithTheFullDistance) {
  EXPECT_THAT(MaskOf({1000.7, 1000.7}), ElementsAre(0, 255));
  EXPECT_THAT(MaskOf({1000.7, 1000.2}), ElementsAre(0, 255));
  EXPECT_THAT(MaskOf({1000.7, 1000.0}), ElementsAre(0, 0));
  EXPECT_THAT(MaskOf({1000.7, 999.999}), ElementsAre(255, 0));
}

// Equal distances leave the first cell in place, so a later nearer one hides only that one.
TEST(ZBufferTest, EqualDistancesKeepTheFirstCell) {
  EXPECT_THAT(MaskOf({1000.7, 1000.0, 500}), ElementsAre(255, 0, 0));
}

TEST(ZBufferTest, CellZeroAtDistanceZeroLeavesThePixelEmpty) {
  EXPECT_THAT(MaskOf({0.9, 700, 800}, 0), ElementsAre(0, 0, 255));
  EXPECT_THAT(MaskOf({1.9, 700, 800}, 0), ElementsAre(0, 255, 255));
  EXPECT_THAT(MaskOf({0.9, 700}, 1), ElementsAre(0, 255));
}

TEST(ZBufferTest, DistancesBeyondTheIntegerRangeSaturate) {
  EXPECT_THAT(MaskOf({1e300, 1e12}), ElementsAre(0, 255));
  EXPECT_THAT(MaskOf({1e12, 5}), ElementsAre(255, 0));
}

TEST(ZBufferTest, PixelsDoNotMix) {
  std::vector<std::uint8_t> hidden(4);
  ZBuffer buffer(3, 4, hidden.data());
  buffer.Enter(0, 1, 10);
  buffer.Enter(1, 2, 20);
  buffer.Enter(2, 3, 5);
  EXPECT_THAT(hidden, ElementsAre(0, 0, 0, 0));
}

}  // namespace
}  // namespace tqtortho
