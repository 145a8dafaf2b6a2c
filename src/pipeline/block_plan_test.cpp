// SPDX-License-Identifier: Apache-2.0
#include "pipeline/block_plan.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>

namespace tqtortho {
namespace {

TEST(BlockPlanTest, GroupsAndScalesAtTheirEdges) {
  for (const auto& [photos, threads, group] : {std::array{12, 8, 1},
                                               {7, 8, 1},
                                               {0, 8, 1},
                                               {40, 8, 5},
                                               {39, 8, 4},
                                               {INT_MAX, 64, 5},
                                               {7, INT_MAX, 1}}) {
    EXPECT_EQ(GroupSize(photos, threads), group) << photos << " on " << threads;
  }
  const struct {
    int width, height;
    bool sizing;
    double scale;
  } cases[] = {{120, 40, false, 4},
               {120, 40, true, 2},
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
