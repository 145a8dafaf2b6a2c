// SPDX-License-Identifier: Apache-2.0
#include "pipeline/block_plan.h"

#include <gtest/gtest.h>

#include <climits>

namespace tqtortho {
namespace {

TEST(GroupSizeTest, FiveOrAThreadsShareButNeverNothing) {
  const struct {
    int photos, threads, group;
  } cases[] = {{12, 8, 1}, {100, 8, 5}, {7, 8, 1}, {0, 8, 1},        {40, 8, 5},
               {39, 8, 4}, {16, 8, 2},  {4, 1, 4}, {INT_MAX, 64, 5}, {7, INT_MAX, 1}};
  for (const auto& c : cases) {
    EXPECT_EQ(GroupSize(c.photos, c.threads), c.group) << c.photos << " on " << c.threads;
  }
}

TEST(ReductionScaleTest, WholeNumbersFromTheLongerSide) {
  const struct {
    int width, height;
    bool sizing;
    double scale;
  } cases[] = {{120, 40, false, 4},
               {120, 40, true, 2},
               {20, 20, false, 1},
               {0, 0, false, 1},
               {59, 29, false, 1},
               {29, 3000, false, 100},
               {-5, -5, false, 1},
               // The scale passes through single precision on its way.
               {INT_MAX, 1, false, 71582784}};
  for (const auto& c : cases) {
    EXPECT_EQ(ReductionScale(c.width, c.height, c.sizing), c.scale) << c.width << " " << c.height;
  }
}

}  // namespace
}  // namespace tqtortho
